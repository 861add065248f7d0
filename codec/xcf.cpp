// XCF, the layered format of a paint program: visible layers flattened onto a transparent
// canvas on load (normal blending only; channels and masks ignored), one layer on save.
// All integers are big-endian.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "codec/bytes.h"
#include "codec/formats.h"
#include "codec/inflate.h"
#include "codec/png.h"

namespace ot::png {

namespace {

constexpr size_t kMinimumFileBytes = 30;
constexpr size_t kHeaderBytes = 14;  // "gimp xcf " + version + zero byte
constexpr uint32_t kTileSide = 64;
constexpr uint32_t kFirstPrecisionVersion = 4;
constexpr uint32_t kFirstWidePointerVersion = 11;
constexpr uint32_t kMaxColours = 256;

enum Property : uint32_t {
    kPropEnd = 0,
    kPropColourMap = 1,
    kPropOpacity = 6,
    kPropLinked = 7,
    kPropVisible = 8,
    kPropOffsets = 15,
    kPropCompression = 17,
    kPropFloatOpacity = 33,
};

enum Compression : uint32_t { kCompressNone = 0, kCompressRle = 1, kCompressZlib = 2 };

enum LayerType : uint32_t { kRgb = 0, kRgba = 1, kGrey = 2, kGreyAlpha = 3, kIndexed = 4, kIndexedAlpha = 5 };

struct XcfImageInfo {
    uint32_t width = 0, height = 0, baseType = 0, version = 0;
    uint32_t pointerSize = 4;
    uint32_t compression = kCompressNone;
    std::vector<uint8_t> colourMap;  // RGB triples
};

struct XcfLayerInfo {
    uint32_t width = 0, height = 0, type = 0;
    bool visible = true;
    uint32_t opacity = 255;
    int32_t xOffset = 0, yOffset = 0;
    uint64_t hierarchyOffset = 0;
};

struct XcfBytes {
    const uint8_t* data;
    size_t size;
    uint32_t pointerSize;
};

bool xcf_read_u32_at(const XcfBytes& in, uint64_t offset, uint32_t& out) {
    if (offset > in.size || in.size - offset < 4) return false;
    out = read_u32_be(in.data + offset);
    return true;
}

bool xcf_read_pointer_at(const XcfBytes& in, uint64_t offset, uint64_t& out) {
    if (offset > in.size || in.size - offset < in.pointerSize) return false;
    out = in.pointerSize == 8 ? read_u64_be(in.data + offset) : read_u32_be(in.data + offset);
    return true;
}

bool xcf_take_u32(const XcfBytes& in, uint64_t& position, uint32_t& out) {
    if (!xcf_read_u32_at(in, position, out)) return false;
    position += 4;
    return true;
}

bool xcf_take_pointer(const XcfBytes& in, uint64_t& position, uint64_t& out) {
    if (!xcf_read_pointer_at(in, position, out)) return false;
    position += in.pointerSize;
    return true;
}

bool xcf_skip_string(const XcfBytes& in, uint64_t& position) {
    uint32_t length;
    if (!xcf_take_u32(in, position, length) || length > in.size - position) return false;
    position += length;
    return true;
}

// One property: its type, and its payload, which must lie inside the file.
bool xcf_take_property(const XcfBytes& in, uint64_t& position, uint32_t& type, const uint8_t*& payload,
                       uint32_t& length) {
    if (!xcf_take_u32(in, position, type) || !xcf_take_u32(in, position, length) || length > in.size - position)
        return false;
    payload = in.data + position;
    position += length;
    return true;
}

bool xcf_parse_image_properties(const XcfBytes& in, uint64_t& position, XcfImageInfo& info) {
    for (;;) {
        uint32_t type, length;
        const uint8_t* payload;
        if (!xcf_take_property(in, position, type, payload, length)) return false;
        if (type == kPropEnd) return length == 0;
        if (type == kPropColourMap && length >= 4) {
            const uint32_t colours = read_u32_be(payload);
            if (colours <= kMaxColours && 3 * colours + 4 <= length)
                info.colourMap.assign(payload + 4, payload + 4 + 3 * colours);
        } else if (type == kPropCompression && length >= 1) {
            info.compression = payload[0];
        }
    }
}

bool xcf_parse_layer_properties(const XcfBytes& in, uint64_t& position, XcfLayerInfo& layer) {
    for (;;) {
        uint32_t type, length;
        const uint8_t* payload;
        if (!xcf_take_property(in, position, type, payload, length)) return false;
        if (type == kPropEnd) return length == 0;
        if (type == kPropOpacity && length >= 4) {
            layer.opacity = std::min<uint32_t>(read_u32_be(payload), 255);
        } else if (type == kPropVisible && length >= 4) {
            layer.visible = read_u32_be(payload) != 0;
        } else if (type == kPropOffsets && length >= 8) {
            layer.xOffset = read_s32_be(payload);
            layer.yOffset = read_s32_be(payload + 4);
        } else if (type == kPropFloatOpacity && length >= 4) {
            const float value = read_f32_be(payload);
            // Not above 0, which takes in a NaN, is fully transparent.
            layer.opacity = !(value > 0) ? 0 : value >= 1 ? 255 : uint32_t(std::round(double(value) * 255.0));
        }
    }
}

bool xcf_parse_layer(const XcfBytes& in, uint64_t offset, XcfLayerInfo& layer) {
    uint64_t position = offset, mask;
    return xcf_take_u32(in, position, layer.width) && xcf_take_u32(in, position, layer.height) &&
           xcf_take_u32(in, position, layer.type) && xcf_skip_string(in, position) &&
           xcf_parse_layer_properties(in, position, layer) && xcf_take_pointer(in, position, layer.hierarchyOffset) &&
           xcf_take_pointer(in, position, mask) && layer.width != 0 && layer.height != 0 &&
           layer.hierarchyOffset != 0;
}

// Bytes per pixel of a layer type; 0 for an unknown type.
uint32_t xcf_expected_bpp(uint32_t type) {
    switch (type) {
        case kRgb: return 3;
        case kRgba: return 4;
        case kGrey: return 1;
        case kGreyAlpha: return 2;
        case kIndexed: return 1;
        case kIndexedAlpha: return 2;
        default: return 0;
    }
}

// The channels come one after another; the output interleaves them.
bool xcf_decode_rle_tile(const uint8_t* data, size_t size, size_t pixelCount, uint32_t bytesPerPixel,
                         uint8_t* output) {
    size_t position = 0;
    for (uint32_t channel = 0; channel < bytesPerPixel; ++channel) {
        for (size_t done = 0; done < pixelCount;) {
            if (position >= size) return false;
            const uint32_t opcode = data[position++];
            size_t count;
            bool repeat;
            if (opcode <= 126) {
                count = opcode + 1;
                repeat = true;
            } else if (opcode == 127 || opcode == 128) {
                if (size - position < 2) return false;
                count = read_u16_be(data + position);
                position += 2;
                repeat = opcode == 127;
                if (count == 0) return false;
            } else {
                count = 256 - opcode;
                repeat = false;
            }
            if (count > pixelCount - done || size - position < (repeat ? 1 : count)) return false;
            for (size_t i = 0; i < count; ++i)
                output[(done + i) * bytesPerPixel + channel] = data[position + (repeat ? 0 : i)];
            position += repeat ? 1 : count;
            done += count;
        }
    }
    return true;
}

void xcf_pixel_to_rgba(const uint8_t* pixel, uint32_t type, const XcfImageInfo& info, uint32_t opacity,
                       uint8_t* output) {
    output[0] = output[1] = output[2] = 0;
    output[3] = 255;
    if (type == kRgb || type == kRgba) {
        std::memcpy(output, pixel, 3);
    } else if (type == kGrey || type == kGreyAlpha) {
        output[0] = output[1] = output[2] = pixel[0];
    } else if (size_t(pixel[0]) * 3 < info.colourMap.size()) {
        std::memcpy(output, &info.colourMap[size_t(pixel[0]) * 3], 3);
    }
    if (type == kRgba || type == kGreyAlpha || type == kIndexedAlpha) output[3] = pixel[xcf_expected_bpp(type) - 1];
    output[3] = uint8_t((output[3] * opacity + 127) / 255);
}

// The hierarchy's first level only, tile by tile straight onto the canvas.
bool xcf_decode_layer_pixels(const XcfBytes& in, const XcfImageInfo& info, const XcfLayerInfo& layer,
                             std::vector<uint8_t>& canvas) {
    uint64_t position = layer.hierarchyOffset, levelOffset;
    uint32_t width, height, bytesPerPixel;
    if (!xcf_take_u32(in, position, width) || !xcf_take_u32(in, position, height) ||
        !xcf_take_u32(in, position, bytesPerPixel) || !xcf_take_pointer(in, position, levelOffset))
        return false;
    if (width != layer.width || height != layer.height || levelOffset == 0) return false;
    if (bytesPerPixel == 0 || bytesPerPixel != xcf_expected_bpp(layer.type)) return false;
    position = levelOffset;
    if (!xcf_take_u32(in, position, width) || !xcf_take_u32(in, position, height)) return false;
    if (width != layer.width || height != layer.height) return false;

    const uint64_t across = (uint64_t(width) + kTileSide - 1) / kTileSide;
    const uint64_t down = (uint64_t(height) + kTileSide - 1) / kTileSide;
    // The tile offsets and the zero behind them must all be in the file before any is kept.
    uint64_t tileCount = across * down, tableBytes;
    if (!checked_mul(tileCount + 1, in.pointerSize, tableBytes) || tableBytes > in.size - position) return false;
    std::vector<uint64_t> tiles(size_t(tileCount) + 1);
    for (auto& offset : tiles)
        if (!xcf_take_pointer(in, position, offset)) return false;
    if (tiles.back() != 0) return false;
    for (uint64_t t = 0; t < tileCount; ++t)
        if (tiles[t] == 0 || tiles[t] >= in.size) return false;

    uint8_t tile[kTileSide * kTileSide * 4];
    std::vector<uint8_t> inflated;
    for (uint64_t t = 0; t < tileCount; ++t) {
        const uint32_t tileX = uint32_t(t % across) * kTileSide, tileY = uint32_t(t / across) * kTileSide;
        const uint32_t tileWidth = std::min(kTileSide, width - tileX), tileHeight = std::min(kTileSide, height - tileY);
        const size_t pixelCount = size_t(tileWidth) * tileHeight, expected = pixelCount * bytesPerPixel;
        const bool last = t + 1 == tileCount;
        const uint64_t end = !last && tiles[t + 1] > tiles[t] ? tiles[t + 1] : in.size;
        const uint8_t* bytes = in.data + tiles[t];
        const size_t available = size_t(end - tiles[t]);
        const uint8_t* pixels = tile;
        switch (info.compression) {
            case kCompressNone:
                if (available < expected) return false;
                pixels = bytes;
                break;
            case kCompressRle:
                if (!xcf_decode_rle_tile(bytes, available, pixelCount, bytesPerPixel, tile)) return false;
                break;
            case kCompressZlib:
                // Only the next tile's offset tells where a stream ends, so the last tile cannot be read.
                if (last || !inflate_zlib_stream(bytes, available, inflated, expected) || inflated.size() != expected)
                    return false;
                pixels = inflated.data();
                break;
            default: return false;
        }
        for (uint32_t y = 0; y < tileHeight; ++y) {
            const int64_t canvasY = int64_t(tileY) + y + layer.yOffset;
            if (canvasY < 0 || canvasY >= int64_t(info.height)) continue;
            for (uint32_t x = 0; x < tileWidth; ++x) {
                const int64_t canvasX = int64_t(tileX) + x + layer.xOffset;
                if (canvasX < 0 || canvasX >= int64_t(info.width)) continue;
                uint8_t rgba[4];
                xcf_pixel_to_rgba(pixels + (size_t(y) * tileWidth + x) * bytesPerPixel, layer.type, info,
                                  layer.opacity, rgba);
                uint8_t* target = canvas.data() + (size_t(canvasY) * info.width + size_t(canvasX)) * 4;
                // Over a transparent pixel, or opaque, the blend is a copy: the common case, done here.
                if (target[3] == 0 || rgba[3] == 255) std::memcpy(target, rgba, 4);
                else alpha_over_pixel(target, rgba);
            }
        }
    }
    return true;
}

bool xcf_read_version(const uint8_t* digits, uint32_t& version) {
    if (std::memcmp(digits, "file", 4) == 0) {
        version = 0;
        return true;
    }
    if (digits[0] != 'v') return false;
    version = 0;
    for (int i = 1; i < 4; ++i) {
        if (digits[i] < '0' || digits[i] > '9') return false;
        version = version * 10 + uint32_t(digits[i] - '0');
    }
    return true;
}

void xcf_append_string(std::vector<uint8_t>& out, const char* text) {
    const uint32_t length = uint32_t(std::strlen(text));
    append_u32_be(out, length ? length + 1 : 0);
    if (length) out.insert(out.end(), text, text + length + 1);
}

}  // namespace

bool load_xcf_memory(const uint8_t* data, size_t size, Image& image) {
    image = Image{};
    if (!data || size < kMinimumFileBytes || std::memcmp(data, "gimp xcf ", 9) != 0 || data[13] != 0) return false;
    XcfImageInfo info;
    if (!xcf_read_version(data + 9, info.version)) return false;
    info.pointerSize = info.version >= kFirstWidePointerVersion ? 8 : 4;
    const XcfBytes in{data, size, info.pointerSize};
    uint64_t position = kHeaderBytes;
    if (!xcf_take_u32(in, position, info.width) || !xcf_take_u32(in, position, info.height) ||
        !xcf_take_u32(in, position, info.baseType))
        return false;
    if (info.width == 0 || info.height == 0 || info.baseType >= 3) return false;
    if (info.version >= kFirstPrecisionVersion) {
        uint32_t precision;
        if (!xcf_take_u32(in, position, precision) || (precision != 0 && precision != 100 && precision != 150))
            return false;  // only 8-bit samples
    }
    if (!xcf_parse_image_properties(in, position, info)) return false;

    std::vector<uint64_t> layerOffsets;
    for (;;) {
        uint64_t offset;
        if (!xcf_take_pointer(in, position, offset)) return false;
        if (offset == 0) break;
        if (offset >= size) return false;
        layerOffsets.push_back(offset);
    }
    if (layerOffsets.empty()) return false;

    // Layers may cover only part of the canvas, so the canvas is bounded by what the file's
    // data could describe, not by the header alone.
    uint64_t pixelCount;
    if (!compute_pixel_count(info.width, info.height, pixelCount) || !canvas_fits_data(pixelCount, size)) return false;
    std::vector<uint8_t> canvas(size_t(pixelCount) * 4, 0);
    for (auto offset = layerOffsets.rbegin(); offset != layerOffsets.rend(); ++offset) {
        XcfLayerInfo layer;
        if (!xcf_parse_layer(in, *offset, layer)) return false;
        if (layer.visible && layer.opacity != 0 && !xcf_decode_layer_pixels(in, info, layer, canvas)) return false;
    }
    image.width = info.width;
    image.height = info.height;
    image.pixels.swap(canvas);
    return true;
}

bool save_xcf_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    const uint64_t across = (uint64_t(width) + kTileSide - 1) / kTileSide;
    const uint64_t down = (uint64_t(height) + kTileSide - 1) / kTileSide;
    uint64_t pixelBytes, tableBytes;
    if (!checked_mul(uint64_t(width) * height, 4, pixelBytes) || !checked_mul(across * down + 1, 4, tableBytes))
        return false;

    std::vector<uint8_t> out;
    out.insert(out.end(), {'g', 'i', 'm', 'p', ' ', 'x', 'c', 'f', ' ', 'v', '0', '0', '3', 0});
    append_u32_be(out, width);
    append_u32_be(out, height);
    append_u32_be(out, 0);  // RGB
    for (uint32_t word : {uint32_t(kPropCompression), 1u}) append_u32_be(out, word);
    out.push_back(kCompressNone);
    for (uint32_t word : {uint32_t(kPropEnd), 0u}) append_u32_be(out, word);
    const uint32_t layerOffset = uint32_t(out.size() + 16);
    for (uint32_t word : {layerOffset, 0u, 0u, 0u}) append_u32_be(out, word);  // layer list, channel list, spare

    append_u32_be(out, width);
    append_u32_be(out, height);
    append_u32_be(out, kRgba);
    xcf_append_string(out, "Layer");
    for (uint32_t word : {uint32_t(kPropOpacity), 4u, 255u, uint32_t(kPropLinked), 4u, 0u, uint32_t(kPropVisible), 4u,
                          1u, uint32_t(kPropOffsets), 8u, 0u, 0u, uint32_t(kPropEnd), 0u})
        append_u32_be(out, word);
    append_u32_be(out, uint32_t(out.size() + 8));  // the hierarchy follows
    append_u32_be(out, 0);                         // no mask

    append_u32_be(out, width);
    append_u32_be(out, height);
    append_u32_be(out, 4);
    append_u32_be(out, uint32_t(out.size() + 8));  // the level follows
    append_u32_be(out, 0);

    append_u32_be(out, width);
    append_u32_be(out, height);
    // Offsets are 32 bits, so the whole file must stay below 4 GiB.
    uint64_t total;
    if (!checked_add(out.size(), tableBytes, total) || !checked_add(total, pixelBytes, total) || total > 0xFFFFFFFFu ||
        total > SIZE_MAX)
        return false;
    out.reserve(size_t(total));
    uint64_t tileOffset = out.size() + tableBytes;
    for (uint64_t t = 0; t < across * down; ++t) {
        const uint64_t tileWidth = std::min<uint64_t>(kTileSide, width - t % across * kTileSide);
        const uint64_t tileHeight = std::min<uint64_t>(kTileSide, height - t / across * kTileSide);
        append_u32_be(out, uint32_t(tileOffset));
        tileOffset += tileWidth * tileHeight * 4;
    }
    append_u32_be(out, 0);
    for (uint64_t t = 0; t < across * down; ++t) {
        const uint32_t tileX = uint32_t(t % across) * kTileSide, tileY = uint32_t(t / across) * kTileSide;
        const uint32_t tileWidth = std::min(kTileSide, width - tileX), tileHeight = std::min(kTileSide, height - tileY);
        for (uint32_t y = 0; y < tileHeight; ++y) {
            const uint8_t* row = pixels + (size_t(tileY + y) * width + tileX) * 4;
            out.insert(out.end(), row, row + size_t(tileWidth) * 4);
        }
    }

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    return close_written_file(file, write_bytes(file, out.data(), out.size()));
}

}  // namespace ot::png
