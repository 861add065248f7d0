// Input state to script globals.
#include <string>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "window/InputState.h"
#include "window/WindowFacade.h"

namespace orvane {

void publishInputGlobals() {
    ot_updateKeyboardState();
    InputState& s = inputState;
    if (s.window) {
        ot_getMousePosition(s.window, &s.mousex, &s.mousey);
        s.mouse1 = ot_getMouseButtonState(s.window, 0);
        s.mouse2 = ot_getMouseButtonState(s.window, 1);
        s.mouse3 = ot_getMouseButtonState(s.window, 2);
    } else {
        s.mousex = s.mousey = -1;
        s.mouse1 = s.mouse2 = s.mouse3 = false;
    }
    auto flag = [](const char* name, bool value) { engine.pushVariable(name, Variable(value)); };
    flag("ORVANE_MOUSE_1", s.mouse1);
    flag("ORVANE_MOUSE_2", s.mouse2);
    flag("ORVANE_MOUSE_3", s.mouse3);
    engine.pushVariable("ORVANE_MOUSE_X", Variable(s.mousex));
    engine.pushVariable("ORVANE_MOUSE_Y", Variable(s.mousey));
    flag("ORVANE_KEY_RETURN", s.keyreturn);
    flag("ORVANE_KEY_UP", s.keyup);
    flag("ORVANE_KEY_DOWN", s.keydown);
    flag("ORVANE_KEY_LEFT", s.keyleft);
    flag("ORVANE_KEY_RIGHT", s.keyright);
    // Names built once: this runs every frame.
    static const struct Names {
        std::string letters[26], digits[10], touchBar[4];
        Names() {
            for (int i = 0; i < 26; ++i) letters[i] = std::string("ORVANE_KEY_") + char('A' + i);
            for (int i = 0; i < 10; ++i) digits[i] = "ORVANE_KEY_" + std::to_string(i);
            for (int i = 0; i < 4; ++i) touchBar[i] = "ORVANE_TOUCHBAR_" + std::to_string(i + 1);
        }
    } names;
    for (int i = 0; i < 26; ++i) engine.pushVariable(names.letters[i], Variable(s.letters[i]));
    for (int i = 1; i <= 9; ++i) engine.pushVariable(names.digits[i], Variable(s.digits[i]));
    engine.pushVariable(names.digits[0], Variable(s.digits[0]));
    flag("ORVANE_KEY_BACK", s.keyback);
    flag("ORVANE_KEY_DELETE", s.keydelete);
    flag("ORVANE_KEY_SPACE", s.keyspace);
    for (int i = 0; i < 4; ++i)
        engine.pushVariable(names.touchBar[i], Variable(s.window ? ot_getTouchBarButtonState(s.window, i + 1) : false));
}

}  // namespace orvane
