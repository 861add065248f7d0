// A small world for the scene's tests: the globals back at their start values, grids built
// from strings, and solid textures entered in the live set as scripts would have them.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "image/ImageThreads.h"
#include "scene/Raycast.h"
#include "scene/World.h"

namespace orvane {

class SceneTest : public ::testing::Test {
protected:
    void SetUp() override {
        walls = roofs = floors = roofsOff = floorsOff = {};
        textures.assign(1, 0);
        faces.clear();
        quadGrid.clear();
        lights.clear();
        tileSize = 16, maxDistance = 160, playerx = 24, playery = 24, cameraHeightOffset = 6;
        cameraangle = 0, cameratilt = 0, hFOV = 1.5708f, maxRaytrace = 2, reflectionIntensity = 0.15f;
        minBright = 1, maxBright = 1, fogR = 0, fogG = 0, fogB = 255;
        savedThreads = AllowedThreads, savedStep = step;
        AllowedThreads = 1, step = 1;
    }
    void TearDown() override {
        for (ImageHandle handle : handles) liveNuvraImages.kill(handle);
        AllowedThreads = savedThreads, step = savedStep;
    }

    // One grid of `columns` world columns (x) by `rows` world rows (z), all `value`.
    static Grid filled(int32_t columns, int32_t rows, int32_t value) {
        return Grid(size_t(columns), std::vector<int32_t>(size_t(rows), value));
    }
    // All five grids of that shape at 0.
    static void emptyMap(int32_t columns, int32_t rows) {
        walls = roofs = floors = roofsOff = floorsOff = filled(columns, rows, 0);
    }
    // A solid texture; returns its texture index.
    int32_t texture(uint8_t r, uint8_t g, uint8_t b, uint8_t a = 255, int32_t size = 4) {
        NuvraImage* image = createSolidColourImage(size, size, r, g, b, a);
        handles.push_back(liveNuvraImages.enter(image));
        textures.push_back(handles.back());
        return int32_t(textures.size() - 1);
    }
    NuvraImage* image(int32_t index) { return liveNuvraImages.find(textures[size_t(index)]); }

    struct Frame {
        std::vector<uint8_t> bytes;
        NuvraImage image{};
        Frame(int32_t w, int32_t h) : bytes(size_t(w) * h * 4, 7) { image = {w, h, bytes.data(), 0, 0, nullptr}; }
        const uint8_t* at(int32_t x, int32_t y) const { return bytes.data() + (size_t(y) * image.width + x) * 4; }
    };
    static Frame render(int32_t w, int32_t h) {
        Frame frame(w, h);
        renderScene(frame.image);
        return frame;
    }

    // The fog rule, for expected values: d is the distance, corner the sample's corner factor.
    static int fog(int channel, float fogChannel, float d, float corner = 1) {
        const float f = std::min(1.0f, d * corner / maxDistance);
        return int(float(channel) * (1.0f - f) + fogChannel * f);
    }

    std::vector<ImageHandle> handles;
    int32_t savedThreads = 0, savedStep = 0;
};

}  // namespace orvane
