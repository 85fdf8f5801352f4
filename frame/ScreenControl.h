// On-screen controls: handles that the user drags on the picture in the viewer, tied to inputs,
// drawn as lines over the picture. Coordinates are image pixels, y up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class Input;
class InputBinding;
class PreviewInfo;
class OperatorControl;
class ScreenControl;
class ToolOperator;
class ToolOverlay;

// Events of a control.
enum ControlEventKind {
    kControlHover = 0,
    kControlPress = 1,
    kControlDrag = 2,
    kControlRelease = 3
};

// One node of the library-wide list that ties controls to inputs.
struct ControlSlot {
    ControlSlot* next = nullptr;
    Input* inputs[16] = {};
    InputBinding* bindings[16] = {};
    ScreenControl* control = nullptr;
    ToolOperator* op = nullptr;
};

// The list of every tool's slots.
extern ControlSlot* controlSlots;
// Takes a tool's slots out of the list when the tool goes, so that a later input at the same
// address is not taken for one of its controls.
void RemoveControlSlots(const ToolOperator* op);
// Appends a cleared slot to the list and returns it.
ControlSlot* AddControlSlot(ControlSlot** head);
// Whether the input stands in any slot.
bool IsControlInput(const Input* input);

// "tool: input", with "Unknown" for a missing input name; the input name alone (or "Unknown")
// without a tool name.
void FormatUndoName(char* buffer, size_t size, const char* toolName, const char* inputName);

class ScreenControl {
  public:
    ScreenControl(ToolOverlay* owner, ControlSlot* slot);
    virtual ~ScreenControl() = default;
    ScreenControl(const ScreenControl&) = delete;
    ScreenControl& operator=(const ScreenControl&) = delete;

    // Hit tests and value computation; forwards every event to Apply.
    virtual void HandleEvent(int event, float x, float y);
    // Opens the undo step on a press, writes the computed values on a drag, closes the step on
    // the release.
    virtual void Apply(int event, float x, float y);
    // The input the given handle sets (for the view's question "which input is here").
    virtual Input* InputOfHandle(int handle) const;
    // Draws the control with the drawing helpers.
    virtual void Draw() {}

    // The handle under (x, y), or 0; handles are tried in order and the first that hits is taken.
    virtual int HandleAt(float x, float y) const;
    // Computes the values of a drag of handle `handle` to (x, y) into the pending writes.
    virtual void Drag(int handle, float x, float y) {
        (void)handle;
        (void)x;
        (void)y;
    }

    // 5 view pixels in image pixels.
    float HitRadius() const;
    // Strictly within the hit radius in both directions.
    bool Hits(float hx, float hy, float x, float y) const;

    ControlSlot* slot;
    int32_t red = 65535, green = 65535, blue = 65535, alpha = 65535;
    int32_t visible = 1;
    int32_t active = 0;
    int32_t hover = 0;
    ToolOverlay* overlay;

    // Handle positions in pixels, written by the drawing for the hit test.
    static constexpr int kMostHandles = 9;
    float handleX[kMostHandles] = {};
    float handleY[kMostHandles] = {};
    int handleCount = 0;

  protected:
    // The writes a drag has computed: slot input `index`, a number or a point.
    void SetPending(int index, double x);
    void SetPendingPoint(int index, double x, double y);
    // Slot inputs a drag of `handle` changes, for the undo step.
    virtual int InputsOfHandle(int handle, int* indices) const;

  private:
    struct Pending {
        int index;
        bool point;
        double x, y;
    };
    Pending pending_[4] = {};
    int pendingCount_ = 0;
    int undoOpen_ = 0;
    Input* undoInputs_[4] = {};
};

// A Point input: one handle at the point.
class PointControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
};

// Two Point inputs: handles 1 and 2 at the ends.
class LineControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
    int InputsOfHandle(int handle, int* indices) const override;
    Input* InputOfHandle(int handle) const override;
};

// One Number in degrees: a handle at the end of a ray of `radius` pixels from (centreX, centreY).
class AngleControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
    float centreX = 0.0f, centreY = 0.0f, radius = 50.0f;
};

// Two Number sizes about a centre and a rotation in degrees: handle 2 sets the first, handle 3
// the second, handle 1 both.
class SizeControl : public ScreenControl {
  public:
    using ScreenControl::ScreenControl;
    int InputsOfHandle(int handle, int* indices) const override;
    Input* InputOfHandle(int handle) const override;
    float centreX = 0.0f, centreY = 0.0f, rotation = 0.0f;
};

// Two Number sizes (width and height as fractions of the view's width) about a centre and a
// rotation in degrees: handle 1 at the centre, 2 and 3 at the ends of the axes.
class EllipseControl : public SizeControl {
  public:
    using SizeControl::SizeControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
};

// Width and height (fractions of the view's width and height) of a rectangle rotated by
// `rotation` degrees about (centreX, centreY): handle 1 a corner, 2 the right edge, 3 the top.
class BoxControl : public SizeControl {
  public:
    using SizeControl::SizeControl;
    void Draw() override;
    void Drag(int handle, float x, float y) override;
};

// Drawing helpers, in image pixels of the overlay being drawn.
void SetDrawColour(int red, int green, int blue, int alpha);
void SetDrawColour(const ScreenControl& control);
void DrawLine(float x1, float y1, float x2, float y2);
void DrawHandle(float x, float y, bool selected);
void DrawDashedLine(float x1, float y1, float x2, float y2, float dash);
void DrawEllipse(float cx, float cy, float width, float height, float rotation, bool dashed);
void DrawCross(float x, float y, float size);
// A line strip through x0, y0, x1, y1, ...
void DrawStrip(const std::vector<float>& points);
void DrawPointControl(PointControl& control);
void DrawLineControl(LineControl& control);
void DrawBoxControl(BoxControl& control);

// The library-wide overlay state: one drag at a time.
struct OverlayState {
    PreviewInfo* overlayInfo = nullptr;
    double pressure = 0.0, lastPressure = 0.0;
    double pointerX = 0.0, pointerY = 0.0;
    double pressX = 0.0, pressY = 0.0;
    bool dragArmed = false;
    OperatorControl* capturedControl = nullptr;
    // The overlay being drawn (the drawing helpers read its view).
    ToolOverlay* drawing = nullptr;
};
extern OverlayState overlayState;

// Turns the pressures into an event, sends it to the overlay's controls at the pointer, and says
// whether any control is under the pointer.
bool SendEvent(ToolOverlay* overlay);
