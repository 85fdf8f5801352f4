#include "particles/Snow.h"

#include <cmath>

#include "frame/SmallMaths.h"
#include "host/Tags.h"
#include "particles/ParticleRows.h"
#include "particles/Rain.h"
#include "particles/Streak.h"

namespace {

inline float F(double v) {
    return static_cast<float>(v);
}

// Degrees to radians for the gravity; half-degrees to radians for the wind's and the glints' cones.
constexpr double kDegrees = 0.017453292522222223;
constexpr double kWindHalfDegrees = 0.00872663888888889;
constexpr double kGlintHalfDegrees = 0.008726646261111111;

// Snow has no Extinction input: every flake fades over this many steps.
constexpr double kExtinction = 8000.0;
// A matte or mask sample above this counts as "on".
constexpr int kHalfScale = 0x4000;
// A settled colour above this in any of red, green, blue may glint.
constexpr int kBrightSettled = 0x7f37;

inline int Clamp15(int64_t v) {
    return static_cast<int>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

inline int ClampIndex(int i, int count) {
    return i < 0 ? 0 : (i > count - 1 ? count - 1 : i);
}

// v >> 4 with the sign kept, as an arithmetic shift gives it.
inline int64_t ShiftDown4(int64_t v) {
    return v >= 0 ? v / 16 : -((-v + 15) / 16);
}

// An aspect factor as the step uses it: one that is not a positive finite number counts as 1.
float UsableAspect(double v) {
    return std::isfinite(v) && v > 0.0 ? static_cast<float>(v) : 1.0f;
}

// The colour words and density a particle is drawn with.
struct Ink {
    int rgb[3];
    int density;
};

Ink InkOf(const ParticleRecord& r, int fadeMode) {
    const int64_t R = TruncateToInt(r.red), G = TruncateToInt(r.green), B = TruncateToInt(r.blue);
    const int64_t L = ShiftDown4(5 * R + 8 * G + 3 * B);
    // Ages are whole steps and lifetimes end long before the fade does, so ext - age > 0.
    const int64_t extinction = r.extinction, age = static_cast<int64_t>(r.age);
    int64_t A;
    switch (fadeMode) {
        case 0:
            A = extinction != 0 ? L * (extinction - age) / extinction : 0;
            break;
        case 1:
            A = L;
            break;
        default:
            A = TruncateToInt(static_cast<double>(extinction - age) * r.alpha /
                              static_cast<double>(extinction));
            break;
    }
    return Ink{{Clamp15(R), Clamp15(G), Clamp15(B)}, Clamp15(A)};
}

}  // namespace

// ---- Stamps
// --------------------------------------------------------------------------------------

void LayStamp(WorkImage* image, const StampView& stamp, int hx, int hy, int A, const int* rgb,
              StampBlend blend, int first, int last) {
    if (!image || !stamp.values || stamp.width < 1 || stamp.height < 1) return;
    const int64_t W = image->width;
    if (first < 0) first = 0;
    if (last > image->height - 1) last = image->height - 1;
    const int64_t x0 = static_cast<int64_t>(hx) - stamp.width / 2;
    const int64_t y0 = static_cast<int64_t>(hy) - stamp.height / 2;
    if (y0 > last || y0 + stamp.height - 1 < first || x0 > W - 1 || x0 + stamp.width - 1 < 0)
        return;
    const int64_t rowStart = y0 < first ? first - y0 : 0;
    const int64_t rowEnd = y0 + stamp.height - 1 > last ? last - y0 : stamp.height - 1;
    const int64_t colStart = x0 < 0 ? -x0 : 0;
    const int64_t colEnd = x0 + stamp.width - 1 > W - 1 ? W - 1 - x0 : stamp.width - 1;
    if (blend == StampBlend::Output) {
        // The common case, in 32-bit words: with the density and colours within 0..32767 and
        // samples of 16 bits, the sums stay below 2^32.
        const uint32_t a = static_cast<uint32_t>(Clamp15(A));
        const uint32_t colour[4] = {static_cast<uint32_t>(Clamp15(rgb[0])),
                                    static_cast<uint32_t>(Clamp15(rgb[1])),
                                    static_cast<uint32_t>(Clamp15(rgb[2])), 32767u};
        for (int64_t sy = rowStart; sy <= rowEnd; ++sy) {
            const int32_t* values = stamp.values + sy * stamp.width;
            uint16_t* p = image->rows[y0 + sy] + (x0 + colStart) * 4;
            for (int64_t sx = colStart; sx <= colEnd; ++sx, p += 4) {
                const int32_t v = values[sx];
                const uint32_t s = v <= 0 ? 0u : (v >= 255 ? 255u : static_cast<uint32_t>(v));
                const uint32_t c = (s * a) >> 8, keep = 32767u - c;
                for (int k = 0; k < 4; ++k) {
                    const uint32_t t = (p[k] * keep + c * colour[k]) >> 15;
                    p[k] = static_cast<uint16_t>(t > 32767u ? 32767u : t);
                }
            }
        }
        return;
    }
    const int64_t a = A;
    for (int64_t sy = rowStart; sy <= rowEnd; ++sy) {
        const int32_t* values = stamp.values + sy * stamp.width;
        uint16_t* row = image->rows[y0 + sy];
        for (int64_t sx = colStart; sx <= colEnd; ++sx) {
            // Values are never below 0; one that were would count as 0.
            const int64_t s = values[sx] > 0 ? values[sx] : 0;
            uint16_t* p = row + (x0 + sx) * 4;
            int64_t c = (s * a) >> 8;
            if (c > 32767) c = 32767;
            const int64_t keep = 32768 - c;
            if (blend == StampBlend::Mask) {
                const uint16_t v = static_cast<uint16_t>((keep * p[0] + c * a) >> 15);
                p[0] = p[1] = p[2] = p[3] = v;
            } else {
                for (int k = 0; k < 3; ++k)
                    p[k] = static_cast<uint16_t>((p[k] * keep + c * rgb[k]) >> 15);
                p[3] = static_cast<uint16_t>((p[3] * keep + c * 32767) >> 15);
            }
        }
    }
}

namespace {

StampView ViewOf(const StampSet& set, int i) {
    const Stamp& s = set[ClampIndex(i, kStampCount)];
    if (s.values.empty()) return StampView{};
    return StampView{s.width, s.height, s.values.data()};
}

}  // namespace

StampView SnowEngine::FlakeStamp(int i) const {
    return ViewOf(flakeSet, i);
}

StampView SnowEngine::StarStamp(int i) const {
    return ViewOf(starSet, i);
}

// ---- Construction ------------------------------------------------------------------------------

SnowEngine::SnowEngine() : ParticleEngine(ParticleKind::Snow) {
    // The first draws of the engine's sequence: one fixed number for each pixel number.
    randomField.resize(kFieldSize);
    for (float& v : randomField)
        v = F(NextRandom());
    // Then the masters: for each size a flake, then the star's turn.
    MakeSnowStamps(&flakeStamps, &starStamps, &birthSeedState);
}

SnowEngine::~SnowEngine() = default;

// ---- Parameters --------------------------------------------------------------------------------

void SnowEngine::FillStepParameters() {
    StepParameters& p = pool.params;
    const double R = outputPort.image->referenceScale;
    const double W = p.width, H = p.height;
    const double ax = p.aspectX, ay = p.aspectY;
    const double ratio = F(ay / ax);

    p.densityMean = F(density.Double());
    p.densityVar = F(density.Double() * 0.1);
    p.lifeMean = F(lifetime.Double());
    p.lifeVar = F(lifetime.Double() * 0.1);
    p.extinctionMean = F(kExtinction);
    p.extinctionVar = 0.0f;
    p.jitterRadius = F(W * positionVar.Double() * ax);
    p.startSpeed = F(initialVelocity.Double() / R * ratio);
    p.speedVar = F(velocityVar.Double() * 0.01);
    p.spinVar = 0.0f;
    p.speedGain = 1.0f;
    p.colourVar = F(colourVar.Double() * 0.01);
    p.monoVar = F(monoVar.Double() * 0.01);
    p.baseColour[0] = snowColour.Sample(0);
    p.baseColour[1] = snowColour.Sample(1);
    p.baseColour[2] = snowColour.Sample(2);
    p.baseColour[3] = 32767.0f;

    p.gravity = gravityOn.Flag() ? F(gravity.Double() / R * ratio) : 0.0f;
    p.gravityCos = F(std::cos(gravAngle.Double() * kDegrees));
    p.gravitySin = F(std::sin(gravAngle.Double() * kDegrees) / ratio);
    p.friction = frictionOn.Flag() ? F(friction.Double()) : 0.0f;
    const bool swirl = turbulence.Flag();
    p.swirlDensity = swirl ? F(swirlDens.Double()) : 0.0f;
    p.swirlAmp = swirl ? F(swirlAmp.Double() / R) : 0.0f;
    p.swirlRamp = swirl ? F(swirlMaxTime.Double()) : 0.0f;

    p.multiDirectional = multiDirectional.Flag() ? 1 : 0;
    p.windX = F(W * wind.X());
    p.windY = F(H * wind.Y());
    const double dx = W * windTarget.X() - W * wind.X(), dy = H * windTarget.Y() - H * wind.Y();
    double range = p.multiDirectional ? std::sqrt(dy * dy / (ax * ax) + dx * dx / (ay * ay))
                                      : std::sqrt(dx * dx + dy * dy);
    p.windRange = range < 0.0001 ? 0.0001f : F(range);
    p.windDirX = F(dx / p.windRange);
    p.windDirY = F(dy / p.windRange);
    p.windCos = F(std::cos(windSpread.Double() * kWindHalfDegrees));
    p.windSpeed = windOn.Flag() ? F(windSpeed.Double() / R) : 0.0f;
    p.preRolling = preRollRequested;

    p.sizeMean = F(size.Double() / R);
    p.sizeVar = F(sizeVar.Double() * 0.01 / R);
    p.sizeBias = biasOn.Flag() ? F(sizeBias.Double()) : 1.0f;
    p.dryFlag = drySnow.Int() - 1 == 1 ? 1 : 0;

    Look& k = look;
    const int mode = lookMode.Int() - 1;
    k.look = mode < 0 || mode > 3 ? 2 : mode;
    const int fade = fadeMode.Int() - 1;
    k.fadeMode = fade < 0 || fade > 2 ? 2 : fade;
    k.settleOn = settle.Flag();
    k.settleChance = k.settleOn ? F(probability.Double() * 0.01) : 0.0f;
    k.glintProb = glintProb.Double();
    k.glints = glintsOn.Flag() && k.glintProb > 0.0;
    const int colourMode = glintColourMode.Int() - 1;
    k.glintColourMode = colourMode < 0 || colourMode > 2 ? 0 : colourMode;
    for (int c = 0; c < 3; ++c)
        k.glintColour[c] = glintColour.Sample(c);
    k.glintX = W * glint.X();
    k.glintY = H * glint.Y();
    k.axisX = W * glintTarget.X() - k.glintX;
    k.axisY = H * glintTarget.Y() - k.glintY;
    const double axis = std::sqrt(k.axisX * k.axisX + k.axisY * k.axisY);
    if (axis > 0.0001) {
        k.axisX /= axis;
        k.axisY /= axis;
    }
    k.halfZone = F(glintZone.Double() * kGlintHalfDegrees);
    k.glintTight = glintTight.Double();
}

void SnowEngine::SizeAtBirth(ParticleRecord* record) {
    const StepParameters& p = pool.params;
    const double r = NextRandom();
    const int i = TruncateToInt(((2.0 * r - 1.0) * p.sizeVar + 1.0) * p.sizeMean * (41 * 0.05));
    record->stampIndex = ClampIndex(i, kStampCount);
}

void SnowEngine::BirthEnds(double* x0, double* y0, double* x1, double* y1) const {
    *x0 = left.X();
    *y0 = left.Y();
    *x1 = right.X();
    *y1 = right.Y();
}

int SnowEngine::PreRollSteps() const {
    return preRoll.Int();
}

// ---- Preparation and layers --------------------------------------------------------------------

void SnowEngine::NewLayers(int width, int height) {
    settleMask.reset(new WorkImage(width, height));
    settleColour.reset(new WorkImage(width, height));
    settleMask->Fill(0, 0, 0, 0);
    settleColour->Fill(0, 0, 0, 0);
}

bool SnowEngine::PrepareRender() {
    const WorkImage* out = outputPort.image;
    const int W = out->width, H = out->height;
    // The stamps follow the ratio of the two 32-bit aspect factors, taken in double.
    const double ratio =
        static_cast<double>(UsableAspect(out->pixelScale[1])) / UsableAspect(out->pixelScale[0]);
    // Settled snow is lost at any change of aspect or size; the particles in the air are kept.
    if (!layersMade || std::fabs(ratio - aspectCache) > 1e-05) {
        ResampleStampSet(flakeStamps, ratio, false, &flakeSet);
        ResampleStampSet(starStamps, ratio, false, &starSet);
        NewLayers(W, H);
        aspectCache = ratio;
    }
    if (!layersMade || settleMask->width != W || settleMask->height != H) NewLayers(W, H);
    layersMade = true;
    return true;
}

void SnowEngine::ClearAll() {
    Restart();
    if (settleMask) settleMask->Fill(0, 0, 0, 0);
    if (settleColour) settleColour->Fill(0, 0, 0, 0);
}

// ---- Drawing -----------------------------------------------------------------------------------

double SnowEngine::GlintCone(double x, double y) const {
    const Look& k = look;
    double px = x - k.glintX, py = y - k.glintY;
    const double distance = std::sqrt(px * px + py * py);
    if (distance > 0.0001) {
        px /= distance;
        py /= distance;
    }
    const float dot = F(px * k.axisX + py * k.axisY);
    if (dot <= 0.0f) return 0.0;
    // A position on the axis may come out a hair above 1; it is on the axis.
    const double angle = std::acos(dot < 1.0f ? static_cast<double>(dot) : 1.0);
    return (1.0 - SmoothRamp(angle, k.halfZone * 0.7, k.halfZone)) * (k.glintProb * 0.01) *
           std::pow(static_cast<double>(dot), k.glintTight);
}

void SnowEngine::DrawPass() {
    if (look.settleOn && look.look >= 2) SettlePass();
    RunOverRows(&SnowEngine::DrawBand, pool.params.height);
}

void SnowEngine::SettlePass() {
    const StepParameters& p = pool.params;
    const int W = p.width, H = p.height;
    const WorkImage* clip = secondPort.image ? secondPort.image : firstPort.image;
    WorkImage* mask = settleMask.get();
    WorkImage* colour = settleColour.get();
    if (!clip || !mask || !colour) return;
    const float chance = F(look.settleChance);
    for (ParticleRecord* r = pool.activeHead; r; r = r->next) {
        if (IsAborted()) return;
        const int hx = TruncateToInt(r->x + 0.5), hy = TruncateToInt(r->y + 0.5);
        if (hx < 0 || hy < 0 || hx >= W || hy >= H) continue;
        const float u = randomField[(static_cast<int64_t>(hy) * W + hx) & kFieldMask];
        // Snow lands on the matte, then piles up on settled snow beyond it with half the chance.
        const int c = hx < clip->width && hy < clip->height ? clip->Pixel(hx, hy)[0] : 0;
        bool settles;
        if (c > kHalfScale)
            settles = u < chance;
        else
            settles = mask->Pixel(hx, hy)[0] > kHalfScale && chance * 0.5 > u;
        if (!settles) continue;
        // Gone at the next update; it shows through the layers from now on.
        r->age = F(static_cast<double>(r->lifetime) + 6.0);
        const Ink ink = InkOf(*r, look.fadeMode);
        const StampView s = look.look == 2 ? FlakeStamp(r->stampIndex) : StarStamp(r->stampIndex);
        LayStamp(mask, s, hx, hy, ink.density, ink.rgb, StampBlend::Mask, 0, H - 1);
        LayStamp(colour, s, hx, hy, ink.density, ink.rgb, StampBlend::Colour, 0, H - 1);
    }
}

void SnowEngine::DrawBand(int first, int last) {
    if (first > last) return;
    for (const ParticleRecord* r = pool.activeHead; r; r = r->next) {
        if (IsAborted()) return;
        DrawParticle(*r, first, last);
    }
}

void SnowEngine::DrawParticle(const ParticleRecord& r, int firstRow, int lastRow) const {
    WorkImage* out = outputPort.image;
    const Look& k = look;
    const int W = pool.params.width, H = pool.params.height;
    const int hx = TruncateToInt(r.x + 0.5), hy = TruncateToInt(r.y + 0.5);
    const Ink ink = InkOf(r, k.fadeMode);
    const int A = ink.density;

    if (k.look == 0) {
        if (hx < 0 || hx >= W || hy < firstRow || hy > lastRow || hy < 0 || hy >= H) return;
        uint16_t* p = out->Pixel(hx, hy);
        const int64_t keep = 32767 - A;
        for (int c = 0; c < 3; ++c)
            p[c] =
                static_cast<uint16_t>((p[c] * keep + static_cast<int64_t>(ink.rgb[c]) * A) / 32767);
        p[3] = static_cast<uint16_t>((p[3] * keep + static_cast<int64_t>(A) * 32767) / 32767);
        return;
    }
    if (k.look == 1) {
        const int tx = TruncateToInt(r.prevX + 0.5), ty = TruncateToInt(r.prevY + 0.5);
        if ((hy > ty ? hy : ty) < firstRow || (hy < ty ? hy : ty) > lastRow) return;
        StreakPen pen;
        pen.red = ink.rgb[0];
        pen.green = ink.rgb[1];
        pen.blue = ink.rgb[2];
        pen.density = A;
        pen.sideOnLastRow = true;
        DrawStreak(out, W, tx, ty, hx, hy, pen, firstRow, lastRow);
        return;
    }

    // Flakes and stars. Whether a flake settles was decided before the pass.
    if (hx < 0 || hy < 0 || hx >= W || hy >= H) return;
    const int64_t idx = static_cast<int64_t>(hy) * W + hx;
    const float u = randomField[idx & kFieldMask];
    if (r.age <= r.lifetime) {
        const StampView s = k.look == 2 ? FlakeStamp(r.stampIndex) : StarStamp(r.stampIndex);
        LayStamp(out, s, hx, hy, A, ink.rgb, StampBlend::Output, firstRow, lastRow);
    }
    if (!k.glints) return;
    const double g = GlintCone(r.x, r.y);
    if (!(g * k.glintProb * 0.01 > u)) return;
    const int j = ClampIndex(TruncateToInt(u * 10.0 - 5.0 + r.stampIndex), kStampCount);
    int colour[3];
    switch (k.glintColourMode) {
        case 1:
            for (int c = 0; c < 3; ++c)
                colour[c] = ink.rgb[c];
            break;
        case 2: {
            const float v[3] = {u, randomField[(idx + 12) & kFieldMask],
                                randomField[(idx + 33) & kFieldMask]};
            for (int c = 0; c < 3; ++c) {
                const int w = TruncateToInt((v[c] + 0.5) * k.glintColour[c]);
                colour[c] = w > 32767 ? 32767 : w;
            }
            break;
        }
        default:
            for (int c = 0; c < 3; ++c)
                colour[c] = k.glintColour[c];
            break;
    }
    LayStamp(out, StarStamp(j), hx, hy, A, colour, StampBlend::Output, firstRow, lastRow);
}

void SnowEngine::FinishRender() {
    if (look.settleOn && look.look >= 2 && settleMask && settleColour)
        RunOverRows(&SnowEngine::OverlayBand, pool.params.height);
    if (look.glints) SettledGlints();
}

void SnowEngine::OverlayBand(int first, int last) {
    WorkImage* out = outputPort.image;
    const int W = out->width;
    for (int y = first; y <= last; ++y) {
        uint16_t* o = out->rows[y];
        const uint16_t* m = settleMask->rows[y];
        const uint16_t* s = settleColour->rows[y];
        for (int x = 0; x < W; ++x) {
            const int64_t keep = 32767 - m[x * 4];
            for (int c = 0; c < 4; ++c)
                o[x * 4 + c] = static_cast<uint16_t>(Clamp15(
                    (o[x * 4 + c] * keep + static_cast<int64_t>(s[x * 4 + c]) * 32767) >> 15));
        }
    }
}

void SnowEngine::SettledGlints() {
    WorkImage* out = outputPort.image;
    const WorkImage* layer = settleColour.get();
    if (!out || !layer) return;
    const int W = out->width, H = out->height;
    const double prob = look.glintProb * 0.01;
    for (int y = 0; y < H; ++y) {
        const uint16_t* row = layer->rows[y];
        for (int x = 0; x < W; ++x) {
            const uint16_t* s = row + static_cast<size_t>(x) * 4;
            if (s[0] <= kBrightSettled && s[1] <= kBrightSettled && s[2] <= kBrightSettled)
                continue;
            const int64_t i = static_cast<int64_t>(y) * W + x;
            if (!(prob > randomField[i & kFieldMask])) continue;
            const double g = GlintCone(x, y);
            const double r = NextRandom();
            if (!(prob * g * 0.25 > r)) continue;
            const int j = ClampIndex(TruncateToInt(NextRandom() * 40.0), kStampCount);
            int colour[3];
            for (int c = 0; c < 3; ++c) {
                switch (look.glintColourMode) {
                    case 1:
                        colour[c] = s[c];
                        break;
                    case 2: {
                        const int w = TruncateToInt((NextRandom() + 0.5) * look.glintColour[c]);
                        colour[c] = w > 32767 ? 32767 : w;
                        break;
                    }
                    default:
                        colour[c] = look.glintColour[c];
                        break;
                }
            }
            // Row 0 takes no settled glint.
            LayStamp(out, StarStamp(j), x, y, 32767, colour, StampBlend::Output, 1, H - 1);
        }
    }
}

// ---- Buttons and visibility --------------------------------------------------------------------

void SnowEngine::OnDemos(double time) {
    int number = 1;
    demos.GetIndex1(kWholeValue, &number);
    ApplyPreset(number, time);
}

template <SingleInputBinding SnowEngine::*B>
void SnowEngine::OnRestart(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) ClearAll();
}

template <SingleInputBinding SnowEngine::*B>
void SnowEngine::OnRestartPreRoll(double time) {
    (void)time;
    double v = 0.0;
    (this->*B).GetDouble(kWholeValue, &v);
    if (v > 0.5) {
        ClearAll();
        DoPreRoll();
    }
}

template <SingleInputBinding SnowEngine::*B>
void SnowEngine::OnDoPreRoll(double time) {
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

// A combo's 0-based entry as it stands.
int EntryOf(const InputBinding& b) {
    int n = 1;
    b.GetIndex1(kWholeValue, &n);
    return n - 1;
}

}  // namespace

void SnowEngine::OnLook(double time) {
    (void)time;
    const bool hide = EntryOf(lookMode) < 2;
    size.SetHidden(hide);
    sizeVar.SetHidden(hide);
}

void SnowEngine::OnSettle(double time) {
    (void)time;
    probability.SetHidden(!IsOn(settle));
}

void SnowEngine::OnBias(double time) {
    (void)time;
    const bool hide = !IsOn(biasOn);
    drySnow.SetHidden(hide);
    sizeBias.SetHidden(hide);
}

void SnowEngine::OnGravity(double time) {
    (void)time;
    const bool hide = !IsOn(gravityOn);
    gravity.SetHidden(hide);
    gravAngle.SetHidden(hide);
}

void SnowEngine::OnFriction(double time) {
    (void)time;
    friction.SetHidden(!IsOn(frictionOn));
}

void SnowEngine::OnTurbulence(double time) {
    (void)time;
    const bool hide = !IsOn(turbulence);
    swirlDens.SetHidden(hide);
    swirlAmp.SetHidden(hide);
    swirlMaxTime.SetHidden(hide);
}

void SnowEngine::OnWind(double time) {
    (void)time;
    const bool hide = !IsOn(windOn);
    wind.SetHidden(hide);
    windTarget.SetHidden(hide);
    windSpeed.SetHidden(hide);
    multiDirectional.SetHidden(hide);
    windSpread.SetHidden(hide || IsOn(multiDirectional));
}

void SnowEngine::OnGlints(double time) {
    (void)time;
    const bool hide = !IsOn(glintsOn);
    glint.SetHidden(hide);
    glintTarget.SetHidden(hide);
    glintTight.SetHidden(hide);
    glintZone.SetHidden(hide);
    glintProb.SetHidden(hide);
    glintColourMode.SetHidden(hide);
    glintColour.SetHidden(hide || EntryOf(glintColourMode) == 1);
}

void SnowEngine::FirstFrame() {
    OnLook(kNoTime);
    OnSettle(kNoTime);
    OnBias(kNoTime);
    OnGravity(kNoTime);
    OnFriction(kNoTime);
    OnTurbulence(kNoTime);
    OnWind(kNoTime);
    OnGlints(kNoTime);
}

// ---- On-screen controls ------------------------------------------------------------------------

void SnowEngine::PlaceControls() {
    // Flakes are born within Position Var widths of the line.
    if (birthControl) birthControl->zoneRadius = F(positionVar.Double() * viewWidth);
    if (glintControl) {
        glintControl->visible = glintsOn.Flag() && glintProb.Double() != 0.0;
        glintControl->spreadDegrees = F(glintZone.Double());
    }
    if (windControl) {
        windControl->visible = windOn.Flag() && windSpeed.Double() != 0.0;
        windControl->spreadDegrees = F(windSpread.Double());
    }
}

void SnowEngine::DrawControls() {
    PlaceControls();
    ToolOverlay::DrawControls();
}

void SnowEngine::ControlEvent(int event, float x, float y) {
    // The birth ends first, then the glint pair and the wind pair while their cones are shown.
    PlaceControls();
    ShownControlsEvent(event, x, y);
}

// ---- Adapter -----------------------------------------------------------------------------------

const ToolDecl& SnowToolDecl() {
    using E = SnowEngine;
    using namespace particle_rows;
    auto combo = [](const char* id, const char* label, int page, double def,
                    std::vector<const char*> entries) {
        const double top = static_cast<double>(entries.size()) - 1.0;
        return Combo(id, label, page, def, std::move(entries))
            .Allowed(0.0, top)
            .StoreAs(Store::Index1, def + 1.0);
    };
    static const InputDecl rows[] = {
        combo("Dem1", "Demos", 0, 0.0,
              {"Blizzard", "Base", "Fine", "Heavy", "Avoid", "Divert", "Glitter", "Pink", "Vomit",
               "Amorphous", "Pastel", "Stream"})
            .Notify()
            .Bind<&E::demos>()
            .OnChange<&E::OnDemos>(),
        button("Rem1", "Restart Snowstorm", 0)
            .Bind<&E::restart1>()
            .OnChange<&E::OnRestart<&E::restart1>>(),
        button("Rel1", "Restart+PreRoll", 0)
            .Bind<&E::restartPreRoll1>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll1>>(),
        button("Dol1", "Do PreRoll", 0)
            .Bind<&E::doPreRoll1>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll1>>(),
        slider("Prll", "PreRoll", 0, 150.0, 1.0, 1000.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::preRoll>(),
        button("Adce", "Advance", 0).Bind<&E::advance>(),
        Offset("Left", "Left", 0, 0.2, 0.8).Bind<&E::left>(),
        Offset("Riht", "Right", 0, 0.8, 0.8).Bind<&E::right>(),
        slider("Poar", "Position Var", 0, 0.02, 0.0, 2.0).Bind<&E::positionVar>(),
        slider("Dety", "Density", 0, 20.0, 0.0, 10000.0).Bind<&E::density>(),
        slider("Lime", "Lifetime", 0, 200.0, 1.0, 1000.0).Bind<&E::lifetime>(),
        slider("Inty", "Initial Velocity", 0, -3.0, -20.0, 20.0).Bind<&E::initialVelocity>(),
        slider("Vear", "Velocity Var", 0, 50.0, 0.0, 100.0).Bind<&E::velocityVar>(),
        combo("Lode", "Look", 0, 2.0, {"Point", "Streak", "Flake", "Star"})
            .Notify()
            .Bind<&E::lookMode>()
            .OnChange<&E::OnLook>(),
        slider("Flze", "Size", 0, 4.0, 1.0, 20.0).Bind<&E::size>(),
        slider("Flar", "Size Var", 0, 100.0, 0.0, 100.0).Bind<&E::sizeVar>(),
        toggle("Snle", "Snow Settle", 0, 0.0).Bind<&E::settle>().OnChange<&E::OnSettle>(),
        slider("Sety", "Probability", 0, 50.0, 0.0, 100.0).Bind<&E::probability>(),
        toggle("Doas", "Bias", 0, 0.0).Bind<&E::biasOn>().OnChange<&E::OnBias>(),
        combo("Drow", "Dry Snow", 0, 0.0, {"Wet", "Dry"}).Bind<&E::drySnow>(),
        slider("Sias", "Size Bias", 0, 1.0, 1.0, 20.0).Bind<&E::sizeBias>(),
        button("Rem2", "Restart Snowstorm", 1)
            .Bind<&E::restart2>()
            .OnChange<&E::OnRestart<&E::restart2>>(),
        button("Rel2", "Restart+PreRoll", 1)
            .Bind<&E::restartPreRoll2>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll2>>(),
        button("Dol2", "Do PreRoll", 1)
            .Bind<&E::doPreRoll2>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll2>>(),
        toggle("Doty", "Gravity", 1, 1.0).Bind<&E::gravityOn>().OnChange<&E::OnGravity>(),
        slider("Grty", "Gravity", 1, 0.2, 0.0, 10.0).Bind<&E::gravity>(),
        wheel("Grle", "Grav Angle", 1, 270.0, 0.0, 359.0).Bind<&E::gravAngle>(),
        toggle("Doon", "Friction", 1, 1.0).Bind<&E::frictionOn>().OnChange<&E::OnFriction>(),
        slider("Fron", "Friction", 1, 0.05, 0.0, 1.0).Bind<&E::friction>(),
        toggle("Dond", "Wind", 1, 0.0).Bind<&E::windOn>().OnChange<&E::OnWind>(),
        Offset("Wice", "Wind", 1, 0.2, 0.4).Bind<&E::wind>(),
        Offset("Wiet", "Wind Target", 1, 0.8, 0.4).Bind<&E::windTarget>(),
        toggle("Mual", "Multi Directional", 1, 0.0)
            .Bind<&E::multiDirectional>()
            .OnChange<&E::OnWind>(),
        wheel("Wiad", "Wind Spread", 1, 10.0, 0.0, 180.0).Bind<&E::windSpread>(),
        slider("Wied", "Wind Speed", 1, 5.0, 0.0, 180.0).Bind<&E::windSpeed>(),
        toggle("Doce", "Turbulence", 1, 1.0).Bind<&E::turbulence>().OnChange<&E::OnTurbulence>(),
        slider("Swns", "SwirlDens", 1, 60.0, 0.0, 100.0).Bind<&E::swirlDens>(),
        slider("Swmp", "SwirlAmp", 1, 1.0, 0.0, 100.0).Bind<&E::swirlAmp>(),
        slider("Swim", "SwlMaxTim", 1, 0.0, 0.0, 100.0).Bind<&E::swirlMaxTime>(),
        button("Rem4", "Restart Snowstorm", 2)
            .Bind<&E::restart4>()
            .OnChange<&E::OnRestart<&E::restart4>>(),
        button("Rel4", "Restart+PreRoll", 2)
            .Bind<&E::restartPreRoll4>()
            .OnChange<&E::OnRestartPreRoll<&E::restartPreRoll4>>(),
        button("Dol4", "Do PreRoll", 2)
            .Bind<&E::doPreRoll4>()
            .OnChange<&E::OnDoPreRoll<&E::doPreRoll4>>(),
        slider("Coar", "ColourVar", 2, 0.0, 0.0, 100.0).Bind<&E::colourVar>(),
        slider("Moar", "MonoVar", 2, 0.0, 0.0, 100.0).Bind<&E::monoVar>(),
        ColourChannel("SnuR", "Snow Colour", 2, 1, 0, 1.0).Bind<&E::snowColour>(),
        ColourChannel("SnuG", "Snow Colour", 2, 1, 1, 1.0).Bind<&E::snowColour>(),
        ColourChannel("SnuB", "Snow Colour", 2, 1, 2, 1.0).Bind<&E::snowColour>(),
        ColourChannel("SnuA", "Snow Colour", 2, 1, 3, 0.499992).Bind<&E::snowColour>(),
        combo("Fade", "FadeMode", 2, 2.0, {"Col+Dens", "Colour", "Density"}).Bind<&E::fadeMode>(),
        toggle("Dont", "Glints", 3, 0.0).Bind<&E::glintsOn>().OnChange<&E::OnGlints>(),
        Offset("Glce", "Glint", 3, 0.9, 0.5).Bind<&E::glint>(),
        Offset("Glet", "Glint Target", 3, 0.1, 0.5).Bind<&E::glintTarget>(),
        slider("Glht", "Glint Tight", 3, 30.0, 0.0, 1000.0).Bind<&E::glintTight>(),
        wheel("Glne", "Glint Zone", 3, 90.0, 0.0, 180.0).Bind<&E::glintZone>(),
        slider("Glty", "Glint Prob", 3, 50.0, 0.0, 100.0).Bind<&E::glintProb>(),
        ColourChannel("GluR", "Glint Colour", 3, 2, 0, 1.0).Bind<&E::glintColour>(),
        ColourChannel("GluG", "Glint Colour", 3, 2, 1, 1.0).Bind<&E::glintColour>(),
        ColourChannel("GluB", "Glint Colour", 3, 2, 2, 1.0).Bind<&E::glintColour>(),
        ColourChannel("GluA", "Glint Colour", 3, 2, 3, 0.499992).Bind<&E::glintColour>(),
        combo("Code", "Colour", 3, 0.0, {"Box Colour", "Snow Colour", "Random Colour"})
            .Notify()
            .Bind<&E::glintColourMode>()
            .OnChange<&E::OnGlints>(),
        ImageIn("Background Clip", "Background Clip", 1),
        ImageIn("Settle Clip", "Settle Clip", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{
        {"Q9 Snow", "Forces", "Colour", "Glints"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

SnowOperator::SnowOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : SnowOperator(reg, script, tags, new SnowEngine()) {}

SnowOperator::SnowOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                           SnowEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, SnowToolDecl()) {
    // The birth ends first, then the glint pair, then the wind pair.
    engine->birthControl = AddScreenControl<BirthLineControl>({"Left", "Riht"});
    engine->glintControl = AddScreenControl<ConeControl>({"Glce", "Glet"});
    engine->windControl = AddScreenControl<ConeControl>({"Wice", "Wiet"});
}
