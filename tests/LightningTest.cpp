// Lightning: the bolt tree (counts, draws, branch lists and their bounds), the brush and its
// stamps on tiny images, the clipped walk, grouped stamps, and the whole tool through the host:
// repeatable seeds, the two mixing modes, visibility, golden frames and the split of rows.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "frame/ShuffledRandom.h"
#include "lightning/BoltBrush.h"
#include "lightning/BoltGeometry.h"
#include "lightning/Lightning.h"
#include "tests/TestSupport.h"

namespace {

struct LightningDoc : ToolDoc<LightningOperator> {
    LightningDoc() : ToolDoc("Lightning") {}
    LightningEngine& Engine() const { return *op->Lightning(); }
    HostImage Render(Image* background, double time = 0.0) {
        return RenderWith("Background", background, time);
    }
};

uint16_t Export15(int64_t w) {
    const int64_t e = (w >> 14) | (w * 2);
    return static_cast<uint16_t>(e > 65535 ? 65535 : e);
}

int64_t Hold15(int64_t v) {
    return v < 0 ? 0 : (v > 32767 ? 32767 : v);
}

// A textured sky with partial alpha, in host samples that the import and export keep.
void Sky(int x, int y, uint16_t* p) {
    const int64_t w[4] = {4500 + 48 * x, 6000 + 65 * y, 15000 + 30 * ((x + y) % 50), 20000 + 6 * x};
    for (int c = 0; c < 4; ++c)
        p[c] = Export15(w[c]);
}

void Transparent(int, int, uint16_t* p) {
    p[0] = p[1] = p[2] = p[3] = 0;
}

// The first draws of a fresh sequence, taken before the sequence compared with them reseeds.
std::vector<double> Draws(int32_t seed, int count) {
    int32_t state = -seed;
    std::vector<double> r;
    for (int i = 0; i < count; ++i)
        r.push_back(ShuffledRandom(&state));
    return r;
}

// Default settings on a 720 x 486 picture.
BoltParams DefaultParams(int32_t seed) {
    BoltParams p;
    p.startX = 72.0f, p.startY = 461.7f, p.endX = 432.0f, p.endY = 24.3f;
    p.mainOffset = 20.0f, p.depthUnit = 1.0f, p.jitter = 1.0f / 3.0f, p.depthCount = 7;
    p.minAngle = 20.0f, p.maxAngle = 50.0f;
    p.gapOffset0 = p.gapRange0 = 0.1f, p.gapOffset1 = p.gapRange1 = 0.15f;
    p.branchOffset = 6.0f, p.twigOffset = 3.0f;
    p.randomState = -seed;
    return p;
}

// The grid steps of a Bresenham walk, one at a time, whose brush of `cell` pixels reaches a
// picture of width x height.
std::vector<std::pair<int64_t, int64_t>> NaiveWalk(int64_t gx, int64_t gy, int64_t gx1, int64_t gy1,
                                                   int width, int height, int cell) {
    std::vector<std::pair<int64_t, int64_t>> out;
    const int64_t sx = gx1 < gx ? -1 : 1, sy = gy1 < gy ? -1 : 1;
    const int64_t dx = std::llabs(gx1 - gx), dy = std::llabs(gy1 - gy);
    const bool steep = dy > dx;
    const int64_t major = steep ? dy : dx, minor = steep ? dx : dy;
    for (int64_t k = 0, error = -major; k <= major; ++k) {
        if (gx >= 0 && gy >= 0 && gx / 4 - cell / 2 < width && gy / 4 - cell / 2 < height)
            out.emplace_back(gx, gy);
        error += 2 * minor;
        if (error > 0) {
            (steep ? gx : gy) += steep ? sx : sy;
            error -= 2 * major;
        }
        (steep ? gy : gx) += steep ? sy : sx;
    }
    return out;
}

}  // namespace

TEST(LightningTree, CountsDrawsAndBounds) {
    std::vector<float> x(kPolylinePoints), y(kPolylinePoints), sx(kPolylinePoints),
        sy(kPolylinePoints);
    // The bits of every point and of every branch record, as a golden hash.
    uint64_t bits = 1469598103934665603ull;
    auto hash = [&bits](const void* data, size_t bytes) {
        bits = Fnv1a(static_cast<const uint16_t*>(data), bytes / 2, bits);
    };
    for (int32_t seed : {1, 2, 3, 4, 5, 77, 999}) {
        const std::vector<double> reference = Draws(seed, 300);
        BoltParams p = DefaultParams(seed);
        const int base = MakeBaseLine(p, x.data(), y.data());
        const int points =
            SubdivideBolt(p, x.data(), y.data(), base, 0, sx.data(), sy.data(), kPolylinePoints);
        ASSERT_EQ(points, 64 * (base - 1) + 1);
        hash(x.data(), 4u * points);
        hash(y.data(), 4u * points);
        EXPECT_EQ(x[0], p.startX);
        EXPECT_EQ(y[points - 1], p.endY);
        // One draw for the middle point, three for its place, two a segment over six rounds.
        EXPECT_EQ(PlainDraw(&p.randomState), reference[(base == 3 ? 4 : 1) + 126 * (base - 1)]);
        BranchRecord branches[kBranchListSize];
        const int n = PickBranches(p, x.data(), y.data(), points, branches, 0, 1.0f);
        hash(branches, sizeof(BranchRecord) * n);
    }
    EXPECT_EQ(bits, 0xda0038450133e176ull) << std::hex << bits;
    // Without jitter, and with room for one round only, the midpoint moves by the offset alone,
    // to +y along +x.
    BoltParams none = DefaultParams(9);
    none.jitter = 0.0f;
    float nx[3] = {0.0f, 400.0f}, ny[3] = {}, s1[3], s2[3];
    EXPECT_EQ(SubdivideBolt(none, nx, ny, 2, 0, s1, s2, 3), 3);
    EXPECT_TRUE(nx[1] == 200.0f && ny[1] == 20.0f);

    // Start on End: every point stays on the start, and branches have no length.
    BoltParams p = DefaultParams(5);
    p.endX = p.startX, p.endY = p.startY;
    int points = MakeBaseLine(p, x.data(), y.data());
    points = SubdivideBolt(p, x.data(), y.data(), points, 0, sx.data(), sy.data(), kPolylinePoints);
    for (int i = 0; i < points; ++i)
        ASSERT_TRUE(x[i] == p.startX && y[i] == p.startY);
    BranchRecord list[kBranchListSize];
    const int n = PickBranches(p, x.data(), y.data(), points, list, 0, 1.0f);
    ASSERT_GT(n, 0);
    EXPECT_TRUE(list[n - 1].endX == list[n - 1].startX && list[n - 1].endY == list[n - 1].startY);
}

TEST(LightningTree, BranchListsAndTheirBounds) {
    const std::vector<double> reference = Draws(3, 600);
    std::vector<float> x(129), y(129);
    for (int i = 0; i < 129; ++i)
        x[i] = static_cast<float>(i * 3), y[i] = static_cast<float>(i);
    BranchRecord list[kBranchListSize];

    // Roots on the line; reach two to four times the 7% ahead (9 points); a turn of 20 to 50
    // degrees to either side. Four draws a record, and one for the gap that ends the list unless
    // the last root stood on the limit.
    BoltParams p = DefaultParams(3);
    const int n = PickBranches(p, x.data(), y.data(), 129, list, 0, 1.0f);
    ASSERT_GT(n, 3);
    const double next = PlainDraw(&p.randomState);
    EXPECT_TRUE(next == reference[4 * n + 1] || next == reference[4 * n]);
    const double ahead = std::hypot(27.0, 9.0);
    for (int i = 0; i < n; ++i) {
        const double dx = list[i].endX - list[i].startX, dy = list[i].endY - list[i].startY;
        EXPECT_NEAR(std::hypot(dx, dy), 3.0 * ahead, ahead + 1e-3);
        EXPECT_NEAR(std::fabs(std::atan2(dy, dx) - std::atan2(1.0, 3.0)) * 57.29577951308232, 35.0,
                    15.0 + 1e-3);
        EXPECT_EQ(std::fmod(list[i].startX, 3.0f), 0.0f);
    }

    // Density 0: the first gap passes the limit, and that one draw is spent.
    const std::vector<double> again = Draws(3, 2);
    p = DefaultParams(3);
    p.gapOffset0 = p.gapRange0 = 10000.0f;
    EXPECT_EQ(PickBranches(p, x.data(), y.data(), 129, list, 0, 1.0f), 0);
    EXPECT_EQ(PlainDraw(&p.randomState), again[1]);
    // Far beyond the slider, gaps of 0 propose the first root again and again until the list is
    // full; a negative density ends the list at once; one point has no root.
    p.gapOffset0 = p.gapRange0 = 1e-6f;
    EXPECT_EQ(PickBranches(p, x.data(), y.data(), 129, list, 0, 1.0f), kBranchListSize);
    EXPECT_EQ(list[kBranchListSize - 1].startX, 0.0f);
    p.gapOffset0 = p.gapRange0 = -0.05f;
    EXPECT_EQ(PickBranches(p, x.data(), y.data(), 129, list, 0, 1.0f), 0);
    EXPECT_EQ(PickBranches(p, x.data(), y.data(), 1, list, 0, 1.0f), 0);
}

TEST(LightningBrush, BrushCellsAndStampsHoldExactValues) {
    // The twig of Thickness 20 at 720 pixels: three pixels wide, the centre at half scale.
    Brush brush;
    ASSERT_TRUE(MakeBrush(static_cast<float>(720 * 0.001388888888888889 * 20.0 * 0.001), brush));
    ASSERT_EQ(brush.size, 3);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(brush.pixels[i * 4 + 1], i == 4 ? 16383 : 0);
    EXPECT_FALSE(MakeBrush(kLargestBrushRadius * 2.0f, brush));
    EXPECT_EQ(brush.size, 3);

    // Cell 0 of the smallest brush: rows and columns moved by -0.375 (weights 0.375 on a pixel,
    // 0.625 on the one before) spread the centre over four pixels. Every cell keeps the brush's
    // mass less what the fixed-point weights drop.
    ASSERT_TRUE(MakeBrush(0.0f, brush));
    BrushSet set;
    ASSERT_TRUE(MakeBrushSet(brush, set));
    ASSERT_EQ(set.width, 5);
    const uint16_t* cell = set.cells[0];
    EXPECT_EQ(cell[(1 * 5 + 1) * 4], 2303);
    EXPECT_EQ(cell[(1 * 5 + 2) * 4], 3839);
    EXPECT_EQ(cell[(2 * 5 + 1) * 4], 3839);
    EXPECT_EQ(cell[(2 * 5 + 2) * 4], 6399);
    for (int k = 0; k < 16; ++k) {
        long sum = 0;
        for (int i = 0; i < 25; ++i)
            sum += set.cells[k][i * 4 + 3];
        EXPECT_NEAR(sum, 16383 - 4, 4);
    }

    // One stamp of cell 0 at pixel (1, 1) adds a * a >> 15 under the cell; at half strength
    // e = 3199; stamps saturate; rows outside the range are untouched.
    set.mode = 2;
    std::vector<StampMark> marks;
    StampLine(marks, set, 0, 1.0f, 3, 3, 1.0f, 1.0f, 1.0f, 1.0f);
    ASSERT_EQ(marks.size(), 1u);
    const BrushSet* sets[1] = {&set};
    WorkImage image(3, 3);
    image.Fill(0, 0, 0, 0);
    StampRows(marks, sets, 1, image, 0, 2);
    EXPECT_EQ(image.Pixel(0, 0)[0], 161);
    EXPECT_EQ(image.Pixel(1, 0)[1], 449);
    EXPECT_EQ(image.Pixel(0, 1)[2], 449);
    EXPECT_EQ(image.Pixel(1, 1)[3], 1249);
    EXPECT_EQ(image.Pixel(2, 2)[0], 0);
    image.Fill(0, 0, 0, 0);
    marks[0].coverage = 0.5f;
    StampRows(marks, sets, 1, image, 0, 0);
    EXPECT_EQ(image.Pixel(1, 0)[0], (3839 * 1919) >> 15);
    EXPECT_EQ(image.Pixel(1, 1)[0], 0);
    image.Fill(32700, 32700, 32700, 32700);
    StampRows(marks, sets, 1, image, 0, 2);
    EXPECT_EQ(image.Pixel(1, 1)[0], 32767);
}

TEST(LightningBrush, ClippedWalkMarksTheStepsOfAWalkOfEveryStep) {
    Brush brush;
    BrushSet set;
    ASSERT_TRUE(MakeBrush(3.2f, brush) && MakeBrushSet(brush, set));
    const int width = 40, height = 30;
    uint32_t r = 12345;
    auto next = [&r](int range) {
        r = r * 1103515245u + 12345u;
        return static_cast<int>((r >> 8) % static_cast<uint32_t>(range)) - range / 2;
    };
    for (int trial = 0; trial < 3000; ++trial) {
        const int spread = trial % 10 == 0 ? 4000 : 140;  // now and then far outside
        const float x0 = static_cast<float>(next(spread) + 20),
                    y0 = static_cast<float>(next(spread));
        const float x1 = static_cast<float>(next(spread) + 20),
                    y1 = static_cast<float>(next(spread));
        std::vector<StampMark> marks;
        StampLine(marks, set, 1, 1.0f, width, height, x0, y0, x1, y1);
        const auto steps = NaiveWalk(static_cast<int64_t>(x0) * 4, static_cast<int64_t>(y0) * 4,
                                     static_cast<int64_t>(x1) * 4, static_cast<int64_t>(y1) * 4,
                                     width, height, set.width);
        ASSERT_EQ(marks.size(), steps.size()) << x0 << "," << y0 << " " << x1 << "," << y1;
        for (size_t i = 0; i < steps.size(); ++i)
            ASSERT_TRUE(marks[i].px == steps[i].first / 4 && marks[i].py == steps[i].second / 4 &&
                        marks[i].cell == (steps[i].second % 4) * 4 + steps[i].first % 4);
    }
    // A billion pixels either side, or ends that are not numbers: only the picture is walked.
    std::vector<StampMark> marks;
    StampLine(marks, set, 0, 1.0f, width, height, -1e9f, 10.0f, 1e9f, 12.0f);
    EXPECT_EQ(marks.size(), 4u * (width + set.width / 2));
    marks.clear();
    StampLine(marks, set, 0, 1.0f, width, height, NAN, 10.0f, INFINITY, -INFINITY);
    EXPECT_LT(marks.size(), 100u);
}

TEST(LightningBrush, GroupedStampsGiveThePictureOfStampsInOrder) {
    Brush brush;
    BrushSet sets[3];
    const float radii[3] = {4.7f, 2.0f, 0.5f};
    for (int level = 0; level < 3; ++level) {
        ASSERT_TRUE(MakeBrush(radii[level], brush) && MakeBrushSet(brush, sets[level]));
        sets[level].mode = 2;
    }
    const BrushSet* setList[3] = {&sets[0], &sets[1], &sets[2]};
    uint32_t r = 99;
    auto next = [&r](int range) {
        r = r * 1664525u + 1013904223u;
        return static_cast<int>((r >> 10) % static_cast<uint32_t>(range));
    };
    // Runs of marks on one pixel, as lines make them. Round 1 remakes a set and puts one in the
    // blend mode; round 2 has weak marks of a thousand strengths, more sums than there is room
    // for, so that the later ones go in mark by mark.
    StampPlan plan;  // kept from round to round with its sums
    for (int round = 0; round < 3; ++round) {
        if (round == 1) {
            ASSERT_TRUE(MakeBrush(3.1f, brush) && MakeBrushSet(brush, sets[0]));
            sets[0].mode = 2;
            sets[1].mode = 1;
        }
        const int width = round == 2 ? 200 : 30, height = round == 2 ? 150 : 20;
        std::vector<StampMark> marks;
        for (int run = 0; run < (round == 2 ? 5000 : 400); ++run) {
            const int px = next(width + 8), py = next(height + 8), count = 1 + next(5);
            const uint8_t level = static_cast<uint8_t>(round == 2 ? 2 * next(2) : next(3));
            const float share = round == 2 ? 0.0003f * static_cast<float>(1 + next(1000))
                                           : (next(3) ? 1.0f : 0.75f);
            for (int k = 0; k < count; ++k)
                marks.push_back({px, py, level, static_cast<uint8_t>(next(16)), share});
        }
        WorkImage inOrder(width, height), planned(width, height);
        inOrder.Fill(100, 200, 300, 0);
        StampRows(marks, setList, 3, inOrder, 0, height - 1);
        for (int again = 0; again < 2; ++again) {
            planned.Fill(100, 200, 300, 0);
            plan.Build(marks, setList, 3);
            EXPECT_EQ(plan.RoomRanOut(), round == 2);
            plan.Rows(planned, 0, 6);
            plan.Rows(planned, 7, height - 1);
            EXPECT_TRUE(SamePixels(inOrder, planned)) << "round " << round;
        }
        EXPECT_LT(plan.StepCount(), marks.size());
    }
}

TEST(Lightning, SeedRepeatsItsPictureAtAnyTimeAndAnotherSeedDiffers) {
    HostImage sky = MakeHostImage(90, 60, Sky);
    LightningDoc t, other, twin;
    t.Set("Wobb", 40.0);
    twin.Set("Wobb", 40.0);
    other.Set("Seed", 500.0);
    const uint64_t first = HashImage(t.Render(sky.get(), 0.0));
    // Another time, Seed Lock, another tool's render between (which reseeds the shared
    // generator), another tool with the same inputs: the same picture.
    EXPECT_EQ(HashImage(t.Render(sky.get(), 37.5)), first);
    t.Set("KPat", 1.0);
    other.Render(sky.get(), 3.0);
    EXPECT_EQ(HashImage(t.Render(sky.get(), 12.0)), first);
    EXPECT_EQ(HashImage(twin.Render(sky.get(), 5.0)), first);
    t.Set("Seed", 2.0);
    const uint64_t second = HashImage(t.Render(sky.get(), 0.0));
    EXPECT_NE(second, first);
    // An animated seed follows its keys.
    Key one, two;
    one.time = 0.0, one.v[0] = 1.0, two.time = 10.0, two.v[0] = 2.0;
    t.op->FindInput("Seed")->SetKeys({one, two});
    EXPECT_EQ(HashImage(t.Render(sky.get(), 0.0)), first);
    EXPECT_EQ(HashImage(t.Render(sky.get(), 10.0)), second);
}

TEST(Lightning, AddAndIlluminateModesMixTheBoltLayerAsTheyShould) {
    HostImage sky = MakeHostImage(64, 48, Sky);
    HostImage clear = MakeHostImage(64, 48, Transparent);
    LightningDoc t;
    // Over transparent black the add mode shows the bolt layer itself.
    const HostImage bolt = t.Render(clear.get());
    const uint64_t added = HashImage(t.Render(sky.get()));
    int lit = 0;
    for (int i = 0; i < 64 * 48; ++i)
        lit += bolt->Data()[i * 4] > 0;
    EXPECT_GT(lit, 200);

    // light = (L.r + L.g + L.b) * trunc(scale) / 3 + k; the background times it, plus the bolt.
    // MinEnvLight 0 to 100 and EnvIllScale 0 to 170 (below 10 no lighting); the add mode is
    // full environment light and no lighting.
    t.Set("Mode", 1.0);
    for (double minLight : {100.0, 0.0, 35.0}) {
        for (double scale : {0.0, 9.0, 100.0, 170.0}) {
            t.Set("MinL", minLight);
            t.Set("EnvS", scale);
            HostImage lit = t.Render(sky.get());
            if (minLight == 100.0 && scale < 10.0) {
                EXPECT_EQ(HashImage(lit), added);
            }
            const int64_t k = static_cast<int64_t>(static_cast<float>(minLight * 0.01) * 32768.0);
            const int64_t e = static_cast<int64_t>(static_cast<float>(scale * 0.1));
            for (int i = 0; i < 64 * 48; ++i) {
                const uint16_t *lh = bolt->Data() + i * 4, *b = sky->Data() + i * 4;
                const uint16_t* o = lit->Data() + i * 4;
                const int64_t l[3] = {lh[0] >> 1, lh[1] >> 1, lh[2] >> 1};
                const int64_t light = (l[0] + l[1] + l[2]) * e / 3 + k;
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(o[c], Export15(Hold15((((b[c] >> 1) * light) >> 15) + l[c])));
                const int64_t luma = (5 * l[0] + 8 * l[1] + 3 * l[2]) >> 4;
                ASSERT_EQ(o[3], Export15(Hold15((((b[3] >> 1) * light) >> 15) + luma)));
            }
        }
    }

    // Generate 0: the background, alpha too, in the add mode and in full environment light; at
    // half of it the colour is halved and alpha kept.
    t.Set("Gene", 0.0);
    t.Set("MinL", 100.0);
    EXPECT_EQ(HashImage(t.Render(sky.get())), HashImage(sky));
    t.Set("MinL", 50.0);
    HostImage dim = t.Render(sky.get());
    for (int i = 0; i < 64 * 48 * 4; ++i)
        ASSERT_EQ(dim->Data()[i], Export15(i % 4 == 3 ? sky->Data()[i] >> 1
                                                      : ((sky->Data()[i] >> 1) * 16384) >> 15));
    t.Set("Mode", 0.0);
    EXPECT_EQ(HashImage(t.Render(sky.get())), HashImage(sky));

    // Brightness works only where the glow is positive: without glow it changes nothing; with a
    // glow over the whole picture, Brightness 0 leaves the background.
    t.Set("Gene", 1.0);
    t.Set("GloB", 0.0);
    const uint64_t noGlow = HashImage(t.Render(sky.get()));
    t.Set("Brig", 0.0);
    EXPECT_EQ(HashImage(t.Render(sky.get())), noGlow);
    t.Set("GloB", 10.0);
    t.Set("GloR", 100.0);
    EXPECT_EQ(HashImage(t.Render(sky.get())), HashImage(sky));
}

TEST(Lightning, VisibilityControlsAndWobbleTables) {
    HostImage sky = MakeHostImage(16, 16, Sky);
    LightningDoc t;
    LightningEngine& e = t.Engine();
    t.Render(sky.get());
    EXPECT_TRUE(e.minEnvLightInput.hidden && e.envScaleInput.hidden);
    t.Set("Mode", 1.0);
    EXPECT_FALSE(e.minEnvLightInput.hidden || e.envScaleInput.hidden);
    t.Set("Mode", 0.0);
    EXPECT_TRUE(e.envScaleInput.hidden);

    // Where the controls will stand in a view of 200 x 100.
    Point start(0.25, 0.5);
    t.op->FindInput("Star")->SetSource(&start, -1.0);
    t.op->RefreshValues(0.0);
    e.viewWidth = 200, e.viewHeight = 100;
    e.DrawControls();
    EXPECT_TRUE(e.controlStart[0] == 50.0f && e.controlStart[1] == 50.0f);
    EXPECT_TRUE(e.controlEnd[0] == 120.0f && e.controlEnd[1] == 5.0f);

    // A wobble table spans (1 - wobble) * 256 to 256 and takes 24 draws; one entry has no
    // spread and stands at the bottom.
    const std::vector<double> reference = Draws(8, 25);
    e.params.wobble = 0.4f;
    e.params.randomState = -8;
    std::vector<float> table(300);
    e.MakeWobbleTable(table.data(), 300);
    EXPECT_EQ(PlainDraw(&e.params.randomState), reference[24]);
    float lo = table[0], hi = table[0];
    for (float v : table)
        lo = v < lo ? v : lo, hi = v > hi ? v : hi;
    EXPECT_TRUE(std::fabs(lo - 153.6f) < 1e-3f && std::fabs(hi - 256.0f) < 1e-3f);
    e.params.wobble = 0.25f;
    float one = 0.0f;
    e.MakeWobbleTable(&one, 1);
    EXPECT_EQ(one, 192.0f);
}

TEST(Lightning, GoldenFramesOnOneAndEightProcessors) {
    HostImage sky = MakeHostImage(120, 80, Sky);
    struct Case {
        std::vector<std::pair<const char*, double>> sets;
        bool farOutside;  // a bolt from far outside, walked only where it can be seen
        uint64_t hash;
    };
    const Case cases[] = {
        {{}, false, 0xd095999f06b1e0c8ull},
        {{{"Wobb", 70.0}, {"Mode", 1.0}, {"MinL", 30.0}, {"Thic", 300.0}, {"Seed", 17.0}},
         false,
         0xc77827d54868611bull},
        {{{"BDen", 400.0},
          {"MinA", 60.0},
          {"MaxA", 10.0},
          {"PDra", 50.0},
          {"Swel", -60.0},
          {"GloR", 40.0},
          {"GloB", 150.0}},
         false,
         0x4a1a5c90d911040eull},
        {{{"Thic", 60.0}}, true, 0xf2693ed99d6ab625ull},
    };
    for (const Case& c : cases) {
        for (int processors : {1, 8}) {
            ScopedProcessors scope(processors);
            LightningDoc t;
            for (const auto& s : c.sets)
                t.Set(s.first, s.second);
            if (c.farOutside) {
                Point start(-300.0, 0.5), end(400.0, 0.4);
                t.op->FindInput("Star")->SetSource(&start, -1.0);
                t.op->FindInput("Endd")->SetSource(&end, -1.0);
            }
            const uint64_t hash = HashImage(t.Render(sky.get()));
            EXPECT_NE(hash, HashImage(sky));
            EXPECT_EQ(hash, c.hash) << processors << " processors: 0x" << std::hex << hash;
        }
    }
}
