// The engine's own text path: font files read by its own readers, glyphs rasterised once per
// size and cached, lines laid out on a fractional pen, coverage composed into an RGBA image.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "font/FontBackend.h"
#include "image/NuvraImage.h"

namespace orvane::font {

struct FontHandle {
    std::unique_ptr<FontBackend> backend;
    float pixel_size = 12.0f;
    // Node based: a glyph reached through it keeps its address until the cache is cleared.
    std::unordered_map<uint32_t, GlyphBitmap> glyph_cache;
};

struct GlyphPlacement {
    const GlyphBitmap* glyph = nullptr;
    int32_t x = 0, y = 0;  // the bitmap's top-left pixel inside the line
};

struct LineLayout {
    int32_t width = 1, height = 1;
    std::vector<GlyphPlacement> placements;
};

// Code points up to a NUL; a bad lead or continuation byte gives U+FFFD.
std::vector<uint32_t> decode_utf8(const char* text);
const GlyphBitmap& cached_glyph(FontHandle& font, uint32_t codepoint);
LineLayout layout_line(FontHandle* font, const std::vector<uint32_t>& codepoints);

}  // namespace orvane::font

// The own path's faces. Null for a file that no reader takes; the caller owns the font and the image.
orvane::font::FontHandle* ot_ttf_font_load(const char* path, float pixel_size);
orvane::font::FontHandle* ot_ttf_font_load_memory(const uint8_t* data, size_t size, float pixel_size);
void ot_ttf_font_resize(orvane::font::FontHandle* font, float pixel_size);
orvane::NuvraImage* ot_ttf_font_render(orvane::font::FontHandle* font, const char* text, int r, int g, int b, double a);
void ot_ttf_font_free(orvane::font::FontHandle* font);
