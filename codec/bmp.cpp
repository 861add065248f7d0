// Windows BMP: uncompressed and bit-field files of 1 to 32 bits per pixel; RLE is refused.
#include <bit>
#include <cstdio>
#include <cstring>

#include "codec/bytes.h"
#include "codec/formats.h"

namespace ot::png {

namespace {

unsigned count_mask_shift(uint32_t mask) { return mask ? unsigned(std::countr_zero(mask)) : 0; }
unsigned count_mask_bits(uint32_t mask) { return unsigned(std::popcount(mask)); }

uint8_t scale_masked_sample(uint32_t value, uint32_t mask) {
    if (mask == 0) return 0;
    const uint64_t sample = (value & mask) >> count_mask_shift(mask);
    const uint64_t max = (uint64_t(1) << count_mask_bits(mask)) - 1;
    return uint8_t((sample * 255 + max / 2) / max);
}

struct BmpLayout {
    int64_t width = 0;
    int64_t height = 0;
    bool topDown = false;
    uint32_t bitsPerPixel = 0;
    uint32_t compression = 0;
    uint32_t coloursUsed = 0;
    uint64_t pixelOffset = 0;
    uint64_t paletteOffset = 0;
    uint32_t paletteEntryBytes = 4;
    uint32_t masks[4] = {};  // red, green, blue, alpha
};

bool read_bmp_layout(const uint8_t* data, size_t size, BmpLayout& bmp) {
    if (size < 26 || data[0] != 'B' || data[1] != 'M') return false;
    bmp.pixelOffset = read_u32_le(data + 10);
    const uint32_t dibSize = read_u32_le(data + 14);
    if (dibSize != 12 && dibSize < 40) return false;
    bmp.paletteOffset = uint64_t(dibSize) + 14;
    uint32_t planes;
    if (dibSize == 12) {
        bmp.width = read_u16_le(data + 18);
        bmp.height = read_u16_le(data + 20);
        planes = read_u16_le(data + 22);
        bmp.bitsPerPixel = read_u16_le(data + 24);
        bmp.paletteEntryBytes = 3;
        // An empty image is how a failed load looks, so a file without pixels is refused.
        if (bmp.width == 0 || bmp.height == 0) return false;
    } else {
        if (size < bmp.paletteOffset) return false;
        bmp.width = read_s32_le(data + 18);
        bmp.height = read_s32_le(data + 22);
        if (bmp.width <= 0 || bmp.height == 0) return false;
        if (bmp.height < 0) {
            bmp.topDown = true;
            bmp.height = -bmp.height;
        }
        planes = read_u16_le(data + 26);
        bmp.bitsPerPixel = read_u16_le(data + 28);
        bmp.compression = read_u32_le(data + 30);
        bmp.coloursUsed = read_u32_le(data + 46);
        // The old 40-byte header keeps its masks in front of the palette.
        if (dibSize == 40 && bmp.compression == 3) bmp.paletteOffset += 12;
        if (dibSize == 40 && bmp.compression == 6) bmp.paletteOffset += 16;
    }
    if (planes != 1 || bmp.pixelOffset >= size) return false;
    if (bmp.compression != 0 && bmp.compression != 3 && bmp.compression != 6) return false;
    if (bmp.compression != 0) {
        if (dibSize < 52 && size < (bmp.compression == 6 ? 70u : 66u)) return false;
        bmp.masks[0] = read_u32_le(data + 54);
        bmp.masks[1] = read_u32_le(data + 58);
        bmp.masks[2] = read_u32_le(data + 62);
        if (dibSize < 52 ? bmp.compression == 6 : dibSize > 55) bmp.masks[3] = read_u32_le(data + 66);
    }
    if (bmp.masks[0] == 0 && bmp.masks[1] == 0 && bmp.masks[2] == 0) {
        if (bmp.bitsPerPixel == 16) {
            bmp.masks[0] = 0x7C00;
            bmp.masks[1] = 0x3E0;
            bmp.masks[2] = 0x1F;
        } else if (bmp.bitsPerPixel == 32) {
            bmp.masks[0] = 0xFF0000;
            bmp.masks[1] = 0xFF00;
            bmp.masks[2] = 0xFF;
            bmp.masks[3] = 0xFF000000;
        }
    }
    return true;
}

}  // namespace

bool load_bmp_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    BmpLayout bmp;
    if (!data || !read_bmp_layout(data, size, bmp)) return false;
    const uint32_t bits = bmp.bitsPerPixel;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;

    std::vector<uint8_t> palette;  // RGBA
    if (bits <= 8) {
        const uint64_t entries = bmp.coloursUsed ? bmp.coloursUsed : uint64_t(1) << bits;
        uint64_t paletteBytes, paletteEnd;
        if (!checked_mul(entries, bmp.paletteEntryBytes, paletteBytes) ||
            !checked_add(bmp.paletteOffset, paletteBytes, paletteEnd) || paletteEnd > size)
            return false;
        palette.resize(size_t(entries) * 4);
        for (size_t i = 0; i < entries; ++i) {
            const uint8_t* entry = data + bmp.paletteOffset + i * bmp.paletteEntryBytes;
            palette[i * 4] = entry[2];
            palette[i * 4 + 1] = entry[1];
            palette[i * 4 + 2] = entry[0];
            palette[i * 4 + 3] = 255;
        }
    }

    uint64_t rowBits, stride, pixelBytes, pixelCount;
    if (!checked_mul(uint64_t(bmp.width), bits, rowBits)) return false;
    stride = (rowBits + 31) / 32 * 4;
    if (!checked_mul(stride, uint64_t(bmp.height), pixelBytes) || pixelBytes > size - bmp.pixelOffset) return false;
    if (!compute_pixel_count(uint64_t(bmp.width), uint64_t(bmp.height), pixelCount)) return false;

    const uint32_t width = uint32_t(bmp.width), height = uint32_t(bmp.height);
    std::vector<uint8_t> rgba(size_t(pixelCount) * 4);
    const size_t entries = palette.size() / 4;
    for (uint32_t r = 0; r < height; ++r) {
        const uint8_t* row = data + bmp.pixelOffset + size_t(r) * stride;
        uint8_t* out = rgba.data() + size_t(bmp.topDown ? r : height - 1 - r) * width * 4;
        for (uint32_t x = 0; x < width; ++x, out += 4) {
            if (bits <= 8) {
                size_t index;
                if (bits == 1) index = row[x >> 3] >> (7 - (x & 7)) & 1;
                else if (bits == 4) index = row[x >> 1] >> ((x & 1) ? 0 : 4) & 0x0F;
                else index = row[x];
                if (index >= entries) return false;
                std::memcpy(out, &palette[index * 4], 4);
            } else if (bits == 24) {
                out[0] = row[x * 3 + 2];
                out[1] = row[x * 3 + 1];
                out[2] = row[x * 3];
                out[3] = 255;
            } else {
                const uint32_t value = bits == 16 ? read_u16_le(row + x * 2) : read_u32_le(row + x * 4);
                for (int c = 0; c < 3; ++c) out[c] = scale_masked_sample(value, bmp.masks[c]);
                out[3] = bmp.masks[3] ? scale_masked_sample(value, bmp.masks[3]) : 255;
            }
        }
    }
    // Many writers leave the alpha byte of 32-bit files at zero: such a file is opaque.
    if (bits == 32 && bmp.masks[3]) {
        bool allClear = true;
        for (size_t i = 3; i < rgba.size() && allClear; i += 4) allClear = rgba[i] == 0;
        if (allClear)
            for (size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
    }
    image.width = width;
    image.height = height;
    image.pixels.swap(rgba);
    return true;
}

bool save_bmp_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    constexpr uint32_t kHeaderBytes = 122;
    uint64_t pixelBytes, fileBytes;
    if (!checked_mul(uint64_t(width) * 4, height, pixelBytes) || !checked_add(pixelBytes, kHeaderBytes, fileBytes) ||
        fileBytes > 0xFFFFFFFFu)
        return false;
    uint8_t header[kHeaderBytes] = {};
    header[0] = 'B';
    header[1] = 'M';
    write_u32_le(header + 2, uint32_t(fileBytes));
    write_u32_le(header + 10, kHeaderBytes);
    write_u32_le(header + 14, 108);
    write_u32_le(header + 18, width);
    write_u32_le(header + 22, uint32_t(-int64_t(height)));  // negative: rows run top-down
    write_u16_le(header + 26, 1);
    write_u16_le(header + 28, 32);
    write_u32_le(header + 30, 3);
    write_u32_le(header + 34, uint32_t(pixelBytes));
    write_u32_le(header + 38, 2835);  // 72 dots per inch
    write_u32_le(header + 42, 2835);
    write_u32_le(header + 54, 0xFF0000);
    write_u32_le(header + 58, 0xFF00);
    write_u32_le(header + 62, 0xFF);
    write_u32_le(header + 66, 0xFF000000);
    write_u32_le(header + 70, 0x73524742);  // "sRGB"

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    bool ok = write_bytes(file, header, sizeof header);
    ok = ok && write_bgra_rows(file, pixels, width, height);
    return close_written_file(file, ok);
}

}  // namespace ot::png
