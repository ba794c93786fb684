// Big-endian readers over a buffered file stream. Each takes the profile
// record whose first field is the stream.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tintra3 {

struct ProfileFile;

int ReadU8(ProfileFile* profile, uint8_t* out);
int ReadU16BE(ProfileFile* profile, uint16_t* out);
int ReadU32BE(ProfileFile* profile, uint32_t* out);
int SkipBytes(ProfileFile* profile, int32_t count);   // always 1
int SeekAbsolute(ProfileFile* profile, uint32_t position);  // always 1
int OpenFileForRead(const char* path, std::FILE** out);
int CloseFile(ProfileFile* profile);

}  // namespace tintra3
