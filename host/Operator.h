// Inputs, outputs, operators and requests: the part of the host that the tools are written against.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include "host/Object.h"
#include "host/Parameters.h"

class FusionDoc;
class Operator;
class Registry;
class Request;
class PreviewInfo;
class OperatorControl;

constexpr int kControlWantsDrag = 2;

struct ScriptVal {};

// How the value runs from a key to the next one.
enum class Interp { Linear, Smooth };

// One key of an animated input: a number (v[0]) or a point (v[0], v[1]).
struct Key {
    double time = 0.0;
    double v[2] = {0.0, 0.0};
    Interp interp = Interp::Linear;
};

class LockableObject {
  public:
    void ObtainLock() { mutex_.lock(); }
    void ReleaseLock() { mutex_.unlock(); }
    void ObtainReadLock() { mutex_.lock_shared(); }
    void ReleaseReadLock() { mutex_.unlock_shared(); }

  private:
    std::shared_mutex mutex_;
};

class TimeExtent {
  public:
    TimeExtent(double s, double e, double st) : start(s), end(e), step(st) {}
    double start, end, step;
};

// An input of an operator: a number, a point or an image connector. A number or point input holds a
// constant value or, once animated, a list of keys.
class Input : public Object {
  public:
    enum class DataType { Number, Point, Image };

    Input(Operator* owner, FuID name, FuID id, TagList attrs);

    const FuID& Name() const { return name_; }
    const FuID& ID() const { return id_; }
    Operator* Owner() const { return owner_; }
    DataType GetDataType() const { return type_; }
    bool IsAnimatable() const { return GetAttr(kInAnimatable, 1) != 0; }
    bool Notifies() const { return GetAttr(kInNotify, 0) != 0; }

    // The value at `time` as a parameter that the input keeps; valid until the next call.
    // Image inputs hold no value of their own and give null.
    virtual Parameter* GetSource(double time);
    // Writes a value. A time of -1.0 (or no time) sets the value as a whole and drops any
    // animation; another time adds or replaces a key on an animated input and sets the value of one
    // that is not. Numbers are held within the allowed range. A change reaches the operator's
    // NotifyChanged at once if the input asks for notifications.
    virtual bool SetSource(Parameter* param, double time, int = 0, int = 0);

    // The undo step of the document that the next writes belong to.
    void StartUndo(const char* name, TagList* tags);
    void EndUndo(bool keep, TagList* tags);

    // Host side: values and keys without notification, for loading a composition.
    void ValueAt(double time, double out[2]) const;
    void SetConstant(double x, double y = 0.0);
    void SetKeys(std::vector<Key> keys);
    bool IsAnimated() const { return !keys_.empty(); }
    const std::vector<Key>& Keys() const { return keys_; }
    double Clamp(double v) const;

    struct State {
        double constant[2];
        std::vector<Key> keys;
    };
    State Save() const { return {{constant_[0], constant_[1]}, keys_}; }
    void Restore(const State& s);

  private:
    Operator* owner_;
    FuID name_, id_;
    DataType type_;
    double constant_[2] = {0.0, 0.0};
    std::vector<Key> keys_;
    std::unique_ptr<Parameter> scratch_;
};

class Output : public Object {
  public:
    Output(Operator* owner, FuID name, FuID id, TagList attrs)
        : Object(std::move(attrs)), owner_(owner), name_(std::move(name)), id_(std::move(id)) {}
    const FuID& Name() const { return name_; }
    const FuID& ID() const { return id_; }
    Operator* Owner() const { return owner_; }

  private:
    Operator* owner_;
    FuID name_, id_;
};

class Operator : public Object {
  public:
    Operator(const Registry* reg, const ScriptVal& script, const TagList& tags);
    ~Operator() override;

    static bool RegInit(Registry* reg);
    static void RegCleanup(Registry* reg);

    int AddControlPage(const char* name, TagList tags = {});
    Input* AddInput(const char* name, const char* id, TagList tags);
    Output* AddOutput(const char* name, const char* id, TagList tags);

    virtual void Process(Request* request) { (void)request; }
    virtual void NotifyChanged(Input* input, Parameter* param, double time, TagList* tags);
    virtual bool GetExtent(TimeExtent& extent, TagList* tags);

    // The viewer's calls. AddControls registers a view; GLDrawControls draws the controls over it;
    // ControlDown, ControlMove and ControlUp carry a press, a drag and a release (ControlDown
    // answers kControlWantsDrag to ask for the drag); ControlCommand answers the view's questions
    // (the input under the pointer for "CCMD_GetInputAt").
    virtual void AddControls(PreviewInfo* info, TagList* tags);
    virtual void GLDrawControls(OperatorControl* control, PreviewInfo* info, TagList* tags);
    virtual int ControlDown(OperatorControl* control, PreviewInfo* info, TagList* tags);
    virtual void ControlMove(OperatorControl* control, PreviewInfo* info, TagList* tags);
    virtual void ControlUp(OperatorControl* control, PreviewInfo* info, TagList* tags);
    virtual Input* ControlCommand(OperatorControl* control, PreviewInfo* info, const FuID& command,
                                  TagList* tags);

    // The name of this instance (a flow's node name), used in undo step names.
    const std::string& InstanceName() const { return instanceName_; }
    void SetInstanceName(std::string name) { instanceName_ = std::move(name); }

    const Registry* Reg() const { return reg_; }
    FusionDoc* Document() const { return doc_; }
    void SetDocument(FusionDoc* doc) { doc_ = doc; }

    const std::vector<Input*>& Inputs() const { return inputs_; }
    const std::vector<Output*>& Outputs() const { return outputs_; }
    const std::vector<std::string>& Pages() const { return pages_; }
    // By ID first, then by name; exact text.
    Input* FindInput(const std::string& idOrName) const;
    Output* FindOutput(const std::string& idOrName) const;

    // The abort flag of the render in progress, and the interruption of the whole application.
    void SetAbort(bool on) { abort_.store(on, std::memory_order_relaxed); }
    bool IsAborting() const;

    LockableObject controlLock;
    std::vector<OperatorControl*> controls;

    // Changes that have reached the base NotifyChanged.
    long ChangesSeen() const { return changesSeen_.load(std::memory_order_relaxed); }

  private:
    const Registry* reg_;
    FusionDoc* doc_ = nullptr;
    std::string instanceName_;
    std::vector<std::string> pages_;
    std::vector<Input*> inputs_;
    std::vector<Output*> outputs_;
    std::atomic<bool> abort_{false};
    std::atomic<long> changesSeen_{0};
};

class ThreadedOperator : public Operator {
  public:
    static const FuID ClassID;
    ThreadedOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
        : Operator(reg, script, tags) {}

    // Calls ProcessChunk(request, chunk) for chunks 0 to count - 1 on the worker threads and
    // returns when all are done.
    bool DoMultiProcess(Request* request, long count);
    virtual void ProcessChunk(Request* request, long chunk) {
        (void)request;
        (void)chunk;
    }
    virtual void QuickProcessChunk(Request* request, long chunk) {
        (void)request;
        (void)chunk;
    }
};

// One render of one operator at one time: the images at its connectors, the values of its inputs
// at that time, and the results it delivers.
class Request {
  public:
    Request(Operator* op, double time) : op_(op), time_(time) {}
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    double GetTime() const { return time_; }
    Operator* GetOperator() const { return op_; }

    // The image at a connector, or the value of a number or point input at the request's time.
    // Null for an image input with nothing connected. Valid for the life of the request.
    Parameter* GetInputData(Input* input, int flags = 0);
    // Delivers a result; the request takes over the caller's reference.
    void SetOutputData(Output* output, Parameter* param);

    // Host side: connect an image for this render (the request takes a reference of its own), and
    // take a delivered result (the caller gets the reference).
    void SetInputImage(Input* input, Image* image);
    Parameter* TakeOutputData(Output* output);
    bool HasOutput(Output* output) const { return outputs_.count(output) != 0; }

  private:
    Operator* op_;
    double time_;
    std::map<Input*, Parameter*> inputs_;
    std::map<Output*, Parameter*> outputs_;
};
