#include "lightning/BoltEngine.h"

#include <cmath>
#include <cstring>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "lightning/BoltGeometry.h"

namespace {

// The width of a picture in units of a picture 720 pixels wide, per pixel.
constexpr double kPerReferencePixel = 0.001388888888888889;
// 1/32767: a blurred sample times the glow strength becomes a factor on the glow colour.
constexpr double kSampleToUnit = 3.0518509447574615e-05;

uint16_t Hold15(int64_t v) {
    return static_cast<uint16_t>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

// The glow factor of a blurred sample g: g * strength / 32767.
double GlowFactor(int g, double strength) {
    return g * strength * kSampleToUnit;
}

// What the glow of one channel adds to a layer sample, before the hold at full scale: the glow
// colour times the factor, truncated. It is never negative; from 32767 on it fills the sample
// whatever the layer holds (which never exceeds 32767), and a glow that is not a number adds
// nothing.
uint16_t GlowOf(int32_t colour, double f) {
    const double glow = colour * f;
    // A strength far below zero gives a glow beyond any int; its table entry is never used (the
    // factor is not above zero), but the conversion must still be defined.
    return static_cast<uint16_t>(glow < 32767.0 ? TruncateToInt(glow)
                                                : (glow >= 32767.0 ? 32767 : 0));
}

}  // namespace

BoltEngine::BoltEngine()
    : pathX(kPolylinePoints),
      pathY(kPolylinePoints),
      twigX(kPolylinePoints),
      twigY(kPolylinePoints),
      scratchX_(kPolylinePoints),
      scratchY_(kPolylinePoints) {
    for (float& r : setRadius_)
        r = std::nanf("");
}

BoltEngine::~BoltEngine() = default;

void BoltEngine::UpdateEnvironmentInputs(double time) {
    (void)time;
    const bool hide = modeInput.Int() != 2;
    minEnvLightInput.SetHidden(hide);
    envScaleInput.SetHidden(hide);
}

void BoltEngine::FillParams(int width, int height, double aspectX, double aspectY) {
    BoltParams& p = params;
    p = BoltParams();
    const double u = width * kPerReferencePixel;
    p.mainOffset = static_cast<float>(u * 20.0);
    p.depthUnit = 1.0f;
    const double expand = expandInput.Double();
    p.jitter = static_cast<float>(expand * 0.0033333333333333335);
    p.depthCount = 7;
    p.minAngle = static_cast<float>(minAngleInput.Double());
    p.maxAngle = static_cast<float>(maxAngleInput.Double());
    const float spacing = static_cast<float>(1.0 / (densityInput.Double() * 0.01 + 1e-05));
    p.gapOffset0 = p.gapRange0 = static_cast<float>(spacing * 0.1);
    p.gapOffset1 = p.gapRange1 = static_cast<float>(p.gapOffset0 * 1.5);
    const double thickness = thicknessInput.Double();
    p.brushRadius[0] = static_cast<float>(u * thickness * 0.06);
    p.brushRadius[1] = static_cast<float>(u * thickness * 0.025);
    p.brushRadius[2] = static_cast<float>(u * thickness * 0.001);
    const double glowRadius = glowRadiusInput.Double();
    p.glowRadiusA = static_cast<float>(aspectY * glowRadius * width * 0.01);
    p.glowRadiusB = static_cast<float>(aspectX * glowRadius * width * 0.01);
    p.glowBrightness = static_cast<float>(glowBrightInput.Double());
    p.glowRed = glowColourInput.Sample(0);
    p.glowGreen = glowColourInput.Sample(1);
    p.glowBlue = glowColourInput.Sample(2);
    p.wobble = static_cast<float>(wobbleInput.Double() * 0.01);
    p.brightness = static_cast<float>(brightnessInput.Double() * 0.01);
    p.mode = modeInput.Int();
    p.minEnvLight = static_cast<float>(minEnvLightInput.Double() * 0.01);
    p.envScale = static_cast<float>(envScaleInput.Double() * 0.1);
    const double drawn = drawnInput.Double() * 0.01;
    p.drawn = drawn > 1.0 ? 1.0f : static_cast<float>(drawn);
    p.expandShare = static_cast<float>(expand * 0.01);
    p.branchLength = 1.0f;
    p.width = width;
    p.height = height;
    ReadToolValues(width, height);
}

void BoltEngine::PrepareLayers(int width, int height) {
    if (boltLayer && boltLayer->width == width && boltLayer->height == height) return;
    boltLayer.reset(new WorkImage(width, height));
    blurLayer.reset(new WorkImage(width, height));
    // Every pass writes the colour of blurLayer before it is read; its alpha is carried through the
    // blur unread, and is cleared once so that it is never undefined.
    blurLayer->Fill(0, 0, 0, 0);
}

void BoltEngine::MakeBrushes() {
    for (int level = 0; level < 3; ++level) {
        params.brushes[level] = nullptr;
        // A set of the same radius as the last frame's is the same set.
        bool made = setRadius_[level] == params.brushRadius[level];
        if (!made) {
            setRadius_[level] = std::nanf("");
            made =
                MakeBrush(params.brushRadius[level], brush_) && MakeBrushSet(brush_, sets[level]);
            if (made) setRadius_[level] = params.brushRadius[level];
        }
        if (made) {
            sets[level].mode = 2;
            params.brushes[level] = &sets[level];
        }
    }
}

void BoltEngine::MakeWobbleTable(float* table, int n) {
    if (n < 1) return;
    for (int i = 0; i < n; ++i)
        table[i] = 0.0f;
    const float step = static_cast<float>(6.28318 / n);
    for (int h = 0; h < 12; ++h) {
        const double p = PlainDraw(&params.randomState);
        const double a = ClampedDraw(&params.randomState);
        const float phase = static_cast<float>((2.0 * p - 1.0) * 3.14159);
        for (int i = 0; i < n; ++i)
            table[i] = static_cast<float>(table[i] +
                                          std::sin(static_cast<double>(i) * h * step + phase) * a);
    }
    float lowest = table[0], highest = table[0];
    for (int i = 1; i < n; ++i) {
        if (table[i] < lowest) lowest = table[i];
        if (table[i] > highest) highest = table[i];
    }
    float s = static_cast<float>(1.0 / (static_cast<double>(highest) - lowest));
    // A spread too small to invert (a table of one entry) leaves every entry at the bottom.
    if (!std::isfinite(s)) s = 0.0f;
    const double wobble = params.wobble;
    for (int i = 0; i < n; ++i)
        table[i] = static_cast<float>(
            ((static_cast<double>(table[i]) - lowest) * wobble * s + (1.0 - wobble)) * 256.0);
}

void BoltEngine::DrawBoltPolyline(const float* x, const float* y, int count, int level, bool fade) {
    if (count < 2 || level < 0 || level > 2) return;
    const BrushSet* set = params.brushes[level];
    if (!set) return;
    int segments = count - 1;
    if (level == 0) {
        segments = TruncateToInt(count * static_cast<double>(params.drawn) - 1.0);
        if (segments < 1) segments = 1;
        if (segments > count - 1) segments = count - 1;
    }
    const int faded = fade ? static_cast<int>(segments * 0.25) : 0;
    for (int i = 0; i < segments; ++i) {
        float coverage = 1.0f;
        if (faded > 0 && i >= segments - faded)
            coverage = static_cast<float>(1.0 - static_cast<double>(i - (segments - faded)) /
                                                    static_cast<double>(faded));
        // The ends of a segment stand on whole pixels; the quarter-pixel grid serves the steps
        // between them.
        const float x0 = static_cast<float>(TruncateToInt(x[i]));
        const float y0 = static_cast<float>(TruncateToInt(y[i]));
        const float x1 = static_cast<float>(TruncateToInt(x[i + 1]));
        const float y1 = static_cast<float>(TruncateToInt(y[i + 1]));
        StampLine(stamps, *set, level, coverage, params.width, params.height, x0, y0, x1, y1);
    }
}

int BoltEngine::Subdivide(float* x, float* y, int count, int level) {
    return SubdivideBolt(params, x, y, count, level, scratchX_.data(), scratchY_.data(),
                         kPolylinePoints);
}

void BoltEngine::DrawBranches(int count, bool fade, float lengthFactor) {
    BoltParams& p = params;
    p.branchOffset = static_cast<float>(p.mainOffset * 0.3);
    p.twigOffset = static_cast<float>(p.branchOffset * 0.5);
    const int drawnBranches = TruncateToInt(count * static_cast<double>(p.drawn));
    for (int b = 0; b < drawnBranches && b < count; ++b) {
        // The branch takes the place of the main path.
        pathX[0] = branches[b].startX;
        pathY[0] = branches[b].startY;
        pathX[1] = branches[b].endX;
        pathY[1] = branches[b].endY;
        const int points = Subdivide(pathX.data(), pathY.data(), 2, 1);
        DrawBoltPolyline(pathX.data(), pathY.data(), points, 1, fade);
        const int twigCount =
            PickBranches(p, pathX.data(), pathY.data(), points, twigs, 1, lengthFactor);
        const int drawnTwigs = TruncateToInt(twigCount * static_cast<double>(p.drawn));
        for (int t = 0; t < drawnTwigs && t < twigCount; ++t) {
            twigX[0] = twigs[t].startX;
            twigY[0] = twigs[t].startY;
            twigX[1] = twigs[t].endX;
            twigY[1] = twigs[t].endY;
            const int twigPoints = Subdivide(twigX.data(), twigY.data(), 2, 2);
            DrawBoltPolyline(twigX.data(), twigY.data(), twigPoints, 2, fade);
        }
    }
}

void BoltEngine::Render() {
    if (IsAborted()) return;
    WorkImage* out = outputPort.image;
    WorkImage* background = firstPort.image;
    // Without a background there is no size to work in, and nothing to deliver.
    if (!out || !background || out->width < 1 || out->height < 1) return;
    const int width = out->width, height = out->height;
    FillParams(width, height, out->pixelScale[0], out->pixelScale[1]);

    if (generateInput.Int() == 0) {
        if (params.minEnvLight < 0.9999 && params.mode == 2)
            RunOverRows(&BoltEngine::DimBackground, height);
        else
            out->CopyScaled(background, 1.0f, 1.0f, 1.0f, 1.0f);
    } else {
        PrepareLayers(width, height);
        MakeBrushes();
        // A seed below 1 would leave the generator unseeded; the host holds the input at 1 or
        // more, and 0 seeds as 1 does.
        const int seed = seedInput.Int() < 1 ? 1 : seedInput.Int();
        params.randomState = -seed;
        wobbleX.resize(static_cast<size_t>(width));
        wobbleY.resize(static_cast<size_t>(height));
        MakeWobbleTable(wobbleX.data(), width);
        MakeWobbleTable(wobbleY.data(), height);
        params.wobbleX = wobbleX.data();
        params.wobbleY = wobbleY.data();

        stamps.clear();
        DrawBoltTree(width, height);
        stampPlan.Build(stamps, params.brushes, 3);
        // Clears boltLayer and stamps the tree into it.
        RunOverRows(&BoltEngine::StampBoltRows, height);
        if (IsAborted()) return;

        BlurBoltLayer();
        if (IsAborted()) return;
        if (wobbleInput.Double() > 0.0) {
            wobbleWholeX.resize(static_cast<size_t>(width));
            for (int x = 0; x < width; ++x)
                wobbleWholeX[x] = TruncateToInt(wobbleX[x]);
            RunOverRows(&BoltEngine::ApplyWobble, height);
        }
        params.wobbleX = params.wobbleY = nullptr;
        RunOverRows(&BoltEngine::CompositeBolt, height);
        if (IsAborted()) return;
    }
    for (BrushSet*& set : params.brushes)
        set = nullptr;
    if (!keepOutputAlpha) out->CopyAlphaFrom(background);
}

void BoltEngine::BlurBoltLayer() {
    WorkImage* out = outputPort.image;
    blurLayer->GaussianBlur(params.glowRadiusA, boltLayer.get(), 0, 0);
    // The output serves as scratch for the column pass.
    out->GaussianBlur(params.glowRadiusB, blurLayer.get(), 1, 0);
    MakeGlowTable();
    RunOverRows(&BoltEngine::TintGlow, out->height);
}

void BoltEngine::StampBoltRows(int first, int last) {
    if (first > last || IsAborted()) return;
    WorkImage& layer = *boltLayer;
    for (int y = first; y <= last; ++y)
        std::memset(layer.rows[y], 0, sizeof(uint16_t) * 4 * static_cast<size_t>(layer.width));
    stampPlan.Rows(layer, first, last);
}

void BoltEngine::MakeGlowTable() {
    const double strength = params.glowBrightness;
    const int32_t colour[3] = {params.glowRed, params.glowGreen, params.glowBlue};
    if (glowTable_.size() == kGlowTableSize * 4 && strength == glowTableStrength_ &&
        colour[0] == glowTableColour_[0] && colour[1] == glowTableColour_[1] &&
        colour[2] == glowTableColour_[2])
        return;
    glowTable_.resize(kGlowTableSize * 4);
    for (int g = 0; g < kGlowTableSize; ++g) {
        uint16_t* t = &glowTable_[static_cast<size_t>(g) * 4];
        const double f = GlowFactor(g, strength);
        for (int c = 0; c < 3; ++c)
            t[c] = GlowOf(colour[c], f);
        t[3] = f > 0.0 ? 1 : 0;
    }
    glowTableStrength_ = strength;
    for (int c = 0; c < 3; ++c)
        glowTableColour_[c] = colour[c];
}

void BoltEngine::TintGlow(int first, int last) {
    const WorkImage& blurred = *outputPort.image;
    WorkImage& layer = *boltLayer;
    const int64_t gain = TruncateToInt(params.brightness * 32768.0);
    const double strength = params.glowBrightness;
    const int32_t colour[3] = {params.glowRed, params.glowGreen, params.glowBlue};
    const uint16_t* table = glowTable_.data();
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const uint16_t* g = blurred.rows[y];
        uint16_t* b = layer.rows[y];
        for (int x = 0; x < layer.width; ++x, g += 4, b += 4) {
            // All channels of the layer were equal before the blur: red stands for all.
            uint16_t own[4];
            const uint16_t* glow = own;
            if (g[0] < kGlowTableSize) {
                glow = table + static_cast<size_t>(g[0]) * 4;
            } else {
                const double f = GlowFactor(g[0], strength);
                for (int c = 0; c < 3; ++c)
                    own[c] = GlowOf(colour[c], f);
                own[3] = f > 0.0 ? 1 : 0;
            }
            if (!glow[3]) continue;
            for (int c = 0; c < 3; ++c) {
                const int64_t v = Hold15(int64_t{glow[c]} + b[c]);
                // A negative gain shifts down, toward minus infinity; the sample keeps the low
                // sixteen bits of the result.
                b[c] = static_cast<uint16_t>((v * gain) >> 15);
            }
        }
    }
}

void BoltEngine::ApplyWobble(int first, int last) {
    WorkImage& layer = *boltLayer;
    const int* fx = wobbleWholeX.data();
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const uint32_t fy = static_cast<uint32_t>(TruncateToInt(wobbleY[y]));
        uint16_t* b = layer.rows[y];
        for (int x = 0; x < layer.width; ++x, b += 4) {
            const uint32_t f = static_cast<uint32_t>(fx[x]);
            for (int c = 0; c < 4; ++c)
                b[c] = static_cast<uint16_t>((b[c] * f * fy) >> 16);
        }
    }
}

void BoltEngine::CompositeBolt(int first, int last) {
    const int mode = params.mode;
    if (mode != 1 && mode != 2) return;
    const WorkImage& layer = *boltLayer;
    const WorkImage& background = *firstPort.image;
    WorkImage& out = *outputPort.image;
    const int64_t k = TruncateToInt(params.minEnvLight * 32768.0);
    const int64_t e = TruncateToInt(params.envScale);
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const uint16_t* l = layer.rows[y];
        const uint16_t* b = background.rows[y];
        uint16_t* o = out.rows[y];
        if (mode == 1) {
            // Sums of samples: never negative, so only the top needs holding.
            for (int x = 0; x < out.width; ++x, l += 4, b += 4, o += 4) {
                const uint32_t luma = (5u * l[0] + 8u * l[1] + 3u * l[2]) >> 4;
                const uint32_t sum[4] = {uint32_t{b[0]} + l[0], uint32_t{b[1]} + l[1],
                                         uint32_t{b[2]} + l[2], b[3] + luma};
                for (int c = 0; c < 4; ++c)
                    o[c] = static_cast<uint16_t>(sum[c] < 32767u ? sum[c] : 32767u);
            }
            continue;
        }
        // The light of a pixel: the environment's level plus the bolt's brightness times the
        // scale, in whole steps.
        for (int x = 0; x < out.width; ++x, l += 4, b += 4, o += 4) {
            const int64_t luma = (5 * l[0] + 8 * l[1] + 3 * l[2]) >> 4;
            const int64_t light = (int64_t{l[0]} + l[1] + l[2]) * e / 3 + k;
            for (int c = 0; c < 3; ++c)
                o[c] = Hold15(((b[c] * light) >> 15) + l[c]);
            o[3] = Hold15(((b[3] * light) >> 15) + luma);
        }
    }
}

void BoltEngine::DimBackground(int first, int last) {
    const WorkImage& background = *firstPort.image;
    WorkImage& out = *outputPort.image;
    const int64_t k = TruncateToInt(params.minEnvLight * 32768.0);
    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const uint16_t* b = background.rows[y];
        uint16_t* o = out.rows[y];
        for (int x = 0; x < out.width; ++x, b += 4, o += 4) {
            for (int c = 0; c < 3; ++c)
                o[c] = static_cast<uint16_t>((b[c] * k) >> 15);
            o[3] = b[3];
        }
    }
}
