// The fixed-point steps every builder and resampler shares: the truncating
// conversion, a position split into cell and fraction, and 16-bit table
// lookups, each against values worked out by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "profile/fixed_point.h"

namespace tintra3 {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(FixedPoint, TruncatesAsTheX86Conversion) {
    const std::pair<double, int32_t> cases[] = {
        {0.0, 0},                       // zero
        {-0.9, 0},                      // truncates toward zero
        {65535.5, 65535},               // a fraction is dropped, not rounded
        {2147483647.9, INT32_MAX},      // the largest value that fits
        {2147483648.0, INT32_MIN},      // 2^31 does not
        {-2147483648.9, INT32_MIN},     // truncates to -2^31, which fits
        {-2147483649.0, INT32_MIN},     // below the range
        {1e300, INT32_MIN},             // far out of range
        {kInf, INT32_MIN},              // infinities
        {-kInf, INT32_MIN},
        {kNaN, INT32_MIN},              // NaN: 0x80000000, which codes 0 in 16 bits
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(TruncToInt(in), out) << in;
}

TEST(FixedPoint, CellAndFraction) {
    struct Case {
        uint32_t last;
        uint32_t value;
        FixedScale scale;
        uint32_t cell;
        uint32_t fraction;
        const char* why;
    };
    const Case cases[] = {
        {255, 65535, kScale16, 254, 65536, "top: last cell, fraction 1.0"},
        {15, 0x3FF, {10, 1023, 512}, 14, 1024, "low-justified 10-bit top"},
        {3, 32768, kScale16, 1, ((uint32_t(3 * 32768 - 65535) << 16) + 32768) / 65535, "inner cell"},
        {31, 65535, kScale16, 30, 0x10000, "a 32-point grid's top"},
        {31, 0, kScale16, 0, 0, "a 32-point grid's bottom"},
        {32, 8, kScale8, 1, 1, "8-bit code 8 of 33 points: 1/255 past node 1"},
        {32, 128, kScale8, 16, 16, "((4096 - 4080) 256 + 128) / 255"},
        {1, 128, kScale8, 0, 129, "two points: the fraction is the code, rounded"},
        {4095, 4095, kScale12, 4094, 0x10000, "one node per 12-bit coordinate: the top still folds back"},
    };
    for (const Case& c : cases) {
        const CellPosition at = LocateCell(c.last, c.value, c.scale.fullScale);
        EXPECT_EQ(at.cell, c.cell) << c.why;
        EXPECT_EQ(CellFraction(at.remainder, c.scale), c.fraction) << c.why;
    }
}

TEST(FixedPoint, Table16Lookups) {
    const uint16_t rising[] = {0, 65535};
    const uint16_t falling[] = {65535, 0};
    const uint16_t steps[] = {100, 4000, 3000, 60000};
    const uint16_t bumpy[] = {1000, 50000, 20};
    const uint16_t single[] = {777};
    const FixedScale twelve = {12, 4095, 2048};
    struct Case {
        const uint16_t* table;
        uint32_t count;
        FixedScale scale;
        uint32_t value;
        uint16_t expected;
        const char* why;
    };
    const Case cases[] = {
        {rising, 2, kScale16, 65535, 65535, "value = full scale, 2^shift fraction: last entry exactly"},
        {rising, 2, kScale16, 32768, 32768, "midpoint rising"},
        {falling, 2, kScale16, 1, 65534, "falling segment rounds like a signed lerp"},
        {falling, 2, kScale16, 32768, 32767, "value 32768 is fraction 32769; falling rounds as a floor"},
        {falling, 2, kScale16, 65535, 0, "top of a falling table"},
        {steps, 4, kScale16, 21845, 4000, "value on an inner node"},
        {steps, 4, twelve, 4095, 60000, "12-bit input reaches the top"},
        {steps, 4, twelve, 2048, 3500, "falling middle segment at 12-bit floors"},
        {bumpy, 3, kScale16, 65535, 20, "last entry exactly"},
        {bumpy, 3, kScale16, 32768, 49999, "just past the middle node, falling"},
        {single, 1, kScale16, 40000, 777, "one entry has no segment: the entry itself"},
        {single, 0, kScale16, 40000, 0, "an empty table gives 0"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(InterpolateTable16(c.table, c.count, c.value, c.scale), c.expected) << c.why;
}

}  // namespace
}  // namespace tintra3
