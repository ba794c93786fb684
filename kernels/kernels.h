// Pixel kernels and the tables that pick them.
//
// Every kernel converts lines x width pixels of one block through a built
// transform with integer arithmetic only. In-place conversion is the same
// kernel called with destination == source: each kernel reads all samples of
// a pixel before it writes any of that pixel's outputs.
#pragma once

#include <cstdint>

namespace tintra3 {

struct Method0Transform;
struct Method1Transform;

// Interleaved (layout 0) kernels: channel counts are fixed per instantiation.
using Method0InterleavedKernel = void (*)(const Method0Transform* t, const void* source, void* destination,
                                          uint32_t lines, uint32_t width);
using Method1InterleavedKernel = void (*)(const Method1Transform* t, const void* source, void* destination,
                                          uint32_t lines, uint32_t width);

// Planar (layouts 1 and 2) kernels: generic in the channel counts.
// bitsIn is the input depth (8, 10, 12, 16); only method 1 with deeper input
// uses it, method 0 reduces every deeper sample to its high byte.
using Method0PlanarKernel = void (*)(const Method0Transform* t, const void* source, void* destination,
                                     uint32_t lines, uint32_t width, uint32_t inChannels, uint32_t outChannels);
using Method1PlanarKernel = void (*)(const Method1Transform* t, const void* source, void* destination,
                                     uint32_t lines, uint32_t width, uint16_t bitsIn, uint32_t inChannels,
                                     uint32_t outChannels);

// Lookups into the kernel tables. Channel counts must be 1, 3 or 4 for the
// interleaved families (null otherwise); layout must be 1 or 2 for the planar
// ones. deepInput: 10-, 12- or 16-bit samples; out16: 16-bit output samples.
Method0InterleavedKernel FindMethod0Interleaved(bool deepInput, bool out16, uint32_t inChannels,
                                                uint32_t outChannels);
Method1InterleavedKernel FindMethod1Interleaved(uint16_t bitsIn, bool out16, uint32_t inChannels,
                                                uint32_t outChannels);
Method0PlanarKernel FindMethod0Planar(bool deepInput, bool out16, uint16_t layout);
Method1PlanarKernel FindMethod1Planar(bool deepInput, bool out16, uint16_t layout);

// The five table accessors of method 1 (they honour the alternate-set switches).
const uint16_t* GetInputTable8(const Method1Transform* t, uint32_t channel);
const uint16_t* GetInputTable10(const Method1Transform* t, uint32_t channel);
const uint16_t* GetInputTable16(const Method1Transform* t, uint32_t channel);
const uint8_t* GetOutputTable8(const Method1Transform* t, uint32_t channel);
const uint16_t* GetOutputTable16(const Method1Transform* t, uint32_t channel);

}  // namespace tintra3
