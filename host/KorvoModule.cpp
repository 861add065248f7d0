// The module Korvo: geometric questions about quads that are still script tables.
#include "host/HostModules.h"
#include "host/QuadTables.h"
#include "scene/Geometry.h"

namespace orvane {

namespace {

// Every element of a container as a quad, without demanding textures; false when one fails.
bool convertQuads(const Variable& value, std::vector<Quad>& quads, const std::string& label) {
    const int32_t length = containerLength(value);
    for (int32_t index = 1; index <= length; ++index) {
        const Variable* element = getIndexedValuePtr(value, index);
        Quad quad{};
        if (!element || !convertQuadValue(*element, quad, label, false)) return false;
        quads.push_back(quad);
    }
    return true;
}

bool isContainer(const Variable& value) { return arrayPtr(value) || tablePtr(value); }

Variable visible(const VariableArray& args) {
    const std::string label = "Korvo.visible";
    const auto number = [&](size_t i, const char* name) { return numericValue(requireArg(args, i, label), label, name); };
    const double x1 = number(0, "x1"), x2 = number(1, "x2"), y1 = number(2, "y1"), y2 = number(3, "y2");
    const double direction = number(4, "direction"), fov = number(5, "fov");
    return Variable(faceRange(x1, x2, y1, y2, direction, fov));
}

Variable height(const VariableArray& args) {
    const std::string label = "Korvo.height";
    Quad quad{};
    if (!convertQuadValue(requireArg(args, 0, label), quad, label, false))
        bindingError(label, "argument 1 (quad) must be a quad table");
    const float x = floatValue(requireArg(args, 1, label), label, "x");
    const float y = floatValue(requireArg(args, 2, label), label, "y");
    // The script's y is the world's z; the answer goes back to the script's height.
    const std::optional<float> found = heightOnQuadAtXY(quad, x, y);
    return found ? Variable(tileSize - *found) : Variable();
}

Variable centre(const VariableArray& args) {
    const std::string label = "Korvo.centre";
    const Variable& value = requireArg(args, 0, label);
    std::vector<Quad> quads;
    if (!isContainer(value) || !convertQuads(value, quads, label))
        bindingError(label, "argument 1 (quads) must be a table of quad tables");
    const std::optional<Vec3> middle = quadTableCentre(quads);
    if (!middle) return returnValues({Variable(), Variable(), Variable()});
    return returnValues({Variable(middle->x), Variable(middle->z), Variable(tileSize - middle->y)});
}

Variable contains(const VariableArray& args) {
    const std::string label = "Korvo.contains";
    const Variable& box = requireArg(args, 0, label);
    if (!isContainer(box)) bindingError(label, "argument 1 (box) must be a table of 6 quad tables");
    const float x = floatValue(requireArg(args, 1, label), label, "x");
    const float y = floatValue(requireArg(args, 2, label), label, "y");
    const float z = floatValue(requireArg(args, 3, label), label, "z");
    std::vector<Quad> quads;
    const bool six = containerLength(box) == 6;
    if (!six || !convertQuads(box, quads, label))
        bindingError(label, six ? "argument 1 (box) must be a table of 6 valid quad tables"
                                : "argument 1 (box) must be a table of 6 quad tables");
    return Variable(quadBoxContainsPoint(quads, worldPoint(x, y, z)));
}

}  // namespace

Variable makeKorvoModule() {
    return makeModule("Korvo", {{"visible", visible}, {"height", height}, {"centre", centre}, {"contains", contains}});
}

}  // namespace orvane
