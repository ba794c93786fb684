// Tone curves through the exported Change1DLut / Merge1DLut, with the built
// transform inspected through the selector's pointer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace {

using tintra3::Method0Transform;
using tintra3::Method1Transform;
using tintra3::test::RealProfile;
using tintra3::test::TempPath;

// Owns a matcher built on two real profiles; the curves it is handed stay
// with the caller.
class Matcher {
public:
    Matcher(const std::string& source, const std::string& destination, uint16_t method, uint16_t bitsIn = 8)
        : Matcher(RealProfile(source), RealProfile(destination), method, bitsIn, 0) {}
    // Full paths, not names of installed profiles.
    Matcher(const std::string& source, const std::string& destination, uint16_t method, uint16_t bitsIn, int) {
        std::memset(&m_, 0, sizeof m_);
        MatchingParams params{0, method, nullptr, 0};
        ImageParams image{kWidth, 1, kWidth * 4 * 2, kWidth * 4 * 2, bitsIn, 8, 0, 0};
        ProfileNames names{};
        std::snprintf(names.sourceProfile, sizeof names.sourceProfile, "%s", source.c_str());
        std::snprintf(names.destinationProfile, sizeof names.destinationProfile, "%s", destination.c_str());
        InitCColorMatcher(&m_, &params, &image, &names);
    }
    ~Matcher() { TermCColorMatcher(&m_); }
    Matcher(const Matcher&) = delete;
    Matcher& operator=(const Matcher&) = delete;

    uint32_t status() const { return CMGetError(&m_); }
    CColorMatcher* get() { return &m_; }
    Method0Transform* m0() { return static_cast<Method0Transform*>(m_.selector.transform); }
    Method1Transform* m1() { return static_cast<Method1Transform*>(m_.selector.transform); }

    // One line of kWidth pixels; samples are bytes (8-bit) or u16 words.
    std::vector<uint8_t> Convert(const std::vector<uint8_t>& source) {
        std::vector<uint8_t> out(kWidth * 4, 0xAB);
        PixelRun in{const_cast<uint8_t*>(source.data()), 1};
        PixelRun dst{out.data(), 1};
        EXPECT_EQ(ColorMatchingProc2(&m_, &in, &dst), 0u);
        return out;
    }

    static constexpr uint32_t kWidth = 256;

private:
    CColorMatcher m_;
};

// Three-channel 8-bit pixels sweeping every code with a different phase per channel.
std::vector<uint8_t> Sweep8(uint32_t channels) {
    std::vector<uint8_t> px(Matcher::kWidth * 4 * 2, 0);
    for (uint32_t i = 0; i < Matcher::kWidth; ++i) {
        for (uint32_t c = 0; c < channels; ++c) px[i * channels + c] = static_cast<uint8_t>(i * (c * 2 + 1) + c * 77);
    }
    return px;
}

// Owns four curves in the ValueBuffer form the matcher takes.
struct Curves {
    std::vector<uint16_t> data[4];
    ValueBuffer buffers[4] = {};
    explicit Curves(std::vector<std::vector<uint16_t>> curves) {
        for (size_t c = 0; c < curves.size() && c < 4; ++c) data[c] = std::move(curves[c]);
        for (int c = 0; c < 4; ++c) {
            buffers[c].count = static_cast<uint32_t>(data[c].size());
            buffers[c].data = data[c].empty() ? nullptr : data[c].data();
        }
    }
};

std::vector<uint16_t> Table(const ValueBuffer& b) {
    const auto* p = static_cast<const uint16_t*>(b.data);
    return p ? std::vector<uint16_t>(p, p + b.count) : std::vector<uint16_t>{};
}

std::vector<uint8_t> Bytes(const ValueBuffer& b) {
    const auto* p = static_cast<const uint8_t*>(b.data);
    return p ? std::vector<uint8_t>(p, p + b.count) : std::vector<uint8_t>{};
}

std::vector<uint32_t> Words(const ValueBuffer& b) {
    const auto* p = static_cast<const uint32_t*>(b.data);
    return p ? std::vector<uint32_t>(p, p + b.count) : std::vector<uint32_t>{};
}

const std::vector<uint16_t> kIdentity8 = {0, 255};
const std::vector<uint16_t> kInverted8 = {255, 0};

TEST(ToneCurvesMethod1, InputChangeWithIdentityCurveFillsAlternateTables) {
    Matcher m("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1);
    ASSERT_EQ(m.status(), 0u);
    const auto primary = Table(m.m1()->inputTable256[0]);
    Curves curves({kIdentity8, kIdentity8, kIdentity8});
    ASSERT_EQ(Change1DLut(m.get(), 0, 8, 3, curves.buffers), 0u);
    // The caller's curves are rescaled in place: 255 * 4096 / 255 reaches 4096 and becomes 4095.
    EXPECT_EQ(curves.data[0], (std::vector<uint16_t>{0, 4095}));
    EXPECT_EQ(m.m1()->useAltInputTables, 1u);
    for (int c = 0; c < 3; ++c) {
        const auto alt = Table(m.m1()->altInputTable256[c]);
        ASSERT_EQ(alt.size(), 256u);
        for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(alt[i], (i * 4095 + 128) / 255) << c << " " << i;
        EXPECT_EQ(m.m1()->altInputTable1024[c].count, 1024u);
        EXPECT_EQ(m.m1()->altInputTable4096[c].count, 4096u);
    }
    EXPECT_EQ(Table(m.m1()->inputTable256[0]), primary);  // primaries untouched
}

TEST(ToneCurvesMethod1, OutputMergeTopsSixteenBitTablesAt4095) {
    Matcher m("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1);
    ASSERT_EQ(m.status(), 0u);
    Curves curves({kIdentity8, kIdentity8, kIdentity8});
    ASSERT_EQ(Merge1DLut(m.get(), 1, 8, 3, curves.buffers), 0u);
    EXPECT_EQ(curves.data[0], kIdentity8);  // a method-1 merge rescales its own copies
    EXPECT_EQ(m.m1()->useAltOutputTables, 1u);
    for (int c = 0; c < 3; ++c) {
        const auto alt16 = Table(m.m1()->altOutputTable16[c]);
        ASSERT_EQ(alt16.size(), 4096u);
        EXPECT_EQ(*std::max_element(alt16.begin(), alt16.end()), 4095u);
        // An identity curve on 256 entries leaves the 8-bit table as it was.
        EXPECT_EQ(Bytes(m.m1()->altOutputTable8[c]), Bytes(m.m1()->outputTable8[c]));
    }
}

// Each call rebuilds the alternate set from the primary tables (earlier
// alternate tables are released, which the leak checker sees): a merge after
// a change gives what the merge alone gives.
TEST(ToneCurvesMethod1, LastCallPerSideWins) {
    Matcher once("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1);
    Matcher twice("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1);
    ASSERT_EQ(once.status(), 0u);
    ASSERT_EQ(twice.status(), 0u);
    const std::vector<uint16_t> dark = {0, 30, 255};
    Curves first({kInverted8, kInverted8, kInverted8});
    ASSERT_EQ(Change1DLut(twice.get(), 0, 8, 3, first.buffers), 0u);
    Curves merged({dark, dark, dark});
    Curves mergedAgain({dark, dark, dark});
    ASSERT_EQ(Merge1DLut(twice.get(), 0, 8, 3, merged.buffers), 0u);
    ASSERT_EQ(Merge1DLut(once.get(), 0, 8, 3, mergedAgain.buffers), 0u);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(Table(twice.m1()->altInputTable256[c]), Table(once.m1()->altInputTable256[c]));
        EXPECT_EQ(Table(twice.m1()->altInputTable4096[c]), Table(once.m1()->altInputTable4096[c]));
    }
    const auto px = Sweep8(3);
    EXPECT_EQ(twice.Convert(px), once.Convert(px));
}

// The transform's own 12-bit input table handed back as a curve of bits 12
// survives the rescaling and the 4096-entry resampling unchanged, so 12-bit
// pixels read through the alternate set match those read through the primary.
TEST(ToneCurvesMethod1, OwnInputTableAsCurveKeepsTwelveBitPixels) {
    Matcher plain("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1, 12);
    Matcher bent("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1, 12);
    ASSERT_EQ(plain.status(), 0u);
    ASSERT_EQ(bent.status(), 0u);
    Curves own({Table(bent.m1()->inputTable4096[0]), Table(bent.m1()->inputTable4096[1]),
                Table(bent.m1()->inputTable4096[2])});
    ASSERT_EQ(Change1DLut(bent.get(), 0, 12, 3, own.buffers), 0u);
    std::vector<uint8_t> px(Matcher::kWidth * 4 * 2);
    auto* words = reinterpret_cast<uint16_t*>(px.data());
    for (uint32_t i = 0; i < Matcher::kWidth * 3; ++i) words[i] = static_cast<uint16_t>((i * 977) % 4096);
    EXPECT_EQ(bent.Convert(px), plain.Convert(px));
}

// Each row: operation, side, method, channel count, curves, expected status.
struct RefusalCase {
    bool merge;
    uint16_t side;
    uint16_t method;
    uint16_t channels;
    std::vector<std::vector<uint16_t>> curves;
    uint32_t expected;
    const char* why;
};

const RefusalCase kRefusals[] = {
    {false, 2, 1, 3, {kIdentity8, kIdentity8, kIdentity8}, 0, "method 1: other side is a no-op"},
    {true, 2, 1, 3, {kIdentity8, kIdentity8, kIdentity8}, 0, "method 1: other side is a no-op"},
    {false, 2, 0, 3, {kIdentity8, kIdentity8, kIdentity8}, 2040, "method 0: other side refused"},
    {true, 2, 0, 3, {kIdentity8, kIdentity8, kIdentity8}, 2040, "method 0: other side refused"},
    {false, 0, 1, 2, {kIdentity8, kIdentity8, kIdentity8}, 5000, "fewer channels than the transform has"},
    {true, 1, 1, 3, {kIdentity8, {7}, kIdentity8}, 5000, "one-entry curve would make resampling read before it"},
    {false, 1, 1, 3, {kIdentity8, kIdentity8, {}}, 5000, "missing curve for an output channel"},
    {false, 0, 0, 3, {kIdentity8, {255}, kIdentity8}, 5000, "method 0 input rebuild needs every input curve"},
    {false, 1, 0, 1, {kIdentity8}, 5000, "method 0 output change needs a curve per output channel"},
    {true, 1, 0, 0, {kIdentity8}, 5000, "channel count 0 reaches no curve at all"},
};

TEST(ToneCurves, RefusalsChangeNothing) {
    for (const RefusalCase& row : kRefusals) {
        SCOPED_TRACE(row.why);
        Matcher m("sRGB.icc", "compatibleWithAdobeRGB1998.icc", row.method);
        ASSERT_EQ(m.status(), 0u);
        const auto before = Sweep8(3);
        const auto pixelsBefore = m.Convert(before);
        Curves curves(row.curves);
        const uint32_t status = row.merge ? Merge1DLut(m.get(), row.side, 8, row.channels, curves.buffers)
                                          : Change1DLut(m.get(), row.side, 8, row.channels, curves.buffers);
        EXPECT_EQ(status, row.expected);
        for (size_t c = 0; c < row.curves.size(); ++c) EXPECT_EQ(curves.data[c], row.curves[c]);
        if (row.method == 1) {
            EXPECT_EQ(m.m1()->useAltInputTables, 0u);
            EXPECT_EQ(m.m1()->useAltOutputTables, 0u);
            EXPECT_EQ(m.m1()->altInputTable256[0].count, 0u);
        }
        EXPECT_EQ(m.Convert(before), pixelsBefore);
    }
}

TEST(ToneCurves, NoTransformIsRefused) {
    CColorMatcher m{};
    m.selector.method = 1;
    Curves curves({kIdentity8, kIdentity8, kIdentity8});
    EXPECT_EQ(Change1DLut(&m, 0, 8, 3, curves.buffers), 5000u);
    m.selector.method = 0;
    EXPECT_EQ(Merge1DLut(&m, 1, 8, 3, curves.buffers), 5000u);
    m.selector.method = 7;
    EXPECT_EQ(Merge1DLut(&m, 0, 8, 3, curves.buffers), 2040u);
}

// A build that failed leaves its half-made record in the selector. The
// curve calls give what they give on any record (0, except the method-0
// input rebuild, which fails on a record without a source kind after
// rescaling the curves); no pixel goes through the record afterwards.
TEST(ToneCurves, HalfBuiltRecordIsNotRefusedForBeingUnready) {
    const std::string noTags = [] {
        tintra3::icc::ProfileWriter w;  // an ICC profile without tags: no model can be made
        std::string path = TempPath("tone-curves-no-tags.icc");
        EXPECT_TRUE(w.WriteFile(path));
        return path;
    }();
    const struct {
        uint16_t method;
        bool merge;
        uint16_t side;
        uint32_t expected;
        bool rescaled;
    } rows[] = {
        {1, false, 0, 0, true},      // alternate input tables need nothing of the record
        {1, false, 1, 0, true},      // likewise the output side
        {1, true, 0, 0, false},      // no primary tables to compose with: nothing happens
        {1, true, 1, 0, false},
        {0, false, 1, 0, true},      // no grid entries to recompute
        {0, true, 1, 0, true},
        {0, false, 0, 5000, true},   // unknown source kind: the rebuild fails
        {0, true, 0, 5000, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.method << (row.merge ? " merge " : " change ") << row.side);
        Matcher m(RealProfile("sRGB.icc"), noTags, row.method, 8, 0);
        ASSERT_EQ(m.status(), 5000u);
        ASSERT_NE(m.get()->selector.transform, nullptr);
        Curves curves({kIdentity8, kIdentity8, kIdentity8});
        const uint32_t status = row.merge ? Merge1DLut(m.get(), row.side, 8, 3, curves.buffers)
                                          : Change1DLut(m.get(), row.side, 8, 3, curves.buffers);
        EXPECT_EQ(status, row.expected);
        EXPECT_EQ(curves.data[0][1], row.rescaled ? (row.side == 0 && row.method == 1 ? 4095u : 65534u) : 255u);
        const auto px = Sweep8(3);
        std::vector<uint8_t> out(Matcher::kWidth * 4, 0xAB);
        PixelRun in{const_cast<uint8_t*>(px.data()), 1};
        PixelRun dst{out.data(), 1};
        ColorMatchingProc2(m.get(), &in, &dst);
        EXPECT_EQ(out, std::vector<uint8_t>(Matcher::kWidth * 4, 0xAB));  // no pixel written
    }
}

TEST(ToneCurvesMethod0, OutputMergeAppliesCurveZeroToEveryChannel) {
    Matcher m("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 0);
    ASSERT_EQ(m.status(), 0u);
    Curves curves({kInverted8, kIdentity8, {0, 0}});
    ASSERT_EQ(Merge1DLut(m.get(), 1, 8, 3, curves.buffers), 0u);
    const auto grid = Bytes(m.m0()->grid);
    const auto curved = Words(m.m0()->curvedGrid);
    ASSERT_EQ(grid.size(), 33u * 33 * 33 * 3);
    for (size_t e = 0; e < grid.size(); ++e) {
        const auto own = Bytes(m.m0()->outputCurves[e % 3]);
        ASSERT_EQ(curved[e], own[255 - grid[e]]) << e;
    }
}

TEST(ToneCurvesMethod0, OutputChangeUsesEachChannelsCurve) {
    Matcher m("sRGB.icc", "compatibleWithAdobeRGB1998.icc", 0);
    ASSERT_EQ(m.status(), 0u);
    Curves curves({kInverted8, kIdentity8, {0, 0}});
    ASSERT_EQ(Change1DLut(m.get(), 1, 8, 3, curves.buffers), 0u);
    EXPECT_EQ(curves.data[0], (std::vector<uint16_t>{65534, 0}));  // 65535 is out of range: 65534
    const auto grid = Bytes(m.m0()->grid);
    const auto curved = Words(m.m0()->curvedGrid);
    for (size_t e = 0; e < grid.size(); ++e) {
        const uint32_t expected[3] = {255u - grid[e], grid[e], 0u};
        ASSERT_EQ(curved[e], expected[e % 3]) << e;
    }
}

// An identity curve merged on either side composes to the record's own
// curves, so the rebuilt tables give exactly the pixels of the original.
TEST(ToneCurvesMethod0, IdentityMergeKeepsPixels) {
    const struct {
        const char* source;
        uint32_t channels;
        uint16_t side;
    } rows[] = {
        {"sRGB.icc", 3, 0},                           // simplex rebuild, 3-D
        {"sRGB.icc", 3, 1},                           // curved grid recomputed
        {"ghostscript/default_cmyk.icc", 4, 0},       // simplex rebuild, 4-D mirrored
        {"Gray.icc", 1, 0},                           // monochrome cell/fraction rebuild
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.source);
        Matcher m(row.source, "sRGB.icc", 0);
        ASSERT_EQ(m.status(), 0u);
        const auto px = Sweep8(row.channels);
        const auto before = m.Convert(px);
        Curves curves({kIdentity8, kIdentity8, kIdentity8, kIdentity8});
        ASSERT_EQ(Merge1DLut(m.get(), row.side, 8, 4, curves.buffers), 0u);
        EXPECT_EQ(m.Convert(px), before);
    }
}

// A monochrome source reads curve 0 alone: the other slots may be empty
// whatever the channel count says.
TEST(ToneCurvesMethod0, MonochromeSourceUsesCurveZeroOnly) {
    Matcher m("Gray.icc", "sRGB.icc", 0);
    ASSERT_EQ(m.status(), 0u);
    ASSERT_EQ(m.m0()->sourceKind, 3u);
    Curves curves({kInverted8});
    ASSERT_EQ(Change1DLut(m.get(), 0, 8, 3, curves.buffers), 0u);
    const auto cell = Bytes(m.m0()->monoCell);
    const auto fraction = Table(m.m0()->monoFraction);
    ASSERT_EQ(cell.size(), 256u);
    // 256 points: code u sits in cell u at fraction 0, except 255 (cell 254, fraction 1.0).
    for (uint32_t v = 0; v < 256; ++v) {
        const uint32_t u = 255 - v;
        EXPECT_EQ(cell[v], u == 255 ? 254u : u) << v;
        EXPECT_EQ(fraction[v], u == 255 ? 256u : 0u) << v;
    }
}

}  // namespace
