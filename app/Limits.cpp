#include "app/Limits.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "app/AppError.h"

namespace {

std::atomic<int64_t> maxPixels{kDefaultMaxPixels};

}  // namespace

int64_t MaxPixels() {
    return maxPixels.load();
}

void SetMaxPixels(int64_t pixels) {
    maxPixels.store(pixels);
}

void CheckPixelCount(int64_t width, int64_t height, const std::string& what) {
    // Compared by division, so that no product can overflow.
    const int64_t limit = MaxPixels();
    if (width >= 0 && height >= 0 && (height == 0 || width <= limit / height)) return;
    throw AppError(what + ": " + std::to_string(width) + "x" + std::to_string(height) +
                   " is beyond the limit of " + std::to_string(limit) +
                   " pixels (--max-pixels raises it)");
}

void CheckRegularFile(const std::string& path, const std::string& kind) {
    struct stat st;
    const std::string head = "cannot read " + kind + " '" + path + "': ";
    if (::stat(path.c_str(), &st) != 0) {
        const int e = errno;
        throw AppError(head + (e == ENOENT || e == ENOTDIR ? std::string("no such file")
                                                           : std::string(std::strerror(e))));
    }
    if (S_ISDIR(st.st_mode)) throw AppError(head + "it is a folder");
    if (!S_ISREG(st.st_mode))
        throw AppError(head + "not a regular file (a pipe, device or socket)");
}
