#include "scene/Projection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "scene/RayQueries.h"
#include "scene/World.h"

namespace orvane {

namespace {

constexpr float kNear = 0.02f;
constexpr float kLeastFov = 0.0001f;
constexpr float kSameDepth = 1e-8f;
constexpr float kFlatTriangle = 1e-6f;
constexpr float kStepHeightMin = 0.001f;
// Four floats handled as one value; the compiler's vector types build for SSE2 and NEON alike.
using Lanes = float __attribute__((vector_size(16)));
using LaneMask = int32_t __attribute__((vector_size(16)));
Lanes splat(float value) { return Lanes{value, value, value, value}; }
LaneMask select(LaneMask mask, LaneMask yes, LaneMask no) { return (yes & mask) | (no & ~mask); }
Lanes select(LaneMask mask, Lanes yes, Lanes no) { return Lanes(select(mask, LaneMask(yes), LaneMask(no))); }

// A quad clipped by one plane has at most five corners.
constexpr size_t kMostClipped = 8;

struct CameraVertex {
    float x, y, z, u, v;
};

struct ScreenVertex {
    float x, y, z, iz, uz, vz;
};

// The fraction of a texture coordinate, as value minus its floor, without the library call that
// floor becomes on baseline x86-64: exact wherever a float's truncation fits an int.
constexpr float kIntRange = 2147483520.0f;  // the largest float below 2^31
float wrapped(float value) {
    if (!(std::fabs(value) < kIntRange)) return value - std::floor(value);
    const float whole = float(int32_t(value));
    const float fraction = value - (whole > value ? whole - 1 : whole);
    return fraction < 0 ? fraction + 1 : fraction;
}

// `wrapped` in four lanes; a lane beyond the int range takes the single pixel's route.
Lanes wrappedLanes(Lanes value) {
    const LaneMask inRange = (value < splat(kIntRange)) & (value > splat(-kIntRange));
    if (!(inRange[0] & inRange[1] & inRange[2] & inRange[3])) {
        return Lanes{wrapped(value[0]), wrapped(value[1]), wrapped(value[2]), wrapped(value[3])};
    }
    const Lanes whole = __builtin_convertvector(__builtin_convertvector(value, LaneMask), Lanes);
    const Lanes fraction = value - select(whole > value, whole - 1.0f, whole);
    return select(fraction < splat(0), fraction + 1.0f, fraction);
}

LaneMask clampedLanes(LaneMask index, int32_t size) {
    const LaneMask low{0, 0, 0, 0}, high = LaneMask{1, 1, 1, 1} * (size - 1);
    return select(index < low, low, select(index > high, high, index));
}

uint8_t clampedByte(float value) {
    if (!(value > 0.0f)) return 0;
    return value >= 255.0f ? 255 : uint8_t(value);
}

// The frame's camera, its depth buffer and its target.
class Projector {
public:
    Projector(NuvraImage& output, const SceneView& scene) : out(output), s(scene) {
        const float cosA = std::cos(cameraangle), sinA = std::sin(cameraangle);
        const float cosT = std::cos(cameratilt), sinT = std::sin(cameratilt);
        forward = {cosA * cosT, sinT, sinA * cosT};
        right = {-sinA, 0, cosA};
        up = {-cosA * sinT, cosT, -sinA * sinT};
        hF = std::max(hFOV, kLeastFov);
        vF = std::max(float(output.height) / float(output.width) * hFOV, kLeastFov);
        const int32_t cellX = truncatedIndex(playerx / tileSize), cellZ = truncatedIndex(playery / tileSize);
        const float standing = scene.inside(cellX, cellZ) ? float(scene.at(scene.floorsOff, cellX, cellZ)) : 0.0f;
        eye = {playerx, tileSize + standing - cameraHeightOffset, playery};
        depth.assign(size_t(output.width) * size_t(output.height), std::numeric_limits<float>::infinity());
    }

    // Clips the quad at the near plane, splits it into a fan and fills each triangle.
    void emit(int32_t textureIndex, const Vec3& c0, const Vec3& c1, const Vec3& c2, const Vec3& c3) {
        const NuvraImage* image = s.texture(textureIndex);
        if (!image) return;
        const Vec3 corners[4] = {c0, c1, c2, c3};
        const float us[4] = {0, 1, 1, 0}, vs[4] = {0, 0, 1, 1};
        std::array<CameraVertex, 4> quad;
        for (int i = 0; i < 4; ++i) {
            const Vec3 d = corners[i] - eye;
            quad[size_t(i)] = {dotProduct(d, right), dotProduct(d, up), dotProduct(d, forward), us[i], vs[i]};
        }
        std::array<CameraVertex, kMostClipped> clipped;
        size_t count = 0;
        for (size_t i = 0; i < 4; ++i) {
            const CameraVertex& a = quad[i];
            const CameraVertex& b = quad[(i + 1) % 4];
            const bool aIn = a.z >= kNear, bIn = b.z >= kNear;
            if (aIn && bIn) {
                clipped[count++] = b;
            } else if (aIn != bIn) {
                if (std::fabs(b.z - a.z) >= kSameDepth) {
                    const float t = (kNear - a.z) / (b.z - a.z);
                    clipped[count++] = {a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, kNear, a.u + (b.u - a.u) * t,
                                        a.v + (b.v - a.v) * t};
                }
                if (bIn) clipped[count++] = b;
            }
        }
        if (count <= 2) return;
        std::array<ScreenVertex, kMostClipped> screen;
        for (size_t i = 0; i < count; ++i) {
            const CameraVertex& c = clipped[i];
            screen[i] = {(c.x / (c.z * hF) + 1) * 0.5f * float(out.width), (c.y / (c.z * vF) + 1) * 0.5f * float(out.height),
                         c.z, 1 / c.z, c.u / c.z, c.v / c.z};
        }
        for (size_t i = 1; i + 1 < count; ++i) fill(screen[0], screen[i], screen[i + 1], *image);
    }

private:
    void fill(const ScreenVertex& a, const ScreenVertex& b, const ScreenVertex& c, const NuvraImage& image) {
        const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        if (!(std::fabs(area) >= kFlatTriangle)) return;  // NaN corners draw nothing too
        const float lowX = std::min({a.x, b.x, c.x}), highX = std::max({a.x, b.x, c.x});
        const float lowY = std::min({a.y, b.y, c.y}), highY = std::max({a.y, b.y, c.y});
        const int32_t x0 = std::max(0, truncatedIndex(std::floor(lowX), 0));
        const int32_t x1 = std::min(out.width - 1, truncatedIndex(std::ceil(highX), out.width - 1));
        const int32_t y0 = std::max(0, truncatedIndex(std::floor(lowY), 0));
        const int32_t y1 = std::min(out.height - 1, truncatedIndex(std::ceil(highY), out.height - 1));
        // Byte stores may alias anything, so everything the pixel loop reads is held in locals.
        uint8_t* const pixels = out.pixels;
        float* const depths = depth.data();
        const size_t stride = size_t(out.width);
        const uint8_t* const texels = image.pixels;
        const int32_t textureWidth = image.width, textureHeight = image.height;
        const float farthest = maxDistance;
        const double side = area > 0 ? 1.0 : -1.0;
        const double widest = std::max(std::fabs(double(x0)), std::fabs(double(x1))) + 1;
        for (int32_t y = y0; y <= y1; ++y) {
            const float py = float(y) + 0.5f;
            // The factors of each weight that only depend on the row.
            const float ay = a.y - py, by = b.y - py, cy = c.y - py;
            // Along the row each weight is linear in x; where it takes the wrong sign for this
            // winding, no pixel can be inside. The span is widened by far more than the rounding
            // of the weights can move an edge, so the exact test below still decides every pixel
            // it could decide either way.
            double low = x0, high = x1;
            const auto narrow = [&](float px0, float q0, float r0, float px1) {
                // The weight (px0 - px) * q0 - r0 * (px1 - px) = k + s * px.
                const double k = double(px0) * q0 - double(r0) * px1, s = double(r0) - q0;
                if (s == 0) return;
                const double root = -k / s;
                const double margin = 1e-5 * (std::fabs(k) + std::fabs(s) * widest) / std::fabs(s) + 2;
                if (s * side > 0) low = std::max(low, root - margin - 0.5);
                else high = std::min(high, root + margin - 0.5);
            };
            if (!projectionScansWholeBoxes) {
                narrow(b.x, cy, by, c.x);
                narrow(c.x, ay, cy, a.x);
                narrow(a.x, by, ay, b.x);
            }
            const int32_t first = int32_t(std::max(double(x0), std::floor(low)));
            const int32_t last = int32_t(std::min(double(x1), std::ceil(high)));
            // One pixel from its weights before the division by the area.
            const auto shade = [&](int32_t x, float wa, float wb, float wc, float iz) {
                if (!(iz > 0)) return;
                const float z = 1 / iz;
                float& stored = depths[size_t(y) * stride + size_t(x)];
                if (z <= kNear || z > farthest || z >= stored) return;
                const float u = wrapped((wa * a.uz + wb * b.uz + wc * c.uz) * z);
                const float v = wrapped((wa * a.vz + wb * b.vz + wc * c.vz) * z);
                const int32_t column = std::clamp(truncatedIndex(float(textureWidth) * u, 0), 0, textureWidth - 1);
                const int32_t row = std::clamp(truncatedIndex(float(textureHeight) * v, 0), 0, textureHeight - 1);
                const uint8_t* texel = texels + (size_t(row) * size_t(textureWidth) + size_t(column)) * 4;
                uint8_t* pixel = pixels + (size_t(y) * stride + size_t(x)) * 4;
                if (texel[3] == 0) return;
                if (texel[3] == 255) {
                    std::memcpy(pixel, texel, 4);
                    stored = z;
                } else {
                    blendPixelOver(pixel, texel);
                }
            };
            const auto mixed = [](float wa, float wb, float wc) {
                return (wa < 0 || wb < 0 || wc < 0) && (wa > 0 || wb > 0 || wc > 0);
            };
            int32_t x = first;
            // Four pixels at a time: the same operations in the same order in each lane, so each
            // lane rounds exactly as the single pixel below does; the depth test and the texel's
            // place are worked out for all four before any lane is drawn.
            if (!projectionScansWholeBoxes) {
                const Lanes bx = splat(b.x), cx = splat(c.x), ax = splat(a.x);
                const Lanes ayl = splat(ay), byl = splat(by), cyl = splat(cy), areal = splat(area);
                const Lanes widthLanes = splat(float(textureWidth)), heightLanes = splat(float(textureHeight));
                for (; x + 3 <= last; x += 4) {
                    const Lanes px = Lanes{float(x), float(x + 1), float(x + 2), float(x + 3)} + 0.5f;
                    const Lanes wa = (bx - px) * cyl - byl * (cx - px);
                    const Lanes wb = (cx - px) * ayl - cyl * (ax - px);
                    const Lanes wc = (ax - px) * byl - ayl * (bx - px);
                    const Lanes da = wa / areal, db = wb / areal, dc = wc / areal;
                    const Lanes iz = da * a.iz + db * b.iz + dc * c.iz;
                    const Lanes z = 1.0f / iz;
                    float* const stored = depths + size_t(y) * stride + size_t(x);
                    Lanes storedLanes;
                    std::memcpy(&storedLanes, stored, sizeof storedLanes);
                    const Lanes zero = splat(0);
                    const LaneMask mixedLanes =
                        ((wa < zero) | (wb < zero) | (wc < zero)) & ((wa > zero) | (wb > zero) | (wc > zero));
                    // Written as the single pixel's rejections, negated, so NaN compares alike.
                    const LaneMask drawn = ~mixedLanes & (iz > zero) & ~(z <= splat(kNear)) & ~(z > splat(farthest)) &
                                           ~(z >= storedLanes);
                    if (!(drawn[0] | drawn[1] | drawn[2] | drawn[3])) continue;
                    const Lanes u = wrappedLanes((da * a.uz + db * b.uz + dc * c.uz) * z);
                    const Lanes v = wrappedLanes((da * a.vz + db * b.vz + dc * c.vz) * z);
                    // Out of range, NaN included, truncates to the lowest int, which the clamp
                    // takes to 0 as the single pixel's fallback does.
                    const LaneMask columns = clampedLanes(__builtin_convertvector(widthLanes * u, LaneMask), textureWidth);
                    const LaneMask rows = clampedLanes(__builtin_convertvector(heightLanes * v, LaneMask), textureHeight);
                    for (int lane = 0; lane < 4; ++lane) {
                        if (!drawn[lane]) continue;
                        const uint8_t* texel =
                            texels + (size_t(rows[lane]) * size_t(textureWidth) + size_t(columns[lane])) * 4;
                        if (texel[3] == 0) continue;
                        uint8_t* pixel = pixels + (size_t(y) * stride + size_t(x + lane)) * 4;
                        if (texel[3] == 255) {
                            std::memcpy(pixel, texel, 4);
                            stored[lane] = z[lane];
                        } else {
                            blendPixelOver(pixel, texel);
                        }
                    }
                }
            }
            for (; x <= last; ++x) {
                const float px = float(x) + 0.5f;
                float wa = (b.x - px) * cy - by * (c.x - px);
                float wb = (c.x - px) * ay - cy * (a.x - px);
                float wc = (a.x - px) * by - ay * (b.x - px);
                if (mixed(wa, wb, wc)) continue;
                wa /= area, wb /= area, wc /= area;
                shade(x, wa, wb, wc, wa * a.iz + wb * b.iz + wc * c.iz);
            }
        }
    }

    NuvraImage& out;
    const SceneView& s;
    Vec3 eye{}, forward{}, right{}, up{};
    float hF = 0, vF = 0;
    std::vector<float> depth;
};

}  // namespace

bool projectionScansWholeBoxes = false;

void blendPixelOver(uint8_t* destination, const uint8_t* source) {
    const float sa = float(source[3]) / 255.0f, da = float(destination[3]) / 255.0f;
    if (sa <= 0) return;
    const float oa = sa + (1 - sa) * da;
    if (oa <= 0) {
        destination[0] = destination[1] = destination[2] = destination[3] = 0;
        return;
    }
    for (int i = 0; i < 3; ++i) {
        const float channel = (float(source[i]) / 255.0f * sa + float(destination[i]) / 255.0f * da * (1 - sa)) / oa;
        destination[i] = clampedByte(channel * 255.0f);
    }
    destination[3] = clampedByte(oa * 255.0f);
}

void renderProjectionScene(NuvraImage& output) {
    if (!output.pixels || output.width < 1 || output.height < 1) return;
    const uint8_t fog[4] = {clampedByte(fogR), clampedByte(fogG), clampedByte(fogB), 255};
    // One row of fog, copied to the others.
    const size_t rowBytes = size_t(output.width) * 4;
    for (size_t i = 0; i < rowBytes; i += 4) std::memcpy(output.pixels + i, fog, 4);
    for (int32_t y = 1; y < output.height; ++y) std::memcpy(output.pixels + size_t(y) * rowBytes, output.pixels, rowBytes);
    const SceneView scene = makeSceneView();
    Projector projector(output, scene);
    const float size = scene.tileSize;
    // Outside the grid every cell reads 0, so sides at the map's edge are drawn.
    const auto cell = [&](const std::vector<int32_t>& grid, int32_t x, int32_t z) {
        return scene.inside(x, z) ? scene.at(grid, x, z) : 0;
    };
    for (int32_t x = 0; x < scene.gridWidth; ++x) {
        for (int32_t z = 0; z < scene.gridHeight; ++z) {
            const float x0 = float(x) * size, x1 = float(x + 1) * size, z0 = float(z) * size, z1 = float(z + 1) * size;
            const int32_t wall = cell(scene.walls, x, z), upper = cell(scene.floors, x, z), lower = cell(scene.roofs, x, z);
            const float yT = upper > 0 ? -float(cell(scene.roofsOff, x, z)) : 0.0f;
            const float yB = lower > 0 ? float(cell(scene.floorsOff, x, z)) + size : size;
            if (wall > 0) {
                if (cell(scene.walls, x - 1, z) < 1) projector.emit(wall, {x0, yT, z0}, {x0, yT, z1}, {x0, yB, z1}, {x0, yB, z0});
                if (cell(scene.walls, x + 1, z) < 1) projector.emit(wall, {x1, yT, z1}, {x1, yT, z0}, {x1, yB, z0}, {x1, yB, z1});
                if (cell(scene.walls, x, z - 1) < 1) projector.emit(wall, {x1, yT, z0}, {x0, yT, z0}, {x0, yB, z0}, {x1, yB, z0});
                if (cell(scene.walls, x, z + 1) < 1) projector.emit(wall, {x0, yT, z1}, {x1, yT, z1}, {x1, yB, z1}, {x0, yB, z1});
            }
            if (upper > 0) projector.emit(upper, {x0, yT, z0}, {x1, yT, z0}, {x1, yT, z1}, {x0, yT, z1});
            if (lower > 0) projector.emit(lower, {x0, yB, z1}, {x1, yB, z1}, {x1, yB, z0}, {x0, yB, z0});
            // Steps toward the next cell in x, then in z: upper planes, then lower planes.
            for (int axis = 0; axis < 2; ++axis) {
                const int32_t nx = x + (axis == 0), nz = z + (axis == 1);
                if (!scene.inside(nx, nz)) continue;
                const int32_t upperN = cell(scene.floors, nx, nz), lowerN = cell(scene.roofs, nx, nz);
                const float yTN = upperN > 0 ? -float(cell(scene.roofsOff, nx, nz)) : 0.0f;
                const float yBN = lowerN > 0 ? float(cell(scene.floorsOff, nx, nz)) + size : size;
                const auto step = [&](float here, float there, int32_t own, int32_t neighbour) {
                    if (!(std::fabs(here - there) > kStepHeightMin)) return;
                    const int32_t texture = own < 1 ? neighbour : own;
                    if (texture <= 0) return;
                    const float lo = std::min(here, there), hi = std::max(here, there);
                    if (axis == 0) projector.emit(texture, {x1, lo, z0}, {x1, lo, z1}, {x1, hi, z1}, {x1, hi, z0});
                    else projector.emit(texture, {x0, lo, z1}, {x1, lo, z1}, {x1, hi, z1}, {x0, hi, z1});
                };
                step(yT, yTN, upper, upperN);
                step(yB, yBN, lower, lowerN);
            }
        }
    }
    for (const Quad& quad : faces) projector.emit(quad.texture, quad.tl, quad.tr, quad.br, quad.bl);
}

}  // namespace orvane
