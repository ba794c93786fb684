// Profile models from real and crafted profiles: kind and tag choice,
// fallbacks, refusals, matrix inversion and table queries.
#include <gtest/gtest.h>

#include "profile_fixtures.h"

namespace tintra3 {
namespace {

using icc::Sig4;
using test::ScopedBuffer;
using test::ScopedModel;

enum Side { kSrc, kDst, kGamut };

int Build(const std::string& path, Side side, uint16_t intent, ScopedModel& m) {
    test::OpenedProfile p(path);
    if (!p.opened) return -1;
    return side == kSrc ? BuildSourceModel(intent, &p.file, &m.model)
                        : BuildDestinationModel(intent, &p.file, side == kGamut ? 1 : 0, &m.model);
}

// A gamma-1.8 matrix/TRC display profile, with tag `replaced` holding `element`.
std::string MatrixTrc(uint32_t replaced = 0, std::vector<uint8_t> element = {}, icc::Primaries p = {}) {
    icc::ProfileWriter w;
    const std::pair<const char*, std::vector<uint8_t>> tags[] = {
        {"wtpt", icc::XyzElement({p.white})}, {"rXYZ", icc::XyzElement({p.red})},
        {"gXYZ", icc::XyzElement({p.green})}, {"bXYZ", icc::XyzElement({p.blue})},
        {"rTRC", icc::GammaElement(1.8)},     {"gTRC", icc::GammaElement(1.8)},
        {"bTRC", icc::GammaElement(1.8)}};
    for (const auto& [name, bytes] : tags) {
        const uint32_t sig = Sig(reinterpret_cast<const char(&)[5]>(*name));
        w.AddTag(sig, sig == replaced ? element : bytes);
    }
    static int serial = 0;  // each call its own file: cases are written before they run
    return test::WriteProfile("matrix_trc" + std::to_string(++serial) + ".icc", w);
}

TEST(ProfileModel, RealProfiles) {
    struct Case {
        const char* name;
        Side side;
        uint16_t intent;
        int ok;
        uint16_t kind;
        uint8_t in, out, precision, grid;
    } cases[] = {
        {"sRGB.icc", kSrc, 0, 1, kKindMatrixTrc, 0, 0, 0, 0},  // v2 display profile
        {"sRGB.icc", kDst, 2, 1, kKindMatrixTrc, 0, 0, 0, 0},
        {"sRGB.icc", kGamut, 0, 0, 0, 0, 0, 0, 0},  // gamut needs a printer
        {"ghostscript/default_cmyk.icc", kSrc, 3, 1, kKindLut, 4, 3, 16, 9},  // 16-bit A2B1
        {"ghostscript/default_cmyk.icc", kDst, 2, 1, kKindLut, 3, 4, 8, 33},  // 8-bit B2A2
        {"ghostscript/default_cmyk.icc", kGamut, 0, 0, 0, 0, 0, 0, 0},        // printer without 'gamt'
        {"Gray.icc", kSrc, 0, 1, kKindGray, 0, 0, 0, 0},
        {"Gray-CIE_L.icc", kDst, 0, 1, kKindGray, 0, 0, 0, 0},  // Lab PCS
        {"ghostscript/lab.icc", kDst, 0, 1, kKindLut, 3, 3, 8, 2},
        {"ghostscript/ps_cmyk.icc", kDst, 0, 1, kKindLut, 3, 4, 16, 5},  // version 4, lut16 tags
    };
    for (const Case& c : cases) {
        ScopedModel m;
        const std::string what = std::string(c.name) + " side " + std::to_string(c.side);
        ASSERT_EQ(Build(test::RealProfile(c.name), c.side, c.intent, m), c.ok) << what;
        EXPECT_EQ(m.model.status, 0) << what;  // reset on every return
        if (!c.ok) continue;
        EXPECT_EQ(m.model.kind, c.kind) << what;
        const LutModel& l = m.model.lut;
        EXPECT_EQ(std::vector<int>({l.inputChannels, l.outputChannels, l.precision, l.gridPoints}),
                  std::vector<int>({c.in, c.out, c.precision, c.grid}))
            << what;
    }
    // The destination matrix is the inverse of the source one.
    ScopedModel src, dst;
    ASSERT_EQ(Build(test::RealProfile("sRGB.icc"), kSrc, 0, src) + Build(test::RealProfile("sRGB.icc"), kDst, 0, dst), 2);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            double sum = 0;
            for (int k = 0; k < 3; ++k) sum += src.model.matrix[r][k] * dst.model.matrix[k][c];
            EXPECT_NEAR(sum, r == c ? 1.0 : 0.0, 1e-12);
        }
}

TEST(ProfileModel, LutChoiceAndFallback) {
    auto shaped = [](uint8_t in, uint8_t out, uint8_t grid, uint16_t entries) {
        icc::Lut l = icc::IdentityLut(1, 2, entries);
        l.inputChannels = in;
        l.outputChannels = out;
        l.gridPoints = grid;
        l.inputTables.assign(in, l.inputTables[0]);
        l.outputTables.assign(out, l.outputTables[0]);
        uint32_t nodes = out;
        for (int i = 0; i < in; ++i) nodes *= grid;
        l.clut.assign(nodes, 0);
        return l;
    };
    struct Case {
        uint32_t deviceClass, tag;
        icc::Lut lut;
        bool sixteen, matrixTags;
        Side side;
        uint16_t intent;
        int ok;
        uint16_t kind;
        const char* why;
    } cases[] = {
        {kSigPrtr, Sig4("A2B2"), shaped(3, 3, 2, 2), true, false, kSrc, 2, 1, kKindLut, "smallest lut16, intent 2"},
        {kSigPrtr, Sig4("A2B0"), shaped(3, 3, 2, 256), false, false, kSrc, 2, 0, 0, "no A2B2, no fallback to A2B0"},
        {kSigPrtr, Sig4("A2B0"), shaped(3, 3, 2, 256), false, false, kSrc, 9, 1, kKindLut, "unknown intent: A2B0"},
        {Sig4("mntr"), Sig4("B2A0"), shaped(3, 3, 2, 256), false, false, kDst, 2, 1, kKindLut, "non-printer: B2A0"},
        {kSigPrtr, Sig4("B2A1"), shaped(3, 4, 2, 256), false, false, kDst, 3, 1, kKindLut, "intent 3: B2A1"},
        {kSigPrtr, Sig4("gamt"), shaped(3, 1, 2, 256), false, false, kGamut, 0, 1, kKindLut, "gamut table"},
        {Sig4("mntr"), Sig4("A2B0"), shaped(5, 3, 2, 256), false, true, kSrc, 0, 1, kKindMatrixTrc, "5 inputs"},
        {Sig4("mntr"), Sig4("B2A0"), shaped(3, 5, 2, 256), false, true, kDst, 0, 1, kKindMatrixTrc, "5 outputs"},
        {Sig4("mntr"), Sig4("A2B0"), shaped(3, 3, 1, 256), false, true, kSrc, 0, 1, kKindMatrixTrc, "1 grid point"},
        {Sig4("mntr"), Sig4("A2B0"), shaped(3, 3, 2, 1), true, true, kSrc, 0, 1, kKindMatrixTrc, "1 table entry"},
        {Sig4("mntr"), Sig4("A2B0"), shaped(4, 4, 2, 256), false, true, kSrc, 0, 1, kKindMatrixTrc, "source out != 3"},
        {Sig4("mntr"), Sig4("B2A0"), shaped(4, 3, 2, 256), false, true, kDst, 0, 1, kKindMatrixTrc, "dest in != 3"},
        {Sig4("mntr"), Sig4("A2B0"), shaped(4, 3, 2, 256), false, true, kSrc, 0, 1, kKindLut, "CMYK source lut"},
    };
    for (const Case& c : cases) {
        icc::ProfileWriter w = c.matrixTags ? icc::MatrixTrcGammaProfile({}, 2.2) : icc::ProfileWriter{};
        w.header.deviceClass = c.deviceClass;
        w.header.pcs = kSigLab;
        w.AddTag(c.tag, c.sixteen ? icc::Mft2Element(c.lut) : icc::Mft1Element(c.lut));
        ScopedModel m;
        ASSERT_EQ(Build(test::WriteProfile("lut.icc", w), c.side, c.intent, m), c.ok) << c.why;
        if (!c.ok) continue;
        EXPECT_EQ(m.model.kind, c.kind) << c.why;
        EXPECT_EQ(m.model.lut.isGamut, c.side == kGamut ? 1u : 0u) << c.why;
    }
}

TEST(ProfileModel, RefusalsWhitePointAndSingularity) {
    icc::ProfileWriter rgbPcs = icc::MatrixTrcGammaProfile({}, 2.2);
    rgbPcs.header.pcs = Sig4("RGB ");
    auto diagonal = [](double x) {  // det = x/65536 * 0.25 * 0.80000305
        icc::Primaries p;
        p.red = {x / 65536, 0, 0};
        p.green = {0, 0.25, 0};
        p.blue = {0, 0, 0.8};
        return MatrixTrc(0, {}, p);
    };
    struct Case {
        std::string path;
        Side side;
        int ok;
        const char* why;
    } cases[] = {
        {test::WriteProfile("rgb_pcs.icc", rgbPcs), kDst, 0, "PCS 'RGB ' refused"},
        {MatrixTrc(Sig4("gXYZ"), icc::XyzElement({})), kSrc, 0, "empty colorant"},
        {MatrixTrc(Sig4("wtpt"), icc::GammaElement(1)), kSrc, 0, "white point of the wrong type"},
        {MatrixTrc(Sig4("bTRC"), icc::RawElement(Sig4("para"), {0, 0, 0, 0, 0, 2, 0x33, 0x33})), kSrc, 0,
         "parametric curve"},
        {MatrixTrc(Sig4("rTRC"), icc::GammaElement(0)), kSrc, 1, "zero gamma forward"},
        {MatrixTrc(Sig4("rTRC"), icc::GammaElement(0)), kDst, 0, "zero gamma cannot be inverted"},
        {diagonal(3), kDst, 1, "det 0.6/65536 accepted"},
        {diagonal(2), kDst, 0, "det 0.4/65536 rejected"},
        {diagonal(-7), kDst, 0, "det -1.4/65536 rejected"},
        {diagonal(-8), kDst, 1, "det -1.6/65536 accepted"},
        {diagonal(0), kSrc, 1, "the source side never inverts"},
    };
    for (const Case& c : cases) {
        ScopedModel m;
        EXPECT_EQ(Build(c.path, c.side, 0, m), c.ok) << c.why;
    }
    // An empty 'wtpt' counts as absent: the white point is the illuminant.
    ScopedModel m;
    ASSERT_EQ(Build(MatrixTrc(Sig4("wtpt"), icc::XyzElement({})), kSrc, 0, m), 1);
    EXPECT_EQ(m.model.whitePoint[2], m.model.illuminant[2]);
    EXPECT_NEAR(m.model.whitePoint[2], 0.8249, 1e-4);
}

TEST(ProfileModel, TableQueries) {
    icc::Lut lut8 = icc::IdentityLut(3, 2, 256), lut16 = icc::IdentityLut(3, 2, 2);
    lut8.clut[0] = 200 * 257;  // written as the byte 200
    lut16.clut[1] = 0x8080;
    ScopedModel m8, m16, rgb, gray;
    ASSERT_EQ(Build(test::WriteProfile("q8.icc", icc::LutProfile(Sig4("scnr"), Sig4("RGB "), kSigLab, &lut8, &lut8, false)),
                    kSrc, 0, m8), 1);
    ASSERT_EQ(Build(test::WriteProfile("q16.icc", icc::LutProfile(Sig4("scnr"), Sig4("RGB "), kSigLab, &lut16, &lut16, true)),
                    kSrc, 0, m16), 1);
    ASSERT_EQ(Build(test::RealProfile("sRGB.icc"), kSrc, 0, rgb) + Build(test::RealProfile("Gray.icc"), kSrc, 0, gray), 2);
    const LutModel* l8 = &m8.model.lut;
    const LutModel* l16 = &m16.model.lut;

    ScopedBuffer in16, clut16, in8, clut8, out8, out16, c12, c8, g16, g256, none;
    ASSERT_EQ(LutInputTable16(l8, 2, &in16.buffer) && LutClut16(l8, &clut16.buffer), 1);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(in16.u16(i), i * 257);  // byte x 257
    EXPECT_EQ(clut16.u16(0), 200 * 257);
    ASSERT_EQ(LutInputTable8(l16, 1, &in8.buffer) && LutClut8(l16, &clut8.buffer), 1);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(in8.u8(i), i);  // 2-entry ramp to 256
    EXPECT_EQ(clut8.u8(1), (0x8080 + 128) / 257);
    for (uint32_t entries : {256u, 1024u, 4096u}) {
        ScopedBuffer t;
        ASSERT_EQ(LutInputTable12(l8, 0, entries, &t.buffer), 1);
        EXPECT_EQ(std::vector<int>({int(t.buffer.count), t.u16(0), t.u16(entries - 1)}),
                  std::vector<int>({int(entries), 0, 4095}));
    }
    ASSERT_EQ(LutOutputTable8x4096(l16, 0, &out8.buffer) && LutOutputTable16x4096(l8, 0, &out16.buffer), 1);
    EXPECT_EQ(out8.u8(4095) + out16.u16(4095), 255 + 65535);

    ASSERT_EQ(CurveTable12(&rgb.model, 1, 1024, &c12.buffer) && CurveTable8x4096(&rgb.model, 2, &c8.buffer), 1);
    EXPECT_EQ(c12.u16(1023), 4095);
    EXPECT_EQ(c8.buffer.count, 4096u);
    ASSERT_EQ(CurveTable16x4096(&gray.model, 7, &g16.buffer) && CurveTable8x256(&gray.model, 0, &g256.buffer), 1);
    EXPECT_EQ(g16.u16(4095), 65535);  // grey: channel ignored
    EXPECT_EQ(g256.buffer.count, 256u);
    EXPECT_EQ(CurveTable12(&rgb.model, 3, 256, &none.buffer) || LutInputTable16(l8, 4, &none.buffer) ||
                  CurveTable8x256(&m8.model, 0, &none.buffer),
              0);  // no fourth TRC, no fifth lut channel, no curves in a lut model

    ProfileModel zeroed{};
    ReleaseProfileModel(&zeroed);  // release is safe on an untouched model
}

}  // namespace
}  // namespace tintra3
