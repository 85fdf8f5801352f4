// Rain, one simulation step a frame, at 720 x 486 and 1920 x 1080, on two processors: the whole
// render cycle (imports, step, export) and the engine's render alone, at the defaults and at the
// heaviest preset. The simulation is brought to its steady state before the timing begins.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "particles/Rain.h"

namespace {

// Preset numbers are the entries of "Demos" (0 "Rain" .. 8 "Bouncing"); -1 keeps the defaults.
constexpr int64_t kDefaults = -1;
// The heaviest preset: 600 drops a step living 200 steps, and with the Bounce Clip left open (the
// background in its place) every drop bounces where it is born, so some 54000 stay in the picture.
constexpr int64_t kBounceA = 5;
constexpr int kWarmUp = 250;  // steps before the timing: longer than any drop lives here

Image* MakeSky(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            p[0] = static_cast<uint16_t>(4000 + (x * 7) % 3000);
            p[1] = static_cast<uint16_t>(6000 + (y * 5) % 3000);
            p[2] = 14000;
            p[3] = 65535;
        }
    return image;
}

const char* PresetName(int64_t preset) {
    static const char* names[] = {"Rain",    "Drizzle", "Squall",   "Sheet",   "Light",
                                  "BounceA", "BounceB", "Movement", "Bouncing"};
    return preset >= 0 && preset < 9 ? names[preset] : "defaults";
}

class RainBenchDoc {
  public:
    RainBenchDoc(int64_t preset, int width, int height)
        : sky(MakeSky(width, height)), saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<RainOperator*>(doc.AddTool("Rain"));
        if (preset >= 0) {
            Number n(static_cast<double>(preset));
            op->FindInput("Dem1")->SetSource(&n, -1.0);
        }
        background = op->FindInput("Background Clip");
    }
    ~RainBenchDoc() {
        sky->Recycle();
        GetApp()->SetProcessorCount(saved_);
    }
    RainBenchDoc(const RainBenchDoc&) = delete;
    RainBenchDoc& operator=(const RainBenchDoc&) = delete;

    // One render at `time`, as the host runs it.
    void Frame(double time) {
        Request request(op, time);
        request.SetInputImage(background, sky);
        op->Process(&request);
        Parameter* out = request.TakeOutputData(op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }

    Image* sky;
    FusionDoc doc;
    RainOperator* op = nullptr;
    Input* background = nullptr;

  private:
    int saved_;
};

// The whole cycle of one frame, as the host runs it.
void BM_RainFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    RainBenchDoc t(state.range(2), width, height);
    int frame = 1;
    for (; frame <= kWarmUp; ++frame)
        t.Frame(frame);
    for (auto _ : state)
        t.Frame(frame++);
    state.SetLabel(PresetName(state.range(2)));
    state.counters["drops"] = t.op->Rain()->pool.activeCount;
}
BENCHMARK(BM_RainFrame)
    ->ArgsProduct({{720}, {486}, {kDefaults, kBounceA}})
    ->ArgsProduct({{1920}, {1080}, {kDefaults, kBounceA}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The engine's render alone (copy of the background, one step, its draw pass): the frame's work
// images are made once, outside the timing.
void BM_RainStep(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    RainBenchDoc t(state.range(2), width, height);
    int frame = 1;
    for (; frame <= kWarmUp; ++frame)
        t.Frame(frame);
    std::unique_ptr<WorkImage> source(ImportImage(t.sky, nullptr, false, nullptr));
    std::unique_ptr<WorkImage> birth(new WorkImage(*source));
    std::unique_ptr<WorkImage> bounce(new WorkImage(*source));
    std::unique_ptr<WorkImage> out(new WorkImage(*source));
    RainEngine& e = *t.op->Rain();
    Request request(t.op, 0.0);
    ChunkJob* savedJob = currentChunkJob;
    currentChunkJob = &t.op->job;
    t.op->job.request = &request;
    e.firstPort.image = source.get();
    e.secondPort.image = birth.get();
    e.bouncePort.image = bounce.get();
    e.outputPort.image = out.get();
    for (auto _ : state) {
        e.time = frame++;
        e.Render();
        benchmark::DoNotOptimize(out->pixels);
    }
    e.firstPort.image = e.secondPort.image = e.bouncePort.image = e.outputPort.image = nullptr;
    currentChunkJob = savedJob;
    t.op->job.request = nullptr;
    state.SetLabel(PresetName(state.range(2)));
    state.counters["drops"] = e.pool.activeCount;
}
BENCHMARK(BM_RainStep)
    ->ArgsProduct({{720}, {486}, {kDefaults, kBounceA}})
    ->ArgsProduct({{1920}, {1080}, {kDefaults, kBounceA}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
