// The own text path with a stand-in reader whose glyphs are plain boxes, so that flattening,
// the winding rule, rasterising, trimming, layout and composition can be checked by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "font/OwnFontPath.h"

namespace orvane::font {
namespace {

// 10 units to the em at 10 pixels: a unit is a pixel. Each glyph is a box of its code point's
// own: 'A' 4 by 6 units from the baseline, 'j' reaches 2 left of the pen and 3 below.
class BoxBackend : public FontBackend {
public:
    bool load(Bytes) override { return true; }
    GlyphBitmap rasterize(uint32_t codepoint, double scale) override {
        OutlineBuilder builder;
        double x0 = 0, x1 = 4, y0 = 0, y1 = 6;
        if (codepoint == 'j') x0 = -2, x1 = 1, y0 = -3;
        if (codepoint == 'h') x1 = 8, y1 = 5.5;  // wider than its advance, its top row half covered
        if (codepoint != ' ') {
            builder.move_to({x0 * scale, y0 * scale});
            builder.line_to({x1 * scale, y0 * scale});
            builder.line_to({x1 * scale, y1 * scale});
            builder.line_to({x0 * scale, y1 * scale});
            builder.close_contour();
        }
        return rasterize_outline(builder, 5 * scale);
    }
    double units_per_em() const override { return 10; }
    double ascent() const override { return 8; }
    double descent() const override { return 2; }
    double line_gap() const override { return 0; }
    bool metric_rounding() const override { return false; }
};

FontHandle boxFont(float size = 10) {
    FontHandle font;
    font.backend = std::make_unique<BoxBackend>();
    font.pixel_size = size;
    return font;
}

struct Image {
    NuvraImage* image;
    explicit Image(NuvraImage* i) : image(i) {}
    ~Image() { if (image) freeNuvraImage(image); }
    const uint8_t* at(int x, int y) const { return image->pixels + (size_t(y) * image->width + x) * 4; }
};

TEST(TextOutline, FlatteningStaysWithinAThirdOfAPixel) {
    OutlineBuilder builder;
    const Point p0{0, 0}, p1{40, 80}, p2{80, 0};
    builder.move_to(p0);
    flatten_quadratic(builder, p0, p1, p2);
    const auto& segments = builder.segments();
    ASSERT_GT(segments.size(), 8u);
    EXPECT_EQ(segments.back().end.x, 80);
    for (const LineSegment& s : segments) {
        // The curve's point at the middle of each chord's parameter span lies within 0.35.
        const double t = s.start.x / 80 + (s.end.x - s.start.x) / 160;
        const double cx = 80 * t, cy = 2 * (1 - t) * t * 80;
        const double mx = (s.start.x + s.end.x) / 2, my = (s.start.y + s.end.y) / 2;
        EXPECT_LT(std::hypot(cx - mx, cy - my), 0.35 + 1e-9);
        EXPECT_LT(s.start.x, s.end.x);  // in order along the curve
    }
}

TEST(TextOutline, WindingCountsASharedVertexOnceAndFillsNonZero) {
    // Two squares, the second inside the first and wound the same way: non-zero fills both.
    OutlineBuilder builder;
    for (double size : {4.0, 2.0}) {
        const double lo = 2 - size / 2, hi = 2 + size / 2;
        builder.move_to({lo, lo});
        builder.line_to({hi, lo});
        builder.line_to({hi, hi});
        builder.line_to({lo, hi});
        builder.close_contour();
    }
    EXPECT_EQ(point_winding(builder.segments(), 2, 2), 2);
    EXPECT_EQ(point_winding(builder.segments(), 0.5, 0.5), 1);
    EXPECT_EQ(point_winding(builder.segments(), 5, 2), 0);
    // A ray through the vertex (4, 0) of the outer square crosses it once, not twice.
    EXPECT_EQ(point_winding(builder.segments(), 3.9, 0), 1);
}

TEST(TextOutline, RasterisingKeepsAPixelOfMarginAndCountsSixteenSamples) {
    OutlineBuilder builder;
    builder.move_to({0, 0});
    builder.line_to({2, 0});
    builder.line_to({2, 1.5});
    builder.line_to({0, 1.5});
    builder.close_contour();
    GlyphBitmap bitmap = rasterize_outline(builder, 3.25);
    EXPECT_EQ(bitmap.left, -1);
    EXPECT_EQ(bitmap.top, 3);
    ASSERT_EQ(bitmap.width, 4);
    ASSERT_EQ(bitmap.height, 4);
    EXPECT_EQ(bitmap.advance, 3.25);
    const std::vector<uint8_t> expected = {0, 0, 0, 0,  0, 127, 127, 0,  0, 255, 255, 0,  0, 0, 0, 0};
    EXPECT_EQ(bitmap.pixels, expected);
    trim_transparent_edges(bitmap);
    EXPECT_EQ(bitmap.left, 0);
    EXPECT_EQ(bitmap.top, 2);
    EXPECT_EQ(bitmap.width, 2);
    EXPECT_EQ(bitmap.pixels, std::vector<uint8_t>({127, 127, 255, 255}));
    GlyphBitmap blank{1, 2, 2, 1, 7.5, {0, 0}};
    trim_transparent_edges(blank);
    EXPECT_EQ(blank.width + blank.height + blank.left + blank.top, 0);
    EXPECT_EQ(blank.advance, 7.5);
}

// The rasteriser sweeps each row of samples over its crossings; this is the rule it shortcuts,
// sample by sample, and the two must agree on every pixel of busy, overlapping outlines.
TEST(TextOutline, RowSweepGivesTheWindingRulesCoverage) {
    uint32_t seed = 12345;
    const auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 8 & 0xFFFF; };
    for (int glyph = 0; glyph < 20; ++glyph) {
        OutlineBuilder builder;
        for (int contour = 0; contour < 3; ++contour) {
            builder.move_to({next() % 400 / 16.0, next() % 400 / 16.0});
            for (int point = 0; point < 6; ++point) {
                const Point p0{next() % 400 / 16.0, next() % 400 / 16.0}, p1{next() % 400 / 16.0, next() % 400 / 16.0};
                if (point % 2) flatten_quadratic(builder, {next() % 400 / 16.0, next() % 400 / 16.0}, p0, p1);
                else builder.line_to(p1);
            }
            builder.close_contour();
        }
        const GlyphBitmap swept = rasterize_outline(builder, 0);
        for (int32_t r = 0; r < swept.height; ++r)
            for (int32_t c = 0; c < swept.width; ++c) {
                int inside = 0;
                for (int j = 0; j < 4; ++j)
                    for (int i = 0; i < 4; ++i)
                        inside += point_winding(builder.segments(), swept.left + c + 0.125 + i * 0.25,
                                                swept.top - r - 0.125 - j * 0.25) != 0;
                ASSERT_EQ(swept.pixels[size_t(r) * swept.width + c], inside * 255 / 16) << glyph << ": " << c << "," << r;
            }
    }
}

TEST(TextDecoding, BadBytesBecomeReplacementsAndDecodingResumes) {
    EXPECT_EQ(decode_utf8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), std::vector<uint32_t>({'a', 0xE9, 0x20AC, 0x1F600}));
    EXPECT_EQ(decode_utf8("\xE4"), std::vector<uint32_t>({0xFFFD}));
    EXPECT_EQ(decode_utf8("\xE4" "A"), std::vector<uint32_t>({0xFFFD, 'A'}));
    EXPECT_EQ(decode_utf8("\xFF\x80z"), std::vector<uint32_t>({0xFFFD, 0xFFFD, 'z'}));
    EXPECT_TRUE(decode_utf8(nullptr).empty());
}

TEST(TextLayout, LinesBreakOnLineFeedsAndCarriageReturnsVanish) {
    FontHandle font = boxFont();
    // Line height 10, baseline 8; "A" is 5 wide on the pen, its box from 0 to 4, and the pixel
    // of margin left of it overhangs the pen by one.
    Image one(ot_ttf_font_render(&font, "AA", 10, 20, 30, 255));
    EXPECT_EQ(one.image->width, 10 + 1);
    EXPECT_EQ(one.image->height, 10);
    Image two(ot_ttf_font_render(&font, "A\r\nA", 10, 20, 30, 255));
    EXPECT_EQ(two.image->width, 5 + 1);
    EXPECT_EQ(two.image->height, 20);
    EXPECT_EQ(two.at(1, 5)[3], 255);   // inside the first box
    EXPECT_EQ(two.at(1, 15)[3], 255);  // inside the second
    Image feed(ot_ttf_font_render(&font, "\n", 300, -5, 7, 255));
    EXPECT_EQ(feed.image->width, 1);
    EXPECT_EQ(feed.image->height, 20);
    EXPECT_EQ(std::vector<uint8_t>(feed.at(0, 0), feed.at(0, 0) + 4), std::vector<uint8_t>({255, 0, 7, 0}));
    Image empty(ot_ttf_font_render(&font, "", 1, 2, 3, 4));
    EXPECT_EQ(empty.image->width + empty.image->height, 0);
    EXPECT_NE(empty.image->pixels, nullptr);
}

TEST(TextLayout, OverhangWidensTheLineAndOverlapsAccumulate) {
    FontHandle font = boxFont();
    // 'j' starts 2 left of the pen (3 with the margin) and ends 3 below the baseline.
    Image j(ot_ttf_font_render(&font, "jA", 0, 0, 0, 255));
    EXPECT_EQ(j.image->width, 10 + 3);
    EXPECT_EQ(j.image->height, 8 + 3 + 1);
    EXPECT_EQ(j.at(0, 0)[3], 0);
    EXPECT_EQ(j.at(1, 5)[3], 255);  // column 1 is 2 left of the pen's start, inside the box
    // Where two 'h' overlap, their half-covered top rows (127 each) add up to 127 * 128 / 255 + 127.
    Image overlap(ot_ttf_font_render(&font, "hh", 0, 0, 0, 255));
    EXPECT_EQ(overlap.at(2, 2)[3], 127);
    EXPECT_EQ(overlap.at(6, 2)[3], 190);
    EXPECT_EQ(overlap.at(10, 2)[3], 127);
}

TEST(TextLayout, SizesAndAlphaAreClampedTheOwnPathsWay) {
    FontHandle* font = ot_ttf_font_load("/nonexistent/font.ttf", 12);
    EXPECT_EQ(font, nullptr);
    FontHandle box = boxFont();
    ot_ttf_font_resize(&box, 0.4f);
    EXPECT_EQ(box.pixel_size, 1.0f);
    ot_ttf_font_resize(&box, 12.5f);
    EXPECT_EQ(box.pixel_size, 12.5f);
    box.pixel_size = 10;
    box.glyph_cache.clear();
    Image loud(ot_ttf_font_render(&box, "A", 0, 0, 0, 300));
    EXPECT_EQ(loud.at(1, 5)[3], 255);
    Image quiet(ot_ttf_font_render(&box, "A", 0, 0, 0, -5));
    EXPECT_EQ(quiet.at(1, 5)[3], 0);
    Image half(ot_ttf_font_render(&box, "A", 0, 0, 0, 127.5));
    EXPECT_EQ(half.at(1, 5)[3], 128);
}

}  // namespace
}  // namespace orvane::font
