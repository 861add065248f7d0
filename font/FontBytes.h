// Bounds-checked reading of font files held in memory, shared by the TrueType and Type 1
// readers. Every read goes through can_read, so that a damaged file ends in a clean failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvane::font {

using Bytes = std::vector<uint8_t>;

// True when `length` bytes from `offset` lie inside the data; written so that no sum can wrap.
inline bool can_read(const Bytes& bytes, size_t offset, size_t length) {
    return offset <= bytes.size() && length <= bytes.size() - offset;
}

// Callers check can_read first.
inline uint16_t read_u16_be(const Bytes& b, size_t o) { return uint16_t(b[o] << 8 | b[o + 1]); }
inline int16_t read_s16_be(const Bytes& b, size_t o) { return int16_t(read_u16_be(b, o)); }
inline uint32_t read_u32_be(const Bytes& b, size_t o) {
    return uint32_t(b[o]) << 24 | uint32_t(b[o + 1]) << 16 | uint32_t(b[o + 2]) << 8 | uint32_t(b[o + 3]);
}
inline int32_t read_s32_be(const Bytes& b, size_t o) { return int32_t(read_u32_be(b, o)); }
inline uint32_t read_u32_le(const Bytes& b, size_t o) {
    return uint32_t(b[o]) | uint32_t(b[o + 1]) << 8 | uint32_t(b[o + 2]) << 16 | uint32_t(b[o + 3]) << 24;
}
constexpr uint32_t make_tag(char a, char b, char c, char d) {
    return uint32_t(uint8_t(a)) << 24 | uint32_t(uint8_t(b)) << 16 | uint32_t(uint8_t(c)) << 8 | uint32_t(uint8_t(d));
}

// Space, tab, CR, LF, FF or VT.
bool is_space_byte(uint8_t byte);
void skip_spaces(const Bytes& bytes, size_t& position);
// An optional sign and one or more decimal digits, accumulated in 32 bits; position ends behind it.
bool parse_ascii_int(const Bytes& bytes, size_t& position, int32_t& out);
// A decimal floating-point number (sign, digits, point, exponent) within the bytes.
bool parse_ascii_double(const Bytes& bytes, size_t& position, double& out);
constexpr size_t kNotFound = size_t(-1);
// The first index at or behind `from` where `needle` occurs; kNotFound otherwise, also for an
// empty needle or a `from` at or past the end.
size_t find_bytes(const Bytes& bytes, const std::string& needle, size_t from);
// A whole file, binary. False for a null path or a failed open, seek, tell or read.
bool read_file_bytes(const char* path, Bytes& out);

}  // namespace orvane::font
