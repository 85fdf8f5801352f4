// The engine side of a tool: the base every engine derives from, the record of a split of rows over
// threads, and the image ports that hold a frame's work images.
#pragma once

#include <cstdint>
#include <vector>

#include "host/Operator.h"

class ScreenControl;
class ToolEngine;
class WorkImage;

using EngineChunk = void (ToolEngine::*)(int first, int last);
using ImageChunk = void (WorkImage::*)(int first, int last);
using ResizerChunk = void (*)(void* context, int first, int last);

// One split of rows (or columns) over chunks, one record for each operator.
struct ChunkJob {
    Request* request = nullptr;
    EngineChunk engineChunk = nullptr;
    ImageChunk imageChunk = nullptr;
    int32_t threadCount = 0;
    int32_t rowCount = 0;
    WorkImage* image = nullptr;
    ThreadedOperator* op = nullptr;
};

// The record of the tool that most recently began a render; the image operators dispatch through
// it, since a work image knows no tool.
extern ChunkJob* currentChunkJob;

// Runs chunk `chunk` of the job: rows split evenly, the last chunk taking the remainder.
void RunChunkOf(ChunkJob& job, ToolEngine* engine, long chunk);

struct ImagePort {
    Input* inputs[16] = {};
    WorkImage* image = nullptr;
};

class ToolEngine {
  public:
    ToolEngine() = default;
    ToolEngine(const ToolEngine&) = delete;
    ToolEngine& operator=(const ToolEngine&) = delete;
    virtual ~ToolEngine() = default;

    // Does the whole frame.
    virtual void Render() {}
    // Called once before the first Render of the object's life: applies the visibility rules to the
    // loaded values.
    virtual void FirstFrame() {}

    // Runs `routine` over `rowCount` rows on exactly two chunks, whatever the machine.
    void RunOverRows(EngineChunk routine, int rowCount);
    template <class E>
    void RunOverRows(void (E::*routine)(int, int), int rowCount) {
        RunOverRows(static_cast<EngineChunk>(routine), rowCount);
    }
    bool IsAborted() const;

    // Calls the running resizer's chunk routine on a range; see ResizerDispatch.
    void ResizerRows(int first, int last);

    double time = 0.0;
    double extentStart = 0.0, extentEnd = 0.0;
    double globalStart = 0.0, globalEnd = 0.0;
    uint8_t keepOutputAlpha = 1;
    ThreadedOperator* op = nullptr;
    ChunkJob* job = nullptr;
    ResizerChunk resizerChunk = nullptr;
    void* resizerContext = nullptr;

    ImagePort firstPort;
    ImagePort secondPort;
    ImagePort outputPort;
};

// The overlay side of an engine: its on-screen controls, which it owns, and the view they are drawn
// in (image size, scales and zoom, copied from the viewer before each draw and event).
class ToolOverlay {
  public:
    ToolOverlay() = default;
    ToolOverlay(const ToolOverlay&) = delete;
    ToolOverlay& operator=(const ToolOverlay&) = delete;
    virtual ~ToolOverlay();
    // Draws every visible control; engines draw more of their own.
    virtual void DrawControls();
    // Passes the event to each control in turn.
    virtual void ControlEvent(int event, float x, float y);
    // Passes the event to each shown control in turn; a hidden one is left neither under the
    // pointer nor held.
    void ShownControlsEvent(int event, float x, float y);

    Operator* op = nullptr;
    int viewWidth = 0, viewHeight = 0;
    double viewScaleX = 1.0, viewScaleY = 1.0;
    double zoom = 1.0;
    std::vector<ScreenControl*> controls;
};

// Lets a routine that knows no engine (the resizer) run on an engine's two chunks.
void ResizerDispatch(ToolEngine* engine, ResizerChunk routine, int rowCount, void* context);
