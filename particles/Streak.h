// The streak of a falling particle: a Bresenham walk from tail to head that lays a two-pixel-wide
// anti-aliased line over the picture, transparent at the tail and densest at the head, with an
// optional glint along its last pixels.
#pragma once

class WorkImage;

struct StreakPen {
    int red = 0, green = 0, blue = 0;  // colour words, 0..32767
    int density = 0;                   // 0..32767, reached at the head
    int glisten = 0;                   // brightness of the glint, 0 for none
    const int* profile = nullptr;      // glint values 0..255 along the last pixels
    int profileLength = 0;
    // The side pixel of a flat walk may use the band's last row (true), or stops a row short of
    // it (false: Rain's streaks, whose side pixels are lost on the last row of a band).
    bool sideOnLastRow = false;
};

// Draws the streak from (tx, ty) to (hx, hy) into rows firstRow..lastRow of `out` (W pixels
// wide). A streak without length draws nothing. Only rows of the band are written, so two bands
// may draw at once.
void DrawStreak(WorkImage* out, int W, int tx, int ty, int hx, int hy, const StreakPen& pen,
                int firstRow, int lastRow);
