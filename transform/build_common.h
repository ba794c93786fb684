// What both builders share: the values they leave in a record's `status`
// field, the model kinds a record was built from, and the check that a
// lookup table's grid is as large as its shape says.
#pragma once

#include <cstdint>

#include "profile/profile_model.h"

namespace tintra3 {

// The builders set only these two; the selector reports any other value as a
// failed build.
constexpr uint16_t kBuildStatusOk = 0;
constexpr uint16_t kBuildStatusNoMemory = 4;

// The builders' intent numbering: 0 perceptual, 1 relative colorimetric,
// 2 saturation, 3 absolute colorimetric. Only the last reaches the grid
// differently (media-white scaling); the others choose tags.
constexpr uint16_t kBuilderIntentAbsolute = 3;

// The record's kind fields hold a ModelKind; a monochrome source has a single
// grid axis and a single input curve.
inline bool IsGrayKind(uint16_t kind) { return kind == kKindGray; }
inline bool IsKnownKind(uint16_t kind) { return kind == kKindMatrixTrc || kind == kKindLut || kind == kKindGray; }

// A grid of `points` per axis over `axes` axes with `outputs` values a node
// fits in `count` entries, with a real cell (two points) and an output at
// least. The reader checks a table against the file; this is what the
// sampling relies on before it interpolates.
inline bool ClutCovers(uint32_t points, uint32_t axes, uint32_t outputs, uint32_t count) {
    if (points < 2 || outputs < 1) return false;
    uint64_t needed = outputs;
    for (uint32_t a = 0; a < axes; ++a) needed *= points;
    return count >= needed;
}

}  // namespace tintra3
