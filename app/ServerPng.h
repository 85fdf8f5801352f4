// PNG pictures for the viewer, encoded in memory: 8-bit RGB for display, 16-bit RGBA on request.
#pragma once

#include <string>

class Image;

// The image as a PNG file's bytes, top row first. 8-bit samples are the 16-bit ones rounded to the
// nearest of 255 steps; a fast compression level keeps a slider's picture quick.
std::string EncodePng(const Image& image, bool sixteenBit);
