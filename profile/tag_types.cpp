// The four tag types read from a profile ('curv', 'XYZ ', 'mft1', 'mft2')
// and the forward and inverted 16-bit curves built from a 'curv'.
#include "profile/tag_types.h"

#include <cmath>

#include "profile/allocator.h"
#include "profile/limits.h"
#include "profile/stream.h"

namespace tintra3 {

namespace {

// Every count read from a tag is held against the file (limits::FitsInFile)
// before anything is allocated for it: a count the file cannot hold would end
// in a short read, so failing early fails the same way without a huge
// allocation.
using limits::FitsInFile;

// Tables are read in blocks rather than value by value; the result is the
// same as ReadU8/ReadU16BE per value, first short read failing the whole.
int ReadByteTable(ProfileFile* profile, uint8_t* out, uint32_t count) {
    if (count == 0) return 1;
    return std::fread(out, 1, count, profile->stream) == count ? 1 : 0;
}

int ReadU16Table(ProfileFile* profile, uint16_t* out, uint32_t count) {
    uint8_t block[4096];
    while (count != 0) {
        const uint32_t n = count < sizeof(block) / 2 ? count : uint32_t(sizeof(block) / 2);
        if (std::fread(block, 2, n, profile->stream) != n) return 0;
        for (uint32_t i = 0; i < n; ++i) out[i] = uint16_t((block[2 * i] << 8) | block[2 * i + 1]);
        out += n;
        count -= n;
    }
    return 1;
}

// Peeks the type of entry `index`, requires `expected`, then re-reads the
// signature from the element's first byte and skips the 4 reserved bytes.
// On success `start` holds the element's file offset.
int EnterElement(ProfileFile* profile, int32_t index, uint32_t expected, uint64_t* start) {
    uint32_t type = 0;
    if (!PeekTagType(profile, index, &type) || type != expected) return 0;
    *start = profile->tags.entries[index].offset;
    if (!ReadU32BE(profile->stream, &type) || type != expected) return 0;
    return SkipBytes(profile->stream, 4);
}

// gridPoints^inputChannels * outputChannels, or 0 when it exceeds the limit.
uint32_t ClutEntries(uint8_t inputChannels, uint8_t outputChannels, uint8_t gridPoints) {
    uint64_t n = outputChannels;
    for (uint8_t i = 0; i < inputChannels; ++i) {
        n *= gridPoints;
        if (n > limits::kMaxClutEntries) return 0;
    }
    return uint32_t(n);
}

int ReadLutPrefix(ProfileFile* profile, uint8_t* in, uint8_t* out, uint8_t* grid, uint32_t* matrix) {
    if (!ReadU8(profile->stream, in) || !ReadU8(profile->stream, out) || !ReadU8(profile->stream, grid)) return 0;
    SkipBytes(profile->stream, 1);  // pad
    for (int i = 0; i < 9; ++i)
        if (!ReadU32BE(profile->stream, &matrix[i])) return 0;
    return 1;
}

// A double in [0, 2^31) truncated toward zero, kept to 16 bits as a 16-bit
// store of a 32-bit integer would. Outside the 32-bit range the integer is the
// "indefinite" value 0x80000000, whose low half is 0.
uint16_t TruncToU16(double v) {
    if (!(v > -2147483649.0) || v >= 2147483648.0) return 0;
    return uint16_t(int32_t(v));
}

}  // namespace

int ReadCurveTag(ProfileFile* profile, int32_t index, CurveTag* curve) {
    uint64_t start = 0;
    if (!EnterElement(profile, index, kTypeCurv, &start)) return 0;
    uint32_t count = 0;
    if (!ReadU32BE(profile->stream, &count)) return 0;
    if (!FitsInFile(profile, start + 12, uint64_t(count) * 2)) return 0;
    if (!AllocU16(&curve->entries, count)) return 0;
    return ReadU16Table(profile, U16(curve->entries), count);
}

int ReadXyzTag(ProfileFile* profile, int32_t index, XyzArray* array) {
    uint64_t start = 0;
    if (!EnterElement(profile, index, kTypeXyz, &start)) return 0;
    // Sized from the directory: (size - 8) / 12 in unsigned 32-bit arithmetic.
    const uint32_t count = (profile->tags.entries[index].size - 8) / 12;
    if (!FitsInFile(profile, start + 8, uint64_t(count) * 12)) return 0;
    array->count = count;
    array->values = nullptr;
    if (count != 0) {
        array->values = AllocateArray<uint32_t>(size_t(count) * 3);
        if (array->values == nullptr) {
            array->count = 0;
            return 0;
        }
    }
    array->owned = 1;
    for (uint32_t i = 0; i < count * 3; ++i)
        if (!ReadU32BE(profile->stream, &array->values[i])) return 0;
    return 1;
}

int ReadLut8Tag(ProfileFile* profile, int32_t index, Lut8Tag* lut) {
    uint64_t start = 0;
    if (!EnterElement(profile, index, kTypeMft1, &start)) return 0;
    if (!ReadLutPrefix(profile, &lut->inputChannels, &lut->outputChannels, &lut->gridPoints, lut->matrix)) return 0;
    const uint32_t inputBytes = uint32_t(lut->inputChannels) * 256;
    const uint32_t outputBytes = uint32_t(lut->outputChannels) * 256;
    const uint32_t clutBytes = ClutEntries(lut->inputChannels, lut->outputChannels, lut->gridPoints);
    if (clutBytes == 0 && lut->outputChannels != 0 && lut->gridPoints != 0) return 0;  // beyond 32 bits
    if (!FitsInFile(profile, start + 48, uint64_t(inputBytes) + clutBytes + outputBytes)) return 0;
    if (!AllocBytes(&lut->inputTables, inputBytes) || !AllocBytes(&lut->clut, clutBytes) ||
        !AllocBytes(&lut->outputTables, outputBytes))
        return 0;
    lut->ready = 1;
    return ReadByteTable(profile, Bytes(lut->inputTables), inputBytes) &&
           ReadByteTable(profile, Bytes(lut->clut), clutBytes) &&
           ReadByteTable(profile, Bytes(lut->outputTables), outputBytes);
}

int ReadLut16Tag(ProfileFile* profile, int32_t index, Lut16Tag* lut) {
    uint64_t start = 0;
    if (!EnterElement(profile, index, kTypeMft2, &start)) return 0;
    if (!ReadLutPrefix(profile, &lut->inputChannels, &lut->outputChannels, &lut->gridPoints, lut->matrix)) return 0;
    if (!ReadU16BE(profile->stream, &lut->inputEntries) || !ReadU16BE(profile->stream, &lut->outputEntries)) return 0;
    const uint32_t inputCount = uint32_t(lut->inputChannels) * lut->inputEntries;
    const uint32_t outputCount = uint32_t(lut->outputChannels) * lut->outputEntries;
    const uint32_t clutCount = ClutEntries(lut->inputChannels, lut->outputChannels, lut->gridPoints);
    if (clutCount == 0 && lut->outputChannels != 0 && lut->gridPoints != 0) return 0;  // beyond 32 bits
    if (!FitsInFile(profile, start + 52, (uint64_t(inputCount) + clutCount + outputCount) * 2)) return 0;
    if (!AllocU16(&lut->inputTables, inputCount) || !AllocU16(&lut->clut, clutCount) ||
        !AllocU16(&lut->outputTables, outputCount))
        return 0;
    lut->ready = 1;
    return ReadU16Table(profile, U16(lut->inputTables), inputCount) &&
           ReadU16Table(profile, U16(lut->clut), clutCount) &&
           ReadU16Table(profile, U16(lut->outputTables), outputCount);
}

void ReleaseCurveTag(CurveTag* curve) { FreeValueBuffer(&curve->entries); }

void ReleaseXyzArray(XyzArray* array) {
    if (array->owned != 0 && array->values != nullptr) Deallocate(array->values);
    array->values = nullptr;
    array->owned = 0;
}

void ReleaseLut8Tag(Lut8Tag* lut) {
    FreeValueBuffer(&lut->inputTables);
    FreeValueBuffer(&lut->clut);
    FreeValueBuffer(&lut->outputTables);
    lut->ready = 0;
}

void ReleaseLut16Tag(Lut16Tag* lut) {
    FreeValueBuffer(&lut->inputTables);
    FreeValueBuffer(&lut->clut);
    FreeValueBuffer(&lut->outputTables);
    lut->ready = 0;
}

namespace {

double CurveGamma(const CurveTag* curve) {
    // u8Fixed8: the stored value / 256.
    if (curve->entries.count == 0) return 0.0;
    return double(U16(curve->entries)[0]) * (1.0 / 256.0);
}

// `size` entries of trunc(0.5 + x^exponent * 65535), x stepping from 0 by
// 1 / (size - 1). The step is accumulated, not recomputed from the index.
int BuildPowerTable(double exponent, ValueBuffer* out, uint32_t size) {
    if (!AllocU16(out, size)) return 0;
    uint16_t* t = U16(*out);
    const double step = 1.0 / double(size - 1);
    double x = 0.0;
    for (uint32_t i = 0; i < size; ++i) {
        t[i] = TruncToU16(0.5 + std::pow(x, exponent) * 65535.0);
        x += step;
    }
    return 1;
}

int BuildIdentity2(ValueBuffer* out) {
    if (!AllocU16(out, 2)) return 0;
    U16(*out)[0] = 0;
    U16(*out)[1] = 65535;
    return 1;
}

}  // namespace

int BuildForwardCurve(const CurveTag* curve, ValueBuffer* out, uint32_t size) {
    const uint32_t n = curve->entries.count;
    if (n == 0) return BuildIdentity2(out);
    if (n == 1) return BuildPowerTable(CurveGamma(curve), out, size);  // 0^0 = 1: gamma 0 gives all 65535
    return CopyU16(&curve->entries, out);  // sampled: kept at its own length
}

int BuildInverseCurve(const CurveTag* curve, ValueBuffer* out, uint32_t gammaSize, uint32_t tableSize) {
    const uint32_t n = curve->entries.count;
    if (n == 0) return BuildIdentity2(out);
    if (n == 1) {
        const double g = CurveGamma(curve);
        if (g == 0.0) return 0;
        return BuildPowerTable(1.0 / g, out, gammaSize);
    }
    if (!AllocU16(out, tableSize)) return 0;
    if (tableSize == 0) return 1;
    const uint16_t* t = U16(curve->entries);
    uint16_t* r = U16(*out);
    const double step = 65535.0 / double(tableSize - 1);
    const double segments = double(n - 1);
    const double first = t[0];
    const double last = t[n - 1];
    if (t[0] <= t[n - 1]) {
        // Rising (or flat): walk y up, the segment j only ever advances.
        double y = 0.0;
        uint32_t j = 0;
        for (uint32_t i = 0; i < tableSize; ++i) {
            if (y <= first) {
                r[i] = 0;
            } else if (y >= last) {
                r[i] = 65535;
            } else {
                while (j < n - 2 && y > double(t[j + 1])) ++j;
                const double f = (y - t[j]) / (double(t[j + 1]) - double(t[j]));
                r[i] = TruncToU16(0.5 + (f * double(j + 1) + (1.0 - f) * double(j)) * 65535.0 / segments);
            }
            y += step;
        }
    } else {
        // Falling: written from the last entry down to entry 0, y walking
        // down from 65535, the segment k only ever lowered.
        double y = 65535.0;
        uint32_t k = n - 1;
        for (uint32_t i = tableSize; i-- > 0;) {
            if (y <= last) {
                r[i] = 65535;
            } else if (y >= first) {
                r[i] = 0;
            } else {
                while (k > 1 && y > double(t[k - 1])) --k;
                const double f = (y - t[k]) / (double(t[k - 1]) - double(t[k]));
                r[i] = TruncToU16(0.5 + (double(k - 1) * f + (1.0 - f) * double(k)) * 65535.0 / segments);
            }
            y -= step;
        }
    }
    return 1;
}

}  // namespace tintra3
