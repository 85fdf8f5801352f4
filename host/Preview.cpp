#include "host/Preview.h"

namespace {

PreviewInfo* drawing = nullptr;
LineWork* open = nullptr;

}  // namespace

PreviewInfo::PreviewInfo(int w, int h, double z)
    : imageWidth(w), imageHeight(h), zoom(z > 0.0 ? z : 1.0) {
    windowWidth = imageWidth * zoom * xScale;
    windowHeight = imageHeight * zoom * yScale;
}

void PreviewInfo::Color4ub(uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    colour[0] = r;
    colour[1] = g;
    colour[2] = b;
    colour[3] = a;
}

void BeginDrawing(PreviewInfo* info) {
    drawing = info;
    open = nullptr;
}

void EndDrawing() {
    drawing = nullptr;
    open = nullptr;
}

void glBegin(int mode) {
    if (!drawing) return;
    drawing->lines.emplace_back();
    open = &drawing->lines.back();
    open->mode = mode;
    for (int c = 0; c < 4; ++c)
        open->colour[c] = drawing->colour[c];
}

void glVertex2fv(const float* v) {
    if (!drawing || !open) return;
    open->points.push_back(static_cast<float>(v[0] / drawing->zoom));
    open->points.push_back(static_cast<float>(v[1] / drawing->zoom));
}

void glEnd() {
    open = nullptr;
}
