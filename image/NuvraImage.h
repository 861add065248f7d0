// The engine's one image type, the set of images that scripts may test and free, and the
// pixel accessors that tolerate bad coordinates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

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

// What a script holds for an image. Handles count up from a tagged base and are never given
// twice, so a killed image's handle cannot come to name another image, whatever address the
// allocator hands the next one; the tag keeps them apart from any real address.
using ImageHandle = uint64_t;
constexpr ImageHandle kImageHandleTag = ImageHandle(0x494D) << 48;

// The images the script world may reach, test and free, by handle; touched on the script thread
// only. Never destroyed: images that scripts did not free stay reachable until the process ends.
class LiveImages {
public:
    // Enters a new image and gives its handle.
    ImageHandle enter(NuvraImage* image);
    // Null for a handle that was killed or never given.
    NuvraImage* find(ImageHandle handle) const;
    // Releases the image behind a handle; anything else (killed, foreign) is ignored.
    void kill(ImageHandle handle);
    size_t size() const { return images.size(); }

private:
    std::unordered_map<ImageHandle, NuvraImage*> images;
    ImageHandle next = kImageHandleTag + 1;
};

extern LiveImages& liveNuvraImages;

// The most pixels one image may hold (2^28, a gigabyte): larger sizes are refused before anything
// is allocated, as are sizes the memory cannot give.
constexpr int64_t kMaxImagePixels = int64_t(1) << 28;
// Width times height pixels, uninitialised; null when refused as above.
uint8_t* allocatePixels(int32_t width, int32_t height);

// Width and height below 1 count as 1. Null when the pixels cannot be allocated.
NuvraImage* createSolidColourImage(int32_t width, int32_t height, uint8_t r, uint8_t g, uint8_t b, uint8_t a);
void setPixel(NuvraImage* image, int32_t x, int32_t y, uint8_t r, uint8_t g, uint8_t b, uint8_t a);
// Outside the image, or without one, this reads as one transparent black pixel.
const uint8_t* getPixel(const NuvraImage* image, int32_t x, int32_t y);

// False for null or inconsistent images; an inconsistent one is reset to 0 by 0.
bool cleanImage(NuvraImage* image);
// Releases the buffers and the record; for images that never entered the live set, or left it.
void freeNuvraImage(NuvraImage* image);

}  // namespace orvane
