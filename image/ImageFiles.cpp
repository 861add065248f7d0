#include "image/ImageFiles.h"

#include <algorithm>

#include "codec/codec.h"

namespace orvane {

uint8_t* ot_load_png(const char* path, int32_t* width, int32_t* height) {
    if (width) *width = 0;
    if (height) *height = 0;
    ot::png::Image image;
    // Sizes past the signed 32-bit range cannot live in a NuvraImage.
    if (!ot::png::load_file(path, image) || image.width > INT32_MAX || image.height > INT32_MAX) return nullptr;
    auto* pixels = new uint8_t[image.pixels.size()];
    std::copy(image.pixels.begin(), image.pixels.end(), pixels);
    if (width) *width = int32_t(image.width);
    if (height) *height = int32_t(image.height);
    return pixels;
}

bool ot_png_requires_postprocess() { return false; }

bool ot_save_png(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return ot::png::save_png_rgba8_file(path, pixels, width, height);
}

}  // namespace orvane
