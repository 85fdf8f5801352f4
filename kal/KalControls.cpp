#include "kal/KalControls.h"

#include <cmath>

#include "frame/InputBinding.h"
#include "frame/ToolEngine.h"
#include "kal/Kal.h"

namespace {

constexpr double kKalRadians = 0.017453292522222223;
// Length of the angle handles, as a share of the view's width.
constexpr double kAngleHandleShare = 0.1;

double ViewW(const ToolOverlay* o) {
    return o && o->viewWidth > 0 ? o->viewWidth : 1.0;
}
double ViewH(const ToolOverlay* o) {
    return o && o->viewHeight > 0 ? o->viewHeight : 1.0;
}

// The picture's vertical factor as the view reports it: 1 over the pixels' vertical aspect, the
// factor the mapping scales heights by.
float VerticalFactor(const ToolOverlay* o) {
    const double f = o && o->viewScaleY > 0.0 ? 1.0 / o->viewScaleY : 1.0;
    return std::isfinite(f) && f > 0.0 ? static_cast<float>(f) : 1.0f;
}

// A circle of `radius` pixels about (cx, cy), heights times `aspect`, as a closed line.
void DrawRing(float cx, float cy, float radius, float aspect, bool dashed) {
    DrawEllipse(cx, cy, radius * 2.0f, radius * 2.0f * aspect, 0.0f, dashed);
}

}  // namespace

// Vignette rings.

void KalRing::Draw() {
    const ToolOverlay* o = overlay;
    const double w = ViewW(o), h = ViewH(o);
    const double value = slot && slot->bindings[0] ? slot->bindings[0]->Double() : 0.0;
    const float aspect = VerticalFactor(o);
    const float cx = static_cast<float>(w * 0.5), cy = static_cast<float>(h * 0.5);
    const float radius = static_cast<float>(w * value * 0.5);
    const double a = handleAngle * kKalRadians;
    handleX[0] = static_cast<float>(cx + std::cos(a) * radius);
    handleY[0] = static_cast<float>(cy + std::sin(a) * radius * aspect);
    handleCount = 1;
    SetDrawColour(*this);
    DrawRing(cx, cy, radius, aspect, dashed);
    DrawHandle(handleX[0], handleY[0], active == 1);
}

void KalRing::Drag(int handle, float x, float y) {
    (void)handle;
    const ToolOverlay* o = overlay;
    const double w = ViewW(o), h = ViewH(o);
    const double dx = x - w * 0.5, dy = (y - h * 0.5) / VerticalFactor(o);
    SetPending(0, 2.0 * std::sqrt(dx * dx + dy * dy) / w);
}

// The hexagon control.

int KalHexagonControl::FirstHit(float x, float y, bool last) const {
    int found = kNone;
    for (int h = 0; h < 3; ++h) {
        if (!Hits(handleX[h], handleY[h], x, y)) continue;
        found = h + 1;
        if (!last) break;
    }
    return found;
}

void KalHexagonControl::HandleEvent(int event, float x, float y) {
    if (event == kControlHover || event == kControlPress) {
        if (event == kControlHover) {
            hoverHandle = visible ? FirstHit(x, y, false) : kNone;
        } else {
            // Every handle hit takes the press in turn, so the last one hit keeps it.
            activeHandle = kNone;
            const int hit = visible ? FirstHit(x, y, true) : kNone;
            if (hit != kNone) activeHandle = hoverHandle = hit;
            pressX = latticeX;
            pressY = latticeY;
            pressRadius = hexagonRadius;
        }
        hover = hoverHandle;
        active = activeHandle;
        Apply(event, x, y);  // a press on a handle opens the undo step
        return;
    }
    // Drags and the release go the common way: the drag's values through Drag, the writes, and
    // the undo step closed on the release.
    active = activeHandle;
    ScreenControl::HandleEvent(event, x, y);
    if (event == kControlRelease) activeHandle = kNone;
    active = activeHandle;
}

void KalHexagonControl::Refresh() {
    if (!engine) return;
    const KalEngine& e = *engine;
    ringRadius = static_cast<float>(e.imageScaleInput.Double());
    ringCentreX = static_cast<float>(e.imageCentreInput.X());
    ringCentreY = static_cast<float>(e.imageCentreInput.Y());
    ringAngle = static_cast<float>(e.imageRotInput.Double());
    latticeX = static_cast<float>(e.arrayOffInput.X());
    latticeY = static_cast<float>(e.arrayOffInput.Y());
    latticeAngle = static_cast<float>(e.arrayRotInput.Double());
    hexagonRadius = static_cast<float>(e.hexRadiusInput.Double());
    aspect = VerticalFactor(overlay);
}

void KalHexagonControl::Place(int viewW, int viewH) {
    const double w = viewW, h = viewH;
    const double ringX = w * ringCentreX, ringY = h * ringCentreY;
    const double ring = w * ringRadius * 0.5;
    const double a = ringAngle * kKalRadians;
    handleX[0] = static_cast<float>(ringX + std::cos(a) * ring);
    handleY[0] = static_cast<float>(ringY + std::sin(a) * ring * aspect);
    handleX[1] = static_cast<float>(w * 0.5 * ((latticeX - 0.5) * hexagonRadius + 1.0));
    handleY[1] = static_cast<float>((latticeY - 0.5) * w * 0.5 * hexagonRadius + h * 0.5);
    const double corner = w * hexagonRadius * 0.5;
    const double turn = latticeAngle * kKalRadians;
    for (int i = 0; i < 6; ++i) {
        const float at = static_cast<float>((30.0 + 60.0 * i) * kKalRadians);
        const double b = at + turn;
        cornerX[i] = static_cast<float>(handleX[1] + std::cos(b) * corner);
        cornerY[i] = static_cast<float>(handleY[1] + std::sin(b) * corner * aspect);
    }
    handleX[2] = cornerX[0];
    handleY[2] = cornerY[0];
    handleCount = 3;
}

void KalHexagonControl::Draw() {
    Refresh();
    const ToolOverlay* o = overlay;
    Place(static_cast<int>(ViewW(o)), static_cast<int>(ViewH(o)));
    const double zoom = o && o->zoom > 0.0 ? o->zoom : 1.0;
    SetDrawColour(*this);
    // The image circle, dashed, and the hexagon with its six triangles.
    const double w = ViewW(o), h = ViewH(o);
    DrawRing(static_cast<float>(w * ringCentreX), static_cast<float>(h * ringCentreY),
             static_cast<float>(w * ringRadius * 0.5), aspect, true);
    for (int i = 0; i < 6; ++i) {
        const int j = (i + 1) % 6;
        DrawLine(cornerX[i], cornerY[i], cornerX[j], cornerY[j]);
        DrawDashedLine(handleX[1], handleY[1], cornerX[i], cornerY[i],
                       static_cast<float>(4.0 / zoom));
    }
    for (int k = 0; k < 3; ++k)
        DrawHandle(handleX[k], handleY[k], activeHandle == k + 1);
}

void KalHexagonControl::Drag(int handle, float x, float y) {
    const ToolOverlay* o = overlay;
    const double w = ViewW(o), h = ViewH(o);
    switch (handle) {
        case kImageRing: {
            const double dx = w * ringCentreX - x, dy = (h * ringCentreY - y) / aspect;
            ringRadius = static_cast<float>(2.0 * std::sqrt(dx * dx + dy * dy) / w);
            SetPending(0, ringRadius);
            break;
        }
        case kLatticeCentre: {
            // A hexagon without size has no scale to move its centre by.
            if (!(hexagonRadius > 0.0f)) break;
            const float s = static_cast<float>(1.0 / (w * 0.5 * hexagonRadius));
            latticeX = static_cast<float>((x - w * 0.5) * s + 0.5);
            latticeY = static_cast<float>((y - h * 0.5) * s + 0.5);
            SetPendingPoint(2, latticeX, latticeY);
            break;
        }
        case kHexagonCorner: {
            const double cx = (pressX - 0.5) * w * 0.5 * pressRadius + w * 0.5;
            const double cy = (pressY - 0.5) * w * 0.5 * pressRadius + h * 0.5;
            hexagonRadius =
                static_cast<float>(2.0 * std::sqrt((cx - x) * (cx - x) + (cy - y) * (cy - y)) / w);
            SetPending(1, hexagonRadius);
            break;
        }
        default:
            break;
    }
}

int KalHexagonControl::InputsOfHandle(int handle, int* indices) const {
    indices[0] = handle == kLatticeCentre ? 2 : (handle == kHexagonCorner ? 1 : 0);
    return 1;
}

Input* KalHexagonControl::InputOfHandle(int handle) const {
    int index[1];
    InputsOfHandle(handle, index);
    return slot ? slot->inputs[index[0]] : nullptr;
}

// The engine's side of the overlay.

void KalEngine::DrawControls() {
    const double w = viewWidth > 0 ? viewWidth : 1.0, h = viewHeight > 0 ? viewHeight : 1.0;
    const float length = static_cast<float>(w * kAngleHandleShare);
    const int shown = vignetteInput.Flag() ? 1 : 0;
    if (goRing) goRing->visible = shown;
    if (endRing) {
        endRing->visible = shown;
        endRing->dashed = true;
    }
    auto pivot = [&](AngleControl* c, double x, double y) {
        if (!c) return;
        c->centreX = static_cast<float>(x);
        c->centreY = static_cast<float>(y);
        c->radius = length;
    };
    pivot(cameraAngle, w * cameraOrgInput.X(), h * cameraOrgInput.Y());
    pivot(imageAngle, w * imageCentreInput.X(), h * imageCentreInput.Y());
    // "ArrayRot" turns the lattice about its centre, which is where the hexagon control's centre
    // handle stands.
    if (hexagon) {
        hexagon->Refresh();
        hexagon->Place(static_cast<int>(w), static_cast<int>(h));
        pivot(arrayAngle, hexagon->handleX[1], hexagon->handleY[1]);
    }
    ToolOverlay::DrawControls();
}

void KalEngine::ControlEvent(int event, float x, float y) {
    // The vignette's rings first, then the image centre before the camera, each point before its
    // angle, the lattice's angle, and the hexagon control last.
    static const int order[] = {0, 1, 4, 2, 5, 3, 6, 7};
    for (int i : order) {
        if (i >= static_cast<int>(controls.size())) continue;
        ScreenControl* c = controls[static_cast<size_t>(i)];
        if (c->visible)
            c->HandleEvent(event, x, y);
        else
            c->hover = 0;  // a hidden control is under no pointer
    }
}
