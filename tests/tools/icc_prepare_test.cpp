// Profile preparation and the reasons the check gives: what the rewritten
// tags hold, and that every refusal names the tag and the cause.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_prepare.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

using namespace tintra3::icc;

uint32_t U32(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
}

struct TagView {
    uint32_t offset = 0, size = 0;
    bool found = false;
};

TagView FindTag(const std::vector<uint8_t>& b, const char (&sig)[5]) {
    const uint32_t count = U32(b, 128);
    for (uint32_t i = 0; i < count; ++i)
        if (U32(b, 132 + 12 * i) == Sig4(sig)) return {U32(b, 136 + 12 * i), U32(b, 140 + 12 * i), true};
    return {};
}

// The 'curv' table of tag `sig` at x, interpolated, as a fraction of 65535.
double CurvEntry(const std::vector<uint8_t>& b, const char (&sig)[5], double x) {
    const TagView t = FindTag(b, sig);
    EXPECT_TRUE(t.found);
    EXPECT_EQ(U32(b, t.offset), Sig4("curv"));
    const uint32_t n = U32(b, t.offset + 8);
    const double pos = x * (n - 1);
    const size_t i = std::min(size_t(pos), size_t(n - 2));
    auto entry = [&](size_t k) {
        const size_t at = t.offset + 12 + 2 * k;
        return ((b[at] << 8) | b[at + 1]) / 65535.0;
    };
    return entry(i) + (entry(i + 1) - entry(i)) * (pos - double(i));
}

std::vector<uint8_t> Be32(std::initializer_list<double> values) {
    std::vector<uint8_t> out;
    for (double v : values) {
        const uint32_t u = S15Fixed16(v);
        for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(u >> s));
    }
    return out;
}

// A 'para' element of function `type` with parameters g, a, b, c, d, e, f.
std::vector<uint8_t> ParaElement(uint16_t type, std::initializer_list<double> params) {
    std::vector<uint8_t> payload = {uint8_t(type >> 8), uint8_t(type), 0, 0};
    const std::vector<uint8_t> p = Be32(params);
    payload.insert(payload.end(), p.begin(), p.end());
    return RawElement(Sig4("para"), payload);
}

ProfileWriter RgbWithPara(const std::vector<uint8_t>& para) {
    ProfileWriter w = MatrixTrcGammaProfile({}, 2.2);
    ProfileWriter out;
    out.header = w.header;
    const Primaries p;
    out.AddTag(Sig4("wtpt"), XyzElement({p.white}));
    out.AddTag(Sig4("rXYZ"), XyzElement({p.red}));
    out.AddTag(Sig4("gXYZ"), XyzElement({p.green}));
    out.AddTag(Sig4("bXYZ"), XyzElement({p.blue}));
    out.AddTag(Sig4("rTRC"), para);
    out.AddLinkedTag(Sig4("gTRC"), Sig4("rTRC"));
    out.AddLinkedTag(Sig4("bTRC"), Sig4("rTRC"));
    return out;
}

// The five 'para' functions, each checked at a point where a misread
// parameter (order, branch, offset) would show.
TEST(Prepare, ParametricCurvesAreSampledByTheirFormula) {
    const struct {
        uint16_t type;
        std::initializer_list<double> params;
        double x, expected;
    } cases[] = {
        {0, {2.2}, 0.5, 0.217638},                                    // plain power
        {1, {2.0, 2.0, -0.5}, 0.5, 0.25},                             // (a x + b)^g above -b/a
        {1, {2.0, 2.0, -0.5}, 0.2, 0.0},                              // zero below -b/a
        {2, {1.0, 1.0, -0.5, 0.25}, 0.25, 0.25},                      // constant c below -b/a
        {2, {1.0, 1.0, -0.5, 0.25}, 0.75, 0.5},                       // (a x + b)^g + c above
        {3, {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045}, 0.5, 0.214041},   // sRGB, curved part
        {3, {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045}, 0.02, 0.001548},  // sRGB, linear part
        {4, {1.0, 0.5, 0.0, 0.5, 0.5, 0.25, 0.125}, 0.25, 0.25},      // c x + f below d
        {4, {1.0, 0.5, 0.0, 0.5, 0.5, 0.25, 0.125}, 0.75, 0.625},     // (a x + b)^g + e from d on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " x " << c.x);
        const std::vector<uint8_t> original = RgbWithPara(ParaElement(c.type, c.params)).Bytes();
        EXPECT_EQ(LibraryProblem(original, Role::kSource, 1), "'para' curve in rTRC");
        const Prepared p = Prepare(original);
        ASSERT_FALSE(p.changes.empty());
        EXPECT_EQ(LibraryProblem(p.bytes, Role::kSource, 1), "");
        EXPECT_NEAR(CurvEntry(p.bytes, "rTRC", c.x), c.expected, 2e-4);
        // The three channels share one element, as in the original.
        EXPECT_EQ(FindTag(p.bytes, "gTRC").offset, FindTag(p.bytes, "rTRC").offset);
    }
}

Lut ConstantLut(uint8_t in, uint8_t out) {
    Lut lut = IdentityLut(in, 2, 2);
    lut.outputChannels = out;
    lut.outputTables.assign(out, {0, 65535});
    size_t nodes = 1;
    for (int i = 0; i < in; ++i) nodes *= 2;
    lut.clut.assign(nodes * out, 32768);
    return lut;
}

// A printer with only A2B0/B2A0: refused as it is for every intent but
// perceptual, and usable at every intent once prepared (ICC's fallback).
TEST(Prepare, PrinterIntentsFallBackToTableZero) {
    const Lut a2b = ConstantLut(4, 3), b2a = ConstantLut(3, 4);
    const std::vector<uint8_t> original =
        LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("XYZ "), &a2b, &b2a, true).Bytes();
    const struct {
        int intent;
        Role role;
        const char* problem;
    } cases[] = {
        {0, Role::kSource, ""},
        {1, Role::kDestination, "'B2A1' missing for relative colorimetric; the profile has only A2B0/B2A0"},
        {2, Role::kSource, "'A2B1' missing for absolute colorimetric; the profile has only A2B0/B2A0"},
        {3, Role::kDestination, "'B2A2' missing for saturation; the profile has only A2B0/B2A0"},
    };
    const Prepared p = Prepare(original);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.intent);
        EXPECT_EQ(LibraryProblem(original, c.role, c.intent), c.problem);
        EXPECT_EQ(LibraryProblem(p.bytes, c.role, c.intent), "");
    }
    EXPECT_EQ(FindTag(p.bytes, "A2B2").offset, FindTag(p.bytes, "A2B0").offset);
    EXPECT_EQ(FindTag(p.bytes, "B2A1").offset, FindTag(p.bytes, "B2A0").offset);
}

// Each refusal names the tag or header field and why; the library indeed
// refuses these profiles (the check must not invent reasons).
TEST(Prepare, RefusalsNameTheCause) {
    const Lut rgbToLab = IdentityLut(3, 2, 2);
    ProfileWriter named = LutProfile(Sig4("nmcl"), Sig4("Lab "), Sig4("Lab "), nullptr, nullptr, true);
    ProfileWriter v4Table = LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("Lab "), nullptr, nullptr, true);
    v4Table.AddTag(Sig4("A2B0"), RawElement(Sig4("mAB "), std::vector<uint8_t>(32, 0)));
    ProfileWriter rgbPcs = LutProfile(Sig4("scnr"), Sig4("RGB "), Sig4("RGB "), &rgbToLab, nullptr, true);
    ProfileWriter sixColours = LutProfile(Sig4("prtr"), Sig4("6CLR"), Sig4("Lab "), &rgbToLab, nullptr, true);
    ProfileWriter badMagic = GrayProfile(2.2, Sig4("Lab "));
    badMagic.header.magic = Sig4("xxxx");
    ProfileWriter truncated = GrayProfile(2.2, Sig4("Lab "));
    truncated.truncateAt = 100;
    ProfileWriter zeroGamma = GrayProfile(0.0, Sig4("Lab "));
    ProfileWriter noCurves = MatrixTrcGammaProfile({}, 2.2);
    noCurves.entryOverrides.push_back({Sig4("rTRC"), std::nullopt, std::nullopt, Sig4("text")});
    const struct {
        const char* name;
        ProfileWriter* w;
        Role role;
        const char* reason;
    } cases[] = {
        {"named", &named, Role::kSource, "named-colour profile"},             // a list of names, no table
        {"v4", &v4Table, Role::kSource, "'A2B0' is of type 'mAB '"},          // a table type read only when prepared
        {"rgb pcs", &rgbPcs, Role::kSource, "connection space 'RGB '"},       // PCS neither XYZ nor Lab
        {"6clr", &sixColours, Role::kSource, "colour space '6CLR'"},          // more inks than the library knows
        {"magic", &badMagic, Role::kSource, "no 'acsp' signature"},           // not a profile
        {"short", &truncated, Role::kSource, "shorter than an ICC header"},   // cut inside the header
        {"gamma 0", &zeroGamma, Role::kDestination, "gamma 0"},               // cannot be inverted
        {"text", &noCurves, Role::kDestination, "'text' curve in rTRC"},      // wrong type where a curve belongs
    };
    const std::vector<uint8_t> lab = LutProfile(Sig4("spac"), Sig4("Lab "), Sig4("Lab "), &rgbToLab, &rgbToLab,
                                                true).Bytes();
    const std::string labPath = tintra3::test::WriteTempFile("lab.icc", lab);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> bytes = c.w->Bytes();
        const std::string problem = LibraryProblem(bytes, c.role, 1);
        EXPECT_NE(problem.find(c.reason), std::string::npos) << problem;

        const std::string path = tintra3::test::WriteTempFile(std::string(c.name) + ".icc", bytes);
        const bool source = c.role == Role::kSource;
        ImageParams image{1, 1, 4, 16, 8, 8, TINTRA_INTERLEAVED, 0};
        char names[512] = {};
        std::strncpy(names, (source ? path : labPath).c_str(), 255);
        std::strncpy(names + 256, (source ? labPath : path).c_str(), 255);
        CColorMatcher* handle = nullptr;
        EXPECT_NE(QemToolboxInit(&image, names, 1, 1, &handle), 0u);
        QemToolboxPostProc(handle);
    }
}

// Embedded profiles come from any image: cut or damaged ones must give an
// exception or a reason, never a read outside the bytes (run under ASan).
TEST(Prepare, DamagedProfilesAreRefusedCleanly) {
    const char* const profiles[] = {
        "ghostscript/lab.icc",           // 'mft1' Lab tables
        "colord/Crayons.icc",            // 'mBA ' with curves, matrix and CLUT offsets
        "colord/sRGB.icc",               // 'para' curves shared between tags
    };
    for (const char* name : profiles) {
        SCOPED_TRACE(name);
        const std::string text = [&] {
            std::FILE* f = std::fopen(tintra3::test::RealProfile(name).c_str(), "rb");
            std::string all;
            char chunk[4096];
            size_t n;
            while (f && (n = std::fread(chunk, 1, sizeof chunk, f)) > 0) all.append(chunk, n);
            if (f) std::fclose(f);
            return all;
        }();
        ASSERT_GT(text.size(), 132u);
        const std::vector<uint8_t> original(text.begin(), text.end());
        uint32_t seed = 12345;
        for (size_t cut = 0; cut < original.size(); cut += 1 + original.size() / 23) {
            std::vector<uint8_t> damaged = original;
            for (int flips = 0; flips < 8; ++flips) {
                seed = seed * 1103515245u + 12345u;
                damaged[(seed >> 8) % damaged.size()] ^= uint8_t(seed >> 24);
            }
            // The file cut short, and the whole file with bytes flipped.
            const std::vector<uint8_t> cutShort(original.begin(), original.begin() + ptrdiff_t(std::max<size_t>(cut, 1)));
            for (const std::vector<uint8_t>& bytes : std::vector<std::vector<uint8_t>>{cutShort, damaged}) {
                try {
                    (void)Prepare(bytes);
                } catch (const std::runtime_error&) {
                }
                (void)LibraryProblem(bytes, Role::kSource, 1);
                (void)LibraryMisreading(bytes);
            }
        }
    }
}

}  // namespace
