// What the JPEG reader and writer share: the coefficient order and the DCT's cosines.
#pragma once

#include <cstdint>

namespace ot::png {

// Natural (row-major) position of the k-th coefficient in the zig-zag order of the file.
extern const uint8_t kJpegZigZag[64];

// The DCT's scale of the zero frequency, c(0); every other frequency has c = 1.
constexpr double kJpegC0 = 0.7071067811865476;

// cos((2x + 1) u pi / 16) at [x][u], built on first use.
const double (&jpeg_cosines())[8][8];

}  // namespace ot::png
