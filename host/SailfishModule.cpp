#include "host/Binding.h"
#include "window/WindowFacade.h"
#include "host/WindowModules.h"

namespace orvane {

Variable makeSailfishModule() {
    return makeModule("Sailfish", {
        {"key", [](const VariableArray& args) {
             const std::string label = "Sailfish.key";
             const std::string keyCode = stringValue(requireArg(args, 0, label), label, "keyCode");
             const std::string displayText = stringValue(requireArg(args, 1, label), label, "displayText");
             const int32_t x = integerValue(requireArg(args, 2, label), label, "x");
             const int32_t y = integerValue(requireArg(args, 3, label), label, "y");
             ot_sailfish_register_key(win, keyCode.c_str(), displayText.c_str(), x, y);
             return Variable();
         }},
        {"orientation", [](const VariableArray&) { return Variable(ot_sailfish_left_orientation(win)); }},
    });
}

}  // namespace orvane
