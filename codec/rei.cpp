// REI: our small layered format; layers stack bottom first and are flattened on load.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "codec/bytes.h"
#include "codec/formats.h"
#include "codec/png.h"

namespace ot::png {

const uint8_t kReiSignature[8] = {'R', 'E', 'I', 'I', 'M', 'G', 0x00, 0x01};

namespace {

constexpr size_t kFileHeaderBytes = 20;
constexpr size_t kLayerHeaderBytes = 28;

struct ReiLayer {
    uint32_t flags;
    int32_t x, y;
    uint32_t width, height, opacity;
    const uint8_t* pixels;
};

}  // namespace

bool load_rei_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    if (!data || size < kFileHeaderBytes || std::memcmp(data, kReiSignature, 8) != 0) return false;
    const uint32_t width = read_u32_le(data + 8), height = read_u32_le(data + 12), layerCount = read_u32_le(data + 16);
    if (width == 0 || height == 0 || layerCount == 0) return false;

    // Every layer is checked to be whole before the canvas is allocated.
    std::vector<ReiLayer> layers;
    size_t position = kFileHeaderBytes;
    for (uint32_t i = 0; i < layerCount; ++i) {
        if (size - position < kLayerHeaderBytes) return false;
        const uint8_t* h = data + position;
        ReiLayer layer{read_u32_le(h), read_s32_le(h + 4), read_s32_le(h + 8), read_u32_le(h + 12),
                       read_u32_le(h + 16), h[20], h + kLayerHeaderBytes};
        position += kLayerHeaderBytes;
        uint64_t count, bytes;
        if (!checked_mul(layer.width, layer.height, count) || !checked_mul(count, 4, bytes) ||
            bytes > size - position)
            return false;
        position += size_t(bytes);
        if (layer.flags & 1) layers.push_back(layer);
    }
    uint64_t pixelCount;
    if (!compute_pixel_count(width, height, pixelCount) || !raw_canvas_fits_data(pixelCount, size)) return false;

    std::vector<uint8_t> canvas(size_t(pixelCount) * 4, 0);
    for (const ReiLayer& layer : layers) {
        // Only the part of the layer inside the canvas is drawn.
        const int64_t x0 = layer.x < 0 ? -int64_t(layer.x) : 0, y0 = layer.y < 0 ? -int64_t(layer.y) : 0;
        const int64_t x1 = std::min<int64_t>(layer.width, int64_t(width) - layer.x);
        const int64_t y1 = std::min<int64_t>(layer.height, int64_t(height) - layer.y);
        for (int64_t ly = y0; ly < y1; ++ly) {
            for (int64_t lx = x0; lx < x1; ++lx) {
                const uint8_t* in = layer.pixels + (size_t(ly) * layer.width + size_t(lx)) * 4;
                const uint8_t source[4] = {in[0], in[1], in[2], uint8_t((in[3] * layer.opacity + 127) / 255)};
                alpha_over_pixel(canvas.data() + (size_t(layer.y + ly) * width + size_t(layer.x + lx)) * 4, source);
            }
        }
    }
    image.width = width;
    image.height = height;
    image.pixels.swap(canvas);
    return true;
}

bool save_rei_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    uint64_t pixelBytes;
    if (!checked_mul(uint64_t(width) * 4, height, pixelBytes) || pixelBytes > SIZE_MAX) return false;
    uint8_t header[kFileHeaderBytes + kLayerHeaderBytes] = {};
    std::memcpy(header, kReiSignature, 8);
    write_u32_le(header + 8, width);
    write_u32_le(header + 12, height);
    write_u32_le(header + 16, 1);
    uint8_t* layer = header + kFileHeaderBytes;
    write_u32_le(layer, 1);  // visible, at 0, 0
    write_u32_le(layer + 12, width);
    write_u32_le(layer + 16, height);
    layer[20] = 255;

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    const bool ok = write_bytes(file, header, sizeof header) && write_bytes(file, pixels, size_t(pixelBytes));
    return close_written_file(file, ok);
}

}  // namespace ot::png
