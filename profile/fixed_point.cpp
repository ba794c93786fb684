// Fixed-point steps shared by the resamplers, the builders and the tone curves.
#include "profile/fixed_point.h"

namespace tintra3 {

int32_t TruncToInt(double x) {
    // Exactly the doubles whose truncation fits in int32 lie strictly between
    // -2^31 - 1 and 2^31; everything else (and NaN, which fails both tests)
    // yields the "integer indefinite" value 0x80000000.
    if (x > -2147483649.0 && x < 2147483648.0) return static_cast<int32_t>(x);
    return INT32_MIN;
}

uint16_t InterpolateTable16(const uint16_t* table, uint32_t count, uint32_t value, FixedScale scale) {
    // A table needs two entries to have a segment.
    if (count < 2) return count == 1 ? table[0] : 0;
    const CellPosition at = LocateCell(count - 1, value, scale.fullScale);
    uint32_t cell = at.cell;
    // Values above full scale would step past the table: hold the last segment.
    if (cell + 1 >= count) cell = count - 2;
    const uint32_t a = table[cell];
    const uint32_t b = table[cell + 1];
    const uint32_t f = CellFraction(at.remainder, scale);
    // 32-bit wrap-around then 16-bit truncation: falling segments come out right.
    return uint16_t(a + (((b - a) * f + scale.round) >> scale.shift));
}

void InterpolateCell16(const uint16_t* grid, uint32_t outputs, uint32_t dims, const uint32_t* cell,
                       const uint32_t* fraction, const uint32_t* stride, uint16_t* out) {
    if (dims > 4) dims = 4;
    const uint32_t corners = 1u << dims;
    // Offset of each corner: bit d of the corner number steps along axis d.
    uint32_t offset[16];
    uint32_t origin = 0;
    for (uint32_t d = 0; d < dims; ++d) origin += cell[d] * stride[d];
    for (uint32_t k = 0; k < corners; ++k) {
        offset[k] = origin;
        for (uint32_t d = 0; d < dims; ++d)
            if (k & (1u << d)) offset[k] += stride[d];
    }
    for (uint32_t o = 0; o < outputs; ++o) {
        uint32_t v[16];
        for (uint32_t k = 0; k < corners; ++k) v[k] = grid[offset[k] + o];
        // Fold the last axis first: pairs (k, k + half) differ only in axis d.
        for (uint32_t d = dims; d-- > 0;) {
            const uint32_t half = 1u << d;
            const uint32_t f = fraction[d];
            for (uint32_t k = 0; k < half; ++k)
                v[k] = (v[k] + (((v[k + half] - v[k]) * f + 32768) >> 16)) & 0xFFFF;
        }
        out[o] = uint16_t(v[0]);
    }
}

void MultiplyMatrix3(const double m[9], const double in[3], double out[3]) {
    out[0] = m[0] * in[0] + m[1] * in[1] + m[2] * in[2];
    out[1] = m[3] * in[0] + m[4] * in[1] + m[5] * in[2];
    out[2] = m[6] * in[0] + m[7] * in[1] + m[8] * in[2];
}

}  // namespace tintra3
