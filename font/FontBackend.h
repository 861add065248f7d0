// The interface of a font file reader, and the choice of reader for a file's bytes.
#pragma once

#include <memory>

#include "font/FontBytes.h"
#include "font/Outline.h"

namespace orvane::font {

class FontBackend {
public:
    virtual ~FontBackend() = default;
    // The whole font file; false when it cannot be read as this kind of font.
    virtual bool load(Bytes bytes) = 0;
    // The glyph of a code point at `scale` pixels per font unit; never fails: a glyph that cannot
    // be decoded is blank with an advance.
    virtual GlyphBitmap rasterize(uint32_t codepoint, double scale) = 0;
    virtual double units_per_em() const = 0;
    virtual double ascent() const = 0;    // font units, positive above the baseline
    virtual double descent() const = 0;   // font units, positive below the baseline
    virtual double line_gap() const = 0;  // font units
    // How metrics become whole pixels: false takes the ceiling, true rounds to nearest.
    virtual bool metric_rounding() const = 0;
};

// A TrueType reader when the data starts like one and loads, else a Type 1 reader when the
// first byte is 0x80 or '%' and it loads; null otherwise.
std::unique_ptr<FontBackend> create_backend(const Bytes& bytes);

}  // namespace orvane::font
