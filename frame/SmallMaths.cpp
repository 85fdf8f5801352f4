#include "frame/SmallMaths.h"

#include <cmath>
#include <cstdint>

long double NormaliseVector(float* v) {
    float ax = std::fabs(v[0]), ay = std::fabs(v[1]), az = std::fabs(v[2]);
    float s =
        static_cast<float>(static_cast<long double>(az) * az + static_cast<long double>(ay) * ay +
                           static_cast<long double>(ax) * ax);
    float m = ax;
    if (ay > m) m = ay;
    if (az > m) m = az;
    if (m < 1e-10) {
        v[0] = v[1] = v[2] = 0.0f;
        return 0.0L;
    }
    long double ls = s, lm = m;
    long double g1 = lm + ls / lm;
    long double g2 = ls / g1 + g1 * 0.25L;
    long double length = (g2 + ls / g2) * 0.5L;
    long double inverse = 1.0L / static_cast<long double>(static_cast<float>(length));
    v[0] = static_cast<float>(v[0] * inverse);
    v[1] = static_cast<float>(v[1] * inverse);
    v[2] = static_cast<float>(v[2] * inverse);
    return length;
}

void CrossProduct(float* result, const float* a, const float* b) {
    // The products are held in double and each component is rounded once, on its store.
    const double a0 = a[0], a1 = a[1], a2 = a[2], b0 = b[0], b1 = b[1], b2 = b[2];
    result[0] = static_cast<float>(b2 * a1 - a2 * b1);
    result[1] = static_cast<float>(a2 * b0 - b2 * a0);
    result[2] = static_cast<float>(a0 * b1 - b0 * a1);
}

int TruncateToInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int>(v);
}
