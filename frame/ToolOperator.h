// The adapter between the host and a tool's engine. Each tool declares its inputs once, as a table
// of InputDecl rows in the order of declaration; the adapter builds the host inputs from the table,
// reads them into the engine's bindings at every render and runs the render cycle.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include "frame/InputBinding.h"
#include "frame/ScreenControl.h"
#include "frame/ToolEngine.h"
#include "host/Operator.h"

enum class InputKind { Slider, Screw, Checkbox, Combo, Colour, Offset, Button, Image, Output };

// How a value goes into the engine's binding.
enum class Store {
    Double,  // the double as it is
    Int,     // truncated toward zero
    Index1,  // truncated, plus one (combos kept 1-based)
    Flag,    // true when not 0.0
    Sample,  // a colour channel: value * 32767 truncated, a 16-bit sample
    Point,   // X and Y
    None,    // not read (image connectors, the output)
};

enum InputFlag : unsigned {
    kWhole = 1u << 0,     // a whole number
    kNotify = 1u << 1,    // changes reach NotifyChanged
    kFixed = 1u << 2,     // takes part in no animation
    kHidden = 1u << 3,    // starts hidden
    kOptional = 1u << 4,  // an image connector that need not be connected
};

using BindingAccess = InputBinding* (*)(ToolEngine*);
using PortAccess = ImagePort* (*)(ToolEngine*);
using ChangeHandler = void (*)(ToolEngine*, double time);

namespace detail {
template <class M>
struct MemberOf;
template <class C, class T>
struct MemberOf<T C::*> {
    using Class = C;
    using Type = T;
};
template <auto M>
InputBinding* BindingAt(ToolEngine* e) {
    using C = typename MemberOf<decltype(M)>::Class;
    return &(static_cast<C*>(e)->*M);
}
template <auto M>
ImagePort* PortAt(ToolEngine* e) {
    using C = typename MemberOf<decltype(M)>::Class;
    return &(static_cast<C*>(e)->*M);
}
template <auto H>
void HandlerAt(ToolEngine* e, double time) {
    using C = typename MemberOf<decltype(H)>::Class;
    (static_cast<C*>(e)->*H)(time);
}
}  // namespace detail

// One row of a tool's input table.
struct InputDecl {
    const char* id = "";
    const char* label = "";
    int page = -1;  // index into the tool's pages; -1 for connectors
    InputKind kind = InputKind::Slider;
    double def = 0.0, defY = 0.0;
    bool hasScale = false;
    double scaleMin = 0.0, scaleMax = 0.0;
    bool hasAllowed = false;
    double allowedMin = 0.0, allowedMax = 0.0;
    unsigned flags = 0;
    std::vector<const char*> entries;  // combo entries in order
    int colourGroup = 0, channel = 0;  // colours: group within the tool, channel 0..3
    Store store = Store::Double;
    double fallback = 0.0, fallbackY = 0.0;  // what the engine gets when a request gives nothing
    int connector = 0;                       // image connectors and the output, from 1
    bool mainImage = false;  // the image read first: the model and the output's first content
    BindingAccess binding = nullptr;
    PortAccess port = nullptr;
    ChangeHandler handler = nullptr;

    InputDecl& Scale(double lo, double hi) {
        hasScale = true;
        scaleMin = lo;
        scaleMax = hi;
        return *this;
    }
    InputDecl& Allowed(double lo, double hi) {
        hasAllowed = true;
        allowedMin = lo;
        allowedMax = hi;
        return *this;
    }
    InputDecl& Notify() { return Flags(kNotify); }
    InputDecl& Fixed() { return Flags(kFixed); }
    InputDecl& Hidden() { return Flags(kHidden); }
    InputDecl& Whole() { return Flags(kWhole); }
    InputDecl& Optional() { return Flags(kOptional); }
    InputDecl& Flags(unsigned f) {
        flags |= f;
        return *this;
    }
    InputDecl& StoreAs(Store s, double fb = 0.0) {
        store = s;
        fallback = fb;
        return *this;
    }
    InputDecl& Fallback(double fb, double fbY = 0.0) {
        fallback = fb;
        fallbackY = fbY;
        return *this;
    }
    // The engine member (an InputBinding) that receives the value.
    template <auto M>
    InputDecl& Bind() {
        binding = &detail::BindingAt<M>;
        return *this;
    }
    // The engine member (an ImagePort) that receives an image connector's work image.
    template <auto M>
    InputDecl& Port() {
        port = &detail::PortAt<M>;
        return *this;
    }
    // The engine's handler, run when the input changes and its binding's guard is clear.
    template <auto H>
    InputDecl& OnChange() {
        handler = &detail::HandlerAt<H>;
        return *this;
    }
};

// Row makers. Sliders, screws and offsets keep doubles; checkboxes flags; combos their index.
InputDecl Slider(const char* id, const char* label, int page, double def, double lo, double hi);
InputDecl Screw(const char* id, const char* label, int page, double def);
InputDecl Checkbox(const char* id, const char* label, int page, double def);
InputDecl Combo(const char* id, const char* label, int page, double def,
                std::vector<const char*> entries);
InputDecl Button(const char* id, const char* label, int page);
InputDecl Offset(const char* id, const char* label, int page, double x, double y);
// One channel (0 red .. 3 alpha) of colour group `group`; alpha starts hidden.
InputDecl ColourChannel(const char* id, const char* label, int page, int group, int channel,
                        double def);
InputDecl ImageIn(const char* id, const char* label, int connector);
InputDecl ImageOut(const char* id, const char* label, int connector);

// A tool's declaration: its pages in order and its input table.
struct ToolDecl {
    std::vector<const char*> pages;
    const InputDecl* rows;
    size_t rowCount;

    // The attribute list that a row gives to AddInput.
    TagList TagsOf(const InputDecl& row, const std::vector<int>& pageNumbers) const;
};

class ToolOperator : public ThreadedOperator {
  public:
    ToolOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                 ToolEngine* engine, ToolOverlay* overlay, const ToolDecl& decl);
    ~ToolOperator() override;

    void Process(Request* request) override;
    void NotifyChanged(Input* input, Parameter* param, double time, TagList* tags) override;
    void ProcessChunk(Request* request, long chunk) override;

    // The viewer's calls, carried to the engine's on-screen controls.
    void AddControls(PreviewInfo* info, TagList* tags) override;
    void GLDrawControls(OperatorControl* control, PreviewInfo* info, TagList* tags) override;
    int ControlDown(OperatorControl* control, PreviewInfo* info, TagList* tags) override;
    void ControlMove(OperatorControl* control, PreviewInfo* info, TagList* tags) override;
    void ControlUp(OperatorControl* control, PreviewInfo* info, TagList* tags) override;
    Input* ControlCommand(OperatorControl* control, PreviewInfo* info, const FuID& command,
                          TagList* tags) override;

    // Adds an on-screen control of the engine, tied to the inputs of the given rows of the table
    // (in order), and lists it in the library-wide slots. The engine owns the control.
    template <class C>
    C* AddScreenControl(std::initializer_list<const char*> inputIDs) {
        ControlSlot* slot = NewSlot(inputIDs);
        C* control = new C(overlay_, slot);
        overlay_->controls.push_back(control);
        return control;
    }

    // Re-reads the values of every number and point input at `time` into the engine.
    void RefreshValues(double time);

    ToolEngine* Engine() const { return engine_; }
    ToolOverlay* Overlay() const { return overlay_; }
    const ToolDecl& Decl() const { return decl_; }
    // The host input made from row `i` of the table (null for the output row).
    Input* RowInput(size_t i) const { return rowInputs_[i]; }
    Output* MainOutput() const { return output_; }

    ChunkJob job;
    uint8_t firstFrame = 1;

  private:
    ControlSlot* NewSlot(std::initializer_list<const char*> inputIDs);
    void CopyView(PreviewInfo* info);
    void StoreValue(const InputDecl& row, Parameter* param);

    ToolEngine* engine_;
    ToolOverlay* overlay_;
    const ToolDecl& decl_;
    std::vector<Input*> rowInputs_;
    Output* output_ = nullptr;
};

// The factory of a tool class: makes the engine E and its adapter A.
template <class A>
Operator* MakeTool(const Registry* reg, const ScriptVal& script, const TagList& tags) {
    return new A(reg, script, tags);
}
