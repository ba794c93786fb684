// Helpers shared by the test programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tintra3::test {

// Path of a profile from the Debian packages (icc-profiles-free, libgs-common),
// e.g. RealProfile("sRGB.icc") or RealProfile("ghostscript/default_cmyk.icc").
std::string RealProfile(const std::string& relative);

// A fresh path inside the test scratch folder; the file is not created.
std::string TempPath(const std::string& name);

// Writes bytes to a fresh scratch file and returns its path.
std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes);

}  // namespace tintra3::test
