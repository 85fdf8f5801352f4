// The on-screen controls of Clouds: what shows for unlit and lit clouds, and the beam's handles.
#include <gtest/gtest.h>

#include "app/Controls.h"
#include "clouds/Clouds.h"
#include "clouds/CloudsControls.h"
#include "host/Document.h"

namespace {

TEST(CloudsControlsTest, TheBeamShowsForLitCloudsAndItsHandlesSetSpreadAndFallOff) {
    FusionDoc doc;
    auto* op = static_cast<ToolOperator*>(doc.AddTool("Clouds"));
    auto* engine = static_cast<CloudsEngine*>(op->Engine());
    ControlView view(op, 200, 100, 1.0, 1.0);
    const size_t unlit = view.Draw().size();
    EXPECT_FALSE(engine->beamControl->visible);

    // Lit, with the light at the left middle aiming right: the axis is +x.
    op->FindInput("Lids")->SetConstant(1.0);
    op->FindInput("Lios")->SetConstant(0.1, 0.5);
    op->FindInput("Liet")->SetConstant(0.9, 0.5);
    EXPECT_GT(view.Draw().size(), unlit);
    ASSERT_TRUE(engine->beamControl->visible);
    // Handle 1 lies on the upper edge of the 90-degree beam, 45 degrees above the axis.
    const float hx = engine->beamControl->handleX[0], hy = engine->beamControl->handleY[0];
    EXPECT_NEAR(hy - 50.0f, hx - 20.0f, 0.01f);
    // Dragging it to 30 degrees above the axis makes the beam 60 degrees wide.
    ControlView::DragReport r = view.Drag(hx, hy, 20.0f + 100.0f, 50.0f + 57.735f);
    EXPECT_EQ(r.input, "Spad");
    ASSERT_TRUE(r.written.contains("Spad"));
    EXPECT_NEAR(r.written["Spad"].get<double>(), 60.0, 0.5);  // the pointer falls on whole pixels
    // A fall-off handle sets the angle beyond the spread's edge: 45 degrees out is 15 beyond.
    view.Draw();
    const float fx = engine->beamControl->handleX[3], fy = engine->beamControl->handleY[3];
    r = view.Drag(fx, fy, 120.0f, -50.0f);
    EXPECT_EQ(r.input, "Faff");
    EXPECT_NEAR(r.written["Faff"].get<double>(), 15.0, 0.5);
    EXPECT_EQ(r.undo, std::vector<std::string>{"Clouds: Light Fall Off"});
}

}  // namespace
