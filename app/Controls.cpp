#include "app/Controls.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <map>
#include <ostream>
#include <sstream>

#include "frame/ScreenControl.h"
#include "frame/ToolOperator.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"

using nlohmann::json;

ControlView::ControlView(ToolOperator* op, int width, int height, double zoom, double time)
    : op_(op), info_(width, height, zoom) {
    info_.time = time;
    op_->AddControls(&info_, nullptr);
    for (OperatorControl* c : op_->controls)
        if (c->info == &info_) control_ = c;
}

ControlView::~ControlView() {
    // The view goes: its record leaves the operator's list.
    op_->controlLock.ObtainLock();
    auto& list = op_->controls;
    for (auto it = list.begin(); it != list.end();) {
        if ((*it)->info == &info_) {
            if (overlayState.capturedControl == *it) overlayState.capturedControl = nullptr;
            (*it)->Recycle();
            it = list.erase(it);
        } else {
            ++it;
        }
    }
    op_->controlLock.ReleaseLock();
    if (overlayState.overlayInfo == &info_) overlayState.overlayInfo = nullptr;
}

std::vector<LineWork> ControlView::Draw() {
    info_.Clear();
    op_->GLDrawControls(control_, &info_, nullptr);
    return info_.lines;
}

void ControlView::PointerAt(float x, float y) {
    info_.pointerX = info_.imageWidth > 0 ? x / info_.imageWidth : 0.0;
    info_.pointerY = info_.imageHeight > 0 ? y / info_.imageHeight : 0.0;
}

ControlView::DragReport ControlView::Drag(float x1, float y1, float x2, float y2) {
    DragReport report;
    FusionDoc* doc = op_->Document();
    const size_t stepsBefore = doc ? doc->UndoSteps().size() : 0;
    std::map<Input*, Input::State> before;
    for (Input* in : op_->Inputs())
        before[in] = in->Save();

    // The controls must know where their handles are: a view draws before the user can press.
    Draw();
    PointerAt(x1, y1);
    const int down = op_->ControlDown(control_, &info_, nullptr);
    ToolOverlay* overlay = op_->Overlay();
    for (size_t i = 0; overlay && i < overlay->controls.size(); ++i) {
        ScreenControl* c = overlay->controls[i];
        if (c->active) {
            report.control = static_cast<int>(i) + 1;
            report.handle = c->active;
            if (Input* in = c->InputOfHandle(c->active)) report.input = in->ID().str();
        }
    }
    if (down == kControlWantsDrag) {
        PointerAt(x2, y2);
        op_->ControlMove(control_, &info_, nullptr);
        op_->ControlUp(control_, &info_, nullptr);
    }

    for (Input* in : op_->Inputs()) {
        Input::State now = in->Save();
        const Input::State& was = before[in];
        bool same = now.constant[0] == was.constant[0] && now.constant[1] == was.constant[1] &&
                    now.keys.size() == was.keys.size();
        for (size_t k = 0; same && k < now.keys.size(); ++k)
            same = now.keys[k].time == was.keys[k].time && now.keys[k].v[0] == was.keys[k].v[0] &&
                   now.keys[k].v[1] == was.keys[k].v[1];
        if (same) continue;
        double v[2];
        in->ValueAt(info_.time, v);
        report.written[in->ID().str()] =
            in->GetDataType() == Input::DataType::Point ? json({v[0], v[1]}) : json(v[0]);
    }
    if (doc)
        for (size_t i = stepsBefore; i < doc->UndoSteps().size(); ++i)
            report.undo.push_back(doc->UndoSteps()[i].name);
    return report;
}

bool ControlView::Press(float x, float y, std::string* input) {
    Draw();
    PointerAt(x, y);
    dragging_ = op_->ControlDown(control_, &info_, nullptr) == kControlWantsDrag;
    if (input) {
        input->clear();
        ToolOverlay* overlay = op_->Overlay();
        for (size_t i = 0; overlay && i < overlay->controls.size(); ++i) {
            ScreenControl* c = overlay->controls[i];
            if (c->active)
                if (Input* in = c->InputOfHandle(c->active)) *input = in->ID().str();
        }
    }
    return dragging_;
}

void ControlView::Move(float x, float y) {
    if (!dragging_) return;
    PointerAt(x, y);
    op_->ControlMove(control_, &info_, nullptr);
}

void ControlView::Release(float x, float y) {
    if (!dragging_) return;
    dragging_ = false;
    PointerAt(x, y);
    op_->ControlUp(control_, &info_, nullptr);
}

namespace {

const char* ModeName(int mode) {
    switch (mode) {
        case kGlLines:
            return "lines";
        case kGlLineLoop:
            return "loop";
        case kGlLineStrip:
            return "strip";
        default:
            return "other";
    }
}

std::string Hex(const uint8_t c[4]) {
    std::ostringstream o;
    o << "#" << std::hex << std::setfill('0');
    for (int i = 0; i < 3; ++i)
        o << std::setw(2) << static_cast<int>(c[i]);
    return o.str();
}

double Round2(double v) {
    return std::round(v * 100.0) / 100.0;
}

}  // namespace

json LinesToJson(const std::vector<LineWork>& lines) {
    json out = json::array();
    for (const auto& l : lines) {
        json points = json::array();
        for (size_t i = 0; i + 1 < l.points.size(); i += 2)
            points.push_back({Round2(l.points[i]), Round2(l.points[i + 1])});
        out.push_back({{"mode", ModeName(l.mode)}, {"colour", Hex(l.colour)}, {"points", points}});
    }
    return out;
}

void PrintLines(const std::vector<LineWork>& lines, std::ostream& out) {
    for (const auto& l : lines) {
        out << "  " << std::left << std::setw(6) << ModeName(l.mode) << Hex(l.colour);
        for (size_t i = 0; i + 1 < l.points.size(); i += 2)
            out << " (" << Round2(l.points[i]) << ", " << Round2(l.points[i + 1]) << ")";
        out << "\n";
    }
}

namespace {

void Plot(Image& image, int x, int y, const uint8_t c[4]) {
    if (x < 0 || y < 0 || x >= image.width || y >= image.height) return;
    uint16_t* p = image.Row(y) + static_cast<size_t>(x) * 4;
    for (int k = 0; k < 3; ++k)
        p[k] = static_cast<uint16_t>(c[k] * 257);
    p[3] = 65535;
}

void Segment(Image& image, float x1, float y1, float x2, float y2, const uint8_t c[4]) {
    if (!std::isfinite(x1) || !std::isfinite(y1) || !std::isfinite(x2) || !std::isfinite(y2))
        return;
    const double dx = static_cast<double>(x2) - x1, dy = static_cast<double>(y2) - y1;
    const double steps = std::fmin(std::ceil(std::fmax(std::fabs(dx), std::fabs(dy))), 100000.0);
    for (int i = 0; i <= static_cast<int>(steps); ++i) {
        const double t = steps > 0 ? i / steps : 0.0;
        const double x = std::floor(x1 + dx * t + 0.5), y = std::floor(y1 + dy * t + 0.5);
        // Points far off the picture are dropped before they become pixel numbers.
        if (x < 0.0 || y < 0.0 || x >= image.width || y >= image.height) continue;
        Plot(image, static_cast<int>(x), static_cast<int>(y), c);
    }
}

}  // namespace

void RasteriseLines(Image& image, const std::vector<LineWork>& lines) {
    for (const auto& l : lines) {
        const auto& p = l.points;
        const size_t n = p.size() / 2;
        if (l.mode == kGlLines) {
            for (size_t i = 0; i + 1 < n; i += 2)
                Segment(image, p[2 * i], p[2 * i + 1], p[2 * i + 2], p[2 * i + 3], l.colour);
        } else {
            for (size_t i = 0; i + 1 < n; ++i)
                Segment(image, p[2 * i], p[2 * i + 1], p[2 * i + 2], p[2 * i + 3], l.colour);
            if (l.mode == kGlLineLoop && n > 2)
                Segment(image, p[2 * n - 2], p[2 * n - 1], p[0], p[1], l.colour);
        }
    }
}

Image* ComposeOverlay(const Image& image, const std::vector<LineWork>& lines) {
    double over = 0.0;
    for (const auto& l : lines)
        for (size_t i = 0; i + 1 < l.points.size(); i += 2) {
            const double x = l.points[i], y = l.points[i + 1];
            if (!std::isfinite(x) || !std::isfinite(y)) continue;
            over = std::fmax(over, std::fmax(-x, x - (image.width - 1)));
            over = std::fmax(over, std::fmax(-y, y - (image.height - 1)));
        }
    // The margin is bounded while it is still a real: a handle a billion pixels away must not
    // become a pixel count.
    const int limit = std::max(image.width, image.height) / 2;
    const int margin =
        over > 0.0 ? static_cast<int>(std::fmin(static_cast<double>(limit), std::ceil(over) + 6.0))
                   : 0;
    Image* shown = GetApp()->Images().Take(image.width + 2 * margin, image.height + 2 * margin);
    shown->xScale = image.xScale;
    shown->yScale = image.yScale;
    for (int y = 0; y < shown->height; ++y) {
        uint16_t* d = shown->Row(y);
        for (int x = 0; x < shown->width; ++x) {
            d[x * 4 + 0] = d[x * 4 + 1] = d[x * 4 + 2] = 9000;
            d[x * 4 + 3] = 65535;
        }
    }
    for (int y = 0; y < image.height; ++y)
        std::memcpy(shown->Row(y + margin) + static_cast<size_t>(margin) * 4, image.Row(y),
                    static_cast<size_t>(image.width) * 8);
    std::vector<LineWork> moved = lines;
    for (auto& l : moved)
        for (float& v : l.points)
            v += static_cast<float>(margin);
    RasteriseLines(*shown, moved);
    return shown;
}
