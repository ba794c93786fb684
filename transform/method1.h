// The 16-bit precision transform record and its builder.
#pragma once

#include <cstdint>

#include "profile/profile_file.h"
#include "profile/value_buffer.h"

namespace tintra3 {

struct Method1Transform {
    uint32_t sourceSpace;
    uint32_t destinationSpace;
    uint8_t inputChannels;   // dispatch reads these two bytes
    uint8_t outputChannels;
    uint16_t gridPoints;
    uint32_t strides[4];
    uint16_t sourceKind;
    uint16_t destinationKind;
    uint16_t status;
    uint32_t absolute;
    ValueBuffer inputTable256[4];   // u16, 12-bit grid coordinates
    ValueBuffer inputTable1024[4];
    ValueBuffer inputTable4096[4];
    ValueBuffer altInputTable256[4];
    ValueBuffer altInputTable1024[4];
    ValueBuffer altInputTable4096[4];
    uint32_t useAltInputTables;
    ValueBuffer gridIndex;     // u16 x 4096
    ValueBuffer gridFraction;  // u32 x 4096, 16.16
    ValueBuffer outputTable8[4];   // u8 x 4096
    ValueBuffer outputTable16[4];  // u16 x 4096
    ValueBuffer altOutputTable8[4];
    ValueBuffer altOutputTable16[4];
    uint32_t useAltOutputTables;
    ValueBuffer clut;  // u16
    // 1 once fully built; 0 at creation, after a failed build and after a
    // failed tone-curve rebuild. The dispatch refuses a transform that is not ready.
    uint32_t ready;
};

Method1Transform* CreateMethod1Transform();
void DestroyMethod1Transform(Method1Transform* transform);
// 1 on success. intent is the builder's code (already remapped).
int BuildMethod1Transform(Method1Transform* transform, uint16_t intent, ProfileFile* source,
                          ProfileFile* destination, uint32_t gamut);

}  // namespace tintra3
