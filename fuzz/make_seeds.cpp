// Writes the crafted seeds of the fuzz corpus: small profiles that reach
// each reader and builder path (and the shapes that once overran buffers),
// tone-curve operation lists, and tiny TIFF and PNG images.
//   make_seeds <fuzz/corpus>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/iccwriter/icc_writer.h"
#include "tools/tintra/image_io.h"

namespace {

namespace fs = std::filesystem;
using namespace tintra3;
using icc::Sig4;

void Write(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::FILE* f = std::fopen(path.string().c_str(), "wb");
    if (f == nullptr) throw std::runtime_error("cannot write " + path.string());
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

void Profiles(const fs::path& dir) {
    fs::create_directories(dir);
    Write(dir / "crafted-matrix-trc-gamma.icc", icc::MatrixTrcGammaProfile({}, 2.2).Bytes());
    Write(dir / "crafted-matrix-trc-sampled.icc", icc::MatrixTrcProfile({}, {0, 1000, 9000, 30000, 65535}).Bytes());
    Write(dir / "crafted-matrix-trc-falling.icc", icc::MatrixTrcProfile({}, {65535, 20000, 0}).Bytes());
    Write(dir / "crafted-matrix-trc-identity.icc", icc::MatrixTrcProfile({}, {}).Bytes());
    Write(dir / "crafted-gray-lab.icc", icc::GrayProfile(1.8, Sig4("Lab ")).Bytes());
    Write(dir / "crafted-gray-xyz.icc", icc::GrayProfile(2.2, Sig4("XYZ ")).Bytes());
    const icc::Lut cmykIn = icc::ShapedLut(4, 3, 3, 8);
    const icc::Lut cmykOut = icc::ShapedLut(3, 4, 3, 8);
    Write(dir / "crafted-cmyk-mft2.icc",
          icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &cmykIn, &cmykOut, true).Bytes());
    const icc::Lut rgb8 = icc::ShapedLut(3, 3, 3, 256);
    Write(dir / "crafted-rgb-mft1-xyz.icc",
          icc::LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("XYZ "), &rgb8, &rgb8, false).Bytes());
    // A printer in gamut mode: one output channel behind a CMYK header.
    icc::ProfileWriter gamut = icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &cmykIn, &cmykOut, true);
    gamut.AddTag(Sig4("gamt"), icc::Mft2Element(icc::ShapedLut(3, 1, 2, 2)));
    Write(dir / "crafted-cmyk-gamt.icc", gamut.Bytes());
    // Damaged on purpose: a directory count the file cannot hold, a curve
    // count past the end, a truncated table.
    icc::ProfileWriter big = icc::MatrixTrcGammaProfile({}, 2.2);
    big.tagCountOverride = 0x10000000;
    Write(dir / "crafted-directory-count-too-large.icc", big.Bytes());
    icc::ProfileWriter cut = icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &cmykIn, &cmykOut, true);
    cut.truncateAt = 400;
    Write(dir / "crafted-truncated-lut.icc", cut.Bytes());
}

void ToneCurves(const fs::path& dir) {
    fs::create_directories(dir);
    // byte 0: pair and method; then call, side, bits, channels, length (u16), values.
    const std::vector<std::vector<uint8_t>> inputs = {
        {0x00, 0, 0, 0, 1, 0, 2, 0, 0, 0xFF, 0xFF},                 // grey, method 0, change input
        {0x04, 1, 1, 3, 1, 0, 3, 0, 0, 0x80, 0, 0xFF, 0xFF},        // grey, method 1, merge output
        {0x01, 2, 0, 3, 3, 0, 1, 0x02, 0x00, 0x02, 0, 0x02, 0},     // RGB, toolbox gamma
        {0x05, 3, 1, 0, 3, 0, 0},                                   // RGB, method 1, toolbox identity
        {0x02, 0, 1, 0, 4, 0, 2, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF},
        {0x07, 1, 0, 2, 4, 0, 2, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0},
    };
    for (size_t i = 0; i < inputs.size(); ++i) Write(dir / ("crafted-ops-" + std::to_string(i)), inputs[i]);
}

void Images(const fs::path& dir) {
    fs::create_directories(dir);
    struct Shape {
        const char* name;
        int channels;
        bool alpha;
        int bits;
        bool planar;
        bool png;
    };
    const Shape shapes[] = {
        {"rgb8.tif", 3, false, 8, false, false},   {"cmyk16-planar.tif", 4, false, 16, true, false},
        {"grey8-alpha.tif", 1, true, 8, false, false}, {"rgb8.png", 3, false, 8, false, true},
        {"grey16.png", 1, false, 16, false, true},  {"rgba8.png", 3, true, 8, false, true},
    };
    for (const Shape& s : shapes) {
        cli::Image im;
        im.width = 3;
        im.height = 2;
        im.colourChannels = s.channels;
        im.alpha = s.alpha;
        im.bits = s.bits;
        im.planar = s.planar;
        im.colorSpace = s.channels == 4 ? Sig4("CMYK") : s.channels == 1 ? Sig4("GRAY") : Sig4("RGB ");
        im.Allocate();
        for (size_t i = 0; i < im.data.size(); ++i) im.data[i] = uint8_t(i * 41);
        const fs::path tmp = dir / "tmp.img";
        cli::WriteImage(im, s.png ? cli::FileFormat::kPng : cli::FileFormat::kTiff, tmp.string(), s.name);
        std::FILE* f = std::fopen(tmp.string().c_str(), "rb");
        std::vector<uint8_t> bytes;  // the reader goes by the first bytes, as the tool does
        int c;
        while ((c = std::fgetc(f)) != EOF) bytes.push_back(uint8_t(c));
        std::fclose(f);
        fs::remove(tmp);
        Write(dir / (std::string("crafted-") + s.name), bytes);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_seeds <corpus directory>\n");
        return 2;
    }
    const fs::path root(argv[1]);
    Profiles(root / "profiles");
    ToneCurves(root / "tone_curves");
    Images(root / "images");
    return 0;
}
