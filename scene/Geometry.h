// Player motion and the geometry queries scripts ask about points, faces and quads: where a
// step would land, where a point falls on the screen, which faces look at a camera and in what
// order, and heights, centres and containment of quads.
#pragma once

#include <optional>
#include <vector>

#include "scene/World.h"

namespace orvane {

// Where the player lands after `distance` forward (or, with `forward` clear, sideways to the
// right), in world x and z; nothing is stored and no wall is tested.
struct PlanPoint {
    float x, z;
};
PlanPoint steppedPosition(float distance, bool forward);
void movePlayer(float distance, bool forward);

// A point's position on a screen of focal length `focus`, in the scripts' own camera frame.
struct ScreenPoint {
    int32_t x, y;
};
ScreenPoint nuvraProject(float x, float y, float z, float focus);

// A face of a script's own geometry, its corners as the script gives them.
struct ScriptFace {
    Vec3 topLeft, topRight, bottomLeft, bottomRight;
};
struct FaceCamera {
    Vec3 position;
    float yaw, tilt, roll;
};
// The depth of the face's centre when it faces the camera and lies wholly in front of it.
std::optional<float> visibleFaceDepth(const ScriptFace& face, const FaceCamera& camera);

// Whether the bearing from (x2, y2) to (x1, y1) lies within fov degrees of `direction`.
bool faceRange(double x1, double x2, double y1, double y2, double direction, double fov);

// The height of the quad's surface at plan point (x, z), when the point lies on it in the plan.
std::optional<float> heightOnQuadAtXY(const Quad& quad, float x, float z);
// The middle of the box around all corners of all quads; nothing for no quads.
std::optional<Vec3> quadTableCentre(const std::vector<Quad>& quads);
// Whether the point lies inside the box of six quads (on a face counts as inside).
bool quadBoxContainsPoint(const std::vector<Quad>& box, const Vec3& point);

}  // namespace orvane
