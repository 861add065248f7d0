// The JPEG writer: baseline, 4:4:4 YCbCr at one fixed quality, with a fixed pair of Huffman
// tables of our own. Alpha is not stored.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "codec/bytes.h"
#include "codec/formats.h"
#include "codec/jpeg.h"

namespace ot::png {

namespace {

constexpr uint32_t kMaxJpegSide = 65535;

// The customary example quantisers for luma and chroma, natural order.
constexpr uint16_t kJpegLumaQuant[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,  14, 13, 16, 24, 40, 57,
    69, 56, 14, 17, 22,  29,  51,  87,  80, 62, 18, 22, 37,  56,  68,  109, 103, 77, 24, 35, 55, 64,
    81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr uint16_t kJpegChromaQuant[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Codes per length (1 to 16) of our two tables, assigned in symbol order: DC has twelve 4-bit
// codes for categories 0 to 11; AC has one 8-bit code, for symbol 0, and 9-bit codes for the rest.
constexpr uint8_t kDcCounts[16] = {0, 0, 0, 12};
constexpr uint8_t kAcCounts[16] = {0, 0, 0, 0, 0, 0, 0, 1, 255};
constexpr unsigned kDcSymbols = 12, kAcSymbols = 256;
constexpr uint8_t kEndOfBlock = 0x00, kSixteenZeros = 0xF0;

struct JpegEncodeTable {
    uint16_t code[256] = {};
    uint8_t length[256] = {};
};

JpegEncodeTable build_fixed_jpeg_table(const uint8_t* counts) {
    JpegEncodeTable table;
    uint32_t code = 0, symbol = 0;
    for (unsigned length = 1; length <= 16; ++length, code <<= 1)
        for (unsigned i = 0; i < counts[length - 1]; ++i, ++code, ++symbol) {
            table.code[symbol] = uint16_t(code);
            table.length[symbol] = uint8_t(length);
        }
    return table;
}

// Bits are packed from the most significant end; a 0xFF byte is followed by a zero byte.
struct JpegBitWriter {
    std::vector<uint8_t>& out;
    uint32_t current = 0;
    unsigned count = 0;

    void flush_byte() {
        const uint8_t byte = uint8_t(current >> (count - 8));
        out.push_back(byte);
        if (byte == 0xFF) out.push_back(0);
        count -= 8;
        current &= (uint32_t(1) << count) - 1;
    }
    void write_bits(uint32_t value, unsigned length) {
        current = current << length | (value & ((uint32_t(1) << length) - 1));
        count += length;
        while (count >= 8) flush_byte();
    }
    // The last byte is filled with 1 bits.
    void finish() {
        if (count) write_bits(0xFF, 8 - count);
    }
};

void write_marker_segment(std::vector<uint8_t>& out, uint8_t marker, const std::vector<uint8_t>& payload) {
    out.insert(out.end(), {0xFF, marker, uint8_t((payload.size() + 2) >> 8), uint8_t(payload.size() + 2)});
    out.insert(out.end(), payload.begin(), payload.end());
}

unsigned jpeg_category(int32_t value) {
    uint32_t magnitude = uint32_t(value < 0 ? -int64_t(value) : value);
    unsigned bits = 0;
    for (; magnitude; magnitude >>= 1) ++bits;
    return bits;
}

uint32_t jpeg_encoded_value(int32_t value, unsigned category) {
    return uint32_t(value < 0 ? value + (int32_t(1) << category) - 1 : value);
}

void jpeg_write_symbol(JpegBitWriter& writer, const JpegEncodeTable& table, unsigned symbol) {
    writer.write_bits(table.code[symbol], table.length[symbol]);
}

void jpeg_encode_block(JpegBitWriter& writer, const int32_t* coefficients, int32_t& prediction,
                       const JpegEncodeTable& dc, const JpegEncodeTable& ac) {
    const int32_t difference = coefficients[0] - prediction;
    prediction = coefficients[0];
    unsigned category = jpeg_category(difference);
    jpeg_write_symbol(writer, dc, category);
    writer.write_bits(jpeg_encoded_value(difference, category), category);
    unsigned run = 0;
    for (unsigned k = 1; k < 64; ++k) {
        const int32_t value = coefficients[kJpegZigZag[k]];
        if (value == 0) {
            ++run;
            continue;
        }
        for (; run >= 16; run -= 16) jpeg_write_symbol(writer, ac, kSixteenZeros);
        category = jpeg_category(value);
        jpeg_write_symbol(writer, ac, run * 16 + category);
        writer.write_bits(jpeg_encoded_value(value, category), category);
        run = 0;
    }
    if (run) jpeg_write_symbol(writer, ac, kEndOfBlock);
}

// The products of the two cosines, [y * 8 + x][v * 8 + u], so that one pass over the samples
// adds to all 64 sums at once, each still summed over the samples in order.
using ForwardBasis = double[64][64];
const ForwardBasis& jpeg_forward_basis() {
    struct Table {
        double b[64][64];
        Table() {
            const auto& cosines = jpeg_cosines();
            for (int y = 0; y < 8; ++y)
                for (int x = 0; x < 8; ++x)
                    for (int v = 0; v < 8; ++v)
                        for (int u = 0; u < 8; ++u) b[y * 8 + x][v * 8 + u] = cosines[x][u] * cosines[y][v];
        }
    };
    static const Table table;
    return table.b;
}

void jpeg_forward_dct_quant(const double* samples, const uint16_t* quant, int32_t* out) {
    const ForwardBasis& basis = jpeg_forward_basis();
    double sums[64] = {};
    for (int i = 0; i < 64; ++i)
        for (int k = 0; k < 64; ++k) sums[k] += samples[i] * basis[i][k];
    for (int k = 0; k < 64; ++k) {
        const double cu = k % 8 ? 1.0 : kJpegC0, cv = k / 8 ? 1.0 : kJpegC0;
        out[k] = int32_t(std::round(0.25 * cu * cv * sums[k] / quant[k]));
    }
}

std::vector<uint8_t> jpeg_headers(uint32_t width, uint32_t height) {
    std::vector<uint8_t> out = {0xFF, 0xD8};
    write_marker_segment(out, 0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0});
    std::vector<uint8_t> tables;
    for (uint8_t number : {0, 1}) {
        tables.push_back(number);
        for (int k = 0; k < 64; ++k)
            tables.push_back(uint8_t((number ? kJpegChromaQuant : kJpegLumaQuant)[kJpegZigZag[k]]));
    }
    write_marker_segment(out, 0xDB, tables);
    write_marker_segment(out, 0xC0, {8, uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width), 3,
                                     1, 0x11, 0, 2, 0x11, 1, 3, 0x11, 1});
    for (uint8_t tableClass : {0, 1}) {
        const uint8_t* counts = tableClass ? kAcCounts : kDcCounts;
        const unsigned symbols = tableClass ? kAcSymbols : kDcSymbols;
        std::vector<uint8_t> huffman = {uint8_t(tableClass << 4)};
        huffman.insert(huffman.end(), counts, counts + 16);
        for (unsigned s = 0; s < symbols; ++s) huffman.push_back(uint8_t(s));
        write_marker_segment(out, 0xC4, huffman);
    }
    write_marker_segment(out, 0xDA, {3, 1, 0x00, 2, 0x00, 3, 0x00, 0, 63, 0});
    return out;
}

}  // namespace

bool save_jpeg_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    if (width > kMaxJpegSide || height > kMaxJpegSide) return false;
    std::vector<uint8_t> out = jpeg_headers(width, height);
    const JpegEncodeTable dc = build_fixed_jpeg_table(kDcCounts), ac = build_fixed_jpeg_table(kAcCounts);
    JpegBitWriter writer{out};
    int32_t predictions[3] = {};
    double planes[3][64];
    int32_t coefficients[64];
    for (uint32_t by = 0; by < height; by += 8) {
        for (uint32_t bx = 0; bx < width; bx += 8) {
            for (uint32_t i = 0; i < 64; ++i) {
                // Past the edge, the last row or column is repeated.
                const uint32_t x = std::min(bx + i % 8, width - 1), y = std::min(by + i / 8, height - 1);
                const uint8_t* p = pixels + (size_t(y) * width + x) * 4;
                const double r = p[0], g = p[1], b = p[2];
                planes[0][i] = 0.299 * r + 0.587 * g + 0.114 * b - 128.0;
                planes[1][i] = -0.168736 * r - 0.331264 * g + 0.5 * b;
                planes[2][i] = 0.5 * r - 0.418688 * g - 0.081312 * b;
            }
            for (int c = 0; c < 3; ++c) {
                jpeg_forward_dct_quant(planes[c], c ? kJpegChromaQuant : kJpegLumaQuant, coefficients);
                jpeg_encode_block(writer, coefficients, predictions[c], dc, ac);
            }
        }
    }
    writer.finish();
    out.insert(out.end(), {0xFF, 0xD9});

    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    return close_written_file(file, write_bytes(file, out.data(), out.size()));
}

}  // namespace ot::png
