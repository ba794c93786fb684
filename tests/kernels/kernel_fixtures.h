// Hand-made method 0 and method 1 records with random tables, sample access
// in the three layouts, and the sweep that checks every kernel of a channel
// pair against a per-pixel reference.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "kernels/kernels.h"
#include "support/test_support.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3::test {

inline constexpr uint16_t kDepths[] = {8, 10, 12, 16};  // input bits per sample

// Position of sample c of pixel q: layout 0 interleaved, 1 frame-, 2 line-planar.
inline size_t Position(int layout, size_t q, uint32_t c, uint32_t channels, uint32_t lines, uint32_t width) {
    if (layout == 0) return q * channels + c;
    return layout == 1 ? c * size_t(lines) * width + q : (q / width) * width * channels + c * width + q % width;
}
// Sample i of a buffer of bytes or native-order words.
inline uint32_t Get(const std::vector<uint8_t>& b, size_t i, bool wide) {
    uint16_t v = b[i];
    return wide ? (std::memcpy(&v, &b[2 * i], 2), v) : v;
}
inline void Set(std::vector<uint8_t>& b, size_t i, bool wide, uint32_t v) {
    const uint16_t w = uint16_t(v);
    wide ? void(std::memcpy(&b[2 * i], &w, 2)) : void(b[i] = uint8_t(w));
}

// Calls the registry's kernel for this combination directly, in the given
// instruction set (default: the one in use).
inline void Convert(uint16_t method, const void* t, int layout, uint16_t bitsIn, bool out16, uint32_t in, uint32_t out,
                    const void* src, void* dst, uint32_t lines, uint32_t width, Isa isa = ActiveIsa()) {
    const Kernel kernel = FindKernel(isa, method, bitsIn, out16 ? 16 : 8, in, out, uint16_t(layout));
    ASSERT_NE(kernel, nullptr);
    kernel(static_cast<const TransformHeader*>(t), src, dst, lines, width, bitsIn, in, out);
}

// Owns the storage hand-made records point at (owned = 0).
struct Keeper {
    explicit Keeper(uint32_t seed) : rng(seed) {}
    template <typename T> T* Keep(std::vector<T> v) {
        auto p = std::make_shared<std::vector<T>>(std::move(v));
        return kept.push_back(p), p->data();
    }
    template <typename T> ValueBuffer Buffer(std::vector<T> v) { return {uint32_t(v.size()), 0, Keep(std::move(v))}; }
    template <typename T> std::vector<T> Random(size_t n, uint32_t max) {
        std::vector<T> v(n);
        for (T& x : v) x = T(rng() % (max + 1));
        return v;
    }
    uint8_t R(uint32_t n) { return uint8_t(rng() % n); }
    std::mt19937 rng;
    std::vector<std::shared_ptr<void>> kept;
};

// Builder shapes: 3 grid points per axis (4 for one input). Unsorted weights
// make corner differences and s negative; channel 0's index part of 4 inputs
// wraps at 16 bits as stored; far corners carry junk above bit 15 to ignore.
struct Method0Fixture : Keeper {
    Method0Fixture(uint32_t in, uint32_t out, uint32_t seed) : Keeper(seed) {
        const uint32_t points = in == 1 ? 4 : 3, frac = in == 3 ? 9 : 17, axes = std::min(in, 4u);
        t.inputChannels = uint8_t(in), t.outputChannels = uint8_t(out), t.gridPoints = uint16_t(points);
        uint32_t entries = out, far = 0;
        for (uint32_t c = axes; c-- > 0;) t.strides[c] = entries, far += entries, entries *= points;
        t.curvedGrid = Buffer(Random<uint32_t>(entries, 255));
        std::vector<uint16_t> fraction = Random<uint16_t>(256, 256);
        fraction[7] = 256;  // 1.0: the far end of the cell
        t.monoCell = Buffer(Random<uint8_t>(256, points - 2)), t.monoFraction = Buffer(fraction);
        for (uint32_t c = axes, place = 1; c-- > 0; place *= frac) {
            std::vector<SimplexInput> table(256);
            for (uint32_t v = 0; v < 256; ++v)
                table[v] = {R(points - 1) * t.strides[c], uint16_t((v == 255 ? frac - 1 : R(frac)) * place), 0};
            t.simplexInput[c] = Keep(table);
        }
        // Corners walk the cell's axes in a random order, so they stay inside it.
        uint16_t o[3];
        auto corners = [&] {
            uint32_t order[4] = {0, 1, 2, 3}, sum = 0;
            std::shuffle(order, order + in, rng);
            for (uint32_t i = 0; i + 1 < in; ++i) o[i] = uint16_t(sum += t.strides[order[i]]);
        };
        std::vector<Simplex3> s3(in == 3 ? 729 : 0);
        for (auto& e : s3) corners(), e = {o[0], o[1], {R(9), R(9), R(9)}, 0};
        std::vector<Simplex4> s4(in == 4 ? 83521 : 0);
        for (auto& e : s4) corners(), e = {o[0], o[1], o[2], {R(17), R(17), R(17), R(17)}};
        t.simplex3 = Keep(s3), t.simplex4 = Keep(s4);
        t.farCorner3 = (in == 3 ? far : 0) | 0xABC0000u;
        t.farCorner4 = (in == 4 ? far : 0) | 0x1230000u;
        t.ready = 1;
        BuildMethod0KernelLayout(&t);
    }
    ~Method0Fixture() { FreeKernelLayout(&t.layout); }
    Method0Fixture(const Method0Fixture&) = delete;
    Method0Fixture& operator=(const Method0Fixture&) = delete;
    Method0Transform t{};
};

// `points` per axis, grid tables as the builder makes them (4095: the last
// cell at fraction 1.0), other tables random, alternate sets different.
struct Method1Fixture : Keeper {
    Method1Fixture(uint32_t in, uint32_t out, uint32_t points, uint32_t seed) : Keeper(seed) {
        t.inputChannels = uint8_t(in), t.outputChannels = uint8_t(out), t.gridPoints = uint16_t(points);
        for (uint32_t d = std::min(in, 4u), stride = out; d-- > 0; stride *= points) t.strides[d] = stride;
        std::vector<uint16_t> cell(4096);
        std::vector<uint32_t> fraction(4096);
        for (uint32_t v = 0; v < 4096; ++v) {
            cell[v] = uint16_t(std::min(v * (points - 1) / 4095, points - 2));
            fraction[v] = ((v * (points - 1) - cell[v] * 4095) * 65536 + 2048) / 4095;
        }
        t.gridIndex = Buffer(cell), t.gridFraction = Buffer(fraction);
        t.clut = Buffer(Random<uint16_t>(t.strides[0] * points, 65535));
        ValueBuffer* inputs[6] = {t.inputTable256,    t.inputTable1024,    t.inputTable4096,
                                  t.altInputTable256, t.altInputTable1024, t.altInputTable4096};
        for (int g = 0; g < 24; ++g) {
            std::vector<uint16_t> v = Random<uint16_t>(g % 3 == 0 ? 256 : g % 3 == 1 ? 1024 : 4096, 4095);
            v.front() = 0, v.back() = 4095;  // both ends of the grid
            inputs[g % 6][g / 6] = Buffer(v);
        }
        ValueBuffer* outputs[4] = {t.outputTable8, t.altOutputTable8, t.outputTable16, t.altOutputTable16};
        for (int g = 0; g < 16; ++g)
            outputs[g / 4][g % 4] = g < 8 ? Buffer(Random<uint8_t>(4096, 255)) : Buffer(Random<uint16_t>(4096, 65535));
        t.ready = 1;
    }
    Method1Transform t{};
};

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
    const uint32_t pixels = lines * width, edges[] = {65535, 0, 32768, 0x01FF, 0x0100, 0x03FF, 0xFFF0, 0x000F, 0x00FF};
    const bool interleaved = (in == 1 || in == 3 || in == 4) && (out == 1 || out == 3 || out == 4);
    std::mt19937 rng(seed);
    for (int v = interleaved ? 0 : 8; v < 24; ++v) {
        const int layout = v / 8, bits = kDepths[v % 4];
        const bool out16 = v / 4 % 2, wideIn = bits != 8;
        SCOPED_TRACE(testing::Message() << "method " << method << " " << in << "->" << out << " bits " << bits
                                        << " out16 " << out16 << " layout " << layout);
        const uint32_t zeroBits = method == 1 || !out16 ? 0 : layout != 0 || in == 1 ? 0xFF : in == 3 ? 0x1F : 0x0F;
        std::vector<uint32_t> pixel(pixels * in);
        std::vector<uint8_t> src(pixels * in * (wideIn ? 2 : 1)), dst(pixels * out * (out16 ? 2 : 1) + 16, 0xA5);
        for (size_t i = 0; i < pixel.size(); ++i) {
            pixel[i] = i / in < std::size(edges) ? edges[i / in] >> (wideIn ? 0 : 8) : rng() % (wideIn ? 65536 : 256);
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
        std::vector<uint8_t> empty = dst, same = src;
        Convert(method, t, layout, bits, out16, in, out, src.data(), empty.data(), 0, width);
        Convert(method, t, layout, bits, out16, in, out, src.data(), empty.data(), lines, 0);
        EXPECT_EQ(empty, dst) << "an empty block was written";
        if (in != out || out16 != wideIn) continue;
        same.resize(dst.size(), 0xA5);  // in place
        Convert(method, t, layout, bits, out16, in, out, same.data(), same.data(), lines, width);
        EXPECT_EQ(same, dst) << "in place";
    }
}

}  // namespace tintra3::test
