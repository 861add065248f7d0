#include "font/FontBackend.h"

#include "font/TrueTypeBackend.h"
#include "font/Type1Backend.h"

namespace orvane::font {

std::unique_ptr<FontBackend> create_backend(const Bytes& bytes) {
    if (bytes.size() > 3) {
        const uint32_t first = read_u32_be(bytes, 0);
        if (first == 0x00010000u || first == make_tag('t', 'r', 'u', 'e')) {
            auto trueType = std::make_unique<TrueTypeBackend>();
            if (trueType->load(bytes)) return trueType;
        }
    }
    if (!bytes.empty() && (bytes[0] == 0x80 || bytes[0] == '%')) {
        auto type1 = std::make_unique<Type1Backend>();
        if (type1->load(bytes)) return type1;
    }
    return nullptr;
}

}  // namespace orvane::font
