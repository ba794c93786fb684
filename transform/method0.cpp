// The 8-bit precision transform: builds per-channel 8-bit input curves, a grid
// of 8-bit output codes sampled through the source and destination profile
// models, 8-bit output curves, and the index tables (simplex tables, or cell
// and fraction tables for one input channel) that let the kernels find a cell
// and its weights by table lookup alone.
//
//   device in -> input curve -> [grid, tetrahedral] -> output curve -> device out
//
// The grid is sampled in double precision once per node; everything stored is
// 8-bit codes, 16/32-bit offsets or 8.8 / eighth / sixteenth fractions.
#include "transform/method0.h"

#include <cstring>

#include "profile/allocator.h"
#include "profile/profile_model.h"
#include "transform/build_common.h"
#include "transform/colour.h"

namespace tintra3 {

namespace {

// Points per grid axis: 32 cells of 8 input steps for three inputs, 16 cells of
// 16 steps for four, one node per code for a monochrome source.
constexpr uint32_t kPoints3 = 33;
constexpr uint32_t kPoints4 = 17;
constexpr uint32_t kPointsMono = 256;

// Simplex table sizes: every combination of per-axis fractions 0..8 or 0..16.
constexpr uint32_t kSimplex3Records = 9 * 9 * 9;
constexpr uint32_t kSimplex4Records = 17 * 17 * 17 * 17;

// Spreads an 8-bit code over 0..256 so that code 255 reaches the far edge.
constexpr double kSpread = 1.003921568627451;  // 256 / 255

inline bool Is256(const ValueBuffer& b) { return b.count == 256 && b.data != nullptr; }

// One interpolation step of one channel: u + ((v - u) f + 128) >> 8 with an 8.8
// fraction f (256 = 1.0); the shift floors (arithmetic on a signed value).
inline uint32_t Lerp8(uint32_t u, uint32_t v, uint32_t f) {
    const int32_t d = static_cast<int32_t>(v) - static_cast<int32_t>(u);
    return static_cast<uint32_t>(static_cast<int32_t>(u) + ((d * static_cast<int32_t>(f) + 128) >> 8));
}

// Two lanes of one channel side by side: bits 16..23 and bits 0..7.
inline uint32_t Pack(uint32_t hi, uint32_t lo) { return (hi << 16) | lo; }
// The upper lane; + 32768 absorbs a borrow out of the lower lane.
inline uint32_t Upper(uint32_t word) { return ((word + 32768u) >> 16) & 255u; }
inline uint32_t Lower(uint32_t word) { return word & 255u; }

// The same step on both lanes with one multiplication. Per lane the sum
// u * 256 + (v - u) f + 128 lies in [128, 65408], so the two 16-bit fields of
// (u << 8) + (v - u) f + 0x00800080 never carry into each other (the wrapped
// u32 product is exact once the sum is formed); >> 8 leaves the floored
// results at bits 16..23 and 0..7, and the mask drops the upper lane's
// fraction bits that the shift moved into bits 8..15.
inline uint32_t LerpPair(uint32_t u, uint32_t v, uint32_t f) {
    return (((u << 8) + (v - u) * f + 0x00800080u) >> 8) & 0x00FF00FFu;
}

// Grid geometry: the last used axis has stride = outputs, each earlier axis
// the next stride x points.
void SetGeometry(Method0Transform* t, uint32_t inputs, uint32_t outputs, uint32_t points) {
    t->inputChannels = static_cast<uint8_t>(inputs);
    t->outputChannels = static_cast<uint8_t>(outputs);
    t->gridPoints = static_cast<uint16_t>(points);
    for (uint32_t& s : t->strides) s = 0;
    uint32_t stride = outputs;
    for (uint32_t c = inputs; c-- > 0;) {
        t->strides[c] = stride;
        stride *= points;
    }
}

// One simplex record: order the n positions by descending fraction (a stable
// insertion sort, so equal fractions keep the lower position first), then the
// cumulative strides of the first n - 1 positions and the sorted fractions.
void SimplexRecord(uint32_t n, const uint32_t* fraction, const uint32_t* stride, uint16_t* offset, uint8_t* weight) {
    uint32_t order[4] = {0, 1, 2, 3};
    for (uint32_t i = 1; i < n; ++i) {
        for (uint32_t j = i; j > 0 && fraction[order[j - 1]] < fraction[order[j]]; --j) {
            const uint32_t swap = order[j];
            order[j] = order[j - 1];
            order[j - 1] = swap;
        }
    }
    uint32_t sum = 0;
    for (uint32_t i = 0; i + 1 < n; ++i) {
        sum += stride[order[i]];
        offset[i] = static_cast<uint16_t>(sum);
    }
    for (uint32_t i = 0; i < n; ++i) weight[i] = static_cast<uint8_t>(fraction[order[i]]);
}

// --- Sampling the grid ----------------------------------------------------

// What a build keeps beside the record: the lookup-table data of a table
// source or destination. Freed on every path.
struct TableSide {
    ValueBuffer clut{};
    ValueBuffer cell{};
    ValueBuffer fraction{};
    ValueBuffer curves[3]{};  // source: output tables; destination: input tables
    uint32_t strides[4]{};
    uint32_t inputs = 0;
    uint32_t outputs = 0;

    TableSide() = default;
    TableSide(const TableSide&) = delete;
    TableSide& operator=(const TableSide&) = delete;
    ~TableSide() {
        FreeValueBuffer(&clut);
        FreeValueBuffer(&cell);
        FreeValueBuffer(&fraction);
        for (ValueBuffer& b : curves) FreeValueBuffer(&b);
    }
};

// Lookup-table geometry the 8-bit sampling can use safely: the stored CLUT
// (the cell tables need a last cell below the last point) covers `axes` axes.
bool LutUsable(const LutModel& lut, uint32_t axes) {
    const ValueBuffer& stored = lut.precision == 8 ? lut.clut8 : lut.clut16;
    return ClutCovers(lut.gridPoints, axes, lut.outputChannels, stored.count);
}

// Loads the 8-bit CLUT, its cell and fraction tables and strides for `axes` axes.
int LoadTable(uint16_t* status, const LutModel& lut, uint32_t axes, TableSide* side) {
    side->inputs = axes;
    side->outputs = lut.outputChannels;
    uint32_t stride = lut.outputChannels;
    for (uint32_t c = axes; c-- > 0;) {
        side->strides[c] = stride;
        stride *= lut.gridPoints;
    }
    if (!BuildCellFraction8(status, lut.gridPoints, &side->cell, &side->fraction)) return 0;
    if (!LutClut8(&lut, &side->clut)) {
        *status = kBuildStatusNoMemory;
        return 0;
    }
    // The conversion keeps the element count; refuse a short table all the same.
    if (static_cast<uint64_t>(side->clut.count) < static_cast<uint64_t>(stride)) return 0;
    return 1;
}

// Interpolates the table's CLUT at 8-bit coordinates (all outputs).
void LookUpTable(const TableSide& side, const uint8_t* code, uint8_t* out) {
    const uint8_t* cellTable = Bytes(side.cell);
    const uint16_t* fractionTable = U16(side.fraction);
    uint32_t cell[4];
    uint32_t fraction[4];
    for (uint32_t a = 0; a < side.inputs; ++a) {
        cell[a] = cellTable[code[a]];
        fraction[a] = fractionTable[code[a]];
    }
    if (side.inputs == 3)
        InterpolateTrilinear8(Bytes(side.clut), side.outputs, cell, fraction, side.strides, out);
    else
        InterpolateQuadrilinear8(Bytes(side.clut), side.outputs, cell, fraction, side.strides, out);
}

inline bool KnownPcs(uint32_t pcs) { return pcs == kSigLab || pcs == kSigLch || pcs == kSigXyz; }

// One PCS at 8 bits: its codes, and its way to and from XYZ (none for XYZ).
using PcsConversion = void (*)(const double white[3], const double in[3], double out[3]);
struct Pcs8 {
    void (*decode)(const uint8_t in[3], double out[3]);
    void (*encode)(const double in[3], uint8_t out[3]);
    PcsConversion toXyz;
    PcsConversion fromXyz;
};

// Lab, LCh, and XYZ for any other signature (KnownPcs rules those out first).
const Pcs8& PcsOf(uint32_t pcs) {
    static const Pcs8 kLab = {DecodeLab8, EncodeLab8, LabToXyz, XyzToLab};
    static const Pcs8 kLch = {DecodeLch8, EncodeLch8, LchToXyz, XyzToLch};
    static const Pcs8 kXyz = {DecodeXyz8, EncodeXyz8, nullptr, nullptr};
    if (pcs == kSigLab) return kLab;
    if (pcs == kSigLch) return kLch;
    return kXyz;
}

// 8-bit codes of a PCS to XYZ.
void CodesToXyz(uint32_t pcs, const double white[3], const uint8_t code[3], double xyz[3]) {
    const Pcs8& from = PcsOf(pcs);
    double v[3];
    from.decode(code, v);
    if (from.toXyz != nullptr)
        from.toXyz(white, v, xyz);
    else
        std::memcpy(xyz, v, sizeof v);
}

// XYZ to 8-bit codes of a PCS.
void XyzToCodes(uint32_t pcs, const double white[3], const double xyz[3], uint8_t code[3]) {
    const Pcs8& to = PcsOf(pcs);
    double v[3];
    if (to.fromXyz != nullptr)
        to.fromXyz(white, xyz, v);
    else
        std::memcpy(v, xyz, sizeof v);
    to.encode(v, code);
}

// Source PCS codes to destination PCS codes of another PCS without a detour
// through the media whites: Lab and LCh convert directly, either of them and
// XYZ through the one's XYZ conversion.
void ConvertPcs8(uint32_t from, uint32_t to, const double white[3], const uint8_t in[3], uint8_t out[3]) {
    double a[3];
    double b[3];
    PcsOf(from).decode(in, a);
    if (from == kSigLab && to == kSigLch)
        LabToLch(white, a, b);
    else if (from == kSigLch && to == kSigLab)
        LchToLab(white, a, b);
    else if (PcsOf(from).toXyz != nullptr)
        PcsOf(from).toXyz(white, a, b);
    else
        PcsOf(to).fromXyz(white, a, b);
    PcsOf(to).encode(b, out);
}

// A device value of a matrix destination: clipped to [0, 1], then x 255 + 0.5
// truncated. A NaN passes the clip and codes as 0 (TruncToInt gives 0x80000000).
inline uint8_t DeviceCode(double v) {
    if (v < 0.0) v = 0.0;
    if (v > 1.0) v = 1.0;
    return static_cast<uint8_t>(static_cast<uint32_t>(TruncToInt(v * 255.0 + 0.5)) & 255u);
}

struct Builder {
    Method0Transform* t;
    const ProfileModel* src;
    const ProfileModel* dst;
    uint32_t srcPcs = 0;
    uint32_t dstPcs = 0;
    double ratio[3] = {1, 1, 1};
    TableSide srcTable;
    TableSide dstTable;

    Builder(Method0Transform* record, const ProfileModel* source, const ProfileModel* destination)
        : t(record), src(source), dst(destination) {}

    int Fail4() {
        t->status = kBuildStatusNoMemory;
        return 0;
    }

    // `count` 256-entry u8 curves of a model: a lookup table's own (through
    // `lutCurves`), else its tone curves.
    using CurveQuery = int (*)(const LutModel*, int, ValueBuffer*);
    int LoadCurves8(const ProfileModel* model, CurveQuery lutCurves, uint32_t count, ValueBuffer* curves) {
        for (uint32_t c = 0; c < count; ++c) {
            const int channel = static_cast<int>(c);
            const int ok = model->kind == kKindLut ? lutCurves(&model->lut, channel, &curves[c])
                                                   : CurveTable8x256(model, channel, &curves[c]);
            if (!ok) return Fail4();
            if (!Is256(curves[c])) return 0;
        }
        return 1;
    }

    // Input side: input curves and the index tables over them.
    int BuildInputSide() {
        if (!LoadCurves8(src, LutInputTable8, t->inputChannels, t->inputCurves)) return 0;
        if (IsGrayKind(src->kind)) return BuildMonoTables(t, &t->inputCurves[0]);
        return BuildSimplexTables(t, t->inputCurves);
    }

    int BuildOutputSide() { return LoadCurves8(dst, LutOutputTable8, t->outputChannels, t->outputCurves); }

    // The PCS-side curves of a lookup table: a source's output curves, a
    // destination's input curves.
    int LoadTables() {
        if (src->kind == kKindLut) {
            if (!LoadTable(&t->status, src->lut, t->inputChannels, &srcTable)) return 0;
            if (!LoadCurves8(src, LutOutputTable8, 3, srcTable.curves)) return 0;
        }
        if (dst->kind == kKindLut) {
            if (!LoadTable(&t->status, dst->lut, 3, &dstTable)) return 0;
            if (!LoadCurves8(dst, LutInputTable8, 3, dstTable.curves)) return 0;
        }
        return 1;
    }

    // Source PCS codes of a table source at the node's 8-bit coordinates:
    // CLUT interpolation, then the table's output curves.
    void SourceTableCodes(const uint8_t* node, uint8_t pcs[3]) const {
        uint8_t out[256];
        LookUpTable(srcTable, node, out);
        for (int c = 0; c < 3; ++c) pcs[c] = Bytes(srcTable.curves[c])[out[c]];
    }

    // XYZ of a monochrome source at grey code i.
    void GreyXyz(uint32_t i, double xyz[3]) const {
        const uint8_t g = static_cast<uint8_t>(i);
        if (srcPcs == kSigLab || srcPcs == kSigLch) {
            const uint8_t code[3] = {g, 128, 128};
            double v[3];
            PcsOf(srcPcs).decode(code, v);
            v[1] = 0.0;  // a, b (or C, h) exactly neutral
            v[2] = 0.0;
            if (srcPcs == kSigLab)
                LabToXyz(src->illuminant, v, xyz);
            else
                LchToXyz(src->illuminant, v, xyz);
        } else {
            const uint8_t code[3] = {g, g, g};
            DecodeXyz8(code, xyz);
            for (int k = 0; k < 3; ++k) xyz[k] *= src->illuminant[k];
        }
    }

    // Destination table: PCS codes through its input curves, (XYZ: its matrix),
    // then trilinear interpolation in its CLUT.
    void DestinationTable(const uint8_t pcs[3], uint8_t* out) const {
        uint8_t code[3];
        for (int c = 0; c < 3; ++c) code[c] = Bytes(dstTable.curves[c])[pcs[c]];
        if (dstPcs == kSigXyz) {
            // After the input curves, not before: that order is this library's.
            double v[3];
            double w[3];
            DecodeXyz8(code, v);
            MultiplyMatrix3(dst->lut.matrix, v, w);
            EncodeXyz8(w, code);
        }
        uint8_t all[256];
        LookUpTable(dstTable, code, all);
        std::memcpy(out, all, t->outputChannels);
    }

    // One node: its coordinates (node index per axis) to output codes.
    void Node(const uint32_t* index, const double* level, const uint8_t* nodeCode, uint8_t* out) const {
        const double* white = src->illuminant;
        double xyz[3];
        uint8_t srcCodes[3] = {0, 0, 0};
        if (src->kind == kKindMatrixTrc) {
            const double rgb[3] = {level[index[0]], level[index[1]], level[index[2]]};
            MultiplyMatrix3(&src->matrix[0][0], rgb, xyz);
        } else if (src->kind == kKindLut) {
            uint8_t coords[4];
            for (uint32_t a = 0; a < t->inputChannels; ++a) coords[a] = nodeCode[index[a]];
            SourceTableCodes(coords, srcCodes);
            if (dst->kind == kKindLut && !t->absolute) {
                uint8_t dstCodes[3];
                if (srcPcs == dstPcs)
                    std::memcpy(dstCodes, srcCodes, 3);
                else
                    ConvertPcs8(srcPcs, dstPcs, white, srcCodes, dstCodes);
                DestinationTable(dstCodes, out);
                return;
            }
            CodesToXyz(srcPcs, white, srcCodes, xyz);
        } else {
            GreyXyz(index[0], xyz);
        }
        if (t->absolute) {
            for (int k = 0; k < 3; ++k) xyz[k] *= ratio[k];
        }
        if (dst->kind == kKindMatrixTrc) {
            double device[3];
            MultiplyMatrix3(&dst->matrix[0][0], xyz, device);
            for (int k = 0; k < 3; ++k) out[k] = DeviceCode(device[k]);
        } else if (dst->kind == kKindLut) {
            uint8_t dstCodes[3];
            XyzToCodes(dstPcs, white, xyz, dstCodes);
            DestinationTable(dstCodes, out);
        } else {
            uint8_t codes[3];
            XyzToCodes(dstPcs, white, xyz, codes);
            out[0] = dstPcs == kSigXyz ? codes[1] : codes[0];  // Y, or L
        }
    }

    int Run() {
        srcPcs = src->outputSpace;
        dstPcs = dst->inputSpace;
        if (!KnownPcs(srcPcs) || !KnownPcs(dstPcs)) return 0;

        uint32_t inputs = 3;
        uint32_t points = kPoints3;
        if (src->kind == kKindLut) {
            inputs = src->lut.inputChannels;
            if (inputs != 3 && inputs != 4) return 0;
            if (src->lut.outputChannels < 3 || !LutUsable(src->lut, inputs)) return 0;
            points = inputs == 3 ? kPoints3 : kPoints4;
        } else if (src->kind == kKindGray) {
            inputs = 1;
            points = kPointsMono;
        }
        uint32_t outputs = 3;
        if (dst->kind == kKindLut) {
            // Fed with three PCS codes; at most four output curves in the record.
            outputs = dst->lut.outputChannels;
            if (dst->lut.inputChannels < 3 || outputs > 4 || !LutUsable(dst->lut, 3)) return 0;
        } else if (dst->kind == kKindGray) {
            outputs = 1;
        }
        // Geometry first: the index tables are laid out over these strides.
        SetGeometry(t, inputs, outputs, points);

        if (!BuildInputSide() || !BuildOutputSide() || !LoadTables()) return 0;

        uint32_t nodes = 1;
        for (uint32_t a = 0; a < inputs; ++a) nodes *= points;
        const uint32_t entries = nodes * outputs;
        if (!AllocU32(&t->curvedGrid, entries) || !AllocBytes(&t->grid, entries)) return Fail4();

        for (int k = 0; k < 3; ++k) ratio[k] = src->whitePoint[k] / dst->whitePoint[k];

        // Node levels of a matrix source: accumulated steps of 1/(points - 1).
        double level[kPoints3];
        level[0] = 0.0;
        for (uint32_t i = 1; i < kPoints3; ++i) level[i] = level[i - 1] + 1.0 / (kPoints3 - 1);
        // Node codes of a table source: (255 i + points / 2) / (points - 1).
        uint8_t nodeCode[kPoints3];
        for (uint32_t i = 0; i < points && i < kPoints3; ++i)
            nodeCode[i] = static_cast<uint8_t>((255 * i + points / 2) / (points - 1));

        uint8_t* grid = Bytes(t->grid);
        uint32_t* curved = U32(t->curvedGrid);
        uint32_t index[4] = {0, 0, 0, 0};
        uint8_t out[4];
        for (uint32_t e = 0; e < entries; e += outputs) {
            Node(index, level, nodeCode, out);
            for (uint32_t k = 0; k < outputs; ++k) {
                grid[e + k] = out[k];
                curved[e + k] = Bytes(t->outputCurves[k])[out[k]];
            }
            // Next node: the last axis runs fastest.
            for (uint32_t a = inputs; a-- > 0;) {
                if (++index[a] < points) break;
                index[a] = 0;
            }
        }
        return 1;
    }
};

}  // namespace

// --- Record lifecycle -----------------------------------------------------

Method0Transform* CreateMethod0Transform() {
    // calloc: every ValueBuffer empty, every simplex pointer null, not ready.
    return static_cast<Method0Transform*>(AllocateZeroed(1, sizeof(Method0Transform)));
}

void FreeSimplexTables(Method0Transform* transform) {
    for (SimplexInput*& p : transform->simplexInput) {
        Deallocate(p);
        p = nullptr;
    }
    Deallocate(transform->simplex3);
    transform->simplex3 = nullptr;
    Deallocate(transform->simplex4);
    transform->simplex4 = nullptr;
}

void DestroyMethod0Transform(Method0Transform* transform) {
    if (transform == nullptr) return;
    FreeValueBuffer(&transform->monoCell);
    FreeValueBuffer(&transform->monoFraction);
    for (ValueBuffer& b : transform->inputCurves) FreeValueBuffer(&b);
    FreeValueBuffer(&transform->grid);
    for (ValueBuffer& b : transform->outputCurves) FreeValueBuffer(&b);
    FreeValueBuffer(&transform->curvedGrid);
    FreeSimplexTables(transform);
    Deallocate(transform);
}

// --- Shared steps ---------------------------------------------------------

int BuildCellFraction8(uint16_t* status, uint32_t points, ValueBuffer* cell, ValueBuffer* fraction) {
    // Cells are bytes and the last cell is points - 2.
    if (points < 2 || points > 256) return 0;
    // The top code lands in the last cell with the full fraction (256).
    return BuildCellTables<uint8_t, uint16_t>(status, points, 256, kScale8, cell, fraction);
}

int BuildMonoTables(Method0Transform* transform, const ValueBuffer* curve) {
    if (!Is256(*curve)) return 0;
    FreeValueBuffer(&transform->monoCell);
    FreeValueBuffer(&transform->monoFraction);
    Scoped<ValueBuffer, FreeValueBuffer> heldCell;
    Scoped<ValueBuffer, FreeValueBuffer> heldFraction;
    ValueBuffer& cell = heldCell.value;
    ValueBuffer& fraction = heldFraction.value;
    int ok = BuildCellFraction8(&transform->status, transform->gridPoints, &cell, &fraction);
    if (ok) {
        if (!AllocBytes(&transform->monoCell, 256) || !AllocU16(&transform->monoFraction, 256)) {
            transform->status = kBuildStatusNoMemory;
            ok = 0;
        } else {
            // Compose with the curve: cell[v] = cell table[curve[v]], likewise the fraction.
            const uint8_t* c = Bytes(*curve);
            for (uint32_t v = 0; v < 256; ++v) {
                Bytes(transform->monoCell)[v] = Bytes(cell)[c[v]];
                U16(transform->monoFraction)[v] = U16(fraction)[c[v]];
            }
        }
    }
    return ok;
}

int BuildSimplexTables(Method0Transform* transform, const ValueBuffer* curves) {
    FreeSimplexTables(transform);  // the six pointers: fresh ones, the rest null
    transform->farCorner3 = 0;
    transform->farCorner4 = 0;
    const uint32_t n = transform->inputChannels;
    if (n != 3 && n != 4) return 0;
    for (uint32_t c = 0; c < n; ++c) {
        if (!Is256(curves[c])) return 0;
    }
    const uint32_t points = n == 3 ? kPoints3 : kPoints4;
    const uint32_t steps = n == 3 ? 9 : 17;  // fractions 0..8 or 0..16
    const uint32_t shift = n == 3 ? 3 : 4;   // input steps per cell: 8 or 16

    // Strides over the grid and over the simplex table, last axis innermost.
    uint32_t stride[4];
    uint32_t radix[4];
    uint32_t s = transform->outputChannels;
    uint32_t r = 1;
    for (uint32_t c = n; c-- > 0;) {
        stride[c] = s;
        radix[c] = r;
        s *= points;
        r *= steps;
    }

    for (uint32_t c = 0; c < n; ++c) {
        transform->simplexInput[c] = AllocateArray<SimplexInput>(256);
        if (transform->simplexInput[c] == nullptr) {
            transform->status = kBuildStatusNoMemory;
            return 0;
        }
    }
    if (n == 3) {
        transform->simplex3 = AllocateArray<Simplex3>(kSimplex3Records);
        if (transform->simplex3 == nullptr) {
            transform->status = kBuildStatusNoMemory;
            return 0;
        }
        uint32_t f[3];
        for (uint32_t e = 0; e < kSimplex3Records; ++e) {
            f[0] = e / 81;
            f[1] = e / 9 % 9;
            f[2] = e % 9;
            Simplex3& rec = transform->simplex3[e];
            uint16_t offset[2];
            SimplexRecord(3, f, stride, offset, rec.w);
            rec.a = offset[0];
            rec.b = offset[1];
            rec.unused = 0;
        }
        transform->farCorner3 = stride[0] + stride[1] + stride[2];
    } else {
        transform->simplex4 = AllocateArray<Simplex4>(kSimplex4Records);
        if (transform->simplex4 == nullptr) {
            transform->status = kBuildStatusNoMemory;
            return 0;
        }
        uint32_t g[4];
        for (uint32_t e = 0; e < kSimplex4Records; ++e) {
            // Record (f0, f1, f2, f3) orders the mirrored fractions (f3, f2,
            // f1, f0) against the strides (s0, s1, s2, s3): channel 3's
            // fraction places channel 0's stride, and so on. The mirror
            // pairing is deliberate and the kernels rely on it.
            g[3] = e / (17 * 17 * 17);
            g[2] = e / (17 * 17) % 17;
            g[1] = e / 17 % 17;
            g[0] = e % 17;
            Simplex4& rec = transform->simplex4[e];
            uint16_t offset[3];
            SimplexRecord(4, g, stride, offset, rec.w);
            rec.a = offset[0];
            rec.b = offset[1];
            rec.c = offset[2];
        }
        transform->farCorner4 = stride[0] + stride[1] + stride[2] + stride[3];
    }

    // Per channel and code: the curved code u spread over 0..256 as w, split
    // into a cell (w >> 3 or >> 4) and a fraction (low 3 or 4 bits); w = 256 is
    // the last cell with the full fraction.
    const uint32_t lastCell = points - 2;
    const uint32_t full = steps - 1;
    for (uint32_t c = 0; c < n; ++c) {
        const uint8_t* curve = Bytes(curves[c]);
        SimplexInput* in = transform->simplexInput[c];
        for (uint32_t v = 0; v < 256; ++v) {
            const uint32_t w = static_cast<uint32_t>(TruncToInt(curve[v] * kSpread + 0.5));
            uint32_t cell = w >> shift;
            uint32_t fraction = w & ((1u << shift) - 1);
            if (w >= 256) {
                cell = lastCell;
                fraction = full;
            }
            in[v].offset = cell * stride[c];
            // Stored mod 65536: with four inputs channel 0's part (f x 4913)
            // wraps for f >= 14; the kernels sum the stored parts.
            in[v].index = static_cast<uint16_t>(fraction * radix[c]);
            in[v].unused = 0;
        }
    }
    return 1;
}

// --- Eight-bit interpolation used while building --------------------------

void InterpolateTrilinear8(const uint8_t* table, uint32_t outputs, const uint32_t cell[3], const uint32_t fraction[3],
                           const uint32_t stride[3], uint8_t* out) {
    const uint32_t s0 = stride[0], s1 = stride[1], s2 = stride[2];
    const uint32_t f0 = fraction[0], f1 = fraction[1], f2 = fraction[2];
    const uint8_t* base = table + cell[0] * s0 + cell[1] * s1 + cell[2] * s2;
    for (uint32_t k = 0; k < outputs; ++k) {
        const uint8_t* p = base + k;
        // Last axis: corners (i, j, 0) -> (i, j, 1); lanes (0, 0) | (0, 1) and (1, 0) | (1, 1).
        const uint32_t r0 = LerpPair(Pack(p[0], p[s1]), Pack(p[s2], p[s1 + s2]), f2);
        const uint32_t r1 = LerpPair(Pack(p[s0], p[s0 + s1]), Pack(p[s0 + s2], p[s0 + s1 + s2]), f2);
        // Middle axis: (i, 0) -> (i, 1); lanes i = 0 | i = 1.
        const uint32_t m = LerpPair(Pack(Upper(r0), Upper(r1)), Pack(Lower(r0), Lower(r1)), f1);
        out[k] = static_cast<uint8_t>(Lerp8(Upper(m), Lower(m), f0));
    }
}

void InterpolateQuadrilinear8(const uint8_t* table, uint32_t outputs, const uint32_t cell[4],
                              const uint32_t fraction[4], const uint32_t stride[4], uint8_t* out) {
    const uint32_t s0 = stride[0], s1 = stride[1], s2 = stride[2], s3 = stride[3];
    const uint8_t* base = table + cell[0] * s0 + cell[1] * s1 + cell[2] * s2 + cell[3] * s3;
    for (uint32_t k = 0; k < outputs; ++k) {
        const uint8_t* p = base + k;
        // Axis 3 over eight pairs (i, j, k, 0) -> (i, j, k, 1), lanes k = 0 | k = 1.
        uint32_t r[4];
        for (uint32_t ij = 0; ij < 4; ++ij) {
            const uint8_t* q = p + (ij >> 1) * s0 + (ij & 1) * s1;
            r[ij] = LerpPair(Pack(q[0], q[s2]), Pack(q[s3], q[s2 + s3]), fraction[3]);
        }
        // Axis 2: (i, j, 0) -> (i, j, 1); lanes j = 0 | j = 1.
        const uint32_t q0 = LerpPair(Pack(Upper(r[0]), Upper(r[1])), Pack(Lower(r[0]), Lower(r[1])), fraction[2]);
        const uint32_t q1 = LerpPair(Pack(Upper(r[2]), Upper(r[3])), Pack(Lower(r[2]), Lower(r[3])), fraction[2]);
        // Axis 1: (i, 0) -> (i, 1); lanes i = 0 | i = 1.
        const uint32_t m = LerpPair(Pack(Upper(q0), Upper(q1)), Pack(Lower(q0), Lower(q1)), fraction[1]);
        out[k] = static_cast<uint8_t>(Lerp8(Upper(m), Lower(m), fraction[0]));
    }
}

// --- Build ------------------------------------------------------------------

int BuildMethod0Transform(Method0Transform* transform, uint16_t intent, ProfileFile* source,
                          ProfileFile* destination, uint32_t gamut) {
    transform->ready = 0;
    transform->sourceSpace = source->header.colorSpace;
    transform->destinationSpace = destination->header.colorSpace;
    transform->status = kBuildStatusOk;

    Scoped<ProfileModel, ReleaseProfileModel> heldSource;
    Scoped<ProfileModel, ReleaseProfileModel> heldDestination;
    ProfileModel& sourceModel = heldSource.value;
    ProfileModel& destinationModel = heldDestination.value;
    int result = 0;
    if (BuildSourceModel(intent, source, &sourceModel) &&
        BuildDestinationModel(intent, destination, gamut, &destinationModel)) {
        transform->sourceKind = sourceModel.kind;
        transform->destinationKind = destinationModel.kind;
        // The intent reaches the grid only as this flag; 0, 1 and 2 sample alike.
        transform->absolute = intent == kBuilderIntentAbsolute ? 1 : 0;
        if (IsKnownKind(sourceModel.kind) && IsKnownKind(destinationModel.kind)) {
            Builder builder(transform, &sourceModel, &destinationModel);
            result = builder.Run();
        }
    }
    transform->ready = result == 1 ? 1 : 0;
    return result;
}

}  // namespace tintra3
