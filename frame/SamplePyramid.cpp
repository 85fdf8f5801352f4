#include "frame/SamplePyramid.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"

namespace {

// Room left at the far edges for the second pixel of a bilinear step: 2.0001 in single
// precision.
constexpr double kEdgeRoom = static_cast<double>(2.0001f);
constexpr double kLargestArea = 200.0;

int FloorLog2(int v) {
    int n = 0;
    while (v >= 2) {
        v >>= 1;
        ++n;
    }
    return n;
}

void Layout(SamplePyramid& p) {
    const int minSide = p.width < p.height ? p.width : p.height;
    int count = FloorLog2(minSide);
    if (count > kPyramidSlots - 1) count = kPyramidSlots - 1;
    p.levelCount = count;
    p.levels[0] = p.baseBlock;
    p.levelWidth[0] = p.width;
    p.levelHeight[0] = p.height;
    p.levelScale[0] = 1.0f;
    size_t offset = 0;
    for (int n = 1; n <= count; ++n) {
        const int w = p.levelWidth[n - 1] >> 1, h = p.levelHeight[n - 1] >> 1;
        p.levels[n] = p.upperBlock + offset;
        p.levelWidth[n] = w;
        p.levelHeight[n] = h;
        const int side = w < h ? w : h;
        p.levelScale[n] = static_cast<float>((side - 1.0) / minSide);
        offset += static_cast<size_t>(w) * h * 4;
    }
    for (int n = count + 1; n < kPyramidSlots; ++n) {
        p.levels[n] = nullptr;
        p.levelWidth[n] = p.levelHeight[n] = 0;
        p.levelScale[n] = 0.0f;
    }
}

void Fill(SamplePyramid& p, const WorkImage& source) {
    const size_t rowWords = static_cast<size_t>(p.width) * 4;
    unsigned any = 0;
    for (int y = 0; y < p.height; ++y) {
        const uint16_t* s = source.rows[y];
        uint16_t* d = p.baseBlock + rowWords * y;
        for (int x = 0; x < p.width; ++x, s += 4, d += 4) {
            d[0] = s[3];
            d[1] = s[2];
            d[2] = s[1];
            d[3] = s[0];
            any |= s[0] | s[1] | s[2] | s[3];
        }
    }
    // Levels above are averages, never above the largest sample of level 0.
    p.fits15 = any <= 32767;
    for (int n = 1; n <= p.levelCount; ++n) {
        const int below = p.levelWidth[n - 1];
        const int w = p.levelWidth[n], h = p.levelHeight[n];
        for (int y = 0; y < h; ++y) {
            const uint16_t* r0 = p.levels[n - 1] + static_cast<size_t>(2 * y) * below * 4;
            const uint16_t* r1 = r0 + static_cast<size_t>(below) * 4;
            uint16_t* d = p.levels[n] + static_cast<size_t>(y) * w * 4;
            for (int x = 0; x < w; ++x, r0 += 8, r1 += 8, d += 4)
                for (int k = 0; k < 4; ++k)
                    d[k] = static_cast<uint16_t>((r0[k] + r0[k + 4] + r1[k] + r1[k + 4]) >> 2);
        }
    }
}

// Bit c of a channel mask stands for channel c of the result (0 red .. 3 alpha).
constexpr unsigned kAllChannels = 15;

// A bound brought within 0..hi. The upper limit is applied first, so that a picture too narrow
// for the bilinear step (hi below 0) gives 0; NaN also gives 0.
inline double Limit(double v, double hi) {
    if (v > hi) v = hi;
    if (!(v >= 0.0)) v = 0.0;
    return v;
}

// The four pixels around (cx, cy) on one level, both at least 0, and their 14-bit weights. A
// neighbour beyond the level's last pixel is the last pixel.
struct Taps {
    const uint16_t *a, *b, *c, *d;  // (ix, iy), (ix + 1, iy), (ix, iy + 1), (ix + 1, iy + 1)
    uint32_t wx, wy;
};

inline Taps TapsAt(const SamplePyramid& p, int level, double cx, double cy) {
    const int w = p.levelWidth[level], h = p.levelHeight[level];
    int ix = static_cast<int>(cx), iy = static_cast<int>(cy);
    Taps t;
    t.wx = static_cast<uint32_t>((cx - ix) * 16384.0 + 0.5);
    t.wy = static_cast<uint32_t>((cy - iy) * 16384.0 + 0.5);
    if (ix > w - 1) ix = w - 1;
    if (iy > h - 1) iy = h - 1;
    const int ix1 = ix + 1 < w ? ix + 1 : w - 1;
    const int iy1 = iy + 1 < h ? iy + 1 : h - 1;
    const uint16_t* base = p.levels[level];
    const uint16_t* r0 = base + static_cast<size_t>(iy) * w * 4;
    const uint16_t* r1 = base + static_cast<size_t>(iy1) * w * 4;
    t.a = r0 + ix * 4;
    t.b = r0 + ix1 * 4;
    t.c = r1 + ix * 4;
    t.d = r1 + ix1 * 4;
    return t;
}

// Bilinear blend of one level: along x on each row with >> 14, then along y with >> 14.
template <unsigned Mask>
inline void Bilinear(const Taps& t, uint32_t out[4]) {
    const uint32_t cwx = 16384 - t.wx, cwy = 16384 - t.wy;
    for (int ch = 0; ch < 4; ++ch) {
        if (!(Mask & (1u << ch))) continue;
        const int k = 3 - ch;  // stored alpha, blue, green, red
        const uint32_t lo = (t.a[k] * cwx + t.b[k] * t.wx) >> 14;
        const uint32_t hi = (t.c[k] * cwx + t.d[k] * t.wx) >> 14;
        const uint32_t v = (lo * cwy + hi * t.wy) >> 14;
        out[ch] = v > 65535 ? 65535 : v;
    }
}

#if defined(__SSE2__)
// The same blend for all four channels at once, for pyramids whose samples fit in 15 bits: each
// pair of samples and pair of weights is one signed 16-bit multiply-add, whose sums stay below
// 2^29, and each blend of values up to 32767 is again at most 32767, so no limit is reached. The
// lanes hold the stored order, alpha first.
inline __m128i Pair(uint32_t weight) {
    return _mm_set1_epi32(static_cast<int>(((weight << 16) | (16384 - weight))));
}

inline __m128i Blend(__m128i first, __m128i second, uint32_t weight) {
    const __m128i packedFirst = _mm_packs_epi32(first, first);
    const __m128i packedSecond = _mm_packs_epi32(second, second);
    return _mm_srli_epi32(
        _mm_madd_epi16(_mm_unpacklo_epi16(packedFirst, packedSecond), Pair(weight)), 14);
}

inline __m128i Bilinear15(const Taps& t) {
    const __m128i wx = Pair(t.wx);
    const __m128i top = _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(t.a)),
                                           _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t.b)));
    const __m128i bottom =
        _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(t.c)),
                           _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t.d)));
    const __m128i rowTop = _mm_srli_epi32(_mm_madd_epi16(top, wx), 14);
    const __m128i rowBottom = _mm_srli_epi32(_mm_madd_epi16(bottom, wx), 14);
    return Blend(rowTop, rowBottom, t.wy);
}

inline void Store15(__m128i stored, uint32_t out[4]) {
    // Alpha, blue, green, red back to red, green, blue, alpha.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_shuffle_epi32(stored, _MM_SHUFFLE(0, 1, 2, 3)));
}
#endif

// The mean of one rectangle that needs no splitting: one bilinear fetch for an area up to 1, else
// a blend of two levels chosen by the area.
template <unsigned Mask>
void Fetch(const SamplePyramid& p, double left, double top, double right, double bottom,
           double area, uint32_t out[4]) {
    const double hiX = p.width - kEdgeRoom, hiY = p.height - kEdgeRoom;
    left = Limit(left, hiX);
    right = Limit(right, hiX);
    top = Limit(top, hiY);
    bottom = Limit(bottom, hiY);
    const double cx = (left + right) * 0.5, cy = (top + bottom) * 0.5;
#if defined(__SSE2__)
    const bool packed = Mask == kAllChannels && p.fits15;
#endif
    // A picture with no level above 0 has nothing to blend with.
    if (!(area > 1.0) || p.levelCount < 1) {
        const Taps t = TapsAt(p, 0, cx, cy);
#if defined(__SSE2__)
        if (packed) {
            Store15(Bilinear15(t), out);
            return;
        }
#endif
        Bilinear<Mask>(t, out);
        return;
    }
    if (area > kLargestArea) area = kLargestArea;
    // Neighbouring rectangles often have the same area: the level of the last one is kept.
    thread_local double lastArea = -1.0, lastLevel = 0.0;
    if (area != lastArea) {
        lastLevel = std::log2(std::sqrt(area));
        lastArea = area;
    }
    double level = lastLevel;
    int l = static_cast<int>(level);
    if (l >= p.levelCount) {
        level -= l - (p.levelCount - 1);
        l = p.levelCount - 1;
    }
    const uint32_t wl = static_cast<uint32_t>((level - l) * 16384.0 + 0.5);
    const double s0 = p.levelScale[l], s1 = p.levelScale[l + 1];
    const Taps lowerTaps = TapsAt(p, l, cx * s0, cy * s0);
    const Taps upperTaps = TapsAt(p, l + 1, cx * s1, cy * s1);
#if defined(__SSE2__)
    if (packed) {
        Store15(Blend(Bilinear15(lowerTaps), Bilinear15(upperTaps), wl), out);
        return;
    }
#endif
    uint32_t lower[4], upper[4];
    Bilinear<Mask>(lowerTaps, lower);
    Bilinear<Mask>(upperTaps, upper);
    for (int ch = 0; ch < 4; ++ch) {
        if (!(Mask & (1u << ch))) continue;
        const uint32_t v = (lower[ch] * (16384 - wl) + upper[ch] * wl) >> 14;
        out[ch] = v > 65535 ? 65535 : v;
    }
}

// One column (or row) of a rectangle split along the picture's edges: its bounds and on which side
// of the picture it lies (-1 before, 0 within, 1 beyond).
struct Span {
    double from, to;
    int side;
};

int SplitSpan(double from, double to, double last, Span spans[3]) {
    int n = 0;
    if (from < 0.0) spans[n++] = {from, to < 0.0 ? to : 0.0, -1};
    if (to > 0.0 && from < last) spans[n++] = {from > 0.0 ? from : 0.0, to < last ? to : last, 0};
    if (to > last) spans[n++] = {from > last ? from : last, to, 1};
    return n;
}

template <unsigned Mask>
void Sample(const SamplePyramid& p, float leftIn, float topIn, float rightIn, float bottomIn,
            int edgeMode, uint16_t result[4]) {
    double left = leftIn, top = topIn, right = rightIn, bottom = bottomIn;
    if (left > right) std::swap(left, right);
    if (top > bottom) std::swap(top, bottom);
    const double lastX = p.width - 1.0, lastY = p.height - 1.0;
    uint32_t got[4] = {0, 0, 0, 0};
    const bool within = left >= 0.0 && right <= lastX && top >= 0.0 && bottom <= lastY;
    if (within || edgeMode == kEdgeDup) {
        Fetch<Mask>(p, left, top, right, bottom, (right - left) * (bottom - top), got);
        for (int ch = 0; ch < 4; ++ch)
            result[ch] = static_cast<uint16_t>(got[ch]);
        return;
    }
    const double width = p.width, height = p.height;
    if (edgeMode == kEdgeWrap) {
        double halfW = (right - left) / 2, halfH = (bottom - top) / 2;
        if (halfW > width / 2) halfW = width / 2;
        if (halfH > height / 2) halfH = height / 2;
        double cx = std::fmod((left + right) / 2, width);
        double cy = std::fmod((top + bottom) / 2, height);
        if (cx < 0.0) cx += width;
        if (cy < 0.0) cy += height;
        left = cx - halfW;
        right = cx + halfW;
        top = cy - halfH;
        bottom = cy + halfH;
    }
    const double share = 1.0 / ((right - left) * (bottom - top) + 1e-5);
    Span columns[3], rows[3];
    const int columnCount = SplitSpan(left, right, lastX, columns);
    const int rowCount = SplitSpan(top, bottom, lastY, rows);
    double sum[4] = {0.0, 0.0, 0.0, 0.0};
    for (int j = 0; j < rowCount; ++j) {
        for (int i = 0; i < columnCount; ++i) {
            const Span& c = columns[i];
            const Span& r = rows[j];
            const double area = (c.to - c.from) * (r.to - r.from);
            if (!(area > 0.0)) continue;
            double dx = 0.0, dy = 0.0;
            if (c.side != 0 || r.side != 0) {
                // Outside: transparent black for the border, the opposite side for the wrap.
                if (edgeMode == kEdgeBlack) continue;
                if (edgeMode == kEdgeWrap) {
                    dx = -c.side * width;
                    dy = -r.side * height;
                }
            }
            Fetch<Mask>(p, c.from + dx, r.from + dy, c.to + dx, r.to + dy, area, got);
            const double part = area * share;
            for (int ch = 0; ch < 4; ++ch)
                if (Mask & (1u << ch)) sum[ch] += got[ch] * part;
        }
    }
    for (int ch = 0; ch < 4; ++ch) {
        const int v = TruncateToInt(sum[ch]);
        result[ch] = static_cast<uint16_t>(v < 0 ? 0 : (v > 65535 ? 65535 : v));
    }
}

}  // namespace

SamplePyramid* BuildPyramid(const WorkImage* source, int width, int height, SamplePyramid* reuse) {
    if (reuse && (reuse->width != width || reuse->height != height)) {
        FreePyramid(reuse);
        reuse = nullptr;
    }
    if (!source || !source->rows || width < 1 || height < 1 || source->width < width ||
        source->height < height) {
        FreePyramid(reuse);
        return nullptr;
    }
    SamplePyramid* p = reuse;
    if (!p) {
        p = new (std::nothrow) SamplePyramid;
        if (!p) return nullptr;
        const size_t bytes = static_cast<size_t>(width) * height * 8;
        p->baseBlock = static_cast<uint16_t*>(std::malloc(bytes));
        p->upperBlock = static_cast<uint16_t*>(std::malloc(bytes));
        if (!p->baseBlock || !p->upperBlock) {
            FreePyramid(p);
            return nullptr;
        }
        p->width = width;
        p->height = height;
        Layout(*p);
    }
    Fill(*p, *source);
    return p;
}

void FreePyramid(SamplePyramid* pyramid) {
    if (!pyramid) return;
    std::free(pyramid->baseBlock);
    std::free(pyramid->upperBlock);
    delete pyramid;
}

uint16_t* SampleRect(uint16_t result[4], const SamplePyramid* pyramid, float left, float top,
                     float right, float bottom, int edgeMode) {
    if (!pyramid) {
        std::memset(result, 0, 4 * sizeof(uint16_t));
        return result;
    }
    Sample<kAllChannels>(*pyramid, left, top, right, bottom, edgeMode, result);
    return result;
}

uint16_t* SampleRectChannels(uint16_t result[4], const SamplePyramid* pyramid, float left,
                             float top, float right, float bottom, int edgeMode, int wantRed,
                             int wantGreen, int wantBlue, int wantAlpha) {
    std::memset(result, 0, 4 * sizeof(uint16_t));
    if (!pyramid) return result;
    const unsigned mask =
        (wantRed ? 1u : 0u) | (wantGreen ? 2u : 0u) | (wantBlue ? 4u : 0u) | (wantAlpha ? 8u : 0u);
    switch (mask) {
        case 0:
            break;
        case 1:
            Sample<1>(*pyramid, left, top, right, bottom, edgeMode, result);
            break;
        case 2:
            Sample<2>(*pyramid, left, top, right, bottom, edgeMode, result);
            break;
        case 4:
            Sample<4>(*pyramid, left, top, right, bottom, edgeMode, result);
            break;
        case 8:
            Sample<8>(*pyramid, left, top, right, bottom, edgeMode, result);
            break;
        case kAllChannels:
            Sample<kAllChannels>(*pyramid, left, top, right, bottom, edgeMode, result);
            break;
        default: {
            // Rare mixtures: all four, then the unwanted ones cleared.
            Sample<kAllChannels>(*pyramid, left, top, right, bottom, edgeMode, result);
            for (int ch = 0; ch < 4; ++ch)
                if (!(mask & (1u << ch))) result[ch] = 0;
            break;
        }
    }
    return result;
}
