// Every kernel of both methods against per-pixel evaluations of the same tables.
#include <gtest/gtest.h>

#include <cstdlib>

#include "records.h"
#include "samples.h"
#include "support/test_support.h"
#include "variants.h"

namespace tintra3 {
namespace {

using namespace test;

// Method 0 from the formulas in signed arithmetic, read straight off the
// record. Deep input counts by its high byte; 16-bit output is code << 8
// except on the interleaved simplex path, which keeps s << 5 (s << 4).
// Input counts other than 1, 3 and 4 are not interpolated: zeros.
std::vector<uint32_t> Reference(const Method0Transform& t, uint16_t bits, bool out16, int layout, const uint32_t* x) {
    const uint32_t in = t.inputChannels;
    const uint32_t* grid = U32(t.curvedGrid);
    const uint32_t far = (in == 3 ? t.farCorner3 : t.farCorner4) & 0xFFFF;
    uint32_t u[4];
    uint32_t corner[4] = {far, far, far, far};
    uint32_t base = 0;
    uint32_t index = 0;
    for (uint32_t c = 0; c < in && c < 4; ++c) u[c] = bits == 8 ? x[c] : x[c] >> 8;
    for (uint32_t c = 0; (in == 3 || in == 4) && c < in; ++c) {
        base += t.simplexInput[c][u[c]].offset;
        index += t.simplexInput[c][u[c]].index;
    }
    const uint8_t* w = in == 3 ? t.simplex3[index].w : in == 4 ? t.simplex4[index].w : nullptr;
    if (in == 3) {
        corner[0] = t.simplex3[index].a;
        corner[1] = t.simplex3[index].b;
    }
    if (in == 4) {
        corner[0] = t.simplex4[index].a;
        corner[1] = t.simplex4[index].b;
        corner[2] = t.simplex4[index].c;
    }
    std::vector<uint32_t> result;
    for (uint32_t k = 0; k < t.outputChannels; ++k) {
        int64_t code = 0;
        int64_t s = 0;
        if (in == 1) {
            const int64_t n = Bytes(t.monoCell)[u[0]] * t.strides[0];
            const int64_t g0 = grid[n + k];
            const int64_t g1 = grid[n + t.strides[0] + k];
            code = (g0 + (((g1 - g0) * U16(t.monoFraction)[u[0]]) >> 8)) & 255;
        } else if (in == 3 || in == 4) {
            int64_t g[5] = {grid[base + k]};  // K0, then corners A, B, (C,) D
            for (uint32_t i = 0; i < in; ++i) g[i + 1] = grid[base + k + corner[i]];
            s = (in == 3 ? 8 : 16) * g[0];
            for (uint32_t i = 0; i < in; ++i) s += w[i] * (g[i + 1] - g[i]);
            code = (s >> (in == 3 ? 3 : 4)) & 255;
        }
        const int64_t wide = layout != 0 || in == 1 ? code << 8 : (s * (in == 3 ? 32 : 16)) & 0xFFFF;
        result.push_back(uint32_t(out16 ? wide : code));
    }
    return result;
}

// Method 1: a + floor(((b - a) * f + 0x8000) / 0x10000) in signed arithmetic, kept to 16 bits.
int64_t Lerp(int64_t a, int64_t b, int64_t f) {
    const int64_t n = (b - a) * f + 0x8000;
    return (a + (n >= 0 ? n / 0x10000 : -((-n + 0xFFFF) / 0x10000))) & 0xFFFF;
}

// Dimension d and beyond at clut offset `at`, deeper dimensions first.
int64_t Interpolate(const Method1Transform& t, const uint32_t* cell, const uint32_t* f, uint32_t d, uint32_t at) {
    if (d >= t.inputChannels) return U16(t.clut)[at];
    const uint32_t lo = at + cell[d] * t.strides[d];
    return Lerp(Interpolate(t, cell, f, d + 1, lo), Interpolate(t, cell, f, d + 1, lo + t.strides[d]), f[d]);
}

// One pixel through the record, field by field. Input counts other than 1, 3
// and 4 are not interpolated: entry 0 of each output table, 0 past the fourth.
std::vector<uint32_t> Reference(const Method1Transform& t, uint16_t bits, bool out16, int, const uint32_t* x) {
    const bool altIn = t.useAltInputTables != 0;
    const bool altOut = t.useAltOutputTables != 0;
    const bool interpolated = t.inputChannels == 1 || t.inputChannels == 3 || t.inputChannels == 4;
    uint32_t cell[4];
    uint32_t fraction[4];
    for (uint32_t j = 0; interpolated && j < t.inputChannels; ++j) {
        const ValueBuffer* table = bits == 8 ? (altIn ? t.altInputTable256 : t.inputTable256)
                                   : bits == 10 ? (altIn ? t.altInputTable1024 : t.inputTable1024)
                                   : (altIn ? t.altInputTable4096 : t.inputTable4096);
        const uint32_t s = U16(table[j])[bits == 8 ? x[j] : bits == 10 ? x[j] / 64 : bits == 12 ? x[j] / 16
                                                                                     : (x[j] * 4095 + 32768) / 65536];
        cell[j] = U16(t.gridIndex)[s];
        fraction[j] = U32(t.gridFraction)[s];
    }
    std::vector<uint32_t> result;
    for (uint32_t k = 0; k < t.outputChannels; ++k) {
        const uint32_t e = interpolated ? uint32_t((Interpolate(t, cell, fraction, 0, k) * 4095 + 32768) / 65536) : 0;
        result.push_back(k >= 4  ? 0
                         : out16 ? U16((altOut ? t.altOutputTable16 : t.outputTable16)[k])[e]
                                 : Bytes((altOut ? t.altOutputTable8 : t.outputTable8)[k])[e]);
    }
    return result;
}

// Every kernel of the record's channel pair against its method's reference.
template <typename T>
void Check(const T& t, uint32_t lines, uint32_t width, uint32_t seed) {
    CheckVariants(std::is_same_v<T, Method1Transform>, &t, t.inputChannels, t.outputChannels,
                  [&](auto... a) { return Reference(t, a...); }, lines, width, seed);
}

// Every channel pair (2 and 5 inputs, 2 and 6 outputs: planar only); method 1
// with either table set. 111 pixels: odd, as method 0 pairs outputs in a word;
// long runs (1203) take the paths that first tabulate the 8-bit codes.
TEST(Kernels, EveryVariantMatchesReference) {
    for (uint32_t p = 0; p < 22; ++p) {
        const uint32_t in = p < 20 ? p / 4 + 1 : p == 20 ? 2 : 5;
        const uint32_t out = p < 20 ? p % 4 + 1 : 6;
        Check(Method0Fixture(in, out, in * 10 + out).t, 3, 37, in * 7 + out);
        if (in == 1) Check(Method0Fixture(in, out, out).t, 3, 401, out);
        Method1Fixture f(in, out, in == 1 ? 5 : 3, in * 10 + out);
        for (uint32_t alt : {0u, 1u}) {
            f.t.useAltInputTables = alt;
            f.t.useAltOutputTables = alt;
            Check(f.t, 3, 37, alt);
            // Long runs: the code tables, built from whichever table set is on.
            if (in == 1 || in == 3 || in == 4) Check(f.t, 3, 401, alt);
        }
    }
}

// Real grid sizes and tables through both builders. sRGB to itself stays within
// 2 codes away from black: corners and weights pair up as the builder meant,
// which a reference reading the same tables cannot tell.
TEST(Kernels, RealTransformsMatchReference) {
    struct Pair {
        const char* from;
        const char* to;
    } const pairs[] = {
        {"sRGB.icc", "sRGB.icc"},                        // near identity
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc"},  // matrix to matrix
        {"ghostscript/default_cmyk.icc", "sRGB.icc"},    // 4 inputs (method 0: the index wraps)
        {"sRGB.icc", "ghostscript/default_cmyk.icc"},    // lut destination, 4 outputs
        {"Gray.icc", "sRGB.icc"},                        // monochrome, 256 points
        {"sRGB.icc", "Gray-CIE_L.icc"},                  // 1 output
    };
    std::vector<uint8_t> pixels(3 << 18);  // 64 + 3 * (0..63) on each axis
    std::vector<uint8_t> out(3 << 18);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = uint8_t(64 + 3 * (i / 3 >> (12 - 6 * (i % 3)) & 63));
    for (const Pair& p : pairs) {
        SCOPED_TRACE(testing::Message() << p.from << " -> " << p.to);
        ProfileFile from{};
        ProfileFile to{};
        ASSERT_EQ(OpenProfile(RealProfile(p.from).c_str(), &from), 1);
        ASSERT_EQ(OpenProfile(RealProfile(p.to).c_str(), &to), 1);
        const std::shared_ptr<Method0Transform> t0(CreateMethod0Transform(), DestroyMethod0Transform);
        const std::shared_ptr<Method1Transform> t1(CreateMethod1Transform(), DestroyMethod1Transform);
        const bool built = BuildMethod0Transform(t0.get(), 0, &from, &to, 0) == 1 &&
                           BuildMethod1Transform(t1.get(), 0, &from, &to, 0) == 1;
        CloseProfile(&from);
        CloseProfile(&to);
        ASSERT_TRUE(built);
        Check(*t0, 4, 50, 5);
        Check(*t1, 4, 50, 7);
        for (uint16_t m = 0; &p == pairs && m < 2; ++m) {
            Convert(m, m ? (void*)t1.get() : t0.get(), 0, 8, false, 3, 3, pixels.data(), out.data(), 1, 1 << 18);
            for (size_t i = 0; i < out.size(); ++i) ASSERT_LE(std::abs(out[i] - pixels[i]), 2) << m << ": " << i;
        }
    }
}

// A 1 -> 1 grid {a, b}, coordinate 100 (fraction f) at input-table `entry`
// only, 0 elsewhere, and an identity output table: the output is the 12-bit
// index of lerp(a, b, f) if the sample indexed `entry`, of a otherwise.
TEST(Kernels, Method1IndexAndInterpolationEdges) {
    struct Case { uint16_t bits, sample, entry, a, b; uint32_t f, want; } const cases[] = {
        {16, 65535, 4095, 0, 65535, 0x10000, 4095},   // the top word reaches the last entry
        {16, 0, 0, 0, 65535, 0x10000, 4095},          //
        {16, 32768, 2048, 0, 65535, 0x10000, 4095},   // (32768 * 4095 + 32768) >> 16
        {10, 0x03FF, 15, 0, 65535, 0x10000, 4095},    // low-justified 10 bits: only the high ten count
        {12, 0xFFF0, 4095, 0, 65535, 0x10000, 4095},  // 0xFFF0 >> 4
        {8, 7, 7, 0, 65535, 0x8000, 2048},            // midpoint of the full range is 32768
        {8, 7, 7, 65535, 0, 0x8000, 2048},            // and falling
        {8, 7, 7, 32777, 32757, 0x8000, 2047},        // a falling edge floors to 32767 (truncation: 32768)
        {8, 7, 7, 65535, 0, 0x10000, 0},              // fraction 1.0 reaches the upper node; r = 0 -> entry 0
    };
    for (const Case& c : cases) {
        Method1Fixture f(1, 1, 2, 1);
        std::vector<uint16_t> table(c.bits == 8 ? 256 : c.bits == 10 ? 1024 : 4096, 0);
        std::vector<uint32_t> fraction(4096, 0);
        table[c.entry] = 100;
        fraction[100] = c.f;
        (c.bits == 8 ? f.t.inputTable256 : c.bits == 10 ? f.t.inputTable1024 : f.t.inputTable4096)[0] = f.Buffer(table);
        f.t.clut = f.Buffer(std::vector<uint16_t>{c.a, c.b});
        f.t.gridIndex = f.Buffer(std::vector<uint16_t>(4096, 0));
        f.t.gridFraction = f.Buffer(fraction);
        for (uint32_t i = 0; i < 4096; ++i) U16(f.t.outputTable16[0])[i] = uint16_t(i);  // identity
        for (int layout : {0, 1, 2}) {
            std::vector<uint8_t> src(2), dst(2);
            Set(src, 0, c.bits != 8, c.sample);
            Convert(1, &f.t, layout, c.bits, true, 1, 1, src.data(), dst.data(), 1, 1);
            EXPECT_EQ(Get(dst, 0, true), c.want) << c.bits << " bits, sample " << c.sample << ", layout " << layout;
        }
    }
}

// Width 4, 3 channels: line 1's channel 0 starts at sample 12, after all of line 0.
TEST(Kernels, LinePlanarSecondLine) {
    Method1Fixture f(3, 3, 3, 3);
    std::vector<uint8_t> src = f.Random<uint8_t>(24, 255), dst(24), one(3);
    const std::vector<uint8_t> pixel{src[12], src[16], src[20]};
    Convert(1, &f.t, 2, 8, false, 3, 3, src.data(), dst.data(), 2, 4);
    Convert(1, &f.t, 0, 8, false, 3, 3, pixel.data(), one.data(), 1, 1);
    EXPECT_EQ(std::vector<uint8_t>({dst[12], dst[16], dst[20]}), one);
}

}  // namespace
}  // namespace tintra3
