#include "scene/Geometry.h"

#include <algorithm>
#include <cmath>

#include "scene/RayQueries.h"

namespace orvane {

namespace {

constexpr float kReplacementDepth = 0.0001f;
constexpr float kBarycentricSlack = 1e-5f;
constexpr float kOnTheFace = 0.0001f;
constexpr double kRadiansPerDegree = 3.141592653589793 / 180.0;
constexpr size_t kBoxFaces = 6;

Vec3 cornerAverage(const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d) {
    return {(a.x + b.x + c.x + d.x) / 4, (a.y + b.y + c.y + d.y) / 4, (a.z + b.z + c.z + d.z) / 4};
}

std::optional<float> heightOnTriangleAtXY(const Vec3& a, const Vec3& b, const Vec3& c, float x, float z) {
    const float den = (b.z - c.z) * (a.x - c.x) + (c.x - b.x) * (a.z - c.z);
    if (!(std::fabs(den) >= kBarycentricSlack)) return std::nullopt;
    const float w0 = ((b.z - c.z) * (x - c.x) + (c.x - b.x) * (z - c.z)) / den;
    const float w1 = ((c.z - a.z) * (x - c.x) + (a.x - c.x) * (z - c.z)) / den;
    const float w2 = 1 - w0 - w1;
    if (w0 < -kBarycentricSlack || w1 < -kBarycentricSlack || w2 < -kBarycentricSlack) return std::nullopt;
    return a.y * w0 + b.y * w1 + c.y * w2;
}

}  // namespace

PlanPoint steppedPosition(float distance, bool forward) {
    const float c = std::cos(cameraangle), s = std::sin(cameraangle);
    if (forward) return {playerx + c * distance, playery + s * distance};
    return {playerx - s * distance, playery + c * distance};
}

void movePlayer(float distance, bool forward) {
    const PlanPoint next = steppedPosition(distance, forward);
    playerx = next.x, playery = next.z;
}

ScreenPoint nuvraProject(float x, float y, float z, float focus) {
    const float dx = x - playerx, dy = y - playery, dz = z - cameraHeightOffset;
    const float ca = std::cos(cameraangle), sa = std::sin(cameraangle);
    const float ct = std::cos(cameratilt), st = std::sin(cameratilt);
    const float x1 = dx * ca - dy * sa, y1 = dx * sa + dy * ca;
    const float y2 = y1 * ct - dz * st;
    float z2 = y1 * st + dz * ct;
    if (z2 == 0) z2 = kReplacementDepth;
    return {truncatedIndex(focus / z2 * x1, 0), truncatedIndex(focus / z2 * y2, 0)};
}

std::optional<float> visibleFaceDepth(const ScriptFace& face, const FaceCamera& camera) {
    const float cy = std::cos(camera.yaw), sy = std::sin(camera.yaw);
    const float ct = std::cos(camera.tilt), st = std::sin(camera.tilt);
    const float cr = std::cos(camera.roll), sr = std::sin(camera.roll);
    const auto view = [&](const Vec3& point) {
        const Vec3 d = point - camera.position;
        const float p = cy * d.x - sy * d.y, q = sy * d.x + cy * d.y;
        const float r = ct * q - st * d.z, depth = st * q + ct * d.z;
        return Vec3{cr * p - sr * r, sr * p + cr * r, depth};
    };
    const Vec3 tl = view(face.topLeft), tr = view(face.topRight), bl = view(face.bottomLeft), br = view(face.bottomRight);
    if (!(std::min({tl.z, tr.z, bl.z, br.z}) > 0)) return std::nullopt;
    const Vec3 centre = cornerAverage(tl, tr, bl, br);
    const Vec3 normal = cross(tr - tl, bl - tl);
    if (!(dotProduct(Vec3{-centre.x, -centre.y, -centre.z}, normal) > 0)) return std::nullopt;
    return centre.z;
}

bool faceRange(double x1, double x2, double y1, double y2, double direction, double fov) {
    return std::cos(std::atan2(y1 - y2, x1 - x2) - direction * kRadiansPerDegree) > std::cos(fov * kRadiansPerDegree);
}

std::optional<float> heightOnQuadAtXY(const Quad& quad, float x, float z) {
    if (auto height = heightOnTriangleAtXY(quad.tl, quad.tr, quad.br, x, z)) return height;
    return heightOnTriangleAtXY(quad.tl, quad.br, quad.bl, x, z);
}

std::optional<Vec3> quadTableCentre(const std::vector<Quad>& quads) {
    if (quads.empty()) return std::nullopt;
    Vec3 low = quads[0].tl, high = quads[0].tl;
    for (const Quad& quad : quads)
        for (const Vec3& c : {quad.tl, quad.tr, quad.br, quad.bl}) {
            low = {std::min(low.x, c.x), std::min(low.y, c.y), std::min(low.z, c.z)};
            high = {std::max(high.x, c.x), std::max(high.y, c.y), std::max(high.z, c.z)};
        }
    return Vec3{(low.x + high.x) / 2, (low.y + high.y) / 2, (low.z + high.z) / 2};
}

bool quadBoxContainsPoint(const std::vector<Quad>& box, const Vec3& point) {
    const std::optional<Vec3> centre = quadTableCentre(box);
    if (box.size() != kBoxFaces || !centre) return false;
    for (const Quad& quad : box) {
        const Vec3 middle = cornerAverage(quad.tl, quad.tr, quad.br, quad.bl);
        Vec3 normal = quad.normal;
        // Turned to point away from the box's centre.
        if (dotProduct(normal, *centre - middle) > 0) normal = normal * -1.0f;
        if (dotProduct(normal, point - middle) > kOnTheFace) return false;
    }
    return true;
}

}  // namespace orvane
