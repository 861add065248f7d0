// Quads as scripts write them: {tl: [x, y, h], tr: ..., br: ..., bl: ..., texture: k}.
#pragma once

#include "host/Binding.h"
#include "scene/World.h"

namespace orvane {

// The corners in the script's frame become world points, in the order tl, tr, br, bl; a
// non-number raises the checker's error under `functionName`. False for anything else that is
// not a quad table, and for a missing "texture" when `requireTexture` is set (0 otherwise).
bool convertQuadValue(const Variable& value, Quad& quad, const std::string& functionName, bool requireTexture);

}  // namespace orvane
