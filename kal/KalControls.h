// The kaleidoscope's own on-screen controls: the vignette's rings about the picture's centre, and
// the hexagon control, with which one hexagon of the lattice and the sampled image circle are
// dragged directly.
#pragma once

#include "frame/ScreenControl.h"

class KalEngine;

// A ring about the picture's centre whose diameter, over the view's width, is its one input. Its
// handle stands on the ring at `handleAngle` degrees; vertical offsets follow the picture's
// vertical factor.
class KalRing : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;

    // The inner ring's handle stands to the right of the centre, the outer one's at 45 degrees, so
    // that equal radii still leave two handles apart.
    static constexpr float kEndHandleAngle = 45.0f;
    float handleAngle = 0.0f;
    bool dashed = false;
    KalEngine* engine = nullptr;
};

// Handles: 1 on the image ring ("ImgScale"), 2 the lattice centre ("ArrayOff"), 3 the hexagon's
// first corner ("HexagonRad"). Slot inputs: 0 "ImgScale", 1 "HexagonRad", 2 "ArrayOff".
class KalHexagonControl : public ScreenControl {
  public:
    enum Handle { kNone = 0, kImageRing = 1, kLatticeCentre = 2, kHexagonCorner = 3 };

    using ScreenControl::ScreenControl;
    void HandleEvent(int event, float x, float y) override;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
    int InputsOfHandle(int handle, int* indices) const override;
    Input* InputOfHandle(int handle) const override;

    // Takes the values of the inputs from the engine, then places the three handles and the six
    // corners of the hexagon for a view of viewW x viewH pixels.
    void Refresh();
    void Place(int viewW, int viewH);

    int32_t activeHandle = kNone;
    int32_t hoverHandle = kNone;
    float ringRadius = 1.0f;
    float ringCentreX = 0.4f, ringCentreY = 0.4f;
    float ringAngle = 0.0f;
    float latticeX = 0.0f, latticeY = 0.0f;
    float latticeAngle = 0.0f;
    float hexagonRadius = 0.5f;
    float aspect = 1.0f;
    float pressX = 0.0f, pressY = 0.0f, pressRadius = 0.5f;
    // The hexagon's corners, from the one at 30 degrees on.
    float cornerX[6] = {}, cornerY[6] = {};

    KalEngine* engine = nullptr;

  private:
    int FirstHit(float x, float y, bool last) const;
};
