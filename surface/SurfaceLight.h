// The surface light: one specular highlight on a refracting surface (a half vector between light
// and viewer, its dot product with the normal raised to the gloss), stored per pixel by the
// displacement pass and added to the refracted picture by the resampling pass. There is no diffuse
// term and no shadow.
#pragma once

#include <cstdint>

#include "frame/SmallMaths.h"

struct SurfaceParams;

// The light is on when it has strength and, where a tool has a separate switch, that is on.
bool SurfaceLightOn(const SurfaceParams& p);

// The direction of a directional light, once per displacement call: from the middle of the image
// towards "Light" (0..1 across the image), "LightZ" above it, normalised.
void PrepareDirectionalLight(const SurfaceParams& p, float light[3]);

// Specular term of a directional light at normalised position (u, v), with the viewer one unit
// above the middle of the image. Scaled to samples: pow(d, gloss) * strength * 32767.
float DirectionalSpecular(const SurfaceParams& p, const float light[3], const float normal[3],
                          float u, float v);

// Specular term of a point light at pixel (x, y), light position and height in pixels. The colour
// of such a light is in sample units, so the term is pow(d, gloss) * strength.
float PointSpecular(const SurfaceParams& p, const float normal[3], int x, int y);

// A sampled channel with the light: trunc(sample * backGain + specular * colour), no more than
// 32767. Below 0 it is raised to 0 only where `clampLow` asks; otherwise the low 16 bits are kept,
// as a 16-bit store keeps them.
inline uint16_t CompositeLight(uint32_t sample, float specular, float colour, float backGain,
                               bool clampLow) {
    const double r = sample * static_cast<double>(backGain) +
                     static_cast<double>(specular) * static_cast<double>(colour);
    int v = TruncateToInt(r);
    if (v > 32767) v = 32767;
    if (clampLow && v < 0) v = 0;
    return static_cast<uint16_t>(static_cast<uint32_t>(v));
}
