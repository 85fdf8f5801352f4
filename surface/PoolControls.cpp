#include "surface/PoolControls.h"

#include <cmath>

#include "frame/InputBinding.h"
#include "frame/ToolEngine.h"

namespace {

// The range of "Radius".
constexpr double kLeastRadius = 0.001, kMostRadius = 10.0;

double BoundValue(const ControlSlot* slot, int index, int part, double otherwise) {
    const InputBinding* b = slot ? slot->bindings[index] : nullptr;
    return b ? b->value.number[part] : otherwise;
}

}  // namespace

void RadiusControl::Circle(float* cx, float* cy, float* halfWidth, float* halfHeight) const {
    const double w = overlay && overlay->viewWidth > 0 ? overlay->viewWidth : 1.0;
    const double h = overlay && overlay->viewHeight > 0 ? overlay->viewHeight : 1.0;
    // The wave measures both directions in image widths, corrected by the pixels' aspect, so the
    // circle is as tall as it is wide on a square-pixel view.
    const double aspect =
        overlay && overlay->viewScaleY != 0.0 ? overlay->viewScaleX / overlay->viewScaleY : 1.0;
    const double r = BoundValue(slot, 0, 0, 0.5) * w;
    *cx = static_cast<float>(BoundValue(slot, 1, 0, 0.5) * w);
    *cy = static_cast<float>(BoundValue(slot, 1, 1, 0.5) * h);
    *halfWidth = static_cast<float>(r);
    *halfHeight = static_cast<float>(r * aspect);
}

void RadiusControl::Draw() {
    float cx, cy, rx, ry;
    Circle(&cx, &cy, &rx, &ry);
    handleX[0] = cx + rx;
    handleY[0] = cy;
    handleCount = 1;
    SetDrawColour(*this);
    DrawEllipse(cx, cy, 2.0f * rx, 2.0f * ry, 0.0f, false);
    DrawHandle(handleX[0], handleY[0], active == 1 || hover == 1);
}

double RadiusControl::RadiusAt(float x, float y) const {
    float cx, cy, rx, ry;
    Circle(&cx, &cy, &rx, &ry);
    const double w = overlay && overlay->viewWidth > 0 ? overlay->viewWidth : 1.0;
    const double scale =
        overlay && overlay->viewScaleX != 0.0 ? overlay->viewScaleY / overlay->viewScaleX : 1.0;
    const double r = std::hypot(x - cx, (y - cy) * scale) / w;
    if (!(r > kLeastRadius)) return kLeastRadius;
    return r < kMostRadius ? r : kMostRadius;
}

void RadiusControl::Drag(int handle, float x, float y) {
    (void)handle;
    SetPending(0, RadiusAt(x, y));
}
