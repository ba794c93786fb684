// Hand-made method 1 transforms with random tables, and a plain per-pixel
// evaluation of them that the kernels are checked against.
#pragma once

#include <cstdint>
#include <deque>
#include <random>
#include <vector>

#include "transform/method1.h"

namespace tintra3::test {

class Method1Fixture {
public:
    // A grid of `points` per axis over `in` channels with `out` values per
    // node; every table random, both table sets filled and different.
    Method1Fixture(uint32_t in, uint32_t out, uint32_t points, uint32_t seed) : rng_(seed) {
        t.inputChannels = uint8_t(in);
        t.outputChannels = uint8_t(out);
        t.gridPoints = uint16_t(points);
        if (in >= 1 && in <= 4) {  // other counts only reach the dispatch checks
            t.strides[in - 1] = out;
            for (int d = int(in) - 2; d >= 0; --d) t.strides[d] = t.strides[d + 1] * points;
        }
        std::vector<uint16_t> cell(4096);
        std::vector<uint32_t> fraction(4096);
        for (uint32_t v = 0; v < 4096; ++v) {  // the builder's grid tables
            const uint32_t p = v * (points - 1), c = p / 4095;
            cell[v] = uint16_t(c == points - 1 ? c - 1 : c);
            fraction[v] = c == points - 1 ? 0x10000 : ((p - c * 4095) * 65536 + 2048) / 4095;
        }
        Put(t.gridIndex, cell);
        Put(t.gridFraction, fraction);
        Put(t.clut, Random<uint16_t>(t.strides[0] * points, 65535));
        for (int c = 0; c < 4; ++c) {
            Put(t.inputTable256[c], Coordinates(256));
            Put(t.inputTable1024[c], Coordinates(1024));
            Put(t.inputTable4096[c], Coordinates(4096));
            Put(t.altInputTable256[c], Coordinates(256));
            Put(t.altInputTable1024[c], Coordinates(1024));
            Put(t.altInputTable4096[c], Coordinates(4096));
            Put(t.outputTable8[c], Random<uint8_t>(4096, 255));
            Put(t.outputTable16[c], Random<uint16_t>(4096, 65535));
            Put(t.altOutputTable8[c], Random<uint8_t>(4096, 255));
            Put(t.altOutputTable16[c], Random<uint16_t>(4096, 65535));
        }
        t.ready = 1;
    }
    Method1Fixture(const Method1Fixture&) = delete;
    Method1Fixture& operator=(const Method1Fixture&) = delete;

    template <typename T>
    std::vector<T> Random(size_t n, uint32_t max) {
        std::vector<T> v(n);
        for (T& x : v) x = T(rng_() % (max + 1));
        return v;
    }

    // Points a buffer at storage the fixture keeps (owned = 0).
    template <typename T>
    void Put(ValueBuffer& b, std::vector<T> values) {
        auto& kept = Store<T>().emplace_back(std::move(values));
        b = ValueBuffer{uint32_t(kept.size()), 0, kept.data()};
    }

    Method1Transform t{};

private:
    // Random 12-bit coordinates, with both ends of the grid present.
    std::vector<uint16_t> Coordinates(size_t n) {
        std::vector<uint16_t> v = Random<uint16_t>(n, 4095);
        v.front() = 0;
        v.back() = 4095;
        return v;
    }
    template <typename T>
    std::deque<std::vector<T>>& Store() {
        if constexpr (sizeof(T) == 1) return bytes_;
        else if constexpr (sizeof(T) == 2) return words_;
        else return longs_;
    }

    std::mt19937 rng_;
    std::deque<std::vector<uint8_t>> bytes_;
    std::deque<std::vector<uint16_t>> words_;
    std::deque<std::vector<uint32_t>> longs_;
};

// a + floor(((b - a) * f + 0x8000) / 0x10000) in signed arithmetic.
inline int64_t ReferenceLerp(int64_t a, int64_t b, int64_t f) {
    const int64_t n = (b - a) * f + 0x8000;
    return (a + (n >= 0 ? n / 0x10000 : -((-n + 0xFFFF) / 0x10000))) & 0xFFFF;
}

// Interpolates dimension d and beyond at clut offset `at`; deeper
// dimensions are done first, so the last channel's edges come first.
inline int64_t ReferenceInterpolate(const Method1Transform& t, const uint32_t* cell, const uint32_t* fraction,
                                    uint32_t d, uint32_t at) {
    if (d >= t.inputChannels || d >= 4) return static_cast<const uint16_t*>(t.clut.data)[at];
    const uint32_t lower = at + cell[d] * t.strides[d];
    return ReferenceLerp(ReferenceInterpolate(t, cell, fraction, d + 1, lower),
                         ReferenceInterpolate(t, cell, fraction, d + 1, lower + t.strides[d]), fraction[d]);
}

// One pixel through the record, read field by field: samples in, output samples out.
inline std::vector<uint32_t> ReferencePixel(const Method1Transform& t, int bitsIn, bool out16,
                                            const std::vector<uint32_t>& samples) {
    const bool alt = t.useAltInputTables != 0;
    uint32_t cell[4], fraction[4];
    for (uint32_t j = 0; j < t.inputChannels && j < 4; ++j) {
        const uint32_t x = samples[j];
        uint32_t index;
        const ValueBuffer* table;
        if (bitsIn == 8) index = x, table = alt ? t.altInputTable256 : t.inputTable256;
        else if (bitsIn == 10) index = x / 64, table = alt ? t.altInputTable1024 : t.inputTable1024;
        else if (bitsIn == 12) index = x / 16, table = alt ? t.altInputTable4096 : t.inputTable4096;
        else index = (x * 4095 + 32768) / 65536, table = alt ? t.altInputTable4096 : t.inputTable4096;
        const uint32_t s = static_cast<const uint16_t*>(table[j].data)[index];
        cell[j] = static_cast<const uint16_t*>(t.gridIndex.data)[s];
        fraction[j] = static_cast<const uint32_t*>(t.gridFraction.data)[s];
    }
    std::vector<uint32_t> result;
    for (uint32_t k = 0; k < t.outputChannels; ++k) {
        const int64_t r = ReferenceInterpolate(t, cell, fraction, 0, k);
        const uint32_t e = uint32_t((r * 4095 + 32768) / 65536);
        const bool altOut = t.useAltOutputTables != 0;
        result.push_back(out16 ? static_cast<const uint16_t*>((altOut ? t.altOutputTable16 : t.outputTable16)[k].data)[e]
                               : static_cast<const uint8_t*>((altOut ? t.altOutputTable8 : t.outputTable8)[k].data)[e]);
    }
    return result;
}

}  // namespace tintra3::test
