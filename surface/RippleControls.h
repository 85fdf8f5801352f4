// Ripple's on-screen controls: six handles for the amplitudes, frequencies and phases of the two
// waves, with the sketches of the waves along the bottom and left edges.
#pragma once

#include "frame/ScreenControl.h"

class RippleEngine;

// Slot inputs in the order of the handles: X Amp, Y Amp, X Freq, Y Freq, X Phase, Y Phase.
class RippleHandles : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    // A press takes the last handle that matches, hovering the first.
    void HandleEvent(int event, float x, float y) override;
    int HandleAt(float x, float y) const override;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
    int InputsOfHandle(int handle, int* indices) const override;

    RippleEngine* engine = nullptr;
};
