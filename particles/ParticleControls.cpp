#include "particles/ParticleControls.h"

#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr int kArcSegments = 12;

// A half circle of radius r about (cx, cy), from the direction `from` (radians) through half a
// turn counter-clockwise.
void DrawHalfCircle(float cx, float cy, float r, double from) {
    for (int i = 0; i < kArcSegments; ++i) {
        const double a = from + kPi * i / kArcSegments, b = from + kPi * (i + 1) / kArcSegments;
        DrawLine(static_cast<float>(cx + r * std::cos(a)), static_cast<float>(cy + r * std::sin(a)),
                 static_cast<float>(cx + r * std::cos(b)),
                 static_cast<float>(cy + r * std::sin(b)));
    }
}

}  // namespace

void BirthLineControl::Draw() {
    LineControl::Draw();
    const float r = zoneRadius;
    if (!(r > 0.0f)) return;
    const float x0 = handleX[0], y0 = handleY[0], x1 = handleX[1], y1 = handleY[1];
    const double dx = x1 - x0, dy = y1 - y0, len = std::sqrt(dx * dx + dy * dy);
    // The direction of the line; a line of no length has its outline as one circle.
    const double along = len > 0.0 ? std::atan2(dy, dx) : 0.0;
    const double nx = -std::sin(along) * r, ny = std::cos(along) * r;
    if (len > 0.0) {
        DrawLine(static_cast<float>(x0 + nx), static_cast<float>(y0 + ny),
                 static_cast<float>(x1 + nx), static_cast<float>(y1 + ny));
        DrawLine(static_cast<float>(x0 - nx), static_cast<float>(y0 - ny),
                 static_cast<float>(x1 - nx), static_cast<float>(y1 - ny));
    }
    // Round the far end from the left-hand side, round the near end from the right-hand side.
    DrawHalfCircle(x1, y1, r, along - kPi / 2);
    DrawHalfCircle(x0, y0, r, along + kPi / 2);
}

void ConeControl::Draw() {
    LineControl::Draw();
    const float x0 = handleX[0], y0 = handleY[0], x1 = handleX[1], y1 = handleY[1];
    const double dx = x1 - x0, dy = y1 - y0, len = std::sqrt(dx * dx + dy * dy);
    if (!(len > 0.0)) return;
    const double axis = std::atan2(dy, dx), half = spreadDegrees * kPi / 360.0;
    for (int side = -1; side <= 1; side += 2) {
        const double a = axis + side * half;
        DrawLine(x0, y0, static_cast<float>(x0 + len * std::cos(a)),
                 static_cast<float>(y0 + len * std::sin(a)));
    }
}
