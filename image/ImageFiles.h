// The engine's doors to the codec library: a loaded file as one pixel array, a PNG written
// from pixels.
#pragma once

#include <cstdint>

namespace orvane {

// Any supported format, found by content. A new[] array of width * height RGBA pixels, or null
// (sizes then 0); either size pointer may be null.
uint8_t* ot_load_png(const char* path, int32_t* width, int32_t* height);
// Whether loaded pixels are premultiplied and must be undone by the caller: ours never are.
bool ot_png_requires_postprocess();
bool ot_save_png(const char* path, const uint8_t* pixels, int32_t width, int32_t height);

}  // namespace orvane
