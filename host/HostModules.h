// Registration of the engine's modules and helpers into the interpreter.
#pragma once

#include "script/Variable.h"

namespace orvane {

// ORVANE_FRAMERATE: the milliseconds a frame is meant to take.
constexpr int32_t kFrameMilliseconds = 41;

void registerFunctions();
// The interop globals of the two dialect VMs; each binds once, a second call does nothing.
void bindRubyScriptEngineInterop();
void bindLuaScriptEngineInterop();
void registerGlobalHelpers();
Variable makeOrvaneModule();
Variable makeAiModule();
Variable makeAudioModule();
Variable makeFontModule();
Variable makeKorvoModule();
Variable makeLuaModule();
Variable makeRubyModule();
// The constants and flags that scripts share with the engine, in their fixed order.
void registerEngineConstants();
// Writes the input globals, in their fixed order, after a fresh poll of the keyboard.
void publishInputGlobals();

// The button of the rectangles of Orvane.pushButton under a point, 0 for none.
int32_t checkbounds(int32_t x, int32_t y, const std::vector<struct buttonVec>& list);
int32_t calculateChecksum(const std::string& text);

}  // namespace orvane
