#include "window/WindowFacade.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTouchDevice>
#include <QTouchEvent>
#include <QScreen>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "window/OrvaneSailfishWindow.h"
#include "window/WindowState.h"

namespace orvane {

QGuiApplication* gApplication = nullptr;
OrvaneSailfishWindow* gActiveWindow = nullptr;

void ensureApplication() {
    if (QCoreApplication::instance()) return;
    QCoreApplication::setAttribute(Qt::AA_SynthesizeMouseForUnhandledTouchEvents, true);
    // Qt keeps references to both for the application's whole life.
    static int argc = 1;
    static char name[] = "OrvaneTide";
    static char* argv[] = {name, nullptr};
    gApplication = new QGuiApplication(argc, argv);
}

}  // namespace orvane

using orvane::OrvaneSailfishWindow;

namespace {

OrvaneSailfishWindow* windowOf(void* handle) { return static_cast<OrvaneSailfishWindow*>(handle); }

bool sailfishIsLeftOrientation(OrvaneSailfishWindow* window) {
    orvane::ensureApplication();
    if (window) return window->isLeftOrientation();
    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) return false;
    const Qt::ScreenOrientation o = screen->orientation();
    return o != Qt::InvertedPortraitOrientation && o != Qt::InvertedLandscapeOrientation;
}

}  // namespace

bool ot_has_metal_window() { return true; }
bool ot_has_quartz_window() { return false; }
bool ot_has_window() { return ot_has_metal_window(); }
bool ot_has_mixer() { return true; }
int ot_lua_version_major() { return 5; }
int ot_lua_version_minor() { return 4; }
int ot_lua_version_patch() { return 8; }
double ot_lua_version_number() { return ot_lua_version_major() + ot_lua_version_minor() / 10.0; }

void* ot_createWindow(const char* title, int32_t width, int32_t height) {
    orvane::ensureApplication();
    auto* window = new OrvaneSailfishWindow(title, width, height);
    for (const orvane::SailfishButton& b : orvane::gPendingButtons)
        window->registerButton(b.keyCode.c_str(), b.displayText.c_str(), b.xPercent, b.yPercent);
    orvane::gActiveWindow = window;
    return window;
}

void ot_closeWindow(void* handle) {
    if (!handle) return;
    windowOf(handle)->closeRequested = true;
    windowOf(handle)->close();
}

void ot_destroyWindow(void* handle) {
    if (!handle) return;
    if (orvane::gActiveWindow == handle) orvane::gActiveWindow = nullptr;
    delete windowOf(handle);
}

char* ot_getWindowTitle(void* handle) {
    const std::string title = handle ? windowOf(handle)->title : std::string();
    auto* copy = static_cast<char*>(std::malloc(title.size() + 1));
    if (copy) std::memcpy(copy, title.c_str(), title.size() + 1);
    return copy;
}

void ot_getWindowSize(void* handle, int* width, int* height) {
    if (width) *width = handle ? windowOf(handle)->width() : 0;
    if (height) *height = handle ? windowOf(handle)->height() : 0;
}

void ot_setWindowSize(void* handle, int32_t width, int32_t height) {
    if (handle) windowOf(handle)->setLogicalSize(width, height);
}

void ot_setWindowTitle(void* handle, const char* title) {
    if (handle) windowOf(handle)->setTitleText(title);
}

void ot_pushImage(void* handle, const orvane::NuvraImage* image) {
    if (handle) windowOf(handle)->setSourceImage(image);
}

void ot_updateWindow(void* handle) {
    orvane::ensureApplication();
    QCoreApplication::processEvents();
    if (!handle) return;
    windowOf(handle)->present();
    orvane::gActiveWindow = windowOf(handle);
}

bool ot_windowShouldClose(void* handle) { return !handle || windowOf(handle)->closeRequested; }

void ot_clearWindow(void* handle, uint8_t r, uint8_t g, uint8_t b) {
    if (handle) windowOf(handle)->clear(r, g, b);
}

orvane::NuvraImage* ot_captureWindow(void* handle) { return handle ? windowOf(handle)->capture() : nullptr; }

bool ot_injectKey(void* handle, const char* keyName, bool down) {
    const int key = orvane::qtKeyOfName(keyName ? keyName : "");
    if (!handle || key == 0) return false;
    QKeyEvent event(down ? QEvent::KeyPress : QEvent::KeyRelease, key, Qt::NoModifier);
    QCoreApplication::sendEvent(windowOf(handle), &event);
    return true;
}

bool ot_injectPointer(void* handle, bool touch, const char* action, int32_t x, int32_t y) {
    const std::string what = action ? action : "";
    if (!handle || (what != "down" && what != "move" && what != "up")) return false;
    const QPointF at(x, y);
    if (!touch) {
        const QEvent::Type type = what == "down"   ? QEvent::MouseButtonPress
                                  : what == "move" ? QEvent::MouseMove
                                                   : QEvent::MouseButtonRelease;
        const Qt::MouseButtons held = what == "up" ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, at, what == "move" ? Qt::NoButton : Qt::LeftButton, held, Qt::NoModifier);
        QCoreApplication::sendEvent(windowOf(handle), &event);
        return true;
    }
    static QTouchDevice* device = [] {
        auto* screen = new QTouchDevice;  // made once, kept for the process
        screen->setType(QTouchDevice::TouchScreen);
        return screen;
    }();
    const Qt::TouchPointState state = what == "down"   ? Qt::TouchPointPressed
                                      : what == "move" ? Qt::TouchPointMoved
                                                       : Qt::TouchPointReleased;
    QTouchEvent::TouchPoint point(0);
    point.setPos(at);
    point.setState(state);
    const QEvent::Type type = what == "down" ? QEvent::TouchBegin : what == "move" ? QEvent::TouchUpdate : QEvent::TouchEnd;
    QTouchEvent event(type, device, Qt::NoModifier, state, {point});
    QCoreApplication::sendEvent(windowOf(handle), &event);
    return true;
}

void ot_getMousePosition(void* handle, int* x, int* y) {
    if (x) *x = handle ? windowOf(handle)->mouseX : -1;
    if (y) *y = handle ? windowOf(handle)->mouseY : -1;
}

bool ot_getMouseButtonState(void* handle, int index) {
    return handle && index >= 0 && index <= 2 && windowOf(handle)->mouseButtons[index];
}

void ot_updateKeyboardState() {
    orvane::resetKeyState();
    OrvaneSailfishWindow* window = orvane::gActiveWindow;
    if (!window) return;
    for (int key : window->pressedKeys) orvane::applyQtKey(key);
    for (const orvane::SailfishButton& b : window->virtualButtons)
        if (b.pressed && b.keyCode != "mouse_shift") orvane::applyNormalizedKey(b.keyCode);
}

void ot_setTouchBarButtonText(void*, int, const char*) {}
void ot_setTouchBarButtonImage(void*, int, const orvane::NuvraImage*) {}
bool ot_getTouchBarButtonState(void*, int) { return false; }
void ot_clearTouchBar(void*) {}

void ot_sailfish_register_key(void* handle, const char* keyCode, const char* displayText, int32_t x, int32_t y) {
    if (handle) {
        windowOf(handle)->registerButton(keyCode, displayText, x, y);
        return;
    }
    // Pending entries keep namesakes: each window made later applies them in order.
    orvane::gPendingButtons.push_back(
        {orvane::normalizeKeyCode(keyCode ? keyCode : ""), displayText ? displayText : "", x, y, false});
}

bool ot_sailfish_left_orientation(void* handle) { return sailfishIsLeftOrientation(windowOf(handle)); }
