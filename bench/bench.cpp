// Throughput of the pixel kernels against LittleCMS 2 on the same profile
// pairs, and the cost of building a transform. Pixel counts are odd on
// purpose so that no kernel gets a power-of-two tail for free.
#include <benchmark/benchmark.h>
#include <lcms2.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "api/exports.h"

namespace {

const std::string kDir = TINTRA3_ICC_DIR;

struct Pair {
    const char* source;
    const char* destination;
    int inChannels;
    int outChannels;
};

const Pair kPairs[] = {
    {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 3, 3},
    {"sRGB.icc", "ghostscript/default_cmyk.icc", 3, 4},
    {"ghostscript/default_cmyk.icc", "sRGB.icc", 4, 3},
};

constexpr uint32_t kWidth = 1021;  // pixels per line
constexpr uint16_t kLines = 64;

std::vector<uint8_t> Noise(size_t n) {
    std::mt19937 rng(1234);
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

// args: pair index, method, output bits.
void BM_Tintra(benchmark::State& state) {
    const Pair& p = kPairs[state.range(0)];
    const auto method = static_cast<uint16_t>(state.range(1));
    const auto bitsOut = static_cast<uint16_t>(state.range(2));
    const std::string src = kDir + "/" + p.source, dst = kDir + "/" + p.destination;
    MatchingSelector sel{1, method, nullptr, 0};
    if (Initialize(&sel, src.c_str(), dst.c_str()) != 0) {
        state.SkipWithError("Initialize failed");
        TermMatchingSelector(&sel);
        return;
    }
    const size_t pixels = size_t{kWidth} * kLines;
    std::vector<uint8_t> in = Noise(pixels * p.inChannels);
    std::vector<uint8_t> out(pixels * p.outChannels * (bitsOut / 8));
    PixelRun a{in.data(), kLines}, b{out.data(), kLines};
    for (auto _ : state) {
        CMatching2(&sel, &a, &b, kWidth, static_cast<uint32_t>(in.size()), static_cast<uint32_t>(out.size()), 8,
                   bitsOut, 0);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pixels));
    TermMatchingSelector(&sel);
}

cmsUInt32Number Format(int channels, bool sixteen) {
    switch (channels) {
        case 1: return sixteen ? TYPE_GRAY_16 : TYPE_GRAY_8;
        case 3: return sixteen ? TYPE_RGB_16 : TYPE_RGB_8;
        default: return sixteen ? TYPE_CMYK_16 : TYPE_CMYK_8;
    }
}

// args: pair index, output bits.
void BM_LittleCms(benchmark::State& state) {
    const Pair& p = kPairs[state.range(0)];
    const bool sixteen = state.range(1) == 16;
    const std::string src = kDir + "/" + p.source, dst = kDir + "/" + p.destination;
    cmsHPROFILE hs = cmsOpenProfileFromFile(src.c_str(), "r");
    cmsHPROFILE hd = cmsOpenProfileFromFile(dst.c_str(), "r");
    cmsHTRANSFORM t = cmsCreateTransform(hs, Format(p.inChannels, false), hd, Format(p.outChannels, sixteen),
                                         INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    const size_t pixels = size_t{kWidth} * kLines;
    std::vector<uint8_t> in = Noise(pixels * p.inChannels);
    std::vector<uint8_t> out(pixels * p.outChannels * (sixteen ? 2 : 1));
    for (auto _ : state) {
        cmsDoTransform(t, in.data(), out.data(), static_cast<cmsUInt32Number>(pixels));
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * pixels));
    cmsDeleteTransform(t);
    cmsCloseProfile(hs);
    cmsCloseProfile(hd);
}

// Building a transform from two files; args: pair index, method.
void BM_TintraBuild(benchmark::State& state) {
    const Pair& p = kPairs[state.range(0)];
    const std::string src = kDir + "/" + p.source, dst = kDir + "/" + p.destination;
    for (auto _ : state) {
        MatchingSelector sel{1, static_cast<uint16_t>(state.range(1)), nullptr, 0};
        benchmark::DoNotOptimize(Initialize(&sel, src.c_str(), dst.c_str()));
        TermMatchingSelector(&sel);
    }
}

void PairsMethodsBits(benchmark::internal::Benchmark* b) {
    for (int pair = 0; pair < 3; ++pair)
        for (int method = 0; method < 2; ++method)
            for (int bits : {8, 16}) b->Args({pair, method, bits});
}

void PairsBits(benchmark::internal::Benchmark* b) {
    for (int pair = 0; pair < 3; ++pair)
        for (int bits : {8, 16}) b->Args({pair, bits});
}

void PairsMethods(benchmark::internal::Benchmark* b) {
    for (int pair = 0; pair < 3; ++pair)
        for (int method = 0; method < 2; ++method) b->Args({pair, method});
}

BENCHMARK(BM_Tintra)->Apply(PairsMethodsBits)->ArgNames({"pair", "method", "bits"});
BENCHMARK(BM_LittleCms)->Apply(PairsBits)->ArgNames({"pair", "bits"});
BENCHMARK(BM_TintraBuild)->Apply(PairsMethods)->ArgNames({"pair", "method"})->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
