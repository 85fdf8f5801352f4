// Clouds: a moving cloud texture over a sky. Fractal noise through a density curve gives the
// cloud; a colour ramp by density paints it (unlit), or a beam of light shades its surface (lit).
// The noise is evaluated on a grid of half the picture's size unless "High Resolution" is on, and
// the result is laid over the sky colour or the input, through an optional matte.
//
// The tool keeps nothing between frames that shows: the same inputs and time give the same
// picture. What it keeps are its tables and buffers, so that a frame allocates nothing.
#pragma once

#include <cstdint>
#include <vector>

#include "clouds/CloudsNoise.h"
#include "clouds/CloudsTables.h"
#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"

class WorkImage;

class BeamControl;
class BoxControl;
class PointControl;

class CloudsEngine : public ToolEngine, public ToolOverlay {
  public:
    CloudsEngine();
    ~CloudsEngine() override;

    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;

    // Visibility rules, each run by a change of its input and once, in the order Match Scales,
    // Use Sky Colour, Lit Clouds, Use Matte, at the first frame.
    void OnMatchScales(double time);
    void OnUseSkyColour(double time);
    void OnUseMatte(double time);
    void OnLitClouds(double time);

    // "Demos": writes preset 1 to 18 (any other number gives 1) into the inputs. Sliders and points
    // are written at `time`, whole numbers, checkboxes and colours as whole values.
    void OnDemos(double time);
    void ApplyPreset(int number, double time);

    // Chunk routines over output rows first..last; the field and shading routines work on the grid
    // rows that those output rows come from.
    void UnlitFieldRows(int first, int last);
    void LitFieldRows(int first, int last);
    void LitShadeRows(int first, int last);
    void DoubleRows(int first, int last);
    void CompositeRows(int first, int last);
    // Hides the first row and column of the lit grid, which the shading cannot work out, under
    // copies of the second.
    void RepairEdges();

    // The grid rows that a chunk of output rows first..last evaluates. At half size the chunks
    // meet on a grid row when the second starts on an odd row: that row is computed by the chunk
    // holding the output row it lands on (2j), and the other starts counting its rows there but
    // computes from the next one, `own`.
    struct GridRows {
        int first, last, own;
    };
    GridRows GridRowsOf(int first, int last) const;

    // Inputs, in the order of the table.
    SingleInputBinding demosInput, centreInput, rotateInput, seedInput, matchInput;
    SingleInputBinding scaleXInput, scaleYInput, cloudinessInput, detailInput, seethingInput;
    SingleInputBinding densityInput, blendInput, gloomGoInput, gloomMaxInput, useSkyInput;
    ColourInputBinding skyColourInput;
    SingleInputBinding useMatteInput, invertInput, litInput, lightInput, lightZInput;
    SingleInputBinding targetInput, spreadInput, fallOffInput, brightnessInput, contrastInput;
    SingleInputBinding depthInput;
    ColourInputBinding lightColourInput, cloudColourInput, coreColourInput;
    SingleInputBinding coreStartInput;
    ColourInputBinding edgeColourInput;
    SingleInputBinding edgeEndsInput, highResInput;

    // The render in progress: sizes of the picture and of the rendered grid.
    int width = 0, height = 0;
    int gridWidth = 0, gridHeight = 0;
    bool highResolution = false;

    // Field synthesis.
    float aspectX = 1.0f, aspectY = 1.0f;
    FieldMapping mapping;
    float cloudiness = 0.0f, detail = 0.0f, seethingRate = 0.0f, density = 0.0f;
    float startFrequency = 1.0f, maxFrequency = 0.0f;
    float depth = 0.0f;  // the texture's third coordinate, which moves with time
    int32_t seed = 0;
    CloudsNoise noise;

    // Colour and light.
    RampSettings ramp;
    int32_t lightColour[3] = {0, 0, 0};
    int32_t skyColour[3] = {0, 0, 0};
    float light[2] = {0.0f, 0.0f}, lightTarget[2] = {0.0f, 0.0f};
    float lightHeight = 0.0f, depthScale = 0.0f, brightness = 0.0f, contrast = 0.0f;
    float spreadHalfAngle = 0.0f, fallOffAngle = 0.0f;
    bool useSkyColour = false, useMatte = false, invertMatte = false, litClouds = false;
    float blend = 0.0f;        // "Blend" is read and kept; nothing uses it
    float blendAmount = 0.0f;  // what the closing blend would mix by: 0 in every render

    // Tables, built when their settings change.
    std::vector<int32_t> densityInt;
    std::vector<float> densityFloat;
    std::vector<int32_t> rampRed, rampGreen, rampBlue;

    // Buffers kept from render to render: the grid image, the height of each grid pixel (lit), and
    // one row of field indices for each of the two chunks.
    WorkImage* scratch = nullptr;
    std::vector<float> heightField;
    std::vector<int32_t> rowIndex[2];

    // What the on-screen light controls draw and drag, in pixels of the view, computed from the
    // inputs by PlaceBeam: the light and its target, the axis of the beam, and the unit directions
    // of the rays at the edge of the spread and at the end of the fall-off on either side of it.
    struct BeamGeometry {
        float centreX = 0.0f, centreY = 0.0f;
        float lightX = 0.0f, lightY = 0.0f;
        float targetX = 0.0f, targetY = 0.0f;
        float axisAngle = 0.0f;  // radians, counter-clockwise from +x
        float spreadRay[2][2] = {{0.0f, 0.0f}, {0.0f, 0.0f}};
        float fallOffRay[2][2] = {{0.0f, 0.0f}, {0.0f, 0.0f}};
    };
    BeamGeometry beam;
    void PlaceBeam(int viewW, int viewH);

    // The on-screen controls (owned by the overlay's list).
    PointControl* centreControl = nullptr;
    BoxControl* scaleControl = nullptr;
    PointControl* lightControl = nullptr;
    PointControl* targetControl = nullptr;
    BeamControl* beamControl = nullptr;

  private:
    void ReadValues();
    void PrepareBuffers();
    void BuildTables();

    DensitySettings builtDensity_;
    RampSettings builtRamp_;
    bool tablesBuilt_ = false;
};

class CloudsOperator : public ToolOperator {
  public:
    CloudsOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    CloudsEngine* Clouds() const { return static_cast<CloudsEngine*>(Engine()); }

  private:
    CloudsOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                   CloudsEngine* engine);
};

// Pages "Q9 Clouds" and "Look", and the input table.
const ToolDecl& CloudsToolDecl();
