// The kaleidoscope's mapping: the walk over the lattice, the six triangles of a hexagon, their
// clipping to a band of rows, the scan conversion and the shading of each pixel.
#include <algorithm>
#include <cmath>

#include "frame/SamplePyramid.h"
#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "kal/Kal.h"

namespace {

constexpr double kSixth = 1.0471975511965976;    // 60 degrees
constexpr double kThird = 2.0943951023931953;    // 120 degrees
constexpr double kTwelfth = 0.5235987755982988;  // 30 degrees
// 30 degrees rounded to single precision.
constexpr double kThirtySingle = 0.5235987901687622;
// The largest half-size of the lattice walk: far more hexagons than any picture can show.
constexpr int64_t kMostReach = int64_t{1} << 28;

float Cos30() {
    return static_cast<float>(std::cos(kThirtySingle));
}

// A 15-bit product shifted back, kept to a 16-bit word as the store keeps it.
inline uint16_t Shift15(int64_t v) {
    return static_cast<uint16_t>(static_cast<uint64_t>(v >> 15));
}

}  // namespace

int64_t KalEngine::LatticeReach() const {
    if (!(hexRadius > 0.0f) || !std::isfinite(hexRadius)) return 0;
    const float spanX = static_cast<float>(width * 0.5 * latticeExtent);
    const float spanY = static_cast<float>(height * 0.5 * latticeExtent);
    const float reach = static_cast<float>(
        std::sqrt(static_cast<double>(spanX) * spanX + static_cast<double>(spanY) * spanY));
    const double n = 2.0 * reach / (static_cast<double>(Cos30()) * hexRadius) + 0.5;
    if (!(n >= 0.0)) return 0;
    if (n >= static_cast<double>(kMostReach)) return kMostReach;
    return static_cast<int64_t>(n);
}

void KalEngine::PrepareTriangles() {
    const double rot = arrayRot, image = imageRot;
    for (int k = 0; k < 6; ++k) {
        Triangle& t = triangles[k];
        const double a0 = k * kSixth + rot - kTwelfth;
        const double a1 = a0 + kSixth;
        t.cos0 = std::cos(a0);
        t.sin0 = std::sin(a0);
        t.cos1 = std::cos(a1);
        t.sin1 = std::sin(a1);
        const int m = ((k == 5 ? 0 : k) + 1) / 2;
        const double base = -(m * kThird + kSixth);
        t.flip = k % 2 == 0 ? 1 : -1;
        const double g = k % 2 == 0 ? 1.0 : -2.0;
        // The doubled turn of the odd triangles keeps neighbouring mirror images joined when the
        // lattice turns.
        const double angle = 2.0 * g * rot - 2.0 * t.flip * image + base;
        t.tileCos = static_cast<float>(std::cos(angle));
        t.tileSin = static_cast<float>(std::sin(angle));
    }
    cameraCos = static_cast<float>(std::cos(static_cast<double>(cameraRot)));
    cameraSin = static_cast<float>(std::sin(static_cast<double>(cameraRot)));

    KalPolygon& p = prototype;
    p = KalPolygon();
    p.scale = imageScale;
    p.boxLow = static_cast<float>(imageScale * 0.5);
    p.boxHigh =
        width > 0 ? static_cast<float>(static_cast<double>(height) * p.boxLow / width) : 0.0f;
    p.fillType = fillType;
    p.radius = hexRadius;
    p.distortion = distortion;
    p.imageCentreX = imageCentreX;
    p.imageCentreY = imageCentreY;
    p.maxDesat = maxDesat;
    p.inverseDesatWidth = static_cast<float>(1.0 / desatWidth);
    p.vignetteStart = vignetteStart;
    p.vignetteEnd = vignetteEnd;
    p.cameraCos = cameraCos;
    p.cameraSin = cameraSin;
    p.cameraX = cameraX;
    p.cameraY = cameraY;
}

void KalEngine::DrawLatticeBand(int firstRow, int lastRow) {
    if (!(hexRadius > 0.0f) || !std::isfinite(hexRadius)) return;
    const int64_t n = LatticeReach();
    const float c30 = Cos30();
    const double step = static_cast<double>(c30) * hexRadius;  // exact: two floats
    const double cosA = std::cos(static_cast<double>(arrayRot));
    const double sinA = std::sin(static_cast<double>(arrayRot));
    const double midX = width * 0.5, midY = height * 0.5;

    // Hexagons that cannot reach the band are passed over without being drawn: each corner lies
    // within hexRadius of its centre before the vertical factor, and the camera's turn keeps
    // distances. The test works on the centre as an affine function of the column, with a margin
    // far wider than the rounding of the exact path, so only hexagons that clipping would drop
    // entirely are passed over and the picture is that of the full walk.
    const double cc = cameraCos, cs = cameraSin, yf = yFactor;
    const double far = (4.0 * static_cast<double>(n) + 2.0) * (step + 1.5 * hexRadius) *
                           (1.0 + std::fabs(yf) + 1.0 / std::fabs(yf)) +
                       width + height + std::fabs(arrayOffsetX) + std::fabs(arrayOffsetY) +
                       std::fabs(cameraX) + std::fabs(cameraY);
    const double slack = 4.0 + 1e-4 * far;
    const double marginX = hexRadius * 1.001 + slack;
    const double marginY = hexRadius * std::fabs(yf) * 1.001 + slack;
    const double xLo = -marginX, xHi = width + marginX;
    const double yLo = firstRow - marginY, yHi = lastRow + 1.0 + marginY;
    // The centre of column c of the row: X = ax * c + bx, Y = ay * c + by, then turned.
    const double ax = cosA * step, ay = sinA * step * yf;
    const double kx = ax * cc - (ay / yf) * cs, ky = ((ay / yf) * cc + ax * cs) * yf;

    for (int64_t r = -n; r <= n; ++r) {
        if (IsAborted()) return;
        const float py = static_cast<float>(hexRadius * 1.5 * static_cast<double>(r));
        const double bx = -sinA * py + arrayOffsetX + midX;
        const double by = cosA * py * yf + arrayOffsetY + midY;
        const double dx = bx - cameraX, dy = by / yf - cameraY;
        const double mx = dx * cc - dy * cs + cameraX, my = (dy * cc + dx * cs + cameraY) * yf;
        // Columns whose turned centre lies within both ranges.
        double cLo = static_cast<double>(r - 2 * n), cHi = static_cast<double>(r + 2 * n);
        // A row whose centres all stand outside a range draws nothing. It is flagged, not marked by
        // an empty span, since cLo - 1 is cLo itself once cLo is far beyond 2^53.
        bool none = false;
        auto narrow = [&](double k, double m, double lo, double hi) {
            if (std::fabs(k) < 1e-12) {
                if (!(m >= lo && m <= hi)) none = true;
                return;
            }
            double a = (lo - m) / k, b = (hi - m) / k;
            if (a > b) std::swap(a, b);
            cLo = std::max(cLo, std::floor(a) - 2.0);
            cHi = std::min(cHi, std::ceil(b) + 2.0);
        };
        if (skipFarHexagons) {
            narrow(kx, mx, xLo, xHi);
            narrow(ky, my, yLo, yHi);
        }
        if (none || !(cLo <= cHi)) continue;
        // Back onto the walk's own columns, which step by 2 from r - 2n.
        const int64_t from = r - 2 * n;
        const int64_t skip = static_cast<int64_t>(std::ceil((cLo - from) / 2.0));
        for (int64_t c = from + 2 * std::max<int64_t>(skip, 0);
             static_cast<double>(c) <= cHi && c <= r + 2 * n; c += 2) {
            const float px = static_cast<float>(step * static_cast<double>(c));
            const float centreX = static_cast<float>(cosA * px - sinA * py + arrayOffsetX + midX);
            const float centreY =
                static_cast<float>((px * sinA + cosA * py) * yf + arrayOffsetY + midY);
            DrawHexagon(centreX, centreY, firstRow, lastRow);
        }
    }
}

void KalEngine::DrawHexagon(float centreX, float centreY, int firstRow, int lastRow) {
    const double yf = yFactor;
    const double cc = cameraCos, cs = cameraSin, cx = cameraX, cy = cameraY;
    const KalLimits clip{0.0f, static_cast<float>(width), static_cast<float>(firstRow),
                         static_cast<float>(lastRow + 1)};
    const KalRowLimits fill{0, width, firstRow, lastRow + 1};
    for (int k = 0; k < 6; ++k) {
        const Triangle& t = triangles[k];
        const float x1 = static_cast<float>(t.cos0 * hexRadius + centreX);
        const float y1 = static_cast<float>(t.sin0 * hexRadius * yf + centreY);
        const float x2 = static_cast<float>(t.cos1 * hexRadius + centreX);
        const float y2 = static_cast<float>(t.sin1 * hexRadius * yf + centreY);
        KalPolygon p = prototype;
        p.vertexCount = 3;
        p.centroidX = static_cast<float>((static_cast<double>(x2) + x1 + centreX) * 0.33333334f);
        p.centroidY = static_cast<float>((static_cast<double>(y2) + y1 + centreY) * 0.33333334f);
        p.tileCos = t.tileCos;
        p.tileSin = t.tileSin;
        p.flip = t.flip;
        const float xs[3] = {centreX, x1, x2}, ys[3] = {centreY, y1, y2};
        bool finite = true;
        for (int i = 0; i < 3; ++i) {
            const double dx = xs[i] - cx, dy = ys[i] / yf - cy;
            p.x[i] = static_cast<float>(dx * cc - dy * cs + cx);
            p.y[i] = static_cast<float>((dy * cc + dx * cs + cy) * yf);
            finite = finite && std::isfinite(p.x[i]) && std::isfinite(p.y[i]);
        }
        // A corner that is no number can be neither clipped nor filled.
        if (!finite) continue;
        if (ClipToRect(p, clip)) FillPolygon(p, fill);
    }
}

bool KalEngine::ClipToRect(KalPolygon& polygon, const KalLimits& limits) {
    int left = 0, right = 0, above = 0, below = 0;
    const int n = polygon.vertexCount;
    for (int i = 0; i < n; ++i) {
        left += polygon.x[i] < limits.left;
        right += polygon.x[i] > limits.right;
        above += polygon.y[i] < limits.top;
        below += polygon.y[i] > limits.bottom;
    }
    if (left == 0 && right == 0 && above == 0 && below == 0) return true;
    if (left == n || right == n || above == n || below == n) return false;
    KalPolygon other;
    KalPolygon* from = &polygon;
    KalPolygon* to = &other;
    const struct {
        int count, axis, sign;
        float limit;
    } planes[4] = {{left, 0, -1, limits.left},
                   {right, 0, 1, limits.right},
                   {above, 1, -1, limits.top},
                   {below, 1, 1, limits.bottom}};
    for (const auto& plane : planes) {
        if (plane.count == 0) continue;
        ClipToPlane(*from, *to, plane.axis, plane.sign,
                    static_cast<float>(plane.sign * static_cast<double>(plane.limit)));
        std::swap(from, to);
        if (from->vertexCount <= 0) return false;
    }
    if (from != &polygon) polygon = *from;
    return true;
}

void KalEngine::ClipToPlane(const KalPolygon& in, KalPolygon& out, int axis, int sign,
                            float value) {
    out = in;
    out.vertexCount = 0;
    const int n = in.vertexCount;
    if (n <= 0 || n > KalPolygon::kMostVertices) return;
    const float* along = axis == 0 ? in.x : in.y;
    auto distance = [&](int i) { return sign * static_cast<double>(along[i]) - value; };
    auto add = [&](float x, float y) {
        // Past the record's room the polygon is marked as too large, and the fill skips it.
        if (out.vertexCount >= KalPolygon::kMostVertices) {
            out.vertexCount = KalPolygon::kMostVertices + 1;
            return;
        }
        out.x[out.vertexCount] = x;
        out.y[out.vertexCount] = y;
        ++out.vertexCount;
    };
    int prev = n - 1;
    double dPrev = distance(prev);
    for (int cur = 0; cur < n; ++cur) {
        const double dCur = distance(cur);
        if ((dPrev <= 0.0) != (dCur <= 0.0)) {
            const double share = dPrev / (dPrev - dCur);
            add(static_cast<float>(in.x[prev] +
                                   share * (static_cast<double>(in.x[cur]) - in.x[prev])),
                static_cast<float>(in.y[prev] +
                                   share * (static_cast<double>(in.y[cur]) - in.y[prev])));
        }
        if (dCur <= 0.0) add(in.x[cur], in.y[cur]);
        if (out.vertexCount > KalPolygon::kMostVertices) return;
        prev = cur;
        dPrev = dCur;
    }
}

void KalEngine::FillPolygon(const KalPolygon& polygon, const KalRowLimits& limits) {
    const int n = polygon.vertexCount;
    if (n > KalPolygon::kMostVertices || n < 1) return;
    int topIndex = 0;
    for (int i = 1; i < n; ++i)
        if (polygon.y[i] < polygon.y[topIndex]) topIndex = i;
    // Clipped corners lie within the band, so the rows below are whole numbers of the band.
    int row = static_cast<int>(std::ceil(polygon.y[topIndex] - 0.5));

    struct Chain {
        int index;
        float x = 0.0f, slope = 0.0f;
        int end;
    };
    Chain falling{topIndex, 0.0f, 0.0f, row - 1};
    Chain rising{topIndex, 0.0f, 0.0f, row - 1};
    int edges = n;
    auto take = [&](Chain& chain, int next, bool nearlyFlat) {
        const double sx = polygon.x[chain.index], sy = polygon.y[chain.index];
        const double ex = polygon.x[next], ey = polygon.y[next];
        double dy = ey - sy;
        // The falling chain treats any nearly flat edge as flat; the rising one only a flat one.
        if (nearlyFlat ? std::fabs(dy) < 1e-05 : dy == 0.0) dy = 1.0;
        chain.slope = static_cast<float>((ex - sx) / dy);
        chain.x = static_cast<float>((row + 0.5 - sy) * chain.slope + sx);
        chain.end = static_cast<int>(std::floor(ey + 0.5));
        chain.index = next;
        --edges;
    };
    while (edges > 0) {
        while (falling.end <= row && edges > 0)
            take(falling, (falling.index - 1 + n) % n, true);
        while (rising.end <= row && edges > 0)
            take(rising, (rising.index + 1) % n, false);
        while (row < falling.end && row < rising.end) {
            if (row >= limits.top && row <= limits.bottom) {
                const bool fallingLeft = falling.x < rising.x;
                ShadeSpan(row, fallingLeft ? falling.x : rising.x,
                          fallingLeft ? rising.x : falling.x, limits, polygon);
            }
            ++row;
            falling.x += falling.slope;
            rising.x += rising.slope;
        }
    }
}

void KalEngine::ShadeSpan(int row, float left, float right, const KalRowLimits& limits,
                          const KalPolygon& p) {
    // A chain's x that is no number gives no span.
    if (std::isnan(left) || std::isnan(right)) return;
    const double lo = std::ceil(left - 0.5), hi = std::floor(right - 0.5);
    // Held to the limits before they become integers; the right limit is the picture's width,
    // whose column lies past the last pixel.
    const int rightmost = std::min(limits.right, width - 1);
    const int first =
        lo < limits.left ? limits.left : (lo > rightmost ? rightmost + 1 : static_cast<int>(lo));
    const int last =
        hi > rightmost ? rightmost : (hi < limits.left ? limits.left - 1 : static_cast<int>(hi));
    if (first > last) return;
    WorkImage* out = outputPort.image;
    if (!out || height < 1) return;
    const int outRow = row >= height ? height - 1 : (row < 0 ? 0 : row);
    uint16_t* dest = out->rows[outRow];

    const double yf = yFactor;
    const float a = static_cast<float>(1.0 / yf);
    const float t = static_cast<float>(row * static_cast<double>(a) - p.cameraY);
    const double c = p.cameraCos, s = p.cameraSin;
    const bool desaturate = p.maxDesat > 0.01;
    const bool vignette = p.vignetteStart > 0.001;
    const float bandTop = static_cast<float>(limits.top);
    const float bandBottom = static_cast<float>(limits.bottom);
    const int n = p.vertexCount;

    for (int x = first; x <= last; ++x) {
        const float u = static_cast<float>(x - static_cast<double>(p.cameraX));
        // Back through the camera's turn, then into the tile about its centroid.
        const float pp = static_cast<float>((u * c + t * s + p.cameraX - p.centroidX) * p.scale);
        const float q =
            static_cast<float>(((t * c - u * s + p.cameraY) * yf - p.centroidY) * p.scale * a);
        float uu = static_cast<float>(
            (static_cast<double>(pp) * p.tileCos - static_cast<double>(q) * p.tileSin) * p.flip);
        float vv = static_cast<float>(static_cast<double>(q) * p.tileCos +
                                      static_cast<double>(pp) * p.tileSin);
        if (p.distortion != 0.0f) {
            const float d = static_cast<float>(
                std::sqrt(static_cast<double>(vv) * vv + static_cast<double>(uu) * uu));
            // The tile's centre stays where it is, whatever the exponent.
            if (d != 0.0f) {
                const float f = static_cast<float>(
                    std::pow(static_cast<double>(d) / p.radius, static_cast<double>(p.distortion)));
                uu = uu * f;
                vv = vv * f;
            }
        }
        const float sx = static_cast<float>(halfW + static_cast<double>(p.imageCentreX) + uu / yf);
        const float sy = static_cast<float>(halfH + static_cast<double>(p.imageCentreY) + vv);
        uint16_t px[4];
        SampleRect(px, pyramid, sx - p.boxLow, sy - p.boxLow, sx + p.boxHigh, sy + p.boxHigh,
                   p.fillType);

        if (desaturate) {
            const int grey = (px[0] + px[1] + px[2]) / 3;
            float best = 1000000.0f;
            bool firstEdge = true;
            for (int i = 0; i < n; ++i) {
                const int j = i + 1 < n ? i + 1 : 0;
                // The cut along the band's own top and bottom is no mirror line.
                if (std::fabs(static_cast<double>(p.y[j]) - p.y[i]) < 1e-05 &&
                    (std::fabs(static_cast<double>(p.y[i]) - bandTop) < 1e-05 ||
                     std::fabs(static_cast<double>(p.y[i]) - bandBottom) < 1e-05))
                    continue;
                const float e = DistanceToSegment(static_cast<float>(x), static_cast<float>(row),
                                                  p.x[i], p.y[i], p.x[j], p.y[j]);
                if (firstEdge || e < best) best = e;
                firstEdge = false;
            }
            float w = static_cast<float>(1.0 - static_cast<double>(best) * p.inverseDesatWidth);
            if (w < 0.0f) w = 0.0f;
            const int64_t weight = TruncateToInt(static_cast<double>(w) * p.maxDesat * 32767.0);
            const int64_t keep = 32767 - weight;
            for (int ch = 0; ch < 4; ++ch)
                px[ch] = Shift15(px[ch] * keep + grey * weight);
        }
        if (vignette) {
            const float dx = static_cast<float>(x - halfW);
            const float dy = static_cast<float>((row - halfH) / yf);
            const float r = static_cast<float>(
                std::sqrt(static_cast<double>(dy) * dy + static_cast<double>(dx) * dx));
            const float v =
                static_cast<float>((static_cast<double>(r) - p.vignetteStart) /
                                   (static_cast<double>(p.vignetteEnd) - p.vignetteStart));
            float weight = 0.0f;
            if (v > 1.0f)
                weight = 1.0f;
            else if (v >= 0.0f)
                weight = static_cast<float>((3.0 - 2.0 * v) * v * v);
            // An end equal to the start leaves v without a number on the start's own circle: no
            // darkening there.
            const int64_t m = TruncateToInt(weight * 32767.0);
            for (int ch = 0; ch < 4; ++ch)
                px[ch] = Shift15(px[ch] * (32767 - m));
        }
        uint16_t* o = dest + static_cast<ptrdiff_t>(x) * 4;
        o[0] = px[0];
        o[1] = px[1];
        o[2] = px[2];
        o[3] = px[3];
    }
}

float KalEngine::DistanceToSegment(float px, float py, float ax, float ay, float bx, float by) {
    const double dx = static_cast<double>(bx) - ax, dy = static_cast<double>(by) - ay;
    const double lengthSq = dx * dx + dy * dy;
    double qx = ax, qy = ay;
    if (!(lengthSq < 1e-6)) {
        double share =
            ((px - static_cast<double>(ax)) * dx + (py - static_cast<double>(ay)) * dy) / lengthSq;
        share = share < 0.0 ? 0.0 : (share > 1.0 ? 1.0 : share);
        qx = ax + share * dx;
        qy = ay + share * dy;
    }
    const double ex = px - qx, ey = py - qy;
    return static_cast<float>(std::sqrt(ex * ex + ey * ey));
}
