// Truevision TGA: colour-mapped, true-colour and grey images, raw or run-length encoded.
#include <cstdio>
#include <cstring>

#include "codec/bytes.h"
#include "codec/formats.h"

namespace ot::png {

namespace {

const char kTgaFooterSignature[18] = "TRUEVISION-XFILE.";  // with its closing zero byte

struct TgaHeader {
    uint32_t idLength, mapType, imageType, mapFirst, mapLength, mapBits, width, height, depth, descriptor;
};

TgaHeader read_tga_header(const uint8_t* data) {
    return {data[0], data[1], data[2], read_u16_le(data + 3), read_u16_le(data + 5), data[7], read_u16_le(data + 12),
            read_u16_le(data + 14), data[16], data[17]};
}

bool read_tga_color(const uint8_t* source, uint32_t bits, uint32_t attributeBits, uint8_t* output) {
    switch (bits) {
        case 8:
            output[0] = output[1] = output[2] = source[0];
            output[3] = 255;
            return true;
        case 15:
        case 16: {
            const uint32_t v = read_u16_le(source);
            output[0] = uint8_t(((v >> 10) & 31) * 255 / 31);
            output[1] = uint8_t(((v >> 5) & 31) * 255 / 31);
            output[2] = uint8_t((v & 31) * 255 / 31);
            // The top bit is alpha only when the descriptor announces attribute bits.
            output[3] = (attributeBits & 0x0F) && bits == 16 && !(v & 0x8000) ? 0 : 255;
            return true;
        }
        case 24:
        case 32:
            output[0] = source[2];
            output[1] = source[1];
            output[2] = source[0];
            output[3] = bits == 32 ? source[3] : 255;
            return true;
        default: return false;
    }
}

}  // namespace

bool looks_like_tga(const uint8_t* data, size_t size) {
    if (!data || size < 18) return false;
    if (size > 25 && std::memcmp(data + size - 18, kTgaFooterSignature, 18) == 0) return true;
    const TgaHeader h = read_tga_header(data);
    if (h.mapType > 1) return false;
    if (h.imageType != 1 && h.imageType != 2 && h.imageType != 3 && h.imageType != 9 && h.imageType != 10 &&
        h.imageType != 11)
        return false;
    if (h.width == 0 || h.height == 0) return false;
    if (h.mapType == 0 && h.mapLength != 0) return false;
    if (h.mapType == 1 && (h.mapLength == 0 || (h.mapBits != 15 && h.mapBits != 16 && h.mapBits != 24 && h.mapBits != 32)))
        return false;
    const uint32_t base = h.imageType >= 8 ? h.imageType - 8 : h.imageType;
    const uint32_t d = h.depth;
    if (base == 1 && d != 8 && d != 16) return false;
    if (base == 2 && d != 15 && d != 16 && d != 24 && d != 32) return false;
    if (base == 3 && d != 8 && d != 16) return false;
    const uint64_t mapBytes = h.mapType == 1 ? uint64_t(h.mapLength) * ((h.mapBits + 7) / 8) : 0;
    return size > 18 + h.idLength + mapBytes;
}

bool load_tga_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    if (!looks_like_tga(data, size)) return false;
    const TgaHeader h = read_tga_header(data);
    size_t position = 18 + h.idLength;
    if (position > size) return false;

    std::vector<uint8_t> map;  // RGBA
    if (h.mapType == 1) {
        const size_t entryBytes = (h.mapBits + 7) / 8;
        if (size - position < size_t(h.mapLength) * entryBytes) return false;
        map.resize(size_t(h.mapLength) * 4);
        for (size_t i = 0; i < h.mapLength; ++i, position += entryBytes)
            if (!read_tga_color(data + position, h.mapBits, h.mapBits == 32 ? 8 : 0, &map[i * 4])) return false;
    }

    // A file taken for TGA by its footer alone may carry any header, so the pixel size is checked
    // against what each image type reads.
    const uint32_t base = h.imageType >= 8 ? h.imageType - 8 : h.imageType;
    const size_t pixelBytes = (h.depth + 7) / 8;
    if (base < 1 || base > 3 || pixelBytes == 0 || h.width == 0 || h.height == 0) return false;
    if (base == 2 && h.depth != 8 && h.depth != 15 && h.depth != 16 && h.depth != 24 && h.depth != 32) return false;

    const uint64_t count = uint64_t(h.width) * h.height;
    const bool rle = h.imageType >= 9;
    const size_t remaining = size - position;
    // Refuse before allocating when the data cannot hold the pixels: raw ones all of them, runs
    // at most 128 pixels per packet.
    if (!rle && count * pixelBytes > remaining) return false;
    if (rle && (count + 127) / 128 * (1 + pixelBytes) > remaining) return false;

    std::vector<uint8_t> rgba(size_t(count) * 4);
    uint64_t placed = 0;
    auto place = [&](const uint8_t* source) {
        if (placed >= count) return false;
        uint32_t column = uint32_t(placed % h.width), row = uint32_t(placed / h.width);
        ++placed;
        if (h.descriptor & 0x10) column = h.width - 1 - column;
        if (!(h.descriptor & 0x20)) row = h.height - 1 - row;  // bottom-up unless bit 5 says otherwise
        uint8_t* out = rgba.data() + (size_t(row) * h.width + column) * 4;
        switch (base) {
            case 1: {
                const uint32_t index = h.depth == 16 ? read_u16_le(source) : source[0];
                if (index < h.mapFirst || index - h.mapFirst >= map.size() / 4) return false;
                std::memcpy(out, &map[(index - h.mapFirst) * 4], 4);
                return true;
            }
            case 2: return read_tga_color(source, h.depth, h.descriptor, out);
            default:
                out[0] = out[1] = out[2] = source[0];
                out[3] = h.depth == 16 ? source[1] : 255;
                return true;
        }
    };

    if (!rle) {
        for (uint64_t i = 0; i < count; ++i, position += pixelBytes)
            if (!place(data + position)) return false;
    } else {
        while (placed < count) {
            if (position >= size) return false;
            const uint8_t packet = data[position++];
            const uint32_t run = (packet & 0x7F) + 1u;
            if (packet & 0x80) {
                if (size - position < pixelBytes) return false;
                for (uint32_t k = 0; k < run; ++k)
                    if (!place(data + position)) return false;
                position += pixelBytes;
            } else {
                if ((size - position) / pixelBytes < run) return false;
                for (uint32_t k = 0; k < run; ++k, position += pixelBytes)
                    if (!place(data + position)) return false;
            }
        }
    }
    image.width = h.width;
    image.height = h.height;
    image.pixels.swap(rgba);
    return true;
}

bool save_tga_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    uint8_t header[18] = {};
    header[2] = 2;  // raw true colour
    write_u16_le(header + 12, uint16_t(width));
    write_u16_le(header + 14, uint16_t(height));
    header[16] = 32;
    header[17] = 0x28;  // top-left origin, 8 alpha bits
    uint8_t footer[26] = {};
    std::memcpy(footer + 8, kTgaFooterSignature, 18);

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    bool ok = write_bytes(file, header, sizeof header);
    ok = ok && write_bgra_rows(file, pixels, width, height);
    ok = ok && write_bytes(file, footer, sizeof footer);
    return close_written_file(file, ok);
}

}  // namespace ot::png
