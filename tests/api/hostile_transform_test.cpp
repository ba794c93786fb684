// Damaged profiles end to end: a mutated source or destination must give a
// status code, and whatever transform it yields must convert blocks of every
// layout and depth inside the caller's buffers (run under the sanitizers).
// Deterministic seed.
#include <fstream>
#include <iterator>
#include <random>

#include "api_fixtures.h"

namespace {

using namespace tintra3::test;

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

// Converts one small block in every layout, input depth and output depth the
// dispatch accepts; the buffers are sized for four channels of 16 bits, so a
// transform claiming more channels is refused by the size check or silently
// skipped, never written past.
void ConvertEverything(MatchingSelector* selector) {
    constexpr uint32_t kWidth = 5;
    constexpr uint16_t kLines = 3;
    std::vector<uint8_t> in = Ramp(kWidth * kLines * 4 * 2), out(kWidth * kLines * 255 * 2);
    for (uint16_t layout = 0; layout < 3; ++layout)
        for (uint16_t bitsIn : {8, 10, 12, 16})
            for (uint16_t bitsOut : {8, 16}) {
                PixelRun s{in.data(), kLines}, d{out.data(), kLines};
                CMatching2(selector, &s, &d, kWidth, uint32_t(in.size()), uint32_t(out.size()), bitsIn, bitsOut, layout);
                std::vector<uint8_t> copy = in;
                PixelRun p{copy.data(), kLines};
                CMatching1(selector, &p, kWidth, uint32_t(copy.size()), bitsIn, bitsIn == 8 ? 8 : 16, layout);
            }
}

TEST(HostileTransform, MutatedProfilesGiveCodesAndSafeTransforms) {
    const std::vector<std::string> names = {"sRGB.icc", "Gray.icc", "ghostscript/lab.icc", "ghostscript/ps_cmyk.icc"};
    std::vector<std::vector<uint8_t>> seeds;
    for (const std::string& n : names) seeds.push_back(ReadAll(RealProfile(n)));
    std::mt19937 rng(7);
    int built = 0, runs = 0;
    for (int round = 0; round < 120; ++round) {
        const size_t which = rng() % seeds.size();
        std::vector<uint8_t> bytes = seeds[which];
        // Damage the first 1 KiB (header, directory, the first elements' counts) or anywhere.
        for (uint32_t k = 0, flips = 1 + rng() % 6; k < flips; ++k) {
            const size_t span = rng() % 2 ? std::min<size_t>(bytes.size(), 1024) : bytes.size();
            bytes[rng() % span] = rng() % 2 ? uint8_t(rng()) : 0xFF;
        }
        const std::string mutant = WriteTempFile("hostile.icc", bytes);
        const std::string other = RealProfile(names[rng() % names.size()]);
        const bool asSource = rng() % 2;
        for (uint16_t method = 0; method < 2; ++method) {
            MatchingSelector sel{uint16_t(rng() % 4), method, nullptr, 0};
            const uint32_t status = asSource ? Initialize(&sel, mutant.c_str(), other.c_str())
                                             : Initialize(&sel, other.c_str(), mutant.c_str());
            EXPECT_TRUE(status == 0 || status == 1000 || status == 3000 || status == 3001 || status == 5000) << status;
            built += status == 0;
            ++runs;
            ConvertEverything(&sel);
            TermMatchingSelector(&sel);
        }
    }
    EXPECT_GT(built, runs / 10);  // the damage still leaves transforms to convert through
}

}  // namespace
