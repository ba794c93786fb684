// Profiles whose tables disagree with their headers, and blocks whose size
// does not fit in 32 bits: both used to move the kernels past the caller's
// buffers. Each case here overflowed (or read past) a buffer before.
#include <filesystem>

#include "api_fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tintra3::test;
using tintra3::icc::Sig4;

enum Side { kAsSource, kAsDestination };

struct LutCase {
    const char* why;
    Side side;
    uint32_t space;
    uint8_t inputs;
    uint8_t outputs;
    bool withMatrixTrc;  // a usable matrix/TRC beside the table
    uint32_t expected;
};

std::string WriteLutProfile(const LutCase& c) {
    tintra3::icc::ProfileWriter w;
    if (c.withMatrixTrc) w = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
    w.header.colorSpace = c.space;
    const tintra3::icc::Lut lut = tintra3::icc::ShapedLut(c.inputs, c.outputs, 2, 2);
    w.AddTag(Sig4(c.side == kAsSource ? "A2B0" : "B2A0"), tintra3::icc::Mft2Element(lut));
    const std::string path = TempPath("shape.icc");
    EXPECT_TRUE(w.WriteFile(path));
    return path;
}

TEST(MemorySafety, TablesMustMatchTheHeaderChannelCount) {
    const LutCase cases[] = {
        {"B2A0 writes 4 channels behind an RGB header", kAsDestination, Sig4("RGB "), 3, 4, false, 5000},
        {"A2B0 reads 4 channels behind an RGB header", kAsSource, Sig4("RGB "), 4, 3, false, 5000},
        {"B2A0 writes 3 channels behind a CMYK header", kAsDestination, Sig4("CMYK"), 3, 3, false, 5000},
        {"A2B0 reads 3 channels behind a CMYK header", kAsSource, Sig4("CMYK"), 3, 3, false, 5000},
        {"2CLR is two channels, not three", kAsSource, Sig4("2CLR"), 3, 3, false, 5000},
        {"CMYK agrees with four inputs", kAsSource, Sig4("CMYK"), 4, 3, false, 0},
        {"CMYK agrees with four outputs", kAsDestination, Sig4("CMYK"), 3, 4, false, 0},
        {"a signature without a count is not checked", kAsSource, Sig4("abcd"), 4, 3, false, 0},
        {"unusable table falls back to matrix/TRC", kAsDestination, Sig4("RGB "), 3, 4, true, 0},
        {"matrix/TRC is three channels: not behind CMYK", kAsSource, Sig4("CMYK"), 3, 3, true, 5000},
    };
    for (const LutCase& c : cases) {
        SCOPED_TRACE(c.why);
        const std::string path = WriteLutProfile(c);
        for (uint16_t method : {0, 1}) {
            SCOPED_TRACE(method);
            MatchingSelector sel{0, method, nullptr, 0};
            const std::string& src = c.side == kAsSource ? path : kSrgb;
            const std::string& dst = c.side == kAsSource ? kSrgb : path;
            EXPECT_EQ(Initialize(&sel, src.c_str(), dst.c_str()), c.expected);
            TermMatchingSelector(&sel);
        }
    }
}

// The matrix/TRC fallback must give three output channels: one pixel, and
// the byte after it is never written.
TEST(MemorySafety, FallbackWritesThreeChannels) {
    const LutCase liar{"", kAsDestination, Sig4("RGB "), 3, 4, true, 0};
    const std::string path = WriteLutProfile(liar);
    for (uint16_t method : {0, 1}) {
        SCOPED_TRACE(method);
        MatchingSelector sel{0, method, nullptr, 0};
        ASSERT_EQ(Initialize(&sel, kSrgb.c_str(), path.c_str()), 0u);
        std::vector<uint8_t> in = {10, 20, 30};
        std::vector<uint8_t> out(8, 0xAB);
        PixelRun s{in.data(), 1};
        PixelRun d{out.data(), 1};
        EXPECT_EQ(CMatching2(&sel, &s, &d, 1, 3, 3, 8, 8, 0), 0u);
        EXPECT_EQ(out[3], 0xAB);
        TermMatchingSelector(&sel);
    }
}

// The 288-byte display profile: an RGB header, one B2A0 of 3 inputs and 4
// outputs. The top level converts three-byte pixels in chunks of 64.
TEST(MemorySafety, TopLevelRefusesLyingDestination) {
    const fs::path folder = fs::path(TempPath("safety")) / "Monitor";
    fs::create_directories(folder);
    const std::string source = (folder / "srgb.icc").string();
    fs::copy_file(kSrgb, source, fs::copy_options::overwrite_existing);
    tintra3::icc::ProfileWriter w;
    w.AddTag(Sig4("B2A0"), tintra3::icc::Mft2Element(tintra3::icc::ShapedLut(3, 4, 2, 2)));
    const std::string liar = (folder / "liar.icc").string();
    ASSERT_EQ(w.Bytes().size(), 288u);
    ASSERT_TRUE(w.WriteFile(liar));
    DirectoryTable dirs{};
    SetDirectoryName("", "Monitor", "", &dirs);

    CColorMatcher* handle = nullptr;
    EXPECT_EQ(tintra_Init(source.c_str(), liar.c_str(), 0, 0, &handle, &dirs), 1600u);
    tintra_Free(handle);

    constexpr uint32_t kPixels = 64;
    std::vector<uint8_t> in = Ramp(kPixels * 3);
    std::vector<uint8_t> out(kPixels * 3 + 64, 0xAB);
    EXPECT_EQ(tintra(in.data(), kPixels, out.data(), source.c_str(), liar.c_str(), 0, 0, &dirs), 1600u);
    for (size_t i = kPixels * 3; i < out.size(); ++i) EXPECT_EQ(out[i], 0xAB) << i;
}

struct SizeCase {
    const char* why;
    uint32_t width;
    uint16_t lines;
    uint16_t bitsIn;
    uint32_t bufferSize;
    uint32_t expected;
};

// Three input channels throughout (sRGB to sRGB).
const SizeCase kSizeCases[] = {
    {"width x 3 wraps to 2", 0x55555556, 1, 8, 2, 1002},
    {"2^32 + 2 bytes exceed any 32-bit buffer", 0x55555556, 1, 8, 0xFFFFFFFF, 1002},
    {"word samples: x 2 wraps to 2", 0x2AAAAAAB, 1, 16, 2, 1002},
    {"wraps to exactly 0", 0x80000000, 1, 16, 0, 1002},
    {"lines x width x 3 wraps to 512", 0x00555556, 256, 8, 512, 1002},
    {"an exact fit still converts", 5, 2, 16, 60, 0},
    {"one byte short", 5, 2, 16, 59, 1002},
};

TEST(MemorySafety, BlockSizeDoesNotWrap) {
    MatchingSelector sel{0, 1, nullptr, 0};
    ASSERT_EQ(Initialize(&sel, kSrgb.c_str(), kSrgb.c_str()), 0u);
    for (const SizeCase& c : kSizeCases) {
        SCOPED_TRACE(c.why);
        // Only small blocks are really converted; the buffers cover them.
        std::vector<uint8_t> in(64, 1);
        std::vector<uint8_t> out(64, 0);
        PixelRun s{in.data(), c.lines};
        PixelRun d{out.data(), c.lines};
        EXPECT_EQ(CMatching2(&sel, &s, &d, c.width, c.bufferSize, 64, c.bitsIn, c.bitsIn == 8 ? 8 : 16, 0),
                  c.expected);
        EXPECT_EQ(CMatching1(&sel, &s, c.width, c.bufferSize, c.bitsIn, c.bitsIn == 8 ? 8 : 16, 0), c.expected);
    }
    TermMatchingSelector(&sel);
}

TEST(MemorySafety, ToolboxBlockSizeDoesNotWrap) {
    const ProfileNames names = Names(kSrgb, kSrgb);
    for (const SizeCase& c : kSizeCases) {
        SCOPED_TRACE(c.why);
        const uint16_t bitsOut = c.bitsIn == 8 ? 8 : 16;
        std::vector<uint8_t> in(64, 1);
        std::vector<uint8_t> out(64, 0);
        PixelRun s{in.data(), c.lines};
        PixelRun d{out.data(), c.lines};

        // The width given at set-up.
        const ImageParams image{c.width, c.lines, c.bufferSize, 64, c.bitsIn, bitsOut, 0, 0};
        CColorMatcher* handle = nullptr;
        ASSERT_EQ(QemToolboxInit(&image, names.sourceProfile, 1, 0, &handle), 0u);
        EXPECT_EQ(QemToolboxProc(&s, &d, handle), c.expected);
        EXPECT_EQ(QemToolboxProc(&s, nullptr, handle), c.expected);
        QemToolboxPostProc(handle);

        // The width changed afterwards (the setter takes a positive int32).
        if (c.width > uint32_t(INT32_MAX)) continue;
        const ImageParams narrow{1, c.lines, c.bufferSize, 64, c.bitsIn, bitsOut, 0, 0};
        handle = nullptr;
        ASSERT_EQ(QemToolboxInit(&narrow, names.sourceProfile, 1, 0, &handle), 0u);
        ASSERT_EQ(QemToolboxChangeImageWidth(int32_t(c.width), handle), 0u);
        EXPECT_EQ(QemToolboxProc(&s, &d, handle), c.expected);
        EXPECT_EQ(QemToolboxProc(&s, nullptr, handle), c.expected);
        QemToolboxPostProc(handle);
    }
}

}  // namespace
