// Method 1 kernels against a per-pixel evaluation of the same tables.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "kernels/kernels.h"
#include "method1_fixture.h"
#include "support/test_support.h"

namespace tintra3 {
namespace {

using test::Method1Fixture;
using test::ReferencePixel;

// Sample position of channel c of pixel q in a layout (0 interleaved, 1 frame-, 2 line-planar).
size_t Position(int layout, size_t q, uint32_t c, uint32_t channels, uint32_t lines, uint32_t width) {
    if (layout == 0) return q * channels + c;
    if (layout == 1) return c * size_t(lines) * width + q;
    return (q / width) * width * channels + c * width + q % width;
}

uint32_t Get(const std::vector<uint8_t>& b, size_t i, bool wide) {
    uint16_t v = b[i];
    if (wide) std::memcpy(&v, b.data() + 2 * i, 2);
    return v;
}

void Set(std::vector<uint8_t>& b, size_t i, bool wide, uint32_t v) {
    const uint16_t w = uint16_t(v);
    if (wide) std::memcpy(b.data() + 2 * i, &w, 2);
    else b[i] = uint8_t(v);
}

// Runs the kernel for (layout, depths, channels) on src into dst (dst may be src).
void Convert(const Method1Transform* t, int layout, uint16_t bits, bool out16, const std::vector<uint8_t>& src,
         std::vector<uint8_t>& dst, uint32_t lines, uint32_t width) {
    if (layout == 0) {
        FindMethod1Interleaved(bits, out16, t->inputChannels, t->outputChannels)(t, src.data(), dst.data(), lines,
                                                                                  width);
    } else {
        FindMethod1Planar(bits != 8, out16, uint16_t(layout))(t, src.data(), dst.data(), lines, width, bits,
                                                              t->inputChannels, t->outputChannels);
    }
}

// Every depth, output depth and layout of the record's channel pair, to a
// separate buffer and in place, against the reference; planar must also
// equal interleaved.
void CheckEveryVariant(const Method1Transform& t, uint32_t lines, uint32_t width, uint32_t seed) {
    const uint32_t in = t.inputChannels, out = t.outputChannels, pixels = lines * width;
    std::mt19937 rng(seed);
    for (uint16_t bits : {8, 10, 12, 16}) {
        const bool wideIn = bits != 8;
        std::vector<uint32_t> pixel(pixels * in);
        for (uint32_t& x : pixel) x = rng() % (wideIn ? 65536 : 256);
        pixel[0] = 0;
        pixel[1] = wideIn ? 65535 : 255;  // the table ends
        for (bool out16 : {false, true}) {
            std::vector<uint32_t> interleaved;
            for (int layout : {0, 1, 2}) {
                SCOPED_TRACE(testing::Message() << in << "->" << out << " bits " << bits << " out16 " << out16
                                                << " layout " << layout);
                std::vector<uint8_t> src(pixels * in * (wideIn ? 2 : 1));
                for (uint32_t q = 0; q < pixels; ++q)
                    for (uint32_t c = 0; c < in; ++c)
                        Set(src, Position(layout, q, c, in, lines, width), wideIn, pixel[q * in + c]);
                std::vector<uint8_t> dst(pixels * out * (out16 ? 2 : 1), 0xA5);
                Convert(&t, layout, bits, out16, src, dst, lines, width);
                std::vector<uint32_t> got;
                for (uint32_t q = 0; q < pixels; ++q) {
                    const std::vector<uint32_t> want =
                        ReferencePixel(t, bits, out16, std::vector<uint32_t>(&pixel[q * in], &pixel[q * in + in]));
                    for (uint32_t k = 0; k < out; ++k) {
                        got.push_back(Get(dst, Position(layout, q, k, out, lines, width), out16));
                        ASSERT_EQ(got.back(), want[k]) << "pixel " << q << " channel " << k;
                    }
                }
                if (layout == 0) interleaved = got;
                EXPECT_EQ(got, interleaved);
                if (in == out && out16 == wideIn) {  // the in-place members
                    std::vector<uint8_t> same = src;
                    Convert(&t, layout, bits, out16, same, same, lines, width);
                    EXPECT_EQ(same, dst);
                }
            }
        }
    }
}

// All nine channel pairs, with either table set.
TEST(Method1Kernels, EveryVariantMatchesReference) {
    for (uint32_t in : {1u, 3u, 4u}) {
        for (uint32_t out : {1u, 3u, 4u}) {
            Method1Fixture f(in, out, in == 1 ? 5 : 3, in * 10 + out);
            for (uint32_t alt : {0u, 1u}) {
                f.t.useAltInputTables = alt;
                f.t.useAltOutputTables = alt;
                CheckEveryVariant(f.t, 3, 5, alt);
            }
        }
    }
}

// Transforms built from installed profiles: real grid sizes (32, 16, 256
// points) and tables, every kernel against the reference.
TEST(Method1Kernels, RealTransformsMatchReference) {
    const std::pair<const char*, const char*> pairs[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc"},
        {"compatibleWithAdobeRGB1998.icc", "sRGB.icc"},
        {"ghostscript/default_cmyk.icc", "sRGB.icc"},  // 4 inputs, grid 16
        {"sRGB.icc", "ghostscript/default_cmyk.icc"},  // lut destination, 4 outputs
        {"ghostscript/ps_cmyk.icc", "sRGB.icc"},       // XYZ connection space
        {"Gray.icc", "sRGB.icc"},                      // grid 256
        {"sRGB.icc", "Gray-CIE_L.icc"},                // 1 output
    };
    for (const auto& [source, destination] : pairs) {
        SCOPED_TRACE(testing::Message() << source << " -> " << destination);
        ProfileFile src{}, dst{};
        ASSERT_EQ(OpenProfile(test::RealProfile(source).c_str(), &src), 1);
        ASSERT_EQ(OpenProfile(test::RealProfile(destination).c_str(), &dst), 1);
        Method1Transform* t = CreateMethod1Transform();
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(BuildMethod1Transform(t, 0, &src, &dst, 0), 1);
        CloseProfile(&src);
        CloseProfile(&dst);
        if (t->ready) CheckEveryVariant(*t, 4, 50, 7);
        DestroyMethod1Transform(t);
    }
}

// One pixel through a 1 -> 1 grid of two points {0, 65535} whose input
// table holds coordinate 4095 at `entry` only: the 16-bit output is 0xBEEF
// exactly when the sample indexed that entry.
TEST(Method1Kernels, InputTableIndexEdges) {
    struct Case {
        uint16_t bits;
        uint16_t sample;
        uint32_t entry;
    } const cases[] = {
        {16, 65535, 4095},   // top word reaches the last entry
        {16, 0, 0},          //
        {16, 32768, 2048},   // (32768 * 4095 + 32768) >> 16
        {10, 0x03FF, 15},    // low-justified 10-bit value: only the high ten bits count
        {10, 0xFFC0, 1023},  //
        {12, 0xFFF0, 4095},  // 0xFFF0 >> 4
        {12, 0x000F, 0},     //
        {8, 255, 255},       //
    };
    for (const Case& c : cases) {
        for (int layout : {0, 1, 2}) {
            SCOPED_TRACE(testing::Message() << c.bits << " bits, sample " << c.sample << ", layout " << layout);
            Method1Fixture f(1, 1, 2, 1);
            f.Put(f.t.clut, std::vector<uint16_t>{0, 65535});
            const size_t n = c.bits == 8 ? 256 : c.bits == 10 ? 1024 : 4096;
            std::vector<uint16_t> table(n, 0);
            table[c.entry] = 4095;
            f.Put(c.bits == 8 ? f.t.inputTable256[0] : c.bits == 10 ? f.t.inputTable1024[0] : f.t.inputTable4096[0],
                  table);
            std::vector<uint16_t> output(4096, 0);
            output[4095] = 0xBEEF;
            f.Put(f.t.outputTable16[0], output);
            std::vector<uint8_t> src(2), dst(2);
            Set(src, 0, c.bits != 8, c.sample);
            Convert(&f.t, layout, c.bits, true, src, dst, 1, 1);
            EXPECT_EQ(Get(dst, 0, true), 0xBEEFu);
        }
    }
}

// One linear step between nodes a and b at fraction f, seen through an
// identity output table as the 12-bit index (r * 4095 + 32768) >> 16.
TEST(Method1Kernels, InterpolationStepEdges) {
    struct Case {
        uint16_t a, b;
        uint32_t fraction;
        uint32_t index;
    } const cases[] = {
        {0, 65535, 0x8000, 2048},      // midpoint of the full range is 32768
        {65535, 0, 0x8000, 2048},      // and falling
        {32777, 32757, 0x8000, 2047},  // falling edge floors to 32767 (truncation would give 32768)
        {0, 65535, 0x10000, 4095},     // fraction 1.0 reaches the upper node; 65535 -> entry 4095
        {65535, 0, 0x10000, 0},        // r = 0 -> entry 0
        {0, 65535, 0, 0},              //
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.a << " -> " << c.b << " at " << c.fraction);
        Method1Fixture f(1, 1, 2, 2);
        f.Put(f.t.clut, std::vector<uint16_t>{c.a, c.b});
        f.Put(f.t.inputTable256[0], std::vector<uint16_t>(256, 100));
        std::vector<uint16_t> cell(4096, 0);
        std::vector<uint32_t> fraction(4096, 0);
        fraction[100] = c.fraction;
        f.Put(f.t.gridIndex, cell);
        f.Put(f.t.gridFraction, fraction);
        std::vector<uint16_t> identity(4096);
        for (uint32_t i = 0; i < 4096; ++i) identity[i] = uint16_t(i);
        f.Put(f.t.outputTable16[0], identity);
        std::vector<uint8_t> src{7}, dst(2);
        Convert(&f.t, 0, 8, true, src, dst, 1, 1);
        EXPECT_EQ(Get(dst, 0, true), c.index);
    }
}

TEST(Method1Kernels, LinePlanarSecondLineStartsAfterAllChannelsOfTheFirst) {
    Method1Fixture f(3, 3, 3, 3);
    std::vector<uint8_t> src = f.Random<uint8_t>(24, 255), dst(24);
    Convert(&f.t, 2, 8, false, src, dst, 2, 4);
    const std::vector<uint8_t> pixel{src[12], src[16], src[20]};  // line 1, pixel 0
    std::vector<uint8_t> one(3);
    Convert(&f.t, 0, 8, false, pixel, one, 1, 1);
    EXPECT_EQ(dst[12], one[0]);
    EXPECT_EQ(dst[16], one[1]);
    EXPECT_EQ(dst[20], one[2]);
}

// No routine exists for 2 input channels: each output channel gets entry 0
// of its table, and channels without a table slot get 0.
TEST(Method1Kernels, PlanarOtherInputCountScattersEntryZero) {
    Method1Fixture f(2, 6, 3, 4);
    for (int layout : {1, 2}) {
        std::vector<uint8_t> src = f.Random<uint8_t>(2 * 2 * 3 * 2, 255), dst(6 * 2 * 3 * 2, 0xA5);
        FindMethod1Planar(true, true, uint16_t(layout))(&f.t, src.data(), dst.data(), 2, 3, 16, 2, 6);
        for (uint32_t q = 0; q < 6; ++q)
            for (uint32_t k = 0; k < 6; ++k)
                EXPECT_EQ(Get(dst, Position(layout, q, k, 6, 2, 3), true),
                          k < 4 ? static_cast<const uint16_t*>(f.t.outputTable16[k].data)[0] : 0u);
    }
}

TEST(Method1Kernels, EmptyBlockTouchesNothing) {
    Method1Fixture f(3, 3, 3, 5);
    const std::vector<uint8_t> src(64, 1);
    for (int layout : {0, 1, 2}) {
        for (auto [lines, width] : {std::pair{0u, 5u}, std::pair{4u, 0u}}) {
            std::vector<uint8_t> dst(64, 0xA5);
            Convert(&f.t, layout, 16, true, src, dst, lines, width);
            EXPECT_EQ(dst, std::vector<uint8_t>(64, 0xA5));
        }
    }
}

TEST(Method1Kernels, LookupsRefuseWhatHasNoKernel) {
    EXPECT_EQ(FindMethod1Interleaved(9, false, 3, 3), nullptr);
    EXPECT_EQ(FindMethod1Interleaved(8, false, 2, 3), nullptr);
    EXPECT_EQ(FindMethod1Interleaved(16, true, 3, 5), nullptr);
    EXPECT_EQ(FindMethod1Planar(false, false, 0), nullptr);
    EXPECT_EQ(FindMethod1Planar(true, true, 3), nullptr);
    Method1Fixture f(1, 1, 2, 6);
    EXPECT_EQ(GetOutputTable8(&f.t, 4), nullptr);
    EXPECT_EQ(GetInputTable16(&f.t, 4), nullptr);
}

}  // namespace
}  // namespace tintra3
