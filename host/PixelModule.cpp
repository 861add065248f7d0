// The pixel operations of the module Nuvra. Only modifyImage, mirrorImage and insertReflection
// refuse a dead image with an error; the others hand null on, and the operation leaves it alone.
#include <cstring>

#include "host/NuvraModule.h"
#include "image/PixelOperations.h"

namespace orvane {

namespace {

int32_t integerArgument(const VariableArray& args, size_t index, const std::string& label, const std::string& name) {
    return integerValue(requireArg(args, index, label), label, name);
}

Variable nuvraDither(const VariableArray& args) {
    const std::string label = "Nuvra.dither";
    NuvraImage* image = imageArgument(args, 0, label, "image");
    const int32_t amount = integerArgument(args, 1, label, "amount");
    const bool doubled = isTruthy(requireArg(args, 2, label));
    // Doubling swaps the pixel buffer, not the record: the script's handle stays good.
    ditherImage(image, amount, doubled);
    return Variable();
}

Variable printImage(const VariableArray& args) {
    const std::string label = "Nuvra.printImage";
    const NuvraImage* image = imageArgument(args, 0, label, "image");
    const int32_t width = integerArgument(args, 1, label, "width");
    const int32_t height = integerArgument(args, 2, label, "height");
    printAsciiArt(image, width, height);
    return Variable();
}

Variable mirrorImage(const VariableArray& args) {
    const std::string label = "Nuvra.mirrorImage";
    NuvraImage& image = validImageArgument(args, 0, label, "image");
    mirrorNuvraImage(&image, isTruthy(requireArg(args, 1, label)));
    return Variable();
}

Variable modifyImage(const VariableArray& args) {
    const std::string label = "Nuvra.modifyImage";
    NuvraImage& image = validImageArgument(args, 0, label, "image");
    const int32_t processor = integerArgument(args, 1, label, "processor");
    // Not limited to 0..255: the processors clamp what they make.
    auto colour = [&](size_t index, const char* name) {
        return float(numericValue(requireArg(args, index, label), label, name) / 255.0);
    };
    const float r = colour(2, "r"), g = colour(3, "g"), b = colour(4, "b"), a = colour(5, "a");
    processNuvraImagePixels(&image, processor, r, g, b, a);
    return Variable();
}

Variable skew(const VariableArray& args) {
    const std::string label = "Nuvra.skew";
    const NuvraImage* input = imageArgument(args, 0, label, "input");
    NuvraImage* output = imageArgument(args, 1, label, "output");
    static const char* const names[] = {"ltx", "lty", "rtx", "rty", "lbx", "lby", "rbx", "rby"};
    int32_t corner[8];
    for (size_t i = 0; i < 8; ++i) corner[i] = integerArgument(args, 2 + i, label, names[i]);
    skewImage(corner[0], corner[1], corner[2], corner[3], corner[4], corner[5], corner[6], corner[7], input, output);
    return Variable();
}

Variable bilinear(const VariableArray& args) {
    const std::string label = "Nuvra.bilinear";
    NuvraImage* image = imageArgument(args, 0, label, "image");
    upscaleNuvraImage(image, floatValue(requireArg(args, 1, label), label, "factor"));
    return Variable();
}

Variable bilinearFuzz(const VariableArray& args) {
    bilinearInPlace(imageArgument(args, 0, "Nuvra.bilinearSolid", "image"));
    return Variable();
}

Variable trimImage(const VariableArray& args) {
    const std::string label = "Nuvra.trimImage";
    NuvraImage* image = imageArgument(args, 0, label, "image");
    const int32_t width = integerArgument(args, 1, label, "width");
    const int32_t height = integerArgument(args, 2, label, "height");
    trimNuvraImage(image, width, height);
    return Variable();
}

// A copy of the map's pixels, so that the two images stay independent afterwards.
Variable insertReflection(const VariableArray& args) {
    const std::string label = "Nuvra.insertReflection";
    NuvraImage& image = validImageArgument(args, 0, label, "image");
    const NuvraImage& map = validImageArgument(args, 1, label, "reflectmap");
    uint8_t* copy = allocatePixels(map.width, map.height);
    // Allocated before the old layer goes, so that a refused size leaves the image as it was.
    if (!copy) return Variable();
    std::memcpy(copy, map.pixels, size_t(map.width) * size_t(map.height) * 4);
    delete[] image.reflectPixels;
    image.reflectPixels = copy;
    image.reflectWidth = map.width;
    image.reflectHeight = map.height;
    return Variable();
}

}  // namespace

ModuleEntries nuvraPixelEntries() {
    return {
        {"dither", nuvraDither}, {"printImage", printImage},       {"mirrorImage", mirrorImage},
        {"modifyImage", modifyImage}, {"skew", skew},              {"bilinear", bilinear},
        {"bilinearSolid", bilinearFuzz}, {"trimImage", trimImage}, {"insertReflection", insertReflection},
    };
}

}  // namespace orvane
