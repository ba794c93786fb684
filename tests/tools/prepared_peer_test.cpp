// Every installed profile, prepared for the library as tintra prepares it,
// converts like LittleCMS reading the original file: relative colorimetric,
// method 1, mean Delta E*ab <= 1 on a 17^3 sRGB lattice through it as
// destination and back from it as source, paired with sRGB; grey profiles
// also to a CMYK printer. Profiles the library cannot use must be refused
// with a reason naming what is missing.
#include <gtest/gtest.h>
#include <lcms2.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_prepare.h"
#include "tools/iccwriter/icc_writer.h"

namespace {

using tintra3::icc::LibraryProblem;
using tintra3::icc::Role;
using tintra3::icc::Sig4;

constexpr int kRelative = 1;
constexpr double kMeanBound = 1.0;

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::vector<uint8_t> bytes;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    std::fclose(f);
    return bytes;
}

uint32_t HeaderField(const std::vector<uint8_t>& b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
}

int ChannelsOf(uint32_t space) {
    if (space == Sig4("GRAY")) return 1;
    if (space == Sig4("CMYK")) return 4;
    return 3;
}

// A profile as both engines get it: the original for the peer, the prepared
// file for the library.
struct Side {
    std::string name;
    std::vector<uint8_t> original;
    std::string libraryPath;
    int channels = 3;
};

Side MakeSide(const std::string& name, const std::vector<uint8_t>& original) {
    Side s;
    s.name = name;
    s.original = original;
    std::string stem = name;
    std::replace(stem.begin(), stem.end(), '/', '_');
    s.libraryPath = tintra3::test::WriteTempFile("prepared_" + stem, tintra3::icc::Prepare(original).bytes);
    s.channels = ChannelsOf(HeaderField(original, 16));
    return s;
}

// The sRGB profile of the tool's builtin:srgb (v2 matrix/TRC, 1024-entry curve).
std::vector<uint8_t> SrgbBytes() {
    std::vector<uint16_t> curve(1024);
    for (size_t i = 0; i < curve.size(); ++i) {
        const double v = double(i) / 1023.0;
        curve[i] = uint16_t(std::lround((v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4)) * 65535.0));
    }
    return tintra3::icc::MatrixTrcProfile({}, curve).Bytes();
}

std::vector<uint16_t> Lattice(int channels) {
    const int points = channels == 1 ? 256 : 17;
    size_t count = 1;
    for (int c = 0; c < channels; ++c) count *= size_t(points);
    std::vector<uint16_t> v;
    for (size_t i = 0; i < count; ++i) {
        size_t rest = i;
        for (int c = 0; c < channels; ++c) {
            v.push_back(uint16_t((rest % size_t(points)) * 65535 / size_t(points - 1)));
            rest /= size_t(points);
        }
    }
    return v;
}

cmsUInt32Number Format(cmsHPROFILE h) { return cmsFormatterForColorspaceOfProfile(h, 2, FALSE); }

std::vector<uint16_t> PeerConvert(const Side& src, const Side& dst, const std::vector<uint16_t>& in, size_t pixels) {
    cmsHPROFILE s = cmsOpenProfileFromMem(src.original.data(), cmsUInt32Number(src.original.size()));
    cmsHPROFILE d = cmsOpenProfileFromMem(dst.original.data(), cmsUInt32Number(dst.original.size()));
    std::vector<uint16_t> out;
    // The peer's exact evaluation of the profiles: its usual precalculated
    // device link differs from that itself by up to 1.8 mean on a 5-point
    // CMYK table (ghostscript's ps_cmyk), more than the library does.
    cmsHTRANSFORM t =
        s && d ? cmsCreateTransform(s, Format(s), d, Format(d), INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE)
               : nullptr;
    if (t) {
        out.resize(pixels * size_t(dst.channels));
        cmsDoTransform(t, in.data(), out.data(), cmsUInt32Number(pixels));
        cmsDeleteTransform(t);
    }
    if (s) cmsCloseProfile(s);
    if (d) cmsCloseProfile(d);
    return out;
}

std::vector<uint16_t> LibraryConvert(const Side& src, const Side& dst, const std::vector<uint16_t>& in,
                                     size_t pixels, uint32_t* status) {
    ImageParams image{uint32_t(pixels), 1, uint32_t(in.size() * 2), uint32_t(pixels * 4 * 2), 16, 16,
                      TINTRA_INTERLEAVED, 0};
    char names[512] = {};
    std::strncpy(names, src.libraryPath.c_str(), 255);
    std::strncpy(names + 256, dst.libraryPath.c_str(), 255);
    CColorMatcher* handle = nullptr;
    *status = QemToolboxInit(&image, names, 1, kRelative, &handle);
    std::vector<uint16_t> out(pixels * 4);
    if (*status == 0) {
        std::vector<uint16_t> input = in;
        PixelRun s{input.data(), 1}, d{out.data(), 1};
        *status = QemToolboxProc(&s, &d, handle);
    }
    QemToolboxPostProc(handle);
    out.resize(pixels * size_t(dst.channels));
    return out;
}

// Device values of `dst` to CIELAB through the peer's model of it.
std::vector<double> ToLab(const Side& dst, const std::vector<uint16_t>& device, size_t pixels) {
    cmsHPROFILE d = cmsOpenProfileFromMem(dst.original.data(), cmsUInt32Number(dst.original.size()));
    cmsHPROFILE lab = cmsCreateLab4Profile(nullptr);
    std::vector<double> out(pixels * 3);
    cmsHTRANSFORM t = cmsCreateTransform(d, Format(d), lab, TYPE_Lab_DBL, INTENT_RELATIVE_COLORIMETRIC, 0);
    if (t) {
        cmsDoTransform(t, device.data(), out.data(), cmsUInt32Number(pixels));
        cmsDeleteTransform(t);
    } else {
        out.clear();
    }
    cmsCloseProfile(lab);
    cmsCloseProfile(d);
    return out;
}

struct Figure {
    double mean = -1;  // -1: not measured
    double max = 0;
    std::string worst;  // the input values of the largest difference
    std::string failure;
};

// Converts `in` (device values of `src`) into `dst` with both engines and
// compares the two results as colours of `dst`.
Figure Measure(const Side& src, const Side& dst, const std::vector<uint16_t>& in) {
    const size_t pixels = in.size() / size_t(src.channels);
    Figure f;
    uint32_t status = 0;
    const std::vector<uint16_t> ours = LibraryConvert(src, dst, in, pixels, &status);
    if (status != 0) {
        f.failure = "library status " + std::to_string(status);
        return f;
    }
    const std::vector<uint16_t> peer = PeerConvert(src, dst, in, pixels);
    if (peer.empty()) {
        f.failure = "the peer builds no transform";
        return f;
    }
    const std::vector<double> labOurs = ToLab(dst, ours, pixels), labPeer = ToLab(dst, peer, pixels);
    if (labOurs.empty()) {
        f.failure = "the peer cannot read the destination's colours";
        return f;
    }
    double sum = 0;
    for (size_t p = 0; p < pixels; ++p) {
        double d2 = 0;
        for (size_t c = 0; c < 3; ++c) d2 += std::pow(labOurs[3 * p + c] - labPeer[3 * p + c], 2);
        sum += std::sqrt(d2);
        if (std::sqrt(d2) <= f.max) continue;
        f.max = std::sqrt(d2);
        f.worst.clear();
        for (int c = 0; c < src.channels; ++c) f.worst += std::to_string(in[p * size_t(src.channels) + size_t(c)]) + " ";
    }
    f.mean = sum / double(pixels);
    return f;
}

// Every profile the Debian profile packages install: icc-profiles-free,
// libgs-common and colord-data under the ICC folder, argyll's reference
// profiles in a folder of their own. Paths are absolute.
std::vector<std::string> InstalledProfiles() {
    namespace fs = std::filesystem;
    std::vector<std::string> names;
    for (const char* root : {TINTRA3_ICC_DIR, "/usr/share/color/argyll/ref"}) {
        std::error_code ec;
        for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
            std::string ext = it->path().extension().string();
            std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
            if (it->is_regular_file() && (ext == ".icc" || ext == ".icm")) names.push_back(it->path().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Classes the library has no use for, and the word the refusal must carry.
const struct {
    const char* deviceClass;
    const char* reason;
} kRefusedClasses[] = {
    {"nmcl", "named-colour"},  // a list of named colours (colord's Crayons, x11-colors)
    {"abst", "abstract"},      // PCS to PCS (CineLogCurve)
    {"link", "device link"},   // two devices joined; none installed, kept for completeness
};

// Grey profiles (the tool's own gray22 among them: it leads the list) also
// go into a Lab printer table.
TEST(PreparedPeer, EveryInstalledProfileConvertsLikeThePeerOrIsRefusedWithAReason) {
    const Side srgb = MakeSide("srgb", SrgbBytes());
    const Side cmyk = MakeSide("ghostscript/default_cmyk.icc",
                               ReadFile(tintra3::test::RealProfile("ghostscript/default_cmyk.icc")));
    std::vector<std::string> names = InstalledProfiles();
    ASSERT_GE(names.size(), 40u) << "profile packages missing under " << TINTRA3_ICC_DIR;
    names.insert(names.begin(), "builtin:gray22");
    int accepted = 0, refused = 0;
    double worst = 0;
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bytes = name == "builtin:gray22"
                                               ? tintra3::icc::GrayLightnessProfile(2.2).Bytes()
                                               : ReadFile(name);
        ASSERT_GE(bytes.size(), 132u);
        const std::string deviceClass(bytes.begin() + 12, bytes.begin() + 16);
        const Side p = MakeSide(name, bytes);
        std::vector<uint8_t> prepared = ReadFile(p.libraryPath);
        const std::string asSource = LibraryProblem(prepared, Role::kSource, kRelative);
        const std::string asDestination = LibraryProblem(prepared, Role::kDestination, kRelative);

        bool refusedClass = false;
        for (const auto& r : kRefusedClasses) {
            if (deviceClass != r.deviceClass) continue;
            refusedClass = true;
            EXPECT_NE(asSource.find(r.reason), std::string::npos) << asSource;
            EXPECT_NE(asDestination.find(r.reason), std::string::npos) << asDestination;
        }
        if (refusedClass) {
            ++refused;
            std::printf("%-40s refused: %s\n", name.c_str(), asSource.c_str());
            continue;
        }
        // Everything else the packages install must be usable one way at least.
        EXPECT_TRUE(asSource.empty() || asDestination.empty()) << asSource << " / " << asDestination;
        ++accepted;
        std::string line;
        const std::vector<uint16_t> srgbLattice = Lattice(3);
        if (asDestination.empty()) {
            const Figure f = Measure(srgb, p, srgbLattice);
            EXPECT_EQ(f.failure, "");
            EXPECT_LE(f.mean, kMeanBound) << "sRGB -> profile, max " << f.max << " at " << f.worst;
            worst = std::max(worst, f.mean);
            line += "  srgb->it mean " + std::to_string(f.mean).substr(0, 5) + " max " + std::to_string(f.max).substr(0, 5);
        }
        if (asSource.empty()) {
            // Three channels: the lattice itself. Otherwise the sRGB lattice as
            // the printer would print it: the colours its own tables produce
            // (a printer profile's table is modelled for those; a 9^4 lattice
            // mostly probes overinked corners no separation reaches).
            const std::vector<uint16_t> in =
                p.channels == 3 ? srgbLattice : PeerConvert(srgb, p, srgbLattice, srgbLattice.size() / 3);
            const Figure f = Measure(p, srgb, in);
            EXPECT_EQ(f.failure, "");
            EXPECT_LE(f.mean, kMeanBound) << "profile -> sRGB, max " << f.max << " at " << f.worst;
            worst = std::max(worst, f.mean);
            line += "  it->srgb mean " + std::to_string(f.mean).substr(0, 5) + " max " + std::to_string(f.max).substr(0, 5);
        }
        if (p.channels == 1) {
            const Figure f = Measure(p, cmyk, Lattice(1));
            EXPECT_EQ(f.failure, "");
            EXPECT_LE(f.mean, kMeanBound) << "grey -> CMYK, max " << f.max << " at " << f.worst;
            worst = std::max(worst, f.mean);
            line += "  it->cmyk mean " + std::to_string(f.mean).substr(0, 5) + " max " + std::to_string(f.max).substr(0, 5);
        }
        std::printf("%-40s%s\n", name.c_str(), line.c_str());
    }
    std::printf("accepted %d, refused %d, worst mean dE %.3f\n", accepted, refused, worst);
}

// Version-4 lookup tables as LittleCMS writes them ('mAB ' and 'mBA ' with
// parametric curves on the device side, a CLUT between): prepared as 'mft2',
// the library must convert as the peer does from the original.
struct V4Cargo {
    cmsHTRANSFORM transform;
    bool squareIn;   // the device side of the CLUT is the square of the device value
    bool squareOut;
};

int SampleThroughSquare(const cmsUInt16Number in[], cmsUInt16Number out[], void* cargo) {
    const V4Cargo* c = static_cast<const V4Cargo*>(cargo);
    cmsUInt16Number device[3];
    for (int i = 0; i < 3; ++i)
        device[i] = c->squareIn ? cmsUInt16Number(std::lround(std::sqrt(in[i] / 65535.0) * 65535.0)) : in[i];
    cmsDoTransform(c->transform, c->squareIn ? device : in, out, 1);
    if (c->squareOut)
        for (int i = 0; i < 3; ++i) out[i] = cmsUInt16Number(std::lround(std::pow(out[i] / 65535.0, 2.0) * 65535.0));
    return TRUE;
}

// A v4 RGB display profile of sRGB: A2B0 = [x^2 curves, CLUT, identity
// curves], B2A0 = [identity curves, CLUT, x^0.5 curves].
std::vector<uint8_t> LittleCmsV4Profile(bool labPcs, int grid) {
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    cmsHPROFILE pcs = labPcs ? cmsCreateLab4Profile(nullptr) : cmsCreateXYZProfile();
    const cmsUInt32Number pcsFormat = labPcs ? TYPE_Lab_16 : TYPE_XYZ_16;
    cmsHTRANSFORM toPcs = cmsCreateTransform(srgb, TYPE_RGB_16, pcs, pcsFormat, INTENT_RELATIVE_COLORIMETRIC,
                                             cmsFLAGS_NOOPTIMIZE);
    cmsHTRANSFORM fromPcs = cmsCreateTransform(pcs, pcsFormat, srgb, TYPE_RGB_16, INTENT_RELATIVE_COLORIMETRIC,
                                               cmsFLAGS_NOOPTIMIZE);
    cmsToneCurve* square = cmsBuildGamma(nullptr, 2.0);
    cmsToneCurve* root = cmsBuildGamma(nullptr, 0.5);
    cmsToneCurve* identity = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* squares[3] = {square, square, square};
    cmsToneCurve* roots[3] = {root, root, root};
    cmsToneCurve* identities[3] = {identity, identity, identity};

    cmsHPROFILE out = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(out, 4.3);
    cmsSetDeviceClass(out, cmsSigDisplayClass);
    cmsSetColorSpace(out, cmsSigRgbData);
    cmsSetPCS(out, labPcs ? cmsSigLabData : cmsSigXYZData);
    cmsWriteTag(out, cmsSigMediaWhitePointTag, cmsD50_XYZ());

    V4Cargo forward{toPcs, true, false}, inverse{fromPcs, false, true};
    cmsPipeline* a2b = cmsPipelineAlloc(nullptr, 3, 3);
    cmsStage* a2bClut = cmsStageAllocCLut16bit(nullptr, cmsUInt32Number(grid), 3, 3, nullptr);
    cmsStageSampleCLut16bit(a2bClut, SampleThroughSquare, &forward, 0);
    cmsPipelineInsertStage(a2b, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, squares));
    cmsPipelineInsertStage(a2b, cmsAT_END, a2bClut);
    cmsPipelineInsertStage(a2b, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, identities));
    cmsPipeline* b2a = cmsPipelineAlloc(nullptr, 3, 3);
    cmsStage* b2aClut = cmsStageAllocCLut16bit(nullptr, cmsUInt32Number(grid), 3, 3, nullptr);
    cmsStageSampleCLut16bit(b2aClut, SampleThroughSquare, &inverse, 0);
    cmsPipelineInsertStage(b2a, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, identities));
    cmsPipelineInsertStage(b2a, cmsAT_END, b2aClut);
    cmsPipelineInsertStage(b2a, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, roots));
    cmsWriteTag(out, cmsSigAToB0Tag, a2b);
    cmsWriteTag(out, cmsSigBToA0Tag, b2a);

    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(out, nullptr, &size);
    std::vector<uint8_t> bytes(size);
    cmsSaveProfileToMem(out, bytes.data(), &size);

    cmsPipelineFree(a2b);
    cmsPipelineFree(b2a);
    cmsFreeToneCurve(square);
    cmsFreeToneCurve(root);
    cmsFreeToneCurve(identity);
    cmsDeleteTransform(toPcs);
    cmsDeleteTransform(fromPcs);
    cmsCloseProfile(out);
    cmsCloseProfile(pcs);
    cmsCloseProfile(srgb);
    return bytes;
}

TEST(PreparedPeer, VersionFourTablesConvertLikeThePeer) {
    const Side srgb = MakeSide("srgb", SrgbBytes());
    const struct {
        const char* name;
        bool labPcs;
        int grid;
    } cases[] = {
        {"v4-lab-17", true, 17},  // Lab PCS: v4 encoding re-coded for the library on both sides
        {"v4-xyz-17", false, 17}, // XYZ PCS: the same scale in every encoding
        {"v4-lab-33", true, 33},  // a fine table: its nodes kept as they are
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> original = LittleCmsV4Profile(c.labPcs, c.grid);
        ASSERT_GT(original.size(), 132u);
        const std::string rawProblem = LibraryProblem(original, Role::kSource, kRelative);
        EXPECT_NE(rawProblem.find("'mAB '"), std::string::npos) << rawProblem;
        const Side p = MakeSide(c.name, original);
        const std::vector<uint8_t> prepared = ReadFile(p.libraryPath);
        EXPECT_EQ(LibraryProblem(prepared, Role::kSource, kRelative), "");
        EXPECT_EQ(LibraryProblem(prepared, Role::kDestination, kRelative), "");
        const std::vector<uint16_t> lattice = Lattice(3);
        const Figure in = Measure(srgb, p, lattice), out = Measure(p, srgb, lattice);
        EXPECT_EQ(in.failure, "");
        EXPECT_EQ(out.failure, "");
        EXPECT_LE(in.mean, kMeanBound) << "max " << in.max << " at " << in.worst;
        EXPECT_LE(out.mean, kMeanBound) << "max " << out.max << " at " << out.worst;
        std::printf("%-12s srgb->it %.3f/%.2f  it->srgb %.3f/%.2f\n", c.name, in.mean, in.max, out.mean, out.max);
    }
}

}  // namespace
