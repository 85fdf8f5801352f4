// The nine demonstration presets of Rain's "Demos": "Rain", "Drizzle", "Squall", "Sheet", "Light",
// "BounceA", "BounceB", "Movement" and "Bouncing". A preset empties the pool and writes its values;
// an empty cell (kKeep) leaves the input as it is.
#include <cmath>
#include <cstdint>
#include <limits>

#include "host/Tags.h"
#include "particles/Rain.h"

namespace {

constexpr double kKeep = std::numeric_limits<double>::quiet_NaN();

struct RainPreset {
    int preRoll;
    double left[2], right[2];
    double positionVar, density, lifetime, extinction, initialVelocity, velocityVar, streakScale;
    int useBirthMatte, puddleBounce;
    double puddleRebound, bounces;
    int gravityOn;
    double gravity, gravAngle;
    int frictionOn;
    double friction;
    int turbulence;
    double swirlDens, swirlAmp, swirlMaxTime;
    int windOn;
    double wind[2], target[2], windSpread, windSpeed;
    double initIntensity, condensation, colourVar, monoVar;
    uint16_t rainColour[4];
    int fadeMode;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
    int lightOn;
    double light[2], lightTarget[2], glistenTight, lightSpread, lightInten, minBright;
    bool hasLightColour;
    uint16_t lightColour[4];
};

constexpr double K = kKeep;

// clang-format off
const RainPreset kPresets[] = {
    // "Rain"
    {50, {0, 1.04}, {1, 1.04}, 20, 20, 120, 800, -1, 100, 280, 0, 0, K, K,
     1, 1, 270, 1, 0.01, 0, K, K, K,
     1, {1.5, 0.58}, {0.8, 0.4}, 90.08, 2,
     80, 30, 0, 0, {32767, 32767, 32767, 32767}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Drizzle"
    {70, {0, 1.04}, {1, 1.04}, 20, 200, 120, 120, -10.5, 100, 80, 0, 0, K, K,
     1, 0.02, 270, 1, 0.01, 0, K, K, K,
     0, {K, K}, {K, K}, K, K,
     40, 15, 0, 50, {32767, 32767, 32767, 32767}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Squall"
    {50, {-0.5, 1.04}, {1.06, 1.04}, 20, 200, 120, 800, -1, 100, 280, 0, 0, K, K,
     1, 1, 270, 1, 0.01, 1, 2.56, 1.67, 0,
     1, {-0.5, 0.58}, {0.8, 0.4}, 90.08, 9.25,
     40, 15, 0, 0, {32767, 32767, 32767, 32767}, 0,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Sheet"
    {50, {0, 1.75}, {1, 1.75}, 20, 200, 60, 60, -20, 10, 600, 0, 0, K, K,
     1, 1, 270, 1, 0.01, 1, 1.12, 0.74, 0,
     0, {K, K}, {K, K}, K, K,
     40, 50, 0, 0, {32767, 32767, 32767, 32767}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Light"
    {50, {-0.5, 1.04}, {1.06, 1.04}, 20, 250, 30, 40, -1, 100, 235, 0, 0, K, K,
     1, 1, 270, 1, 0.01, 0, K, K, K,
     1, {-0.5, 0.58}, {0.8, 0.4}, 90.08, 5.18,
     40, 47, 0, 23, {6784, 6784, 6784, 6784}, 1,
     1, {0.18, 0.92}, {0.18, 0.19}, 2, 100, 58, 48, true, {32640, 26496, 3328, 0}},
    // "BounceA"
    {80, {0, 1}, {1, 1}, 20, 600, 200, 200, 0, 0, 300, 0, 1, 20, 26,
     1, 0.865, 278, 0, K, 0, K, K, K,
     0, {K, K}, {K, K}, K, K,
     40, 47, 0, 50, {12800, 15360, 26880, 0}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "BounceB"
    {100, {-0.021, 1.046}, {0.157, 1.046}, 20, 200, 200, 200, -20, 0, 600, 0, 1, 44, 26,
     1, 0.2, 270, 1, 0.01, 0, K, K, K,
     1, {-0.5, 0.58}, {0.8, 0.4}, 144, 3,
     40, 47, 0, 50, {12800, 15360, 26880, 0}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Movement"
    {50, {0.15, 0.65}, {0.85, 0.65}, 20, 200, 200, 200, -2, 0, 600, 0, 0, K, K,
     0, 0.2, 270, 0, 0.05, 0, 4.4, 1.29, 0,
     0, {0.37, 0.47}, {0.8, 0.4}, 72, 6,
     100, 100, 0, 0, {32640, 32640, 32640, 0}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
    // "Bouncing"
    {100, {0.35, 0.95}, {0.65, 0.95}, 20, 200, 200, 200, -2, 100, 100, 0, 1, 20, 26,
     1, 0.2, 270, 0, 0.05, 0, 4.4, 1.29, 0,
     0, {0, 0.47}, {0.8, 0.4}, 72, 6,
     100, 100, 0, 0, {32640, 32640, 32640, 0}, 2,
     0, {K, K}, {K, K}, K, K, K, K, false, {0, 0, 0, 0}},
};
// clang-format on

constexpr int kPresetCount = sizeof(kPresets) / sizeof(kPresets[0]);

bool Given(double v) {
    return !std::isnan(v);
}

}  // namespace

void RainEngine::ApplyPreset(int number, double time) {
    if (number < 2 || number > kPresetCount) number = 1;
    const RainPreset& s = kPresets[number - 1];
    const double whole = kWholeValue;
    Restart();

    auto number1 = [time](SingleInputBinding& b, double v) {
        if (Given(v)) b.SetDouble(time, v);
    };
    auto point = [time](SingleInputBinding& b, const double* v) {
        if (Given(v[0]) && Given(v[1])) b.SetPoint(time, v[0], v[1]);
    };
    // A checkbox whose change has a handler is written with the guard set, so that its handler
    // does not run again for a preset's write.
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
    number1(initialVelocity, s.initialVelocity);
    number1(velocityVar, s.velocityVar);
    number1(streakScale, s.streakScale);
    toggle(useBirthMatte, s.useBirthMatte, false);
    toggle(puddleBounce, s.puddleBounce, true);
    number1(puddleRebound, s.puddleRebound);
    number1(bounces, s.bounces);
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
    rainColour.SetColour(whole, s.rainColour[0], s.rainColour[1], s.rainColour[2], s.rainColour[3]);
    fadeMode.SetIndex1(time, s.fadeMode + 1);
    toggle(lightOn, s.lightOn, true);
    point(light, s.light);
    point(lightTarget, s.lightTarget);
    number1(glistenTight, s.glistenTight);
    number1(lightSpread, s.lightSpread);
    number1(lightInten, s.lightInten);
    number1(minBright, s.minBright);
    if (s.hasLightColour)
        lightColour.SetColour(whole, s.lightColour[0], s.lightColour[1], s.lightColour[2],
                              s.lightColour[3]);
}
