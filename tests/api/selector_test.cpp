// The matching selector through its exported functions: order of the profile
// checks, intent and method refusals, the intent renumbering, ownership of
// the transform record, and LocateProfile.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

using tintra3::icc::Sig4;
using tintra3::test::RealProfile;
using tintra3::test::TempPath;

const std::string kSrgb = RealProfile("sRGB.icc");

std::string Missing() { return TempPath("does-not-exist.icc"); }

// A complete RGB display profile whose magic is not "acsp".
std::string NotIcc() {
    static const std::string path = [] {
        auto w = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
        w.header.magic = Sig4("xxxx");
        std::string p = TempPath("not-icc.icc");
        EXPECT_TRUE(w.WriteFile(p));
        return p;
    }();
    return path;
}

// An ICC display profile with no tags: no builder can use it.
std::string NoTags() {
    static const std::string path = [] {
        tintra3::icc::ProfileWriter w;
        std::string p = TempPath("no-tags.icc");
        EXPECT_TRUE(w.WriteFile(p));
        return p;
    }();
    return path;
}

MatchingSelector Selector(uint16_t intent, uint16_t method) {
    MatchingSelector s;
    std::memset(&s, 0, sizeof s);
    s.intent = intent;
    s.method = method;
    return s;
}

struct InitCase {
    std::string source;
    std::string destination;
    uint16_t intent;
    uint16_t method;
    uint32_t expected;
    const char* why;
};

TEST(Selector, CodesInOrder) {
    const InitCase cases[] = {
        {Missing(), kSrgb, 0, 1, 3000, "missing source, good destination"},
        {NotIcc(), Missing(), 0, 1, 3001, "source magic checked before the destination is looked at"},
        {kSrgb, Missing(), 0, 1, 3000, "missing destination"},
        {kSrgb, NotIcc(), 0, 1, 3001, "destination magic"},
        {Missing(), Missing(), 4, 2, 3000, "profiles come before intent and method"},
        {kSrgb, kSrgb, 4, 2, 2050, "intent refused before the method is examined"},
        {kSrgb, kSrgb, 0xFFFF, 1, 2050, "0xFFFF from the toolbox is an intent like any other"},
        {kSrgb, kSrgb, 3, 2, 2040, "method 2"},
        {kSrgb, kSrgb, 0, 0xFFFF, 2040, "method 0xFFFF"},
        {kSrgb, kSrgb, 0, 0, 0, "method 0 builds"},
        {kSrgb, kSrgb, 3, 1, 0, "method 1 builds, absolute intent"},
    };
    for (const InitCase& c : cases) {
        MatchingSelector s = Selector(c.intent, c.method);
        EXPECT_EQ(Initialize(&s, c.source.c_str(), c.destination.c_str()), c.expected) << c.why;
        EXPECT_EQ(s.transform != nullptr, c.expected == 0) << c.why;
        TermMatchingSelector(&s);
    }
}

TEST(Selector, RefusedMethodLeavesTheTransformAsItWas) {
    MatchingSelector s = Selector(0, 1);
    ASSERT_EQ(Initialize(&s, kSrgb.c_str(), kSrgb.c_str()), 0u);
    void* built = s.transform;
    s.method = 2;
    EXPECT_EQ(Initialize(&s, kSrgb.c_str(), kSrgb.c_str()), 2040u);
    EXPECT_EQ(s.transform, built);
    s.intent = 9;
    EXPECT_EQ(Initialize(&s, kSrgb.c_str(), kSrgb.c_str()), 2050u);
    EXPECT_EQ(s.transform, built);
    s.method = 1;
    TermMatchingSelector(&s);
}

// Re-initialising replaces the transform; LeakSanitizer catches a record
// (or its tables) left behind, including a half-built one.
TEST(Selector, FailedBuildKeepsTheRecordAndReinitialisingLeaksNothing) {
    for (uint16_t method : {0, 1}) {
        MatchingSelector s = Selector(1, method);
        EXPECT_EQ(Initialize(&s, kSrgb.c_str(), kSrgb.c_str()), 0u);
        EXPECT_EQ(Initialize(&s, kSrgb.c_str(), NoTags().c_str()), 5000u) << "method " << method;
        EXPECT_NE(s.transform, nullptr) << "half-built record stays in the selector";
        EXPECT_EQ(Initialize(&s, kSrgb.c_str(), kSrgb.c_str()), 0u);
        EXPECT_EQ(Initialize(&s, kSrgb.c_str(), NoTags().c_str()), 5000u);
        TermMatchingSelector(&s);
        EXPECT_EQ(s.transform, nullptr);
        TermMatchingSelector(&s);  // a second release is harmless
    }
}

// A printer lut source with exactly one of A2B1 / A2B2: the build succeeds
// only when the intent reaches the model as the code that picks that tag
// (builder codes 1 and 3 take A2B1, code 2 takes A2B2).
std::string PrinterWithOnly(const char (&tag)[5]) {
    tintra3::icc::ProfileWriter w;
    w.header.deviceClass = Sig4("prtr");
    w.header.colorSpace = Sig4("RGB ");
    w.header.pcs = Sig4("XYZ ");
    w.AddTag(Sig4("wtpt"), tintra3::icc::XyzElement({{0.9642, 1.0, 0.8249}}));
    w.AddTag(Sig4(tag), tintra3::icc::Mft2Element(tintra3::icc::IdentityLut(3, 2, 256)));
    std::string p = TempPath(std::string("printer-") + tag + ".icc");
    EXPECT_TRUE(w.WriteFile(p));
    return p;
}

TEST(Selector, CallerIntentsTwoAndThreeAreSwapped) {
    const std::string onlyA2B1 = PrinterWithOnly("A2B1");
    const std::string onlyA2B2 = PrinterWithOnly("A2B2");
    struct Case {
        const std::string& source;
        uint16_t intent;
        bool builds;
        const char* why;
    } cases[] = {
        {onlyA2B1, 1, true, "1 -> 1: A2B1"},
        {onlyA2B1, 2, true, "2 -> 3: A2B1"},
        {onlyA2B1, 3, false, "3 -> 2: A2B2, absent"},
        {onlyA2B2, 2, false, "2 -> 3: A2B1, absent"},
        {onlyA2B2, 3, true, "3 -> 2: A2B2"},
        {onlyA2B2, 0, false, "0 -> 0: A2B0, absent"},
    };
    for (const Case& c : cases) {
        for (uint16_t method : {0, 1}) {
            MatchingSelector s = Selector(c.intent, method);
            uint32_t code = Initialize(&s, c.source.c_str(), kSrgb.c_str());
            EXPECT_EQ(code == 0, c.builds) << c.why << ", method " << method << ", code " << code;
            TermMatchingSelector(&s);
        }
    }
}

TEST(Selector, LocateProfileAppendsTheNameAsGiven) {
    struct Case {
        const char* name;
        const char* suffix;
    } cases[] = {
        {"a.icm", "/color/a.icm"},
        {"icc/sRGB.icc", "/color/icc/sRGB.icc"},  // a directory in the name is kept
        {"sub\\a.icm", "/color/sub\\a.icm"},
        {"", "/color/"},
        {nullptr, nullptr},  // a 400-byte name: cut at 255 bytes
    };
    const std::string longName(400, 'n');
    for (const Case& c : cases) {
        char out[300];
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(LocateProfile(c.name ? c.name : longName.c_str(), out), 1u);
        std::string got(out);
        if (c.name == nullptr) {
            EXPECT_EQ(got.size(), 255u);
            EXPECT_EQ(out[256], 'x') << "nothing written past the 256-byte result";
            continue;
        }
        ASSERT_GE(got.size(), std::strlen(c.suffix)) << c.name;
        EXPECT_EQ(got.substr(got.size() - std::strlen(c.suffix)), c.suffix) << c.name;
        EXPECT_EQ(got.find("/color/"), got.size() - std::strlen(c.suffix)) << "one directory prefix only";
    }
}

}  // namespace
