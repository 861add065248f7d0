// The TrueType reader judged by FreeType on DejaVu Sans, on small fonts that fontTools builds for
// the edge cases (make_truetype_fonts.py), and on damaged files.
#include <gtest/gtest.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "font/TrueTypeBackend.h"

using namespace orvane::font;
namespace fs = std::filesystem;

namespace {

const char* const kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

Bytes file_bytes(const fs::path& path) {
    Bytes bytes;
    EXPECT_TRUE(read_file_bytes(path.c_str(), bytes)) << path;
    return bytes;
}

std::unique_ptr<TrueTypeBackend> load(const Bytes& bytes) {
    auto font = std::make_unique<TrueTypeBackend>();
    return font->load(bytes) ? std::move(font) : nullptr;
}

// FreeType's unscaled outline in our contour form: an implied on-curve point between two control
// points, the start moved onto the curve, the first point repeated at the end.
std::vector<Contour> freetype_contours(const FT_Outline& outline) {
    std::vector<Contour> contours;
    const auto at = [&](int i) { return Point{double(outline.points[i].x), double(outline.points[i].y)}; };
    const auto on = [&](int i) { return FT_CURVE_TAG(outline.tags[i]) == FT_CURVE_TAG_ON; };
    int first = 0;
    for (int c = 0; c < outline.n_contours; ++c) {
        const int last = outline.contours[c];
        Contour contour;
        for (int i = first; i <= last; ++i) {
            const int next = i == last ? first : i + 1;
            contour.push_back({at(i), on(i)});
            if (!on(i) && !on(next))
                contour.push_back({{(at(i).x + at(next).x) / 2, (at(i).y + at(next).y) / 2}, true});
        }
        // A control point first: the list already ends on the curve, at the last point or at the
        // midpoint behind it.
        if (!contour.front().on_curve) contour.insert(contour.begin(), contour.back());
        contour.push_back(contour.front());
        contours.push_back(std::move(contour));
        first = last + 1;
    }
    return contours;
}

testing::AssertionResult same_contours(const std::vector<Contour>& ours, const std::vector<Contour>& judge) {
    if (ours.size() != judge.size())
        return testing::AssertionFailure() << ours.size() << " contours, FreeType has " << judge.size();
    for (size_t c = 0; c < ours.size(); ++c) {
        if (ours[c].size() != judge[c].size())
            return testing::AssertionFailure()
                   << "contour " << c << ": " << ours[c].size() << " points, FreeType has " << judge[c].size();
        for (size_t i = 0; i < ours[c].size(); ++i) {
            const ContourPoint& a = ours[c][i];
            const ContourPoint& b = judge[c][i];
            if (a.point.x != b.point.x || a.point.y != b.point.y || a.on_curve != b.on_curve)
                return testing::AssertionFailure()
                       << "contour " << c << " point " << i << ": (" << a.point.x << ", " << a.point.y << ", "
                       << a.on_curve << ") vs FreeType (" << b.point.x << ", " << b.point.y << ", " << b.on_curve
                       << ")";
        }
    }
    return testing::AssertionSuccess();
}

class FreeTypeFace {
public:
    explicit FreeTypeFace(const fs::path& path) {
        if (FT_Init_FreeType(&library_) == 0 && FT_New_Face(library_, path.c_str(), 0, &face_) != 0) face_ = nullptr;
    }
    ~FreeTypeFace() {
        if (face_) FT_Done_Face(face_);
        if (library_) FT_Done_FreeType(library_);
    }
    FT_Face get() const { return face_; }

    // False when FreeType refuses the glyph.
    bool unscaled(FT_UInt glyph, std::vector<Contour>& contours, FT_Pos& advance) const {
        if (FT_Load_Glyph(face_, glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING) != 0) return false;
        contours = freetype_contours(face_->glyph->outline);
        advance = face_->glyph->metrics.horiAdvance;
        return true;
    }

private:
    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
};

// Our contours of a glyph in font units.
std::vector<Contour> our_contours(const TrueTypeBackend& font, uint16_t glyph, bool expect_success = true) {
    std::vector<Contour> contours;
    EXPECT_EQ(font.glyph_contours(glyph, AffineTransform{}, contours), expect_success) << "glyph " << glyph;
    return contours;
}

// The coverage of the pixel in `column` whose top edge lies `top_edge` pixels above the baseline.
uint8_t coverage_at(const GlyphBitmap& bitmap, int32_t column, int32_t top_edge) {
    const int32_t c = column - bitmap.left, r = bitmap.top - top_edge;
    if (c < 0 || r < 0 || c >= bitmap.width || r >= bitmap.height) return 0;
    return bitmap.pixels[size_t(r) * size_t(bitmap.width) + size_t(c)];
}

// The coverage of the pixel whose lower-left corner is (x, y) in whole pixels, y up.
uint8_t pixel_at(const GlyphBitmap& bitmap, int32_t x, int32_t y) { return coverage_at(bitmap, x, y + 1); }

double left_edge(const std::vector<Contour>& contours) {
    double edge = 0;
    bool first = true;
    for (const Contour& contour : contours)
        for (const ContourPoint& p : contour) edge = first ? p.point.x : std::min(edge, p.point.x), first = false;
    return edge;
}

bool blank(const GlyphBitmap& bitmap) { return bitmap.width == 0 && bitmap.height == 0 && bitmap.pixels.empty(); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// DejaVu Sans against FreeType.

class TrueTypeDejaVu : public testing::Test {
protected:
    static void SetUpTestSuite() {
        bytes_ = new Bytes(file_bytes(kDejaVu));
        font_ = load(*bytes_).release();
        judge_ = new FreeTypeFace(kDejaVu);
    }
    static void TearDownTestSuite() {
        delete font_;
        delete judge_;
        delete bytes_;
    }
    void SetUp() override {
        ASSERT_NE(font_, nullptr);
        ASSERT_NE(judge_->get(), nullptr);
    }
    static inline Bytes* bytes_ = nullptr;
    static inline TrueTypeBackend* font_ = nullptr;
    static inline FreeTypeFace* judge_ = nullptr;
};

TEST_F(TrueTypeDejaVu, MapsBasicPlaneCodePointsLikeFreeType) {
    // All of the scripts up to U+2000, and a spread beyond.
    size_t mapped = 0;
    for (uint32_t codepoint = 0; codepoint < 0x10000; codepoint += codepoint < 0x2000 ? 1 : 7) {
        const FT_UInt judge = FT_Get_Char_Index(judge_->get(), codepoint);
        ASSERT_EQ(font_->glyph_index_for_codepoint(codepoint), judge) << std::hex << "U+" << codepoint;
        mapped += judge != 0;
    }
    EXPECT_GT(mapped, 3000u);
    for (uint32_t codepoint : {0x1D400u, 0x1F600u, 0x10FFFFu, 0x110000u, 0xFFFFFFFFu})
        EXPECT_EQ(font_->glyph_index_for_codepoint(codepoint), FT_Get_Char_Index(judge_->get(), codepoint));
}

TEST_F(TrueTypeDejaVu, EveryGlyphHasFreeTypesOutlineAndAdvance) {
    const FT_Long glyphs = judge_->get()->num_glyphs;
    ASSERT_GT(glyphs, 5000);
    size_t composites = 0, shifted = 0;
    for (FT_Long glyph = 0; glyph < glyphs; ++glyph) {
        SCOPED_TRACE("glyph " + std::to_string(glyph));
        std::vector<Contour> judge;
        FT_Pos judgeAdvance = 0;
        ASSERT_EQ(FT_Load_Glyph(judge_->get(), FT_UInt(glyph), FT_LOAD_NO_SCALE | FT_LOAD_NO_RECURSE), 0);
        composites += judge_->get()->glyph->format == FT_GLYPH_FORMAT_COMPOSITE;
        ASSERT_TRUE(judge_->unscaled(FT_UInt(glyph), judge, judgeAdvance));
        uint16_t advance = 0;
        int16_t lsb = 0;
        ASSERT_TRUE(font_->horizontal_metrics(uint16_t(glyph), advance, lsb));
        ASSERT_EQ(advance, judgeAdvance);
        // FreeType moves an outline whose header box misses its side bearing by the difference; we
        // keep the coordinates of the glyph data. A handful of DejaVu's glyphs are a unit off.
        const std::vector<Contour> ours = our_contours(*font_, uint16_t(glyph));
        const double shift = left_edge(ours) - left_edge(judge);
        if (shift != 0) {
            ASSERT_LE(std::abs(shift), 2);
            for (Contour& contour : judge)
                for (ContourPoint& p : contour) p.point.x += shift;
            ++shifted;
        }
        ASSERT_TRUE(same_contours(ours, judge));
    }
    EXPECT_LT(shifted, 10u);
    // Most accented letters are composites, some nested: they must have been among the glyphs.
    EXPECT_GT(composites, 2000u);
}

TEST_F(TrueTypeDejaVu, PrintableAsciiAndAccentedLettersReachTheirOutlines) {
    // Through the code point, as text reaches them: the whole of printable ASCII and letters that
    // are built from components.
    std::vector<uint32_t> codepoints;
    for (uint32_t c = 0x20; c < 0x7F; ++c) codepoints.push_back(c);
    for (uint32_t c : {0xC5u, 0xC7u, 0xE9u, 0xF1u, 0xFCu, 0x1EBFu, 0x1FAu, 0x1C5u, 0x2126u}) codepoints.push_back(c);
    for (uint32_t codepoint : codepoints) {
        SCOPED_TRACE("U+" + std::to_string(codepoint));
        const FT_UInt glyph = FT_Get_Char_Index(judge_->get(), codepoint);
        ASSERT_NE(glyph, 0u);
        ASSERT_EQ(font_->glyph_index_for_codepoint(codepoint), glyph);
        std::vector<Contour> judge;
        FT_Pos judgeAdvance = 0;
        ASSERT_TRUE(judge_->unscaled(glyph, judge, judgeAdvance));
        EXPECT_TRUE(same_contours(our_contours(*font_, uint16_t(glyph)), judge));
        const double scale = 1.0 / 1024;
        EXPECT_DOUBLE_EQ(font_->rasterize(codepoint, scale).advance, judgeAdvance * scale);
    }
}

TEST_F(TrueTypeDejaVu, CoverageStaysCloseToFreeTypesRendering) {
    // A 4 by 4 grid of samples against FreeType's exact areas, with no bias either way. Measured:
    // worst pixel 62 of 255 ('m' at 24 px); mean absolute difference over the union of both
    // bitmaps 4.11 at 12 px, 3.93, 3.15, 2.74, and 1.81 at 48 px. Half a pixel of misplacement
    // would give differences near 128.
    constexpr int kWorstPixel = 96;
    constexpr double kWorstMean = 6.0;
    FT_Face face = judge_->get();
    int worst = 0;
    double worstMean = 0;
    for (int pixels : {12, 16, 24, 32, 48}) {
        // 2048 units to the em: pixels * 64 / 2048 is exact in FreeType's 16.16 scale.
        ASSERT_EQ(FT_Set_Pixel_Sizes(face, 0, FT_UInt(pixels)), 0);
        const double scale = pixels / font_->units_per_em();
        long sum = 0, count = 0;
        for (uint32_t codepoint = 0x21; codepoint < 0x7F; ++codepoint) {
            SCOPED_TRACE(std::to_string(pixels) + " px, U+" + std::to_string(codepoint));
            ASSERT_EQ(FT_Load_Char(face, codepoint, FT_LOAD_NO_HINTING | FT_LOAD_RENDER), 0);
            const FT_GlyphSlot slot = face->glyph;
            const FT_Bitmap& judge = slot->bitmap;
            ASSERT_EQ(judge.pixel_mode, FT_PIXEL_MODE_GRAY);
            const GlyphBitmap ours = font_->rasterize(codepoint, scale);
            ASSERT_FALSE(blank(ours));
            // FreeType rounds the advance to 1/64 pixel.
            EXPECT_NEAR(ours.advance * 64, double(slot->advance.x), 0.5);
            const auto judgeAt = [&](int32_t column, int32_t row) -> int {
                const int32_t c = column - slot->bitmap_left, r = slot->bitmap_top - row;
                if (c < 0 || r < 0 || c >= int32_t(judge.width) || r >= int32_t(judge.rows)) return 0;
                return judge.buffer[r * judge.pitch + c];
            };
            const int32_t left = std::min(ours.left, slot->bitmap_left);
            const int32_t right = std::max(ours.left + ours.width, slot->bitmap_left + int32_t(judge.width));
            const int32_t top = std::max(ours.top, slot->bitmap_top);
            const int32_t bottom = std::min(ours.top - ours.height, slot->bitmap_top - int32_t(judge.rows));
            for (int32_t row = top; row > bottom; --row)
                for (int32_t column = left; column < right; ++column) {
                    const int difference = std::abs(coverage_at(ours, column, row) - judgeAt(column, row));
                    worst = std::max(worst, difference);
                    sum += difference, ++count;
                }
        }
        const double mean = double(sum) / double(count);
        worstMean = std::max(worstMean, mean);
        EXPECT_LE(mean, kWorstMean) << pixels << " px";
    }
    EXPECT_LE(worst, kWorstPixel);
    std::printf("coverage against FreeType: worst pixel %d, worst mean %.3f\n", worst, worstMean);
}

TEST_F(TrueTypeDejaVu, MetricsComeFromTheHeaders) {
    const FT_Face face = judge_->get();
    EXPECT_EQ(font_->units_per_em(), face->units_per_EM);
    EXPECT_EQ(font_->ascent(), face->ascender);
    EXPECT_EQ(font_->descent(), -face->descender);
    EXPECT_EQ(font_->line_gap(), std::max(0, face->height - face->ascender + face->descender));
    EXPECT_FALSE(font_->metric_rounding());
    // A glyph past the font's end measures like glyph 0.
    uint16_t advance = 0, advanceOfZero = 0;
    int16_t lsb = 0, lsbOfZero = 0;
    ASSERT_TRUE(font_->horizontal_metrics(0, advanceOfZero, lsbOfZero));
    ASSERT_TRUE(font_->horizontal_metrics(uint16_t(face->num_glyphs + 3), advance, lsb));
    EXPECT_EQ(advance, advanceOfZero);
    EXPECT_EQ(lsb, lsbOfZero);
}

// ---------------------------------------------------------------------------------------------
// Small fonts for the edge cases, and hostile ones, built once by fontTools.

class TrueTypeBuilt : public testing::Test {
protected:
    static void SetUpTestSuite() {
        dir_ = fs::temp_directory_path() / ("ot_truetype_" + std::to_string(getpid()));
        fs::create_directories(dir_);
        const std::string command = std::string("/usr/bin/python3 ") + OT_FONT_TEST_DIR + "/make_truetype_fonts.py " +
                                    dir_.string();
        made_ = std::system(command.c_str()) == 0;
    }
    static void TearDownTestSuite() { fs::remove_all(dir_); }
    void SetUp() override { ASSERT_TRUE(made_) << "make_truetype_fonts.py failed"; }

    static std::unique_ptr<TrueTypeBackend> built(const std::string& name) { return load(file_bytes(dir_ / name)); }

    static inline fs::path dir_;
    static inline bool made_ = false;
};

TEST_F(TrueTypeBuilt, ChoosesAmongCharacterMaps) {
    // Only a format 12 map: loads, and reaches beyond the basic plane.
    auto font = built("format12_only.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->glyph_index_for_codepoint('A'), 1);
    EXPECT_EQ(font->glyph_index_for_codepoint(0x1F600), 3);
    EXPECT_EQ(font->glyph_index_for_codepoint('B'), 0);
    // Formats 0 and 6 are not read, and platform 1 is not looked at: nothing left to map with.
    EXPECT_EQ(built("format0_6_only.ttf"), nullptr);
    EXPECT_EQ(built("platform1_only.ttf"), nullptr);
    // Format 4 twice: a Windows Unicode BMP map replaces a Unicode one; two others, the first wins.
    font = built("format4_second_enc1.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->glyph_index_for_codepoint('A'), 2);
    font = built("format4_first_enc3.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->glyph_index_for_codepoint('A'), 1);
    font = built("platform1_ignored.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->glyph_index_for_codepoint('A'), 1);
    // Format 4 first; what it maps to 0 is asked of format 12; beyond the plane, format 12 alone.
    font = built("bmp_fallback.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->glyph_index_for_codepoint('A'), 1);
    EXPECT_EQ(font->glyph_index_for_codepoint('B'), 2);
    EXPECT_EQ(font->glyph_index_for_codepoint(0x1F600), 3);
    EXPECT_EQ(font->glyph_index_for_codepoint('C'), 0);
    EXPECT_EQ(font->glyph_index_for_codepoint('B'), 2);  // cached, same answer
}

TEST_F(TrueTypeBuilt, LocaPastTheEndOfGlyfFailsTheLoad) {
    EXPECT_NE(built("shapes.ttf"), nullptr);
    EXPECT_EQ(built("bad_loca.ttf"), nullptr);
}

TEST_F(TrueTypeBuilt, ShapesMatchFreeType) {
    auto font = built("shapes.ttf");
    ASSERT_NE(font, nullptr);
    FreeTypeFace judge(dir_ / "shapes.ttf");
    ASSERT_NE(judge.get(), nullptr);
    // Every glyph but the one anchored by point numbers and the one nested 13 deep.
    for (const char letter : {'A', 'B', 'C', 'D', 'G', 'H'}) {
        SCOPED_TRACE(std::string("glyph of ") + letter);
        const uint16_t glyph = font->glyph_index_for_codepoint(uint32_t(letter));
        ASSERT_EQ(glyph, FT_Get_Char_Index(judge.get(), FT_ULong(letter)));
        std::vector<Contour> expected;
        FT_Pos advance = 0;
        ASSERT_TRUE(judge.unscaled(glyph, expected, advance));
        EXPECT_TRUE(same_contours(our_contours(*font, glyph), expected));
        EXPECT_EQ(font->rasterize(uint32_t(letter), 0.01).advance, advance * 0.01);
    }
}

TEST_F(TrueTypeBuilt, ContoursStartOnTheCurve) {
    auto font = built("shapes.ttf");
    ASSERT_NE(font, nullptr);
    // First point a control point, last point on the curve: the contour begins at the last point.
    std::vector<Contour> contours = our_contours(*font, font->glyph_index_for_codepoint('A'));
    ASSERT_EQ(contours.size(), 1u);
    ASSERT_EQ(contours[0].size(), 6u);
    EXPECT_EQ(contours[0].front().point.x, 0);
    EXPECT_EQ(contours[0].front().point.y, 300);
    EXPECT_FALSE(contours[0][1].on_curve);
    EXPECT_EQ(contours[0].back().point.x, 0);
    EXPECT_EQ(contours[0].back().point.y, 300);

    // Control points only, at the corners of a 400 square: four curves through the side midpoints,
    // which bulge beyond the diamond of those midpoints and stay clear of the corners.
    contours = our_contours(*font, font->glyph_index_for_codepoint('B'));
    ASSERT_EQ(contours.size(), 1u);
    ASSERT_EQ(contours[0].size(), 10u);
    for (size_t i = 0; i + 1 < contours[0].size(); ++i) EXPECT_EQ(contours[0][i].on_curve, i % 2 == 0) << i;
    EXPECT_TRUE(contours[0].back().on_curve);
    EXPECT_EQ(contours[0].front().point.x, 0);
    EXPECT_EQ(contours[0].front().point.y, 200);
    const GlyphBitmap bitmap = font->rasterize('B', 0.1);
    EXPECT_EQ(pixel_at(bitmap, 0, 0), 0);      // the corner, units 0 to 10
    EXPECT_EQ(pixel_at(bitmap, 7, 7), 255);    // units 70 to 80: inside the curve, outside the diamond
    EXPECT_EQ(pixel_at(bitmap, 20, 20), 255);  // the middle
    EXPECT_EQ(pixel_at(bitmap, 39, 39), 0);
}

TEST_F(TrueTypeBuilt, CompositesNestTwelveLevelsDeepAndAnchorOnlyByOffsets) {
    auto font = built("shapes.ttf");
    ASSERT_NE(font, nullptr);
    const double scale = 0.05;
    // Twelve levels, each 10 units further right, around the 200-unit square.
    const std::vector<Contour> contours = our_contours(*font, font->glyph_index_for_codepoint('D'));
    ASSERT_EQ(contours.size(), 1u);
    EXPECT_EQ(contours[0].front().point.x, 120);
    GlyphBitmap bitmap = font->rasterize('D', scale);
    EXPECT_FALSE(blank(bitmap));
    EXPECT_EQ(bitmap.left, 5);  // 120 units at 0.05, less the pixel of margin
    EXPECT_EQ(pixel_at(bitmap, 8, 5), 255);
    // Thirteen levels, and a component placed by point numbers: blank, with their own advances.
    our_contours(*font, font->glyph_index_for_codepoint('E'), false);
    bitmap = font->rasterize('E', scale);
    EXPECT_TRUE(blank(bitmap));
    EXPECT_DOUBLE_EQ(bitmap.advance, 619 * scale);
    bitmap = font->rasterize('F', scale);
    EXPECT_TRUE(blank(bitmap));
    EXPECT_DOUBLE_EQ(bitmap.advance, 626 * scale);
}

TEST_F(TrueTypeBuilt, MetricsFollowHheaAndHmtx) {
    auto font = built("shapes.ttf");
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->units_per_em(), 1000);
    EXPECT_EQ(font->ascent(), 800);
    EXPECT_EQ(font->descent(), 200);  // descender -200
    EXPECT_EQ(font->line_gap(), 0);
    auto positive = built("descent_positive.ttf");
    ASSERT_NE(positive, nullptr);
    EXPECT_EQ(positive->descent(), 0);  // descender +200 lies above the baseline

    // The last three glyphs have no pair of their own: the last pair's advance, their own bearing.
    FreeTypeFace judge(dir_ / "shapes.ttf");
    ASSERT_NE(judge.get(), nullptr);
    const uint16_t glyphs = uint16_t(judge.get()->num_glyphs);
    for (uint16_t glyph = 0; glyph < glyphs; ++glyph) {
        uint16_t advance = 0;
        int16_t lsb = 0;
        ASSERT_TRUE(font->horizontal_metrics(glyph, advance, lsb));
        ASSERT_EQ(FT_Load_Glyph(judge.get(), glyph, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_RECURSE), 0);
        EXPECT_EQ(advance, judge.get()->glyph->metrics.horiAdvance) << glyph;
    }
    for (uint16_t tail = 1; tail <= 3; ++tail) {
        uint16_t advance = 0;
        int16_t lsb = 0;
        ASSERT_TRUE(font->horizontal_metrics(uint16_t(glyphs - 4 + tail), advance, lsb));
        EXPECT_EQ(advance, 555);
        EXPECT_EQ(lsb, 10 * tail);
    }
    // A code point the font lacks draws glyph 0.
    const GlyphBitmap missing = font->rasterize('Z', 0.1), notdef = font->rasterize(0xFFFF, 0.1);
    EXPECT_FALSE(blank(missing));
    EXPECT_EQ(missing.pixels, notdef.pixels);
    EXPECT_DOUBLE_EQ(missing.advance, 50);
}

TEST_F(TrueTypeBuilt, HostileGlyphsEndBlankWithTheirAdvance) {
    auto font = built("hostile.ttf");
    ASSERT_NE(font, nullptr);
    std::vector<Contour> contours;
    // 1600 and 160000 points are drawn; 16 million are refused at the budget, as are a million
    // components that draw nothing.
    ASSERT_TRUE(font->glyph_contours(font->glyph_index_for_codepoint('b'), {}, contours));
    EXPECT_EQ(contours.size(), 100u);
    EXPECT_FALSE(blank(font->rasterize('b', 0.02)));
    ASSERT_TRUE(font->glyph_contours(font->glyph_index_for_codepoint('c'), {}, contours));
    EXPECT_EQ(contours.size(), 10000u);
    GlyphBitmap bitmap = font->rasterize('d', 0.02);
    EXPECT_TRUE(blank(bitmap));
    EXPECT_DOUBLE_EQ(bitmap.advance, 321 * 0.02);
    EXPECT_TRUE(font->glyph_contours(font->glyph_index_for_codepoint('f'), {}, contours));
    EXPECT_TRUE(contours.empty());
    bitmap = font->rasterize('g', 0.02);
    EXPECT_TRUE(blank(bitmap));
    EXPECT_DOUBLE_EQ(bitmap.advance, 432 * 0.02);
    // A composite that contains itself, and a contour that ends before it starts.
    for (const char letter : {'h', 'i'}) {
        bitmap = font->rasterize(uint32_t(letter), 0.02);
        EXPECT_TRUE(blank(bitmap)) << letter;
        EXPECT_DOUBLE_EQ(bitmap.advance, 600 * 0.02) << letter;
    }

    // Glyph data that runs out at the end of the file.
    for (const char* name : {"many_points.ttf", "short_coordinates.ttf", "short_flags.ttf", "short_instructions.ttf"}) {
        SCOPED_TRACE(name);
        auto tail = built(name);
        ASSERT_NE(tail, nullptr);
        EXPECT_FALSE(tail->glyph_contours(tail->glyph_index_for_codepoint('a'), {}, contours));
        bitmap = tail->rasterize('a', 0.5);
        EXPECT_TRUE(blank(bitmap));
        EXPECT_DOUBLE_EQ(bitmap.advance, 345 * 0.5);
    }
}

// ---------------------------------------------------------------------------------------------
// DejaVu Sans, damaged.

TEST(TrueTypeDamaged, TruncatedFilesFailToLoad) {
    const Bytes whole = file_bytes(kDejaVu);
    ASSERT_NE(load(whole), nullptr);
    std::vector<size_t> cuts;
    for (size_t cut = 0; cut < 600; cut += 7) cuts.push_back(cut);  // the header and the directory
    for (size_t cut = 600; cut < whole.size(); cut += whole.size() / 97) cuts.push_back(cut);
    cuts.push_back(whole.size() - 1);
    for (const size_t cut : cuts) {
        const Bytes part(whole.begin(), whole.begin() + std::ptrdiff_t(cut));
        EXPECT_EQ(load(part), nullptr) << "cut at " << cut;
    }
}

TEST(TrueTypeDamaged, BrokenHeadersFailToLoad) {
    const Bytes whole = file_bytes(kDejaVu);
    const auto damaged = [&](size_t at, std::initializer_list<uint8_t> values) {
        Bytes bytes = whole;
        std::copy(values.begin(), values.end(), bytes.begin() + std::ptrdiff_t(at));
        return bytes;
    };
    const auto table = [&](const char* tag) {
        for (size_t record = 12; record < 12 + 16 * size_t(read_u16_be(whole, 4)); record += 16)
            if (read_u32_be(whole, record) == make_tag(tag[0], tag[1], tag[2], tag[3])) return record;
        ADD_FAILURE() << tag;
        return size_t(0);
    };
    EXPECT_EQ(load(damaged(4, {0xFF, 0xFF})), nullptr);  // more tables than the directory holds
    EXPECT_EQ(load(damaged(0, {'O', 'T', 'T', 'O'})), nullptr);
    const size_t glyf = table("glyf"), head = table("head"), maxp = table("maxp"), hhea = table("hhea");
    EXPECT_EQ(load(damaged(glyf + 8, {0x7F, 0xFF, 0xFF, 0xFF})), nullptr);   // offset past the end
    EXPECT_EQ(load(damaged(glyf + 12, {0xFF, 0xFF, 0xFF, 0xF0})), nullptr);  // length past the end
    EXPECT_EQ(load(damaged(table("cmap"), {'c', 'm', 'a', 'q'})), nullptr);  // a table missing
    EXPECT_EQ(load(damaged(read_u32_be(whole, head + 8) + 18, {0, 0})), nullptr);  // units per em 0
    EXPECT_EQ(load(damaged(read_u32_be(whole, maxp + 8) + 4, {0, 0})), nullptr);   // no glyphs
    EXPECT_EQ(load(damaged(read_u32_be(whole, hhea + 8) + 34, {0, 0})), nullptr);  // no metrics
    // More glyphs than loca holds entries for.
    EXPECT_EQ(load(damaged(read_u32_be(whole, maxp + 8) + 4, {0xFF, 0xFF})), nullptr);
}

TEST(TrueTypeDamaged, ScrambledGlyphDataNeverEscapesTheFile) {
    const Bytes whole = file_bytes(kDejaVu);
    size_t glyfOffset = 0, glyfLength = 0;
    for (size_t record = 12; record < 12 + 16 * size_t(read_u16_be(whole, 4)); record += 16)
        if (read_u32_be(whole, record) == make_tag('g', 'l', 'y', 'f'))
            glyfOffset = read_u32_be(whole, record + 8), glyfLength = read_u32_be(whole, record + 12);
    ASSERT_GT(glyfLength, 0u);
    std::mt19937 random(20240607);
    size_t failed = 0, drawn = 0;
    for (int round = 0; round < 2; ++round) {
        Bytes bytes = whole;
        for (int i = 0; i < 3000; ++i) bytes[glyfOffset + random() % glyfLength] = uint8_t(random());
        auto font = load(bytes);
        ASSERT_NE(font, nullptr);
        std::vector<Contour> contours;
        AffineTransform toPixels;
        toPixels.a = toPixels.d = 0.01;
        for (uint16_t glyph = 0; glyph < 6000; glyph += 11) {
            if (!font->glyph_contours(glyph, toPixels, contours)) {
                ++failed;
                continue;
            }
            OutlineBuilder builder;
            drawn += draw_contours(contours, builder);
        }
        // Rasterising costs every sample a walk over all segments: damage that makes a glyph of
        // tens of thousands of points is decoded above, but drawn only when it stays small.
        for (uint32_t codepoint = 'A'; codepoint <= 'z'; ++codepoint) {
            if (!font->glyph_contours(font->glyph_index_for_codepoint(codepoint), toPixels, contours)) continue;
            size_t points = 0;
            for (const Contour& contour : contours) points += contour.size();
            if (points > 500) continue;
            const GlyphBitmap bitmap = font->rasterize(codepoint, 0.0005);
            EXPECT_EQ(bitmap.pixels.size(), size_t(bitmap.width) * size_t(bitmap.height));
        }
    }
    // The damage must have reached the decoder's failure paths, and spared some glyphs.
    EXPECT_GT(failed, 20u);
    EXPECT_GT(drawn, 1000u);
}
