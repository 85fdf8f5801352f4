// The particle store: swirl noise, birth lines, the pool of records, the streak routine, and the
// rules of a simulation step as the Rain tool runs them (draws per birth, bounces and the kick that
// passes from drop to drop, rescaling, an exhausted pool).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame/NoiseTable.h"
#include "frame/ShuffledRandom.h"
#include "frame/WorkImage.h"
#include "particles/ParticlePool.h"
#include "particles/Streak.h"
#include "particles/SwirlNoise.h"
#include "tests/RainSupport.h"

namespace {

void Black(int, int, uint16_t* p) {
    p[0] = p[1] = p[2] = 0;
    p[3] = 65535;
}

// How many draws of the engine's sequence lie between two states: a fresh engine (whose
// construction seeds the shared table just as the first one's did) draws until it reaches `after`.
int DrawsUntil(int32_t after) {
    RainDoc fresh;
    for (int n = 0; n < 100000; ++n) {
        if (fresh.engine->birthSeedState == after) return n;
        ShuffledRandom(&fresh.engine->birthSeedState);
    }
    return -1;
}

}  // namespace

TEST(SwirlNoise, LatticeBlendAndWrap) {
    SwirlGradients g;
    BuildSwirlGradients(665, &g);
    for (const auto& v : g.g)
        EXPECT_NEAR(v[0] * v[0] + v[1] * v[1] + v[2] * v[2], 1.0, 1e-6);

    // Zero at every lattice point, negative ones included.
    for (float p : {0.0f, 1.0f, -1.0f, 17.0f, -300.0f})
        EXPECT_EQ(SwirlNoise(g, p, 3.0f, p), 0.0);

    // Half way along x, on a lattice line in y and z, only the two x corners count, each by half.
    const float* g0 = g.g[NoiseLatticeIndex(0, 0, 0)];
    const float* g1 = g.g[NoiseLatticeIndex(1, 0, 0)];
    EXPECT_DOUBLE_EQ(SwirlNoise(g, 0.5f, 0.0f, 0.0f), 0.5 * (0.5 * g0[0]) + 0.5 * (-0.5 * g1[0]));

    // The lattice repeats every 256 cells, through negative coordinates as well.
    const double here = SwirlNoise(g, 0.25f, 1.75f, 2.5f);
    EXPECT_NE(here, 0.0);
    EXPECT_EQ(SwirlNoise(g, 256.25f, 1.75f, 2.5f), here);
    EXPECT_EQ(SwirlNoise(g, -255.75f, 1.75f - 512.0f, 2.5f), here);

    // The table depends on its seed only: draws in between change nothing.
    int32_t other = -12345;
    for (int i = 0; i < 50; ++i)
        ShuffledRandom(&other);
    SwirlGradients again;
    BuildSwirlGradients(665, &again);
    EXPECT_EQ(0, std::memcmp(&g, &again, sizeof g));
    EXPECT_EQ(SwirlNoise(g, NAN, 1.0f, 1.0f), SwirlNoise(g, -1073741824.0f, 1.0f, 1.0f));
}

TEST(BirthLine, WholePixelsInWalkingOrder) {
    std::vector<float> xs(kBirthLineCapacity), ys(kBirthLineCapacity);
    auto line = [&](float x0, float y0, float x1, float y1) {
        int n = BuildBirthLine(x0, y0, x1, y1, xs.data(), ys.data(), kBirthLineCapacity);
        std::vector<std::pair<float, float>> points;
        for (int i = 0; i < n; ++i)
            points.emplace_back(xs[i], ys[i]);
        return points;
    };
    using P = std::vector<std::pair<float, float>>;
    // Ends rounded to whole pixels.
    EXPECT_EQ(line(0.4f, -0.4f, 3.6f, 2.2f), (P{{0, 0}, {1, 0}, {2, 1}, {3, 1}, {4, 2}}));
    // Steep and backwards.
    EXPECT_EQ(line(0, 0, -1.6f, -3.6f), (P{{0, 0}, {0, -1}, {-1, -2}, {-1, -3}}));
    // v + 0.5 is truncated toward zero, so below zero the ends move up by one.
    EXPECT_EQ(line(0, 0, -1, -3), (P{{0, 0}, {0, -1}, {0, -2}}));
    // One pixel: twice.
    EXPECT_EQ(line(2.2f, 2.2f, 2.4f, 1.6f), (P{{2, 2}, {2, 2}}));
    // A long line is cut at its far end.
    P cut = line(0, 0, 20000, 0);
    ASSERT_EQ(cut.size(), 16384u);
    EXPECT_EQ(cut.back(), (std::pair<float, float>(16383, 0)));
    // Ends far beyond any picture neither overflow nor take long.
    P far = line(-1e12f, 5, 1e12f, 5);
    ASSERT_EQ(far.size(), 16384u);
    EXPECT_EQ(far.front().first, -2147483648.0f);
    EXPECT_EQ(BuildBirthLine(0, 0, 5, 5, xs.data(), ys.data(), 3), 3);
}

TEST(ParticlePool, RecordsBlocksAndStandInAddresses) {
    ParticlePool pool;
    EXPECT_EQ(pool.blockCount, 1);
    std::vector<ParticleRecord*> taken;
    for (int i = 0; i < 1025; ++i) {
        ParticleRecord* r = pool.Take();
        ASSERT_NE(r, nullptr);
        r->x = 7.0f;
        r->age = 3.0f;
        pool.PushActive(r);
        taken.push_back(r);
    }
    // Records are taken in storage order; one word apart in the stand-in addresses, across blocks.
    EXPECT_EQ(pool.blockCount, 2);
    EXPECT_EQ(pool.activeCount, 1025);
    EXPECT_EQ(taken[0]->address, ParticlePool::kFirstAddress);
    EXPECT_EQ(taken[1]->address, ParticlePool::kFirstAddress + 4);
    EXPECT_EQ(taken[1024]->address, ParticlePool::kFirstAddress + 4 * 1024);
    EXPECT_EQ(pool.activeHead, taken.back());

    // A clear moves the active list, newest first, in front of the free list; records come back
    // zeroed but keep their addresses.
    pool.ClearParticles();
    EXPECT_EQ(pool.activeCount, 0);
    EXPECT_EQ(pool.activeHead, nullptr);
    EXPECT_EQ(pool.blockCount, 2);
    ParticleRecord* again = pool.Take();
    EXPECT_EQ(again, taken.back());
    EXPECT_EQ(again->x, 0.0f);
    EXPECT_EQ(again->age, 0.0f);
    EXPECT_EQ(again->address, ParticlePool::kFirstAddress + 4 * 1024);

    // A pool that may not grow runs dry.
    ParticlePool small(2);
    small.mostBlocks = 1;
    EXPECT_NE(small.Take(), nullptr);
    EXPECT_NE(small.Take(), nullptr);
    EXPECT_EQ(small.Take(), nullptr);
}

TEST(Streak, ExactPixelsOnTinyImages) {
    auto blank = [] {
        return std::unique_ptr<WorkImage>(
            MakeWorkImage(6, 4, [](int, int, uint16_t* p) { p[0] = p[1] = p[2] = p[3] = 0; }));
    };
    StreakPen pen;
    pen.red = pen.green = pen.blue = 32767;
    pen.density = 32767;

    // Flat along a row: the density rises from 0 at the tail to full at the head.
    auto a = blank();
    DrawStreak(a.get(), 6, 0, 1, 4, 1, pen, 0, 3);
    const int ramp[5] = {0, 8191, 16383, 24575, 32767};
    for (int x = 0; x < 5; ++x) {
        EXPECT_EQ(a->Pixel(x, 1)[0], ramp[x]) << x;
        EXPECT_EQ(a->Pixel(x, 1)[3], ramp[x]) << x;
    }
    EXPECT_EQ(a->Pixel(5, 1)[3], 0);

    // No length, nothing drawn, glint or not.
    auto b = blank();
    const int profile[3] = {80, 255, 80};
    pen.profile = profile;
    pen.profileLength = 3;
    pen.glisten = 32767;
    DrawStreak(b.get(), 6, 2, 2, 2, 2, pen, 0, 3);
    EXPECT_TRUE(SamePixels(*b, *blank()));

    // A glint lies over the last three pixels: each adds profile * glisten * 128 / 32767 to the
    // colour and the density before the ramp (pixel 2: 10000 + 10240).
    pen.red = pen.green = pen.blue = 10000;
    pen.density = 10000;
    auto c = blank();
    DrawStreak(c.get(), 6, 0, 0, 4, 0, pen, 0, 3);
    const int glinted[5] = {0, 762, 6251, 24575, 12502};
    for (int x = 0; x < 5; ++x)
        EXPECT_EQ(c->Pixel(x, 0)[0], glinted[x]) << x;
    EXPECT_EQ(c->Pixel(3, 0)[3], 24575);

    // A shallow diagonal shares each step between the pixel and its neighbour across the line.
    // The neighbour of a pixel on row 0 lies on row 1; a band whose last row is 1 loses it.
    pen.profile = nullptr;
    pen.profileLength = 0;
    pen.glisten = 0;
    pen.red = pen.green = pen.blue = pen.density = 32767;
    auto whole = blank(), band = blank();
    DrawStreak(whole.get(), 6, 0, 0, 4, 2, pen, 0, 3);
    DrawStreak(band.get(), 6, 0, 0, 4, 2, pen, 0, 1);
    EXPECT_GT(whole->Pixel(1, 1)[3], 3000);
    EXPECT_EQ(band->Pixel(1, 1)[3], 0);
    for (int x = 0; x < 6; ++x)
        EXPECT_EQ(band->Pixel(x, 0)[3], whole->Pixel(x, 0)[3]) << x;
    EXPECT_GT(whole->Pixel(1, 0)[3], 0);
    EXPECT_LT(whole->Pixel(1, 0)[3], 8191);
}

// The walk starts where a band begins, in the state the whole walk would have there: a long steep
// streak equals a plain walk of every step, as the rules state it.
TEST(Streak, AWalkStartedInsideEqualsTheWholeWalk) {
    auto plain = [](WorkImage* out, int tx, int ty, int hx, int hy, int A, int first, int last) {
        const long dx = hx - tx, dy = hy - ty, sx = dx < 0 ? -1 : 1, sy = dy < 0 ? -1 : 1;
        const long ax = std::labs(dx), ay = std::labs(dy);
        const bool steep = ay > ax;
        const long major = steep ? ay : ax, minor = steep ? ax : ay;
        const double len = std::sqrt(double(dx) * dx + double(dy) * dy);
        const float inv = float(1.0 / (2 * len));
        const double ramp = 32767.0 / major;
        long e = -major, D = 0, px = tx, py = ty;
        auto blend = [](uint16_t* p, long c) {
            for (int k = 0; k < 4; ++k)
                p[k] = uint16_t((p[k] * (32767 - c) + c * (k < 3 ? 30000 : 32767)) / 32767);
        };
        for (long i = 0; i <= major; ++i) {
            const long a = long(A * double(i) * ramp) / 32767;
            if (px >= 0 && px < out->width && py >= first && py <= last) {
                const float d = float(D * inv);
                const long q = long(std::fabs(d) * 32767);
                const long m = ((32767 - q) * a) / 32767, n = (q * a) / 32767;
                const long side = steep ? (d < 0 ? px - sx : px + sx) : (d < 0 ? py - sy : py + sy);
                if (steep && side >= 0 && side < out->width) blend(out->Pixel(side, py), n);
                if (!steep && side >= first && side <= last - 1) blend(out->Pixel(px, side), n);
                blend(out->Pixel(px, py), m);
            }
            e += 2 * minor;
            D += 2 * minor;
            if (e > 0) {
                (steep ? px : py) += steep ? sx : sy;
                e -= 2 * major;
                D -= 2 * major;
            }
            (steep ? py : px) += steep ? sy : sx;
        }
    };
    StreakPen pen;
    pen.red = pen.green = pen.blue = pen.density = 30000;
    struct Case {
        int tx, ty, hx, hy, first, last;
    };
    auto zero = [](int, int, uint16_t* p) { p[0] = p[1] = p[2] = p[3] = 0; };
    std::unique_ptr<WorkImage> empty(MakeWorkImage(16, 16, zero));
    for (const Case& k : {Case{2, -3000, 9, 20, 0, 15}, Case{11, 900, 3, 1, 5, 9},
                          Case{-700, 2, 30, 14, 0, 15}, Case{40, 6, -9, 13, 8, 15}}) {
        std::unique_ptr<WorkImage> fast(MakeWorkImage(16, 16, zero));
        std::unique_ptr<WorkImage> slow(MakeWorkImage(16, 16, zero));
        DrawStreak(fast.get(), 16, k.tx, k.ty, k.hx, k.hy, pen, k.first, k.last);
        plain(slow.get(), k.tx, k.ty, k.hx, k.hy, 30000, k.first, k.last);
        EXPECT_TRUE(SamePixels(*fast, *slow)) << k.tx << "," << k.ty;
        EXPECT_FALSE(SamePixels(*fast, *empty)) << k.tx << "," << k.ty;
    }
}

TEST(ParticleStep, DrawsPerBirthAndRetries) {
    HostImage background = MakeHostImage(16, 12, Black);
    // Density 1 gives exactly one birth a step. With no jitter it costs 1 + 12 + 2 draws.
    {
        RainDoc t;
        t.Set("Dety", 1.0);
        t.Set("Poar", 0.0);
        t.Render(background.get());
        EXPECT_EQ(t.engine->bornLastStep, 1);
        EXPECT_EQ(DrawsUntil(t.engine->birthSeedState), 15);
    }
    // Jitter costs two draws a pass, at least one pass.
    {
        RainDoc t;
        t.Set("Dety", 1.0);
        t.Render(background.get());
        const int n = DrawsUntil(t.engine->birthSeedState);
        EXPECT_GE(n, 15);
        EXPECT_EQ(n % 2, 1);
    }
    // A black Birth Clip refuses every pass: births * 10 + 1 passes of 9 draws, and no birth.
    {
        RainDoc t;
        t.Set("Dety", 1.0);
        t.Set("Poar", 0.0);
        t.Set("Uste", 1.0);
        HostImage birth = MakeHostImage(16, 12, Black);
        t.Render(background.get(), 1.0, birth.get());
        EXPECT_EQ(t.engine->pool.activeCount, 0);
        EXPECT_EQ(DrawsUntil(t.engine->birthSeedState), 1 + 11 * 9);
    }
    // Density 0: one draw, no births.
    {
        RainDoc t;
        t.Set("Dety", 0.0);
        t.Render(background.get());
        EXPECT_EQ(t.engine->pool.activeCount, 0);
        EXPECT_EQ(DrawsUntil(t.engine->birthSeedState), 1);
    }
    // A pool that cannot grow ends the births of a step instead of trying for ever.
    {
        RainDoc t;
        t.engine->pool.mostBlocks = 1;
        t.Set("Dety", 3000.0);
        t.Render(background.get());
        EXPECT_EQ(t.engine->pool.activeCount, 1024);
        EXPECT_EQ(t.engine->bornLastStep, 1024);
    }
}

TEST(ParticleStep, BouncesAndTheKickThatPassesOn) {
    // The clip is red at (2, 2) only.
    HostImage background = MakeHostImage(8, 8, Black);
    HostImage clip = MakeHostImage(8, 8, [](int x, int y, uint16_t* p) {
        p[0] = x == 2 && y == 2 ? 65535 : 0;
        p[1] = p[2] = 0;
        p[3] = 65535;
    });
    RainDoc t;
    t.StillAir();
    t.Set("Dety", 0.0);
    t.Set("Puce", 1.0);
    t.Set("Pung", 50.0);
    t.Set("Boes", 2.0);
    // List order, head first: lands on the clip; outside; on black; outside.
    ParticleRecord* four = t.Drop(20.0f, 3.0f, 0.0f, 0.0f);
    ParticleRecord* three = t.Drop(5.5f, 5.5f, 0.0f, 0.0f);
    ParticleRecord* two = t.Drop(-5.0f, 3.0f, 0.0f, 0.0f);
    ParticleRecord* one = t.Drop(2.5f, 2.5f, 0.0f, -1.0f);
    t.Render(background.get(), 1.0, nullptr, clip.get());

    // The first bounce flips the drop with a gain of -(r * rebound) and kicks it sideways.
    EXPECT_EQ(one->bounces, 1);
    EXPECT_LE(one->bounceGain, 0.0f);
    EXPECT_GE(one->bounceGain, -0.5f);
    EXPECT_EQ(one->vy, -1.0f * one->bounceGain);
    EXPECT_NE(one->vx, 0.0f);
    // The drop outside the picture takes the same kick; the one on black resets it for the next.
    EXPECT_EQ(two->vx, one->vx);
    EXPECT_EQ(two->bounceGain, 1.0f);
    EXPECT_EQ(three->vx, 0.0f);
    EXPECT_EQ(four->vx, 0.0f);

    // Still on the clip with a gain at or below 0: the gain resets to 1 (a free step).
    one->x = one->prevX = 2.5f;
    one->y = one->prevY = 2.5f;
    one->vy = -1.0f;
    t.Render(background.get(), 2.0, nullptr, clip.get());
    EXPECT_EQ(one->bounceGain, 1.0f);
    // Falling onto it again: the second bounce has a gain of -(r * rebound) / 1 and no kick.
    one->x = one->prevX = 2.5f;
    one->y = one->prevY = 2.5f;
    one->vx = 0.0f;
    one->vy = -1.0f;
    t.Render(background.get(), 3.0, nullptr, clip.get());
    EXPECT_EQ(one->bounces, 2);
    EXPECT_EQ(one->vx, 0.0f);
    // The third is one more than Bounces allows: the drop is retired at the next update.
    one->x = one->prevX = 2.5f;
    one->y = one->prevY = 2.5f;
    one->vy = -1.0f;
    one->bounceGain = 0.5f;
    const int before = t.engine->pool.activeCount;
    t.Render(background.get(), 4.0, nullptr, clip.get());
    EXPECT_EQ(one->bounces, 3);
    EXPECT_EQ(one->age, float(one->lifetime + 2));
    t.Render(background.get(), 5.0, nullptr, clip.get());
    EXPECT_EQ(t.engine->pool.activeCount, before - 1);
}

TEST(ParticleStep, SizeChangesAgeingAndSwirlRamp) {
    HostImage wide = MakeHostImage(16, 8, Black), half = MakeHostImage(8, 4, Black);
    RainDoc t;
    t.StillAir();
    t.Set("Dety", 0.0);
    ParticleRecord* r = t.Drop(10.0f, 6.0f, 2.0f, 2.0f);
    r->lifetime = 3;
    t.Render(wide.get());
    EXPECT_EQ(r->x, 12.0f);
    EXPECT_EQ(r->prevX, 10.0f);
    // At half the size everything is halved before the step; the age carries on.
    t.Render(half.get());
    EXPECT_EQ(r->prevX, 6.0f);
    EXPECT_EQ(r->x, 7.0f);
    EXPECT_EQ(r->y, 5.0f);
    EXPECT_EQ(r->vx, 1.0f);
    EXPECT_EQ(r->age, 2.0f);
    // The update that brings the age to the lifetime retires the drop.
    EXPECT_EQ(t.engine->pool.activeCount, 1);
    t.Render(half.get());
    EXPECT_EQ(t.engine->pool.activeCount, 0);

    // A swirl ramp below one step counts as one: a new drop is at full swirl at once.
    t.Set("Doce", 1.0);
    t.Set("Swim", 0.0);
    t.Drop(3.3f, 2.2f, 0.0f, 0.0f);
    t.Render(half.get());
    EXPECT_EQ(t.engine->pool.params.swirlRamp, 1.0f);

    // Restart empties the pool and leaves the blocks and the sequence alone.
    const int32_t state = t.engine->birthSeedState;
    t.Set("Ren1", 1.0);
    EXPECT_EQ(t.engine->pool.activeCount, 0);
    EXPECT_EQ(t.engine->pool.blockCount, 1);
    EXPECT_EQ(t.engine->birthSeedState, state);
}
