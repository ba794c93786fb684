// XYZ, L*a*b* and L*C*h conversions at their branch edges, and round trips.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "transform/colour.h"

namespace tintra3 {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kD50[3] = {0.9642, 1.0, 0.8249};
const double kUnit[3] = {1, 1, 1};

// The Lab formulas at their edges, and round trips.
TEST(Conversions, LabEdgesAndRoundTrips) {
    using Fn = void (*)(const double*, const double*, double*);
    const double inv = 7.9996247999999985;  // L at the inverse threshold
    const double x = kNaN;                  // not checked
    struct Case {
        Fn fn;
        const double* white;
        double in[3];
        double out[3];
        const char* why;
    };
    const Case cases[] = {
        {XyzToLab, kD50, {0.9642, 1.0, 0.8249}, {100.0, 0.0, 0.0}, "the white is L 100, a = b = 0 exactly"},
        {XyzToLab, kUnit, {0.008856, 0.008856, 0.008856}, {903.3 * 0.008856, 0, 0}, "threshold: linear branch"},
        {LabToXyz, kUnit, {inv, 0, 0}, {x, inv * 0.0011070519207350825, x}, "linear Y = L / 903.3, not fy cubed"},
        {LabToXyz, kUnit, {0, 34.480836, 0}, {(0.2068927064827586 - 0.13793103448275862) * 0.1284191601386927, x, x},
         "fx exactly 0.2068927064827586: still linear (the cube gives 0.0088559578...)"},
        {LabToLch, nullptr, {50, 300, 0}, {x, 255.99609375, 0.0}, "chroma clips to the 16-bit code range; hue"},
    };
    for (const Case& c : cases) {
        double out[3];
        c.fn(c.white, c.in, out);
        for (int k = 0; k < 3; ++k) EXPECT_TRUE(std::isnan(c.out[k]) || out[k] == c.out[k]) << c.why << " " << out[k];
    }
    // Round trips: light, dark (linear branch), saturated, and negative (linear branch only).
    for (const auto& xyz : {std::array{0.9642, 1.0, 0.8249}, {0.2, 0.3, 0.1}, {0.004, 0.005, 0.006}, {0.0, 0.0, 0.0},
                            {0.4, 0.1, 0.6}, {-0.001, 0.003, 0.001}, {1.5, 1.2, 0.01}}) {
        double lab[3];
        double lch[3];
        double back[3];
        double back2[3];
        XyzToLab(kD50, xyz.data(), lab);
        LabToXyz(kD50, lab, back);
        XyzToLch(kD50, xyz.data(), lch);
        LchToXyz(kD50, lch, back2);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(back[c], xyz[c], 1e-12) << "Lab " << c;
            EXPECT_NEAR(back2[c], xyz[c], 1e-12) << "LCh " << c;
        }
    }
}

}  // namespace
}  // namespace tintra3
