// Value buffers: allocation, copy and release of the library's tables.
#include "profile/value_buffer.h"

#include <cstring>

#include "profile/allocator.h"

namespace tintra3 {

namespace {

// Shared by the three allocators: `count` elements of `width` bytes. The
// byte count is formed in 64 bits so that a u32 count times 4 cannot wrap.
int AllocElements(ValueBuffer* buffer, uint32_t count, size_t width) {
    buffer->count = count;
    buffer->data = nullptr;
    if (count == 0) return 1;  // empty is a valid buffer; `owned` untouched
    const uint64_t bytes = uint64_t(count) * width;
    if (bytes > SIZE_MAX) {
        buffer->owned = 0;
        return 0;
    }
    buffer->data = Allocate(size_t(bytes));
    buffer->owned = buffer->data != nullptr ? 1 : 0;
    return buffer->owned;
}

int CopyElements(const ValueBuffer* source, ValueBuffer* destination, size_t width) {
    if (!AllocElements(destination, source->count, width)) return 0;
    if (source->count != 0) std::memcpy(destination->data, source->data, size_t(source->count) * width);
    return 1;
}

}  // namespace

int AllocBytes(ValueBuffer* buffer, uint32_t count) { return AllocElements(buffer, count, 1); }
int AllocU16(ValueBuffer* buffer, uint32_t count) { return AllocElements(buffer, count, 2); }
int AllocU32(ValueBuffer* buffer, uint32_t count) { return AllocElements(buffer, count, 4); }

int CopyBytes(const ValueBuffer* source, ValueBuffer* destination) { return CopyElements(source, destination, 1); }
int CopyU16(const ValueBuffer* source, ValueBuffer* destination) { return CopyElements(source, destination, 2); }

void ClearValueBuffer(ValueBuffer* buffer) {
    buffer->count = 0;
    buffer->owned = 0;
    buffer->data = nullptr;
}

void FreeValueBuffer(ValueBuffer* buffer) {
    // An empty buffer never frees: its data is null after allocation.
    if (buffer->owned != 0 && buffer->count != 0) {
        Deallocate(buffer->data);
        buffer->data = nullptr;
    }
    buffer->count = 0;
    buffer->owned = 0;
}

}  // namespace tintra3
