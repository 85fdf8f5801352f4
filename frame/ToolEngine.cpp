#include "frame/ToolEngine.h"

#include "frame/ScreenControl.h"
#include "frame/WorkImage.h"
#include "host/App.h"

ChunkJob* currentChunkJob = nullptr;

void RunChunkOf(ChunkJob& job, ToolEngine* engine, long chunk) {
    if (job.threadCount < 1) return;
    const int per = job.rowCount / job.threadCount;
    const int first = per * static_cast<int>(chunk);
    const int last = chunk == job.threadCount - 1 ? job.rowCount - 1 : first + per - 1;
    if (job.engineChunk) {
        if (engine) (engine->*job.engineChunk)(first, last);
    } else if (job.imageChunk && job.image) {
        (job.image->*job.imageChunk)(first, last);
    }
}

void ToolEngine::RunOverRows(EngineChunk routine, int rowCount) {
    job->engineChunk = routine;
    job->imageChunk = nullptr;
    job->rowCount = rowCount;
    // The processor count is read and then set aside: engine work always runs on two chunks.
    int processors = GetApp()->ProcessorCount();
    job->threadCount = processors < 1 ? 1 : processors;
    job->threadCount = 2;
    op->DoMultiProcess(job->request, 2);
}

bool ToolEngine::IsAborted() const {
    return op && op->IsAborting();
}

void ToolEngine::ResizerRows(int first, int last) {
    resizerChunk(resizerContext, first, last);
}

void ResizerDispatch(ToolEngine* engine, ResizerChunk routine, int rowCount, void* context) {
    engine->resizerChunk = routine;
    engine->resizerContext = context;
    engine->RunOverRows(&ToolEngine::ResizerRows, rowCount);
}

ToolOverlay::~ToolOverlay() {
    for (ScreenControl* c : controls)
        delete c;
}

void ToolOverlay::DrawControls() {
    for (ScreenControl* c : controls)
        if (c->visible) c->Draw();
}

void ToolOverlay::ControlEvent(int event, float x, float y) {
    for (ScreenControl* c : controls)
        c->HandleEvent(event, x, y);
}

void ToolOverlay::ShownControlsEvent(int event, float x, float y) {
    for (ScreenControl* c : controls) {
        if (c->visible) {
            c->HandleEvent(event, x, y);
        } else {
            c->hover = 0;
            c->active = 0;
        }
    }
}
