// Big-endian readers over a buffered file stream.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tintra3 {

// Each returns 1 on success and 0 on a short read or a null stream.
int ReadU8(std::FILE* stream, uint8_t* out);
int ReadU16BE(std::FILE* stream, uint16_t* out);
int ReadU32BE(std::FILE* stream, uint32_t* out);
int SkipBytes(std::FILE* stream, int32_t count);      // always 1
int SeekAbsolute(std::FILE* stream, uint32_t position);  // always 1
int OpenFileForRead(const char* path, std::FILE** out);
// Closes and clears *stream; EOF when there was none.
int CloseFile(std::FILE** stream);

}  // namespace tintra3
