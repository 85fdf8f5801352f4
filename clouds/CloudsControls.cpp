#include "clouds/CloudsControls.h"

#include <cmath>

#include "clouds/Clouds.h"
#include "frame/InputBinding.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kToDegrees = 180.0 / kPi;

}  // namespace

void BeamControl::Draw() {
    if (!engine) return;
    const CloudsEngine::BeamGeometry& g = engine->beam;
    // The rays reach as far as the target, and never shorter than a few handles.
    const double zoom = overlay && overlay->zoom > 0.0 ? overlay->zoom : 1.0;
    double reach = std::hypot(g.targetX - g.lightX, g.targetY - g.lightY);
    if (!(reach > 40.0 / zoom)) reach = 40.0 / zoom;
    for (int side = 0; side < 2; ++side) {
        handleX[side] = static_cast<float>(g.lightX + g.spreadRay[side][0] * reach);
        handleY[side] = static_cast<float>(g.lightY + g.spreadRay[side][1] * reach);
        handleX[2 + side] = static_cast<float>(g.lightX + g.fallOffRay[side][0] * reach);
        handleY[2 + side] = static_cast<float>(g.lightY + g.fallOffRay[side][1] * reach);
    }
    handleCount = 4;
    SetDrawColour(*this);
    DrawDashedLine(g.lightX, g.lightY, g.targetX, g.targetY, static_cast<float>(6.0 / zoom));
    for (int h = 0; h < 4; ++h) {
        if (h < 2)
            DrawLine(g.lightX, g.lightY, handleX[h], handleY[h]);
        else
            DrawDashedLine(g.lightX, g.lightY, handleX[h], handleY[h],
                           static_cast<float>(4.0 / zoom));
        DrawHandle(handleX[h], handleY[h], active == h + 1);
    }
}

void BeamControl::Drag(int handle, float x, float y) {
    if (!engine) return;
    const CloudsEngine::BeamGeometry& g = engine->beam;
    // The angle between the pointer, seen from the light, and the axis of the beam, 0..180.
    double a = std::atan2(y - g.lightY, x - g.lightX) - g.axisAngle;
    a = std::fabs(std::remainder(a, 2.0 * kPi)) * kToDegrees;
    if (!std::isfinite(a)) return;
    if (handle <= 2) {
        SetPending(0, a * 2.0 > 360.0 ? 360.0 : a * 2.0);
    } else {
        const double spreadHalf =
            (slot && slot->bindings[0] ? slot->bindings[0]->Double() : 0) * 0.5;
        double fall = a - spreadHalf;
        if (fall < 0.0) fall = 0.0;
        if (fall > 180.0) fall = 180.0;
        SetPending(1, fall);
    }
}

int BeamControl::InputsOfHandle(int handle, int* indices) const {
    indices[0] = handle <= 2 ? 0 : 1;
    return 1;
}

Input* BeamControl::InputOfHandle(int handle) const {
    return slot ? slot->inputs[handle <= 2 ? 0 : 1] : nullptr;
}
