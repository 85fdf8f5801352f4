#include "frame/ShuffledRandom.h"

namespace {

ShuffledRandomTable shared = {{0}, 0};

constexpr int32_t kModulus = 2147483647;
constexpr int32_t kQuotient = 127773;
// 1/2147483647 rounded to single precision (bit pattern 0x30000000).
constexpr float kScale = 4.656612873077393e-10f;
// 0.9999999 rounded to single precision: the largest value returned.
constexpr float kTop = 0.9999999f;

// One step of the generator in Schrage's form. The two products are taken with wrapping 32-bit
// arithmetic; done in 64 bits and folded back, they give the same word without overflow.
int32_t Next(int32_t s) {
    int32_t k = s / kQuotient;
    uint32_t a = static_cast<uint32_t>(16807) * static_cast<uint32_t>(s);
    uint32_t b = static_cast<uint32_t>(kModulus) * static_cast<uint32_t>(k);
    int32_t r = static_cast<int32_t>(a - b);
    if (r < 0) r += kModulus;
    return r;
}

}  // namespace

const ShuffledRandomTable& ShuffledRandomShared() {
    return shared;
}

double ShuffledRandom(int32_t* state) {
    int32_t s;
    if (*state <= 0 || shared.lastOutput == 0) {
        // Negation wraps, so the most negative word stays negative and is clamped like zero.
        s = static_cast<int32_t>(0u - static_cast<uint32_t>(*state));
        if (s < 1) s = 1;
        for (int j = 39; j >= 0; --j) {
            s = Next(s);
            if (j < 32) shared.shuffleTable[j] = s;
        }
        shared.lastOutput = shared.shuffleTable[0];
    } else {
        s = *state;
    }
    s = Next(s);
    int j = shared.lastOutput / 67108864;
    shared.lastOutput = shared.shuffleTable[j];
    shared.shuffleTable[j] = s;
    *state = s;
    long double r = static_cast<long double>(shared.lastOutput) * static_cast<long double>(kScale);
    if (r > static_cast<long double>(kTop)) return static_cast<double>(kTop);
    return static_cast<double>(r);
}
