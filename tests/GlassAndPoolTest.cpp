// Glass and Pool: inputs and rules, golden frames on 1 and 8 processors, Glass's heights, flat
// pane, inert light and smoothing step, Pool's blend, still water, spokes, wave and aspect, and
// the drags of both tools' controls.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app/Controls.h"
#include "surface/Glass.h"
#include "surface/Pool.h"
#include "surface/PoolControls.h"
#include "surface/Ripple.h"
#include "tests/TestSupport.h"

namespace {

using Values = std::vector<std::pair<const char*, double>>;

// A tool whose main image goes to `main` and a second, optional one to `second`.
template <class Op>
struct SurfaceDoc : ToolDoc<Op> {
    SurfaceDoc(const char* tool, const char* mainInput, const char* secondInput,
               const Values& values)
        : ToolDoc<Op>(tool), main(mainInput), second(secondInput) {
        for (const auto& [id, value] : values)
            this->Set(id, value);
    }
    int64_t Attr(const char* id, uint32_t tag, int64_t otherwise) const {
        return this->op->FindInput(id)->GetAttr(tag, otherwise);
    }
    HostImage Render(Image* image, Image* secondImage = nullptr) {
        Request request(this->op, 0.0);
        request.SetInputImage(this->op->FindInput(main), image);
        if (secondImage) request.SetInputImage(this->op->FindInput(second), secondImage);
        this->op->Process(&request);
        return HostImage(static_cast<Image*>(request.TakeOutputData(this->op->MainOutput())));
    }
    uint64_t Hash(Image* image, Image* secondImage = nullptr) {
        return HashImage(Render(image, secondImage));
    }
    const char* main;
    const char* second;
};

struct GlassDoc : SurfaceDoc<GlassOperator> {
    explicit GlassDoc(const Values& v = {}) : SurfaceDoc("Glass", "Behind Glass", "Glass", v) {}
    GlassEngine& E() const { return *op->Glass(); }
    float Height(int x, int y) const { return E().maps.heightMap[y * E().maps.width + x]; }
};

struct PoolDoc : SurfaceDoc<PoolOperator> {
    explicit PoolDoc(const Values& v = {})
        : SurfaceDoc("Pool", "Clip to Undulate", "Regional Matte", v) {}
    PoolEngine& E() const { return *op->Pool(); }
};

// The hash of the frame that `render` makes, the same on 1 and 8 processors.
uint64_t SteadyHash(const std::function<uint64_t()>& render) {
    uint64_t hashes[2];
    for (int i = 0; i < 2; ++i) {
        ScopedProcessors processors(i == 0 ? 1 : 8);
        hashes[i] = render();
    }
    EXPECT_EQ(hashes[0], hashes[1]);
    return hashes[0];
}

std::unique_ptr<WorkImage> Work(const HostImage& image) {
    return std::unique_ptr<WorkImage>(ImportImage(image.get(), nullptr, false, nullptr));
}

std::string Ids(ToolOperator* op) {
    std::string ids;
    for (Input* in : op->Inputs())
        ids += in->ID().str() + " ";
    return ids;
}

}  // namespace

TEST(Glass, InputsAndRules) {
    GlassDoc t({{"LiBr", 0.00009}});
    EXPECT_EQ(Ids(t.op),
              "BHei WHei Indx Invt ImgF Smoo ChAb LiOn LiPo LigZ LiBr LiuR LiuG LiuB LiuA Glos "
              "Cont Glass Behind Glass ");
    EXPECT_EQ(t.Attr("Glass", kInRequired, 1), 0);
    EXPECT_EQ(t.Attr("Behind Glass", kInConnector, 0), 1);
    // Brightness below 0.0001 at the first frame greys out the light's settings for good; they
    // show only with "Light Active" on.
    HostImage picture = MakeHostImage(6, 5, Pattern16);
    ASSERT_TRUE(t.Render(picture.get()));
    for (double active : {0.0, 1.0, 0.0}) {
        t.Set("LiOn", active);
        t.Set("LiBr", 50.0);
        for (const char* id : {"Glos", "Cont", "LiuR", "LiuB", "LiPo", "LigZ"}) {
            EXPECT_EQ(t.Attr(id, kInDisabled, 0), 1) << id;
            EXPECT_EQ(t.Attr(id, kInVisible, 1), active) << id;
        }
        EXPECT_EQ(t.Attr("LiBr", kInVisible, 1), active);
        EXPECT_EQ(t.Attr("LiuA", kInVisible, 1), 0);
    }
    GlassDoc bright({{"LiBr", 0.0001}});
    ASSERT_TRUE(bright.Render(picture.get()));
    EXPECT_EQ(bright.Attr("Glos", kInDisabled, 0), 0);
}

TEST(Glass, GoldenFrames) {
    HostImage picture = MakeHostImage(40, 30, Pattern16);
    HostImage texture = MakeHostImage(20, 15, [](int x, int y, uint16_t* p) {
        const int v = ((x * 37 + y * 23) % 64) * 1000;  // scaled up to the picture's size
        p[0] = static_cast<uint16_t>(v);
        p[1] = static_cast<uint16_t>(v / 2 + 20000);
        p[2] = static_cast<uint16_t>(65535 - v);
        p[3] = 65535;
    });
    const struct {
        Values values;
        uint64_t golden;
    } cases[] = {
        {{{"WHei", 60}}, 0x8b7acfd402b92051ull},
        {{{"WHei", 80}, {"Smoo", 3}, {"Invt", 1}, {"ImgF", 1}}, 0x1c53842402f0f8c3ull},
        {{{"Indx", 3}, {"ImgF", 2}, {"BHei", 40}}, 0x7a0e6856fb8c5578ull},
        {{{"WHei", 50}, {"ChAb", 40}}, 0xb02fa6dd20e28465ull},
        {{{"WHei", 50}, {"LiOn", 1}, {"Glos", 20}, {"Cont", 70}, {"LiuG", 0.5}},
         0x2d747b4a80c4a075ull},
    };
    for (const auto& k : cases) {
        const uint64_t hash = SteadyHash([&] {
            GlassDoc t(k.values);
            t.SetPoint("LiPo", 0.3, 0.6);
            const uint64_t h = t.Hash(picture.get(), texture.get());
            EXPECT_EQ(t.Hash(picture.get(), texture.get()), h);  // nothing carried over
            return h;
        });
        EXPECT_EQ(hash, k.golden) << k.values[0].first << " 0x" << std::hex << hash;
    }
    // An open "Glass" is the picture refracting through itself.
    EXPECT_EQ(GlassDoc({{"WHei", 60}}).Hash(picture.get(), picture.get()),
              GlassDoc({{"WHei", 60}}).Hash(picture.get()));
}

TEST(Glass, HeightsFromTheTexture) {
    HostImage picture = MakeHostImage(5, 3, Pattern16);
    // Columns 0-1 white, 2-3 pure red, green or blue, 4 black; heights at x = 0..3.
    const struct {
        Values values;
        int colour;
        float want[4];
    } cases[] = {
        {{}, 0, {0.2f, 0.165f, 0.13f, 0.115f}},  // weights 3, 5, 2 of 10
        {{}, 2, {0.2f, 0.16f, 0.12f, 0.11f}},
        {{{"BHei", 20}, {"WHei", 10}}, 1, {0.3f, 0.275f, 0.25f, 0.225f}},  // bright still rises
        {{{"Invt", 1}}, 1, {0.1f, 0.125f, 0.15f, 0.175f}},  // only "Invert map" turns it over
    };
    for (const auto& c : cases) {
        HostImage tex = MakeHostImage(5, 3, [&](int x, int, uint16_t* p) {
            for (int i = 0; i < 3; ++i)
                p[i] = x < 2 || (x < 4 && i == c.colour) ? 65535 : 0;
            p[3] = 65535;
        });
        GlassDoc t(c.values);
        ASSERT_TRUE(t.Render(picture.get(), tex.get()));
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 4; ++x)
                EXPECT_NEAR(t.Height(x, y), c.want[x], 2e-7) << c.colour << " " << x << "," << y;
            EXPECT_EQ(t.Height(4, y), t.Height(3, y));  // the last column and row repeat
            EXPECT_EQ(t.Height(y, 2), t.Height(y, 1));
        }
    }
}

TEST(Glass, FlatPaneInertLightAndSmoothing) {
    HostImage picture = MakeHostImage(12, 9, [](int x, int y, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(4000 * x + 2000 * y);
        p[3] = 65535;
    });
    // A flat pane moves nothing, but its box lies half a pixel low: each pixel is the mean of
    // itself and the three before it (on the 15-bit scale).
    auto out = Work(GlassDoc({{"BHei", 35}, {"WHei", 35}}).Render(picture.get()));
    for (int y = 1; y < 8; ++y)
        for (int x = 1; x < 11; ++x)
            EXPECT_NEAR(out->Pixel(x, y)[0], 2000 * x + 1000 * y - 1500, 2) << x << "," << y;
    EXPECT_EQ(GlassDoc({{"BHei", 5}, {"WHei", 5}}).Hash(picture.get()),
              GlassDoc({{"BHei", 80}, {"WHei", 80}}).Hash(picture.get()));
    // With the light off its settings do nothing; "Brightness" 0 is off as well.
    HostImage busy = MakeHostImage(30, 20, Pattern16);
    const uint64_t unlit = GlassDoc({{"WHei", 50}}).Hash(busy.get());
    EXPECT_EQ(GlassDoc({{"WHei", 50}, {"LiBr", 30}, {"Glos", 3}, {"Cont", 20}, {"LigZ", 3}})
                  .Hash(busy.get()),
              unlit);
    EXPECT_EQ(GlassDoc({{"WHei", 50}, {"LiOn", 1}, {"LiBr", 0}, {"Cont", 20}}).Hash(busy.get()),
              unlit);
    EXPECT_NE(GlassDoc({{"WHei", 50}, {"LiOn", 1}}).Hash(busy.get()), unlit);
    // "Smoothing" counts pixels of a picture 720 wide: width, smoothing, step.
    const int steps[][3] = {{720, 10, 10}, {1920, 10, 27}, {360, 10, 5}, {720, 0, 0}, {100, 7, 1}};
    for (const auto& s : steps) {
        GlassDoc t({{"Smoo", s[1]}});
        ASSERT_TRUE(t.Render(MakeHostImage(s[0], 2, Pattern16).get()));
        EXPECT_EQ(t.E().neighbourStep, s[2]) << s[0] << " " << s[1];
        EXPECT_EQ(t.E().surface.neighbourStep, s[2] + 1);
    }
}

TEST(Pool, InputsAndRules) {
    PoolDoc t;
    EXPECT_EQ(Ids(t.op),
              "Ceer Raus Frcy Phse Heht Fide Pode Tiss Blnd Uste Inte Doht Li65 LitZ Liht LiuR "
              "LiuG LiuB LiuA Glss Cost ChAb Clip to Undulate Regional Matte ");
    ASSERT_TRUE(t.Render(MakeHostImage(6, 5, Pattern16).get()));
    // After each change: are the light's inputs, "Tightness" and "Invert Matte" shown?
    const struct {
        const char* id;
        double value;
        int light, tightness, invert;
    } steps[] = {{"Fide", 1, 0, 0, 0}, {"Doht", 1, 1, 0, 0}, {"Pode", 3, 1, 1, 0},
                 {"Pode", 2, 1, 0, 0}, {"Uste", 1, 1, 0, 1}, {"Doht", 0, 0, 0, 1}};
    for (const auto& s : steps) {
        t.Set(s.id, s.value);
        for (const char* id : {"Liht", "Li65", "LitZ", "Glss", "Cost", "LiuR", "LiuB"})
            EXPECT_EQ(t.Attr(id, kInVisible, 1), s.light) << s.id << " " << id;
        EXPECT_EQ(t.Attr("Tiss", kInVisible, 1), s.tightness) << s.id;
        EXPECT_EQ(t.Attr("Inte", kInVisible, 1), s.invert) << s.id;
    }
}

TEST(Pool, GoldenFrames) {
    HostImage source = MakeHostImage(40, 30, Pattern16);
    HostImage matte = MakeHostImage(40, 30, [](int x, int, uint16_t* p) {
        p[0] = p[1] = p[2] = static_cast<uint16_t>(x * 1600);
        p[3] = 65535;
    });
    const struct {
        Values values;
        uint64_t golden;
    } cases[] = {
        {{{"Heht", 3}}, 0x438217700cdfd7daull},
        {{{"Pode", 1}, {"Heht", 3}, {"Phse", 0.3}}, 0x2cfb8a4aa57e1774ull},
        {{{"Pode", 2}, {"Heht", 3}, {"Frcy", 12}}, 0x195ed5793b364966ull},
        {{{"Pode", 3}, {"Heht", 3}, {"Tiss", 9}}, 0x513148a4b000535eull},
        {{{"Pode", 3}, {"Heht", 3}, {"Tiss", -13.5}}, 0x6b61db65a39c5c51ull},
        {{{"Raus", 0.1}, {"Frcy", 30}, {"Heht", 5}, {"Fide", 2}}, 0x3e8f244bc6a13ae3ull},
        {{{"Heht", 2}, {"ChAb", 30}, {"Doht", 1}, {"Cost", 80}, {"LiuB", 0.4}},
         0x6f442bc452aeef5ull},
        {{{"Heht", 4}, {"Uste", 1}, {"Blnd", 35}, {"Fide", 1}}, 0x8cab8790e2a8d838ull},
    };
    for (const auto& k : cases) {
        const uint64_t hash = SteadyHash([&] {
            PoolDoc t(k.values);
            t.SetPoint("Ceer", 0.4, 0.55);
            const uint64_t h = t.Hash(source.get(), matte.get());
            EXPECT_EQ(t.Hash(source.get(), matte.get()), h);  // nothing carried over
            return h;
        });
        EXPECT_EQ(hash, k.golden) << k.values.size() << " 0x" << std::hex << hash;
    }
}

TEST(Pool, BlendStillWaterAndSpokes) {
    HostImage source = MakeHostImage(36, 24, Pattern16);
    const std::unique_ptr<WorkImage> plain = Work(source);
    // Blend 100 is the source itself, edges and all: nothing is sampled.
    EXPECT_TRUE(
        SamePixels(*Work(PoolDoc({{"Blnd", 100}, {"Heht", 5}}).Render(source.get())), *plain));
    // Blend 50 mixes the full effect half way back to the source.
    PoolDoc full({{"Heht", 5}});
    std::unique_ptr<WorkImage> mixed = Work(full.Render(source.get()));
    {
        ScopedDispatch dispatch(full.op);
        mixed->MixFrom(0.5f, plain.get());
    }
    EXPECT_TRUE(
        SamePixels(*Work(PoolDoc({{"Heht", 5}, {"Blnd", 50}}).Render(source.get())), *mixed));
    // Height 0 is water at rest: Ripple's flat water at the same index, whatever the style.
    ToolDoc<RippleOperator> ripple("Ripple");
    ripple.Set("XYmp", 0.0);
    const uint64_t flat = HashImage(ripple.RenderWith("Clip to Ripple", source.get(), 0.0));
    EXPECT_EQ(PoolDoc({{"Heht", 0}, {"Pode", 3}, {"Phse", 40}}).Hash(source.get()), flat);
    EXPECT_EQ(PoolDoc({{"Heht", 0}, {"Frcy", 50}}).Hash(source.get()), flat);
    // Swirl makes the whole number of spokes, at least one.
    auto swirl = [&](double f) {
        return PoolDoc({{"Pode", 1}, {"Heht", 5}, {"Frcy", f}}).Hash(source.get());
    };
    EXPECT_EQ(swirl(0.3), swirl(1.0));
    EXPECT_EQ(swirl(1.9), swirl(1.0));
    EXPECT_NE(swirl(2.0), swirl(1.0));
}

TEST(Pool, WaveHeightsAndAspect) {
    // 33 pixels square: steps of exactly 1/32, the centre on pixel (16, 16).
    HostImage source = MakeHostImage(33, 33, Pattern16);
    PoolDoc t({{"Heht", 2}});
    ASSERT_TRUE(t.Render(source.get()));
    PoolEngine& e = t.E();
    auto wave = [&](int i) {
        return static_cast<float>(e.waveTable.Entry(i) * static_cast<double>(e.waveHeight) + 0.5);
    };
    // Style, radius, frequency, phase, tightness; dx, dy; the height there.
    auto height = [&](int style, float r, float f, float phase, float tight, double dx, double dy) {
        e.style = style;
        e.radius = r;
        e.frequency = f;
        e.phase = phase;
        e.tightness = tight;
        return e.WaveHeight(dx, dy);
    };
    EXPECT_EQ(height(PoolEngine::kPond, 0.5f, 8, 0.25f, 0, 0, 0), wave(256));      // centre: phase
    EXPECT_EQ(height(PoolEngine::kPond, 0.5f, 8, 0, 0, 1.0 / 64, 0), wave(128));   // 1/8 cycle out
    EXPECT_EQ(height(PoolEngine::kPond, 0.001f, 8, 0.25f, 0, 0.0022, 0), 0.5f);    // past 2.1 radii
    EXPECT_EQ(height(PoolEngine::kSwirl, 0.5f, 8, 0.125f, 0, 0, 0.1), wave(128));  // quarter turn
    EXPECT_EQ(height(PoolEngine::kTwirl, 0.5f, 3, 0, -10, 1.0 / 64, 0), wave(864));  // 160 back
    EXPECT_EQ(height(PoolEngine::kCentral, 0.5f, 8, 0.25f, 0, 0, 0), wave(256));
    // Pixels twice as wide as high stretch the rings to twice their height in rows.
    auto column = [&](double xScale) {
        source.get()->xScale = xScale;
        PoolDoc d({{"Heht", 2}, {"Frcy", 3}});
        EXPECT_TRUE(d.Render(source.get()));
        std::vector<float> c;
        for (int y = 0; y < 33; ++y)
            c.push_back(d.E().maps.heightMap[y * 33 + 16]);
        return c;
    };
    const std::vector<float> square = column(1.0), wide = column(2.0);
    for (int k = -8; k <= 8; ++k)
        EXPECT_EQ(wide[16 + 2 * k], square[16 + k]) << k;
    EXPECT_NE(wide[20], square[20]);
}

TEST(GlassAndPool, ControlDragsAreOneUndoStepEach) {
    PoolDoc pool;
    GlassDoc glass({{"LiOn", 1}});
    RadiusControl& circle = *pool.E().radiusControl;
    ControlView poolView(pool.op, 400, 200, 1.0, 1.0), glassView(glass.op, 400, 200, 1.0, 1.0);
    // Where the press and the release are, and the input and undo step the drag makes. The radius
    // handle stands 0.5 x 400 right of the centre; the release is 100 pixels from the centre.
    const struct {
        ControlView* view;
        float x1, y1, x2, y2;
        const char* id;
        const char* undo;
    } drags[] = {{&poolView, 400, 100, 260, 20, "Raus", "Pool: Radius"},
                 {&poolView, 200, 100, 100, 50, "Ceer", "Pool: Center"},
                 {&glassView, 200, 100, 100, 150, "LiPo", "Glass: Light"}};
    for (const auto& d : drags) {
        ControlView::DragReport r = d.view->Drag(d.x1, d.y1, d.x2, d.y2);
        EXPECT_EQ(r.input, d.id);
        EXPECT_EQ(r.written.size(), 1u) << d.id;
        EXPECT_EQ(r.undo, std::vector<std::string>{d.undo});
    }
    // The circle follows its centre, with the new radius; no closer than 0.001.
    poolView.Draw();
    EXPECT_EQ(circle.handleX[0], 200.0f);
    EXPECT_EQ(circle.handleY[0], 50.0f);
    EXPECT_EQ(circle.RadiusAt(100.0f, 50.0f), 0.001);
    // Pool's light handle shows only with "Lighting" on; Glass's with "Light Active" on and
    // "Brightness" not 0.
    EXPECT_FALSE(pool.E().lightControl->visible);
    pool.Set("Doht", 1);
    poolView.Draw();
    EXPECT_TRUE(pool.E().lightControl->visible);
    glass.Set("LiBr", 0);
    glassView.Draw();
    EXPECT_FALSE(glass.E().lightControl->visible);
}
