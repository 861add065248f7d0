// Nuvra's world setters seen from both sides: script text in, the world's globals out. A failed
// setMap keeps what it converted before the failing argument, as scripts are told.
#include <gtest/gtest.h>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "scene/World.h"

using namespace orvane;

namespace {

class SceneModule : public ::testing::Test {
protected:
    static void SetUpTestSuite() { registerFunctions(); }
    void SetUp() override { run("Nuvra['setSize'](16)\n"); }
    static std::string run(const std::string& text) {
        try {
            engine.runScript(text);
            return "";
        } catch (const std::exception& error) {
            return error.what();
        }
    }
};

TEST_F(SceneModule, ScriptPointsBecomeWorldPoints) {
    EXPECT_EQ(run("Nuvra['setQuads']([{tl: [1, 2, 3], tr: [5, 2, 3], br: [5, 2, 0], bl: [1, 2, 0], texture: 2}])\n"
                  "Nuvra['clearLights']()\n"
                  "Nuvra['spawnLight'](10, 20, 4, 255, 51, 0, 32.5)\n"),
              "");
    ASSERT_EQ(faces.size(), 1u);
    EXPECT_EQ(faces[0].tl.x, 1.0f);
    EXPECT_EQ(faces[0].tl.y, 13.0f);
    EXPECT_EQ(faces[0].tl.z, 2.0f);
    EXPECT_EQ(faces[0].texture, 2);
    ASSERT_EQ(lights.size(), 1u);
    EXPECT_EQ(lights[0].position.x, 10.0f);
    EXPECT_EQ(lights[0].position.y, 12.0f);
    EXPECT_EQ(lights[0].position.z, 20.0f);
    EXPECT_FLOAT_EQ(lights[0].colour.y, 0.2f);
    EXPECT_EQ(lights[0].radius, 32.5f);
}

TEST_F(SceneModule, AFailedSetMapKeepsTheArgumentsConvertedBeforeIt) {
    ASSERT_EQ(run("img = Nuvra['createImage'](2, 2, 1, 2, 3, 255)\n"
                  "one = [[1, 1], [1, 1]]\n"
                  "Nuvra['setMap'](one, one, one, one, one, [not, img], [])\n"),
              "");
    EXPECT_EQ(run("ok, e = pcall(Nuvra['setMap'], [[5]], [[6]], [[7, 'x']], [[8]], [[9]], [not], [])\n"
                  "assert(e == 'Nuvra.setMap: grid value must be numeric')\n"),
              "");
    EXPECT_EQ(walls, Grid({{5}}));
    EXPECT_EQ(roofs, Grid({{6}}));
    EXPECT_EQ(roofsOff, Grid({{1, 1}, {1, 1}}));
    EXPECT_EQ(textures.size(), 2u);
    EXPECT_EQ(quadGrid.size(), 2u);  // not rebuilt

    EXPECT_NE(run("Nuvra['setMap']([[5]], [[6]], [[7]], [[8]], [[9]], [], [])\n"), "");
    EXPECT_EQ(floorsOff, Grid({{9}}));
    EXPECT_EQ(textures.size(), 2u);  // an empty texture table changes nothing

    const std::string good = "{tl: [0, 0, 0], tr: [1, 0, 0], br: [1, 1, 0], bl: [0, 1, 0], texture: 1}";
    EXPECT_NE(run("Nuvra['setMap']([[5]], [[6]], [[7]], [[8]], [[9]], [not], [" + good + ", " + good + ", 3])\n"), "");
    EXPECT_EQ(faces.size(), 2u);
    EXPECT_EQ(run("Nuvra['setMap']([[5, 0]], [[6]], [[7]], [[8]], [[9]], [not], [" + good + "])\n"), "");
    ASSERT_EQ(quadGrid.size(), 1u);
    EXPECT_EQ(quadGrid[0], std::vector<std::vector<int32_t>>({{0}, {}}));
}

}  // namespace
