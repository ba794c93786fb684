// Shared plumbing of the tintra tool: the error type every subcommand throws,
// temporary files that are removed on exit (also on SIGINT/SIGTERM), output
// files written under a temporary name and renamed on success, and the text
// of every library status code.
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace tintra3::cli {

// A failure to report on one line. `usage` selects exit status 2 (bad
// command line) instead of 1.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& message, bool usage = false)
        : std::runtime_error(message), usage(usage) {}
    bool usage;
};

// "error 3001 (not an ICC profile, ...)": the code and what it means.
std::string StatusText(uint32_t status);

// A file under $TMPDIR (or /tmp), created at once with mode 0600 and removed
// by the destructor or by the signal handler.
class TempFile {
public:
    TempFile(const std::string& stem, const std::string& suffix);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    const std::string& path() const { return path_; }
    // Writes the whole file; throws Failure on error.
    void Write(const std::vector<uint8_t>& bytes);

private:
    std::string path_;
};

// An output file that appears under its final name only when Commit() is
// called: the data go to a hidden temporary file in the same folder (so the
// rename is atomic), which the destructor removes when not committed.
class PendingOutput {
public:
    explicit PendingOutput(const std::string& finalPath);
    ~PendingOutput();
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;
    const std::string& tempPath() const { return tempPath_; }
    // Gives the file the permissions a plain creation would (0666 & ~umask)
    // and renames it; throws Failure on error.
    void Commit();

private:
    std::string finalPath_;
    std::string tempPath_;
    bool committed_ = false;
};

// Installs the SIGINT/SIGTERM/SIGHUP handler that removes pending files.
void InstallCleanupHandler();

// Reads a whole file; throws Failure naming `what` and the path.
std::vector<uint8_t> ReadWholeFile(const std::string& path, const std::string& what);

std::string LowerExtension(const std::string& path);

}  // namespace tintra3::cli
