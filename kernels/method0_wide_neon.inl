// Method 0 with three inputs on NEON: per pixel, the four corner nodes of
// the kernel layout (one u32 each, output channel k in byte k) in one
// register, a table lookup lining up the four corners of each channel, and
// the simplex sum as one dot product per channel with the record's signed
// corner weights (layout.weighted):
//   s = (8 - wA) K0 + (wA - wB) KA + (wB - wC) KB + wC KD,
// the same integer as 8 K0 + wA (KA - K0) + wB (KB - KA) + wC (KD - KB).
// Weights of at most 31 keep every product and pair sum within 16 bits; the
// 32-bit sums are exact, and the stored bits those of the scalar wrapping sum.
#include <arm_neon.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/method0_samples.inl"

#define TINTRA3_WIDE_METHOD0 1

namespace tintra3 {
namespace {

struct NeonTables {
    const uint32_t* nodes;
    const uint32_t* inputs;
    const uint32_t* weighted;
    uint32_t far;
};

inline bool NeonUsable(const Method0Transform* t) {
    const KernelLayout& layout = t->layout;
    return layout.usable != 0 && layout.weighted.data != nullptr && t->inputChannels == 3;
}

inline NeonTables NeonTablesOf(const KernelLayout& layout) {
    return NeonTables{static_cast<const uint32_t*>(layout.nodes.data), static_cast<const uint32_t*>(layout.inputs.data),
                      static_cast<const uint32_t*>(layout.weighted.data), layout.farNode};
}

// Simplex sums of the pixel with codes u0, u1, u2: channel k in lane k.
inline uint32x4_t NeonSums(const NeonTables& w, uint32_t u0, uint32_t u1, uint32_t u2) {
    const uint32_t sum = w.inputs[u0] + w.inputs[256 + u1] + w.inputs[512 + u2];
    const uint32_t base = sum >> 16;
    const uint32_t* record = w.weighted + 2 * (sum & 0xFFFFu);
    const uint32_t ab = record[1];
    const uint32_t corner[4] = {w.nodes[base], w.nodes[base + (ab & 0xFFFFu)], w.nodes[base + (ab >> 16)],
                                w.nodes[base + w.far]};
    // Corner j of channel k from byte 4j + k to byte 4k + j.
    static constexpr uint8_t kTranspose[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    const uint8x16_t nodes = vqtbl1q_u8(vreinterpretq_u8_u32(vld1q_u32(corner)), vld1q_u8(kTranspose));
    const int16x8_t weights = vmovl_s8(vreinterpret_s8_u32(vdup_n_u32(record[0])));
    const int16x8_t low = vmulq_s16(vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(nodes))), weights);
    const int16x8_t high = vmulq_s16(vreinterpretq_s16_u16(vmovl_u8(vget_high_u8(nodes))), weights);
    return vreinterpretq_u32_s32(vpaddlq_s16(vpaddq_s16(low, high)));
}

// Converts the whole interleaved run and returns its length, or 0 when the
// record does not qualify (the portable loop then runs).
template <bool Deep, bool Out16, uint32_t In, uint32_t Out>
uint32_t WideMethod0Interleaved(const Method0Transform* t, const uint8_t* src, uint8_t* dst, uint32_t pixels) {
    if constexpr (In != 3) {
        return 0;
    } else {
        if (!NeonUsable(t) || t->outputChannels != Out) return 0;
        const NeonTables w = NeonTablesOf(t->layout);
        constexpr size_t kInBytes = 3 * (Deep ? 2 : 1);
        constexpr size_t kOutBytes = Out * (Out16 ? 2 : 1);
        // Each pixel is read whole before its outputs are written (in place).
        for (uint32_t p = 0; p < pixels; ++p, src += kInBytes, dst += kOutBytes) {
            const uint32x4_t s = NeonSums(w, LoadCode<Deep>(src, 0), LoadCode<Deep>(src, 1), LoadCode<Deep>(src, 2));
            if constexpr (Out16) {
                const uint64_t words = vget_lane_u64(vreinterpret_u64_u16(vmovn_u32(vshlq_n_u32(s, 5))), 0);
                std::memcpy(dst, &words, kOutBytes);
            } else {
                const uint16x4_t codes = vmovn_u32(vshrq_n_u32(s, 3));
                const uint32_t bytes = vget_lane_u32(vreinterpret_u32_u8(vmovn_u16(vcombine_u16(codes, codes))), 0);
                std::memcpy(dst, &bytes, kOutBytes);
            }
        }
        return pixels;
    }
}

// Planar blocks of three inputs and as many outputs as the record has: the
// code alone is stored (16-bit output is code << 8). False when the block
// does not qualify. Layouts as in PlanarLoop.
template <bool Deep, bool Out16, uint16_t Layout>
bool WideMethod0Planar(const Method0Transform* t, const uint8_t* src, uint8_t* dst, uint32_t lines, uint32_t width,
                       uint32_t inChannels, uint32_t outChannels) {
    if (!NeonUsable(t) || inChannels != 3 || outChannels != t->outputChannels || outChannels > 4) return false;
    const NeonTables w = NeonTablesOf(t->layout);
    const size_t rows = Layout == 1 ? 1 : lines;
    const size_t n = Layout == 1 ? size_t{lines} * width : width;
    for (size_t l = 0; l < rows; ++l) {
        const size_t inLine = Layout == 1 ? 0 : l * n * 3;
        const size_t outLine = Layout == 1 ? 0 : l * n * outChannels;
        for (size_t p = 0; p < n; ++p) {
            const size_t at = inLine + p;
            uint32_t codes[4];
            vst1q_u32(codes, vandq_u32(vshrq_n_u32(NeonSums(w, LoadCode<Deep>(src, at), LoadCode<Deep>(src, at + n),
                                                              LoadCode<Deep>(src, at + 2 * n)),
                                                     3),
                                       vdupq_n_u32(255)));
            for (uint32_t k = 0; k < outChannels; ++k) {
                const size_t out = outLine + k * n + p;
                if constexpr (Out16) {
                    const auto word = static_cast<uint16_t>(codes[k] << 8);
                    std::memcpy(dst + 2 * out, &word, sizeof word);
                } else {
                    dst[out] = static_cast<uint8_t>(codes[k]);
                }
            }
        }
    }
    return true;
}

}  // namespace
}  // namespace tintra3
