// Glyphs rasterised per second by our TrueType path and by FreeType (unhinted, anti-aliased)
// on DejaVu Sans at 16 and 48 pixels, every printable ASCII character from the outline each
// time (no cache); and a 100-character line drawn through the Qt text path.
#include <ft2build.h>
#include FT_FREETYPE_H

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "font/FontFacade.h"
#include "font/OwnFontPath.h"
#include "font/TrueTypeBackend.h"

namespace {

using Clock = std::chrono::steady_clock;
const char* const kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr double kSecondsPerCase = 1.0;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Calls `one(codepoint)` over printable ASCII until a second has passed; glyphs per second.
template <typename F>
double glyphsPerSecond(F one) {
    long glyphs = 0;
    const auto start = Clock::now();
    do {
        for (uint32_t c = 33; c < 127; ++c, ++glyphs) one(c);
    } while (seconds(start) < kSecondsPerCase);
    return double(glyphs) / seconds(start);
}

}  // namespace

int main() {
    using namespace orvane::font;
    Bytes bytes;
    TrueTypeBackend ours;
    if (!read_file_bytes(kFont, bytes) || !ours.load(bytes)) {
        std::fprintf(stderr, "cannot load %s\n", kFont);
        return 1;
    }
    FT_Library library;
    FT_Face face;
    if (FT_Init_FreeType(&library) || FT_New_Face(library, kFont, 0, &face)) return 1;

    std::printf("%-8s %16s %16s %8s\n", "pixels", "ours glyphs/s", "FreeType glyphs/s", "ratio");
    for (int pixels : {16, 48}) {
        const double scale = double(pixels) / ours.units_per_em();
        long ink = 0;
        const double mine = glyphsPerSecond([&](uint32_t c) { ink += long(ours.rasterize(c, scale).pixels.size()); });
        FT_Set_Pixel_Sizes(face, 0, FT_UInt(pixels));
        const double theirs = glyphsPerSecond([&](uint32_t c) {
            FT_Load_Char(face, c, FT_LOAD_RENDER | FT_LOAD_NO_HINTING);
            ink += long(face->glyph->bitmap.rows);
        });
        std::printf("%-8d %16.0f %16.0f %7.2fx\n", pixels, mine, theirs, mine / theirs);
        if (ink < 0) std::puts("");  // keeps the work from being optimised away
    }
    FT_Done_Face(face);
    FT_Done_FreeType(library);

    // The Qt path needs a platform; headless machines get the offscreen one.
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    void* font = ot_font_load(kFont, 18);
    std::string line;
    while (line.size() < 100) line += "The quick brown fox jumps over the lazy dog. ";
    line.resize(100);
    long lines = 0;
    const auto start = Clock::now();
    do {
        orvane::NuvraImage* image = ot_font_render(font, line.c_str(), 255, 255, 255, 255);
        orvane::freeNuvraImage(image);
        ++lines;
    } while (seconds(start) < kSecondsPerCase);
    const double perSecond = double(lines) / seconds(start);
    std::printf("Qt path, a 100-character line at 18 pixels: %.0f lines/s, %.1f us a line\n", perSecond, 1e6 / perSecond);
    ot_font_free(font);
    return 0;
}
