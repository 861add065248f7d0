// The operations that move pixels about: mapping onto a quadrilateral, bilinear smoothing on
// the sampling grid, bilinear upscaling and cropping.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "image/ImageThreads.h"
#include "image/PixelOperations.h"

namespace orvane {

namespace {

bool hasPixels(const NuvraImage* image) {
    return image && image->pixels && image->width > 0 && image->height > 0;
}

// A rounded source coordinate clamped to 0..max; NaN counts as 0.
int64_t nearestIndex(float position, int32_t max) {
    const float rounded = std::round(position);
    if (!(rounded > 0.0f)) return 0;
    return rounded >= float(max) ? max : int64_t(rounded);
}

// Hands a finished buffer to the image; the reflection layer stays as it was.
void replacePixels(NuvraImage& image, uint8_t* pixels, int32_t width, int32_t height) {
    delete[] image.pixels;
    image.pixels = pixels;
    image.width = width;
    image.height = height;
}

}  // namespace

float edgeFunction(float ax, float ay, float bx, float by, float cx, float cy) {
    return (bx - ax) * (cy - ay) - (by - ay) * (cx - ax);
}

void skewImage(int32_t ltx, int32_t lty, int32_t rtx, int32_t rty, int32_t lbx, int32_t lby, int32_t rbx,
               int32_t rby, const NuvraImage* input, NuvraImage* output) {
    if (!hasPixels(input) || !hasPixels(output)) return;
    const float LTx = float(ltx), LTy = float(lty), RTx = float(rtx), RTy = float(rty);
    const float LBx = float(lbx), LBy = float(lby), RBx = float(rbx), RBy = float(rby);
    // Two triangles, LT RT LB and RT RB LB, share the diagonal from right top to left bottom. A
    // flat one is switched off by a zero inverse, so the other still draws.
    const float area1 = edgeFunction(LTx, LTy, RTx, RTy, LBx, LBy);
    const float area2 = edgeFunction(RTx, RTy, RBx, RBy, LBx, LBy);
    if (std::fabs(area1) < 1e-5f && std::fabs(area2) < 1e-5f) return;
    const float inv1 = std::fabs(area1) < 1e-5f ? 0.0f : 1.0f / area1;
    const float inv2 = std::fabs(area2) < 1e-5f ? 0.0f : 1.0f / area2;
    const float maxX = float(input->width - 1), maxY = float(input->height - 1);
    // Drawing an image onto itself: bands would read rows that others write, so read a copy.
    std::vector<uint8_t> snapshot;
    const uint8_t* source = input->pixels;
    if (input == output) {
        snapshot.assign(input->pixels, input->pixels + int64_t(input->width) * input->height * 4);
        source = snapshot.data();
    }
    const int32_t sourceWidth = input->width, maxColumn = input->width - 1, maxRow = input->height - 1;
    const int32_t width = output->width;
    uint8_t* const pixels = output->pixels;
    auto rows = [&](int32_t first, int32_t end) {
        for (int32_t y = first; y < end; ++y) {
            const float py = float(y);
            uint8_t* target = pixels + int64_t(y) * width * 4;
            for (int32_t x = 0; x < width; ++x, target += 4) {
                const float px = float(x);
                float sx = 0, sy = 0;
                bool inside = false;
                if (inv1 != 0.0f) {
                    const float u1 = edgeFunction(px, py, RTx, RTy, LBx, LBy) * inv1;
                    const float u2 = edgeFunction(LTx, LTy, px, py, LBx, LBy) * inv1;
                    const float u3 = 1.0f - u1 - u2;
                    if (u1 >= 0 && u2 >= 0 && u3 >= 0) {
                        sx = u2 * maxX;
                        sy = u3 * maxY;
                        inside = true;
                    }
                }
                if (!inside && inv2 != 0.0f) {
                    const float u1 = edgeFunction(px, py, RBx, RBy, LBx, LBy) * inv2;
                    const float u2 = edgeFunction(RTx, RTy, px, py, LBx, LBy) * inv2;
                    const float u3 = 1.0f - u1 - u2;
                    if (u1 >= 0 && u2 >= 0 && u3 >= 0) {
                        sx = u1 * maxX + u2 * maxX;
                        sy = u2 * maxY + u3 * maxY;
                        inside = true;
                    }
                }
                if (!inside) continue;
                const int64_t column = nearestIndex(sx, maxColumn), row = nearestIndex(sy, maxRow);
                std::memcpy(target, source + (row * sourceWidth + column) * 4, 4);
            }
        }
    };
    runCeilingBands(output->height, std::max(1, std::min(AllowedThreads, output->height)), rows);
}

void bilinearInPlace(NuvraImage* image) {
    if (!hasPixels(image) || step < 1 || AllowedThreads < 1) return;
    const int64_t grid = step, width = image->width, height = image->height;
    uint8_t* const pixels = image->pixels;
    // The grid cell around a coordinate: x1 on the grid, x2 the next grid line or, past the
    // last pixel, x1 again; f the position between them.
    struct Span {
        int64_t low, high;
        float f;
    };
    auto span = [grid](int64_t v, int64_t size) {
        const int64_t low = v / grid * grid;
        const int64_t high = low + grid > size - 1 ? low : low + grid;
        return Span{low, high, high == low ? 0.0f : float(v - low) / float(high - low)};
    };
    // Only grid pixels are read and they are never written, so no band waits for another.
    auto rows = [=](int32_t first, int32_t end) {
        for (int64_t y = first; y < end; ++y) {
            const Span sy = span(y, height);
            const uint8_t* top = pixels + sy.low * width * 4;
            const uint8_t* bottom = pixels + sy.high * width * 4;
            uint8_t* target = pixels + y * width * 4;
            for (int64_t x = 0; x < width; ++x) {
                if (y % grid == 0 && x % grid == 0) continue;
                const Span sx = span(x, width);
                const uint8_t *p11 = top + sx.low * 4, *p21 = top + sx.high * 4;
                const uint8_t *p12 = bottom + sx.low * 4, *p22 = bottom + sx.high * 4;
                for (int c = 0; c < 4; ++c) {
                    const float upper = (1 - sx.f) * p11[c] + sx.f * p21[c];
                    const float lower = (1 - sx.f) * p12[c] + sx.f * p22[c];
                    const float value = (1 - sy.f) * upper + sy.f * lower;
                    target[x * 4 + c] = uint8_t(std::clamp(std::lround(value), 0L, 255L));
                }
            }
        }
    };
    const int32_t hardware = int32_t(std::thread::hardware_concurrency());
    runRemainderBands(image->height, std::max(1, std::min(AllowedThreads, hardware)), rows);
}

void upscaleNuvraImage(NuvraImage* image, float factor) {
    // Also refuses NaN.
    if (!hasPixels(image) || !(factor > 1.0f)) return;
    const double newWidth = std::floor(double(image->width) * factor);
    const double newHeight = std::floor(double(image->height) * factor);
    // Refused before any int conversion, so a huge or infinite factor is a no-op.
    if (newWidth * newHeight > double(kMaxImagePixels)) return;
    const int32_t width = int32_t(newWidth), height = int32_t(newHeight);
    uint8_t* scaled = allocatePixels(width, height);
    if (!scaled) return;
    const uint8_t* const source = image->pixels;
    const int32_t sourceWidth = image->width, maxColumn = image->width - 1, maxRow = image->height - 1;
    auto rows = [=](int32_t first, int32_t end) {
        for (int32_t y = first; y < end; ++y) {
            const float sy = (float(y) + 0.5f) / factor - 0.5f;
            const int32_t y0 = std::clamp(int32_t(sy), 0, maxRow), y1 = std::clamp(int32_t(sy) + 1, 0, maxRow);
            const float fy = sy - float(y0);
            uint8_t* target = scaled + int64_t(y) * width * 4;
            for (int32_t x = 0; x < width; ++x, target += 4) {
                const float sx = (float(x) + 0.5f) / factor - 0.5f;
                const int32_t x0 = std::clamp(int32_t(sx), 0, maxColumn);
                const int32_t x1 = std::clamp(int32_t(sx) + 1, 0, maxColumn);
                const float fx = sx - float(x0);
                const float w00 = (1 - fx) * (1 - fy), w10 = fx * (1 - fy), w01 = fy * (1 - fx), w11 = fx * fy;
                const uint8_t* p00 = source + (int64_t(y0) * sourceWidth + x0) * 4;
                const uint8_t* p10 = source + (int64_t(y0) * sourceWidth + x1) * 4;
                const uint8_t* p01 = source + (int64_t(y1) * sourceWidth + x0) * 4;
                const uint8_t* p11 = source + (int64_t(y1) * sourceWidth + x1) * 4;
                for (int c = 0; c < 4; ++c) {
                    const float sum = w00 * p00[c] + w10 * p10[c] + w01 * p01[c] + w11 * p11[c];
                    // Truncated, not rounded. Near the first row and column fx and fy are
                    // negative, so at high contrast the sum can leave 0..255: it is clamped
                    // before the byte is taken.
                    target[c] = uint8_t(std::clamp(sum, 0.0f, 255.0f));
                }
            }
        }
    };
    runRemainderBands(height, std::min(AllowedThreads, height), rows);
    replacePixels(*image, scaled, width, height);
}

void trimNuvraImage(NuvraImage* image, int32_t width, int32_t height) {
    if (!hasPixels(image) || width < 1 || height < 1) return;
    if (width > image->width || height > image->height) return;
    if (width == image->width && height == image->height) return;
    uint8_t* trimmed = allocatePixels(width, height);
    if (!trimmed) return;
    const uint8_t* const source = image->pixels;
    const int64_t sourceRow = int64_t(image->width) * 4, targetRow = int64_t(width) * 4;
    auto rows = [=](int32_t first, int32_t end) {
        for (int64_t y = first; y < end; ++y) std::memcpy(trimmed + y * targetRow, source + y * sourceRow, targetRow);
    };
    runRemainderBands(height, std::min(AllowedThreads, height), rows);
    replacePixels(*image, trimmed, width, height);
}

}  // namespace orvane
