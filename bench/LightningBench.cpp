// Lightning and Lightning2 with default inputs at 720 x 486 and 1920 x 1080, on two processors:
// the whole render cycle (import, render, export), the engine's render alone, and the steps the
// render is made of (the tree and its stamping, the glow).
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "lightning/Lightning.h"
#include "lightning/Lightning2.h"

namespace {

enum Tool : int64_t { kLightning = 0, kLightning2 = 1 };

// A dark opaque gradient of 16-bit samples.
Image* MakeSky(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            p[0] = static_cast<uint16_t>(2000 + 4000 * y / height);
            p[1] = static_cast<uint16_t>(3000 + 4000 * y / height);
            p[2] = static_cast<uint16_t>(9000 + 9000 * x / width);
            p[3] = 65535;
        }
    return image;
}

// A document with one bolt tool on two processors.
class BoltBenchDoc {
  public:
    explicit BoltBenchDoc(int64_t tool) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<ToolOperator*>(
            doc.AddTool(tool == kLightning ? "Lightning" : "Lightning2"));
    }
    ~BoltBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    BoltBenchDoc(const BoltBenchDoc&) = delete;
    BoltBenchDoc& operator=(const BoltBenchDoc&) = delete;

    BoltEngine* Engine() const { return static_cast<BoltEngine*>(op->Engine()); }

    FusionDoc doc;
    ToolOperator* op = nullptr;

  private:
    int saved_;
};

const char* ToolName(int64_t tool) {
    return tool == kLightning ? "Lightning" : "Lightning2";
}

// The whole cycle of one frame, as the host runs it.
void BM_BoltFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    BoltBenchDoc t(state.range(2));
    Image* sky = MakeSky(width, height);
    Input* background = t.op->FindInput("Background");
    for (auto _ : state) {
        Request request(t.op, 0.0);
        request.SetInputImage(background, sky);
        t.op->Process(&request);
        Parameter* out = request.TakeOutputData(t.op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }
    state.SetLabel(ToolName(state.range(2)));
    state.SetItemsProcessed(state.iterations() * width * height);
    sky->Recycle();
}
BENCHMARK(BM_BoltFrame)
    ->ArgsProduct({{720}, {486}, {kLightning, kLightning2}})
    ->ArgsProduct({{1920}, {1080}, {kLightning, kLightning2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The engine with the frame's work images made once, outside the timing; `part` 0 is the whole
// render, 1 the tree with its stamping, 2 the glow (blur and tint).
class EngineScope {
  public:
    EngineScope(BoltBenchDoc& t, int width, int height)
        : t_(t), host_(MakeSky(width, height)), request_(t.op, 0.0) {
        // One render first, so that the inputs are read and the engine's buffers exist.
        {
            Request request(t.op, 0.0);
            request.SetInputImage(t.op->FindInput("Background"), host_);
            t.op->Process(&request);
        }
        source_.reset(ImportImage(host_, nullptr, false, nullptr));
        out_.reset(new WorkImage(*source_));
        savedJob_ = currentChunkJob;
        currentChunkJob = &t.op->job;
        t.op->job.request = &request_;
        BoltEngine& e = *t.Engine();
        e.firstPort.image = source_.get();
        e.outputPort.image = out_.get();
    }
    ~EngineScope() {
        BoltEngine& e = *t_.Engine();
        e.firstPort.image = e.outputPort.image = nullptr;
        currentChunkJob = savedJob_;
        t_.op->job.request = nullptr;
        host_->Recycle();
    }
    EngineScope(const EngineScope&) = delete;
    EngineScope& operator=(const EngineScope&) = delete;

    WorkImage* Out() const { return out_.get(); }

  private:
    BoltBenchDoc& t_;
    Image* host_;
    Request request_;
    std::unique_ptr<WorkImage> source_, out_;
    ChunkJob* savedJob_ = nullptr;
};

void BM_BoltRender(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    BoltBenchDoc t(state.range(2));
    EngineScope scope(t, width, height);
    BoltEngine& e = *t.Engine();
    const int64_t part = state.range(3);
    if (part != 0) {
        // The settings and brushes of a frame, as the render makes them before these steps.
        e.FillParams(width, height, 1.0, 1.0);
        e.MakeBrushes();
    }
    for (auto _ : state) {
        if (part == 0) {
            e.Render();
        } else if (part == 1) {
            e.params.randomState = -1;
            e.stamps.clear();
            e.DrawBoltTree(width, height);
            e.stampPlan.Build(e.stamps, e.params.brushes, 3);
            e.RunOverRows(&BoltEngine::StampBoltRows, height);
        } else {
            e.BlurBoltLayer();
        }
        benchmark::DoNotOptimize(scope.Out()->pixels);
    }
    static const char* parts[] = {"render", "tree+stamps", "glow"};
    state.SetLabel(std::string(ToolName(state.range(2))) + " " + parts[part]);
    state.SetItemsProcessed(state.iterations() * width * height);
}
BENCHMARK(BM_BoltRender)
    ->ArgsProduct({{1920}, {1080}, {kLightning, kLightning2}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
