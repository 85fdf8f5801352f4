// A small OpenFX host of our own: it loads the bundle, describes every plug-in, makes instances,
// sets parameters (with keys), renders 16-bit and float frames from in-memory images and sends pen
// events to the overlays. Pictures are compared bit for bit with `crate07 apply`.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "app/Cli.h"
#include "app/ImageFiles.h"
#include "host/Registration.h"
#include "host/ToolTraits.h"
#include "ofx/api/OfxApi.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;

// ---- OpenGL stand-ins that the bundle finds by name in this executable --------------------------
namespace {
struct GlCall {
    unsigned mode;
    std::vector<double> points;
};
std::vector<GlCall> gGlCalls;
}  // namespace

extern "C" {
void glColor4ub(unsigned char, unsigned char, unsigned char, unsigned char) {}
void glBegin(unsigned mode) {
    gGlCalls.push_back({mode, {}});
}
void glEnd() {}
void glVertex2d(double x, double y) {
    if (gGlCalls.empty()) return;
    gGlCalls.back().points.push_back(x);
    gGlCalls.back().points.push_back(y);
}
}

namespace {

// ---- Property sets ------------------------------------------------------------------------------
using Value = std::variant<int, double, std::string, void*>;
struct PropSet {
    std::map<std::string, std::vector<Value>> props;
    OfxPropertySetHandle Handle() const {
        return reinterpret_cast<OfxPropertySetHandle>(const_cast<PropSet*>(this));
    }
};
PropSet* P(OfxPropertySetHandle h) {
    return reinterpret_cast<PropSet*>(h);
}

template <class T>
OfxStatus Set(OfxPropertySetHandle h, const char* name, int i, T v) {
    if (!h || i < 0) return kOfxStatErrBadHandle;
    auto& vec = P(h)->props[name];
    if (static_cast<int>(vec.size()) <= i) vec.resize(i + 1, Value(T{}));
    vec[i] = v;
    return kOfxStatOK;
}
template <class T>
OfxStatus Get(OfxPropertySetHandle h, const char* name, int i, T* out) {
    if (!h) return kOfxStatErrBadHandle;
    auto it = P(h)->props.find(name);
    if (it == P(h)->props.end()) return kOfxStatErrUnknown;
    if (i < 0 || i >= static_cast<int>(it->second.size())) return kOfxStatErrBadIndex;
    if (const T* v = std::get_if<T>(&it->second[i])) {
        *out = *v;
        return kOfxStatOK;
    }
    return kOfxStatErrValue;
}

OfxPropertySuiteV1 MakePropertySuite() {
    OfxPropertySuiteV1 s{};
    s.propSetPointer = [](OfxPropertySetHandle h, const char* n, int i, void* v) {
        return Set<void*>(h, n, i, v);
    };
    s.propSetString = [](OfxPropertySetHandle h, const char* n, int i, const char* v) {
        return Set<std::string>(h, n, i, v ? v : "");
    };
    s.propSetDouble = [](OfxPropertySetHandle h, const char* n, int i, double v) {
        return Set<double>(h, n, i, v);
    };
    s.propSetInt = [](OfxPropertySetHandle h, const char* n, int i, int v) {
        return Set<int>(h, n, i, v);
    };
    s.propSetDoubleN = [](OfxPropertySetHandle h, const char* n, int c, const double* v) {
        for (int i = 0; i < c; ++i)
            Set<double>(h, n, i, v[i]);
        return kOfxStatOK;
    };
    s.propSetIntN = [](OfxPropertySetHandle h, const char* n, int c, const int* v) {
        for (int i = 0; i < c; ++i)
            Set<int>(h, n, i, v[i]);
        return kOfxStatOK;
    };
    s.propGetPointer = [](OfxPropertySetHandle h, const char* n, int i, void** v) {
        return Get<void*>(h, n, i, v);
    };
    s.propGetString = [](OfxPropertySetHandle h, const char* n, int i, char** v) {
        if (!h) return kOfxStatErrBadHandle;
        auto it = P(h)->props.find(n);
        if (it == P(h)->props.end() || i < 0 || i >= static_cast<int>(it->second.size()))
            return kOfxStatErrUnknown;
        auto* str = std::get_if<std::string>(&it->second[i]);
        if (!str) return kOfxStatErrValue;
        *v = str->data();
        return kOfxStatOK;
    };
    s.propGetDouble = [](OfxPropertySetHandle h, const char* n, int i, double* v) {
        return Get<double>(h, n, i, v);
    };
    s.propGetInt = [](OfxPropertySetHandle h, const char* n, int i, int* v) {
        return Get<int>(h, n, i, v);
    };
    s.propGetDoubleN = [](OfxPropertySetHandle h, const char* n, int c, double* v) {
        for (int i = 0; i < c; ++i)
            if (OfxStatus st = Get<double>(h, n, i, &v[i])) return st;
        return kOfxStatOK;
    };
    s.propGetIntN = [](OfxPropertySetHandle h, const char* n, int c, int* v) {
        for (int i = 0; i < c; ++i)
            if (OfxStatus st = Get<int>(h, n, i, &v[i])) return st;
        return kOfxStatOK;
    };
    s.propReset = [](OfxPropertySetHandle h, const char* n) {
        P(h)->props.erase(n);
        return kOfxStatOK;
    };
    s.propGetDimension = [](OfxPropertySetHandle h, const char* n, int* c) {
        auto it = P(h)->props.find(n);
        *c = it == P(h)->props.end() ? 0 : static_cast<int>(it->second.size());
        return kOfxStatOK;
    };
    return s;
}

// ---- Parameters, clips and effects --------------------------------------------------------------
struct Param {
    std::string type;
    PropSet props;
    std::array<double, 4> value{};
    std::map<double, std::array<double, 4>> keys;

    bool IsInt() const {
        return type == ofx::kParamTypeInteger || type == ofx::kParamTypeBoolean ||
               type == ofx::kParamTypeChoice;
    }
    int Dims() const {
        if (type == ofx::kParamTypeRGBA) return 4;
        if (type == ofx::kParamTypeDouble2D) return 2;
        if (type == ofx::kParamTypePushButton || type == ofx::kParamTypePage) return 0;
        return 1;
    }
    std::array<double, 4> At(double t) const {
        if (keys.empty()) return value;
        auto hi = keys.lower_bound(t);
        if (hi == keys.begin()) return hi->second;
        if (hi == keys.end()) return std::prev(hi)->second;
        auto lo = std::prev(hi);
        const double f = (t - lo->first) / (hi->first - lo->first);
        std::array<double, 4> v{};
        for (int i = 0; i < 4; ++i)
            v[i] = lo->second[i] + (hi->second[i] - lo->second[i]) * f;
        return v;
    }
};

struct Image16 {
    int w = 0, h = 0;
    std::vector<uint16_t> px;  // bottom row first, RGBA
};

struct Effect;
struct Clip {
    Effect* effect = nullptr;
    std::string name;
    PropSet props;
    const Image16* source = nullptr;  // null: the output
};

struct LiveImage : PropSet {
    std::vector<char> bytes;
};

struct Effect {
    PropSet props;
    std::map<std::string, std::unique_ptr<Param>> params;
    std::vector<std::string> order;
    std::map<std::string, std::unique_ptr<Clip>> clips;
    PropSet paramSetProps;
    bool isFloat = false;
    int editGroups = 0;
    std::vector<std::string> pluginEdits;
    std::unique_ptr<Image16> lastOutput;
    OfxImageEffectHandle Handle() { return reinterpret_cast<OfxImageEffectHandle>(this); }
};
Effect* E(OfxImageEffectHandle h) {
    return reinterpret_cast<Effect*>(h);
}
Effect* E(OfxParamSetHandle h) {
    return reinterpret_cast<Effect*>(h);
}
Param* Pm(OfxParamHandle h) {
    return reinterpret_cast<Param*>(h);
}
Clip* C(OfxImageClipHandle h) {
    return reinterpret_cast<Clip*>(h);
}

OfxImageEffectSuiteV1 MakeEffectSuite() {
    OfxImageEffectSuiteV1 s{};
    s.getPropertySet = [](OfxImageEffectHandle h, OfxPropertySetHandle* p) {
        *p = E(h)->props.Handle();
        return kOfxStatOK;
    };
    s.getParamSet = [](OfxImageEffectHandle h, OfxParamSetHandle* p) {
        *p = reinterpret_cast<OfxParamSetHandle>(h);
        return kOfxStatOK;
    };
    s.clipDefine = [](OfxImageEffectHandle h, const char* name, OfxPropertySetHandle* p) {
        auto& c = E(h)->clips[name];
        if (!c) c = std::make_unique<Clip>();
        c->effect = E(h);
        c->name = name;
        *p = c->props.Handle();
        return kOfxStatOK;
    };
    s.clipGetHandle = [](OfxImageEffectHandle h, const char* name, OfxImageClipHandle* clip,
                         OfxPropertySetHandle* p) {
        auto it = E(h)->clips.find(name);
        if (it == E(h)->clips.end()) return kOfxStatErrUnknown;
        *clip = reinterpret_cast<OfxImageClipHandle>(it->second.get());
        if (p) *p = it->second->props.Handle();
        return kOfxStatOK;
    };
    s.clipGetPropertySet = [](OfxImageClipHandle h, OfxPropertySetHandle* p) {
        *p = C(h)->props.Handle();
        return kOfxStatOK;
    };
    s.clipGetImage = [](OfxImageClipHandle h, OfxTime, const OfxRectD*, OfxPropertySetHandle* p) {
        Clip* c = C(h);
        const Effect* fx = c->effect;
        const Image16* src = c->source;
        if (!src && c->name != ofx::kImageEffectOutputClipName) return kOfxStatFailed;
        const Image16* shape =
            src ? src : fx->clips.at(ofx::kImageEffectSimpleSourceClipName)->source;
        auto* img = new LiveImage;
        const size_t bytesPer = fx->isFloat ? 4 : 2;
        const int rowBytes = static_cast<int>(shape->w * 4 * bytesPer);
        img->bytes.assign(static_cast<size_t>(rowBytes) * shape->h, 0);
        if (src)
            for (size_t i = 0; i < src->px.size(); ++i) {
                if (fx->isFloat) {
                    float f = static_cast<float>(src->px[i] / 65535.0);
                    std::memcpy(&img->bytes[i * 4], &f, 4);
                } else {
                    std::memcpy(&img->bytes[i * 2], &src->px[i], 2);
                }
            }
        PropSet& ip = *img;
        ip.props[ofx::kImagePropData] = {static_cast<void*>(img->bytes.data())};
        ip.props[ofx::kImagePropBounds] = {0, 0, shape->w, shape->h};
        ip.props[ofx::kImagePropRowBytes] = {rowBytes};
        ip.props[ofx::kImageEffectPropPixelDepth] = {
            std::string(fx->isFloat ? ofx::kBitDepthFloat : ofx::kBitDepthShort)};
        ip.props[ofx::kImageEffectPropComponents] = {std::string(ofx::kImageComponentRGBA)};
        ip.props[ofx::kImagePropPixelAspectRatio] = {1.0};
        ip.props["host:output"] = {src ? 0 : 1};
        ip.props["host:effect"] = {static_cast<void*>(const_cast<Effect*>(fx))};
        *p = ip.Handle();
        return kOfxStatOK;
    };
    s.clipReleaseImage = [](OfxPropertySetHandle h) {
        auto* img = static_cast<LiveImage*>(P(h));
        int isOutput = 0;
        Get<int>(h, "host:output", 0, &isOutput);
        if (isOutput) {
            // The render's result is kept, as 16-bit samples, for the test to read.
            void* fxp = nullptr;
            Get<void*>(h, "host:effect", 0, &fxp);
            auto* fx = static_cast<Effect*>(fxp);
            const Image16* shape = fx->clips.at(ofx::kImageEffectSimpleSourceClipName)->source;
            auto out = std::make_unique<Image16>();
            out->w = shape->w;
            out->h = shape->h;
            out->px.resize(static_cast<size_t>(out->w) * out->h * 4);
            for (size_t i = 0; i < out->px.size(); ++i) {
                if (fx->isFloat) {
                    float f;
                    std::memcpy(&f, &img->bytes[i * 4], 4);
                    out->px[i] = static_cast<uint16_t>(f * 65535.0 + 0.5);
                } else {
                    std::memcpy(&out->px[i], &img->bytes[i * 2], 2);
                }
            }
            fx->lastOutput = std::move(out);
        }
        delete img;
        return kOfxStatOK;
    };
    s.clipGetRegionOfDefinition = [](OfxImageClipHandle h, OfxTime, OfxRectD* r) {
        const Image16* shape =
            C(h)->effect->clips.at(ofx::kImageEffectSimpleSourceClipName)->source;
        *r = {0, 0, static_cast<double>(shape ? shape->w : 0),
              static_cast<double>(shape ? shape->h : 0)};
        return kOfxStatOK;
    };
    s.abort = [](OfxImageEffectHandle) { return 0; };
    return s;
}

// Values travel through C varargs: integers as int, the rest as double.
OfxStatus GetValueAtTime(OfxParamHandle h, OfxTime t, ...) {
    const Param* p = Pm(h);
    auto v = p->At(t);
    va_list ap;
    va_start(ap, t);
    for (int i = 0; i < p->Dims(); ++i) {
        if (p->IsInt())
            *va_arg(ap, int*) = static_cast<int>(v[i]);
        else
            *va_arg(ap, double*) = v[i];
    }
    va_end(ap);
    return kOfxStatOK;
}

std::array<double, 4> ReadArgs(const Param* p, va_list ap) {
    std::array<double, 4> v{};
    for (int i = 0; i < p->Dims(); ++i)
        v[i] = p->IsInt() ? va_arg(ap, int) : va_arg(ap, double);
    return v;
}

OfxStatus SetValue(OfxParamHandle h, ...) {
    Param* p = Pm(h);
    va_list ap;
    va_start(ap, h);
    p->value = ReadArgs(p, ap);
    va_end(ap);
    p->keys.clear();
    return kOfxStatOK;
}

OfxStatus SetValueAtTime(OfxParamHandle h, OfxTime t, ...) {
    Param* p = Pm(h);
    va_list ap;
    va_start(ap, t);
    p->keys[t] = ReadArgs(p, ap);
    va_end(ap);
    return kOfxStatOK;
}

OfxParameterSuiteV1 MakeParameterSuite() {
    OfxParameterSuiteV1 s{};
    s.paramDefine = [](OfxParamSetHandle set, const char* type, const char* name,
                       OfxPropertySetHandle* p) {
        Effect* fx = E(set);
        if (fx->params.count(name)) return kOfxStatErrExists;
        auto param = std::make_unique<Param>();
        param->type = type;
        *p = param->props.Handle();
        fx->params[name] = std::move(param);
        fx->order.push_back(name);
        return kOfxStatOK;
    };
    s.paramGetHandle = [](OfxParamSetHandle set, const char* name, OfxParamHandle* h,
                          OfxPropertySetHandle* p) {
        auto it = E(set)->params.find(name);
        if (it == E(set)->params.end()) return kOfxStatErrUnknown;
        *h = reinterpret_cast<OfxParamHandle>(it->second.get());
        if (p) *p = it->second->props.Handle();
        return kOfxStatOK;
    };
    s.paramGetPropertySet = [](OfxParamHandle h, OfxPropertySetHandle* p) {
        *p = Pm(h)->props.Handle();
        return kOfxStatOK;
    };
    s.paramGetValueAtTime = &GetValueAtTime;
    s.paramSetValue = &SetValue;
    s.paramSetValueAtTime = &SetValueAtTime;
    s.paramGetNumKeys = [](OfxParamHandle h, unsigned int* n) {
        *n = static_cast<unsigned>(Pm(h)->keys.size());
        return kOfxStatOK;
    };
    s.paramDeleteAllKeys = [](OfxParamHandle h) {
        Pm(h)->keys.clear();
        return kOfxStatOK;
    };
    s.paramEditBegin = [](OfxParamSetHandle set, const char*) {
        ++E(set)->editGroups;
        return kOfxStatOK;
    };
    s.paramEditEnd = [](OfxParamSetHandle) { return kOfxStatOK; };
    return s;
}

OfxInteractSuiteV1 MakeInteractSuite() {
    OfxInteractSuiteV1 s{};
    s.interactGetPropertySet = [](OfxInteractHandle, OfxPropertySetHandle*) {
        return kOfxStatErrUnsupported;
    };
    return s;
}

const OfxPropertySuiteV1 kProps = MakePropertySuite();
const OfxImageEffectSuiteV1 kEffects = MakeEffectSuite();
const OfxParameterSuiteV1 kParams = MakeParameterSuite();
const OfxInteractSuiteV1 kInteracts = MakeInteractSuite();

PropSet gHostProps;
OfxHost gHost{gHostProps.Handle(), [](OfxPropertySetHandle, const char* name, int version) {
                  const std::string n = name;
                  if (version != 1) return static_cast<const void*>(nullptr);
                  if (n == ofx::kPropertySuite) return static_cast<const void*>(&kProps);
                  if (n == ofx::kImageEffectSuite) return static_cast<const void*>(&kEffects);
                  if (n == ofx::kParameterSuite) return static_cast<const void*>(&kParams);
                  if (n == ofx::kInteractSuite) return static_cast<const void*>(&kInteracts);
                  return static_cast<const void*>(nullptr);
              }};

// ---- The bundle ---------------------------------------------------------------------------------
struct Bundle {
    void* lib = nullptr;
    std::map<std::string, OfxPlugin*> plugins;  // by plain tool name
    Bundle() {
        lib = dlopen(CRATE07_OFX_BUNDLE, RTLD_NOW | RTLD_LOCAL);
        if (!lib) return;
        auto count = reinterpret_cast<OfxGetNumberOfPluginsFn>(dlsym(lib, "OfxGetNumberOfPlugins"));
        auto get = reinterpret_cast<OfxGetPluginFn>(dlsym(lib, "OfxGetPlugin"));
        if (!count || !get) return;
        for (int i = 0; i < count(); ++i) {
            OfxPlugin* p = get(i);
            p->setHost(&gHost);
            p->mainEntry(ofx::kActionLoad, nullptr, nullptr, nullptr);
            std::string id = p->pluginIdentifier;
            plugins[id.substr(id.rfind('.') + 1)] = p;
        }
    }
};
Bundle& TheBundle() {
    static Bundle b;
    return b;
}

// An instance of one plug-in over an in-memory source picture.
struct Host {
    OfxPlugin* plugin;
    Effect descriptor, fx;
    Image16 source;
    OfxPluginEntryPoint* overlay = nullptr;

    Host(const std::string& tool, Image16 src, double rangeStart = 1.0, bool isFloat = false)
        : plugin(TheBundle().plugins.at(tool)), source(std::move(src)) {
        EXPECT_EQ(Call(ofx::kActionDescribe, descriptor.Handle()), kOfxStatOK);
        void* ov = nullptr;
        Get<void*>(descriptor.props.Handle(), ofx::kImageEffectPluginPropOverlayInteractV1, 0, &ov);
        overlay = reinterpret_cast<OfxPluginEntryPoint*>(ov);
        PropSet in;
        in.props[ofx::kImageEffectPropContext] = {std::string(ofx::kImageEffectContextFilter)};
        EXPECT_EQ(Call(ofx::kActionDescribeInContext, fx.Handle(), &in), kOfxStatOK);
        // The instance's parameters start at their defaults.
        for (auto& [name, p] : fx.params) {
            for (int i = 0; i < p->Dims(); ++i) {
                auto it = p->props.props.find(ofx::kParamPropDefault);
                if (it == p->props.props.end() || i >= static_cast<int>(it->second.size()))
                    continue;
                const Value& v = it->second[i];
                p->value[i] =
                    std::holds_alternative<int>(v) ? std::get<int>(v) : std::get<double>(v);
            }
        }
        fx.clips.at(ofx::kImageEffectSimpleSourceClipName)->source = &source;
        for (auto& [name, c] : fx.clips)
            c->props.props[ofx::kImageClipPropConnected] = {c->source ? 1 : 0};
        fx.props.props[ofx::kImageEffectPropFrameRange] = {rangeStart, rangeStart + 100.0};
        fx.isFloat = isFloat;
        EXPECT_EQ(Call(ofx::kActionCreateInstance, fx.Handle()), kOfxStatOK);
    }
    ~Host() { Call(ofx::kActionDestroyInstance, fx.Handle()); }

    OfxStatus Call(const char* action, OfxImageEffectHandle h, PropSet* in = nullptr,
                   PropSet* out = nullptr) {
        return plugin->mainEntry(action, h, in ? in->Handle() : nullptr,
                                 out ? out->Handle() : nullptr);
    }
    // A user's edit: the value, then the change notification.
    void SetParam(const std::string& name, std::array<double, 4> v, double time = 1.0) {
        Param& p = *fx.params.at(name);
        p.value = v;
        PropSet in;
        in.props[ofx::kPropType] = {std::string(ofx::kTypeParameter)};
        in.props[ofx::kPropName] = {name};
        in.props[ofx::kPropChangeReason] = {std::string(ofx::kChangeUserEdited)};
        in.props[ofx::kPropTime] = {time};
        EXPECT_EQ(Call(ofx::kActionInstanceChanged, fx.Handle(), &in), kOfxStatOK);
    }
    const Image16& Render(double time) {
        PropSet in;
        in.props[ofx::kPropTime] = {time};
        in.props[ofx::kImageEffectPropRenderWindow] = {0, 0, source.w, source.h};
        in.props[ofx::kImageEffectPropRenderScale] = {1.0, 1.0};
        fx.lastOutput.reset();
        EXPECT_EQ(Call(ofx::kActionRender, fx.Handle(), &in), kOfxStatOK);
        static const Image16 empty;
        return fx.lastOutput ? *fx.lastOutput : empty;
    }
    OfxStatus Interact(const char* action, double x, double y, double time = 1.0) {
        PropSet in;
        in.props[ofx::kPropEffectInstance] = {static_cast<void*>(fx.Handle())};
        in.props[ofx::kPropTime] = {time};
        in.props[ofx::kInteractPropPixelScale] = {1.0, 1.0};
        in.props[ofx::kImageEffectPropRenderScale] = {1.0, 1.0};
        in.props[ofx::kInteractPropPenPosition] = {x, y};
        return overlay(action, nullptr, in.Handle(), nullptr);
    }
};

Image16 Source(int w, int h) {
    Image16 img;
    img.w = w;
    img.h = h;
    img.px.resize(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            Pattern16(x, y, &img.px[(static_cast<size_t>(y) * w + x) * 4]);
    return img;
}

// ---- The same pictures from our own command line ------------------------------------------------
class OfxBundleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(TheBundle().lib, nullptr) << dlerror();
        dir = fs::temp_directory_path() /
              ("crate07-ofx-" +
               std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    // `crate07 apply` over the same picture; frame `last` of frames 1..last.
    Image16 Apply(const std::string& tool, const Image16& src, int last,
                  std::vector<std::string> extra = {}) {
        const std::string in = (dir / "src.png").string();
        HostImage image = MakeHostImage(src.w, src.h, [&](int x, int y, uint16_t* p) {
            std::memcpy(p, &src.px[(static_cast<size_t>(y) * src.w + x) * 4], 8);
        });
        SaveImageFile(*image.get(), in);
        std::vector<std::string> args = {"crate07",
                                         "apply",
                                         tool,
                                         "-i",
                                         in,
                                         "-o",
                                         (dir / "out_#.png").string(),
                                         "--frames",
                                         "1-" + std::to_string(last),
                                         "--quiet"};
        args.insert(args.end(), extra.begin(), extra.end());
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        std::ostringstream out, err;
        EXPECT_EQ(RunCommandLine(static_cast<int>(argv.size()), argv.data(), out, err), 0)
            << err.str();
        HostRef<Image> got(
            LoadImageFile((dir / ("out_" + std::to_string(last) + ".png")).string()));
        Image16 r;
        r.w = got->width;
        r.h = got->height;
        r.px.assign(got->Data(), got->Data() + got->SampleCount());
        return r;
    }
    fs::path dir;
};

std::vector<std::string> RegisteredTools() {
    std::vector<std::string> names;
    for (const ToolClassRow& row : ToolClassTable())
        if (row.factory) names.push_back(row.name + 2);
    return names;
}

TEST_F(OfxBundleTest, DescribesEveryRegisteredTool) {
    const auto tools = RegisteredTools();
    ASSERT_EQ(TheBundle().plugins.size(), tools.size());
    for (const std::string& tool : tools) {
        SCOPED_TRACE(tool);
        Host host(tool, Source(8, 6));
        std::string label;
        ASSERT_EQ(Get<std::string>(host.descriptor.props.Handle(), ofx::kPropLabel, 0, &label),
                  kOfxStatOK);
        EXPECT_EQ(label, tool);
        int sequential = -1;
        Get<int>(host.descriptor.props.Handle(), ofx::kImageEffectInstancePropSequentialRender, 0,
                 &sequential);
        EXPECT_EQ(sequential, ToolKeepsState(tool) ? 1 : 0);
        EXPECT_TRUE(host.fx.clips.count("Output") && host.fx.clips.count("Source"));
        EXPECT_NE(host.overlay, nullptr);
        // Every input the tool declares is a parameter with its label; a combo's entries are the
        // choice's options; a colour is one parameter of four channels.
        FusionDoc doc;
        doc.busy = 1;
        Operator* op = doc.AddTool(tool);
        for (Input* in : op->Inputs()) {
            if (in->GetDataType() == Input::DataType::Image) continue;
            std::string id = in->ID().str();
            if (in->GetAttr(kInColourChannel, -1) >= 0 && in->GetAttr(kInColourGroup, 0) > 0) {
                if (in->GetAttr(kInColourChannel) != 0) continue;
                id.pop_back();
            }
            SCOPED_TRACE(id);
            ASSERT_TRUE(host.fx.params.count(id));
            const Param& p = *host.fx.params.at(id);
            std::string plabel;
            Get<std::string>(p.props.Handle(), ofx::kPropLabel, 0, &plabel);
            EXPECT_EQ(plabel, in->Name().str());
            if (p.type == ofx::kParamTypeChoice) {
                auto entries = in->Attrs().GetAllText(kInComboEntry);
                ASSERT_EQ(p.props.props.at(ofx::kParamPropChoiceOption).size(), entries.size());
                for (size_t e = 0; e < entries.size(); ++e)
                    EXPECT_EQ(
                        std::get<std::string>(p.props.props.at(ofx::kParamPropChoiceOption)[e]),
                        entries[e]);
            }
        }
    }
}

TEST_F(OfxBundleTest, RendersLikeTheCommandLine) {
    // Every tool at its defaults (stateful ones three frames in), and a few with inputs set, the
    // bundle's 16-bit pictures equal to the command line's, and the float path within a step.
    struct Case {
        std::string tool;
        std::string param;
        std::array<double, 4> value;
        std::vector<std::string> set;
    };
    std::vector<Case> cases;
    for (const std::string& tool : RegisteredTools())
        cases.push_back({tool, "", {}, {}});
    cases.push_back({"Ripple", "XYmp", {30, 0, 0, 0}, {"--set", "XYmp=30"}});
    cases.push_back(
        {"Ripple", "Liht", {0.25, 0.75, 0, 0}, {"--set", "Doht=1", "--set", "Liht=0.25,0.75"}});
    cases.push_back({"Clouds", "Sedy", {1234, 0, 0, 0}, {"--set", "Sedy=1234"}});
    // A preset chosen in the application writes the tool's values into the parameters.
    cases.push_back({"Clouds", "Se18", {6, 0, 0, 0}, {"--preset", "Lit1"}});
    cases.push_back({"Rain", "Dem1", {2, 0, 0, 0}, {"--preset", "Squall"}});
    const Image16 src = Source(24, 16);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tool + " " + c.param);
        const int last = ToolKeepsState(c.tool) ? 3 : 1;
        Host host(c.tool, src);
        if (c.param == "Liht") host.SetParam("Doht", {1, 0, 0, 0});
        if (!c.param.empty()) {
            ASSERT_TRUE(host.fx.params.count(c.param));
            host.SetParam(c.param, c.value);
        }
        Image16 got;
        for (int f = 1; f <= last; ++f)
            got = host.Render(f);
        const Image16 want = Apply(c.tool, src, last, c.set);
        ASSERT_EQ(got.px.size(), want.px.size());
        EXPECT_EQ(got.px, want.px);
    }
}

TEST_F(OfxBundleTest, KeysAndFloatImages) {
    // A keyed amplitude read at the render's time; the float path maps 0..1 to the 16-bit samples.
    const Image16 src = Source(20, 12);
    Host host("Ripple", src);
    Param& amp = *host.fx.params.at("XYmp");
    amp.keys[1.0] = {0, 0, 0, 0};
    amp.keys[5.0] = {40, 0, 0, 0};
    const Image16 at3 = host.Render(3);
    EXPECT_EQ(at3.px, Apply("Ripple", src, 1, {"--set", "XYmp=20"}).px);

    Host floats("Ripple", src, 1.0, true);
    floats.SetParam("XYmp", {20, 0, 0, 0});
    const Image16 f = floats.Render(1);
    ASSERT_EQ(f.px.size(), at3.px.size());
    for (size_t i = 0; i < f.px.size(); ++i)
        ASSERT_EQ(f.px[i], at3.px[i]) << i;
}

TEST_F(OfxBundleTest, StatefulToolsGiveTheInOrderPictureOutOfOrder) {
    const Image16 src = Source(24, 16);
    for (const std::string& tool : RegisteredTools()) {
        if (!ToolKeepsState(tool)) continue;
        SCOPED_TRACE(tool);
        Host inOrder(tool, src);
        std::vector<Image16> frames;
        for (int f = 1; f <= 4; ++f)
            frames.push_back(inOrder.Render(f));
        Host jumps(tool, src);
        EXPECT_EQ(jumps.Render(4).px, frames[3].px);  // a jump forward warms up from frame 1
        EXPECT_EQ(jumps.Render(2).px, frames[1].px);  // and so does a jump back
        EXPECT_EQ(jumps.Render(3).px, frames[2].px);  // the next frame simply steps
        EXPECT_EQ(jumps.Render(3).px, frames[2].px);  // a frame again is the same frame
    }
}

TEST_F(OfxBundleTest, OverlayDrawsAndDragsWithOneUndoGroup) {
    Host host("Ripple", Source(48, 32));
    host.SetParam("Doht", {1, 0, 0, 0});
    host.Render(1);
    gGlCalls.clear();
    ASSERT_EQ(host.Interact(ofx::kInteractActionDraw, 0, 0), kOfxStatOK);
    ASSERT_FALSE(gGlCalls.empty());
    // The light handle is a cross and a box at the picture's centre.
    bool centre = false;
    for (const auto& call : gGlCalls)
        for (size_t i = 0; i + 1 < call.points.size(); i += 2)
            centre = centre || (std::abs(call.points[i] - 24.0) <= 4.0 &&
                                std::abs(call.points[i + 1] - 16.0) <= 4.0);
    EXPECT_TRUE(centre);

    const int groups = host.fx.editGroups;
    EXPECT_EQ(host.Interact(ofx::kInteractActionPenDown, 24, 16), kOfxStatOK);
    EXPECT_EQ(host.Interact(ofx::kInteractActionPenMotion, 30, 20), kOfxStatOK);
    EXPECT_EQ(host.Interact(ofx::kInteractActionPenUp, 30, 20), kOfxStatOK);
    EXPECT_EQ(host.fx.editGroups, groups + 1);
    const Param& light = *host.fx.params.at("Liht");
    EXPECT_DOUBLE_EQ(light.value[0], 0.625);
    EXPECT_DOUBLE_EQ(light.value[1], 0.625);
    // A press on nothing is left to the host.
    EXPECT_EQ(host.Interact(ofx::kInteractActionPenDown, 2, 30), kOfxStatReplyDefault);
}

}  // namespace
