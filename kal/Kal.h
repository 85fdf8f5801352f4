// Kal: the picture seen through a kaleidoscope. A lattice of hexagons, each cut into six
// triangles; every triangle shows the same piece of the source about one centre, turned with its
// tile and mirrored in every second triangle. The engine walks the hexagons, clips each triangle to
// the band of rows at hand, scan-converts it and shades its pixels from the area sampler, with grey
// along the mirror lines and a round vignette last.
#pragma once

#include <cstdint>

#include "frame/InputBinding.h"
#include "frame/ToolOperator.h"

struct SamplePyramid;
class AngleControl;
class PointControl;
class KalRing;
class KalHexagonControl;

// One triangle on its way to the pixels: everything the pixel loop needs stands in the record.
struct KalPolygon {
    static constexpr int kMostVertices = 10;
    int32_t vertexCount = 3;
    float centroidX = 0.0f, centroidY = 0.0f;
    float tileCos = 1.0f, tileSin = 0.0f;
    float scale = 1.0f;
    float boxLow = 0.5f, boxHigh = 0.5f;
    int32_t flip = 1;
    int32_t fillType = 0;
    float radius = 1.0f;
    float distortion = 0.0f;
    float imageCentreX = 0.0f, imageCentreY = 0.0f;
    float maxDesat = 0.0f;
    float inverseDesatWidth = 0.1f;
    float vignetteStart = 0.0f, vignetteEnd = 0.0f;
    float cameraCos = 1.0f, cameraSin = 0.0f;
    float cameraX = 0.0f, cameraY = 0.0f;
    float x[kMostVertices] = {};
    float y[kMostVertices] = {};
};

// Bounds of a clip or a fill: columns left..right, rows top..bottom.
struct KalLimits {
    float left = 0.0f, right = 0.0f, top = 0.0f, bottom = 0.0f;
};
struct KalRowLimits {
    int left = 0, right = 0, top = 0, bottom = 0;
};

class KalEngine : public ToolEngine, public ToolOverlay {
  public:
    ~KalEngine() override;

    void Render() override;
    void FirstFrame() override;
    void DrawControls() override;
    void ControlEvent(int event, float x, float y) override;

    // Hides the vignette's radii while the vignette is off.
    void OnVignette(double time);

    // Reads the inputs and the output image's size and aspect into the frame's values.
    void ReadValues(int width, int height, double aspectY);

    // The mapping, in the order a band runs it.
    void DrawLatticeBand(int firstRow, int lastRow);
    void DrawHexagon(float centreX, float centreY, int firstRow, int lastRow);
    // Keeps the part of `polygon` within the limits; false when nothing is left.
    static bool ClipToRect(KalPolygon& polygon, const KalLimits& limits);
    // One Sutherland-Hodgman step against the limit `value` (already times `sign`) on `axis`.
    static void ClipToPlane(const KalPolygon& in, KalPolygon& out, int axis, int sign, float value);
    void FillPolygon(const KalPolygon& polygon, const KalRowLimits& limits);
    void ShadeSpan(int row, float left, float right, const KalRowLimits& limits,
                   const KalPolygon& polygon);
    static float DistanceToSegment(float px, float py, float ax, float ay, float bx, float by);

    // The lattice's half-size in hexagons for the frame's values: N of the (2N + 1)^2 walk; 0 when
    // the hexagons have no size.
    int64_t LatticeReach() const;

    // Inputs.
    SingleInputBinding hexRadiusInput, imageScaleInput, arrayRotInput, imageRotInput,
        cameraRotInput;
    SingleInputBinding arrayOffInput, imageCentreInput, cameraOrgInput;
    SingleInputBinding distortionInput, fillTypeInput;  // fill type kept 1-based
    SingleInputBinding latticeExtInput, maxDesatInput, desatWidthInput;
    SingleInputBinding vignetteInput, vignetteGoInput, vignetteEndInput;

    // Values of the frame, in the output's pixels.
    int width = 0, height = 0, halfW = 0, halfH = 0;
    float hexRadius = 0.0f;
    float arrayRot = 0.0f;
    float arrayOffsetX = 0.0f, arrayOffsetY = 0.0f;
    float imageRot = 0.0f;
    float imageScale = 0.0f;
    float distortion = 0.0f;
    float imageCentreX = 0.0f, imageCentreY = 0.0f;
    float maxDesat = 0.0f, desatWidth = 0.0f;
    float vignetteStart = 0.0f, vignetteEnd = 0.0f;
    float cameraX = 0.0f, cameraY = 0.0f;
    float cameraRot = 0.0f;
    float latticeExtent = 0.0f;
    int32_t fillType = 0;
    float yFactor = 1.0f;

    // Per-frame tables of the six triangles: corner directions, tile turns, the camera's turn.
    struct Triangle {
        double cos0 = 1.0, sin0 = 0.0, cos1 = 1.0, sin1 = 0.0;
        float tileCos = 1.0f, tileSin = 0.0f;
        int32_t flip = 1;
    };
    Triangle triangles[6];
    float cameraCos = 1.0f, cameraSin = 0.0f;
    KalPolygon prototype;  // the fields every triangle of the frame shares

    SamplePyramid* pyramid = nullptr;
    // Passes over hexagons that cannot reach the band; the picture is the same either way.
    bool skipFarHexagons = true;

    // On-screen controls, owned by the overlay's list; numbered as they are made.
    KalRing* goRing = nullptr;
    KalRing* endRing = nullptr;
    PointControl* cameraPoint = nullptr;
    AngleControl* cameraAngle = nullptr;
    PointControl* centrePoint = nullptr;
    AngleControl* imageAngle = nullptr;
    AngleControl* arrayAngle = nullptr;
    KalHexagonControl* hexagon = nullptr;

  private:
    void PrepareTriangles();
};

class KalOperator : public ToolOperator {
  public:
    KalOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    KalEngine* Kal() const { return static_cast<KalEngine*>(Engine()); }

  private:
    KalOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                KalEngine* engine);
};

// Pages "Q9 Kal" and "Look", and the input table.
const ToolDecl& KalToolDecl();
