// A small tool that exists only for the tests: it exercises the adapter, the render cycle, the row
// dispatch, presets and notifications with arithmetic simple enough to check by hand.
//
// Render, on the output (which starts as a copy of Source):
//   red, green and blue become trunc(sample * Gain) clamped to 32767 ("Copy"), plus the Tint
//   channel clamped to 32767 ("Add"), or the Tint colour in the columns that the Seed picks
//   ("Stripes"), or red the number of renders since the last press of "Bump" ("Count", a state kept
//   between renders as the particle tools keep theirs); then, with Invert on, 32767 minus that.
//   Alpha stays as it came.
//   A connected Matte then gives the output its alpha.
#pragma once

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "frame/InputBinding.h"
#include "frame/ToolEngine.h"
#include "frame/ToolOperator.h"
#include "host/Registration.h"

class TestEngine : public ToolEngine, public ToolOverlay {
  public:
    // One run of a change handler, as the handler saw the bindings.
    struct HandlerCall {
        const char* input;  // "Demo", "Invt" or "Tint"
        double time;
        int demo;     // Demo's binding value when the handler began
        double gain;  // Gain's binding value when the handler began
    };

    void Render() override;
    void FirstFrame() override;
    // Records each event before the controls see it.
    void ControlEvent(int event, float x, float y) override;
    std::vector<int> events;

    // Handlers of the notifying inputs.
    void OnDemo(double time);
    void OnInvert(double time);
    void OnTint(double time);

    // The colour pass of Render, on rows first..last of the output.
    void ShadeRows(int first, int last);

    // The (first, last) of every chunk the colour pass ran on, in no particular order.
    std::vector<std::pair<int, int>> Ranges();
    void ClearRecords();

    SingleInputBinding demo;
    SingleInputBinding gain;
    SingleInputBinding invert;
    SingleInputBinding mode;
    ColourInputBinding tint;
    SingleInputBinding centre;
    SingleInputBinding seed;
    SingleInputBinding bump;
    void OnBump(double time);
    int sinceBump = 0;
    int bumps = 0;

    std::vector<HandlerCall> calls;
    int firstFrames = 0;
    int renders = 0;
    // What Render found in its ports.
    bool sawMatte = false;         // the second port held an image of its own input
    bool secondIsCopy = false;     // the second port held an image equal to the first, not the same
    bool secondNamesMain = false;  // the second port's input slot named the main input
    int secondWidth = 0, secondHeight = 0;  // the size of the second port's image, if any

    // Set by a test: Render raises the operator's abort flag between its two passes.
    static std::atomic<bool> abortMidRender;

  private:
    std::mutex rangeMutex_;
    std::vector<std::pair<int, int>> ranges_;
    // Per render: which columns the stripes cover.
    std::vector<unsigned char> stripes_;
    double gainValue_ = 1.0;
    int modeValue_ = 1;
    bool invertOn_ = false;
};

class TestOperator : public ToolOperator {
  public:
    TestOperator(const Registry* reg, const ScriptVal& script, const TagList& tags);

    // Records each chunk that the host runs before running it.
    void ProcessChunk(Request* request, long chunk) override;
    // Records the colour binding's guard as each notification arrives.
    void NotifyChanged(Input* input, Parameter* param, double time, TagList* tags) override;

    TestEngine* Test() const { return static_cast<TestEngine*>(Engine()); }

    struct ChunkCall {
        long chunk;
        int threadCount;
        int rowCount;
        bool engineWork;  // an engine routine, not a work-image operator
    };
    std::vector<ChunkCall> ChunkCalls();
    void ClearChunkCalls();

    // Guard of the Tint binding at the arrival of each notification, in order.
    std::vector<int> tintGuards;
    // Notifications that reached this operator, whatever came of them.
    int notifications = 0;

  private:
    TestOperator(const Registry* reg, const ScriptVal& script, const TagList& tags,
                 TestEngine* engine);

    std::mutex chunkMutex_;
    std::vector<ChunkCall> chunkCalls_;
};

// The declaration of the test tool: pages "Q9 Test" and "More".
const ToolDecl& TestToolDecl();

// Enters the test tool as class "Q9.Test", name "Q9Test"; the first call registers, later calls
// return the same record.
Registry* RegisterTestTool();
