// The one random generator of the pack: a minimal-standard generator behind a 32-entry shuffle
// table. The table is shared by every caller, so whoever needs a repeatable sequence seeds anew.
#pragma once

#include <cstdint>

// Uniform deviate from 0 up to 0.9999998807907104 inclusive. Seed by storing a negative number in
// *state and calling once; later calls continue the sequence.
double ShuffledRandom(int32_t* state);

// The shared state, exposed for inspection.
struct ShuffledRandomTable {
    int32_t shuffleTable[32];
    int32_t lastOutput;
};
const ShuffledRandomTable& ShuffledRandomShared();
