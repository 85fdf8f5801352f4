// The engine shared by the two bolt tools. A frame builds a tree of polylines from one seed (the
// tool's own DrawBoltTree), stamps it with a soft brush into a black layer, blurs that layer into
// a tinted glow, gives it a random brightness profile, and adds it to the background or lets it
// light the background. Everything but the tree is the same in both tools.
#pragma once

#include <memory>
#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolEngine.h"
#include "lightning/BoltBrush.h"
#include "lightning/BoltParams.h"

class WorkImage;

class BoltEngine : public ToolEngine, public ToolOverlay {
  public:
    BoltEngine();
    ~BoltEngine() override;

    void Render() override;

    // "MinEnvLight" and "EnvIllScale" are shown only in the Illuminate mode.
    void UpdateEnvironmentInputs(double time);

    // The tree of the tool for a picture of width x height, stamped through DrawBoltPolyline.
    virtual void DrawBoltTree(int width, int height) = 0;

    // Fills `params` from the inputs for an output of width x height with the given pixel aspect.
    void FillParams(int width, int height, double aspectX, double aspectY);
    // The three brush sets of the frame, in level order; a level whose set can't be made is not
    // stamped.
    void MakeBrushes();
    // A periodic random profile of n entries into `table`: twelve harmonics of random phase and
    // weight, spread over (1 - wobble) * 256 up to 256. Takes 24 draws.
    void MakeWobbleTable(float* table, int n);
    // Stamps `count` points of x, y as a polyline with the brush of `level`: for level 0 the drawn
    // share of its segments (at least one), for the others all of them. With `fade` the last
    // quarter of the segments stamped falls off toward the end.
    void DrawBoltPolyline(const float* x, const float* y, int count, int level, bool fade);
    // SubdivideBolt on x, y (of kPolylinePoints floats) with the engine's scratch arrays.
    int Subdivide(float* x, float* y, int count, int level);
    // Steps 4 and 5 of the tree: the offsets of branches and twigs, then the drawn share of the
    // `count` branches in `branches`, each subdivided and stamped with the twigs it proposes.
    void DrawBranches(int count, bool fade, float lengthFactor);
    // The glow: rows blurred into blurLayer, columns into the output, then tinted into boltLayer.
    void BlurBoltLayer();
    // What the glow adds to each channel for every blurred sample below kGlowTableSize, and
    // whether it touches the pixel at all; made again only when the glow's strength or colour
    // change.
    void MakeGlowTable();
    static constexpr int kGlowTableSize = 32768;

    // Passes over rows first..last.
    void StampBoltRows(int first, int last);
    void TintGlow(int first, int last);
    void ApplyWobble(int first, int last);
    void CompositeBolt(int first, int last);
    void DimBackground(int first, int last);

    // Inputs both tools have.
    SingleInputBinding densityInput, minAngleInput, maxAngleInput, drawnInput, seedLockInput;
    SingleInputBinding thicknessInput, wobbleInput, brightnessInput, expandInput;
    SingleInputBinding generateInput, seedInput, modeInput;
    SingleInputBinding glowRadiusInput, glowBrightInput;
    ColourInputBinding glowColourInput;
    SingleInputBinding minEnvLightInput, envScaleInput;

    // The frame's settings, and what it builds. Kept from frame to frame so that no frame has to
    // allocate them again; nothing in them carries over into the next picture.
    BoltParams params;
    std::unique_ptr<WorkImage> boltLayer, blurLayer;
    std::vector<float> wobbleX, wobbleY;
    std::vector<int> wobbleWholeX;
    std::vector<float> pathX, pathY, twigX, twigY;
    BranchRecord branches[kBranchListSize];
    BranchRecord twigs[kBranchListSize];
    std::vector<StampMark> stamps;
    StampPlan stampPlan;
    BrushSet sets[3];
    int mainPoints = 0;   // points of the main path of the last tree
    int branchCount = 0;  // records proposed along the main path of the last tree

  protected:
    // Values of the tool's own inputs into `params`, after the shared ones.
    virtual void ReadToolValues(int width, int height) {
        (void)width;
        (void)height;
    }

  private:
    void PrepareLayers(int width, int height);

    std::vector<uint16_t> glowTable_;
    double glowTableStrength_ = 0.0;
    int32_t glowTableColour_[3] = {0, 0, 0};
    Brush brush_;
    float setRadius_[3];  // radius of each set as made, not a number while there is none
    std::vector<float> scratchX_, scratchY_;
};
