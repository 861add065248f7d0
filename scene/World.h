// The engine's one 3D scene: a grid of cells with walls and planes, free-standing quads, point
// lights, the camera and a few tuning values. Scripts fill it between frames on the script
// thread; the renderers read it, on worker threads, while the script thread waits.
#pragma once

#include <cstdint>
#include <vector>

#include "image/NuvraImage.h"

namespace orvane {

// World coordinates: the plan is x and z, y is height and grows downward.
struct Vec3 {
    float x, y, z;
};
inline Vec3 operator+(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(const Vec3& a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// One free-standing quadrilateral; finalizeQuad fills everything after `texture`.
struct Quad {
    Vec3 tl, tr, br, bl;
    int32_t texture;
    Vec3 normal;
    Vec3 edge1, edge2, edge3;
    float edge1LengthSquared, edge3LengthSquared;
    float minX, maxX, minY, maxY, minZ, maxZ;
};

struct LightSource {
    Vec3 position;
    Vec3 colour;  // 0 to 1 a channel
    float radius;
};

// The four neighbours of a cell, in the order every step test visits them: x - 1, x + 1, z - 1, z + 1.
constexpr int32_t kNeighbourX[4] = {-1, 1, 0, 0}, kNeighbourZ[4] = {0, 0, -1, 1};

// grid[x][z]: the outer index is the world column x, the inner one the world row z.
using Grid = std::vector<std::vector<int32_t>>;

extern Grid walls, roofs, floors, roofsOff, floorsOff;
// Entry 0 is always empty; a script keeps ownership of the images, so the world holds their
// handles and finds them anew each frame: a texture killed since is simply unusable.
extern std::vector<ImageHandle> textures;
extern std::vector<Quad> faces;
extern std::vector<std::vector<std::vector<int32_t>>> quadGrid;
extern std::vector<LightSource> lights;

extern float tileSize, maxDistance, playerx, playery, cameraHeightOffset, cameraangle, cameratilt, hFOV;
extern int32_t maxRaytrace;
extern float reflectionIntensity, minBright, maxBright, fogR, fogG, fogB;

// The script frame is (x, y, height up); the world point of script (a, b, h) is (a, tileSize - h, b).
inline Vec3 worldPoint(float a, float b, float h) { return {a, tileSize - h, b}; }

void finalizeQuad(Quad& quad);
void buildQuadGrid(int32_t gridWidth, int32_t gridHeight, float cell);
int32_t gridWidthOf(const Grid& grid);
int32_t gridHeightOf(const Grid& grid);

// Truncation toward zero into a cell or pixel index; NaN and values beyond the int range give
// `outside`, so that no float ever reaches an undefined conversion.
inline int32_t truncatedIndex(float value, int32_t outside = -1) {
    // 2^31 is exact in float; every float below it truncates into the int range.
    if (!(value > -2147483648.0f && value < 2147483648.0f)) return outside;
    return int32_t(value);
}

// A frame's read-only copy of the world, made on the script thread before workers start: flat
// grids padded to the shape of `walls` (so ragged or mismatched grids read as empty cells) and
// the textures resolved to images, null where unusable.
struct SceneView {
    int32_t gridWidth = 0, gridHeight = 0;
    float tileSize = 0;
    std::vector<int32_t> walls, roofs, floors, roofsOff, floorsOff;
    std::vector<const NuvraImage*> textures;
    // Per cell, bit n (n = 0 to 3 for the neighbours x - 1, x + 1, z - 1, z + 1) when the upper
    // planes of the cell and that neighbour make a step (one has a plane, and not both at one
    // height), bit 4 + n the same for the lower planes: most cells have none, and skip the tests.
    std::vector<uint8_t> steps;
    const std::vector<Quad>* faces = nullptr;
    const std::vector<std::vector<std::vector<int32_t>>>* quadGrid = nullptr;

    bool inside(int32_t x, int32_t z) const { return x >= 0 && z >= 0 && x < gridWidth && z < gridHeight; }
    int32_t at(const std::vector<int32_t>& grid, int32_t x, int32_t z) const {
        return grid[size_t(x) * size_t(gridHeight) + size_t(z)];
    }
    uint8_t stepsAt(int32_t x, int32_t z) const { return steps[size_t(x) * size_t(gridHeight) + size_t(z)]; }
    // The image behind a texture index, or null when the index is not usable.
    const NuvraImage* texture(int32_t index) const {
        return index > 0 && size_t(index) < textures.size() ? textures[size_t(index)] : nullptr;
    }
    // The quads listed at a cell; empty outside the grid they were built for.
    const std::vector<int32_t>& quadsAt(int32_t x, int32_t z) const;
};

SceneView makeSceneView();

}  // namespace orvane
