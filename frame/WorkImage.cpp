#include "frame/WorkImage.h"

#include <cstdlib>
#include <cstring>

#include "frame/RecursiveGaussian.h"
#include "frame/SmallMaths.h"
#include "frame/ToolEngine.h"
#include "host/App.h"
#include "host/Parameters.h"

std::atomic<int> WorkImage::liveCount{0};
ImportResizer importResizer = nullptr;

WorkImage::WorkImage(int w, int h, float ignored, void* pixelBlock, uint32_t tag)
    : width(w < 0 ? 0 : w), height(h < 0 ? 0 : h), ownerTag(tag) {
    (void)ignored;
    referenceScale = 720.0f / static_cast<float>(width);
    if (pixelBlock) {
        pixels = static_cast<uint16_t*>(pixelBlock);
        ownsPixels = 0;
    } else {
        size_t bytes = static_cast<size_t>(width) * height * 8;
        pixels = static_cast<uint16_t*>(std::malloc(bytes ? bytes : 8));
        ownsPixels = 1;
    }
    MakeRows();
    liveCount.fetch_add(1, std::memory_order_relaxed);
}

WorkImage::WorkImage(const WorkImage& source)
    : width(source.width),
      height(source.height),
      referenceScale(source.referenceScale),
      ownerTag(source.ownerTag) {
    for (int i = 0; i < 4; ++i)
        pixelScale[i] = source.pixelScale[i];
    size_t bytes = static_cast<size_t>(width) * height * 8;
    pixels = static_cast<uint16_t*>(std::malloc(bytes ? bytes : 8));
    ownsPixels = 1;
    MakeRows();
    for (int y = 0; y < height; ++y)
        std::memcpy(rows[y], source.rows[y], static_cast<size_t>(width) * 8);
    liveCount.fetch_add(1, std::memory_order_relaxed);
}

WorkImage::~WorkImage() {
    if (ownsPixels) std::free(pixels);
    std::free(rows);
    liveCount.fetch_sub(1, std::memory_order_relaxed);
}

void WorkImage::MakeRows() {
    rows = static_cast<uint16_t**>(std::malloc(sizeof(uint16_t*) * (height ? height : 1)));
    for (int y = 0; y < height; ++y)
        rows[y] = pixels + static_cast<size_t>(y) * width * 4;
}

void WorkImage::Fill(uint16_t red, uint16_t green, uint16_t blue, uint16_t alpha) {
    if (width == 0 || height == 0) return;
    uint16_t* row0 = rows[0];
    for (int x = 0; x < width; ++x) {
        row0[x * 4 + 0] = red;
        row0[x * 4 + 1] = green;
        row0[x * 4 + 2] = blue;
        row0[x * 4 + 3] = alpha;
    }
    for (int y = 1; y < height; ++y)
        std::memcpy(rows[y], row0, static_cast<size_t>(width) * 8);
}

int WorkImage::CopyScaled(WorkImage* source, float gainRed, float gainGreen, float gainBlue,
                          float gainAlpha) {
    const int w = source->width, h = source->height;
    if (gainRed == 1.0f && gainGreen == 1.0f && gainBlue == 1.0f && gainAlpha == 1.0f) {
        for (int y = 0; y < h; ++y)
            std::memcpy(rows[y], source->rows[y], static_cast<size_t>(w) * 8);
        return h;
    }
    const double gains[4] = {gainRed, gainGreen, gainBlue, gainAlpha};
    for (int y = 0; y < h; ++y) {
        const uint16_t* s = source->rows[y];
        uint16_t* d = rows[y];
        for (int i = 0; i < w * 4; ++i) {
            double v = s[i] * gains[i & 3];
            // Truncation toward zero, then the clamp; NaN (from an infinite gain on 0) gives 0.
            long t = v >= 32767.0 ? 32767 : (v > 0.0 ? static_cast<long>(v) : 0);
            d[i] = static_cast<uint16_t>(t);
        }
    }
    return h;
}

void WorkImage::CopyAlphaFrom(WorkImage* source) {
    alphaSource = source;
    RunOverRows(&WorkImage::CopyAlphaRows, height);
}

void WorkImage::CopyAlphaRows(int first, int last) {
    for (int y = first; y <= last; ++y) {
        const uint16_t* s = alphaSource->rows[y];
        uint16_t* d = rows[y];
        for (int x = 0; x < width; ++x)
            d[x * 4 + 3] = s[x * 4 + 3];
    }
}

namespace {

// The weight of a mix: the truncation of amount * 32767 (the product is exact in double). The
// blend runs in unsigned 32-bit arithmetic, so an amount outside 0..1 wraps there as it always has;
// only the conversion itself is guarded.
uint32_t MixWeight(float amount) {
    double f = static_cast<double>(amount) * static_cast<double>(32767.0f);
    return static_cast<uint32_t>(TruncateToInt(f));
}

}  // namespace

void WorkImage::MixFrom(float amount, WorkImage* source) {
    mixAmount = amount;
    mixSource = source;
    RunOverRows(&WorkImage::MixFromRows, height);
}

void WorkImage::MixFromRows(int first, int last) {
    const uint32_t f = MixWeight(mixAmount);
    const uint32_t g = 32768 - f;
    for (int y = first; y <= last; ++y) {
        const uint16_t* s = mixSource->rows[y];
        uint16_t* d = rows[y];
        for (int i = 0; i < width * 4; ++i)
            d[i] = static_cast<uint16_t>((s[i] * f + d[i] * g) >> 15);
    }
}

void WorkImage::MixColour(float amount, uint32_t redGreen, uint32_t blueAlpha) {
    mixAmount = amount;
    mixColour[0] = static_cast<uint16_t>(redGreen & 0xffff);
    mixColour[1] = static_cast<uint16_t>(redGreen >> 16);
    mixColour[2] = static_cast<uint16_t>(blueAlpha & 0xffff);
    mixColour[3] = static_cast<uint16_t>(blueAlpha >> 16);
    RunOverRows(&WorkImage::MixColourRows, height);
}

void WorkImage::MixColourRows(int first, int last) {
    const uint32_t f = MixWeight(mixAmount);
    const uint32_t g = 32768 - f;
    const uint32_t c[4] = {mixColour[0] * f, mixColour[1] * f, mixColour[2] * f, mixColour[3] * f};
    for (int y = first; y <= last; ++y) {
        uint16_t* d = rows[y];
        for (int x = 0; x < width; ++x) {
            for (int k = 0; k < 4; ++k)
                d[x * 4 + k] = static_cast<uint16_t>((d[x * 4 + k] * g + c[k]) >> 15);
        }
    }
}

void WorkImage::GaussianBlur(float radius, WorkImage* source, int direction, int withAlpha) {
    if (direction < 0 || direction > 2) return;
    if (source && (source->width != width || source->height != height)) return;
    blurSigma = GaussianSigma(radius);
    // A pass reads a line whole before it writes it, so it may read the image it writes: the
    // second pass of direction 2 needs no copy of the first pass's result.
    if (direction != 1) {
        blurSource = source ? source : this;
        RunOverRows(withAlpha ? &WorkImage::GaussianBlurLines<false, true>
                              : &WorkImage::GaussianBlurLines<false, false>,
                    height);
    }
    if (direction != 0) {
        blurSource = direction == 1 && source ? source : this;
        RunOverRows(withAlpha ? &WorkImage::GaussianBlurLines<true, true>
                              : &WorkImage::GaussianBlurLines<true, false>,
                    width);
    }
    blurSource = nullptr;
}

void WorkImage::RunOverRows(void (WorkImage::*routine)(int, int), int rowCount) {
    ChunkJob* job = currentChunkJob;
    if (!job || !job->op) {
        // Outside any tool's render there is no dispatch: the calling thread does all rows.
        (this->*routine)(0, rowCount - 1);
        return;
    }
    int processors = GetApp()->ProcessorCount();
    job->threadCount = processors < 1 ? 1 : processors;
    job->imageChunk = routine;
    job->engineChunk = nullptr;
    job->image = this;
    job->rowCount = rowCount;
    job->op->DoMultiProcess(job->request, job->threadCount);
}

WorkImage* ImportImage(Image* source, WorkImage* like, bool makeNew, ToolEngine* engine) {
    if (!source) return nullptr;
    const bool resize = like && (like->width != source->width || like->height != source->height);
    WorkImage* result;
    if (!like)
        result = new WorkImage(source->width, source->height, 1.0f, nullptr, 0);
    else if (!makeNew)
        result = like;
    else if (resize)
        result = new WorkImage(like->width, like->height, 1.0f, nullptr, 0);
    else
        result = new WorkImage(source->width, source->height, 1.0f, nullptr, 0);
    result->pixelScale[0] = source->xScale;
    result->pixelScale[1] = source->yScale;
    result->pixelScale[2] = source->xOffset;
    result->pixelScale[3] = source->yOffset;

    WorkImage* target =
        resize ? new WorkImage(source->width, source->height, 1.0f, nullptr, 0) : result;
    for (int y = target->height - 1; y >= 0; --y) {
        const uint16_t* s = source->Row(y);
        uint16_t* d = target->rows[y];
        for (int i = 0; i < target->width * 4; ++i)
            d[i] = static_cast<uint16_t>(s[i] >> 1);
    }
    if (resize) {
        if (importResizer)
            importResizer(target, result, engine);
        else
            result->Fill(0, 0, 0, 0);  // not reached through our host, which refuses the case
        delete target;
    }
    return result;
}

Image* ExportImage(Image* model, WorkImage* work) {
    if (!work) return nullptr;
    Image* image = NewImage(kImageLike, model, 0);
    if (!image) return nullptr;
    // The host image holds exactly the four channels, so rows are written directly.
    const int w = work->width < image->width ? work->width : image->width;
    const int h = work->height < image->height ? work->height : image->height;
    for (int y = 0; y < h; ++y) {
        const uint16_t* s = work->rows[y];
        uint16_t* d = image->Row(y);
        for (int i = 0; i < w * 4; ++i) {
            uint32_t v = s[i];
            uint32_t e = (v >> 14) | (v * 2);
            d[i] = static_cast<uint16_t>(e > 65535 ? 65535 : e);
        }
    }
    return image;
}
