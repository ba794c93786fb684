// tintra's image files, built and checked here with libtiff, libpng and libjpeg: what survives a conversion
// (pages, resolution, orientation, text, compression, profiles), that tiles, bands and threads change no sample,
// and that hostile files give a message, no output and no large allocation.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include "support/test_support.h"

namespace {

namespace fs = std::filesystem;
using tintra3::test::TempPath;

std::string Slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), {}};
}

struct ToolRun {
    int status;
    std::string out;
    std::string err;
    long peakKb;  // largest resident set of the tool
};

// Runs the tool without a shell (so that wait4 reports its own peak memory), standard input from `input`.
ToolRun Tintra(const std::vector<std::string>& args, const std::string& input = "") {
    const std::string out = TempPath("img-stdout"), err = TempPath("img-stderr"), in = TempPath("img-stdin");
    std::ofstream(in, std::ios::binary) << input;
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> argv{const_cast<char*>(TINTRA_CLI)};
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        if (!std::freopen(in.c_str(), "rb", stdin) || !std::freopen(out.c_str(), "wb", stdout) ||
            !std::freopen(err.c_str(), "wb", stderr))
            _exit(127);
        execv(TINTRA_CLI, argv.data());
        _exit(127);
    }
    int raw = 0;
    rusage usage{};
    wait4(pid, &raw, 0, &usage);
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err), usage.ru_maxrss};
}

// ---- TIFF files through libtiff ----------------------------------------------------------------------------

struct TiffPage {
    uint32_t width = 24;
    uint32_t height = 16;
    uint16_t spp = 3;
    uint16_t photometric = PHOTOMETRIC_RGB;
    uint16_t bits = 8;
    bool planar = false;
    uint32_t tile = 0;  // tile edge, 0 for strips
    uint16_t compression = COMPRESSION_NONE;
};

// A sample pattern that differs between pages, lines, columns and samples.
uint32_t Pattern(uint32_t page, uint32_t x, uint32_t y, uint32_t s, int bits) {
    const uint32_t v = (x * 37 + y * 91 + s * 53 + page * 29) & 0xFF;
    return bits == 16 ? v * 257 + (x & 0xFF) : v;
}

using TagSetter = std::function<void(TIFF*, uint32_t page)>;

void WriteTiff(const std::string& path, const std::vector<TiffPage>& pages, const TagSetter& tags = nullptr) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    for (uint32_t p = 0; p < pages.size(); ++p) {
        const TiffPage& g = pages[p];
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, g.width);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, g.height);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, g.spp);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, g.bits);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, g.photometric);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, g.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_COMPRESSION, g.compression);
        if (g.photometric == PHOTOMETRIC_SEPARATED) TIFFSetField(t, TIFFTAG_INKSET, INKSET_CMYK);
        if (tags) tags(t, p);
        const int sb = g.bits / 8;
        const uint32_t planes = g.planar ? g.spp : 1, perPixel = g.planar ? 1 : g.spp;
        auto put = [&](std::vector<uint8_t>& buf, size_t index, uint32_t v) {
            if (sb == 1) {
                buf[index] = uint8_t(v);
            } else {
                const uint16_t w = uint16_t(v);
                std::memcpy(&buf[2 * index], &w, 2);
            }
        };
        if (g.tile) {
            TIFFSetField(t, TIFFTAG_TILEWIDTH, g.tile);
            TIFFSetField(t, TIFFTAG_TILELENGTH, g.tile);
            std::vector<uint8_t> tile(size_t(g.tile) * g.tile * perPixel * sb);
            for (uint32_t s = 0; s < planes; ++s)
                for (uint32_t ty = 0; ty < g.height; ty += g.tile)
                    for (uint32_t tx = 0; tx < g.width; tx += g.tile) {
                        for (uint32_t y = 0; y < g.tile; ++y)
                            for (uint32_t x = 0; x < g.tile; ++x)
                                for (uint32_t k = 0; k < perPixel; ++k)
                                    put(tile, (size_t(y) * g.tile + x) * perPixel + k,
                                        Pattern(p, tx + x, ty + y, g.planar ? s : k, g.bits));
                        ASSERT_GE(TIFFWriteTile(t, tile.data(), tx, ty, 0, uint16_t(s)), 0);
                    }
        } else {
            TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 5u);
            std::vector<uint8_t> line(size_t(g.width) * perPixel * sb);
            for (uint32_t s = 0; s < planes; ++s)
                for (uint32_t y = 0; y < g.height; ++y) {
                    for (uint32_t x = 0; x < g.width; ++x)
                        for (uint32_t k = 0; k < perPixel; ++k)
                            put(line, size_t(x) * perPixel + k, Pattern(p, x, y, g.planar ? s : k, g.bits));
                    ASSERT_GE(TIFFWriteScanline(t, line.data(), y, uint16_t(s)), 0);
                }
        }
        ASSERT_TRUE(TIFFWriteDirectory(t));
    }
    TIFFClose(t);
}

struct TiffSeen {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t spp = 0;
    uint16_t bits = 0;
    uint16_t compression = 0;
    uint16_t orientation = 0;
    uint16_t unit = 0;
    float xres = 0;
    float yres = 0;
    uint16_t alphaKind = 0;
    std::string description, artist, software, document;
    std::string samples;  // contiguous, every line
};

std::vector<TiffSeen> ReadTiff(const std::string& path) {
    std::vector<TiffSeen> pages;
    TIFF* t = TIFFOpen(path.c_str(), "r");
    if (!t) return pages;
    do {
        TiffSeen s;
        TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &s.width);
        TIFFGetField(t, TIFFTAG_IMAGELENGTH, &s.height);
        TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &s.spp);
        TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &s.bits);
        TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &s.compression);
        TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &s.orientation);
        TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &s.unit);
        TIFFGetField(t, TIFFTAG_XRESOLUTION, &s.xres);
        TIFFGetField(t, TIFFTAG_YRESOLUTION, &s.yres);
        uint16_t count = 0;
        uint16_t* kinds = nullptr;
        if (TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &count, &kinds) && count) s.alphaKind = kinds[0];
        const std::pair<uint32_t, std::string*> texts[] = {{TIFFTAG_IMAGEDESCRIPTION, &s.description},
                                                           {TIFFTAG_ARTIST, &s.artist},
                                                           {TIFFTAG_SOFTWARE, &s.software},
                                                           {TIFFTAG_DOCUMENTNAME, &s.document}};
        for (const auto& [tag, field] : texts) {
            const char* text = nullptr;
            if (TIFFGetField(t, tag, &text) && text) *field = text;
        }
        std::string line(size_t(TIFFScanlineSize64(t)), '\0');
        for (uint32_t y = 0; y < s.height; ++y) {
            if (TIFFReadScanline(t, line.data(), y, 0) < 0) break;
            s.samples += line;
        }
        pages.push_back(s);
    } while (TIFFReadDirectory(t));
    TIFFClose(t);
    return pages;
}

// ---- PNG and JPEG through their libraries ---------------------------------------------------------------------

struct PngText {
    std::string key, text;
};

// An 8-bit RGB PNG of Pattern(0, ...), with the chunks asked for.
void WritePng(const std::string& path, uint32_t w, uint32_t h, const std::string& icc, double gamma,
              const std::vector<PngText>& texts, bool interlaced = false) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        ADD_FAILURE() << "libpng failed";
        return;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, w, h, 8, PNG_COLOR_TYPE_RGB, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (gamma > 0) {
        png_set_gAMA(png, info, gamma);
        png_set_cHRM(png, info, 0.3127, 0.329, 0.68, 0.32, 0.2, 0.7, 0.15, 0.06);  // not sRGB's primaries
    }
    if (!icc.empty())
        png_set_iCCP(png, info, "icc", 0, reinterpret_cast<png_const_bytep>(icc.data()), png_uint_32(icc.size()));
    std::vector<png_text> chunks;
    for (const PngText& t : texts) {
        png_text c{};
        c.compression = PNG_TEXT_COMPRESSION_NONE;
        c.key = const_cast<char*>(t.key.c_str());
        c.text = const_cast<char*>(t.text.c_str());
        chunks.push_back(c);
    }
    if (!chunks.empty()) png_set_text(png, info, chunks.data(), int(chunks.size()));
    png_write_info(png, info);
    std::vector<uint8_t> image(size_t(w) * h * 3);
    std::vector<png_bytep> rows(h);
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x)
            for (uint32_t s = 0; s < 3; ++s) image[(size_t(y) * w + x) * 3 + s] = uint8_t(Pattern(0, x, y, s, 8));
        rows[y] = image.data() + size_t(y) * w * 3;
    }
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

std::vector<PngText> ReadPngTexts(const std::string& path) {
    std::vector<PngText> texts;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return texts;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (!setjmp(png_jmpbuf(png))) {
        png_init_io(png, f);
        png_read_info(png, info);
        png_textp text = nullptr;
        int count = 0;
        png_get_text(png, info, &text, &count);
        for (int i = 0; i < count; ++i) texts.push_back({text[i].key, text[i].text});
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    return texts;
}

struct JpegSeen {
    int components = 0;
    bool adobe = false;
    std::string icc;
    std::string samples;  // as stored (no inversion)
};

JpegSeen ReadJpeg(const std::string& path) {
    JpegSeen seen;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return seen;
    jpeg_decompress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, f);
    jpeg_save_markers(&info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&info, TRUE);
    JOCTET* icc = nullptr;
    unsigned int iccSize = 0;
    if (jpeg_read_icc_profile(&info, &icc, &iccSize)) seen.icc.assign(reinterpret_cast<char*>(icc), iccSize);
    std::free(icc);
    seen.adobe = info.saw_Adobe_marker;
    jpeg_start_decompress(&info);
    seen.components = info.output_components;
    std::string line(size_t(info.output_width) * info.output_components, '\0');
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = reinterpret_cast<JSAMPROW>(line.data());
        jpeg_read_scanlines(&info, &row, 1);
        seen.samples += line;
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    std::fclose(f);
    return seen;
}

// An 8 x 8 RGB JPEG with `app1` (when not empty) as its APP1 marker.
void WriteJpeg(const std::string& path, const std::string& app1) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    jpeg_compress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, f);
    info.image_width = 8;
    info.image_height = 8;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_start_compress(&info, TRUE);
    if (!app1.empty())
        jpeg_write_marker(&info, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(app1.data()), unsigned(app1.size()));
    std::string line(24, '\x80');
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = reinterpret_cast<JSAMPROW>(line.data());
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::fclose(f);
}

// A camera-style little-endian EXIF APP1: three IFD entries (make, x
// resolution, then the orientation) and a next-IFD link to a thumbnail.
std::string CameraExif(uint16_t orientation) {
    std::string e("Exif\0\0II*\0\x08\0\0\0", 14);
    e += std::string("\x03\0", 2);                                              // three entries
    e += std::string("\x0f\x01\x02\0\x04\0\0\0ACME", 12);                   // make, ASCII, inline
    e += std::string("\x1a\x01\x05\0\x01\0\0\0\x32\0\0\0", 12);          // x resolution, elsewhere
    e += std::string("\x12\x01\x03\0\x01\0\0\0", 8) + char(orientation) + std::string("\0\0\0", 3);
    e += std::string("\x40\0\0\0", 4);                                          // next IFD
    return e;
}

double MeanAbsDifference(const std::string& a, const std::string& b) {
    if (a.size() != b.size() || a.empty()) return 1e9;
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += std::abs(int(uint8_t(a[i])) - int(uint8_t(b[i])));
    return sum / double(a.size());
}

// Each test writes into its own empty folder, which also shows any file a failure leaves behind.
class TintraImage : public ::testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    std::string Builtin(const std::string& name) {
        EXPECT_EQ(Tintra({"convert", "--dst", "builtin:" + name, "--write-profile", Path(name + ".icc")}).status, 0);
        return Slurp(Path(name + ".icc"));
    }
    size_t Files() const { return size_t(std::distance(fs::directory_iterator(dir_), fs::directory_iterator())); }
    const std::string dir_ = TempPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(TintraImage, ThreePageLzwTiffKeepsPagesResolutionOrientationTextAndCompression) {
    const std::vector<TiffPage> pages = {
        {.compression = COMPRESSION_LZW},
        {.width = 40, .height = 7, .spp = 4, .compression = COMPRESSION_LZW},  // RGB + alpha, another size
        {.width = 9, .height = 30, .bits = 16, .planar = true, .compression = COMPRESSION_LZW},  // planes: one handle each
    };
    WriteTiff(Path("in.tif"), pages, [](TIFF* t, uint32_t page) {
        TIFFSetField(t, TIFFTAG_XRESOLUTION, 300.0f);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, 300.0f);
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP);  // 6: shown rotated
        TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, ("page " + std::to_string(page + 1)).c_str());
        TIFFSetField(t, TIFFTAG_ARTIST, "A. Printer");
        TIFFSetField(t, TIFFTAG_SOFTWARE, "scanner 2.1");
        TIFFSetField(t, TIFFTAG_DOCUMENTNAME, "brochure");
        if (page == 1) {
            const uint16_t kinds[1] = {EXTRASAMPLE_ASSOCALPHA};
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(1), kinds);
        }
    });
    const ToolRun r = Tintra({"convert", Path("in.tif"), Path("out.tif"), "-o", "builtin:cmyk", "-v"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("wrote " + Path("out.tif") + " (TIFF, 3 pages, "), std::string::npos) << r.err;
    const std::vector<TiffSeen> out = ReadTiff(Path("out.tif"));
    ASSERT_EQ(out.size(), 3u);
    const struct {
        uint32_t width, height;
        uint16_t spp, bits, alphaKind;
    } expected[] = {
        {24, 16, 4, 8, 0},                         // CMYK from RGB
        {40, 7, 5, 8, EXTRASAMPLE_ASSOCALPHA},     // alpha and its kind carried along
        {9, 30, 4, 16, 0},                         // each page keeps its own depth (written contiguous)
    };
    for (size_t p = 0; p < 3; ++p) {
        SCOPED_TRACE(p);
        const TiffSeen& s = out[p];
        EXPECT_EQ(s.width, expected[p].width);
        EXPECT_EQ(s.height, expected[p].height);
        EXPECT_EQ(s.spp, expected[p].spp);
        EXPECT_EQ(s.bits, expected[p].bits);
        EXPECT_EQ(s.alphaKind, expected[p].alphaKind);
        EXPECT_EQ(s.compression, COMPRESSION_LZW);
        EXPECT_EQ(s.orientation, ORIENTATION_RIGHTTOP);
        EXPECT_EQ(s.unit, RESUNIT_INCH);
        EXPECT_EQ(s.xres, 300.0f);
        EXPECT_EQ(s.yres, 300.0f);
        EXPECT_EQ(s.description, "page " + std::to_string(p + 1));
        EXPECT_EQ(s.artist, "A. Printer");
        EXPECT_EQ(s.software, "scanner 2.1");
        EXPECT_EQ(s.document, "brochure");
        EXPECT_EQ(s.samples.size(), size_t(s.width) * s.height * s.spp * s.bits / 8);
    }
    // The separate planes of page 3 convert as the same samples stored contiguous do.
    std::vector<TiffPage> contiguous = pages;
    contiguous[2].planar = false;
    WriteTiff(Path("contiguous.tif"), contiguous);
    ASSERT_EQ(Tintra({"convert", Path("contiguous.tif"), Path("contiguous-out.tif"), "-o", "builtin:cmyk"}).status, 0);
    const std::vector<TiffSeen> fromContiguous = ReadTiff(Path("contiguous-out.tif"));
    ASSERT_EQ(fromContiguous.size(), 3u);
    EXPECT_EQ(out[2].samples, fromContiguous[2].samples);
    // Page 2's alpha samples come through unchanged.
    for (uint32_t i = 0; i < 40 * 7; ++i)
        ASSERT_EQ(uint8_t(out[1].samples[i * 5 + 4]), Pattern(1, i % 40, i / 40, 3, 8)) << i;
    // A one-page format refuses the pages instead of dropping two of them.
    const ToolRun png = Tintra({"convert", Path("in.tif"), Path("out.png")});
    EXPECT_EQ(png.status, 2);
    EXPECT_NE(png.err.find("PNG holds one page but the input has 3 (write a TIFF)"), std::string::npos) << png.err;
    EXPECT_FALSE(fs::exists(Path("out.png")));
}

TEST_F(TintraImage, CompressionFollowsTheInputOrTheOption) {
    WriteTiff(Path("lzw.tif"), {{.compression = COMPRESSION_LZW}});
    WriteTiff(Path("zip16.tif"), {{.bits = 16, .compression = COMPRESSION_ADOBE_DEFLATE}});
    const struct {
        std::string in;
        std::vector<std::string> options;
        uint16_t compression;
    } cases[] = {
        {"lzw.tif", {}, COMPRESSION_LZW},                                   // the input's
        {"lzw.tif", {"--compress", "none"}, COMPRESSION_NONE},              // explicit choice wins
        {"lzw.tif", {"--compress", "zip"}, COMPRESSION_ADOBE_DEFLATE},
        {"lzw.tif", {"--compress", "jpeg"}, COMPRESSION_JPEG},              // lossy, 8-bit only
        {"zip16.tif", {}, COMPRESSION_ADOBE_DEFLATE},                       // 16-bit input's own
        {"zip16.tif", {"--compress", "lzw", "-w", "8"}, COMPRESSION_LZW},
    };
    std::string reference;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in + " " + (c.options.empty() ? "" : c.options[1]));
        std::vector<std::string> args = {"convert", Path(c.in), Path("out.tif"), "-o", "builtin:cmyk"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const ToolRun r = Tintra(args);
        ASSERT_EQ(r.status, 0) << r.err;
        const std::vector<TiffSeen> out = ReadTiff(Path("out.tif"));
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].compression, c.compression);
        // Lossless schemes give the same samples.
        if (c.in == "lzw.tif" && c.compression != COMPRESSION_JPEG) {
            if (reference.empty()) reference = out[0].samples;
            EXPECT_EQ(out[0].samples, reference);
        }
    }
    const ToolRun r = Tintra({"convert", Path("zip16.tif"), Path("bad.tif"), "-o", "builtin:cmyk", "--compress", "jpeg"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("JPEG compression needs 8-bit"), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(Path("bad.tif")));
}

// Tiles (edges not multiples of the tile size), separate planes and any band height or thread count give the
// same samples as plain strips.
TEST_F(TintraImage, TilesPlanesBandsAndThreadsChangeNoSample) {
    const TiffPage strips{.width = 37, .height = 29, .bits = 16};
    WriteTiff(Path("strips.tif"), {strips});
    ASSERT_EQ(Tintra({"convert", Path("strips.tif"), Path("ref.tif"), "-o", "builtin:cmyk", "--threads", "1"}).status,
              0);
    const std::string reference = ReadTiff(Path("ref.tif"))[0].samples;
    TiffPage tiled = strips;
    tiled.tile = 16;
    TiffPage tiledPlanar = tiled;
    tiledPlanar.planar = true;
    TiffPage planar = strips;
    planar.planar = true;
    const struct {
        const char* name;
        TiffPage page;
        std::vector<std::string> options;
    } cases[] = {
        {"tiled", tiled, {}},                                          // 3x2 tiles, partial ones on two edges
        {"tiled-planar", tiledPlanar, {}},                             // one tile set per plane
        {"planar", planar, {"--block-lines", "3"}},                    // plane handles read side by side
        {"bands", strips, {"--block-lines", "1", "--threads", "3"}},  // one line per band, more workers
        {"one-band", strips, {"--block-lines", "29", "--threads", "2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string in = Path(std::string(c.name) + ".tif");
        WriteTiff(in, {c.page});
        std::vector<std::string> args = {"convert", in, Path("out.tif"), "-o", "builtin:cmyk"};
        args.insert(args.end(), c.options.begin(), c.options.end());
        const ToolRun r = Tintra(args);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(ReadTiff(Path("out.tif"))[0].samples, reference);
    }
}

TEST_F(TintraImage, JpegRoundTripsWithEmbeddedProfiles) {
    WriteTiff(Path("in.tif"), {{.width = 64, .height = 48}});
    const struct {
        const char* profile;
        int components;
        bool adobe;  // CMYK is stored inverted, as Adobe applications do, and says so
    } cases[] = {
        {"srgb", 3, false},
        {"gray22", 1, false},
        {"cmyk", 4, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.profile);
        const std::string dst = std::string("builtin:") + c.profile;
        ASSERT_EQ(Tintra({"convert", Path("in.tif"), Path("out.jpg"), "-o", dst, "-q", "100"}).status, 0);
        ASSERT_EQ(Tintra({"convert", Path("in.tif"), Path("ref.tif"), "-o", dst}).status, 0);
        const JpegSeen j = ReadJpeg(Path("out.jpg"));
        EXPECT_EQ(j.components, c.components);
        EXPECT_EQ(j.adobe, c.adobe);
        EXPECT_EQ(j.icc, Builtin(c.profile));  // the whole profile, from its APP2 markers
        std::string expected = ReadTiff(Path("ref.tif"))[0].samples;
        if (c.adobe)
            for (char& v : expected) v = char(255 - uint8_t(v));
        EXPECT_LT(MeanAbsDifference(j.samples, expected), 1.5);
        // Read back through the embedded profile: close to the same conversion without JPEG in between.
        ASSERT_EQ(Tintra({"convert", Path("out.jpg"), Path("back.tif"), "-o", "builtin:lab"}).status, 0);
        ASSERT_EQ(Tintra({"convert", Path("ref.tif"), Path("refback.tif"), "-o", "builtin:lab"}).status, 0);
        const ToolRun d = Tintra({"compare", Path("back.tif"), Path("refback.tif")});
        ASSERT_EQ(d.status, 0) << d.err;
        double mean = 99;
        ASSERT_EQ(std::sscanf(d.out.c_str(), "dE*ab: mean %lf", &mean), 1) << d.out;
        EXPECT_LT(mean, 1.5) << d.out;
    }
    const ToolRun lab = Tintra({"convert", Path("in.tif"), Path("lab.jpg"), "-o", "builtin:lab"});
    EXPECT_EQ(lab.status, 2);
    EXPECT_NE(lab.err.find("JPEG holds only grey, RGB or CMYK"), std::string::npos) << lab.err;
}

// Orientation crosses formats: EXIF in JPEG (wherever its IFD puts the tag),
// the TIFF tag, PNG's eXIf chunk; what is not a valid orientation is dropped.
TEST_F(TintraImage, OrientationCrossesFormats) {
    WriteTiff(Path("right-top.tif"), {{.width = 8, .height = 8}},
              [](TIFF* t, uint32_t) { TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_RIGHTTOP); });
    WriteJpeg(Path("camera.jpg"), CameraExif(8));
    WriteJpeg(Path("plain.jpg"), "");
    WriteJpeg(Path("nine.jpg"), CameraExif(9));
    const struct {
        const char* from;
        const char* via;  // written by the tool, then read back into a TIFF
        uint16_t orientation;
    } cases[] = {
        {"camera.jpg", "", ORIENTATION_LEFTBOT},       // little-endian EXIF, third entry
        {"right-top.tif", "jpg", ORIENTATION_RIGHTTOP},  // written as EXIF in APP1
        {"right-top.tif", "png", ORIENTATION_RIGHTTOP},  // written as eXIf
        {"camera.jpg", "png", ORIENTATION_LEFTBOT},
        {"plain.jpg", "", ORIENTATION_TOPLEFT},          // no EXIF
        {"nine.jpg", "jpg", ORIENTATION_TOPLEFT},        // no such orientation
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.from) + " via " + c.via);
        std::string from = Path(c.from);
        if (*c.via != '\0') {
            const std::string via = Path(std::string("via.") + c.via);
            ASSERT_EQ(Tintra({"convert", from, via, "-o", "builtin:srgb"}).status, 0);
            from = via;
        }
        ASSERT_EQ(Tintra({"convert", from, Path("out.tif"), "-o", "builtin:srgb"}).status, 0);
        const std::vector<TiffSeen> out = ReadTiff(Path("out.tif"));
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].orientation, c.orientation);
    }
}

// The profile decides the colours of a PNG; gAMA and cHRM (here linear light and odd primaries) are ignored.
// Text chunks survive into PNG and TIFF.
TEST_F(TintraImage, PngKeepsTextAndFollowsItsProfileNotItsGamma) {
    const std::string srgb = Builtin("srgb");
    WritePng(Path("plain.png"), 16, 8, srgb, 0, {});
    WritePng(Path("gamma.png"), 16, 8, srgb, 1.0, {{"Author", "Jane"}, {"Comment", "proof 3"}});
    WritePng(Path("interlaced.png"), 16, 8, srgb, 0, {}, true);
    ASSERT_EQ(Tintra({"convert", Path("plain.png"), Path("plain.tif"), "-o", "builtin:cmyk"}).status, 0);
    ASSERT_EQ(Tintra({"convert", Path("interlaced.png"), Path("interlaced.tif"), "-o", "builtin:cmyk"}).status, 0);
    EXPECT_EQ(ReadTiff(Path("interlaced.tif"))[0].samples, ReadTiff(Path("plain.tif"))[0].samples);
    ASSERT_EQ(Tintra({"convert", Path("gamma.png"), Path("gamma.tif"), "-o", "builtin:cmyk"}).status, 0);
    const std::vector<TiffSeen> plain = ReadTiff(Path("plain.tif")), gamma = ReadTiff(Path("gamma.tif"));
    ASSERT_EQ(gamma.size(), 1u);
    EXPECT_EQ(gamma[0].samples, plain[0].samples);
    EXPECT_EQ(gamma[0].artist, "Jane");
    ASSERT_EQ(Tintra({"convert", Path("gamma.png"), Path("out.png")}).status, 0);
    const std::vector<PngText> texts = ReadPngTexts(Path("out.png"));
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0].key + "=" + texts[0].text, "Author=Jane");
    EXPECT_EQ(texts[1].key + "=" + texts[1].text, "Comment=proof 3");
}

TEST_F(TintraImage, CommandLineConventions) {
    WriteTiff(Path("in.tif"), {{}});
    WritePng(Path("noprofile.png"), 16, 8, "", 0, {});
    auto convert = [&](std::vector<std::string> options) {
        std::vector<std::string> args = {"convert", Path("in.tif"), Path("out.tif")};
        args.insert(args.end(), options.begin(), options.end());
        EXPECT_EQ(Tintra(args).status, 0);
        return Slurp(Path("out.tif"));
    };
    const struct {
        std::vector<std::string> shortForm, longForm;
    } same[] = {
        {{"-o", "builtin:cmyk", "-t", "1", "-m", "0"}, {"--dst", "builtin:cmyk", "--intent", "relative", "--method", "0"}},
        {{"-obuiltin:cmyk", "-t2"}, {"--dst=builtin:cmyk", "--intent", "saturation"}},  // ICC numbering: 2 saturation
        {{"-o", "builtin:cmyk", "-t", "3"}, {"--dst", "builtin:cmyk", "--intent", "absolute"}},
        {{"-i", "builtin:srgb", "-o", "builtin:cmyk", "-w", "16"}, {"--src", "builtin:srgb", "--dst", "builtin:cmyk", "--bits", "16"}},
    };
    for (const auto& c : same) {
        SCOPED_TRACE(c.shortForm[1]);
        EXPECT_EQ(convert(c.shortForm), convert(c.longForm));
    }
    EXPECT_NE(convert({"-o", "builtin:cmyk", "-t", "3"}), convert({"-o", "builtin:cmyk", "-t", "2"}));
    // -n passes over an embedded profile (here one that reads the samples as Lab) for the default.
    const std::string lab = Builtin("lab");
    WriteTiff(Path("in.tif"), {{}}, [&lab](TIFF* t, uint32_t) {
        TIFFSetField(t, TIFFTAG_ICCPROFILE, uint32_t(lab.size()), lab.data());
    });
    EXPECT_EQ(convert({"-n", "-o", "builtin:cmyk"}), convert({"-i", "builtin:srgb", "-o", "builtin:cmyk"}));
    EXPECT_NE(convert({"-n", "-o", "builtin:cmyk"}), convert({"-o", "builtin:cmyk"}));

    // '-' reads standard input and writes standard output (the format named, or the input's).
    ASSERT_EQ(Tintra({"convert", Path("in.tif"), Path("file.png")}).status, 0);
    const ToolRun piped = Tintra({"convert", "-", "-"}, Slurp(Path("in.tif")));
    ASSERT_EQ(piped.status, 2);  // TIFF output needs a destination profile
    const ToolRun png = Tintra({"convert", "-", "-", "--format", "png"}, Slurp(Path("in.tif")));
    ASSERT_EQ(png.status, 0) << png.err;
    EXPECT_EQ(png.out, Slurp(Path("file.png")));

    const ToolRun version = Tintra({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("tintra 3.")) << version.out;

    // A bad colour is reported with its line; the others are converted; the status says something was skipped.
    const ToolRun eval = Tintra({"eval", "-i", "builtin:srgb", "-o", "builtin:srgb", "-t", "1"}, "0 0 0\n1 2\n255 255 255\nx\n");
    EXPECT_EQ(eval.status, 2);
    EXPECT_EQ(eval.out, "0 0 0\n255 255 255\n");
    EXPECT_NE(eval.err.find("line 2: '1 2' has 2 values"), std::string::npos) << eval.err;
    EXPECT_NE(eval.err.find("line 4: "), std::string::npos) << eval.err;
    EXPECT_NE(eval.err.find("2 colours skipped, 2 converted"), std::string::npos) << eval.err;

    const struct {
        std::vector<std::string> args;
        int status;
        const char* message;
    } refusals[] = {
        {{"compare", Path("noprofile.png"), Path("file.png")}, 2, "has no embedded profile; name the profile"},
        {{"convert", Path("missing.tif"), Path("x.tif"), "-i", "builtin:srgb", "-o", "builtin:cmyk"}, 1,
         "cannot open image"},                                              // options after the images
        {{"convert", Path("in.tif"), Path("x.tif"), Path("y.tif")}, 2, "is one too many"},
        {{"convert", Path("in.tif"), Path("x.tif"), "-x"}, 2, "unknown option '-x'"},
        {{"convert", Path("in.tif"), Path("x.tif"), "-o"}, 2, "option -o (--dst) needs a value"},
        {{"convert", Path("in.tif"), Path("x.tif"), "-obuiltin:cmyk", "-t", "4"}, 2, "--intent must be"},
        {{"convert", Path("in.tif"), Path("x.tif"), "-obuiltin:cmyk", "--compress", "rle"}, 2, "--compress must be"},
    };
    for (const auto& c : refusals) {
        SCOPED_TRACE(c.args[0] + " " + c.args.back());
        const ToolRun r = Tintra(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(Path("x.tif")));
    }
}

// The CRC of PNG chunks.
uint32_t Crc32(const std::string& bytes) {
    uint32_t c = 0xFFFFFFFFu;
    for (const char ch : bytes) {
        c ^= uint8_t(ch);
        for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return ~c;
}

// Hand-made little-endian TIFF: a header, one directory of (tag, type, count, value) entries, then `tail`.
std::string RawTiff(const std::vector<std::array<uint32_t, 4>>& entries, const std::string& tail) {
    std::string b("II*\0", 4);
    auto put = [&b](uint32_t v, int n) {
        for (int i = 0; i < n; ++i) b += char(v >> 8 * i);
    };
    put(8, 4);
    put(uint32_t(entries.size()), 2);
    for (const auto& e : entries) {
        put(e[0], 2);
        put(e[1], 2);
        put(e[2], 4);
        put(e[3], 4);
    }
    put(0, 4);
    return b + tail;
}

// What a failed conversion of a hostile file may cost at most: far below the gigabytes its header claims. Under
// AddressSanitizer an untouched reservation still costs its shadow (an eighth of it).
#if defined(__SANITIZE_ADDRESS__)
constexpr long kHostilePeakKb = 400 * 1024;
#else
constexpr long kHostilePeakKb = 200 * 1024;
#endif

// Hostile files: a message, a failure status, no output file (nor temporary), and memory proportional to the
// file rather than to what its header claims.
TEST_F(TintraImage, HostileImagesFailCleanly) {
    const uint32_t data = 8 + 2 + 10 * 12 + 4;  // where the samples of RawTiff start
    auto rgb = [&](uint32_t w, uint32_t h, uint16_t spp, uint32_t bytes) {
        return std::vector<std::array<uint32_t, 4>>{
            {256, 4, 1, w}, {257, 4, 1, h}, {258, 3, 1, 8},  {259, 3, 1, 1},    {262, 3, 1, 2},
            {273, 4, 1, data}, {277, 3, 1, spp}, {278, 4, 1, h}, {279, 4, 1, bytes}, {284, 3, 1, 1}};
    };
    std::ofstream(Path("huge.tif"), std::ios::binary)
        << RawTiff(rgb(36000, 36000, 3, 36000u * 36000u * 3u), std::string(700, '\x40'));  // 840 bytes
    std::ofstream(Path("wide.tif"), std::ios::binary) << RawTiff(rgb(5000000, 4, 3, 60000000), std::string(700, 'x'));
    std::ofstream(Path("wider.tif"), std::ios::binary) << RawTiff(rgb(100000000, 1, 3, 300000000), std::string(700, 'x'));
    std::ofstream(Path("truncated.tif"), std::ios::binary) << RawTiff(rgb(64, 64, 3, 64 * 64 * 3), std::string(500, 'x'));
    std::ofstream(Path("samples.tif"), std::ios::binary) << RawTiff(rgb(8, 8, 7, 8 * 8 * 7), std::string(448, 'x'));
    WritePng(Path("whole.png"), 64, 64, "", 0, {});
    const std::string png = Slurp(Path("whole.png"));
    std::ofstream(Path("truncated.png"), std::ios::binary) << png.substr(0, png.size() / 2);
    WritePng(Path("interlaced.png"), 64, 64, "", 0, {}, true);
    std::string hugePng = Slurp(Path("interlaced.png"));  // IHDR claims 30000x30000 (2.7 GB), CRC fixed up
    for (size_t k : {16, 20}) {
        hugePng[k] = 0;
        hugePng[k + 1] = 0;
        hugePng[k + 2] = char(0x75);
        hugePng[k + 3] = char(0x30);
    }
    const uint32_t crc = Crc32(hugePng.substr(12, 17));
    for (int k = 0; k < 4; ++k) hugePng[29 + k] = char(crc >> (24 - 8 * k));
    std::ofstream(Path("huge.png"), std::ios::binary) << hugePng;
    WriteTiff(Path("in.tif"), {{.width = 64, .height = 64}});
    ASSERT_EQ(Tintra({"convert", Path("in.tif"), Path("whole.jpg")}).status, 0);
    const std::string jpg = Slurp(Path("whole.jpg"));
    std::ofstream(Path("truncated.jpg"), std::ios::binary) << jpg.substr(0, jpg.size() / 2);
    std::string hugeJpeg = jpg;  // SOF0 height and width (after marker, length, precision) set to 65000
    const size_t sof = hugeJpeg.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    for (size_t k : {5, 7}) {
        hugeJpeg[sof + k] = char(0xFD);
        hugeJpeg[sof + k + 1] = char(0xE8);
    }
    std::ofstream(Path("huge.jpg"), std::ios::binary) << hugeJpeg;

    const struct {
        const char* in;
        const char* message;
    } cases[] = {
        {"huge.tif", "cannot read image"},          // 36000x36000 claimed by 840 bytes: no 3.9 GB image
        {"wide.tif", "cannot read image"},          // 15 MB lines claimed: no band of them before data
        {"wider.tif", "too wide for this tool"},    // 300 MB lines refused outright
        {"truncated.tif", "cannot read image"},     // strip shorter than the lines
        {"samples.tif", "7 samples per pixel for 3 colour channels"},
        {"truncated.png", "cannot read image"},
        {"huge.png", "cannot read image"},          // interlaced, so held whole: memory only as data arrive
        {"truncated.jpg", "Premature end of JPEG file"},  // libjpeg would fill the rest with grey
        {"huge.jpg", "cannot read image"},          // 65000x65000 claimed, data for 64x64
    };
    const size_t before = Files();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.in);
        for (const char* out : {"out.tif", "out.png"}) {
            const ToolRun r = Tintra({"convert", Path(c.in), Path(out), "-o", "builtin:srgb", "--no-progress"});
            EXPECT_EQ(r.status, 1);
            EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
            EXPECT_EQ(Files(), before);
            EXPECT_LT(r.peakKb, kHostilePeakKb) << "peak resident set in kB";
        }
    }
}

}  // namespace
