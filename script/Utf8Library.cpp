// The members of `utf8`: counts of start bytes, so malformed text is counted and never refused.
#include <stdexcept>

#include "script/OrvaneScript.h"

namespace orvane {

namespace {

bool startsCodePoint(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

}  // namespace

Variable OrvaneScript::utf8LenFunction(const Variable* args, size_t count) {
    if (count != 1 || args[0].type != VarType::String) throw std::runtime_error("utf8['len'](s) requires exactly 1 string argument");
    int32_t length = 0;
    for (char c : args[0].asString()) length += startsCodePoint(c);
    return Variable(length);
}

Variable OrvaneScript::utf8OffsetFunction(const Variable* args, size_t count) {
    if ((count != 2 && count != 3) || args[0].type != VarType::String)
        throw std::runtime_error("utf8['offset'](s, n[, i]) requires a string and a codepoint index");
    const std::string& text = args[0].asString();
    int32_t n = toInt(args[1]);
    int64_t from = count == 3 && !args[2].isNil() ? toInt(args[2]) : 1;
    if (from < 1) from = 1;
    if (n <= 0) return Variable();
    int32_t seen = 0;
    for (size_t i = size_t(from - 1); i < text.size(); ++i) {
        if (startsCodePoint(text[i]) && ++seen == n) return Variable(int32_t(i + 1));
    }
    return Variable();
}

}  // namespace orvane
