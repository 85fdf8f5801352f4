// Notifications of changed inputs: the guard, the refresh of values, the busy document, and the
// presets that handlers write.
#include <gtest/gtest.h>

#include <vector>

#include "tests/TestSupport.h"

namespace {

Key MakeKey(double time, double value, Interp interp = Interp::Linear) {
    Key k;
    k.time = time;
    k.v[0] = value;
    k.interp = interp;
    return k;
}

std::vector<double> KeyTimes(const Input* in) {
    std::vector<double> times;
    for (const Key& k : in->Keys())
        times.push_back(k.time);
    return times;
}

}  // namespace

TEST(Notify, GuardHandlerAndBase) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    Number param(0.5);
    const long base = t.op->ChangesSeen();

    // A set guard is cleared and the handler skipped, but the base still hears of the change.
    e.tint.notifyGuard = 1;
    t.op->NotifyChanged(t.In("TinR"), &param, 0.0, nullptr);
    EXPECT_EQ(e.tint.notifyGuard, 0);
    EXPECT_TRUE(e.calls.empty());
    EXPECT_EQ(t.op->ChangesSeen(), base + 1);

    // A clear guard lets the handler run.
    t.op->NotifyChanged(t.In("TinR"), &param, 0.0, nullptr);
    ASSERT_EQ(e.calls.size(), 1u);
    EXPECT_STREQ(e.calls[0].input, "Tint");
    EXPECT_EQ(t.op->ChangesSeen(), base + 2);

    // Without a parameter nothing happens at all, the base included, and the guard stays.
    e.tint.notifyGuard = 1;
    t.op->NotifyChanged(t.In("TinR"), nullptr, 0.0, nullptr);
    EXPECT_EQ(e.tint.notifyGuard, 1);
    EXPECT_EQ(e.calls.size(), 1u);
    EXPECT_EQ(t.op->ChangesSeen(), base + 2);

    // An input without a handler goes straight to the base.
    t.op->NotifyChanged(t.In("Gain"), &param, 0.0, nullptr);
    EXPECT_EQ(e.calls.size(), 1u);
    EXPECT_EQ(t.op->ChangesSeen(), base + 3);
}

TEST(Notify, NoTimeRunsTheHandlerWithoutRefreshing) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    t.doc.currentTime = 6.0;
    t.Set("Gain", 1.5);
    Number param(0.0);

    e.gain.value.number[0] = 123.0;  // a stale value that a refresh would replace
    t.op->NotifyChanged(t.In("Demo"), &param, kNoTime, nullptr);
    ASSERT_EQ(e.calls.size(), 2u);
    EXPECT_STREQ(e.calls[0].input, "Demo");
    EXPECT_EQ(e.calls[0].time, kNoTime);
    EXPECT_EQ(e.calls[0].gain, 123.0);
    // The preset wrote Invert as a whole, whose notification came at the current time and did
    // refresh; the Gain it saw is the one the preset wrote.
    EXPECT_STREQ(e.calls[1].input, "Invt");
    EXPECT_EQ(e.calls[1].time, 6.0);
    EXPECT_EQ(e.calls[1].gain, 0.25);

    e.calls.clear();
    t.Set("Gain", 1.5);
    e.gain.value.number[0] = 123.0;
    t.op->NotifyChanged(t.In("Demo"), &param, 3.0, nullptr);
    ASSERT_FALSE(e.calls.empty());
    EXPECT_EQ(e.calls[0].time, 3.0);
    EXPECT_EQ(e.calls[0].gain, 1.5);
}

TEST(Notify, BusyDocumentHoldsHandlersBack) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    const long base = t.op->ChangesSeen();

    t.doc.busy = 1;
    t.Set("Demo", 1.0);
    t.Set("Invt", 1.0);
    EXPECT_EQ(t.op->notifications, 2);
    EXPECT_TRUE(e.calls.empty());
    EXPECT_EQ(t.op->ChangesSeen(), base);
    EXPECT_EQ(t.Get("Gain"), 1.0);
    EXPECT_EQ(e.gain.hidden, 0);

    t.doc.busy = 0;
    t.Set("Demo", 1.0);
    ASSERT_FALSE(e.calls.empty());
    EXPECT_EQ(t.Get("Gain"), 0.75);
    EXPECT_EQ(t.Get("Invt"), 0.0);
    EXPECT_GT(t.op->ChangesSeen(), base);
}

TEST(Notify, PresetsWriteAtTheNotificationTime) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    Input* gain = t.In("Gain");
    Input* invert = t.In("Invt");
    t.doc.currentTime = 4.0;

    // Gain animated: "First" at frame 5 keys Gain there; Invert is set as a whole, and hides Gain.
    gain->SetKeys({MakeKey(0.0, 1.0), MakeKey(10.0, 2.0)});
    t.Set("Demo", 0.0, 5.0);
    EXPECT_EQ(KeyTimes(gain), (std::vector<double>{0.0, 5.0, 10.0}));
    EXPECT_EQ(t.Get("Gain", 5.0), 0.25);
    EXPECT_EQ(t.Get("Gain", 10.0), 2.0);
    EXPECT_FALSE(invert->IsAnimated());
    EXPECT_EQ(t.Get("Invt"), 1.0);
    EXPECT_EQ(gain->GetAttr(kInVisible, 1), 0);
    EXPECT_EQ(e.gain.hidden, 1);

    // "Second" written as a whole arrives at the current frame and keys Gain there.
    t.Set("Demo", 1.0);
    EXPECT_EQ(KeyTimes(gain), (std::vector<double>{0.0, 4.0, 5.0, 10.0}));
    EXPECT_EQ(t.Get("Gain", 4.0), 0.75);
    EXPECT_EQ(t.Get("Invt"), 0.0);
    EXPECT_EQ(gain->GetAttr(kInVisible, 1), 1);

    // Gain not animated: the preset sets its value.
    gain->SetConstant(1.0);
    t.Set("Demo", 0.0, 7.0);
    EXPECT_FALSE(gain->IsAnimated());
    EXPECT_EQ(t.Get("Gain", 0.0), 0.25);
    EXPECT_EQ(t.Get("Gain", 99.0), 0.25);

    // Invert takes part in no animation: a write at a frame is its whole value.
    invert->SetKeys({MakeKey(0.0, 0.0), MakeKey(10.0, 1.0)});
    t.Set("Invt", 1.0, 3.0);
    EXPECT_FALSE(invert->IsAnimated());
    EXPECT_EQ(t.Get("Invt", 0.0), 1.0);
}

TEST(Notify, RefreshValuesReadsEveryControl) {
    TestToolDoc t;
    TestEngine& e = *t.engine;
    t.In("Gain")->SetKeys({MakeKey(0.0, 0.0), MakeKey(10.0, 2.0)});
    t.In("Cent")->SetConstant(0.125, 0.625);
    t.In("Mode")->SetConstant(2.0);
    t.In("TinR")->SetConstant(0.5);
    t.In("Seed")->SetConstant(9.9);
    t.In("Invt")->SetConstant(1.0);

    t.op->RefreshValues(5.0);
    EXPECT_EQ(e.gain.Double(), 1.0);
    EXPECT_EQ(e.centre.X(), 0.125);
    EXPECT_EQ(e.centre.Y(), 0.625);
    EXPECT_EQ(e.mode.Int(), 3);
    EXPECT_EQ(e.tint.Sample(0), 16383);
    EXPECT_EQ(e.tint.Sample(1), 16383);  // the default of 0.5
    EXPECT_EQ(e.seed.Int(), 9);
    EXPECT_TRUE(e.invert.Flag());

    // No time, no refresh.
    e.gain.value.number[0] = -1.0;
    e.mode.value.whole = -1;
    t.op->RefreshValues(kNoTime);
    EXPECT_EQ(e.gain.Double(), -1.0);
    EXPECT_EQ(e.mode.Int(), -1);
    t.op->RefreshValues(10.0);
    EXPECT_EQ(e.gain.Double(), 2.0);
}
