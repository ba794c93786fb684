// Operating-system access: the colour directory, raw file reading for the
// header check and path splitting. Windows uses KERNEL32 and the C runtime's
// multibyte functions; every other system uses POSIX calls.
#include "platform/platform.h"

#include <cstring>

#ifdef _WIN32
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
#  include <mbstring.h>
#  include <stdlib.h>
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

void CopyBounded(char* out, size_t size, const char* text, size_t len) {
    if (out == nullptr || size == 0) return;
    if (len > size - 1) len = size - 1;
    std::memcpy(out, text, len);
    out[len] = '\0';
}

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// The split itself, stepping through the path one character at a time so
// that a multibyte character's trail byte is never taken for a separator or
// a dot.
void SplitByCharacters(const char* path, const PathParts& parts) {
    if (path[0] != '\0' && path[1] == ':') {
        CopyBounded(parts.drive, parts.driveSize, path, 2);
        path += 2;
    }
    const char* lastSep = nullptr;
    const char* lastDot = nullptr;
    const char* p = path;
    while (*p != '\0') {
        if (IsSeparator(*p)) lastSep = p;
        else if (*p == '.') lastDot = p;
        p = NextCharacter(p);
    }
    const char* base = path;
    if (lastSep != nullptr) {
        CopyBounded(parts.dir, parts.dirSize, path, size_t(lastSep - path) + 1);
        base = lastSep + 1;
    }
    if (lastDot != nullptr && lastDot < base) lastDot = nullptr;
    const char* end = lastDot != nullptr ? lastDot : base + std::strlen(base);
    CopyBounded(parts.name, parts.nameSize, base, size_t(end - base));
    if (lastDot != nullptr) CopyBounded(parts.ext, parts.extSize, lastDot, std::strlen(lastDot));
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
    // Read sharing: with none, a second reader of the same profile (another
    // thread's tintra_Init, a viewer) fails to open it for no good reason.
    HANDLE h = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                           nullptr);
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

void SplitPath(const char* path, const PathParts& parts) {
    // The runtime's splitter treats a part longer than its _MAX_ size as an
    // invalid parameter (which may end the process) where ours cuts it. A
    // path shorter than _MAX_DIR has no such part; a longer one is split by
    // the same character rules here.
    char drive[_MAX_DRIVE], dir[_MAX_DIR], name[_MAX_FNAME], ext[_MAX_EXT];
    if (strnlen(path, _MAX_DIR) >= _MAX_DIR ||
        _splitpath_s(path, drive, sizeof drive, dir, sizeof dir, name, sizeof name, ext, sizeof ext) != 0) {
        SplitByCharacters(path, parts);
        return;
    }
    CopyBounded(parts.drive, parts.driveSize, drive, std::strlen(drive));
    CopyBounded(parts.dir, parts.dirSize, dir, std::strlen(dir));
    CopyBounded(parts.name, parts.nameSize, name, std::strlen(name));
    CopyBounded(parts.ext, parts.extSize, ext, std::strlen(ext));
}

const char* NextCharacter(const char* p) {
    // _mbsinc steps over a lead byte and its trail byte; a lead byte
    // followed by the NUL ends the string rather than being skipped past it.
    const auto* next = _mbsinc(reinterpret_cast<const unsigned char*>(p));
    if (next > reinterpret_cast<const unsigned char*>(p) + 1 && p[1] == '\0') return p + 1;
    return reinterpret_cast<const char*>(next);
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

void SplitPath(const char* path, const PathParts& parts) { SplitByCharacters(path, parts); }

// Paths are byte strings here; UTF-8 never puts a '/' or '\\' inside a character.
const char* NextCharacter(const char* p) { return p + 1; }

#endif

}  // namespace tintra3::platform
