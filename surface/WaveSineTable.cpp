#include "surface/WaveSineTable.h"

#include <cmath>

namespace {

// 2 pi / 1024 to single precision.
constexpr float kStep = 0.0061359233f;

}  // namespace

bool WaveSineTable::Make() {
    for (int i = 0; i < kSize; ++i)
        values_[i] = static_cast<float>(std::sin(i * static_cast<double>(kStep)) * 0.5);
    return true;
}

void WaveSineTable::Locate(double position, int* index, double* fraction) const {
    // The fraction keeps the sign of the position: -0.25 cycles is 256 steps back from the end.
    const double f = (position - std::trunc(position)) * 1024.0;
    if (!std::isfinite(f)) {
        // A position that is not a finite number reads the first entry.
        *index = 0;
        *fraction = 0.0;
        return;
    }
    int i = static_cast<int>(f);
    *fraction = f - i;
    if (i < 0) i += kSize;
    *index = i;
}

double WaveSineTable::At(double position) const {
    int i;
    double t;
    Locate(position, &i, &t);
    return values_[i];
}

double WaveSineTable::Interpolate(double position) const {
    int i;
    double t;
    Locate(position, &i, &t);
    const int j = i + 1 == kSize ? 0 : i + 1;
    return (1.0 - t) * values_[i] + t * values_[j];
}
