// Built-in profiles and the loading of profile arguments.
//
// builtin:srgb    v2 'mntr' RGB matrix/TRC: sRGB primaries adapted to D50,
//                 a 1024-entry sRGB tone curve.
// builtin:gray22  v2 'mntr' GRAY with Lab PCS: luminance gamma 2.2 as a
//                 4096-entry lightness curve.
// builtin:cmyk    v2 'prtr' CMYK with Lab PCS: A2B0/1/2 and B2A0/1/2 as 'mft2'
//                 tags sampled from the analytical ink model below.
// builtin:lab     v2 'spac' Lab -> Lab identity (2-point 'mft2' luts): as a
//                 destination it turns any colour into 16-bit Lab codes.
#include "tools/tintra/profiles.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>

#include "tools/iccwriter/icc_prepare.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3::cli {

using icc::Sig4;

namespace {

// D50 white and the sRGB primaries adapted to it (columns R, G, B).
constexpr double kD50[3] = {0.9642, 1.0, 0.8249};
const icc::Primaries kPrimaries{};

// ---- CIE helpers (the tool's own, in double precision) ---------------------

double LabF(double t) {
    constexpr double e = 216.0 / 24389.0, k = 24389.0 / 27.0;
    return t > e ? std::cbrt(t) : (k * t + 16.0) / 116.0;
}

double LabFInv(double f) {
    constexpr double e = 216.0 / 24389.0, k = 24389.0 / 27.0;
    const double f3 = f * f * f;
    return f3 > e ? f3 : (116.0 * f - 16.0) / k;
}

void XyzToLabD50(const double xyz[3], double lab[3]) {
    const double fx = LabF(xyz[0] / kD50[0]), fy = LabF(xyz[1] / kD50[1]), fz = LabF(xyz[2] / kD50[2]);
    lab[0] = 116.0 * fy - 16.0;
    lab[1] = 500.0 * (fx - fy);
    lab[2] = 200.0 * (fy - fz);
}

void LabToXyzD50(const double lab[3], double xyz[3]) {
    const double fy = (lab[0] + 16.0) / 116.0;
    xyz[0] = kD50[0] * LabFInv(fy + lab[1] / 500.0);
    xyz[1] = kD50[1] * LabFInv(fy);
    xyz[2] = kD50[2] * LabFInv(fy - lab[2] / 200.0);
}

using Mat3 = std::array<double, 9>;  // row-major

Mat3 Inverse(const Mat3& m) {
    const double det = m[0] * (m[4] * m[8] - m[7] * m[5]) - m[1] * (m[3] * m[8] - m[6] * m[5]) +
                       m[2] * (m[3] * m[7] - m[6] * m[4]);
    return {(m[4] * m[8] - m[5] * m[7]) / det, (m[2] * m[7] - m[1] * m[8]) / det, (m[1] * m[5] - m[2] * m[4]) / det,
            (m[5] * m[6] - m[3] * m[8]) / det, (m[0] * m[8] - m[2] * m[6]) / det, (m[2] * m[3] - m[0] * m[5]) / det,
            (m[3] * m[7] - m[4] * m[6]) / det, (m[1] * m[6] - m[0] * m[7]) / det, (m[0] * m[4] - m[1] * m[3]) / det};
}

void Apply(const Mat3& m, const double in[3], double out[3]) {
    for (int r = 0; r < 3; ++r) out[r] = m[3 * r] * in[0] + m[3 * r + 1] * in[1] + m[3 * r + 2] * in[2];
}

const Mat3& RgbToXyz() {
    static const Mat3 m = {kPrimaries.red[0], kPrimaries.green[0], kPrimaries.blue[0],
                           kPrimaries.red[1], kPrimaries.green[1], kPrimaries.blue[1],
                           kPrimaries.red[2], kPrimaries.green[2], kPrimaries.blue[2]};
    return m;
}

// ---- the ink model ---------------------------------------------------------
//
// Each ink is a filter with an optical density per band of light (red, green,
// blue band of the linear sRGB primaries). A coverage t prints as the
// effective coverage e = t + g·t·(1 − t) (dot gain g). Densities add:
//     D = Σ e_ink · density_ink,   reflectance R = s + (1 − s)·10^(−D)
// relative to the paper, where s is the light reflected by the surface before
// it reaches the ink (it limits the darkest black to about L* 9). R, taken as
// linear RGB, gives XYZ through the sRGB/D50 matrix, and Lab against D50:
// the paper itself is the PCS white (media-relative colorimetry).
constexpr double kDotGain = 0.12;
constexpr double kSurface = 0.01;
constexpr double kInkLimit = 3.0;  // total area coverage, 300 %
constexpr double kDensity[4][3] = {
    {1.30, 0.38, 0.12},  // cyan absorbs red
    {0.12, 1.20, 0.50},  // magenta absorbs green
    {0.02, 0.10, 1.00},  // yellow absorbs blue
    {1.55, 1.55, 1.55},  // black
};

double Gain(double t) { return t + kDotGain * t * (1.0 - t); }

// Inverse of Gain on [0, 1]: the smaller root of g·t² − (1 + g)·t + e = 0.
double Ungain(double e) {
    const double b = 1.0 + kDotGain;
    return (b - std::sqrt(b * b - 4.0 * kDotGain * e)) / (2.0 * kDotGain);
}

const Mat3& CmyDensityInverse() {
    static const Mat3 m = Inverse({kDensity[0][0], kDensity[1][0], kDensity[2][0],
                                   kDensity[0][1], kDensity[1][1], kDensity[2][1],
                                   kDensity[0][2], kDensity[1][2], kDensity[2][2]});
    return m;
}

}  // namespace

void InkModelForward(const double cmyk[4], double lab[3]) {
    double rgb[3];
    for (int band = 0; band < 3; ++band) {
        double d = 0.0;
        for (int ink = 0; ink < 4; ++ink) d += Gain(std::clamp(cmyk[ink], 0.0, 1.0)) * kDensity[ink][band];
        rgb[band] = kSurface + (1.0 - kSurface) * std::pow(10.0, -d);
    }
    double xyz[3];
    Apply(RgbToXyz(), rgb, xyz);
    XyzToLabD50(xyz, lab);
}

// Black generation: the grey component gmin = min(e_c, e_m, e_y) of the
// black-free solution is replaced by black in proportion rising from 0 at
// 20 % grey to 100 % at 80 % grey; where even the grey component exceeds
// what cyan, magenta and yellow can print, black makes up the rest. Colours
// outside the gamut are clipped: each band's density to kMaxDensity first,
// then each ink to 0..100 %. The ink limit finally scales the coloured inks
// down, black kept.
constexpr double kMaxDensity = 2.2;

void InkModelInverse(const double lab[3], double cmyk[4]) {
    double xyz[3], rgb[3], density[3];
    LabToXyzD50(lab, xyz);
    Apply(Inverse(RgbToXyz()), xyz, rgb);
    for (int band = 0; band < 3; ++band) {
        const double r = std::clamp(rgb[band], kSurface + 1e-9, 1.0);
        density[band] = std::min(kMaxDensity, -std::log10((r - kSurface) / (1.0 - kSurface)));
    }
    const Mat3& inv = CmyDensityInverse();
    double e0[3], perBlack[3];
    const double black[3] = {kDensity[3][0], kDensity[3][1], kDensity[3][2]};
    Apply(inv, density, e0);
    Apply(inv, black, perBlack);

    const double grey = std::max(0.0, std::min({e0[0], e0[1], e0[2]}));
    const double perBlackMax = std::max({perBlack[0], perBlack[1], perBlack[2]});
    double k = grey * std::clamp((grey - 0.2) / 0.6, 0.0, 1.0);
    k = std::max(k, (grey - 1.0) / perBlackMax);
    k = std::clamp(k, 0.0, 1.0);
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) {
        cmyk[i] = Ungain(std::clamp(e0[i] - k * perBlack[i], 0.0, 1.0));
        sum += cmyk[i];
    }
    cmyk[3] = Ungain(k);
    if (sum + cmyk[3] > kInkLimit && sum > 0) {
        const double scale = std::max(0.0, kInkLimit - cmyk[3]) / sum;
        for (int i = 0; i < 3; ++i) cmyk[i] *= scale;
    }
}

namespace {

// The Lab encoding of the lut tags as the library decodes it:
// L = code × 100/65535, a and b = code/256 − 128.
uint16_t EncodeL(double l) { return uint16_t(std::clamp(l, 0.0, 100.0) * 655.35 + 0.5); }
uint16_t EncodeAb(double v) { return uint16_t((std::clamp(v, -128.0, 127.99609375) + 128.0) * 256.0 + 0.5); }
double DecodeL(uint32_t code) { return code * 100.0 / 65535.0; }
double DecodeAb(uint32_t code) { return code / 256.0 - 128.0; }
uint16_t GridLevel(uint32_t i, uint32_t points) { return uint16_t((i * 65535u + (points - 1) / 2) / (points - 1)); }

constexpr int kA2BPoints = 13;
constexpr int kB2APoints = 33;

void AddText(icc::ProfileWriter& w, const std::string& description) {
    w.AddTag(Sig4("desc"), icc::DescriptionElement(description));
    w.AddTag(Sig4("cprt"), icc::TextElement("No copyright, use freely"));
}

std::vector<uint8_t> SrgbProfile() {
    // sRGB transfer function sampled at 1024 points.
    std::vector<uint16_t> curve(1024);
    for (size_t i = 0; i < curve.size(); ++i) {
        const double v = double(i) / 1023.0;
        const double lin = v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        curve[i] = uint16_t(lin * 65535.0 + 0.5);
    }
    icc::ProfileWriter w = icc::MatrixTrcProfile(kPrimaries, curve);
    AddText(w, "tintra built-in sRGB (v2 matrix/TRC)");
    return w.Bytes();
}

std::vector<uint8_t> Gray22Profile() {
    // A Lab connection space with the gamma sampled as lightness: with XYZ
    // the library would take the grey level itself as the XYZ code.
    icc::ProfileWriter w = icc::GrayLightnessProfile(2.2);
    AddText(w, "tintra built-in grey, gamma 2.2");
    return w.Bytes();
}

std::vector<uint8_t> LabProfile() {
    const icc::Lut identity = icc::IdentityLut(3, 2, 2);
    icc::ProfileWriter w = icc::LutProfile(Sig4("spac"), Sig4("Lab "), Sig4("Lab "), &identity, &identity, true);
    AddText(w, "tintra built-in Lab identity");
    return w.Bytes();
}

// A2B: CMYK grid -> Lab; `perceptual` maps the printer's black to L* 0.
icc::Lut CmykToLab(double blackL, bool perceptual) {
    icc::Lut lut;
    lut.inputChannels = 4;
    lut.outputChannels = 3;
    lut.gridPoints = kA2BPoints;
    lut.clut.reserve(size_t(kA2BPoints) * kA2BPoints * kA2BPoints * kA2BPoints * 3);
    for (int c = 0; c < kA2BPoints; ++c)
        for (int m = 0; m < kA2BPoints; ++m)
            for (int y = 0; y < kA2BPoints; ++y)
                for (int k = 0; k < kA2BPoints; ++k) {
                    const double cmyk[4] = {GridLevel(c, kA2BPoints) / 65535.0, GridLevel(m, kA2BPoints) / 65535.0,
                                            GridLevel(y, kA2BPoints) / 65535.0, GridLevel(k, kA2BPoints) / 65535.0};
                    double lab[3];
                    InkModelForward(cmyk, lab);
                    if (perceptual) lab[0] = (lab[0] - blackL) * 100.0 / (100.0 - blackL);
                    lut.clut.push_back(EncodeL(lab[0]));
                    lut.clut.push_back(EncodeAb(lab[1]));
                    lut.clut.push_back(EncodeAb(lab[2]));
                }
    return lut;
}

// B2A: Lab grid -> CMYK; `perceptual` maps L* 0 to the printer's black.
icc::Lut LabToCmyk(double blackL, bool perceptual) {
    icc::Lut lut;
    lut.inputChannels = 3;
    lut.outputChannels = 4;
    lut.gridPoints = kB2APoints;
    lut.clut.reserve(size_t(kB2APoints) * kB2APoints * kB2APoints * 4);
    for (int l = 0; l < kB2APoints; ++l)
        for (int a = 0; a < kB2APoints; ++a)
            for (int b = 0; b < kB2APoints; ++b) {
                double lab[3] = {DecodeL(GridLevel(l, kB2APoints)), DecodeAb(GridLevel(a, kB2APoints)),
                                 DecodeAb(GridLevel(b, kB2APoints))};
                if (perceptual) lab[0] = blackL + lab[0] * (100.0 - blackL) / 100.0;
                double cmyk[4];
                InkModelInverse(lab, cmyk);
                for (double v : cmyk) lut.clut.push_back(uint16_t(std::clamp(v, 0.0, 1.0) * 65535.0 + 0.5));
            }
    return lut;
}

std::vector<uint8_t> CmykProfile() {
    // Darkest colour the inverse produces, printed.
    const double zero[3] = {0, 0, 0};
    double cmyk[4], black[3];
    InkModelInverse(zero, cmyk);
    InkModelForward(cmyk, black);

    icc::ProfileWriter w;
    w.header.deviceClass = Sig4("prtr");
    w.header.colorSpace = Sig4("CMYK");
    w.header.pcs = Sig4("Lab ");
    // Media white: the paper, slightly warm, in absolute XYZ.
    const double paper[3] = {0.91, 0.90, 0.85};
    std::array<double, 3> white{};
    Apply(RgbToXyz(), paper, white.data());
    w.AddTag(Sig4("wtpt"), icc::XyzElement({white}));
    AddText(w, "tintra built-in CMYK (synthetic ink model)");
    w.AddTag(Sig4("A2B0"), icc::Mft2Element(CmykToLab(black[0], true)));
    w.AddTag(Sig4("A2B1"), icc::Mft2Element(CmykToLab(black[0], false)));
    w.AddLinkedTag(Sig4("A2B2"), Sig4("A2B0"));
    w.AddTag(Sig4("B2A0"), icc::Mft2Element(LabToCmyk(black[0], true)));
    w.AddTag(Sig4("B2A1"), icc::Mft2Element(LabToCmyk(black[0], false)));
    w.AddLinkedTag(Sig4("B2A2"), Sig4("B2A0"));
    return w.Bytes();
}

}  // namespace

std::vector<std::string> BuiltinNames() { return {"srgb", "gray22", "cmyk", "lab"}; }

std::vector<uint8_t> BuiltinProfileBytes(const std::string& name) {
    if (name == "srgb") return SrgbProfile();
    if (name == "gray22") return Gray22Profile();
    if (name == "cmyk") return CmykProfile();
    if (name == "lab") return LabProfile();
    throw Failure("unknown built-in profile 'builtin:" + name + "' (known: builtin:srgb, builtin:gray22, "
                  "builtin:cmyk, builtin:lab)", true);
}

uint32_t Profile::ColorSpace() const {
    if (bytes.size() < 20) return 0;
    return (uint32_t(bytes[16]) << 24) | (uint32_t(bytes[17]) << 16) | (uint32_t(bytes[18]) << 8) | bytes[19];
}

namespace {

bool g_asIs = false;

// The project's own writer makes its profiles (the built-ins, and what the
// tool writes) in the library's Lab encoding: those are read exactly as they
// are, whatever encoding an ICC reader would assume for their Lab tables.
bool MadeForTheLibrary(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 84 && bytes[80] == 't' && bytes[81] == '3' && bytes[82] == 'i' && bytes[83] == 'w';
}

void PrepareForLibrary(Profile& p) {
    if (g_asIs || MadeForTheLibrary(p.bytes)) return;
    icc::Prepared prepared;
    try {
        prepared = icc::Prepare(p.bytes);
    } catch (const std::exception&) {
        return;  // not a profile at all: the library says so, the check says why
    }
    p.preparation = std::move(prepared.changes);
    if (prepared.bytes == p.bytes) return;
    p.prepared = std::move(prepared.bytes);
    p.temp = std::make_shared<TempFile>("tintra-prepared", ".icc");
    p.temp->Write(p.prepared);
    p.path = p.temp->path();
}

}  // namespace

void SetProfilesAsIs(bool asIs) { g_asIs = asIs; }
bool ProfilesAsIs() { return g_asIs; }

Profile LoadProfile(const std::string& profileName) {
    Profile p;
    if (profileName.rfind(kBuiltinPrefix, 0) == 0) {
        const std::string name = profileName.substr(std::strlen(kBuiltinPrefix));
        p.label = profileName;
        p.bytes = BuiltinProfileBytes(name);
        p.temp = std::make_shared<TempFile>("tintra-" + name, ".icc");
        p.temp->Write(p.bytes);
        p.path = p.temp->path();
        return p;
    }
    p.label = "'" + profileName + "'";
    p.bytes = ReadWholeFile(profileName, "profile");
    // The library keeps profile paths in 256-byte slots: a longer path is
    // handed over as a temporary copy.
    if (profileName.size() < 256) {
        p.path = profileName;
    } else {
        p.temp = std::make_shared<TempFile>("tintra-profile", ".icc");
        p.temp->Write(p.bytes);
        p.path = p.temp->path();
    }
    PrepareForLibrary(p);
    return p;
}

Profile EmbeddedProfile(const std::vector<uint8_t>& bytes, const std::string& imagePath) {
    Profile p;
    p.label = "the profile embedded in '" + imagePath + "'";
    p.bytes = bytes;
    p.temp = std::make_shared<TempFile>("tintra-embedded", ".icc");
    p.temp->Write(p.bytes);
    p.path = p.temp->path();
    PrepareForLibrary(p);
    return p;
}

std::string ProfileProblems(const Profile& src, const Profile& dst, int32_t intent) {
    const std::string srcProblem = icc::LibraryProblem(src.LibraryBytes(), icc::Role::kSource, int(intent));
    if (!srcProblem.empty()) return "source profile " + src.label + ": " + srcProblem;
    const std::string dstProblem = icc::LibraryProblem(dst.LibraryBytes(), icc::Role::kDestination, int(intent));
    if (!dstProblem.empty()) return "destination profile " + dst.label + ": " + dstProblem;
    return "";
}

void NoteMisreadings(const Profile& src, const Profile& dst) {
    if (!g_asIs) return;
    static std::set<std::string> noted;  // once per profile and run (eval sets up twice)
    for (const Profile* p : {&src, &dst}) {
        const std::string remark = icc::LibraryMisreading(p->bytes);
        if (!remark.empty() && noted.insert(p->label).second)
            std::fprintf(stderr, "tintra: note: %s profile %s: %s\n", p == &src ? "source" : "destination",
                         p->label.c_str(), remark.c_str());
    }
}

std::string UsabilityReport(const Profile& p) {
    std::string out = "  handed to the library\n";
    if (g_asIs) {
        out += "    as it is (--as-is)\n";
        const std::string remark = icc::LibraryMisreading(p.bytes);
        if (!remark.empty()) out += "    note: " + remark + "\n";
    } else if (p.prepared.empty()) {
        out += "    as it is: nothing to rewrite\n";
    }
    if (!g_asIs) {
        for (const std::string& change : p.preparation) out += "    prepared: " + change + "\n";
    }
    out += "  usable\n";
    for (icc::Role role : {icc::Role::kSource, icc::Role::kDestination}) {
        std::string line = role == icc::Role::kSource ? "    as source:      " : "    as destination: ";
        std::string failures, usable;
        std::vector<std::string> seen;
        for (int intent = 0; intent <= 3; ++intent) {
            const std::string problem = icc::LibraryProblem(p.LibraryBytes(), role, intent);
            if (problem.empty()) {
                usable += usable.empty() ? "yes at " : ", ";
                usable += icc::IntentName(intent);
                continue;
            }
            if (std::find(seen.begin(), seen.end(), problem) != seen.end()) continue;
            seen.push_back(problem);
            failures += failures.empty() ? "no: " : "; ";
            failures += problem;
        }
        if (!failures.empty() && !usable.empty()) failures = usable + "; " + failures;
        out += line + (failures.empty() ? "yes, at every intent" : failures) + "\n";
    }
    return out;
}

int PrepareCommand(const std::vector<std::string>& args) {
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::fputs("usage: tintra prepare IN.icc OUT.icc\n"
                   "\n"
                   "Writes the version-2 profile the library reads exactly as IN means it:\n"
                   "'para' curves sampled into 'curv', 'mAB '/'mBA ' and Lab tables rebuilt as\n"
                   "'mft2' in the library's Lab encoding, a grey profile with an XYZ connection\n"
                   "space rewritten with a Lab one, missing printer intents linked to\n"
                   "A2B0/B2A0. Prints what was changed, and why the library still cannot use\n"
                   "the result where that is so.\n",
                   stdout);
        return 0;
    }
    if (args.size() != 2) throw Failure("prepare needs an input and an output profile", true);
    const std::vector<uint8_t> in = args[0].rfind(kBuiltinPrefix, 0) == 0
                                        ? BuiltinProfileBytes(args[0].substr(std::strlen(kBuiltinPrefix)))
                                        : ReadWholeFile(args[0], "profile");
    icc::Prepared prepared;
    try {
        prepared = icc::Prepare(in);
    } catch (const std::exception& e) {
        throw Failure("'" + args[0] + "': " + e.what());
    }
    PendingOutput out(args[1]);
    std::FILE* f = std::fopen(out.tempPath().c_str(), "wb");
    if (!f || std::fwrite(prepared.bytes.data(), 1, prepared.bytes.size(), f) != prepared.bytes.size() ||
        std::fclose(f) != 0)
        throw Failure("cannot write '" + args[1] + "'");
    out.Commit();
    for (const std::string& change : prepared.changes) std::printf("%s\n", change.c_str());
    if (prepared.changes.empty()) std::printf("nothing to rewrite: '%s' is a copy of '%s'\n", args[1].c_str(), args[0].c_str());
    bool anyUse = false;
    for (int intent = 0; intent <= 3; ++intent)
        for (icc::Role role : {icc::Role::kSource, icc::Role::kDestination})
            anyUse = anyUse || icc::LibraryProblem(prepared.bytes, role, intent).empty();
    if (!anyUse)
        std::printf("the library cannot use it: %s\n",
                    icc::LibraryProblem(prepared.bytes, icc::Role::kSource, 0).c_str());
    return 0;
}

std::string DefaultProfileFor(int channels, uint32_t colorSpace) {
    if (colorSpace == Sig4("Lab ")) return "builtin:lab";
    switch (channels) {
        case 1: return "builtin:gray22";
        case 4: return "builtin:cmyk";
        default: return "builtin:srgb";
    }
}

int ChannelsOf(uint32_t colorSpace) { return icc::ColourChannels(colorSpace); }

std::string SignatureText(uint32_t sig) {
    std::string s;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char(sig >> shift);
        s += (c >= 32 && c < 127) ? c : '?';
    }
    return "'" + s + "'";
}

}  // namespace tintra3::cli
