// What the command line will take in: frame numbers, image sizes, flow files. Beyond these a
// render would overflow a counter or eat the machine, so they are refused with one line.
#pragma once

#include <cstdint>
#include <string>

// Frame numbers (and a Loader's offset) lie from -kFrameLimit to kFrameLimit, so that a frame plus
// an offset, and the count of a range, fit a 32-bit int.
constexpr int kFrameLimit = 1000000000;

// Images (read, generated or rendered) hold at most this many pixels unless --max-pixels says
// otherwise: 16384 x 8192, four times an 8K frame, 1 GiB at 8 bytes a pixel.
constexpr int64_t kDefaultMaxPixels = int64_t{16384} * 8192;
int64_t MaxPixels();
void SetMaxPixels(int64_t pixels);

// A flow file is at most this many bytes.
constexpr uint64_t kFlowByteLimit = 16u << 20;

// Throws AppError "<what>: W x H is N pixels, beyond the limit of M (--max-pixels)" when
// width x height exceeds MaxPixels().
void CheckPixelCount(int64_t width, int64_t height, const std::string& what);

// Throws AppError "cannot read <kind> '<path>': ..." unless the path names a regular file (after
// symbolic links): no such file, a folder, or a pipe, device or socket.
void CheckRegularFile(const std::string& path, const std::string& kind);
