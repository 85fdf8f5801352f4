// Stamps: exact puff values, the shape and sum of every puff size, the flake's order of draws, the
// star's shape and its turn, the shear and resampling primitives, and working sets.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "frame/ShuffledRandom.h"
#include "particles/Stamp.h"

namespace {

int64_t Sum(const Stamp& s) {
    int64_t total = 0;
    for (int32_t v : s.values)
        total += v;
    return total;
}

TEST(StampTest, EveryPuffSizeHasItsShapeAndSum) {
    StampSet puffs;
    MakePuffStamps(&puffs);
    // Radius 1 (sigma 1/3): exp(-4.5) and exp(-9) of 32769 are 364.03 and 4.04.
    EXPECT_EQ(puffs[2].values, (std::vector<int32_t>{4, 364, 4, 364, 32769, 364, 4, 364, 4}));
    // Side and sum of each of the 41 sizes, pinned. Sizes 0 and 1 (radius 0.01 and 0.5) lose their
    // ring of zeros.
    const int sides[kStampCount] = {1,  1,  3,  5,  5,  7,  7,  9,  9,  11, 11, 13, 13, 15,
                                    15, 17, 17, 19, 19, 21, 21, 23, 23, 25, 25, 27, 27, 29,
                                    29, 31, 31, 33, 33, 35, 35, 37, 37, 39, 39, 41, 41};
    const int64_t sums[kStampCount] = {
        32769,   32769,   34241,   52953,   91549,   142957,  205761,  280169,  365589,
        463033,  570953,  691489,  821797,  965497,  1118177, 1285089, 1460065, 1650197,
        1847433, 2060825, 2280321, 2517049, 2758681, 3018637, 3282565, 3565913, 3851981,
        4158577, 4466917, 4796773, 5127337, 5480565, 5833173, 6209697, 6584617, 6984469,
        7381517, 7804701, 8223941, 8670425, 9111873};
    for (int i = 0; i < kStampCount; ++i) {
        const Stamp& s = puffs[i];
        EXPECT_EQ(s.width, sides[i]) << i;
        EXPECT_EQ(s.height, sides[i]) << i;
        EXPECT_EQ(Sum(s), sums[i]) << i;
        EXPECT_EQ(s.At(s.width / 2, s.height / 2), 32769) << i;
    }
}

TEST(StampTest, FlakeDrawsOnePixelAtATimeInRows) {
    int32_t seed = -567;
    const Stamp flake = MakeFlakeStamp(2.0f, &seed);
    ASSERT_EQ(flake.width, 5);
    int32_t check = -567;
    const float sigma = static_cast<float>(2.0 * 0.3333333333333333);
    for (int y = -2; y <= 2; ++y)
        for (int x = -2; x <= 2; ++x) {
            const double r = ShuffledRandom(&check);
            const double e = std::exp(-(x * x + y * y) / (2.0 * sigma * sigma));
            EXPECT_EQ(flake.At(x + 2, y + 2), static_cast<int>(std::floor(r * e * 257.0)));
        }
    // Both sequences took 25 draws.
    EXPECT_EQ(seed, check);
}

TEST(StampTest, UnturnedStarsHaveTheirExactShape) {
    struct Case {
        float radius;
        int side;
        std::vector<int32_t> values;
    };
    const Case cases[] = {
        // At distance 1 both factors reach 0: the centre alone.
        {0.5f, 3, {0, 0, 0, 0, 255, 0, 0, 0, 0}},
        // Radius 1.5, power 2.871429: an axis pixel is 1/3 plus pow(1/3, e) * 1.5 = 0.397 of 255;
        // a diagonal one pow(1/9, e) * 1.5, under one step.
        {1.5f, 5, {0, 0, 0,   0, 0,  //
                   0, 0, 101, 0, 0, 0, 101, 255, 101, 0, 0, 0, 101, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        const Stamp s = MakeStarStamp(c.radius, 0.0);
        ASSERT_EQ(s.width, c.side) << c.radius;
        EXPECT_EQ(s.values, c.values) << c.radius;
    }
}

TEST(StampTest, TurnedStarsStayCentredAndWhole) {
    // A quarter or half turn leaves the four-pointed star as it was; other angles keep its mass
    // within the losses of the shears and its centre on the stamp's centre.
    const double angles[] = {90.0, -90.0, 180.0, -180.0, 30.0, -30.0, 44.0, -60.0, 135.5};
    const Stamp flat = MakeStarStamp(6.0f, 0.0);
    for (double angle : angles) {
        const Stamp s = MakeStarStamp(6.0f, angle);
        if (std::fmod(std::fabs(angle), 90.0) == 0.0) {
            EXPECT_EQ(s.values, flat.values) << angle;
            continue;
        }
        double mass = 0, cx = 0, cy = 0;
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x) {
                mass += s.At(x, y);
                cx += static_cast<double>(x) * s.At(x, y);
                cy += static_cast<double>(y) * s.At(x, y);
            }
        EXPECT_GT(mass, 0.9 * Sum(flat)) << angle;
        EXPECT_LE(mass, 1.0 * Sum(flat)) << angle;
        EXPECT_NEAR(cx / mass, s.width / 2, 1.0) << angle;
        EXPECT_NEAR(cy / mass, s.height / 2, 1.0) << angle;
        // Nothing reaches the border: no part of the star is cut.
        for (int i = 0; i < s.width; ++i)
            EXPECT_EQ(s.At(i, 0) + s.At(i, s.height - 1), 0) << angle;
        for (int i = 0; i < s.height; ++i)
            EXPECT_EQ(s.At(0, i) + s.At(s.width - 1, i), 0) << angle;
    }
}

TEST(StampTest, ShearsAndResamplingOfALine) {
    // Shear by `amount` into 5 bytes, or (amount < 0 marks it) resample to -amount bytes. A
    // fractional shear mixes each pixel with the one before it; the resampling walk stops at the
    // last but one pixel, so the last output repeats it.
    const uint8_t line[4] = {100, 200, 50, 30};
    const struct {
        bool shear;
        double amount;
        std::vector<uint8_t> out;
    } cases[] = {
        {true, 0.0, {100, 200, 50, 30, 0}},
        {true, 1.0, {0, 100, 200, 50, 30}},
        {true, -1.0, {200, 50, 30, 0, 0}},
        {true, 0.25, {75, 175, 87, 35, 7}},
        {false, 4, {100, 200, 50, 50}},
        {false, 2, {150, 50}},
        {false, 8, {100, 150, 200, 125, 50, 40, 50, 40}},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> out(c.out.size(), 9);
        if (c.shear)
            ShearRow(line, 4, 5, c.amount, 1, out.data());
        else
            ResampleLine(line, out.data(), 4, static_cast<int>(c.amount), 1, 1, true);
        EXPECT_EQ(out, c.out) << c.shear << " " << c.amount;
    }
}

TEST(StampTest, WorkingSetsFollowTheAspect) {
    StampSet puffs;
    MakePuffStamps(&puffs);
    StampSet working;
    // Square pixels: the working stamps are the masters.
    ResampleStampSet(puffs, 1.0, true, &working);
    for (int i = 0; i < kStampCount; ++i)
        EXPECT_EQ(working[i].values, puffs[i].values) << i;
    // Twice as wide: widths double, heights stay.
    ResampleStampSet(puffs, 2.0, true, &working);
    for (int i = 0; i < kStampCount; ++i) {
        EXPECT_EQ(working[i].width, puffs[i].width * 2) << i;
        EXPECT_EQ(working[i].height, puffs[i].height) << i;
    }
    // Each byte of a value is filtered on its own: between 364 (0x016c) and 32769 (0x8001) lies
    // 0x40 << 8 | (0x6c + 0x01) / 2 = 16438. The pass down stops at the last but one row, so the
    // last row repeats the middle one.
    EXPECT_EQ(working[2].values, (std::vector<int32_t>{4, 56, 364, 56, 364, 56,                 //
                                                       364, 16438, 32769, 16438, 32769, 16438,  //
                                                       364, 16438, 32769, 16438, 32769, 16438}));
    // Narrower than a pixel still leaves one.
    EXPECT_EQ(ResampleStamp(puffs[0], 0.1, true).width, 1);

    StampAspect aspect;
    EXPECT_TRUE(aspect.NeedsRebuild(-400.0));
    aspect.Store(1.0);
    EXPECT_FALSE(aspect.NeedsRebuild(1.0 + 0.9e-5));
    EXPECT_TRUE(aspect.NeedsRebuild(1.0 + 1.1e-5));
    EXPECT_TRUE(aspect.NeedsRebuild(1.0 - 1.1e-5));
}

}  // namespace
