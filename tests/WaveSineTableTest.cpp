// The wave table: its entries, and look-ups plain and interpolated, negative positions included.
#include <gtest/gtest.h>

#include <cmath>

#include "surface/WaveSineTable.h"

TEST(WaveSineTable, EntriesAndLookUps) {
    WaveSineTable t;
    ASSERT_TRUE(t.Make());
    EXPECT_EQ(t.Entry(256), static_cast<float>(std::sin(256 * 0.0061359233) * 0.5));
    EXPECT_NEAR(t.Entry(768), -0.5f, 1e-7);
    const double e[] = {t.Entry(0),    t.Entry(1),    t.Entry(10),  t.Entry(11),
                        t.Entry(1014), t.Entry(1015), t.Entry(1023)};
    // Position in cycles, the entry below it, and the interpolation.
    const double cases[][3] = {
        {3.0 + 10.25 / 1024, e[2], 0.75 * e[2] + 0.25 * e[3]},  // whole cycles drop out
        {1023.5 / 1024, e[6], 0.5 * e[6] + 0.5 * e[0]},         // the last step wraps
        {-10.25 / 1024, e[4], 1.25 * e[4] - 0.25 * e[5]},       // back from the end, extrapolated
        {-0.5 / 1024, e[0], 1.5 * e[0] - 0.5 * e[1]},           // the first step back stays at 0
        {std::nan(""), e[0], e[0]},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(t.At(c[0]), c[1]) << c[0];
        EXPECT_NEAR(t.Interpolate(c[0]), c[2], 1e-15) << c[0];
    }
}
