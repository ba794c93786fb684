#include "support/test_support.h"

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

namespace tintra3::test {

std::string RealProfile(const std::string& relative) { return std::string(TINTRA3_ICC_DIR) + "/" + relative; }

std::string TempPath(const std::string& name) {
    // The process id keeps test programs that run at once apart.
    std::filesystem::path dir = std::filesystem::path(TINTRA3_TEST_TMP) / std::to_string(::getpid());
    std::filesystem::create_directories(dir);
    return (dir / name).string();
}

std::string WriteTempFile(const std::string& name, const std::vector<uint8_t>& bytes) {
    std::string path = TempPath(name);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) throw std::runtime_error("cannot create " + path);
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
}

}  // namespace tintra3::test
