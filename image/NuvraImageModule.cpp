#include "image/NuvraImageModule.h"

#include "image/Blit.h"
#include "image/ImageFiles.h"
#include "image/NmgFile.h"

namespace orvane {

NuvraImage* imageArgument(const VariableArray& args, size_t index, const std::string& label, const std::string& name) {
    return static_cast<NuvraImage*>(pointerValue(requireArg(args, index, label), label, name));
}

NuvraImage& validImageArgument(const VariableArray& args, size_t index, const std::string& label,
                               const std::string& name) {
    NuvraImage* image = imageArgument(args, index, label, name);
    if (!image || !image->pixels) bindingError(label, name + " must be a valid image");
    return *image;
}

namespace {

Variable createImage(const VariableArray& args) {
    const std::string label = "Nuvra.createImage";
    const int32_t width = integerValue(requireArg(args, 0, label), label, "width");
    const int32_t height = integerValue(requireArg(args, 1, label), label, "height");
    auto colour = [&](size_t index, const char* name) {
        return uint8_t(integerValue(requireArg(args, index, label), label, name));
    };
    const uint8_t r = colour(2, "r"), g = colour(3, "g"), b = colour(4, "b"), a = colour(5, "a");
    return Variable(static_cast<void*>(createSolidColourImage(width, height, r, g, b, a)));
}

Variable checkImage(const VariableArray& args) {
    return Variable(cleanImage(imageArgument(args, 0, "Nuvra.checkImage", "image")));
}

Variable killImage(const VariableArray& args) {
    killNuvraImage(imageArgument(args, 0, "Nuvra.killImage", "image"));
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
    return returnValues({Variable(static_cast<void*>(image)), Variable(image->width), Variable(image->height)});
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
    liveNuvraImages.insert(image);
    return returnValues({Variable(static_cast<void*>(image)), Variable(height), Variable(width)});
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

Variable makeGLFWModule() { return makeModule("GLFW", {{"loadPNG", loadPNG}}); }

}  // namespace orvane
