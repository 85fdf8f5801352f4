#include "clouds/CloudsTables.h"

#include <cmath>

#include "frame/SmallMaths.h"

namespace {

// The single-precision constant 1/32767 by which an index becomes a level from 0 to 1. Its product
// with an index is exact in double.
constexpr double kIndexToLevel = static_cast<double>(3.051851e-05f);

// num / den held within 0..1. A zero denominator gives the end on the side of the quotient's sign
// (0 for 0 / 0), as an infinite quotient would be clamped.
inline double ClampedRatio(double num, double den) {
    if (den == 0.0) {
        if (num == 0.0 || std::isnan(num)) return 0.0;
        return std::signbit(num) == std::signbit(den) ? 1.0 : 0.0;
    }
    return Clamp01(num / den);
}

}  // namespace

bool RampSettings::operator==(const RampSettings& o) const {
    for (int c = 0; c < 3; ++c)
        if (coreColour[c] != o.coreColour[c] || edgeColour[c] != o.edgeColour[c]) return false;
    return edgeStart == o.edgeStart && coreStart == o.coreStart && gloomGo == o.gloomGo &&
           gloomMax == o.gloomMax && litClouds == o.litClouds;
}

void BuildDensityCurve(const DensitySettings& s, int32_t* ints, float* floats) {
    const double c = 1.0 - s.cloudiness;
    const double lo = static_cast<float>(c - 0.05);
    const double span = c + 0.05 - lo;
    for (int i = 0; i < kCurveSize; ++i) {
        // Index 8192 and below give 0, 24575 and above give 1.
        double v = Clamp01((i * kIndexToLevel - 0.25) * 2);
        const double t = ClampedRatio(v - lo, span);
        v = Clamp01(v * (3 - 2 * t) * t * t * s.density);
        floats[i] = static_cast<float>(v);
        ints[i] = static_cast<int32_t>(v * 32767.0);
    }
}

void BuildColourRamp(const RampSettings& s, int32_t* red, int32_t* green, int32_t* blue) {
    int32_t* ramps[3] = {red, green, blue};
    const float span = s.coreStart - s.edgeStart;
    for (int i = 0; i < kCurveSize; ++i) {
        const float t = static_cast<float>(ClampedRatio(i * kIndexToLevel - s.edgeStart, span));
        const double p = std::pow(static_cast<double>(t), 2.299999952316284);
        const double q = 1.0 - p;
        for (int c = 0; c < 3; ++c)
            ramps[c][i] = TruncateToInt(s.edgeColour[c] * q + s.coreColour[c] * p);
    }

    if (!(s.gloomGo < 0.999)) return;
    // From density g on, the ramp runs straight to the shade that gloomMax asks for. A start below
    // 0 starts at 0; gloomGo below 0.999 keeps g at most 32734.
    int32_t g = TruncateToInt(s.gloomGo * 32767.0 + 0.5);
    if (g < 0) g = 0;
    const double target = (1.0 - s.gloomMax) * 32767.0;
    for (int c = 0; c < 3; ++c) {
        int32_t* ramp = ramps[c];
        const int32_t start = ramp[g];
        const float slope = ToFloat((target - start) / (32767 - g));
        for (int k = 0; g + k <= 32767; ++k) {
            const int32_t v =
                TruncateToInt(slope * static_cast<float>(k) + static_cast<float>(start));
            ramp[g + k] = v < 0 ? 0 : v;
        }
    }
    if (s.litClouds && g >= 1)
        for (int c = 0; c < 3; ++c)
            for (int i = 0; i < g; ++i)
                ramps[c][i] = 32767;
}
