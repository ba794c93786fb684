// Tone curves bent into a built transform: ChangeToneCurves puts new curves
// in place of a side's own curves, MergeToneCurves composes them with them.
//
// Method 1 keeps a second set of input and output tables with a switch per
// side; the curves are written there and the primary tables stay untouched.
// Method 0 has no second set: the index tables of the input side (simplex or
// monochrome cell/fraction tables) and the curved grid are rebuilt from the
// record's stored curves and grid, which are never rewritten.
//
// Curve entries are u16 on the caller's scale (maximum by bits: 10 -> 1023,
// 12 -> 4095, 16 -> 65535, else 255). Every call checks all the curves it
// will read before touching anything, so a call refused for its curves
// changes nothing, not even the caller's curves. A record that lacks a table
// a step would read (a build that stopped half way) is left as it is; the
// status is then the one the call would give anyway.
#include "api/status.h"
#include "api/tone_curves.h"

#include <algorithm>

#include "profile/resample.h"
#include "profile/value_buffer.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3 {
namespace {

constexpr uint16_t kStatusOutOfMemory = 4;

// Only four curve slots exist; a larger count addresses nothing more.
constexpr uint32_t kMaxCurves = 4;

uint32_t MaximumForBits(uint16_t bits) {
    switch (bits) {
        case 10: return 1023;
        case 12: return 4095;
        case 16: return 65535;
        default: return 255;
    }
}

// The resamplers need two entries at least (one entry would make them read
// before the table).
bool CurveUsable(const ValueBuffer& curve) { return curve.count >= 2 && curve.data != nullptr; }

bool TableHolds(const ValueBuffer& table, uint32_t entries) {
    return table.count >= entries && table.data != nullptr;
}

// True when the channel count reaches `needed` and each of the first
// `needed` curves can be resampled.
bool CurvesCover(const ValueBuffer* curves, uint32_t channels, uint32_t needed) {
    if (channels < needed || needed > kMaxCurves) return false;
    for (uint32_t c = 0; c < needed; ++c) {
        if (!CurveUsable(curves[c])) return false;
    }
    return true;
}

// v = v * range / maximum on the first `channels` of the caller's curves.
void RescaleCallerCurves(ValueBuffer* curves, uint32_t channels, uint32_t maximum, uint32_t range) {
    for (uint32_t c = 0; c < channels; ++c) {
        if (curves[c].data != nullptr) RescaleCurve(&curves[c], maximum, range);
    }
}

// Frees a buffer and leaves it all-zero, ready for a fresh allocation.
void Release(ValueBuffer* buffer) {
    FreeValueBuffer(buffer);
    ClearValueBuffer(buffer);
}

// Work tables released on every path.
struct WorkTables {
    ValueBuffer table[kMaxCurves] = {};
    WorkTables() = default;
    WorkTables(const WorkTables&) = delete;
    WorkTables& operator=(const WorkTables&) = delete;
    ~WorkTables() {
        for (ValueBuffer& t : table) Release(&t);
    }
};

// ---- method 1 ---------------------------------------------------------------

void ReleaseAltInput(Method1Transform* t) {
    for (uint32_t c = 0; c < kMaxCurves; ++c) {
        Release(&t->altInputTable256[c]);
        Release(&t->altInputTable1024[c]);
        Release(&t->altInputTable4096[c]);
    }
}

void ReleaseAltOutput(Method1Transform* t) {
    for (uint32_t c = 0; c < kMaxCurves; ++c) {
        Release(&t->altOutputTable8[c]);
        Release(&t->altOutputTable16[c]);
    }
}

// A side whose alternate set could not be made entirely falls back to the
// primary tables: the kernels must never read a half-made alternate set.
void FinishAltInput(Method1Transform* t, bool complete) {
    if (complete) {
        t->useAltInputTables = 1;
    } else {
        ReleaseAltInput(t);
        t->useAltInputTables = 0;
    }
}

void FinishAltOutput(Method1Transform* t, bool complete) {
    if (complete) {
        t->useAltOutputTables = 1;
    } else {
        ReleaseAltOutput(t);
        t->useAltOutputTables = 0;
    }
}

bool PrimaryInputTablesPresent(const Method1Transform* t, uint32_t c) {
    return TableHolds(t->inputTable256[c], 256) && TableHolds(t->inputTable1024[c], 1024) &&
           TableHolds(t->inputTable4096[c], 4096);
}

bool PrimaryOutputTablesPresent(const Method1Transform* t, uint32_t c) {
    return TableHolds(t->outputTable8[c], 4096) && TableHolds(t->outputTable16[c], 4096);
}

uint32_t ChangeMethod1(Method1Transform* t, uint16_t side, uint32_t maximum, uint32_t channels,
                       ValueBuffer* curves) {
    if (side == 0) {
        if (!CurvesCover(curves, channels, t->inputChannels)) return kBuildFailed;
        // Curves become 12-bit grid coordinates: v * 4096 / maximum, 4096 -> 4095.
        RescaleCallerCurves(curves, channels, maximum, 4096);
        ReleaseAltInput(t);
        bool complete = true;
        for (uint32_t c = 0; c < channels; ++c) {
            if (!CurveUsable(curves[c])) continue;  // beyond the transform's channels
            complete &= ResampleCurve16(&curves[c], 256, &t->altInputTable256[c]) == 1;
            complete &= ResampleCurve16(&curves[c], 1024, &t->altInputTable1024[c]) == 1;
            complete &= ResampleCurve16(&curves[c], 4096, &t->altInputTable4096[c]) == 1;
        }
        FinishAltInput(t, complete);
        return kOk;
    }
    if (side == 1) {
        if (!CurvesCover(curves, channels, t->outputChannels)) return kBuildFailed;
        RescaleCallerCurves(curves, channels, maximum, 65535);
        ReleaseAltOutput(t);
        bool complete = true;
        for (uint32_t c = 0; c < channels; ++c) {
            if (!CurveUsable(curves[c])) continue;
            complete &= ResampleCurve16(&curves[c], 4096, &t->altOutputTable16[c]) == 1;
            complete &= ResampleCurve8(&curves[c], 4096, &t->altOutputTable8[c]) == 1;
        }
        FinishAltOutput(t, complete);
        return kOk;
    }
    return kOk;  // no other side on this method: nothing to do
}

// W = the caller's curve resampled to `entries` u16 values, then rescaled from
// its own maximum to 0 .. entries - 1. The caller's curve is left as it is.
bool MakeComposable(const ValueBuffer& curve, uint32_t entries, uint32_t maximum, ValueBuffer* w) {
    Release(w);
    if (ResampleCurve16(&curve, entries, w) != 1 || !TableHolds(*w, entries)) return false;
    RescaleCurve(w, maximum, entries);
    return true;
}

// table[i] = w[source[i]]: the new curve applied after the primary table.
void Compose16(const ValueBuffer& source, const ValueBuffer& w, ValueBuffer* out, uint32_t entries) {
    const uint16_t* in = U16(source);
    const uint16_t* curve = U16(w);
    uint16_t* dst = U16(*out);
    const uint32_t last = w.count - 1;
    for (uint32_t i = 0; i < entries; ++i) dst[i] = curve[std::min<uint32_t>(in[i], last)];
}

uint32_t MergeMethod1(Method1Transform* t, uint16_t side, uint32_t maximum, uint32_t channels,
                      const ValueBuffer* curves) {
    WorkTables work;
    ValueBuffer* w = &work.table[0];
    if (side == 0) {
        const uint32_t needed = t->inputChannels;
        if (!CurvesCover(curves, channels, needed)) return kBuildFailed;
        for (uint32_t c = 0; c < needed; ++c) {
            if (!PrimaryInputTablesPresent(t, c)) return kOk;
        }
        ReleaseAltInput(t);
        bool complete = true;
        for (uint32_t c = 0; c < channels && complete; ++c) {
            if (!CurveUsable(curves[c]) || !PrimaryInputTablesPresent(t, c)) continue;
            complete = AllocU16(&t->altInputTable256[c], 256) && AllocU16(&t->altInputTable1024[c], 1024) &&
                       AllocU16(&t->altInputTable4096[c], 4096) && MakeComposable(curves[c], 4096, maximum, w);
            if (!complete) break;
            Compose16(t->inputTable256[c], *w, &t->altInputTable256[c], 256);
            Compose16(t->inputTable1024[c], *w, &t->altInputTable1024[c], 1024);
            Compose16(t->inputTable4096[c], *w, &t->altInputTable4096[c], 4096);
        }
        FinishAltInput(t, complete);
        return kOk;
    }
    if (side == 1) {
        const uint32_t needed = t->outputChannels;
        if (!CurvesCover(curves, channels, needed)) return kBuildFailed;
        for (uint32_t c = 0; c < needed; ++c) {
            if (!PrimaryOutputTablesPresent(t, c)) return kOk;
        }
        ReleaseAltOutput(t);
        bool complete = true;
        for (uint32_t c = 0; c < channels && complete; ++c) {
            if (!CurveUsable(curves[c]) || !PrimaryOutputTablesPresent(t, c)) continue;
            complete = AllocBytes(&t->altOutputTable8[c], 4096) && AllocU16(&t->altOutputTable16[c], 4096) &&
                       MakeComposable(curves[c], 256, maximum, w);
            if (!complete) break;
            // 8-bit: the primary 8-bit output code indexes a 256-entry curve on 0 .. 255.
            const uint8_t* out8 = Bytes(t->outputTable8[c]);
            uint8_t* alt8 = Bytes(t->altOutputTable8[c]);
            for (uint32_t i = 0; i < 4096; ++i) alt8[i] = static_cast<uint8_t>(U16(*w)[out8[i]]);
            // 16-bit: the primary value is brought to 12 bits, (v * 4095 + 32768) >> 16,
            // and indexes a 4096-entry curve on 0 .. 4095; the result stays on
            // that 12-bit scale.
            complete = MakeComposable(curves[c], 4096, maximum, w);
            if (!complete) break;
            const uint16_t* out16 = U16(t->outputTable16[c]);
            uint16_t* alt16 = U16(t->altOutputTable16[c]);
            for (uint32_t i = 0; i < 4096; ++i) alt16[i] = U16(*w)[(uint32_t{out16[i]} * 4095 + 32768) >> 16];
        }
        FinishAltOutput(t, complete);
        return kOk;
    }
    return kOk;
}

// ---- method 0 ---------------------------------------------------------------

// The input channels whose curves the input side reads: a monochrome source
// has one grid axis and uses curve 0 alone.
uint32_t Method0InputCurvesNeeded(const Method0Transform* t) {
    return t->sourceKind == 3 ? 1u : t->inputChannels;
}

// A merge also reads the record's own input curves.
bool Method0OwnInputCurvesPresent(const Method0Transform* t, uint32_t n) {
    for (uint32_t c = 0; c < n; ++c) {
        if (!TableHolds(t->inputCurves[c], 256)) return false;
    }
    return true;
}

// Node count times output channels, when the grid and the curved grid hold
// that many entries (0 otherwise).
uint64_t Method0GridEntries(const Method0Transform* t) {
    if (t->outputChannels == 0 || t->outputChannels > kMaxCurves || t->inputChannels == 0 ||
        t->inputChannels > kMaxCurves) {
        return 0;
    }
    uint64_t entries = t->outputChannels;
    for (uint32_t d = 0; d < t->inputChannels; ++d) entries *= t->gridPoints;
    if (entries == 0 || t->grid.data == nullptr || t->curvedGrid.data == nullptr || entries > t->grid.count ||
        entries > t->curvedGrid.count) {
        return 0;
    }
    return entries;
}

// A failed input-side rebuild leaves the record without index tables; it is
// marked unusable so that the dispatch refuses it, and Destroy still frees
// whatever the partial rebuild attached.
uint32_t FailInputRebuild(Method0Transform* t) {
    t->ready = 0;
    return kBuildFailed;
}

// Runs the shared index-table step with 8-bit curves `tables` (one per
// input channel, or one for a monochrome source). The old index tables are
// released first.
uint32_t RebuildMethod0Input(Method0Transform* t, const ValueBuffer* tables) {
    if (t->sourceKind == 3) {
        if (BuildMonoTables(t, &tables[0]) != 1) return FailInputRebuild(t);
    } else {
        if (BuildSimplexTables(t, tables) != 1) return FailInputRebuild(t);
    }
    return kOk;
}

void ReleaseMethod0IndexTables(Method0Transform* t) {
    if (t->sourceKind == 3) {
        Release(&t->monoCell);
        Release(&t->monoFraction);
    } else {
        FreeSimplexTables(t);
    }
}

uint32_t ToneMethod0Input(Method0Transform* t, bool merge, uint32_t maximum, uint32_t channels,
                          ValueBuffer* curves) {
    const uint32_t n = Method0InputCurvesNeeded(t);
    if (!CurvesCover(curves, channels, n)) return kBuildFailed;

    // The caller's curves are rescaled before the kind is looked at: an
    // unknown kind fails with the curves already rescaled.
    RescaleCallerCurves(curves, channels, maximum, 65535);
    if (t->sourceKind < 1 || t->sourceKind > 3 || n == 0) return kBuildFailed;
    if (merge && !Method0OwnInputCurvesPresent(t, n)) return kBuildFailed;
    ReleaseMethod0IndexTables(t);

    WorkTables work;
    for (uint32_t c = 0; c < n; ++c) {
        if (ResampleCurveTo256(&curves[c], &work.table[c]) != 1 || !TableHolds(work.table[c], 256)) {
            t->status = kStatusOutOfMemory;
            return FailInputRebuild(t);
        }
        if (merge) {
            // T'[i] = T[input curve[i]]: the new curve after the record's own.
            uint8_t merged[256];
            const uint8_t* own = Bytes(t->inputCurves[c]);
            const uint8_t* fresh = Bytes(work.table[c]);
            for (uint32_t i = 0; i < 256; ++i) merged[i] = fresh[own[i]];
            std::copy(merged, merged + 256, Bytes(work.table[c]));
        }
    }
    return RebuildMethod0Input(t, work.table);
}

uint32_t ChangeMethod0Output(Method0Transform* t, uint32_t maximum, uint32_t channels, ValueBuffer* curves) {
    const uint32_t outputs = t->outputChannels;
    if (!CurvesCover(curves, channels, outputs)) return kBuildFailed;

    RescaleCallerCurves(curves, channels, maximum, 65535);
    // No grid entries (none to recompute, or no grid to read): nothing to do.
    const uint64_t entries = Method0GridEntries(t);
    if (entries == 0) return kOk;
    WorkTables work;
    for (uint32_t c = 0; c < outputs; ++c) {
        // A table that cannot be made leaves the curved grid as it was.
        if (ResampleCurveTo256(&curves[c], &work.table[c]) != 1 || !TableHolds(work.table[c], 256)) return kOk;
    }
    // curved grid entry = T[c][grid entry]: the new curves replace the
    // record's output curves in effect.
    const uint8_t* grid = Bytes(t->grid);
    uint32_t* curved = U32(t->curvedGrid);
    for (uint64_t e = 0; e < entries; e += outputs) {
        for (uint32_t c = 0; c < outputs; ++c) curved[e + c] = Bytes(work.table[c])[grid[e + c]];
    }
    return kOk;
}

uint32_t MergeMethod0Output(Method0Transform* t, uint32_t maximum, uint32_t channels, ValueBuffer* curves) {
    // Curve 0 alone is applied to every output channel.
    if (!CurvesCover(curves, channels, 1)) return kBuildFailed;

    RescaleCallerCurves(curves, channels, maximum, 65535);
    const uint64_t entries = Method0GridEntries(t);
    if (entries == 0) return kOk;
    const uint32_t outputs = t->outputChannels;
    for (uint32_t c = 0; c < outputs; ++c) {
        if (!TableHolds(t->outputCurves[c], 256)) return kOk;
    }
    WorkTables work;
    if (ResampleCurveTo256(&curves[0], &work.table[0]) != 1 || !TableHolds(work.table[0], 256)) return kOk;
    // curved grid entry = output curve c[T[grid entry]]: the new curve sits
    // between the grid and the record's own output curve.
    const uint8_t* fresh = Bytes(work.table[0]);
    const uint8_t* grid = Bytes(t->grid);
    uint32_t* curved = U32(t->curvedGrid);
    for (uint64_t e = 0; e < entries; e += outputs) {
        for (uint32_t c = 0; c < outputs; ++c) curved[e + c] = Bytes(t->outputCurves[c])[fresh[grid[e + c]]];
    }
    return kOk;
}

enum class Operation { kChange, kMerge };

// Order of checks: method (2040), side (method 1: any other side is a
// no-op giving 0; method 0: 2040), then a missing transform (5000), then
// the curves (5000). A record not ready for pixels (a build or an earlier
// input rebuild failed) is not refused here: the steps below look only at
// the tables they read, and the pixel dispatch keeps refusing the record,
// since nothing here marks it ready again.
uint32_t ApplyToneCurves(Operation op, MatchingSelector* selector, uint16_t side, uint16_t bits,
                         uint16_t channelCount, ValueBuffer* curves) {
    if (selector == nullptr) return kBuildFailed;
    if (selector->method != 0 && selector->method != 1) return kBadMethod;
    if (selector->method == 1 && side > 1) return kOk;
    if (selector->method == 0 && side > 1) return kBadMethod;
    if (selector->transform == nullptr || curves == nullptr) return kBuildFailed;

    const uint32_t maximum = MaximumForBits(bits);
    const uint32_t channels = std::min<uint32_t>(channelCount, kMaxCurves);

    if (selector->method == 1) {
        auto* t = static_cast<Method1Transform*>(selector->transform);
        return op == Operation::kChange ? ChangeMethod1(t, side, maximum, channels, curves)
                                        : MergeMethod1(t, side, maximum, channels, curves);
    }
    auto* t = static_cast<Method0Transform*>(selector->transform);
    uint32_t status = kOk;
    if (side == 0) {
        status = ToneMethod0Input(t, op == Operation::kMerge, maximum, channels, curves);
    } else {
        status = op == Operation::kChange ? ChangeMethod0Output(t, maximum, channels, curves)
                                          : MergeMethod0Output(t, maximum, channels, curves);
    }
    // KERNEL LAYOUT REBUILD: every method 0 tone-curve path, whatever its
    // outcome, may have changed the simplex tables or the curved grid.
    BuildMethod0KernelLayout(t);
    return status;
}

}  // namespace

uint32_t ChangeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                          ValueBuffer* curves) {
    return ApplyToneCurves(Operation::kChange, selector, side, bits, channels, curves);
}

uint32_t MergeToneCurves(MatchingSelector* selector, uint16_t side, uint16_t bits, uint16_t channels,
                         ValueBuffer* curves) {
    return ApplyToneCurves(Operation::kMerge, selector, side, bits, channels, curves);
}

}  // namespace tintra3
