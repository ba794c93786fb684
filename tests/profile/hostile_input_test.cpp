// Damaged profiles: random mutations of real and crafted profiles must open
// or fail, and build or fail, without touching memory they do not own (run
// under the sanitizers). Deterministic seed; a few thousand files in all.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

#include "profile/profile_model.h"
#include "profile/tag_types.h"
#include "profile_fixtures.h"

namespace tintra3 {
namespace {

std::vector<uint8_t> ReadAll(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

uint32_t GetU32(const std::vector<uint8_t>& b, size_t at) {
    return at + 4 <= b.size() ? (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3]
                              : 0;
}

// Asks for every table a builder would, freeing each.
void QueryAndFree(const ProfileModel& m) {
    for (int c = 0; c < 4; ++c) {
        for (int q = 0; q < 13; ++q) {
            ValueBuffer b{};
            const LutModel* l = &m.lut;
            const int ok[] = {q == 0 && LutInputTable16(l, c, &b),       q == 1 && LutOutputTable16(l, c, &b),
                              q == 2 && LutInputTable8(l, c, &b),        q == 3 && LutOutputTable8(l, c, &b),
                              q == 4 && LutInputTable12(l, c, 1024, &b), q == 5 && LutOutputTable8x4096(l, c, &b),
                              q == 6 && LutOutputTable16x4096(l, c, &b), q == 7 && CurveTable12(&m, c, 256, &b),
                              q == 8 && CurveTable8x4096(&m, c, &b),     q == 9 && CurveTable16x4096(&m, c, &b),
                              q == 10 && CurveTable8x256(&m, c, &b),     q == 11 && LutClut16(l, &b),
                              q == 12 && LutClut8(l, &b)};
            (void)ok;
            FreeValueBuffer(&b);
        }
    }
}

// Returns how many models were built (so the test can see that mutants get
// past the open).
int Exercise(const std::string& path) {
    test::OpenedProfile p(path);
    if (!p.opened) return 0;
    int built = 0;
    for (uint16_t intent = 0; intent < 4; ++intent) {
        for (int side = 0; side < 3; ++side) {
            test::ScopedModel m;
            const int ok = side == 0 ? BuildSourceModel(intent, &p.file, &m.model)
                                     : BuildDestinationModel(intent, &p.file, uint32_t(side - 1), &m.model);
            if (!ok) continue;
            QueryAndFree(m.model);
            ++built;
        }
    }
    return built;
}

TEST(HostileInput, MutatedProfilesFailCleanly) {
    std::vector<std::vector<uint8_t>> seeds;
    for (const char* name : {"sRGB.icc", "Gray.icc", "ghostscript/lab.icc", "ghostscript/ps_cmyk.icc",
                             "ghostscript/default_cmyk.icc"})
        seeds.push_back(ReadAll(test::RealProfile(name)));
    icc::Lut lut16 = icc::IdentityLut(3, 3, 4);
    seeds.push_back(icc::LutProfile(kSigPrtr, icc::Sig4("RGB "), kSigLab, &lut16, &lut16, true).Bytes());

    std::mt19937 rng(20260101);
    const std::string path = test::TempPath("mutant.icc");
    int files = 0, withModels = 0;
    for (const std::vector<uint8_t>& seed : seeds) {
        ASSERT_GT(seed.size(), 132u);
        // Where damage matters most: the header, the directory, and the
        // first bytes of every element (counts, channels, grid points).
        std::vector<size_t> hot;
        for (size_t i = 0; i < 132; ++i) hot.push_back(i);
        const uint32_t count = GetU32(seed, 128);
        for (uint32_t t = 0; t < count && 132 + 12 * t + 12 <= seed.size(); ++t) {
            for (size_t i = 0; i < 12; ++i) hot.push_back(132 + 12 * t + i);
            const uint32_t offset = GetU32(seed, 132 + 12 * t + 4);
            for (size_t i = 0; i < 56 && offset + i < seed.size(); ++i) hot.push_back(offset + i);
        }
        const int rounds = seed.size() > 100000 ? 60 : 400;
        for (int round = 0; round < rounds; ++round) {
            std::vector<uint8_t> bytes = seed;
            const int kind = int(rng() % 4);
            if (kind == 0) {
                bytes.resize(rng() % bytes.size());  // truncation
            } else {
                const int flips = 1 + int(rng() % 4);
                for (int f = 0; f < flips; ++f) {
                    const size_t at = kind == 3 ? rng() % bytes.size() : hot[rng() % hot.size()];
                    // Bit flips, extreme bytes, or random bytes.
                    const uint32_t how = rng() % 3;
                    bytes[at] = how == 0 ? uint8_t(bytes[at] ^ (1u << (rng() % 8))) : how == 1 ? 0xFF : uint8_t(rng());
                }
            }
            std::ofstream(path, std::ios::binary | std::ios::trunc)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
            withModels += Exercise(path) > 0 ? 1 : 0;
            ++files;
        }
    }
    EXPECT_GT(files, 2000);
    EXPECT_GT(withModels, files / 4);  // most damage still leaves something to build
}

}  // namespace
}  // namespace tintra3
