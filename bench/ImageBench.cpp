// The conversions and whole-image operators of the working image at 1920 x 1080. The threaded
// operators run through a real dispatch, over as many chunks as the argument gives processors.
#include <benchmark/benchmark.h>

#include <memory>

#include "bench/BenchSupport.h"

namespace {

constexpr int64_t kPixels = int64_t{kBenchWidth} * kBenchHeight;
// Bytes of one picture in either form: four 16-bit samples a pixel.
constexpr int64_t kBytes = kPixels * 8;

void SetRates(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.SetBytesProcessed(state.iterations() * kBytes);
}

// Into a work image that already exists, as the second import of a frame of equal size.
void BM_ImportImageInto(benchmark::State& state) {
    Image* source = MakeBenchHostImage();
    std::unique_ptr<WorkImage> like(new WorkImage(kBenchWidth, kBenchHeight));
    for (auto _ : state) {
        WorkImage* out = ImportImage(source, like.get(), false, nullptr);
        benchmark::DoNotOptimize(out->pixels);
        benchmark::ClobberMemory();
    }
    SetRates(state);
    source->Recycle();
}
BENCHMARK(BM_ImportImageInto)->Unit(benchmark::kMillisecond);

// A new work image each time, as the render cycle imports its inputs.
void BM_ImportImageNew(benchmark::State& state) {
    Image* source = MakeBenchHostImage();
    for (auto _ : state) {
        WorkImage* out = ImportImage(source, nullptr, false, nullptr);
        benchmark::DoNotOptimize(out->pixels);
        delete out;
    }
    SetRates(state);
    source->Recycle();
}
BENCHMARK(BM_ImportImageNew)->Unit(benchmark::kMillisecond);

// The host image comes from the pool, so after the first iteration nothing is allocated.
void BM_ExportImage(benchmark::State& state) {
    Image* model = MakeBenchHostImage();
    std::unique_ptr<WorkImage> work(MakeBenchWorkImage());
    for (auto _ : state) {
        Image* out = ExportImage(model, work.get());
        benchmark::DoNotOptimize(out->Data());
        out->Recycle();
    }
    SetRates(state);
    model->Recycle();
}
BENCHMARK(BM_ExportImage)->Unit(benchmark::kMillisecond);

void BM_MixFrom(benchmark::State& state) {
    BenchDispatch dispatch(static_cast<int>(state.range(0)));
    std::unique_ptr<WorkImage> image(MakeBenchWorkImage());
    std::unique_ptr<WorkImage> other(MakeBenchWorkImage(17));
    for (auto _ : state) {
        image->MixFrom(0.5f, other.get());
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_MixFrom)->Arg(1)->Arg(2)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MixColour(benchmark::State& state) {
    BenchDispatch dispatch(static_cast<int>(state.range(0)));
    std::unique_ptr<WorkImage> image(MakeBenchWorkImage());
    for (auto _ : state) {
        image->MixColour(0.25f, 1000u | (20000u << 16), 30000u | (32767u << 16));
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_MixColour)->Arg(1)->Arg(2)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CopyAlphaFrom(benchmark::State& state) {
    BenchDispatch dispatch(static_cast<int>(state.range(0)));
    std::unique_ptr<WorkImage> image(MakeBenchWorkImage());
    std::unique_ptr<WorkImage> other(MakeBenchWorkImage(17));
    for (auto _ : state) {
        image->CopyAlphaFrom(other.get());
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_CopyAlphaFrom)->Arg(1)->Arg(2)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Fill(benchmark::State& state) {
    std::unique_ptr<WorkImage> image(new WorkImage(kBenchWidth, kBenchHeight));
    for (auto _ : state) {
        image->Fill(1000, 2000, 3000, 32767);
        benchmark::ClobberMemory();
    }
    SetRates(state);
}
BENCHMARK(BM_Fill)->Unit(benchmark::kMillisecond);

// Gains of 1.0 copy rows as blocks; any other gain scales and clamps every sample.
void BM_CopyScaled(benchmark::State& state) {
    const float gain = state.range(0) == 0 ? 1.0f : 0.5f;
    std::unique_ptr<WorkImage> image(new WorkImage(kBenchWidth, kBenchHeight));
    std::unique_ptr<WorkImage> source(MakeBenchWorkImage());
    for (auto _ : state) {
        benchmark::DoNotOptimize(image->CopyScaled(source.get(), gain, gain, gain, 1.0f));
        benchmark::ClobberMemory();
    }
    SetRates(state);
    state.SetLabel(state.range(0) == 0 ? "block copy" : "scaled");
}
BENCHMARK(BM_CopyScaled)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
