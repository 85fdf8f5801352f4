#include "clouds/Clouds.h"

#include "clouds/CloudsControls.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Tags.h"

namespace {

constexpr double kDegreesToRadians = 0.017453292222222222;
constexpr double kHalfDegreesToRadians = 0.008726646111111111;
// 1/32768 as a float: the share of light that a density lets through.
constexpr float kDensityToShare = 3.0517578e-05f;

// 1.0 / v to float; a zero scale gives an infinite reciprocal of its sign.
float Reciprocal(double v) {
    if (v == 0.0) return std::signbit(v) ? -INFINITY : INFINITY;
    return ToFloat(1.0 / v);
}

// Products and sums of the shading, in wrapping 32-bit arithmetic: inputs far outside their scales
// wrap as 32-bit words do, without undefined behaviour.
inline int32_t Mul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t Add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

inline bool SameBits(float a, float b) {
    uint32_t x, y;
    std::memcpy(&x, &a, 4);
    std::memcpy(&y, &b, 4);
    return x == y;
}

inline uint16_t Word(int32_t v) {
    return static_cast<uint16_t>(static_cast<uint32_t>(v));
}

}  // namespace

CloudsEngine::CloudsEngine()
    : densityInt(kCurveSize),
      densityFloat(kCurveSize),
      rampRed(kCurveSize),
      rampGreen(kCurveSize),
      rampBlue(kCurveSize) {}

CloudsEngine::~CloudsEngine() {
    delete scratch;
}

// ---- Visibility and presets ---------------------------------------------------------------------

void CloudsEngine::FirstFrame() {
    OnMatchScales(kNoTime);
    OnUseSkyColour(kNoTime);
    OnLitClouds(kNoTime);
    OnUseMatte(kNoTime);
}

void CloudsEngine::OnMatchScales(double time) {
    (void)time;
    int on = 0;
    matchInput.GetInt(kWholeValue, &on);
    scaleYInput.SetHidden(on != 0);
}

void CloudsEngine::OnUseSkyColour(double time) {
    (void)time;
    int on = 0;
    useSkyInput.GetInt(kWholeValue, &on);
    skyColourInput.SetHidden(on == 0);
}

void CloudsEngine::OnUseMatte(double time) {
    (void)time;
    int on = 0;
    useMatteInput.GetInt(kWholeValue, &on);
    invertInput.SetHidden(on == 0);
}

void CloudsEngine::OnLitClouds(double time) {
    (void)time;
    int on = 0;
    litInput.GetInt(kWholeValue, &on);
    const bool lit = on == 1;
    coreColourInput.SetHidden(lit);
    coreStartInput.SetHidden(lit);
    edgeColourInput.SetHidden(lit);
    edgeEndsInput.SetHidden(lit);
    InputBinding* lightOnly[] = {&lightInput,       &lightZInput,     &targetInput,   &spreadInput,
                                 &fallOffInput,     &brightnessInput, &contrastInput, &depthInput,
                                 &lightColourInput, &cloudColourInput};
    for (InputBinding* b : lightOnly)
        b->SetHidden(!lit);
}

// ---- Per render ---------------------------------------------------------------------------------

void CloudsEngine::ReadValues() {
    const WorkImage* source = firstPort.image;
    aspectX = ToFloat(source->pixelScale[0]);
    aspectY = ToFloat(source->pixelScale[1]);

    FieldMapping& m = mapping;
    m.originX = ToFloat(-centreInput.X());
    m.originY = ToFloat(-centreInput.Y());
    m.pivotX = ToFloat(m.originX + 0.5);
    m.pivotY = ToFloat(m.originY + 0.5);
    m.invScaleX = Reciprocal(scaleXInput.Double());
    m.invScaleY = matchInput.Flag() ? m.invScaleX : Reciprocal(scaleYInput.Double());
    // A rotation of 0 degrees turns by a float's worth of 2 pi, which is not quite nothing.
    m.rotateRadians = ToFloat((360.0 - rotateInput.Double()) * kDegreesToRadians);
    m.sinRotate = static_cast<float>(std::sin(static_cast<double>(m.rotateRadians)));
    m.cosRotate = static_cast<float>(std::cos(static_cast<double>(m.rotateRadians)));

    seed = seedInput.Int();
    cloudiness = ToFloat(cloudinessInput.Double() * 0.01);
    detail = ToFloat(detailInput.Double() * 0.01);
    seethingRate = ToFloat(seethingInput.Double() * 0.001);
    density = ToFloat(densityInput.Double() * 0.01);
    maxFrequency = ToFloat(detail * width * 0.5);
    startFrequency = 1.0f;
    depth = ToFloat(seethingRate * time + 0.5);
    highResolution = highResInput.Flag() || height < 4;
    gridWidth = highResolution ? width : width / 2 + 1;
    gridHeight = highResolution ? height : height / 2 + 1;
    m.dx = ToFloat(1.0 / gridWidth);
    m.dy = ToFloat(aspectY / gridHeight);

    litClouds = litInput.Flag();
    useSkyColour = useSkyInput.Flag();
    useMatte = useMatteInput.Flag();
    invertMatte = invertInput.Flag();
    blend = ToFloat(blendInput.Double() * 0.01);
    blendAmount = 0.0f;

    RampSettings& r = ramp;
    r.edgeStart = ToFloat(edgeEndsInput.Double() * 0.01);
    r.coreStart = ToFloat(coreStartInput.Double() * 0.01);
    r.gloomGo = ToFloat(gloomGoInput.Double() * 0.01);
    r.gloomMax = ToFloat(gloomMaxInput.Double() * 0.01);
    r.litClouds = litClouds;
    for (int c = 0; c < 3; ++c) {
        // Lit clouds run from white at the edge to the colour "Clouds" in the core.
        r.coreColour[c] = litClouds ? cloudColourInput.Sample(c) : coreColourInput.Sample(c);
        r.edgeColour[c] = litClouds ? 32767 : edgeColourInput.Sample(c);
        lightColour[c] = lightColourInput.Sample(c);
        skyColour[c] = skyColourInput.Sample(c);
    }
    light[0] = ToFloat(lightInput.X());
    light[1] = ToFloat(lightInput.Y());
    lightTarget[0] = ToFloat(targetInput.X());
    lightTarget[1] = ToFloat(targetInput.Y());
    lightHeight = ToFloat(lightZInput.Double());
    depthScale = ToFloat(depthInput.Double() * 0.01);
    brightness = ToFloat(brightnessInput.Double() * 0.01);
    contrast = ToFloat(contrastInput.Double() * 0.01);
    spreadHalfAngle = ToFloat(spreadInput.Double() * kHalfDegreesToRadians);
    fallOffAngle = ToFloat(fallOffInput.Double() * kDegreesToRadians);
}

void CloudsEngine::PrepareBuffers() {
    if (!scratch || scratch->width != width || scratch->height != height) {
        delete scratch;
        scratch = new WorkImage(width, height);
    }
    for (auto& row : rowIndex)
        if (row.size() < static_cast<size_t>(gridWidth)) row.resize(static_cast<size_t>(gridWidth));
    if (litClouds) {
        // One row more than the grid: a picture of odd height evaluates a row past it.
        const size_t cells = static_cast<size_t>(gridWidth) * static_cast<size_t>(gridHeight + 1);
        if (heightField.size() < cells) heightField.resize(cells);
        std::fill(heightField.begin(), heightField.begin() + static_cast<ptrdiff_t>(cells), 0.0f);
    }
}

void CloudsEngine::BuildTables() {
    const DensitySettings d{cloudiness, density};
    if (!tablesBuilt_ || !(d == builtDensity_)) {
        BuildDensityCurve(d, densityInt.data(), densityFloat.data());
        builtDensity_ = d;
    }
    if (!tablesBuilt_ || !(ramp == builtRamp_)) {
        BuildColourRamp(ramp, rampRed.data(), rampGreen.data(), rampBlue.data());
        builtRamp_ = ramp;
    }
    tablesBuilt_ = true;
}

void CloudsEngine::Render() {
    if (IsAborted()) return;
    WorkImage* source = firstPort.image;
    WorkImage* out = outputPort.image;
    if (!source || !out || source->width < 1 || source->height < 1) return;
    if (out->width != source->width || out->height != source->height) return;
    width = source->width;
    height = source->height;

    ReadValues();
    PrepareBuffers();
    // The gradients are drawn here, on the processing thread, from a fresh seeding.
    noise.Prepare(seed, depth, startFrequency, maxFrequency);
    BuildTables();

    if (litClouds) {
        RunOverRows(&CloudsEngine::LitFieldRows, height);
        if (IsAborted()) return;
        RunOverRows(&CloudsEngine::LitShadeRows, height);
        if (IsAborted()) return;
        RepairEdges();
    } else {
        RunOverRows(&CloudsEngine::UnlitFieldRows, height);
    }
    if (IsAborted()) return;
    RunOverRows(&CloudsEngine::DoubleRows, height);
    if (IsAborted()) return;
    RunOverRows(&CloudsEngine::CompositeRows, height);
    if (IsAborted()) return;

    // A closing blend that nothing sets: blendAmount is 0 in every render.
    if (blendAmount > 0.0f) {
        if (useSkyColour) {
            const uint32_t redGreen = static_cast<uint32_t>(Word(skyColour[0])) |
                                      static_cast<uint32_t>(Word(skyColour[1])) << 16;
            const uint32_t blueAlpha = static_cast<uint32_t>(Word(skyColour[2])) | 32767u << 16;
            out->MixColour(blendAmount, redGreen, blueAlpha);
        } else {
            out->MixFrom(blendAmount, source);
        }
    }
    if (!keepOutputAlpha) out->CopyAlphaFrom(source);
}

// ---- Field --------------------------------------------------------------------------------------

CloudsEngine::GridRows CloudsEngine::GridRowsOf(int first, int last) const {
    if (highResolution) return {first, last, first};
    GridRows r{first / 2, last / 2, first / 2};
    if (last == height - 1) ++r.last;
    if (first & 1) ++r.own;
    return r;
}

void CloudsEngine::UnlitFieldRows(int first, int last) {
    if (first > last) return;
    const GridRows rows = GridRowsOf(first, last);
    int32_t* index = rowIndex[first == 0 ? 0 : 1].data();
    const FieldMapping& m = mapping;
    float v = m.originY + static_cast<float>(rows.first) * m.dy;
    for (int j = rows.first; j <= rows.last; ++j, v = v + m.dy) {
        if (IsAborted()) return;
        if (j < rows.own) continue;
        noise.Row(m, v, gridWidth, index);
        uint16_t* p = scratch->rows[j];
        for (int x = 0; x < gridWidth; ++x, p += 4) {
            const int32_t a = densityInt[index[x]];
            p[0] = Word(rampRed[a]);
            p[1] = Word(rampGreen[a]);
            p[2] = Word(rampBlue[a]);
            p[3] = Word(a);
        }
    }
}

void CloudsEngine::LitFieldRows(int first, int last) {
    if (first > last) return;
    const GridRows rows = GridRowsOf(first, last);
    int32_t* index = rowIndex[first == 0 ? 0 : 1].data();
    const FieldMapping& m = mapping;
    float v = m.originY + static_cast<float>(rows.first) * m.dy;
    for (int j = rows.first; j <= rows.last; ++j, v = v + m.dy) {
        if (IsAborted()) return;
        if (j < rows.own) continue;
        noise.Row(m, v, gridWidth, index);
        float* h = heightField.data() + static_cast<size_t>(j) * gridWidth;
        uint16_t* p = scratch->rows[j];
        for (int x = 0; x < gridWidth; ++x, p += 4) {
            h[x] = densityFloat[index[x]];
            p[3] = Word(densityInt[index[x]]);
        }
    }
}

// ---- Light --------------------------------------------------------------------------------------

void CloudsEngine::LitShadeRows(int first, int last) {
    if (first > last) return;
    const GridRows rows = GridRowsOf(first, last);
    const int rw = gridWidth;
    // The picture's height over its width, in whole numbers: 0 for a picture wider than high,
    // which leaves only the horizontal part of the beam's geometry.
    const float aspect = static_cast<float>(height / width);
    const float dx = static_cast<float>(1.0 / gridWidth);
    const float dy = static_cast<float>(aspectY / gridHeight);
    const int32_t bright = TruncateToInt(brightness * 32767.0);
    const int32_t contrastWord = TruncateToInt(contrast * 32767.0);
    float tx = lightTarget[0] - light[0];
    float ty = (lightTarget[1] - light[1]) * aspect;
    float toLight[3] = {-tx, -ty, static_cast<float>(lightHeight - 0.5)};
    NormaliseVector(toLight);
    const float axisLength = std::sqrt(tx * tx + ty * ty);
    if (axisLength > 0.0001) {
        tx = tx / axisLength;
        ty = ty / axisLength;
    }
    const bool beamOn = spreadHalfAngle > 0.0f;
    // The width of the fall-off, as the sum and difference give it in float.
    const float fallOffWidth = fallOffAngle + spreadHalfAngle - spreadHalfAngle;

    int32_t carried[3] = {0, 0, 0};
    bool haveNormal = false;
    float lastSlopeA = 0.0f, lastSlopeB = 0.0f, lastDiffuse = 0.0f;
    for (int y = rows.first; y <= rows.last; ++y) {
        if (IsAborted()) return;
        if (y < rows.own) continue;
        const float* h = heightField.data() + static_cast<size_t>(y) * rw;
        const float* below = y > 0 ? h - rw : h;
        uint16_t* p = scratch->rows[y];
        for (int x = 0; x < rw; ++x, p += 4) {
            if (x > 0 && y > 0) {
                // The normal from the two diagonals of the cell below and to the left. It depends
                // on the two slopes alone, which stay the same over flat stretches (clear sky,
                // saturated cores): the last one found is kept for them.
                const float slopeA = (h[x] - below[x - 1]) * depthScale;
                const float slopeB = (h[x - 1] - below[x]) * depthScale;
                if (!haveNormal || !SameBits(slopeA, lastSlopeA) || !SameBits(slopeB, lastSlopeB)) {
                    const float a[3] = {dx, dy, slopeA};
                    const float b[3] = {-dx, dy, slopeB};
                    float n[3];
                    CrossProduct(n, a, b);
                    NormaliseVector(n);
                    lastDiffuse = n[0] * toLight[0] + n[1] * toLight[1] + n[2] * toLight[2];
                    // Facing away gives no light. So does a normal that is no number at all (a
                    // slope beyond the float range), which would give no light in the end anyway.
                    if (!(lastDiffuse >= 0.0f)) lastDiffuse = 0.0f;
                    lastSlopeA = slopeA;
                    lastSlopeB = slopeB;
                    haveNormal = true;
                }
                const float d = lastDiffuse;

                int32_t spot = bright;
                if (beamOn) {
                    float px = static_cast<float>(x) * dx - light[0];
                    float py = (static_cast<float>(y) * dy - light[1]) * aspect;
                    const float m = std::sqrt(px * px + py * py);
                    if (m > 0.0001) {
                        px = px / m;
                        py = py / m;
                    }
                    float c = py * ty + px * tx;
                    if (c > 0.99999) c = static_cast<float>(0.99999);
                    // Rounding can take a cosine just below -1; it is read as -1.
                    if (c < -1.0f) c = -1.0f;
                    const double off = std::acos(static_cast<double>(c)) - spreadHalfAngle;
                    double w;
                    if (fallOffWidth != 0.0f)
                        w = Clamp01(off / fallOffWidth);
                    else
                        w = off > 0.0 ? 1.0 : 0.0;  // a hard edge
                    // w lies within 0..1, so the product lies between 0 and bright.
                    spot = static_cast<int32_t>((1 - w) * bright);
                }
                if (spot > 65535) spot = 65535;

                const int32_t a15 = p[3];
                const float share = static_cast<float>(1.0 - a15 * kDensityToShare);
                // d is the dot product of two unit vectors, found by a few Newton steps: it
                // does not reach 2, and f stays within 0..65536.
                const int32_t f = static_cast<int32_t>((share * (d < 2.0f ? d : 2.0f)) * 32768.0);
                const int32_t lit = Mul32(f, spot) >> 15;
                const int32_t shade =
                    Mul32(Mul32(32768 - f, contrastWord) >> 15, rampRed[a15]) >> 15;
                for (int k = 0; k < 3; ++k) {
                    const int32_t v =
                        Add32(Mul32(lightColour[k], lit), Mul32(ramp.coreColour[k], shade)) >> 15;
                    carried[k] = v > 32767 ? 32767 : v;
                }
            }
            p[0] = Word(carried[0]);
            p[1] = Word(carried[1]);
            p[2] = Word(carried[2]);
        }
    }
}

void CloudsEngine::RepairEdges() {
    const int rw = gridWidth, rh = gridHeight;
    if (rh >= 2) std::memcpy(scratch->rows[0], scratch->rows[1], static_cast<size_t>(rw) * 8);
    if (rw >= 2)
        for (int y = 0; y < rh; ++y)
            std::memcpy(scratch->rows[y], scratch->rows[y] + 4, 8);
}

// ---- Output -------------------------------------------------------------------------------------

void CloudsEngine::DoubleRows(int first, int last) {
    if (first > last) return;
    WorkImage* out = outputPort.image;
    const size_t rowBytes = static_cast<size_t>(width) * 8;
    if (highResolution) {
        for (int y = first; y <= last; ++y)
            std::memcpy(out->rows[y], scratch->rows[y], rowBytes);
        return;
    }
    // Each grid pixel gives a square of four: itself, and its means with the right, upper and
    // diagonal neighbours. Each chunk writes only its own output rows.
    const int half = width / 2;
    for (int j = first / 2; j <= last / 2; ++j) {
        const int y0 = 2 * j, y1 = 2 * j + 1;
        const bool write0 = y0 >= first && y0 <= last && y0 < height;
        const bool write1 = y1 >= first && y1 <= last && y1 < height;
        const uint16_t* s0 = scratch->rows[j];
        if (write0) {
            uint16_t* o = out->rows[y0];
            for (int x = 0; x < half; ++x, o += 8) {
                const uint16_t* s00 = s0 + 4 * x;
                const uint16_t* s10 = s00 + 4;
                for (int c = 0; c < 4; ++c) {
                    o[c] = s00[c];
                    o[4 + c] = static_cast<uint16_t>((static_cast<uint32_t>(s10[c]) + s00[c]) >> 1);
                }
            }
        }
        if (write1) {
            const uint16_t* s1 = scratch->rows[j + 1];
            uint16_t* o = out->rows[y1];
            for (int x = 0; x < half; ++x, o += 8) {
                const uint16_t* s00 = s0 + 4 * x;
                const uint16_t* s01 = s1 + 4 * x;
                const uint16_t* s11 = s01 + 4;
                for (int c = 0; c < 4; ++c) {
                    o[c] = static_cast<uint16_t>((static_cast<uint32_t>(s01[c]) + s00[c]) >> 1);
                    o[4 + c] = static_cast<uint16_t>((static_cast<uint32_t>(s11[c]) + s00[c]) >> 1);
                }
            }
        }
    }
}

void CloudsEngine::CompositeRows(int first, int last) {
    if (first > last) return;
    WorkImage* out = outputPort.image;
    const WorkImage* source = firstPort.image;
    const WorkImage* matte = secondPort.image;
    if (!matte || matte->width != width || matte->height != height) matte = source;
    const uint32_t sky[4] = {Word(skyColour[0]), Word(skyColour[1]), Word(skyColour[2]), 0};
    // All words here are unsigned and the sums fit 32 bits: the cloud's alpha is a density or an
    // imported sample, at most 32767, so each pair of weights adds up to 32768, and a matte's luma
    // is at most 32767.
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        uint16_t* o = out->rows[y];
        const uint16_t* s = source->rows[y];
        const uint16_t* mp = matte->rows[y];
        for (int x = 0; x < width; ++x, o += 4, s += 4, mp += 4) {
            const uint32_t bg[4] = {useSkyColour ? sky[0] : s[0], useSkyColour ? sky[1] : s[1],
                                    useSkyColour ? sky[2] : s[2], useSkyColour ? sky[3] : s[3]};
            const uint32_t a = o[3], n = 32768u - a;
            uint32_t v[4];
            for (int c = 0; c < 3; ++c)
                v[c] = (o[c] * a + n * bg[c]) >> 15;
            v[3] = ((n * bg[3]) >> 15) + a;
            if (useMatte) {
                const uint32_t luma = (mp[2] * 3u + mp[1] * 8u + mp[0] * 5u) >> 4;
                uint32_t w = luma, keep = 32768u - luma;
                if (invertMatte) std::swap(w, keep);
                for (int c = 0; c < 3; ++c)
                    v[c] = (w * v[c] + keep * bg[c]) >> 15;
                v[3] = (w * v[3]) >> 15;
                for (int c = 0; c < 4; ++c)
                    v[c] = v[c] > 32767u ? 32767u : v[c];
            }
            for (int c = 0; c < 4; ++c)
                o[c] = static_cast<uint16_t>(v[c]);
        }
    }
}

// ---- Controls -----------------------------------------------------------------------------------

void CloudsEngine::DrawControls() {
    PlaceBeam(viewWidth, viewHeight);
    if (scaleControl) {
        scaleControl->centreX = beam.centreX;
        scaleControl->centreY = beam.centreY;
        scaleControl->rotation = static_cast<float>(rotateInput.Double());
    }
    // The light, its target and the beam are shown for lit clouds only.
    const int lit = litInput.Flag() ? 1 : 0;
    for (ScreenControl* c :
         {static_cast<ScreenControl*>(lightControl), static_cast<ScreenControl*>(targetControl),
          static_cast<ScreenControl*>(beamControl)})
        if (c) c->visible = lit;
    ToolOverlay::DrawControls();
}

void CloudsEngine::PlaceBeam(int viewW, int viewH) {
    BeamGeometry& g = beam;
    g.centreX = ToFloat(centreInput.X() * viewW);
    g.centreY = ToFloat(centreInput.Y() * viewH);
    g.lightX = ToFloat(lightInput.X() * viewW);
    g.lightY = ToFloat(lightInput.Y() * viewH);
    g.targetX = ToFloat(targetInput.X() * viewW);
    g.targetY = ToFloat(targetInput.Y() * viewH);
    const double ax = static_cast<double>(g.targetX) - g.lightX;
    const double ay = static_cast<double>(g.targetY) - g.lightY;
    const double axis = ax == 0.0 && ay == 0.0 ? 0.0 : std::atan2(ay, ax);
    g.axisAngle = ToFloat(axis);
    const double half = spreadInput.Double() * kHalfDegreesToRadians;
    const double outer = half + fallOffInput.Double() * kDegreesToRadians;
    for (int side = 0; side < 2; ++side) {
        const double sign = side == 0 ? 1.0 : -1.0;
        g.spreadRay[side][0] = ToFloat(std::cos(axis + sign * half));
        g.spreadRay[side][1] = ToFloat(std::sin(axis + sign * half));
        g.fallOffRay[side][0] = ToFloat(std::cos(axis + sign * outer));
        g.fallOffRay[side][1] = ToFloat(std::sin(axis + sign * outer));
    }
}

// ---- Adapter ------------------------------------------------------------------------------------

const ToolDecl& CloudsToolDecl() {
    using E = CloudsEngine;
    static const InputDecl rows[] = {
        Combo("Se18", "Demos", 0, 0.0,
              {"Unlit1", "Unlit2", "Unlit3", "Unlit4", "Unlit5", "Unlit6", "Lit1", "Lit2", "Lit3",
               "Lit4", "Lit5", "Lit6", "Fun1", "Fun2", "Fun3", "Fun5", "Fun6"})
            .Scale(0.0, 16.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::demosInput>()
            .OnChange<&E::OnDemos>(),
        Offset("Ceer", "Centre", 0, 0.5, 0.5).Bind<&E::centreInput>(),
        Slider("Rote", "Rotate", 0, 0.0, 0.0, 360.0).Bind<&E::rotateInput>(),
        Slider("Sedy", "Seed", 0, 665.0, 1.0, 9999.0)
            .Whole()
            .Fixed()
            .StoreAs(Store::Int)
            .Bind<&E::seedInput>(),
        Checkbox("Mach", "Match Scales", 0, 1.0)
            .Fixed()
            .Notify()
            .Bind<&E::matchInput>()
            .OnChange<&E::OnMatchScales>(),
        Slider("With", "Scale X", 0, 0.5, 0.01, 5.0).Bind<&E::scaleXInput>(),
        Slider("Heht", "Scale Y", 0, 0.5, 0.01, 5.0).Bind<&E::scaleYInput>(),
        Slider("Cnss", "Cloudiness", 0, 48.0, 0.0, 100.0).Bind<&E::cloudinessInput>(),
        Slider("Deil", "Detail", 0, 50.0, 0.0, 100.0).Bind<&E::detailInput>(),
        Slider("Sehe", "Seething", 0, 3.0, 0.0, 100.0).Bind<&E::seethingInput>(),
        Slider("Dese", "Density", 0, 100.0, 0.0, 200.0).Bind<&E::densityInput>(),
        Slider("Blnd", "Blend", 0, 0.0, 0.0, 100.0).Hidden().Bind<&E::blendInput>(),
        Slider("GlGo", "Gloom Go", 0, 100.0, 0.0, 100.0).Bind<&E::gloomGoInput>(),
        Slider("Glax", "Gloom Max", 0, 100.0, 0.0, 100.0).Bind<&E::gloomMaxInput>(),
        Checkbox("Usky", "Use Sky Colour", 0, 1.0)
            .Fixed()
            .Notify()
            .Bind<&E::useSkyInput>()
            .OnChange<&E::OnUseSkyColour>(),
        ColourChannel("SkoR", "Sky Colour", 0, 1, 0, 0.030518).Bind<&E::skyColourInput>(),
        ColourChannel("SkoG", "Sky Colour", 0, 1, 1, 0.0610361).Bind<&E::skyColourInput>(),
        ColourChannel("SkoB", "Sky Colour", 0, 1, 2, 0.542229).Bind<&E::skyColourInput>(),
        ColourChannel("SkoA", "Sky Colour", 0, 1, 3, 1.0).Bind<&E::skyColourInput>(),
        Checkbox("Dote", "Use Matte", 0, 0.0)
            .Fixed()
            .Notify()
            .Bind<&E::useMatteInput>()
            .OnChange<&E::OnUseMatte>(),
        Checkbox("Inte", "Invert", 0, 0.0).Hidden().Bind<&E::invertInput>(),
        Checkbox("Lids", "Lit Clouds", 1, 0.0)
            .Fixed()
            .Notify()
            .Bind<&E::litInput>()
            .OnChange<&E::OnLitClouds>(),
        Offset("Lios", "Light", 1, 0.2, 0.2).Bind<&E::lightInput>(),
        Slider("LitZ", "LightZ", 1, 0.5, 0.05, 5.0).Bind<&E::lightZInput>(),
        Offset("Liet", "Light Target", 1, 0.8, 0.8).Bind<&E::targetInput>(),
        Slider("Spad", "Light Spread", 1, 90.0, 0.0, 360.0).Bind<&E::spreadInput>(),
        Slider("Faff", "Light Fall Off", 1, 10.0, 0.0, 180.0).Bind<&E::fallOffInput>(),
        Slider("Liri", "Light Brightness", 1, 100.0, 0.0, 200.0).Bind<&E::brightnessInput>(),
        Slider("Conn", "Contrast", 1, 100.0, 0.1, 200.0).Bind<&E::contrastInput>(),
        Slider("Deep", "Light Depth Scale", 1, 30.0, 0.0, 100.0).Bind<&E::depthInput>(),
        ColourChannel("LioR", "Light", 1, 2, 0, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LioG", "Light", 1, 2, 1, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LioB", "Light", 1, 2, 2, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LioA", "Light", 1, 2, 3, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("CloR", "Clouds", 1, 3, 0, 1.0).Bind<&E::cloudColourInput>(),
        ColourChannel("CloG", "Clouds", 1, 3, 1, 1.0).Bind<&E::cloudColourInput>(),
        ColourChannel("CloB", "Clouds", 1, 3, 2, 0.389639).Bind<&E::cloudColourInput>(),
        ColourChannel("CloA", "Clouds", 1, 3, 3, 1.0).Bind<&E::cloudColourInput>(),
        ColourChannel("CooR", "Core Start", 1, 4, 0, 1.0).Bind<&E::coreColourInput>(),
        ColourChannel("CooG", "Core Start", 1, 4, 1, 1.0).Bind<&E::coreColourInput>(),
        ColourChannel("CooB", "Core Start", 1, 4, 2, 1.0).Bind<&E::coreColourInput>(),
        ColourChannel("CooA", "Core Start", 1, 4, 3, 1.0).Bind<&E::coreColourInput>(),
        Slider("CoeB", "Core Start", 1, 70.0, 0.0, 100.0).Bind<&E::coreStartInput>(),
        ColourChannel("EdoR", "Edge End", 1, 5, 0, 0.542229).Bind<&E::edgeColourInput>(),
        ColourChannel("EdoG", "Edge End", 1, 5, 1, 0.542229).Bind<&E::edgeColourInput>(),
        ColourChannel("EdoB", "Edge End", 1, 5, 2, 0.542229).Bind<&E::edgeColourInput>(),
        ColourChannel("EdoA", "Edge End", 1, 5, 3, 0.542229).Bind<&E::edgeColourInput>(),
        Slider("EdeE", "Edge Ends", 1, 22.0, 0.0, 100.0).Bind<&E::edgeEndsInput>(),
        Checkbox("Ress", "High Resolution", 1, 0.0).Bind<&E::highResInput>(),
        ImageIn("Sky", "Sky", 1),
        ImageIn("Matte", "Matte", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Clouds", "Look"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

CloudsOperator::CloudsOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : CloudsOperator(reg, script, tags, new CloudsEngine()) {}

CloudsOperator::CloudsOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                               CloudsEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, CloudsToolDecl()) {
    // The centre marker, the scale box about it, and for lit clouds the light, its target and the
    // beam.
    engine->centreControl = AddScreenControl<PointControl>({"Ceer"});
    engine->scaleControl = AddScreenControl<BoxControl>({"With", "Heht"});
    engine->lightControl = AddScreenControl<PointControl>({"Lios"});
    engine->targetControl = AddScreenControl<PointControl>({"Liet"});
    engine->beamControl = AddScreenControl<BeamControl>({"Spad", "Faff"});
    engine->beamControl->engine = engine;
    engine->lightControl->red = engine->lightControl->green = 65535;
    engine->lightControl->blue = 0;
    engine->beamControl->red = engine->beamControl->green = 65535;
    engine->beamControl->blue = 0;
}
