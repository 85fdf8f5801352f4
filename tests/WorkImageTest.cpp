// The working image: conversions to and from host images and the whole-image operators.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "frame/WorkImage.h"
#include "tests/TestSupport.h"

namespace {

// One row of host samples, four to a pixel.
HostImage HostRow(const std::vector<uint16_t>& samples) {
    const int width = static_cast<int>(samples.size() / 4);
    return MakeHostImage(width, 1, [&](int x, int, uint16_t* p) {
        for (int c = 0; c < 4; ++c)
            p[c] = samples[static_cast<size_t>(x) * 4 + c];
    });
}

std::vector<uint16_t> WorkRow(const WorkImage& image, int y = 0) {
    return std::vector<uint16_t>(image.rows[y], image.rows[y] + image.width * 4);
}

}  // namespace

TEST(WorkImage, ImportHalvesAndExportReplicatesTheTopBit) {
    const std::vector<uint16_t> host = {65535, 65534, 0,     1,     2,     3,    200,  201,
                                        32768, 32769, 40001, 40000, 65533, 4095, 4096, 4097};
    HostImage source = HostRow(host);
    source->xScale = 1.5;
    source->yScale = 0.75;
    source->xOffset = 2.0;
    source->yOffset = -3.0;

    std::unique_ptr<WorkImage> work(ImportImage(source.get(), nullptr, false, nullptr));
    ASSERT_TRUE(work);
    EXPECT_EQ(work->width, 4);
    EXPECT_EQ(work->height, 1);
    EXPECT_EQ(WorkRow(*work),
              (std::vector<uint16_t>{32767, 32767, 0, 0, 1, 1, 100, 100, 16384, 16384, 20000, 20000,
                                     32766, 2047, 2048, 2048}));
    EXPECT_EQ(work->pixelScale[0], 1.5);
    EXPECT_EQ(work->pixelScale[1], 0.75);
    EXPECT_EQ(work->pixelScale[2], 2.0);
    EXPECT_EQ(work->pixelScale[3], -3.0);

    // Back again: 65535 and 65534 both come home as 65535; the low bit copies the top one.
    HostImage back(ExportImage(source.get(), work.get()));
    ASSERT_TRUE(back);
    EXPECT_NE(back.get(), source.get());
    EXPECT_EQ(back->xScale, 1.5);
    const uint16_t* b = back->Row(0);
    EXPECT_EQ(std::vector<uint16_t>(b, b + 16),
              (std::vector<uint16_t>{65535, 65535, 0, 0, 2, 2, 200, 200, 32769, 32769, 40001, 40001,
                                     65533, 4094, 4096, 4096}));
}

TEST(WorkImage, ExportOfEdgeWords) {
    HostImage model = MakeHostImage(3, 2, [](int, int, uint16_t* p) { std::memset(p, 0, 8); });
    std::unique_ptr<WorkImage> work(new WorkImage(3, 2));
    const uint16_t words[24] = {32767, 32768, 16384, 1,     0,     65535, 40000, 2,
                                16383, 8192,  32766, 12345, 32769, 3,     4,     5,
                                6,     7,     8,     9,     10,    11,    12,    13};
    std::memcpy(work->pixels, words, sizeof(words));
    HostImage out(ExportImage(model.get(), work.get()));
    ASSERT_TRUE(out);
    // Row 0 of the work image is row 0 of the host image.
    const uint16_t* r0 = out->Row(0);
    EXPECT_EQ(r0[0], 65535);  // 32767
    EXPECT_EQ(r0[1], 65535);  // 32768, which blending can make in alpha: not 2
    EXPECT_EQ(r0[2], 32769);  // 16384
    EXPECT_EQ(r0[3], 2);      // 1
    EXPECT_EQ(r0[4], 0);
    EXPECT_EQ(r0[5], 65535);  // anything above 32767
    EXPECT_EQ(r0[6], 65535);
    EXPECT_EQ(r0[7], 4);
    EXPECT_EQ(r0[8], 32766);  // 16383
    EXPECT_EQ(r0[9], 16384);  // 8192
    EXPECT_EQ(r0[10], 65533);
    EXPECT_EQ(r0[11], 24690);
    EXPECT_EQ(out->Row(1)[0], 65535);  // 32769
    EXPECT_EQ(out->Row(1)[1], 6);

    EXPECT_EQ(ExportImage(model.get(), nullptr), nullptr);
}

TEST(WorkImage, ImportWithLike) {
    const int live = WorkImage::liveCount.load();
    {
        HostImage source = MakeHostImage(5, 4, Pattern16);
        std::unique_ptr<WorkImage> like(MakeWorkImage(5, 4, [](int, int, uint16_t* p) {
            for (int c = 0; c < 4; ++c)
                p[c] = 7;
        }));
        const uint64_t likeHash = HashWork(*like);
        std::unique_ptr<WorkImage> plain(ImportImage(source.get(), nullptr, false, nullptr));

        // Equal size and makeNew: a new image holding the source, no resize, like untouched.
        std::unique_ptr<WorkImage> made(ImportImage(source.get(), like.get(), true, nullptr));
        ASSERT_TRUE(made);
        EXPECT_NE(made.get(), like.get());
        EXPECT_TRUE(SamePixels(*made, *plain));
        EXPECT_EQ(HashWork(*like), likeHash);

        // A null source gives null and leaves like alone.
        EXPECT_EQ(ImportImage(nullptr, like.get(), true, nullptr), nullptr);
        EXPECT_EQ(ImportImage(nullptr, like.get(), false, nullptr), nullptr);
        EXPECT_EQ(ImportImage(nullptr, nullptr, false, nullptr), nullptr);
        EXPECT_EQ(HashWork(*like), likeHash);

        // Equal size without makeNew: like itself, overwritten.
        WorkImage* same = ImportImage(source.get(), like.get(), false, nullptr);
        EXPECT_EQ(same, like.get());
        EXPECT_TRUE(SamePixels(*like, *plain));
    }
    EXPECT_EQ(WorkImage::liveCount.load(), live);
}

namespace {

struct ResizeCall {
    int fromWidth = 0, fromHeight = 0;
    WorkImage* to = nullptr;
    ToolEngine* engine = nullptr;
    uint16_t firstWord = 0;
};
ResizeCall lastResize;

void RecordingResizer(WorkImage* from, WorkImage* to, ToolEngine* engine) {
    lastResize = {from->width, from->height, to, engine, from->rows[0][0]};
    to->Fill(1, 2, 3, 4);
}

}  // namespace

TEST(WorkImage, ImportOfAnotherSizeGoesThroughTheResizer) {
    const ImportResizer saved = importResizer;
    importResizer = &RecordingResizer;
    const int live = WorkImage::liveCount.load();
    {
        HostImage source = MakeHostImage(6, 3, [](int, int, uint16_t* p) {
            for (int c = 0; c < 4; ++c)
                p[c] = 1000;
        });
        std::unique_ptr<WorkImage> like(new WorkImage(4, 2));
        ToolEngine engineObject;
        ToolEngine* engine = &engineObject;  // only handed on to the resizer

        // makeNew false: like is the target, scaled from a staging image of the source's size.
        EXPECT_EQ(ImportImage(source.get(), like.get(), false, engine), like.get());
        EXPECT_EQ(lastResize.fromWidth, 6);
        EXPECT_EQ(lastResize.fromHeight, 3);
        EXPECT_EQ(lastResize.to, like.get());
        EXPECT_EQ(lastResize.engine, engine);
        EXPECT_EQ(lastResize.firstWord, 500);
        EXPECT_EQ(like->Pixel(3, 1)[3], 4);

        // makeNew true: a new image of like's size.
        std::unique_ptr<WorkImage> made(ImportImage(source.get(), like.get(), true, engine));
        EXPECT_NE(made.get(), like.get());
        EXPECT_EQ(made->width, 4);
        EXPECT_EQ(made->height, 2);
        EXPECT_EQ(lastResize.to, made.get());
    }
    // The staging images went with their imports.
    EXPECT_EQ(WorkImage::liveCount.load(), live);
    importResizer = saved;
}

TEST(WorkImage, FillAndCopyScaled) {
    // Images with no pixels are left as they are.
    for (auto size : {std::pair<int, int>{0, 0}, {0, 5}, {5, 0}}) {
        WorkImage empty(size.first, size.second);
        empty.Fill(1, 2, 3, 4);
    }
    WorkImage filled(3, 2);
    filled.Fill(10, 20, 30, 40);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(std::vector<uint16_t>(filled.Pixel(x, y), filled.Pixel(x, y) + 4),
                      (std::vector<uint16_t>{10, 20, 30, 40}));

    WorkImage source(2, 1);
    const uint16_t words[8] = {40000, 32768, 32767, 3, 10, 29491, 20000, 65535};
    std::memcpy(source.pixels, words, sizeof(words));

    // All four gains 1.0: a block copy, words above 32767 kept.
    WorkImage dest(3, 2);
    dest.Fill(9, 9, 9, 9);
    EXPECT_EQ(dest.CopyScaled(&source, 1.0f, 1.0f, 1.0f, 1.0f), 1);
    EXPECT_EQ(std::vector<uint16_t>(dest.rows[0], dest.rows[0] + 8),
              std::vector<uint16_t>(words, words + 8));
    EXPECT_EQ(dest.Pixel(2, 0)[0], 9);  // beyond the source's width
    EXPECT_EQ(dest.Pixel(0, 1)[0], 9);  // beyond its height

    // Any other gain clamps every channel, the ones at 1.0 as well, after truncation.
    EXPECT_EQ(dest.CopyScaled(&source, 1.0f, 1.0f, 2.0f, 0.5f), 1);
    EXPECT_EQ(std::vector<uint16_t>(dest.rows[0], dest.rows[0] + 8),
              (std::vector<uint16_t>{32767, 32767, 32767, 1, 10, 29491, 32767, 32767}));
    // 10 * 0.9f is a little under 9, and truncation gives 8.
    EXPECT_EQ(dest.CopyScaled(&source, 0.9f, -1.0f, 0.0f, 0.5f), 1);
    EXPECT_EQ(std::vector<uint16_t>(dest.rows[0], dest.rows[0] + 8),
              (std::vector<uint16_t>{32767, 0, 0, 1, 8, 0, 0, 32767}));
}

TEST(WorkImage, MixAndAlphaExactValues) {
    WorkImage dest(2, 1), source(2, 1);
    auto reset = [&] {
        const uint16_t d[8] = {32767, 100, 1000, 32767, 0, 40000, 5, 12345};
        const uint16_t s[8] = {0, 32767, 3000, 0, 32767, 40000, 7, 54321};
        std::memcpy(dest.pixels, d, sizeof(d));
        std::memcpy(source.pixels, s, sizeof(s));
    };

    // Full amount: f = 32767, g = 1, so 32767 over 0 leaves 0 and 100 under 32767 gives 32766.
    reset();
    dest.MixFrom(1.0f, &source);
    EXPECT_EQ(WorkRow(dest), (std::vector<uint16_t>{0, 32766, 2999, 0, 32766, 40000, 6, 54319}));
    // No amount: g = 32768, the destination stays.
    reset();
    dest.MixFrom(0.0f, &source);
    EXPECT_EQ(WorkRow(dest), (std::vector<uint16_t>{32767, 100, 1000, 32767, 0, 40000, 5, 12345}));
    // Half: f = 16383, g = 16385.
    reset();
    dest.MixFrom(0.5f, &source);
    EXPECT_EQ(WorkRow(dest)[2], 1999);

    // A colour, red and green in the first word (red low), blue and alpha in the second; at 0.25
    // f = 8191 and g = 24577.
    reset();
    dest.MixColour(0.25f, 0u | (32767u << 16), 2000u | (16384u << 16));
    EXPECT_EQ(WorkRow(dest),
              (std::vector<uint16_t>{24576, 8265, 1249, 28671, 0, 38191, 503, 13354}));
    EXPECT_EQ(dest.mixColour[1], 32767);
    EXPECT_EQ(dest.mixColour[3], 16384);
    reset();
    dest.MixColour(0.0f, 0xffffffffu, 0xffffffffu);
    EXPECT_EQ(WorkRow(dest)[1], 100);

    // Alpha only, from the source.
    reset();
    dest.CopyAlphaFrom(&source);
    EXPECT_EQ(WorkRow(dest), (std::vector<uint16_t>{32767, 100, 1000, 0, 0, 40000, 5, 54321}));
}

TEST(WorkImage, ThreadedOperatorsAreTheSameOnOneAndEightProcessors) {
    TestToolDoc t;
    const int w = 37, h = 29;  // rows that do not split evenly
    std::unique_ptr<WorkImage> other(
        MakeWorkImage(w, h, [](int x, int y, uint16_t* p) { Pattern15(y, x, p); }));

    auto run = [&](int processors) {
        ScopedProcessors scope(processors);
        ScopedDispatch dispatch(t.op);
        std::unique_ptr<WorkImage> image(MakeWorkImage(w, h, Pattern15));
        std::vector<uint64_t> hashes;
        image->MixFrom(0.3f, other.get());
        hashes.push_back(HashWork(*image));
        image->MixColour(0.7f, 1234u | (30000u << 16), 17u | (32767u << 16));
        hashes.push_back(HashWork(*image));
        image->CopyAlphaFrom(other.get());
        hashes.push_back(HashWork(*image));
        image->MixFrom(1.0f, other.get());
        hashes.push_back(HashWork(*image));
        return hashes;
    };

    // The same on the calling thread alone, with no dispatch at all.
    std::unique_ptr<WorkImage> image(MakeWorkImage(w, h, Pattern15));
    std::vector<uint64_t> plain;
    image->MixFrom(0.3f, other.get());
    plain.push_back(HashWork(*image));
    image->MixColour(0.7f, 1234u | (30000u << 16), 17u | (32767u << 16));
    plain.push_back(HashWork(*image));
    image->CopyAlphaFrom(other.get());
    plain.push_back(HashWork(*image));
    image->MixFrom(1.0f, other.get());
    plain.push_back(HashWork(*image));

    t.op->ClearChunkCalls();
    EXPECT_EQ(run(1), plain);
    EXPECT_EQ(t.op->ChunkCalls().size(), 4u);
    t.op->ClearChunkCalls();
    EXPECT_EQ(run(8), plain);
    // Each of the four operators really went over eight chunks.
    const auto calls = t.op->ChunkCalls();
    EXPECT_EQ(calls.size(), 32u);
    for (const auto& c : calls) {
        EXPECT_EQ(c.threadCount, 8);
        EXPECT_EQ(c.rowCount, h);
        EXPECT_FALSE(c.engineWork);
    }
}
