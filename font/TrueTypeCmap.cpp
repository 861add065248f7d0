// Character maps: the format 4 subtable told by offsets, the format 12 groups copied at load.
#include "font/TrueTypeBackend.h"

namespace orvane::font {

bool TrueTypeBackend::load_cmap() {
    const size_t cmap = cmap_.offset;
    if (!can_read(bytes_, cmap, 4)) return false;
    const uint16_t records = read_u16_be(bytes_, cmap + 2);
    if (!can_read(bytes_, cmap + 4, size_t(records) * 8)) return false;
    for (uint16_t i = 0; i < records; ++i) {
        const size_t record = cmap + 4 + size_t(i) * 8;
        const uint16_t platform = read_u16_be(bytes_, record), encoding = read_u16_be(bytes_, record + 2);
        const uint32_t relative = read_u32_be(bytes_, record + 4);
        if (relative >= cmap_.length) continue;
        const size_t subtable = cmap + relative;
        if (subtable > UINT32_MAX || !can_read(bytes_, subtable, 2)) continue;
        // Unicode and Windows maps only; Macintosh maps use their own character sets.
        if (platform != 0 && platform != 3) continue;
        const uint16_t format = read_u16_be(bytes_, subtable);
        if (format == 4) consider_format4(uint32_t(subtable), encoding);
        else if (format == 12) consider_format12(uint32_t(subtable), encoding);
    }
    return format4_.valid || !format12_groups_.empty();
}

void TrueTypeBackend::consider_format4(uint32_t offset, uint16_t encoding) {
    if (!can_read(bytes_, offset, 8)) return;
    const uint16_t length = read_u16_be(bytes_, offset + 2);
    if (length < 16 || !can_read(bytes_, offset, length)) return;
    const uint16_t segCountX2 = read_u16_be(bytes_, offset + 6);
    if (segCountX2 == 0 || segCountX2 % 2 != 0) return;
    // End codes, a pad word, start codes, deltas, range offsets: four arrays and 16 bytes of header.
    const size_t rangeEnd = 16 + size_t(segCountX2) * 4;
    if (rangeEnd > length) return;
    // A Unicode BMP map (Windows encoding 1) is preferred to whatever came first.
    if (format4_.valid && encoding != 1) return;
    Format4Map map;
    map.subtable_offset = offset;
    map.seg_count = uint16_t(segCountX2 / 2);
    map.end_code_offset = 14;
    map.start_code_offset = uint16_t(14 + segCountX2 + 2);
    map.id_delta_offset = uint16_t(map.start_code_offset + segCountX2);
    map.id_range_offset_offset = uint16_t(map.id_delta_offset + segCountX2);
    map.glyph_id_array_offset = uint16_t(map.id_range_offset_offset + segCountX2);
    map.length = length;
    map.valid = true;
    format4_ = map;
}

void TrueTypeBackend::consider_format12(uint32_t offset, uint16_t encoding) {
    if (!can_read(bytes_, offset, 16)) return;
    const uint32_t length = read_u32_be(bytes_, offset + 4);
    if (length <= 15 || !can_read(bytes_, offset, length)) return;
    const uint32_t groups = read_u32_be(bytes_, offset + 12);
    if (uint64_t(groups) * 12 > uint64_t(length) - 16) return;
    // Full-repertoire maps (Unicode encoding 4, Windows encoding 10) replace an earlier one.
    if (!format12_groups_.empty() && encoding != 10 && encoding != 4) return;
    // The count fits the bytes read above, so this allocation is what the file justifies.
    format12_groups_.clear();
    format12_groups_.reserve(groups);
    for (uint32_t i = 0; i < groups; ++i) {
        const size_t group = size_t(offset) + 16 + size_t(i) * 12;
        format12_groups_.push_back(
            {read_u32_be(bytes_, group), read_u32_be(bytes_, group + 4), read_u32_be(bytes_, group + 8)});
    }
}

uint16_t TrueTypeBackend::glyph_index_for_codepoint(uint32_t codepoint) {
    if (const auto hit = glyph_index_cache_.find(codepoint); hit != glyph_index_cache_.end()) return hit->second;
    uint16_t glyph = 0;
    if (codepoint < 0x10000 && format4_.valid) glyph = lookup_format4(codepoint);
    if (glyph == 0 && !format12_groups_.empty()) glyph = lookup_format12(codepoint);
    glyph_index_cache_.emplace(codepoint, glyph);
    return glyph;
}

uint16_t TrueTypeBackend::lookup_format4(uint32_t code) const {
    const size_t base = format4_.subtable_offset;
    // The arrays were checked against the file when the subtable was chosen; checked again here
    // so that each read stands on its own.
    for (uint16_t segment = 0; segment < format4_.seg_count; ++segment) {
        const size_t at = size_t(segment) * 2;
        const size_t endAt = base + format4_.end_code_offset + at, startAt = base + format4_.start_code_offset + at;
        const size_t deltaAt = base + format4_.id_delta_offset + at;
        const size_t rangeAt = base + format4_.id_range_offset_offset + at;
        if (!can_read(bytes_, endAt, 2) || !can_read(bytes_, startAt, 2) || !can_read(bytes_, deltaAt, 2) ||
            !can_read(bytes_, rangeAt, 2))
            return 0;
        if (read_u16_be(bytes_, endAt) < code) continue;
        const uint16_t start = read_u16_be(bytes_, startAt);
        if (code < start) return 0;
        const uint16_t delta = read_u16_be(bytes_, deltaAt), range = read_u16_be(bytes_, rangeAt);
        if (range == 0) return uint16_t(code + delta);
        // The range offset counts from its own position in the file.
        const size_t glyphAt = rangeAt + range + 2 * size_t(code - start);
        if (!can_read(bytes_, glyphAt, 2)) return 0;
        const uint16_t value = read_u16_be(bytes_, glyphAt);
        return value == 0 ? 0 : uint16_t(value + delta);
    }
    return 0;
}

uint16_t TrueTypeBackend::lookup_format12(uint32_t code) const {
    size_t low = 0, high = format12_groups_.size();
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        const Format12Group& group = format12_groups_[middle];
        if (code < group.start_char) high = middle;
        else if (code > group.end_char) low = middle + 1;
        else return uint16_t(group.start_glyph + (code - group.start_char));
    }
    return 0;
}

}  // namespace orvane::font
