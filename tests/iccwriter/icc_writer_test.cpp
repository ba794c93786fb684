// The ICC writer: LittleCMS must read back what it writes, the byte layout is
// the ICC one, and each deliberate damage is really there.
#include "tools/iccwriter/icc_writer.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

#include "support/test_support.h"

namespace tintra3::icc {
namespace {

using Bytes = std::vector<uint8_t>;
uint32_t U32At(const Bytes& b, size_t i) { return uint32_t(b[i]) << 24 | b[i + 1] << 16 | b[i + 2] << 8 | b[i + 3]; }
uint16_t U16At(const Bytes& b, size_t i) { return uint16_t(b[i] << 8 | b[i + 1]); }
uint32_t Offset(const Bytes& b, size_t entry) { return U32At(b, 136 + 12 * entry); }  // directory entry's element
uint32_t Size(const Bytes& b, size_t entry) { return U32At(b, 140 + 12 * entry); }

auto Lcms(const Bytes& b) {  // closed on scope exit
    return std::unique_ptr<void, cmsBool (*)(cmsHPROFILE)>(cmsOpenProfileFromMem(b.data(), b.size()), cmsCloseProfile);
}

TEST(Elements, ExactBytes) {
    const std::pair<double, uint32_t> fixed[] = {
        {1.0, 0x00010000}, {-1.0, 0xFFFF0000},                           // negatives are two's complement
        {0.9642, 0x0000F6D6},                                            // D50 X as real profiles store it
        {1.4 / 65536, 1}, {1.6 / 65536, 2}, {-1.6 / 65536, 0xFFFFFFFE},  // rounds to nearest
        {40000.0, 0x7FFFFFFF}, {-40000.0, 0x80000000}, {NAN, 0},         // clamped instead of overflowing
    };
    for (const auto& [x, raw] : fixed) EXPECT_EQ(S15Fixed16(x), raw) << x;
    EXPECT_EQ(RawElement(Sig4("abcd"), {9}), (Bytes{'a', 'b', 'c', 'd', 0, 0, 0, 0, 9}));  // type, reserved, payload
    EXPECT_EQ(CurvElement({0x1234, 0xFFFF}), RawElement(Sig4("curv"), {0, 0, 0, 2, 0x12, 0x34, 0xFF, 0xFF}));
    EXPECT_EQ(GammaElement(2.2), CurvElement({563}));  // u8Fixed8: 2.2 x 256 = 563.2
    EXPECT_EQ(GammaElement(0.0), CurvElement({0}));    // zero gamma is writable
    EXPECT_EQ(XyzElement({{1, 0, -1}}), RawElement(Sig4("XYZ "), {0, 1, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0}));

    // mft2: 52-byte head, 3x4 input entries, 3x8 CLUT values, 3x4 output entries. CLUT node 1 is (0, 0, 1): last
    // input fastest, output channel innermost. Then mft1, where 16-bit values v are written as (v + 128) / 257.
    const Bytes m2 = Mft2Element(IdentityLut(3, 2, 4)), m1 = Mft1Element(IdentityLut(3, 3, 256));
    EXPECT_EQ(std::vector<uint32_t>({uint32_t(m2.size()), U32At(m2, 0), m2[8], m2[9], m2[10], U32At(m2, 12),
                                     U32At(m2, 16), U16At(m2, 48), U16At(m2, 50), U16At(m2, 54), U16At(m2, 82),
                                     U16At(m2, 86)}),  // e00, e01, entries, ramp 65535 / 3, node 1
              std::vector<uint32_t>({52 + 2 * 48, Sig4("mft2"), 3, 3, 2, 0x10000, 0, 4, 4, 21845, 0, 65535}));
    EXPECT_EQ(std::vector<uint32_t>({uint32_t(m1.size()), m1[48 + 200], m1[48 + 768 + 3], m1[48 + 768 + 5]}),
              std::vector<uint32_t>({48 + 3 * 256 + 27 * 3 + 3 * 256, 200, 0, (32768 + 128) / 257}));
}

TEST(ProfileWriter, HeaderDirectoryAndFiles) {
    ProfileWriter w = MatrixTrcProfile({}, {0, 1000, 65535});  // 3-entry curve: 18 bytes, padded
    w.header.renderingIntent = 2;
    w.header.flags = 0xA5A5A5A5;
    w.header.attributes[0] = 7;
    const Bytes b = w.Bytes();
    const std::pair<size_t, uint32_t> fields[] = {
        {0, uint32_t(b.size())}, {8, 0x02100000}, {12, Sig4("mntr")}, {16, Sig4("RGB ")}, {20, Sig4("XYZ ")},
        {24, (2026u << 16) | 1},  // year, month
        {36, Sig4("acsp")}, {44, 0xA5A5A5A5}, {56, 7}, {64, 2}, {68, S15Fixed16(0.9642)}, {80, Sig4("t3iw")},
        {128, 7}, {180, Sig4("rTRC")}, {188, 18}, {196, Offset(b, 4)}, {208, Offset(b, 4)},  // count; rTRC; linked
    };
    for (const auto& [at, value] : fields) EXPECT_EQ(U32At(b, at), value) << "offset " << at;
    EXPECT_EQ(std::count(b.begin() + 84, b.begin() + 128, 0), 44);  // reserved
    EXPECT_EQ(b.size(), 128u + 4 + 7 * 12 + 4 * 20 + 20);
    for (size_t i = 0; i < 7; ++i) EXPECT_TRUE(Offset(b, i) % 4 == 0 && Offset(b, i) + Size(b, i) <= b.size()) << i;

    ASSERT_TRUE(w.WriteFile(test::TempPath("w.icc")));  // the same bytes on disk; a bad path fails
    std::ifstream f(test::TempPath("w.icc"), std::ios::binary);
    EXPECT_TRUE(Bytes(std::istreambuf_iterator<char>(f), {}) == b && !w.WriteFile("/nonexistent-dir/x.icc"));
    EXPECT_THROW(w.AddLinkedTag(Sig4("rTRC"), Sig4("none")), std::invalid_argument);
}

// LittleCMS opens each profile and reads it as written; the identity luts are evaluated as identities
// (tolerance: 8-bit storage loses up to half a step of 257).
TEST(ProfileWriter, LittleCmsReadsWhatItWrites) {
    auto scanner = [](uint8_t grid, uint16_t entries, bool sixteenBit) {
        const Lut lut = IdentityLut(3, grid, entries);
        return LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("XYZ "), &lut, nullptr, sixteenBit);
    };
    const std::tuple<const char*, ProfileWriter, cmsColorSpaceSignature, cmsColorSpaceSignature, int> cases[] = {
        {"gamma 2.2", MatrixTrcGammaProfile({}, 2.2), cmsSigRgbData, cmsSigXYZData, 0},
        {"identity curve", MatrixTrcProfile({}, {}), cmsSigRgbData, cmsSigXYZData, 0},
        {"sampled curve", MatrixTrcProfile({}, {0, 5000, 65535}), cmsSigRgbData, cmsSigXYZData, 0},
        {"grey XYZ", GrayProfile(1.8, Sig4("XYZ ")), cmsSigGrayData, cmsSigXYZData, 0},
        {"grey Lab", GrayProfile(2.2, Sig4("Lab ")), cmsSigGrayData, cmsSigLabData, 0},
        {"smallest valid lut16", scanner(2, 2, true), cmsSigRgbData, cmsSigXYZData, 1},
        {"typical lut16", scanner(17, 4096, true), cmsSigRgbData, cmsSigXYZData, 1},
        {"lut8", scanner(2, 256, false), cmsSigRgbData, cmsSigXYZData, 129},
        {"lut8, mid nodes reduced to 8 bits", scanner(9, 256, false), cmsSigRgbData, cmsSigXYZData, 129},
    };
    for (const auto& [name, w, space, pcs, tolerance] : cases) {
        const auto p = Lcms(w.Bytes());
        auto* wp = p ? static_cast<cmsCIEXYZ*>(cmsReadTag(p.get(), cmsSigMediaWhitePointTag)) : nullptr;
        auto* pipe = p && tolerance ? static_cast<cmsPipeline*>(cmsReadTag(p.get(), cmsSigAToB0Tag)) : nullptr;
        ASSERT_TRUE(wp && (pipe != nullptr) == (tolerance != 0)) << name;
        EXPECT_TRUE(cmsGetColorSpace(p.get()) == space && cmsGetPCS(p.get()) == pcs &&
                    std::abs(cmsGetProfileVersion(p.get()) - 2.1) < 1e-9) << name;
        EXPECT_TRUE(std::abs(wp->X - 0.9642) < 1e-4 && std::abs(wp->Z - 0.8249) < 1e-4) << name;
        for (uint16_t v : {0, 1000, 32768, 50000, 65535}) {
            const cmsUInt16Number in[3] = {v, uint16_t(65535 - v), 12345};
            cmsUInt16Number out[3] = {};
            if (pipe) cmsPipelineEval16(in, out, pipe);
            for (int k = 0; pipe && k < 3; ++k) EXPECT_NEAR(out[k], in[k], tolerance) << name << " " << v << " " << k;
        }
    }
}

// Each damage is checked on the bytes; LittleCMS must refuse the ones that
// make the file unreadable as a whole.
TEST(ProfileWriter, DeliberateDamage) {
    constexpr size_t kFileSize = 1;  // position 1 stands for the file size; others for the u32 there
    using Damage = std::function<void(ProfileWriter&)>;
    using Entry = ProfileWriter::EntryOverride;
    auto entry = [](Entry o) { return Damage([o](ProfileWriter& w) { w.entryOverrides = {o}; }); };
    const std::tuple<const char*, Damage, size_t, uint32_t, bool> cases[] = {  // where, what is there, LittleCMS opens
        {"truncated header", [](ProfileWriter& w) { w.truncateAt = 100; }, kFileSize, 100, false},
        {"truncated directory", [](ProfileWriter& w) { w.truncateAt = 149; }, kFileSize, 149, false},
        {"exactly 128 bytes", [](ProfileWriter& w) { w.truncateAt = 128; }, 0, 312, false},  // size field kept
        {"count beyond the file", [](ProfileWriter& w) { w.tagCountOverride = 0xFFFFFFFF; }, 128, 0xFFFFFFFF, false},
        {"empty directory", [](ProfileWriter& w) { w.tagCountOverride = 0; }, 128, 0, true},
        {"offset past the end", entry({Sig4("rTRC"), 1u << 20, {}, {}}), 132 + 48 + 4, 1u << 20, true},
        {"linked entries keep theirs", entry({Sig4("rTRC"), 1u << 20, {}, {}}), 132 + 60 + 4, 296, true},
        {"size beyond the file", entry({Sig4("wtpt"), {}, 0x7FFFFFF0u, {}}), 132 + 8, 0x7FFFFFF0, true},
        {"wrong type", entry({Sig4("rXYZ"), {}, {}, Sig4("curv")}), 236, Sig4("curv"), true},
        {"wrong magic", [](ProfileWriter& w) { w.header.magic = Sig4("xxxx"); }, 36, Sig4("xxxx"), false},
    };
    for (const auto& [name, damage, at, expected, lcmsOpens] : cases) {
        ProfileWriter w = MatrixTrcGammaProfile({}, 2.2);  // wtpt, r/g/bXYZ at 216 + 20k, one shared TRC at 296
        damage(w);
        const Bytes b = w.Bytes();
        EXPECT_EQ(at == kFileSize ? b.size() : U32At(b, at), expected) << name;
        EXPECT_EQ(Lcms(b) != nullptr, lcmsOpens) << name;
    }
}

}  // namespace
}  // namespace tintra3::icc
