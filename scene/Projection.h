// The projection renderer: the same scene as the raycaster, drawn the cheaper way, as textured
// triangles with a depth buffer, on the calling thread. No lighting, reflections or fog by
// distance: only the background is fog colour, and nothing beyond maxDistance is drawn.
#pragma once

#include "image/NuvraImage.h"

namespace orvane {

// Does nothing unless `output` has pixels and both sizes are above 0.
void renderProjectionScene(NuvraImage& output);

// Set, each triangle tests every pixel of its box one at a time: the plain route that the row
// spans and four-pixel groups shortcut, for the test that compares the two.
extern bool projectionScansWholeBoxes;

// Straight alpha `source` over `destination`, both RGBA.
void blendPixelOver(uint8_t* destination, const uint8_t* source);

}  // namespace orvane
