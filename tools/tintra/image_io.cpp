// TIFF (libtiff), PNG (libpng) and JPEG (libjpeg-turbo) reading and writing,
// a band of lines at a time.
//
// TIFF: grey (min-is-black), RGB, CMYK (separated, CMYK ink set) and ICC Lab,
// 8 or 16 bits, strips or tiles, contiguous or separate planes, at most one
// extra (alpha) sample, every page, the ICC profile tag and the tags a
// prepress user expects to survive (resolution, orientation, text, the
// compression). PNG: grey and RGB (palette and sub-byte grey expanded to 8
// bits, tRNS to alpha), 8 or 16 bits, iCCP, pHYs and text chunks; gAMA,
// cHRM and sRGB chunks are neither applied nor written, the profile decides.
// JPEG: grey, RGB and CMYK (stored inverted when an Adobe marker says so, as
// Adobe applications write it), 8 bits, the profile in APP2 markers.
// Orientation crosses formats: the TIFF tag, EXIF in JPEG APP1 and PNG eXIf.
#include "tools/tintra/image_io.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include "tools/iccwriter/icc_writer.h"
#include "tools/tintra/common.h"

namespace tintra3::cli {

using icc::Sig4;

namespace {

// Largest image the tool holds in memory whole (only compare and chart do).
// Beyond it a damaged or hostile header (a 1e6 x 1e6 PNG in a few bytes)
// fails at once instead of asking for terabytes.
constexpr uint64_t kMaxImageBytes = uint64_t(1) << 32;

// Widest line the tool takes, in bytes of samples (8 million 16-bit RGBA
// pixels). The buffers of a band grow with the width a header claims before
// any line has been read, so a few hostile bytes must not claim a line of
// gigabytes.
constexpr uint64_t kMaxLineBytes = uint64_t(64) << 20;

// Largest row of tiles held while a tiled TIFF is read: a real file's tiles
// are a few hundred lines high, a hostile header's may claim 65535.
constexpr uint64_t kMaxTileRowBytes = uint64_t(1) << 28;

// Largest decoding buffer libjpeg may set up (a progressive file keeps all
// its coefficients, six bytes a sample; 512 MB is a 9000 x 9000 image).
constexpr long kMaxJpegMemory = 512L << 20;

std::string ErrnoText() { return std::strerror(errno); }

// ---- EXIF orientation --------------------------------------------------------
// Photographs say which way is up in EXIF (tag 0x0112 of its first IFD), in
// a JPEG APP1 marker or a PNG eXIf chunk. Only the orientation is carried:
// the rest of a camera's EXIF (its colour-space tag above all) would describe
// the image before conversion.

constexpr uint16_t kExifOrientationTag = 0x0112;

// The orientation (1..8) an EXIF block (TIFF-structured, without the
// "Exif\0\0" prefix) holds, or 0.
uint16_t ExifOrientation(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const bool big = data[0] == 'M' && data[1] == 'M';
    if (!big && !(data[0] == 'I' && data[1] == 'I')) return 0;
    auto u16 = [&](size_t at) { return uint16_t(big ? data[at] << 8 | data[at + 1] : data[at + 1] << 8 | data[at]); };
    auto u32 = [&](size_t at) { return uint32_t(u16(big ? at : at + 2)) << 16 | u16(big ? at + 2 : at); };
    if (u16(2) != 42) return 0;
    const uint32_t ifd = u32(4);
    if (ifd < 8 || ifd > size - 2) return 0;
    const uint32_t entries = u16(ifd);
    for (uint32_t i = 0; i < entries && size_t{ifd} + 2 + 12 * (size_t{i} + 1) <= size; ++i) {
        const size_t at = ifd + 2 + 12 * size_t(i);
        // SHORT, one value, held in the first two bytes of the value field.
        if (u16(at) == kExifOrientationTag && u16(at + 2) == 3 && u32(at + 4) == 1) {
            const uint16_t orientation = u16(at + 8);
            return orientation >= 1 && orientation <= 8 ? orientation : 0;
        }
    }
    return 0;
}

// A big-endian EXIF block of one IFD holding only the orientation.
std::vector<uint8_t> ExifWithOrientation(uint16_t orientation) {
    return {'M', 'M', 0, 42, 0, 0, 0, 8,                                 // header, IFD at 8
            0,   1,                                                      // one entry
            0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, uint8_t(orientation), 0, 0,  // orientation, SHORT x 1
            0,   0,   0, 0};                                             // no next IFD
}

const char kExifPrefix[] = "Exif\0";  // and the terminating zero: six bytes
constexpr size_t kExifPrefixSize = 6;

}  // namespace

void Image::Allocate() {
    const uint64_t bytes = uint64_t(width) * height * uint64_t(samplesPerPixel()) * bytesPerSample();
    if (bytes > kMaxImageBytes)
        throw Failure("image of " + std::to_string(width) + "x" + std::to_string(height) +
                      " pixels is too large for this tool (over 4 GiB of samples)");
    try {
        data.assign(size_t(bytes), 0);
    } catch (const std::bad_alloc&) {
        throw Failure("out of memory for an image of " + std::to_string(width) + "x" + std::to_string(height) +
                      " pixels");
    }
}

Image Image::Band(uint32_t lines) const {
    Image band;
    band.width = width;
    band.height = lines;
    band.colourChannels = colourChannels;
    band.alpha = alpha;
    band.bits = bits;
    band.planar = planar;
    band.colorSpace = colorSpace;
    return band;
}

FileFormat FormatOf(const std::string& path) {
    const std::string ext = LowerExtension(path);
    if (ext == "tif" || ext == "tiff") return FileFormat::kTiff;
    if (ext == "png") return FileFormat::kPng;
    if (ext == "jpg" || ext == "jpeg") return FileFormat::kJpeg;
    throw Failure("'" + path + "': unknown image format (use a .tif, .tiff, .png, .jpg or .jpeg name)", true);
}

FileFormat FormatNamed(const std::string& name) {
    if (name == "tiff" || name == "tif") return FileFormat::kTiff;
    if (name == "png") return FileFormat::kPng;
    if (name == "jpeg" || name == "jpg") return FileFormat::kJpeg;
    throw Failure("--format must be tiff, png or jpeg, not '" + name + "'", true);
}

const char* FormatName(FileFormat format) {
    switch (format) {
        case FileFormat::kTiff: return "TIFF";
        case FileFormat::kPng: return "PNG";
        case FileFormat::kJpeg: return "JPEG";
    }
    return "?";
}

std::string CannotHold(FileFormat format, const Image& page, uint32_t pageCount) {
    const std::string name = FormatName(format);
    if (format == FileFormat::kTiff) return "";
    if (pageCount > 1)
        return name + " holds one page but the input has " + std::to_string(pageCount) + " (write a TIFF)";
    if (page.planar) return name + " has no planar form (write a TIFF)";
    const bool grey = page.colorSpace == Sig4("GRAY"), rgb = page.colorSpace == Sig4("RGB ");
    if (format == FileFormat::kPng) {
        if (!grey && !rgb) return "PNG holds only grey or RGB images (write a TIFF)";
        return "";
    }
    if (!grey && !rgb && page.colorSpace != Sig4("CMYK")) return "JPEG holds only grey, RGB or CMYK images (write a TIFF)";
    if (page.alpha) return "JPEG has no alpha channel (write a TIFF or PNG)";
    if (page.bits != 8) return "JPEG holds only 8-bit samples (use --bits 8)";
    return "";
}

// ---- text entries ------------------------------------------------------------

namespace {

struct TextTag {
    uint32_t tiffTag;
    const char* key;
};

// TIFF text tags and the names they carry across formats.
constexpr TextTag kTextTags[] = {
    {TIFFTAG_IMAGEDESCRIPTION, "Description"}, {TIFFTAG_ARTIST, "Author"},
    {TIFFTAG_SOFTWARE, "Software"},            {TIFFTAG_DOCUMENTNAME, "Title"},
    {TIFFTAG_COPYRIGHT, "Copyright"},          {TIFFTAG_DATETIME, "Creation Time"},
    {TIFFTAG_MAKE, "Make"},                    {TIFFTAG_MODEL, "Model"},
    {TIFFTAG_HOSTCOMPUTER, "HostComputer"},    {TIFFTAG_PAGENAME, "PageName"},
};

}  // namespace

// ---- TIFF ----------------------------------------------------------------

namespace {

// libtiff reports through global handlers; keep the last message of this
// thread for the one-line error.
thread_local std::string t_tiffError;

extern "C" void TiffErrorHandler(const char* module, const char* fmt, va_list ap) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, ap);
    t_tiffError = (module && *module) ? std::string(module) + ": " + text : std::string(text);
}

extern "C" void TiffWarningHandler(const char*, const char*, va_list) {}  // unknown tags and the like

void InstallTiffHandlers() {
    static const bool installed = [] {
        TIFFSetErrorHandler(TiffErrorHandler);
        TIFFSetWarningHandler(TiffWarningHandler);
        return true;
    }();
    (void)installed;
}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

std::string TiffReason() { return t_tiffError.empty() ? "unreadable TIFF data" : t_tiffError; }

class TiffReader final : public ImageReader {
public:
    explicit TiffReader(const std::string& path) : path_(path) {
        InstallTiffHandlers();
        t_tiffError.clear();
        // "m": no memory mapping, so that the pages of the file read so far
        // do not count against the process.
        handles_.emplace_back(TIFFOpen(path.c_str(), "rm"));
        if (!handles_[0]) throw Failure("cannot read image '" + path + "': " + TiffReason());
        pages_ = TIFFNumberOfDirectories(handles_[0].get());
        LoadPage();
    }

    FileFormat format() const override { return FileFormat::kTiff; }
    uint32_t pageCount() const override { return pages_; }

    bool NextPage() override {
        if (pageIndex_ + 1 >= pages_) return false;
        ++pageIndex_;
        t_tiffError.clear();
        if (!TIFFSetDirectory(handles_[0].get(), tdir_t(pageIndex_))) throw Bad(TiffReason());
        LoadPage();
        return true;
    }

    void ReadLines(Image& band) override {
        const size_t sb = page_.bytesPerSample(), w = page_.width, spp = size_t(page_.samplesPerPixel());
        const uint32_t n = band.height;
        if (n > page_.height - row_) throw Bad("read past the last line");
        t_tiffError.clear();
        if (tiled_) {
            ReadTiledLines(band);
        } else if (!page_.planar) {
            for (uint32_t i = 0; i < n; ++i) {
                if (TIFFReadScanline(handles_[0].get(), band.data.data() + i * w * spp * sb, row_ + i, 0) < 0)
                    throw Bad(TiffReason());
            }
        } else {
            for (size_t s = 0; s < spp; ++s) {
                uint8_t* plane = band.data.data() + s * n * w * sb;
                for (uint32_t i = 0; i < n; ++i) {
                    if (TIFFReadScanline(handles_[s].get(), plane + i * w * sb, row_ + i, uint16_t(s)) < 0)
                        throw Bad(TiffReason());
                }
            }
        }
        row_ += n;
    }

private:
    Failure Bad(const std::string& why) const {
        std::string where = pages_ > 1 ? " (page " + std::to_string(pageIndex_ + 1) + ")" : "";
        return Failure("cannot read image '" + path_ + "'" + where + ": " + why);
    }

    void LoadPage() {
        TIFF* tif = handles_[0].get();
        row_ = 0;
        tileRowStart_ = UINT32_MAX;
        handles_.resize(1);
        uint32_t width = 0, height = 0;
        uint16_t spp = 1, bps = 1, photometric = 0, planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT;
        uint16_t inkSet = INKSET_CMYK, compression = COMPRESSION_NONE;
        if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height))
            throw Bad("no image size");
        if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric)) throw Bad("no photometric interpretation");
        TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
        TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bps);
        TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
        TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &format);
        TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkSet);
        TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
        if (width == 0 || height == 0) throw Bad("empty image");
        if (uint64_t(width) * spp * (bps / 8 ? bps / 8 : 1) > kMaxLineBytes)
            throw Bad("lines of " + std::to_string(width) + " pixels are too wide for this tool");
        if (bps != 8 && bps != 16) throw Bad(std::to_string(bps) + "-bit samples are not supported (8 or 16)");
        if (format != SAMPLEFORMAT_UINT) throw Bad("only unsigned integer samples are supported");

        Image img;
        img.width = width;
        img.height = height;
        img.bits = bps;
        img.planar = planar == PLANARCONFIG_SEPARATE;
        // JPEG-compressed YCbCr data: libjpeg turns it into RGB on reading.
        if (photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG && !img.planar) {
            TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
            photometric = PHOTOMETRIC_RGB;
        }
        switch (photometric) {
            case PHOTOMETRIC_MINISBLACK: img.colourChannels = 1; img.colorSpace = Sig4("GRAY"); break;
            case PHOTOMETRIC_RGB: img.colourChannels = 3; img.colorSpace = Sig4("RGB "); break;
            case PHOTOMETRIC_ICCLAB: img.colourChannels = 3; img.colorSpace = Sig4("Lab "); break;
            case PHOTOMETRIC_SEPARATED:
                if (inkSet != INKSET_CMYK) throw Bad("separated image without the CMYK ink set");
                img.colourChannels = 4;
                img.colorSpace = Sig4("CMYK");
                break;
            default:
                throw Bad("photometric interpretation " + std::to_string(photometric) +
                          " is not supported (grey, RGB, CMYK or ICC Lab)");
        }
        if (spp < img.colourChannels || spp > img.colourChannels + 1)
            throw Bad(std::to_string(spp) + " samples per pixel for " + std::to_string(img.colourChannels) +
                      " colour channels (at most one extra, alpha, sample is supported)");
        img.alpha = spp == img.colourChannels + 1;

        uint32_t iccSize = 0;
        void* iccData = nullptr;
        if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &iccData) && iccData && iccSize)
            img.icc.assign(static_cast<uint8_t*>(iccData), static_cast<uint8_t*>(iccData) + iccSize);

        Metadata& m = img.meta;
        float xres = 0, yres = 0;
        if (TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xres) && TIFFGetField(tif, TIFFTAG_YRESOLUTION, &yres) &&
            xres > 0 && yres > 0) {
            m.hasResolution = true;
            m.xResolution = xres;
            m.yResolution = yres;
            TIFFGetFieldDefaulted(tif, TIFFTAG_RESOLUTIONUNIT, &m.resolutionUnit);
        }
        TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &m.orientation);
        if (m.orientation < 1 || m.orientation > 8) m.orientation = 1;
        uint16_t extraCount = 0;
        uint16_t* extraTypes = nullptr;
        if (img.alpha && TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes) && extraCount > 0 &&
            extraTypes)
            m.alphaKind = extraTypes[0];
        m.compression = compression;
        for (const TextTag& t : kTextTags) {
            const char* text = nullptr;
            if (TIFFGetField(tif, t.tiffTag, &text) && text && *text) m.texts.emplace_back(t.key, text);
        }

        const size_t sb = img.bytesPerSample();
        tiled_ = TIFFIsTiled(tif) != 0;
        if (tiled_) {
            TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileWidth_);
            TIFFGetField(tif, TIFFTAG_TILELENGTH, &tileHeight_);
            if (tileWidth_ == 0 || tileHeight_ == 0) throw Bad("tiles of no size");
            const uint64_t across = (uint64_t(width) + tileWidth_ - 1) / tileWidth_ * tileWidth_;
            const uint64_t rowBytes = across * tileHeight_ * spp * sb;
            if (rowBytes > kMaxTileRowBytes) throw Bad("tiles of " + std::to_string(tileWidth_) + "x" +
                                                       std::to_string(tileHeight_) + " pixels are too large");
            const uint64_t tileBytes = uint64_t(tileWidth_) * tileHeight_ * (img.planar ? 1 : spp) * sb;
            if (uint64_t(TIFFTileSize64(tif)) != tileBytes) throw Bad("unexpected tile size");
            tile_.resize(size_t(tileBytes));
            tileRow_.resize(size_t(uint64_t(width) * tileHeight_ * spp * sb));
        } else {
            const uint64_t row = uint64_t(width) * (img.planar ? 1 : spp) * sb;
            if (uint64_t(TIFFScanlineSize64(tif)) != row) throw Bad("unexpected scanline size");
            // Separate planes are read side by side, one handle per plane, so
            // that each handle goes through its plane's strips in order.
            for (uint16_t s = 1; img.planar && s < spp; ++s) {
                handles_.emplace_back(TIFFOpen(path_.c_str(), "rm"));
                if (!handles_.back() || !TIFFSetDirectory(handles_.back().get(), tdir_t(pageIndex_)))
                    throw Bad(TiffReason());
            }
        }
        page_ = std::move(img);
    }

    // Lines come from a decoded row of tiles (planes side by side when the
    // samples are separate: plane s of the row at s·width·tileHeight).
    void ReadTiledLines(Image& band) {
        TIFF* tif = handles_[0].get();
        const size_t sb = page_.bytesPerSample(), w = page_.width, spp = size_t(page_.samplesPerPixel());
        const size_t planes = page_.planar ? spp : 1, perPixel = page_.planar ? 1 : spp;
        const uint32_t n = band.height;
        for (uint32_t i = 0; i < n; ++i) {
            const uint32_t y = row_ + i;
            const uint32_t start = y / tileHeight_ * tileHeight_;
            if (start != tileRowStart_) {
                tileRowStart_ = start;
                for (size_t s = 0; s < planes; ++s) {
                    for (uint32_t x = 0; x < page_.width; x += tileWidth_) {
                        if (TIFFReadTile(tif, tile_.data(), x, start, 0, uint16_t(s)) < 0) throw Bad(TiffReason());
                        const size_t cols = std::min<size_t>(tileWidth_, w - x);
                        const size_t rows = std::min<size_t>(tileHeight_, page_.height - start);
                        for (size_t r = 0; r < rows; ++r)
                            std::memcpy(tileRow_.data() + ((s * tileHeight_ + r) * w + x) * perPixel * sb,
                                        tile_.data() + r * tileWidth_ * perPixel * sb, cols * perPixel * sb);
                    }
                }
            }
            const size_t r = y - start;
            for (size_t s = 0; s < planes; ++s) {
                uint8_t* dst = page_.planar ? band.data.data() + (s * n + i) * w * sb
                                            : band.data.data() + size_t(i) * w * spp * sb;
                std::memcpy(dst, tileRow_.data() + (s * tileHeight_ + r) * w * perPixel * sb, w * perPixel * sb);
            }
        }
    }

    std::string path_;
    std::vector<TiffPtr> handles_;
    uint32_t pages_ = 1;
    uint32_t pageIndex_ = 0;
    uint32_t row_ = 0;
    bool tiled_ = false;
    uint32_t tileWidth_ = 0;
    uint32_t tileHeight_ = 0;
    uint32_t tileRowStart_ = UINT32_MAX;
    std::vector<uint8_t> tile_;
    std::vector<uint8_t> tileRow_;
};

// The compression a page is written with: the one asked for, else the
// input's when libtiff can write it, else none. JPEG needs 8-bit samples;
// an inherited JPEG becomes Deflate for deeper samples or Lab.
uint16_t ChooseCompression(const Image& page, const WriteSettings& settings, const std::string& shownPath) {
    const bool explicitChoice = settings.compression >= 0;
    int c = explicitChoice ? settings.compression : page.meta.compression;
    if (c < 0) c = COMPRESSION_NONE;
    if (c == COMPRESSION_OJPEG) c = COMPRESSION_JPEG;
    if (c == COMPRESSION_DEFLATE) c = COMPRESSION_ADOBE_DEFLATE;
    if (c > 0xFFFF || !TIFFIsCODECConfigured(uint16_t(c))) c = COMPRESSION_LZW;
    if (c == COMPRESSION_JPEG && (page.bits != 8 || page.colorSpace == Sig4("Lab "))) {
        if (explicitChoice)
            throw Failure("cannot write '" + shownPath + "': JPEG compression needs 8-bit grey, RGB or CMYK samples",
                          true);
        c = COMPRESSION_ADOBE_DEFLATE;
    }
    return uint16_t(c);
}

class TiffWriter final : public ImageWriter {
public:
    TiffWriter(const std::string& tempPath, const std::string& shownPath, const WriteSettings& settings)
        : shown_(shownPath), settings_(settings) {
        InstallTiffHandlers();
        t_tiffError.clear();
        tif_.reset(TIFFOpen(tempPath.c_str(), "w"));
        if (!tif_) throw Bad();
    }

    void BeginPage(const Image& page, uint32_t pageIndex, uint32_t pageCount) override {
        TIFF* t = tif_.get();
        t_tiffError.clear();
        if (started_ && !TIFFWriteDirectory(t)) throw Bad();
        started_ = true;
        page_ = page.Band(page.height);
        const uint16_t spp = uint16_t(page.samplesPerPixel());
        uint16_t photometric = PHOTOMETRIC_RGB;
        if (page.colourChannels == 1) photometric = PHOTOMETRIC_MINISBLACK;
        if (page.colourChannels == 4) photometric = PHOTOMETRIC_SEPARATED;
        if (page.colorSpace == Sig4("Lab ")) photometric = PHOTOMETRIC_ICCLAB;
        const uint16_t compression = ChooseCompression(page, settings_, shown_);
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, page.width);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, page.height);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(page.bits));
        TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
        if (photometric == PHOTOMETRIC_SEPARATED) TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, page.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
        // The samples keep their stored order, so the orientation tag that
        // tells a viewer how to show them stays as it was.
        TIFFSetField(t, TIFFTAG_ORIENTATION, page.meta.orientation);
        if (!TIFFSetField(t, TIFFTAG_COMPRESSION, compression)) throw Bad();
        if (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE)
            TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
        if (compression == COMPRESSION_JPEG) TIFFSetField(t, TIFFTAG_JPEGQUALITY, settings_.quality);
        if (page.alpha) {
            const uint16_t extra[1] = {page.meta.alphaKind};
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(1), extra);
        }
        if (!page.icc.empty()) TIFFSetField(t, TIFFTAG_ICCPROFILE, uint32_t(page.icc.size()), page.icc.data());
        const Metadata& m = page.meta;
        if (m.hasResolution) {
            TIFFSetField(t, TIFFTAG_XRESOLUTION, float(m.xResolution));
            TIFFSetField(t, TIFFTAG_YRESOLUTION, float(m.yResolution));
            TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, m.resolutionUnit);
        }
        for (const auto& [key, text] : m.texts) {
            for (const TextTag& tag : kTextTags)
                if (key == tag.key) TIFFSetField(t, tag.tiffTag, text.c_str());
        }
        if (pageCount > 1) {
            TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            TIFFSetField(t, TIFFTAG_PAGENUMBER, uint16_t(pageIndex), uint16_t(pageCount));
        }
        // Strips of about 256 KB: large enough for LZW and Deflate to find
        // their repeats, small enough for any reader; a multiple of 16 lines
        // for JPEG. The choice depends on the page alone, so the file does
        // not depend on how the lines arrive.
        const uint64_t lineBytes = uint64_t(page.width) * spp * page.bytesPerSample();
        uint64_t rows = std::max<uint64_t>(1, (uint64_t(256) << 10) / lineBytes);
        if (compression == COMPRESSION_JPEG) rows = (rows + 15) / 16 * 16;
        rowsPerStrip_ = uint32_t(std::min<uint64_t>(page.height, rows));
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rowsPerStrip_);
        stripsPerPlane_ = (page.height + rowsPerStrip_ - 1) / rowsPerStrip_;
        strip_.assign(size_t(rowsPerStrip_) * page.width * spp * page.bytesPerSample(), 0);
        filled_ = 0;
        stripIndex_ = 0;
    }

    void WriteLines(const Image& band) override {
        const size_t sb = page_.bytesPerSample(), w = page_.width, spp = size_t(page_.samplesPerPixel());
        const size_t planes = page_.planar ? spp : 1, line = w * (page_.planar ? 1 : spp) * sb;
        for (uint32_t i = 0; i < band.height; ++i) {
            if (stripIndex_ >= stripsPerPlane_)
                throw Failure("cannot write image '" + shown_ + "': more lines than the page");
            for (size_t s = 0; s < planes; ++s)
                std::memcpy(strip_.data() + (s * rowsPerStrip_ + filled_) * line,
                            band.data.data() + (s * band.height + i) * line, line);
            ++filled_;
            const bool lastLine = uint64_t(stripIndex_) * rowsPerStrip_ + filled_ == page_.height;
            if (filled_ == rowsPerStrip_ || lastLine) FlushStrip(planes, line);
        }
    }

    void Finish() override {
        t_tiffError.clear();
        if (!TIFFFlush(tif_.get())) throw Bad();
        tif_.reset();
    }

private:
    Failure Bad() const { return Failure("cannot write image '" + shown_ + "': " + TiffReason()); }

    // The codecs may work in the buffer they are handed (predictors
    // difference in place); the strip buffer is refilled anyway.
    void FlushStrip(size_t planes, size_t line) {
        t_tiffError.clear();
        for (size_t s = 0; s < planes; ++s) {
            uint8_t* data = strip_.data() + s * rowsPerStrip_ * line;
            if (TIFFWriteEncodedStrip(tif_.get(), uint32_t(s) * stripsPerPlane_ + stripIndex_, data,
                                      tmsize_t(filled_ * line)) < 0)
                throw Bad();
        }
        ++stripIndex_;
        filled_ = 0;
    }

    TiffPtr tif_;
    std::string shown_;
    WriteSettings settings_;
    Image page_;
    bool started_ = false;
    uint32_t rowsPerStrip_ = 1;
    uint32_t stripsPerPlane_ = 0;
    uint32_t stripIndex_ = 0;
    uint32_t filled_ = 0;
    std::vector<uint8_t> strip_;
};

}  // namespace

// ---- PNG -----------------------------------------------------------------
//
// libpng reports errors by longjmp. The functions that call setjmp touch only
// plain data (no objects with destructors live across the jump).

namespace {

struct PngState {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::FILE* file = nullptr;
    char error[256] = "";
};

// Owners release on every path, also when a constructor throws half way.
struct PngReadState : PngState {
    ~PngReadState() {
        if (png) png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        if (file) std::fclose(file);
    }
};

struct PngWriteState : PngState {
    ~PngWriteState() {
        if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
        if (file) std::fclose(file);
    }
};

extern "C" void PngError(png_structp png, png_const_charp message) {
    auto* state = static_cast<PngState*>(png_get_error_ptr(png));
    std::snprintf(state->error, sizeof state->error, "%s", message);
    png_longjmp(png, 1);
}

// Warnings are kept (the last one) for the message of a later failure.
extern "C" void PngWarning(png_structp png, png_const_charp message) {
    auto* state = static_cast<PngState*>(png_get_error_ptr(png));
    std::snprintf(state->error, sizeof state->error, "%s", message);
}

struct PngHeader {
    uint32_t width, height;
    int channels, bitDepth, passes;
    png_bytep icc;
    png_uint_32 iccSize;
    png_textp text;
    int textCount;
    png_uint_32 xPerUnit, yPerUnit;
    int unit;
    bool hasPhys;
    uint16_t orientation;  // 0: none
};

bool PngReadHeader(PngState* s, PngHeader* h) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, s->file);
    // A profile that does not match the colour type, or disagrees with a
    // gAMA or sRGB chunk, is reported and left out rather than fatal.
    png_set_benign_errors(s->png, 1);
    png_read_info(s->png, s->info);
    const int colorType = png_get_color_type(s->png, s->info);
    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(s->png);
    if (colorType == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(s->png, s->info) < 8)
        png_set_expand_gray_1_2_4_to_8(s->png);
    if (png_get_valid(s->png, s->info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(s->png);
    if (png_get_bit_depth(s->png, s->info) == 16 && std::endian::native == std::endian::little) png_set_swap(s->png);
    h->passes = png_set_interlace_handling(s->png);
    png_read_update_info(s->png, s->info);
    h->width = png_get_image_width(s->png, s->info);
    h->height = png_get_image_height(s->png, s->info);
    h->channels = png_get_channels(s->png, s->info);
    h->bitDepth = png_get_bit_depth(s->png, s->info);
    png_charp name = nullptr;
    int compression = 0;
    h->icc = nullptr;
    h->iccSize = 0;
    png_get_iCCP(s->png, s->info, &name, &compression, &h->icc, &h->iccSize);
    h->text = nullptr;
    h->textCount = 0;
    png_get_text(s->png, s->info, &h->text, &h->textCount);
    h->hasPhys = png_get_pHYs(s->png, s->info, &h->xPerUnit, &h->yPerUnit, &h->unit) != 0;
    png_bytep exif = nullptr;
    png_uint_32 exifSize = 0;
    h->orientation = png_get_eXIf_1(s->png, s->info, &exifSize, &exif) != 0 ? ExifOrientation(exif, exifSize) : 0;
    return true;
}

bool PngReadRow(PngState* s, png_bytep row) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_read_row(s->png, row, nullptr);
    return true;
}

bool PngReadAll(PngState* s, png_bytep* rows) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_read_image(s->png, rows);
    return true;
}

class PngReader final : public ImageReader {
public:
    explicit PngReader(const std::string& path) : path_(path) {
        s_.file = std::fopen(path.c_str(), "rb");
        if (!s_.file) throw Failure("cannot open image '" + path + "': " + ErrnoText());
        s_.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &s_, PngError, PngWarning);
        if (s_.png) s_.info = png_create_info_struct(s_.png);
        if (!s_.png || !s_.info) throw Failure("out of memory reading '" + path + "'");
        PngHeader h{};
        if (!PngReadHeader(&s_, &h)) throw Bad();
        passes_ = h.passes;
        page_.width = h.width;
        page_.height = h.height;
        page_.bits = h.bitDepth;
        page_.colourChannels = h.channels <= 2 ? 1 : 3;
        page_.alpha = h.channels == 2 || h.channels == 4;
        page_.colorSpace = page_.colourChannels == 1 ? Sig4("GRAY") : Sig4("RGB ");
        if (h.icc && h.iccSize) page_.icc.assign(h.icc, h.icc + h.iccSize);
        for (int i = 0; i < h.textCount; ++i) {
            if (h.text[i].key && h.text[i].text)
                page_.meta.texts.emplace_back(h.text[i].key, h.text[i].text);
        }
        if (h.hasPhys && h.unit == PNG_RESOLUTION_METER && h.xPerUnit > 0 && h.yPerUnit > 0) {
            page_.meta.hasResolution = true;
            page_.meta.resolutionUnit = 3;  // per centimetre, exact
            page_.meta.xResolution = h.xPerUnit / 100.0;
            page_.meta.yResolution = h.yPerUnit / 100.0;
        }
        if (h.orientation != 0) page_.meta.orientation = h.orientation;
    }

    FileFormat format() const override { return FileFormat::kPng; }

    void ReadLines(Image& band) override {
        const size_t row = size_t(page_.width) * size_t(page_.samplesPerPixel()) * page_.bytesPerSample();
        if (band.height > page_.height - row_) throw Failure("cannot read image '" + path_ + "': past the last line");
        if (passes_ > 1) {
            // An interlaced file delivers its lines only after the last pass,
            // so it is held whole. The memory is left uninitialised: libpng
            // writes it as the passes arrive, so a short file with a huge
            // header touches little of it.
            if (!whole_) {
                const uint64_t bytes = uint64_t(row) * page_.height;
                if (bytes > kMaxImageBytes)
                    throw Failure("cannot read image '" + path_ + "': interlaced image too large for this tool");
                whole_.reset(new (std::nothrow) uint8_t[size_t(bytes)]);
                if (!whole_) throw Failure("out of memory reading '" + path_ + "'");
                std::vector<png_bytep> rows(page_.height);
                for (uint32_t y = 0; y < page_.height; ++y) rows[y] = whole_.get() + y * row;
                if (!PngReadAll(&s_, rows.data())) throw Bad();
            }
            std::memcpy(band.data.data(), whole_.get() + row_ * row, band.height * row);
        } else {
            for (uint32_t i = 0; i < band.height; ++i)
                if (!PngReadRow(&s_, band.data.data() + i * row)) throw Bad();
        }
        row_ += band.height;
    }

private:
    Failure Bad() const { return Failure("cannot read image '" + path_ + "': " + s_.error); }

    std::string path_;
    PngReadState s_;
    int passes_ = 1;
    uint32_t row_ = 0;
    std::unique_ptr<uint8_t[]> whole_;
};

bool PngBegin(PngState* s, const Image* img, png_textp text, int textCount) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, s->file);
    int colorType = img->colourChannels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB;
    if (img->alpha) colorType |= PNG_COLOR_MASK_ALPHA;
    png_set_IHDR(s->png, s->info, img->width, img->height, img->bits, colorType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!img->icc.empty()) {
        png_set_iCCP(s->png, s->info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, img->icc.data(),
                     png_uint_32(img->icc.size()));
        // libpng checks the profile against the image and may leave it out.
        if (!png_get_valid(s->png, s->info, PNG_INFO_iCCP))
            png_error(s->png, s->error[0] ? s->error : "libpng does not accept the profile for a PNG file");
    }
    if (textCount > 0) png_set_text(s->png, s->info, text, textCount);
    const Metadata& m = img->meta;
    if (m.hasResolution && (m.resolutionUnit == 2 || m.resolutionUnit == 3)) {
        const double perMetre = m.resolutionUnit == 2 ? 100.0 / 2.54 : 100.0;
        png_set_pHYs(s->png, s->info, png_uint_32(std::lround(m.xResolution * perMetre)),
                     png_uint_32(std::lround(m.yResolution * perMetre)), PNG_RESOLUTION_METER);
    }
    std::vector<uint8_t> exif;
    if (m.orientation >= 2 && m.orientation <= 8) {
        exif = ExifWithOrientation(m.orientation);
        png_set_eXIf_1(s->png, s->info, png_uint_32(exif.size()), exif.data());
    }
    png_write_info(s->png, s->info);
    if (img->bits == 16 && std::endian::native == std::endian::little) png_set_swap(s->png);
    return true;
}

bool PngWriteRow(PngState* s, png_const_bytep row) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_write_row(s->png, row);
    return true;
}

bool PngEnd(PngState* s) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_write_end(s->png, nullptr);
    return true;
}

class PngWriter final : public ImageWriter {
public:
    PngWriter(const std::string& tempPath, const std::string& shownPath) : shown_(shownPath) {
        s_.file = std::fopen(tempPath.c_str(), "wb");
        if (!s_.file) throw Failure("cannot write image '" + shownPath + "': " + ErrnoText());
        s_.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &s_, PngError, PngWarning);
        if (s_.png) s_.info = png_create_info_struct(s_.png);
        if (!s_.png || !s_.info) throw Failure("out of memory writing '" + shownPath + "'");
        // A profile libpng finds inconsistent is dropped with a warning (kept
        // in s_.error); PngBegin then refuses to write the image without it.
        png_set_benign_errors(s_.png, 1);
    }

    void BeginPage(const Image& page, uint32_t, uint32_t) override {
        const std::string reason = CannotHold(FileFormat::kPng, page, 1);
        if (!reason.empty()) throw Failure("cannot write '" + shown_ + "': " + reason, true);
        page_ = page.Band(page.height);
        page_.icc = page.icc;
        page_.meta = page.meta;
        std::vector<png_text> text;
        for (auto& [key, value] : page_.meta.texts) {
            // PNG keywords are 1 to 79 Latin-1 characters.
            if (key.empty() || key.size() > 79) continue;
            png_text t{};
            // tEXt is Latin-1; text with other bytes (UTF-8 in practice)
            // goes into an international chunk.
            const bool plain = std::all_of(value.begin(), value.end(), [](char c) { return uint8_t(c) < 0x80; });
            t.compression = plain ? PNG_TEXT_COMPRESSION_NONE : PNG_ITXT_COMPRESSION_NONE;
            t.key = key.data();
            t.text = value.data();
            t.text_length = plain ? value.size() : 0;
            t.itxt_length = plain ? 0 : value.size();
            text.push_back(t);
        }
        if (!PngBegin(&s_, &page_, text.data(), int(text.size()))) throw Bad();
    }

    void WriteLines(const Image& band) override {
        const size_t row = size_t(page_.width) * size_t(page_.samplesPerPixel()) * page_.bytesPerSample();
        for (uint32_t i = 0; i < band.height; ++i)
            if (!PngWriteRow(&s_, band.data.data() + i * row)) throw Bad();
    }

    void Finish() override {
        if (!PngEnd(&s_)) throw Bad();
        std::FILE* f = s_.file;
        s_.file = nullptr;
        if (std::fclose(f) != 0) throw Failure("cannot write image '" + shown_ + "': " + ErrnoText());
    }

private:
    Failure Bad() const { return Failure("cannot write image '" + shown_ + "': " + s_.error); }

    std::string shown_;
    PngWriteState s_;
    Image page_;
};

}  // namespace

// ---- JPEG ----------------------------------------------------------------
//
// libjpeg reports errors through error_exit, which must not return: it
// longjmps back into the function that called setjmp, which again touches
// only plain data.

namespace {

struct JpegError {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

extern "C" void JpegErrorExit(j_common_ptr c) {
    auto* e = reinterpret_cast<JpegError*>(c->err);
    (*c->err->format_message)(c, e->message);
    std::longjmp(e->jump, 1);
}

// Warnings (level -1) mean damaged data: a truncated file would otherwise be
// completed with grey. Trace messages (level >= 0) are ignored.
extern "C" void JpegEmitMessage(j_common_ptr c, int level) {
    if (level < 0) JpegErrorExit(c);
}

void InitJpegError(JpegError* e) {
    jpeg_std_error(&e->pub);
    e->pub.error_exit = JpegErrorExit;
    e->pub.emit_message = JpegEmitMessage;
    e->message[0] = 0;
}

struct JpegIn {
    jpeg_decompress_struct info;
    JpegError error;
    std::FILE* file;
    bool created;
    bool invert;
    JOCTET* icc;
    unsigned int iccSize;
};

struct JpegInState {
    JpegIn j;
    JpegInState() {
        std::memset(&j, 0, sizeof j);
        InitJpegError(&j.error);
        j.info.err = &j.error.pub;
    }
    ~JpegInState() {
        if (j.created) jpeg_destroy_decompress(&j.info);
        if (j.file) std::fclose(j.file);
        std::free(j.icc);
    }
    JpegInState(const JpegInState&) = delete;
    JpegInState& operator=(const JpegInState&) = delete;
};

bool JpegReadHeader(JpegIn* j) {
    if (setjmp(j->error.jump)) return false;
    jpeg_create_decompress(&j->info);
    j->created = true;
    j->info.mem->max_memory_to_use = kMaxJpegMemory;
    jpeg_stdio_src(&j->info, j->file);
    jpeg_save_markers(&j->info, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&j->info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_save_markers(&j->info, JPEG_COM, 0xFFFF);
    jpeg_read_header(&j->info, TRUE);
    switch (j->info.jpeg_color_space) {
        case JCS_GRAYSCALE: j->info.out_color_space = JCS_GRAYSCALE; break;
        case JCS_CMYK:
        case JCS_YCCK: j->info.out_color_space = JCS_CMYK; break;
        default: j->info.out_color_space = JCS_RGB; break;
    }
    // Adobe applications store CMYK inverted (0 = full ink) and say so
    // with their APP14 marker.
    j->invert = j->info.out_color_space == JCS_CMYK && j->info.saw_Adobe_marker;
    if (!jpeg_read_icc_profile(&j->info, &j->icc, &j->iccSize)) {
        j->icc = nullptr;
        j->iccSize = 0;
    }
    jpeg_start_decompress(&j->info);
    return true;
}

bool JpegReadRow(JpegIn* j, JSAMPROW row) {
    if (setjmp(j->error.jump)) return false;
    if (jpeg_read_scanlines(&j->info, &row, 1) != 1) JpegErrorExit(reinterpret_cast<j_common_ptr>(&j->info));
    return true;
}

class JpegReader final : public ImageReader {
public:
    explicit JpegReader(const std::string& path) : path_(path) {
        JpegIn& j_ = state_.j;
        j_.file = std::fopen(path.c_str(), "rb");
        if (!j_.file) throw Failure("cannot open image '" + path + "': " + ErrnoText());
        if (!JpegReadHeader(&j_)) throw Bad();
        if (j_.icc) {
            page_.icc.assign(j_.icc, j_.icc + j_.iccSize);
            std::free(j_.icc);
            j_.icc = nullptr;
        }
        page_.width = j_.info.output_width;
        page_.height = j_.info.output_height;
        page_.bits = 8;
        page_.colourChannels = j_.info.output_components;
        page_.colorSpace = page_.colourChannels == 1 ? Sig4("GRAY")
                           : page_.colourChannels == 4 ? Sig4("CMYK")
                                                       : Sig4("RGB ");
        if (j_.info.density_unit == 1 || j_.info.density_unit == 2) {
            page_.meta.hasResolution = j_.info.X_density > 0 && j_.info.Y_density > 0;
            page_.meta.resolutionUnit = j_.info.density_unit == 1 ? 2 : 3;
            page_.meta.xResolution = j_.info.X_density;
            page_.meta.yResolution = j_.info.Y_density;
        }
        for (jpeg_saved_marker_ptr m = j_.info.marker_list; m; m = m->next) {
            if (m->marker == JPEG_COM && m->data_length > 0)
                page_.meta.texts.emplace_back("Description",
                                              std::string(reinterpret_cast<const char*>(m->data), m->data_length));
            if (m->marker == JPEG_APP0 + 1 && m->data_length > kExifPrefixSize &&
                std::memcmp(m->data, kExifPrefix, kExifPrefixSize) == 0) {
                const uint16_t orientation = ExifOrientation(m->data + kExifPrefixSize, m->data_length - kExifPrefixSize);
                if (orientation != 0) page_.meta.orientation = orientation;
            }
        }
    }

    FileFormat format() const override { return FileFormat::kJpeg; }

    void ReadLines(Image& band) override {
        JpegIn& j_ = state_.j;
        const size_t row = size_t(page_.width) * size_t(page_.colourChannels);
        for (uint32_t i = 0; i < band.height; ++i) {
            uint8_t* line = band.data.data() + i * row;
            if (!JpegReadRow(&j_, line)) throw Bad();
            if (j_.invert)
                for (size_t k = 0; k < row; ++k) line[k] = uint8_t(255 - line[k]);
        }
    }

private:
    Failure Bad() const { return Failure("cannot read image '" + path_ + "': " + state_.j.error.message); }

    std::string path_;
    JpegInState state_;
};

struct JpegOut {
    jpeg_compress_struct info;
    JpegError error;
    std::FILE* file;
    bool created;
};

struct JpegOutState {
    JpegOut j;
    JpegOutState() {
        std::memset(&j, 0, sizeof j);
        InitJpegError(&j.error);
        j.info.err = &j.error.pub;
    }
    ~JpegOutState() {
        if (j.created) jpeg_destroy_compress(&j.info);
        if (j.file) std::fclose(j.file);
    }
    JpegOutState(const JpegOutState&) = delete;
    JpegOutState& operator=(const JpegOutState&) = delete;
};

bool JpegBegin(JpegOut* j, const Image* page, int quality) {
    if (setjmp(j->error.jump)) return false;
    jpeg_create_compress(&j->info);
    j->created = true;
    jpeg_stdio_dest(&j->info, j->file);
    j->info.image_width = page->width;
    j->info.image_height = page->height;
    j->info.input_components = page->colourChannels;
    j->info.in_color_space = page->colourChannels == 1 ? JCS_GRAYSCALE : page->colourChannels == 4 ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&j->info);
    // CMYK is stored as it is (no YCCK), with the Adobe marker that
    // jpeg_set_colorspace adds and the inverted samples that marker implies.
    if (page->colourChannels == 4) jpeg_set_colorspace(&j->info, JCS_CMYK);
    jpeg_set_quality(&j->info, quality, TRUE);
    // At high quality the colour detail is kept too (no 2x2 chroma
    // subsampling): prepress work is the reason to ask for it.
    if (quality >= 90)
        for (int c = 0; c < j->info.num_components; ++c) {
            j->info.comp_info[c].h_samp_factor = 1;
            j->info.comp_info[c].v_samp_factor = 1;
        }
    const Metadata& m = page->meta;
    if (m.hasResolution && (m.resolutionUnit == 2 || m.resolutionUnit == 3)) {
        j->info.density_unit = m.resolutionUnit == 2 ? 1 : 2;
        j->info.X_density = uint16_t(std::clamp(std::lround(m.xResolution), 1L, 65535L));
        j->info.Y_density = uint16_t(std::clamp(std::lround(m.yResolution), 1L, 65535L));
    }
    jpeg_start_compress(&j->info, TRUE);
    if (m.orientation >= 2 && m.orientation <= 8) {
        std::vector<uint8_t> app1(kExifPrefix, kExifPrefix + kExifPrefixSize);
        const std::vector<uint8_t> exif = ExifWithOrientation(m.orientation);
        app1.insert(app1.end(), exif.begin(), exif.end());
        jpeg_write_marker(&j->info, JPEG_APP0 + 1, app1.data(), unsigned(app1.size()));
    }
    if (!page->icc.empty()) jpeg_write_icc_profile(&j->info, page->icc.data(), unsigned(page->icc.size()));
    for (const auto& [key, text] : m.texts) {
        // One comment marker holds at most 65533 bytes.
        if (key == "Description" && !text.empty())
            jpeg_write_marker(&j->info, JPEG_COM, reinterpret_cast<const JOCTET*>(text.data()),
                              unsigned(std::min<size_t>(text.size(), 65533)));
    }
    return true;
}

bool JpegWriteRow(JpegOut* j, JSAMPROW row) {
    if (setjmp(j->error.jump)) return false;
    jpeg_write_scanlines(&j->info, &row, 1);
    return true;
}

bool JpegEnd(JpegOut* j) {
    if (setjmp(j->error.jump)) return false;
    jpeg_finish_compress(&j->info);
    return true;
}

class JpegWriter final : public ImageWriter {
public:
    JpegWriter(const std::string& tempPath, const std::string& shownPath, const WriteSettings& settings)
        : shown_(shownPath), quality_(std::clamp(settings.quality, 1, 100)) {
        j_.file = std::fopen(tempPath.c_str(), "wb");
        if (!j_.file) throw Failure("cannot write image '" + shownPath + "': " + ErrnoText());
    }

    void BeginPage(const Image& page, uint32_t, uint32_t) override {
        const std::string reason = CannotHold(FileFormat::kJpeg, page, 1);
        if (!reason.empty()) throw Failure("cannot write '" + shown_ + "': " + reason, true);
        page_ = page.Band(page.height);
        page_.icc = page.icc;
        page_.meta = page.meta;
        if (!JpegBegin(&j_, &page_, quality_)) throw Bad();
        line_.resize(size_t(page.width) * size_t(page.colourChannels));
    }

    void WriteLines(const Image& band) override {
        const size_t row = line_.size();
        for (uint32_t i = 0; i < band.height; ++i) {
            std::memcpy(line_.data(), band.data.data() + i * row, row);
            if (page_.colourChannels == 4)
                for (uint8_t& v : line_) v = uint8_t(255 - v);
            if (!JpegWriteRow(&j_, line_.data())) throw Bad();
        }
    }

    void Finish() override {
        if (!JpegEnd(&j_)) throw Bad();
        std::FILE* f = j_.file;
        j_.file = nullptr;
        if (std::fclose(f) != 0) throw Failure("cannot write image '" + shown_ + "': " + ErrnoText());
    }

private:
    Failure Bad() const { return Failure("cannot write image '" + shown_ + "': " + j_.error.message); }

    std::string shown_;
    int quality_;
    JpegOutState state_;
    JpegOut& j_ = state_.j;
    Image page_;
    std::vector<uint8_t> line_;
};

}  // namespace

// ---- opening -------------------------------------------------------------

std::unique_ptr<ImageReader> ImageReader::Open(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Failure("cannot open image '" + path + "': " + ErrnoText());
    unsigned char magic[8] = {};
    const size_t n = std::fread(magic, 1, sizeof magic, f);
    std::fclose(f);
    static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n == 8 && std::memcmp(magic, kPng, 8) == 0) return std::make_unique<PngReader>(path);
    if (n >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) return std::make_unique<JpegReader>(path);
    if (n >= 4 && ((magic[0] == 'I' && magic[1] == 'I') || (magic[0] == 'M' && magic[1] == 'M')))
        return std::make_unique<TiffReader>(path);
    throw Failure("cannot read image '" + path + "': neither a TIFF nor a PNG or JPEG file");
}

std::unique_ptr<ImageWriter> ImageWriter::Create(FileFormat format, const std::string& tempPath,
                                                 const std::string& shownPath, const WriteSettings& settings) {
    switch (format) {
        case FileFormat::kTiff: return std::make_unique<TiffWriter>(tempPath, shownPath, settings);
        case FileFormat::kPng: return std::make_unique<PngWriter>(tempPath, shownPath);
        case FileFormat::kJpeg: return std::make_unique<JpegWriter>(tempPath, shownPath, settings);
    }
    throw Failure("unknown image format");
}

Image ReadImage(const std::string& path) {
    const std::unique_ptr<ImageReader> reader = ImageReader::Open(path);
    Image img = reader->page().Band(reader->page().height);
    img.icc = reader->page().icc;
    img.meta = reader->page().meta;
    img.Allocate();
    reader->ReadLines(img);
    return img;
}

void WriteImage(const Image& image, FileFormat format, const std::string& tempPath, const std::string& shownPath) {
    const std::unique_ptr<ImageWriter> writer = ImageWriter::Create(format, tempPath, shownPath, WriteSettings{});
    writer->BeginPage(image, 0, 1);
    writer->WriteLines(image);
    writer->Finish();
}

}  // namespace tintra3::cli
