// The largest inputs the profile reader accepts, each with its reason. Every
// count read from a file is held against these before anything is
// allocated for it; the file's own size is the tightest bound of all.
#pragma once

#include <cstdint>

#include "profile/profile_file.h"

namespace tintra3::limits {

// Tag offsets and sizes are u32: nothing beyond 4 GiB - 1 can be addressed,
// so no table can be larger than that, whatever the file's size.
constexpr uint64_t kMaxProfileBytes = UINT32_MAX;

// The directory follows the 128-byte header and its u32 count, 12 bytes an
// entry: its count can never exceed what the profile holds.
constexpr uint64_t kMaxTags = (kMaxProfileBytes - 132) / 12;

// 'curv': a u32 count of u16 entries after 12 bytes of prefix.
constexpr uint64_t kMaxCurveEntries = (kMaxProfileBytes - 12) / 2;

// A lut's CLUT is counted in u32 elements (grid points ^ inputs x outputs);
// a larger product is refused rather than wrapped.
constexpr uint64_t kMaxClutEntries = UINT32_MAX;

// A profile model holds at most four tables a side, and the kernels exist
// for 1, 3 and 4 channels: wider luts are unusable (the builders fall back
// to matrix/TRC).
constexpr uint32_t kMaxLutChannels = 4;

// Derived tables are at most 4096 entries a channel and the largest grid is
// 33^3 x 4 (method 0) or 32^3 x 4 / 16^4 x 4 (method 1): their sizes are
// fixed by the builders, never read from a file.
constexpr uint32_t kMaxDerivedTableEntries = 4096;

// Whether `bytes` bytes starting at `position` lie inside the file.
inline bool FitsInFile(const ProfileFile* profile, uint64_t position, uint64_t bytes) {
    const uint64_t left = profile->fileSize > position ? profile->fileSize - position : 0;
    return bytes <= left;
}

}  // namespace tintra3::limits
