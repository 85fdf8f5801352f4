#include "app/ServerPng.h"

#include <zlib.h>

#include <cstdint>
#include <vector>

#include "app/AppError.h"
#include "host/Parameters.h"

namespace {

void Put32(std::string& out, uint32_t v) {
    out.push_back(static_cast<char>(v >> 24));
    out.push_back(static_cast<char>(v >> 16));
    out.push_back(static_cast<char>(v >> 8));
    out.push_back(static_cast<char>(v));
}

void Chunk(std::string& out, const char* type, const unsigned char* data, size_t size) {
    Put32(out, static_cast<uint32_t>(size));
    const size_t start = out.size();
    out.append(type, 4);
    out.append(reinterpret_cast<const char*>(data), size);
    uLong crc = crc32(0L, Z_NULL, 0);
    crc = crc32(crc, reinterpret_cast<const Bytef*>(out.data() + start),
                static_cast<uInt>(out.size() - start));
    Put32(out, static_cast<uint32_t>(crc));
}

}  // namespace

std::string EncodePng(const Image& image, bool sixteenBit) {
    const int channels = sixteenBit ? 4 : 3;
    const size_t rowBytes = static_cast<size_t>(image.width) * channels * (sixteenBit ? 2 : 1) + 1;
    std::vector<unsigned char> raw(rowBytes * image.height);
    for (int y = 0; y < image.height; ++y) {
        // Host images keep the bottom row first; a file starts at the top.
        const uint16_t* src = image.Row(image.height - 1 - y);
        unsigned char* d = raw.data() + rowBytes * y;
        *d++ = 0;  // no filter
        for (int x = 0; x < image.width; ++x, src += 4)
            for (int c = 0; c < channels; ++c) {
                const uint32_t v = src[c];
                if (sixteenBit) {
                    *d++ = static_cast<unsigned char>(v >> 8);
                    *d++ = static_cast<unsigned char>(v);
                } else {
                    *d++ = static_cast<unsigned char>((v * 255u + 32767u) / 65535u);
                }
            }
    }
    uLongf packedSize = compressBound(static_cast<uLong>(raw.size()));
    std::vector<unsigned char> packed(packedSize);
    if (compress2(packed.data(), &packedSize, raw.data(), static_cast<uLong>(raw.size()), 1) !=
        Z_OK)
        throw AppError("the picture could not be compressed");

    std::string out("\x89PNG\r\n\x1a\n", 8);
    unsigned char header[13];
    const uint32_t w = static_cast<uint32_t>(image.width), h = static_cast<uint32_t>(image.height);
    for (int i = 0; i < 4; ++i) {
        header[i] = static_cast<unsigned char>(w >> (24 - 8 * i));
        header[4 + i] = static_cast<unsigned char>(h >> (24 - 8 * i));
    }
    header[8] = sixteenBit ? 16 : 8;
    header[9] = sixteenBit ? 6 : 2;  // RGBA or RGB
    header[10] = header[11] = header[12] = 0;
    Chunk(out, "IHDR", header, sizeof header);
    Chunk(out, "IDAT", packed.data(), packedSize);
    Chunk(out, "IEND", nullptr, 0);
    return out;
}
