// The library against LittleCMS 2 in one process, on the same buffers:
// 16.8 MP of random pixels per case, relative colorimetric, one thread,
// megapixels per second of both and their ratio for methods 0 and 1, and the
// milliseconds each takes to set up a transform from two files.
//
//   tintra3_bench            every case (about a minute)
//   tintra3_bench --isa      only the kernel instruction set in use
//   tintra3_bench --quick    1 MP per case
//   tintra3_bench TEXT       only the cases whose name contains TEXT
//
// LittleCMS runs with its default flags. Times are the CPU time of the
// calling thread (wall time where the system has no such clock), each the
// best of a few repetitions taken in turns, so that other work on a shared
// machine hurts both libraries alike.
#include <lcms2.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "api/exports.h"
#include "kernels/kernels.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

// CPU time of this thread.
struct Clock {
    using time_point = double;
    static double now() {
#if defined(CLOCK_THREAD_CPUTIME_ID)
        timespec ts;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
#else
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
#endif
    }
};

const std::string kIcc = TINTRA3_ICC_DIR;
const std::string kClayRgb = "/usr/share/color/argyll/ref/ClayRGB1998.icm";

struct Case {
    const char* name;
    std::string source;
    std::string destination;
    int inChannels;
    int outChannels;
    int bits;  // input and output
};

double Seconds(double a, double b) { return b - a; }

cmsUInt32Number Format(int channels, int bits) {
    const bool sixteen = bits == 16;
    switch (channels) {
        case 1: return sixteen ? TYPE_GRAY_16 : TYPE_GRAY_8;
        case 3: return sixteen ? TYPE_RGB_16 : TYPE_RGB_8;
        default: return sixteen ? TYPE_CMYK_16 : TYPE_CMYK_8;
    }
}

// A 33-point mft2 table sampled from a LittleCMS transform between an RGB
// profile and v2 Lab, in either direction.
tintra3::icc::Lut SampledLut(cmsHPROFILE rgb, bool toLab) {
    cmsHPROFILE lab = cmsCreateLab2Profile(nullptr);
    cmsHTRANSFORM t = toLab ? cmsCreateTransform(rgb, TYPE_RGB_16, lab, TYPE_LabV2_16, INTENT_RELATIVE_COLORIMETRIC, 0)
                            : cmsCreateTransform(lab, TYPE_LabV2_16, rgb, TYPE_RGB_16, INTENT_RELATIVE_COLORIMETRIC, 0);
    constexpr int kPoints = 33;
    tintra3::icc::Lut lut;
    lut.gridPoints = kPoints;
    lut.inputTables.assign(3, std::vector<uint16_t>{0, 65535});
    lut.outputTables.assign(3, std::vector<uint16_t>{0, 65535});
    std::vector<uint16_t> nodes;
    for (int i = 0; i < kPoints; ++i) {
        for (int j = 0; j < kPoints; ++j) {
            for (int k = 0; k < kPoints; ++k) {
                for (int v : {i, j, k}) nodes.push_back(uint16_t((v * 65535 + (kPoints - 1) / 2) / (kPoints - 1)));
            }
        }
    }
    lut.clut.resize(nodes.size());
    cmsDoTransform(t, nodes.data(), lut.clut.data(), cmsUInt32Number(nodes.size() / 3));
    cmsDeleteTransform(t);
    cmsCloseProfile(lab);
    return lut;
}

// An RGB display profile made only of 33-point mft2 tables (A2B0 and B2A0,
// Lab PCS) that follow `model`.
std::string WriteLutProfile(const std::string& model, const std::string& path) {
    cmsHPROFILE rgb = cmsOpenProfileFromFile(model.c_str(), "r");
    const tintra3::icc::Lut a2b0 = SampledLut(rgb, true);
    const tintra3::icc::Lut b2a0 = SampledLut(rgb, false);
    cmsCloseProfile(rgb);
    tintra3::icc::ProfileWriter writer = tintra3::icc::LutProfile(
        tintra3::icc::Sig4("mntr"), tintra3::icc::Sig4("RGB "), tintra3::icc::Sig4("Lab "), &a2b0, &b2a0, true);
    writer.WriteFile(path);
    return path;
}

std::vector<uint8_t> Noise(size_t bytes, uint32_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<uint8_t> v(bytes);
    for (size_t i = 0; i + 8 <= bytes; i += 8) {
        const uint64_t r = rng();
        std::memcpy(&v[i], &r, 8);
    }
    return v;
}

struct Result {
    double tintra[2] = {0, 0};  // MP/s, methods 0 and 1
    double lcms = 0;
    double setupTintra[2] = {1e9, 1e9};  // ms
    double setupLcms = 1e9;
};

Result Run(const Case& c, uint32_t width, uint16_t lines, int repetitions) {
    Result r;
    const size_t pixels = size_t(width) * lines;
    const size_t sampleBytes = c.bits == 16 ? 2 : 1;
    const std::vector<uint8_t> in = Noise(pixels * c.inChannels * sampleBytes, 1234);
    std::vector<uint8_t> out(pixels * c.outChannels * sampleBytes);

    MatchingSelector selectors[2] = {{1, 0, nullptr, 0}, {1, 1, nullptr, 0}};
    cmsHTRANSFORM lcms = nullptr;
    for (int rep = 0; rep < repetitions; ++rep) {
        for (int m = 0; m < 2; ++m) {
            TermMatchingSelector(&selectors[m]);
            selectors[m] = MatchingSelector{1, uint16_t(m), nullptr, 0};
            const auto a = Clock::now();
            const uint32_t status = Initialize(&selectors[m], c.source.c_str(), c.destination.c_str());
            const auto b = Clock::now();
            if (status != 0) std::fprintf(stderr, "%s: Initialize method %d gave %u\n", c.name, m, status);
            r.setupTintra[m] = std::min(r.setupTintra[m], 1e3 * Seconds(a, b));
        }
        if (lcms != nullptr) cmsDeleteTransform(lcms);
        const auto a = Clock::now();
        cmsHPROFILE hs = cmsOpenProfileFromFile(c.source.c_str(), "r");
        cmsHPROFILE hd = cmsOpenProfileFromFile(c.destination.c_str(), "r");
        lcms = cmsCreateTransform(hs, Format(c.inChannels, c.bits), hd, Format(c.outChannels, c.bits),
                                  INTENT_RELATIVE_COLORIMETRIC, 0);
        cmsCloseProfile(hs);
        cmsCloseProfile(hd);
        const auto b = Clock::now();
        r.setupLcms = std::min(r.setupLcms, 1e3 * Seconds(a, b));
    }

    PixelRun source{const_cast<uint8_t*>(in.data()), lines};
    PixelRun destination{out.data(), lines};
    for (int rep = 0; rep < repetitions; ++rep) {
        for (int m = 0; m < 2; ++m) {
            const auto a = Clock::now();
            CMatching2(&selectors[m], &source, &destination, width, uint32_t(in.size()), uint32_t(out.size()),
                       uint16_t(c.bits), uint16_t(c.bits), 0);
            const auto b = Clock::now();
            r.tintra[m] = std::max(r.tintra[m], pixels / 1e6 / Seconds(a, b));
        }
        const auto a = Clock::now();
        cmsDoTransform(lcms, in.data(), out.data(), cmsUInt32Number(pixels));
        const auto b = Clock::now();
        r.lcms = std::max(r.lcms, pixels / 1e6 / Seconds(a, b));
    }
    cmsDeleteTransform(lcms);
    TermMatchingSelector(&selectors[0]);
    TermMatchingSelector(&selectors[1]);
    return r;
}

}  // namespace

int main(int argc, char** argv) {
    bool quick = false;
    const char* only = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--isa") == 0) {
            std::printf("kernels: %s\n", tintra3::IsaName(tintra3::ActiveIsa()));
            return 0;
        }
        if (std::strcmp(argv[i], "--quick") == 0) quick = true;
        else only = argv[i];
    }
    const std::filesystem::path tmp = std::filesystem::temp_directory_path();
    const std::string lutA = WriteLutProfile(kIcc + "/sRGB.icc", (tmp / "tintra3_bench_lut_srgb.icc").string());
    const std::string lutB = WriteLutProfile(kClayRgb, (tmp / "tintra3_bench_lut_clay.icc").string());

    const std::string srgb = kIcc + "/sRGB.icc";
    const std::string cmyk = kIcc + "/ghostscript/default_cmyk.icc";
    const std::string sgray = kIcc + "/ghostscript/sgray.icc";
    const Case cases[] = {
        {"sRGB -> ClayRGB, RGB8", srgb, kClayRgb, 3, 3, 8},
        {"sRGB -> CMYK, RGB8 -> CMYK8", srgb, cmyk, 3, 4, 8},
        {"CMYK -> sRGB, CMYK8 -> RGB8", cmyk, srgb, 4, 3, 8},
        {"lut -> lut RGB8 (33-point mft2)", lutA, lutB, 3, 3, 8},
        {"sRGB -> ClayRGB, RGB16", srgb, kClayRgb, 3, 3, 16},
        {"sRGB -> CMYK, RGB16 -> CMYK16", srgb, cmyk, 3, 4, 16},
        {"Gray -> sgray, 8-bit", kIcc + "/Gray.icc", sgray, 1, 1, 8},
        {"sgray -> sRGB, 8-bit", sgray, srgb, 1, 3, 8},
    };
    const uint32_t width = quick ? 1021 : 4096;
    const uint16_t lines = quick ? 1021 : 4096;
    const int repetitions = quick ? 2 : 3;
    std::printf("kernels: %s; %u x %u random pixels (%.1f MP), relative colorimetric, one thread, best of %d\n",
                tintra3::IsaName(tintra3::ActiveIsa()), width, lines, width * double(lines) / 1e6, repetitions);
    std::printf("%-33s %9s %9s %9s %7s %7s | %8s %8s %8s\n", "case", "lcms", "m0 MP/s", "m1 MP/s", "m0 x", "m1 x",
                "lcms ms", "m0 ms", "m1 ms");
    for (const Case& c : cases) {
        if (only != nullptr && std::strstr(c.name, only) == nullptr) continue;
        const Result r = Run(c, width, lines, repetitions);
        std::printf("%-33s %9.1f %9.1f %9.1f %7.2f %7.2f | %8.2f %8.2f %8.2f\n", c.name, r.lcms, r.tintra[0],
                    r.tintra[1], r.tintra[0] / r.lcms, r.tintra[1] / r.lcms, r.setupLcms, r.setupTintra[0],
                    r.setupTintra[1]);
        std::fflush(stdout);
    }
    std::filesystem::remove(lutA);
    std::filesystem::remove(lutB);
    return 0;
}
