// One-dimensional tone curves applied to a built transform.
#pragma once

#include <cstdint>

#include "api/exports.h"

namespace tintra3 {

// curves: four buffers of u16 entries, the first `channels` used; rescaled
// in place. side 0 input, 1 output. Returns 0, 2040 or 5000; 5000 also
// when the selector holds no transform, and when the channel count or a
// curve it reads (fewer than two entries) falls short (nothing is changed).
uint32_t ChangeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                          ValueBuffer* curves);
uint32_t MergeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                         ValueBuffer* curves);

}  // namespace tintra3
