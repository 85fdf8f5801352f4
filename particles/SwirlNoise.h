// The swirls that push particles about: a three-dimensional gradient noise on the pack's lattice.
// x and y come from a particle's place, the third coordinate from the frame number, so the field of
// swirls drifts over time. Each particle engine holds its own gradients, built once from a fixed
// seed, so a restart finds the same field again.
#pragma once

#include <cstdint>

struct SwirlGradients {
    float g[256][3];
};

// Fills the 256 unit gradients from the shared generator, seeded with -seed: one draw is thrown
// away, then for each entry z = 1 - 2 * r1, phi = r2 * 2 pi, rho = sqrt(1 - z^2) rounded to float,
// and the entry is (cos(phi) * rho, sin(phi) * rho, z).
void BuildSwirlGradients(int32_t seed, SwirlGradients* out);

// The noise at (x, y, z): 0 at every lattice point, roughly -1..1 elsewhere. Pure; safe on any
// thread.
double SwirlNoise(const SwirlGradients& gradients, float x, float y, float z);
