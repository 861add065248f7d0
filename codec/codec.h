// Image files in and out: every reader yields 8-bit RGBA, every writer takes it.
// The library depends on nothing but the standard library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ot::png {

struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels;  // top row first, R G B A, no row padding
};

enum Format : int {
    kFormatUnknown = 0,
    kFormatPng = 1,
    kFormatBmp = 2,
    kFormatTga = 3,
    kFormatJpeg = 4,
    kFormatXcf = 5,
    kFormatRei = 6,
};

// The format comes from the content only, never from a file name.
int detect_format(const uint8_t* data, size_t size);

bool load_memory(const uint8_t* data, size_t size, Image& image);
bool load_file(const char* path, Image& image);

// pixels: width * height RGBA pixels, top row first.
bool save_png_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
bool save_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
bool save_bmp_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
bool save_tga_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
bool save_rei_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
// Baseline JPEG at one fixed quality, alpha dropped; fails past 65535 pixels a side.
bool save_jpeg_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);
// XCF with one uncompressed RGBA layer.
bool save_xcf_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height);

}  // namespace ot::png
