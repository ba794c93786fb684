// Every allocation of a build and of a tone-curve change, failed in turn:
// the status codes are the described ones, nothing leaks, and a transform
// left unusable refuses pixels. Linked from the object files, so the test
// reaches the allocator's failure hook.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/exports.h"
#include "profile/allocator.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3 {
namespace {

using icc::Sig4;
using test::TempPath;

std::string Write(const icc::ProfileWriter& w, const std::string& name) {
    const std::string path = TempPath(name);
    EXPECT_TRUE(w.WriteFile(path));
    return path;
}

struct Profiles {
    std::string rgb;
    std::string gray;
    std::string cmyk16;
    std::string rgb8;
    std::string gamut;
};

const Profiles& Crafted() {
    static const Profiles p = [] {
        Profiles out;
        out.rgb = Write(icc::MatrixTrcProfile({}, {0, 3000, 20000, 65535}), "alloc-rgb.icc");
        out.gray = Write(icc::GrayProfile(2.2, Sig4("Lab ")), "alloc-gray.icc");
        const icc::Lut a2b = icc::ShapedLut(4, 3, 3, 16);
        const icc::Lut b2a = icc::ShapedLut(3, 4, 3, 16);
        const icc::ProfileWriter cmyk = icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &a2b, &b2a, true);
        out.cmyk16 = Write(cmyk, "alloc-cmyk.icc");
        const icc::Lut rgb8 = icc::ShapedLut(3, 3, 3, 256);
        const icc::ProfileWriter scanner = icc::LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("XYZ "), &rgb8, &rgb8, false);
        out.rgb8 = Write(scanner, "alloc-rgb8.icc");
        icc::ProfileWriter gamut = icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &a2b, &b2a, true);
        gamut.AddTag(Sig4("gamt"), icc::Mft2Element(icc::ShapedLut(3, 1, 2, 2)));
        out.gamut = Write(gamut, "alloc-gamut.icc");
        return out;
    }();
    return p;
}

struct Variant {
    const char* why;
    std::string Profiles::*source;
    std::string Profiles::*destination;
    uint32_t gamut;
    uint32_t inChannels;
    uint32_t outChannels;
};

// Every model kind on each side, both lut precisions and the gamut table.
const Variant kVariants[] = {
    {"matrix/TRC to matrix/TRC", &Profiles::rgb, &Profiles::rgb, 0, 3, 3},
    {"grey to grey", &Profiles::gray, &Profiles::gray, 0, 1, 1},
    {"grey to matrix/TRC", &Profiles::gray, &Profiles::rgb, 0, 1, 3},
    {"matrix/TRC to 16-bit lut, 4 outputs", &Profiles::rgb, &Profiles::cmyk16, 0, 3, 4},
    {"16-bit lut, 4 inputs, to grey", &Profiles::cmyk16, &Profiles::gray, 0, 4, 1},
    {"8-bit lut to 8-bit lut, XYZ", &Profiles::rgb8, &Profiles::rgb8, 0, 3, 3},
    {"gamut table", &Profiles::rgb, &Profiles::gamut, 1, 3, 1},
};

struct Converted {
    uint32_t status;
    bool written;  // some destination byte changed
};

// One pixel line through CMatching2, buffers sized for the variant. A
// record left unusable must not reach a kernel: either the dispatch refuses
// it (5000) or, when the failed build never set its channel counts, skips
// the block as it skips any channel count without a kernel.
Converted Convert(MatchingSelector* selector, const Variant& v) {
    constexpr uint32_t kWidth = 5;
    std::vector<uint8_t> in(kWidth * v.inChannels, 0x40);
    std::vector<uint8_t> out(kWidth * v.outChannels, 0xA5);
    PixelRun s{in.data(), 1};
    PixelRun d{out.data(), 1};
    const uint32_t status =
        CMatching2(selector, &s, &d, kWidth, uint32_t(in.size()), uint32_t(out.size()), 8, 8, 0);
    return {status, out != std::vector<uint8_t>(out.size(), 0xA5)};
}

void ExpectConverts(MatchingSelector* selector, const Variant& v, uint64_t n) {
    const Converted c = Convert(selector, v);
    EXPECT_EQ(c.status, 0u) << "n " << n;
    EXPECT_TRUE(c.written) << "n " << n;
}

void ExpectRefuses(MatchingSelector* selector, const Variant& v, uint64_t n) {
    if (selector->transform == nullptr) return;
    const Converted c = Convert(selector, v);
    EXPECT_TRUE(c.status == 5000 || c.status == 0) << "n " << n << ": " << c.status;
    EXPECT_FALSE(c.written) << "n " << n;
}

// Failing allocation n of an Initialize: 3000 while a profile is opened (its
// tag directory), 1000 for the transform record, 5000 for any allocation of
// the build, or 0 when the failed allocation was a table the build could do
// without (a lut that cannot be read falls back to matrix/TRC).
TEST(AllocationFailure, EveryAllocationOfABuild) {
    const Profiles& p = Crafted();
    for (const Variant& v : kVariants) {
        for (uint16_t method : {0, 1}) {
            SCOPED_TRACE(testing::Message() << v.why << ", method " << method);
            const int64_t before = allocation_test::Live();
            int opens = 0;
            int records = 0;
            uint64_t n = 1;
            for (;; ++n) {
                MatchingSelector selector{0, method, nullptr, v.gamut};
                allocation_test::FailNth(n);
                const uint32_t status = Initialize(&selector, (p.*v.source).c_str(), (p.*v.destination).c_str());
                const bool failed = allocation_test::Failed();
                allocation_test::FailNth(0);
                if (!failed) {
                    // The walk is past the last allocation: a clean build.
                    EXPECT_EQ(status, 0u);
                    ExpectConverts(&selector, v, n);
                    TermMatchingSelector(&selector);
                    break;
                }
                opens += status == 3000;
                records += status == 1000;
                const bool described = status == 0 || status == 1000 || status == 3000 || status == 5000;
                EXPECT_TRUE(described) << "n " << n << ": " << status;
                if (status == 0)
                    ExpectConverts(&selector, v, n);
                else
                    ExpectRefuses(&selector, v, n);
                TermMatchingSelector(&selector);
                EXPECT_EQ(allocation_test::Live(), before) << "n " << n;
            }
            EXPECT_EQ(opens, 2);    // one tag directory per profile
            EXPECT_EQ(records, 1);  // the transform record
            EXPECT_GT(n, 5u);
        }
    }
}

struct CurveCall {
    const char* why;
    uint32_t (*call)(CColorMatcher*, uint16_t, uint16_t, uint16_t, ValueBuffer*);
    uint16_t side;
};

const CurveCall kCurveCalls[] = {
    {"change input curves", &Change1DLut, 0},
    {"merge input curves", &Merge1DLut, 0},
    {"change output curves", &Change1DLut, 1},
    {"merge output curves", &Merge1DLut, 1},
};

// Failing allocation n of a tone-curve change: method 1 reports nothing and
// keeps its primary tables; method 0 reports 5000 on its input side and the
// transform then refuses pixels, and ignores failures on its output side.
TEST(AllocationFailure, EveryAllocationOfAToneCurveChange) {
    const Profiles& p = Crafted();
    std::vector<uint16_t> curve(300);
    for (size_t i = 0; i < curve.size(); ++i) curve[i] = uint16_t(i * 255 / (curve.size() - 1));
    for (const Variant& v : kVariants) {
        for (uint16_t method : {0, 1}) {
            for (const CurveCall& c : kCurveCalls) {
                SCOPED_TRACE(testing::Message() << v.why << ", method " << method << ", " << c.why);
                const int64_t before = allocation_test::Live();
                uint64_t n = 1;
                for (;; ++n) {
                    CColorMatcher matcher{};
                    const ImageParams image{5, 1, 5 * 4, 5 * 4, 8, 8, 0, 0};
                    const MatchingParams params{0, method, nullptr, v.gamut};
                    ProfileNames names{};
                    std::snprintf(names.sourceProfile, sizeof names.sourceProfile, "%s", (p.*v.source).c_str());
                    std::snprintf(names.destinationProfile, sizeof names.destinationProfile, "%s",
                                  (p.*v.destination).c_str());
                    InitCColorMatcher(&matcher, &params, &image, &names);
                    ASSERT_EQ(CMGetError(&matcher), 0u);
                    ValueBuffer curves[4];
                    for (ValueBuffer& b : curves) {
                        b.count = uint32_t(curve.size());
                        b.data = curve.data();
                        b.owned = 0;
                    }
                    allocation_test::FailNth(n);
                    const uint32_t status = c.call(&matcher, c.side, 8, 4, curves);
                    const bool failed = allocation_test::Failed();
                    allocation_test::FailNth(0);
                    const bool reported = method == 0 && c.side == 0;
                    if (!failed || !reported)
                        ExpectConverts(&matcher.selector, v, n);
                    else
                        ExpectRefuses(&matcher.selector, v, n);
                    TermCColorMatcher(&matcher);
                    EXPECT_EQ(allocation_test::Live(), before) << "n " << n;
                    if (!failed) {
                        EXPECT_EQ(status, 0u);
                        break;
                    }
                    EXPECT_EQ(status, reported ? 5000u : 0u) << "n " << n;
                }
                EXPECT_GT(n, 1u);
            }
        }
    }
}

// The matcher object of the toolbox is the first allocation: 1000 and no
// handle. Every later one is reported by Initialize and leaves a handle.
TEST(AllocationFailure, ToolboxHandle) {
    const Profiles& p = Crafted();
    char names[512] = {};
    std::snprintf(names, 256, "%s", p.rgb.c_str());
    std::snprintf(names + 256, 256, "%s", p.gray.c_str());
    const ImageParams image{5, 1, 15, 5, 8, 8, 0, 0};
    const struct {
        uint64_t n;
        uint32_t expected;
        bool handle;
    } cases[] = {
        {1, 1000, false},  // the matcher object itself
        {2, 3000, true},   // the source's tag directory
        {4, 1000, true},   // the transform record
    };
    const int64_t before = allocation_test::Live();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.n);
        CColorMatcher* handle = nullptr;
        allocation_test::FailNth(c.n);
        EXPECT_EQ(QemToolboxInit(&image, names, 1, 0, &handle), c.expected);
        allocation_test::FailNth(0);
        EXPECT_EQ(handle != nullptr, c.handle);
        QemToolboxPostProc(handle);
        EXPECT_EQ(allocation_test::Live(), before);
    }
}

}  // namespace
}  // namespace tintra3
