// Rain as a tool: its declaration and visibility rules, the background it shows after a load, a
// restart or a preset, repeatability (fresh documents, --from-start, pre-roll, processor counts),
// births per step, the presets, golden frames and the on-screen controls.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Controls.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "tests/RainSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// An opaque night sky with some texture, in even samples (they survive the 15-bit round trip).
void Sky(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(2000 + 40 * x);
    p[1] = static_cast<uint16_t>(3000 + 30 * y);
    p[2] = static_cast<uint16_t>(12000 + 20 * ((x + y) % 7));
    p[3] = 65534;
}

// The host image a work image of `source` exports to: each sample v becomes w = v >> 1, then
// (w >> 14) | (w * 2).
bool IsBackground(const HostImage& out, const HostImage& source) {
    if (!out || out->width != source->width || out->height != source->height) return false;
    for (int y = 0; y < out->height; ++y)
        for (int x = 0; x < out->width * 4; ++x) {
            const unsigned w = source->Row(y)[x] >> 1;
            if (out->Row(y)[x] != ((w >> 14) | (w * 2))) return false;
        }
    return true;
}

}  // namespace

TEST(Rain, Visibility) {
    RainDoc t;
    // The first render applies the rules to the loaded values.
    HostImage sky = MakeHostImage(8, 6, Sky);
    t.Render(sky.get(), 1.0);
    for (const char* id : {"Pung", "Boes", "Wice", "Wiet", "Wiad", "Wied", "Lice", "Liet", "Glht",
                           "Liad", "Lien", "Miht", "LiuR", "LiuG", "LiuB", "LiuA", "RauA"})
        EXPECT_TRUE(t.Hidden(id)) << id;
    for (const char* id : {"Grty", "Grle", "Fron", "Swns", "Swmp", "Swim", "RauR"})
        EXPECT_FALSE(t.Hidden(id)) << id;
    t.Set("Doht", 1.0);
    t.Set("Doce", 0.0);
    t.Set("Puce", 1.0);
    EXPECT_FALSE(t.Hidden("Lien"));
    EXPECT_FALSE(t.Hidden("LiuB"));
    EXPECT_TRUE(t.Hidden("LiuA"));
    EXPECT_TRUE(t.Hidden("Swmp"));
    EXPECT_FALSE(t.Hidden("Boes"));
    t.Set("Doty", 0.0);
    t.Set("Doon", 0.0);
    EXPECT_TRUE(t.Hidden("Grle"));
    EXPECT_TRUE(t.Hidden("Fron"));
}

TEST(Rain, TheBackgroundAfterALoadARestartOrAPreset) {
    HostImage sky = MakeHostImage(40, 30, Sky);
    RainDoc t;
    t.SetPoint("Left", 0.1, 0.9);
    t.SetPoint("Right", 0.9, 0.9);
    // New drops sit at their birth points with no length: nothing shows.
    EXPECT_TRUE(IsBackground(t.Render(sky.get(), 1.0), sky));
    EXPECT_GT(t.engine->pool.activeCount, 0);
    HostImage later;
    for (int f = 2; f <= 6; ++f)
        later = t.Render(sky.get(), f);
    EXPECT_FALSE(IsBackground(later, sky));

    t.Press("Ren2");
    EXPECT_EQ(t.engine->pool.activeCount, 0);
    EXPECT_TRUE(IsBackground(t.Render(sky.get(), 7.0), sky));
    for (int f = 8; f <= 10; ++f)
        t.Render(sky.get(), f);
    t.Set("Dem1", 2.0);  // "Squall" empties the pool and asks for no pre-roll
    EXPECT_EQ(t.engine->pool.activeCount, 0);
    EXPECT_EQ(t.engine->preRollRequested, 0);
    EXPECT_TRUE(IsBackground(t.Render(sky.get(), 11.0), sky));

    // Density 0: no drops, ever.
    RainDoc none;
    none.Set("Dety", 0.0);
    for (int f = 1; f <= 8; ++f)
        EXPECT_TRUE(IsBackground(none.Render(sky.get(), f), sky)) << f;
}

TEST(Rain, BirthsPerStepStayWithinTenPerCent) {
    HostImage sky = MakeHostImage(64, 48, Sky);
    RainDoc t;
    t.Set("Dety", 100.0);
    int low = 1000, high = 0;
    for (int f = 1; f <= 40; ++f) {
        t.Render(sky.get(), f);
        low = std::min(low, t.engine->bornLastStep);
        high = std::max(high, t.engine->bornLastStep);
    }
    EXPECT_GE(low, 90);
    EXPECT_LE(high, 110);
    EXPECT_LT(low, high);
}

TEST(Rain, RepeatableRuns) {
    HostImage sky = MakeHostImage(48, 32, Sky);
    // A Birth Clip of another size is scaled to the background's on the tool's two chunks.
    HostImage birth = MakeHostImage(24, 16, [](int x, int, uint16_t* p) {
        p[0] = x < 16 ? 65535 : 0;
        p[1] = p[2] = 0;
        p[3] = 65535;
    });
    auto run = [&](int processors, int frames) {
        ScopedProcessors scope(processors);
        RainDoc t;
        t.Set("Dem1", 4.0);  // "Light": light, wind and glints
        t.SetPoint("Left", 0.0, 0.9);
        t.SetPoint("Right", 1.0, 0.9);
        t.Set("Uste", 1.0);
        t.Set("Doce", 1.0);
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= frames; ++f)
            hashes.push_back(t.Hash(sky.get(), f, birth.get()));
        return hashes;
    };
    // Two fresh documents, and one or eight processors: the same bits.
    const std::vector<uint64_t> one = run(1, 8);
    EXPECT_EQ(run(1, 8), one);
    EXPECT_EQ(run(8, 8), one);
    EXPECT_NE(one[6], one[7]);

    // Pre-roll pressed at load: the same as rendering its frames (0..P-1) first. Do PreRoll later
    // runs them again on top of the present state. (Each document runs alone: the generator's
    // shuffle table is shared, so two documents that draw by turns disturb each other.)
    auto prerolled = [&] {
        RainDoc a;
        a.Set("Prll", 6.0);
        a.Press("Rel1");
        std::vector<uint64_t> hashes{a.Hash(sky.get(), 9.0)};
        EXPECT_EQ(a.engine->preRollRequested, 0);
        a.Press("Dol4");
        hashes.push_back(a.Hash(sky.get(), 10.0));
        return hashes;
    }();
    auto rendered = [&] {
        RainDoc b;
        b.Set("Prll", 6.0);
        for (int f = 0; f < 6; ++f)
            b.Render(sky.get(), f);
        std::vector<uint64_t> hashes{b.Hash(sky.get(), 9.0)};
        for (int f = 0; f < 6; ++f)
            b.Render(sky.get(), f);
        hashes.push_back(b.Hash(sky.get(), 10.0));
        return hashes;
    }();
    EXPECT_EQ(prerolled, rendered);
}

TEST(Rain, FromStartFramesEqualAFullRender) {
    const fs::path dir = ScratchDir("crate07-rain-from-start");
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto flow = [&](const std::string& name) {
        return json{
            {"size", {40, 30}},
            {"range", {1, 6}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}, {"colour", {4000, 6000, 12000, 65535}}},
              {{"name", "fx"},
               {"type", "Rain"},
               {"source", "bg"},
               {"preset", "Sheet"},
               {"press", {{"Rel1", 1}, {"Dol2", 3}}},
               {"inputs", {{"Prll", 3}}}},
              {{"name", "out"},
               {"type", "Saver"},
               {"input", "fx"},
               {"path", (dir / (name + "_#.png")).string()}}}}};
    };
    Flow::FromJson(flow("full"), "t.json")->Render(1, 6);
    auto part = Flow::FromJson(flow("part"), "t.json");
    part->Advance(1, 3);
    part->Render(4, 6);
    for (int f = 4; f <= 6; ++f) {
        const std::string n = std::to_string(f) + ".png";
        HostRef<Image> full(LoadImageFile((dir / ("full_" + n)).string()));
        HostRef<Image> from(LoadImageFile((dir / ("part_" + n)).string()));
        EXPECT_EQ(HashImage(*full.get()), HashImage(*from.get())) << f;
    }
    EXPECT_FALSE(fs::exists(dir / "part_3.png"));
    fs::remove_all(dir);
}

// Each preset's writes, pinned by the hash of every input's value after it. An empty cell leaves
// the input alone (Wind Speed keeps 77 where a preset has none), and an entry beyond the table
// gives "Rain".
TEST(Rain, PresetsWriteTheirValues) {
    const uint64_t golden[] = {0x9d3c2700dd5c03aull,  0xde654c451f3a1a89ull, 0xbe00c215fb57443aull,
                               0x9652ec1ffb7b97a7ull, 0x76462a4d46ea7be6ull, 0xa52fe8fb0633c667ull,
                               0xdeffe61e95dd0561ull, 0x4a552492e65811abull, 0xad1d26b67bab412eull};
    RainDoc t;
    for (int k = 0; k < 9; ++k) {
        t.Set("Wied", 77.0);
        t.Set("Dem1", k);
        const std::string values = InputValues(t.op);
        EXPECT_EQ(HashText(values), golden[k]) << k << " 0x" << std::hex << HashText(values) << "\n"
                                               << values;
    }
    EXPECT_EQ(t.Get("Wied"), 6.0);
    t.Set("Wied", 77.0);
    t.Set("Dem1", 1.0);
    EXPECT_EQ(t.Get("Wied"), 77.0);
    t.engine->ApplyPreset(42, 0.0);
    EXPECT_EQ(t.Get("Dety"), 20.0);
    EXPECT_EQ(t.Get("Exon"), 800.0);
    // On an animated input a preset sets a key at the notification's time.
    Key a, b;
    a.time = 0.0, a.v[0] = 5.0, b.time = 20.0, b.v[0] = 9.0;
    t.In("Dety")->SetKeys({a, b});
    t.doc.currentTime = 7.0;
    t.Set("Dem1", 2.0);
    ASSERT_EQ(t.In("Dety")->Keys().size(), 3u);
    EXPECT_EQ(t.In("Dety")->Keys()[1].time, 7.0);
    EXPECT_EQ(t.Get("Dety", 7.0), 200.0);
}

TEST(Rain, GoldenFrames) {
    HostImage sky = MakeHostImage(64, 48, Sky);
    HostImage puddle = MakeHostImage(64, 48, [](int, int y, uint16_t* p) {
        p[0] = y < 10 ? 65535 : 0;
        p[1] = p[2] = 0;
        p[3] = 65535;
    });
    auto sequence = [&](double preset, Image* bounce) {
        RainDoc t;
        t.Set("Dem1", preset);
        t.Press("Rel1");
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= 4; ++f)
            hashes.push_back(t.Hash(sky.get(), f, nullptr, bounce));
        return hashes;
    };
    const std::vector<uint64_t> rain = sequence(0.0, nullptr);
    const std::vector<uint64_t> light = sequence(4.0, nullptr);
    const std::vector<uint64_t> bounce = sequence(6.0, puddle.get());
    EXPECT_EQ(rain, (std::vector<uint64_t>{15355492193043585486ull, 13180735194043258921ull,
                                           9497765443654961317ull, 3373688863137847812ull}));
    EXPECT_EQ(light, (std::vector<uint64_t>{16438761834114956380ull, 8866590195054535039ull,
                                            10354177750833408047ull, 439607569466605155ull}));
    EXPECT_EQ(bounce, (std::vector<uint64_t>{15061621531875425004ull, 3658752707401018426ull,
                                             9552751173270864287ull, 18325280467751087103ull}));
}

TEST(Rain, OnScreenControls) {
    RainDoc t;
    HostImage sky = MakeHostImage(100, 50, Sky);
    t.Render(sky.get(), 1.0);
    auto lines = [&](int* count) {
        ControlView view(t.op, 100, 50, 1.0, 1.0);
        *count = static_cast<int>(view.Draw().size());
    };
    // The birth line with its outline only: Light and Wind are off.
    int birthOnly = 0, withWind = 0;
    lines(&birthOnly);
    EXPECT_TRUE(t.engine->birthControl->visible);
    EXPECT_FALSE(t.engine->lightControl->visible);
    EXPECT_FALSE(t.engine->windControl->visible);
    t.Set("Dond", 1.0);
    lines(&withWind);
    EXPECT_TRUE(t.engine->windControl->visible);
    EXPECT_GT(withWind, birthOnly);
    // Wind Speed 0 hides the wind pair again.
    t.Set("Wied", 0.0);
    int calm = 0;
    lines(&calm);
    EXPECT_EQ(calm, birthOnly);

    // Dragging the Left end moves it.
    ControlView view(t.op, 100, 50, 1.0, 1.0);
    view.Draw();
    ControlView::DragReport r = view.Drag(20, 40, 30, 35);
    EXPECT_EQ(r.control, 1);
    EXPECT_EQ(r.input, "Left");
    EXPECT_EQ(t.GetPoint("Left"), std::make_pair(0.3, 0.7));
    // A hidden cone catches nothing: the Light point under the pointer is left alone.
    ControlView::DragReport missed = view.Drag(90, 25, 60, 25);
    EXPECT_EQ(missed.control, 0);
    EXPECT_EQ(t.GetPoint("Lice"), std::make_pair(0.9, 0.5));
}
