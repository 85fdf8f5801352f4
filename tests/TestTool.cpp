#include "tests/TestTool.h"

#include <cstring>

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"

std::atomic<bool> TestEngine::abortMidRender{false};

namespace {

bool SameImage(const WorkImage* a, const WorkImage* b) {
    if (!a || !b || a->width != b->width || a->height != b->height) return false;
    for (int y = 0; y < a->height; ++y)
        if (std::memcmp(a->rows[y], b->rows[y], static_cast<size_t>(a->width) * 8) != 0)
            return false;
    return true;
}

uint16_t Clamp15(long v) {
    return static_cast<uint16_t>(v > 32767 ? 32767 : (v < 0 ? 0 : v));
}

}  // namespace

void TestEngine::ControlEvent(int event, float x, float y) {
    events.push_back(event);
    ToolOverlay::ControlEvent(event, x, y);
}

void TestEngine::FirstFrame() {
    ++firstFrames;
    gain.SetHidden(invert.Flag());
}

void TestEngine::Render() {
    ++renders;
    ++sinceBump;
    WorkImage* out = outputPort.image;
    WorkImage* matte = secondPort.image;
    sawMatte = matte && secondPort.inputs[0] && secondPort.inputs[0] != firstPort.inputs[0];
    secondNamesMain =
        secondPort.inputs[0] != nullptr && secondPort.inputs[0] == firstPort.inputs[0];
    secondIsCopy = matte && matte != firstPort.image && SameImage(matte, firstPort.image);
    secondWidth = matte ? matte->width : 0;
    secondHeight = matte ? matte->height : 0;
    if (!out) return;

    gainValue_ = gain.Double();
    modeValue_ = mode.Int();
    invertOn_ = invert.Flag();
    stripes_.assign(static_cast<size_t>(out->width), 0);
    if (modeValue_ == 3) {
        // The stripes are drawn here, on the processing thread, one draw a column.
        int32_t state = -seed.Int();
        for (int x = 0; x < out->width; ++x)
            stripes_[x] = ShuffledRandom(&state) < 0.5 ? 1 : 0;
    }
    RunOverRows(&TestEngine::ShadeRows, out->height);

    if (abortMidRender.load()) ToolEngine::op->SetAbort(true);
    if (IsAborted()) return;

    if (sawMatte) out->CopyAlphaFrom(matte);
    if (!keepOutputAlpha) out->CopyAlphaFrom(firstPort.image);
}

void TestEngine::ShadeRows(int first, int last) {
    {
        std::lock_guard<std::mutex> lock(rangeMutex_);
        ranges_.emplace_back(first, last);
    }
    WorkImage* out = outputPort.image;
    const uint16_t tints[3] = {tint.Sample(0), tint.Sample(1), tint.Sample(2)};
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        uint16_t* p = out->rows[y];
        for (int x = 0; x < out->width; ++x, p += 4) {
            for (int c = 0; c < 3; ++c) {
                long v;
                if (modeValue_ == 3 && stripes_[x]) {
                    v = tints[c];
                } else {
                    v = TruncateToInt(p[c] * gainValue_);
                    if (modeValue_ == 2) v += tints[c];
                    if (modeValue_ == 4) v = c == 0 ? sinceBump : 0;
                }
                uint16_t s = Clamp15(v);
                p[c] = invertOn_ ? static_cast<uint16_t>(32767 - s) : s;
            }
        }
    }
}

void TestEngine::OnDemo(double time) {
    calls.push_back({"Demo", time, demo.Int(), gain.Double()});
    if (demo.Int() == 0) {
        gain.SetDouble(time, 0.25);
        invert.SetInt(-1.0, 1);
    } else if (demo.Int() == 1) {
        gain.SetDouble(time, 0.75);
        invert.SetInt(-1.0, 0);
    }
}

void TestEngine::OnInvert(double time) {
    calls.push_back({"Invt", time, demo.Int(), gain.Double()});
    gain.SetHidden(invert.Flag());
}

void TestEngine::OnBump(double time) {
    (void)time;
    // A press counts when the value is above one half.
    if (bump.Int() > 0 || bump.Double() > 0.5) {
        ++bumps;
        sinceBump = 0;
    }
}

void TestEngine::OnTint(double time) {
    calls.push_back({"Tint", time, demo.Int(), gain.Double()});
}

std::vector<std::pair<int, int>> TestEngine::Ranges() {
    std::lock_guard<std::mutex> lock(rangeMutex_);
    return ranges_;
}

void TestEngine::ClearRecords() {
    std::lock_guard<std::mutex> lock(rangeMutex_);
    ranges_.clear();
    calls.clear();
}

const ToolDecl& TestToolDecl() {
    static const InputDecl rows[] = {
        Combo("Demo", "Demos", 0, 0.0, {"First", "Second"})
            .Notify()
            .Bind<&TestEngine::demo>()
            .OnChange<&TestEngine::OnDemo>(),
        Slider("Gain", "Gain", 0, 1.0, 0.0, 2.0).Allowed(0.0, 4.0).Bind<&TestEngine::gain>(),
        Checkbox("Invt", "Invert", 0, 0.0)
            .Fixed()
            .Notify()
            .Bind<&TestEngine::invert>()
            .OnChange<&TestEngine::OnInvert>(),
        Combo("Mode", "Mode", 0, 0.0, {"Copy", "Add", "Stripes", "Count"})
            .StoreAs(Store::Index1, 1.0)
            .Bind<&TestEngine::mode>(),
        ColourChannel("TinR", "Tint", 1, 1, 0, 1.0)
            .Notify()
            .Bind<&TestEngine::tint>()
            .OnChange<&TestEngine::OnTint>(),
        ColourChannel("TinG", "Tint", 1, 1, 1, 0.5)
            .Notify()
            .Bind<&TestEngine::tint>()
            .OnChange<&TestEngine::OnTint>(),
        ColourChannel("TinB", "Tint", 1, 1, 2, 0.0)
            .Notify()
            .Bind<&TestEngine::tint>()
            .OnChange<&TestEngine::OnTint>(),
        ColourChannel("TinA", "Tint", 1, 1, 3, 1.0)
            .Notify()
            .Bind<&TestEngine::tint>()
            .OnChange<&TestEngine::OnTint>(),
        Offset("Cent", "Centre", 1, 0.5, 0.5).Bind<&TestEngine::centre>(),
        Slider("Seed", "Seed", 1, 0.0, 0.0, 100.0)
            .Whole()
            .Fixed()
            .StoreAs(Store::Int)
            .Bind<&TestEngine::seed>(),
        Button("Bump", "Bump", 1)
            .Notify()
            .Bind<&TestEngine::bump>()
            .OnChange<&TestEngine::OnBump>(),
        ImageIn("Source", "Source", 1),
        ImageIn("Matte", "Matte", 2).Optional(),
        ImageOut("Output", "Output", 1),
    };
    static const ToolDecl decl{{"Q9 Test", "More"}, rows, sizeof(rows) / sizeof(rows[0])};
    return decl;
}

TestOperator::TestOperator(const Registry* reg, const ScriptVal& script, const TagList& tags)
    : TestOperator(reg, script, tags, new TestEngine()) {}

TestOperator::TestOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                           TestEngine* engine)
    : ToolOperator(reg, script, tags, engine, engine, TestToolDecl()) {
    // One on-screen control: a cross at "Centre".
    AddScreenControl<PointControl>({"Cent"});
}

void TestOperator::ProcessChunk(Request* request, long chunk) {
    {
        std::lock_guard<std::mutex> lock(chunkMutex_);
        chunkCalls_.push_back({chunk, job.threadCount, job.rowCount, job.engineChunk != nullptr});
    }
    ToolOperator::ProcessChunk(request, chunk);
}

void TestOperator::NotifyChanged(Input* input, Parameter* param, double time, TagList* tags) {
    ++notifications;
    const ColourInputBinding& tint = Test()->tint;
    for (int c = 0; c < 4; ++c)
        if (input && input == tint.inputs[c]) tintGuards.push_back(tint.notifyGuard);
    ToolOperator::NotifyChanged(input, param, time, tags);
}

std::vector<TestOperator::ChunkCall> TestOperator::ChunkCalls() {
    std::lock_guard<std::mutex> lock(chunkMutex_);
    return chunkCalls_;
}

void TestOperator::ClearChunkCalls() {
    std::lock_guard<std::mutex> lock(chunkMutex_);
    chunkCalls_.clear();
}

Registry* RegisterTestTool() {
    static Registry* reg = RegisterToolClass(
        {"Q9.Test", "Q9Test", "TST", 0, "A tool for tests.", "", &MakeTool<TestOperator>});
    return reg;
}

namespace {
// Entered while the test program starts, so that a command line run in-process finds it.
const Registry* const testToolRegistry = RegisterTestTool();
}  // namespace
