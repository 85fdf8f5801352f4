#include "particles/Streak.h"

#include <cmath>
#include <cstdint>

#include "frame/WorkImage.h"

namespace {

inline int Clamp15(int64_t v) {
    return static_cast<int>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

// Lays colour (r, g, b) over the pixel with weight c (0..32767); alpha rises towards full.
inline void Blend(uint16_t* p, int64_t c, int r, int g, int b) {
    const int64_t keep = 32767 - c;
    p[0] = static_cast<uint16_t>((p[0] * keep + c * r) / 32767);
    p[1] = static_cast<uint16_t>((p[1] * keep + c * g) / 32767);
    p[2] = static_cast<uint16_t>((p[2] * keep + c * b) / 32767);
    p[3] = static_cast<uint16_t>((p[3] * keep + c * 32767) / 32767);
}

}  // namespace

void DrawStreak(WorkImage* out, int W, int tx, int ty, int hx, int hy, const StreakPen& pen,
                int firstRow, int lastRow) {
    if (!out) return;
    if (W > out->width) W = out->width;
    if (firstRow < 0) firstRow = 0;
    if (lastRow > out->height - 1) lastRow = out->height - 1;
    if (firstRow > lastRow || W < 1) return;

    const int64_t dx = static_cast<int64_t>(hx) - tx, dy = static_cast<int64_t>(hy) - ty;
    const int64_t sx = dx < 0 ? -1 : 1, sy = dy < 0 ? -1 : 1;
    const int64_t adx = dx < 0 ? -dx : dx, ady = dy < 0 ? -dy : dy;
    const bool steep = ady > adx;
    const int64_t major = steep ? ady : adx, minor = steep ? adx : ady;
    // The density is 0 at the tail, and a streak without length is nothing but its tail.
    if (major == 0) return;
    const double len = std::sqrt(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy);
    const float inv = static_cast<float>(1.0 / (2.0 * len));
    const double ramp = 32767.0 / static_cast<double>(major);
    const int64_t glintStart = major - pen.profileLength;

    // Only the steps whose main pixel can fall in the band (a steep walk) or in the picture's
    // columns (a flat one) write anything; the walk starts at the first of them, in the state the
    // whole walk would have reached there.
    const int64_t m0 = steep ? ty : tx, ms = steep ? sy : sx;
    const int64_t lo = steep ? firstRow : 0, hi = steep ? lastRow : W - 1;
    int64_t iFirst = ms > 0 ? lo - m0 : m0 - hi;
    int64_t iLast = ms > 0 ? hi - m0 : m0 - lo;
    if (iFirst < 0) iFirst = 0;
    if (iLast > major) iLast = major;
    if (iFirst > iLast) return;
    // After i steps the walk has made k = ceil((2 minor i - major) / (2 major)) minor steps (none
    // while that is not positive); e and D follow from k. Worked in 128 bits, as the ends may lie
    // 2^32 pixels apart.
    __extension__ using Wide = __int128;
    const Wide k = (static_cast<Wide>(2 * minor) * iFirst + major - 1) / (2 * major);
    int64_t e =
        static_cast<int64_t>(-major + static_cast<Wide>(2 * minor) * iFirst - 2 * major * k);
    int64_t D = e + major;
    int64_t px = tx, py = ty;
    if (steep) {
        py += sy * iFirst;
        px += sx * static_cast<int64_t>(k);
    } else {
        px += sx * iFirst;
        py += sy * static_cast<int64_t>(k);
    }
    const int64_t sideLast = pen.sideOnLastRow ? lastRow : lastRow - 1;

    for (int64_t i = iFirst; i <= iLast; ++i) {
        int r = pen.red, g = pen.green, b = pen.blue, A = pen.density;
        if (i > glintStart && pen.profile) {
            const int64_t add =
                (static_cast<int64_t>(pen.profile[i - glintStart - 1]) * pen.glisten * 128) / 32767;
            r = Clamp15(r + add);
            g = Clamp15(g + add);
            b = Clamp15(b + add);
            A = Clamp15(A + add);
        }
        // Density along the line: 0 at the tail, A at the head. The product lies within
        // 0..32767^2, so it converts safely.
        const int64_t a = static_cast<int64_t>(A * static_cast<double>(i) * ramp) / 32767;
        if (px >= 0 && px < W && py >= firstRow && py <= lastRow) {
            // The signed distance of the ideal line from the pixel centre splits the density
            // between the pixel and its neighbour across the line.
            const float d = static_cast<float>(static_cast<double>(D) * inv);
            // |d| stays within about 0.5, as |D| never exceeds the major length.
            const int64_t q = static_cast<int64_t>(std::fabs(d) * 32767.0);
            const int64_t m = ((32767 - q) * a) / 32767, n = (q * a) / 32767;
            if (steep) {
                const int64_t side = d < 0 ? px - sx : px + sx;
                if (side >= 0 && side < W) Blend(out->rows[py] + side * 4, n, r, g, b);
            } else {
                const int64_t side = d < 0 ? py - sy : py + sy;
                if (side >= firstRow && side <= sideLast)
                    Blend(out->rows[side] + px * 4, n, r, g, b);
            }
            Blend(out->rows[py] + px * 4, m, r, g, b);
        }
        e += 2 * minor;
        D += 2 * minor;
        if (e > 0) {
            if (steep)
                px += sx;
            else
                py += sy;
            e -= 2 * major;
            D -= 2 * major;
        }
        if (steep)
            py += sy;
        else
            px += sx;
    }
}
