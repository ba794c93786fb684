// The profile model: one profile as matrix/TRC, lookup table or grey TRC,
// read for the source side (device -> PCS) or the destination side
// (PCS -> device, curves and matrix inverted), and the tables derived from it.
#include "profile/profile_model.h"

#include <cstring>

#include "profile/allocator.h"
#include "profile/limits.h"
#include "profile/resample.h"
#include "profile/tag_types.h"

namespace tintra3 {

namespace {

enum Direction { kSource = 0, kDestination = 1 };

constexpr uint16_t kStatusOk = 0;
constexpr uint16_t kStatusUnusable = 1;
constexpr uint16_t kStatusNoTable = 4;

// Every curve built from a 'curv' uses 1024 entries for gammas and for
// inverted sampled curves.
constexpr uint32_t kCurveSize = 1024;

int Fail(ProfileModel* model, uint16_t status) {
    model->status = status;
    return 0;
}

using XyzHolder = Scoped<XyzArray, ReleaseXyzArray>;

int ReadModelCommon(ProfileFile* profile, ProfileModel* model, uint16_t kind, int direction) {
    const ProfileHeader& h = profile->header;
    model->kind = kind;
    model->inputSpace = direction == kSource ? h.colorSpace : h.pcs;
    model->outputSpace = direction == kSource ? h.pcs : h.colorSpace;
    for (int i = 0; i < 3; ++i) model->illuminant[i] = FromS15Fixed16(h.illuminant[i]);
    for (int i = 0; i < 3; ++i) model->whitePoint[i] = model->illuminant[i];
    int32_t index = -1;
    uint32_t type = 0;
    if (FindTag(profile, kTagWtpt, &index, &type)) {
        XyzHolder wtpt;
        if (type != kTypeXyz || !ReadXyzTag(profile, index, wtpt.get())) return Fail(model, kStatusUnusable);
        // An empty array has no first triple: the media white stays the illuminant.
        if (wtpt.value.count != 0)
            for (int i = 0; i < 3; ++i) model->whitePoint[i] = FromS15Fixed16(wtpt.value.values[i]);
    }
    model->status = kStatusOk;
    return 1;
}

// Intent code to tag: 1 and 3 -> ...1, 2 -> ...2, anything else -> ...0.
uint32_t LutTagFor(int direction, uint16_t intent, uint32_t gamut) {
    if (gamut != 0) return kTagGamt;
    const uint32_t a2b[3] = {kTagA2B0, kTagA2B1, kTagA2B2};
    const uint32_t b2a[3] = {kTagB2A0, kTagB2A1, kTagB2A2};
    const int which = intent == 1 || intent == 3 ? 1 : intent == 2 ? 2 : 0;
    return direction > 0 ? b2a[which] : a2b[which];
}

// Whether a lut's shape fits the model and the builders: at most four
// channels a side (the model has room for four tables), a real grid, three
// PCS channels on the PCS side, and on the device side as many channels as
// the header's colour space has (`device`, 0 = not checked). Callers size
// their pixel buffers from the header: a table wider or narrower than it
// would make the kernels read or write past those buffers.
bool LutShapeUsable(int direction, uint8_t in, uint8_t out, uint8_t grid, uint32_t device) {
    constexpr uint32_t kMax = limits::kMaxLutChannels;
    if (in == 0 || out == 0 || in > kMax || out > kMax || grid < 2) return false;
    if (direction == kSource && out != 3) return false;
    if (direction == kDestination && in != 3) return false;
    const uint8_t deviceSide = direction == kSource ? in : out;
    if (device != 0 && deviceSide != device) return false;
    return true;
}

// The device channel count a table must have; the gamut table has one
// output by definition, whatever the colour space.
uint32_t ExpectedDeviceChannels(const ProfileFile* profile, uint32_t gamut) {
    return gamut != 0 ? 0 : ColourSpaceChannels(profile->header.colorSpace);
}

// Splits `channels` consecutive tables of `entries` elements of `width`
// bytes into one buffer per channel.
int SplitTables(const ValueBuffer& all, uint32_t channels, uint32_t entries, bool wide, ValueBuffer* tables) {
    for (uint32_t c = 0; c < channels; ++c) {
        ValueBuffer* t = &tables[c];
        ClearValueBuffer(t);
        if (!(wide ? AllocU16(t, entries) : AllocBytes(t, entries))) return 0;
        const size_t width = wide ? 2 : 1;
        if (entries != 0)
            std::memcpy(t->data, static_cast<const uint8_t*>(all.data) + size_t(c) * entries * width, entries * width);
    }
    return 1;
}

void ConvertMatrix(const uint32_t* raw, double* matrix) {
    for (int i = 0; i < 9; ++i) matrix[i] = FromS15Fixed16(raw[i]);
}

int BuildLutModel(ProfileFile* profile, ProfileModel* model, int direction, uint16_t intent, uint32_t gamut) {
    LutModel& lut = model->lut;
    lut.isGamut = gamut;
    const uint32_t device = ExpectedDeviceChannels(profile, gamut);
    int32_t index = -1;
    uint32_t type = 0;
    if (!FindTag(profile, LutTagFor(direction, intent, gamut), &index, &type)) return Fail(model, kStatusUnusable);
    if (type == kTypeMft1) {
        Scoped<Lut8Tag, ReleaseLut8Tag> held;
        Lut8Tag& tag = held.value;
        if (!ReadLut8Tag(profile, index, &tag)) return Fail(model, kStatusUnusable);
        if (!LutShapeUsable(direction, tag.inputChannels, tag.outputChannels, tag.gridPoints, device))
            return Fail(model, kStatusUnusable);
        lut.inputChannels = tag.inputChannels;
        lut.outputChannels = tag.outputChannels;
        lut.gridPoints = tag.gridPoints;
        lut.precision = 8;
        ConvertMatrix(tag.matrix, lut.matrix);
        if (!SplitTables(tag.inputTables, lut.inputChannels, 256, false, lut.inputTables8) ||
            !CopyBytes(&tag.clut, &lut.clut8) ||
            !SplitTables(tag.outputTables, lut.outputChannels, 256, false, lut.outputTables8))
            return Fail(model, kStatusNoTable);
        return 1;
    }
    if (type == kTypeMft2) {
        Scoped<Lut16Tag, ReleaseLut16Tag> held;
        Lut16Tag& tag = held.value;
        if (!ReadLut16Tag(profile, index, &tag)) return Fail(model, kStatusUnusable);
        if (!LutShapeUsable(direction, tag.inputChannels, tag.outputChannels, tag.gridPoints, device) ||
            tag.inputEntries < 2 || tag.outputEntries < 2)
            return Fail(model, kStatusUnusable);
        lut.inputChannels = tag.inputChannels;
        lut.outputChannels = tag.outputChannels;
        lut.gridPoints = tag.gridPoints;
        lut.precision = 16;
        ConvertMatrix(tag.matrix, lut.matrix);
        if (!SplitTables(tag.inputTables, lut.inputChannels, tag.inputEntries, true, lut.inputTables16) ||
            !CopyU16(&tag.clut, &lut.clut16) ||
            !SplitTables(tag.outputTables, lut.outputChannels, tag.outputEntries, true, lut.outputTables16))
            return Fail(model, kStatusNoTable);
        return 1;
    }
    return Fail(model, kStatusUnusable);
}

// Reads the 'curv' tag `signature` into `out`: forward on the source side,
// inverted on the destination side.
int BuildTrc(ProfileFile* profile, ProfileModel* model, uint32_t signature, int direction, ValueBuffer* out) {
    int32_t index = -1;
    uint32_t type = 0;
    if (!FindTag(profile, signature, &index, &type) || type != kTypeCurv) return Fail(model, kStatusUnusable);
    Scoped<CurveTag, ReleaseCurveTag> curve;
    if (!ReadCurveTag(profile, index, curve.get())) return Fail(model, kStatusUnusable);
    ClearValueBuffer(out);
    const int built = direction == kSource ? BuildForwardCurve(curve.get(), out, kCurveSize)
                                           : BuildInverseCurve(curve.get(), out, kCurveSize, kCurveSize);
    return built ? 1 : Fail(model, kStatusNoTable);
}

int BuildMatrixTrcModel(ProfileFile* profile, ProfileModel* model, int direction) {
    // Three device channels, like a three-channel table: refused behind a
    // header that promises another count.
    const uint32_t device = ColourSpaceChannels(profile->header.colorSpace);
    if (device != 0 && device != 3) return Fail(model, kStatusUnusable);
    const uint32_t trcTags[3] = {kTagRTRC, kTagGTRC, kTagBTRC};
    for (int c = 0; c < 3; ++c)
        if (!BuildTrc(profile, model, trcTags[c], direction, &model->trc[c])) return 0;

    // Column c of the matrix is the colorant of channel c.
    const uint32_t xyzTags[3] = {kTagRXYZ, kTagGXYZ, kTagBXYZ};
    for (int c = 0; c < 3; ++c) {
        int32_t index = -1;
        uint32_t type = 0;
        if (!FindTag(profile, xyzTags[c], &index, &type) || type != kTypeXyz) return Fail(model, kStatusUnusable);
        XyzHolder xyz;
        if (!ReadXyzTag(profile, index, xyz.get()) || xyz.value.count == 0) return Fail(model, kStatusUnusable);
        for (int r = 0; r < 3; ++r) model->matrix[r][c] = FromS15Fixed16(xyz.value.values[r]);
    }
    if (direction == kSource) return 1;

    double (&m)[3][3] = model->matrix;
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[2][1] * m[1][2]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[2][0] * m[1][2]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[2][0] * m[1][1]);
    // Singular when det rounds to 0 in s15Fixed16, i.e. -1.5/65536 < det <
    // 0.5/65536 (the rounding is half-up for positive values only).
    if (FromS15Fixed16(uint32_t(ToS15Fixed16(det))) == 0.0) return Fail(model, kStatusUnusable);
    // Inverse: the cofactors of the transposed matrix over the unrounded det.
    double inv[3][3];
    inv[0][0] = (m[1][1] * m[2][2] - m[2][1] * m[1][2]) / det;
    inv[0][1] = -(m[0][1] * m[2][2] - m[2][1] * m[0][2]) / det;
    inv[0][2] = (m[0][1] * m[1][2] - m[1][1] * m[0][2]) / det;
    inv[1][0] = -(m[1][0] * m[2][2] - m[2][0] * m[1][2]) / det;
    inv[1][1] = (m[0][0] * m[2][2] - m[2][0] * m[0][2]) / det;
    inv[1][2] = -(m[0][0] * m[1][2] - m[1][0] * m[0][2]) / det;
    inv[2][0] = (m[1][0] * m[2][1] - m[2][0] * m[1][1]) / det;
    inv[2][1] = -(m[0][0] * m[2][1] - m[2][0] * m[0][1]) / det;
    inv[2][2] = (m[0][0] * m[1][1] - m[1][0] * m[0][1]) / det;
    std::memcpy(m, inv, sizeof inv);
    return 1;
}

int BuildGrayModel(ProfileFile* profile, ProfileModel* model, int direction) {
    return BuildTrc(profile, model, kTagKTRC, direction, &model->grayTrc);
}

bool PcsUsable(const ProfileHeader& h) { return h.pcs == kSigLab || h.pcs == kSigXyz || h.pcs == kSigLch; }

// Lookup table first, matrix/TRC when the table is missing or unusable; an
// allocation failure is final.
int BuildColorModel(ProfileFile* profile, ProfileModel* model, uint16_t intent, int direction) {
    const uint16_t lutIntent = profile->header.deviceClass == kSigPrtr ? intent : 0;
    if (ReadModelCommon(profile, model, kKindLut, direction) &&
        BuildLutModel(profile, model, direction, lutIntent, 0))
        return 1;
    if (model->status != kStatusUnusable) return 0;
    return ReadModelCommon(profile, model, kKindMatrixTrc, direction) &&
           BuildMatrixTrcModel(profile, model, direction);
}

}  // namespace

int BuildSourceModel(uint16_t intent, ProfileFile* profile, ProfileModel* model) {
    int ok = 0;
    if (PcsUsable(profile->header)) {
        if (profile->header.colorSpace == kSigGray)
            ok = ReadModelCommon(profile, model, kKindGray, kSource) && BuildGrayModel(profile, model, kSource);
        else
            ok = BuildColorModel(profile, model, intent, kSource);
    }
    model->status = kStatusOk;  // the result alone reports success
    return ok;
}

int BuildDestinationModel(uint16_t intent, ProfileFile* profile, uint32_t gamut, ProfileModel* model) {
    int ok = 0;
    const ProfileHeader& h = profile->header;
    if (PcsUsable(h)) {
        if (gamut != 0) {
            ok = h.deviceClass == kSigPrtr && ReadModelCommon(profile, model, kKindLut, kDestination) &&
                 BuildLutModel(profile, model, kDestination, intent, gamut);
        } else if (h.colorSpace == kSigGray) {
            ok = ReadModelCommon(profile, model, kKindGray, kDestination) &&
                 BuildGrayModel(profile, model, kDestination);
        } else {
            ok = BuildColorModel(profile, model, intent, kDestination);
        }
    }
    model->status = kStatusOk;
    return ok;
}

void ReleaseProfileModel(ProfileModel* model) {
    // Every buffer is released whatever the kind: the ones a kind does not
    // use are empty in a zeroed model, so a half-built model is safe too.
    for (ValueBuffer& b : model->trc) FreeValueBuffer(&b);
    FreeValueBuffer(&model->grayTrc);
    LutModel& lut = model->lut;
    for (int c = 0; c < 4; ++c) {
        FreeValueBuffer(&lut.inputTables8[c]);
        FreeValueBuffer(&lut.outputTables8[c]);
        FreeValueBuffer(&lut.inputTables16[c]);
        FreeValueBuffer(&lut.outputTables16[c]);
    }
    FreeValueBuffer(&lut.clut8);
    FreeValueBuffer(&lut.clut16);
}

// ---- table queries -------------------------------------------------------

namespace {

bool ChannelOk(int channel) { return channel >= 0 && channel < 4; }

// 8-bit values to 16 bits: v * 257.
int Widen(const ValueBuffer& bytes, ValueBuffer* out) {
    ClearValueBuffer(out);
    if (!AllocU16(out, bytes.count)) return 0;
    for (uint32_t i = 0; i < bytes.count; ++i) U16(*out)[i] = uint16_t(Bytes(bytes)[i] * 257);
    return 1;
}

int Table16(const LutModel* lut, const ValueBuffer* tables8, const ValueBuffer* tables16, int channel,
            ValueBuffer* out) {
    if (!ChannelOk(channel)) return 0;
    if (lut->precision == 8) return Widen(tables8[channel], out);
    ClearValueBuffer(out);
    return CopyU16(&tables16[channel], out);
}

int Table8(const LutModel* lut, const ValueBuffer* tables8, const ValueBuffer* tables16, int channel,
           ValueBuffer* out) {
    if (!ChannelOk(channel)) return 0;
    ClearValueBuffer(out);
    if (lut->precision == 8) return CopyBytes(&tables8[channel], out);
    return ResampleCurveTo256(&tables16[channel], out);
}

// Runs `resample` over the 16-bit form of a lut table.
template <typename Resample>
int FromTable16(const LutModel* lut, const ValueBuffer* tables8, const ValueBuffer* tables16, int channel,
                ValueBuffer* out, Resample resample) {
    Scoped<ValueBuffer, FreeValueBuffer> wide;
    int ok = Table16(lut, tables8, tables16, channel, wide.get());
    ClearValueBuffer(out);
    if (ok) ok = resample(wide.get(), out);
    return ok;
}

const ValueBuffer* ModelCurve(const ProfileModel* model, int channel) {
    if (model->kind == kKindGray) return &model->grayTrc;
    if (model->kind == kKindMatrixTrc && channel >= 0 && channel < 3) return &model->trc[channel];
    return nullptr;
}

}  // namespace

int LutInputTable16(const LutModel* lut, int channel, ValueBuffer* out) {
    return Table16(lut, lut->inputTables8, lut->inputTables16, channel, out);
}

int LutOutputTable16(const LutModel* lut, int channel, ValueBuffer* out) {
    return Table16(lut, lut->outputTables8, lut->outputTables16, channel, out);
}

int LutClut16(const LutModel* lut, ValueBuffer* out) {
    if (lut->precision == 8) return Widen(lut->clut8, out);
    ClearValueBuffer(out);
    return CopyU16(&lut->clut16, out);
}

int LutInputTable8(const LutModel* lut, int channel, ValueBuffer* out) {
    return Table8(lut, lut->inputTables8, lut->inputTables16, channel, out);
}

int LutOutputTable8(const LutModel* lut, int channel, ValueBuffer* out) {
    return Table8(lut, lut->outputTables8, lut->outputTables16, channel, out);
}

int LutClut8(const LutModel* lut, ValueBuffer* out) {
    ClearValueBuffer(out);
    if (lut->precision == 8) return CopyBytes(&lut->clut8, out);
    if (!AllocBytes(out, lut->clut16.count)) return 0;
    // 16-bit to 8-bit: (v + 128) / 257.
    for (uint32_t i = 0; i < lut->clut16.count; ++i) Bytes(*out)[i] = uint8_t((U16(lut->clut16)[i] + 128u) / 257u);
    return 1;
}

int LutInputTable12(const LutModel* lut, int channel, uint32_t entries, ValueBuffer* out) {
    return FromTable16(lut, lut->inputTables8, lut->inputTables16, channel, out,
                       [entries](const ValueBuffer* t, ValueBuffer* o) { return ResampleCurve12(t, entries, o); });
}

int LutOutputTable8x4096(const LutModel* lut, int channel, ValueBuffer* out) {
    return FromTable16(lut, lut->outputTables8, lut->outputTables16, channel, out,
                       [](const ValueBuffer* t, ValueBuffer* o) { return ResampleCurve8(t, 4096, o); });
}

int LutOutputTable16x4096(const LutModel* lut, int channel, ValueBuffer* out) {
    return FromTable16(lut, lut->outputTables8, lut->outputTables16, channel, out,
                       [](const ValueBuffer* t, ValueBuffer* o) { return ResampleCurve16(t, 4096, o); });
}

int CurveTable12(const ProfileModel* model, int channel, uint32_t entries, ValueBuffer* out) {
    const ValueBuffer* curve = ModelCurve(model, channel);
    ClearValueBuffer(out);
    return curve != nullptr && ResampleCurve12(curve, entries, out);
}

int CurveTable8x4096(const ProfileModel* model, int channel, ValueBuffer* out) {
    const ValueBuffer* curve = ModelCurve(model, channel);
    ClearValueBuffer(out);
    return curve != nullptr && ResampleCurve8(curve, 4096, out);
}

int CurveTable16x4096(const ProfileModel* model, int channel, ValueBuffer* out) {
    const ValueBuffer* curve = ModelCurve(model, channel);
    ClearValueBuffer(out);
    return curve != nullptr && ResampleCurve16(curve, 4096, out);
}

int CurveTable8x256(const ProfileModel* model, int channel, ValueBuffer* out) {
    const ValueBuffer* curve = ModelCurve(model, channel);
    ClearValueBuffer(out);
    return curve != nullptr && ResampleCurveTo256(curve, out);
}

}  // namespace tintra3
