#include "surface/Glass.h"

#include <cmath>
#include <cstring>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Tags.h"

namespace {

// 1 / (40 * 32767) to float precision: a sum of 3 red, 5 green and 2 blue over four pixels
// becomes 0 to 1.
constexpr float kBlockScale = 7.629627e-7f;
// The widest baseline of a slope, far beyond any picture.
constexpr int kMostStep = 1 << 24;

}  // namespace

void GlassEngine::ReadValues(const WorkImage& texture) {
    blackHeight = static_cast<float>(blackHeightInput.Double() * 0.01);
    whiteHeight = static_cast<float>(whiteHeightInput.Double() * 0.01);
    invertMap = invertInput.Flag();
    smoothing = smoothingInput.Int();
    lightActive = lightActiveInput.Flag();
    // "Smoothing" counts pixels of a picture 720 wide.
    int step = TruncateToInt(smoothing / static_cast<double>(texture.referenceScale) + 0.5);
    if (step < 0) step = 0;
    neighbourStep = step > kMostStep ? kMostStep : step;

    const int w = texture.width, h = texture.height;
    SurfaceParams& p = surface;
    p.width = w;
    p.height = h;
    p.fillMode = fillInput.Int();
    p.refractIndex = static_cast<float>(indexInput.Double());
    p.chromaticAb = static_cast<float>(chromaticInput.Double() * 0.01);
    // The light stands in pixels, its colour in samples.
    p.lightStrength = static_cast<float>(brightnessInput.Double() * 0.01);
    p.lightX = static_cast<float>(lightInput.X() * w);
    p.lightY = static_cast<float>(lightInput.Y() * h);
    p.lightZ = static_cast<float>(lightZInput.Double() * w);
    p.gloss = static_cast<float>(glossInput.Double());
    p.backGain = static_cast<float>(backBrightInput.Double() * 0.01);
    p.lightRed = static_cast<float>(lightColourInput.Sample(0));
    p.lightGreen = static_cast<float>(lightColourInput.Sample(1));
    p.lightBlue = static_cast<float>(lightColourInput.Sample(2));
    p.neighbourStep = neighbourStep + 1;
    p.boxOffset = 0.0f;
    p.pointLight = 1;
    p.lightActive = lightActive ? 1 : 0;
    p.clampLowFirstPass = 0;
}

void GlassEngine::HeightRows(int first, int last) {
    const WorkImage* texture = HeightImage();
    const int w = surface.width, h = surface.height;
    if (!texture || texture->width < w || texture->height < h || maps.width != w ||
        maps.height != h || w < 2)
        return;
    const float low = blackHeight < 0.0f ? 0.0f : blackHeight;
    const float high = whiteHeight < 0.0f ? 0.0f : whiteHeight;
    // Bright glass stands higher whichever limit is the greater; only "Invert map" turns it over.
    const float range = std::fabs(high - low);
    const int end = last < h - 2 ? last : h - 2;
    for (int y = first; y <= end; ++y) {
        if (IsAborted()) return;
        const uint16_t* a = texture->rows[y];
        const uint16_t* b = texture->rows[y + 1];
        float* out = maps.HeightRow(y);
        for (int x = 0; x < w - 1; ++x, a += 4, b += 4) {
            const int sum = 3 * (a[0] + a[4] + b[0] + b[4]) + 5 * (a[1] + a[5] + b[1] + b[5]) +
                            2 * (a[2] + a[6] + b[2] + b[6]);
            double t = sum * static_cast<double>(kBlockScale);
            if (invertMap) t = 1.0 - t;
            out[x] = static_cast<float>(t * range + low);
        }
        out[w - 1] = out[w - 2];
    }
}

void GlassEngine::Render() {
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* picture = PictureImage();
    WorkImage* texture = HeightImage() ? HeightImage() : picture;
    if (!out || !picture || texture->width != out->width || texture->height != out->height ||
        picture->width != out->width || picture->height != out->height)
        return;
    for (int y = 0; y < out->height; ++y)
        std::memcpy(out->rows[y], picture->rows[y], static_cast<size_t>(out->width) * 8);
    ReadValues(*texture);
    // Without a pyramid nothing is sampled, and the output stays a copy of the picture.
    if (!PrepareSurface(picture, out)) return;
    const int w = out->width, h = out->height;
    if (w < 2 || h < 2) {
        // Too narrow or too low for a block of four: a flat pane at the lower limit.
        const float flat = blackHeight < 0.0f ? 0.0f : blackHeight;
        for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i)
            maps.heightMap[i] = flat;
    } else {
        RunOverRows(&GlassEngine::HeightRows, h);
        if (IsAborted()) return;
        // The last row repeats the one above, copied once both chunks are done.
        std::memcpy(maps.HeightRow(h - 1), maps.HeightRow(h - 2), sizeof(float) * w);
    }
    RunSurfacePasses(0.0f, picture);
}

void GlassEngine::FirstFrame() {
    // Without brightness the light's settings are greyed out; later changes of "Brightness" leave
    // them as they are.
    const bool dark = brightnessInput.Double() < 0.0001;
    glossInput.SetDisabled(dark);
    backBrightInput.SetDisabled(dark);
    lightColourInput.SetDisabled(dark);
    lightInput.SetDisabled(dark);
    lightZInput.SetDisabled(dark);
    OnLightActive(kNoTime);
}

void GlassEngine::OnLightActive(double time) {
    (void)time;
    const bool hide = !lightActiveInput.Flag();
    brightnessInput.SetHidden(hide);
    glossInput.SetHidden(hide);
    backBrightInput.SetHidden(hide);
    lightColourInput.SetHidden(hide);
    lightInput.SetHidden(hide);
    lightZInput.SetHidden(hide);
}

void GlassEngine::DrawControls() {
    // The light's handle stands while the light can shine.
    const float strength = static_cast<float>(brightnessInput.Double() * 0.01);
    if (lightControl) lightControl->visible = strength != 0.0f && lightActiveInput.Flag() ? 1 : 0;
    ToolOverlay::DrawControls();
}

const ToolDecl& GlassToolDecl() {
    using E = GlassEngine;
    static const InputDecl rows[] = {
        Slider("BHei", "BlackHeight", 0, 10.0, 0.0, 100.0)
            .Allowed(0.0, 100.0)
            .Bind<&E::blackHeightInput>(),
        Slider("WHei", "WhiteHeight", 0, 20.0, 0.0, 100.0)
            .Allowed(0.0, 100.0)
            .Bind<&E::whiteHeightInput>(),
        Slider("Indx", "Index", 0, 1.4, 1.0, 10.0).Allowed(1.0, 10.0).Bind<&E::indexInput>(),
        Checkbox("Invt", "Invert map", 0, 0.0).Bind<&E::invertInput>(),
        Combo("ImgF", "ImageFill", 0, 0.0, {"Duplicate", "Black", "Wrap"})
            .Allowed(0.0, 2.0)
            .Bind<&E::fillInput>(),
        Slider("Smoo", "Smoothing", 0, 0.0, 0.0, 10.0)
            .Allowed(0.0, 10.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::smoothingInput>(),
        Slider("ChAb", "ChromaticAb", 0, 0.0, 0.0, 200.0)
            .Allowed(0.0, 200.0)
            .Bind<&E::chromaticInput>(),
        Checkbox("LiOn", "Light Active", 0, 0.0)
            .Fixed()
            .Notify()
            .Bind<&E::lightActiveInput>()
            .OnChange<&E::OnLightActive>(),
        Offset("LiPo", "Light", 0, 0.5, 0.5).Bind<&E::lightInput>(),
        Slider("LigZ", "LightZ", 0, 0.5, 0.05, 5.0).Allowed(0.05, 5.0).Bind<&E::lightZInput>(),
        Slider("LiBr", "Brightness", 0, 100.0, 0.0, 200.0)
            .Allowed(0.0, 200.0)
            .Bind<&E::brightnessInput>(),
        ColourChannel("LiuR", "Light", 0, 1, 0, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuG", "Light", 0, 1, 1, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuB", "Light", 0, 1, 2, 1.0).Bind<&E::lightColourInput>(),
        ColourChannel("LiuA", "Light", 0, 1, 3, 0.499992).Bind<&E::lightColourInput>(),
        Slider("Glos", "Gloss", 0, 45.0, 1.0, 1000.0).Allowed(1.0, 1000.0).Bind<&E::glossInput>(),
        Slider("Cont", "Back Bright", 0, 100.0, 0.0, 100.0)
            .Allowed(0.0, 100.0)
            .Bind<&E::backBrightInput>(),
        // The texture is made first but read second; the picture behind is the main image.
        ImageIn("Glass", "Glass", 2).Optional().Port<&ToolEngine::firstPort>(),
        ImageIn("Behind Glass", "Behind Glass", 1).Port<&ToolEngine::secondPort>(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Glass"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

GlassOperator::GlassOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : GlassOperator(reg, script, tags, new GlassEngine()) {}

GlassOperator::GlassOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                             GlassEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, GlassToolDecl()) {
    engine->lightControl = AddScreenControl<PointControl>({"LiPo"});
}
