// The raycast renderer: one full 3D ray per sample walks the cell grid, passes clear texels,
// gathers translucent ones, bounces off reflective surfaces and ends on an opaque surface lit
// by the lights, or in the fog. Samples are `step` pixels apart; rows of samples are shared
// out over up to AllowedThreads threads, all joined before it returns.
#pragma once

#include <cstdint>

#include "image/NuvraImage.h"

namespace orvane {

struct TransparentLayer {
    uint8_t r, g, b;
    float alpha;
    float distance;  // along all bounces
};

// Draws the world from its camera into `output`, overwriting every pixel, alpha 255.
// `output` must have pixels.
void renderScene(NuvraImage& output);

}  // namespace orvane
