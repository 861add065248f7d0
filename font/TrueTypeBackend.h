// The TrueType reader: cmap, loca, glyf, hmtx and the vertical metrics; no hinting, no kerning,
// no CFF outlines. Loading reads only headers, loca and the format 12 groups; glyph data is
// decoded when a glyph is first drawn.
#pragma once

#include <unordered_map>
#include <vector>

#include "font/FontBackend.h"

namespace orvane::font {

// One point of a decoded contour; on_curve false marks a quadratic control point.
struct ContourPoint {
    Point point;
    bool on_curve = true;
};
// Starts on-curve, implied midpoints between control points present, closed by a copy of its
// first point: drawn by walking it once.
using Contour = std::vector<ContourPoint>;

class TrueTypeBackend : public FontBackend {
public:
    bool load(Bytes data) override;
    GlyphBitmap rasterize(uint32_t codepoint, double scale) override;
    double units_per_em() const override { return units_per_em_; }
    double ascent() const override { return ascent_; }
    double descent() const override { return descent_ > 0 ? descent_ : 0; }
    double line_gap() const override { return line_gap_ > 0 ? line_gap_ : 0; }
    bool metric_rounding() const override { return false; }

    // The glyph of a code point; 0 when no map holds it. Cached, zero included.
    uint16_t glyph_index_for_codepoint(uint32_t codepoint);
    // Advance and left side bearing in font units; a glyph beyond the font uses glyph 0's.
    bool horizontal_metrics(uint16_t glyph, uint16_t& advance, int16_t& lsb) const;
    // The glyph's contours through `transform`, composites resolved. False for a damaged glyph,
    // one nested too deep, anchored by point numbers or beyond the work budget. An empty glyph
    // succeeds with no contours.
    bool glyph_contours(uint16_t glyph, const AffineTransform& transform, std::vector<Contour>& out) const;

private:
    struct TableRecord {
        uint32_t offset = 0, length = 0;
    };
    // The chosen format 4 subtable, by offsets into the file so that no copy is made.
    struct Format4Map {
        uint32_t subtable_offset = 0;
        uint16_t seg_count = 0;
        uint16_t end_code_offset = 14, start_code_offset = 0, id_delta_offset = 0;
        uint16_t id_range_offset_offset = 0, glyph_id_array_offset = 0;
        uint16_t length = 0;
        bool valid = false;
    };
    struct Format12Group {
        uint32_t start_char = 0, end_char = 0, start_glyph = 0;
    };
    struct DecodeBudget;

    void assign_table(uint32_t tag, const TableRecord& record);
    bool load_loca();
    bool load_cmap();
    void consider_format4(uint32_t offset, uint16_t encoding);
    void consider_format12(uint32_t offset, uint16_t encoding);
    uint16_t lookup_format4(uint32_t code) const;
    uint16_t lookup_format12(uint32_t code) const;
    bool glyph_span(uint16_t glyph, size_t& offset, size_t& length) const;
    bool append_glyph_outline(uint16_t glyph, const AffineTransform& transform, std::vector<Contour>& out,
                              int depth, DecodeBudget& budget) const;
    bool append_simple_glyph(size_t offset, size_t length, int16_t contour_count, const AffineTransform& transform,
                             std::vector<Contour>& out, DecodeBudget& budget) const;
    bool append_composite_glyph(size_t offset, size_t length, const AffineTransform& transform,
                                std::vector<Contour>& out, int depth, DecodeBudget& budget) const;

    Bytes bytes_;
    std::unordered_map<uint32_t, TableRecord> tables_;
    TableRecord cmap_, glyf_, loca_, head_, hhea_, hmtx_, maxp_;
    uint16_t units_per_em_ = 0;
    int16_t ascent_ = 0, descent_ = 0, line_gap_ = 0;
    int16_t index_to_loc_format_ = 0;
    uint16_t num_glyphs_ = 0, num_h_metrics_ = 0;
    std::vector<uint32_t> loca_offsets_;
    Format4Map format4_;
    std::vector<Format12Group> format12_groups_;
    std::unordered_map<uint32_t, uint16_t> glyph_index_cache_;
};

// Draws decoded contours: straight runs as lines, control points as flattened quadratics.
// False when the flattening grows beyond what any sane glyph needs.
bool draw_contours(const std::vector<Contour>& contours, OutlineBuilder& builder);

}  // namespace orvane::font
