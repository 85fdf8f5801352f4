// The soft round brush of the bolt, its sixteen copies moved by quarter pixels, and the stamping of
// a line with them. A line is walked on the grid of quarter pixels; each step leaves a mark (which
// copy of the brush goes where), and the marks are then stamped into the picture in the order they
// were made, row by row, so that any split of the rows gives the same picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class WorkImage;

// A square image of a soft disc: `size` x `size` pixels of four equal 15-bit samples.
struct Brush {
    int32_t size = 0;
    std::vector<uint16_t> pixels;
};

// The sixteen sub-pixel copies of one brush.
struct BrushSet {
    int32_t grid = 4;        // sub-pixel grid
    int32_t cellCount = 16;  // grid * grid
    // Cell j * 4 + i: the brush moved by (-0.375 + 0.25 i, -0.375 + 0.25 j).
    uint16_t* cells[16] = {};
    int32_t width = 0, height = 0;  // size of a cell: the brush's size plus 2
    int32_t mode = 1;               // 1 blend, 2 add
    // What a full stamp of each cell adds in the add mode: (sample * alpha) >> 15, sample by
    // sample.
    uint16_t* gains[16] = {};
    std::vector<uint16_t> block;  // the cells and their gains, one after another
    uint32_t serial = 0;          // counts the times the cells were made
};

// The largest brush radius in pixels that a set is made for; a larger one counts as a brush for
// which there is no memory.
constexpr float kLargestBrushRadius = 720.0f;

// A disc of radius r (at least 0.01) that falls off as the square of 1 - distance / r from half
// of full scale at its centre. False, and `brush` untouched, when the radius is too large.
bool MakeBrush(float radius, Brush& brush);

// Moves the run of n pixels at `source` by a fraction f of a pixel into the n + 2 pixels at
// `target`, with linear weights in 16-bit fixed point.
void ShiftRun(const uint16_t* source, int n, uint16_t* target, float f);

// The brush moved by (fx, fy) into `cell`, a block of (size + 2) x (size + 2) pixels; `run` is
// scratch of at least 2 * (size + 2) pixels.
void ShiftBrush(const Brush& brush, float fx, float fy, uint16_t* cell, uint16_t* run);

// The sixteen copies of `brush` into `set` (mode 1), reusing the set's block. False when the
// memory for the cells can't be had.
bool MakeBrushSet(const Brush& brush, BrushSet& set);

// One stamp of a brush copy: the pixel of the brush centre and the copy to use.
struct StampMark {
    int32_t px, py;
    uint8_t level;  // which brush set
    uint8_t cell;
    float coverage;  // share of the brush's alpha that is stamped, 1 for a full stamp
};

// Walks the line from (x0, y0) to (x1, y1) on the quarter-pixel grid of `set`, a Bresenham walk
// that starts on the first point and ends on the last, and appends a mark for each step whose
// brush reaches the picture of width x height. Steps at a negative grid coordinate leave no mark,
// nor do steps whose brush would fall wholly beyond the far edges; only the steps that can leave
// one are visited, however far outside the line runs.
void StampLine(std::vector<StampMark>& marks, const BrushSet& set, int level, float coverage,
               int width, int height, float x0, float y0, float x1, float y1);

// Stamps the marks, in order, into rows first..last of `image`, with the sets that their levels
// name (marks of a missing set are skipped). In the add mode each pixel under the brush gains
// (sample * e) >> 15 in each channel, e being the brush's alpha times the mark's coverage; in the
// blend mode the colour moves toward the brush by e and alpha stays.
void StampRows(const std::vector<StampMark>& marks, const BrushSet* const* sets, int setCount,
               WorkImage& image, int first, int last);

// The marks of a frame made ready for stamping. In the add mode the marks of one brush and strength
// on one pixel (the four steps a line takes through it) are summed first: a saturating sum of parts
// that are never negative does not depend on how they are grouped, so the picture is that of
// StampRows, touched once a pixel step. Each sum is made once and kept while the sets stay as
// they are.
class StampPlan {
  public:
    StampPlan();
    // Groups `marks` for `sets`, which must stay as they are until the plan has been stamped. The
    // sums are kept from plan to plan for as long as the sets are not made again.
    void Build(const std::vector<StampMark>& marks, const BrushSet* const* sets, int setCount);
    // Stamps the plan into rows first..last of `image`.
    void Rows(WorkImage& image, int first, int last) const;

    size_t StepCount() const { return steps_.size(); }
    size_t SumSamples() const { return sumWords_; }
    // Whether the last plan ran out of room for its sums.
    bool RoomRanOut() const { return full_; }

  private:
    static constexpr uint32_t kNoSum = 0xffffffffu;
    static constexpr uint64_t kEmpty = ~uint64_t{0};
    static constexpr int kSlotBits = 12;
    static constexpr int kSlots = 1 << kSlotBits;
    // Room for sums, in samples, and for their keys: marks whose sum finds no room are stamped
    // one by one, and the next plan starts afresh.
    static constexpr size_t kLargestSums = size_t{1} << 24;

    struct Step {
        int32_t px, py;
        uint8_t level, cell;
        float coverage;
        uint32_t sum;  // offset of a sum of gains, or kNoSum for the one cell
    };

    // The offset of the sum of what the `n` cells (sorted here) add at the share `coverage` of
    // their strength, made if need be; kNoSum when there is no room for it.
    uint32_t SumOf(const BrushSet& set, int level, int* cells, int n, float coverage);

    const BrushSet* sets_[3] = {nullptr, nullptr, nullptr};
    uint32_t serials_[3] = {0, 0, 0};
    std::vector<Step> steps_;
    std::vector<uint16_t> sums_;
    size_t sumWords_ = 0;
    int slotsUsed_ = 0;
    bool full_ = false;
    std::vector<uint64_t> slotKeys_;
    std::vector<uint32_t> slotSums_;
};
