// Method 0 kernels against a plain per-pixel evaluation on hand-made records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kernels/kernels.h"
#include "profile/profile_file.h"
#include "support/test_support.h"
#include "transform/method0.h"

namespace tintra3 {
namespace {

constexpr uint32_t kCounts[] = {1, 3, 4};

// A zeroed record filled with small random tables of the shapes the builder
// makes: 3 grid points per axis for 3 or 4 inputs, 4 for one input. Weights
// are random (not sorted), so corner differences and even s go negative.
struct Fixture {
    Method0Transform t{};
    std::vector<uint32_t> grid;
    std::vector<uint8_t> cell;
    std::vector<uint16_t> fraction;
    std::vector<SimplexInput> input[4];
    std::vector<Simplex3> s3 = std::vector<Simplex3>(729);
    std::vector<Simplex4> s4 = std::vector<Simplex4>(83521);

    Fixture(uint32_t in, uint32_t out) {
        std::mt19937 rng(in * 10 + out);
        auto rnd = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
        const uint32_t points = in == 1 ? 4 : 3;
        const uint32_t frac = in == 3 ? 9 : 17;
        t.inputChannels = static_cast<uint8_t>(in);
        t.outputChannels = static_cast<uint8_t>(out);
        t.gridPoints = static_cast<uint16_t>(points);
        // Counts other than 1, 3 and 4 get no interpolation: tables for 4 inputs do.
        const uint32_t axes = in > 4 ? 4 : in;
        uint32_t entries = out, far = 0, place = 1;
        for (uint32_t c = axes; c-- > 0;) t.strides[c] = entries, far += entries, entries *= points;
        grid.resize(entries);
        for (auto& g : grid) g = rnd(256);
        t.curvedGrid = {entries, 0, grid.data()};
        for (uint32_t v = 0; v < 256; ++v) cell.push_back(static_cast<uint8_t>(rnd(points - 1)));
        for (uint32_t v = 0; v < 256; ++v) fraction.push_back(static_cast<uint16_t>(v == 7 ? 256 : rnd(257)));
        t.monoCell = {256, 0, cell.data()};
        t.monoFraction = {256, 0, fraction.data()};
        for (uint32_t c = axes; c-- > 0; place *= frac) {
            for (uint32_t v = 0; v < 256; ++v) {
                // Channel 0's part of a 4-D index wraps at 16 bits, as stored by the builder.
                const uint32_t f = v == 255 ? frac - 1 : rnd(frac);
                input[c].push_back({rnd(points - 1) * t.strides[c], static_cast<uint16_t>(f * place), 0});
            }
            t.simplexInput[c] = input[c].data();
        }
        // Corners walk the cell's axes in a random order, so they stay inside it.
        auto corners = [&](uint32_t axes, uint16_t* offset) {
            uint32_t order[4] = {0, 1, 2, 3}, sum = 0;
            std::shuffle(order, order + axes, rng);
            for (uint32_t i = 0; i + 1 < axes; ++i) offset[i] = static_cast<uint16_t>(sum += t.strides[order[i]]);
        };
        for (auto& e : s3) {
            uint16_t offset[2] = {};
            corners(in == 3 ? 3 : 1, offset);
            e.a = offset[0], e.b = offset[1];
            for (auto& w : e.w) w = static_cast<uint8_t>(rnd(9));
        }
        for (auto& e : s4) {
            uint16_t offset[3] = {};
            corners(in == 4 ? 4 : 1, offset);
            e.a = offset[0], e.b = offset[1], e.c = offset[2];
            for (auto& w : e.w) w = static_cast<uint8_t>(rnd(17));
        }
        t.simplex3 = s3.data();
        t.simplex4 = s4.data();
        // Kernels read the low 16 bits only; the far corner of the other
        // dimension is the cell origin, so taking the wrong one shows.
        t.farCorner3 = (in == 3 ? far : 0) | 0xABC0000u;
        t.farCorner4 = (in == 4 ? far : 0) | 0x1230000u;
        t.ready = 1;
    }
};

// Output k of one pixel of codes u, from the formulas with signed arithmetic
// read straight off the record: *interleaved is the interleaved kernels'
// sample, *planar the planar kernels' (which keep no fractional bits).
void Expect(const Method0Transform& t, const uint32_t* u, uint32_t k, bool out16, uint32_t* interleaved,
            uint32_t* planar) {
    const uint32_t in = t.inputChannels;
    const uint32_t* grid = U32(t.curvedGrid);
    int64_t code = 0, wide = 0;
    if (in == 1) {
        const int64_t n = Bytes(t.monoCell)[u[0]] * t.strides[0], g0 = grid[n + k], g1 = grid[n + t.strides[0] + k];
        code = (g0 + (((g1 - g0) * U16(t.monoFraction)[u[0]]) >> 8)) & 255;
        wide = code << 8;
    } else if (in == 3 || in == 4) {
        int64_t base = 0, index = 0;
        for (uint32_t c = 0; c < in; ++c) base += t.simplexInput[c][u[c]].offset, index += t.simplexInput[c][u[c]].index;
        const uint32_t far = (in == 3 ? t.farCorner3 : t.farCorner4) & 0xFFFF;
        uint32_t corner[4] = {far, far, far, far};
        const uint8_t* w;
        if (in == 3) {
            const Simplex3& e = t.simplex3[index];
            corner[0] = e.a, corner[1] = e.b, w = e.w;
        } else {
            const Simplex4& e = t.simplex4[index];
            corner[0] = e.a, corner[1] = e.b, corner[2] = e.c, w = e.w;
        }
        int64_t prev = grid[base + k], s = (in == 3 ? 8 : 16) * prev;
        for (uint32_t i = 0; i < in; ++i) {
            const int64_t next = grid[base + k + corner[i]];
            s += w[i] * (next - prev);
            prev = next;
        }
        code = (s >> (in == 3 ? 3 : 4)) & 255;
        wide = (s * (in == 3 ? 32 : 16)) & 0xFFFF;
    }
    *interleaved = out16 ? static_cast<uint32_t>(wide) : static_cast<uint32_t>(code);
    *planar = out16 ? static_cast<uint32_t>(code << 8) : static_cast<uint32_t>(code);
}

// Samples of a buffer of 8- or 16-bit samples.
uint32_t Get(const std::vector<uint8_t>& b, bool wide, size_t i) {
    uint16_t w = 0;
    if (wide) std::memcpy(&w, &b[2 * i], 2);
    return wide ? w : b[i];
}
void Put(std::vector<uint8_t>& b, bool wide, size_t i, uint32_t v) {
    const auto w = static_cast<uint16_t>(v);
    if (wide) std::memcpy(&b[2 * i], &w, 2); else b[i] = static_cast<uint8_t>(v);
}

constexpr uint32_t kLines = 3, kWidth = 37, kPixels = kLines * kWidth;

// Random source samples; 16-bit words on deep input, whose low byte must not matter.
std::vector<uint8_t> Source(bool deep, uint32_t channels, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> b(kPixels * channels * (deep ? 2 : 1));
    for (size_t i = 0; i < kPixels * channels; ++i) Put(b, deep, i, deep ? rng() & 0xFFFF : rng() & 0xFF);
    for (uint32_t c = 0; c < channels; ++c) Put(b, deep, c, deep ? 0xFFFF : 0xFF);  // code 255: last cell, full fraction
    return b;
}

// Position of sample c of pixel q in layout 0, 1 or 2.
size_t At(uint16_t layout, uint32_t channels, size_t q, uint32_t c) {
    if (layout == 0) return q * channels + c;
    if (layout == 1) return c * kPixels + q;
    return (q / kWidth) * kWidth * channels + c * kWidth + q % kWidth;
}

// Runs one kernel (interleaved when layout is 0) to a separate buffer with a
// guard tail, or in place, and compares every sample with Expect.
void Check(const Method0Transform& t, bool deep, bool out16, uint16_t layout, bool inPlace) {
    const uint32_t in = t.inputChannels, out = t.outputChannels;
    SCOPED_TRACE(::testing::Message() << "deep " << deep << " out16 " << out16 << " " << in << "->" << out
                                      << " layout " << layout << " in place " << inPlace);
    const std::vector<uint8_t> src = Source(deep, in, in * 7 + out);
    const size_t outBytes = kPixels * out * (out16 ? 2 : 1);
    std::vector<uint8_t> dst = inPlace ? src : std::vector<uint8_t>(outBytes + 16, 0x5A);
    auto run = [&](const void* from, void* to) {
        if (layout == 0) FindMethod0Interleaved(deep, out16, in, out)(&t, from, to, kLines, kWidth);
        else FindMethod0Planar(deep, out16, layout)(&t, from, to, kLines, kWidth, in, out);
    };
    run(inPlace ? dst.data() : src.data(), dst.data());
    // 16-bit words: the linear and planar paths give code << 8; the simplex
    // kernels keep eighths in bits 5..7 or sixteenths in bits 4..7.
    const uint32_t zeroBits = !out16 ? 0 : layout != 0 || in == 1 ? 0xFF : in == 3 ? 0x1F : 0x0F;
    for (size_t q = 0; q < kPixels; ++q) {
        uint32_t u[5];
        for (uint32_t c = 0; c < in; ++c) u[c] = Get(src, deep, At(layout, in, q, c)) >> (deep ? 8 : 0);
        for (uint32_t k = 0; k < out; ++k) {
            uint32_t interleaved, planar;
            Expect(t, u, k, out16, &interleaved, &planar);
            const uint32_t got = Get(dst, out16, At(layout, out, q, k));
            ASSERT_EQ(got, layout == 0 ? interleaved : planar) << q << "/" << k;
            ASSERT_EQ(got & zeroBits, 0u) << q << "/" << k;
        }
    }
    if (inPlace) return;
    for (size_t i = outBytes; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0x5A) << "wrote past the block";
    if (!deep) return;
    // Only the high byte of deep input counts (0x0100 and 0x01FF are both code 1).
    std::vector<uint8_t> flipped = src, again(dst.size(), 0x5A);
    for (size_t i = 0; i < kPixels * in; ++i) Put(flipped, true, i, Get(src, true, i) ^ 0xFF);
    run(flipped.data(), again.data());
    EXPECT_EQ(again, dst) << "the low byte of deep input counted";
}

// Every interleaved variant of the record's channel pair, and the planar ones
// when planar is set; in place where the shapes allow it.
void CheckAllVariants(const Method0Transform& t, bool interleaved, bool planar) {
    const bool same = t.inputChannels == t.outputChannels;
    for (bool deep : {false, true})
        for (bool out16 : {false, true}) {
            for (uint16_t layout : {0, 1, 2}) {
                if (layout == 0 ? !interleaved : !planar) continue;
                Check(t, deep, out16, layout, false);
                if (same && deep == out16) Check(t, deep, out16, layout, true);
            }
        }
}

TEST(Method0Kernels, EveryInterleavedVariant) {
    for (uint32_t in : kCounts)
        for (uint32_t out : kCounts) CheckAllVariants(Fixture(in, out).t, true, false);
}

TEST(Method0Kernels, EveryPlanarVariant) {
    // Input counts 2 and 5 run no interpolation: zeros are scattered.
    for (uint32_t in : {1u, 2u, 3u, 4u, 5u})
        for (uint32_t out : {1u, 2u, 3u, 4u}) CheckAllVariants(Fixture(in, out).t, false, true);
}

TEST(Method0Kernels, EmptyBlockWritesNothing) {
    const Method0Transform zeroed{};  // no tables at all: a kernel that looked would crash
    uint8_t src[16] = {}, dst[16];
    std::memset(dst, 0x77, sizeof dst);
    for (uint32_t lines : {0u, 1u}) {
        FindMethod0Interleaved(false, false, 3, 3)(&zeroed, src, dst, lines, 1 - lines);
        FindMethod0Planar(true, true, 2)(&zeroed, src, dst, lines, 1 - lines, 3, 3);
    }
    for (uint8_t b : dst) EXPECT_EQ(b, 0x77);
}

TEST(Method0Kernels, LookupsRefuseUnknownShapes) {
    EXPECT_EQ(FindMethod0Interleaved(false, false, 2, 3), nullptr);
    EXPECT_EQ(FindMethod0Interleaved(true, true, 3, 5), nullptr);
    EXPECT_EQ(FindMethod0Planar(false, false, 0), nullptr);
    EXPECT_EQ(FindMethod0Planar(false, false, 3), nullptr);
    EXPECT_NE(FindMethod0Interleaved(false, true, 1, 1), FindMethod0Interleaved(true, true, 1, 1));
}

// A transform built from two real profiles, or null.
std::unique_ptr<Method0Transform, void (*)(Method0Transform*)> BuildReal(const char* from, const char* to) {
    std::unique_ptr<Method0Transform, void (*)(Method0Transform*)> t(CreateMethod0Transform(), DestroyMethod0Transform);
    ProfileFile source{}, destination{};
    const bool opened = OpenProfile(test::RealProfile(from).c_str(), &source) == 1 &&
                        OpenProfile(test::RealProfile(to).c_str(), &destination) == 1;
    if (!opened || BuildMethod0Transform(t.get(), 0, &source, &destination, 0) != 1) t.reset();
    CloseProfile(&source);
    CloseProfile(&destination);
    return t;
}

// Built transforms: the kernels against the plain evaluation on the tables the
// builder really makes (sums of real index parts, real corner offsets).
TEST(Method0Kernels, RealTransforms) {
    struct Pair { const char* source; const char* destination; uint32_t in, out; } pairs[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3},  // matrix to matrix
        {"compatibleWithAdobeRGB1998.icc", "sRGB.icc", 3, 3},
        {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3},    // 4-D simplex, index wrap
        {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4},    // four outputs
        {"Gray.icc", "sRGB.icc", 1, 3},                        // monochrome, 256 points
    };
    for (const Pair& p : pairs) {
        SCOPED_TRACE(std::string(p.source) + " -> " + p.destination);
        const auto t = BuildReal(p.source, p.destination);
        ASSERT_NE(t, nullptr);
        EXPECT_EQ(t->inputChannels, p.in);
        EXPECT_EQ(t->outputChannels, p.out);
        CheckAllVariants(*t, true, true);
    }
}

// sRGB to itself is near identity away from black (the grid is regular in
// linear light, so the darkest cells interpolate coarsely). This checks that
// corners and weights pair up as the builder meant, which the plain evaluation
// above, reading the same tables, cannot.
TEST(Method0Kernels, SrgbToItselfStaysClose) {
    const auto t = BuildReal("sRGB.icc", "sRGB.icc");
    ASSERT_NE(t, nullptr);
    std::vector<uint8_t> pixels;
    for (uint32_t r = 64; r < 256; r += 3)
        for (uint32_t g = 64; g < 256; g += 3)
            for (uint32_t b = 64; b < 256; b += 3) pixels.insert(pixels.end(), {uint8_t(r), uint8_t(g), uint8_t(b)});
    std::vector<uint8_t> out(pixels.size());
    FindMethod0Interleaved(false, false, 3, 3)(t.get(), pixels.data(), out.data(), 1, uint32_t(pixels.size() / 3));
    for (size_t i = 0; i < out.size(); ++i) ASSERT_LE(std::abs(out[i] - pixels[i]), 2) << i;
}

}  // namespace
}  // namespace tintra3
