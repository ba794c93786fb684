// Fixed-point steps shared by the curve resamplers, the builders and the tone
// curves: a position split into a cell and a fraction, interpolation in a
// 16-bit table or grid, the truncating double-to-integer conversion and the
// 3x3 matrix product. Every result here is pinned by exact tables; change
// none of the arithmetic (order, wrap-around, rounding) without them.
#pragma once

#include <cstdint>

namespace tintra3 {

// Double to integer as the x86 conversion does: NaN or out of the signed
// 32-bit range gives 0x80000000. Use it for every double -> int step.
int32_t TruncToInt(double x);

// A scale of `fullScale` + 1 levels whose fractions are kept in `shift` bits,
// rounded by adding `round` before the division.
struct FixedScale {
    uint32_t shift;
    uint32_t fullScale;
    uint32_t round;
};

constexpr FixedScale kScale16 = {16, 65535, 32768};  // 16-bit levels, 16.16 fractions
constexpr FixedScale kScale12 = {16, 4095, 2048};    // 12-bit grid coordinates, 16.16 fractions
constexpr FixedScale kScale8 = {8, 255, 128};        // 8-bit codes, 8.8 fractions

// Where `value` (0 .. fullScale) falls among `last` + 1 evenly spread nodes:
// p = value x last (unsigned 32-bit, wrapping), cell = p / fullScale and the
// remainder p - cell x fullScale. The top (cell == last) is folded back into
// the last cell with the whole of it as remainder, so cell + 1 stays a node.
struct CellPosition {
    uint32_t cell;
    uint32_t remainder;
};

inline CellPosition LocateCell(uint32_t last, uint32_t value, uint32_t fullScale) {
    const uint32_t p = value * last;
    const uint32_t cell = p / fullScale;
    if (cell == last) return {last - 1, fullScale};
    return {cell, p - cell * fullScale};
}

// The remainder as a fraction of 2^shift, rounded; the top gives exactly
// 2^shift (1.0) since round < fullScale on every scale used.
inline uint32_t CellFraction(uint32_t remainder, FixedScale scale) {
    return ((remainder << scale.shift) + scale.round) / scale.fullScale;
}

// The cell and fraction of every level 0 .. count - 1 of `scale` among
// `points` nodes, stored narrowed to the tables' element types.
template <typename Cell, typename Fraction>
void LocateLevels(uint32_t points, uint32_t count, FixedScale scale, Cell* cells, Fraction* fractions) {
    for (uint32_t v = 0; v < count; ++v) {
        const CellPosition at = LocateCell(points - 1, v, scale.fullScale);
        cells[v] = static_cast<Cell>(at.cell);
        fractions[v] = static_cast<Fraction>(CellFraction(at.remainder, scale));
    }
}

// a x (span - f) + b x f: the weight of two neighbours `f` steps of `span`
// apart from a, in unsigned 32 bits.
inline uint32_t WeightedSum(uint32_t a, uint32_t b, uint32_t f, uint32_t span) { return a * (span - f) + b * f; }

// Linear interpolation in a u16 table of `count` entries at `value` on
// `scale`: a + (((b - a) f + round) >> shift) in unsigned 32 bits, kept to 16
// bits, so a falling segment comes out as the floored signed step. A table of
// one entry gives that entry, an empty one 0; values above full scale hold
// the last segment.
uint16_t InterpolateTable16(const uint16_t* table, uint32_t count, uint32_t value, FixedScale scale);

// Multilinear interpolation in a u16 grid cell of `dims` (1..4) axes, last
// axis first, each step u + (((v - u) f + 32768) >> 16) kept to 16 bits;
// fractions 16.16 (0x10000 = the far node), cells and strides in entries.
void InterpolateCell16(const uint16_t* grid, uint32_t outputs, uint32_t dims, const uint32_t* cell,
                       const uint32_t* fraction, const uint32_t* stride, uint16_t* out);

// Row-major 3x3 matrix times a column, each row summed left to right.
void MultiplyMatrix3(const double m[9], const double in[3], double out[3]);

}  // namespace tintra3
