// The world of the module Nuvra: the map, quads, lights, camera and tuning, and the raycaster.
#include <algorithm>
#include <cstdint>

#include "host/NuvraModule.h"
#include "host/QuadTables.h"
#include "image/ImageThreads.h"
#include "scene/Geometry.h"
#include "scene/Projection.h"
#include "scene/Raycast.h"
#include "scene/World.h"

namespace orvane {

namespace {

const std::string kSetMap = "Nuvra.setMap";
constexpr float kRadiansPerDegree = 0.0174533f;
constexpr float kHeightOffsetUnits = 12.0f;  // setPlayerHeight's offset counts twelfths

// Rows of integers into `grid`, emptied first. A value that is no container is an empty grid;
// a non-number inside raises the checker's error at once.
bool convertTableOfTables(const Variable& value, Grid& grid) {
    grid.clear();
    const int32_t columns = containerLength(value);
    for (int32_t x = 1; x <= columns; ++x) {
        const Variable* column = getIndexedValuePtr(value, x);
        if (!column) return false;
        std::vector<int32_t>& row = grid.emplace_back();
        const int32_t rows = containerLength(*column);
        row.reserve(size_t(rows));
        for (int32_t z = 1; z <= rows; ++z) {
            const Variable* cell = getIndexedValuePtr(*column, z);
            if (!cell) return false;
            row.push_back(integerValue(*cell, kSetMap, "grid value"));
        }
    }
    return true;
}

// Element 1 is the empty entry 0; the rest are images or nil. Empty fails before any change.
bool convertTextureTable(const Variable& value, std::vector<ImageHandle>& list) {
    const int32_t length = containerLength(value);
    if (length == 0) return false;
    list.clear();
    for (int32_t index = 1; index <= length; ++index) {
        const Variable* entry = getIndexedValuePtr(value, index);
        if (!entry) return false;
        if (entry->type == VarType::Nil) {
            list.push_back(0);
        } else if (entry->type == VarType::Pointer && index > 1) {
            list.push_back(ImageHandle(reinterpret_cast<uintptr_t>(entry->asPointer())));
        } else {
            return false;
        }
    }
    return true;
}

// Into `faces`, emptied first; a failure keeps the quads converted before it.
bool convertQuadTable(const Variable& value) {
    faces.clear();
    const int32_t length = containerLength(value);
    for (int32_t index = 1; index <= length; ++index) {
        const Variable* element = getIndexedValuePtr(value, index);
        Quad quad{};
        if (!element || !convertQuadValue(*element, quad, kSetMap, true)) return false;
        faces.push_back(quad);
    }
    return true;
}

void rebuildQuadGridForMap() {
    if (!walls.empty() && !walls[0].empty()) buildQuadGrid(gridWidthOf(walls), gridHeightOf(walls), tileSize);
}

Variable setMap(const VariableArray& args) {
    if (args.size() != 7) bindingError(kSetMap, "expected 7 arguments");
    const struct {
        Grid& grid;
        const char* message;
    } grids[] = {
        {walls, "argument 1 (walls) must be a table of integer tables"},
        {roofs, "argument 2 (roofs) must be a table of integer tables"},
        {floors, "argument 3 (floors) must be a table of integer tables"},
        {roofsOff, "argument 4 (roofsOff) must be a table of integer tables"},
        {floorsOff, "argument 5 (floorsOff) must be a table of integer tables"},
    };
    for (size_t i = 0; i < 5; ++i)
        if (!convertTableOfTables(args[i], grids[i].grid)) bindingError(kSetMap, grids[i].message);
    if (!convertTextureTable(args[5], textures))
        bindingError(kSetMap, "argument 6 (textures) must be a table with first element nil, followed by image pointers or nil");
    if (!convertQuadTable(args[6])) bindingError(kSetMap, "argument 7 (quads) must be a table of quad tables");
    rebuildQuadGridForMap();
    return Variable();
}

Variable setQuads(const VariableArray& args) {
    if (!convertQuadTable(requireArg(args, 0, "Nuvra.setQuads")))
        bindingError("Nuvra.setQuads", "argument 1 (quads) must be a table of quad tables");
    rebuildQuadGridForMap();
    return Variable();
}

// A setter of one float global.
NativeFunction floatSetter(const std::string& label, const std::string& name, float& target) {
    return [label, name, &target](const VariableArray& args) {
        target = floatValue(requireArg(args, 0, label), label, name);
        return Variable();
    };
}

// A setter of one integer global.
NativeFunction integerSetter(const std::string& label, const std::string& name, int32_t& target) {
    return [label, name, &target](const VariableArray& args) {
        target = integerValue(requireArg(args, 0, label), label, name);
        return Variable();
    };
}

// A setter of two float globals, both read before either changes.
NativeFunction floatPairSetter(const std::string& label, const std::string& firstName, const std::string& secondName,
                               float& first, float& second) {
    return [=, &first, &second](const VariableArray& args) {
        const float a = floatValue(requireArg(args, 0, label), label, firstName);
        const float b = floatValue(requireArg(args, 1, label), label, secondName);
        first = a, second = b;
        return Variable();
    };
}

// A getter that loses the fraction.
NativeFunction truncatingGetter(const float& source) {
    return [&source](const VariableArray&) { return Variable(saturatingInt(double(source))); };
}

Variable spawnLight(const VariableArray& args) {
    const std::string label = "Nuvra.spawnLight";
    const auto number = [&](size_t i, const char* name) { return floatValue(requireArg(args, i, label), label, name); };
    const auto channel = [&](size_t i, const char* name) {
        return float(integerValue(requireArg(args, i, label), label, name)) / 255.0f;
    };
    const float x = number(0, "x"), y = number(1, "y"), z = number(2, "z");
    const float r = channel(3, "r"), g = channel(4, "g"), b = channel(5, "b");
    const float intensity = number(6, "intensity");
    lights.push_back({worldPoint(x, y, z), {r, g, b}, intensity});
    return Variable();
}

Variable setPlayerHeight(const VariableArray& args) {
    const std::string label = "Nuvra.setPlayerHeight";
    const float height = floatValue(requireArg(args, 0, label), label, "height");
    const float offset = args.size() > 1 ? floatValue(args[1], label, "offset") : 0.0f;
    cameraHeightOffset = height + offset / kHeightOffsetUnits;
    return Variable();
}

Variable getPlayerPosition(const VariableArray&) {
    return returnValues({Variable(saturatingInt(double(playerx))), Variable(saturatingInt(double(playery)))});
}

Variable setFog(const VariableArray& args) {
    const std::string label = "Nuvra.fog";
    const float r = floatValue(requireArg(args, 0, label), label, "r");
    const float g = floatValue(requireArg(args, 1, label), label, "g");
    const float b = floatValue(requireArg(args, 2, label), label, "b");
    fogR = r, fogG = g, fogB = b;
    return Variable();
}

Variable setFov(const VariableArray& args) {
    hFOV = floatValue(requireArg(args, 0, "Nuvra.setFov"), "Nuvra.setFov", "fov") * kRadiansPerDegree;
    return Variable();
}

Variable getFov(const VariableArray&) { return Variable(saturatingInt(double(hFOV / kRadiansPerDegree))); }

Variable raycast(const VariableArray& args) {
    renderScene(validImageArgument(args, 0, "Nuvra.raycast", "output"));
    return Variable();
}

Variable projection(const VariableArray& args) {
    // Anything but a live image with pixels draws nothing.
    if (NuvraImage* output = imageArgument(args, 0, "Nuvra.projection", "output")) renderProjectionScene(*output);
    return Variable();
}

Variable movePlayerBinding(const VariableArray& args) {
    const std::string label = "Nuvra.movePlayer";
    const float distance = floatValue(requireArg(args, 0, label), label, "distance");
    movePlayer(distance, isTruthy(requireArg(args, 1, label)));
    return Variable();
}

Variable dontMovePlayer(const VariableArray& args) {
    const std::string label = "Nuvra.dontMovePlayer";
    const float distance = floatValue(requireArg(args, 0, label), label, "distance");
    const PlanPoint next = steppedPosition(distance, isTruthy(requireArg(args, 1, label)));
    return returnValues({Variable(saturatingInt(double(next.x))), Variable(saturatingInt(double(next.z)))});
}

Variable project(const VariableArray& args) {
    const std::string label = "Nuvra.project";
    const auto number = [&](size_t i, const char* name) { return floatValue(requireArg(args, i, label), label, name); };
    const float x = number(0, "x"), y = number(1, "y"), z = number(2, "z"), focus = number(3, "focus");
    const ScreenPoint point = nuvraProject(x, y, z, focus);
    return returnValues({Variable(point.x), Variable(point.y)});
}

// The faces that look at the camera, farthest first.
Variable sortVertex(const VariableArray& args) {
    const std::string label = "Nuvra.sortVertex";
    if (args.size() < 7) bindingError(label, "expected 7 arguments");
    const auto number = [&](size_t i, const char* name) { return floatValue(args[i], label, name); };
    const FaceCamera camera{{number(1, "camX"), number(2, "camY"), number(3, "camZ")},
                            number(4, "yaw"), number(5, "tilt"), number(6, "roll")};
    // A corner that is missing, or not a table of x, y and z, leaves its face out.
    const auto corner = [&](const Variable& face, const char* name, Vec3& out) {
        const Variable* point = getFieldValuePtr(face, name);
        if (!point || !tablePtr(*point)) return false;
        const Variable *x = getFieldValuePtr(*point, "x"), *y = getFieldValuePtr(*point, "y"), *z = getFieldValuePtr(*point, "z");
        if (!x || !y || !z) return false;
        out = {floatValue(*x, label, "x"), floatValue(*y, label, "y"), floatValue(*z, label, "z")};
        return true;
    };
    std::vector<std::pair<float, const Variable*>> kept;
    const int32_t length = containerLength(args[0]);
    for (int32_t index = 1; index <= length; ++index) {
        const Variable* face = getIndexedValuePtr(args[0], index);
        if (!face || !tablePtr(*face)) continue;
        ScriptFace corners{};
        if (!corner(*face, "topleft", corners.topLeft) || !corner(*face, "topright", corners.topRight) ||
            !corner(*face, "bottomleft", corners.bottomLeft) || !corner(*face, "bottomright", corners.bottomRight))
            continue;
        if (const std::optional<float> depth = visibleFaceDepth(corners, camera)) kept.push_back({*depth, face});
    }
    std::stable_sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    VariableArray sorted;
    sorted.reserve(kept.size());
    for (const auto& [depth, face] : kept) sorted.push_back(*face);
    return Variable(std::move(sorted));
}

}  // namespace

ModuleEntries nuvraSceneEntries() {
    return {
        {"setSize", floatSetter("Nuvra.setSize", "tileSize", tileSize)},
        {"setQuads", setQuads},
        {"raycast", raycast},
        {"projection", projection},
        {"movePlayer", movePlayerBinding},
        {"dontMovePlayer", dontMovePlayer},
        {"project", project},
        {"sortVertex", sortVertex},
        {"setLightLevel", floatPairSetter("Nuvra.setLightLevel", "min", "max", minBright, maxBright)},
        {"spawnLight", spawnLight},
        {"clearLights", [](const VariableArray&) { lights.clear(); return Variable(); }},
        {"setPlayerHeight", setPlayerHeight},
        {"getPlayerHeight", [](const VariableArray&) { return Variable(cameraHeightOffset); }},
        {"setPlayerPosition", floatPairSetter("Nuvra.setPlayerPosition", "x", "y", playerx, playery)},
        {"getPlayerPosition", getPlayerPosition},
        {"setPlayerRotation", floatSetter("Nuvra.setPlayerRotation", "rotation", cameraangle)},
        {"getPlayerRotation", truncatingGetter(cameraangle)},
        {"setRenderDistance", floatSetter("Nuvra.setRenderDistance", "distance", maxDistance)},
        {"getRenderDistance", truncatingGetter(maxDistance)},
        {"setTilt", floatSetter("Nuvra.setTilt", "tilt", cameratilt)},
        {"getTilt", truncatingGetter(cameratilt)},
        {"setMap", setMap},
        {"threads", integerSetter("Nuvra.threads", "count", AllowedThreads)},
        {"fog", setFog},
        {"setFov", setFov},
        {"getFov", getFov},
        {"setAccuracy", integerSetter("Nuvra.setAccuracy", "accuracy", step)},
        {"getAccuracy", [](const VariableArray&) { return Variable(step); }},
        {"setRaytrace", integerSetter("Nuvra.setRaytrace", "depth", maxRaytrace)},
        {"setReflection", floatSetter("Nuvra.setReflection", "intensity", reflectionIntensity)},
    };
}

}  // namespace orvane
