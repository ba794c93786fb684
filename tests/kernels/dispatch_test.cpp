// CMatching1 / CMatching2: the order of the checks, and that every
// combination of the dispatch tables reaches the kernel it names.
#include <gtest/gtest.h>

#include "api/exports.h"
#include "kernel_fixtures.h"

namespace tintra3 {
namespace {

using namespace test;

// Both record types for one channel pair.
struct Transforms {
    Transforms(uint32_t in, uint32_t out) : m0(in, out, in * 7 + out), m1(in, out, 3, in * 5 + out) {}
    void* For(uint16_t method) { return method == 0 ? static_cast<void*>(&m0.t) : static_cast<void*>(&m1.t); }
    Method0Fixture m0;  // kept whole: the records point into them
    Method1Fixture m1;
};

constexpr uint32_t kLines = 2, kWidth = 3, kPixels = kLines * kWidth;

// CMatching2, and CMatching1 in place where allowed, give what the named
// kernel gives. The destination size passed is the source's and is not
// examined: 8 in, 16 out writes twice the source's bytes.
TEST(Dispatch, EveryCombinationReachesItsKernel) {
    std::mt19937 rng(9);
    for (uint32_t in : {1u, 3u, 4u})
        for (uint32_t out : {1u, 3u, 4u}) {
            Transforms x(in, out);
            for (int v = 0; v < 48; ++v) {
                const uint16_t method = v / 24, bitsIn = kDepths[v / 6 % 4], bitsOut = 8 << v % 2, layout = v / 2 % 3;
                SCOPED_TRACE(testing::Message() << "method " << method << " " << in << "->" << out << " bits "
                                                << bitsIn << "/" << bitsOut << " layout " << layout);
                MatchingSelector selector{0, method, x.For(method), 0};
                std::vector<uint8_t> src(kPixels * 8), got(kPixels * 8, 0xA5), want(got);
                for (auto& b : src) b = uint8_t(rng());
                const uint32_t size = kPixels * in * (bitsIn == 8 ? 1 : 2);
                PixelRun source{src.data(), kLines}, destination{got.data(), 0};
                ASSERT_EQ(CMatching2(&selector, &source, &destination, kWidth, size, size, bitsIn, bitsOut, layout), 0);
                Convert(method, selector.transform, layout, bitsIn, bitsOut > 8, in, out, src.data(), want.data(),
                        kLines, kWidth);
                EXPECT_EQ(got, want);
                if (in != out || (bitsIn == 8) != (bitsOut == 8)) continue;
                EXPECT_EQ(CMatching1(&selector, &source, kWidth, size, bitsIn, bitsOut, layout), 0u);
                EXPECT_TRUE(std::equal(src.begin(), src.begin() + size, want.begin())) << "in place";
            }
        }
}

// Checks in order: a transform at all (no channel counts to size the block by
// without one), size, in-place format (CMatching1 only), method, depth,
// layout, a ready record; then the silent success for channel counts with no
// interleaved kernel. Nothing is written unless a kernel runs.
TEST(Dispatch, ChecksInOrder) {
    // api: 1 CMatching1, 2 CMatching2, 3 both; bufferSize = block bytes + slack.
    enum { kUsable, kNull, kNotReady };
    struct Case { int api; uint16_t method, in, out, bitsIn, bitsOut, layout; int slack, record; uint32_t status; };
    const Case cases[] = {
        {1, 1, 3, 3, 8, 8, 0, 0, kUsable, 0},        // a buffer of exactly the block is enough
        {1, 1, 3, 3, 8, 8, 0, -1, kUsable, 1002},    // one byte less is not
        {1, 1, 3, 3, 16, 16, 0, -1, kUsable, 1002},  // word samples count twice
        {1, 1, 3, 4, 8, 8, 0, -1, kUsable, 1002},    // size before the in-place checks
        {1, 1, 3, 4, 8, 8, 0, 0, kUsable, 1001},     // in place needs equal channel counts
        {1, 1, 3, 3, 8, 16, 0, 0, kUsable, 1001},    // and equal width classes
        {1, 1, 3, 3, 16, 8, 0, 0, kUsable, 1001},    //
        {3, 2, 3, 3, 9, 9, 3, 0, kUsable, 2040},     // unknown method before depth and layout
        {1, 0, 3, 3, 9, 9, 0, 0, kUsable, 2020},     //
        {3, 1, 3, 3, 9, 9, 3, 0, kUsable, 2020},     // depth before layout
        {3, 0, 3, 3, 8, 8, 3, 0, kUsable, 2030},     //
        {1, 1, 2, 2, 8, 8, 0, 0, kUsable, 0},        // 2 channels interleaved: nothing done
        {1, 0, 5, 5, 16, 16, 0, 0, kUsable, 0},      //
        {2, 1, 3, 4, 8, 16, 0, 0, kUsable, 0},       // CMatching2 has no in-place checks
        {2, 1, 1, 4, 16, 16, 0, -1, kUsable, 1002},  // size from the input side only
        {2, 1, 3, 2, 8, 8, 0, 0, kUsable, 0},        // unsupported output count alone: nothing done
        {2, 0, 2, 3, 10, 8, 0, 0, kUsable, 0},       //
        {3, 0, 3, 3, 8, 8, 0, -1, kNull, 5000},      // no transform before the size check
        {3, 2, 3, 3, 8, 8, 0, 0, kNull, 5000},       // and before the method check
        {3, 0, 3, 3, 8, 8, 0, 0, kNotReady, 5000},   // failed build or tone-curve rebuild
        {3, 1, 3, 3, 8, 8, 1, 0, kNotReady, 5000},   //
        {3, 2, 3, 3, 8, 8, 0, 0, kNotReady, 2040},   // no record type to read `ready` through
        {3, 1, 3, 3, 8, 8, 0, -1, kNotReady, 1002},  // the earlier checks keep their places
        {3, 0, 3, 3, 9, 9, 0, 0, kNotReady, 2020},   //
        {3, 1, 3, 3, 8, 8, 3, 0, kNotReady, 2030},   //
        {3, 1, 2, 2, 8, 8, 0, 0, kNotReady, 0},      // silent success: no kernel would run
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        Transforms x(c.in, c.out);
        x.m0.t.ready = x.m1.t.ready = c.record != kNotReady;
        MatchingSelector sel{0, c.method, c.record == kNull ? nullptr : x.For(c.method), 0};
        const uint32_t size = kPixels * c.in * (c.bitsIn == 8 ? 1 : 2) + c.slack;
        std::vector<uint8_t> a(64, 0x5A), b(64, 0xA5);
        PixelRun src{a.data(), kLines}, dst{b.data(), 0};
        EXPECT_EQ(c.api & 1 ? CMatching1(&sel, &src, kWidth, size, c.bitsIn, c.bitsOut, c.layout) : c.status, c.status);
        EXPECT_EQ(c.api & 2 ? CMatching2(&sel, &src, &dst, kWidth, size, 0, c.bitsIn, c.bitsOut, c.layout) : c.status,
                  c.status);
        const bool untouched = c.status != 0 || (c.layout == 0 && (c.in == 2 || c.in == 5 || c.out == 2));
        EXPECT_TRUE(!untouched || (a == std::vector<uint8_t>(64, 0x5A) && b == std::vector<uint8_t>(64, 0xA5)));
    }
}

// lines x width x channels is formed in 64 bits for the size check: 65535 x
// 65538 pixels would wrap to 65534 in 32 bits and pass a buffer of that
// size; the block does not fit in 32 bits at all, so it is refused (1002)
// and nothing is written.
TEST(Dispatch, BlockBeyondThirtyTwoBitsIsRefused) {
    constexpr uint32_t kManyLines = 65535, kWideLine = 65538, kWrapped = 65534;
    static_assert(uint32_t(kManyLines * uint64_t{kWideLine}) == kWrapped);
    for (uint32_t c : {1u, 3u}) {
        Transforms x(c, c);
        for (int v = 0; v < 8; ++v) {
            const uint16_t method = v / 4, bits = v / 2 % 2 ? 16 : 8, layout = v % 2;
            SCOPED_TRACE(testing::Message() << "method " << method << " " << c << " bits " << bits << " " << layout);
            MatchingSelector selector{0, method, x.For(method), 0};
            const uint32_t bytes = kWrapped * c * (bits / 8);
            std::vector<uint8_t> src(bytes, 0x11);
            std::vector<uint8_t> got(bytes, 0x5A);
            PixelRun many{src.data(), kManyLines};
            PixelRun destination{got.data(), kManyLines};
            EXPECT_EQ(CMatching2(&selector, &many, &destination, kWideLine, bytes, bytes, bits, bits, layout), 1002u);
            EXPECT_EQ(CMatching1(&selector, &many, kWideLine, bytes, bits, bits, layout), 1002u);
            EXPECT_EQ(got, std::vector<uint8_t>(bytes, 0x5A));
            EXPECT_EQ(src, std::vector<uint8_t>(bytes, 0x11));
        }
    }
}

// Shapes with no kernel get none; the table accessors stop at four channels.
TEST(Dispatch, LookupsRefuseWhatHasNoKernel) {
    Method1Fixture f(1, 1, 2, 6);
    EXPECT_TRUE(!FindMethod0Interleaved(false, false, 2, 3) && !FindMethod0Interleaved(true, true, 3, 5) &&
                !FindMethod1Interleaved(9, false, 3, 3) && !FindMethod1Interleaved(8, false, 2, 3) &&
                !FindMethod0Planar(false, false, 0) && !FindMethod1Planar(true, true, 3) &&
                !GetOutputTable8(&f.t, 4) && !GetInputTable16(&f.t, 4));
}

}  // namespace
}  // namespace tintra3
