// A fuzzed profile as source or destination (against a well-formed one)
// through Initialize, then one block in every layout, input depth and output
// depth, into a separate buffer and in place. Buffers are sized from the
// headers' colour spaces, as a caller sizes them, and exactly: a transform
// with other channel counts than its headers promise would overrun them.
// The last input byte chooses the other profile, the side, the method, the
// intent and the gamut mode.
#include <cstdint>
#include <vector>

#include "api/exports.h"
#include "fuzz/fuzz_support.h"

namespace {

using namespace tintra3::fuzz;

constexpr uint32_t kWidth = 3;
constexpr uint16_t kLines = 2;

std::vector<uint8_t> Pattern(size_t bytes, uint8_t seed) {
    std::vector<uint8_t> p(bytes);
    for (size_t i = 0; i < bytes; ++i) p[i] = uint8_t(i * 37 + seed);
    return p;
}

void ConvertEveryBlock(MatchingSelector* selector, uint32_t inChannels, uint32_t outChannels, uint8_t seed) {
    for (uint16_t layout = 0; layout < 3; ++layout) {
        for (uint16_t bitsIn : {8, 10, 12, 16}) {
            const size_t inBytes = size_t(kWidth) * kLines * inChannels * (bitsIn == 8 ? 1 : 2);
            for (uint16_t bitsOut : {8, 16}) {
                const size_t outBytes = size_t(kWidth) * kLines * outChannels * (bitsOut == 8 ? 1 : 2);
                std::vector<uint8_t> in = Pattern(inBytes, seed);
                std::vector<uint8_t> out(outBytes);
                PixelRun s{in.data(), kLines};
                PixelRun d{out.data(), kLines};
                CMatching2(selector, &s, &d, kWidth, uint32_t(inBytes), uint32_t(outBytes), bitsIn, bitsOut, layout);
            }
            // In place: the buffer must hold the larger of the two sides.
            const uint32_t wider = inChannels > outChannels ? inChannels : outChannels;
            const size_t inPlaceBytes = size_t(kWidth) * kLines * wider * (bitsIn == 8 ? 1 : 2);
            std::vector<uint8_t> both = Pattern(inPlaceBytes, seed);
            PixelRun p{both.data(), kLines};
            CMatching1(selector, &p, kWidth, uint32_t(inBytes), bitsIn, bitsIn == 8 ? 8 : 16, layout);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t options = data[size - 1];
    const Reference& other = ReferenceProfiles()[options & 3];
    const bool fuzzedIsSource = (options & 4) != 0;
    const uint16_t method = (options >> 3) & 1;
    const uint16_t intent = (options >> 4) & 3;
    const uint32_t gamut = (options >> 6) & 1;
    const std::string fuzzed = WriteScratch("transform.icc", data, size);

    const uint32_t fuzzedChannels = CallerChannels(data, size);
    const uint32_t otherChannels = other.channels;

    MatchingSelector selector{intent, method, nullptr, gamut};
    const std::string& source = fuzzedIsSource ? fuzzed : other.path;
    const std::string& destination = fuzzedIsSource ? other.path : fuzzed;
    const uint32_t status = Initialize(&selector, source.c_str(), destination.c_str());
    // The gamut table's output count is not held against the header: room
    // for the most any kernel writes.
    const uint32_t outChannels = gamut != 0 ? 4 : fuzzedIsSource ? otherChannels : fuzzedChannels;
    const uint32_t inChannels = fuzzedIsSource ? fuzzedChannels : otherChannels;
    // Also after a failed build: the record left behind must refuse pixels
    // rather than reach a kernel with missing tables.
    (void)status;
    if (selector.transform != nullptr) ConvertEveryBlock(&selector, inChannels, outChannels, options);
    TermMatchingSelector(&selector);
    return 0;
}
