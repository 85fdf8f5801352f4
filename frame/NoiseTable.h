// The lattice of the pack's gradient noise: a fixed permutation of 0..255 that hashes lattice
// points, and 256 unit gradient vectors drawn from a seed. The cloud texture and the swirls that
// push particles sample the same lattice; each keeps its own gradients and its own way of blending
// the corners.
#pragma once

#include <cstdint>

// The permutation, shared by every tool that samples the lattice.
extern const uint8_t noisePermutation[256];

struct NoiseGradient {
    float x, y, z;
};

// Fills out[0..255] with unit vectors spread evenly over the sphere, drawn from the shared
// generator. The generator is seeded with -seed (a seed below 1 seeds as 1) and one draw is thrown
// away; then, for each entry in order, z = 1 - 2 * r1 and phi = r2 * 2 pi (two draws, in that
// order), and the entry is (cos(phi) * rho, sin(phi) * rho, z) with rho = sqrt(1 - z * float(z))
// rounded to float.
void BuildNoiseGradients(int32_t seed, NoiseGradient* out);

// The gradient number of lattice point (i, j, k): P[P[P[k] + j] + i], each index taken to 8 bits.
inline int NoiseLatticeIndex(int32_t i, int32_t j, int32_t k) {
    const uint32_t a = noisePermutation[static_cast<uint32_t>(k) & 255u];
    const uint32_t b = noisePermutation[(a + static_cast<uint32_t>(j)) & 255u];
    return noisePermutation[(b + static_cast<uint32_t>(i)) & 255u];
}

// Coordinates beyond this magnitude are held at it before the lattice cell is found, so that the
// cell number always fits a 32-bit word. A float of that size is a whole number, so the fraction
// there is 0 whichever side it came from.
constexpr float kNoiseCoordinateLimit = 1073741824.0f;  // 2^30

// The lattice cell of v (the floor: a truncation, less 1 for a negative number with a fraction) and
// the fraction within it. v is first held within +-kNoiseCoordinateLimit; NaN is taken as the lower
// limit. Exact negative whole numbers stay themselves.
inline int32_t NoiseCell(float v, float* fraction) {
    float c = v > -kNoiseCoordinateLimit ? v : -kNoiseCoordinateLimit;
    c = c < kNoiseCoordinateLimit ? c : kNoiseCoordinateLimit;
    int32_t i = static_cast<int32_t>(c);
    if (c < static_cast<float>(i)) --i;
    *fraction = c - static_cast<float>(i);
    return i;
}
