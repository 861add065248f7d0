// The polled input state that scripts see through the ORVANE_MOUSE_... and ORVANE_KEY_... globals.
// The window layer fills it; publishInputGlobals copies it into the interpreter.
#pragma once

#include <cstdint>

namespace orvane {

struct InputState {
    void* window = nullptr;  // the window input comes from; null while none exists
    int32_t mousex = -1, mousey = -1;
    bool mouse1 = false, mouse2 = false, mouse3 = false;
    bool keyreturn = false, keyup = false, keydown = false, keyleft = false, keyright = false;
    bool letters[26] = {};  // keya to keyz
    bool digits[10] = {};   // key0 to key9, by digit
    bool keyminus = false, keyback = false, keydelete = false, keyspace = false;
};

extern InputState inputState;

// Writes the input globals, in their fixed order, after a fresh poll of the keyboard.
void publishInputGlobals();

}  // namespace orvane

// The pieces of the window facade that input and the constants read.
#include "window/WindowFacade.h"
