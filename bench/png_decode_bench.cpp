// PNG decode speed: our reader against libpng and stb_image on a 2048 by 2048 photo-like RGBA
// image at zlib level 6, plain and Adam7; and our writer's speed. Medians of several runs.
#include <png.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <vector>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include "codec/codec.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kSize = 2048;
constexpr int kRuns = 7;

// Smooth shapes, texture and sensor-like noise, so that filters and matches behave as on a photo.
Bytes photo_like(uint32_t w, uint32_t h) {
    std::mt19937 rng(42);
    std::normal_distribution<float> noise(0.0f, 3.0f);
    Bytes px(size_t(w) * h * 4);
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) {
            const float fx = float(x) / w, fy = float(y) / h;
            const float base = 0.5f + 0.25f * std::sin(fx * 9.0f + std::cos(fy * 5.0f)) + 0.2f * std::cos(fy * 13.0f - fx * 3.0f);
            const float texture = 0.05f * std::sin(float(x) * 0.7f) * std::cos(float(y) * 0.45f);
            uint8_t* p = &px[(size_t(y) * w + x) * 4];
            for (int c = 0; c < 3; ++c) {
                const float v = (base + texture) * (200.0f + 25.0f * c) + 20.0f * c * fx + noise(rng);
                p[c] = uint8_t(std::clamp(v, 0.0f, 255.0f));
            }
            p[3] = uint8_t(std::clamp(255.0f - 120.0f * fx * fy + noise(rng), 0.0f, 255.0f));
        }
    }
    return px;
}

void write_to_vector(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

Bytes libpng_encode(const Bytes& px, uint32_t w, uint32_t h, bool adam7) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &out, write_to_vector, nullptr);
    png_set_compression_level(png, 6);
    png_set_IHDR(png, info, w, h, 8, PNG_COLOR_TYPE_RGBA, adam7 ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    std::vector<png_bytep> rows(h);
    for (uint32_t y = 0; y < h; ++y) rows[y] = const_cast<png_bytep>(&px[size_t(y) * w * 4]);
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
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

Bytes libpng_decode(const Bytes& file) {
    Reader reader{&file, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &reader, read_from_vector);
    png_read_info(png, info);
    png_set_expand(png);
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

double median_seconds(const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        times.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void decode_table(const char* title, const Bytes& file, const Bytes& expected) {
    const double megapixels = double(kSize) * kSize / 1e6;
    Bytes ours, reference, stb;
    const double tOurs = median_seconds([&] {
        ot::png::Image image;
        if (!ot::png::load_memory(file.data(), file.size(), image)) std::abort();
        ours.swap(image.pixels);
    });
    const double tLibpng = median_seconds([&] { reference = libpng_decode(file); });
    const double tStb = median_seconds([&] {
        int w, h, n;
        uint8_t* p = stbi_load_from_memory(file.data(), int(file.size()), &w, &h, &n, 4);
        stb.assign(p, p + size_t(w) * h * 4);
        stbi_image_free(p);
    });
    if (ours != expected || reference != expected || stb != expected) {
        std::printf("decoders disagree on %s\n", title);
        std::exit(1);
    }
    std::printf("%s: %u x %u RGBA, %.2f MB file, median of %d runs\n", title, kSize, kSize, file.size() / 1e6, kRuns);
    std::printf("  %-10s %9s %10s %12s\n", "decoder", "ms", "MP/s", "vs libpng");
    for (auto [name, t] : {std::pair{"ours", tOurs}, {"libpng", tLibpng}, {"stb_image", tStb}})
        std::printf("  %-10s %9.1f %10.1f %11.2fx\n", name, t * 1e3, megapixels / t, tLibpng / t);
}

}  // namespace

int main() {
    const Bytes pixels = photo_like(kSize, kSize);
    decode_table("PNG decode, non-interlaced, zlib level 6", libpng_encode(pixels, kSize, kSize, false), pixels);
    decode_table("PNG decode, Adam7, zlib level 6", libpng_encode(pixels, kSize, kSize, true), pixels);

    const auto path = std::filesystem::temp_directory_path() / "ot_png_encode_bench.png";
    const double tEncode = median_seconds([&] {
        if (!ot::png::save_png_rgba8_file(path.c_str(), pixels.data(), kSize, kSize)) std::abort();
    });
    const double fileMb = std::filesystem::file_size(path) / 1e6;
    std::filesystem::remove(path);
    std::printf("PNG encode (ours, stored blocks, to a file): %.1f ms, %.1f MB/s of pixels, %.2f MB file\n",
                tEncode * 1e3, pixels.size() / 1e6 / tEncode, fileMb);
    return 0;
}
