// The per-render curves of the cloud tool, indexed by a 15-bit sample: the density curve, which
// turns a field index into cloud density, and the colour ramp, which turns density into colour.
// Both are pure functions of their settings, so an engine keeps them and rebuilds them only when
// the settings change.
#pragma once

#include <cmath>
#include <cstdint>

constexpr int kCurveSize = 32768;

// Held within 0..1; NaN gives 0.
inline double Clamp01(double v) {
    return v > 0.0 ? (v < 1.0 ? v : 1.0) : 0.0;
}

// A double to float, as IEEE rounding gives it: values past the float range become the infinity of
// their sign, rather than a conversion out of range.
inline float ToFloat(double v) {
    constexpr double kOverflow = 3.4028235677973366e38;  // the largest float and half a unit more
    if (v >= kOverflow) return static_cast<float>(INFINITY);
    if (v <= -kOverflow) return -static_cast<float>(INFINITY);
    return static_cast<float>(v);
}

struct DensitySettings {
    float cloudiness = 0.0f;  // "Cloudiness" / 100
    float density = 0.0f;     // "Density" / 100
    bool operator==(const DensitySettings& o) const {
        return cloudiness == o.cloudiness && density == o.density;
    }
};

// A soft threshold, ten points wide, that `cloudiness` moves across the middle half of the field's
// range, scaled by `density` and held within 0..1: as floats and as samples (0..32767).
void BuildDensityCurve(const DensitySettings& s, int32_t* ints, float* floats);

struct RampSettings {
    float edgeStart = 0.0f, coreStart = 0.0f;  // "Edge Ends" and the slider "Core Start", / 100
    float gloomGo = 1.0f, gloomMax = 1.0f;     // "Gloom Go" and "Gloom Max", / 100
    int32_t coreColour[3] = {0, 0, 0};
    int32_t edgeColour[3] = {0, 0, 0};
    bool litClouds = false;
    bool operator==(const RampSettings& o) const;
};

// The ramp from the edge colour to the core colour by density, with the gloom that darkens the
// dense part from `gloomGo` on. Lit clouds keep only the gloom: everything thinner is full scale.
void BuildColourRamp(const RampSettings& s, int32_t* red, int32_t* green, int32_t* blue);
