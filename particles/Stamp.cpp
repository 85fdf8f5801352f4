#include "particles/Stamp.h"

#include <cmath>
#include <cstring>

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"

namespace {

constexpr double kDegrees = 0.017453292522222223;

// A radius below 0.01 would make a stamp of nothing.
float UsableRadius(float radius) {
    return radius < 0.01f || !(radius == radius) ? 0.01f : radius;
}

// Half the side of a square stamp of this radius.
int HalfSide(float radius) {
    return TruncateToInt(std::ceil(static_cast<double>(radius)));
}

// Removes one ring from a square stamp when the whole ring is 0.
void CropZeroRing(Stamp* s) {
    const int n = s->width;
    if (n <= 1) return;
    for (int i = 0; i < n; ++i)
        if (s->At(i, 0) != 0 || s->At(i, n - 1) != 0 || s->At(0, i) != 0 || s->At(n - 1, i) != 0)
            return;
    const int m = n - 2;
    std::vector<int32_t> inner(static_cast<size_t>(m) * m);
    for (int y = 0; y < m; ++y)
        for (int x = 0; x < m; ++x)
            inner[static_cast<size_t>(y) * m + x] = s->At(x + 1, y + 1);
    s->width = s->height = m;
    s->values.swap(inner);
}

// The Gaussian shape shared by puffs and flakes; `grain` draws one deviate per pixel when given.
Stamp MakeEnvelope(float radius, double scale, int32_t* grain) {
    radius = UsableRadius(radius);
    const int half = HalfSide(radius);
    const int n = 2 * half + 1;
    const float sigma = static_cast<float>(radius * 0.3333333333333333);
    const double twoSigma2 = 2.0 * static_cast<double>(sigma) * sigma;
    Stamp s;
    s.width = s.height = n;
    s.values.assign(static_cast<size_t>(n) * n, 0);
    for (int dy = -half; dy <= half; ++dy) {
        for (int dx = -half; dx <= half; ++dx) {
            const double r = grain ? ShuffledRandom(grain) : 1.0;
            const double e = std::exp(-static_cast<double>(dx * dx + dy * dy) / twoSigma2);
            const double v = grain ? std::floor(r * e * scale) : std::floor(e * scale);
            s.values[static_cast<size_t>(dy + half) * n + (dx + half)] = TruncateToInt(v);
        }
    }
    CropZeroRing(&s);
    return s;
}

}  // namespace

Stamp MakeGaussianStamp(float radius) {
    return MakeEnvelope(radius, 32769.0, nullptr);
}

Stamp MakeFlakeStamp(float radius, int32_t* seed) {
    return MakeEnvelope(radius, 257.0, seed);
}

Stamp MakeStarStamp(float radius, double angle) {
    radius = UsableRadius(radius);
    int n = 2 * HalfSide(radius) + 1;
    const int half = n / 2;
    double e = (radius - 3.0) * 0.08571428571428572 + 3.0;
    if (e < 2.0) e = 2.0;
    if (e > 7.5) e = 7.5;
    const double inverse = -1.0 / radius;
    std::vector<uint8_t> bytes(static_cast<size_t>(n) * n, 0);
    for (int dy = -half; dy <= half; ++dy) {
        for (int dx = -half; dx <= half; ++dx) {
            double v;
            if (dx == 0 && dy == 0) {
                v = 1.0;
            } else {
                double fx = std::abs(dx) * inverse + 1.0;
                double fy = std::abs(dy) * inverse + 1.0;
                if (fx < 0.0) fx = 0.0;
                if (fy < 0.0) fy = 0.0;
                v = std::pow(fx * fy, e) * 1.5;
                if (dx == 0) v += fy;
                if (dy == 0) v += fx;
                if (v > 1.0) v = 1.0;
            }
            bytes[static_cast<size_t>(dy + half) * n + (dx + half)] =
                static_cast<uint8_t>(TruncateToInt(v * 255.0));
        }
    }
    int w = n, h = n;
    if (std::fabs(angle) > 1e-10) RotateStamp(&bytes, &w, &h, angle);
    Stamp s;
    s.width = w;
    s.height = h;
    s.values.assign(bytes.begin(), bytes.end());
    return s;
}

void QuarterTurn(std::vector<uint8_t>* image, int* w, int* h, int turns) {
    const int W = *w, H = *h;
    std::vector<uint8_t>& in = *image;
    if (turns == 2 || turns == -2) {
        // Half a turn: the pixels in reverse order.
        for (size_t i = 0, j = in.size(); i + 1 < j; ++i, --j)
            std::swap(in[i], in[j - 1]);
        return;
    }
    if (turns != 1 && turns != -1) return;
    // A quarter turn: the transpose, with the rows reversed for +1 and the columns for -1. The
    // new image is H wide and W high.
    std::vector<uint8_t> out(in.size());
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            const int nx = turns == 1 ? H - 1 - y : y;
            const int ny = turns == 1 ? x : W - 1 - x;
            out[static_cast<size_t>(ny) * H + nx] = in[static_cast<size_t>(y) * W + x];
        }
    }
    in.swap(out);
    *w = H;
    *h = W;
}

void ShearRow(const uint8_t* source, int length, int outLength, double shift, int stride,
              uint8_t* target) {
    for (int j = 0; j < outLength; ++j)
        target[static_cast<size_t>(j) * stride] = 0;
    const double whole = std::floor(shift);
    const int move = TruncateToInt(whole);
    const double f = shift - whole;
    auto at = [&](int i) -> double {
        return i >= 0 && i < length ? source[static_cast<size_t>(i) * stride] : 0.0;
    };
    if (f == 0.0) {
        for (int i = 0; i < length; ++i) {
            const int64_t j = static_cast<int64_t>(i) + move;
            if (j >= 0 && j < outLength)
                target[static_cast<size_t>(j) * stride] = source[i * stride];
        }
        return;
    }
    // The pixel the data moves to mixes its own source with the one before it, which the
    // fraction of the shift brings in; one more pixel takes the last source's spill.
    for (int i = 0; i <= length; ++i) {
        const int64_t j = static_cast<int64_t>(i) + move;
        if (j < 0 || j >= outLength) continue;
        const double v = at(i) * (1.0 - f) + at(i - 1) * f;
        target[static_cast<size_t>(j) * stride] = static_cast<uint8_t>(TruncateToInt(v));
    }
}

void RotateStamp(std::vector<uint8_t>* image, int* w, int* h, double angle) {
    if (angle > 180.0) angle = 180.0;
    if (angle < -180.0) angle = -180.0;
    const int q = angle > 0.0 ? TruncateToInt((angle + 45.0) * 0.011111111111111112)
                              : TruncateToInt((angle - 45.0) * 0.011111111111111112);
    if (q != 0) {
        QuarterTurn(image, w, h, q);
        angle -= q * 90.0;
    }
    // A whole number of quarter turns is exact; the shears would only pad the stamp.
    if (!(std::fabs(angle) > 1e-10)) return;
    const double a = angle * kDegrees;
    const double s = std::sin(std::fabs(a));
    const double t = std::tan(std::fabs(a) / 2.0);
    const double c = std::cos(a);
    const bool negative = angle < 0.0;
    const int W = *w, H = *h;
    const int w1 = TruncateToInt(H * t + W + 1.0);
    const int h2 = TruncateToInt(W * s + H * c + 1.0);
    const int w2 = TruncateToInt(H * s + W * c + 1.0);
    if (w1 < 1 || h2 < 1 || w2 < 1) return;
    // A turn the other way is the mirror image, top to bottom, of the same turn of the mirrored
    // image: rows are read and written from the other end.
    auto row = [&](int y, int height) { return negative ? height - 1 - y : y; };

    // Pass one: rows into a buffer w1 wide.
    std::vector<uint8_t> one(static_cast<size_t>(w1) * H);
    for (int y = 0; y < H; ++y)
        ShearRow(image->data() + static_cast<size_t>(row(y, H)) * W, W, w1, y * t, 1,
                 one.data() + static_cast<size_t>(y) * w1);
    // Pass two: columns into a buffer h2 high.
    std::vector<uint8_t> two(static_cast<size_t>(w1) * h2);
    for (int x = 0; x < w1; ++x)
        ShearRow(one.data() + x, H, h2, (W - 1) * s - x * s, w1, two.data() + x);
    // Pass three: rows again, into the final width.
    std::vector<uint8_t> three(static_cast<size_t>(w2) * h2);
    for (int y = 0; y < h2; ++y)
        ShearRow(two.data() + static_cast<size_t>(y) * w1, w1, w2, (y - (W - 1) * s) * t, 1,
                 three.data() + static_cast<size_t>(row(y, h2)) * w2);
    image->swap(three);
    *w = w2;
    *h = h2;
}

void ResampleLine(const uint8_t* source, uint8_t* target, int inLength, int outLength, int inStride,
                  int outStride, bool clampToByte) {
    if (inLength < 1 || outLength < 1) return;
    const double k = outLength == inLength ? 1.0 : static_cast<double>(outLength) / inLength;
    const double step = 1.0 / k;
    // The walk never passes the last but one source pixel; a line of one pixel pairs it with
    // itself.
    const int lastStart = inLength >= 2 ? inLength - 2 : 0;
    auto at = [&](int i) -> double {
        return source[static_cast<size_t>(i < inLength ? i : inLength - 1) * inStride];
    };
    int i = 0;
    double rest = 1.0, need = step, sum = 0.0;
    for (int o = 0; o < outLength;) {
        const double value = at(i + 1) * (1.0 - rest) + at(i) * rest;
        if (rest < need) {
            sum += value * rest;
            need -= rest;
            rest = 1.0;
            if (i < lastStart) ++i;
        } else {
            int v = TruncateToInt((value * need + sum) * k);
            if (clampToByte) v = v < 0 ? 0 : (v > 255 ? 255 : v);
            target[static_cast<size_t>(o) * outStride] = static_cast<uint8_t>(v & 0xff);
            rest -= need;
            sum = 0.0;
            need = step;
            ++o;
        }
    }
}

Stamp ResampleStamp(const Stamp& master, double ratio, bool clampToByte) {
    int newWidth = TruncateToInt(master.width * ratio + 0.5);
    if (newWidth < 1) newWidth = 1;
    const int height = master.height < 1 ? 1 : master.height;
    if (newWidth == master.width && height == master.height) return master;
    const int inWidth = master.width < 1 ? 1 : master.width;

    // The values as four byte planes, low byte first.
    std::vector<uint8_t> planes(static_cast<size_t>(inWidth) * height * 4, 0);
    for (size_t i = 0; i < master.values.size() && i * 4 < planes.size(); ++i) {
        const uint32_t v = static_cast<uint32_t>(master.values[i]);
        for (int b = 0; b < 4; ++b)
            planes[i * 4 + b] = static_cast<uint8_t>((v >> (8 * b)) & 0xffu);
    }
    std::vector<uint8_t> across(static_cast<size_t>(newWidth) * height * 4, 0);
    std::vector<uint8_t> result(across.size(), 0);
    for (int b = 0; b < 4; ++b) {
        for (int y = 0; y < height; ++y)
            ResampleLine(planes.data() + static_cast<size_t>(y) * inWidth * 4 + b,
                         across.data() + static_cast<size_t>(y) * newWidth * 4 + b, inWidth,
                         newWidth, 4, 4, clampToByte);
        for (int x = 0; x < newWidth; ++x)
            ResampleLine(across.data() + static_cast<size_t>(x) * 4 + b,
                         result.data() + static_cast<size_t>(x) * 4 + b, height, height,
                         newWidth * 4, newWidth * 4, clampToByte);
    }
    Stamp s;
    s.width = newWidth;
    s.height = height;
    s.values.resize(static_cast<size_t>(newWidth) * height);
    for (size_t i = 0; i < s.values.size(); ++i) {
        uint32_t v = 0;
        for (int b = 0; b < 4; ++b)
            v |= static_cast<uint32_t>(result[i * 4 + b]) << (8 * b);
        int32_t signedValue;
        std::memcpy(&signedValue, &v, sizeof v);
        s.values[i] = signedValue;
    }
    return s;
}

void MakePuffStamps(StampSet* puffs) {
    for (int i = 0; i < kStampCount; ++i)
        (*puffs)[i] = MakeGaussianStamp(static_cast<float>(i * (20.0 / 40.0)));
}

void MakeSnowStamps(StampSet* flakes, StampSet* stars, int32_t* seed) {
    for (int i = 0; i < kStampCount; ++i) {
        const float radius = static_cast<float>(i * 0.5 + 0.5);
        (*flakes)[i] = MakeFlakeStamp(radius, seed);
        const double angle = (2.0 * ShuffledRandom(seed) - 1.0) * 180.0;
        (*stars)[i] = MakeStarStamp(radius, angle);
    }
}

void ResampleStampSet(const StampSet& masters, double ratio, bool clampToByte, StampSet* working) {
    StampSet made;
    for (int i = 0; i < kStampCount; ++i)
        made[i] = ResampleStamp(masters[i], ratio, clampToByte);
    std::swap(*working, made);
}
