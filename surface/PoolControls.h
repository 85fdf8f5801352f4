// Pool's radius control: a circle about "Center" with one handle on its right, which sets
// "Radius" (in image widths) by the distance of the pointer from the centre.
#pragma once

#include "frame/ScreenControl.h"

// Slot inputs: the radius (a number), then the centre (a point), which the control only reads.
class RadiusControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;

    // The circle in view pixels: its centre, its half width and half height.
    void Circle(float* cx, float* cy, float* halfWidth, float* halfHeight) const;
    // The radius that a drag of the handle to (x, y) gives, within the input's range.
    double RadiusAt(float x, float y) const;
};
