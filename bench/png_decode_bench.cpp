// PNG decode speed: our reader against libpng and stb_image on 2048 by 2048 images: a photo-like
// one at zlib level 6 as RGBA and RGB, 8 and 16 bits, plain and Adam7, and a screenshot-like one
// with large flat areas at level 9. Every decoder must give the same RGBA 8-bit pixels (16-bit
// samples: ours exactly, the references within one step of rounding). Best of several runs, since
// the machine may be busy. Last, our writer's speed.
#include <png.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include "codec/codec.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kSize = 2048;
constexpr int kRuns = 7;

// Samples of 16 bits: smooth shapes, texture and sensor-like noise, so that filters and matches
// behave as on a photo. The 8-bit images keep the high byte.
std::vector<uint16_t> photo_like(uint32_t w, uint32_t h) {
    std::mt19937 rng(42);
    std::normal_distribution<float> noise(0.0f, 3.0f);
    std::vector<uint16_t> px(size_t(w) * h * 4);
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) {
            const float fx = float(x) / w, fy = float(y) / h;
            const float base = 0.5f + 0.25f * std::sin(fx * 9.0f + std::cos(fy * 5.0f)) + 0.2f * std::cos(fy * 13.0f - fx * 3.0f);
            const float texture = 0.05f * std::sin(float(x) * 0.7f) * std::cos(float(y) * 0.45f);
            uint16_t* p = &px[(size_t(y) * w + x) * 4];
            for (int c = 0; c < 3; ++c) {
                const float v = (base + texture) * (200.0f + 25.0f * c) + 20.0f * c * fx + noise(rng);
                p[c] = uint16_t(std::clamp(v * 256.0f, 0.0f, 65535.0f));
            }
            p[3] = uint16_t(std::clamp((255.0f - 120.0f * fx * fy + noise(rng)) * 256.0f, 0.0f, 65535.0f));
        }
    }
    return px;
}

// A desktop: a gradient backdrop, windows with title bars, lines of glyph-like text, buttons and
// a few noisy icons; opaque.
Bytes screenshot_like(uint32_t w, uint32_t h) {
    std::mt19937 rng(9);
    Bytes px(size_t(w) * h * 4);
    auto fill = [&](uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1, uint32_t rgb) {
        for (uint32_t y = y0; y < std::min(y1, h); ++y)
            for (uint32_t x = x0; x < std::min(x1, w); ++x) {
                uint8_t* p = &px[(size_t(y) * w + x) * 4];
                p[0] = uint8_t(rgb >> 16), p[1] = uint8_t(rgb >> 8), p[2] = uint8_t(rgb), p[3] = 255;
            }
    };
    for (uint32_t y = 0; y < h; ++y)
        fill(0, y, w, y + 1, uint32_t(40 + y * 60 / h) << 16 | uint32_t(70 + y * 80 / h) << 8 | uint32_t(120 + y * 90 / h));
    // Glyphs: 64 shapes of 7 by 11 dots, set as words on lines.
    std::vector<uint16_t> glyphs(64 * 11);
    for (auto& row : glyphs) row = uint16_t(rng() & 0x7F);
    for (int window = 0; window < 9; ++window) {
        const uint32_t x0 = rng() % (w - 700), y0 = rng() % (h - 600), ww = 400 + rng() % 900, wh = 300 + rng() % 900;
        fill(x0 - 1, y0 - 1, x0 + ww + 1, y0 + wh + 1, 0x303030);
        fill(x0, y0, x0 + ww, y0 + wh, window % 3 ? 0xF4F4F4 : 0xFFFFFF);
        for (uint32_t y = 0; y < 28; ++y)
            fill(x0, y0 + y, x0 + ww, y0 + y + 1, uint32_t(60 + y * 2) << 16 | uint32_t(90 + y * 3) << 8 | uint32_t(160 + y));
        for (int b = 0; b < 4; ++b) fill(x0 + 20 + b * 110, y0 + wh - 50, x0 + 120 + b * 110, y0 + wh - 20, 0xD0D8E8);
        for (uint32_t line = y0 + 44; line + 16 < y0 + wh - 60; line += 18) {
            uint32_t x = x0 + 12;
            while (x + 8 < x0 + ww - 12) {
                const uint32_t word = 2 + rng() % 9;
                for (uint32_t k = 0; k < word && x + 8 < x0 + ww - 12; ++k, x += 8) {
                    const uint16_t* glyph = &glyphs[(rng() % 64) * 11];
                    for (uint32_t gy = 0; gy < 11; ++gy)
                        for (uint32_t gx = 0; gx < 7; ++gx)
                            if (glyph[gy] >> gx & 1) fill(x + gx, line + gy, x + gx + 1, line + gy + 1, 0x202020);
                }
                x += 8;
            }
        }
    }
    for (int icon = 0; icon < 40; ++icon) {
        const uint32_t x0 = 8 + (icon % 2) * 72, y0 = 8 + (icon / 2) * 80;
        for (uint32_t y = y0; y < y0 + 48; ++y)
            for (uint32_t x = x0; x < x0 + 48; ++x) fill(x, y, x + 1, y + 1, rng() & 0xFFFFFF);
    }
    return px;
}

struct TestImage {
    std::string title;
    Bytes file;
    Bytes expected;  // RGBA 8-bit
    bool sixteen;
};

void write_to_vector(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

// `rows` holds the samples as they go into the file: big-endian when 16-bit.
Bytes libpng_encode(const Bytes& rows, uint32_t w, uint32_t h, int depth, bool alpha, bool adam7, int level) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &out, write_to_vector, nullptr);
    png_set_compression_level(png, level);
    png_set_IHDR(png, info, w, h, depth, alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB,
                 adam7 ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const size_t rowBytes = size_t(w) * (alpha ? 4 : 3) * (depth / 8);
    std::vector<png_bytep> pointers(h);
    for (uint32_t y = 0; y < h; ++y) pointers[y] = const_cast<png_bytep>(&rows[y * rowBytes]);
    png_write_image(png, pointers.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

TestImage photo_image(const std::vector<uint16_t>& photo, int depth, bool alpha, bool adam7) {
    TestImage image;
    image.title = std::string("photo ") + (alpha ? "RGBA" : "RGB") + std::to_string(depth) +
                  (adam7 ? " Adam7" : "") + ", level 6";
    image.sixteen = depth == 16;
    const size_t pixels = size_t(kSize) * kSize, channels = alpha ? 4 : 3;
    Bytes rows(pixels * channels * (depth / 8));
    image.expected.resize(pixels * 4);
    for (size_t i = 0; i < pixels; ++i) {
        for (size_t c = 0; c < 4; ++c) {
            const uint16_t v = photo[i * 4 + c];
            const bool stored = c < channels;
            if (depth == 8) {
                if (stored) rows[i * channels + c] = uint8_t(v >> 8);
                image.expected[i * 4 + c] = stored ? uint8_t(v >> 8) : 255;
            } else {
                if (stored) rows[(i * channels + c) * 2] = uint8_t(v >> 8), rows[(i * channels + c) * 2 + 1] = uint8_t(v);
                image.expected[i * 4 + c] = stored ? uint8_t((uint32_t(v) * 255 + 32767) / 65535) : 255;
            }
        }
    }
    image.file = libpng_encode(rows, kSize, kSize, depth, alpha, adam7, 6);
    return image;
}

struct Reader {
    const Bytes* data;
    size_t position;
};

void read_from_vector(png_structp png, png_bytep out, png_size_t length) {
    auto* r = static_cast<Reader*>(png_get_io_ptr(png));
    std::memcpy(out, r->data->data() + r->position, length);
    r->position += length;
}

// To RGBA 8-bit, as our reader gives: expanded, 16-bit samples rounded, opaque alpha added.
Bytes libpng_decode(const Bytes& file) {
    Reader reader{&file, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &reader, read_from_vector);
    png_read_info(png, info);
    png_set_expand(png);
    png_set_scale_16(png);
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const uint32_t w = png_get_image_width(png, info), h = png_get_image_height(png, info);
    Bytes px(size_t(w) * h * 4);
    std::vector<png_bytep> rows(h);
    for (uint32_t y = 0; y < h; ++y) rows[y] = &px[size_t(y) * w * 4];
    png_read_image(png, rows.data());
    png_destroy_read_struct(&png, &info, nullptr);
    return px;
}

double best_seconds(const std::function<void()>& work) {
    double best = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

bool within_one(const Bytes& a, const Bytes& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::abs(int(a[i]) - int(b[i])) > 1) return false;
    return true;
}

void decode_row(const TestImage& image) {
    const double megapixels = double(kSize) * kSize / 1e6;
    Bytes ours, reference, stb;
    const double tOurs = best_seconds([&] {
        ot::png::Image decoded;
        if (!ot::png::load_memory(image.file.data(), image.file.size(), decoded)) std::abort();
        ours.swap(decoded.pixels);
    });
    const double tLibpng = best_seconds([&] { reference = libpng_decode(image.file); });
    const double tStb = best_seconds([&] {
        int w, h, n;
        uint8_t* p = stbi_load_from_memory(image.file.data(), int(image.file.size()), &w, &h, &n, 4);
        stb.assign(p, p + size_t(w) * h * 4);
        stbi_image_free(p);
    });
    // stb_image keeps the high byte of a 16-bit sample instead of rounding: one step at most.
    const bool agree = ours == image.expected && (image.sixteen ? within_one(reference, image.expected) &&
                                                                      within_one(stb, image.expected)
                                                                : reference == image.expected && stb == image.expected);
    if (!agree) {
        std::printf("decoders disagree on %s\n", image.title.c_str());
        std::exit(1);
    }
    std::printf("  %-28s %6.2f %8.1f %8.1f %8.1f %9.2fx %7.2fx\n", image.title.c_str(), image.file.size() / 1e6,
                megapixels / tOurs, megapixels / tLibpng, megapixels / tStb, tLibpng / tOurs, tStb / tOurs);
}

}  // namespace

int main() {
    const std::vector<uint16_t> photo = photo_like(kSize, kSize);
    std::printf("PNG decode to RGBA 8-bit, %u x %u, MP/s, best of %d runs\n", kSize, kSize, kRuns);
    std::printf("  %-28s %6s %8s %8s %8s %10s %8s\n", "image", "MB", "ours", "libpng", "stb", "vs libpng", "vs stb");
    for (int depth : {8, 16})
        for (bool alpha : {true, false})
            for (bool adam7 : {false, true}) decode_row(photo_image(photo, depth, alpha, adam7));
    TestImage screen{"screenshot RGBA8, level 9", {}, screenshot_like(kSize, kSize), false};
    screen.file = libpng_encode(screen.expected, kSize, kSize, 8, true, false, 9);
    decode_row(screen);

    Bytes pixels(size_t(kSize) * kSize * 4);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = uint8_t(photo[i] >> 8);
    const auto path = std::filesystem::temp_directory_path() / "ot_png_encode_bench.png";
    const double tEncode = best_seconds([&] {
        if (!ot::png::save_png_rgba8_file(path.c_str(), pixels.data(), kSize, kSize)) std::abort();
    });
    const double fileMb = std::filesystem::file_size(path) / 1e6;
    std::filesystem::remove(path);
    std::printf("PNG encode (ours, stored blocks, to a file): %.1f ms, %.1f MB/s of pixels, %.2f MB file\n",
                tEncode * 1e3, pixels.size() / 1e6 / tEncode, fileMb);
    return 0;
}
