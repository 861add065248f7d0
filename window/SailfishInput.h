// Keys and virtual buttons: key names to the polled key flags, the buttons a script places on
// the landscape canvas, and the list kept for windows not yet made.
#pragma once

#include <string>
#include <vector>

namespace orvane {

// A virtual button; its centre is in per cent of the canvas, so it survives any screen size.
struct SailfishButton {
    std::string keyCode;  // normalised key name
    std::string displayText;
    int32_t xPercent = 0;
    int32_t yPercent = 0;
    bool pressed = false;
};

// Buttons registered while no window exists; every window made later receives them.
extern std::vector<SailfishButton> gPendingButtons;

// "ORVANE_KEY_A", "orvane key a" and "a" all become "a".
std::string normalizeKeyCode(const std::string& text);
// Add a button, or move and relabel the one of the same name (which becomes not pressed).
void registerButton(std::vector<SailfishButton>& list, const char* keyCode, const char* displayText, int32_t x,
                    int32_t y);

// Set the key flag of a normalised name or of a Qt key code; unknown ones set nothing.
void applyNormalizedKey(const std::string& name);
void applyQtKey(int code);
// The Qt key a key name stands for, as a keyboard would send it; 0 for an unknown name.
int qtKeyOfName(const std::string& name);
void resetKeyState();

}  // namespace orvane
