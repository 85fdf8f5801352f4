#include "surface/Puddle.h"

#include <algorithm>
#include <cstddef>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Tags.h"

namespace {

// 1/32767 to float precision: a 16-bit light sample becomes a factor from 0 to 1.
constexpr float kSampleToUnit = 3.0518509e-05f;
// The mean of three 15-bit channels, over 32767.
constexpr double kMatteScale = 1.0172836491999064e-05;

bool IsOn(const InputBinding& b) {
    int on = 0;
    b.GetInt(kWholeValue, &on);
    return on == 1;
}

}  // namespace

void PuddleEngine::ReadValues(int width, int height, const double* pixelScale) {
    rain.rate = static_cast<float>(rainFreqInput.Double() * 0.1);
    rain.impact = static_cast<float>(rainImpactInput.Double());
    rain.radius = static_cast<float>(rainRadiusInput.Double() * 0.01);
    rain.endurance = static_cast<float>(rainEnduranceInput.Double());
    rain.width = width;
    rain.height = height;
    rain.aspect = pixelScale[0] / pixelScale[1];
    restartFrom = restartFromInput.Int();
    seed = seedInput.Int();
    waveHeight = static_cast<float>(waveHeightInput.Double() * 0.01);
    outputMap = outputMapInput.Flag();
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
    // Composited samples of the single pass never go below 0.
    p.clampLowFirstPass = 1;
}

void PuddleEngine::SumRows(int first, int last) {
    if (IsAborted()) return;
    drops.SumRows(rawField.data(), waveTable, first, last);
}

void PuddleEngine::HeightRows(int first, int last) {
    const int w = surface.width, h = surface.height;
    const WorkImage* matte = secondPort.image;
    const bool matted = useMatte && matte && matte->width >= w && matte->height >= h;
    const double gain = waveHeight;
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        float* out = maps.HeightRow(y);
        const float* raw = rawField.data() + static_cast<size_t>(y) * w;
        for (int x = 0; x < w; ++x) {
            double v = gain * raw[x] + 0.5;
            // Held to 0..1 before the matte acts.
            if (v < 0.0) v = 0.0;
            if (v > 1.0) v = 1.0;
            out[x] = static_cast<float>(v);
        }
        if (!matted) continue;
        // Black in the matte holds the surface at rest.
        const uint16_t* m = matte->rows[y];
        for (int x = 0; x < w; ++x, m += 4) {
            double k = (m[0] + m[1] + m[2]) * kMatteScale;
            if (invertMatte) k = 1.0 - k;
            out[x] = static_cast<float>(k * (out[x] - 0.5) + 0.5);
        }
    }
}

void PuddleEngine::WriteMap() {
    WorkImage* out = outputPort.image;
    const int w = surface.width, h = surface.height;
    if (!out || out->width < w || out->height < h) return;
    for (int y = 0; y < h; ++y) {
        if (IsAborted()) return;
        const float* raw = rawField.data() + static_cast<size_t>(y) * w;
        uint16_t* o = out->rows[y];
        for (int x = 0; x < w; ++x, o += 4) {
            int v = TruncateToInt((raw[x] + 0.5) * 32767.0);
            v = v < 0 ? 0 : (v > 32767 ? 32767 : v);
            o[0] = o[1] = o[2] = o[3] = static_cast<uint16_t>(v);
        }
    }
}

void PuddleEngine::Render() {
    // The tool never blends, whatever "Blend" says.
    blendAmount = 0.0f;
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* source = firstPort.image;
    if (!out || !source || out->width < 1 || out->height < 1) return;
    const int w = out->width, h = out->height;
    ReadValues(w, h, out->pixelScale);
    if (tableMissing) {
        if (!waveTable.Make()) return;
        tableMissing = 0;
    }
    // The rain of a render depends on the seed and the frame alone.
    randomState = TruncateToInt(-(seed + time));
    // Without a pyramid nothing is sampled, and the output stays a copy of the source.
    if (!PrepareSurface(source, out)) return;

    const int t = TruncateToInt(time);
    if (restartPending) {
        restartPending = 0;
        drops.Replay(restartFrom, t, rain, &randomState);
    }
    drops.Step(t, rain, &randomState);

    const size_t count = static_cast<size_t>(w) * static_cast<size_t>(h);
    if (rawField.size() < count) rawField.resize(count);
    std::fill(rawField.begin(), rawField.begin() + static_cast<std::ptrdiff_t>(count), 0.0f);
    drops.PrepareField(rain);
    RunOverRows(&PuddleEngine::SumRows, h);

    if (outputMap) {
        // The field itself; dead drops stay in the list on this path.
        WriteMap();
        return;
    }
    RunOverRows(&PuddleEngine::HeightRows, h);
    if (!IsAborted()) RunSurfacePasses(blendAmount, source);
    drops.RemoveDead();
}

// ---- Presets and handlers ----------------------------------------------------------------------

namespace {

struct PuddlePreset {
    double freq, impact, radius, endurance, waveHeight, refract;
    int seed;
};

// "Pit-a-Pat", "Brollies Up", "Plip-Plop", "Flood Alert".
const PuddlePreset kPresets[] = {
    {80.0, 2.75, 2.5, 0.57, 2.0, 1.05, 557},
    {20.0, 1.0, 10.0, 0.8, 5.0, 1.2, 557},
    {0.01, 1.0, 20.0, 2.0, 2.0, 1.2, 567},
    {20.0, 2.0, 10.0, 0.8, 10.0, 1.4, 557},
};

}  // namespace

void PuddleEngine::ApplyPreset(int number, double time) {
    if (number < 2 || number > 4) number = 1;
    const PuddlePreset& s = kPresets[number - 1];
    // "Plip-Plop" writes its two switches as a whole, the others at the time of the change.
    const double switchTime = number == 3 ? kWholeValue : time;
    rainFreqInput.SetDouble(time, s.freq);
    rainImpactInput.SetDouble(time, s.impact);
    rainRadiusInput.SetDouble(time, s.radius);
    rainEnduranceInput.SetDouble(time, s.endurance);
    waveHeightInput.SetDouble(time, s.waveHeight);
    refractInput.SetDouble(time, s.refract);
    outputMapInput.SetInt(switchTime, 0);
    restartFromInput.SetInt(time, -14);
    seedInput.SetInt(time, s.seed);
    lightingInput.SetInt(switchTime, 0);
    chromaticInput.SetDouble(time, 0.0);
    restartPending = 1;
}

void PuddleEngine::OnDemos(double time) {
    int number = 1;
    demosInput.GetIndex1(kWholeValue, &number);
    ApplyPreset(number, time);
}

void PuddleEngine::OnRestart(double time) {
    (void)time;
    double v = 0.0;
    restartInput.GetDouble(kWholeValue, &v);
    if (v > 0.5) restartPending = 1;
}

void PuddleEngine::OnLighting(double time) {
    (void)time;
    const bool hide = IsOn(outputMapInput) || !IsOn(lightingInput);
    lightBrightInput.SetHidden(hide);
    lightInput.SetHidden(hide);
    lightZInput.SetHidden(hide);
    glossInput.SetHidden(hide);
    contrastInput.SetHidden(hide);
    lightColourInput.SetHidden(hide);
}

void PuddleEngine::OnOutputMap(double time) {
    const bool map = IsOn(outputMapInput);
    lightingInput.SetHidden(map);
    OnLighting(time);
    chromaticInput.SetHidden(map);
    fillModeInput.SetHidden(map);
    useMatteInput.SetHidden(map);
    refractInput.SetHidden(map);
    OnUseMatte(time);
}

void PuddleEngine::OnUseMatte(double time) {
    (void)time;
    invertMatteInput.SetHidden(IsOn(outputMapInput) || !IsOn(useMatteInput));
}

void PuddleEngine::FirstFrame() {
    OnOutputMap(kNoTime);
    OnLighting(kNoTime);
    OnUseMatte(kNoTime);
}

void PuddleEngine::DrawControls() {
    // The light's point handle stands only while "Lighting" is on.
    if (lightControl) lightControl->visible = lightingInput.Flag() ? 1 : 0;
    ToolOverlay::DrawControls();
}

// ---- Adapter -----------------------------------------------------------------------------------

const ToolDecl& PuddleToolDecl() {
    using E = PuddleEngine;
    auto slider = [](const char* id, const char* label, int page, double def, double lo,
                     double hi) { return Slider(id, label, page, def, lo, hi).Allowed(lo, hi); };
    auto toggle = [](const char* id, const char* label, int page) {
        return Checkbox(id, label, page, 0.0).Fixed().Notify();
    };
    static const InputDecl rows[] = {
        Combo("Se18", "Demos", 0, 0.0, {"Pit-a-Pat", "Brollies Up", "Plip-Plop", "Flood Alert"})
            .Allowed(0.0, 3.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::demosInput>()
            .OnChange<&E::OnDemos>(),
        Button("Rein", "Restart Rain", 0)
            .Notify()
            .StoreAs(Store::Double)
            .Bind<&E::restartInput>()
            .OnChange<&E::OnRestart>(),
        slider("Reom", "Restart From", 0, -14.0, -1000.0, 0.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::restartFromInput>(),
        slider("Raeq", "Rain Freq", 0, 5.0, 0.0, 200.0).Bind<&E::rainFreqInput>(),
        slider("Ract", "Rain Impact", 0, 1.0, 0.0, 10.0).Bind<&E::rainImpactInput>(),
        slider("Raus", "Rain Radius", 0, 10.0, 0.0, 200.0).Bind<&E::rainRadiusInput>(),
        slider("Rare", "Rain Endurance", 0, 1.0, 0.0, 10.0).Bind<&E::rainEnduranceInput>(),
        slider("Rave", "Rain Wave Ht", 0, 10.0, 0.0, 100.0).Bind<&E::waveHeightInput>(),
        slider("Reex", "Refract Index", 0, 1.2, -10.0, 10.0).Bind<&E::refractInput>(),
        Combo("Fide", "FillMode", 0, 0.0, {"EdgeDup", "Black", "Wrap"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fillModeInput>(),
        toggle("Ouap", "Output Map", 0).Bind<&E::outputMapInput>().OnChange<&E::OnOutputMap>(),
        slider("Blnd", "Blend", 0, 0.0, 0.0, 100.0).Bind<&E::blendInput>(),
        Screw("Seed", "Seed", 0, 567.0)
            .Scale(0.0, 999.0)
            .Allowed(0.0, 999.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::seedInput>(),
        toggle("Uste", "Use Matte", 0).Bind<&E::useMatteInput>().OnChange<&E::OnUseMatte>(),
        Checkbox("Inte", "Invert Matte", 0, 0.0).Bind<&E::invertMatteInput>(),
        toggle("Doht", "Lighting", 1).Bind<&E::lightingInput>().OnChange<&E::OnLighting>(),
        Offset("Li10", "Light", 1, 0.75, 0.75).Bind<&E::lightInput>(),
        slider("LitZ", "LightZ", 1, 0.5, 0.05, 5.0).Bind<&E::lightZInput>(),
        slider("Liht", "Light Bright", 1, 100.0, 0.0, 200.0).Bind<&E::lightBrightInput>(),
        ColourChannel("LiuR", "Light Colour", 1, 1, 0, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuG", "Light Colour", 1, 1, 1, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuB", "Light Colour", 1, 1, 2, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuA", "Light Colour", 1, 1, 3, 0.499992).Bind<&E::lightColourInput>(),
        slider("Glss", "Gloss", 1, 45.0, 1.0, 1000.0).Bind<&E::glossInput>(),
        slider("Cost", "Contrast", 1, 100.0, 0.0, 100.0).Bind<&E::contrastInput>(),
        slider("ChAb", "ChromaticAb", 1, 0.0, 0.0, 200.0).Bind<&E::chromaticInput>(),
        ImageIn("Puddle Surface", "Puddle Surface", 1),
        ImageIn("Regional Matte", "Regional Matte", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Puddle", "Light"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

PuddleOperator::PuddleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : PuddleOperator(reg, script, tags, new PuddleEngine()) {}

PuddleOperator::PuddleOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                               PuddleEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, PuddleToolDecl()) {
    engine->lightControl = AddScreenControl<PointControl>({"Li10"});
}
