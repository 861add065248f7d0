// Where things lie on the landscape canvas: the image area, the virtual buttons, and the
// mapping of device points to the canvas and of canvas points to the script's coordinates.
#pragma once

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <vector>

#include "window/SailfishInput.h"

namespace orvane {

// Computed whenever needed, never stored: the window may turn or resize at any event.
struct SailfishGeometry {
    int32_t canvasWidth;
    int32_t canvasHeight;
    QRect contentRect;  // upper 80 per cent, centred
    QRect imageRect;    // the image, letterboxed inside contentRect
};

// windowWidth/Height: the physical window; imageWidth/Height: the shown image (or the logical size).
SailfishGeometry landscapeGeometry(int32_t windowWidth, int32_t windowHeight, int32_t imageWidth,
                                   int32_t imageHeight);
// Inverse of the rotation applied when presenting on a portrait device.
QPoint mapDeviceToLandscape(QPointF point, int32_t windowWidth, int32_t windowHeight, bool leftOrientation);
// A canvas point inside imageRect to script coordinates; the far edge maps onto the last pixel.
QPoint landscapeToLogical(QPoint point, const QRect& imageRect, int32_t logicalWidth, int32_t logicalHeight);
QRect buttonRect(const SailfishButton& button, const SailfishGeometry& geometry);
// The newest button containing the point (edges included), or -1.
int buttonAt(const std::vector<SailfishButton>& buttons, QPoint point, const SailfishGeometry& geometry);

}  // namespace orvane
