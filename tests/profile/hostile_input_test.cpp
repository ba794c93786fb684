// Damaged profiles: random mutations of real profiles must open or fail, and build or fail, without
// touching memory they do not own (run under the sanitizers). Deterministic seed.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>

#include "profile/profile_model.h"
#include "support/test_support.h"

namespace tintra3 {
namespace {

// Builds every model a transform could ask for and queries all its tables; returns how many were built.
int Exercise(const std::string& path) {
    ProfileFile f{};
    if (!OpenProfile(path.c_str(), &f)) return 0;
    int built = 0;
    for (uint16_t intent = 0; intent < 4; ++intent)
        for (uint32_t side = 0; side < 3; ++side) {  // source, destination, gamut check
            ProfileModel m{};
            const LutModel* l = &m.lut;
            const int ok = side ? BuildDestinationModel(intent, &f, side - 1, &m) : BuildSourceModel(intent, &f, &m);
            for (int c = 0; ok && c < 4; ++c) {
                ValueBuffer b[13] = {};
                (void)(LutInputTable16(l, c, &b[0]) + LutOutputTable16(l, c, &b[1]) + LutInputTable8(l, c, &b[2]) +
                       LutOutputTable8(l, c, &b[3]) + LutInputTable12(l, c, 1024, &b[4]) +
                       LutOutputTable8x4096(l, c, &b[5]) + LutOutputTable16x4096(l, c, &b[6]) +
                       CurveTable12(&m, c, 256, &b[7]) + CurveTable8x4096(&m, c, &b[8]) +
                       CurveTable16x4096(&m, c, &b[9]) + CurveTable8x256(&m, c, &b[10]) + LutClut16(l, &b[11]) +
                       LutClut8(l, &b[12]));
                for (ValueBuffer& v : b) FreeValueBuffer(&v);
            }
            ReleaseProfileModel(&m);
            built += ok;
        }
    CloseProfile(&f);
    return built;
}

TEST(HostileInput, MutatedProfilesFailCleanly) {
    std::vector<std::vector<uint8_t>> seeds;
    for (const char* name : {"sRGB.icc", "Gray.icc", "ghostscript/lab.icc", "ghostscript/ps_cmyk.icc",
                             "ghostscript/default_cmyk.icc"}) {
        std::ifstream f(test::RealProfile(name), std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
    std::mt19937 rng(20260101);
    int files = 0, withModels = 0;
    for (const std::vector<uint8_t>& s : seeds) {
        ASSERT_GT(s.size(), 132u);
        auto u32 = [&](size_t at) {  // big-endian, 0 past the end
            return at + 4 > s.size() ? 0 : uint32_t(s[at]) << 24 | s[at + 1] << 16 | s[at + 2] << 8 | s[at + 3];
        };
        // Where damage matters most: header, directory, each element's first bytes (counts, channels, grid).
        std::vector<size_t> hot;
        for (size_t i = 0; i < 132; ++i) hot.push_back(i);
        for (size_t d = 132; d < 132 + 12 * size_t(u32(128)) && d + 12 <= s.size(); d += 12)  // d: directory entry
            for (size_t i = 0; i < 68; ++i) hot.push_back(i < 12 ? d + i : u32(d + 4) + i - 12);  // then its element
        std::erase_if(hot, [&](size_t at) { return at >= s.size(); });
        for (int round = 0; round < (s.size() > 100000 ? 30 : 150); ++round, ++files) {
            std::vector<uint8_t> bytes = s;
            const uint32_t kind = rng() % 4;
            if (kind == 0) bytes.resize(rng() % bytes.size());  // truncation
            for (uint32_t f = 0, flips = kind ? 1 + rng() % 4 : 0; f < flips; ++f) {
                uint8_t& at = bytes[kind == 3 ? rng() % bytes.size() : hot[rng() % hot.size()]];
                const uint32_t how = rng() % 3;  // a bit flip, an extreme byte or a random byte
                at = how == 0 ? uint8_t(at ^ (1u << (rng() % 8))) : how == 1 ? 0xFF : uint8_t(rng());
            }
            withModels += Exercise(test::WriteTempFile("mutant.icc", bytes)) > 0;
        }
    }
    EXPECT_GT(files, 600);
    EXPECT_GT(withModels, files / 4);  // most damage still leaves something to build
}

}  // namespace
}  // namespace tintra3
