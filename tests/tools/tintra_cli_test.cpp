// The tintra command-line tool, run as a program on small generated images: what it writes, that it agrees with
// the library, that threads change nothing, and that every failure gives its message and leaves no file.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

namespace fs = std::filesystem;
using tintra3::test::TempPath;

std::string Slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), {}};
}

// n-byte unsigned integer at `at`, little- or big-endian.
uint32_t Get(const std::string& b, size_t at, int n, bool big = false) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v |= uint32_t(uint8_t(b[at + i])) << 8 * (big ? n - 1 - i : i);
    return v;
}

struct Result { int status; std::string out, err; };

// Runs `tintra ARGS` (arguments already shell-quoted where needed) with `input` on standard input.
Result Tintra(const std::string& args, const std::string& input = "") {
    const std::string out = TempPath("stdout.txt"), err = TempPath("stderr.txt"), in = TempPath("stdin.txt");
    std::ofstream(in) << input;
    const std::string cmd = "'" + std::string(TINTRA_CLI) + "' " + args + " <'" + in + "' >'" + out + "' 2>'" + err + "'";
    const int raw = std::system(cmd.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
}
bool Ok(const std::string& args) { return Tintra(args).status == 0; }

// A minimal reader of uncompressed little-endian TIFF; samples are the strips concatenated.
struct Tiff { uint32_t width = 0, height = 0, spp = 1, bps = 1, planar = 1, extra = 0; std::string icc, samples; };
Tiff ReadTiff(const std::string& path) {
    const std::string b = Slurp(path);
    Tiff t;
    if (b.size() < 8 || b.compare(0, 2, "II") != 0) return t;
    const size_t ifd = Get(b, 4, 4);
    std::vector<uint32_t> offsets, counts;
    const std::pair<uint32_t, uint32_t*> fields[] = {{256, &t.width}, {257, &t.height}, {258, &t.bps},
                                                     {277, &t.spp},   {284, &t.planar}};
    for (uint32_t i = 0, n = Get(b, ifd, 2); i < n; ++i) {
        const size_t e = ifd + 2 + 12 * i, type = Get(b, e + 2, 2), count = Get(b, e + 4, 4);
        const int size = type == 3 ? 2 : type == 4 ? 4 : 1;
        const size_t at = count * size <= 4 ? e + 8 : Get(b, e + 8, 4);
        const uint32_t tag = Get(b, e, 2);
        for (const auto& [id, field] : fields)
            if (id == tag) *field = Get(b, at, size);
        for (size_t k = 0; (tag == 273 || tag == 279) && k < count; ++k)  // strip offsets and byte counts
            (tag == 273 ? offsets : counts).push_back(Get(b, at + size * k, size));
        if (tag == 338) t.extra = uint32_t(count);
        if (tag == 34675) t.icc = b.substr(at, count);
    }
    for (size_t k = 0; k < offsets.size() && k < counts.size(); ++k) t.samples += b.substr(offsets[k], counts[k]);
    return t;
}

// An 8-bit contiguous RGB TIFF with an unassociated alpha sample.
void WriteRgbaTiff(const std::string& path, uint32_t w, uint32_t h, const std::string& rgba) {
    std::string b("II*\0", 4);
    auto put = [&b](uint64_t v, int n) { for (int i = 0; i < n; ++i) b += char(v >> 8 * i); };
    const uint32_t bpsAt = 8 + uint32_t(rgba.size()), size = uint32_t(rgba.size());
    put(bpsAt + 8, 4);
    b += rgba;
    put(0x0008000800080008u, 8);  // BitsPerSample 8,8,8,8
    const uint32_t tags[][4] = {{256, 4, 1, w}, {257, 4, 1, h},   {258, 3, 4, bpsAt}, {259, 3, 1, 1},
                                {262, 3, 1, 2}, {273, 4, 1, 8},   {277, 3, 1, 4},     {278, 4, 1, h},
                                {279, 4, 1, size}, {284, 3, 1, 1}, {338, 3, 1, 2}};
    put(std::size(tags), 2);
    for (const auto& t : tags) put(t[0] | t[1] << 16 | uint64_t(t[2]) << 32, 8), put(t[3], 4);
    put(0, 4);
    std::ofstream(path, std::ios::binary) << b;
}

// PNG: {width, bit depth, colour type, whether an iCCP chunk is present}.
std::vector<uint32_t> ReadPng(const std::string& path) {
    const std::string b = Slurp(path);
    std::vector<uint32_t> p(4);
    for (size_t at = 8; at + 12 <= b.size(); at += 12 + Get(b, at, 4, true)) {
        if (b.compare(at + 4, 4, "IHDR") == 0) p = {Get(b, at + 8, 4, true), uint8_t(b[at + 16]), uint8_t(b[at + 17]), 0};
        p[3] |= b.compare(at + 4, 4, "iCCP") == 0;
    }
    return p;
}

// Each test writes into its own empty folder; the 64x48 charts are only read, so all tests share them.
class TintraCli : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(Ok("chart " + chart8_ + " --size 64x48") && Ok("chart " + chart16_ + " --size 64x48 --bits 16"));
    }
    void SetUp() override { fs::remove_all(dir_), fs::create_directories(dir_); }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    std::string Builtin(const std::string& name) {
        EXPECT_TRUE(Ok("convert --dst builtin:" + name + " --write-profile " + Path(name + ".icc")));
        return Slurp(Path(name + ".icc"));
    }
    static inline const std::string chart8_ = TempPath("chart8.tif"), chart16_ = TempPath("chart16.tif");
    const std::string dir_ = TempPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(TintraCli, OutputsHaveTheRequestedShapeAndProfile) {
    const struct { const char* options; uint32_t spp, bps, planar; const char* profile; } cases[] = {
        {"", 3, 16, 1, "srgb"},                                          // chart is sRGB with the built-in profile
        {"--dst builtin:cmyk", 4, 8, 1, "cmyk"},                         // RGB to CMYK keeps 8 bits
        {"--dst builtin:cmyk --bits 16 --planar", 4, 16, 2, "cmyk"},     // deeper output, planes
        {"--dst builtin:gray22 --method 0", 1, 8, 1, "gray22"},          // method 0, one channel
        {"--dst builtin:lab --bits 16", 3, 16, 1, "lab"},                // Lab output (ICC Lab TIFF)
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string out = *c.options ? Path("out.tif") : chart16_;
        ASSERT_TRUE(!*c.options || Ok("convert " + chart8_ + " " + out + " " + c.options));
        const Tiff t = ReadTiff(out);
        EXPECT_EQ((std::vector{t.width, t.height, t.spp, t.bps, t.planar}),
                  (std::vector<uint32_t>{64, 48, c.spp, c.bps, c.planar}));
        EXPECT_EQ(t.samples.size(), 64u * 48 * c.spp * c.bps / 8);
        EXPECT_EQ(t.icc, Builtin(c.profile));
    }
}

TEST_F(TintraCli, PngOutputDefaultsToSrgbOrGrey) {
    ASSERT_TRUE(Ok("convert " + chart16_ + " " + Path("rgb.png")));
    EXPECT_EQ(ReadPng(Path("rgb.png")), (std::vector<uint32_t>{64, 16, 2, 1}));  // 16-bit RGB, profile embedded
    ASSERT_TRUE(Ok("convert " + chart8_ + " " + Path("grey.tif") + " --dst builtin:gray22"));
    ASSERT_TRUE(Ok("convert " + Path("grey.tif") + " " + Path("grey.png")));
    EXPECT_EQ(ReadPng(Path("grey.png")), (std::vector<uint32_t>{64, 8, 0, 1}));  // grey source, grey default
    // Reading the PNG back: the same colours as the same conversion to TIFF.
    ASSERT_TRUE(Ok("convert " + chart16_ + " " + Path("rgb.tif") + " --dst builtin:srgb"));
    EXPECT_NE(Tintra("compare " + Path("rgb.png") + " " + Path("rgb.tif")).out.find("max 0.000"), std::string::npos);
}

// Planar output holds the contiguous samples plane by plane, and a planar 16-bit input converts like the
// contiguous one. Method 1 only: method 0's planar kernels round differently from its interleaved ones.
// Threads and block sizes change no byte of the output.
TEST_F(TintraCli, PlanarThreadedAndSixteenBitRoundTrips) {
    ASSERT_TRUE(Ok("convert " + chart16_ + " " + Path("c.tif") + " --dst builtin:cmyk --threads 1"));
    for (const char* v : {"--threads 4 --block-lines 3",     // more workers than cores, uneven last block
                          "--threads 2 --block-lines 1",     // one line per block
                          "--threads 3 --block-lines 48"}) {  // a single block: only one worker gets work
        ASSERT_TRUE(Ok("convert " + chart16_ + " " + Path("t.tif") + " --dst builtin:cmyk " + v));
        EXPECT_EQ(Slurp(Path("t.tif")), Slurp(Path("c.tif"))) << v;
    }
    ASSERT_TRUE(Ok("convert " + chart16_ + " " + Path("p.tif") + " --dst builtin:cmyk --planar"));
    const Tiff c = ReadTiff(Path("c.tif")), p = ReadTiff(Path("p.tif"));
    const size_t pixels = 64 * 48;
    ASSERT_EQ(c.samples.size(), pixels * 4 * 2);
    ASSERT_EQ(p.samples.size(), c.samples.size());
    for (size_t i = 0; i < pixels * 4; ++i)
        ASSERT_EQ(c.samples.substr(2 * i, 2), p.samples.substr(2 * (i % 4 * pixels + i / 4), 2)) << i;
    for (const std::string n : {"c", "p"})  // back to 16-bit sRGB from the contiguous and the planar file
        ASSERT_TRUE(Ok("convert " + Path(n + ".tif") + " " + Path(n + "2.tif") + " --dst builtin:srgb"));
    const Tiff bc = ReadTiff(Path("c2.tif")), bp = ReadTiff(Path("p2.tif"));
    EXPECT_EQ(bc.bps, 16u);
    EXPECT_EQ(bc.samples, bp.samples);
}

TEST_F(TintraCli, AlphaIsCarriedThrough) {
    std::string rgba(16 * 8 * 4, '\0');
    for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = char(i * 7 + 3);
    WriteRgbaTiff(Path("rgba.tif"), 16, 8, rgba);
    const struct { const char* options; uint32_t colour, bps; } cases[] = {
        {"--dst builtin:cmyk", 4, 8},               // alpha after four colour channels
        {"--dst builtin:gray22 --bits 16", 1, 16},  // alpha rescaled by 257
        {"--dst builtin:cmyk --planar", 4, 8},      // alpha as the last plane
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        ASSERT_TRUE(Ok("convert " + Path("rgba.tif") + " " + Path("out.tif") + " " + c.options));
        const Tiff t = ReadTiff(Path("out.tif"));
        ASSERT_EQ(t.spp, c.colour + 1);
        EXPECT_EQ(t.extra, 1u);
        for (size_t p = 0; p < 16 * 8; ++p)  // sample index of pixel p's alpha, times bytes per sample
            ASSERT_EQ(Get(t.samples, (t.planar == 2 ? c.colour * 128 + p : p * t.spp + c.colour) * c.bps / 8, c.bps / 8),
                      uint8_t(rgba[p * 4 + 3]) * (c.bps == 8 ? 1u : 257u)) << p;
    }
}

// eval against QemToolboxInit/QemToolboxProc on the same profiles; the input exercises separators and comments.
TEST_F(TintraCli, EvalAgreesWithTheLibraryAndBuiltinsArePlausible) {
    const std::string src = Path("srgb.icc"), dst = Path("cmyk.icc");
    Builtin("srgb"), Builtin("cmyk");
    std::vector<uint8_t> rgb = {0, 0, 0, 255, 255, 255, 255, 0, 0, 10, 200, 90, 128, 128, 128};
    for (uint16_t method : {0, 1}) {
        SCOPED_TRACE(method);
        const Result r = Tintra("eval --src " + src + " --dst " + dst + " --intent relative --bits 16 --method " +
                                    std::to_string(method),
                                "0 0 0\n255,255,255\n255 0 0  # red\n10 200 90\n\n128 128 128\n");
        ASSERT_EQ(r.status, 0) << r.err;
        ImageParams image{5, 1, 15, 5 * 4 * 2, 8, 16, 0, 0};
        char names[512] = {};
        std::strncpy(names, src.c_str(), 255);
        std::strncpy(names + 256, dst.c_str(), 255);
        CColorMatcher* handle = nullptr;
        ASSERT_EQ(QemToolboxInit(&image, names, method, 1, &handle), 0u);
        std::vector<uint16_t> out(5 * 4);
        PixelRun s{rgb.data(), 1}, d{out.data(), 1};
        ASSERT_EQ(QemToolboxProc(&s, &d, handle), 0u);
        QemToolboxPostProc(handle);
        std::string expected;
        for (size_t i = 0; i < out.size(); ++i) expected += std::to_string(out[i]) + (i % 4 == 3 ? "\n" : " ");
        EXPECT_EQ(r.out, expected);
    }
    // The synthetic printer: paper white needs no ink, black uses full black ink, mid grey keeps its lightness.
    const Result r = Tintra("eval --src builtin:srgb --dst builtin:cmyk --intent relative 255,255,255 0,0,0");
    EXPECT_TRUE(r.out.starts_with("0 0 0 0\n") && r.out.ends_with(" 255\n")) << r.out;
    EXPECT_EQ(Tintra("eval --src builtin:srgb --dst builtin:srgb --intent relative 128,128,128").out, "128 128 128\n");
    // 10-bit values are numbers up to 1023 (the tool high-justifies them for the library), one argument each.
    EXPECT_EQ(Tintra("eval --src builtin:srgb --dst builtin:srgb --in-bits 10 1023 1023 1023 512 0 0").out,
              "255 255 255\n128 0 0\n");
    // Intent names reach the toolbox codes: saturation uses B2A2 (linked to perceptual), absolute inks the paper.
    auto intent = [](const char* name) { return Tintra(std::string("eval --src builtin:srgb --dst builtin:cmyk "
                                                                   "255,255,255 200,30,30 --intent ") + name).out; };
    EXPECT_EQ(intent("saturation"), intent("perceptual"));
    EXPECT_NE(intent("saturation"), intent("relative"));
    EXPECT_FALSE(intent("absolute").starts_with("0 0 0 0\n")) << intent("absolute");
    const std::string info = Tintra("info builtin:cmyk").out;
    for (const char* line : {"class         'prtr'", "kind 2 lut  4 -> 3", "kind 2 lut  3 -> 4"})
        EXPECT_NE(info.find(line), std::string::npos) << line;
}

// Every failure: message on standard error, status non-zero, nothing new in the output folder.
TEST_F(TintraCli, FailuresLeaveNoFile) {
    tintra3::icc::ProfileWriter truncated = tintra3::icc::MatrixTrcGammaProfile({}, 2.2), badMagic = truncated, noTags;
    truncated.truncateAt = 100;
    badMagic.header.magic = tintra3::icc::Sig4("xxxx");
    ASSERT_TRUE(truncated.WriteFile(Path("truncated.icc")) && badMagic.WriteFile(Path("badmagic.icc")) &&
                noTags.WriteFile(Path("notags.icc")));  // notags: an RGB display profile without a single tag
    std::ofstream(Path("text.icc")) << std::string(200, 'x');  // long enough for a header, but no 'acsp'
    std::ofstream(Path("text.tif")) << "neither image format";
    auto files = [this] { return std::distance(fs::directory_iterator(dir_), fs::directory_iterator()); };
    const auto before = files();  // failures only add files, so a count shows any output or temporary left behind
    const std::string out = " " + Path("out.tif"), conv = "convert " + chart8_ + out;
    const struct { std::string args; int status; const char* message; } cases[] = {
        {"convert " + Path("missing.tif") + out + " --dst builtin:srgb", 1, "cannot open image"},
        {"convert " + Path("text.tif") + out + " --dst builtin:srgb", 1, "neither a TIFF nor a PNG"},
        {conv + " --dst " + Path("missing.icc"), 1, "cannot open profile"},
        {conv + " --src " + Path("text.icc") + " --dst builtin:cmyk", 1,
         "error 3000 (the profile cannot be opened, or its header or tag directory cannot be read): source profile"},
        {conv + " --src builtin:srgb --dst " + Path("badmagic.icc"), 1,
         "error 3001 (not an ICC profile: its header lacks the 'acsp' signature): destination"},
        {conv + " --dst " + Path("truncated.icc"), 1, "error 3000"},
        {conv + " --dst " + Path("notags.icc"), 1, "error 5000 (the transform could not be built): destination"},
        {conv + " --dst builtin:cmyk --write-profile " + Path("no/p.icc"), 1, "cannot create output file"},
        {"convert " + chart8_ + " " + Path("out.png") + " --dst builtin:lab", 2, "PNG holds only grey or RGB"},
        {"info builtin:srgb " + Path("truncated.icc"), 1, "error 3000 (the profile cannot be opened, or"},
        {"info " + Path("missing.icc"), 1, "cannot open profile"},
        {conv + " --src builtin:cmyk --dst builtin:srgb", 1, "is for 4-channel data"},
        {conv, 2, "--dst is required"},
        {"convert " + chart8_ + " " + Path("out.png") + " --dst builtin:cmyk", 2, "PNG holds only grey or RGB"},
        {"convert " + chart8_ + " " + Path("out.bmp") + " --dst builtin:cmyk", 2, "unknown image format"},
        {conv + " --dst builtin:cmyk --intent vivid", 2, "--intent must be"},
        {conv + " --dst builtin:cmyk --bits 12", 2, "--bits must be 8 or 16"},
        {conv + " --dst builtin:cmyk --method 2", 2, "--method must be"},
        {conv + " --dst builtin:nope", 2, "unknown built-in profile"},
        {conv + " --dst builtin:cmyk --frobnicate", 2, "unknown option"},
        {"eval --src builtin:srgb --dst builtin:cmyk 1,2", 2, "has 2 values"},
        {"eval --src builtin:srgb --dst builtin:cmyk 1,2,256", 2, "from 0 to 255"},
        {"eval --src " + Path("badmagic.icc") + " --dst builtin:cmyk 1,2,3", 1, "error 3001"},
        {"compare " + chart8_ + " " + Path("missing.tif"), 1, "cannot open image"},
        {"frobnicate", 2, "unknown command"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = Tintra(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        // One line of message; usage errors (status 2) add a line pointing to --help.
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.status == 2 ? 2 : 1) << r.err;
        EXPECT_EQ(files(), before);
    }
}

TEST(TintraCliHelp, EveryCommandHasHelp) {
    for (const char* cmd : {"--help", "convert --help", "info --help", "eval --help", "chart --help", "compare --help"}) {
        const Result r = Tintra(cmd);
        EXPECT_TRUE(r.status == 0 && r.out.starts_with("usage: tintra")) << cmd << r.out;
    }
}

}  // namespace
