// The viewer side of the host: a view's description (PreviewInfo), the record that ties a view to
// an operator (OperatorControl), and a stand-in for the few OpenGL calls that on-screen controls
// make. The stand-in records line strips and loops with their colours, in image pixels, so that
// overlays can be inspected, drawn into pictures or sent to a browser without a GPU.
#pragma once

#include <cstdint>
#include <vector>

#include "host/Object.h"

class FusionDoc;
class Operator;

// OpenGL primitive numbers used by the controls.
constexpr int kGlLines = 1;
constexpr int kGlLineLoop = 2;
constexpr int kGlLineStrip = 3;

// One recorded primitive: its kind, its colour and its vertices in image pixels (y up).
struct LineWork {
    int mode = kGlLines;
    uint8_t colour[4] = {255, 255, 255, 255};
    std::vector<float> points;  // x0, y0, x1, y1, ...
};

// A view of an image: its size and zoom, the pointer, and the drawing state.
class PreviewInfo {
  public:
    PreviewInfo(int imageWidth, int imageHeight, double zoom = 1.0);

    // Image size in pixels as the view reports it.
    int imageWidth, imageHeight;
    // The view's window in view pixels, and the view's X and Y scale (pixel aspect of the display).
    double windowWidth, windowHeight;
    double xScale = 1.0, yScale = 1.0;
    // View pixels per image pixel.
    double zoom;
    // The pointer, 0..1 across the image, y up.
    double pointerX = 0.0, pointerY = 0.0;
    // 3 hides the on-screen controls.
    int mode = 0;
    // The frame the view shows: the time of values written by a drag.
    double time = 0.0;

    // 0..1 image coordinates to view pixels.
    double TransformXOut(double x) const { return x * imageWidth * zoom; }
    double TransformYOut(double y) const { return y * imageHeight * zoom; }

    // The drawing colour of the OpenGL stand-in.
    void Color4ub(uint8_t r, uint8_t g, uint8_t b, uint8_t a);

    // What has been drawn through this view since the last Clear().
    std::vector<LineWork> lines;
    void Clear() { lines.clear(); }

    uint8_t colour[4] = {255, 255, 255, 255};
};

// The record of one view of one operator; made by the document's registry, kept in the
// operator's control list.
class OperatorControl : public Object {
  public:
    OperatorControl(FusionDoc* doc, PreviewInfo* info) : doc(doc), info(info) {}
    FusionDoc* doc;
    PreviewInfo* info;
    Operator* op = nullptr;
    // The view redraws the controls while a drag moves.
    bool redraw = true;
    // An input shown by the controls has changed: the view will draw again.
    void InputChanged(const void* input) {
        (void)input;
        ++changes;
    }
    long changes = 0;
};

// The OpenGL stand-in. Vertices are taken in view pixels and recorded in image pixels on the view
// made current by BeginDrawing; outside a drawing they are dropped.
void BeginDrawing(PreviewInfo* info);
void EndDrawing();
void glBegin(int mode);
void glVertex2fv(const float* v);
void glEnd();
