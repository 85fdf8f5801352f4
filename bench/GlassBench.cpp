// Glass at 720 x 486 and 1920 x 1080, plain, with chromatic aberration and lit: the whole render
// cycle on two processors, the picture its own texture as when "Glass" is left open.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>

#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "surface/Glass.h"

namespace {

enum Variant : int64_t { kPlain = 0, kChromatic = 1, kLight = 2 };

// Soft diagonal bands of 16-bit samples.
Image* MakeBands(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            const int v = ((x + 2 * y) % 96) * 680;
            p[0] = static_cast<uint16_t>(v);
            p[1] = static_cast<uint16_t>(65535 - v);
            p[2] = static_cast<uint16_t>(v / 2 + 16000);
            p[3] = 65535;
        }
    return image;
}

void BM_GlassFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const int saved = GetApp()->ProcessorCount();
    GetApp()->SetProcessorCount(2);
    {
        FusionDoc doc;
        auto* op = static_cast<GlassOperator*>(doc.AddTool("Glass"));
        auto set = [&](const char* id, double value) {
            Number n(value);
            op->FindInput(id)->SetSource(&n, -1.0);
        };
        set("WHei", 40.0);
        set("Smoo", 2.0);
        if (state.range(2) == kChromatic) set("ChAb", 2.0);
        if (state.range(2) == kLight) set("LiOn", 1.0);
        Image* source = MakeBands(width, height);
        Input* behind = op->FindInput("Behind Glass");
        for (auto _ : state) {
            Request request(op, 0.0);
            request.SetInputImage(behind, source);
            op->Process(&request);
            Parameter* out = request.TakeOutputData(op->MainOutput());
            benchmark::DoNotOptimize(out);
            if (out) out->Recycle();
        }
        static const char* names[] = {"plain", "chromatic", "light"};
        state.SetLabel(names[state.range(2) % 3]);
        state.SetItemsProcessed(state.iterations() * width * height);
        source->Recycle();
    }
    GetApp()->SetProcessorCount(saved);
}
BENCHMARK(BM_GlassFrame)
    ->ArgsProduct({{720}, {486}, {kPlain, kChromatic, kLight}})
    ->ArgsProduct({{1920}, {1080}, {kPlain, kChromatic, kLight}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
