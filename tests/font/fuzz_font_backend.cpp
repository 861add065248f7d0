// libFuzzer target: any bytes through one font reader (OT_FUZZ_BACKEND, TrueTypeBackend or
// Type1Backend), which must refuse them cleanly or draw a few glyphs, quickly and in bounded
// memory; a glyph it cannot decode must still come out as a bitmap that fits its stated size.
#include <cstdlib>

#include "font/TrueTypeBackend.h"
#include "font/Type1Backend.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvane::font::OT_FUZZ_BACKEND backend;
    if (!backend.load(orvane::font::Bytes(data, data + size))) return 0;
    const double scale = 16.0 / backend.units_per_em();
    for (uint32_t codepoint : {0u, 32u, 65u, 103u, 49u, 0xC9u, 0x20ACu, 0x1F600u}) {
        const orvane::font::GlyphBitmap glyph = backend.rasterize(codepoint, scale);
        if (glyph.width < 0 || glyph.height < 0 || glyph.pixels.size() != size_t(glyph.width) * size_t(glyph.height))
            std::abort();
    }
    return 0;
}
