// The Type 1 reader: against FreeType on a real font for outlines, advances, metrics and
// coverage, and on small fonts built here, encrypted and wrapped as PFB or PFA, for the edges
// of the format and for hostile files.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "font/FontBackend.h"
#include "font/Type1Backend.h"

namespace orvane::font {
namespace {

// The URW sans face as the package ships it in PFB form; its .t1 sibling wraps a binary eexec
// section in PFA text, which this reader does not take.
const char* const kSansPath = "/usr/share/fonts/X11/Type1/NimbusSans-Regular.pfb";

Bytes bytes_of(const std::string& text) { return Bytes(text.begin(), text.end()); }

// The outline the interpreter hands to the builder, at a scale of 1 unless asked.
struct GlyphRun {
    bool ok = false;
    double advance = 0;
    std::vector<LineSegment> segments;
};

GlyphRun run_glyph(const Type1Backend& font, const std::string& name, double scale = 1.0) {
    GlyphRun run;
    const Bytes* charstring = font.charstring(name);
    if (!charstring) return run;
    Type1Interpreter interpreter(font, scale);
    run.ok = interpreter.execute(*charstring, 0);
    run.advance = interpreter.advance();
    run.segments = interpreter.builder().segments();
    return run;
}

using Contour = std::vector<Point>;

// Closed contours as their corner points, each starting where its first segment starts.
std::vector<Contour> contours_of(const std::vector<LineSegment>& segments) {
    std::vector<Contour> contours;
    bool closed = true;
    Point first, last;
    for (const LineSegment& s : segments) {
        if (closed || s.start.x != last.x || s.start.y != last.y) {
            contours.emplace_back();
            first = s.start;
        }
        contours.back().push_back(s.start);
        last = s.end;
        closed = last.x == first.x && last.y == first.y;
    }
    return contours;
}

std::string describe(const std::vector<Contour>& contours) {
    std::ostringstream out;
    for (const Contour& c : contours) {
        out << "[";
        for (const Point& p : c) out << " (" << p.x << "," << p.y << ")";
        out << " ]";
    }
    return out.str();
}

// ---- FreeType as the judge -------------------------------------------------------------------

class Type1FreeType : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(FT_Init_FreeType(&library_), 0);
        ASSERT_EQ(FT_New_Face(library_, kSansPath, 0, &face_), 0) << kSansPath;
        Bytes file;
        ASSERT_TRUE(read_file_bytes(kSansPath, file));
        ASSERT_TRUE(ours_.load(file));
    }
    void TearDown() override {
        if (face_) FT_Done_Face(face_);
        if (library_) FT_Done_FreeType(library_);
    }

    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
    Type1Backend ours_;
};

struct NamedGlyph {
    char code;
    const char* name;
};
const NamedGlyph kLineGlyphs[] = {{'H', "H"}, {'I', "I"}, {'L', "L"}, {'T', "T"}, {'E', "E"}, {'-', "hyphen"}};

TEST_F(Type1FreeType, LineGlyphsHaveTheSameContoursAndAdvance) {
    for (const NamedGlyph& glyph : kLineGlyphs) {
        SCOPED_TRACE(glyph.name);
        ASSERT_EQ(FT_Load_Char(face_, FT_ULong(glyph.code), FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING), 0);
        const FT_Outline& outline = face_->glyph->outline;
        std::vector<Contour> expected;
        for (int c = 0, point = 0; c < outline.n_contours; ++c) {
            expected.emplace_back();
            for (; point <= outline.contours[c]; ++point) {
                ASSERT_TRUE(FT_CURVE_TAG(outline.tags[point]) == FT_CURVE_TAG_ON);
                expected.back().push_back({double(outline.points[point].x), double(outline.points[point].y)});
            }
        }
        const GlyphRun run = run_glyph(ours_, glyph.name);
        ASSERT_TRUE(run.ok);
        const std::vector<Contour> got = contours_of(run.segments);
        EXPECT_EQ(describe(got), describe(expected));
        ASSERT_GT(expected.size(), 0u);
        EXPECT_EQ(run.advance, double(face_->glyph->metrics.horiAdvance));
    }
}

TEST_F(Type1FreeType, CurvedGlyphsAreBlankWithTheirAdvance) {
    const NamedGlyph curved[] = {{'O', "O"}, {'S', "S"}, {'a', "a"}, {'8', "eight"}};
    for (const NamedGlyph& glyph : curved) {
        SCOPED_TRACE(glyph.name);
        ASSERT_EQ(FT_Load_Char(face_, FT_ULong(glyph.code), FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING), 0);
        const double advance = double(face_->glyph->metrics.horiAdvance);
        ASSERT_GT(advance, 0);
        EXPECT_FALSE(run_glyph(ours_, glyph.name).ok);
        const GlyphBitmap bitmap = ours_.rasterize_glyph(glyph.name, 0.024);
        EXPECT_EQ(bitmap.width, 0);
        EXPECT_EQ(bitmap.height, 0);
        EXPECT_TRUE(bitmap.pixels.empty());
        EXPECT_DOUBLE_EQ(bitmap.advance, advance * 0.024);
    }
}

TEST_F(Type1FreeType, MetricsComeFromTheBoundingBox) {
    EXPECT_EQ(ours_.units_per_em(), double(face_->units_per_EM));
    EXPECT_EQ(ours_.ascent(), double(face_->bbox.yMax));
    EXPECT_EQ(ours_.descent(), -double(face_->bbox.yMin));
    EXPECT_EQ(ours_.line_gap(), 0.0);
    EXPECT_TRUE(ours_.metric_rounding());
    // The font names only the standard encoding, which the reader leaves empty.
    EXPECT_EQ(ours_.glyph_name_for_codepoint('H'), ".notdef");
}

// 4 by 4 supersampling against FreeType's exact area coverage, in glyph pixel coordinates over
// the union of both bitmaps. Measured: worst pixel 45 (E at 48 px, a corner), worst mean 17.5
// (I at 16 px: a stem 1.5 pixels wide is all edge, and an edge pixel can be off by an eighth).
TEST_F(Type1FreeType, LineGlyphCoverageFollowsFreeType) {
    constexpr int kWorstAllowed = 56;
    constexpr double kMeanAllowed = 22.0;
    for (const int pixels : {12, 16, 24, 32, 48}) {
        ASSERT_EQ(FT_Set_Pixel_Sizes(face_, 0, FT_UInt(pixels)), 0);
        for (const NamedGlyph& glyph : kLineGlyphs) {
            SCOPED_TRACE(std::string(glyph.name) + " at " + std::to_string(pixels));
            ASSERT_EQ(FT_Load_Char(face_, FT_ULong(glyph.code), FT_LOAD_NO_HINTING | FT_LOAD_RENDER), 0);
            const FT_GlyphSlot slot = face_->glyph;
            const FT_Bitmap& theirs = slot->bitmap;
            ASSERT_EQ(theirs.pixel_mode, FT_PIXEL_MODE_GRAY);
            const GlyphBitmap ours = ours_.rasterize_glyph(glyph.name, pixels / 1000.0);
            ASSERT_GT(ours.width, 0);
            EXPECT_NEAR(ours.advance, double(slot->linearHoriAdvance) / 65536.0, 1e-4);

            const int theirLeft = slot->bitmap_left, theirTop = slot->bitmap_top;
            const int theirWidth = int(theirs.width), theirHeight = int(theirs.rows);
            const int left = std::min(ours.left, theirLeft);
            const int right = std::max(ours.left + ours.width, theirLeft + theirWidth);
            const int top = std::max(ours.top, theirTop);
            const int bottom = std::min(ours.top - ours.height, theirTop - theirHeight);
            const auto ours_at = [&](int x, int y) -> int {
                const int c = x - ours.left, r = ours.top - y;
                if (c < 0 || c >= ours.width || r < 0 || r >= ours.height) return 0;
                return ours.pixels[size_t(r) * size_t(ours.width) + size_t(c)];
            };
            const auto theirs_at = [&](int x, int y) -> int {
                const int c = x - theirLeft, r = theirTop - y;
                if (c < 0 || c >= theirWidth || r < 0 || r >= theirHeight) return 0;
                return theirs.buffer[r * theirs.pitch + c];
            };
            int worst = 0;
            double total = 0;
            for (int y = top; y > bottom; --y)
                for (int x = left; x < right; ++x) {
                    const int difference = std::abs(ours_at(x, y) - theirs_at(x, y));
                    worst = std::max(worst, difference);
                    total += difference;
                }
            const double mean = total / double((right - left) * (top - bottom));
            EXPECT_LE(worst, kWorstAllowed);
            EXPECT_LE(mean, kMeanAllowed);
        }
    }
}

// ---- Fonts built here -----------------------------------------------------------------------
// Binary data is carried in std::string here, which keeps the builders short.

// Both ciphers: the cipher byte is the plain byte XOR the key's high byte, and the key moves on
// with the cipher byte.
std::string encrypt(const std::string& plain, uint16_t key) {
    std::string out;
    for (const char p : plain) {
        const uint8_t c = uint8_t(uint8_t(p) ^ (key >> 8));
        out += char(c);
        key = uint16_t((c + key) * 52845u + 22719u);
    }
    return out;
}

std::string fixed_form(int32_t raw) {
    const uint32_t u = uint32_t(raw);
    return {char(255), char(u >> 24), char(u >> 16), char(u >> 8), char(u)};
}

// A charstring from text: integers, decimals (16.16 in the 255 form) and operator names.
std::string assemble(const std::string& text) {
    static const std::map<std::string, std::string> operators = {
        {"hstem", "\x01"}, {"vstem", "\x03"}, {"vmoveto", "\x04"}, {"rlineto", "\x05"}, {"hlineto", "\x06"},
        {"vlineto", "\x07"}, {"rrcurveto", "\x08"}, {"closepath", "\x09"}, {"callsubr", "\x0a"},
        {"return", "\x0b"}, {"hsbw", "\x0d"}, {"endchar", "\x0e"}, {"rmoveto", "\x15"}, {"hmoveto", "\x16"},
        {"vhcurveto", "\x1e"}, {"dotsection", std::string("\x0c\x00", 2)}, {"seac", "\x0c\x06"},
        {"sbw", "\x0c\x07"}, {"div", "\x0c\x0c"}, {"callothersubr", "\x0c\x10"}, {"pop", "\x0c\x11"},
        {"setcurrentpoint", "\x0c\x21"}};
    std::string out, token;
    std::istringstream in(text);
    while (in >> token) {
        if (const auto found = operators.find(token); found != operators.end()) {
            out += found->second;
        } else if (token.find('.') != std::string::npos) {
            out += fixed_form(int32_t(std::lround(std::stod(token) * 65536.0)));
        } else if (const int v = std::stoi(token); v >= -107 && v <= 107) {
            out += char(v + 139);
        } else if (v >= 108 && v <= 1131) {
            out += char(247 + (v - 108) / 256), out += char((v - 108) % 256);
        } else if (v >= -1131 && v <= -108) {
            out += char(251 + (-v - 108) / 256), out += char((-v - 108) % 256);
        } else {
            out += fixed_form(int32_t(uint32_t(v) << 16));
        }
    }
    return out;
}

struct Entry {
    std::string key;  // subroutine index or glyph name
    std::string program;
    std::optional<int64_t> statedLength = {};  // a length that lies
};

struct TestFont {
    std::string bbox = "{-20 -150 900 750}";
    std::vector<std::pair<int, std::string>> encoding = {{65, "A"}, {66, "B"}};
    std::optional<int> lenIV;  // written when set; the charstrings' padding follows it
    std::vector<Entry> subrs = {{"0", assemble("500 hlineto return")}};
    std::vector<Entry> glyphs = {
        {".notdef", assemble("0 333 hsbw 10 10 rmoveto 50 hlineto 70 vlineto -50 hlineto closepath endchar")},
        {"A", assemble("50 600 hsbw 0 0 rmoveto 500 hlineto 500 vlineto -500 hlineto closepath endchar")},
        {"B", assemble("0 700 hsbw 100 0 rmoveto 0 callsubr -250 400 rlineto closepath endchar")},
    };
    std::function<void(std::string&)> editPrivate = [](std::string&) {};

    std::string clear_text() const {
        std::string text = "%!FontType1-1.0: OrvaneTest 001\n12 dict begin\n/FontName /OrvaneTest def\n"
                           "/FontMatrix [0.001 0 0 0.001 0 0] readonly def\n/FontBBox " + bbox +
                           " readonly def\n/Encoding 256 array\n0 1 255 {1 index exch /.notdef put} for\n";
        for (const auto& [code, name] : encoding) text += "dup " + std::to_string(code) + " /" + name + " put\n";
        return text + "readonly def\ncurrentdict end\ncurrentfile eexec\n";
    }

    std::string entry(const std::string& head, const Entry& e, const std::string& tail) const {
        const std::string data = encrypt(std::string(size_t(std::max(lenIV.value_or(4), 0)), 'Z') + e.program, 4330);
        return head + " " + std::to_string(e.statedLength.value_or(int64_t(data.size()))) + " RD " + data + " " + tail + "\n";
    }

    std::string encrypted() const {
        std::string text = "dup /Private 8 dict dup begin\n/RD{string currentfile exch readstring pop}executeonly def\n"
                           "/ND{noaccess def}executeonly def\n/NP{noaccess put}executeonly def\n/password 5839 def\n";
        if (lenIV) text += "/lenIV " + std::to_string(*lenIV) + " def\n";
        text += "/Subrs " + std::to_string(subrs.size()) + " array\n";
        for (const Entry& e : subrs) text += entry("dup " + e.key, e, "NP");
        text += "ND\n2 index /CharStrings " + std::to_string(glyphs.size()) + " dict dup begin\n";
        for (const Entry& e : glyphs) text += entry("/" + e.key, e, "ND");
        text += "end\nend\nreadonly put\nnoaccess put\ndup/FontName get exch definefont pop\nmark currentfile closefile\n";
        editPrivate(text);
        return encrypt("pad!" + text, 55665);
    }

    Bytes pfb(bool endSegment = true) const {
        std::string out;
        for (const auto& [type, payload] : {std::pair(1, clear_text()), {2, encrypted()}, {1, "0000\ncleartomark\n"}}) {
            const uint32_t n = uint32_t(payload.size());
            out += {char(0x80), char(type), char(n), char(n >> 8), char(n >> 16), char(n >> 24)};
            out += payload;
        }
        if (endSegment) out += {char(0x80), char(3)};
        return bytes_of(out);
    }

    std::string hex() const {
        std::string text;
        const std::string e = encrypted();
        for (size_t i = 0; i < e.size(); ++i) {
            text += "0123456789abcdef"[uint8_t(e[i]) >> 4], text += "0123456789abcdef"[e[i] & 15];
            if (i % 32 == 31) text += '\n';
        }
        return text + "\n";
    }

    // The zeros before "cleartomark" are hex digits too, and decrypt into noise behind the
    // private section, as in fonts in the wild.
    Bytes pfa() const { return bytes_of(clear_text() + hex() + std::string(512, '0') + "\ncleartomark\n"); }
};

std::unique_ptr<Type1Backend> loaded(const Bytes& bytes) {
    auto font = std::make_unique<Type1Backend>();
    if (!font->load(bytes)) return nullptr;
    return font;
}

void expect_contours(const GlyphRun& run, const std::vector<Contour>& expected) {
    EXPECT_TRUE(run.ok);
    EXPECT_EQ(describe(contours_of(run.segments)), describe(expected));
}

const std::vector<Contour> kBoxA = {{{50, 0}, {550, 0}, {550, 500}, {50, 500}}};
const std::vector<Contour> kTriangleB = {{{100, 0}, {600, 0}, {350, 400}}};

bool same_bitmap(const GlyphBitmap& a, const GlyphBitmap& b) {
    return a.left == b.left && a.top == b.top && a.width == b.width && a.height == b.height &&
           a.advance == b.advance && a.pixels == b.pixels;
}

TEST(Type1Synthetic, PfbAndPfaLoadAndGiveTheSameGlyphs) {
    const TestFont built;
    std::unique_ptr<FontBackend> fromPfb = create_backend(built.pfb()), fromPfa = create_backend(built.pfa());
    ASSERT_TRUE(fromPfb && fromPfa);
    for (const FontBackend* backend : {fromPfb.get(), fromPfa.get()}) {
        const auto& font = dynamic_cast<const Type1Backend&>(*backend);
        expect_contours(run_glyph(font, "A"), kBoxA);
        expect_contours(run_glyph(font, "B"), kTriangleB);
        EXPECT_EQ(run_glyph(font, "B").advance, 700);
        EXPECT_EQ(font.glyph_name_for_codepoint('A'), "A");
    }
    for (const uint32_t code : {65u, 66u, 67u}) {
        const GlyphBitmap x = fromPfb->rasterize(code, 0.03), y = fromPfa->rasterize(code, 0.03);
        EXPECT_TRUE(same_bitmap(x, y)) << code;
        EXPECT_GT(x.width, 0);
    }
    // The box A at 30 px spans 1.5 to 16.5 across and 0 to 15 up, trimmed to its ink.
    const GlyphBitmap box = fromPfb->rasterize('A', 0.03);
    EXPECT_EQ(std::vector<int>({box.left, box.top, box.width, box.height}), std::vector<int>({1, 15, 16, 15}));
    EXPECT_EQ(box.pixels[0], 127);
    EXPECT_EQ(box.pixels[1], 255);
    EXPECT_DOUBLE_EQ(box.advance, 18);
}

TEST(Type1Synthetic, SectionsAreFoundInEitherWrapping) {
    const TestFont built;
    const Bytes encrypted = bytes_of(built.encrypted());
    Bytes clear, found;
    ASSERT_TRUE(Type1Backend::extract_sections(built.pfb(false), clear, found));  // no end segment
    EXPECT_EQ(clear, bytes_of(built.clear_text() + "0000\ncleartomark\n"));
    EXPECT_EQ(found, encrypted);
    EXPECT_TRUE(loaded(built.pfb(false)));

    const auto pfa_sections = [](const std::string& text) {
        Bytes c, e;
        return Type1Backend::extract_sections(bytes_of(text), c, e) ? e : Bytes{};
    };
    Bytes withZeros = encrypted;
    withZeros.resize(encrypted.size() + 256, 0);
    const Bytes pfa = built.pfa();
    EXPECT_EQ(pfa_sections(std::string(pfa.begin(), pfa.end())), withZeros);
    // An odd number of hex digits loses the last one; without "cleartomark" the data runs to the end.
    const std::string odd = built.clear_text() + built.hex() + "F\ncleartomark\n";
    EXPECT_EQ(pfa_sections(odd), encrypted);
    EXPECT_TRUE(loaded(bytes_of(odd)));
    EXPECT_EQ(pfa_sections(built.clear_text() + built.hex()), encrypted);

    Bytes pfb = built.pfb();
    pfb[5] = 0x7f;  // the first segment claims more than the file
    EXPECT_FALSE(loaded(pfb));
    EXPECT_FALSE(loaded({0x80, 1, 3, 0, 0, 0, 'a', 'b', 'c', 0x80, 3}));  // no encrypted segment
    EXPECT_FALSE(loaded(bytes_of(built.clear_text())));                    // no hex behind the keyword
}

TEST(Type1Synthetic, BrokenOrMissingPartsFailTheLoad) {
    const auto loads = [](const std::function<void(TestFont&)>& change) {
        TestFont built;
        change(built);
        return loaded(built.pfb()) != nullptr;
    };
    EXPECT_TRUE(loads([](TestFont&) {}));
    EXPECT_FALSE(loads([](TestFont& f) { f.subrs[0].statedLength = 100000; }));
    EXPECT_FALSE(loads([](TestFont& f) { f.glyphs.push_back({"C", assemble("0 500 hsbw endchar"), 100000}); }));
    EXPECT_FALSE(loads([](TestFont& f) { f.glyphs.clear(); }));
    EXPECT_FALSE(loads([](TestFont& f) { f.editPrivate = [](std::string& t) { t[t.find("/Subrs") + 4] = '_'; }; }));
    EXPECT_FALSE(loads([](TestFont& f) {
        f.editPrivate = [](std::string& t) { t[t.find("/Subrs") + 4] = '_', t += "/Subrs\n"; };
    }));
}

TEST(Type1Synthetic, SubroutineTableHasGapsAndBounds) {
    TestFont built;
    built.subrs = {{"0", assemble("500 hlineto return")},
                  {"5", assemble("400 vlineto return")},
                  {"-3", assemble("100 hlineto return")},           // no such index: passed over
                  {"2000000000", assemble("100 hlineto return")}};  // more than the file could hold
    built.glyphs.push_back({"G", assemble("0 600 hsbw 0 0 rmoveto 0 callsubr 3 callsubr 5 callsubr closepath endchar")});
    built.glyphs.push_back({"F", assemble("0 600 hsbw 0 0 rmoveto 6 callsubr endchar")});
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    ASSERT_EQ(font->subrs().size(), 6u);
    for (size_t i = 1; i < 5; ++i) EXPECT_TRUE(font->subrs()[i].empty()) << i;
    expect_contours(run_glyph(*font, "G"), {{{0, 0}, {500, 0}, {500, 400}}});
    const GlyphRun outside = run_glyph(*font, "F");
    EXPECT_FALSE(outside.ok);
    EXPECT_EQ(outside.advance, 600);
}

TEST(Type1Synthetic, SubroutinesNestSixteenDeep) {
    // Subroutine k calls k + 1 up to 16, which draws: from 1 that is 16 calls deep, from 0 17.
    TestFont built;
    built.subrs.clear();
    for (int k = 0; k < 16; ++k) built.subrs.push_back({std::to_string(k), assemble(std::to_string(k + 1) + " callsubr return")});
    built.subrs.push_back({"16", assemble("300 hlineto 300 vlineto return")});
    built.glyphs.push_back({"D16", assemble("0 400 hsbw 0 0 rmoveto 1 callsubr closepath endchar")});
    built.glyphs.push_back({"D17", assemble("0 400 hsbw 0 0 rmoveto 0 callsubr closepath endchar")});
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    expect_contours(run_glyph(*font, "D16"), {{{0, 0}, {300, 0}, {300, 300}}});
    EXPECT_FALSE(run_glyph(*font, "D17").ok);
    const GlyphBitmap failed = font->rasterize_glyph("D17", 0.01);
    EXPECT_TRUE(failed.width == 0 && failed.pixels.empty());
    EXPECT_DOUBLE_EQ(failed.advance, 4);
}

TEST(Type1Synthetic, LenIVSetsThePaddingAndNegativeMeansNone) {
    for (const int lenIV : {0, -1, 1, 4, 7}) {
        SCOPED_TRACE(lenIV);
        TestFont built;
        built.lenIV = lenIV;
        const auto font = loaded(built.pfb());
        ASSERT_TRUE(font);
        EXPECT_EQ(font->lenIV(), lenIV);
        expect_contours(run_glyph(*font, "A"), kBoxA);
        expect_contours(run_glyph(*font, "B"), kTriangleB);
    }
    // Padding as long as the data leaves nothing; eexec needs a byte behind its four.
    const Bytes cipher = bytes_of(encrypt("abc", 4330));
    EXPECT_EQ(Type1Backend::decrypt_charstring(cipher, -5), bytes_of("abc"));
    EXPECT_EQ(Type1Backend::decrypt_charstring(cipher, 2), bytes_of("c"));
    EXPECT_TRUE(Type1Backend::decrypt_charstring(cipher, 3).empty());
    EXPECT_TRUE(Type1Backend::decrypt_eexec(bytes_of(encrypt("abcd", 55665))).empty());
    EXPECT_EQ(Type1Backend::decrypt_eexec(bytes_of(encrypt("abcde", 55665))), bytes_of("e"));
}

TEST(Type1Synthetic, BoundingBoxGivesAscentAndDescent) {
    const auto metrics = [](const std::string& bbox) {
        TestFont built;
        built.bbox = bbox;
        const auto font = loaded(built.pfb());
        return font ? std::make_pair(font->ascent(), font->descent()) : std::make_pair(-1.0, -1.0);
    };
    EXPECT_EQ(metrics("{-20 -150 900 750}"), std::make_pair(750.0, 150.0));
    EXPECT_EQ(metrics("[0 100 1000 900]"), std::make_pair(900.0, 0.0));   // bottom above the baseline
    EXPECT_EQ(metrics("{0 -300 1000 -10}"), std::make_pair(0.0, 300.0));  // top below it
    EXPECT_EQ(metrics("{-1.5e1 -212.5 1000 987.25}"), std::make_pair(987.25, 212.5));
    EXPECT_EQ(metrics("{0 -100 1000}"), std::make_pair(800.0, 200.0));  // too few numbers
}

TEST(Type1Synthetic, CodePointsFallToNotdef) {
    TestFont built;
    built.encoding = {{65, "A"}, {66, "B"}, {67, "Missing"}, {300, "A"}};
    const auto font = loaded(built.pfa());
    ASSERT_TRUE(font);
    const GlyphBitmap notdef = font->rasterize_glyph(".notdef", 0.1);
    ASSERT_GT(notdef.width, 0);
    EXPECT_DOUBLE_EQ(notdef.advance, 33.3);
    for (const uint32_t code : {65u + 256u, 0x10041u, 67u, 68u, 300u, 0xffffffffu})
        EXPECT_TRUE(same_bitmap(font->rasterize(code, 0.1), notdef)) << code;
    EXPECT_FALSE(same_bitmap(font->rasterize(65, 0.1), notdef));

    built.glyphs.erase(built.glyphs.begin());  // without .notdef a missing glyph is nothing at all
    const auto bare = loaded(built.pfb());
    ASSERT_TRUE(bare);
    const GlyphBitmap nothing = bare->rasterize(68, 0.1);
    EXPECT_TRUE(nothing.width == 0 && nothing.advance == 0);
}

TEST(Type1Synthetic, EndcharInsideASubroutineEndsTheGlyph) {
    TestFont built;
    built.subrs = {{"0", assemble("100 vlineto closepath endchar 999 hlineto")}};
    built.glyphs.push_back({"E", assemble("0 500 hsbw 0 0 rmoveto 100 hlineto 0 callsubr 300 hlineto 300 vlineto endchar")});
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    expect_contours(run_glyph(*font, "E"), {{{0, 0}, {100, 0}, {100, 100}}});
}

TEST(Type1Synthetic, NumberForms) {
    TestFont built;
    built.glyphs.push_back({"N", assemble("12.5 500.75 hsbw 0 0 rmoveto -1131 hlineto 1131 vlineto 108 -108 rlineto "
                                         "-107 hlineto 107 vlineto -30000.5 hlineto 20000 vlineto closepath endchar")});
    built.glyphs.push_back({"T", assemble("0 700 hsbw") + std::string("\xff\x00\x01", 3)});  // a cut 255 form
    built.glyphs.push_back({"U", assemble("0 700 hsbw 5") + "\xf8"});                         // a cut two-byte form
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    const GlyphRun run = run_glyph(*font, "N");
    EXPECT_EQ(run.advance, 500.75);
    Contour expected = {{12.5, 0}};
    for (const auto& [dx, dy] : std::vector<std::pair<double, double>>{
             {-1131, 0}, {0, 1131}, {108, -108}, {-107, 0}, {0, 107}, {-30000.5, 0}, {0, 20000}})
        expected.push_back({expected.back().x + dx, expected.back().y + dy});
    expect_contours(run, {expected});
    for (const char* name : {"T", "U"}) {
        EXPECT_TRUE(run_glyph(*font, name).ok) << name;
        EXPECT_EQ(run_glyph(*font, name).advance, 700) << name;
    }
}

TEST(Type1Synthetic, OperatorsBeyondLinesFailWithTheAdvanceSoFar) {
    TestFont built;
    const std::pair<const char*, std::string> cases[] = {
        {"curve", assemble("0 640 hsbw 0 0 rmoveto 10 10 20 20 30 30 rrcurveto endchar")},
        {"vh", assemble("0 640 hsbw 0 0 rmoveto 10 20 30 40 vhcurveto endchar")},
        {"dot", assemble("0 640 hsbw dotsection endchar")},
        {"seac", assemble("0 640 hsbw 0 0 0 65 66 seac")},
        {"div", assemble("0 640 hsbw 10 2 div hlineto endchar")},
        {"unknown", assemble("0 640 hsbw") + "\x02" + assemble("endchar")},
        {"short", assemble("0 640 hsbw 5 rlineto endchar")},
        {"othersubr", assemble("0 640 hsbw 0 0 rmoveto 3 0 1 3 callothersubr pop callsubr endchar")},
        {"escapeAtEnd", assemble("0 640 hsbw") + "\x0c"},
    };
    for (const auto& [name, program] : cases) built.glyphs.push_back({name, program});
    built.glyphs.push_back({"nohsbw", assemble("0 0 rmoveto 10 10 rrcurveto")});
    built.glyphs.push_back({"sbw", assemble("5 7 640 0 sbw 0 0 rmoveto 100 hlineto 0 1 3 setcurrentpoint "
                                           "100 vlineto 1 2 pop 9 1 1 callothersubr closepath endchar")});
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    for (const auto& [name, program] : cases) {
        EXPECT_FALSE(run_glyph(*font, name).ok) << name;
        const GlyphBitmap bitmap = font->rasterize_glyph(name, 0.05);
        EXPECT_EQ(bitmap.width, 0) << name;
        EXPECT_DOUBLE_EQ(bitmap.advance, 32) << name;
    }
    EXPECT_EQ(font->rasterize_glyph("nohsbw", 0.05).advance, 0);
    expect_contours(run_glyph(*font, "sbw"), {{{5, 7}, {105, 7}, {105, 107}}});
}

TEST(Type1Synthetic, RunawayGlyphsFailQuickly) {
    // Fifteen levels of subroutines each calling the next ten times, and a sixteenth that does
    // the work: 10^15 calls unless cut. The first chain only moves and runs out of steps; the
    // second draws back and forth and runs out of segments first.
    TestFont built;
    built.subrs.clear();
    for (const auto& [base, leaf] : {std::pair(0, "3 3 rmoveto"), {16, "1 0 rlineto -1 0 rlineto"}}) {
        for (int k = 0; k < 15; ++k) {
            std::string body;
            for (int i = 0; i < 10; ++i) body += std::to_string(base + k + 1) + " callsubr ";
            built.subrs.push_back({std::to_string(base + k), assemble(body + "return")});
        }
        built.subrs.push_back({std::to_string(base + 15), assemble(std::string(leaf) + " return")});
    }
    built.glyphs.push_back({"Tame", assemble("0 450 hsbw 12 callsubr 28 callsubr endchar")});  // 10^3 each
    built.glyphs.push_back({"Bomb", assemble("0 450 hsbw 0 callsubr endchar")});
    built.glyphs.push_back({"Lines", assemble("0 450 hsbw 0 0 rmoveto 16 callsubr endchar")});
    built.glyphs.push_back({"Huge", assemble("0 450 hsbw 0 0 rmoveto 30000.5 hlineto 30000.5 vlineto closepath endchar")});
    const auto font = loaded(built.pfb());
    ASSERT_TRUE(font);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(run_glyph(*font, "Tame").ok);
    EXPECT_FALSE(run_glyph(*font, "Bomb").ok);
    EXPECT_FALSE(run_glyph(*font, "Lines").ok);
    EXPECT_TRUE(run_glyph(*font, "Huge").ok);  // runs, but is too big to fill
    for (const char* name : {"Bomb", "Lines", "Huge"}) {
        const GlyphBitmap bitmap = font->rasterize_glyph(name, 1.0);
        EXPECT_TRUE(bitmap.width == 0 && bitmap.pixels.empty()) << name;
        EXPECT_EQ(bitmap.advance, 450) << name;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(3));
}

// Cuts of a font and damaged copies load or fail cleanly, and whatever loads renders; the
// sanitizers judge.
TEST(Type1Synthetic, DamagedFilesNeverCrash) {
    const TestFont built;
    for (const Bytes& whole : {built.pfb(), built.pfa()}) {
        for (size_t cut = 0; cut < whole.size(); cut += 7)
            if (const auto font = loaded(Bytes(whole.begin(), whole.begin() + ptrdiff_t(cut)))) font->rasterize('A', 0.02);
        uint32_t seed = 12345;
        const auto next = [&] { return seed = seed * 1664525u + 1013904223u; };
        for (int round = 0; round < 1500; ++round) {
            Bytes damaged = whole;
            for (int flips = 1 + int(next() >> 29); flips > 0; --flips) damaged[(next() >> 8) % damaged.size()] = uint8_t(next() >> 24);
            if (const auto font = loaded(damaged))
                for (const uint32_t code : {65u, 66u, 0u}) font->rasterize(code, 0.02);
        }
    }
}

}  // namespace
}  // namespace orvane::font
