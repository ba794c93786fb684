// Integer rescaling and resampling of one-dimensional u16 tables.
#pragma once

#include <cstdint>

#include "profile/value_buffer.h"

namespace tintra3 {

// In place: v = v * range / maximum, results >= range become range - 1.
void RescaleCurve(ValueBuffer* curve, uint32_t maximum, uint32_t range);
// Fresh results; 1 on success, 0 on allocation failure or unusable input
// (m == 1, or a source of fewer than two entries). m == 0: empty, success.
int ResampleCurve16(const ValueBuffer* curve, uint32_t m, ValueBuffer* out);  // u16
int ResampleCurve12(const ValueBuffer* curve, uint32_t m, ValueBuffer* out);  // u16, 0..4095
int ResampleCurve8(const ValueBuffer* curve, uint32_t m, ValueBuffer* out);   // u8
int ResampleCurveTo256(const ValueBuffer* curve, ValueBuffer* out);           // u8, 256

}  // namespace tintra3
