// The image resizer: its filters, enlarging and reducing in both directions, where the end samples
// fall, its passes on an engine's chunks, and the import of a matte of another size.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "frame/ImageResizer.h"
#include "tests/TestSupport.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// The filters by number, as functions of the distance in pixels; any other number is the triangle.
double Kernel(int filter, double x) {
    auto cubic = [x](double a) {
        return x < 1 ? (a + 2) * x * x * x - (a + 3) * x * x + 1
                     : (x < 2 ? a * x * x * x - 5 * a * x * x + 8 * a * x - 4 * a : 0.0);
    };
    auto sinc = [](double t) { return t == 0 ? 1.0 : std::sin(kPi * t) / (kPi * t); };
    switch (filter) {
        case 3:
            return cubic(-0.5);
        case 4:
            return cubic(-1.0);
        case 5:
            return x < 1 ? (3 * x * x * x - 6 * x * x + 4) / 6
                         : (x < 2 ? (6 * x * x - x * x * x - 12 * x + 8) / 6 : 0.0);
        case 6:
            return x < 2 ? sinc(x) * sinc(x / 2) : 0.0;
        default:
            return x < 1 ? 1 - x : 0.0;
    }
}

int HalfWidth(int filter) {
    return filter >= 3 && filter <= 6 ? 2 : 1;
}

// One line of n samples (four channels) scaled to m, as the passes are written out.
std::vector<uint16_t> ReferenceLine(const std::vector<uint16_t>& in, int m, int filter) {
    const int n = static_cast<int>(in.size() / 4), hw = HalfWidth(filter);
    std::vector<uint16_t> out(static_cast<size_t>(m) * 4);
    if (m == n) return in;
    const double ratio = static_cast<double>(n - 1) / (m - 1);
    for (int d = 0; d < m; ++d) {
        const double c = d * ratio;
        const bool reduce = m < n;
        const int first = static_cast<int>(std::ceil(reduce ? c - hw * ratio : c - hw));
        const int last = static_cast<int>(std::floor(reduce ? hw * ratio + c : hw + c));
        double sum[4] = {0, 0, 0, 0}, total = 0;
        for (int i = first; i <= last; ++i) {
            const int k = i < 0 ? 0 : (i > n - 1 ? n - 1 : i);
            const double t =
                std::fabs(std::trunc(reduce ? (i - c) * (1 / ratio) * 512.0 : (i - c) * 512.0));
            const double w = Kernel(filter, t * 0.001953125);
            for (int ch = 0; ch < 4; ++ch)
                sum[ch] += in[k * 4 + ch] * w;
            total += w;
        }
        for (int ch = 0; ch < 4; ++ch) {
            double v = reduce ? sum[ch] * (1 / total) : sum[ch];
            v = v < 0 ? 0 : (v > 32767 ? 32767 : v);
            out[d * 4 + ch] = static_cast<uint16_t>(v + 0.5);
        }
    }
    return out;
}

// Resize written out: the horizontal pass into a middle image, then the vertical pass.
std::unique_ptr<WorkImage> ReferenceResize(const WorkImage& source, int width, int height,
                                           int filter) {
    WorkImage middle(width, source.height);
    for (int y = 0; y < source.height; ++y) {
        std::vector<uint16_t> line(source.rows[y], source.rows[y] + source.width * 4);
        std::vector<uint16_t> out = ReferenceLine(line, width, filter);
        std::copy(out.begin(), out.end(), middle.rows[y]);
    }
    auto dest = std::make_unique<WorkImage>(width, height);
    for (int x = 0; x < width; ++x) {
        std::vector<uint16_t> line;
        for (int y = 0; y < source.height; ++y)
            line.insert(line.end(), middle.Pixel(x, y), middle.Pixel(x, y) + 4);
        std::vector<uint16_t> out = ReferenceLine(line, height, filter);
        for (int y = 0; y < height; ++y)
            std::copy(&out[y * 4], &out[y * 4 + 4], dest->Pixel(x, y));
    }
    return dest;
}

// A resize of one line (a picture one row high) with `filter`; red only.
std::vector<uint16_t> ResizeRow(const std::vector<uint16_t>& red, int m, int filter) {
    std::unique_ptr<WorkImage> from(
        MakeWorkImage(static_cast<int>(red.size()), 1, [&](int x, int, uint16_t* p) {
            for (int c = 0; c < 4; ++c)
                p[c] = red[x];
        }));
    WorkImage to(m, 1);
    ImageResizer resizer;
    resizer.SetFilter(filter);
    EXPECT_EQ(resizer.Resize(from.get(), &to), 1);
    std::vector<uint16_t> out;
    for (int x = 0; x < m; ++x)
        out.push_back(to.Pixel(x, 0)[0]);
    return out;
}

}  // namespace

TEST(Resizer, FilterTablesAndHalfWidths) {
    ImageResizer r;
    EXPECT_EQ(r.filterNumber, 1);
    EXPECT_EQ(r.filterHalfWidth, 1);
    r.SetFilter(3);
    EXPECT_EQ(r.filterHalfWidth, 2);
    EXPECT_EQ(r.filterTable[768], -0.0625);  // the negative lobe at 1.5 pixels
    // Any other number is the triangle, and nothing of the earlier filter stays in the table.
    r.SetFilter(2);
    EXPECT_EQ(r.filterHalfWidth, 1);
    EXPECT_EQ(r.filterTable[256], 0.5);
    for (int i = 512; i <= 1024; ++i)
        EXPECT_EQ(r.filterTable[i], 0.0) << i;
}

TEST(Resizer, ExactValuesOnShortLines) {
    // Enlarging: samples between two source samples; the triangle and the cubic agree halfway.
    EXPECT_EQ(ResizeRow({0, 32767}, 3, 1), (std::vector<uint16_t>{0, 16384, 32767}));
    EXPECT_EQ(ResizeRow({0, 32767}, 3, 3), (std::vector<uint16_t>{0, 16384, 32767}));
    // The sharper cubic overshoots on both sides of a step; the clamp holds it to the scale.
    EXPECT_EQ(ResizeRow({1000, 1000, 31000, 31000}, 7, 4),
              (std::vector<uint16_t>{1000, 0, 1000, 16000, 31000, 32767, 31000}));
    // Reducing: the stretched triangle, normalised by its total; the end samples are averages.
    EXPECT_EQ(ResizeRow({0, 100, 200, 300, 400}, 3, 1), (std::vector<uint16_t>{25, 200, 375}));
    // A line of one sample is that sample at every length; a length of one is the first sample.
    EXPECT_EQ(ResizeRow({777}, 4, 3), (std::vector<uint16_t>{777, 777, 777, 777}));
    EXPECT_EQ(ResizeRow({777, 5, 9}, 1, 3), (std::vector<uint16_t>{777}));

    // Missing or empty images do nothing.
    ImageResizer r;
    WorkImage empty(0, 3), some(2, 2);
    some.Fill(9, 9, 9, 9);
    EXPECT_EQ(r.Resize(nullptr, &some), 0);
    EXPECT_EQ(r.Resize(&some, nullptr), 0);
    EXPECT_EQ(r.Resize(&empty, &some), 0);
    EXPECT_EQ(some.Pixel(1, 1)[2], 9);
}

TEST(Resizer, EnlargesAndReducesWithEachFilterAsTheFormulasGive) {
    auto source = std::unique_ptr<WorkImage>(MakeWorkImage(9, 7, Pattern15));
    const int goals[][2] = {{17, 13}, {4, 3}, {17, 3}, {4, 13}, {9, 13}, {4, 7}, {9, 7}, {2, 2}};
    for (int filter = 0; filter <= 7; ++filter) {
        ImageResizer resizer;
        resizer.SetFilter(filter);
        for (const auto& goal : goals) {
            WorkImage dest(goal[0], goal[1]);
            ASSERT_EQ(resizer.Resize(source.get(), &dest), 1);
            auto expected = ReferenceResize(*source, goal[0], goal[1], filter);
            EXPECT_TRUE(SamePixels(dest, *expected))
                << "filter " << filter << " to " << goal[0] << "x" << goal[1];
        }
        EXPECT_TRUE(
            SamePixels(*source, *std::unique_ptr<WorkImage>(MakeWorkImage(9, 7, Pattern15))));
    }
}

TEST(Resizer, EndSamplesFallOnEndSamples) {
    // Enlarging with the filters that pass through their samples keeps the four corners; the
    // sizes make the ratio exact, so the last sample falls exactly on the last one.
    auto source = std::unique_ptr<WorkImage>(MakeWorkImage(9, 5, Pattern15));
    for (int filter : {1, 3, 4, 6}) {
        ImageResizer resizer;
        resizer.SetFilter(filter);
        WorkImage dest(33, 17);
        resizer.Resize(source.get(), &dest);
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ(dest.Pixel(0, 0)[c], source->Pixel(0, 0)[c]) << filter;
            EXPECT_EQ(dest.Pixel(32, 0)[c], source->Pixel(8, 0)[c]) << filter;
            EXPECT_EQ(dest.Pixel(0, 16)[c], source->Pixel(0, 4)[c]) << filter;
            EXPECT_EQ(dest.Pixel(32, 16)[c], source->Pixel(8, 4)[c]) << filter;
            // Every fourth sample stands on a source sample.
            EXPECT_EQ(dest.Pixel(12, 8)[c], source->Pixel(3, 2)[c]) << filter;
        }
    }
    // Reducing spreads the filter but keeps the ends in place: a uniform picture stays uniform,
    // and a ramp reduced keeps its direction.
    std::unique_ptr<WorkImage> flat(MakeWorkImage(
        40, 30, [](int, int, uint16_t* p) { p[0] = 12345, p[1] = 0, p[2] = 32767, p[3] = 7; }));
    for (int filter = 1; filter <= 6; ++filter) {
        ImageResizer resizer;
        resizer.SetFilter(filter);
        WorkImage dest(7, 5);
        resizer.Resize(flat.get(), &dest);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x) {
                EXPECT_EQ(dest.Pixel(x, y)[0], 12345) << filter;
                EXPECT_EQ(dest.Pixel(x, y)[1], 0) << filter;
                EXPECT_EQ(dest.Pixel(x, y)[2], 32767) << filter;
                EXPECT_EQ(dest.Pixel(x, y)[3], 7) << filter;
            }
    }
}

TEST(Resizer, RunsOnTheEngineChunksWithTheSamePicture) {
    TestToolDoc t;
    ScopedDispatch dispatch(t.op);
    auto source = std::unique_ptr<WorkImage>(MakeWorkImage(23, 19, Pattern15));
    for (int filter : {1, 3, 6}) {
        ImageResizer alone;
        alone.SetFilter(filter);
        for (const auto& goal : {std::make_pair(41, 37), std::make_pair(11, 8)}) {
            WorkImage expected(goal.first, goal.second);
            alone.Resize(source.get(), &expected);
            for (int processors : {1, 8}) {
                ScopedProcessors scope(processors);
                t.op->ClearChunkCalls();
                ImageResizer threaded;
                threaded.SetFilter(filter);
                EXPECT_TRUE(threaded.SetDispatch(t.engine, &ResizerDispatch));
                WorkImage dest(goal.first, goal.second);
                threaded.Resize(source.get(), &dest);
                EXPECT_TRUE(SamePixels(dest, expected)) << filter << " " << processors;
                // Two chunks for each pass: over the source rows, then the destination columns.
                const auto calls = t.op->ChunkCalls();
                ASSERT_EQ(calls.size(), 4u);
                int overRows = 0, overColumns = 0;
                for (const auto& c : calls) {
                    EXPECT_TRUE(c.engineWork);
                    EXPECT_EQ(c.threadCount, 2);
                    overRows += c.rowCount == 19;
                    overColumns += c.rowCount == goal.first;
                }
                EXPECT_EQ(overRows, 2);
                EXPECT_EQ(overColumns, 2);
            }
        }
    }
}

TEST(Resizer, AMatteOfAnotherSizeReachesTheToolAtTheFirstInputSize) {
    TestToolDoc t;
    HostImage source = MakeHostImage(9, 6, Pattern16);
    HostImage matte = MakeHostImage(4, 3, [](int x, int y, uint16_t* p) { Pattern16(y, x, p); });
    // What the import should make of the matte: its samples halved, then the sharp cubic.
    std::unique_ptr<WorkImage> small(ImportImage(matte.get(), nullptr, false, nullptr));
    WorkImage scaled(9, 6);
    ImageResizer resizer;
    resizer.SetFilter(3);
    resizer.Resize(small.get(), &scaled);

    const int live = WorkImage::liveCount.load();
    for (int processors : {1, 8}) {
        ScopedProcessors scope(processors);
        HostImage out = t.Render(source.get(), matte.get());
        ASSERT_TRUE(out);
        EXPECT_TRUE(t.engine->sawMatte);
        EXPECT_EQ(t.engine->secondWidth, 9);
        EXPECT_EQ(t.engine->secondHeight, 6);
        // The test tool gives the output the matte's alpha.
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 9; ++x) {
                const uint32_t a = scaled.Pixel(x, y)[3];
                EXPECT_EQ(out->Row(y)[x * 4 + 3], (a >> 14) | (a * 2)) << x << "," << y;
            }
    }
    EXPECT_EQ(WorkImage::liveCount.load(), live);
}
