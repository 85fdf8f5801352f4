#include "kal/Kal.h"

#include <cmath>

#include "frame/SamplePyramid.h"
#include "frame/WorkImage.h"
#include "kal/KalControls.h"

namespace {

// Degrees to radians, as the kaleidoscope takes its angles.
constexpr double kKalRadians = 0.017453292522222223;

}  // namespace

KalEngine::~KalEngine() {
    FreePyramid(pyramid);
}

void KalEngine::ReadValues(int w, int h, double aspectY) {
    width = w;
    height = h;
    halfW = w / 2;
    halfH = h / 2;
    hexRadius = static_cast<float>(halfW * hexRadiusInput.Double());
    arrayRot = static_cast<float>(arrayRotInput.Double() * kKalRadians);
    arrayOffsetX = static_cast<float>((arrayOffInput.X() - 0.5) * hexRadius);
    arrayOffsetY = static_cast<float>((arrayOffInput.Y() - 0.5) * hexRadius);
    imageRot = static_cast<float>(imageRotInput.Double() * kKalRadians);
    imageScale =
        static_cast<float>(w / (static_cast<double>(hexRadius) * imageScaleInput.Double()));
    distortion = static_cast<float>(distortionInput.Double());
    imageCentreX = static_cast<float>(w * imageCentreInput.X() - halfW);
    imageCentreY = static_cast<float>(h * imageCentreInput.Y() - halfH);
    maxDesat = static_cast<float>(maxDesatInput.Double());
    desatWidth = static_cast<float>(desatWidthInput.Double());
    vignetteStart =
        vignetteInput.Flag() ? static_cast<float>(w * vignetteGoInput.Double() * 0.5) : 0.0f;
    vignetteEnd = static_cast<float>(w * vignetteEndInput.Double() * 0.5);
    cameraX = static_cast<float>(w * cameraOrgInput.X());
    cameraY = static_cast<float>(h * cameraOrgInput.Y());
    cameraRot = static_cast<float>(cameraRotInput.Double() * kKalRadians);
    latticeExtent = static_cast<float>(latticeExtInput.Double());
    fillType = fillTypeInput.Int() - 1;
    // A vertical aspect that is not a positive finite number counts as square pixels.
    const double factor = 1.0 / aspectY;
    yFactor =
        aspectY > 0.0 && std::isfinite(factor) && factor > 0.0 ? static_cast<float>(factor) : 1.0f;
    if (!(yFactor > 0.0f) || !std::isfinite(yFactor)) yFactor = 1.0f;
}

void KalEngine::Render() {
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* source = firstPort.image;
    if (!out || !source) return;
    const int w = out->width, h = out->height;
    ReadValues(w, h, out->pixelScale[1]);
    // Hexagons without size, or an image scale without a value, cover nothing: the output stays
    // the copy of the source.
    if (!(hexRadius > 0.0f) || !std::isfinite(hexRadius) || !(imageScale > 0.0f) ||
        !std::isfinite(imageScale))
        return;
    PrepareTriangles();
    pyramid = BuildPyramid(source, w, h, pyramid);
    if (!pyramid) return;
    RunOverRows(&KalEngine::DrawLatticeBand, source->height < h ? source->height : h);
}

void KalEngine::FirstFrame() {
    OnVignette(kNoTime);
}

void KalEngine::OnVignette(double time) {
    (void)time;
    const bool hide = !vignetteInput.Flag();
    vignetteGoInput.SetHidden(hide);
    vignetteEndInput.SetHidden(hide);
}

const ToolDecl& KalToolDecl() {
    using E = KalEngine;
    static const InputDecl rows[] = {
        Slider("HexR", "HexagonRad", 0, 0.5, 0.01, 5.0)
            .Allowed(0.01, 5.0)
            .Bind<&E::hexRadiusInput>(),
        Slider("IScl", "ImgScale", 0, 1.0, 0.01, 100.0)
            .Allowed(0.01, 100.0)
            .Bind<&E::imageScaleInput>(),
        Screw("ARot", "ArrayRot", 0, 0.0).Allowed(-360.0, 360.0).Bind<&E::arrayRotInput>(),
        Screw("IRot", "ImageRot", 0, 0.0).Allowed(-360.0, 360.0).Bind<&E::imageRotInput>(),
        Screw("CRot", "CameraRot", 0, 0.0).Allowed(-360.0, 360.0).Bind<&E::cameraRotInput>(),
        Offset("AOff", "ArrayOff", 0, 0.0, 0.0).Bind<&E::arrayOffInput>(),
        Offset("ICen", "ImgCentre", 0, 0.4, 0.4).Bind<&E::imageCentreInput>(),
        Offset("CamO", "CameraOrg", 0, 0.5, 0.5).Bind<&E::cameraOrgInput>(),
        Slider("Dist", "Distortion", 1, 0.0, -10.0, 10.0)
            .Allowed(-10.0, 10.0)
            .Bind<&E::distortionInput>(),
        Combo("FTyp", "FillType", 1, 0.0, {"EdgeDup", "Black", "Wrap"})
            .Allowed(0.0, 2.0)
            .StoreAs(Store::Index1, 1.0)
            .Bind<&E::fillTypeInput>(),
        Slider("LExt", "LatticeExt", 1, 1.0, 0.1, 10.0)
            .Allowed(0.1, 10.0)
            .Bind<&E::latticeExtInput>(),
        Slider("MxDs", "MaxDesat", 1, 0.0, 0.0, 1.0).Allowed(0.0, 1.0).Bind<&E::maxDesatInput>(),
        Slider("DsWd", "DesatWidth", 1, 10.0, 1.0, 100.0)
            .Allowed(1.0, 100.0)
            .Bind<&E::desatWidthInput>(),
        Checkbox("Vg", "Vignette", 1, 0.0)
            .Notify()
            .Bind<&E::vignetteInput>()
            .OnChange<&E::OnVignette>(),
        Slider("ViGo", "VignetteGo", 1, 0.2, 0.001, 10.0)
            .Allowed(0.001, 10.0)
            .Hidden()
            .Bind<&E::vignetteGoInput>(),
        Slider("ViEn", "VignetteEnd", 1, 0.7, 0.0, 10.0)
            .Allowed(0.0, 10.0)
            .Hidden()
            .Bind<&E::vignetteEndInput>(),
        ImageIn("Clip to Observe", "Clip to Observe", 1),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Kal", "Look"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

KalOperator::KalOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : KalOperator(reg, script, tags, new KalEngine()) {}

KalOperator::KalOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                         KalEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, KalToolDecl()) {
    // The eight controls, in the order they are made; the engine passes events in its own order.
    engine->goRing = AddScreenControl<KalRing>({"ViGo"});
    engine->endRing = AddScreenControl<KalRing>({"ViEn"});
    engine->cameraPoint = AddScreenControl<PointControl>({"CamO"});
    engine->cameraAngle = AddScreenControl<AngleControl>({"CRot"});
    engine->centrePoint = AddScreenControl<PointControl>({"ICen"});
    engine->imageAngle = AddScreenControl<AngleControl>({"IRot"});
    engine->arrayAngle = AddScreenControl<AngleControl>({"ARot"});
    engine->hexagon = AddScreenControl<KalHexagonControl>({"IScl", "HexR", "AOff"});
    engine->hexagon->engine = engine;
    engine->endRing->handleAngle = KalRing::kEndHandleAngle;
    const struct {
        ScreenControl* control;
        int red, green, blue;
    } colours[] = {
        {engine->goRing, 0, 65535, 65535},         {engine->endRing, 0, 65535, 65535},
        {engine->cameraPoint, 41120, 8224, 61680}, {engine->cameraAngle, 41120, 8224, 61680},
        {engine->centrePoint, 0, 65535, 0},        {engine->imageAngle, 0, 65535, 0},
        {engine->arrayAngle, 65535, 65535, 0},     {engine->hexagon, 41120, 8224, 61680}};
    for (const auto& c : colours) {
        c.control->red = c.red;
        c.control->green = c.green;
        c.control->blue = c.blue;
        c.control->alpha = 65535;
    }
}
