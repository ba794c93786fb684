// tintra-inspect: prints what the library reads from ICC profiles: the
// header, the tag directory with each element's type, and the model each
// profile becomes as source and as destination for every intent code.
//
//   tintra-inspect [PROFILE...]
//
// Without arguments it inspects every profile under /usr/share/color/icc.
#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "tools/common/profile_report.h"

namespace {

// Where the Debian profile packages install their profiles.
constexpr const char* kSystemProfileDir = "/usr/share/color/icc";

bool IsProfileName(const std::filesystem::path& p) {
    std::string ext = p.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext == ".icc" || ext == ".icm";
}

// Every profile file below `dir`, sorted by path. Unreadable folders are skipped.
std::vector<std::string> SystemProfiles(const char* dir) {
    namespace fs = std::filesystem;
    std::vector<std::string> paths;
    std::error_code ec;
    fs::recursive_directory_iterator it(
        dir, fs::directory_options::follow_directory_symlink | fs::directory_options::skip_permission_denied, ec);
    for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
        std::error_code fileEc;
        if (it->is_regular_file(fileEc) && IsProfileName(it->path())) paths.push_back(it->path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

void Usage(std::FILE* out) {
    std::fprintf(out,
                 "usage: tintra-inspect [PROFILE...]\n"
                 "Prints the header, the tag directory and the source/destination model of each\n"
                 "profile for intent codes 0..3. Without arguments, inspects every *.icc/*.icm\n"
                 "file under %s.\n",
                 kSystemProfileDir);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> paths;
    bool endOfOptions = false;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (!endOfOptions && std::strcmp(arg, "--") == 0) {
            endOfOptions = true;
        } else if (!endOfOptions && (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0)) {
            Usage(stdout);
            return 0;
        } else if (!endOfOptions && arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "tintra-inspect: unknown option %s\n", arg);
            Usage(stderr);
            return 2;
        } else {
            paths.push_back(arg);
        }
    }
    if (argc == 1) {
        paths = SystemProfiles(kSystemProfileDir);
        if (paths.empty()) {
            std::fprintf(stderr, "tintra-inspect: no profiles found under %s\n", kSystemProfileDir);
            return 1;
        }
    }
    for (const std::string& path : paths) tintra3::report::PrintProfileReport(path, path);
    return 0;
}
