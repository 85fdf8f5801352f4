// Lightning2: the guide spline and its ends, the count of points on the main path, fading ends,
// hidden points and the overlay's guide, and the whole tool through the host: repeatable seeds,
// golden frames and the split of rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lightning/BoltBrush.h"
#include "lightning/BoltGeometry.h"
#include "lightning/Lightning2.h"
#include "tests/TestSupport.h"

namespace {

struct Lightning2Doc : ToolDoc<Lightning2Operator> {
    Lightning2Doc() : ToolDoc("Lightning2") {}
    Lightning2Engine& Engine() const { return *op->Lightning2(); }
    HostImage Render(Image* background, double time = 0.0) {
        return RenderWith("Background", background, time);
    }
};

void Night(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(2000 + 40 * x);
    p[1] = static_cast<uint16_t>(3000 + 50 * y);
    p[2] = static_cast<uint16_t>(12000 + 20 * (x ^ y));
    p[3] = 65535;
}

}  // namespace

TEST(Lightning2Spline, SamplesStartOnTheFirstPointAndStayDefinedPastTheLast) {
    // 229 samples through nine points: the rounded gap carries the last sample onto the last
    // point, whose neighbour beyond is the last point again. Every control point is passed.
    const float px[9] = {0.08f, 0.15f, 0.32f, 0.66f, 0.92f, 0.85f, 0.64f, 0.43f, 0.39f};
    const float py[9] = {0.93f, 0.64f, 0.2f, 0.06f, 0.36f, 0.76f, 0.88f, 0.81f, 0.53f}, pz[9] = {};
    std::vector<float> sx(229), sy(229), sz(229), st(229);
    ASSERT_GE(228.0 * static_cast<float>(8.0 / (229 - static_cast<double>(0.99999f))), 8.0);
    SamplePolyline(px, py, pz, 9, sx.data(), sy.data(), sz.data(), st.data(), 229);
    EXPECT_TRUE(sx[0] == px[0] && sy[0] == py[0] && st[0] == 0.0f);
    EXPECT_NEAR(sx[228], px[8], 1e-5);
    EXPECT_NEAR(sy[228], py[8], 1e-5);
    for (int k = 0; k < 9; ++k) {
        double nearest = 1.0;
        for (int i = 0; i < 229; ++i)
            nearest = std::fmin(nearest, std::hypot(sx[i] - px[k], sy[i] - py[k]));
        EXPECT_LT(nearest, 0.01) << k;
    }
}

TEST(Lightning2Spline, MainPathCountsAndFadingEnds) {
    HostImage night = MakeHostImage(80, 60, Night);
    Lightning2Doc t;
    Lightning2Engine& e = t.Engine();
    // S = max(Smoothing, 2n) and N = max(Smoothing, 3 Points - 3): the larger serves both, held
    // to the room of the spline's arrays. The path starts on Point 1, in pixels.
    const std::pair<const char*, double> steps[] = {
        {"Pots", 60.0}, {"Pots", 10.0}, {"Tots", 4.0}, {"Pots", 50000.0}};
    const int expected[] = {60, 24, 10, kSplinePoints};
    for (int i = 0; i < 4; ++i) {
        t.Set(steps[i].first, steps[i].second);
        ASSERT_TRUE(t.Render(night.get()));
        EXPECT_EQ(e.mainPoints, expected[i]);
    }
    EXPECT_EQ(e.BuildGuidePath(80, 60), kSplinePoints);
    EXPECT_FLOAT_EQ(e.pathX[0], 80 * 0.08f);
    // Thirty samples and the densest branches: roots repeat, the list stays within its room.
    t.Set("Pots", 30.0);
    t.Set("Tots", 9.0);
    t.Set("BDen", 500.0);
    t.Render(night.get());
    EXPECT_GT(e.branchCount, 40);
    EXPECT_LT(e.branchCount, kBranchListSize);

    // Twelve segments of 10 pixels fade over the last three: 1, 2/3, 1/3. Fewer than four
    // segments don't fade. On the main path the fade follows the drawn share: nine tenths of 13
    // points draw ten segments, the last at half.
    Lightning2Engine f;
    f.params.width = 200, f.params.height = 50, f.params.drawn = 1.0f;
    f.params.brushRadius[0] = f.params.brushRadius[1] = f.params.brushRadius[2] = 1.0f;
    f.MakeBrushes();
    std::vector<float> x(13), y(13, 20.0f);
    for (int i = 0; i < 13; ++i)
        x[i] = static_cast<float>(10 + 10 * i);
    auto shareAt = [&f](int px) {
        for (const StampMark& m : f.stamps)
            if (m.px == px) return m.coverage;
        return -1.0f;
    };
    f.DrawBoltPolyline(x.data(), y.data(), 13, 1, true);
    ASSERT_EQ(f.stamps.size(), 12u * 41u);
    EXPECT_TRUE(shareAt(95) == 1.0f && shareAt(105) == 1.0f);
    EXPECT_EQ(shareAt(115), static_cast<float>(1.0 - 1.0 / 3.0));
    EXPECT_EQ(shareAt(125), static_cast<float>(1.0 - 2.0 / 3.0));
    f.stamps.clear();
    f.DrawBoltPolyline(x.data(), y.data(), 4, 2, true);
    for (const StampMark& m : f.stamps)
        EXPECT_EQ(m.coverage, 1.0f);
    f.stamps.clear();
    f.params.drawn = 0.9f;
    f.DrawBoltPolyline(x.data(), y.data(), 13, 0, true);
    EXPECT_TRUE(f.stamps.back().px == 110 && shareAt(95) == 1.0f && shareAt(105) == 0.5f);
}

TEST(Lightning2, PointsBeyondTheCountAreHiddenAndHaveNoEffect) {
    HostImage night = MakeHostImage(72, 48, Night);
    Lightning2Doc t;
    Lightning2Engine& e = t.Engine();
    t.Render(night.get());
    for (int k = 1; k <= 9; ++k)
        EXPECT_FALSE(e.PointInput(k).hidden) << k;
    t.Set("Tots", 3.0);
    for (int k = 1; k <= 9; ++k)
        EXPECT_EQ(e.PointInput(k).hidden, k > 3) << k;
    const uint64_t three = HashImage(t.Render(night.get()));
    t.SetPoint("P555", 0.1, 0.1);
    t.SetPoint("P999", 0.9, 0.2);
    EXPECT_EQ(HashImage(t.Render(night.get())), three);
    t.SetPoint("P333", 0.5, 0.5);
    EXPECT_NE(HashImage(t.Render(night.get())), three);

    // The overlay's guide runs through the shown points only, in view pixels.
    t.Set("Tots", 5.0);
    e.viewWidth = 100, e.viewHeight = 50;
    e.DrawControls();
    for (int k = 1; k <= 9; ++k)
        EXPECT_EQ(e.guideShown[k - 1], k <= 5) << k;
    ASSERT_EQ(e.guideLineX.size(), 60u);
    EXPECT_FLOAT_EQ(e.guideLineY[0], 50 * 0.93f);
    EXPECT_FLOAT_EQ(e.guidePointX[4], 10.0f);
    EXPECT_NEAR(e.guideLineX[59], 10.0f, 1e-3);
    EXPECT_TRUE(e.minEnvLightInput.hidden);
}

TEST(Lightning2, SeedRepeatsGoldenFramesOnOneAndEightProcessors) {
    HostImage night = MakeHostImage(120, 80, Night);
    Lightning2Doc t;
    const uint64_t first = HashImage(t.Render(night.get(), 0.0));
    EXPECT_EQ(HashImage(t.Render(night.get(), 41.0)), first);
    t.Set("KPat", 1.0);
    EXPECT_EQ(HashImage(t.Render(night.get(), 2.0)), first);
    t.Set("Seed", 3.0);
    EXPECT_NE(HashImage(t.Render(night.get(), 0.0)), first);
    // Generate 0 in the add mode gives the background back.
    t.Set("Gene", 0.0);
    HostImage same = t.Render(night.get());
    for (size_t i = 0; i < night->SampleCount(); ++i) {
        const uint32_t w = night->Data()[i] >> 1;
        ASSERT_EQ(same->Data()[i], (w >> 14) | (w * 2));
    }

    struct Case {
        std::vector<std::pair<const char*, double>> sets;
        uint64_t hash;
    };
    const Case cases[] = {
        {{}, 0x4a8cd806d35cd0b7ull},
        {{{"Tots", 5.0}, {"Brth", 0.3}, {"Wobb", 50.0}, {"Pots", 120.0}, {"Seed", 42.0}},
         0xb276b61b65e9cb8dull},
        {{{"Mode", 1.0}, {"MinL", 20.0}, {"EnvS", 150.0}, {"PDra", 50.0}, {"Thic", 250.0}},
         0x40176f6191831b3bull},
    };
    for (const Case& c : cases) {
        for (int processors : {1, 8}) {
            ScopedProcessors scope(processors);
            Lightning2Doc g;
            for (const auto& s : c.sets)
                g.Set(s.first, s.second);
            const uint64_t hash = HashImage(g.Render(night.get()));
            EXPECT_EQ(hash, c.hash) << processors << " processors: 0x" << std::hex << hash;
        }
    }
}
