#include "frame/ImageResizer.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "frame/WorkImage.h"

namespace {

constexpr int kLastEntry = 1024;

double Cubic(double a, double x) {
    if (x < 1.0) return (a + 2) * x * x * x - (a + 3) * x * x + 1;
    if (x < 2.0) return a * x * x * x - 5 * a * x * x + 8 * a * x - 4 * a;
    return 0.0;
}

double BSpline(double x) {
    if (x < 1.0) return (3 * x * x * x - 6 * x * x + 4) / 6;
    if (x < 2.0) return (6 * x * x - x * x * x - 12 * x + 8) / 6;
    return 0.0;
}

double Sinc(double t) {
    if (t == 0.0) return 1.0;
    const double pt = 3.14159265358979323846 * t;
    return std::sin(pt) / pt;
}

double Lanczos2(double x) {
    if (x == 0.0) return 1.0;
    if (x < 2.0) return Sinc(x) * Sinc(x / 2);
    return 0.0;
}

// A filtered sum as a sample: held to 0..32767 (NaN gives 0), plus one half, truncated.
inline uint16_t ToSample(double v) {
    v = v > 0.0 ? v : 0.0;
    v = v < 32767.0 ? v : 32767.0;
    return static_cast<uint16_t>(static_cast<int>(v + 0.5));
}

// Two channels of a pixel as one value, so that neighbouring channels are summed side by side.
// Each element is computed exactly as a lone double would be.
typedef double Pair __attribute__((vector_size(16)));

// One destination pixel: the source pixels `pixelAt(j)` for j in start..start+count-1 weighted by
// `weight[j]` and summed in that order, then multiplied by `scale` when reducing.
template <class PixelAt>
inline void FilterPixel(int start, int count, const double* weight, bool reducing, double scale,
                        PixelAt pixelAt, uint16_t* out) {
    Pair low = {0.0, 0.0}, high = {0.0, 0.0};
    for (int j = start; j < start + count; ++j) {
        const uint16_t* q = pixelAt(j);
        const Pair w = {weight[j], weight[j]};
        low += Pair{static_cast<double>(q[0]), static_cast<double>(q[1])} * w;
        high += Pair{static_cast<double>(q[2]), static_cast<double>(q[3])} * w;
    }
    if (reducing) {
        const Pair s = {scale, scale};
        low *= s;
        high *= s;
    }
    out[0] = ToSample(low[0]);
    out[1] = ToSample(low[1]);
    out[2] = ToSample(high[0]);
    out[3] = ToSample(high[1]);
}

// The table entry of a distance already scaled to 512 entries a pixel: truncated and made
// positive. The filters are zero from entry 1024 on, which any longer distance also gets.
inline int TableEntry(double scaled) {
    const double t = std::fabs(scaled);
    return t < kLastEntry ? static_cast<int>(t) : kLastEntry;
}

}  // namespace

ImageResizer::ImageResizer() {
    SetFilter(kTriangle);
}

ImageResizer::~ImageResizer() {
    delete middleImage;
}

void ImageResizer::SetFilter(int number) {
    if (number == filterNumber) return;
    filterNumber = number;
    switch (number) {
        case kCubicHalf:
        case kCubicWhole:
        case kBSpline:
        case kLanczosTwo:
            filterHalfWidth = 2;
            break;
        default:
            filterHalfWidth = 1;
    }
    for (int i = 0; i <= kLastEntry; ++i) {
        const double x = i * 0.001953125;
        double w;
        switch (number) {
            case kCubicHalf:
                w = Cubic(-0.5, x);
                break;
            case kCubicWhole:
                w = Cubic(-1.0, x);
                break;
            case kBSpline:
                w = BSpline(x);
                break;
            case kLanczosTwo:
                w = Lanczos2(x);
                break;
            default:
                // The triangle reaches one pixel; its entries beyond 512 are never read, and hold
                // zero rather than what an earlier filter left there.
                w = x < 1.0 ? 1 - x : 0.0;
        }
        filterTable[i] = w;
    }
}

bool ImageResizer::SetDispatch(ToolEngine* context, ResizerDispatchRoutine routine) {
    dispatchContext = context;
    dispatch = routine;
    return true;
}

int ImageResizer::Resize(WorkImage* source, WorkImage* dest) {
    if (!source || !dest || source->width <= 0 || source->height <= 0 || dest->width <= 0 ||
        dest->height <= 0)
        return 0;
    sourceImage = source;
    destImage = dest;
    const bool sameWidth = source->width == dest->width;
    const bool sameHeight = source->height == dest->height;
    if (sameWidth && sameHeight) {
        if (source == dest) return 1;
        for (int y = 0; y < dest->height; ++y)
            std::memcpy(dest->rows[y], source->rows[y], static_cast<size_t>(dest->width) * 8);
        return 1;
    }

    // A pass between equal lengths is a plain copy of every line; it is left out, and the other
    // pass reads the source or writes the destination directly.
    WorkImage* middle;
    if (sameWidth) {
        middle = source;
    } else if (sameHeight) {
        middle = dest;
    } else {
        if (!middleImage || middleImage->width != dest->width ||
            middleImage->height != source->height) {
            delete middleImage;
            middleImage = new WorkImage(dest->width, source->height, 1.0f, nullptr, 0);
        }
        middle = middleImage;
    }

    if (!sameWidth) {
        sourceLength = source->width;
        destLength = dest->width;
        passSource_ = source;
        passDest_ = middle;
        PlanPass();
        RunPass(&ImageResizer::HorizontalChunk, source->height);
    }
    if (!sameHeight) {
        sourceLength = source->height;
        destLength = dest->height;
        passSource_ = middle;
        passDest_ = dest;
        PlanPass();
        RunPass(&ImageResizer::VerticalChunk, dest->width);
    }
    return 1;
}

void ImageResizer::PlanPass() {
    const int n = sourceLength, m = destLength;
    positions_.resize(static_cast<size_t>(m));
    tapIndex_.clear();
    tapWeight_.clear();
    reducing_ = m < n;

    auto addTap = [&](int i, double w) {
        tapIndex_.push_back(i < 0 ? 0 : (i > n - 1 ? n - 1 : i));  // edge samples repeat
        tapWeight_.push_back(w);
    };

    if (m == 1) {
        // The ratio would be infinite or undefined; the one sample is the first of the source,
        // where the first destination sample always falls.
        ratio = 0.0;
        reducing_ = false;
        positions_[0] = {0, 1, 1.0};
        addTap(0, 1.0);
        return;
    }
    ratio = static_cast<double>(n - 1) / static_cast<double>(m - 1);

    for (int d = 0; d < m; ++d) {
        const double c = d * ratio;
        Position& p = positions_[static_cast<size_t>(d)];
        p.start = static_cast<int32_t>(tapIndex_.size());
        if (!reducing_) {
            const int first = static_cast<int>(std::ceil(c - filterHalfWidth));
            const int last = static_cast<int>(std::floor(filterHalfWidth + c));
            for (int i = first; i <= last; ++i)
                addTap(i, filterTable[TableEntry((i - c) * 512.0)]);
            p.scale = 1.0;
        } else {
            // The filter is stretched by the ratio and its weights are normalised.
            const double inverse = 1 / ratio;
            const int first = static_cast<int>(std::ceil(c - filterHalfWidth * ratio));
            const int last = static_cast<int>(std::floor(filterHalfWidth * ratio + c));
            double total = 0.0;
            for (int i = first; i <= last; ++i) {
                const double w = filterTable[TableEntry((i - c) * inverse * 512.0)];
                addTap(i, w);
                total += w;
            }
            // Weights that cancel exactly leave nothing to normalise by: the sample is black.
            p.scale = total != 0.0 ? 1 / total : 0.0;
        }
        p.count = static_cast<int32_t>(tapIndex_.size()) - p.start;
    }
}

void ImageResizer::RunPass(ResizerChunk routine, int lineCount) {
    if (dispatch && dispatchContext)
        dispatch(dispatchContext, routine, lineCount, this);
    else
        routine(this, 0, lineCount - 1);
}

// Rows first..last of the source: each row scaled along x into the same row of the target.
void ImageResizer::HorizontalChunk(void* resizer, int first, int last) {
    const auto* self = static_cast<const ImageResizer*>(resizer);
    const WorkImage* from = self->passSource_;
    WorkImage* to = self->passDest_;
    const Position* positions = self->positions_.data();
    const int32_t* index = self->tapIndex_.data();
    const double* weight = self->tapWeight_.data();
    const bool reducing = self->reducing_;
    for (int y = first; y <= last; ++y) {
        const uint16_t* in = from->rows[y];
        uint16_t* out = to->rows[y];
        for (int d = 0; d < self->destLength; ++d, out += 4) {
            const Position& p = positions[d];
            FilterPixel(
                p.start, p.count, weight, reducing, p.scale,
                [&](int j) { return in + static_cast<ptrdiff_t>(index[j]) * 4; }, out);
        }
    }
}

// Columns first..last of the destination: each column scaled along y. The work goes a destination
// row at a time, adding each tap's source row into sums for the whole range, so that rows are
// walked in order; every sample still gets its own sum, its taps added in the same order.
void ImageResizer::VerticalChunk(void* resizer, int first, int last) {
    if (first > last) return;
    const auto* self = static_cast<const ImageResizer*>(resizer);
    const WorkImage* from = self->passSource_;
    WorkImage* to = self->passDest_;
    const int32_t* index = self->tapIndex_.data();
    const double* weight = self->tapWeight_.data();
    const ptrdiff_t pairs = static_cast<ptrdiff_t>(last - first + 1) * 2;
    thread_local std::vector<Pair> sums;
    if (sums.size() < static_cast<size_t>(pairs)) sums.resize(static_cast<size_t>(pairs));
    Pair* sum = sums.data();
    for (int d = 0; d < self->destLength; ++d) {
        const Position& p = self->positions_[static_cast<size_t>(d)];
        for (ptrdiff_t i = 0; i < pairs; ++i)
            sum[i] = Pair{0.0, 0.0};
        for (int j = p.start; j < p.start + p.count; ++j) {
            const uint16_t* q = from->rows[index[j]] + static_cast<ptrdiff_t>(first) * 4;
            const Pair w = {weight[j], weight[j]};
            for (ptrdiff_t i = 0; i < pairs; ++i, q += 2)
                sum[i] += Pair{static_cast<double>(q[0]), static_cast<double>(q[1])} * w;
        }
        if (self->reducing_) {
            const Pair scale = {p.scale, p.scale};
            for (ptrdiff_t i = 0; i < pairs; ++i)
                sum[i] *= scale;
        }
        uint16_t* out = to->rows[d] + static_cast<ptrdiff_t>(first) * 4;
        for (ptrdiff_t i = 0; i < pairs; ++i, out += 2) {
            out[0] = ToSample(sum[i][0]);
            out[1] = ToSample(sum[i][1]);
        }
    }
}

void ResizeForImport(WorkImage* from, WorkImage* to, ToolEngine* engine) {
    ImageResizer resizer;
    resizer.SetFilter(ImageResizer::kCubicHalf);
    if (engine) resizer.SetDispatch(engine, &ResizerDispatch);
    // An image without pixels leaves nothing to scale: the result is black and transparent.
    if (!resizer.Resize(from, to)) to->Fill(0, 0, 0, 0);
}

namespace {
// The import scales a second image of another size from the start of the program on.
const bool importScales = (importResizer = &ResizeForImport, true);
}  // namespace
