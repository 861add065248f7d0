// The readers and writers of the formats other than PNG, behind the codec front.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/codec.h"

namespace ot::png {

extern const uint8_t kReiSignature[8];

bool load_bmp_memory(const uint8_t* data, size_t size, Image& image);
bool load_tga_memory(const uint8_t* data, size_t size, Image& image);
bool load_rei_memory(const uint8_t* data, size_t size, Image& image);
bool load_jpeg_memory(const uint8_t* data, size_t size, Image& image);
bool load_xcf_memory(const uint8_t* data, size_t size, Image& image);
bool looks_like_tga(const uint8_t* data, size_t size);

// The writers assume the front has checked path, pixels and sizes.
bool save_png_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);
bool save_bmp_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);
bool save_tga_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);
bool save_rei_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);
bool save_jpeg_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);
bool save_xcf_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height);

}  // namespace ot::png
