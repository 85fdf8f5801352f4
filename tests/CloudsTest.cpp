// Clouds: the presets and visibility rules through the host, uniform pictures worked out by hand,
// the rendering noise against its definition, invariants of time, size and processor count, the
// matte, and golden frames.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "clouds/Clouds.h"
#include "tests/TestSupport.h"

namespace {

uint16_t Export15(uint32_t w) {
    const uint32_t e = (w >> 14) | (w * 2);
    return static_cast<uint16_t>(e > 65535 ? 65535 : e);
}

struct CloudsDoc : ToolDoc<CloudsOperator> {
    CloudsDoc() : ToolDoc("Clouds"), engine(op->Clouds()) {}
    bool Visible(const std::string& id) const { return !Hidden(id); }
    HostImage Render(Image* sky, Image* matte = nullptr, double time = 0.0) {
        return RenderImages({{"Sky", sky}, {"Matte", matte}}, time);
    }
    CloudsEngine* engine;
};

}  // namespace

// A preset writes its sliders and points as keys at the notification's time, keeping the other
// keys, and its whole values and colours as constants; a value out of range gives the first
// preset. What each preset writes is pinned by the golden frames.
TEST(Clouds, PresetsWriteKeysAtTheNotificationTime) {
    for (const double value : {0.0, 8.0, 17.0, 40.0, -5.0}) {
        SCOPED_TRACE(value);
        CloudsDoc t;
        t.doc.currentTime = 7.0;
        for (Input* in : t.op->Inputs()) {
            if (in->GetDataType() == Input::DataType::Image || in->ID() == "Se18") continue;
            if (!in->IsAnimatable()) continue;
            Key a, b;
            a.time = 0.0;
            a.v[0] = a.v[1] = 0.123;
            b.time = 20.0;
            b.v[0] = b.v[1] = 0.456;
            in->SetKeys({a, b});
        }
        t.doc.StartUndo("preset");
        t.Set("Se18", value);
        t.doc.EndUndo(true);
        ASSERT_FALSE(t.doc.UndoSteps().empty());
        const auto& changes = t.doc.UndoSteps().back().changes;
        ASSERT_GT(changes.size(), 20u);
        EXPECT_EQ(changes[0].input->ID().str(), "Se18");
        EXPECT_EQ(changes[1].input->ID().str(), "Ceer");
        for (size_t i = 1; i < changes.size(); ++i) {
            Input* in = changes[i].input;
            SCOPED_TRACE(in->ID().str());
            if (!in->IsAnimated()) continue;
            ASSERT_EQ(in->Keys().size(), 3u);
            EXPECT_EQ(in->Keys()[0].time, 0.0);
            EXPECT_EQ(in->Keys()[1].time, 7.0);
            EXPECT_EQ(in->Keys()[2].time, 20.0);
        }
        // Inputs a preset never writes keep their keys.
        EXPECT_EQ(t.In("Blnd")->Keys().size(), 2u);
        EXPECT_EQ(t.In("Se18")->Save().constant[0], value);
    }
    // The same preset chosen at two times renders the same picture at a third.
    HostImage sky = MakeHostImage(16, 12, Pattern16);
    uint64_t hashes[2];
    for (int i = 0; i < 2; ++i) {
        CloudsDoc t;
        t.doc.currentTime = 3.0 * i;
        t.Set("Se18", 9.0);
        hashes[i] = HashImage(t.Render(sky.get(), nullptr, 5.0));
    }
    EXPECT_EQ(hashes[0], hashes[1]);
}

TEST(Clouds, VisibilityFollowsNotificationsAlone) {
    const std::vector<std::string> lightOnly = {"Lios", "LitZ", "Liet", "Spad", "Faff",
                                                "Liri", "Conn", "Deep", "LioR", "CloB"};
    const std::vector<std::string> unlitOnly = {"CooR", "CooB", "CoeB", "EdoG", "EdeE"};
    // After each write, inputs that must show and inputs that must not.
    struct Step {
        const char* id;
        double value;
        std::vector<std::string> shown, hidden;
    };
    std::vector<Step> steps = {
        {"Lids", 1, lightOnly, unlitOnly},
        {"Lids", 0, unlitOnly, lightOnly},
        {"Mach", 0, {"Heht"}, {}},
        {"Mach", 1, {}, {"Heht"}},
        {"Usky", 0, {}, {"SkoR", "SkoG", "SkoB", "SkoA"}},
        {"Usky", 1, {"SkoR", "SkoG", "SkoB"}, {"SkoA", "LioA", "CloA", "CooA", "EdoA"}},
        {"Dote", 1, {"Inte"}, {}},
        {"Dote", 0, {}, {"Inte"}},
        // Presets switch the controls through the notifications of what they write.
        {"Se18", 8, {"Heht", "Lios", "CloB"}, {"CooR"}},  // Lit3: lit, scales not matched
        {"Se18", 0, {"CooR"}, {"Heht", "Lios"}},          // Unlit1: unlit, scales matched
    };
    CloudsDoc t;
    for (const Step& s : steps) {
        t.Set(s.id, s.value);
        for (const std::string& id : s.shown)
            EXPECT_TRUE(t.Visible(id)) << s.id << "=" << s.value << ": " << id;
        for (const std::string& id : s.hidden)
            EXPECT_FALSE(t.Visible(id)) << s.id << "=" << s.value << ": " << id;
    }

    // Values loaded as a composition is, without notifications, are shown by the first frame.
    CloudsDoc loaded;
    loaded.In("Lids")->SetConstant(1);
    loaded.In("Mach")->SetConstant(0);
    loaded.In("Usky")->SetConstant(0);
    loaded.In("Dote")->SetConstant(1);
    EXPECT_TRUE(loaded.Visible("CooR"));
    HostImage sky = MakeHostImage(8, 6, Pattern16);
    ASSERT_TRUE(loaded.Render(sky.get()));
    for (const char* id : {"Lios", "Heht", "Inte"})
        EXPECT_TRUE(loaded.Visible(id)) << id;
    for (const char* id : {"CooR", "SkoR"})
        EXPECT_FALSE(loaded.Visible(id)) << id;
}

// ---- Pictures worked out by hand ----------------------------------------------------------------

namespace {

// The cloud density (0..32767) of field index i at the default Cloudiness and a given Density.
int DensityAt(int i, double densityPercent) {
    const double level = i * static_cast<double>(3.051851e-05f);
    auto clamp = [](double v) { return v < 0 ? 0.0 : (v > 1 ? 1.0 : v); };
    const double c = 1.0 - static_cast<float>(48 * 0.01);
    const double lo = static_cast<float>(c - 0.05);
    double v = clamp((level - 0.25) * 2);
    const double t = clamp((v - lo) / (c + 0.05 - lo));
    v = clamp(v * (3 - 2 * t) * t * t * static_cast<float>(densityPercent * 0.01));
    return static_cast<int>(v * 32767.0);
}

// The default ramp (edge colour 0.542229 at "Edge Ends" 22, white at "Core Start" 70) at a density.
int RampAt(int a) {
    const float edge = static_cast<float>(22 * 0.01), core = static_cast<float>(70 * 0.01);
    double t = (a * static_cast<double>(3.051851e-05f) - edge) / static_cast<float>(core - edge);
    t = static_cast<float>(t < 0 ? 0.0 : (t > 1 ? 1.0 : t));
    const double p = std::pow(t, 2.299999952316284);
    const int edgeSample = static_cast<int>(0.542229 * 32767.0), coreSample = 32767;
    return static_cast<int>(edgeSample * (1.0 - p) + coreSample * p);
}

}  // namespace

TEST(Clouds, UniformFieldsGiveTheColoursOfTheRampAndTheComposite) {
    ScopedProcessors scope(8);
    HostImage sky = MakeHostImage(9, 6, Pattern16);  // an odd width: the last column is the input's
    const int skyColour[3] = {static_cast<int>(0.030518 * 32767.0),
                              static_cast<int>(0.0610361 * 32767.0),
                              static_cast<int>(0.542229 * 32767.0)};

    for (const double density : {100.0, 0.0}) {
        SCOPED_TRACE(density);
        CloudsDoc t;
        t.Set("Dese", density);
        // Detail 0 leaves no octave: the field is 0 everywhere, index 16383.
        t.Set("Deil", density == 100.0 ? 0.0 : 50.0);
        HostImage out = t.Render(sky.get());
        ASSERT_TRUE(out);
        const int a = density == 100.0 ? DensityAt(16383, density) : 0;
        if (density == 100.0) {
            EXPECT_EQ(a, 3532);
        }
        const int ramp[3] = {RampAt(a), RampAt(a), RampAt(a)};
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 9; ++x) {
                const uint16_t* o = out->Row(y) + 4 * x;
                uint16_t in[4];
                Pattern16(x, y, in);
                // The cloud, or in the last column the input itself, over the sky colour.
                const int alpha = x == 8 ? in[3] >> 1 : a;
                for (int c = 0; c < 3; ++c) {
                    const int cloud = x == 8 ? in[c] >> 1 : ramp[c];
                    const int word = (cloud * alpha + (32768 - alpha) * skyColour[c]) >> 15;
                    EXPECT_EQ(o[c], Export15(word)) << x << "," << y << "," << c;
                }
                EXPECT_EQ(o[3], Export15(alpha)) << x << "," << y;
            }
    }

    // No cloud over the input: the input comes through as it is, but for the last column, whose
    // alpha (the input's own) is laid over the input's alpha.
    CloudsDoc t;
    t.Set("Dese", 0.0);
    t.Set("Usky", 0);
    HostImage out = t.Render(sky.get());
    ASSERT_TRUE(out);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 9; ++x) {
            uint16_t in[4];
            Pattern16(x, y, in);
            for (int c = 0; c < 3; ++c)
                EXPECT_EQ(out->Row(y)[4 * x + c], Export15(in[c] >> 1)) << x << "," << y;
            const int a = in[3] >> 1;
            EXPECT_EQ(out->Row(y)[4 * x + 3], Export15(x == 8 ? (((32768 - a) * a) >> 15) + a : a))
                << x << "," << y;
        }
}

TEST(Clouds, MatteHoldsTheCloudsBack) {
    HostImage sky = MakeHostImage(12, 10, Pattern16);
    HostImage matte = MakeHostImage(12, 10, [](int x, int y, uint16_t* p) {
        p[0] = static_cast<uint16_t>(5000 * x);
        p[1] = static_cast<uint16_t>(6000 * y);
        p[2] = static_cast<uint16_t>(65535 - 3000 * x);
        p[3] = 65535;
    });
    const int skyColour[3] = {static_cast<int>(0.030518 * 32767.0),
                              static_cast<int>(0.0610361 * 32767.0),
                              static_cast<int>(0.542229 * 32767.0)};
    // Over the sky colour the alpha is the density, never 32768, so the words come back exactly.
    CloudsDoc t;
    HostImage plain = t.Render(sky.get());
    ASSERT_TRUE(plain);
    for (const bool invert : {false, true}) {
        for (const bool withMatte : {true, false}) {
            SCOPED_TRACE(std::to_string(invert) + " " + std::to_string(withMatte));
            t.Set("Dote", 1);
            t.Set("Inte", invert ? 1 : 0);
            HostImage held = t.Render(sky.get(), withMatte ? matte.get() : nullptr);
            ASSERT_TRUE(held);
            for (int y = 0; y < 10; ++y)
                for (int x = 0; x < 12; ++x) {
                    // Without a matte, the input's own luma holds the clouds back.
                    uint16_t m[4];
                    if (withMatte) {
                        const uint16_t* p = matte->Row(y) + 4 * x;
                        for (int c = 0; c < 4; ++c)
                            m[c] = static_cast<uint16_t>(p[c] >> 1);
                    } else {
                        Pattern15(x, y, m);
                    }
                    const int luma = (m[2] * 3 + m[1] * 8 + m[0] * 5) >> 4;
                    int w = luma, v = 32768 - luma;
                    if (invert) std::swap(w, v);
                    const uint16_t* o = plain->Row(y) + 4 * x;
                    const uint16_t* h = held->Row(y) + 4 * x;
                    for (int c = 0; c < 3; ++c) {
                        int word = (w * (o[c] >> 1) + v * skyColour[c]) >> 15;
                        word = word < 0 ? 0 : (word > 32767 ? 32767 : word);
                        EXPECT_EQ(h[c], Export15(word)) << x << "," << y << "," << c;
                    }
                    EXPECT_EQ(h[3], Export15((w * (o[3] >> 1)) >> 15)) << x << "," << y;
                }
        }
    }
}

TEST(Clouds, DensityCurveAndRampWithGloom) {
    std::vector<int32_t> ints(kCurveSize);
    std::vector<float> floats(kCurveSize);
    // The field's lower quarter is always clear. With full cloudiness the threshold lies below
    // the field's range, and double density saturates the curve from the middle of the field up.
    BuildDensityCurve({1.0f, 2.0f}, ints.data(), floats.data());
    EXPECT_EQ(ints[0], 0);
    EXPECT_EQ(ints[8192], 0);
    EXPECT_GT(ints[8193], 0);
    EXPECT_EQ(ints[16380], 32752);  // level 0.49988: 2 * (2 * (0.49988 - 0.25)) of full scale
    EXPECT_EQ(ints[16384], 32767);
    EXPECT_EQ(floats[32767], 1.0f);
    // With none, the threshold lies above it: the densest part of the field stays thin.
    BuildDensityCurve({0.0f, 1.0f}, ints.data(), floats.data());
    EXPECT_EQ(ints[23700], 0);
    EXPECT_EQ(ints[32767], 16383);  // a threshold half passed: 1 * (3 - 1) * 0.25
    BuildDensityCurve({0.48f, 0.0f}, ints.data(), floats.data());
    for (int i = 0; i < kCurveSize; i += 97)
        EXPECT_EQ(ints[i], 0) << i;

    // A flat ramp of 1000 that glooms from the middle on, down to black at the top.
    RampSettings r;
    r.edgeStart = 0.2f;
    r.coreStart = 0.6f;
    for (int c = 0; c < 3; ++c)
        r.coreColour[c] = r.edgeColour[c] = 1000;
    r.gloomGo = 0.5f;
    r.gloomMax = 1.0f;
    std::vector<int32_t> red(kCurveSize), green(kCurveSize), blue(kCurveSize);
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    const int g = 16384;  // 0.5 * 32767 + 0.5, truncated
    const float slope = static_cast<float>((0.0 - 1000) / (32767 - g));
    EXPECT_EQ(red[0], 1000);
    EXPECT_EQ(red[g - 1], 1000);
    for (int k = 0; g + k <= 32767; k += 1000)
        EXPECT_EQ(green[g + k], static_cast<int>(slope * static_cast<float>(k) + 1000.0f)) << k;
    EXPECT_EQ(blue[32767], 0);
    // Lit clouds keep only the gloom: everything thinner is full scale.
    r.litClouds = true;
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    EXPECT_EQ(red[0], 32767);
    EXPECT_EQ(red[g - 1], 32767);
    EXPECT_EQ(red[g], 1000);
    // Gloom from 99.9 on leaves the ramp as it is; a start below 0 starts at 0.
    r.litClouds = false;
    r.gloomGo = static_cast<float>(99.9 * 0.01);
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    EXPECT_EQ(red[32767], 1000);
    r.gloomGo = -0.5f;
    r.gloomMax = 0.0f;  // towards white
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    EXPECT_EQ(red[0], 1000);
    const float up = static_cast<float>((32767.0 - 1000) / 32767);
    EXPECT_EQ(red[32767], static_cast<int>(up * 32767.0f + 1000.0f));

    // From the edge colour to the core colour by the 2.3 power between the two starts; equal
    // starts give a step.
    r.gloomGo = 1.0f;
    r.edgeColour[0] = 0;
    r.coreColour[0] = 30000;
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    EXPECT_EQ(red[6553], 0);  // level 0.19998
    EXPECT_EQ(red[19661], 30000);
    const double t = static_cast<float>((13107 * static_cast<double>(3.051851e-05f) - 0.2f) /
                                        static_cast<float>(0.6f - 0.2f));
    EXPECT_EQ(red[13107], static_cast<int>(30000 * std::pow(t, 2.299999952316284)));
    r.coreStart = r.edgeStart;
    BuildColourRamp(r, red.data(), green.data(), blue.data());
    EXPECT_EQ(red[6553], 0);
    EXPECT_EQ(red[6554], 30000);  // level 0.20001
}

// ---- The noise ----------------------------------------------------------------------------------

TEST(Clouds, RenderingNoiseGivesTheBitsOfItsDefinition) {
    CloudsNoise noise;
    // Octaves: from 1 by 2.17 in float while below the limit; none at a limit of 1 or less.
    noise.Prepare(665, 0.5f, 1.0f, 1.0f);
    EXPECT_EQ(noise.octaveCount, 0);
    EXPECT_EQ(noise.Fractal(0.3f, 0.7f), 0.0f);
    EXPECT_EQ(CloudsNoise::IndexOf(0.0f), 16383);
    EXPECT_EQ(CloudsNoise::IndexOf(-5.0f), 0);
    EXPECT_EQ(CloudsNoise::IndexOf(5.0f), 32767);
    EXPECT_EQ(CloudsNoise::IndexOf(NAN), 0);
    noise.Prepare(665, 0.5f, 1.0f, 480.0f);
    EXPECT_EQ(noise.octaveCount, 8);
    noise.Prepare(665, 0.5f, 1.0f, INFINITY);
    EXPECT_GT(noise.octaveCount, 100);
    EXPECT_LT(noise.octaveCount, CloudsNoise::kMaxOctaves);

    // Zero at every lattice point, negative ones included.
    noise.Prepare(927, 0.0f, 1.0f, 100.0f);
    for (float p : {0.0f, 1.0f, -1.0f, 7.0f, -300.0f})
        EXPECT_EQ(noise.Noise(p, -p, p + 2.0f), 0.0f) << p;

    // The fractal sum is the octaves' noise over their frequencies, added in order.
    for (const float z : {0.5f, -1.37f, 40.02f}) {
        noise.Prepare(31, z, 1.0f, 300.0f);
        for (const float x : {0.1f, -2.6f, 13.25f})
            for (const float y : {0.33f, -0.5f}) {
                float sum = 0.0f;
                for (float f = 1.0f; f < 300.0f; f = static_cast<float>(f * 2.17))
                    sum = sum + noise.Noise(x * f, y * f, z * f) / f;
                EXPECT_EQ(noise.Fractal(x, y), sum) << x << "," << y << "," << z;
            }
    }

    // Rows of field indices, computed in blocks and lanes, against the definition pixel by pixel.
    struct Case {
        float originX, originY, rotate, invScaleX, invScaleY, maxFrequency, z;
        int count;
    };
    const Case cases[] = {
        {-0.5f, -0.5f, 6.2831852f, 2.0f, 2.0f, 480.0f, 0.5f, 961},
        {0.3f, -2.0f, 0.0f, 1.5f, 9.0f, 90.0f, 0.503f, 130},
        {-37.5f, 12.25f, 1.2f, 18.18f, 30.3f, 30.0f, -3.1f, 67},
        {-0.5f, -0.5f, 3.0f, 100.0f, 0.2f, 2000.0f, 1e6f, 200},
        {1e8f, -1e8f, 0.5f, 1.0f, 1.0f, 50.0f, 0.5f, 9},
        {-0.5f, -0.5f, 0.7f, INFINITY, INFINITY, 50.0f, 0.5f, 5},  // a scale of 0
        {0.0f, 0.0f, 0.0f, 2.0f, 2.0f, 50.0f, 0.5f, 1},
    };
    for (const Case& c : cases) {
        noise.Prepare(665, c.z, 1.0f, c.maxFrequency);
        FieldMapping m;
        m.originX = c.originX;
        m.originY = c.originY;
        m.pivotX = static_cast<float>(c.originX + 0.5);
        m.pivotY = static_cast<float>(c.originY + 0.5);
        m.rotateRadians = c.rotate;
        m.sinRotate = static_cast<float>(std::sin(static_cast<double>(c.rotate)));
        m.cosRotate = static_cast<float>(std::cos(static_cast<double>(c.rotate)));
        m.invScaleX = c.invScaleX;
        m.invScaleY = c.invScaleY;
        m.dx = static_cast<float>(1.0 / c.count);
        for (const float v : {c.originY, c.originY + 0.37f}) {
            std::vector<int32_t> row(static_cast<size_t>(c.count));
            noise.Row(m, v, c.count, row.data());
            float u = m.originX;
            for (int x = 0; x < c.count; ++x, u = u + m.dx) {
                float px = u, py = v;
                if (c.rotate != 0.0f) {
                    const float a = u - m.pivotX, b = v - m.pivotY;
                    px = a * m.cosRotate - b * m.sinRotate + m.pivotX;
                    py = b * m.cosRotate + a * m.sinRotate + m.pivotY;
                }
                ASSERT_EQ(row[x],
                          CloudsNoise::IndexOf(noise.Fractal(px * m.invScaleX, py * m.invScaleY)))
                    << c.originX << " " << x;
            }
        }
    }
}

TEST(Clouds, BlendWeightsOfTheRenderingPathAreTheExtendedOnes) {
    // Fractions whose weight, worked in double alone, would round to the neighbouring float.
    const uint32_t awkward[] = {0x335c7badu, 0x35c00024u, 0x3effffb3u};
    std::vector<float> t;
    auto add = [&t](uint32_t bits) {
        float v;
        std::memcpy(&v, &bits, 4);
        t.push_back(v);
    };
    for (const uint32_t bits : awkward)
        for (uint32_t b = bits - 2; b <= bits + 2; ++b)
            add(b);
    // A sweep of fractions from 2^-30 to 1 (a million under the sweep, some thousands otherwise),
    // 0, and the smallest ones.
    for (uint32_t bits = 0x30800000u; bits <= 0x3f800000u; bits += FullSweep() ? 251 : 65521)
        add(bits);
    for (const uint32_t bits : {0x00000000u, 0x00000001u, 0x0d800000u, 0x31800000u, 0x31800001u})
        add(bits);

    std::vector<float> fast(t.size());
    CloudsNoise::BlendWeights(t.data(), fast.data(), static_cast<int>(t.size()));
    size_t differences = 0;
    for (size_t i = 0; i < t.size(); ++i)
        if (fast[i] != CloudsNoise::BlendWeight(t[i])) ++differences;
    EXPECT_EQ(differences, 0u);
    for (size_t i = 0; i < 3; ++i) {
        const double d = t[5 * i + 2];
        EXPECT_NE(static_cast<float>((3.0 - 2.0 * d) * d * d),
                  CloudsNoise::BlendWeight(t[5 * i + 2]));
    }
}

// ---- Invariants ---------------------------------------------------------------------------------

TEST(Clouds, TimeMovesThePictureOnlyThroughSeething) {
    HostImage sky = MakeHostImage(40, 30, Pattern16);
    for (const bool lit : {false, true}) {
        CloudsDoc t;
        t.Set("Lids", lit ? 1 : 0);
        t.Set("Sehe", 0.0);
        const uint64_t first = HashImage(t.Render(sky.get(), nullptr, 0.0));
        EXPECT_EQ(HashImage(t.Render(sky.get(), nullptr, 3.0)), first);
        EXPECT_EQ(HashImage(t.Render(sky.get(), nullptr, 250.5)), first);
        t.Set("Sehe", 3.0);
        EXPECT_EQ(HashImage(t.Render(sky.get(), nullptr, 0.0)), first);
        EXPECT_NE(HashImage(t.Render(sky.get(), nullptr, 3.0)), first);
        // The same inputs and time give the same picture, in any order of frames.
        const uint64_t at9 = HashImage(t.Render(sky.get(), nullptr, 9.0));
        t.Render(sky.get(), nullptr, 2.0);
        EXPECT_EQ(HashImage(t.Render(sky.get(), nullptr, 9.0)), at9);
    }
}

TEST(Clouds, SameBitsOnAnyProcessorCountAndSize) {
    struct Config {
        const char* name;
        int lit, highRes;
    };
    const Config configs[] = {
        {"unlit", 0, 0}, {"lit", 1, 0}, {"unlit high", 0, 1}, {"lit high", 1, 1}};
    const int sizes[][2] = {{31, 17}, {1, 1}, {2, 5}, {5, 2}, {32, 18}, {3, 4}, {7, 7}, {64, 3}};
    for (const Config& c : configs)
        for (size_t k = 0; k < (FullSweep() ? 8u : 4u); ++k) {
            const int* s = sizes[k];
            SCOPED_TRACE(std::string(c.name) + " " + std::to_string(s[0]) + "x" +
                         std::to_string(s[1]));
            HostImage sky = MakeHostImage(s[0], s[1], Pattern16);
            uint64_t hashes[3];
            for (int i = 0; i < 3; ++i) {
                ScopedProcessors scope(i == 1 ? 8 : 1);
                CloudsDoc t;
                t.Set("Lids", c.lit);
                t.Set("Ress", c.highRes);
                t.Set("Deil", 100.0);
                HostImage out = t.Render(sky.get(), nullptr, 5.0);
                ASSERT_TRUE(out);
                hashes[i] = HashImage(out);
            }
            EXPECT_EQ(hashes[0], hashes[1]);
            EXPECT_EQ(hashes[0], hashes[2]);
        }

    // Below a height of 4 the grid is full size whatever "High Resolution" says.
    HostImage low = MakeHostImage(20, 3, Pattern16);
    CloudsDoc t;
    const uint64_t half = HashImage(t.Render(low.get()));
    t.Set("Ress", 1);
    EXPECT_EQ(HashImage(t.Render(low.get())), half);
}

TEST(Clouds, LitGridHidesItsFirstRowAndColumnAndTheBeamCanBeOpenedFully) {
    HostImage sky = MakeHostImage(24, 16, Pattern16);
    CloudsDoc t;
    t.Set("Lids", 1);
    t.Set("Ress", 1);
    HostImage out = t.Render(sky.get());
    ASSERT_TRUE(out);
    // Over a plain sky colour, equal grid pixels give equal output pixels.
    for (int x = 0; x < 24; ++x)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(out->Row(0)[4 * x + c], out->Row(1)[4 * x + c]) << x;
    for (int y = 0; y < 16; ++y)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(out->Row(y)[c], out->Row(y)[4 + c]) << y;

    // A spread of 0 switches the beam off: full light, as a beam wide enough to take everything.
    t.Set("Spad", 0.0);
    const uint64_t off = HashImage(t.Render(sky.get()));
    t.Set("Spad", 360.0);
    EXPECT_EQ(HashImage(t.Render(sky.get())), off);
    // A narrow beam from the middle of the picture towards its right leaves the left in shade.
    // (The picture is wider than high, so the beam's geometry is horizontal only.)
    t.Set("Spad", 20.0);
    t.SetPoint("Lios", 0.5, 0.5);
    HostImage narrow = t.Render(sky.get());
    EXPECT_NE(HashImage(narrow), off);
    t.Set("Spad", 0.0);
    HostImage wide = t.Render(sky.get());
    for (int y = 0; y < 16; ++y) {
        EXPECT_EQ(narrow->Row(y)[4 * 20], wide->Row(y)[4 * 20]) << y;  // inside the beam
        EXPECT_LE(narrow->Row(y)[4 * 3], wide->Row(y)[4 * 3]) << y;    // behind the light
    }
}

TEST(Clouds, GoldenFrames) {
    struct Case {
        const char* name;
        double preset;  // -1 for the defaults
        int width, height;
        double time;
        uint64_t hash;
    };
    const Case cases[] = {
        {"defaults", -1, 64, 48, 4.0, 0xfb9625f7c400e09dull},
        {"Unlit1", 0, 64, 48, 4.0, 0xec84cbffd99d3d24ull},
        {"Unlit4", 3, 64, 48, 4.0, 0x8aa6d099b20bc3f9ull},
        {"Lit1", 6, 64, 48, 4.0, 0x9187e021e55ad956ull},
        {"Lit3", 8, 64, 48, 4.0, 0xfda1395dd5fbf98eull},
        {"Lit6", 11, 45, 31, 4.0, 0x502fb408bd6d281full},
        {"Fun3", 14, 64, 48, 4.0, 0x713435e5723b90abull},
        {"Fun6", 16, 45, 31, 4.0, 0x5dd9dc61d240e1d1ull},
        {"eighteenth", 17, 64, 48, 4.0, 0xdb6cd24ea4700b06ull},
        {"Unlit2 small", 1, 24, 18, 2.0, 0xcd0f81e68cca3be1ull},
        {"Unlit3 small", 2, 24, 18, 2.0, 0xd7623b72de9126c2ull},
        {"Unlit5 small", 4, 24, 18, 2.0, 0x802ff1a38979ccceull},
        {"Unlit6 small", 5, 24, 18, 2.0, 0xa05b553b3acb3c4eull},
        {"Lit2 small", 7, 24, 18, 2.0, 0x43b3376e9bc2f2a3ull},
        {"Lit4 small", 9, 24, 18, 2.0, 0x11c864a4c7f07b5ull},
        {"Lit5 small", 10, 24, 18, 2.0, 0x7d8f92d6795354c3ull},
        {"Fun1 small", 12, 24, 18, 2.0, 0x90950e7de0252e63ull},
        {"Fun2 small", 13, 24, 18, 2.0, 0x90950e7de0252e63ull},
        {"Fun5 small", 15, 24, 18, 2.0, 0x6bc890e724593bcdull},
    };
    for (const Case& c : cases) {
        CloudsDoc t;
        if (c.preset >= 0) t.Set("Se18", c.preset);
        HostImage sky = MakeHostImage(c.width, c.height, Pattern16);
        HostImage out = t.Render(sky.get(), nullptr, c.time);
        ASSERT_TRUE(out) << c.name;
        const uint64_t hash = HashImage(out);
        EXPECT_EQ(hash, c.hash) << c.name << std::hex << " 0x" << hash;
    }
}
