#include "surface/SurfaceLight.h"

#include <cmath>

#include "surface/SurfaceRenderer.h"

bool SurfaceLightOn(const SurfaceParams& p) {
    return p.lightStrength > 0.0f && p.lightActive;
}

void PrepareDirectionalLight(const SurfaceParams& p, float light[3]) {
    light[0] = static_cast<float>(p.lightX - 0.5);
    light[1] = static_cast<float>(p.lightY - 0.5);
    light[2] = p.lightZ;
    NormaliseVector(light);
}

namespace {

// pow(d, gloss) for the dot product d of the normal and the half vector; nothing where the
// surface faces away.
inline double Highlight(const float half[3], const float normal[3], float gloss) {
    const float d = static_cast<float>(static_cast<double>(half[1]) * normal[1] +
                                       static_cast<double>(half[0]) * normal[0] +
                                       static_cast<double>(half[2]) * normal[2]);
    if (d < 0.0f) return 0.0;
    return std::pow(static_cast<double>(d), static_cast<double>(gloss));
}

}  // namespace

float DirectionalSpecular(const SurfaceParams& p, const float light[3], const float normal[3],
                          float u, float v) {
    // The viewer's vector (u - 0.5, v - 0.5, 1) is added to the light's without being normalised.
    float half[3] = {static_cast<float>(u - 0.5 + light[0]), static_cast<float>(v - 0.5 + light[1]),
                     static_cast<float>(light[2] + 1.0)};
    NormaliseVector(half);
    const double h = Highlight(half, normal, p.gloss);
    return static_cast<float>(h * (p.lightStrength * 32767.0));
}

float PointSpecular(const SurfaceParams& p, const float normal[3], int x, int y) {
    float half[3] = {static_cast<float>(x - static_cast<double>(p.lightX)),
                     static_cast<float>(y - static_cast<double>(p.lightY)),
                     static_cast<float>(p.lightZ + 1.0)};
    NormaliseVector(half);
    const double h = Highlight(half, normal, p.gloss);
    return static_cast<float>(h * p.lightStrength);
}
