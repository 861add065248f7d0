// The script modules of the window: Metal (the window, frames, touch bar) and Sailfish (virtual
// buttons, orientation).
#pragma once

#include <string>

#include "script/Variable.h"

namespace orvane {

// The window of the module Metal, null while none exists.
extern void* win;
// The last title a script gave, with or without a window.
extern std::string windowTitle;

Variable makeMetalModule();
Variable makeSailfishModule();

}  // namespace orvane
