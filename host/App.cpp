#include "host/App.h"

#include <algorithm>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "host/Parameters.h"

namespace {
constexpr size_t kMostFreeImages = 24;
}

ImagePool::~ImagePool() {
    for (auto& entry : free_)
        delete entry.second;
}

Image* ImagePool::Take(int width, int height) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = free_.find({width, height});
        if (it != free_.end()) {
            Image* image = it->second;
            free_.erase(it);
            image->ResetReferences();
            image->xScale = image->yScale = 1.0;
            image->xOffset = image->yOffset = 0.0;
            return image;
        }
    }
    return new Image(width, height);
}

void ImagePool::Give(Image* image) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (free_.size() >= kMostFreeImages) {
        delete image;
        return;
    }
    free_.insert({{image->width, image->height}, image});
}

size_t ImagePool::Free() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return free_.size();
}

App::App() {
#ifdef __GLIBC__
    // Frames allocate and free blocks of the same large sizes again and again; keeping them in the
    // heap instead of mapping each anew spares the page faults of a fresh mapping every frame.
    mallopt(M_MMAP_THRESHOLD, 512 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 1024 * 1024 * 1024);
#endif
    unsigned n = std::thread::hardware_concurrency();
    SetProcessorCount(n == 0 ? 1 : static_cast<int>(n));
}

App::~App() {
    StopWorkers();
}

void App::SetProcessorCount(int count) {
    std::lock_guard<std::mutex> run(runMutex_);
    count = std::max(1, std::min(count, 256));
    if (count == processors_ && workers_.size() == static_cast<size_t>(count - 1)) return;
    StopWorkers();
    processors_ = count;
    StartWorkers(count - 1);
}

void App::StartWorkers(int count) {
    stop_ = false;
    for (int i = 0; i < count; ++i)
        workers_.emplace_back([this] { WorkerLoop(); });
}

void App::StopWorkers() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    for (auto& t : workers_)
        t.join();
    workers_.clear();
}

void App::RunSome() {
    for (;;) {
        long index = next_.fetch_add(1, std::memory_order_relaxed);
        if (index >= count_) return;
        (*job_)(index);
        std::lock_guard<std::mutex> lock(mutex_);
        if (++finished_ == count_) done_.notify_all();
    }
}

void App::WorkerLoop() {
    unsigned seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] { return stop_ || generation_ != seen; });
            if (stop_) return;
            seen = generation_;
            ++active_;
        }
        RunSome();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (--active_ == 0) done_.notify_all();
        }
    }
}

void App::RunChunks(long count, const std::function<void(long)>& job) {
    if (count <= 0) return;
    std::lock_guard<std::mutex> run(runMutex_);
    {
        std::unique_lock<std::mutex> lock(mutex_);
        // A worker that woke late for the previous run may still be reading its counters; it
        // leaves before they are set for this one, or it could run a chunk of this run twice.
        done_.wait(lock, [&] { return active_ == 0; });
        job_ = &job;
        count_ = count;
        finished_ = 0;
        next_.store(0, std::memory_order_relaxed);
        ++generation_;
    }
    if (!workers_.empty() && count > 1) wake_.notify_all();
    RunSome();
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [&] { return finished_ == count_ && active_ == 0; });
    job_ = nullptr;
}

App* GetApp() {
    static App app;
    return &app;
}
