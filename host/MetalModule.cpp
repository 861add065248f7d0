#include "host/Binding.h"
#include "host/HeadlessRun.h"
#include "host/HostModules.h"
#include "host/NuvraModule.h"
#include "host/WindowModules.h"
#include "window/InputState.h"
#include "window/WindowFacade.h"

namespace orvane {

void* win = nullptr;
std::string windowTitle;

namespace {

// The window is also where input comes from.
void setWindow(void* window) {
    win = window;
    inputState.window = window;
}

Variable spawnWindow(const VariableArray& args) {
    const std::string label = "Metal.spawnWindow";
    const int32_t width = integerValue(requireArg(args, 0, label), label, "width");
    const int32_t height = integerValue(requireArg(args, 1, label), label, "height");
    windowTitle = stringValue(requireArg(args, 2, label), label, "title");
    if (win) {
        ot_setWindowTitle(win, windowTitle.c_str());
        ot_setWindowSize(win, width, height);
    } else {
        setWindow(ot_createWindow(windowTitle.c_str(), width, height));
    }
    publishInputGlobals();
    return Variable();
}

Variable killWindow(const VariableArray&) {
    ot_destroyWindow(win);
    setWindow(nullptr);
    return Variable();
}

Variable renderImage(const VariableArray& args) {
    const NuvraImage& image = validImageArgument(args, 0, "Metal.renderImage", "image");
    ot_pushImage(win, &image);
    headlessFrameShown(image);
    return Variable();
}

Variable clearBuffer(const VariableArray& args) {
    const std::string label = "Metal.clearBuffer";
    const int32_t r = integerValue(requireArg(args, 0, label), label, "r");
    const int32_t g = integerValue(requireArg(args, 1, label), label, "g");
    const int32_t b = integerValue(requireArg(args, 2, label), label, "b");
    ot_clearWindow(win, uint8_t(r), uint8_t(g), uint8_t(b));
    return Variable();
}

Variable getWindow(const VariableArray&) {
    return liveImageVariable(ot_captureWindow(win));
}

Variable renameWindow(const VariableArray& args) {
    windowTitle = stringValue(requireArg(args, 0, "Metal.setTitle"), "Metal.setTitle", "title");
    ot_setWindowTitle(win, windowTitle.c_str());
    return Variable();
}

// This platform has no touch bar, but the arguments are checked all the same, so that scripts
// written for one run unchanged.
Variable setTouchBarButton(const VariableArray& args) {
    const std::string label = "Metal.setTouchBarButton";
    if (args.size() < 2) bindingError(label, "expected button index and label or mode");
    const int32_t button = integerValue(args[0], label, "button");
    const Variable& value = args[1];
    auto touchImage = [&](const Variable& v) {
        NuvraImage* image = imageOf(v);
        if (!image || !image->pixels) bindingError(label, "touch bar image must be a valid image");
        ot_setTouchBarButtonImage(win, button, image);
    };
    std::string text;
    if (value.type == VarType::Pointer) {
        touchImage(value);
        return Variable();
    }
    if (value.type == VarType::String) {
        const std::string& mode = value.asString();
        if (mode == "active" && args.size() > 2) {
            if (args[2].type != VarType::String) {
                touchImage(args[2]);
                return Variable();
            }
            text = args[2].asString();
        } else if (mode != "active" && mode != "space") {
            text = mode;
        }
    } else if (value.type != VarType::Nil) {
        bindingError(label, "touch bar input must be a string, image, or nil");
    }
    ot_setTouchBarButtonText(win, button, text.c_str());
    return Variable();
}

Variable setTouchBarButtonImage(const VariableArray& args) {
    const std::string label = "Metal.setTouchBarButtonImage";
    const int32_t button = integerValue(requireArg(args, 0, label), label, "button");
    NuvraImage* image = imageArgument(args, 1, label, "image");
    if (!image || !image->pixels) bindingError(label, "touch bar image must be a valid image");
    ot_setTouchBarButtonImage(win, button, image);
    return Variable();
}

}  // namespace

Variable makeMetalModule() {
    return makeModule("Metal", {
        {"renderImage", renderImage},
        {"updateInput", [](const VariableArray&) {
             if (win) headlessDeliverInput(win);
             publishInputGlobals();
             return Variable();
         }},
        {"forceUpdate", [](const VariableArray&) { if (win) ot_updateWindow(win); return Variable(); }},
        {"getTitle", [](const VariableArray&) { return Variable(windowTitle); }},
        {"getWindow", getWindow},
        {"clearTouchBar", [](const VariableArray&) { ot_clearTouchBar(win); return Variable(); }},
        {"setTouchBarButton", setTouchBarButton},
        {"setTouchBarButtonImage", setTouchBarButtonImage},
        {"setTitle", renameWindow},
        {"clearBuffer", clearBuffer},
        {"checkClose", [](const VariableArray&) {
             return Variable(headlessFrameLimitReached() || (win != nullptr && ot_windowShouldClose(win)));
         }},
        {"killWindow", killWindow},
        {"spawnWindow", spawnWindow},
    });
}

}  // namespace orvane
