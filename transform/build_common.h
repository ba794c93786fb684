// What both builders share: the values they leave in a record's `status`
// field, the model kinds a record was built from, and the check that a
// lookup table's grid is as large as its shape says.
#pragma once

#include <cstdint>

#include "profile/fixed_point.h"
#include "profile/profile_model.h"
#include "profile/value_buffer.h"

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

// A fresh buffer of `count` elements of T (one, two or four bytes).
template <typename T>
int AllocTable(ValueBuffer* buffer, uint32_t count) {
    static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4);
    if constexpr (sizeof(T) == 1) return AllocBytes(buffer, count);
    if constexpr (sizeof(T) == 2) return AllocU16(buffer, count);
    return AllocU32(buffer, count);
}

// Cell and fraction tables over `count` levels of `scale` for a grid of
// `points` per axis. 1 on success; status kBuildStatusNoMemory and 0 when
// either table cannot be allocated.
template <typename Cell, typename Fraction>
int BuildCellTables(uint16_t* status, uint32_t points, uint32_t count, FixedScale scale, ValueBuffer* cells,
                    ValueBuffer* fractions) {
    if (!AllocTable<Cell>(cells, count) || !AllocTable<Fraction>(fractions, count)) {
        *status = kBuildStatusNoMemory;
        return 0;
    }
    LocateLevels(points, count, scale, static_cast<Cell*>(cells->data), static_cast<Fraction*>(fractions->data));
    return 1;
}

}  // namespace tintra3
