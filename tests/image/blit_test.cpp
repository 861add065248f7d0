// Blit through its C++ face: worker threads must not change a single pixel, and the geometry
// of rotation and clipping must hold on images large enough to be shared out.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "image/Blit.h"
#include "image/ImageThreads.h"

namespace orvane {
namespace {

// An image that owns its pixels through a vector, outside the script registry.
struct TestImage {
    std::vector<uint8_t> bytes;
    NuvraImage image{};
    TestImage(int32_t w, int32_t h, uint32_t seed) : bytes(size_t(w) * h * 4) {
        std::mt19937 random(seed);
        for (uint8_t& b : bytes) b = uint8_t(random());
        // Plenty of the two alphas that take shortcuts, too.
        for (size_t i = 3; i < bytes.size(); i += 4 * 7) bytes[i] = (i / 28) % 2 ? 0 : 255;
        image = NuvraImage{w, h, bytes.data(), 0, 0, nullptr};
    }
};

struct BlitCase {
    int32_t x, y;
    bool blend;
    float scale, rotation;
};

std::vector<uint8_t> blitWithThreads(int32_t threads, const BlitCase& c, int32_t sourceW, int32_t sourceH) {
    TestImage target(960, 544, 1), source(sourceW, sourceH, 2);
    const int32_t saved = AllowedThreads;
    AllowedThreads = threads;
    blitImage(target.image, source.image, c.x, c.y, c.blend, c.scale, c.rotation);
    AllowedThreads = saved;
    return target.bytes;
}

// The blend divides by 255, truncating: these pixels come out one apart under a division by 256.
TEST(Blit, BlendDividesBy255) {
    std::vector<uint8_t> sourceBytes = {255, 255, 255, 254, 0, 0, 0, 51};
    std::vector<uint8_t> targetBytes = {0, 0, 0, 0, 0, 0, 0, 5};
    NuvraImage source{2, 1, sourceBytes.data(), 0, 0, nullptr}, target{2, 1, targetBytes.data(), 0, 0, nullptr};
    blitImage(target, source, 0, 0, true, 1.0f, 0.0f);
    // 255 * 254 / 255 is 254; alpha 51 + 5 - 51 * 5 / 255 is 55.
    EXPECT_EQ(targetBytes, (std::vector<uint8_t>{254, 254, 254, 254, 0, 0, 0, 55}));
}

TEST(Blit, ThreadsGiveTheSamePixelsAsOneThread) {
    const BlitCase cases[] = {
        {0, 0, false, 1.0f, 0.0f},       // fast copy
        {-37, 11, true, 1.0f, 360.0f},   // fast blend, clipped left
        {100, -50, false, 1.5f, 0.0f},   // scaled
        {480, 272, true, 0.75f, 33.0f},  // scaled, rotated, blended
        {-200, -100, true, 2.0f, -90.0f},
    };
    for (const BlitCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.x << "," << c.y << " blend " << c.blend << " scale " << c.scale
                                        << " rotation " << c.rotation);
        const std::vector<uint8_t> single = blitWithThreads(1, c, 900, 500);
        EXPECT_EQ(single, blitWithThreads(6, c, 900, 500));
        EXPECT_EQ(single, blitWithThreads(3, c, 900, 500));
        EXPECT_NE(single, TestImage(960, 544, 1).bytes);  // something was drawn
    }
}

TEST(Blit, ThresholdSizesAgreeWithOneThread) {
    // 600 by 300 is exactly the threshold; 599 by 300 stays below it.
    for (int32_t w : {599, 600}) {
        const BlitCase c{5, 7, true, 1.0f, 0.0f};
        EXPECT_EQ(blitWithThreads(1, c, w, 300), blitWithThreads(6, c, w, 300)) << w;
    }
}

TEST(Blit, WholeTurnsDrawLikeNoTurn) {
    const std::vector<uint8_t> plain = blitWithThreads(6, {3, 4, true, 1.0f, 0.0f}, 201, 101);
    for (float r : {360.0f, -360.0f, 359.9995f, 720.0f, -1080.0f})
        EXPECT_EQ(plain, blitWithThreads(6, {3, 4, true, 1.0f, r}, 201, 101)) << r;
}

TEST(Blit, QuarterTurnStaysAboutTheCentre) {
    // A 4 by 2 source turned by 90 degrees about its centre (4, 4) in a black 8 by 8 target at (2, 3).
    std::vector<uint8_t> sourceBytes(4 * 2 * 4), targetBytes(8 * 8 * 4, 0);
    for (int i = 0; i < 8; ++i) {
        sourceBytes[size_t(i) * 4] = uint8_t(10 + i);  // red channel numbers the pixel
        sourceBytes[size_t(i) * 4 + 3] = 255;
    }
    NuvraImage source{4, 2, sourceBytes.data(), 0, 0, nullptr};
    NuvraImage target{8, 8, targetBytes.data(), 0, 0, nullptr};
    blitImage(target, source, 2, 3, false, 1.0f, 90.0f);
    // The box is in corner coordinates and ends at column 5 exclusive, so of the two turned
    // columns 4 and 5 only column 4 is visited: it shows the source's bottom row, top to bottom.
    std::vector<int> drawn;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            if (targetBytes[size_t(y * 8 + x) * 4 + 3]) drawn.push_back(targetBytes[size_t(y * 8 + x) * 4]);
    EXPECT_EQ(drawn, (std::vector<int>{14, 15, 16, 17}));
    for (int y = 2; y <= 5; ++y) EXPECT_EQ(targetBytes[size_t(y * 8 + 4) * 4], 14 + (y - 2));
}

TEST(Blit, SameImageAsTargetAndSourceReadsTheOriginal) {
    TestImage image(700, 400, 9);
    const std::vector<uint8_t> original = image.bytes;
    blitImage(image.image, image.image, 0, 1, false, 1.0f, 0.0f);  // shift down one row, threaded
    EXPECT_EQ(0, std::memcmp(image.bytes.data(), original.data(), 700 * 4));
    EXPECT_EQ(0, std::memcmp(image.bytes.data() + 700 * 4, original.data(), size_t(700) * 399 * 4));
}

}  // namespace
}  // namespace orvane
