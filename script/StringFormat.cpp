// string['format']: an integer-only route that writes digits itself, and the general walk that
// hands each specifier to the C formatter.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "script/OrvaneScript.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

size_t decimalLength(int32_t v) {
    uint32_t magnitude = v < 0 ? 0u - uint32_t(v) : uint32_t(v);
    size_t digits = 1;
    while (magnitude >= 10) {
        magnitude /= 10;
        ++digits;
    }
    return digits + (v < 0);
}

// Formats that hold only %d, %i and %%, the common case of counters and scores, skip the
// C formatter: sizes are counted first, then digits are written straight into the result.
bool tryFormatSimpleIntegerPattern(std::string_view format, const Variable* args, size_t count, Variable& result) {
    size_t size = 0, used = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            ++size;
            continue;
        }
        if (i + 1 == format.size()) return false;
        char conversion = format[++i];
        if (conversion == '%') {
            ++size;
        } else if (conversion == 'd' || conversion == 'i') {
            if (used == count) fail(std::string("string['format']: missing argument for format specifier %") + conversion);
            size += decimalLength(toInt(args[used++]));
        } else {
            return false;
        }
    }
    std::string out(size, '\0');
    char* cursor = out.data();
    used = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            *cursor++ = format[i];
            continue;
        }
        char conversion = format[++i];
        if (conversion == '%') *cursor++ = '%';
        else cursor = std::to_chars(cursor, out.data() + out.size(), toInt(args[used++])).ptr;
    }
    result = Variable(std::move(out));
    return true;
}

// One call of the C formatter, into a stack buffer when that is enough.
template <class T>
void appendFormatted(std::string& out, const std::string& directive, T value, const char* failure) {
    char buffer[256];
    int n = std::snprintf(buffer, sizeof buffer, directive.c_str(), value);
    if (n < 0) fail(failure);
    if (size_t(n) < sizeof buffer) {
        out.append(buffer, size_t(n));
        return;
    }
    size_t at = out.size();
    out.resize(at + size_t(n) + 1);
    std::snprintf(out.data() + at, size_t(n) + 1, directive.c_str(), value);
    out.resize(at + size_t(n));
}

void appendQuoted(std::string& out, const std::string& text) {
    out += '"';
    for (char c : text) {
        switch (c) {
        case '\t': out += "\\t"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        default: out += c; break;
        }
    }
    out += '"';
}

bool isLengthLetter(char c) { return c == 'h' || c == 'l' || c == 'L' || c == 'z' || c == 'j' || c == 't'; }

// The specifier without its length letters, or with only those that leave the argument type as
// passed here: a bare `l` on %c still takes an int.
std::string withoutLengthLetters(const std::string& directive, bool keepL) {
    std::string out;
    out.reserve(directive.size());
    for (char c : directive)
        if (!isLengthLetter(c) || (keepL && c == 'l')) out += c;
    return out;
}

}  // namespace

Variable OrvaneScript::formatFunctionImpl(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) fail("string['format'](format, ...) requires a format string");
    const std::string& format = args[0].asString();
    const Variable* values = args + 1;
    size_t valueCount = count - 1, used = 0;
    Variable simple;
    if (tryFormatSimpleIntegerPattern(format, values, valueCount, simple)) return simple;

    std::string out;
    out.reserve(format.size() + 16 * valueCount);
    std::string directive;
    size_t n = format.size();
    for (size_t i = 0; i < n; ++i) {
        char c = format[i];
        if (c != '%') {
            out += c;
            continue;
        }
        if (i + 1 < n && format[i + 1] == '%') {
            out += '%';
            ++i;
            continue;
        }
        size_t start = i++;
        while (i < n && std::strchr("-+ #0", format[i]) && format[i]) ++i;
        while (i < n && format[i] >= '0' && format[i] <= '9') ++i;
        if (i < n && format[i] == '.') {
            ++i;
            while (i < n && format[i] >= '0' && format[i] <= '9') ++i;
        }
        while (i < n && isLengthLetter(format[i])) ++i;
        if (i >= n) fail("string['format']: incomplete format specifier");
        char conversion = format[i];
        directive.assign(format, start, i - start + 1);
        if (used == valueCount) fail("string['format']: missing argument for format specifier " + directive);
        const Variable& value = values[used++];
        switch (conversion) {
        case 'd':
        case 'i': appendFormatted(out, withoutLengthLetters(directive, false), int(toInt(value)), "string['format']: failed to format value"); break;
        case 'o':
        case 'u':
        case 'x':
        case 'X':
            appendFormatted(out, withoutLengthLetters(directive, false), unsigned(uint32_t(toInt(value))),
                            "string['format']: failed to format value");
            break;
        case 'c': appendFormatted(out, withoutLengthLetters(directive, true), int(toInt(value)), "string['format']: failed to format value"); break;
        case 'e':
        case 'E':
        case 'f':
        case 'F':
        case 'g':
        case 'G':
            // Length letters change nothing for a double but would change what the formatter reads.
            appendFormatted(out, withoutLengthLetters(directive, false), toDouble(value), "string['format']: failed to format value");
            break;
        case 's':
            if (directive.size() == 2) {
                // The plain %s copies bytes, embedded zeros included.
                if (value.type == VarType::String) out += value.asString();
                else out += value.toString();
            } else {
                std::string text = value.toString();
                appendFormatted(out, withoutLengthLetters(directive, false), text.c_str(), "string['format']: failed to format string");
            }
            break;
        case 'q': appendQuoted(out, value.toString()); break;
        default: fail(std::string("string['format']: unsupported specifier %") + conversion);
        }
    }
    return Variable(std::move(out));
}

}  // namespace orvane
