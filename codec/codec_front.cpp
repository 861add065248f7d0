#include <cstdio>
#include <cstring>
#include <new>

#include "codec/bytes.h"
#include "codec/codec.h"
#include "codec/formats.h"
#include "codec/png.h"

namespace ot::png {

namespace {

// The bytes are counted as they arrive, never trusted from a size told ahead: a directory, for
// one, opens and claims an enormous size, then gives nothing.
bool read_file(const char* path, std::vector<uint8_t>& bytes) {
    bytes.clear();
    if (!path) return false;
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    uint8_t buffer[1 << 16];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) bytes.insert(bytes.end(), buffer, buffer + got);
    bool ok = !std::ferror(file);
    if (std::fclose(file) != 0) ok = false;
    if (!ok) bytes.clear();
    return ok;
}

bool load_png_memory(const uint8_t* data, size_t size, Image& image) {
    ParsedPng parsed;
    DecodeTables tables;
    if (!parse_png(data, size, parsed) ||
        !build_decode_tables(parsed.header, parsed.palette, parsed.transparency, tables))
        return false;
    std::vector<uint8_t> rgba;
    const bool ok = parsed.sawAnimationControl && !parsed.frames.empty()
                        ? decode_apng_squashed(parsed, tables, rgba)
                        : decode_png_frame(parsed.header, parsed.idatSpans, tables, rgba);
    if (!ok) return false;
    image.width = parsed.header.width;
    image.height = parsed.header.height;
    image.pixels.swap(rgba);
    return true;
}

bool writer_arguments_ok(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return path && pixels && width >= 1 && height >= 1;
}

}  // namespace

int detect_format(const uint8_t* data, size_t size) {
    if (!data || size == 0) return kFormatUnknown;
    if (size >= 8 && std::memcmp(data, kPngSignature, 8) == 0) return kFormatPng;
    if (size >= 2 && data[0] == 'B' && data[1] == 'M') return kFormatBmp;
    if (size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF) return kFormatJpeg;
    if (size > 13 && std::memcmp(data, "gimp xcf ", 9) == 0) return kFormatXcf;
    if (size >= 8 && std::memcmp(data, kReiSignature, 8) == 0) return kFormatRei;
    if (looks_like_tga(data, size)) return kFormatTga;
    return kFormatUnknown;
}

bool load_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    if (!data || size == 0) return false;
    bool ok = false;
    // Every size is checked before it is allocated; running out of memory all the same is a
    // failed load, not a crash.
    try {
        switch (detect_format(data, size)) {
            case kFormatPng: ok = load_png_memory(data, size, image); break;
            case kFormatBmp: ok = load_bmp_memory(data, size, image); break;
            case kFormatTga: ok = load_tga_memory(data, size, image); break;
            case kFormatJpeg: ok = load_jpeg_memory(data, size, image); break;
            case kFormatXcf: ok = load_xcf_memory(data, size, image); break;
            case kFormatRei: ok = load_rei_memory(data, size, image); break;
            default: ok = false; break;
        }
    } catch (const std::bad_alloc&) {
        ok = false;
    }
    if (!ok) image = Image{};
    return ok;
}

bool load_file(const char* path, Image& image) {
    image = Image{};
    std::vector<uint8_t> bytes;
    if (!read_file(path, bytes)) return false;
    return load_memory(bytes.data(), bytes.size(), image);
}

bool save_png_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_png_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

bool save_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return save_png_rgba8_file(path, pixels, width, height);
}

bool save_bmp_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_bmp_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

bool save_tga_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_tga_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

bool save_rei_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_rei_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

bool save_jpeg_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_jpeg_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

bool save_xcf_rgba8_file(const char* path, const uint8_t* pixels, int32_t width, int32_t height) {
    return writer_arguments_ok(path, pixels, width, height) &&
           save_xcf_rgba8_file_impl(path, pixels, uint32_t(width), uint32_t(height));
}

}  // namespace ot::png
