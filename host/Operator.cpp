#include "host/Operator.h"

#include <algorithm>
#include <cmath>

#include "host/App.h"
#include "host/Document.h"
#include "host/Preview.h"
#include "host/Registry.h"

const FuID ThreadedOperator::ClassID("ThreadedOperator");

namespace {

Input::DataType TypeOf(const TagList& attrs) {
    FuID t = attrs.GetID(kInDataType);
    if (t == "Point") return Input::DataType::Point;
    if (t == "Image") return Input::DataType::Image;
    return Input::DataType::Number;
}

// Catmull-Rom slope at key i, in value per frame; the first and last keys ease with a slope of 0.
double SlopeAt(const std::vector<Key>& keys, size_t i, int c) {
    if (i == 0 || i + 1 >= keys.size()) return 0.0;
    double dt = keys[i + 1].time - keys[i - 1].time;
    if (dt <= 0.0) return 0.0;
    return (keys[i + 1].v[c] - keys[i - 1].v[c]) / dt;
}

}  // namespace

Input::Input(Operator* owner, FuID name, FuID id, TagList attrs)
    : Object(std::move(attrs)),
      owner_(owner),
      name_(std::move(name)),
      id_(std::move(id)),
      type_(TypeOf(attrs_)) {
    if (type_ == DataType::Point) {
        constant_[0] = GetAttrD(kInDefaultX, 0.5);
        constant_[1] = GetAttrD(kInDefaultY, 0.5);
    } else {
        constant_[0] = GetAttrD(kInDefault, 0.0);
    }
}

double Input::Clamp(double v) const {
    if (type_ != DataType::Number || std::isnan(v)) return v;
    if (attrs_.Has(kInAllowedMin)) v = std::max(v, GetAttrD(kInAllowedMin));
    if (attrs_.Has(kInAllowedMax)) v = std::min(v, GetAttrD(kInAllowedMax));
    return v;
}

void Input::ValueAt(double time, double out[2]) const {
    out[0] = constant_[0];
    out[1] = constant_[1];
    if (keys_.empty()) return;
    if (time <= keys_.front().time) {
        out[0] = keys_.front().v[0];
        out[1] = keys_.front().v[1];
        return;
    }
    if (time >= keys_.back().time) {
        out[0] = keys_.back().v[0];
        out[1] = keys_.back().v[1];
        return;
    }
    size_t i = 0;
    while (i + 1 < keys_.size() && keys_[i + 1].time <= time)
        ++i;
    const Key& a = keys_[i];
    const Key& b = keys_[i + 1];
    double span = b.time - a.time;
    double u = (time - a.time) / span;
    for (int c = 0; c < 2; ++c) {
        if (a.interp == Interp::Linear) {
            out[c] = a.v[c] + (b.v[c] - a.v[c]) * u;
        } else {
            // Cubic Hermite between the two keys with Catmull-Rom slopes.
            double m0 = SlopeAt(keys_, i, c) * span;
            double m1 = SlopeAt(keys_, i + 1, c) * span;
            double u2 = u * u, u3 = u2 * u;
            out[c] = (2 * u3 - 3 * u2 + 1) * a.v[c] + (u3 - 2 * u2 + u) * m0 +
                     (-2 * u3 + 3 * u2) * b.v[c] + (u3 - u2) * m1;
        }
    }
}

Parameter* Input::GetSource(double time) {
    if (type_ == DataType::Image) return nullptr;
    double v[2];
    ValueAt(time, v);
    if (type_ == DataType::Point) {
        if (!scratch_ || scratch_->GetType() != Parameter::Type::Point) scratch_.reset(new Point());
        auto* p = static_cast<Point*>(scratch_.get());
        p->x = v[0];
        p->y = v[1];
    } else {
        if (!scratch_ || scratch_->GetType() != Parameter::Type::Number)
            scratch_.reset(new Number());
        static_cast<Number*>(scratch_.get())->value = v[0];
    }
    return scratch_.get();
}

void Input::SetConstant(double x, double y) {
    keys_.clear();
    constant_[0] = Clamp(x);
    constant_[1] = y;
}

void Input::SetKeys(std::vector<Key> keys) {
    std::sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) { return a.time < b.time; });
    for (auto& k : keys)
        k.v[0] = Clamp(k.v[0]);
    keys_ = std::move(keys);
}

void Input::Restore(const State& s) {
    constant_[0] = s.constant[0];
    constant_[1] = s.constant[1];
    keys_ = s.keys;
}

bool Input::SetSource(Parameter* param, double time, int, int) {
    if (!param || type_ == DataType::Image) return false;
    double v[2] = {0.0, 0.0};
    if (param->GetType() == Parameter::Type::Point) {
        auto* p = static_cast<Point*>(param);
        v[0] = p->x;
        v[1] = p->y;
    } else if (param->GetType() == Parameter::Type::Number) {
        v[0] = static_cast<Number*>(param)->value;
    } else {
        return false;
    }
    v[0] = Clamp(v[0]);
    FusionDoc* doc = owner_ ? owner_->Document() : nullptr;
    if (doc) doc->RecordBefore(this);

    bool whole = time == kWholeValue || time == kNoTime;
    if (whole || keys_.empty() || !IsAnimatable()) {
        keys_.clear();
        constant_[0] = v[0];
        constant_[1] = v[1];
    } else {
        auto it =
            std::find_if(keys_.begin(), keys_.end(), [&](const Key& k) { return k.time >= time; });
        if (it != keys_.end() && it->time == time) {
            it->v[0] = v[0];
            it->v[1] = v[1];
        } else {
            Key k;
            k.time = time;
            k.v[0] = v[0];
            k.v[1] = v[1];
            k.interp = it != keys_.begin() ? (it - 1)->interp : it->interp;
            keys_.insert(it, k);
        }
    }
    if (doc) doc->RecordAfter(this);

    if (Notifies() && owner_) {
        double when = whole ? (doc ? doc->currentTime : kNoTime) : time;
        owner_->NotifyChanged(this, param, when, nullptr);
    }
    return true;
}

void Input::StartUndo(const char* name, TagList* tags) {
    (void)tags;
    if (owner_ && owner_->Document()) owner_->Document()->StartUndo(name ? name : "Unknown");
}

void Input::EndUndo(bool keep, TagList* tags) {
    (void)tags;
    if (owner_ && owner_->Document()) owner_->Document()->EndUndo(keep);
}

Operator::Operator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : Object(tags), reg_(reg) {
    (void)script;
}

Operator::~Operator() {
    for (OperatorControl* c : controls)
        c->Recycle();
    for (Input* in : inputs_)
        delete in;
    for (Output* out : outputs_)
        delete out;
}

bool Operator::RegInit(Registry* reg) {
    return reg != nullptr;
}
void Operator::RegCleanup(Registry* reg) {
    (void)reg;
}

int Operator::AddControlPage(const char* name, TagList tags) {
    (void)tags;
    pages_.push_back(name ? name : "");
    return static_cast<int>(pages_.size()) - 1;
}

Input* Operator::AddInput(const char* name, const char* id, TagList tags) {
    auto* in = new Input(this, FuID(name), FuID(id), std::move(tags));
    inputs_.push_back(in);
    return in;
}

Output* Operator::AddOutput(const char* name, const char* id, TagList tags) {
    auto* out = new Output(this, FuID(name), FuID(id), std::move(tags));
    outputs_.push_back(out);
    return out;
}

void Operator::NotifyChanged(Input* input, Parameter* param, double time, TagList* tags) {
    changesSeen_.fetch_add(1, std::memory_order_relaxed);
    (void)input;
    (void)param;
    (void)time;
    (void)tags;
}

void Operator::AddControls(PreviewInfo* info, TagList* tags) {
    (void)info;
    (void)tags;
}

void Operator::GLDrawControls(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    (void)control;
    (void)info;
    (void)tags;
}

int Operator::ControlDown(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    (void)control;
    (void)info;
    (void)tags;
    return 0;
}

void Operator::ControlMove(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    (void)control;
    (void)info;
    (void)tags;
}

void Operator::ControlUp(OperatorControl* control, PreviewInfo* info, TagList* tags) {
    (void)control;
    (void)info;
    (void)tags;
}

Input* Operator::ControlCommand(OperatorControl* control, PreviewInfo* info, const FuID& command,
                                TagList* tags) {
    (void)control;
    (void)info;
    (void)command;
    (void)tags;
    return nullptr;
}

bool Operator::GetExtent(TimeExtent& extent, TagList* tags) {
    (void)tags;
    if (doc_) {
        extent.start = doc_->globalStart;
        extent.end = doc_->globalEnd;
        extent.step = 1.0;
    }
    return true;
}

Input* Operator::FindInput(const std::string& idOrName) const {
    for (Input* in : inputs_)
        if (in->ID() == idOrName.c_str()) return in;
    for (Input* in : inputs_)
        if (in->Name() == idOrName.c_str()) return in;
    return nullptr;
}

Output* Operator::FindOutput(const std::string& idOrName) const {
    for (Output* out : outputs_)
        if (out->ID() == idOrName.c_str() || out->Name() == idOrName.c_str()) return out;
    return nullptr;
}

bool Operator::IsAborting() const {
    return abort_.load(std::memory_order_relaxed) ||
           GetApp()->interrupted.load(std::memory_order_relaxed);
}

bool ThreadedOperator::DoMultiProcess(Request* request, long count) {
    GetApp()->RunChunks(count, [&](long chunk) { ProcessChunk(request, chunk); });
    return true;
}

Request::~Request() {
    for (auto& entry : inputs_)
        if (entry.second) entry.second->Recycle();
    for (auto& entry : outputs_)
        if (entry.second) entry.second->Recycle();
}

Parameter* Request::GetInputData(Input* input, int flags) {
    (void)flags;
    if (!input) return nullptr;
    auto it = inputs_.find(input);
    if (it != inputs_.end()) return it->second;
    if (input->GetDataType() == Input::DataType::Image) return nullptr;
    double v[2];
    input->ValueAt(time_, v);
    Parameter* p = input->GetDataType() == Input::DataType::Point
                       ? static_cast<Parameter*>(new Point(v[0], v[1]))
                       : static_cast<Parameter*>(new Number(v[0]));
    inputs_[input] = p;
    return p;
}

void Request::SetOutputData(Output* output, Parameter* param) {
    auto it = outputs_.find(output);
    if (it != outputs_.end() && it->second) it->second->Recycle();
    outputs_[output] = param;
}

void Request::SetInputImage(Input* input, Image* image) {
    auto it = inputs_.find(input);
    if (it != inputs_.end() && it->second) it->second->Recycle();
    if (image) image->Use();
    inputs_[input] = image;
}

Parameter* Request::TakeOutputData(Output* output) {
    auto it = outputs_.find(output);
    if (it == outputs_.end()) return nullptr;
    Parameter* p = it->second;
    outputs_.erase(it);
    return p;
}
