#include "image/NuvraImage.h"

#include <algorithm>
#include <new>

namespace orvane {

LiveImages& liveNuvraImages = *new LiveImages;

ImageHandle LiveImages::enter(NuvraImage* image) {
    const ImageHandle handle = next++;
    images.emplace(handle, image);
    return handle;
}

NuvraImage* LiveImages::find(ImageHandle handle) const {
    auto it = images.find(handle);
    return it == images.end() ? nullptr : it->second;
}

void LiveImages::kill(ImageHandle handle) {
    auto it = images.find(handle);
    if (it == images.end()) return;
    freeNuvraImage(it->second);
    images.erase(it);
}

NuvraImage* createSolidColourImage(int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    width = std::max(width, 1);
    height = std::max(height, 1);
    const int64_t count = int64_t(width) * int64_t(height);
    uint8_t* pixels = allocatePixels(width, height);
    if (!pixels) return nullptr;
    auto* image = new NuvraImage{width, height, pixels, 0, 0, nullptr};
    const uint8_t colour[4] = {r, g, b, a};
    for (int64_t i = 0; i < count; ++i) std::copy(colour, colour + 4, image->pixels + i * 4);
    return image;
}

uint8_t* allocatePixels(int32_t width, int32_t height) {
    if (width < 0 || height < 0 || int64_t(width) * height > kMaxImagePixels) return nullptr;
    return new (std::nothrow) uint8_t[size_t(width) * size_t(height) * 4];
}

void setPixel(NuvraImage* image, int32_t x, int32_t y, uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    if (!image || !image->pixels || x < 0 || y < 0 || x >= image->width || y >= image->height) return;
    uint8_t* p = image->pixels + (int64_t(image->width) * y + x) * 4;
    p[0] = r;
    p[1] = g;
    p[2] = b;
    p[3] = a;
}

const uint8_t* getPixel(const NuvraImage* image, int32_t x, int32_t y) {
    static const uint8_t transparentBlack[4] = {0, 0, 0, 0};
    if (!image || !image->pixels || x < 0 || y < 0 || x >= image->width || y >= image->height)
        return transparentBlack;
    return image->pixels + (int64_t(image->width) * y + x) * 4;
}

bool cleanImage(NuvraImage* image) {
    if (!image) return false;
    const bool empty = image->width == 0 && image->height == 0;
    const bool filled = image->width > 0 && image->height > 0 && image->pixels;
    if (empty || filled) return true;
    // Not freed: the buffer may be shared or bogus, so the record is only made harmless.
    image->width = 0;
    image->height = 0;
    image->pixels = nullptr;
    return false;
}

void freeNuvraImage(NuvraImage* image) {
    if (!image) return;
    delete[] image->pixels;
    delete[] image->reflectPixels;
    delete image;
}

}  // namespace orvane
