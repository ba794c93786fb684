// Method 0's whole grids as known answers: for every pair below, the grid a
// build gives (perceptual and absolute) is pinned by its FNV-1a digest, taken
// from builds checked node by node against an independent evaluation of the
// two profile models; the record's shape and its curved grid are checked
// directly. The real profiles are those of the Debian 12 packages: a new
// release of one of them changes its digests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <tuple>

#include "builder_fixtures.h"
#include "profile/profile_model.h"

namespace tintra3 {
namespace {

using namespace test;

uint64_t Digest(const uint8_t* bytes, size_t count) {
    uint64_t h = 14695981039346656037ull;
    for (size_t i = 0; i < count; ++i) {
        h ^= bytes[i];
        h *= 1099511628211ull;
    }
    return h;
}

std::string Hex(uint64_t v) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(v));
    return text;
}

// Builds the pair for `intent` and checks the shape: 33 points for three
// inputs, 17 for four, 256 for grey; curved grid = output curves over the
// grid; a grey source's cell and fraction tables follow its input curve.
// Returns the grid's digest, 0 for a refused pair.
uint64_t BuildAndCheck(const std::string& srcPath, const std::string& dstPath, uint16_t intent) {
    Method0Record t(CreateMethod0Transform(), &DestroyMethod0Transform);
    const int built = WithProfiles(srcPath, dstPath, [&](ProfileFile* a, ProfileFile* b) {
        return BuildMethod0Transform(t.get(), intent, a, b, 0);
    });
    EXPECT_EQ(t->ready, built == 1 ? 1u : 0u);
    if (built != 1) return 0;
    const uint32_t in = t->inputChannels;
    const uint32_t out = t->outputChannels;
    const uint32_t points = in == 1 ? 256 : in == 3 ? 33 : 17;
    EXPECT_EQ(t->gridPoints, points);
    EXPECT_EQ(t->strides[in - 1], out);
    EXPECT_EQ(t->absolute, intent == 3 ? 1u : 0u);
    EXPECT_EQ(t->simplex3 != nullptr, in == 3);
    EXPECT_EQ(t->simplex4 != nullptr, in == 4);
    uint32_t entries = out;
    for (uint32_t a = 0; a < in; ++a) entries *= points;
    EXPECT_EQ(t->grid.count, entries);
    EXPECT_EQ(t->curvedGrid.count, entries);
    if (t->grid.count != entries || t->curvedGrid.count != entries) return 0;
    for (size_t e = 0; e < entries; ++e) {
        const uint32_t curved = Bytes(t->outputCurves[e % out])[Bytes(t->grid)[e]];
        if (U32(t->curvedGrid)[e] != curved) {
            ADD_FAILURE() << "curved grid differs at entry " << e;
            break;
        }
    }
    for (int v = 0; v < 256 && in == 1; ++v) {
        const uint32_t u = Bytes(t->inputCurves[0])[v];
        EXPECT_EQ(uint32_t(Bytes(t->monoCell)[v]), std::min(u, 254u)) << v;
        EXPECT_EQ(uint32_t(U16(t->monoFraction)[v]), u == 255 ? 256u : 0u) << v;
    }
    return Digest(Bytes(t->grid), entries);
}

TEST(Method0Grids, KnownAnswers) {
    icc::Primaries narrow;  // primaries pulled halfway to white: sRGB's corners fall outside
    icc::Primaries warm;
    for (auto* p : {&narrow.red, &narrow.green, &narrow.blue})
        for (int i = 0; i < 3; ++i) (*p)[i] = 0.5 * (*p)[i] + 0.5 * narrow.white[i] / 3;
    warm.white = {0.9, 1.0, 0.7};
    const icc::Lut id = icc::IdentityLut(3, 9, 256);
    const Unusable u = MakeUnusable();
    const std::string r = RealProfile("");
    const std::string gs = r + "ghostscript/";
    const std::string srgb = r + "sRGB.icc";
    const std::string adobe = r + "compatibleWithAdobeRGB1998.icc";
    const std::string gray = r + "Gray.icc";
    const std::string cmyk = gs + "default_cmyk.icc";
    const std::string xcmyk = gs + "ps_cmyk.icc";
    const std::string labIn = gs + "lab.icc";
    const std::string lgray = r + "Gray-CIE_L.icc";
    const std::string lab = LutFile("RGB ", kSigLab, id, false);
    const std::string lch = LutFile("RGB ", kSigLch, id);
    const std::string xyz = LutFile("RGB ", kSigXyz, id, false);
    const std::string lchGray = File(icc::GrayProfile(1.8, kSigLch));
    const std::string gamma22 = File(icc::MatrixTrcGammaProfile({}, 2.2));
    const std::string narrow18 = File(icc::MatrixTrcGammaProfile(narrow, 1.8));
    const std::string warm18 = File(icc::MatrixTrcGammaProfile(warm, 1.8));
    struct Case {
        std::string src;
        std::string dst;
        uint64_t perceptual;  // digest of the grid for intent 0; 0: refused
        uint64_t absolute;    // the same for intent 3 (white ratios enter)
    };
    const Case cases[] = {
        {srgb, adobe, 0xf60951b0c45093f9, 0xffdc8187c4ab4776},  // matrix -> matrix
        {gamma22, narrow18, 0x68128c447e3ab69d, 0x68128c447e3ab69d},  // clips
        {srgb, warm18, 0x95b6c747346a617f, 0xb400bced2f468488},  // media whites differ
        {srgb, cmyk, 0x5d0cf8e6048bb197, 0x1ca2ea8a216c7e4f},  // matrix -> Lab table
        {srgb, xcmyk, 0x883bb3d27a3eb361, 0},  // XYZ table with lut matrix; ps_cmyk has no B2A1 for absolute
        {srgb, gray, 0x34450c9178ec553b, 0x34450c9178ec553b},  // -> grey: Y code
        {lch, lgray, 0x0b2f443c132381ad, 0x0b2f443c132381ad},  // -> grey: L code (from LCh)
        {cmyk, srgb, 0x63f645a89d820c99, 0x4bf09fc1a83ddf3a},  // 4-D table -> matrix
        {labIn, srgb, 0xc3a27889c300dc78, 0x387d5ef2c225f1b1},  // 3-D table -> matrix
        {xcmyk, cmyk, 0x3b52a620c618b8a7, 0},  // XYZ -> Lab tables; ps_cmyk has no A2B1 for absolute
        {cmyk, xcmyk, 0xc2a597cb1d0b4455, 0},  // Lab -> XYZ tables; ps_cmyk has no B2A1 for absolute
        {cmyk, cmyk, 0xef59a559fde5bbca, 0xef59a559fde5bbca},  // equal PCS: codes pass
        {lch, lab, 0x17a0c6faa22d19da, 0x17a0c6faa22d19da},  // the direct PCS conversions with LCh
        {lab, lch, 0x4596600483192e06, 0x05cb2db462c3af46},
        {xyz, lch, 0x20823fb96f3b704e, 0x20823fb96f3b704e},
        {lch, xyz, 0x0030080b8f11328a, 0x0030080b8f11328a},
        {gray, srgb, 0x41de17d476a76281, 0x13fd4c6c1429f2fb},  // grey source: XYZ
        {lgray, cmyk, 0x9b2de075d59e19b1, 0x49d7dc47ee4775c2},  // grey source: Lab
        {gray, lgray, 0x920c3e6c8ef74f1c, 0x920c3e6c8ef74f1c},  // grey to grey
        {lchGray, lab, 0xdaf3e371a0ca3725, 0xdaf3e371a0ca3725},  // LCh grey source
        {lab, lchGray, 0x0b2f443c132381ad, 0x0b2f443c132381ad},  // LCh grey destination
        {u.twoInputs, lab, 0, 0},      // refused: a source grid of two dimensions
        {lab, u.twoInputs, 0, 0},      // refused: a destination must take a PCS triple
        {u.onePoint, lab, 0, 0},       // refused: one grid point has no cell
        {lab, u.onePoint, 0, 0},
        {lab, u.oneEntry, 0, 0},       // refused: a one-entry table has no segment
        {lab, u.fourInputs, 0, 0},     // refused: four inputs on the PCS side
        {u.bare, lab, 0, 0},           // refused: no tags
        {lab, u.bare, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.src + " -> " + c.dst);
        EXPECT_EQ(Hex(BuildAndCheck(c.src, c.dst, 0)), Hex(c.perceptual));
        EXPECT_EQ(Hex(BuildAndCheck(c.src, c.dst, 3)), Hex(c.absolute));
    }
}

}  // namespace
}  // namespace tintra3
