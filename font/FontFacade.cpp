#include "font/FontFacade.h"

#include "font/SailfishFont.h"

using namespace orvane::font;

void* ot_font_load(const char* path, float size) { return sailfish_font_load(path, size); }
void ot_font_resize(void* font, float size) { sailfish_font_resize(static_cast<SailfishFont*>(font), size); }
orvane::NuvraImage* ot_font_render(void* font, const char* text, int r, int g, int b, double a) {
    return sailfish_font_render(static_cast<SailfishFont*>(font), text, r, g, b, a);
}
void ot_font_free(void* font) { sailfish_font_free(static_cast<SailfishFont*>(font)); }
