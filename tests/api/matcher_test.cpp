// The matcher object through its exported functions: validation order,
// lastError, and the unsigned 32-bit progress arithmetic.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"

namespace {

const std::string kSrgb = tintra3::test::RealProfile("sRGB.icc");

ProfileNames Names(const std::string& source, const std::string& destination) {
    ProfileNames n;
    std::memset(&n, 0, sizeof n);
    std::strncpy(n.sourceProfile, source.c_str(), sizeof n.sourceProfile - 1);
    std::strncpy(n.destinationProfile, destination.c_str(), sizeof n.destinationProfile - 1);
    return n;
}

ImageParams Image(uint32_t width, uint32_t lines, uint16_t bitsIn = 8, uint16_t bitsOut = 8, uint16_t layout = 0) {
    ImageParams im = {};
    im.width = width;
    im.lines = lines;
    im.bufferSize = width * 3 * 3;  // three lines of 8-bit RGB
    im.destinationBufferSize = im.bufferSize;
    im.bitsIn = bitsIn;
    im.bitsOut = bitsOut;
    im.layout = layout;
    return im;
}

// A matcher as the toolbox makes it: zeroed, so the selector starts empty.
struct Matcher {
    CColorMatcher m;
    Matcher() { std::memset(&m, 0, sizeof m); }
    ~Matcher() { TermCColorMatcher(&m); }
    void Init(const ImageParams& im, uint16_t method = 1, uint16_t intent = 0) {
        MatchingParams p = {intent, method, nullptr, 0};
        ProfileNames n = Names(kSrgb, kSrgb);
        InitCColorMatcher(&m, &p, &im, &n);
    }
};

TEST(Matcher, ValidationOrder) {
    struct Case {
        uint16_t bitsIn, bitsOut, layout;
        uint32_t expected;
        const char* why;
    } cases[] = {
        {10, 16, 2, 0, "every depth and layout combination is accepted"},
        {16, 8, 1, 0, "16 in, 8 out, frame-planar"},
        {9, 12, 3, 2020, "bitsIn before bitsOut and layout"},
        {8, 12, 3, 2021, "bitsOut before layout"},
        {12, 16, 3, 2030, "layout 3"},
        {8, 8, 0xFFFF, 2030, "layout compared unsigned"},
    };
    for (const Case& c : cases) {
        Matcher mt;
        mt.m.selector.intent = 0xABCD;  // marks the selector as not written
        mt.Init(Image(10, 10, c.bitsIn, c.bitsOut, c.layout), 1, 2);
        EXPECT_EQ(CMGetError(&mt.m), c.expected) << c.why;
        EXPECT_EQ(mt.m.image.bitsIn, c.bitsIn) << "image copied even on failure";
        EXPECT_EQ(mt.m.progressTotal, 100u);
        if (c.expected != 0) {
            EXPECT_EQ(mt.m.selector.intent, 0xABCD) << c.why;
            EXPECT_EQ(mt.m.selector.transform, nullptr);
        } else {
            EXPECT_EQ(mt.m.selector.intent, 2);
            EXPECT_NE(mt.m.selector.transform, nullptr);
        }
    }
}

TEST(Matcher, ProgressDenominator) {
    Matcher mt;
    mt.Init(Image(100, 50));
    ASSERT_EQ(CMGetError(&mt.m), 0u);
    EXPECT_EQ(mt.m.progressTotal, 5000u);
    EXPECT_EQ(ChangeImageWidth(&mt.m, 200), 0u);
    EXPECT_EQ(mt.m.progressTotal, 10000u);
    EXPECT_EQ(mt.m.image.width, 200u);
    EXPECT_EQ(ChangeImageLines(&mt.m, 10), 0u);
    EXPECT_EQ(mt.m.progressTotal, 2000u);
    EXPECT_EQ(mt.m.image.lines, 50u) << "stored lines stay";
    const uint32_t bufferSize = mt.m.image.bufferSize;
    EXPECT_EQ(ChangeBufSize(&mt.m, 4096), 0u);
    EXPECT_EQ(mt.m.progressTotal, 4096u);
    EXPECT_EQ(mt.m.image.bufferSize, bufferSize) << "the buffer checks are unchanged";
    EXPECT_EQ(CMGetError(&mt.m), 0u) << "setters leave lastError";
}

TEST(Matcher, GetProgressFigures) {
    struct Case {
        uint32_t done, total, expected;
        const char* why;
    } cases[] = {
        {2500, 5000, 50, "half"},
        {5000, 5000, 100, "all"},
        {7500, 5000, 150, "not clamped"},
        {49, 100, 49, "exact"},
        {1, 3, 33, "truncated"},
        {50000000, 100000000, 7, "done x 100 wraps past 2^32 (5e9 mod 2^32 / 1e8)"},
        {10, 0, 0, "total 0 gives 0"},
    };
    CColorMatcher w = {};  // width change: product first, wrapping; old width 0 gives 0
    w.image.width = 1;
    w.progressTotal = 0x80000000u;
    ChangeImageWidth(&w, 4);
    EXPECT_EQ(w.progressTotal, 0u);
    w.image.width = 0;
    w.progressTotal = 500;
    ChangeImageWidth(&w, 7);
    EXPECT_EQ(w.progressTotal, 0u);
    for (const Case& c : cases) {
        CColorMatcher m = {};
        m.progressDone = c.done;
        m.progressTotal = c.total;
        EXPECT_EQ(GetProgress(&m), c.expected) << c.why;
    }
}

TEST(Matcher, RunsCountProgressOnlyOnSuccess) {
    Matcher mt;
    mt.Init(Image(100, 6));  // bufferSize: 3 lines
    ASSERT_EQ(CMGetError(&mt.m), 0u);
    std::vector<uint8_t> src(100 * 3 * 4, 128), dst(src.size(), 0);

    PixelRun three = {src.data(), 3};
    PixelRun out = {dst.data(), 3};
    EXPECT_EQ(ColorMatchingProc2(&mt.m, &three, &out), 0u);
    EXPECT_EQ(mt.m.progressDone, 300u);
    EXPECT_EQ(GetProgress(&mt.m), 50u);

    PixelRun four = {src.data(), 4};
    EXPECT_EQ(ColorMatchingProc1(&mt.m, &four), 1002u) << "four lines do not fit";
    EXPECT_EQ(CMGetError(&mt.m), 1002u);
    EXPECT_EQ(mt.m.progressDone, 300u) << "a failed run counts nothing";

    EXPECT_EQ(ColorMatchingProc1(&mt.m, &three), 0u);
    EXPECT_EQ(CMGetError(&mt.m), 0u);
    EXPECT_EQ(GetProgress(&mt.m), 100u);

    // Re-initialising restarts the count but keeps the denominator.
    EXPECT_EQ(ChangeBufSize(&mt.m, 1000), 0u);
    ProfileNames n = Names(kSrgb, kSrgb);
    EXPECT_EQ(ReinitCColorMatcher(&mt.m, &n), 0u);
    EXPECT_EQ(mt.m.progressDone, 0u);
    EXPECT_EQ(mt.m.progressTotal, 1000u);
}

}  // namespace
