// Colour-space conversions, PCS encodings and integer interpolation helpers
// used while transforms are built.
#pragma once

#include <cstdint>

#include "profile/value_buffer.h"

namespace tintra3 {

using Triple = double[3];

// Double to integer as the x86 conversion does: NaN or out of the signed
// 32-bit range gives 0x80000000. Use it for every double -> int step.
int32_t TruncToInt(double x);

void XyzToLab(const double white[3], const double in[3], double out[3]);
void LabToXyz(const double white[3], const double in[3], double out[3]);
void LabToLch(const double white[3], const double in[3], double out[3]);
void LchToLab(const double white[3], const double in[3], double out[3]);
void XyzToLch(const double white[3], const double in[3], double out[3]);
void LchToXyz(const double white[3], const double in[3], double out[3]);

void EncodeXyz16(const double in[3], uint16_t out[3]);
void DecodeXyz16(const uint16_t in[3], double out[3]);
void EncodeLab16(const double in[3], uint16_t out[3]);
void DecodeLab16(const uint16_t in[3], double out[3]);
void EncodeLch16(const double in[3], uint16_t out[3]);
void DecodeLch16(const uint16_t in[3], double out[3]);
void EncodeXyz8(const double in[3], uint8_t out[3]);
void DecodeXyz8(const uint8_t in[3], double out[3]);
void EncodeLab8(const double in[3], uint8_t out[3]);
void DecodeLab8(const uint8_t in[3], double out[3]);
void EncodeLch8(const double in[3], uint8_t out[3]);
void DecodeLch8(const uint8_t in[3], double out[3]);

void SplitPosition(uint16_t last, uint16_t x, uint32_t shift, uint32_t denom, uint32_t round, uint16_t* index,
                   uint32_t* fraction);
uint32_t CurveLookup16(const ValueBuffer* curve, uint32_t shift, uint32_t denom, uint32_t round, uint16_t x);

// Fills target[0] (u16 cell indices) and target[1] (u32 16.16 fractions),
// 4096 entries each; on allocation failure *status = 4 and returns 0.
int BuildGridIndexTables(uint16_t* status, ValueBuffer target[2], uint32_t points);
// The same with the two tables given separately (index u16, fraction u32).
int BuildGridIndexTables(uint16_t* status, ValueBuffer* index, ValueBuffer* fraction, uint32_t points);

void InterpolateTrilinear16(const ValueBuffer* grid, uint8_t outputs, const uint16_t index[3],
                            const uint32_t fraction[3], const uint32_t stride[3], uint16_t* out);
void InterpolateQuadrilinear16(const ValueBuffer* grid, uint8_t outputs, const uint16_t index[4],
                               const uint32_t fraction[4], const uint32_t stride[4], uint16_t* out);
// Multilinear interpolation in a cell of `dims` (1..4) axes, last axis first,
// each step u + (((v - u) f + 32768) >> 16) kept to 16 bits.
void InterpolateCell16(const uint16_t* grid, uint8_t outputs, uint32_t dims, const uint32_t* cell,
                       const uint32_t* fraction, const uint32_t* stride, uint16_t* out);

}  // namespace tintra3
