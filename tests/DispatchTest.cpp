// The split of rows over chunks: the arithmetic of a chunk's range, two chunks for engine work
// whatever the machine, and as many chunks as processors for the work-image operators.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "tests/TestSupport.h"

namespace {

using Ranges = std::vector<std::pair<int, int>>;

struct RangeEngine : ToolEngine {
    void Rows(int first, int last) { seen.emplace_back(first, last); }
    Ranges seen;
};

// The ranges that chunks 0 .. threadCount - 1 get for rowCount rows, run one after the other.
Ranges Split(int rowCount, int threadCount) {
    RangeEngine engine;
    ChunkJob job;
    job.engineChunk = static_cast<EngineChunk>(&RangeEngine::Rows);
    job.rowCount = rowCount;
    job.threadCount = threadCount;
    for (long chunk = 0; chunk < threadCount; ++chunk)
        RunChunkOf(job, &engine, chunk);
    return engine.seen;
}

Ranges Sorted(Ranges r) {
    std::sort(r.begin(), r.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    return r;
}

}  // namespace

TEST(Dispatch, ChunkRanges) {
    // One row over two chunks: the first is empty, the last gets the row.
    EXPECT_EQ(Split(1, 2), (Ranges{{0, -1}, {0, 0}}));
    // The last chunk takes the remainder.
    EXPECT_EQ(Split(10, 3), (Ranges{{0, 2}, {3, 5}, {6, 9}}));
    EXPECT_EQ(Split(7, 2), (Ranges{{0, 2}, {3, 6}}));
    EXPECT_EQ(Split(8, 8),
              (Ranges{{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {7, 7}}));
    // Fewer rows than chunks: every chunk but the last is empty.
    EXPECT_EQ(Split(3, 4), (Ranges{{0, -1}, {0, -1}, {0, -1}, {0, 2}}));
    EXPECT_EQ(Split(0, 2), (Ranges{{0, -1}, {0, -1}}));

    // With no engine routine the image routine runs on the job's image; with neither, nothing.
    WorkImage dest(2, 3), source(2, 3);
    dest.Fill(1, 1, 1, 1);
    source.Fill(5, 5, 5, 5);
    dest.alphaSource = &source;
    ChunkJob job;
    job.imageChunk = &WorkImage::CopyAlphaRows;
    job.image = &dest;
    job.rowCount = 3;
    job.threadCount = 2;
    RunChunkOf(job, nullptr, 1);
    EXPECT_EQ(dest.Pixel(0, 0)[3], 1);  // chunk 0 has row 0
    EXPECT_EQ(dest.Pixel(1, 1)[3], 5);
    EXPECT_EQ(dest.Pixel(1, 2)[3], 5);
    EXPECT_EQ(dest.Pixel(1, 2)[2], 1);
    job.threadCount = 0;
    RunChunkOf(job, nullptr, 0);
    EXPECT_EQ(dest.Pixel(0, 0)[3], 1);
}

TEST(Dispatch, EngineWorkTakesTwoChunksAndImageWorkOnePerProcessor) {
    TestToolDoc t;
    HostImage source = MakeHostImage(8, 5, Pattern16);
    HostImage matte = MakeHostImage(8, 5, Pattern16);
    for (int processors : {1, 2, 8}) {
        ScopedProcessors scope(processors);
        t.op->ClearChunkCalls();
        t.engine->ClearRecords();
        ASSERT_TRUE(t.Render(source.get(), matte.get()));

        // The colour pass: chunk 0 rows 0-1, chunk 1 rows 2-4.
        EXPECT_EQ(Sorted(t.engine->Ranges()), (Ranges{{0, 1}, {2, 4}}));
        // The matte's alpha goes over as many chunks as there are processors.
        int engineChunks = 0, imageChunks = 0;
        for (const auto& c : t.op->ChunkCalls()) {
            if (c.engineWork) {
                ++engineChunks;
                EXPECT_EQ(c.threadCount, 2);
            } else {
                ++imageChunks;
                EXPECT_EQ(c.threadCount, processors);
            }
            EXPECT_EQ(c.rowCount, 5);
        }
        EXPECT_EQ(engineChunks, 2) << processors;
        EXPECT_EQ(imageChunks, processors);
    }

    // A picture one row high: chunk 0 gets nothing and chunk 1 the row, which is still shaded.
    ScopedProcessors scope(8);
    t.engine->ClearRecords();
    t.Set("Gain", 0.5);
    HostImage row = MakeHostImage(3, 1, [](int, int, uint16_t* p) {
        for (int c = 0; c < 4; ++c)
            p[c] = 4000;
    });
    HostImage out = t.Render(row.get());
    ASSERT_TRUE(out);
    EXPECT_EQ(Sorted(t.engine->Ranges()), (Ranges{{0, -1}, {0, 0}}));
    EXPECT_EQ(out->Row(0)[0], 2000);
    EXPECT_EQ(out->Row(0)[3], 4000);
}

namespace {

struct ResizerCalls {
    std::mutex mutex;
    Ranges seen;
};

void ResizerRoutine(void* context, int first, int last) {
    auto* calls = static_cast<ResizerCalls*>(context);
    std::lock_guard<std::mutex> lock(calls->mutex);
    calls->seen.emplace_back(first, last);
}

}  // namespace

TEST(Dispatch, ResizerRunsOnTheEngineChunks) {
    TestToolDoc t;
    ScopedProcessors scope(8);
    ScopedDispatch dispatch(t.op);
    ResizerCalls calls;
    t.op->ClearChunkCalls();
    ResizerDispatch(t.engine, &ResizerRoutine, 9, &calls);
    EXPECT_EQ(Sorted(calls.seen), (Ranges{{0, 3}, {4, 8}}));
    EXPECT_EQ(t.engine->resizerContext, &calls);
    EXPECT_EQ(t.op->ChunkCalls().size(), 2u);
}
