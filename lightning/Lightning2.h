// Lightning2: a bolt that follows a smooth curve through three to nine control points. The main
// path is a Catmull-Rom spline sampled at a fixed number of points, with no random displacement;
// branches and twigs grow from it as in Lightning, and every line fades out toward its end.
#pragma once

#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "lightning/BoltEngine.h"

class Lightning2Engine : public BoltEngine {
  public:
    Lightning2Engine();

    void FirstFrame() override;
    void DrawControls() override;
    void DrawBoltTree(int width, int height) override;

    // Points 4 to 9 are shown only up to the number in "Points"; points 1 to 3 always are.
    void UpdatePointInputs(double time);
    // The main path into pathX, pathY for a picture of width x height: the spline through the
    // points in use, sampled at the count the later steps read. Returns that count.
    int BuildGuidePath(int width, int height);

    // What the on-screen controls will need, for a view of width x height pixels: which point
    // controls are shown, where they stand, and the guide polyline through the shown ones.
    void DrawGuideOverlay(int width, int height);
    bool guideShown[9] = {};
    float guidePointX[9] = {}, guidePointY[9] = {};
    std::vector<float> guideLineX, guideLineY;

    // Control point k, 1 to 9.
    SingleInputBinding& PointInput(int k);

    SingleInputBinding branchLengthInput, smoothingInput, pointCountInput;
    SingleInputBinding point1Input, point2Input, point3Input, point4Input, point5Input;
    SingleInputBinding point6Input, point7Input, point8Input, point9Input;

  protected:
    void ReadToolValues(int width, int height) override;

  private:
    // The spline's samples for the path, and for the overlay (which the interface thread makes).
    std::vector<float> splineX_, splineY_, splineZ_, splineT_;
    std::vector<float> overlayZ_, overlayT_;
};

class Lightning2Operator : public ToolOperator {
  public:
    Lightning2Operator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    Lightning2Engine* Lightning2() const { return static_cast<Lightning2Engine*>(Engine()); }

  private:
    Lightning2Operator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                       Lightning2Engine* engine);
};

// Pages "Q9 Lightning2", "Environment" and "Points", and the input table.
const ToolDecl& Lightning2ToolDecl();
