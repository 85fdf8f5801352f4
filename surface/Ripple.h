// Ripple: the picture seen through a sheet of water whose surface is the product of two sine
// waves, one running along X and one along Y, with an optional highlight. The height field goes
// through the shared surface renderer; the tool keeps nothing between frames but its buffers.
#pragma once

#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "surface/SurfaceRenderer.h"

class PointControl;
class RippleHandles;

class RippleEngine : public SurfaceEngine {
  public:
    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;

    // Visibility rules, run on a change of "Lighting" or "Use Matte" and once at the first frame.
    void OnLighting(double time);
    void OnUseMatte(double time);

    // Fills rows first..last of the height map: the product of the two waves about the rest
    // height 0.5, held back towards it by the matte.
    void HeightRows(int first, int last);

    // The on-screen controls, in image pixels of a view W x H: six handles and two wave sketches.
    struct Handle {
        float x = 0.0f, y = 0.0f;          // where the handle stands
        float fromX = 0.0f, fromY = 0.0f;  // where its line starts
        int colour = 0;                    // 0 red (amplitudes), 1 green (frequencies), 2 blue
    };
    void PlaceHandles(int viewW, int viewH);
    // The line strips along the bottom and the left edges, as x, y pairs.
    void SketchWaves(int viewW, int viewH);
    // The handle (1 to 6) under the pointer, or 0. A press takes the last that matches, hovering
    // the first.
    int HandleAt(float px, float py, float radius, bool press) const;
    // The value that dragging `handle` to (px, py) gives its input.
    static double DragValue(int handle, float px, float py, int viewW, int viewH);

    // Inputs.
    SingleInputBinding xAmpInput, yAmpInput, xFreqInput, yFreqInput, xPhaseInput, yPhaseInput;
    SingleInputBinding fillModeInput;  // 1-based
    SingleInputBinding refractInput, blendInput;
    SingleInputBinding useMatteInput, invertMatteInput;
    SingleInputBinding lightingInput, lightInput, lightZInput, lightBrightInput;
    ColourInputBinding lightColourInput;
    SingleInputBinding glossInput, contrastInput, chromaticInput;

    // Values of the render in progress.
    float xAmp = 0.0f, yAmp = 0.0f, xFreq = 0.0f, yFreq = 0.0f, xPhase = 0.0f, yPhase = 0.0f;
    float stepX = 0.0f, stepY = 0.0f;
    bool useMatte = false, invertMatte = false;
    float blend = 0.0f;        // read and kept; the tool never blends
    float blendAmount = 0.0f;  // what the passes blend by: always 0 here
    std::vector<float> xWave, yWave;

    Handle handles[6];
    PointControl* lightControl = nullptr;
    RippleHandles* waveHandles = nullptr;
    std::vector<float> bottomSketch, leftSketch;

  private:
    void ReadValues(int width, int height);
    void MakeWaves(int width, int height);
};

class RippleOperator : public ToolOperator {
  public:
    RippleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    RippleEngine* Ripple() const { return static_cast<RippleEngine*>(Engine()); }

  private:
    RippleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                   RippleEngine* engine);
};

// Pages "Q9 Ripple" and "Light", and the input table.
const ToolDecl& RippleToolDecl();
