// Images in memory and their TIFF and PNG files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tintra3::cli {

// Samples of 8 bits are bytes; of 16 bits, native-order u16 words.
// Interleaved: (y·width + x)·samplesPerPixel + s. Planar: one plane of
// width·height samples per sample, planes in order (colour, then alpha).
struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    int colourChannels = 0;  // 1 grey, 3 RGB (or another 3-channel space), 4 CMYK
    bool alpha = false;      // one more sample, carried through unchanged
    int bits = 8;            // 8 or 16
    bool planar = false;
    std::vector<uint8_t> data;
    std::vector<uint8_t> icc;  // embedded profile, empty if none
    uint32_t colorSpace = 0;   // ICC signature the samples are in (for the TIFF photometric)

    int samplesPerPixel() const { return colourChannels + (alpha ? 1 : 0); }
    size_t bytesPerSample() const { return bits == 16 ? 2 : 1; }
    size_t pixelCount() const { return size_t(width) * height; }
    // Allocates data for the current geometry; throws Failure when too large.
    void Allocate();
};

enum class FileFormat { kTiff, kPng };

// From the extension (.tif, .tiff, .png); throws Failure otherwise.
FileFormat FormatOf(const std::string& path);

// Throws Failure with a one-line reason.
Image ReadImage(const std::string& path);
// Writes to `tempPath` (the caller renames it); `shownPath` is for messages.
void WriteImage(const Image& image, FileFormat format, const std::string& tempPath, const std::string& shownPath);

}  // namespace tintra3::cli
