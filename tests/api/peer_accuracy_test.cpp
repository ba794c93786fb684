// Accuracy against a peer engine: the same profile pairs converted by this
// library and by LittleCMS 2, both results measured in CIELAB (D50) through
// LittleCMS's own model of the destination profile.
//
// The engines differ by design, so the bounds are not zero:
//  - grid size and interpolation (32-point multilinear or 33/17-point
//    tetrahedral here; LittleCMS optimises into its own precalculated
//    pipelines);
//  - Lab encoding: tables are decoded with L = code x 100/65535 while v2 lut
//    profiles store L with 65280 as 100 (about 0.4 L* at white, less below);
//  - no chromatic adaptation and no black-point compensation here;
//  - method 0 holds 8-bit codes in the grid: in linear light (matrix
//    sources) that costs several codes near black, and CMYK input uses a
//    17-point grid with the mirrored 4-D simplex pairing.
// A misread formula (a wrong matrix order, a swapped intent, a bad encoding)
// shows up as errors of tens of Delta E, far above these bounds.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"

namespace {

using tintra3::test::RealProfile;

struct PeerCase {
    const char* source;
    const char* destination;
    int inChannels;
    int outChannels;
    uint16_t method;
    double meanBound;  // mean Delta E*ab
    double maxBound;   // largest Delta E*ab
    const char* why;
};

// Bounds: measured figures with headroom (see the notes at the top of the file).
const PeerCase kCases[] = {
    {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3, 1, 0.5, 3.0, "matrix to matrix, 16-bit"},
    {"compatibleWithAdobeRGB1998.icc", "sRGB.icc", 3, 3, 1, 0.5, 3.0, "matrix to matrix, clipped gamut"},
    {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4, 1, 2.0, 8.0, "matrix to 8-bit B2A lut"},
    {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3, 1, 2.0, 8.0, "16-bit A2B lut, 16-point grid"},
    {"Gray.icc", "sRGB.icc", 1, 3, 1, 1.0, 4.0, "grey to matrix"},
    {"sRGB.icc", "Gray-CIE_L.icc", 3, 1, 1, 1.0, 4.0, "matrix to grey with Lab PCS"},
    {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3, 0, 1.5, 8.0, "8-bit grid in linear light"},
    {"compatibleWithAdobeRGB1998.icc", "sRGB.icc", 3, 3, 0, 1.5, 8.0, "8-bit grid in linear light"},
    {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4, 0, 3.0, 12.0, "8-bit tetrahedral into a lut"},
    {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3, 0, 4.0, 20.0, "17-point 4-D simplex, mirrored"},
    {"Gray.icc", "sRGB.icc", 1, 3, 0, 1.5, 6.0, "grey to matrix, 8-bit"},
    {"sRGB.icc", "Gray-CIE_L.icc", 3, 1, 0, 1.5, 6.0, "matrix to grey, 8-bit"},
};

cmsUInt32Number LcmsFormat(int channels, bool sixteen) {
    switch (channels) {
        case 1: return sixteen ? TYPE_GRAY_16 : TYPE_GRAY_8;
        case 3: return sixteen ? TYPE_RGB_16 : TYPE_RGB_8;
        default: return sixteen ? TYPE_CMYK_16 : TYPE_CMYK_8;
    }
}

// Every input colour: a full lattice of 8-bit codes.
std::vector<uint8_t> Lattice(int channels) {
    const int steps = channels == 4 ? 9 : channels == 3 ? 17 : 256;
    std::vector<uint8_t> out;
    int total = 1;
    for (int c = 0; c < channels; ++c) total *= steps;
    for (int i = 0; i < total; ++i) {
        int rest = i;
        for (int c = 0; c < channels; ++c) {
            int k = rest % steps;
            rest /= steps;
            out.push_back(static_cast<uint8_t>(std::min(255, k * 256 / (steps - 1))));
        }
    }
    return out;
}

std::vector<cmsCIELab> ToLab(cmsHPROFILE device, int channels, const std::vector<uint16_t>& pixels) {
    cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
    cmsHTRANSFORM t = cmsCreateTransform(device, LcmsFormat(channels, true), lab, TYPE_Lab_DBL,
                                         INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    std::vector<cmsCIELab> out(pixels.size() / channels);
    cmsDoTransform(t, pixels.data(), out.data(), static_cast<cmsUInt32Number>(out.size()));
    cmsDeleteTransform(t);
    cmsCloseProfile(lab);
    return out;
}

class PeerAccuracy : public ::testing::TestWithParam<PeerCase> {};

TEST_P(PeerAccuracy, StaysWithinExplainedBounds) {
    const PeerCase& pc = GetParam();
    const std::string src = RealProfile(pc.source);
    const std::string dst = RealProfile(pc.destination);
    const std::vector<uint8_t> input = Lattice(pc.inChannels);
    const uint32_t pixels = static_cast<uint32_t>(input.size() / pc.inChannels);

    // This library: caller intent 1 is relative colorimetric.
    MatchingSelector selector{1, pc.method, nullptr, 0};
    ASSERT_EQ(Initialize(&selector, src.c_str(), dst.c_str()), 0u);
    std::vector<uint16_t> ours(static_cast<size_t>(pixels) * pc.outChannels);
    // One line per run: PixelRun lines are 16-bit, so feed lines of 64 pixels.
    const uint32_t width = 64;
    for (uint32_t first = 0; first < pixels; first += width) {
        const uint32_t n = std::min(width, pixels - first);
        PixelRun in{const_cast<uint8_t*>(input.data()) + first * pc.inChannels, 1};
        PixelRun out{ours.data() + first * pc.outChannels, 1};
        ASSERT_EQ(CMatching2(&selector, &in, &out, n, n * pc.inChannels, n * pc.outChannels * 2, 8, 16, 0), 0u);
    }
    TermMatchingSelector(&selector);

    // The peer.
    cmsHPROFILE hs = cmsOpenProfileFromFile(src.c_str(), "r");
    cmsHPROFILE hd = cmsOpenProfileFromFile(dst.c_str(), "r");
    ASSERT_TRUE(hs && hd);
    cmsHTRANSFORM t = cmsCreateTransform(hs, LcmsFormat(pc.inChannels, false), hd, LcmsFormat(pc.outChannels, true),
                                         INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    ASSERT_NE(t, nullptr);
    std::vector<uint16_t> theirs(ours.size());
    cmsDoTransform(t, input.data(), theirs.data(), pixels);
    cmsDeleteTransform(t);

    const auto a = ToLab(hd, pc.outChannels, ours);
    const auto b = ToLab(hd, pc.outChannels, theirs);
    cmsCloseProfile(hs);
    cmsCloseProfile(hd);

    double sum = 0, worst = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const double de = cmsDeltaE(&a[i], &b[i]);
        sum += de;
        worst = std::max(worst, de);
    }
    const double mean = sum / a.size();
    std::printf("[peer] method %u %s -> %s: %u colours, mean dE %.3f, max dE %.3f (%s)\n", pc.method, pc.source,
                pc.destination, pixels, mean, worst, pc.why);
    RecordProperty("mean_delta_e", std::to_string(mean));
    RecordProperty("max_delta_e", std::to_string(worst));
    EXPECT_LT(mean, pc.meanBound);
    EXPECT_LT(worst, pc.maxBound);
}

std::string CaseName(const ::testing::TestParamInfo<PeerCase>& info) {
    std::string name = "m" + std::to_string(info.param.method) + "_" + info.param.source + "_to_" +
                       info.param.destination;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(RealProfiles, PeerAccuracy, ::testing::ValuesIn(kCases), CaseName);

}  // namespace
