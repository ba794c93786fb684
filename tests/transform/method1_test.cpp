// The 16-bit transform builder on crafted profiles whose answer is known.
#include "transform/method1.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "profile/profile_model.h"
#include "support/test_support.h"
#include "tools/iccwriter/icc_writer.h"
#include "transform/colour.h"

namespace tintra3 {
namespace {

using icc::Sig4;

// A profile written to a scratch file and opened; closed on destruction.
class OpenedProfile {
public:
    OpenedProfile(const icc::ProfileWriter& writer, const std::string& name) {
        const std::string path = test::WriteTempFile(name, writer.Bytes());
        ok_ = OpenProfile(path.c_str(), &file_) == 1;
    }
    ~OpenedProfile() {
        if (ok_) CloseProfile(&file_);
    }
    bool ok() const { return ok_; }
    ProfileFile* get() { return &file_; }

private:
    ProfileFile file_ = {};
    bool ok_ = false;
};

struct TransformDeleter {
    void operator()(Method1Transform* t) const { DestroyMethod1Transform(t); }
};
using TransformPtr = std::unique_ptr<Method1Transform, TransformDeleter>;

TransformPtr Build(const icc::ProfileWriter& source, const icc::ProfileWriter& destination, uint16_t intent,
                   int* result) {
    OpenedProfile s(source, "source.icc");
    OpenedProfile d(destination, "destination.icc");
    EXPECT_TRUE(s.ok() && d.ok());
    TransformPtr t(CreateMethod1Transform());
    *result = s.ok() && d.ok() ? BuildMethod1Transform(t.get(), intent, s.get(), d.get(), 0) : -1;
    return t;
}

// 16-bit level of node k in a grid of p points.
uint32_t Level(uint32_t k, uint32_t p) { return (k * 65535 + p / 2) / (p - 1); }

// Largest difference between each CLUT value and expected(node coordinates, channel).
template <typename F>
int MaxNodeError(const Method1Transform& t, F expected) {
    const uint16_t* clut = U16(t.clut);
    const uint32_t nodes = t.clut.count / t.outputChannels;
    int worst = 0;
    for (uint32_t n = 0; n < nodes; ++n) {
        uint32_t coord[4] = {0, 0, 0, 0};
        for (uint32_t d = 0, rest = n; d < t.inputChannels; ++d) {
            coord[t.inputChannels - 1 - d] = rest % t.gridPoints;
            rest /= t.gridPoints;
        }
        for (uint32_t c = 0; c < t.outputChannels; ++c)
            worst = std::max(worst, std::abs(int(clut[n * t.outputChannels + c]) - int(expected(coord, c))));
    }
    return worst;
}

TEST(Method1Build, IdenticalLinearMatrixProfilesGiveTheIdentityGrid) {
    const icc::ProfileWriter p = icc::MatrixTrcGammaProfile({}, 1.0);
    for (uint16_t intent : {0, 1, 3}) {  // 3 is absolute: the same white on both sides changes nothing
        int result;
        TransformPtr t = Build(p, p, intent, &result);
        ASSERT_EQ(result, 1);
        EXPECT_EQ(t->ready, 1u);
        EXPECT_EQ(t->absolute, intent == 3 ? 1u : 0u);
        EXPECT_EQ(t->sourceKind, kKindMatrixTrc);
        EXPECT_EQ(t->inputChannels, 3);
        EXPECT_EQ(t->outputChannels, 3);
        EXPECT_EQ(t->gridPoints, 32);
        EXPECT_EQ(t->clut.count, 98304u);
        EXPECT_EQ(t->strides[0], 3072u);
        EXPECT_EQ(t->strides[1], 96u);
        EXPECT_EQ(t->strides[2], 3u);
        // The top coordinate sits at fraction 1.0 of the last cell.
        EXPECT_EQ(U16(t->gridIndex)[4095], 30);
        EXPECT_EQ(U32(t->gridFraction)[4095], 0x10000u);
        EXPECT_EQ(t->inputTable4096[2].count + t->outputTable8[2].count + t->outputTable16[2].count, 3 * 4096u);
        EXPECT_EQ(t->inputTable256[3].data, nullptr);
        EXPECT_EQ(t->altInputTable256[0].data, nullptr);
        // Node i is i/31 of full scale; the matrix and its inverse round-trip
        // to well under one code.
        EXPECT_LE(MaxNodeError(*t, [](const uint32_t* k, uint32_t c) { return Level(k[c], 32); }), 1);
    }
}

// Unit primaries make both matrices exact, so each node is trunc(0.5 + v 65535)
// of its accumulated node position v (times the white ratio for absolute):
// catches a missing + 0.5 or a different white scaling, which the round trip
// above tolerates.
TEST(Method1Build, UnitPrimariesGiveExactlyRoundedNodes) {
    icc::Primaries unit;
    unit.red = {1, 0, 0};
    unit.green = {0, 1, 0};
    unit.blue = {0, 0, 1};
    unit.white = {1, 1, 1};
    icc::Primaries brighter = unit;
    brighter.white = {2, 2, 2};
    double node[32];
    node[0] = 0.0;
    for (int i = 1; i < 32; ++i) node[i] = node[i - 1] + 1.0 / 31;
    struct Case {
        const icc::Primaries* destination;
        uint16_t intent;
        double scale;
        const char* why;
    } cases[] = {
        {&unit, 1, 1.0, "relative"},
        {&brighter, 1, 1.0, "relative ignores the media whites"},
        {&brighter, 3, 0.5, "absolute: x source white / destination white"},
    };
    for (const Case& c : cases) {
        int result;
        TransformPtr t =
            Build(icc::MatrixTrcGammaProfile(unit, 1.0), icc::MatrixTrcGammaProfile(*c.destination, 1.0), c.intent,
                  &result);
        ASSERT_EQ(result, 1) << c.why;
        const double scale = c.scale;
        EXPECT_EQ(MaxNodeError(*t, [&](const uint32_t* k, uint32_t ch) {
                      return uint32_t(0.5 + node[k[ch]] * scale * 65535.0);
                  }),
                  0)
            << c.why;
    }
}

TEST(Method1Build, AbsoluteIntentScalesByTheMediaWhites) {
    icc::Primaries brighter;
    brighter.white = {2 * 0.9642, 2.0, 2 * 0.8249};
    const icc::ProfileWriter source = icc::MatrixTrcGammaProfile({}, 1.0);
    const icc::ProfileWriter destination = icc::MatrixTrcGammaProfile(brighter, 1.0);
    int result;
    TransformPtr relative = Build(source, destination, 1, &result);
    ASSERT_EQ(result, 1);
    TransformPtr absolute = Build(source, destination, 3, &result);
    ASSERT_EQ(result, 1);
    EXPECT_LE(MaxNodeError(*relative, [](const uint32_t* k, uint32_t c) { return Level(k[c], 32); }), 1);
    // XYZ x source white / destination white: everything at half strength.
    EXPECT_LE(MaxNodeError(*absolute, [](const uint32_t* k, uint32_t c) { return Level(k[c], 32) / 2; }), 1);
}

// Identity luts on both sides: every node comes back as its own level.
TEST(Method1Build, IdentityLutProfilesGiveTheIdentityGrid) {
    struct Case {
        uint32_t pcs;
        bool sixteenBit;
        uint8_t lutGrid;
        int tolerance;
        const char* why;
    } cases[] = {
        // One code from the rounded ramp nodes of each lut, one from the interpolation.
        {Sig4("XYZ "), true, 9, 2, "XYZ codes decode and encode exactly; the lut matrix is the identity"},
        {Sig4("Lab "), true, 17, 2, "Lab -> XYZ -> Lab against the same white"},
        // An 8-bit CLUT holds its nodes to half of 257 codes, in each of the two luts.
        {Sig4("Lab "), false, 9, 2 * 128 + 2, "mft1 tables and CLUT widened by x 257"},
    };
    for (const Case& c : cases) {
        const icc::Lut identity = icc::IdentityLut(3, c.lutGrid, 256);
        const icc::ProfileWriter p =
            icc::LutProfile(Sig4("prtr"), Sig4("RGB "), c.pcs, &identity, &identity, c.sixteenBit);
        int result;
        TransformPtr t = Build(p, p, 0, &result);
        ASSERT_EQ(result, 1) << c.why;
        EXPECT_EQ(t->sourceKind, kKindLut);
        EXPECT_EQ(t->destinationKind, kKindLut);
        EXPECT_EQ(t->gridPoints, 32);
        EXPECT_EQ(t->outputChannels, 3);
        EXPECT_LE(MaxNodeError(*t, [](const uint32_t* k, uint32_t ch) { return Level(k[ch], 32); }), c.tolerance)
            << c.why;
    }
}

// Two-point XYZ luts with two-entry tables: every step of the chain is an
// exact integer operation, so each node can be predicted to the code. This
// pins the node levels (k 65535 + p/2) / (p - 1), which lut matrix is used
// (a source's only for an XYZ device space) and where it sits (a
// destination's after its input tables).
TEST(Method1Build, XyzLutChainIsExactToTheCode) {
    static const uint16_t kRamp[2] = {0, 65535};
    static const uint16_t kConvex[3] = {0, 0, 65535};
    // One 2-entry table step or one 2-point grid step: the same lerp.
    auto ramp = [](uint32_t v) {
        ValueBuffer t{2, 0, const_cast<uint16_t*>(kRamp)};
        return uint32_t(InterpolateTable16(&t, v));
    };
    auto convex = [](uint32_t v) {
        ValueBuffer t{3, 0, const_cast<uint16_t*>(kConvex)};
        return uint32_t(InterpolateTable16(&t, v));
    };
    auto half = [](uint32_t v) { return uint32_t(v * 0.5 + 0.5); };  // 1.15 code x 0.5, re-encoded
    auto same = [](uint32_t v) { return v; };
    struct Case {
        uint32_t sourceSpace;
        double sourceScale;
        bool convexDestinationTable;
        double destinationScale;
        uint32_t (*sourceMatrix)(uint32_t);
        uint32_t (*destinationTable)(uint32_t);
        uint32_t (*destinationMatrix)(uint32_t);
        const char* why;
    } cases[] = {
        {Sig4("RGB "), 1.0, false, 1.0, same, ramp, same, "identity chain: levels come through unchanged"},
        {Sig4("RGB "), 0.5, false, 1.0, same, ramp, same, "an RGB source ignores its lut matrix"},
        {Sig4("XYZ "), 0.5, false, 1.0, half, ramp, same, "an XYZ source applies it before the grid"},
        {Sig4("RGB "), 1.0, true, 0.5, same, convex, half, "destination matrix after its input tables"},
    };
    for (const Case& c : cases) {
        icc::Lut a2b = icc::IdentityLut(3, 2, 2);
        a2b.matrix = {c.sourceScale, 0, 0, 0, c.sourceScale, 0, 0, 0, c.sourceScale};
        icc::Lut b2a = icc::IdentityLut(3, 2, 2);
        b2a.matrix = {c.destinationScale, 0, 0, 0, c.destinationScale, 0, 0, 0, c.destinationScale};
        if (c.convexDestinationTable) b2a.inputTables.assign(3, std::vector<uint16_t>(kConvex, kConvex + 3));
        const icc::ProfileWriter source = icc::LutProfile(Sig4("prtr"), c.sourceSpace, Sig4("XYZ "), &a2b, nullptr, true);
        const icc::ProfileWriter destination =
            icc::LutProfile(Sig4("prtr"), Sig4("RGB "), Sig4("XYZ "), nullptr, &b2a, true);
        int result;
        TransformPtr t = Build(source, destination, 0, &result);
        ASSERT_EQ(result, 1) << c.why;
        const auto expected = [&](const uint32_t* k, uint32_t ch) {
            // source: matrix?, grid, output table; destination: input table, matrix?, grid.
            const uint32_t pcs = ramp(ramp(c.sourceMatrix(Level(k[ch], 32))));
            return ramp(c.destinationMatrix(c.destinationTable(pcs)));
        };
        EXPECT_EQ(MaxNodeError(*t, expected), 0) << c.why;
    }
}

// Four inputs: a 16-point grid sampled through a 2-point lut whose first
// output falls with the fourth input, so the last axis matters.
TEST(Method1Build, FourInputLutSourceUsesSixteenPoints) {
    icc::Lut cmyk;
    cmyk.inputChannels = 4;
    cmyk.outputChannels = 3;
    cmyk.gridPoints = 2;
    for (int c = 0; c < 2; ++c)
        for (int m = 0; m < 2; ++m)
            for (int y = 0; y < 2; ++y)
                for (int k = 0; k < 2; ++k) {
                    cmyk.clut.push_back(uint16_t(c && !k ? 65535 : 0));
                    cmyk.clut.push_back(uint16_t(m ? 65535 : 0));
                    cmyk.clut.push_back(uint16_t(y ? 65535 : 0));
                }
    const icc::Lut identity = icc::IdentityLut(3, 2, 256);
    const icc::ProfileWriter source = icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("XYZ "), &cmyk, nullptr, true);
    const icc::ProfileWriter destination =
        icc::LutProfile(Sig4("prtr"), Sig4("RGB "), Sig4("XYZ "), nullptr, &identity, true);
    int result;
    TransformPtr t = Build(source, destination, 0, &result);
    ASSERT_EQ(result, 1);
    EXPECT_EQ(t->inputChannels, 4);
    EXPECT_EQ(t->gridPoints, 16);
    EXPECT_EQ(t->clut.count, 16u * 16 * 16 * 16 * 3);
    EXPECT_EQ(t->strides[0], 12288u);
    EXPECT_EQ(t->strides[3], 3u);
    EXPECT_EQ(U16(t->gridIndex)[4095], 14);
    EXPECT_EQ(t->inputTable1024[3].count, 1024u);
    const int error = MaxNodeError(*t, [](const uint32_t* k, uint32_t ch) -> uint32_t {
        if (ch == 0) return uint32_t(uint64_t(Level(k[0], 16)) * (65535 - Level(k[3], 16)) / 65535);
        return Level(k[ch], 16);
    });
    EXPECT_LE(error, 2);
}

TEST(Method1Build, GreySources) {
    struct Case {
        uint32_t sourcePcs;
        bool greyDestination;
        double destinationIlluminantY;  // the destination's own white must not enter
        uint32_t (*expected)(uint32_t level);
        const char* why;
    } cases[] = {
        {Sig4("Lab "), true, 1.0, [](uint32_t l) { return l; }, "grey to grey through Lab"},
        {Sig4("Lab "), true, 0.5, [](uint32_t l) { return l; }, "Lab both ways against the source illuminant"},
        {Sig4("XYZ "), true, 1.0, [](uint32_t l) { return l; }, "grey to grey through XYZ: the 1.15 reading cancels"},
        // An XYZ grey reads its level as a 1.15 code: into linear RGB it is
        // twice as bright, up to the clip.
        {Sig4("XYZ "), false, 1.0, [](uint32_t l) { return std::min<uint32_t>(2 * l, 65535); }, "XYZ grey to RGB"},
    };
    for (const Case& c : cases) {
        const icc::ProfileWriter source = icc::GrayProfile(1.0, c.sourcePcs);
        // Primaries that add up to D50, so that a neutral comes out as R = G = B.
        icc::Primaries d50;
        d50.blue = {0.1430, 0.0606, 0.7139};
        icc::ProfileWriter destination =
            c.greyDestination ? icc::GrayProfile(1.0, c.sourcePcs) : icc::MatrixTrcGammaProfile(d50, 1.0);
        destination.header.illuminant[1] = c.destinationIlluminantY;
        int result;
        TransformPtr t = Build(source, destination, 0, &result);
        ASSERT_EQ(result, 1) << c.why;
        EXPECT_EQ(t->inputChannels, 1);
        EXPECT_EQ(t->gridPoints, 256);
        EXPECT_EQ(t->strides[0], t->outputChannels);
        EXPECT_EQ(t->clut.count, 256u * t->outputChannels);
        EXPECT_EQ(t->outputChannels, c.greyDestination ? 1 : 3);
        const auto expected = c.expected;
        // The s15Fixed16 primaries add up to D50 within a few 1e-5.
        EXPECT_LE(MaxNodeError(*t, [expected](const uint32_t* k, uint32_t) { return expected(Level(k[0], 256)); }),
                  c.greyDestination ? 1 : 4)
            << c.why;
    }
}

TEST(Method1Build, GreyDestinationStoresLOrTheEncodedY) {
    const icc::ProfileWriter rgb = icc::MatrixTrcGammaProfile({}, 1.0);
    struct Case {
        uint32_t pcs;
        uint16_t white;
        const char* why;
    } cases[] = {
        {Sig4("Lab "), 65535, "L = 100"},
        {Sig4("XYZ "), 32768, "Y = 1.0 is code 0x8000"},
    };
    for (const Case& c : cases) {
        int result;
        TransformPtr t = Build(rgb, icc::GrayProfile(1.0, c.pcs), 0, &result);
        ASSERT_EQ(result, 1) << c.why;
        ASSERT_EQ(t->outputChannels, 1);
        EXPECT_EQ(t->outputTable16[0].count, 4096u);
        EXPECT_EQ(t->outputTable16[1].data, nullptr);
        EXPECT_EQ(U16(t->clut)[0], 0) << c.why;
        EXPECT_NEAR(U16(t->clut)[t->clut.count - 1], c.white, 8) << c.why;
    }
}

TEST(Method1Build, UnusableProfilesFailWithoutAReadyTransform) {
    icc::ProfileWriter bare;  // an RGB display header without any tag
    const icc::ProfileWriter rgb = icc::MatrixTrcGammaProfile({}, 1.0);
    icc::Lut twoInputs = icc::IdentityLut(2, 2, 256);
    twoInputs.outputChannels = 3;
    twoInputs.clut.assign(2 * 2 * 3, 0);
    const icc::ProfileWriter twoInputSource =
        icc::LutProfile(Sig4("prtr"), Sig4("RGB "), Sig4("XYZ "), &twoInputs, nullptr, true);
    // Lut shapes that would make the grid lookups index outside their tables.
    icc::Lut onePoint = icc::IdentityLut(3, 1, 256);
    const icc::ProfileWriter onePointSource =
        icc::LutProfile(Sig4("prtr"), Sig4("RGB "), Sig4("Lab "), &onePoint, nullptr, true);
    icc::Lut oneEntry = icc::IdentityLut(3, 2, 1);
    const icc::ProfileWriter oneEntryDestination =
        icc::LutProfile(Sig4("prtr"), Sig4("RGB "), Sig4("Lab "), nullptr, &oneEntry, true);
    icc::Lut fourInputs = icc::IdentityLut(4, 2, 256);
    const icc::ProfileWriter fourInputDestination =
        icc::LutProfile(Sig4("prtr"), Sig4("CMYK"), Sig4("Lab "), nullptr, &fourInputs, true);
    struct Case {
        const icc::ProfileWriter* source;
        const icc::ProfileWriter* destination;
        const char* why;
    } cases[] = {
        {&rgb, &bare, "destination lacks its tags"},
        {&bare, &rgb, "source lacks its tags"},
        {&twoInputSource, &rgb, "a source grid of two dimensions is not built"},
        {&onePointSource, &rgb, "a one-point lut grid has no cell"},
        {&rgb, &oneEntryDestination, "a one-entry input table has no segment"},
        {&rgb, &fourInputDestination, "a destination lut must take a PCS triple"},
    };
    for (const Case& c : cases) {
        int result;
        TransformPtr t = Build(*c.source, *c.destination, 0, &result);
        EXPECT_EQ(result, 0) << c.why;
        EXPECT_EQ(t->ready, 0u) << c.why;
    }
}

// Real profile pairs build with the shape their kinds call for, and the
// source's white node lands on (or near) the destination's white.
TEST(Method1Build, RealProfilePairs) {
    struct Case {
        const char* source;
        const char* destination;
        uint16_t intent;  // a printer profile needs the tag of its intent
        uint8_t inputs, outputs;
        uint16_t points;
        int whiteNode;  // expected last CLUT value of channel 0, or -1 to skip
        const char* why;
    } cases[] = {
        {"sRGB.icc", "compatibleWithAdobeRGB1998.icc", 1, 3, 3, 32, 65535, "matrix/TRC both sides"},
        {"sRGB.icc", "ghostscript/default_cmyk.icc", 1, 3, 4, 32, -1, "lut destination with four outputs"},
        {"ghostscript/default_cmyk.icc", "sRGB.icc", 1, 4, 3, 16, -1, "four-input lut source: 16 points"},
        {"ghostscript/ps_cmyk.icc", "sRGB.icc", 0, 4, 3, 16, -1, "lut source with an XYZ PCS"},
        {"sRGB.icc", "ghostscript/ps_cmyk.icc", 0, 3, 4, 32, -1, "lut destination with an XYZ PCS"},
        {"ghostscript/lab.icc", "sRGB.icc", 0, 3, 3, 32, -1, "Lab input space through a lut"},
        {"Gray.icc", "sRGB.icc", 1, 1, 3, 256, 65535, "grey source: 256 points"},
        {"sRGB.icc", "Gray-CIE_L.icc", 1, 3, 1, 32, 65535, "grey destination"},
    };
    for (const Case& c : cases) {
        ProfileFile source = {}, destination = {};
        ASSERT_EQ(OpenProfile(test::RealProfile(c.source).c_str(), &source), 1) << c.source;
        ASSERT_EQ(OpenProfile(test::RealProfile(c.destination).c_str(), &destination), 1) << c.destination;
        TransformPtr t(CreateMethod1Transform());
        EXPECT_EQ(BuildMethod1Transform(t.get(), c.intent, &source, &destination, 0), 1) << c.why;
        CloseProfile(&source);
        CloseProfile(&destination);
        EXPECT_EQ(t->inputChannels, c.inputs) << c.why;
        EXPECT_EQ(t->outputChannels, c.outputs) << c.why;
        EXPECT_EQ(t->gridPoints, c.points) << c.why;
        uint64_t values = c.outputs;
        for (int d = 0; d < c.inputs; ++d) values *= c.points;
        ASSERT_EQ(t->clut.count, values) << c.why;
        if (c.whiteNode >= 0) {
            EXPECT_NEAR(U16(t->clut)[values - c.outputs], c.whiteNode, 300) << c.why;
        }
    }
}

TEST(Method1Interpolation, LocateAndTableEdges) {
    uint32_t cell, fraction;
    LocateInGrid(31, 65535, 16, 65535, 32768, &cell, &fraction);
    EXPECT_EQ(cell, 30u);
    EXPECT_EQ(fraction, 0x10000u);
    LocateInGrid(31, 0, 16, 65535, 32768, &cell, &fraction);
    EXPECT_EQ(cell, 0u);
    EXPECT_EQ(fraction, 0u);

    uint16_t rising[2] = {0, 65535};
    uint16_t falling[2] = {65535, 0};
    uint16_t bumpy[3] = {1000, 50000, 20};
    ValueBuffer r{2, 0, rising}, f{2, 0, falling}, b{3, 0, bumpy};
    struct Case {
        const ValueBuffer* table;
        uint32_t value;
        uint16_t expected;
        const char* why;
    } cases[] = {
        {&r, 32768, 32768, "midpoint rising"},
        {&f, 32768, 32767, "value 32768 is fraction 32769; falling rounds as a floor"},
        {&f, 65535, 0, "top of a falling table"},
        {&b, 65535, 20, "last entry exactly"},
        {&b, 32768, 49999, "just past the middle node, falling"},
    };
    for (const Case& c : cases) EXPECT_EQ(InterpolateTable16(c.table, c.value), c.expected) << c.why;
}

}  // namespace
}  // namespace tintra3

namespace tintra3 {
TEST(Method1Record, DestroyAcceptsNull) { DestroyMethod1Transform(nullptr); }
}  // namespace tintra3
