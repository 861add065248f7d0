// The module Font: fonts and text images through the font facade.
#include "font/FontFacade.h"
#include "host/HostModules.h"
#include "host/NuvraModule.h"

namespace orvane {

namespace {

Variable renderText(const VariableArray& args) {
    const std::string label = "Font.renderText";
    const std::string text = stringValue(requireArg(args, 0, label), label, "text");
    void* font = pointerValue(requireArg(args, 1, label), label, "font");
    const int32_t r = integerValue(requireArg(args, 2, label), label, "r");
    const int32_t g = integerValue(requireArg(args, 3, label), label, "g");
    const int32_t b = integerValue(requireArg(args, 4, label), label, "b");
    const double a = integerValue(requireArg(args, 5, label), label, "a");
    return liveImageVariable(ot_font_render(font, text.c_str(), r, g, b, a));
}

Variable resizeFont(const VariableArray& args) {
    const std::string label = "Font.resizeFont";
    void* font = pointerValue(requireArg(args, 0, label), label, "font");
    ot_font_resize(font, floatValue(requireArg(args, 1, label), label, "size"));
    return Variable();
}

Variable killFont(const VariableArray& args) {
    ot_font_free(pointerValue(requireArg(args, 0, "Font.killFont"), "Font.killFont", "font"));
    return Variable();
}

Variable loadFont(const VariableArray& args) {
    const std::string label = "Font.loadFont";
    const std::string path = stringValue(requireArg(args, 0, label), label, "path");
    const float size = floatValue(requireArg(args, 1, label), label, "size");
    void* font = ot_font_load(path.c_str(), size);
    return font ? Variable(font) : Variable();
}

}  // namespace

Variable makeFontModule() {
    return makeModule("Font", {{"renderText", renderText}, {"resizeFont", resizeFont}, {"killFont", killFont},
                               {"loadFont", loadFont}});
}

}  // namespace orvane
