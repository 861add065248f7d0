// Drawing one image into another: at a position, copied or alpha-blended, scaled and rotated
// about its centre, nearest neighbour.
#pragma once

#include <cstdint>

#include "image/NuvraImage.h"

namespace orvane {

// Work from this many pixels on is shared out over worker threads.
constexpr int64_t kBlitThreadThreshold = 180000;

// Both images must have pixels. A scale of 0 draws nothing. The same image may be both
// target and source: the source is then read from a copy taken first.
void blitImage(NuvraImage& target, const NuvraImage& image, int32_t x, int32_t y, bool blend, float scale,
               float rotation);

}  // namespace orvane
