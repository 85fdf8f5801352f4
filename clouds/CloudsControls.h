// The on-screen controls of Clouds: the centre marker, the scale box, and, for lit clouds, the
// light and target markers and the beam with its spread and fall-off handles.
#pragma once

#include "frame/ScreenControl.h"

class CloudsEngine;

// Four handles on two pairs of rays from the light: 1 and 2 on the edges of the beam ("Light
// Spread", its full width), 3 and 4 on the edges of the fall-off ("Light Fall Off", beyond the
// spread). Slot inputs: 0 the spread, 1 the fall-off.
class BeamControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
    int InputsOfHandle(int handle, int* indices) const override;
    Input* InputOfHandle(int handle) const override;

    CloudsEngine* engine = nullptr;
};
