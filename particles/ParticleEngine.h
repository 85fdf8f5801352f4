// The simulation that Rain, Smoke and Snow share: a pool of particles that lives in the engine
// between renders, born on a line, pushed by gravity, friction, wind and swirls, retired by age.
// One render makes exactly one simulation step, whatever the frame asked for; the frame number
// only moves the swirls. The buttons (Restart, Restart+PreRoll, Do PreRoll) are the only way back.
//
// All random numbers of a step are drawn here, on the processing thread, from the engine's own
// sequence; the draw pass only reads the records, so the picture does not depend on the number of
// processors.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/ToolEngine.h"
#include "particles/ParticlePool.h"
#include "particles/SwirlNoise.h"

class WorkImage;

class ParticleEngine : public ToolEngine, public ToolOverlay {
  public:
    explicit ParticleEngine(ParticleKind kind);

    // The render of the three tools: parameters, the background, the size check, any pre-roll
    // asked for, and one step.
    void Render() override;

    // One step: births on the line (xs, ys; n points), then the draw pass unless pre-rolling,
    // then the update of every particle. Returns 1, and does nothing at all, when n < 1.
    int StepParticles(const float* xs, const float* ys, int n, int frame, bool useBirthMatte,
                      bool puddleBounce);
    // Takes every particle from the stored size to width x height, keeping its look in
    // proportion.
    void RescaleParticles(int width, int height);

    // What the buttons do at once.
    void Restart();         // the pool is emptied; the next render steps from nothing
    void RestartPreRoll();  // the same, and the next render runs the pre-roll first
    void DoPreRoll();       // the next render runs the pre-roll on top of the present state

    ParticleKind kind;
    ParticlePool pool;
    int32_t birthSeedState = -567;
    SwirlGradients swirlGradients;
    int32_t preRollRequested = 0;
    int32_t firstSizePending = 1;
    int32_t storedWidth = 0, storedHeight = 0;
    // The birth line of the render in progress.
    std::vector<float> birthX, birthY;
    int birthCount = 0;
    // Records born in the latest step (for tests and the curious).
    int bornLastStep = 0;

    // The next deviate of the engine's own sequence.
    double NextRandom();

  protected:
    // Tool-specific work before the parameters (Smoke and Snow rebuild what depends on the pixel
    // aspect). False ends the render.
    virtual bool PrepareRender() { return true; }
    // Fills pool.params (and the tool's own drawing values) from the inputs.
    virtual void FillStepParameters() = 0;
    // Lays the Background Clip into the output.
    virtual void CopyBackground();
    // The draw pass of one step, over the rows of the output.
    virtual void DrawPass() = 0;
    // Work after the step (Snow lays its settled layers).
    virtual void FinishRender() {}
    // The inputs the render reads directly.
    virtual void BirthEnds(double* x0, double* y0, double* x1, double* y1) const = 0;
    virtual int PreRollSteps() const = 0;
    virtual bool UseBirthMatte() const { return false; }
    virtual bool PuddleBounce() const { return false; }
    // Smoke and Snow: the size of a new particle, one draw.
    virtual void SizeAtBirth(ParticleRecord* record) { (void)record; }

    // The matte of births (channel 0 not 0 lets a particle be born) and the clip drops bounce on.
    virtual const WorkImage* BirthMatte() const;
    virtual const WorkImage* BounceMatte() const { return nullptr; }

  private:
    void EmitWithRetries(const float* xs, const float* ys, int n, bool useBirthMatte);
    void EmitEach(const float* xs, const float* ys, int n);
    void PickJitter(float* x, float* y);
    void SpreadVelocity(float* vx, float* vy);
    void PickColour(ParticleRecord* r);
    void Update(int frame, bool puddleBounce);
    void Bounce(ParticleRecord* r, const WorkImage* clip, float* kick);
    float SizeBias(const ParticleRecord& r) const;
};
