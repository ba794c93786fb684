// Hand-made method 0 and method 1 records with random tables.
#pragma once

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3::test {

// Owns the storage hand-made records point at (owned = 0).
struct Keeper {
    explicit Keeper(uint32_t seed) : rng(seed) {}

    template <typename T>
    T* Keep(std::vector<T> v) {
        auto p = std::make_shared<std::vector<T>>(std::move(v));
        kept.push_back(p);
        return p->data();
    }

    template <typename T>
    ValueBuffer Buffer(std::vector<T> v) {
        const auto count = uint32_t(v.size());
        return {count, 0, Keep(std::move(v))};
    }

    template <typename T>
    std::vector<T> Random(size_t n, uint32_t max) {
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
// The kernel layout is derived as the builder derives it.
struct Method0Fixture : Keeper {
    Method0Fixture(uint32_t in, uint32_t out, uint32_t seed) : Keeper(seed) {
        const uint32_t points = in == 1 ? 4 : 3;
        const uint32_t frac = in == 3 ? 9 : 17;
        const uint32_t axes = std::min(in, 4u);
        t.inputChannels = uint8_t(in);
        t.outputChannels = uint8_t(out);
        t.gridPoints = uint16_t(points);
        uint32_t entries = out;
        uint32_t far = 0;
        for (uint32_t c = axes; c-- > 0;) {
            t.strides[c] = entries;
            far += entries;
            entries *= points;
        }
        t.curvedGrid = Buffer(Random<uint32_t>(entries, 255));
        std::vector<uint16_t> fraction = Random<uint16_t>(256, 256);
        fraction[7] = 256;  // 1.0: the far end of the cell
        t.monoCell = Buffer(Random<uint8_t>(256, points - 2));
        t.monoFraction = Buffer(fraction);
        uint32_t place = 1;
        for (uint32_t c = axes; c-- > 0;) {
            std::vector<SimplexInput> table(256);
            for (uint32_t v = 0; v < 256; ++v) {
                const uint32_t offset = R(points - 1) * t.strides[c];
                const uint32_t step = v == 255 ? frac - 1 : R(frac);
                table[v] = {offset, uint16_t(step * place), 0};
            }
            t.simplexInput[c] = Keep(table);
            place *= frac;
        }
        std::vector<Simplex3> s3(in == 3 ? 729 : 0);
        for (auto& e : s3) {
            const std::vector<uint16_t> o = Corners(in);
            e = {o[0], o[1], {R(9), R(9), R(9)}, 0};
        }
        std::vector<Simplex4> s4(in == 4 ? 83521 : 0);
        for (auto& e : s4) {
            const std::vector<uint16_t> o = Corners(in);
            e = {o[0], o[1], o[2], {R(17), R(17), R(17), R(17)}};
        }
        t.simplex3 = Keep(s3);
        t.simplex4 = Keep(s4);
        t.farCorner3 = (in == 3 ? far : 0) | 0xABC0000u;
        t.farCorner4 = (in == 4 ? far : 0) | 0x1230000u;
        t.ready = 1;
        BuildMethod0KernelLayout(&t);
    }
    ~Method0Fixture() { FreeKernelLayout(&t.layout); }
    Method0Fixture(const Method0Fixture&) = delete;
    Method0Fixture& operator=(const Method0Fixture&) = delete;

    // Corners walk the cell's axes in a random order, so they stay inside it.
    std::vector<uint16_t> Corners(uint32_t in) {
        uint32_t order[4] = {0, 1, 2, 3};
        std::shuffle(order, order + in, rng);
        std::vector<uint16_t> o(3, 0);
        uint32_t sum = 0;
        for (uint32_t i = 0; i + 1 < in; ++i) {
            sum += t.strides[order[i]];
            o[i] = uint16_t(sum);
        }
        return o;
    }

    Method0Transform t{};
};

// `points` per axis, grid tables as the builder makes them (4095: the last
// cell at fraction 1.0), other tables random, alternate sets different.
struct Method1Fixture : Keeper {
    Method1Fixture(uint32_t in, uint32_t out, uint32_t points, uint32_t seed) : Keeper(seed) {
        t.inputChannels = uint8_t(in);
        t.outputChannels = uint8_t(out);
        t.gridPoints = uint16_t(points);
        uint32_t stride = out;
        for (uint32_t d = std::min(in, 4u); d-- > 0;) {
            t.strides[d] = stride;
            stride *= points;
        }
        std::vector<uint16_t> cell(4096);
        std::vector<uint32_t> fraction(4096);
        for (uint32_t v = 0; v < 4096; ++v) {
            cell[v] = uint16_t(std::min(v * (points - 1) / 4095, points - 2));
            fraction[v] = ((v * (points - 1) - cell[v] * 4095) * 65536 + 2048) / 4095;
        }
        t.gridIndex = Buffer(cell);
        t.gridFraction = Buffer(fraction);
        t.clut = Buffer(Random<uint16_t>(t.strides[0] * points, 65535));
        ValueBuffer* inputs[6] = {t.inputTable256,    t.inputTable1024,    t.inputTable4096,
                                  t.altInputTable256, t.altInputTable1024, t.altInputTable4096};
        for (int g = 0; g < 24; ++g) {
            const size_t entries = g % 3 == 0 ? 256 : g % 3 == 1 ? 1024 : 4096;
            std::vector<uint16_t> v = Random<uint16_t>(entries, 4095);
            v.front() = 0;  // both ends of the grid
            v.back() = 4095;
            inputs[g % 6][g / 6] = Buffer(v);
        }
        ValueBuffer* outputs[4] = {t.outputTable8, t.altOutputTable8, t.outputTable16, t.altOutputTable16};
        for (int g = 0; g < 16; ++g) {
            if (g < 8) {
                outputs[g / 4][g % 4] = Buffer(Random<uint8_t>(4096, 255));
            } else {
                outputs[g / 4][g % 4] = Buffer(Random<uint16_t>(4096, 65535));
            }
        }
        t.ready = 1;
    }
    Method1Transform t{};
};

}  // namespace tintra3::test
