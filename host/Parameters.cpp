#include "host/Parameters.h"

#include "host/App.h"

Image::Image(int w, int h)
    : Parameter(Type::Image),
      width(w < 0 ? 0 : w),
      height(h < 0 ? 0 : h),
      pixels_(static_cast<size_t>(width) * height * 4) {}

Parameter* Image::Copy() const {
    Image* copy = GetApp()->Images().Take(width, height);
    copy->xScale = xScale;
    copy->yScale = yScale;
    copy->xOffset = xOffset;
    copy->yOffset = yOffset;
    copy->pixels_ = pixels_;
    return copy;
}

void Image::Destroy() {
    GetApp()->Images().Give(this);
}

Image* NewImage(Tag tag, const Image* like, int end) {
    (void)end;
    if (tag != kImageLike || !like) return nullptr;
    Image* image = GetApp()->Images().Take(like->width, like->height);
    image->xScale = like->xScale;
    image->yScale = like->yScale;
    image->xOffset = like->xOffset;
    image->yOffset = like->yOffset;
    return image;
}
