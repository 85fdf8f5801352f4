#include "lightning/BoltBrush.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include "frame/WorkImage.h"

namespace {

// Grid coordinates are held within +-2^40: a line that reaches further has long left any picture.
constexpr double kGridReach = 1099511627776.0;

int64_t GridOf(float v, int grid) {
    double g = static_cast<double>(v) * grid;
    if (std::isnan(g)) return 0;
    if (g > kGridReach) g = kGridReach;
    if (g < -kGridReach) g = -kGridReach;
    return static_cast<int64_t>(g);
}

// Minor steps a Bresenham walk has taken after k major steps, the error having started at -major:
// the smallest m for which -major + 2 minor k - 2 major m is not positive.
int64_t MinorStepsAfter(int64_t k, int64_t major, int64_t minor) {
    if (major == 0) return 0;
    const __int128 num = static_cast<__int128>(2 * minor) * k - major;
    const __int128 den = static_cast<__int128>(2) * major;
    if (num <= 0) return static_cast<int64_t>(-((-num) / den));
    return static_cast<int64_t>((num + den - 1) / den);
}

uint16_t Saturate(uint32_t v) {
    return static_cast<uint16_t>(v > 32767 ? 32767 : v);
}

}  // namespace

bool MakeBrush(float radius, Brush& brush) {
    float r = radius;
    if (!(r >= 0.01f)) r = 0.01f;
    if (r > kLargestBrushRadius) return false;
    const int c = static_cast<int>(std::ceil(r));
    const int size = 2 * c + 1;
    brush.size = size;
    brush.pixels.resize(static_cast<size_t>(size) * size * 4);
    const double inverse = 1.0 / static_cast<double>(r);
    uint16_t* p = brush.pixels.data();
    for (int j = -c; j <= c; ++j) {
        for (int i = -c; i <= c; ++i, p += 4) {
            double v = 1.0 - std::sqrt(static_cast<double>(i * i + j * j)) * inverse;
            if (v < 0.0) v = 0.0;
            int value = static_cast<int>(v * v * 0.5 * 32767.0);
            if (value > 32767) value = 32767;
            p[0] = p[1] = p[2] = p[3] = static_cast<uint16_t>(value);
        }
    }
    return true;
}

void ShiftRun(const uint16_t* source, int n, uint16_t* target, float f) {
    std::memset(target, 0, sizeof(uint16_t) * 4 * static_cast<size_t>(n + 2));
    const double m = std::fmod(static_cast<double>(f), 1.0);
    uint32_t a;
    uint16_t* out = target;
    if (m < 0.0) {
        a = static_cast<uint32_t>(m * -65536.0);
    } else {
        a = static_cast<uint32_t>((1.0 - m) * 65536.0);
        out += 4;
    }
    const uint32_t b = 65536 - a;
    const uint16_t zero[4] = {0, 0, 0, 0};
    const uint16_t* previous = zero;
    for (int i = 0; i < n; ++i, out += 4) {
        const uint16_t* s = source + static_cast<size_t>(i) * 4;
        for (int c = 0; c < 4; ++c)
            out[c] = static_cast<uint16_t>((s[c] * a + previous[c] * b) >> 16);
        previous = s;
    }
    if (b > 0)
        for (int c = 0; c < 4; ++c)
            out[c] = static_cast<uint16_t>((previous[c] * b) >> 16);
}

void ShiftBrush(const Brush& brush, float fx, float fy, uint16_t* cell, uint16_t* run) {
    const int s = brush.size;
    const int w = s + 2;
    std::memset(cell, 0, sizeof(uint16_t) * 4 * static_cast<size_t>(w) * w);
    for (int y = 0; y < s; ++y)
        ShiftRun(brush.pixels.data() + static_cast<size_t>(y) * s * 4, s,
                 cell + static_cast<size_t>(y) * w * 4, fx);
    uint16_t* column = run;
    uint16_t* moved = run + static_cast<size_t>(w) * 4;
    for (int x = 0; x < w; ++x) {
        for (int y = 0; y < s; ++y)
            std::memcpy(column + static_cast<size_t>(y) * 4,
                        cell + (static_cast<size_t>(y) * w + x) * 4, sizeof(uint16_t) * 4);
        ShiftRun(column, s, moved, fy);
        for (int y = 0; y < w; ++y)
            std::memcpy(cell + (static_cast<size_t>(y) * w + x) * 4,
                        moved + static_cast<size_t>(y) * 4, sizeof(uint16_t) * 4);
    }
}

bool MakeBrushSet(const Brush& brush, BrushSet& set) {
    const int w = brush.size + 2;
    const size_t cellWords = static_cast<size_t>(w) * w * 4;
    try {
        set.block.resize(cellWords * 32 + static_cast<size_t>(w) * 8);
    } catch (const std::bad_alloc&) {
        return false;
    }
    ++set.serial;
    set.grid = 4;
    set.cellCount = 16;
    set.width = w;
    set.height = w;
    set.mode = 1;
    uint16_t* run = set.block.data() + cellWords * 32;
    const float start = (1.0f - 4.0f) / (2.0f * 4.0f);
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const int k = j * 4 + i;
            uint16_t* cell = set.block.data() + cellWords * k;
            uint16_t* gain = set.block.data() + cellWords * (16 + k);
            set.cells[k] = cell;
            set.gains[k] = gain;
            ShiftBrush(brush, start + 0.25f * i, start + 0.25f * j, cell, run);
            for (size_t p = 0; p < cellWords; p += 4)
                for (int c = 0; c < 4; ++c)
                    gain[p + c] =
                        static_cast<uint16_t>((cell[p + c] * uint32_t{cell[p + 3]}) >> 15);
        }
    return true;
}

void StampLine(std::vector<StampMark>& marks, const BrushSet& set, int level, float coverage,
               int width, int height, float x0, float y0, float x1, float y1) {
    const int grid = set.grid;
    if (grid < 1 || width < 1 || height < 1) return;
    const int64_t gx0 = GridOf(x0, grid), gy0 = GridOf(y0, grid);
    const int64_t gx1 = GridOf(x1, grid), gy1 = GridOf(y1, grid);
    const int64_t sx = gx1 < gx0 ? -1 : 1, sy = gy1 < gy0 ? -1 : 1;
    const int64_t adx = gx1 < gx0 ? gx0 - gx1 : gx1 - gx0;
    const int64_t ady = gy1 < gy0 ? gy0 - gy1 : gy1 - gy0;
    const bool steep = ady > adx;
    const int64_t major = steep ? ady : adx, minor = steep ? adx : ady;

    // A stamp at grid point g reaches the picture when g is at least 0 and its pixel g / grid is
    // not beyond the far edge by more than half a cell.
    const int64_t reachX = grid * (static_cast<int64_t>(width) - 1 + set.width / 2) + grid - 1;
    const int64_t reachY = grid * (static_cast<int64_t>(height) - 1 + set.height / 2) + grid - 1;
    const int64_t majorStart = steep ? gy0 : gx0, minorStart = steep ? gx0 : gy0;
    const int64_t majorSign = steep ? sy : sx, minorSign = steep ? sx : sy;
    const int64_t majorReach = steep ? reachY : reachX, minorReach = steep ? reachX : reachY;

    // The steps whose major coordinate lies within 0..majorReach.
    int64_t kFirst, kLast;
    if (majorSign > 0) {
        kFirst = -majorStart;
        kLast = majorReach - majorStart;
    } else {
        kFirst = majorStart - majorReach;
        kLast = majorStart;
    }
    if (kFirst < 0) kFirst = 0;
    if (kLast > major) kLast = major;
    if (kFirst > kLast) return;

    // The walk as it stands after kFirst steps.
    const int64_t m = MinorStepsAfter(kFirst, major, minor);
    int64_t error = static_cast<int64_t>(static_cast<__int128>(2 * minor) * kFirst - major -
                                         static_cast<__int128>(2 * major) * m);
    int64_t along = majorStart + majorSign * kFirst;
    int64_t across = minorStart + minorSign * m;
    for (int64_t k = kFirst; k <= kLast; ++k) {
        if (across >= 0 && across <= minorReach) {
            const int64_t gx = steep ? across : along, gy = steep ? along : across;
            marks.push_back({static_cast<int32_t>(gx / grid), static_cast<int32_t>(gy / grid),
                             static_cast<uint8_t>(level),
                             static_cast<uint8_t>((gy % grid) * grid + gx % grid), coverage});
        } else if ((minorSign > 0) == (across > minorReach)) {
            break;  // moving away from the picture
        }
        error += 2 * minor;
        if (error > 0) {
            across += minorSign;
            error -= 2 * major;
        }
        along += majorSign;
    }
}

namespace {

// The part of a cell of width x height centred on pixel (px, py) that falls on rows first..last of
// the image: false when there is none.
struct Footprint {
    int left, bottom, x0, x1, y0, y1;
    size_t words;  // samples of a row
};

bool FootprintOf(const WorkImage& image, int w, int h, int px, int py, int first, int last,
                 Footprint& f) {
    f.left = px - w / 2;
    f.bottom = py - h / 2;
    f.y0 = f.bottom > first ? f.bottom : first;
    f.y1 = f.bottom + h - 1 < last ? f.bottom + h - 1 : last;
    if (f.y0 > f.y1) return false;
    f.x0 = f.left > 0 ? f.left : 0;
    f.x1 = f.left + w - 1 < image.width - 1 ? f.left + w - 1 : image.width - 1;
    if (f.x0 > f.x1) return false;
    f.words = static_cast<size_t>(f.x1 - f.x0 + 1) * 4;
    return true;
}

// Adds a cell-sized block of increments, each sample held at full scale. A zero alpha adds
// nothing, so whole rows of increments can be added.
void AddGains(WorkImage& image, const uint16_t* gains, int w, int h, int px, int py, int first,
              int last) {
    Footprint f;
    if (!FootprintOf(image, w, h, px, py, first, last, f)) return;
    for (int y = f.y0; y <= f.y1; ++y) {
        const uint16_t* g = gains + (static_cast<size_t>(y - f.bottom) * w + (f.x0 - f.left)) * 4;
        uint16_t* p = image.rows[y] + static_cast<size_t>(f.x0) * 4;
        for (size_t i = 0; i < f.words; ++i)
            p[i] = Saturate(uint32_t{p[i]} + g[i]);
    }
}

// One stamp of a cell at a share of its strength, in the mode of its set.
void StampCell(WorkImage& image, const BrushSet& set, int cellIndex, float share, int px, int py,
               int first, int last) {
    if (set.mode == 2 && share == 1.0f) {
        AddGains(image, set.gains[cellIndex], set.width, set.height, px, py, first, last);
        return;
    }
    Footprint f;
    if (!FootprintOf(image, set.width, set.height, px, py, first, last, f)) return;
    const double coverage = share;
    for (int y = f.y0; y <= f.y1; ++y) {
        const uint16_t* c = set.cells[cellIndex] +
                            (static_cast<size_t>(y - f.bottom) * set.width + (f.x0 - f.left)) * 4;
        uint16_t* p = image.rows[y] + static_cast<size_t>(f.x0) * 4;
        if (set.mode == 2) {
            for (int x = f.x0; x <= f.x1; ++x, c += 4, p += 4) {
                const uint32_t a = c[3];
                if (a == 0) continue;
                const uint32_t e = static_cast<uint32_t>(a * coverage);
                if (e == 0) continue;
                p[0] = Saturate(p[0] + ((c[0] * e) >> 15));
                p[1] = Saturate(p[1] + ((c[1] * e) >> 15));
                p[2] = Saturate(p[2] + ((c[2] * e) >> 15));
                p[3] = Saturate(p[3] + ((a * e) >> 15));
            }
        } else if (set.mode == 1) {
            for (int x = f.x0; x <= f.x1; ++x, c += 4, p += 4) {
                const uint32_t e = static_cast<uint32_t>(c[3] * coverage);
                for (int k = 0; k < 3; ++k)
                    p[k] = static_cast<uint16_t>((c[k] * e + p[k] * (32767 - e)) >> 15);
            }
        }
    }
}

int HeldRows(const WorkImage& image, int& first, int& last) {
    if (first < 0) first = 0;
    if (last > image.height - 1) last = image.height - 1;
    return last - first + 1;
}

}  // namespace

void StampRows(const std::vector<StampMark>& marks, const BrushSet* const* sets, int setCount,
               WorkImage& image, int first, int last) {
    if (HeldRows(image, first, last) < 1) return;
    for (const StampMark& mark : marks) {
        if (mark.level >= setCount || !sets[mark.level]) continue;
        StampCell(image, *sets[mark.level], mark.cell, mark.coverage, mark.px, mark.py, first,
                  last);
    }
}

StampPlan::StampPlan() : slotKeys_(kSlots), slotSums_(kSlots) {}

void StampPlan::Build(const std::vector<StampMark>& marks, const BrushSet* const* sets,
                      int setCount) {
    steps_.clear();
    bool same = !full_;
    for (int level = 0; level < 3; ++level) {
        const BrushSet* set = level < setCount ? sets[level] : nullptr;
        const uint32_t serial = set ? set->serial : 0;
        same = same && set == sets_[level] && serial == serials_[level];
        sets_[level] = set;
        serials_[level] = serial;
    }
    if (!same) {
        // Other cells, or no room left for the sums of the last plan: start afresh.
        sumWords_ = 0;
        slotsUsed_ = 0;
        full_ = false;
        std::fill(slotKeys_.begin(), slotKeys_.end(), kEmpty);
    }
    const size_t count = marks.size();
    size_t i = 0;
    while (i < count) {
        const StampMark& m = marks[i];
        const BrushSet* set = m.level < 3 ? sets_[m.level] : nullptr;
        if (!set) {
            ++i;
            continue;
        }
        if (set->mode != 2) {
            steps_.push_back({m.px, m.py, m.level, m.cell, m.coverage, kNoSum});
            ++i;
            continue;
        }
        // Up to four marks of this brush and strength on this pixel, which is what a pixel step
        // of a line makes.
        int cells[4];
        int n = 0;
        while (n < 4 && i + n < count) {
            const StampMark& next = marks[i + n];
            if (next.px != m.px || next.py != m.py || next.level != m.level ||
                next.coverage != m.coverage)
                break;
            cells[n++] = next.cell;
        }
        const bool one = n == 1 && m.coverage == 1.0f;
        const uint32_t sum = one ? kNoSum : SumOf(*set, m.level, cells, n, m.coverage);
        if (one || sum != kNoSum) {
            steps_.push_back(
                {m.px, m.py, m.level, static_cast<uint8_t>(cells[0]), m.coverage, sum});
        } else {
            for (int k = 0; k < n; ++k)
                steps_.push_back(
                    {m.px, m.py, m.level, static_cast<uint8_t>(cells[k]), m.coverage, kNoSum});
        }
        i += static_cast<size_t>(n);
    }
}

uint32_t StampPlan::SumOf(const BrushSet& set, int level, int* cells, int n, float coverage) {
    std::sort(cells, cells + n);
    uint32_t shape = static_cast<uint32_t>(level);
    for (int k = 0; k < 4; ++k)
        shape = shape * 17 + static_cast<uint32_t>(k < n ? cells[k] + 1 : 0);
    uint32_t bits;
    std::memcpy(&bits, &coverage, sizeof bits);
    const uint64_t key = (uint64_t{shape} << 32) | bits;
    uint32_t slot = static_cast<uint32_t>((key * 0x9e3779b97f4a7c15ull) >> (64 - kSlotBits));
    for (int probe = 0; probe < kSlots; ++probe, slot = (slot + 1) & (kSlots - 1)) {
        if (slotKeys_[slot] == key) return slotSums_[slot];
        if (slotKeys_[slot] != kEmpty) continue;
        // A new sum: what each cell adds at this strength, added up and held at full scale.
        const size_t words = static_cast<size_t>(set.width) * set.height * 4;
        if (sumWords_ + words > kLargestSums || slotsUsed_ >= kSlots / 4 * 3) {
            full_ = true;
            return kNoSum;
        }
        if (sums_.size() < sumWords_ + words) sums_.resize(sumWords_ + words);
        uint16_t* out = sums_.data() + sumWords_;
        const double share = coverage;
        for (size_t w = 0; w < words; w += 4) {
            uint32_t v[4] = {0, 0, 0, 0};
            for (int k = 0; k < n; ++k) {
                const uint16_t* c = set.cells[cells[k]] + w;
                const uint32_t e = coverage == 1.0f ? c[3] : static_cast<uint32_t>(c[3] * share);
                for (int ch = 0; ch < 4; ++ch)
                    v[ch] += (c[ch] * e) >> 15;
            }
            for (int ch = 0; ch < 4; ++ch)
                out[w + ch] = Saturate(v[ch]);
        }
        slotKeys_[slot] = key;
        ++slotsUsed_;
        slotSums_[slot] = static_cast<uint32_t>(sumWords_);
        sumWords_ += words;
        return slotSums_[slot];
    }
    return kNoSum;
}

void StampPlan::Rows(WorkImage& image, int first, int last) const {
    if (HeldRows(image, first, last) < 1) return;
    for (const Step& step : steps_) {
        const BrushSet& set = *sets_[step.level];
        if (step.sum != kNoSum)
            AddGains(image, sums_.data() + step.sum, set.width, set.height, step.px, step.py, first,
                     last);
        else
            StampCell(image, set, step.cell, step.coverage, step.px, step.py, first, last);
    }
}
