// On-screen controls of the weather tools: the two ends of the birth line with the outline of the
// zone where particles are born, and a pair of points (a source and its target) with the two
// edges of a cone about the line from one to the other.
#pragma once

#include "frame/ScreenControl.h"

// Handles 1 and 2 at the ends of the birth line (slot inputs 0 and 1). The outline runs at
// `zoneRadius` image pixels from the line: two parallel lines and a half circle round each end.
class BirthLineControl : public LineControl {
  public:
    using LineControl::LineControl;
    void Draw() override;
    float zoneRadius = 0.0f;
};

// Handle 1 at the source, handle 2 at the target (slot inputs 0 and 1). The cone has the full
// angle `spreadDegrees`, its edges as long as the line from source to target.
class ConeControl : public LineControl {
  public:
    using LineControl::LineControl;
    void Draw() override;
    float spreadDegrees = 0.0f;
};
