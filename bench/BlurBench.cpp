// The recursive Gaussian blur and the image resizer at 1920 x 1080. The blur runs through a real
// image dispatch over as many chunks as the argument gives processors; the resizer runs on an
// engine's two chunks, as the import of a matte of another size does.
#include <benchmark/benchmark.h>

#include <memory>

#include "bench/BenchSupport.h"
#include "frame/ImageResizer.h"

namespace {

constexpr int64_t kPixels = int64_t{kBenchWidth} * kBenchHeight;

// Rows and then columns, all four channels, in place; the radius is the first argument.
void BM_GaussianBlur(benchmark::State& state) {
    BenchDispatch dispatch(static_cast<int>(state.range(1)));
    std::unique_ptr<WorkImage> image(MakeBenchWorkImage());
    const float radius = static_cast<float>(state.range(0));
    for (auto _ : state) {
        image->GaussianBlur(radius, nullptr, 2, 1);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}
BENCHMARK(BM_GaussianBlur)
    ->Args({2, 2})
    ->Args({40, 2})
    ->Args({400, 2})
    ->Args({40, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Colour only, from a source: the form the glows of the tools take.
void BM_GaussianBlurColourFromSource(benchmark::State& state) {
    BenchDispatch dispatch(2);
    std::unique_ptr<WorkImage> source(MakeBenchWorkImage());
    std::unique_ptr<WorkImage> image(MakeBenchWorkImage(5));
    for (auto _ : state) {
        image->GaussianBlur(40.0f, source.get(), 2, 0);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}
BENCHMARK(BM_GaussianBlurColourFromSource)->Unit(benchmark::kMillisecond)->UseRealTime();

// An engine's two chunks for the resizer, on two processors.
class EngineChunks {
  public:
    EngineChunks()
        : saved_(GetApp()->ProcessorCount()), op_(new BenchOperator()), request_(op_, 0) {
        GetApp()->SetProcessorCount(2);
        op_->job.request = &request_;
    }
    ~EngineChunks() {
        op_->job.request = nullptr;
        op_->Recycle();
        GetApp()->SetProcessorCount(saved_);
    }
    EngineChunks(const EngineChunks&) = delete;
    EngineChunks& operator=(const EngineChunks&) = delete;
    ToolEngine* Engine() const { return op_->Engine(); }

  private:
    int saved_;
    BenchOperator* op_;
    Request request_;
};

// From or to half the size in each direction with the filter of the second argument; the
// resizer is kept, as an engine keeps its own.
void Resize(benchmark::State& state, bool up) {
    EngineChunks chunks;
    std::unique_ptr<WorkImage> full(MakeBenchWorkImage());
    std::unique_ptr<WorkImage> half(new WorkImage(kBenchWidth / 2, kBenchHeight / 2));
    half->Fill(1000, 2000, 3000, 4000);
    ImageResizer resizer;
    resizer.SetFilter(static_cast<int>(state.range(0)));
    resizer.SetDispatch(chunks.Engine(), &ResizerDispatch);
    for (auto _ : state) {
        if (up)
            resizer.Resize(half.get(), full.get());
        else
            resizer.Resize(full.get(), half.get());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}

void BM_ResizeUp(benchmark::State& state) {
    Resize(state, true);
}
void BM_ResizeDown(benchmark::State& state) {
    Resize(state, false);
}
BENCHMARK(BM_ResizeUp)->Arg(1)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ResizeDown)->Arg(1)->Arg(3)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
