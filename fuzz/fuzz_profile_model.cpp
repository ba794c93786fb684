// Reading and profile models alone, no transform: the header, the tag
// directory, every tag type, either direction, any intent or the gamut
// table, the first and last entry of every table of the model and one
// table the builders derive from it. Fast enough for millions of executions.
#include <cstdint>
#include <cstdio>

#include "profile/profile_file.h"
#include "profile/profile_model.h"
#include "profile/value_buffer.h"

namespace {

using namespace tintra3;

volatile uint32_t sink;

void Touch(const ValueBuffer& b, uint32_t width) {
    if (b.count == 0 || b.data == nullptr) return;
    const auto* bytes = static_cast<const uint8_t*>(b.data);
    sink = sink + bytes[0] + bytes[size_t(b.count) * width - 1];
}

// Runs a table query and touches what it made.
template <typename Query>
void Derive(uint32_t width, Query query) {
    ValueBuffer out{};
    if (query(&out)) Touch(out, width);
    FreeValueBuffer(&out);
}

void TouchModel(const ProfileModel& m) {
    for (const ValueBuffer& b : m.trc) Touch(b, 2);
    Touch(m.grayTrc, 2);
    const LutModel& lut = m.lut;
    for (int c = 0; c < 4; ++c) {
        Touch(lut.inputTables8[c], 1);
        Touch(lut.outputTables8[c], 1);
        Touch(lut.inputTables16[c], 2);
        Touch(lut.outputTables16[c], 2);
    }
    Touch(lut.clut8, 1);
    Touch(lut.clut16, 2);
}

// One of the derived tables the builders ask for, chosen by `which`.
void DeriveOne(const ProfileModel& m, uint8_t which) {
    const int c = which & 3;
    switch ((which >> 2) % 13) {
        case 0: Derive(2, [&](ValueBuffer* o) { return LutInputTable16(&m.lut, c, o); }); break;
        case 1: Derive(2, [&](ValueBuffer* o) { return LutOutputTable16(&m.lut, c, o); }); break;
        case 2: Derive(1, [&](ValueBuffer* o) { return LutInputTable8(&m.lut, c, o); }); break;
        case 3: Derive(1, [&](ValueBuffer* o) { return LutOutputTable8(&m.lut, c, o); }); break;
        case 4: Derive(2, [&](ValueBuffer* o) { return LutInputTable12(&m.lut, c, 1024, o); }); break;
        case 5: Derive(1, [&](ValueBuffer* o) { return LutOutputTable8x4096(&m.lut, c, o); }); break;
        case 6: Derive(2, [&](ValueBuffer* o) { return LutOutputTable16x4096(&m.lut, c, o); }); break;
        case 7: Derive(2, [&](ValueBuffer* o) { return CurveTable12(&m, c, 256, o); }); break;
        case 8: Derive(1, [&](ValueBuffer* o) { return CurveTable8x4096(&m, c, o); }); break;
        case 9: Derive(2, [&](ValueBuffer* o) { return CurveTable16x4096(&m, c, o); }); break;
        case 10: Derive(1, [&](ValueBuffer* o) { return CurveTable8x256(&m, c, o); }); break;
        case 11: Derive(2, [&](ValueBuffer* o) { return LutClut16(&m.lut, o); }); break;
        default: Derive(1, [&](ValueBuffer* o) { return LutClut8(&m.lut, o); }); break;
    }
}

}  // namespace

// The last two bytes choose the model (side, intent, gamut mode) and the
// derived table: one of each per execution keeps the target fast.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t options = data[size - 1];
    const uint8_t which = data[size - 2];
    std::FILE* stream = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (stream == nullptr) return 0;
    ProfileFile profile{};
    if (!OpenProfileStream(stream, &profile)) return 0;
    const bool source = (options & 1) != 0;
    const uint16_t intent = (options >> 1) & 3;
    const uint32_t gamut = (options >> 3) & 1;
    ProfileModel model{};
    const int ok = source ? BuildSourceModel(intent, &profile, &model)
                          : BuildDestinationModel(intent, &profile, gamut, &model);
    // Only a successful model is handed to the builders.
    if (ok) {
        TouchModel(model);
        DeriveOne(model, which);
    }
    ReleaseProfileModel(&model);
    CloseProfile(&profile);
    return 0;
}
