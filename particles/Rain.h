// Rain: every drop of the particle pool is drawn as an anti-aliased streak from its tail to its
// head, with a short bright glint near the head, a fade by age or colour, a fade-in
// ("condensation") and an optional cone of light that brightens the drops inside it. Drops are
// born on a line (optionally only where a Birth Clip is not black) and may bounce on the shapes
// of a Bounce Clip.
#pragma once

#include <cstdint>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"
#include "particles/ParticleControls.h"
#include "particles/ParticleEngine.h"

class RainEngine : public ParticleEngine {
  public:
    RainEngine();

    void FirstFrame() override;
    void DrawControls() override;
    void ControlEvent(int event, float x, float y) override;

    // The draw pass' chunk: every drop, in list order, onto rows first..last.
    void DrawBand(int first, int last);
    // One drop onto rows first..last.
    void DrawDrop(const ParticleRecord& r, int firstRow, int lastRow) const;

    // Writes preset `number` (1-based; 1 and numbers outside 2..9 give "Rain") into the inputs,
    // after a restart.
    void ApplyPreset(int number, double time);

    // Handlers.
    void OnDemos(double time);
    template <SingleInputBinding RainEngine::*B>
    void OnRestart(double time);
    template <SingleInputBinding RainEngine::*B>
    void OnRestartPreRoll(double time);
    template <SingleInputBinding RainEngine::*B>
    void OnDoPreRoll(double time);
    void OnGravity(double time);
    void OnFriction(double time);
    void OnTurbulence(double time);
    void OnWind(double time);
    void OnPuddleBounce(double time);
    void OnLight(double time);

    // Glint profiles, and the profile of each value of the low 8 bits of a record's address.
    static constexpr int kProfiles = 5;
    static constexpr int kLongestProfile = 6;
    static const int streakProfile[kProfiles][kLongestProfile];
    static const int streakProfileLength[kProfiles];
    int streakProfileIndex[256] = {};

    // What the drawing of a render uses, besides the step parameters.
    struct Look {
        int fadeMode = 2;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
        float condensation = 0.0f;
        float lightColour[3] = {0, 0, 0};
        double streakScale = 1.0;  // Streak Scale / 100
        bool light = false;        // Light on and Light Inten above 0
        double lightX = 0, lightY = 0, axisX = 0, axisY = 0;
        float halfSpread = 0.0f;
        double inten = 0, minBright = 0, glistenTight = 0;
    };
    Look look;

    // The third image: drops bounce where its red is not 0.
    ImagePort bouncePort;

    // Inputs, in the order of the table.
    SingleInputBinding demos;
    SingleInputBinding restart1, restartPreRoll1, doPreRoll1;
    SingleInputBinding preRoll, advance;
    SingleInputBinding left, right;
    SingleInputBinding positionVar, density, lifetime, extinction, initialVelocity, velocityVar;
    SingleInputBinding streakScale, useBirthMatte, puddleBounce, puddleRebound, bounces;
    SingleInputBinding restart2, restartPreRoll2, doPreRoll2;
    SingleInputBinding gravityOn, gravity, gravAngle, frictionOn, friction;
    SingleInputBinding turbulence, swirlDens, swirlAmp, swirlMaxTime;
    SingleInputBinding windOn, wind, windTarget, windSpread, windSpeed;
    SingleInputBinding restart4, restartPreRoll4, doPreRoll4;
    SingleInputBinding initIntensity, condensation, colourVar, monoVar;
    ColourInputBinding rainColour;
    SingleInputBinding fadeMode;
    SingleInputBinding lightOn, light, lightTarget, glistenTight, lightSpread, lightInten;
    SingleInputBinding minBright;
    ColourInputBinding lightColour;
    SingleInputBinding autoLightUpdate;

    // The on-screen controls, made by the adapter.
    BirthLineControl* birthControl = nullptr;
    ConeControl* lightControl = nullptr;
    ConeControl* windControl = nullptr;

  protected:
    void FillStepParameters() override;
    void DrawPass() override;
    void BirthEnds(double* x0, double* y0, double* x1, double* y1) const override;
    int PreRollSteps() const override;
    bool UseBirthMatte() const override;
    bool PuddleBounce() const override;
    const WorkImage* BounceMatte() const override;

  private:
    // Which controls are shown, from the inputs as they stand.
    void PlaceControls();
};

class RainOperator : public ToolOperator {
  public:
    RainOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    RainEngine* Rain() const { return static_cast<RainEngine*>(Engine()); }

  private:
    RainOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                 RainEngine* engine);
};

// Pages "Q9 Rain", "Forces", "Colour" and "Light", and the input table.
const ToolDecl& RainToolDecl();

// SmoothRamp(x, lo, hi): 0 up to lo, 1 from hi on, a smooth step between.
double SmoothRamp(double x, double lo, double hi);
