// The registry's table for one instruction set: every key of kKernelKeys
// bound to its kernel from the bodies included before this file.
// TINTRA3_KERNEL_TABLE names the function that hands the table out.
#include <utility>

namespace tintra3 {
namespace {

template <KernelKey K>
void Run(const TransformHeader* header, const void* source, void* destination, uint32_t lines, uint32_t width,
         uint16_t bitsIn, uint32_t inChannels, uint32_t outChannels) {
    constexpr bool kOut16 = K.bitsOut == 16;
    if constexpr (K.method == 0) {
        const auto* t = static_cast<const Method0Transform*>(header);
        if constexpr (K.layout == 0) {
            Method0Interleaved<K.bitsIn != 8, kOut16, K.inChannels, K.outChannels>(t, source, destination, lines,
                                                                                     width);
        } else {
            Method0Planar<K.bitsIn != 8, kOut16, K.layout>(t, source, destination, lines, width, inChannels,
                                                            outChannels);
        }
    } else {
        const auto* t = static_cast<const Method1Transform*>(header);
        if constexpr (K.layout == 0) {
            Method1Interleaved<K.bitsIn, kOut16, K.inChannels, K.outChannels>(t, source, destination, lines, width);
        } else if constexpr (K.bitsIn == 8) {
            Method1Planar8<kOut16, K.layout>(t, source, destination, lines, width, bitsIn, inChannels, outChannels);
        } else {
            Method1PlanarDeep<kOut16, K.layout>(t, source, destination, lines, width, bitsIn, inChannels,
                                                outChannels);
        }
    }
}

template <size_t... I>
constexpr KernelTable MakeKernelTable(std::index_sequence<I...>) {
    return KernelTable{&Run<kKernelKeys[I]>...};
}

constexpr KernelTable kTable = MakeKernelTable(std::make_index_sequence<kKernelCount>{});

}  // namespace

const KernelTable* TINTRA3_KERNEL_TABLE() { return &kTable; }

}  // namespace tintra3
