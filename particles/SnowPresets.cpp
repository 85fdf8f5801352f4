// The twelve demonstration presets of Snow's "Demos": "Blizzard", "Base", "Fine", "Heavy",
// "Avoid", "Divert", "Glitter", "Pink", "Vomit", "Amorphous", "Pastel" and "Stream". A preset
// empties the pool and the settled snow and writes its values; an empty cell (K, or -1 for a
// switch) leaves the input as it is.
#include <cmath>
#include <cstdint>
#include <limits>

#include "host/Tags.h"
#include "particles/Snow.h"

namespace {

constexpr double K = std::numeric_limits<double>::quiet_NaN();
constexpr int kLeave = -1;

struct SnowPreset {
    int preRoll;
    double left[2], right[2];
    double positionVar, density, lifetime, initialVelocity, velocityVar;
    int look;  // 0 "Point" .. 3 "Star"
    double size, sizeVar;
    int bias, drySnow;  // drySnow: 0 "Wet", 1 "Dry"
    double sizeBias;
    int gravityOn;
    double gravity, gravAngle;
    int frictionOn;
    double friction;
    int windOn;
    double wind[2], target[2];
    int multiDirectional;
    double windSpread, windSpeed;
    int turbulence;
    double swirlDens, swirlAmp, swirlMaxTime;
    double colourVar, monoVar;
    uint16_t snowColour[4];
    int fadeMode;  // 0 "Col+Dens", 1 "Colour", 2 "Density"
    int glintsOn;
    double glint[2], glintTarget[2], glintTight, glintZone, glintProb;
    bool hasGlintColour;
    uint16_t glintColour[4];
    int colourMode;  // 0 "Box Colour", 1 "Snow Colour", 2 "Random Colour"
};

constexpr int L = kLeave;

// clang-format off
const SnowPreset kPresets[] = {
    // "Blizzard"
    {100, {-0.12, 1.05}, {1.01, 1.05}, 0.02, 120, 200, 0, 0, 2, 2.2, 100, 1, 0, 10,
     1, 0.048, 270, 1, 0.09, 1, {-0.1, 0.5}, {1.1, 0.4}, 0, 80, 26, 1, 26, 10, 0,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Base"
    {150, {-0.01, 1.05}, {1.01, 1.05}, 0.02, 20, 200, -3, 100, 2, 5, 100, 0, 0, 1,
     1, 0.2, 270, 1, 0.05, 0, {K, K}, {K, K}, L, K, K, 1, 60, 1, 0,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Fine"
    {240, {-0.01, 1.05}, {1.01, 1.05}, 0.02, 80, 300, 0, 100, 2, 1.5, 100, 0, 0, 1,
     1, 0.15, 270, 1, 0.05, 0, {K, K}, {K, K}, L, K, K, 1, 100, 0.5, 50,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Heavy"
    {80, {-0.01, 1.05}, {1.01, 1.05}, 0.02, 4, 200, -10, 100, 2, 10, 100, 0, 0, 1,
     1, 0.35, 270, 1, 0.05, 0, {K, K}, {K, K}, L, K, K, 1, 10, 3, 0,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Avoid"
    {160, {-0.041, 0.51}, {-0.407, 0.51}, 0.02, 14, 400, 0, 100, 2, 10, 100, 0, L, K,
     1, 0.525, 0, 1, 0.106, 1, {0.683, 0.486}, {0.631, 0.064}, 1, K, 26, 1, 16, 10, 90,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Divert"
    {160, {-0.041, 0.51}, {-0.407, 0.51}, 0.02, 14, 400, 0, 100, 2, 8, 100, 0, L, K,
     1, 0.525, 0, 1, 0.106, 1, {0.457, 0}, {0.751, 0.505}, 0, 44, 8.45, 1, 16, 3, 90,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Glitter"
    {300, {0.49, 0.5}, {0.51, 0.5}, 0.01, 25, 400, 0, 0, 2, 8, 100, 0, L, K,
     0, K, K, 0, K, 1, {0.5, 0.5}, {0.8, 0.5}, 1, K, 3.25, 0, K, K, K,
     0, 100, {32640, 27904, 0, 32640}, 1,
     1, {1.4, 0.5}, {0.1, 0.5}, 30, 53, 80, true, {32640, 32640, 32640, 32640}, 2},
    // "Pink"
    {160, {0.49, 0.5}, {0.51, 0.5}, 0.1, 100, 350, 0, 100, 2, 3, 100, 0, L, K,
     0, K, K, 1, 0.494, 1, {0.5, 0.5}, {0.7, 0.5}, 1, K, 9.78, 1, 100, 10, 100,
     0, 100, {32640, 0, 21760, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Vomit"
    {160, {0.49, 0.5}, {0.51, 0.5}, 0.02, 62, 350, 0, 100, 2, 8, 100, 0, L, K,
     0, K, K, 1, 0.155, 1, {0.5, 0.5}, {0.7, 0.5}, 1, K, 3.28, 1, 16, 1.32, 100,
     100, 100, {16384, 24448, 0, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Amorphous"
    {200, {0.49, 0.5}, {0.51, 0.5}, 0.02, 80, 350, 0, 100, 2, 20, 0, 0, L, K,
     0, K, K, 1, 0.33, 1, {0.5, 0.5}, {0.7, 0.5}, 1, K, 3.28, 1, 5, 2, 0,
     0, 0, {32640, 32640, 32640, 32640}, 1,
     0, {K, K}, {K, K}, K, K, K, false, {0, 0, 0, 0}, L},
    // "Pastel"
    {80, {0.49, 0.5}, {0.51, 0.5}, 0.28, 25, 100, 0, 100, 3, 8, 100, 0, L, K,
     0, K, K, 0, K, 0, {K, K}, {K, K}, L, K, K, 1, 16, 4, 0,
     100, 100, {0, 0, 0, 0}, 1,
     1, {1.4, 0.5}, {0.1, 0.5}, 0, 100, 80, true, {32640, 32640, 32640, 32640}, 2},
    // "Stream"
    {80, {1, 0.9}, {1.02, 0.9}, 0.08, 400, 100, 4.6, 100, 2, 1, 1, 0, L, K,
     1, 0.397, 270, 0, K, 1, {1.2, 0.9}, {0.7, 0.9}, 0, 80, 12, 1, 8, 5, 30,
     0, 100, {32640, 32640, 32640, 0}, 1,
     1, {-0.5, 0.9}, {0.1, 0.5}, 30, 53, 80, true, {0, 21760, 32640, 32640}, 0},
};
// clang-format on

constexpr int kPresetCount = sizeof(kPresets) / sizeof(kPresets[0]);

bool Given(double v) {
    return !std::isnan(v);
}

}  // namespace

void SnowEngine::ApplyPreset(int number, double time) {
    if (number < 2 || number > kPresetCount) number = 1;
    const SnowPreset& s = kPresets[number - 1];
    const double whole = kWholeValue;
    ClearAll();

    auto number1 = [time](SingleInputBinding& b, double v) {
        if (Given(v)) b.SetDouble(time, v);
    };
    auto point = [time](SingleInputBinding& b, const double* v) {
        if (Given(v[0]) && Given(v[1])) b.SetPoint(time, v[0], v[1]);
    };
    // A switch whose change has a handler is written with the guard set, so that its handler does
    // not run again for a preset's write.
    auto toggle = [whole](SingleInputBinding& b, int on, bool guarded) {
        if (on == kLeave) return;
        if (guarded) b.notifyGuard = 1;
        b.SetInt(whole, on);
    };
    auto entry = [time](SingleInputBinding& b, int index, bool guarded) {
        if (index == kLeave) return;
        if (guarded) b.notifyGuard = 1;
        b.SetIndex1(time, index + 1);
    };

    preRoll.SetInt(time, s.preRoll);
    point(left, s.left);
    point(right, s.right);
    number1(positionVar, s.positionVar);
    number1(density, s.density);
    number1(lifetime, s.lifetime);
    number1(initialVelocity, s.initialVelocity);
    number1(velocityVar, s.velocityVar);
    entry(lookMode, s.look, true);
    number1(size, s.size);
    number1(sizeVar, s.sizeVar);
    toggle(biasOn, s.bias, true);
    entry(drySnow, s.drySnow, false);
    number1(sizeBias, s.sizeBias);
    toggle(gravityOn, s.gravityOn, true);
    number1(gravity, s.gravity);
    number1(gravAngle, s.gravAngle);
    toggle(frictionOn, s.frictionOn, true);
    number1(friction, s.friction);
    toggle(windOn, s.windOn, true);
    point(wind, s.wind);
    point(windTarget, s.target);
    toggle(multiDirectional, s.multiDirectional, true);
    number1(windSpread, s.windSpread);
    number1(windSpeed, s.windSpeed);
    toggle(turbulence, s.turbulence, true);
    number1(swirlDens, s.swirlDens);
    number1(swirlAmp, s.swirlAmp);
    number1(swirlMaxTime, s.swirlMaxTime);
    number1(colourVar, s.colourVar);
    number1(monoVar, s.monoVar);
    snowColour.SetColour(whole, s.snowColour[0], s.snowColour[1], s.snowColour[2], s.snowColour[3]);
    entry(fadeMode, s.fadeMode, false);
    toggle(glintsOn, s.glintsOn, true);
    point(glint, s.glint);
    point(glintTarget, s.glintTarget);
    number1(glintTight, s.glintTight);
    number1(glintZone, s.glintZone);
    number1(glintProb, s.glintProb);
    if (s.hasGlintColour)
        glintColour.SetColour(whole, s.glintColour[0], s.glintColour[1], s.glintColour[2],
                              s.glintColour[3]);
    entry(glintColourMode, s.colourMode, true);
}
