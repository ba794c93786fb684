// TIFF (libtiff) and PNG (libpng) reading and writing.
//
// TIFF: grey (min-is-black), RGB, CMYK (separated, CMYK ink set) and ICC Lab,
// 8 or 16 bits, strips, contiguous or separate planes, at most one extra
// (alpha) sample, the ICC profile tag. PNG: grey and RGB (palette and
// sub-byte grey expanded to 8 bits, tRNS to alpha), 8 or 16 bits, iCCP.
#include "tools/tintra/image_io.h"

#include <bit>
#include <csetjmp>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include <png.h>
#include <tiffio.h>

#include "tools/iccwriter/icc_writer.h"
#include "tools/tintra/common.h"

namespace tintra3::cli {

using icc::Sig4;

namespace {

// Largest image the tool holds in memory. Beyond it a damaged or hostile
// header (a 1e6 x 1e6 PNG in a few bytes) fails at once instead of asking
// for terabytes.
constexpr uint64_t kMaxImageBytes = uint64_t(1) << 32;

}  // namespace

void Image::Allocate() {
    const uint64_t bytes = uint64_t(width) * height * uint64_t(samplesPerPixel()) * bytesPerSample();
    if (bytes > kMaxImageBytes) throw Failure("image of " + std::to_string(width) + "x" + std::to_string(height) +
                                              " pixels is too large for this tool (over 4 GiB of samples)");
    try {
        data.assign(size_t(bytes), 0);
    } catch (const std::bad_alloc&) {
        throw Failure("out of memory for an image of " + std::to_string(width) + "x" + std::to_string(height) +
                      " pixels");
    }
}

FileFormat FormatOf(const std::string& path) {
    const std::string ext = LowerExtension(path);
    if (ext == "tif" || ext == "tiff") return FileFormat::kTiff;
    if (ext == "png") return FileFormat::kPng;
    throw Failure("'" + path + "': unknown image format (use a .tif, .tiff or .png name)", true);
}

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

Image ReadTiff(const std::string& path) {
    InstallTiffHandlers();
    t_tiffError.clear();
    TiffPtr tif(TIFFOpen(path.c_str(), "r"));
    if (!tif) throw Failure("cannot read image '" + path + "': " + TiffReason());
    auto bad = [&path](const std::string& why) { return Failure("cannot read image '" + path + "': " + why); };

    uint32_t width = 0, height = 0;
    uint16_t spp = 1, bps = 1, photometric = 0, planar = PLANARCONFIG_CONTIG, format = SAMPLEFORMAT_UINT;
    uint16_t inkSet = INKSET_CMYK;
    if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height))
        throw bad("no image size");
    if (!TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &photometric)) throw bad("no photometric interpretation");
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_INKSET, &inkSet);
    if (width == 0 || height == 0) throw bad("empty image");
    if (TIFFIsTiled(tif.get())) throw bad("tiled TIFF files are not supported (only strips)");
    if (bps != 8 && bps != 16) throw bad(std::to_string(bps) + "-bit samples are not supported (8 or 16)");
    if (format != SAMPLEFORMAT_UINT) throw bad("only unsigned integer samples are supported");

    Image img;
    img.width = width;
    img.height = height;
    img.bits = bps;
    img.planar = planar == PLANARCONFIG_SEPARATE;
    switch (photometric) {
        case PHOTOMETRIC_MINISBLACK: img.colourChannels = 1; img.colorSpace = Sig4("GRAY"); break;
        case PHOTOMETRIC_RGB: img.colourChannels = 3; img.colorSpace = Sig4("RGB "); break;
        case PHOTOMETRIC_ICCLAB: img.colourChannels = 3; img.colorSpace = Sig4("Lab "); break;
        case PHOTOMETRIC_SEPARATED:
            if (inkSet != INKSET_CMYK) throw bad("separated image without the CMYK ink set");
            img.colourChannels = 4;
            img.colorSpace = Sig4("CMYK");
            break;
        default:
            throw bad("photometric interpretation " + std::to_string(photometric) +
                      " is not supported (grey, RGB, CMYK or ICC Lab)");
    }
    if (spp < img.colourChannels || spp > img.colourChannels + 1)
        throw bad(std::to_string(spp) + " samples per pixel for " + std::to_string(img.colourChannels) +
                  " colour channels (at most one extra, alpha, sample is supported)");
    img.alpha = spp == img.colourChannels + 1;

    uint32_t iccSize = 0;
    void* iccData = nullptr;
    if (TIFFGetField(tif.get(), TIFFTAG_ICCPROFILE, &iccSize, &iccData) && iccData && iccSize)
        img.icc.assign(static_cast<uint8_t*>(iccData), static_cast<uint8_t*>(iccData) + iccSize);

    img.Allocate();
    const size_t sampleBytes = img.bytesPerSample();
    if (!img.planar) {
        const size_t row = size_t(width) * spp * sampleBytes;
        if (size_t(TIFFScanlineSize64(tif.get())) != row) throw bad("unexpected scanline size");
        for (uint32_t y = 0; y < height; ++y) {
            if (TIFFReadScanline(tif.get(), img.data.data() + y * row, y, 0) < 0) throw bad(TiffReason());
        }
    } else {
        const size_t row = size_t(width) * sampleBytes;
        if (size_t(TIFFScanlineSize64(tif.get())) != row) throw bad("unexpected scanline size");
        for (uint16_t s = 0; s < spp; ++s) {
            uint8_t* plane = img.data.data() + size_t(s) * img.pixelCount() * sampleBytes;
            for (uint32_t y = 0; y < height; ++y) {
                if (TIFFReadScanline(tif.get(), plane + y * row, y, s) < 0) throw bad(TiffReason());
            }
        }
    }
    return img;
}

void WriteTiff(const Image& img, const std::string& tempPath, const std::string& shownPath) {
    InstallTiffHandlers();
    t_tiffError.clear();
    auto bad = [&shownPath]() { return Failure("cannot write image '" + shownPath + "': " + TiffReason()); };
    TiffPtr tif(TIFFOpen(tempPath.c_str(), "w"));
    if (!tif) throw bad();
    const uint16_t spp = uint16_t(img.samplesPerPixel());
    uint16_t photometric = PHOTOMETRIC_RGB;
    if (img.colourChannels == 1) photometric = PHOTOMETRIC_MINISBLACK;
    if (img.colourChannels == 4) photometric = PHOTOMETRIC_SEPARATED;
    if (img.colorSpace == Sig4("Lab ")) photometric = PHOTOMETRIC_ICCLAB;
    TIFF* t = tif.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, img.width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, img.height);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(img.bits));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
    if (photometric == PHOTOMETRIC_SEPARATED) TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, img.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (img.alpha) {
        const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(1), extra);
    }
    if (!img.icc.empty()) TIFFSetField(t, TIFFTAG_ICCPROFILE, uint32_t(img.icc.size()), img.icc.data());
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));

    const size_t sampleBytes = img.bytesPerSample();
    // libtiff's scanline writer takes a non-const buffer but does not modify
    // uncompressed data.
    uint8_t* data = const_cast<uint8_t*>(img.data.data());
    if (!img.planar) {
        const size_t row = size_t(img.width) * spp * sampleBytes;
        for (uint32_t y = 0; y < img.height; ++y) {
            if (TIFFWriteScanline(t, data + y * row, y, 0) < 0) throw bad();
        }
    } else {
        const size_t row = size_t(img.width) * sampleBytes;
        for (uint16_t s = 0; s < spp; ++s) {
            uint8_t* plane = data + size_t(s) * img.pixelCount() * sampleBytes;
            for (uint32_t y = 0; y < img.height; ++y) {
                if (TIFFWriteScanline(t, plane + y * row, y, s) < 0) throw bad();
            }
        }
    }
    if (!TIFFFlush(t)) throw bad();
}

// ---- PNG -----------------------------------------------------------------
//
// libpng reports errors by longjmp. The functions that call setjmp touch only
// plain data (no objects with destructors live across the jump).

struct PngState {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::FILE* file = nullptr;
    char error[256] = "";
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
    int channels, bitDepth;
    png_bytep icc;
    png_uint_32 iccSize;
};

bool PngReadHeader(PngState* s, PngHeader* h) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, s->file);
    png_read_info(s->png, s->info);
    const int colorType = png_get_color_type(s->png, s->info);
    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(s->png);
    if (colorType == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(s->png, s->info) < 8)
        png_set_expand_gray_1_2_4_to_8(s->png);
    if (png_get_valid(s->png, s->info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(s->png);
    if (png_get_bit_depth(s->png, s->info) == 16 && std::endian::native == std::endian::little) png_set_swap(s->png);
    png_set_interlace_handling(s->png);
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
    return true;
}

bool PngReadRows(PngState* s, png_bytep* rows) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_read_image(s->png, rows);
    png_read_end(s->png, nullptr);
    return true;
}

Image ReadPng(const std::string& path) {
    PngState s;
    s.file = std::fopen(path.c_str(), "rb");
    if (!s.file) throw Failure("cannot open image '" + path + "': " + std::strerror(errno));
    struct Cleanup {
        PngState& s;
        ~Cleanup() {
            png_destroy_read_struct(&s.png, s.info ? &s.info : nullptr, nullptr);
            std::fclose(s.file);
        }
    } cleanup{s};
    s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &s, PngError, PngWarning);
    if (s.png) s.info = png_create_info_struct(s.png);
    if (!s.png || !s.info) throw Failure("out of memory reading '" + path + "'");
    auto bad = [&]() { return Failure("cannot read image '" + path + "': " + s.error); };

    PngHeader h{};
    if (!PngReadHeader(&s, &h)) throw bad();
    Image img;
    img.width = h.width;
    img.height = h.height;
    img.bits = h.bitDepth;
    img.colourChannels = h.channels <= 2 ? 1 : 3;
    img.alpha = h.channels == 2 || h.channels == 4;
    img.colorSpace = img.colourChannels == 1 ? Sig4("GRAY") : Sig4("RGB ");
    if (h.icc && h.iccSize) img.icc.assign(h.icc, h.icc + h.iccSize);
    img.Allocate();
    std::vector<png_bytep> rows(img.height);
    const size_t row = size_t(img.width) * img.samplesPerPixel() * img.bytesPerSample();
    for (uint32_t y = 0; y < img.height; ++y) rows[y] = img.data.data() + y * row;
    if (!PngReadRows(&s, rows.data())) throw bad();
    return img;
}

bool PngWrite(PngState* s, const Image* img, png_bytep* rows) {
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
    png_write_info(s->png, s->info);
    if (img->bits == 16 && std::endian::native == std::endian::little) png_set_swap(s->png);
    png_write_image(s->png, rows);
    png_write_end(s->png, nullptr);
    return true;
}

void WritePng(const Image& img, const std::string& tempPath, const std::string& shownPath) {
    if (img.colourChannels != 1 && img.colourChannels != 3)
        throw Failure("cannot write '" + shownPath + "': PNG holds only grey or RGB images (write a TIFF)", true);
    if (img.planar) throw Failure("cannot write '" + shownPath + "': PNG has no planar form (write a TIFF)", true);
    PngState s;
    s.file = std::fopen(tempPath.c_str(), "wb");
    if (!s.file) throw Failure("cannot write image '" + shownPath + "': " + std::strerror(errno));
    bool closed = false;
    struct Cleanup {
        PngState& s;
        bool& closed;
        ~Cleanup() {
            png_destroy_write_struct(&s.png, s.info ? &s.info : nullptr);
            if (!closed) std::fclose(s.file);
        }
    } cleanup{s, closed};
    s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &s, PngError, PngWarning);
    if (s.png) s.info = png_create_info_struct(s.png);
    if (!s.png || !s.info) throw Failure("out of memory writing '" + shownPath + "'");
    // A profile libpng finds inconsistent is dropped with a warning (kept in
    // s.error); PngWrite then refuses to write the image without it.
    png_set_benign_errors(s.png, 1);
    std::vector<png_bytep> rows(img.height);
    const size_t row = size_t(img.width) * img.samplesPerPixel() * img.bytesPerSample();
    for (uint32_t y = 0; y < img.height; ++y) rows[y] = const_cast<png_bytep>(img.data.data() + y * row);
    if (!PngWrite(&s, &img, rows.data())) throw Failure("cannot write image '" + shownPath + "': " + s.error);
    closed = true;
    if (std::fclose(s.file) != 0)
        throw Failure("cannot write image '" + shownPath + "': " + std::strerror(errno));
}

}  // namespace

Image ReadImage(const std::string& path) {
    // The format comes from the first bytes, not the name.
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Failure("cannot open image '" + path + "': " + std::strerror(errno));
    unsigned char magic[8] = {};
    const size_t n = std::fread(magic, 1, sizeof magic, f);
    std::fclose(f);
    static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (n == 8 && std::memcmp(magic, kPng, 8) == 0) return ReadPng(path);
    if (n >= 4 && ((magic[0] == 'I' && magic[1] == 'I') || (magic[0] == 'M' && magic[1] == 'M'))) return ReadTiff(path);
    throw Failure("cannot read image '" + path + "': neither a TIFF nor a PNG file");
}

void WriteImage(const Image& image, FileFormat format, const std::string& tempPath, const std::string& shownPath) {
    if (format == FileFormat::kTiff)
        WriteTiff(image, tempPath, shownPath);
    else
        WritePng(image, tempPath, shownPath);
}

}  // namespace tintra3::cli
