// Method 1 pixel kernels: 16-bit multilinear interpolation through a
// Method1Transform. Included once per instruction set by isa_*.cpp. One template over input depth, output depth and channel
// counts makes the 72 interleaved kernels (in-place conversion reuses them);
// the planar kernels pick the same per-pixel routine by channel counts once
// per block (any other count runs a generic one). On x86-64 the
// interpolation of 3 and 4 output channels runs in SSE2 16-bit lanes (AVX2:
// 32-bit lanes), bit for bit the scalar arithmetic; with AVX2, interleaved
// blocks of 3 or 4 inputs to 3 or 4 outputs take two pixels a step
// (method1_wide_avx2.inl). Also the five table accessors.
//
//   sample --input table--> 12-bit coordinate --gridIndex/gridFraction-->
//   cell + 16.16 fractions --multilinear over clut--> 16-bit r
//   --(r * 4095 + 0x8000) >> 16--> 12-bit index --output table--> sample
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

#if defined(TINTRA3_KERNELS_SSE2)
#include <emmintrin.h>
#endif
#if defined(__AVX2__)
#include <immintrin.h>
#endif

#include "kernels/kernels.h"
#include "transform/method1.h"

namespace tintra3 {

namespace {

// Channel counts come from a byte of the record, so per-pixel arrays of the
// planar kernels hold at most this many output channels.
constexpr uint32_t kMaxChannels = 255;
constexpr uint32_t kOutputEntries = 4096;

// Output channels beyond the record's four table slots scatter entry t of
// these (always 0) instead of reading outside the record.
constexpr uint8_t kNoTable8[kOutputEntries] = {};
constexpr uint16_t kNoTable16[kOutputEntries] = {};

// ---- samples ---------------------------------------------------------------
// 8-bit samples are bytes; deeper ones native-order 16-bit words, which the
// caller's buffer need not align (memcpy compiles to a plain load).

template <bool Wide>
struct Sample;

template <>
struct Sample<false> {
    static uint32_t Load(const uint8_t* data, size_t i) { return data[i]; }
    static void Store(uint8_t* data, size_t i, uint8_t v) { data[i] = v; }
};

template <>
struct Sample<true> {
    static uint32_t Load(const uint8_t* data, size_t i) {
        uint16_t v;
        std::memcpy(&v, data + 2 * i, sizeof v);
        return v;
    }
    static void Store(uint8_t* data, size_t i, uint16_t v) { std::memcpy(data + 2 * i, &v, sizeof v); }
};

// Input depth: the input table a sample reads and how the sample becomes
// its index into that table.
template <int Bits>
struct InputDepth;

template <>
struct InputDepth<8> {
    static constexpr bool kWide = false;
    static const uint16_t* Table(const Method1Transform* t, uint32_t c) { return GetInputTable8(t, c); }
    static uint32_t Index(uint32_t x) { return x; }
};

// 10- and 12-bit samples are high-justified in their word: 0x03FF is entry 15.
template <>
struct InputDepth<10> {
    static constexpr bool kWide = true;
    static const uint16_t* Table(const Method1Transform* t, uint32_t c) { return GetInputTable10(t, c); }
    static uint32_t Index(uint32_t x) { return x >> 6; }
};

template <>
struct InputDepth<12> {
    static constexpr bool kWide = true;
    static const uint16_t* Table(const Method1Transform* t, uint32_t c) { return GetInputTable16(t, c); }
    static uint32_t Index(uint32_t x) { return x >> 4; }
};

// 0..65535 onto 0..4095 rounded: 65535 -> 4095, 32768 -> 2048.
template <>
struct InputDepth<16> {
    static constexpr bool kWide = true;
    static const uint16_t* Table(const Method1Transform* t, uint32_t c) { return GetInputTable16(t, c); }
    static uint32_t Index(uint32_t x) { return (x * 4095u + 0x8000u) >> 16; }
};

template <bool Out16>
struct OutputDepth;

template <>
struct OutputDepth<false> {
    using Entry = uint8_t;
    static const Entry* Table(const Method1Transform* t, uint32_t k) { return GetOutputTable8(t, k); }
    static const Entry* NoTable() { return kNoTable8; }
};

template <>
struct OutputDepth<true> {
    using Entry = uint16_t;
    static const Entry* Table(const Method1Transform* t, uint32_t k) { return GetOutputTable16(t, k); }
    static const Entry* NoTable() { return kNoTable16; }
};

// ---- the per-pixel arithmetic ----------------------------------------------
// Everything below is expanded at compile time for a constant input count N
// and (but for the generic planar fallback) a constant output count: the
// corner offsets, the fractions and each output channel's partial results
// are plain locals the compiler keeps in registers, with no loop whose trip
// count depends on the depth of the interpolation tree.

// The SSE2 and AVX2 units define TINTRA3_KERNELS_SSE2; the portable unit
// runs the scalar steps even where the compiler could use SSE2.
#if defined(TINTRA3_KERNELS_SSE2)
#define TINTRA3_M1_SSE2 1
#endif

#if defined(__GNUC__)
#define TINTRA3_PIXEL_INLINE [[gnu::always_inline]] inline
#else
#define TINTRA3_PIXEL_INLINE inline
#endif

// What the interpolation reads, fetched once per block.
struct Grid {
    const uint16_t* cellOf;      // gridIndex: cell of each 12-bit coordinate
    const uint32_t* fractionOf;  // gridFraction: 16.16 position in that cell, 0..0x10000
    const uint16_t* clut;
    uint32_t stride[4];
};

Grid FetchGrid(const Method1Transform* t) {
    return Grid{static_cast<const uint16_t*>(t->gridIndex.data), static_cast<const uint32_t*>(t->gridFraction.data),
                static_cast<const uint16_t*>(t->clut.data),
                {t->strides[0], t->strides[1], t->strides[2], t->strides[3]}};
}

// One interpolation step, f a 16.16 fraction:
//   a + (((b - a) * f + 0x8000) >> 16), kept to 16 bits.
// In unsigned 32-bit arithmetic a falling edge wraps; the logical shift then
// floors the negative difference (a = 10, b = 0, f = 0x8000 gives 5) and the
// mask brings the sum back. (b - a) * f fits: 65535 * 0x10000 + 0x8000 < 2^32.
// Computed as ((a << 16) + (b - a) * f + 0x8000) >> 16: bits 16..31 of a
// 32-bit sum are the sum of bits 16..31 of its terms plus the carry out of
// bits 0..15, modulo 2^16, and a << 16 has no low bits, so adding it there
// adds a to the shifted term modulo 2^16 — the same 16 bits, no mask needed.
TINTRA3_PIXEL_INLINE uint32_t Lerp(uint32_t a, uint32_t b, uint32_t f) {
    return ((a << 16) + (b - a) * f + 0x8000u) >> 16;
}

// 16-bit grid output to the 12-bit output-table index: 65535 -> 4095.
TINTRA3_PIXEL_INLINE uint32_t OutputIndex(uint32_t r) { return (r * 4095u + 0x8000u) >> 16; }

// The cell of one pixel in an N-dimensional grid. Corner m lies at the
// upper end along channel j when bit (N - 1 - j) of m is set, so channel 0
// is the top bit and pairs differing along the last channel are adjacent.
template <int N>
struct Cell {
    uint32_t corner[1 << N];  // clut offsets, formed once and shared by all output channels
    uint32_t fraction[N];
};

// Corner m > 0 is corner m-without-its-lowest-set-bit one stride further
// along that bit's channel: one 32-bit add per corner, in increasing m.
template <int N, size_t M>
TINTRA3_PIXEL_INLINE void FormCorner(const uint32_t* stride, uint32_t base, uint32_t* corner) {
    if constexpr (M == 0) {
        corner[0] = base;
    } else {
        constexpr int kChannel = N - 1 - std::countr_zero(M);
        corner[M] = corner[M & (M - 1)] + stride[kChannel];
    }
}

template <int N, size_t... M>
TINTRA3_PIXEL_INLINE void FormCorners(const uint32_t* stride, uint32_t base, uint32_t* corner,
                                      std::index_sequence<M...>) {
    (FormCorner<N, M>(stride, base, corner), ...);
}

template <int N>
TINTRA3_PIXEL_INLINE Cell<N> LocateCell(const Grid& g, const uint32_t* coordinate) {
    Cell<N> cell;
    uint32_t base = 0;
    for (int j = 0; j < N; ++j) {
        base += g.cellOf[coordinate[j]] * g.stride[j];
        cell.fraction[j] = g.fractionOf[coordinate[j]];
    }
    FormCorners<N>(g.stride, base, cell.corner, std::make_index_sequence<size_t(1) << N>{});
    return cell;
}

// Out output channels side by side: channel k of a grid node lies k samples
// after channel 0, so every step below works on all of them at once.
template <int Out>
struct Lanes {
    uint32_t v[Out];
};

template <int Out, size_t... K>
TINTRA3_PIXEL_INLINE Lanes<Out> LoadLanes(const uint16_t* clut, uint32_t corner, std::index_sequence<K...>) {
    return Lanes<Out>{{uint32_t(clut[size_t(corner) + K])...}};
}

template <int Out, size_t... K>
TINTRA3_PIXEL_INLINE Lanes<Out> LerpLanes(const Lanes<Out>& a, const Lanes<Out>& b, uint32_t f,
                                          std::index_sequence<K...>) {
    return Lanes<Out>{{Lerp(a.v[K], b.v[K], f)...}};
}

// Multilinear interpolation of Out channels starting at clut: the node of
// the tree fixing channels 0..J-1 to the bits of M. Its two halves along
// channel J are interpolated first, so the edges along the last channel are
// the first steps and channel 0 the last; 1, 7 or 15 steps per channel,
// each kept to 16 bits.
template <int J, size_t M, int N, int Out>
TINTRA3_PIXEL_INLINE Lanes<Out> InterpolateCell(const uint16_t* clut, const Cell<N>& cell) {
    if constexpr (J == N) {
        return LoadLanes<Out>(clut, cell.corner[M], std::make_index_sequence<Out>{});
    } else {
        const Lanes<Out> lower = InterpolateCell<J + 1, 2 * M, N, Out>(clut, cell);
        const Lanes<Out> upper = InterpolateCell<J + 1, 2 * M + 1, N, Out>(clut, cell);
        return LerpLanes<Out>(lower, upper, cell.fraction[J], std::make_index_sequence<Out>{});
    }
}

#if defined(TINTRA3_M1_SSE2)
// The same interpolation on SSE2, eight 16-bit lanes: two grid nodes of four
// channels each per register (channel 3 unused for three outputs). Each
// step then works on two tree nodes of every channel at once.
//
// A step in 16 bits, exact for any 32-bit f = fh * 0x10000 + fl. With
// d = b - a (a true integer) and X = d * f + 0x8000, the scalar step keeps
// bits 16..31 of X, that is a + floor(X / 0x10000) modulo 2^16, and
//   floor(X / 0x10000) = d * fh + floor((d * fl + 0x8000) / 0x10000).
// With b * fl = BH * 0x10000 + BL and a * fl = AH * 0x10000 + AL (the high
// and low halves of unsigned 16 x 16 products),
//   floor((d * fl + 0x8000) / 0x10000) = BH - AH + c,
//   c = +1 if BL - AL >= 0x8000, -1 if AL - BL >= 0x8001, else 0.
// Everything is then summed modulo 2^16, where d * fh is (b - a) * fh.
struct Weight16 {
    __m128i low;   // fl in every lane
    __m128i high;  // fh modulo 2^16 in every lane
};

TINTRA3_PIXEL_INLINE Weight16 SplitWeight(uint32_t f) {
    return Weight16{_mm_set1_epi16(int16_t(f & 0xFFFFu)), _mm_set1_epi16(int16_t(f >> 16))};
}

TINTRA3_PIXEL_INLINE __m128i Lerp16(__m128i a, __m128i b, const Weight16& w) {
    const __m128i one = _mm_set1_epi16(1);
    const __m128i bl = _mm_mullo_epi16(b, w.low), al = _mm_mullo_epi16(a, w.low);
    const __m128i bh = _mm_mulhi_epu16(b, w.low), ah = _mm_mulhi_epu16(a, w.low);
    // Saturating differences: the top bit of max(BL - AL, 0) says BL - AL >= 0x8000,
    // that of max(AL - BL - 1, 0) says AL - BL >= 0x8001.
    const __m128i up = _mm_srli_epi16(_mm_subs_epu16(bl, al), 15);                           // 0 or 1
    const __m128i down = _mm_srai_epi16(_mm_subs_epu16(_mm_subs_epu16(al, one), bl), 15);    // 0 or -1
    const __m128i whole = _mm_mullo_epi16(_mm_sub_epi16(b, a), w.high);                      // d * fh
    return _mm_add_epi16(_mm_add_epi16(_mm_add_epi16(a, whole), _mm_sub_epi16(bh, ah)), _mm_add_epi16(up, down));
}

// The Out (3 or 4) channels of one grid node in the low four lanes. Three
// channels are read as a pair and a single sample: no read past the node.
template <int Out>
TINTRA3_PIXEL_INLINE __m128i LoadNode(const uint16_t* clut, uint32_t corner) {
    const uint16_t* node = clut + size_t(corner);
    if constexpr (Out == 4) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(node));
    } else {
        int32_t pair;
        std::memcpy(&pair, node, sizeof pair);
        return _mm_insert_epi16(_mm_cvtsi32_si128(pair), node[2], 2);
    }
}

// Register v of a level holds tree nodes 2v and 2v+1 (low and high half).
// A level of 2^(j+1) nodes becomes 2^j along channel j: nodes 4v, 4v+2
// against 4v+1, 4v+3 give nodes 2v and 2v+1 of the next level.
template <int N, int Out>
TINTRA3_PIXEL_INLINE void InterpolatePixelSse2(const Grid& g, const Cell<N>& cell, uint32_t* index) {
    constexpr int kPairs = 1 << (N - 1);  // registers of the corner level
    __m128i level[kPairs / 2];
    {
        const Weight16 w = SplitWeight(cell.fraction[N - 1]);
        for (int v = 0; v < kPairs / 2; ++v) {
            const __m128i lower = _mm_unpacklo_epi64(LoadNode<Out>(g.clut, cell.corner[4 * v]),
                                                     LoadNode<Out>(g.clut, cell.corner[4 * v + 2]));
            const __m128i upper = _mm_unpacklo_epi64(LoadNode<Out>(g.clut, cell.corner[4 * v + 1]),
                                                     LoadNode<Out>(g.clut, cell.corner[4 * v + 3]));
            level[v] = Lerp16(lower, upper, w);
        }
    }
    for (int j = N - 2, count = kPairs / 2; j >= 1; --j, count /= 2) {
        const Weight16 w = SplitWeight(cell.fraction[j]);
        for (int v = 0; v < count / 2; ++v)
            level[v] = Lerp16(_mm_unpacklo_epi64(level[2 * v], level[2 * v + 1]),
                              _mm_unpackhi_epi64(level[2 * v], level[2 * v + 1]), w);
    }
    const __m128i r = Lerp16(level[0], _mm_unpackhi_epi64(level[0], level[0]), SplitWeight(cell.fraction[0]));
    // (r * 4095 + 0x8000) >> 16 = high half of r * 4095, plus 1 when the low half is >= 0x8000.
    const __m128i scale = _mm_set1_epi16(4095);
    const __m128i e = _mm_add_epi16(_mm_mulhi_epu16(r, scale), _mm_srli_epi16(_mm_mullo_epi16(r, scale), 15));
    index[0] = uint32_t(_mm_extract_epi16(e, 0));
    index[1] = uint32_t(_mm_extract_epi16(e, 1));
    index[2] = uint32_t(_mm_extract_epi16(e, 2));
    if constexpr (Out == 4) index[3] = uint32_t(_mm_extract_epi16(e, 3));
}
#endif

#if defined(__AVX2__)
// The same interpolation on AVX2 in 32-bit lanes: the scalar step word for
// word (a << 16) + (b - a) * f + 0x8000, wrapping alike, then >> 16. A
// register holds two tree nodes of four channels (channel 3 unused for three
// outputs), so each step works on two nodes of every channel at once.
TINTRA3_PIXEL_INLINE __m256i Lerp32(__m256i a, __m256i b, __m256i f) {
    const __m256i shifted = _mm256_slli_epi32(a, 16);
    const __m256i step = _mm256_mullo_epi32(_mm256_sub_epi32(b, a), f);
    return _mm256_srli_epi32(_mm256_add_epi32(_mm256_add_epi32(shifted, step), _mm256_set1_epi32(0x8000)), 16);
}

TINTRA3_PIXEL_INLINE __m128i Lerp32(__m128i a, __m128i b, __m128i f) {
    const __m128i shifted = _mm_slli_epi32(a, 16);
    const __m128i step = _mm_mullo_epi32(_mm_sub_epi32(b, a), f);
    return _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(shifted, step), _mm_set1_epi32(0x8000)), 16);
}

// Grid nodes a and b, channels widened to 32 bits: [a | b].
template <int Out>
TINTRA3_PIXEL_INLINE __m256i LoadNodePair(const uint16_t* clut, uint32_t a, uint32_t b) {
    return _mm256_cvtepu16_epi32(_mm_unpacklo_epi64(LoadNode<Out>(clut, a), LoadNode<Out>(clut, b)));
}

// Register v of a level holds tree nodes 2v (low half) and 2v + 1 (high half).
template <int N, int Out>
TINTRA3_PIXEL_INLINE void InterpolatePixelAvx2(const Grid& g, const Cell<N>& cell, uint32_t* index) {
    constexpr int kRegisters = 1 << (N - 2);  // after the first step
    __m256i level[kRegisters];
    {
        const __m256i f = _mm256_set1_epi32(int(cell.fraction[N - 1]));
        for (int v = 0; v < kRegisters; ++v) {
            const __m256i lower = LoadNodePair<Out>(g.clut, cell.corner[4 * v], cell.corner[4 * v + 2]);
            const __m256i upper = LoadNodePair<Out>(g.clut, cell.corner[4 * v + 1], cell.corner[4 * v + 3]);
            level[v] = Lerp32(lower, upper, f);
        }
    }
    for (int j = N - 2, count = kRegisters; j >= 1; --j, count /= 2) {
        const __m256i f = _mm256_set1_epi32(int(cell.fraction[j]));
        for (int v = 0; v < count / 2; ++v) {
            const __m256i lower = _mm256_permute2x128_si256(level[2 * v], level[2 * v + 1], 0x20);
            const __m256i upper = _mm256_permute2x128_si256(level[2 * v], level[2 * v + 1], 0x31);
            level[v] = Lerp32(lower, upper, f);
        }
    }
    const __m128i r = Lerp32(_mm256_castsi256_si128(level[0]), _mm256_extracti128_si256(level[0], 1),
                             _mm_set1_epi32(int(cell.fraction[0])));
    // (r * 4095 + 0x8000) >> 16, r < 2^16.
    const __m128i e =
        _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi32(r, _mm_set1_epi32(4095)), _mm_set1_epi32(0x8000)), 16);
    index[0] = uint32_t(_mm_extract_epi32(e, 0));
    index[1] = uint32_t(_mm_extract_epi32(e, 1));
    index[2] = uint32_t(_mm_extract_epi32(e, 2));
    if constexpr (Out == 4) index[3] = uint32_t(_mm_extract_epi32(e, 3));
}
#endif

// Output-table indices of a constant number of output channels.
template <int N, int Out>
TINTRA3_PIXEL_INLINE void InterpolatePixel(const Grid& g, const uint32_t* coordinate, uint32_t* index) {
    const Cell<N> cell = LocateCell<N>(g, coordinate);
#if defined(__AVX2__)
    if constexpr (N >= 3 && (Out == 3 || Out == 4)) {
        InterpolatePixelAvx2<N, Out>(g, cell, index);
        return;
    }
#endif
#if defined(TINTRA3_M1_SSE2)
    if constexpr (N >= 3 && (Out == 3 || Out == 4)) {
        InterpolatePixelSse2<N, Out>(g, cell, index);
        return;
    }
#endif
    const Lanes<Out> r = InterpolateCell<0, 0, N, Out>(g.clut, cell);
    for (int k = 0; k < Out; ++k) index[k] = OutputIndex(r.v[k]);
}

// The same for a count known only at run time, one channel at a time.
template <int N>
TINTRA3_PIXEL_INLINE void InterpolatePixel(const Grid& g, const uint32_t* coordinate, uint32_t outputs,
                                           uint32_t* index) {
    const Cell<N> cell = LocateCell<N>(g, coordinate);
    for (uint32_t k = 0; k < outputs; ++k) index[k] = OutputIndex(InterpolateCell<0, 0, N, 1>(g.clut + k, cell).v[0]);
}

// Grid coordinates are 12-bit; the mask keeps a stray table value inside
// gridIndex and gridFraction.
constexpr uint32_t kCoordinateMask = 0xFFF;

}  // namespace
}  // namespace tintra3

#if defined(__AVX2__)
#include "kernels/method1_wide_avx2.inl"
#endif

namespace tintra3 {
namespace {

// ---- interleaved kernels ---------------------------------------------------

template <int Bits, bool Out16, int In, int Out>
void Method1Interleaved(const Method1Transform* t, const void* source, void* destination, uint32_t lines,
                        uint32_t width) {
    // lines x width cannot wrap: the dispatch refuses any block whose size in
    // bytes does not fit in 32 bits.
    const uint32_t pixels = lines * width;
    if (pixels == 0) return;
#if defined(TINTRA3_WIDE_METHOD1)
    if constexpr ((In == 3 || In == 4) && (Out == 3 || Out == 4)) {
        Method1InterleavedWide<Bits, Out16, In, Out>(t, source, destination, pixels);
        return;
    }
#endif
    using Depth = InputDepth<Bits>;
    using Load = Sample<Depth::kWide>;
    using Output = OutputDepth<Out16>;
    using Store = Sample<Out16>;

    const uint16_t* inputTable[In];
    for (int c = 0; c < In; ++c) inputTable[c] = Depth::Table(t, uint32_t(c));
    const typename Output::Entry* outputTable[Out];
    for (int k = 0; k < Out; ++k) outputTable[k] = Output::Table(t, uint32_t(k));
    const Grid g = FetchGrid(t);

    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    if constexpr (In == 1 && Bits == 8) {
        // One 8-bit input: a pixel's output depends on its code alone, so a
        // long run works out the 256 codes once and then looks them up.
        if (pixels >= kMonoTableFrom) {
            typename Output::Entry table[256][Out];
            for (uint32_t u = 0; u < 256; ++u) {
                const uint32_t coordinate[1] = {inputTable[0][u] & kCoordinateMask};
                uint32_t index[Out];
                InterpolatePixel<1, Out>(g, coordinate, index);
                for (int k = 0; k < Out; ++k) table[u][k] = outputTable[k][index[k]];
            }
            for (size_t p = 0; p < pixels; ++p) {
                const typename Output::Entry* r = table[src[p]];
                for (int k = 0; k < Out; ++k) Store::Store(dst, p * Out + k, r[k]);
            }
            return;
        }
    }
    for (size_t p = 0; p < pixels; ++p) {
        // The whole pixel is read before any output is written (in place).
        uint32_t coordinate[In];
        for (int c = 0; c < In; ++c)
            coordinate[c] = inputTable[c][Depth::Index(Load::Load(src, p * In + c))] & kCoordinateMask;
        uint32_t index[Out];
        InterpolatePixel<In, Out>(g, coordinate, index);
        for (int k = 0; k < Out; ++k) Store::Store(dst, p * Out + k, outputTable[k][index[k]]);
    }
}

// ---- planar kernels ----------------------------------------------------------

// Frame- and line-planar blocks differ only in these numbers. A block is
// `rows` runs of `length` pixels; channel c of a pixel lies c * plane
// samples after channel 0; each row starts rowIn / rowOut samples after the
// previous one.
//   frame-planar: 1 row of lines * width pixels, plane = lines * width;
//   line-planar:  `lines` rows of width pixels, plane = width,
//                 rowIn = width * inChannels, rowOut = width * outChannels.
struct Planes {
    size_t rows;
    size_t length;
    size_t plane;
    size_t rowIn;
    size_t rowOut;
};

Planes FramePlanes(uint32_t lines, uint32_t width) {
    const size_t n = lines * width;
    return Planes{1, n, n, 0, 0};
}

Planes LinePlanes(uint32_t lines, uint32_t width, uint32_t inChannels, uint32_t outChannels) {
    return Planes{lines, width, width, size_t(width) * inChannels, size_t(width) * outChannels};
}

// N input channels through the per-pixel routine; N = 0 stands for any
// other count, which runs no routine: every output index stays 0, so each
// output channel receives entry 0 of its table. Out > 0 is the output count
// (outChannels) as a constant; Out = 0 takes it from outChannels.
template <int Bits, bool Out16, int N, int Out>
void PlanarBody(const Method1Transform* t, const uint8_t* src, uint8_t* dst, const Planes& planes,
                uint32_t outChannels) {
    using Depth = InputDepth<Bits>;
    using Load = Sample<Depth::kWide>;
    using Output = OutputDepth<Out16>;
    using Store = Sample<Out16>;
    constexpr uint32_t kSlots = Out > 0 ? uint32_t(Out) : kMaxChannels;
    const uint32_t outputs = Out > 0 ? uint32_t(Out) : outChannels;

    const uint16_t* inputTable[N > 0 ? N : 1] = {};
    size_t inOffset[N > 0 ? N : 1] = {};
    for (int c = 0; c < N; ++c) {
        inputTable[c] = Depth::Table(t, uint32_t(c));
        inOffset[c] = size_t(c) * planes.plane;
    }
    const typename Output::Entry* outputTable[kSlots];
    size_t outOffset[kSlots];
    for (uint32_t k = 0; k < outputs; ++k) {
        const typename Output::Entry* table = k < 4 ? Output::Table(t, k) : nullptr;
        outputTable[k] = table ? table : Output::NoTable();
        outOffset[k] = size_t(k) * planes.plane;
    }
    const Grid g = FetchGrid(t);

    uint32_t index[kSlots] = {};
    for (size_t row = 0; row < planes.rows; ++row) {
        const uint8_t* rowSrc = src + (Depth::kWide ? 2 : 1) * row * planes.rowIn;
        uint8_t* rowDst = dst + (Out16 ? 2 : 1) * row * planes.rowOut;
        for (size_t p = 0; p < planes.length; ++p) {
            if constexpr (N > 0) {
                uint32_t coordinate[N];
                for (int c = 0; c < N; ++c)
                    coordinate[c] = inputTable[c][Depth::Index(Load::Load(rowSrc, inOffset[c] + p))] & kCoordinateMask;
                if constexpr (Out > 0) InterpolatePixel<N, Out>(g, coordinate, index);
                else InterpolatePixel<N>(g, coordinate, outputs, index);
            }
            for (uint32_t k = 0; k < outputs; ++k) Store::Store(rowDst, outOffset[k] + p, outputTable[k][index[k]]);
        }
    }
}

// Constant output counts for the interpolated inputs; the rest run generic.
template <int Bits, bool Out16, int N>
void PlanarByOutputs(const Method1Transform* t, const uint8_t* src, uint8_t* dst, const Planes& planes,
                     uint32_t outChannels) {
    if constexpr (N > 0) {
        switch (outChannels) {
            case 1: return PlanarBody<Bits, Out16, N, 1>(t, src, dst, planes, outChannels);
            case 3: return PlanarBody<Bits, Out16, N, 3>(t, src, dst, planes, outChannels);
            case 4: return PlanarBody<Bits, Out16, N, 4>(t, src, dst, planes, outChannels);
            default: break;
        }
    }
    PlanarBody<Bits, Out16, N, 0>(t, src, dst, planes, outChannels);
}

template <int Bits, bool Out16>
void PlanarByChannels(const Method1Transform* t, const void* source, void* destination, const Planes& planes,
                      uint32_t inChannels, uint32_t outChannels) {
    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    if (outChannels > kMaxChannels) outChannels = kMaxChannels;
    switch (inChannels) {
        case 1: PlanarByOutputs<Bits, Out16, 1>(t, src, dst, planes, outChannels); break;
        case 3: PlanarByOutputs<Bits, Out16, 3>(t, src, dst, planes, outChannels); break;
        case 4: PlanarByOutputs<Bits, Out16, 4>(t, src, dst, planes, outChannels); break;
        default: PlanarByOutputs<Bits, Out16, 0>(t, src, dst, planes, outChannels); break;
    }
}

template <int Layout>
Planes PlanesOf(uint32_t lines, uint32_t width, uint32_t inChannels, uint32_t outChannels) {
    if constexpr (Layout == 1) return FramePlanes(lines, width);
    else return LinePlanes(lines, width, inChannels, outChannels);
}

// 8-bit input: bitsIn is not consulted.
template <bool Out16, int Layout>
void Method1Planar8(const Method1Transform* t, const void* source, void* destination, uint32_t lines,
                    uint32_t width, uint16_t, uint32_t inChannels, uint32_t outChannels) {
    const Planes planes = PlanesOf<Layout>(lines, width, inChannels, outChannels);
    if (planes.rows * planes.length == 0) return;
    PlanarByChannels<8, Out16>(t, source, destination, planes, inChannels, outChannels);
}

// Deeper input: the depth picks the index reduction and the input table
// once per block (10: x >> 6 into the 1024-entry tables; 12: x >> 4 and 16:
// rounded scaling into the 4096-entry ones). Any other depth is read as 16
// bits, which keeps every index inside its table.
template <bool Out16, int Layout>
void Method1PlanarDeep(const Method1Transform* t, const void* source, void* destination, uint32_t lines,
                       uint32_t width, uint16_t bitsIn, uint32_t inChannels, uint32_t outChannels) {
    const Planes planes = PlanesOf<Layout>(lines, width, inChannels, outChannels);
    if (planes.rows * planes.length == 0) return;
    switch (bitsIn) {
        case 10: PlanarByChannels<10, Out16>(t, source, destination, planes, inChannels, outChannels); break;
        case 12: PlanarByChannels<12, Out16>(t, source, destination, planes, inChannels, outChannels); break;
        default: PlanarByChannels<16, Out16>(t, source, destination, planes, inChannels, outChannels); break;
    }
}

}  // namespace
}  // namespace tintra3
