// The blur of work images: a third-order recursive Gaussian, run forward and then backward over
// each line in double precision, on four channels side by side. Its cost per line does not depend
// on the radius. WorkImage::GaussianBlur runs it over rows and columns as separate passes.
#pragma once

#include <cstdint>

// The weights of the recursion for one standard deviation.
struct GaussianCoefficients {
    double q;
    double n;
    double b1, b2, b3;
    double B;  // 1 - (b1 + b2 + b3)
};

// The standard deviation in pixels of a blur of the user's size `radius`: radius / 4 + 0.05.
double GaussianSigma(float radius);

class RecursiveGaussian {
  public:
    // The largest standard deviation the passes work with; a larger one is taken as this. Beyond
    // it a line would need hundreds of thousands of entries of run-in.
    static constexpr double kLargestSigma = 100000.0;

    // Coefficients and padding for `sigma` (held to kLargestSigma), made once per chunk of lines.
    explicit RecursiveGaussian(double sigma);

    static GaussianCoefficients CoefficientsFor(double sigma);
    // Entries of run-in before a line: sigma truncated, plus 4, and never below 0. Twice as many
    // follow the line.
    static int PadFor(double sigma);
    // A filtered value as a sample: held to 0..32767 (NaN gives 0), rounded to sixteen fractional
    // bits and then truncated, so a value within 2^-17 below a whole number gives that number.
    static uint16_t ToSample(double value);

    double Sigma() const { return sigma_; }
    const GaussianCoefficients& Coefficients() const { return k_; }
    int Pad() const { return pad_; }

  private:
    friend class WorkImage;  // its passes run the lines

    // Lines go through several at a time, so that their recursions overlap in the processor, as
    // long as their buffer stays small.
    static constexpr int kLinesTogether = 4;
    static constexpr int kLongestRunTogether = 16384;
    bool Grouped(int length) const { return length + 3.0 * pad_ <= kLongestRunTogether; }

    // Blurs G lines of `length` pixels side by side. `lines.In(g, i)` is pixel i of line g as read
    // and `lines.Out(g, i)` as written; they may be the same pixels, as the lines are read whole
    // before any of them is written. The first `Channels` samples of a pixel are written, though
    // all four are filtered.
    template <int Channels, int G, class Group>
    void Run(int length, const Group& lines) const;

    double sigma_;
    GaussianCoefficients k_;
    int pad_;
};
