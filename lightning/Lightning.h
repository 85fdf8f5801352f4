// Lightning: one forked bolt between two points over a background. The main bolt grows from a
// coarse line by midpoint displacement; branches and twigs grow from it in turn. The glow, the
// brightness profile and the mix with the background are those of every bolt (BoltEngine).
#pragma once

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "lightning/BoltEngine.h"

class LightningEngine : public BoltEngine {
  public:
    void FirstFrame() override;
    void DrawControls() override;
    void DrawBoltTree(int width, int height) override;

    // Where the on-screen controls stand for a view of width x height pixels: the points of Start
    // and End, and the line between them. Kept here for the controls, which draw and drag them.
    void PlaceControls(int width, int height);
    float controlStart[2] = {0.0f, 0.0f};
    float controlEnd[2] = {0.0f, 0.0f};

    SingleInputBinding startInput, endInput;

  protected:
    void ReadToolValues(int width, int height) override;
};

class LightningOperator : public ToolOperator {
  public:
    LightningOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    LightningEngine* Lightning() const { return static_cast<LightningEngine*>(Engine()); }

  private:
    LightningOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                      LightningEngine* engine);
};

// Pages "Q9 Lightning" and "Environment", and the input table.
const ToolDecl& LightningToolDecl();
