#include "surface/RippleControls.h"

#include "surface/Ripple.h"

namespace {

const int kColours[3][3] = {{65535, 0, 0}, {0, 65535, 0}, {0, 0, 65535}};

}  // namespace

int RippleHandles::HandleAt(float x, float y) const {
    return engine ? engine->HandleAt(x, y, HitRadius(), false) : 0;
}

void RippleHandles::HandleEvent(int event, float x, float y) {
    if (event == kControlPress && engine) {
        hover = visible ? engine->HandleAt(x, y, HitRadius(), true) : 0;
        active = hover;
        Apply(event, x, y);
        return;
    }
    ScreenControl::HandleEvent(event, x, y);
}

void RippleHandles::Draw() {
    if (!engine) return;
    // The engine has placed the handles and sketched the waves for this view.
    SetDrawColour(*this);
    DrawStrip(engine->bottomSketch);
    DrawStrip(engine->leftSketch);
    handleCount = 6;
    for (int i = 0; i < 6; ++i) {
        const RippleEngine::Handle& h = engine->handles[i];
        handleX[i] = h.x;
        handleY[i] = h.y;
        const int* c = kColours[h.colour < 0 || h.colour > 2 ? 0 : h.colour];
        SetDrawColour(c[0], c[1], c[2], 65535);
        DrawLine(h.fromX, h.fromY, h.x, h.y);
        DrawHandle(h.x, h.y, hover == i + 1 || active == i + 1);
    }
}

void RippleHandles::Drag(int handle, float x, float y) {
    if (!overlay) return;
    SetPending(handle - 1,
               RippleEngine::DragValue(handle, x, y, overlay->viewWidth, overlay->viewHeight));
}

int RippleHandles::InputsOfHandle(int handle, int* indices) const {
    indices[0] = handle >= 1 && handle <= 6 ? handle - 1 : 0;
    return 1;
}
