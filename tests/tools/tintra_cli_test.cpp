// The tintra command-line tool, run as a program on small generated images:
// what it writes (size, depth, channels, planes, embedded profile), that it
// agrees with the library called directly, that threads change nothing, and
// that every failure gives its one-line message, a non-zero status and no
// output file.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

namespace fs = std::filesystem;
using tintra3::test::TempPath;

struct Result {
    int status;
    std::string out, err;
};

std::string Slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

std::vector<uint8_t> Bytes(const std::string& path) {
    const std::string s = Slurp(path);
    return std::vector<uint8_t>(s.begin(), s.end());
}

// Runs `tintra ARGS` (arguments already shell-quoted where needed).
Result Tintra(const std::string& args, const std::string& input = "") {
    const std::string out = TempPath("stdout.txt"), err = TempPath("stderr.txt"), in = TempPath("stdin.txt");
    std::ofstream(in) << input;
    const std::string cmd = std::string("'") + TINTRA_CLI + "' " + args + " <'" + in + "' >'" + out + "' 2>'" + err +
                            "'";
    const int raw = std::system(cmd.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
}

// A fresh, empty folder per test for outputs.
std::string Folder(const std::string& name) {
    const std::string dir = TempPath(name);
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}

// ---- a minimal reader and writer of uncompressed little-endian TIFF ---------

struct Tiff {
    uint32_t width = 0, height = 0, spp = 1, bps = 1, planar = 1, photometric = 0, extra = 0;
    std::vector<uint8_t> icc, samples;  // samples: strips concatenated
};

uint32_t U16(const std::vector<uint8_t>& b, size_t at) { return b[at] | (b[at + 1] << 8); }
uint32_t U32(const std::vector<uint8_t>& b, size_t at) { return U16(b, at) | (U16(b, at + 2) << 16); }

Tiff ReadTiff(const std::string& path) {
    const std::vector<uint8_t> b = Bytes(path);
    Tiff t;
    if (b.size() < 8 || b[0] != 'I' || b[1] != 'I') return t;
    const size_t ifd = U32(b, 4);
    const uint32_t entries = U16(b, ifd);
    std::vector<uint32_t> offsets, counts;
    for (uint32_t i = 0; i < entries; ++i) {
        const size_t e = ifd + 2 + 12 * i;
        const uint32_t tag = U16(b, e), type = U16(b, e + 2), count = U32(b, e + 4);
        const size_t size = type == 3 ? 2 : type == 4 ? 4 : 1;
        const size_t at = count * size <= 4 ? e + 8 : U32(b, e + 8);
        auto value = [&](uint32_t k) { return size == 2 ? U16(b, at + 2 * k) : size == 4 ? U32(b, at + 4 * k) : b[at + k]; };
        switch (tag) {
            case 256: t.width = value(0); break;
            case 257: t.height = value(0); break;
            case 258: t.bps = value(0); break;
            case 262: t.photometric = value(0); break;
            case 277: t.spp = value(0); break;
            case 284: t.planar = value(0); break;
            case 338: t.extra = count; break;
            case 273: for (uint32_t k = 0; k < count; ++k) offsets.push_back(value(k)); break;
            case 279: for (uint32_t k = 0; k < count; ++k) counts.push_back(value(k)); break;
            case 34675: t.icc.assign(b.begin() + long(at), b.begin() + long(at + count)); break;
        }
    }
    for (size_t k = 0; k < offsets.size() && k < counts.size(); ++k)
        t.samples.insert(t.samples.end(), b.begin() + offsets[k], b.begin() + offsets[k] + counts[k]);
    return t;
}

void Put16(std::vector<uint8_t>& b, uint32_t v) {
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
}
void Put32(std::vector<uint8_t>& b, uint32_t v) {
    Put16(b, v & 0xFFFF);
    Put16(b, v >> 16);
}

// An 8-bit contiguous RGB TIFF with an unassociated alpha sample.
std::string WriteRgbaTiff(const std::string& path, uint32_t w, uint32_t h, const std::vector<uint8_t>& rgba) {
    std::vector<uint8_t> b = {'I', 'I', 42, 0};
    const uint32_t dataAt = 8, bpsAt = dataAt + uint32_t(rgba.size()), ifdAt = bpsAt + 8;
    Put32(b, ifdAt);
    b.insert(b.end(), rgba.begin(), rgba.end());
    for (int i = 0; i < 4; ++i) Put16(b, 8);
    const uint32_t tags[][4] = {{256, 4, 1, w},      {257, 4, 1, h},          {258, 3, 4, bpsAt}, {259, 3, 1, 1},
                                {262, 3, 1, 2},      {273, 4, 1, dataAt},     {277, 3, 1, 4},     {278, 4, 1, h},
                                {279, 4, 1, uint32_t(rgba.size())}, {284, 3, 1, 1}, {338, 3, 1, 2}};
    Put16(b, uint32_t(std::size(tags)));
    for (const auto& t : tags) {
        Put16(b, t[0]);
        Put16(b, t[1]);
        Put32(b, t[2]);
        if (t[1] == 3 && t[2] == 1) {
            Put16(b, t[3]);
            Put16(b, 0);
        } else {
            Put32(b, t[3]);
        }
    }
    Put32(b, 0);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
    return path;
}

// PNG: IHDR fields and whether an iCCP chunk is present.
struct PngInfo {
    uint32_t width = 0, height = 0, depth = 0, colorType = 0;
    bool iccp = false;
};

PngInfo ReadPngInfo(const std::string& path) {
    const std::vector<uint8_t> b = Bytes(path);
    PngInfo p;
    auto be32 = [&b](size_t at) { return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | b[at + 2] << 8 | b[at + 3]; };
    for (size_t at = 8; at + 12 <= b.size();) {
        const uint32_t len = be32(at);
        const std::string type(b.begin() + long(at + 4), b.begin() + long(at + 8));
        if (type == "IHDR") {
            p.width = be32(at + 8);
            p.height = be32(at + 12);
            p.depth = b[at + 16];
            p.colorType = b[at + 17];
        }
        if (type == "iCCP") p.iccp = true;
        at += 12 + len;
    }
    return p;
}

// ---- fixtures ---------------------------------------------------------------

class TintraCli : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = Folder(::testing::UnitTest::GetInstance()->current_test_info()->name());
        chart8_ = Path("chart8.tif");
        chart16_ = Path("chart16.tif");
        ASSERT_EQ(Tintra("chart " + chart8_ + " --size 64x48").status, 0);
        ASSERT_EQ(Tintra("chart " + chart16_ + " --size 64x48 --bits 16").status, 0);
    }
    std::string Path(const std::string& name) const { return dir_ + "/" + name; }
    std::vector<uint8_t> Builtin(const std::string& name) {
        const std::string file = Path(name + ".icc");
        EXPECT_EQ(Tintra("convert --dst builtin:" + name + " --write-profile " + file).status, 0);
        return Bytes(file);
    }
    std::string dir_, chart8_, chart16_;
};

TEST_F(TintraCli, ChartIsSrgbWithTheBuiltinProfile) {
    const Tiff t = ReadTiff(chart16_);
    EXPECT_EQ(t.width, 64u);
    EXPECT_EQ(t.height, 48u);
    EXPECT_EQ(t.spp, 3u);
    EXPECT_EQ(t.bps, 16u);
    EXPECT_EQ(t.samples.size(), 64u * 48 * 3 * 2);
    EXPECT_EQ(t.icc, Builtin("srgb"));
}

TEST_F(TintraCli, OutputsHaveTheRequestedShapeAndProfile) {
    struct Case {
        const char* options;
        const char* out;
        uint32_t spp, bps, planar;
        const char* profile;  // built-in expected to be embedded
    } cases[] = {
        {"--dst builtin:cmyk", "cmyk8.tif", 4, 8, 1, "cmyk"},                      // RGB to CMYK keeps 8 bits
        {"--dst builtin:cmyk --bits 16 --planar", "cmyk16p.tif", 4, 16, 2, "cmyk"},  // deeper output, planes
        {"--dst builtin:gray22 --method 0", "grey.tif", 1, 8, 1, "gray22"},        // method 0, one channel
        {"--dst builtin:lab --bits 16", "lab.tif", 3, 16, 1, "lab"},               // Lab output (ICC Lab TIFF)
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        ASSERT_EQ(Tintra("convert " + chart8_ + " " + Path(c.out) + " " + c.options).status, 0);
        const Tiff t = ReadTiff(Path(c.out));
        EXPECT_EQ(t.width, 64u);
        EXPECT_EQ(t.height, 48u);
        EXPECT_EQ(t.spp, c.spp);
        EXPECT_EQ(t.bps, c.bps);
        EXPECT_EQ(t.planar, c.planar);
        EXPECT_EQ(t.samples.size(), 64u * 48 * c.spp * c.bps / 8);
        EXPECT_EQ(t.icc, Builtin(c.profile));
    }
}

TEST_F(TintraCli, PngOutputDefaultsToSrgbOrGrey) {
    ASSERT_EQ(Tintra("convert " + chart16_ + " " + Path("rgb.png")).status, 0);
    PngInfo p = ReadPngInfo(Path("rgb.png"));
    EXPECT_EQ(p.width, 64u);
    EXPECT_EQ(p.depth, 16u);
    EXPECT_EQ(p.colorType, 2u);  // RGB
    EXPECT_TRUE(p.iccp);

    ASSERT_EQ(Tintra("convert " + chart8_ + " " + Path("grey.tif") + " --dst builtin:gray22").status, 0);
    ASSERT_EQ(Tintra("convert " + Path("grey.tif") + " " + Path("grey.png")).status, 0);
    p = ReadPngInfo(Path("grey.png"));
    EXPECT_EQ(p.colorType, 0u);  // grey source, grey default destination
    EXPECT_EQ(p.depth, 8u);
    // Reading the PNG back: the same colours as the same conversion to TIFF.
    ASSERT_EQ(Tintra("convert " + chart16_ + " " + Path("rgb.tif") + " --dst builtin:srgb").status, 0);
    const Result r = Tintra("compare " + Path("rgb.png") + " " + Path("rgb.tif"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("max 0.000"), std::string::npos) << r.out;
}

// Planar output holds the same samples as contiguous output, plane by plane;
// a planar input (the library's frame-planar layout) converts like the
// contiguous one. Method 1 only: method 0's planar kernels round differently
// from its interleaved ones by design.
TEST_F(TintraCli, PlanarAndSixteenBitRoundTrips) {
    const std::string contig = Path("c.tif"), planar = Path("p.tif");
    ASSERT_EQ(Tintra("convert " + chart16_ + " " + contig + " --dst builtin:cmyk").status, 0);
    ASSERT_EQ(Tintra("convert " + chart16_ + " " + planar + " --dst builtin:cmyk --planar").status, 0);
    const Tiff c = ReadTiff(contig), p = ReadTiff(planar);
    ASSERT_EQ(c.samples.size(), 64u * 48 * 4 * 2);
    ASSERT_EQ(p.samples.size(), c.samples.size());
    const size_t pixels = 64 * 48;
    for (size_t i = 0; i < pixels * 4; ++i) {
        const size_t pixel = i / 4, channel = i % 4;
        ASSERT_EQ(std::memcmp(&c.samples[2 * i], &p.samples[2 * (channel * pixels + pixel)], 2), 0) << i;
    }
    ASSERT_EQ(Tintra("convert " + contig + " " + Path("back_c.tif") + " --dst builtin:srgb").status, 0);
    ASSERT_EQ(Tintra("convert " + planar + " " + Path("back_p.tif") + " --dst builtin:srgb").status, 0);
    const Tiff bc = ReadTiff(Path("back_c.tif")), bp = ReadTiff(Path("back_p.tif"));
    EXPECT_EQ(bc.bps, 16u);
    EXPECT_EQ(bc.samples, bp.samples);
}

TEST_F(TintraCli, AlphaIsCarriedThrough) {
    std::vector<uint8_t> rgba(16 * 8 * 4);
    for (size_t i = 0; i < rgba.size(); ++i) rgba[i] = uint8_t(i * 7 + 3);
    const std::string in = WriteRgbaTiff(Path("rgba.tif"), 16, 8, rgba);
    struct Case {
        const char* options;
        uint32_t colour, bps;
    } cases[] = {
        {"--dst builtin:cmyk", 4, 8},               // alpha after four colour channels
        {"--dst builtin:gray22 --bits 16", 1, 16},  // alpha rescaled by 257
        {"--dst builtin:cmyk --planar", 4, 8},      // alpha as the last plane
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.options);
        const Result r = Tintra("convert " + in + " " + Path("out.tif") + " " + c.options);
        ASSERT_EQ(r.status, 0) << r.err;
        const Tiff t = ReadTiff(Path("out.tif"));
        ASSERT_EQ(t.spp, c.colour + 1);
        EXPECT_EQ(t.extra, 1u);
        for (size_t p = 0; p < 16 * 8; ++p) {
            const size_t index = t.planar == 2 ? c.colour * 128 + p : p * t.spp + c.colour;
            const uint32_t alpha = c.bps == 8 ? t.samples[index] : U16(t.samples, 2 * index);
            ASSERT_EQ(alpha, c.bps == 8 ? rgba[p * 4 + 3] : rgba[p * 4 + 3] * 257u) << p;
        }
    }
}

TEST_F(TintraCli, ThreadsAndBlockSizesDoNotChangeTheOutput) {
    ASSERT_EQ(Tintra("convert " + chart16_ + " " + Path("t1.tif") + " --dst builtin:cmyk --threads 1").status, 0);
    const char* variants[] = {
        "--threads 4 --block-lines 3",   // more workers than cores, uneven last block
        "--threads 2 --block-lines 1",   // one line per block
        "--threads 3 --block-lines 48",  // a single block: only one worker gets work
    };
    for (const char* v : variants) {
        SCOPED_TRACE(v);
        ASSERT_EQ(Tintra("convert " + chart16_ + " " + Path("tn.tif") + " --dst builtin:cmyk " + v).status, 0);
        EXPECT_EQ(Bytes(Path("tn.tif")), Bytes(Path("t1.tif")));
    }
}

// eval against QemToolboxInit/QemToolboxProc on the same profiles.
TEST_F(TintraCli, EvalAgreesWithTheLibrary) {
    const std::vector<uint8_t> srgb = Builtin("srgb");
    (void)Builtin("cmyk");
    const std::string src = Path("srgb.icc"), dst = Path("cmyk.icc");
    const std::vector<uint8_t> rgb = {0, 0, 0, 255, 255, 255, 255, 0, 0, 10, 200, 90, 128, 128, 128};
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
        std::vector<uint8_t> in = rgb;
        std::vector<uint16_t> out(5 * 4);
        PixelRun s{in.data(), 1}, d{out.data(), 1};
        ASSERT_EQ(QemToolboxProc(&s, &d, handle), 0u);
        QemToolboxPostProc(handle);
        std::string expected;
        for (size_t i = 0; i < 5; ++i)
            expected += std::to_string(out[4 * i]) + " " + std::to_string(out[4 * i + 1]) + " " +
                        std::to_string(out[4 * i + 2]) + " " + std::to_string(out[4 * i + 3]) + "\n";
        EXPECT_EQ(r.out, expected);
    }
}

// The synthetic printer: paper white needs no ink, black uses full black
// ink, and a mid grey prints close to its own lightness.
TEST_F(TintraCli, BuiltinCmykIsPlausible) {
    Result r = Tintra("eval --src builtin:srgb --dst builtin:cmyk --intent relative 255,255,255 0,0,0");
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::string white, black;
    std::getline(lines, white);
    std::getline(lines, black);
    EXPECT_EQ(white, "0 0 0 0");
    EXPECT_EQ(black.substr(black.rfind(' ') + 1), "255");
    r = Tintra("eval --src builtin:srgb --dst builtin:srgb --intent relative 128,128,128");
    EXPECT_EQ(r.out, "128 128 128\n");
    const Result info = Tintra("info builtin:cmyk");
    EXPECT_NE(info.out.find("class         'prtr'"), std::string::npos);
    EXPECT_NE(info.out.find("kind 2 lut  4 -> 3"), std::string::npos);
    EXPECT_NE(info.out.find("kind 2 lut  3 -> 4"), std::string::npos);
}

// Every failure: message on standard error, status non-zero, nothing left in
// the output folder but the inputs.
TEST_F(TintraCli, FailuresLeaveNoFile) {
    using tintra3::icc::ProfileWriter;
    using tintra3::icc::Sig4;
    ProfileWriter truncated = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
    truncated.truncateAt = 100;
    ASSERT_TRUE(truncated.WriteFile(Path("truncated.icc")));
    ProfileWriter badMagic = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
    badMagic.header.magic = Sig4("xxxx");
    ASSERT_TRUE(badMagic.WriteFile(Path("badmagic.icc")));
    ProfileWriter noTags;  // RGB display profile without a single tag
    ASSERT_TRUE(noTags.WriteFile(Path("notags.icc")));
    std::ofstream(Path("text.icc")) << "not a profile at all, but long enough to have a header? "
                                       "no: it has no 'acsp' signature anywhere where it belongs.....";
    std::ofstream(Path("text.tif")) << "neither image format";

    const std::string out = " " + Path("out.tif");
    struct Case {
        std::string args;
        int status;
        const char* message;
    } cases[] = {
        {"convert " + Path("missing.tif") + out + " --dst builtin:srgb", 1, "cannot open image"},
        {"convert " + Path("text.tif") + out + " --dst builtin:srgb", 1, "neither a TIFF nor a PNG"},
        {"convert " + chart8_ + out + " --dst " + Path("missing.icc"), 1, "cannot open profile"},
        {"convert " + chart8_ + out + " --src " + Path("text.icc") + " --dst builtin:cmyk", 1,
         "error 3000 (the profile cannot be opened, or its header or tag directory cannot be read): source profile"},
        {"convert " + chart8_ + out + " --src builtin:srgb --dst " + Path("badmagic.icc"), 1,
         "error 3001 (not an ICC profile, or a tag the conversion needs is missing or unusable): destination"},
        {"convert " + chart8_ + out + " --dst " + Path("truncated.icc"), 1, "error 3000"},
        {"convert " + chart8_ + out + " --dst " + Path("notags.icc"), 1, "error 5000"},
        {"convert " + chart8_ + out + " --src builtin:cmyk --dst builtin:srgb", 1, "is for 4-channel data"},
        {"convert " + chart8_ + out, 2, "--dst is required"},
        {"convert " + chart8_ + " " + Path("out.png") + " --dst builtin:cmyk", 2, "PNG holds only grey or RGB"},
        {"convert " + chart8_ + " " + Path("out.jpg") + " --dst builtin:cmyk", 2, "unknown image format"},
        {"convert " + chart8_ + out + " --dst builtin:cmyk --intent vivid", 2, "--intent must be"},
        {"convert " + chart8_ + out + " --dst builtin:cmyk --bits 12", 2, "--bits must be 8 or 16"},
        {"convert " + chart8_ + out + " --dst builtin:cmyk --method 2", 2, "--method must be"},
        {"convert " + chart8_ + out + " --dst builtin:nope", 2, "unknown built-in profile"},
        {"convert " + chart8_ + out + " --dst builtin:cmyk --frobnicate", 2, "unknown option"},
        {"eval --src builtin:srgb --dst builtin:cmyk 1,2", 2, "has 2 values"},
        {"eval --src builtin:srgb --dst builtin:cmyk 1,2,256", 2, "from 0 to 255"},
        {"eval --src " + Path("badmagic.icc") + " --dst builtin:cmyk 1,2,3", 1, "error 3001"},
        {"compare " + chart8_ + " " + Path("missing.tif"), 1, "cannot open image"},
        {"frobnicate", 2, "unknown command"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const Result r = Tintra(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), c.status == 2 ? 2 : 1) << r.err;
        std::vector<std::string> left;
        for (const auto& e : fs::directory_iterator(dir_)) left.push_back(e.path().filename().string());
        std::sort(left.begin(), left.end());
        EXPECT_EQ(left, (std::vector<std::string>{"badmagic.icc", "chart16.tif", "chart8.tif", "notags.icc", "text.icc", "text.tif",
                                                  "truncated.icc"}));
    }
}

TEST(TintraCliHelp, EveryCommandHasHelp) {
    for (const char* command : {"--help", "convert --help", "info --help", "eval --help", "chart --help",
                                "compare --help"}) {
        SCOPED_TRACE(command);
        const Result r = Tintra(command);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out.rfind("usage: tintra", 0), 0u) << r.out;
    }
}

}  // namespace
