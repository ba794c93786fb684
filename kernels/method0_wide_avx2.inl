// Method 0 on AVX2 from the kernel layout (transform_header.h).
//
// Four input channels: eight pixels per step with gathers. Bit for bit the
// scalar simplex sum: every product and sum of that formula is taken modulo
// 2^16 here, and the bits it keeps (4..11 for 8-bit output, 0..11 for
// 16-bit) lie below bit 16, so they come out the same.
//
// Three input channels: plain loads and a multiply-add per two pixels (see
// PairedMethod0Rgb below); its records are small enough to stay in cache.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/method0_samples.inl"

#define TINTRA3_WIDE_METHOD0 1

namespace tintra3 {
namespace {

struct WideTables {
    const int* nodes;
    const int* inputs;
    const int* simplex;
    __m256i corner[3][4];  // node offsets of corners A, B, C per corner set, eight sets a register
    __m256i far;
};

inline __m256i Gather(const int* table, __m256i index) { return _mm256_i32gather_epi32(table, index, 4); }

// Byte j of a pixel's packed weights spread over the four 16-bit lanes of
// its output channels; `second` picks pixels 2, 3 (else 0, 1) of each half.
inline __m256i SpreadWeight(__m256i weights, int j, bool second) {
    const char p = char((second ? 8 : 0) + j);
    const char q = char(p + 4);
    const char z = char(0x80);
    const __m256i mask = _mm256_setr_epi8(p, z, p, z, p, z, p, z, q, z, q, z, q, z, q, z,
                                          p, z, p, z, p, z, p, z, q, z, q, z, q, z, q, z);
    return _mm256_shuffle_epi8(weights, mask);
}

// Node offset of a corner for each pixel's corner set (0..31, eight a register).
inline __m256i CornerOf(const __m256i* sets, __m256i set) {
    __m256i corner = _mm256_permutevar8x32_epi32(sets[0], set);
    for (int r = 1; r < 4; ++r) {
        const __m256i above = _mm256_cmpgt_epi32(set, _mm256_set1_epi32(8 * r - 1));
        corner = _mm256_blendv_epi8(corner, _mm256_permutevar8x32_epi32(sets[r], set), above);
    }
    return corner;
}

// Simplex sums of G groups of eight pixels: lo holds pixels 0, 1 | 4, 5 and
// hi pixels 2, 3 | 6, 7 of a group, four 16-bit channel lanes each. Each
// step runs for every group before the next one starts, so that the gathers
// of one group wait while those of the others are in flight.
template <int G>
inline void SimplexSums(const WideTables& w, const __m256i (*u)[4], __m256i* lo, __m256i* hi) {
    constexpr int kIn = 4;
    __m256i base[G];
    __m256i code[G];
    for (int g = 0; g < G; ++g) {
        base[g] = Gather(w.inputs, u[g][0]);
        code[g] = Gather(w.inputs + 1024, u[g][0]);
        for (int c = 1; c < kIn; ++c) {
            base[g] = _mm256_add_epi32(base[g], Gather(w.inputs + 256 * c, u[g][c]));
            code[g] = _mm256_add_epi32(code[g], Gather(w.inputs + 1024 + 256 * c, u[g][c]));
        }
    }
    __m256i record[G];
    for (int g = 0; g < G; ++g) record[g] = Gather(w.simplex, code[g]);

    constexpr int kCorners = kIn + 1;  // K0, A, B, C, D
    __m256i node[G][kCorners];
    for (int g = 0; g < G; ++g) {
        const __m256i set = _mm256_srli_epi32(record[g], 20);
        node[g][0] = Gather(w.nodes, base[g]);
        for (int j = 0; j + 1 < kIn; ++j)
            node[g][j + 1] = Gather(w.nodes, _mm256_add_epi32(base[g], CornerOf(w.corner[j], set)));
        node[g][kIn] = Gather(w.nodes, _mm256_add_epi32(base[g], w.far));
    }

    const __m256i zero = _mm256_setzero_si256();
    const __m256i field = _mm256_set1_epi32(31);
    for (int g = 0; g < G; ++g) {
        // Weights as bytes 0..3 of each pixel.
        __m256i weights = _mm256_and_si256(record[g], field);
        for (int j = 1; j < kIn; ++j) {
            const __m256i wj = _mm256_and_si256(_mm256_srli_epi32(record[g], 5 * j), field);
            weights = _mm256_or_si256(weights, _mm256_slli_epi32(wj, 8 * j));
        }
        for (int half = 0; half < 2; ++half) {
            __m256i k[kCorners];
            for (int j = 0; j < kCorners; ++j)
                k[j] = half == 0 ? _mm256_unpacklo_epi8(node[g][j], zero) : _mm256_unpackhi_epi8(node[g][j], zero);
            // s = 2^shift K0 + sum over j of w_j (K_{j+1} - K_j)
            __m256i s = _mm256_slli_epi16(k[0], 4);
            for (int j = 0; j < kIn; ++j) {
                const __m256i weight = SpreadWeight(weights, j, half == 1);
                s = _mm256_add_epi16(s, _mm256_mullo_epi16(weight, _mm256_sub_epi16(k[j + 1], k[j])));
            }
            (half == 0 ? lo : hi)[g] = s;
        }
    }
}

// Codes of eight pixels, one 32-bit lane per pixel and channel.
template <bool Deep>
inline void LoadCodes(const uint8_t* src, __m256i* u) {
    __m256i v;
    if constexpr (Deep) {
        // High bytes of 32 words, back in pixel order after the in-lane pack.
        const __m256i a = _mm256_srli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src)), 8);
        const __m256i b = _mm256_srli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 32)), 8);
        v = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    } else {
        v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
    }
    const __m256i byte = _mm256_set1_epi32(0xFF);
    for (int c = 0; c < 4; ++c) u[c] = _mm256_and_si256(_mm256_srli_epi32(v, 8 * c), byte);
}

// 24 bytes from two lanes of 12 (dwords 0..2 of each lane).
inline void Store24(uint8_t* dst, __m256i v) {
    const __m256i packed = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + 16), _mm256_extracti128_si256(packed, 1));
}

inline void Store8(uint8_t* dst, __m256i v) {
    const __m256i packed = _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 1, 1, 1, 1, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm256_castsi256_si128(packed));
}

// Out channels of four pixels held as four 16-bit lanes each (8 bytes per pixel).
template <uint32_t Out>
inline void StoreWords4(uint8_t* dst, __m256i v) {
    if constexpr (Out == 4) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), v);
    } else if constexpr (Out == 3) {
        const __m256i mask = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1,
                                              0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1);
        Store24(dst, _mm256_shuffle_epi8(v, mask));
    } else {
        const __m256i mask = _mm256_setr_epi8(0, 1, 8, 9, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                              0, 1, 8, 9, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
        Store8(dst, _mm256_shuffle_epi8(v, mask));
    }
}

template <bool Out16, uint32_t Out>
inline void StoreResults(uint8_t* dst, __m256i lo, __m256i hi) {
    constexpr int kShift = 4;
    if constexpr (Out16) {
        lo = _mm256_slli_epi16(lo, 8 - kShift);
        hi = _mm256_slli_epi16(hi, 8 - kShift);
        StoreWords4<Out>(dst, _mm256_permute2x128_si256(lo, hi, 0x20));
        StoreWords4<Out>(dst + 4 * 2 * Out, _mm256_permute2x128_si256(lo, hi, 0x31));
    } else {
        const __m256i byte = _mm256_set1_epi16(0xFF);
        lo = _mm256_and_si256(_mm256_srli_epi16(lo, kShift), byte);
        hi = _mm256_and_si256(_mm256_srli_epi16(hi, kShift), byte);
        const __m256i codes = _mm256_packus_epi16(lo, hi);  // one dword per pixel, in order
        if constexpr (Out == 4) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), codes);
        } else if constexpr (Out == 3) {
            const __m256i mask = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,
                                                  0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
            Store24(dst, _mm256_shuffle_epi8(codes, mask));
        } else {
            const __m256i mask = _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                  0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
            Store8(dst, _mm256_shuffle_epi8(codes, mask));
        }
    }
}

// Three inputs, two pixels a register, without gathers (slow on some
// processors): each pixel's table reads are plain loads, and its four corner
// nodes (one u32 each, output channel k in byte k) go into one 128-bit lane.
// A byte shuffle lines up the four corners of each channel, and one
// multiply-add of unsigned node bytes by the signed corner weights of the
// record (layout.weighted) sums the simplex formula per channel:
//   s = (8 - wA) K0 + (wA - wB) KA + (wB - wC) KB + wC KD,
// the same integer as 8 K0 + wA (KA - K0) + wB (KB - KA) + wC (KD - KB).
// Weights of at most 31 keep each pair of products within 16 bits, and the
// 32-bit lanes then hold s exactly; the stored bits are those of the scalar
// wrapping sum.
struct PairedTables {
    const uint32_t* nodes;
    const uint32_t* inputs;
    const uint32_t* weighted;
    uint32_t far;
};

// The four corner nodes of the pixel with codes u0, u1, u2, and its record's weights.
inline __m128i CornersOf(const PairedTables& w, uint32_t u0, uint32_t u1, uint32_t u2, const uint32_t** weights) {
    const uint32_t sum = w.inputs[u0] + w.inputs[256 + u1] + w.inputs[512 + u2];
    const uint32_t base = sum >> 16;
    const uint32_t* record = w.weighted + 2 * (sum & 0xFFFFu);
    *weights = record;
    const uint32_t ab = record[1];
    __m128i v = _mm_cvtsi32_si128(int(w.nodes[base]));
    v = _mm_insert_epi32(v, int(w.nodes[base + (ab & 0xFFFFu)]), 1);
    v = _mm_insert_epi32(v, int(w.nodes[base + (ab >> 16)]), 2);
    return _mm_insert_epi32(v, int(w.nodes[base + w.far]), 3);
}

// Byte b of each output sample of the pixels in a register (one per
// 128-bit lane), moved to where the pixel's samples go in a run: the low
// lane's pixel is pixel firstPixel, the high lane's the next one. Other
// bytes zero.
template <uint32_t SampleBytes, uint32_t Out>
inline __m256i PlaceSamples(__m256i s, uint32_t firstPixel) {
    alignas(32) int8_t mask[32];
    for (int lane = 0; lane < 2; ++lane) {
        for (int i = 0; i < 16; ++i) mask[16 * lane + i] = -1;
        const uint32_t at = (firstPixel + uint32_t(lane)) * SampleBytes * Out;
        for (uint32_t k = 0; k < Out; ++k) {
            for (uint32_t b = 0; b < SampleBytes; ++b) {
                const uint32_t to = at + k * SampleBytes + b;
                if (to < 16) mask[16 * lane + to] = int8_t(4 * k + b);
            }
        }
    }
    return _mm256_shuffle_epi8(s, _mm256_load_si256(reinterpret_cast<const __m256i*>(mask)));
}

// The 16 bytes two lanes hold between them.
inline __m128i Fold(__m256i v) { return _mm_or_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)); }

template <size_t Bytes>
inline void StoreBytes(uint8_t* dst, __m128i v) {
    static_assert(Bytes == 4 || Bytes == 8 || Bytes == 12 || Bytes == 16);
    if constexpr (Bytes == 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), v);
    } else if constexpr (Bytes == 4) {
        const uint32_t low = uint32_t(_mm_cvtsi128_si32(v));
        std::memcpy(dst, &low, 4);
    } else {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), v);
        if constexpr (Bytes == 12) {
            const uint32_t high = uint32_t(_mm_extract_epi32(v, 2));
            std::memcpy(dst + 8, &high, 4);
        }
    }
}

// Four pixels' simplex sums (pixels 0, 1 in s01, 2, 3 in s23) to their samples.
template <bool Out16, uint32_t Out>
inline void StoreFour(uint8_t* dst, __m256i s01, __m256i s23) {
    if constexpr (Out16) {
        // Two pixels a store: 4, 12 or 16 bytes.
        StoreBytes<4 * Out>(dst, Fold(PlaceSamples<2, Out>(_mm256_slli_epi32(s01, 5), 0)));
        StoreBytes<4 * Out>(dst + 4 * Out, Fold(PlaceSamples<2, Out>(_mm256_slli_epi32(s23, 5), 0)));
    } else {
        const __m256i a = PlaceSamples<1, Out>(_mm256_srli_epi32(s01, 3), 0);
        const __m256i b = PlaceSamples<1, Out>(_mm256_srli_epi32(s23, 3), 2);
        StoreBytes<4 * Out>(dst, Fold(_mm256_or_si256(a, b)));
    }
}

inline PairedTables PairedTablesOf(const KernelLayout& layout) {
    return PairedTables{static_cast<const uint32_t*>(layout.nodes.data),
                        static_cast<const uint32_t*>(layout.inputs.data),
                        static_cast<const uint32_t*>(layout.weighted.data), layout.farNode};
}

// A record's four weights in every dword of a lane.
inline __m128i SpreadWeights(const uint32_t* weights) {
    return _mm_castps_si128(_mm_broadcast_ss(reinterpret_cast<const float*>(weights)));
}

// The simplex sums of two pixels, channel k in dword k of the pixel's lane.
inline __m256i PairedSums(__m128i corners0, const uint32_t* weights0, __m128i corners1, const uint32_t* weights1) {
    // Per 128-bit lane: corner j of channel k from byte 4j + k to byte 4k + j.
    const __m256i transpose = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15,
                                               0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const __m256i corners = _mm256_shuffle_epi8(_mm256_set_m128i(corners1, corners0), transpose);
    const __m256i weights = _mm256_set_m128i(SpreadWeights(weights1), SpreadWeights(weights0));
    return _mm256_madd_epi16(_mm256_maddubs_epi16(corners, weights), _mm256_set1_epi16(1));
}

template <bool Deep, bool Out16, uint32_t Out>
uint32_t PairedMethod0Rgb(const Method0Transform* t, const uint8_t* src, uint8_t* dst, uint32_t pixels) {
    const PairedTables w = PairedTablesOf(t->layout);
    constexpr size_t kInBytes = 3 * (Deep ? 2 : 1);
    constexpr size_t kOutBytes = Out * (Out16 ? 2 : 1);
    uint32_t done = 0;
    // All four pixels of a step are read before any is written (in place).
    for (; pixels - done >= 4; done += 4, src += 4 * kInBytes, dst += 4 * kOutBytes) {
        const uint32_t* weights[4];
        __m128i corners[4];
        for (int p = 0; p < 4; ++p) {
            const uint8_t* pixel = src + p * kInBytes;
            corners[p] = CornersOf(w, LoadCode<Deep>(pixel, 0), LoadCode<Deep>(pixel, 1), LoadCode<Deep>(pixel, 2), &weights[p]);
        }
        StoreFour<Out16, Out>(dst, PairedSums(corners[0], weights[0], corners[1], weights[1]),
                              PairedSums(corners[2], weights[2], corners[3], weights[3]));
    }
    return done;
}

// Planar blocks of three input channels and as many outputs as the record
// has (at most four), two pixels a step; false when the block does not
// qualify (the portable loop then runs). The planar path stores the code
// alone: 16-bit output is code << 8. Layouts as in PlanarLoop.
template <bool Deep, bool Out16, uint16_t Layout>
bool WideMethod0Planar(const Method0Transform* t, const uint8_t* src, uint8_t* dst, uint32_t lines, uint32_t width,
                       uint32_t inChannels, uint32_t outChannels) {
    const KernelLayout& layout = t->layout;
    if (layout.usable == 0 || layout.weighted.data == nullptr || inChannels != 3 || t->inputChannels != 3 ||
        outChannels != t->outputChannels || outChannels > 4) {
        return false;
    }
    const PairedTables w = PairedTablesOf(layout);
    const size_t rows = Layout == 1 ? 1 : lines;
    const size_t n = Layout == 1 ? size_t{lines} * width : width;
    auto store = [&](size_t at, uint32_t code) {
        if constexpr (Out16) {
            const auto word = static_cast<uint16_t>(code << 8);
            std::memcpy(dst + 2 * at, &word, sizeof word);
        } else {
            dst[at] = static_cast<uint8_t>(code);
        }
    };
    for (size_t l = 0; l < rows; ++l) {
        const size_t inLine = Layout == 1 ? 0 : l * n * 3;
        const size_t outLine = Layout == 1 ? 0 : l * n * outChannels;
        for (size_t p = 0; p < n; p += 2) {
            // The last pixel of an odd row goes through both lanes.
            const size_t q = p + 1 < n ? p + 1 : p;
            const uint32_t* weights[2];
            __m128i corners[2];
            for (int i = 0; i < 2; ++i) {
                const size_t at = inLine + (i == 0 ? p : q);
                corners[i] = CornersOf(w, LoadCode<Deep>(src, at), LoadCode<Deep>(src, at + n), LoadCode<Deep>(src, at + 2 * n),
                                       &weights[i]);
            }
            alignas(32) uint32_t codes[8];
            const __m256i s = PairedSums(corners[0], weights[0], corners[1], weights[1]);
            _mm256_store_si256(reinterpret_cast<__m256i*>(codes), _mm256_and_si256(_mm256_srli_epi32(s, 3),
                                                                                    _mm256_set1_epi32(255)));
            for (uint32_t k = 0; k < outChannels; ++k) {
                store(outLine + k * n + p, codes[k]);
                if (q != p) store(outLine + k * n + q, codes[4 + k]);
            }
        }
    }
    return true;
}

// Four inputs: converts the leading multiple of eight pixels of an
// interleaved run and returns how many it converted. A step's pixels (16,
// then 8) are read whole before any of them is written; in place the output
// is never longer than the input, so no unread sample is overwritten.
template <bool Deep, bool Out16, uint32_t Out>
uint32_t GatheredMethod0Cmyk(const KernelLayout& layout, const uint8_t* src, uint8_t* dst, uint32_t pixels) {
    WideTables w;
    w.nodes = static_cast<const int*>(layout.nodes.data);
    w.inputs = static_cast<const int*>(layout.inputs.data);
    w.simplex = static_cast<const int*>(layout.simplex.data);
    for (int j = 0; j < 3; ++j) {
        for (int r = 0; r < 4; ++r)
            w.corner[j][r] = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(layout.corners[j] + 8 * r));
    }
    w.far = _mm256_set1_epi32(int(layout.farNode));

    constexpr size_t kInBytes = 4 * (Deep ? 2 : 1);
    constexpr size_t kOutBytes = Out * (Out16 ? 2 : 1);
    constexpr int kGroups = 2;
    constexpr uint32_t kStep = 8 * kGroups;
    uint32_t done = 0;
    for (; pixels - done >= kStep; done += kStep, src += kStep * kInBytes, dst += kStep * kOutBytes) {
        __m256i u[kGroups][4];
        for (int g = 0; g < kGroups; ++g) LoadCodes<Deep>(src + 8 * g * kInBytes, u[g]);
        __m256i lo[kGroups];
        __m256i hi[kGroups];
        SimplexSums<kGroups>(w, u, lo, hi);
        for (int g = 0; g < kGroups; ++g) StoreResults<Out16, Out>(dst + 8 * g * kOutBytes, lo[g], hi[g]);
    }
    for (; pixels - done >= 8; done += 8, src += 8 * kInBytes, dst += 8 * kOutBytes) {
        __m256i u[1][4];
        LoadCodes<Deep>(src, u[0]);
        __m256i lo[1];
        __m256i hi[1];
        SimplexSums<1>(w, u, lo, hi);
        StoreResults<Out16, Out>(dst, lo[0], hi[0]);
    }
    return done;
}

// Converts a leading part of an interleaved run of three or four inputs and
// returns how many pixels it converted (0 when the record has no usable layout).
template <bool Deep, bool Out16, uint32_t In, uint32_t Out>
uint32_t WideMethod0Interleaved(const Method0Transform* t, const uint8_t* src, uint8_t* dst, uint32_t pixels) {
    const KernelLayout& layout = t->layout;
    if (layout.usable == 0 || t->inputChannels != In || t->outputChannels != Out) return 0;
    if constexpr (In == 3) {
        return layout.weighted.data != nullptr ? PairedMethod0Rgb<Deep, Out16, Out>(t, src, dst, pixels) : 0;
    } else {
        return GatheredMethod0Cmyk<Deep, Out16, Out>(layout, src, dst, pixels);
    }
}

}  // namespace
}  // namespace tintra3
