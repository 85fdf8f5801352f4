// Smoke: the particle pool drawn in one of three looks. "Point" lays a quarter of each particle's
// density on a layer of its own, which may be blurred and is then laid over the background
// premultiplied; "Streak" draws a soft line from where a particle was to where it is; "Puff" lays a
// Gaussian stamp whose size is fixed at birth. Births grow with the picture's width, and the
// Initial Heat is the start speed, so that a positive heat rises.
#pragma once

#include <cstdint>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "particles/ParticleControls.h"
#include "particles/ParticleEngine.h"
#include "particles/Stamp.h"

class SmokeEngine : public ParticleEngine {
  public:
    SmokeEngine();
    ~SmokeEngine() override;

    void FirstFrame() override;
    void DrawControls() override;
    void ControlEvent(int event, float x, float y) override;

    // The draw pass' chunk: every particle, in list order, onto rows first..last.
    void DrawBand(int first, int last);
    // The layer of the look "Point" over the output, rows first..last.
    void CompositeRows(int first, int last);
    // One particle onto rows first..last, in the look of the render.
    void DrawSmoke(const ParticleRecord& r, int firstRow, int lastRow);

    // Writes preset `number` (1-based; 1 and numbers outside 2..12 give "Dry Ice") into the inputs,
    // after a restart.
    void ApplyPreset(int number, double time);

    // Handlers.
    void OnDemos(double time);
    template <SingleInputBinding SmokeEngine::*B>
    void OnRestart(double time);
    template <SingleInputBinding SmokeEngine::*B>
    void OnRestartPreRoll(double time);
    template <SingleInputBinding SmokeEngine::*B>
    void OnDoPreRoll(double time);
    void OnLook(double time);
    void OnGravity(double time);
    void OnFriction(double time);
    void OnTurbulence(double time);
    void OnWind(double time);

    // Puff stamps: the masters, made once, and the working set for the pixel aspect.
    StampSet puffStamps;
    StampSet puffSet;
    StampAspect puffAspect;
    // The layer of the look "Point", cleared at every render of that look and kept between them.
    WorkImage* pointLayer = nullptr;

    // What the drawing of a render uses, besides the step parameters.
    struct Drawing {
        int look = 2;      // 0 "Point", 1 "Streak", 2 "Puff"
        int fadeMode = 2;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
        float condensation = 0.0f;
        double pointBlur = 0.0;
    };
    Drawing drawing;

    // Inputs, in the order of the table.
    SingleInputBinding demos;
    SingleInputBinding restart1, restartPreRoll1, doPreRoll1;
    SingleInputBinding preRoll, advance;
    SingleInputBinding left, right;
    SingleInputBinding positionVar, density, lifetime, extinction, useBirthMatte;
    SingleInputBinding initialHeat, velocityVar, look, pointBlur, puffSize, puffSizeVar;
    SingleInputBinding restart2, restartPreRoll2, doPreRoll2;
    SingleInputBinding gravityOn, gravity, gravAngle, frictionOn, friction;
    SingleInputBinding turbulence, swirlDens, swirlAmp, swirlMaxTime;
    SingleInputBinding windOn, wind, windTarget, windSpread, windSpeed;
    SingleInputBinding restart3, restartPreRoll3, doPreRoll3;
    SingleInputBinding initIntensity, condensation, colourVar, monoVar;
    ColourInputBinding smokeColour;
    SingleInputBinding fadeMode;

    // The on-screen controls, made by the adapter.
    BirthLineControl* birthControl = nullptr;
    ConeControl* windControl = nullptr;

  protected:
    bool PrepareRender() override;
    void FillStepParameters() override;
    void CopyBackground() override;
    void DrawPass() override;
    void FinishRender() override;
    void BirthEnds(double* x0, double* y0, double* x1, double* y1) const override;
    int PreRollSteps() const override;
    bool UseBirthMatte() const override;
    void SizeAtBirth(ParticleRecord* record) override;

  private:
    void DrawPoint(int hx, int hy, int firstRow, int lastRow, const int* colour, int A);
    void DrawPuff(const ParticleRecord& r, int hx, int hy, int firstRow, int lastRow,
                  const int* colour, int A);
    // Which controls are shown, from the inputs as they stand.
    void PlaceControls();
};

class SmokeOperator : public ToolOperator {
  public:
    SmokeOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    SmokeEngine* Smoke() const { return static_cast<SmokeEngine*>(Engine()); }

  private:
    SmokeOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                  SmokeEngine* engine);
};

// Pages "Q9 Smoke", "Forces" and "Colour", and the input table.
const ToolDecl& SmokeToolDecl();
