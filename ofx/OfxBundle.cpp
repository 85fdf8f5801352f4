// The bundle's two exported entry points and the plug-in table: one image effect for every tool
// the pack registers, so that a new tool appears here with no code of its own. Every action runs
// under the bundle's lock.
#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/Registration.h"
#include "ofx/OfxEffect.h"

using namespace ofx;

namespace {

constexpr int kMaxPlugins = 16;

OfxHost* gHost = nullptr;

struct Entry {
    const ToolClassRow* row = nullptr;
    std::string identifier;
    OfxPlugin plugin{};
};

std::vector<Entry>& Plugins();

const ToolClassRow* RowAt(int n) {
    auto& list = Plugins();
    return n >= 0 && n < static_cast<int>(list.size()) ? list[n].row : nullptr;
}

Instance* InstanceOf(OfxImageEffectHandle effect) {
    OfxPropertySetHandle p = nullptr;
    if (!effect || HostSuites().effect->getPropertySet(effect, &p) != kOfxStatOK) return nullptr;
    void* data = nullptr;
    HostSuites().prop->propGetPointer(p, kPropInstanceData, 0, &data);
    return static_cast<Instance*>(data);
}

OfxStatus Load() {
    if (!gHost || !gHost->fetchSuite) return kOfxStatErrMissingHostFeature;
    Suites& s = HostSuites();
    s.prop =
        static_cast<const OfxPropertySuiteV1*>(gHost->fetchSuite(gHost->host, kPropertySuite, 1));
    s.effect = static_cast<const OfxImageEffectSuiteV1*>(
        gHost->fetchSuite(gHost->host, kImageEffectSuite, 1));
    s.param =
        static_cast<const OfxParameterSuiteV1*>(gHost->fetchSuite(gHost->host, kParameterSuite, 1));
    s.interact =
        static_cast<const OfxInteractSuiteV1*>(gHost->fetchSuite(gHost->host, kInteractSuite, 1));
    if (!s.prop || !s.effect || !s.param) return kOfxStatErrMissingHostFeature;
    return kOfxStatOK;
}

OfxStatus Dispatch(int n, const char* action, const void* handle, OfxPropertySetHandle in,
                   OfxPropertySetHandle out, OfxPluginEntryPoint* interact) {
    const ToolClassRow* row = RowAt(n);
    if (!row || !action) return kOfxStatErrBadHandle;
    const std::string a = action;
    std::unique_lock<std::mutex> hold(BundleLock());
    if (a == kActionLoad) return Load();
    if (a == kActionUnload) return kOfxStatOK;
    auto effect = static_cast<OfxImageEffectHandle>(const_cast<void*>(handle));
    try {
        if (a == kActionDescribe) {
            OfxStatus st = Describe(*row, effect);
            OfxPropertySetHandle p = nullptr;
            if (st == kOfxStatOK && HostSuites().effect->getPropertySet(effect, &p) == kOfxStatOK)
                HostSuites().prop->propSetPointer(p, kImageEffectPluginPropOverlayInteractV1, 0,
                                                  reinterpret_cast<void*>(interact));
            return st;
        }
        if (a == kActionDescribeInContext) return DescribeInContext(*row, effect);
        if (a == kActionCreateInstance) {
            OfxPropertySetHandle p = nullptr;
            if (HostSuites().effect->getPropertySet(effect, &p) != kOfxStatOK)
                return kOfxStatErrBadHandle;
            auto* inst = new Instance(*row, effect);
            HostSuites().prop->propSetPointer(p, kPropInstanceData, 0, inst);
            return kOfxStatOK;
        }
        Instance* inst = InstanceOf(effect);
        if (a == kActionDestroyInstance) {
            delete inst;
            OfxPropertySetHandle p = nullptr;
            if (HostSuites().effect->getPropertySet(effect, &p) == kOfxStatOK)
                HostSuites().prop->propSetPointer(p, kPropInstanceData, 0, nullptr);
            return kOfxStatOK;
        }
        if (a == kActionGetClipPreferences) {
            // The pictures are premultiplied, and change from frame to frame (time drives every
            // tool, and the stateful ones step).
            HostSuites().prop->propSetString(out, kImageEffectPropPreMultiplication, 0,
                                             kImagePreMultiplied);
            HostSuites().prop->propSetInt(out, kImageEffectFrameVarying, 0, 1);
            return kOfxStatOK;
        }
        if (!inst) return kOfxStatReplyDefault;
        if (a == kActionRender) return inst->Render(in, hold);
        if (a == kActionInstanceChanged) return inst->Changed(in);
        if (a == kActionGetFramesNeeded) return inst->FramesNeeded(in, out);
        if (a == kActionGetRegionsOfInterest) return inst->RegionsOfInterest(in, out);
        if (a == kActionBeginInstanceChanged || a == kActionEndInstanceChanged ||
            a == kActionBeginSequenceRender || a == kActionEndSequenceRender)
            return kOfxStatOK;
    } catch (const std::exception&) {
        return kOfxStatFailed;
    }
    return kOfxStatReplyDefault;
}

OfxStatus DispatchInteract(const char* action, const void* handle, OfxPropertySetHandle in) {
    if (!action) return kOfxStatErrBadHandle;
    const std::string a = action;
    if (a != kInteractActionDraw && a != kInteractActionPenDown && a != kInteractActionPenMotion &&
        a != kInteractActionPenUp)
        return kOfxStatReplyDefault;
    std::lock_guard<std::mutex> hold(BundleLock());
    // The effect the overlay belongs to: in the action's arguments, else on the interact.
    void* effect = nullptr;
    if (in) HostSuites().prop->propGetPointer(in, kPropEffectInstance, 0, &effect);
    if (!effect && HostSuites().interact) {
        OfxPropertySetHandle p = nullptr;
        auto ih = static_cast<OfxInteractHandle>(const_cast<void*>(handle));
        if (HostSuites().interact->interactGetPropertySet(ih, &p) == kOfxStatOK && p)
            HostSuites().prop->propGetPointer(p, kPropEffectInstance, 0, &effect);
    }
    Instance* inst = InstanceOf(static_cast<OfxImageEffectHandle>(effect));
    if (!inst) return kOfxStatReplyDefault;
    try {
        if (a == kInteractActionDraw) return inst->Draw(in);
        return inst->Pen(a, in);
    } catch (const std::exception&) {
        return kOfxStatFailed;
    }
}

template <int N>
OfxStatus InteractEntry(const char* action, const void* handle, OfxPropertySetHandle in,
                        OfxPropertySetHandle) {
    return DispatchInteract(action, handle, in);
}

template <int N>
OfxStatus MainEntry(const char* action, const void* handle, OfxPropertySetHandle in,
                    OfxPropertySetHandle out) {
    return Dispatch(N, action, handle, in, out, &InteractEntry<N>);
}

void SetHost(OfxHost* host) {
    gHost = host;
}

template <int... N>
constexpr std::array<OfxPluginEntryPoint*, sizeof...(N)> EntryTable(
    std::integer_sequence<int, N...>) {
    return {&MainEntry<N>...};
}

std::vector<Entry>& Plugins() {
    static std::vector<Entry> list = [] {
        static constexpr auto entries = EntryTable(std::make_integer_sequence<int, kMaxPlugins>());
        std::vector<Entry> l;
        RegisterPackTools();
        for (const ToolClassRow& row : ToolClassTable()) {
            if (!row.factory || l.size() >= entries.size()) continue;
            Entry e;
            e.row = &row;
            // "Q9.Ripple" becomes "example.crate07.Ripple": a reverse domain, then the tool.
            e.identifier = std::string("example.crate07.") + (row.name + 2);
            l.push_back(e);
        }
        for (size_t i = 0; i < l.size(); ++i) {
            OfxPlugin& p = l[i].plugin;
            p.pluginApi = kImageEffectPluginApi;
            p.apiVersion = kImageEffectPluginApiVersion;
            p.pluginIdentifier = l[i].identifier.c_str();
            p.pluginVersionMajor = 5;
            p.pluginVersionMinor = 0;
            p.setHost = &SetHost;
            p.mainEntry = entries[i];
        }
        return l;
    }();
    return list;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int OfxGetNumberOfPlugins() {
    return static_cast<int>(Plugins().size());
}

__attribute__((visibility("default"))) OfxPlugin* OfxGetPlugin(int nth) {
    auto& list = Plugins();
    if (nth < 0 || nth >= static_cast<int>(list.size())) return nullptr;
    return &list[nth].plugin;
}

}  // extern "C"
