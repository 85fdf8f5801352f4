#include "particles/ParticleEngine.h"

#include <cmath>

#include "frame/ShuffledRandom.h"
#include "frame/SmallMaths.h"
#include "frame/WorkImage.h"

namespace {

// Every named value of a step is a 32-bit float: a formula is worked in double and rounded once,
// when its result is stored.
inline float F(double v) {
    return static_cast<float>(v);
}

// The seed of the swirl gradients; the same for all three tools.
constexpr int32_t kSwirlSeed = 665;

// An aspect factor as the step uses it: one that is not a positive finite number counts as 1.
float UsableAspect(double v) {
    return std::isfinite(v) && v > 0.0 ? static_cast<float>(v) : 1.0f;
}

}  // namespace

ParticleEngine::ParticleEngine(ParticleKind k) : kind(k), pool(ParticlePool::kBlockCapacity) {
    birthSeedState = -567;
    BuildSwirlGradients(kSwirlSeed, &swirlGradients);
    birthX.assign(kBirthLineCapacity, 0.0f);
    birthY.assign(kBirthLineCapacity, 0.0f);
}

double ParticleEngine::NextRandom() {
    return ShuffledRandom(&birthSeedState);
}

const WorkImage* ParticleEngine::BirthMatte() const {
    return secondPort.image;
}

void ParticleEngine::CopyBackground() {
    WorkImage* out = outputPort.image;
    WorkImage* background = firstPort.image;
    if (out && background && background != out) out->CopyScaled(background, 1.0f, 1.0f, 1.0f, 1.0f);
}

void ParticleEngine::Render() {
    WorkImage* out = outputPort.image;
    if (!out || !firstPort.image) return;
    const int W = out->width, H = out->height;
    if (IsAborted()) return;
    if (!PrepareRender()) return;

    StepParameters& p = pool.params;
    p.width = W;
    p.height = H;
    p.aspectX = UsableAspect(out->pixelScale[0]);
    p.aspectY = UsableAspect(out->pixelScale[1]);
    FillStepParameters();
    CopyBackground();

    double x0, y0, x1, y1;
    BirthEnds(&x0, &y0, &x1, &y1);
    const float ends[4] = {F(W * x0), F(H * y0), F(W * x1), F(H * y1)};
    const int frame = TruncateToInt(time);

    // The particles follow a change of size in proportion.
    const bool sizeChanged = W != storedWidth || H != storedHeight;
    if (!firstSizePending && sizeChanged) RescaleParticles(W, H);
    if (firstSizePending || sizeChanged) {
        storedWidth = W;
        storedHeight = H;
        firstSizePending = 0;
    }

    const bool matte = UseBirthMatte(), bounce = PuddleBounce();
    birthCount = BuildBirthLine(ends[0], ends[1], ends[2], ends[3], birthX.data(), birthY.data(),
                                kBirthLineCapacity);
    if (preRollRequested) {
        // Silent steps: the particles move but nothing is drawn.
        const int steps = PreRollSteps();
        for (int i = 0; i < steps; ++i)
            if (birthCount >= 1)
                StepParticles(birthX.data(), birthY.data(), birthCount, i, matte, bounce);
        preRollRequested = 0;
        p.preRolling = 0;
    }
    if (birthCount >= 1)
        StepParticles(birthX.data(), birthY.data(), birthCount, frame, matte, bounce);
    FinishRender();

    // The closing alpha step, dormant: the adapter always keeps the alpha the particles wrote.
    if (!keepOutputAlpha) out->CopyAlphaFrom(firstPort.image);
}

int ParticleEngine::StepParticles(const float* xs, const float* ys, int n, int frame,
                                  bool useBirthMatte, bool puddleBounce) {
    if (n < 1) return 1;
    if (kind == ParticleKind::Snow)
        EmitEach(xs, ys, n);
    else
        EmitWithRetries(xs, ys, n, useBirthMatte);
    // The picture shows the particles before their update, the new ones at their birth points.
    if (!pool.params.preRolling) DrawPass();
    Update(frame, puddleBounce);
    return 0;
}

void ParticleEngine::EmitWithRetries(const float* xs, const float* ys, int n, bool useBirthMatte) {
    const StepParameters& p = pool.params;
    bornLastStep = 0;
    const int births =
        TruncateToInt((2.0 * NextRandom() - 1.0) * p.densityVar + p.densityMean + 0.5);
    if (births <= 0) return;
    const WorkImage* matte = useBirthMatte ? BirthMatte() : nullptr;
    const int64_t limit = static_cast<int64_t>(births) * 10;
    int64_t tries = 0, idle = 0;
    int born = 0;
    while (tries <= limit) {
        const int lifetime =
            TruncateToInt((2.0 * NextRandom() - 1.0) * p.lifeVar + p.lifeMean + 0.5);
        const int extinction =
            TruncateToInt((2.0 * NextRandom() - 1.0) * p.extinctionVar + p.extinctionMean + 0.5);
        if (lifetime < 1 || extinction < 1) {
            if (born >= births) break;
            // Such a pass is not a try; it has a bound of its own, so the loop always ends.
            if (++idle > limit) break;
            continue;
        }
        int k = TruncateToInt(NextRandom() * n);
        k = k < 0 ? 0 : (k > n - 1 ? n - 1 : k);
        float bx = xs[k], by = ys[k];
        PickJitter(&bx, &by);
        float vx = F((2.0 * NextRandom() - 1.0) * 0.01745);
        float vy = F(NextRandom() * p.speedVar + p.startSpeed);
        SpreadVelocity(&vx, &vy);
        if (useBirthMatte) {
            // Born only where the matte's red is not 0; the draws of a refused pass stay spent.
            const int ix = TruncateToInt(bx), iy = TruncateToInt(by);
            const bool inside = matte && ix >= 0 && iy >= 0 && ix < p.width && iy < p.height &&
                                ix < matte->width && iy < matte->height;
            if (!inside || matte->rows[iy][static_cast<size_t>(ix) * 4] == 0) {
                ++tries;
                continue;
            }
        }
        ParticleRecord* r = pool.Take();
        // No record can be had: the births of this step end here.
        if (!r) break;
        r->lifetime = lifetime;
        r->extinction = extinction;
        r->vx = vx;
        r->vy = vy;
        r->x = r->prevX = bx;
        r->y = r->prevY = by;
        if (kind == ParticleKind::Rain) r->bounceGain = 1.0f;
        if (kind == ParticleKind::Smoke) SizeAtBirth(r);
        PickColour(r);
        pool.PushActive(r);
        ++born;
        bornLastStep = born;
        if (born >= births) break;
    }
}

void ParticleEngine::EmitEach(const float* xs, const float* ys, int n) {
    const StepParameters& p = pool.params;
    bornLastStep = 0;
    const int births =
        TruncateToInt((2.0 * NextRandom() - 1.0) * p.densityVar + p.densityMean + 0.5);
    for (int b = 0; b < births; ++b) {
        const int lifetime =
            TruncateToInt((2.0 * NextRandom() - 1.0) * p.lifeVar + p.lifeMean + 0.5);
        const int extinction =
            TruncateToInt((2.0 * NextRandom() - 1.0) * p.extinctionVar + p.extinctionMean + 0.5);
        if (lifetime < 1 || extinction < 1) continue;
        ParticleRecord* r = pool.Take();
        if (!r) continue;
        int k = TruncateToInt(NextRandom() * n);
        k = k < 0 ? 0 : (k > n - 1 ? n - 1 : k);
        float bx = xs[k], by = ys[k];
        PickJitter(&bx, &by);
        r->x = r->prevX = bx;
        r->y = r->prevY = by;
        // 1 near the Left end of the line, 0 at the Right end.
        const float t = F(static_cast<double>(n - k - 1) / n);
        float vy = F(NextRandom() * p.speedVar + p.startSpeed);
        float vx = 0.0f;
        SpreadVelocity(&vx, &vy);
        r->vx = F(static_cast<double>(p.gravityCos) * p.gravity * t + vx);
        r->vy = F(static_cast<double>(p.gravitySin) * p.gravity * t + vy);
        r->lifetime = lifetime;
        r->extinction = extinction;
        SizeAtBirth(r);
        PickColour(r);
        pool.PushActive(r);
        ++bornLastStep;
    }
}

void ParticleEngine::PickJitter(float* x, float* y) {
    const StepParameters& p = pool.params;
    const double radius = p.jitterRadius;
    const double ax2 =
        kind == ParticleKind::Rain ? 1.0 : static_cast<double>(p.aspectX) * p.aspectX;
    float nx, ny, d;
    // Points of the square are drawn until one lies within the circle; a radius that is not
    // finite takes the first.
    do {
        nx = F((2.0 * NextRandom() - 1.0) * radius + *x);
        ny = F((2.0 * NextRandom() - 1.0) * radius + *y);
        const double dx = static_cast<double>(nx) - *x, dy = static_cast<double>(ny) - *y;
        d = F(std::sqrt(dx * dx * ax2 + dy * dy));
    } while (!(d <= radius) && std::isfinite(radius));
    *x = nx;
    *y = ny;
}

void ParticleEngine::SpreadVelocity(float* pvx, float* pvy) {
    const StepParameters& p = pool.params;
    const double a = p.speedVar, b = p.spinVar, c = p.speedGain;
    const double vx = *pvx, vy = *pvy;
    if (kind == ParticleKind::Rain) {
        const float angle = F((2.0 * NextRandom() - 1.0) * b * 3.141592 + std::atan2(vy, vx));
        const float size = F((NextRandom() * a + 1.0) * (std::sqrt(vx * vx + vy * vy) * c));
        *pvx = F(std::cos(static_cast<double>(angle)) * size);
        *pvy = F(std::sin(static_cast<double>(angle)) * size);
        return;
    }
    const double ax = p.aspectX, ay = p.aspectY;
    const float m = F(std::sqrt(vx * vx / (ax * ax) + vy * vy / (ay * ay)) * c);
    const float angle = F((2.0 * NextRandom() - 1.0) * b * 3.141592 + std::atan2(vy * ax, vx * ax));
    const float size = F((NextRandom() * a + 1.0) * m);
    *pvx = F(std::cos(static_cast<double>(angle)) * size);
    *pvy = F(std::sin(static_cast<double>(angle)) * ax * size);
}

void ParticleEngine::PickColour(ParticleRecord* r) {
    const StepParameters& p = pool.params;
    float colour[4];
    for (int c = 0; c < 4; ++c)
        colour[c] = F((2.0 * NextRandom() - 1.0) * p.colourVar * 32767.0 + p.baseColour[c]);
    const float mono = F((2.0 * NextRandom() - 1.0) * p.monoVar * 32767.0);
    r->red = F(static_cast<double>(colour[0]) + mono);
    r->green = F(static_cast<double>(colour[1]) + mono);
    r->blue = F(static_cast<double>(colour[2]) + mono);
    r->alpha = F(static_cast<double>(colour[3]) + mono);
}

float ParticleEngine::SizeBias(const ParticleRecord& r) const {
    const StepParameters& p = pool.params;
    const double b = p.sizeBias, i = r.stampIndex, q = static_cast<double>(p.sizeMean) * 4.0;
    if (b <= 1.0 || !(q > 0.0)) return 1.0f;
    if (p.dryFlag == 0) return F(i * b / q + 1.0);
    return F((1.0 - i / q) * b + 1.0);
}

void ParticleEngine::Bounce(ParticleRecord* r, const WorkImage* clip, float* kick) {
    const StepParameters& p = pool.params;
    const int ix = TruncateToInt(r->x), iy = TruncateToInt(r->y);
    // Outside the picture nothing happens, and the kick stays as the previous drop left it.
    if (!clip || ix < 0 || iy < 0 || ix >= p.width || iy >= p.height || ix >= clip->width ||
        iy >= clip->height)
        return;
    if (clip->rows[iy][static_cast<size_t>(ix) * 4] == 0 || r->bounceGain <= 0.0f) {
        r->bounceGain = 1.0f;
        *kick = 0.0f;
    } else if (r->bounces == 0) {
        const double first = NextRandom();
        r->bounceGain = F(-(first * p.rebound));
        r->bounces = 1;
        *kick = F(2.0 * (2.0 * NextRandom() - 1.0) * r->bounceGain);
    } else if (r->vy < 0.0f) {
        const double next = NextRandom();
        r->bounceGain = F((-1.0 / r->bounces) * (next * p.rebound));
        *kick = 0.0f;
        if (r->bounces < INT32_MAX) ++r->bounces;
        // Past the last bounce the drop is retired at the next update.
        if (r->bounces > p.mostBounces) r->age = F(static_cast<double>(r->lifetime) + 2.0);
    }
}

void ParticleEngine::Update(int frame, bool puddleBounce) {
    StepParameters& p = pool.params;
    const WorkImage* clip = kind == ParticleKind::Rain && puddleBounce ? BounceMatte() : nullptr;
    const double W = p.width, H = p.height;
    // One drop's kick is carried to the next drop in the list where that one neither lands nor
    // leaves the clip; that is how the bounces are meant to look.
    float kick = 0.0f;
    ParticleRecord* previous = nullptr;
    ParticleRecord* r = pool.activeHead;
    while (r) {
        ParticleRecord* next = r->next;
        r->age = F(r->age + 1.0);
        if (r->age >= r->lifetime || r->age >= r->extinction) {
            if (previous)
                previous->next = next;
            else
                pool.activeHead = next;
            r->next = pool.freeHead;
            pool.freeHead = r;
            --pool.activeCount;
            r = next;
            continue;
        }
        r->prevX = r->x;
        r->prevY = r->y;
        if (kind == ParticleKind::Rain) {
            if (puddleBounce) Bounce(r, clip, &kick);
            r->vx = F(static_cast<double>(r->vx) + kick);
            r->vy = F(static_cast<double>(r->vy) * r->bounceGain);
        }
        const float bias = kind == ParticleKind::Snow ? SizeBias(*r) : 1.0f;

        // Velocity: friction, then gravity.
        const float gravity =
            kind == ParticleKind::Snow ? F(static_cast<double>(p.gravity) * bias) : p.gravity;
        const double vx = r->vx, vy = r->vy;
        r->vx = F(vx - vx * p.friction + static_cast<double>(p.gravityCos) * gravity);
        r->vy = F(vy - vy * p.friction + static_cast<double>(p.gravitySin) * gravity);
        r->x = F(static_cast<double>(r->x) + r->vx);
        r->y = F(static_cast<double>(r->y) + r->vy);

        // Wind moves the position and leaves no momentum.
        if (p.windSpeed > 0.0001) {
            const float speed = kind == ParticleKind::Snow
                                    ? F(static_cast<double>(p.windSpeed) / bias)
                                    : p.windSpeed;
            if (kind == ParticleKind::Snow && p.multiDirectional) {
                // A blast away from the Wind point, fading to nothing at the Target's distance.
                float dx = F(static_cast<double>(r->x) - p.windX);
                float dy = F(static_cast<double>(r->y) - p.windY);
                const double ax = p.aspectX, ay = p.aspectY;
                const float d = F(std::sqrt(static_cast<double>(dx) * dx / (ay * ay) +
                                            static_cast<double>(dy) * dy / (ax * ax)));
                if (d > 0.0f) {
                    dx = F(static_cast<double>(dx) / d);
                    dy = F(static_cast<double>(dy) / d);
                }
                float t = F(static_cast<double>(d) / p.windRange);
                if (t > 1.0f) t = 1.0f;
                const float s = F((1.0 - t) * speed);
                r->x = F(static_cast<double>(r->x) + static_cast<double>(s) * dx);
                r->y = F(static_cast<double>(r->y) + static_cast<double>(s) * dy);
            } else {
                float dx = F(static_cast<double>(r->x) - p.windX);
                float dy = F(static_cast<double>(r->y) - p.windY);
                const float len =
                    F(std::sqrt(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy));
                if (len > 0.0f) {
                    dx = F(static_cast<double>(dx) / len);
                    dy = F(static_cast<double>(dy) / len);
                }
                const float dot =
                    F(static_cast<double>(dx) * p.windDirX + static_cast<double>(dy) * p.windDirY);
                if (dot > p.windCos) {
                    float den = F(1.0 - p.windCos);
                    if (den < 1e-6) den = 1e-6f;
                    const float s =
                        F(static_cast<double>(dot) * (dot - static_cast<double>(p.windCos)) / den);
                    r->x = F(r->x + static_cast<double>(s) * p.windDirX * speed);
                    r->y = F(r->y + static_cast<double>(s) * p.windDirY * speed);
                }
            }
        }

        // Swirls change the velocity only, so they show one update later.
        if (p.swirlDensity > 0.1) {
            const float u = F(r->x / W * p.swirlDensity);
            const float v = F(r->y / H * p.swirlDensity);
            const float w = F(static_cast<double>(frame) * p.swirlDensity * 0.04);
            if (p.swirlRamp < 1.0f) p.swirlRamp = 1.0f;
            float a = F(static_cast<double>(r->age) / p.swirlRamp);
            if (a > 1.0f) a = 1.0f;
            float amp = p.swirlAmp;
            if (kind == ParticleKind::Snow && amp > 0.0f) amp = F(static_cast<double>(amp) / bias);
            a = F(static_cast<double>(a) * amp);
            const float n1 =
                F(SwirlNoise(swirlGradients, F(u + 3.14), F(v + 2.71), F(w + 4.35)) * a);
            const float n2 = F(SwirlNoise(swirlGradients, u, v, w) * a);
            const double side =
                kind == ParticleKind::Rain ? n2 : n2 / static_cast<double>(p.aspectX);
            r->vx = F(r->vx + side);
            r->vy = F(static_cast<double>(r->vy) + n1);
        }
        previous = r;
        r = next;
    }
}

void ParticleEngine::RescaleParticles(int width, int height) {
    if (width < 1 || height < 1 || storedWidth < 1 || storedHeight < 1) return;
    const float sx = F(static_cast<double>(storedWidth) / width);
    const float sy = F(static_cast<double>(storedHeight) / height);
    for (ParticleRecord* r = pool.activeHead; r; r = r->next) {
        r->prevX = F(static_cast<double>(r->prevX) / sx);
        r->x = F(static_cast<double>(r->x) / sx);
        r->vx = F(static_cast<double>(r->vx) / sx);
        r->prevY = F(static_cast<double>(r->prevY) / sy);
        r->y = F(static_cast<double>(r->y) / sy);
        r->vy = F(static_cast<double>(r->vy) / sy);
        if (kind != ParticleKind::Rain) {
            const int i = TruncateToInt(r->stampIndex / static_cast<double>(sx));
            r->stampIndex = i < 0 ? 0 : (i > 40 ? 40 : i);
        }
    }
}

void ParticleEngine::Restart() {
    pool.ClearParticles();
}

void ParticleEngine::RestartPreRoll() {
    pool.ClearParticles();
    preRollRequested = 1;
}

void ParticleEngine::DoPreRoll() {
    preRollRequested = 1;
}
