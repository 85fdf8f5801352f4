// Generated backgrounds: solid colours and test patterns, for flows that need no image files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Image;

struct PatternSpec {
    std::string kind = "solid";  // solid, checker, gradient, bars, grid
    int width = 720, height = 486;
    uint16_t colour[4] = {0, 0, 0, 0};                   // the main colour (16-bit samples)
    uint16_t colour2[4] = {65535, 65535, 65535, 65535};  // the second colour of a pattern
    int cell = 40;                                       // checker squares and grid spacing, pixels
};

const std::vector<std::string>& PatternKinds();

// A new host image of the pattern; row 0 is the bottom row, so "top" means the last row.
Image* MakePattern(const PatternSpec& spec);
