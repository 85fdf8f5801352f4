// A view of one tool's on-screen controls, driven as a viewer drives them: draw, press, drag,
// release. Used by `crate07 controls` and by overlays drawn into rendered pictures.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/Preview.h"

class Image;
class ToolOperator;

class ControlView {
  public:
    // A view of `op` showing an image of width x height at `zoom` view pixels per image pixel, at
    // frame `time`.
    ControlView(ToolOperator* op, int width, int height, double zoom, double time);
    ~ControlView();

    // The controls' line work, in image pixels (y up).
    std::vector<LineWork> Draw();

    struct DragReport {
        int control = 0;  // 1-based, 0 when the press hit nothing
        int handle = 0;
        std::string input;                                  // the ID of the input the handle sets
        nlohmann::json written = nlohmann::json::object();  // ID -> new value
        std::vector<std::string> undo;                      // undo steps the drag made
    };
    // Press at (x1, y1), one move to (x2, y2), release there; image pixels, y up.
    DragReport Drag(float x1, float y1, float x2, float y2);

    // The three steps of a drag, one at a time, as a pointer gives them (image pixels, y up).
    // Press draws first, so that the controls know where their handles are, and answers whether
    // a handle was hit; the input that handle sets is put in `input` (its ID).
    bool Press(float x, float y, std::string* input = nullptr);
    void Move(float x, float y);
    void Release(float x, float y);
    // The frame the view stands on.
    void SetTime(double time) { info_.time = time; }

  private:
    void PointerAt(float x, float y);
    bool dragging_ = false;

    ToolOperator* op_;
    PreviewInfo info_;
    OperatorControl* control_ = nullptr;
};

nlohmann::json LinesToJson(const std::vector<LineWork>& lines);
void PrintLines(const std::vector<LineWork>& lines, std::ostream& out);

// Draws the line work into the image, one pixel wide, in the lines' colours.
void RasteriseLines(Image& image, const std::vector<LineWork>& lines);

// The picture as a viewer shows it: the image with the line work drawn over it. Where the controls
// reach beyond the picture (handles stand outside it), the image is set in a dark margin wide
// enough to show them, at most half the picture's size on each side. A new image.
Image* ComposeOverlay(const Image& image, const std::vector<LineWork>& lines);
