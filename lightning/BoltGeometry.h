// The shape of a bolt: its coarse line, the midpoint displacement that makes it jagged, the choice
// of where branches grow, and the Catmull-Rom spline that guided bolts follow. All randomness comes
// from the shared generator through BoltParams::randomState, in a fixed order.
#pragma once

#include <cstdint>

#include "lightning/BoltParams.h"

// The three kinds of draw the bolt takes from the generator.
double PlainDraw(int32_t* state);
// A plain draw held to the single-precision value of 0.999999 where it exceeds 0.999999.
double ClampedDraw(int32_t* state);
// 2r - 1 for a plain draw r.
double SignedDraw(int32_t* state);

// The coarse line from start to end into x, y: two points, or about every second seed three, the
// middle one pushed aside by up to 30% of the length. Returns the point count. Takes one draw, and
// three more for a middle point.
int MakeBaseLine(BoltParams& p, float* x, float* y);

// Six rounds of midpoint displacement on the polyline x, y of `count` points, in place. Level 0, 1
// or 2 picks the offset (mainOffset, branchOffset, twigOffset); the offset falls with the square
// of the depth and always goes to the same side of the direction of travel, while each midpoint is
// stretched at random along x and along y. scratchX and scratchY hold `capacity` floats, as do
// x and y; a round that would need more points than that is not made. Returns the new count:
// 64 * (count - 1) + 1 when there is room. Takes two draws a segment.
int SubdivideBolt(BoltParams& p, float* x, float* y, int count, int level, float* scratchX,
                  float* scratchY, int capacity);

// Proposes branches along the polyline x, y of `count` points into `list` (room for
// kBranchListSize records): roots at random gaps up to 85% of the way, each branch turned from its
// parent's direction by minAngle to maxAngle degrees to either side, two to four times as long as
// the 7% of the parent ahead of its root, times `lengthFactor`. Level 0 uses the gaps of the main
// bolt, level 1 those of a branch. Returns the number of records. Four draws a record, and one for
// the gap that ends the list.
int PickBranches(BoltParams& p, const float* x, const float* y, int count, BranchRecord* list,
                 int level, float lengthFactor);

// Samples the Catmull-Rom spline through the n control points (srcX, srcY, srcZ) at `samples`
// points evenly spaced in the spline's parameter, the last a hair before the last control point;
// the end tangents repeat the end points. dstX, dstY, dstZ get the samples and dstT the fraction
// within each span. The destinations hold `samples` floats; nothing is done for fewer than 1.
void SamplePolyline(const float* srcX, const float* srcY, const float* srcZ, int n, float* dstX,
                    float* dstY, float* dstZ, float* dstT, int samples);
