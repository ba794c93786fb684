// Errors, temporary and pending output files, status texts.
#include "tools/tintra/common.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace tintra3::cli {

std::string StatusText(uint32_t status) {
    struct Entry {
        uint32_t code;
        const char* meaning;
    };
    static const Entry kTable[] = {
        {0, "success"},
        {1000, "out of memory: the transform could not be allocated or built"},
        {1001, "in-place conversion impossible: channel counts or bit depths differ"},
        {1002, "the pixel block does not fit the buffer size"},
        {1003, "buffer error"},
        {1100, "the pixel block does not fit the buffer size"},
        {1110, "buffer error"},
        {1190, "out of memory, or in-place conversion impossible"},
        {1200, "source colour space not accepted, or input bit depth not supported"},
        {1210, "destination colour space not accepted, or output bit depth not supported"},
        {1290, "sample layout not supported"},
        {1300, "rendering intent not supported"},
        {1310, "matching method not supported"},
        {1390, "an argument is null or out of range"},
        {1400, "source profile cannot be opened"},
        {1401, "source profile device class not accepted"},
        {1402, "source profile not in the folder registered for its class"},
        {1403, "source path missing, or out of memory"},
        {1410, "destination profile cannot be opened"},
        {1411, "destination profile device class not accepted"},
        {1412, "destination profile not in the folder registered for its class"},
        {1413, "destination path missing, or out of memory"},
        {1490, "a profile cannot be read or used"},
        {1500, "internal error"},
        {1600, "the transform could not be built"},
        {2000, "the profiles cannot be combined (transform status 2)"},
        {2010, "the profiles cannot be combined (transform status 3)"},
        {2020, "input bit depth not supported (8, 10, 12 or 16)"},
        {2021, "output bit depth not supported (8 or 16)"},
        {2030, "sample layout not supported"},
        {2040, "matching method not supported (0 or 1)"},
        {2050, "rendering intent not supported"},
        {3000, "the profile cannot be opened, or its header or tag directory cannot be read"},
        {3001, "not an ICC profile, or a tag the conversion needs is missing or unusable"},
        {4000, "internal error"},
        {5000, "the transform could not be built"},
        {5001, "an argument is null or out of range"},
    };
    for (const Entry& e : kTable) {
        if (e.code == status) return "error " + std::to_string(status) + " (" + e.meaning + ")";
    }
    return "error " + std::to_string(status) + " (unknown status code)";
}

// ---- files removed on exit or on a signal ----------------------------------

namespace {

// Paths the signal handler unlinks. Fixed storage: the handler may only use
// async-signal-safe calls, so no allocation and no locks there.
constexpr int kMaxPending = 32;
constexpr size_t kMaxPathBytes = 4096;
char g_pending[kMaxPending][kMaxPathBytes];
volatile sig_atomic_t g_pendingUsed[kMaxPending];
std::mutex g_pendingLock;

int Register(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_pendingLock);
    if (path.size() >= kMaxPathBytes) return -1;
    for (int i = 0; i < kMaxPending; ++i) {
        if (!g_pendingUsed[i]) {
            std::memcpy(g_pending[i], path.c_str(), path.size() + 1);
            g_pendingUsed[i] = 1;
            return i;
        }
    }
    return -1;  // not tracked: only the destructor removes it
}

void Unregister(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_pendingLock);
    for (int i = 0; i < kMaxPending; ++i) {
        if (g_pendingUsed[i] && path == g_pending[i]) g_pendingUsed[i] = 0;
    }
}

extern "C" void RemovePendingAndDie(int sig) {
    for (int i = 0; i < kMaxPending; ++i) {
        if (g_pendingUsed[i]) unlink(g_pending[i]);
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

std::string TempDir() {
    const char* dir = std::getenv("TMPDIR");
    return (dir && *dir) ? dir : "/tmp";
}

std::string ErrnoText() { return std::strerror(errno); }

}  // namespace

void InstallCleanupHandler() {
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) std::signal(sig, RemovePendingAndDie);
}

TempFile::TempFile(const std::string& stem, const std::string& suffix) {
    std::string pattern = TempDir() + "/" + stem + "-XXXXXX" + suffix;
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const int fd = mkstemps(buf.data(), int(suffix.size()));
    if (fd < 0) throw Failure("cannot create a temporary file in " + TempDir() + ": " + ErrnoText());
    close(fd);
    path_ = buf.data();
    Register(path_);
}

TempFile::~TempFile() {
    unlink(path_.c_str());
    Unregister(path_);
}

void TempFile::Write(const std::vector<uint8_t>& bytes) {
    std::FILE* f = std::fopen(path_.c_str(), "wb");
    bool ok = f != nullptr;
    if (ok && !bytes.empty()) ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (f && std::fclose(f) != 0) ok = false;
    if (!ok) throw Failure("cannot write temporary file " + path_ + ": " + ErrnoText());
}

PendingOutput::PendingOutput(const std::string& finalPath) : finalPath_(finalPath) {
    const size_t slash = finalPath.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : finalPath.substr(0, slash == 0 ? 1 : slash);
    const std::string base = slash == std::string::npos ? finalPath : finalPath.substr(slash + 1);
    if (base.empty()) throw Failure("output path '" + finalPath + "' names a folder, not a file", true);
    std::string pattern = dir + "/." + base + ".tmp-XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    const int fd = mkstemp(buf.data());
    if (fd < 0) throw Failure("cannot create output file in folder '" + dir + "': " + ErrnoText());
    close(fd);
    tempPath_ = buf.data();
    Register(tempPath_);
}

PendingOutput::~PendingOutput() {
    if (!committed_) unlink(tempPath_.c_str());
    Unregister(tempPath_);
}

void PendingOutput::Commit() {
    const mode_t mask = umask(0);
    umask(mask);
    if (chmod(tempPath_.c_str(), 0666 & ~mask) != 0 || std::rename(tempPath_.c_str(), finalPath_.c_str()) != 0)
        throw Failure("cannot create output file '" + finalPath_ + "': " + ErrnoText());
    committed_ = true;
}

std::vector<uint8_t> ReadWholeFile(const std::string& path, const std::string& what) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Failure("cannot open " + what + " '" + path + "': " + ErrnoText());
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    const bool failed = std::ferror(f) != 0;
    std::fclose(f);
    if (failed) throw Failure("cannot read " + what + " '" + path + "': " + ErrnoText());
    return bytes;
}

std::string LowerExtension(const std::string& path) {
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

}  // namespace tintra3::cli
