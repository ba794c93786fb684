// Pixel-run dispatch: CMatching1 (in place) and CMatching2 (source to
// destination) check a block against its buffer and the transform's channel
// counts, then hand the whole block to the one kernel that the kernel tables
// give for (method, input depth, layout, output depth, channel counts).
#include <cstddef>
#include <cstdint>

#include "api/exports.h"
#include "api/status.h"
#include "kernels/kernels.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {
namespace {

// Dispatch reads the two channel-count bytes without knowing the record type.
static_assert(offsetof(Method0Transform, inputChannels) == offsetof(Method1Transform, inputChannels));
static_assert(offsetof(Method0Transform, outputChannels) == offsetof(Method1Transform, outputChannels));

struct Channels {
    uint32_t in;
    uint32_t out;
};

// A record whose build or tone-curve rebuild failed may lack its tables: it
// must not reach a kernel. Asked only once the method is known to be 0 or 1.
bool Ready(const MatchingSelector* selector) {
    if (selector->method == 0) return static_cast<const Method0Transform*>(selector->transform)->ready != 0;
    return static_cast<const Method1Transform*>(selector->transform)->ready != 0;
}

Channels ReadChannels(const MatchingSelector* selector) {
    const auto* record = static_cast<const uint8_t*>(selector->transform);
    return Channels{record[offsetof(Method1Transform, inputChannels)],
                    record[offsetof(Method1Transform, outputChannels)]};
}

// Bytes the source block occupies: lines x width x input channels, twice
// that for word samples. Neither the output depth nor the output channels
// enter. Formed in 64 bits: a product that wrapped in 32 bits could pass a
// tiny bufferSize while the kernel walks the whole width.
uint64_t SourceBytes(uint16_t lines, uint32_t width, uint32_t inChannels, uint16_t bitsIn) {
    uint64_t size = uint64_t(lines) * width * inChannels;
    if (bitsIn != 8) size *= 2u;
    return size;
}

// Compared in 64 bits, so a block beyond 32 bits never fits any bufferSize.
bool BlockFits(uint16_t lines, uint32_t width, uint32_t inChannels, uint16_t bitsIn, uint32_t bufferSize) {
    return SourceBytes(lines, width, inChannels, bitsIn) <= bufferSize;
}

bool KnownDepth(uint16_t bitsIn) { return bitsIn == 8 || bitsIn == 10 || bitsIn == 12 || bitsIn == 16; }

bool InterleavedChannels(uint32_t channels) { return channels == 1 || channels == 3 || channels == 4; }

// Checks from the method on (the size and in-place checks are the callers'),
// then the one kernel call. destination == source converts in place.
uint32_t Dispatch(const MatchingSelector* selector, const void* source, void* destination, uint16_t lines,
                  uint32_t width, uint16_t bitsIn, uint16_t bitsOut, uint16_t layout, Channels channels) {
    if (selector->method != 0 && selector->method != 1) return kBadMethod;
    if (!KnownDepth(bitsIn)) return kBadBitsIn;
    if (layout > 2) return kBadLayout;
    // Interleaved kernels exist for 1, 3 and 4 channels only; any other count
    // is a silent success that leaves the block as it was.
    if (layout == 0 && (!InterleavedChannels(channels.in) || !InterleavedChannels(channels.out))) return kOk;
    // Every check above keeps its own code and order; only a block that would
    // now reach a kernel is refused for an unusable record.
    if (!Ready(selector)) return kBuildFailed;
    // An empty block converts nothing (the method 0 kernels need a pixel).
    if (lines == 0 || width == 0) return kOk;

    const bool deep = bitsIn != 8;
    const bool out16 = bitsOut != 8;
    if (selector->method == 0) {
        const auto* t = static_cast<const Method0Transform*>(selector->transform);
        if (layout == 0) {
            if (Method0InterleavedKernel kernel = FindMethod0Interleaved(deep, out16, channels.in, channels.out))
                kernel(t, source, destination, lines, width);
        } else if (Method0PlanarKernel kernel = FindMethod0Planar(deep, out16, layout)) {
            kernel(t, source, destination, lines, width, channels.in, channels.out);
        }
    } else {
        const auto* t = static_cast<const Method1Transform*>(selector->transform);
        if (layout == 0) {
            if (Method1InterleavedKernel kernel = FindMethod1Interleaved(bitsIn, out16, channels.in, channels.out))
                kernel(t, source, destination, lines, width);
        } else if (Method1PlanarKernel kernel = FindMethod1Planar(deep, out16, layout)) {
            kernel(t, source, destination, lines, width, bitsIn, channels.in, channels.out);
        }
    }
    return kOk;
}

}  // namespace
}  // namespace tintra3


extern "C" uint32_t TINTRA3_CALL CMatching1(MatchingSelector* selector, const PixelRun* run, uint32_t width,
                                            uint32_t bufferSize, uint16_t bitsIn, uint16_t bitsOut,
                                            uint16_t layout) {
    using namespace tintra3;
    // Without a record there are no channel counts for the size check.
    if (selector->transform == nullptr) return kBuildFailed;
    const Channels channels = ReadChannels(selector);
    if (!BlockFits(run->lines, width, channels.in, bitsIn, bufferSize)) return kBufferTooSmall;
    if (channels.in != channels.out) return kNotInPlace;
    // In place, 8 bits stay 8 bits and deeper samples come back as words.
    if (bitsIn == 8 && bitsOut != 8) return kNotInPlace;
    if (bitsIn != 8 && bitsOut == 8) return kNotInPlace;
    return Dispatch(selector, run->data, run->data, run->lines, width, bitsIn, bitsOut, layout, channels);
}

// destinationBufferSize is accepted and not examined: a destination too
// small for the output is the caller's to avoid.
extern "C" uint32_t TINTRA3_CALL CMatching2(MatchingSelector* selector, const PixelRun* source,
                                            const PixelRun* destination, uint32_t width, uint32_t bufferSize,
                                            uint32_t /*destinationBufferSize*/, uint16_t bitsIn, uint16_t bitsOut,
                                            uint16_t layout) {
    using namespace tintra3;
    // Without a record there are no channel counts for the size check.
    if (selector->transform == nullptr) return kBuildFailed;
    const Channels channels = ReadChannels(selector);
    if (!BlockFits(source->lines, width, channels.in, bitsIn, bufferSize)) return kBufferTooSmall;
    return Dispatch(selector, source->data, destination->data, source->lines, width, bitsIn, bitsOut, layout,
                    channels);
}
