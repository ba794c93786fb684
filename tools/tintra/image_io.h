// Images and their TIFF, PNG and JPEG files, read and written a band of lines
// at a time so that no file is ever held whole.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tintra3::cli {

// What a page carries besides its samples. Text entries use the PNG keyword
// names where one exists (Description, Author, Software, Title, Copyright,
// Creation Time) and the TIFF tag names otherwise (Make, Model,
// HostComputer, PageName), so that they survive a change of format.
struct Metadata {
    bool hasResolution = false;
    double xResolution = 0;
    double yResolution = 0;
    uint16_t resolutionUnit = 2;  // TIFF numbering: 1 none, 2 inch, 3 centimetre
    uint16_t orientation = 1;     // TIFF/EXIF numbering, 1 = top left
    uint16_t alphaKind = 2;       // TIFF ExtraSamples: 1 associated (premultiplied), 2 unassociated
    int compression = -1;         // TIFF compression scheme of the input, -1 if not a TIFF
    std::vector<std::pair<std::string, std::string>> texts;
};

// Samples of 8 bits are bytes; of 16 bits, native-order u16 words.
// Interleaved: (y·width + x)·samplesPerPixel + s. Planar: one plane of
// width·height samples per sample, planes in order (colour, then alpha).
// A band of lines is an Image of those lines alone.
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
    Metadata meta;

    int samplesPerPixel() const { return colourChannels + (alpha ? 1 : 0); }
    size_t bytesPerSample() const { return bits == 16 ? 2 : 1; }
    size_t pixelCount() const { return size_t(width) * height; }
    size_t byteCount() const { return pixelCount() * size_t(samplesPerPixel()) * bytesPerSample(); }
    // Allocates data for the current geometry; throws Failure when too large.
    void Allocate();
    // The same geometry and metadata with `lines` lines and no samples.
    Image Band(uint32_t lines) const;
};

enum class FileFormat { kTiff, kPng, kJpeg };

// From the extension (.tif, .tiff, .png, .jpg, .jpeg); throws Failure otherwise.
FileFormat FormatOf(const std::string& path);
// From a name on the command line: tiff, png, jpeg; throws Failure otherwise.
FileFormat FormatNamed(const std::string& name);
const char* FormatName(FileFormat format);

// Reads the pages of a file in order, each from top to bottom. Every method
// throws Failure with a one-line reason naming the file.
class ImageReader {
public:
    virtual ~ImageReader() = default;
    // The format comes from the first bytes, not the name.
    static std::unique_ptr<ImageReader> Open(const std::string& path);

    virtual FileFormat format() const = 0;
    virtual uint32_t pageCount() const { return 1; }
    // The current page without samples.
    const Image& page() const { return page_; }
    // The next `lines` lines of the current page into `band` (geometry of
    // page().Band(lines), data already sized).
    virtual void ReadLines(Image& band) = 0;
    // Moves to the next page; false after the last.
    virtual bool NextPage() { return false; }

protected:
    Image page_;
};

struct WriteSettings {
    int compression = -1;  // TIFF compression scheme; -1: the page's own, or none
    int quality = 90;      // JPEG quality, for JPEG files and JPEG-compressed TIFF
};

// Writes pages band by band to `tempPath` (the caller renames it);
// `shownPath` is for messages.
class ImageWriter {
public:
    virtual ~ImageWriter() = default;
    static std::unique_ptr<ImageWriter> Create(FileFormat format, const std::string& tempPath,
                                               const std::string& shownPath, const WriteSettings& settings);
    // Starts a page of the geometry and metadata of `page` (its samples are
    // not used); its lines then come in bands of any height, top first.
    virtual void BeginPage(const Image& page, uint32_t pageIndex, uint32_t pageCount) = 0;
    virtual void WriteLines(const Image& band) = 0;
    virtual void Finish() = 0;
};

// Whether `format` can hold the pages `page` describes; the reason if not.
std::string CannotHold(FileFormat format, const Image& page, uint32_t pageCount);

// The first page whole (for comparisons of small images).
Image ReadImage(const std::string& path);
// One whole image in one band.
void WriteImage(const Image& image, FileFormat format, const std::string& tempPath, const std::string& shownPath);

}  // namespace tintra3::cli
