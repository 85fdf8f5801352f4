// The raindrops of Puddle: a list of drops that lives from render to render, births drawn from the
// shared generator, ages that follow the frames actually rendered, and the sum of their rings into
// a wave field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class WaveSineTable;

// One live drop.
struct RainDrop {
    float x = 0.0f;          // landing place, 0 to 1 across the width
    float y = 0.0f;          // landing place in the same unit (the height is height / width of it)
    int32_t birthFrame = 0;  // frame of landing
    int32_t dead = 0;        // set when the drop has faded
    float age = 0.0f;        // (frame - birthFrame) * 0.05
    float decay = 0.0f;      // -ln(0.004) / endurance at birth
    float speed = 0.0f;      // growth of the ring's radius per unit of age, in widths
    float amplitude = 0.0f;  // exp(-age * decay)
};

// The rain's settings for one render, as the engine holds them.
struct RainSettings {
    float rate = 0.5f;       // "Rain Freq" * 0.1
    float impact = 1.0f;     // "Rain Impact"
    float radius = 0.1f;     // "Rain Radius" * 0.01
    float endurance = 1.0f;  // "Rain Endurance"
    int32_t width = 0, height = 0;
    double aspect = 1.0;  // pixel aspect X over Y of the output
};

// A drop fades out below this amplitude.
constexpr double kFadedAmplitude = 0.004;

class DropList {
  public:
    // Forgets every drop.
    void Clear() { drops_.clear(); }
    size_t Size() const { return drops_.size(); }
    // Puts a drop at the head of the list as it is.
    void Add(const RainDrop& d) { drops_.push_back(d); }
    // Drop `i` counted from the head of the list: the newest first.
    const RainDrop& FromHead(size_t i) const { return drops_[drops_.size() - 1 - i]; }
    RainDrop& FromHead(size_t i) { return drops_[drops_.size() - 1 - i]; }

    // One render's step to frame t: drops of the future go, frame t's drops land, and every drop
    // ages to t. Draws from the generator through `randomState`.
    void Step(int t, const RainSettings& s, int32_t* randomState);
    // Rebuilds the rain of the frames from `from` up to but not including `to`, one frame after
    // another, continuing the generator's sequence through all of them.
    void Replay(int from, int to, const RainSettings& s, int32_t* randomState);
    // Unlinks every drop whose dead flag is set, keeping the order of the rest.
    void RemoveDead();

    // Summing the rings. PrepareField marks the faded drops dead and finds the pixel box of every
    // other one on the tool's thread; SumRows then adds the rings into rows first..last of
    // `field` (width x height floats, row after row, cleared by the caller). Every pixel takes the
    // drops in list order, so any split of the rows gives the same field.
    void PrepareField(const RainSettings& s);
    void SumRows(float* field, const WaveSineTable& table, int first, int last) const;

  private:
    // Lands `count` drops of frame `frame`; false when no more could be made.
    void Land(int count, int frame, const RainSettings& s, int32_t* randomState);
    // Ages every drop to frame `frame`.
    void Age(int frame);

    // The part of a drop's ring that lies on the picture.
    struct Box {
        const RainDrop* drop;
        double x0, y0;    // box edges after clipping, in pixels
        int firstColumn;  // trunc(x0)
        int endColumn;    // columns run while below x1
        int firstRow;     // trunc(y0)
        int lastRow;      // rows run while at or below y1
        double ring;      // radius of the ring, in widths
        float A;          // amplitude * -2
    };

    // Oldest first: the head of the list is the back, and new drops are pushed there.
    std::vector<RainDrop> drops_;
    std::vector<Box> boxes_;  // of the render in progress, in list order
    double dx_ = 0.0, dy_ = 0.0, impact_ = 0.0, aspect_ = 1.0;
    int width_ = 0;
};
