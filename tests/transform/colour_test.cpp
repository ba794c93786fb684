// Colour conversions, PCS encodings and the integer interpolation helpers.
#include "transform/colour.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace tintra3 {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
const double kD50[3] = {0.9642, 1.0, 0.8249};

TEST(TruncToInt, MatchesTheX86ConversionWithoutUndefinedBehaviour) {
    struct Case {
        double in;
        int32_t out;
    } cases[] = {
        {0.0, 0},
        {-0.9, 0},                          // truncates toward zero
        {65535.5, 65535},
        {2147483647.9, INT32_MAX},          // largest value that still fits
        {2147483648.0, INT32_MIN},          // 2^31 is out of range
        {-2147483648.9, INT32_MIN},         // truncates to -2^31, which fits
        {-2147483649.0, INT32_MIN},         // below range
        {1e300, INT32_MIN},
        {kInf, INT32_MIN},
        {-kInf, INT32_MIN},
        {kNaN, INT32_MIN},                  // NaN codes as 0 once masked to 16 bits
    };
    for (const Case& c : cases) EXPECT_EQ(TruncToInt(c.in), c.out) << c.in;
}

TEST(Conversions, EdgesOfTheLabFormulas) {
    double out[3];
    // The white itself is L = 100, a = b = 0 exactly.
    XyzToLab(kD50, kD50, out);
    EXPECT_EQ(out[0], 100.0);
    EXPECT_EQ(out[1], 0.0);
    EXPECT_EQ(out[2], 0.0);

    // y exactly at the threshold takes the linear branch.
    const double unit[3] = {1, 1, 1};
    const double atThreshold[3] = {0.008856, 0.008856, 0.008856};
    XyzToLab(unit, atThreshold, out);
    EXPECT_EQ(out[0], 903.3 * 0.008856);
    EXPECT_EQ(out[1], 0.0);

    // L at the inverse threshold: linear, Y = L / 903.3 (not fy cubed).
    const double lab[3] = {7.9996247999999985, 0, 0};
    LabToXyz(unit, lab, out);
    EXPECT_EQ(out[1], 7.9996247999999985 * 0.0011070519207350825);

    // a chosen so that fx is exactly 0.2068927064827586: still the linear
    // inverse (the cube would give 0.0088559578...).
    const double onEdge[3] = {0, 34.480836, 0};
    LabToXyz(unit, onEdge, out);
    EXPECT_EQ(out[0], (0.2068927064827586 - 0.13793103448275862) * 0.1284191601386927);

    // Chroma clips to the 16-bit chroma code range; hue from unclipped a, b.
    const double wide[3] = {50, 300, 0};
    LabToLch(nullptr, wide, out);
    EXPECT_EQ(out[1], 255.99609375);
    EXPECT_EQ(out[2], 0.0);
}

TEST(Conversions, RoundTripsThroughBothBranches) {
    // Light, dark (linear branch) and saturated colours, including negative
    // components that only the linear branch can represent.
    const double samples[][3] = {{0.9642, 1.0, 0.8249}, {0.2, 0.3, 0.1},   {0.004, 0.005, 0.006},
                                 {0.0, 0.0, 0.0},       {0.4, 0.1, 0.6},  {-0.001, 0.003, 0.001},
                                 {1.5, 1.2, 0.01}};
    for (const auto& xyz : samples) {
        double lab[3], lch[3], back[3];
        XyzToLab(kD50, xyz, lab);
        LabToXyz(kD50, lab, back);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(back[c], xyz[c], 1e-12) << c;
        XyzToLch(kD50, xyz, lch);
        LchToXyz(kD50, lch, back);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(back[c], xyz[c], 1e-12) << c;
    }
}

TEST(Encodings, ClipAndRoundAtTheEdges) {
    struct Case16 {
        void (*encode)(const double*, uint16_t*);
        double in[3];
        uint16_t out[3];
        const char* why;
    } cases16[] = {
        {EncodeXyz16, {2.0, -0.1, 1.0}, {65535, 0, 32768}, "clip both ends; 1.0 is 0x8000"},
        {EncodeXyz16, {kNaN, 0.5, 1.999969482421875}, {0, 16384, 65535}, "NaN codes 0; top code exact"},
        {EncodeLab16, {100, 127.9, -200}, {65535, 65510, 0}, "a, b clip at 127.99609375 not 127"},
        {EncodeLab16, {50, 0, 127.99609375}, {32768, 32768, 65535}, "L 50 rounds half up"},
        {EncodeLch16, {0, 300, M_PI}, {0, 65535, 65535}, "+pi is the last code, never 0"},
        {EncodeLch16, {-5, 1, -M_PI}, {0, 256, 0}, "-pi is code 0"},
        {EncodeLch16, {100, 0, 0}, {65535, 0, 32768}, "hue 0 is half a turn"},
    };
    for (const Case16& c : cases16) {
        uint16_t out[3];
        c.encode(c.in, out);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k], c.out[k]) << c.why << " component " << k;
    }
    struct Case8 {
        void (*encode)(const double*, uint8_t*);
        double in[3];
        uint8_t out[3];
        const char* why;
    } cases8[] = {
        {EncodeXyz8, {2.0, 1.0, -1}, {255, 128, 0}, "unsigned 1.7"},
        {EncodeLab8, {100, 127.9, -129}, {255, 255, 0}, "8-bit a, b clip at 127"},
        {EncodeLab8, {50, 0.4, -0.6}, {127, 128, 127}, "50 x 2.55 falls just below 127.5"},
        {EncodeLab8, {60, 0, 0}, {153, 128, 128}, "L 60 is exactly 153"},
        {EncodeLch8, {0, 300, M_PI}, {0, 255, 255}, "+pi is code 255"},
        {EncodeLch8, {kNaN, 10.5, -M_PI}, {0, 11, 0}, "NaN codes 0"},
    };
    for (const Case8& c : cases8) {
        uint8_t out[3];
        c.encode(c.in, out);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(out[k], c.out[k]) << c.why << " component " << k;
    }
}

// The decoders scale by fixed constants; 0.3921568627450981 is one unit in
// the last place away from 100.0 / 255, which a round trip cannot see.
TEST(Encodings, DecodersUseTheirFixedScales) {
    const uint16_t code16[3] = {1, 1, 1};
    const uint8_t code8[3] = {1, 1, 1};
    double out[3];
    struct Case {
        double got, expected;
        const char* why;
    };
    DecodeLab16(code16, out);
    const Case lab16 = {out[0], 0.0015259021896696422, "16-bit Lab L"};
    DecodeLch16(code16, out);
    const Case lch16[] = {{out[0], 0.0015259021896696422, "16-bit LCh L"},
                          {out[2], 9.58737992401123e-5 - 3.1415926535, "16-bit hue from -pi to ten decimals"}};
    DecodeLab8(code8, out);
    const Case lab8 = {out[0], 0.3921568627450981, "8-bit Lab L, not 100.0 / 255"};
    DecodeLch8(code8, out);
    const Case lch8[] = {{out[0], 0.3921568627450981, "8-bit LCh L, not 100.0 / 255"},
                         {out[2], 0.02454369260546875 - 3.1415926535, "8-bit hue"}};
    for (const Case& c : {lab16, lch16[0], lch16[1], lab8, lch8[0], lch8[1]}) EXPECT_EQ(c.got, c.expected) << c.why;
}

// Every code decodes and encodes back to itself: a wrong scale, offset or
// rounding in either direction breaks some code of the sweep.
TEST(Encodings, EveryCodeRoundTrips) {
    using Enc16 = void (*)(const double*, uint16_t*);
    using Dec16 = void (*)(const uint16_t*, double*);
    const std::pair<Enc16, Dec16> pairs16[] = {
        {EncodeXyz16, DecodeXyz16}, {EncodeLab16, DecodeLab16}, {EncodeLch16, DecodeLch16}};
    for (const auto& [encode, decode] : pairs16) {
        for (uint32_t v = 0; v < 65536; ++v) {
            const uint16_t code[3] = {uint16_t(v), uint16_t(v), uint16_t(v)};
            double decoded[3];
            uint16_t back[3];
            decode(code, decoded);
            encode(decoded, back);
            // L codes above 65535 do not exist; L 100 is the top.
            for (int k = 0; k < 3; ++k) ASSERT_EQ(back[k], code[k]) << "code " << v << " component " << k;
        }
    }
    using Enc8 = void (*)(const double*, uint8_t*);
    using Dec8 = void (*)(const uint8_t*, double*);
    const std::pair<Enc8, Dec8> pairs8[] = {{EncodeXyz8, DecodeXyz8}, {EncodeLab8, DecodeLab8}, {EncodeLch8, DecodeLch8}};
    for (const auto& [encode, decode] : pairs8) {
        for (uint32_t v = 0; v < 256; ++v) {
            const uint8_t code[3] = {uint8_t(v), uint8_t(v), uint8_t(v)};
            double decoded[3];
            uint8_t back[3];
            decode(code, decoded);
            encode(decoded, back);
            for (int k = 0; k < 3; ++k) ASSERT_EQ(back[k], code[k]) << "code " << v << " component " << k;
        }
    }
}

TEST(CurveLookup16, EndsAndFallingSegments) {
    std::vector<uint16_t> rising = {0, 65535};
    std::vector<uint16_t> falling = {65535, 0};
    std::vector<uint16_t> steps = {100, 4000, 3000, 60000};
    ValueBuffer r{2, 0, rising.data()}, f{2, 0, falling.data()}, s{4, 0, steps.data()};
    struct Case {
        const ValueBuffer* curve;
        uint32_t shift, denom, round;
        uint16_t x;
        uint16_t expected;
        const char* why;
    } cases[] = {
        {&r, 16, 65535, 32768, 65535, 65535, "x = denom, denom + 1 = 2^shift: last entry exactly"},
        {&r, 16, 65535, 32768, 32768, 32768, "midpoint"},
        {&f, 16, 65535, 32768, 1, 65534, "falling segment rounds like a signed lerp"},
        {&s, 16, 65535, 32768, 21845, 4000, "x on an inner node"},
        {&s, 12, 4095, 2048, 4095, 60000, "12-bit input reaches the top"},
        {&s, 12, 4095, 2048, 2048, 3500, "falling middle segment at 12-bit floors"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(uint16_t(CurveLookup16(c.curve, c.shift, c.denom, c.round, c.x)), c.expected) << c.why;
}

TEST(SplitPosition, TopEndAndInterior) {
    uint16_t index;
    uint32_t fraction;
    SplitPosition(255, 65535, 16, 65535, 32768, &index, &fraction);
    EXPECT_EQ(index, 254);
    EXPECT_EQ(fraction, 65536u);
    SplitPosition(15, 0x3FF, 10, 1023, 512, &index, &fraction);  // low-justified 10-bit top
    EXPECT_EQ(index, 14);
    EXPECT_EQ(fraction, 1024u);
    SplitPosition(3, 32768, 16, 65535, 32768, &index, &fraction);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(fraction, ((uint32_t(3 * 32768 - 65535) << 16) + 32768) / 65535);
}

TEST(BuildGridIndexTables, CellsAndFractions) {
    for (uint32_t points : {2u, 16u, 32u, 33u, 256u}) {
        ValueBuffer tables[2] = {};
        uint16_t status = 0;
        ASSERT_EQ(BuildGridIndexTables(&status, tables, points), 1);
        const uint16_t* cell = U16(tables[0]);
        const uint32_t* fraction = U32(tables[1]);
        ASSERT_EQ(tables[0].count, 4096u);
        ASSERT_EQ(tables[1].count, 4096u);
        EXPECT_EQ(cell[0], 0);
        EXPECT_EQ(fraction[0], 0u);
        EXPECT_EQ(cell[4095], points - 2) << "top lands in the last cell";
        EXPECT_EQ(fraction[4095], 0x10000u);
        // Position in cells, 16.16: rounded (+2048 is just under half of 4095).
        for (uint32_t i = 0; i < 4096; ++i) {
            const double exact = double(i) * (points - 1) / 4095.0 * 65536.0;
            ASSERT_LE(std::fabs(cell[i] * 65536.0 + fraction[i] - exact), 0.5 + 1.0 / 4095) << points << " " << i;
            ASSERT_LE(fraction[i], 0x10000u);
        }
        EXPECT_EQ(status, 0);
        FreeValueBuffer(&tables[0]);
        FreeValueBuffer(&tables[1]);
    }
}

// The interpolators as the steps read: axis 2 (or 3) first, each step
// lerp(u, v, f) = u + (((v - u) f + 32768) >> 16) modulo 65536.
uint32_t Lerp(uint32_t u, uint32_t v, uint32_t f) { return (u + (((v - u) * f + 32768) >> 16)) & 0xFFFF; }

TEST(Interpolate, TrilinearAndQuadrilinearFoldTheLastAxisFirst) {
    std::mt19937 rng(7);
    std::vector<uint16_t> grid(4 * 4 * 4 * 4 * 2);
    for (auto& v : grid) v = uint16_t(rng());
    ValueBuffer buffer{uint32_t(grid.size()), 0, grid.data()};
    const uint32_t stride[4] = {128, 32, 8, 2};
    for (int trial = 0; trial < 500; ++trial) {
        uint16_t index[4];
        uint32_t fraction[4];
        for (int d = 0; d < 4; ++d) {
            index[d] = uint16_t(rng() % 3);
            fraction[d] = trial == 0 ? 0x10000 : rng() % 0x10001;
        }
        auto at = [&](int a, int b, int c, int d, int o) {
            return grid[(index[0] + a) * stride[0] + (index[1] + b) * stride[1] + (index[2] + c) * stride[2] +
                        (index[3] + d) * stride[3] + o];
        };
        auto at3 = [&](int a, int b, int c, int o) {
            return grid[(index[0] + a) * stride[0] + (index[1] + b) * stride[1] + (index[2] + c) * stride[2] + o];
        };
        uint16_t out4[2], out3[2];
        InterpolateQuadrilinear16(&buffer, 2, index, fraction, stride, out4);
        InterpolateTrilinear16(&buffer, 2, index, fraction, stride, out3);
        for (int o = 0; o < 2; ++o) {
            uint32_t v3[2][2], v2[2];
            for (int a = 0; a < 2; ++a)
                for (int b = 0; b < 2; ++b) {
                    uint32_t c0 = Lerp(at(a, b, 0, 0, o), at(a, b, 0, 1, o), fraction[3]);
                    uint32_t c1 = Lerp(at(a, b, 1, 0, o), at(a, b, 1, 1, o), fraction[3]);
                    v3[a][b] = Lerp(c0, c1, fraction[2]);
                }
            for (int a = 0; a < 2; ++a) v2[a] = Lerp(v3[a][0], v3[a][1], fraction[1]);
            EXPECT_EQ(out4[o], Lerp(v2[0], v2[1], fraction[0]));

            uint32_t t2[2][2], t1[2];
            for (int a = 0; a < 2; ++a)
                for (int b = 0; b < 2; ++b) t2[a][b] = Lerp(at3(a, b, 0, o), at3(a, b, 1, o), fraction[2]);
            for (int a = 0; a < 2; ++a) t1[a] = Lerp(t2[a][0], t2[a][1], fraction[1]);
            EXPECT_EQ(out3[o], Lerp(t1[0], t1[1], fraction[0]));
        }
    }
}

TEST(Interpolate, HalfwayBetweenTheExtremesIsMidScaleBothWays) {
    // 0 -> 65535 and 65535 -> 0 at fraction 32768 both give 32768: the
    // falling step rounds as a floor of the signed value.
    uint16_t grid[2 * 2 * 2] = {0, 65535, 0, 65535, 65535, 0, 65535, 0};
    ValueBuffer buffer{8, 0, grid};
    const uint16_t index[3] = {0, 0, 0};
    const uint32_t stride[3] = {4, 2, 1};
    uint16_t out;
    for (uint32_t first : {0u, 0x10000u}) {
        const uint32_t fraction[3] = {first, 0, 32768};
        InterpolateTrilinear16(&buffer, 1, index, fraction, stride, &out);
        EXPECT_EQ(out, 32768) << first;
    }
}

}  // namespace
}  // namespace tintra3
