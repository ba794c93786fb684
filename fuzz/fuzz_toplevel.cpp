// The top level with a fuzzed profile as source or destination (the other
// a well-formed display profile), both in a registered monitor folder: the
// header checks, the build and 64-pixel chunks of three-byte pixels into
// buffers of exactly three bytes a pixel. The last input byte chooses the
// side, intent, method and pixel count.
#include <sys/stat.h>

#include <cstdint>
#include <vector>

#include "api/exports.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tintra3::fuzz;
    if (size < 2) return 0;
    static const std::string folder = [] {
        const std::string dir = ScratchPath("Monitor");
        mkdir(dir.c_str(), 0700);
        return dir;
    }();
    static const std::string display = [] {
        const std::string path = folder + "/display.icc";
        std::FILE* in = std::fopen(ReferenceProfiles()[0].path.c_str(), "rb");
        std::FILE* out = std::fopen(path.c_str(), "wb");
        int c;
        while (in != nullptr && out != nullptr && (c = std::fgetc(in)) != EOF) std::fputc(c, out);
        if (in != nullptr) std::fclose(in);
        if (out != nullptr) std::fclose(out);
        return path;
    }();
    const uint8_t options = data[size - 1];
    const std::string fuzzed = folder + "/fuzzed.icc";
    if (std::FILE* f = std::fopen(fuzzed.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    DirectoryTable dirs{};
    SetDirectoryName("Printer", "Monitor", "Scanner", &dirs);
    const bool fuzzedIsSource = (options & 1) != 0;
    const uint32_t pixels = 1 + ((options >> 1) & 7) * 23;  // 1 .. 162: whole chunks and a rest
    std::vector<uint8_t> in(size_t(pixels) * 3);
    for (size_t i = 0; i < in.size(); ++i) in[i] = uint8_t(i * 29);
    std::vector<uint8_t> out(size_t(pixels) * 3);
    const std::string& source = fuzzedIsSource ? fuzzed : display;
    const std::string& destination = fuzzedIsSource ? display : fuzzed;
    tintra(in.data(), pixels, out.data(), source.c_str(), destination.c_str(), (options >> 4) & 3, (options >> 6) & 3,
           &dirs);
    return 0;
}
