// The globals of a new VM: the base functions, string (with patterns through the standard
// regular expressions), table, math, io with files and streams, and os.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <regex>
#include <string>

#include "lua/Patterns.h"
#include "lua/Runtime.h"

namespace orvane::lua {

namespace {

constexpr size_t kUnbounded = SIZE_MAX;

// ---- Argument rules ----

void requireArgumentCount(const std::string& name, size_t count, size_t min, size_t max) {
    if (count >= min && count <= max) return;
    std::string text = name + " expects ";
    if (min == max) text += min == 1 ? "1 argument" : std::to_string(min) + " arguments";
    else if (max == kUnbounded) text += "at least " + std::to_string(min) + " arguments";
    else text += "between " + std::to_string(min) + " and " + std::to_string(max) + " arguments";
    throw std::runtime_error(text);
}

const std::string& requireString(const std::string& name, ValueSpan args, size_t index, uint32_t line) {
    if (index >= args.size() || args[index].type() != ValueType::String)
        failRuntime(line, name + " expects a string argument");
    return args[index].stringValue();
}

int64_t requireInteger(const std::string& name, ValueSpan args, size_t index, uint32_t line) {
    if (index >= args.size() || !args[index].isNumber()) failRuntime(line, name + " expects a numeric argument");
    return args[index].asInteger();
}

double requireNumber(const std::string& name, ValueSpan args, size_t index, uint32_t line) {
    if (index >= args.size() || !args[index].isNumber()) failRuntime(line, name + " expects a numeric argument");
    return args[index].asFloat();
}

Table* requireTable(const std::string& name, ValueSpan args, size_t index, uint32_t line) {
    if (index >= args.size() || args[index].type() != ValueType::Table) failRuntime(line, name + " expects a table");
    return args[index].tablePointer();
}

NativeObject* requireUserData(const std::string& name, ValueSpan args, size_t index, uint32_t line, int kind) {
    if (index >= args.size() || args[index].type() != ValueType::UserData || !args[index].userDataValue())
        failRuntime(line, name + " expects userdata");
    NativeObject* object = args[index].userDataValue().get();
    if (object->kind != kind) failRuntime(line, name + " received the wrong userdata type");
    return object;
}

MultiValue nilAndMessage(const std::string& message) { return MultiValue{Value(), Value::string(message)}; }

// ---- Patterns ----

std::string escapeRegexLiteralChar(char c) {
    if (std::strchr("$()*+.?[\\]^{|}", c) && c != '\0') return std::string("\\") + c;
    return std::string(1, c);
}

std::string translateLuaPatternClassToken(char c) {
    switch (c) {
    case 'a': return "A-Za-z";
    case 'd': return "0-9";
    case 's': return "\\f\\n\\r\\t\\v ";
    case 'w': return "A-Za-z0-9_";
    case 'S': return "^\\f\\n\\r\\t\\v ";
    case 'W': return "^A-Za-z0-9_";
    default: return std::string(1, c);
    }
}

}  // namespace

std::string translateLuaPatternToRegex(const std::string& pattern) {
    std::string out;
    size_t n = pattern.size();
    size_t i = 0;
    while (i < n) {
        char c = pattern[i];
        if (c == '%') {
            if (i + 1 >= n) {
                out += "%";
                break;
            }
            char d = pattern[i + 1];
            i += 2;
            switch (d) {
            case 'a': out += "[A-Za-z]"; break;
            case 'A': out += "[^A-Za-z]"; break;
            case 'd': out += "[0-9]"; break;
            case 'D': out += "[^0-9]"; break;
            case 's': out += "[\\f\\n\\r\\t\\v ]"; break;
            case 'S': out += "[^\\f\\n\\r\\t\\v ]"; break;
            case 'w': out += "[A-Za-z0-9_]"; break;
            case 'W': out += "[^A-Za-z0-9_]"; break;
            default: out += escapeRegexLiteralChar(d); break;
            }
            continue;
        }
        if (c == '[') {
            size_t close = i + 1;
            bool found = false;
            while (close < n) {
                if (pattern[close] == '%') {
                    close += 2;
                    continue;
                }
                if (pattern[close] == ']') {
                    found = true;
                    break;
                }
                ++close;
            }
            if (!found) {
                out += "\\[";
                ++i;
                continue;
            }
            out += "[";
            size_t k = i + 1;
            if (k < close && pattern[k] == '^') {
                out += "^";
                ++k;
            }
            for (; k < close; ++k) {
                char e = pattern[k];
                if (e == '%' && k + 1 < close) {
                    out += translateLuaPatternClassToken(pattern[k + 1]);
                    ++k;
                } else if (e == '\\' || e == ']') {
                    out += '\\';
                    out += e;
                } else {
                    out += e;
                }
            }
            out += "]";
            i = close + 1;
            continue;
        }
        switch (c) {
        case '-': out += "*?"; break;
        case '$':
        case '(':
        case ')':
        case '*':
        case '+':
        case '.':
        case '?':
        case '^': out += c; break;
        default: out += escapeRegexLiteralChar(c); break;
        }
        ++i;
    }
    return out;
}

namespace {

// The regular expression engine works by recursion, one level or more for every byte that
// a match consumes and one for every state of the pattern. Patterns are bounded in length and
// nesting before they are compiled, and the subject is read through an iterator that refuses
// to go on once the native stack reaches kMaxPatternStackBytes below the frame where the
// outermost run began (the script's own calls stop at kMaxStackBytes, well above that).
constexpr size_t kMaxPatternLength = 2048;
constexpr int kMaxPatternNesting = 100;
constexpr uintptr_t kMaxPatternStackBytes = 6u << 20;

uintptr_t frameAddress() { return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)); }

uintptr_t patternStackLimit(const LuaVM::Impl& vm) {
    uintptr_t base = vm.runDepth > 0 ? vm.stackBase : frameAddress();
    return base > kMaxPatternStackBytes ? base - kMaxPatternStackBytes : 0;
}

class GuardedIterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    GuardedIterator() = default;
    GuardedIterator(const char* p, uintptr_t limit) : p_(p), limit_(limit) {}

    reference operator*() const {
        if (frameAddress() < limit_) throw std::runtime_error("pattern matching nests too deeply");
        return *p_;
    }
    GuardedIterator& operator++() {
        ++p_;
        return *this;
    }
    GuardedIterator operator++(int) {
        GuardedIterator old = *this;
        ++p_;
        return old;
    }
    GuardedIterator& operator--() {
        --p_;
        return *this;
    }
    GuardedIterator operator--(int) {
        GuardedIterator old = *this;
        --p_;
        return old;
    }
    bool operator==(const GuardedIterator& other) const { return p_ == other.p_; }
    bool operator!=(const GuardedIterator& other) const { return p_ != other.p_; }
    const char* get() const { return p_; }

private:
    const char* p_ = nullptr;
    uintptr_t limit_ = 0;
};

using GuardedMatch = std::match_results<GuardedIterator>;

}  // namespace

std::regex compilePattern(const std::string& pattern) {
    std::string translated = translateLuaPatternToRegex(pattern);
    if (translated.size() > kMaxPatternLength) throw std::runtime_error("pattern is too long");
    int depth = 0;
    for (size_t i = 0; i < translated.size(); ++i) {
        char c = translated[i];
        if (c == '\\') {
            ++i;
        } else if (c == '(') {
            if (++depth > kMaxPatternNesting) throw std::runtime_error("pattern nests too deeply");
        } else if (c == ')') {
            --depth;
        }
    }
    return std::regex(translated, std::regex::ECMAScript);
}

namespace {

PatternMatch toPatternMatch(const GuardedMatch& m, const char* base) {
    PatternMatch match;
    match.start = uint64_t(m[0].first.get() - base);
    match.end = uint64_t(m[0].second.get() - base);
    match.text = m.str(0);
    for (size_t g = 1; g < m.size(); ++g) match.captures.push_back(m[g].matched ? m.str(g) : std::string());
    return match;
}

// Searches from `start` in the part of `s` behind it, so that `^` anchors there.
bool findCompiled(const std::string& s, const std::regex& re, size_t start, PatternMatch& match, uintptr_t limit) {
    if (start > s.size()) return false;
    GuardedIterator first(s.data() + start, limit), last(s.data() + s.size(), limit);
    GuardedMatch m;
    if (!std::regex_search(first, last, m, re)) return false;
    match = toPatternMatch(m, s.data());
    return true;
}

bool findPattern(const std::string& s, const std::string& pattern, size_t start, bool plain, PatternMatch& match,
                 uintptr_t limit) {
    if (start > s.size()) return false;
    if (plain) {
        size_t at = s.find(pattern, start);
        if (at == std::string::npos) return false;
        match.start = at;
        match.end = at + pattern.size();
        match.text = pattern;
        match.captures.clear();
        return true;
    }
    return findCompiled(s, compilePattern(pattern), start, match, limit);
}

std::vector<PatternMatch> findAllPatternMatches(const std::string& s, const std::string& pattern, uintptr_t limit) {
    std::regex re = compilePattern(pattern);
    GuardedIterator first(s.data(), limit), last(s.data() + s.size(), limit);
    std::vector<PatternMatch> matches;
    using Iterator = std::regex_iterator<GuardedIterator>;
    for (Iterator it(first, last, re); it != Iterator(); ++it) matches.push_back(toPatternMatch(*it, s.data()));
    return matches;
}

size_t searchStart(int64_t init) { return init - 1 > 0 ? size_t(init - 1) : 0; }

std::string subStringRange(const std::string& s, int64_t i, int64_t j) {
    if (s.empty()) return "";
    int64_t size = int64_t(s.size());
    if (i < 0) i = size + i + 1;
    if (j < 0) j = size + j + 1;
    if (i < 1) i = 1;
    if (j > size) j = size;
    if (i > j) return "";
    return s.substr(size_t(i - 1), size_t(j - i + 1));
}

// ---- Files ----

bool fileUnusable(const NativeObject& object) { return !object.file || !object.file->is_open() || object.file->fail(); }

}  // namespace

// ---- Binding ----

void LuaVM::Impl::bindNativeGlobal(const std::string& name, NativeFunction fn) {
    setGlobalValue(name, Value::function(makeNativeHandle(name, std::move(fn))));
}

void LuaVM::Impl::bindTableFunction(Table& table, const std::string& name, NativeFunction fn) {
    tableSetByKey(&table, TableKey::makeString(name), Value::function(makeNativeHandle(name, std::move(fn))));
}

Value LuaVM::Impl::nativeObjectField(const Value& object, const std::string& key, uint32_t line) {
    NativeObject* native = object.userDataValue().get();
    if (!native) failRuntime(line, "native object handle is empty");
    if (native->kind == 0) {
        if (key == "read") {
            return Value::function(makeNativeHandle("file:read", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
                const std::string name = "file:read";
                requireArgumentCount(name, args.size(), 1, 2);
                NativeObject* f = requireUserData(name, args, 0, line, 0);
                if (fileUnusable(*f)) return MultiValue(Value());
                f->file->clear();
                if (args.size() == 2 && args[1].type() == ValueType::String && args[1].stringValue() == "*a") {
                    std::string rest((std::istreambuf_iterator<char>(*f->file)), std::istreambuf_iterator<char>());
                    return MultiValue(Value::string(std::move(rest)));
                }
                int64_t count = requireInteger(name, args, 1, line);
                if (count <= 0) return MultiValue(Value::string(""));
                std::string bytes;
                // Read in pieces, so that a huge count costs only what the file holds.
                while (int64_t(bytes.size()) < count) {
                    char buffer[65536];
                    std::streamsize want = std::streamsize(std::min<int64_t>(count - int64_t(bytes.size()), sizeof buffer));
                    f->file->read(buffer, want);
                    std::streamsize got = f->file->gcount();
                    bytes.append(buffer, size_t(got));
                    if (got < want) break;
                }
                if (bytes.empty()) return MultiValue(Value());
                return MultiValue(Value::string(std::move(bytes)));
            }));
        }
        if (key == "write") {
            return Value::function(makeNativeHandle("file:write", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
                const std::string name = "file:write";
                requireArgumentCount(name, args.size(), 2, kUnbounded);
                NativeObject* f = requireUserData(name, args, 0, line, 0);
                if (fileUnusable(*f)) return nilAndMessage("file is not open");
                f->file->clear();
                for (size_t i = 1; i < args.size(); ++i) {
                    *f->file << args[i].toString();
                    if (f->file->fail()) return nilAndMessage("failed to write file");
                }
                return MultiValue(args[0]);
            }));
        }
        if (key == "seek") {
            return Value::function(makeNativeHandle("file:seek", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
                const std::string name = "file:seek";
                requireArgumentCount(name, args.size(), 1, 3);
                NativeObject* f = requireUserData(name, args, 0, line, 0);
                if (fileUnusable(*f)) return nilAndMessage("file is not open");
                std::string whence = args.size() > 1 ? requireString(name, args, 1, line) : std::string("cur");
                int64_t offset = args.size() > 2 ? requireInteger(name, args, 2, line) : 0;
                std::ios::seekdir dir;
                if (whence == "set") dir = std::ios::beg;
                else if (whence == "cur") dir = std::ios::cur;
                else if (whence == "end") dir = std::ios::end;
                else return nilAndMessage("invalid seek mode");
                f->file->clear();
                // A file stream has one position for reading and writing: move it once, then
                // set the other side to the same place.
                f->file->seekg(std::streamoff(offset), dir);
                if (!f->file->fail()) f->file->seekp(f->file->tellg());
                if (f->file->fail()) {
                    f->file->clear();
                    return nilAndMessage("seek failed");
                }
                std::streamoff position = f->file->tellg();
                if (position < 0) position = f->file->tellp();
                return MultiValue(Value::integer(int64_t(position)));
            }));
        }
        if (key == "close") {
            return Value::function(makeNativeHandle("file:close", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
                const std::string name = "file:close";
                requireArgumentCount(name, args.size(), 1, 1);
                NativeObject* f = requireUserData(name, args, 0, line, 0);
                if (f->file) f->file->close();
                return MultiValue(Value::boolean(true));
            }));
        }
        return Value();
    }
    if (key == "write") {
        std::string name = native->name + ":write";
        return Value::function(makeNativeHandle(name, [name](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
            requireArgumentCount(name, args.size(), 2, kUnbounded);
            NativeObject* s = requireUserData(name, args, 0, line, 1);
            if (!s->stream) return nilAndMessage("stream is not available");
            for (size_t i = 1; i < args.size(); ++i) *s->stream << args[i].toString();
            s->stream->flush();
            return MultiValue(args[0]);
        }));
    }
    return Value();
}

void LuaVM::Impl::bindDefaults() {
    Impl* vm = this;

    setGlobalValue("_VERSION", Value::string("OrvaneLua 0.2"));

    bindFunction("print", [](LuaVM&, const std::vector<LuaValue>& args) -> LuaValue {
        std::string line;
        for (size_t i = 0; i < args.size(); ++i) {
            if (i > 0) line += '\t';
            line += args[i].toString();
        }
        line += '\n';
        std::cout << line;
        return LuaValue();
    });

    bindNativeGlobal("tostring", [](LuaVM&, ValueSpan args, uint32_t) -> MultiValue {
        requireArgumentCount("tostring", args.size(), 1, 1);
        return MultiValue(Value::string(args[0].toString()));
    });

    bindNativeGlobal("tonumber", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("tonumber", args.size(), 1, 2);
        const Value& v = args[0];
        if (v.isNumber()) return MultiValue(v);
        if (v.type() != ValueType::String) return MultiValue(Value());
        int64_t base = args.size() > 1 ? requireInteger("tonumber", args, 1, line) : 10;
        const char* text = v.stringValue().c_str();
        char* end = nullptr;
        errno = 0;
        long long integer = std::strtoll(text, &end, int(std::clamp<int64_t>(base, INT_MIN, INT_MAX)));
        if (errno == 0 && end && *end == '\0') return MultiValue(Value::integer(integer));
        errno = 0;
        double number = std::strtod(text, &end);
        if (base == 10 && errno == 0 && end && *end == '\0') return MultiValue(numericResult(number));
        return MultiValue(Value());
    });

    bindNativeGlobal("type", [](LuaVM&, ValueSpan args, uint32_t) -> MultiValue {
        requireArgumentCount("type", args.size(), 1, 1);
        return MultiValue(Value::string(describeValueType(args[0])));
    });

    bindNativeGlobal("assert", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("assert", args.size(), 1, kUnbounded);
        if (!args[0].isTruthy()) failRuntime(line, args.size() > 1 ? args[1].toString() : "assertion failed!");
        MultiValue all;
        for (const auto& a : args) all.push(a);
        return all;
    });

    bindNativeGlobal("error", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("error", args.size(), 0, 2);
        failRuntime(line, args.empty() ? std::string("error") : args[0].toString());
    });

    bindNativeGlobal("pcall", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("pcall", args.size(), 1, kUnbounded);
        struct ProtectedScope {
            ProtectedScope() { ++gLuaProtectedDepth; }
            ~ProtectedScope() { --gLuaProtectedDepth; }
        };
        try {
            MultiValue results;
            {
                ProtectedScope scope;
                results = vm->callValue(args[0], args.subspan(1), line);
            }
            MultiValue all{Value::boolean(true)};
            for (auto& r : results) all.push(std::move(r));
            return all;
        } catch (const ProtectedRuntimeError& e) {
            return MultiValue{Value::boolean(false), Value::string(e.message)};
        } catch (const std::exception& e) {
            return MultiValue{Value::boolean(false), Value::string(e.what())};
        }
    });

    bindNativeGlobal("pairs", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("pairs", args.size(), 1, 1);
        requireTable("pairs", args, 0, line);
        auto state = std::make_shared<IteratorState>();
        state->kind = 1;
        state->table = args[0].tableValue();
        Table& table = *state->table;
        state->hashCursor = table.hash.begin();
        state->hashEnd = table.hash.end();
        state->hashEpoch = table.hashEpoch;
        state->cursorAtEnd = table.hash.empty();
        if (!state->cursorAtEnd) state->cursorKey = state->hashCursor->first;
        return MultiValue(Value::iterator(std::move(state)));
    });

    bindNativeGlobal("ipairs", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("ipairs", args.size(), 1, 1);
        Table* table = requireTable("ipairs", args, 0, line);
        auto state = std::make_shared<IteratorState>();
        state->kind = 2;
        state->table = args[0].tableValue();
        state->limit = tableSequenceLength(table);
        return MultiValue(Value::iterator(std::move(state)));
    });

    // ---- string ----
    auto string = newTable();
    bindTableFunction(*string, "sub", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.sub";
        requireArgumentCount(name, args.size(), 2, 3);
        const std::string& s = requireString(name, args, 0, line);
        int64_t i = requireInteger(name, args, 1, line);
        int64_t j = args.size() > 2 ? requireInteger(name, args, 2, line) : -1;
        return MultiValue(Value::string(subStringRange(s, i, j)));
    });
    bindTableFunction(*string, "find", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.find";
        requireArgumentCount(name, args.size(), 2, 4);
        const std::string& s = requireString(name, args, 0, line);
        const std::string& pattern = requireString(name, args, 1, line);
        size_t start = searchStart(args.size() > 2 ? requireInteger(name, args, 2, line) : 1);
        bool plain = args.size() > 3 && args[3].isTruthy();
        PatternMatch match;
        if (!findPattern(s, pattern, start, plain, match, patternStackLimit(*vm))) return MultiValue(Value());
        MultiValue out{Value::integer(int64_t(match.start + 1)), Value::integer(int64_t(match.end))};
        for (auto& c : match.captures) out.push(Value::string(std::move(c)));
        return out;
    });
    bindTableFunction(*string, "match", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.match";
        requireArgumentCount(name, args.size(), 2, 3);
        const std::string& s = requireString(name, args, 0, line);
        const std::string& pattern = requireString(name, args, 1, line);
        size_t start = searchStart(args.size() > 2 ? requireInteger(name, args, 2, line) : 1);
        PatternMatch match;
        if (!findPattern(s, pattern, start, false, match, patternStackLimit(*vm))) return MultiValue(Value());
        if (match.captures.empty()) return MultiValue(Value::string(std::move(match.text)));
        MultiValue out;
        for (auto& c : match.captures) out.push(Value::string(std::move(c)));
        return out;
    });
    bindTableFunction(*string, "gmatch", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.gmatch";
        requireArgumentCount(name, args.size(), 2, 2);
        const std::string& s = requireString(name, args, 0, line);
        const std::string& pattern = requireString(name, args, 1, line);
        auto state = std::make_shared<IteratorState>();
        state->kind = 0;
        for (auto& match : findAllPatternMatches(s, pattern, patternStackLimit(*vm))) {
            MultiValue item;
            if (match.captures.empty()) item.push(Value::string(std::move(match.text)));
            else
                for (auto& c : match.captures) item.push(Value::string(std::move(c)));
            state->items.push_back(std::move(item));
        }
        return MultiValue(Value::iterator(std::move(state)));
    });
    bindTableFunction(*string, "gsub", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.gsub";
        requireArgumentCount(name, args.size(), 3, 3);
        const std::string& s = requireString(name, args, 0, line);
        const std::string& pattern = requireString(name, args, 1, line);
        std::string replacement = args[2].toString();
        std::regex re = compilePattern(pattern);
        std::string out;
        size_t cursor = 0;
        int64_t count = 0;
        PatternMatch match;
        uintptr_t limit = patternStackLimit(*vm);
        while (findCompiled(s, re, cursor, match, limit)) {
            out.append(s, cursor, size_t(match.start - cursor));
            out += replacement;
            if (out.size() > vm->maxStringSize) throw std::runtime_error("string is too large");
            cursor = size_t(match.end);
            ++count;
            if (match.start == match.end) {
                if (cursor >= s.size()) break;
                out += s[cursor];
                ++cursor;
            }
        }
        if (cursor < s.size()) out.append(s, cursor, std::string::npos);
        return MultiValue{Value::string(std::move(out)), Value::integer(count)};
    });
    bindTableFunction(*string, "format", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.format";
        requireArgumentCount(name, args.size(), 1, kUnbounded);
        const std::string& format = requireString(name, args, 0, line);
        std::string out;
        size_t next = 1;
        for (size_t i = 0; i < format.size(); ++i) {
            char c = format[i];
            if (c != '%') {
                out += c;
                continue;
            }
            if (i + 1 >= format.size()) throw std::runtime_error("unterminated format token");
            char token = format[++i];
            if (token == '%') {
                out += '%';
                continue;
            }
            if (next >= args.size()) throw std::runtime_error("missing format argument");
            const Value& v = args[next++];
            switch (token) {
            case 's': v.appendTo(out); break;
            case 'd':
            case 'i':
                if (!v.isNumber()) throw std::runtime_error("integer format expects a number");
                out += std::to_string(v.asInteger());
                break;
            case 'f':
                if (!v.isNumber()) throw std::runtime_error("float format expects a number");
                out += formatFloat(v.asFloat());
                break;
            default: throw std::runtime_error(std::string("unsupported format token %") + token);
            }
            if (out.size() > vm->maxStringSize) throw std::runtime_error("string is too large");
        }
        return MultiValue(Value::string(std::move(out)));
    });
    bindTableFunction(*string, "rep", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.rep";
        requireArgumentCount(name, args.size(), 2, 2);
        const std::string& s = requireString(name, args, 0, line);
        int64_t n = requireInteger(name, args, 1, line);
        if (n < 1 || s.empty()) return MultiValue(Value::string(""));
        if (uint64_t(n) > vm->maxStringSize / s.size()) throw std::runtime_error("string.rep result is too large");
        std::string out;
        out.reserve(s.size() * size_t(n));
        for (int64_t i = 0; i < n; ++i) out += s;
        return MultiValue(Value::string(std::move(out)));
    });
    bindTableFunction(*string, "unpack", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "string.unpack";
        requireArgumentCount(name, args.size(), 2, 3);
        const std::string& format = requireString(name, args, 0, line);
        const std::string& data = requireString(name, args, 1, line);
        uint64_t offset = 0;
        if (args.size() > 2) offset = uint64_t(std::max<int64_t>(1, requireInteger(name, args, 2, line)) - 1);
        bool little = true;
        MultiValue out;
        for (size_t i = 0; i < format.size(); ++i) {
            char c = format[i];
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f') continue;
            if (c == '<') {
                little = true;
            } else if (c == '>') {
                little = false;
            } else if (c == 'I') {
                size_t digits = i + 1;
                while (digits < format.size() && format[digits] >= '0' && format[digits] <= '9') ++digits;
                int width = std::stoi(format.substr(i + 1, digits - i - 1));
                i = digits - 1;
                if (width != 4) throw std::runtime_error("OrvaneLua only supports string.unpack I4 fields");
                if (offset > data.size() || data.size() - offset < 4)
                    throw std::runtime_error("string.unpack ran past the end of the buffer");
                uint32_t value = 0;
                for (int b = 0; b < 4; ++b) {
                    uint32_t byte = static_cast<unsigned char>(data[size_t(offset) + size_t(b)]);
                    value |= little ? byte << (8 * b) : byte << (8 * (3 - b));
                }
                out.push(Value::integer(int64_t(value)));
                offset += 4;
            } else {
                throw std::runtime_error("unsupported string.unpack format");
            }
        }
        out.push(Value::integer(int64_t(offset + 1)));
        return out;
    });
    setGlobalValue("string", Value::table(string));

    // ---- table ----
    auto table = newTable();
    bindTableFunction(*table, "remove", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "table.remove";
        requireArgumentCount(name, args.size(), 1, 2);
        Table* t = requireTable(name, args, 0, line);
        uint64_t n = tableSequenceLength(t);
        if (n == 0) return MultiValue(Value());
        uint64_t pos = n;
        if (args.size() > 1) pos = uint64_t(std::max<int64_t>(1, requireInteger(name, args, 1, line)));
        if (pos > n) return MultiValue(Value());
        if (t->hash.empty() && pos <= t->array.size()) {
            Value removed = std::move(t->array[size_t(pos - 1)]);
            for (uint64_t i = pos; i < n; ++i) t->array[size_t(i - 1)] = std::move(t->array[size_t(i)]);
            t->array[size_t(n - 1)] = Value();
            while (!t->array.empty() && t->array.back().isNil()) t->array.pop_back();
            t->version++;
            return MultiValue(std::move(removed));
        }
        Value removed = tableGetByKey(t, TableKey::makeInteger(int64_t(pos)));
        for (uint64_t i = pos; i < n; ++i)
            tableSetInteger(t, int64_t(i), tableGetByKey(t, TableKey::makeInteger(int64_t(i + 1))));
        tableSetInteger(t, int64_t(n), Value());
        return MultiValue(std::move(removed));
    });
    bindTableFunction(*table, "concat", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "table.concat";
        requireArgumentCount(name, args.size(), 1, 2);
        Table* t = requireTable(name, args, 0, line);
        std::string separator = args.size() > 1 ? args[1].toString() : std::string();
        uint64_t n = tableSequenceLength(t);
        std::string out;
        for (uint64_t k = 1; k <= n; ++k) {
            if (k > 1) out += separator;
            const Value* v = tableFindInteger(*t, int64_t(k));
            (v ? *v : Value()).appendTo(out);
            if (out.size() > vm->maxStringSize) throw std::runtime_error("string is too large");
        }
        return MultiValue(Value::string(std::move(out)));
    });
    bindTableFunction(*table, "sort", [vm](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "table.sort";
        requireArgumentCount(name, args.size(), 1, 2);
        Table* t = requireTable(name, args, 0, line);
        std::shared_ptr<Table> keep = args[0].tableValue();
        Value comparator;
        if (args.size() > 1) {
            if (args[1].type() != ValueType::Function) throw std::runtime_error("table.sort comparator must be a function");
            comparator = args[1];
        }
        uint64_t n = tableSequenceLength(t);
        std::vector<Value> values;
        values.reserve(size_t(n));
        for (uint64_t k = 1; k <= n; ++k) {
            const Value* v = tableFindInteger(*t, int64_t(k));
            values.push_back(v ? *v : Value());
        }
        auto less = [&](const Value& a, const Value& b) -> bool {
            if (!comparator.isNil()) {
                Value pair[2] = {a, b};
                MultiValue r = vm->callValue(comparator, ValueSpan(pair, 2), line);
                return !r.empty() && r[0].isTruthy();
            }
            if (a.isNumber() && b.isNumber()) return a.asFloat() < b.asFloat();
            if (a.type() == ValueType::String && b.type() == ValueType::String) return a.stringValue() < b.stringValue();
            return a.toString() < b.toString();
        };
        // A merge sort of its own: any comparator, even one that is no strict weak order,
        // only ever sees elements inside the range.
        std::vector<Value> buffer(values.size());
        for (size_t width = 1; width < values.size(); width *= 2) {
            for (size_t lo = 0; lo < values.size(); lo += 2 * width) {
                size_t mid = std::min(lo + width, values.size());
                size_t hi = std::min(lo + 2 * width, values.size());
                size_t a = lo, b = mid, o = lo;
                while (a < mid && b < hi) buffer[o++] = less(values[b], values[a]) ? values[b++] : values[a++];
                while (a < mid) buffer[o++] = values[a++];
                while (b < hi) buffer[o++] = values[b++];
            }
            values.swap(buffer);
        }
        if (t->hash.empty() && n <= t->array.size()) {
            for (size_t i = 0; i < values.size(); ++i) t->array[i] = std::move(values[i]);
            t->version++;
        } else {
            for (size_t i = 0; i < values.size(); ++i) tableSetInteger(t, int64_t(i + 1), std::move(values[i]));
        }
        return MultiValue(args[0]);
    });
    setGlobalValue("table", Value::table(table));

    // ---- math ----
    auto math = newTable();
    auto extreme = [](const std::string& name, bool wantMax) {
        return [name, wantMax](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
            requireArgumentCount(name, args.size(), 1, kUnbounded);
            double best = requireNumber(name, args, 0, line);
            for (size_t i = 1; i < args.size(); ++i) {
                double x = requireNumber(name, args, i, line);
                if (wantMax ? x > best : x < best) best = x;
            }
            return MultiValue(numericResult(best));
        };
    };
    bindTableFunction(*math, "min", extreme("math.min", false));
    bindTableFunction(*math, "max", extreme("math.max", true));
    bindTableFunction(*math, "floor", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("math.floor", args.size(), 1, 1);
        return MultiValue(numericResult(std::floor(requireNumber("math.floor", args, 0, line))));
    });
    setGlobalValue("math", Value::table(math));

    // ---- io ----
    auto io = newTable();
    bindTableFunction(*io, "open", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        const std::string name = "io.open";
        requireArgumentCount(name, args.size(), 1, 2);
        const std::string& path = requireString(name, args, 0, line);
        std::string mode = args.size() > 1 ? requireString(name, args, 1, line) : std::string("r");
        auto object = std::make_shared<NativeObject>();
        object->kind = 0;
        object->name = path;
        std::ios::openmode flags{};
        bool any = false;
        if (mode.find('r') != std::string::npos) {
            flags |= std::ios::in;
            object->readable = true;
            any = true;
        }
        if (mode.find('w') != std::string::npos) {
            flags |= std::ios::out | std::ios::trunc;
            object->writable = true;
            any = true;
        }
        if (mode.find('a') != std::string::npos) {
            flags |= std::ios::out | std::ios::app;
            object->writable = true;
            any = true;
        }
        if (mode.find('b') != std::string::npos) flags |= std::ios::binary;
        if (!any) flags |= std::ios::in;
        auto file = std::make_shared<std::fstream>(path, flags);
        if (!file->is_open()) return nilAndMessage("failed to open file: " + path);
        object->file = std::move(file);
        return MultiValue(Value::userData(std::move(object)));
    });
    bindTableFunction(*io, "write", [](LuaVM&, ValueSpan args, uint32_t) -> MultiValue {
        requireArgumentCount("io.write", args.size(), 1, kUnbounded);
        std::string out;
        for (const auto& a : args) a.appendTo(out);
        std::cout << out << std::flush;
        return MultiValue(Value::boolean(true));
    });
    auto stream = [](std::ostream* target, const char* name) {
        auto object = std::make_shared<NativeObject>();
        object->kind = 1;
        object->stream = target;
        object->writable = true;
        object->name = name;
        return Value::userData(std::move(object));
    };
    tableSetByKey(io.get(), TableKey::makeString("stderr"), stream(&std::cerr, "stderr"));
    tableSetByKey(io.get(), TableKey::makeString("stdout"), stream(&std::cout, "stdout"));
    setGlobalValue("io", Value::table(io));

    // ---- os ----
    auto os = newTable();
    bindTableFunction(*os, "execute", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("os.execute", args.size(), 1, 1);
        const std::string& command = requireString("os.execute", args, 0, line);
        std::cout.flush();
        return MultiValue(Value::integer(std::system(command.c_str())));
    });
    bindTableFunction(*os, "exit", [](LuaVM&, ValueSpan args, uint32_t line) -> MultiValue {
        requireArgumentCount("os.exit", args.size(), 0, 1);
        int64_t code = args.empty() ? 0 : requireInteger("os.exit", args, 0, line);
        throw ExitSignal{int32_t(std::clamp<int64_t>(code, INT32_MIN, INT32_MAX))};
    });
    setGlobalValue("os", Value::table(os));
}

}  // namespace orvane::lua
