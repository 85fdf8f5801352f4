// Snow as a tool: its declaration and visibility rules, exact pixels of points, fades and the three
// stamp blends, settling (at birth, never, kept and lost), repeatability with settling on, golden
// frames per look, the presets and the on-screen controls.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/Controls.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "particles/Snow.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct SnowDoc {
    SnowDoc() : op(static_cast<SnowOperator*>(doc.AddTool("Snow"))), engine(op->Snow()) {}
    Input* In(const std::string& id) const { return op->FindInput(id); }
    void Set(const std::string& id, double value) {
        Number n(value);
        In(id)->SetSource(&n, -1.0);
    }
    double Get(const std::string& id) const {
        return static_cast<Number*>(In(id)->GetSource(0.0))->value;
    }
    void Press(const std::string& id) {
        Set(id, 1.0);
        In(id)->SetConstant(0.0);
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    HostImage Render(Image* background, double time, Image* settle = nullptr) {
        Request request(op, time);
        request.SetInputImage(In("Background Clip"), background);
        if (settle) request.SetInputImage(In("Settle Clip"), settle);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }
    uint64_t Hash(Image* background, double time, Image* settle = nullptr) {
        return HashImage(Render(background, time, settle));
    }
    bool MaskEmpty() const {
        const WorkImage& m = *engine->settleMask;
        return std::all_of(m.pixels, m.pixels + size_t{4} * m.width * m.height,
                           [](uint16_t v) { return v == 0; });
    }

    FusionDoc doc;
    SnowOperator* op;
    SnowEngine* engine;
};

HostImage Solid(int w, int h, uint16_t v) {
    return MakeHostImage(w, h, [v](int, int, uint16_t* p) {
        p[0] = p[1] = p[2] = v;
        p[3] = 65534;
    });
}

void Sky(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(2000 + 40 * x);
    p[1] = static_cast<uint16_t>(3000 + 30 * y);
    p[2] = 14000;
    p[3] = 65534;
}

// Ledges: white where (x / 10 + y / 8) is even.
void Ledges(int x, int y, uint16_t* p) {
    p[0] = p[1] = p[2] = ((x / 10 + y / 8) % 2) ? 0 : 65534;
    p[3] = 65534;
}

}  // namespace

TEST(Snow, DeclarationAndVisibility) {
    SnowDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "Dem1 Rem1 Rel1 Dol1 Prll Adce Left Riht Poar Dety Lime Inty Vear Lode Flze Flar "
              "Snle Sety Doas Drow Sias Rem2 Rel2 Dol2 Doty Grty Grle Doon Fron Dond Wice Wiet "
              "Mual Wiad Wied Doce Swns Swmp Swim Rem4 Rel4 Dol4 Coar Moar SnuR SnuG SnuB SnuA "
              "Fade Dont Glce Glet Glht Glne Glty GluR GluG GluB GluA Code Background Clip Settle "
              "Clip ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Snow", "Forces", "Colour", "Glints"}));
    EXPECT_EQ(t.In("Settle Clip")->GetAttr(kInRequired, 1), 0);

    HostImage sky = MakeHostImage(8, 6, Sky);
    t.Render(sky.get(), 1.0);
    for (const char* id : {"Sety", "Drow", "Sias", "Wice", "Wiet", "Mual", "Wiad", "Wied", "Glce",
                           "Glht", "Glty", "GluR", "Code", "SnuA"})
        EXPECT_TRUE(t.Hidden(id)) << id;
    for (const char* id : {"Flze", "Flar", "Grty", "Fron", "Swns", "SnuR"})
        EXPECT_FALSE(t.Hidden(id)) << id;
    // A table of switches and the inputs they show or hide.
    struct Rule {
        const char* id;
        double value;
        const char* input;
        bool hidden;
    };
    const Rule rules[] = {
        {"Lode", 1, "Flze", true},  {"Lode", 3, "Flar", false}, {"Snle", 1, "Sety", false},
        {"Doas", 1, "Sias", false}, {"Dond", 1, "Wiad", false}, {"Mual", 1, "Wiad", true},
        {"Mual", 1, "Wied", false}, {"Dont", 1, "GluG", false}, {"Code", 1, "GluG", true},
        {"Code", 2, "GluG", false}, {"Dont", 0, "Code", true},  {"Doce", 0, "Swim", true},
    };
    for (const Rule& r : rules) {
        t.Set(r.id, r.value);
        EXPECT_EQ(t.Hidden(r.input), r.hidden) << r.id << " " << r.value << " " << r.input;
    }
}

TEST(Snow, FirstPointsAreWhiteNearTheBirthLine) {
    HostImage black = Solid(60, 40, 0);
    SnowDoc t;
    t.Set("Lode", 0);
    t.Set("Fade", 1);
    HostImage out = t.Render(black.get(), 1.0);
    const int born = t.engine->bornLastStep;
    EXPECT_GE(born, 18);
    EXPECT_LE(born, 22);
    // Every lit pixel is full white, within Position Var (0.02 of the width) of the line y = 32.
    int lit = 0;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 60; ++x) {
            const uint16_t* p = out->Row(y) + x * 4;
            if (p[0] == 0 && p[3] == 65535) continue;
            ++lit;
            EXPECT_EQ(p[0], 65535);
            EXPECT_EQ(p[2], 65535);
            EXPECT_NEAR(y, 32, 2);
            EXPECT_TRUE(x >= 11 && x <= 49) << x;
        }
    EXPECT_GE(lit, 1);
    EXPECT_LE(lit, born);
}

TEST(Snow, FadesGiveTheirDensityByAge) {
    SnowEngine e;
    WorkImage out(4, 4);
    e.outputPort.image = &out;
    e.pool.params.width = e.pool.params.height = 4;
    e.look.look = 0;
    ParticleRecord r{};
    r.x = r.y = 1.0f;
    r.red = r.green = r.blue = 16000.0f;  // luminance 16000
    r.alpha = 32767.0f;
    r.extinction = 8000;
    r.lifetime = 200;
    struct Case {
        int fade, age, expected;
    };
    const Case cases[] = {{2, 0, 32767}, {2, 1, 32762},   {2, 100, 32357}, {2, 7999, 4},
                          {0, 0, 16000}, {0, 100, 15800}, {1, 7000, 16000}};
    for (const Case& c : cases) {
        out.Fill(0, 0, 0, 0);
        e.look.fadeMode = c.fade;
        r.age = static_cast<float>(c.age);
        e.DrawParticle(r, 0, 3);
        // Over black the alpha is the density itself.
        EXPECT_EQ(out.Pixel(1, 1)[3], c.expected) << c.fade << " " << c.age;
    }
}

TEST(Snow, SizeIsARadiusAtTheReferenceWidth) {
    // With no variation every flake takes stamp trunc(Size * W / 720 * 2.05), at most 40.
    struct Case {
        int width;
        double size;
        int stamp;
    };
    const Case cases[] = {{72, 4, 0},  {144, 4, 1},   {720, 4, 8},
                          {720, 1, 2}, {720, 20, 40}, {360, 10, 10}};
    for (const Case& c : cases) {
        HostImage sky = MakeHostImage(c.width, 20, Sky);
        SnowDoc t;
        t.Set("Flar", 0);
        t.Set("Flze", c.size);
        t.Render(sky.get(), 1.0);
        ASSERT_GT(t.engine->pool.activeCount, 0);
        for (const ParticleRecord* r = t.engine->pool.activeHead; r; r = r->next)
            EXPECT_EQ(r->stampIndex, c.stamp) << c.width << " " << c.size;
    }
}

TEST(Snow, StampBlendsExactly) {
    const int32_t values[] = {0, 128, 255, 300};
    const StampView stamp{2, 2, values};
    const int rgb[3] = {32767, 16384, 0};
    struct Case {
        StampBlend blend;
        uint16_t old;
        int A;
        uint16_t px[4][4];  // pixels (0,0), (1,0), (0,1), (1,1) after the stamp at (1, 1)
    };
    const Case cases[] = {
        // Output: c = (min(s, 255) * A) >> 8, complement 32767, shift 15; a value of 0 still
        // takes one step off.
        {StampBlend::Output,
         1000,
         32767,
         {{999, 999, 999, 999},
          {16882, 8691, 500, 16882},
          {32641, 16323, 3, 32641},
          {32641, 16323, 3, 32641}}},
        // Mask: all four channels become ((32768 - c) * old0 + c * A) >> 15, c at most 32767.
        {StampBlend::Mask,
         1000,
         20000,
         {{1000, 1000, 1000, 1000},
          {6798, 6798, 6798, 6798},
          {12550, 12550, 12550, 12550},
          {14589, 14589, 14589, 14589}}},
        // Colour: c as the mask, complement 32768.
        {StampBlend::Colour,
         1000,
         20000,
         {{1000, 1000, 1000, 1000},
          {10694, 5694, 694, 10694},
          {20312, 10352, 392, 20312},
          {23721, 12003, 284, 23721}}},
    };
    for (const Case& c : cases) {
        WorkImage img(2, 2);
        img.Fill(c.old, c.old, c.old, c.old);
        LayStamp(&img, stamp, 1, 1, c.A, rgb, c.blend, 0, 1);
        for (int i = 0; i < 4; ++i)
            for (int k = 0; k < 4; ++k)
                EXPECT_EQ(img.Pixel(i % 2, i / 2)[k], c.px[i][k])
                    << static_cast<int>(c.blend) << " pixel " << i << " channel " << k;
    }
    // Rows outside the band are left alone.
    WorkImage img(2, 2);
    img.Fill(7, 7, 7, 7);
    LayStamp(&img, stamp, 1, 1, 32767, rgb, StampBlend::Output, 0, 0);
    EXPECT_EQ(img.Pixel(0, 1)[0], 7);
}

TEST(Snow, SettleOnWithNothingSettledLowersSamplesByOneStep) {
    HostImage sky = MakeHostImage(48, 32, Sky);
    HostImage black = Solid(48, 32, 0);
    for (int look : {0, 1, 2, 3}) {
        auto run = [&](bool settle) {
            SnowDoc t;
            t.Set("Lode", look);
            t.Set("Snle", settle ? 1 : 0);
            HostImage out;
            for (int f = 1; f <= 5; ++f)
                out = t.Render(sky.get(), f, black.get());
            return out;
        };
        HostImage off = run(false), on = run(true);
        for (int y = 0; y < 32; ++y)
            for (int i = 0; i < 48 * 4; ++i) {
                const int w = off->Row(y)[i] >> 1, v = on->Row(y)[i] >> 1;
                // Flakes and stars: the empty layers' overlay takes one step from every sample.
                const int expected = look >= 2 && w > 0 ? w - 1 : w;
                ASSERT_EQ(v, expected) << "look " << look << " row " << y << " sample " << i;
            }
    }
}

TEST(Snow, SettlingAtBirthNeverAndKept) {
    HostImage white = Solid(40, 30, 65534), black = Solid(40, 30, 0);
    SnowDoc t;
    t.Set("Snle", 1);
    t.Set("Sety", 100);
    t.Render(white.get(), 1.0);
    // Every flake settled where it was born and is gone at the update.
    EXPECT_GT(t.engine->bornLastStep, 0);
    EXPECT_EQ(t.engine->pool.activeCount, 0);
    EXPECT_FALSE(t.MaskEmpty());
    // Do PreRoll keeps the layers, Restart clears them, a new size replaces them.
    const uint64_t settled = HashWork(*t.engine->settleMask);
    t.Press("Dol1");
    EXPECT_EQ(HashWork(*t.engine->settleMask), settled);
    t.Press("Rem2");
    EXPECT_TRUE(t.MaskEmpty());
    t.Render(white.get(), 2.0);
    EXPECT_FALSE(t.MaskEmpty());
    HostImage small = Solid(20, 15, 0);
    t.Render(small.get(), 3.0);
    EXPECT_EQ(t.engine->settleMask->width, 20);
    EXPECT_TRUE(t.MaskEmpty());
    t.Render(white.get(), 4.0);
    t.Set("Dem1", 3);
    EXPECT_TRUE(t.MaskEmpty());

    // Over black nothing ever settles.
    SnowDoc n;
    n.Set("Snle", 1);
    n.Set("Sety", 100);
    for (int f = 1; f <= 30; ++f)
        n.Render(black.get(), f);
    EXPECT_TRUE(n.MaskEmpty());
}

TEST(Snow, RepeatableWithSettling) {
    HostImage sky = MakeHostImage(64, 48, Sky);
    HostImage ledges = MakeHostImage(64, 48, Ledges);
    auto run = [&](int processors) {
        ScopedProcessors scope(processors);
        SnowDoc t;
        t.Set("Dem1", 6);  // "Glitter": stars of random colours, glints
        t.Set("Lode", 2);
        t.Set("Snle", 1);
        t.Set("Sety", 40);
        t.Set("Flze", 6);
        t.Set("Prll", 20);
        t.Press("Rel1");
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= 12; ++f)
            hashes.push_back(t.Hash(sky.get(), f, ledges.get()));
        return hashes;
    };
    const std::vector<uint64_t> one = run(1);
    EXPECT_EQ(run(1), one);
    EXPECT_EQ(run(8), one);
    EXPECT_NE(one[10], one[11]);
}

TEST(Snow, FromStartFramesEqualAFullRender) {
    const fs::path dir = fs::temp_directory_path() / "crate07-snow-from-start";
    fs::remove_all(dir);
    fs::create_directories(dir);
    auto flow = [&](const std::string& name) {
        return json{
            {"size", {40, 30}},
            {"range", {1, 6}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}, {"colour", {4000, 6000, 12000, 65535}}},
              {{"name", "shape"}, {"type", "Background"}, {"pattern", "checker"}, {"cell", 8}},
              {{"name", "fx"},
               {"type", "Snow"},
               {"source", "bg"},
               {"connect", {{"Settle Clip", "shape"}}},
               {"preset", "Heavy"},
               {"press", {{"Rel1", 1}}},
               {"inputs", {{"Prll", 10}, {"Snle", 1}, {"Dety", 30}}}},
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

TEST(Snow, GoldenFrames) {
    HostImage sky = MakeHostImage(64, 48, Sky);
    HostImage ledges = MakeHostImage(64, 48, Ledges);
    auto sequence = [&](int look, bool settle) {
        SnowDoc t;
        t.Set("Lode", look);
        t.Set("Snle", settle ? 1 : 0);
        t.Set("Dont", 1);
        t.Set("Glty", 90);
        t.Set("Code", 2);
        t.Set("Prll", 30);
        t.Press("Rel1");
        std::vector<uint64_t> hashes;
        for (int f = 1; f <= 3; ++f)
            hashes.push_back(t.Hash(sky.get(), f, ledges.get()));
        EXPECT_EQ(t.MaskEmpty(), !settle);
        return hashes;
    };
    const std::vector<std::vector<uint64_t>> expected = {
        {1543232062555665931ull, 3621163800782117807ull, 4812091043880806357ull},
        {9835924036011407770ull, 3811816723775801594ull, 4321065662293436265ull},
        {13588460948691907786ull, 10686178692409466945ull, 3111638616347217149ull},
        {10115135509287939537ull, 17965143714147053092ull, 8313406881831765876ull},
        {3290916760562510100ull, 11367392517297332334ull, 14358846885392130866ull},
    };
    const std::vector<std::vector<uint64_t>> got = {sequence(0, false), sequence(1, false),
                                                    sequence(2, false), sequence(3, false),
                                                    sequence(2, true)};
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_EQ(got[i], expected[i]) << i;
}

TEST(Snow, PresetsWriteTheirValues) {
    SnowDoc t;
    // Look and Colour as 0-based entries; -1 where the preset leaves the input alone (Wind Speed
    // 77, Colour 1).
    struct Check {
        double demos, preRoll, density, look, windSpeed, glints, code;
    };
    const Check checks[] = {{0, 100, 120, 2, 26, 0, -1},
                            {1, 150, 20, 2, -1, 0, -1},
                            {6, 300, 25, 2, 3.25, 1, 2},
                            {10, 80, 25, 3, -1, 1, 2},
                            {11, 80, 400, 2, 12, 1, 0}};
    for (const Check& c : checks) {
        t.Set("Wied", 77);
        t.Set("Code", 1);
        t.Set("Dem1", c.demos);
        const double got[] = {t.Get("Prll"), t.Get("Dety"), t.Get("Lode"),
                              t.Get("Wied"), t.Get("Dont"), t.Get("Code")};
        const double want[] = {c.preRoll, c.density,
                               c.look,    c.windSpeed < 0 ? 77 : c.windSpeed,
                               c.glints,  c.code < 0 ? 1 : c.code};
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(got[i], want[i]) << c.demos << " " << i;
    }
    t.Set("Dem1", 8);  // "Vomit"
    EXPECT_EQ(t.Get("SnuG"), 24448 * static_cast<double>(3.051851e-05f));
    t.engine->ApplyPreset(99, 0.0);  // beyond the table: "Blizzard"
    EXPECT_EQ(t.Get("Sias"), 10.0);
}

TEST(Snow, OnScreenControls) {
    SnowDoc t;
    HostImage sky = MakeHostImage(100, 50, Sky);
    t.Render(sky.get(), 1.0);
    ControlView view(t.op, 100, 50, 1.0, 1.0);
    const size_t birthOnly = view.Draw().size();
    t.Set("Dont", 1);
    EXPECT_GT(view.Draw().size(), birthOnly);
    t.Set("Glty", 0);  // the glint pair hides again, and catches nothing
    EXPECT_EQ(view.Draw().size(), birthOnly);
    EXPECT_EQ(view.Drag(90, 25, 60, 25).control, 0);
    ControlView::DragReport r = view.Drag(80, 40, 70, 30);
    EXPECT_EQ(r.input, "Riht");
    t.Set("Dond", 1);
    EXPECT_EQ(view.Drag(20, 20, 25, 20).input, "Wice");
}
