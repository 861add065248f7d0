// Every module and helper that exists, registered in the engine's fixed order.
#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "host/NuvraModule.h"
#include "window/WindowFacade.h"
#include "host/WindowModules.h"

namespace orvane {

void registerFunctions() {
    bindRubyScriptEngineInterop();
    bindLuaScriptEngineInterop();
    if (ot_has_window()) engine.pushVariable("Metal", makeMetalModule());
    engine.pushVariable("Sailfish", makeSailfishModule());
    engine.pushVariable("Orvane", makeOrvaneModule());
    engine.pushVariable("Ruby", makeRubyModule());
    engine.pushVariable("Lua", makeLuaModule());
    engine.pushVariable("Audio", makeAudioModule());
    engine.pushVariable("AI", makeAiModule());
    engine.pushVariable("Font", makeFontModule());
    engine.pushVariable("Korvo", makeKorvoModule());
    engine.pushVariable("Nuvra", makeNuvraModule());
    engine.pushVariable("GLFW", makeGLFWModule());
    registerGlobalHelpers();
    registerEngineConstants();
    publishInputGlobals();  // idle input exists before the first script line
}

}  // namespace orvane
