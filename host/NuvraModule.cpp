#include "host/NuvraModule.h"

#include "image/Blit.h"
#include "image/ImageFiles.h"
#include "image/NmgFile.h"

namespace orvane {

namespace {

ImageHandle handleOf(void* pointer) { return ImageHandle(reinterpret_cast<uintptr_t>(pointer)); }

}  // namespace

Variable liveImageVariable(NuvraImage* image) {
    if (!image) return Variable();
    return Variable(reinterpret_cast<void*>(uintptr_t(liveNuvraImages.enter(image))));
}

NuvraImage* imageOf(const Variable& value) {
    return value.type == VarType::Pointer ? liveNuvraImages.find(handleOf(value.asPointer())) : nullptr;
}

NuvraImage* imageArgument(const VariableArray& args, size_t index, const std::string& label, const std::string& name) {
    return liveNuvraImages.find(handleOf(pointerValue(requireArg(args, index, label), label, name)));
}

NuvraImage& validImageArgument(const VariableArray& args, size_t index, const std::string& label,
                               const std::string& name) {
    NuvraImage* image = imageArgument(args, index, label, name);
    if (!image || !image->pixels) bindingError(label, name + " must be a valid image");
    return *image;
}

namespace {

std::string tooLarge(int32_t width, int32_t height) {
    return "an image of " + std::to_string(width) + " by " + std::to_string(height) +
           " pixels is too large (at most " + std::to_string(kMaxImagePixels) + " pixels)";
}

Variable createImage(const VariableArray& args) {
    const std::string label = "Nuvra.createImage";
    const int32_t width = integerValue(requireArg(args, 0, label), label, "width");
    const int32_t height = integerValue(requireArg(args, 1, label), label, "height");
    auto colour = [&](size_t index, const char* name) {
        return uint8_t(integerValue(requireArg(args, index, label), label, name));
    };
    const uint8_t r = colour(2, "r"), g = colour(3, "g"), b = colour(4, "b"), a = colour(5, "a");
    NuvraImage* image = createSolidColourImage(width, height, r, g, b, a);
    if (!image) bindingError(label, tooLarge(width, height));
    return liveImageVariable(image);
}

Variable checkImage(const VariableArray& args) {
    return Variable(cleanImage(imageArgument(args, 0, "Nuvra.checkImage", "image")));
}

Variable killImage(const VariableArray& args) {
    liveNuvraImages.kill(handleOf(pointerValue(requireArg(args, 0, "Nuvra.killImage"), "Nuvra.killImage", "image")));
    return Variable();
}

Variable imageSize(const VariableArray& args) {
    const NuvraImage& image = validImageArgument(args, 0, "Nuvra.imageSize", "image");
    return returnValues({Variable(image.width), Variable(image.height)});
}

Variable saveImageRaw(const VariableArray& args) {
    const std::string label = "Nuvra.saveNuvraImage";
    const NuvraImage* image = imageArgument(args, 0, label, "image");
    const std::string filePath = stringValue(requireArg(args, 1, label), label, "path");
    return Variable(saveNuvraImage(image, filePath.c_str()));
}

Variable loadImageRaw(const VariableArray& args) {
    const std::string label = "Nuvra.loadNuvraImage";
    const std::string filePath = stringValue(requireArg(args, 0, label), label, "path");
    NuvraImage* image = loadNuvraImage(filePath.c_str());
    if (!image) return returnValues({Variable(), Variable(0), Variable(0)});
    return returnValues({liveImageVariable(image), Variable(image->width), Variable(image->height)});
}

// Writes PNG whatever the extension says; a failed write is not reported.
Variable saveImage(const VariableArray& args) {
    const std::string label = "Nuvra.saveImage";
    const std::string filePath = stringValue(requireArg(args, 0, label), label, "path");
    const NuvraImage& image = validImageArgument(args, 1, label, "image");
    ot_save_png(filePath.c_str(), image.pixels, image.width, image.height);
    return Variable();
}

// Also GLFW.loadPNG, which reports under the same name. Results: pointer, height, width.
Variable loadPNG(const VariableArray& args) {
    const std::string label = "Nuvra.loadPNG";
    const std::string filePath = stringValue(requireArg(args, 0, label), label, "path");
    int32_t width = 0, height = 0;
    uint8_t* pixels = ot_load_png(filePath.c_str(), &width, &height);
    if (!pixels) bindingError(label, "failed to load image: " + filePath);
    auto* image = new NuvraImage{width, height, pixels, 0, 0, nullptr};
    return returnValues({liveImageVariable(image), Variable(height), Variable(width)});
}

Variable blitImageBinding(const VariableArray& args) {
    const std::string label = "Nuvra.blitImage";
    if (args.size() != 7) bindingError(label, "expected 7 arguments (target, image, x, y, blend, scale, rotation)");
    NuvraImage* target = imageArgument(args, 0, label, "target");
    NuvraImage* image = imageArgument(args, 1, label, "image");
    if (!target || !target->pixels) bindingError(label, "target must be a valid image");
    if (!image || !image->pixels) bindingError(label, "image must be a valid image");
    const int32_t x = integerValue(args[2], label, "x");
    const int32_t y = integerValue(args[3], label, "y");
    const bool blend = isTruthy(args[4]);
    const float scale = floatValue(args[5], label, "scale");
    const float rotation = floatValue(args[6], label, "rotation");
    blitImage(*target, *image, x, y, blend, scale, rotation);
    return Variable();
}

}  // namespace

ModuleEntries nuvraImageEntries() {
    return {
        {"createImage", createImage},   {"checkImage", checkImage},     {"saveImage", saveImage},
        {"blitImage", blitImageBinding}, {"killImage", killImage},      {"imageSize", imageSize},
        {"loadPNG", loadPNG},           {"saveNuvraImage", saveImageRaw}, {"loadNuvraImage", loadImageRaw},
    };
}

Variable makeNuvraModule() {
    static const char* const order[] = {
        "setSize", "project", "setQuads", "raycast", "projection", "setLightLevel", "spawnLight",
        "clearLights", "setPlayerHeight", "getPlayerHeight", "setPlayerPosition", "getPlayerPosition",
        "setPlayerRotation", "getPlayerRotation", "setRenderDistance", "getRenderDistance", "setTilt",
        "getTilt", "setMap", "movePlayer", "printImage", "threads", "fog", "setFov", "getFov",
        "setAccuracy", "getAccuracy", "dither", "skew", "sortVertex", "bilinear", "trimImage",
        "bilinearSolid", "dontMovePlayer", "createImage", "checkImage", "saveImage", "blitImage",
        "modifyImage", "mirrorImage", "killImage", "imageSize", "setReflection", "setRaytrace",
        "insertReflection", "loadPNG", "saveNuvraImage", "loadNuvraImage",
    };
    ModuleEntries groups = nuvraImageEntries();
    for (ModuleEntries more : {nuvraPixelEntries(), nuvraSceneEntries()})
        groups.insert(groups.end(), more.begin(), more.end());
    ModuleEntries ordered;
    for (const char* name : order)
        for (const auto& entry : groups)
            if (entry.first == name) ordered.push_back(entry);
    return makeModule("Nuvra", ordered);
}

Variable makeGLFWModule() { return makeModule("GLFW", {{"loadPNG", loadPNG}}); }

}  // namespace orvane
