// The area sampler: the pyramid's levels, the bilinear fetch and the choice of levels by area, the
// three edge modes, single channels, and pictures too small for the bilinear step.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "frame/SamplePyramid.h"
#include "tests/TestSupport.h"

namespace {

using Result = std::vector<int>;

Result Sample(const SamplePyramid* p, float l, float t, float r, float b, int mode) {
    uint16_t s[4];
    SampleRect(s, p, l, t, r, b, mode);
    return {s[0], s[1], s[2], s[3]};
}

// Red and green linear in x and y, so that every average is a whole number.
void Ramp(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(1000 * x + 100 * y);
    p[1] = static_cast<uint16_t>(100 * x + 1000 * y);
    p[2] = static_cast<uint16_t>(7 + x);
    p[3] = 32767;
}

struct Pyramid {
    explicit Pyramid(const WorkImage* image)
        : p(BuildPyramid(image, image->width, image->height)) {}
    ~Pyramid() { FreePyramid(p); }
    SamplePyramid* p;
};

const float kNaN = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST(Sampler, PyramidLevels) {
    std::unique_ptr<WorkImage> image(MakeWorkImage(5, 4, Ramp));
    Pyramid py(image.get());
    const SamplePyramid& p = *py.p;
    ASSERT_EQ(p.levelCount, 2);
    // The odd fifth column is dropped; the scale is (smaller side - 1) / 4.
    EXPECT_EQ(std::vector<int>(p.levelWidth, p.levelWidth + 4), (std::vector<int>{5, 2, 1, 0}));
    EXPECT_EQ(std::vector<int>(p.levelHeight, p.levelHeight + 3), (std::vector<int>{4, 2, 1}));
    EXPECT_EQ(std::vector<float>(p.levelScale, p.levelScale + 3),
              (std::vector<float>{1.0f, 0.25f, 0.0f}));
    // Stored alpha, blue, green, red: red of (3, 2) is 3200; level 1 (1, 0) averages 2000, 3000,
    // 2100, 3100; level 2 averages level 1's 550, 2550, 750, 2750.
    EXPECT_EQ(p.levels[0][(2 * 5 + 3) * 4 + 3], 3200);
    EXPECT_EQ(p.levels[0][(2 * 5 + 3) * 4 + 0], 32767);
    EXPECT_EQ(p.levels[1][1 * 4 + 3], 2550);
    EXPECT_EQ(p.levels[2][3], 1650);

    for (auto [w, h, count] : std::vector<std::tuple<int, int, int>>{
             {1, 1, 0}, {1, 9, 0}, {9, 1, 0}, {2, 2, 1}, {3, 7, 1}, {64, 48, 5}}) {
        std::unique_ptr<WorkImage> im(MakeWorkImage(w, h, Ramp));
        Pyramid q(im.get());
        ASSERT_NE(q.p, nullptr);
        EXPECT_EQ(q.p->levelCount, count) << w << "x" << h;
    }
    EXPECT_EQ(BuildPyramid(nullptr, 5, 4), nullptr);
    EXPECT_EQ(BuildPyramid(image.get(), 6, 4), nullptr);  // larger than the picture
    FreePyramid(nullptr);

    // A pyramid of the same size is rebuilt in its own blocks; another size gets new ones.
    std::unique_ptr<WorkImage> other(MakeWorkImage(5, 4, Pattern15));
    SamplePyramid* kept = BuildPyramid(image.get(), 5, 4);
    uint16_t* block = kept->baseBlock;
    SamplePyramid* again = BuildPyramid(other.get(), 5, 4, kept);
    Pyramid fresh(other.get());
    EXPECT_EQ(again, kept);
    EXPECT_EQ(again->baseBlock, block);
    EXPECT_EQ(Sample(again, 0.5f, 0.5f, 3.5f, 2.5f, kEdgeDup),
              Sample(fresh.p, 0.5f, 0.5f, 3.5f, 2.5f, kEdgeDup));
    SamplePyramid* smaller = BuildPyramid(other.get(), 4, 4, again);
    ASSERT_NE(smaller, nullptr);
    EXPECT_EQ(smaller->width, 4);
    FreePyramid(smaller);
}

TEST(Sampler, BilinearFetchAndLevelsByArea) {
    std::unique_ptr<WorkImage> image(MakeWorkImage(8, 8, Ramp));
    Pyramid py(image.get());
    // At (2.25, 3.5) red is 2550 on row 3 and 2650 on row 4, then 2600. Areas 0 and exactly 1
    // both take level 0, and bounds in the wrong order are sorted.
    EXPECT_EQ(Sample(py.p, 2.25f, 3.5f, 2.25f, 3.5f, kEdgeDup)[0], 2600);
    EXPECT_EQ(Sample(py.p, 2.75f, 4.0f, 1.75f, 3.0f, kEdgeDup)[0], 2600);
    // Area 4 is level 1 exactly, at the centre times (4 - 1) / 8: red 3025.
    EXPECT_EQ(Sample(py.p, 2.0f, 2.0f, 4.0f, 4.0f, kEdgeDup)[0], 3025);

    // On a 4 x 4 picture (two levels above 0) a level past the top is moved down until its lower
    // level is level 1: area 16 is level 1 alone (1100 at the clamped centre), area 100 blends
    // levels 1 and 2 by 0.32 (1277).
    std::unique_ptr<WorkImage> small(MakeWorkImage(4, 4, Ramp));
    Pyramid ps(small.get());
    EXPECT_EQ(Sample(ps.p, -1.0f, -1.0f, 3.0f, 3.0f, kEdgeDup)[0], 1100);
    EXPECT_EQ(Sample(ps.p, -4.0f, -4.0f, 6.0f, 6.0f, kEdgeDup)[0], 1277);

    // Areas of 200 and more all count as 200.
    std::unique_ptr<WorkImage> busy(MakeWorkImage(64, 64, Pattern15));
    Pyramid pb(busy.get());
    auto square = [&](double area) {
        const float half = static_cast<float>(std::sqrt(area) / 2);
        return Sample(pb.p, 32.0f - half, 32.0f - half, 32.0f + half, 32.0f + half, kEdgeDup);
    };
    const Result at200 = square(200.0);
    EXPECT_EQ(square(400.0), at200);
    EXPECT_EQ(square(3000.0), at200);
    EXPECT_NE(square(100.0), at200);
}

TEST(Sampler, EdgeModes) {
    // Red by column (1000 on the left half, 9000 on the right), green by row (2000, 7000).
    std::unique_ptr<WorkImage> image(MakeWorkImage(8, 6, [](int x, int y, uint16_t* p) {
        p[0] = x < 4 ? 1000 : 9000;
        p[1] = y < 3 ? 2000 : 7000;
        p[2] = 500;
        p[3] = 32767;
    }));
    Pyramid py(image.get());
    const Result edge = {1000, 4500, 500, 32767};
    EXPECT_EQ(Sample(py.p, -3.0f, 2.5f, -1.0f, 2.5f, kEdgeDup), edge);
    EXPECT_EQ(Sample(py.p, -3.0f, 2.0f, -1.0f, 3.0f, kEdgeBlack), (Result{0, 0, 0, 0}));
    // Half over the left edge: the outer half continues the edge, is black, or comes from the
    // right-hand side, each half weighing 0.5 / (1 + 1e-5).
    EXPECT_EQ(Sample(py.p, -0.5f, 2.0f, 0.5f, 3.0f, kEdgeDup), edge);
    EXPECT_EQ(Sample(py.p, -0.5f, 2.0f, 0.5f, 3.0f, kEdgeBlack), (Result{499, 2249, 249, 16383}));
    const Result wrapped = {4999, 4499, 499, 32766};
    EXPECT_EQ(Sample(py.p, -0.5f, 2.0f, 0.5f, 3.0f, kEdgeWrap), wrapped);
    // Over the bottom edge the outer half comes from the top rows; a corner keeps a quarter.
    EXPECT_EQ(Sample(py.p, 2.0f, -0.5f, 3.0f, 0.5f, kEdgeWrap), (Result{999, 4499, 499, 32766}));
    EXPECT_EQ(Sample(py.p, 6.5f, 4.5f, 7.5f, 5.5f, kEdgeBlack)[3], 8191);
    // The centre wraps by whole turns; within the picture the modes agree.
    EXPECT_EQ(Sample(py.p, 23.5f, 2.0f, 24.5f, 3.0f, kEdgeWrap), wrapped);
    EXPECT_EQ(Sample(py.p, -40.5f, 14.0f, -39.5f, 15.0f, kEdgeWrap), wrapped);
    for (int mode : {kEdgeBlack, kEdgeWrap})
        EXPECT_EQ(Sample(py.p, 1.2f, 1.1f, 3.7f, 2.9f, mode),
                  Sample(py.p, 1.2f, 1.1f, 3.7f, 2.9f, kEdgeDup));

    // Bounds that are not numbers: nothing where a split is needed, the clamped corner otherwise.
    EXPECT_EQ(Sample(py.p, kNaN, 1.0f, 2.0f, 2.0f, kEdgeBlack), (Result{0, 0, 0, 0}));
    EXPECT_EQ(Sample(py.p, -INFINITY, 1.0f, 2.0f, 2.0f, kEdgeWrap), (Result{0, 0, 0, 0}));
    EXPECT_EQ(Sample(py.p, kNaN, kNaN, kNaN, kNaN, kEdgeDup), (Result{1000, 2000, 500, 32767}));
    EXPECT_EQ(Sample(nullptr, 1.0f, 1.0f, 2.0f, 2.0f, kEdgeDup), (Result{0, 0, 0, 0}));
}

TEST(Sampler, SingleChannelsAndThePackedPathMatchTheWholeSample) {
    std::unique_ptr<WorkImage> image(MakeWorkImage(23, 17, Pattern15));
    Pyramid py(image.get());
    ASSERT_TRUE(py.p->fits15);
    uint32_t seed = 12345;
    auto next = [&seed](float lo, float span) {
        seed = seed * 1664525u + 1013904223u;
        return lo + span * static_cast<float>(seed >> 8) / 16777216.0f;
    };
    for (int i = 0; i < 400; ++i) {
        const float l = next(-8.0f, 36.0f), t = next(-8.0f, 30.0f);
        const float r = l + next(0.0f, 12.0f), b = t + next(0.0f, 12.0f);
        for (int mode : {kEdgeDup, kEdgeBlack, kEdgeWrap}) {
            const Result all = Sample(py.p, l, t, r, b, mode);
            // 15-bit pictures blend four channels at once; channel by channel gives the same.
            py.p->fits15 = false;
            ASSERT_EQ(Sample(py.p, l, t, r, b, mode), all) << i;
            py.p->fits15 = true;
            for (int c = 0; c < 4; ++c) {
                uint16_t one[4];
                SampleRectChannels(one, py.p, l, t, r, b, mode, c == 0, c == 1, c == 2, c == 3);
                for (int k = 0; k < 4; ++k)
                    ASSERT_EQ(one[k], k == c ? all[k] : 0) << i;
            }
        }
    }
}

TEST(Sampler, TinyPicturesNeverReadOutside) {
    // A flat picture gives its own colour wherever the duplicated edge is sampled and no more in
    // the other modes; a read beyond the pyramid would show as another value. An alpha above 15
    // bits takes the channel-by-channel blend.
    const float boxes[][4] = {{0, 0, 0, 0},   {0.3f, 0.2f, 0.3f, 0.2f}, {-1, -1, 1, 1},
                              {3, 3, 4, 4},   {-50, -50, 50, 50},       {0.5f, 0, 1.5f, 200},
                              {-2, 5, -1, 9}, {1e30f, 0, 2e30f, 1},     {kNaN, 0, 1, 1},
                              {0, 0, 15, 15}, {0.9f, 0.9f, 1.9f, 1.9f}};
    for (int alpha : {4444, 65535})
        for (auto [w, h] : std::vector<std::pair<int, int>>{
                 {1, 1}, {1, 2}, {2, 1}, {2, 2}, {1, 7}, {7, 1}, {2, 5}, {5, 2}, {3, 3}}) {
            std::unique_ptr<WorkImage> image(MakeWorkImage(w, h, [alpha](int, int, uint16_t* p) {
                p[0] = 1111;
                p[1] = 2222;
                p[2] = 3333;
                p[3] = static_cast<uint16_t>(alpha);
            }));
            Pyramid py(image.get());
            ASSERT_NE(py.p, nullptr);
            for (const auto& box : boxes) {
                const Result dup = Sample(py.p, box[0], box[1], box[2], box[3], kEdgeDup);
                EXPECT_EQ(dup, (Result{1111, 2222, 3333, alpha})) << w << "x" << h;
                for (int mode : {kEdgeBlack, kEdgeWrap}) {
                    const Result r = Sample(py.p, box[0], box[1], box[2], box[3], mode);
                    for (int c = 0; c < 4; ++c)
                        EXPECT_LE(r[c], dup[c]) << w << "x" << h;
                }
            }
        }
}
