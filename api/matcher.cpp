// The colour matcher object: image description, profile names, the matching
// selector, the status of the last operation and the progress counters.
#include <cstring>

#include "api/exports.h"
#include "api/status.h"
#include "api/tone_curves.h"

namespace tintra3 {
namespace {

bool ValidBitsIn(uint16_t bits) { return bits == 8 || bits == 10 || bits == 12 || bits == 16; }
bool ValidBitsOut(uint16_t bits) { return bits == 8 || bits == 16; }

}  // namespace
}  // namespace tintra3

using namespace tintra3;

void TINTRA3_CALL InitCColorMatcher(CColorMatcher* matcher, const MatchingParams* params, const ImageParams* image,
                                    const ProfileNames* names) {
    matcher->lastError = 0;
    // memmove: a caller may hand in the object's own records.
    std::memmove(&matcher->image, image, sizeof(ImageParams));
    std::memmove(&matcher->names, names, sizeof(ProfileNames));
    matcher->progressDone = 0;
    // Unsigned 32-bit product, wrapping like the rest of the progress figures.
    matcher->progressTotal = matcher->image.width * matcher->image.lines;

    // These checks leave the selector as it was: it is written only below.
    if (!ValidBitsIn(matcher->image.bitsIn)) {
        matcher->lastError = kBadBitsIn;
        return;
    }
    if (!ValidBitsOut(matcher->image.bitsOut)) {
        matcher->lastError = kBadBitsOut;
        return;
    }
    if (matcher->image.layout > 2) {
        matcher->lastError = kBadLayout;
        return;
    }

    MatchingParams copy;
    std::memcpy(&copy, params, sizeof copy);
    matcher->selector.intent = copy.intent;
    matcher->selector.method = copy.method;
    matcher->selector.transform = copy.transform;
    matcher->selector.destinationMode = copy.destinationMode;
    matcher->lastError =
        Initialize(&matcher->selector, matcher->names.sourceProfile, matcher->names.destinationProfile);
}

uint32_t TINTRA3_CALL ReinitCColorMatcher(CColorMatcher* matcher, const ProfileNames* names) {
    // Intent, method, destination mode and progressTotal stay; the old
    // transform is replaced by Initialize itself.
    matcher->lastError = 0;
    std::memmove(&matcher->names, names, sizeof(ProfileNames));
    matcher->progressDone = 0;
    matcher->lastError =
        Initialize(&matcher->selector, matcher->names.sourceProfile, matcher->names.destinationProfile);
    return matcher->lastError;
}

void TINTRA3_CALL TermCColorMatcher(CColorMatcher* matcher) { TermMatchingSelector(&matcher->selector); }

uint32_t TINTRA3_CALL ColorMatchingProc1(CColorMatcher* matcher, const PixelRun* run) {
    const ImageParams& im = matcher->image;
    uint32_t status = CMatching1(&matcher->selector, run, im.width, im.bufferSize, im.bitsIn, im.bitsOut, im.layout);
    matcher->lastError = status;
    if (status == 0) matcher->progressDone += uint32_t(run->lines) * im.width;
    return status;
}

uint32_t TINTRA3_CALL ColorMatchingProc2(CColorMatcher* matcher, const PixelRun* source,
                                         const PixelRun* destination) {
    const ImageParams& im = matcher->image;
    uint32_t status = CMatching2(&matcher->selector, source, destination, im.width, im.bufferSize,
                                 im.destinationBufferSize, im.bitsIn, im.bitsOut, im.layout);
    matcher->lastError = status;
    if (status == 0) matcher->progressDone += uint32_t(source->lines) * im.width;
    return status;
}

uint32_t TINTRA3_CALL GetProgress(const CColorMatcher* matcher) {
    // done x 100 / total in unsigned 32 bits: the product wraps past 2^32 and
    // the result is not clamped (more pixels than the total give above 100).
    if (matcher->progressTotal == 0) return 0;
    return (matcher->progressDone * 100u) / matcher->progressTotal;
}

uint32_t TINTRA3_CALL CMGetError(const CColorMatcher* matcher) { return matcher->lastError; }

uint32_t TINTRA3_CALL ChangeImageLines(CColorMatcher* matcher, uint32_t lines) {
    // The stored line count stays: only the progress figure reads it.
    matcher->progressTotal = matcher->image.width * lines;
    return 0;
}

uint32_t TINTRA3_CALL ChangeImageWidth(CColorMatcher* matcher, uint32_t width) {
    const uint32_t oldWidth = matcher->image.width;
    matcher->image.width = width;
    // new width x total / old width, product first (wrapping), then truncation.
    matcher->progressTotal = oldWidth == 0 ? 0 : (width * matcher->progressTotal) / oldWidth;
    return 0;
}

uint32_t TINTRA3_CALL ChangeBufSize(CColorMatcher* matcher, uint32_t size) {
    // Only the progress denominator changes; the buffer sizes that the pixel
    // runs are checked against stay those given at set-up.
    matcher->progressTotal = size;
    return 0;
}

uint32_t TINTRA3_CALL Change1DLut(CColorMatcher* matcher, uint16_t side, uint16_t bits, uint16_t channels,
                                  ::ValueBuffer* curves) {
    return ChangeToneCurves(&matcher->selector, side, bits, channels, curves);
}

uint32_t TINTRA3_CALL Merge1DLut(CColorMatcher* matcher, uint16_t side, uint16_t bits, uint16_t channels,
                                 ::ValueBuffer* curves) {
    return MergeToneCurves(&matcher->selector, side, bits, channels, curves);
}
