// Blit speed on one core (AllowedThreads 1) against memcpy of the same bytes: a 1024 by 1024
// sprite of every alpha into a 1920 by 1080 screen, copied and blended at scale 1, scaled,
// rotated and both. Megapixels per second of pixels drawn (target pixels that map into the
// source); best of several runs, since the machine may be busy. Last, the same blends with the
// default worker threads.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "image/Blit.h"
#include "image/ImageThreads.h"

namespace {

using orvane::NuvraImage;
constexpr int32_t kTargetW = 1920, kTargetH = 1080, kSource = 1024;
constexpr int kRuns = 15;

double best_seconds(const std::function<void()>& work) {
    double best = 1e30;
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

struct Case {
    const char* name;
    int32_t x, y;
    bool blend;
    float scale, rotation;
};

// Target pixels that a blit draws: an opaque copy into a transparent target marks them.
int64_t drawn_pixels(const NuvraImage& source, const Case& c) {
    std::vector<uint8_t> marks(size_t(kTargetW) * kTargetH * 4, 0), opaque(size_t(kSource) * kSource * 4, 255);
    NuvraImage target{kTargetW, kTargetH, marks.data(), 0, 0, nullptr};
    NuvraImage solid{source.width, source.height, opaque.data(), 0, 0, nullptr};
    orvane::blitImage(target, solid, c.x, c.y, false, c.scale, c.rotation);
    int64_t count = 0;
    for (size_t i = 3; i < marks.size(); i += 4) count += marks[i] != 0;
    return count;
}

}  // namespace

int main() {
    std::mt19937 rng(5);
    std::vector<uint8_t> sprite(size_t(kSource) * kSource * 4), screen(size_t(kTargetW) * kTargetH * 4);
    for (auto& b : sprite) b = uint8_t(rng());
    for (auto& b : screen) b = uint8_t(rng());
    NuvraImage source{kSource, kSource, sprite.data(), 0, 0, nullptr};
    NuvraImage target{kTargetW, kTargetH, screen.data(), 0, 0, nullptr};

    const size_t bytes = sprite.size();
    std::vector<uint8_t> copy(bytes);
    const double tMemcpy = best_seconds([&] { std::memcpy(copy.data(), sprite.data(), bytes); });
    const double memcpyRate = double(kSource) * kSource / 1e6 / tMemcpy;

    const Case cases[] = {
        {"copy, scale 1", 448, 28, false, 1.0f, 0.0f},
        {"blend, scale 1", 448, 28, true, 1.0f, 0.0f},
        {"copy, scale 0.9", 448, 28, false, 0.9f, 0.0f},
        {"blend, scale 0.9", 448, 28, true, 0.9f, 0.0f},
        {"copy, rotated 33", 448, 28, false, 1.0f, 33.0f},
        {"blend, rotated 33", 448, 28, true, 1.0f, 33.0f},
        {"blend, scale 0.9 rotated 33", 448, 28, true, 0.9f, 33.0f},
    };
    const int32_t savedThreads = orvane::AllowedThreads;
    std::printf("Blit of a %d x %d sprite into a %d x %d screen, MP/s of pixels drawn, best of %d runs\n", kSource,
                kSource, kTargetW, kTargetH, kRuns);
    std::printf("  %-30s %10s %10s\n", "one core", "MP/s", "vs memcpy");
    std::printf("  %-30s %10.0f %9.0f%%\n", "memcpy of the sprite's bytes", memcpyRate, 100.0);
    for (const Case& c : cases) {
        const double megapixels = double(drawn_pixels(source, c)) / 1e6;
        orvane::AllowedThreads = 1;
        const double t = best_seconds([&] { orvane::blitImage(target, source, c.x, c.y, c.blend, c.scale, c.rotation); });
        std::printf("  %-30s %10.0f %9.0f%%\n", c.name, megapixels / t, 100.0 * megapixels / t / memcpyRate);
    }
    orvane::AllowedThreads = savedThreads;
    std::printf("  %-30s %10s\n", "default threads", "MP/s");
    for (const Case& c : {cases[1], cases[6]}) {
        const double megapixels = double(drawn_pixels(source, c)) / 1e6;
        const double t = best_seconds([&] { orvane::blitImage(target, source, c.x, c.y, c.blend, c.scale, c.rotation); });
        std::printf("  %-30s %10.0f\n", c.name, megapixels / t);
    }
    return 0;
}
