// The polled input state: the window layer fills it, and the binding layer copies it into the
// ORVANE_MOUSE_... and ORVANE_KEY_... globals that scripts see.
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

}  // namespace orvane
