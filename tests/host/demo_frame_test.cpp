// A frame of the demo's own map from its starting view: the map is too rich to work out by hand,
// so a few pixels, one on each kind of surface, are held to the values of the reviewed frame
// (docs/screenshots/scene.png), within 2 for the libm's sines and cosines of other machines.
#include <gtest/gtest.h>

#include <vector>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "image/ImageThreads.h"
#include "scene/Raycast.h"

using namespace orvane;

TEST(DemoFrame, ShowsEachSurfaceWhereTheStartingViewPutsIt) {
    registerFunctions();
    engine.runScript("runFile('" + std::string(OT_DEMO_DIR) + "/scene.ov')\n");
    const int32_t width = 240, height = 136;
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    NuvraImage frame{width, height, pixels.data(), 0, 0, nullptr};
    const int32_t savedStep = step;
    step = 1;
    renderScene(frame);
    step = savedStep;
    struct Probe {
        const char* surface;
        int32_t x, y;
        int r, g, b;
    };
    const Probe probes[] = {
        {"brick pillar", 57, 62, 53, 29, 30},     {"floor tiles", 120, 130, 86, 89, 99},
        {"step face of the dais", 120, 72, 59, 58, 60}, {"stone wall", 220, 62, 36, 40, 53},
        {"ceiling", 120, 8, 60, 51, 49},           {"banner", 3, 56, 38, 24, 38},
    };
    for (const Probe& p : probes) {
        const uint8_t* at = pixels.data() + (size_t(p.y) * width + size_t(p.x)) * 4;
        EXPECT_NEAR(at[0], p.r, 2) << p.surface;
        EXPECT_NEAR(at[1], p.g, 2) << p.surface;
        EXPECT_NEAR(at[2], p.b, 2) << p.surface;
        EXPECT_EQ(at[3], 255);
    }
}
