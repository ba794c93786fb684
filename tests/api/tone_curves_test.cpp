// Tone curves through the exported Change1DLut / Merge1DLut, with the built
// transform inspected through the selector's pointer.
#include <algorithm>
#include <tuple>

#include "api_fixtures.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace {

using namespace tintra3::test;
using Curve = std::vector<uint16_t>;

constexpr uint32_t kWidth = 256;
constexpr ImageParams kImage{kWidth, 1, kWidth * 8, kWidth * 8, 8, 8, 0, 0};
auto* M0(Matcher& m) { return static_cast<tintra3::Method0Transform*>(m.m.selector.transform); }
auto* M1(Matcher& m) { return static_cast<tintra3::Method1Transform*>(m.m.selector.transform); }
// The entries of a table of the transform record.
template <class T = uint16_t>
std::vector<T> Get(const tintra3::ValueBuffer& b) {
    const auto* p = static_cast<const T*>(b.data);
    return p ? std::vector<T>(p, p + b.count) : std::vector<T>{};
}

// 8-bit pixels sweeping every code with a different phase per channel, converted.
std::vector<uint8_t> Sweep(Matcher& m, uint32_t channels = 3) {
    std::vector<uint8_t> px(kWidth * 8, 0);
    for (uint32_t k = 0; k < kWidth * channels; ++k)
        px[k] = uint8_t(k / channels * (k % channels * 2 + 1) + k % channels * 77);
    return m.Convert(px, kWidth * 4);
}

const Curve kId = {0, 255}, kInv = {255, 0};

// Four curves in the ValueBuffer form the matcher takes; they stay with the caller.
struct Curves {
    Curve data[4];
    ValueBuffer buffers[4];
    explicit Curves(const std::vector<Curve>& curves) {
        std::copy(curves.begin(), curves.end(), data);
        for (int c = 0; c < 4; ++c)
            buffers[c] = {uint32_t(data[c].size()), 0, data[c].empty() ? nullptr : data[c].data()};
    }
    uint32_t Apply(Matcher& m, bool merge, uint16_t side, uint16_t channels = 3, uint16_t bits = 8) {
        return (merge ? Merge1DLut : Change1DLut)(&m.m, side, bits, channels, buffers);
    }
};

TEST(ToneCurvesMethod1, AlternateTables) {
    Matcher in(kImage, 1), out(kImage, 1), once(kImage, 1);
    const auto primary = Get(M1(in)->inputTable256[0]);
    Curves change({kId, kId, kId}), merge({kId, kId, kId});
    ASSERT_EQ(change.Apply(in, false, 0), 0u);
    EXPECT_EQ(change.data[0], (Curve{0, 4095}));  // rescaled in place: 255 x 4096 / 255 -> 4095
    EXPECT_EQ(M1(in)->useAltInputTables, 1u);
    EXPECT_EQ(Get(M1(in)->inputTable256[0]), primary);  // primaries untouched
    ASSERT_EQ(merge.Apply(out, true, 1), 0u);
    EXPECT_EQ(merge.data[0], kId);  // a method-1 merge rescales its own copies
    EXPECT_EQ(M1(out)->useAltOutputTables, 1u);
    for (int c = 0; c < 3; ++c) {
        const auto alt = Get(M1(in)->altInputTable256[c]), alt16 = Get(M1(out)->altOutputTable16[c]);
        ASSERT_EQ(alt.size(), 256u);
        for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(alt[i], (i * 4095 + 128) / 255) << c << " " << i;
        EXPECT_EQ(M1(in)->altInputTable1024[c].count + M1(in)->altInputTable4096[c].count, 1024u + 4096u);
        ASSERT_EQ(alt16.size(), 4096u);
        EXPECT_EQ(*std::max_element(alt16.begin(), alt16.end()), 4095u);  // merged 16-bit tables top at 4095
        EXPECT_EQ(Get<uint8_t>(M1(out)->altOutputTable8[c]), Get<uint8_t>(M1(out)->outputTable8[c]));
    }
    // Each call rebuilds the set from the primary tables (the earlier set is
    // released, which the leak checker sees): the last call per side wins.
    const Curve dark = {0, 30, 255};
    Curves darkIn({dark, dark, dark}), darkOnce({dark, dark, dark});
    ASSERT_EQ(darkIn.Apply(in, true, 0) + darkOnce.Apply(once, true, 0), 0u);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(Get(M1(in)->altInputTable4096[c]), Get(M1(once)->altInputTable4096[c]));
    EXPECT_EQ(Sweep(in), Sweep(once));
}

TEST(ToneCurves, RefusalsChangeNothing) {
    const struct { bool merge; uint16_t side, method, channels; std::vector<Curve> curves; uint32_t expected; }
    cases[] = {
        {false, 2, 1, 3, {kId, kId, kId}, 0},       // method 1: the other side is a no-op
        {true, 2, 1, 3, {kId, kId, kId}, 0},
        {false, 2, 0, 3, {kId, kId, kId}, 2040},    // method 0: the other side is refused
        {true, 2, 0, 3, {kId, kId, kId}, 2040},
        {false, 0, 1, 2, {kId, kId, kId}, 5000},    // fewer channels than the transform has
        {true, 1, 1, 3, {kId, {7}, kId}, 5000},     // one-entry curve: resampling would read before it
        {false, 1, 1, 3, {kId, kId, {}}, 5000},     // missing curve for an output channel
        {false, 0, 0, 3, {kId, {255}, kId}, 5000},  // method 0 input rebuild needs every input curve
        {false, 1, 0, 1, {kId}, 5000},              // method 0 output change needs a curve per output channel
        {true, 1, 0, 0, {kId}, 5000},               // channel count 0 reaches no curve at all
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Matcher m(kImage, c.method);
        const auto before = Sweep(m);
        Curves curves(c.curves);
        EXPECT_EQ(curves.Apply(m, c.merge, c.side, c.channels), c.expected);
        EXPECT_TRUE(std::equal(c.curves.begin(), c.curves.end(), curves.data));  // not rescaled
        EXPECT_EQ(c.method == 1 ? M1(m)->useAltInputTables + M1(m)->useAltOutputTables : 0u, 0u);
        EXPECT_EQ(Sweep(m), before);
    }
    CColorMatcher none{};  // no transform at all
    Curves curves({kId, kId, kId});
    for (auto [method, merge, side, expected] :
         {std::tuple{1, false, 0, 5000u}, {0, true, 1, 5000u}, {7, true, 0, 2040u}}) {
        none.selector.method = uint16_t(method);  // 2040 for an unknown method, 5000 otherwise
        EXPECT_EQ((merge ? Merge1DLut : Change1DLut)(&none, uint16_t(side), 8, 3, curves.buffers), expected);
    }
}

// A failed build leaves its half-made record in the selector. The curve calls
// give what they give on any record; no pixel goes through it afterwards.
TEST(ToneCurves, HalfBuiltRecordIsNotRefusedForBeingUnready) {
    const struct { uint16_t method; bool merge; uint16_t side; uint32_t expected; uint16_t curveTop; } rows[] = {
        {1, false, 0, 0, 4095},      // alternate input tables need nothing of the record
        {1, false, 1, 0, 65534},     // likewise the output side
        {1, true, 0, 0, 255},        // no primary tables to compose with: nothing happens
        {1, true, 1, 0, 255},
        {0, false, 1, 0, 65534},     // no grid entries to recompute
        {0, true, 1, 0, 65534},
        {0, false, 0, 5000, 65534},  // unknown source kind: the rebuild fails after rescaling
        {0, true, 0, 5000, 65534},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.method << (row.merge ? " merge " : " change ") << row.side);
        Matcher m(kImage, row.method, kSrgb, NoTagsProfile());
        ASSERT_EQ(m.status(), 5000u);
        ASSERT_NE(m.m.selector.transform, nullptr);
        Curves curves({kId, kId, kId});
        EXPECT_EQ(curves.Apply(m, row.merge, row.side), row.expected);
        EXPECT_EQ(curves.data[0][1], row.curveTop);
        EXPECT_EQ(m.Convert(Ramp(kWidth * 3), kWidth * 4, -1), std::vector<uint8_t>(kWidth * 4, 0xAB));  // no pixel
    }
}

// A method-0 output merge applies curve 0 to every channel; a change uses each
// channel's own curve. Both scale the caller's curves to 16 bits (65535 is
// out of range: 65534).
TEST(ToneCurvesMethod0, OutputCurvesOnTheCurvedGrid) {
    for (bool merge : {true, false}) {
        Matcher m(kImage, 0);
        Curves curves({kInv, kId, {0, 0}});
        ASSERT_EQ(curves.Apply(m, merge, 1), 0u);
        EXPECT_EQ(curves.data[0], (Curve{65534, 0}));
        const auto grid = Get<uint8_t>(M0(m)->grid);
        const auto curved = Get<uint32_t>(M0(m)->curvedGrid);
        const std::vector<uint8_t> own[3] = {Get<uint8_t>(M0(m)->outputCurves[0]), Get<uint8_t>(M0(m)->outputCurves[1]),
                                             Get<uint8_t>(M0(m)->outputCurves[2])};
        ASSERT_EQ(grid.size(), 33u * 33 * 33 * 3);
        for (size_t e = 0; e < grid.size(); ++e) {
            const uint32_t changed[3] = {255u - grid[e], grid[e], 0u};
            ASSERT_EQ(curved[e], merge ? own[e % 3].at(255 - grid[e]) : changed[e % 3]) << e << " merge " << merge;
        }
    }
}

// An identity merge composes to the record's own curves: the same pixels. A
// monochrome source reads curve 0 alone, whatever the channel count says.
TEST(ToneCurvesMethod0, IdentityMergeKeepsPixels) {
    const struct { const char* source; uint32_t channels; uint16_t side; std::vector<Curve> curves; } rows[] = {
        {"sRGB.icc", 3, 0, {kId, kId, kId}},                      // simplex rebuild, 3-D
        {"sRGB.icc", 3, 1, {kId, kId, kId}},                      // curved grid recomputed
        {"ghostscript/default_cmyk.icc", 4, 0, {kId, kId, kId, kId}},  // simplex rebuild, 4-D mirrored
        {"Gray.icc", 1, 0, {kId}},                                // monochrome cell/fraction rebuild
    };
    for (const auto& row : rows) {
        Matcher m(kImage, 0, RealProfile(row.source), kSrgb);
        const auto before = Sweep(m, row.channels);
        Curves curves(row.curves);
        ASSERT_EQ(curves.Apply(m, true, row.side, 4), 0u) << row.source;
        EXPECT_EQ(Sweep(m, row.channels), before) << row.source;
    }
}

}  // namespace
