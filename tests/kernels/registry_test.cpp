// The kernel registry: which keys have kernels, and how a TINTRA3_KERNELS
// request picks the instruction set.
#include <gtest/gtest.h>

#include "kernels/kernels.h"
#include "records.h"

namespace tintra3 {
namespace {

using namespace test;

// Shapes with no kernel get none; the table accessors stop at four channels.
TEST(Registry, LookupsRefuseWhatHasNoKernel) {
    Method1Fixture f(1, 1, 2, 6);
    struct Case {
        uint16_t method, bitsIn, bitsOut;
        uint32_t in, out;
        uint16_t layout;
    } const cases[] = {
        {0, 8, 8, 2, 3, 0},    // two channels: no interleaved kernel
        {0, 16, 16, 3, 5, 0},  // nor five
        {1, 9, 8, 3, 3, 0},    // no such depth
        {1, 8, 8, 2, 3, 0},    //
        {0, 8, 8, 3, 3, 3},    // no layout 3
        {2, 8, 8, 3, 3, 0},    // no method 2
        {1, 16, 12, 3, 3, 1},  // output is 8 or 16 bits (the dispatch maps the rest)
    };
    for (Isa isa : kAllIsas) {
        for (const Case& c : cases) {
            EXPECT_EQ(FindKernel(isa, c.method, c.bitsIn, c.bitsOut, c.in, c.out, c.layout), nullptr)
                << IsaName(isa) << " case " << &c - cases;
        }
    }
    EXPECT_EQ(GetOutputTable8(&f.t, 4), nullptr);
    EXPECT_EQ(GetInputTable16(&f.t, 4), nullptr);
}

TEST(Registry, RequestOnlyLowersTheChoice) {
    const Isa best = ChooseIsa(nullptr);
    struct Case {
        const char* request;
        Isa want;
    } const cases[] = {
        {"", best},                       // empty: as unset
        {"portable", Isa::kPortable},     // always available
        {"fastest", best},                // unknown names are ignored
        {"AVX2", best},                   // names are lower case
    };
    for (const Case& c : cases) EXPECT_EQ(ChooseIsa(c.request), c.want) << c.request;
    for (Isa isa : kAllIsas) {
        const Isa chosen = ChooseIsa(IsaName(isa));
        EXPECT_LE(chosen, best) << IsaName(isa);
        EXPECT_TRUE(IsaSupported(chosen)) << IsaName(isa);
    }
}

}  // namespace
}  // namespace tintra3
