// Numbers typed on the command line: one strict reader for every option that takes a number, so
// that each says the same things about what was wrong.
#pragma once

#include <cstdint>
#include <string>

enum class NumberRead { Ok, NotANumber, OutOfRange };

// A decimal real: optional blanks around an optional sign, digits with at most one point, and an
// optional exponent. No hexadecimal, no "inf" or "nan". A value too small to hold reads as the
// nearest the type holds (down to 0); a value too large to hold is out of range.
NumberRead ReadReal(const std::string& text, double* out);

// The same, throwing AppError "<what> '<text>' is not a number" or "... is out of range".
double ParseReal(const std::string& text, const std::string& what);
// A real that must fit a float.
float ParseFloat(const std::string& text, const std::string& what);
// A whole number from lo to hi: optional blanks around an optional sign and decimal digits.
int64_t ParseWhole(const std::string& text, int64_t lo, int64_t hi, const std::string& what);
