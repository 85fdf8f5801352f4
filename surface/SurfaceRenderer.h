// The refraction renderer shared by the surface tools. A tool supplies a height field; the renderer
// treats it as the surface of a refracting medium over the picture, follows a ray straight down
// through each pixel, bends it at the surface, and area-samples the picture over the pixel's
// footprint where the ray meets it, adding the surface light on the way.
//
// A tool's engine derives from SurfaceEngine. In its Render it calls PrepareSurface, fills
// maps.heightMap (0.5 is the rest height of the wave tools), sets the fields of `surface` it owns,
// and calls RunSurfacePasses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "frame/SamplePyramid.h"
#include "frame/ToolEngine.h"

class WorkImage;

// Which channels a resampling pass writes.
enum RenderPass : int32_t {
    kPassAll = 0,    // all four at once
    kPassRed = 1,    // the chromatic passes: one colour each, the height raised by one
    kPassGreen = 2,  // chromatic step per pass number
    kPassBlue = 3,
    kPassAlpha = 4,  // alpha alone, through the height without a chromatic step
};

struct SurfaceParams {
    int32_t width = 0, height = 0;  // of the output, the maps and the pyramid
    int32_t fillMode = kEdgeDup;    // edge mode of the sampler
    int32_t pass = kPassAll;
    float refractIndex = 1.0f;
    float chromaticAb = 0.0f;  // height added per colour pass
    // The light. Directional: lightX, lightY from 0 to 1 across the image, lightZ in image widths,
    // colours 0 to 1. Point: position and height in pixels, colours 0 to 32767.
    float lightStrength = 0.0f;
    float lightX = 0.5f, lightY = 0.5f, lightZ = 0.5f;
    float gloss = 45.0f;
    float backGain = 1.0f;  // the picture's gain where the light is on
    float lightRed = 1.0f, lightGreen = 1.0f, lightBlue = 1.0f;
    SamplePyramid* sourceTable = nullptr;

    // Where the surface tools differ. The defaults are those of the wave tools.
    int32_t neighbourStep = 1;      // distance in pixels of the height neighbours of the tangents
    float boxOffset = 0.5f;         // added to the sampling box; 0 leaves it half a pixel low
    uint8_t pointLight = 0;         // the light is a point in pixel units, not a direction
    uint8_t lightActive = 1;        // a switch the light needs besides its strength
    uint8_t clampLowFirstPass = 0;  // composited samples of pass 0 are raised to 0 at least
};

// The four float maps of a render, width x height each, row after row. The block is kept from
// render to render and only grows.
class SurfaceMaps {
  public:
    void Allocate(int width, int height);

    float* HeightRow(int y) { return heightMap + static_cast<size_t>(y) * width; }

    float* heightMap = nullptr;  // written by the tool
    float* mapX = nullptr;       // source X, in pixels, that the ray through the pixel reaches
    float* mapY = nullptr;       // source Y, in pixels, less 1
    float* lightMap = nullptr;   // specular term, written only while the light is on
    int32_t width = 0, height = 0;

  private:
    std::vector<float> block_;
};

// Holds a row of heights back towards the rest height 0.5 by a row of matte pixels: the mean of
// red, green and blue (1 - that mean with `invert`) is how much of the wave stands. A black matte
// leaves the surface at rest.
void HoldToRestByMatte(float* heights, const uint16_t* matte, int width, bool invert);

class SurfaceEngine : public ToolEngine, public ToolOverlay {
  public:
    SurfaceEngine() = default;
    ~SurfaceEngine() override;

    // Builds the pyramid of `picture` at the size of `target` (keeping the engine's blocks when
    // the size is unchanged), makes room for the maps, and sets the size, the sampled table and
    // the target of the passes. False when the pyramid cannot be made: nothing is to be sampled.
    bool PrepareSurface(const WorkImage* picture, WorkImage* target);

    // The pass sequence: one pass, or alpha and three colour passes when there is chromatic
    // aberration. Then the blend towards `source` if `blendAmount` is above 0, and the source's
    // alpha if keepOutputAlpha is clear.
    void RunSurfacePasses(float blendAmount, WorkImage* source);

    // Row routines. SurfaceDisplace reads heightMap and writes mapX, mapY and lightMap;
    // SurfaceResample reads those and the table, and writes rows of the target up to height - 2.
    void SurfaceDisplace(int first, int last);
    void SurfaceResample(int first, int last);

    SurfaceParams surface;
    SurfaceMaps maps;
    WorkImage* surfaceTarget = nullptr;

  private:
    // How a displacement pass comes by the ray through each pixel. The normal, the slope of the
    // refracted ray and the highlight depend on the height map alone, not on the chromatic step,
    // so the colour passes after the first take them from the first.
    enum class Slopes { Compute, ComputeAndKeep, Reuse };

    void DisplacePass(int pass, Slopes slopes);
    void ResamplePass(int pass);

    SamplePyramid* pyramid_ = nullptr;
    Slopes slopes_ = Slopes::Compute;
    std::vector<double> slopeStore_;  // per pixel: X then Y slope of the ray, for Slopes::Reuse
};
