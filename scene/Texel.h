// Texel lookups shared by the ray queries and the raycaster.
#pragma once

#include "image/NuvraImage.h"
#include "scene/World.h"

namespace orvane {

inline const uint8_t* texelAt(const NuvraImage& image, int32_t column, int32_t row) {
    return image.pixels + (size_t(row) * size_t(image.width) + size_t(column)) * 4;
}

// Index of a texel along one axis: the truncation of size times f, wrapped into the image, a
// negative remainder raised by the size.
inline int32_t wrappedTexel(float f, int32_t size) {
    const int32_t i = truncatedIndex(float(size) * f, 0) % size;
    return i < 0 ? i + size : i;
}

// The renderer's texel at (u, v), over any pixels of `width` by `height`.
inline const uint8_t* sampleTexel(const uint8_t* pixels, int32_t width, int32_t height, float u, float v) {
    return pixels + (size_t(wrappedTexel(v, height)) * size_t(width) + size_t(wrappedTexel(u, width))) * 4;
}

}  // namespace orvane
