// Helpers shared by the tests: host images made from a function, hashes of pixels, a scope with a
// given processor count, a scope that routes work-image operators through a tool's dispatch, and a
// document holding one test tool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

#include <unistd.h>

#include "frame/ToolEngine.h"
#include "frame/WorkImage.h"
#include "host/App.h"
#include "host/Document.h"
#include "host/Parameters.h"
#include "tests/TestTool.h"

using HostImage = HostRef<Image>;

// A folder under the system's temporary one, named for this process as well: runs of the suite
// side by side never share one.
inline std::string ScratchDir(const std::string& name) {
    return (std::filesystem::temp_directory_path() / (name + "-" + std::to_string(::getpid())))
        .string();
}

// True under `make sweep` (CRATE07_SWEEP set): the long equivalence sweeps run in full, where the
// ordinary run takes a small sample of them.
inline bool FullSweep() {
    return std::getenv("CRATE07_SWEEP") != nullptr;
}
using PixelFill = std::function<void(int x, int y, uint16_t* rgba)>;

// A host image from the pool, each pixel written by `fill`.
inline HostImage MakeHostImage(int width, int height, const PixelFill& fill) {
    Image* image = GetApp()->Images().Take(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            fill(x, y, image->Row(y) + static_cast<size_t>(x) * 4);
    return HostImage(image);
}

// A work image, each pixel written by `fill`.
inline WorkImage* MakeWorkImage(int width, int height, const PixelFill& fill) {
    auto* image = new WorkImage(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            fill(x, y, image->Pixel(x, y));
    return image;
}

// A fixed, busy-looking picture of 16-bit host samples: every channel differs from its neighbours.
inline void Pattern16(int x, int y, uint16_t* p) {
    for (int c = 0; c < 4; ++c)
        p[c] = static_cast<uint16_t>((x * 7919u + y * 104729u + c * 15485863u) * 2654435761u >> 16);
}

// The same on the 15-bit scale of work images.
inline void Pattern15(int x, int y, uint16_t* p) {
    Pattern16(x, y, p);
    for (int c = 0; c < 4; ++c)
        p[c] = static_cast<uint16_t>(p[c] >> 1);
}

inline uint64_t Fnv1a(const uint16_t* words, size_t count, uint64_t h = 1469598103934665603ull) {
    for (size_t i = 0; i < count; ++i) {
        h = (h ^ (words[i] & 0xff)) * 1099511628211ull;
        h = (h ^ (words[i] >> 8)) * 1099511628211ull;
    }
    return h;
}

inline uint64_t HashText(const std::string& text) {
    uint64_t h = 1469598103934665603ull;
    for (const unsigned char c : text)
        h = (h ^ c) * 1099511628211ull;
    return h;
}

// The values of every number and point input of `op` at `time`, as text: "id=value ..." (images
// left out). A preset's writes are pinned by the hash of this text.
inline std::string InputValues(Operator* op, double time = 0.0) {
    std::string text;
    for (Input* in : op->Inputs()) {
        Parameter* p = in->GetDataType() == Input::DataType::Image ? nullptr : in->GetSource(time);
        if (!p) continue;
        char value[80];
        if (p->GetType() == Parameter::Type::Number)
            std::snprintf(value, sizeof value, "%.17g", static_cast<Number*>(p)->value);
        else
            std::snprintf(value, sizeof value, "%.17g,%.17g", static_cast<Point*>(p)->x,
                          static_cast<Point*>(p)->y);
        text += in->ID().str() + "=" + value + " ";
    }
    return text;
}

inline uint64_t HashImage(const Image& image) {
    return Fnv1a(image.Data(), image.SampleCount());
}
inline uint64_t HashImage(const HostImage& image) {
    return image ? HashImage(*image.get()) : 0;
}

inline uint64_t HashWork(const WorkImage& image) {
    uint64_t h = 1469598103934665603ull;
    for (int y = 0; y < image.height; ++y)
        h = Fnv1a(image.rows[y], static_cast<size_t>(image.width) * 4, h);
    return h;
}

inline bool SamePixels(const WorkImage& a, const WorkImage& b) {
    return a.width == b.width && a.height == b.height && HashWork(a) == HashWork(b);
}

// The application's processor count for the life of the scope.
class ScopedProcessors {
  public:
    explicit ScopedProcessors(int count) : saved_(GetApp()->ProcessorCount()) {
        GetApp()->SetProcessorCount(count);
    }
    ~ScopedProcessors() { GetApp()->SetProcessorCount(saved_); }
    ScopedProcessors(const ScopedProcessors&) = delete;
    ScopedProcessors& operator=(const ScopedProcessors&) = delete;

  private:
    int saved_;
};

// Within the scope the work-image operators dispatch through `op`, as they do inside its render.
class ScopedDispatch {
  public:
    explicit ScopedDispatch(ToolOperator* op)
        : saved_(currentChunkJob), op_(op), request_(op, 0.0) {
        currentChunkJob = &op->job;
        op->job.request = &request_;
    }
    ~ScopedDispatch() {
        currentChunkJob = saved_;
        op_->job.request = nullptr;
    }
    ScopedDispatch(const ScopedDispatch&) = delete;
    ScopedDispatch& operator=(const ScopedDispatch&) = delete;

  private:
    ChunkJob* saved_;
    ToolOperator* op_;
    Request request_;
};

// A document with one test tool in it.
struct TestToolDoc {
    TestToolDoc() {
        RegisterTestTool();
        op = static_cast<TestOperator*>(doc.AddTool("Test"));
        engine = op->Test();
    }

    Input* In(const std::string& id) const { return op->FindInput(id); }

    // Writes a number as a whole value (or a key at `time`) through the host.
    void Set(const std::string& id, double value, double time = -1.0) {
        Number n(value);
        In(id)->SetSource(&n, time);
    }
    double Get(const std::string& id, double time = 0.0) const {
        return static_cast<Number*>(In(id)->GetSource(time))->value;
    }

    // One Process at `time` with the given images; the delivered image, or null.
    HostImage Render(Image* source, Image* matte = nullptr, double time = 0.0) {
        Request request(op, time);
        if (source) request.SetInputImage(In("Source"), source);
        if (matte) request.SetInputImage(In("Matte"), matte);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }

    FusionDoc doc;
    TestOperator* op = nullptr;
    TestEngine* engine = nullptr;
};

// A document holding one tool of class Op: values written through the host (a whole value, or a
// key at `time`, with the input's notification), read back, and one render at a time through the
// host's request with images wired to the named inputs (a null image is left unwired).
template <class Op>
struct ToolDoc {
    using Images = std::initializer_list<std::pair<const char*, Image*>>;
    explicit ToolDoc(const char* tool) : op(static_cast<Op*>(doc.AddTool(tool))) {}
    Input* In(const std::string& id) const { return op->FindInput(id); }
    void Set(const std::string& id, double value, double time = -1.0) {
        Number n(value);
        In(id)->SetSource(&n, time);
    }
    void SetPoint(const std::string& id, double x, double y, double time = -1.0) {
        Point p(x, y);
        In(id)->SetSource(&p, time);
    }
    double Get(const std::string& id, double time = 0.0) const {
        return static_cast<Number*>(In(id)->GetSource(time))->value;
    }
    std::pair<double, double> GetPoint(const std::string& id) const {
        auto* p = static_cast<Point*>(In(id)->GetSource(0.0));
        return {p->x, p->y};
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    // A button click: 1 with a notification, then back to 0 without one.
    void Press(const std::string& id) {
        Set(id, 1.0);
        In(id)->SetConstant(0.0);
    }
    HostImage RenderImages(Images images, double time) {
        Request request(op, time);
        for (const auto& [id, image] : images)
            if (image) request.SetInputImage(In(id), image);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }
    HostImage RenderWith(const char* mainInput, Image* image, double time) {
        return RenderImages({{mainInput, image}}, time);
    }
    FusionDoc doc;
    Op* op;
};
