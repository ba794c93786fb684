// The 8-bit precision transform record and its builder.
#pragma once

#include <cstdint>

#include "profile/profile_file.h"
#include "profile/value_buffer.h"
#include "transform/transform_header.h"

namespace tintra3 {

// One simplex input record per 8-bit code and channel.
struct SimplexInput {
    uint32_t offset;  // grid offset of the cell origin along this channel (entries)
    uint16_t index;   // this channel's part of the simplex index (mod 65536)
    uint16_t unused;
};
static_assert(sizeof(SimplexInput) == 8);

struct Simplex3 {
    uint16_t a, b;   // corner offsets relative to the cell origin
    uint8_t w[3];    // fractions in descending order (eighths)
    uint8_t unused;
};
static_assert(sizeof(Simplex3) == 8);

struct Simplex4 {
    uint16_t a, b, c;
    uint8_t w[4];    // sixteenths
};
static_assert(sizeof(Simplex4) == 10);

// The header (channel counts, method, ready flag, kernel layout) comes first.
struct Method0Transform : TransformHeader {
    uint32_t sourceSpace;
    uint32_t destinationSpace;
    uint16_t gridPoints;
    uint32_t strides[4];
    uint16_t sourceKind;
    uint16_t destinationKind;
    uint16_t status;
    uint32_t absolute;
    ValueBuffer monoCell;      // u8 x 256
    ValueBuffer monoFraction;  // u16 x 256, 8.8
    SimplexInput* simplexInput[4];  // 256 records each, owned
    Simplex3* simplex3;  // 9^3 records, owned
    uint32_t farCorner3;
    Simplex4* simplex4;  // 17^4 records, owned
    uint32_t farCorner4;
    ValueBuffer inputCurves[4];   // u8 x 256
    ValueBuffer grid;             // u8
    ValueBuffer outputCurves[4];  // u8 x 256
    ValueBuffer curvedGrid;       // u32
};

Method0Transform* CreateMethod0Transform();
void DestroyMethod0Transform(Method0Transform* transform);
int BuildMethod0Transform(Method0Transform* transform, uint16_t intent, ProfileFile* source,
                          ProfileFile* destination, uint32_t gamut);

// Shared steps, also run by the tone-curve operations with curves of their own.
// curves: one 256-entry u8 table per input channel (transform->inputChannels).
// Allocates the simplex input tables and the simplex table for the record's
// channel count and grid points. 1 on success; status 4 on allocation failure.
int BuildSimplexTables(Method0Transform* transform, const ValueBuffer* curves);
// Monochrome cell and fraction tables from a 256-entry u8 curve, for the
// record's grid points. 1 on success; status 4 on allocation failure.
int BuildMonoTables(Method0Transform* transform, const ValueBuffer* curve);
// 8-bit cell (u8) and 8.8 fraction (u16) tables for p grid points, 256 entries.
int BuildCellFraction8(uint16_t* status, uint32_t points, ValueBuffer* cell, ValueBuffer* fraction);
void FreeSimplexTables(Method0Transform* transform);
// Derives the kernel layout from the simplex tables and the curved grid.
// Called after the build and after every tone-curve change of either; never
// fails (without memory the layout is simply not usable).
void BuildMethod0KernelLayout(Method0Transform* transform);

// Interpolation in an 8-bit table at 8.8 fractions (256 = 1.0), last axis
// first, each step u + (((v - u) f + 128) >> 8) floored; two lanes per word.
// Strides and cells count table entries; `outputs` values per node.
void InterpolateTrilinear8(const uint8_t* table, uint32_t outputs, const uint32_t cell[3], const uint32_t fraction[3],
                           const uint32_t stride[3], uint8_t* out);
void InterpolateQuadrilinear8(const uint8_t* table, uint32_t outputs, const uint32_t cell[4],
                              const uint32_t fraction[4], const uint32_t stride[4], uint8_t* out);

}  // namespace tintra3
