// The raycaster on maps small enough to work the expected pixels out by hand: the camera stands
// at (8, 24) in world units, eye 10 units down from the top of the tile, looking along +x, so the
// centre sample of a 32 by 32 frame is a straight ray with corner factor 1.
#include <array>
#include <cmath>

#include "scene/RayQueries.h"
#include "tests/scene/scene_fixture.h"

namespace orvane {
namespace {

constexpr int32_t kSize = 32, kCentre = 16;

class RaycastTest : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        emptyMap(4, 3);
        playerx = 8, playery = 24;
    }
    // What a lit texel c at distance d becomes: fogged once with the hit, once more at the end.
    static std::array<int, 3> twiceFogged(std::array<int, 3> c, float d) {
        std::array<int, 3> out{};
        const float fogs[] = {fogR, fogG, fogB};
        for (int i = 0; i < 3; ++i) out[size_t(i)] = fog(fog(c[size_t(i)], fogs[i], d), fogs[i], d);
        return out;
    }
    static void expectPixel(const Frame& frame, int x, int y, std::array<int, 3> rgb, int tolerance = 0) {
        const uint8_t* p = frame.at(x, y);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(p[i], rgb[size_t(i)], tolerance) << "channel " << i;
        EXPECT_EQ(p[3], 255);
    }
};

TEST_F(RaycastTest, EmptyMapIsOpaqueFogEverywhere) {
    walls = {};
    fogR = 10, fogG = 20.7f, fogB = 300;
    const Frame frame = render(9, 7);
    for (int32_t y = 0; y < 7; ++y)
        for (int32_t x = 0; x < 9; ++x) expectPixel(frame, x, y, {10, 20, 255});
}

TEST_F(RaycastTest, WallStraightAheadAndWhatHidesOrRevealsIt) {
    walls[2][1] = texture(200, 100, 50);
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({200, 100, 50}, 24));

    // A texture index beyond the list: the wall in front is not there for the ray.
    walls[1][1] = 99;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({200, 100, 50}, 24));

    // A translucent wall in front adds a layer, fogged at its own distance, over the far wall.
    walls[1][1] = texture(0, 250, 0, 128);
    const float a = 128.0f / 255.0f;
    std::array<int, 3> blended{};
    const int glass[] = {0, 250, 0};
    const float fogs[] = {fogR, fogG, fogB};
    for (int i = 0; i < 3; ++i) {
        const int under = fog(i == 0 ? 200 : i == 1 ? 100 : 50, fogs[i], 24);
        const int over = fog(glass[i], fogs[i], 8);
        blended[size_t(i)] = fog(int(float(over) * a + float(under) * (1.0f - a)), fogs[i], 24);
    }
    expectPixel(render(kSize, kSize), kCentre, kCentre, blended);
}

TEST_F(RaycastTest, PlanesAtTheirHeightsAndTheOwnerOfAStepFace) {
    // The upper plane, 4 above the top of the tile, seen 14 units up at a tilt of 0.5.
    floors = filled(4, 3, texture(30, 60, 90));
    roofsOff = filled(4, 3, 4);
    cameratilt = -0.5f;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({30, 60, 90}, 14.0f / std::sin(0.5f)), 1);

    // The lower plane at the base level, 6 below the eye; a cell raised by 8 shows its own
    // texture on the step face to it.
    cameratilt = 0.5f;
    roofs = filled(4, 3, texture(20, 180, 20));
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({20, 180, 20}, 6.0f / std::sin(0.5f)), 1);
    cameratilt = 0;
    roofs[2][1] = texture(160, 0, 160);
    floorsOff[2][1] = -8;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({160, 0, 160}, 24));
}

TEST_F(RaycastTest, ClearTexelLetsTheRayOnInTheSameCell) {
    walls[1][1] = texture(255, 255, 255, 0);
    roofs[1][1] = texture(20, 180, 20);
    cameratilt = 0.5f;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({20, 180, 20}, 6.0f / std::sin(0.5f)), 1);
}

TEST_F(RaycastTest, LightAtAKnownDistanceAndItsShadow) {
    minBright = 0;
    walls[2][1] = texture(200, 200, 200);
    lights.push_back({{20, 10, 24}, {1, 128.0f / 255.0f, 0}, 48});
    // The hit is at (32, 10, 24), 12 from the light: 1 - 12 / 48 of its colour.
    const float g = 128.0f / 255.0f * 0.75f;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({150, int(200.0f * g), 0}, 24));

    lights = {{{8, 10, 8}, {1, 1, 1}, 200}};
    const float d = std::sqrt(24.0f * 24.0f + 16.0f * 16.0f);
    const int lit = int(200.0f * (1.0f - d / 200.0f));
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({lit, lit, lit}, 24), 1);
    walls[1][0] = texture(1, 1, 1);  // on the line from the light to the hit
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({0, 0, 0}, 24));
}

TEST_F(RaycastTest, MirrorFloorShowsTheCeilingUpToMaxRaytrace) {
    roofs = filled(4, 3, texture(20, 180, 20));
    floors = filled(4, 3, texture(200, 40, 40));
    NuvraImage* mirror = image(roofs[0][0]);
    mirror->reflectWidth = mirror->reflectHeight = 1;
    mirror->reflectPixels = new uint8_t[4]{255, 255, 255, 255};
    reflectionIntensity = 1;  // the whole reflection, none of the floor
    cameratilt = 0.5f;
    const float down = 6.0f / std::sin(0.5f), up = 16.0f / std::sin(0.5f);

    maxRaytrace = 0;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({20, 180, 20}, down), 1);
    maxRaytrace = 1;
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({200, 40, 40}, down + up), 1);
}

TEST_F(RaycastTest, QuadAheadAndAWallInFrontOfIt) {
    const int32_t yellow = texture(220, 220, 0);
    Quad quad{};
    quad.tl = {24, 0, 16}, quad.tr = {24, 0, 32}, quad.br = {24, 16, 32}, quad.bl = {24, 16, 16};
    quad.texture = yellow;
    finalizeQuad(quad);
    faces = {quad};
    buildQuadGrid(4, 3, tileSize);
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({220, 220, 0}, 16));
    walls[1][1] = texture(200, 100, 50);
    expectPixel(render(kSize, kSize), kCentre, kCentre, twiceFogged({200, 100, 50}, 8));
}

// A map with something of everything, for the tests that compare frames with each other.
class BusyScene : public RaycastTest {
protected:
    void SetUp() override {
        RaycastTest::SetUp();
        emptyMap(6, 6);
        playerx = 40, playery = 40, cameraangle = 0.7f, cameratilt = 0.1f;
        minBright = 0.3f;
        const int32_t stone = texture(150, 140, 130, 255, 8), grass = texture(40, 160, 60, 255, 8);
        const int32_t glass = texture(120, 200, 255, 100, 8), sky = texture(90, 90, 120, 255, 8);
        for (int32_t i = 0; i < 6; ++i) walls[0][i] = walls[5][i] = walls[i][0] = walls[i][5] = stone;
        walls[3][4] = glass;
        roofs = filled(6, 6, grass);
        floors = filled(6, 6, sky);
        floorsOff[2][3] = -5, roofsOff[3][2] = 3;
        NuvraImage* mirror = image(grass);
        mirror->reflectWidth = mirror->reflectHeight = 2;
        mirror->reflectPixels = new uint8_t[16]{255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255};
        Quad quad{};
        quad.tl = {50, 2, 60}, quad.tr = {70, 2, 62}, quad.br = {70, 14, 62}, quad.bl = {50, 14, 60};
        quad.texture = glass;
        finalizeQuad(quad);
        faces = {quad};
        buildQuadGrid(6, 6, tileSize);
        lights = {{{30, 6, 60}, {1, 0.5f, 0.2f}, 60}, {{70, 4, 30}, {0.2f, 0.4f, 1}, 50}};
    }
};

TEST_F(BusyScene, EveryThreadCountGivesTheSameBytes) {
    AllowedThreads = 1;
    const Frame one = render(61, 37);
    for (int32_t threads : {2, 6, 16}) {
        AllowedThreads = threads;
        EXPECT_EQ(render(61, 37).bytes, one.bytes) << threads << " threads";
    }
}

TEST_F(BusyScene, CoarseStepRepeatsTheFineSampleAtEachBlockCorner) {
    const Frame fine = render(42, 30);
    step = 4;
    AllowedThreads = 3;
    const Frame coarse = render(42, 30);
    for (int32_t y = 0; y < 30; ++y)
        for (int32_t x = 0; x < 42; ++x) {
            const uint8_t* corner = fine.at(x - x % 4, y - y % 4);
            ASSERT_EQ(std::vector<uint8_t>(coarse.at(x, y), coarse.at(x, y) + 4),
                      std::vector<uint8_t>(corner, corner + 4)) << x << "," << y;
        }
}

}  // namespace
}  // namespace orvane
