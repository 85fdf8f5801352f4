// The application object: the processor count, the worker threads behind DoMultiProcess and the
// pool that recycles image blocks.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

class Image;

class ImagePool {
  public:
    ~ImagePool();
    // A new image, its block taken from the pool when one of that size is free.
    Image* Take(int width, int height);
    void Give(Image* image);
    size_t Free() const;

  private:
    mutable std::mutex mutex_;
    std::multimap<std::pair<int, int>, Image*> free_;
};

class App {
  public:
    App();
    ~App();
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    // Processors the tools see; the image operators split their rows into this many chunks.
    int ProcessorCount() const { return processors_; }
    void SetProcessorCount(int count);

    // Runs job(0) .. job(count - 1) on the worker threads and the calling thread, and returns when
    // all are done. One run at a time.
    void RunChunks(long count, const std::function<void(long)>& job);

    ImagePool& Images() { return images_; }

    // Set by an interruption (Ctrl-C): every operator's render aborts.
    std::atomic<bool> interrupted{false};

  private:
    void StartWorkers(int count);
    void StopWorkers();
    void WorkerLoop();
    void RunSome();

    int processors_ = 1;
    std::vector<std::thread> workers_;
    std::mutex runMutex_;
    std::mutex mutex_;
    std::condition_variable wake_, done_;
    const std::function<void(long)>* job_ = nullptr;
    long count_ = 0;
    std::atomic<long> next_{0};
    long finished_ = 0;
    int active_ = 0;
    unsigned generation_ = 0;
    bool stop_ = false;
    ImagePool images_;
};

App* GetApp();
