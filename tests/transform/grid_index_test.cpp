// Method 1's grid coordinate tables: every 12-bit coordinate located among
// the grid's nodes, against the exact position.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "transform/colour.h"

namespace tintra3 {
namespace {

// Position in cells, 16.16, rounded (+2048 is just under half of 4095); the
// top coordinate at fraction 1.0 of the last cell.
TEST(GridIndexTables, EveryCoordinateWithinHalfAStep) {
    for (uint32_t points : {2u, 16u, 32u, 33u, 256u}) {
        ValueBuffer tables[2] = {};
        uint16_t status = 0;
        ASSERT_EQ(BuildGridIndexTables(&status, &tables[0], &tables[1], points), 1);
        const uint16_t* cell = U16(tables[0]);
        const uint32_t* fraction = U32(tables[1]);
        ASSERT_EQ(tables[0].count + tables[1].count, 2 * 4096u);
        EXPECT_EQ(std::tuple(cell[0], fraction[0], cell[4095], fraction[4095], status),
                  std::tuple(0, 0u, points - 2, 0x10000u, 0)) << "top: last cell";
        for (uint32_t i = 0; i < 4096; ++i) {
            const double exact = double(i) * (points - 1) / 4095.0 * 65536.0;
            ASSERT_LE(std::fabs(cell[i] * 65536.0 + fraction[i] - exact), 0.5 + 1.0 / 4095) << points << " " << i;
            ASSERT_LE(fraction[i], 0x10000u);
        }
        FreeValueBuffer(&tables[0]);
        FreeValueBuffer(&tables[1]);
    }
}

}  // namespace
}  // namespace tintra3
