// The on-screen controls of Kal: what each handle's drag writes, with one undo step a drag, the
// hexagon control's handles and their colours, and the rings that show only with the vignette.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "app/Controls.h"
#include "host/Document.h"
#include "kal/Kal.h"
#include "kal/KalControls.h"

using nlohmann::json;

namespace {

using Values = std::vector<std::pair<const char*, double>>;

// On a view of 200 x 100 at the defaults: the camera's point at (100, 50) and its angle handle
// 20 pixels to the right; the image centre at (80, 40) with its angle handle at (100, 40); the
// lattice centre at (75, 25) with the lattice's angle handle at (95, 25), the hexagon's corner at
// 30 degrees 50 pixels from it, and the image ring's handle at (180, 40).
TEST(KalControls, EachDragWritesItsInputInOneUndoStep) {
    struct Case {
        const char* name;
        Values values;
        float from[2], to[2];
        const char* input;  // "" when the press hits nothing
        json written;
    };
    // Cases that would put two handles on one spot move the hexagon ("HexR" 0.3: centre (85, 35),
    // corner (110.98, 50)) or turn the camera (its handle at (100, 70)).
    const Values apart = {{"HexR", 0.3}, {"CRot", 90.0}};
    const std::vector<Case> cases = {
        {"camera point", {}, {100, 50}, {60, 30}, "CamO", {{"CamO", {0.3, 0.3}}}},
        {"camera angle", {{"HexR", 0.3}}, {120, 50}, {100, 70}, "CRot", {{"CRot", 90.0}}},
        {"image centre", {}, {80, 40}, {50, 60}, "ICen", {{"ICen", {0.25, 0.6}}}},
        {"image angle", {}, {100, 40}, {60, 40}, "IRot", {{"IRot", 180.0}}},
        {"lattice angle", {}, {95, 25}, {75, 45}, "ARot", {{"ARot", 90.0}}},
        {"image ring", {}, {180, 40}, {130, 40}, "IScl", {{"IScl", 0.5}}},
        {"lattice centre", {}, {75, 25}, {100, 50}, "AOff", {{"AOff", {0.5, 0.5}}}},
        {"hexagon corner", apart, {111, 50}, {125, 35}, "HexR", {{"HexR", 0.4}}},
        {"inner ring",
         {{"Vg", 1.0}, {"HexR", 0.3}, {"CRot", 90.0}},
         {120, 50},
         {130, 50},
         "ViGo",
         {{"ViGo", 0.3}}},
        {"outer ring", {{"Vg", 1.0}}, {149, 99}, {100, 90}, "ViEn", {{"ViEn", 0.4}}},
        {"rings hidden without the vignette", apart, {120, 50}, {130, 50}, "", json::object()},
        {"nothing there", {}, {10, 90}, {30, 90}, "", json::object()},
    };
    for (const Case& k : cases) {
        FusionDoc doc;
        auto* op = static_cast<KalOperator*>(doc.AddTool("Kal"));
        for (const auto& [id, value] : k.values)
            op->FindInput(id)->SetConstant(value);
        ControlView view(op, 200, 100, 1.0, 1.0);
        const ControlView::DragReport r = view.Drag(k.from[0], k.from[1], k.to[0], k.to[1]);
        EXPECT_EQ(r.input, k.input) << k.name;
        ASSERT_EQ(r.written.size(), k.written.size()) << k.name << " " << r.written.dump();
        for (const auto& [id, want] : k.written.items()) {
            ASSERT_TRUE(r.written.contains(id)) << k.name;
            const json got = r.written[id];
            if (want.is_array()) {
                EXPECT_NEAR(got[0].get<double>(), want[0].get<double>(), 1e-6) << k.name;
                EXPECT_NEAR(got[1].get<double>(), want[1].get<double>(), 1e-6) << k.name;
            } else {
                EXPECT_NEAR(got.get<double>(), want.get<double>(), 1e-6) << k.name;
            }
        }
        if (*k.input) {
            ASSERT_EQ(r.undo.size(), 1u) << k.name;
            EXPECT_EQ(r.undo[0].rfind("Kal: ", 0), 0u) << r.undo[0];
        } else {
            EXPECT_TRUE(r.undo.empty()) << k.name;
        }
    }
}

TEST(KalControls, TheHexagonControlFollowsItsInputs) {
    FusionDoc doc;
    auto* op = static_cast<KalOperator*>(doc.AddTool("Kal"));
    KalEngine& e = *op->Kal();
    ControlView view(op, 200, 100, 1.0, 1.0);
    const std::vector<LineWork> lines = view.Draw();
    // Points, angle handles and the hexagon: no rings while the vignette is off.
    EXPECT_FALSE(e.goRing->visible);
    KalHexagonControl& h = *e.hexagon;
    EXPECT_FLOAT_EQ(h.handleX[0], 180.0f);
    EXPECT_FLOAT_EQ(h.handleY[0], 40.0f);
    EXPECT_FLOAT_EQ(h.handleX[1], 75.0f);
    EXPECT_FLOAT_EQ(h.handleY[1], 25.0f);
    EXPECT_NEAR(h.handleX[2], 75.0 + 50.0 * std::cos(0.5235987755982988), 1e-4);
    EXPECT_NEAR(h.handleY[2], 50.0f, 1e-4);
    // The corner at 90 degrees stands straight above the centre, as the lattice's own corner does.
    EXPECT_NEAR(h.cornerX[1], 75.0f, 1e-4);
    EXPECT_NEAR(h.cornerY[1], 75.0f, 1e-4);
    EXPECT_EQ(lines.back().colour[0], 160);  // the hexagon control draws last, in violet
    EXPECT_EQ(lines.back().colour[2], 240);

    // Moving the centre at the same radius moves the corner with it; the lattice's angle handle
    // turns about the new centre.
    ControlView::DragReport r = view.Drag(75, 25, 115, 45);
    EXPECT_EQ(r.input, "AOff");
    view.Draw();
    EXPECT_NEAR(h.handleX[1], 115.0f, 1e-3);
    EXPECT_NEAR(h.handleY[1], 45.0f, 1e-3);
    EXPECT_NEAR(h.handleX[2] - h.handleX[1], 50.0 * std::cos(0.5235987755982988), 1e-3);
    EXPECT_NEAR(h.handleY[2] - h.handleY[1], 25.0f, 1e-3);
    EXPECT_FLOAT_EQ(e.arrayAngle->centreX, h.handleX[1]);
    EXPECT_EQ(h.activeHandle, 0);  // released

    // Pixels twice as tall: heights on screen are halved, as the mapping halves them.
    e.viewScaleY = 2.0;
    h.Refresh();
    EXPECT_FLOAT_EQ(h.aspect, 0.5f);
}

}  // namespace
