// One built selector converts blocks on two threads at once: the selector
// and its transform are only read, so the pixels equal those of one thread.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"

namespace {

using tintra3::test::RealProfile;

constexpr uint32_t kWidth = 64;
constexpr uint32_t kLines = 256;
constexpr uint32_t kBlockLines = 8;
constexpr uint32_t kChannels = 3;

struct ThreadCase {
    uint16_t method;
    uint16_t bitsIn;
    uint16_t bitsOut;
    uint16_t layout;
    bool curves;  // bend the output side first (method 1 reads its alternate tables)
    const char* why;
};

const ThreadCase kCases[] = {
    {0, 8, 8, 0, false, "method 0 simplex tables"},
    {1, 8, 8, 0, false, "method 1 multilinear"},
    {1, 16, 16, 0, true, "method 1, 16-bit, alternate output tables"},
    {1, 12, 8, 2, false, "method 1, line-planar"},
    {0, 8, 16, 1, true, "method 0, frame-planar per block, rebuilt curved grid"},
};

// Converts the blocks whose index modulo `step` is `first`.
void ConvertBlocks(MatchingSelector* selector, const ThreadCase& row, const std::vector<uint8_t>& source,
                   std::vector<uint8_t>* destination, uint32_t first, uint32_t step) {
    const uint32_t bytesIn = row.bitsIn == 8 ? 1 : 2;
    const uint32_t bytesOut = row.bitsOut == 8 ? 1 : 2;
    const uint32_t blockIn = kBlockLines * kWidth * kChannels * bytesIn;
    const uint32_t blockOut = kBlockLines * kWidth * kChannels * bytesOut;
    for (uint32_t b = first; b < kLines / kBlockLines; b += step) {
        PixelRun in{const_cast<uint8_t*>(source.data()) + b * blockIn, kBlockLines};
        PixelRun out{destination->data() + b * blockOut, kBlockLines};
        const uint32_t status = CMatching2(selector, &in, &out, kWidth, blockIn, blockOut, row.bitsIn,
                                           row.bitsOut, row.layout);
        EXPECT_EQ(status, 0u);
    }
}

TEST(Threads, TwoThreadsMatchOneThread) {
    for (const ThreadCase& row : kCases) {
        SCOPED_TRACE(row.why);
        CColorMatcher matcher{};
        MatchingParams params{0, row.method, nullptr, 0};
        const uint32_t blockIn = kBlockLines * kWidth * kChannels * (row.bitsIn == 8 ? 1 : 2);
        ImageParams image{kWidth, kLines, blockIn, blockIn * 2, row.bitsIn, row.bitsOut, row.layout, 0};
        ProfileNames names{};
        std::snprintf(names.sourceProfile, sizeof names.sourceProfile, "%s", RealProfile("sRGB.icc").c_str());
        std::snprintf(names.destinationProfile, sizeof names.destinationProfile, "%s",
                      RealProfile("compatibleWithAdobeRGB1998.icc").c_str());
        InitCColorMatcher(&matcher, &params, &image, &names);
        ASSERT_EQ(CMGetError(&matcher), 0u);
        if (row.curves) {
            std::vector<uint16_t> gamma = {0, 40, 100, 255};
            ValueBuffer curves[4] = {};
            std::vector<uint16_t> copies[3] = {gamma, gamma, gamma};
            for (int c = 0; c < 3; ++c) curves[c] = ValueBuffer{4, 0, copies[c].data()};
            ASSERT_EQ(Change1DLut(&matcher, 1, 8, 3, curves), 0u);
        }

        const size_t samples = size_t{kWidth} * kLines * kChannels;
        std::vector<uint8_t> source(samples * 2);
        for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
        if (row.bitsIn != 8) {
            // Keep deep samples inside their range.
            auto* words = reinterpret_cast<uint16_t*>(source.data());
            for (size_t i = 0; i < samples; ++i) words[i] &= static_cast<uint16_t>((1u << row.bitsIn) - 1);
        }
        std::vector<uint8_t> single(samples * 2, 0);
        std::vector<uint8_t> shared(samples * 2, 0);
        ConvertBlocks(&matcher.selector, row, source, &single, 0, 1);
        std::thread even(ConvertBlocks, &matcher.selector, std::cref(row), std::cref(source), &shared, 0, 2);
        std::thread odd(ConvertBlocks, &matcher.selector, std::cref(row), std::cref(source), &shared, 1, 2);
        even.join();
        odd.join();
        EXPECT_EQ(shared, single);
        TermCColorMatcher(&matcher);
    }
}

}  // namespace
