#include "window/OrvaneSailfishWindow.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QTouchEvent>
#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvane {

OrvaneSailfishWindow::OrvaneSailfishWindow(const char* titleText, int32_t width, int32_t height)
    : title(titleText ? titleText : "OrvaneTide"), logicalWidth(std::max(width, 1)),
      logicalHeight(std::max(height, 1)), backingStore(std::make_unique<QBackingStore>(this)) {
    QWindow::setTitle(QString::fromStdString(title));
    setSurfaceType(QSurface::RasterSurface);
    setFlags(Qt::Window | Qt::FramelessWindowHint);
    // The script's size is only a coordinate space: the window always covers its screen.
    QScreen* own = screen() ? screen() : QGuiApplication::primaryScreen();
    if (own) setGeometry(own->geometry());
    showFullScreen();
}

OrvaneSailfishWindow::~OrvaneSailfishWindow() = default;

void OrvaneSailfishWindow::setTitleText(const char* titleText) {
    title = titleText ? titleText : "OrvaneTide";
    QWindow::setTitle(QString::fromStdString(title));
}

void OrvaneSailfishWindow::setLogicalSize(int32_t width, int32_t height) {
    logicalWidth = std::max(width, 1);
    logicalHeight = std::max(height, 1);
}

void OrvaneSailfishWindow::setSourceImage(const NuvraImage* image) {
    if (!image || !image->pixels || image->width <= 0 || image->height <= 0) return;
    sourceWidth = image->width;
    sourceHeight = image->height;
    sourcePixels.assign(image->pixels, image->pixels + int64_t(image->width) * image->height * 4);
}

void OrvaneSailfishWindow::clear(uint8_t r, uint8_t g, uint8_t b) {
    clearColour[0] = r;
    clearColour[1] = g;
    clearColour[2] = b;
}

void OrvaneSailfishWindow::registerButton(const char* keyCode, const char* displayText, int32_t x, int32_t y) {
    orvane::registerButton(virtualButtons, keyCode, displayText, x, y);
}

SailfishGeometry OrvaneSailfishWindow::landscapeGeometry() const {
    const bool hasImage = sourceWidth >= 1 && sourceHeight >= 1;
    return orvane::landscapeGeometry(width(), height(), hasImage ? sourceWidth : logicalWidth,
                                     hasImage ? sourceHeight : logicalHeight);
}

QImage OrvaneSailfishWindow::renderLandscapeCanvas() const {
    const SailfishGeometry geometry = landscapeGeometry();
    QImage canvas(geometry.canvasWidth, geometry.canvasHeight, QImage::Format_RGBA8888);
    canvas.fill(Qt::black);
    QPainter painter(&canvas);
    if (!sourcePixels.empty() && sourceWidth > 0 && sourceHeight > 0) {
        const QImage source(sourcePixels.data(), sourceWidth, sourceHeight, sourceWidth * 4,
                            QImage::Format_RGBA8888);
        painter.drawImage(geometry.imageRect, source);
    } else {
        painter.fillRect(geometry.imageRect, QColor(clearColour[0], clearColour[1], clearColour[2], 255));
    }
    drawButtons(painter, geometry);
    return canvas;
}

NuvraImage* OrvaneSailfishWindow::capture() const {
    const QImage canvas = renderLandscapeCanvas();
    const int32_t w = canvas.width(), h = canvas.height();
    auto* image = new NuvraImage{w, h, new uint8_t[size_t(w) * size_t(h) * 4], 0, 0, nullptr};
    for (int32_t y = 0; y < h; ++y) std::memcpy(image->pixels + size_t(y) * w * 4, canvas.constScanLine(y), size_t(w) * 4);
    return image;
}

bool OrvaneSailfishWindow::isLeftOrientation() const {
    QScreen* own = screen() ? screen() : QGuiApplication::primaryScreen();
    if (!own) return true;
    const Qt::ScreenOrientation o = own->orientation();
    return o != Qt::InvertedPortraitOrientation && o != Qt::InvertedLandscapeOrientation;
}

void OrvaneSailfishWindow::present() {
    const int32_t w = width(), h = height();
    if (!isExposed() || w < 1 || h < 1) return;
    const QRect whole(0, 0, w, h);
    backingStore->resize(whole.size());
    backingStore->beginPaint(whole);
    const QImage canvas = renderLandscapeCanvas();
    QPainter painter(backingStore->paintDevice());
    if (w < h && isLeftOrientation()) {
        painter.translate(0, h);
        painter.rotate(-90);
        painter.drawImage(QRect(0, 0, h, w), canvas);
    } else if (w < h) {
        painter.translate(w, 0);
        painter.rotate(90);
        painter.drawImage(QRect(0, 0, h, w), canvas);
    } else {
        painter.drawImage(whole, canvas);
    }
    painter.end();
    backingStore->endPaint();
    backingStore->flush(whole, this, QPoint(0, 0));
}

bool OrvaneSailfishWindow::event(QEvent* event) {
    switch (event->type()) {
    case QEvent::Expose: present(); return true;
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel: handleTouch(static_cast<QTouchEvent*>(event)); return true;
    case QEvent::Close: closeRequested = true; return true;  // only scripts act on it
    case QEvent::KeyPress: handleKey(static_cast<QKeyEvent*>(event), true); return true;
    case QEvent::KeyRelease: handleKey(static_cast<QKeyEvent*>(event), false); return true;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseMove: handleMouse(static_cast<QMouseEvent*>(event)); return true;
    default: return QWindow::event(event);
    }
}

QPoint OrvaneSailfishWindow::mapDeviceToLandscape(QPointF point) const {
    return orvane::mapDeviceToLandscape(point, width(), height(), isLeftOrientation());
}

void OrvaneSailfishWindow::handleKey(QKeyEvent* event, bool pressed) {
    if (event->isAutoRepeat()) return;
    const int key = event->key();
    if (pressed) {
        if (std::find(pressedKeys.begin(), pressedKeys.end(), key) == pressedKeys.end()) pressedKeys.push_back(key);
    } else {
        pressedKeys.erase(std::remove(pressedKeys.begin(), pressedKeys.end(), key), pressedKeys.end());
    }
}

bool OrvaneSailfishWindow::anyMouseShiftPressed() const {
    return std::any_of(virtualButtons.begin(), virtualButtons.end(),
                       [](const SailfishButton& b) { return b.pressed && b.keyCode == "mouse_shift"; });
}

// With "mouse_shift" held, a press on the image counts as the second button. The third never is.
void OrvaneSailfishWindow::updateMouseButtons(bool press) {
    const bool shift = anyMouseShiftPressed();
    mouseButtons[0] = press && !shift;
    mouseButtons[1] = press && shift;
    mouseButtons[2] = false;
}

void OrvaneSailfishWindow::updateMouseFromLandscapePoint(QPoint point, const SailfishGeometry& geometry) {
    const QPoint logical = landscapeToLogical(point, geometry.imageRect, logicalWidth, logicalHeight);
    mouseX = logical.x();
    mouseY = logical.y();
}

void OrvaneSailfishWindow::handleMouse(QMouseEvent* event) {
    const bool press = event->buttons() & Qt::LeftButton;
    const QPoint point = mapDeviceToLandscape(event->localPos());
    const SailfishGeometry geometry = landscapeGeometry();
    for (SailfishButton& b : virtualButtons) b.pressed = false;
    const int hit = buttonAt(virtualButtons, point, geometry);
    if (hit >= 0 && press) {
        virtualButtons[size_t(hit)].pressed = true;
        updateMouseButtons(false);
    } else if (geometry.imageRect.contains(point)) {
        updateMouseFromLandscapePoint(point, geometry);
        updateMouseButtons(press);
    } else {
        updateMouseButtons(false);
    }
    event->accept();
}

// Several fingers at once: one on the image is the pointer, the others hold buttons.
void OrvaneSailfishWindow::handleTouch(QTouchEvent* event) {
    const SailfishGeometry geometry = landscapeGeometry();
    for (SailfishButton& b : virtualButtons) b.pressed = false;
    bool haveCandidate = false;
    QPoint candidate;
    for (const QTouchEvent::TouchPoint& touch : event->touchPoints()) {
        if (touch.state() == Qt::TouchPointReleased) continue;
        const QPoint point = mapDeviceToLandscape(touch.pos());
        const int hit = buttonAt(virtualButtons, point, geometry);
        if (hit >= 0) {
            virtualButtons[size_t(hit)].pressed = true;
        } else if (geometry.imageRect.contains(point)) {
            candidate = point;
            haveCandidate = true;
        }
    }
    if (haveCandidate) updateMouseFromLandscapePoint(candidate, geometry);
    updateMouseButtons(haveCandidate);
    event->accept();
}

void OrvaneSailfishWindow::drawButtons(QPainter& painter, const SailfishGeometry& geometry) const {
    if (virtualButtons.empty()) return;
    QFont font;
    font.setPixelSize(std::max(8, int(std::lround(geometry.canvasHeight * 0.035))));
    painter.setFont(font);
    const int stroke = std::max(1, int(std::lround(geometry.canvasHeight * 0.015)));
    const QColor white(255, 255, 255, 255);
    for (const SailfishButton& button : virtualButtons) {
        const QRect rect = buttonRect(button, geometry);
        const int inset = (stroke + 1) / 2;
        painter.setPen(QPen(white, stroke, Qt::SolidLine));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(rect.adjusted(inset, inset, -inset, -inset));
        painter.drawText(rect.adjusted(stroke, stroke, -stroke, -stroke), Qt::AlignCenter,
                         QString::fromStdString(button.displayText));
    }
}

}  // namespace orvane
