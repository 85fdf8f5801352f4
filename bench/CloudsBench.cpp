// Clouds at 720 x 486 and 1920 x 1080, unlit and lit, on the half-size grid and at full
// resolution: the whole render cycle (import, render, export) on two processors, and the noise of
// one grid row on one thread, which is where the time goes.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <vector>

#include "clouds/Clouds.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"

namespace {

enum Variant : int64_t { kUnlit = 0, kLit = 1, kUnlitHigh = 2, kLitHigh = 3 };

const char* VariantName(int64_t v) {
    static const char* names[] = {"unlit", "lit", "unlit high res", "lit high res"};
    return names[v & 3];
}

// A document with one Clouds at its default inputs on two processors, set up for the variant.
class CloudsBenchDoc {
  public:
    explicit CloudsBenchDoc(int64_t variant) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<CloudsOperator*>(doc.AddTool("Clouds"));
        if (variant & kLit) Set("Lids", 1.0);
        if (variant & kUnlitHigh) Set("Ress", 1.0);
    }
    ~CloudsBenchDoc() { GetApp()->SetProcessorCount(saved_); }
    CloudsBenchDoc(const CloudsBenchDoc&) = delete;
    CloudsBenchDoc& operator=(const CloudsBenchDoc&) = delete;

    void Set(const char* id, double value) {
        Number n(value);
        op->FindInput(id)->SetSource(&n, -1.0);
    }

    FusionDoc doc;
    CloudsOperator* op = nullptr;

  private:
    int saved_;
};

// CPU time of the whole process, all threads, in milliseconds. On a busy machine the frame's wall
// time says little; its CPU time over all threads, halved, is what two free cores would take.
double ProcessMilliseconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec * 1e-6;
}

Image* MakeSky(int width, int height) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            p[0] = 2000;
            p[1] = static_cast<uint16_t>(4000 + y);
            p[2] = 40000;
            p[3] = 65535;
        }
    return image;
}

// The whole cycle of one frame, as the host runs it; the time moves so that the texture seethes.
void BM_CloudsFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    CloudsBenchDoc t(state.range(2));
    Image* sky = MakeSky(width, height);
    Input* skyInput = t.op->FindInput("Sky");
    double time = 0.0;
    const double cpuStart = ProcessMilliseconds();
    for (auto _ : state) {
        Request request(t.op, time);
        request.SetInputImage(skyInput, sky);
        t.op->Process(&request);
        Parameter* out = request.TakeOutputData(t.op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
        time += 1.0;
    }
    state.counters["all_threads_cpu_ms"] =
        (ProcessMilliseconds() - cpuStart) / static_cast<double>(state.iterations());
    state.SetLabel(VariantName(state.range(2)));
    state.SetItemsProcessed(state.iterations() * width * height);
    sky->Recycle();
}
BENCHMARK(BM_CloudsFrame)
    ->ArgsProduct({{720}, {486}, {kUnlit, kLit, kUnlitHigh, kLitHigh}})
    ->ArgsProduct({{1920}, {1080}, {kUnlit, kLit, kUnlitHigh, kLitHigh}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// One row of the half-size grid of a full-HD picture at the default detail (eight octaves).
void BM_CloudsNoiseRow(benchmark::State& state) {
    CloudsNoise noise;
    const int width = 1920 / 2 + 1;
    noise.Prepare(665, 0.5f, 1.0f, 480.0f);
    FieldMapping m;
    m.originX = -0.5f;
    m.originY = -0.5f;
    m.invScaleX = m.invScaleY = 2.0f;
    m.rotateRadians = 6.2831855f;
    m.cosRotate = 1.0f;
    m.sinRotate = 8.7422777e-08f;
    m.dx = 1.0f / width;
    std::vector<int32_t> index(static_cast<size_t>(width));
    float v = -0.5f;
    for (auto _ : state) {
        noise.Row(m, v, width, index.data());
        benchmark::DoNotOptimize(index.data());
        v += 0.001f;
    }
    state.SetItemsProcessed(state.iterations() * width * noise.octaveCount);
    state.SetLabel("octave samples");
}
BENCHMARK(BM_CloudsNoiseRow)->Unit(benchmark::kMicrosecond);

}  // namespace
