// CMatching1 / CMatching2: the order of the checks, and that every
// combination of the dispatch tables reaches the kernel it names.
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "api/exports.h"
#include "kernels/kernels.h"
#include "method1_fixture.h"
#include "transform/method0.h"

namespace tintra3 {
namespace {

using test::Method1Fixture;

// A method 0 record with random tables that keep every corner inside a
// 1024-entry grid: offsets and corners below 100, indices below 128.
struct Method0Fixture {
    Method0Fixture(uint32_t in, uint32_t out, uint32_t seed) : rng(seed) {
        t.inputChannels = uint8_t(in);
        t.outputChannels = uint8_t(out);
        t.strides[0] = 4;
        t.ready = 1;
        for (auto& g : grid) g = rng() % 256;
        for (auto& c : cell) c = uint8_t(rng() % 10);
        for (auto& w : weight) w = uint16_t(rng() % 257);
        t.curvedGrid = ValueBuffer{1024, 0, grid.data()};
        t.monoCell = ValueBuffer{256, 0, cell.data()};
        t.monoFraction = ValueBuffer{256, 0, weight.data()};
        for (int c = 0; c < 4; ++c) {
            for (auto& s : input[c]) s = SimplexInput{uint32_t(rng() % 100), uint16_t(rng() % 128), 0};
            t.simplexInput[c] = input[c].data();
        }
        for (auto& s : s3) s = Simplex3{uint16_t(rng() % 100), uint16_t(rng() % 100), {R8(9), R8(9), R8(9)}, 0};
        for (auto& s : s4) s = Simplex4{uint16_t(rng() % 100), uint16_t(rng() % 100), uint16_t(rng() % 100),
                                        {R8(17), R8(17), R8(17), R8(17)}};
        t.simplex3 = s3.data();
        t.simplex4 = s4.data();
        t.farCorner3 = 0x10000 + 99;  // only the low 16 bits count
        t.farCorner4 = 77;
    }
    uint8_t R8(uint32_t n) { return uint8_t(rng() % n); }

    std::mt19937 rng;
    Method0Transform t{};
    std::array<uint32_t, 1024> grid;
    std::array<uint8_t, 256> cell;
    std::array<uint16_t, 256> weight;
    std::array<std::array<SimplexInput, 256>, 4> input;
    std::array<Simplex3, 512> s3;
    std::array<Simplex4, 512> s4;
};

// Both record types for one channel pair.
struct Transforms {
    Transforms(uint32_t in, uint32_t out) : m0(in, out, in * 7 + out), m1(in, out, 3, in * 5 + out) {}
    void* For(uint16_t method) { return method == 0 ? static_cast<void*>(&m0.t) : static_cast<void*>(&m1.t); }
    Method0Fixture m0;
    Method1Fixture m1;
};

constexpr uint32_t kLines = 2, kWidth = 3, kPixels = kLines * kWidth;

// The kernel the tables name for this combination, called directly.
void Direct(Transforms& x, uint16_t method, uint16_t bitsIn, uint16_t bitsOut, uint16_t layout, uint32_t in,
            uint32_t out, const void* src, void* dst) {
    const bool deep = bitsIn != 8, out16 = bitsOut != 8;
    if (method == 0 && layout == 0) FindMethod0Interleaved(deep, out16, in, out)(&x.m0.t, src, dst, kLines, kWidth);
    if (method == 0 && layout != 0) FindMethod0Planar(deep, out16, layout)(&x.m0.t, src, dst, kLines, kWidth, in, out);
    if (method == 1 && layout == 0) FindMethod1Interleaved(bitsIn, out16, in, out)(&x.m1.t, src, dst, kLines, kWidth);
    if (method == 1 && layout != 0)
        FindMethod1Planar(deep, out16, layout)(&x.m1.t, src, dst, kLines, kWidth, bitsIn, in, out);
}

TEST(Dispatch, EveryCombinationReachesItsKernel) {
    std::mt19937 rng(9);
    for (uint32_t in : {1u, 3u, 4u}) {
        for (uint32_t out : {1u, 3u, 4u}) {
            Transforms x(in, out);
            for (uint16_t method : {0, 1}) {
                MatchingSelector selector{0, method, x.For(method), 0};
                for (uint16_t bitsIn : {8, 10, 12, 16}) {
                    std::vector<uint8_t> src(kPixels * 4 * 2);
                    for (auto& b : src) b = uint8_t(rng());
                    const uint32_t size = kPixels * in * (bitsIn == 8 ? 1 : 2);
                    for (uint16_t layout : {0, 1, 2}) {
                        for (uint16_t bitsOut : {8, 16}) {
                            SCOPED_TRACE(testing::Message() << "method " << method << " " << in << "->" << out << " bits "
                                                            << bitsIn << "/" << bitsOut << " layout " << layout);
                            std::vector<uint8_t> got(kPixels * 8, 0xA5), want(got);
                            PixelRun source{src.data(), kLines}, destination{got.data(), 0};
                            ASSERT_EQ(CMatching2(&selector, &source, &destination, kWidth, size, 0, bitsIn, bitsOut,
                                                 layout),
                                      0u);
                            Direct(x, method, bitsIn, bitsOut, layout, in, out, src.data(), want.data());
                            EXPECT_EQ(got, want);
                            if (in != out || (bitsIn == 8) != (bitsOut == 8)) continue;
                            std::vector<uint8_t> same(src), expected(src);  // in place
                            PixelRun run{same.data(), kLines};
                            ASSERT_EQ(CMatching1(&selector, &run, kWidth, size, bitsIn, bitsOut, layout), 0u);
                            Direct(x, method, bitsIn, bitsOut, layout, in, in, expected.data(), expected.data());
                            EXPECT_EQ(same, expected);
                        }
                    }
                }
            }
        }
    }
}

// Checks in order: size, in-place format (CMatching1 only), method, depth,
// layout; then the silent success for channel counts with no interleaved kernel.
TEST(Dispatch, ChecksInOrder) {
    struct Case {
        int api;  // 1: CMatching1, 2: CMatching2
        uint16_t method;
        uint32_t in, out;
        uint16_t bitsIn, bitsOut, layout;
        int slack;  // bufferSize = block bytes + slack
        uint32_t status;
    } const cases[] = {
        {1, 1, 3, 3, 8, 8, 0, 0, 0},        // a buffer of exactly the block is enough
        {1, 1, 3, 3, 8, 8, 0, -1, 1002},    // one byte less is not
        {1, 1, 3, 3, 16, 16, 0, -1, 1002},  // word samples count twice
        {1, 1, 3, 4, 8, 8, 0, -1, 1002},    // size before the in-place checks
        {1, 1, 3, 4, 8, 8, 0, 0, 1001},     // in place needs equal channel counts
        {1, 1, 3, 3, 8, 16, 0, 0, 1001},    // and equal width classes
        {1, 1, 3, 3, 16, 8, 0, 0, 1001},    //
        {1, 2, 3, 3, 9, 9, 3, 0, 2040},     // unknown method before depth and layout
        {1, 0, 3, 3, 9, 9, 0, 0, 2020},     //
        {1, 1, 3, 3, 9, 9, 3, 0, 2020},     // depth before layout
        {1, 0, 3, 3, 8, 8, 3, 0, 2030},     //
        {1, 1, 2, 2, 8, 8, 0, 0, 0},        // 2 channels interleaved: nothing done
        {1, 0, 5, 5, 16, 16, 0, 0, 0},      //
        {2, 1, 3, 4, 8, 16, 0, 0, 0},       // CMatching2 has no in-place checks
        {2, 1, 1, 4, 16, 16, 0, -1, 1002},  // size from the input side only
        {2, 2, 3, 3, 9, 9, 3, 0, 2040},     //
        {2, 0, 3, 3, 9, 9, 3, 0, 2020},     //
        {2, 1, 3, 3, 8, 8, 3, 0, 2030},     //
        {2, 1, 3, 2, 8, 8, 0, 0, 0},        // unsupported output count alone: nothing done
        {2, 0, 2, 3, 10, 8, 0, 0, 0},       //
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "CMatching" << c.api << " method " << c.method << " " << c.in << "->"
                                        << c.out << " bits " << c.bitsIn << "/" << c.bitsOut << " layout " << c.layout);
        Transforms x(c.in, c.out);
        MatchingSelector selector{0, c.method, x.For(c.method), 0};
        const uint32_t block = kPixels * c.in * (c.bitsIn == 8 ? 1 : 2);
        std::vector<uint8_t> src(kPixels * 8, 0x5A), dst(kPixels * 8, 0xA5);
        const std::vector<uint8_t> src0(src), dst0(dst);
        PixelRun source{src.data(), kLines}, destination{dst.data(), 0};
        const uint32_t status =
            c.api == 1 ? CMatching1(&selector, &source, kWidth, block + c.slack, c.bitsIn, c.bitsOut, c.layout)
                       : CMatching2(&selector, &source, &destination, kWidth, block + c.slack, 0, c.bitsIn,
                                    c.bitsOut, c.layout);
        EXPECT_EQ(status, c.status);
        const bool untouched = c.status != 0 || (c.layout == 0 && (c.in == 2 || c.in == 5 || c.out == 2));
        if (untouched) {
            EXPECT_EQ(src, src0);
            EXPECT_EQ(dst, dst0);
        }
    }
}

// A missing transform, or one whose record is not ready, reaches no kernel.
// A missing one is refused first (no channel counts to size the block by); a
// record that is not ready still gets every earlier code in its order, and
// 5000 only where a kernel would have run.
TEST(Dispatch, NoUsableTransform) {
    struct Case {
        uint16_t method;
        bool present;
        uint32_t ready;
        uint32_t in;       // channel counts of the record (in = out)
        uint32_t buffer;   // bufferSize
        uint16_t bitsIn;
        uint16_t layout;
        uint32_t status;
    } const cases[] = {
        {0, false, 1, 3, 64, 8, 0, 5000},   //
        {1, false, 1, 3, 64, 8, 0, 5000},   //
        {2, false, 1, 3, 64, 8, 0, 5000},   // null first, before the method check
        {0, true, 0, 3, 64, 8, 0, 5000},    // failed build or tone-curve rebuild
        {1, true, 0, 3, 64, 8, 1, 5000},    //
        {2, true, 0, 3, 64, 8, 0, 2040},    // no record type to read `ready` through
        {1, true, 0, 3, 17, 8, 0, 1002},    // the size check keeps its place
        {0, true, 0, 3, 64, 9, 0, 2020},    //
        {1, true, 0, 3, 64, 8, 3, 2030},    //
        {1, true, 0, 2, 64, 8, 0, 0},       // silent success: no kernel would run
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "method " << c.method << " present " << c.present << " ready " << c.ready
                                        << " buffer " << c.buffer << " bits " << c.bitsIn << " layout " << c.layout);
        Transforms x(c.in, c.in);
        x.m0.t.ready = x.m1.t.ready = c.ready;
        MatchingSelector selector{0, c.method, c.present ? x.For(c.method) : nullptr, 0};
        std::vector<uint8_t> src(64, 0x5A), dst(64, 0xA5);
        PixelRun source{src.data(), kLines}, destination{dst.data(), 0};
        EXPECT_EQ(CMatching1(&selector, &source, kWidth, c.buffer, c.bitsIn, c.bitsIn, c.layout), c.status);
        EXPECT_EQ(CMatching2(&selector, &source, &destination, kWidth, c.buffer, 64, c.bitsIn, c.bitsIn, c.layout),
                  c.status);
        EXPECT_EQ(src, std::vector<uint8_t>(64, 0x5A));
        EXPECT_EQ(dst, std::vector<uint8_t>(64, 0xA5));
    }
}

// lines x width is a 32-bit product for the size check and the kernels alike:
// 65535 x 65538 wraps to 65534 pixels, which must be all a kernel touches
// (interleaved and frame-planar blocks are one run of that many pixels).
TEST(Dispatch, WrappedPixelCountBoundsTheKernel) {
    constexpr uint16_t kManyLines = 65535;
    constexpr uint32_t kWideLine = 65538, kWrapped = 65534;
    static_assert(uint32_t(kManyLines * uint64_t{kWideLine}) == kWrapped);
    std::mt19937 rng(11);
    for (uint32_t c : {1u, 3u}) {
        Transforms x(c, c);
        for (uint16_t method : {0, 1}) {
            MatchingSelector selector{0, method, x.For(method), 0};
            for (uint16_t bits : {8, 16}) {
                const uint32_t bytes = kWrapped * c * (bits / 8);
                std::vector<uint8_t> src(bytes);
                for (auto& b : src) b = uint8_t(rng());
                for (uint16_t layout : {0, 1}) {
                    SCOPED_TRACE(testing::Message() << "method " << method << " channels " << c << " bits " << bits
                                                    << " layout " << layout);
                    std::vector<uint8_t> got(bytes), want(bytes);
                    PixelRun source{src.data(), kManyLines}, destination{got.data(), 0};
                    ASSERT_EQ(CMatching2(&selector, &source, &destination, kWideLine, bytes, 0, bits, bits, layout),
                              0u);
                    PixelRun oneLine{src.data(), 1}, reference{want.data(), 0};
                    ASSERT_EQ(CMatching2(&selector, &oneLine, &reference, kWrapped, bytes, 0, bits, bits, layout), 0u);
                    EXPECT_EQ(got, want);
                }
            }
        }
    }
}

// The destination size is not examined: 8 in, 16 out writes twice the source bytes.
TEST(Dispatch, WordOutputWritesTwiceTheSourceBytes) {
    Transforms x(3, 3);
    MatchingSelector selector{0, 1, x.For(1), 0};
    std::vector<uint8_t> src(kPixels * 3, 0x40), dst(kPixels * 6 + 8, 0xA5), want(dst);
    PixelRun source{src.data(), kLines}, destination{dst.data(), 0};
    ASSERT_EQ(CMatching2(&selector, &source, &destination, kWidth, kPixels * 3, kPixels * 3, 8, 16, 0), 0u);
    Direct(x, 1, 8, 16, 0, 3, 3, src.data(), want.data());
    EXPECT_EQ(dst, want);
    EXPECT_EQ(std::vector<uint8_t>(dst.end() - 8, dst.end()), std::vector<uint8_t>(8, 0xA5));
}

}  // namespace
}  // namespace tintra3
