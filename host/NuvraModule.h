// Script functions over images: the image members of the module Nuvra, and the module GLFW.
#pragma once

#include "host/Binding.h"
#include "image/NuvraImage.h"

namespace orvane {

// The module Nuvra, its members in their fixed order, gathered from the groups below.
Variable makeNuvraModule();
// createImage, checkImage, saveImage, blitImage, killImage, imageSize, loadPNG,
// saveNuvraImage, loadNuvraImage.
ModuleEntries nuvraImageEntries();
// The pixel operations: dither, printImage, mirrorImage, modifyImage, skew, bilinear,
// bilinearSolid, trimImage, insertReflection.
ModuleEntries nuvraPixelEntries();
// The world's setters and getters, and raycast.
ModuleEntries nuvraSceneEntries();
Variable makeGLFWModule();

// Enters a new image in the live set and gives the script's value for it; nil for null.
Variable liveImageVariable(NuvraImage* image);
// The live image a script value names; null for nil, a killed image or anything else.
NuvraImage* imageOf(const Variable& value);
// The image argument of a module function: a pointer, or the checkers' error; null for nil
// and for an image already killed.
NuvraImage* imageArgument(const VariableArray& args, size_t index, const std::string& label,
                          const std::string& name);
// Same, and a script error "<name> must be a valid image" unless it has pixels.
NuvraImage& validImageArgument(const VariableArray& args, size_t index, const std::string& label,
                               const std::string& name);

}  // namespace orvane
