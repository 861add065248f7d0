// The Type 1 reader: PFB and PFA, both ciphers, a line-only charstring interpreter. The clear
// text is read only for the bounding box and the encoding; the private section is scanned for
// its subroutines and charstrings by keyword, not interpreted.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "font/FontBackend.h"

namespace orvane::font {

class Type1Backend : public FontBackend {
public:
    bool load(Bytes bytes) override;
    GlyphBitmap rasterize(uint32_t codepoint, double scale) override;
    double units_per_em() const override { return units_per_em_; }
    double ascent() const override { return ascent_; }
    double descent() const override { return descent_; }
    double line_gap() const override { return 0.0; }
    bool metric_rounding() const override { return true; }

    // The glyph of a name, falling back to ".notdef"; blank with advance 0 when neither exists.
    GlyphBitmap rasterize_glyph(const std::string& name, double scale) const;
    std::string glyph_name_for_codepoint(uint32_t codepoint) const;
    // The decrypted charstring of a glyph, null when the font has none of that name.
    const Bytes* charstring(const std::string& name) const;
    const std::vector<Bytes>& subrs() const { return subrs_; }
    int32_t lenIV() const { return lenIV_; }

    // The clear text and the still encrypted private section, from PFB segments or a PFA's hex.
    static bool extract_sections(const Bytes& bytes, Bytes& clear, Bytes& encrypted);
    static Bytes decrypt_eexec(const Bytes& bytes);
    static Bytes decrypt_charstring(const Bytes& bytes, int32_t lenIV);

private:
    bool parse_clear_text(const Bytes& clear);
    bool parse_private_section(const Bytes& decrypted);

    double units_per_em_ = 1000.0;
    double ascent_ = 800.0;
    double descent_ = 200.0;
    int32_t lenIV_ = 4;
    std::vector<std::string> encoding_ = std::vector<std::string>(256);
    std::vector<Bytes> subrs_;
    std::unordered_map<std::string, Bytes> charstrings_;
};

// Runs one glyph's charstring, feeding its moves and lines, in pixels, to an OutlineBuilder.
// Anything but straight lines fails the glyph.
class Type1Interpreter {
public:
    Type1Interpreter(const Type1Backend& backend, double scale) : backend_(backend), scale_(scale) {}

    bool execute(const Bytes& charstring, int32_t depth);
    const OutlineBuilder& builder() const { return builder_; }
    double advance() const { return advance_; }  // pixels

    // A glyph that runs more steps than this fails: nesting is limited to 16 levels, but each
    // subroutine may call many more, so the work could grow as fan-out to the 16th power.
    static constexpr uint64_t kMaxSteps = 1'000'000;
    // Line-only glyphs hold tens of segments; more than this is a file that only wants memory.
    static constexpr size_t kMaxSegments = 1 << 16;

private:
    double read_number(uint8_t byte, const Bytes& charstring, size_t& position) const;
    void push_number(double value) { stack_.push_back(value); }
    bool handle_escaped(uint8_t byte);
    bool handle_operator(uint8_t byte, int32_t depth);

    bool handle_vmoveto();
    bool handle_rlineto();
    bool handle_hlineto();
    bool handle_vlineto();
    bool handle_closepath();
    bool handle_callsubr(int32_t depth);
    bool handle_return();
    bool handle_hsbw();
    bool handle_endchar();
    bool handle_rmoveto();
    bool handle_hmoveto();
    bool handle_sbw();
    bool handle_callothersubr();
    bool handle_pop();
    bool handle_setcurrentpoint();

    void move_to_current();
    bool line_to_current();
    void close_path();
    Point scale_point(double x, double y) const { return {x * scale_, y * scale_}; }

    const Type1Backend& backend_;
    double scale_;
    std::vector<double> stack_;
    OutlineBuilder builder_;
    double x_ = 0, y_ = 0;            // current point, font units
    double startX_ = 0, startY_ = 0;  // contour start, font units
    double advance_ = 0;
    bool pathOpen_ = false, returned_ = false, ended_ = false;
    uint64_t steps_ = 0;
};

}  // namespace orvane::font
