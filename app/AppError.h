// Errors of the command line and the flow files: one line that names what is at fault.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

class AppError : public std::runtime_error {
  public:
    explicit AppError(const std::string& what) : std::runtime_error(what) {}
};

// A render stopped by an interruption (Ctrl-C).
class Interrupted : public std::runtime_error {
  public:
    explicit Interrupted(const std::string& what) : std::runtime_error(what) {}
};

// The nearest of `choices` to `word` (edit distance, any case), or "" when none is close.
std::string Nearest(const std::string& word, const std::vector<std::string>& choices);
