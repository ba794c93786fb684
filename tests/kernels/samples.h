// Sample access in the three layouts, and calling one kernel of the registry.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernels/kernels.h"
#include "transform/transform_header.h"

namespace tintra3::test {

inline constexpr uint16_t kDepths[] = {8, 10, 12, 16};  // input bits per sample

// Position of sample c of pixel q: layout 0 interleaved, 1 frame-, 2 line-planar.
inline size_t Position(int layout, size_t q, uint32_t c, uint32_t channels, uint32_t lines, uint32_t width) {
    if (layout == 0) return q * channels + c;
    if (layout == 1) return c * size_t(lines) * width + q;
    return (q / width) * width * channels + c * width + q % width;
}

// Sample i of a buffer of bytes or native-order words.
inline uint32_t Get(const std::vector<uint8_t>& b, size_t i, bool wide) {
    if (!wide) return b[i];
    uint16_t v;
    std::memcpy(&v, &b[2 * i], 2);
    return v;
}

inline void Set(std::vector<uint8_t>& b, size_t i, bool wide, uint32_t v) {
    const uint16_t w = uint16_t(v);
    if (wide) {
        std::memcpy(&b[2 * i], &w, 2);
    } else {
        b[i] = uint8_t(w);
    }
}

// Calls the registry's kernel for this combination directly, in the given
// instruction set (default: the one in use).
inline void Convert(uint16_t method, const void* t, int layout, uint16_t bitsIn, bool out16, uint32_t in, uint32_t out,
                    const void* src, void* dst, uint32_t lines, uint32_t width, Isa isa = ActiveIsa()) {
    const Kernel kernel = FindKernel(isa, method, bitsIn, out16 ? 16 : 8, in, out, uint16_t(layout));
    ASSERT_NE(kernel, nullptr);
    kernel(static_cast<const TransformHeader*>(t), src, dst, lines, width, bitsIn, in, out);
}

}  // namespace tintra3::test
