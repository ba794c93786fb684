// Derives the kernel layout of a method 0 record (see transform_header.h).
//
// The vector kernels read one u32 per grid node (all output channels of the
// node, one byte each), per channel and code the grid node offset and the
// simplex index part (one u32 for three inputs), and one u32 per simplex
// record (three or four 5-bit weights and the number of its corner set: the
// node offsets of corners A, B (and C), of which a transform has at most 6
// (24 with four inputs), one per order of the fractions, and which the
// kernel keeps in registers); with three inputs also, per simplex record,
// its corner weights and corners A and B (two u32), which the kernels use
// instead of the corner sets. Every packed field is checked to hold its value
// exactly; a record that does not fit keeps usable = 0 and runs the portable
// path.
#include <cstdint>
#include <cstring>

#include "transform/method0.h"

namespace tintra3 {
namespace {

constexpr uint32_t kSimplex3Records = 9 * 9 * 9;
constexpr uint32_t kSimplex4Records = 17 * 17 * 17 * 17;
// Corner sets a packed simplex record can name: one register of eight with
// three inputs, four registers with four.
constexpr uint32_t kMaxCornerSets = 32;

struct CornerSets {
    uint32_t count = 0;
    uint32_t node[kMaxCornerSets][3] = {};

    // Number of the set (a, b, c), added when new; -1 when `limit` are taken.
    int Find(const uint32_t corner[3], uint32_t limit) {
        for (uint32_t i = 0; i < count; ++i) {
            if (std::memcmp(node[i], corner, sizeof node[i]) == 0) return int(i);
        }
        if (count == limit) return -1;
        std::memcpy(node[count], corner, sizeof node[count]);
        return int(count++);
    }
};

bool Build(Method0Transform* t, KernelLayout* layout) {
    const uint32_t n = t->inputChannels;
    const uint32_t outputs = t->outputChannels;
    if ((n != 3 && n != 4) || outputs < 1 || outputs > 4) return false;
    if (t->curvedGrid.data == nullptr || t->curvedGrid.count % outputs != 0) return false;
    if (n == 3 && t->simplex3 == nullptr) return false;
    if (n == 4 && t->simplex4 == nullptr) return false;
    for (uint32_t c = 0; c < n; ++c) {
        if (t->simplexInput[c] == nullptr) return false;
    }

    const uint32_t nodes = t->curvedGrid.count / outputs;
    if (!AllocU32(&layout->nodes, nodes)) return false;
    const uint32_t* curved = U32(t->curvedGrid);
    uint32_t* packedNodes = U32(layout->nodes);
    for (uint32_t i = 0; i < nodes; ++i) {
        uint32_t word = 0;
        for (uint32_t k = 0; k < outputs; ++k) {
            const uint32_t code = curved[i * outputs + k];
            if (code > 255) return false;
            word |= code << (8 * k);
        }
        packedNodes[i] = word;
    }

    // Three inputs, per channel and code: node offset << 16 | index part; the
    // sums over the channels must not carry from one half into the other.
    // Four inputs need more bits: node offsets first, then the index parts.
    if (!AllocU32(&layout->inputs, (n == 3 ? 1 : 2) * n * 256)) return false;
    uint32_t* inputs = U32(layout->inputs);
    uint32_t maxBase = 0;
    uint32_t maxCode = 0;
    for (uint32_t c = 0; c < n; ++c) {
        uint32_t channelBase = 0;
        uint32_t channelCode = 0;
        for (uint32_t v = 0; v < 256; ++v) {
            const SimplexInput& in = t->simplexInput[c][v];
            if (in.offset % outputs != 0) return false;
            const uint32_t node = in.offset / outputs;
            if (node >= nodes) return false;
            if (n == 3) {
                inputs[c * 256 + v] = node << 16 | in.index;
            } else {
                inputs[c * 256 + v] = node;
                inputs[(n + c) * 256 + v] = in.index;
            }
            if (node > channelBase) channelBase = node;
            if (in.index > channelCode) channelCode = in.index;
        }
        maxBase += channelBase;
        maxCode += channelCode;
    }
    const uint32_t records = n == 3 ? kSimplex3Records : kSimplex4Records;
    if (maxCode >= records) return false;
    if (n == 3 && maxBase > 0xFFFF) return false;

    // Simplex records: weights in bits 0..19 (5 bits each), corner set in 20..24.
    const uint32_t farEntries = (n == 3 ? t->farCorner3 : t->farCorner4) & 0xFFFFu;
    if (farEntries % outputs != 0) return false;
    layout->farNode = farEntries / outputs;
    uint32_t maxCorner = layout->farNode;
    CornerSets sets;
    if (!AllocU32(&layout->simplex, records)) return false;
    uint32_t* simplex = U32(layout->simplex);
    if (n == 3 && !AllocU32(&layout->weighted, 2 * records)) return false;
    for (uint32_t e = 0; e < records; ++e) {
        uint32_t corner[3] = {0, 0, 0};
        const uint8_t* w = nullptr;
        if (n == 3) {
            const Simplex3& s = t->simplex3[e];
            corner[0] = s.a;
            corner[1] = s.b;
            w = s.w;
        } else {
            const Simplex4& s = t->simplex4[e];
            corner[0] = s.a;
            corner[1] = s.b;
            corner[2] = s.c;
            w = s.w;
        }
        uint32_t word = 0;
        for (uint32_t j = 0; j < n; ++j) {
            if (w[j] > 31) return false;
            word |= uint32_t(w[j]) << (5 * j);
        }
        for (uint32_t j = 0; j + 1 < n; ++j) {
            if (corner[j] % outputs != 0) return false;
            corner[j] /= outputs;
            if (corner[j] > maxCorner) maxCorner = corner[j];
        }
        const int set = sets.Find(corner, n == 3 ? 8 : kMaxCornerSets);
        if (set < 0) return false;
        simplex[e] = word | uint32_t(set) << 20;
        if (n == 3) {
            // Weights of at most 31 keep every corner weight within -31..31.
            const int weight[4] = {8 - w[0], w[0] - w[1], w[1] - w[2], w[2]};
            uint32_t packed = 0;
            for (uint32_t j = 0; j < 4; ++j) packed |= uint32_t(uint8_t(int8_t(weight[j]))) << (8 * j);
            U32(layout->weighted)[2 * e] = packed;
            U32(layout->weighted)[2 * e + 1] = corner[0] | corner[1] << 16;
        }
    }
    // Every node a kernel can reach must lie inside the packed grid.
    if (maxBase + maxCorner >= nodes) return false;
    for (uint32_t i = 0; i < kMaxCornerSets; ++i) {
        for (uint32_t j = 0; j < 3; ++j) layout->corners[j][i] = sets.node[i][j];
    }
    return true;
}

}  // namespace

void FreeKernelLayout(KernelLayout* layout) {
    FreeValueBuffer(&layout->nodes);
    FreeValueBuffer(&layout->inputs);
    FreeValueBuffer(&layout->simplex);
    FreeValueBuffer(&layout->weighted);
    *layout = KernelLayout{};
}

void BuildMethod0KernelLayout(Method0Transform* transform) {
    KernelLayout* layout = &transform->layout;
    FreeKernelLayout(layout);
    if (Build(transform, layout)) {
        layout->usable = 1;
    } else {
        FreeKernelLayout(layout);
    }
}

}  // namespace tintra3
