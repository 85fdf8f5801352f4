// One whole cycle of a sine of half amplitude in 1024 steps, read by the wave tools at a position
// given in cycles. Only the fraction of the position counts; a negative fraction reads the cycle
// from its end.
#pragma once

class WaveSineTable {
  public:
    static constexpr int kSize = 1024;

    // Fills the entries: entry i is sin(i * 2 pi / 1024) * 0.5, the step taken as a
    // single-precision constant. True once filled.
    bool Make();

    // The entry below the position, with no interpolation.
    double At(double position) const;

    // Linear interpolation between the entry below the position and the next. For a negative
    // position the weight is negative too, so the value is extrapolated away from the next entry
    // rather than interpolated towards it; the pool's twirls wound the other way rely on this.
    double Interpolate(double position) const;

    float Entry(int i) const { return values_[i]; }

  private:
    // The entry and the signed fraction of a step at a position in cycles.
    void Locate(double position, int* index, double* fraction) const;

    float values_[kSize] = {};
};
