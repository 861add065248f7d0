#include "scene/RayQueries.h"

#include <algorithm>
#include <cfloat>

#include "scene/Texel.h"

namespace orvane {

namespace {

// The shadow ray's margin, for distances, parallel directions and cell edges alike.
constexpr float kMargin = 0.0001f;
constexpr float kTriangleEpsilon = 1e-6f;
constexpr float kStepHeightMin = 0.001f;

float component(const Vec3& v, int axis) { return axis == 0 ? v.x : axis == 1 ? v.y : v.z; }

enum class Pass { Through, Blocked };

// Filters the light by one texel: opaque blocks, clear passes, translucent dims the colour
// toward the texel's own; a light dimmed to nothing is blocked.
Pass filterLight(const uint8_t* texel, Vec3& colour) {
    const uint8_t a = texel[3];
    if (a > 254) return Pass::Blocked;
    if (a == 0) return Pass::Through;
    const float af = float(a) / 255.0f;
    colour.x *= 1.0f - af + float(texel[0]) / 255.0f * af;
    colour.y *= 1.0f - af + float(texel[1]) / 255.0f * af;
    colour.z *= 1.0f - af + float(texel[2]) / 255.0f * af;
    const bool dark = colour.x <= kMargin && colour.y <= kMargin && colour.z <= kMargin;
    return dark ? Pass::Blocked : Pass::Through;
}

// The texel at (u, v) from 0 to 1, by the shadow ray's rule: the truncation of (size - 1) times u.
Pass filterByImage(const NuvraImage* image, float u, float v, Vec3& colour) {
    if (!image) return Pass::Blocked;
    u = std::clamp(u, 0.0f, 1.0f), v = std::clamp(v, 0.0f, 1.0f);
    const int32_t column = truncatedIndex(float(image->width - 1) * u, 0);
    const int32_t row = truncatedIndex(float(image->height - 1) * v, 0);
    return filterLight(texelAt(*image, column, row), colour);
}

}  // namespace

bool rayTriangleIntersectPrecomputed(const Vec3& origin, const Vec3& direction, const Vec3& corner,
                                     const Vec3& edge1, const Vec3& edge2, float& t, float& u, float& v) {
    const Vec3 p = cross(direction, edge2);
    const float det = dotProduct(edge1, p);
    if (std::fabs(det) < kTriangleEpsilon) return false;
    const Vec3 s = origin - corner;
    u = dotProduct(s, p) / det;
    if (u < 0.0f || u > 1.0f) return false;
    const Vec3 q = cross(s, edge1);
    v = dotProduct(direction, q) / det;
    if (v < 0.0f || u + v > 1.0f) return false;
    t = dotProduct(edge2, q) / det;
    return t > kTriangleEpsilon;
}

bool rayIntersectsQuadAABBPrecomputed(const Vec3& origin, const Vec3& inverseDirection, bool parallelX,
                                      bool parallelY, bool parallelZ, const Quad& quad, float tMin, float tMax) {
    const float lows[] = {quad.minX, quad.minY, quad.minZ};
    const float highs[] = {quad.maxX, quad.maxY, quad.maxZ};
    const bool parallel[] = {parallelX, parallelY, parallelZ};
    float tNear = tMin, tFar = tMax;
    for (int axis = 0; axis < 3; ++axis) {
        const float o = component(origin, axis);
        if (parallel[axis]) {
            if (o < lows[axis] || o > highs[axis]) return false;
            continue;
        }
        const float inverse = component(inverseDirection, axis);
        float a = (lows[axis] - o) * inverse, b = (highs[axis] - o) * inverse;
        if (a > b) std::swap(a, b);
        tNear = std::max(tNear, a);
        tFar = std::min(tFar, b);
        if (tFar < tNear) return false;
    }
    return true;
}

bool isObstructed(const Vec3& from, const Vec3& to, const SceneView& scene, Vec3& colour) {
    Vec3 direction = to - from;
    const float distance = std::sqrt(dotProduct(direction, direction));
    if (distance < kMargin) return false;
    direction = direction * (1.0f / distance);
    const bool flat[] = {std::fabs(direction.x) < kMargin, std::fabs(direction.y) < kMargin,
                         std::fabs(direction.z) < kMargin};
    const Vec3 inverse{flat[0] ? 0.0f : 1.0f / direction.x, flat[1] ? 0.0f : 1.0f / direction.y,
                       flat[2] ? 0.0f : 1.0f / direction.z};
    const Vec3 start = from + direction * kMargin;
    const float size = scene.tileSize;

    int32_t cellX = truncatedIndex(start.x / size), cellZ = truncatedIndex(start.z / size);
    const int32_t stepX = direction.x > 0 ? 1 : -1, stepZ = direction.z > 0 ? 1 : -1;
    const float costX = std::fabs(direction.x) > kMargin ? size / std::fabs(direction.x) : FLT_MAX;
    const float costZ = std::fabs(direction.z) > kMargin ? size / std::fabs(direction.z) : FLT_MAX;
    float nextX = nextBoundary(cellX, stepX, size, start.x, direction.x);
    float nextZ = nextBoundary(cellZ, stepZ, size, start.z, direction.z);
    const auto pointAt = [&](float t) { return start + direction * t; };

    // Every turn moves one cell on one axis, so the walk leaves the grid in at most its
    // width plus height turns.
    for (float t = 0; t < distance && scene.inside(cellX, cellZ);) {
        if (colour.x <= kMargin && colour.y <= kMargin && colour.z <= kMargin) return true;
        const float x0 = float(cellX) * size, x1 = float(cellX + 1) * size;
        const float z0 = float(cellZ) * size, z1 = float(cellZ + 1) * size;

        // Quads: the cheap y span first, then the slab, then the two triangles.
        const float tEnd = std::min({nextX, nextZ, distance});
        const float yA = start.y + direction.y * t, yB = start.y + direction.y * tEnd;
        const float yLow = std::min(yA, yB) - kMargin, yHigh = std::max(yA, yB) + kMargin;
        for (int32_t index : scene.quadsAt(cellX, cellZ)) {
            if (size_t(index) >= scene.faces->size()) continue;
            const Quad& quad = (*scene.faces)[size_t(index)];
            if (yHigh < quad.minY || yLow > quad.maxY) continue;
            if (!rayIntersectsQuadAABBPrecomputed(start, inverse, flat[0], flat[1], flat[2], quad, kMargin, distance))
                continue;
            float th = 0, u = 0, v = 0;
            const auto between = [&](bool found) { return found && th > kMargin && th < distance; };
            if (!between(rayTriangleIntersectPrecomputed(start, direction, quad.tl, quad.edge1, quad.edge2, th, u, v)) &&
                !between(rayTriangleIntersectPrecomputed(start, direction, quad.tl, quad.edge2, quad.edge3, th, u, v)))
                continue;
            const Vec3 d = pointAt(th) - quad.tl;
            const float qu = quad.edge1LengthSquared > 0 ? dotProduct(d, quad.edge1) / quad.edge1LengthSquared : 0;
            const float qv = quad.edge3LengthSquared > 0 ? dotProduct(d, quad.edge3) / quad.edge3LengthSquared : 0;
            if (filterByImage(scene.texture(quad.texture), qu, qv, colour) == Pass::Blocked) return true;
        }

        // The wall block: the nearest of its four sides that the ray crosses here.
        if (scene.at(scene.walls, cellX, cellZ) > 0) {
            float best = FLT_MAX;
            int side = -1;
            for (int candidate = 0; candidate < 4; ++candidate) {
                const bool acrossX = candidate < 2;
                const float d = acrossX ? direction.x : direction.z;
                if (std::fabs(d) <= kMargin) continue;
                const float plane = acrossX ? (candidate == 0 ? x0 : x1) : (candidate == 2 ? z0 : z1);
                const float param = (plane - (acrossX ? start.x : start.z)) / d;
                if (!(param > kMargin && param < distance)) continue;
                const Vec3 hit = pointAt(param);
                const float along = acrossX ? hit.z : hit.x, low = acrossX ? z0 : x0, high = acrossX ? z1 : x1;
                if (along < low - kMargin || along > high + kMargin) continue;
                if (param < best) best = param, side = candidate;
            }
            if (side >= 0) {
                const Vec3 hit = pointAt(best);
                if (hit.y >= -kMargin && hit.y <= size + kMargin) {
                    const float u = side < 2 ? (hit.z - z0) / size : (hit.x - x0) / size;
                    const NuvraImage* image = scene.texture(scene.at(scene.walls, cellX, cellZ));
                    if (filterByImage(image, u, hit.y / size, colour) == Pass::Blocked) return true;
                }
            }
        }

        // The upper and the lower plane of the cell.
        const auto plane = [&](const std::vector<int32_t>& grid, float planeY) {
            if (scene.at(grid, cellX, cellZ) <= 0) return Pass::Through;
            if ((from.y > planeY && to.y > planeY) || (from.y < planeY && to.y < planeY)) return Pass::Through;
            const float param = (planeY - start.y) * inverse.y;
            if (!(param > kMargin && param < distance)) return Pass::Through;
            const Vec3 hit = pointAt(param);
            if (hit.x < x0 || hit.x > x1 || hit.z < z0 || hit.z > z1) return Pass::Through;
            const NuvraImage* image = scene.texture(scene.at(grid, cellX, cellZ));
            return filterByImage(image, (hit.x - x0) / size, (hit.z - z0) / size, colour);
        };
        if (plane(scene.floors, -float(scene.at(scene.roofsOff, cellX, cellZ))) == Pass::Blocked) return true;
        if (plane(scene.roofs, float(scene.at(scene.floorsOff, cellX, cellZ)) + size) == Pass::Blocked) return true;

        // Step faces between planes of differing heights block whatever their texture.
        const uint8_t stepMask = scene.stepsAt(cellX, cellZ);
        const auto steps = [&](const std::vector<int32_t>& present, const std::vector<int32_t>& offsets,
                               float sign, float base, int32_t maskShift) {
            const auto height = [&](int32_t x, int32_t z) {
                return scene.at(present, x, z) > 0 ? sign * float(scene.at(offsets, x, z)) + base : base;
            };
            for (int n = 0; n < 4; ++n) {
                if (!(stepMask >> (maskShift + n) & 1)) continue;
                const int32_t nx = cellX + kNeighbourX[n], nz = cellZ + kNeighbourZ[n];
                const float hC = height(cellX, cellZ), hN = height(nx, nz);
                const float lo = std::min(hC, hN), hi = std::max(hC, hN);
                if (hi - lo <= kStepHeightMin) continue;
                const bool acrossX = n < 2;
                const float d = acrossX ? direction.x : direction.z;
                if (std::fabs(d) < kMargin) continue;
                const float boundary = n == 0 ? x0 : n == 1 ? x1 : n == 2 ? z0 : z1;
                const float param = (boundary - (acrossX ? start.x : start.z)) / d;
                if (param < kMargin || param > distance + kMargin) continue;
                const Vec3 hit = pointAt(param);
                const float along = acrossX ? hit.z : hit.x, low = acrossX ? z0 : x0, high = acrossX ? z1 : x1;
                if (along < low - kMargin || along > high + kMargin) continue;
                if (hit.y >= lo - kMargin && hit.y <= hi + kMargin) return true;
            }
            return false;
        };
        if (stepMask && steps(scene.floors, scene.roofsOff, -1.0f, 0.0f, 0)) return true;
        if (stepMask && steps(scene.roofs, scene.floorsOff, 1.0f, size, 4)) return true;

        if (nextX < nextZ) {
            t = nextX, nextX += costX, cellX += stepX;
        } else {
            t = nextZ, nextZ += costZ, cellZ += stepZ;
        }
    }
    return false;
}

}  // namespace orvane
