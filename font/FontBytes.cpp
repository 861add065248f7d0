#include "font/FontBytes.h"

#include <algorithm>
#include <cstdio>
#include <charconv>
#include <cstdlib>

namespace orvane::font {

bool is_space_byte(uint8_t byte) {
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n' || byte == '\f' || byte == '\v';
}

void skip_spaces(const Bytes& bytes, size_t& position) {
    while (position < bytes.size() && is_space_byte(bytes[position])) ++position;
}

bool parse_ascii_int(const Bytes& bytes, size_t& position, int32_t& out) {
    skip_spaces(bytes, position);
    size_t p = position;
    bool negative = false;
    if (p < bytes.size() && (bytes[p] == '-' || bytes[p] == '+')) negative = bytes[p++] == '-';
    if (p >= bytes.size() || bytes[p] < '0' || bytes[p] > '9') return false;
    uint32_t value = 0;  // wraps like the 32-bit accumulator it stands for
    while (p < bytes.size() && bytes[p] >= '0' && bytes[p] <= '9') value = value * 10 + uint32_t(bytes[p++] - '0');
    out = int32_t(negative ? 0u - value : value);
    position = p;
    return true;
}

bool parse_ascii_double(const Bytes& bytes, size_t& position, double& out) {
    skip_spaces(bytes, position);
    // from_chars reads the number whatever the process's locale says a decimal point is; it
    // takes no plus sign, so one is stepped over here.
    const char* const begin = reinterpret_cast<const char*>(bytes.data()) + position;
    const char* const end = reinterpret_cast<const char*>(bytes.data()) + bytes.size();
    const char* first = begin < end && *begin == '+' ? begin + 1 : begin;
    if (first < end && *first == '-' && begin != first) return false;  // "+-" is no number
    double value = 0;
    const auto [stop, error] = std::from_chars(first, end, value);
    if (error != std::errc()) return false;
    out = value;
    position += size_t(stop - begin);
    return true;
}

size_t find_bytes(const Bytes& bytes, const std::string& needle, size_t from) {
    if (needle.empty() || from >= bytes.size()) return kNotFound;
    const auto at = std::search(bytes.begin() + ptrdiff_t(from), bytes.end(), needle.begin(), needle.end());
    return at == bytes.end() ? kNotFound : size_t(at - bytes.begin());
}

bool read_file_bytes(const char* path, Bytes& out) {
    if (!path) return false;
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    bool ok = std::fseek(file, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(file) : -1;
    ok = ok && size >= 0 && std::fseek(file, 0, SEEK_SET) == 0;
    if (ok) {
        out.resize(size_t(size));
        ok = std::fread(out.data(), 1, out.size(), file) == out.size();
    }
    std::fclose(file);
    return ok;
}

}  // namespace orvane::font
