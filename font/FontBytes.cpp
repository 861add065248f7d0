#include "font/FontBytes.h"

#include <algorithm>
#include <cstdio>
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
    // Only the characters a decimal number can hold are copied, so strtod stays inside the bytes.
    constexpr size_t kLongestNumber = 64;
    std::string text;
    for (size_t p = position; p < bytes.size() && text.size() < kLongestNumber; ++p) {
        const char c = char(bytes[p]);
        if (!((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E')) break;
        text += c;
    }
    if (text.empty()) return false;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str()) return false;
    out = value;
    position += size_t(end - text.c_str());
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
