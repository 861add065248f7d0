#include "font/OwnFontPath.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvane::font {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kLineFeed = 10, kCarriageReturn = 13;

int32_t clampByte(long value) { return int32_t(std::clamp<long>(value, 0, 255)); }
// Alpha arrives as a double and is rounded to the nearest byte; NaN counts as 0.
int32_t alphaByte(double a) { return a > 0 ? clampByte(std::lround(std::min(a, 255.0))) : 0; }

}  // namespace

std::vector<uint32_t> decode_utf8(const char* text) {
    std::vector<uint32_t> out;
    if (!text) return out;
    const auto* p = reinterpret_cast<const uint8_t*>(text);
    while (*p) {
        const uint8_t lead = *p;
        int continuation = 0;
        uint32_t value = 0;
        if (lead < 0x80) {
            out.push_back(lead);
            ++p;
            continue;
        }
        if (lead >= 0xC0 && lead <= 0xDF) continuation = 1, value = lead & 0x1F;
        else if (lead >= 0xE0 && lead <= 0xEF) continuation = 2, value = lead & 0x0F;
        else if (lead >= 0xF0 && lead <= 0xF7) continuation = 3, value = lead & 0x07;
        else {
            out.push_back(kReplacement);
            ++p;
            continue;
        }
        int read = 1;
        for (; read <= continuation; ++read) {
            const uint8_t next = p[read];  // a NUL stops the loop before anything past it
            if (next == 0 || (next & 0xC0) != 0x80) break;
            value = value << 6 | (next & 0x3F);
        }
        if (read <= continuation) {
            // Decoding goes on right after the lead byte, so the bytes read so far are looked at again.
            out.push_back(kReplacement);
            ++p;
            continue;
        }
        out.push_back(value);
        p += continuation + 1;
    }
    return out;
}

const GlyphBitmap& cached_glyph(FontHandle& font, uint32_t codepoint) {
    const auto found = font.glyph_cache.find(codepoint);
    if (found != font.glyph_cache.end()) return found->second;
    const double scale = double(font.pixel_size) / font.backend->units_per_em();
    return font.glyph_cache.emplace(codepoint, font.backend->rasterize(codepoint, scale)).first->second;
}

LineLayout layout_line(FontHandle* font, const std::vector<uint32_t>& codepoints) {
    LineLayout layout;
    if (!font || !font->backend) return layout;
    FontBackend& backend = *font->backend;
    const double scale = double(font->pixel_size) / backend.units_per_em();
    const auto whole = [&](double v) { return int32_t(backend.metric_rounding() ? std::lround(v) : long(std::ceil(v))); };
    const int32_t baseline = std::max(1, whole(backend.ascent() * scale));
    const int32_t lineHeight = std::max(1, whole((backend.ascent() + backend.descent() + backend.line_gap()) * scale));
    double pen = 0;
    int32_t minX = 0, minY = 0, maxX = 0, maxY = lineHeight;
    bool ink = false;
    for (uint32_t codepoint : codepoints) {
        const GlyphBitmap& glyph = cached_glyph(*font, codepoint);
        const int32_t x = int32_t(std::floor(pen)) + glyph.left, y = baseline - glyph.top;
        layout.placements.push_back({&glyph, x, y});
        if (glyph.width > 0 && glyph.height > 0) {
            if (ink) {
                minX = std::min(minX, x), minY = std::min(minY, y);
                maxX = std::max(maxX, x + glyph.width), maxY = std::max(maxY, y + glyph.height);
            } else {
                minX = x, minY = y, maxX = x + glyph.width, maxY = y + glyph.height;
                ink = true;
            }
        }
        pen += glyph.advance;
    }
    const int32_t penWidth = std::max(1, int32_t(std::ceil(pen)));
    const int32_t shiftX = std::max(0, -minX), shiftY = std::max(0, -minY);
    layout.width = std::max({1, penWidth + shiftX, maxX + shiftX});
    layout.height = std::max({1, lineHeight + shiftY, maxY + shiftY});
    for (GlyphPlacement& placement : layout.placements) placement.x += shiftX, placement.y += shiftY;
    return layout;
}

}  // namespace orvane::font

using namespace orvane::font;

FontHandle* ot_ttf_font_load(const char* path, float pixel_size) {
    Bytes bytes;
    if (!read_file_bytes(path, bytes)) return nullptr;
    return ot_ttf_font_load_memory(bytes.data(), bytes.size(), pixel_size);
}

FontHandle* ot_ttf_font_load_memory(const uint8_t* data, size_t size, float pixel_size) {
    if (!data || size == 0) return nullptr;
    std::unique_ptr<FontBackend> backend = create_backend(Bytes(data, data + size));
    if (!backend) return nullptr;
    auto* font = new FontHandle;
    font->backend = std::move(backend);
    font->pixel_size = std::max(1.0f, pixel_size);
    return font;
}

void ot_ttf_font_resize(FontHandle* font, float pixel_size) {
    if (!font || !font->backend) return;
    font->pixel_size = std::max(1.0f, pixel_size);
    font->glyph_cache.clear();
}

orvane::NuvraImage* ot_ttf_font_render(FontHandle* font, const char* text, int r, int g, int b, double a) {
    if (!font || !font->backend || !text) return nullptr;
    if (!*text) return new orvane::NuvraImage{0, 0, new uint8_t[4]{}, 0, 0, nullptr};
    const std::vector<uint32_t> codepoints = decode_utf8(text);
    std::vector<std::vector<uint32_t>> lines(1);
    for (uint32_t c : codepoints) {
        if (c == kCarriageReturn) continue;
        if (c == kLineFeed) lines.emplace_back();
        else lines.back().push_back(c);
    }
    font->glyph_cache.reserve(font->glyph_cache.size() + codepoints.size());
    std::vector<LineLayout> layouts;
    int64_t width = 1, height = 0;
    for (const auto& line : lines) {
        layouts.push_back(layout_line(font, line));
        width = std::max<int64_t>(width, layouts.back().width);
        height += layouts.back().height;
    }
    height = std::max<int64_t>(height, 1);
    uint8_t* pixels = orvane::allocatePixels(int32_t(std::min<int64_t>(width, INT32_MAX)),
                                             int32_t(std::min<int64_t>(height, INT32_MAX)));
    if (!pixels) return nullptr;  // a text too large for one image
    std::vector<uint8_t> coverage(size_t(width) * size_t(height), 0);
    int64_t top = 0;
    for (const LineLayout& layout : layouts) {
        for (const GlyphPlacement& placement : layout.placements) {
            const GlyphBitmap* glyph = placement.glyph;
            if (!glyph || glyph->width <= 0 || glyph->height <= 0) continue;
            for (int32_t row = 0; row < glyph->height; ++row) {
                const int64_t y = top + placement.y + row;
                if (y < 0 || y >= height) continue;
                for (int32_t column = 0; column < glyph->width; ++column) {
                    const int32_t c = glyph->pixels[size_t(row) * size_t(glyph->width) + size_t(column)];
                    const int64_t x = int64_t(placement.x) + column;
                    if (c == 0 || x < 0 || x >= width) continue;
                    // Overlapping glyphs add up their coverage instead of overwriting it.
                    uint8_t& d = coverage[size_t(y) * size_t(width) + size_t(x)];
                    d = uint8_t(d * (255 - c) / 255 + c);
                }
            }
        }
        top += layout.height;
    }
    const int32_t red = clampByte(r), green = clampByte(g), blue = clampByte(b), alpha = alphaByte(a);
    for (size_t i = 0; i < coverage.size(); ++i) {
        uint8_t* p = pixels + i * 4;
        p[0] = uint8_t(red), p[1] = uint8_t(green), p[2] = uint8_t(blue);
        p[3] = uint8_t(coverage[i] * alpha / 255);
    }
    return new orvane::NuvraImage{int32_t(width), int32_t(height), pixels, 0, 0, nullptr};
}

void ot_ttf_font_free(FontHandle* font) { delete font; }
