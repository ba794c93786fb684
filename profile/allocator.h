// The one allocator of the library's build-time code (profile reading,
// transform building, tone curves, the interface records): every allocation
// and release goes through here, so that tests can fail any one of them and
// count what is still held. The pixel kernels never allocate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tintra3 {

// Uninitialised memory, or null on failure (also for an injected failure).
void* Allocate(size_t bytes);
// count x size bytes, zeroed; null when the product overflows or on failure.
void* AllocateZeroed(size_t count, size_t size);
// Releases what Allocate or AllocateZeroed returned; null is ignored.
void Deallocate(void* memory);

// count elements of T (uninitialised), null when count x sizeof(T) overflows.
template <typename T>
T* AllocateArray(size_t count) {
    if (count > SIZE_MAX / sizeof(T)) return nullptr;
    return static_cast<T*>(Allocate(count * sizeof(T)));
}

struct Deallocator {
    void operator()(void* memory) const { Deallocate(memory); }
};
// Memory from this allocator, released at scope exit unless released to a record.
template <typename T>
using Owned = std::unique_ptr<T, Deallocator>;

// A record released by its own release function at scope exit: tag records,
// profile models and value buffers that live only inside one call.
template <typename T, void (*ReleaseFn)(T*)>
class Scoped {
public:
    Scoped() = default;
    Scoped(const Scoped&) = delete;
    Scoped& operator=(const Scoped&) = delete;
    ~Scoped() { ReleaseFn(&value); }
    T* get() { return &value; }
    const T* get() const { return &value; }
    T value{};
};

namespace allocation_test {

// Makes the n-th allocation from now fail (1 = the next one); 0 disarms.
// Counting is process-wide: meant for single-threaded tests only.
void FailNth(uint64_t n);
// Whether the armed failure has happened since the last FailNth.
bool Failed();
// Allocations since the last FailNth (failed ones included).
uint64_t Count();
// Allocations not yet released, over the whole process.
int64_t Live();

}  // namespace allocation_test

}  // namespace tintra3
