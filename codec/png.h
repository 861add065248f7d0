// The PNG reader's pieces, shared by the front and by the tests of the reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "codec/inflate.h"

namespace ot::png {

extern const uint8_t kPngSignature[8];

struct Header {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bitDepth = 0;
    uint32_t colourType = 0;
    uint32_t compression = 0;
    uint32_t filter = 0;
    uint32_t interlace = 0;
};

struct ParsedPng {
    struct FrameControl {
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t xOffset = 0;
        uint32_t yOffset = 0;
        uint32_t dispose = 0;
        uint32_t blend = 0;
    };
    struct Frame {
        FrameControl control;
        bool usesIdat = false;
        std::vector<ByteSpan> spans;
    };

    Header header;
    bool sawHeader = false;
    bool sawEnd = false;
    bool sawAnimationControl = false;
    uint32_t frameCount = 0;
    uint64_t idatBytes = 0;
    std::vector<uint8_t> palette;
    std::vector<uint8_t> transparency;
    std::vector<ByteSpan> idatSpans;
    std::vector<Frame> frames;
};

struct DecodeTables {
    std::vector<uint8_t> paletteRgba;
    uint16_t transparentGrey = 0;
    uint16_t transparentRed = 0;
    uint16_t transparentGreen = 0;
    uint16_t transparentBlue = 0;
    bool hasGreyKey = false;
    bool hasColourKey = false;
};

bool parse_png(const uint8_t* data, size_t size, ParsedPng& parsed);
bool build_decode_tables(const Header& header, const std::vector<uint8_t>& palette,
                         const std::vector<uint8_t>& transparency, DecodeTables& tables);
bool decode_png_frame(const Header& header, const std::vector<ByteSpan>& spans, const DecodeTables& tables,
                      std::vector<uint8_t>& rgba);
bool decode_apng_squashed(const ParsedPng& parsed, const DecodeTables& tables, std::vector<uint8_t>& rgba);

// Source over destination, one RGBA pixel, in integers.
void alpha_over_pixel(uint8_t* destination, const uint8_t* source);

}  // namespace ot::png
