#include "app/Numbers.h"

#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>

#include "app/AppError.h"

namespace {

bool Blank(char c) {
    return c == ' ' || c == '\t';
}

bool Digit(char c) {
    return c >= '0' && c <= '9';
}

// The text without the blanks around it.
std::string Trim(const std::string& text) {
    size_t a = 0, b = text.size();
    while (a < b && Blank(text[a]))
        ++a;
    while (b > a && Blank(text[b - 1]))
        --b;
    return text.substr(a, b - a);
}

std::string Quoted(const std::string& what, const std::string& text) {
    return what + " '" + text + "'";
}

}  // namespace

NumberRead ReadReal(const std::string& text, double* out) {
    const std::string t = Trim(text);
    // The shape first: strtod alone would take hexadecimal, "inf", "nan" and leading blanks.
    size_t i = 0;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
    size_t digits = 0;
    while (i < t.size() && Digit(t[i]))
        ++i, ++digits;
    if (i < t.size() && t[i] == '.') {
        ++i;
        while (i < t.size() && Digit(t[i]))
            ++i, ++digits;
    }
    if (digits == 0) return NumberRead::NotANumber;
    if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
        ++i;
        if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
        size_t exponent = 0;
        while (i < t.size() && Digit(t[i]))
            ++i, ++exponent;
        if (exponent == 0) return NumberRead::NotANumber;
    }
    if (i != t.size()) return NumberRead::NotANumber;
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(t.c_str(), &end);
    if (end != t.c_str() + t.size()) return NumberRead::NotANumber;
    // Underflow also sets ERANGE; only a value that does not fit is refused.
    if (!std::isfinite(v) || (errno == ERANGE && std::fabs(v) > 1.0)) return NumberRead::OutOfRange;
    *out = v;
    return NumberRead::Ok;
}

double ParseReal(const std::string& text, const std::string& what) {
    double v = 0.0;
    switch (ReadReal(text, &v)) {
        case NumberRead::Ok:
            return v;
        case NumberRead::OutOfRange:
            throw AppError(Quoted(what, text) + " is out of range");
        case NumberRead::NotANumber:
            break;
    }
    throw AppError(Quoted(what, text) + " is not a number");
}

float ParseFloat(const std::string& text, const std::string& what) {
    const double v = ParseReal(text, what);
    if (std::fabs(v) > static_cast<double>(FLT_MAX))
        throw AppError(Quoted(what, text) + " is out of range");
    return static_cast<float>(v);
}

int64_t ParseWhole(const std::string& text, int64_t lo, int64_t hi, const std::string& what) {
    const std::string t = Trim(text);
    size_t i = 0;
    bool negative = false;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) negative = t[i++] == '-';
    if (i == t.size()) throw AppError(Quoted(what, text) + " is not a whole number");
    // Accumulated with a cap, so that no count of digits can overflow; every range asked for lies
    // well inside the cap.
    const int64_t cap = 100000000000000000;
    int64_t magnitude = 0;
    for (; i < t.size(); ++i) {
        if (!Digit(t[i])) throw AppError(Quoted(what, text) + " is not a whole number");
        if (magnitude < cap) magnitude = magnitude * 10 + (t[i] - '0');
    }
    const int64_t v = negative ? -magnitude : magnitude;
    if (magnitude >= cap || v < lo || v > hi)
        throw AppError(Quoted(what, text) + " is out of range (" + std::to_string(lo) + " to " +
                       std::to_string(hi) + ")");
    return v;
}
