// Tone curves bent into a built transform: a change puts new curves in place
// of a side's own curves, a merge composes them with them.
//
// Method 1 keeps a second set of input and output tables with a switch per
// side; the curves are written there and the primary tables stay untouched.
// Method 0 has no second set: the index tables of the input side (simplex or
// monochrome cell/fraction tables) and the curved grid are rebuilt from the
// record's stored curves and grid, which are never rewritten.
//
// Curve entries are u16 on the caller's scale (CurveMaximumForBits). Every
// call checks all the curves it will read before touching anything, so a
// call refused for its curves changes nothing, not even the caller's curves. A record that lacks a table
// a step would read (a build that stopped half way) is left as it is; the
// status is then the one the call would give anyway.
#include "transform/tone_curves.h"

#include <algorithm>
#include <cmath>

#include "profile/fixed_point.h"
#include "profile/resample.h"
#include "transform/build_common.h"

namespace tintra3 {
namespace {

// Only four curve slots exist; a larger count addresses nothing more.
constexpr uint32_t kMaxCurves = 4;

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

bool ChangeMethod1(Method1Transform* t, uint16_t side, uint32_t maximum, uint32_t channels,
                   ValueBuffer* curves) {
    if (side == 0) {
        if (!CurvesCover(curves, channels, t->inputChannels)) return false;
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
        return true;
    }
    if (side == 1) {
        if (!CurvesCover(curves, channels, t->outputChannels)) return false;
        RescaleCallerCurves(curves, channels, maximum, 65535);
        ReleaseAltOutput(t);
        bool complete = true;
        for (uint32_t c = 0; c < channels; ++c) {
            if (!CurveUsable(curves[c])) continue;
            complete &= ResampleCurve16(&curves[c], 4096, &t->altOutputTable16[c]) == 1;
            complete &= ResampleCurve8(&curves[c], 4096, &t->altOutputTable8[c]) == 1;
        }
        FinishAltOutput(t, complete);
        return true;
    }
    return true;  // no other side on this method: nothing to do
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

bool MergeMethod1(Method1Transform* t, uint16_t side, uint32_t maximum, uint32_t channels,
                  const ValueBuffer* curves) {
    WorkTables work;
    ValueBuffer* w = &work.table[0];
    if (side == 0) {
        const uint32_t needed = t->inputChannels;
        if (!CurvesCover(curves, channels, needed)) return false;
        for (uint32_t c = 0; c < needed; ++c) {
            if (!PrimaryInputTablesPresent(t, c)) return true;
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
        return true;
    }
    if (side == 1) {
        const uint32_t needed = t->outputChannels;
        if (!CurvesCover(curves, channels, needed)) return false;
        for (uint32_t c = 0; c < needed; ++c) {
            if (!PrimaryOutputTablesPresent(t, c)) return true;
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
        return true;
    }
    return true;
}

// ---- method 0 ---------------------------------------------------------------

// The input channels whose curves the input side reads: a monochrome source
// has one grid axis and uses curve 0 alone.
uint32_t Method0InputCurvesNeeded(const Method0Transform* t) {
    return IsGrayKind(t->sourceKind) ? 1u : t->inputChannels;
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
bool FailInputRebuild(Method0Transform* t) {
    t->ready = 0;
    return false;
}

// Runs the shared index-table step with 8-bit curves `tables` (one per
// input channel, or one for a monochrome source). The old index tables are
// released first.
bool RebuildMethod0Input(Method0Transform* t, const ValueBuffer* tables) {
    if (IsGrayKind(t->sourceKind)) {
        if (BuildMonoTables(t, &tables[0]) != 1) return FailInputRebuild(t);
    } else {
        if (BuildSimplexTables(t, tables) != 1) return FailInputRebuild(t);
    }
    return true;
}

void ReleaseMethod0IndexTables(Method0Transform* t) {
    if (IsGrayKind(t->sourceKind)) {
        Release(&t->monoCell);
        Release(&t->monoFraction);
    } else {
        FreeSimplexTables(t);
    }
}

bool ToneMethod0Input(Method0Transform* t, bool merge, uint32_t maximum, uint32_t channels,
                      ValueBuffer* curves) {
    const uint32_t n = Method0InputCurvesNeeded(t);
    if (!CurvesCover(curves, channels, n)) return false;

    // The caller's curves are rescaled before the kind is looked at: an
    // unknown kind fails with the curves already rescaled.
    RescaleCallerCurves(curves, channels, maximum, 65535);
    if (!IsKnownKind(t->sourceKind) || n == 0) return false;
    if (merge && !Method0OwnInputCurvesPresent(t, n)) return false;
    ReleaseMethod0IndexTables(t);

    WorkTables work;
    for (uint32_t c = 0; c < n; ++c) {
        if (ResampleCurveTo256(&curves[c], &work.table[c]) != 1 || !TableHolds(work.table[c], 256)) {
            t->status = kBuildStatusNoMemory;
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

bool ChangeMethod0Output(Method0Transform* t, uint32_t maximum, uint32_t channels, ValueBuffer* curves) {
    const uint32_t outputs = t->outputChannels;
    if (!CurvesCover(curves, channels, outputs)) return false;

    RescaleCallerCurves(curves, channels, maximum, 65535);
    // No grid entries (none to recompute, or no grid to read): nothing to do.
    const uint64_t entries = Method0GridEntries(t);
    if (entries == 0) return true;
    WorkTables work;
    for (uint32_t c = 0; c < outputs; ++c) {
        // A table that cannot be made leaves the curved grid as it was.
        if (ResampleCurveTo256(&curves[c], &work.table[c]) != 1 || !TableHolds(work.table[c], 256)) return true;
    }
    // curved grid entry = T[c][grid entry]: the new curves replace the
    // record's output curves in effect.
    const uint8_t* grid = Bytes(t->grid);
    uint32_t* curved = U32(t->curvedGrid);
    for (uint64_t e = 0; e < entries; e += outputs) {
        for (uint32_t c = 0; c < outputs; ++c) curved[e + c] = Bytes(work.table[c])[grid[e + c]];
    }
    return true;
}

bool MergeMethod0Output(Method0Transform* t, uint32_t maximum, uint32_t channels, ValueBuffer* curves) {
    // Curve 0 alone is applied to every output channel.
    if (!CurvesCover(curves, channels, 1)) return false;

    RescaleCallerCurves(curves, channels, maximum, 65535);
    const uint64_t entries = Method0GridEntries(t);
    if (entries == 0) return true;
    const uint32_t outputs = t->outputChannels;
    for (uint32_t c = 0; c < outputs; ++c) {
        if (!TableHolds(t->outputCurves[c], 256)) return true;
    }
    WorkTables work;
    if (ResampleCurveTo256(&curves[0], &work.table[0]) != 1 || !TableHolds(work.table[0], 256)) return true;
    // curved grid entry = output curve c[T[grid entry]]: the new curve sits
    // between the grid and the record's own output curve.
    const uint8_t* fresh = Bytes(work.table[0]);
    const uint8_t* grid = Bytes(t->grid);
    uint32_t* curved = U32(t->curvedGrid);
    for (uint64_t e = 0; e < entries; e += outputs) {
        for (uint32_t c = 0; c < outputs; ++c) curved[e + c] = Bytes(t->outputCurves[c])[fresh[grid[e + c]]];
    }
    return true;
}

}  // namespace

uint32_t CurveMaximumForBits(uint16_t bits) {
    switch (bits) {
        case 10: return 1023;
        case 12: return 4095;
        case 16: return 65535;
        default: return 255;
    }
}

int MakeToneCurves(uint32_t kind, uint16_t channels, const uint16_t* const data[4], uint32_t maximum,
                   ValueBuffer curves[4]) {
    if (kind == 0) {
        // Identity: two entries 0 and maximum, copied to every further channel.
        if (!AllocU16(&curves[0], 2)) return 0;
        U16(curves[0])[0] = 0;
        U16(curves[0])[1] = static_cast<uint16_t>(maximum);
        for (uint16_t c = 1; c < channels; ++c) {
            if (!CopyU16(&curves[0], &curves[c])) return 0;
        }
        return 1;
    }
    if (kind == 1) {
        // 1024 samples of x^gamma, gamma in 8.8 fixed point; x steps by
        // 1/1023 accumulated in double precision (so it drifts from i/1023
        // exactly as the curves have always been made).
        for (uint16_t c = 0; c < channels; ++c) {
            if (data[c] == nullptr) return 0;
            if (!AllocU16(&curves[c], 1024)) return 0;
            const double gamma = data[c][0] * 0.00390625;
            uint16_t* out = U16(curves[c]);
            double x = 0.0;
            for (uint32_t i = 0; i < 1024; ++i) {
                // + 0.5, truncated toward zero, kept as 16 bits.
                const int32_t v = TruncToInt(std::pow(x, gamma) * maximum + 0.5);
                out[i] = static_cast<uint16_t>(static_cast<uint32_t>(v) & 0xFFFFu);
                x += 0.0009775171065493646;
            }
        }
        return 1;
    }
    // A table of `kind` entries per channel, copied unchanged.
    for (uint16_t c = 0; c < channels; ++c) {
        if (data[c] == nullptr) return 0;
        if (!AllocU16(&curves[c], kind)) return 0;
        std::copy(data[c], data[c] + kind, U16(curves[c]));
    }
    return 1;
}

bool ApplyToneCurves(Method1Transform* t, ToneOperation op, uint16_t side, uint32_t maximum, uint32_t channels,
                     ValueBuffer* curves) {
    return op == ToneOperation::kChange ? ChangeMethod1(t, side, maximum, channels, curves)
                                        : MergeMethod1(t, side, maximum, channels, curves);
}

bool ApplyToneCurves(Method0Transform* t, ToneOperation op, uint16_t side, uint32_t maximum, uint32_t channels,
                     ValueBuffer* curves) {
    if (side == 0) return ToneMethod0Input(t, op == ToneOperation::kMerge, maximum, channels, curves);
    return op == ToneOperation::kChange ? ChangeMethod0Output(t, maximum, channels, curves)
                                        : MergeMethod0Output(t, maximum, channels, curves);
}

}  // namespace tintra3
