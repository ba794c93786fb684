// Channel counts of device colour spaces: what the header promises callers,
// and what a profile's tables are held against.
#include <gtest/gtest.h>

#include "profile/profile_file.h"

namespace tintra3 {
namespace {

TEST(ColourSpaceChannels, DefinedCountsOnly) {
    const struct {
        uint32_t space;
        uint32_t channels;
    } cases[] = {
        {Sig("GRAY"), 1},
        {Sig("RGB "), 3},
        {Sig("YCbr"), 3},
        {Sig("CMY "), 3},
        {Sig("CMYK"), 4},
        {Sig("2CLR"), 2},  // the smallest n-colour space
        {Sig("9CLR"), 9},  // last decimal digit
        {Sig("ACLR"), 10},  // first hex digit
        {Sig("FCLR"), 15},  // the largest
        {Sig("1CLR"), 0},  // not a defined signature
        {Sig("GCLR"), 0},  // past F
        {Sig("aCLR"), 0},  // hex digits are upper case
        {Sig("2CLr"), 0},  // the suffix must match exactly
        {Sig("Lch "), 0},  // a PCS here, not a device space with a count
        {Sig("RGB\0"), 0},  // padding matters
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ColourSpaceChannels(c.space), c.channels) << std::hex << c.space;
    }
}

}  // namespace
}  // namespace tintra3
