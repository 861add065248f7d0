// The scene's geometric primitives and the shadow ray. Read-only over the scene, so any number
// of worker threads may call them while no script runs.
#pragma once

#include <cfloat>
#include <cmath>

#include "scene/World.h"

namespace orvane {

inline float dotProduct(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline float distanceSquared(const Vec3& a, const Vec3& b) { return dotProduct(a - b, a - b); }

// The unit normal of the plane through a, b, c; all zero for a degenerate triangle.
inline Vec3 computeNormal(const Vec3& a, const Vec3& b, const Vec3& c) {
    const Vec3 n = cross(b - a, c - a);
    const float length = std::sqrt(dotProduct(n, n));
    return length > 0 ? Vec3{n.x / length, n.y / length, n.z / length} : n;
}

// The ray parameter of the next cell boundary on one axis of a grid walk. A ray with no motion
// on the axis never reaches one (rather than at minus infinity, which would move it backwards).
inline float nextBoundary(int32_t cell, int32_t cellStep, float size, float origin, float direction) {
    if (direction == 0.0f) return FLT_MAX;
    return (float(cell + (cellStep > 0)) * size - origin) / direction;
}

// Both faces of the triangle corner, corner + edge1, corner + edge2 count; t is above 1e-6.
bool rayTriangleIntersectPrecomputed(const Vec3& origin, const Vec3& direction, const Vec3& corner,
                                     const Vec3& edge1, const Vec3& edge2, float& t, float& u, float& v);

// The slab test over the quad's widened bounds, within [tMin, tMax].
bool rayIntersectsQuadAABBPrecomputed(const Vec3& origin, const Vec3& inverseDirection, bool parallelX,
                                      bool parallelY, bool parallelZ, const Quad& quad, float tMin, float tMax);

// Whether the light at `to` is blocked on its way to `from`; translucent texels on the way
// filter `colour`, and a colour filtered to nothing counts as blocked.
bool isObstructed(const Vec3& from, const Vec3& to, const SceneView& scene, Vec3& colour);

}  // namespace orvane
