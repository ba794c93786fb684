// Every instruction set this machine runs gives, byte for byte, what the
// portable kernels give: every RGB8 input through real transforms, random
// samples of every depth, output depth and layout (in place too), and
// hand-made records with hostile tables.
//
// TINTRA3_TEST_SWEEP=reduced shortens the sweeps for emulated runs.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "records.h"
#include "samples.h"
#include "support/test_support.h"
#include "profile/profile_file.h"

namespace tintra3 {
namespace {

using namespace test;

bool ReducedSweep() {
    const char* sweep = std::getenv("TINTRA3_TEST_SWEEP");
    return sweep != nullptr && std::strcmp(sweep, "reduced") == 0;
}

// Every instruction set to hold against the portable one.
std::vector<Isa> WideIsas() {
    std::vector<Isa> isas;
    for (Isa isa : kAllIsas) {
        if (isa != Isa::kPortable && IsaSupported(isa)) isas.push_back(isa);
    }
    return isas;
}

struct Built {
    std::shared_ptr<Method0Transform> m0;
    std::shared_ptr<Method1Transform> m1;
    const void* For(uint16_t method) const {
        if (method == 0) return m0.get();
        return m1.get();
    }
};

std::string ProfilePath(const std::string& name) {
    if (name.find('/') == 0) return name;
    return RealProfile(name);
}

Built Build(const std::string& from, const std::string& to) {
    Built built;
    built.m0.reset(CreateMethod0Transform(), DestroyMethod0Transform);
    built.m1.reset(CreateMethod1Transform(), DestroyMethod1Transform);
    ProfileFile source{};
    ProfileFile destination{};
    EXPECT_EQ(OpenProfile(ProfilePath(from).c_str(), &source), 1);
    EXPECT_EQ(OpenProfile(ProfilePath(to).c_str(), &destination), 1);
    EXPECT_EQ(BuildMethod0Transform(built.m0.get(), 1, &source, &destination, 0), 1);
    EXPECT_EQ(BuildMethod1Transform(built.m1.get(), 1, &source, &destination, 0), 1);
    CloseProfile(&source);
    CloseProfile(&destination);
    return built;
}

const char* const kClayRgb = "/usr/share/color/argyll/ref/ClayRGB1998.icm";

// One block through the portable kernel and through `isa`, to fresh
// destinations and (where allowed) in place; all must agree.
void ExpectSameAsPortable(Isa isa, uint16_t method, const void* t, int layout, uint16_t bitsIn, bool out16,
                          uint32_t in, uint32_t out, const std::vector<uint8_t>& src, uint32_t lines,
                          uint32_t width) {
    const size_t pixels = size_t(lines) * width;
    const size_t outBytes = pixels * out * (out16 ? 2 : 1);
    std::vector<uint8_t> want(outBytes + 32, 0x5A);
    std::vector<uint8_t> got(outBytes + 32, 0x5A);
    Convert(method, t, layout, bitsIn, out16, in, out, src.data(), want.data(), lines, width, Isa::kPortable);
    Convert(method, t, layout, bitsIn, out16, in, out, src.data(), got.data(), lines, width, isa);
    ASSERT_EQ(std::memcmp(got.data(), want.data(), got.size()), 0) << "to a separate buffer";
    const bool inPlace = in == out && (bitsIn == 8) == !out16;
    if (!inPlace) return;
    std::vector<uint8_t> same = src;
    Convert(method, t, layout, bitsIn, out16, in, out, same.data(), same.data(), lines, width, isa);
    ASSERT_EQ(std::memcmp(same.data(), want.data(), same.size()), 0) << "in place";
}

// Random samples, with the extremes first: each sample is a byte or a word.
std::vector<uint8_t> RandomSamples(size_t samples, bool wide, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> bytes(samples * (wide ? 2 : 1));
    for (auto& b : bytes) b = uint8_t(rng());
    const size_t edges = std::min<size_t>(bytes.size(), 64);
    for (size_t i = 0; i < edges; ++i) bytes[i] = (i / 8) % 2 == 0 ? 0xFF : 0x00;
    return bytes;
}

// Every kernel key of the record's channel pair.
void CheckEveryKey(Isa isa, uint16_t method, const void* t, uint32_t in, uint32_t out, uint32_t lines,
                   uint32_t width, uint32_t seed) {
    const bool interleaved = ChannelPosition(in) >= 0 && ChannelPosition(out) >= 0;
    for (int layout = interleaved ? 0 : 1; layout < 3; ++layout) {
        for (uint16_t bits : kDepths) {
            for (bool out16 : {false, true}) {
                SCOPED_TRACE(testing::Message() << IsaName(isa) << " method " << method << " " << in << "->" << out
                                                << " bits " << bits << " out16 " << out16 << " layout " << layout);
                const std::vector<uint8_t> src = RandomSamples(size_t(lines) * width * in, bits != 8, seed++);
                ExpectSameAsPortable(isa, method, t, layout, bits, out16, in, out, src, lines, width);
            }
        }
    }
}

// Every 8-bit RGB input through the commonest pair, both methods, in blocks
// of 2^16 pixels (the red code is the block, green and blue run). In place
// is left to the random samples below.
TEST(IsaEquivalence, EveryRgb8Input) {
    const Built built = Build("sRGB.icc", kClayRgb);
    const std::vector<Isa> isas = WideIsas();
    // The log says what was compared: an emulator or a build may lack a set.
    std::string names;
    for (Isa isa : isas) names += std::string(" ") + IsaName(isa);
    std::printf("compared with portable:%s\n", names.empty() ? " none" : names.c_str());
    const uint32_t step = ReducedSweep() ? 17 : 1;
    std::vector<uint8_t> src(3 << 16);
    std::vector<uint8_t> want(3 << 16);
    std::vector<uint8_t> got(3 << 16);
    for (uint16_t method : {0, 1}) {
        for (uint32_t red = 0; red < 256; red += step) {
            for (uint32_t i = 0; i < (1u << 16); ++i) {
                src[3 * i] = uint8_t(red);
                src[3 * i + 1] = uint8_t(i >> 8);
                src[3 * i + 2] = uint8_t(i);
            }
            Convert(method, built.For(method), 0, 8, false, 3, 3, src.data(), want.data(), 256, 256, Isa::kPortable);
            for (Isa isa : isas) {
                Convert(method, built.For(method), 0, 8, false, 3, 3, src.data(), got.data(), 256, 256, isa);
                ASSERT_EQ(got, want) << IsaName(isa) << " method " << method << " red " << red;
            }
        }
    }
}

// Real pairs of every channel shape, every key, odd widths (every tail length).
TEST(IsaEquivalence, RandomSamplesEveryKeyRealPairs) {
    struct Pair {
        const char* from;
        const char* to;
        uint32_t in;
        uint32_t out;
    } const pairs[] = {
        {"sRGB.icc", kClayRgb, 3, 3},                               // matrix to matrix
        {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4},         // to a printer
        {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3},         // from a printer: the index wraps
        {"ghostscript/default_cmyk.icc", "ghostscript/default_cmyk.icc", 4, 4},  // lut to lut
        {"Gray.icc", "sRGB.icc", 1, 3},                             // monochrome source
        {"sRGB.icc", "Gray-CIE_L.icc", 3, 1},                       // one output
    };
    const uint32_t lines = ReducedSweep() ? 3 : 41;
    uint32_t seed = 1;
    for (const Pair& p : pairs) {
        const Built built = Build(p.from, p.to);
        for (Isa isa : WideIsas()) {
            for (uint16_t method : {0, 1}) {
                for (uint32_t width : {1u, 7u, 1021u}) {
                    CheckEveryKey(isa, method, built.For(method), p.in, p.out, width == 1021 ? lines : 3, width,
                                  seed++);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// Random tables: unsorted weights (negative differences), wrapped index
// parts, junk above the far corner's low 16 bits; 2 and 5 channels planar only.
TEST(IsaEquivalence, HandMadeRecords) {
    const uint32_t counts[] = {1, 2, 3, 4, 5};
    for (Isa isa : WideIsas()) {
        for (uint32_t in : counts) {
            for (uint32_t out : counts) {
                Method0Fixture m0(in, out, in * 10 + out);
                Method1Fixture m1(in, out, in == 1 ? 5 : 3, in * 10 + out);
                CheckEveryKey(isa, 0, &m0.t, in, out, 5, 203, in * 100 + out);
                CheckEveryKey(isa, 1, &m1.t, in, out, 5, 203, in * 100 + out);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// Block sizes around the edges of the AVX2 method 1 path for three and four
// inputs: pairs of pixels, runs of 32 interpolated before any output is
// written, and 8-bit samples going through per-block tables from 512 pixels.
TEST(IsaEquivalence, WideMethod1BlockSizes) {
    struct Case {
        uint32_t lines;
        uint32_t width;
        const char* why;
    } const cases[] = {
        {1, 1, "one pixel, interpolated as a pair with itself"},
        {1, 5, "two pairs a turn, then an odd pixel"},
        {1, 31, "a run short of full"},
        {2, 16, "exactly one run"},
        {3, 11, "a run and an odd pixel"},
        {7, 73, "511 pixels: 8-bit samples still through the record's tables"},
        {8, 64, "512 pixels: 8-bit samples through the per-block tables"},
    };
    for (Isa isa : WideIsas()) {
        for (const Case& c : cases) {
            for (uint32_t in : {3u, 4u}) {
                for (uint32_t out : {3u, 4u}) {
                    SCOPED_TRACE(testing::Message() << c.why << ", " << in << " -> " << out);
                    Method1Fixture fixture(in, out, 3, in * 10 + out);
                    CheckEveryKey(isa, 1, &fixture.t, in, out, c.lines, c.width, c.width);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// Clut layouts the builder never makes: the three- and four-input kernels
// read a cell's nodes z and z + 1 with one load only where they are
// adjacent, and must still follow the strides elsewhere. Each clut ends at
// the last sample the far corner reads (an over-read shows under ASan).
TEST(IsaEquivalence, HandMadeStrides) {
    struct Case {
        const char* why;
        uint32_t in;
        uint32_t times[4];  // stride of channel d: times[d] * outputs + plus[d] samples
        uint32_t plus[4];
    } const cases[] = {
        {"nodes along the last channel a sample apart", 3, {10, 3, 1}, {1, 5, 1}},
        {"nodes along the last channel overlapping", 3, {9, 3, 0}, {0, 0, 1}},
        {"the last channel the slowest", 3, {1, 3, 9}, {0, 0, 0}},
        {"four inputs, nodes a sample apart", 4, {28, 9, 3, 1}, {0, 1, 2, 1}},
        {"four inputs, the last channel the slowest", 4, {1, 3, 9, 27}, {0, 0, 0, 0}},
    };
    constexpr uint32_t kPoints = 3;
    for (Isa isa : WideIsas()) {
        for (const Case& c : cases) {
            for (uint32_t out : {3u, 4u}) {
                SCOPED_TRACE(testing::Message() << c.why << ", " << out << " outputs");
                Method1Fixture fixture(c.in, out, kPoints, out * 7);
                uint32_t far = out;
                for (uint32_t d = 0; d < c.in; ++d) {
                    fixture.t.strides[d] = c.times[d] * out + c.plus[d];
                    far += (kPoints - 1) * fixture.t.strides[d];
                }
                fixture.t.clut = fixture.Buffer(fixture.Random<uint16_t>(far, 65535));
                CheckEveryKey(isa, 1, &fixture.t, c.in, out, 5, 203, out * 13);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// The wide path runs only on a usable layout: real transforms and the
// hand-made three- and four-input records must have one, or the tests above
// would compare the portable path with itself.
TEST(IsaEquivalence, RealLayoutsAreUsable) {
    struct Case {
        const char* from;
        const char* to;
    } const cases[] = {
        {"sRGB.icc", kClayRgb},                                          // 33 points, 3 outputs
        {"sRGB.icc", "ghostscript/default_cmyk.icc"},                    // 4 outputs
        {"ghostscript/default_cmyk.icc", "sRGB.icc"},                    // 17 points, 24 corner sets
        {"ghostscript/default_cmyk.icc", "ghostscript/default_cmyk.icc"},  //
    };
    for (const Case& c : cases) {
        const Built built = Build(c.from, c.to);
        EXPECT_EQ(built.m0->layout.usable, 1u) << c.from << " -> " << c.to;
        // Three inputs run on the weighted corner records.
        EXPECT_EQ(built.m0->layout.weighted.data != nullptr, built.m0->inputChannels == 3) << c.from;
    }
    for (uint32_t in : {3u, 4u}) {
        Method0Fixture fixture(in, 3, 7);
        EXPECT_EQ(fixture.t.layout.usable, 1u) << in << " inputs";
        EXPECT_EQ(fixture.t.layout.weighted.data != nullptr, in == 3) << in << " inputs";
    }
}

// What the packed layout cannot carry leaves it unusable (the portable path
// then runs); each case breaks one limit of a usable hand-made record.
TEST(IsaEquivalence, LayoutRefusesWhatItCannotCarry) {
    struct Case {
        const char* why;
        void (*spoil)(Method0Transform& t);
    } const cases[] = {
        {"a grid code above 255", [](Method0Transform& t) { U32(t.curvedGrid)[5] = 256; }},
        {"a weight above 31", [](Method0Transform& t) { t.simplex3[9].w[1] = 32; }},
        {"an offset between nodes", [](Method0Transform& t) { t.simplexInput[1][3].offset += 1; }},
        {"an index past the simplex table", [](Method0Transform& t) { t.simplexInput[0][0].index = 729; }},
        {"no simplex table", [](Method0Transform& t) { t.simplex3 = nullptr; }},
    };
    for (const Case& c : cases) {
        Method0Fixture fixture(3, 3, 11);
        c.spoil(fixture.t);
        BuildMethod0KernelLayout(&fixture.t);
        EXPECT_EQ(fixture.t.layout.usable, 0u) << c.why;
    }
}

}  // namespace
}  // namespace tintra3
