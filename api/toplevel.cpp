// The top-level interface: checks both profile files against the registered
// folders, fills fixed image defaults and drives the toolbox layer in chunks
// of 64 three-byte pixels.
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "api/exports.h"
#include "api/status.h"
#include "platform/platform.h"
#include "profile/allocator.h"
#include "profile/profile_file.h"

namespace tintra3 {

// Twenty header words, host order. Field 15 (index 14) is never written and
// field 17 (index 16) ends up holding the rendering intent: only the device
// class (index 3) and colour space (index 4) are used.
struct HeaderFields {
    uint32_t field[20];
};

void ReadHeaderFields(platform::File* file, HeaderFields* fields);
uint32_t CheckProfileFile(const char* path, HeaderFields* fields, const DirectoryTable* directories);
uint32_t MapToolboxError(uint32_t status);

namespace {

constexpr size_t kPathSlot = 256;
// Path-splitting buffers: drive, directory, file name, extension.
constexpr size_t kDriveSize = 3;
constexpr size_t kDirSize = 250;
constexpr size_t kNameSize = 250;
constexpr size_t kExtSize = 5;
constexpr uint32_t kChunkPixels = 64;
constexpr uint32_t kBytesPerPixel = 3;

uint32_t Word(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

bool AcceptedClass(uint32_t cls) {
    switch (cls) {
        case Sig("link"): case Sig("abst"): case Sig("nmcl"): case Sig("mntr"):
        case Sig("prtr"): case Sig("scnr"): case Sig("spac"):
            return true;
        default:
            return false;
    }
}

bool AcceptedSpace(uint32_t space) {
    switch (space) {
        case Sig("XYZ "): case Sig("Lab "): case Sig("Luv "): case Sig("YCbr"): case Sig("Yxy "):
        case Sig("RGB "): case Sig("HSV "): case Sig("HLS "): case Sig("CMY "):
            return true;
        case Sig("GRAY"):  // one channel: the three-byte pixels of this layer cannot carry it
        default:
            return false;
    }
}

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

void CopyBounded(char* out, size_t size, const char* text, size_t len) {
    if (len > size - 1) len = size - 1;
    std::memcpy(out, text, len);
    out[len] = '\0';
}

// The folder that holds the file: the directory part without its trailing
// separator, after the last remaining separator. Null when no separator is
// left (a bare name, or "folder/name" without a leading separator).
const char* FolderName(char* dir) {
    size_t len = std::strlen(dir);
    if (len == 0) return nullptr;
    dir[len - 1] = '\0';
    // Character by character: on a double-byte code page a trail byte 0x5C
    // inside the folder's name is not a separator.
    const char* last = nullptr;
    for (const char* p = dir; *p != '\0'; p = platform::NextCharacter(p))
        if (IsSeparator(*p)) last = p;
    return last != nullptr ? last + 1 : nullptr;
}

const char* RegisteredFolder(uint32_t cls, const DirectoryTable* directories) {
    if (directories == nullptr) return nullptr;
    switch (cls) {
        case Sig("prtr"): return directories->printer;
        case Sig("mntr"): return directories->monitor;
        case Sig("scnr"): return directories->scanner;
        default: return nullptr;  // link, abst, nmcl, spac: no folder of their own
    }
}

// Case-sensitive byte comparison with a 255-byte slot that need not be
// NUL-terminated.
bool SameFolder(const char* folder, const char* slot) {
    size_t len = std::strlen(folder);
    return len == strnlen(slot, 255) && std::memcmp(folder, slot, len) == 0;
}

uint16_t MapIntent(int32_t intent) {
    switch (intent) {
        case 0: return 0;
        case 1: return 1;
        case 2: return 3;  // the toolbox numbering swaps 2 and 3; Initialize swaps back
        case 3: return 2;
        default: return 0xFFFF;
    }
}

uint16_t MapMethod(int32_t choice) {
    switch (choice) {
        case 0: return 1;  // default: 16-bit precision
        case 1: return 0;
        case 2: return 1;
        default: return 0xFFFF;
    }
}

// Result of CheckProfileFile (0 to 4) as a top-level code, `base` being the
// "cannot be opened" code of the source or of the destination; the four
// codes of each side follow one another.
static_assert(TINTRA_STATUS_TOP_SOURCE_PATH == TINTRA_STATUS_TOP_SOURCE_OPEN + 3);
static_assert(TINTRA_STATUS_TOP_DESTINATION_PATH == TINTRA_STATUS_TOP_DESTINATION_OPEN + 3);
uint32_t CheckCode(uint32_t check, uint32_t base) {
    if (check >= 1 && check <= 4) return base + check - 1;
    return TINTRA_STATUS_TOP_PROFILE;
}

}  // namespace

void ReadHeaderFields(platform::File* file, HeaderFields* fields) {
    uint8_t header[128] = {};
    uint32_t got = 0;
    // A failed read leaves the record as it was; a short one decodes zeros
    // for the missing bytes.
    if (!platform::Read(file, header, sizeof header, &got)) return;
    uint32_t* f = fields->field;
    for (int i = 0; i < 14; ++i) f[i] = Word(header + 4 * i);  // offsets 0 .. 52
    // f[14] is never written.
    f[15] = Word(header + 56);
    f[16] = Word(header + 60);
    f[16] = Word(header + 64);  // overwritten at once by the rendering intent
    f[17] = Word(header + 68);
    f[18] = Word(header + 72);
    f[19] = Word(header + 76);
}

// 0 accepted; 1 cannot open; 2 device class not accepted; 3 not in the
// folder registered for its class; 4 null path or no working memory.
uint32_t CheckProfileFile(const char* path, HeaderFields* fields, const DirectoryTable* directories) {
    if (path == nullptr) return 4;
    platform::File file;
    if (!platform::OpenForRead(path, &file)) return 1;
    ReadHeaderFields(&file, fields);
    const uint32_t cls = fields->field[3];
    if (!AcceptedClass(cls)) {
        platform::Close(&file);
        return 2;
    }
    platform::Close(&file);

    const Owned<char> drive(static_cast<char*>(AllocateZeroed(kDriveSize, 1)));
    const Owned<char> dir(static_cast<char*>(AllocateZeroed(kDirSize, 1)));
    const Owned<char> name(static_cast<char*>(AllocateZeroed(kNameSize, 1)));
    const Owned<char> ext(static_cast<char*>(AllocateZeroed(kExtSize, 1)));
    if (drive == nullptr || dir == nullptr || name == nullptr || ext == nullptr) return 4;
    platform::SplitPath(path, {drive.get(), kDriveSize, dir.get(), kDirSize, name.get(), kNameSize, ext.get(),
                               kExtSize});
    const char* folder = FolderName(dir.get());
    const char* registered = RegisteredFolder(cls, directories);
    return (folder != nullptr && registered != nullptr && SameFolder(folder, registered)) ? 0 : 3;
}

uint32_t MapToolboxError(uint32_t status) {
    const StatusRow* row = FindStatus(status);
    // A top-level code handed back down is no toolbox result: like any
    // unknown value it counts as a failed build.
    if (row == nullptr || IsTopLevelCode(*row)) return TINTRA_STATUS_TOP_BUILD_FAILED;
    return row->topLevelCode;
}

}  // namespace tintra3

using namespace tintra3;

uint32_t TINTRA3_CALL tintra_Init(const char* sourceProfile, const char* destinationProfile, int32_t intent,
                                  int32_t methodChoice, CColorMatcher** handle, const DirectoryTable* directories) {
    // Bad values travel down as 0xFFFF: QemToolboxInit refuses them as a bad
    // argument, which comes back as the top level's own argument code.
    const uint16_t toolboxIntent = MapIntent(intent);
    const uint16_t method = MapMethod(methodChoice);

    char names[2 * kPathSlot] = {};
    char* sourceSlot = names;
    char* destinationSlot = names + kPathSlot;
    HeaderFields fields = {};

    if (sourceProfile != nullptr) CopyBounded(sourceSlot, kPathSlot, sourceProfile, strnlen(sourceProfile, kPathSlot));
    uint32_t check = CheckProfileFile(sourceProfile != nullptr ? sourceSlot : nullptr, &fields, directories);
    if (check != 0) return CheckCode(check, TINTRA_STATUS_TOP_SOURCE_OPEN);
    if (!AcceptedSpace(fields.field[4])) return TINTRA_STATUS_TOP_SOURCE_SPACE;

    if (destinationProfile != nullptr)
        CopyBounded(destinationSlot, kPathSlot, destinationProfile, strnlen(destinationProfile, kPathSlot));
    check = CheckProfileFile(destinationProfile != nullptr ? destinationSlot : nullptr, &fields, directories);
    if (check != 0) return CheckCode(check, TINTRA_STATUS_TOP_DESTINATION_OPEN);
    if (!AcceptedSpace(fields.field[4])) return TINTRA_STATUS_TOP_DESTINATION_SPACE;

    // One pixel per line, 64 lines: each PixelRun carries up to 64 pixels.
    ImageParams image = {};
    image.width = 1;
    image.lines = 64;
    image.bufferSize = 256;
    image.destinationBufferSize = 256;
    image.bitsIn = 8;
    image.bitsOut = 8;
    image.layout = TINTRA_INTERLEAVED;
    return MapToolboxError(QemToolboxInit(&image, names, method, toolboxIntent, handle));
}

uint32_t TINTRA3_CALL tintra_Proc(const uint8_t* source, uint8_t* destination, uint32_t pixels,
                                  CColorMatcher* handle) {
    // Chunks of 64 pixels and one of the remainder (none when it is 0); a
    // failing chunk does not stop the rest, the last chunk's status counts.
    // Pixels are three bytes whatever the profiles' channel counts.
    const uint32_t full = pixels / kChunkPixels;
    const uint32_t rest = pixels % kChunkPixels;
    uint32_t status = 0;
    // Byte offset of the chunk; null buffers stay null (no arithmetic on a
    // null pointer) and are the lower layers' to refuse or not.
    size_t offset = 0;
    for (uint32_t i = 0; i <= full; ++i) {
        const uint32_t count = i < full ? kChunkPixels : rest;
        if (count == 0) break;
        uint8_t* in = source != nullptr ? const_cast<uint8_t*>(source) + offset : nullptr;
        uint8_t* out = destination != nullptr ? destination + offset : nullptr;
        PixelRun sourceRun = {in, static_cast<uint16_t>(count)};
        PixelRun destinationRun = {out, static_cast<uint16_t>(count)};
        status = QemToolboxProc(&sourceRun, &destinationRun, handle);
        offset += size_t(kBytesPerPixel) * count;
    }
    return MapToolboxError(status);
}

void TINTRA3_CALL tintra_Free(CColorMatcher* handle) { QemToolboxPostProc(handle); }

uint32_t TINTRA3_CALL tintra(const uint8_t* source, uint32_t pixels, uint8_t* destination, const char* sourceProfile,
                             const char* destinationProfile, int32_t intent, int32_t methodChoice, ...) {
    va_list args;
    va_start(args, methodChoice);
    const DirectoryTable* directories = va_arg(args, const DirectoryTable*);
    va_end(args);

    CColorMatcher* handle = nullptr;
    uint32_t status = tintra_Init(sourceProfile, destinationProfile, intent, methodChoice, &handle, directories);
    if (status == 0) status = tintra_Proc(source, destination, pixels, handle);
    // The handle is internal here, so it is released on failure too.
    tintra_Free(handle);
    return status;
}
