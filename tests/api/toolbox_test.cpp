// The toolbox layer through its exported functions: argument refusals
// (5001), handle ownership, resets, the curve filling and the directory table.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"

namespace {

const std::string kSrgb = tintra3::test::RealProfile("sRGB.icc");
const std::string kAdobe = tintra3::test::RealProfile("compatibleWithAdobeRGB1998.icc");

std::vector<char> NameBlock(const std::string& source, const std::string& destination) {
    std::vector<char> block(512, '\0');
    std::strncpy(block.data(), source.c_str(), 255);
    std::strncpy(block.data() + 256, destination.c_str(), 255);
    return block;
}

ImageParams Image(uint32_t width, uint16_t bitsIn = 8) {
    ImageParams im = {};
    im.width = width;
    im.lines = 1;
    im.bufferSize = width * 3;
    im.destinationBufferSize = width * 3;
    im.bitsIn = bitsIn;
    im.bitsOut = 8;
    return im;
}

// A ramp of 8-bit RGB pixels that exercises every channel.
std::vector<uint8_t> Pixels(uint32_t count) {
    std::vector<uint8_t> p(count * 3);
    for (size_t i = 0; i < p.size(); ++i) p[i] = uint8_t(i * 37 + i / 3);
    return p;
}

struct Handle {
    CColorMatcher* h = nullptr;
    ~Handle() { QemToolboxPostProc(h); }
    uint32_t Init(const ImageParams& im, uint16_t method = 1, int32_t intent = 0,
                  const std::string& src = kSrgb, const std::string& dst = kAdobe) {
        std::vector<char> names = NameBlock(src, dst);
        return QemToolboxInit(&im, names.data(), method, intent, &h);
    }
    std::vector<uint8_t> Convert(const std::vector<uint8_t>& in) {
        std::vector<uint8_t> out(in.size(), 0);
        std::vector<uint8_t> copy = in;
        PixelRun s = {copy.data(), 1};
        PixelRun d = {out.data(), 1};
        EXPECT_EQ(QemToolboxProc(&s, &d, h), 0u);
        return out;
    }
};

TEST(Toolbox, InitRefusesArgumentsInOrderAndAllocatesNothing) {
    const ImageParams im = Image(4);
    const std::vector<char> names = NameBlock(kSrgb, kSrgb);
    struct Case {
        const ImageParams* image;
        const char* names;
        uint16_t method;
        int32_t intent;
        const char* why;
    } cases[] = {
        {nullptr, names.data(), 1, 0, "null image"},
        {&im, nullptr, 1, 0, "null names"},
        {&im, names.data(), 2, 0, "method 2"},
        {&im, names.data(), 0xFFFF, 0, "method 0xFFFF (a bad top-level choice)"},
        {&im, names.data(), 1, -1, "negative intent"},
        {&im, names.data(), 1, 4, "intent 4"},
        {&im, names.data(), 1, 0xFFFF, "intent 0xFFFF (a bad top-level intent)"},
    };
    for (const Case& c : cases) {
        CColorMatcher* h = nullptr;
        EXPECT_EQ(QemToolboxInit(c.image, c.names, c.method, c.intent, &h), 5001u) << c.why;
        EXPECT_EQ(h, nullptr) << c.why;
    }
    EXPECT_EQ(QemToolboxInit(&im, names.data(), 1, 0, nullptr), 5001u);
}

TEST(Toolbox, FailedInitStillHandsOutTheHandle) {
    struct Case {
        ImageParams image;
        std::string source;
        uint32_t expected;
        const char* why;
    } cases[] = {
        {Image(4, 9), kSrgb, 2020, "bitsIn 9"},
        {Image(4), tintra3::test::TempPath("missing.icc"), 3000, "missing profile"},
    };
    for (const Case& c : cases) {
        Handle h;
        EXPECT_EQ(h.Init(c.image, 1, 0, c.source), c.expected) << c.why;
        ASSERT_NE(h.h, nullptr) << c.why;
        EXPECT_EQ(CMGetError(h.h), c.expected);
    }
}

// In place, after each kind of reset, the same pixels as a fresh conversion.
TEST(Toolbox, ProcAndResets) {
    Handle h;
    ASSERT_EQ(h.Init(Image(8)), 0u);
    const std::vector<uint8_t> in = Pixels(8);
    const std::vector<uint8_t> before = h.Convert(in);
    std::vector<uint8_t> inPlace = in;
    PixelRun run = {inPlace.data(), 1};
    EXPECT_EQ(QemToolboxProc(&run, nullptr, h.h), 0u);
    EXPECT_EQ(inPlace, before) << "no destination run: converted in place";
    EXPECT_EQ(QemToolboxProc(nullptr, &run, h.h), 5001u);

    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 1, 0xFFFF, h.h), 2050u) << "0xFFFF is not 'keep'";
    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 0xFFFF, 0, h.h), 2040u);
    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 1, 0, h.h), 0u) << "both null: current settings";
    EXPECT_EQ(h.Convert(in), before);
    EXPECT_EQ(QemToolboxResetProfiles(nullptr, nullptr, h.h), 0u) << "both null: current paths";
    EXPECT_EQ(h.Convert(in), before);
    EXPECT_EQ(QemToolboxResetProfiles(nullptr, kSrgb.c_str(), h.h), 0u);
    EXPECT_EQ(std::string(h.h->names.sourceProfile), kSrgb) << "a null path keeps the current one";
    EXPECT_EQ(QemToolboxResetProfiles(tintra3::test::TempPath("missing.icc").c_str(), nullptr, h.h), 3000u);
    EXPECT_EQ(QemToolboxResetProfiles(kSrgb.c_str(), kAdobe.c_str(), h.h), 0u);
    EXPECT_EQ(h.Convert(in), before);
    // A new image that fails validation leaves no transform to free twice.
    ImageParams bad = Image(8, 9);
    EXPECT_EQ(QemToolboxResetMatchingParam(&bad, nullptr, 1, 0, h.h), 2020u);
}

TEST(Toolbox, SettersRefuseOutOfRangeValues) {
    Handle h;
    ASSERT_EQ(h.Init(Image(100)), 0u);
    struct Case {
        uint32_t got, expected;
        const char* why;
    } cases[] = {
        {QemToolboxChangeBufSize(4096, 2, h.h), 5001, "unit 2"},
        {QemToolboxChangeBufSize(0, 1, h.h), 5001, "size 0"},
        {QemToolboxChangeBufSize(-5, 1, h.h), 5001, "negative size"},
        {QemToolboxChangeBufSize(4096, 1, nullptr), 5001, "null handle"},
        {QemToolboxChangeImageWidth(0, h.h), 5001, "width 0"},
        {QemToolboxChangeImageWidth(5, nullptr), 5001, "null handle"},
        {QemToolboxChangeImageLines(-1, h.h), 5001, "negative lines"},
        {QemToolboxChangeImageLines(5, nullptr), 5001, "null handle"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.got, c.expected) << c.why;
    EXPECT_EQ(h.h->progressTotal, 100u) << "refusals change nothing";

    EXPECT_EQ(QemToolboxChangeBufSize(4096, 1, h.h), 0u);
    EXPECT_EQ(h.h->progressTotal, 4096u);
    EXPECT_EQ(h.h->image.bufferSize, 300u);
    EXPECT_EQ(QemToolboxChangeImageWidth(50, h.h), 0u);
    EXPECT_EQ(h.h->progressTotal, 2048u);
    EXPECT_EQ(QemToolboxChangeImageLines(3, h.h), 0u);
    EXPECT_EQ(h.h->progressTotal, 150u);
}

TEST(Toolbox, CurveFunctionsCheckArgumentsThenReportSuccess) {
    Handle h;
    ASSERT_EQ(h.Init(Image(8)), 0u);
    const uint16_t gamma1[1] = {256};
    const uint16_t twoEntries[2] = {0, 255};
    CurveSpec gamma = {3, 8, 1, {gamma1, gamma1, gamma1, gamma1}};
    CurveSpec five = gamma;
    five.channels = 5;
    CurveSpec table = {3, 8, 2, {twoEntries, twoEntries, twoEntries, twoEntries}};
    CurveSpec noData = {3, 8, 1, {}};  // data pointers missing: the filling stops
    CurveSpec noChannels = {0, 8, 0, {}};
    struct Case {
        const CurveSpec* spec;
        uint16_t side;
        CColorMatcher* handle;
        uint32_t expected;
        const char* why;
    } cases[] = {
        {nullptr, 0, h.h, 5001, "null CurveSpec"},
        {&gamma, 2, h.h, 5001, "side 2"},
        {&gamma, 0, nullptr, 5001, "null handle"},
        {&five, 0, h.h, 5001, "more than four channels"},
        {&gamma, 1, h.h, 0, "gamma 1.0 on the output side"},
        {&table, 0, h.h, 0, "two-entry table on the input side"},
        {&noData, 0, h.h, 0, "failed filling is not reported"},
        {&noChannels, 0, h.h, 0, "matcher refuses zero channels; not reported"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(QemToolboxChange1DLUT(c.spec, c.side, c.handle), c.expected) << "change: " << c.why;
        EXPECT_EQ(QemToolboxMerge1DLUT(c.spec, c.side, c.handle), c.expected) << "merge: " << c.why;
    }
}

// The gamma curve the toolbox builds: 1024 entries of pow(x, g) x max + 0.5
// with x accumulated in steps of 1/1023. Handing the same curve to the
// matcher directly must give the same transform.
std::vector<uint16_t> GammaCurve(double gamma, double max) {
    std::vector<uint16_t> curve(1024);
    double x = 0.0;
    for (int i = 0; i < 1024; ++i) {
        curve[i] = uint16_t(uint32_t(std::pow(x, gamma) * max + 0.5));
        x += 0.0009775171065493646;
    }
    return curve;
}

TEST(Toolbox, GammaOneCurveEntries) {
    // x accumulated in steps of 1/1023: entries 1 and 2 round down to 0, the
    // last one lands on max.
    const std::vector<uint16_t> c = GammaCurve(1.0, 255);
    EXPECT_EQ(c[0], 0);
    EXPECT_EQ(c[1], 0);
    EXPECT_EQ(c[2], 0);
    EXPECT_EQ(c[3], 1);
    EXPECT_EQ(c[1023], 255);
}

// A filling that stops at a missing data pointer still hands the curves made
// so far to the matcher: a method-0 output merge reads curve 0 only.
TEST(Toolbox, StoppedFillingStillReachesTheMatcher) {
    const std::vector<uint8_t> in = Pixels(32);
    Handle viaToolbox, direct;
    ASSERT_EQ(viaToolbox.Init(Image(32), 0), 0u);
    ASSERT_EQ(direct.Init(Image(32), 0), 0u);
    const std::vector<uint8_t> untouched = viaToolbox.Convert(in);
    const uint16_t g[1] = {563};
    CurveSpec spec = {3, 8, 1, {g, nullptr, nullptr, nullptr}};
    ASSERT_EQ(QemToolboxMerge1DLUT(&spec, 1, viaToolbox.h), 0u);

    std::vector<uint16_t> curve = GammaCurve(563 * 0.00390625, 255);
    ValueBuffer buffers[4] = {};
    buffers[0] = {1024, 0, curve.data()};
    ASSERT_EQ(Merge1DLut(direct.h, 1, 8, 3, buffers), 0u);
    const std::vector<uint8_t> got = viaToolbox.Convert(in);
    EXPECT_EQ(got, direct.Convert(in));
    EXPECT_NE(got, untouched);
}

TEST(Toolbox, CurvesReachTheMatcherAsBuilt) {
    struct Case {
        uint16_t method, side, bits, gammaRaw;
        bool merge;
        const char* why;
    } cases[] = {
        {1, 1, 8, 563, false, "method 1 output side, gamma 2.2"},
        {0, 0, 16, 300, true, "method 0 input merge, 16-bit values"},
        {1, 0, 10, 128, true, "method 1 input merge, 10-bit values, gamma 0.5"},
    };
    const std::vector<uint8_t> in = Pixels(32);
    for (const Case& c : cases) {
        const double max = c.bits == 10 ? 1023 : c.bits == 12 ? 4095 : c.bits == 16 ? 65535 : 255;
        Handle viaToolbox, direct;
        ASSERT_EQ(viaToolbox.Init(Image(32), c.method), 0u);
        ASSERT_EQ(direct.Init(Image(32), c.method), 0u);
        const std::vector<uint8_t> untouched = viaToolbox.Convert(in);

        const uint16_t g[1] = {c.gammaRaw};
        CurveSpec spec = {3, c.bits, 1, {g, g, g, g}};
        ASSERT_EQ((c.merge ? QemToolboxMerge1DLUT : QemToolboxChange1DLUT)(&spec, c.side, viaToolbox.h), 0u);

        std::vector<std::vector<uint16_t>> curves(3, GammaCurve(c.gammaRaw * 0.00390625, max));
        ValueBuffer buffers[4] = {};
        for (int ch = 0; ch < 3; ++ch) buffers[ch] = {1024, 0, curves[ch].data()};
        ASSERT_EQ((c.merge ? Merge1DLut : Change1DLut)(direct.h, c.side, c.bits, 3, buffers), 0u) << c.why;

        const std::vector<uint8_t> got = viaToolbox.Convert(in);
        EXPECT_EQ(got, direct.Convert(in)) << c.why;
        EXPECT_NE(got, untouched) << c.why << ": the curve must have an effect";
    }
}

TEST(Toolbox, LocateProfileAndDirectoryNames) {
    char path[256] = "previous contents";
    EXPECT_EQ(QemToolboxLocateProfile(nullptr, path), 5001u);
    EXPECT_EQ(QemToolboxLocateProfile("a.icm", nullptr), 5001u);
    EXPECT_EQ(QemToolboxLocateProfile("a.icm", path), 1u) << "success is 1 here";
    EXPECT_NE(std::string(path).find("/color/a.icm"), std::string::npos) << path;

    DirectoryTable table;
    std::memset(&table, 'x', sizeof table);
    SetDirectoryName("Printer", "Monitor", "Scanner", &table);
    const char* raw = reinterpret_cast<const char*>(&table);
    EXPECT_STREQ(raw, "Printer");
    EXPECT_STREQ(raw + 255, "Monitor");
    EXPECT_STREQ(raw + 510, "Scanner");

    const std::string longName(300, 'L');
    SetDirectoryName(longName.c_str(), "", longName.c_str(), &table);
    EXPECT_EQ(std::string(raw, 254), longName.substr(0, 254));
    EXPECT_EQ(raw[254], '\0') << "truncated to the slot less one byte";
    EXPECT_STREQ(raw + 255, "");
    EXPECT_EQ(raw[510 + 254], '\0');
}

}  // namespace
