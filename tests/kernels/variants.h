// The sweep that checks every kernel of a channel pair against a per-pixel
// reference.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "samples.h"

namespace tintra3::test {

// Every input depth, output depth and layout of one channel pair (layout 0
// only where interleaved kernels exist), to a buffer with a guard tail and in
// place where allowed, against reference(bitsIn, out16, layout, a pixel's
// samples as stored) -> output samples. Method 0 words keep only the simplex
// fraction bits (eighths in bits 5..7, sixteenths in 4..7) of the low byte.
// Empty blocks must write nothing.
template <typename Reference>
void CheckVariants(uint16_t method, const void* t, uint32_t in, uint32_t out, const Reference& reference,
                   uint32_t lines, uint32_t width, uint32_t seed) {
    // Edge words first: the table ends, the middle, and low bytes or low
    // justification that must not count (each 8-bit sample is the high byte).
    const uint32_t edges[] = {65535, 0, 32768, 0x01FF, 0x0100, 0x03FF, 0xFFF0, 0x000F, 0x00FF};
    const uint32_t pixels = lines * width;
    const bool interleaved = (in == 1 || in == 3 || in == 4) && (out == 1 || out == 3 || out == 4);
    std::mt19937 rng(seed);
    for (int v = interleaved ? 0 : 8; v < 24; ++v) {
        const int layout = v / 8;
        const int bits = kDepths[v % 4];
        const bool out16 = v / 4 % 2;
        const bool wideIn = bits != 8;
        SCOPED_TRACE(testing::Message() << "method " << method << " " << in << "->" << out << " bits " << bits
                                        << " out16 " << out16 << " layout " << layout);
        uint32_t zeroBits = 0;
        if (method == 0 && out16) zeroBits = layout != 0 || in == 1 ? 0xFF : in == 3 ? 0x1F : 0x0F;
        std::vector<uint32_t> pixel(pixels * in);
        std::vector<uint8_t> src(pixels * in * (wideIn ? 2 : 1));
        std::vector<uint8_t> dst(pixels * out * (out16 ? 2 : 1) + 16, 0xA5);
        for (size_t i = 0; i < pixel.size(); ++i) {
            if (i / in < std::size(edges)) {
                pixel[i] = edges[i / in] >> (wideIn ? 0 : 8);
            } else {
                pixel[i] = rng() % (wideIn ? 65536 : 256);
            }
            Set(src, Position(layout, i / in, i % in, in, lines, width), wideIn, pixel[i]);
        }
        Convert(method, t, layout, bits, out16, in, out, src.data(), dst.data(), lines, width);
        for (uint32_t q = 0; q < pixels; ++q) {
            const std::vector<uint32_t> want = reference(bits, out16, layout, &pixel[q * in]);
            for (uint32_t k = 0; k < out; ++k) {
                const uint32_t got = Get(dst, Position(layout, q, k, out, lines, width), out16);
                ASSERT_EQ(got, want[k]) << "pixel " << q << " channel " << k;
                ASSERT_EQ(got & zeroBits, 0u) << "pixel " << q << " channel " << k;
            }
        }
        ASSERT_EQ(std::vector<uint8_t>(dst.end() - 16, dst.end()), std::vector<uint8_t>(16, 0xA5)) << "wrote past";
        std::vector<uint8_t> empty = dst;
        Convert(method, t, layout, bits, out16, in, out, src.data(), empty.data(), 0, width);
        Convert(method, t, layout, bits, out16, in, out, src.data(), empty.data(), lines, 0);
        EXPECT_EQ(empty, dst) << "an empty block was written";
        if (in != out || out16 != wideIn) continue;
        std::vector<uint8_t> same = src;
        same.resize(dst.size(), 0xA5);  // in place
        Convert(method, t, layout, bits, out16, in, out, same.data(), same.data(), lines, width);
        EXPECT_EQ(same, dst) << "in place";
    }
}

}  // namespace tintra3::test
