// The only interface to the operating system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tintra3::platform {

// The folder under which profiles are looked for, with its trailing
// separator: "<system directory>\COLOR\" on Windows, "<TINTRA3_SYSTEM_DIR>/color/"
// elsewhere. Writes at most size - 1 bytes and a NUL.
void ColourDirectory(char* out, size_t size);

// Raw file access for the header check: open for reading (no sharing where
// the system has such a notion), read, close.
struct File {
    intptr_t handle;
};
bool OpenForRead(const char* path, File* file);
// Reads up to `size` bytes; returns true when the read call itself succeeded.
bool Read(File* file, void* buffer, uint32_t size, uint32_t* got);
void Close(File* file);

}  // namespace tintra3::platform
