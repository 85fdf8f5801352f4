// The render cycle of a tool, driven through the host with the test tool: import, render over the
// chunks, export, delivery, aborted frames, the optional matte, and golden frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "tests/TestSupport.h"

namespace {

using Ranges = std::vector<std::pair<int, int>>;

uint16_t Export15(uint32_t w) {
    const uint32_t e = (w >> 14) | (w * 2);
    return static_cast<uint16_t>(e > 65535 ? 65535 : e);
}

Ranges SortedRanges(TestEngine& e) {
    Ranges r = e.Ranges();
    std::sort(r.begin(), r.end());
    return r;
}

// Host pixel (x, y) of the whole-cycle source: each channel different, some odd, some at the ends.
void CycleSource(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(x == 0 ? 65535 : 10001 * x + 7 * y);
    p[1] = static_cast<uint16_t>(40000 + y);
    p[2] = static_cast<uint16_t>(1001 + 2 * x);
    p[3] = static_cast<uint16_t>(30001 + 1000 * y);
}

}  // namespace

TEST(RenderCycle, WholeCycleDeliversTheShadedImage) {
    ScopedProcessors scope(8);
    const int live = WorkImage::liveCount.load();
    {
        TestToolDoc t;
        t.doc.globalStart = 10.0;
        t.doc.globalEnd = 50.0;
        t.Set("Gain", 0.5);
        HostImage source = MakeHostImage(4, 3, CycleSource);
        source->xScale = 2.0;
        const uint64_t sourceHash = HashImage(source);

        HostImage out = t.Render(source.get(), nullptr, 12.0);
        ASSERT_TRUE(out);
        EXPECT_NE(out.get(), source.get());
        EXPECT_EQ(out->width, 4);
        EXPECT_EQ(out->height, 3);
        EXPECT_EQ(out->xScale, 2.0);
        EXPECT_EQ(HashImage(source), sourceHash);

        // Colour: (v >> 1) * 0.5 truncated, then exported; alpha passes through.
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 4; ++x) {
                uint16_t in[4];
                CycleSource(x, y, in);
                const uint16_t* o = out->Row(y) + x * 4;
                for (int c = 0; c < 3; ++c)
                    EXPECT_EQ(o[c], Export15((in[c] >> 1) / 2)) << x << "," << y << "," << c;
                EXPECT_EQ(o[3], Export15(in[3] >> 1)) << x << "," << y;
            }
        // A few by hand: 65535 -> 32767 -> 16383 -> 32766; 40000 -> 20000 -> 10000 -> 20000.
        EXPECT_EQ(out->Row(0)[0], 32766);
        EXPECT_EQ(out->Row(0)[1], 20000);
        EXPECT_EQ(out->Row(0)[2], 500);
        EXPECT_EQ(out->Row(0)[3], 30000);
        EXPECT_EQ(out->Row(2)[4 * 3 + 0], 15008);  // 30017 -> 15008 -> 7504 -> 15008

        // What the engine was given.
        TestEngine& e = *t.engine;
        EXPECT_EQ(e.time, 12.0);
        EXPECT_EQ(e.extentStart, 10.0);
        EXPECT_EQ(e.extentEnd, 50.0);
        EXPECT_EQ(e.globalStart, 10.0);
        EXPECT_EQ(e.globalEnd, 50.0);
        EXPECT_EQ(e.keepOutputAlpha, 1);
        EXPECT_EQ(e.firstFrames, 1);
        EXPECT_EQ(e.renders, 1);
        EXPECT_EQ(SortedRanges(e), (Ranges{{0, 0}, {1, 2}}));
        // Nothing of the frame is left in the ports.
        EXPECT_EQ(e.firstPort.image, nullptr);
        EXPECT_EQ(e.secondPort.image, nullptr);
        EXPECT_EQ(e.outputPort.image, nullptr);
        EXPECT_EQ(WorkImage::liveCount.load(), live);

        // The first frame's preparation happens once in the object's life.
        ASSERT_TRUE(t.Render(source.get(), nullptr, 13.0));
        EXPECT_EQ(e.firstFrames, 1);
        EXPECT_EQ(e.renders, 2);
    }
    EXPECT_EQ(WorkImage::liveCount.load(), live);
}

TEST(RenderCycle, FirstFrameAppliesTheLoadedVisibility) {
    TestToolDoc t;
    // Loaded values arrive without notifications, as from a saved composition.
    t.In("Invt")->SetConstant(1.0);
    EXPECT_EQ(t.In("Gain")->GetAttr(kInVisible, 1), 1);
    HostImage source = MakeHostImage(2, 2, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));
    EXPECT_EQ(t.In("Gain")->GetAttr(kInVisible, 1), 0);
}

TEST(RenderCycle, AbortedFrameDeliversNothingAndLeaksNothing) {
    ScopedProcessors scope(8);
    TestToolDoc t;
    HostImage source = MakeHostImage(6, 5, Pattern16);
    HostImage matte = MakeHostImage(6, 5, Pattern16);
    const int live = WorkImage::liveCount.load();

    TestEngine::abortMidRender = true;
    {
        Request request(t.op, 0.0);
        request.SetInputImage(t.In("Source"), source.get());
        request.SetInputImage(t.In("Matte"), matte.get());
        t.op->ClearChunkCalls();
        t.op->Process(&request);
        EXPECT_FALSE(request.HasOutput(t.op->MainOutput()));
    }
    TestEngine::abortMidRender = false;
    EXPECT_EQ(WorkImage::liveCount.load(), live);
    // The colour pass ran; the matte pass after the abort did not.
    EXPECT_EQ(t.engine->renders, 1);
    EXPECT_EQ(t.engine->Ranges().size(), 2u);
    for (const auto& c : t.op->ChunkCalls())
        EXPECT_TRUE(c.engineWork);

    // The flag is the host's to clear; then frames are delivered again.
    EXPECT_FALSE(t.Render(source.get(), matte.get()));
    t.op->SetAbort(false);
    EXPECT_TRUE(t.Render(source.get(), matte.get()));
    EXPECT_EQ(WorkImage::liveCount.load(), live);
}

TEST(RenderCycle, OptionalMatte) {
    ScopedProcessors scope(8);
    TestToolDoc t;
    HostImage source = MakeHostImage(5, 4, Pattern16);
    HostImage matte = MakeHostImage(5, 4, [](int x, int y, uint16_t* p) {
        p[0] = p[1] = p[2] = 1;
        p[3] = static_cast<uint16_t>(1000 * x + 10 * y + 1);
    });
    const TestEngine& e = *t.engine;

    // Without a matte the second port holds a copy of the main image, under the main input.
    HostImage plain = t.Render(source.get());
    ASSERT_TRUE(plain);
    EXPECT_TRUE(e.secondIsCopy);
    EXPECT_TRUE(e.secondNamesMain);
    EXPECT_FALSE(e.sawMatte);
    EXPECT_EQ(plain->Row(3)[4 * 4 + 3], Export15(source->Row(3)[4 * 4 + 3] >> 1));

    // With one, the output takes the matte's alpha; the colour is as before.
    HostImage matted = t.Render(source.get(), matte.get());
    ASSERT_TRUE(matted);
    EXPECT_TRUE(e.sawMatte);
    EXPECT_FALSE(e.secondNamesMain);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
            const uint16_t* a = plain->Row(y) + x * 4;
            const uint16_t* b = matted->Row(y) + x * 4;
            EXPECT_EQ(a[0], b[0]);
            EXPECT_EQ(b[3], Export15(static_cast<uint32_t>(1000 * x + 10 * y + 1) >> 1));
        }

    // And without it again.
    HostImage again = t.Render(source.get());
    EXPECT_TRUE(e.secondNamesMain);
    EXPECT_EQ(HashImage(again), HashImage(plain));
}

TEST(RenderCycle, GoldenFrames) {
    TestToolDoc t;
    HostImage source = MakeHostImage(64, 48, Pattern16);
    HostImage matte = MakeHostImage(64, 48, [](int x, int y, uint16_t* p) { Pattern16(y, x, p); });

    struct Case {
        const char* name;
        double gain, mode, invert, seed;
        bool withMatte;
        uint64_t hash;
    };
    const Case cases[] = {
        {"copy", 1.5, 0, 0, 0, false, 0xd861d875c5f0130bull},
        {"add", 0.75, 1, 0, 0, false, 0xb57f263055bf9b10ull},
        {"stripes", 1.0, 2, 0, 7, false, 0xe7ee5ff30103985bull},
        {"stripes inverted", 1.0, 2, 1, 7, false, 0x30740cf0fb5b5d0bull},
        {"stripes other seed", 1.0, 2, 0, 8, false, 0x06cbea0076acf75bull},
        {"copy matted", 0.3, 0, 1, 0, true, 0x6cffbcc14c127b89ull},
    };
    std::vector<uint64_t> seen;
    for (const Case& c : cases) {
        t.Set("Gain", c.gain);
        t.Set("Mode", c.mode);
        t.Set("Invt", c.invert);
        t.Set("Seed", c.seed);
        t.Set("TinR", 0.2);
        t.Set("TinG", 0.9);
        t.Set("TinB", 0.4);
        uint64_t hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors scope(i == 0 ? 1 : 8);
            HostImage out = t.Render(source.get(), c.withMatte ? matte.get() : nullptr);
            ASSERT_TRUE(out) << c.name;
            hashes[i] = HashImage(out);
        }
        EXPECT_EQ(hashes[0], hashes[1]) << c.name;
        EXPECT_EQ(hashes[0], c.hash) << c.name << std::hex << " 0x" << hashes[0];
        seen.push_back(hashes[0]);
    }
    // A seed repeats its picture, and another seed makes another.
    t.Set("Gain", 1.0);
    t.Set("Mode", 2);
    t.Set("Invt", 0);
    t.Set("Seed", 7);
    EXPECT_EQ(HashImage(t.Render(source.get())), seen[2]);
    EXPECT_NE(seen[2], seen[4]);
}
