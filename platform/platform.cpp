// Operating-system access: the colour directory and raw file reading for the
// header check. Windows uses KERNEL32; every other system uses POSIX calls.
#include "platform/platform.h"

#include <cstring>

#ifdef _WIN32
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
#else
#  include <cerrno>
#  include <fcntl.h>
#  include <sys/stat.h>
#  include <unistd.h>
#endif

#ifndef TINTRA3_SYSTEM_DIR
#  define TINTRA3_SYSTEM_DIR "/usr/share"
#endif

namespace tintra3::platform {

namespace {

// Appends `text` to the NUL-terminated string in out[0..size), keeping at
// most size - 1 bytes and the NUL.
void AppendBounded(char* out, size_t size, const char* text) {
    size_t used = strnlen(out, size - 1);
    size_t room = size - 1 - used;
    size_t len = strnlen(text, room);
    std::memcpy(out + used, text, len);
    out[used + len] = '\0';
}

}  // namespace

#ifdef _WIN32

void ColourDirectory(char* out, size_t size) {
    if (out == nullptr || size == 0) return;
    out[0] = '\0';
    // A failed call (0) or a directory longer than the buffer (the call then
    // returns the size it needs) leaves the prefix empty, so the result is
    // "\COLOR\<name>" rather than anything unterminated.
    UINT capacity = static_cast<UINT>(size < 0x7FFFFFFFu ? size : 0x7FFFFFFFu);
    UINT len = GetSystemDirectoryA(out, capacity);
    if (len == 0 || len >= capacity) out[0] = '\0';
    AppendBounded(out, size, "\\COLOR\\");
}

bool OpenForRead(const char* path, File* file) {
    file->handle = reinterpret_cast<intptr_t>(INVALID_HANDLE_VALUE);
    if (path == nullptr) return false;
    HANDLE h = CreateFileA(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    file->handle = reinterpret_cast<intptr_t>(h);
    return true;
}

bool Read(File* file, void* buffer, uint32_t size, uint32_t* got) {
    DWORD n = 0;
    BOOL ok = ReadFile(reinterpret_cast<HANDLE>(file->handle), buffer, size, &n, nullptr);
    if (got != nullptr) *got = ok ? static_cast<uint32_t>(n) : 0;
    return ok != FALSE;
}

void Close(File* file) {
    HANDLE h = reinterpret_cast<HANDLE>(file->handle);
    if (h != INVALID_HANDLE_VALUE && h != nullptr) CloseHandle(h);
    file->handle = reinterpret_cast<intptr_t>(INVALID_HANDLE_VALUE);
}

#else

void ColourDirectory(char* out, size_t size) {
    if (out == nullptr || size == 0) return;
    out[0] = '\0';
    AppendBounded(out, size, TINTRA3_SYSTEM_DIR);
    AppendBounded(out, size, "/color/");
}

bool OpenForRead(const char* path, File* file) {
    file->handle = -1;
    if (path == nullptr) return false;
    int fd;
    do {
        fd = ::open(path, O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return false;
    // CreateFileA without backup semantics refuses a directory; so do we,
    // rather than opening it and failing at the first read.
    struct stat st;
    if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        ::close(fd);
        return false;
    }
    file->handle = fd;
    return true;
}

// Like ReadFile on a disk file: keeps reading until `size` bytes or the end
// of the file; only an error of the read call itself fails.
bool Read(File* file, void* buffer, uint32_t size, uint32_t* got) {
    uint32_t total = 0;
    auto* bytes = static_cast<unsigned char*>(buffer);
    while (total < size) {
        ssize_t n = ::read(static_cast<int>(file->handle), bytes + total, size - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (got != nullptr) *got = total;
            return false;
        }
        if (n == 0) break;
        total += static_cast<uint32_t>(n);
    }
    if (got != nullptr) *got = total;
    return true;
}

void Close(File* file) {
    if (file->handle >= 0) ::close(static_cast<int>(file->handle));
    file->handle = -1;
}

#endif

}  // namespace tintra3::platform
