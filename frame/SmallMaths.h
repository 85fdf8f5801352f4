// Vector helpers shared by the tools.
#pragma once

// Normalises the three components of v in place and returns the length found. The length comes
// from three fixed Newton steps in extended precision and is returned unrounded.
long double NormaliseVector(float* v);

// result = a x b. result must not overlap an operand.
void CrossProduct(float* result, const float* a, const float* b);

// Truncation toward zero of a real into a signed 32-bit word, defined for every input: NaN gives 0
// and values beyond the range give its ends.
int TruncateToInt(double v);
