// Kal: its declaration and visibility rule, golden frames on any processor count, what a flat or a
// partly covered picture gives, the six mirrored copies about a hexagon, the grey and the
// vignette's switches, and the clipping and scan conversion on tiny polygons.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "kal/Kal.h"
#include "tests/TestSupport.h"

namespace {

using Values = std::vector<std::pair<const char*, double>>;

struct KalDoc : ToolDoc<KalOperator> {
    explicit KalDoc(const Values& values = {}) : ToolDoc("Kal"), engine(op->Kal()) {
        for (const auto& [id, value] : values)
            Set(id, value);
    }
    Input* In(const std::string& id) const { return op->FindInput(id); }
    bool Hidden(const std::string& id) const { return In(id)->GetAttr(kInVisible, 1) == 0; }
    HostImage Render(Image* source) { return RenderWith("Clip to Observe", source, 0.0); }
    uint64_t Hash(Image* source) { return HashImage(Render(source)); }

    KalEngine* engine;
};

// A 16-bit sample after the trip into a work image and back, as uncovered pixels make it.
uint16_t RoundTrip(uint16_t s) {
    const uint32_t v = s >> 1u;
    return static_cast<uint16_t>((v * 2u) | (v >> 14u));
}

const uint16_t* PixelOf(const Image& image, int x, int y) {
    return image.Row(y) + static_cast<size_t>(x) * 4;
}

// The largest difference of a sample of `out` from that of `source` after the round trip, over
// rows y0..y1.
int WorstDifference(const Image& out, const Image& source, int y0, int y1) {
    int worst = 0;
    for (int y = y0; y <= y1; ++y)
        for (int i = 0; i < out.width * 4; ++i)
            worst = std::max(worst, std::abs(out.Row(y)[i] - RoundTrip(source.Row(y)[i])));
    return worst;
}

// A polygon of the given corners, x and y in turn, on the fields of `base`.
KalPolygon Corners(std::initializer_list<float> xy, KalPolygon base = KalPolygon()) {
    base.vertexCount = 0;
    for (auto it = xy.begin(); it != xy.end(); it += 2, ++base.vertexCount) {
        base.x[base.vertexCount] = it[0];
        base.y[base.vertexCount] = it[1];
    }
    return base;
}

// A smooth picture with no symmetry of its own, and a transparent left part.
void Slopes(int x, int y, uint16_t* p) {
    p[0] = static_cast<uint16_t>(600 * x + 40 * y);
    p[1] = static_cast<uint16_t>(200 * x + 700 * y);
    p[2] = static_cast<uint16_t>(30000 + 90 * x * y % 20000);
    p[3] = static_cast<uint16_t>(x < 10 ? 20000 : 65534);
}

}  // namespace

TEST(Kal, DeclarationAndVisibility) {
    KalDoc t;
    std::string ids;
    for (Input* in : t.op->Inputs())
        ids += in->ID().str() + " ";
    EXPECT_EQ(ids,
              "HexR IScl ARot IRot CRot AOff ICen CamO Dist FTyp LExt MxDs DsWd Vg ViGo ViEn "
              "Clip to Observe ");
    EXPECT_EQ(t.op->Pages(), (std::vector<std::string>{"Q9 Kal", "Look"}));
    EXPECT_TRUE(t.Hidden("ViGo"));
    EXPECT_TRUE(t.Hidden("ViEn"));
    // The switch shows and hides both radii; a tool loaded with it on shows them at the first
    // frame.
    HostImage source = MakeHostImage(8, 6, Pattern16);
    for (double on : {1.0, 0.0, 1.0}) {
        t.Set("Vg", on);
        EXPECT_EQ(t.Hidden("ViGo"), on == 0.0);
        EXPECT_EQ(t.Hidden("ViEn"), on == 0.0);
    }
    KalDoc loaded;
    loaded.In("Vg")->SetConstant(1.0);
    EXPECT_TRUE(loaded.Hidden("ViEn"));
    ASSERT_TRUE(loaded.Render(source.get()));
    EXPECT_FALSE(loaded.Hidden("ViGo"));
    EXPECT_FALSE(loaded.Hidden("ViEn"));
    // The fill type is carried 1-based and made an index again.
    KalDoc wrap({{"FTyp", 2.0}});
    ASSERT_TRUE(wrap.Render(source.get()));
    EXPECT_EQ(wrap.engine->fillTypeInput.Int(), 3);
    EXPECT_EQ(wrap.engine->fillType, 2);
}

TEST(Kal, FrameValues) {
    // 40 x 30: halfW 20, hexRadius 10; an image scale of 2 gives 40 / 20 source pixels per pixel.
    KalDoc t({{"IScl", 2.0}, {"Vg", 1.0}, {"ViGo", 0.5}});
    t.SetPoint("AOff", 0.75, 0.25);
    HostImage source = MakeHostImage(40, 30, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));
    const KalEngine& e = *t.engine;
    const float want[] = {10, 2, 2.5f, -2.5f, -4, -3, 10, 14, 1, 0.75f};  // boxHigh with H / W
    const float got[] = {e.hexRadius,        e.imageScale,       e.arrayOffsetX,  e.arrayOffsetY,
                         e.imageCentreX,     e.imageCentreY,     e.vignetteStart, e.vignetteEnd,
                         e.prototype.boxLow, e.prototype.boxHigh};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(got[i], want[i]) << i;
    // reach = 25, N = trunc(50 / (cos 30 * 10) + 0.5) = 6.
    EXPECT_EQ(e.LatticeReach(), 6);
}

TEST(Kal, GoldenFramesOnAnyProcessorCount) {
    HostImage source = MakeHostImage(48, 36, Slopes);
    struct Case {
        const char* name;
        Values values;
        uint64_t golden;
    };
    const std::vector<Case> cases = {
        {"defaults", {}, 0x393fe8342775e78full},
        {"distortion", {{"Dist", 1.5}, {"CRot", 25.0}, {"IRot", 40.0}}, 0x8272256974d5cd4full},
        {"edge dup", {{"IScl", 0.3}, {"FTyp", 0.0}, {"ARot", 10.0}}, 0x5c9fea6b73ab9312ull},
        {"black", {{"IScl", 0.3}, {"FTyp", 1.0}, {"ARot", 10.0}}, 0xdc73694e90350f23ull},
        {"wrap", {{"IScl", 0.3}, {"FTyp", 2.0}, {"ARot", 10.0}}, 0xf7ccb1c482cf16edull},
        {"small tiles turned",
         {{"HexR", 0.06}, {"LExt", 3.0}, {"CRot", 70.0}, {"ARot", 33.0}},
         0xb9ac59f2b08e98f0ull},
        {"desaturation", {{"MxDs", 0.8}, {"DsWd", 4.0}, {"HexR", 0.3}}, 0x5e21597900ab55b2ull},
        {"vignette",
         {{"Vg", 1.0}, {"ViGo", 0.3}, {"ViEn", 0.9}, {"Dist", -0.5}},
         0x48ea2e20819eecbcull},
    };
    for (const Case& k : cases) {
        uint64_t hashes[2];
        for (int i = 0; i < 2; ++i) {
            ScopedProcessors processors(i == 0 ? 1 : 8);
            KalDoc t(k.values);
            hashes[i] = t.Hash(source.get());
            // Nothing is carried from one frame to the next.
            EXPECT_EQ(t.Hash(source.get()), hashes[i]) << k.name;
        }
        EXPECT_EQ(hashes[0], hashes[1]) << k.name;
        EXPECT_EQ(hashes[0], k.golden) << k.name << " 0x" << std::hex << hashes[0];
        // Passing over the hexagons that cannot reach a band changes nothing.
        KalDoc full(k.values);
        full.engine->skipFarHexagons = false;
        EXPECT_EQ(full.Hash(source.get()), hashes[0]) << k.name;
        // The same with pixels twice as tall as they are wide.
        source->yScale = 2.0;
        KalDoc tall(k.values), tallFull(k.values);
        tallFull.engine->skipFarHexagons = false;
        EXPECT_EQ(tall.Hash(source.get()), tallFull.Hash(source.get())) << k.name;
        source->yScale = 1.0;
    }
}

TEST(Kal, FlatSourceAndUncoveredCorners) {
    const uint16_t flat[4] = {20000, 41234, 777, 50001};
    HostImage uniform = MakeHostImage(40, 28, [&](int, int, uint16_t* p) {
        for (int c = 0; c < 4; ++c)
            p[c] = flat[c];
    });
    // A flat picture stays itself wherever the boxes stay inside it. A box that wraps is split,
    // and the parts' shares, each over the area plus 1e-5, leave the sum a unit short.
    const struct {
        Values values;
        int slack;
    } cases[] = {{{}, 0},
                 {{{"Dist", 2.0}, {"CRot", 33.0}, {"IScl", 3.0}}, 0},
                 {{{"FTyp", 2.0}, {"IScl", 0.2}}, 2}};
    for (const auto& k : cases) {
        HostImage out = KalDoc(k.values).Render(uniform.get());
        ASSERT_TRUE(out);
        EXPECT_EQ(WorstDifference(*out, *uniform, 0, 27), k.slack);
    }

    // A short reach leaves the top and bottom uncovered: there the source shows, alpha and all.
    // hexRadius 1, N 6: lattice rows 1.5 apart reach 9 rows either side of 13.5, and a hexagon one
    // more.
    HostImage source = MakeHostImage(40, 28, Pattern16);
    KalDoc t({{"LExt", 0.1}, {"HexR", 0.05}});
    HostImage out = t.Render(source.get());
    ASSERT_TRUE(out);
    EXPECT_EQ(t.engine->LatticeReach(), 6);
    EXPECT_EQ(WorstDifference(*out, *source, 0, 2), 0);
    EXPECT_EQ(WorstDifference(*out, *source, 25, 27), 0);
    EXPECT_GT(WorstDifference(*out, *source, 10, 17), 1000);
}

TEST(Kal, SixMirroredCopiesAboutAHexagon) {
    // A bright dot at the sampled centre comes out at the centroid of each of the six triangles
    // about the lattice centre; the picture is mirrored across the vertical line between triangles
    // 1 and 2.
    const int w = 64, h = 64;
    HostImage dot = MakeHostImage(w, h, [](int x, int y, uint16_t* p) {
        const int dx = x - 32, dy = y - 32;
        const bool in = dx * dx + dy * dy <= 4;
        p[0] = in ? 60000 : 0;
        p[1] = 0;
        p[2] = in ? 0 : 8000;
        p[3] = 65534;
    });
    KalDoc t({{"HexR", 0.75}, {"IScl", 4.0}});
    t.SetPoint("AOff", 0.5, 0.5);
    t.SetPoint("ICen", 0.5, 0.5);
    HostImage out = t.Render(dot.get());
    ASSERT_TRUE(out);
    // hexRadius 24 about (32, 32): the centroids lie 24 * cos 30 * 2 / 3 away, at 0, 60, ... 300.
    const double d = 24.0 * std::cos(0.5235987755982988) * 2.0 / 3.0;
    for (int k = 0; k < 6; ++k) {
        const double a = k * 1.0471975511965976;
        const int x = static_cast<int>(std::lround(32 + d * std::cos(a)));
        const int y = static_cast<int>(std::lround(32 + d * std::sin(a)));
        EXPECT_GT(PixelOf(*out, x, y)[0], 30000) << k;
    }
    EXPECT_LT(PixelOf(*out, 32, 32)[0], 1000);

    HostImage smooth = MakeHostImage(w, h, Slopes);
    KalDoc m({{"HexR", 0.75}});
    m.SetPoint("AOff", 0.5, 0.5);
    HostImage mirrored = m.Render(smooth.get());
    ASSERT_TRUE(mirrored);
    int worst = 0;
    for (int y = 36; y < 52; ++y)
        for (int i = 26 * 4; i < 32 * 4; ++i)
            worst = std::max(
                worst, std::abs(mirrored->Row(y)[i] - mirrored->Row(y)[(64 - i / 4) * 4 + i % 4]));
    EXPECT_LT(worst, 400);
    // Without the mirror the two sides would differ: the source has no symmetry.
    EXPECT_NE(PixelOf(*smooth, 28, 40)[0], PixelOf(*smooth, 36, 40)[0]);
}

TEST(Kal, GreyAndVignetteSwitches) {
    HostImage source = MakeHostImage(40, 30, Slopes);
    auto hash = [&](const Values& values) { return KalDoc(values).Hash(source.get()); };
    const uint64_t plain = hash({});
    struct Case {
        const char* name;
        Values values;
        bool same;
    };
    const std::vector<Case> cases = {
        {"grey at 0.01 is none", {{"MxDs", 0.01}, {"DsWd", 50.0}}, true},
        {"grey above 0.01", {{"MxDs", 0.02}, {"DsWd", 50.0}}, false},
        {"vignette off leaves its radii inert", {{"ViGo", 0.01}, {"ViEn", 0.05}}, true},
        {"vignette on", {{"Vg", 1.0}, {"ViGo", 0.01}, {"ViEn", 0.05}}, false},
        // Inside the vignette the weight is 0, and (32767 - 0) >> 15 still takes a unit off.
        {"far vignette", {{"Vg", 1.0}, {"ViGo", 5.0}, {"ViEn", 10.0}}, false},
    };
    for (const Case& k : cases)
        EXPECT_EQ(hash(k.values) == plain, k.same) << k.name;

    // Beyond the vignette's end everything is black and transparent; an end equal to the start
    // is a hard edge.
    HostImage dark = KalDoc({{"Vg", 1.0}, {"ViGo", 0.05}, {"ViEn", 0.05}}).Render(source.get());
    ASSERT_TRUE(dark);
    for (int c = 0; c < 4; ++c)
        EXPECT_EQ(PixelOf(*dark, 1, 1)[c], 0);
    EXPECT_NE(PixelOf(*dark, 20, 15)[3], 0);
}

TEST(Kal, ClippingAndDistances) {
    const KalPolygon p = Corners({-2, 0, 6, 4, -2, 8});
    // Against x >= 0 and 2 <= y <= 6, the triangle keeps a pentagon of exact corners.
    KalPolygon q = p;
    ASSERT_TRUE(KalEngine::ClipToRect(q, {0.0f, 10.0f, 2.0f, 6.0f}));
    std::string corners;
    for (int i = 0; i < q.vertexCount; ++i)
        corners += std::to_string(static_cast<int>(q.x[i])) + "," +
                   std::to_string(static_cast<int>(q.y[i])) + " ";
    EXPECT_EQ(corners, "0,6 0,2 2,2 6,4 2,6 ");
    // Wholly inside it is kept as it is; wholly beyond one limit it is dropped.
    KalPolygon inside = p;
    EXPECT_TRUE(KalEngine::ClipToRect(inside, {-5.0f, 10.0f, -1.0f, 9.0f}));
    EXPECT_EQ(inside.vertexCount, 3);
    EXPECT_EQ(inside.x[1], 6.0f);
    KalPolygon beyond = p;
    EXPECT_FALSE(KalEngine::ClipToRect(beyond, {7.0f, 10.0f, 0.0f, 8.0f}));
    // Beyond two limits at a corner, but not wholly beyond either: nothing is left.
    KalPolygon corner = p;
    EXPECT_FALSE(KalEngine::ClipToRect(corner, {3.0f, 10.0f, 6.5f, 9.0f}));

    const struct {
        float p[6];
        float d;
    } distances[] = {
        {{0, 3, -1, 0, 1, 0}, 3.0f},        // above the middle
        {{4, 4, -1, 0, 1, 0}, 5.0f},        // past the end: to the end
        {{2, 2, 1, 1, 1, 1}, 1.41421356f},  // no length: to its start
    };
    for (const auto& k : distances)
        EXPECT_FLOAT_EQ(
            KalEngine::DistanceToSegment(k.p[0], k.p[1], k.p[2], k.p[3], k.p[4], k.p[5]), k.d);
}

TEST(Kal, ScanConversionCoversPixelCentres) {
    // A 4 x 3 rectangle from (1, 1) covers the pixels whose centres lie within it: with the
    // sampler at pixel centres on whole numbers, columns 1..4 and rows 1..3 of an 8 x 6 picture.
    KalDoc t;
    HostImage source = MakeHostImage(8, 6, Pattern16);
    ASSERT_TRUE(t.Render(source.get()));
    KalEngine& e = *t.engine;
    WorkImage out(8, 6);
    out.Fill(12345, 12345, 12345, 12345);
    WorkImage* saved = e.outputPort.image;
    e.outputPort.image = &out;
    e.FillPolygon(Corners({1, 1, 5, 1, 5, 4, 1, 4}, e.prototype), {0, 8, 0, 6});
    e.outputPort.image = saved;
    std::string rows;
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 8; ++x)
            rows += out.Pixel(x, y)[0] != 12345 ? '#' : '.';
        rows += '/';
    }
    EXPECT_EQ(rows, "......../.####.../.####.../.####.../......../......../");
}
