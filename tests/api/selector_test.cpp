// The matcher object and the selector below it: validation order, lastError,
// the unsigned 32-bit progress arithmetic, order of the profile checks, the
// intent renumbering, ownership of the transform record, LocateProfile, and
// one built selector shared by two threads.
#include <thread>

#ifdef _WIN32
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
#endif

#include "api_fixtures.h"

namespace {

using namespace tintra3::test;
using tintra3::icc::Sig4;

TEST(Matcher, ValidationOrder) {
    const struct { uint16_t bitsIn, bitsOut, layout; uint32_t expected; } cases[] = {
        {10, 16, 2, 0},        // every depth and layout combination is accepted
        {16, 8, 1, 0},         // 16 in, 8 out, frame-planar
        {9, 12, 3, 2020},      // bitsIn before bitsOut and layout
        {8, 12, 3, 2021},      // bitsOut before layout
        {12, 16, 3, 2030},     // layout 3
        {8, 8, 0xFFFF, 2030},  // layout compared unsigned
    };
    for (const auto& c : cases) {
        Matcher mt({100, 10, 900, 900, c.bitsIn, c.bitsOut, c.layout, 0}, 1, kSrgb, kSrgb, 2);
        EXPECT_EQ(mt.status(), c.expected) << c.bitsIn << "/" << c.bitsOut << "/" << c.layout;
        EXPECT_EQ(mt.m.image.bitsIn, c.bitsIn);  // the image is copied even on failure
        EXPECT_EQ(mt.m.progressTotal, 1000u);    // width x lines
        EXPECT_EQ(mt.m.selector.intent, c.expected ? 0 : 2);  // the selector is written only on success
        EXPECT_EQ(mt.m.selector.transform != nullptr, c.expected == 0);
    }
}

TEST(Matcher, ProgressArithmetic) {
    Matcher mt({100, 50, 900, 900, 8, 8, 0, 0}, 1);  // 100 pixels a line, buffers of three 8-bit RGB lines
    EXPECT_EQ(mt.m.progressTotal, 5000u);
    EXPECT_EQ(ChangeImageWidth(&mt.m, 200), 0u);
    EXPECT_EQ(mt.m.progressTotal, 10000u);  // total x new width / old width
    EXPECT_EQ(mt.m.image.width, 200u);
    EXPECT_EQ(ChangeImageLines(&mt.m, 10), 0u);
    EXPECT_EQ(mt.m.progressTotal, 2000u);  // width x new lines
    EXPECT_EQ(mt.m.image.lines, 50u);      // the stored lines stay
    EXPECT_EQ(ChangeBufSize(&mt.m, 4096), 0u);
    EXPECT_EQ(mt.m.progressTotal, 4096u);
    EXPECT_EQ(mt.m.image.bufferSize, 900u);  // the buffer checks are unchanged
    EXPECT_EQ(mt.status(), 0u);              // setters leave lastError
    CColorMatcher w{};
    w.image.width = 1;
    w.progressTotal = 0x80000000u;
    ChangeImageWidth(&w, 4);
    EXPECT_EQ(w.progressTotal, 0u);  // the product comes first and wraps
    w.image.width = 0;
    w.progressTotal = 500;
    ChangeImageWidth(&w, 7);
    EXPECT_EQ(w.progressTotal, 0u);  // old width 0 gives 0
    const struct { uint32_t done, total, expected; } figures[] = {
        {2500, 5000, 50}, {5000, 5000, 100}, {49, 100, 49},  // half, all, exact
        {7500, 5000, 150},                                   // not clamped
        {1, 3, 33},                                          // truncated
        {50000000, 100000000, 7},                            // done x 100 wraps: (5e9 mod 2^32) / 1e8
        {10, 0, 0},                                          // total 0 gives 0
    };
    for (const auto& f : figures) {
        w.progressDone = f.done;
        w.progressTotal = f.total;
        EXPECT_EQ(GetProgress(&w), f.expected) << f.done << "/" << f.total;
    }
}

TEST(Matcher, RunsCountProgressOnlyOnSuccess) {
    Matcher mt({100, 6, 900, 900, 8, 8, 0, 0}, 1);  // buffers of three lines
    std::vector<uint8_t> src(1200, 128), dst(1200);
    PixelRun three{src.data(), 3}, four{src.data(), 4}, out{dst.data(), 3};
    EXPECT_EQ(ColorMatchingProc2(&mt.m, &three, &out), 0u);
    EXPECT_EQ(mt.m.progressDone, 300u);
    EXPECT_EQ(GetProgress(&mt.m), 50u);
    EXPECT_EQ(ColorMatchingProc1(&mt.m, &four), 1002u);  // four lines do not fit
    EXPECT_EQ(mt.status(), 1002u);
    EXPECT_EQ(mt.m.progressDone, 300u);  // a failed run counts nothing
    EXPECT_EQ(ColorMatchingProc1(&mt.m, &three), 0u);
    EXPECT_EQ(mt.status(), 0u);
    EXPECT_EQ(GetProgress(&mt.m), 100u);
    EXPECT_EQ(ChangeBufSize(&mt.m, 1000), 0u);  // re-initialising restarts the count, keeps the denominator
    const ProfileNames n = Names(kSrgb, kSrgb);
    EXPECT_EQ(ReinitCColorMatcher(&mt.m, &n), 0u);
    EXPECT_EQ(mt.m.progressDone, 0u);
    EXPECT_EQ(mt.m.progressTotal, 1000u);
}

TEST(Selector, CodesInOrder) {
    auto w = tintra3::icc::MatrixTrcGammaProfile({}, 2.2);
    w.header.magic = Sig4("xxxx");  // a complete RGB display profile but for its magic
    const std::string notIcc = TempPath("not-icc.icc"), missing = TempPath("missing.icc");
    ASSERT_TRUE(w.WriteFile(notIcc));
    const struct { std::string source, destination; uint16_t intent, method; uint32_t expected; } cases[] = {
        {missing, kSrgb, 0, 1, 3000},     // missing source, good destination
        {notIcc, missing, 0, 1, 3001},    // source magic checked before the destination is looked at
        {kSrgb, missing, 0, 1, 3000},     // missing destination
        {kSrgb, notIcc, 0, 1, 3001},      // destination magic
        {missing, missing, 4, 2, 3000},   // profiles come before intent and method
        {kSrgb, kSrgb, 4, 2, 2050},       // intent refused before the method is examined
        {kSrgb, kSrgb, 0xFFFF, 1, 2050},  // 0xFFFF from the toolbox is an intent like any other
        {kSrgb, kSrgb, 3, 2, 2040},       // method 2
        {kSrgb, kSrgb, 0, 0xFFFF, 2040},  // method 0xFFFF
        {kSrgb, kSrgb, 0, 0, 0},          // method 0 builds
        {kSrgb, kSrgb, 3, 1, 0},          // method 1 builds, absolute intent
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        MatchingSelector s{c.intent, c.method, nullptr, 0};
        EXPECT_EQ(Initialize(&s, c.source.c_str(), c.destination.c_str()), c.expected);
        EXPECT_EQ(s.transform != nullptr, c.expected == 0);
        TermMatchingSelector(&s);
    }
}

// Refusals leave the built record alone, a failed build keeps its half-built
// record, and re-initialising replaces it: LeakSanitizer sees any record (or
// its tables) left behind, half-built ones included.
TEST(Selector, TransformOwnership) {
    const char* srgb = kSrgb.c_str();
    for (uint16_t method : {0, 1}) {
        MatchingSelector s{1, method, nullptr, 0};
        ASSERT_EQ(Initialize(&s, srgb, srgb), 0u);
        void* built = s.transform;
        s.method = 2;
        EXPECT_EQ(Initialize(&s, srgb, srgb), 2040u);
        s.intent = 9;
        EXPECT_EQ(Initialize(&s, srgb, srgb), 2050u);
        EXPECT_EQ(s.transform, built);
        s.intent = 1;
        s.method = method;
        EXPECT_EQ(Initialize(&s, srgb, NoTagsProfile().c_str()), 5000u);
        EXPECT_NE(s.transform, nullptr);  // the half-built record stays in the selector
        EXPECT_EQ(Initialize(&s, srgb, srgb), 0u);
        EXPECT_EQ(Initialize(&s, srgb, NoTagsProfile().c_str()), 5000u);
        TermMatchingSelector(&s);
        EXPECT_EQ(s.transform, nullptr);
        TermMatchingSelector(&s);  // a second release is harmless
    }
}

// Builder codes 1 and 3 take A2B1, code 2 takes A2B2.
TEST(Selector, CallerIntentsTwoAndThreeAreSwapped) {
    const std::string a1 = WritePrinterWithOnly(Sig4("A2B1"), TempPath("printer-a2b1.icc"));
    const std::string a2 = WritePrinterWithOnly(Sig4("A2B2"), TempPath("printer-a2b2.icc"));
    const struct { const std::string& source; uint16_t intent; bool builds; } cases[] = {
        {a1, 1, true},   // 1 -> 1: A2B1
        {a1, 2, true},   // 2 -> 3: A2B1
        {a1, 3, false},  // 3 -> 2: A2B2, absent
        {a2, 2, false},  // 2 -> 3: A2B1, absent
        {a2, 3, true},   // 3 -> 2: A2B2
        {a2, 0, false},  // 0 -> 0: A2B0, absent
    };
    for (const auto& c : cases) {
        for (uint16_t method : {0, 1}) {
            MatchingSelector s{c.intent, method, nullptr, 0};
            const uint32_t code = Initialize(&s, c.source.c_str(), kSrgb.c_str());
            EXPECT_EQ(code == 0, c.builds) << c.source << " intent " << c.intent << " method " << method;
            TermMatchingSelector(&s);
        }
    }
}

// The colour folder LocateProfile puts in front of a name: on Windows the
// whole "<system directory>\COLOR\" as the system reports it; elsewhere the
// configured directory is not known here, only its "/color/" ending.
std::string ColourFolder() {
#ifdef _WIN32
    char system[MAX_PATH + 1] = {};
    GetSystemDirectoryA(system, MAX_PATH);
    return std::string(system) + "\\COLOR\\";
#else
    return "/color/";
#endif
}

TEST(Selector, LocateProfileAppendsTheNameAsGiven) {
    const std::string folder = ColourFolder();
    const std::string names[] = {
        "a.icm",
        "",              // the folder alone
        "icc/sRGB.icc",  // a directory in the name is kept
        "sub\\a.icm",    // so is a backslash
    };
    char out[300];
    for (const std::string& name : names) {
        EXPECT_EQ(LocateProfile(name.c_str(), out), 1u);
        const std::string got(out);
        EXPECT_TRUE(got.ends_with(folder + name)) << got;
        EXPECT_EQ(got.find(folder), got.size() - folder.size() - name.size()) << got;  // one folder prefix only
    }
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(LocateProfile(std::string(400, 'n').c_str(), out), 1u);
    EXPECT_EQ(std::strlen(out), 255u);  // a 400-byte name: cut at 255 bytes
    EXPECT_EQ(out[256], 'x');           // nothing written past the 256-byte result
}

// Blocks of 8 lines of 64 pixels through one built selector on two threads at
// once: the selector and its transform are only read, so the pixels equal
// those of one thread.
TEST(Selector, TwoThreadsMatchOneThread) {
    constexpr uint32_t kWidth = 64, kLines = 256, kBlock = 8, kSamples = kBlock * kWidth * 3;  // per block
    const struct { uint16_t method, bitsIn, bitsOut, layout; bool curves; } cases[] = {
        {0, 8, 8, 0, false},   // method 0 simplex tables
        {1, 8, 8, 0, false},   // method 1 multilinear
        {1, 16, 16, 0, true},  // method 1, 16-bit, alternate output tables
        {1, 12, 8, 2, false},  // method 1, line-planar
        {0, 8, 16, 1, true},   // method 0, frame-planar per block, rebuilt curved grid
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "method " << c.method << ", " << c.bitsIn << "/" << c.bitsOut << " bits");
        const uint32_t blockIn = kSamples * ((c.bitsIn + 7) / 8), blockOut = kSamples * (c.bitsOut / 8);
        Matcher m({kWidth, kLines, blockIn, blockOut, c.bitsIn, c.bitsOut, c.layout, 0}, c.method);
        std::vector<uint16_t> bend[3] = {{0, 40, 100, 255}, {0, 40, 100, 255}, {0, 40, 100, 255}};
        ValueBuffer curves[4] = {{4, 0, bend[0].data()}, {4, 0, bend[1].data()}, {4, 0, bend[2].data()}, {}};
        ASSERT_EQ(m.status() + (c.curves ? Change1DLut(&m.m, 1, 8, 3, curves) : 0u), 0u);  // bend the output side
        std::vector<uint8_t> source(kLines / kBlock * blockIn), single(kLines / kBlock * blockOut), shared(single);
        for (size_t i = 0; i < source.size(); ++i) source[i] = uint8_t(i * 2654435761u >> 13);
        auto* words = reinterpret_cast<uint16_t*>(source.data());
        for (size_t i = 0; c.bitsIn != 8 && i < source.size() / 2; ++i) words[i] &= uint16_t((1u << c.bitsIn) - 1);
        auto convert = [&, s = &m.m.selector](std::vector<uint8_t>* out, uint32_t first, uint32_t step) {
            for (uint32_t b = first; b < kLines / kBlock; b += step) {
                PixelRun in{source.data() + b * blockIn, kBlock}, o{out->data() + b * blockOut, kBlock};
                EXPECT_EQ(CMatching2(s, &in, &o, kWidth, blockIn, blockOut, c.bitsIn, c.bitsOut, c.layout), 0u);
            }
        };
        convert(&single, 0, 1);
        std::thread even(convert, &shared, 0, 2), odd(convert, &shared, 1, 2);
        even.join(), odd.join();
        EXPECT_EQ(shared, single);
    }
}

}  // namespace
