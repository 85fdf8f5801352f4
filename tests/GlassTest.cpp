// Glass: its declaration and wiring, the visibility and disabled rules, golden frames across
// processor counts, the heights read from the texture, the flat pane, the inert light, the step of
// "Smoothing" at several widths, and the light's handle.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Controls.h"
#include "app/Flow.h"
#include "surface/Glass.h"
#include "tests/TestSupport.h"

namespace {

using Values = std::vector<std::pair<const char*, double>>;

struct GlassDoc {
    explicit GlassDoc(const Values& values = {})
        : op(static_cast<GlassOperator*>(doc.AddTool("Glass"))), engine(op->Glass()) {
        for (const auto& [id, value] : values)
            Set(id, value);
    }
    Input* In(const std::string& id) const { return op->FindInput(id); }
    void Set(const std::string& id, double value) {
        Number n(value);
        In(id)->SetSource(&n, -1.0);
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    bool Disabled(const std::string& id) const { return In(id)->GetAttr(kInDisabled, 0) != 0; }
    HostImage Render(Image* picture, Image* texture = nullptr) {
        Request request(op, 0.0);
        request.SetInputImage(In("Behind Glass"), picture);
        if (texture) request.SetInputImage(In("Glass"), texture);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }
    uint64_t Hash(Image* picture, Image* texture = nullptr) {
        return HashImage(Render(picture, texture));
    }
    float Height(int x, int y) const { return engine->maps.heightMap[y * engine->maps.width + x]; }

    FusionDoc doc;
    GlassOperator* op;
    GlassEngine* engine;
};

// A checker of cells 5 pixels wide, with blue and alpha that vary.
void Checker(int x, int y, uint16_t* p) {
    const bool dark = ((x / 5) + (y / 5)) % 2 == 0;
    p[0] = dark ? 8000 : 60000;
    p[1] = dark ? 12000 : 58000;
    p[2] = static_cast<uint16_t>(dark ? 30000 : 40000 + 300 * x);
    p[3] = static_cast<uint16_t>(65535 - 500 * y);
}

// Soft bumps: a texture whose brightness rises and falls over a few pixels.
void Bumps(int x, int y, uint16_t* p) {
    const int v = ((x * 37 + y * 23) % 64) * 1000;
    p[0] = static_cast<uint16_t>(v);
    p[1] = static_cast<uint16_t>(v / 2 + 20000);
    p[2] = static_cast<uint16_t>(65535 - v);
    p[3] = 65535;
}

}  // namespace

TEST(Glass, DeclarationAndWiring) {
    GlassDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "BHei WHei Indx Invt ImgF Smoo ChAb LiOn LiPo LigZ LiBr LiuR LiuG LiuB LiuA Glos "
              "Cont Glass Behind Glass ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Glass"}));
    EXPECT_EQ(t.In("Glass")->GetAttr(kInRequired, 1), 0);
    EXPECT_EQ(t.In("Behind Glass")->GetAttr(kInConnector, 0), 1);

    // A flow's "source" feeds the picture behind the glass, the main image; ranges are checked.
    auto error = [](const char* id, double value) {
        nlohmann::json flow = {
            {"size", {8, 8}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}},
              {{"name", "fx"}, {"type", "Glass"}, {"source", "bg"}, {"inputs", {{id, value}}}},
              {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", "unused.png"}}}}};
        try {
            Flow::FromJson(flow, "t.json");
        } catch (const AppError& e) {
            return std::string(e.what());
        }
        return std::string();
    };
    EXPECT_EQ(error("Smoo", 10.0), "");
    EXPECT_NE(error("Smoo", 2.5).find("'Smoo'"), std::string::npos);
    EXPECT_NE(error("Indx", 0.5).find("below the allowed range 1 to 10"), std::string::npos);
    EXPECT_NE(error("ImgF", 3.0).find("not an index"), std::string::npos);
}

TEST(Glass, VisibilityAndDisabledRules) {
    const std::vector<std::string> light = {"LiBr", "Glos", "Cont", "LiuR",
                                            "LiuG", "LiuB", "LiPo", "LigZ"};
    const std::vector<std::string> greyed = {"Glos", "Cont", "LiuR", "LiuG",
                                             "LiuB", "LiuA", "LiPo", "LigZ"};
    HostImage picture = MakeHostImage(6, 5, Pattern16);
    for (double brightness : {0.0, 0.00009, 0.0001, 100.0}) {
        GlassDoc t({{"LiBr", brightness}});
        ASSERT_TRUE(t.Render(picture.get()));
        for (const auto& id : greyed)
            EXPECT_EQ(t.Disabled(id), brightness < 0.0001) << brightness << " " << id;
        EXPECT_FALSE(t.Disabled("LiBr"));
        for (const auto& id : light)
            EXPECT_TRUE(t.Hidden(id)) << id;
        t.Set("LiOn", 1.0);
        for (const auto& id : light)
            EXPECT_FALSE(t.Hidden(id)) << id;
        EXPECT_TRUE(t.Hidden("LiuA"));
        // Only the first frame looks at "Brightness".
        t.Set("LiBr", brightness == 0.0 ? 50.0 : 0.0);
        ASSERT_TRUE(t.Render(picture.get()));
        EXPECT_EQ(t.Disabled("Glos"), brightness < 0.0001);
        t.Set("LiOn", 0.0);
        EXPECT_TRUE(t.Hidden("LigZ"));
    }
}

TEST(Glass, GoldenFramesOnAnyProcessorCount) {
    HostImage picture = MakeHostImage(40, 30, Checker);
    HostImage texture = MakeHostImage(20, 15, Bumps);  // scaled up to the picture's size
    struct Case {
        const char* name;
        Values values;
        bool texture;
        uint64_t golden;
    };
    const std::vector<Case> cases = {
        {"own texture", {{"WHei", 60.0}}, false, 0x60619abfb510d8f4ull},
        {"texture", {{"WHei", 60.0}}, true, 0x35d4d9981f495d81ull},
        {"smoothing", {{"WHei", 80.0}, {"Smoo", 3.0}}, true, 0xf97479ff719c784aull},
        {"inverted, black",
         {{"WHei", 60.0}, {"Invt", 1.0}, {"ImgF", 1.0}},
         true,
         0x642148f05065765ull},
        {"index, wrap",
         {{"Indx", 3.0}, {"ImgF", 2.0}, {"BHei", 40.0}},
         true,
         0xacb31f5d605863f8ull},
        {"chromatic", {{"WHei", 50.0}, {"ChAb", 40.0}}, true, 0x99867523bd3eb61aull},
        {"lit",
         {{"WHei", 50.0}, {"LiOn", 1.0}, {"Glos", 20.0}, {"Cont", 70.0}, {"LiuG", 0.5}},
         true,
         0x46903107ba10c4f6ull},
    };
    for (const Case& k : cases) {
        uint64_t hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors processors(i == 0 ? 1 : 8);
            GlassDoc t(k.values);
            Image* tex = k.texture ? texture.get() : nullptr;
            hashes[i] = t.Hash(picture.get(), tex);
            EXPECT_EQ(t.Hash(picture.get(), tex), hashes[i]) << k.name;
        }
        EXPECT_EQ(hashes[0], hashes[1]) << k.name;
        EXPECT_EQ(hashes[0], k.golden) << k.name << " 0x" << std::hex << hashes[0];
    }
    // An open "Glass" is the picture refracting through itself.
    EXPECT_EQ(GlassDoc({{"WHei", 60.0}}).Hash(picture.get(), picture.get()),
              GlassDoc({{"WHei", 60.0}}).Hash(picture.get()));
}

TEST(Glass, HeightsFromTheTexture) {
    // Columns 0-1 full white, 2-3 pure red, green or blue, 4 black.
    auto texture = [](int colour) {
        return MakeHostImage(5, 3, [colour](int x, int, uint16_t* p) {
            for (int c = 0; c < 3; ++c)
                p[c] = x < 2 ? 65535 : (x < 4 && c == colour ? 65535 : 0);
            p[3] = 65535;
        });
    };
    HostImage picture = MakeHostImage(5, 3, Pattern16);
    struct Case {
        Values values;
        int colour;
        float white, mixed, colourOnly, black;  // heights at x = 0, 1, 2, 3
    };
    const Case cases[] = {
        // Weights 3, 5, 2 of 10; x = 1 takes half white, half colour.
        {{}, 0, 0.2f, 0.165f, 0.13f, 0.115f},
        {{}, 1, 0.2f, 0.175f, 0.15f, 0.125f},
        {{}, 2, 0.2f, 0.16f, 0.12f, 0.11f},
        // WhiteHeight below BlackHeight: bright still rises, by the same amount.
        {{{"BHei", 20.0}, {"WHei", 10.0}}, 1, 0.3f, 0.275f, 0.25f, 0.225f},
        // Only "Invert map" turns the relief over.
        {{{"Invt", 1.0}}, 1, 0.1f, 0.125f, 0.15f, 0.175f},
        {{{"BHei", 30.0}, {"WHei", 30.0}}, 2, 0.3f, 0.3f, 0.3f, 0.3f},
    };
    for (const Case& c : cases) {
        HostImage tex = texture(c.colour);
        GlassDoc t(c.values);
        ASSERT_TRUE(t.Render(picture.get(), tex.get()));
        const float want[4] = {c.white, c.mixed, c.colourOnly, c.black};
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 4; ++x)
                EXPECT_NEAR(t.Height(x, y), want[x], 2e-7) << c.colour << " " << x << "," << y;
            // The last column and row repeat their neighbours.
            EXPECT_EQ(t.Height(4, y), t.Height(3, y));
        }
        EXPECT_EQ(t.Height(0, 2), t.Height(0, 1));
    }
}

TEST(Glass, FlatPaneAndInertLight) {
    // Samples that rise by 2000 a column and 1000 a row (on the 15-bit scale).
    HostImage picture = MakeHostImage(12, 9, [](int x, int y, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(4000 * x + 2000 * y);
        p[3] = 65535;
    });
    GlassDoc flat({{"BHei", 35.0}, {"WHei", 35.0}});
    std::unique_ptr<WorkImage> out(
        ImportImage(flat.Render(picture.get()).get(), nullptr, false, nullptr));
    ASSERT_TRUE(out);
    // No displacement, but the box lies half a pixel low: the mean of the pixel and the three
    // before it.
    for (int y = 1; y < 8; ++y)
        for (int x = 1; x < 11; ++x)
            EXPECT_NEAR(out->Pixel(x, y)[0], 2000 * x + 1000 * y - 1500, 2) << x << "," << y;
    EXPECT_EQ(GlassDoc({{"BHei", 5.0}, {"WHei", 5.0}}).Hash(picture.get()),
              GlassDoc({{"BHei", 80.0}, {"WHei", 80.0}}).Hash(picture.get()));

    // With the light off its settings do nothing; "Brightness" 0 is off as well.
    HostImage checker = MakeHostImage(30, 20, Checker);
    const uint64_t unlit = GlassDoc({{"WHei", 50.0}}).Hash(checker.get());
    const Values inert[] = {
        {{"LiBr", 30.0}, {"Glos", 3.0}, {"Cont", 20.0}},
        {{"LiOn", 1.0}, {"LiBr", 0.0}, {"Cont", 20.0}},
        {{"LiuR", 0.1}, {"LigZ", 3.0}},
    };
    for (const Values& v : inert) {
        Values all = v;
        all.push_back({"WHei", 50.0});
        EXPECT_EQ(GlassDoc(all).Hash(checker.get()), unlit) << v[0].first;
    }
    EXPECT_NE(GlassDoc({{"WHei", 50.0}, {"LiOn", 1.0}}).Hash(checker.get()), unlit);
}

TEST(Glass, SmoothingStepFollowsTheWidth) {
    struct Case {
        int width;
        double smoothing;
        int step;
    };
    const Case cases[] = {{720, 10, 10}, {1920, 10, 27}, {360, 10, 5},
                          {720, 0, 0},   {100, 7, 1},    {1440, 3, 6}};
    for (const Case& c : cases) {
        HostImage picture = MakeHostImage(c.width, 2, Pattern16);
        GlassDoc t({{"Smoo", c.smoothing}});
        ASSERT_TRUE(t.Render(picture.get()));
        EXPECT_EQ(t.engine->neighbourStep, c.step) << c.width << " " << c.smoothing;
        EXPECT_EQ(t.engine->surface.neighbourStep, c.step + 1);
    }
}

TEST(Glass, LightHandle) {
    FusionDoc doc;
    auto* op = static_cast<GlassOperator*>(doc.AddTool("Glass"));
    GlassEngine* engine = op->Glass();
    ControlView view(op, 400, 200, 1.0, 1.0);
    struct Step {
        const char* id;
        double value;
        bool visible;
    };
    const Step steps[] = {
        {"LiBr", 100.0, false}, {"LiOn", 1.0, true}, {"LiBr", 0.0, false}, {"LiBr", 1.0, true}};
    for (const Step& s : steps) {
        op->FindInput(s.id)->SetConstant(s.value);
        view.Draw();
        EXPECT_EQ(engine->lightControl->visible != 0, s.visible) << s.id << " " << s.value;
    }
    ControlView::DragReport r = view.Drag(200.0f, 100.0f, 100.0f, 150.0f);
    EXPECT_EQ(r.input, "LiPo");
    ASSERT_EQ(r.written.size(), 1u);
    EXPECT_EQ(r.undo, std::vector<std::string>{"Glass: Light"});
    EXPECT_EQ(doc.UndoSteps().size(), 1u);
}
