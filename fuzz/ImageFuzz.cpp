// Image files through OpenImageIO with the program's limits: the bytes are written to a file, then
// read as a Loader reads them (the reader tries every format it knows when the first refuses).
// Every input ends in an image within the limit or in one AppError of one line.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "app/AppError.h"
#include "app/ImageFiles.h"
#include "app/Limits.h"
#include "host/Parameters.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SetMaxPixels(int64_t{1} << 20);
    static const std::string path = "/tmp/crate07-fuzz-" + std::to_string(::getpid()) + ".png";
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    } else {
        return 0;
    }
    try {
        HostRef<Image> image(LoadImageFile(path));
        if (int64_t{image->width} * image->height > MaxPixels()) __builtin_trap();
    } catch (const AppError& e) {
        const std::string what = e.what();
        if (what.rfind("cannot read image '", 0) != 0) __builtin_trap();
    }
    std::remove(path.c_str());
    return 0;
}
