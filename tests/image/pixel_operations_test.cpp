// The pixel operations through their C++ face: pixels worked out by hand for the cases where a
// slip is easy (rounding, clamping, fallbacks at the edges), and the threaded ones giving the
// same bytes whatever the thread count. Also built under ThreadSanitizer, so images stay small.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

#include "image/ImageThreads.h"
#include "image/PixelOperations.h"

namespace orvane {
namespace {

using Bytes = std::vector<uint8_t>;

// An image with its own new[] buffers, as the operations that swap buffers expect.
struct OwnedImage {
    NuvraImage image{};
    OwnedImage(int32_t w, int32_t h, const Bytes& bytes) {
        image = NuvraImage{w, h, allocatePixels(w, h), 0, 0, nullptr};
        std::memcpy(image.pixels, bytes.data(), size_t(w) * h * 4);
    }
    OwnedImage(const OwnedImage&) = delete;
    ~OwnedImage() {
        delete[] image.pixels;
        delete[] image.reflectPixels;
    }
    Bytes bytes() const { return Bytes(image.pixels, image.pixels + size_t(image.width) * image.height * 4); }
    Bytes pixel(int32_t x, int32_t y) const {
        const uint8_t* p = image.pixels + (size_t(y) * image.width + x) * 4;
        return Bytes(p, p + 4);
    }
};

Bytes randomBytes(int32_t w, int32_t h, uint32_t seed) {
    Bytes bytes(size_t(w) * h * 4);
    std::mt19937 random(seed);
    for (uint8_t& b : bytes) b = uint8_t(random());
    return bytes;
}

// One pixel's bytes repeated; pixels whose four channels are each listed value.
Bytes solid(int32_t count, const Bytes& pixel) {
    Bytes bytes;
    for (int32_t i = 0; i < count; ++i) bytes.insert(bytes.end(), pixel.begin(), pixel.end());
    return bytes;
}
Bytes greys(std::initializer_list<uint8_t> values) {
    Bytes bytes;
    for (uint8_t v : values) bytes.insert(bytes.end(), {v, v, v, v});
    return bytes;
}
// Pixels that hold their own index in colour, opaque.
Bytes numbered(int32_t w, int32_t h) {
    Bytes bytes;
    for (int32_t i = 0; i < w * h; ++i) bytes.insert(bytes.end(), {uint8_t(i), uint8_t(i), uint8_t(i), 255});
    return bytes;
}
const Bytes kMarker = {9, 99, 199, 7};

// Sets the globals for one test and puts them back whatever happens.
struct Globals {
    int32_t threads = AllowedThreads, grid = step;
    ~Globals() {
        AllowedThreads = threads;
        step = grid;
    }
};

// Runs `operation` on a fresh copy of one image under each thread count and expects the same
// size and bytes every time. The heights include odd ones and ones below the count.
template <typename Operation>
void expectSameWithAnyThreads(uint32_t seed, Operation operation) {
    for (auto [w, h] : {std::pair{5, 1}, {3, 2}, {4, 5}, {7, 7}, {6, 13}, {9, 17}, {2, 31}}) {
        Globals saved;
        const Bytes original = randomBytes(w, h, seed);
        AllowedThreads = 1;
        OwnedImage reference(w, h, original);
        operation(reference.image);
        for (int32_t threads : {2, 6, 16}) {
            SCOPED_TRACE(testing::Message() << w << " by " << h << ", " << threads << " threads");
            AllowedThreads = threads;
            OwnedImage image(w, h, original);
            operation(image.image);
            ASSERT_EQ(image.image.width, reference.image.width);
            ASSERT_EQ(image.image.height, reference.image.height);
            EXPECT_EQ(image.bytes(), reference.bytes());
        }
    }
}

TEST(PixelThreads, RemainderBandsGiveTheFirstBandsTheSpareRows) {
    for (auto [rows, threads] : {std::pair{10, 3}, {7, 7}, {3, 5}, {16, 4}, {1, 16}}) {
        std::mutex lock;
        std::vector<std::pair<int32_t, int32_t>> bands;
        runRemainderBands(rows, threads, [&](int32_t first, int32_t end) {
            std::lock_guard hold(lock);
            bands.emplace_back(first, end);
        });
        std::sort(bands.begin(), bands.end());
        SCOPED_TRACE(testing::Message() << rows << " rows, " << threads << " threads");
        ASSERT_EQ(int32_t(bands.size()), std::min(rows, threads));  // no empty bands
        int32_t next = 0;
        for (size_t i = 0; i < bands.size(); ++i) {
            EXPECT_EQ(bands[i].first, next);
            EXPECT_EQ(bands[i].second - bands[i].first, rows / threads + (int32_t(i) < rows % threads));
            next = bands[i].second;
        }
        EXPECT_EQ(next, rows);
    }
}

TEST(PixelDither, DoublingMakesBlocksAndNoNoiseChangesNothing) {
    OwnedImage pair(2, 1, greys({10, 200}));
    ditherImage(&pair.image, 0, true);
    ASSERT_EQ(pair.image.width, 4);
    ASSERT_EQ(pair.image.height, 2);
    EXPECT_EQ(pair.bytes(), greys({10, 10, 200, 200, 10, 10, 200, 200}));

    const Bytes original = randomBytes(3, 3, 7);
    OwnedImage image(3, 3, original);
    const uint8_t* buffer = image.image.pixels;
    ditherImage(&image.image, 0, false);
    ditherImage(&image.image, -5, false);
    EXPECT_EQ(image.image.pixels, buffer);
    EXPECT_EQ(image.bytes(), original);

    // A record whose pixels cannot be read: doubling must be refused on the size alone.
    uint8_t one[4] = {1, 2, 3, 4};
    NuvraImage huge{20000, 20000, one, 0, 0, nullptr};
    ditherImage(&huge, 0, true);
    EXPECT_EQ(huge.width, 20000);
    EXPECT_EQ(huge.pixels, one);
    ditherImage(nullptr, 3, true);
}

TEST(PixelDither, NoiseIsTheHashOfThePositionClampedToBytes) {
    // h = ((x * 92837111) ^ (y * 689287499)) * 1664525 + 1013904223 mod 2^32; noise is
    // h mod (2 * amount + 1) - amount, on every channel. Positions (0..2, 0) then (0..2, 1).
    OwnedImage image(3, 2, solid(6, {100, 100, 100, 100}));
    ditherImage(&image.image, 10, false);
    const uint8_t expected[6] = {100, 110, 99, 92, 98, 106};
    for (int32_t i = 0; i < 6; ++i) EXPECT_EQ(image.pixel(i % 3, i / 3), Bytes(4, expected[i])) << i;
    // The same pattern again: the noise does not depend on the pixels or on time.
    ditherImage(&image.image, 10, false);
    for (int32_t i = 0; i < 6; ++i) EXPECT_EQ(image.pixel(i % 3, i / 3), Bytes(4, uint8_t(2 * expected[i] - 100))) << i;

    // Amount 1: noise 0, +1, -1 along the first row; alpha moves too, and 0 and 255 hold.
    OwnedImage edges(3, 1, solid(3, {255, 0, 128, 255}));
    ditherImage(&edges.image, 1, false);
    EXPECT_EQ(edges.bytes(), (Bytes{255, 0, 128, 255, 255, 1, 129, 255, 254, 0, 127, 254}));

    // The largest amount: 2 * amount + 1 is 2^32 - 1, and the noise lands far outside a byte.
    OwnedImage extreme(3, 2, solid(6, {128, 128, 128, 128}));
    ditherImage(&extreme.image, std::numeric_limits<int32_t>::max(), false);
    EXPECT_EQ(extreme.bytes(), greys({0, 0, 255, 0, 255, 255}));
}

TEST(PixelAsciiArt, CellsOneAndAHalfTimesAsHighKeepTheImageCentred) {
    // Canvas 4 by 3, scale 1.5, drawn 3 by 3 from x 0.5. Column centres 0.5, 1.5, 2.5 fall inside
    // (left edge inclusive) and read source columns 0, 1 (0.67), 1 (1.33); 3.5 is outside. Row
    // centres 0.75 and 2.25 read source row 0.5 rounded away to 1, and 1.5 clamped to 1. Bottom
    // row: white (grey just under 208, index 32 'k') and red (46.75, index 7 'i').
    OwnedImage square(2, 2, Bytes{0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255, 255, 255, 0, 0, 0});
    std::string text;
    ASSERT_TRUE(asciiArtText(&square.image, 4, 2, text));
    EXPECT_EQ(text, "kii \nkii \n");
    // 1 by 1 in 3 columns and 1 row: canvas 3 by 1.5, scale 1.5, drawn from x 0.75 to 2.25.
    OwnedImage white(1, 1, Bytes{255, 255, 255, 0});  // alpha is not looked at
    ASSERT_TRUE(asciiArtText(&white.image, 3, 1, text));
    EXPECT_EQ(text, " k \n");
    // Black, green, white in 3 columns: scale 1, no offset across, so the centres 0.5, 1.5 and
    // 2.5 read columns 1, 2 and 2 (halves away from zero, then the clamp). Green is index 12.
    OwnedImage row(3, 1, Bytes{0, 0, 0, 255, 0, 255, 0, 255, 255, 255, 255, 255});
    ASSERT_TRUE(asciiArtText(&row.image, 3, 1, text));
    EXPECT_EQ(text, "}kk\n");
}

TEST(PixelAsciiArt, InvalidParametersGiveNoTextAndPrintingComplains) {
    OwnedImage image(1, 1, Bytes{255, 255, 255, 255});
    NuvraImage empty{0, 0, nullptr, 0, 0, nullptr};
    std::string text = "stale";
    EXPECT_FALSE(asciiArtText(nullptr, 4, 2, text));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(asciiArtText(&empty, 4, 2, text));
    EXPECT_FALSE(asciiArtText(&image.image, 0, 2, text));
    EXPECT_FALSE(asciiArtText(&image.image, 4, -1, text));
    // Over the 16 MiB cap only by its line feeds, and a width whose + 1 overflows 32 bits.
    EXPECT_FALSE(asciiArtText(&image.image, 4096, 4096, text));
    EXPECT_FALSE(asciiArtText(&image.image, std::numeric_limits<int32_t>::max(), 1, text));

    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    printAsciiArt(&image.image, 3, 1);
    printAsciiArt(&image.image, 0, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid input parameters.\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " k \n");
}

TEST(PixelMirror, EvenSizesSwapEveryPixelOnce) {
    OwnedImage image(4, 2, greys({1, 2, 3, 4, 5, 6, 7, 8}));
    mirrorNuvraImage(&image.image, true);
    EXPECT_EQ(image.bytes(), greys({4, 3, 2, 1, 8, 7, 6, 5}));
    mirrorNuvraImage(&image.image, false);
    EXPECT_EQ(image.bytes(), greys({8, 7, 6, 5, 4, 3, 2, 1}));
    NuvraImage empty{0, 0, nullptr, 0, 0, nullptr};
    mirrorNuvraImage(&empty, true);
    mirrorNuvraImage(nullptr, false);
}

TEST(PixelProcessors, EachProcessorOnOnePixel) {
    struct Case {
        int32_t processor;
        Bytes before;
        float r, g, b;
        Bytes after;
    };
    const Case cases[] = {
        // Fill only where transparent; every pixel opaque.
        {kProcessorAetherFill, {10, 20, 30, 0}, 1, 0, 0, {255, 0, 0, 255}},
        {kProcessorAetherFill, {10, 20, 30, 1}, 1, 0, 0, {10, 20, 30, 255}},
        // Premultiplied alpha undone only between the ends: 64 / 128 truncates to 127, and a
        // colour above its alpha clamps at 1.
        {kProcessorAetherSet, {200, 100, 50, 255}, 0, 0, 0, {200, 100, 50, 255}},
        {kProcessorAetherSet, {7, 8, 9, 0}, 0, 0, 0, {7, 8, 9, 0}},
        {kProcessorAetherSet, {64, 32, 16, 128}, 0, 0, 0, {127, 63, 31, 128}},
        {kProcessorAetherSet, {200, 0, 0, 100}, 0, 0, 0, {255, 0, 0, 100}},
        // White: 0.55 + 0.947 + 0.95 over 3 is just under 208/255, and the byte truncates.
        {kProcessorGreyscale, {255, 255, 255, 255}, 0, 0, 0, {207, 207, 207, 255}},
        {kProcessorGreyscale, {200, 100, 50, 10}, 0, 0, 0, {84, 84, 84, 10}},
        {kProcessorGreyscale, {200, 100, 50, 0}, 0, 0, 0, {200, 100, 50, 0}},
        // Inactive: halfway to that grey (0.3294).
        {kProcessorInactive, {200, 100, 50, 10}, 0, 0, 0, {142, 92, 67, 10}},
        {kProcessorInactive, {200, 100, 50, 0}, 0, 0, 0, {200, 100, 50, 0}},
        {kProcessorAetherInvert, {10, 20, 30, 55}, 0, 0, 0, {0, 0, 0, 200}},
        {kProcessorColourInvert, {0, 255, 100, 77}, 0, 0, 0, {255, 0, 155, 77}},
        // 1 - 1/255 is a hair under 254/255 in single precision: the truncation shows it.
        {kProcessorColourInvert, {1, 2, 3, 4}, 0, 0, 0, {254, 253, 252, 4}},
        {kProcessorColourFill, {1, 2, 3, 4}, 0, 1, 0.5f, {0, 255, 127, 4}},
        {kProcessorColourFill, {1, 2, 3, 4}, 300 / 255.0f, -20 / 255.0f, NAN, {255, 0, 0, 4}},
        {kProcessorAetherCleanup, {1, 2, 3, 4}, 0, 0, 0, {1, 2, 3, 255}},
    };
    for (const Case& c : cases) {
        OwnedImage image(1, 1, c.before);
        processNuvraImagePixels(&image.image, c.processor, c.r, c.g, c.b, 0.5f);
        EXPECT_EQ(image.bytes(), c.after) << "processor " << c.processor << " on " << int(c.before[0]);
    }
}

TEST(PixelProcessors, UnknownNumbersOnlyRoundTripAndNoImageIsReported) {
    const Bytes original = randomBytes(16, 16, 5);
    for (int32_t processor : {0, 9, -1, 1000}) {
        OwnedImage image(16, 16, original);
        processNuvraImagePixels(&image.image, processor, 1, 1, 1, 1);
        EXPECT_EQ(image.bytes(), original) << processor;
    }
    NuvraImage empty{0, 0, nullptr, 0, 0, nullptr};
    testing::internal::CaptureStderr();
    processNuvraImagePixels(nullptr, 1, 0, 0, 0, 0);
    processNuvraImagePixels(&empty, 1, 0, 0, 0, 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid image\nInvalid image\n");
}

// Every pixel drawn holds the source pixel `expected` names for it, and all pixels off the
// quadrilateral's outline are drawn. On the outline a weight may come out a hair below 0 in
// single precision and leave the pixel as it was; that is the rule working, not a fault.
template <typename Expected>
void expectDrawnAsMapped(const OwnedImage& output, Expected expected) {
    const int32_t w = output.image.width, h = output.image.height;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const Bytes got = output.pixel(x, y);
            if (got == kMarker && (x == 0 || y == 0 || x == w - 1 || y == h - 1)) continue;
            EXPECT_EQ(got, expected(x, y)) << x << "," << y;
        }
}

TEST(PixelSkew, TheOutputCornersCopyAndSwappedCornersMirror) {
    OwnedImage input(4, 4, numbered(4, 4)), output(4, 4, solid(16, kMarker));
    skewImage(0, 0, 3, 0, 0, 3, 3, 3, &input.image, &output.image);
    expectDrawnAsMapped(output, [&](int32_t x, int32_t y) { return input.pixel(x, y); });
    for (auto [x, y] : {std::pair{0, 0}, {3, 0}, {0, 3}, {3, 3}}) EXPECT_EQ(output.pixel(x, y), input.pixel(x, y));

    const Bytes original = randomBytes(5, 4, 9);
    OwnedImage wide(5, 4, original), drawn(5, 4, solid(20, kMarker)), mirrored(5, 4, original);
    skewImage(4, 0, 0, 0, 4, 3, 0, 3, &wide.image, &drawn.image);
    mirrorNuvraImage(&mirrored.image, true);
    expectDrawnAsMapped(drawn, [&](int32_t x, int32_t y) { return mirrored.pixel(x, y); });
}

TEST(PixelSkew, DegenerateCorners) {
    // LT and LB both at (0, 0): the first triangle is flat. The second, RT (3, 0), RB (3, 3),
    // LB (0, 0), has area 9. At (2, 1): u1 = E(P, RB, LB) / 9 = 3/9, u2 = E(RT, P, LB) / 9 = 3/9,
    // u3 = 3/9; column (u1 + u2) x 3 = 2, row (u2 + u3) x 3 = 2. LB reads (0, 3), RT (3, 0).
    OwnedImage input(4, 4, numbered(4, 4)), output(4, 4, solid(16, kMarker));
    skewImage(0, 0, 3, 0, 0, 0, 3, 3, &input.image, &output.image);
    EXPECT_EQ(output.pixel(2, 1), input.pixel(2, 2));
    EXPECT_EQ(output.pixel(0, 0), input.pixel(0, 3));
    EXPECT_EQ(output.pixel(3, 0), input.pixel(3, 0));
    EXPECT_EQ(output.pixel(3, 3), input.pixel(3, 3));
    // Above the diagonal: the first triangle would have drawn these.
    for (auto [x, y] : {std::pair{0, 1}, {0, 3}, {1, 2}, {2, 3}}) EXPECT_EQ(output.pixel(x, y), kMarker) << x << "," << y;

    // Both flat, or a missing image: nothing is drawn.
    OwnedImage untouched(4, 4, solid(16, kMarker));
    skewImage(2, 2, 2, 2, 2, 2, 2, 2, &input.image, &untouched.image);
    skewImage(0, 0, 1, 1, 2, 2, 3, 3, &input.image, &untouched.image);
    skewImage(0, 0, 3, 0, 0, 3, 3, 3, nullptr, &untouched.image);
    skewImage(0, 0, 3, 0, 0, 3, 3, 3, &input.image, nullptr);
    EXPECT_EQ(untouched.bytes(), solid(16, kMarker));

    // Corners at the ends of the int range still read inside the source.
    const int32_t big = std::numeric_limits<int32_t>::max(), small = std::numeric_limits<int32_t>::min();
    OwnedImage far(4, 4, solid(16, kMarker));
    skewImage(small, small, big, small, small, big, big, big, &input.image, &far.image);
    for (int32_t i = 0; i < 16; ++i) EXPECT_EQ(far.pixel(i % 4, i / 4)[3], 255) << i;
}

TEST(PixelBilinearInPlace, GridPixelsStayAndTheRestInterpolate) {
    Globals saved;
    step = 4;
    // Grid pixels at columns 0 and 4 (0 and 3). Columns 1 to 3: 0.75, 1.5, 2.25, rounded with
    // halves away from zero; columns 5 and 6 have no grid line on their right: they copy column 4.
    OwnedImage row(7, 1, greys({0, 50, 50, 50, 3, 50, 50}));
    bilinearInPlace(&row.image);
    EXPECT_EQ(row.bytes(), greys({0, 1, 2, 2, 3, 3, 3}));

    // Grid corners 0, 100 (top) and 200, 40 (bottom) of a 5 by 5 image; the 9s are replaced.
    Bytes corners(25 * 4, 9);
    for (auto [index, value] : {std::pair{0, 0}, {4, 100}, {20, 200}, {24, 40}})
        std::fill_n(corners.begin() + index * 4, 4, uint8_t(value));
    OwnedImage square(5, 5, corners);
    bilinearInPlace(&square.image);
    EXPECT_EQ(square.pixel(2, 2), Bytes(4, 85));  // the mean of the four
    EXPECT_EQ(square.pixel(1, 0), Bytes(4, 25));
    EXPECT_EQ(square.pixel(0, 2), Bytes(4, 100));
    EXPECT_EQ(square.pixel(3, 3), Bytes(4, 79));  // top 75, bottom 80, three quarters down
    EXPECT_EQ(square.pixel(4, 4), Bytes(4, 40));
}

TEST(PixelBilinearInPlace, NothingOnTheFinestOrNoGridOrWithoutThreads) {
    Globals saved;
    const Bytes original = randomBytes(7, 5, 31);
    OwnedImage image(7, 5, original);
    for (int32_t grid : {1, 0}) {
        step = grid;
        bilinearInPlace(&image.image);
    }
    step = 4;
    AllowedThreads = 0;
    bilinearInPlace(&image.image);
    bilinearInPlace(nullptr);
    EXPECT_EQ(image.bytes(), original);
}

TEST(PixelUpscale, FactorOneOrBelowOrOutOfReachDoesNothing) {
    const Bytes original = randomBytes(3, 3, 41);
    OwnedImage image(3, 3, original);
    const uint8_t* buffer = image.image.pixels;
    for (float factor : {1.0f, 0.5f, -2.0f, NAN, INFINITY, 1e30f, 20000.0f}) {
        upscaleNuvraImage(&image.image, factor);
        EXPECT_EQ(image.image.pixels, buffer) << factor;
        EXPECT_EQ(image.image.width, 3) << factor;
    }
    EXPECT_EQ(image.bytes(), original);
    upscaleNuvraImage(nullptr, 2.0f);
}

TEST(PixelUpscale, SamplesBetweenPixelCentresAndClamps) {
    // New pixel (1, 1) samples (0.5, 0.5): a quarter of each of the first four pixels, 45. New
    // column 0 samples -1/6: weights 7/6 and -1/6 give -15, which clamps to 0.
    OwnedImage image(3, 3, greys({0, 90, 180, 0, 90, 180, 0, 90, 180}));
    image.image.reflectWidth = image.image.reflectHeight = 1;
    image.image.reflectPixels = new uint8_t[4]{5, 6, 7, 8};
    upscaleNuvraImage(&image.image, 1.5f);
    ASSERT_EQ(image.image.width, 4);
    ASSERT_EQ(image.image.height, 4);
    EXPECT_EQ(image.pixel(1, 1), Bytes(4, 45));
    EXPECT_EQ(image.pixel(0, 0), Bytes(4, 0));
    // The reflection map is not scaled.
    EXPECT_EQ(image.image.reflectWidth, 1);
    EXPECT_EQ(image.image.reflectPixels[2], 7);
    // From 255 next to 0 the same weights give 297.5: clamped, not wrapped.
    OwnedImage falling(3, 1, greys({255, 0, 0}));
    upscaleNuvraImage(&falling.image, 1.5f);
    EXPECT_EQ(falling.pixel(0, 0), Bytes(4, 255));
    // Sizes truncate: 5 x 1.3 is 6.5.
    OwnedImage odd(5, 2, randomBytes(5, 2, 42));
    upscaleNuvraImage(&odd.image, 1.3f);
    EXPECT_EQ(odd.image.width, 6);
    EXPECT_EQ(odd.image.height, 2);

    // Doubling samples -0.25, 0.25, 0.75 and 1.25 (the last clamped onto the last pixel); the
    // weights are quarters, so the sums are exact: -50 (clamped), 50, 150, 200. Across, then down.
    OwnedImage row(2, 1, greys({0, 200}));
    upscaleNuvraImage(&row.image, 2.0f);
    ASSERT_EQ(row.image.height, 2);
    EXPECT_EQ(row.bytes(), greys({0, 50, 150, 200, 0, 50, 150, 200}));
    OwnedImage column(1, 2, greys({0, 200}));
    upscaleNuvraImage(&column.image, 2.0f);
    ASSERT_EQ(column.image.width, 2);
    EXPECT_EQ(column.bytes(), greys({0, 0, 50, 50, 150, 150, 200, 200}));
}

TEST(PixelTrim, KeepsTheTopLeftPixelsOfASmallerSizeOnly) {
    OwnedImage image(4, 3, numbered(4, 3));
    const uint8_t* buffer = image.image.pixels;
    for (auto [w, h] : {std::pair{4, 3}, {5, 3}, {4, 4}, {0, 2}, {2, 0}, {-1, 1}}) {
        trimNuvraImage(&image.image, w, h);
        EXPECT_EQ(image.image.pixels, buffer) << w << " by " << h;
    }
    EXPECT_EQ(image.bytes(), numbered(4, 3));
    trimNuvraImage(nullptr, 1, 1);

    trimNuvraImage(&image.image, 3, 2);
    ASSERT_EQ(image.image.width, 3);
    ASSERT_EQ(image.image.height, 2);
    EXPECT_EQ(image.bytes(), (Bytes{0, 0, 0, 255, 1, 1, 1, 255, 2, 2, 2, 255, 4, 4, 4, 255, 5, 5, 5, 255, 6, 6, 6, 255}));
}

// Each threaded operation on a fresh copy of one image under each thread count.
TEST(PixelThreads, SameBytesWithAnyThreads) {
    Globals saved;
    expectSameWithAnyThreads(11, [](NuvraImage& image) { ditherImage(&image, 40, false); });
    expectSameWithAnyThreads(12, [](NuvraImage& image) { ditherImage(&image, 3, true); });
    const Bytes source = randomBytes(6, 5, 21);
    expectSameWithAnyThreads(22, [&](NuvraImage& image) {
        OwnedImage input(6, 5, source);
        const int32_t w = image.width, h = image.height;
        skewImage(1, 0, w - 1, h / 3, 0, h - 1, w + 2, h + 1, &input.image, &image);
    });
    // Drawn onto itself it reads the image as it was, as if from a copy.
    expectSameWithAnyThreads(23, [](NuvraImage& image) {
        const int32_t w = image.width, h = image.height;
        const Bytes before(image.pixels, image.pixels + size_t(w) * h * 4);
        OwnedImage copy(w, h, before), fromCopy(w, h, before);
        skewImage(w - 1, 0, 0, 1, w - 1, h - 1, 0, h, &copy.image, &fromCopy.image);
        skewImage(w - 1, 0, 0, 1, w - 1, h - 1, 0, h, &image, &image);
        EXPECT_EQ(Bytes(image.pixels, image.pixels + size_t(w) * h * 4), fromCopy.bytes());
    });
    for (int32_t grid : {2, 3, 4, 100}) {
        step = grid;
        expectSameWithAnyThreads(33, [](NuvraImage& image) { bilinearInPlace(&image); });
    }
    expectSameWithAnyThreads(43, [](NuvraImage& image) { upscaleNuvraImage(&image, 1.5f); });
    expectSameWithAnyThreads(44, [](NuvraImage& image) { upscaleNuvraImage(&image, 2.7f); });
    expectSameWithAnyThreads(52, [](NuvraImage& image) { trimNuvraImage(&image, std::max(1, image.width - 1), image.height); });
    expectSameWithAnyThreads(53, [](NuvraImage& image) { trimNuvraImage(&image, image.width, std::max(1, image.height - 2)); });
    // No threads allowed still dithers, on one worker.
    AllowedThreads = 0;
    OwnedImage image(3, 2, solid(6, {100, 100, 100, 100}));
    ditherImage(&image.image, 10, false);
    EXPECT_EQ(image.pixel(1, 0), Bytes(4, 110));
}

}  // namespace
}  // namespace orvane
