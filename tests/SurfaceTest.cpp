// The surface renderer and its light, driven through Ripple: a flat surface (or an index of 1)
// reproduces the picture inside its edges, the edge rows and columns follow the renderer's rules,
// the chromatic passes, the index guard, narrow pictures, and the highlight's composite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "surface/Ripple.h"
#include "tests/TestSupport.h"

namespace {

// A Ripple whose inputs are set as a whole; Render gives the 15-bit words of its output (the
// export doubles each word and repeats its top bit, so halving a sample gives the word back).
struct RippleDoc {
    explicit RippleDoc(std::vector<std::pair<const char*, double>> values = {})
        : op(static_cast<RippleOperator*>(doc.AddTool("Ripple"))), engine(op->Ripple()) {
        for (const auto& [id, value] : values) {
            Number n(value);
            op->FindInput(id)->SetSource(&n, -1.0);
        }
    }
    std::vector<int> Render(Image* source) {
        Request request(op, 0.0);
        request.SetInputImage(op->FindInput("Clip to Ripple"), source);
        op->Process(&request);
        HostImage out(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
        return out ? Words(*out) : std::vector<int>();
    }
    static std::vector<int> Words(const Image& image) {
        std::vector<int> words(image.SampleCount());
        for (size_t i = 0; i < words.size(); ++i)
            words[i] = image.Data()[i] >> 1;
        return words;
    }

    FusionDoc doc;
    RippleOperator* op;
    RippleEngine* engine;
};

int At(const std::vector<int>& words, int w, int x, int y, int c) {
    return words[(static_cast<size_t>(y) * w + x) * 4 + c];
}

// What a flat surface gives over `src` (w x h words, both sides at least 4). Inside, each pixel
// samples its own footprint. Column w - 2 and row h - 2 reach the far limit of the bilinear step
// (size - 2.0001) and keep 12287/16384 of themselves; row 0 has its box clamped at 0 and takes a
// quarter of row 1. Columns 0 and w - 1 and row h - 1 repeat their neighbours.
std::vector<int> FlatPicture(const std::vector<int>& src, int w, int h) {
    struct Blend {
        int a, b, weight;
    };
    auto along = [](int i, int size, bool clampedStart) -> Blend {
        if (i == size - 1 || (i == 0 && !clampedStart)) i = i == 0 ? 1 : size - 2;
        if (i == size - 2) return {size - 3, size - 2, 12287};
        if (i == 0) return {0, 1, 4096};
        return {i, i, 0};
    };
    std::vector<int> out(src.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const Blend bx = along(x, w, false), by = along(y, h, true);
            for (int c = 0; c < 4; ++c) {
                auto across = [&](int yy) {
                    return (At(src, w, bx.a, yy, c) * (16384 - bx.weight) +
                            At(src, w, bx.b, yy, c) * bx.weight) >>
                           14;
                };
                out[(static_cast<size_t>(y) * w + x) * 4 + c] =
                    (across(by.a) * (16384 - by.weight) + across(by.b) * by.weight) >> 14;
            }
        }
    return out;
}

}  // namespace

TEST(Surface, FlatSurfaceOrIndexOneReproducesThePicture) {
    const int w = 11, h = 9;
    HostImage source = MakeHostImage(w, h, Pattern16);
    const std::vector<int> expected = FlatPicture(RippleDoc::Words(*source), w, h);

    RippleDoc flat({{"XYmp", 0.0}});
    EXPECT_EQ(flat.Render(source.get()), expected);
    // Each ray lands on its own pixel, one less in Y.
    for (int i = 0; i < w * h; ++i) {
        ASSERT_NEAR(flat.engine->maps.mapX[i], i % w, 1e-4);
        ASSERT_NEAR(flat.engine->maps.mapY[i], i / w - 1, 1e-4);
    }
    // An index of exactly 1 bends nothing; Y Amp at 0 flattens the product of the waves.
    EXPECT_EQ(RippleDoc({{"Reon", 1.0}, {"XYeq", 2.0}}).Render(source.get()), expected);
    EXPECT_EQ(RippleDoc({{"XY37", 0.0}, {"XYmp", 100.0}}).Render(source.get()), expected);
}

TEST(Surface, ChromaticPassesAndEdges) {
    const int w = 19, h = 13;
    HostImage source = MakeHostImage(w, h, Pattern16);
    auto render = [&](double chromatic) {
        return RippleDoc({{"XYmp", 70.0}, {"XY37", 90.0}, {"ChAb", chromatic}})
            .Render(source.get());
    };
    const std::vector<int> plain = render(0.0);
    // 0.01 on the slider is 0.0001, not above the threshold: a single pass.
    EXPECT_EQ(render(0.01), plain);
    const std::vector<int> split = render(40.0);
    // Alpha goes through the height without the chromatic step, so it matches the single pass.
    int colourDiffers = 0;
    for (size_t i = 0; i < plain.size(); ++i) {
        if (i % 4 == 3)
            EXPECT_EQ(split[i], plain[i]) << i;
        else
            colourDiffers += split[i] != plain[i];
    }
    EXPECT_GT(colourDiffers, 100);
    // The first and last columns and the last row repeat their neighbours.
    for (const auto* out : {&plain, &split})
        for (int c = 0; c < 4; ++c) {
            for (int y = 0; y < h; ++y) {
                EXPECT_EQ(At(*out, w, 0, y, c), At(*out, w, 1, y, c));
                EXPECT_EQ(At(*out, w, w - 1, y, c), At(*out, w, w - 2, y, c));
            }
            for (int x = 0; x < w; ++x)
                EXPECT_EQ(At(*out, w, x, h - 1, c), At(*out, w, x, h - 2, c));
        }
}

TEST(Surface, SmallIndexIsRaisedAndItsSignCancels) {
    const int w = 15, h = 12;
    HostImage source = MakeHostImage(w, h, Pattern16);
    RippleDoc t({{"XYmp", 90.0}, {"XY37", 90.0}});
    ASSERT_FALSE(t.Render(source.get()).empty());
    // The height map stays in the engine: displace it again at other indices.
    RippleEngine& e = *t.engine;
    auto displace = [&](float index) {
        e.surface.refractIndex = index;
        e.SurfaceDisplace(0, h - 1);
        std::vector<float> maps(e.maps.mapX, e.maps.mapX + w * h);
        maps.insert(maps.end(), e.maps.mapY, e.maps.mapY + w * h);
        return maps;
    };
    const std::vector<float> atGuard = displace(0.01f);
    EXPECT_EQ(displace(0.005f), atGuard);
    EXPECT_EQ(displace(-0.005f), atGuard);
    EXPECT_EQ(displace(0.0f), atGuard);
    // The index enters the ray's slope only as a ratio: a negative index bends as its size.
    EXPECT_EQ(displace(-2.0f), displace(2.0f));
    EXPECT_NE(displace(2.0f), displace(1.45f));
    // Below 1 some pixels reflect totally; nothing becomes undefined.
    for (float v : displace(0.3f))
        EXPECT_FALSE(std::isnan(v));
}

TEST(Surface, NarrowPicturesOnlyCopyEdges) {
    for (auto [w, h] : std::vector<std::pair<int, int>>{
             {1, 1}, {1, 6}, {2, 6}, {6, 1}, {6, 2}, {2, 2}, {3, 3}, {1, 2}}) {
        HostImage source = MakeHostImage(w, h, Pattern16);
        const std::vector<int> src = RippleDoc::Words(*source);
        const std::vector<int> got =
            RippleDoc({{"XYmp", 100.0}, {"ChAb", 20.0}}).Render(source.get());
        ASSERT_EQ(got.size(), src.size()) << w << "x" << h;
        if (w > 2 && h > 1) continue;  // sampled
        // Rows up to h - 2 keep only the edge copies (none at width 1); the last row repeats the
        // one above; a picture one row high is left as it is.
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 4; ++c) {
                    const int yy = h >= 2 && y == h - 1 ? h - 2 : y;
                    const int want =
                        h < 2 ? At(src, w, x, y, c) : At(src, w, w == 2 ? 0 : x, yy, c);
                    EXPECT_EQ(At(got, w, x, y, c), want) << w << "x" << h << " " << x << "," << y;
                }
    }
}

TEST(Surface, HighlightOnAFlatSurface) {
    const int w = 9, h = 7;
    HostImage source = MakeHostImage(w, h, [](int x, int y, uint16_t* p) {
        p[0] = static_cast<uint16_t>(3000 + 1000 * x);
        p[1] = static_cast<uint16_t>(2000 + 1500 * y);
        p[2] = 40000;
        p[3] = static_cast<uint16_t>(50000 + x);
    });
    const std::vector<int> flat = FlatPicture(RippleDoc::Words(*source), w, h);
    RippleDoc t({{"XYmp", 0.0}, {"Doht", 1.0}, {"Cost", 50.0}});
    const std::vector<int> lit = t.Render(source.get());
    const float* light = t.engine->maps.lightMap;
    // The light stands over the middle: full strength at the centre pixel, less further out.
    const float centre = light[3 * w + 4];
    EXPECT_GE(centre, 32760.0f);
    EXPECT_LT(light[1 * w + 1], centre);
    EXPECT_LT(light[5 * w + 7], centre);
    // Colour: trunc(sample * 0.5 + highlight), at most 32767; alpha untouched.
    for (int y = 0; y < h - 1; ++y)
        for (int x = 1; x < w - 1; ++x)
            for (int c = 0; c < 4; ++c) {
                const int s = At(flat, w, x, y, c);
                const int add = static_cast<int>(s * 0.5 + static_cast<double>(light[y * w + x]));
                EXPECT_EQ(At(lit, w, x, y, c), c == 3 ? s : std::min(add, 32767)) << x << "," << y;
            }
    // Light Bright at 0 is no light at all: Contrast no longer darkens.
    EXPECT_EQ(RippleDoc({{"XYmp", 0.0}, {"Doht", 1.0}, {"Cost", 50.0}, {"Li45", 0.0}})
                  .Render(source.get()),
              flat);
}
