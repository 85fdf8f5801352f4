#include "surface/Pool.h"

#include <cmath>

#include "frame/WorkImage.h"
#include "host/Tags.h"
#include "surface/PoolControls.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;
// 1 / (2 pi): an angle in radians becomes turns.
constexpr double kTurns = 0.15915494309189535;
// The water's index: Pool has no input for it.
constexpr float kPoolIndex = 1.45f;
// 1/32767 to float precision: a 16-bit light sample becomes a factor from 0 to 1.
constexpr float kSampleToUnit = 3.0518509e-05f;

float StepOver(int size) {
    return size > 1 ? static_cast<float>(1.0 / (size - 1)) : 0.0f;
}

}  // namespace

void PoolEngine::ReadValues(const WorkImage& out) {
    centerX = static_cast<float>(centerInput.X());
    centerY = static_cast<float>(centerInput.Y());
    radius = static_cast<float>(radiusInput.Double());
    frequency = static_cast<float>(frequencyInput.Double());
    phase = static_cast<float>(phaseInput.Double());
    waveHeight = static_cast<float>(heightInput.Double() * 0.01);
    style = styleInput.Int() - 1;
    if (style < kPond || style > kTwirl) style = kPond;
    tightness = static_cast<float>(tightnessInput.Double());
    blend = static_cast<float>(blendInput.Double() * 0.01);
    useMatte = useMatteInput.Flag();
    invertMatte = invertMatteInput.Flag();
    aspectX = out.pixelScale[0];
    aspectY = out.pixelScale[1];
    stepX = StepOver(out.width);
    stepY = StepOver(out.height);

    SurfaceParams& p = surface;
    p.width = out.width;
    p.height = out.height;
    p.fillMode = fillModeInput.Int() - 1;
    p.refractIndex = kPoolIndex;
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

float PoolEngine::WaveHeight(double dx, double dy) const {
    const float r = static_cast<float>(std::sqrt(dx * dx + dy * dy));
    // The angle about the centre in turns, 0 to 1; the spokes count at least one.
    auto turns = [&]() {
        double a = std::atan2(dy, dx);
        if (a < 0.0) a += kTwoPi;
        return a * kTurns;
    };
    const int spokes = frequency < 1.0f ? 1 : static_cast<int>(frequency < 1e6f ? frequency : 1e6f);
    double position;
    switch (style) {
        case kSwirl:
            position = turns() * spokes + phase;
            break;
        case kCentral:
            // One arm that winds tighter towards the centre.
            position = frequency / (2.0 * r + 1.0) * r + turns() + phase;
            break;
        case kTwirl:
            position = turns() * spokes + static_cast<double>(tightness) * r + phase;
            break;
        default:
            position = static_cast<double>(r) * frequency + phase;
            break;
    }
    const double s = waveTable.Interpolate(position);
    // Full height within the radius, a smooth step down to nothing at 2.1 radii.
    double e = (r - static_cast<double>(radius)) / (radius * 1.1);
    if (!(e > 0.0)) e = 0.0;
    if (e > 1.0) e = 1.0;
    const double g = 1.0 - e;
    const double fall = 3.0 * g * g - 2.0 * g * g * g;
    return static_cast<float>(fall * s * waveHeight + 0.5);
}

void PoolEngine::HeightRows(int first, int last) {
    const int w = surface.width, h = surface.height;
    if (w < 1 || h < 1 || maps.width != w || maps.height != h) return;
    // Distances in Y are in image widths, and stretched by the pixels' aspect; a picture without
    // a usable aspect counts as square.
    double aspect = aspectX / aspectY;
    if (!(aspect > 0.0) || !std::isfinite(aspect)) aspect = 1.0;
    const WorkImage* matte = secondPort.image;
    const bool matted = useMatte && matte && matte->width >= w && matte->height >= h;
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const int row = y < 0 ? 0 : (y > h - 1 ? h - 1 : y);
        float* out = maps.HeightRow(row);
        const float dy =
            static_cast<float>((row * static_cast<double>(stepY) - centerY) * h / w / aspect);
        for (int x = 0; x < w; ++x)
            out[x] = WaveHeight(x * static_cast<double>(stepX) - centerX, dy);
        if (matted) HoldToRestByMatte(out, matte->rows[row], w, invertMatte);
    }
}

void PoolEngine::Render() {
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* source = firstPort.image;
    if (!out || !source) return;
    ReadValues(*out);
    if (blend == 1.0f) {
        // Fully blended back: the source as it is, with nothing sampled.
        out->CopyScaled(source, 1.0f, 1.0f, 1.0f, 1.0f);
        if (!keepOutputAlpha) out->CopyAlphaFrom(source);
        return;
    }
    // Black and clear until the passes have run, should a later step stop.
    out->Fill(0, 0, 0, 0);
    if (tableMissing) {
        if (!waveTable.Make()) return;
        tableMissing = false;
    }
    if (!PrepareSurface(source, out)) return;
    RunOverRows(&PoolEngine::HeightRows, out->height);
    if (IsAborted()) return;
    RunSurfacePasses(blend, source);
}

void PoolEngine::FirstFrame() {
    OnLighting(kNoTime);
    OnStyle(kNoTime);
    OnUseMatte(kNoTime);
}

void PoolEngine::OnLighting(double time) {
    (void)time;
    const bool hide = !lightingInput.Flag();
    lightBrightInput.SetHidden(hide);
    lightInput.SetHidden(hide);
    lightZInput.SetHidden(hide);
    glossInput.SetHidden(hide);
    contrastInput.SetHidden(hide);
    lightColourInput.SetHidden(hide);
}

void PoolEngine::OnStyle(double time) {
    (void)time;
    tightnessInput.SetHidden(styleInput.Int() != kTwirl + 1);
}

void PoolEngine::OnUseMatte(double time) {
    (void)time;
    invertMatteInput.SetHidden(!useMatteInput.Flag());
}

void PoolEngine::DrawControls() {
    // The light's handle stands only while "Lighting" is on, as its inputs do.
    if (lightControl) lightControl->visible = lightingInput.Flag() ? 1 : 0;
    ToolOverlay::DrawControls();
}

const ToolDecl& PoolToolDecl() {
    using E = PoolEngine;
    static const InputDecl rows[] = {
        Offset("Ceer", "Center", 0, 0.5, 0.5).Bind<&E::centerInput>(),
        Slider("Raus", "Radius", 0, 0.5, 0.001, 10.0).Allowed(0.001, 10.0).Bind<&E::radiusInput>(),
        Slider("Frcy", "Frequency", 0, 8.0, 0.01, 100.0)
            .Allowed(0.01, 100.0)
            .Bind<&E::frequencyInput>(),
        Slider("Phse", "Phase", 0, 0.0, 0.0, 100.0).Allowed(0.0, 100.0).Bind<&E::phaseInput>(),
        Slider("Heht", "Height", 0, 1.0, 0.0, 10.0).Allowed(0.0, 10.0).Bind<&E::heightInput>(),
        Combo("Fide", "FillMode", 0, 0.0, {"EdgeDup", "Black", "Wrap"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fillModeInput>(),
        Combo("Pode", "Style", 0, 0.0, {"Pond", "Swirl", "Central", "Twirl+Tightness"})
            .Allowed(0.0, 3.0)
            .StoreAs(Store::Index1, 1.0)
            .Notify()
            .Bind<&E::styleInput>()
            .OnChange<&E::OnStyle>(),
        Slider("Tiss", "Tightness", 0, 4.0, -20.0, 20.0)
            .Allowed(-20.0, 20.0)
            .Bind<&E::tightnessInput>(),
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
        Offset("Li65", "Light", 1, 0.75, 0.75).Bind<&E::lightInput>(),
        Slider("LitZ", "LightZ", 1, 0.5, 0.05, 5.0).Allowed(0.05, 5.0).Bind<&E::lightZInput>(),
        Slider("Liht", "Light Bright", 1, 100.0, 0.0, 200.0)
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
        ImageIn("Clip to Undulate", "Clip to Undulate", 1),
        ImageIn("Regional Matte", "Regional Matte", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Pool", "Light"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

PoolOperator::PoolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : PoolOperator(reg, script, tags, new PoolEngine()) {}

PoolOperator::PoolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                           PoolEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, PoolToolDecl()) {
    engine->centerControl = AddScreenControl<PointControl>({"Ceer"});
    engine->radiusControl = AddScreenControl<RadiusControl>({"Raus", "Ceer"});
    engine->lightControl = AddScreenControl<PointControl>({"Li65"});
}
