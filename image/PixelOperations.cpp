// Dithering, text output, mirroring and the pixel processors. The resampling operations live in
// Resampling.cpp.
#include "image/PixelOperations.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <utility>

#include "image/ColourWeights.h"
#include "image/ImageThreads.h"

namespace orvane {

namespace {

bool hasPixels(const NuvraImage* image) {
    return image && image->pixels && image->width > 0 && image->height > 0;
}

// Each pixel becomes a 2 by 2 block in a new buffer. False, and the image untouched, when the
// doubled size is refused.
bool doubleImage(NuvraImage& image) {
    const int64_t width = int64_t(image.width) * 2, height = int64_t(image.height) * 2;
    if (width * height > kMaxImagePixels) return false;
    uint8_t* doubled = allocatePixels(int32_t(width), int32_t(height));
    if (!doubled) return false;
    for (int64_t y = 0; y < height; ++y) {
        const uint8_t* source = image.pixels + (y / 2) * image.width * 4;
        uint8_t* target = doubled + y * width * 4;
        for (int64_t x = 0; x < width; ++x) std::memcpy(target + x * 4, source + (x / 2) * 4, 4);
    }
    delete[] image.pixels;
    image.pixels = doubled;
    image.width = int32_t(width);
    image.height = int32_t(height);
    return true;
}

}  // namespace

void ditherImage(NuvraImage* image, int32_t amount, bool doubled) {
    if (!hasPixels(image)) return;
    // Doubling comes first and happens also without noise; a size it cannot reach stops it all.
    if (doubled && !doubleImage(*image)) return;
    if (amount < 1) return;
    // 2 * amount + 1 fits unsigned 32 bits for every positive int32.
    const uint32_t modulus = 2u * uint32_t(amount) + 1u;
    const int32_t width = image->width;
    uint8_t* const pixels = image->pixels;
    auto rows = [=](int32_t first, int32_t end) {
        for (int32_t y = first; y < end; ++y) {
            uint8_t* p = pixels + int64_t(y) * width * 4;
            const uint32_t rowTerm = uint32_t(y) * 689287499u;
            for (int32_t x = 0; x < width; ++x, p += 4) {
                // Wraps on purpose: the noise is a hash of the position alone, so it does not
                // flicker from frame to frame.
                const uint32_t hash = ((uint32_t(x) * 92837111u) ^ rowTerm) * 1664525u + 1013904223u;
                const int64_t noise = int64_t(hash % modulus) - amount;
                for (int c = 0; c < 4; ++c) p[c] = uint8_t(std::clamp<int64_t>(p[c] + noise, 0, 255));
            }
        }
    };
    const int32_t threads = AllowedThreads > 0 ? std::max(1, std::min(AllowedThreads, image->height)) : 1;
    runCeilingBands(image->height, threads, rows);
}

bool asciiArtText(const NuvraImage* image, int32_t width, int32_t height, std::string& text) {
    text.clear();
    if (!hasPixels(image) || width <= 0 || height <= 0) return false;
    // Nothing limits the text's size but memory; a cap keeps a slip such as 100000 by 100000
    // from building gigabytes of blanks. Larger requests count as invalid parameters.
    if ((int64_t(width) + 1) * height > kMaxAsciiArtBytes) return false;
    const double imageWidth = image->width, imageHeight = image->height;
    const double canvasWidth = width, canvasHeight = height * 1.5;
    const double scale = std::min(canvasWidth / imageWidth, canvasHeight / imageHeight);
    const double drawnWidth = imageWidth * scale, drawnHeight = imageHeight * scale;
    const double left = (canvasWidth - drawnWidth) / 2, top = (canvasHeight - drawnHeight) / 2;
    text.reserve((size_t(width) + 1) * size_t(height));
    for (int32_t r = 0; r < height; ++r) {
        const double py = r * 1.5 + 0.75;
        for (int32_t c = 0; c < width; ++c) {
            const double px = c + 0.5;
            if (px < left || px >= left + drawnWidth || py < top || py >= top + drawnHeight) {
                text += ' ';
                continue;
            }
            const double sx = std::round(std::clamp((px - left) / scale, 0.0, imageWidth - 1));
            const double sy = std::round(std::clamp((py - top) / scale, 0.0, imageHeight - 1));
            const uint8_t* p = image->pixels + (int64_t(sy) * image->width + int64_t(sx)) * 4;
            const double level = greyValue(p[0], p[1], p[2]);
            // Clamped before the conversion, so that no weights (not even NaN) can overflow it.
            const double scaled = level * 39 / 255 + 0.5;
            const int32_t index = scaled > 0 ? int32_t(std::min(scaled, double(kAsciiLevels - 1))) : 0;
            text += kAsciiGradient[index];
        }
        text += '\n';
    }
    return true;
}

void printAsciiArt(const NuvraImage* image, int32_t width, int32_t height) {
    std::string text;
    if (!asciiArtText(image, width, height, text)) {
        std::cerr << "Invalid input parameters.\n" << std::flush;
        return;
    }
    // Through std::cout, as the script's print goes, so the two keep their order.
    std::cout.write(text.data(), std::streamsize(text.size()));
    std::cout.flush();
}

void mirrorNuvraImage(NuvraImage* image, bool horizontal) {
    if (!hasPixels(image)) return;
    const int64_t rowBytes = int64_t(image->width) * 4;
    if (horizontal) {
        for (int32_t y = 0; y < image->height; ++y) {
            uint8_t* left = image->pixels + y * rowBytes;
            uint8_t* right = left + rowBytes - 4;
            for (; left < right; left += 4, right -= 4) std::swap_ranges(left, left + 4, right);
        }
        return;
    }
    for (int32_t top = 0, bottom = image->height - 1; top < bottom; ++top, --bottom)
        std::swap_ranges(image->pixels + top * rowBytes, image->pixels + (top + 1) * rowBytes,
                         image->pixels + bottom * rowBytes);
}

void processNuvraImagePixels(NuvraImage* image, int32_t processor, float r, float g, float b, float a) {
    if (!hasPixels(image)) {
        std::cerr << "Invalid image\n" << std::flush;
        return;
    }
    const int64_t count = int64_t(image->width) * image->height;
    for (uint8_t *p = image->pixels, *end = p + count * 4; p < end; p += 4) {
        float R = float(p[0] / 255.0), G = float(p[1] / 255.0), B = float(p[2] / 255.0), A = float(p[3] / 255.0);
        switch (processor) {
        case kProcessorGreyscale:
            if (A > 0) R = G = B = greyValue(R, G, B);
            break;
        case kProcessorInactive:
            if (A > 0) {
                const float grey = greyValue(R, G, B);
                R = (R + grey) / 2, G = (G + grey) / 2, B = (B + grey) / 2;
            }
            break;
        case kProcessorAetherInvert:
            A = 1 - A;
            R = G = B = 0;
            break;
        case kProcessorColourInvert:
            R = 1 - R, G = 1 - G, B = 1 - B;
            break;
        case kProcessorColourFill:
            R = r, G = g, B = b;
            break;
        case kProcessorAetherCleanup:
            A = 1;
            break;
        case kProcessorAetherFill:
            if (A == 0) R = r, G = g, B = b;
            A = 1;
            break;
        case kProcessorAetherSet:
            // Undoes premultiplied alpha; the clamp below catches colours that exceed their alpha.
            if (A > 0 && A < 1) R /= A, G /= A, B /= A;
            break;
        default:
            break;
        }
        // Every channel makes the round trip, also the ones left alone. NaN (a NaN fill colour)
        // counts as 0.
        const float channels[4] = {R, G, B, A};
        for (int c = 0; c < 4; ++c) {
            const float v = channels[c] > 0 ? std::min(channels[c], 1.0f) : 0.0f;
            p[c] = uint8_t(v * 255.0);
        }
    }
}

}  // namespace orvane
