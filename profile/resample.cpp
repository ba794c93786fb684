// Integer rescaling and linear resampling of one-dimensional u16 tables.
#include "profile/resample.h"

#include "profile/fixed_point.h"

namespace tintra3 {

namespace {

// Entry i of a source of n entries stretched over m results (m >= 2): the
// cell and remainder of i among n - 1 cells of m - 1 steps, rounded by + m/2
// before the division by m - 1. Everything is unsigned 32-bit, wrapping
// included: i(n-1) can only wrap when (m-1)(n-1) >= 2^32, and then
// cell <= (2^32-1)/(m-1) < n-1, so a wrapped position still indexes inside
// the table.
uint32_t Interpolate16(const uint16_t* c, uint32_t n, uint32_t m, uint32_t i) {
    const uint32_t span = m - 1;
    const CellPosition at = LocateCell(n - 1, i, span);
    return (WeightedSum(c[at.cell], c[at.cell + 1], at.remainder, span) + m / 2) / span;
}

// Common checks and allocation; 2 = go on, 1 = done (m == 0), 0 = failure.
template <typename Alloc>
int StartResample(const ValueBuffer* curve, uint32_t m, ValueBuffer* out, Alloc alloc) {
    out->count = 0;
    out->owned = 0;
    out->data = nullptr;
    if (m == 0) return alloc(out, 0u);  // an empty table is a result
    if (m == 1 || curve->count < 2) return 0;
    if (!alloc(out, m)) {
        out->count = 0;
        return 0;
    }
    return 2;
}

// m results of `curve` stretched linearly, each brought to T by `narrow`.
template <typename T, typename Alloc, typename Narrow>
int Resample(const ValueBuffer* curve, uint32_t m, ValueBuffer* out, Alloc alloc, Narrow narrow) {
    const int go = StartResample(curve, m, out, alloc);
    if (go != 2) return go;
    const uint16_t* c = U16(*curve);
    T* r = static_cast<T*>(out->data);
    for (uint32_t i = 0; i < m; ++i) r[i] = T(narrow(Interpolate16(c, curve->count, m, i)));
    return 1;
}

}  // namespace

void RescaleCurve(ValueBuffer* curve, uint32_t maximum, uint32_t range) {
    uint16_t* c = U16(*curve);
    for (uint32_t i = 0; i < curve->count; ++i) {
        // v * range / maximum, truncating; a zero maximum counts as an
        // infinite quotient and is capped like any other overflow.
        const uint32_t v = maximum != 0 ? uint32_t(c[i]) * range / maximum : range;
        c[i] = uint16_t(v >= range ? range - 1 : v);
    }
}

int ResampleCurve16(const ValueBuffer* curve, uint32_t m, ValueBuffer* out) {
    return Resample<uint16_t>(curve, m, out, AllocU16, [](uint32_t v) { return v; });
}

int ResampleCurve12(const ValueBuffer* curve, uint32_t m, ValueBuffer* out) {
    // 16-bit value to 12 bits: (v * 4095 + 32768) >> 16, 0..4095.
    return Resample<uint16_t>(curve, m, out, AllocU16, [](uint32_t v) { return (v * 4095 + 32768) >> 16; });
}

int ResampleCurve8(const ValueBuffer* curve, uint32_t m, ValueBuffer* out) {
    // 16-bit value to 8 bits: (v * 255 + 32768) >> 16.
    return Resample<uint8_t>(curve, m, out, AllocBytes, [](uint32_t v) { return (v * 255 + 32768) >> 16; });
}

int ResampleCurveTo256(const ValueBuffer* curve, ValueBuffer* out) {
    const int go = StartResample(curve, 256, out, AllocBytes);
    if (go != 2) return go;
    const uint16_t* c = U16(*curve);
    const uint32_t n = curve->count;
    uint8_t* r = Bytes(*out);
    for (uint32_t i = 0; i < 256; ++i) {
        const CellPosition at = LocateCell(n - 1, i, 255);  // wraps as above
        // A weighted sum of two 16-bit values over 255 steps, brought to
        // 8 bits by a rounded division by 65535 (that is 255 * 257).
        r[i] = uint8_t((WeightedSum(c[at.cell], c[at.cell + 1], at.remainder, 255) + 32768) / 65535);
    }
    return 1;
}

}  // namespace tintra3
