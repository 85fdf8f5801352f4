#include "lightning/Lightning.h"

#include "host/Tags.h"
#include "lightning/BoltGeometry.h"

void LightningEngine::ReadToolValues(int width, int height) {
    // Points are stored as they come: the Y of a point times the height is a row of the picture.
    params.startX = static_cast<float>(width * startInput.X());
    params.startY = static_cast<float>(height * startInput.Y());
    params.endX = static_cast<float>(width * endInput.X());
    params.endY = static_cast<float>(height * endInput.Y());
}

void LightningEngine::DrawBoltTree(int width, int height) {
    (void)width;
    (void)height;
    int points = MakeBaseLine(params, pathX.data(), pathY.data());
    points = Subdivide(pathX.data(), pathY.data(), points, 0);
    mainPoints = points;
    DrawBoltPolyline(pathX.data(), pathY.data(), points, 0, false);
    branchCount = PickBranches(params, pathX.data(), pathY.data(), points, branches, 0, 1.0f);
    DrawBranches(branchCount, false, 1.0f);
}

void LightningEngine::FirstFrame() {
    UpdateEnvironmentInputs(kNoTime);
}

void LightningEngine::DrawControls() {
    PlaceControls(viewWidth, viewHeight);
    // The line between Start and End first, then the two points.
    ToolOverlay::DrawControls();
}

void LightningEngine::PlaceControls(int width, int height) {
    controlStart[0] = static_cast<float>(width * startInput.X());
    controlStart[1] = static_cast<float>(height * startInput.Y());
    controlEnd[0] = static_cast<float>(width * endInput.X());
    controlEnd[1] = static_cast<float>(height * endInput.Y());
}

const ToolDecl& LightningToolDecl() {
    using E = LightningEngine;
    static const InputDecl rows[] = {
        Offset("Star", "Start", 0, 0.1, 0.95).Bind<&E::startInput>(),
        Offset("Endd", "End", 0, 0.6, 0.05).Bind<&E::endInput>(),
        Slider("BDen", "BrDensity", 0, 100.0, 0.0, 500.0).Bind<&E::densityInput>(),
        Slider("MinA", "MinBrAng", 0, 20.0, 0.0, 180.0).Bind<&E::minAngleInput>(),
        Slider("MaxA", "MaxBrAng", 0, 50.0, 0.0, 180.0).Bind<&E::maxAngleInput>(),
        Slider("PDra", "Drawn", 0, 100.0, 1.0, 100.0).Bind<&E::drawnInput>(),
        Checkbox("KPat", "Seed Lock", 0, 0.0).Hidden().Bind<&E::seedLockInput>(),
        Slider("Thic", "Thickness", 0, 100.0, 20.0, 500.0).Bind<&E::thicknessInput>(),
        Slider("Wobb", "IntWobble", 0, 0.0, 0.0, 100.0).Bind<&E::wobbleInput>(),
        Slider("Brig", "Brightness", 0, 100.0, 0.0, 100.0).Bind<&E::brightnessInput>(),
        Slider("Swel", "Expand", 0, 100.0, -100.0, 100.0).Bind<&E::expandInput>(),
        Slider("Gene", "Generate", 0, 1.0, 0.0, 1.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::generateInput>(),
        Screw("Seed", "Seed", 0, 1.0)
            .Whole()
            .Allowed(1.0, 999.0)
            .StoreAs(Store::Int)
            .Bind<&E::seedInput>(),
        Combo("Mode", "Mode", 1, 0.0, {"Add", " Illuminate"})
            .Scale(0.0, 1.0)
            .Notify()
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::modeInput>()
            .OnChange<&E::UpdateEnvironmentInputs>(),
        Slider("GloR", "Glow Rad", 1, 10.0, 0.2, 100.0).Bind<&E::glowRadiusInput>(),
        Slider("GloB", "Glow Bri", 1, 10.0, 0.0, 200.0).Bind<&E::glowBrightInput>(),
        ColourChannel("CouR", "GlowColour", 1, 1, 0, 0.470588).Bind<&E::glowColourInput>(),
        ColourChannel("CouG", "GlowColour", 1, 1, 1, 0.470588).Bind<&E::glowColourInput>(),
        ColourChannel("CouB", "GlowColour", 1, 1, 2, 0.941176).Bind<&E::glowColourInput>(),
        ColourChannel("CouA", "GlowColour", 1, 1, 3, 1.0).Bind<&E::glowColourInput>(),
        Slider("MinL", "MinEnvLight", 1, 100.0, 0.0, 100.0).Bind<&E::minEnvLightInput>(),
        Slider("EnvS", "EnvIllScale", 1, 100.0, 0.0, 200.0).Bind<&E::envScaleInput>(),
        ImageIn("Background", "Background", 1),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{
        {"Q9 Lightning", "Environment"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

LightningOperator::LightningOperator(const Registry* reg, const ScriptVal& script,
                                     const TagList& tags)
    : LightningOperator(reg, script, tags, new LightningEngine()) {}

LightningOperator::LightningOperator(const Registry* reg, const ScriptVal& script,
                                     const TagList& tags, LightningEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, LightningToolDecl()) {
    // Events reach the line first, then the point of Start, then that of End; all in blue.
    ScreenControl* controls[3] = {AddScreenControl<LineControl>({"Star", "Endd"}),
                                  AddScreenControl<PointControl>({"Star"}),
                                  AddScreenControl<PointControl>({"Endd"})};
    for (ScreenControl* c : controls) {
        c->red = 0;
        c->green = 0;
        c->blue = 65535;
    }
}
