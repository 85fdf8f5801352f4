// The scaler of work images: a separable filter run horizontally and then vertically. It knows no
// tool; a caller that wants its passes threaded hands it an engine and ResizerDispatch.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/ToolEngine.h"

class WorkImage;

// Runs `routine(resizer, first, last)` over `lineCount` lines on the chunks of `engine`, as
// ResizerDispatch does.
using ResizerDispatchRoutine = void (*)(ToolEngine* engine, ResizerChunk routine, int lineCount,
                                        void* resizer);

class ImageResizer {
  public:
    // Filter numbers. Any other number selects the triangle.
    enum Filter {
        kTriangle = 1,
        kCubicHalf = 3,   // cubic with a = -0.5
        kCubicWhole = 4,  // cubic with a = -1.0
        kBSpline = 5,     // cubic B-spline
        kLanczosTwo = 6,  // Lanczos with two lobes
    };

    ImageResizer();
    virtual ~ImageResizer();
    ImageResizer(const ImageResizer&) = delete;
    ImageResizer& operator=(const ImageResizer&) = delete;

    // Builds the table of filter `number`; nothing happens if it is the current one.
    void SetFilter(int number);
    // Runs the passes on the chunks of `context` through `dispatch`; with either null they run on
    // the calling thread. Returns true.
    bool SetDispatch(ToolEngine* context, ResizerDispatchRoutine routine);
    // Scales `source` to the size of `dest`, which must exist; `source` stays as it is. Returns 1,
    // or 0 (and leaves `dest` as it was) when either image is missing or has no pixels.
    int Resize(WorkImage* source, WorkImage* dest);

    int32_t filterNumber = -1;
    double filterTable[1025];  // the weight at a distance of i / 512 pixels
    int32_t filterHalfWidth = 1;
    ToolEngine* dispatchContext = nullptr;
    ResizerDispatchRoutine dispatch = nullptr;
    // Of the pass in progress.
    int32_t destLength = 0, sourceLength = 0;
    double ratio = 0.0;
    // Of the run in progress. The middle image is kept for the next run of the same sizes.
    WorkImage* sourceImage = nullptr;
    WorkImage* middleImage = nullptr;
    WorkImage* destImage = nullptr;

  private:
    // The taps of one destination sample: `count` source indices and weights from `start`, and
    // the factor the sums are multiplied by (1 / total of the weights when reducing).
    struct Position {
        int32_t start;
        int32_t count;
        double scale;
    };

    // Works out the taps of every destination sample of a pass from sourceLength to destLength;
    // they are the same for every line of the pass.
    void PlanPass();
    void RunPass(ResizerChunk routine, int lineCount);
    static void HorizontalChunk(void* resizer, int first, int last);
    static void VerticalChunk(void* resizer, int first, int last);

    WorkImage* passSource_ = nullptr;
    WorkImage* passDest_ = nullptr;
    bool reducing_ = false;
    std::vector<Position> positions_;
    std::vector<int32_t> tapIndex_;
    std::vector<double> tapWeight_;
};

// Scales `from` into `to` for the import of an image of another size, with filter 3, on the chunks
// of `engine` when one is given. Installed as the import's resizer.
void ResizeForImport(WorkImage* from, WorkImage* to, ToolEngine* engine);
