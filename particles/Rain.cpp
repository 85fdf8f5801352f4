#include "particles/Rain.h"

#include <cmath>
#include <limits>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Tags.h"
#include "particles/ParticleRows.h"
#include "particles/Streak.h"

namespace {

inline float F(double v) {
    return static_cast<float>(v);
}

// Degrees to radians for the gravity, and half-degrees to radians for the spread of a cone.
constexpr double kDegrees = 0.017453292522222223;
constexpr double kWindHalfDegrees = 0.00872663888888889;
constexpr double kLightHalfDegrees = 0.008726646261111111;

inline int Clamp15(int64_t v) {
    return static_cast<int>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

// v >> 4 with the sign kept, as an arithmetic shift gives it.
inline int64_t ShiftDown4(int64_t v) {
    return v >= 0 ? v / 16 : -((-v + 15) / 16);
}

}  // namespace

const int RainEngine::streakProfile[kProfiles][kLongestProfile] = {
    {80, 255, 80, 0, 0, 0}, {20, 50, 180, 255, 100, 40}, {70, 190, 255, 100, 0, 0},
    {120, 255, 0, 0, 0, 0}, {70, 140, 255, 0, 0, 0},
};
const int RainEngine::streakProfileLength[kProfiles] = {3, 6, 4, 2, 3};

double SmoothRamp(double x, double lo, double hi) {
    // A ramp without width is a step at its end.
    if (!(hi != lo)) return x > lo ? 1.0 : 0.0;
    const double t = (x - lo) / (hi - lo);
    if (t < 0.0) return 0.0;
    if (t >= 1.0) return 1.0;
    return (3.0 - 2.0 * t) * t * t;
}

RainEngine::RainEngine() : ParticleEngine(ParticleKind::Rain) {
    // The first draw of the engine's sequence seeds it.
    for (int i = 0; i < 256; ++i) {
        const int k = TruncateToInt(NextRandom() * 5.0);
        streakProfileIndex[i] = k < 0 ? 0 : (k > kProfiles - 1 ? kProfiles - 1 : k);
    }
}

// ---- Parameters --------------------------------------------------------------------------------

void RainEngine::FillStepParameters() {
    StepParameters& p = pool.params;
    const double R = outputPort.image->referenceScale;
    const double W = p.width, H = p.height;

    p.densityMean = F(density.Double());
    p.densityVar = F(density.Double() * 0.1);
    p.lifeMean = F(lifetime.Double());
    p.lifeVar = F(lifetime.Double() * 0.1);
    p.extinctionMean = F(extinction.Double());
    p.extinctionVar = F(extinction.Double() * 0.1);
    p.jitterRadius = F(positionVar.Double() / R);
    p.startSpeed = F(initialVelocity.Double() / R);
    p.speedVar = F(velocityVar.Double() * 0.01);
    p.spinVar = 0.0f;
    p.speedGain = 1.0f;
    p.colourVar = F(colourVar.Double() * 0.01);
    p.monoVar = F(monoVar.Double() * 0.01);
    p.baseColour[0] = rainColour.Sample(0);
    p.baseColour[1] = rainColour.Sample(1);
    p.baseColour[2] = rainColour.Sample(2);
    p.baseColour[3] = F(initIntensity.Double() * 327.67);

    p.gravity = gravityOn.Flag() ? F(gravity.Double() / R) : 0.0f;
    p.gravityCos = F(std::cos(gravAngle.Double() * kDegrees));
    p.gravitySin = F(std::sin(gravAngle.Double() * kDegrees));
    p.friction = frictionOn.Flag() ? F(friction.Double()) : 0.0f;
    const bool swirl = turbulence.Flag();
    p.swirlDensity = swirl ? F(swirlDens.Double()) : 0.0f;
    p.swirlAmp = swirl ? F(swirlAmp.Double() / R) : 0.0f;
    p.swirlRamp = swirl ? F(swirlMaxTime.Double()) : 0.0f;

    p.windX = F(W * wind.X());
    p.windY = F(H * wind.Y());
    const double dx = W * windTarget.X() - W * wind.X(), dy = H * windTarget.Y() - H * wind.Y();
    const double length = std::sqrt(dx * dx + dy * dy);
    if (length > 0.0) {
        const double reciprocal = 1.0 / length;
        p.windDirX = F(dx * reciprocal);
        p.windDirY = F(dy * reciprocal);
    } else {
        // A Target on the Wind point has no direction: nothing passes the cone test.
        p.windDirX = p.windDirY = std::numeric_limits<float>::quiet_NaN();
    }
    p.windCos = F(std::cos(windSpread.Double() * kWindHalfDegrees));
    p.windSpeed = windOn.Flag() ? F(windSpeed.Double() / R) : 0.0f;
    p.preRolling = preRollRequested;
    p.rebound = puddleBounce.Flag() ? F(puddleRebound.Double() * 0.01) : 0.0f;
    p.mostBounces = bounces.Int();

    Look& k = look;
    const int fade = fadeMode.Int() - 1;
    k.fadeMode = fade < 0 || fade > 2 ? 2 : fade;
    k.condensation = F(condensation.Double() * 0.01);
    for (int c = 0; c < 3; ++c)
        k.lightColour[c] = lightColour.Sample(c);
    k.streakScale = streakScale.Double() * 0.01;
    k.light = lightOn.Flag() && lightInten.Double() > 0.0;
    k.lightX = W * light.X();
    k.lightY = H * light.Y();
    k.axisX = W * lightTarget.X() - k.lightX;
    k.axisY = H * lightTarget.Y() - k.lightY;
    const double axis = std::sqrt(k.axisX * k.axisX + k.axisY * k.axisY);
    if (axis > 0.0001) {
        k.axisX /= axis;
        k.axisY /= axis;
    }
    k.halfSpread = F(lightSpread.Double() * kLightHalfDegrees);
    k.inten = lightInten.Double();
    k.minBright = minBright.Double();
    k.glistenTight = glistenTight.Double();
}

void RainEngine::BirthEnds(double* x0, double* y0, double* x1, double* y1) const {
    *x0 = left.X();
    *y0 = left.Y();
    *x1 = right.X();
    *y1 = right.Y();
}

int RainEngine::PreRollSteps() const {
    return preRoll.Int();
}

bool RainEngine::UseBirthMatte() const {
    return useBirthMatte.Flag();
}

bool RainEngine::PuddleBounce() const {
    return puddleBounce.Flag();
}

const WorkImage* RainEngine::BounceMatte() const {
    return bouncePort.image;
}

// ---- Drawing -----------------------------------------------------------------------------------

void RainEngine::DrawPass() {
    RunOverRows(&RainEngine::DrawBand, pool.params.height);
}

void RainEngine::DrawBand(int first, int last) {
    if (first > last) return;
    for (const ParticleRecord* r = pool.activeHead; r; r = r->next) {
        if (IsAborted()) return;
        DrawDrop(*r, first, last);
    }
}

void RainEngine::DrawDrop(const ParticleRecord& r, int firstRow, int lastRow) const {
    WorkImage* out = outputPort.image;
    const Look& k = look;
    // Head at the position, tail Streak Scale steps back along the latest move.
    const int hx = TruncateToInt(r.x + 0.5), hy = TruncateToInt(r.y + 0.5);
    const int tx = TruncateToInt(r.x - (static_cast<double>(r.x) - r.prevX) * k.streakScale + 0.5);
    const int ty = TruncateToInt(r.y - (static_cast<double>(r.y) - r.prevY) * k.streakScale + 0.5);
    // lastRow is inclusive, yet a streak that starts on it is left to no band.
    if ((hy > ty ? hy : ty) < firstRow || (hy < ty ? hy : ty) >= lastRow) return;

    int64_t R = TruncateToInt(r.red), G = TruncateToInt(r.green), B = TruncateToInt(r.blue);
    const int64_t L = ShiftDown4(5 * R + 8 * G + 3 * B);
    const double extinction = r.extinction, age = r.age;
    int64_t A;
    switch (k.fadeMode) {
        case 0:
            A = TruncateToInt(L * (extinction - age) / extinction);
            break;
        case 1:
            A = L;
            break;
        default:
            A = TruncateToInt((extinction - age) * r.alpha / extinction);
            break;
    }
    A = Clamp15(A);

    // Condensation: the drop fades in over its life, from the Condensation level.
    double shortest = r.lifetime < r.extinction ? r.lifetime : r.extinction;
    if (shortest < 1.0) shortest = 1.0;
    double c = age / shortest + k.condensation;
    if (c > 1.0) c = 1.0;
    A = TruncateToInt(A * std::sin(c * 1.57078));

    int glisten = 0;
    if (k.light) {
        double px = r.x - k.lightX, py = r.y - k.lightY;
        const double distance = std::sqrt(px * px + py * py);
        if (distance > 0.0001) {
            px /= distance;
            py /= distance;
        }
        const float dot = F(px * k.axisX + py * k.axisY);
        double f;
        if (dot > 0.0f) {
            // A drop on the axis may come out a hair above 1; it is on the axis.
            const double angle = std::acos(dot < 1.0f ? static_cast<double>(dot) : 1.0);
            f = (1.0 - SmoothRamp(angle, k.halfSpread * 0.7, k.halfSpread)) * k.inten * 0.01 +
                k.minBright * 0.01;
            glisten =
                TruncateToInt(std::pow(static_cast<double>(dot), k.glistenTight) * f * 32767.0);
        } else {
            f = k.minBright * 0.01;
        }
        R = TruncateToInt(TruncateToInt(R + static_cast<double>(k.lightColour[0])) * f);
        G = TruncateToInt(TruncateToInt(G + static_cast<double>(k.lightColour[1])) * f);
        B = TruncateToInt(TruncateToInt(B + static_cast<double>(k.lightColour[2])) * f);
        A = TruncateToInt(A * f);
    }

    StreakPen pen;
    pen.red = Clamp15(R);
    pen.green = Clamp15(G);
    pen.blue = Clamp15(B);
    pen.density = Clamp15(A);
    pen.glisten = glisten;
    const int profile = streakProfileIndex[r.address & 255u];
    pen.profile = streakProfile[profile];
    pen.profileLength = streakProfileLength[profile];
    pen.sideOnLastRow = false;
    DrawStreak(out, out->width, tx, ty, hx, hy, pen, firstRow, lastRow);
}

// ---- Buttons and visibility --------------------------------------------------------------------

void RainEngine::OnDemos(double time) {
    int number = 1;
    demos.GetIndex1(kWholeValue, &number);
    ApplyPreset(number, time);
}

template <SingleInputBinding RainEngine::*B>
void RainEngine::OnRestart(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) Restart();
}

template <SingleInputBinding RainEngine::*B>
void RainEngine::OnRestartPreRoll(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) RestartPreRoll();
}

template <SingleInputBinding RainEngine::*B>
void RainEngine::OnDoPreRoll(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) DoPreRoll();
}

namespace {

bool IsOn(const InputBinding& b) {
    int on = 0;
    b.GetInt(kWholeValue, &on);
    return on != 0;
}

}  // namespace

void RainEngine::OnGravity(double time) {
    (void)time;
    const bool hide = !IsOn(gravityOn);
    gravity.SetHidden(hide);
    gravAngle.SetHidden(hide);
}

void RainEngine::OnFriction(double time) {
    (void)time;
    friction.SetHidden(!IsOn(frictionOn));
}

void RainEngine::OnTurbulence(double time) {
    (void)time;
    const bool hide = !IsOn(turbulence);
    swirlDens.SetHidden(hide);
    swirlAmp.SetHidden(hide);
    swirlMaxTime.SetHidden(hide);
}

void RainEngine::OnWind(double time) {
    (void)time;
    const bool hide = !IsOn(windOn);
    wind.SetHidden(hide);
    windTarget.SetHidden(hide);
    windSpread.SetHidden(hide);
    windSpeed.SetHidden(hide);
}

void RainEngine::OnPuddleBounce(double time) {
    (void)time;
    const bool hide = !IsOn(puddleBounce);
    puddleRebound.SetHidden(hide);
    bounces.SetHidden(hide);
}

void RainEngine::OnLight(double time) {
    (void)time;
    const bool hide = !IsOn(lightOn);
    light.SetHidden(hide);
    lightTarget.SetHidden(hide);
    glistenTight.SetHidden(hide);
    lightSpread.SetHidden(hide);
    lightInten.SetHidden(hide);
    minBright.SetHidden(hide);
    lightColour.SetHidden(hide);
}

void RainEngine::FirstFrame() {
    OnGravity(kNoTime);
    OnFriction(kNoTime);
    OnTurbulence(kNoTime);
    OnWind(kNoTime);
    OnPuddleBounce(kNoTime);
    OnLight(kNoTime);
}

// ---- On-screen controls ------------------------------------------------------------------------

void RainEngine::PlaceControls() {
    if (birthControl) birthControl->zoneRadius = F(positionVar.Double() * viewWidth / 720.0);
    if (lightControl) {
        lightControl->visible = lightOn.Flag() && lightInten.Double() != 0.0;
        lightControl->spreadDegrees = F(lightSpread.Double());
    }
    if (windControl) {
        windControl->visible = windOn.Flag() && windSpeed.Double() != 0.0;
        windControl->spreadDegrees = F(windSpread.Double());
    }
}

void RainEngine::DrawControls() {
    PlaceControls();
    ToolOverlay::DrawControls();
}

void RainEngine::ControlEvent(int event, float x, float y) {
    // The birth ends first, then the light pair and the wind pair while their cones are shown.
    PlaceControls();
    ShownControlsEvent(event, x, y);
}

// ---- Adapter -----------------------------------------------------------------------------------

const ToolDecl& RainToolDecl() {
    using E = RainEngine;
    using namespace particle_rows;
    static const InputDecl rows[] = {
        Combo("Dem1", "Demos", 0, 0.0,
              {"Rain", "Drizzle", "Squall", "Sheet", "Light", "BounceA", "BounceB", "Movement",
               "Bouncing"})
            .Allowed(0.0, 8.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::demos>()
            .OnChange<&E::OnDemos>(),
        button("Ren1", "Restart Rain", 0)
            .Bind<&E::restart1>()
            .OnChange<&E::OnRestart<&E::restart1>>(),
        button("Rel1", "Restart+PreRoll", 0)
            .Bind<&E::restartPreRoll1>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll1>>(),
        button("Dol1", "Do PreRoll", 0)
            .Bind<&E::doPreRoll1>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll1>>(),
        slider("Prll", "PreRoll", 0, 50.0, 1.0, 1000.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::preRoll>(),
        button("Adce", "Advance", 0).Bind<&E::advance>(),
        Offset("Left", "Left", 0, 0.2, 0.8).Bind<&E::left>(),
        Offset("Riht", "Right", 0, 0.8, 0.8).Bind<&E::right>(),
        slider("Poar", "Position Var", 0, 20.0, 0.0, 1000.0).Bind<&E::positionVar>(),
        slider("Dety", "Density", 0, 40.0, 0.0, 10000.0).Bind<&E::density>(),
        slider("Lime", "Lifetime", 0, 80.0, 1.0, 1000.0).Bind<&E::lifetime>(),
        slider("Exon", "Extinction", 0, 180.0, 1.0, 1000.0).Bind<&E::extinction>(),
        slider("Inty", "Initial Velocity", 0, -5.0, -80.0, 80.0).Bind<&E::initialVelocity>(),
        slider("Vear", "Velocity Var", 0, 100.0, 0.0, 100.0).Bind<&E::velocityVar>(),
        slider("Stle", "Streak Scale", 0, 100.0, 0.1, 1000.0).Bind<&E::streakScale>(),
        Checkbox("Uste", "Use Birth Matte", 0, 0.0).Bind<&E::useBirthMatte>(),
        toggle("Puce", "Puddle Bounce", 0, 0.0)
            .Bind<&E::puddleBounce>()
            .OnChange<&E::OnPuddleBounce>(),
        slider("Pung", "Puddle Rebound", 0, 10.0, -200.0, 200.0).Bind<&E::puddleRebound>(),
        slider("Boes", "Bounces", 0, 26.0, 1.0, 200.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::bounces>(),
        button("Ren2", "Restart Rain", 1)
            .Bind<&E::restart2>()
            .OnChange<&E::OnRestart<&E::restart2>>(),
        button("Rel2", "Restart+PreRoll", 1)
            .Bind<&E::restartPreRoll2>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll2>>(),
        button("Dol2", "Do PreRoll", 1)
            .Bind<&E::doPreRoll2>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll2>>(),
        toggle("Doty", "Gravity", 1, 1.0).Bind<&E::gravityOn>().OnChange<&E::OnGravity>(),
        slider("Grty", "Gravity", 1, 1.0, 0.0, 10.0).Bind<&E::gravity>(),
        wheel("Grle", "Grav Angle", 1, 270.0, 0.0, 359.0).Bind<&E::gravAngle>(),
        toggle("Doon", "Friction", 1, 1.0).Bind<&E::frictionOn>().OnChange<&E::OnFriction>(),
        slider("Fron", "Friction", 1, 0.01, 0.0, 1.0).Bind<&E::friction>(),
        toggle("Doce", "Turbulence", 1, 1.0).Bind<&E::turbulence>().OnChange<&E::OnTurbulence>(),
        slider("Swns", "SwirlDens", 1, 4.4, 0.0, 100.0).Bind<&E::swirlDens>(),
        slider("Swmp", "SwirlAmp", 1, 1.29, 0.0, 100.0).Bind<&E::swirlAmp>(),
        slider("Swim", "SwlMaxTim", 1, 0.0, 0.0, 500.0).Bind<&E::swirlMaxTime>(),
        toggle("Dond", "Wind", 1, 0.0).Bind<&E::windOn>().OnChange<&E::OnWind>(),
        Offset("Wice", "Wind", 1, 0.2, 0.4).Bind<&E::wind>(),
        Offset("Wiet", "Target", 1, 0.8, 0.4).Bind<&E::windTarget>(),
        wheel("Wiad", "Wind Spread", 1, 90.0, 0.0, 180.0).Bind<&E::windSpread>(),
        slider("Wied", "Wind Speed", 1, 2.0, 0.0, 180.0).Bind<&E::windSpeed>(),
        button("Ren4", "Restart Rain", 2)
            .Bind<&E::restart4>()
            .OnChange<&E::OnRestart<&E::restart4>>(),
        button("Rel4", "Restart+PreRoll", 2)
            .Bind<&E::restartPreRoll4>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll4>>(),
        button("Dol4", "Do PreRoll", 2)
            .Bind<&E::doPreRoll4>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll4>>(),
        slider("In46", "Init Intensity", 2, 100.0, 0.0, 100.0).Bind<&E::initIntensity>(),
        slider("Coon", "Condensation", 2, 25.0, 0.0, 100.0).Bind<&E::condensation>(),
        slider("Coar", "ColourVar", 2, 0.0, 0.0, 100.0).Bind<&E::colourVar>(),
        slider("Moar", "MonoVar", 2, 0.0, 0.0, 100.0).Bind<&E::monoVar>(),
        ColourChannel("RauR", "Rain Colour", 2, 1, 0, 1.0).Bind<&E::rainColour>(),
        ColourChannel("RauG", "Rain Colour", 2, 1, 1, 1.0).Bind<&E::rainColour>(),
        ColourChannel("RauB", "Rain Colour", 2, 1, 2, 1.0).Bind<&E::rainColour>(),
        ColourChannel("RauA", "Rain Colour", 2, 1, 3, 0.499992).Bind<&E::rainColour>(),
        Combo("Fade", "FadeMode", 2, 2.0, {"Col+Dens", "Colour", "Density"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fadeMode>(),
        toggle("Doht", "Light", 3, 0.0).Bind<&E::lightOn>().OnChange<&E::OnLight>(),
        Offset("Lice", "Light", 3, 0.9, 0.5).Bind<&E::light>(),
        Offset("Liet", "Light Target", 3, 0.1, 0.5).Bind<&E::lightTarget>(),
        slider("Glht", "Glisten Tight", 3, 30.0, 0.0, 1000.0).Bind<&E::glistenTight>(),
        wheel("Liad", "Light Spread", 3, 90.0, 0.0, 180.0).Bind<&E::lightSpread>(),
        slider("Lien", "Light Inten", 3, 50.0, 0.0, 200.0).Bind<&E::lightInten>(),
        slider("Miht", "Min. Bright", 3, 60.0, 0.0, 100.0).Bind<&E::minBright>(),
        ColourChannel("LiuR", "Light Colour", 3, 2, 0, 1.0).Bind<&E::lightColour>(),
        ColourChannel("LiuG", "Light Colour", 3, 2, 1, 1.0).Bind<&E::lightColour>(),
        ColourChannel("LiuB", "Light Colour", 3, 2, 2, 1.0).Bind<&E::lightColour>(),
        ColourChannel("LiuA", "Light Colour", 3, 2, 3, 0.499992).Bind<&E::lightColour>(),
        Checkbox("Aute", "AutoLightUpdate", 3, 0.0).Bind<&E::autoLightUpdate>(),
        ImageIn("Background Clip", "Background Clip", 1),
        ImageIn("Birth Clip", "Birth Clip", 2).Optional(),
        ImageIn("Bounce Clip", "Bounce Clip", 3).Optional().Port<&E::bouncePort>(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{
        {"Q9 Rain", "Forces", "Colour", "Light"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

RainOperator::RainOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : RainOperator(reg, script, tags, new RainEngine()) {}

RainOperator::RainOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                           RainEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, RainToolDecl()) {
    // The birth ends first, then the light pair, then the wind pair.
    engine->birthControl = AddScreenControl<BirthLineControl>({"Left", "Riht"});
    engine->lightControl = AddScreenControl<ConeControl>({"Lice", "Liet"});
    engine->windControl = AddScreenControl<ConeControl>({"Wice", "Wiet"});
}
