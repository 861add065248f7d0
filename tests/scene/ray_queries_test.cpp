// The shadow ray over a strip of cells along x, from (8, 10, 24) toward a light further on.
#include "scene/RayQueries.h"
#include "tests/scene/scene_fixture.h"

namespace orvane {
namespace {

class ShadowRay : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        emptyMap(5, 3);
    }
    // Whether the light at `to` is blocked, and what colour of white light gets through.
    bool blocked(Vec3 to, Vec3& colour, Vec3 from = {8, 10, 24}) {
        colour = {1, 1, 1};
        return isObstructed(from, to, makeSceneView(), colour);
    }
};

TEST_F(ShadowRay, NothingBlocksInAnEmptyMapOrOutsideIt) {
    Vec3 colour;
    EXPECT_FALSE(blocked({8, 10, 24}, colour));  // from equal to to
    EXPECT_FALSE(blocked({70, 10, 24}, colour));
    walls[4][1] = texture(9, 9, 9);
    EXPECT_FALSE(blocked({200, 10, 24}, colour, {100, 10, 24}));  // starts outside the map
    Vec3 dark{0, 0, 0};
    EXPECT_TRUE(isObstructed({8, 10, 24}, {70, 10, 24}, makeSceneView(), dark));
}

TEST_F(ShadowRay, WallsBlockByTheirTexelsAndOnlyWithinTheirTile) {
    Vec3 colour;
    walls[2][1] = 42;  // no such texture: still a wall to the light
    EXPECT_TRUE(blocked({70, 10, 24}, colour));
    walls[2][1] = texture(255, 255, 255, 0);
    EXPECT_FALSE(blocked({70, 10, 24}, colour));
    EXPECT_EQ(colour.x, 1.0f);
    walls[2][1] = texture(200, 0, 0);
    EXPECT_TRUE(blocked({70, 10, 24}, colour));
    EXPECT_FALSE(blocked({70, -2, 24}, colour, {8, -2, 24}));   // over the top of the tile
    EXPECT_FALSE(blocked({70, 17, 24}, colour, {8, 17, 24}));   // under it
}

TEST_F(ShadowRay, GlassFiltersTheLightOncePerSheet) {
    const int32_t red = texture(255, 0, 0, 128);
    walls[2][1] = red;
    walls[3][1] = red;
    Vec3 colour;
    EXPECT_FALSE(blocked({75, 10, 24}, colour));
    const float pass = 1.0f - 128.0f / 255.0f;
    EXPECT_FLOAT_EQ(colour.x, 1.0f);
    EXPECT_FLOAT_EQ(colour.y, pass * pass);
    EXPECT_FLOAT_EQ(colour.z, pass * pass);
}

TEST_F(ShadowRay, QuadsAndStepFacesBlock) {
    Quad quad{};
    quad.tl = {40, 0, 16}, quad.tr = {40, 0, 32}, quad.br = {40, 16, 32}, quad.bl = {40, 16, 16};
    quad.texture = 0;  // unusable: blocks
    finalizeQuad(quad);
    faces = {quad};
    buildQuadGrid(5, 3, tileSize);
    Vec3 colour;
    EXPECT_TRUE(blocked({70, 10, 24}, colour));
    faces.clear();
    buildQuadGrid(5, 3, tileSize);
    EXPECT_FALSE(blocked({70, 10, 24}, colour));
    roofs = filled(5, 3, 1);
    floorsOff[3][1] = -8;  // a raised floor from y 8 to 16 from x = 48 on
    EXPECT_TRUE(blocked({70, 10, 24}, colour));
    EXPECT_FALSE(blocked({70, 7, 24}, colour, {8, 7, 24}));
}

}  // namespace
}  // namespace orvane
