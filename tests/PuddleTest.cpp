// Puddle: its declaration and visibility rules, the presets, the drop list (exact rings on a tiny
// field, deaths by endurance, steps, scrubbing and replays), sequences that follow the frames
// rendered, flat water, golden sequences on any processor count and the light's handle.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/AppError.h"
#include "app/Controls.h"
#include "app/Flow.h"
#include "app/ImageFiles.h"
#include "surface/Puddle.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using Values = std::vector<std::pair<const char*, double>>;

struct PuddleDoc {
    explicit PuddleDoc(const Values& values = {})
        : op(static_cast<PuddleOperator*>(doc.AddTool("Puddle"))), engine(op->Puddle()) {
        for (const auto& [id, value] : values)
            Set(id, value);
    }
    Input* In(const std::string& id) const { return op->FindInput(id); }
    void Set(const std::string& id, double value) {
        Number n(value);
        In(id)->SetSource(&n, -1.0);
    }
    double Get(const std::string& id) const {
        return static_cast<Number*>(In(id)->GetSource(0.0))->value;
    }
    // A button click: 1 with a notification, then back to 0 without one.
    void Press(const std::string& id) {
        Set(id, 1.0);
        In(id)->SetConstant(0.0);
    }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    HostImage Render(Image* source, double time, Image* matte = nullptr) {
        Request request(op, time);
        request.SetInputImage(In("Puddle Surface"), source);
        if (matte) request.SetInputImage(In("Regional Matte"), matte);
        op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(op->MainOutput())));
    }
    uint64_t Hash(Image* source, double time, Image* matte = nullptr) {
        return HashImage(Render(source, time, matte));
    }
    // Frames first..last in order; their hashes.
    std::vector<uint64_t> Sequence(Image* source, int first, int last, Image* matte = nullptr) {
        std::vector<uint64_t> hashes;
        for (int f = first; f <= last; ++f)
            hashes.push_back(Hash(source, f, matte));
        return hashes;
    }

    FusionDoc doc;
    PuddleOperator* op;
    PuddleEngine* engine;
};

// A checker of cells 6 pixels wide, with blue and alpha that vary.
void Checker(int x, int y, uint16_t* p) {
    const bool dark = ((x / 6) + (y / 6)) % 2 == 0;
    p[0] = dark ? 8000 : 60000;
    p[1] = dark ? 12000 : 58000;
    p[2] = static_cast<uint16_t>(dark ? 30000 : 42000 + 100 * x);
    p[3] = static_cast<uint16_t>(65535 - 300 * y);
}

RainSettings Settings(float rate, float endurance, int width = 40, int height = 30) {
    RainSettings s;
    s.rate = rate;
    s.impact = 1.0f;
    s.radius = 0.1f;
    s.endurance = endurance;
    s.width = width;
    s.height = height;
    return s;
}

// The rings of every drop as the formulas read, pixel by pixel over each clipped box, with no
// search for the run of columns inside the ring and no split of the rows.
std::vector<float> Reference(const DropList& list, const RainSettings& s,
                             const WaveSineTable& table) {
    const int w = s.width, h = s.height;
    std::vector<float> field(static_cast<size_t>(w) * h, 0.0f);
    const double W = w, dx = 1.0 / (w - 1), dy = (static_cast<double>(h) / w) / (h - 1);
    const double a = s.aspect, impact = s.impact * 10.0;
    for (size_t k = 0; k < list.Size(); ++k) {
        const RainDrop& d = list.FromHead(k);
        if (d.amplitude < 0.004) continue;
        const float A = static_cast<float>(d.amplitude * -2.0);
        const double ring = static_cast<double>(d.speed) * d.age, R = ring * W;
        double x0 = W * d.x - R, x1 = W * d.x + R, y0 = W * d.y - R * a, y1 = W * d.y + R * a;
        x0 = x0 < 0 ? 0 : x0;
        x1 = x1 >= w ? w : x1;
        y0 = y0 < 0 ? 0 : y0;
        y1 = y1 >= h ? h - 1 : y1;
        if (x0 >= w || y0 >= h || x1 < 0 || y1 < 0) continue;
        double yn = y0 * dy;
        for (int iy = static_cast<int>(y0); iy <= y1; ++iy, yn += dy) {
            double xn = x0 * dx;
            for (int ix = static_cast<int>(x0); ix < x1; ++ix, xn += dx) {
                const double q = (d.y - yn) / a;
                const double e = std::sqrt((d.x - xn) * (d.x - xn) + q * q) - ring;
                if (e > 0) continue;
                const double v = e * impact;
                int i = static_cast<int>((v - std::trunc(v)) * 1024.0);
                if (i < 0) i += 1024;
                float& p = field[static_cast<size_t>(iy) * w + ix];
                p = static_cast<float>(p + static_cast<double>(A) * table.Entry(i));
            }
        }
    }
    return field;
}

}  // namespace

TEST(Puddle, DeclarationVisibilityAndRanges) {
    PuddleDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "Se18 Rein Reom Raeq Ract Raus Rare Rave Reex Fide Ouap Blnd Seed Uste Inte Doht "
              "Li10 LitZ Liht LiuR LiuG LiuB LiuA Glss Cost ChAb Puddle Surface Regional Matte ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Puddle", "Light"}));
    EXPECT_EQ(t.In("Regional Matte")->GetAttr(kInRequired, 1), 0);

    // What each combination of "Output Map", "Lighting" and "Use Matte" hides.
    HostImage source = MakeHostImage(8, 6, Checker);
    ASSERT_TRUE(t.Render(source.get(), 0.0));
    const std::vector<std::string> light = {"Liht", "Li10", "LitZ", "Glss",
                                            "Cost", "LiuR", "LiuG", "LiuB"};
    const std::vector<std::string> surface = {"ChAb", "Fide", "Uste", "Reex"};
    struct Case {
        double map, lighting, matte;
        bool lightHidden, lightingHidden, surfaceHidden, invertHidden;
    };
    const Case cases[] = {
        {0, 0, 0, true, false, false, true},   {0, 1, 0, false, false, false, true},
        {0, 1, 1, false, false, false, false}, {1, 1, 1, true, true, true, true},
        {1, 0, 0, true, true, true, true},     {0, 0, 1, true, false, false, false},
    };
    for (const Case& c : cases) {
        t.Set("Ouap", c.map);
        t.Set("Doht", c.lighting);
        t.Set("Uste", c.matte);
        for (const auto& id : light)
            EXPECT_EQ(t.Hidden(id), c.lightHidden) << id << " map " << c.map;
        for (const auto& id : surface)
            EXPECT_EQ(t.Hidden(id), c.surfaceHidden) << id << " map " << c.map;
        EXPECT_EQ(t.Hidden("Doht"), c.lightingHidden) << c.map;
        EXPECT_EQ(t.Hidden("Inte"), c.invertHidden) << c.map << c.matte;
        EXPECT_TRUE(t.Hidden("LiuA"));
    }

    // A flow refuses values outside a slider's range, by name.
    json flow = {
        {"size", {8, 8}},
        {"nodes",
         {{{"name", "bg"}, {"type", "Background"}},
          {{"name", "fx"}, {"type", "Puddle"}, {"source", "bg"}, {"inputs", {{"Raeq", 201}}}},
          {{"name", "out"}, {"type", "Saver"}, {"input", "fx"}, {"path", "unused.png"}}}}};
    EXPECT_THROW(Flow::FromJson(flow, "t.json"), AppError);
}

TEST(Puddle, PresetsWriteTheirValuesAndRestart) {
    PuddleDoc t;
    struct Check {
        double entry, freq, impact, radius, endurance, wave, refract, seed;
    };
    const Check checks[] = {
        {0, 80, 2.75, 2.5, 0.57, 2, 1.05, 557},
        {1, 20, 1, 10, 0.8, 5, 1.2, 557},
        {2, 0.01, 1, 20, 2, 2, 1.2, 567},
        {3, 20, 2, 10, 0.8, 10, 1.4, 557},
    };
    for (const Check& c : checks) {
        t.Set("Ouap", 1.0);
        t.Set("Doht", 1.0);
        t.Set("ChAb", 30.0);
        t.Set("Reom", -100.0);
        t.engine->restartPending = 0;
        t.Set("Se18", c.entry);
        const Values expected = {{"Raeq", c.freq},      {"Ract", c.impact}, {"Raus", c.radius},
                                 {"Rare", c.endurance}, {"Rave", c.wave},   {"Reex", c.refract},
                                 {"Seed", c.seed},      {"Ouap", 0},        {"Doht", 0},
                                 {"ChAb", 0},           {"Reom", -14}};
        for (const auto& [id, v] : expected)
            EXPECT_EQ(t.Get(id), v) << id << " entry " << c.entry;
        EXPECT_EQ(t.engine->restartPending, 1) << c.entry;
        // The switches' handlers ran: the surface's inputs are shown again.
        EXPECT_FALSE(t.Hidden("Reex"));
    }
    // An entry beyond the four gives "Pit-a-Pat".
    t.engine->ApplyPreset(9, 0.0);
    EXPECT_EQ(t.Get("Raeq"), 80.0);
}

TEST(PuddleDrops, RingOnATinyField) {
    WaveSineTable table;
    ASSERT_TRUE(table.Make());
    // One drop in the middle of a 5 x 5 field, its ring about 0.3 widths across. The box runs
    // from 0.99999994 (the ring's radius is not exact in float), so it starts on column 0 and
    // row 0, and their positions are those of columns and rows 1: the ring lies up and left by
    // almost a pixel.
    RainDrop d;
    d.x = d.y = 0.5f;
    d.age = 1.0f;
    d.speed = 0.3f;
    d.amplitude = 0.5f;
    RainSettings s = Settings(0.0f, 1.0f, 5, 5);
    s.impact = 0.5f;  // waves of a fifth of the width
    DropList list;
    list.Add(d);
    list.PrepareField(s);
    std::vector<float> field(25, 0.0f);
    list.SumRows(field.data(), table, 0, 4);
    EXPECT_EQ(field, Reference(list, s, table));
    // The centre falls on pixel (1, 1), a hair off: just short of one and a half waves inside the
    // ring, it reads the entry after the middle one. A quarter width from it, a quarter of a wave
    // inside the ring: the table's trough (or next to it) times -2 * amplitude.
    EXPECT_EQ(field[1 * 5 + 1], static_cast<float>(-1.0 * table.Entry(513)));
    EXPECT_EQ(field[0 * 5 + 1], static_cast<float>(-1.0 * table.Entry(767)));
    EXPECT_EQ(field[1 * 5 + 0], field[0 * 5 + 1]);
    EXPECT_EQ(field[1 * 5 + 2], 0.5f);
    EXPECT_EQ(field[2 * 5 + 1], 0.5f);
    for (int i : {3, 4, 8, 9, 12, 13, 14, 15, 20, 24})
        EXPECT_EQ(field[i], 0.0f) << i;
    EXPECT_EQ(list.FromHead(0).dead, 0);

    // Any split of the rows gives the same field.
    DropList many;
    for (int k = 0; k < 6; ++k) {
        RainDrop e = d;
        e.x = 0.1f + 0.15f * k;
        e.y = 0.9f - 0.13f * k;
        e.speed = 0.05f * (k + 1);
        many.Add(e);
    }
    s.width = s.height = 23;
    s.aspect = 0.9;
    many.PrepareField(s);
    std::vector<float> whole(23 * 23, 0.0f), split(23 * 23, 0.0f);
    many.SumRows(whole.data(), table, 0, 22);
    for (int first = 0; first < 23; first += 5)
        many.SumRows(split.data(), table, first, first + 4 > 22 ? 22 : first + 4);
    EXPECT_EQ(whole, split);
    EXPECT_EQ(whole, Reference(many, s, table));
}

TEST(PuddleDrops, DeathsFollowTheEnduranceFormula) {
    // Endurance, and the frame after birth at which the drops are found faded. Endurance 1, 2,
    // 0.5, 0.95 die a frame later and 0.85 a frame sooner if the decay, age and amplitude were
    // kept in double instead of single precision.
    const std::pair<float, int> cases[] = {{1.0f, 20},  {2.0f, 40},  {0.5f, 10},  {0.57f, 12},
                                           {0.85f, 18}, {0.95f, 20}, {10.0f, 201}};
    for (const auto& [endurance, death] : cases) {
        const RainSettings s = Settings(2.0f, endurance);
        DropList list;
        int32_t state = -7;
        list.Step(0, s, &state);
        ASSERT_GT(list.Size(), 0u);
        const RainSettings dry = Settings(0.0f, endurance);
        int gone = -1;
        for (int t = 1; t <= 300 && gone < 0; ++t) {
            list.Step(t, dry, &state);
            list.PrepareField(dry);
            list.RemoveDead();
            if (list.Size() == 0) gone = t;
        }
        EXPECT_EQ(gone, death) << endurance;
    }
    // An endurance of 0 leaves a drop no life: it is gone at its first render.
    DropList list;
    int32_t state = -7;
    list.Step(0, Settings(2.0f, 0.0f), &state);
    ASSERT_GT(list.Size(), 0u);
    list.PrepareField(Settings(2.0f, 0.0f));
    list.RemoveDead();
    EXPECT_EQ(list.Size(), 0u);
}

TEST(PuddleDrops, StepsScrubbingAndReplays) {
    auto births = [](const DropList& list) {
        std::multiset<int> b;
        for (size_t i = 0; i < list.Size(); ++i)
            b.insert(list.FromHead(i).birthFrame);
        return b;
    };
    DropList list;
    int32_t state = 0;
    for (int t : {1, 2, 3, 4, 5, 3}) {
        state = -(567 + t);
        list.Step(t, Settings(2.0f, 3.0f), &state);
    }
    // Back at frame 3: frames 4 and 5 are forgotten, and frame 3 landed the same drops twice.
    const std::multiset<int> b = births(list);
    const size_t n3 = b.count(3) / 2;
    EXPECT_EQ(b.count(4) + b.count(5), 0u);
    EXPECT_EQ(list.FromHead(0).x, list.FromHead(n3).x);
    EXPECT_FLOAT_EQ(list.FromHead(list.Size() - 1).age, 0.1f);  // a drop of frame 1, aged to 3
    // No rain draws nothing and lands nothing; the drops go on ageing.
    const size_t before = list.Size();
    state = -11;
    list.Step(4, Settings(0.0f, 3.0f), &state);
    EXPECT_EQ(state, -11);
    EXPECT_EQ(list.Size(), before);
    EXPECT_FLOAT_EQ(list.FromHead(0).age, 0.05f);
    // A replay from -14 at frame 0 puts the drops of frames -14 to -1 on the water; "Plip-Plop"'s
    // rate lands none.
    list.Replay(-14, 0, Settings(20.0f, 3.0f), &state);
    const std::multiset<int> replayed = births(list);
    EXPECT_EQ(std::set<int>(replayed.begin(), replayed.end()),
              (std::set<int>{-14, -13, -12, -11, -10, -9, -8, -7, -6, -5, -4, -3, -2, -1}));
    list.Replay(-14, 0, Settings(0.001f, 2.0f), &state);
    EXPECT_EQ(list.Size(), 0u);
}

TEST(Puddle, SequencesFollowTheFramesRendered) {
    HostImage source = MakeHostImage(40, 30, Checker);
    // Frame 10 alone differs from frame 10 after frames 1 to 9, and a second document repeats it.
    PuddleDoc a, b, c;
    const std::vector<uint64_t> run = a.Sequence(source.get(), 1, 10);
    EXPECT_EQ(b.Sequence(source.get(), 1, 10), run);
    EXPECT_NE(c.Hash(source.get(), 10), run.back());
    // Rendering frame 5 twice doubles its drops, and frame 10 shows it.
    PuddleDoc twice;
    twice.Sequence(source.get(), 1, 5);
    EXPECT_NE(twice.Sequence(source.get(), 5, 10).back(), run.back());

    // A preset, or "Restart Rain", forgets what went before: the frame is that of a document that
    // renders it first after the same restart.
    for (const char* how : {"preset", "press"}) {
        PuddleDoc used({{"Raeq", 40.0}}), fresh({{"Raeq", 40.0}});
        used.Sequence(source.get(), 1, 4);
        for (PuddleDoc* t : {&used, &fresh}) {
            if (std::string(how) == "preset")
                t->Set("Se18", 1.0);
            else
                t->Press("Rein");
        }
        EXPECT_EQ(used.Hash(source.get(), 7), fresh.Hash(source.get(), 7)) << how;
    }

    // Through flows: frames 4 to 6 after running up 1 to 3 equal those of a render from 1.
    const fs::path dir = fs::temp_directory_path() / "crate07-puddle-from-start";
    fs::create_directories(dir);
    auto flow = [&](const std::string& name) {
        return json{
            {"size", {40, 30}},
            {"nodes",
             {{{"name", "bg"}, {"type", "Background"}, {"pattern", "checker"}},
              {{"name", "fx"}, {"type", "Puddle"}, {"source", "bg"}, {"preset", "Brollies Up"}},
              {{"name", "out"},
               {"type", "Saver"},
               {"input", "fx"},
               {"path", (dir / (name + "_#.png")).string()}}}}};
    };
    Flow::FromJson(flow("full"), "t.json")->Render(1, 6);
    auto part = Flow::FromJson(flow("part"), "t.json");
    part->Advance(1, 3);
    part->Render(4, 6);
    auto hash = [&](const std::string& name) {
        return HashImage(*HostRef<Image>(LoadImageFile((dir / name).string())).get());
    };
    for (const char* n : {"4.png", "5.png", "6.png"})
        EXPECT_EQ(hash(std::string("full_") + n), hash(std::string("part_") + n)) << n;
    fs::remove_all(dir);
}

TEST(Puddle, FlatWaterAndTheSignOfTheIndex) {
    HostImage source = MakeHostImage(40, 30, Checker);
    auto frame = [&](const Values& values) {
        PuddleDoc t(values);
        t.Press("Rein");
        t.Sequence(source.get(), 1, 2);
        return t.Hash(source.get(), 3);
    };
    // A fresh first frame has no rings, and no wave height is flat water too.
    const uint64_t flat = PuddleDoc().Hash(source.get(), 3);
    EXPECT_EQ(frame({{"Rave", 0.0}}), flat);
    const uint64_t rain = frame({});
    EXPECT_NE(rain, flat);
    // With "Output Map" the first frame is mid-grey, 16383 exported to 16 bits, in all channels.
    HostImage map = PuddleDoc({{"Ouap", 1.0}}).Render(source.get(), 40.0);
    ASSERT_TRUE(map);
    for (int y = 0; y < map->height; ++y)
        for (int x = 0; x < map->width * 4; ++x)
            ASSERT_EQ(map->Row(y)[x], 32766) << x << "," << y;
    // "Blend" is read and does nothing.
    EXPECT_EQ(frame({{"Blnd", 100.0}}), rain);
    // A negative index bends as its size does; below 0.01 in size it is +0.01.
    EXPECT_EQ(frame({{"Reex", -1.2}}), rain);
    EXPECT_EQ(frame({{"Reex", -0.005}}), frame({{"Reex", 0.01}}));
}

TEST(Puddle, GoldenSequencesOnAnyProcessorCount) {
    HostImage source = MakeHostImage(48, 32, Checker);
    HostImage matte = MakeHostImage(48, 32, [](int x, int, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(x * 1400 > 65535 ? 65535 : x * 1400);
        p[3] = 65535;
    });
    struct Case {
        const char* name;
        Values values;
        bool matte;
        std::vector<uint64_t> golden;
    };
    const std::vector<Case> cases = {
        {"defaults",
         {},
         false,
         {12427198618448561153ull, 7493642130666871253ull, 13158651140215898858ull}},
        {"flood, lit, chromatic",
         {{"Se18", 3.0}, {"Doht", 1.0}, {"ChAb", 20.0}, {"Cost", 80.0}},
         false,
         {9071657976048009081ull, 14979487380107970093ull, 8347893547180448378ull}},
        {"matte, wrap",
         {{"Se18", 1.0}, {"Uste", 1.0}, {"Inte", 1.0}, {"Fide", 2.0}},
         true,
         {18164978070030458730ull, 4343373650604869011ull, 15094816867206360452ull}},
        {"map",
         {{"Se18", 0.0}, {"Ouap", 1.0}},
         false,
         {10903141320586746171ull, 554562877151887635ull, 1756634540874304131ull}},
    };
    for (const Case& k : cases) {
        std::vector<uint64_t> hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors processors(i == 0 ? 1 : 8);
            PuddleDoc t(k.values);
            t.Press("Rein");
            hashes[i] = t.Sequence(source.get(), 1, 3, k.matte ? matte.get() : nullptr);
        }
        EXPECT_EQ(hashes[0], hashes[1]) << k.name;
        EXPECT_EQ(hashes[0], k.golden) << k.name;
    }
}

TEST(Puddle, LightHandleDragsWithUndo) {
    FusionDoc doc;
    auto* op = static_cast<PuddleOperator*>(doc.AddTool("Puddle"));
    PuddleEngine* engine = op->Puddle();
    ControlView view(op, 200, 100, 1.0, 1.0);
    view.Draw();
    EXPECT_FALSE(engine->lightControl->visible);
    op->FindInput("Doht")->SetConstant(1.0);
    view.Draw();
    ASSERT_TRUE(engine->lightControl->visible);
    // The handle stands at (0.75, 0.75) of the picture; dragged to (50, 20) it sets the point.
    ControlView::DragReport r = view.Drag(150.0f, 75.0f, 50.0f, 20.0f);
    EXPECT_EQ(r.input, "Li10");
    ASSERT_EQ(r.written.size(), 1u);
    EXPECT_NEAR(r.written["Li10"][0].get<double>(), 0.25, 1e-9);
    EXPECT_NEAR(r.written["Li10"][1].get<double>(), 0.2, 1e-9);
    EXPECT_EQ(r.undo, std::vector<std::string>{"Puddle: Light"});
    EXPECT_EQ(doc.UndoSteps().size(), 1u);
}
