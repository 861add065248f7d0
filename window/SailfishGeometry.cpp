#include "window/SailfishGeometry.h"

#include <algorithm>
#include <cmath>

namespace orvane {

SailfishGeometry landscapeGeometry(int32_t windowWidth, int32_t windowHeight, int32_t imageWidth,
                                   int32_t imageHeight) {
    SailfishGeometry g;
    g.canvasWidth = std::max({windowWidth, windowHeight, 1});
    g.canvasHeight = std::max(std::min(windowWidth, windowHeight), 1);
    const int32_t areaWidth = std::max(1, int32_t(std::lround(g.canvasWidth * 0.8)));
    const int32_t areaHeight = std::max(1, int32_t(std::lround(g.canvasHeight * 0.8)));
    g.contentRect = QRect((g.canvasWidth - areaWidth) / 2, 0, areaWidth, areaHeight);
    const double scale = std::max(std::min(double(areaWidth) / std::max(imageWidth, 1),
                                           double(areaHeight) / std::max(imageHeight, 1)),
                                  0.0001);
    const int32_t drawnWidth = std::clamp(int32_t(std::lround(imageWidth * scale)), 1, areaWidth);
    const int32_t drawnHeight = std::clamp(int32_t(std::lround(imageHeight * scale)), 1, areaHeight);
    g.imageRect = QRect(g.contentRect.x() + (areaWidth - drawnWidth) / 2,
                        g.contentRect.y() + (areaHeight - drawnHeight) / 2, drawnWidth, drawnHeight);
    return g;
}

QPoint mapDeviceToLandscape(QPointF point, int32_t windowWidth, int32_t windowHeight, bool leftOrientation) {
    const int32_t x = int32_t(std::lround(point.x())), y = int32_t(std::lround(point.y()));
    const int32_t w = windowWidth, h = windowHeight;
    if (w >= h) return QPoint(x, y);
    if (leftOrientation) return QPoint(std::clamp(h - 1 - y, 0, h - 1), std::clamp(x, 0, w - 1));
    return QPoint(std::clamp(y, 0, h - 1), std::clamp(w - 1 - x, 0, w - 1));
}

QPoint landscapeToLogical(QPoint point, const QRect& imageRect, int32_t logicalWidth, int32_t logicalHeight) {
    if (imageRect.width() < 2 || imageRect.height() < 2) return QPoint(0, 0);
    auto axis = [](int32_t offset, int32_t span, int32_t logical) {
        const int64_t l = std::clamp(offset, 0, span - 1);
        const int64_t mapped = ((int64_t(logical) - 1) * l + (span - 1) / 2) / (span - 1);
        return int32_t(std::clamp<int64_t>(mapped, 0, logical - 1));
    };
    return QPoint(axis(point.x() - imageRect.left(), imageRect.width(), logicalWidth),
                  axis(point.y() - imageRect.top(), imageRect.height(), logicalHeight));
}

QRect buttonRect(const SailfishButton& button, const SailfishGeometry& geometry) {
    const int32_t side = std::max(1, int32_t(std::lround(geometry.canvasHeight * 0.1)));
    auto centre = [](int32_t extent, int32_t percent) {
        return int32_t(std::clamp<long>(std::lround(double(extent) * percent / 100.0), 0, extent));
    };
    const int32_t cx = centre(geometry.canvasWidth, button.xPercent);
    const int32_t cy = centre(geometry.canvasHeight, button.yPercent);
    return QRect(cx - side / 2, cy - side / 2, side, side);
}

int buttonAt(const std::vector<SailfishButton>& buttons, QPoint point, const SailfishGeometry& geometry) {
    for (int i = int(buttons.size()) - 1; i >= 0; --i)
        if (buttonRect(buttons[size_t(i)], geometry).contains(point)) return i;
    return -1;
}

}  // namespace orvane
