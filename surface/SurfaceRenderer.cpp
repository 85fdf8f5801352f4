#include "surface/SurfaceRenderer.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"
#include "surface/SurfaceLight.h"

void SurfaceMaps::Allocate(int w, int h) {
    const size_t count = static_cast<size_t>(w < 0 ? 0 : w) * static_cast<size_t>(h < 0 ? 0 : h);
    if (block_.size() < count * 4) block_.resize(count * 4);
    width = w;
    height = h;
    heightMap = block_.data();
    mapX = heightMap + count;
    mapY = mapX + count;
    lightMap = mapY + count;
}

void HoldToRestByMatte(float* heights, const uint16_t* matte, int width, bool invert) {
    // The mean of three 15-bit channels, over 32767.
    constexpr double kMatteScale = 1.0172836491999064e-05;
    for (int x = 0; x < width; ++x, matte += 4) {
        double k = (matte[0] + matte[1] + matte[2]) * kMatteScale;
        if (invert) k = 1.0 - k;
        heights[x] = static_cast<float>(k * (heights[x] - 0.5) + 0.5);
    }
}

SurfaceEngine::~SurfaceEngine() {
    FreePyramid(pyramid_);
}

bool SurfaceEngine::PrepareSurface(const WorkImage* picture, WorkImage* target) {
    surfaceTarget = target;
    surface.sourceTable = nullptr;
    if (!target) return false;
    surface.width = target->width;
    surface.height = target->height;
    pyramid_ = BuildPyramid(picture, target->width, target->height, pyramid_);
    if (!pyramid_) return false;
    surface.sourceTable = pyramid_;
    maps.Allocate(target->width, target->height);
    return true;
}

void SurfaceEngine::DisplacePass(int pass, Slopes slopes) {
    surface.pass = pass;
    if (slopes == Slopes::ComputeAndKeep)
        slopeStore_.resize(static_cast<size_t>(surface.width) * surface.height * 2);
    slopes_ = slopes;
    RunOverRows(&SurfaceEngine::SurfaceDisplace, surface.height);
    slopes_ = Slopes::Compute;
}

void SurfaceEngine::ResamplePass(int pass) {
    surface.pass = pass;
    RunOverRows(&SurfaceEngine::SurfaceResample, surface.height);
    // The last row repeats the one above it. It is copied here, once both chunks are done, so
    // that it never reads a row that the other chunk is still writing.
    WorkImage* out = surfaceTarget;
    const int h = surface.height;
    if (!out || h < 2 || out->height < h || out->width < surface.width || IsAborted()) return;
    std::memcpy(out->rows[h - 1], out->rows[h - 2], static_cast<size_t>(surface.width) * 8);
}

void SurfaceEngine::RunSurfacePasses(float blendAmount, WorkImage* source) {
    if (!surfaceTarget || !surface.sourceTable) return;
    if (!(surface.chromaticAb > 0.0001)) {
        DisplacePass(kPassAll, Slopes::Compute);
        ResamplePass(kPassAll);
    } else {
        Slopes slopes = Slopes::ComputeAndKeep;
        if (keepOutputAlpha) {
            DisplacePass(kPassAll, slopes);
            ResamplePass(kPassAlpha);
            slopes = Slopes::Reuse;
        }
        for (int pass = kPassRed; pass <= kPassBlue && !IsAborted(); ++pass) {
            DisplacePass(pass, slopes);
            ResamplePass(pass);
            slopes = Slopes::Reuse;
        }
    }
    if (IsAborted()) return;
    if (blendAmount > 0.0f && source) surfaceTarget->MixFrom(blendAmount, source);
    if (!keepOutputAlpha && source) surfaceTarget->CopyAlphaFrom(source);
}

void SurfaceEngine::SurfaceDisplace(int first, int last) {
    const SurfaceParams& p = surface;
    const int w = p.width, h = p.height;
    if (w < 1 || h < 1 || !maps.heightMap || maps.width != w || maps.height != h) return;
    const bool lit = SurfaceLightOn(p);
    float light[3] = {0.0f, 0.0f, 0.0f};
    if (lit && !p.pointLight) PrepareDirectionalLight(p, light);
    // A side of one pixel has no step across it.
    const float stepX = w > 1 ? static_cast<float>(1.0 / (w - 1)) : 0.0f;
    const float stepY = h > 1 ? static_cast<float>(1.0 / (h - 1)) : 0.0f;
    const int64_t s = p.neighbourStep;
    const float tangentX = static_cast<float>(s * static_cast<double>(stepX));
    const float tangentY = static_cast<float>(s * static_cast<double>(stepY));
    float eta = p.refractIndex;
    if (std::fabs(eta) < 0.01f) eta = 0.01f;
    const double chromatic = p.pass * static_cast<double>(p.chromaticAb);
    const double spanX = w - 1.0, spanY = h - 1.0;

    const Slopes slopes = slopes_;
    if (slopes != Slopes::Compute &&
        slopeStore_.size() < static_cast<size_t>(w) * static_cast<size_t>(h) * 2)
        return;

    for (int y = first; y <= last; ++y) {
        if (IsAborted()) return;
        const size_t row = static_cast<size_t>(y) * w;
        float* outX = maps.mapX + row;
        float* outY = maps.mapY + row;
        const float v = static_cast<float>(y * static_cast<double>(stepY));
        const float* here = maps.HeightRow(y);
        if (slopes == Slopes::Reuse) {
            // The same ray as the first pass, through the raised surface; the highlight stands.
            const double* kept = slopeStore_.data() + row * 2;
            for (int x = 0; x < w; ++x) {
                const float height = static_cast<float>(chromatic + here[x]);
                const float u = static_cast<float>(x * static_cast<double>(stepX));
                outX[x] = static_cast<float>((kept[2 * x] * height + u) * spanX);
                outY[x] = static_cast<float>((kept[2 * x + 1] * height + v) * spanY - 1.0);
            }
            continue;
        }
        double* keep = slopes == Slopes::ComputeAndKeep ? slopeStore_.data() + row * 2 : nullptr;
        const int ym = static_cast<int>(y - s < 0 ? 0 : y - s);
        const int yp = static_cast<int>(y + s > h - 1 ? h - 1 : y + s);
        const double etaTerm = static_cast<double>(eta) * eta - 1.0;
        const float inverseEta = static_cast<float>(1.0 / eta);
        const float* below = maps.HeightRow(ym);
        const float* above = maps.HeightRow(yp);
        float* outLight = maps.lightMap + row;
        // First the normals of the whole row, held for the moment in the row's three maps, which
        // the second loop reads before it writes them; the second loop, free of calls, lets the
        // long divisions of neighbouring pixels overlap.
        for (int x = 0; x < w; ++x) {
            const int xm = static_cast<int>(x - s < 0 ? 0 : x - s);
            const int xp = static_cast<int>(x + s > w - 1 ? w - 1 : x + s);
            // Tangents along the two diagonals, in units of the whole image.
            const float a[3] = {tangentX, tangentY, above[xp] - below[xm]};
            const float b[3] = {-tangentX, tangentY, above[xm] - below[xp]};
            float n[3];
            CrossProduct(n, a, b);
            NormaliseVector(n);
            outX[x] = n[0];
            outY[x] = n[1];
            outLight[x] = n[2];
        }
        for (int x = 0; x < w; ++x) {
            const float n[3] = {outX[x], outY[x], outLight[x]};
            const float height = static_cast<float>(chromatic + here[x]);
            // Snell's law for the ray (0, 0, -1); a total internal reflection keeps k at 1.
            const double d = static_cast<double>(n[2]) * n[2] + etaTerm;
            const double k = d >= 0.0 ? n[2] - std::sqrt(d) : 1.0;
            const double tx = n[0] * k * inverseEta;
            const double ty = n[1] * k * inverseEta;
            const double tz = (k * n[2] - 1.0) / eta;
            const double slopeX = tx / tz, slopeY = ty / tz;
            if (keep) {
                keep[2 * x] = slopeX;
                keep[2 * x + 1] = slopeY;
            }
            const float u = static_cast<float>(x * static_cast<double>(stepX));
            outX[x] = static_cast<float>((slopeX * height + u) * spanX);
            // Less one: the two maps are read with different neighbours, and with this a flat
            // surface reads each pixel's own footprint.
            outY[x] = static_cast<float>((slopeY * height + v) * spanY - 1.0);
            if (lit)
                outLight[x] = p.pointLight ? PointSpecular(p, n, x, y)
                                           : DirectionalSpecular(p, light, n, u, v);
        }
    }
}

namespace {

inline float Least(float a, float b, float c, float d) {
    float m = a;
    if (b < m) m = b;
    if (c < m) m = c;
    if (d < m) m = d;
    return m;
}

inline float Greatest(float a, float b, float c, float d) {
    float m = a;
    if (b > m) m = b;
    if (c > m) m = c;
    if (d > m) m = d;
    return m;
}

}  // namespace

void SurfaceEngine::SurfaceResample(int first, int last) {
    const SurfaceParams& p = surface;
    WorkImage* out = surfaceTarget;
    const SamplePyramid* table = p.sourceTable;
    const int w = p.width, h = p.height;
    if (!out || !table || maps.width != w || maps.height != h || out->width < w || out->height < h)
        return;
    const bool lit = SurfaceLightOn(p);
    const int pass = p.pass;
    const float colours[3] = {p.lightRed, p.lightGreen, p.lightBlue};
    const bool clampLow = p.clampLowFirstPass != 0;
    const float offset = p.boxOffset;
    const int end = last < h - 2 ? last : h - 2;

    for (int y = first; y <= end; ++y) {
        if (IsAborted()) return;
        const size_t row = static_cast<size_t>(y) * w;
        const float* x0Row = maps.mapX + row;
        const float* x1Row = x0Row + w;
        const float* y0Row = maps.mapY + row;
        const float* y1Row = y0Row + w;
        const float* lightRow = maps.lightMap + row;
        uint16_t* o = out->rows[y];
        for (int x = 1; x <= w - 2; ++x) {
            // The bounding box of the warped pixel: X from columns x - 1 and x, Y from columns
            // x and x + 1.
            const float left =
                static_cast<float>(Least(x0Row[x - 1], x0Row[x], x1Row[x - 1], x1Row[x]) + offset);
            const float right = static_cast<float>(
                Greatest(x0Row[x - 1], x0Row[x], x1Row[x - 1], x1Row[x]) + offset);
            const float top =
                static_cast<float>(Least(y0Row[x], y0Row[x + 1], y1Row[x], y1Row[x + 1]) + offset);
            const float bottom = static_cast<float>(
                Greatest(y0Row[x], y0Row[x + 1], y1Row[x], y1Row[x + 1]) + offset);
            uint16_t s[4];
            uint16_t* px = o + static_cast<size_t>(x) * 4;
            if (pass == kPassAll) {
                SampleRect(s, table, left, top, right, bottom, p.fillMode);
                if (lit) {
                    for (int c = 0; c < 3; ++c)
                        px[c] = CompositeLight(s[c], lightRow[x], colours[c], p.backGain, clampLow);
                } else {
                    px[0] = s[0];
                    px[1] = s[1];
                    px[2] = s[2];
                }
                px[3] = s[3];
            } else if (pass >= kPassRed && pass <= kPassBlue) {
                const int c = pass - 1;
                SampleRectChannels(s, table, left, top, right, bottom, p.fillMode, c == 0, c == 1,
                                   c == 2, 0);
                px[c] =
                    lit ? CompositeLight(s[c], lightRow[x], colours[c], p.backGain, false) : s[c];
            } else if (pass == kPassAlpha) {
                SampleRectChannels(s, table, left, top, right, bottom, p.fillMode, 0, 0, 0, 1);
                px[3] = s[3];
            }
        }
        // The edge columns repeat their neighbours, all four channels as they stand.
        if (w >= 2) {
            std::memcpy(o + static_cast<size_t>(w - 1) * 4, o + static_cast<size_t>(w - 2) * 4, 8);
            std::memcpy(o, o + 4, 8);
        }
    }
}
