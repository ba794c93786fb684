// Value buffers: the container of every table in the library.
#pragma once

#include <cstdint>

namespace tintra3 {

// A table: element count, owned flag, elements (u8, u16 or u32 as the
// allocating code knows). The exported record of the same shape is converted
// to this one at the C edge only.
struct ValueBuffer {
    uint32_t count;
    uint32_t owned;
    void* data;
};

// All return 1 on success, 0 on allocation failure. A count of 0 succeeds
// with data null and `owned` left as it was (callers clear buffers first).
int AllocBytes(ValueBuffer* buffer, uint32_t count);
int AllocU16(ValueBuffer* buffer, uint32_t count);
int AllocU32(ValueBuffer* buffer, uint32_t count);
int CopyBytes(const ValueBuffer* source, ValueBuffer* destination);
int CopyU16(const ValueBuffer* source, ValueBuffer* destination);
void ClearValueBuffer(ValueBuffer* buffer);
// Frees data only when owned and non-empty; then count = owned = 0.
void FreeValueBuffer(ValueBuffer* buffer);

inline uint8_t* Bytes(const ValueBuffer& b) { return static_cast<uint8_t*>(b.data); }
inline uint16_t* U16(const ValueBuffer& b) { return static_cast<uint16_t*>(b.data); }
inline uint32_t* U32(const ValueBuffer& b) { return static_cast<uint32_t*>(b.data); }

}  // namespace tintra3
