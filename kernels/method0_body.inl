// Method 0 pixel kernels: interleaved (one instantiation per input class,
// output depth and channel pair) and planar (generic in the channel counts).
// Included once per instruction set by isa_*.cpp (no include guard on
// purpose); an instruction set with a wide path defines TINTRA3_WIDE_METHOD0
// with a WideMethod0Interleaved that converts a leading part of the run and
// a WideMethod0Planar that converts a whole planar block or declines it.
//
// Everything runs at 8-bit precision through the curved grid of a
// Method0Transform: deeper input is cut to its high byte, each pixel finds its
// cell and weights by table lookup alone, and 16-bit output is the 8-bit result
// scaled up (the interleaved simplex kernels keep their fractional bits).
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/kernels.h"
#include "kernels/method0_samples.inl"
#include "transform/method0.h"

namespace tintra3 {
namespace {

// ---- tables, fetched once per block ----------------------------------------

struct Tables {
    const uint32_t* grid;  // curved grid: 8-bit output codes held in u32 entries
    // one input channel
    const uint8_t* monoCell;
    const uint16_t* monoFraction;  // 8.8, 256 = 1.0
    uint32_t stride;
    // three or four input channels
    const SimplexInput* input[4];
    const Simplex3* simplex3;
    const Simplex4* simplex4;
    uint32_t far3;  // corner D of a cell, low 16 bits of the stored offset
    uint32_t far4;
};

inline Tables FetchTables(const Method0Transform* t) {
    Tables tables{};
    tables.grid = static_cast<const uint32_t*>(t->curvedGrid.data);
    tables.monoCell = static_cast<const uint8_t*>(t->monoCell.data);
    tables.monoFraction = static_cast<const uint16_t*>(t->monoFraction.data);
    tables.stride = t->strides[0];
    for (int c = 0; c < 4; ++c) tables.input[c] = t->simplexInput[c];
    tables.simplex3 = t->simplex3;
    tables.simplex4 = t->simplex4;
    tables.far3 = t->farCorner3 & 0xFFFFu;
    tables.far4 = t->farCorner4 & 0xFFFFu;
    return tables;
}

// ---- per-pixel arithmetic shared by the interleaved and planar kernels -----
//
// All of it is unsigned 32-bit with wrap-around: a negative difference wraps,
// and since only the low bits of each result are kept (after a logical shift
// that keeps at least those bits intact) the stored value equals the signed
// formula with floor semantics.

// One input channel: the two nodes of the cell and the 8.8 weight.
struct MonoCorners {
    const uint32_t* n0;  // first node of the cell
    const uint32_t* n1;  // next node, one stride further
    uint32_t w;
};

inline MonoCorners LocateMono(const Tables& tb, uint32_t u) {
    const uint32_t* n0 = tb.grid + static_cast<size_t>(tb.monoCell[u]) * tb.stride;
    return {n0, n0 + tb.stride, tb.monoFraction[u]};
}

// r = g0 + (((g1 - g0) * w) >> 8), floor semantics, low 8 bits.
inline uint32_t MonoCode(const MonoCorners& m, uint32_t k) {
    const uint32_t g0 = m.n0[k];
    const uint32_t g1 = m.n1[k];
    return (g0 + (((g1 - g0) * m.w) >> 8)) & 255u;
}

// Two output channels k and k + 1 in one word, one multiply: lane k ends in
// bits 16..23, lane k + 1 in bits 0..7. With d = g1 - g0 per lane,
// ((d_k * w) << 16 + d_k1 * w) >> 8 = floor(d_k * w / 256) << 16
// + (d_k * w mod 256) << 8 + floor(d_k1 * w / 256); the low lane's result
// (0..255) plus the spill in bits 8..15 (at most 0xFF00) never carries into
// lane k, so both lanes equal MonoCode.
inline uint32_t MonoPair(const MonoCorners& m, uint32_t k) {
    const uint32_t p0 = (m.n0[k] << 16) | m.n0[k + 1];
    const uint32_t p1 = (m.n1[k] << 16) | m.n1[k + 1];
    return p0 + (((p1 - p0) * m.w) >> 8);
}

// Three input channels: cell origin, the simplex record, corner D.
struct Simplex3Corners {
    const uint32_t* k0;
    uint32_t a, b, d;
    uint32_t wA, wB, wC;  // eighths
};

inline Simplex3Corners LocateSimplex3(const Tables& tb, uint32_t u0, uint32_t u1, uint32_t u2) {
    const SimplexInput& c0 = tb.input[0][u0];
    const SimplexInput& c1 = tb.input[1][u1];
    const SimplexInput& c2 = tb.input[2][u2];
    const uint32_t base = c0.offset + c1.offset + c2.offset;
    // The index is the plain 32-bit sum of the stored 16-bit parts.
    const uint32_t code = uint32_t{c0.index} + c1.index + c2.index;
    const Simplex3& e = tb.simplex3[code];
    return {tb.grid + base, e.a, e.b, tb.far3, e.w[0], e.w[1], e.w[2]};
}

// s = 8*K0 + wA*(KA - K0) + wB*(KB - KA) + wC*(KD - KB): the code in 8.3 fixed point.
inline uint32_t Simplex3Sum(const Simplex3Corners& c, uint32_t k) {
    const uint32_t K0 = c.k0[k];
    const uint32_t KA = c.k0[c.a + k];
    const uint32_t KB = c.k0[c.b + k];
    const uint32_t KD = c.k0[c.d + k];
    return 8u * K0 + c.wA * (KA - K0) + c.wB * (KB - KA) + c.wC * (KD - KB);
}

// Four input channels: as above with corners A, B, C and weights in sixteenths.
struct Simplex4Corners {
    const uint32_t* k0;
    uint32_t a, b, c, d;
    uint32_t wA, wB, wC, wD;
};

inline Simplex4Corners LocateSimplex4(const Tables& tb, uint32_t u0, uint32_t u1, uint32_t u2, uint32_t u3) {
    const SimplexInput& c0 = tb.input[0][u0];
    const SimplexInput& c1 = tb.input[1][u1];
    const SimplexInput& c2 = tb.input[2][u2];
    const SimplexInput& c3 = tb.input[3][u3];
    const uint32_t base = c0.offset + c1.offset + c2.offset + c3.offset;
    const uint32_t code = uint32_t{c0.index} + c1.index + c2.index + c3.index;
    const Simplex4& e = tb.simplex4[code];
    return {tb.grid + base, e.a, e.b, e.c, tb.far4, e.w[0], e.w[1], e.w[2], e.w[3]};
}

// s = 16*K0 + wA*(KA - K0) + wB*(KB - KA) + wC*(KC - KB) + wD*(KD - KC): the code in 8.4.
inline uint32_t Simplex4Sum(const Simplex4Corners& c, uint32_t k) {
    const uint32_t K0 = c.k0[k];
    const uint32_t KA = c.k0[c.a + k];
    const uint32_t KB = c.k0[c.b + k];
    const uint32_t KC = c.k0[c.c + k];
    const uint32_t KD = c.k0[c.d + k];
    return 16u * K0 + c.wA * (KA - K0) + c.wB * (KB - KA) + c.wC * (KC - KB) + c.wD * (KD - KC);
}

// ---- one input channel by table -------------------------------------------
//
// With one input channel a pixel's output depends on its 8-bit code alone,
// so a long run (kMonoTableFrom pixels or more) first works out all 256
// codes, with the same arithmetic as the per-pixel path, and then only
// looks them up.

struct MonoTable {
    uint8_t code[256][4];
};

// Output channels 0..outputs-1 (at most 4) of every code.
inline void FillMonoTable(const Tables& tb, uint32_t outputs, MonoTable* table) {
    for (uint32_t u = 0; u < 256; ++u) {
        const MonoCorners m = LocateMono(tb, u);
        for (uint32_t k = 0; k < outputs; ++k) table->code[u][k] = static_cast<uint8_t>(MonoCode(m, k));
    }
}

// ---- interleaved kernels ---------------------------------------------------
//
// 16-bit output: one input channel gives code << 8; the simplex kernels keep
// their fraction bits: s << 5 (8.3) or s << 4 (8.4), cut to 16 bits.

template <bool Deep, bool Out16, uint32_t In, uint32_t Out>
void Method0Interleaved(const Method0Transform* t, const void* source, void* destination, uint32_t lines,
                        uint32_t width) {
    static_assert(In == 1 || In == 3 || In == 4);
    static_assert(Out == 1 || Out == 3 || Out == 4);
    // lines x width cannot wrap: the dispatch refuses any block whose size in
    // bytes does not fit in 32 bits.
    const uint32_t pixels = lines * width;
    if (pixels == 0) return;
    const Tables tb = FetchTables(t);
    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    constexpr size_t kInBytes = In * (Deep ? 2 : 1);
    constexpr size_t kOutBytes = Out * (Out16 ? 2 : 1);

    if constexpr (In == 1) {
        if (pixels >= kMonoTableFrom) {
            MonoTable table;
            FillMonoTable(tb, Out, &table);
            for (uint32_t count = pixels; count != 0; --count, src += kInBytes, dst += kOutBytes) {
                const uint8_t* r = table.code[LoadCode<Deep>(src, 0)];
                for (uint32_t k = 0; k < Out; ++k) StoreSample<Out16>(dst, k, Out16 ? uint32_t{r[k]} << 8 : r[k]);
            }
            return;
        }
    }

    uint32_t done = 0;
#if defined(TINTRA3_WIDE_METHOD0)
    if constexpr (In == 3 || In == 4) done = WideMethod0Interleaved<Deep, Out16, In, Out>(t, src, dst, pixels);
#endif
    src += size_t(done) * kInBytes;
    dst += size_t(done) * kOutBytes;

    // Every sample of a pixel is read before any of its outputs is written,
    // so destination == source converts in place.
    for (uint32_t count = pixels - done; count != 0; --count, src += kInBytes, dst += kOutBytes) {
        uint32_t u[In];
        for (uint32_t c = 0; c < In; ++c) u[c] = LoadCode<Deep>(src, c);

        if constexpr (In == 1) {
            const MonoCorners m = LocateMono(tb, u[0]);
            uint32_t r[Out];
            if constexpr (Out == 1) {
                r[0] = MonoCode(m, 0);
            } else {
                const uint32_t pair = MonoPair(m, 0);
                r[0] = (pair >> 16) & 255u;
                r[1] = pair & 255u;
                if constexpr (Out == 3) {
                    r[2] = MonoCode(m, 2);
                } else {
                    const uint32_t pair2 = MonoPair(m, 2);
                    r[2] = (pair2 >> 16) & 255u;
                    r[3] = pair2 & 255u;
                }
            }
            for (uint32_t k = 0; k < Out; ++k) StoreSample<Out16>(dst, k, Out16 ? r[k] << 8 : r[k]);
        } else if constexpr (In == 3) {
            const Simplex3Corners c = LocateSimplex3(tb, u[0], u[1], u[2]);
            for (uint32_t k = 0; k < Out; ++k) {
                const uint32_t s = Simplex3Sum(c, k);
                StoreSample<Out16>(dst, k, Out16 ? s << 5 : s >> 3);
            }
        } else {
            const Simplex4Corners c = LocateSimplex4(tb, u[0], u[1], u[2], u[3]);
            for (uint32_t k = 0; k < Out; ++k) {
                const uint32_t s = Simplex4Sum(c, k);
                StoreSample<Out16>(dst, k, Out16 ? s << 4 : s >> 4);
            }
        }
    }
}

// ---- planar kernels --------------------------------------------------------
//
// Frame-planar (layout 1): sample c of pixel q = l*n + p lies at c*L*n + q.
// Line-planar (layout 2): at l*n*channels + c*n + p, with the source and the
// destination each using their own channel count.
// The planar path keeps no fractional bits: 16-bit output is code << 8.

// In is the block's input channel count when it is 1, 3 or 4, else 0: then no
// interpolation runs and every output sample becomes 0.
// A frame-planar block is one run of lines x width pixels, a line-planar
// block `lines` runs of width pixels.
template <bool Deep, bool Out16, uint16_t Layout, uint32_t In>
void PlanarLoop(const Tables& tb, const uint8_t* src, uint8_t* dst, uint32_t lines, uint32_t width,
                uint32_t inChannels, uint32_t outChannels) {
    const size_t rows = Layout == 1 ? 1 : lines;
    const size_t n = Layout == 1 ? size_t{lines * width} : width;
    const size_t inPlane = n;
    const size_t outPlane = n;
    MonoTable table;
    bool byTable = false;
    if constexpr (In == 1) {
        byTable = outChannels <= 4 && size_t{lines} * width >= kMonoTableFrom;
        if (byTable) FillMonoTable(tb, outChannels, &table);
    }
    for (size_t l = 0; l < rows; ++l) {
        const size_t inLine = Layout == 1 ? 0 : l * n * inChannels;
        const size_t outLine = Layout == 1 ? 0 : l * n * outChannels;
        for (size_t p = 0; p < n; ++p) {
            const size_t in = inLine + p;
            const size_t out = outLine + p;
            // Gather the whole pixel first: the destination may be the source.
            uint32_t u[In == 0 ? 1 : In];
            for (uint32_t c = 0; c < In; ++c) u[c] = LoadCode<Deep>(src, in + c * inPlane);

            auto scatter = [&](uint32_t k, uint32_t code) {
                StoreSample<Out16>(dst, out + k * outPlane, Out16 ? (code & 255u) << 8 : code);
            };
            if constexpr (In == 1) {
                if (byTable) {
                    for (uint32_t k = 0; k < outChannels; ++k) scatter(k, table.code[u[0]][k]);
                    continue;
                }
                const MonoCorners m = LocateMono(tb, u[0]);
                for (uint32_t k = 0; k < outChannels; ++k) scatter(k, MonoCode(m, k));
            } else if constexpr (In == 3) {
                const Simplex3Corners c = LocateSimplex3(tb, u[0], u[1], u[2]);
                for (uint32_t k = 0; k < outChannels; ++k) scatter(k, (Simplex3Sum(c, k) >> 3) & 255u);
            } else if constexpr (In == 4) {
                const Simplex4Corners c = LocateSimplex4(tb, u[0], u[1], u[2], u[3]);
                for (uint32_t k = 0; k < outChannels; ++k) scatter(k, (Simplex4Sum(c, k) >> 4) & 255u);
            } else {
                for (uint32_t k = 0; k < outChannels; ++k) scatter(k, 0);
            }
        }
    }
}

template <bool Deep, bool Out16, uint16_t Layout>
void Method0Planar(const Method0Transform* t, const void* source, void* destination, uint32_t lines,
                   uint32_t width, uint32_t inChannels, uint32_t outChannels) {
    if (lines == 0 || width == 0) return;
    const Tables tb = FetchTables(t);
    const auto* src = static_cast<const uint8_t*>(source);
    auto* dst = static_cast<uint8_t*>(destination);
    // The per-pixel routine depends on the block's channel count only, so it
    // is chosen once here rather than inside the pixel loop.
    switch (inChannels) {
        case 1:
            PlanarLoop<Deep, Out16, Layout, 1>(tb, src, dst, lines, width, inChannels, outChannels);
            break;
        case 3:
#if defined(TINTRA3_WIDE_METHOD0)
            if (WideMethod0Planar<Deep, Out16, Layout>(t, src, dst, lines, width, inChannels, outChannels)) break;
#endif
            PlanarLoop<Deep, Out16, Layout, 3>(tb, src, dst, lines, width, inChannels, outChannels);
            break;
        case 4:
            PlanarLoop<Deep, Out16, Layout, 4>(tb, src, dst, lines, width, inChannels, outChannels);
            break;
        default:
            PlanarLoop<Deep, Out16, Layout, 0>(tb, src, dst, lines, width, inChannels, outChannels);
            break;
    }
}

}  // namespace
}  // namespace tintra3
