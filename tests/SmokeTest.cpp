// Smoke as a tool: its declaration and visibility, a single puff and a single point laid by hand,
// the first render after a load, a restart or a preset, sizes at birth, working stamps for the
// pixel aspect, repeatability (fresh documents, --from-start, processor counts), the presets,
// golden frames per look and the on-screen controls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Controls.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "particles/Smoke.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct SmokeDoc : ToolDoc<SmokeOperator> {
    SmokeDoc() : ToolDoc<SmokeOperator>("Smoke"), engine(op->Smoke()) {}
    Input* In(const std::string& id) const { return op->FindInput(id); }
    double Get(const std::string& id) const {
        return static_cast<Number*>(In(id)->GetSource(0.0))->value;
    }
    // A button click: 1 with a notification, then back to 0 without one.
    void Press(const char* id) {
        Set(id, 1.0);
        In(id)->SetConstant(0.0);
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    HostImage Render(Image* background, double time) {
        return RenderWith("Background Clip", background, time);
    }
    uint64_t Hash(Image* background, double time) { return HashImage(Render(background, time)); }
    // One birth a step at the middle of a 72-wide picture (R = 10), no variation, white at full
    // density from birth ("Colour" fade, Condensation 100).
    void OnePuff() {
        Set("Dety", 10.0);
        Set("Poar", 0.0);
        SetPoint("Left", 0.5, 0.5);
        SetPoint("Riht", 0.5, 0.5);
        Set("Puze", 20.0);  // index trunc(20 / 10 * 2.05) = 4
        Set("Puar", 0.0);
        Set("Fade", 1.0);
        Set("Coon", 100.0);
    }

    SmokeEngine* engine;
};

// The host sample a work sample exports to.
uint16_t Exported(int w) {
    const unsigned u = static_cast<unsigned>(w);
    return static_cast<uint16_t>((u >> 14) | (u * 2));
}

HostImage Flat(int width, int height, uint16_t grey, uint16_t alpha) {
    return MakeHostImage(width, height, [=](int, int, uint16_t* p) {
        p[0] = p[1] = p[2] = grey;
        p[3] = alpha;
    });
}

// A dusky sky with texture, in even samples (they survive the 15-bit round trip).
void Dusk(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(4000 + 60 * x);
    p[1] = static_cast<uint16_t>(5000 + 50 * y);
    p[2] = static_cast<uint16_t>(14000 + 30 * ((x + y) % 5));
    p[3] = 65534;
}

// Every sample of `out` is that of `source`, down by `drop(x, y)` work steps.
bool DroppedBy(const HostImage& out, const HostImage& source,
               const std::function<int(int, int)>& drop) {
    if (!out || out->width != source->width || out->height != source->height) return false;
    for (int y = 0; y < out->height; ++y)
        for (int x = 0; x < out->width; ++x)
            for (int c = 0; c < 4; ++c) {
                const int w = source->Row(y)[x * 4 + c] >> 1;
                if (out->Row(y)[x * 4 + c] != Exported(w - drop(x, y))) return false;
            }
    return true;
}

bool IsBackground(const HostImage& out, const HostImage& source) {
    return DroppedBy(out, source, [](int, int) { return 0; });
}

}  // namespace

TEST(Smoke, DeclarationAndVisibility) {
    SmokeDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "Dem1 Ree1 Rel1 Dol1 Prll Adce Left Riht Poar Dety Lime Exon Uste Inat Vear Lode "
              "Pour Puze Puar Ree2 Rel2 Dol2 Doty Grty Grle Doon Fron Doce Swns Swmp Swim Dond "
              "Wice Wiet Wiad Wied Ree3 Rel3 Dol3 Inty Coon Coar Moar SmuR SmuG SmuB SmuA Fade "
              "Background Clip Birth Clip ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Smoke", "Forces", "Colour"}));
    EXPECT_EQ(t.In("Birth Clip")->GetAttr(kInRequired, 1), 0);
    EXPECT_EQ(t.In("Background Clip")->GetAttr(kInRequired, 1), 1);

    // The first render applies the rules to the loaded values: "Puff" and no wind.
    HostImage dusk = MakeHostImage(8, 6, Dusk);
    t.Render(dusk.get(), 1.0);
    struct Case {
        double look;  // -1: as loaded
        std::vector<const char*> hidden, shown;
    };
    const Case cases[] = {
        {-1, {"Pour", "Wice", "Wiet", "Wiad", "Wied", "SmuA"}, {"Puze", "Puar", "Grty", "Swns"}},
        {0, {"Puze", "Puar"}, {"Pour"}},
        {1, {"Pour", "Puze", "Puar"}, {}},
        {2, {"Pour"}, {"Puze", "Puar"}},
    };
    for (const Case& c : cases) {
        if (c.look >= 0) t.Set("Lode", c.look);
        for (const char* id : c.hidden)
            EXPECT_TRUE(t.Hidden(id)) << c.look << " " << id;
        for (const char* id : c.shown)
            EXPECT_FALSE(t.Hidden(id)) << c.look << " " << id;
    }
}

TEST(Smoke, OneParticleLaidByHand) {
    // Density: the luminance of white, 32767, times sin(1.57078), truncated. A puff lays stamp 4
    // (5 x 5, here the master) round (36, 24) with c = (value * A) >> 15 over each sample; a point
    // lays a quarter of A + 1 (8191) on its layer as 8190, which then covers 8190 / 32767 of the
    // background, alpha included.
    const int64_t A = 32766;
    const struct {
        double look;
        uint16_t grey, alpha;
    } cases[] = {{2, 0, 0}, {2, 32000, 40000}, {0, 0, 0}, {0, 32000, 65534}, {0, 32000, 32000}};
    for (const auto& c : cases) {
        HostImage bg = Flat(72, 48, c.grey, c.alpha);
        SmokeDoc t;
        t.OnePuff();
        t.Set("Lode", c.look);
        HostImage out = t.Render(bg.get(), 1.0);
        ASSERT_EQ(t.engine->pool.activeCount, 1);
        ASSERT_EQ(t.engine->pool.activeHead->stampIndex, 4);
        const Stamp& s = t.engine->puffSet[4];
        ASSERT_EQ(s.values, t.engine->puffStamps[4].values);
        for (int y = 0; y < 48; ++y)
            for (int x = 0; x < 72; ++x)
                for (int k = 0; k < 4; ++k) {
                    const int64_t old = bg->Row(y)[x * 4 + k] >> 1;
                    int64_t expected = old;
                    if (c.look == 2 && std::abs(x - 36) <= 2 && std::abs(y - 24) <= 2) {
                        const int64_t v = std::min<int64_t>(s.At(x - 34, y - 22), 32767);
                        const int64_t cover = (v * A) >> 15;
                        expected = (old * (32767 - cover) + cover * 32767) >> 15;
                    } else if (c.look == 0 && x == 36 && y == 24) {
                        expected = 8190 + old * 24577 / 32767;
                    }
                    ASSERT_EQ(out->Row(y)[x * 4 + k], Exported(static_cast<int>(expected)))
                        << c.look << " " << c.grey << " " << x << "," << y << " " << k;
                }
    }
}

TEST(Smoke, NewBornSmokeAtCondensationZero) {
    HostImage dusk = MakeHostImage(72, 48, Dusk);
    // "Point" and "Streak": nothing shows at a load, a restart or a preset. "Puff": every pixel
    // under k stamps drops by k.
    for (double look : {0.0, 1.0, 2.0}) {
        SmokeDoc t;
        t.Set("Dety", 40.0);
        t.SetPoint("Left", 0.3, 0.4);
        t.SetPoint("Riht", 0.6, 0.5);
        t.Set("Puze", 10.0);
        t.Set("Lode", look);
        HostImage out = t.Render(dusk.get(), 1.0);
        ASSERT_GT(t.engine->pool.activeCount, 1);
        if (look < 2.0) {
            EXPECT_TRUE(IsBackground(out, dusk)) << look;
            for (int f = 2; f <= 6; ++f)
                out = t.Render(dusk.get(), f);
            EXPECT_FALSE(IsBackground(out, dusk)) << look;
            t.Press("Ree2");
            EXPECT_TRUE(IsBackground(t.Render(dusk.get(), 7.0), dusk)) << look;
            t.Render(dusk.get(), 8.0);
            t.Set("Dem1", 2.0);  // "Wisp": points, no condensation, no pre-roll asked for
            EXPECT_EQ(t.engine->preRollRequested, 0);
            EXPECT_TRUE(IsBackground(t.Render(dusk.get(), 9.0), dusk)) << look;
            continue;
        }
        std::vector<int> under(72 * 48, 0);
        for (const ParticleRecord* r = t.engine->pool.activeHead; r; r = r->next) {
            const Stamp& s = t.engine->puffSet[r->stampIndex];
            // Drawn where it was born, before the step's update moved it.
            const int hx = static_cast<int>(r->prevX + 0.5), hy = static_cast<int>(r->prevY + 0.5);
            for (int y = hy - s.height / 2; y < hy - s.height / 2 + s.height; ++y)
                for (int x = hx - s.width / 2; x < hx - s.width / 2 + s.width; ++x)
                    if (x >= 0 && x < 72 && y >= 0 && y < 48) ++under[y * 72 + x];
        }
        EXPECT_TRUE(DroppedBy(out, dusk, [&](int x, int y) { return under[y * 72 + x]; }));
    }
}

TEST(Smoke, PointBlurAtOneHundredthIsNoBlur) {
    HostImage dusk = MakeHostImage(48, 32, Dusk);
    auto run = [&](double blur) {
        SmokeDoc t;
        t.Set("Dem1", 0.0);  // "Dry Ice": points with condensation
        t.Set("Pour", blur);
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= 4; ++f)
            hashes.push_back(t.Hash(dusk.get(), f));
        return hashes;
    };
    const std::vector<uint64_t> none = run(0.0);
    EXPECT_EQ(run(0.01), none);
    EXPECT_NE(run(2.0)[3], none[3]);
}

TEST(Smoke, SizesAtBirthAndWorkingStamps) {
    // Puff Size 1 with full variation on a picture 720 wide: indices 0 to 4.
    HostImage wide = Flat(720, 6, 20000, 65534);
    SmokeDoc t;
    t.Set("Puze", 1.0);
    t.Set("Dety", 300.0);
    t.Render(wide.get(), 1.0);
    std::set<int> seen;
    for (const ParticleRecord* r = t.engine->pool.activeHead; r; r = r->next)
        seen.insert(r->stampIndex);
    EXPECT_EQ(seen, (std::set<int>{0, 1, 2, 3, 4}));

    // Pixels twice as tall as wide widen the stamps; back to square, they are the masters.
    HostImage tall = Flat(72, 48, 20000, 65534);
    tall->yScale = 2.0;
    t.Render(tall.get(), 2.0);
    for (int i = 0; i < kStampCount; ++i)
        EXPECT_EQ(t.engine->puffSet[i].width, t.engine->puffStamps[i].width * 2) << i;
    tall->yScale = 1.0;
    t.Render(tall.get(), 3.0);
    for (int i = 0; i < kStampCount; ++i)
        EXPECT_EQ(t.engine->puffSet[i].values, t.engine->puffStamps[i].values) << i;
}

TEST(Smoke, FromStartFramesEqualAFullRender) {
    const fs::path dir = fs::temp_directory_path() / "crate07-smoke-from-start";
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto flow = [&](const std::string& name) {
        return json{
            {"size", {40, 30}},
            {"range", {1, 6}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}, {"colour", {4000, 6000, 12000, 65535}}},
              {{"name", "fx"},
               {"type", "Smoke"},
               {"source", "bg"},
               {"preset", "Billow"},
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
    fs::remove_all(dir);
}

TEST(Smoke, PresetsWriteTheirValues) {
    SmokeDoc t;
    // Each preset's own values, with Look as its 0-based index and colours in words; -1 marks an
    // empty cell, which keeps the value set before (Puff Size 7, Wind Speed 77).
    struct Check {
        double demos;
        double preRoll, leftX, density, heat, look, puffSize, windSpeed, red, condensation;
    };
    const Check checks[] = {
        {0, 100, 0.4, 1000, 4.5, 0, -1, -1, 16000, 50},
        {7, 100, 0.139, 50, 20, 2, 20, 6, 32640, 20},
        {11, 50, 0.384, 1000, 1, 0, 20, -1, 32640, 0},
    };
    for (const Check& c : checks) {
        t.Set("Puze", 7.0);
        t.Set("Wied", 77.0);
        t.Set("Dem1", c.demos);
        EXPECT_EQ(t.Get("Prll"), c.preRoll) << c.demos;
        EXPECT_EQ(t.Get("Dety"), c.density) << c.demos;
        EXPECT_EQ(t.Get("Inat"), c.heat) << c.demos;
        EXPECT_EQ(t.Get("Lode"), c.look) << c.demos;
        EXPECT_EQ(t.Get("Puze"), c.puffSize < 0 ? 7.0 : c.puffSize) << c.demos;
        EXPECT_EQ(t.Get("Wied"), c.windSpeed < 0 ? 77.0 : c.windSpeed) << c.demos;
        EXPECT_EQ(t.Get("SmuR"), c.red * static_cast<double>(3.051851e-05f)) << c.demos;
        EXPECT_EQ(t.Get("Coon"), c.condensation) << c.demos;
        EXPECT_EQ(t.Get("Fade"), 2.0) << c.demos;
        auto* left = static_cast<Point*>(t.In("Left")->GetSource(0.0));
        EXPECT_EQ(left->x, c.leftX) << c.demos;
    }
    // An entry beyond the table gives "Dry Ice".
    t.engine->ApplyPreset(42, 0.0);
    EXPECT_EQ(t.Get("Dety"), 1000.0);
    EXPECT_EQ(t.Get("Grty"), 0.16);
}

TEST(Smoke, GoldenFramesOnAnyProcessorCount) {
    HostImage dusk = MakeHostImage(64, 48, Dusk);
    auto sequence = [&](int processors, double preset, double look) {
        ScopedProcessors scope(processors);
        SmokeDoc t;
        t.Set("Dem1", preset);
        t.Set("Lode", look);
        t.Set("Prll", 8.0);
        t.Press("Rel1");
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= 3; ++f)
            hashes.push_back(t.Hash(dusk.get(), f));
        return hashes;
    };
    // "Soft Swirl" as blurred points, "Wisp" as streaks, "Billow" as puffs in the wind: fresh
    // documents on one or eight processors give the same bits.
    const struct {
        double preset, look;
        std::vector<uint64_t> hashes;
    } cases[] = {
        {6.0, 0.0, {8750424868510476650ull, 3948490848681939855ull, 11855105833338255443ull}},
        {2.0, 1.0, {17430208876164724439ull, 17515518719120775158ull, 9238192308930042943ull}},
        {7.0, 2.0, {10898934553675058022ull, 18209028405881353774ull, 5091412557953637445ull}},
    };
    for (const auto& c : cases)
        for (int processors : {1, 8, 1})
            EXPECT_EQ(sequence(processors, c.preset, c.look), c.hashes) << c.preset << processors;
}

TEST(Smoke, OnScreenControls) {
    SmokeDoc t;
    HostImage dusk = MakeHostImage(100, 50, Dusk);
    t.Render(dusk.get(), 1.0);
    auto lines = [&] {
        ControlView view(t.op, 100, 50, 1.0, 1.0);
        return static_cast<int>(view.Draw().size());
    };
    // The birth line with its outline only while Wind is off or still.
    const int birthOnly = lines();
    EXPECT_TRUE(t.engine->birthControl->visible);
    EXPECT_FALSE(t.engine->windControl->visible);
    t.Set("Dond", 1.0);
    EXPECT_GT(lines(), birthOnly);
    EXPECT_TRUE(t.engine->windControl->visible);
    t.Set("Wied", 0.0);
    EXPECT_EQ(lines(), birthOnly);
}
