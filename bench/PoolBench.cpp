// Pool at 720 x 486 and 1920 x 1080, plain, with chromatic aberration and lit: the whole
// render cycle (import, render, export) on two processors, as the host runs it.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>

#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "surface/Pool.h"

namespace {

enum Variant : int64_t { kPlain = 0, kChromatic = 1, kLight = 2 };

const char* VariantName(int64_t v) {
    static const char* names[] = {"plain", "chromatic", "light"};
    return v >= 0 && v <= 2 ? names[v] : "?";
}

// A checker of 16-bit samples with cells a fifteenth of the height.
Image* MakeChecker(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    const int cell = height / 15 > 0 ? height / 15 : 1;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            const bool dark = ((x / cell) + (y / cell)) % 2 == 0;
            p[0] = dark ? 8000 : 60000;
            p[1] = dark ? 12000 : 58000;
            p[2] = dark ? 30000 : 42000;
            p[3] = 65535;
        }
    return image;
}

// One tool in a document on two processors, its main image wired to `main`.
class ToolBenchDoc {
  public:
    ToolBenchDoc(const char* tool, const char* main) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<ToolOperator*>(doc.AddTool(tool));
        mainInput = op->FindInput(main);
    }
    ~ToolBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    ToolBenchDoc(const ToolBenchDoc&) = delete;
    ToolBenchDoc& operator=(const ToolBenchDoc&) = delete;

    void Set(const char* id, double value) {
        Number n(value);
        op->FindInput(id)->SetSource(&n, -1.0);
    }
    void Frame(Image* source) {
        Request request(op, 0.0);
        request.SetInputImage(mainInput, source);
        op->Process(&request);
        Parameter* out = request.TakeOutputData(op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }

    FusionDoc doc;
    ToolOperator* op = nullptr;
    Input* mainInput = nullptr;

  private:
    int saved_;
};

void RunFrames(benchmark::State& state, ToolBenchDoc& t) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    Image* source = MakeChecker(width, height);
    for (auto _ : state)
        t.Frame(source);
    state.SetLabel(VariantName(state.range(2)));
    state.SetItemsProcessed(state.iterations() * width * height);
    source->Recycle();
}

// Pool with its default rings, twice as high as the default so the wave shows.
void BM_PoolFrame(benchmark::State& state) {
    ToolBenchDoc t("Pool", "Clip to Undulate");
    t.Set("Heht", 2.0);
    if (state.range(2) == kChromatic) t.Set("ChAb", 2.0);
    if (state.range(2) == kLight) t.Set("Doht", 1.0);
    RunFrames(state, t);
}
BENCHMARK(BM_PoolFrame)
    ->ArgsProduct({{720}, {486}, {kPlain, kChromatic, kLight}})
    ->ArgsProduct({{1920}, {1080}, {kPlain, kChromatic, kLight}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Pool's twirls, which take an angle at every pixel.
void BM_PoolTwirlFrame(benchmark::State& state) {
    ToolBenchDoc t("Pool", "Clip to Undulate");
    t.Set("Heht", 2.0);
    t.Set("Pode", 3.0);
    RunFrames(state, t);
}
BENCHMARK(BM_PoolTwirlFrame)
    ->ArgsProduct({{720}, {486}, {kPlain}})
    ->ArgsProduct({{1920}, {1080}, {kPlain}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
