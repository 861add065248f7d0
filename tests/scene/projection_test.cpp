// The projection renderer on tiny scenes: the camera at (8, 24), eye 10 down from the tile's
// top, looking along +x with a field of view of 1 radian, into a 32 by 32 frame, so a point at
// distance d, x to the right and y down, lands on column (x / d + 1) * 16, row (y / d + 1) * 16.
#include "scene/Projection.h"
#include "tests/scene/scene_fixture.h"

namespace orvane {
namespace {

class ProjectionTest : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        emptyMap(4, 3);
        playerx = 8, playery = 24;
        hFOV = 1;
    }
    // A quad across the view at world x `atX`, from z0 to z1 and y0 to y1.
    void quadAcross(float atX, float z0, float z1, float y0, float y1, int32_t texture) {
        Quad quad{};
        quad.tl = {atX, y0, z0}, quad.tr = {atX, y0, z1}, quad.br = {atX, y1, z1}, quad.bl = {atX, y1, z0};
        quad.texture = texture;
        finalizeQuad(quad);
        faces.push_back(quad);
    }
    static Frame project(int32_t w = 32, int32_t h = 32) {
        Frame frame(w, h);
        renderProjectionScene(frame.image);
        return frame;
    }
    static std::vector<uint8_t> pixel(const Frame& frame, int32_t x, int32_t y) {
        return {frame.at(x, y), frame.at(x, y) + 4};
    }
    const std::vector<uint8_t> fogPixel{0, 0, 255, 255};
};

TEST_F(ProjectionTest, AQuadFacingTheCameraCoversTheColumnsItsCornersGive) {
    EXPECT_EQ(pixel(project(), 16, 16), fogPixel);
    // 16 ahead, from 4 left of the eye to 8 right and from 2 above to 2 below: columns 12 to 24,
    // rows 14 to 18.
    quadAcross(24, 20, 32, 8, 12, texture(200, 100, 50));
    const Frame frame = project();
    const std::vector<uint8_t> quad{200, 100, 50, 255};
    EXPECT_EQ(pixel(frame, 12, 14), quad);
    EXPECT_EQ(pixel(frame, 23, 17), quad);
    EXPECT_EQ(pixel(frame, 11, 16), fogPixel);
    EXPECT_EQ(pixel(frame, 24, 16), fogPixel);
    EXPECT_EQ(pixel(frame, 16, 13), fogPixel);
    EXPECT_EQ(pixel(frame, 16, 18), fogPixel);
    // The same quad beyond the view distance, or behind the camera, is not drawn.
    maxDistance = 15;
    EXPECT_EQ(pixel(project(), 16, 16), fogPixel);
    maxDistance = 160;
    faces.clear();
    quadAcross(-8, 20, 32, 8, 12, int32_t(textures.size() - 1));
    EXPECT_EQ(pixel(project(), 16, 16), fogPixel);
}

TEST_F(ProjectionTest, NearPlaneClipsWhatCrossesItAndDropsWhatLiesBeforeIt) {
    // A floor strip from behind the camera to 24 ahead, 6 below the eye: clipped at 0.02, it
    // reaches the bottom edge of the screen.
    Quad floor{};
    floor.tl = {0, 16, 20}, floor.tr = {32, 16, 20}, floor.br = {32, 16, 28}, floor.bl = {0, 16, 28};
    floor.texture = texture(20, 180, 20);
    finalizeQuad(floor);
    faces = {floor};
    const Frame frame = project();
    EXPECT_EQ(pixel(frame, 16, 31), std::vector<uint8_t>({20, 180, 20, 255}));
    EXPECT_EQ(pixel(frame, 16, 15), fogPixel);  // above the horizon
    faces.clear();
    quadAcross(8.01f, 20, 28, 6, 14, int32_t(textures.size() - 1));  // 0.01 ahead: wholly before the near plane
    EXPECT_EQ(pixel(project(), 16, 16), fogPixel);
}

TEST_F(ProjectionTest, TranslucentPixelsLeaveTheDepthForWhatComesLater) {
    quadAcross(20, 16, 32, 6, 14, texture(255, 255, 255, 128));
    quadAcross(28, 16, 32, 6, 14, texture(200, 0, 0));
    EXPECT_EQ(pixel(project(), 16, 16), std::vector<uint8_t>({200, 0, 0, 255}));
    // In the other order the glass blends over the red: 255 * 0.502 + 200 * 0.498 and 255 * 0.502.
    std::swap(faces[0], faces[1]);
    EXPECT_EQ(pixel(project(), 16, 16), std::vector<uint8_t>({227, 128, 128, 255}));
}

TEST_F(ProjectionTest, TexturesSpanTheirQuadsAndWallsSpanTheirCellsPlanes) {
    // A 2 by 1 texture, left red and right green, across columns 8 to 24: it splits at 16.
    const int32_t two = texture(255, 0, 0, 255, 1);
    NuvraImage* halves = image(two);
    delete[] halves->pixels;
    halves->width = 2;
    halves->pixels = new uint8_t[8]{255, 0, 0, 255, 0, 255, 0, 255};
    quadAcross(24, 16, 32, 6, 14, two);
    const Frame frame = project();
    EXPECT_EQ(pixel(frame, 10, 16), std::vector<uint8_t>({255, 0, 0, 255}));
    EXPECT_EQ(pixel(frame, 20, 16), std::vector<uint8_t>({0, 255, 0, 255}));
    // A wall block in a cell whose upper plane hangs 8 higher and whose lower plane lies 4
    // higher: its side runs from y -8 to 12, 24 ahead, rows 4 to 17.3; below it, the step face up
    // to the raised floor, from y 12 to 16, down to row 20.
    faces.clear();
    walls[2][1] = texture(200, 100, 50);
    floors[2][1] = roofs[2][1] = walls[2][1];
    roofsOff[2][1] = 8, floorsOff[2][1] = -4;
    const Frame wall = project();
    EXPECT_EQ(pixel(wall, 16, 4), std::vector<uint8_t>({200, 100, 50, 255}));
    EXPECT_EQ(pixel(wall, 16, 16), std::vector<uint8_t>({200, 100, 50, 255}));
    EXPECT_EQ(pixel(wall, 16, 19), std::vector<uint8_t>({200, 100, 50, 255}));
    EXPECT_EQ(pixel(wall, 16, 3), fogPixel);
    EXPECT_EQ(pixel(wall, 16, 20), fogPixel);
}

// Both renderers on one map of walls, lit evenly and with no fog to speak of: the walls'
// silhouettes must agree but for pixels on their edges.
TEST_F(ProjectionTest, WallSilhouettesAgreeWithTheRaycaster) {
    emptyMap(8, 8);
    const int32_t red = texture(220, 0, 0);
    for (int32_t i = 0; i < 8; ++i) walls[0][i] = walls[7][i] = walls[i][0] = walls[i][7] = red;
    walls[3][4] = walls[5][2] = walls[4][5] = red;
    playerx = 30, playery = 40, cameraangle = 0.3f, cameratilt = 0.15f;
    hFOV = 1.5708f;
    maxDistance = 1e6f;
    const int32_t w = 96, h = 64;
    const Frame projected = project(w, h);
    const Frame traced = render(w, h);
    int32_t differ = 0;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) differ += (projected.at(x, y)[0] > 100) != (traced.at(x, y)[0] > 100);
    EXPECT_LT(differ, w * h / 50) << differ << " pixels differ";
}

}  // namespace
}  // namespace orvane

namespace orvane {
namespace {

// Each triangle fills only the part of each row where its weights can be in, four pixels at a
// time; the plain route tests every pixel of its box, one by one. Random maps seen from random places, close to walls too, where
// corners project far off the screen, must come out the same both ways.
TEST_F(ProjectionTest, RowSpansGiveTheSamePixelsAsWholeBoxes) {
    uint32_t seed = 7;
    const auto next = [&seed](uint32_t range) { return ((seed = seed * 1664525u + 1013904223u) >> 8) % range; };
    emptyMap(6, 6);
    // Every texel differs, some clear and some translucent, so a lane reading the wrong texel shows.
    const auto patterned = [&](int32_t width, int32_t height) {
        NuvraImage* pattern = createSolidColourImage(width, height, 0, 0, 0, 255);
        for (int32_t i = 0; i < width * height * 4; ++i) pattern->pixels[i] = uint8_t(next(256));
        for (int32_t i = 0; i < width * height; i += 3) pattern->pixels[i * 4 + 3] = i % 2 ? 0 : 255;
        handles.push_back(liveNuvraImages.enter(pattern));
        textures.push_back(handles.back());
        return int32_t(textures.size() - 1);
    };
    const int32_t chosen[] = {patterned(5, 3), patterned(7, 9), patterned(16, 16)};
    for (int32_t x = 0; x < 6; ++x)
        for (int32_t z = 0; z < 6; ++z) {
            walls[x][z] = next(5) == 0 ? chosen[next(3)] : 0;
            floors[x][z] = chosen[next(3)], roofs[x][z] = chosen[next(3)];
            roofsOff[x][z] = int32_t(next(9)) - 4, floorsOff[x][z] = int32_t(next(9)) - 4;
        }
    for (int view = 0; view < 12; ++view) {
        playerx = float(next(96)) + 0.25f, playery = float(next(96)) + 0.75f;
        cameraangle = float(next(628)) / 100, cameratilt = (float(next(100)) - 50) / 100;
        projectionScansWholeBoxes = true;
        const Frame plain = project(57, 41);
        projectionScansWholeBoxes = false;
        ASSERT_EQ(project(57, 41).bytes, plain.bytes) << "view " << view;
    }
}

}  // namespace
}  // namespace orvane
