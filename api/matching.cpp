// Pixel-run dispatch: CMatching1 (in place) and CMatching2 (source to
// destination) check a block against its buffer and the transform's channel
// counts, then hand the whole block to the one kernel that the registry
// gives for (method, input depth, output depth, channel counts, layout) in
// the instruction set chosen at first use.
#include <cstdint>

#include "api/exports.h"
#include "api/status.h"
#include "kernels/kernels.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {
namespace {

struct Channels {
    uint32_t in;
    uint32_t out;
};

// Both records begin with the header, so the counts and the ready flag are
// read before the method is checked.
const TransformHeader* Header(const MatchingSelector* selector) {
    return static_cast<const TransformHeader*>(selector->transform);
}

// A record whose build or tone-curve rebuild failed may lack its tables: it
// must not reach a kernel.
bool Ready(const MatchingSelector* selector) { return Header(selector)->ready != 0; }

Channels ReadChannels(const MatchingSelector* selector) {
    return Channels{Header(selector)->inputChannels, Header(selector)->outputChannels};
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

    const Kernel kernel =
        FindKernel(ActiveIsa(), selector->method, bitsIn, bitsOut == 8 ? 8 : 16, channels.in, channels.out, layout);
    if (kernel != nullptr)
        kernel(Header(selector), source, destination, lines, width, bitsIn, channels.in, channels.out);
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
