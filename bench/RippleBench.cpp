// Ripple at 720 x 486 and 1920 x 1080, with and without chromatic aberration and light: the whole
// render cycle (import, render, export) on two processors, the engine's render alone, and the
// pieces the render is made of (pyramid, displacement, resampling).
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/SamplePyramid.h"
#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "surface/Ripple.h"

namespace {

enum Variant : int64_t { kPlain = 0, kChromatic = 1, kLight = 2, kBoth = 3 };

// A checker of 16-bit samples with cells a fifteenth of the height.
void Checker16(int width, int height, int x, int y, uint16_t* p) {
    (void)width;
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
            Checker16(width, height, x, y, image->Row(y) + static_cast<size_t>(x) * 4);
    return image;
}

// A document with one Ripple on two processors, set up for the variant.
class RippleBenchDoc {
  public:
    explicit RippleBenchDoc(int64_t variant) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<RippleOperator*>(doc.AddTool("Ripple"));
        if (variant & kChromatic) Set("ChAb", 2.0);
        if (variant & kLight) Set("Doht", 1.0);
    }
    ~RippleBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    RippleBenchDoc(const RippleBenchDoc&) = delete;
    RippleBenchDoc& operator=(const RippleBenchDoc&) = delete;

    void Set(const char* id, double value) {
        Number n(value);
        op->FindInput(id)->SetSource(&n, -1.0);
    }

    FusionDoc doc;
    RippleOperator* op = nullptr;

  private:
    int saved_;
};

const char* VariantName(int64_t v) {
    static const char* names[] = {"plain", "chromatic", "light", "chromatic+light"};
    return names[v & 3];
}

// The whole cycle of one frame, as the host runs it.
void BM_RippleFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    RippleBenchDoc t(state.range(2));
    Image* source = MakeChecker(width, height);
    Input* clip = t.op->FindInput("Clip to Ripple");
    for (auto _ : state) {
        Request request(t.op, 0.0);
        request.SetInputImage(clip, source);
        t.op->Process(&request);
        Parameter* out = request.TakeOutputData(t.op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }
    state.SetLabel(VariantName(state.range(2)));
    state.SetItemsProcessed(state.iterations() * width * height);
    source->Recycle();
}
BENCHMARK(BM_RippleFrame)
    ->ArgsProduct({{720}, {486}, {kPlain, kChromatic, kLight, kBoth}})
    ->ArgsProduct({{1920}, {1080}, {kPlain, kChromatic, kLight, kBoth}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The engine's render alone: the frame's work images are made once, outside the timing.
void BM_RippleRender(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    RippleBenchDoc t(state.range(2));
    Image* host = MakeChecker(width, height);
    std::unique_ptr<WorkImage> source(ImportImage(host, nullptr, false, nullptr));
    std::unique_ptr<WorkImage> matte(new WorkImage(*source));
    std::unique_ptr<WorkImage> out(new WorkImage(*source));
    RippleEngine& e = *t.op->Ripple();
    // Values as a render reads them.
    {
        Request request(t.op, 0.0);
        request.SetInputImage(t.op->FindInput("Clip to Ripple"), host);
        t.op->Process(&request);
    }
    Request request(t.op, 0.0);
    ChunkJob* savedJob = currentChunkJob;
    currentChunkJob = &t.op->job;
    t.op->job.request = &request;
    e.firstPort.image = source.get();
    e.secondPort.image = matte.get();
    e.outputPort.image = out.get();
    for (auto _ : state) {
        e.Render();
        benchmark::DoNotOptimize(out->pixels);
    }
    e.firstPort.image = e.secondPort.image = e.outputPort.image = nullptr;
    currentChunkJob = savedJob;
    t.op->job.request = nullptr;
    state.SetLabel(VariantName(state.range(2)));
    state.SetItemsProcessed(state.iterations() * width * height);
    host->Recycle();
}
BENCHMARK(BM_RippleRender)
    ->ArgsProduct({{1920}, {1080}, {kPlain, kChromatic, kLight, kBoth}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The pyramid of a full-HD picture, rebuilt in the blocks of the last one.
void BM_BuildPyramid(benchmark::State& state) {
    Image* host = MakeChecker(1920, 1080);
    std::unique_ptr<WorkImage> source(ImportImage(host, nullptr, false, nullptr));
    SamplePyramid* pyramid = nullptr;
    for (auto _ : state) {
        pyramid = BuildPyramid(source.get(), 1920, 1080, pyramid);
        benchmark::DoNotOptimize(pyramid);
    }
    FreePyramid(pyramid);
    host->Recycle();
}
BENCHMARK(BM_BuildPyramid)->Unit(benchmark::kMillisecond);

// One million rectangles of about a pixel and a half, on one thread.
void BM_SampleRect(benchmark::State& state) {
    Image* host = MakeChecker(1920, 1080);
    std::unique_ptr<WorkImage> source(ImportImage(host, nullptr, false, nullptr));
    SamplePyramid* pyramid = BuildPyramid(source.get(), 1920, 1080);
    const int edgeMode = static_cast<int>(state.range(0));
    for (auto _ : state) {
        uint32_t sum = 0;
        for (int i = 0; i < 1000000; ++i) {
            const float x = static_cast<float>(i % 1900) + 0.25f;
            const float y = static_cast<float>((i / 1900) % 1060) + 0.5f;
            uint16_t s[4];
            SampleRect(s, pyramid, x, y, x + 1.2f, y + 1.3f, edgeMode);
            sum += s[0];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * 1000000);
    FreePyramid(pyramid);
    host->Recycle();
}
BENCHMARK(BM_SampleRect)->Arg(kEdgeDup)->Arg(kEdgeWrap)->Unit(benchmark::kMillisecond);

}  // namespace
