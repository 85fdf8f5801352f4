// The shared random generator and the two vector helpers.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"
#include "tests/TestSupport.h"

namespace {

constexpr double kTop = 0.9999998807907104;

// The minimal standard generator (multiplier 16807, modulus 2^31 - 1) behind a 32-entry shuffle,
// in plain 64-bit arithmetic: seeding runs 40 steps and keeps the last 32, from the top of the
// table down; a draw steps once, picks the slot from the previous output's top five bits, hands out
// what was there and leaves the new step in its place.
struct Reference {
    int64_t table[32] = {};
    int64_t last = 0;
    int64_t s = 1;

    static int64_t Step(int64_t v) { return v * 16807 % 2147483647; }
    void Seed(int64_t seed) {
        s = seed < 1 ? 1 : seed;
        for (int j = 39; j >= 0; --j) {
            s = Step(s);
            if (j < 32) table[j] = s;
        }
        last = table[0];
    }
    double Draw() {
        s = Step(s);
        const int j = static_cast<int>(last / 67108864);
        last = table[j];
        table[j] = s;
        const double r = std::ldexp(static_cast<double>(last), -31);
        return r > kTop ? kTop : r;
    }
};

std::vector<double> Draws(int32_t seed, int count) {
    int32_t state = seed;
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(ShuffledRandom(&state));
    return out;
}

std::vector<double> ReferenceDraws(int64_t seed, int count) {
    Reference r;
    r.Seed(seed);
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(r.Draw());
    return out;
}

}  // namespace

TEST(ShuffledRandom, FollowsTheReferenceSequence) {
    for (int32_t seed : {1, 2, 7, 12345, 9689735, 2147483646})
        EXPECT_EQ(Draws(-seed, 2000), ReferenceDraws(seed, 2000)) << seed;

    // Pinned first values.
    EXPECT_EQ(Draws(-1, 3),
              (std::vector<double>{0.41599935665726662, 0.091964890714734793, 0.75641048559919}));
    EXPECT_EQ(Draws(-7, 1)[0], 0.12283649994060397);
    EXPECT_EQ(Draws(-12345, 1)[0], 0.92312057130038738);
    // This seed's first output lies above the top and is held there.
    EXPECT_EQ(Draws(-9689735, 1)[0], kTop);

    // Zero and the most negative word are clamped to a seed of 1.
    EXPECT_EQ(Draws(0, 50), Draws(-1, 50));
    EXPECT_EQ(Draws(INT32_MIN, 50), Draws(-1, 50));

    // The table after a seeding is the reference table.
    int32_t state = -99;
    ShuffledRandom(&state);
    Reference r;
    r.Seed(99);
    r.Draw();
    const ShuffledRandomTable& shared = ShuffledRandomShared();
    for (int j = 0; j < 32; ++j)
        EXPECT_EQ(shared.shuffleTable[j], r.table[j]);
    EXPECT_EQ(shared.lastOutput, r.last);
    EXPECT_EQ(state, r.s);
}

TEST(ShuffledRandom, OneSharedTable) {
    // A positive state continues with the table as it stands; it never seeds.
    int32_t a = -3;
    Reference r;
    r.Seed(3);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(ShuffledRandom(&a), r.Draw());
    int32_t fresh = 424242;
    r.s = 424242;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(ShuffledRandom(&fresh), r.Draw());
    // Back to the first caller: it draws from the table the second one left.
    r.s = a;
    EXPECT_EQ(ShuffledRandom(&a), r.Draw());

    // A seeding by another caller changes what the first one draws next.
    int32_t first = -11;
    for (int i = 0; i < 5; ++i)
        ShuffledRandom(&first);
    const int32_t saved = first;
    const double alone = ShuffledRandom(&first);

    first = -11;
    for (int i = 0; i < 5; ++i)
        ShuffledRandom(&first);
    int32_t other = -12;
    ShuffledRandom(&other);
    const double disturbed = ShuffledRandom(&first);
    Reference afterOther;
    afterOther.Seed(12);
    afterOther.Draw();
    afterOther.s = saved;
    EXPECT_EQ(disturbed, afterOther.Draw());
    EXPECT_NE(disturbed, alone);
}

TEST(ShuffledRandom, StaysWithinRange) {
    int32_t state = -20051124;
    double lowest = 1.0, highest = 0.0;
    for (int i = 0; i < (FullSweep() ? 2000000 : 100000); ++i) {
        const double v = ShuffledRandom(&state);
        lowest = std::min(lowest, v);
        highest = std::max(highest, v);
        ASSERT_GE(v, 0.0);
        ASSERT_LE(v, kTop);
        ASSERT_GT(state, 0);
    }
    EXPECT_LT(lowest, 0.001);
    EXPECT_GT(highest, 0.999);
}

TEST(SmallMaths, NormaliseVector) {
    // Nothing and next to nothing both give zero.
    for (float x : {0.0f, 1e-11f, -1e-11f}) {
        float v[3] = {x, 0.0f, x * 0.5f};
        EXPECT_EQ(NormaliseVector(v), 0.0L);
        EXPECT_EQ(v[0], 0.0f);
        EXPECT_EQ(v[1], 0.0f);
        EXPECT_EQ(v[2], 0.0f);
    }

    // (3, 4, 0): three Newton steps from the largest component, 4.
    float v[3] = {3.0f, 4.0f, 0.0f};
    const long double s = 25.0L, m = 4.0L;
    const long double g1 = m + s / m;
    const long double g2 = s / g1 + g1 * 0.25L;
    const long double expected = (g2 + s / g2) * 0.5L;
    EXPECT_EQ(g1, 10.25L);
    const long double length = NormaliseVector(v);
    EXPECT_EQ(length, expected);
    EXPECT_NE(length, 5.0L);
    EXPECT_NEAR(static_cast<double>(length), 5.0, 1e-6);
    EXPECT_FLOAT_EQ(v[0], 0.6f);
    EXPECT_FLOAT_EQ(v[1], 0.8f);
    EXPECT_EQ(v[2], 0.0f);

    // Signs are kept; a small but real vector still comes out of unit length.
    float w[3] = {-3.0f, 0.0f, -4.0f};
    NormaliseVector(w);
    EXPECT_FLOAT_EQ(w[0], -0.6f);
    EXPECT_FLOAT_EQ(w[2], -0.8f);
    float tiny[3] = {1e-9f, 0.0f, 0.0f};
    EXPECT_NEAR(static_cast<double>(NormaliseVector(tiny)), 1e-9, 1e-15);
    EXPECT_FLOAT_EQ(tiny[0], 1.0f);

    const std::vector<std::vector<float>> vectors = {
        {1, 1, 1}, {0.3f, -7, 2}, {1e6f, 1, -1}, {0, 0, 2}};
    for (const auto& c : vectors) {
        float u[3] = {c[0], c[1], c[2]};
        NormaliseVector(u);
        // Three Newton steps are close but not exact: (1, 1, 1) comes out 5e-5 short.
        EXPECT_NEAR(std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]), 1.0, 1e-4);
    }
}

TEST(SmallMaths, CrossProductAndTruncation) {
    const float a[3] = {1, 2, 3}, b[3] = {4, 5, 6};
    float r[3];
    CrossProduct(r, a, b);
    EXPECT_EQ(std::vector<float>(r, r + 3), (std::vector<float>{-3, 6, -3}));
    EXPECT_EQ(TruncateToInt(-2.7), -2);
    EXPECT_EQ(TruncateToInt(2.7), 2);
    EXPECT_EQ(TruncateToInt(NAN), 0);
    EXPECT_EQ(TruncateToInt(1e20), INT32_MAX);
    EXPECT_EQ(TruncateToInt(-1e20), INT32_MIN);
}
