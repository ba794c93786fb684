// Fixtures shared by the programs that test the exported interface.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3::test {

inline const std::string kSrgb = RealProfile("sRGB.icc"), kAdobe = RealProfile("compatibleWithAdobeRGB1998.icc");

// Also the toolbox's 512-byte name block: two 256-byte paths back to back.
inline ProfileNames Names(const std::string& source, const std::string& destination) {
    ProfileNames n{};
    std::snprintf(n.sourceProfile, sizeof n.sourceProfile, "%s", source.c_str());
    std::snprintf(n.destinationProfile, sizeof n.destinationProfile, "%s", destination.c_str());
    return n;
}

// 8-bit samples touching every channel with different phases.
inline std::vector<uint8_t> Ramp(size_t bytes) {
    std::vector<uint8_t> p(bytes);
    for (size_t i = 0; i < bytes; ++i) p[i] = uint8_t(i * 37 + i / 3);
    return p;
}

// An ICC display profile with no tags: no builder can use it.
inline std::string NoTagsProfile() {
    const std::string path = TempPath("no-tags.icc");
    EXPECT_TRUE(icc::ProfileWriter().WriteFile(path));
    return path;
}

// A printer lut profile with its table under one A2B tag only: it builds only
// when the intent reaches the model as the code that picks that tag.
inline std::string WritePrinterWithOnly(uint32_t tag, const std::string& path) {
    icc::ProfileWriter w;
    w.header.deviceClass = icc::Sig4("prtr");
    w.AddTag(icc::Sig4("wtpt"), icc::XyzElement({{0.9642, 1.0, 0.8249}}));
    w.AddTag(tag, icc::Mft2Element(icc::IdentityLut(3, 2, 256)));
    EXPECT_TRUE(w.WriteFile(path));
    return path;
}

// A matcher as the toolbox makes it: zeroed, so the selector starts empty.
struct Matcher {
    CColorMatcher m{};
    Matcher(const ImageParams& im, uint16_t method, const std::string& src = kSrgb, const std::string& dst = kAdobe,
            uint16_t intent = 0) {
        const MatchingParams p{intent, method, nullptr, 0};
        const ProfileNames n = Names(src, dst);
        InitCColorMatcher(&m, &p, &im, &n);
    }
    ~Matcher() { TermCColorMatcher(&m); }
    uint32_t status() const { return CMGetError(&m); }
    // One line through ColorMatchingProc2 into a destination pre-filled with 0xAB; status -1: not checked.
    std::vector<uint8_t> Convert(std::vector<uint8_t> in, size_t outBytes, int64_t expected = 0) {
        std::vector<uint8_t> out(outBytes, 0xAB);
        PixelRun s{in.data(), 1}, d{out.data(), 1};
        const uint32_t status = ColorMatchingProc2(&m, &s, &d);
        EXPECT_TRUE(expected < 0 || status == expected) << status;
        return out;
    }
};

}  // namespace tintra3::test
