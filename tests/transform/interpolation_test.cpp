// The build-time interpolators (8-bit packed lanes, 16-bit multilinear)
// against an axis-by-axis fold written independently of them.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <vector>

#include "profile/fixed_point.h"
#include "transform/method0.h"

namespace tintra3 {
namespace {

// Axes a..n-1 around `at`, the last axis first, each step u + (((v - u) f + half) >> bits) per channel: 8-bit
// floored with f in 8.8, 16-bit modulo 2^16 with f in 16.16. Independent of the packed forms.
template <typename T>
uint32_t Fold(const T* t, uint32_t n, uint32_t a, size_t at, const uint32_t* f, const uint32_t* s) {
    if (a == n) return t[at];
    const uint32_t u = Fold(t, n, a + 1, at, f, s);
    const uint32_t v = Fold(t, n, a + 1, at + s[a], f, s);
    if (sizeof(T) == 1) return uint32_t(int(u) + ((int(v - u) * int(f[a]) + 128) >> 8));
    return (u + (((v - u) * f[a] + 32768) >> 16)) & 0xFFFF;
}

TEST(Interpolation, EightAndSixteenBitEqualTheFold) {
    std::mt19937 rng(12345);
    auto pick = [&](uint32_t n) { return uint32_t(rng() % n); };
    for (int round = 0; round < 4000; ++round) {
        const uint32_t points = 2 + pick(4);
        const uint32_t outputs = 1 + pick(4);
        const uint32_t axes = 3 + pick(2);
        uint32_t stride[4];
        uint32_t cell[4];
        uint32_t f8[4];
        uint32_t f16[4];
        uint32_t size = outputs;
        for (uint32_t a = axes; a-- > 0;) {
            stride[a] = size;
            size *= points;
        }
        std::vector<uint8_t> t8(size);
        std::vector<uint16_t> t16(size);
        for (uint32_t e = 0; e < size; ++e) {
            // Extremes often: 0 / full scale neighbours make the largest borrows.
            const uint32_t r = pick(3);
            t8[e] = uint8_t(r ? pick(256) : pick(2) * 255);
            t16[e] = uint16_t(r ? rng() : pick(2) * 65535);
        }
        size_t at = 0;
        for (uint32_t a = 0; a < axes; ++a) {
            const uint32_t r = pick(5);
            cell[a] = pick(points - 1);
            f8[a] = r == 0 ? 0 : r == 1 ? 256 : pick(257);
            f16[a] = r == 0 ? 0 : r == 1 ? 0x10000 : pick(0x10001);
            at += cell[a] * stride[a];
        }
        uint8_t out8[4];
        uint16_t out16[4];
        (axes == 3 ? InterpolateTrilinear8 : InterpolateQuadrilinear8)(t8.data(), outputs, cell, f8, stride, out8);
        InterpolateCell16(t16.data(), outputs, axes, cell, f16, stride, out16);
        for (uint32_t k = 0; k < outputs; ++k) {
            ASSERT_EQ(out8[k], Fold(t8.data(), axes, 0, at + k, f8, stride)) << round << " channel " << k;
            ASSERT_EQ(out16[k], Fold(t16.data(), axes, 0, at + k, f16, stride)) << round << " channel " << k;
        }
    }
    // 0 -> 65535 and 65535 -> 0 at fraction 32768 both give 32768: the falling step floors the signed value.
    const uint16_t extremes[8] = {0, 65535, 0, 65535, 65535, 0, 65535, 0};
    const uint32_t origin[3] = {0, 0, 0};
    uint16_t out;
    for (uint32_t first : {0u, 0x10000u}) {
        const uint32_t fraction[3] = {first, 0, 32768};
        const uint32_t stride[3] = {4, 2, 1};
        InterpolateCell16(extremes, 1, 3, origin, fraction, stride, &out);
        EXPECT_EQ(out, 32768) << first;
    }
}

}  // namespace
}  // namespace tintra3
