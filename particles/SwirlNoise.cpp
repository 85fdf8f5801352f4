#include "particles/SwirlNoise.h"

#include <cmath>

#include "frame/NoiseTable.h"
#include "frame/ShuffledRandom.h"

void BuildSwirlGradients(int32_t seed, SwirlGradients* out) {
    constexpr double kTwoPi = 6.283185307179586;
    // A seed below 1 seeds as 1, as the generator makes of a state that is not negative.
    int32_t state = seed > 0 ? -seed : 0;
    ShuffledRandom(&state);
    for (int i = 0; i < 256; ++i) {
        const double z = 1.0 - 2.0 * ShuffledRandom(&state);
        const double phi = ShuffledRandom(&state) * kTwoPi;
        // The square is taken of the double z, unlike the cloud gradients, which square a rounded
        // copy of it.
        const float rho = static_cast<float>(std::sqrt(1.0 - z * z));
        out->g[i][0] = static_cast<float>(std::cos(phi) * rho);
        out->g[i][1] = static_cast<float>(std::sin(phi) * rho);
        out->g[i][2] = static_cast<float>(z);
    }
}

namespace {

inline double Corner(const SwirlGradients& t, int32_t i, int32_t j, int32_t k, double a, double b,
                     double c) {
    const float* g = t.g[NoiseLatticeIndex(i, j, k)];
    return g[0] * a + g[1] * b + g[2] * c;
}

inline double Blend(double lo, double hi, double s) {
    return lo + (hi - lo) * s;
}

}  // namespace

double SwirlNoise(const SwirlGradients& t, float x, float y, float z) {
    float fxf, fyf, fzf;
    const int32_t ix = NoiseCell(x, &fxf);
    const int32_t iy = NoiseCell(y, &fyf);
    const int32_t iz = NoiseCell(z, &fzf);
    // Neighbouring cells wrap through the 8-bit lattice, so the step to the next cell is taken
    // in unsigned arithmetic and cannot overflow at the ends of the range.
    const auto next = [](int32_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v) + 1u); };
    const int32_t jx = next(ix), jy = next(iy), jz = next(iz);
    const double fx = fxf, fy = fyf, fz = fzf;
    const double gx = fx - 1.0, gy = fy - 1.0, gz = fz - 1.0;
    const double sx = (3.0 - 2.0 * fx) * fx * fx;
    const double sy = (3.0 - 2.0 * fy) * fy * fy;
    const double sz = (3.0 - 2.0 * fz) * fz * fz;

    const double n000 = Corner(t, ix, iy, iz, fx, fy, fz);
    const double n100 = Corner(t, jx, iy, iz, gx, fy, fz);
    const double n010 = Corner(t, ix, jy, iz, fx, gy, fz);
    const double n110 = Corner(t, jx, jy, iz, gx, gy, fz);
    const double n001 = Corner(t, ix, iy, jz, fx, fy, gz);
    const double n101 = Corner(t, jx, iy, jz, gx, fy, gz);
    const double n011 = Corner(t, ix, jy, jz, fx, gy, gz);
    const double n111 = Corner(t, jx, jy, jz, gx, gy, gz);

    const double a = Blend(Blend(n000, n100, sx), Blend(n010, n110, sx), sy);
    const double b = Blend(Blend(n001, n101, sx), Blend(n011, n111, sx), sy);
    return Blend(a, b, sz);
}
