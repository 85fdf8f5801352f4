// Input bindings: visibility and disabling of single inputs and colours, reading and writing
// through the host, and the one-shot guard of a colour write.
#include <gtest/gtest.h>

#include <vector>

#include "tests/TestSupport.h"

namespace {

int Visible(Input* in) {
    return static_cast<int>(in->GetAttr(kInVisible, 1));
}
int Disabled(Input* in) {
    return static_cast<int>(in->GetAttr(kInDisabled, 0));
}

}  // namespace

TEST(InputBinding, HidingAndDisabling) {
    TestToolDoc t;
    ColourInputBinding& tint = t.engine->tint;
    // Alpha starts hidden, the other channels shown.
    EXPECT_EQ(Visible(t.In("TinR")), 1);
    EXPECT_EQ(Visible(t.In("TinA")), 0);

    tint.SetHidden(true);
    EXPECT_EQ(tint.hidden, 1);
    for (const char* id : {"TinR", "TinG", "TinB", "TinA"})
        EXPECT_EQ(Visible(t.In(id)), 0) << id;
    // Showing a colour shows red, green and blue, never alpha.
    tint.SetHidden(false);
    EXPECT_EQ(tint.hidden, 0);
    for (const char* id : {"TinR", "TinG", "TinB"})
        EXPECT_EQ(Visible(t.In(id)), 1) << id;
    EXPECT_EQ(Visible(t.In("TinA")), 0);

    tint.SetDisabled(true);
    EXPECT_EQ(tint.disabled, 1);
    for (const char* id : {"TinR", "TinG", "TinB", "TinA"})
        EXPECT_EQ(Disabled(t.In(id)), 1) << id;
    tint.SetDisabled(false);
    EXPECT_EQ(Disabled(t.In("TinA")), 0);

    SingleInputBinding& gain = t.engine->gain;
    gain.SetHidden(true);
    EXPECT_EQ(Visible(t.In("Gain")), 0);
    EXPECT_EQ(Visible(t.In("Mode")), 1);
    gain.SetHidden(false);
    EXPECT_EQ(Visible(t.In("Gain")), 1);
    gain.SetDisabled(true);
    EXPECT_EQ(Disabled(t.In("Gain")), 1);
    EXPECT_EQ(gain.disabled, 1);

    // The base serves nothing and only keeps the flags.
    InputBinding plain;
    EXPECT_EQ(plain.enabled, 1);
    plain.SetHidden(true);
    plain.SetDisabled(true);
    EXPECT_EQ(plain.hidden, 1);
    EXPECT_EQ(plain.disabled, 1);
}

TEST(InputBinding, ColourWriteCarriesTheGuard) {
    TestToolDoc t;
    ColourInputBinding& tint = t.engine->tint;
    const long base = t.op->ChangesSeen();
    t.engine->calls.clear();

    tint.SetColour(-1.0, 32767, 16384, 1, 0);
    // Every channel's notification found the guard set, cleared it and ran no handler; each still
    // reached the base. The guard is clear at the end.
    EXPECT_EQ(t.op->tintGuards, (std::vector<int>{1, 1, 1, 1}));
    EXPECT_TRUE(t.engine->calls.empty());
    EXPECT_EQ(tint.notifyGuard, 0);
    EXPECT_EQ(t.op->ChangesSeen(), base + 4);

    // Where no notification clears it (a busy document), the write still leaves it clear.
    t.doc.busy = 1;
    tint.SetColour(-1.0, 32767, 16384, 1, 0);
    EXPECT_EQ(tint.notifyGuard, 0);
    t.doc.busy = 0;

    // Each sample times the single-precision constant 3.051851e-05.
    const double k = static_cast<double>(3.051851e-05f);
    EXPECT_EQ(t.Get("TinR"), 32767 * k);
    EXPECT_EQ(t.Get("TinG"), 16384 * k);
    EXPECT_EQ(t.Get("TinB"), 1 * k);
    EXPECT_EQ(t.Get("TinA"), 0.0);

    // The constant is a little under 1/32767, so the samples come back one lower.
    HostImage source = MakeHostImage(1, 1, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));
    EXPECT_EQ(tint.Sample(0), 32766);
    EXPECT_EQ(tint.Sample(1), 16383);
    EXPECT_EQ(tint.Sample(2), 0);

    // A write of one channel from outside runs the handler, with the guard clear.
    t.op->tintGuards.clear();
    t.Set("TinG", 0.25, -1.0);
    EXPECT_EQ(t.op->tintGuards, (std::vector<int>{0}));
    ASSERT_EQ(t.engine->calls.size(), 1u);
    EXPECT_STREQ(t.engine->calls[0].input, "Tint");
}

TEST(InputBinding, ReadingAndWriting) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    int i = -5;
    double d = 0.0;

    // Combos kept 1-based: 0 reads as 1, and writing 1 stores 0.
    e.mode.GetIndex1(0.0, &i);
    EXPECT_EQ(i, 1);
    t.Set("Mode", 2.0);
    e.mode.GetIndex1(0.0, &i);
    EXPECT_EQ(i, 3);
    e.mode.SetIndex1(-1.0, 1);
    EXPECT_EQ(t.Get("Mode"), 0.0);
    e.mode.SetIndex1(-1.0, 2);
    EXPECT_EQ(t.Get("Mode"), 1.0);

    // Integers truncate toward zero.
    e.seed.SetDouble(-1.0, -2.7);
    e.seed.GetInt(0.0, &i);
    EXPECT_EQ(i, -2);
    e.seed.SetInt(-1.0, 41);
    e.seed.GetDouble(0.0, &d);
    EXPECT_EQ(d, 41.0);
    e.gain.SetDouble(-1.0, 1.75);
    e.gain.GetInt(0.0, &i);
    EXPECT_EQ(i, 1);
    e.gain.GetDouble(0.0, &d);
    EXPECT_EQ(d, 1.75);

    e.centre.SetPoint(-1.0, 0.25, 0.875);
    auto* p = static_cast<Point*>(t.In("Cent")->GetSource(0.0));
    ASSERT_EQ(p->GetType(), Parameter::Type::Point);
    EXPECT_EQ(p->x, 0.25);
    EXPECT_EQ(p->y, 0.875);

    // What a render copies in: the seed as an integer, the combo 1-based, the checkbox as a flag,
    // the colour as samples, the point as two doubles.
    t.Set("Invt", 0.5);
    t.Set("TinB", 0.5);
    HostImage source = MakeHostImage(1, 1, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));
    EXPECT_EQ(e.seed.Int(), 41);
    EXPECT_EQ(e.mode.Int(), 2);
    EXPECT_TRUE(e.invert.Flag());
    EXPECT_EQ(e.tint.Sample(0), 32767);
    EXPECT_EQ(e.tint.Sample(1), 16383);
    EXPECT_EQ(e.tint.Sample(2), 16383);
    EXPECT_EQ(e.centre.X(), 0.25);
    EXPECT_EQ(e.centre.Y(), 0.875);
    EXPECT_EQ(e.gain.Double(), 1.75);
}
