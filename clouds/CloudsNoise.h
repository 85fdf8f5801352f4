// The fractal noise of the cloud texture: gradient noise on the shared lattice, summed over octaves
// whose frequencies grow by 2.17, and the mapping of a row of the rendered grid to field indices.
#pragma once

#include <cstdint>

#include "frame/NoiseTable.h"

// Where the texture lies on the picture, worked out once a render.
struct FieldMapping {
    float originX = 0.0f, originY = 0.0f;  // the centre, negated
    float pivotX = 0.0f, pivotY = 0.0f;    // what the texture turns about
    float rotateRadians = 0.0f, cosRotate = 1.0f, sinRotate = 0.0f;
    float invScaleX = 1.0f, invScaleY = 1.0f;
    float dx = 0.0f, dy = 0.0f;  // steps of the texture coordinates per grid pixel and row
};

class CloudsNoise {
  public:
    // Octaves stop when the frequency overflows to infinity at the latest; a float gets there in
    // fewer than 128 steps of 2.17.
    static constexpr int kMaxOctaves = 128;

    // Draws the gradients from the seed and works out the octaves for the depth z: the frequencies
    // from startFrequency while they are below maxFrequency, and each octave's lattice plane along
    // the third axis, which is the same for every pixel of a render.
    void Prepare(int32_t seed, float z, float startFrequency, float maxFrequency);

    // Noise(x, y, z) of the lattice, from first principles; the rendering path gives the same bits.
    float Noise(float x, float y, float z) const;
    // The sum over the prepared octaves of Noise(x f, y f, z f) / f.
    float Fractal(float x, float y) const;

    // The field indices (0..32767) of `count` grid pixels of the row at texture height v, from the
    // left edge: u starts at originX and steps by dx, each sum rounded to float.
    void Row(const FieldMapping& m, float v, int count, int32_t* index) const;

    // The field index of a fractal sum n: (n + 1) * 16383.5 truncated, held within 0..32767.
    static int32_t IndexOf(float n);

    // The blending weight (3 - 2 t) t t of a fraction along x or y: worked in extended precision
    // and rounded to float. BlendWeights gives the same for many, the way the rendering path does.
    static float BlendWeight(float t);
    static void BlendWeights(const float* t, float* weights, int count);

    NoiseGradient gradients[256];
    int octaveCount = 0;

  private:
    // Pixels go through the octaves in blocks of this many.
    static constexpr int kBlock = 64;

    struct Octave {
        float frequency;
        float fz;                // fraction of z * frequency in its lattice cell
        long double sz;          // the blending weight along z, kept in extended precision
        uint8_t plane0, plane1;  // P[iz] and P[iz + 1]
    };
    // One octave's noise at (x, y) of its own frequency.
    float OctaveNoise(const Octave& o, float x, float y) const;
    // Adds one octave's noise / frequency to sums[0..n-1] for the points (xs, ys).
    void OctaveRow(const Octave& o, const float* xs, const float* ys, float* sums, int n) const;

    Octave octaves_[kMaxOctaves];
};
