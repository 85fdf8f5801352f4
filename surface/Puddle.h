// Puddle: raindrops land at random on a sheet of water, and from each a ring spreads while it
// fades. The drops live from render to render and follow the frames actually rendered; their rings
// are summed into a wave field that the shared surface renderer turns into the refracted picture.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "surface/PuddleDrops.h"
#include "surface/SurfaceRenderer.h"
#include "surface/WaveSineTable.h"

class PointControl;

class PuddleEngine : public SurfaceEngine {
  public:
    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;

    // Writes preset `number` of "Demos" (1-based; numbers other than 2 to 4 give "Pit-a-Pat")
    // into the inputs at `time` and asks for a restart of the rain.
    void ApplyPreset(int number, double time);

    // Handlers.
    void OnDemos(double time);
    void OnRestart(double time);
    void OnLighting(double time);
    void OnOutputMap(double time);
    void OnUseMatte(double time);

    // Row routines: the rings into the wave field, and the wave field into the height map.
    void SumRows(int first, int last);
    void HeightRows(int first, int last);

    // Inputs, in the order of the table.
    SingleInputBinding demosInput, restartInput, restartFromInput;
    SingleInputBinding rainFreqInput, rainImpactInput, rainRadiusInput, rainEnduranceInput;
    SingleInputBinding waveHeightInput, refractInput, fillModeInput, outputMapInput, blendInput;
    SingleInputBinding seedInput, useMatteInput, invertMatteInput;
    SingleInputBinding lightingInput, lightInput, lightZInput, lightBrightInput;
    ColourInputBinding lightColourInput;
    SingleInputBinding glossInput, contrastInput, chromaticInput;

    // State kept from render to render.
    DropList drops;
    WaveSineTable waveTable;
    uint8_t tableMissing = 1;
    uint8_t restartPending = 0;  // set by "Restart Rain" and the presets, read once a render
    int32_t randomState = 0;

    // Values of the render in progress.
    RainSettings rain;
    int32_t restartFrom = -14;
    int32_t seed = 567;
    float waveHeight = 0.1f;
    bool outputMap = false, useMatte = false, invertMatte = false;
    float blend = 0.0f;           // read and kept; the tool never blends
    float blendAmount = 0.0f;     // what the passes blend by: always 0 here
    std::vector<float> rawField;  // the summed rings, width x height, kept from render to render

    PointControl* lightControl = nullptr;

  private:
    void ReadValues(int width, int height, const double* pixelScale);
    // The wave field as grey in all four channels of the output.
    void WriteMap();
};

class PuddleOperator : public ToolOperator {
  public:
    PuddleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    PuddleEngine* Puddle() const { return static_cast<PuddleEngine*>(Engine()); }

  private:
    PuddleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                   PuddleEngine* engine);
};

// Pages "Q9 Puddle" and "Light", and the input table.
const ToolDecl& PuddleToolDecl();
