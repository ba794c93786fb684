// The ICC writer: LittleCMS must read back what it writes, the byte layout is
// the ICC one, and each deliberate damage is really there.
#include "tools/iccwriter/icc_writer.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <cstring>
#include <functional>

#include "support/test_support.h"

namespace tintra3::icc {
namespace {

uint32_t U32At(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
}
uint16_t U16At(const std::vector<uint8_t>& b, size_t at) { return uint16_t((b[at] << 8) | b[at + 1]); }

// Directory entry i: signature, offset, size.
struct DirEntry {
    uint32_t sig, offset, size;
};
DirEntry EntryAt(const std::vector<uint8_t>& b, size_t i) {
    size_t at = 132 + 12 * i;
    return {U32At(b, at), U32At(b, at + 4), U32At(b, at + 8)};
}

struct LcmsProfile {
    cmsHPROFILE h = nullptr;
    explicit LcmsProfile(const std::vector<uint8_t>& b)
        : h(cmsOpenProfileFromMem(b.data(), cmsUInt32Number(b.size()))) {}
    ~LcmsProfile() {
        if (h) cmsCloseProfile(h);
    }
};

TEST(S15Fixed16, Encoding) {
    struct Case {
        double x;
        uint32_t raw;
    } cases[] = {
        {1.0, 0x00010000},        // one
        {-1.0, 0xFFFF0000},       // negatives are two's complement
        {0.9642, 0x0000F6D6},     // D50 X as real profiles store it
        {1.4 / 65536, 1},         // rounds to nearest, down
        {1.6 / 65536, 2},         // rounds to nearest, up
        {-1.6 / 65536, 0xFFFFFFFE},
        {40000.0, 0x7FFFFFFF},    // clamped instead of overflowing
        {-40000.0, 0x80000000},
        {NAN, 0},
    };
    for (const Case& c : cases) EXPECT_EQ(S15Fixed16(c.x), c.raw) << c.x;
}

TEST(Elements, ExactBytes) {
    EXPECT_EQ(CurvElement({0x1234, 0xFFFF}),
              (std::vector<uint8_t>{'c', 'u', 'r', 'v', 0, 0, 0, 0, 0, 0, 0, 2, 0x12, 0x34, 0xFF, 0xFF}));
    EXPECT_EQ(GammaElement(2.2), CurvElement({563}));  // u8Fixed8: 2.2 x 256 = 563.2
    EXPECT_EQ(GammaElement(0.0), CurvElement({0}));    // zero gamma is writable
    EXPECT_EQ(XyzElement({{1.0, 0.0, -1.0}}),
              (std::vector<uint8_t>{'X', 'Y', 'Z', ' ', 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0}));
    EXPECT_EQ(RawElement(Sig4("abcd"), {9}), (std::vector<uint8_t>{'a', 'b', 'c', 'd', 0, 0, 0, 0, 9}));
}

TEST(Elements, LutLayout) {
    Lut lut = IdentityLut(3, 2, 4);
    auto m2 = Mft2Element(lut);
    // 52-byte head, 3x4 input entries, 3x8 CLUT values, 3x4 output entries.
    ASSERT_EQ(m2.size(), 52u + 2 * (12 + 24 + 12));
    EXPECT_EQ(U32At(m2, 0), Sig4("mft2"));
    EXPECT_EQ(m2[8], 3);
    EXPECT_EQ(m2[9], 3);
    EXPECT_EQ(m2[10], 2);
    EXPECT_EQ(U32At(m2, 12), 0x10000u);  // e00
    EXPECT_EQ(U32At(m2, 16), 0u);        // e01
    EXPECT_EQ(U16At(m2, 48), 4);
    EXPECT_EQ(U16At(m2, 50), 4);
    EXPECT_EQ(U16At(m2, 52 + 2), 21845);  // second ramp entry: 65535 / 3
    // CLUT node 1 = (0, 0, 1): last input varies fastest, output channel innermost.
    const size_t clut = 52 + 24;
    EXPECT_EQ(U16At(m2, clut + 6 + 0), 0);
    EXPECT_EQ(U16At(m2, clut + 6 + 4), 65535);

    auto m1 = Mft1Element(IdentityLut(3, 3, 256));
    ASSERT_EQ(m1.size(), 48u + 3 * 256 + 27 * 3 + 3 * 256);
    EXPECT_EQ(m1[48 + 200], 200);          // 16-bit ramp i x 257 reduces to i
    EXPECT_EQ(m1[48 + 768 + 3 * 1], 0);    // node (0,0,1), first output
    EXPECT_EQ(m1[48 + 768 + 3 * 1 + 2], 128);  // mid node 32768 -> (32768+128)/257
}

TEST(ProfileWriter, HeaderDirectoryAndAlignment) {
    ProfileWriter w = MatrixTrcProfile({}, {0, 1000, 65535});  // 3-entry curve: 18 bytes, padded
    w.header.renderingIntent = 2;
    w.header.flags = 0xA5A5A5A5;
    w.header.attributes[0] = 7;
    auto b = w.Bytes();
    const std::pair<size_t, uint32_t> fields[] = {
        {0, uint32_t(b.size())}, {8, 0x02100000}, {12, Sig4("mntr")}, {16, Sig4("RGB ")}, {20, Sig4("XYZ ")},
        {24, (2026u << 16) | 1},  // year, month
        {36, Sig4("acsp")}, {44, 0xA5A5A5A5}, {56, 7}, {64, 2}, {68, S15Fixed16(0.9642)}, {80, Sig4("t3iw")},
    };
    for (const auto& [at, value] : fields) EXPECT_EQ(U32At(b, at), value) << "offset " << at;
    for (size_t i = 84; i < 128; ++i) EXPECT_EQ(b[i], 0) << i;
    ASSERT_EQ(U32At(b, 128), 7u);
    EXPECT_EQ(b.size() % 4, 0u);
    const DirEntry r = EntryAt(b, 4), g = EntryAt(b, 5), bl = EntryAt(b, 6);
    EXPECT_EQ(r.sig, Sig4("rTRC"));
    EXPECT_EQ(r.size, 18u);
    EXPECT_EQ(g.offset, r.offset);  // linked, stored once
    EXPECT_EQ(bl.offset, r.offset);
    for (size_t i = 0; i < 7; ++i) {
        const DirEntry e = EntryAt(b, i);
        EXPECT_EQ(e.offset % 4, 0u) << i;
        EXPECT_LE(size_t(e.offset) + e.size, b.size()) << i;
    }
    EXPECT_EQ(b.size(), 128u + 4 + 7 * 12 + 4 * 20 + 20);
}

TEST(ProfileWriter, LittleCmsOpensWellFormedProfiles) {
    Lut lut8 = IdentityLut(3, 9, 256);
    Lut lut16 = IdentityLut(3, 17, 1024);
    Lut cmykIn = IdentityLut(4, 5, 256);  // 4 -> 3: CLUT outputs reshaped below
    cmykIn.outputChannels = 3;
    cmykIn.outputTables.resize(3);
    cmykIn.clut.assign(3 * 625, 30000);
    Lut cmykOut = IdentityLut(3, 5, 256);
    cmykOut.outputChannels = 4;
    cmykOut.outputTables.push_back(cmykOut.outputTables[0]);
    cmykOut.clut.assign(4 * 125, 20000);

    struct Case {
        const char* name;
        ProfileWriter w;
        cmsColorSpaceSignature space;
        cmsProfileClassSignature cls;
        cmsColorSpaceSignature pcs;
    } cases[] = {
        {"gamma 2.2", MatrixTrcGammaProfile({}, 2.2), cmsSigRgbData, cmsSigDisplayClass, cmsSigXYZData},
        {"identity curve", MatrixTrcProfile({}, {}), cmsSigRgbData, cmsSigDisplayClass, cmsSigXYZData},
        {"sampled curve", MatrixTrcProfile({}, {0, 5000, 30000, 65535}), cmsSigRgbData, cmsSigDisplayClass,
         cmsSigXYZData},
        {"grey XYZ", GrayProfile(1.8, Sig4("XYZ ")), cmsSigGrayData, cmsSigDisplayClass, cmsSigXYZData},
        {"grey Lab", GrayProfile(2.2, Sig4("Lab ")), cmsSigGrayData, cmsSigDisplayClass, cmsSigLabData},
        {"lut8 scanner", LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("Lab "), &lut8, nullptr, false), cmsSigRgbData,
         cmsSigInputClass, cmsSigLabData},
        {"lut16 both ways", LutProfile(Sig4("mntr"), Sig4("RGB "), Sig4("XYZ "), &lut16, &lut16, true), cmsSigRgbData,
         cmsSigDisplayClass, cmsSigXYZData},
        {"cmyk printer", LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), &cmykIn, &cmykOut, true),
         cmsSigCmykData, cmsSigOutputClass, cmsSigLabData},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LcmsProfile p(c.w.Bytes());
        ASSERT_NE(p.h, nullptr);
        EXPECT_EQ(cmsGetColorSpace(p.h), c.space);
        EXPECT_EQ(cmsGetDeviceClass(p.h), c.cls);
        EXPECT_EQ(cmsGetPCS(p.h), c.pcs);
        EXPECT_NEAR(cmsGetProfileVersion(p.h), 2.1, 1e-9);
        auto* wp = static_cast<cmsCIEXYZ*>(cmsReadTag(p.h, cmsSigMediaWhitePointTag));
        ASSERT_NE(wp, nullptr);
        EXPECT_NEAR(wp->X, 0.9642, 1e-4);
        EXPECT_NEAR(wp->Z, 0.8249, 1e-4);
    }
}

TEST(ProfileWriter, LittleCmsReadsBackMatrixAndCurves) {
    Primaries p;
    LcmsProfile prof(MatrixTrcGammaProfile(p, 2.2).Bytes());
    ASSERT_NE(prof.h, nullptr);
    const std::pair<cmsTagSignature, std::array<double, 3>> colorants[] = {
        {cmsSigRedColorantTag, p.red}, {cmsSigGreenColorantTag, p.green}, {cmsSigBlueColorantTag, p.blue}};
    for (const auto& [tag, xyz] : colorants) {
        auto* v = static_cast<cmsCIEXYZ*>(cmsReadTag(prof.h, tag));
        ASSERT_NE(v, nullptr);
        EXPECT_NEAR(v->X, xyz[0], 1e-4);
        EXPECT_NEAR(v->Y, xyz[1], 1e-4);
        EXPECT_NEAR(v->Z, xyz[2], 1e-4);
    }
    EXPECT_EQ(cmsTagLinkedTo(prof.h, cmsSigGreenTRCTag), cmsSigRedTRCTag);
    auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(prof.h, cmsSigBlueTRCTag));
    ASSERT_NE(curve, nullptr);
    EXPECT_NEAR(cmsEstimateGamma(curve, 0.01), 563 / 256.0, 0.01);

    // Usable as a whole: white and black survive a round trip to LittleCMS's own sRGB.
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    cmsHTRANSFORM t = cmsCreateTransform(prof.h, TYPE_RGB_8, srgb, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, 0);
    ASSERT_NE(t, nullptr);
    const uint8_t in[6] = {255, 255, 255, 0, 0, 0};
    uint8_t out[6] = {};
    cmsDoTransform(t, in, out, 2);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(out[i], in[i], 1) << i;
    cmsDeleteTransform(t);
    cmsCloseProfile(srgb);

    LcmsProfile sampled(MatrixTrcProfile(p, {0, 10000, 65535}).Bytes());
    auto* s = static_cast<cmsToneCurve*>(cmsReadTag(sampled.h, cmsSigRedTRCTag));
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(cmsGetToneCurveEstimatedTableEntries(s), 3u);
    EXPECT_EQ(cmsGetToneCurveEstimatedTable(s)[1], 10000);
}

TEST(ProfileWriter, LittleCmsEvaluatesIdentityLuts) {
    struct Case {
        bool sixteenBit;
        uint8_t grid;
        uint16_t entries;
        int tolerance;  // 8-bit storage loses up to half a step of 257
    } cases[] = {
        {true, 2, 2, 1},      // smallest valid lut16
        {true, 17, 4096, 1},  // typical lut16
        {false, 2, 256, 129},
        {false, 9, 256, 129},  // mid nodes reduced to 8 bits
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.sixteenBit << " grid " << int(c.grid));
        Lut lut = IdentityLut(3, c.grid, c.entries);
        LcmsProfile p(LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("XYZ "), &lut, nullptr, c.sixteenBit).Bytes());
        ASSERT_NE(p.h, nullptr);
        auto* pipe = static_cast<cmsPipeline*>(cmsReadTag(p.h, cmsSigAToB0Tag));
        ASSERT_NE(pipe, nullptr);
        for (uint16_t v : {0, 1000, 32768, 50000, 65535}) {
            const cmsUInt16Number in[3] = {v, uint16_t(65535 - v), 12345};
            cmsUInt16Number out[3] = {};
            cmsPipelineEval16(in, out, pipe);
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(out[k], in[k], c.tolerance) << v << " ch " << k;
        }
    }
}

// Each damage is checked on the bytes; LittleCMS must refuse the ones that
// make the file unreadable as a whole.
TEST(ProfileWriter, DeliberateDamage) {
    struct Case {
        const char* name;
        std::function<void(ProfileWriter&)> damage;
        std::function<void(const std::vector<uint8_t>&)> check;
        bool lcmsOpens;
    } cases[] = {
        {"truncated header", [](ProfileWriter& w) { w.truncateAt = 100; },
         [](const auto& b) { EXPECT_EQ(b.size(), 100u); EXPECT_GT(U32At(b, 0), 100u); }, false},
        {"truncated directory", [](ProfileWriter& w) { w.truncateAt = 128 + 4 + 12 + 5; },
         [](const auto& b) { EXPECT_EQ(b.size(), 149u); }, false},
        {"exactly 128 bytes", [](ProfileWriter& w) { w.truncateAt = 128; },
         [](const auto& b) { EXPECT_EQ(b.size(), 128u); }, false},
        {"count beyond the file", [](ProfileWriter& w) { w.tagCountOverride = 0xFFFFFFFF; },
         [](const auto& b) { EXPECT_EQ(U32At(b, 128), 0xFFFFFFFFu); }, false},
        {"empty directory", [](ProfileWriter& w) { w.tagCountOverride = 0; },
         [](const auto& b) { EXPECT_EQ(U32At(b, 128), 0u); }, true},
        {"offset past the end", [](ProfileWriter& w) { w.entryOverrides.push_back({Sig4("rTRC"), 1u << 20, {}, {}}); },
         [](const auto& b) {
             EXPECT_EQ(EntryAt(b, 4).offset, 1u << 20);
             EXPECT_EQ(EntryAt(b, 5).offset, EntryAt(b, 6).offset);  // the linked entries keep theirs
         },
         true},
        {"size beyond the file",
         [](ProfileWriter& w) { w.entryOverrides.push_back({Sig4("wtpt"), {}, 0x7FFFFFF0u, {}}); },
         [](const auto& b) { EXPECT_EQ(EntryAt(b, 0).size, 0x7FFFFFF0u); }, true},
        {"wrong type", [](ProfileWriter& w) { w.entryOverrides.push_back({Sig4("rXYZ"), {}, {}, Sig4("curv")}); },
         [](const auto& b) { EXPECT_EQ(U32At(b, EntryAt(b, 1).offset), Sig4("curv")); }, true},
        {"wrong magic", [](ProfileWriter& w) { w.header.magic = Sig4("xxxx"); },
         [](const auto& b) { EXPECT_EQ(U32At(b, 36), Sig4("xxxx")); }, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ProfileWriter w = MatrixTrcGammaProfile({}, 2.2);
        c.damage(w);
        auto b = w.Bytes();
        c.check(b);
        LcmsProfile p(b);
        EXPECT_EQ(p.h != nullptr, c.lcmsOpens);
    }
}

TEST(ProfileWriter, UnusualContentIsWritable) {
    struct Case {
        const char* name;
        Lut lut;
        size_t clutValues;
    } cases[] = {
        {"grid 0", IdentityLut(3, 0, 2), 0},
        {"grid 1", IdentityLut(3, 1, 2), 3},
        {"5 channels", IdentityLut(5, 2, 2), 5 * 32},
        {"huge CLUT left empty", IdentityLut(8, 255, 2), 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.lut.clut.size(), c.clutValues);
        auto b = LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("XYZ "), &c.lut, nullptr, true).Bytes();
        const DirEntry e = EntryAt(b, 1);
        ASSERT_LE(size_t(e.offset) + e.size, b.size());
        EXPECT_EQ(b[e.offset + 8], c.lut.inputChannels);
        EXPECT_EQ(b[e.offset + 10], c.lut.gridPoints);
        EXPECT_EQ(e.size, 52 + 2 * (2 * c.lut.inputChannels + c.clutValues + 2 * c.lut.outputChannels));
    }

    Primaries zero;
    zero.red = zero.green = zero.blue = {0, 0, 0};  // singular colorant matrix
    auto b = MatrixTrcGammaProfile(zero, 0.0).Bytes();
    EXPECT_EQ(U32At(b, EntryAt(b, 1).offset + 8), 0u);
    EXPECT_EQ(U16At(b, EntryAt(b, 4).offset + 12), 0);  // zero gamma
}

TEST(ProfileWriter, WriteFileMatchesBytes) {
    ProfileWriter w = GrayProfile(2.2, Sig4("XYZ "));
    const std::string path = test::TempPath("gray.icc");
    ASSERT_TRUE(w.WriteFile(path));
    std::FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::vector<uint8_t> read(4096);
    read.resize(std::fread(read.data(), 1, read.size(), f));
    std::fclose(f);
    EXPECT_EQ(read, w.Bytes());
    EXPECT_FALSE(w.WriteFile("/nonexistent-dir/x.icc"));
    EXPECT_THROW(w.AddLinkedTag(Sig4("rTRC"), Sig4("none")), std::invalid_argument);
}

}  // namespace
}  // namespace tintra3::icc
