// Ripple's six handles through the viewer's calls: each drag writes its own input, with the value
// the handle's rule gives, as one undo step, and the next draw shows the handle where it went.
#include <gtest/gtest.h>

#include <cmath>

#include "app/Controls.h"
#include "host/Document.h"
#include "surface/Ripple.h"
#include "surface/RippleControls.h"

namespace {

TEST(RippleControlsTest, EachHandleWritesItsInputAsOneUndoStep) {
    FusionDoc doc;
    auto* op = static_cast<ToolOperator*>(doc.AddTool("Ripple"));
    auto* engine = static_cast<RippleEngine*>(op->Engine());
    const int W = 400, H = 200;
    ControlView view(op, W, H, 1.0, 1.0);
    // Handle, its input's ID and label, where the drag ends, and the value the rule gives there.
    struct Case {
        int handle;
        const char* id;
        const char* label;
        float x, y;
        double value;
    };
    const Case cases[] = {
        // At rest the phase handles stand over the frequency handles, and a press takes the last
        // that matches: the phases go first. The pointer is taken as truncate(p + 0.5).
        {5, "XYse", "X Phase", 430, 30, 30.0 / (W * 0.25) * 100},
        {6, "XY31", "Y Phase", -40.7f, 40, 40.0 / (W * 0.25) * 100},
        {1, "XYmp", "X Amp", 400, -40.7f, 40.0 / (H * 0.25) * 100},
        {2, "XY37", "Y Amp", -30.7f, 0, 30.0 / (W * 0.25) * 100},
        {3, "XYeq", "X Freq", 420, 0, 20.0 / (W * 0.25) * 100},
        {4, "XY83", "Y Freq", 0, -25.7f, 25.0 / (H * 0.25) * 100},

    };
    for (const Case& c : cases) {
        view.Draw();
        const RippleEngine::Handle& h = engine->handles[c.handle - 1];
        ControlView::DragReport r = view.Drag(h.x, h.y, c.x, c.y);
        EXPECT_EQ(r.handle, c.handle) << c.id;
        EXPECT_EQ(r.input, c.id);
        ASSERT_EQ(r.written.size(), 1u) << c.id;
        EXPECT_NEAR(r.written[c.id].get<double>(), c.value, 1e-9) << c.id;
        EXPECT_EQ(r.undo, std::vector<std::string>{std::string("Ripple: ") + c.label});
        // No render ran, yet the next draw puts the handle under the pointer's end.
        view.Draw();
        EXPECT_NEAR(engine->handles[c.handle - 1].x, std::trunc(c.x + 0.5f), 0.01) << c.id;
        EXPECT_NEAR(engine->handles[c.handle - 1].y, std::trunc(c.y + 0.5f), 0.01) << c.id;
    }
    EXPECT_EQ(doc.UndoSteps().size(), 6u);
    // The light's handle shows only with "Lighting" on.
    EXPECT_FALSE(engine->lightControl->visible);
    op->FindInput("Doht")->SetConstant(1.0);
    view.Draw();
    EXPECT_TRUE(engine->lightControl->visible);
}

}  // namespace
