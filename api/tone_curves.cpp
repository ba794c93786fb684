// Tone curves at the C edge: the order of the selector's checks and the
// conversion of the caller's buffer records. The curves themselves are bent
// into the transform by transform/tone_curves.cpp.
#include "api/tone_curves.h"

#include <algorithm>

#include "api/status.h"
#include "transform/tone_curves.h"

namespace tintra3 {
namespace {

// Only four curve slots exist; a larger count addresses nothing more.
constexpr uint32_t kMaxCurves = 4;

// Order of checks: method (2040), side (method 1: any other side is a
// no-op giving 0; method 0: 2040), then a missing transform (5000), then
// the curves (5000). A record not ready for pixels (a build or an earlier
// input rebuild failed) is not refused here: the curve steps look only at
// the tables they read, and the pixel dispatch keeps refusing the record,
// since nothing here marks it ready again.
uint32_t Apply(ToneOperation op, MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channelCount,
               ::ValueBuffer* curves) {
    if (selector == nullptr) return kBuildFailed;
    if (selector->method != 0 && selector->method != 1) return kBadMethod;
    if (selector->method == 1 && side > 1) return kOk;
    if (selector->method == 0 && side > 1) return kBadMethod;
    if (selector->transform == nullptr || curves == nullptr) return kBuildFailed;

    const uint32_t maximum = CurveMaximumForBits(bits);
    const uint32_t channels = std::min<uint32_t>(channelCount, kMaxCurves);
    // Only the records the count names are read: a caller may hand in fewer
    // than four. Their entries are shared, so rescaling reaches the caller.
    ValueBuffer own[kMaxCurves] = {};
    for (uint32_t c = 0; c < channels; ++c) own[c] = ToInternal(curves[c]);

    bool applied;
    if (selector->method == 1)
        applied = ApplyToneCurves(static_cast<Method1Transform*>(selector->transform), op, side, maximum, channels, own);
    else
        applied = ApplyToneCurves(static_cast<Method0Transform*>(selector->transform), op, side, maximum, channels, own);
    return applied ? kOk : kBuildFailed;
}

}  // namespace

uint32_t ChangeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                          ::ValueBuffer* curves) {
    return Apply(ToneOperation::kChange, selector, side, bits, channels, curves);
}

uint32_t MergeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                         ::ValueBuffer* curves) {
    return Apply(ToneOperation::kMerge, selector, side, bits, channels, curves);
}

}  // namespace tintra3
