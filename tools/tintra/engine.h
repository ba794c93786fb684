// Conversions through the library's toolbox interface: images streamed in
// bands of lines spread over threads, and lists of colour values.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/tintra/image_io.h"
#include "tools/tintra/profiles.h"

namespace tintra3::cli {

// Intent numbers of the toolbox interface: 0 perceptual, 1 relative
// colorimetric, 2 absolute colorimetric, 3 saturation.
constexpr int32_t kIntentPerceptual = 0;
constexpr int32_t kIntentRelative = 1;
constexpr int32_t kIntentAbsolute = 2;
constexpr int32_t kIntentSaturation = 3;

struct MatchSettings {
    uint16_t method = 1;
    int32_t intent = kIntentPerceptual;
    uint16_t bitsOut = 8;  // 0 in ConvertOptions: each page keeps its own depth
};

struct ConvertOptions {
    MatchSettings match;
    unsigned threads = 1;
    uint32_t blockLines = 0;  // 0: chosen from the width
    bool outputPlanar = false;
    bool progress = false;    // draw a progress bar on standard error
};

struct ConvertStats {
    double buildSeconds = 0;    // building the first transform
    double convertSeconds = 0;  // reading, converting and writing every page
    unsigned threads = 0;
    uint32_t blocks = 0;
    uint32_t pages = 0;
    uint64_t pixels = 0;
};

// The source profile of a page (its embedded profile, an explicit choice or
// a default); throws Failure.
using SourceChooser = std::function<Profile(const Image& page)>;

// Converts every page of `reader` into `writer`, band by band: the reader
// and the writer run on the calling thread while workers (each with its own
// toolbox handle) convert the bands in between; alpha is copied. `inName`
// names the input in messages. Throws Failure.
void ConvertPages(ImageReader& reader, const std::string& inName, const SourceChooser& sourceFor, const Profile& dst,
                  const ConvertOptions& options, ImageWriter& writer, ConvertStats* stats);

// Converts the colour channels of an image held in memory.
Image ConvertImage(const Image& in, const std::string& inName, const Profile& src, const Profile& dst,
                   const ConvertOptions& options, ConvertStats* stats);

// Converts colours (each `channels of src` samples at `bitsIn` bits) and
// returns the device values at settings.bitsOut bits.
std::vector<std::vector<uint32_t>> ConvertValues(const std::vector<std::vector<uint32_t>>& colours, uint16_t bitsIn,
                                                 const Profile& src, const Profile& dst,
                                                 const MatchSettings& settings);

struct DeltaE {
    double mean = 0, max = 0, p95 = 0;
    uint32_t maxX = 0, maxY = 0;
};

// CIE 1976 colour difference of two images of equal size, each turned into
// Lab by the library (destination builtin:lab, 16-bit) through its profile.
DeltaE CompareImages(const Image& a, const std::string& aName, const Profile& aProfile, const Image& b,
                     const std::string& bName, const Profile& bProfile, unsigned threads);

// The test chart: ramps, a hue/lightness sweep and a gradient field, sRGB.
Image MakeChart(uint32_t width, uint32_t height, int bits);

}  // namespace tintra3::cli
