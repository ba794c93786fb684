// The status codes that the library's lower layers report (0 is success).
// The top level translates them into its own 1xxx codes (api/toplevel.cpp).
#pragma once

#include <cstdint>

namespace tintra3 {

constexpr uint32_t kOk = 0;
constexpr uint32_t kNoMemory = 1000;          // transform record not allocated, or build status 4
constexpr uint32_t kNotInPlace = 1001;        // in-place: channel counts or depth classes differ
constexpr uint32_t kBufferTooSmall = 1002;    // the block does not fit bufferSize
constexpr uint32_t kTransformStatus2 = 2000;  // build status 2
constexpr uint32_t kTransformStatus3 = 2010;  // build status 3
constexpr uint32_t kBadBitsIn = 2020;         // not 8, 10, 12 or 16
constexpr uint32_t kBadBitsOut = 2021;        // not 8 or 16
constexpr uint32_t kBadLayout = 2030;         // not 0, 1 or 2
constexpr uint32_t kBadMethod = 2040;         // not 0 or 1 (curves: also a bad side with method 0)
constexpr uint32_t kBadIntent = 2050;         // above 3
constexpr uint32_t kCannotOpen = 3000;        // profile not opened, or header/directory not read
constexpr uint32_t kNotIcc = 3001;            // no 'acsp', or build status 1
constexpr uint32_t kBuildFailed = 5000;       // build or curve rebuild failed; unusable transform
constexpr uint32_t kBadArgument = 5001;       // toolbox argument null or out of range

}  // namespace tintra3
