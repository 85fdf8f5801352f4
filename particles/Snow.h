// Snow: the particle pool drawn as points, streaks, grainy flakes or rotated stars. Flakes may
// settle where a Settle Clip is bright (and then pile up on what has settled) into two layers that
// persist from render to render, and star-shaped glints sparkle on flakes and on settled snow
// inside a cone of light. Every pixel has a fixed random number, so settling and glints are steady
// and the draw pass needs no random draw.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "frame/WorkImage.h"
#include "particles/ParticleControls.h"
#include "particles/ParticleEngine.h"
#include "particles/Stamp.h"

// A stamp as the drawing reads it: width x height coverage values in rows, full scale 255.
struct StampView {
    int width = 0, height = 0;
    const int32_t* values = nullptr;
};

class SnowEngine : public ParticleEngine {
  public:
    SnowEngine();
    ~SnowEngine() override;

    void FirstFrame() override;
    void DrawControls() override;
    void ControlEvent(int event, float x, float y) override;

    // The draw pass' chunk: every particle, in list order, onto rows first..last.
    void DrawBand(int first, int last);
    // One particle onto rows first..last of the output.
    void DrawParticle(const ParticleRecord& r, int firstRow, int lastRow) const;

    // Writes preset `number` (1-based; 1 and numbers outside 2..12 give "Blizzard") into the
    // inputs, after a restart.
    void ApplyPreset(int number, double time);
    // A restart that also clears the settled snow.
    void ClearAll();

    // The glint cone at pixel position (x, y): 0 outside, up to Glint Prob / 100 on the axis.
    double GlintCone(double x, double y) const;

    // Handlers.
    void OnDemos(double time);
    template <SingleInputBinding SnowEngine::*B>
    void OnRestart(double time);
    template <SingleInputBinding SnowEngine::*B>
    void OnRestartPreRoll(double time);
    template <SingleInputBinding SnowEngine::*B>
    void OnDoPreRoll(double time);
    void OnLook(double time);
    void OnSettle(double time);
    void OnBias(double time);
    void OnGravity(double time);
    void OnFriction(double time);
    void OnTurbulence(double time);
    void OnWind(double time);
    void OnGlints(double time);

    // One fixed random number for each pixel number, masked with kFieldMask.
    static constexpr int kFieldSize = 0x40000;
    static constexpr int kFieldMask = 0x3ffff;
    std::vector<float> randomField;

    // Flakes and stars in 41 sizes: the masters, made at construction, and the working sets made
    // from them for the picture's pixel aspect.
    StampSet flakeStamps, starStamps;
    StampSet flakeSet, starSet;

    // What has settled: the mask (all four channels alike) and the colour, premultiplied by the
    // mask. Both persist between renders and are replaced at any change of size or aspect.
    std::unique_ptr<WorkImage> settleMask, settleColour;
    // The aspect (Y over X) the working stamps were made for; -400 before the first render.
    double aspectCache = -400.0;
    bool layersMade = false;

    // What the drawing of a render uses, besides the step parameters.
    struct Look {
        int look = 2;      // 0 "Point", 1 "Streak", 2 "Flake", 3 "Star"
        int fadeMode = 2;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
        bool settleOn = false;
        double settleChance = 0.0;
        bool glints = false;  // Glints on and Glint Prob above 0
        double glintProb = 0.0;
        int glintColourMode = 0;  // 0 "Box Colour", 1 "Snow Colour", 2 "Random Colour"
        int glintColour[3] = {0, 0, 0};
        double glintX = 0, glintY = 0, axisX = 0, axisY = 0;
        float halfZone = 0.0f;
        double glintTight = 0.0;
    };
    Look look;

    // Inputs, in the order of the table.
    SingleInputBinding demos;
    SingleInputBinding restart1, restartPreRoll1, doPreRoll1;
    SingleInputBinding preRoll, advance;
    SingleInputBinding left, right;
    SingleInputBinding positionVar, density, lifetime, initialVelocity, velocityVar;
    SingleInputBinding lookMode, size, sizeVar, settle, probability, biasOn, drySnow, sizeBias;
    SingleInputBinding restart2, restartPreRoll2, doPreRoll2;
    SingleInputBinding gravityOn, gravity, gravAngle, frictionOn, friction;
    SingleInputBinding windOn, wind, windTarget, multiDirectional, windSpread, windSpeed;
    SingleInputBinding turbulence, swirlDens, swirlAmp, swirlMaxTime;
    SingleInputBinding restart4, restartPreRoll4, doPreRoll4;
    SingleInputBinding colourVar, monoVar;
    ColourInputBinding snowColour;
    SingleInputBinding fadeMode;
    SingleInputBinding glintsOn, glint, glintTarget, glintTight, glintZone, glintProb;
    ColourInputBinding glintColour;
    SingleInputBinding glintColourMode;

    // The on-screen controls, made by the adapter.
    BirthLineControl* birthControl = nullptr;
    ConeControl* glintControl = nullptr;
    ConeControl* windControl = nullptr;

    // The working stamps of size i (0..40), made for the picture's aspect; empty when none.
    StampView FlakeStamp(int i) const;
    StampView StarStamp(int i) const;

  protected:
    bool PrepareRender() override;
    void FillStepParameters() override;
    void DrawPass() override;
    void FinishRender() override;
    void BirthEnds(double* x0, double* y0, double* x1, double* y1) const override;
    int PreRollSteps() const override;
    void SizeAtBirth(ParticleRecord* record) override;

  private:
    // Decides, flake by flake in list order, which settle, and lays them into the layers.
    void SettlePass();
    // Lays the settled layers over the output (rows first..last).
    void OverlayBand(int first, int last);
    // Glints on settled snow; draws random numbers, so it runs on the processing thread.
    void SettledGlints();
    void NewLayers(int width, int height);
    void PlaceControls();
};

class SnowOperator : public ToolOperator {
  public:
    SnowOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    SnowEngine* Snow() const { return static_cast<SnowEngine*>(Engine()); }

  private:
    SnowOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                 SnowEngine* engine);
};

// Pages "Q9 Snow", "Forces", "Colour" and "Glints", and the input table.
const ToolDecl& SnowToolDecl();

// The three ways a stamp is laid down, at (hx, hy) with its centre there, over rows first..last of
// `image` (rows and columns outside are skipped). s is the stamp's value, A the density (0..32767)
// and rgb the colour words.
//  Output: c = (min(s, 255) * A) >> 8 over a full-scale complement of 32767.
//  Mask:   c = (s * A) >> 8 (at most 32767); all four channels become the blend of channel 0 with
//  A. Colour: c as the mask; colour and full alpha over a complement of 32768.
enum class StampBlend { Output, Mask, Colour };
void LayStamp(WorkImage* image, const StampView& stamp, int hx, int hy, int A, const int* rgb,
              StampBlend blend, int first, int last);
