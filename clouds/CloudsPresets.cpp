// The eighteen demonstration presets of "Demos": twelve unlit (Unlit1 to Unlit6, Fun1, Fun2, Fun3,
// Fun5, Fun6, and an eighteenth that only a script reaches) and six lit.
#include <cstdint>

#include "clouds/Clouds.h"

namespace {

struct UnlitPreset {
    double rotate;
    int32_t seed;
    int32_t match;
    double scaleX;
    bool hasScaleY;
    double scaleY;
    double cloudiness, detail, seething, density;
    uint16_t core[3];
    double coreStart, gloomGo;
    uint16_t edge[3];
    double edgeEnds, gloomMax;
    uint16_t sky[3];
};

struct LitPreset {
    int32_t seed;
    int32_t match;
    double scaleX;
    bool hasScaleY;
    double scaleY;
    double cloudiness, detail, seething, density;
    uint16_t sky[3];
    double light[2];
    double lightZ;
    double target[2];
    double spread, fallOff, brightness, contrast, depth;
    uint16_t lightColour[3];
    uint16_t clouds[3];
};

// clang-format off
// Unlit1..Unlit6, Fun1, Fun2, Fun3, Fun5, Fun6, and the eighteenth. Columns: rotate, seed, match,
// scale X, (has scale Y, scale Y), cloudiness, detail, seething, density, core colour, core start,
// gloom go, edge colour, edge ends, gloom max, sky colour.
const UnlitPreset kUnlit[] = {
    {0,  928, 1, 0.86,  false, 0,     57,    50,   3,  100, {16384, 16384, 16512}, 91, 90,  {30592, 30592, 27008}, 22, 79,  {22400, 29184, 32640}},
    {0,  665, 0, 0.3,   true,  0.056, 75,    50,   8,  100, {26880, 19328, 24448}, 77, 64,  {32640, 25088, 30080}, 18, 62,  {32640, 29568, 31616}},
    {0,  827, 0, 0.88,  true,  0.68,  100,   50,   4,  120, {23424, 19328, 28032}, 61, 58,  {24576, 29952, 32640}, 37, 75,  {0, 10880, 16384}},
    {0,  827, 0, 0.243, true,  0.189, 60,    32,   6,  110, {30592, 30592, 30592}, 78, 100, {25856, 25856, 25856}, 0,  100, {19456, 28288, 32640}},
    {0,  665, 0, 0.29,  true,  0.106, 55,    50,   3,  100, {32640, 32640, 25600}, 77, 100, {30080, 30080, 32640}, 18, 100, {25600, 28160, 32640}},
    {0,  827, 0, 0.31,  true,  0.164, 100,   32,   8,  100, {3072, 3072, 12928},   80, 100, {26368, 7808, 20224},  20, 100, {32640, 32384, 18176}},
    {0,  827, 0, 0.055, true,  0.033, 100,   0.45, 12, 120, {16384, 16384, 16384}, 61, 58,  {11264, 11264, 11264}, 37, 75,  {32640, 32640, 32640}},
    {0,  924, 0, 0.181, true,  0.131, 100,   0.45, 30, 120, {16384, 16384, 16384}, 61, 58,  {11264, 11264, 11264}, 37, 75,  {32640, 32640, 32640}},
    {40, 924, 0, 0.214, true,  0.01,  100,   20,   30, 120, {8192, 5504, 0},       61, 58,  {32640, 32640, 18944}, 48, 75,  {32640, 21760, 0}},
    {40, 924, 1, 3.727, false, 0,     27.92, 83,   1,  103, {32640, 0, 21760},     89, 76,  {16384, 0, 24448},     34, 100, {0, 32640, 21760}},
    {0,  924, 0, 0.065, true,  0.067, 47,    40,   8,  100, {32640, 0, 0},         68, 88,  {0, 32640, 0},         58, 100, {0, 0, 32640}},
    {0,  665, 1, 0.5,   false, 0,     100,   50,   3,  100, {32640, 32640, 32640}, 50, 100, {32640, 32640, 32640}, 50, 100, {0, 0, 0}},
};

// Lit1..Lit6. All turn nothing, keep the full gloom range and render at half size. Columns: seed,
// match, scale X, (has scale Y, scale Y), cloudiness, detail, seething, density, sky colour, light,
// light Z, target, spread, fall-off, brightness, contrast, depth scale, light colour, cloud colour.
const LitPreset kLit[] = {
    {665, 1, 0.5,   false, 0,     66,  5.08,  3, 100, {24192, 27776, 31744}, {-0.38, 0.2}, 5,    {0.8, 0.8},    90,   10,    100, 100, 73,   {32640, 28544, 28672}, {32640, 32640, 32640}},
    {665, 1, 0.5,   false, 0,     43,  6.17,  3, 100, {0, 0, 16384},         {-0.38, 0.2}, 1.46, {0.8, 0.8},    90,   10,    100, 100, 30,   {32640, 32640, 1280},  {32640, 32640, 32640}},
    {665, 0, 0.178, true,  0.106, 52,  5.39,  6, 100, {16896, 27392, 32640}, {0.56, 1.15}, 5,    {0.47, 0.3},   125,  28,    93,  105, 16,   {21888, 29056, 30720}, {31360, 32000, 32640}},
    {665, 0, 0.648, true,  0.486, 52,  18.12, 3, 100, {0, 5504, 8192},       {-0.38, 0.2}, 0.93, {-0.21, 0.25}, 87,   24,    150, 113, 38,   {32640, 32640, 30080}, {28544, 32640, 32000}},
    {665, 0, 0.27,  true,  0.167, 100, 3,     6, 100, {25856, 30976, 32640}, {1.03, 1.03}, 5,    {0.75, 0.66},  25,   15,    150, 113, 6,    {32512, 32640, 27008}, {20352, 13440, 18048}},
    {665, 0, 0.931, true,  0.639, 100, 34.12, 2, 124, {17664, 23424, 28544}, {1.03, 1.03}, 5,    {0.75, 0.66},  6.67, 36.84, 150, 113, 6.18, {32512, 32640, 18176}, {32640, 32640, 32640}},
};
// clang-format on

// Combo numbers 13..18 in the unlit table.
constexpr int kFunFirst = 6;

}  // namespace

void CloudsEngine::OnDemos(double time) {
    int number = 1;
    demosInput.GetIndex1(kWholeValue, &number);
    ApplyPreset(number, time);
}

void CloudsEngine::ApplyPreset(int number, double time) {
    if (number < 2 || number > 18) number = 1;
    const bool lit = number >= 7 && number <= 12;
    const double whole = kWholeValue;

    // The parts the two kinds share, in their order of writing.
    struct Common {
        double rotate;
        int32_t seed, match;
        double scaleX;
        bool hasScaleY;
        double scaleY, cloudiness, detail, seething, density;
    };
    Common c;
    const UnlitPreset* u = nullptr;
    const LitPreset* l = nullptr;
    if (lit) {
        l = &kLit[number - 7];
        c = {0.0,       l->seed,       l->match,  l->scaleX,   l->hasScaleY,
             l->scaleY, l->cloudiness, l->detail, l->seething, l->density};
    } else {
        u = &kUnlit[number <= 6 ? number - 1 : kFunFirst + (number - 13)];
        c = {u->rotate, u->seed,       u->match,  u->scaleX,   u->hasScaleY,
             u->scaleY, u->cloudiness, u->detail, u->seething, u->density};
    }

    centreInput.SetPoint(time, 0.5, 0.5);
    rotateInput.SetDouble(time, c.rotate);
    seedInput.SetInt(whole, c.seed);
    matchInput.SetInt(whole, c.match);
    scaleXInput.SetDouble(time, c.scaleX);
    if (c.hasScaleY) scaleYInput.SetDouble(time, c.scaleY);
    cloudinessInput.SetDouble(time, c.cloudiness);
    detailInput.SetDouble(time, c.detail);
    seethingInput.SetDouble(time, c.seething);
    densityInput.SetDouble(time, c.density);
    if (u) {
        coreColourInput.SetColour(whole, u->core[0], u->core[1], u->core[2], 0);
        coreStartInput.SetDouble(time, u->coreStart);
    }
    gloomGoInput.SetDouble(time, u ? u->gloomGo : 100.0);
    if (u) {
        edgeColourInput.SetColour(whole, u->edge[0], u->edge[1], u->edge[2], 0);
        edgeEndsInput.SetDouble(time, u->edgeEnds);
    }
    gloomMaxInput.SetDouble(time, u ? u->gloomMax : 100.0);
    const uint16_t* sky = u ? u->sky : l->sky;
    skyColourInput.SetColour(whole, sky[0], sky[1], sky[2], 0);
    useSkyInput.SetInt(whole, 1);
    litInput.SetInt(whole, lit ? 1 : 0);
    if (!l) return;
    lightInput.SetPoint(time, l->light[0], l->light[1]);
    lightZInput.SetDouble(time, l->lightZ);
    targetInput.SetPoint(time, l->target[0], l->target[1]);
    spreadInput.SetDouble(time, l->spread);
    fallOffInput.SetDouble(time, l->fallOff);
    brightnessInput.SetDouble(time, l->brightness);
    contrastInput.SetDouble(time, l->contrast);
    depthInput.SetDouble(time, l->depth);
    lightColourInput.SetColour(whole, l->lightColour[0], l->lightColour[1], l->lightColour[2], 0);
    cloudColourInput.SetColour(whole, l->clouds[0], l->clouds[1], l->clouds[2], 0);
    highResInput.SetInt(whole, 0);
}
