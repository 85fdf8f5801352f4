// Kal at 720 x 486 and 1920 x 1080, at its defaults and with the smallest hexagons (the lattice
// walk's worst case): the whole render cycle (import, render, export) on two processors, and the
// engine's render alone.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "kal/Kal.h"

namespace {

// A smooth colour field, so that the sampler's levels all differ.
Image* MakeField(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            p[0] = static_cast<uint16_t>(x * 65535 / width);
            p[1] = static_cast<uint16_t>(y * 65535 / height);
            p[2] = static_cast<uint16_t>(((x / 40 + y / 40) % 2) * 40000 + 10000);
            p[3] = 65535;
        }
    return image;
}

// A document with one Kal on two processors; `hexagon` is "HexagonRad" in hundredths.
class KalBenchDoc {
  public:
    explicit KalBenchDoc(int64_t hexagon) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<KalOperator*>(doc.AddTool("Kal"));
        Number n(static_cast<double>(hexagon) * 0.01);
        op->FindInput("HexR")->SetSource(&n, -1.0);
    }
    ~KalBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    KalBenchDoc(const KalBenchDoc&) = delete;
    KalBenchDoc& operator=(const KalBenchDoc&) = delete;

    FusionDoc doc;
    KalOperator* op = nullptr;

  private:
    int saved_;
};

void BM_KalFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    KalBenchDoc t(state.range(2));
    Image* source = MakeField(width, height);
    Input* clip = t.op->FindInput("Clip to Observe");
    for (auto _ : state) {
        Request request(t.op, 0.0);
        request.SetInputImage(clip, source);
        t.op->Process(&request);
        Parameter* out = request.TakeOutputData(t.op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }
    state.SetLabel(state.range(2) == 50 ? "defaults" : "HexagonRad 0.01");
    state.SetItemsProcessed(state.iterations() * width * height);
    source->Recycle();
}
BENCHMARK(BM_KalFrame)
    ->ArgsProduct({{720}, {486}, {50, 1}})
    ->ArgsProduct({{1920}, {1080}, {50, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The engine's render alone, on work images made once outside the timing.
void BM_KalRender(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    KalBenchDoc t(state.range(2));
    Image* host = MakeField(width, height);
    std::unique_ptr<WorkImage> source(ImportImage(host, nullptr, false, nullptr));
    std::unique_ptr<WorkImage> out(new WorkImage(*source));
    KalEngine& e = *t.op->Kal();
    {
        // Values as a render reads them.
        Request request(t.op, 0.0);
        request.SetInputImage(t.op->FindInput("Clip to Observe"), host);
        t.op->Process(&request);
        Parameter* done = request.TakeOutputData(t.op->MainOutput());
        if (done) done->Recycle();
    }
    Request request(t.op, 0.0);
    ChunkJob* savedJob = currentChunkJob;
    currentChunkJob = &t.op->job;
    t.op->job.request = &request;
    e.firstPort.image = source.get();
    e.outputPort.image = out.get();
    const bool oneBand = state.range(3) != 0;
    for (auto _ : state) {
        // One band over every row, on this thread: the cost of the mapping in processor time.
        if (oneBand)
            e.DrawLatticeBand(0, height - 1);
        else
            e.Render();
        benchmark::DoNotOptimize(out->pixels);
    }
    e.firstPort.image = e.outputPort.image = nullptr;
    currentChunkJob = savedJob;
    t.op->job.request = nullptr;
    state.SetLabel(std::string(state.range(2) == 50 ? "defaults" : "HexagonRad 0.01") +
                   (oneBand ? ", one band on one thread" : ""));
    state.SetItemsProcessed(state.iterations() * width * height);
    host->Recycle();
}
BENCHMARK(BM_KalRender)
    ->ArgsProduct({{1920}, {1080}, {50, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
