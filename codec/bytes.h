// Byte order helpers and overflow-checked size arithmetic shared by all readers and writers.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace ot::png {

inline bool checked_add(uint64_t a, uint64_t b, uint64_t& out) {
    return !__builtin_add_overflow(a, b, &out);
}

inline bool checked_mul(uint64_t a, uint64_t b, uint64_t& out) {
    return !__builtin_mul_overflow(a, b, &out);
}

// Pixel count and its RGBA byte size, both checked, and the byte size must fit in memory.
inline bool compute_pixel_count(uint64_t width, uint64_t height, uint64_t& count) {
    uint64_t bytes = 0;
    return checked_mul(width, height, count) && checked_mul(count, 4, bytes) && bytes <= SIZE_MAX;
}

inline uint32_t read_u32_be(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}
inline uint16_t read_u16_be(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }
inline int32_t read_s32_be(const uint8_t* p) { return int32_t(read_u32_be(p)); }
inline uint64_t read_u64_be(const uint8_t* p) { return uint64_t(read_u32_be(p)) << 32 | read_u32_be(p + 4); }
inline float read_f32_be(const uint8_t* p) { return std::bit_cast<float>(read_u32_be(p)); }
inline uint16_t read_u16_le(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
inline uint32_t read_u32_le(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
inline int32_t read_s32_le(const uint8_t* p) { return int32_t(read_u32_le(p)); }

inline void write_u32_be(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}
inline void write_u16_le(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}
inline void write_u32_le(uint8_t* p, uint32_t v) {
    write_u16_le(p, uint16_t(v));
    write_u16_le(p + 2, uint16_t(v >> 16));
}
inline void append_u32_be(std::vector<uint8_t>& out, uint32_t v) {
    uint8_t b[4];
    write_u32_be(b, v);
    out.insert(out.end(), b, b + 4);
}

// Rounded to the nearest integer, halves away from zero, and clamped to 0..255. Clamping first
// gives the same result, as the bounds are integers, and leaves only halves upwards to round:
// with v = n + f, floor(2v) - floor(v) is n + 1 exactly when f >= 0.5 (2v is exact). No
// branches, so loops of it vectorise.
inline uint8_t clamp_to_u8(double v) {
    v = v < 0.0 ? 0.0 : v;
    v = v > 255.0 ? 255.0 : v;
    return uint8_t(int(v + v) - int(v));
}

inline bool write_bytes(std::FILE* file, const void* data, size_t size) {
    return size == 0 || std::fwrite(data, 1, size, file) == size;
}

// Closes a file that a writer opened; a failed close fails the write.
inline bool close_written_file(std::FILE* file, bool ok) { return std::fclose(file) == 0 && ok; }

// RGBA rows from the top, written as BGRA: the pixel order of the BMP and TGA writers.
inline bool write_bgra_rows(std::FILE* file, const uint8_t* pixels, uint32_t width, uint32_t height) {
    std::vector<uint8_t> row(size_t(width) * 4);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* in = pixels + size_t(y) * width * 4;
        for (size_t x = 0; x < width; ++x) {
            row[x * 4] = in[x * 4 + 2];
            row[x * 4 + 1] = in[x * 4 + 1];
            row[x * 4 + 2] = in[x * 4];
            row[x * 4 + 3] = in[x * 4 + 3];
        }
        if (!write_bytes(file, row.data(), row.size())) return false;
    }
    return true;
}

// A canvas that the file's compressed pixel data may cover only in part (an APNG whose frames
// replace the default image) is refused when it is far larger than the data could describe: a
// few dozen bytes must not make us allocate gigabytes. The bound: 64 MiB of RGBA, or 4128 bytes
// per byte of data (deflate's greatest expansion, about 1032 to 1, times 4 from a grey sample).
inline bool canvas_fits_data(uint64_t pixelCount, uint64_t dataBytes) {
    constexpr uint64_t kFloor = uint64_t(64) << 20;
    uint64_t canvasBytes, bound;
    if (!checked_mul(pixelCount, 4, canvasBytes)) return false;
    if (!checked_mul(dataBytes, 4128, bound)) return true;
    return canvasBytes <= (bound > kFloor ? bound : kFloor);
}

// The same for data stored raw (REI layers), where nothing expands: the canvas may be no larger
// than the file, beyond a floor of 16 MiB of RGBA (2048 by 2048) for canvases around small layers.
inline bool raw_canvas_fits_data(uint64_t pixelCount, uint64_t dataBytes) {
    constexpr uint64_t kFloor = uint64_t(16) << 20;
    uint64_t canvasBytes;
    if (!checked_mul(pixelCount, 4, canvasBytes)) return false;
    return canvasBytes <= (dataBytes > kFloor ? dataBytes : kFloor);
}

}  // namespace ot::png
