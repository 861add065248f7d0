#include <cstring>

#include "codec/bytes.h"
#include "codec/checksum.h"
#include "codec/png.h"
#include "codec/png_filters.h"
#include "codec/simd.h"

namespace ot::png {

const uint8_t kPngSignature[8] = {137, 80, 78, 71, 13, 10, 26, 10};

namespace {

bool chunk_is(const uint8_t* type, const char* name) { return std::memcmp(type, name, 4) == 0; }

unsigned channels_for_colour_type(uint32_t colourType) {
    switch (colourType) {
        case 0: return 1;
        case 2: return 3;
        case 3: return 1;
        case 4: return 2;
        case 6: return 4;
        default: return 0;
    }
}

// Depths below 8 are refused on purpose: the engine's images never need them.
bool is_supported_bit_depth(uint32_t colourType, uint32_t bitDepth) {
    switch (colourType) {
        case 0:
        case 2:
        case 4:
        case 6: return bitDepth == 8 || bitDepth == 16;
        case 3: return bitDepth == 8;
        default: return false;
    }
}

unsigned bits_per_pixel(const Header& header) { return channels_for_colour_type(header.colourType) * header.bitDepth; }

bool compute_row_bytes(uint32_t width, unsigned bitsPerPixel, uint64_t& rowBytes) {
    uint64_t bits;
    if (!checked_mul(width, bitsPerPixel, bits)) return false;
    rowBytes = (bits + 7) / 8;
    return true;
}

bool parse_header(const uint8_t* body, uint32_t length, Header& header) {
    if (length != 13) return false;
    header.width = read_u32_be(body);
    header.height = read_u32_be(body + 4);
    header.bitDepth = body[8];
    header.colourType = body[9];
    header.compression = body[10];
    header.filter = body[11];
    header.interlace = body[12];
    return header.width != 0 && header.height != 0 && is_supported_bit_depth(header.colourType, header.bitDepth) &&
           header.compression == 0 && header.filter == 0 && header.interlace <= 1;
}

bool parse_frame_control(const uint8_t* body, uint32_t length, const Header& header,
                         ParsedPng::FrameControl& control) {
    if (length != 26) return false;
    control.width = read_u32_be(body + 4);
    control.height = read_u32_be(body + 8);
    control.xOffset = read_u32_be(body + 12);
    control.yOffset = read_u32_be(body + 16);
    control.dispose = body[24];
    control.blend = body[25];
    return control.width != 0 && control.height != 0 && control.xOffset <= header.width &&
           control.yOffset <= header.height && control.width <= header.width - control.xOffset &&
           control.height <= header.height - control.yOffset && control.dispose <= 2 && control.blend <= 1;
}

uint8_t sample_to_u8(uint32_t value, unsigned bitDepth) {
    return bitDepth == 16 ? uint8_t((value * 255 + 32767) / 65535) : uint8_t(value);
}

uint32_t read_sample_exact(const uint8_t* row, size_t index, unsigned bitDepth) {
    return bitDepth == 16 ? uint32_t(row[index * 2] << 8 | row[index * 2 + 1]) : row[index];
}

uint16_t read_trns_sample(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }

// 16-bit samples to 8 bits, (v * 255 + 32767) / 65535: with v = 256 h + l that is h, one more
// when l - h is above 128 and one less when it is below -128. `count` samples.
void narrow_samples(const uint8_t* row, size_t count, uint8_t* out) {
    using namespace simd;
    const V lowByte = splat16(0xFF), above = splat16(128), below = splat16(uint16_t(-128));
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        // Big-endian samples read as little-endian lanes: the high byte is the lane's low byte.
        const V samples = load(row + i * 2);
        const V high = and_(samples, lowByte), low = shr16<8>(samples);
        const V difference = sub16(low, high);
        const V rounded = add16(sub16(high, greater16(difference, above)), greater16(below, difference));
        store8(out + i, narrow16(rounded, rounded));
    }
    for (; i < count; ++i) out[i] = sample_to_u8(read_sample_exact(row, i, 16), 16);
}

// Converts `count` pixels of an unfiltered row of 8-bit samples to RGBA, `stride` bytes apart in
// the output, where no transparency key applies.
bool convert_row8_to_rgba8(uint32_t colourType, const DecodeTables& tables, const uint8_t* row, size_t count,
                           uint8_t* out, size_t stride) {
    switch (colourType) {
        case 0:
            for (size_t i = 0; i < count; ++i, out += stride) {
                out[0] = out[1] = out[2] = row[i];
                out[3] = 255;
            }
            return true;
        case 2:
            for (size_t i = 0; i < count; ++i, out += stride) {
                std::memcpy(out, row + i * 3, 3);
                out[3] = 255;
            }
            return true;
        case 3: {
            const size_t entries = tables.paletteRgba.size() / 4;
            for (size_t i = 0; i < count; ++i, out += stride) {
                if (row[i] >= entries) return false;
                std::memcpy(out, tables.paletteRgba.data() + row[i] * 4, 4);
            }
            return true;
        }
        case 4:
            for (size_t i = 0; i < count; ++i, out += stride) {
                out[0] = out[1] = out[2] = row[i * 2];
                out[3] = row[i * 2 + 1];
            }
            return true;
        case 6:
            if (stride == 4) {
                std::memcpy(out, row, count * 4);
                return true;
            }
            for (size_t i = 0; i < count; ++i, out += stride) std::memcpy(out, row + i * 4, 4);
            return true;
        default: return false;
    }
}

// Converts `count` pixels of an unfiltered row to RGBA, `stride` bytes apart in the output.
// Without a transparency key, 16-bit samples are narrowed first into `scratch` (a row's worth)
// and go the 8-bit way; with one, the key is compared with the whole sample.
bool convert_row_to_rgba8(const Header& header, const DecodeTables& tables, const uint8_t* row, size_t count,
                          uint8_t* out, size_t stride, uint8_t* scratch) {
    const unsigned depth = header.bitDepth;
    const bool keyed = (header.colourType == 0 && tables.hasGreyKey) || (header.colourType == 2 && tables.hasColourKey);
    if (!keyed) {
        if (depth == 8) return convert_row8_to_rgba8(header.colourType, tables, row, count, out, stride);
        narrow_samples(row, count * channels_for_colour_type(header.colourType), scratch);
        return convert_row8_to_rgba8(header.colourType, tables, scratch, count, out, stride);
    }
    if (header.colourType == 0) {
        for (size_t i = 0; i < count; ++i, out += stride) {
            uint32_t v = read_sample_exact(row, i, depth);
            out[0] = out[1] = out[2] = sample_to_u8(v, depth);
            out[3] = v == tables.transparentGrey ? 0 : 255;
        }
        return true;
    }
    for (size_t i = 0; i < count; ++i, out += stride) {
        uint32_t r = read_sample_exact(row, i * 3, depth), g = read_sample_exact(row, i * 3 + 1, depth),
                 b = read_sample_exact(row, i * 3 + 2, depth);
        out[0] = sample_to_u8(r, depth);
        out[1] = sample_to_u8(g, depth);
        out[2] = sample_to_u8(b, depth);
        out[3] = r == tables.transparentRed && g == tables.transparentGreen && b == tables.transparentBlue ? 0 : 255;
    }
    return true;
}

// Adam7: start column, start row, column step, row step of each pass.
const uint8_t kAdam7[7][4] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                              {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};

void adam7_pass_extent(const Header& header, int pass, uint32_t& columns, uint32_t& rows) {
    const uint32_t sx = kAdam7[pass][0], sy = kAdam7[pass][1], dx = kAdam7[pass][2], dy = kAdam7[pass][3];
    columns = header.width > sx ? (header.width - sx + dx - 1) / dx : 0;
    rows = header.height > sy ? (header.height - sy + dy - 1) / dy : 0;
}

bool allocate_image(const Header& header, std::vector<uint8_t>& rgba) {
    uint64_t count;
    if (!compute_pixel_count(header.width, header.height, count)) return false;
    rgba.assign(size_t(count) * 4, 0);
    return true;
}

// The stream is inflated into the end of a buffer the size of the image, or into all of it when
// the stream is the longer: then every row lies at or past the place of its pixels, and the rows
// become the image in place, top to bottom, each read before its pixels are written. The buffer
// is allocated only as the stream proves to be as long as the rows need, so a header that claims
// a huge image over a tiny stream costs nothing.
bool decode_non_interlaced(const Header& header, const std::vector<ByteSpan>& spans, const DecodeTables& tables,
                           std::vector<uint8_t>& rgba) {
    const unsigned bits = bits_per_pixel(header);
    const size_t bytesPerPixel = bits / 8 ? bits / 8 : 1;
    uint64_t rowBytes, streamBytes, pixelCount;
    if (!compute_row_bytes(header.width, bits, rowBytes) || !checked_mul(rowBytes + 1, header.height, streamBytes) ||
        streamBytes > SIZE_MAX || !compute_pixel_count(header.width, header.height, pixelCount))
        return false;
    const size_t imageBytes = size_t(pixelCount) * 4;
    const size_t front = imageBytes > streamBytes ? imageBytes - size_t(streamBytes) : 0;
    Inflater inflater;
    if (!inflater.start(spans, size_t(streamBytes), front) || inflater.output_size() != streamBytes) return false;
    rgba = inflater.take_output();

    uint8_t* image = rgba.data();
    const uint8_t* stream = image + front;
    const size_t outRow = size_t(header.width) * 4, lineBytes = size_t(rowBytes) + 1;
    if (header.colourType == 6 && header.bitDepth == 8) {
        // Rows undone straight into their place, the row above, already final, as the previous one.
        for (uint32_t y = 0; y < header.height; ++y) {
            const uint8_t* line = stream + y * lineBytes;
            uint8_t* out = image + y * outRow;
            if (!unfilter_row(line[0], out, line + 1, y ? out - outRow : nullptr, rowBytes, 4)) return false;
        }
    } else {
        std::vector<uint8_t> current(rowBytes), above(rowBytes), scratch(rowBytes);
        for (uint32_t y = 0; y < header.height; ++y) {
            const uint8_t* line = stream + y * lineBytes;
            if (!unfilter_row(line[0], current.data(), line + 1, y ? above.data() : nullptr, rowBytes,
                              bytesPerPixel) ||
                !convert_row_to_rgba8(header, tables, current.data(), header.width, image + y * outRow, 4,
                                      scratch.data()))
                return false;
            current.swap(above);
        }
    }
    rgba.resize(imageBytes);
    return true;
}

bool decode_interlaced(const Header& header, const std::vector<ByteSpan>& spans, const DecodeTables& tables,
                       std::vector<uint8_t>& rgba) {
    const unsigned bits = bits_per_pixel(header);
    const size_t bytesPerPixel = bits / 8 ? bits / 8 : 1;
    uint64_t streamBytes = 0, pixelCount;
    if (!compute_pixel_count(header.width, header.height, pixelCount)) return false;
    for (int pass = 0; pass < 7; ++pass) {
        uint32_t columns, rows;
        adam7_pass_extent(header, pass, columns, rows);
        uint64_t rowBytes, passBytes;
        if (columns == 0 || rows == 0) continue;
        if (!compute_row_bytes(columns, bits, rowBytes) || !checked_mul(rowBytes + 1, rows, passBytes) ||
            !checked_add(streamBytes, passBytes, streamBytes))
            return false;
    }
    if (streamBytes > SIZE_MAX) return false;
    Inflater inflater;
    if (!inflater.start(spans, size_t(streamBytes)) || inflater.output_size() != streamBytes) return false;
    if (!allocate_image(header, rgba)) return false;

    std::vector<uint8_t> current, above, scratch;
    for (int pass = 0; pass < 7; ++pass) {
        uint32_t columns, rows;
        adam7_pass_extent(header, pass, columns, rows);
        if (columns == 0 || rows == 0) continue;
        uint64_t rowBytes;
        compute_row_bytes(columns, bits, rowBytes);
        current.resize(rowBytes);
        above.resize(rowBytes);
        scratch.resize(rowBytes);
        const size_t stride = size_t(kAdam7[pass][2]) * 4;
        for (uint32_t r = 0; r < rows; ++r) {
            const uint8_t* line = inflater.read_exact(rowBytes + 1);
            if (!line || !unfilter_row(line[0], current.data(), line + 1, r ? above.data() : nullptr, rowBytes,
                                       bytesPerPixel))
                return false;
            const size_t y = kAdam7[pass][1] + size_t(r) * kAdam7[pass][3];
            uint8_t* out = rgba.data() + (y * header.width + kAdam7[pass][0]) * 4;
            if (!convert_row_to_rgba8(header, tables, current.data(), columns, out, stride, scratch.data()))
                return false;
            current.swap(above);
        }
    }
    return inflater.finish();
}

}  // namespace

bool parse_png(const uint8_t* data, size_t size, ParsedPng& parsed) {
    parsed = ParsedPng{};
    if (!data || size < 8 || std::memcmp(data, kPngSignature, 8) != 0) return false;
    bool sawIdat = false;
    size_t position = 8;
    while (size - position >= 12) {
        const uint32_t length = read_u32_be(data + position);
        if (length > size - position - 12) return false;
        const uint8_t* type = data + position + 4;
        const uint8_t* body = type + 4;
        if (crc32_bytes(type, size_t(length) + 4) != read_u32_be(body + length)) return false;
        position += size_t(length) + 12;

        if (!parsed.sawHeader) {
            if (!chunk_is(type, "IHDR") || !parse_header(body, length, parsed.header)) return false;
            parsed.sawHeader = true;
        } else if (chunk_is(type, "acTL")) {
            if (length != 8 || sawIdat || parsed.sawAnimationControl) return false;
            parsed.sawAnimationControl = true;
            parsed.frameCount = read_u32_be(body);
        } else if (chunk_is(type, "fcTL")) {
            ParsedPng::Frame frame;
            if (!parsed.sawAnimationControl || !parse_frame_control(body, length, parsed.header, frame.control))
                return false;
            frame.usesIdat = !sawIdat && parsed.frames.empty();
            parsed.frames.push_back(std::move(frame));
        } else if (chunk_is(type, "PLTE")) {
            if (length == 0 || length % 3 != 0 || length > 768) return false;
            parsed.palette.assign(body, body + length);
        } else if (chunk_is(type, "tRNS")) {
            const uint32_t colourType = parsed.header.colourType;
            if ((colourType == 0 && length != 2) || (colourType == 2 && length != 6) ||
                (colourType == 3 && length > parsed.palette.size() / 3) || colourType == 4 || colourType == 6)
                return false;
            parsed.transparency.assign(body, body + length);
        } else if (chunk_is(type, "IDAT")) {
            if (length == 0) continue;  // an empty IDAT changes nothing
            sawIdat = true;
            parsed.idatSpans.push_back({body, length});
            parsed.idatBytes += length;
            if (!parsed.frames.empty() && parsed.frames.back().usesIdat)
                parsed.frames.back().spans.push_back({body, length});
        } else if (chunk_is(type, "fdAT")) {
            if (!parsed.sawAnimationControl || parsed.frames.empty() || length <= 4) return false;
            parsed.frames.back().spans.push_back({body + 4, length - 4});
        } else if (chunk_is(type, "IEND")) {
            if (length != 0) return false;
            parsed.sawEnd = true;
            break;
        } else if (!(type[0] & 0x20)) {
            return false;  // an unknown critical chunk, or a second IHDR
        }
    }
    if (!parsed.sawHeader || !parsed.sawEnd || parsed.idatBytes == 0) return false;
    if (parsed.header.colourType == 3 && parsed.palette.empty()) return false;
    if (parsed.sawAnimationControl) {
        if (parsed.frameCount == 0 || parsed.frames.empty() || parsed.frames.size() > parsed.frameCount) return false;
        for (const auto& frame : parsed.frames)
            if (frame.spans.empty()) return false;
    }
    return true;
}

bool build_decode_tables(const Header& header, const std::vector<uint8_t>& palette,
                         const std::vector<uint8_t>& transparency, DecodeTables& tables) {
    tables = DecodeTables{};
    if (header.colourType == 3) {
        if (palette.empty() || palette.size() % 3 != 0) return false;
        const size_t entries = palette.size() / 3;
        tables.paletteRgba.resize(entries * 4);
        for (size_t i = 0; i < entries; ++i) {
            std::memcpy(&tables.paletteRgba[i * 4], &palette[i * 3], 3);
            tables.paletteRgba[i * 4 + 3] = i < transparency.size() ? transparency[i] : 255;
        }
        return true;
    }
    if (transparency.empty()) return true;
    if (header.colourType == 0 && transparency.size() == 2) {
        tables.transparentGrey = read_trns_sample(transparency.data());
        tables.hasGreyKey = true;
        return true;
    }
    if (header.colourType == 2 && transparency.size() == 6) {
        tables.transparentRed = read_trns_sample(transparency.data());
        tables.transparentGreen = read_trns_sample(transparency.data() + 2);
        tables.transparentBlue = read_trns_sample(transparency.data() + 4);
        tables.hasColourKey = true;
        return true;
    }
    return false;
}

bool decode_png_frame(const Header& header, const std::vector<ByteSpan>& spans, const DecodeTables& tables,
                      std::vector<uint8_t>& rgba) {
    return header.interlace != 0 ? decode_interlaced(header, spans, tables, rgba)
                                 : decode_non_interlaced(header, spans, tables, rgba);
}

void alpha_over_pixel(uint8_t* destination, const uint8_t* source) {
    const uint32_t sa = source[3], da = destination[3];
    if (sa == 0) {
        if (da == 0) std::memcpy(destination, source, 4);
        return;
    }
    if (sa == 255 || da == 0) {
        std::memcpy(destination, source, 4);
        return;
    }
    const uint32_t outA = sa + (da * (255 - sa) + 127) / 255;
    for (int c = 0; c < 3; ++c)
        destination[c] =
            uint8_t((sa * source[c] + (destination[c] * da * (255 - sa) + 127) / 255 + outA / 2) / outA);
    destination[3] = uint8_t(outA);
}

// An animation becomes one still image: every frame laid over the ones before, disposal and
// delays ignored.
bool decode_apng_squashed(const ParsedPng& parsed, const DecodeTables& tables, std::vector<uint8_t>& rgba) {
    const Header& header = parsed.header;
    bool anyUsesIdat = false;
    for (const auto& frame : parsed.frames) anyUsesIdat |= frame.usesIdat;
    std::vector<uint8_t> canvas;
    if (anyUsesIdat) {
        uint64_t compressed = 0, pixelCount;
        for (const auto& frame : parsed.frames)
            for (const auto& span : frame.spans) compressed += span.size;
        if (!compute_pixel_count(header.width, header.height, pixelCount) ||
            !canvas_fits_data(pixelCount, compressed))
            return false;
        if (!allocate_image(header, canvas)) return false;
    } else if (!decode_png_frame(header, parsed.idatSpans, tables, canvas)) {
        return false;
    }
    std::vector<uint8_t> pixels;
    for (const auto& frame : parsed.frames) {
        const auto& control = frame.control;
        Header frameHeader = header;
        frameHeader.width = control.width;
        frameHeader.height = control.height;
        if (!decode_png_frame(frameHeader, frame.spans, tables, pixels)) return false;
        for (uint32_t y = 0; y < control.height; ++y) {
            uint8_t* to = canvas.data() + ((size_t(control.yOffset) + y) * header.width + control.xOffset) * 4;
            const uint8_t* from = pixels.data() + size_t(y) * control.width * 4;
            if (control.blend == 0) {
                std::memcpy(to, from, size_t(control.width) * 4);
            } else {
                for (uint32_t x = 0; x < control.width; ++x) alpha_over_pixel(to + x * 4, from + x * 4);
            }
        }
    }
    rgba.swap(canvas);
    return true;
}

}  // namespace ot::png
