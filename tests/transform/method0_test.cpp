// The 8-bit transform builder: index tables, the packed 8-bit interpolation,
// and whole builds from crafted and real profiles.
#include "transform/method0.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "profile/profile_model.h"
#include "transform/colour.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3 {
namespace {

using Record = std::unique_ptr<Method0Transform, decltype(&DestroyMethod0Transform)>;

Record NewRecord() { return Record(CreateMethod0Transform(), &DestroyMethod0Transform); }

// Builds from two profile paths; the record is null when a profile does not open.
Record BuildFromPaths(const std::string& src, const std::string& dst, uint16_t intent, int* result) {
    Record t = NewRecord();
    ProfileFile a{};
    ProfileFile b{};
    if (!OpenProfile(src.c_str(), &a)) return Record(nullptr, &DestroyMethod0Transform);
    if (!OpenProfile(dst.c_str(), &b)) {
        CloseProfile(&a);
        return Record(nullptr, &DestroyMethod0Transform);
    }
    *result = BuildMethod0Transform(t.get(), intent, &a, &b, 0);
    CloseProfile(&a);
    CloseProfile(&b);
    return t;
}

std::string Write(const icc::ProfileWriter& w, const std::string& name) {
    const std::string path = test::TempPath(name);
    EXPECT_TRUE(w.WriteFile(path));
    return path;
}

// Plain per-channel step and reference interpolations, written independently
// of the packed form in the builder.
int Step(int u, int v, int f) { return u + (((v - u) * f + 128) >> 8); }

// Axes a..n-1 interpolated around the corner at `at`: the last axis first.
int Plain(const uint8_t* t, uint32_t n, uint32_t a, size_t at, const uint32_t* f, const uint32_t* s) {
    if (a == n) return t[at];
    return Step(Plain(t, n, a + 1, at, f, s), Plain(t, n, a + 1, at + s[a], f, s), int(f[a]));
}

TEST(Method0, CreateIsEmptyAndDestroyAcceptsNull) {
    Record t = NewRecord();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->ready, 0u);
    EXPECT_EQ(t->simplex3, nullptr);
    EXPECT_EQ(t->simplex4, nullptr);
    EXPECT_EQ(t->grid.count, 0u);
    DestroyMethod0Transform(nullptr);
}

TEST(Method0, CellFractionTables) {
    struct Case { uint32_t points, code, cell, fraction; } cases[] = {
        {33, 0, 0, 0},      // origin
        {33, 8, 1, 1},      // s = 256: one step past node 1 is 1/255 of a cell
        {33, 128, 16, 16},  // ((4096 - 4080) * 256 + 128) / 255
        {33, 255, 31, 256}, // top code: last cell, full fraction, never cell 32
        {17, 255, 15, 256},
        {2, 128, 0, 129},
        {256, 100, 100, 0},  // one node per code
        {256, 255, 254, 256},
    };
    for (const Case& c : cases) {
        ValueBuffer cell{}, fraction{};
        uint16_t status = 0;
        ASSERT_EQ(BuildCellFraction8(&status, c.points, &cell, &fraction), 1);
        EXPECT_EQ(Bytes(cell)[c.code], c.cell) << c.points << " " << c.code;
        EXPECT_EQ(U16(fraction)[c.code], c.fraction) << c.points << " " << c.code;
        FreeValueBuffer(&cell);
        FreeValueBuffer(&fraction);
    }
    ValueBuffer cell{}, fraction{};
    uint16_t status = 0;
    EXPECT_EQ(BuildCellFraction8(&status, 1, &cell, &fraction), 0);  // no cell below the last point
}

// A record with identity input curves, ready for the simplex step.
struct SimplexFixture {
    Record t = NewRecord();
    ValueBuffer curves[4]{};
    SimplexFixture(uint8_t inputs, uint8_t outputs) {
        t->inputChannels = inputs;
        t->outputChannels = outputs;
        for (ValueBuffer& c : curves) {
            AllocBytes(&c, 256);
            for (int v = 0; v < 256; ++v) Bytes(c)[v] = uint8_t(v);
        }
        EXPECT_EQ(BuildSimplexTables(t.get(), curves), 1);
    }
    ~SimplexFixture() {
        for (ValueBuffer& c : curves) FreeValueBuffer(&c);
    }
};

TEST(Method0, Simplex3PairsEachFractionWithItsOwnStride) {
    SimplexFixture fx(3, 3);
    const uint32_t s0 = 3267, s1 = 99, s2 = 3;
    struct Case { uint32_t f[3]; uint16_t a, b; uint8_t w[3]; } cases[] = {
        {{3, 5, 1}, s1, s1 + s0, {5, 3, 1}},  // plain descending order
        {{0, 8, 8}, s1, s1 + s2, {8, 8, 0}},  // tie: axis 1 before axis 2
        {{4, 4, 4}, s0, s0 + s1, {4, 4, 4}},  // full tie keeps channel order
        {{0, 0, 8}, s2, s2 + s0, {8, 0, 0}},  // zeros after the one, lower first
    };
    ASSERT_NE(fx.t->simplex3, nullptr);
    EXPECT_EQ(fx.t->simplex4, nullptr);
    EXPECT_EQ(fx.t->farCorner3, s0 + s1 + s2);
    for (const Case& c : cases) {
        const Simplex3& r = fx.t->simplex3[c.f[0] * 81 + c.f[1] * 9 + c.f[2]];
        EXPECT_EQ(r.a, c.a);
        EXPECT_EQ(r.b, c.b);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(r.w[i], c.w[i]) << i;
    }
}

TEST(Method0, Simplex4MirrorPairing) {
    SimplexFixture fx(4, 3);
    const uint32_t s0 = 14739, s1 = 867, s2 = 51, s3 = 3;
    // Record (f0..f3) sorts (f3, f2, f1, f0) against (s0, s1, s2, s3).
    struct Case { uint32_t f[4]; uint16_t a, b, c; uint8_t w[4]; } cases[] = {
        {{16, 0, 0, 0}, s3, s3 + s0, s3 + s0 + s1, {16, 0, 0, 0}},  // channel 0's fraction moves s3
        {{0, 0, 0, 5}, s0, s0 + s1, s0 + s1 + s2, {5, 0, 0, 0}},    // channel 3's fraction moves s0
        {{1, 2, 3, 4}, s0, s0 + s1, s0 + s1 + s2, {4, 3, 2, 1}},    // mirrored: ascending looks sorted
        {{4, 3, 2, 1}, s3, s3 + s2, s3 + s2 + s1, {4, 3, 2, 1}},
        {{7, 7, 7, 7}, s0, s0 + s1, s0 + s1 + s2, {7, 7, 7, 7}},    // full tie: position order
        {{0, 9, 9, 0}, s1, s1 + s2, s1 + s2 + s0, {9, 9, 0, 0}},    // tie in the middle, lower first
        {{2, 9, 0, 9}, s0, s0 + s2, s0 + s2 + s3, {9, 9, 2, 0}},
    };
    ASSERT_NE(fx.t->simplex4, nullptr);
    EXPECT_EQ(fx.t->simplex3, nullptr);
    EXPECT_EQ(fx.t->farCorner4, s0 + s1 + s2 + s3);
    for (const Case& c : cases) {
        const Simplex4& r = fx.t->simplex4[((c.f[0] * 17 + c.f[1]) * 17 + c.f[2]) * 17 + c.f[3]];
        EXPECT_EQ(r.a, c.a) << c.f[0] << c.f[1] << c.f[2] << c.f[3];
        EXPECT_EQ(r.b, c.b);
        EXPECT_EQ(r.c, c.c);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(r.w[i], c.w[i]) << i;
    }
}

TEST(Method0, SimplexInputRecords) {
    SimplexFixture three(3, 3), four(4, 4);
    struct Case { SimplexFixture* fx; int channel, code; uint32_t offset; uint16_t index; } cases[] = {
        {&three, 0, 255, 31 * 3267, 8 * 81},  // w = 256: last cell, full fraction
        {&three, 2, 255, 31 * 3, 8},
        {&three, 1, 254, 31 * 99, 7 * 9},     // w = 255
        {&three, 0, 8, 1 * 3267, 0},          // w = 8: exactly node 1
        {&three, 2, 128, 16 * 3, 1},          // w = 129
        {&four, 0, 255, 15 * 19652, 13072},   // 16 x 4913 = 78608 wraps mod 65536
        {&four, 0, 14, 0, 3246},              // 14 x 4913 = 68782 wraps too
        {&four, 0, 13, 0, 13 * 4913},         // the last part that fits
        {&four, 3, 255, 15 * 4, 16},
        {&four, 2, 240, 15 * 68, 1 * 17},     // w = 241
    };
    for (const Case& c : cases) {
        const SimplexInput& r = c.fx->t->simplexInput[c.channel][c.code];
        EXPECT_EQ(r.offset, c.offset) << c.channel << " " << c.code;
        EXPECT_EQ(r.index, c.index) << c.channel << " " << c.code;
    }
    // The summed index of any pixel stays inside the table.
    uint32_t top = 0;
    for (int c = 0; c < 4; ++c) {
        uint32_t m = 0;
        for (int v = 0; v < 256; ++v) m = std::max<uint32_t>(m, four.t->simplexInput[c][v].index);
        top += m;
    }
    EXPECT_LT(top, 17u * 17 * 17 * 17);
}

TEST(Method0, PackedInterpolationEqualsPlainSteps) {
    std::mt19937 rng(12345);
    auto pick = [&](uint32_t n) { return uint32_t(rng() % n); };
    for (int round = 0; round < 4000; ++round) {
        const uint32_t points = 2 + pick(4), outputs = 1 + pick(4), axes = 3 + pick(2);
        uint32_t stride[4], size = outputs;
        for (uint32_t a = axes; a-- > 0;) {
            stride[a] = size;
            size *= points;
        }
        std::vector<uint8_t> table(size);
        // Extremes often: 0/255 neighbours make the largest borrows.
        for (uint8_t& v : table) v = pick(3) == 0 ? uint8_t(pick(2) * 255) : uint8_t(pick(256));
        uint32_t cell[4], fraction[4];
        for (uint32_t a = 0; a < axes; ++a) {
            cell[a] = pick(points - 1);
            const uint32_t r = pick(5);
            fraction[a] = r == 0 ? 0 : r == 1 ? 256 : pick(257);
        }
        uint8_t out[4];
        if (axes == 3)
            InterpolateTrilinear8(table.data(), outputs, cell, fraction, stride, out);
        else
            InterpolateQuadrilinear8(table.data(), outputs, cell, fraction, stride, out);
        for (uint32_t k = 0; k < outputs; ++k) {
            size_t at = k;
            for (uint32_t a = 0; a < axes; ++a) at += cell[a] * stride[a];
            const int want = Plain(table.data(), axes, 0, at, fraction, stride);
            ASSERT_EQ(out[k], want) << "round " << round << " channel " << k;
        }
    }
}

const icc::Primaries kWide{};  // sRGB primaries
icc::Primaries Narrow() {
    icc::Primaries p;  // primaries pulled halfway to white: sRGB's corners fall outside
    for (int i = 0; i < 3; ++i) {
        p.red[i] = 0.5 * p.red[i] + 0.5 * p.white[i] / 3;
        p.green[i] = 0.5 * p.green[i] + 0.5 * p.white[i] / 3;
        p.blue[i] = 0.5 * p.blue[i] + 0.5 * p.white[i] / 3;
    }
    return p;
}

TEST(Method0, MatrixToMatrixGrid) {
    const std::string wide = Write(icc::MatrixTrcGammaProfile(kWide, 1.0), "m0_wide.icc");
    const std::string narrow = Write(icc::MatrixTrcGammaProfile(Narrow(), 1.0), "m0_narrow.icc");
    int result = 0;
    Record same = BuildFromPaths(wide, wide, 0, &result);
    ASSERT_EQ(result, 1);
    EXPECT_EQ(same->ready, 1u);
    EXPECT_EQ(same->gridPoints, 33);
    EXPECT_EQ(same->strides[0], 3267u);
    EXPECT_EQ(same->grid.count, 107811u);
    // Identity: each node comes back as its own code (matrix inverse round trip).
    for (uint32_t i = 0; i < 33; ++i) {
        const uint32_t e = i * 3267 + (32 - i) * 99 + (i / 2) * 3;
        const int want[3] = {int(i * 255.0 / 32 + 0.5), int((32 - i) * 255.0 / 32 + 0.5), int((i / 2) * 255.0 / 32 + 0.5)};
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(Bytes(same->grid)[e + k], want[k], 1) << i;
    }
    Record out = BuildFromPaths(wide, narrow, 0, &result);
    ASSERT_EQ(result, 1);
    // Saturated sRGB lands outside the narrow gamut: above 1 codes 255, below 0 codes 0.
    const uint8_t* red = Bytes(out->grid) + 32 * 3267;  // node (1, 0, 0)
    EXPECT_EQ(red[0], 255);
    EXPECT_EQ(red[1], 0);
    EXPECT_EQ(red[2], 0);
    for (uint32_t e = 0; e < out->grid.count; ++e)
        ASSERT_EQ(U32(out->curvedGrid)[e], Bytes(out->outputCurves[e % 3])[Bytes(out->grid)[e]]);
}

TEST(Method0, AbsoluteWithEqualWhitesEqualsRelative) {
    icc::Primaries warm = kWide;
    warm.white = {0.9, 1.0, 0.7};
    const std::string a = Write(icc::MatrixTrcGammaProfile(kWide, 2.2), "m0_abs_a.icc");
    const std::string b = Write(icc::MatrixTrcGammaProfile(Narrow(), 1.8), "m0_abs_b.icc");
    const std::string c = Write(icc::MatrixTrcGammaProfile(warm, 1.8), "m0_abs_c.icc");
    int r[4] = {};
    Record relative = BuildFromPaths(a, b, 0, &r[0]);
    Record absolute = BuildFromPaths(a, b, 3, &r[1]);
    Record warmRelative = BuildFromPaths(a, c, 0, &r[2]);
    Record warmAbsolute = BuildFromPaths(a, c, 3, &r[3]);
    ASSERT_TRUE(r[0] == 1 && r[1] == 1 && r[2] == 1 && r[3] == 1);
    EXPECT_EQ(absolute->absolute, 1u);
    EXPECT_EQ(relative->absolute, 0u);
    EXPECT_EQ(std::memcmp(relative->grid.data, absolute->grid.data, relative->grid.count), 0);
    // Different media whites: the absolute grid is scaled by their ratio.
    EXPECT_NE(std::memcmp(warmRelative->grid.data, warmAbsolute->grid.data, warmRelative->grid.count), 0);
}

icc::Lut TwoInputLut() {
    icc::Lut lut;
    lut.inputChannels = 2;
    lut.inputTables.assign(2, std::vector<uint16_t>(256, 0));
    lut.clut.assign(3 * 4, 128);
    lut.outputTables.assign(3, std::vector<uint16_t>(256, 0));
    return lut;
}

TEST(Method0, CraftedTables) {
    const uint32_t lab = icc::Sig4("Lab ");
    const icc::Lut identity = icc::IdentityLut(3, 18, 256);  // nodes at multiples of 15: exact in 8 bits
    const std::string id = Write(icc::LutProfile(icc::Sig4("scnr"), lab, lab, &identity, &identity, false), "m0_id.icc");
    int result = 0;
    Record t = BuildFromPaths(id, id, 0, &result);
    ASSERT_EQ(result, 1);
    EXPECT_EQ(t->sourceKind, 2);
    EXPECT_EQ(t->destinationKind, 2);
    // Equal PCS, relative: codes pass straight through both identity tables.
    for (uint32_t n = 0; n < 33 * 33 * 33; n += 37) {
        const uint32_t node[3] = {n / 1089, n / 33 % 33, n % 33};
        for (int k = 0; k < 3; ++k) EXPECT_EQ(Bytes(t->grid)[n * 3 + k], (255 * node[k] + 16) / 32) << n;
    }
    const icc::Lut two = TwoInputLut();
    icc::Lut flat = identity;
    flat.gridPoints = 1;  // one point: no cell to interpolate in
    flat.clut.resize(3);
    struct Case { const icc::Lut* lut; uint32_t space; const char* name; } refused[] = {
        {&two, icc::Sig4("2CLR"), "m0_two.icc"},  // a table source needs 3 or 4 inputs
        {&flat, icc::Sig4("RGB "), "m0_flat.icc"},
    };
    for (const Case& c : refused) {
        const std::string path = Write(icc::LutProfile(icc::Sig4("scnr"), c.space, lab, c.lut, c.lut, false), c.name);
        Record bad = BuildFromPaths(path, id, 0, &result);
        EXPECT_EQ(result, 0) << c.name;
        EXPECT_EQ(bad->ready, 0u);
        bad = BuildFromPaths(id, path, 0, &result);  // as a destination
        EXPECT_EQ(result, 0) << c.name;
    }
}

TEST(Method0, RealProfiles) {
    struct Case { const char* src; const char* dst; uint8_t in, out; uint16_t points; } cases[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3, 33},  // matrix -> matrix
        {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4, 33},    // matrix -> Lab table
        {"sRGB.icc", "ghostscript/ps_cmyk.icc", 3, 4, 33},         // matrix -> XYZ table (matrix step)
        {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3, 17},    // 4-input table source
        {"ghostscript/ps_cmyk.icc", "ghostscript/default_cmyk.icc", 4, 4, 17},  // XYZ -> Lab tables
        {"ghostscript/lab.icc", "sRGB.icc", 3, 3, 33},             // 3-input table source
        {"sRGB.icc", "Gray.icc", 3, 1, 33},                         // XYZ grey destination
        {"sRGB.icc", "Gray-CIE_L.icc", 3, 1, 33},                   // Lab grey destination
        {"Gray.icc", "sRGB.icc", 1, 3, 256},                        // grey source
        {"Gray-CIE_L.icc", "ghostscript/default_cmyk.icc", 1, 4, 256},
        {"Gray.icc", "Gray-CIE_L.icc", 1, 1, 256},
    };
    for (const Case& c : cases) {
        int result = 0;
        Record t = BuildFromPaths(test::RealProfile(c.src), test::RealProfile(c.dst), 0, &result);
        if (!t) GTEST_SKIP() << "profile not installed: " << c.src << " or " << c.dst;
        ASSERT_EQ(result, 1) << c.src << " -> " << c.dst;
        EXPECT_EQ(t->inputChannels, c.in) << c.src;
        EXPECT_EQ(t->outputChannels, c.out) << c.dst;
        EXPECT_EQ(t->gridPoints, c.points);
        uint32_t nodes = 1;
        for (int a = 0; a < c.in; ++a) nodes *= c.points;
        EXPECT_EQ(t->grid.count, nodes * c.out);
        EXPECT_EQ(t->curvedGrid.count, nodes * c.out);
        EXPECT_EQ(t->strides[c.in - 1], c.out);
        EXPECT_EQ(t->simplex3 != nullptr, c.in == 3);
        EXPECT_EQ(t->simplex4 != nullptr, c.in == 4);
        if (c.in == 1) {
            // Cell and fraction per code = the 256-point table at curve[code].
            for (int v = 0; v < 256; ++v) {
                const uint8_t u = Bytes(t->inputCurves[0])[v];
                EXPECT_EQ(Bytes(t->monoCell)[v], u == 255 ? 254 : u);
                EXPECT_EQ(U16(t->monoFraction)[v], u == 255 ? 256 : 0);
            }
        }
    }
}


// --- Whole grids against a plain evaluation --------------------------------
// Every node evaluated straight from the two profile models, step after step,
// with per-axis interpolation instead of the builder's packed form.

std::vector<uint8_t> Take(int ok, ValueBuffer* b) {
    EXPECT_EQ(ok, 1);
    std::vector<uint8_t> v(Bytes(*b), Bytes(*b) + b->count);
    FreeValueBuffer(b);
    return v;
}

struct Table8 {  // a lut as the 8-bit sampling sees it
    std::vector<uint8_t> clut, in[4], out[4];
    uint32_t points = 0, outputs = 0, stride[4] = {};
};

Table8 LoadLut(const LutModel& lut, uint32_t axes) {
    Table8 t;
    ValueBuffer b{};
    t.clut = Take(LutClut8(&lut, &b), &b);
    for (int c = 0; c < lut.inputChannels; ++c) t.in[c] = Take(LutInputTable8(&lut, c, &b), &b);
    for (int c = 0; c < lut.outputChannels; ++c) t.out[c] = Take(LutOutputTable8(&lut, c, &b), &b);
    t.points = lut.gridPoints;
    t.outputs = lut.outputChannels;
    for (uint32_t a = axes, s = t.outputs; a-- > 0; s *= t.points) t.stride[a] = s;
    return t;
}

void Interp(const Table8& t, uint32_t axes, const uint8_t* code, uint8_t* out) {
    uint32_t f[4];
    size_t at = 0;
    for (uint32_t a = 0; a < axes; ++a) {
        const uint32_t s = code[a] * (t.points - 1);
        uint32_t cell = s / 255;
        f[a] = cell == t.points - 1 ? 256 : ((s - 255 * cell) * 256 + 128) / 255;
        if (cell == t.points - 1) --cell;
        at += cell * t.stride[a];
    }
    for (uint32_t k = 0; k < t.outputs; ++k) out[k] = uint8_t(Plain(t.clut.data(), axes, 0, at + k, f, t.stride));
}

void Decode(uint32_t pcs, const uint8_t* c, double* v) {
    pcs == kSigLab ? DecodeLab8(c, v) : pcs == kSigLch ? DecodeLch8(c, v) : DecodeXyz8(c, v);
}
void Encode(uint32_t pcs, const double* v, uint8_t* c) {
    pcs == kSigLab ? EncodeLab8(v, c) : pcs == kSigLch ? EncodeLch8(v, c) : EncodeXyz8(v, c);
}
void ToXyz(uint32_t pcs, const double* w, const uint8_t* c, double* xyz) {
    double v[3];
    Decode(pcs, c, v);
    if (pcs == kSigLab) LabToXyz(w, v, xyz);
    else if (pcs == kSigLch) LchToXyz(w, v, xyz);
    else std::copy(v, v + 3, xyz);
}
void FromXyz(uint32_t pcs, const double* w, const double* xyz, uint8_t* c) {
    double v[3];
    if (pcs == kSigLab) XyzToLab(w, xyz, v);
    else if (pcs == kSigLch) XyzToLch(w, xyz, v);
    else std::copy(xyz, xyz + 3, v);
    Encode(pcs, v, c);
}

std::vector<uint8_t> PlainGrid(const ProfileModel& src, const ProfileModel& dst, bool absolute) {
    const double* white = src.illuminant;  // every Lab / LCh step uses the source illuminant
    const uint32_t sp = src.outputSpace, dp = dst.inputSpace;
    const uint32_t inputs = src.kind == 2 ? src.lut.inputChannels : src.kind == 3 ? 1 : 3;
    const uint32_t points = src.kind == 3 ? 256 : inputs == 3 ? 33 : 17;
    const uint32_t outputs = dst.kind == 2 ? dst.lut.outputChannels : dst.kind == 3 ? 1 : 3;
    Table8 st, dt;
    if (src.kind == 2) st = LoadLut(src.lut, inputs);
    if (dst.kind == 2) dt = LoadLut(dst.lut, 3);
    uint32_t nodes = 1;
    for (uint32_t a = 0; a < inputs; ++a) nodes *= points;
    std::vector<uint8_t> grid;
    for (uint32_t n = 0; n < nodes; ++n) {
        uint32_t idx[4];
        for (uint32_t a = inputs, r = n; a-- > 0; r /= points) idx[a] = r % points;
        double xyz[3];
        uint8_t pcs[3];
        bool direct = false;  // table to table without the absolute flag: PCS codes, no XYZ
        if (src.kind == 1) {
            for (int r = 0; r < 3; ++r)
                xyz[r] = src.matrix[r][0] * (idx[0] / 32.0) + src.matrix[r][1] * (idx[1] / 32.0) +
                         src.matrix[r][2] * (idx[2] / 32.0);
        } else if (src.kind == 2) {
            uint8_t code[4], o[4];
            for (uint32_t a = 0; a < inputs; ++a) code[a] = uint8_t((255 * idx[a] + points / 2) / (points - 1));
            Interp(st, inputs, code, o);
            uint8_t s[3];
            for (int c = 0; c < 3; ++c) s[c] = st.out[c][o[c]];
            if (dst.kind == 2 && !absolute) {
                direct = true;
                double v[3], w[3];
                Decode(sp, s, v);
                if (sp == dp) std::copy(s, s + 3, pcs);
                else {
                    if (sp == kSigLab && dp == kSigLch) LabToLch(white, v, w);
                    else if (sp == kSigLch && dp == kSigLab) LchToLab(white, v, w);
                    else if (dp == kSigXyz) sp == kSigLab ? LabToXyz(white, v, w) : LchToXyz(white, v, w);
                    else dp == kSigLab ? XyzToLab(white, v, w) : XyzToLch(white, v, w);
                    Encode(dp, w, pcs);
                }
            } else {
                ToXyz(sp, white, s, xyz);
            }
        } else {
            const uint8_t g = uint8_t(idx[0]);
            if (sp == kSigXyz) {
                const uint8_t c[3] = {g, g, g};
                DecodeXyz8(c, xyz);
                for (int k = 0; k < 3; ++k) xyz[k] *= white[k];
            } else {
                const uint8_t c[3] = {g, 128, 128};
                double v[3];
                Decode(sp, c, v);
                v[1] = v[2] = 0;
                sp == kSigLab ? LabToXyz(white, v, xyz) : LchToXyz(white, v, xyz);
            }
        }
        if (absolute)
            for (int k = 0; k < 3; ++k) xyz[k] *= src.whitePoint[k] / dst.whitePoint[k];
        uint8_t out[4];
        if (dst.kind == 1) {
            for (int r = 0; r < 3; ++r) {
                double v = dst.matrix[r][0] * xyz[0] + dst.matrix[r][1] * xyz[1] + dst.matrix[r][2] * xyz[2];
                v = v < 0 ? 0 : v > 1 ? 1 : v;
                out[r] = uint8_t(TruncToInt(v * 255 + 0.5));
            }
        } else if (dst.kind == 3) {
            FromXyz(dp, white, xyz, pcs);
            out[0] = dp == kSigXyz ? pcs[1] : pcs[0];
        } else {
            if (!direct) FromXyz(dp, white, xyz, pcs);
            uint8_t c[3];
            for (int k = 0; k < 3; ++k) c[k] = dt.in[k][pcs[k]];
            if (dp == kSigXyz) {  // the lut matrix after the input curves
                double v[3], w[3];
                DecodeXyz8(c, v);
                const double* m = dst.lut.matrix;
                for (int r = 0; r < 3; ++r) w[r] = m[3 * r] * v[0] + m[3 * r + 1] * v[1] + m[3 * r + 2] * v[2];
                EncodeXyz8(w, c);
            }
            Interp(dt, 3, c, out);
        }
        grid.insert(grid.end(), out, out + outputs);
    }
    return grid;
}

void ExpectPlainGrid(const std::string& srcPath, const std::string& dstPath, uint16_t intent) {
    SCOPED_TRACE(srcPath + " -> " + dstPath + " intent " + std::to_string(intent));
    ProfileFile a{}, b{};
    if (!OpenProfile(srcPath.c_str(), &a)) GTEST_SKIP() << "not installed: " << srcPath;
    if (!OpenProfile(dstPath.c_str(), &b)) {
        CloseProfile(&a);
        GTEST_SKIP() << "not installed: " << dstPath;
    }
    Record t = NewRecord();
    ProfileModel src{}, dst{};
    const bool models = BuildSourceModel(intent, &a, &src) && BuildDestinationModel(intent, &b, 0, &dst);
    const int built = BuildMethod0Transform(t.get(), intent, &a, &b, 0);
    CloseProfile(&a);
    CloseProfile(&b);
    if (!models) {
        EXPECT_EQ(built, 0);  // e.g. a printer profile without the intent's table
    } else if (built == 1) {
        const std::vector<uint8_t> want = PlainGrid(src, dst, intent == 3);
        ASSERT_EQ(t->grid.count, want.size());
        size_t bad = 0, first = 0;
        for (size_t e = 0; e < want.size(); ++e)
            if (Bytes(t->grid)[e] != want[e] && bad++ == 0) first = e;
        EXPECT_EQ(bad, 0u) << "first at entry " << first << ": " << int(Bytes(t->grid)[first]) << " vs "
                           << int(want[first]);
    } else {
        ADD_FAILURE() << "build failed";
    }
    ReleaseProfileModel(&src);
    ReleaseProfileModel(&dst);
}

TEST(Method0, GridsEqualPlainEvaluation) {
    struct Case { const char* src; const char* dst; } cases[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc"},                // matrix -> matrix
        {"sRGB.icc", "ghostscript/default_cmyk.icc"},                  // matrix -> Lab table
        {"sRGB.icc", "ghostscript/ps_cmyk.icc"},                       // matrix -> XYZ table, lut matrix
        {"sRGB.icc", "Gray.icc"},                                      // matrix -> grey (Y code)
        {"ghostscript/default_cmyk.icc", "sRGB.icc"},                  // 4-D table -> matrix
        {"ghostscript/lab.icc", "sRGB.icc"},                           // 3-D table -> matrix
        {"ghostscript/ps_cmyk.icc", "ghostscript/default_cmyk.icc"},   // XYZ -> Lab tables
        {"ghostscript/default_cmyk.icc", "ghostscript/ps_cmyk.icc"},   // Lab -> XYZ tables
        {"ghostscript/default_cmyk.icc", "ghostscript/default_cmyk.icc"},  // equal PCS: codes pass
        {"ghostscript/default_cmyk.icc", "Gray-CIE_L.icc"},            // table -> grey (L code)
        {"Gray.icc", "sRGB.icc"},                                      // XYZ grey source
        {"Gray-CIE_L.icc", "ghostscript/default_cmyk.icc"},            // Lab grey -> table
        {"Gray.icc", "Gray-CIE_L.icc"},                                // grey -> grey
    };
    // Relative, and absolute (media white ratios; table -> table via XYZ).
    for (const Case& c : cases)
        for (uint16_t intent : {0, 3}) ExpectPlainGrid(test::RealProfile(c.src), test::RealProfile(c.dst), intent);
}

TEST(Method0, LchGridsEqualPlainEvaluation) {
    // Identity tables on every PCS: the grid shows the direct PCS conversions.
    const icc::Lut id = icc::IdentityLut(3, 9, 256);
    const uint32_t pcs[3] = {kSigLab, kSigLch, kSigXyz};
    std::string path[3];
    for (int i = 0; i < 3; ++i)  // the LCh one as 'mft2'
        path[i] = Write(icc::LutProfile(icc::Sig4("scnr"), icc::Sig4("RGB "), pcs[i], &id, &id, i == 1),
                        std::string("m0_pcs") + char('0' + i) + ".icc");
    const std::string lchGrey = Write(icc::GrayProfile(1.8, kSigLch), "m0_lch_grey.icc");
    for (uint16_t intent : {0, 3}) {
        ExpectPlainGrid(path[1], path[0], intent);  // LCh -> Lab
        ExpectPlainGrid(path[0], path[1], intent);  // Lab -> LCh
        ExpectPlainGrid(path[1], path[2], intent);  // LCh -> XYZ
        ExpectPlainGrid(path[2], path[1], intent);  // XYZ -> LCh
        ExpectPlainGrid(lchGrey, path[0], intent);  // LCh grey source
        ExpectPlainGrid(path[0], lchGrey, intent);  // LCh grey destination
    }
}

}  // namespace
}  // namespace tintra3
