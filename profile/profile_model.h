// The in-memory model of one profile that both builders consume.
#pragma once

#include <cstdint>

#include "profile/profile_file.h"
#include "profile/value_buffer.h"

namespace tintra3 {

enum ModelKind : uint16_t { kKindMatrixTrc = 1, kKindLut = 2, kKindGray = 3 };

struct LutModel {
    uint8_t inputChannels;
    uint8_t outputChannels;
    uint8_t precision;  // 8 ('mft1') or 16 ('mft2')
    uint8_t gridPoints;
    uint32_t isGamut;
    ValueBuffer inputTables8[4];
    ValueBuffer outputTables8[4];
    ValueBuffer inputTables16[4];
    ValueBuffer outputTables16[4];
    double matrix[9];
    ValueBuffer clut8;
    ValueBuffer clut16;
};

struct ProfileModel {
    uint32_t inputSpace;
    uint32_t outputSpace;
    double illuminant[3];
    double whitePoint[3];
    uint16_t kind;
    uint16_t status;  // 0 ok, 1 tag missing/unusable, 4 table not built
    ValueBuffer trc[3];
    double matrix[3][3];
    LutModel lut;
    ValueBuffer grayTrc;
};

// Models must be zero-initialised before a build; release them with
// ReleaseProfileModel whatever the result.
int BuildSourceModel(uint16_t intent, ProfileFile* profile, ProfileModel* model);
int BuildDestinationModel(uint16_t intent, ProfileFile* profile, uint32_t gamut, ProfileModel* model);
void ReleaseProfileModel(ProfileModel* model);

// Table queries: each fills a fresh buffer the caller frees. 1 on success.
int LutInputTable16(const LutModel* lut, int channel, ValueBuffer* out);
int LutOutputTable16(const LutModel* lut, int channel, ValueBuffer* out);
int LutClut16(const LutModel* lut, ValueBuffer* out);
int LutInputTable8(const LutModel* lut, int channel, ValueBuffer* out);   // 256 u8
int LutOutputTable8(const LutModel* lut, int channel, ValueBuffer* out);  // 256 u8
int LutClut8(const LutModel* lut, ValueBuffer* out);
// 12-bit (0..4095) input table with 256, 1024 or 4096 entries from the 16-bit form.
int LutInputTable12(const LutModel* lut, int channel, uint32_t entries, ValueBuffer* out);
// 4096-entry output tables from the 16-bit form: u8 and u16.
int LutOutputTable8x4096(const LutModel* lut, int channel, ValueBuffer* out);
int LutOutputTable16x4096(const LutModel* lut, int channel, ValueBuffer* out);
// TRC curve c (kind 1) or the grey curve (kind 3, channel ignored):
int CurveTable12(const ProfileModel* model, int channel, uint32_t entries, ValueBuffer* out);  // u16 0..4095
int CurveTable8x4096(const ProfileModel* model, int channel, ValueBuffer* out);               // u8
int CurveTable16x4096(const ProfileModel* model, int channel, ValueBuffer* out);              // u16
int CurveTable8x256(const ProfileModel* model, int channel, ValueBuffer* out);                // u8

}  // namespace tintra3
