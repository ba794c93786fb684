// Pixel kernels: one registry of every kernel, per instruction set.
//
// Every kernel converts lines x width pixels of one block through a built
// transform with integer arithmetic only. In-place conversion is the same
// kernel called with destination == source: each kernel reads all samples of
// a pixel (or of a group of pixels) before it writes any of their outputs.
//
// The same kernel bodies are compiled once per instruction set, each in its
// own unit with its own flags (isa_*.cpp); every variant gives the same bytes
// as the portable one. The set in use is chosen once, at first use, from the
// processor; TINTRA3_KERNELS=portable|sse2|avx2|neon asks for a lower one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "transform/transform_header.h"

namespace tintra3 {

enum class Isa : uint8_t { kPortable, kSse2, kAvx2, kNeon };
inline constexpr Isa kAllIsas[] = {Isa::kPortable, Isa::kSse2, Isa::kAvx2, Isa::kNeon};

const char* IsaName(Isa isa);
// Compiled into this library and runnable on this processor.
bool IsaSupported(Isa isa);
// The set the kernels run with: the best supported one, or the one
// TINTRA3_KERNELS names when that is supported and not better. Fixed at the
// first call.
Isa ActiveIsa();
// The choice ActiveIsa makes for a given request (null: none).
Isa ChooseIsa(const char* request);

// bitsIn: 8, 10, 12 or 16. inChannels and outChannels: the run's counts.
using Kernel = void (*)(const TransformHeader* t, const void* source, void* destination, uint32_t lines,
                        uint32_t width, uint16_t bitsIn, uint32_t inChannels, uint32_t outChannels);

// What picks a kernel. Interleaved kernels (layout 0) exist for 1, 3 and 4
// channels on each side; planar ones (layouts 1, 2) take any count and are
// keyed with channel counts 0.
struct KernelKey {
    uint8_t method;
    uint8_t bitsIn;
    uint8_t bitsOut;
    uint8_t inChannels;
    uint8_t outChannels;
    uint8_t layout;
    constexpr bool operator==(const KernelKey&) const = default;
};

inline constexpr uint8_t kKeyDepths[] = {8, 10, 12, 16};
inline constexpr uint8_t kKeyChannels[] = {1, 3, 4};
// Per method, depth and output depth: 9 interleaved channel pairs, 2 planar layouts.
inline constexpr size_t kKeysPerDepth = 9 + 2;
inline constexpr size_t kKernelCount = 2 * std::size(kKeyDepths) * 2 * kKeysPerDepth;

constexpr int DepthPosition(uint32_t bits) {
    return bits == 8 ? 0 : bits == 10 ? 1 : bits == 12 ? 2 : bits == 16 ? 3 : -1;
}

constexpr int ChannelPosition(uint32_t channels) {
    return channels == 1 ? 0 : channels == 3 ? 1 : channels == 4 ? 2 : -1;
}

// Place of a key in kKernelKeys, or -1 when no kernel has that key.
constexpr int KeyIndex(const KernelKey& k) {
    const int depth = DepthPosition(k.bitsIn);
    if (k.method > 1 || depth < 0 || (k.bitsOut != 8 && k.bitsOut != 16)) return -1;
    int slot = 0;
    if (k.layout == 0) {
        const int in = ChannelPosition(k.inChannels);
        const int out = ChannelPosition(k.outChannels);
        if (in < 0 || out < 0) return -1;
        slot = in * 3 + out;
    } else if (k.layout == 1 || k.layout == 2) {
        if (k.inChannels != 0 || k.outChannels != 0) return -1;
        slot = 8 + k.layout;
    } else {
        return -1;
    }
    return ((k.method * 4 + depth) * 2 + (k.bitsOut == 16 ? 1 : 0)) * int(kKeysPerDepth) + slot;
}

// The one list of kernels, in registry order.
constexpr std::array<KernelKey, kKernelCount> MakeKernelKeys() {
    std::array<KernelKey, kKernelCount> keys{};
    size_t i = 0;
    for (uint8_t method = 0; method < 2; ++method) {
        for (uint8_t bitsIn : kKeyDepths) {
            for (uint8_t bitsOut : {uint8_t(8), uint8_t(16)}) {
                for (uint8_t in : kKeyChannels) {
                    for (uint8_t out : kKeyChannels) keys[i++] = KernelKey{method, bitsIn, bitsOut, in, out, 0};
                }
                keys[i++] = KernelKey{method, bitsIn, bitsOut, 0, 0, 1};
                keys[i++] = KernelKey{method, bitsIn, bitsOut, 0, 0, 2};
            }
        }
    }
    return keys;
}

inline constexpr std::array<KernelKey, kKernelCount> kKernelKeys = MakeKernelKeys();

constexpr bool KeysAreIndexed() {
    for (size_t i = 0; i < kKernelCount; ++i) {
        if (KeyIndex(kKernelKeys[i]) != int(i)) return false;
    }
    return true;
}
static_assert(KeysAreIndexed(), "KeyIndex and the kernel list must agree");

using KernelTable = std::array<Kernel, kKernelCount>;

// From this many pixels on, a run with one input channel of 256 codes
// (method 0 at any depth, method 1 at 8 bits) converts through a table of
// them; below it the 256 interpolations cost more than they save.
inline constexpr uint32_t kMonoTableFrom = 1024;

// The kernel of a key for an instruction set; null when the key has none or
// the set is not compiled in. Planar keys are looked up with channels 0.
Kernel FindKernel(Isa isa, const KernelKey& key);
// The same for a run: planar layouts ignore the channel counts.
Kernel FindKernel(Isa isa, uint16_t method, uint16_t bitsIn, uint16_t bitsOut, uint32_t inChannels,
                  uint32_t outChannels, uint16_t layout);

struct Method1Transform;

// The five table accessors of method 1 (they honour the alternate-set switches).
const uint16_t* GetInputTable8(const Method1Transform* t, uint32_t channel);
const uint16_t* GetInputTable10(const Method1Transform* t, uint32_t channel);
const uint16_t* GetInputTable16(const Method1Transform* t, uint32_t channel);
const uint8_t* GetOutputTable8(const Method1Transform* t, uint32_t channel);
const uint16_t* GetOutputTable16(const Method1Transform* t, uint32_t channel);

}  // namespace tintra3
