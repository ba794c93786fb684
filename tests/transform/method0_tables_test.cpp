// Method 0's index tables: cell and fraction per code, the simplex records
// (corner order and weights) and the per-channel simplex inputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "builder_fixtures.h"

namespace tintra3 {
namespace {

// A record with identity input curves, ready for the simplex step.
test::Method0Record SimplexRecord(uint8_t inputs, uint8_t outputs) {
    test::Method0Record t(CreateMethod0Transform(), &DestroyMethod0Transform);
    t->inputChannels = inputs;
    t->outputChannels = outputs;
    ValueBuffer curves[4]{};
    for (ValueBuffer& c : curves) {
        if (!AllocBytes(&c, 256)) continue;
        for (int v = 0; v < 256; ++v) Bytes(c)[v] = uint8_t(v);
    }
    EXPECT_EQ(BuildSimplexTables(t.get(), curves), 1);
    for (ValueBuffer& c : curves) FreeValueBuffer(&c);
    return t;
}

// Cells and fractions per code. Simplex corners: with 3 inputs each fraction pairs with its own stride; with
// 4, record (f0..f3) sorts (f3, f2, f1, f0) against (s0, s1, s2, s3), the mirror.
TEST(Method0, CellFractionAndSimplexTables) {
    DestroyMethod0Transform(nullptr);
    struct Cell {
        uint32_t points;
        uint32_t code;
        uint32_t cell;
        uint32_t fraction;
    };
    const Cell cells[] = {
        {33, 0, 0, 0},        // the bottom
        {33, 8, 1, 1},        // s = 256: 1/255 past node 1
        {33, 128, 16, 16},    // ((4096 - 4080) 256 + 128) / 255
        {33, 255, 31, 256},   // top code: last cell, full fraction
        {17, 255, 15, 256},
        {256, 255, 254, 256},
        {2, 128, 0, 129},     // two points: the fraction is the code, rounded
        {256, 100, 100, 0},   // one node per code
        {1, 0, 0, 0},         // refused: one point has no cell
    };
    for (const Cell& c : cells) {
        ValueBuffer cell{};
        ValueBuffer fraction{};
        uint16_t status = 0;
        const int ok = BuildCellFraction8(&status, c.points, &cell, &fraction);
        EXPECT_EQ(std::tuple(ok, ok ? Bytes(cell)[c.code] : 0, ok ? U16(fraction)[c.code] : 0),
                  std::tuple(c.points > 1 ? 1 : 0, int(c.cell), int(c.fraction))) << c.points << " " << c.code;
        FreeValueBuffer(&cell);
        FreeValueBuffer(&fraction);
    }
    const test::Method0Record three = SimplexRecord(3, 3);
    const test::Method0Record four = SimplexRecord(4, 3);
    const test::Method0Record four4 = SimplexRecord(4, 4);
    ASSERT_TRUE(three->simplex3 && !three->simplex4 && four->simplex4 && !four->simplex3);
    EXPECT_EQ(std::pair(three->farCorner3, four->farCorner4), std::pair(3267u + 99 + 3, 14739u + 867 + 51 + 3));
    const uint32_t s0 = 14739, s1 = 867, s2 = 51, s3 = 3, t0 = 3267, t1 = 99, t2 = 3;
    struct Case {
        int n;
        uint32_t f[4];
        uint32_t corner[3];
        uint8_t w[4];
    };
    const Case cases[] = {
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
    struct Input {
        Method0Transform* t;
        int channel;
        int code;
        uint32_t offset;
        uint16_t index;
    };
    const Input inputs[] = {
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

}  // namespace
}  // namespace tintra3
