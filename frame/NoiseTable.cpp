#include "frame/NoiseTable.h"

#include <cmath>

#include "frame/ShuffledRandom.h"

const uint8_t noisePermutation[256] = {
    225, 155, 210, 108, 175, 199, 221, 144, 203, 116, 70,  213, 69,  158, 33,  252, 5,   82,  173,
    133, 222, 139, 174, 27,  9,   71,  90,  246, 75,  130, 91,  191, 169, 138, 2,   151, 194, 235,
    81,  7,   25,  113, 228, 159, 205, 253, 134, 142, 248, 65,  224, 217, 22,  121, 229, 63,  89,
    103, 96,  104, 156, 17,  201, 129, 36,  8,   165, 110, 237, 117, 231, 56,  132, 211, 152, 20,
    181, 111, 239, 218, 170, 163, 51,  172, 157, 47,  80,  212, 176, 250, 87,  49,  99,  242, 136,
    189, 162, 115, 44,  43,  124, 94,  150, 16,  141, 247, 32,  10,  198, 223, 255, 72,  53,  131,
    84,  57,  220, 197, 58,  50,  208, 11,  241, 28,  3,   192, 62,  202, 18,  215, 153, 24,  76,
    41,  15,  179, 39,  46,  55,  6,   128, 167, 23,  188, 106, 34,  187, 140, 164, 73,  112, 182,
    244, 195, 227, 13,  35,  77,  196, 185, 26,  200, 226, 119, 31,  123, 168, 125, 249, 68,  183,
    230, 177, 135, 160, 180, 12,  1,   243, 148, 102, 166, 38,  238, 251, 37,  240, 126, 64,  74,
    161, 40,  184, 149, 171, 178, 101, 66,  29,  59,  146, 61,  254, 107, 42,  86,  154, 4,   236,
    232, 120, 21,  233, 209, 45,  98,  193, 114, 78,  19,  206, 14,  118, 127, 48,  79,  147, 85,
    30,  207, 219, 54,  88,  234, 190, 122, 95,  67,  143, 109, 137, 214, 145, 93,  92,  100, 245,
    0,   216, 186, 60,  83,  105, 97,  204, 52,
};

void BuildNoiseGradients(int32_t seed, NoiseGradient* out) {
    constexpr double kTwoPi = 6.283185307179586;
    // The state is the negated seed. A seed below 1 would leave a state that is not negative, and
    // the generator would carry on from whatever was drawn last instead of seeding: it seeds as 1,
    // which is what the generator makes of a state of 0.
    int32_t state = seed > 0 ? -seed : 0;
    ShuffledRandom(&state);
    for (int i = 0; i < 256; ++i) {
        const double z = 1.0 - 2.0 * ShuffledRandom(&state);
        const double phi = ShuffledRandom(&state) * kTwoPi;
        const float rho = static_cast<float>(std::sqrt(1.0 - z * static_cast<float>(z)));
        out[i].x = static_cast<float>(std::cos(phi) * rho);
        out[i].y = static_cast<float>(std::sin(phi) * rho);
        out[i].z = static_cast<float>(z);
    }
}
