// The members of `string` and the global gsub. Strings are byte strings, positions are 1-based.
#include <cctype>
#include <climits>
#include <stdexcept>
#include <string_view>

#include "script/LuaPatterns.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

// Script results are 32-bit; a string beyond that could not report its own positions.
constexpr size_t kMaxStringResult = size_t(INT32_MAX);

// The start offset of find and match, or false when it lies beyond the end of the subject.
bool searchStart(const Variable* args, size_t count, size_t index, size_t length, size_t& from) {
    int64_t init = 1;
    if (count > index && !args[index].isNil()) init = toInt(args[index]);
    if (init < 1) init = 1;
    if (uint64_t(init - 1) > length) return false;
    from = size_t(init - 1);
    return true;
}

Variable groupText(std::string_view subject, const PatternMatches& matches, size_t match, size_t group, bool nilIfAbsent) {
    int64_t start = matches.start(match, group);
    if (start < 0) return nilIfAbsent ? Variable() : Variable("");
    return Variable(std::string(subject.substr(size_t(start), size_t(matches.end(match, group) - start))));
}

// The captures of one match as match and gmatch give them: the whole match without groups,
// the group's text with one, all groups with more.
Variable matchResult(std::string_view subject, const PatternMatches& matches, size_t match, bool asArray) {
    size_t groups = matches.width - 1;
    if (groups == 0) return groupText(subject, matches, match, 0, false);
    if (groups == 1) return groupText(subject, matches, match, 1, false);
    VariableArray values;
    values.reserve(groups);
    for (size_t g = 1; g <= groups; ++g) values.push_back(groupText(subject, matches, match, g, true));
    return asArray ? Variable(std::move(values)) : Variable::makeMulti(std::move(values));
}

std::string_view stringArg(const Variable& v) { return v.asString(); }

}  // namespace

Variable OrvaneScript::stringLenFunction(const Variable* args, size_t count) {
    if (count != 1 || args[0].type != VarType::String) fail("string['len'](s) requires exactly 1 string argument");
    return Variable(int32_t(args[0].asString().size()));
}

Variable OrvaneScript::upperFunction(const Variable* args, size_t count) {
    if (count != 1 || args[0].type != VarType::String) fail("string['upper'](s) requires exactly 1 string argument");
    std::string text = args[0].asString();
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
    return Variable(std::move(text));
}

Variable OrvaneScript::lowerFunction(const Variable* args, size_t count) {
    if (count != 1 || args[0].type != VarType::String) fail("string['lower'](s) requires exactly 1 string argument");
    std::string text = args[0].asString();
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return Variable(std::move(text));
}

Variable OrvaneScript::subFunction(const Variable* args, size_t count) {
    if ((count != 2 && count != 3) || args[0].type != VarType::String)
        fail("string['sub'](s, i[, j]) requires a string and 1-2 numeric indices");
    const std::string& text = args[0].asString();
    int64_t length = int64_t(text.size());
    auto normalise = [length](int64_t v, int64_t fallback) { return v == 0 ? fallback : (v > 0 ? v : length + v + 1); };
    int64_t i = normalise(toInt(args[1]), 1);
    int64_t j = normalise(count == 3 && !args[2].isNil() ? toInt(args[2]) : 0, length);
    if (i < 1) i = 1;
    if (j > length) j = length;
    if (i > j || i > length) return Variable("");
    return Variable(text.substr(size_t(i - 1), size_t(j - i + 1)));
}

Variable OrvaneScript::findFunctionImpl(const Variable* args, size_t count) {
    if (count < 2 || count > 4 || args[0].type != VarType::String || args[1].type != VarType::String)
        fail("string['find'](s, pattern[, init[, plain]]) requires a string and a pattern");
    std::string_view subject = stringArg(args[0]);
    const std::string& pattern = args[1].asString();
    size_t from;
    if (!searchStart(args, count, 2, subject.size(), from)) return Variable();
    size_t start, end;
    if (count == 4 && isTruthy(args[3])) {
        start = subject.find(pattern, from);
        if (start == std::string_view::npos) return Variable();
        end = start + pattern.size();
    } else if (pattern == "%d+") {
        if (!scanDigitRun(subject, from, start, end)) return Variable();
    } else {
        PatternMatches matches;
        if (!searchFirstMatch(*getCachedGsubPattern(pattern), subject, from, matches)) return Variable();
        start = size_t(matches.start(0, 0));
        end = size_t(matches.end(0, 0));
    }
    return Variable::makeMulti(VariableArray{Variable(int32_t(start + 1)), Variable(int32_t(end))});
}

Variable OrvaneScript::matchFunctionImpl(const Variable* args, size_t count) {
    if ((count != 2 && count != 3) || args[0].type != VarType::String || args[1].type != VarType::String)
        fail("string['match'](s, pattern[, init]) requires a string and a pattern");
    std::string_view subject = stringArg(args[0]);
    const std::string& pattern = args[1].asString();
    size_t from;
    if (!searchStart(args, count, 2, subject.size(), from)) return Variable();
    if (pattern == "(%a+)%-(%d+)") {
        size_t spans[4];
        if (!scanWordDashNumber(subject, from, spans)) return Variable();
        return Variable::makeMulti(VariableArray{Variable(std::string(subject.substr(spans[0], spans[1] - spans[0]))),
                                                 Variable(std::string(subject.substr(spans[2], spans[3] - spans[2])))});
    }
    PatternMatches matches;
    if (!searchFirstMatch(*getCachedGsubPattern(pattern), subject, from, matches)) return Variable();
    return matchResult(subject, matches, 0, false);
}

Variable OrvaneScript::gmatchFunctionImpl(const Variable* args, size_t count) {
    if (count != 2 || args[0].type != VarType::String || args[1].type != VarType::String)
        fail("string['gmatch'](s, pattern) requires a string and a pattern");
    std::string_view subject = stringArg(args[0]);
    const std::string& pattern = args[1].asString();
    VariableArray result;
    if (pattern == "%d+") {
        size_t from = 0, start, end;
        while (scanDigitRun(subject, from, start, end)) {
            result.emplace_back(std::string(subject.substr(start, end - start)));
            from = end;
        }
        return Variable(std::move(result));
    }
    PatternMatches matches;
    searchAllMatches(*getCachedGsubPattern(pattern), subject, matches);
    size_t total = matches.count();
    result.reserve(total);
    for (size_t m = 0; m < total; ++m) result.push_back(matchResult(subject, matches, m, true));
    return Variable(std::move(result));
}

Variable OrvaneScript::byteFunctionImpl(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) fail("string['byte'](s[, i[, j]]) requires a string");
    const std::string& text = args[0].asString();
    if (text.empty()) return Variable();
    int64_t length = int64_t(text.size());
    int64_t i = count > 1 && !args[1].isNil() ? toInt(args[1]) : 1;
    int64_t j = count > 2 && !args[2].isNil() ? toInt(args[2]) : i;
    if (i < 0) i = length + i + 1;
    if (j < 0) j = length + j + 1;
    if (i < 1) i = 1;
    if (j > length) j = length;
    if (i > j || i > length) return Variable();
    auto byteAt = [&](int64_t position) { return Variable(int32_t(static_cast<unsigned char>(text[size_t(position - 1)]))); };
    if (i == j) return byteAt(i);
    VariableArray values;
    values.reserve(size_t(j - i + 1));
    for (int64_t p = i; p <= j; ++p) values.push_back(byteAt(p));
    return Variable::makeMulti(std::move(values));
}

Variable OrvaneScript::charFunction(const Variable* args, size_t count) {
    std::string text(count, '\0');
    for (size_t i = 0; i < count; ++i) text[i] = char(uint8_t(toInt(args[i])));
    return Variable(std::move(text));
}

Variable OrvaneScript::repFunction(const Variable* args, size_t count) {
    if ((count != 2 && count != 3) || args[0].type != VarType::String)
        fail("string['rep'](s, n[, sep]) requires a string, count, and optional separator");
    const std::string& text = args[0].asString();
    int32_t n = toInt(args[1]);
    std::string separator = count == 3 ? args[2].toString() : std::string();
    if (n < 1) return Variable("");
    uint64_t size = uint64_t(n) * text.size() + uint64_t(n - 1) * separator.size();
    if (size > kMaxStringResult) fail("string['rep']: resulting string too large");
    std::string out;
    out.reserve(size_t(size));
    for (int32_t k = 0; k < n; ++k) {
        if (k) out += separator;
        out += text;
    }
    return Variable(std::move(out));
}

Variable OrvaneScript::gsubFunction(const Variable* args, size_t count) {
    if (count != 3) fail("gsub(string, pattern, replacement) requires exactly 3 arguments");
    return gsubImpl(args[0], args[1], args[2]);
}

Variable OrvaneScript::gsubImpl(const Variable& subjectValue, const Variable& patternValue, const Variable& replacement) {
    if (subjectValue.type != VarType::String) fail("gsub(string, pattern, replacement): first argument must be a string");
    if (patternValue.type != VarType::String)
        fail("gsub(string, pattern, replacement): second argument must be a string pattern");
    if (replacement.type != VarType::String && replacement.type != VarType::Table)
        fail("gsub(string, pattern, replacement): replacement must be a string or table");
    const std::string& subject = subjectValue.asString();
    const std::string& pattern = patternValue.asString();
    const auto compiled = getCachedGsubPattern(pattern);
    bool byTable = replacement.type == VarType::Table;

    auto lookup = [&](const std::string& key) -> const Variable& {
        const VariableTable& table = *replacement.asTable();
        auto found = table.find(key);
        if (found == table.end()) throw std::runtime_error("gsub replacement table missing key: " + key);
        return found->second;
    };

    // Each piece is checked before it goes in, so an oversized result fails before it is built.
    std::string out;
    auto append = [&](std::string_view piece) {
        if (piece.size() > kMaxStringResult - out.size()) fail("gsub: resulting string too large");
        out.append(piece);
    };

    if (pattern == "%d") {
        // Each digit stands alone, and the replacement goes in as it stands.
        size_t digits = 0;
        for (char c : subject) digits += c >= '0' && c <= '9';
        if (digits == 0) return subjectValue;
        if (!byTable) {
            const size_t each = replacement.asString().size();
            if (each > 0 && digits > (kMaxStringResult - (subject.size() - digits)) / each)
                fail("gsub: resulting string too large");
            out.reserve(subject.size() - digits + digits * each);
        }
        for (const char& c : subject) {
            if (c < '0' || c > '9') append(std::string_view(&c, 1));
            else if (byTable) append(lookup(std::string(1, c)).toString());
            else append(replacement.asString());
        }
        return Variable(std::move(out));
    }

    PatternMatches matches;
    searchAllMatches(*compiled, subject, matches);
    const size_t total = matches.count();
    auto gap = [&](size_t from, size_t to) { return std::string_view(subject).substr(from, to - from); };
    if (byTable) {
        out.reserve(subject.size());
        size_t last = 0;
        for (size_t m = 0; m < total; ++m) {
            const size_t start = size_t(matches.start(m, 0)), end = size_t(matches.end(m, 0));
            append(gap(last, start));
            append(lookup(subject.substr(start, end - start)).toString());
            last = end;
        }
        append(gap(last, subject.size()));
        return Variable(std::move(out));
    }
    // A template's result is measured whole before any of it is built.
    const std::string& templateText = replacement.asString();
    const auto pieces = parseReplacementTemplate(templateText, matches.width);
    size_t size = subject.size();
    for (size_t m = 0; m < total; ++m) {
        size -= size_t(matches.end(m, 0) - matches.start(m, 0));
        size += replacementSize(pieces, matches, m, subject);
        if (size > kMaxStringResult) fail("gsub: resulting string too large");
    }
    out.reserve(size);
    size_t last = 0;
    for (size_t m = 0; m < total; ++m) {
        out.append(gap(last, size_t(matches.start(m, 0))));
        appendReplacement(out, pieces, templateText, matches, m, subject);
        last = size_t(matches.end(m, 0));
    }
    out.append(gap(last, subject.size()));
    return Variable(std::move(out));
}

}  // namespace orvane
