// The toolbox layer: argument refusals (5001), handle ownership, resets, the
// setters, the curve filling and the directory table.
#include <cmath>

#include "api_fixtures.h"

namespace {

using namespace tintra3::test;

constexpr uint32_t kWidth = 32;
constexpr ImageParams kImage{kWidth, 1, kWidth * 3, kWidth * 3, 8, 8, 0, 0};
constexpr ImageParams kNineBits{kWidth, 1, kWidth * 3, kWidth * 3, 9, 8, 0, 0};

struct Handle {
    CColorMatcher* h = nullptr;
    ~Handle() { QemToolboxPostProc(h); }
    uint32_t Init(uint16_t method = 1) {
        return QemToolboxInit(&kImage, Names(kSrgb, kAdobe).sourceProfile, method, 0, &h);
    }
    std::vector<uint8_t> Convert() {
        std::vector<uint8_t> in = Ramp(kWidth * 3), out(in.size());
        PixelRun s{in.data(), 1}, d{out.data(), 1};
        EXPECT_EQ(QemToolboxProc(&s, &d, h), 0u);
        return out;
    }
};

TEST(Toolbox, InitRefusalsAndHandleOwnership) {
    const ProfileNames good = Names(kSrgb, kSrgb), missing = Names(TempPath("missing.icc"), kSrgb);
    const char* names = good.sourceProfile;
    const struct { const ImageParams* image; const char* names; uint16_t method; int32_t intent; uint32_t expected; }
    cases[] = {
        {nullptr, names, 1, 0, 5001},                   // null image
        {&kImage, nullptr, 1, 0, 5001},                 // null names
        {&kImage, names, 2, 0, 5001},                   // method 2
        {&kImage, names, 0xFFFF, 0, 5001},              // method 0xFFFF (a bad top-level choice)
        {&kImage, names, 1, -1, 5001},                  // negative intent
        {&kImage, names, 1, 4, 5001},                   // intent 4
        {&kImage, names, 1, 0xFFFF, 5001},              // intent 0xFFFF (a bad top-level intent)
        {&kNineBits, names, 1, 0, 2020},                // the matcher's refusal still hands out the handle
        {&kImage, missing.sourceProfile, 1, 0, 3000},   // likewise a missing profile
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        CColorMatcher* h = nullptr;
        EXPECT_EQ(QemToolboxInit(c.image, c.names, c.method, c.intent, &h), c.expected);
        ASSERT_EQ(h != nullptr, c.expected != 5001);  // a refused argument allocates nothing
        EXPECT_EQ(h ? CMGetError(h) : 5001u, c.expected);
        QemToolboxPostProc(h);
    }
    EXPECT_EQ(QemToolboxInit(&kImage, names, 1, 0, nullptr), 5001u);
}

// In place, and after each kind of reset, the same pixels as before.
TEST(Toolbox, ProcAndResets) {
    Handle h;
    ASSERT_EQ(h.Init(), 0u);
    std::vector<uint8_t> before = h.Convert(), inPlace = Ramp(kWidth * 3);
    PixelRun run{inPlace.data(), 1};
    EXPECT_EQ(QemToolboxProc(&run, nullptr, h.h), 0u);
    EXPECT_EQ(QemToolboxProc(nullptr, &run, h.h), 5001u);
    EXPECT_EQ(inPlace, before);  // no destination run: converted in place; no source run: refused
    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 1, 0xFFFF, h.h), 2050u);  // 0xFFFF is not "keep"
    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 0xFFFF, 0, h.h), 2040u);
    EXPECT_EQ(QemToolboxResetMatchingParam(nullptr, nullptr, 1, 0, h.h), 0u);  // both null: current settings
    EXPECT_EQ(h.Convert(), before);
    EXPECT_EQ(QemToolboxResetProfiles(nullptr, nullptr, h.h), 0u);  // both null: current paths
    EXPECT_EQ(h.Convert(), before);
    EXPECT_EQ(QemToolboxResetProfiles(nullptr, kSrgb.c_str(), h.h), 0u);
    EXPECT_EQ(std::string(h.h->names.sourceProfile), kSrgb);  // a null path keeps the current one
    EXPECT_EQ(QemToolboxResetProfiles(TempPath("missing.icc").c_str(), nullptr, h.h), 3000u);
    EXPECT_EQ(QemToolboxResetProfiles(kSrgb.c_str(), kAdobe.c_str(), h.h), 0u);
    EXPECT_EQ(h.Convert(), before);
    // A new image that fails validation leaves no transform to free twice.
    EXPECT_EQ(QemToolboxResetMatchingParam(&kNineBits, nullptr, 1, 0, h.h), 2020u);
}

// Setters, curve functions, LocateProfile and SetDirectoryName; refusals (5001) change nothing.
TEST(Toolbox, OtherEntryPoints) {
    Handle h;
    ASSERT_EQ(h.Init(), 0u);
    const uint32_t refusals[] = {
        QemToolboxChangeBufSize(4096, 2, h.h),        // unit 2
        QemToolboxChangeBufSize(0, 1, h.h),           // size 0
        QemToolboxChangeBufSize(-5, 1, h.h),          // negative size
        QemToolboxChangeImageWidth(0, h.h),           // width 0
        QemToolboxChangeImageLines(-1, h.h),          // negative line count
        QemToolboxLocateProfile(nullptr, nullptr),    // no name, no path
        QemToolboxChangeBufSize(4096, 1, nullptr),    // null handles
        QemToolboxChangeImageWidth(5, nullptr),
        QemToolboxChangeImageLines(5, nullptr),
        QemToolboxLocateProfile("a.icm", nullptr),    // no path buffer
    };
    for (uint32_t code : refusals) EXPECT_EQ(code, 5001u);
    EXPECT_EQ(h.h->progressTotal, kWidth);
    EXPECT_EQ(QemToolboxChangeBufSize(4096, 1, h.h), 0u);
    EXPECT_EQ(QemToolboxChangeImageWidth(16, h.h), 0u);
    EXPECT_EQ(h.h->progressTotal, 2048u);  // 4096 x 16 / 32
    EXPECT_EQ(QemToolboxChangeImageLines(3, h.h), 0u);
    EXPECT_EQ(h.h->progressTotal, 48u);
    char path[256] = "previous contents";
    EXPECT_EQ(QemToolboxLocateProfile("a.icm", path), 1u);  // success is 1 here
    DirectoryTable dirs;
    const std::string longName(300, 'L'), cut = longName.substr(0, 254);  // the slot less one byte
    SetDirectoryName(longName.c_str(), "", longName.c_str(), &dirs);
    EXPECT_EQ(std::string(dirs.printer) + "|" + dirs.monitor + "|" + dirs.scanner, cut + "||" + cut);
    const uint16_t g[1] = {256}, two[2] = {0, 255};
    const CurveSpec gamma{3, 8, 1, {g, g, g, g}}, five{5, 8, 1, {g, g, g, g}}, table{3, 8, 2, {two, two, two, two}},
        noData{3, 8, 1, {}}, noChannels{0, 8, 0, {}};
    const struct { const CurveSpec* curves; uint16_t side; CColorMatcher* handle; uint32_t expected; } cases[] = {
        {nullptr, 0, h.h, 5001},     // null CurveSpec
        {&gamma, 2, h.h, 5001},      // side 2
        {&gamma, 0, nullptr, 5001},  // null handle
        {&five, 0, h.h, 5001},       // more than four channels
        {&gamma, 1, h.h, 0},         // gamma 1.0 on the output side
        {&table, 0, h.h, 0},         // two-entry table on the input side
        {&noData, 0, h.h, 0},        // data pointers missing: the failed filling is not reported
        {&noChannels, 0, h.h, 0},    // the matcher refuses zero channels; not reported
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(QemToolboxChange1DLUT(c.curves, c.side, c.handle), c.expected);  // change
        EXPECT_EQ(QemToolboxMerge1DLUT(c.curves, c.side, c.handle), c.expected);  // merge
    }
}

// The toolbox's gamma curve, 1024 entries of pow(x, g) x max + 0.5 with x
// accumulated in steps of 1/1023, handed to the matcher directly gives the
// same pixels. A filling that stops at a missing data pointer still hands on
// the curves made so far (a method-0 output merge reads curve 0 only).
TEST(Toolbox, CurvesReachTheMatcherAsBuilt) {
    const struct { uint16_t method, side, bits, gammaRaw; bool merge, full; } cases[] = {
        {1, 1, 8, 563, false, true},  // method 1 output change, gamma 2.2
        {0, 0, 16, 300, true, true},  // method 0 input merge, 16-bit values
        {1, 0, 10, 128, true, true},  // method 1 input merge, 10-bit values, gamma 0.5
        {0, 1, 8, 563, true, false},  // the filling stops after curve 0
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "method " << c.method << " side " << c.side << " bits " << c.bits);
        Handle viaToolbox, direct;
        ASSERT_EQ(viaToolbox.Init(c.method), 0u);
        ASSERT_EQ(direct.Init(c.method), 0u);
        const std::vector<uint8_t> untouched = viaToolbox.Convert();
        const uint16_t g[1] = {c.gammaRaw}, *rest = c.full ? g : nullptr;
        const CurveSpec gamma{3, c.bits, 1, {g, rest, rest, rest}};
        ASSERT_EQ((c.merge ? QemToolboxMerge1DLUT : QemToolboxChange1DLUT)(&gamma, c.side, viaToolbox.h), 0u);
        const double max = c.bits == 10 ? 1023 : c.bits == 16 ? 65535 : 255;
        std::vector<std::vector<uint16_t>> copies(3, std::vector<uint16_t>(1024));
        double x = 0.0;
        for (int i = 0; i < 1024; ++i, x += 1 / 1023.0)
            for (auto& copy : copies) copy[i] = uint16_t(uint32_t(std::pow(x, c.gammaRaw / 256.0) * max + 0.5));
        ValueBuffer buffers[4] = {};
        for (int ch = 0; ch < (c.full ? 3 : 1); ++ch) buffers[ch] = {1024, 0, copies[ch].data()};
        ASSERT_EQ((c.merge ? Merge1DLut : Change1DLut)(direct.h, c.side, c.bits, 3, buffers), 0u);
        const std::vector<uint8_t> got = viaToolbox.Convert();
        EXPECT_EQ(got, direct.Convert());
        EXPECT_NE(got, untouched);  // the curve must have an effect
    }
}

}  // namespace
