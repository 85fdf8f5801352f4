// Our own declarations of the parts of the OpenFX image-effect interface that the bundle and its
// test host use. The interface is a set of C types, function tables ("suites") and string
// constants; their names, values and layouts below are facts of that interface, written here from
// its published reference. Only what we use is declared.
#pragma once

#include <cstddef>

extern "C" {

// ---- Core ---------------------------------------------------------------------------------------

// Every call answers with a status.
typedef int OfxStatus;
constexpr OfxStatus kOfxStatOK = 0;
constexpr OfxStatus kOfxStatFailed = 1;
constexpr OfxStatus kOfxStatErrFatal = 2;
constexpr OfxStatus kOfxStatErrUnknown = 3;
constexpr OfxStatus kOfxStatErrMissingHostFeature = 4;
constexpr OfxStatus kOfxStatErrUnsupported = 5;
constexpr OfxStatus kOfxStatErrExists = 6;
constexpr OfxStatus kOfxStatErrFormat = 7;
constexpr OfxStatus kOfxStatErrMemory = 8;
constexpr OfxStatus kOfxStatErrBadHandle = 9;
constexpr OfxStatus kOfxStatErrBadIndex = 10;
constexpr OfxStatus kOfxStatErrValue = 11;
constexpr OfxStatus kOfxStatReplyYes = 12;
constexpr OfxStatus kOfxStatReplyNo = 13;
constexpr OfxStatus kOfxStatReplyDefault = 14;

// Opaque handles: the host decides what stands behind them.
typedef struct OfxPropertySetStruct* OfxPropertySetHandle;
typedef struct OfxImageEffectStruct* OfxImageEffectHandle;
typedef struct OfxImageClipStruct* OfxImageClipHandle;
typedef struct OfxParamSetStruct* OfxParamSetHandle;
typedef struct OfxParamStruct* OfxParamHandle;
typedef struct OfxInteractStruct* OfxInteractHandle;
typedef struct OfxImageMemoryStruct* OfxImageMemoryHandle;

typedef double OfxTime;
struct OfxRangeD {
    double min, max;
};
struct OfxPointD {
    double x, y;
};
struct OfxRectD {
    double x1, y1, x2, y2;
};
struct OfxRectI {
    int x1, y1, x2, y2;
};

// The host as a plug-in sees it: its description and the way to its suites.
struct OfxHost {
    OfxPropertySetHandle host;
    const void* (*fetchSuite)(OfxPropertySetHandle host, const char* suiteName, int suiteVersion);
};

// A plug-in's one entry for every action.
typedef OfxStatus(OfxPluginEntryPoint)(const char* action, const void* handle,
                                       OfxPropertySetHandle inArgs, OfxPropertySetHandle outArgs);

struct OfxPlugin {
    const char* pluginApi;
    int apiVersion;
    const char* pluginIdentifier;
    unsigned int pluginVersionMajor;
    unsigned int pluginVersionMinor;
    void (*setHost)(OfxHost* host);
    OfxPluginEntryPoint* mainEntry;
};

// The two symbols a binary exports.
typedef int (*OfxGetNumberOfPluginsFn)();
typedef OfxPlugin* (*OfxGetPluginFn)(int nth);

// ---- Suites -------------------------------------------------------------------------------------

struct OfxPropertySuiteV1 {
    OfxStatus (*propSetPointer)(OfxPropertySetHandle, const char* property, int index, void* value);
    OfxStatus (*propSetString)(OfxPropertySetHandle, const char* property, int index,
                               const char* value);
    OfxStatus (*propSetDouble)(OfxPropertySetHandle, const char* property, int index, double value);
    OfxStatus (*propSetInt)(OfxPropertySetHandle, const char* property, int index, int value);
    OfxStatus (*propSetPointerN)(OfxPropertySetHandle, const char* property, int count,
                                 void* const* value);
    OfxStatus (*propSetStringN)(OfxPropertySetHandle, const char* property, int count,
                                const char* const* value);
    OfxStatus (*propSetDoubleN)(OfxPropertySetHandle, const char* property, int count,
                                const double* value);
    OfxStatus (*propSetIntN)(OfxPropertySetHandle, const char* property, int count,
                             const int* value);
    OfxStatus (*propGetPointer)(OfxPropertySetHandle, const char* property, int index,
                                void** value);
    OfxStatus (*propGetString)(OfxPropertySetHandle, const char* property, int index, char** value);
    OfxStatus (*propGetDouble)(OfxPropertySetHandle, const char* property, int index,
                               double* value);
    OfxStatus (*propGetInt)(OfxPropertySetHandle, const char* property, int index, int* value);
    OfxStatus (*propGetPointerN)(OfxPropertySetHandle, const char* property, int count,
                                 void** value);
    OfxStatus (*propGetStringN)(OfxPropertySetHandle, const char* property, int count,
                                char** value);
    OfxStatus (*propGetDoubleN)(OfxPropertySetHandle, const char* property, int count,
                                double* value);
    OfxStatus (*propGetIntN)(OfxPropertySetHandle, const char* property, int count, int* value);
    OfxStatus (*propReset)(OfxPropertySetHandle, const char* property);
    OfxStatus (*propGetDimension)(OfxPropertySetHandle, const char* property, int* count);
};

struct OfxImageEffectSuiteV1 {
    OfxStatus (*getPropertySet)(OfxImageEffectHandle, OfxPropertySetHandle* propHandle);
    OfxStatus (*getParamSet)(OfxImageEffectHandle, OfxParamSetHandle* paramSet);
    OfxStatus (*clipDefine)(OfxImageEffectHandle, const char* name,
                            OfxPropertySetHandle* propertySet);
    OfxStatus (*clipGetHandle)(OfxImageEffectHandle, const char* name, OfxImageClipHandle* clip,
                               OfxPropertySetHandle* propertySet);
    OfxStatus (*clipGetPropertySet)(OfxImageClipHandle, OfxPropertySetHandle* propHandle);
    OfxStatus (*clipGetImage)(OfxImageClipHandle, OfxTime time, const OfxRectD* region,
                              OfxPropertySetHandle* imageHandle);
    OfxStatus (*clipReleaseImage)(OfxPropertySetHandle imageHandle);
    OfxStatus (*clipGetRegionOfDefinition)(OfxImageClipHandle, OfxTime time, OfxRectD* bounds);
    int (*abort)(OfxImageEffectHandle);
    OfxStatus (*imageMemoryAlloc)(OfxImageEffectHandle, size_t nBytes,
                                  OfxImageMemoryHandle* memoryHandle);
    OfxStatus (*imageMemoryFree)(OfxImageMemoryHandle);
    OfxStatus (*imageMemoryLock)(OfxImageMemoryHandle, void** returnedPtr);
    OfxStatus (*imageMemoryUnlock)(OfxImageMemoryHandle);
};

// Values travel through C varargs: a double parameter takes double (or double* to read), an
// integer, boolean or choice int (int*), a 2-D point two doubles, a colour four doubles.
struct OfxParameterSuiteV1 {
    OfxStatus (*paramDefine)(OfxParamSetHandle, const char* paramType, const char* name,
                             OfxPropertySetHandle* propertySet);
    OfxStatus (*paramGetHandle)(OfxParamSetHandle, const char* name, OfxParamHandle* param,
                                OfxPropertySetHandle* propertySet);
    OfxStatus (*paramSetGetPropertySet)(OfxParamSetHandle, OfxPropertySetHandle* propHandle);
    OfxStatus (*paramGetPropertySet)(OfxParamHandle, OfxPropertySetHandle* propHandle);
    OfxStatus (*paramGetValue)(OfxParamHandle, ...);
    OfxStatus (*paramGetValueAtTime)(OfxParamHandle, OfxTime time, ...);
    OfxStatus (*paramGetDerivative)(OfxParamHandle, OfxTime time, ...);
    OfxStatus (*paramGetIntegral)(OfxParamHandle, OfxTime time1, OfxTime time2, ...);
    OfxStatus (*paramSetValue)(OfxParamHandle, ...);
    OfxStatus (*paramSetValueAtTime)(OfxParamHandle, OfxTime time, ...);
    OfxStatus (*paramGetNumKeys)(OfxParamHandle, unsigned int* numberOfKeys);
    OfxStatus (*paramGetKeyTime)(OfxParamHandle, unsigned int nthKey, OfxTime* time);
    OfxStatus (*paramGetKeyIndex)(OfxParamHandle, OfxTime time, int direction, int* index);
    OfxStatus (*paramDeleteKey)(OfxParamHandle, OfxTime time);
    OfxStatus (*paramDeleteAllKeys)(OfxParamHandle);
    OfxStatus (*paramCopy)(OfxParamHandle paramTo, OfxParamHandle paramFrom, OfxTime dstOffset,
                           const OfxRangeD* frameRange);
    OfxStatus (*paramEditBegin)(OfxParamSetHandle, const char* name);
    OfxStatus (*paramEditEnd)(OfxParamSetHandle);
};

struct OfxInteractSuiteV1 {
    OfxStatus (*interactSwapBuffers)(OfxInteractHandle);
    OfxStatus (*interactRedraw)(OfxInteractHandle);
    OfxStatus (*interactGetPropertySet)(OfxInteractHandle, OfxPropertySetHandle* property);
};

}  // extern "C"

// ---- String constants ---------------------------------------------------------------------------
namespace ofx {

constexpr const char* kImageEffectPluginApi = "OfxImageEffectPluginAPI";
constexpr int kImageEffectPluginApiVersion = 1;

constexpr const char* kPropertySuite = "OfxPropertySuite";
constexpr const char* kImageEffectSuite = "OfxImageEffectSuite";
constexpr const char* kParameterSuite = "OfxParameterSuite";
constexpr const char* kInteractSuite = "OfxInteractSuite";

// Actions.
constexpr const char* kActionLoad = "OfxActionLoad";
constexpr const char* kActionUnload = "OfxActionUnload";
constexpr const char* kActionDescribe = "OfxActionDescribe";
constexpr const char* kActionCreateInstance = "OfxActionCreateInstance";
constexpr const char* kActionDestroyInstance = "OfxActionDestroyInstance";
constexpr const char* kActionInstanceChanged = "OfxActionInstanceChanged";
constexpr const char* kActionBeginInstanceChanged = "OfxActionBeginInstanceChanged";
constexpr const char* kActionEndInstanceChanged = "OfxActionEndInstanceChanged";
constexpr const char* kActionDescribeInContext = "OfxImageEffectActionDescribeInContext";
constexpr const char* kActionRender = "OfxImageEffectActionRender";
constexpr const char* kActionBeginSequenceRender = "OfxImageEffectActionBeginSequenceRender";
constexpr const char* kActionEndSequenceRender = "OfxImageEffectActionEndSequenceRender";
constexpr const char* kActionGetRegionOfDefinition = "OfxImageEffectActionGetRegionOfDefinition";
constexpr const char* kActionGetRegionsOfInterest = "OfxImageEffectActionGetRegionsOfInterest";
constexpr const char* kActionGetClipPreferences = "OfxImageEffectActionGetClipPreferences";
constexpr const char* kActionGetFramesNeeded = "OfxImageEffectActionGetFramesNeeded";
constexpr const char* kActionIsIdentity = "OfxImageEffectActionIsIdentity";
constexpr const char* kInteractActionDraw = "OfxInteractActionDraw";
constexpr const char* kInteractActionPenMotion = "OfxInteractActionPenMotion";
constexpr const char* kInteractActionPenDown = "OfxInteractActionPenDown";
constexpr const char* kInteractActionPenUp = "OfxInteractActionPenUp";

// General properties.
constexpr const char* kPropType = "OfxPropType";
constexpr const char* kPropName = "OfxPropName";
constexpr const char* kPropLabel = "OfxPropLabel";
constexpr const char* kPropShortLabel = "OfxPropShortLabel";
constexpr const char* kPropLongLabel = "OfxPropLongLabel";
constexpr const char* kPropPluginDescription = "OfxPropPluginDescription";
constexpr const char* kPropInstanceData = "OfxPropInstanceData";
constexpr const char* kPropTime = "OfxPropTime";
constexpr const char* kPropEffectInstance = "OfxPropEffectInstance";
constexpr const char* kPropChangeReason = "OfxPropChangeReason";
constexpr const char* kChangeUserEdited = "OfxChangeUserEdited";
constexpr const char* kChangePluginEdited = "OfxChangePluginEdited";
constexpr const char* kTypeParameter = "OfxTypeParameter";
constexpr const char* kTypeClip = "OfxTypeClip";

// Image-effect properties.
constexpr const char* kImageEffectPropContext = "OfxImageEffectPropContext";
constexpr const char* kImageEffectContextFilter = "OfxImageEffectContextFilter";
constexpr const char* kImageEffectContextGeneral = "OfxImageEffectContextGeneral";
constexpr const char* kImageEffectPropSupportedContexts = "OfxImageEffectPropSupportedContexts";
constexpr const char* kImageEffectPropSupportedPixelDepths =
    "OfxImageEffectPropSupportedPixelDepths";
constexpr const char* kImageEffectPropSupportedComponents = "OfxImageEffectPropSupportedComponents";
constexpr const char* kImageEffectPluginPropGrouping = "OfxImageEffectPluginPropGrouping";
constexpr const char* kImageEffectPluginPropSingleInstance =
    "OfxImageEffectPluginPropSingleInstance";
constexpr const char* kImageEffectPluginRenderThreadSafety =
    "OfxImageEffectPluginRenderThreadSafety";
constexpr const char* kImageEffectRenderInstanceSafe = "OfxImageEffectRenderInstanceSafe";
constexpr const char* kImageEffectPluginPropHostFrameThreading =
    "OfxImageEffectPluginPropHostFrameThreading";
constexpr const char* kImageEffectPropSupportsMultipleClipDepths =
    "OfxImageEffectPropSupportsMultipleClipDepths";
constexpr const char* kImageEffectPropSupportsTiles = "OfxImageEffectPropSupportsTiles";
constexpr const char* kImageEffectPropTemporalClipAccess = "OfxImageEffectPropTemporalClipAccess";
constexpr const char* kImageEffectInstancePropSequentialRender =
    "OfxImageEffectInstancePropSequentialRender";
constexpr const char* kImageEffectPluginPropOverlayInteractV1 =
    "OfxImageEffectPluginPropOverlayInteractV1";
constexpr const char* kImageEffectPropFrameRange = "OfxImageEffectPropFrameRange";
constexpr const char* kImageEffectPropRenderWindow = "OfxImageEffectPropRenderWindow";
constexpr const char* kImageEffectPropRenderScale = "OfxImageEffectPropRenderScale";
constexpr const char* kImageEffectPropPixelDepth = "OfxImageEffectPropPixelDepth";
constexpr const char* kImageEffectPropComponents = "OfxImageEffectPropComponents";
constexpr const char* kImageEffectPropPreMultiplication = "OfxImageEffectPropPreMultiplication";
constexpr const char* kImageEffectPropSupportsMultiResolution =
    "OfxImageEffectPropSupportsMultiResolution";
constexpr const char* kImagePreMultiplied = "OfxImagePreMultiplied";
constexpr const char* kImageEffectFrameVarying = "OfxImageEffectFrameVarying";
constexpr const char* kImageEffectPropRegionOfDefinition = "OfxImageEffectPropRegionOfDefinition";
constexpr const char* kBitDepthShort = "OfxBitDepthShort";
constexpr const char* kBitDepthFloat = "OfxBitDepthFloat";
constexpr const char* kImageComponentRGBA = "OfxImageComponentRGBA";

// Clip properties.
constexpr const char* kImageClipPropOptional = "OfxImageClipPropOptional";
constexpr const char* kImageClipPropConnected = "OfxImageClipPropConnected";
// Out-arguments of the frames-needed and regions-of-interest actions: the name followed by the
// clip's name ("OfxImageClipPropFrameRange_Source", "OfxImageClipPropRoI_Source").
constexpr const char* kImageClipPropFrameRange = "OfxImageClipPropFrameRange";
constexpr const char* kImageClipPropRoI = "OfxImageClipPropRoI_";
constexpr const char* kImageEffectOutputClipName = "Output";
constexpr const char* kImageEffectSimpleSourceClipName = "Source";

// Image properties.
constexpr const char* kImagePropData = "OfxImagePropData";
constexpr const char* kImagePropBounds = "OfxImagePropBounds";
constexpr const char* kImagePropRowBytes = "OfxImagePropRowBytes";
constexpr const char* kImagePropPixelAspectRatio = "OfxImagePropPixelAspectRatio";
constexpr const char* kImageEffectPropProjectExtent = "OfxImageEffectPropProjectExtent";

// Parameter types and properties.
constexpr const char* kParamTypeInteger = "OfxParamTypeInteger";
constexpr const char* kParamTypeDouble = "OfxParamTypeDouble";
constexpr const char* kParamTypeBoolean = "OfxParamTypeBoolean";
constexpr const char* kParamTypeChoice = "OfxParamTypeChoice";
constexpr const char* kParamTypeRGBA = "OfxParamTypeRGBA";
constexpr const char* kParamTypeDouble2D = "OfxParamTypeDouble2D";
constexpr const char* kParamTypePushButton = "OfxParamTypePushButton";
constexpr const char* kParamTypePage = "OfxParamTypePage";
constexpr const char* kParamPropDefault = "OfxParamPropDefault";
constexpr const char* kParamPropMin = "OfxParamPropMin";
constexpr const char* kParamPropMax = "OfxParamPropMax";
constexpr const char* kParamPropDisplayMin = "OfxParamPropDisplayMin";
constexpr const char* kParamPropDisplayMax = "OfxParamPropDisplayMax";
constexpr const char* kParamPropDoubleType = "OfxParamPropDoubleType";
constexpr const char* kParamDoubleTypeAngle = "OfxParamDoubleTypeAngle";
constexpr const char* kParamDoubleTypeNormalisedXYAbsolute =
    "OfxParamDoubleTypeNormalisedXYAbsolute";
constexpr const char* kParamPropChoiceOption = "OfxParamPropChoiceOption";
constexpr const char* kParamPropPageChild = "OfxParamPropPageChild";
constexpr const char* kParamPropEnabled = "OfxParamPropEnabled";
constexpr const char* kParamPropSecret = "OfxParamPropSecret";
constexpr const char* kParamPropHint = "OfxParamPropHint";
constexpr const char* kParamPropAnimates = "OfxParamPropAnimates";
constexpr const char* kParamPropScriptName = "OfxParamPropScriptName";
constexpr const char* kParamPropEvaluateOnChange = "OfxParamPropEvaluateOnChange";

// Interact properties.
constexpr const char* kInteractPropPixelScale = "OfxInteractPropPixelScale";
constexpr const char* kInteractPropPenPosition = "OfxInteractPropPenPosition";
constexpr const char* kInteractPropViewportSize = "OfxInteractPropViewportSize";

}  // namespace ofx
