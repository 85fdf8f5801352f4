#include "lightning/BoltGeometry.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"

namespace {

// The single-precision value of 0.999999, which replaces a clamped draw above 0.999999.
constexpr float kClampedTop = 0.999999f;
// Degrees to radians for the spread of a branch.
constexpr double kBranchRadians = 0.017453292522222223;

// The float length of a float vector.
float LengthOf(float dx, float dy) {
    return static_cast<float>(
        std::sqrt(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy));
}

}  // namespace

double PlainDraw(int32_t* state) {
    return ShuffledRandom(state);
}

double ClampedDraw(int32_t* state) {
    const double r = ShuffledRandom(state);
    return r > 0.999999 ? static_cast<double>(kClampedTop) : r;
}

double SignedDraw(int32_t* state) {
    return 2.0 * ShuffledRandom(state) - 1.0;
}

int MakeBaseLine(BoltParams& p, float* x, float* y) {
    const float vx = static_cast<float>(static_cast<double>(p.endX) - p.startX);
    const float vy = static_cast<float>(static_cast<double>(p.endY) - p.startY);
    const int extra = static_cast<int>(2.0 * ClampedDraw(&p.randomState));
    const float length = LengthOf(vx, vy);
    float ux = vx, uy = vy;
    if (length > 1e-6) {
        ux = static_cast<float>(vx / static_cast<double>(length));
        uy = static_cast<float>(vy / static_cast<double>(length));
    }
    const float step = static_cast<float>(length / static_cast<double>(extra + 1));
    x[0] = p.startX;
    y[0] = p.startY;
    if (extra == 1) {
        const double a = SignedDraw(&p.randomState);
        const double t = a * step * 0.1 + step;
        const double b = SignedDraw(&p.randomState);
        x[1] = static_cast<float>(t * ux + p.startX + b * -static_cast<double>(uy) * length * 0.3);
        const double c = SignedDraw(&p.randomState);
        y[1] = static_cast<float>(t * uy + p.startY + c * ux * length * 0.3);
    }
    x[extra + 1] = p.endX;
    y[extra + 1] = p.endY;
    return extra + 2;
}

int SubdivideBolt(BoltParams& p, float* x, float* y, int count, int level, float* scratchX,
                  float* scratchY, int capacity) {
    if (count < 2) return count;
    const float offset = level == 0 ? p.mainOffset : (level == 1 ? p.branchOffset : p.twigOffset);
    const double jitter = p.jitter;
    for (int k = 1; k <= p.depthCount - 1; ++k) {
        if (2 * static_cast<int64_t>(count) - 1 > capacity) break;
        const double depth = static_cast<double>(k) * p.depthUnit;
        const float d = static_cast<float>(offset / (depth * depth));
        for (int i = 0; i + 1 < count; ++i) {
            const float x0 = x[i], y0 = y[i], x1 = x[i + 1], y1 = y[i + 1];
            scratchX[2 * i] = x0;
            scratchY[2 * i] = y0;
            scratchX[2 * i + 2] = x1;
            scratchY[2 * i + 2] = y1;
            const float dx = static_cast<float>(static_cast<double>(x1) - x0);
            const float dy = static_cast<float>(static_cast<double>(y1) - y0);
            const float length = LengthOf(dx, dy);
            float ux = dx, uy = dy;
            if (length > 1e-6) {
                ux = static_cast<float>(dx / static_cast<double>(length));
                uy = static_cast<float>(dy / static_cast<double>(length));
            }
            // The stretch along x is rounded to single precision before the offset is taken off;
            // the one along y is not.
            const double a = SignedDraw(&p.randomState);
            const float mx =
                static_cast<float>(a * jitter * length * ux + (static_cast<double>(x0) + x1) * 0.5);
            const double b = SignedDraw(&p.randomState);
            const double my = b * jitter * length * uy + (static_cast<double>(y0) + y1) * 0.5;
            scratchX[2 * i + 1] = static_cast<float>(mx - static_cast<double>(uy) * d);
            scratchY[2 * i + 1] = static_cast<float>(my + static_cast<double>(ux) * d);
        }
        count = 2 * count - 1;
        std::memcpy(x, scratchX, sizeof(float) * static_cast<size_t>(count));
        std::memcpy(y, scratchY, sizeof(float) * static_cast<size_t>(count));
    }
    return count;
}

int PickBranches(BoltParams& p, const float* x, const float* y, int count, BranchRecord* list,
                 int level, float lengthFactor) {
    const double gapOffset = level == 0 ? p.gapOffset0 : p.gapOffset1;
    const double gapRange = level == 0 ? p.gapRange0 : p.gapRange1;
    const int limit = TruncateToInt(count * 0.85);
    if (limit < 1) return 0;
    // 7% of the points further along, the share rounded toward zero.
    const int ahead = -TruncateToInt(count * -0.07);
    const double points = static_cast<float>(count);
    int64_t index = 0;
    int records = 0;
    for (;;) {
        const double r = ClampedDraw(&p.randomState);
        index += TruncateToInt((r * gapRange + gapOffset) * points);
        // A gap that would lead back before the first point ends the list like one past the limit.
        if (index > limit || index < 0) break;
        const float px = x[index], py = y[index];
        const float qx = x[index + ahead], qy = y[index + ahead];
        float vx = static_cast<float>(static_cast<double>(qx) - px);
        float vy = static_cast<float>(static_cast<double>(qy) - py);
        const float length = LengthOf(vx, vy);
        if (length > 0.0001) {
            vx = static_cast<float>(vx / static_cast<double>(length));
            vy = static_cast<float>(vy / static_cast<double>(length));
        }
        const double spread = ClampedDraw(&p.randomState);
        float angle = static_cast<float>(
            ((static_cast<double>(p.maxAngle) - p.minAngle) * spread + p.minAngle) *
            kBranchRadians);
        if (ClampedDraw(&p.randomState) < 0.5) angle = -angle;
        const float theta = static_cast<float>(std::atan2(static_cast<double>(vy), vx) + angle);
        const double reach = (ClampedDraw(&p.randomState) + 1.0) * 2.0 * length;
        BranchRecord& b = list[records++];
        b.startX = px;
        b.startY = py;
        b.endX =
            static_cast<float>(px + std::cos(static_cast<double>(theta)) * lengthFactor * reach);
        b.endY =
            static_cast<float>(py + std::sin(static_cast<double>(theta)) * lengthFactor * reach);
        if (records == kBranchListSize || index >= limit) break;
    }
    return records;
}

void SamplePolyline(const float* srcX, const float* srcY, const float* srcZ, int n, float* dstX,
                    float* dstY, float* dstZ, float* dstT, int samples) {
    if (samples < 1 || n < 1) return;
    const float* src[3] = {srcX, srcY, srcZ};
    float* dst[3] = {dstX, dstY, dstZ};
    // The divisor keeps the last sample a hair before the last control point.
    const float gap = static_cast<float>((n - 1) / (samples - static_cast<double>(0.99999f)));
    double coeff[3][4] = {};
    int64_t span = -1;
    auto at = [n](int64_t i) { return static_cast<int>(i < 0 ? 0 : (i > n - 1 ? n - 1 : i)); };
    for (int i = 0; i < samples; ++i) {
        const double t = i * static_cast<double>(gap);
        // Rounding of the gap can carry the last sample onto the last control point; the points
        // beyond the ends are the end points repeated, so the spline stays defined there.
        const int64_t k = static_cast<int64_t>(t);
        if (k != span) {
            span = k;
            for (int a = 0; a < 3; ++a) {
                const double p0 = src[a][at(k - 1)], p1 = src[a][at(k)];
                const double p2 = src[a][at(k + 1)], p3 = src[a][at(k + 2)];
                coeff[a][3] = 1.5 * p1 - 0.5 * p0 - 1.5 * p2 + 0.5 * p3;
                coeff[a][2] = p0 - 2.5 * p1 + 2 * p2 - 0.5 * p3;
                coeff[a][1] = 0.5 * p2 - 0.5 * p0;
                coeff[a][0] = p1;
            }
        }
        const double f = t - static_cast<double>(k);
        for (int a = 0; a < 3; ++a)
            dst[a][i] = static_cast<float>(((coeff[a][3] * f + coeff[a][2]) * f + coeff[a][1]) * f +
                                           coeff[a][0]);
        dstT[i] = static_cast<float>(f);
    }
}
