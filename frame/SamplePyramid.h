// The area sampler: the mean colour of a rectangle of a source picture, found from an image pyramid
// with two bilinear fetches however large the rectangle, and the three ways of treating a
// rectangle that reaches over the picture's edge.
//
// Coordinates are floats in pixels of level 0, pixel centres on whole numbers. Results are four
// 16-bit samples in the order red, green, blue, alpha.
#pragma once

#include <cstdint>

class WorkImage;

// What the sampler does where a rectangle leaves the picture.
enum EdgeMode : int {
    kEdgeDup = 0,    // the edge pixels continue outward
    kEdgeBlack = 1,  // the part outside counts as transparent black
    kEdgeWrap = 2,   // the rectangle's centre wraps round the picture
};

constexpr int kPyramidSlots = 20;

// A picture and its halvings. Level n is level n - 1 averaged over 2 by 2 blocks, an odd last row
// or column dropped. Pixels are stored alpha, blue, green, red; the fetch turns them round again.
struct SamplePyramid {
    int32_t width = 0, height = 0;  // level 0
    int32_t levelCount = 0;         // levels above 0: floor(log2(min(width, height)))
    uint16_t* levels[kPyramidSlots] = {};
    int32_t levelWidth[kPyramidSlots] = {};
    int32_t levelHeight[kPyramidSlots] = {};
    // From level 0 coordinates to those of level n: (min side of level n - 1) / min side of
    // level 0, and 1 for level 0.
    float levelScale[kPyramidSlots] = {};
    uint16_t* baseBlock = nullptr;   // level 0, width * height pixels
    uint16_t* upperBlock = nullptr;  // every level above 0, in a block as large as level 0
    bool fits15 = false;             // no sample above 32767, as in every imported picture
};

// Builds the pyramid of the top-left width x height pixels of `source`. With `reuse` given, its
// blocks are kept when it has that size already and it is rebuilt in place; otherwise it is freed.
// Null if the record or its blocks cannot be allocated, or if `source` is missing or smaller.
SamplePyramid* BuildPyramid(const WorkImage* source, int width, int height,
                            SamplePyramid* reuse = nullptr);

// Frees the record and its blocks. Accepts null.
void FreePyramid(SamplePyramid* pyramid);

// The mean of the rectangle (bounds in either order), all four channels. Returns `result`. A null
// pyramid gives zeros.
uint16_t* SampleRect(uint16_t result[4], const SamplePyramid* pyramid, float left, float top,
                     float right, float bottom, int edgeMode);

// The same walk, computing only the channels whose flag is set; the others are 0.
uint16_t* SampleRectChannels(uint16_t result[4], const SamplePyramid* pyramid, float left,
                             float top, float right, float bottom, int edgeMode, int wantRed,
                             int wantGreen, int wantBlue, int wantAlpha);
