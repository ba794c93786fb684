// Method 1, three or four input channels to three or four outputs,
// pixel-interleaved, on AVX2: two pixels per step, each cell read as
// columns of two nodes. Included by method1_body.inl after its per-pixel
// helpers (Grid, LoadNode, the depth and sample policies), outside its
// namespaces.
//
// Bit for bit the scalar path: the same 32-bit wrapping steps in the same
// order (the last input channel first, channel 0 last), the same output
// index, the same tables.
//
// Why this shape: the per-pixel routine is one long dependent chain (input
// table, cell, a load per corner, the steps, output table) of about a
// hundred operations, so the out-of-order window holds two pixels and waits.
// Here the nodes z and z + 1 of a column are Out samples apart in the clut,
// so a cell is 4 (or 8) column loads instead of 8 (or 16) node loads; a
// register holds one column of two pixels, so three inputs take two, one
// and half a 256-bit step per pixel, with no lane crossing between them
// on the chain; the output tables are read in a separate pass over
// a run of pixels, which cuts the chain in two; and 8-bit samples of a large
// block go through per-channel tables made once per block (input table,
// mask, gridIndex x stride and gridFraction folded into one entry). Gathers
// are no help: on the machines measured an eight-lane gather costs more
// than eight scalar loads.
#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#define TINTRA3_WIDE_METHOD1 1

namespace tintra3 {
namespace {

// Where a pixel's cell starts in the clut and where its In fractions lie
// (pointers, so the broadcasts read them straight from their tables).
template <int In>
struct WideCell {
    uint32_t base;
    const uint32_t* fraction[In];
};

// One entry per 8-bit code of a channel: cellOf[coordinate] x stride and
// gridFraction[coordinate] of that code's coordinate.
struct CodeEntry {
    uint32_t offset;
    uint32_t fraction;
};

// Below this many pixels the per-block tables cost more than they save
// (256 entries a channel, against two lookups, a mask and a multiply saved
// per pixel and channel; about 1.6 ns a pixel for three inputs, measured).
constexpr size_t kCodeTableMinPixels = 512;

template <int In>
struct CodeTables {
    alignas(64) CodeEntry entry[In][256];
};

template <int In>
void FillCodeTables(const Method1Transform* t, const Grid& g, CodeTables<In>& tables) {
    for (uint32_t c = 0; c < uint32_t(In); ++c) {
        const uint16_t* input = InputDepth<8>::Table(t, c);
        for (uint32_t v = 0; v < 256; ++v) {
            const uint32_t coordinate = input[v] & kCoordinateMask;
            tables.entry[c][v] = CodeEntry{g.cellOf[coordinate] * g.stride[c], g.fractionOf[coordinate]};
        }
    }
}

// 8-bit samples through the per-block tables.
template <int In>
struct LocateByCode {
    const CodeTables<In>* tables;
    TINTRA3_PIXEL_INLINE WideCell<In> operator()(const uint8_t* src, size_t p) const {
        const uint8_t* pixel = src + In * p;
        WideCell<In> cell;
        cell.base = 0;
        for (int c = 0; c < In; ++c) {
            const CodeEntry& e = tables->entry[c][pixel[c]];
            cell.base += e.offset;
            cell.fraction[c] = &e.fraction;
        }
        return cell;
    }
};

// Any depth through the record's own tables, as the per-pixel routine does.
template <int Bits, int In>
struct LocateByTable {
    const Grid* g;
    const uint16_t* input[In];
    TINTRA3_PIXEL_INLINE WideCell<In> operator()(const uint8_t* src, size_t p) const {
        using Depth = InputDepth<Bits>;
        using Load = Sample<Depth::kWide>;
        WideCell<In> cell;
        cell.base = 0;
        for (int c = 0; c < In; ++c) {
            const uint32_t coordinate = input[c][Depth::Index(Load::Load(src, In * p + size_t(c)))] & kCoordinateMask;
            cell.base += g->cellOf[coordinate] * g->stride[c];
            cell.fraction[c] = &g->fractionOf[coordinate];
        }
        return cell;
    }
};

// A step kept unshifted: X = (a << 16) + (b - a) * f + 0x8000 in wrapping
// 32-bit lanes, the step's value being X >> 16. The next step needs that
// value both plain and as (value << 16) + 0x8000, which is X with its low
// word replaced by 0x8000: one blend instead of a shift and an add.
TINTRA3_PIXEL_INLINE __m256i Step(__m256i aRaised, __m256i a, __m256i b, __m256i f) {
    return _mm256_add_epi32(aRaised, _mm256_mullo_epi32(_mm256_sub_epi32(b, a), f));
}

TINTRA3_PIXEL_INLINE __m256i StepOfSteps(__m256i lower, __m256i upper, __m256i f) {
    const __m256i raised = _mm256_blend_epi16(lower, _mm256_set1_epi32(0x8000), 0x55);
    return Step(raised, _mm256_srli_epi32(lower, 16), _mm256_srli_epi32(upper, 16), f);
}

// Two columns of Out-channel nodes, the one at `a` in the low half and the
// one at `b` in the high half: the step along the last channel between
// their nodes z and z + 1, channel k in lane k of each half. Adjacent: node
// z + 1 follows node z (the builder's layout), read as one 16-byte load
// (four channels) or two 8-byte loads that overlap by two samples (three
// channels), never outside the two nodes. Otherwise each node is read on
// its own, zStride samples apart.
template <int Out, bool Adjacent>
TINTRA3_PIXEL_INLINE __m128i LoadColumn(const uint16_t* node, size_t zStride) {
    if constexpr (!Adjacent) {
        return _mm_unpacklo_epi64(LoadNode<Out>(node, 0), LoadNode<Out>(node + zStride, 0));
    } else if constexpr (Out == 4) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(node));
    } else {
        // Samples 0 1 2 3 | 2 3 4 5: node z in words 0..2, node z + 1 in words 5..7.
        const __m128i head = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(node));
        return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(head), reinterpret_cast<const double*>(node + 2)));
    }
}

template <int Out, bool Adjacent>
TINTRA3_PIXEL_INLINE __m256i StepColumns(const uint16_t* a, const uint16_t* b, size_t zStride, __m256i f) {
    const __m128i low = LoadColumn<Out, Adjacent>(a, zStride);
    const __m128i high = LoadColumn<Out, Adjacent>(b, zStride);
    const __m256i pair = _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
    // Words 0..3 widened, and the same words raised: (v << 16) + 0x8000.
    const __m256i lower = _mm256_unpacklo_epi16(pair, _mm256_setzero_si256());
    const __m256i raised = _mm256_unpacklo_epi16(_mm256_set1_epi16(int16_t(0x8000)), pair);
    __m256i upper;
    if constexpr (Out == 3 && Adjacent) {
        const char z = char(0x80);
        upper = _mm256_shuffle_epi8(pair, _mm256_setr_epi8(10, 11, z, z, 12, 13, z, z, 14, 15, z, z, z, z, z, z,  //
                                                           10, 11, z, z, 12, 13, z, z, 14, 15, z, z, z, z, z, z));
    } else {
        upper = _mm256_unpackhi_epi16(pair, _mm256_setzero_si256());
    }
    return Step(raised, lower, upper, f);
}

// Where a cell's columns start, in samples from its first node. The
// column at `low[j]` (channel 0 at the lower end) and the one `high`
// further (channel 0 at the upper end) share a register; j runs over
// channels 1 .. In - 2 with the last of them in bit 0, as the corners do.
template <int In>
struct ColumnOffsets {
    size_t high;
    size_t low[1 << (In - 2)];
    size_t z;  // between nodes z and z + 1
};

template <int In>
ColumnOffsets<In> ColumnOffsetsOf(const Grid& g) {
    // 64 bits: a clut holds fewer than 2^32 samples, so inside it these
    // sums equal the per-pixel path's 32-bit ones.
    ColumnOffsets<In> s;
    s.high = g.stride[0];
    s.z = g.stride[In - 1];
    s.low[0] = 0;
    for (int j = 1; j < (1 << (In - 2)); ++j) {
        const int channel = In - 2 - std::countr_zero(uint32_t(j));
        s.low[j] = s.low[j & (j - 1)] + g.stride[channel];
    }
    return s;
}

// Fraction c of pixels p (lanes 0..3) and q (lanes 4..7).
template <int In>
TINTRA3_PIXEL_INLINE __m256i PairFraction(const WideCell<In>& p, const WideCell<In>& q, int c) {
    return _mm256_blend_epi32(_mm256_set1_epi32(int(*p.fraction[c])), _mm256_set1_epi32(int(*q.fraction[c])), 0xF0);
}

// Output-table indices of pixels p (lanes 0..3) and q (lanes 4..7). Each
// register holds the same column of both pixels, so every step, the last
// one too, takes whole registers and no lane crosses a half.
template <int In, int Out, bool Adjacent>
TINTRA3_PIXEL_INLINE __m256i InterpolatePair(const uint16_t* clut, const ColumnOffsets<In>& s,
                                             const WideCell<In>& p, const WideCell<In>& q) {
    constexpr int kColumns = 1 << (In - 2);  // per end of channel 0
    const uint16_t* firstP = clut + size_t(p.base);
    const uint16_t* firstQ = clut + size_t(q.base);
    __m256i level[2][kColumns];
    {
        const __m256i f = PairFraction<In>(p, q, In - 1);
        for (int end = 0; end < 2; ++end) {
            const size_t x = end == 0 ? 0 : s.high;
            for (int j = 0; j < kColumns; ++j)
                level[end][j] = StepColumns<Out, Adjacent>(firstP + s.low[j] + x, firstQ + s.low[j] + x, s.z, f);
        }
    }
    for (int channel = In - 2, count = kColumns; channel >= 1; --channel, count /= 2) {
        const __m256i f = PairFraction<In>(p, q, channel);
        for (int end = 0; end < 2; ++end) {
            for (int j = 0; j < count / 2; ++j)
                level[end][j] = StepOfSteps(level[end][2 * j], level[end][2 * j + 1], f);
        }
    }
    const __m256i x = StepOfSteps(level[0][0], level[1][0], PairFraction<In>(p, q, 0));
    // (r * 4095 + 0x8000) >> 16, r < 2^16.
    const __m256i r = _mm256_srli_epi32(x, 16);
    return _mm256_srli_epi32(
        _mm256_add_epi32(_mm256_mullo_epi32(r, _mm256_set1_epi32(4095)), _mm256_set1_epi32(0x8000)), 16);
}

// A run of at most kWideRun pixels is interpolated whole before any of its
// outputs is written, which also keeps conversion in place correct.
constexpr size_t kWideRun = 32;

template <int In, bool Out16, int Out, bool Adjacent, class Locate>
void WideRuns(const Grid& g, const Locate& locate, const typename OutputDepth<Out16>::Entry* const* outputTable,
              const uint8_t* src, uint8_t* dst, size_t pixels) {
    using Store = Sample<Out16>;
    const ColumnOffsets<In> columns = ColumnOffsetsOf<In>(g);
    alignas(32) uint32_t index[4 * kWideRun];
    for (size_t start = 0; start < pixels; start += kWideRun) {
        const size_t count = std::min(kWideRun, pixels - start);
        // Two pairs a turn (measured faster than one: more independent work
        // in view of the out-of-order window), then the rest a pair at a
        // time; an odd last pixel is interpolated twice, as its own pair.
        size_t i = 0;
        for (; i + 3 < count; i += 4) {
            const auto c0 = locate(src, start + i);
            const auto c1 = locate(src, start + i + 1);
            const auto c2 = locate(src, start + i + 2);
            const auto c3 = locate(src, start + i + 3);
            const __m256i pair0 = InterpolatePair<In, Out, Adjacent>(g.clut, columns, c0, c1);
            const __m256i pair1 = InterpolatePair<In, Out, Adjacent>(g.clut, columns, c2, c3);
            _mm256_store_si256(reinterpret_cast<__m256i*>(index + 4 * i), pair0);
            _mm256_store_si256(reinterpret_cast<__m256i*>(index + 4 * i + 8), pair1);
        }
        for (; i < count; i += 2) {
            const auto cp = locate(src, start + i);
            const auto cq = i + 1 < count ? locate(src, start + i + 1) : cp;
            const __m256i pair = InterpolatePair<In, Out, Adjacent>(g.clut, columns, cp, cq);
            _mm256_store_si256(reinterpret_cast<__m256i*>(index + 4 * i), pair);
        }
        for (i = 0; i < count; ++i) {
            const size_t at = (start + i) * Out;
            for (int k = 0; k < Out; ++k) Store::Store(dst, at + size_t(k), outputTable[k][index[4 * i + size_t(k)]]);
        }
    }
}

template <int In, bool Out16, int Out, class Locate>
void WideByLayout(const Grid& g, const Locate& locate, const typename OutputDepth<Out16>::Entry* const* outputTable,
                  const uint8_t* src, uint8_t* dst, size_t pixels) {
    if (g.stride[In - 1] == uint32_t(Out)) WideRuns<In, Out16, Out, true>(g, locate, outputTable, src, dst, pixels);
    else WideRuns<In, Out16, Out, false>(g, locate, outputTable, src, dst, pixels);
}

template <int Bits, bool Out16, int In, int Out>
void Method1InterleavedWide(const Method1Transform* t, const void* source, void* destination, size_t pixels) {
    using Output = OutputDepth<Out16>;
    const typename Output::Entry* outputTable[Out];
    for (int k = 0; k < Out; ++k) outputTable[k] = Output::Table(t, uint32_t(k));
    const Grid g = FetchGrid(t);
    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    if constexpr (Bits == 8) {
        if (pixels >= kCodeTableMinPixels) {
            CodeTables<In> tables;
            FillCodeTables<In>(t, g, tables);
            WideByLayout<In, Out16, Out>(g, LocateByCode<In>{&tables}, outputTable, src, dst, pixels);
            return;
        }
    }
    LocateByTable<Bits, In> locate{&g, {}};
    for (int c = 0; c < In; ++c) locate.input[c] = InputDepth<Bits>::Table(t, uint32_t(c));
    WideByLayout<In, Out16, Out>(g, locate, outputTable, src, dst, pixels);
}

}  // namespace
}  // namespace tintra3
