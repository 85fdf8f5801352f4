// The recursive Gaussian blur: its coefficients, the recursion over a padded line, the passes and
// their rules for sources and alpha, and the split over processors.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "frame/RecursiveGaussian.h"
#include "tests/TestSupport.h"

namespace {

using Pixels = std::vector<double>;  // four doubles a pixel

// One line blurred as the recursion is written out: a buffer of L entries holding the repeated
// first pixel, the line and the repeated last pixel; forward from entry 3, backward from L - 4;
// each sample rounded to 2^-16 and truncated.
std::vector<uint16_t> ReferenceLine(const Pixels& line, double sigma) {
    const int n = static_cast<int>(line.size() / 4);
    const GaussianCoefficients k = RecursiveGaussian::CoefficientsFor(sigma);
    int pad = std::isnan(sigma) ? 4 : static_cast<int>(sigma) + 4;
    if (pad < 0) pad = 0;
    const int L = n + 3 * pad;
    Pixels input(static_cast<size_t>(L) * 4), forward(input.size()), backward(input.size());
    for (int i = 0; i < L; ++i) {
        const int from = i < pad ? 0 : (i < pad + n ? i - pad : n - 1);
        for (int c = 0; c < 4; ++c)
            input[i * 4 + c] = line[from * 4 + c];
    }
    for (int i = 3; i < L; ++i)
        for (int c = 0; c < 4; ++c)
            forward[i * 4 + c] = k.B * input[i * 4 + c] + k.b1 * forward[(i - 1) * 4 + c] +
                                 k.b2 * forward[(i - 2) * 4 + c] + k.b3 * forward[(i - 3) * 4 + c];
    for (int i = L - 4; i >= 0; --i)
        for (int c = 0; c < 4; ++c)
            backward[i * 4 + c] = k.B * forward[i * 4 + c] + k.b1 * backward[(i + 1) * 4 + c] +
                                  k.b2 * backward[(i + 2) * 4 + c] +
                                  k.b3 * backward[(i + 3) * 4 + c];
    std::vector<uint16_t> out(static_cast<size_t>(n) * 4);
    for (int x = 0; x < n; ++x)
        for (int c = 0; c < 4; ++c) {
            double v = backward[(pad + x) * 4 + c];
            v = v > 0.0 ? (v < 32767.0 ? v : 32767.0) : 0.0;
            out[x * 4 + c] =
                static_cast<uint16_t>(std::trunc(std::nearbyint(v * 65536.0) / 65536.0));
        }
    return out;
}

// One pass written out: every line of `from` blurred into `to`, which keeps its alpha unless
// withAlpha is set.
void ReferencePass(const WorkImage& from, WorkImage& to, double sigma, bool columns,
                   bool withAlpha) {
    const int lines = columns ? from.width : from.height;
    const int n = columns ? from.height : from.width;
    for (int l = 0; l < lines; ++l) {
        Pixels line(static_cast<size_t>(n) * 4);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 4; ++c)
                line[i * 4 + c] = columns ? from.Pixel(l, i)[c] : from.Pixel(i, l)[c];
        std::vector<uint16_t> out = ReferenceLine(line, sigma);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < (withAlpha ? 4 : 3); ++c)
                (columns ? to.Pixel(l, i) : to.Pixel(i, l))[c] = out[i * 4 + c];
    }
}

// GaussianBlur written out with the deep copies between passes.
void ReferenceBlur(WorkImage& image, float radius, const WorkImage* source, int direction,
                   bool withAlpha) {
    const double sigma = radius * 0.25 + 0.05;
    if (direction == 0 || direction == 2) {
        WorkImage from(source ? *source : image);
        ReferencePass(from, image, sigma, false, withAlpha);
    }
    if (direction == 1 || direction == 2) {
        WorkImage from(direction == 1 && source ? *source : image);
        ReferencePass(from, image, sigma, true, withAlpha);
    }
}

std::unique_ptr<WorkImage> Patterned(int width, int height) {
    return std::unique_ptr<WorkImage>(MakeWorkImage(width, height, Pattern15));
}

std::unique_ptr<WorkImage> Uniform(int width, int height, uint16_t value) {
    auto image = std::make_unique<WorkImage>(width, height);
    image->Fill(value, value, value, value);
    return image;
}

std::vector<uint16_t> Channel(const WorkImage& image, int c) {
    std::vector<uint16_t> v;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            v.push_back(image.Pixel(x, y)[c]);
    return v;
}

}  // namespace

TEST(Blur, CoefficientsTakeTheirFormulaByStandardDeviation) {
    auto q = [](double sigma) { return RecursiveGaussian::CoefficientsFor(sigma).q; };
    // 2.5 and above: the straight line; just below: the square-root curve.
    EXPECT_NEAR(q(2.5), 1.504475, 1e-12);
    EXPECT_NEAR(q(2.4999), 1.598254132068945, 1e-12);
    EXPECT_NEAR(q(10.0), 0.98711 * 10 - 0.9633, 1e-12);
    // 0.5 still takes the curve; just below, the segment through zero.
    EXPECT_NEAR(q(0.5), 0.11477050162639557, 1e-12);
    EXPECT_NEAR(q(0.4999), 0.38333189898386, 1e-12);
    EXPECT_EQ(q(0.0), 0.0);
    // Radius 0 is a standard deviation of 0.05, and a light blur rather than none.
    EXPECT_EQ(GaussianSigma(0.0f), 0.05);
    EXPECT_NEAR(q(GaussianSigma(0.0f)), 0.03834085807, 1e-15);
    EXPECT_EQ(GaussianSigma(40.0f), 10.05);

    // At every standard deviation the recursion passes a constant unchanged once settled.
    for (double sigma : {0.05, 0.3, 0.5, 1.0, 2.5, 10.05, 100.05}) {
        const GaussianCoefficients k = RecursiveGaussian::CoefficientsFor(sigma);
        EXPECT_NEAR(k.B / (1.0 - k.b1 - k.b2 - k.b3), 1.0, 1e-9) << sigma;
        EXPECT_GT(k.B, 0.0) << sigma;
    }

    // Padding: sigma truncated, plus 4; never negative; NaN as 0; held to the largest sigma.
    EXPECT_EQ(RecursiveGaussian::PadFor(0.05), 4);
    EXPECT_EQ(RecursiveGaussian::PadFor(2.5), 6);
    EXPECT_EQ(RecursiveGaussian::PadFor(-3.5), 1);
    EXPECT_EQ(RecursiveGaussian::PadFor(-9.95), 0);
    EXPECT_EQ(RecursiveGaussian::PadFor(std::nan("")), 4);
    EXPECT_EQ(RecursiveGaussian::PadFor(1e300), 100004);
    EXPECT_EQ(RecursiveGaussian(1e300).Sigma(), RecursiveGaussian::kLargestSigma);

    // Samples: rounded to 2^-16, then truncated; held to 0..32767.
    EXPECT_EQ(RecursiveGaussian::ToSample(5.0 - std::ldexp(1.0, -17)), 5);
    EXPECT_EQ(RecursiveGaussian::ToSample(5.0 - std::ldexp(1.0, -16)), 4);
    EXPECT_EQ(RecursiveGaussian::ToSample(5.999), 5);
    EXPECT_EQ(RecursiveGaussian::ToSample(-0.5), 0);
    EXPECT_EQ(RecursiveGaussian::ToSample(40000.0), 32767);
    EXPECT_EQ(RecursiveGaussian::ToSample(std::nan("")), 0);
}

TEST(Blur, PassesMatchTheRecursionWrittenOut) {
    // Sizes include lines of length 1, lines much shorter than the padding, and radii on both sides
    // of each change of formula; a negative radius leaves no padding at all.
    const int sizes[][2] = {{1, 1}, {1, 6}, {6, 1}, {2, 3}, {17, 9}};
    const float radii[] = {0.0f, 1.0f, 1.8f, 9.8f, 10.0f, 37.5f, 400.0f, -40.0f, -15.0f};
    int combination = 0;  // the ordinary run takes every fifth combination, the sweep all
    for (const auto& size : sizes) {
        for (float radius : radii) {
            for (int direction = 0; direction < 3; ++direction) {
                for (int withAlpha = 0; withAlpha < 2; ++withAlpha) {
                    for (bool withSource : {false, true}) {
                        if (!FullSweep() && combination++ % 5 != 0) continue;
                        auto image = Patterned(size[0], size[1]);
                        auto source = MakeWorkImage(
                            size[0], size[1],
                            [](int x, int y, uint16_t* p) { Pattern15(y, x + 3, p); });
                        std::unique_ptr<WorkImage> own(source);
                        WorkImage expected(*image);
                        ReferenceBlur(expected, radius, withSource ? source : nullptr, direction,
                                      withAlpha);
                        image->GaussianBlur(radius, withSource ? source : nullptr, direction,
                                            withAlpha);
                        ASSERT_TRUE(SamePixels(*image, expected))
                            << size[0] << "x" << size[1] << " radius " << radius << " direction "
                            << direction << " alpha " << withAlpha << " source " << withSource;
                    }
                }
            }
        }
    }
    // A run-in far longer than the picture: the lines then go through one at a time.
    auto image = Patterned(5, 6);
    WorkImage expected(*image);
    ReferenceBlur(expected, 100000.0f, nullptr, 2, true);
    image->GaussianBlur(100000.0f, nullptr, 2, 1);
    EXPECT_TRUE(SamePixels(*image, expected));
}

TEST(Blur, ExactValuesOfSmallBlurs) {
    // Radius 0 is no identity: a lone bright sample leaks into its neighbours.
    auto row = MakeWorkImage(5, 1, [](int x, int, uint16_t* p) {
        for (int c = 0; c < 4; ++c)
            p[c] = x == 2 ? 32767 : 0;
    });
    std::unique_ptr<WorkImage> own(row);
    row->GaussianBlur(0.0f, nullptr, 0, 1);
    EXPECT_EQ(Channel(*row, 0), (std::vector<uint16_t>{62, 1708, 29222, 1708, 62}));

    // A single pixel is the whole line: it stands alone in its padding and does not quite settle.
    auto one = Uniform(1, 1, 30000);
    one->GaussianBlur(0.0f, nullptr, 2, 1);
    EXPECT_EQ(one->Pixel(0, 0)[0], 29882);
    one = Uniform(1, 1, 30000);
    one->GaussianBlur(100.0f, nullptr, 2, 1);
    EXPECT_EQ(one->Pixel(0, 0)[0], 14795);
}

TEST(Blur, AUniformImageStaysUniformButForTheSettlingAtTheEnds) {
    // One pass: every line alike; some way from the ends nothing changes (the recursion settles
    // slowly), towards them the picture darkens a little, never brightens, and falls steadily.
    for (int direction = 0; direction < 2; ++direction) {
        auto image = Uniform(200, 160, 20000);
        image->GaussianBlur(8.0f, nullptr, direction, 1);
        const int n = direction == 0 ? 200 : 160, lines = direction == 0 ? 160 : 200;
        auto at = [&](int i, int line) {
            return direction == 0 ? image->Pixel(i, line) : image->Pixel(line, i);
        };
        for (int line = 0; line < lines; ++line) {
            for (int i = 0; i < n; ++i) {
                for (int c = 0; c < 4; ++c)
                    EXPECT_EQ(at(i, line)[c], at(i, 0)[0]);
                if (i >= 40 && i < n - 40) {
                    EXPECT_EQ(at(i, line)[0], 20000) << i;
                }
            }
        }
        for (int i = 0; i < n / 2; ++i) {
            EXPECT_LE(at(i, 0)[0], at(i + 1, 0)[0]) << i;
            EXPECT_LE(at(n - 1 - i, 0)[0], at(n - 2 - i, 0)[0]) << i;
        }
        EXPECT_LT(at(0, 0)[0], 20000);
        EXPECT_LT(at(n - 1, 0)[0], 20000);
    }
}

TEST(Blur, SourcesAlphaAndDirections) {
    auto source = Patterned(11, 7);
    auto garbage = [](int x, int y, uint16_t* p) { Pattern15(x * 5 + 1, y * 3 + 2, p); };

    // Direction 2 with a source reads it in the row pass only; withAlpha 0 keeps this alpha.
    std::unique_ptr<WorkImage> image(MakeWorkImage(11, 7, garbage));
    const std::vector<uint16_t> alpha = Channel(*image, 3);
    image->GaussianBlur(12.0f, source.get(), 2, 0);
    WorkImage expected(*source);
    expected.GaussianBlur(12.0f, nullptr, 2, 0);
    for (int c = 0; c < 3; ++c)
        EXPECT_EQ(Channel(*image, c), Channel(expected, c)) << c;
    EXPECT_EQ(Channel(*image, 3), alpha);

    // Direction 1 with a source reads it in its one pass.
    image.reset(MakeWorkImage(11, 7, garbage));
    image->GaussianBlur(12.0f, source.get(), 1, 1);
    WorkImage columns(*source);
    columns.GaussianBlur(12.0f, nullptr, 1, 1);
    EXPECT_TRUE(SamePixels(*image, columns));
    // The source itself is untouched.
    EXPECT_TRUE(SamePixels(*source, *Patterned(11, 7)));

    // Any other direction, or a source of another size, does nothing.
    image.reset(MakeWorkImage(11, 7, garbage));
    const uint64_t before = HashWork(*image);
    image->GaussianBlur(12.0f, nullptr, 3, 1);
    image->GaussianBlur(12.0f, nullptr, -1, 1);
    auto small = Patterned(10, 7);
    image->GaussianBlur(12.0f, small.get(), 2, 1);
    EXPECT_EQ(HashWork(*image), before);
    EXPECT_EQ(image->blurSource, nullptr);

    // A NaN radius leaves nothing of the picture; endless radii are all the largest one.
    image->GaussianBlur(std::nanf(""), nullptr, 2, 0);
    EXPECT_EQ(Channel(*image, 0), std::vector<uint16_t>(77, 0));
    EXPECT_EQ(Channel(*image, 3), alpha);
    auto endless = Patterned(3, 2);
    auto huge = Patterned(3, 2);
    endless->GaussianBlur(std::numeric_limits<float>::infinity(), nullptr, 2, 1);
    huge->GaussianBlur(1e30f, nullptr, 2, 1);
    EXPECT_TRUE(SamePixels(*endless, *huge));
}

TEST(Blur, OneOrEightProcessorsGiveTheSamePicture) {
    TestToolDoc t;
    ScopedDispatch dispatch(t.op);
    for (float radius : {3.0f, 60.0f}) {
        for (int withAlpha = 0; withAlpha < 2; ++withAlpha) {
            auto alone = Patterned(37, 23);
            {
                // Outside a dispatch the calling thread does all lines.
                ChunkJob* saved = currentChunkJob;
                currentChunkJob = nullptr;
                alone->GaussianBlur(radius, nullptr, 2, withAlpha);
                currentChunkJob = saved;
            }
            for (int processors : {1, 2, 3, 8}) {
                ScopedProcessors scope(processors);
                t.op->ClearChunkCalls();
                auto image = Patterned(37, 23);
                image->GaussianBlur(radius, nullptr, 2, withAlpha);
                EXPECT_TRUE(SamePixels(*image, *alone)) << radius << " " << processors;
                // The rows, then the columns, each over as many chunks as processors.
                const auto calls = t.op->ChunkCalls();
                ASSERT_EQ(calls.size(), static_cast<size_t>(2 * processors));
                int rowChunks = 0;
                for (const auto& c : calls) {
                    EXPECT_FALSE(c.engineWork);
                    EXPECT_EQ(c.threadCount, processors);
                    rowChunks += c.rowCount == 23;
                }
                EXPECT_EQ(rowChunks, processors);
            }
        }
    }
}
