// Colour-space conversions, PCS encodings and the grid coordinate tables
// used while transforms are built.
#pragma once

#include <cstdint>

#include "profile/fixed_point.h"
#include "profile/value_buffer.h"

namespace tintra3 {

using Triple = double[3];

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

// Fills `index` (u16 cell indices) and `fraction` (u32 16.16 fractions),
// 4096 entries each, locating every 12-bit grid coordinate among `points`
// nodes; on allocation failure *status = kBuildStatusNoMemory and returns 0.
int BuildGridIndexTables(uint16_t* status, ValueBuffer* index, ValueBuffer* fraction, uint32_t points);

}  // namespace tintra3
