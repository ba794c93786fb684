// The transform builders and the colour arithmetic beneath them: conversions and PCS encodings, the
// interpolators against an axis-by-axis fold, method 0's index tables and whole grids byte for byte
// against a plain evaluation, method 1's nodes for pairs whose answer is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "profile/profile_model.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"
#include "transform/colour.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {
namespace {

using icc::Sig4;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
const double kD50[3] = {0.9642, 1.0, 0.8249}, kUnit[3] = {1, 1, 1};

using Record = std::unique_ptr<Method0Transform, decltype(&DestroyMethod0Transform)>;
using TransformPtr = std::unique_ptr<Method1Transform, decltype(&DestroyMethod1Transform)>;
std::string File(const icc::ProfileWriter& w) {
    static int n = 0;
    return test::WriteTempFile("builders_" + std::to_string(n++) + ".icc", w.Bytes());
}
std::string LutFile(const char (&space)[5], uint32_t pcs, const icc::Lut& l, bool sixteenBit = true) {
    return File(icc::LutProfile(Sig4("scnr"), Sig4(space), pcs, &l, &l, sixteenBit));
}
// Opens both profiles, runs f on them and closes them; -1 when one does not open.
template <typename F>
int WithProfiles(const std::string& s, const std::string& d, F f) {
    ProfileFile a{}, b{};
    const bool okA = OpenProfile(s.c_str(), &a) == 1, okB = OpenProfile(d.c_str(), &b) == 1;
    const int result = okA && okB ? f(&a, &b) : -1;
    if (okA) CloseProfile(&a);
    if (okB) CloseProfile(&b);
    return result;
}

// Profiles both builders refuse: luts whose lookups would index outside their tables; a header without tags.
struct Unusable { std::string twoInputs, onePoint, oneEntry, fourInputs, bare; };
Unusable MakeUnusable() {
    icc::Lut two, one = icc::IdentityLut(3, 1, 256), entry = icc::IdentityLut(3, 2, 1);
    const icc::Lut four = icc::IdentityLut(4, 2, 256);
    two.inputChannels = 2;  // a grid of two dimensions
    two.inputTables.assign(2, std::vector<uint16_t>(256, 0));
    two.clut.assign(3 * 4, 128);
    two.outputTables.assign(3, std::vector<uint16_t>(256, 0));
    // One grid point has no cell, one table entry no segment; a destination lut must take a PCS triple.
    return {LutFile("2CLR", kSigLab, two), LutFile("RGB ", kSigLab, one), LutFile("RGB ", kSigLab, entry),
            LutFile("CMYK", kSigLab, four), File(icc::ProfileWriter())};
}

// Truncation as the x86 conversion, without undefined behaviour; the Lab formulas at their edges; round trips.
TEST(Conversions, TruncationLabEdgesAndRoundTrips) {
    const std::pair<double, int32_t> truncations[] = {
        {0.0, 0}, {-0.9, 0}, {65535.5, 65535},                  // truncates toward zero
        {2147483647.9, INT32_MAX}, {2147483648.0, INT32_MIN},   // largest value that fits; 2^31 does not
        {-2147483648.9, INT32_MIN}, {-2147483649.0, INT32_MIN}, // truncates to -2^31, which fits; below range
        {1e300, INT32_MIN}, {kInf, INT32_MIN}, {-kInf, INT32_MIN}, {kNaN, INT32_MIN},  // NaN codes 0 in 16 bits
    };
    for (const auto& [in, out] : truncations) EXPECT_EQ(TruncToInt(in), out) << in;
    using Fn = void (*)(const double*, const double*, double*);
    const double inv = 7.9996247999999985, x = kNaN;  // L at the inverse threshold; x: not checked
    struct Case { Fn fn; const double* white; double in[3], out[3]; const char* why; } cases[] = {
        {XyzToLab, kD50, {0.9642, 1.0, 0.8249}, {100.0, 0.0, 0.0}, "the white is L 100, a = b = 0 exactly"},
        {XyzToLab, kUnit, {0.008856, 0.008856, 0.008856}, {903.3 * 0.008856, 0, 0}, "threshold: linear branch"},
        {LabToXyz, kUnit, {inv, 0, 0}, {x, inv * 0.0011070519207350825, x}, "linear Y = L / 903.3, not fy cubed"},
        {LabToXyz, kUnit, {0, 34.480836, 0}, {(0.2068927064827586 - 0.13793103448275862) * 0.1284191601386927, x, x},
         "fx exactly 0.2068927064827586: still linear (the cube gives 0.0088559578...)"},
        {LabToLch, nullptr, {50, 300, 0}, {x, 255.99609375, 0.0}, "chroma clips to the 16-bit code range; hue"},
    };
    for (const Case& c : cases) {
        double out[3];
        c.fn(c.white, c.in, out);
        for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isnan(c.out[k]) || out[k] == c.out[k]) << c.why << " " << out[k];
    }
    // Round trips: light, dark (linear branch), saturated, and negative (linear branch only).
    for (const auto& xyz : {std::array{0.9642, 1.0, 0.8249}, {0.2, 0.3, 0.1}, {0.004, 0.005, 0.006}, {0.0, 0.0, 0.0},
                            {0.4, 0.1, 0.6}, {-0.001, 0.003, 0.001}, {1.5, 1.2, 0.01}}) {
        double lab[3], lch[3], back[3], back2[3];
        XyzToLab(kD50, xyz.data(), lab), LabToXyz(kD50, lab, back);
        XyzToLch(kD50, xyz.data(), lch), LchToXyz(kD50, lch, back2);
        for (int c = 0; c < 6; ++c) EXPECT_NEAR(c < 3 ? back[c] : back2[c - 3], xyz[c % 3], 1e-12) << c;
    }
}

struct Codec {  // an encoder and its decoder, widened to 32-bit codes
    std::function<void(const double*, uint32_t*)> encode;
    std::function<void(const uint32_t*, double*)> decode;
    uint32_t top;
};
template <typename T>
Codec Make(void (*encode)(const double*, T*), void (*decode)(const T*, double*)) {
    return {[encode](const double* in, uint32_t* out) { T c[3]; encode(in, c), std::copy(c, c + 3, out); },
            [decode](const uint32_t* in, double* out) { const T c[] = {T(in[0]), T(in[1]), T(in[2])}; decode(c, out); },
            std::numeric_limits<T>::max()};
}
const Codec kXyz16 = Make(EncodeXyz16, DecodeXyz16), kLab16 = Make(EncodeLab16, DecodeLab16),
            kLch16 = Make(EncodeLch16, DecodeLch16), kXyz8 = Make(EncodeXyz8, DecodeXyz8),
            kLab8 = Make(EncodeLab8, DecodeLab8), kLch8 = Make(EncodeLch8, DecodeLch8);

// Exact codes at the edges; fixed decoder scales (0.3921568627450981 is one ulp from 100.0 / 255, which a
// round trip cannot see; the hue starts at -pi written to ten decimals); and every code decodes and encodes
// back to itself, so a wrong scale, offset or rounding in either direction breaks some code of the sweep.
TEST(Encodings, EdgesScalesAndEveryCode) {
    struct Case { const Codec* codec; double in[3]; std::array<uint32_t, 3> out; const char* why; } cases[] = {
        {&kXyz16, {2.0, -0.1, 1.0}, {65535, 0, 32768}, "clip both ends; 1.0 is 0x8000"},
        {&kXyz16, {kNaN, 0.5, 1.999969482421875}, {0, 16384, 65535}, "NaN codes 0; top code exact"},
        {&kLab16, {100, 127.9, -200}, {65535, 65510, 0}, "a, b clip at 127.99609375 not 127"},
        {&kLab16, {50, 0, 127.99609375}, {32768, 32768, 65535}, "L 50 rounds half up"},
        {&kLch16, {0, 300, std::numbers::pi}, {0, 65535, 65535}, "+pi is the last code, never 0"},
        {&kLch16, {-5, 1, -std::numbers::pi}, {0, 256, 0}, "-pi is code 0"},
        {&kLch16, {100, 0, 0}, {65535, 0, 32768}, "hue 0 is half a turn"},
        {&kXyz8, {2.0, 1.0, -1}, {255, 128, 0}, "unsigned 1.7"},
        {&kLab8, {100, 127.9, -129}, {255, 255, 0}, "8-bit a, b clip at 127"},
        {&kLab8, {50, 0.4, -0.6}, {127, 128, 127}, "50 x 2.55 falls just below 127.5"},
        {&kLab8, {60, 0, 0}, {153, 128, 128}, "L 60 is exactly 153"},
        {&kLch8, {0, 300, std::numbers::pi}, {0, 255, 255}, "+pi is code 255"},
        {&kLch8, {kNaN, 10.5, -std::numbers::pi}, {0, 11, 0}, "NaN codes 0"},
    };
    for (const Case& c : cases) {
        std::array<uint32_t, 3> out;
        c.codec->encode(c.in, out.data());
        EXPECT_EQ(out, c.out) << c.why;
    }
    struct Scale { const Codec* codec; int k; double out; } scales[] = {
        {&kLab16, 0, 0.0015259021896696422}, {&kLch16, 0, 0.0015259021896696422},
        {&kLch16, 2, 9.58737992401123e-5 - 3.1415926535}, {&kLab8, 0, 0.3921568627450981},
        {&kLch8, 0, 0.3921568627450981}, {&kLch8, 2, 0.02454369260546875 - 3.1415926535},
    };
    for (const Scale& c : scales) {
        const uint32_t one[3] = {1, 1, 1};
        double out[3];
        c.codec->decode(one, out);
        EXPECT_EQ(out[c.k], c.out) << &c - scales;
    }
    for (const Codec* codec : {&kXyz16, &kLab16, &kLch16, &kXyz8, &kLab8, &kLch8})
        for (uint32_t v = 0; v <= codec->top; ++v) {
            const uint32_t code[3] = {v, v, v};
            uint32_t back[3];
            double decoded[3];
            codec->decode(code, decoded), codec->encode(decoded, back);
            for (int k = 0; k < 3; ++k) ASSERT_EQ(back[k], v) << "code " << v << " component " << k;
        }
}

TEST(Positions, CurvesSplitsLookupsAndGridIndexTables) {
    uint16_t rising[] = {0, 65535}, falling[] = {65535, 0}, steps[] = {100, 4000, 3000, 60000};
    ValueBuffer r{2, 0, rising}, f{2, 0, falling}, s{4, 0, steps};
    struct Curve { const ValueBuffer* t; uint32_t shift, denom, round; uint16_t x, out; const char* why; } curves[] = {
        {&r, 16, 65535, 32768, 65535, 65535, "x = denom, denom + 1 = 2^shift: last entry exactly"},
        {&r, 16, 65535, 32768, 32768, 32768, "midpoint"},
        {&f, 16, 65535, 32768, 1, 65534, "falling segment rounds like a signed lerp"},
        {&s, 16, 65535, 32768, 21845, 4000, "x on an inner node"},
        {&s, 12, 4095, 2048, 4095, 60000, "12-bit input reaches the top"},
        {&s, 12, 4095, 2048, 2048, 3500, "falling middle segment at 12-bit floors"},
    };
    for (const Curve& c : curves)
        EXPECT_EQ(uint16_t(CurveLookup16(c.t, c.shift, c.denom, c.round, c.x)), c.out) << c.why;
    struct Split { uint16_t last, x; uint32_t shift, denom, round; uint16_t index; uint32_t fraction; } splits[] = {
        {255, 65535, 16, 65535, 32768, 254, 65536},  // top: last cell, fraction 1.0
        {15, 0x3FF, 10, 1023, 512, 14, 1024},        // low-justified 10-bit top
        {3, 32768, 16, 65535, 32768, 1, ((uint32_t(3 * 32768 - 65535) << 16) + 32768) / 65535},
    };
    for (const Split& c : splits) {
        uint16_t index;
        uint32_t fraction;
        SplitPosition(c.last, c.x, c.shift, c.denom, c.round, &index, &fraction);
        EXPECT_EQ(std::pair(index, fraction), std::pair(c.index, c.fraction)) << c.last;
    }
    // Locating in a grid, and 16-bit table lookups.
    uint32_t cell, fraction, cell0, fraction0;
    LocateInGrid(31, 65535, 16, 65535, 32768, &cell, &fraction);
    LocateInGrid(31, 0, 16, 65535, 32768, &cell0, &fraction0);
    EXPECT_EQ(std::tuple(cell, fraction, cell0, fraction0), std::tuple(30u, 0x10000u, 0u, 0u));  // top: last cell, 1.0
    uint16_t bumpy[3] = {1000, 50000, 20};
    const ValueBuffer b{3, 0, bumpy};
    struct Lookup { const ValueBuffer* table; uint32_t value; uint16_t expected; const char* why; } lookups[] = {
        {&r, 32768, 32768, "midpoint rising"},
        {&f, 32768, 32767, "value 32768 is fraction 32769; falling rounds as a floor"},
        {&f, 65535, 0, "top of a falling table"},
        {&b, 65535, 20, "last entry exactly"},
        {&b, 32768, 49999, "just past the middle node, falling"},
    };
    for (const Lookup& c : lookups) EXPECT_EQ(InterpolateTable16(c.table, c.value), c.expected) << c.why;
    // Grid index tables: position in cells, 16.16, rounded (+2048 is just under half of 4095).
    for (uint32_t points : {2u, 16u, 32u, 33u, 256u}) {
        ValueBuffer tables[2] = {};
        uint16_t status = 0;
        ASSERT_EQ(BuildGridIndexTables(&status, tables, points), 1);
        const uint16_t* cell = U16(tables[0]);
        const uint32_t* fraction = U32(tables[1]);
        ASSERT_EQ(tables[0].count + tables[1].count, 2 * 4096u);
        EXPECT_EQ(std::tuple(cell[0], fraction[0], cell[4095], fraction[4095], status),
                  std::tuple(0, 0u, points - 2, 0x10000u, 0)) << "top: last cell";
        for (uint32_t i = 0; i < 4096; ++i) {
            const double exact = double(i) * (points - 1) / 4095.0 * 65536.0;
            ASSERT_LE(std::fabs(cell[i] * 65536.0 + fraction[i] - exact), 0.5 + 1.0 / 4095) << points << " " << i;
            ASSERT_LE(fraction[i], 0x10000u);
        }
        FreeValueBuffer(&tables[0]), FreeValueBuffer(&tables[1]);
    }
}

// Axes a..n-1 around `at`, the last axis first, each step u + (((v - u) f + half) >> bits) per channel: 8-bit
// floored with f in 8.8, 16-bit modulo 2^16 with f in 16.16. Independent of the packed forms.
template <typename T>
uint32_t Fold(const T* t, uint32_t n, uint32_t a, size_t at, const uint32_t* f, const uint32_t* s) {
    if (a == n) return t[at];
    const uint32_t u = Fold(t, n, a + 1, at, f, s), v = Fold(t, n, a + 1, at + s[a], f, s);
    if (sizeof(T) == 1) return uint32_t(int(u) + ((int(v - u) * int(f[a]) + 128) >> 8));
    return (u + (((v - u) * f[a] + 32768) >> 16)) & 0xFFFF;
}

TEST(Interpolation, EightAndSixteenBitEqualTheFold) {
    std::mt19937 rng(12345);
    auto pick = [&](uint32_t n) { return uint32_t(rng() % n); };
    for (int round = 0; round < 4000; ++round) {
        const uint32_t points = 2 + pick(4), outputs = 1 + pick(4), axes = 3 + pick(2);
        uint32_t stride[4], size = outputs, cell[4], f8[4], f16[4];
        uint16_t index[4];
        for (uint32_t a = axes; a-- > 0; size *= points) stride[a] = size;
        std::vector<uint8_t> t8(size);
        std::vector<uint16_t> t16(size);
        for (uint32_t e = 0, r; e < size; ++e)  // extremes often: 0 / full scale neighbours make the largest borrows
            r = pick(3), t8[e] = uint8_t(r ? pick(256) : pick(2) * 255), t16[e] = uint16_t(r ? rng() : pick(2) * 65535);
        size_t at = 0;
        for (uint32_t a = 0, r; a < axes; at += cell[a] * stride[a], ++a) {
            r = pick(5), index[a] = uint16_t(cell[a] = pick(points - 1));
            f8[a] = r == 0 ? 0 : r == 1 ? 256 : pick(257);
            f16[a] = r == 0 ? 0 : r == 1 ? 0x10000 : pick(0x10001);
        }
        uint8_t out8[4];
        uint16_t out16[4];
        const ValueBuffer b16{size, 0, t16.data()};
        (axes == 3 ? InterpolateTrilinear8 : InterpolateQuadrilinear8)(t8.data(), outputs, cell, f8, stride, out8);
        (axes == 3 ? InterpolateTrilinear16 : InterpolateQuadrilinear16)(&b16, outputs, index, f16, stride, out16);
        for (uint32_t k = 0; k < outputs; ++k) {
            ASSERT_EQ(out8[k], Fold(t8.data(), axes, 0, at + k, f8, stride)) << round << " channel " << k;
            ASSERT_EQ(out16[k], Fold(t16.data(), axes, 0, at + k, f16, stride)) << round << " channel " << k;
        }
    }
    // 0 -> 65535 and 65535 -> 0 at fraction 32768 both give 32768: the falling step floors the signed value.
    uint16_t extremes[8] = {0, 65535, 0, 65535, 65535, 0, 65535, 0}, index[3] = {0, 0, 0}, out;
    const ValueBuffer b{8, 0, extremes};
    for (uint32_t first : {0u, 0x10000u}) {
        const uint32_t fraction[3] = {first, 0, 32768}, stride[3] = {4, 2, 1};
        InterpolateTrilinear16(&b, 1, index, fraction, stride, &out);
        EXPECT_EQ(out, 32768) << first;
    }
}

// A record with identity input curves, ready for the simplex step.
Record SimplexRecord(uint8_t inputs, uint8_t outputs) {
    Record t(CreateMethod0Transform(), &DestroyMethod0Transform);
    t->inputChannels = inputs, t->outputChannels = outputs;
    ValueBuffer curves[4]{};
    for (ValueBuffer& c : curves)
        if (AllocBytes(&c, 256)) for (int v = 0; v < 256; ++v) Bytes(c)[v] = uint8_t(v);
    EXPECT_EQ(BuildSimplexTables(t.get(), curves), 1);
    for (ValueBuffer& c : curves) FreeValueBuffer(&c);
    return t;
}

// Cells and fractions per code. Simplex corners: with 3 inputs each fraction pairs with its own stride; with
// 4, record (f0..f3) sorts (f3, f2, f1, f0) against (s0, s1, s2, s3), the mirror.
TEST(Method0, CellFractionAndSimplexTables) {
    DestroyMethod0Transform(nullptr);
    struct Cell { uint32_t points, code, cell, fraction; } cells[] = {
        {33, 0, 0, 0}, {33, 8, 1, 1}, {33, 128, 16, 16},  // s = 256: 1/255 past node 1; ((4096 - 4080) 256 + 128) / 255
        {33, 255, 31, 256}, {17, 255, 15, 256}, {256, 255, 254, 256},  // top code: last cell, full fraction
        {2, 128, 0, 129}, {256, 100, 100, 0}, {1, 0, 0, 0},  // one node per code; refused: one point has no cell
    };
    for (const Cell& c : cells) {
        ValueBuffer cell{}, fraction{};
        uint16_t status = 0;
        const int ok = BuildCellFraction8(&status, c.points, &cell, &fraction);
        EXPECT_EQ(std::tuple(ok, ok ? Bytes(cell)[c.code] : 0, ok ? U16(fraction)[c.code] : 0),
                  std::tuple(c.points > 1 ? 1 : 0, int(c.cell), int(c.fraction))) << c.points << " " << c.code;
        FreeValueBuffer(&cell), FreeValueBuffer(&fraction);
    }
    Record three = SimplexRecord(3, 3), four = SimplexRecord(4, 3), four4 = SimplexRecord(4, 4);
    ASSERT_TRUE(three->simplex3 && !three->simplex4 && four->simplex4 && !four->simplex3);
    EXPECT_EQ(std::pair(three->farCorner3, four->farCorner4), std::pair(3267u + 99 + 3, 14739u + 867 + 51 + 3));
    const uint32_t s0 = 14739, s1 = 867, s2 = 51, s3 = 3, t0 = 3267, t1 = 99, t2 = 3;
    struct Case { int n; uint32_t f[4]; uint32_t corner[3]; uint8_t w[4]; } cases[] = {
        {3, {3, 5, 1}, {t1, t1 + t0}, {5, 3, 1}},                        // plain descending order
        {3, {0, 8, 8}, {t1, t1 + t2}, {8, 8, 0}},                        // tie: axis 1 before axis 2
        {3, {4, 4, 4}, {t0, t0 + t1}, {4, 4, 4}},                        // full tie keeps channel order
        {3, {0, 0, 8}, {t2, t2 + t0}, {8, 0, 0}},                        // zeros after the one, lower first
        {4, {16, 0, 0, 0}, {s3, s3 + s0, s3 + s0 + s1}, {16, 0, 0, 0}},  // channel 0's fraction moves s3
        {4, {0, 0, 0, 5}, {s0, s0 + s1, s0 + s1 + s2}, {5, 0, 0, 0}},    // channel 3's fraction moves s0
        {4, {1, 2, 3, 4}, {s0, s0 + s1, s0 + s1 + s2}, {4, 3, 2, 1}},    // mirrored: ascending looks sorted
        {4, {4, 3, 2, 1}, {s3, s3 + s2, s3 + s2 + s1}, {4, 3, 2, 1}},
        {4, {7, 7, 7, 7}, {s0, s0 + s1, s0 + s1 + s2}, {7, 7, 7, 7}},    // full tie: position order
        {4, {0, 9, 9, 0}, {s1, s1 + s2, s1 + s2 + s0}, {9, 9, 0, 0}},    // tie in the middle, lower first
        {4, {2, 9, 0, 9}, {s0, s0 + s2, s0 + s2 + s3}, {9, 9, 2, 0}},
    };
    for (const Case& c : cases) {
        const Simplex3& r3 = three->simplex3[c.f[0] * 81 + c.f[1] * 9 + c.f[2]];
        const Simplex4& r4 = four->simplex4[((c.f[0] * 17 + c.f[1]) * 17 + c.f[2]) * 17 + c.f[3]];
        const uint32_t got[3] = {c.n == 3 ? r3.a : r4.a, c.n == 3 ? r3.b : r4.b, c.n == 3 ? 0u : r4.c};
        for (int i = 0; i < 3; ++i) EXPECT_EQ(got[i], c.corner[i]) << "case " << &c - cases;
        for (int i = 0; i < c.n; ++i) EXPECT_EQ(c.n == 3 ? r3.w[i] : r4.w[i], c.w[i]) << "case " << &c - cases;
    }
    struct Input { Method0Transform* t; int channel, code; uint32_t offset; uint16_t index; } inputs[] = {
        {three.get(), 0, 255, 31 * 3267, 8 * 81},  // w = 256: last cell, full fraction
        {three.get(), 2, 255, 31 * 3, 8},
        {three.get(), 1, 254, 31 * 99, 7 * 9},     // w = 255
        {three.get(), 0, 8, 1 * 3267, 0},          // w = 8: exactly node 1
        {three.get(), 2, 128, 16 * 3, 1},          // w = 129
        {four4.get(), 0, 255, 15 * 19652, 13072},  // 16 x 4913 = 78608 wraps mod 65536
        {four4.get(), 0, 14, 0, 3246},             // 14 x 4913 = 68782 wraps too
        {four4.get(), 0, 13, 0, 13 * 4913},        // the last part that fits
        {four4.get(), 3, 255, 15 * 4, 16},
        {four4.get(), 2, 240, 15 * 68, 1 * 17},    // w = 241
    };
    for (const Input& c : inputs) {
        const SimplexInput& r = c.t->simplexInput[c.channel][c.code];
        EXPECT_EQ(std::pair(r.offset, r.index), std::pair(c.offset, c.index)) << c.channel << " " << c.code;
    }
    uint32_t top = 0;  // the summed index of any pixel stays inside the table
    for (const SimplexInput* in : four4->simplexInput)
        top += std::max_element(in, in + 256, [](auto& x, auto& y) { return x.index < y.index; })->index;
    EXPECT_LT(top, 17u * 17 * 17 * 17);
}

// Whole grids against a plain evaluation: every node straight from the two profile models, step after step,
// with the axis-by-axis fold instead of the builder's packed form.
struct Table8 {  // a lut as the 8-bit sampling sees it
    std::vector<uint8_t> clut, in[4], out[4];
    uint32_t points = 0, outputs = 0, axes = 0, stride[4] = {};
    Table8() = default;
    Table8(const LutModel& lut, uint32_t n) : points(lut.gridPoints), outputs(lut.outputChannels), axes(n) {
        ValueBuffer b{};
        const auto take = [&b](int ok) {
            EXPECT_EQ(ok, 1);
            std::vector<uint8_t> v(Bytes(b), Bytes(b) + b.count);
            return FreeValueBuffer(&b), v;
        };
        clut = take(LutClut8(&lut, &b));
        for (int c = 0; c < lut.inputChannels; ++c) in[c] = take(LutInputTable8(&lut, c, &b));
        for (int c = 0; c < lut.outputChannels; ++c) out[c] = take(LutOutputTable8(&lut, c, &b));
        for (uint32_t a = axes, s = outputs; a-- > 0; s *= points) stride[a] = s;
    }
    void Interpolate(const uint8_t* code, uint8_t* result) const {
        uint32_t f[4];
        size_t at = 0;
        for (uint32_t a = 0; a < axes; ++a) {
            const uint32_t s = code[a] * (points - 1), cell = std::min(s / 255, points - 2);
            f[a] = ((s - 255 * cell) * 256 + 128) / 255;  // 256 in the last cell at code 255
            at += cell * stride[a];
        }
        for (uint32_t k = 0; k < outputs; ++k) result[k] = uint8_t(Fold(clut.data(), axes, 0, at + k, f, stride));
    }
};

void Mul(const double* m, const double* x, double* y) {
    for (int r = 0; r < 3; ++r) y[r] = m[3 * r] * x[0] + m[3 * r + 1] * x[1] + m[3 * r + 2] * x[2];
}
void ToXyz(uint32_t pcs, const double* w, const uint8_t* c, double* xyz) {
    double v[3];
    pcs == kSigLab ? DecodeLab8(c, v) : pcs == kSigLch ? DecodeLch8(c, v) : DecodeXyz8(c, xyz);
    if (pcs != kSigXyz) pcs == kSigLab ? LabToXyz(w, v, xyz) : LchToXyz(w, v, xyz);
}
void FromXyz(uint32_t pcs, const double* w, const double* xyz, uint8_t* c) {
    double v[3];
    if (pcs == kSigXyz) return EncodeXyz8(xyz, c);
    pcs == kSigLab ? (XyzToLab(w, xyz, v), EncodeLab8(v, c)) : (XyzToLch(w, xyz, v), EncodeLch8(v, c));
}

std::vector<uint8_t> PlainGrid(const ProfileModel& src, const ProfileModel& dst, bool absolute) {
    const double* white = src.illuminant;  // every Lab / LCh step uses the source illuminant
    const uint32_t sp = src.outputSpace, dp = dst.inputSpace;
    const bool srcLut = src.kind == kKindLut, dstLut = dst.kind == kKindLut;
    const uint32_t inputs = srcLut ? src.lut.inputChannels : src.kind == kKindGray ? 1 : 3;
    const uint32_t points = inputs == 1 ? 256 : inputs == 3 ? 33 : 17;
    const uint32_t outputs = dstLut ? dst.lut.outputChannels : dst.kind == kKindGray ? 1 : 3;
    // Table to table without the absolute flag, equal PCS or Lab / LCh: PCS codes without XYZ.
    const bool direct = srcLut && dstLut && !absolute && (sp == dp || (sp != kSigXyz && dp != kSigXyz));
    const Table8 st = srcLut ? Table8(src.lut, inputs) : Table8(), dt = dstLut ? Table8(dst.lut, 3) : Table8();
    std::vector<uint8_t> grid;
    for (uint32_t n = 0, nodes = inputs == 4 ? 17 * 17 * 17 * 17 : inputs == 3 ? 33 * 33 * 33 : 256; n < nodes; ++n) {
        uint32_t idx[4];
        for (uint32_t a = inputs, r = n; a-- > 0; r /= points) idx[a] = r % points;
        double xyz[3], v[3];
        uint8_t pcs[3], out[4], code[4], s[3];
        if (src.kind == kKindMatrixTrc) {
            const double level[3] = {idx[0] / 32.0, idx[1] / 32.0, idx[2] / 32.0};
            Mul(&src.matrix[0][0], level, xyz);
        } else if (srcLut) {
            for (uint32_t a = 0; a < inputs; ++a) code[a] = uint8_t((255 * idx[a] + points / 2) / (points - 1));
            st.Interpolate(code, out);
            for (int c = 0; c < 3; ++c) s[c] = st.out[c][out[c]];
            if (direct && sp == dp) std::copy(s, s + 3, pcs);
            else if (direct && sp == kSigLab) DecodeLab8(s, v), LabToLch(white, v, xyz), EncodeLch8(xyz, pcs);
            else if (direct) DecodeLch8(s, v), LchToLab(white, v, xyz), EncodeLab8(xyz, pcs);
            else ToXyz(sp, white, s, xyz);
        } else if (sp == kSigXyz) {  // grey: the level as Y of a 1.7 code, times the illuminant
            const uint8_t c[3] = {uint8_t(n), uint8_t(n), uint8_t(n)};
            DecodeXyz8(c, v);
            for (int k = 0; k < 3; ++k) xyz[k] = v[k] * white[k];
        } else {  // grey: the level as L of a neutral (a = b = 0, or C = 0)
            const uint8_t ab = sp == kSigLab ? 128 : 0, c[3] = {uint8_t(n), ab, ab};
            ToXyz(sp, white, c, xyz);
        }
        for (int k = 0; k < 3 && absolute; ++k) xyz[k] *= src.whitePoint[k] / dst.whitePoint[k];
        if (dst.kind != kKindMatrixTrc && !direct) FromXyz(dp, white, xyz, pcs);
        if (dst.kind == kKindMatrixTrc) Mul(&dst.matrix[0][0], xyz, v);
        for (int r = 0; r < 3 && dst.kind == kKindMatrixTrc; ++r)
            out[r] = uint8_t(TruncToInt(std::clamp(v[r], 0.0, 1.0) * 255 + 0.5));
        if (dst.kind == kKindGray) out[0] = dp == kSigXyz ? pcs[1] : pcs[0];
        if (dstLut) {
            for (int k = 0; k < 3; ++k) code[k] = dt.in[k][pcs[k]];
            if (dp == kSigXyz)  // the lut matrix after the input curves
                DecodeXyz8(code, v), Mul(dst.lut.matrix, v, xyz), EncodeXyz8(xyz, code);
            dt.Interpolate(code, out);
        }
        grid.insert(grid.end(), out, out + outputs);
    }
    return grid;
}

// Byte-for-byte grid, plus the record's shape: 33 points for three inputs,
// 17 for four, 256 for grey; curved grid = output curves over the grid.
void ExpectPlainGrid(const std::string& srcPath, const std::string& dstPath, uint16_t intent, bool refused) {
    SCOPED_TRACE(srcPath + " -> " + dstPath + " intent " + std::to_string(intent));
    ProfileModel src{}, dst{};
    Record t(CreateMethod0Transform(), &DestroyMethod0Transform);
    bool models = false;
    const int built = WithProfiles(srcPath, dstPath, [&](ProfileFile* a, ProfileFile* b) {
        models = BuildSourceModel(intent, a, &src) && BuildDestinationModel(intent, b, 0, &dst);
        return BuildMethod0Transform(t.get(), intent, a, b, 0);
    });
    EXPECT_EQ(built, models && !refused ? 1 : 0);  // e.g. a printer profile without the intent's table
    EXPECT_EQ(t->ready, built == 1 ? 1u : 0u);
    if (built == 1 && models) {
        const std::vector<uint8_t> want = PlainGrid(src, dst, intent == 3);
        const uint32_t in = t->inputChannels, out = t->outputChannels;
        EXPECT_EQ(std::tuple(t->gridPoints, t->strides[in - 1], t->absolute, !t->simplex3, !t->simplex4),
                  std::tuple(in == 1 ? 256 : in == 3 ? 33 : 17, out, intent == 3 ? 1u : 0u, in != 3, in != 4));
        ASSERT_EQ(t->grid.count + t->curvedGrid.count, 2 * want.size());
        const size_t first = std::mismatch(want.begin(), want.end(), Bytes(t->grid)).first - want.begin();
        EXPECT_EQ(first, want.size()) << "first difference at entry " << first;
        for (size_t e = 0; e < want.size(); ++e)
            ASSERT_EQ(U32(t->curvedGrid)[e], Bytes(t->outputCurves[e % out])[Bytes(t->grid)[e]]) << e;
        for (int v = 0; v < 256 && in == 1; ++v) {  // cell and fraction of the 256-point table at curve[code]
            const uint32_t u = Bytes(t->inputCurves[0])[v];
            EXPECT_EQ(std::pair(uint32_t(Bytes(t->monoCell)[v]), uint32_t(U16(t->monoFraction)[v])),
                      std::pair(std::min(u, 254u), u == 255 ? 256u : 0u)) << v;
        }
    }
    ReleaseProfileModel(&src), ReleaseProfileModel(&dst);
}

TEST(Method0, GridsEqualPlainEvaluation) {
    icc::Primaries narrow, warm;  // primaries pulled halfway to white: sRGB's corners fall outside
    for (auto* p : {&narrow.red, &narrow.green, &narrow.blue})
        for (int i = 0; i < 3; ++i) (*p)[i] = 0.5 * (*p)[i] + 0.5 * narrow.white[i] / 3;
    warm.white = {0.9, 1.0, 0.7};
    const icc::Lut id = icc::IdentityLut(3, 9, 256);
    const Unusable u = MakeUnusable();
    const std::string r = test::RealProfile(""), gs = r + "ghostscript/", srgb = r + "sRGB.icc", gray = r + "Gray.icc";
    const std::string cmyk = gs + "default_cmyk.icc", xcmyk = gs + "ps_cmyk.icc", lgray = r + "Gray-CIE_L.icc";
    const std::string lab = LutFile("RGB ", kSigLab, id, false), lch = LutFile("RGB ", kSigLch, id);
    const std::string xyz = LutFile("RGB ", kSigXyz, id, false);
    const std::string lchGray = File(icc::GrayProfile(1.8, kSigLch));
    struct Case { std::string src, dst; bool refused = false; } cases[] = {
        {srgb, r + "compatibleWithAdobeRGB1998.icc"},                                  // matrix -> matrix
        {File(icc::MatrixTrcGammaProfile({}, 2.2)), File(icc::MatrixTrcGammaProfile(narrow, 1.8))},  // clips
        {srgb, File(icc::MatrixTrcGammaProfile(warm, 1.8))},                           // media whites differ
        {srgb, cmyk}, {srgb, xcmyk},                     // matrix -> Lab table, XYZ table with lut matrix
        {srgb, gray}, {lch, lgray},                      // -> grey: Y code, L code (from LCh)
        {cmyk, srgb}, {gs + "lab.icc", srgb},            // 4-D and 3-D table -> matrix
        {xcmyk, cmyk}, {cmyk, xcmyk}, {cmyk, cmyk},      // XYZ -> Lab, Lab -> XYZ tables, equal PCS: codes pass
        {lch, lab}, {lab, lch}, {xyz, lch}, {lch, xyz},  // the direct PCS conversions with LCh
        {gray, srgb}, {lgray, cmyk}, {gray, lgray},      // grey sources: XYZ, Lab
        {lchGray, lab}, {lab, lchGray},                  // LCh grey source and destination
        {u.twoInputs, lab, true}, {lab, u.twoInputs, true}, {u.onePoint, lab, true}, {lab, u.onePoint, true},
        {lab, u.oneEntry, true}, {lab, u.fourInputs, true}, {u.bare, lab, true}, {lab, u.bare, true},
    };
    for (const Case& c : cases)
        for (uint16_t intent : {0, 3}) ExpectPlainGrid(c.src, c.dst, intent, c.refused);  // absolute: white ratios
}

// 16-bit level of node k in a grid of p points, and a lookup in an n-entry 16-bit table.
uint32_t Level(uint32_t k, uint32_t p) { return (k * 65535 + p / 2) / (p - 1); }
uint32_t Lookup16(uint16_t* t, uint32_t n, uint32_t v) { ValueBuffer b{n, 0, t}; return InterpolateTable16(&b, v); }
constexpr uint32_t kAny = 1u << 20;  // an expected value that is not checked

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
    icc::Primaries unit{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}}, brighter = unit, d50;
    brighter.white = {2, 2, 2};
    d50.blue = {0.1430, 0.0606, 0.7139};  // primaries that add up to D50: a neutral comes out as R = G = B
    const auto matrix = [](const icc::Primaries& p) { return File(icc::MatrixTrcGammaProfile(p, 1.0)); };
    const std::string xyz9 = LutFile("RGB ", kSigXyz, icc::IdentityLut(3, 9, 256));
    const std::string lab17 = LutFile("RGB ", kSigLab, icc::IdentityLut(3, 17, 256));
    const std::string lab9 = LutFile("RGB ", kSigLab, icc::IdentityLut(3, 9, 256), false);
    icc::ProfileWriter dim = icc::GrayProfile(1.0, kSigLab);
    dim.header.illuminant[1] = 0.5;  // a destination's own illuminant must not enter
    icc::Lut cmyk;  // 2 points; the first output falls with the fourth input, so the last axis matters
    cmyk.inputChannels = 4, cmyk.gridPoints = 2;
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
    const std::string xyzSrc = xyzLut(Sig4("RGB "), 1.0, true, false), xyzDst = xyzLut(Sig4("RGB "), 1.0, false, false);
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
    const std::string lin = matrix({}), r = test::RealProfile(""), srgb = r + "sRGB.icc";
    const std::string greyLab = File(icc::GrayProfile(1.0, kSigLab)), greyXyz = File(icc::GrayProfile(1.0, kSigXyz));
    const Unusable u = MakeUnusable();
    struct Case {
        std::string src, dst; uint16_t intent, kinds; uint8_t in, out; uint16_t points; Expected expected;
        int tolerance; const char* why;
    } cases[] = {
        {lin, lin, 1, 11, 3, 3, 32, level(32, 1), 1, "node i is i/31; matrix and inverse round-trip under a code"},
        {lin, lin, 3, 11, 3, 3, 32, level(32, 1), 1, "absolute, the same white on both sides changes nothing"},
        {matrix(unit), matrix(unit), 1, 11, 3, 3, 32, exact(1.0), 0, "exact: catches a missing + 0.5"},
        {matrix(unit), matrix(brighter), 0, 11, 3, 3, 32, exact(1.0), 0, "relative ignores the media whites"},
        {matrix(unit), matrix(brighter), 3, 11, 3, 3, 32, exact(0.5), 0, "absolute: x source / destination white"},
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
        TransformPtr t(CreateMethod1Transform(), &DestroyMethod1Transform);
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
