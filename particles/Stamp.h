// Coverage stamps of the weather tools: small precomputed tables that Smoke's puffs and Snow's
// flakes and stars are laid with, so that the draw pass takes no exponential or power. Each tool
// makes its masters once, in 41 sizes, and a working set from them for the picture's pixel aspect,
// which it replaces whenever that aspect moves.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// One stamp: width x height values in rows. Smoke's full scale is 32767 (values may reach 32769;
// the drawing limits them), Snow's 255.
struct Stamp {
    int32_t width = 0;
    int32_t height = 0;
    std::vector<int32_t> values;

    int32_t At(int x, int y) const { return values[static_cast<std::size_t>(y) * width + x]; }
};

// The sizes a set holds.
constexpr int kStampCount = 41;

// A set of 41 stamps, indexed by size.
struct StampSet {
    std::array<Stamp, kStampCount> stamps;

    const Stamp& operator[](int i) const { return stamps[static_cast<std::size_t>(i)]; }
    Stamp& operator[](int i) { return stamps[static_cast<std::size_t>(i)]; }
};

// A Gaussian puff of the given radius (at least 0.01), full scale 32769 at the centre; a ring of
// zeros round it is cropped once.
Stamp MakeGaussianStamp(float radius);
// A grainy flake: the Gaussian envelope times one draw of the sequence at *seed per pixel, on
// 0..257. The pixels draw in rows, and each draw comes before the rest of its pixel.
Stamp MakeFlakeStamp(float radius, int32_t* seed);
// A four-pointed star of bytes, turned by `angle` degrees.
Stamp MakeStarStamp(float radius, double angle);

// Turns a byte image of w x h by `angle` degrees (a coarse quarter turn, then three shears); the
// result and its size replace the inputs.
void RotateStamp(std::vector<uint8_t>* image, int* w, int* h, double angle);
// Turns a byte image by `turns` quarter turns (-2..2), swapping the sizes for an odd count.
void QuarterTurn(std::vector<uint8_t>* image, int* w, int* h, int turns);
// Shifts a line of `length` bytes by `shift` pixels into `outLength` bytes, mixing neighbours by
// the fraction of the shift; uncovered bytes are 0. Source and target step by `stride`.
void ShearRow(const uint8_t* source, int length, int outLength, double shift, int stride,
              uint8_t* target);
// Stretches a line of bytes from inLength to outLength (filter 1: box averages over a walking
// window), optionally limiting each result to 0..255. Strides in bytes.
void ResampleLine(const uint8_t* source, uint8_t* target, int inLength, int outLength, int inStride,
                  int outStride, bool clampToByte);
// The master widened by `ratio`: each of the four bytes of a value is filtered on its own.
Stamp ResampleStamp(const Stamp& master, double ratio, bool clampToByte);

// Smoke's masters: entry i is a Gaussian puff of radius i * 0.5.
void MakePuffStamps(StampSet* puffs);
// Snow's masters: entry i is a flake and a star of radius i * 0.5 + 0.5. For each size in turn the
// flake draws first, then one draw turns the star by (2r - 1) * 180 degrees.
void MakeSnowStamps(StampSet* flakes, StampSet* stars, int32_t* seed);
// Every master resampled by `ratio` into `working`, replacing it as a whole.
void ResampleStampSet(const StampSet& masters, double ratio, bool clampToByte, StampSet* working);

// The pixel aspect a working set was made for; it is made anew when the aspect moves by more than
// 1e-5. The first render always makes it.
struct StampAspect {
    double ratio = -400.0;
    bool made = false;

    bool NeedsRebuild(double r) const {
        return !made || !(r - ratio <= 1e-05 && ratio - r <= 1e-05);
    }
    void Store(double r) {
        ratio = r;
        made = true;
    }
};
