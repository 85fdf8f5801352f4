// The values that travel between inputs and tools: numbers, points and 16-bit RGBA images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/Object.h"

class Parameter : public Object {
  public:
    enum class Type { Number, Point, Image };
    explicit Parameter(Type type) : type_(type) {}
    Type GetType() const { return type_; }
    // A fresh copy with one reference. Images copy their pixels.
    virtual Parameter* Copy() const = 0;

  private:
    Type type_;
};

class Number : public Parameter {
  public:
    explicit Number(double v = 0.0) : Parameter(Type::Number), value(v) {}
    Parameter* Copy() const override { return new Number(value); }
    double value;
};

class Point : public Parameter {
  public:
    Point(double px = 0.0, double py = 0.0, double pz = 0.0)
        : Parameter(Type::Point), x(px), y(py) {
        (void)pz;
    }
    Parameter* Copy() const override { return new Point(x, y); }
    double x, y;
};

// A temporary number handed to SetSource; it lives on the stack of the writer.
class AutoNumber : public Number {
  public:
    explicit AutoNumber(double v) : Number(v) {}
};

// One pixel as the host's reader and writer deliver it: four 16-bit channels and room for the
// auxiliary channels an image may carry, which the tools never read.
struct HostPixel {
    uint16_t red = 0, green = 0, blue = 0, alpha = 0;
    uint16_t extra[4] = {0, 0, 0, 0};
};

// A host image: width * height pixels of four 16-bit channels (red, green, blue, alpha).
// Row 0 is the bottom row of the picture and y grows upward; image files are top row first, so
// loading and saving flip.
class Image : public Parameter {
  public:
    Image(int w, int h);
    Parameter* Copy() const override;

    int width = 0, height = 0;
    // Pixel aspect X and Y, then the offsets X and Y.
    double xScale = 1.0, yScale = 1.0, xOffset = 0.0, yOffset = 0.0;

    uint16_t* Row(int y) { return pixels_.data() + static_cast<size_t>(y) * width * 4; }
    const uint16_t* Row(int y) const { return pixels_.data() + static_cast<size_t>(y) * width * 4; }
    uint16_t* Data() { return pixels_.data(); }
    const uint16_t* Data() const { return pixels_.data(); }
    size_t SampleCount() const { return pixels_.size(); }

    // The per-pixel reader and writer of the host.
    void ReadPixel(int x, int y, HostPixel& out) const {
        const uint16_t* p = Row(y) + static_cast<size_t>(x) * 4;
        out.red = p[0];
        out.green = p[1];
        out.blue = p[2];
        out.alpha = p[3];
    }
    void WritePixel(int x, int y, const HostPixel& in) {
        uint16_t* p = Row(y) + static_cast<size_t>(x) * 4;
        p[0] = in.red;
        p[1] = in.green;
        p[2] = in.blue;
        p[3] = in.alpha;
    }

  protected:
    void Destroy() override;  // returns the image to the application's pool

  private:
    friend class ImagePool;
    std::vector<uint16_t> pixels_;
};

// A new image of the same size and aspect as `like`, asked for by tag kImageLike. The pixels are
// not cleared. Returns null for any other tag or a null model.
Image* NewImage(Tag tag, const Image* like, int end = 0);

// Holds one reference to an object and gives it back when it goes out of scope.
template <class T>
class HostRef {
  public:
    HostRef() = default;
    explicit HostRef(T* p) : p_(p) {}  // takes over the caller's reference
    HostRef(const HostRef&) = delete;
    HostRef& operator=(const HostRef&) = delete;
    HostRef(HostRef&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    HostRef& operator=(HostRef&& o) noexcept {
        if (this != &o) {
            reset();
            p_ = o.p_;
            o.p_ = nullptr;
        }
        return *this;
    }
    ~HostRef() { reset(); }
    void reset(T* p = nullptr) {
        if (p_) p_->Recycle();
        p_ = p;
    }
    T* get() const { return p_; }
    T* operator->() const { return p_; }
    T& operator*() const { return *p_; }
    T* release() {
        T* p = p_;
        p_ = nullptr;
        return p;
    }
    explicit operator bool() const { return p_ != nullptr; }

  private:
    T* p_ = nullptr;
};
