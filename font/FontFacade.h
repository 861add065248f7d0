// The one door to text: scripts' fonts go through these four, which forward to the Qt path.
// The engine's own path (font/OwnFontPath.h) has the same four faces and contract; this file is
// the only thing to change to draw with it instead.
#pragma once

#include "image/NuvraImage.h"

// An opaque font, or null.
void* ot_font_load(const char* path, float size);
void ot_font_resize(void* font, float size);
// A new image the caller owns, or null; alpha travels as a double so both paths round it alike.
orvane::NuvraImage* ot_font_render(void* font, const char* text, int r, int g, int b, double a);
void ot_font_free(void* font);
