// The engine's one image type, the set of images that scripts may test and free, and the
// pixel accessors that tolerate bad coordinates.
#pragma once

#include <cstdint>
#include <unordered_set>

namespace orvane {

// Straight RGBA, rows from the top, no padding. A plain record: only the creators below and
// freeNuvraImage make and release it, so a script's pointer stays good while buffers change.
struct NuvraImage {
    int32_t width;
    int32_t height;
    uint8_t* pixels;
    int32_t reflectWidth;
    int32_t reflectHeight;
    uint8_t* reflectPixels;
};

// Images the script world may legally test and free; touched on the script thread only.
// Never destroyed: images that scripts did not free stay reachable until the process ends.
extern std::unordered_set<NuvraImage*>& liveNuvraImages;

NuvraImage* createSolidColourImage(int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b, uint8_t a);
void setPixel(NuvraImage* image, int32_t x, int32_t y, uint8_t r, uint8_t g, uint8_t b, uint8_t a);
// Outside the image, or without one, this reads as one transparent black pixel.
const uint8_t* getPixel(const NuvraImage* image, int32_t x, int32_t y);

// False for null, unregistered or inconsistent images; an inconsistent one is reset to 0 by 0.
bool cleanImage(NuvraImage* image);
// Releases a registered image; anything else (null, stale, foreign) is ignored.
void killNuvraImage(NuvraImage* image);

}  // namespace orvane
