// The top level over the toolbox: the profile-file checks against registered
// folders, the intent and method mapping, and the 64-pixel chunking of
// tintra_Proc compared with one direct toolbox conversion.
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include <unistd.h>
#ifdef _WIN32
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
#endif

#include "api_fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace tintra3::test;
using tintra3::icc::Sig4;

// Profiles in folders named after their registered classes: Monitor/{srgb,adobe,lab,gray,spac,link,xxxx}.icc,
// monitor/srgb.icc, Printer/{cmyk,a2b1,a2b2}.icc and x\Monitor\srgb.icc (one file name).
class TopLevel : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // On a case-insensitive file system "monitor" is "Monitor" and holds the
        // same sRGB copy; the check compares the path as written, so the cases
        // stay the same. "x\\Monitor" is one file name on POSIX, a folder on Windows.
        for (const char* d : {"Monitor", "monitor", "Printer", "x\\Monitor"}) fs::create_directories(Path(d));
        const std::pair<const char*, const char*> copies[] = {
            {"sRGB.icc", "Monitor/srgb.icc"}, {"sRGB.icc", "monitor/srgb.icc"}, {"sRGB.icc", "x\\Monitor\\srgb.icc"},
            {"compatibleWithAdobeRGB1998.icc", "Monitor/adobe.icc"}, {"LCMSLABI.ICM", "Monitor/lab.icc"},
            {"Gray.icc", "Monitor/gray.icc"}, {"ghostscript/default_cmyk.icc", "Printer/cmyk.icc"}};
        // Copied by hand: MinGW's copy_file takes any two existing files for the same one.
        for (auto [real, to] : copies) {
            std::ifstream from(RealProfile(real), std::ios::binary);
            std::ofstream(Path(to), std::ios::binary | std::ios::trunc) << from.rdbuf();
        }
        static const char kClasses[][5] = {"spac", "link", "xxxx"};
        for (const auto& cls : kClasses) {
            auto w = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
            w.header.deviceClass = Sig4(cls);
            ASSERT_TRUE(w.WriteFile(Path("Monitor/") + cls + ".icc"));
        }
        WritePrinterWithOnly(Sig4("A2B1"), Path("Printer/a2b1.icc"));
        WritePrinterWithOnly(Sig4("A2B2"), Path("Printer/a2b2.icc"));
        SetDirectoryName("Printer", "Monitor", "Scanner", &upper_);
        SetDirectoryName("Printer", "monitor", "Scanner", &lower_);
    }
    static std::string Path(const std::string& relative) { return base_ + "/" + relative; }
    static inline const std::string base_ = TempPath("toplevel");
    static inline DirectoryTable upper_, lower_;
};

TEST_F(TopLevel, ProfileChecks) {
    const std::string srgb = "Monitor/srgb.icc";
    const std::string adobe = "Monitor/adobe.icc";
    const std::string spac = "Monitor/spac.icc";
    const std::string xxxx = "Monitor/xxxx.icc";
    const std::string missing = "Monitor/missing.icc";
    const DirectoryTable *up = &upper_, *low = &lower_;
    const struct { std::string src, dst; const DirectoryTable* table; int32_t intent, method; uint32_t expected; }
    cases[] = {  // paths relative to the base folder; "" is a null pointer
        {srgb, adobe, up, 0, 0, 0},                     // registered folder, both sides
        {srgb, "Monitor/lab.icc", up, 3, 1, 0},         // Lab destination, method 0
        {srgb, adobe, low, 0, 0, 1402},                 // folder compared case-sensitively
        {"monitor/srgb.icc", adobe, up, 0, 0, 1402},    // file in "monitor", slot holds "Monitor"
        {srgb, "monitor/srgb.icc", up, 0, 0, 1412},     // same for the destination
        {"x\\Monitor\\srgb.icc", srgb, up, 0, 0, 0},    // backslash separators are recognised
        {spac, srgb, up, 0, 0, 1402},                   // "spac" has no folder of its own
        {"Monitor/link.icc", srgb, up, 0, 0, 1402},     // "link" neither
        {srgb, spac, up, 0, 0, 1412},                   // destination "spac"
        {xxxx, srgb, up, 0, 0, 1401},                   // class not accepted
        {srgb, xxxx, up, 0, 0, 1411},                   // destination class not accepted
        {"Monitor/gray.icc", srgb, up, 0, 0, 1200},     // GRAY source refused
        {srgb, "Printer/cmyk.icc", up, 0, 0, 1210},     // CMYK destination refused
        {missing, srgb, up, 0, 0, 1400},                // missing source
        {"Monitor", srgb, up, 0, 0, 1400},              // a directory does not open as a file
        {srgb, "Printer", up, 0, 0, 1410},              // nor as the destination
        {srgb, missing, up, 0, 0, 1410},                // missing destination
        {"", srgb, up, 0, 0, 1403},                     // null source
        {srgb, "", up, 0, 0, 1413},                     // null destination
        {missing, "", up, 7, 9, 1400},                  // source checked before intent and method
        {srgb, adobe, up, 7, 0, 1390},                  // intent 7 is refused by the toolbox, not 1300
        {srgb, adobe, up, -1, 0, 1390},                 // negative intent
        {srgb, adobe, up, 0, 3, 1390},                  // method choice 3, not 1310
        {srgb, adobe, nullptr, 0, 0, 1402},             // no table: nothing is registered
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        CColorMatcher* handle = nullptr;
        EXPECT_EQ(tintra_Init(c.src.empty() ? nullptr : Path(c.src).c_str(),
                              c.dst.empty() ? nullptr : Path(c.dst).c_str(), c.intent, c.method,
                              &handle, c.table),
                  c.expected);
        EXPECT_EQ(handle != nullptr, c.expected == 0);
        tintra_Free(handle);
    }
    // "Monitor/srgb.icc" relative: the directory part has no separator but the trailing one, so no folder name.
    const std::string cwd = fs::current_path().string();
    ASSERT_EQ(chdir(base_.c_str()), 0);
    CColorMatcher* handle = nullptr;
    EXPECT_EQ(tintra_Init("Monitor/srgb.icc", "Monitor/srgb.icc", 0, 0, &handle, up), 1402u);
    EXPECT_EQ(tintra_Init("./Monitor/srgb.icc", "./Monitor/srgb.icc", 0, 0, &handle, up), 0u);
    tintra_Free(handle);
    ASSERT_EQ(chdir("Monitor"), 0);
    EXPECT_EQ(tintra_Init("srgb.icc", "srgb.icc", 0, 0, &handle, nullptr), 1402u);  // a bare name
    ASSERT_EQ(chdir(cwd.c_str()), 0);
}

// Threads checking the same two profiles at once: each check opens the files
// while others hold them, which must not fail (1400, 1410) on any system.
TEST_F(TopLevel, ConcurrentInitsShareTheProfiles) {
    const std::string src = Path("Monitor/srgb.icc"), dst = Path("Monitor/adobe.icc");
    std::atomic<int> failures{0};
    auto inits = [&] {
        for (int i = 0; i < 20; ++i) {
            CColorMatcher* handle = nullptr;
            if (tintra_Init(src.c_str(), dst.c_str(), 0, 1, &handle, &upper_) != 0) ++failures;
            tintra_Free(handle);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(inits);
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
}

#ifdef _WIN32
// A folder named by the code page 932 character 0x95 0x5C, whose second byte
// is the code of '\\'. Only a character-aware split finds the folder name.
// The system code page decides how the file system reads the name, so this
// runs where it is 932 (under wine: LC_ALL=ja_JP.UTF-8).
TEST_F(TopLevel, DoubleByteFolderName) {
    if (GetACP() != 932) GTEST_SKIP() << "system code page " << GetACP() << ", not 932";
    const std::string folder = "\x95\x5C", src = Path(folder + "/srgb.icc");
    ASSERT_TRUE(CreateDirectoryA(Path(folder).c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS)
        << GetLastError();
    ASSERT_TRUE(CopyFileA(Path("Monitor/srgb.icc").c_str(), src.c_str(), FALSE));
    DirectoryTable table{};
    SetDirectoryName("Printer", folder.c_str(), "Scanner", &table);
    CColorMatcher* handle = nullptr;
    EXPECT_EQ(tintra_Init(src.c_str(), src.c_str(), 0, 0, &handle, &table), 0u);
    tintra_Free(handle);
}
#endif

// Intents 2 and 3 swap twice (top level, then the selector), so they reach
// the builder unchanged: 2 picks A2B2, 3 picks A2B1. A failed build keeps its handle.
TEST_F(TopLevel, IntentsReachTheBuilder) {
    const std::string a2b1 = Path("Printer/a2b1.icc"), a2b2 = Path("Printer/a2b2.icc"), srgb = Path("Monitor/srgb.icc");
    const struct { const std::string& source; int32_t intent; bool builds; } cases[] = {
        {a2b2, 2, true}, {a2b2, 3, false}, {a2b1, 3, true}, {a2b1, 2, false},
    };
    std::vector<uint8_t> in = Ramp(15), out(15);
    for (const auto& c : cases) {
        const uint32_t code = tintra(in.data(), 5, out.data(), c.source.c_str(), srgb.c_str(), c.intent, 1, &upper_);
        EXPECT_EQ(code == 0, c.builds) << c.source << " intent " << c.intent << " code " << code;
        CColorMatcher* handle = nullptr;
        EXPECT_EQ(tintra_Init(c.source.c_str(), srgb.c_str(), c.intent, 1, &handle, &upper_), code);
        EXPECT_NE(handle, nullptr);
        tintra_Free(handle);
    }
}

// tintra cuts the pixels into runs of 64: the same as one toolbox conversion
// of all of them as a single run, with nothing written past the end.
TEST_F(TopLevel, ChunkedConversion) {
    const std::string src = Path("Monitor/srgb.icc"), dst = Path("Monitor/adobe.icc");
    const ImageParams im{1, 130, 130 * 3, 130 * 3, 8, 8, 0, 0};
    for (int32_t methodChoice : {0, 1}) {
        std::vector<uint8_t> in = Ramp(130 * 3), expected(in.size());
        PixelRun s{in.data(), 130}, d{expected.data(), 130};
        CColorMatcher* reference = nullptr;  // choice 0 is method 1, choice 1 method 0
        ASSERT_EQ(QemToolboxInit(&im, Names(src, dst).sourceProfile, methodChoice == 1 ? 0 : 1, 0, &reference), 0u);
        ASSERT_EQ(QemToolboxProc(&s, &d, reference), 0u);
        QemToolboxPostProc(reference);
        for (uint32_t n : {130, 128, 64, 63, 1, 0}) {  // 64+64+2, no remainder run, ..., no toolbox call
            std::vector<uint8_t> out(in.size() + 3, 0xEE);
            EXPECT_EQ(tintra(in.data(), n, out.data(), src.c_str(), dst.c_str(), 0, methodChoice, &upper_), 0u) << n;
            EXPECT_TRUE(std::equal(out.begin(), out.begin() + n * 3, expected.begin())) << n;
            EXPECT_EQ(std::count(out.begin() + n * 3, out.end(), 0xEE), out.end() - out.begin() - n * 3) << n;
        }
    }
    // tintra_Proc: the status of the last chunk.
    CColorMatcher* handle = nullptr;
    ASSERT_EQ(tintra_Init(src.c_str(), src.c_str(), 1, 2, &handle, &upper_), 0u);
    std::vector<uint8_t> in = Ramp(70 * 3), out(in.size());
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 70, handle), 0u);
    EXPECT_EQ(GetProgress(handle), 109u);                              // 70 of 64: the chunks reached the matcher
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 0, nullptr), 0u);     // no chunk, no call
    EXPECT_EQ(tintra_Proc(in.data(), out.data(), 3, nullptr), 1390u);  // 5001 from the toolbox
    EXPECT_EQ(tintra_Proc(nullptr, nullptr, 130, nullptr), 1390u);    // null buffers over several chunks
    tintra_Free(handle);
    tintra_Free(nullptr);
}

}  // namespace
