// Glass: a picture seen through a pane of textured glass. The brightness of the texture image is
// the pane's thickness between two limits; the shared surface renderer refracts the picture
// through it, lit by a point light in pixels, the slope taken over a baseline that "Smoothing"
// widens.
#pragma once

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "surface/SurfaceRenderer.h"

class PointControl;

class GlassEngine : public SurfaceEngine {
  public:
    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;

    // Visibility rule, run on a change of "Light Active" and once at the first frame.
    void OnLightActive(double time);

    // Fills rows first..last of the height map (up to the last but one) from 2 x 2 blocks of the
    // texture.
    void HeightRows(int first, int last);

    // The texture ("Glass", or the picture itself when that is open) and the picture behind it.
    WorkImage* HeightImage() const { return firstPort.image; }
    WorkImage* PictureImage() const { return secondPort.image; }

    // Inputs.
    SingleInputBinding blackHeightInput, whiteHeightInput, indexInput, invertInput;
    SingleInputBinding fillInput, smoothingInput, chromaticInput, lightActiveInput;
    SingleInputBinding lightInput, lightZInput, brightnessInput;
    ColourInputBinding lightColourInput;
    SingleInputBinding glossInput, backBrightInput;

    // Values of the render in progress.
    float blackHeight = 0.1f, whiteHeight = 0.2f;
    bool invertMap = false, lightActive = false;
    int smoothing = 0;
    // Pixels between a height and the neighbours its slope is taken from, less one.
    int neighbourStep = 0;

    PointControl* lightControl = nullptr;

  private:
    void ReadValues(const WorkImage& texture);
};

class GlassOperator : public ToolOperator {
  public:
    GlassOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    GlassEngine* Glass() const { return static_cast<GlassEngine*>(Engine()); }

  private:
    GlassOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                  GlassEngine* engine);
};

// Page "Q9 Glass" and the input table.
const ToolDecl& GlassToolDecl();
