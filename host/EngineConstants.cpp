// The constants and settings that game scripts share with the engine, published as ordinary
// globals in a fixed order: a later write to a name replaces an earlier one.
#include <string>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "window/WindowFacade.h"

namespace orvane {

namespace {

void put(const std::string& name, const Variable& value) { engine.pushVariable(name, value); }
void putInt(const std::string& name, int32_t value) { put(name, Variable(value)); }
void putBool(const std::string& name, bool value) { put(name, Variable(value)); }
void putText(const std::string& name, const char* value) { put(name, Variable(value)); }

}  // namespace

void registerEngineConstants() {
    // Feature flags and platform.
    putBool("METAL_ENABLED", ot_has_metal_window());
    putBool("QUARTZ_ENABLED", ot_has_quartz_window());
    putBool("MIXER_ENABLED", ot_has_mixer());
    putBool("ORVANESCRIPT_ENABLED", true);
    putBool("MIXER_SKIP_SLIDE", false);
    putBool("ORVANEBOOT_ENABLED", false);
    putText("ORVANEBOOT_ARCH", "");

    // The level of the Lua dialect.
    putInt("LUA_VERSION_MAJOR", 5);
    putInt("LUA_VERSION_MINOR", 4);
    putInt("LUA_VERSION_PATCH", 8);
    put("LUA_VERSION", Variable(float(ot_lua_version_number())));

    // Game defaults, read only by scripts.
    putText("ORVANE_SCRIPT", "visual-novel.ov");
    putText("ORVANE_GAME_NAME", "Orvane Tide Testing");

    // Type selectors of Orvane.setVar.
    putInt("ORVANE_INT", 0);
    putInt("ORVANE_FLOAT", 1);
    putInt("ORVANE_BOOL", 2);
    putInt("ORVANE_STRING", 3);
    putInt("ORVANE_FUNCTION", 4);
    putInt("ORVANE_POINTER", 5);

    // Screen.
    putInt("ORVANE_SCREEN_Y", 544);
    putInt("ORVANE_SCREEN_X", 960);
    putInt("ORVANE_SCREEN_CULL_FAR", 100);
    putInt("ORVANE_SCREEN_CULL_NEAR", 0);
    putInt("ORVANE_SCREEN_FOV", 90);

    // Debug switches.
    putBool("debugger", false);
    putBool("debuggerdeep", false);
    putBool("textframebuffer", false);
    putBool("checksumBypass", false);

    // System, engine, timing, player, audio.
    putInt("ORVANE_PROCESSOR_NAME", 0);
    putInt("ORVANE_PROCESSOR", 0);
    putInt("ORVANE_OS_PLATFORM", 0);
    putInt("ORVANE_OS_VERSION", 0);
    putText("ORVANE_ENGINE_VERSION", "v1.0");
    putText("ORVANE_ENGINE_POSTFIX", "Release");
    putInt("ORVANE_FRAMERATE", kFrameMilliseconds);
    putBool("ORVANE_FEMALE", false);
    putInt("ORVANE_AUDIO_OFFSET", 0);
    putBool("ORVANE_AUDIO_PLAYING", false);

    // Mouse buttons.
    putInt("ORVANE_MOUSE_NIL", 0);
    putInt("ORVANE_MOUSE_LEFT", 1);
    putInt("ORVANE_MOUSE_MIDDLE", 2);
    putInt("ORVANE_MOUSE_RIGHT", 3);

    // Scratch slots.
    for (int i = 0; i <= 9; ++i) putInt("ORVANE_TMP" + std::to_string(i), 0);

    // Render slots.
    putInt("ORVANE_RENDER_TMP", -1);
    putInt("ORVANE_RENDER_TMP2", -1);
    for (int32_t i = 1; i <= 13; ++i) {
        putInt("ORVANE_RENDER_" + std::to_string(i), i);
        putInt("ORVANE_RENDER_S" + std::to_string(i), i);
    }
    putBool("ORVANE_RENDER_SKIP_PARALLAX", false);

    // Weather.
    putInt("ORVANE_WEATHER_LAYER", -1);
    putInt("ORVANE_WEATHER_CLEAR", 0);
    putInt("ORVANE_WEATHER_LEAF", 1);
    for (int i = 1; i <= 5; ++i) putInt("ORVANE_WEATHER_LAYER_IMAGE" + std::to_string(i), 0);
    for (int i = 1; i <= 5; ++i) putInt("ORVANE_WEATHER_LAYER_PATH" + std::to_string(i), 0);

    // Image effects: the modes of the pixel operations.
    putInt("ORVANE_GREYSCALE", 1);
    putInt("ORVANE_INACTIVE", 2);
    putInt("ORVANE_COLOUR_INVERT", 4);
    putInt("ORVANE_COLOUR_FILL", 5);
    putInt("ORVANE_AETHER_INVERT", 3);
    putInt("ORVANE_AETHER_CLEANUP", 6);
    putInt("ORVANE_AETHER_FILL", 7);
    putInt("ORVANE_AETHER_SET", 8);
    for (int i = 1; i <= 4; ++i) putBool("ORVANE_INACTIVE_" + std::to_string(i), false);

    // Layers.
    putInt("ORVANE_LAYER_FRAMEBUFFER", 1);
    putInt("ORVANE_LAYER_BACKGROUND", 2);
    putInt("ORVANE_LAYER_CHARACTER", 3);
    putInt("ORVANE_LAYER_FOREGROUND", 4);
    putInt("ORVANE_LAYER_SUPERGROUND", 5);

    // Scene elements. ORVANE_NAME replaces the interpreter's own name string.
    putInt("ORVANE_SKIP", 10);
    putInt("ORVANE_IMAGE", 11);
    putInt("ORVANE_TEXT", 12);
    putInt("ORVANE_TEXT_SLIDE_RIGHT", 13);
    putInt("ORVANE_TEXT_SLIDE_LEFT", 14);
    putInt("ORVANE_CHARACTER1", 15);
    putInt("ORVANE_CHARACTER2", 16);
    putInt("ORVANE_CHARACTER3", 17);
    putInt("ORVANE_CHARACTER4", 18);
    putInt("ORVANE_PARALLAX", 19);
    putBool("ORVANE_PARALLAX_UIFG", false);
    putInt("ORVANE_BACKGROUND", 20);
    putInt("ORVANE_INTERFACE", 21);
    putInt("ORVANE_MESSAGE", 22);
    putInt("ORVANE_DATE", 23);
    putInt("ORVANE_TIME", 24);
    putInt("ORVANE_NAME", 25);
    putInt("ORVANE_TITLE", 26);
    putInt("ORVANE_LOCATION", 27);
    putInt("ORVANE_REGION", 28);
    putInt("ORVANE_WEATHER", 29);
    putInt("ORVANE_OPTION_1", 31);
    putInt("ORVANE_OPTION_2", 32);
    putInt("ORVANE_OPTION_3", 33);

    // Menus and game states.
    putInt("ORVANE_MENU_MAIN", 50);
    putInt("ORVANE_MENU_PAUSE", 51);
    putInt("ORVANE_MENU_SAVE", 52);
    putInt("ORVANE_MENU_OPTION", 53);
    putInt("ORVANE_GAME_VISUAL_NOVEL", 54);
    putInt("ORVANE_GAME_TARGET", 54);
    putInt("ORVANE_CREDIT", 55);
    putInt("ORVANE_GAME_NEW", 56);
    putInt("ORVANE_GAME_LOAD", 57);
    putInt("ORVANE_RENDER_EXIT", 58);

    // Misspellings that game scripts have come to rely on.
    putBool("fasle", false);
    putBool("flase", false);
    putBool("flse", false);
    putBool("tre", true);
    putBool("tue", true);
    putBool("ture", true);
}

}  // namespace orvane
