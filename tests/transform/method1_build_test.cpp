// Method 1's builder: crafted pairs whose every node is known, real pairs,
// the record's shapes, and the profiles it refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <tuple>
#include <utility>

#include "builder_fixtures.h"
#include "profile/fixed_point.h"

namespace tintra3 {
namespace {

using namespace test;
using icc::Sig4;

// 16-bit level of node k in a grid of p points, and a lookup in an n-entry 16-bit table.
uint32_t Level(uint32_t k, uint32_t p) { return (k * 65535 + p / 2) / (p - 1); }
uint32_t Lookup16(uint16_t* t, uint32_t n, uint32_t v) { return InterpolateTable16(t, n, v, kScale16); }
constexpr uint32_t kAny = 1u << 20;  // an expected value that is not checked
#if defined(__i386__) && !defined(__SSE2_MATH__)
// Known platform difference: x87 arithmetic (32-bit x86 without SSE2) rounds
// through extended precision and lands one code off on a node of the
// white-scaled grid; every target with double arithmetic is exact.
constexpr int kX87Slack = 1;
#else
constexpr int kX87Slack = 0;
#endif

// Largest difference between each CLUT value and expected(node coordinates,
// channel); a grey source's one coordinate is repeated for every channel.
using Expected = std::function<uint32_t(const uint32_t* k, uint32_t ch)>;
int MaxNodeError(const Method1Transform& t, const Expected& expected) {
    int worst = 0;
    for (uint32_t n = 0; n < t.clut.count / t.outputChannels; ++n) {
        uint32_t k[4] = {0, 0, 0, 0};
        for (uint32_t d = t.inputChannels, rest = n; d-- > 0; rest /= t.gridPoints) k[d] = rest % t.gridPoints;
        if (t.inputChannels == 1) k[1] = k[2] = k[0];
        for (uint32_t c = 0, e; c < t.outputChannels; ++c)
            if ((e = expected(k, c)) != kAny)
                worst = std::max(worst, std::abs(int(U16(t.clut)[n * t.outputChannels + c]) - int(e)));
    }
    return worst;
}

// Crafted pairs whose every node is known (exactly, or within what the rounding
// of their tables allows), and real pairs; each with the grid and table shape
// of its channel counts, the top coordinate at fraction 1.0 of the last cell.
TEST(Method1Build, PairsGiveKnownNodesAndShapes) {
    DestroyMethod1Transform(nullptr);
    const icc::Primaries unit{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}};
    icc::Primaries brighter = unit;
    icc::Primaries d50;
    brighter.white = {2, 2, 2};
    d50.blue = {0.1430, 0.0606, 0.7139};  // primaries that add up to D50: a neutral comes out as R = G = B
    const auto matrix = [](const icc::Primaries& p) { return File(icc::MatrixTrcGammaProfile(p, 1.0)); };
    const std::string xyz9 = LutFile("RGB ", kSigXyz, icc::IdentityLut(3, 9, 256));
    const std::string lab17 = LutFile("RGB ", kSigLab, icc::IdentityLut(3, 17, 256));
    const std::string lab9 = LutFile("RGB ", kSigLab, icc::IdentityLut(3, 9, 256), false);
    icc::ProfileWriter dim = icc::GrayProfile(1.0, kSigLab);
    dim.header.illuminant[1] = 0.5;  // a destination's own illuminant must not enter
    icc::Lut cmyk;  // 2 points; the first output falls with the fourth input, so the last axis matters
    cmyk.inputChannels = 4;
    cmyk.gridPoints = 2;
    for (int n = 0; n < 16; ++n)  // n = c m y k, k fastest
        for (bool on : {(n & 8) && !(n & 1), (n & 4) != 0, (n & 2) != 0}) cmyk.clut.push_back(on ? 65535 : 0);
    const std::string cmykSrc = File(icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("XYZ "), &cmyk, nullptr, true));
    // Two-point XYZ luts with two-entry tables: every step is an exact integer operation.
    static uint16_t kRamp[2] = {0, 65535}, kConvex[3] = {0, 0, 65535};
    const auto xyzLut = [](uint32_t space, double scale, bool a2b, bool convexTables) {
        icc::Lut l = icc::IdentityLut(3, 2, 2);
        l.matrix = {scale, 0, 0, 0, scale, 0, 0, 0, scale};
        if (convexTables) l.inputTables.assign(3, std::vector<uint16_t>(kConvex, kConvex + 3));
        return File(icc::LutProfile(Sig4("prtr"), space, Sig4("XYZ "), a2b ? &l : nullptr, a2b ? nullptr : &l, true));
    };
    const std::string xyzSrc = xyzLut(Sig4("RGB "), 1.0, true, false);
    const std::string xyzDst = xyzLut(Sig4("RGB "), 1.0, false, false);
    // Source: matrix?, grid, output table; destination: input table, matrix?, grid. One 2-entry table step
    // or one 2-point grid step is the same lerp; a matrix step takes a 1.15 code x 0.5, re-encoded.
    const auto chain = [](bool srcMatrix, bool convexTable, bool dstMatrix) -> Expected {
        return [=](const uint32_t* k, uint32_t c) {
            uint32_t v = Level(k[c], 32);
            v = Lookup16(kRamp, 2, Lookup16(kRamp, 2, srcMatrix ? uint32_t(v * 0.5 + 0.5) : v));
            v = convexTable ? Lookup16(kConvex, 3, v) : Lookup16(kRamp, 2, v);
            return Lookup16(kRamp, 2, dstMatrix ? uint32_t(v * 0.5 + 0.5) : v);
        };
    };
    // Unit primaries make both matrices exact: trunc(0.5 + v 65535) of the accumulated node position v.
    double node[32] = {0.0};
    for (int i = 1; i < 32; ++i) node[i] = node[i - 1] + 1.0 / 31;
    const auto exact = [&node](double scale) -> Expected {
        return [&node, scale](const uint32_t* k, uint32_t c) { return uint32_t(0.5 + node[k[c]] * scale * 65535.0); };
    };
    const auto level = [](uint32_t p, uint32_t f) -> Expected {
        return [=](const uint32_t* k, uint32_t c) { return std::min(f * Level(k[c], p), 65535u); };
    };
    const auto ends = [](uint32_t p, uint32_t white) -> Expected {  // black and white nodes only
        return [=](const uint32_t* k, uint32_t) {
            return k[0] + k[1] + k[2] == 0 ? 0 : k[0] + k[1] + k[2] == 3 * p - 3 ? white : kAny;
        };
    };
    const Expected any = [](const uint32_t*, uint32_t) { return kAny; };
    const Expected fall = [](const uint32_t* k, uint32_t c) {
        return c ? Level(k[c], 16) : uint32_t(uint64_t(Level(k[0], 16)) * (65535 - Level(k[3], 16)) / 65535);
    };
    const std::string lin = matrix({});
    const std::string r = RealProfile("");
    const std::string srgb = r + "sRGB.icc";
    const std::string greyLab = File(icc::GrayProfile(1.0, kSigLab));
    const std::string greyXyz = File(icc::GrayProfile(1.0, kSigXyz));
    const Unusable u = MakeUnusable();
    struct Case {
        std::string src, dst; uint16_t intent, kinds; uint8_t in, out; uint16_t points; Expected expected;
        int tolerance; const char* why;
    } cases[] = {
        {lin, lin, 1, 11, 3, 3, 32, level(32, 1), 1, "node i is i/31; matrix and inverse round-trip under a code"},
        {lin, lin, 3, 11, 3, 3, 32, level(32, 1), 1, "absolute, the same white on both sides changes nothing"},
        {matrix(unit), matrix(unit), 1, 11, 3, 3, 32, exact(1.0), 0, "exact: catches a missing + 0.5"},
        {matrix(unit), matrix(brighter), 0, 11, 3, 3, 32, exact(1.0), 0, "relative ignores the media whites"},
        {matrix(unit), matrix(brighter), 3, 11, 3, 3, 32, exact(0.5), kX87Slack, "absolute: x source / destination white"},
        // One code from the rounded ramp nodes of each lut, one from the interpolation.
        {xyz9, xyz9, 0, 22, 3, 3, 32, level(32, 1), 2, "XYZ luts"},
        {lab17, lab17, 0, 22, 3, 3, 32, level(32, 1), 2, "Lab luts"},
        {lab9, lab9, 0, 22, 3, 3, 32, level(32, 1), 2 * 128 + 2, "mft1 tables and CLUT x 257: half of 257 per lut"},
        {cmykSrc, xyzDst, 0, 22, 4, 3, 16, fall, 2, "four inputs: 16 points"},
        // Exact to the code: node levels (k 65535 + p/2) / (p - 1), which lut matrix is used and where.
        {xyzSrc, xyzDst, 0, 22, 3, 3, 32, chain(false, false, false), 0, "identity chain: levels unchanged"},
        {xyzLut(Sig4("RGB "), 0.5, true, false), xyzDst, 0, 22, 3, 3, 32, chain(false, false, false), 0,
         "an RGB source ignores its lut matrix"},
        {xyzLut(Sig4("XYZ "), 0.5, true, false), xyzDst, 0, 22, 3, 3, 32, chain(true, false, false), 0,
         "an XYZ source applies it before the grid"},
        {xyzSrc, xyzLut(Sig4("RGB "), 0.5, false, true), 0, 22, 3, 3, 32, chain(false, true, true), 0,
         "a destination's after its input tables"},
        {greyLab, greyLab, 0, 33, 1, 1, 256, level(256, 1), 1, "grey to grey through Lab"},
        {greyLab, File(dim), 0, 33, 1, 1, 256, level(256, 1), 1, "Lab against the source illuminant"},
        {greyXyz, greyXyz, 0, 33, 1, 1, 256, level(256, 1), 1, "grey to grey through XYZ: the 1.15 reading cancels"},
        {greyXyz, matrix(d50), 0, 31, 1, 3, 256, level(256, 2), 4, "XYZ grey read as 1.15: twice as bright, clipped"},
        {matrix(d50), greyLab, 0, 13, 3, 1, 32, ends(32, 65535), 8, "grey destination stores L: white is L 100"},
        {matrix(d50), greyXyz, 0, 13, 3, 1, 32, ends(32, 32768), 8, "grey destination stores Y: 1.0 is code 0x8000"},
        // Real pairs (a printer profile needs the tag of its intent): white lands near white.
        {srgb, r + "compatibleWithAdobeRGB1998.icc", 1, 11, 3, 3, 32, ends(32, 65535), 300, "matrix/TRC both sides"},
        {srgb, r + "ghostscript/default_cmyk.icc", 1, 12, 3, 4, 32, any, 0, "lut destination, four outputs"},
        {r + "ghostscript/default_cmyk.icc", srgb, 1, 21, 4, 3, 16, any, 0, "four-input lut source: 16 points"},
        {r + "ghostscript/ps_cmyk.icc", srgb, 0, 21, 4, 3, 16, any, 0, "lut source with an XYZ PCS"},
        {srgb, r + "ghostscript/ps_cmyk.icc", 0, 12, 3, 4, 32, any, 0, "lut destination with an XYZ PCS"},
        {r + "ghostscript/lab.icc", srgb, 0, 21, 3, 3, 32, any, 0, "Lab input space through a lut"},
        {r + "Gray.icc", srgb, 1, 31, 1, 3, 256, ends(256, 65535), 300, "grey source: 256 points"},
        {srgb, r + "Gray-CIE_L.icc", 1, 13, 3, 1, 32, ends(32, 65535), 300, "grey destination"},
        // Refused, without a ready transform.
        {lin, u.bare, 0, 0, 0, 0, 0, nullptr, 0, "destination lacks its tags"},
        {u.bare, lin, 0, 0, 0, 0, 0, nullptr, 0, "source lacks its tags"},
        {u.twoInputs, lin, 0, 0, 0, 0, 0, nullptr, 0, "a source grid of two dimensions"},
        {u.onePoint, lin, 0, 0, 0, 0, 0, nullptr, 0, "a one-point lut grid has no cell"},
        {lin, u.oneEntry, 0, 0, 0, 0, 0, nullptr, 0, "a one-entry input table has no segment"},
        {lin, u.fourInputs, 0, 0, 0, 0, 0, nullptr, 0, "a destination lut must take a PCS triple"},
    };
    for (const Case& c : cases) {
        test::Method1Record t(CreateMethod1Transform(), &DestroyMethod1Transform);
        const int result = WithProfiles(c.src, c.dst, [&](ProfileFile* a, ProfileFile* b) {
            return BuildMethod1Transform(t.get(), c.intent, a, b, 0);
        });
        EXPECT_EQ(std::pair(result, t->ready), std::pair(c.expected ? 1 : 0, c.expected ? 1u : 0u)) << c.why;
        if (!c.expected || result != 1) continue;
        EXPECT_LE(MaxNodeError(*t, c.expected), c.tolerance) << c.why;
        uint32_t stride = c.out;
        for (int d = c.in; d-- > 0; stride *= c.points) EXPECT_EQ(t->strides[d], stride) << c.why << " axis " << d;
        EXPECT_EQ(std::tuple(t->absolute, t->sourceKind * 10 + t->destinationKind, t->inputChannels, t->outputChannels,
                             t->gridPoints, t->clut.count, U16(t->gridIndex)[4095], U32(t->gridFraction)[4095]),
                  std::tuple(c.intent == 3 ? 1u : 0u, c.kinds, c.in, c.out, c.points, stride, c.points - 2, 0x10000u))
            << c.why;  // the top coordinate at fraction 1.0 of the last cell
        EXPECT_EQ(std::tuple(t->inputTable1024[c.in - 1].count, t->inputTable4096[c.in - 1].count,
                             t->outputTable8[c.out - 1].count, t->outputTable16[c.out - 1].count,
                             !t->altInputTable256[0].data, !t->inputTable256[c.in % 4].data,
                             !t->outputTable16[c.out % 4].data),
                  std::tuple(1024u, 4096u, 4096u, 4096u, true, c.in < 4, c.out < 4)) << c.why;
    }
}

}  // namespace
}  // namespace tintra3
