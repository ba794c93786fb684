// The only interface to the operating system.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tintra3::platform {

// The folder under which profiles are looked for, with its trailing
// separator: "<system directory>\COLOR\" on Windows, "<TINTRA3_SYSTEM_DIR>/color/"
// elsewhere. Writes at most size - 1 bytes and a NUL.
void ColourDirectory(char* out, size_t size);

// Raw file access for the header check: open for reading, read, close. On
// Windows the file is opened with read sharing, so concurrent readers of one
// profile (other threads, other programs) do not make each other fail.
struct File {
    intptr_t handle;
};
bool OpenForRead(const char* path, File* file);
// Reads up to `size` bytes; returns true when the read call itself succeeded.
bool Read(File* file, void* buffer, uint32_t size, uint32_t* got);
void Close(File* file);

// Where a path's parts go; each size counts the NUL, and a part longer than
// its buffer is cut.
struct PathParts {
    char* drive;
    size_t driveSize;
    char* dir;
    size_t dirSize;
    char* name;
    size_t nameSize;
    char* ext;
    size_t extSize;
};

// Splits a path as the C runtime's path splitter does: an optional "X:"
// drive, the directory up to and including the last '/' or '\', the file
// name, and the extension from the last '.'. On Windows it is the runtime's
// own splitter, which reads the path as characters of the process's
// multibyte code page: a double-byte character whose second byte is 0x5C
// is not a separator.
void SplitPath(const char* path, const PathParts& parts);

// The character after the one `p` points at (not NUL): on Windows two bytes
// on for a lead byte of the multibyte code page, one byte elsewhere.
const char* NextCharacter(const char* p);

}  // namespace tintra3::platform
