// Method 0 sample access, shared by the kernel bodies and the wide paths of
// an instruction-set unit (included once per unit).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tintra3 {
namespace {

// ---- sample access ---------------------------------------------------------
// 10-, 12- and 16-bit samples are native-order words; memcpy keeps a word
// access defined whatever the caller's buffer alignment.

// Sample i of a run, reduced to the 8-bit code that indexes the tables.
template <bool Deep>
inline uint32_t LoadCode(const uint8_t* samples, size_t i) {
    if constexpr (Deep) {
        uint16_t word;
        std::memcpy(&word, samples + 2 * i, sizeof word);
        return static_cast<uint32_t>(word) >> 8;  // high byte only, whatever the depth
    } else {
        return samples[i];
    }
}

// Stores the low 8 or 16 bits of value as sample i.
template <bool Out16>
inline void StoreSample(uint8_t* samples, size_t i, uint32_t value) {
    if constexpr (Out16) {
        const auto word = static_cast<uint16_t>(value);
        std::memcpy(samples + 2 * i, &word, sizeof word);
    } else {
        samples[i] = static_cast<uint8_t>(value);
    }
}

}  // namespace
}  // namespace tintra3
