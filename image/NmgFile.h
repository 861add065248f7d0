// The raw image file: width and height as 64-bit little-endian words, the pixels as in memory,
// then the reflection map the same way. No magic, no version, no checksum.
#pragma once

#include "image/NuvraImage.h"

namespace orvane {

// True when the path ends in ".nmg" exactly (case matters) and is longer than 3 characters.
bool hasNMGExtension(const char* path);
bool saveNuvraImage(const NuvraImage* image, const char* path);
// A new image (not yet live), or null for a missing, short or malformed file.
NuvraImage* loadNuvraImage(const char* path);

}  // namespace orvane
