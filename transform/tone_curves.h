// One-dimensional tone curves bent into a built transform, and the curves a
// caller describes by kind (identity, gamma, table).
#pragma once

#include <cstdint>

#include "profile/value_buffer.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {

// Top of a curve's scale for its bit depth: 10 -> 1023, 12 -> 4095,
// 16 -> 65535, anything else 255.
uint32_t CurveMaximumForBits(uint16_t bits);

// Fills the first `channels` (at most four) buffers: kind 0 identity (0 and
// maximum), 1 gamma (1024 samples, data[c][0] = 8.8 gamma), n >= 2 a copy of
// the n entries of data[c]. 1 on success, 0 when an allocation or a missing
// data pointer stops it; the buffers filled so far stay filled.
int MakeToneCurves(uint32_t kind, uint16_t channels, const uint16_t* const data[4], uint32_t maximum,
                   ValueBuffer curves[4]);

enum class ToneOperation { kChange, kMerge };

// Change puts the curves in place of a side's own (side 0 input, 1 output),
// Merge composes them after them. curves: the first `channels` (at most four)
// used, entries on 0 .. maximum, rescaled in place. False when the transform
// refuses them (channel count or a curve it reads falls short, or an input
// rebuild of method 0 failed, which also marks the record not ready).
// Method 1 takes any side above 1 as nothing to do; method 0 only sides 0 and 1.
bool ApplyToneCurves(Method1Transform* t, ToneOperation op, uint16_t side, uint32_t maximum, uint32_t channels,
                     ValueBuffer* curves);
bool ApplyToneCurves(Method0Transform* t, ToneOperation op, uint16_t side, uint32_t maximum, uint32_t channels,
                     ValueBuffer* curves);

}  // namespace tintra3
