// Method 1 pixel kernels: 16-bit multilinear interpolation through a
// Method1Transform. One template over input depth, output depth and channel
// counts makes the 72 interleaved kernels (in-place conversion reuses them);
// the planar kernels are generic in the channel counts and run the same
// per-pixel routine. Also the five table accessors.
//
//   sample --input table--> 12-bit coordinate --gridIndex/gridFraction-->
//   cell + 16.16 fractions --multilinear over clut--> 16-bit r
//   --(r * 4095 + 0x8000) >> 16--> 12-bit index --output table--> sample
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

#include "kernels/kernels.h"
#include "transform/method1.h"

namespace tintra3 {

// ---- table accessors -------------------------------------------------------
// The record has four table slots per group; a channel beyond them has no table.

const uint16_t* GetInputTable8(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable256[channel] : t->inputTable256[channel]);
}

const uint16_t* GetInputTable10(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable1024[channel] : t->inputTable1024[channel]);
}

const uint16_t* GetInputTable16(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltInputTables ? t->altInputTable4096[channel] : t->inputTable4096[channel]);
}

const uint8_t* GetOutputTable8(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return Bytes(t->useAltOutputTables ? t->altOutputTable8[channel] : t->outputTable8[channel]);
}

const uint16_t* GetOutputTable16(const Method1Transform* t, uint32_t channel) {
    if (channel >= 4) return nullptr;
    return U16(t->useAltOutputTables ? t->altOutputTable16[channel] : t->outputTable16[channel]);
}

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

// What the interpolation reads, fetched once per block.
struct Grid {
    const uint16_t* cellOf;      // gridIndex: cell of each 12-bit coordinate
    const uint32_t* fractionOf;  // gridFraction: 16.16 position in that cell, 0..0x10000
    const uint16_t* clut;
    uint32_t stride[4];
};

Grid FetchGrid(const Method1Transform* t) {
    return Grid{U16(t->gridIndex), U32(t->gridFraction), U16(t->clut),
                {t->strides[0], t->strides[1], t->strides[2], t->strides[3]}};
}

// One interpolation step, f a 16.16 fraction:
//   a + (((b - a) * f + 0x8000) >> 16), kept to 16 bits.
// In unsigned 32-bit arithmetic a falling edge wraps; the logical shift then
// floors the negative difference (a = 10, b = 0, f = 0x8000 gives 5) and the
// mask brings the sum back. (b - a) * f fits: 65535 * 0x10000 + 0x8000 < 2^32.
inline uint32_t Lerp(uint32_t a, uint32_t b, uint32_t f) { return (a + (((b - a) * f + 0x8000u) >> 16)) & 0xFFFFu; }

// 16-bit grid output to the 12-bit output-table index: 65535 -> 4095.
inline uint32_t OutputIndex(uint32_t r) { return (r * 4095u + 0x8000u) >> 16; }

// The cell of one pixel in an N-dimensional grid. Corner m lies at the
// upper end along channel j when bit (N - 1 - j) of m is set, so channel 0
// is the top bit and pairs differing along the last channel are adjacent.
template <int N>
struct Cell {
    uint32_t corner[1 << N];  // clut offsets, formed once and shared by all output channels
    uint32_t fraction[N];
};

template <int N>
inline void LocateCell(const Grid& g, const uint32_t* coordinate, Cell<N>& cell) {
    uint32_t base = 0;
    for (int j = 0; j < N; ++j) {
        base += g.cellOf[coordinate[j]] * g.stride[j];
        cell.fraction[j] = g.fractionOf[coordinate[j]];
    }
    // Each channel doubles the corner list, appending its bit at the bottom;
    // spreading from the top keeps unread entries intact.
    cell.corner[0] = base;
    for (int j = 0; j < N; ++j) {
        for (int m = (1 << j) - 1; m >= 0; --m) {
            const uint32_t lower = cell.corner[m];
            cell.corner[2 * m] = lower;
            cell.corner[2 * m + 1] = lower + g.stride[j];
        }
    }
}

// Multilinear interpolation of one output channel (clut already offset to
// it): the edges along the last channel first, then the results along each
// earlier channel, channel 0 last; 1, 7 or 15 steps, each kept to 16 bits.
template <int N>
inline uint32_t InterpolateChannel(const uint16_t* clut, const Cell<N>& cell) {
    uint32_t v[1 << N];
    for (int m = 0; m < (1 << N); ++m) v[m] = clut[cell.corner[m]];
    for (int j = N - 1; j >= 0; --j) {
        for (int i = 0; i < (1 << j); ++i) v[i] = Lerp(v[2 * i], v[2 * i + 1], cell.fraction[j]);
    }
    return v[0];
}

// The per-pixel routine for N input channels (linear, trilinear,
// quadrilinear): 12-bit grid coordinates in, one output-table index per
// output channel out. Interleaved kernels pass a constant channel count.
template <int N>
inline void InterpolatePixel(const Grid& g, const uint32_t* coordinate, uint32_t outputs, uint32_t* index) {
    Cell<N> cell;
    LocateCell<N>(g, coordinate, cell);
    for (uint32_t k = 0; k < outputs; ++k) index[k] = OutputIndex(InterpolateChannel<N>(g.clut + k, cell));
}

// Grid coordinates are 12-bit; the mask keeps a stray table value inside
// gridIndex and gridFraction.
constexpr uint32_t kCoordinateMask = 0xFFF;

// ---- interleaved kernels ---------------------------------------------------

template <int Bits, bool Out16, int In, int Out>
void Method1Interleaved(const Method1Transform* t, const void* source, void* destination, uint32_t lines,
                        uint32_t width) {
    // lines x width in 32 bits, the product the dispatch's size check uses.
    const uint32_t pixels = lines * width;
    if (pixels == 0) return;
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
    for (size_t p = 0; p < pixels; ++p) {
        // The whole pixel is read before any output is written (in place).
        uint32_t coordinate[In];
        for (int c = 0; c < In; ++c)
            coordinate[c] = inputTable[c][Depth::Index(Load::Load(src, p * In + c))] & kCoordinateMask;
        uint32_t index[Out];
        InterpolatePixel<In>(g, coordinate, Out, index);
        for (int k = 0; k < Out; ++k) Store::Store(dst, p * Out + k, outputTable[k][index[k]]);
    }
}

constexpr int kDepths[] = {8, 10, 12, 16};
constexpr int kChannels[] = {1, 3, 4};
constexpr size_t kInterleavedCount = std::size(kDepths) * 2 * std::size(kChannels) * std::size(kChannels);

// Key = ((depth * 2 + out16) * 3 + in) * 3 + out, each a position in the lists above.
template <size_t Key>
constexpr Method1InterleavedKernel InterleavedAt() {
    return &Method1Interleaved<kDepths[Key / 18], (Key / 9) % 2 == 1, kChannels[(Key / 3) % 3], kChannels[Key % 3]>;
}

template <size_t... Keys>
constexpr std::array<Method1InterleavedKernel, sizeof...(Keys)> MakeInterleavedTable(std::index_sequence<Keys...>) {
    return {InterleavedAt<Keys>()...};
}

constexpr auto kInterleaved = MakeInterleavedTable(std::make_index_sequence<kInterleavedCount>{});
static_assert(kInterleaved.size() == 72, "4 input depths x 2 output depths x 9 channel pairs");

int DepthPosition(uint16_t bits) {
    for (size_t i = 0; i < std::size(kDepths); ++i)
        if (kDepths[i] == bits) return int(i);
    return -1;
}

int ChannelPosition(uint32_t channels) {
    for (size_t i = 0; i < std::size(kChannels); ++i)
        if (uint32_t(kChannels[i]) == channels) return int(i);
    return -1;
}

// ---- planar kernels ----------------------------------------------------------

// Frame- and line-planar blocks differ only in these numbers. A block is
// `rows` runs of `length` pixels; channel c of a pixel lies c * plane
// samples after channel 0; each row starts rowIn / rowOut samples after the
// previous one.
//   frame-planar: 1 row of lines * width pixels, plane = lines * width (the
//                 32-bit product, as the dispatch's size check counts it);
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
// output channel receives entry 0 of its table.
template <int Bits, bool Out16, int N>
void PlanarBody(const Method1Transform* t, const uint8_t* src, uint8_t* dst, const Planes& planes,
                uint32_t outChannels) {
    using Depth = InputDepth<Bits>;
    using Load = Sample<Depth::kWide>;
    using Output = OutputDepth<Out16>;
    using Store = Sample<Out16>;

    const uint16_t* inputTable[N > 0 ? N : 1] = {};
    size_t inOffset[N > 0 ? N : 1] = {};
    for (int c = 0; c < N; ++c) {
        inputTable[c] = Depth::Table(t, uint32_t(c));
        inOffset[c] = size_t(c) * planes.plane;
    }
    const typename Output::Entry* outputTable[kMaxChannels];
    size_t outOffset[kMaxChannels];
    for (uint32_t k = 0; k < outChannels; ++k) {
        const typename Output::Entry* table = k < 4 ? Output::Table(t, k) : nullptr;
        outputTable[k] = table ? table : Output::NoTable();
        outOffset[k] = size_t(k) * planes.plane;
    }
    const Grid g = FetchGrid(t);

    uint32_t index[kMaxChannels] = {};
    for (size_t row = 0; row < planes.rows; ++row) {
        const uint8_t* rowSrc = src;
        uint8_t* rowDst = dst;
        const size_t inStart = row * planes.rowIn;
        const size_t outStart = row * planes.rowOut;
        for (size_t p = 0; p < planes.length; ++p) {
            if constexpr (N > 0) {
                uint32_t coordinate[N];
                for (int c = 0; c < N; ++c)
                    coordinate[c] =
                        inputTable[c][Depth::Index(Load::Load(rowSrc, inStart + inOffset[c] + p))] & kCoordinateMask;
                InterpolatePixel<N>(g, coordinate, outChannels, index);
            }
            for (uint32_t k = 0; k < outChannels; ++k)
                Store::Store(rowDst, outStart + outOffset[k] + p, outputTable[k][index[k]]);
        }
    }
}

template <int Bits, bool Out16>
void PlanarByChannels(const Method1Transform* t, const void* source, void* destination, const Planes& planes,
                      uint32_t inChannels, uint32_t outChannels) {
    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    if (outChannels > kMaxChannels) outChannels = kMaxChannels;
    switch (inChannels) {
        case 1: PlanarBody<Bits, Out16, 1>(t, src, dst, planes, outChannels); break;
        case 3: PlanarBody<Bits, Out16, 3>(t, src, dst, planes, outChannels); break;
        case 4: PlanarBody<Bits, Out16, 4>(t, src, dst, planes, outChannels); break;
        default: PlanarBody<Bits, Out16, 0>(t, src, dst, planes, outChannels); break;
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

// Indexed by [deepInput][out16][layout - 1].
constexpr Method1PlanarKernel kPlanar[2][2][2] = {
    {{&Method1Planar8<false, 1>, &Method1Planar8<false, 2>}, {&Method1Planar8<true, 1>, &Method1Planar8<true, 2>}},
    {{&Method1PlanarDeep<false, 1>, &Method1PlanarDeep<false, 2>},
     {&Method1PlanarDeep<true, 1>, &Method1PlanarDeep<true, 2>}},
};

}  // namespace

Method1InterleavedKernel FindMethod1Interleaved(uint16_t bitsIn, bool out16, uint32_t inChannels,
                                                uint32_t outChannels) {
    const int depth = DepthPosition(bitsIn);
    const int in = ChannelPosition(inChannels);
    const int out = ChannelPosition(outChannels);
    if (depth < 0 || in < 0 || out < 0) return nullptr;
    return kInterleaved[((size_t(depth) * 2 + (out16 ? 1 : 0)) * 3 + size_t(in)) * 3 + size_t(out)];
}

Method1PlanarKernel FindMethod1Planar(bool deepInput, bool out16, uint16_t layout) {
    if (layout != 1 && layout != 2) return nullptr;
    return kPlanar[deepInput ? 1 : 0][out16 ? 1 : 0][layout - 1];
}

}  // namespace tintra3
