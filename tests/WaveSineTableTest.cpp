// The wave table: its entries, the look-up without and with interpolation, and the extrapolation
// of negative positions.
#include <gtest/gtest.h>

#include <cmath>

#include "surface/WaveSineTable.h"

TEST(WaveSineTable, EntriesAndLookUps) {
    WaveSineTable table;
    ASSERT_TRUE(table.Make());
    EXPECT_EQ(table.Entry(0), 0.0f);
    EXPECT_EQ(table.Entry(256), static_cast<float>(std::sin(256 * 0.0061359233) * 0.5));
    EXPECT_NEAR(table.Entry(256), 0.5f, 1e-7);
    EXPECT_NEAR(table.Entry(768), -0.5f, 1e-7);
    const double e10 = table.Entry(10), e11 = table.Entry(11);
    const double e1013 = table.Entry(1013), e1014 = table.Entry(1014);
    const double e1023 = table.Entry(1023), e0 = table.Entry(0);
    struct Case {
        double position;
        double at, interpolated;
    };
    const Case cases[] = {
        // Whole cycles drop out; a quarter step lies a quarter of the way to the next entry.
        {10.25 / 1024, e10, 0.75 * e10 + 0.25 * e11},
        {3.0 + 10.25 / 1024, e10, 0.75 * e10 + 0.25 * e11},
        {0.25, table.Entry(256), table.Entry(256)},
        // The last entry interpolates towards the first.
        {1023.5 / 1024, e1023, 0.5 * e1023 + 0.5 * e0},
        // Negative: -10.25 steps is entry 1014 with the weight -0.25, away from entry 1015.
        {-10.25 / 1024, e1014, 1.25 * e1014 - 0.25 * table.Entry(1015)},
        {-2.0 - 10.75 / 1024, e1014, 1.75 * e1014 - 0.75 * table.Entry(1015)},
        // Within the first step back the index stays 0 and the weight is negative.
        {-0.5 / 1024, e0, 1.5 * e0 - 0.5 * table.Entry(1)},
        {-11.0 / 1024, e1013, e1013},
        {-1.0, e0, e0},
        // Not a number reads the first entry.
        {std::nan(""), e0, e0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(table.At(c.position), c.at) << c.position;
        EXPECT_NEAR(table.Interpolate(c.position), c.interpolated, 1e-15) << c.position;
    }
}
