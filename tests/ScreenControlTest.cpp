// On-screen controls through the viewer's calls: hit tests at any zoom, drags that write inputs as
// one undo step, the view's question about the input under the pointer, and the line work drawn.
#include <gtest/gtest.h>

#include <cstring>

#include "app/Controls.h"
#include "frame/ScreenControl.h"
#include "host/Document.h"
#include "tests/TestTool.h"

namespace {

struct ControlsFixture {
    ControlsFixture() {
        RegisterTestTool();
        op = static_cast<TestOperator*>(doc.AddTool("Test"));
    }
    FusionDoc doc;
    TestOperator* op;
};

TEST(ScreenControlTest, HitTestsAreStrictAndConstantOnScreen) {
    ControlsFixture f;
    for (double zoom : {1.0, 2.0, 0.5}) {
        ControlView view(f.op, 100, 50, zoom, 1.0);
        view.Draw();  // the handle stands at (50, 25)
        const float r = static_cast<float>(5.0 / zoom);
        // The pointer is rounded to whole pixels; a whole-pixel step inside the radius hits, the
        // radius itself misses.
        const float inside = std::ceil(r) - 1.0f;
        // Each drag ends on the handle's own place, so the point stays where it is.
        EXPECT_EQ(view.Drag(50 + inside, 25, 50, 25).handle, 1) << zoom;
        EXPECT_EQ(view.Drag(50, 25 - inside, 50, 25).handle, 1) << zoom;
        if (r == std::floor(r)) {
            EXPECT_EQ(view.Drag(50 + r, 25, 50, 25).handle, 0) << zoom;
            EXPECT_EQ(view.Drag(50, 25 + r, 50, 25).handle, 0) << zoom;
        }
        EXPECT_EQ(view.Drag(50 + std::ceil(r) + 1, 25, 50, 25).handle, 0) << zoom;
    }
}

TEST(ScreenControlTest, APressOnNothingSendsPressAndReleaseInOneCall) {
    ControlsFixture f;
    ControlView view(f.op, 100, 50, 1.0, 1.0);
    view.Draw();
    f.op->Test()->events.clear();
    ControlView::DragReport r = view.Drag(5, 5, 40, 40);
    EXPECT_EQ(r.control, 0);
    EXPECT_EQ(f.op->Test()->events, (std::vector<int>{kControlPress, kControlRelease}));
    EXPECT_TRUE(r.written.empty());
    EXPECT_TRUE(r.undo.empty());
}

TEST(ScreenControlTest, ADragWritesTheInputAsOneUndoStepAndTheNextDrawFollows) {
    ControlsFixture f;
    f.doc.currentTime = 7.0;
    ControlView view(f.op, 100, 50, 1.0, 7.0);
    std::vector<LineWork> before = view.Draw();
    ASSERT_FALSE(before.empty());
    f.op->Test()->events.clear();
    ControlView::DragReport r = view.Drag(50, 25, 20, 40);
    EXPECT_EQ(r.control, 1);
    EXPECT_EQ(r.handle, 1);
    EXPECT_EQ(r.input, "Cent");
    ASSERT_TRUE(r.written.contains("Cent"));
    EXPECT_DOUBLE_EQ(r.written["Cent"][0].get<double>(), 0.2);
    EXPECT_DOUBLE_EQ(r.written["Cent"][1].get<double>(), 0.8);
    EXPECT_EQ(r.undo, (std::vector<std::string>{"Test: Centre"}));
    EXPECT_EQ(f.op->Test()->events.front(), kControlPress);
    EXPECT_EQ(f.op->Test()->events.back(), kControlRelease);
    // No render has run, yet the handle is drawn where the drag left it.
    EXPECT_EQ(f.op->Test()->renders, 0);
    std::vector<LineWork> after = view.Draw();
    bool found = false;
    for (const auto& l : after)
        if (l.mode == kGlLineLoop && l.points.size() == 8) {
            EXPECT_FLOAT_EQ((l.points[0] + l.points[4]) / 2, 20.0f);
            EXPECT_FLOAT_EQ((l.points[1] + l.points[5]) / 2, 40.0f);
            found = true;
        }
    EXPECT_TRUE(found);
    // The step undoes as one.
    ASSERT_TRUE(f.doc.Undo());
    double v[2];
    f.op->RowInput(8)->ValueAt(7.0, v);
    EXPECT_EQ(v[0], 0.5);
    EXPECT_EQ(v[1], 0.5);
}

TEST(ScreenControlTest, TheViewAsksForTheInputUnderThePointerAndHearsOfChanges) {
    ControlsFixture f;
    PreviewInfo info(100, 50, 1.0);
    f.op->AddControls(&info, nullptr);
    f.op->AddControls(&info, nullptr);  // a second call for the same view adds no record
    ASSERT_EQ(f.op->controls.size(), 1u);
    OperatorControl* control = f.op->controls.front();
    f.op->GLDrawControls(control, &info, nullptr);
    info.pointerX = 0.5;
    info.pointerY = 0.5;
    Input* centre = f.op->ControlCommand(control, &info, FuID("CCMD_GetInputAt"), nullptr);
    ASSERT_NE(centre, nullptr);
    EXPECT_EQ(centre->ID(), "Cent");
    info.pointerX = 0.1;
    EXPECT_EQ(f.op->ControlCommand(control, &info, FuID("CCMD_GetInputAt"), nullptr), nullptr);
    // A change of an input that a control shows reaches the view's record; others do not.
    const long seen = control->changes;
    Point p(0.3, 0.3);
    centre->SetSource(&p, kWholeValue);
    f.op->NotifyChanged(centre, &p, kWholeValue, nullptr);
    EXPECT_EQ(control->changes, seen + 1);
    f.op->NotifyChanged(f.op->RowInput(1), &p, kWholeValue, nullptr);
    EXPECT_EQ(control->changes, seen + 1);
    // View mode 3 draws nothing.
    info.mode = 3;
    info.Clear();
    f.op->GLDrawControls(control, &info, nullptr);
    EXPECT_TRUE(info.lines.empty());
    EXPECT_TRUE(IsControlInput(centre));
    EXPECT_FALSE(IsControlInput(f.op->RowInput(1)));
}

TEST(ScreenControlTest, UndoNames) {
    char b[64];
    FormatUndoName(b, sizeof b, "Ripple1", "X Amp");
    EXPECT_STREQ(b, "Ripple1: X Amp");
    FormatUndoName(b, sizeof b, "Ripple1", nullptr);
    EXPECT_STREQ(b, "Ripple1: Unknown");
    FormatUndoName(b, sizeof b, nullptr, "X Amp");
    EXPECT_STREQ(b, "X Amp");
    FormatUndoName(b, sizeof b, nullptr, nullptr);
    EXPECT_STREQ(b, "Unknown");
}

}  // namespace
