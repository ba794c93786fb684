// The kernel registry: which instruction sets this build and this processor
// offer, the one chosen at first use, and the lookup of a kernel by key.
#include <cstdlib>
#include <cstring>

#include "kernels/isa_units.h"

namespace tintra3 {
namespace {

const KernelTable* TableOf(Isa isa) {
    switch (isa) {
        case Isa::kPortable: return PortableKernels();
        case Isa::kSse2: return Sse2Kernels();
        case Isa::kAvx2: return Avx2Kernels();
        case Isa::kNeon: return NeonKernels();
    }
    return nullptr;
}

bool ProcessorRuns(Isa isa) {
    switch (isa) {
        case Isa::kPortable: return true;
#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__))
        // The builtins also check that the system saves the wide registers.
        case Isa::kSse2: return __builtin_cpu_supports("sse2");
        case Isa::kAvx2: return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2") &&
                                __builtin_cpu_supports("fma");
#elif defined(_M_X64)
        case Isa::kSse2: return true;
#endif
#if defined(__aarch64__) || defined(_M_ARM64)
        case Isa::kNeon: return true;  // part of every AArch64 processor
#endif
        default: return false;
    }
}

}  // namespace

const char* IsaName(Isa isa) {
    switch (isa) {
        case Isa::kPortable: return "portable";
        case Isa::kSse2: return "sse2";
        case Isa::kAvx2: return "avx2";
        case Isa::kNeon: return "neon";
    }
    return "unknown";
}

bool IsaSupported(Isa isa) { return TableOf(isa) != nullptr && ProcessorRuns(isa); }

Isa ChooseIsa(const char* request) {
    Isa best = Isa::kPortable;
    for (Isa isa : kAllIsas) {
        if (IsaSupported(isa)) best = isa;
    }
    if (request == nullptr || *request == '\0') return best;
    // A request can only lower the choice; an unknown or unsupported name
    // leaves the best one.
    for (Isa isa : kAllIsas) {
        if (std::strcmp(request, IsaName(isa)) == 0 && IsaSupported(isa) && isa <= best) return isa;
    }
    return best;
}

Isa ActiveIsa() {
    static const Isa active = ChooseIsa(std::getenv("TINTRA3_KERNELS"));
    return active;
}

Kernel FindKernel(Isa isa, const KernelKey& key) {
    const int index = KeyIndex(key);
    const KernelTable* table = TableOf(isa);
    if (index < 0 || table == nullptr) return nullptr;
    return (*table)[size_t(index)];
}

Kernel FindKernel(Isa isa, uint16_t method, uint16_t bitsIn, uint16_t bitsOut, uint32_t inChannels,
                  uint32_t outChannels, uint16_t layout) {
    if (method > 1 || bitsIn > 255 || bitsOut > 255 || layout > 2) return nullptr;
    if (layout != 0) {
        inChannels = 0;
        outChannels = 0;
    }
    if (inChannels > 255 || outChannels > 255) return nullptr;
    return FindKernel(isa, KernelKey{uint8_t(method), uint8_t(bitsIn), uint8_t(bitsOut), uint8_t(inChannels),
                                     uint8_t(outChannels), uint8_t(layout)});
}

}  // namespace tintra3
