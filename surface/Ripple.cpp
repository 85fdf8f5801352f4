#include "surface/Ripple.h"

#include "surface/RippleControls.h"

#include <cmath>

#include "frame/WorkImage.h"
#include "host/Tags.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;
// 1/32767 to float precision: a 16-bit light sample becomes a factor from 0 to 1.
constexpr float kSampleToUnit = 3.0518509e-05f;

float StepOver(int size) {
    return size > 1 ? static_cast<float>(1.0 / (size - 1)) : 0.0f;
}

}  // namespace

void RippleEngine::ReadValues(int width, int height) {
    xAmp = static_cast<float>(xAmpInput.Double() * 0.01);
    yAmp = static_cast<float>(yAmpInput.Double() * 0.01);
    xFreq = static_cast<float>(xFreqInput.Double());
    yFreq = static_cast<float>(yFreqInput.Double());
    // Phases in cycles: a slider of 100 is a whole turn, the same as 0.
    xPhase = static_cast<float>(1.0 - xPhaseInput.Double() * 0.01);
    yPhase = static_cast<float>(1.0 - yPhaseInput.Double() * 0.01);
    useMatte = useMatteInput.Flag();
    invertMatte = invertMatteInput.Flag();
    blend = static_cast<float>(blendInput.Double() * 0.01);
    blendAmount = 0.0f;

    SurfaceParams& p = surface;
    p.width = width;
    p.height = height;
    p.fillMode = fillModeInput.Int() - 1;
    p.refractIndex = static_cast<float>(refractInput.Double());
    p.chromaticAb = static_cast<float>(chromaticInput.Double() * 0.01);
    p.lightStrength =
        lightingInput.Flag() ? static_cast<float>(lightBrightInput.Double() * 0.01) : 0.0f;
    p.lightX = static_cast<float>(lightInput.X());
    p.lightY = static_cast<float>(lightInput.Y());
    p.lightZ = static_cast<float>(lightZInput.Double());
    p.gloss = static_cast<float>(glossInput.Double());
    p.backGain = static_cast<float>(contrastInput.Double() * 0.01);
    p.lightRed = lightColourInput.Sample(0) * kSampleToUnit;
    p.lightGreen = lightColourInput.Sample(1) * kSampleToUnit;
    p.lightBlue = lightColourInput.Sample(2) * kSampleToUnit;
    p.neighbourStep = 1;
    p.boxOffset = 0.5f;
    p.pointLight = 0;
    p.lightActive = 1;
    p.clampLowFirstPass = 0;
}

void RippleEngine::MakeWaves(int width, int height) {
    stepX = StepOver(width);
    stepY = StepOver(height);
    xWave.resize(static_cast<size_t>(width));
    yWave.resize(static_cast<size_t>(height));
    for (int x = 0; x < width; ++x) {
        const float s = static_cast<float>(
            std::sin((x * static_cast<double>(stepX) * xFreq + xPhase) * kTwoPi));
        xWave[x] = static_cast<float>(s * static_cast<double>(xAmp) * 0.5);
    }
    for (int y = 0; y < height; ++y) {
        const float s = static_cast<float>(
            std::sin((y * static_cast<double>(stepY) * yFreq + yPhase) * kTwoPi));
        yWave[y] = static_cast<float>(s * static_cast<double>(yAmp) * 0.5);
    }
}

void RippleEngine::HeightRows(int first, int last) {
    const int w = surface.width, h = surface.height;
    if (static_cast<int>(xWave.size()) < w || static_cast<int>(yWave.size()) < h) return;
    const WorkImage* matte = secondPort.image;
    const bool matted = useMatte && matte && matte->width >= w && matte->height >= h;
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const int row = y < 0 ? 0 : (y > h - 1 ? h - 1 : y);
        float* out = maps.HeightRow(row);
        const double across = yWave[row];
        // The product of the waves, not their sum: one amplitude at 0 leaves the water flat.
        for (int x = 0; x < w; ++x)
            out[x] = static_cast<float>(xWave[x] * across + 0.5);
        if (!matted) continue;
        // Black in the matte holds the surface at rest.
        HoldToRestByMatte(out, matte->rows[row], w, invertMatte);
    }
}

void RippleEngine::Render() {
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* source = firstPort.image;
    if (!out || !source) return;
    const int w = out->width, h = out->height;
    ReadValues(w, h);
    // Without a pyramid nothing is sampled, and the output stays a copy of the source.
    if (!PrepareSurface(source, out)) return;
    MakeWaves(w, h);
    RunOverRows(&RippleEngine::HeightRows, h);
    if (IsAborted()) return;
    RunSurfacePasses(blendAmount, source);
}

void RippleEngine::FirstFrame() {
    OnLighting(kNoTime);
    OnUseMatte(kNoTime);
}

void RippleEngine::OnLighting(double time) {
    (void)time;
    const bool hide = !lightingInput.Flag();
    lightBrightInput.SetHidden(hide);
    lightInput.SetHidden(hide);
    lightZInput.SetHidden(hide);
    glossInput.SetHidden(hide);
    contrastInput.SetHidden(hide);
    lightColourInput.SetHidden(hide);
}

void RippleEngine::OnUseMatte(double time) {
    (void)time;
    invertMatteInput.SetHidden(!useMatteInput.Flag());
}

void RippleEngine::DrawControls() {
    PlaceHandles(viewWidth, viewHeight);
    SketchWaves(viewWidth, viewHeight);
    // The light's point handle stands only while "Lighting" is on.
    if (lightControl) lightControl->visible = lightingInput.Flag() ? 1 : 0;
    ToolOverlay::DrawControls();
}

void RippleEngine::PlaceHandles(int viewW, int viewH) {
    const float w = static_cast<float>(viewW);
    const float q = static_cast<float>(viewW * 0.25), r = static_cast<float>(viewH * 0.25);
    const double xAmpValue = xAmpInput.Double(), yAmpValue = yAmpInput.Double();
    const double xFreqValue = xFreqInput.Double(), yFreqValue = yFreqInput.Double();
    const double xPhaseValue = xPhaseInput.Double(), yPhaseValue = yPhaseInput.Double();
    auto set = [this](int i, double x, double y, float fromX, int colour) {
        handles[i].x = static_cast<float>(x);
        handles[i].y = static_cast<float>(y);
        handles[i].fromX = fromX;
        handles[i].fromY = 0.0f;
        handles[i].colour = colour;
    };
    set(0, w, r * xAmpValue * -0.01, w, 0);
    set(1, q * yAmpValue * -0.01, 0.0, 0.0f, 0);
    set(2, w + q * xFreqValue * 0.01, 0.0, w, 1);
    set(3, 0.0, -(r * yFreqValue * 0.01), 0.0f, 1);
    set(4, w + q * xPhaseValue * 0.01, q * xPhaseValue * 0.01, w, 2);
    set(5, -(q * yPhaseValue * 0.01), q * yPhaseValue * 0.01, 0.0f, 2);
}

void RippleEngine::SketchWaves(int viewW, int viewH) {
    const double xAmpValue = xAmpInput.Double(), yAmpValue = yAmpInput.Double();
    const double xFreqValue = xFreqInput.Double(), yFreqValue = yFreqInput.Double();
    const double xPhaseValue = xPhaseInput.Double(), yPhaseValue = yPhaseInput.Double();
    bottomSketch.clear();
    leftSketch.clear();
    const double fx = StepOver(viewW), fy = StepOver(viewH);
    for (int i = 2; i < viewW; i += 2) {
        const double s = std::sin((i * fx * xFreqValue + 1.0 - xPhaseValue * 0.01) * kTwoPi) *
                         xAmpValue * 0.01 * viewH * yAmpValue * 0.002;
        bottomSketch.push_back(static_cast<float>(i));
        bottomSketch.push_back(static_cast<float>(s));
    }
    for (int i = 2; i < viewH; i += 2) {
        const double s = std::sin((i * fy * yFreqValue + 1.0 - yPhaseValue * 0.01) * kTwoPi) *
                         yAmpValue * 0.01 * viewW * xAmpValue * 0.002;
        leftSketch.push_back(static_cast<float>(s));
        leftSketch.push_back(static_cast<float>(i));
    }
}

int RippleEngine::HandleAt(float px, float py, float radius, bool press) const {
    int found = 0;
    for (int i = 0; i < 6; ++i) {
        const Handle& k = handles[i];
        if (k.x - radius < px && px < k.x + radius && k.y - radius < py && py < k.y + radius) {
            found = i + 1;
            if (!press) break;
        }
    }
    return found;
}

double RippleEngine::DragValue(int handle, float px, float py, int viewW, int viewH) {
    if (viewW < 1 || viewH < 1) return 0.0;
    const double quarterW = viewW * 0.25, quarterH = viewH * 0.25;
    switch (handle) {
        case 1:
            return -py / quarterH * 100.0;
        case 2:
            return -px / quarterW * 100.0;
        case 3:
            return (px - viewW) / quarterW * 100.0;
        case 4:
            return -py / quarterH * 100.0;
        case 5:
            return (px - viewW > py ? px - viewW : py) / quarterW * 100.0;
        case 6:
            return (-px > py ? -px : py) / quarterW * 100.0;
        default:
            return 0.0;
    }
}

const ToolDecl& RippleToolDecl() {
    using E = RippleEngine;
    static const InputDecl rows[] = {
        Slider("XYmp", "X Amp", 0, 20.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::xAmpInput>(),
        Slider("XY37", "Y Amp", 0, 20.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::yAmpInput>(),
        Slider("XYeq", "X Freq", 0, 4.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::xFreqInput>(),
        Slider("XY83", "Y Freq", 0, 4.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::yFreqInput>(),
        Slider("XYse", "X Phase", 0, 0.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::xPhaseInput>(),
        Slider("XY31", "Y Phase", 0, 0.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::yPhaseInput>(),
        Combo("Fide", "FillMode", 0, 0.0, {"EdgeDup", "Black", "Wrap"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fillModeInput>(),
        Slider("Reon", "Refract Index", 0, 1.45, 1.0, 10.0)
            .Allowed(1.0, 10.0)
            .Bind<&E::refractInput>(),
        Slider("Blnd", "Blend", 0, 0.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::blendInput>(),
        Checkbox("Uste", "Use Matte", 0, 0.0)
            .Fixed()
            .Notify()
            .Bind<&E::useMatteInput>()
            .OnChange<&E::OnUseMatte>(),
        Checkbox("Inte", "Invert Matte", 0, 0.0).Bind<&E::invertMatteInput>(),
        Checkbox("Doht", "Lighting", 1, 0.0)
            .Fixed()
            .Notify()
            .Bind<&E::lightingInput>()
            .OnChange<&E::OnLighting>(),
        Offset("Liht", "Light", 1, 0.5, 0.5).Bind<&E::lightInput>(),
        Slider("LitZ", "LightZ", 1, 0.5, 0.05, 5.0).Allowed(0.05, 5.0).Bind<&E::lightZInput>(),
        Slider("Li45", "Light Bright", 1, 100.0, 0.0, 200.0)
            .Allowed(0.0, 200.0)
            .Bind<&E::lightBrightInput>(),
        ColourChannel("LiuR", "Light Colour", 1, 1, 0, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuG", "Light Colour", 1, 1, 1, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuB", "Light Colour", 1, 1, 2, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuA", "Light Colour", 1, 1, 3, 0.499992).Bind<&E::lightColourInput>(),
        Slider("Glss", "Gloss", 1, 45.0, 1.0, 1000.0).Allowed(1.0, 1000.0).Bind<&E::glossInput>(),
        Slider("Cost", "Contrast", 1, 100.0, 0.0, 100.0)
            .Allowed(0.0, 100.0)
            .Bind<&E::contrastInput>(),
        Slider("ChAb", "ChromaticAb", 1, 0.0, 0.0, 200.0)
            .Allowed(0.0, 200.0)
            .Bind<&E::chromaticInput>(),
        ImageIn("Clip to Ripple", "Clip to Ripple", 1),
        ImageIn("Matte", "Matte", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Ripple", "Light"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

RippleOperator::RippleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : RippleOperator(reg, script, tags, new RippleEngine()) {}

RippleOperator::RippleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                               RippleEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, RippleToolDecl()) {
    engine->lightControl = AddScreenControl<PointControl>({"Liht"});
    engine->waveHandles =
        AddScreenControl<RippleHandles>({"XYmp", "XY37", "XYeq", "XY83", "XYse", "XY31"});
    engine->waveHandles->engine = engine;
}
