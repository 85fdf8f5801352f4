#include "clouds/CloudsNoise.h"

#include "clouds/CloudsTables.h"

#include "frame/SmallMaths.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// The blending curve (3 - 2 t) t t, worked in extended precision. Along x and y it is rounded to
// float; along z it is used as it stands.
inline long double CurveExtended(float t) {
    const long double e = t;
    return (3.0L - 2.0L * e) * e * e;
}

inline float Curve(float t) {
    return static_cast<float>(CurveExtended(t));
}

#if defined(__SSE2__)
// The curve of four fractions at once, rounded to float. Worked in double it is a little less exact
// than in extended precision, by at most two units of the double's last place; the two round to the
// same float unless the double lies within that of a point halfway between two floats. Such lanes,
// and fractions so small that 3 - 2t does not fit a double, are worked in extended precision.
inline void Curve4(const float* t, float* out) {
    const __m128 tf = _mm_load_ps(t);
    const __m128d three = _mm_set1_pd(3.0), two = _mm_set1_pd(2.0);
    const __m128d t0 = _mm_cvtps_pd(tf), t1 = _mm_cvtps_pd(_mm_movehl_ps(tf, tf));
    const __m128d c0 = _mm_mul_pd(_mm_mul_pd(_mm_sub_pd(three, _mm_mul_pd(two, t0)), t0), t0);
    const __m128d c1 = _mm_mul_pd(_mm_mul_pd(_mm_sub_pd(three, _mm_mul_pd(two, t1)), t1), t1);
    _mm_store_ps(out, _mm_movelh_ps(_mm_cvtpd_ps(c0), _mm_cvtpd_ps(c1)));
    // The 29 bits that rounding to float drops, from the low word of each double; halfway is 2^28.
    const __m128i low =
        _mm_unpacklo_epi64(_mm_shuffle_epi32(_mm_castpd_si128(c0), _MM_SHUFFLE(3, 1, 2, 0)),
                           _mm_shuffle_epi32(_mm_castpd_si128(c1), _MM_SHUFFLE(3, 1, 2, 0)));
    const __m128i off = _mm_sub_epi32(_mm_and_si128(low, _mm_set1_epi32(0x1FFFFFFF)),
                                      _mm_set1_epi32(0x10000000 - 8));
    const __m128i nearHalf = _mm_and_si128(_mm_cmpgt_epi32(off, _mm_set1_epi32(-1)),
                                           _mm_cmplt_epi32(off, _mm_set1_epi32(17)));
    const __m128 tiny = _mm_and_ps(_mm_cmpgt_ps(tf, _mm_setzero_ps()),
                                   _mm_cmplt_ps(tf, _mm_set1_ps(3.7252903e-09f)));  // 2^-28
    const int redo = _mm_movemask_ps(_mm_or_ps(_mm_castsi128_ps(nearHalf), tiny));
    if (redo == 0) return;
    for (int k = 0; k < 4; ++k)
        if (redo & (1 << k)) out[k] = Curve(t[k]);
}
#endif

// The value of a corner: its gradient dotted with the offset of the point from the corner.
inline float Corner(const NoiseGradient& g, float ox, float oy, float oz) {
    return g.x * ox + g.y * oy + g.z * oz;
}

inline float Lerp(float lo, float hi, float s) {
    return lo + (hi - lo) * s;
}

// The blend along z, in extended precision, rounded to float as the noise value is returned.
inline float LerpExtended(float lo, float hi, long double s) {
    const long double l = lo;
    return static_cast<float>(l + (static_cast<long double>(hi) - l) * s);
}

}  // namespace

void CloudsNoise::Prepare(int32_t seed, float z, float startFrequency, float maxFrequency) {
    BuildNoiseGradients(seed, gradients);
    octaveCount = 0;
    for (float f = startFrequency; f < maxFrequency && octaveCount < kMaxOctaves;
         f = ToFloat(f * 2.17)) {
        Octave& o = octaves_[octaveCount++];
        o.frequency = f;
        const int32_t iz = NoiseCell(z * f, &o.fz);
        o.sz = CurveExtended(o.fz);
        o.plane0 = noisePermutation[static_cast<uint32_t>(iz) & 255u];
        o.plane1 = noisePermutation[(static_cast<uint32_t>(iz) + 1u) & 255u];
    }
}

float CloudsNoise::Noise(float x, float y, float z) const {
    float fx, fy, fz;
    const int32_t ix = NoiseCell(x, &fx), iy = NoiseCell(y, &fy), iz = NoiseCell(z, &fz);
    const float sx = Curve(fx), sy = Curve(fy);
    const long double sz = CurveExtended(fz);
    float alongY[2];
    for (int c = 0; c < 2; ++c) {
        float alongX[2];
        for (int b = 0; b < 2; ++b) {
            const NoiseGradient& g0 = gradients[NoiseLatticeIndex(ix, iy + b, iz + c)];
            const NoiseGradient& g1 = gradients[NoiseLatticeIndex(ix + 1, iy + b, iz + c)];
            const float oy = fy - static_cast<float>(b), oz = fz - static_cast<float>(c);
            alongX[b] = Lerp(Corner(g0, fx, oy, oz), Corner(g1, fx - 1.0f, oy, oz), sx);
        }
        alongY[c] = Lerp(alongX[0], alongX[1], sy);
    }
    return LerpExtended(alongY[0], alongY[1], sz);
}

float CloudsNoise::OctaveNoise(const Octave& o, float x, float y) const {
    float fx, fy;
    const uint32_t ix = static_cast<uint32_t>(NoiseCell(x, &fx));
    const uint32_t iy = static_cast<uint32_t>(NoiseCell(y, &fy));
    const float sx = Curve(fx), sy = Curve(fy);
    const float fx1 = fx - 1.0f, fy1 = fy - 1.0f, fz = o.fz, fz1 = o.fz - 1.0f;
    const uint8_t* P = noisePermutation;
    // The lattice rows (y, z) of the four pairs of corners.
    const uint32_t r00 = P[(o.plane0 + iy) & 255u], r10 = P[(o.plane0 + iy + 1u) & 255u];
    const uint32_t r01 = P[(o.plane1 + iy) & 255u], r11 = P[(o.plane1 + iy + 1u) & 255u];
    const NoiseGradient* G = gradients;
    const float x00 = Lerp(Corner(G[P[(r00 + ix) & 255u]], fx, fy, fz),
                           Corner(G[P[(r00 + ix + 1u) & 255u]], fx1, fy, fz), sx);
    const float x10 = Lerp(Corner(G[P[(r10 + ix) & 255u]], fx, fy1, fz),
                           Corner(G[P[(r10 + ix + 1u) & 255u]], fx1, fy1, fz), sx);
    const float x01 = Lerp(Corner(G[P[(r01 + ix) & 255u]], fx, fy, fz1),
                           Corner(G[P[(r01 + ix + 1u) & 255u]], fx1, fy, fz1), sx);
    const float x11 = Lerp(Corner(G[P[(r11 + ix) & 255u]], fx, fy1, fz1),
                           Corner(G[P[(r11 + ix + 1u) & 255u]], fx1, fy1, fz1), sx);
    return LerpExtended(Lerp(x00, x10, sy), Lerp(x01, x11, sy), o.sz);
}

float CloudsNoise::BlendWeight(float t) {
    return Curve(t);
}

void CloudsNoise::BlendWeights(const float* t, float* weights, int count) {
#if defined(__SSE2__)
    int k = 0;
    for (; k + 4 <= count; k += 4) {
        alignas(16) float in[4] = {t[k], t[k + 1], t[k + 2], t[k + 3]};
        alignas(16) float out[4];
        Curve4(in, out);
        for (int j = 0; j < 4; ++j)
            weights[k + j] = out[j];
    }
    for (; k < count; ++k)
        weights[k] = Curve(t[k]);
#else
    for (int k = 0; k < count; ++k)
        weights[k] = Curve(t[k]);
#endif
}

float CloudsNoise::Fractal(float x, float y) const {
    float sum = 0.0f;
    for (int k = 0; k < octaveCount; ++k) {
        const Octave& o = octaves_[k];
        sum = sum + OctaveNoise(o, x * o.frequency, y * o.frequency) / o.frequency;
    }
    return sum;
}

int32_t CloudsNoise::IndexOf(float n) {
    const int32_t i = TruncateToInt((n + 1.0) * 16383.5);
    return i < 0 ? 0 : (i > 32767 ? 32767 : i);
}

namespace {

#if defined(__SSE2__)
// The eight corners of one lattice cell of an octave, laid out for the four (y, z) pairs at once:
// lane 0 is (y0, z0), lane 1 (y1, z0), lane 2 (y0, z1), lane 3 (y1, z1). The z term of each corner
// is the same for every point of the octave's plane and is kept multiplied out.
struct CellCorners {
    int32_t ix = 0, iy = 0;
    bool valid = false;
    // The corners at x0 and at x1.
    __m128 gx0 = _mm_setzero_ps(), gy0 = _mm_setzero_ps(), gz0 = _mm_setzero_ps();
    __m128 gx1 = _mm_setzero_ps(), gy1 = _mm_setzero_ps(), gz1 = _mm_setzero_ps();
};

inline void LoadCell(CellCorners& cell, const NoiseGradient* G, uint32_t ix, uint32_t iy,
                     uint32_t plane0, uint32_t plane1, float fz, float fz1) {
    const uint8_t* P = noisePermutation;
    const uint32_t rows[4] = {P[(plane0 + iy) & 255u], P[(plane0 + iy + 1u) & 255u],
                              P[(plane1 + iy) & 255u], P[(plane1 + iy + 1u) & 255u]};
    const float oz[4] = {fz, fz, fz1, fz1};
    alignas(16) float x0[4], y0[4], z0[4], x1[4], y1[4], z1[4];
    for (int k = 0; k < 4; ++k) {
        const NoiseGradient& a = G[P[(rows[k] + ix) & 255u]];
        const NoiseGradient& b = G[P[(rows[k] + ix + 1u) & 255u]];
        x0[k] = a.x;
        y0[k] = a.y;
        z0[k] = a.z * oz[k];
        x1[k] = b.x;
        y1[k] = b.y;
        z1[k] = b.z * oz[k];
    }
    cell.gx0 = _mm_load_ps(x0);
    cell.gy0 = _mm_load_ps(y0);
    cell.gz0 = _mm_load_ps(z0);
    cell.gx1 = _mm_load_ps(x1);
    cell.gy1 = _mm_load_ps(y1);
    cell.gz1 = _mm_load_ps(z1);
    cell.ix = static_cast<int32_t>(ix);
    cell.iy = static_cast<int32_t>(iy);
    cell.valid = true;
}
#endif

}  // namespace

void CloudsNoise::OctaveRow(const Octave& o, const float* xs, const float* ys, float* sums,
                            int n) const {
    const float f = o.frequency;
#if defined(__SSE2__)
    // The same operations as OctaveNoise, lane by lane and in the same order, so the bits are the
    // same; they run in phases over the block so that the pixels' long chains overlap.
    alignas(16) int32_t ix[kBlock + 4], iy[kBlock + 4];
    alignas(16) float fx[kBlock + 4], fy[kBlock + 4], sx[kBlock], sy[kBlock];
    alignas(16) float zs[2 * kBlock], values[kBlock + 4];

    // Lattice cells and fractions, four points at a time (NoiseCell on each lane).
    const __m128 freq = _mm_set1_ps(f);
    const __m128 lower = _mm_set1_ps(-kNoiseCoordinateLimit);
    const __m128 upper = _mm_set1_ps(kNoiseCoordinateLimit);
    for (int k = 0; k < n; k += 4) {
        for (int axis = 0; axis < 2; ++axis) {
            const float* in = axis == 0 ? xs : ys;
            __m128 c = _mm_mul_ps(_mm_loadu_ps(in + k), freq);
            c = _mm_min_ps(_mm_max_ps(c, lower), upper);
            __m128i i = _mm_cvttps_epi32(c);
            i = _mm_add_epi32(i, _mm_castps_si128(_mm_cmplt_ps(c, _mm_cvtepi32_ps(i))));
            const __m128 frac = _mm_sub_ps(c, _mm_cvtepi32_ps(i));
            _mm_store_si128(reinterpret_cast<__m128i*>(axis == 0 ? ix + k : iy + k), i);
            _mm_store_ps(axis == 0 ? fx + k : fy + k, frac);
        }
    }
    for (int k = 0; k < n; k += 4) {
        Curve4(fx + k, sx + k);
        Curve4(fy + k, sy + k);
    }

    CellCorners cell;
    const float fz = o.fz, fz1 = o.fz - 1.0f;
    for (int k = 0; k < n; ++k) {
        if (!cell.valid || ix[k] != cell.ix || iy[k] != cell.iy)
            LoadCell(cell, gradients, static_cast<uint32_t>(ix[k]), static_cast<uint32_t>(iy[k]),
                     o.plane0, o.plane1, fz, fz1);
        const float fy1 = fy[k] - 1.0f;
        const __m128 ox0 = _mm_set1_ps(fx[k]), ox1 = _mm_set1_ps(fx[k] - 1.0f);
        const __m128 oy = _mm_setr_ps(fy[k], fy1, fy[k], fy1);
        const __m128 c0 =
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(cell.gx0, ox0), _mm_mul_ps(cell.gy0, oy)), cell.gz0);
        const __m128 c1 =
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(cell.gx1, ox1), _mm_mul_ps(cell.gy1, oy)), cell.gz1);
        // Along x: lanes (y0 z0, y1 z0, y0 z1, y1 z1).
        const __m128 alongX = _mm_add_ps(c0, _mm_mul_ps(_mm_sub_ps(c1, c0), _mm_set1_ps(sx[k])));
        // Along y: lanes (z0, z1).
        const __m128 lo = _mm_shuffle_ps(alongX, alongX, _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 hi = _mm_shuffle_ps(alongX, alongX, _MM_SHUFFLE(3, 1, 3, 1));
        const __m128 alongY = _mm_add_ps(lo, _mm_mul_ps(_mm_sub_ps(hi, lo), _mm_set1_ps(sy[k])));
        _mm_storel_pi(reinterpret_cast<__m64*>(zs + 2 * k), alongY);
    }
    for (int k = 0; k < n; ++k)
        values[k] = LerpExtended(zs[2 * k], zs[2 * k + 1], o.sz);
    for (int k = 0; k < n; ++k)
        sums[k] = sums[k] + values[k] / f;
#else
    for (int k = 0; k < n; ++k)
        sums[k] = sums[k] + OctaveNoise(o, xs[k] * f, ys[k] * f) / f;
#endif
}

void CloudsNoise::Row(const FieldMapping& m, float v, int count, int32_t* index) const {
    // Blocks of pixels go through the octaves together, so that an octave's cells stay at hand.
    // The block arrays have room for a last group of four read past the end.
    alignas(16) float xs[kBlock + 4] = {}, ys[kBlock + 4] = {}, sums[kBlock];
    const bool rotate = m.rotateRadians != 0.0f;
    float u = m.originX;
    for (int start = 0; start < count; start += kBlock) {
        const int n = count - start < kBlock ? count - start : kBlock;
        for (int k = 0; k < n; ++k) {
            float x = u, y = v;
            if (rotate) {
                const float a = u - m.pivotX, b = v - m.pivotY;
                x = a * m.cosRotate - b * m.sinRotate + m.pivotX;
                y = b * m.cosRotate + a * m.sinRotate + m.pivotY;
            }
            xs[k] = x * m.invScaleX;
            ys[k] = y * m.invScaleY;
            sums[k] = 0.0f;
            u = u + m.dx;
        }
        for (int o = 0; o < octaveCount; ++o)
            OctaveRow(octaves_[o], xs, ys, sums, n);
        for (int k = 0; k < n; ++k)
            index[start + k] = IndexOf(sums[k]);
    }
}
