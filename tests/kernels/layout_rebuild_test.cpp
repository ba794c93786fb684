// Every tone-curve path rebuilds the kernel layout: after a change or merge
// on either side, every instruction set still gives what the portable
// kernels give from the described tables.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "api/exports.h"
#include "api/tone_curves.h"
#include "records.h"
#include "samples.h"
#include "support/test_support.h"

namespace tintra3 {
namespace {

using namespace test;

std::vector<uint8_t> Convert8(const Method0Transform* t, uint32_t in, uint32_t out, const std::vector<uint8_t>& src,
                              Isa isa) {
    const uint32_t width = uint32_t(src.size() / in);
    std::vector<uint8_t> dst(size_t(width) * out);
    Convert(0, t, 0, 8, false, in, out, src.data(), dst.data(), 1, width, isa);
    return dst;
}

TEST(KernelLayoutRebuild, EveryToneCurvePath) {
    struct Pair {
        const char* from;
        const char* to;
        uint32_t in;
        uint32_t out;
    } const pairs[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3},  // three inputs
        {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3},    // four inputs
    };
    struct Path {
        const char* why;
        bool merge;
        uint16_t side;
    } const paths[] = {
        {"change input", false, 0},  // new simplex tables
        {"merge input", true, 0},    // the same, after the record's own curves
        {"change output", false, 1},  // new curved grid
        {"merge output", true, 1},    //
    };
    std::mt19937 rng(5);
    for (const Pair& p : pairs) {
        std::vector<uint8_t> src(4099 * p.in);
        for (auto& b : src) b = uint8_t(rng());
        for (const Path& path : paths) {
            SCOPED_TRACE(testing::Message() << p.from << " " << path.why);
            MatchingSelector selector{1, 0, nullptr, 0};
            ASSERT_EQ(Initialize(&selector, RealProfile(p.from).c_str(), RealProfile(p.to).c_str()), 0u);
            const auto* t = static_cast<const Method0Transform*>(selector.transform);
            const std::vector<uint8_t> before = Convert8(t, p.in, p.out, src, Isa::kPortable);

            // A strong curve (square root), the same for every channel.
            std::vector<std::vector<uint16_t>> entries(4, std::vector<uint16_t>(256));
            ::ValueBuffer curves[4];
            for (int c = 0; c < 4; ++c) {
                for (int i = 0; i < 256; ++i) entries[c][i] = uint16_t(std::lround(65535 * std::sqrt(i / 255.0)));
                curves[c] = ::ValueBuffer{256, 0, entries[c].data()};
            }
            const uint32_t status = path.merge ? MergeToneCurves(&selector, path.side, 16, 4, curves)
                                               : ChangeToneCurves(&selector, path.side, 16, 4, curves);
            ASSERT_EQ(status, 0u);
            EXPECT_EQ(t->layout.usable, 1u);
            const std::vector<uint8_t> want = Convert8(t, p.in, p.out, src, Isa::kPortable);
            EXPECT_NE(want, before) << "the curve changed nothing";
            for (Isa isa : kAllIsas) {
                if (!IsaSupported(isa)) continue;
                EXPECT_EQ(Convert8(t, p.in, p.out, src, isa), want) << IsaName(isa);
            }
            TermMatchingSelector(&selector);
        }
    }
}

}  // namespace
}  // namespace tintra3
