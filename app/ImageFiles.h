// Image files in and out: OpenImageIO reads any format it knows; outputs are 16-bit PNG and TIFF
// or half-float EXR, written under a temporary name and renamed into place.
#pragma once

#include <string>

class Image;

// Reads a file into a new host image (row 0 the bottom row). One or two channels are grey (and
// alpha); a missing alpha is opaque. Throws AppError naming the file.
Image* LoadImageFile(const std::string& path);

// Writes the image; the format follows the extension (.png, .tif, .tiff, .exr). Throws AppError.
void SaveImageFile(const Image& image, const std::string& path);

// Throws AppError unless the extension of `path` is one SaveImageFile writes.
void CheckOutputFormat(const std::string& path);
