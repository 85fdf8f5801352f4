// The shared lattice of the gradient noise: the permutation, the seeded gradients, the lattice hash
// and the guarded lattice floor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <set>

#include "frame/NoiseTable.h"
#include "frame/ShuffledRandom.h"

namespace {

bool SameGradients(const NoiseGradient* a, const NoiseGradient* b) {
    return std::memcmp(a, b, sizeof(NoiseGradient) * 256) == 0;
}

}  // namespace

TEST(NoiseTable, PermutationAndLatticeIndex) {
    std::set<int> seen(noisePermutation, noisePermutation + 256);
    EXPECT_EQ(seen.size(), 256u);
    EXPECT_EQ(*seen.begin(), 0);
    EXPECT_EQ(*seen.rbegin(), 255);
    EXPECT_EQ(noisePermutation[0], 225);
    EXPECT_EQ(noisePermutation[1], 155);
    EXPECT_EQ(noisePermutation[128], 18);
    EXPECT_EQ(noisePermutation[255], 52);

    // P[P[P[k] + j] + i] with every index taken to 8 bits, so the lattice repeats every 256.
    const auto* P = noisePermutation;
    EXPECT_EQ(NoiseLatticeIndex(0, 0, 0), P[(P[P[0]]) & 255]);
    EXPECT_EQ(NoiseLatticeIndex(3, 7, 11), P[(P[(P[11] + 7) & 255] + 3) & 255]);
    for (int i = -3; i <= 3; ++i)
        for (int k = -2; k <= 2; ++k) {
            EXPECT_EQ(NoiseLatticeIndex(i, 5, k), NoiseLatticeIndex(i + 256, 5 - 512, k + 256));
            EXPECT_EQ(NoiseLatticeIndex(i, -1, k), NoiseLatticeIndex(i, 255, k));
        }
    // The ends of the 32-bit range wrap as well, without overflow.
    EXPECT_EQ(NoiseLatticeIndex(INT32_MIN, INT32_MAX, INT32_MIN), NoiseLatticeIndex(0, 255, 0));
}

TEST(NoiseTable, GradientsAreSeededUnitVectors) {
    NoiseGradient a[256], b[256], c[256];
    BuildNoiseGradients(665, a);
    double meanZ = 0.0;
    for (const NoiseGradient& g : a) {
        const double length = std::sqrt(double(g.x) * g.x + double(g.y) * g.y + double(g.z) * g.z);
        EXPECT_NEAR(length, 1.0, 2e-7);
        meanZ += g.z / 256.0;
    }
    EXPECT_NEAR(meanZ, 0.0, 0.1);  // spread over the sphere, not bunched at a pole

    // The generator is seeded anew: draws made in between by anyone do not change the gradients.
    int32_t other = -12345;
    for (int i = 0; i < 17; ++i)
        ShuffledRandom(&other);
    BuildNoiseGradients(665, b);
    EXPECT_TRUE(SameGradients(a, b));
    BuildNoiseGradients(666, c);
    EXPECT_FALSE(SameGradients(a, c));

    // The first entry from the generator by hand: one draw thrown away, then z and phi.
    int32_t state = -665;
    ShuffledRandom(&state);
    const double z = 1.0 - 2.0 * ShuffledRandom(&state);
    const double phi = ShuffledRandom(&state) * 6.283185307179586;
    const float rho = static_cast<float>(std::sqrt(1.0 - z * static_cast<float>(z)));
    EXPECT_EQ(a[0].x, static_cast<float>(std::cos(phi) * rho));
    EXPECT_EQ(a[0].y, static_cast<float>(std::sin(phi) * rho));
    EXPECT_EQ(a[0].z, static_cast<float>(z));

    // Seeds below 1 seed as 1, whatever was drawn before: they never continue someone else's
    // sequence.
    BuildNoiseGradients(1, a);
    for (const int32_t seed : {0, -1, -5000, INT32_MIN}) {
        for (int i = 0; i < 5; ++i)
            ShuffledRandom(&other);
        BuildNoiseGradients(seed, b);
        EXPECT_TRUE(SameGradients(a, b)) << seed;
    }
}

TEST(NoiseTable, CellIsTheFloor) {
    struct Case {
        float v;
        int32_t cell;
        float fraction;
    };
    const Case cases[] = {
        {2.5f, 2, 0.5f},
        {-2.5f, -3, 0.5f},
        {-3.0f, -3, 0.0f},
        {0.0f, 0, 0.0f},
        {-0.0f, 0, 0.0f},
        {0.75f, 0, 0.75f},
        {-0.25f, -1, 0.75f},
        {1e9f, 1000000000, 0.0f},
        {-1e9f, -1000000000, 0.0f},
        // Beyond 2^30, and the values that are no coordinate at all, stay at the limits.
        {3e9f, 1073741824, 0.0f},
        {-3e9f, -1073741824, 0.0f},
        {INFINITY, 1073741824, 0.0f},
        {-INFINITY, -1073741824, 0.0f},
        {NAN, -1073741824, 0.0f},
    };
    for (const Case& c : cases) {
        float f = -1.0f;
        EXPECT_EQ(NoiseCell(c.v, &f), c.cell) << c.v;
        EXPECT_EQ(f, c.fraction) << c.v;
    }
    // A tiny negative number: its fraction rounds up to a whole 1 in float.
    float f = 0.0f;
    EXPECT_EQ(NoiseCell(-1e-10f, &f), -1);
    EXPECT_EQ(f, 1.0f);
}
