// The tools' private image: four 16-bit words a pixel (red, green, blue, alpha) on a 15-bit scale,
// full scale 32767, reached through a table of row pointers.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

class Image;
class ToolEngine;

class WorkImage {
  public:
    WorkImage(int width, int height, float ignored = 1.0f, void* pixelBlock = nullptr,
              uint32_t ownerTag = 0);
    WorkImage(const WorkImage& source);
    WorkImage& operator=(const WorkImage&) = delete;
    ~WorkImage();

    // Whole-image operators.
    void Fill(uint16_t red, uint16_t green, uint16_t blue, uint16_t alpha);
    int CopyScaled(WorkImage* source, float gainRed, float gainGreen, float gainBlue,
                   float gainAlpha);
    void CopyAlphaFrom(WorkImage* source);
    void MixFrom(float amount, WorkImage* source);
    // The colour words hold two samples each, the first-named in the low half.
    void MixColour(float amount, uint32_t redGreen, uint32_t blueAlpha);
    // Blurs rows (direction 0), columns (1) or rows and then columns (2) with a standard deviation
    // of radius / 4 + 0.05 pixels; the first pass reads `source` (of this size) or, if null, this
    // image. withAlpha 0 leaves the alpha of this image as it is. Other directions do nothing.
    void GaussianBlur(float radius, WorkImage* source, int direction, int withAlpha);

    // Row routines of the threaded operators.
    void CopyAlphaRows(int first, int last);
    void MixFromRows(int first, int last);
    void MixColourRows(int first, int last);
    // A pass of the blur over rows or columns first..last (RecursiveGaussian.cpp).
    template <bool Columns, bool WithAlpha>
    void GaussianBlurLines(int first, int last);

    // Splits `rowCount` rows of this image over as many chunks as the host has processors.
    void RunOverRows(void (WorkImage::*routine)(int, int), int rowCount);

    uint16_t* Pixel(int x, int y) { return rows[y] + static_cast<ptrdiff_t>(x) * 4; }
    const uint16_t* Pixel(int x, int y) const { return rows[y] + static_cast<ptrdiff_t>(x) * 4; }

    uint16_t* pixels = nullptr;
    int32_t ownsPixels = 0;
    WorkImage* alphaSource = nullptr;
    WorkImage* blurSource = nullptr;
    double blurSigma = 0.0;
    uint16_t** rows = nullptr;
    int32_t width = 0, height = 0;
    double pixelScale[4] = {1.0, 1.0, 0.0, 0.0};
    float referenceScale = 0.0f;
    uint32_t ownerTag = 0;
    WorkImage* mixSource = nullptr;
    float mixAmount = 0.0f;
    uint16_t mixColour[4] = {0, 0, 0, 0};

    // Work images alive in this process, for leak checks.
    static std::atomic<int> liveCount;

  private:
    void MakeRows();
};

// Converts a host image to a work image (samples >> 1). With `like` given and of another size the
// pixels are scaled to the size of `like`. Null source gives null.
WorkImage* ImportImage(Image* source, WorkImage* like, bool makeNew, ToolEngine* engine);

// A new host image like `model` holding `work`, each word v as (v >> 14) | (v * 2), at most 65535.
Image* ExportImage(Image* model, WorkImage* work);

// Scales `from` into `to` (of another size) for the import. The resizer installs itself here while
// the program starts.
using ImportResizer = void (*)(WorkImage* from, WorkImage* to, ToolEngine* engine);
extern ImportResizer importResizer;
