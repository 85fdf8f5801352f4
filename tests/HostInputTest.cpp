// The host's inputs as the tools meet them: allowed ranges, keys and their interpolation, whole
// and keyed writes, undo steps, and the declaration of a tool's inputs.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/TestSupport.h"

namespace {

Key MakeKey(double time, double value, Interp interp) {
    Key k;
    k.time = time;
    k.v[0] = value;
    k.interp = interp;
    return k;
}

}  // namespace

TEST(HostInput, AllowedRangeClamps) {
    TestToolDoc t;
    // Gain: scale 0..2, allowed 0..4. The scale is only the control's reach.
    t.Set("Gain", 3.0);
    EXPECT_EQ(t.Get("Gain"), 3.0);
    t.Set("Gain", 7.0);
    EXPECT_EQ(t.Get("Gain"), 4.0);
    t.Set("Gain", -1.0);
    EXPECT_EQ(t.Get("Gain"), 0.0);
    t.In("Gain")->SetKeys({MakeKey(0, 9.0, Interp::Linear), MakeKey(1, -9.0, Interp::Linear)});
    EXPECT_EQ(t.Get("Gain", 0.0), 4.0);
    EXPECT_EQ(t.Get("Gain", 1.0), 0.0);
    t.In("Gain")->SetConstant(5.0);
    EXPECT_EQ(t.Get("Gain"), 4.0);
    // An input without an allowed range takes anything.
    t.Set("Seed", -250.0);
    EXPECT_EQ(t.Get("Seed"), -250.0);
}

TEST(HostInput, WritesAndKeys) {
    TestToolDoc t;
    Input* gain = t.In("Gain");
    // A write at a frame on an input without keys sets its value.
    t.Set("Gain", 0.5, 3.0);
    EXPECT_FALSE(gain->IsAnimated());
    EXPECT_EQ(t.Get("Gain", 100.0), 0.5);

    // On an animated input it adds a key, or replaces the key at that frame.
    gain->SetKeys({MakeKey(0, 1.0, Interp::Linear), MakeKey(10, 3.0, Interp::Linear)});
    t.Set("Gain", 2.5, 4.0);
    t.Set("Gain", 0.5, 10.0);
    ASSERT_EQ(gain->Keys().size(), 3u);
    EXPECT_EQ(gain->Keys()[1].time, 4.0);
    EXPECT_EQ(gain->Keys()[1].v[0], 2.5);
    EXPECT_EQ(gain->Keys()[2].v[0], 0.5);
    // A whole write drops the keys.
    t.Set("Gain", 1.25, -1.0);
    EXPECT_FALSE(gain->IsAnimated());
    EXPECT_EQ(t.Get("Gain", 4.0), 1.25);

    // A notifying input hears of a whole write at the document's current frame.
    t.doc.currentTime = 17.0;
    t.engine->calls.clear();
    t.Set("Invt", 1.0);
    ASSERT_EQ(t.engine->calls.size(), 1u);
    EXPECT_EQ(t.engine->calls[0].time, 17.0);
}

TEST(HostInput, Interpolation) {
    TestToolDoc t;
    Input* gain = t.In("Gain");

    gain->SetKeys({MakeKey(0, 1.0, Interp::Linear), MakeKey(10, 3.0, Interp::Linear)});
    EXPECT_EQ(t.Get("Gain", 5.0), 2.0);
    EXPECT_EQ(t.Get("Gain", 2.5), 1.5);
    EXPECT_EQ(t.Get("Gain", -4.0), 1.0);  // before the first key, its value
    EXPECT_EQ(t.Get("Gain", 40.0), 3.0);  // after the last, its value

    // A render in between takes the value at its own frame.
    HostImage source = MakeHostImage(1, 1, [](int, int, uint16_t* p) {
        for (int c = 0; c < 4; ++c)
            p[c] = 20000;
    });
    gain->SetKeys({MakeKey(0, 0.0, Interp::Linear), MakeKey(10, 1.0, Interp::Linear)});
    HostImage out = t.Render(source.get(), nullptr, 5.0);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->Row(0)[0], 10000);  // 10000 * 0.5 = 5000, exported as 10000

    // Smooth keys pass through every key, and between them leave the straight line.
    gain->SetKeys({MakeKey(0, 0.0, Interp::Smooth), MakeKey(10, 1.0, Interp::Smooth),
                   MakeKey(20, 4.0, Interp::Smooth)});
    EXPECT_EQ(t.Get("Gain", 0.0), 0.0);
    EXPECT_EQ(t.Get("Gain", 10.0), 1.0);
    EXPECT_EQ(t.Get("Gain", 20.0), 4.0);
    const double mid = t.Get("Gain", 5.0);
    EXPECT_GT(mid, 0.0);
    EXPECT_LT(mid, 1.0);
    EXPECT_NE(mid, 0.5);
    double last = -1.0;
    for (double time = 0.0; time <= 20.0; time += 0.5) {
        const double v = t.Get("Gain", time);
        EXPECT_GE(v, last) << time;  // rising keys give a rising curve here
        last = v;
    }

    // Points interpolate both coordinates.
    Input* centre = t.In("Cent");
    Key a = MakeKey(0, 0.0, Interp::Linear), b = MakeKey(4, 1.0, Interp::Linear);
    a.v[1] = 1.0;
    b.v[1] = 0.0;
    centre->SetKeys({a, b});
    auto* p = static_cast<Point*>(centre->GetSource(1.0));
    EXPECT_EQ(p->x, 0.25);
    EXPECT_EQ(p->y, 0.75);
}

TEST(HostInput, UndoSteps) {
    TestToolDoc t;
    Input* gain = t.In("Gain");
    Input* seed = t.In("Seed");

    gain->StartUndo("Change", nullptr);
    t.Set("Gain", 2.5);
    t.Set("Seed", 12.0);
    t.Set("Gain", 3.0);
    gain->EndUndo(true, nullptr);
    ASSERT_EQ(t.doc.UndoSteps().size(), 1u);
    EXPECT_EQ(t.doc.UndoSteps()[0].name, "Change");

    ASSERT_TRUE(t.doc.Undo());
    EXPECT_EQ(t.Get("Gain"), 1.0);
    EXPECT_EQ(t.Get("Seed"), 0.0);
    ASSERT_TRUE(t.doc.Redo());
    EXPECT_EQ(t.Get("Gain"), 3.0);
    EXPECT_EQ(t.Get("Seed"), 12.0);
    ASSERT_TRUE(t.doc.Undo());

    // Nested steps make one; keys come back with their input.
    gain->SetKeys({MakeKey(0, 1.0, Interp::Linear), MakeKey(10, 2.0, Interp::Linear)});
    seed->StartUndo("Outer", nullptr);
    gain->StartUndo("Inner", nullptr);
    t.Set("Gain", 0.5, 5.0);
    gain->EndUndo(true, nullptr);
    t.Set("Seed", 3.0);
    seed->EndUndo(true, nullptr);
    ASSERT_EQ(t.doc.UndoSteps().size(), 1u);
    EXPECT_EQ(gain->Keys().size(), 3u);
    ASSERT_TRUE(t.doc.Undo());
    EXPECT_EQ(gain->Keys().size(), 2u);
    EXPECT_EQ(t.Get("Gain", 5.0), 1.5);
    EXPECT_EQ(t.Get("Seed"), 0.0);

    // A step that is not kept leaves nothing to undo; writes outside a step are not recorded.
    gain->StartUndo("Dropped", nullptr);
    t.Set("Seed", 4.0);
    gain->EndUndo(false, nullptr);
    t.Set("Seed", 5.0);
    EXPECT_TRUE(t.doc.UndoSteps().empty());
    EXPECT_FALSE(t.doc.Undo());
    EXPECT_EQ(t.Get("Seed"), 5.0);
}
