// The viewer's round trip: a slider's new value written and the picture of the node rendered and
// sent as a PNG, through the HTTP server on a loopback port, with the built-in flow (a Ripple over
// a 720 x 486 test picture); and the PNG encoding alone.
#include <benchmark/benchmark.h>
#include <httplib.h>

#include <string>
#include <thread>

#include "app/Server.h"
#include "app/ServerPng.h"
#include "host/App.h"
#include "host/Parameters.h"
#include "host/Registration.h"

namespace {

void BM_ViewerSliderToPicture(benchmark::State& state) {
    RegisterPackTools();
    const int saved = GetApp()->ProcessorCount();
    GetApp()->SetProcessorCount(2);
    ServeOptions o;
    o.port = 0;
    ViewerServer server(o);
    const int port = server.Bind();
    std::thread loop([&] { server.Run(); });
    httplib::Client client("127.0.0.1", port);
    for (int i = 0; i < 200 && !client.Get("/api/job"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    int step = 0;
    for (auto _ : state) {
        const std::string body =
            R"({"node": "ripple", "values": {"XYeq": )" + std::to_string(4 + (step++ % 8)) + "}}";
        auto set = client.Post("/api/set", body, "application/json");
        auto picture = client.Get("/api/render?node=ripple&frame=1");
        if (!set || !picture || picture->status != 200) state.SkipWithError("the call failed");
        benchmark::DoNotOptimize(picture->body.data());
    }
    server.Stop();
    loop.join();
    GetApp()->SetProcessorCount(saved);
}
BENCHMARK(BM_ViewerSliderToPicture)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

void BM_EncodePng(benchmark::State& state) {
    const int w = static_cast<int>(state.range(0)), h = static_cast<int>(state.range(1));
    HostRef<Image> image(GetApp()->Images().Take(w, h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                image->Row(y)[x * 4 + c] = static_cast<uint16_t>((x * 97 + y * 31 + c * 7000) * 13);
    for (auto _ : state)
        benchmark::DoNotOptimize(EncodePng(*image.get(), state.range(2) != 0));
}
BENCHMARK(BM_EncodePng)
    ->Args({720, 486, 0})
    ->Args({720, 486, 1})
    ->Args({1920, 1080, 0})
    ->Unit(benchmark::kMillisecond);

}  // namespace
