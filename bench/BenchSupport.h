// Helpers of the benchmarks: full-HD pictures, and an operator whose dispatch the work-image
// operators can run through, as they do inside a render.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/ToolEngine.h"
#include "frame/ToolOperator.h"
#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Parameters.h"

constexpr int kBenchWidth = 1920;
constexpr int kBenchHeight = 1080;

// A busy picture of 16-bit samples.
inline void BenchPattern16(int x, int y, uint16_t* p) {
    for (int c = 0; c < 4; ++c)
        p[c] = static_cast<uint16_t>((x * 7919u + y * 104729u + c * 15485863u) * 2654435761u >> 16);
}

// A host image of the benchmark size from the pool; give it back with Recycle().
inline Image* MakeBenchHostImage() {
    Image* image = GetApp()->Images().Take(kBenchWidth, kBenchHeight);
    for (int y = 0; y < kBenchHeight; ++y)
        for (int x = 0; x < kBenchWidth; ++x)
            BenchPattern16(x, y, image->Row(y) + static_cast<size_t>(x) * 4);
    return image;
}

// A work image of the benchmark size, on the 15-bit scale, shifted by `salt` so that two differ.
inline WorkImage* MakeBenchWorkImage(int salt = 0) {
    auto* image = new WorkImage(kBenchWidth, kBenchHeight);
    for (int y = 0; y < kBenchHeight; ++y)
        for (int x = 0; x < kBenchWidth; ++x) {
            uint16_t* p = image->Pixel(x, y);
            BenchPattern16(x + salt, y, p);
            for (int c = 0; c < 4; ++c)
                p[c] = static_cast<uint16_t>(p[c] >> 1);
        }
    return image;
}

// An engine with no work of its own and an adapter with no inputs: only the dispatch.
class BenchEngine : public ToolEngine {};

inline const ToolDecl& BenchDecl() {
    static const ToolDecl decl{{}, nullptr, 0};
    return decl;
}

class BenchOperator : public ToolOperator {
  public:
    BenchOperator()
        : ToolOperator(nullptr, ScriptVal(), TagList(), new BenchEngine(), nullptr, BenchDecl()) {}
};

// Within the scope the work-image operators dispatch through a bench operator on `processors`
// processors, as they do inside a render.
class BenchDispatch {
  public:
    explicit BenchDispatch(int processors)
        : savedProcessors_(GetApp()->ProcessorCount()),
          savedJob_(currentChunkJob),
          op_(new BenchOperator()),
          request_(op_, 0.0) {
        GetApp()->SetProcessorCount(processors);
        currentChunkJob = &op_->job;
        op_->job.request = &request_;
    }
    ~BenchDispatch() {
        currentChunkJob = savedJob_;
        op_->job.request = nullptr;
        op_->Recycle();
        GetApp()->SetProcessorCount(savedProcessors_);
    }
    BenchDispatch(const BenchDispatch&) = delete;
    BenchDispatch& operator=(const BenchDispatch&) = delete;

  private:
    int savedProcessors_;
    ChunkJob* savedJob_;
    BenchOperator* op_;
    Request request_;
};
