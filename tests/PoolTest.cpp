// Pool: its declaration, visibility rules, golden frames of every style across processor counts,
// the blend, the heights of its wave, the aspect correction, and its three on-screen controls.
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
#include "surface/Pool.h"
#include "surface/PoolControls.h"
#include "surface/Ripple.h"
#include "tests/TestSupport.h"

namespace {

using Values = std::vector<std::pair<const char*, double>>;

struct PoolDoc {
    explicit PoolDoc(const Values& values = {})
        : op(static_cast<PoolOperator*>(doc.AddTool("Pool"))), engine(op->Pool()) {
        for (const auto& [id, value] : values)
            Set(id, value);
    }
    Input* In(const std::string& id) const { return op->FindInput(id); }
    void Set(const std::string& id, double value) {
        Number n(value);
        In(id)->SetSource(&n, -1.0);
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    HostImage Render(Image* source, Image* matte = nullptr) {
        Request request(op, 0.0);
        request.SetInputImage(In("Clip to Undulate"), source);
        if (matte) request.SetInputImage(In("Regional Matte"), matte);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }
    uint64_t Hash(Image* source, Image* matte = nullptr) {
        return HashImage(Render(source, matte));
    }

    FusionDoc doc;
    PoolOperator* op;
    PoolEngine* engine;
};

// A checker of cells 5 pixels wide, with blue and alpha that vary.
void Checker(int x, int y, uint16_t* p) {
    const bool dark = ((x / 5) + (y / 5)) % 2 == 0;
    p[0] = dark ? 8000 : 60000;
    p[1] = dark ? 12000 : 58000;
    p[2] = static_cast<uint16_t>(dark ? 30000 : 40000 + 300 * x);
    p[3] = static_cast<uint16_t>(65535 - 500 * y);
}

std::unique_ptr<WorkImage> Work(const HostImage& image) {
    return std::unique_ptr<WorkImage>(ImportImage(image.get(), nullptr, false, nullptr));
}

}  // namespace

TEST(Pool, DeclarationAndVisibility) {
    PoolDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "Ceer Raus Frcy Phse Heht Fide Pode Tiss Blnd Uste Inte Doht Li65 LitZ Liht LiuR "
              "LiuG LiuB LiuA Glss Cost ChAb Clip to Undulate Regional Matte ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Pool", "Light"}));
    EXPECT_EQ(t.In("Regional Matte")->GetAttr(kInRequired, 1), 0);

    HostImage source = MakeHostImage(6, 5, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));  // the first frame applies the loaded values
    const std::vector<std::string> light = {"Liht", "Li65", "LitZ", "Glss",
                                            "Cost", "LiuR", "LiuG", "LiuB"};
    struct Step {
        const char* id;
        double value;
        bool lightHidden, tightnessHidden, invertHidden;
    };
    const Step steps[] = {
        {"Fide", 1.0, true, true, true},   {"Doht", 1.0, false, true, true},
        {"Pode", 3.0, false, false, true}, {"Pode", 2.0, false, true, true},
        {"Uste", 1.0, false, true, false}, {"Doht", 0.0, true, true, false},
        {"Uste", 0.0, true, true, true},
    };
    for (const Step& s : steps) {
        t.Set(s.id, s.value);
        for (const auto& id : light)
            EXPECT_EQ(t.Hidden(id), s.lightHidden) << s.id << " " << id;
        EXPECT_TRUE(t.Hidden("LiuA"));
        EXPECT_EQ(t.Hidden("Tiss"), s.tightnessHidden) << s.id;
        EXPECT_EQ(t.Hidden("Inte"), s.invertHidden) << s.id;
        EXPECT_FALSE(t.Hidden("ChAb"));
    }

    // A flow refuses values outside the ranges, by name.
    auto error = [](const char* id, double value) {
        nlohmann::json flow = {
            {"size", {8, 8}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}},
              {{"name", "fx"}, {"type", "Pool"}, {"source", "bg"}, {"inputs", {{id, value}}}},
              {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", "unused.png"}}}}};
        try {
            Flow::FromJson(flow, "t.json");
        } catch (const AppError& e) {
            return std::string(e.what());
        }
        return std::string();
    };
    EXPECT_NE(error("Raus", 0.0005).find("'Raus'"), std::string::npos);
    EXPECT_NE(error("Tiss", -21.0).find("below the allowed range -20 to 20"), std::string::npos);
    EXPECT_NE(error("Pode", 4.0).find("not an index"), std::string::npos);
    EXPECT_EQ(error("Tiss", -20.0), "");
}

TEST(Pool, GoldenFramesOnAnyProcessorCount) {
    HostImage source = MakeHostImage(40, 30, Checker);
    HostImage matte = MakeHostImage(40, 30, [](int x, int, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(x * 1600 > 65535 ? 65535 : x * 1600);
        p[3] = 65535;
    });
    struct Case {
        const char* name;
        Values values;
        bool matte;
        uint64_t golden;
    };
    const std::vector<Case> cases = {
        {"pond", {{"Heht", 3.0}}, false, 0xaacdf5b036fc67caull},
        {"swirl", {{"Pode", 1.0}, {"Heht", 3.0}, {"Phse", 0.3}}, false, 0xd24a28a082a30803ull},
        {"central", {{"Pode", 2.0}, {"Heht", 3.0}, {"Frcy", 12.0}}, false, 0x7fcb85cc59da814cull},
        {"twirl", {{"Pode", 3.0}, {"Heht", 3.0}, {"Tiss", 9.0}}, false, 0xcae1999acebab64cull},
        {"twirl wound back",
         {{"Pode", 3.0}, {"Heht", 3.0}, {"Tiss", -13.5}},
         false,
         0xff4d193e7fce4fdaull},
        {"off centre, small",
         {{"Raus", 0.1}, {"Frcy", 30.0}, {"Heht", 5.0}, {"Fide", 2.0}},
         false,
         0xb6cb4fe385914800ull},
        {"chromatic and lit",
         {{"Heht", 2.0}, {"ChAb", 30.0}, {"Doht", 1.0}, {"Cost", 80.0}, {"LiuB", 0.4}},
         false,
         0x7996882d55683c5bull},
        {"matte and blend",
         {{"Heht", 4.0}, {"Uste", 1.0}, {"Blnd", 35.0}, {"Fide", 1.0}},
         true,
         0x230caeaeed29caaaull},
    };
    for (const Case& k : cases) {
        uint64_t hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors processors(i == 0 ? 1 : 8);
            PoolDoc t(k.values);
            if (std::string(k.name) == "off centre, small") {
                Point p(0.3, 0.6);
                t.In("Ceer")->SetSource(&p, -1.0);
            }
            Image* m = k.matte ? matte.get() : nullptr;
            hashes[i] = t.Hash(source.get(), m);
            // Nothing is carried from one frame to the next.
            EXPECT_EQ(t.Hash(source.get(), m), hashes[i]) << k.name;
        }
        EXPECT_EQ(hashes[0], hashes[1]) << k.name;
        EXPECT_EQ(hashes[0], k.golden) << k.name << " 0x" << std::hex << hashes[0];
    }
}

TEST(Pool, BlendHeightAndSpokes) {
    HostImage source = MakeHostImage(36, 24, Checker);
    auto hash = [&](const Values& values) { return PoolDoc(values).Hash(source.get()); };

    // Blend 100 is the source itself: nothing is sampled, so even the edges are untouched.
    {
        PoolDoc t({{"Blnd", 100.0}, {"Heht", 5.0}});
        HostImage out = t.Render(source.get());
        EXPECT_TRUE(SamePixels(*Work(out), *Work(source)));
    }
    // Between 0 and 100 it mixes the full effect with the source.
    {
        PoolDoc full({{"Heht", 5.0}});
        PoolDoc half({{"Heht", 5.0}, {"Blnd", 50.0}});
        std::unique_ptr<WorkImage> mixed = Work(full.Render(source.get()));
        std::unique_ptr<WorkImage> plain = Work(source);
        {
            ScopedDispatch dispatch(full.op);
            mixed->MixFrom(0.5f, plain.get());
        }
        EXPECT_TRUE(SamePixels(*mixed, *Work(half.Render(source.get()))));
        EXPECT_FALSE(SamePixels(*mixed, *plain));
    }
    // Height 0 is a still surface at rest: Ripple's flat water at the same index.
    FusionDoc rippleDoc;
    auto* ripple = static_cast<RippleOperator*>(rippleDoc.AddTool("Ripple"));
    {
        Number zero(0.0);
        ripple->FindInput("XYmp")->SetSource(&zero, -1.0);
        Request request(ripple, 0.0);
        request.SetInputImage(ripple->FindInput("Clip to Ripple"), source.get());
        ripple->Process(&request);
        HostImage flat(static_cast<Image*>(request.TakeOutputData(ripple->MainOutput())));
        EXPECT_EQ(hash({{"Heht", 0.0}}), HashImage(flat));
        EXPECT_EQ(hash({{"Heht", 0.0}, {"Pode", 3.0}, {"Phse", 0.4}}), HashImage(flat));
    }
    // Swirl takes the whole number of spokes, at least one.
    const uint64_t one = hash({{"Pode", 1.0}, {"Heht", 5.0}, {"Frcy", 1.0}});
    EXPECT_EQ(hash({{"Pode", 1.0}, {"Heht", 5.0}, {"Frcy", 0.3}}), one);
    EXPECT_EQ(hash({{"Pode", 1.0}, {"Heht", 5.0}, {"Frcy", 1.9}}), one);
    EXPECT_NE(hash({{"Pode", 1.0}, {"Heht", 5.0}, {"Frcy", 2.0}}), one);
}

TEST(Pool, WaveHeights) {
    // 33 pixels square: steps of exactly 1/32, so the centre falls on pixel (16, 16).
    HostImage source = MakeHostImage(33, 33, Checker);
    PoolDoc t({{"Heht", 2.0}});
    ASSERT_TRUE(t.Render(source.get()));
    PoolEngine& e = *t.engine;
    const double h = e.waveHeight;
    auto wave = [&](int i) { return static_cast<float>(e.waveTable.Entry(i) * h + 0.5); };
    struct Case {
        int style;
        float radius, frequency, phase, tightness;
        double dx, dy;
        float want;
    };
    const Case cases[] = {
        // At the centre a pond reads the phase alone.
        {PoolEngine::kPond, 0.5f, 8.0f, 0.25f, 0.0f, 0.0, 0.0, wave(256)},
        // Rings: r * frequency, 1/64 * 8 = an eighth of a cycle.
        {PoolEngine::kPond, 0.5f, 8.0f, 0.0f, 0.0f, 0.015625, 0.0, wave(128)},
        // Beyond 2.1 radii the surface is at rest; within the radius, full height.
        {PoolEngine::kPond, 0.001f, 8.0f, 0.25f, 0.0f, 0.0022, 0.0, 0.5f},
        {PoolEngine::kPond, 0.001f, 0.0f, 0.25f, 0.0f, 0.0, -0.0009, wave(256)},
        // Spokes: a quarter turn round from +X is 8 / 4 whole cycles.
        {PoolEngine::kSwirl, 0.5f, 8.0f, 0.125f, 0.0f, 0.0, 0.1, wave(128)},
        // Twirls: -10 * 1/64 is 160 steps back from the end of the cycle; +10 as many forward.
        {PoolEngine::kTwirl, 0.5f, 3.0f, 0.0f, -10.0f, 0.015625, 0.0, wave(864)},
        {PoolEngine::kTwirl, 0.5f, 3.0f, 0.0f, 10.0f, 0.015625, 0.0, wave(160)},
        // Central at the centre: the angle of (0, 0) is 0, leaving the phase.
        {PoolEngine::kCentral, 0.5f, 8.0f, 0.25f, 0.0f, 0.0, 0.0, wave(256)},
    };
    for (const Case& c : cases) {
        e.style = c.style;
        e.radius = c.radius;
        e.frequency = c.frequency;
        e.phase = c.phase;
        e.tightness = c.tightness;
        EXPECT_EQ(e.WaveHeight(c.dx, c.dy), c.want) << c.style << " " << c.dx << " " << c.dy;
    }
    e.radius = 0.001f;
    EXPECT_NE(e.WaveHeight(0.0005, 0.0), 0.5f);

    // Pixels twice as wide as high stretch the rings to twice their height in rows.
    auto column = [&](double xScale) {
        HostImage image = MakeHostImage(33, 33, Checker);
        image.get()->xScale = xScale;
        PoolDoc d({{"Heht", 2.0}, {"Frcy", 3.0}});
        EXPECT_TRUE(d.Render(image.get()));
        std::vector<float> c;
        for (int y = 0; y < 33; ++y)
            c.push_back(d.engine->maps.heightMap[y * 33 + 16]);
        return c;
    };
    const std::vector<float> square = column(1.0), wide = column(2.0);
    for (int k = -8; k <= 8; ++k)
        EXPECT_EQ(wide[16 + 2 * k], square[16 + k]) << k;
    EXPECT_NE(wide[20], square[20]);
}

TEST(Pool, ControlsWriteTheirInputsAsOneUndoStep) {
    FusionDoc doc;
    auto* op = static_cast<PoolOperator*>(doc.AddTool("Pool"));
    PoolEngine* engine = op->Pool();
    const int W = 400, H = 200;
    ControlView view(op, W, H, 1.0, 1.0);
    view.Draw();
    // The centre at (200, 100), the radius handle 0.5 * 400 to its right.
    EXPECT_EQ(engine->radiusControl->handleX[0], 400.0f);
    EXPECT_EQ(engine->radiusControl->handleY[0], 100.0f);
    float cx, cy, rx, ry;
    engine->radiusControl->Circle(&cx, &cy, &rx, &ry);
    EXPECT_EQ(rx, 200.0f);
    EXPECT_EQ(ry, 200.0f);

    ControlView::DragReport r = view.Drag(400.0f, 100.0f, 260.0f, 20.0f);
    EXPECT_EQ(r.input, "Raus");
    ASSERT_EQ(r.written.size(), 1u);
    EXPECT_NEAR(r.written["Raus"].get<double>(), 100.0 / 400.0, 1e-12);  // (60, -80) from centre
    EXPECT_EQ(r.undo, std::vector<std::string>{"Pool: Radius"});

    r = view.Drag(200.0f, 100.0f, 100.0f, 50.0f);
    EXPECT_EQ(r.input, "Ceer");
    ASSERT_EQ(r.written.size(), 1u);
    EXPECT_EQ(r.undo, std::vector<std::string>{"Pool: Center"});
    // The circle follows its centre; a drag onto the centre gives the least radius.
    view.Draw();
    EXPECT_EQ(engine->radiusControl->handleX[0], 200.0f);
    EXPECT_EQ(engine->radiusControl->handleY[0], 50.0f);
    EXPECT_EQ(engine->radiusControl->RadiusAt(100.0f, 50.0f), 0.001);
    EXPECT_EQ(doc.UndoSteps().size(), 2u);

    // The light's handle shows only with "Lighting" on.
    EXPECT_FALSE(engine->lightControl->visible);
    op->FindInput("Doht")->SetConstant(1.0);
    view.Draw();
    EXPECT_TRUE(engine->lightControl->visible);
    r = view.Drag(300.0f, 150.0f, 80.0f, 40.0f);
    EXPECT_EQ(r.input, "Li65");
    EXPECT_EQ(r.undo, std::vector<std::string>{"Pool: Light"});
}
