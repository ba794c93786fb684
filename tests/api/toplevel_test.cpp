// The top-level interface through its exported functions: the profile-file
// checks against registered folders, the argument mapping, and the 64-pixel
// chunking of tintra_Proc compared with one direct toolbox conversion.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

namespace fs = std::filesystem;
using tintra3::icc::Sig4;
using tintra3::test::RealProfile;

// Profiles laid out in folders named after their registered classes:
//   <base>/Monitor/{srgb,adobe,lab,gray,spac,link,xxxx}.icc  <base>/monitor/srgb.icc
//   <base>/Printer/{cmyk,a2b1,a2b2}.icc   <base>/x\Monitor\srgb.icc (one file name)
class TopLevel : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        base_ = tintra3::test::TempPath("toplevel");
        for (const char* d : {"Monitor", "monitor", "Printer"}) fs::create_directories(fs::path(base_) / d);
        Copy("sRGB.icc", "Monitor/srgb.icc");
        Copy("compatibleWithAdobeRGB1998.icc", "Monitor/adobe.icc");
        Copy("LCMSLABI.ICM", "Monitor/lab.icc");
        Copy("Gray.icc", "Monitor/gray.icc");
        Copy("sRGB.icc", "monitor/srgb.icc");
        Copy("ghostscript/default_cmyk.icc", "Printer/cmyk.icc");
        Copy("sRGB.icc", "x\\Monitor\\srgb.icc");
        for (const char* cls : {"spac", "link", "xxxx"}) {
            auto w = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
            w.header.deviceClass = (uint32_t(uint8_t(cls[0])) << 24) | (uint32_t(uint8_t(cls[1])) << 16) |
                                   (uint32_t(uint8_t(cls[2])) << 8) | uint32_t(uint8_t(cls[3]));
            ASSERT_TRUE(w.WriteFile(Path("Monitor/") + cls + ".icc"));
        }
        WritePrinter(Sig4("A2B1"), "Printer/a2b1.icc");
        WritePrinter(Sig4("A2B2"), "Printer/a2b2.icc");
    }

    // A printer lut profile holding its table under one A2B tag only.
    static void WritePrinter(uint32_t tag, const char* to) {
        tintra3::icc::ProfileWriter w;
        w.header.deviceClass = Sig4("prtr");
        w.header.colorSpace = Sig4("RGB ");
        w.header.pcs = Sig4("XYZ ");
        w.AddTag(Sig4("wtpt"), tintra3::icc::XyzElement({{0.9642, 1.0, 0.8249}}));
        w.AddTag(tag, tintra3::icc::Mft2Element(tintra3::icc::IdentityLut(3, 2, 256)));
        ASSERT_TRUE(w.WriteFile(Path(to)));
    }

    static void Copy(const char* real, const char* to) {
        fs::copy_file(RealProfile(real), Path(to), fs::copy_options::overwrite_existing);
    }
    static std::string Path(const std::string& relative) { return base_ + "/" + relative; }

    static DirectoryTable Table(const char* monitor) {
        DirectoryTable t;
        SetDirectoryName("Printer", monitor, "Scanner", &t);
        return t;
    }

    static std::string base_;
};
std::string TopLevel::base_;

std::vector<uint8_t> Pixels(uint32_t count) {
    std::vector<uint8_t> p(size_t(count) * 3);
    for (size_t i = 0; i < p.size(); ++i) p[i] = uint8_t(i * 29 + i / 7);
    return p;
}

TEST_F(TopLevel, ProfileChecks) {
    const DirectoryTable upper = Table("Monitor");
    const DirectoryTable lower = Table("monitor");
    const std::string srgb = "Monitor/srgb.icc", adobe = "Monitor/adobe.icc", spac = "Monitor/spac.icc",
                      xxxx = "Monitor/xxxx.icc", lowerSrgb = "monitor/srgb.icc", missing = "Monitor/missing.icc";
    const std::string null = "(null)";
    struct Case {
        std::string source, destination;  // relative to the base folder
        const DirectoryTable* table;
        int32_t intent, method;
        uint32_t expected;
        const char* why;
    } cases[] = {
        {srgb, adobe, &upper, 0, 0, 0, "registered folder, both sides"},
        {srgb, "Monitor/lab.icc", &upper, 3, 1, 0, "Lab destination, method 0"},
        {srgb, adobe, &lower, 0, 0, 1402, "folder compared case-sensitively"},
        {lowerSrgb, adobe, &upper, 0, 0, 1402, "file in 'monitor', slot holds 'Monitor'"},
        {srgb, lowerSrgb, &upper, 0, 0, 1412, "same for the destination"},
        {"x\\Monitor\\srgb.icc", srgb, &upper, 0, 0, 0, "backslash separators are recognised"},
        {spac, srgb, &upper, 0, 0, 1402, "'spac' has no folder of its own"},
        {"Monitor/link.icc", srgb, &upper, 0, 0, 1402, "'link' neither"},
        {srgb, spac, &upper, 0, 0, 1412, "destination 'spac'"},
        {xxxx, srgb, &upper, 0, 0, 1401, "class not accepted"},
        {srgb, xxxx, &upper, 0, 0, 1411, "destination class not accepted"},
        {"Monitor/gray.icc", srgb, &upper, 0, 0, 1200, "GRAY source refused"},
        {srgb, "Printer/cmyk.icc", &upper, 0, 0, 1210, "CMYK destination refused"},
        {missing, srgb, &upper, 0, 0, 1400, "missing source"},
        {"Monitor", srgb, &upper, 0, 0, 1400, "a directory does not open as a file"},
        {srgb, "Printer", &upper, 0, 0, 1410, "nor as the destination"},
        {srgb, missing, &upper, 0, 0, 1410, "missing destination"},
        {null, srgb, &upper, 0, 0, 1403, "null source"},
        {srgb, null, &upper, 0, 0, 1413, "null destination"},
        {missing, null, &upper, 7, 9, 1400, "source checked before intent and method"},
        {srgb, adobe, &upper, 7, 0, 1390, "intent 7 is refused by the toolbox, not 1300"},
        {srgb, adobe, &upper, -1, 0, 1390, "negative intent"},
        {srgb, adobe, &upper, 0, 3, 1390, "method choice 3, not 1310"},
        {srgb, adobe, nullptr, 0, 0, 1402, "no table: nothing is registered"},
    };
    for (const Case& c : cases) {
        const std::string source = Path(c.source), destination = Path(c.destination);
        CColorMatcher* handle = nullptr;
        EXPECT_EQ(tintra_Init(c.source == null ? nullptr : source.c_str(),
                              c.destination == null ? nullptr : destination.c_str(), c.intent, c.method, &handle,
                              c.table),
                  c.expected)
            << c.why;
        EXPECT_EQ(handle != nullptr, c.expected == 0) << c.why;
        tintra_Free(handle);
    }
}

TEST_F(TopLevel, FolderNeedsASeparatorBeforeIt) {
    const DirectoryTable upper = Table("Monitor");
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(base_.c_str()), 0);
    CColorMatcher* handle = nullptr;
    // "Monitor/srgb.icc": the directory part "Monitor/" has no separator
    // besides the trailing one, so the folder name is empty.
    EXPECT_EQ(tintra_Init("Monitor/srgb.icc", "Monitor/srgb.icc", 0, 0, &handle, &upper), 1402u);
    EXPECT_EQ(tintra_Init("./Monitor/srgb.icc", "./Monitor/srgb.icc", 0, 0, &handle, &upper), 0u);
    tintra_Free(handle);
    ASSERT_EQ(chdir("Monitor"), 0);
    EXPECT_EQ(tintra_Init("srgb.icc", "srgb.icc", 0, 0, &handle, nullptr), 1402u) << "a bare name";
    ASSERT_EQ(chdir(cwd), 0);
}

// tintra's intents 2 and 3 swap twice (top level, then the selector), so
// they reach the builder unchanged: 2 picks A2B2, 3 and 1 pick A2B1.
TEST_F(TopLevel, IntentsReachTheBuilder) {
    const DirectoryTable table = Table("Monitor");
    const std::string a2b1 = Path("Printer/a2b1.icc"), a2b2 = Path("Printer/a2b2.icc");
    const std::string srgb = Path("Monitor/srgb.icc");
    struct Case {
        const std::string& source;
        int32_t intent;
        bool builds;
    } cases[] = {
        {a2b2, 2, true}, {a2b2, 3, false}, {a2b1, 3, true}, {a2b1, 2, false},
    };
    const std::vector<uint8_t> in = Pixels(5);
    for (const Case& c : cases) {
        for (int32_t method : {1}) {
            std::vector<uint8_t> out(in.size());
            uint32_t code = tintra(in.data(), 5, out.data(), c.source.c_str(), srgb.c_str(), c.intent, method, &table);
            EXPECT_EQ(code == 0, c.builds) << c.source << " intent " << c.intent << " code " << code;
            // tintra_Init keeps its handle on failure for the caller.
            CColorMatcher* handle = nullptr;
            EXPECT_EQ(tintra_Init(c.source.c_str(), srgb.c_str(), c.intent, method, &handle, &table), code);
            EXPECT_EQ(handle != nullptr, true);
            tintra_Free(handle);
        }
    }
}

// tintra_Proc cuts the pixels into runs of 64; the result must equal one
// toolbox conversion of all the pixels as a single run, and nothing may be
// written past the last pixel.
TEST_F(TopLevel, ChunkedConversionEqualsOneRun) {
    const DirectoryTable table = Table("Monitor");
    const std::string src = Path("Monitor/srgb.icc"), dst = Path("Monitor/adobe.icc");
    struct Case {
        uint32_t pixels;
        const char* why;
    } cases[] = {
        {130, "64 + 64 + 2"}, {128, "two full chunks, no remainder run"}, {64, "one chunk"},
        {63, "remainder only"}, {1, "one pixel"}, {0, "no toolbox call, result 0"},
    };
    for (int32_t methodChoice : {0, 1}) {
        std::vector<uint8_t> in = Pixels(130);
        // Reference: the toolbox with the defaults' method, all pixels in one run.
        ImageParams im = {};
        im.width = 1;
        im.lines = 130;
        im.bufferSize = im.destinationBufferSize = 130 * 3;
        im.bitsIn = im.bitsOut = 8;
        std::vector<char> names(512, '\0');
        src.copy(names.data(), 255);
        dst.copy(names.data() + 256, 255);
        CColorMatcher* reference = nullptr;
        ASSERT_EQ(QemToolboxInit(&im, names.data(), methodChoice == 1 ? 0 : 1, 0, &reference), 0u);
        std::vector<uint8_t> expected(in.size());
        PixelRun s = {in.data(), 130}, d = {expected.data(), 130};
        ASSERT_EQ(QemToolboxProc(&s, &d, reference), 0u);
        QemToolboxPostProc(reference);

        for (const Case& c : cases) {
            std::vector<uint8_t> out(in.size() + 3, 0xEE);
            EXPECT_EQ(tintra(in.data(), c.pixels, out.data(), src.c_str(), dst.c_str(), 0, methodChoice, &table), 0u)
                << c.why;
            EXPECT_TRUE(std::equal(out.begin(), out.begin() + c.pixels * 3, expected.begin())) << c.why;
            EXPECT_TRUE(std::all_of(out.begin() + c.pixels * 3, out.end(), [](uint8_t b) { return b == 0xEE; }))
                << c.why << ": written past the last pixel";
        }
    }
}

TEST_F(TopLevel, ProcStatusComesFromTheLastChunk) {
    const DirectoryTable table = Table("Monitor");
    const std::string srgb = Path("Monitor/srgb.icc");
    CColorMatcher* handle = nullptr;
    ASSERT_EQ(tintra_Init(srgb.c_str(), srgb.c_str(), 1, 2, &handle, &table), 0u);
    std::vector<uint8_t> in = Pixels(70), out(in.size());
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 70, handle), 0u);
    EXPECT_EQ(GetProgress(handle), 109u) << "70 of 64 pixels: the chunks reached the matcher";
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 0, nullptr), 0u) << "no chunk, no call";
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 3, nullptr), 1390u) << "5001 from the toolbox";
    EXPECT_EQ(tintra_Proc(nullptr, nullptr, 130, nullptr), 1390u) << "null buffers over several chunks";
    tintra_Free(handle);
    tintra_Free(nullptr);
}

}  // namespace
