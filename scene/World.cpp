#include "scene/World.h"

#include "scene/RayQueries.h"

#include <algorithm>

namespace orvane {

Grid walls, roofs, floors, roofsOff, floorsOff;
std::vector<ImageHandle> textures(1, 0);
std::vector<Quad> faces;
std::vector<std::vector<std::vector<int32_t>>> quadGrid;
std::vector<LightSource> lights;

float tileSize = 16.0f;
float maxDistance = 160.0f;
float playerx = 24.0f, playery = 24.0f;
float cameraHeightOffset = 6.0f;
float cameraangle = 0.0f, cameratilt = 0.0f;
float hFOV = 1.5708f;
int32_t maxRaytrace = 2;
float reflectionIntensity = 0.15f;
float minBright = 0.25f, maxBright = 1.0f;
float fogR = 0.0f, fogG = 0.0f, fogB = 255.0f;

namespace {

constexpr float kBoundsMargin = 0.0001f;

// Copies a script grid into the frame's flat layout, zero where the grid has no such cell.
std::vector<int32_t> flatGrid(const Grid& grid, int32_t width, int32_t height) {
    std::vector<int32_t> flat(size_t(width) * size_t(height), 0);
    const size_t columns = std::min(grid.size(), size_t(width));
    for (size_t x = 0; x < columns; ++x) {
        const size_t rows = std::min(grid[x].size(), size_t(height));
        std::copy_n(grid[x].begin(), rows, flat.begin() + ptrdiff_t(x * size_t(height)));
    }
    return flat;
}

const std::vector<int32_t> kNoQuads;

}  // namespace

int32_t gridWidthOf(const Grid& grid) { return int32_t(std::min<size_t>(grid.size(), INT32_MAX)); }
int32_t gridHeightOf(const Grid& grid) { return grid.empty() ? 0 : int32_t(std::min<size_t>(grid[0].size(), INT32_MAX)); }

void finalizeQuad(Quad& quad) {
    quad.normal = computeNormal(quad.tl, quad.tr, quad.br);
    quad.edge1 = quad.tr - quad.tl;
    quad.edge2 = quad.br - quad.tl;
    quad.edge3 = quad.bl - quad.tl;
    quad.edge1LengthSquared = dotProduct(quad.edge1, quad.edge1);
    quad.edge3LengthSquared = dotProduct(quad.edge3, quad.edge3);
    const Vec3 corners[] = {quad.tl, quad.tr, quad.br, quad.bl};
    quad.minX = quad.maxX = quad.tl.x;
    quad.minY = quad.maxY = quad.tl.y;
    quad.minZ = quad.maxZ = quad.tl.z;
    for (const Vec3& c : corners) {
        quad.minX = std::min(quad.minX, c.x), quad.maxX = std::max(quad.maxX, c.x);
        quad.minY = std::min(quad.minY, c.y), quad.maxY = std::max(quad.maxY, c.y);
        quad.minZ = std::min(quad.minZ, c.z), quad.maxZ = std::max(quad.maxZ, c.z);
    }
    quad.minX -= kBoundsMargin, quad.minY -= kBoundsMargin, quad.minZ -= kBoundsMargin;
    quad.maxX += kBoundsMargin, quad.maxY += kBoundsMargin, quad.maxZ += kBoundsMargin;
}

void buildQuadGrid(int32_t gridWidth, int32_t gridHeight, float cell) {
    quadGrid.assign(size_t(std::max(gridWidth, 0)),
                    std::vector<std::vector<int32_t>>(size_t(std::max(gridHeight, 0))));
    for (size_t index = 0; index < faces.size(); ++index) {
        const Quad& quad = faces[index];
        // Bounds beyond the int range (or NaN) clamp to the map's edges or leave it empty.
        const int32_t x0 = std::max(0, truncatedIndex(quad.minX / cell, quad.minX / cell > 0 ? INT32_MAX : 0));
        const int32_t x1 = std::min(gridWidth - 1, truncatedIndex(quad.maxX / cell, quad.maxX / cell > 0 ? INT32_MAX : -1));
        const int32_t z0 = std::max(0, truncatedIndex(quad.minZ / cell, quad.minZ / cell > 0 ? INT32_MAX : 0));
        const int32_t z1 = std::min(gridHeight - 1, truncatedIndex(quad.maxZ / cell, quad.maxZ / cell > 0 ? INT32_MAX : -1));
        for (int32_t x = x0; x <= x1; ++x)
            for (int32_t z = z0; z <= z1; ++z) quadGrid[size_t(x)][size_t(z)].push_back(int32_t(index));
    }
}

const std::vector<int32_t>& SceneView::quadsAt(int32_t x, int32_t z) const {
    if (size_t(x) >= quadGrid->size() || size_t(z) >= (*quadGrid)[size_t(x)].size()) return kNoQuads;
    return (*quadGrid)[size_t(x)][size_t(z)];
}

SceneView makeSceneView() {
    SceneView view;
    view.gridWidth = gridWidthOf(walls);
    view.gridHeight = gridHeightOf(walls);
    view.tileSize = tileSize;
    view.walls = flatGrid(walls, view.gridWidth, view.gridHeight);
    view.roofs = flatGrid(roofs, view.gridWidth, view.gridHeight);
    view.floors = flatGrid(floors, view.gridWidth, view.gridHeight);
    view.roofsOff = flatGrid(roofsOff, view.gridWidth, view.gridHeight);
    view.floorsOff = flatGrid(floorsOff, view.gridWidth, view.gridHeight);
    view.steps.assign(view.walls.size(), 0);
    for (int32_t x = 0; x < view.gridWidth; ++x)
        for (int32_t z = 0; z < view.gridHeight; ++z)
            for (int32_t n = 0; n < 4; ++n) {
                const int32_t nx = x + kNeighbourX[n], nz = z + kNeighbourZ[n];
                if (!view.inside(nx, nz)) continue;
                const auto differ = [&](const std::vector<int32_t>& present, const std::vector<int32_t>& offsets) {
                    const bool here = view.at(present, x, z) > 0, there = view.at(present, nx, nz) > 0;
                    return (here || there) && !(here && there && view.at(offsets, x, z) == view.at(offsets, nx, nz));
                };
                uint8_t& mask = view.steps[size_t(x) * size_t(view.gridHeight) + size_t(z)];
                if (differ(view.floors, view.roofsOff)) mask |= uint8_t(1 << n);
                if (differ(view.roofs, view.floorsOff)) mask |= uint8_t(1 << (4 + n));
            }
    view.textures.reserve(textures.size());
    for (ImageHandle handle : textures) {
        const NuvraImage* image = handle ? liveNuvraImages.find(handle) : nullptr;
        // An image without pixels has nothing to sample: it is as unusable as a killed one.
        if (image && (!image->pixels || image->width < 1 || image->height < 1)) image = nullptr;
        view.textures.push_back(image);
    }
    view.faces = &faces;
    view.quadGrid = &quadGrid;
    return view;
}

}  // namespace orvane
