// Pool: the picture under water whose surface is one wave about a centre, rings, spokes or
// spirals, at full height within a radius and dying away outside it. The height field goes through
// the shared surface renderer at a fixed index; of the surface tools only this one blends its
// result back towards the source.
#pragma once

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "surface/SurfaceRenderer.h"
#include "surface/WaveSineTable.h"

class PointControl;
class RadiusControl;

class PoolEngine : public SurfaceEngine {
  public:
    // The styles, by entry of "Style".
    enum Style { kPond = 0, kSwirl = 1, kCentral = 2, kTwirl = 3 };

    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;

    // Visibility rules, run on a change of "Lighting", "Style" or "Use Matte" and once at the
    // first frame.
    void OnLighting(double time);
    void OnStyle(double time);
    void OnUseMatte(double time);

    // Fills rows first..last of the height map, held back by the matte where it is used.
    void HeightRows(int first, int last);
    // The height of the wave (before the matte) at a position dx, dy from the centre, in image
    // widths.
    float WaveHeight(double dx, double dy) const;

    // Inputs.
    SingleInputBinding centerInput, radiusInput, frequencyInput, phaseInput, heightInput;
    SingleInputBinding fillModeInput, styleInput;  // 1-based
    SingleInputBinding tightnessInput, blendInput, useMatteInput, invertMatteInput;
    SingleInputBinding lightingInput, lightInput, lightZInput, lightBrightInput;
    ColourInputBinding lightColourInput;
    SingleInputBinding glossInput, contrastInput, chromaticInput;

    // Values of the render in progress.
    float centerX = 0.5f, centerY = 0.5f;
    float radius = 0.5f, frequency = 8.0f, phase = 0.0f, waveHeight = 0.01f;
    float tightness = 4.0f, blend = 0.0f;
    int style = kPond;
    bool useMatte = false, invertMatte = false;
    double aspectX = 1.0, aspectY = 1.0;
    float stepX = 0.0f, stepY = 0.0f;

    WaveSineTable waveTable;
    bool tableMissing = true;

    PointControl* centerControl = nullptr;
    RadiusControl* radiusControl = nullptr;
    PointControl* lightControl = nullptr;

  private:
    void ReadValues(const WorkImage& out);
};

class PoolOperator : public ToolOperator {
  public:
    PoolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    PoolEngine* Pool() const { return static_cast<PoolEngine*>(Engine()); }

  private:
    PoolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                 PoolEngine* engine);
};

// Pages "Q9 Pool" and "Light", and the input table.
const ToolDecl& PoolToolDecl();
