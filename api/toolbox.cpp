// The toolbox layer: handle-based entry points that check their arguments
// (5001), build the matcher's parameter records and own the matcher object.
#include <cstdlib>
#include <cstring>

#include "api/exports.h"
#include "api/status.h"
#include "api/tone_curves.h"
#include "profile/allocator.h"
#include "profile/value_buffer.h"
#include "transform/tone_curves.h"

namespace tintra3 {
namespace {

constexpr size_t kPathSlot = 256;       // one path of a profile-name block
constexpr size_t kDirectorySlot = 255;  // one name of a DirectoryTable

// Copies a NUL-terminated string into a fixed slot: at most slot - 1 bytes
// of it, then a NUL. Reads no further than slot - 1 bytes of the source.
void CopyToSlot(char* slot, size_t size, const char* text) {
    size_t len = strnlen(text, size - 1);
    std::memcpy(slot, text, len);
    slot[len] = '\0';
}

void CopyImage(const ImageParams* from, ImageParams* to) {
    // The seven values one by one; the reserved word is not the caller's to set.
    to->width = from->width;
    to->lines = from->lines;
    to->bufferSize = from->bufferSize;
    to->destinationBufferSize = from->destinationBufferSize;
    to->bitsIn = from->bitsIn;
    to->bitsOut = from->bitsOut;
    to->layout = from->layout;
    to->reserved = 0;
}

// profileNames: source path at 0, destination path 256 bytes in.
void CopyNames(const char* block, ProfileNames* names) {
    std::memset(names, 0, sizeof(*names));
    CopyToSlot(names->sourceProfile, kPathSlot, block);
    CopyToSlot(names->destinationProfile, kPathSlot, block + kPathSlot);
    names->reserved1 = 0;
    names->reserved2 = 0;
    names->reserved3 = 0;
}

using CurveCall = uint32_t(TINTRA3_CALL*)(CColorMatcher*, uint16_t, uint16_t, uint16_t, ::ValueBuffer*);

uint32_t ApplyCurves(const CurveSpec* request, uint16_t side, CColorMatcher* handle, CurveCall call) {
    if (request == nullptr || side > 1 || handle == nullptr) return kBadArgument;
    // Four buffers is all the matcher takes.
    if (request->channels > 4) return kBadArgument;
    ValueBuffer curves[4];
    for (ValueBuffer& b : curves) ClearValueBuffer(&b);
    // Both the filling's result and the matcher's status are dropped: this
    // layer reports success once its own checks pass. A filling that stopped
    // early still hands down the buffers filled so far (the curve operations
    // refuse curves that fall short).
    (void)MakeToneCurves(request->kind, request->channels, request->data, CurveMaximumForBits(request->bits), curves);
    ::ValueBuffer handed[4];
    for (int c = 0; c < 4; ++c) handed[c] = ToPublic(curves[c]);
    call(handle, side, request->bits, request->channels, handed);
    for (ValueBuffer& b : curves) FreeValueBuffer(&b);
    return 0;
}

}  // namespace
}  // namespace tintra3

using namespace tintra3;

uint32_t TINTRA3_CALL QemToolboxInit(const ImageParams* image, const char* profileNames, uint16_t method,
                                     int32_t intent, CColorMatcher** handle) {
    if (image == nullptr || profileNames == nullptr || method > 1 || intent < 0 || intent > 3 || handle == nullptr)
        return kBadArgument;

    ImageParams im;
    CopyImage(image, &im);
    ProfileNames names;
    CopyNames(profileNames, &names);
    MatchingParams params;
    params.intent = static_cast<uint16_t>(intent & 0xFFFF);
    params.method = method;
    params.transform = nullptr;
    params.destinationMode = 0;

    // Zeroed, so the selector starts with no transform and a release after a
    // failed set-up has nothing to free.
    auto* matcher = static_cast<CColorMatcher*>(AllocateZeroed(1, sizeof(CColorMatcher)));
    if (matcher == nullptr) return kNoMemory;
    InitCColorMatcher(matcher, &params, &im, &names);
    // Stored whatever the outcome: the caller releases it with PostProc.
    *handle = matcher;
    return CMGetError(matcher);
}

uint32_t TINTRA3_CALL QemToolboxProc(const PixelRun* source, const PixelRun* destination, CColorMatcher* handle) {
    if (source == nullptr || handle == nullptr) return kBadArgument;
    PixelRun src = {source->data, source->lines};
    if (destination == nullptr) {
        ColorMatchingProc1(handle, &src);
    } else {
        PixelRun dst = {destination->data, destination->lines};
        ColorMatchingProc2(handle, &src, &dst);
    }
    return CMGetError(handle);
}

void TINTRA3_CALL QemToolboxPostProc(CColorMatcher* handle) {
    if (handle == nullptr) return;
    TermCColorMatcher(handle);
    Deallocate(handle);
}

uint32_t TINTRA3_CALL QemToolboxResetMatchingParam(const ImageParams* image, const char* profileNames,
                                                   uint16_t method, uint16_t intent, CColorMatcher* handle) {
    if (handle == nullptr) return kBadArgument;

    ImageParams im;
    if (image == nullptr) {
        im = handle->image;
    } else {
        CopyImage(image, &im);
    }
    ProfileNames names;
    if (profileNames == nullptr) {
        names = handle->names;
    } else {
        CopyNames(profileNames, &names);
    }
    // No "keep the current value" here: 0xFFFF travels down and is refused
    // by the selector (2050 for the intent, 2040 for the method).
    MatchingParams params;
    params.intent = intent;
    params.method = method;
    params.transform = nullptr;
    params.destinationMode = 0;

    TermCColorMatcher(handle);
    InitCColorMatcher(handle, &params, &im, &names);
    return CMGetError(handle);
}

uint32_t TINTRA3_CALL QemToolboxResetProfiles(const char* sourceProfile, const char* destinationProfile,
                                              CColorMatcher* handle) {
    if (handle == nullptr) return kBadArgument;
    ProfileNames names = handle->names;
    if (sourceProfile != nullptr) CopyToSlot(names.sourceProfile, kPathSlot, sourceProfile);
    if (destinationProfile != nullptr) CopyToSlot(names.destinationProfile, kPathSlot, destinationProfile);
    // No TermCColorMatcher first: Initialize replaces the transform itself.
    ReinitCColorMatcher(handle, &names);
    return CMGetError(handle);
}

uint32_t TINTRA3_CALL QemToolboxChangeImageWidth(int32_t width, CColorMatcher* handle) {
    if (width < 1 || handle == nullptr) return kBadArgument;
    return ChangeImageWidth(handle, static_cast<uint32_t>(width));
}

uint32_t TINTRA3_CALL QemToolboxChangeImageLines(int32_t lines, CColorMatcher* handle) {
    if (lines < 1 || handle == nullptr) return kBadArgument;
    return ChangeImageLines(handle, static_cast<uint32_t>(lines));
}

uint32_t TINTRA3_CALL QemToolboxChangeBufSize(int32_t size, uint16_t unit, CColorMatcher* handle) {
    // The unit must be 1 (bytes) and has no other use.
    if (size < 1 || unit != 1 || handle == nullptr) return kBadArgument;
    return ChangeBufSize(handle, static_cast<uint32_t>(size));
}

uint32_t TINTRA3_CALL QemToolboxChange1DLUT(const CurveSpec* curves, uint16_t side, CColorMatcher* handle) {
    return ApplyCurves(curves, side, handle, &Change1DLut);
}

uint32_t TINTRA3_CALL QemToolboxMerge1DLUT(const CurveSpec* curves, uint16_t side, CColorMatcher* handle) {
    return ApplyCurves(curves, side, handle, &Merge1DLut);
}

uint32_t TINTRA3_CALL QemToolboxLocateProfile(const char* fileName, char* path) {
    if (fileName == nullptr || path == nullptr) return kBadArgument;
    char work[kPathSlot];
    CopyToSlot(work, sizeof work, path);
    uint32_t result = LocateProfile(fileName, work);
    CopyToSlot(path, kPathSlot, work);
    return result;
}

void TINTRA3_CALL SetDirectoryName(const char* printer, const char* monitor, const char* scanner,
                                   DirectoryTable* table) {
    // Nothing else is checked; a null name just leaves its slot empty.
    if (table == nullptr) return;
    if (printer == nullptr) printer = "";
    if (monitor == nullptr) monitor = "";
    if (scanner == nullptr) scanner = "";
    CopyToSlot(table->printer, kDirectorySlot, printer);
    CopyToSlot(table->monitor, kDirectorySlot, monitor);
    CopyToSlot(table->scanner, kDirectorySlot, scanner);
}
