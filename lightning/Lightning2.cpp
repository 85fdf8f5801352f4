#include "lightning/Lightning2.h"

#include <cstdint>

#include "host/Tags.h"
#include "lightning/BoltGeometry.h"

namespace {

int64_t Larger(int64_t a, int64_t b) {
    return a > b ? a : b;
}

// A sample count held to the room of the spline's arrays.
int HeldSamples(int64_t count) {
    return static_cast<int>(count > kSplinePoints ? kSplinePoints : count);
}

}  // namespace

Lightning2Engine::Lightning2Engine()
    : splineX_(kSplinePoints),
      splineY_(kSplinePoints),
      splineZ_(kSplinePoints),
      splineT_(kSplinePoints),
      overlayZ_(kSplinePoints),
      overlayT_(kSplinePoints) {}

SingleInputBinding& Lightning2Engine::PointInput(int k) {
    SingleInputBinding* points[9] = {&point1Input, &point2Input, &point3Input,
                                     &point4Input, &point5Input, &point6Input,
                                     &point7Input, &point8Input, &point9Input};
    return *points[k < 1 ? 0 : (k > 9 ? 8 : k - 1)];
}

void Lightning2Engine::ReadToolValues(int width, int height) {
    (void)width;
    (void)height;
    params.branchLength = static_cast<float>(branchLengthInput.Double());
}

int Lightning2Engine::BuildGuidePath(int width, int height) {
    const int points = pointCountInput.Int();
    const int n = points < 3 ? 3 : (points > 9 ? 9 : points);
    float x[9], y[9], z[9] = {};
    for (int k = 0; k < n; ++k) {
        x[k] = static_cast<float>(PointInput(k + 1).X());
        y[k] = static_cast<float>(PointInput(k + 1).Y());
    }
    // The path is sampled at the count the later steps read. The two counts agree whenever
    // "Smoothing Points" is at least 3 * Points - 3; below that the larger one serves both.
    const int64_t smoothing = smoothingInput.Int();
    const int64_t sampled = Larger(smoothing, 2 * int64_t{n});
    const int64_t read = Larger(smoothing, 3 * int64_t{points} - 3);
    const int count = HeldSamples(Larger(sampled, read));
    SamplePolyline(x, y, z, n, splineX_.data(), splineY_.data(), splineZ_.data(), splineT_.data(),
                   count);
    for (int i = 0; i < count; ++i) {
        pathX[i] = static_cast<float>(splineX_[i] * static_cast<double>(width));
        pathY[i] = static_cast<float>(splineY_[i] * static_cast<double>(height));
    }
    return count;
}

void Lightning2Engine::DrawBoltTree(int width, int height) {
    const int points = BuildGuidePath(width, height);
    mainPoints = points;
    DrawBoltPolyline(pathX.data(), pathY.data(), points, 0, true);
    branchCount =
        PickBranches(params, pathX.data(), pathY.data(), points, branches, 0, params.branchLength);
    DrawBranches(branchCount, true, params.branchLength);
}

void Lightning2Engine::FirstFrame() {
    UpdatePointInputs(kNoTime);
    UpdateEnvironmentInputs(kNoTime);
}

void Lightning2Engine::UpdatePointInputs(double time) {
    (void)time;
    const int points = pointCountInput.Int();
    for (int k = 4; k <= 9; ++k)
        PointInput(k).SetHidden(k > points);
}

void Lightning2Engine::DrawControls() {
    DrawGuideOverlay(viewWidth, viewHeight);
    // The guide through the shown points, in dark green, then the shown points' marks.
    std::vector<float> guide;
    guide.reserve(guideLineX.size() * 2);
    for (size_t i = 0; i < guideLineX.size(); ++i) {
        guide.push_back(guideLineX[i]);
        guide.push_back(guideLineY[i]);
    }
    SetDrawColour(0, 30000, 0, 65535);
    DrawStrip(guide);
    for (size_t k = 0; k < controls.size() && k < 9; ++k)
        controls[k]->visible = guideShown[k];
    ToolOverlay::DrawControls();
}

void Lightning2Engine::DrawGuideOverlay(int width, int height) {
    const int points = pointCountInput.Int();
    float x[9], y[9], z[9] = {};
    int entries = 0;
    for (int k = 1; k <= 9; ++k) {
        const SingleInputBinding& input = PointInput(k);
        const bool shown = k <= 3 || (!input.hidden && k <= points);
        guideShown[k - 1] = shown;
        if (!shown) continue;
        guidePointX[k - 1] = static_cast<float>(width * input.X());
        guidePointY[k - 1] = static_cast<float>(height * input.Y());
        x[entries] = static_cast<float>(input.X());
        y[entries] = static_cast<float>(input.Y());
        ++entries;
    }
    const int samples = HeldSamples(Larger(smoothingInput.Int(), 2 * int64_t{entries}));
    guideLineX.resize(static_cast<size_t>(samples));
    guideLineY.resize(static_cast<size_t>(samples));
    SamplePolyline(x, y, z, entries, guideLineX.data(), guideLineY.data(), overlayZ_.data(),
                   overlayT_.data(), samples);
    for (int i = 0; i < samples; ++i) {
        guideLineX[i] = static_cast<float>(guideLineX[i] * static_cast<double>(width));
        guideLineY[i] = static_cast<float>(guideLineY[i] * static_cast<double>(height));
    }
}

const ToolDecl& Lightning2ToolDecl() {
    using E = Lightning2Engine;
    static const InputDecl rows[] = {
        Slider("BDen", "BrDensity", 0, 100.0, 0.0, 500.0).Bind<&E::densityInput>(),
        Slider("MinA", "MinBrAng", 0, 20.0, 0.0, 180.0).Bind<&E::minAngleInput>(),
        Slider("MaxA", "MaxBrAng", 0, 50.0, 0.0, 180.0).Bind<&E::maxAngleInput>(),
        Slider("PDra", "Drawn", 0, 100.0, 1.0, 100.0).Bind<&E::drawnInput>(),
        Checkbox("KPat", "Seed Lock", 0, 0.0).Hidden().Bind<&E::seedLockInput>(),
        Slider("Thic", "Thickness", 0, 100.0, 20.0, 500.0).Bind<&E::thicknessInput>(),
        Slider("Wobb", "IntWobble", 0, 0.0, 0.0, 100.0).Bind<&E::wobbleInput>(),
        Slider("Brig", "Brightness", 0, 100.0, 0.0, 100.0).Bind<&E::brightnessInput>(),
        Slider("Swel", "Expand", 0, 100.0, -100.0, 100.0).Bind<&E::expandInput>(),
        Slider("Brth", "Branch Length", 0, 1.0, 0.01, 2.0).Bind<&E::branchLengthInput>(),
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
        Slider("Pots", "Smoothing Points", 2, 60.0, 30.0, 400.0)
            .Whole()
            .StoreAs(Store::Int)
            .Bind<&E::smoothingInput>(),
        Slider("Tots", "Points", 2, 9.0, 3.0, 9.0)
            .Whole()
            .Notify()
            .StoreAs(Store::Int)
            .Bind<&E::pointCountInput>()
            .OnChange<&E::UpdatePointInputs>(),
        Offset("P111", "Point 1", 2, 0.08, 0.93).Bind<&E::point1Input>(),
        Offset("P222", "Point 2", 2, 0.15, 0.64).Bind<&E::point2Input>(),
        Offset("P333", "Point 3", 2, 0.32, 0.2).Bind<&E::point3Input>(),
        Offset("P444", "Point 4", 2, 0.66, 0.06).Bind<&E::point4Input>(),
        Offset("P555", "Point 5", 2, 0.92, 0.36).Bind<&E::point5Input>(),
        Offset("P666", "Point 6", 2, 0.85, 0.76).Bind<&E::point6Input>(),
        Offset("P777", "Point 7", 2, 0.64, 0.88).Bind<&E::point7Input>(),
        Offset("P888", "Point 8", 2, 0.43, 0.81).Bind<&E::point8Input>(),
        Offset("P999", "Point 9", 2, 0.39, 0.53).Bind<&E::point9Input>(),
        ImageIn("Background", "Background", 1),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{
        {"Q9 Lightning2", "Environment", "Points"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

Lightning2Operator::Lightning2Operator(const Registry* reg, const ScriptVal& script,
                                       const TagList& tags)
    : Lightning2Operator(reg, script, tags, new Lightning2Engine()) {}

Lightning2Operator::Lightning2Operator(const Registry* reg, const ScriptVal& script,
                                       const TagList& tags, Lightning2Engine* engine)
    : ToolOperator(reg, script, tags, engine, engine, Lightning2ToolDecl()) {
    // Nine point controls in red; events reach them in the order 1 to 9.
    for (const char* id :
         {"P111", "P222", "P333", "P444", "P555", "P666", "P777", "P888", "P999"}) {
        ScreenControl* c = AddScreenControl<PointControl>({id});
        c->green = 0;
        c->blue = 0;
    }
}
