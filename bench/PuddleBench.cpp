// Puddle at 720 x 486 and 1920 x 1080 on two processors: the whole render cycle of one frame of
// steady rain, at the defaults and in the hard case ("Rain Freq" 200, "Rain Endurance" 10, "Rain
// Radius" 200), where tens of thousands of drops each cover much of the picture. Each frame
// starts from a restart, whose replay of the frames before it builds the same rain every time.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "surface/Puddle.h"

namespace {

enum Variant : int64_t { kDefaults = 0, kHard = 1 };

void Checker16(int height, int x, int y, uint16_t* p) {
    const int cell = height / 15 > 0 ? height / 15 : 1;
    const bool dark = ((x / cell) + (y / cell)) % 2 == 0;
    p[0] = dark ? 8000 : 60000;
    p[1] = dark ? 12000 : 58000;
    p[2] = dark ? 30000 : 42000;
    p[3] = 65535;
}

Image* MakeChecker(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            Checker16(height, x, y, image->Row(y) + static_cast<size_t>(x) * 4);
    return image;
}

class PuddleBenchDoc {
  public:
    explicit PuddleBenchDoc(int64_t variant) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<PuddleOperator*>(doc.AddTool("Puddle"));
        if (variant == kHard) {
            Set("Raeq", 200.0);
            Set("Rare", 10.0);
            Set("Raus", 200.0);
            // The drops live 201 frames: a replay of 200 frames is the steady state.
            Set("Reom", -200.0);
        }
    }
    ~PuddleBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    PuddleBenchDoc(const PuddleBenchDoc&) = delete;
    PuddleBenchDoc& operator=(const PuddleBenchDoc&) = delete;

    void Set(const char* id, double value) {
        Number n(value);
        op->FindInput(id)->SetSource(&n, -1.0);
    }

    FusionDoc doc;
    PuddleOperator* op = nullptr;

  private:
    int saved_;
};

void BM_PuddleFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    PuddleBenchDoc t(state.range(2));
    Image* source = MakeChecker(width, height);
    Input* surface = t.op->FindInput("Puddle Surface");
    PuddleEngine* engine = t.op->Puddle();
    size_t drops = 0;
    // Processor time of every thread of the process: on a busy machine the wall-clock time says
    // little, and a frame on two free cores takes about half of this.
    const std::clock_t start = std::clock();
    for (auto _ : state) {
        engine->restartPending = 1;
        Request request(t.op, 0.0);
        request.SetInputImage(surface, source);
        t.op->Process(&request);
        Parameter* out = request.TakeOutputData(t.op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
        drops = engine->drops.Size();
    }
    state.SetLabel(state.range(2) == kHard ? "hard case" : "defaults");
    state.counters["drops"] = static_cast<double>(drops);
    state.counters["cpu_ms"] = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC /
                               static_cast<double>(state.iterations());
    source->Recycle();
}
BENCHMARK(BM_PuddleFrame)
    ->ArgsProduct({{720}, {486}, {kDefaults, kHard}})
    ->ArgsProduct({{1920}, {1080}, {kDefaults, kHard}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
