// The twelve demonstration presets of Smoke's "Demos". A preset empties the pool and writes its
// values; an empty cell (kKeep) leaves the input as it is.
#include <cmath>
#include <cstdint>
#include <limits>

#include "host/Tags.h"
#include "particles/Smoke.h"

namespace {

constexpr double K = std::numeric_limits<double>::quiet_NaN();

struct SmokePreset {
    int preRoll;
    double left[2], right[2];
    double positionVar, density, lifetime, extinction;
    int useBirthMatte;
    double initialHeat, velocityVar;
    int look;  // 0 "Point", 1 "Streak", 2 "Puff"
    double pointBlur, puffSize, puffSizeVar;
    int gravityOn;
    double gravity, gravAngle;
    int frictionOn;
    double friction;
    int turbulence;
    double swirlDens, swirlAmp, swirlMaxTime;
    int windOn;
    double wind[2], target[2], windSpread, windSpeed;
    double initIntensity, condensation, colourVar, monoVar;
    uint16_t smokeColour[4];
    int fadeMode;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
};

// clang-format off
const SmokePreset kPresets[] = {
    // "Dry Ice"
    {100, {0.4, 0.75}, {0.6, 0.75}, 0.003, 1000, 150, 150, 0, 4.5, 100, 0, 0, K, K,
     1, 0.16, 270, 1, 0.05, 1, 28.8, 0.8, 0,
     0, {K, K}, {K, K}, K, K,
     50, 50, 0, 0, {16000, 32640, 7936, 32640}, 2},
    // "Puff"
    {50, {0.4, 0.35}, {0.6, 0.35}, 0.003, 90, 48, 32, 0, 4, 100, 2, 0, 20, 50,
     1, 0.001, 270, 0, K, 1, 28.8, 1.8, 0,
     0, {K, K}, {K, K}, K, K,
     9, 0, 0, 100, {7936, 7936, 7936, 32640}, 2},
    // "Wisp"
    {50, {0.5, 0.05}, {0.5, 0.15}, 0.003, 1800, 150, 150, 0, 8, 100, 0, 0, K, K,
     1, 0.001, 270, 1, 0.01, 1, 28.8, 3.2, 25,
     1, {0.2, 0.4}, {0.8, 0.4}, 33, 16,
     100, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Steam"
    {50, {0.4, 0.25}, {0.6, 0.25}, 0.003, 2000, 80, 80, 0, 2, 100, 0, 0, K, K,
     1, 0.01, 270, 1, 0.05, 1, 50, 1.2, 12,
     0, {K, K}, {K, K}, K, K,
     50, 25, 0, 0, {24960, 24960, 32640, 32640}, 2},
    // "Gentle Smoke"
    {50, {0.5, 0.04}, {0.5, 0.1}, 0.003, 800, 200, 200, 0, 4, 100, 2, 0, 2, 100,
     0, K, K, 0, K, 1, 11.98, 0.35, 25,
     0, {K, K}, {K, K}, K, K,
     25, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Busy Smoke"
    {50, {0.5, 0.04}, {0.5, 0.1}, 0.003, 800, 200, 200, 0, 4, 100, 2, 0, 2, 100,
     0, K, K, 1, 0.01, 1, 55, 1.25, 25,
     0, {K, K}, {K, K}, K, K,
     25, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Soft Swirl"
    {50, {0.5001, 0.5}, {0.5, 0.5}, 0.003, 800, 200, 200, 0, 0, 100, 0, 5, 2, 100,
     0, K, K, 1, 0.05, 1, 22, 3.02, 0,
     0, {K, K}, {K, K}, K, K,
     50, 50, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Billow"
    {100, {0.139, 0.139}, {0.139, 0.138}, 0.044, 50, 200, 200, 0, 20, 50, 2, 0, 20, 100,
     1, 0.2, 270, 1, 0.04, 1, 5.5, 0.5, 50,
     1, {-0.306, 0.615}, {0.272, 0.625}, 33, 6,
     8, 20, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Smoke Stack"
    {50, {0.137, 0.401}, {0.137, 0.402}, 0.044, 132, 80, 120, 0, 38, 50, 2, 0, 20, 100,
     0, K, K, 1, 0.207, 1, 13.6, 1.5, 50,
     1, {-0.6, 1.08}, {-0.005, 0.931}, 50, 8.64,
     6.85, 44, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Chimney"
    {50, {0.132, 0.184}, {0.132, 0.185}, 0.005, 132, 200, 200, 0, 2, 50, 2, 0, 20, 100,
     0, K, K, 0, K, 1, 63.34, 2, 50,
     1, {-0.6, 1.08}, {-0.005, 0.931}, 64, 8.64,
     8, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Slow Wisp"
    {50, {0.306, 0.09}, {0.306, 0.089}, 0.001, 1000, 200, 200, 0, 1, 100, 0, 0, 20, 100,
     0, K, K, 1, 0.01, 1, 11.98, 0.35, 25,
     0, {K, K}, {K, K}, K, K,
     20, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
    // "Swamp"
    {50, {0.384, 0.24}, {0.565, 0.24}, 0.001, 1000, 200, 200, 0, 1, 0, 0, 0, 20, 100,
     0, K, K, 0, K, 1, 25.41, 5.11, 100,
     0, {K, K}, {K, K}, K, K,
     100, 0, 0, 0, {32640, 32640, 32640, 32640}, 2},
};
// clang-format on

constexpr int kPresetCount = sizeof(kPresets) / sizeof(kPresets[0]);

bool Given(double v) {
    return !std::isnan(v);
}

}  // namespace

void SmokeEngine::ApplyPreset(int number, double time) {
    if (number < 2 || number > kPresetCount) number = 1;
    const SmokePreset& s = kPresets[number - 1];
    const double whole = kWholeValue;
    Restart();

    auto number1 = [time](SingleInputBinding& b, double v) {
        if (Given(v)) b.SetDouble(time, v);
    };
    auto point = [time](SingleInputBinding& b, const double* v) {
        if (Given(v[0]) && Given(v[1])) b.SetPoint(time, v[0], v[1]);
    };
    // An input whose change has a handler is written with the guard set, so that its handler does
    // not run again for a preset's write.
    auto toggle = [whole](SingleInputBinding& b, int on, bool guarded) {
        if (guarded) b.notifyGuard = 1;
        b.SetInt(whole, on);
    };

    preRoll.SetInt(time, s.preRoll);
    point(left, s.left);
    point(right, s.right);
    number1(positionVar, s.positionVar);
    number1(density, s.density);
    number1(lifetime, s.lifetime);
    number1(extinction, s.extinction);
    toggle(useBirthMatte, s.useBirthMatte, false);
    number1(initialHeat, s.initialHeat);
    number1(velocityVar, s.velocityVar);
    look.notifyGuard = 1;
    look.SetIndex1(time, s.look + 1);
    number1(pointBlur, s.pointBlur);
    number1(puffSize, s.puffSize);
    number1(puffSizeVar, s.puffSizeVar);
    toggle(gravityOn, s.gravityOn, true);
    number1(gravity, s.gravity);
    number1(gravAngle, s.gravAngle);
    toggle(frictionOn, s.frictionOn, true);
    number1(friction, s.friction);
    toggle(turbulence, s.turbulence, true);
    number1(swirlDens, s.swirlDens);
    number1(swirlAmp, s.swirlAmp);
    number1(swirlMaxTime, s.swirlMaxTime);
    toggle(windOn, s.windOn, true);
    point(wind, s.wind);
    point(windTarget, s.target);
    number1(windSpread, s.windSpread);
    number1(windSpeed, s.windSpeed);
    number1(initIntensity, s.initIntensity);
    number1(condensation, s.condensation);
    number1(colourVar, s.colourVar);
    number1(monoVar, s.monoVar);
    smokeColour.SetColour(whole, s.smokeColour[0], s.smokeColour[1], s.smokeColour[2],
                          s.smokeColour[3]);
    fadeMode.SetIndex1(time, s.fadeMode + 1);
}
