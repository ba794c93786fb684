// The build-time allocator: the standard library's allocate and free, with
// a countdown that fails one chosen allocation and a count of live blocks.
#include "profile/allocator.h"

#include <atomic>
#include <cstdlib>

namespace tintra3 {

namespace {

// 0: no failure armed. Otherwise the allocation that sees 1 here fails.
std::atomic<uint64_t> gCountdown{0};
std::atomic<uint64_t> gCount{0};
std::atomic<int64_t> gLive{0};
std::atomic<bool> gFailed{false};

bool InjectFailure() {
    gCount.fetch_add(1, std::memory_order_relaxed);
    uint64_t left = gCountdown.load(std::memory_order_relaxed);
    while (left != 0) {
        if (gCountdown.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
            if (left != 1) return false;
            gFailed.store(true, std::memory_order_relaxed);
            return true;
        }
    }
    return false;
}

void* Track(void* memory) {
    if (memory != nullptr) gLive.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

}  // namespace

void* Allocate(size_t bytes) {
    if (InjectFailure()) return nullptr;
    // malloc(0) may return null: ask for one byte so null always means failure.
    return Track(std::malloc(bytes != 0 ? bytes : 1));
}

void* AllocateZeroed(size_t count, size_t size) {
    if (size != 0 && count > SIZE_MAX / size) return nullptr;
    if (InjectFailure()) return nullptr;
    const size_t bytes = count * size;
    return Track(std::calloc(bytes != 0 ? bytes : 1, 1));
}

void Deallocate(void* memory) {
    if (memory == nullptr) return;
    gLive.fetch_sub(1, std::memory_order_relaxed);
    std::free(memory);
}

namespace allocation_test {

void FailNth(uint64_t n) {
    gCount.store(0, std::memory_order_relaxed);
    gFailed.store(false, std::memory_order_relaxed);
    gCountdown.store(n, std::memory_order_relaxed);
}

bool Failed() { return gFailed.load(std::memory_order_relaxed); }
uint64_t Count() { return gCount.load(std::memory_order_relaxed); }
int64_t Live() { return gLive.load(std::memory_order_relaxed); }

}  // namespace allocation_test

}  // namespace tintra3
