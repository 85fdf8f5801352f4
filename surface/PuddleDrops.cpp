#include "surface/PuddleDrops.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"
#include "surface/WaveSineTable.h"

namespace {

// A draw of the generator on the scale the rain uses: 0 to 32767.
double Draw(int32_t* state) {
    return ShuffledRandom(state) * 32767.0;
}

// 2^-15: a draw scaled back to 0..1.
constexpr double kUnit = 3.0517578125e-05;

// Whether a drop at `amplitude` has faded out.
inline bool Faded(float amplitude) {
    return amplitude < kFadedAmplitude;
}

}  // namespace

void DropList::Land(int count, int frame, const RainSettings& s, int32_t* randomState) {
    const double w = s.width, h = s.height;
    const double belowTop = (1.0 - (s.height > 0 && s.width > 0 ? h / w : 1.0)) * 0.5;
    // Decay and speed take the endurance's reciprocal rounded to single precision. An endurance
    // of 0 (or less) leaves a drop no life at all: it lands already faded.
    const bool lifeless = !(s.endurance > 0.0f);
    const float inverse = lifeless ? 0.0f : static_cast<float>(1.0 / s.endurance);
    const float decay = lifeless
                            ? std::numeric_limits<float>::infinity()
                            : static_cast<float>(-std::log(static_cast<double>(0.004f)) * inverse);
    const double radius = s.radius;
    for (int k = 0; k < count; ++k) {
        RainDrop d;
        d.birthFrame = frame;
        d.x = static_cast<float>(Draw(randomState) * kUnit - 0.5 + 0.5);
        d.y = static_cast<float>(Draw(randomState) * kUnit - 0.5 + 0.5 - belowTop);
        d.dead = 0;
        d.decay = decay;
        d.speed = static_cast<float>((Draw(randomState) * kUnit * (radius * 0.5) + radius) *
                                     static_cast<double>(inverse));
        drops_.push_back(d);
    }
}

void DropList::Age(int frame) {
    for (RainDrop& d : drops_) {
        // The difference is taken in 64 bits: frames far apart must not overflow.
        d.age = static_cast<float>((static_cast<int64_t>(frame) - d.birthFrame) * 0.05);
        d.amplitude = std::isinf(d.decay)
                          ? 0.0f
                          : static_cast<float>(std::exp(-static_cast<double>(d.age) * d.decay));
    }
}

void DropList::RemoveDead() {
    drops_.erase(
        std::remove_if(drops_.begin(), drops_.end(), [](const RainDrop& d) { return d.dead != 0; }),
        drops_.end());
}

void DropList::Step(int t, const RainSettings& s, int32_t* randomState) {
    // Scrubbing back forgets the drops of the future; those of frame t itself stay.
    drops_.erase(std::remove_if(drops_.begin(), drops_.end(),
                                [t](const RainDrop& d) { return d.birthFrame > t; }),
                 drops_.end());
    double jitter = 0.0;
    if (s.rate > 0.0001) jitter = (Draw(randomState) - 16383.0) * 0.0001220703125;
    const int count = TruncateToInt(s.rate * 10.0 + jitter);
    Land(count, t, s, randomState);
    Age(t);
}

void DropList::Replay(int from, int to, const RainSettings& s, int32_t* randomState) {
    drops_.clear();
    for (int64_t f = from; f < to; ++f) {
        // A larger jitter and a higher threshold than a step's.
        double jitter = 0.0;
        if (s.rate > 0.1) jitter = (Draw(randomState) - 16383.0) * 10.0 * 6.103515625e-05;
        const int count = TruncateToInt(s.rate * 10.0 + jitter);
        const int frame = static_cast<int>(f);
        Land(count, frame, s, randomState);
        Age(frame);
        for (RainDrop& d : drops_)
            if (Faded(d.amplitude)) d.dead = 1;
        RemoveDead();
    }
}

void DropList::PrepareField(const RainSettings& s) {
    const int w = s.width, h = s.height;
    width_ = w;
    boxes_.clear();
    if (w < 1 || h < 1) return;
    // A side of one pixel has no step across it.
    dx_ = w > 1 ? 1.0 / (w - 1) : 0.0;
    dy_ = h > 1 ? (static_cast<double>(h) / w) / (h - 1) : 0.0;
    aspect_ = std::isfinite(s.aspect) && s.aspect > 0.0 ? s.aspect : 1.0;
    impact_ = s.impact * 10.0;
    const double W = static_cast<float>(w);
    const double a = aspect_;
    for (size_t i = 0; i < drops_.size(); ++i) {
        RainDrop& d = FromHead(i);
        if (Faded(d.amplitude)) {
            d.dead = 1;
            continue;
        }
        Box b;
        b.drop = &d;
        b.A = static_cast<float>(d.amplitude * -2.0);
        b.ring = static_cast<double>(d.speed) * d.age;
        const double R = b.ring * W;
        double x0 = W * d.x - R, x1 = W * d.x + R;
        double y0 = W * d.y - R * a, y1 = W * d.y + R * a;
        // Clipped to the picture; the bottom edge stops on the last row, not past it.
        if (x0 < 0.0) x0 = 0.0;
        if (x1 >= w) x1 = w;
        if (y0 < 0.0) y0 = 0.0;
        if (y1 >= h) y1 = h - 1;
        if (!(x0 < w) || !(y0 < h) || !(x1 >= 0.0) || !(y1 >= 0.0)) continue;
        b.x0 = x0;
        b.y0 = y0;
        b.firstColumn = static_cast<int>(x0);
        b.endColumn = static_cast<int>(std::ceil(x1));
        b.firstRow = static_cast<int>(y0);
        b.lastRow = static_cast<int>(std::floor(y1));
        if (b.endColumn > w) b.endColumn = w;
        if (b.lastRow > h - 1) b.lastRow = h - 1;
        if (b.endColumn <= b.firstColumn || b.lastRow < b.firstRow) continue;
        boxes_.push_back(b);
    }
}

void DropList::SumRows(float* field, const WaveSineTable& table, int first, int last) const {
    // The squared distances across a box, the same on every row of it.
    thread_local std::vector<double> across;
    if (across.size() < static_cast<size_t>(width_)) across.resize(static_cast<size_t>(width_));
    const double dx = dx_, dy = dy_, a = aspect_, impact = impact_;
    for (const Box& b : boxes_) {
        const int top = std::max(first, b.firstRow), bottom = std::min(last, b.lastRow);
        if (top > bottom) continue;
        const RainDrop& d = *b.drop;
        const double x = d.x, y = d.y, ring = b.ring;
        // Positions start from the unrounded box edge and step by a pixel's share, row by row
        // and column by column; a chunk that starts lower steps through the rows above it.
        double yn = b.y0 * dy;
        for (int iy = b.firstRow; iy < top; ++iy)
            yn += dy;
        const int c0 = b.firstColumn, c1 = b.endColumn;
        double xn = b.x0 * dx;
        int nearest = c0;
        for (int ix = c0; ix < c1; ++ix) {
            const double t = x - xn;
            across[ix] = t * t;
            if (across[ix] < across[nearest]) nearest = ix;
            xn += dx;
        }
        const double A = b.A;
        // Inside the ring the wave position lies between -ring * impact and 0. Where 1024 times
        // it stays well within the range of a 32-bit integer, the table step is found by one
        // truncation.
        const bool fast = std::fabs(ring * impact) < 1e6;
        for (int iy = top; iy <= bottom; ++iy, yn += dy) {
            const double q = (y - yn) / a;
            const double down = q * q;
            // Inside the ring where the distance is no more than the ring's radius. The distance
            // grows with the squared distance across, which falls to `nearest` and rises after
            // it, so the pixels inside form one run of columns around it.
            auto inside = [&](int ix) { return std::sqrt(across[ix] + down) - ring <= 0.0; };
            if (!inside(nearest)) continue;
            int lo = c0, hi = nearest;  // the first column inside lies in lo..hi
            while (lo < hi) {
                const int mid = lo + (hi - lo) / 2;
                if (inside(mid))
                    hi = mid;
                else
                    lo = mid + 1;
            }
            const int left = lo;
            lo = nearest;
            hi = c1 - 1;  // the last column inside lies in lo..hi
            while (lo < hi) {
                const int mid = hi - (hi - lo) / 2;
                if (inside(mid))
                    lo = mid;
                else
                    hi = mid - 1;
            }
            const int right = lo;
            float* row = field + static_cast<size_t>(iy) * width_;
            if (fast) {
                int ix = left;
#if defined(__SSE2__)
                // Two pixels at a time: the same operations on each, so the same bits.
                const __m128d down2 = _mm_set1_pd(down), ring2 = _mm_set1_pd(ring);
                const __m128d impact2 = _mm_set1_pd(impact), steps2 = _mm_set1_pd(1024.0);
                const __m128d A2 = _mm_set1_pd(A);
                for (; ix < right; ix += 2) {
                    const __m128d d2 = _mm_sqrt_pd(_mm_add_pd(_mm_loadu_pd(&across[ix]), down2));
                    const __m128d v2 = _mm_mul_pd(_mm_sub_pd(d2, ring2), impact2);
                    const __m128i m2 = _mm_cvttpd_epi32(_mm_mul_pd(v2, steps2));
                    const int i0 = _mm_cvtsi128_si32(m2) & 1023;
                    const int i1 = _mm_cvtsi128_si32(_mm_shuffle_epi32(m2, 1)) & 1023;
                    const __m128d t2 = _mm_set_pd(table.Entry(i1), table.Entry(i0));
                    // Two floats of the row, loaded and stored as one unaligned 64-bit word.
                    __m128i* at = reinterpret_cast<__m128i*>(row + ix);
                    const __m128d r2 = _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(at)));
                    const __m128 sum = _mm_cvtpd_ps(_mm_add_pd(r2, _mm_mul_pd(A2, t2)));
                    _mm_storel_epi64(at, _mm_castps_si128(sum));
                }
#endif
                for (; ix <= right; ++ix) {
                    const double v = (std::sqrt(across[ix] + down) - ring) * impact;
                    // The step of the table is the truncation of 1024 times the fraction of v:
                    // as v * 1024 is exact, that is the low ten bits of trunc(v * 1024).
                    const int i = static_cast<int>(static_cast<int64_t>(v * 1024.0) & 1023);
                    row[ix] = static_cast<float>(row[ix] + A * table.Entry(i));
                }
                continue;
            }
            for (int ix = left; ix <= right; ++ix) {
                const double e = std::sqrt(across[ix] + down) - ring;
                // Waves of wavelength 1 / impact inside the ring, phase-locked to it.
                const double v = e * impact;
                int i = static_cast<int>((v - std::trunc(v)) * 1024.0);
                if (i < 0) i += WaveSineTable::kSize;
                row[ix] = static_cast<float>(row[ix] + A * table.Entry(i));
            }
        }
    }
}
