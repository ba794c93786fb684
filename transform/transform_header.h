// The record both transform kinds begin with, and the kernel-side layout
// derived from the described tables.
#pragma once

#include <cstdint>

#include "profile/value_buffer.h"

namespace tintra3 {

// Tables laid out for the vector kernels, derived from a method 0 record's
// simplex tables and curved grid. The described tables stay the source of
// truth: every path that changes them calls BuildMethod0KernelLayout again.
// `usable` is 0 whenever the described tables hold something the packed form
// cannot carry exactly (then the kernels take the portable path).
struct KernelLayout {
    ValueBuffer nodes;    // u32 per grid node: output channel k in byte k
    ValueBuffer inputs;   // u32 per channel and code: grid node offset << 16 | simplex index part
    ValueBuffer simplex;  // u32 per simplex record: 5-bit weights from bit 0, corner set in bits 20..24
    // Three inputs only: two u32 per simplex record, the weight of each corner
    // (K0, A, B, D: 8 - wA, wA - wB, wB - wC, wC) as a signed byte, then
    // corners A | B << 16 in nodes. The simplex sum is the same integer
    // written as one dot product per output channel.
    ValueBuffer weighted;
    uint32_t corners[3][32];  // node offsets of corners A, B (and C) of each corner set
    uint32_t farNode;        // corner D in nodes
    uint32_t usable;
};

// Channel counts, the method and the ready flag sit at the same place in
// both records, so code that has not yet learnt which method a record
// belongs to can read them.
struct TransformHeader {
    uint8_t inputChannels;
    uint8_t outputChannels;
    uint16_t method;  // 0 or 1, set when the record is created
    // 1 once fully built; 0 at creation, after a failed build and after a
    // failed tone-curve rebuild. The dispatch refuses a transform that is not ready.
    uint32_t ready;
    KernelLayout layout;
};

void FreeKernelLayout(KernelLayout* layout);

}  // namespace tintra3
