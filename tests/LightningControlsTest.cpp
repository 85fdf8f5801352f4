// The on-screen controls of the two lightning tools: Start and End with the line between them, and
// Lightning2's points with the guide through the shown ones.
#include <gtest/gtest.h>

#include "app/Controls.h"
#include "frame/ToolOperator.h"
#include "host/Document.h"

namespace {

TEST(LightningControlsTest, StartAndEndDragAndTheGuideFollowsTheShownPoints) {
    FusionDoc doc;
    auto* bolt = static_cast<ToolOperator*>(doc.AddTool("Lightning"));
    ControlView view(bolt, 200, 100, 1.0, 1.0);
    std::vector<LineWork> lines = view.Draw();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front().mode, kGlLines);  // the line from Start to End comes first
    EXPECT_EQ(lines.front().colour[2], 255);
    EXPECT_EQ(lines.front().colour[0], 0);
    // Start stands at (0.1, 0.95) of 200 x 100.
    ControlView::DragReport r = view.Drag(20, 95, 50, 60);
    EXPECT_EQ(r.input, "Star");
    EXPECT_EQ(r.written["Star"], nlohmann::json({0.25, 0.6}));
    EXPECT_EQ(r.undo, std::vector<std::string>{"Lightning: Start"});

    auto* guided = static_cast<ToolOperator*>(doc.AddTool("Lightning2"));
    ControlView view2(guided, 200, 100, 1.0, 1.0);
    auto handles = [&] {
        int loops = 0;
        for (const auto& l : view2.Draw())
            loops += l.mode == kGlLineLoop;
        return loops;
    };
    EXPECT_EQ(handles(), 9);
    guided->FindInput("Tots")->SetConstant(4.0);
    EXPECT_EQ(handles(), 4);
    // The guide is drawn first, in dark green, through the first point.
    std::vector<LineWork> guide = view2.Draw();
    ASSERT_EQ(guide.front().mode, kGlLineStrip);
    EXPECT_EQ(guide.front().colour[1], 30000 >> 8);
    EXPECT_NEAR(guide.front().points[0], 0.08f * 200, 0.01f);
    EXPECT_NEAR(guide.front().points[1], 0.93f * 100, 0.01f);
}

}  // namespace
