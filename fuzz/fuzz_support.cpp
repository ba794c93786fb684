// Scratch files and reference profiles for the fuzz targets.
#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "profile/profile_file.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3::fuzz {

namespace {

std::string ScratchDir() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

}  // namespace

std::string ScratchPath(const std::string& name) {
    return ScratchDir() + "/tintra3-fuzz-" + std::to_string(getpid()) + "-" + name;
}

std::string WriteScratch(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = ScratchPath(name);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) std::abort();
    if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
    std::fclose(f);
    return path;
}

const std::vector<Reference>& ReferenceProfiles() {
    static const std::vector<Reference> paths = [] {
        std::vector<Reference> out;
        auto write = [&out](const icc::ProfileWriter& w, const char* name) {
            const std::vector<uint8_t> bytes = w.Bytes();
            out.push_back({WriteScratch(name, bytes.data(), bytes.size()), CallerChannels(bytes.data(), bytes.size())});
        };
        write(icc::MatrixTrcGammaProfile({}, 2.2), "ref-rgb.icc");
        write(icc::GrayProfile(1.8, icc::Sig4("Lab ")), "ref-gray.icc");
        const icc::Lut a2b = icc::ShapedLut(4, 3, 3, 16);
        const icc::Lut b2a = icc::ShapedLut(3, 4, 5, 16);
        write(icc::LutProfile(icc::Sig4("prtr"), icc::Sig4("CMYK"), icc::Sig4("Lab "), &a2b, &b2a, true),
              "ref-cmyk.icc");
        const icc::Lut rgbIn = icc::ShapedLut(3, 3, 4, 256);
        write(icc::LutProfile(icc::Sig4("scnr"), icc::Sig4("RGB "), icc::Sig4("XYZ "), &rgbIn, &rgbIn, false),
              "ref-scanner.icc");
        return out;
    }();
    return paths;
}

uint32_t CallerChannels(const uint8_t* profile, size_t size) {
    if (size < 20) return 4;
    const uint32_t space = (uint32_t(profile[16]) << 24) | (uint32_t(profile[17]) << 16) |
                           (uint32_t(profile[18]) << 8) | uint32_t(profile[19]);
    const uint32_t channels = ColourSpaceChannels(space);
    return channels != 0 ? channels : 4;
}

}  // namespace tintra3::fuzz
