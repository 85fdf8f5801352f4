#include "particles/Smoke.h"

#include <cmath>
#include <limits>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Tags.h"
#include "particles/ParticleRows.h"
#include "particles/Streak.h"

namespace {

inline float F(double v) {
    return static_cast<float>(v);
}

// Degrees to radians for the gravity, and half-degrees to radians for the spread of the wind.
constexpr double kDegrees = 0.017453292522222223;
constexpr double kWindHalfDegrees = 0.008726646261111111;

// The stamp of a particle; the index is fixed at birth within 0..40.
inline int StampOf(const ParticleRecord& r) {
    return r.stampIndex < 0 ? 0 : (r.stampIndex > kStampCount - 1 ? kStampCount - 1 : r.stampIndex);
}

inline int Clamp15(int64_t v) {
    return static_cast<int>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

// v >> 4 with the sign kept, as an arithmetic shift gives it.
inline int64_t ShiftDown4(int64_t v) {
    return v >= 0 ? v / 16 : -((-v + 15) / 16);
}

// An aspect factor as the step uses it: one that is not a positive finite number counts as 1.
float UsableAspect(double v) {
    return std::isfinite(v) && v > 0.0 ? static_cast<float>(v) : 1.0f;
}

}  // namespace

SmokeEngine::SmokeEngine() : ParticleEngine(ParticleKind::Smoke) {
    MakePuffStamps(&puffStamps);
}

SmokeEngine::~SmokeEngine() {
    delete pointLayer;
}

// ---- Parameters --------------------------------------------------------------------------------

bool SmokeEngine::PrepareRender() {
    const WorkImage* out = outputPort.image;
    // The puffs are widened by the quotient of the two 32-bit aspect factors, taken in double, as
    // every user of the stamps takes it.
    const double ratio =
        static_cast<double>(UsableAspect(out->pixelScale[1])) / UsableAspect(out->pixelScale[0]);
    if (puffAspect.NeedsRebuild(ratio)) {
        try {
            ResampleStampSet(puffStamps, ratio, true, &puffSet);
        } catch (const std::bad_alloc&) {
            // Without a working set nothing can be drawn: the render ends here.
            puffAspect = StampAspect();
            return false;
        }
        puffAspect.Store(ratio);
    }
    return true;
}

void SmokeEngine::FillStepParameters() {
    StepParameters& p = pool.params;
    const double R = outputPort.image->referenceScale;
    const double W = p.width, H = p.height;
    const double ratio = F(static_cast<double>(p.aspectY) / p.aspectX);

    p.densityMean = F(density.Double() / R);
    p.densityVar = F(density.Double() / (R * 10.0));
    p.lifeMean = F(lifetime.Double());
    p.lifeVar = F(lifetime.Double() * 0.1);
    p.extinctionMean = F(extinction.Double());
    p.extinctionVar = F(extinction.Double() * 0.1);
    p.jitterRadius = F(W * positionVar.Double() * p.aspectX);
    p.startSpeed = F(initialHeat.Double() / R * ratio);
    p.speedVar = F(velocityVar.Double() * 0.01);
    p.spinVar = 0.0f;
    p.speedGain = 1.0f;
    p.colourVar = F(colourVar.Double() * 0.01);
    p.monoVar = F(monoVar.Double() * 0.01);
    p.baseColour[0] = smokeColour.Sample(0);
    p.baseColour[1] = smokeColour.Sample(1);
    p.baseColour[2] = smokeColour.Sample(2);
    p.baseColour[3] = F(initIntensity.Double() * 327.67);

    p.gravity = gravityOn.Flag() ? F(gravity.Double() / R * ratio) : 0.0f;
    p.gravityCos = F(std::cos(gravAngle.Double() * kDegrees));
    p.gravitySin = F(std::sin(gravAngle.Double() * kDegrees) / ratio);
    p.friction = frictionOn.Flag() ? F(friction.Double()) : 0.0f;
    // The swirl's strength and ramp are read whatever Turbulence says; its density switches it.
    p.swirlDensity = turbulence.Flag() ? F(swirlDens.Double()) : 0.0f;
    p.swirlAmp = F(swirlAmp.Double() / R);
    p.swirlRamp = F(swirlMaxTime.Double());

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
    p.sizeMean = F(puffSize.Double() / R);
    p.sizeVar = F(puffSizeVar.Double() * 0.01);

    Drawing& d = drawing;
    const int lookIndex = look.Int() - 1;
    d.look = lookIndex < 0 || lookIndex > 2 ? 2 : lookIndex;
    const int fade = fadeMode.Int() - 1;
    d.fadeMode = fade < 0 || fade > 2 ? 2 : fade;
    d.condensation = F(condensation.Double() * 0.01);
    d.pointBlur = pointBlur.Double();
}

void SmokeEngine::SizeAtBirth(ParticleRecord* record) {
    const StepParameters& p = pool.params;
    const int i =
        TruncateToInt(((2.0 * NextRandom() - 1.0) * p.sizeVar + 1.0) * p.sizeMean * (41 * 0.05));
    record->stampIndex = i < 0 ? 0 : (i > kStampCount - 1 ? kStampCount - 1 : i);
}

void SmokeEngine::BirthEnds(double* x0, double* y0, double* x1, double* y1) const {
    *x0 = left.X();
    *y0 = left.Y();
    *x1 = right.X();
    *y1 = right.Y();
}

int SmokeEngine::PreRollSteps() const {
    return preRoll.Int();
}

bool SmokeEngine::UseBirthMatte() const {
    return useBirthMatte.Flag();
}

// ---- The render around the step ---------------------------------------------------------------

void SmokeEngine::CopyBackground() {
    if (drawing.look != 0) {
        ParticleEngine::CopyBackground();
        return;
    }
    // Points go on a clear layer of their own; the output keeps the background until the end.
    const int W = pool.params.width, H = pool.params.height;
    if (pointLayer && (pointLayer->width != W || pointLayer->height != H)) {
        delete pointLayer;
        pointLayer = nullptr;
    }
    if (!pointLayer) pointLayer = new WorkImage(W, H);
    pointLayer->Fill(0, 0, 0, 0);
}

void SmokeEngine::FinishRender() {
    if (drawing.look != 0 || !pointLayer) return;
    if (drawing.pointBlur > 0.01) pointLayer->GaussianBlur(F(drawing.pointBlur), nullptr, 2, 1);
    RunOverRows(&SmokeEngine::CompositeRows, pool.params.height);
}

void SmokeEngine::CompositeRows(int first, int last) {
    WorkImage* out = outputPort.image;
    const WorkImage* layer = pointLayer;
    if (!out || !layer) return;
    // The layer's colour is already weighted by its cover, so it is laid over as it stands.
    const int W = out->width < layer->width ? out->width : layer->width;
    const int H = out->height < layer->height ? out->height : layer->height;
    if (first < 0) first = 0;
    if (last > H - 1) last = H - 1;
    for (int y = first; y <= last; ++y) {
        uint16_t* o = out->rows[y];
        const uint16_t* l = layer->rows[y];
        for (int x = 0; x < W * 4; x += 4) {
            const uint32_t m = 32767u - l[x + 3];
            for (int c = 0; c < 4; ++c)
                o[x + c] = static_cast<uint16_t>(Clamp15(l[x + c] + (o[x + c] * m) / 32767u));
        }
    }
}

// ---- Drawing -----------------------------------------------------------------------------------

void SmokeEngine::DrawPass() {
    RunOverRows(&SmokeEngine::DrawBand, pool.params.height);
}

void SmokeEngine::DrawBand(int first, int last) {
    if (first > last) return;
    for (const ParticleRecord* r = pool.activeHead; r; r = r->next) {
        if (IsAborted()) return;
        DrawSmoke(*r, first, last);
    }
}

void SmokeEngine::DrawSmoke(const ParticleRecord& r, int firstRow, int lastRow) {
    const Drawing& d = drawing;
    const int hx = TruncateToInt(r.x + 0.5), hy = TruncateToInt(r.y + 0.5);
    int tx = 0, ty = 0;
    if (d.look == 0) {
        if (hy < firstRow || hy > lastRow) return;
    } else if (d.look == 1) {
        tx = TruncateToInt(r.prevX + 0.5);
        ty = TruncateToInt(r.prevY + 0.5);
        if ((hy < firstRow && ty < firstRow) || (hy < ty ? hy : ty) > lastRow) return;
    } else {
        // A puff that misses the band costs nothing more (its stamp's own test follows).
        const int half = puffSet[StampOf(r)].height / 2;
        if (static_cast<int64_t>(hy) + half < firstRow || static_cast<int64_t>(hy) - half > lastRow)
            return;
    }

    const int64_t R = TruncateToInt(r.red), G = TruncateToInt(r.green), B = TruncateToInt(r.blue);
    const int64_t L = ShiftDown4(5 * R + 8 * G + 3 * B);
    // The fade by age is worked in single precision.
    const float extinction = static_cast<float>(r.extinction);
    int64_t A;
    switch (d.fadeMode) {
        case 0:
            A = TruncateToInt(static_cast<float>(L) * (extinction - r.age) / extinction);
            break;
        case 1:
            A = L;
            break;
        default:
            A = TruncateToInt((extinction - r.age) * r.alpha / extinction);
            break;
    }
    A = Clamp15(A);
    // Condensation: the particle fades in over its life, from the Condensation level.
    double shortest = r.lifetime < r.extinction ? r.lifetime : r.extinction;
    if (shortest < 1.0) shortest = 1.0;
    double c = r.age / shortest + d.condensation;
    if (c > 1.0) c = 1.0;
    A = Clamp15(TruncateToInt(A * std::sin(c * 1.57078)));
    const int colour[3] = {Clamp15(R), Clamp15(G), Clamp15(B)};

    switch (d.look) {
        case 0:
            DrawPoint(hx, hy, firstRow, lastRow, colour, static_cast<int>(A));
            break;
        case 1: {
            StreakPen pen;
            pen.red = colour[0];
            pen.green = colour[1];
            pen.blue = colour[2];
            pen.density = static_cast<int>(A);
            pen.sideOnLastRow = true;
            WorkImage* out = outputPort.image;
            DrawStreak(out, out->width, tx, ty, hx, hy, pen, firstRow, lastRow);
            break;
        }
        default:
            DrawPuff(r, hx, hy, firstRow, lastRow, colour, static_cast<int>(A));
            break;
    }
}

void SmokeEngine::DrawPoint(int hx, int hy, int firstRow, int lastRow, const int* colour, int A) {
    WorkImage* layer = pointLayer;
    if (!layer || hx < 0 || hx >= layer->width || hy < 0 || hy >= layer->height) return;
    if (hy < firstRow || hy > lastRow) return;
    // A quarter of the density, so that it takes several points on a pixel to build up.
    const int64_t a = A + (A > 16383 ? 1 : 0);
    const int64_t c = a / 4;
    const int64_t g = 32768 - c;
    uint16_t* p = layer->rows[hy] + static_cast<size_t>(hx) * 4;
    for (int k = 0; k < 3; ++k)
        p[k] = static_cast<uint16_t>((p[k] * g + c * colour[k]) >> 15);
    p[3] = static_cast<uint16_t>((p[3] * g + c * 32767) >> 15);
}

void SmokeEngine::DrawPuff(const ParticleRecord& r, int hx, int hy, int firstRow, int lastRow,
                           const int* colour, int A) {
    WorkImage* out = outputPort.image;
    const Stamp& s = puffSet[StampOf(r)];
    const int w = s.width, h = s.height, W = out->width, H = out->height;
    const int64_t x = hx, y = hy;
    if (h < 1 || w < 1 || x + w / 2 < 0 || x - w / 2 >= W || y + h / 2 < firstRow ||
        y - h / 2 > lastRow)
        return;
    // Only the rows of the band and the columns of the picture that the stamp covers.
    const int64_t left = x - w / 2, top = y - h / 2;
    const int64_t x0 = left < 0 ? 0 : left, x1 = left + w - 1 < W - 1 ? left + w - 1 : W - 1;
    int64_t y0 = top < firstRow ? firstRow : top,
            y1 = top + h - 1 < lastRow ? top + h - 1 : lastRow;
    if (y0 < 0) y0 = 0;
    if (y1 > H - 1) y1 = H - 1;
    // With c + k = 32767 and samples within 0..32767, p * k + c * colour stays below 2^30 and the
    // result within 0..32767, so signed 16-bit factors and 32-bit sums hold it exactly.
    const uint32_t density = static_cast<uint32_t>(A);
#if defined(__SSE2__)
    // The four samples of a pixel paired with c, against k paired with the four pen words: one
    // multiply-add gives the four sums.
    const __m128i pen =
        _mm_set_epi16(32767, 0, static_cast<int16_t>(colour[2]), 0, static_cast<int16_t>(colour[1]),
                      0, static_cast<int16_t>(colour[0]), 0);
    const __m128i zero = _mm_setzero_si128();
#else
    const uint32_t pen[4] = {static_cast<uint32_t>(colour[0]), static_cast<uint32_t>(colour[1]),
                             static_cast<uint32_t>(colour[2]), 32767u};
#endif
    for (int64_t py = y0; py <= y1; ++py) {
        const int32_t* row = s.values.data() + static_cast<size_t>(py - top) * w + (x0 - left);
        uint16_t* p = out->rows[py] + static_cast<size_t>(x0) * 4;
        const int64_t n = x1 - x0 + 1;
        for (int64_t i = 0; i < n; ++i, p += 4) {
            const int32_t v = row[i];
            const uint32_t value = v < 0 ? 0u : (v > 32767 ? 32767u : static_cast<uint32_t>(v));
            // A stamp of no density still takes one step off the pixels under it.
            const uint32_t c = (value * density) >> 15;
            const uint32_t k = 32767u - c;
#if defined(__SSE2__)
            const __m128i samples =
                _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), zero);
            const __m128i pairs = _mm_or_si128(samples, _mm_set1_epi32(static_cast<int>(c << 16)));
            const __m128i weights = _mm_or_si128(pen, _mm_set1_epi32(static_cast<int>(k)));
            const __m128i sums = _mm_srli_epi32(_mm_madd_epi16(pairs, weights), 15);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(sums, sums));
#else
            for (int q = 0; q < 4; ++q)
                p[q] = static_cast<uint16_t>((p[q] * k + c * pen[q]) >> 15);
#endif
        }
    }
}

// ---- Buttons and visibility --------------------------------------------------------------------

void SmokeEngine::OnDemos(double time) {
    int number = 1;
    demos.GetIndex1(kWholeValue, &number);
    ApplyPreset(number, time);
}

template <SingleInputBinding SmokeEngine::*B>
void SmokeEngine::OnRestart(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) Restart();
}

template <SingleInputBinding SmokeEngine::*B>
void SmokeEngine::OnRestartPreRoll(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) RestartPreRoll();
}

template <SingleInputBinding SmokeEngine::*B>
void SmokeEngine::OnDoPreRoll(double time) {
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

void SmokeEngine::OnLook(double time) {
    (void)time;
    int number = 3;
    look.GetIndex1(kWholeValue, &number);
    // "Point" blurs its layer; "Puff" sizes its stamps; "Streak" has neither.
    pointBlur.SetHidden(number != 1);
    puffSize.SetHidden(number != 3);
    puffSizeVar.SetHidden(number != 3);
}

void SmokeEngine::OnGravity(double time) {
    (void)time;
    const bool hide = !IsOn(gravityOn);
    gravity.SetHidden(hide);
    gravAngle.SetHidden(hide);
}

void SmokeEngine::OnFriction(double time) {
    (void)time;
    friction.SetHidden(!IsOn(frictionOn));
}

void SmokeEngine::OnTurbulence(double time) {
    (void)time;
    const bool hide = !IsOn(turbulence);
    swirlDens.SetHidden(hide);
    swirlAmp.SetHidden(hide);
    swirlMaxTime.SetHidden(hide);
}

void SmokeEngine::OnWind(double time) {
    (void)time;
    const bool hide = !IsOn(windOn);
    wind.SetHidden(hide);
    windTarget.SetHidden(hide);
    windSpread.SetHidden(hide);
    windSpeed.SetHidden(hide);
}

void SmokeEngine::FirstFrame() {
    OnLook(kNoTime);
    OnGravity(kNoTime);
    OnFriction(kNoTime);
    OnTurbulence(kNoTime);
    OnWind(kNoTime);
}

// ---- On-screen controls ------------------------------------------------------------------------

void SmokeEngine::PlaceControls() {
    // Position Var is a fraction of the width.
    if (birthControl) birthControl->zoneRadius = F(positionVar.Double() * viewWidth);
    if (windControl) {
        windControl->visible = windOn.Flag() && windSpeed.Double() != 0.0;
        windControl->spreadDegrees = F(windSpread.Double());
    }
}

void SmokeEngine::DrawControls() {
    PlaceControls();
    ToolOverlay::DrawControls();
}

void SmokeEngine::ControlEvent(int event, float x, float y) {
    // The birth ends first, then the wind pair while its cone is shown.
    PlaceControls();
    ShownControlsEvent(event, x, y);
}

// ---- Adapter -----------------------------------------------------------------------------------

const ToolDecl& SmokeToolDecl() {
    using E = SmokeEngine;
    using namespace particle_rows;
    static const InputDecl rows[] = {
        Combo("Dem1", "Demos", 0, 0.0,
              {"Dry Ice", "Puff", "Wisp", "Steam", "Gentle Smoke", "Busy Smoke", "Soft Swirl",
               "Billow", "Smoke Stack", "Chimney", "Slow Wisp", "Swamp"})
            .Allowed(0.0, 11.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::demos>()
            .OnChange<&E::OnDemos>(),
        button("Ree1", "Restart Smoke", 0)
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
        Offset("Left", "Left", 0, 0.5, 0.1).Bind<&E::left>(),
        Offset("Riht", "Right", 0, 0.5, 0.3).Bind<&E::right>(),
        slider("Poar", "Position Var", 0, 0.02, 0.0, 2.0).Bind<&E::positionVar>(),
        slider("Dety", "Density", 0, 800.0, 0.0, 10000.0).Bind<&E::density>(),
        slider("Lime", "Lifetime", 0, 80.0, 1.0, 1000.0).Bind<&E::lifetime>(),
        slider("Exon", "Extinction", 0, 80.0, 1.0, 1000.0).Bind<&E::extinction>(),
        Checkbox("Uste", "Use Birth Matte", 0, 0.0).Bind<&E::useBirthMatte>(),
        slider("Inat", "Initial Heat", 0, 8.0, -80.0, 80.0).Bind<&E::initialHeat>(),
        slider("Vear", "Velocity Var", 0, 100.0, 0.0, 100.0).Bind<&E::velocityVar>(),
        Combo("Lode", "Look", 0, 2.0, {"Point", "Streak", "Puff"})
            .Allowed(0.0, 2.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::look>()
            .OnChange<&E::OnLook>(),
        slider("Pour", "PointBlur", 0, 0.0, 0.0, 5.0).Bind<&E::pointBlur>(),
        slider("Puze", "Puff Size", 0, 2.0, 1.0, 20.0).Bind<&E::puffSize>(),
        slider("Puar", "Puff Size Var", 0, 100.0, 0.0, 100.0).Bind<&E::puffSizeVar>(),
        button("Ree2", "Restart Smoke", 1)
            .Bind<&E::restart2>()
            .OnChange<&E::OnRestart<&E::restart2>>(),
        button("Rel2", "Restart+PreRoll", 1)
            .Bind<&E::restartPreRoll2>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll2>>(),
        button("Dol2", "Do PreRoll", 1)
            .Bind<&E::doPreRoll2>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll2>>(),
        toggle("Doty", "Gravity", 1, 1.0).Bind<&E::gravityOn>().OnChange<&E::OnGravity>(),
        slider("Grty", "Gravity", 1, 0.001, 0.0, 10.0).Bind<&E::gravity>(),
        wheel("Grle", "Grav Angle", 1, 270.0, 0.0, 359.0).Bind<&E::gravAngle>(),
        toggle("Doon", "Friction", 1, 1.0).Bind<&E::frictionOn>().OnChange<&E::OnFriction>(),
        slider("Fron", "Friction", 1, 0.01, 0.0, 1.0).Bind<&E::friction>(),
        toggle("Doce", "Turbulence", 1, 1.0).Bind<&E::turbulence>().OnChange<&E::OnTurbulence>(),
        slider("Swns", "SwirlDens", 1, 28.8, 0.0, 100.0).Bind<&E::swirlDens>(),
        slider("Swmp", "SwirlAmp", 1, 3.2, 0.0, 100.0).Bind<&E::swirlAmp>(),
        slider("Swim", "SwlMaxTim", 1, 25.0, 0.0, 500.0).Bind<&E::swirlMaxTime>(),
        toggle("Dond", "Wind", 1, 0.0).Bind<&E::windOn>().OnChange<&E::OnWind>(),
        Offset("Wice", "Wind", 1, 0.2, 0.4).Bind<&E::wind>(),
        Offset("Wiet", "Target", 1, 0.8, 0.4).Bind<&E::windTarget>(),
        wheel("Wiad", "Wind Spread", 1, 33.0, 0.0, 180.0).Bind<&E::windSpread>(),
        slider("Wied", "Wind Speed", 1, 16.0, 0.0, 180.0).Bind<&E::windSpeed>(),
        button("Ree3", "Restart Smoke", 2)
            .Bind<&E::restart3>()
            .OnChange<&E::OnRestart<&E::restart3>>(),
        button("Rel3", "Restart+PreRoll", 2)
            .Bind<&E::restartPreRoll3>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll3>>(),
        button("Dol3", "Do PreRoll", 2)
            .Bind<&E::doPreRoll3>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll3>>(),
        slider("Inty", "Init Intensity", 2, 25.0, 0.0, 100.0).Bind<&E::initIntensity>(),
        slider("Coon", "Condensation", 2, 0.0, 0.0, 100.0).Bind<&E::condensation>(),
        slider("Coar", "ColourVar", 2, 0.0, 0.0, 100.0).Bind<&E::colourVar>(),
        slider("Moar", "MonoVar", 2, 0.0, 0.0, 100.0).Bind<&E::monoVar>(),
        ColourChannel("SmuR", "Smoke Colour", 2, 1, 0, 1.0).Bind<&E::smokeColour>(),
        ColourChannel("SmuG", "Smoke Colour", 2, 1, 1, 1.0).Bind<&E::smokeColour>(),
        ColourChannel("SmuB", "Smoke Colour", 2, 1, 2, 1.0).Bind<&E::smokeColour>(),
        ColourChannel("SmuA", "Smoke Colour", 2, 1, 3, 0.499992).Bind<&E::smokeColour>(),
        Combo("Fade", "FadeMode", 2, 2.0, {"Col+Dens", "Colour", "Density"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fadeMode>(),
        ImageIn("Background Clip", "Background Clip", 1),
        ImageIn("Birth Clip", "Birth Clip", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{
        {"Q9 Smoke", "Forces", "Colour"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

SmokeOperator::SmokeOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : SmokeOperator(reg, script, tags, new SmokeEngine()) {}

SmokeOperator::SmokeOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                             SmokeEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, SmokeToolDecl()) {
    // The birth ends first, then the wind pair.
    engine->birthControl = AddScreenControl<BirthLineControl>({"Left", "Riht"});
    engine->windControl = AddScreenControl<ConeControl>({"Wice", "Wiet"});
}
