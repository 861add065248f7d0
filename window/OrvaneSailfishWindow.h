// The one window: a frameless full-screen raster QWindow that shows the script's image on a
// landscape canvas, rotated to suit a portrait screen, with virtual buttons around it.
#pragma once

#include <QBackingStore>
#include <QImage>
#include <QWindow>
#include <memory>
#include <string>
#include <vector>

#include "image/NuvraImage.h"
#include "window/SailfishGeometry.h"
#include "window/SailfishInput.h"

class QKeyEvent;
class QMouseEvent;
class QPainter;
class QTouchEvent;

namespace orvane {

class OrvaneSailfishWindow : public QWindow {
public:
    OrvaneSailfishWindow(const char* title, int32_t width, int32_t height);
    ~OrvaneSailfishWindow() override;

    void setTitleText(const char* title);
    void setLogicalSize(int32_t width, int32_t height);
    // Copies the image: the script may change or free it right after.
    void setSourceImage(const NuvraImage* image);
    void clear(uint8_t r, uint8_t g, uint8_t b);
    void registerButton(const char* keyCode, const char* displayText, int32_t x, int32_t y);
    void present();

    SailfishGeometry landscapeGeometry() const;
    QImage renderLandscapeCanvas() const;
    NuvraImage* capture() const;
    bool isLeftOrientation() const;

    std::string title;
    int32_t logicalWidth;
    int32_t logicalHeight;
    bool closeRequested = false;
    uint8_t clearColour[3] = {0, 0, 0};
    int32_t mouseX = 0;
    int32_t mouseY = 0;
    bool mouseButtons[3] = {false, false, false};
    std::vector<int> pressedKeys;  // Qt key codes held down
    std::vector<SailfishButton> virtualButtons;

protected:
    bool event(QEvent* event) override;

private:
    void handleTouch(QTouchEvent* event);
    void handleMouse(QMouseEvent* event);
    void handleKey(QKeyEvent* event, bool pressed);
    void updateMouseButtons(bool press);
    void updateMouseFromLandscapePoint(QPoint point, const SailfishGeometry& geometry);
    QPoint mapDeviceToLandscape(QPointF point) const;
    bool anyMouseShiftPressed() const;
    void drawButtons(QPainter& painter, const SailfishGeometry& geometry) const;

    std::vector<uint8_t> sourcePixels;
    int32_t sourceWidth = 0;
    int32_t sourceHeight = 0;
    std::unique_ptr<QBackingStore> backingStore;
};

}  // namespace orvane
