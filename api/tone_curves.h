// The C edge of the tone curves: the selector's checks and the public
// buffer records, in front of the curve operations of transform/.
#pragma once

#include <cstdint>

#include "api/exports.h"
#include "profile/value_buffer.h"

namespace tintra3 {

// The exported record and the library's own buffer carry the same three
// fields; only this edge converts between them.
inline ValueBuffer ToInternal(const ::ValueBuffer& b) { return ValueBuffer{b.count, b.owned, b.data}; }
inline ::ValueBuffer ToPublic(const ValueBuffer& b) { return ::ValueBuffer{b.count, b.owned, b.data}; }

// curves: buffers of u16 entries, the first `channels` (at most four) used;
// rescaled in place. side 0 input, 1 output. Returns 0, 2040 or 5000; 5000
// also when the selector holds no transform, and when the channel count or a
// curve it reads (fewer than two entries) falls short (nothing is changed).
uint32_t ChangeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                          ::ValueBuffer* curves);
uint32_t MergeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                         ::ValueBuffer* curves);

}  // namespace tintra3
