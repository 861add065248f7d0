// The window's rules through their public faces: the geometry of the landscape canvas, the
// mapping of device points, and Qt events sent to a real window on the offscreen platform
// arriving as key flags, mouse state and virtual buttons.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTouchDevice>
#include <QTouchEvent>
#include <cstdlib>

#include "host/HostModules.h"
#include "window/InputState.h"
#include "host/ProcessObjects.h"
#include "window/OrvaneSailfishWindow.h"
#include "window/WindowFacade.h"

// Qt's font library keeps a few allocations until the process ends.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig\n"; }

namespace orvane {
namespace {

TEST(SailfishGeometry, PortraitScreenGivesTheLandscapeCanvas) {
    const SailfishGeometry g = landscapeGeometry(540, 960, 960, 544);
    EXPECT_EQ(g.canvasWidth, 960);
    EXPECT_EQ(g.canvasHeight, 540);
    EXPECT_EQ(g.contentRect, QRect(96, 0, 768, 432));
    // Scale 432 / 544: 762 by 432, centred in the content area.
    EXPECT_EQ(g.imageRect, QRect(99, 0, 762, 432));
    // A landscape screen of the same size gives the same canvas.
    EXPECT_EQ(landscapeGeometry(960, 540, 960, 544).imageRect, g.imageRect);
    // A tall image is letterboxed at the sides, a degenerate one still gets a pixel.
    EXPECT_EQ(landscapeGeometry(960, 540, 100, 432).imageRect, QRect(430, 0, 100, 432));
    EXPECT_EQ(landscapeGeometry(0, 0, 0, 0).imageRect.size(), QSize(1, 1));
}

TEST(SailfishGeometry, DevicePointsMapBackOntoTheCanvas) {
    // Left orientation: the canvas turned by -90 degrees; its top-left is the device's bottom-left.
    EXPECT_EQ(mapDeviceToLandscape(QPointF(0, 959), 540, 960, true), QPoint(0, 0));
    EXPECT_EQ(mapDeviceToLandscape(QPointF(539, 0), 540, 960, true), QPoint(959, 539));
    // Right orientation: turned by 90 degrees; its top-left is the device's top-right.
    EXPECT_EQ(mapDeviceToLandscape(QPointF(539, 0), 540, 960, false), QPoint(0, 0));
    EXPECT_EQ(mapDeviceToLandscape(QPointF(0, 959), 540, 960, false), QPoint(959, 539));
    // Outside points are clamped on a portrait device, left alone on a landscape one.
    EXPECT_EQ(mapDeviceToLandscape(QPointF(-20.4, 2000), 540, 960, true), QPoint(0, 0));
    EXPECT_EQ(mapDeviceToLandscape(QPointF(-20.4, 2000), 960, 540, true), QPoint(-20, 2000));
    // Fractions round to the nearest pixel, not toward zero.
    EXPECT_EQ(mapDeviceToLandscape(QPointF(10.7, 20.6), 960, 540, true), QPoint(11, 21));
    EXPECT_EQ(mapDeviceToLandscape(QPointF(0.6, 958.7), 540, 960, true), QPoint(0, 1));
}

TEST(SailfishGeometry, CanvasPointsMapToTheLogicalSize) {
    const QRect r(99, 0, 762, 432);
    EXPECT_EQ(landscapeToLogical(QPoint(99, 0), r, 960, 544), QPoint(0, 0));
    EXPECT_EQ(landscapeToLogical(QPoint(860, 431), r, 960, 544), QPoint(959, 543));  // far edge: last pixel
    EXPECT_EQ(landscapeToLogical(QPoint(2000, -5), r, 960, 544), QPoint(959, 0));
    EXPECT_EQ(landscapeToLogical(QPoint(480, 216), r, 960, 544), QPoint(480, 272));
    // 2 * 959 / 761 is 2.52 and 1 * 543 / 431 is 1.26: the nearest pixel on each axis.
    EXPECT_EQ(landscapeToLogical(QPoint(101, 1), r, 960, 544), QPoint(3, 1));
    EXPECT_EQ(landscapeToLogical(QPoint(5, 5), QRect(0, 0, 1, 40), 960, 544), QPoint(0, 0));
}

TEST(SailfishGeometry, ButtonsAreSquaresAroundTheirCentreAndTheNewestWins) {
    const SailfishGeometry g = landscapeGeometry(960, 540, 960, 544);
    std::vector<SailfishButton> buttons;
    registerButton(buttons, "ORVANE_KEY_A", "A", 10, 90);
    EXPECT_EQ(buttonRect(buttons[0], g), QRect(96 - 27, 486 - 27, 54, 54));
    registerButton(buttons, "b", "B", 11, 90);
    EXPECT_EQ(buttonAt(buttons, QPoint(100, 486), g), 1);
    EXPECT_EQ(buttonAt(buttons, QPoint(69, 459), g), 0);  // edge included
    EXPECT_EQ(buttonAt(buttons, QPoint(68, 459), g), -1);
    registerButton(buttons, "orvane key a", "again", 50, 50);  // a namesake moves, not duplicates
    EXPECT_EQ(buttons.size(), 2u);
    EXPECT_EQ(buttons[0].displayText, "again");
    SailfishButton clamped{"x", "", 200, -10, false};
    EXPECT_EQ(buttonRect(clamped, g), QRect(960 - 27, 0 - 27, 54, 54));
}

TEST(SailfishInput, KeyNamesNormalise) {
    EXPECT_EQ(normalizeKeyCode("ORVANE_KEY_A"), "a");
    EXPECT_EQ(normalizeKeyCode("orvane key a"), "a");
    EXPECT_EQ(normalizeKeyCode("Mouse-Shift"), "mouse_shift");
    resetKeyState();
    for (const char* name : {"enter", "backspace", "del", "7", "q", "nonsense", "minus"}) applyNormalizedKey(name);
    EXPECT_TRUE(inputState.keyreturn && inputState.keyback && inputState.keydelete && inputState.keyminus);
    EXPECT_TRUE(inputState.digits[7] && inputState.letters['q' - 'a']);
    EXPECT_FALSE(inputState.keyspace || inputState.keyup || inputState.letters[0]);
}

// A real window on the offscreen platform; events go in through Qt, state comes out of the facade.
class WindowEvents : public testing::Test {
protected:
    static void SetUpTestSuite() { setenv("QT_QPA_PLATFORM", "offscreen", 0); }
    void SetUp() override {
        handle = ot_createWindow("events", 320, 200);
        window = static_cast<OrvaneSailfishWindow*>(handle);
        ot_updateWindow(handle);
    }
    void TearDown() override { ot_destroyWindow(handle); }

    void key(QEvent::Type type, int code, bool repeat = false) {
        QKeyEvent event(type, code, Qt::NoModifier, QString(), repeat);
        QCoreApplication::sendEvent(window, &event);
    }
    void mouse(QEvent::Type type, QPoint at, Qt::MouseButtons held) {
        QMouseEvent event(type, at, Qt::LeftButton, held, Qt::NoModifier);
        QCoreApplication::sendEvent(window, &event);
    }
    void touch(QEvent::Type type, const QList<QPointF>& points, Qt::TouchPointState state) {
        static QTouchDevice* device = [] {
            auto* d = new QTouchDevice;
            d->setType(QTouchDevice::TouchScreen);
            return d;
        }();
        QList<QTouchEvent::TouchPoint> list;
        int id = 0;
        for (const QPointF& p : points) {
            QTouchEvent::TouchPoint point(id++);
            point.setPos(p);
            point.setState(state);
            list.append(point);
        }
        QTouchEvent event(type, device, Qt::NoModifier, state, list);
        QCoreApplication::sendEvent(window, &event);
    }
    // The image area's centre on the canvas, which on a landscape screen is the device point.
    QPoint imageCentre() const { return window->landscapeGeometry().imageRect.center(); }

    void* handle = nullptr;
    OrvaneSailfishWindow* window = nullptr;
};

TEST_F(WindowEvents, KeysAreHeldUntilReleasedAndRepeatsIgnored) {
    key(QEvent::KeyPress, Qt::Key_A);
    key(QEvent::KeyPress, Qt::Key_Up);
    key(QEvent::KeyPress, Qt::Key_Minus);
    ot_updateKeyboardState();
    EXPECT_TRUE(inputState.letters[0] && inputState.keyup && inputState.keyminus);
    key(QEvent::KeyRelease, Qt::Key_A, true);  // auto-repeat release: still held
    ot_updateKeyboardState();
    EXPECT_TRUE(inputState.letters[0]);
    key(QEvent::KeyRelease, Qt::Key_A);
    key(QEvent::KeyPress, Qt::Key_9);
    key(QEvent::KeyPress, Qt::Key_F5);
    ot_updateKeyboardState();
    EXPECT_FALSE(inputState.letters[0]);
    EXPECT_TRUE(inputState.digits[9] && inputState.keyup);
}

// Each named key, pressed alone, turns exactly its own script global true.
TEST_F(WindowEvents, EachKeyTurnsOnlyItsOwnGlobal) {
    std::vector<std::pair<int, std::string>> keys = {
        {Qt::Key_Return, "RETURN"}, {Qt::Key_Up, "UP"},         {Qt::Key_Down, "DOWN"},
        {Qt::Key_Left, "LEFT"},     {Qt::Key_Right, "RIGHT"},   {Qt::Key_Backspace, "BACK"},
        {Qt::Key_Delete, "DELETE"}, {Qt::Key_Space, "SPACE"}};
    for (int i = 0; i < 26; ++i) keys.push_back({Qt::Key_A + i, std::string(1, char('A' + i))});
    for (int i = 0; i < 10; ++i) keys.push_back({Qt::Key_0 + i, std::to_string(i)});
    inputState.window = handle;
    for (const auto& [pressed, pressedName] : keys) {
        key(QEvent::KeyPress, pressed);
        publishInputGlobals();
        for (const auto& [other, name] : keys) {
            const Variable flag = engine.pullVariable("ORVANE_KEY_" + name);
            EXPECT_TRUE(flag.type == VarType::Bool && flag.asBool() == (other == pressed))
                << pressedName << " pressed, ORVANE_KEY_" << name << " is " << flag.toString();
        }
        key(QEvent::KeyRelease, pressed);
    }
    publishInputGlobals();
    EXPECT_FALSE(engine.pullVariable("ORVANE_KEY_LEFT").asBool());
    inputState.window = nullptr;
}

TEST_F(WindowEvents, MouseOnTheImageGivesLogicalCoordinates) {
    const QRect r = window->landscapeGeometry().imageRect;
    mouse(QEvent::MouseButtonPress, r.topLeft(), Qt::LeftButton);
    int x = 0, y = 0;
    ot_getMousePosition(handle, &x, &y);
    EXPECT_EQ(QPoint(x, y), QPoint(0, 0));
    EXPECT_TRUE(ot_getMouseButtonState(handle, 0));
    mouse(QEvent::MouseMove, r.bottomRight(), Qt::LeftButton);
    ot_getMousePosition(handle, &x, &y);
    EXPECT_EQ(QPoint(x, y), QPoint(319, 199));
    mouse(QEvent::MouseButtonRelease, r.bottomRight(), Qt::NoButton);
    EXPECT_FALSE(ot_getMouseButtonState(handle, 0));
    // Outside the image the position stays and no button is down.
    mouse(QEvent::MouseButtonPress, QPoint(0, 0), Qt::LeftButton);
    ot_getMousePosition(handle, &x, &y);
    EXPECT_EQ(QPoint(x, y), QPoint(319, 199));
    EXPECT_FALSE(ot_getMouseButtonState(handle, 0));
}

TEST_F(WindowEvents, VirtualButtonsActAsKeysAndMouseShiftAsTheSecondButton) {
    ot_sailfish_register_key(handle, "ORVANE_KEY_LEFT", "<", 5, 90);
    ot_sailfish_register_key(handle, "mouse_shift", "2", 95, 90);
    const SailfishGeometry g = window->landscapeGeometry();
    const QPoint left = buttonRect(window->virtualButtons[0], g).center();
    const QPoint shift = buttonRect(window->virtualButtons[1], g).center();
    mouse(QEvent::MouseButtonPress, left, Qt::LeftButton);
    ot_updateKeyboardState();
    EXPECT_TRUE(inputState.keyleft);
    EXPECT_FALSE(ot_getMouseButtonState(handle, 0));
    mouse(QEvent::MouseButtonRelease, left, Qt::NoButton);
    ot_updateKeyboardState();
    EXPECT_FALSE(inputState.keyleft);
    // Two fingers: one holds the shift button, one touches the image.
    touch(QEvent::TouchBegin, {QPointF(shift), QPointF(imageCentre())}, Qt::TouchPointPressed);
    EXPECT_FALSE(ot_getMouseButtonState(handle, 0));
    EXPECT_TRUE(ot_getMouseButtonState(handle, 1));
    EXPECT_FALSE(ot_getMouseButtonState(handle, 2));
    int x = 0, y = 0;
    ot_getMousePosition(handle, &x, &y);
    EXPECT_EQ(QPoint(x, y), QPoint(159, 99));
    ot_updateKeyboardState();
    EXPECT_FALSE(inputState.keyleft);  // mouse_shift is no key
    // Lifting every finger clears the buttons but keeps the position.
    touch(QEvent::TouchEnd, {QPointF(shift), QPointF(imageCentre())}, Qt::TouchPointReleased);
    EXPECT_FALSE(ot_getMouseButtonState(handle, 1));
    EXPECT_FALSE(window->virtualButtons[1].pressed);
    ot_getMousePosition(handle, &x, &y);
    EXPECT_EQ(QPoint(x, y), QPoint(159, 99));
}

TEST_F(WindowEvents, CloseRequestKeepsTheWindow) {
    EXPECT_FALSE(ot_windowShouldClose(handle));
    QCloseEvent event;
    QCoreApplication::sendEvent(window, &event);
    EXPECT_TRUE(ot_windowShouldClose(handle));
    ot_updateWindow(handle);  // still presents
    EXPECT_TRUE(ot_windowShouldClose(nullptr));
}

TEST_F(WindowEvents, CanvasShowsClearColourThenTheImage) {
    ot_clearWindow(handle, 10, 20, 30);
    NuvraImage* shot = ot_captureWindow(handle);
    const QPoint c = imageCentre();
    const uint8_t* p = shot->pixels + (int64_t(shot->width) * c.y() + c.x()) * 4;
    EXPECT_EQ((std::vector<int>{p[0], p[1], p[2], p[3]}), (std::vector<int>{10, 20, 30, 255}));
    EXPECT_EQ(shot->pixels[3], 255);  // the canvas is opaque black outside
    EXPECT_EQ(shot->pixels[0], 0);
    delete[] shot->pixels;
    delete shot;
    // A half-transparent image over the canvas's black, then the clear colour no longer shows.
    uint8_t pixel[4] = {200, 100, 50, 128};
    NuvraImage image{1, 1, pixel, 0, 0, nullptr};
    ot_pushImage(handle, &image);
    pixel[0] = 0;  // the window keeps its own copy
    ot_clearWindow(handle, 255, 255, 255);
    shot = ot_captureWindow(handle);
    p = shot->pixels + (int64_t(shot->width) * c.y() + c.x()) * 4;
    EXPECT_NEAR(p[0], 100, 1);
    EXPECT_NEAR(p[1], 50, 1);
    EXPECT_EQ(p[3], 255);
    delete[] shot->pixels;
    delete shot;
}

}  // namespace
}  // namespace orvane
