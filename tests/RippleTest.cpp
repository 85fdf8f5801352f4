// Ripple: its declaration and the command line's checks of it, the visibility rules, golden frames
// across processor counts, the rules of its waves and matte, and the geometry of its handles.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Flow.h"
#include "surface/Ripple.h"
#include "tests/TestSupport.h"

namespace {

using Values = std::vector<std::pair<const char*, double>>;

struct RippleDoc : ToolDoc<RippleOperator> {
    explicit RippleDoc(const Values& values = {}) : ToolDoc("Ripple"), engine(op->Ripple()) {
        for (const auto& [id, value] : values)
            Set(id, value);
    }
    // The hash of the delivered frame, 0 if none.
    uint64_t Render(Image* source, Image* matte = nullptr) {
        return HashImage(RenderImages({{"Clip to Ripple", source}, {"Matte", matte}}, 0.0));
    }
    RippleEngine* engine;
};

// A checker of cells 6 pixels wide, with blue and alpha that vary.
void Checker(int x, int y, uint16_t* p) {
    const bool dark = ((x / 6) + (y / 6)) % 2 == 0;
    p[0] = dark ? 8000 : 60000;
    p[1] = dark ? 12000 : 58000;
    p[2] = static_cast<uint16_t>(dark ? 30000 : 42000 + 100 * x);
    p[3] = static_cast<uint16_t>(65535 - 300 * y);
}

}  // namespace

// A flow refuses values outside a slider's range, by name.
TEST(Ripple, AFlowRefusesValuesOutsideTheRanges) {
    auto error = [](const char* id, double value) {
        nlohmann::json flow = {
            {"size", {8, 8}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}},
              {{"name", "fx"}, {"type", "Ripple"}, {"source", "bg"}, {"inputs", {{id, value}}}},
              {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", "unused.png"}}}}};
        try {
            Flow::FromJson(flow, "t.json");
        } catch (const AppError& e) {
            return std::string(e.what());
        }
        return std::string();
    };
    EXPECT_NE(error("XYmp", 101.0).find("above the allowed range 0 to 100"), std::string::npos);
    EXPECT_NE(error("Reon", 0.5).find("below the allowed range 1 to 10"), std::string::npos);
    EXPECT_NE(error("LitZ", 0.01).find("'LitZ'"), std::string::npos);
    EXPECT_NE(error("Glss", 1001.0).find("'Glss'"), std::string::npos);
    EXPECT_NE(error("Fide", 3.0).find("not an index"), std::string::npos);
    EXPECT_EQ(error("ChAb", 200.0), "");
}

TEST(Ripple, VisibilityRules) {
    const std::vector<std::string> light = {"Li45", "Liht", "LitZ", "Glss",
                                            "Cost", "LiuR", "LiuG", "LiuB"};
    auto lightHidden = [&](const RippleDoc& t, bool hidden) {
        for (const auto& id : light)
            EXPECT_EQ(t.Hidden(id), hidden) << id;
        EXPECT_TRUE(t.Hidden("LiuA"));
        EXPECT_FALSE(t.Hidden("ChAb"));
    };
    HostImage source = MakeHostImage(6, 5, Pattern16);
    RippleDoc t;
    ASSERT_NE(t.Render(source.get()), 0u);  // the first frame applies the loaded values
    lightHidden(t, true);
    EXPECT_TRUE(t.Hidden("Inte"));
    t.Set("Doht", 1.0);
    lightHidden(t, false);
    t.Set("Uste", 1.0);
    EXPECT_FALSE(t.Hidden("Inte"));
    t.Set("Doht", 0.0);
    t.Set("Uste", 0.0);
    lightHidden(t, true);
    EXPECT_TRUE(t.Hidden("Inte"));

    // Loaded with the light on, the first frame shows it.
    RippleDoc loaded;
    loaded.In("Doht")->SetConstant(1.0);
    ASSERT_NE(loaded.Render(source.get()), 0u);
    lightHidden(loaded, false);
}

TEST(Ripple, GoldenFramesOnAnyProcessorCount) {
    HostImage source = MakeHostImage(48, 32, Checker);
    HostImage matte = MakeHostImage(48, 32, [](int x, int, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(x * 1400 > 65535 ? 65535 : x * 1400);
        p[3] = 65535;
    });
    struct Case {
        const char* name;
        Values values;
        bool matte;
        uint64_t golden;
    };
    const std::vector<Case> cases = {
        {"defaults", {}, false, 0x8371483f507e155aull},
        {"chromatic", {{"ChAb", 25.0}, {"XYeq", 3.0}}, false, 0x3223a5e85323698eull},
        {"light",
         {{"Doht", 1.0}, {"Cost", 70.0}, {"Glss", 12.0}, {"LiuG", 0.5}},
         false,
         0xaa3eaf81e18daa00ull},
        {"matte", {{"Uste", 1.0}, {"XYmp", 60.0}, {"Fide", 2.0}}, true, 0xee22b7eb4125ab12ull},
        {"inverted matte",
         {{"Uste", 1.0}, {"Inte", 1.0}, {"Fide", 1.0}},
         true,
         0x24796ce2573914c1ull},
        {"everything",
         {{"ChAb", 12.0}, {"Doht", 1.0}, {"XYse", 30.0}, {"XY31", 55.0}, {"Reon", 2.5}},
         false,
         0x7846f59bc970d475ull},
    };
    for (const Case& k : cases) {
        uint64_t hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors processors(i == 0 ? 1 : 8);
            RippleDoc t(k.values);
            Image* m = k.matte ? matte.get() : nullptr;
            hashes[i] = t.Render(source.get(), m);
            // Nothing is carried from one frame to the next.
            EXPECT_EQ(t.Render(source.get(), m), hashes[i]) << k.name;
        }
        EXPECT_EQ(hashes[0], hashes[1]) << k.name;
        EXPECT_EQ(hashes[0], k.golden) << k.name << " 0x" << std::hex << hashes[0];
    }
}

TEST(Ripple, WavesAndMatte) {
    HostImage source = MakeHostImage(30, 20, Checker);
    HostImage black = MakeHostImage(30, 20, [](int, int, uint16_t* p) {
        p[0] = p[1] = p[2] = 0;
        p[3] = 65535;
    });
    auto hash = [&](const Values& values, Image* matte = nullptr) {
        return RippleDoc(values).Render(source.get(), matte);
    };
    const uint64_t flat = hash({{"XYmp", 0.0}});
    const uint64_t waves = hash({});
    EXPECT_NE(waves, flat);
    // A frequency of 0 at the default phase is sin(2 pi): flat to float accuracy.
    EXPECT_EQ(hash({{"XYeq", 0.0}}), flat);
    EXPECT_EQ(hash({{"XY83", 0.0}}), flat);
    // A phase of 100 is a whole turn. Blend does nothing, nor Invert Matte without Use Matte.
    EXPECT_EQ(hash({{"XYse", 100.0}, {"XY31", 100.0}}), waves);
    EXPECT_EQ(hash({{"Blnd", 100.0}}), waves);
    EXPECT_EQ(hash({{"Inte", 1.0}}, black.get()), waves);
    // A black matte holds the water still; inverted, it lets the waves through.
    EXPECT_EQ(hash({{"Uste", 1.0}}, black.get()), flat);
    EXPECT_EQ(hash({{"Uste", 1.0}, {"Inte", 1.0}}, black.get()), waves);
    // Without a matte connected, the source's own brightness is the matte.
    EXPECT_EQ(hash({{"Uste", 1.0}}), hash({{"Uste", 1.0}}, source.get()));
    EXPECT_NE(hash({{"Uste", 1.0}}), waves);

    // The heights: the product of the two waves about 0.5.
    RippleDoc t({{"XYeq", 1.0}, {"XY83", 2.0}, {"XYse", 25.0}});
    ASSERT_NE(t.Render(source.get()), 0u);
    const RippleEngine& e = *t.engine;
    EXPECT_FLOAT_EQ(e.xPhase, 0.75f);
    EXPECT_FLOAT_EQ(e.xWave[0], -0.1f);  // sin(0.75 turn) * 0.2 * 0.5
    EXPECT_NEAR(e.yWave[0], 0.0f, 1e-7);
    EXPECT_FLOAT_EQ(e.maps.heightMap[5 * 30 + 7], e.xWave[7] * e.yWave[5] + 0.5f);
}

TEST(Ripple, HandleGeometry) {
    RippleDoc t({{"XYse", 40.0}});
    RippleEngine& e = *t.engine;
    HostImage source = MakeHostImage(4, 4, Pattern16);
    ASSERT_NE(t.Render(source.get()), 0u);
    e.viewWidth = 720;
    e.viewHeight = 480;
    e.DrawControls();
    // q = 180, r = 120; amplitudes 20, frequencies 4, X phase 40, Y phase 0. Dragging a handle to
    // where it stands gives its input's value back.
    const float want[6][4] = {{720, -24, 0, 20}, {-36, 0, 0, 20},  {727.2f, 0, 1, 4},
                              {0, -4.8f, 1, 4},  {792, 72, 2, 40}, {0, 0, 2, 0}};
    for (int i = 0; i < 6; ++i) {
        const RippleEngine::Handle& k = e.handles[i];
        EXPECT_FLOAT_EQ(k.x, want[i][0]) << i;
        EXPECT_FLOAT_EQ(k.y, want[i][1]) << i;
        EXPECT_EQ(k.colour, static_cast<int>(want[i][2])) << i;
        EXPECT_FLOAT_EQ(k.fromX, i % 2 == 0 ? 720.0f : 0.0f) << i;
        EXPECT_NEAR(RippleEngine::DragValue(i + 1, k.x, k.y, 720, 480), want[i][3], 1e-4) << i;
    }
    // A strict hit test; hovering takes the first match, a press the last.
    EXPECT_EQ(e.HandleAt(720.0f, -19.0f, 5.0f, false), 0);
    EXPECT_EQ(e.HandleAt(720.0f, -19.1f, 5.0f, false), 1);
    EXPECT_EQ(e.HandleAt(-1.0f, -2.0f, 5.0f, false), 4);  // handles 4 and 6 both match
    EXPECT_EQ(e.HandleAt(-1.0f, -2.0f, 5.0f, true), 6);
    // The sketches: a point on every second pixel from 2.
    EXPECT_EQ(e.bottomSketch.size(), 2u * 359);
    EXPECT_EQ(e.leftSketch.size(), 2u * 239);
    EXPECT_EQ(e.bottomSketch[0], 2.0f);
    EXPECT_EQ(e.leftSketch[1], 2.0f);
}
