// Big-endian readers over the buffered stream of an open profile.
#include "profile/stream.h"

#include <limits>

namespace tintra3 {

int ReadU8(std::FILE* stream, uint8_t* out) {
    if (stream == nullptr) return 0;
    return std::fread(out, 1, 1, stream) == 1 ? 1 : 0;
}

int ReadU16BE(std::FILE* stream, uint16_t* out) {
    uint8_t b[2] = {0, 0};
    const size_t got = stream != nullptr ? std::fread(b, 1, 2, stream) : 0;
    // Swapped whatever was read; a short read is reported and callers stop.
    *out = uint16_t((b[0] << 8) | b[1]);
    return got == 2 ? 1 : 0;
}

int ReadU32BE(std::FILE* stream, uint32_t* out) {
    uint8_t b[4] = {0, 0, 0, 0};
    const size_t got = stream != nullptr ? std::fread(b, 1, 4, stream) : 0;
    *out = (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | uint32_t(b[3]);
    return got == 4 ? 1 : 0;
}

int SkipBytes(std::FILE* stream, int32_t count) {
    // The seek's result is deliberately ignored: a bad position surfaces as
    // a failed read afterwards.
    if (stream != nullptr) std::fseek(stream, long(count), SEEK_CUR);
    return 1;
}

int SeekAbsolute(std::FILE* stream, uint32_t position) {
    // `long` may be 32 bits: positions beyond its range are simply unreachable
    // and make the next read fail, as any position past the end does.
    if (stream != nullptr) {
        if (uint64_t(position) <= uint64_t(std::numeric_limits<long>::max())) {
            std::fseek(stream, long(position), SEEK_SET);
        } else {
            std::fseek(stream, 0, SEEK_END);
        }
    }
    return 1;
}

int OpenFileForRead(const char* path, std::FILE** out) {
    *out = std::fopen(path, "rb");
    return *out != nullptr ? 1 : 0;
}

int CloseFile(std::FILE** stream) {
    if (*stream == nullptr) return EOF;
    const int result = std::fclose(*stream);
    *stream = nullptr;
    return result;
}

}  // namespace tintra3
