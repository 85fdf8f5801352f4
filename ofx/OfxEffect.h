// One tool of the pack as an OpenFX image effect: its description from the tool's own input table,
// and an instance that holds a document of our host with one operator of the tool, keeps the
// effect's parameters and the operator's inputs in step, renders through the same render cycle as
// the command line, and carries the overlay's pen events to the tool's on-screen controls.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/Document.h"
#include "host/Preview.h"
#include "ofx/api/OfxApi.h"

class ToolOperator;
struct ToolClassRow;

namespace ofx {

// The suites the host gave at load; null until then.
struct Suites {
    const OfxPropertySuiteV1* prop = nullptr;
    const OfxImageEffectSuiteV1* effect = nullptr;
    const OfxParameterSuiteV1* param = nullptr;
    const OfxInteractSuiteV1* interact = nullptr;
};
Suites& HostSuites();

// Every action runs under this lock: the host's tool state (the chunk job, the control slots, the
// drag state) is shared by the whole library.
std::mutex& BundleLock();

// How an input of the tool appears among the effect's parameters.
struct ParamMap {
    enum class Kind { Double, Integer, Angle, Boolean, Choice, Colour, Point, Button };
    std::string name;  // the parameter's name: the input's ID (a colour: its red ID less R)
    Kind kind = Kind::Double;
    std::vector<Input*> inputs;  // one, or a colour's four channels in order
};

// The tool's parameters and clips, read from an operator of the tool.
struct EffectLayout {
    std::vector<ParamMap> params;
    std::vector<std::string> pages;
    std::vector<std::vector<size_t>> pageParams;  // per page, indices into params
    struct Clip {
        std::string name;  // "Source" for the main image, else the connector's ID made safe
        std::string label;
        bool optional = false;
        Input* input = nullptr;
    };
    std::vector<Clip> clips;
};
EffectLayout LayoutOf(ToolOperator* op);

// Whether the tool keeps state between renders, so that frames must come in order.
bool KeepsState(const ToolClassRow& row);

OfxStatus Describe(const ToolClassRow& row, OfxImageEffectHandle effect);
OfxStatus DescribeInContext(const ToolClassRow& row, OfxImageEffectHandle effect);

class Instance {
  public:
    Instance(const ToolClassRow& row, OfxImageEffectHandle effect);
    ~Instance();

    // `hold` is the bundle's lock, let go between the frames of a stateful tool's warm-up.
    OfxStatus Render(OfxPropertySetHandle inArgs, std::unique_lock<std::mutex>& hold);
    OfxStatus Changed(OfxPropertySetHandle inArgs);
    OfxStatus FramesNeeded(OfxPropertySetHandle inArgs, OfxPropertySetHandle outArgs);
    OfxStatus RegionsOfInterest(OfxPropertySetHandle inArgs, OfxPropertySetHandle outArgs);

    // The overlay.
    OfxStatus Draw(OfxPropertySetHandle inArgs);
    OfxStatus Pen(const std::string& action, OfxPropertySetHandle inArgs);
    // The line work of the last draw, in image pixels (y up): what went to OpenGL.
    const std::vector<LineWork>& LastLines() const { return lastLines_; }

  private:
    void MakeOperator();
    // Reads every parameter at `time` into the operator's inputs, without notifications.
    void ReadParams(double time);
    // Writes inputs the tool changed back to the parameters; then shows and hides parameters as
    // the tool's rules have left its inputs.
    void WriteBack(const std::vector<Input::State>& before);
    void ShowStates();
    OfxStatus RenderOne(double time, bool deliver, OfxPropertySetHandle outImage);
    // A view of the operator's controls for the overlay, made on first use.
    PreviewInfo* View(int width, int height, double zoom, double time);
    ParamMap* FindParam(const std::string& name);
    OfxParamHandle Handle(const ParamMap& p);

    const ToolClassRow& row_;
    OfxImageEffectHandle effect_;
    std::unique_ptr<FusionDoc> doc_;
    ToolOperator* op_ = nullptr;
    EffectLayout layout_;
    bool keepsState_ = false;
    double lastFrame_ = 0.0;
    bool rendered_ = false;
    double pixelAspect_ = 1.0;
    int width_ = 0, height_ = 0;
    int originX_ = 0, originY_ = 0;  // the source's lower left pixel
    std::unique_ptr<PreviewInfo> view_;
    OperatorControl* control_ = nullptr;
    bool dragging_ = false;
    std::vector<Input::State> dragBefore_;
    std::vector<LineWork> lastLines_;
};

}  // namespace ofx
