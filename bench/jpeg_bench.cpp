// JPEG decode speed: our reader against libjpeg-turbo's floating-point DCT (nearest-neighbour
// upsampling, as ours) on a 1920 by 1080 4:2:0 photo-like image at quality 90; and our XCF
// reader on a 4096 by 4096 RLE file. Medians of several runs, in processor time, so that other
// work on a shared machine does not count.
#include <cstdio>  // before jpeglib.h, which uses FILE

#include <jpeglib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <vector>

#include "codec/codec.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kJpegWidth = 1920, kJpegHeight = 1080;
constexpr uint32_t kXcfSide = 4096;
constexpr int kRuns = 9;

double median_seconds(const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < kRuns; ++i) {
        const std::clock_t start = std::clock();
        work();
        times.push_back(double(std::clock() - start) / CLOCKS_PER_SEC);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Smooth gradients and shapes with sensor-like noise: RGB.
Bytes photo_like(uint32_t w, uint32_t h) {
    std::mt19937 rng(7);
    std::normal_distribution<float> noise(0.0f, 4.0f);
    Bytes px(size_t(w) * h * 3);
    for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) {
            const float fx = float(x) / w, fy = float(y) / h;
            const float base = 0.5f + 0.25f * std::sin(fx * 7.0f + std::cos(fy * 4.0f)) + 0.2f * std::cos(fy * 11.0f - fx * 3.0f);
            uint8_t* p = &px[(size_t(y) * w + x) * 3];
            for (int c = 0; c < 3; ++c)
                p[c] = uint8_t(std::clamp(base * (190.0f + 30.0f * c) + 40.0f * c * fx * fy + noise(rng), 0.0f, 255.0f));
        }
    }
    return px;
}

Bytes libjpeg_encode(const Bytes& rgb, uint32_t w, uint32_t h, int quality) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr error;
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = w;
    cinfo.image_height = h;
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);  // 4:2:0
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < h) {
        JSAMPROW row = const_cast<JSAMPROW>(&rgb[size_t(cinfo.next_scanline) * w * 3]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

Bytes libjpeg_decode_float(const Bytes& file) {
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr error;
    cinfo.err = jpeg_std_error(&error);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, file.data(), file.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.dct_method = JDCT_FLOAT;
    cinfo.do_fancy_upsampling = FALSE;
    cinfo.out_color_space = JCS_EXT_RGBA;
    jpeg_start_decompress(&cinfo);
    Bytes px(size_t(cinfo.output_width) * cinfo.output_height * 4);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = &px[size_t(cinfo.output_scanline) * cinfo.output_width * 4];
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return px;
}

void jpeg_table() {
    const Bytes file = libjpeg_encode(photo_like(kJpegWidth, kJpegHeight), kJpegWidth, kJpegHeight, 90);
    const double megapixels = double(kJpegWidth) * kJpegHeight / 1e6;
    Bytes ours, reference;
    const double tOurs = median_seconds([&] {
        ot::png::Image image;
        if (!ot::png::load_memory(file.data(), file.size(), image)) std::abort();
        ours.swap(image.pixels);
    });
    const double tReference = median_seconds([&] { reference = libjpeg_decode_float(file); });
    // The two differ by design in a few samples, by one step of a plane (so up to 2 in a colour):
    // we sum the inverse DCT exactly and round halves up, libjpeg-turbo sums in single precision
    // and its SIMD code rounds halves to even; and our colour formula is double precision where
    // libjpeg's is 16-bit fixed point.
    size_t differing = 0;
    int worst = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        const int d = std::abs(int(ours[i]) - int(reference[i]));
        differing += d != 0;
        worst = std::max(worst, d);
    }
    std::printf("JPEG decode, %ux%u 4:2:0 quality 90 (%.0f KiB)\n", kJpegWidth, kJpegHeight, file.size() / 1024.0);
    std::printf("  %-34s %8.2f ms %8.1f MP/s\n", "ours", tOurs * 1e3, megapixels / tOurs);
    std::printf("  %-34s %8.2f ms %8.1f MP/s\n", "libjpeg-turbo, float DCT, no smooth", tReference * 1e3,
                megapixels / tReference);
    std::printf("  ours / libjpeg-turbo speed: %.2f; samples differing: %zu of %zu, by at most %d\n",
                tReference / tOurs, differing, ours.size(), worst);
}

void put_u32(Bytes& out, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

// One channel of a tile in the RLE of the format, short forms only (up to 127 bytes): runs of 2 or
// more repeat, the rest is literal.
void rle_channel(const uint8_t* values, size_t count, Bytes& out) {
    for (size_t i = 0; i < count;) {
        size_t run = 1;
        while (i + run < count && values[i + run] == values[i] && run < 127) ++run;
        if (run >= 2) {
            out.push_back(uint8_t(run - 1));
            out.push_back(values[i]);
            i += run;
            continue;
        }
        size_t literal = 1;
        while (i + literal < count && literal < 127 && !(i + literal + 1 < count && values[i + literal] == values[i + literal + 1]))
            ++literal;
        out.push_back(uint8_t(256 - literal));
        out.insert(out.end(), values + i, values + i + literal);
        i += literal;
    }
}

// A drawing rather than a photo: flat areas, bands and a noisy patch, one RGBA layer.
Bytes xcf_rle_file(uint32_t side) {
    std::mt19937 rng(3);
    Bytes px(size_t(side) * side * 4);
    for (uint32_t y = 0; y < side; ++y)
        for (uint32_t x = 0; x < side; ++x) {
            uint8_t* p = &px[(size_t(y) * side + x) * 4];
            const bool noisy = x > side / 2 && y > side / 2 && x < side * 5 / 8;
            p[0] = noisy ? uint8_t(rng()) : uint8_t((x / 37) * 11);
            p[1] = uint8_t((y / 53) * 7);
            p[2] = uint8_t(((x + y) / 101) * 13);
            p[3] = (x / 512 + y / 512) % 3 ? 255 : 128;
        }
    Bytes out = {'g', 'i', 'm', 'p', ' ', 'x', 'c', 'f', ' ', 'v', '0', '0', '3', 0};
    put_u32(out, side);
    put_u32(out, side);
    put_u32(out, 0);
    for (uint32_t w : {17u, 1u}) put_u32(out, w);
    out.push_back(1);  // RLE
    for (uint32_t w : {0u, 0u}) put_u32(out, w);
    put_u32(out, uint32_t(out.size() + 12));
    for (uint32_t w : {0u, 0u}) put_u32(out, w);
    for (uint32_t w : {side, side, 1u, 0u}) put_u32(out, w);  // RGBA layer, no name
    for (uint32_t w : {0u, 0u}) put_u32(out, w);               // no properties
    put_u32(out, uint32_t(out.size() + 8));
    put_u32(out, 0);
    for (uint32_t w : {side, side, 4u}) put_u32(out, w);
    put_u32(out, uint32_t(out.size() + 8));
    put_u32(out, 0);
    for (uint32_t w : {side, side}) put_u32(out, w);
    const uint32_t across = (side + 63) / 64, tiles = across * across;
    const size_t table = out.size();
    out.resize(out.size() + (size_t(tiles) + 1) * 4, 0);
    Bytes channel;
    for (uint32_t t = 0; t < tiles; ++t) {
        const uint32_t tx = t % across * 64, ty = t / across * 64;
        const uint32_t tw = std::min(64u, side - tx), th = std::min(64u, side - ty);
        const uint32_t offset = uint32_t(out.size());
        for (int s = 0; s < 4; ++s) out[table + t * 4 + s] = uint8_t(offset >> (24 - 8 * s));
        for (int c = 0; c < 4; ++c) {
            channel.clear();
            for (uint32_t y = 0; y < th; ++y)
                for (uint32_t x = 0; x < tw; ++x) channel.push_back(px[((size_t(ty) + y) * side + tx + x) * 4 + c]);
            rle_channel(channel.data(), channel.size(), out);
        }
    }
    return out;
}

void xcf_table() {
    const Bytes file = xcf_rle_file(kXcfSide);
    const double tOurs = median_seconds([&] {
        ot::png::Image image;
        if (!ot::png::load_memory(file.data(), file.size(), image)) std::abort();
    });
    std::printf("XCF read, %ux%u RGBA, RLE tiles (%.1f MiB)\n", kXcfSide, kXcfSide, file.size() / 1048576.0);
    std::printf("  %-34s %8.2f ms %8.1f MP/s\n", "ours", tOurs * 1e3, double(kXcfSide) * kXcfSide / 1e6 / tOurs);
}

}  // namespace

int main() {
    jpeg_table();
    xcf_table();
    return 0;
}
