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

#include "api/status.h"

namespace tintra3::cli {

std::string StatusText(uint32_t status) {
    const StatusRow* row = FindStatus(status);
    const char* meaning = row != nullptr ? row->meaning : "unknown status code";
    return "error " + std::to_string(status) + " (" + meaning + ")";
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
