// Loading: the table directory, the header tables and loca; then metrics and rasterising.
#include "font/TrueTypeBackend.h"

namespace orvane::font {

namespace {

constexpr uint32_t kTrueTypeVersion = 0x00010000u;

}  // namespace

void TrueTypeBackend::assign_table(uint32_t tag, const TableRecord& record) {
    if (tag == make_tag('c', 'm', 'a', 'p')) cmap_ = record;
    else if (tag == make_tag('g', 'l', 'y', 'f')) glyf_ = record;
    else if (tag == make_tag('l', 'o', 'c', 'a')) loca_ = record;
    else if (tag == make_tag('h', 'e', 'a', 'd')) head_ = record;
    else if (tag == make_tag('h', 'h', 'e', 'a')) hhea_ = record;
    else if (tag == make_tag('h', 'm', 't', 'x')) hmtx_ = record;
    else if (tag == make_tag('m', 'a', 'x', 'p')) maxp_ = record;
}

bool TrueTypeBackend::load(Bytes data) {
    *this = TrueTypeBackend();
    bytes_ = std::move(data);
    if (!can_read(bytes_, 0, 12)) return false;
    // CFF outlines ('OTTO') are not read.
    const uint32_t version = read_u32_be(bytes_, 0);
    if (version != kTrueTypeVersion && version != make_tag('t', 'r', 'u', 'e')) return false;
    const uint16_t numTables = read_u16_be(bytes_, 4);
    if (!can_read(bytes_, 12, size_t(numTables) * 16)) return false;
    for (uint16_t i = 0; i < numTables; ++i) {
        const size_t record = 12 + size_t(i) * 16;
        const uint32_t tag = read_u32_be(bytes_, record);
        const TableRecord table{read_u32_be(bytes_, record + 8), read_u32_be(bytes_, record + 12)};
        if (!can_read(bytes_, table.offset, table.length)) return false;
        tables_[tag] = table;  // a later record with the same tag wins
    }
    for (const uint32_t tag : {make_tag('c', 'm', 'a', 'p'), make_tag('g', 'l', 'y', 'f'), make_tag('l', 'o', 'c', 'a'),
                               make_tag('h', 'e', 'a', 'd'), make_tag('h', 'h', 'e', 'a'), make_tag('h', 'm', 't', 'x'),
                               make_tag('m', 'a', 'x', 'p')}) {
        const auto found = tables_.find(tag);
        if (found == tables_.end()) return false;
        assign_table(tag, found->second);
    }
    // Against the file, not the stated lengths: a short table with readable bytes still loads.
    if (!can_read(bytes_, head_.offset, 54) || !can_read(bytes_, hhea_.offset, 36) ||
        !can_read(bytes_, maxp_.offset, 6))
        return false;
    units_per_em_ = read_u16_be(bytes_, head_.offset + 18);
    if (units_per_em_ == 0) return false;
    index_to_loc_format_ = read_s16_be(bytes_, head_.offset + 50);
    ascent_ = read_s16_be(bytes_, hhea_.offset + 4);
    // Stored positive below the baseline; -32768 has no positive twin in 16 bits and stays near it.
    const int32_t descender = read_s16_be(bytes_, hhea_.offset + 6);
    descent_ = int16_t(descender == -32768 ? 32767 : -descender);
    line_gap_ = read_s16_be(bytes_, hhea_.offset + 8);
    num_h_metrics_ = read_u16_be(bytes_, hhea_.offset + 34);
    num_glyphs_ = read_u16_be(bytes_, maxp_.offset + 4);
    if (num_glyphs_ == 0 || num_h_metrics_ == 0) return false;
    return load_loca() && load_cmap();
}

bool TrueTypeBackend::load_loca() {
    const size_t entries = size_t(num_glyphs_) + 1;
    const bool wide = index_to_loc_format_ != 0;
    if (!can_read(bytes_, loca_.offset, entries * (wide ? 4 : 2))) return false;
    loca_offsets_.resize(entries);
    for (size_t i = 0; i < entries; ++i) {
        const uint32_t offset = wide ? read_u32_be(bytes_, loca_.offset + i * 4)
                                     : uint32_t(read_u16_be(bytes_, loca_.offset + i * 2)) * 2;
        if (offset > glyf_.length) return false;
        loca_offsets_[i] = offset;
    }
    return true;
}

bool TrueTypeBackend::horizontal_metrics(uint16_t glyph, uint16_t& advance, int16_t& lsb) const {
    if (glyph >= num_glyphs_) glyph = 0;
    const size_t hmtx = hmtx_.offset;
    if (glyph < num_h_metrics_) {
        const size_t pair = hmtx + size_t(glyph) * 4;
        if (!can_read(bytes_, pair, 4)) return false;
        advance = read_u16_be(bytes_, pair);
        lsb = read_s16_be(bytes_, pair + 2);
        return true;
    }
    // Past the pairs, glyphs share the last advance and keep a bearing each.
    const size_t lastPair = hmtx + (size_t(num_h_metrics_) - 1) * 4;
    const size_t bearing = hmtx + 2 * (size_t(glyph) - num_h_metrics_ + 2 * size_t(num_h_metrics_));
    if (!can_read(bytes_, lastPair, 4) || !can_read(bytes_, bearing, 2)) return false;
    advance = read_u16_be(bytes_, lastPair);
    lsb = read_s16_be(bytes_, bearing);
    return true;
}

GlyphBitmap TrueTypeBackend::rasterize(uint32_t codepoint, double scale) {
    const uint16_t glyph = glyph_index_for_codepoint(codepoint);
    uint16_t advanceUnits = 0;
    int16_t lsb = 0;
    GlyphBitmap blank;
    if (!horizontal_metrics(glyph, advanceUnits, lsb)) {
        blank.advance = units_per_em_ * scale;
        return blank;
    }
    const double advance = advanceUnits * scale;
    blank.advance = advance;
    // Font units straight to pixels, y up, no grid fitting. Contours are transformed before they
    // are flattened, so that the flattening tolerance is a measure in pixels.
    AffineTransform toPixels;
    toPixels.a = toPixels.d = scale;
    std::vector<Contour> contours;
    if (!glyph_contours(glyph, toPixels, contours)) return blank;
    OutlineBuilder builder;
    if (!draw_contours(contours, builder)) return blank;
    return rasterize_outline(builder, advance);
}

}  // namespace orvane::font
