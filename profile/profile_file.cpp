// Opening a profile: the 128-byte header, the tag directory and tag lookup.
#include "profile/profile_file.h"

#include "profile/allocator.h"
#include "profile/fixed_point.h"
#include "profile/limits.h"
#include "profile/stream.h"

namespace tintra3 {

namespace {

// Bytes in the file, measured once at open; the stream position is kept.
uint64_t MeasureFile(std::FILE* stream) {
    const long here = std::ftell(stream);
    if (here < 0 || std::fseek(stream, 0, SEEK_END) != 0) return 0;
    const long end = std::ftell(stream);
    std::fseek(stream, here, SEEK_SET);
    return end < 0 ? 0 : uint64_t(end);
}

void FreeDirectory(TagDirectory* directory) {
    if (directory->owned != 0 && directory->entries != nullptr) Deallocate(directory->entries);
    directory->entries = nullptr;
    directory->owned = 0;
}

int ReadProfileHeader(ProfileFile* profile, ProfileHeader* header) {
    // Fields in the order of their offsets; each read stops at the first
    // short one.
    if (!ReadU32BE(profile->stream, &header->size) || !ReadU32BE(profile->stream, &header->cmmType) ||
        !ReadU32BE(profile->stream, &header->version) || !ReadU32BE(profile->stream, &header->deviceClass) ||
        !ReadU32BE(profile->stream, &header->colorSpace) || !ReadU32BE(profile->stream, &header->pcs))
        return 0;
    for (uint16_t& field : header->dateTime)
        if (!ReadU16BE(profile->stream, &field)) return 0;
    if (!ReadU32BE(profile->stream, &header->magic) || !ReadU32BE(profile->stream, &header->platform) ||
        !ReadU32BE(profile->stream, &header->flags) || !ReadU32BE(profile->stream, &header->manufacturer) ||
        !ReadU32BE(profile->stream, &header->model) || !ReadU32BE(profile->stream, &header->attributes[0]) ||
        !ReadU32BE(profile->stream, &header->attributes[1]) || !ReadU32BE(profile->stream, &header->renderingIntent))
        return 0;
    for (uint32_t& field : header->illuminant)
        if (!ReadU32BE(profile->stream, &field)) return 0;
    if (!ReadU32BE(profile->stream, &header->creator)) return 0;
    return SkipBytes(profile->stream, 44);  // reserved bytes 84..127
}

int ReadTagDirectory(ProfileFile* profile, TagDirectory* directory) {
    directory->count = 0;
    directory->entries = nullptr;
    directory->owned = 0;
    uint32_t count = 0;
    if (!ReadU32BE(profile->stream, &count)) return 0;
    // A count the rest of the file cannot hold (12 bytes per entry) would
    // fail on reading anyway; fail before allocating for it.
    const long here = profile->stream != nullptr ? std::ftell(profile->stream) : -1;
    if (here < 0) return 0;
    if (!limits::FitsInFile(profile, uint64_t(here), uint64_t(count) * 12)) return 0;
    directory->count = count;
    if (count != 0) {
        directory->entries = AllocateArray<TagEntry>(count);
        if (directory->entries == nullptr) {
            directory->count = 0;
            return 0;
        }
    }
    directory->owned = 1;  // also for an empty directory
    for (uint32_t i = 0; i < count; ++i) {
        TagEntry& e = directory->entries[i];
        if (!ReadU32BE(profile->stream, &e.signature) || !ReadU32BE(profile->stream, &e.offset) || !ReadU32BE(profile->stream, &e.size))
            return 0;
    }
    return 1;
}

}  // namespace

uint32_t ColourSpaceChannels(uint32_t space) {
    switch (space) {
        case Sig("GRAY"): return 1;
        case Sig("XYZ "):
        case Sig("Lab "):
        case Sig("Luv "):
        case Sig("YCbr"):
        case Sig("Yxy "):
        case Sig("RGB "):
        case Sig("HSV "):
        case Sig("HLS "):
        case Sig("CMY "): return 3;
        case Sig("CMYK"): return 4;
        default: break;
    }
    // 2CLR .. 9CLR, ACLR .. FCLR: the first character is the count in hex.
    if ((space & 0x00FFFFFFu) == (Sig("0CLR") & 0x00FFFFFFu)) {
        const uint32_t digit = space >> 24;
        if (digit >= '2' && digit <= '9') return digit - '0';
        if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    }
    return 0;
}

double FromS15Fixed16(uint32_t raw) {
    return double(int32_t(raw)) * (1.0 / 65536.0);
}

int32_t ToS15Fixed16(double x) {
    // x * 65536 + 0.5 truncated toward zero: rounds half up for positive x
    // only. Like the processor's truncating conversion, a NaN or a value
    // whose truncation does not fit in 32 bits gives 0x80000000.
    return TruncToInt(x * 65536.0 + 0.5);
}

int OpenProfile(const char* path, ProfileFile* profile) {
    profile->valid = 0;
    profile->stream = nullptr;
    profile->tags.count = 0;
    profile->tags.entries = nullptr;
    profile->tags.owned = 0;
    profile->fileSize = 0;
    std::FILE* stream = nullptr;
    if (!OpenFileForRead(path, &stream)) return 0;
    return OpenProfileStream(stream, profile);
}

int OpenProfileStream(std::FILE* stream, ProfileFile* profile) {
    profile->valid = 0;
    profile->stream = stream;
    profile->tags.count = 0;
    profile->tags.entries = nullptr;
    profile->tags.owned = 0;
    profile->fileSize = 0;
    if (stream == nullptr) return 0;
    profile->fileSize = MeasureFile(profile->stream);
    if (!ReadProfileHeader(profile, &profile->header) || !ReadTagDirectory(profile, &profile->tags)) {
        // Nobody closes a record that never became valid, so close it here.
        FreeDirectory(&profile->tags);
        CloseFile(&profile->stream);
        return 0;
    }
    profile->valid = 1;
    return 1;
}

void CloseProfile(ProfileFile* profile) {
    CloseFile(&profile->stream);
    FreeDirectory(&profile->tags);
    profile->valid = 0;
}

int FindTag(ProfileFile* profile, uint32_t signature, int32_t* index, uint32_t* type) {
    const TagDirectory& dir = profile->tags;
    for (uint32_t i = 0; i < dir.count && dir.entries != nullptr; ++i) {
        if (dir.entries[i].signature != signature) continue;
        *index = int32_t(i);
        SeekAbsolute(profile->stream, dir.entries[i].offset);
        return ReadU32BE(profile->stream, type);  // leaves the stream 4 bytes into the element
    }
    return 0;
}

int PeekTagType(ProfileFile* profile, int32_t index, uint32_t* type) {
    if (index < 0 || uint32_t(index) >= profile->tags.count || profile->tags.entries == nullptr) return 0;
    SeekAbsolute(profile->stream, profile->tags.entries[index].offset);
    if (!ReadU32BE(profile->stream, type)) return 0;
    SkipBytes(profile->stream, -4);  // back onto the element's first byte
    return 1;
}

}  // namespace tintra3
