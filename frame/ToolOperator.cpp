#include "frame/ToolOperator.h"

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "host/Document.h"
#include "host/Preview.h"
#include "host/Registry.h"

namespace {

InputDecl Row(const char* id, const char* label, int page, InputKind kind, double def,
              Store store) {
    InputDecl d;
    d.id = id;
    d.label = label;
    d.page = page;
    d.kind = kind;
    d.def = def;
    d.store = store;
    return d;
}

const char* ControlName(InputKind kind) {
    switch (kind) {
        case InputKind::Slider:
            return "SliderControl";
        case InputKind::Screw:
            return "ScrewControl";
        case InputKind::Checkbox:
            return "CheckboxControl";
        case InputKind::Combo:
            return "ComboControl";
        case InputKind::Colour:
            return "ColorControl";
        case InputKind::Offset:
            return "OffsetControl";
        case InputKind::Button:
            return "ButtonControl";
        default:
            return "";
    }
}

bool IsConnector(const InputDecl& row) {
    return row.kind == InputKind::Image || row.kind == InputKind::Output;
}

ImagePort* PortOf(const InputDecl& row, ToolEngine* engine) {
    if (row.port) return row.port(engine);
    if (row.kind == InputKind::Output) return &engine->outputPort;
    return row.connector == 1 ? &engine->firstPort : &engine->secondPort;
}

uint16_t SampleOf(double v) {
    // value * 32767 truncated; the low 16 bits are kept as a 16-bit store keeps them.
    return static_cast<uint16_t>(static_cast<uint32_t>(TruncateToInt(v * 32767.0)));
}

}  // namespace

InputDecl Slider(const char* id, const char* label, int page, double def, double lo, double hi) {
    return Row(id, label, page, InputKind::Slider, def, Store::Double).Scale(lo, hi);
}

InputDecl Screw(const char* id, const char* label, int page, double def) {
    return Row(id, label, page, InputKind::Screw, def, Store::Double);
}

InputDecl Checkbox(const char* id, const char* label, int page, double def) {
    return Row(id, label, page, InputKind::Checkbox, def, Store::Flag).Whole();
}

InputDecl Combo(const char* id, const char* label, int page, double def,
                std::vector<const char*> entries) {
    InputDecl d = Row(id, label, page, InputKind::Combo, def, Store::Int);
    d.entries = std::move(entries);
    return d;
}

InputDecl Button(const char* id, const char* label, int page) {
    return Row(id, label, page, InputKind::Button, 0.0, Store::Int).Whole();
}

InputDecl Offset(const char* id, const char* label, int page, double x, double y) {
    InputDecl d = Row(id, label, page, InputKind::Offset, x, Store::Point);
    d.defY = y;
    d.fallback = 0.5;
    d.fallbackY = 0.5;
    return d;
}

InputDecl ColourChannel(const char* id, const char* label, int page, int group, int channel,
                        double def) {
    InputDecl d = Row(id, label, page, InputKind::Colour, def, Store::Sample);
    d.colourGroup = group;
    d.channel = channel;
    if (channel == 3) d.flags |= kHidden;
    return d;
}

InputDecl ImageIn(const char* id, const char* label, int connector) {
    InputDecl d = Row(id, label, -1, InputKind::Image, 0.0, Store::None);
    d.connector = connector;
    d.mainImage = connector == 1;
    return d;
}

InputDecl ImageOut(const char* id, const char* label, int connector) {
    InputDecl d = Row(id, label, -1, InputKind::Output, 0.0, Store::None);
    d.connector = connector;
    return d;
}

TagList ToolDecl::TagsOf(const InputDecl& row, const std::vector<int>& pageNumbers) const {
    TagList t;
    if (row.kind == InputKind::Output) {
        t.Add(kInDataType, FuID("Image"));
        t.Add(kInConnector, int64_t{row.connector});
        return t;
    }
    if (row.kind == InputKind::Image) {
        t.Add(kInDataType, FuID("Image"));
        if (row.flags & kOptional) t.Add(kInRequired, int64_t{0});
        t.Add(kInConnector, int64_t{row.connector});
        return t;
    }
    t.Add(kInDataType, FuID(row.kind == InputKind::Offset ? "Point" : "Number"));
    t.Add(kInControlKind, FuID(ControlName(row.kind)));
    if (row.hasScale) {
        t.Add(kInScaleMin, row.scaleMin);
        t.Add(kInScaleMax, row.scaleMax);
    }
    if (row.hasAllowed) {
        t.Add(kInAllowedMin, row.allowedMin);
        t.Add(kInAllowedMax, row.allowedMax);
    }
    if (row.kind == InputKind::Offset) {
        t.Add(kInDefaultX, row.def);
        t.Add(kInDefaultY, row.defY);
    } else {
        t.Add(kInDefault, row.def);
    }
    if (row.flags & kWhole) t.Add(kInWholeNumber, int64_t{1});
    if (row.flags & kNotify) t.Add(kInNotify, int64_t{1});
    if (row.flags & kFixed) t.Add(kInAnimatable, int64_t{0});
    t.Add(kInDisabled, int64_t{0});
    if (row.kind == InputKind::Colour) {
        t.Add(kInColourGroup, int64_t{row.colourGroup});
        t.Add(kInColourChannel, int64_t{row.channel});
        t.Add(kInGroupLabel, std::string(row.label));
    }
    if (row.page >= 0 && static_cast<size_t>(row.page) < pageNumbers.size())
        t.Add(kInPage, int64_t{pageNumbers[row.page]});
    if (row.flags & kHidden) t.Add(kInVisible, int64_t{0});
    for (const char* e : row.entries)
        t.Add(kInComboEntry, std::string(e));
    return t;
}

ToolOperator::ToolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                           ToolEngine* engine, ToolOverlay* overlay, const ToolDecl& decl)
    : ThreadedOperator(reg, script, tags), engine_(engine), overlay_(overlay), decl_(decl) {
    job.op = this;
    engine_->op = this;
    engine_->job = &job;
    if (overlay_) overlay_->op = this;
    firstFrame = 1;

    std::vector<int> pageNumbers;
    for (const char* page : decl_.pages)
        pageNumbers.push_back(AddControlPage(page));

    rowInputs_.assign(decl_.rowCount, nullptr);
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (IsConnector(row)) continue;
        Input* in = AddInput(row.label, row.id, decl_.TagsOf(row, pageNumbers));
        rowInputs_[i] = in;
        if (row.binding) {
            InputBinding* b = row.binding(engine_);
            int slot = row.kind == InputKind::Colour ? row.channel : 0;
            b->inputs[slot] = in;
            if (row.flags & kHidden && row.kind != InputKind::Colour) b->hidden = 1;
        }
    }
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (row.kind == InputKind::Image) {
            Input* in = AddInput(row.label, row.id, decl_.TagsOf(row, pageNumbers));
            rowInputs_[i] = in;
            PortOf(row, engine_)->inputs[0] = in;
        } else if (row.kind == InputKind::Output) {
            output_ = AddOutput(row.label, row.id, decl_.TagsOf(row, pageNumbers));
            engine_->outputPort.inputs[0] = nullptr;
        }
    }
}

ToolOperator::~ToolOperator() {
    if (currentChunkJob == &job) currentChunkJob = nullptr;
    RemoveControlSlots(this);
    if (overlayState.drawing == overlay_) overlayState.drawing = nullptr;
    delete engine_;
}

void ToolOperator::StoreValue(const InputDecl& row, Parameter* param) {
    if (!row.binding || row.store == Store::None) return;
    InputBinding* b = row.binding(engine_);
    BindingValue& v = b->value;
    if (row.store == Store::Point) {
        if (param && param->GetType() == Parameter::Type::Point) {
            v.number[0] = static_cast<Point*>(param)->x;
            v.number[1] = static_cast<Point*>(param)->y;
        } else {
            v.number[0] = row.fallback;
            v.number[1] = row.fallbackY;
        }
        return;
    }
    const bool given = param && param->GetType() == Parameter::Type::Number;
    const double d = given ? static_cast<Number*>(param)->value : 0.0;
    switch (row.store) {
        case Store::Double:
            v.number[0] = given ? d : row.fallback;
            break;
        case Store::Int:
            v.whole = given ? TruncateToInt(d) : TruncateToInt(row.fallback);
            break;
        case Store::Index1: {
            int t = TruncateToInt(d);
            v.whole = given ? (t == INT32_MAX ? t : t + 1) : 1;
            break;
        }
        case Store::Flag:
            v.flag = given ? (d != 0.0) : 0;
            break;
        case Store::Sample:
            v.samples[row.channel & 3] = given ? SampleOf(d) : 0;
            break;
        default:
            break;
    }
}

void ToolOperator::Process(Request* request) {
    // 1-3: the dispatch record, the closing alpha step, and the times.
    currentChunkJob = &job;
    job.request = request;
    engine_->keepOutputAlpha = 1;
    TimeExtent extent(kNoTime, kNoTime, kNoTime);
    GetExtent(extent, nullptr);
    engine_->extentStart = extent.start;
    engine_->extentEnd = extent.end;
    engine_->time = request->GetTime();
    FusionDoc* doc = Document();
    engine_->globalStart = doc ? doc->globalStart : extent.start;
    engine_->globalEnd = doc ? doc->globalEnd : extent.end;

    // 4: the main image, which is also the model of the output.
    const InputDecl* mainRow = nullptr;
    Input* mainInput = nullptr;
    for (size_t i = 0; i < decl_.rowCount && !mainRow; ++i)
        if (decl_.rows[i].kind == InputKind::Image && decl_.rows[i].mainImage) {
            mainRow = &decl_.rows[i];
            mainInput = rowInputs_[i];
        }
    Image* model = nullptr;
    WorkImage* first = nullptr;
    if (mainRow) {
        model = static_cast<Image*>(request->GetInputData(mainInput, 0));
        first = ImportImage(model, nullptr, false, nullptr);
        PortOf(*mainRow, engine_)->image = first;
    }

    // 5: the further images, at the main image's size; a missing optional one is the main again.
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (row.kind != InputKind::Image || &row == mainRow) continue;
        ImagePort* port = PortOf(row, engine_);
        auto* image = static_cast<Image*>(request->GetInputData(rowInputs_[i], 0));
        if (image) {
            port->image = ImportImage(image, first, true, engine_);
            // A frame without the image named the main input here; this one has its own again.
            port->inputs[0] = rowInputs_[i];
        } else {
            port->image = ImportImage(model, first, true, nullptr);
            port->inputs[0] = mainInput;
        }
    }

    // 6: every other input, in the order of declaration.
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (IsConnector(row)) continue;
        StoreValue(row, request->GetInputData(rowInputs_[i], 0));
    }

    // 7-9: the output starts as a copy of the main image; then the render.
    engine_->outputPort.image = ImportImage(model, nullptr, false, nullptr);
    if (firstFrame) {
        engine_->FirstFrame();
        firstFrame = 0;
    }
    engine_->Render();

    // 10: the input images go.
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (row.kind != InputKind::Image) continue;
        ImagePort* port = PortOf(row, engine_);
        delete port->image;
        port->image = nullptr;
    }

    // 11-13: export, deliver unless aborted, and let the output work image go.
    Image* result = ExportImage(model, engine_->outputPort.image);
    if (result) {
        if (!IsAborting() && output_)
            request->SetOutputData(output_, result);
        else
            result->Recycle();
    }
    delete engine_->outputPort.image;
    engine_->outputPort.image = nullptr;
}

void ToolOperator::NotifyChanged(Input* input, Parameter* param, double time, TagList* tags) {
    // The views that show this input's controls redraw.
    if (IsControlInput(input)) {
        controlLock.ObtainReadLock();
        for (OperatorControl* c : controls)
            c->InputChanged(input);
        controlLock.ReleaseReadLock();
    }
    FusionDoc* doc = Document();
    // A change without a value, or one that arrives while the document is busy, goes no further:
    // not to the handlers and not to the base either.
    if (!param || (doc && doc->busy)) return;
    if (time != kNoTime) RefreshValues(time);
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        if (rowInputs_[i] != input) continue;
        const InputDecl& row = decl_.rows[i];
        if (!row.handler || !row.binding) break;
        InputBinding* b = row.binding(engine_);
        if (b->notifyGuard)
            b->notifyGuard = 0;
        else
            row.handler(engine_, time);
        break;
    }
    Operator::NotifyChanged(input, param, time, tags);
}

void ToolOperator::RefreshValues(double time) {
    if (time == kNoTime) return;
    for (size_t i = 0; i < decl_.rowCount; ++i) {
        const InputDecl& row = decl_.rows[i];
        if (IsConnector(row)) continue;
        StoreValue(row, rowInputs_[i]->GetSource(time));
    }
}

void ToolOperator::ProcessChunk(Request* request, long chunk) {
    (void)request;
    RunChunkOf(job, engine_, chunk);
}

ControlSlot* ToolOperator::NewSlot(std::initializer_list<const char*> inputIDs) {
    ControlSlot* slot = AddControlSlot(&controlSlots);
    slot->op = this;
    int k = 0;
    for (const char* id : inputIDs) {
        for (size_t i = 0; i < decl_.rowCount && k < 16; ++i) {
            if (std::string(decl_.rows[i].id) != id || !rowInputs_[i]) continue;
            slot->inputs[k] = rowInputs_[i];
            slot->bindings[k] = decl_.rows[i].binding ? decl_.rows[i].binding(engine_) : nullptr;
            break;
        }
        ++k;
    }
    return slot;
}

void ToolOperator::CopyView(PreviewInfo* info) {
    if (!overlay_ || !info) return;
    overlay_->viewWidth = info->imageWidth;
    overlay_->viewHeight = info->imageHeight;
    overlay_->viewScaleX = info->xScale != 0.0 ? info->xScale : 1.0;
    overlay_->viewScaleY = info->yScale != 0.0 ? info->yScale : 1.0;
    overlay_->zoom = overlay_->viewWidth > 0
                         ? info->windowWidth / overlay_->viewScaleX / overlay_->viewWidth
                         : 1.0;
}

void ToolOperator::AddControls(PreviewInfo* info, TagList* tags) {
    Operator::AddControls(info, tags);
    controlLock.ObtainLock();
    bool found = false;
    for (OperatorControl* c : controls)
        found = found || c->info == info;
    if (!found && ClassRegistry) {
        auto* c = static_cast<OperatorControl*>(
            ClassRegistry->New(FuID("OperatorControl"), kControlClass, Document()));
        if (c) {
            c->info = info;
            c->doc = Document();
            c->op = this;
            c->SetAttrs(kControlOperator, static_cast<const void*>(this));
            controls.push_back(c);
        }
    }
    controlLock.ReleaseLock();
    overlayState.dragArmed = false;
    overlayState.pressX = overlayState.pressY = 0.0;
}

void ToolOperator::GLDrawControls(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    RefreshValues(info ? info->time : kNoTime);
    overlayState.overlayInfo = info;
    CopyView(info);
    if (overlay_ && info && info->mode != 3) {
        BeginDrawing(info);
        overlayState.drawing = overlay_;
        overlay_->DrawControls();
        overlayState.drawing = nullptr;
        EndDrawing();
    }
    Operator::GLDrawControls(control, info, tags);
}

int ToolOperator::ControlDown(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    OverlayState& s = overlayState;
    s.overlayInfo = info;
    CopyView(info);
    s.pressure = 1.0;
    if (s.dragArmed) {
        s.pointerX = s.pressX;
        s.pointerY = s.pressY;
    } else {
        s.pointerX = s.pressX = info->pointerX;
        s.pointerY = s.pressY = info->pointerY;
    }
    const bool hit = SendEvent(overlay_);
    if (hit) s.capturedControl = control;
    int result = Operator::ControlDown(control, info, tags);
    if (hit) {
        if (!s.dragArmed) {
            s.dragArmed = true;
            return kControlWantsDrag;
        }
        s.dragArmed = false;
    }
    s.pressure = 0.0;
    SendEvent(overlay_);
    return result;
}

void ToolOperator::ControlMove(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    Operator::ControlMove(control, info, tags);
    OverlayState& s = overlayState;
    if (control != s.capturedControl) return;
    s.overlayInfo = info;
    CopyView(info);
    s.pointerX = info->pointerX;
    s.pointerY = info->pointerY;
    SendEvent(overlay_);
    if (control->redraw)
        GLDrawControls(control, info, nullptr);
    else
        SendEvent(overlay_);
}

void ToolOperator::ControlUp(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    OverlayState& s = overlayState;
    s.dragArmed = false;
    if (control != s.capturedControl) {
        Operator::ControlUp(control, info, tags);
        return;
    }
    s.overlayInfo = info;
    CopyView(info);
    s.pressure = 0.0;
    s.pointerX = info->pointerX;
    s.pointerY = info->pointerY;
    SendEvent(overlay_);
    GLDrawControls(control, info, nullptr);
    Operator::ControlUp(control, info, tags);
}

Input* ToolOperator::ControlCommand(OperatorControl* control, PreviewInfo* info,
                                    const FuID& command, TagList* tags) {
    if (command != "CCMD_GetInputAt" || !overlay_ || !info)
        return Operator::ControlCommand(control, info, command, tags);
    overlayState.overlayInfo = info;
    CopyView(info);
    overlayState.pointerX = info->pointerX;
    overlayState.pointerY = info->pointerY;
    SendEvent(overlay_);
    for (ScreenControl* c : overlay_->controls)
        if (c->hover) return c->InputOfHandle(c->hover);
    return Operator::ControlCommand(control, info, command, tags);
}
