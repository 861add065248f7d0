#include "host/QuadTables.h"

namespace orvane {

// A quad table: corners "tl", "tr", "br", "bl" of three script coordinates each, and "texture".
bool convertQuadValue(const Variable& value, Quad& quad, const std::string& functionName, bool requireTexture) {
    if (!tablePtr(value)) return false;
    Vec3* corners[] = {&quad.tl, &quad.tr, &quad.br, &quad.bl};
    const char* names[] = {"tl", "tr", "br", "bl"};
    for (int corner = 0; corner < 4; ++corner) {
        const Variable* point = getFieldValuePtr(value, names[corner]);
        if (!point || containerLength(*point) != 3) return false;
        float c[3];
        for (int32_t i = 0; i < 3; ++i) {
            const Variable* element = getIndexedValuePtr(*point, i + 1);
            if (!element) return false;
            c[i] = floatValue(*element, functionName, "quad coordinate");
        }
        *corners[corner] = worldPoint(c[0], c[1], c[2]);
    }
    if (const Variable* texture = getFieldValuePtr(value, "texture")) {
        quad.texture = integerValue(*texture, functionName, "texture");
    } else if (requireTexture) {
        return false;
    } else {
        quad.texture = 0;
    }
    finalizeQuad(quad);
    return true;
}

}  // namespace orvane
