#include "ofx/OfxEffect.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "frame/ScreenControl.h"
#include "frame/ToolOperator.h"
#include "host/App.h"
#include "host/Parameters.h"
#include "host/Registration.h"
#include "host/Registry.h"
#include "host/ToolTraits.h"

namespace ofx {

Suites& HostSuites() {
    static Suites suites;
    return suites;
}

std::mutex& BundleLock() {
    static std::mutex lock;
    return lock;
}

namespace {

const OfxPropertySuiteV1& Props() {
    return *HostSuites().prop;
}

void SetString(OfxPropertySetHandle p, const char* name, const std::string& v, int i = 0) {
    Props().propSetString(p, name, i, v.c_str());
}
void SetInt(OfxPropertySetHandle p, const char* name, int v, int i = 0) {
    Props().propSetInt(p, name, i, v);
}
void SetDouble(OfxPropertySetHandle p, const char* name, double v, int i = 0) {
    Props().propSetDouble(p, name, i, v);
}
std::string GetString(OfxPropertySetHandle p, const char* name, int i = 0) {
    char* v = nullptr;
    if (Props().propGetString(p, name, i, &v) != kOfxStatOK || !v) return std::string();
    return v;
}
int GetInt(OfxPropertySetHandle p, const char* name, int i = 0, int fallback = 0) {
    int v = fallback;
    if (Props().propGetInt(p, name, i, &v) != kOfxStatOK) return fallback;
    return v;
}
double GetDouble(OfxPropertySetHandle p, const char* name, int i = 0, double fallback = 0.0) {
    double v = fallback;
    if (Props().propGetDouble(p, name, i, &v) != kOfxStatOK) return fallback;
    return v;
}

std::string PlainName(const ToolClassRow& row) {
    return std::string(row.name).substr(2);
}

// The grouping of the effect menu: the registration's category, its levels split by '/'.
std::string Grouping() {
    std::string g = kCategory;
    std::replace(g.begin(), g.end(), '\\', '/');
    return g;
}

// Clip names keep to letters, digits and underscores.
std::string ClipName(const std::string& id) {
    std::string n = id;
    for (char& c : n)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return n;
}

// An operator of the tool in a document of its own, for reading the table.
struct Scratch {
    FusionDoc doc;
    ToolOperator* op = nullptr;
    explicit Scratch(const ToolClassRow& row) {
        doc.busy = 1;
        op = dynamic_cast<ToolOperator*>(doc.AddTool(row.name));
    }
};

// 16-bit samples from the float images some hosts hand over: 0..1 clipped, to the nearest step.
uint16_t FromFloat(float v) {
    if (!(v > 0.0f)) return 0;
    if (v >= 1.0f) return 65535;
    return static_cast<uint16_t>(std::floor(static_cast<double>(v) * 65535.0 + 0.5));
}

struct ImageView {
    OfxPropertySetHandle handle = nullptr;
    char* data = nullptr;
    OfxRectI bounds{0, 0, 0, 0};
    int rowBytes = 0;
    bool isFloat = false;
    double aspect = 1.0;
    bool ok = false;

    explicit ImageView(OfxPropertySetHandle h) : handle(h) {
        if (!h) return;
        void* p = nullptr;
        Props().propGetPointer(h, kImagePropData, 0, &p);
        data = static_cast<char*>(p);
        int b[4] = {0, 0, 0, 0};
        Props().propGetIntN(h, kImagePropBounds, 4, b);
        bounds = {b[0], b[1], b[2], b[3]};
        rowBytes = GetInt(h, kImagePropRowBytes);
        isFloat = GetString(h, kImageEffectPropPixelDepth) == kBitDepthFloat;
        aspect = GetDouble(h, kImagePropPixelAspectRatio, 0, 1.0);
        ok = data && bounds.x2 > bounds.x1 && bounds.y2 > bounds.y1 &&
             GetString(h, kImageEffectPropComponents) == kImageComponentRGBA;
    }
    int Width() const { return bounds.x2 - bounds.x1; }
    int Height() const { return bounds.y2 - bounds.y1; }
    char* Row(int y) const { return data + static_cast<ptrdiff_t>(y - bounds.y1) * rowBytes; }
};

// The host image of a clip's image: same pixels, bottom row first as both sides count rows.
Image* ToHostImage(const ImageView& v) {
    Image* image = GetApp()->Images().Take(v.Width(), v.Height());
    image->xScale = v.aspect > 0.0 ? v.aspect : 1.0;
    image->yScale = 1.0;
    for (int y = 0; y < v.Height(); ++y) {
        uint16_t* d = image->Row(y);
        const char* s = v.Row(v.bounds.y1 + y);
        const size_t n = static_cast<size_t>(v.Width()) * 4;
        if (v.isFloat) {
            const auto* f = reinterpret_cast<const float*>(s);
            for (size_t i = 0; i < n; ++i)
                d[i] = FromFloat(f[i]);
        } else {
            std::memcpy(d, s, n * sizeof(uint16_t));
        }
    }
    return image;
}

// OpenGL, found at run time in the application that loaded us; absent in hosts without a view.
struct Gl {
    void (*color4ub)(unsigned char, unsigned char, unsigned char, unsigned char) = nullptr;
    void (*begin)(unsigned) = nullptr;
    void (*end)() = nullptr;
    void (*vertex2d)(double, double) = nullptr;
    Gl() {
        color4ub = reinterpret_cast<decltype(color4ub)>(dlsym(RTLD_DEFAULT, "glColor4ub"));
        begin = reinterpret_cast<decltype(begin)>(dlsym(RTLD_DEFAULT, "glBegin"));
        end = reinterpret_cast<decltype(end)>(dlsym(RTLD_DEFAULT, "glEnd"));
        vertex2d = reinterpret_cast<decltype(vertex2d)>(dlsym(RTLD_DEFAULT, "glVertex2d"));
    }
    bool Ready() const { return color4ub && begin && end && vertex2d; }
};

}  // namespace

EffectLayout LayoutOf(ToolOperator* op) {
    EffectLayout layout;
    const ToolDecl& decl = op->Decl();
    for (const char* page : decl.pages)
        layout.pages.push_back(page);
    layout.pageParams.resize(layout.pages.size());
    for (size_t i = 0; i < decl.rowCount; ++i) {
        const InputDecl& row = decl.rows[i];
        Input* in = op->RowInput(i);
        if (row.kind == InputKind::Output || !in) continue;
        if (row.kind == InputKind::Image) {
            EffectLayout::Clip clip;
            clip.name = row.mainImage ? kImageEffectSimpleSourceClipName : ClipName(row.id);
            clip.label = row.label;
            clip.optional = (row.flags & kOptional) != 0;
            clip.input = in;
            layout.clips.push_back(clip);
            continue;
        }
        if (row.kind == InputKind::Colour && row.channel != 0) {
            // The other channels join the colour their red channel opened.
            for (auto& p : layout.params)
                if (p.kind == ParamMap::Kind::Colour &&
                    p.inputs.front()->GetAttr(kInColourGroup) == row.colourGroup)
                    p.inputs.push_back(in);
            continue;
        }
        ParamMap p;
        p.name = row.id;
        p.inputs.push_back(in);
        switch (row.kind) {
            case InputKind::Slider:
                p.kind = (row.flags & kWhole) ? ParamMap::Kind::Integer : ParamMap::Kind::Double;
                break;
            case InputKind::Screw:
                p.kind = ParamMap::Kind::Angle;
                break;
            case InputKind::Checkbox:
                p.kind = ParamMap::Kind::Boolean;
                break;
            case InputKind::Combo:
                p.kind = ParamMap::Kind::Choice;
                break;
            case InputKind::Colour:
                p.kind = ParamMap::Kind::Colour;
                if (p.name.size() > 1 && p.name.back() == 'R') p.name.pop_back();
                break;
            case InputKind::Offset:
                p.kind = ParamMap::Kind::Point;
                break;
            case InputKind::Button:
                p.kind = ParamMap::Kind::Button;
                break;
            default:
                continue;
        }
        if (row.page >= 0 && static_cast<size_t>(row.page) < layout.pageParams.size())
            layout.pageParams[row.page].push_back(layout.params.size());
        layout.params.push_back(p);
    }
    // The main image comes first among the clips.
    std::stable_partition(layout.clips.begin(), layout.clips.end(),
                          [](const auto& c) { return c.name == kImageEffectSimpleSourceClipName; });
    return layout;
}

bool KeepsState(const ToolClassRow& row) {
    return ToolKeepsState(row.name);
}

OfxStatus Describe(const ToolClassRow& row, OfxImageEffectHandle effect) {
    OfxPropertySetHandle p = nullptr;
    if (HostSuites().effect->getPropertySet(effect, &p) != kOfxStatOK) return kOfxStatErrFatal;
    SetString(p, kPropLabel, PlainName(row));
    SetString(p, kPropShortLabel, PlainName(row));
    SetString(p, kPropLongLabel, PlainName(row));
    SetString(p, kPropPluginDescription, row.description);
    SetString(p, kImageEffectPluginPropGrouping, Grouping());
    SetString(p, kImageEffectPropSupportedContexts, kImageEffectContextFilter, 0);
    SetString(p, kImageEffectPropSupportedContexts, kImageEffectContextGeneral, 1);
    SetString(p, kImageEffectPropSupportedPixelDepths, kBitDepthShort, 0);
    SetString(p, kImageEffectPropSupportedPixelDepths, kBitDepthFloat, 1);
    SetInt(p, kImageEffectPluginPropSingleInstance, 0);
    SetString(p, kImageEffectPluginRenderThreadSafety, kImageEffectRenderInstanceSafe);
    SetInt(p, kImageEffectPluginPropHostFrameThreading, 0);
    SetInt(p, kImageEffectPropSupportsMultipleClipDepths, 0);
    SetInt(p, kImageEffectPropSupportsTiles, 0);
    SetInt(p, kImageEffectPropSupportsMultiResolution, 0);
    // Tools that keep state see their frames in order, and look back to the start on a jump.
    const bool state = KeepsState(row);
    SetInt(p, kImageEffectInstancePropSequentialRender, state ? 1 : 0);
    SetInt(p, kImageEffectPropTemporalClipAccess, state ? 1 : 0);
    return kOfxStatOK;
}

namespace {

void DefineParam(OfxParamSetHandle set, const ParamMap& m, const InputDecl& row) {
    const OfxParameterSuiteV1& ps = *HostSuites().param;
    OfxPropertySetHandle p = nullptr;
    const char* type = kParamTypeDouble;
    switch (m.kind) {
        case ParamMap::Kind::Integer:
            type = kParamTypeInteger;
            break;
        case ParamMap::Kind::Boolean:
            type = kParamTypeBoolean;
            break;
        case ParamMap::Kind::Choice:
            type = kParamTypeChoice;
            break;
        case ParamMap::Kind::Colour:
            type = kParamTypeRGBA;
            break;
        case ParamMap::Kind::Point:
            type = kParamTypeDouble2D;
            break;
        case ParamMap::Kind::Button:
            type = kParamTypePushButton;
            break;
        default:
            break;
    }
    if (ps.paramDefine(set, type, m.name.c_str(), &p) != kOfxStatOK || !p) return;
    SetString(p, kPropLabel, row.label);
    SetString(p, kParamPropScriptName, m.name);
    SetString(p, kParamPropHint, row.label);
    if (m.kind != ParamMap::Kind::Button)
        SetInt(p, kParamPropAnimates, (row.flags & kFixed) ? 0 : 1);
    switch (m.kind) {
        case ParamMap::Kind::Double:
        case ParamMap::Kind::Angle:
            SetDouble(p, kParamPropDefault, row.def);
            if (m.kind == ParamMap::Kind::Angle)
                SetString(p, kParamPropDoubleType, kParamDoubleTypeAngle);
            if (row.hasAllowed) {
                SetDouble(p, kParamPropMin, row.allowedMin);
                SetDouble(p, kParamPropMax, row.allowedMax);
            }
            if (row.hasScale) {
                SetDouble(p, kParamPropDisplayMin, row.scaleMin);
                SetDouble(p, kParamPropDisplayMax, row.scaleMax);
            }
            break;
        case ParamMap::Kind::Integer: {
            auto whole = [](double v) {
                return static_cast<int>(std::max(-2147483647.0, std::min(2147483647.0, v)));
            };
            SetInt(p, kParamPropDefault, whole(row.def));
            if (row.hasAllowed) {
                SetInt(p, kParamPropMin, whole(row.allowedMin));
                SetInt(p, kParamPropMax, whole(row.allowedMax));
            }
            if (row.hasScale) {
                SetInt(p, kParamPropDisplayMin, whole(row.scaleMin));
                SetInt(p, kParamPropDisplayMax, whole(row.scaleMax));
            }
            break;
        }
        case ParamMap::Kind::Boolean:
            SetInt(p, kParamPropDefault, row.def != 0.0 ? 1 : 0);
            break;
        case ParamMap::Kind::Choice:
            for (size_t e = 0; e < row.entries.size(); ++e)
                SetString(p, kParamPropChoiceOption, row.entries[e], static_cast<int>(e));
            SetInt(p, kParamPropDefault, static_cast<int>(row.def));
            break;
        case ParamMap::Kind::Colour:
            for (size_t c = 0; c < m.inputs.size() && c < 4; ++c)
                SetDouble(p, kParamPropDefault, m.inputs[c]->GetAttrD(kInDefault),
                          static_cast<int>(c));
            break;
        case ParamMap::Kind::Point:
            SetString(p, kParamPropDoubleType, kParamDoubleTypeNormalisedXYAbsolute);
            SetDouble(p, kParamPropDefault, row.def, 0);
            SetDouble(p, kParamPropDefault, row.defY, 1);
            break;
        case ParamMap::Kind::Button:
            break;
    }
}

}  // namespace

OfxStatus DescribeInContext(const ToolClassRow& row, OfxImageEffectHandle effect) {
    Scratch scratch(row);
    if (!scratch.op) return kOfxStatErrFatal;
    EffectLayout layout = LayoutOf(scratch.op);
    const OfxImageEffectSuiteV1& es = *HostSuites().effect;

    OfxPropertySetHandle clip = nullptr;
    es.clipDefine(effect, kImageEffectOutputClipName, &clip);
    SetString(clip, kImageEffectPropSupportedComponents, kImageComponentRGBA);
    for (const auto& c : layout.clips) {
        es.clipDefine(effect, c.name.c_str(), &clip);
        SetString(clip, kImageEffectPropSupportedComponents, kImageComponentRGBA);
        SetString(clip, kPropLabel, c.label);
        SetInt(clip, kImageClipPropOptional, c.optional ? 1 : 0);
        SetInt(clip, kImageEffectPropSupportsTiles, 0);
        SetInt(clip, kImageEffectPropTemporalClipAccess, KeepsState(row) ? 1 : 0);
    }

    OfxParamSetHandle set = nullptr;
    es.getParamSet(effect, &set);
    const ToolDecl& decl = scratch.op->Decl();
    for (const ParamMap& m : layout.params)
        for (size_t i = 0; i < decl.rowCount; ++i)
            if (scratch.op->RowInput(i) == m.inputs.front()) DefineParam(set, m, decl.rows[i]);
    const OfxParameterSuiteV1& ps = *HostSuites().param;
    for (size_t pg = 0; pg < layout.pages.size(); ++pg) {
        OfxPropertySetHandle p = nullptr;
        if (ps.paramDefine(set, kParamTypePage, layout.pages[pg].c_str(), &p) != kOfxStatOK || !p)
            continue;
        SetString(p, kPropLabel, layout.pages[pg]);
        int k = 0;
        for (size_t idx : layout.pageParams[pg])
            SetString(p, kParamPropPageChild, layout.params[idx].name, k++);
    }
    return kOfxStatOK;
}

// ---- The instance -------------------------------------------------------------------------------

Instance::Instance(const ToolClassRow& row, OfxImageEffectHandle effect)
    : row_(row), effect_(effect), keepsState_(KeepsState(row)) {
    MakeOperator();
    ShowStates();
}

Instance::~Instance() {
    if (op_ && view_) {
        op_->controlLock.ObtainLock();
        auto& list = op_->controls;
        for (auto it = list.begin(); it != list.end();) {
            if ((*it)->info == view_.get()) {
                if (overlayState.capturedControl == *it) overlayState.capturedControl = nullptr;
                (*it)->Recycle();
                it = list.erase(it);
            } else {
                ++it;
            }
        }
        op_->controlLock.ReleaseLock();
        if (overlayState.overlayInfo == view_.get()) overlayState.overlayInfo = nullptr;
    }
}

void Instance::MakeOperator() {
    if (op_ && view_) {
        // The old operator's view record goes with it.
        view_.reset();
        control_ = nullptr;
    }
    doc_ = std::make_unique<FusionDoc>();
    op_ = dynamic_cast<ToolOperator*>(doc_->AddTool(row_.name));
    if (op_) op_->SetInstanceName(PlainName(row_));
    layout_ = op_ ? LayoutOf(op_) : EffectLayout();
    rendered_ = false;
}

OfxParamHandle Instance::Handle(const ParamMap& p) {
    OfxParamSetHandle set = nullptr;
    HostSuites().effect->getParamSet(effect_, &set);
    OfxParamHandle h = nullptr;
    if (set) HostSuites().param->paramGetHandle(set, p.name.c_str(), &h, nullptr);
    return h;
}

ParamMap* Instance::FindParam(const std::string& name) {
    for (auto& p : layout_.params)
        if (p.name == name) return &p;
    return nullptr;
}

void Instance::ReadParams(double time) {
    const OfxParameterSuiteV1& ps = *HostSuites().param;
    for (const ParamMap& p : layout_.params) {
        OfxParamHandle h = Handle(p);
        if (!h) continue;
        switch (p.kind) {
            case ParamMap::Kind::Double:
            case ParamMap::Kind::Angle: {
                double v = 0.0;
                if (ps.paramGetValueAtTime(h, time, &v) == kOfxStatOK) p.inputs[0]->SetConstant(v);
                break;
            }
            case ParamMap::Kind::Integer:
            case ParamMap::Kind::Boolean:
            case ParamMap::Kind::Choice: {
                int v = 0;
                if (ps.paramGetValueAtTime(h, time, &v) == kOfxStatOK) p.inputs[0]->SetConstant(v);
                break;
            }
            case ParamMap::Kind::Colour: {
                double c[4] = {0, 0, 0, 0};
                if (ps.paramGetValueAtTime(h, time, &c[0], &c[1], &c[2], &c[3]) == kOfxStatOK)
                    for (size_t i = 0; i < p.inputs.size() && i < 4; ++i)
                        p.inputs[i]->SetConstant(c[i]);
                break;
            }
            case ParamMap::Kind::Point: {
                double x = 0.0, y = 0.0;
                if (ps.paramGetValueAtTime(h, time, &x, &y) == kOfxStatOK)
                    p.inputs[0]->SetConstant(x, y);
                break;
            }
            case ParamMap::Kind::Button:
                break;
        }
    }
}

namespace {

bool SameState(const Input::State& a, const Input::State& b) {
    if (a.constant[0] != b.constant[0] || a.constant[1] != b.constant[1]) return false;
    if (a.keys.size() != b.keys.size()) return false;
    for (size_t k = 0; k < a.keys.size(); ++k)
        if (a.keys[k].time != b.keys[k].time || a.keys[k].v[0] != b.keys[k].v[0] ||
            a.keys[k].v[1] != b.keys[k].v[1])
            return false;
    return true;
}

std::vector<Input::State> SaveAll(ToolOperator* op) {
    std::vector<Input::State> s;
    for (Input* in : op->Inputs())
        s.push_back(in->Save());
    return s;
}

// Writes one parameter's value (or its keys) from the operator's inputs.
void WriteParam(OfxParamHandle h, const ParamMap& p) {
    const OfxParameterSuiteV1& ps = *HostSuites().param;
    const Input* first = p.inputs.front();
    auto set = [&](bool atTime, double t, const double* v) {
        // v holds one value per input channel (a point: x, y).
        switch (p.kind) {
            case ParamMap::Kind::Double:
            case ParamMap::Kind::Angle:
                atTime ? ps.paramSetValueAtTime(h, t, v[0]) : ps.paramSetValue(h, v[0]);
                break;
            case ParamMap::Kind::Integer:
            case ParamMap::Kind::Boolean:
            case ParamMap::Kind::Choice: {
                int i = static_cast<int>(v[0]);
                atTime ? ps.paramSetValueAtTime(h, t, i) : ps.paramSetValue(h, i);
                break;
            }
            case ParamMap::Kind::Colour:
                atTime ? ps.paramSetValueAtTime(h, t, v[0], v[1], v[2], v[3])
                       : ps.paramSetValue(h, v[0], v[1], v[2], v[3]);
                break;
            case ParamMap::Kind::Point:
                atTime ? ps.paramSetValueAtTime(h, t, v[0], v[1]) : ps.paramSetValue(h, v[0], v[1]);
                break;
            case ParamMap::Kind::Button:
                break;
        }
    };
    if (p.kind == ParamMap::Kind::Button) return;
    if (!first->IsAnimated()) {
        ps.paramDeleteAllKeys(h);
        double v[4] = {0, 0, 0, 0};
        for (size_t i = 0; i < p.inputs.size() && i < 4; ++i) {
            double c[2];
            p.inputs[i]->ValueAt(0.0, c);
            if (p.kind == ParamMap::Kind::Point) {
                v[0] = c[0];
                v[1] = c[1];
            } else {
                v[i] = c[0];
            }
        }
        set(false, 0.0, v);
        return;
    }
    // Keys: the parameter gets a key at every time any of its channels has one.
    std::vector<double> times;
    for (const Input* in : p.inputs)
        for (const Key& k : in->Keys())
            times.push_back(k.time);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    ps.paramDeleteAllKeys(h);
    for (double t : times) {
        double v[4] = {0, 0, 0, 0};
        for (size_t i = 0; i < p.inputs.size() && i < 4; ++i) {
            double c[2];
            p.inputs[i]->ValueAt(t, c);
            if (p.kind == ParamMap::Kind::Point) {
                v[0] = c[0];
                v[1] = c[1];
            } else {
                v[i] = c[0];
            }
        }
        set(true, t, v);
    }
}

}  // namespace

void Instance::WriteBack(const std::vector<Input::State>& before) {
    const auto& inputs = op_->Inputs();
    for (const ParamMap& p : layout_.params) {
        bool changed = false;
        for (Input* in : p.inputs) {
            size_t k = std::find(inputs.begin(), inputs.end(), in) - inputs.begin();
            if (k < before.size() && !SameState(before[k], in->Save())) changed = true;
        }
        if (!changed) continue;
        if (OfxParamHandle h = Handle(p)) WriteParam(h, p);
    }
    ShowStates();
}

void Instance::ShowStates() {
    const OfxParameterSuiteV1& ps = *HostSuites().param;
    for (const ParamMap& p : layout_.params) {
        OfxParamHandle h = Handle(p);
        OfxPropertySetHandle props = nullptr;
        if (!h || ps.paramGetPropertySet(h, &props) != kOfxStatOK || !props) continue;
        const Input* in = p.inputs.front();
        SetInt(props, kParamPropSecret, in->GetAttr(kInVisible, 1) ? 0 : 1);
        SetInt(props, kParamPropEnabled, in->GetAttr(kInDisabled, 0) ? 0 : 1);
    }
}

OfxStatus Instance::Changed(OfxPropertySetHandle inArgs) {
    if (!op_) return kOfxStatFailed;
    if (GetString(inArgs, kPropType) != kTypeParameter) return kOfxStatReplyDefault;
    // Our own writes come back as changes too; the operator has them already.
    if (GetString(inArgs, kPropChangeReason) == kChangePluginEdited) return kOfxStatOK;
    ParamMap* p = FindParam(GetString(inArgs, kPropName));
    if (!p) return kOfxStatReplyDefault;
    const double time = GetDouble(inArgs, kPropTime);
    ReadParams(time);
    std::vector<Input::State> before = SaveAll(op_);
    doc_->currentTime = time;
    // The change reaches the tool as a user's change would: the value as a whole, notified.
    OfxParamSetHandle set = nullptr;
    HostSuites().effect->getParamSet(effect_, &set);
    if (set) HostSuites().param->paramEditBegin(set, p->name.c_str());
    if (p->kind == ParamMap::Kind::Button) {
        AutoNumber one(1.0);
        p->inputs[0]->SetSource(&one, kWholeValue, 0, 0);
        p->inputs[0]->SetConstant(0.0);
    } else if (p->kind == ParamMap::Kind::Point) {
        double v[2];
        p->inputs[0]->ValueAt(time, v);
        Point pt(v[0], v[1]);
        p->inputs[0]->SetSource(&pt, kWholeValue, 0, 0);
    } else {
        for (Input* in : p->inputs) {
            double v[2];
            in->ValueAt(time, v);
            AutoNumber n(v[0]);
            in->SetSource(&n, kWholeValue, 0, 0);
        }
    }
    // Whatever the tool wrote in answer (a preset's values) goes back to the parameters; the
    // parameter the user changed keeps its own keys.
    before = [&] {
        std::vector<Input::State> b = before;
        const auto& inputs = op_->Inputs();
        for (Input* in : p->inputs) {
            size_t k = std::find(inputs.begin(), inputs.end(), in) - inputs.begin();
            if (k < b.size()) b[k] = in->Save();
        }
        return b;
    }();
    WriteBack(before);
    if (set) HostSuites().param->paramEditEnd(set);
    // A stateful tool starts its sequence again after a change.
    rendered_ = false;
    return kOfxStatOK;
}

OfxStatus Instance::FramesNeeded(OfxPropertySetHandle inArgs, OfxPropertySetHandle outArgs) {
    if (!keepsState_) return kOfxStatReplyDefault;
    const double time = GetDouble(inArgs, kPropTime);
    OfxPropertySetHandle p = nullptr;
    HostSuites().effect->getPropertySet(effect_, &p);
    const double start = std::min(time, GetDouble(p, kImageEffectPropFrameRange, 0, time));
    for (const auto& c : layout_.clips) {
        std::string name = std::string(kImageClipPropFrameRange) + "_" + c.name;
        SetDouble(outArgs, name.c_str(), start, 0);
        SetDouble(outArgs, name.c_str(), time, 1);
    }
    return kOfxStatOK;
}

OfxStatus Instance::RegionsOfInterest(OfxPropertySetHandle inArgs, OfxPropertySetHandle outArgs) {
    // The tools read their whole input, whatever part of the output is asked for.
    const double time = GetDouble(inArgs, kPropTime);
    for (const auto& c : layout_.clips) {
        OfxImageClipHandle clip = nullptr;
        if (HostSuites().effect->clipGetHandle(effect_, c.name.c_str(), &clip, nullptr) !=
                kOfxStatOK ||
            !clip)
            continue;
        OfxRectD rod{0, 0, 0, 0};
        if (HostSuites().effect->clipGetRegionOfDefinition(clip, time, &rod) != kOfxStatOK)
            continue;
        std::string name = std::string(kImageClipPropRoI) + c.name;
        const double r[4] = {rod.x1, rod.y1, rod.x2, rod.y2};
        Props().propSetDoubleN(outArgs, name.c_str(), 4, r);
    }
    return kOfxStatOK;
}

OfxStatus Instance::RenderOne(double time, bool deliver, OfxPropertySetHandle outImage) {
    const OfxImageEffectSuiteV1& es = *HostSuites().effect;
    ReadParams(time);
    doc_->currentTime = time;
    Request request(op_, time);
    bool haveMain = false;
    for (const auto& c : layout_.clips) {
        OfxImageClipHandle clip = nullptr;
        OfxPropertySetHandle clipProps = nullptr;
        if (es.clipGetHandle(effect_, c.name.c_str(), &clip, &clipProps) != kOfxStatOK || !clip)
            continue;
        if (clipProps && !GetInt(clipProps, kImageClipPropConnected, 0, 1)) continue;
        OfxPropertySetHandle handle = nullptr;
        if (es.clipGetImage(clip, time, nullptr, &handle) != kOfxStatOK || !handle) continue;
        ImageView v(handle);
        if (v.ok) {
            HostRef<Image> image(ToHostImage(v));
            request.SetInputImage(c.input, image.get());
            if (c.name == kImageEffectSimpleSourceClipName) {
                haveMain = true;
                width_ = v.Width();
                height_ = v.Height();
                originX_ = v.bounds.x1;
                originY_ = v.bounds.y1;
                pixelAspect_ = v.aspect > 0.0 ? v.aspect : 1.0;
            }
        }
        es.clipReleaseImage(handle);
    }
    if (!haveMain) return kOfxStatFailed;

    // The host's abort query is watched while the frame renders.
    std::atomic<bool> done{false};
    std::thread watch([&] {
        while (!done.load()) {
            if (es.abort && es.abort(effect_)) {
                op_->SetAbort(true);
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    op_->Process(&request);
    done = true;
    watch.join();
    op_->SetAbort(false);
    HostRef<Image> out(static_cast<Image*>(request.TakeOutputData(op_->MainOutput())));
    if (!out) return kOfxStatFailed;
    rendered_ = true;
    lastFrame_ = time;
    if (!deliver) return kOfxStatOK;

    ImageView dst(outImage);
    if (!dst.ok) return kOfxStatFailed;
    // The tool's picture stands where the source's pixels stood: output pixel (x, y) comes from
    // the tool's pixel (x - x1, y - y1) of the source's bounds; outside it is clear.
    for (int y = dst.bounds.y1; y < dst.bounds.y2; ++y) {
        char* row = dst.Row(y);
        for (int x = dst.bounds.x1; x < dst.bounds.x2; ++x) {
            const int sx = x - originX_, sy = y - originY_;
            uint16_t s[4] = {0, 0, 0, 0};
            if (sx >= 0 && sy >= 0 && sx < out->width && sy < out->height)
                std::memcpy(s, out->Row(sy) + static_cast<size_t>(sx) * 4, sizeof(s));
            const size_t i = static_cast<size_t>(x - dst.bounds.x1) * 4;
            if (dst.isFloat) {
                auto* f = reinterpret_cast<float*>(row) + i;
                for (int c = 0; c < 4; ++c)
                    f[c] = static_cast<float>(s[c] / 65535.0);
            } else {
                std::memcpy(reinterpret_cast<uint16_t*>(row) + i, s, sizeof(s));
            }
        }
    }
    return kOfxStatOK;
}

OfxStatus Instance::Render(OfxPropertySetHandle inArgs, std::unique_lock<std::mutex>& hold) {
    if (!op_) return kOfxStatFailed;
    const double time = GetDouble(inArgs, kPropTime);
    const OfxImageEffectSuiteV1& es = *HostSuites().effect;
    OfxImageClipHandle outClip = nullptr;
    if (es.clipGetHandle(effect_, kImageEffectOutputClipName, &outClip, nullptr) != kOfxStatOK)
        return kOfxStatFailed;
    OfxPropertySetHandle outImage = nullptr;
    if (es.clipGetImage(outClip, time, nullptr, &outImage) != kOfxStatOK || !outImage)
        return kOfxStatFailed;

    OfxStatus status = kOfxStatOK;
    if (keepsState_ && !(rendered_ && time == lastFrame_ + 1.0)) {
        // Out of order: start again from the first frame of the effect's range and step up to
        // the frame asked for, as a render from the start would.
        OfxPropertySetHandle p = nullptr;
        es.getPropertySet(effect_, &p);
        const double start = std::min(time, GetDouble(p, kImageEffectPropFrameRange, 0, time));
        MakeOperator();
        for (double t = start; t < time && status == kOfxStatOK; t += 1.0) {
            // Other instances and the interface get their turn between frames.
            hold.unlock();
            hold.lock();
            if (es.abort && es.abort(effect_)) status = kOfxStatFailed;
            if (status == kOfxStatOK) status = RenderOne(t, false, nullptr);
        }
    }
    if (status == kOfxStatOK) status = RenderOne(time, true, outImage);
    if (status != kOfxStatOK && keepsState_) rendered_ = false;
    es.clipReleaseImage(outImage);
    return status;
}

// ---- The overlay --------------------------------------------------------------------------------

PreviewInfo* Instance::View(int width, int height, double zoom, double time) {
    if (!view_) {
        view_ = std::make_unique<PreviewInfo>(width, height, zoom);
        op_->AddControls(view_.get(), nullptr);
        for (OperatorControl* c : op_->controls)
            if (c->info == view_.get()) control_ = c;
    }
    view_->imageWidth = width;
    view_->imageHeight = height;
    view_->zoom = zoom;
    view_->windowWidth = width * zoom;
    view_->windowHeight = height * zoom;
    view_->time = time;
    return view_.get();
}

namespace {

// The picture's size in pixels where no render has told it yet: the source's region.
void PictureSize(OfxImageEffectHandle effect, double time, double aspect, int* w, int* h) {
    OfxImageClipHandle clip = nullptr;
    if (HostSuites().effect->clipGetHandle(effect, kImageEffectSimpleSourceClipName, &clip,
                                           nullptr) != kOfxStatOK ||
        !clip)
        return;
    OfxRectD rod{0, 0, 0, 0};
    if (HostSuites().effect->clipGetRegionOfDefinition(clip, time, &rod) != kOfxStatOK) return;
    *w = static_cast<int>(std::lround((rod.x2 - rod.x1) / aspect));
    *h = static_cast<int>(std::lround(rod.y2 - rod.y1));
}

}  // namespace

OfxStatus Instance::Draw(OfxPropertySetHandle inArgs) {
    if (!op_) return kOfxStatFailed;
    const double time = GetDouble(inArgs, kPropTime);
    int w = width_, h = height_;
    if (w <= 0 || h <= 0) PictureSize(effect_, time, pixelAspect_, &w, &h);
    if (w <= 0 || h <= 0) return kOfxStatReplyDefault;
    const double scale = GetDouble(inArgs, kInteractPropPixelScale, 1, 1.0);
    const double zoom = scale > 0.0 ? 1.0 / scale : 1.0;
    if (!dragging_) ReadParams(time);
    PreviewInfo* info = View(w, h, zoom, time);
    info->Clear();
    op_->GLDrawControls(control_, info, nullptr);
    lastLines_ = info->lines;
    static const Gl gl;
    if (gl.Ready()) {
        for (const LineWork& l : lastLines_) {
            gl.color4ub(l.colour[0], l.colour[1], l.colour[2], l.colour[3]);
            gl.begin(static_cast<unsigned>(l.mode));
            for (size_t i = 0; i + 1 < l.points.size(); i += 2)
                gl.vertex2d(l.points[i] * pixelAspect_, l.points[i + 1]);
            gl.end();
        }
    }
    return kOfxStatOK;
}

OfxStatus Instance::Pen(const std::string& action, OfxPropertySetHandle inArgs) {
    if (!op_) return kOfxStatFailed;
    const double time = GetDouble(inArgs, kPropTime);
    int w = width_, h = height_;
    if (w <= 0 || h <= 0) PictureSize(effect_, time, pixelAspect_, &w, &h);
    if (w <= 0 || h <= 0) return kOfxStatReplyDefault;
    const double scale = GetDouble(inArgs, kInteractPropPixelScale, 1, 1.0);
    PreviewInfo* info = View(w, h, scale > 0.0 ? 1.0 / scale : 1.0, time);
    info->pointerX = GetDouble(inArgs, kInteractPropPenPosition, 0) / pixelAspect_ / w;
    info->pointerY = GetDouble(inArgs, kInteractPropPenPosition, 1) / h;
    doc_->currentTime = time;
    OfxParamSetHandle set = nullptr;
    HostSuites().effect->getParamSet(effect_, &set);

    if (action == kInteractActionPenDown) {
        ReadParams(time);
        // The controls must know where their handles are before a press.
        info->Clear();
        op_->GLDrawControls(control_, info, nullptr);
        std::vector<Input::State> before = SaveAll(op_);
        const int answer = op_->ControlDown(control_, info, nullptr);
        if (answer != kControlWantsDrag) {
            WriteBack(before);
            return kOfxStatReplyDefault;
        }
        dragging_ = true;
        if (set) HostSuites().param->paramEditBegin(set, "drag");
        WriteBack(before);
        return kOfxStatOK;
    }
    if (!dragging_) return kOfxStatReplyDefault;
    std::vector<Input::State> before = SaveAll(op_);
    if (action == kInteractActionPenMotion) {
        op_->ControlMove(control_, info, nullptr);
        WriteBack(before);
        return kOfxStatOK;
    }
    op_->ControlUp(control_, info, nullptr);
    WriteBack(before);
    dragging_ = false;
    if (set) HostSuites().param->paramEditEnd(set);
    return kOfxStatOK;
}

}  // namespace ofx
