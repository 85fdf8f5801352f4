#include "frame/RecursiveGaussian.h"

#include <cmath>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"

double GaussianSigma(float radius) {
    return static_cast<double>(radius) * 0.25 + 0.05;
}

RecursiveGaussian::RecursiveGaussian(double sigma)
    : sigma_(sigma > kLargestSigma ? kLargestSigma : sigma),
      k_(CoefficientsFor(sigma_)),
      pad_(PadFor(sigma_)) {}

GaussianCoefficients RecursiveGaussian::CoefficientsFor(double sigma) {
    GaussianCoefficients k;
    if (sigma >= 2.5)
        k.q = 0.98711 * sigma - 0.9633;
    else if (sigma >= 0.5)
        k.q = 3.97156 - 4.14554 * std::sqrt(1.0 - 0.26891 * sigma);
    else
        // Below 0.5 the curve above is no longer usable; a straight segment to zero takes over.
        k.q = 2 * sigma * 0.3834085807;
    const double q = k.q;
    k.n = 1.0 / (1.57825 + 2.44413 * q + 1.4281 * q * q + 0.422205 * q * q * q);
    k.b1 = (2.44413 * q + 2.85619 * q * q + 1.26661 * q * q * q) * k.n;
    k.b2 = (-1.4281 * q * q - 1.26661 * q * q * q) * k.n;
    k.b3 = 0.422205 * q * q * q * k.n;
    k.B = 1.0 - (k.b1 + k.b2 + k.b3);
    return k;
}

int RecursiveGaussian::PadFor(double sigma) {
    if (sigma > kLargestSigma) sigma = kLargestSigma;
    // A negative pad would put the line outside its own buffer; none is the least there can be.
    const int pad = TruncateToInt(sigma);
    return pad < -4 ? 0 : pad + 4;
}

uint16_t RecursiveGaussian::ToSample(double value) {
    double v = value > 0.0 ? value : 0.0;  // NaN gives 0
    v = v < 32767.0 ? v : 32767.0;
    // Adding 1.5 * 2^36 leaves a unit of 2^-16 in the last place: the sum is v rounded to sixteen
    // fractional bits, and taking the constant away again is exact.
    const double rounded = (v + 103079215104.0) - 103079215104.0;
    return static_cast<uint16_t>(static_cast<int>(rounded));
}

namespace {

// Two channels of a pixel as one value, so that the recursions of neighbouring channels go through
// the processor side by side. Each element is computed exactly as a lone double would be.
typedef double Pair __attribute__((vector_size(16)));

// One growing buffer for each thread that runs blur lines, kept from blur to blur.
Pair* Scratch(size_t pairs) {
    thread_local std::vector<Pair> buffer;
    if (buffer.size() < pairs) buffer.resize(pairs);
    return buffer.data();
}

// The coefficients, each in both elements of a pair.
struct Weights {
    Pair B, b1, b2, b3;
    explicit Weights(const GaussianCoefficients& k)
        : B{k.B, k.B}, b1{k.b1, k.b1}, b2{k.b2, k.b2}, b3{k.b3, k.b3} {}
};

// The last three outputs of the recursions of G lines side by side, four channels a line (two
// pairs): s1 is the latest. Each channel of each line is a recursion of its own; running several
// together only lets the processor overlap them.
template <int G>
struct History {
    static constexpr int kPairs = G * 2;
    Pair s1[kPairs] = {};
    Pair s2[kPairs] = {};
    Pair s3[kPairs] = {};

    // out = B * in + b1 * s1 + b2 * s2 + b3 * s3 on each channel, summed in that order.
    inline void Step(const Weights& k, const Pair* in, Pair* out) {
        for (int j = 0; j < kPairs; ++j) {
            const Pair v = k.B * in[j] + k.b1 * s1[j] + k.b2 * s2[j] + k.b3 * s3[j];
            s3[j] = s2[j];
            s2[j] = s1[j];
            s1[j] = v;
            out[j] = v;
        }
    }
};

// Rows of a work image: pixels one after the other.
template <int G>
struct RowGroup {
    const uint16_t* in[G];
    uint16_t* out[G];
    const uint16_t* In(int g, int i) const { return in[g] + static_cast<ptrdiff_t>(i) * 4; }
    uint16_t* Out(int g, int i) const { return out[g] + static_cast<ptrdiff_t>(i) * 4; }
};

// Neighbouring columns of a work image: the same pixels of each row, through the row tables.
template <int G>
struct ColumnGroup {
    uint16_t* const* inRows;
    uint16_t* const* outRows;
    ptrdiff_t offset;
    const uint16_t* In(int g, int i) const { return inRows[i] + offset + g * 4; }
    uint16_t* Out(int g, int i) const { return outRows[i] + offset + g * 4; }
};

// Two filtered values as samples, exactly as ToSample takes them one at a time; `count` of them
// are stored.
inline void Store(Pair v, uint16_t* p, int count) {
    const Pair zero = {0.0, 0.0}, top = {32767.0, 32767.0};
    const Pair bias = {103079215104.0, 103079215104.0};
    v = v > zero ? v : zero;  // NaN gives 0
    v = v < top ? v : top;
    const Pair rounded = (v + bias) - bias;
    p[0] = static_cast<uint16_t>(static_cast<int>(rounded[0]));
    if (count > 1) p[1] = static_cast<uint16_t>(static_cast<int>(rounded[1]));
}

template <int G, class Group>
inline void Load(const Group& lines, int i, Pair* x) {
    for (int g = 0; g < G; ++g) {
        const uint16_t* p = lines.In(g, i);
        x[g * 2] = Pair{static_cast<double>(p[0]), static_cast<double>(p[1])};
        x[g * 2 + 1] = Pair{static_cast<double>(p[2]), static_cast<double>(p[3])};
    }
}

}  // namespace

// A line stands in a run of `L = length + 3 * pad` entries: `pad` copies of its first pixel, the
// line, and `2 * pad` copies of its last pixel. The forward recursion starts from zero at entry 3
// and the backward one from zero at entry L - 4, so both settle over the repeated edge (not always
// fully, which darkens the ends of long blurs slightly). Only the entries from `pad` on reach the
// line, so the backward recursion stops there; the copies of the edge are never stored. G lines of
// the same length go through together, their entries side by side.
template <int Channels, int G, class Group>
void RecursiveGaussian::Run(int length, const Group& lines) const {
    if (length <= 0) return;
    constexpr int kPairs = G * 2;
    const Weights k(k_);
    const ptrdiff_t pad = pad_;
    const ptrdiff_t n = length;
    const ptrdiff_t L = n + 3 * pad;
    Pair* forward = Scratch(static_cast<size_t>(L) * kPairs);

    Pair first[kPairs], last[kPairs], x[kPairs];
    Load<G>(lines, 0, first);
    Load<G>(lines, length - 1, last);

    // Entries 0 to 2 stay zero; a pad below 3 lets the backward run read them.
    for (ptrdiff_t e = 0; e < 3 * kPairs && e < L * kPairs; ++e)
        forward[e] = Pair{0.0, 0.0};
    History<G> h;
    ptrdiff_t i = 3;
    for (; i < pad; ++i)
        h.Step(k, first, forward + i * kPairs);
    for (; i < pad + n; ++i) {
        Load<G>(lines, static_cast<int>(i - pad), x);
        h.Step(k, x, forward + i * kPairs);
    }
    for (; i < L; ++i)
        h.Step(k, last, forward + i * kPairs);

    // The lines are read in full; from here on they are written.
    History<G> b;
    Pair v[kPairs];
    i = L - 4;
    for (; i >= pad + n; --i)
        b.Step(k, forward + i * kPairs, v);
    // With a pad of 0 or 1 the last pixels lie in the zero entries the backward run starts from.
    for (ptrdiff_t j = i + 1 > pad ? i + 1 : pad; j < pad + n; ++j)
        for (int g = 0; g < G; ++g)
            for (int c = 0; c < Channels; ++c)
                lines.Out(g, static_cast<int>(j - pad))[c] = 0;
    for (; i >= pad; --i) {
        b.Step(k, forward + i * kPairs, v);
        for (int g = 0; g < G; ++g) {
            uint16_t* p = lines.Out(g, static_cast<int>(i - pad));
            Store(v[g * 2], p, 2);
            Store(v[g * 2 + 1], p + 2, Channels - 2);
        }
    }
}

namespace {

// The abort test of the passes, made at their start and before each run of lines. It always
// reports false: a blur, once begun, runs to its end, and its caller tests for an abort afterwards.
constexpr bool BlurAborted() {
    return false;
}

// Lines first..first+G-1 of a pass from `from` into `to`.
template <int G, bool Columns>
std::conditional_t<Columns, ColumnGroup<G>, RowGroup<G>> Lines(const WorkImage* from, WorkImage* to,
                                                               int first) {
    if constexpr (Columns) {
        return ColumnGroup<G>{from->rows, to->rows, first * ptrdiff_t{4}};
    } else {
        RowGroup<G> group;
        for (int g = 0; g < G; ++g) {
            group.in[g] = from->rows[first + g];
            group.out[g] = to->rows[first + g];
        }
        return group;
    }
}

}  // namespace

// The four passes: rows or columns, all four channels or colour only, a few lines at a time. The
// source of a pass may be this image itself: every line is read whole before it is written, and
// each chunk writes only its own lines.
template <bool Columns, bool WithAlpha>
void WorkImage::GaussianBlurLines(int first, int last) {
    if (BlurAborted()) return;
    const RecursiveGaussian filter(blurSigma);
    constexpr int channels = WithAlpha ? 4 : 3;
    constexpr int G = RecursiveGaussian::kLinesTogether;
    const int length = Columns ? height : width;
    int line = first;
    if (filter.Grouped(length)) {
        for (; line + G - 1 <= last; line += G) {
            if (BlurAborted()) return;
            filter.Run<channels, G>(length, Lines<G, Columns>(blurSource, this, line));
        }
    }
    for (; line <= last; ++line) {
        if (BlurAborted()) return;
        filter.Run<channels, 1>(length, Lines<1, Columns>(blurSource, this, line));
    }
}

template void WorkImage::GaussianBlurLines<false, false>(int, int);
template void WorkImage::GaussianBlurLines<false, true>(int, int);
template void WorkImage::GaussianBlurLines<true, false>(int, int);
template void WorkImage::GaussianBlurLines<true, true>(int, int);
