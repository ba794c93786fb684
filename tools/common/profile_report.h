// The profile report shared by `tintra info` and `tintra-inspect`: what the
// library's profile reader sees in a file (header, tag directory with each
// element's type, and the model it becomes as source and as destination for
// each intent code).
#pragma once

#include <string>

namespace tintra3::report {

// Prints the report of the profile at `path` under the heading `title` to
// standard output. A file that cannot be read as a profile gives false and
// one error line instead: on standard output, or, when `error` is given, in
// *error for the caller to report (nothing printed).
// `extra` (whole lines) is printed at the end of the report.
bool PrintProfileReport(const std::string& path, const std::string& title, std::string* error = nullptr,
                        const std::string& extra = "");

}  // namespace tintra3::report
