// Profiles and helpers shared by the builder tests: synthetic profiles written
// to temporary files, opening a pair, and the luts both builders refuse.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "profile/profile_file.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"
#include "transform/method0.h"
#include "transform/method1.h"

namespace tintra3::test {

using Method0Record = std::unique_ptr<Method0Transform, decltype(&DestroyMethod0Transform)>;
using Method1Record = std::unique_ptr<Method1Transform, decltype(&DestroyMethod1Transform)>;

inline std::string File(const icc::ProfileWriter& w) {
    static int n = 0;
    return WriteTempFile("builders_" + std::to_string(n++) + ".icc", w.Bytes());
}

inline std::string LutFile(const char (&space)[5], uint32_t pcs, const icc::Lut& l, bool sixteenBit = true) {
    return File(icc::LutProfile(icc::Sig4("scnr"), icc::Sig4(space), pcs, &l, &l, sixteenBit));
}

// Opens both profiles, runs f on them and closes them; -1 when one does not open.
template <typename F>
int WithProfiles(const std::string& s, const std::string& d, F f) {
    ProfileFile a{};
    ProfileFile b{};
    const bool okA = OpenProfile(s.c_str(), &a) == 1;
    const bool okB = OpenProfile(d.c_str(), &b) == 1;
    const int result = okA && okB ? f(&a, &b) : -1;
    if (okA) CloseProfile(&a);
    if (okB) CloseProfile(&b);
    return result;
}

// Profiles both builders refuse: luts whose lookups would index outside their tables; a header without tags.
struct Unusable {
    std::string twoInputs;
    std::string onePoint;
    std::string oneEntry;
    std::string fourInputs;
    std::string bare;
};

inline Unusable MakeUnusable() {
    icc::Lut two;
    two.inputChannels = 2;  // a grid of two dimensions
    two.inputTables.assign(2, std::vector<uint16_t>(256, 0));
    two.clut.assign(3 * 4, 128);
    two.outputTables.assign(3, std::vector<uint16_t>(256, 0));
    // One grid point has no cell, one table entry no segment; a destination lut must take a PCS triple.
    const icc::Lut one = icc::IdentityLut(3, 1, 256);
    const icc::Lut entry = icc::IdentityLut(3, 2, 1);
    const icc::Lut four = icc::IdentityLut(4, 2, 256);
    return {LutFile("2CLR", kSigLab, two), LutFile("RGB ", kSigLab, one), LutFile("RGB ", kSigLab, entry),
            LutFile("CMYK", kSigLab, four), File(icc::ProfileWriter())};
}

}  // namespace tintra3::test
