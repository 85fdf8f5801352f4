// Smoke, one simulation step a frame, on two processors: the whole render cycle (imports, step,
// export) in each look at 720 x 486 and 1920 x 1080, and at 3840 x 2160 with the defaults. The
// simulation runs 100 steps before the timing begins, longer than a particle lives at the defaults;
// the counters give the particles in the air and the memory the pool holds then.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "particles/Smoke.h"

namespace {

constexpr int kWarmUp = 100;

Image* MakeDusk(int width, int height) {
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

const char* LookName(int64_t look) {
    static const char* names[] = {"Point", "Streak", "Puff"};
    return look >= 0 && look < 3 ? names[look] : "?";
}

class SmokeBenchDoc {
  public:
    SmokeBenchDoc(int64_t look, int width, int height)
        : dusk(MakeDusk(width, height)), saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<SmokeOperator*>(doc.AddTool("Smoke"));
        Number n(static_cast<double>(look));
        op->FindInput("Lode")->SetSource(&n, -1.0);
        background = op->FindInput("Background Clip");
    }
    ~SmokeBenchDoc() {
        dusk->Recycle();
        GetApp()->SetProcessorCount(saved_);
    }
    SmokeBenchDoc(const SmokeBenchDoc&) = delete;
    SmokeBenchDoc& operator=(const SmokeBenchDoc&) = delete;

    // One render at `time`, as the host runs it.
    void Frame(double time) {
        Request request(op, time);
        request.SetInputImage(background, dusk);
        op->Process(&request);
        Parameter* out = request.TakeOutputData(op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }

    Image* dusk;
    FusionDoc doc;
    SmokeOperator* op = nullptr;
    Input* background = nullptr;

  private:
    int saved_;
};

void BM_SmokeFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    SmokeBenchDoc t(state.range(2), width, height);
    int frame = 1;
    for (; frame <= kWarmUp; ++frame)
        t.Frame(frame);
    const ParticlePool& pool = t.op->Smoke()->pool;
    state.counters["particles"] = pool.activeCount;
    state.counters["poolMiB"] = static_cast<double>(pool.blockCount) * pool.blockCapacity *
                                sizeof(ParticleRecord) / (1024.0 * 1024.0);
    // The processor time of all threads, per frame: on a busy machine the wall clock says little.
    const std::clock_t start = std::clock();
    for (auto _ : state)
        t.Frame(frame++);
    state.counters["cpuMs"] = benchmark::Counter(
        1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC / state.iterations());
    state.SetLabel(LookName(state.range(2)));
}
BENCHMARK(BM_SmokeFrame)
    ->ArgsProduct({{720}, {486}, {0, 1, 2}})
    ->ArgsProduct({{1920}, {1080}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_SmokeFrame)
    ->Args({3840, 2160, 2})
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
