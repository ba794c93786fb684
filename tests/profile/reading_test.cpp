// Value buffers, stream readers, the profile file, the tag readers, curve
// building and resampling.
#include <gtest/gtest.h>

#include <cmath>

#include "profile/resample.h"
#include "profile/stream.h"
#include "profile/tag_types.h"
#include "profile_fixtures.h"

namespace tintra3 {
namespace {

using icc::Sig4;
using test::OpenedProfile;
using test::ScopedBuffer;

ValueBuffer View(std::vector<uint16_t>& v) { return ValueBuffer{uint32_t(v.size()), 0, v.data()}; }

// One element under 'test' (index 0), with optional directory size and cut.
std::string OneTag(const std::vector<uint8_t>& element, std::optional<uint32_t> size = {},
                   std::optional<size_t> cut = {}) {
    icc::ProfileWriter w;
    w.AddTag(Sig4("test"), element);
    if (size) w.entryOverrides.push_back({Sig4("test"), std::nullopt, size, std::nullopt});
    w.truncateAt = cut;
    return test::WriteProfile("one_tag.icc", w);
}

TEST(Primitives, BuffersStreamAndFixed) {
    ValueBuffer empty{}, copy{};
    EXPECT_EQ(AllocU16(&empty, 0), 1);  // empty is a success, data null, owned untouched
    EXPECT_EQ(CopyU16(&empty, &copy), 1);
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_EQ(copy.owned, 0u);

    ProfileFile p{};
    ASSERT_EQ(OpenFileForRead(test::WriteTempFile("s.bin", {0x61, 0x63, 0x73, 0x70, 0x12, 0x34}).c_str(), &p.stream), 1);
    uint32_t u32 = 0;
    uint16_t u16 = 0;
    EXPECT_EQ(ReadU32BE(&p, &u32) && SkipBytes(&p, -4) && ReadU32BE(&p, &u32), 1);  // back onto the signature
    EXPECT_EQ(u32, kSigAcsp);
    EXPECT_EQ(ReadU16BE(&p, &u16), 1);
    EXPECT_EQ(u16, 0x1234);
    EXPECT_EQ(SeekAbsolute(&p, 4) && !ReadU32BE(&p, &u32), 1);  // 2 bytes left: short
    EXPECT_EQ(CloseFile(&p), 0);

    EXPECT_EQ(FromS15Fixed16(0xFFFF0000u), -1.0);  // raw is signed
    EXPECT_EQ(ToS15Fixed16(0.5 / 65536), 1);       // half up for positives
    EXPECT_EQ(ToS15Fixed16(-1.5 / 65536), -1);     // truncation toward zero
    EXPECT_EQ(ToS15Fixed16(-1.4 / 65536), 0);
    EXPECT_EQ(ToS15Fixed16(1e12), INT32_MIN);      // out of range: 0x80000000, no UB
    EXPECT_EQ(ToS15Fixed16(NAN), INT32_MIN);
}

TEST(ProfileFile, HeaderDirectoryAndLookup) {
    icc::ProfileWriter w = icc::GrayProfile(1.0, kSigLab);
    w.header.deviceClass = kSigPrtr;
    w.header.attributes[1] = 0xB2;
    w.header.creator = Sig4("abcd");
    w.AddTag(Sig4("kTRC"), icc::XyzElement({{1, 2, 3}}));  // duplicate signature
    OpenedProfile p(test::WriteProfile("header.icc", w));
    ASSERT_EQ(p.opened, 1);
    const ProfileHeader& h = p.file.header;
    EXPECT_EQ(h.size, p.file.fileSize);
    EXPECT_EQ(h.deviceClass, kSigPrtr);
    EXPECT_EQ(h.pcs, kSigLab);
    EXPECT_EQ(h.attributes[1], 0xB2u);
    EXPECT_EQ(h.illuminant[1], 0x10000u);
    EXPECT_EQ(h.creator, Sig4("abcd"));  // last field before the reserved bytes
    ASSERT_EQ(p.file.tags.count, 3u);

    int32_t index = -7;
    uint32_t type = 0;
    ASSERT_EQ(FindTag(&p.file, Sig4("kTRC"), &index, &type), 1);
    EXPECT_EQ(index, 1);  // the first of two entries wins
    EXPECT_EQ(type, Sig4("curv"));
    index = -7;
    EXPECT_EQ(FindTag(&p.file, Sig4("rTRC"), &index, &type), 0);
    EXPECT_EQ(index, -7);  // untouched when absent
    EXPECT_EQ(PeekTagType(&p.file, 2, &type) && ReadU32BE(&p.file, &type), 1);  // peek rewinds
    EXPECT_EQ(type, Sig4("XYZ "));
    EXPECT_EQ(PeekTagType(&p.file, 3, &type), 0);  // index == count
}

TEST(ProfileFile, BrokenFilesFailToOpen) {
    struct Case {
        std::optional<size_t> cut;
        std::optional<uint32_t> count;
        const char* why;
    } cases[] = {
        {70, {}, "header cut inside the illuminant"},
        {128, {}, "exactly 128 bytes: no directory count"},
        {128 + 4 + 12 + 5, {}, "directory cut inside the second entry"},
        {{}, 6, "count beyond the entries and the elements"},
        {{}, 0xFFFFFFFFu, "count 2^32-1 in a small file: no 48 GB allocation"},
    };
    for (const Case& c : cases) {
        icc::ProfileWriter w = icc::GrayProfile(1.0, kSigXyz);
        w.truncateAt = c.cut;
        w.tagCountOverride = c.count;
        ProfileFile file{};
        EXPECT_EQ(OpenProfile(test::WriteProfile("broken.icc", w).c_str(), &file), 0) << c.why;
        EXPECT_EQ(file.stream, nullptr) << c.why;  // closed again
    }
    OpenedProfile emptyDirectory(test::WriteProfile("no_tags.icc", icc::ProfileWriter{}));
    EXPECT_EQ(emptyDirectory.opened, 1);
}

TEST(TagTypes, XyzSizedFromDirectory) {
    const auto two = icc::XyzElement({{0.5, 1, -1}, {0.25, 0, 0}});
    struct Case {
        uint32_t size;
        int result;
        uint32_t count;
        const char* why;
    } cases[] = {
        {20, 1, 1, "exactly one triple"},
        {19, 1, 0, "no triple"},
        {44, 0, 0, "three triples claimed, the file ends first"},
        {0, 0, 0, "size below 8 wraps to a huge count"},
    };
    for (const Case& c : cases) {
        OpenedProfile p(OneTag(two, c.size, 128 + 4 + 12 + 32));
        XyzArray a{};
        EXPECT_EQ(ReadXyzTag(&p.file, 0, &a), c.result) << c.why;
        EXPECT_EQ(a.count, c.count) << c.why;
        ReleaseXyzArray(&a);
    }
}

TEST(TagTypes, LutsAndCurves) {
    OpenedProfile ok(OneTag(icc::Mft2Element(icc::IdentityLut(3, 2, 2))));
    Lut16Tag t16{};
    EXPECT_EQ(ReadLut16Tag(&ok.file, 0, &t16), 1);  // 2-entry tables are valid
    EXPECT_EQ(t16.clut.count, 24u);
    EXPECT_EQ(U16(t16.clut)[23], 65535);
    ReleaseLut16Tag(&t16);
    Lut8Tag wrongType{};
    EXPECT_EQ(ReadLut8Tag(&ok.file, 0, &wrongType), 0);

    auto lut8 = [](uint8_t in, uint8_t grid) {
        icc::Lut l = icc::IdentityLut(3, 2, 256);
        l.inputChannels = in;
        l.gridPoints = grid;
        return icc::Mft1Element(l);
    };
    std::vector<uint8_t> longCurve = icc::CurvElement({1, 2});
    longCurve[8] = 0x80;  // 2^31 entries
    struct Case {
        std::vector<uint8_t> element;
        std::optional<size_t> cut;
        const char* why;
    } broken[] = {
        {lut8(3, 2), 128 + 4 + 12 + 48 + 700, "cut inside the input tables"},
        {lut8(15, 255), {}, "CLUT size beyond 32 bits"},
        {lut8(4, 255), {}, "12 GB CLUT claimed in a small file"},
        {longCurve, {}, "curve longer than the file"},
    };
    for (const Case& c : broken) {
        OpenedProfile p(OneTag(c.element, {}, c.cut));
        Lut8Tag t{};
        CurveTag curve{};
        EXPECT_EQ(ReadLut8Tag(&p.file, 0, &t) || ReadCurveTag(&p.file, 0, &curve), 0) << c.why;
        ReleaseLut8Tag(&t);
        ReleaseCurveTag(&curve);
    }
}

TEST(Curves, ForwardAndInverse) {
    std::vector<uint16_t> none, g1 = {256}, g0 = {0};
    CurveTag identity{View(none)}, linear{View(g1)}, zero{View(g0)};
    ScopedBuffer a, b, c, d;
    ASSERT_EQ(BuildForwardCurve(&identity, &a.buffer, 1024), 1);
    EXPECT_EQ(a.buffer.count, 2u);  // identity stays 2 entries
    ASSERT_EQ(BuildForwardCurve(&linear, &b.buffer, 1024), 1);
    for (uint32_t i = 0; i < 1024; ++i) ASSERT_EQ(b.u16(i), std::lround(i * 65535.0 / 1023)) << i;
    ASSERT_EQ(BuildForwardCurve(&zero, &c.buffer, 1024), 1);
    EXPECT_EQ(c.u16(0), 65535);  // 0^0 = 1
    EXPECT_EQ(BuildInverseCurve(&zero, &d.buffer, 1024, 1024), 0);

    // Inverted sampled curves at table size 5: y = 0, 16383.75, ... 65535.
    struct Case {
        std::vector<uint16_t> table, expected;
        const char* why;
    } cases[] = {
        {{0, 32768, 65535}, {0, 16384, 32767, 49151, 65535}, "near-identity, rounded half up"},
        {{20000, 20000}, {0, 0, 65535, 65535, 65535}, "equal ends count as rising"},
        {{16384, 49152}, {0, 0, 32767, 65534, 65535}, "outside the table's range clips"},
        {{65535, 32768, 0}, {65535, 49152, 32768, 16384, 0}, "falling: written down to entry 0"},
        {{65535, 60000, 1000, 0}, {65535, 37994, 31928, 25862, 0}, "falling, segment lowered then kept"},
    };
    for (Case& cs : cases) {
        CurveTag curve{View(cs.table)};
        ScopedBuffer out;
        ASSERT_EQ(BuildInverseCurve(&curve, &out.buffer, 1024, 5), 1) << cs.why;
        EXPECT_EQ(std::vector<uint16_t>(U16(out.buffer), U16(out.buffer) + 5), cs.expected) << cs.why;
    }
}

TEST(Resample, FormulasAndRefusals) {
    std::vector<uint16_t> narrow = {0, 4095}, full = {0, 65535}, one = {5}, scale = {0, 255, 128};
    ValueBuffer n = View(narrow), f = View(full), single = View(one), s = View(scale);
    RescaleCurve(&s, 255, 4096);
    EXPECT_EQ(scale, (std::vector<uint16_t>{0, 4095, 2056}));  // 4096 capped to range - 1

    ScopedBuffer r16, r12, r8, r256;
    ASSERT_EQ(ResampleCurve16(&n, 256, &r16.buffer), 1);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(r16.u16(i), (i * 4095 + 128) / 255) << i;
    ASSERT_EQ(ResampleCurve12(&f, 4096, &r12.buffer) && ResampleCurve8(&f, 4096, &r8.buffer), 1);
    for (uint32_t i = 0; i < 4096; ++i) {
        const uint32_t v = (65535 * i + 2048) / 4095;
        ASSERT_EQ(r12.u16(i), (v * 4095 + 32768) >> 16) << i;
        ASSERT_EQ(r8.u8(i), (v * 255 + 32768) >> 16) << i;
    }
    ASSERT_EQ(ResampleCurveTo256(&f, &r256.buffer), 1);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(r256.u8(i), i);

    // Positions are 32-bit: for the last entry of a 1048834-entry curve,
    // 4095 x 1048833 wraps to 3839, which lands in cell 0 (not the folded last
    // cell): (4095 x 3839 + 2048) / 4095.
    std::vector<uint16_t> longCurve(1048834, 0);
    longCurve[1] = 4095;
    longCurve.back() = 65535;
    ValueBuffer lc = View(longCurve);
    ScopedBuffer wrapped;
    ASSERT_EQ(ResampleCurve16(&lc, 4096, &wrapped.buffer), 1);
    EXPECT_EQ(wrapped.u16(4095), 3839);

    ScopedBuffer empty, m1, short1, short256;
    EXPECT_EQ(ResampleCurve16(&f, 0, &empty.buffer), 1);  // empty table, success
    EXPECT_EQ(empty.buffer.count, 0u);
    EXPECT_EQ(ResampleCurve12(&f, 1, &m1.buffer), 0);       // would divide by zero
    EXPECT_EQ(ResampleCurve8(&single, 16, &short1.buffer), 0);  // one entry has no segment
    EXPECT_EQ(ResampleCurveTo256(&single, &short256.buffer), 0);
}

}  // namespace
}  // namespace tintra3
