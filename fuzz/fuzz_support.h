// Helpers shared by the fuzz targets: scratch files for the entry points
// that take paths, and buffers sized the way a caller sizes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tintra3::fuzz {

// A scratch path private to this process (several fuzzers run at once).
std::string ScratchPath(const std::string& name);
// Writes bytes to ScratchPath(name) and returns the path.
std::string WriteScratch(const std::string& name, const uint8_t* data, size_t size);
struct Reference {
    std::string path;
    uint32_t channels;  // of its colour space
};
// A few well-formed profiles written once per process: an RGB matrix/TRC
// display, a grey display, a CMYK printer with 16-bit tables, an RGB scanner
// with 8-bit tables.
const std::vector<Reference>& ReferenceProfiles();
// Channels a caller expects from the header's colour space: the count the
// space defines, or 4 (the most any kernel handles) when it defines none.
uint32_t CallerChannels(const uint8_t* profile, size_t size);

}  // namespace tintra3::fuzz
