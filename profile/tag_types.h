// The four tag types the library reads: 'curv', 'XYZ ', 'mft1', 'mft2'.
#pragma once

#include <cstdint>

#include "profile/profile_file.h"
#include "profile/value_buffer.h"

namespace tintra3 {

constexpr uint32_t kTagWtpt = Sig("wtpt");
constexpr uint32_t kTagRTRC = Sig("rTRC");
constexpr uint32_t kTagGTRC = Sig("gTRC");
constexpr uint32_t kTagBTRC = Sig("bTRC");
constexpr uint32_t kTagKTRC = Sig("kTRC");
constexpr uint32_t kTagRXYZ = Sig("rXYZ");
constexpr uint32_t kTagGXYZ = Sig("gXYZ");
constexpr uint32_t kTagBXYZ = Sig("bXYZ");
constexpr uint32_t kTagA2B0 = Sig("A2B0");
constexpr uint32_t kTagA2B1 = Sig("A2B1");
constexpr uint32_t kTagA2B2 = Sig("A2B2");
constexpr uint32_t kTagB2A0 = Sig("B2A0");
constexpr uint32_t kTagB2A1 = Sig("B2A1");
constexpr uint32_t kTagB2A2 = Sig("B2A2");
constexpr uint32_t kTagGamt = Sig("gamt");

constexpr uint32_t kTypeCurv = Sig("curv");
constexpr uint32_t kTypeXyz = Sig("XYZ ");
constexpr uint32_t kTypeMft1 = Sig("mft1");
constexpr uint32_t kTypeMft2 = Sig("mft2");

struct CurveTag {
    ValueBuffer entries;  // u16, as stored
};

struct XyzArray {
    uint32_t count;
    uint32_t* values;  // count triples of raw s15Fixed16 (X, Y, Z)
    uint32_t owned;
};

struct Lut8Tag {
    uint8_t inputChannels;
    uint8_t outputChannels;
    uint8_t gridPoints;
    uint32_t matrix[9];  // raw s15Fixed16, row-major
    ValueBuffer inputTables;   // u8, inputChannels x 256
    ValueBuffer clut;          // u8, outputChannels x gridPoints^inputChannels
    ValueBuffer outputTables;  // u8, outputChannels x 256
    uint32_t ready;
};

struct Lut16Tag {
    uint8_t inputChannels;
    uint8_t outputChannels;
    uint8_t gridPoints;
    uint32_t matrix[9];
    uint16_t inputEntries;
    uint16_t outputEntries;
    ValueBuffer inputTables;   // u16, inputChannels x inputEntries
    ValueBuffer clut;          // u16
    ValueBuffer outputTables;  // u16, outputChannels x outputEntries
    uint32_t ready;
};

// Readers: 1 on success, 0 on wrong type, short read or allocation failure.
// Records must be zero-initialised (or cleared) before the call; release
// them with the Release* functions whatever the result.
int ReadCurveTag(ProfileFile* profile, int32_t index, CurveTag* curve);
int ReadXyzTag(ProfileFile* profile, int32_t index, XyzArray* array);
int ReadLut8Tag(ProfileFile* profile, int32_t index, Lut8Tag* lut);
int ReadLut16Tag(ProfileFile* profile, int32_t index, Lut16Tag* lut);
void ReleaseCurveTag(CurveTag* curve);
void ReleaseXyzArray(XyzArray* array);
void ReleaseLut8Tag(Lut8Tag* lut);
void ReleaseLut16Tag(Lut16Tag* lut);

// Curve tables (u16) for the builders.
int BuildForwardCurve(const CurveTag* curve, ValueBuffer* out, uint32_t size);
int BuildInverseCurve(const CurveTag* curve, ValueBuffer* out, uint32_t gammaSize, uint32_t tableSize);

}  // namespace tintra3
