// Accuracy against a peer engine: pairs converted here (caller intent 1, relative colorimetric; D50
// profiles: no adaptation or black-point compensation) and by LittleCMS 2, compared as Delta E*ab in
// CIELAB through LittleCMS's model of the destination. Each pair's worst colours were traced by hand
// (grid nodes and weights recomputed) to these causes:
//  G  grid regular in linear light (matrix, grey sources): its first cell spans L* 0..20, so anything
//     far from linear there (gamma-coded codes, L*, a separation) is coarse;
//  C  out-of-gamut nodes clipped one by one: a cell across the gamut boundary mixes clipped and unclipped
//     nodes, even for an in-gamut colour inside it;
//  Q  method-1 output tables indexed by a 12-bit linear value: a gamma-2.2 curve's first step is ~1500/65535;
//  E  method 0 holds 8-bit codes in linear light: near black one code is several L*; 1-channel 16-bit
//     output is code << 8 (white 65280);
//  M  method 0, four inputs: the kept mirrored pairing of fractions and strides in the 4-D simplex records
//     (and channel 0's 16-bit index wrap) steps along the wrong axis: yellow 255 lands a node on in magenta;
//  L  v2 luts store L* 100 as 65280, decoded here with 65535 (<= 0.4 L*, at white) and interpolated
//     trilinearly here, in tetrahedra there.
// Bounds hold over all colours and over the core: no RGB/grey input below 64 (G, E), no RGB output of the
// peer below 10% (C, Q). A misread formula (matrix order, intent, encoding) is tens of Delta E in the core.
#include <lcms2.h>

#include <algorithm>
#include <cmath>

#include "api_fixtures.h"

namespace {

using namespace tintra3::test;

const char *kS = "sRGB.icc", *kA = "compatibleWithAdobeRGB1998.icc", *kCmyk = "ghostscript/default_cmyk.icc",
           *kGrayL = "Gray-CIE_L.icc";
// Measured mean/max over all colours, then over the core; the worst colour and its cause.
const struct {
    const char *source, *destination;
    int in, out, method;
    double allMean, allMax, coreMean, coreMax;  // the measured figures plus headroom
} kCases[] = {
    {kS, kA, 3, 3, 1, 0.06, 0.8, 0.04, 0.2},       // 0.031/0.55, 0.018/0.08; (176,32,0): blue ~0.02 linear, Q
    {kA, kS, 3, 3, 1, 0.4, 7.5, 0.06, 1.0},        // 0.24/6.13, 0.031/0.62; (32,64,16): red clipped nearby, C
    {kS, kCmyk, 3, 4, 1, 0.9, 8.0, 0.9, 3.5},      // 0.66/6.78, 0.66/2.81; (32,32,96) where B2A folds, G; L
    {kCmyk, kS, 4, 3, 1, 0.25, 2.5, 0.25, 0.9},    // 0.15/1.77, 0.14/0.60; (224,32,224,0): red clipped, C; L
    {kGrayL, kS, 1, 3, 1, 0.06, 0.5, 0.03, 0.1},   // 0.021/0.25, 0.011/0.05; grey 11 (L* 4), Q
    {kS, kGrayL, 3, 1, 1, 0.1, 2.3, 0.04, 0.4},    // 0.061/1.83, 0.019/0.28; (32,32,0): 9.86 L*, true 11.7, G
    {kS, kA, 3, 3, 0, 1.5, 15.0, 0.7, 2.0},        // 1.17/13.5, 0.47/1.46; (0,32,48): green code 4 of 8, E
    {kA, kS, 3, 3, 0, 1.2, 10.5, 0.7, 3.0},        // 0.93/8.9, 0.49/2.36; (32,0,48), E; then C
    {kS, kCmyk, 3, 4, 0, 0.8, 9.0, 0.7, 4.5},      // 0.57/7.47, 0.48/3.47; (64,32,80), out of gamut, G
    {kCmyk, kS, 4, 3, 0, 3.0, 14.5, 3.0, 14.5},    // 2.47/12.3, core alike; (64,0,255,0), M (straight: 1.00/4.13)
    {kGrayL, kS, 1, 3, 0, 0.45, 2.5, 0.35, 0.9},   // 0.35/1.85, 0.25/0.63; grey 14: linear code 2 of 255, E
    {kS, kGrayL, 3, 1, 0, 0.45, 3.0, 0.45, 1.1},   // 0.33/2.37, 0.33/0.81; (16,16,80): first linear cell, G, E
};
// By hand: Adobe (32,64,16) interpolates 0.0114 linear red, true 0.0046; sRGB (0,32,48) at method 0 lies
// between curved codes 0 and 53 (26.5; true 37). LittleCMS on a 32-point linear grid, trilinear, differs
// from itself by 0.37/6.6 (core max 3.5) for sRGB to CMYK; the CMYK grid re-interpolated with each fraction
// paired with its own stride, no index wrap, gives 1.00/4.13 (17-point grid, 8-bit codes, L).

cmsUInt32Number Format(int n, int bytes) {
    return COLORSPACE_SH(n == 1 ? PT_GRAY : n == 3 ? PT_RGB : PT_CMYK) | CHANNELS_SH(n) | BYTES_SH(bytes);
}

// The peer's conversion of `pixels` pixels into `perPixel` values of T each.
template <class T>
std::vector<T> Peer(cmsHPROFILE from, cmsUInt32Number fromFormat, cmsHPROFILE to, cmsUInt32Number toFormat,
                    const void* input, size_t pixels, size_t perPixel, cmsUInt32Number flags) {
    std::vector<T> out(pixels * perPixel);
    cmsHTRANSFORM t = cmsCreateTransform(from, fromFormat, to, toFormat, INTENT_RELATIVE_COLORIMETRIC, flags);
    EXPECT_NE(t, nullptr);
    if (t) {
        cmsDoTransform(t, input, out.data(), cmsUInt32Number(pixels));
        cmsDeleteTransform(t);
    }
    return out;
}

// 16-bit device values of `device` to CIELAB D50 as LittleCMS models them.
std::vector<cmsCIELab> ToLab(cmsHPROFILE device, int channels, const std::vector<uint16_t>& pixels) {
    cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
    auto out = Peer<cmsCIELab>(device, Format(channels, 2), lab, TYPE_Lab_DBL, pixels.data(),
                               pixels.size() / channels, 1, cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    cmsCloseProfile(lab);
    return out;
}

// Every 8-bit code for grey; steps of 16 (then 255) for RGB, of 32 for CMYK.
std::vector<uint8_t> Lattice(int channels) {
    const int steps = channels == 4 ? 9 : channels == 3 ? 17 : 256;
    std::vector<uint8_t> out;
    for (int i = 0, total = int(std::pow(steps, channels)); i < total; ++i)
        for (int c = 0, rest = i; c < channels; ++c, rest /= steps)
            out.push_back(uint8_t(std::min(255, rest % steps * 256 / (steps - 1))));
    return out;
}

// 8-bit input to 16-bit output through this library's selector, 64 pixels a run.
std::vector<uint16_t> Ours(const std::string& src, const std::string& dst, uint16_t method,
                           const std::vector<uint8_t>& input, int in, int out) {
    MatchingSelector s{1, method, nullptr, 0};
    EXPECT_EQ(Initialize(&s, src.c_str(), dst.c_str()), 0u);
    const uint32_t pixels = uint32_t(input.size() / in);
    std::vector<uint16_t> result(size_t(pixels) * out);
    for (uint32_t first = 0, n; s.transform && first < pixels; first += 64) {
        n = std::min(64u, pixels - first);
        PixelRun i{const_cast<uint8_t*>(input.data()) + first * in, 1}, o{result.data() + first * out, 1};
        EXPECT_EQ(CMatching2(&s, &i, &o, n, n * in, n * out * 2, 8, 16, 0), 0u);
    }
    TermMatchingSelector(&s);
    return result;
}

TEST(PeerAccuracy, StaysWithinExplainedBounds) {
    for (const auto& pc : kCases) {
        SCOPED_TRACE(testing::Message() << "method " << pc.method << " " << pc.source << " -> " << pc.destination);
        const std::vector<uint8_t> input = Lattice(pc.in);
        const std::string src = RealProfile(pc.source), dst = RealProfile(pc.destination);
        cmsHPROFILE hs = cmsOpenProfileFromFile(src.c_str(), "r"), hd = cmsOpenProfileFromFile(dst.c_str(), "r");
        ASSERT_TRUE(hs && hd);
        const auto peer = Peer<uint16_t>(hs, Format(pc.in, 1), hd, Format(pc.out, 2), input.data(),
                                           input.size() / pc.in, pc.out, cmsFLAGS_NOCACHE);
        const auto a = ToLab(hd, pc.out, Ours(src, dst, pc.method, input, pc.in, pc.out)), b = ToLab(hd, pc.out, peer);
        cmsCloseProfile(hs);
        cmsCloseProfile(hd);
        double sum[2] = {}, max[2] = {};
        size_t count[2] = {};
        for (size_t i = 0; i < a.size(); ++i) {
            bool core = true;
            for (int c = 0; pc.in != 4 && c < pc.in; ++c) core &= input[i * pc.in + c] >= 64;
            for (int c = 0; pc.out != 4 && c < pc.out; ++c) core &= peer[i * pc.out + c] >= 6554;
            const double de = cmsDeltaE(&a[i], &b[i]);
            for (int k = 0; k <= int(core); ++k) sum[k] += de, max[k] = std::max(max[k], de), ++count[k];
        }
        ASSERT_GT(count[1], 100u);
        EXPECT_LT(sum[0] / count[0], pc.allMean);
        EXPECT_LT(max[0], pc.allMax);
        EXPECT_LT(sum[1] / count[1], pc.coreMean);
        EXPECT_LT(max[1], pc.coreMax);
    }
}

}  // namespace
