// Reading profiles: value buffers, s15Fixed16, the profile file, the tag readers, curves and resampling, and
// the models built from real and crafted profiles (tag choice, fallbacks, refusals, table queries).
#include <gtest/gtest.h>

#include <cmath>

#include "profile/profile_model.h"
#include "profile/resample.h"
#include "profile/stream.h"
#include "profile/tag_types.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"

namespace tintra3 {
namespace {

using icc::ProfileWriter, icc::Sig4;
using test::RealProfile;

struct OpenedProfile {
    ProfileFile file{};
    int opened = 0;
    explicit OpenedProfile(const std::string& path) : opened(OpenProfile(path.c_str(), &file)) {}
    ~OpenedProfile() { if (opened) CloseProfile(&file); }
};
struct ScopedModel {
    ProfileModel model{};
    ~ScopedModel() { ReleaseProfileModel(&model); }
};
struct ScopedBuffer {
    ValueBuffer buffer{};
    ~ScopedBuffer() { FreeValueBuffer(&buffer); }
    uint16_t u16(uint32_t i) const { return U16(buffer)[i]; }
    uint8_t u8(uint32_t i) const { return Bytes(buffer)[i]; }
};
ValueBuffer View(std::vector<uint16_t>& v) { return ValueBuffer{uint32_t(v.size()), 0, v.data()}; }

// Each profile its own file: table cases are all written before any runs.
std::string Write(const ProfileWriter& w) {
    static int serial = 0;
    return test::WriteTempFile("profile" + std::to_string(++serial) + ".icc", w.Bytes());
}

enum Side { kSrc, kDst, kGamut };
int Build(const std::string& path, Side side, uint16_t intent, ScopedModel& m) {
    OpenedProfile p(path);
    return !p.opened ? -1 : side == kSrc ? BuildSourceModel(intent, &p.file, &m.model)
                                         : BuildDestinationModel(intent, &p.file, side == kGamut, &m.model);
}

TEST(ProfileFile, BuffersFixedHeaderAndLookup) {
    ValueBuffer empty{}, copy{};  // empty succeeds: data null, owned untouched
    EXPECT_TRUE(AllocU16(&empty, 0) && CopyU16(&empty, &copy) && !copy.data && !copy.owned);
    EXPECT_EQ(FromS15Fixed16(0xFFFF0000u), -1.0);  // raw is signed
    // x * 65536 + 0.5 truncated toward zero; out of range (and NaN) gives 0x80000000 without UB.
    const std::pair<double, int32_t> fixed[] = {{0.5, 1}, {-1.5, -1}, {-1.4, 0}, {1e17, INT32_MIN}, {NAN, INT32_MIN}};
    for (const auto& [x, raw] : fixed) EXPECT_EQ(ToS15Fixed16(x / 65536), raw) << x;
    ProfileWriter w = icc::GrayProfile(1.0, kSigLab);
    w.header.deviceClass = kSigPrtr;
    w.header.attributes[1] = 0xB2;
    w.header.creator = Sig4("abcd");                        // last field before the reserved bytes
    w.AddTag(Sig4("kTRC"), icc::XyzElement({{1, 2, 3}}));  // duplicate signature
    OpenedProfile p(Write(w));
    const ProfileHeader& h = p.file.header;
    ASSERT_EQ(p.opened, 1);
    EXPECT_EQ(std::vector<uint64_t>({h.size, h.deviceClass, h.pcs, h.attributes[1], h.illuminant[1], h.creator,
                                     p.file.tags.count}),
              std::vector<uint64_t>({p.file.fileSize, kSigPrtr, kSigLab, 0xB2, 0x10000, Sig4("abcd"), 3}));
    int32_t index = -7, absent = -7;
    uint32_t type = 0, peeked = 0;
    EXPECT_EQ(FindTag(&p.file, Sig4("kTRC"), &index, &type) + FindTag(&p.file, Sig4("rTRC"), &absent, &peeked), 1);
    EXPECT_EQ(std::tuple(index, type, absent), std::tuple(1, kTypeCurv, -7));  // the first wins; absent: untouched
    EXPECT_TRUE(PeekTagType(&p.file, 2, &type) && ReadU32BE(p.file.stream, &peeked) && peeked == kTypeXyz);  // peek rewinds
    EXPECT_EQ(PeekTagType(&p.file, 3, &type), 0);  // index == count
}

// Writes `element` as the only tag (directory size and count, and file length as given) and reads it back with
// every reader: -1 if the file does not open, else which readers succeed (bit 0 XYZ, 1 curv, 2 mft1, 3 mft2);
// and how many values they read (triples, entries, CLUT values).
std::pair<int, uint32_t> ReadAll(const std::vector<uint8_t>& element, std::optional<uint32_t> size,
                                 std::optional<size_t> cut, std::optional<uint32_t> count = {}) {
    ProfileWriter w;
    w.AddTag(Sig4("test"), element);
    w.entryOverrides.push_back({Sig4("test"), {}, size, {}});
    w.truncateAt = cut;
    w.tagCountOverride = count;
    OpenedProfile p(Write(w));
    if (!p.opened) return {p.file.stream ? -2 : -1, 0};  // a failed open closes the file again
    XyzArray x{};
    CurveTag c{};
    Lut8Tag l8{};
    Lut16Tag l16{};
    const int ok = ReadXyzTag(&p.file, 0, &x) | ReadCurveTag(&p.file, 0, &c) << 1 | ReadLut8Tag(&p.file, 0, &l8) << 2 |
                   ReadLut16Tag(&p.file, 0, &l16) << 3;
    const std::pair<int, uint32_t> read(ok, x.count + c.entries.count + l8.clut.count + l16.clut.count);
    ReleaseXyzArray(&x);
    ReleaseCurveTag(&c);
    ReleaseLut8Tag(&l8);
    ReleaseLut16Tag(&l16);
    return read;
}

TEST(ProfileFile, TagCountsAndDamage) {
    auto lut8 = [](uint8_t in, uint8_t grid) {  // input channels and grid points patched into a 3-in lut
        std::vector<uint8_t> e = icc::Mft1Element(icc::IdentityLut(3, 2, 256));
        e[8] = in;
        e[10] = grid;
        return e;
    };
    const auto xyz = icc::XyzElement({{0.5, 1, -1}, {0.25, 0, 0}});
    const size_t xyzEnd = 128 + 4 + 12 + 32;
    const std::tuple<std::vector<uint8_t>, std::optional<uint32_t>, std::optional<size_t>, std::optional<uint32_t>,
                     int, uint32_t, const char*> cases[] = {  // element, its size, cut, tag count; readers, values
        {xyz, {}, 70, {}, -1, 0, "header cut inside the illuminant"},
        {xyz, {}, 128, {}, -1, 0, "exactly 128 bytes: no directory count"},
        {xyz, {}, 128 + 4 + 5, {}, -1, 0, "directory cut inside the entry"},
        {xyz, {}, {}, 6, -1, 0, "count beyond the entries and the elements"},
        {xyz, {}, {}, 0xFFFFFFFF, -1, 0, "count 2^32-1 in a small file: no 48 GB allocation"},
        {xyz, {}, {}, 0, 0, 0, "an empty directory opens, but has no tag 0"},
        {xyz, 20, xyzEnd, {}, 1, 1, "exactly one triple: the count comes from the directory size"},
        {xyz, 19, xyzEnd, {}, 1, 0, "no triple"},
        {xyz, 44, xyzEnd, {}, 0, 0, "three triples claimed, the file ends first"},
        {xyz, 0, xyzEnd, {}, 0, 0, "size below 8 wraps to a huge count"},
        {icc::Mft2Element(icc::IdentityLut(3, 2, 2)), {}, {}, {}, 8, 24, "2-entry tables are valid; only as 'mft2'"},
        {lut8(3, 2), {}, {}, {}, 4, 24, "a valid 'mft1'"},
        {lut8(3, 2), {}, 128 + 4 + 12 + 48 + 700, {}, 0, 0, "cut inside the input tables"},
        {lut8(15, 255), {}, {}, {}, 0, 0, "CLUT size beyond 32 bits"},
        {lut8(4, 255), {}, {}, {}, 0, 0, "12 GB CLUT claimed in a small file"},
        {icc::RawElement(kTypeCurv, {0x80, 0, 0, 2, 0, 1, 0, 2}), {}, {}, {}, 0, 0, "2^31 entries: beyond the file"},
    };
    for (const auto& [element, size, cut, count, readers, values, why] : cases)
        EXPECT_EQ(ReadAll(element, size, cut, count), std::make_pair(readers, values)) << why;
}

TEST(Curves, ForwardInverseAndResampled) {
    std::vector<uint16_t> none, g1 = {256}, g0 = {0};
    CurveTag identity{View(none)}, linear{View(g1)}, zero{View(g0)};
    ScopedBuffer a, b, c, d;
    ASSERT_TRUE(BuildForwardCurve(&identity, &a.buffer, 1024) && BuildForwardCurve(&linear, &b.buffer, 1024) &&
                BuildForwardCurve(&zero, &c.buffer, 1024));
    for (uint32_t i = 0; i < 1024; ++i) ASSERT_EQ(b.u16(i), std::lround(i * 65535.0 / 1023)) << i;
    EXPECT_EQ(std::pair(a.buffer.count, c.u16(0)), std::pair(2u, uint16_t(65535)));  // identity: 2 entries; 0^0 = 1
    EXPECT_EQ(BuildInverseCurve(&zero, &d.buffer, 1024, 1024), 0);                   // but gamma 0 has no inverse

    // Inverted sampled curves at table size 5: y = 0, 16383.75, ... 65535.
    std::tuple<std::vector<uint16_t>, std::vector<uint16_t>, const char*> cases[] = {
        {{0, 32768, 65535}, {0, 16384, 32767, 49151, 65535}, "near-identity, rounded half up"},
        {{20000, 20000}, {0, 0, 65535, 65535, 65535}, "equal ends count as rising"},
        {{16384, 49152}, {0, 0, 32767, 65534, 65535}, "outside the table's range clips"},
        {{65535, 32768, 0}, {65535, 49152, 32768, 16384, 0}, "falling: written down to entry 0"},
        {{65535, 60000, 1000, 0}, {65535, 37994, 31928, 25862, 0}, "falling, segment lowered then kept"},
    };
    for (auto& [table, expected, why] : cases) {
        CurveTag curve{View(table)};
        ScopedBuffer out;
        ASSERT_EQ(BuildInverseCurve(&curve, &out.buffer, 1024, 5), 1) << why;
        EXPECT_EQ(std::vector<uint16_t>(U16(out.buffer), U16(out.buffer) + 5), expected) << why;
    }

    std::vector<uint16_t> narrow = {0, 4095}, full = {0, 65535}, one = {5}, scale = {0, 255, 128};
    ValueBuffer n = View(narrow), f = View(full), single = View(one), s = View(scale);
    RescaleCurve(&s, 255, 4096);
    EXPECT_EQ(scale, (std::vector<uint16_t>{0, 4095, 2056}));  // 4096 capped to range - 1
    ScopedBuffer r16, r12, r8, r256, wrapped, empty, m1, s1, s256;
    ASSERT_TRUE(ResampleCurve16(&n, 256, &r16.buffer) && ResampleCurve12(&f, 4096, &r12.buffer) &&
                ResampleCurve8(&f, 4096, &r8.buffer) && ResampleCurveTo256(&f, &r256.buffer));
    for (uint32_t i = 0; i < 4096; ++i) {
        const uint32_t v = (65535 * i + 2048) / 4095;  // 16-bit sample, then reduced: (v x max + 0x8000) >> 16
        ASSERT_EQ(std::make_pair(r12.u16(i), r8.u8(i)),
                  std::make_pair(uint16_t((v * 4095 + 32768) >> 16), uint8_t((v * 255 + 32768) >> 16))) << i;
        ASSERT_TRUE(i >= 256 || (r16.u16(i) == (i * 4095 + 128) / 255 && r256.u8(i) == i)) << i;
    }
    // Positions are 32-bit: for the last entry of a 1048834-entry curve, 4095 x 1048833 wraps to 3839,
    // which lands in cell 0 (not the folded last cell): (4095 x 3839 + 2048) / 4095.
    std::vector<uint16_t> longCurve(1048834, 0);
    longCurve[1] = 4095, longCurve.back() = 65535;
    ValueBuffer lc = View(longCurve);
    ASSERT_EQ(ResampleCurve16(&lc, 4096, &wrapped.buffer), 1);
    EXPECT_EQ(wrapped.u16(4095), 3839);
    EXPECT_TRUE(ResampleCurve16(&f, 0, &empty.buffer) && !empty.buffer.count);  // empty table, success
    EXPECT_EQ(ResampleCurve12(&f, 1, &m1.buffer), 0);                            // would divide by zero
    EXPECT_EQ(ResampleCurve8(&single, 16, &s1.buffer) + ResampleCurveTo256(&single, &s256.buffer), 0);  // no segment
}

TEST(ProfileModel, RealProfiles) {
    const std::tuple<const char*, Side, uint16_t, std::vector<int>> cases[] = {  // ok, kind, in, out, precision, grid
        {"sRGB.icc", kSrc, 0, {1, kKindMatrixTrc, 0, 0, 0, 0}},  // v2 display profile
        {"sRGB.icc", kDst, 2, {1, kKindMatrixTrc, 0, 0, 0, 0}},
        {"sRGB.icc", kGamut, 0, {0}},  // gamut needs a printer
        {"ghostscript/default_cmyk.icc", kSrc, 3, {1, kKindLut, 4, 3, 16, 9}},  // 16-bit A2B1
        {"ghostscript/default_cmyk.icc", kDst, 2, {1, kKindLut, 3, 4, 8, 33}},  // 8-bit B2A2
        {"ghostscript/default_cmyk.icc", kGamut, 0, {0}},                      // printer without 'gamt'
        {"Gray.icc", kSrc, 0, {1, kKindGray, 0, 0, 0, 0}},
        {"Gray-CIE_L.icc", kDst, 0, {1, kKindGray, 0, 0, 0, 0}},  // Lab PCS
        {"ghostscript/lab.icc", kDst, 0, {1, kKindLut, 3, 3, 8, 2}},
        {"ghostscript/ps_cmyk.icc", kDst, 0, {1, kKindLut, 3, 4, 16, 5}},  // version 4, lut16 tags
    };
    for (const auto& [name, side, intent, expected] : cases) {
        ScopedModel m;
        const LutModel& l = m.model.lut;
        const int ok = Build(RealProfile(name), side, intent, m);
        EXPECT_EQ(m.model.status, 0) << name;  // reset on every return
        const std::vector<int> got = {ok, m.model.kind, l.inputChannels, l.outputChannels, l.precision, l.gridPoints};
        EXPECT_EQ(ok ? got : std::vector<int>({ok}), expected) << name << " side " << side;
    }
    ScopedModel src, dst;  // the destination matrix is the inverse of the source one
    ASSERT_EQ(Build(RealProfile("sRGB.icc"), kSrc, 0, src) + Build(RealProfile("sRGB.icc"), kDst, 0, dst), 2);
    for (int i = 0; i < 9; ++i) {
        const double *a = src.model.matrix[i / 3], (*b)[3] = dst.model.matrix;
        EXPECT_NEAR(a[0] * b[0][i % 3] + a[1] * b[1][i % 3] + a[2] * b[2][i % 3], i % 4 == 0, 1e-12) << i;
    }
}

// A matrix/TRC display profile (primaries, gamma) with one directory entry altered and the PCS given.
std::string Display(icc::Primaries p, double g = 1.8, ProfileWriter::EntryOverride o = {}, uint32_t pcs = kSigXyz) {
    ProfileWriter w = icc::MatrixTrcGammaProfile(p, g);
    w.entryOverrides.push_back(o);
    w.header.pcs = pcs;
    return Write(w);
}

// A Lab-PCS profile holding one lut of the given shape (an 'mft1' when it has 256 entries) under `tag`, and
// the tags of a gamma-2.2 matrix/TRC profile if asked; the header's colour space is `space`.
std::string WithLut(uint32_t deviceClass, const char (&tag)[5], int in, int out, int grid, int entries, bool matrix,
                    uint32_t space = Sig4("RGB ")) {
    const icc::Lut l{.inputChannels = uint8_t(in), .outputChannels = uint8_t(out), .gridPoints = uint8_t(grid),
                     .inputTables = std::vector(in, std::vector<uint16_t>(entries)),
                     .clut = std::vector<uint16_t>(size_t(std::pow(grid, in)) * out),
                     .outputTables = std::vector(out, std::vector<uint16_t>(entries))};
    ProfileWriter w = matrix ? icc::MatrixTrcGammaProfile({}, 2.2) : ProfileWriter{};
    w.header.deviceClass = deviceClass;
    w.header.colorSpace = space;
    w.header.pcs = kSigLab;
    w.AddTag(Sig4(tag), entries == 256 ? icc::Mft1Element(l) : icc::Mft2Element(l));
    return Write(w);
}

TEST(ProfileModel, TagChoiceFallbacksAndRefusals) {
    const uint32_t prtr = kSigPrtr, mntr = Sig4("mntr");
    auto diagonal = [](double x) { return Display({{x / 65536, 0, 0}, {0, 0.25, 0}, {0, 0, 0.8}}); };
    const std::tuple<std::string, Side, uint16_t, int, uint16_t, const char*> cases[] = {
        {WithLut(prtr, "A2B2", 3, 3, 2, 2, false), kSrc, 2, 1, kKindLut, "smallest lut16, intent 2"},
        {WithLut(prtr, "A2B0", 3, 3, 2, 256, false), kSrc, 2, 0, 0, "no A2B2, no fallback to A2B0"},
        {WithLut(prtr, "A2B0", 3, 3, 2, 256, false), kSrc, 9, 1, kKindLut, "unknown intent: A2B0"},
        {WithLut(mntr, "B2A0", 3, 3, 2, 256, false), kDst, 2, 1, kKindLut, "non-printer: B2A0"},
        {WithLut(prtr, "B2A1", 3, 4, 2, 256, false, Sig4("CMYK")), kDst, 3, 1, kKindLut, "intent 3: B2A1"},
        {WithLut(prtr, "gamt", 3, 1, 2, 256, false), kGamut, 0, 1, kKindLut, "gamut table"},
        {WithLut(mntr, "A2B0", 5, 3, 2, 256, true), kSrc, 0, 1, kKindMatrixTrc, "5 inputs: matrix/TRC instead"},
        {WithLut(mntr, "B2A0", 3, 5, 2, 256, true), kDst, 0, 1, kKindMatrixTrc, "5 outputs"},
        {WithLut(mntr, "A2B0", 3, 3, 1, 256, true), kSrc, 0, 1, kKindMatrixTrc, "1 grid point"},
        {WithLut(mntr, "A2B0", 3, 3, 2, 1, true), kSrc, 0, 1, kKindMatrixTrc, "1 table entry"},
        {WithLut(mntr, "A2B0", 4, 4, 2, 256, true), kSrc, 0, 1, kKindMatrixTrc, "source out != 3"},
        {WithLut(mntr, "B2A0", 4, 3, 2, 256, true), kDst, 0, 1, kKindMatrixTrc, "dest in != 3"},
        {WithLut(mntr, "A2B0", 4, 3, 2, 256, false, Sig4("CMYK")), kSrc, 0, 1, kKindLut, "CMYK source lut"},
        {WithLut(mntr, "A2B0", 4, 3, 2, 256, true), kSrc, 0, 1, kKindMatrixTrc, "4 inputs behind 'RGB ': matrix/TRC"},
        {WithLut(prtr, "B2A0", 3, 3, 2, 256, false, Sig4("CMYK")), kDst, 0, 0, 0, "3 outputs behind 'CMYK'"},
        {WithLut(prtr, "gamt", 3, 1, 2, 256, false, Sig4("CMYK")), kGamut, 0, 1, kKindLut, "gamut table: any space"},
        {WithLut(mntr, "A2B0", 4, 3, 2, 256, false, Sig4("4CLR")), kSrc, 0, 1, kKindLut, "4CLR: four channels"},
        {WithLut(mntr, "A2B0", 3, 3, 2, 256, false, Sig4("ACLR")), kSrc, 0, 0, 0, "ACLR: ten channels"},
        {WithLut(mntr, "A2B0", 4, 3, 2, 256, false, Sig4("1CLR")), kSrc, 0, 1, kKindLut, "1CLR: no count, unchecked"},
        {Display({}, 1.8, {}, Sig4("RGB ")), kDst, 0, 0, 0, "PCS 'RGB ' refused"},
        {Display({}, 1.8, {Sig4("gXYZ"), {}, 8, {}}), kSrc, 0, 0, 0, "empty colorant"},
        {Display({}, 1.8, {Sig4("wtpt"), {}, {}, Sig4("curv")}), kSrc, 0, 0, 0, "white point of the wrong type"},
        {Display({}, 1.8, {Sig4("bTRC"), {}, {}, Sig4("para")}), kSrc, 0, 0, 0, "parametric curve"},
        {Display({}, 0), kSrc, 0, 1, kKindMatrixTrc, "zero gamma forward"},
        {Display({}, 0), kDst, 0, 0, 0, "zero gamma cannot be inverted"},
        {diagonal(3), kDst, 0, 1, kKindMatrixTrc, "det = x/65536 * 0.25 * 0.80000305: 0.6/65536 accepted"},
        {diagonal(2), kDst, 0, 0, 0, "det 0.4/65536 rejected"},
        {diagonal(-7), kDst, 0, 0, 0, "det -1.4/65536 rejected"},
        {diagonal(-8), kDst, 0, 1, kKindMatrixTrc, "det -1.6/65536 accepted"},
        {diagonal(0), kSrc, 0, 1, kKindMatrixTrc, "the source side never inverts"},
    };
    for (const auto& [path, side, intent, ok, kind, why] : cases) {
        ScopedModel m;
        ASSERT_EQ(Build(path, side, intent, m), ok) << why;
        if (!ok) continue;
        EXPECT_EQ(std::pair(m.model.kind, m.model.lut.isGamut), std::pair(kind, uint32_t(side == kGamut))) << why;
    }
    ScopedModel m;  // an empty 'wtpt' counts as absent: the white point is the illuminant
    ASSERT_EQ(Build(Display({}, 1.8, {Sig4("wtpt"), {}, 8, {}}), kSrc, 0, m), 1);
    EXPECT_TRUE(m.model.whitePoint[2] == m.model.illuminant[2] && std::abs(m.model.whitePoint[2] - 0.8249) < 1e-4);
}

TEST(ProfileModel, TableQueries) {
    icc::Lut lut8 = icc::IdentityLut(3, 2, 256), lut16 = icc::IdentityLut(3, 2, 2);
    lut8.clut[0] = 200 * 257;  // written as the byte 200
    lut16.clut[1] = 0x8080;
    ScopedModel m8, m16, rgb, gray;
    ASSERT_EQ(Build(Write(icc::LutProfile(Sig4("scnr"), Sig4("RGB "), kSigLab, &lut8, &lut8, false)), kSrc, 0, m8) +
              Build(Write(icc::LutProfile(Sig4("scnr"), Sig4("RGB "), kSigLab, &lut16, &lut16, true)), kSrc, 0, m16) +
              Build(RealProfile("sRGB.icc"), kSrc, 0, rgb) + Build(RealProfile("Gray.icc"), kSrc, 0, gray), 4);
    const LutModel *l8 = &m8.model.lut, *l16 = &m16.model.lut;
    ScopedBuffer in16, clut16, in8, clut8, in12, out8, out16, c12, c8, g16, g256, none;
    ASSERT_TRUE(LutInputTable16(l8, 2, &in16.buffer) && LutClut16(l8, &clut16.buffer) &&
                LutInputTable8(l16, 1, &in8.buffer) && LutClut8(l16, &clut8.buffer));
    for (uint32_t i = 0; i < 256; ++i) ASSERT_TRUE(in16.u16(i) == i * 257 && in8.u8(i) == i) << i;  // byte x 257; ramp
    EXPECT_EQ(std::make_pair(clut16.u16(0), clut8.u8(1)),
              std::make_pair(uint16_t(200 * 257), uint8_t((0x8080 + 128) / 257)));
    ASSERT_TRUE(LutInputTable12(l8, 0, 1024, &in12.buffer) && LutOutputTable8x4096(l16, 0, &out8.buffer) &&
                LutOutputTable16x4096(l8, 0, &out16.buffer) && CurveTable12(&rgb.model, 1, 1024, &c12.buffer) &&
                CurveTable8x4096(&rgb.model, 2, &c8.buffer) && CurveTable16x4096(&gray.model, 7, &g16.buffer) &&
                CurveTable8x256(&gray.model, 0, &g256.buffer));
    EXPECT_EQ(std::vector<int>({int(in12.buffer.count), in12.u16(1023), out8.u8(4095), out16.u16(4095), c12.u16(1023),
                                int(c8.buffer.count), g16.u16(4095), int(g256.buffer.count)}),
              std::vector<int>({1024, 4095, 255, 65535, 4095, 4096, 65535, 256}));  // grey: channel 7 ignored
    EXPECT_FALSE(CurveTable12(&rgb.model, 3, 256, &none.buffer) || LutInputTable16(l8, 4, &none.buffer) ||
                 CurveTable8x256(&m8.model, 0, &none.buffer));  // no 4th TRC, no 5th lut channel, no lut curves
}

}  // namespace
}  // namespace tintra3
