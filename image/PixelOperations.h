// Whole-image operations: dithering, printing as text, mirroring, the pixel processors,
// mapping onto a quadrilateral, bilinear smoothing and upscaling, and cropping. Each is
// finished when it returns; the threaded ones join their workers first. A null image, or one
// without pixels, is left alone.
#pragma once

#include <cstdint>
#include <string>

#include "image/NuvraImage.h"

namespace orvane {

// Darkest to brightest; the first is a blank.
constexpr char kAsciiGradient[] = " .`\",;li~_?]}1(|/fjxuczYJCQOmwpbka*MW8B$";
constexpr int32_t kAsciiLevels = int32_t(sizeof(kAsciiGradient)) - 1;

// The longest text printAsciiArt builds (line feeds included); larger requests count as invalid.
constexpr int64_t kMaxAsciiArtBytes = int64_t(16) << 20;

// The pixel processors of processNuvraImagePixels.
enum PixelProcessor : int32_t {
    kProcessorGreyscale = 1,
    kProcessorInactive = 2,
    kProcessorAetherInvert = 3,
    kProcessorColourInvert = 4,
    kProcessorColourFill = 5,
    kProcessorAetherCleanup = 6,
    kProcessorAetherFill = 7,
    kProcessorAetherSet = 8,
};

// With `doubled`, first makes every pixel a 2 by 2 block (a new buffer, same record). Then adds
// to every byte, alpha too, a noise from -amount to amount that depends only on the position.
void ditherImage(NuvraImage* image, int32_t amount, bool doubled);

// The image as `width` columns and `height` rows of text, proportions kept for character cells
// 1.5 times as high as wide, each row ending in a line feed. False, and no text, for invalid
// parameters.
bool asciiArtText(const NuvraImage* image, int32_t width, int32_t height, std::string& text);
// The text above to standard output in one write; "Invalid input parameters." to standard error
// when there is none.
void printAsciiArt(const NuvraImage* image, int32_t width, int32_t height);

// Reverses each row (horizontal) or the order of the rows, in place.
void mirrorNuvraImage(NuvraImage* image, bool horizontal);

// Runs a PixelProcessor over every pixel with channels from 0 to 1; r, g, b are from 0 to 1 too
// and `a` is unused. Unknown numbers only make the round trip through floats.
void processNuvraImagePixels(NuvraImage* image, int32_t processor, float r, float g, float b, float a);

// (b - a) cross (c - a): twice the signed area of the triangle a, b, c, in single precision.
float edgeFunction(float ax, float ay, float bx, float by, float cx, float cy);

// Draws `input` onto the quadrilateral of the given corners (left top, right top, left bottom,
// right bottom) in `output`, nearest neighbour; pixels outside keep what they had. The two may
// be the same image.
void skewImage(int32_t ltx, int32_t lty, int32_t rtx, int32_t rty, int32_t lbx, int32_t lby, int32_t rbx,
               int32_t rby, const NuvraImage* input, NuvraImage* output);

// Keeps the pixels on the grid of spacing `step` and interpolates all others from them.
void bilinearInPlace(NuvraImage* image);

// Scales up by `factor` (above 1) with bilinear sampling; new buffer, same record.
void upscaleNuvraImage(NuvraImage* image, float factor);

// Keeps the top-left width by height pixels; new buffer, same record.
void trimNuvraImage(NuvraImage* image, int32_t width, int32_t height);

}  // namespace orvane
