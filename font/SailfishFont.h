// Text through Qt: the path every script's text takes on the device.
#pragma once

#include "image/NuvraImage.h"

namespace orvane::font {

struct SailfishFont;

// Never null: a file Qt cannot read gives the fallback family at the asked size.
SailfishFont* sailfish_font_load(const char* path, float size);
void sailfish_font_resize(SailfishFont* font, float size);
// Null for a null font or text; the caller owns the image.
NuvraImage* sailfish_font_render(SailfishFont* font, const char* text, int r, int g, int b, double a);
void sailfish_font_free(SailfishFont* font);

}  // namespace orvane::font
