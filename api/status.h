// The lower layers' status codes under the names the C++ sources use; the
// values and meanings come from api/status_table.h through the enum of
// api/exports.h.
#pragma once

#include <cstdint>

#include "api/exports.h"

namespace tintra3 {

constexpr uint32_t kOk = TINTRA_STATUS_OK;
constexpr uint32_t kNoMemory = TINTRA_STATUS_NO_MEMORY;
constexpr uint32_t kNotInPlace = TINTRA_STATUS_NOT_IN_PLACE;
constexpr uint32_t kBufferTooSmall = TINTRA_STATUS_BUFFER_TOO_SMALL;
constexpr uint32_t kBadBitsIn = TINTRA_STATUS_BAD_BITS_IN;
constexpr uint32_t kBadBitsOut = TINTRA_STATUS_BAD_BITS_OUT;
constexpr uint32_t kBadLayout = TINTRA_STATUS_BAD_LAYOUT;
constexpr uint32_t kBadMethod = TINTRA_STATUS_BAD_METHOD;
constexpr uint32_t kBadIntent = TINTRA_STATUS_BAD_INTENT;
constexpr uint32_t kCannotOpen = TINTRA_STATUS_CANNOT_OPEN;
constexpr uint32_t kNotIcc = TINTRA_STATUS_NOT_ICC;
constexpr uint32_t kBuildFailed = TINTRA_STATUS_BUILD_FAILED;
constexpr uint32_t kBadArgument = TINTRA_STATUS_BAD_ARGUMENT;

// One row of the table, for code that walks it (the top-level mapping, the
// tool's messages, the tests).
struct StatusRow {
    uint32_t code;
    uint32_t topLevelCode;
    const char* name;
    const char* layer;  // "" when nothing produces the code
    const char* meaning;
};

#define TINTRA3_STATUS_ROW(name, code, topLevel, layer, meaning) StatusRow{code, topLevel, #name, layer, meaning},
inline constexpr StatusRow kStatusRows[] = {TINTRA3_STATUS_TABLE(TINTRA3_STATUS_ROW)};
#undef TINTRA3_STATUS_ROW

// The row of `code`, or null for a code the library does not know.
constexpr const StatusRow* FindStatus(uint32_t code) {
    for (const StatusRow& row : kStatusRows)
        if (row.code == code) return &row;
    return nullptr;
}

// A code the top level reports of its own (as opposed to one it maps).
constexpr bool IsTopLevelCode(const StatusRow& row) { return row.code != 0 && row.code == row.topLevelCode; }

}  // namespace tintra3
