// The 16-bit precision transform: record life cycle and builder.
//
// The builder samples the whole source -> destination conversion into one
// grid (CLUT) over the source device space:
//   device -> [input tables, 12-bit] -> grid (16-bit nodes) -> [output tables, 4096] -> device
// The input tables carry the source's own 1-D curves and the output tables
// the destination's, so the grid is sampled in the linear space between
// them. Each node goes source model -> XYZ -> (absolute white scaling) ->
// destination model, in double precision.
#include "transform/method1.h"

#include <initializer_list>

#include "profile/allocator.h"
#include "profile/profile_model.h"
#include "transform/build_common.h"
#include "transform/colour.h"

namespace tintra3 {

namespace {

// What a build keeps of a lookup-table side: the 16-bit tables on its PCS
// side (a source's output tables, a destination's input tables), its CLUT
// and the CLUT's strides.
struct LutSide {
    ValueBuffer tables[4] = {};
    ValueBuffer clut = {};
    uint32_t strides[4] = {};
};

// Everything a build keeps only while it runs.
struct BuildScratch {
    LutSide source;
    LutSide destination;
    // Matrix/TRC source: node positions 0 .. 1.
    Owned<double> nodes;

    ~BuildScratch() {
        for (LutSide* side : {&source, &destination}) {
            for (ValueBuffer& table : side->tables) FreeValueBuffer(&table);
            FreeValueBuffer(&side->clut);
        }
    }
};

// Kinds other than matrix/TRC and lookup table are handled as grey.
uint16_t EffectiveKind(uint16_t kind) {
    return kind == kKindMatrixTrc || kind == kKindLut ? kind : uint16_t(kKindGray);
}

// Element strides of a grid of `points` per axis with `outputs` values per
// node, last axis fastest. Returns the total element count (fits: at most
// 256^1, 32^3 or 255^4 nodes of 4 values, all below 2^32).
uint64_t GridStrides(uint32_t dims, uint32_t points, uint32_t outputs, uint32_t strides[4]) {
    for (int d = 0; d < 4; ++d) strides[d] = 0;
    strides[dims - 1] = outputs;
    for (int d = int(dims) - 2; d >= 0; --d) strides[d] = strides[d + 1] * points;
    return uint64_t(strides[0]) * points;
}

bool Fail(Method1Transform* t) {
    t->status = kBuildStatusNoMemory;
    return false;
}

// A 16-bit level located in a lut's grid: cell and 16.16 fraction.
void LocateLevel(uint32_t gridPoints, uint32_t level, uint32_t* cell, uint32_t* fraction) {
    const CellPosition at = LocateCell(gridPoints - 1, level, kScale16.fullScale);
    *cell = at.cell;
    *fraction = CellFraction(at.remainder, kScale16);
}

uint16_t Table16(const ValueBuffer& table, uint32_t value) {
    return InterpolateTable16(U16(table), table.count, value, kScale16);
}

// XYZ 1.15 codes through a lut's 3x3 matrix: decode, multiply, encode.
void ApplyLutMatrix(const LutModel& lut, uint16_t codes[3]) {
    double xyz[3];
    double mixed[3];
    DecodeXyz16(codes, xyz);
    MultiplyMatrix3(lut.matrix, xyz, mixed);
    EncodeXyz16(mixed, codes);
}

// 0 .. 1 clipped (NaN to 0) and coded as trunc(0.5 + v 65535).
uint16_t DeviceCode16(double v) {
    if (!(v >= 0.0)) v = 0.0;
    if (v > 1.0) v = 1.0;
    return uint16_t(uint32_t(TruncToInt(0.5 + v * 65535.0)));
}

class Method1Builder {
public:
    Method1Builder(Method1Transform* t, const ProfileModel* source, const ProfileModel* destination)
        : t_(t), src_(source), dst_(destination) {}

    bool Run();

private:
    bool ChooseShape();
    bool FillInputTables();
    bool FillOutputTables();
    using TableQuery = int (*)(const LutModel*, int, ValueBuffer*);
    bool PrepareLut(const LutModel& lut, TableQuery pcsTables, uint32_t axes, uint32_t outputs, LutSide* side);
    bool PrepareGrid();
    void SourceToXyz(const uint32_t coord[4], double xyz[3]) const;
    void XyzToDestination(const double xyz[3], uint16_t* out) const;

    Method1Transform* t_;
    const ProfileModel* src_;
    const ProfileModel* dst_;
    uint16_t sourceKind_ = 0;
    uint16_t destinationKind_ = 0;
    BuildScratch scratch_;
};

bool Method1Builder::ChooseShape() {
    sourceKind_ = EffectiveKind(src_->kind);
    destinationKind_ = EffectiveKind(dst_->kind);
    switch (sourceKind_) {
        case kKindMatrixTrc:
            t_->inputChannels = 3;
            t_->gridPoints = 32;
            break;
        case kKindLut:
            // Only three- and four-dimensional source grids are sampled.
            if (src_->lut.inputChannels != 3 && src_->lut.inputChannels != 4) return false;
            if (src_->lut.outputChannels != 3) return false;  // must yield a PCS triple
            t_->inputChannels = src_->lut.inputChannels;
            t_->gridPoints = src_->lut.inputChannels == 3 ? 32 : 16;
            break;
        default:
            t_->inputChannels = 1;
            t_->gridPoints = 256;
            break;
    }
    switch (destinationKind_) {
        case kKindMatrixTrc:
            t_->outputChannels = 3;
            break;
        case kKindLut:
            if (dst_->lut.inputChannels != 3) return false;  // fed a PCS triple
            if (dst_->lut.outputChannels < 1 || dst_->lut.outputChannels > 4) return false;
            t_->outputChannels = dst_->lut.outputChannels;
            break;
        default:
            t_->outputChannels = 1;
            break;
    }
    return true;
}

bool Method1Builder::FillInputTables() {
    static constexpr uint32_t kEntries[3] = {256, 1024, 4096};
    for (uint32_t c = 0; c < t_->inputChannels; ++c) {
        ValueBuffer* sets[3] = {&t_->inputTable256[c], &t_->inputTable1024[c], &t_->inputTable4096[c]};
        for (int s = 0; s < 3; ++s) {
            int ok;
            if (sourceKind_ == kKindLut)
                ok = LutInputTable12(&src_->lut, int(c), kEntries[s], sets[s]);
            else
                ok = CurveTable12(src_, int(c), kEntries[s], sets[s]);  // grey: channel ignored
            if (!ok) return Fail(t_);
        }
    }
    return true;
}

bool Method1Builder::FillOutputTables() {
    for (uint32_t c = 0; c < t_->outputChannels; ++c) {
        int ok;
        if (destinationKind_ == kKindLut)
            ok = LutOutputTable8x4096(&dst_->lut, int(c), &t_->outputTable8[c]) &&
                 LutOutputTable16x4096(&dst_->lut, int(c), &t_->outputTable16[c]);
        else
            ok = CurveTable8x4096(dst_, int(c), &t_->outputTable8[c]) &&
                 CurveTable16x4096(dst_, int(c), &t_->outputTable16[c]);
        if (!ok) return Fail(t_);
    }
    return true;
}

// Tables of two or more entries and a CLUT as large as the grid: a lut whose
// lookups could index outside its tables is not usable.
bool Method1Builder::PrepareLut(const LutModel& lut, TableQuery pcsTables, uint32_t axes, uint32_t outputs,
                                LutSide* side) {
    for (int c = 0; c < 3; ++c) {
        if (!pcsTables(&lut, c, &side->tables[c])) return Fail(t_);
        if (side->tables[c].count < 2) return false;
    }
    if (!LutClut16(&lut, &side->clut)) return Fail(t_);
    if (!ClutCovers(lut.gridPoints, axes, outputs, side->clut.count)) return false;
    GridStrides(axes, lut.gridPoints, outputs, side->strides);
    return true;
}

bool Method1Builder::PrepareGrid() {
    const uint64_t values = GridStrides(t_->inputChannels, t_->gridPoints, t_->outputChannels, t_->strides);
    if (!AllocU16(&t_->clut, uint32_t(values))) return Fail(t_);
    if (!BuildGridIndexTables(&t_->status, &t_->gridIndex, &t_->gridFraction, t_->gridPoints)) return false;
    if (sourceKind_ == kKindMatrixTrc) {
        const uint32_t n = t_->gridPoints;
        scratch_.nodes.reset(AllocateArray<double>(n));
        double* nodes = scratch_.nodes.get();
        if (nodes == nullptr) return Fail(t_);
        // Accumulated, as the tables have always been built: node[i] = node[i-1] + 1/(n-1).
        const double step = 1.0 / double(n - 1);
        nodes[0] = 0.0;
        for (uint32_t i = 1; i < n; ++i) nodes[i] = nodes[i - 1] + step;
    }
    return true;
}

void Method1Builder::SourceToXyz(const uint32_t coord[4], double xyz[3]) const {
    const double* white = src_->illuminant;
    // Node k of a grid of p points sits at the 16-bit level (k 65535 + p/2) / (p - 1).
    const uint32_t p = t_->gridPoints;
    if (sourceKind_ == kKindMatrixTrc) {
        const double* nodes = scratch_.nodes.get();
        const double rgb[3] = {nodes[coord[0]], nodes[coord[1]], nodes[coord[2]]};
        MultiplyMatrix3(&src_->matrix[0][0], rgb, xyz);
        return;
    }
    if (sourceKind_ == kKindLut) {
        const LutModel& lut = src_->lut;
        const uint32_t dims = lut.inputChannels;
        uint16_t level[4];
        for (uint32_t d = 0; d < dims; ++d) level[d] = uint16_t((coord[d] * 65535 + p / 2) / (p - 1));
        if (src_->inputSpace == kSigXyz) ApplyLutMatrix(lut, level);
        uint32_t cell[4];
        uint32_t fraction[4];
        for (uint32_t d = 0; d < dims; ++d) LocateLevel(lut.gridPoints, level[d], &cell[d], &fraction[d]);
        uint16_t pcs[3];
        InterpolateCell16(U16(scratch_.source.clut), 3, dims, cell, fraction, scratch_.source.strides, pcs);
        for (int c = 0; c < 3; ++c) pcs[c] = Table16(scratch_.source.tables[c], pcs[c]);
        double decoded[3];
        if (src_->outputSpace == kSigLab) {
            DecodeLab16(pcs, decoded);
            LabToXyz(white, decoded, xyz);
        } else if (src_->outputSpace == kSigLch) {
            DecodeLch16(pcs, decoded);
            LchToXyz(white, decoded, xyz);
        } else {
            DecodeXyz16(pcs, xyz);
        }
        return;
    }
    // Grey: the level becomes a neutral of the PCS.
    const uint32_t level = (coord[0] * 65535 + p / 2) / (p - 1);
    if (src_->outputSpace == kSigLab) {
        const double lab[3] = {level * 0.0015259021896696422, 0.0, 0.0};
        LabToXyz(white, lab, xyz);
    } else if (src_->outputSpace == kSigLch) {
        const double lch[3] = {level * 0.0015259021896696422, 0.0, 0.0};
        LchToXyz(white, lch, xyz);
    } else {
        // An XYZ grey reads its level as a 1.15 code (32768 = 1.0) of each
        // illuminant component, so it comes out twice as bright as Lab would.
        const double y = level * 3.0517578125e-5;
        for (int c = 0; c < 3; ++c) xyz[c] = y * white[c];
    }
}

void Method1Builder::XyzToDestination(const double xyz[3], uint16_t* out) const {
    const double* white = src_->illuminant;  // every Lab/LCh step uses the source's white
    if (destinationKind_ == kKindMatrixTrc) {
        double device[3];
        MultiplyMatrix3(&dst_->matrix[0][0], xyz, device);  // already inverted
        for (int r = 0; r < 3; ++r) out[r] = DeviceCode16(device[r]);
        return;
    }
    uint16_t pcs[3];
    double converted[3];
    if (dst_->inputSpace == kSigLab) {
        XyzToLab(white, xyz, converted);
        EncodeLab16(converted, pcs);
    } else if (dst_->inputSpace == kSigLch) {
        XyzToLch(white, xyz, converted);
        EncodeLch16(converted, pcs);
    } else {
        EncodeXyz16(xyz, pcs);
    }
    if (destinationKind_ != kKindLut) {
        // Grey: L of Lab or LCh, Y of XYZ.
        out[0] = dst_->inputSpace == kSigLab || dst_->inputSpace == kSigLch ? pcs[0] : pcs[1];
        return;
    }
    const LutModel& lut = dst_->lut;
    for (int c = 0; c < 3; ++c) pcs[c] = Table16(scratch_.destination.tables[c], pcs[c]);
    // The matrix comes after the input tables here, on purpose.
    if (dst_->inputSpace == kSigXyz) ApplyLutMatrix(lut, pcs);
    uint32_t cell[3];
    uint32_t fraction[3];
    for (int d = 0; d < 3; ++d) LocateLevel(lut.gridPoints, pcs[d], &cell[d], &fraction[d]);
    InterpolateCell16(U16(scratch_.destination.clut), lut.outputChannels, 3, cell, fraction,
                      scratch_.destination.strides, out);
}

bool Method1Builder::Run() {
    if (!ChooseShape()) return false;
    if (!FillInputTables() || !FillOutputTables()) return false;
    // A source lut yields a PCS triple; a destination's outputs ChooseShape held to four.
    if (sourceKind_ == kKindLut &&
        !PrepareLut(src_->lut, LutOutputTable16, src_->lut.inputChannels, 3, &scratch_.source))
        return false;
    if (destinationKind_ == kKindLut &&
        !PrepareLut(dst_->lut, LutInputTable16, 3, dst_->lut.outputChannels, &scratch_.destination))
        return false;
    if (!PrepareGrid()) return false;

    const uint32_t dims = t_->inputChannels;
    const uint32_t points = t_->gridPoints;
    const uint32_t outputs = t_->outputChannels;
    const uint32_t nodes = t_->clut.count / outputs;
    uint16_t* clut = U16(t_->clut);
    // Odometer over the node coordinates, last axis fastest: the CLUT order.
    uint32_t coord[4] = {0, 0, 0, 0};
    for (uint32_t node = 0; node < nodes; ++node) {
        double xyz[3];
        SourceToXyz(coord, xyz);
        if (t_->absolute) {
            for (int c = 0; c < 3; ++c) xyz[c] = xyz[c] * src_->whitePoint[c] / dst_->whitePoint[c];
        }
        XyzToDestination(xyz, clut + size_t(node) * outputs);
        for (int d = int(dims) - 1; d >= 0; --d) {
            if (++coord[d] < points) break;
            coord[d] = 0;
        }
    }
    return true;
}

void FreeGroup(ValueBuffer (&group)[4]) {
    for (ValueBuffer& b : group) FreeValueBuffer(&b);
}

// The primary tables a build fills; the alternative sets belong to tone curves.
void FreePrimaryTables(Method1Transform* t) {
    FreeGroup(t->inputTable256);
    FreeGroup(t->inputTable1024);
    FreeGroup(t->inputTable4096);
    FreeValueBuffer(&t->gridIndex);
    FreeValueBuffer(&t->gridFraction);
    FreeGroup(t->outputTable8);
    FreeGroup(t->outputTable16);
    FreeValueBuffer(&t->clut);
}

}  // namespace

Method1Transform* CreateMethod1Transform() {
    // All buffers empty and unowned, both alternative switches off, not ready.
    return static_cast<Method1Transform*>(AllocateZeroed(1, sizeof(Method1Transform)));
}

void DestroyMethod1Transform(Method1Transform* transform) {
    if (transform == nullptr) return;
    FreePrimaryTables(transform);
    FreeGroup(transform->altInputTable256);
    FreeGroup(transform->altInputTable1024);
    FreeGroup(transform->altInputTable4096);
    FreeGroup(transform->altOutputTable8);
    FreeGroup(transform->altOutputTable16);
    Deallocate(transform);
}

int BuildMethod1Transform(Method1Transform* transform, uint16_t intent, ProfileFile* source,
                          ProfileFile* destination, uint32_t gamut) {
    Method1Transform* t = transform;
    t->ready = 0;
    FreePrimaryTables(t);
    t->sourceSpace = source->header.colorSpace;
    t->destinationSpace = destination->header.colorSpace;

    Scoped<ProfileModel, ReleaseProfileModel> heldSource;
    Scoped<ProfileModel, ReleaseProfileModel> heldDestination;
    ProfileModel& sourceModel = heldSource.value;
    ProfileModel& destinationModel = heldDestination.value;
    int result = 0;
    if (BuildSourceModel(intent, source, &sourceModel) &&
        BuildDestinationModel(intent, destination, gamut, &destinationModel)) {
        t->absolute = intent == kBuilderIntentAbsolute ? 1 : 0;
        t->sourceKind = sourceModel.kind;
        t->destinationKind = destinationModel.kind;
        t->status = kBuildStatusOk;
        result = Method1Builder(t, &sourceModel, &destinationModel).Run() ? 1 : 0;
    }
    t->ready = result ? 1 : 0;
    return result;
}

}  // namespace tintra3
