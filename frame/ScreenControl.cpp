#include "frame/ScreenControl.h"

#include <cmath>
#include <cstdio>

#include "frame/InputBinding.h"
#include "frame/ToolEngine.h"
#include "host/Operator.h"
#include "host/Preview.h"

ControlSlot* controlSlots = nullptr;
OverlayState overlayState;

namespace {

constexpr double kDegrees = 57.29577951308232;
constexpr double kRadians = 0.017453292519943295;

const ToolOverlay* Owner(const ScreenControl& c) {
    return c.overlay;
}

double ViewWidth(const ScreenControl& c) {
    return Owner(c) && Owner(c)->viewWidth > 0 ? Owner(c)->viewWidth : 1.0;
}
double ViewHeight(const ScreenControl& c) {
    return Owner(c) && Owner(c)->viewHeight > 0 ? Owner(c)->viewHeight : 1.0;
}

// The value of a point input as the control last knew it: the binding's copy.
void PointOf(const ScreenControl& c, int index, double* x, double* y) {
    const InputBinding* b = c.slot ? c.slot->bindings[index] : nullptr;
    *x = b ? b->X() : 0.5;
    *y = b ? b->Y() : 0.5;
}

double NumberOf(const ScreenControl& c, int index) {
    const InputBinding* b = c.slot ? c.slot->bindings[index] : nullptr;
    return b ? b->Double() : 0.0;
}

}  // namespace

ControlSlot* AddControlSlot(ControlSlot** head) {
    auto* slot = new ControlSlot();
    ControlSlot** at = head;
    while (*at)
        at = &(*at)->next;
    *at = slot;
    return slot;
}

void RemoveControlSlots(const ToolOperator* op) {
    ControlSlot** at = &controlSlots;
    while (*at) {
        if ((*at)->op == op) {
            ControlSlot* gone = *at;
            *at = gone->next;
            delete gone;
        } else {
            at = &(*at)->next;
        }
    }
}

bool IsControlInput(const Input* input) {
    if (!input) return false;
    for (const ControlSlot* s = controlSlots; s; s = s->next)
        for (const Input* in : s->inputs)
            if (in == input) return true;
    return false;
}

void FormatUndoName(char* buffer, size_t size, const char* toolName, const char* inputName) {
    if (!buffer || size == 0) return;
    if (!toolName)
        std::snprintf(buffer, size, "%s", inputName ? inputName : "Unknown");
    else
        std::snprintf(buffer, size, "%s: %s", toolName, inputName ? inputName : "Unknown");
}

ScreenControl::ScreenControl(ToolOverlay* owner, ControlSlot* s) : slot(s), overlay(owner) {
    if (slot) slot->control = this;
}

float ScreenControl::HitRadius() const {
    double zoom = overlay && overlay->zoom > 0.0 ? overlay->zoom : 1.0;
    return static_cast<float>(5.0 / zoom);
}

bool ScreenControl::Hits(float hx, float hy, float x, float y) const {
    const float r = HitRadius();
    return hx - r < x && x < hx + r && hy - r < y && y < hy + r;
}

int ScreenControl::HandleAt(float x, float y) const {
    for (int h = 0; h < handleCount; ++h)
        if (Hits(handleX[h], handleY[h], x, y)) return h + 1;
    return 0;
}

void ScreenControl::HandleEvent(int event, float x, float y) {
    switch (event) {
        case kControlHover:
            hover = visible ? HandleAt(x, y) : 0;
            break;
        case kControlPress:
            hover = visible ? HandleAt(x, y) : 0;
            active = hover;
            break;
        case kControlDrag:
            pendingCount_ = 0;
            if (active) Drag(active, x, y);
            break;
        default:
            break;
    }
    Apply(event, x, y);
    if (event == kControlRelease) active = 0;
}

int ScreenControl::InputsOfHandle(int handle, int* indices) const {
    (void)handle;
    indices[0] = 0;
    return 1;
}

Input* ScreenControl::InputOfHandle(int handle) const {
    int indices[4];
    int n = InputsOfHandle(handle, indices);
    return n > 0 && slot ? slot->inputs[indices[0]] : nullptr;
}

void ScreenControl::SetPending(int index, double x) {
    if (pendingCount_ < 4) pending_[pendingCount_++] = {index, false, x, 0.0};
}

void ScreenControl::SetPendingPoint(int index, double x, double y) {
    if (pendingCount_ < 4) pending_[pendingCount_++] = {index, true, x, y};
}

void ScreenControl::Apply(int event, float x, float y) {
    (void)x;
    (void)y;
    if (!active || !slot) return;
    if (event == kControlPress) {
        int indices[4];
        int n = InputsOfHandle(active, indices);
        const char* tool = nullptr;
        if (overlay && overlay->op && !overlay->op->InstanceName().empty())
            tool = overlay->op->InstanceName().c_str();
        undoOpen_ = 0;
        for (int i = 0; i < n && i < 4; ++i) {
            Input* in = slot->inputs[indices[i]];
            if (!in) continue;
            char name[256];
            FormatUndoName(name, sizeof name, tool, in->Name().c_str());
            in->StartUndo(name, nullptr);
            undoInputs_[undoOpen_++] = in;
        }
    } else if (event == kControlDrag) {
        const double time = overlayState.overlayInfo ? overlayState.overlayInfo->time : kWholeValue;
        for (int i = 0; i < pendingCount_; ++i) {
            const Pending& p = pending_[i];
            Input* in = slot->inputs[p.index];
            InputBinding* b = slot->bindings[p.index];
            if (!in) continue;
            if (p.point) {
                Point v(p.x, p.y, 0.0);
                in->SetSource(&v, time, 0, 0);
                if (b) {
                    b->value.number[0] = p.x;
                    b->value.number[1] = p.y;
                }
            } else {
                AutoNumber v(p.x);
                in->SetSource(&v, time, 0, 0);
                if (b) b->value.number[0] = p.x;
            }
        }
        pendingCount_ = 0;
    } else if (event == kControlRelease) {
        for (int i = 0; i < undoOpen_; ++i)
            undoInputs_[i]->EndUndo(true, nullptr);
        undoOpen_ = 0;
    }
}

// Point.

void PointControl::Draw() {
    double x, y;
    PointOf(*this, 0, &x, &y);
    handleX[0] = static_cast<float>(x * ViewWidth(*this));
    handleY[0] = static_cast<float>(y * ViewHeight(*this));
    handleCount = 1;
    DrawPointControl(*this);
}

void PointControl::Drag(int handle, float x, float y) {
    (void)handle;
    SetPendingPoint(0, x / ViewWidth(*this), y / ViewHeight(*this));
}

// Line.

void LineControl::Draw() {
    for (int i = 0; i < 2; ++i) {
        double x, y;
        PointOf(*this, i, &x, &y);
        handleX[i] = static_cast<float>(x * ViewWidth(*this));
        handleY[i] = static_cast<float>(y * ViewHeight(*this));
    }
    handleCount = 2;
    DrawLineControl(*this);
}

void LineControl::Drag(int handle, float x, float y) {
    SetPendingPoint(handle - 1, x / ViewWidth(*this), y / ViewHeight(*this));
}

int LineControl::InputsOfHandle(int handle, int* indices) const {
    indices[0] = handle == 2 ? 1 : 0;
    return 1;
}

Input* LineControl::InputOfHandle(int handle) const {
    return slot ? slot->inputs[handle == 2 ? 1 : 0] : nullptr;
}

// Angle.

void AngleControl::Draw() {
    const double a = NumberOf(*this, 0) * kRadians;
    const double aspect =
        overlay && overlay->viewScaleY != 0.0 ? overlay->viewScaleX / overlay->viewScaleY : 1.0;
    handleX[0] = static_cast<float>(centreX + std::cos(a) * radius);
    handleY[0] = static_cast<float>(centreY + std::sin(a) * radius * aspect);
    handleCount = 1;
    SetDrawColour(*this);
    DrawLine(centreX, centreY, handleX[0], handleY[0]);
    DrawHandle(handleX[0], handleY[0], active == 1);
}

void AngleControl::Drag(int handle, float x, float y) {
    (void)handle;
    const double scale =
        overlay && overlay->viewScaleX != 0.0 ? overlay->viewScaleY / overlay->viewScaleX : 1.0;
    const double dx = x - centreX;
    const double dy = (y - centreY) * scale;
    // The angle within its quadrant, then folded to 0..360.
    const double a = std::atan2(std::fabs(dy), std::fabs(dx)) * kDegrees;
    double degrees = a;
    if (dx < 0 && dy >= 0)
        degrees = 180.0 - a;
    else if (dx < 0 && dy < 0)
        degrees = 180.0 + a;
    else if (dx >= 0 && dy < 0)
        degrees = 360.0 - a;
    SetPending(0, degrees);
}

// Sizes.

int SizeControl::InputsOfHandle(int handle, int* indices) const {
    if (handle == 2 || handle == 3) {
        indices[0] = handle - 2;
        return 1;
    }
    indices[0] = 0;
    indices[1] = 1;
    return 2;
}

Input* SizeControl::InputOfHandle(int handle) const {
    return slot ? slot->inputs[handle == 3 ? 1 : 0] : nullptr;
}

// Ellipse.

void EllipseControl::Draw() {
    const double w = NumberOf(*this, 0) * ViewWidth(*this);
    const double h = NumberOf(*this, 1) * ViewWidth(*this);
    const double r = rotation * kRadians, c = std::cos(r), s = std::sin(r);
    handleX[0] = centreX;
    handleY[0] = centreY;
    handleX[1] = static_cast<float>(centreX + c * w * 0.5);
    handleY[1] = static_cast<float>(centreY + s * w * 0.5);
    handleX[2] = static_cast<float>(centreX - s * h * 0.5);
    handleY[2] = static_cast<float>(centreY + c * h * 0.5);
    handleCount = 3;
    SetDrawColour(*this);
    DrawEllipse(centreX, centreY, static_cast<float>(w), static_cast<float>(h), rotation, false);
    for (int i = 0; i < 3; ++i)
        DrawHandle(handleX[i], handleY[i], active == i + 1);
}

void EllipseControl::Drag(int handle, float x, float y) {
    const double d = std::hypot(x - centreX, y - centreY) * 2.0 / ViewWidth(*this);
    if (handle == 2) {
        SetPending(0, d);
    } else if (handle == 3) {
        SetPending(1, d);
    } else {
        // The centre handle sets the width and keeps the height in proportion to it.
        const double w = NumberOf(*this, 0), h = NumberOf(*this, 1);
        SetPending(0, d);
        SetPending(1, w != 0.0 ? d * h / w : d);
    }
}

// Box.

void BoxControl::Draw() {
    const double w = NumberOf(*this, 0) * ViewWidth(*this) * 0.5;
    const double h = NumberOf(*this, 1) * ViewHeight(*this) * 0.5;
    const double r = rotation * kRadians, c = std::cos(r), s = std::sin(r);
    auto at = [&](double u, double v, float* x, float* y) {
        *x = static_cast<float>(centreX + u * c - v * s);
        *y = static_cast<float>(centreY + u * s + v * c);
    };
    at(w, h, &handleX[0], &handleY[0]);
    at(w, 0, &handleX[1], &handleY[1]);
    at(0, h, &handleX[2], &handleY[2]);
    handleCount = 3;
    DrawBoxControl(*this);
}

void BoxControl::Drag(int handle, float x, float y) {
    const double aspect =
        overlay && overlay->viewScaleY != 0.0 ? overlay->viewScaleX / overlay->viewScaleY : 1.0;
    const double r = -rotation * kRadians, c = std::cos(r), s = std::sin(r);
    const double dx = (x - centreX) * aspect, dy = y - centreY;
    const double u = std::fabs((dx * c - dy * s) / aspect);
    const double v = std::fabs(dx * s + dy * c);
    if (handle == 1) {
        SetPending(0, 2.0 * u / ViewWidth(*this));
        SetPending(1, 2.0 * v / ViewHeight(*this));
    } else if (handle == 2) {
        SetPending(0, 2.0 * u / ViewWidth(*this));
    } else {
        SetPending(1, 2.0 * v / ViewHeight(*this));
    }
}

// Drawing.

namespace {

PreviewInfo* View() {
    return overlayState.overlayInfo;
}

void Vertex(float x, float y) {
    const ToolOverlay* o = overlayState.drawing;
    PreviewInfo* info = View();
    if (!o || !info) return;
    const double w = o->viewWidth > 0 ? o->viewWidth : 1, h = o->viewHeight > 0 ? o->viewHeight : 1;
    float v[2] = {static_cast<float>(info->TransformXOut(x / w)),
                  static_cast<float>(info->TransformYOut(y / h))};
    glVertex2fv(v);
}

double Zoom() {
    const ToolOverlay* o = overlayState.drawing;
    return o && o->zoom > 0.0 ? o->zoom : 1.0;
}

}  // namespace

void SetDrawColour(int red, int green, int blue, int alpha) {
    (void)alpha;
    if (View())
        View()->Color4ub(static_cast<uint8_t>(red >> 8), static_cast<uint8_t>(green >> 8),
                         static_cast<uint8_t>(blue >> 8), 255);
}

void SetDrawColour(const ScreenControl& c) {
    SetDrawColour(c.red, c.green, c.blue, c.alpha);
}

void DrawLine(float x1, float y1, float x2, float y2) {
    glBegin(kGlLines);
    Vertex(x1, y1);
    Vertex(x2, y2);
    glEnd();
}

void DrawHandle(float x, float y, bool selected) {
    const float half = static_cast<float>(4.0 / Zoom());
    glBegin(kGlLineLoop);
    Vertex(x - half, y - half);
    Vertex(x + half, y - half);
    Vertex(x + half, y + half);
    Vertex(x - half, y + half);
    glEnd();
    if (selected) {
        // A selected handle gets an inner square as well.
        const float inner = half * 0.5f;
        glBegin(kGlLineLoop);
        Vertex(x - inner, y - inner);
        Vertex(x + inner, y - inner);
        Vertex(x + inner, y + inner);
        Vertex(x - inner, y + inner);
        glEnd();
    }
}

void DrawDashedLine(float x1, float y1, float x2, float y2, float dash) {
    const double dx = x2 - x1, dy = y2 - y1;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (!(length > 0.0) || !(dash > 0.0)) return;
    const double ux = dx / length, uy = dy / length;
    const long pieces = static_cast<long>(std::ceil(length / dash));
    for (long i = 0; i < pieces && i < 100000; i += 2) {
        const double a = i * dash, b = std::fmin((i + 1) * dash, length);
        DrawLine(static_cast<float>(x1 + ux * a), static_cast<float>(y1 + uy * a),
                 static_cast<float>(x1 + ux * b), static_cast<float>(y1 + uy * b));
    }
}

void DrawEllipse(float cx, float cy, float width, float height, float rotation, bool dashed) {
    if (width < 5.0f || height < 5.0f) return;
    double step = 360.0 / (width * 3.141592653589793 / 3.0);
    if (step > 36.0) step = 36.0;
    const double r = rotation * kRadians, c = std::cos(r), s = std::sin(r);
    auto at = [&](double deg, float* x, float* y) {
        const double a = deg * kRadians;
        const double u = std::cos(a) * width * 0.5, v = std::sin(a) * height * 0.5;
        *x = static_cast<float>(cx + u * c - v * s);
        *y = static_cast<float>(cy + u * s + v * c);
    };
    int n = 0;
    for (double deg = 0.0; deg < 360.0; deg += step, ++n) {
        if (dashed && (n & 1)) continue;
        float x1, y1, x2, y2;
        at(deg, &x1, &y1);
        at(std::fmin(deg + step, 360.0), &x2, &y2);
        DrawLine(x1, y1, x2, y2);
    }
}

void DrawStrip(const std::vector<float>& points) {
    if (points.size() < 4) return;
    glBegin(kGlLineStrip);
    for (size_t i = 0; i + 1 < points.size(); i += 2)
        Vertex(points[i], points[i + 1]);
    glEnd();
}

void DrawCross(float x, float y, float size) {
    DrawLine(x - size, y, x + size, y);
    DrawLine(x, y - size, x, y + size);
}

void DrawPointControl(PointControl& c) {
    SetDrawColour(c);
    const float arm = static_cast<float>(10.0 / Zoom());
    DrawCross(c.handleX[0], c.handleY[0], arm);
    DrawHandle(c.handleX[0], c.handleY[0], c.active == 1);
}

void DrawLineControl(LineControl& c) {
    SetDrawColour(c);
    DrawLine(c.handleX[0], c.handleY[0], c.handleX[1], c.handleY[1]);
    for (int i = 0; i < 2; ++i)
        DrawHandle(c.handleX[i], c.handleY[i], c.active == i + 1);
}

void DrawBoxControl(BoxControl& c) {
    SetDrawColour(c);
    // The four corners from the corner handle, mirrored through the centre.
    const float ax = c.handleX[0] - c.centreX, ay = c.handleY[0] - c.centreY;
    const float bx = (c.handleX[1] - c.centreX) * 2 - ax, by = (c.handleY[1] - c.centreY) * 2 - ay;
    const float corners[4][2] = {{c.centreX + ax, c.centreY + ay},
                                 {c.centreX + bx, c.centreY + by},
                                 {c.centreX - ax, c.centreY - ay},
                                 {c.centreX - bx, c.centreY - by}};
    for (int i = 0; i < 4; ++i)
        DrawLine(corners[i][0], corners[i][1], corners[(i + 1) % 4][0], corners[(i + 1) % 4][1]);
    for (int i = 0; i < 3; ++i)
        DrawHandle(c.handleX[i], c.handleY[i], false);
    if (c.active >= 1 && c.active <= 3)
        DrawHandle(c.handleX[c.active - 1], c.handleY[c.active - 1], true);
}

bool SendEvent(ToolOverlay* overlay) {
    OverlayState& s = overlayState;
    const double threshold = 0.05;
    int event = kControlHover;
    if (s.lastPressure < threshold && s.pressure >= threshold)
        event = kControlPress;
    else if (s.lastPressure >= threshold && s.pressure >= threshold)
        event = kControlDrag;
    else if (s.lastPressure >= threshold && s.pressure < threshold)
        event = kControlRelease;
    s.lastPressure = s.pressure;
    if (!overlay) return false;
    const float x = static_cast<float>(std::trunc(overlay->viewWidth * s.pointerX + 0.5));
    const float y = static_cast<float>(std::trunc(overlay->viewHeight * s.pointerY + 0.5));
    overlay->ControlEvent(event, x, y);
    for (const ScreenControl* c : overlay->controls)
        if (c->hover) return true;
    return false;
}
