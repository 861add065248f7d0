// Blit's vector paths against a plain reference that draws one pixel at a time by the rules:
// random images of odd sizes, every alpha, offsets across every edge, copy and blend, scaled,
// turned and both. Every byte of the target must agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "image/Blit.h"
#include "image/ImageThreads.h"

namespace orvane {
namespace {

void referenceBlend(uint8_t* t, const uint8_t* s) {
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

bool referenceUnrotated(float rotation) {
    float r = std::fmod(rotation, 360.0f);
    if (r < 0) r += 360.0f;
    return r < 1e-5f || r > 359.999f;
}

// The rules word for word, on one thread, each pixel on its own.
void referenceBlit(NuvraImage& target, const NuvraImage& image, int32_t x, int32_t y, bool blend, float scale,
                   float rotation) {
    if (scale == 0.0f) return;
    auto draw = [&](int64_t tx, int64_t ty, int64_t sx, int64_t sy) {
        uint8_t* t = target.pixels + (ty * target.width + tx) * 4;
        const uint8_t* s = image.pixels + (sy * image.width + sx) * 4;
        if (blend) referenceBlend(t, s);
        else std::memcpy(t, s, 4);
    };
    const bool unrotated = referenceUnrotated(rotation);
    if (scale == 1.0f && unrotated) {
        for (int64_t sy = 0; sy < image.height; ++sy)
            for (int64_t sx = 0; sx < image.width; ++sx) {
                const int64_t tx = x + sx, ty = y + sy;
                if (tx >= 0 && ty >= 0 && tx < target.width && ty < target.height) draw(tx, ty, sx, sy);
            }
        return;
    }
    const float dw = scale * float(image.width), dh = scale * float(image.height);
    float cosA = 1.0f, sinA = 0.0f;
    if (!unrotated) {
        cosA = std::cos(rotation * 0.017453292f);
        sinA = std::sin(rotation * 0.017453292f);
    }
    const float cx = float(x) + dw / 2.0f, cy = float(y) + dh / 2.0f;
    float left = float(x), right = float(x) + dw, top = float(y), bottom = float(y) + dh;
    if (!unrotated) {
        left = top = INFINITY;
        right = bottom = -INFINITY;
        for (float cornerX : {float(x), float(x) + dw})
            for (float cornerY : {float(y), float(y) + dh}) {
                const float dx = cornerX - cx, dy = cornerY - cy;
                const float px = cx + dx * cosA - dy * sinA, py = cy + dx * sinA + dy * cosA;
                left = std::min(left, px), right = std::max(right, px);
                top = std::min(top, py), bottom = std::max(bottom, py);
            }
    }
    const double x0 = std::max(0.0, std::floor(double(left))), x1 = std::min(double(target.width), std::ceil(double(right)));
    const double y0 = std::max(0.0, std::floor(double(top))), y1 = std::min(double(target.height), std::ceil(double(bottom)));
    for (int64_t py = int64_t(y0); py < y1; ++py)
        for (int64_t px = int64_t(x0); px < x1; ++px) {
            float u, v;
            if (unrotated) {
                u = float(px - x) / scale;
                v = float(py - y) / scale;
            } else {
                const float dx = float(px) - cx, dy = float(py) - cy;
                u = (dx * cosA + dy * sinA) / scale + float(image.width) / 2.0f;
                v = (dy * cosA - dx * sinA) / scale + float(image.height) / 2.0f;
            }
            const float su = std::round(u), sv = std::round(v);
            if (su >= 0.0f && sv >= 0.0f && su < float(image.width) && sv < float(image.height))
                draw(px, py, int64_t(su), int64_t(sv));
        }
}

struct Pixels {
    std::vector<uint8_t> bytes;
    NuvraImage image{};
    Pixels(int32_t w, int32_t h, std::mt19937& random) : bytes(size_t(w) * h * 4) {
        for (uint8_t& b : bytes) b = uint8_t(random());
        // Plenty of fully transparent and fully opaque pixels, which the rules single out.
        for (size_t i = 3; i < bytes.size(); i += 4)
            if (random() % 3 == 0) bytes[i] = random() % 2 ? 0 : 255;
        image = NuvraImage{w, h, bytes.data(), 0, 0, nullptr};
    }
};

TEST(BlitVectors, EveryPathGivesTheReferencePixels) {
    std::mt19937 random(2024);
    const float scales[] = {1.0f, 1.0f, 0.5f, 0.73f, 1.5f, 2.0f, 3.3f, -1.0f, -0.6f, 0.02f, 1e5f};
    const float rotations[] = {0.0f, 360.0f, 359.9995f, 33.0f, 90.0f, 180.0f, -45.0f, 359.99f, 271.3f, 1e-3f};
    const int32_t saved = AllowedThreads;
    AllowedThreads = 1;
    size_t drawn = 0;
    for (int round = 0; round < 1500; ++round) {
        std::mt19937 pixels(random());
        // Now and then a target wider than the strips a turned blit is drawn in.
        const int32_t grow = round % 100 == 7 ? 16 : 1;
        const int32_t tw = 1 + int32_t(random() % 61) * grow, th = 1 + int32_t(random() % 41) * grow;
        const int32_t sw = 1 + int32_t(random() % 37) * grow, sh = 1 + int32_t(random() % 29) * grow;
        Pixels target(tw, th, pixels), source(sw, sh, pixels);
        Pixels expected = target;
        expected.image.pixels = expected.bytes.data();
        int32_t x = int32_t(random() % uint32_t(tw + sw + 20)) - sw - 10;
        int32_t y = int32_t(random() % uint32_t(th + sh + 20)) - sh - 10;
        if (round % 50 == 0) x *= 40000, y *= -30000;  // far off, where floats round coarsely
        const bool blend = random() % 2;
        const float scale = scales[random() % std::size(scales)];
        const float rotation = rotations[random() % std::size(rotations)];
        referenceBlit(expected.image, source.image, x, y, blend, scale, rotation);
        const std::vector<uint8_t> before = target.bytes;
        blitImage(target.image, source.image, x, y, blend, scale, rotation);
        ASSERT_EQ(target.bytes, expected.bytes) << "round " << round << ": " << sw << "x" << sh << " into " << tw << "x"
                                                << th << " at " << x << "," << y << " blend " << blend << " scale "
                                                << scale << " rotation " << rotation;
        drawn += target.bytes != before;
    }
    AllowedThreads = saved;
    EXPECT_GT(drawn, 500u);  // most rounds draw something
}

// The blend on every pair of source and target values that matter: all alphas, and colours at the
// ends and in between.
TEST(BlitVectors, BlendMatchesTheIntegerRuleOnEveryAlpha) {
    const uint8_t levels[] = {0, 1, 2, 127, 128, 129, 200, 254, 255};
    std::vector<uint8_t> sourceBytes, targetBytes;
    for (int sa = 0; sa < 256; ++sa)
        for (int ta = 0; ta < 256; ++ta)
            for (uint8_t s : levels)
                for (uint8_t t : levels) {
                    sourceBytes.insert(sourceBytes.end(), {s, uint8_t(255 - s), uint8_t(s / 2), uint8_t(sa)});
                    targetBytes.insert(targetBytes.end(), {t, uint8_t(t / 3), uint8_t(255 - t), uint8_t(ta)});
                }
    const int32_t width = 81 * 16, height = int32_t(sourceBytes.size() / 4 / size_t(width));
    std::vector<uint8_t> expected = targetBytes;
    for (size_t i = 0; i < expected.size(); i += 4) referenceBlend(&expected[i], &sourceBytes[i]);
    NuvraImage source{width, height, sourceBytes.data(), 0, 0, nullptr};
    NuvraImage target{width, height, targetBytes.data(), 0, 0, nullptr};
    blitImage(target, source, 0, 0, true, 1.0f, 0.0f);
    EXPECT_EQ(targetBytes, expected);
}

}  // namespace
}  // namespace orvane
