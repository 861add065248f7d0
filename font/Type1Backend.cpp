#include "font/Type1Backend.h"

#include <algorithm>

namespace orvane::font {

namespace {

constexpr uint16_t kEexecKey = 55665, kCharstringKey = 4330;
constexpr size_t kEexecPrefix = 4;
constexpr uint8_t kSegmentMarker = 0x80;
constexpr uint8_t kClearSegment = 1, kEncryptedSegment = 2, kEndSegment = 3;
constexpr size_t kSegmentHeader = 6;  // marker, type, 32-bit little-endian length

// Both ciphers: the same recurrence with a different starting key; `prefix` plain bytes are
// random padding and are dropped.
Bytes decrypt(const Bytes& bytes, uint16_t key, size_t prefix) {
    Bytes plain;
    if (bytes.size() <= prefix) return plain;
    plain.reserve(bytes.size() - prefix);
    uint16_t r = key;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const uint8_t c = bytes[i];
        if (i >= prefix) plain.push_back(uint8_t(c ^ (r >> 8)));
        r = uint16_t((c + r) * 52845u + 22719u);
    }
    return plain;
}

bool is_hex_digit(uint8_t b) { return (b >= '0' && b <= '9') || (b >= 'a' && b <= 'f') || (b >= 'A' && b <= 'F'); }

uint8_t hex_value(uint8_t b) {
    if (b <= '9') return uint8_t(b - '0');
    return uint8_t((b | 0x20) - 'a' + 10);
}

bool is_line_end(uint8_t b) { return b == '\r' || b == '\n'; }

// "RD" at `position`, then one byte of separation: only a 0x20 space for subroutines, any space
// byte for charstrings.
bool skip_rd(const Bytes& bytes, size_t& position, bool anySpace) {
    skip_spaces(bytes, position);
    if (!can_read(bytes, position, 2) || bytes[position] != 'R' || bytes[position + 1] != 'D') return false;
    position += 2;
    if (position < bytes.size() && (anySpace ? is_space_byte(bytes[position]) : bytes[position] == ' ')) ++position;
    return true;
}

bool extract_pfb(const Bytes& bytes, Bytes& clear, Bytes& encrypted) {
    bool sawEncrypted = false;
    size_t position = 0;
    while (can_read(bytes, position, kSegmentHeader) && bytes[position] == kSegmentMarker) {
        const uint8_t type = bytes[position + 1];
        // The end marker carries no length of its own, so it is looked at before the length.
        if (type == kEndSegment) break;
        const uint32_t length = read_u32_le(bytes, position + 2);
        const size_t payload = position + kSegmentHeader;
        if (!can_read(bytes, payload, length)) return false;
        const auto first = bytes.begin() + ptrdiff_t(payload), last = first + ptrdiff_t(length);
        if (type == kClearSegment) clear.insert(clear.end(), first, last);
        if (type == kEncryptedSegment) {
            encrypted.insert(encrypted.end(), first, last);
            sawEncrypted = true;
        }
        position = payload + length;
    }
    return !clear.empty() && sawEncrypted && !encrypted.empty();
}

bool extract_pfa(const Bytes& bytes, Bytes& clear, Bytes& encrypted) {
    size_t position = find_bytes(bytes, "currentfile eexec", 0);
    if (position == kNotFound) return false;
    while (position < bytes.size() && !is_line_end(bytes[position])) ++position;
    while (position < bytes.size() && is_line_end(bytes[position])) ++position;
    clear.assign(bytes.begin(), bytes.begin() + ptrdiff_t(position));
    const size_t limit = std::min(find_bytes(bytes, "cleartomark", position), bytes.size());
    // Everything that is not a hex digit, line breaks included, is passed over; a lone last
    // digit has no partner and is dropped.
    bool haveHigh = false;
    uint8_t high = 0;
    for (; position < limit; ++position) {
        if (!is_hex_digit(bytes[position])) continue;
        const uint8_t digit = hex_value(bytes[position]);
        if (haveHigh) encrypted.push_back(uint8_t(high << 4 | digit));
        else high = digit;
        haveHigh = !haveHigh;
    }
    return !clear.empty() && !encrypted.empty();
}

}  // namespace

bool Type1Backend::extract_sections(const Bytes& bytes, Bytes& clear, Bytes& encrypted) {
    if (bytes.size() > 1 && bytes[0] == kSegmentMarker) return extract_pfb(bytes, clear, encrypted);
    return extract_pfa(bytes, clear, encrypted);
}

Bytes Type1Backend::decrypt_eexec(const Bytes& bytes) {
    // Fewer than 5 bytes hold nothing behind the 4 bytes of padding.
    if (bytes.size() <= kEexecPrefix) return {};
    return decrypt(bytes, kEexecKey, kEexecPrefix);
}

Bytes Type1Backend::decrypt_charstring(const Bytes& bytes, int32_t lenIV) {
    return decrypt(bytes, kCharstringKey, size_t(std::max(lenIV, 0)));
}

bool Type1Backend::load(Bytes bytes) {
    Bytes clear, encrypted;
    if (!extract_sections(bytes, clear, encrypted) || !parse_clear_text(clear)) return false;
    const Bytes decrypted = decrypt_eexec(encrypted);
    if (decrypted.empty() || !parse_private_section(decrypted)) return false;
    return !charstrings_.empty();
}

bool Type1Backend::parse_clear_text(const Bytes& clear) {
    size_t position = find_bytes(clear, "/FontBBox", 0);
    if (position != kNotFound) {
        position += 9;
        while (position < clear.size() && clear[position] != '{' && clear[position] != '[') ++position;
        double left = 0, bottom = 0, right = 0, top = 0;
        if (position < clear.size() && parse_ascii_double(clear, ++position, left) &&
            parse_ascii_double(clear, position, bottom) && parse_ascii_double(clear, position, right) &&
            parse_ascii_double(clear, position, top)) {
            ascent_ = std::max(0.0, top);
            descent_ = std::max(0.0, -bottom);
        }
    }
    // Only explicit "dup <code> /<name>" entries are read; a named standard encoding leaves the
    // table empty.
    position = 0;
    for (;;) {
        const size_t found = find_bytes(clear, "dup", position);
        if (found == kNotFound) break;
        position = found + 3;
        size_t p = position;
        int32_t code = 0;
        if (!parse_ascii_int(clear, p, code) || code < 0 || code > 255) continue;
        skip_spaces(clear, p);
        if (p >= clear.size() || clear[p] != '/') continue;
        const size_t nameStart = ++p;
        while (p < clear.size() && !is_space_byte(clear[p])) ++p;
        if (p == nameStart) continue;
        encoding_[size_t(code)].assign(clear.begin() + ptrdiff_t(nameStart), clear.begin() + ptrdiff_t(p));
        position = p;
    }
    return true;
}

bool Type1Backend::parse_private_section(const Bytes& decrypted) {
    size_t position = find_bytes(decrypted, "/lenIV", 0);
    if (position != kNotFound) {
        position += 6;
        int32_t value = 0;
        if (parse_ascii_int(decrypted, position, value)) lenIV_ = value;
    }
    const size_t subrsAt = find_bytes(decrypted, "/Subrs", 0);
    const size_t charStringsAt = find_bytes(decrypted, "/CharStrings", 0);
    if (subrsAt == kNotFound || charStringsAt == kNotFound || charStringsAt < subrsAt) return false;

    position = subrsAt;
    for (;;) {
        const size_t found = find_bytes(decrypted, "dup", position);
        if (found == kNotFound || found >= charStringsAt) break;
        position = found + 3;
        size_t p = position;
        int32_t index = 0, length = 0;
        if (!parse_ascii_int(decrypted, p, index) || !parse_ascii_int(decrypted, p, length) || length < 0) continue;
        if (!skip_rd(decrypted, p, false)) continue;
        if (!can_read(decrypted, p, size_t(length))) return false;
        // Every entry takes bytes of its own, so an index at or beyond the section's size is no
        // real entry: it is passed over rather than grown into a table that size.
        const bool plausible = index >= 0 && size_t(index) < decrypted.size();
        if (plausible) {
            if (size_t(index) >= subrs_.size()) subrs_.resize(size_t(index) + 1);
            const auto first = decrypted.begin() + ptrdiff_t(p);
            subrs_[size_t(index)] = decrypt_charstring(Bytes(first, first + length), lenIV_);
        }
        position = p + size_t(length);
    }

    position = charStringsAt;
    while (position < decrypted.size()) {
        if (decrypted[position] != '/') {
            ++position;
            continue;
        }
        const size_t nameStart = position + 1;
        size_t p = nameStart;
        while (p < decrypted.size() && !is_space_byte(decrypted[p]) && decrypted[p] != '/') ++p;
        if (p == nameStart) {
            ++position;
            continue;
        }
        std::string name(decrypted.begin() + ptrdiff_t(nameStart), decrypted.begin() + ptrdiff_t(p));
        position = p;
        int32_t length = 0;
        if (!parse_ascii_int(decrypted, position, length) || length < 0) continue;
        if (!skip_rd(decrypted, position, true)) continue;
        if (!can_read(decrypted, position, size_t(length))) return false;
        const auto first = decrypted.begin() + ptrdiff_t(position);
        charstrings_[std::move(name)] = decrypt_charstring(Bytes(first, first + length), lenIV_);
        position += size_t(length);
    }
    return true;
}

std::string Type1Backend::glyph_name_for_codepoint(uint32_t codepoint) const {
    if (codepoint < encoding_.size() && !encoding_[codepoint].empty()) return encoding_[codepoint];
    return ".notdef";
}

const Bytes* Type1Backend::charstring(const std::string& name) const {
    const auto found = charstrings_.find(name);
    return found == charstrings_.end() ? nullptr : &found->second;
}

GlyphBitmap Type1Backend::rasterize(uint32_t codepoint, double scale) {
    return rasterize_glyph(glyph_name_for_codepoint(codepoint), scale);
}

GlyphBitmap Type1Backend::rasterize_glyph(const std::string& name, double scale) const {
    const Bytes* program = charstring(name);
    if (!program) program = charstring(".notdef");
    if (!program) return {};
    Type1Interpreter interpreter(*this, scale);
    if (!interpreter.execute(*program, 0)) {
        GlyphBitmap blank;
        blank.advance = interpreter.advance();
        return blank;
    }
    GlyphBitmap bitmap = rasterize_outline(interpreter.builder(), interpreter.advance());
    trim_transparent_edges(bitmap);
    return bitmap;
}

}  // namespace orvane::font
