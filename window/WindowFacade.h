// The flat window facade: the rest of the engine sees the window only through these plain
// functions and an opaque handle. All of them tolerate a null handle.
#pragma once

#include <cstdint>

#include "image/NuvraImage.h"

bool ot_has_metal_window();
bool ot_has_quartz_window();
bool ot_has_window();
bool ot_has_mixer();
int ot_lua_version_major();
int ot_lua_version_minor();
int ot_lua_version_patch();
double ot_lua_version_number();

void* ot_createWindow(const char* title, int32_t width, int32_t height);
void ot_closeWindow(void* window);
void ot_destroyWindow(void* window);
// Newly malloc'ed, for the caller to free(); null when out of memory.
char* ot_getWindowTitle(void* window);
void ot_getWindowSize(void* window, int* width, int* height);
void ot_setWindowSize(void* window, int32_t width, int32_t height);
void ot_setWindowTitle(void* window, const char* title);
void ot_pushImage(void* window, const orvane::NuvraImage* image);
// The pump: delivers pending events, then presents a frame.
void ot_updateWindow(void* window);
bool ot_windowShouldClose(void* window);
void ot_clearWindow(void* window, uint8_t r, uint8_t g, uint8_t b);
// A new image of the landscape canvas, not yet entered in liveNuvraImages; null without a window.
orvane::NuvraImage* ot_captureWindow(void* window);

// Input made by a program rather than a person (a replayed session), delivered to the window as
// the same Qt events a keyboard, mouse or touch screen sends; x and y are window points. False
// without a window, or for an unknown key name or action.
bool ot_injectKey(void* window, const char* keyName, bool down);
bool ot_injectPointer(void* window, bool touch, const char* action, int32_t x, int32_t y);

void ot_getMousePosition(void* window, int* x, int* y);
bool ot_getMouseButtonState(void* window, int index);
// Rebuilds the key flags from the keys and virtual buttons now held.
void ot_updateKeyboardState();

// This platform has no touch bar: accepted and ignored.
void ot_setTouchBarButtonText(void* window, int button, const char* text);
void ot_setTouchBarButtonImage(void* window, int button, const orvane::NuvraImage* image);
bool ot_getTouchBarButtonState(void* window, int button);
void ot_clearTouchBar(void* window);

// A virtual button on the window, or pending for windows made later when the handle is null.
void ot_sailfish_register_key(void* window, const char* keyCode, const char* displayText, int32_t x, int32_t y);
bool ot_sailfish_left_orientation(void* window);
