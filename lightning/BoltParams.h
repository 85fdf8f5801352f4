// The settings of one frame of a bolt, filled from the tool's inputs, and the small records the
// bolt tree is built from. Lengths are in pixels of the output picture; reals are single precision.
#pragma once

#include <cstddef>
#include <cstdint>

struct BrushSet;

struct BoltParams {
    float startX = 0.0f, startY = 0.0f;      // first point of the bolt
    float endX = 0.0f, endY = 0.0f;          // last point of the bolt
    float mainOffset = 0.0f;                 // sideways offset of the main bolt at depth 1: W / 36
    float depthUnit = 0.0f;                  // unit of the depth in the fall-off of the offset
    float jitter = 0.0f;                     // random stretch of a midpoint, share of its segment
    int32_t depthCount = 0;                  // subdivision makes depthCount - 1 rounds
    float minAngle = 0.0f, maxAngle = 0.0f;  // spread of a branch from its parent, degrees
    float gapOffset0 = 0.0f, gapRange0 = 0.0f;  // branch gaps on the main bolt, share of its points
    float gapOffset1 = 0.0f, gapRange1 = 0.0f;  // twig gaps on a branch
    float branchOffset = 0.0f;                  // sideways offset of a branch
    float twigOffset = 0.0f;                    // sideways offset of a twig
    BrushSet* brushes[3] = {nullptr, nullptr, nullptr};  // one set a level; null: not stamped
    float brushRadius[3] = {0.0f, 0.0f, 0.0f};
    float glowRadiusA = 0.0f, glowRadiusB = 0.0f;  // blur of the rows, then of the columns
    float glowBrightness = 0.0f;
    int32_t glowRed = 0, glowGreen = 0, glowBlue = 0;
    float wobble = 0.0f;  // depth of the brightness profile
    float* wobbleX = nullptr;
    float* wobbleY = nullptr;
    float brightness = 0.0f;
    int32_t mode = 0;  // 1 add, 2 illuminate
    float minEnvLight = 0.0f, envScale = 0.0f;
    float drawn = 0.0f;         // share of the tree that is drawn, at most 1
    float expandShare = 0.0f;   // kept, never read
    float branchLength = 0.0f;  // factor on the length of branches and twigs (guided bolts)
    int32_t width = 0, height = 0;
    int32_t randomState = 0;  // state word of the generator for this frame
};

// A branch or twig as its parent proposes it: from a point of the parent to an end point.
struct BranchRecord {
    float startX, startY, endX, endY;
};

// Room in a list of branch records; a list stops growing when it is full.
constexpr int kBranchListSize = 128;
// Room in each polyline of the bolt tree: a subdivision that would need more points stops early.
constexpr int kPolylinePoints = 65536;
// Room in the arrays of the guide spline (its samples and its control points).
constexpr int kSplinePoints = 10000;
