#include "image/Blit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include "image/ImageThreads.h"

namespace orvane {

namespace {

// Integer "over": the source alpha weighs the colours, alphas combine as a union.
inline void blendPixel(uint8_t* t, const uint8_t* s) {
    const uint32_t sa = s[3];
    if (sa == 0) return;
    if (sa == 255) {
        std::memcpy(t, s, 4);
        return;
    }
    for (int c = 0; c < 3; ++c) t[c] = uint8_t((s[c] * sa + t[c] * (255 - sa)) / 255);
    const uint32_t ta = t[3];
    t[3] = uint8_t(std::min<uint32_t>(sa + ta - sa * ta / 255, 255));
}

int32_t threadCount(int64_t work, int32_t rowLimit) {
    int32_t threads = 1;
    if (work >= kBlitThreadThreshold) {
        const int32_t hardware = std::max(1, int32_t(std::thread::hardware_concurrency()));
        threads = std::min(AllowedThreads, hardware);
    }
    return std::max(1, std::min(threads, rowLimit));
}

bool isUnrotated(float rotation) {
    float r = std::fmod(rotation, 360.0f);
    if (r < 0) r += 360.0f;
    return r < 1e-5f || r > 359.999f;
}

// Scale 1, no rotation: whole clipped row segments, no floating point in the loop.
void fastBlit(NuvraImage& target, const NuvraImage& image, const uint8_t* source, int32_t x, int32_t y, bool blend) {
    const int64_t firstColumn = std::max<int64_t>(0, -int64_t(x));
    const int64_t endColumn = std::min<int64_t>(image.width, int64_t(target.width) - x);
    if (firstColumn >= endColumn) return;
    const size_t span = size_t(endColumn - firstColumn);
    auto rows = [&](int32_t first, int32_t end) {
        for (int32_t sy = first; sy < end; ++sy) {
            const int64_t ty = int64_t(y) + sy;
            if (ty < 0 || ty >= target.height) continue;
            const uint8_t* s = source + (int64_t(image.width) * sy + firstColumn) * 4;
            uint8_t* t = target.pixels + (int64_t(target.width) * ty + x + firstColumn) * 4;
            if (!blend) {
                std::memcpy(t, s, span * 4);
                continue;
            }
            for (size_t i = 0; i < span; ++i) blendPixel(t + i * 4, s + i * 4);
        }
    };
    runCeilingBands(image.height, threadCount(int64_t(image.width) * image.height, image.height), rows);
}

// Walks the target's pixels in the clipped bounding box and maps each back into the source.
void generalBlit(NuvraImage& target, const NuvraImage& image, const uint8_t* source, int32_t x, int32_t y, bool blend,
                 float scale, float rotation) {
    const bool unrotated = isUnrotated(rotation);
    const float dw = scale * float(image.width);
    const float dh = scale * float(image.height);
    float cosA = 1.0f, sinA = 0.0f;
    if (!unrotated) {
        const float radians = rotation * 0.017453292f;
        cosA = std::cos(radians);
        sinA = std::sin(radians);
    }
    const float cx = float(x) + dw / 2.0f;
    const float cy = float(y) + dh / 2.0f;
    float left = float(x), right = float(x) + dw, top = float(y), bottom = float(y) + dh;
    if (!unrotated) {
        const float cornersX[4] = {float(x), float(x) + dw, float(x), float(x) + dw};
        const float cornersY[4] = {float(y), float(y), float(y) + dh, float(y) + dh};
        left = top = INFINITY;
        right = bottom = -INFINITY;
        for (int i = 0; i < 4; ++i) {
            const float dx = cornersX[i] - cx, dy = cornersY[i] - cy;
            const float px = cx + dx * cosA - dy * sinA, py = cy + dx * sinA + dy * cosA;
            left = std::min(left, px), right = std::max(right, px);
            top = std::min(top, py), bottom = std::max(bottom, py);
        }
    }
    // Clamped in double first, so that huge edges cannot overflow an int; NaN gives an empty box.
    auto clampEdge = [](double edge, int32_t limit) {
        if (!(edge > 0.0)) return 0;
        return edge > double(limit) ? limit : int32_t(edge);
    };
    const int32_t x0 = clampEdge(std::floor(double(left)), target.width);
    const int32_t x1 = clampEdge(std::ceil(double(right)), target.width);
    const int32_t y0 = clampEdge(std::floor(double(top)), target.height);
    const int32_t y1 = clampEdge(std::ceil(double(bottom)), target.height);
    if (x1 <= x0 || y1 <= y0) return;
    const float halfW = float(image.width) / 2.0f, halfH = float(image.height) / 2.0f;
    auto rows = [&](int32_t first, int32_t end) {
        for (int32_t py = y0 + first; py < y0 + end; ++py) {
            uint8_t* t = target.pixels + (int64_t(target.width) * py + x0) * 4;
            for (int32_t px = x0; px < x1; ++px, t += 4) {
                float u, v;
                if (unrotated) {
                    u = float(int64_t(px) - x) / scale;
                    v = float(int64_t(py) - y) / scale;
                } else {
                    const float dx = float(px) - cx, dy = float(py) - cy;
                    u = (dx * cosA + dy * sinA) / scale + halfW;
                    v = (dy * cosA - dx * sinA) / scale + halfH;
                }
                const float su = std::round(u), sv = std::round(v);
                if (!(su >= 0.0f && sv >= 0.0f && su < float(image.width) && sv < float(image.height))) continue;
                const uint8_t* s = source + (int64_t(image.width) * int64_t(sv) + int64_t(su)) * 4;
                if (blend) blendPixel(t, s);
                else std::memcpy(t, s, 4);
            }
        }
    };
    const int32_t rowsInBox = y1 - y0;
    runCeilingBands(rowsInBox, threadCount(int64_t(x1 - x0) * rowsInBox, rowsInBox), rows);
}

}  // namespace

void blitImage(NuvraImage& target, const NuvraImage& image, int32_t x, int32_t y, bool blend, float scale,
               float rotation) {
    if (scale == 0.0f) return;
    // One image as both ends: bands would read rows that others write, so draw from a snapshot.
    std::vector<uint8_t> snapshot;
    const uint8_t* source = image.pixels;
    if (&target == &image) {
        snapshot.assign(image.pixels, image.pixels + int64_t(image.width) * image.height * 4);
        source = snapshot.data();
    }
    if (scale == 1.0f && isUnrotated(rotation)) fastBlit(target, image, source, x, y, blend);
    else generalBlit(target, image, source, x, y, blend, scale, rotation);
}

}  // namespace orvane
