// The colour weights of the grey value, shared by the pixel operations and the renderers. Only
// the script thread changes them, and never while workers run.
#pragma once

namespace orvane {

// Each channel has two factors, multiplied in turn: red 0.55 x 1.0, green 0.65 x 1.457, blue
// 0.475 x 2.0 by default.
extern float gred1, gred2, ggreen1, ggreen2, gblue1, gblue2;

// The grey of a colour, in whatever range its channels are given (0 to 255 or 0 to 1). Single
// precision, the factors in this order, so that every user of it gets the same bits.
inline float greyValue(float r, float g, float b) {
    return (r * gred1 * gred2 + g * ggreen1 * ggreen2 + b * gblue1 * gblue2) / 3.0f;
}

}  // namespace orvane
