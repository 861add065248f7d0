// The PNG writer: 8-bit RGBA, rows filtered but stored uncompressed, which keeps saving fast
// and simple at the cost of file size.
#include <cstdio>
#include <cstring>

#include "codec/bytes.h"
#include "codec/checksum.h"
#include "codec/formats.h"
#include "codec/png.h"

namespace ot::png {

namespace {

constexpr size_t kIdatPiece = 0x40000;
constexpr size_t kStoredBlock = 65535;

bool write_chunk(std::FILE* file, const char* type, const uint8_t* data, size_t size) {
    uint8_t head[8], tail[4];
    write_u32_be(head, uint32_t(size));
    std::memcpy(head + 4, type, 4);
    write_u32_be(tail, crc32_bytes(data, size, crc32_bytes(head + 4, 4)));
    return write_bytes(file, head, 8) && write_bytes(file, data, size) && write_bytes(file, tail, 4);
}

unsigned filter_cost(uint8_t b) { return b <= 127 ? b : 256u - b; }

enum Filter : uint8_t { kNone = 0, kSub = 1, kUp = 2 };

// None, Sub and Up are scored by the sum of the filtered bytes taken as signed magnitudes;
// ties go to None, then Sub. The first row has no Up.
uint8_t choose_filter_rgba8(const uint8_t* row, const uint8_t* previous, size_t rowBytes) {
    uint64_t none = 0, sub = 0, up = 0;
    for (size_t i = 0; i < rowBytes; ++i) {
        none += filter_cost(row[i]);
        sub += filter_cost(uint8_t(row[i] - (i >= 4 ? row[i - 4] : 0)));
        if (previous) up += filter_cost(uint8_t(row[i] - previous[i]));
    }
    uint8_t best = kNone;
    uint64_t bestScore = none;
    if (sub < bestScore) {
        best = kSub;
        bestScore = sub;
    }
    if (previous && up < bestScore) best = kUp;
    return best;
}

void encode_filtered_rgba8_row(uint8_t filter, const uint8_t* row, const uint8_t* previous, size_t rowBytes,
                               uint8_t* out) {
    *out++ = filter;
    for (size_t i = 0; i < rowBytes; ++i) {
        uint8_t predicted = filter == kSub ? (i >= 4 ? row[i - 4] : 0) : filter == kUp ? previous[i] : 0;
        out[i] = uint8_t(row[i] - predicted);
    }
}

bool build_filtered_rgba8_stream(const uint8_t* pixels, uint32_t width, uint32_t height, std::vector<uint8_t>& out) {
    uint64_t rowBytes, lineBytes, total;
    if (!checked_mul(width, 4, rowBytes) || !checked_add(rowBytes, 1, lineBytes) ||
        !checked_mul(lineBytes, height, total) || total > SIZE_MAX)
        return false;
    out.resize(size_t(total));
    const uint8_t* previous = nullptr;
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* row = pixels + size_t(y) * rowBytes;
        encode_filtered_rgba8_row(choose_filter_rgba8(row, previous, rowBytes), row, previous, rowBytes,
                                  out.data() + size_t(y) * lineBytes);
        previous = row;
    }
    return true;
}

bool build_stored_zlib_stream(const std::vector<uint8_t>& input, std::vector<uint8_t>& output) {
    const uint64_t blocks = input.empty() ? 1 : (input.size() + kStoredBlock - 1) / kStoredBlock;
    uint64_t overhead, total;
    if (!checked_mul(blocks, 5, overhead) || !checked_add(overhead, 6, overhead) ||
        !checked_add(overhead, input.size(), total) || total > SIZE_MAX)
        return false;
    output.clear();
    output.reserve(size_t(total));
    output.push_back(0x78);
    output.push_back(0x01);
    size_t position = 0;
    do {
        const size_t length = input.size() - position < kStoredBlock ? input.size() - position : kStoredBlock;
        const bool last = position + length == input.size();
        const uint8_t head[5] = {uint8_t(last), uint8_t(length), uint8_t(length >> 8), uint8_t(~length),
                                 uint8_t(~length >> 8)};
        output.insert(output.end(), head, head + 5);
        output.insert(output.end(), input.begin() + position, input.begin() + position + length);
        position += length;
    } while (position < input.size());
    append_u32_be(output, adler32_bytes(input.data(), input.size()));
    return true;
}

bool stream_idat_chunks(std::FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height) {
    std::vector<uint8_t> rows, zlib;
    if (!build_filtered_rgba8_stream(pixels, width, height, rows) || !build_stored_zlib_stream(rows, zlib))
        return false;
    rows = {};
    for (size_t position = 0; position < zlib.size(); position += kIdatPiece) {
        const size_t length = zlib.size() - position < kIdatPiece ? zlib.size() - position : kIdatPiece;
        if (!write_chunk(file, "IDAT", zlib.data() + position, length)) return false;
    }
    return true;
}

}  // namespace

bool save_png_rgba8_file_impl(const char* path, const uint8_t* pixels, uint32_t width, uint32_t height) {
    std::FILE* file = std::fopen(path, "wb");
    if (!file) return false;
    uint8_t header[13] = {};
    write_u32_be(header, width);
    write_u32_be(header + 4, height);
    header[8] = 8;  // bit depth
    header[9] = 6;  // RGBA
    const bool ok = write_bytes(file, kPngSignature, 8) && write_chunk(file, "IHDR", header, 13) &&
                    stream_idat_chunks(file, pixels, width, height) && write_chunk(file, "IEND", nullptr, 0);
    return close_written_file(file, ok);
}

}  // namespace ot::png
