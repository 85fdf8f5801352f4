// Snow, one simulation step a frame, at 720 x 486 and 1920 x 1080, on two processors: the whole
// render cycle (imports, step, layers, export) for each look, with settling off and on. The pool
// is filled by a pre-roll before the timing begins; with settling on, flakes land on a checker of
// blocks given as the Settle Clip.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "particles/Snow.h"

namespace {

constexpr int kWarmUp = 20;  // visible steps before the timing, so that some snow has settled

Image* MakePicture(int width, int height, bool blocks) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint16_t* p = image->Row(y) + static_cast<size_t>(x) * 4;
            if (blocks) {
                p[0] = p[1] = p[2] = ((x / 64 + y / 48) % 2) ? 0 : 65535;
            } else {
                p[0] = static_cast<uint16_t>(3000 + (x * 7) % 3000);
                p[1] = static_cast<uint16_t>(5000 + (y * 5) % 3000);
                p[2] = 14000;
            }
            p[3] = 65535;
        }
    return image;
}

const char* LookName(int64_t look) {
    static const char* names[] = {"Point", "Streak", "Flake", "Star"};
    return names[look & 3];
}

class SnowBenchDoc {
  public:
    SnowBenchDoc(int64_t look, bool settle, int width, int height)
        : sky(MakePicture(width, height, false)),
          blocks(MakePicture(width, height, true)),
          saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(2);
        op = static_cast<SnowOperator*>(doc.AddTool("Snow"));
        Set("Lode", static_cast<double>(look));
        Set("Snle", settle ? 1.0 : 0.0);
        Set("Prll", 200.0);
        Set("Rel1", 1.0);
        op->FindInput("Rel1")->SetConstant(0.0);
        background = op->FindInput("Background Clip");
        settleClip = op->FindInput("Settle Clip");
    }
    ~SnowBenchDoc() {
        sky->Recycle();
        blocks->Recycle();
        GetApp()->SetProcessorCount(saved_);
    }
    SnowBenchDoc(const SnowBenchDoc&) = delete;
    SnowBenchDoc& operator=(const SnowBenchDoc&) = delete;

    void Set(const char* id, double v) {
        Number n(v);
        op->FindInput(id)->SetSource(&n, -1.0);
    }

    // One render at `time`, as the host runs it.
    void Frame(double time) {
        Request request(op, time);
        request.SetInputImage(background, sky);
        request.SetInputImage(settleClip, blocks);
        op->Process(&request);
        Parameter* out = request.TakeOutputData(op->MainOutput());
        benchmark::DoNotOptimize(out);
        if (out) out->Recycle();
    }

    Image* sky;
    Image* blocks;
    FusionDoc doc;
    SnowOperator* op = nullptr;
    Input* background = nullptr;
    Input* settleClip = nullptr;

  private:
    int saved_;
};

// Arguments: width, height, look (0 "Point" .. 3 "Star"), settling (0 or 1).
void BM_SnowFrame(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    SnowBenchDoc t(state.range(2), state.range(3) != 0, width, height);
    int frame = 1;
    for (; frame <= kWarmUp; ++frame)
        t.Frame(frame);
    for (auto _ : state)
        t.Frame(frame++);
    state.SetLabel(std::string(LookName(state.range(2))) + (state.range(3) ? " settling" : ""));
    state.counters["flakes"] = t.op->Snow()->pool.activeCount;
}
BENCHMARK(BM_SnowFrame)
    ->ArgsProduct({{720}, {486}, {0, 1, 2, 3}, {0, 1}})
    ->ArgsProduct({{1920}, {1080}, {0, 1, 2, 3}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
