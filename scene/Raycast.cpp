#include "scene/Raycast.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "image/ImageThreads.h"
#include "scene/RayQueries.h"
#include "scene/Texel.h"
#include "scene/World.h"

namespace orvane {

namespace {

constexpr float kEpsilon = 1e-6f;
constexpr float kMargin = 0.0001f;
constexpr float kPlaneClearance = 0.0001f;  // a plane must lie this far past the walk's t
constexpr float kStepHeightMin = 0.001f;
constexpr float kOpaqueEnough = 0.99f;
constexpr float kBounceLift = 0.001f;
constexpr float kCornerFog = 1.5f;
constexpr float kInverseSqrt2 = 0.70710678f;
constexpr size_t kLayersReserved = 8;
// Reflections that deep cannot show in a byte (each layer lets at most 15% through at the
// strongest reflection), and a cap keeps a huge maxRaytrace from holding a ray between mirrors.
constexpr int32_t kMostBounces = 64;

enum Kind : int32_t { kWall = 0, kUpper = 1, kLower = 2, kUpperStep = 5, kLowerStep = 6, kQuad = 7 };

struct Rgb {
    uint8_t r, g, b;
};

uint8_t toByte(float value) {
    if (!(value > 0.0f)) return 0;  // NaN too
    return value >= 255.0f ? 255 : uint8_t(value);
}

// Everything a sample reads, fixed for the frame.
struct Frame {
    SceneView scene;
    std::vector<LightSource> lights;
    Vec3 eye, forward, right, up;
    float hFov, vFov, maxDistance, reflectionIntensity, minBright, maxBright;
    float fog[3];
    Rgb fogBytes;
    int32_t maxRaytrace, width, height;
};

// The grid walk of one ray from its origin: cell, steps and the parameters of the next boundaries.
struct Walk {
    Vec3 origin, direction, inverse;
    bool flat[3];
    int32_t cellX, cellZ, stepX, stepZ;
    float costX, costZ, nextX, nextZ;

    void begin(const Vec3& from, const Vec3& towards, float size) {
        origin = from, direction = towards;
        flat[0] = std::fabs(direction.x) < kEpsilon, flat[1] = std::fabs(direction.y) < kEpsilon;
        flat[2] = std::fabs(direction.z) < kEpsilon;
        inverse = {flat[0] ? 0.0f : 1.0f / direction.x, flat[1] ? 0.0f : 1.0f / direction.y,
                   flat[2] ? 0.0f : 1.0f / direction.z};
        cellX = truncatedIndex(origin.x / size), cellZ = truncatedIndex(origin.z / size);
        stepX = direction.x > 0 ? 1 : -1, stepZ = direction.z > 0 ? 1 : -1;
        costX = std::fabs(direction.x) > kEpsilon ? size / std::fabs(direction.x) : FLT_MAX;
        costZ = std::fabs(direction.z) > kEpsilon ? size / std::fabs(direction.z) : FLT_MAX;
        nextX = nextBoundary(cellX, stepX, size, origin.x, direction.x);
        nextZ = nextBoundary(cellZ, stepZ, size, origin.z, direction.z);
    }
    Vec3 at(float t) const { return origin + direction * t; }
};

// A surface the walk met: what it is, where, and where on its texture.
struct Hit {
    int32_t kind = -1, side = 0, cellX = 0, cellZ = 0, quad = 0;
    float u = 0, v = 0;
};

class SampleTracer {
public:
    SampleTracer(const Frame& frame, std::vector<TransparentLayer>& layers) : f(frame), s(frame.scene), layers(layers) {}
    Rgb trace(int32_t x, int32_t y);

private:
    const Frame& f;
    const SceneView& s;
    std::vector<TransparentLayer>& layers;
    float corner = 1;

    Walk w{};
    float t = 0, tExit = 0, x0 = 0, x1 = 0, z0 = 0, z1 = 0;
    bool skipQuads = false, skipWall = false, skipUpper = false, skipLower = false;
    // Step faces found without the skip flags must lie beyond this, so that a face proved clear
    // or translucent at this place cannot hold the ray in its cell.
    float repeatFloor = -FLT_MAX;

    bool wallSide(float limit, bool limitHeight, float& param, int32_t& side) const;
    bool planeHit(const std::vector<int32_t>& grid, float planeY, float lowest, float highest, float margin,
                  float& param) const;
    bool stepHit(bool upper, bool repeat, float limit, float floor, Hit& hit, float& param) const;
    bool quadStep(Hit& hit);
    bool gridStep(Hit& hit, bool& repeated);
    int32_t textureIndex(const Hit& hit) const;
    Rgb lit(const Vec3& point, const uint8_t* texel) const;
    Rgb fogged(Rgb colour, float distance) const;
};

// B1: the nearest side of the wall block in this cell, parameter from t - m to `limit`.
bool SampleTracer::wallSide(float limit, bool limitHeight, float& param, int32_t& side) const {
    float best = FLT_MAX;
    side = -1;
    for (int32_t candidate = 0; candidate < 4; ++candidate) {
        const bool acrossX = candidate < 2;
        const float d = acrossX ? w.direction.x : w.direction.z;
        if (d == 0.0f) continue;
        const float plane = acrossX ? (candidate == 0 ? x0 : x1) : (candidate == 2 ? z0 : z1);
        const float p = (plane - (acrossX ? w.origin.x : w.origin.z)) / d;
        if (!(p >= t - kMargin && p <= limit)) continue;
        const Vec3 point = w.at(p);
        const float along = acrossX ? point.z : point.x, low = acrossX ? z0 : x0, high = acrossX ? z1 : x1;
        if (along < low - kMargin || along > high + kMargin) continue;
        if (p < best) best = p, side = candidate;
    }
    if (side < 0) return false;
    param = best;
    const float y = w.at(best).y;
    return !limitHeight || (y >= -kMargin && y <= s.tileSize + kMargin);
}

// B2 and B3: the plane at planeY when its grid has something here, parameter above `lowest`
// and at most `highest`, the hit within the cell widened by `margin`.
bool SampleTracer::planeHit(const std::vector<int32_t>& grid, float planeY, float lowest, float highest,
                            float margin, float& param) const {
    if (s.at(grid, w.cellX, w.cellZ) <= 0 || w.direction.y == 0.0f) return false;
    const float p = (planeY - w.origin.y) / w.direction.y;
    if (!(p > lowest && p <= highest)) return false;
    const Vec3 point = w.at(p);
    if (point.x < x0 - margin || point.x > x1 + margin || point.z < z0 - margin || point.z > z1 + margin)
        return false;
    param = p;
    return true;
}

// B4 to B7: the first step face to a neighbour, in the order x - 1, x + 1, z - 1, z + 1.
bool SampleTracer::stepHit(bool upper, bool repeat, float limit, float floor, Hit& hit, float& param) const {
    const uint8_t mask = uint8_t(s.stepsAt(w.cellX, w.cellZ) >> (upper ? 0 : 4)) & 0xF;
    if (!mask) return false;
    const std::vector<int32_t>& present = upper ? s.floors : s.roofs;
    const std::vector<int32_t>& offsets = upper ? s.roofsOff : s.floorsOff;
    const bool here = s.at(present, w.cellX, w.cellZ) > 0;
    const float size = s.tileSize;
    const float hC = upper ? (here ? -float(s.at(offsets, w.cellX, w.cellZ)) : 0.0f)
                           : (here ? float(s.at(offsets, w.cellX, w.cellZ)) + size : size);
    for (int32_t n = 0; n < 4; ++n) {
        if (!(mask >> n & 1)) continue;
        const int32_t nx = w.cellX + kNeighbourX[n], nz = w.cellZ + kNeighbourZ[n];
        const float hN = upper ? -float(s.at(offsets, nx, nz)) : float(s.at(offsets, nx, nz)) + size;
        const float lo = std::min(hC, hN), hi = std::max(hC, hN);
        const bool acrossX = n < 2;
        const float d = acrossX ? w.direction.x : w.direction.z;
        if (d == 0.0f) continue;
        const float boundary = n == 0 ? x0 : n == 1 ? x1 : n == 2 ? z0 : z1;
        const float p = (boundary - (acrossX ? w.origin.x : w.origin.z)) / d;
        if (!(p >= t - kMargin && p <= limit && p > floor)) continue;
        const Vec3 point = w.at(p);
        const float along = acrossX ? point.z : point.x, low = acrossX ? z0 : x0, high = acrossX ? z1 : x1;
        if (along < low - kMargin || along > high + kMargin) continue;
        if (!(hi - lo > kStepHeightMin) || point.y < lo - kMargin || point.y > hi + kMargin) continue;
        hit.kind = upper ? kUpperStep : kLowerStep;
        const bool neighbourOwns = repeat || (upper ? hN > hC : hN < hC);
        hit.cellX = neighbourOwns ? nx : w.cellX;
        hit.cellZ = neighbourOwns ? nz : w.cellZ;
        hit.u = (along - low) * (1.0f / size);
        hit.v = repeat ? (point.y - lo) / (hi - lo) : (point.y - lo) * (1.0f / size);
        param = p;
        return true;
    }
    return false;
}

// The nearest quad listed at this cell before the cell's exit, unless the grid shows something
// in front of it.
bool SampleTracer::quadStep(Hit& hit) {
    float tQ = FLT_MAX;
    const float yEnter = w.at(t).y, yExit = w.at(tExit).y;
    const float yLow = std::min(yEnter, yExit) - kMargin, yHigh = std::max(yEnter, yExit) + kMargin;
    int32_t found = -1;
    float foundU = 0, foundV = 0;
    for (int32_t index : s.quadsAt(w.cellX, w.cellZ)) {
        if (size_t(index) >= s.faces->size()) continue;
        const Quad& quad = (*s.faces)[size_t(index)];
        if (yLow > quad.maxY || yHigh < quad.minY) continue;
        if (!rayIntersectsQuadAABBPrecomputed(w.origin, w.inverse, w.flat[0], w.flat[1], w.flat[2], quad, kEpsilon,
                                              std::min(tQ, tExit)))
            continue;
        float tt = 0, u = 0, v = 0;
        if (rayTriangleIntersectPrecomputed(w.origin, w.direction, quad.tl, quad.edge1, quad.edge2, tt, u, v) &&
            tt > kEpsilon && tt < tQ)
            tQ = tt, foundU = u + v, foundV = v, found = index;
        if (rayTriangleIntersectPrecomputed(w.origin, w.direction, quad.tl, quad.edge2, quad.edge3, tt, u, v) &&
            tt > kEpsilon && tt < tQ)
            tQ = tt, foundU = u, foundV = u + v, found = index;
    }
    if (found < 0 || !(tQ < tExit)) return false;

    // Five probes: a surface of the grid at most tQ + m away hides the quad.
    const float reach = tQ + kMargin;
    float param = 0;
    int32_t side = 0;
    const int32_t wallTexture = s.at(s.walls, w.cellX, w.cellZ);
    if (wallTexture > 0 && wallSide(tExit + kMargin, false, param, side) && param <= reach) {
        const NuvraImage* image = s.texture(wallTexture);
        if (!image) return false;
        const Vec3 point = w.at(param);
        const float u = std::clamp(side < 2 ? (point.z - z0) / s.tileSize : (point.x - x0) / s.tileSize, 0.0f, 1.0f);
        const float v = std::clamp(point.y / s.tileSize, 0.0f, 1.0f);
        if (sampleTexel(image->pixels, image->width, image->height, u, v)[3] != 0) return false;
    }
    const float roofY = -float(s.at(s.roofsOff, w.cellX, w.cellZ));
    const float floorY = float(s.at(s.floorsOff, w.cellX, w.cellZ)) + s.tileSize;
    const float highest = std::min(tExit + kMargin, reach);
    if (!skipUpper && planeHit(s.floors, roofY, t + kPlaneClearance, highest, kMargin, param)) return false;
    if (!skipLower && planeHit(s.roofs, floorY, t + kPlaneClearance, highest, kMargin, param)) return false;
    Hit ignored;
    if (!skipUpper && stepHit(true, false, std::min(tExit + kMargin, reach), -FLT_MAX, ignored, param)) return false;
    if (!skipLower && stepHit(false, false, std::min(tExit + kMargin, reach), -FLT_MAX, ignored, param)) return false;

    hit.kind = kQuad, hit.quad = found, hit.u = foundU, hit.v = foundV;
    t = tQ;
    return true;
}

// B1 to B7 in order, each only while nothing is hit.
bool SampleTracer::gridStep(Hit& hit, bool& repeated) {
    float param = 0;
    repeated = false;
    const int32_t wallTexture = s.at(s.walls, w.cellX, w.cellZ);
    if (!skipWall && wallTexture > 0 && wallSide(tExit + kMargin, true, param, hit.side)) {
        const Vec3 point = w.at(param);
        hit.kind = kWall, hit.cellX = w.cellX, hit.cellZ = w.cellZ;
        const float along = hit.side < 2 ? point.z - z0 : point.x - x0;
        hit.u = std::clamp(along / s.tileSize, 0.0f, 1.0f);
        hit.v = std::clamp(point.y / s.tileSize, 0.0f, 1.0f);
        t = param;
        return true;
    }
    const auto plane = [&](Kind kind, const std::vector<int32_t>& grid, float planeY, float lowest) {
        if (!planeHit(grid, planeY, lowest, tExit, 0.0f, param)) return false;
        const Vec3 point = w.at(param);
        hit.kind = kind, hit.cellX = w.cellX, hit.cellZ = w.cellZ;
        hit.u = (point.x - x0) / s.tileSize, hit.v = (point.z - z0) / s.tileSize;
        t = param;
        return true;
    };
    if (!skipUpper && plane(kUpper, s.floors, -float(s.at(s.roofsOff, w.cellX, w.cellZ)), t + kPlaneClearance))
        return true;
    if (!skipLower && plane(kLower, s.roofs, float(s.at(s.floorsOff, w.cellX, w.cellZ)) + s.tileSize, 0.0f))
        return true;
    const float limit = tExit + kMargin;
    if ((!skipUpper && stepHit(true, false, limit, -FLT_MAX, hit, param)) ||
        (!skipLower && stepHit(false, false, limit, -FLT_MAX, hit, param))) {
        t = param;
        return true;
    }
    if (stepHit(true, true, limit, repeatFloor, hit, param) || stepHit(false, true, limit, repeatFloor, hit, param)) {
        repeated = true;
        t = param;
        return true;
    }
    return false;
}

int32_t SampleTracer::textureIndex(const Hit& hit) const {
    switch (hit.kind) {
    case kWall: return s.at(s.walls, hit.cellX, hit.cellZ);
    case kUpper: case kUpperStep: return s.at(s.floors, hit.cellX, hit.cellZ);
    case kLower: case kLowerStep: return s.at(s.roofs, hit.cellX, hit.cellZ);
    default: return (*s.faces)[size_t(hit.quad)].texture;
    }
}

// The texel lit at `point`: ambient light plus every light in reach that no shadow ray blocks.
Rgb SampleTracer::lit(const Vec3& point, const uint8_t* texel) const {
    float bright[3] = {f.minBright, f.minBright, f.minBright};
    for (const LightSource& light : f.lights) {
        // A radius of 0 or below reaches nothing, also a point right on the light.
        if (!(light.radius > 0)) continue;
        const float d2 = distanceSquared(point, light.position);
        if (d2 > light.radius * light.radius) continue;
        const float d = std::sqrt(d2);
        Vec3 target = light.position;
        if (d > 0) target = target + (light.position - point) * (kEpsilon / d);
        Vec3 colour = light.colour;
        if (isObstructed(point, target, s, colour)) continue;
        const float reach = 1.0f - d / light.radius;
        bright[0] += colour.x * reach, bright[1] += colour.y * reach, bright[2] += colour.z * reach;
    }
    return {toByte(float(texel[0]) * std::min(bright[0], f.maxBright)),
            toByte(float(texel[1]) * std::min(bright[1], f.maxBright)),
            toByte(float(texel[2]) * std::min(bright[2], f.maxBright))};
}

Rgb SampleTracer::fogged(Rgb colour, float distance) const {
    const float k = std::min(1.0f, distance * corner / f.maxDistance);
    return {toByte(float(colour.r) * (1.0f - k) + f.fog[0] * k), toByte(float(colour.g) * (1.0f - k) + f.fog[1] * k),
            toByte(float(colour.b) * (1.0f - k) + f.fog[2] * k)};
}

Rgb SampleTracer::trace(int32_t x, int32_t y) {
    const float size = s.tileSize;
    const float nx = 2.0f * float(x) / float(f.width) - 1.0f;
    const float ny = 2.0f * float(y) / float(f.height) - 1.0f;
    corner = 1.0f + kCornerFog * (std::sqrt(nx * nx + ny * ny) * kInverseSqrt2);
    Vec3 direction = f.forward + f.right * (f.hFov * nx) + f.up * (f.vFov * ny);
    direction = direction * (1.0f / std::sqrt(dotProduct(direction, direction)));
    if (std::fabs(direction.x) < kEpsilon) direction.x = std::copysign(kEpsilon, direction.x);
    if (std::fabs(direction.z) < kEpsilon) direction.z = std::copysign(kEpsilon, direction.z);
    w.begin(f.eye, direction, size);

    layers.clear();
    t = 0;
    float travelled = 0, opacity = 0;
    int32_t bounces = 0;
    const int32_t bounceLimit = std::min(f.maxRaytrace, kMostBounces);
    skipQuads = skipWall = skipUpper = skipLower = false;
    repeatFloor = -FLT_MAX;
    int32_t lastX = w.cellX, lastZ = w.cellZ;
    Hit hit;
    bool ended = false;  // on an opaque surface

    while (!ended && opacity < kOpaqueEnough && s.inside(w.cellX, w.cellZ) && travelled + t < f.maxDistance) {
        if (w.cellX != lastX || w.cellZ != lastZ) {
            skipQuads = skipWall = skipUpper = skipLower = false;
            repeatFloor = -FLT_MAX;
            lastX = w.cellX, lastZ = w.cellZ;
        }
        tExit = std::min(w.nextX, w.nextZ);
        x0 = float(w.cellX) * size, x1 = float(w.cellX + 1) * size;
        z0 = float(w.cellZ) * size, z1 = float(w.cellZ + 1) * size;

        hit = Hit{};
        bool repeated = false;
        const bool found = (!skipQuads && quadStep(hit)) || gridStep(hit, repeated);
        const NuvraImage* image = found ? s.texture(textureIndex(hit)) : nullptr;
        if (image) {
            const uint8_t* texel = sampleTexel(image->pixels, image->width, image->height, hit.u, hit.v);
            const uint8_t a = texel[3];
            if (a < 255) {
                // Clear or translucent: remember it, and look again in this same cell past it.
                if (a > 0) {
                    layers.push_back({texel[0], texel[1], texel[2], float(a) / 255.0f, travelled + t});
                    opacity += (1.0f - opacity) * float(a) / 255.0f;
                }
                bool& skip = hit.kind == kQuad ? skipQuads
                             : hit.kind == kWall ? skipWall
                             : (hit.kind == kUpper || hit.kind == kUpperStep) ? skipUpper : skipLower;
                skip = true;
                if (repeated) repeatFloor = t;
                continue;
            }
            const bool mirror = image->reflectPixels && image->reflectWidth > 0 && image->reflectHeight > 0;
            const uint8_t* map = mirror ? sampleTexel(image->reflectPixels, image->reflectWidth, image->reflectHeight,
                                                      hit.u, hit.v)
                                        : nullptr;
            if (!map || (map[0] == 0 && map[1] == 0 && map[2] == 0) || bounces >= bounceLimit) {
                ended = true;
                break;
            }
            const float k = float(map[3]) / 255.0f * f.reflectionIntensity;
            const Vec3 point = w.at(t);
            const Rgb c = lit(point, texel);
            layers.push_back({toByte(float(c.r) * float(map[0]) / 255.0f), toByte(float(c.g) * float(map[1]) / 255.0f),
                              toByte(float(c.b) * float(map[2]) / 255.0f), 1.0f - k, travelled + t});
            Vec3 normal{0, 0, 0};
            switch (hit.kind) {
            case kWall: normal = hit.side == 0 ? Vec3{-1, 0, 0} : hit.side == 1 ? Vec3{1, 0, 0}
                                 : hit.side == 2 ? Vec3{0, 0, -1} : Vec3{0, 0, 1}; break;
            case kUpper: case kUpperStep: normal = {0, -1, 0}; break;
            case kLower: case kLowerStep: normal = {0, 1, 0}; break;
            default: normal = (*s.faces)[size_t(hit.quad)].normal;
            }
            Vec3 bounced = w.direction - normal * (2.0f * dotProduct(w.direction, normal));
            const float length = std::sqrt(dotProduct(bounced, bounced));
            if (length > 0) bounced = bounced * (1.0f / length);
            w.begin(point + bounced * kBounceLift, bounced, size);
            travelled += t;
            t = 0;
            opacity = 0;
            skipQuads = skipWall = skipUpper = skipLower = false;
            repeatFloor = -FLT_MAX;
            lastX = w.cellX, lastZ = w.cellZ;
            ++bounces;
            continue;
        }
        // Nothing here, or a surface whose texture is unusable: on to the next cell.
        if (w.nextX < w.nextZ) {
            t = w.nextX, w.nextX += w.costX, w.cellX += w.stepX;
        } else {
            t = w.nextZ, w.nextZ += w.costZ, w.cellZ += w.stepZ;
        }
    }

    Rgb colour = f.fogBytes;
    if (ended) {
        const NuvraImage* image = s.texture(textureIndex(hit));
        colour = fogged(lit(w.at(t), sampleTexel(image->pixels, image->width, image->height, hit.u, hit.v)),
                        travelled + t);
    }
    for (size_t i = layers.size(); i-- > 0;) {
        const TransparentLayer& layer = layers[i];
        const Rgb over = fogged({layer.r, layer.g, layer.b}, layer.distance);
        const float a = layer.alpha;
        colour = {toByte(float(over.r) * a + float(colour.r) * (1.0f - a)),
                  toByte(float(over.g) * a + float(colour.g) * (1.0f - a)),
                  toByte(float(over.b) * a + float(colour.b) * (1.0f - a))};
    }
    return fogged(colour, travelled + t);
}

Frame makeFrame(const NuvraImage& output) {
    Frame f;
    f.scene = makeSceneView();
    f.lights = lights;
    const float cosA = std::cos(cameraangle), sinA = std::sin(cameraangle);
    const float cosT = std::cos(cameratilt), sinT = std::sin(cameratilt);
    f.forward = {cosA * cosT, sinT, sinA * cosT};
    f.right = {-sinA, 0, cosA};
    f.up = {-cosA * sinT, cosT, -sinA * sinT};
    f.width = output.width, f.height = output.height;
    f.hFov = hFOV;
    f.vFov = float(output.height) / float(output.width) * hFOV;
    const int32_t cellX = truncatedIndex(playerx / tileSize), cellZ = truncatedIndex(playery / tileSize);
    const float standing = f.scene.inside(cellX, cellZ) ? float(f.scene.at(f.scene.floorsOff, cellX, cellZ)) : 0.0f;
    f.eye = {playerx, tileSize + standing - cameraHeightOffset, playery};
    f.maxDistance = maxDistance;
    f.maxRaytrace = maxRaytrace;
    f.reflectionIntensity = reflectionIntensity;
    f.minBright = minBright, f.maxBright = maxBright;
    f.fog[0] = fogR, f.fog[1] = fogG, f.fog[2] = fogB;
    f.fogBytes = {toByte(fogR), toByte(fogG), toByte(fogB)};
    return f;
}

}  // namespace

void renderScene(NuvraImage& output) {
    if (!output.pixels || output.width < 1 || output.height < 1) return;
    const Frame frame = makeFrame(output);
    // A pitch below 1 would sample nothing; it draws as the finest.
    const int32_t pitch = std::max(step, 1);
    const int32_t sampleRows = (output.height + pitch - 1) / pitch;
    const auto rows = [&](int32_t firstSampleRow, int32_t endSampleRow) {
        thread_local std::vector<TransparentLayer> transparentLayersTL;
        transparentLayersTL.reserve(kLayersReserved);
        SampleTracer tracer(frame, transparentLayersTL);
        const int32_t yEnd = int32_t(std::min<int64_t>(int64_t(endSampleRow) * pitch, output.height));
        for (int32_t y = firstSampleRow * pitch; y < yEnd; y += pitch) {
            for (int32_t x = 0; x < output.width; x += pitch) {
                const Rgb c = tracer.trace(x, y);
                for (int32_t py = y; py < std::min(y + pitch, output.height); ++py) {
                    uint8_t* p = output.pixels + (size_t(py) * size_t(output.width) + size_t(x)) * 4;
                    for (int32_t px = x; px < std::min(x + pitch, output.width); ++px, p += 4)
                        p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = 255;
                }
            }
        }
    };
    runCeilingBands(sampleRows, AllowedThreads < 2 ? 1 : AllowedThreads, rows);
}

}  // namespace orvane
