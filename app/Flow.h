// Flow files: a JSON description of nodes (tools, loaders, generated backgrounds, savers), the
// wires between them, the values of the tools' inputs, and a global frame range. A flow renders its
// frames in time order through one set of tool instances, as an interactive session would.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Patterns.h"
#include "host/Document.h"
#include "host/Parameters.h"

class ToolOperator;

class Flow {
  public:
    // Reads and checks a flow file. Malformed JSON is reported with its line and column; every
    // other fault names the node and the input or value. Throws AppError.
    static std::unique_ptr<Flow> Load(const std::string& path);
    // The same from a parsed document; `origin` names it in messages.
    static std::unique_ptr<Flow> FromJson(const nlohmann::json& flow, const std::string& origin);

    ~Flow();

    double Start() const { return doc_.globalStart; }
    double End() const { return doc_.globalEnd; }

    // Renders frames first..last in order, each through every saver. Frames written before a
    // failure stay written. `progress(done, total)` is called after each frame. Throws AppError,
    // or Interrupted when the render is interrupted.
    void Render(int first, int last, const std::function<void(int, int)>& progress = nullptr);

    // Renders frames first..last and writes nothing: brings stateful tools to `last`.
    void Advance(int first, int last);

    // Files written so far, in order.
    const std::vector<std::string>& Written() const { return written_; }

    FusionDoc& Document() { return doc_; }
    // The operator of a tool node, or null.
    ToolOperator* ToolOf(const std::string& node) const;

    // Interactive use. The nodes in order: name, type, kind ("Loader", "Background", "Saver" or
    // "Tool") and the wires into each (image input ID -> node name; a Saver's is "Input").
    struct NodeView {
        std::string name, type, kind;
        std::vector<std::pair<std::string, std::string>> wires;
        ToolOperator* tool = nullptr;
    };
    std::vector<NodeView> Nodes() const;
    // The picture of one node at one frame, as a render of that frame would make it (a Saver shows
    // its input). Buttons and presets due by then are carried out first. Gives the caller a
    // reference. Throws AppError, or Interrupted when the render was aborted.
    Image* RenderNode(const std::string& name, int frame);
    // The flow as it now stands: the file it was read from with every tool's current values
    // (constants and keys) in place of its "inputs", and without its first preset, which those
    // values already hold.
    nlohmann::json ToJson() const;

  private:
    struct Ref {
        size_t node = 0;
    };
    struct Node {
        enum class Kind { Loader, Background, Saver, Tool };
        std::string name;
        std::string type;
        Kind kind = Kind::Tool;
        // Loader and saver
        std::string path;
        int offset = 0;
        HostRef<Image> still;
        // Background
        PatternSpec pattern;
        HostRef<Image> generated;
        // Saver
        Ref input;
        bool overlay = false;  // draw the on-screen controls of the tool that feeds it
        double overlayZoom = 1.0;
        // Tool
        ToolOperator* tool = nullptr;
        std::vector<std::pair<Input*, Ref>> wires;
        // Buttons pressed and presets chosen before a frame renders.
        struct Action {
            int frame = 0;
            Input* input = nullptr;
            double value = 1.0;
            bool button = true;
            bool done = false;
        };
        std::vector<Action> actions;
        // The image of the frame in progress.
        double memoTime = -1e300;
        HostRef<Image> memo;
    };

    explicit Flow(std::string origin) : origin_(std::move(origin)) {}
    void Build(const nlohmann::json& flow);
    void BuildNode(Node& node, const nlohmann::json& body);
    void BuildTool(Node& node, const nlohmann::json& body);
    void Wire(Node& node, const nlohmann::json& body);
    void SetInputValue(Node& node, const std::string& key, const nlohmann::json& value);
    void ApplyPreset(Node& node, const std::string& entry, const std::string& inputName);
    Input* PresetInput(Node& node, const std::string& inputName, const std::string& entry,
                       double* value);
    void ReadActions(Node& node, const nlohmann::json& body);
    void RunActions(int frame);
    Ref Resolve(const Node& from, const std::string& what, const nlohmann::json& ref) const;
    void CheckOutputs(int first, int last);
    void CheckFrameOutputs(int frame) const;
    void RenderFrame(int frame, bool write);
    Image* Evaluate(size_t index, double time);  // gives a reference to the caller
    std::string Where(const Node& node) const;

    std::string origin_;
    nlohmann::json source_;
    FusionDoc doc_;
    std::vector<std::unique_ptr<Node>> nodes_;
    std::vector<std::string> written_;
    // The range the output paths are checked for, and the last frame checked before the render.
    static constexpr int kFramesCheckedFirst = 10000;
    int checkFirst_ = 0, checkLast_ = -1, checkedUntil_ = 0;
};

// The inputs of a tool that `key` names: an ID, else a label (a colour's label names its channels).
std::vector<Input*> FindToolInputs(Operator* op, const std::string& key);
// Converts a JSON value to the number or point `in` holds, checking it as the host's controls would
// (combo entries by text or index, checkboxes 0 or 1, whole numbers, allowed ranges). Throws
// AppError starting with `where`.
void InputValueFromJson(const Input* in, const nlohmann::json& v, double out[2],
                        const std::string& where);
// The value of a number or point input as a flow file writes it: a number, [x, y], or
// {"keys": [...]} when animated.
nlohmann::json InputValueToJson(const Input* in);

// Replaces the run of '#' in `pattern` with the frame number, zero-padded to the run's length.
// A pattern without '#' is returned as it is.
std::string FramePath(const std::string& pattern, int frame);
bool HasFrameRun(const std::string& pattern);
// Whether the canonical `path` is what `pattern` (canonicalised here) gives for some frame from
// lo to hi; the cost does not depend on the length of the range.
bool PatternProduces(const std::string& pattern, const std::string& path, int64_t lo, int64_t hi);
