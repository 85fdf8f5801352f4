#include "app/Patterns.h"

#include "host/App.h"
#include "host/Parameters.h"

const std::vector<std::string>& PatternKinds() {
    static const std::vector<std::string> kinds = {"solid", "checker", "gradient", "bars", "grid"};
    return kinds;
}

namespace {

void Put(uint16_t* p, const uint16_t c[4]) {
    p[0] = c[0];
    p[1] = c[1];
    p[2] = c[2];
    p[3] = c[3];
}

// Seven bars of 75% colour, white to blue, across the width.
const uint16_t kBars[7][4] = {
    {49151, 49151, 49151, 65535}, {49151, 49151, 0, 65535}, {0, 49151, 49151, 65535},
    {0, 49151, 0, 65535},         {49151, 0, 49151, 65535}, {49151, 0, 0, 65535},
    {0, 0, 49151, 65535},
};

}  // namespace

Image* MakePattern(const PatternSpec& spec) {
    Image* image = GetApp()->Images().Take(spec.width, spec.height);
    const int cell = spec.cell > 0 ? spec.cell : 1;
    const int top = spec.height - 1;
    for (int y = 0; y < spec.height; ++y) {
        uint16_t* row = image->Row(y);
        const int fromTop = top - y;
        for (int x = 0; x < spec.width; ++x) {
            uint16_t* p = row + static_cast<size_t>(x) * 4;
            if (spec.kind == "checker") {
                Put(p, ((x / cell + fromTop / cell) & 1) ? spec.colour2 : spec.colour);
            } else if (spec.kind == "grid") {
                Put(p, (x % cell == 0 || fromTop % cell == 0) ? spec.colour2 : spec.colour);
            } else if (spec.kind == "bars") {
                Put(p, kBars[static_cast<int64_t>(x) * 7 / spec.width]);
            } else if (spec.kind == "gradient") {
                const int64_t span = spec.width > 1 ? spec.width - 1 : 1;
                for (int c = 0; c < 4; ++c)
                    p[c] = static_cast<uint16_t>((spec.colour[c] * (span - x) +
                                                  spec.colour2[c] * static_cast<int64_t>(x) +
                                                  span / 2) /
                                                 span);
            } else {
                Put(p, spec.colour);
            }
        }
    }
    return image;
}
