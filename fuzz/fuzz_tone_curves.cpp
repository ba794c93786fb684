// Tone curves bent into a freshly built transform: any number of changes and
// merges, through the matcher (Change1DLut / Merge1DLut with raw value
// buffers) and the toolbox (QemToolboxChange1DLUT / QemToolboxMerge1DLUT with
// identity, gamma and table requests), then one block in every depth.
//
// Input: byte 0 picks the profile pair and the method; then operations of
// six bytes (call, side, bits, channels, length low, length high) each
// followed by the curve values it takes (zeros when the input runs out).
#include <cstdint>
#include <cstring>
#include <vector>

#include "api/exports.h"
#include "fuzz/fuzz_support.h"

namespace {

using namespace tintra3::fuzz;

struct Reader {
    const uint8_t* data;
    size_t size;
    size_t at = 0;
    bool empty() const { return at >= size; }
    uint8_t Byte() { return at < size ? data[at++] : 0; }
    uint16_t Word() {
        const uint16_t hi = Byte();
        return uint16_t((hi << 8) | Byte());
    }
};

// Longest curve a fuzzed request asks for: longer ones add time, not paths.
constexpr uint32_t kMaxLength = 4100;
constexpr uint16_t kBits[5] = {8, 10, 12, 16, 9};

void ConvertEveryDepth(CColorMatcher* handle, const ImageParams& image, uint32_t inChannels, uint32_t outChannels) {
    for (uint16_t bitsIn : {8, 10, 12, 16}) {
        for (uint16_t bitsOut : {8, 16}) {
            ImageParams im = image;
            im.bitsIn = bitsIn;
            im.bitsOut = bitsOut;
            im.bufferSize = im.width * inChannels * (bitsIn == 8 ? 1 : 2);
            im.destinationBufferSize = im.width * outChannels * (bitsOut == 8 ? 1 : 2);
            std::vector<uint8_t> in(im.bufferSize);
            for (size_t i = 0; i < in.size(); ++i) in[i] = uint8_t(i * 53);
            std::vector<uint8_t> out(im.destinationBufferSize);
            handle->image = im;
            PixelRun s{in.data(), 1};
            PixelRun d{out.data(), 1};
            ColorMatchingProc2(handle, &s, &d);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    Reader r{data, size};
    const uint8_t choice = r.Byte();
    const std::vector<Reference>& refs = ReferenceProfiles();
    // Pairs: grey to grey (one channel, cheap), RGB to RGB (matrix/TRC),
    // RGB to a CMYK table, CMYK table to RGB.
    static const int kPairs[4][2] = {{1, 1}, {0, 0}, {0, 2}, {2, 0}};
    const Reference& source = refs[kPairs[choice & 3][0]];
    const Reference& destination = refs[kPairs[choice & 3][1]];
    const uint16_t method = (choice >> 2) & 1;

    char names[512] = {};
    std::strncpy(names, source.path.c_str(), 255);
    std::strncpy(names + 256, destination.path.c_str(), 255);
    const ImageParams image{7, 1, 7 * 4 * 2, 7 * 4 * 2, 8, 8, 0, 0};
    CColorMatcher* handle = nullptr;
    if (QemToolboxInit(&image, names, method, (choice >> 3) & 3, &handle) != 0) {
        QemToolboxPostProc(handle);
        return 0;
    }

    for (int op = 0; op < 8 && !r.empty(); ++op) {
        const uint8_t call = r.Byte() & 3;
        const uint16_t side = r.Byte() % 3;
        const uint16_t bits = kBits[r.Byte() % 5];
        const uint16_t channels = r.Byte() % 6;
        const uint32_t length = r.Word() % kMaxLength;
        std::vector<std::vector<uint16_t>> values(4, std::vector<uint16_t>(length > 0 ? length : 1));
        for (uint32_t c = 0; c < 4 && c < channels; ++c)
            for (uint16_t& v : values[c]) v = r.Word();
        if (call < 2) {
            // Raw value buffers: any length, including 0 and 1 entries.
            ValueBuffer curves[4] = {};
            for (int c = 0; c < 4; ++c) {
                curves[c].count = length;
                curves[c].data = length != 0 ? values[c].data() : nullptr;
            }
            if (call == 0)
                Change1DLut(handle, side, bits, channels, curves);
            else
                Merge1DLut(handle, side, bits, channels, curves);
        } else {
            // Requests: 0 identity, 1 gamma, n >= 2 a table of n entries.
            CurveSpec request{};
            request.channels = channels;
            request.bits = bits;
            request.kind = length;
            for (int c = 0; c < 4; ++c) request.data[c] = values[c].data();
            if (call == 2)
                QemToolboxChange1DLUT(&request, side, handle);
            else
                QemToolboxMerge1DLUT(&request, side, handle);
        }
    }
    ConvertEveryDepth(handle, image, source.channels, destination.channels);
    QemToolboxPostProc(handle);
    return 0;
}
