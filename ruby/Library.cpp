// The flat library: every function is an ordinary global, and a script may replace any of them.
// Arrays count from 0, string positions from 1. The "patterns" are a few fixed words; any other
// pattern is literal text.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "ruby/VmImpl.h"

namespace orvane::ruby {
namespace {

using A = RubyValueAccess;
using Args = std::vector<RubyValue>;

[[noreturn]] void fail(const std::string& text) { throw std::runtime_error(text); }

std::string describeArgumentExpectation(int min, int max) {
    if (min == max) return min == 1 ? "exactly 1 argument" : "exactly " + std::to_string(min) + " arguments";
    if (max == kNoUpperLimit) return "at least " + std::to_string(min) + " arguments";
    return "between " + std::to_string(min) + " and " + std::to_string(max) + " arguments";
}

void requireArgumentCount(const char* name, const Args& args, int min, int max) {
    orvane::ruby::requireArgumentCount(name, static_cast<int>(args.size()), min, max);
}

const RubyValue& requireArgument(const std::string& name, const Args& args, size_t index) {
    if (index >= args.size()) fail(name + " is missing argument " + std::to_string(index + 1));
    return args[index];
}

const std::string& requireStringArgument(const std::string& name, const Args& args, size_t index) {
    const RubyValue& value = requireArgument(name, args, index);
    if (!value.isString()) fail(name + " expects a string argument");
    return A::string(value);
}

double requireNumericArgument(const std::string& name, const Args& args, size_t index) {
    const RubyValue& value = requireArgument(name, args, index);
    if (!value.isNumeric()) fail(name + " expects a numeric argument");
    return value.asFloat();
}

int64_t requireIntegerArgument(const std::string& name, const Args& args, size_t index) {
    const RubyValue& value = requireArgument(name, args, index);
    if (!value.isNumeric()) fail(name + " expects a numeric argument");
    return value.asInteger();
}

RubyArray& requireArray(const Args& args, size_t index, const char* message) {
    if (index >= args.size() || !args[index].isArray()) fail(message);
    return A::array(args[index]);
}

bool parseIntegerString(const std::string& text, int base, int64_t& out) {
    if (text.empty()) return false;
    try {
        size_t used = 0;
        long long value = std::stoll(text, &used, base);
        if (used != text.size()) return false;
        out = static_cast<int64_t>(value);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool isWholeNumber(double x, double& rounded) {
    rounded = std::round(x);
    return std::fabs(x - rounded) <= kEpsilon;
}

// The nearest integer when x is one within the epsilon and in the 64-bit range, else x itself.
RubyValue numericResult(double x) {
    double rounded;
    if (std::isfinite(x) && isWholeNumber(x, rounded) && rounded >= -9223372036854775808.0 &&
        rounded <= 9223372036854775808.0)
        return RubyValue(RubyValue(rounded).asInteger());
    return RubyValue(x);
}

void checkStringLength(size_t size, const RubyLimits& limits) {
    if (size > limits.maxStringBytes) fail("string is too long");
}

std::string joinValues(const Args& args, const char* separator, const RubyLimits& limits) {
    std::string text;
    for (size_t i = 0; i < args.size(); ++i) {
        if (i) text += separator;
        if (!appendText(text, args[i], limits.maxStringBytes)) fail("string is too long");
    }
    return text;
}

// Positions from 1; a negative one counts from the end; then held to the string.
std::pair<size_t, size_t> subStringRange(size_t size, int64_t i, int64_t j, bool& empty) {
    const auto n = static_cast<int64_t>(size);
    if (i < 0) i = n + i + 1;
    if (j < 0) j = n + j + 1;
    if (i < 1) i = 1;
    if (j > n) j = n;
    empty = size == 0 || i > j;
    if (empty) return {0, 0};
    return {static_cast<size_t>(i - 1), static_cast<size_t>(j - i + 1)};
}

bool isDigitByte(char c) { return c >= '0' && c <= '9'; }

std::vector<std::pair<size_t, size_t>> digitRuns(const std::string& s) {
    std::vector<std::pair<size_t, size_t>> runs;
    for (size_t i = 0; i < s.size();) {
        if (!isDigitByte(s[i])) {
            ++i;
            continue;
        }
        size_t start = i;
        while (i < s.size() && isDigitByte(s[i])) ++i;
        runs.emplace_back(start, i);  // end exclusive
    }
    return runs;
}

std::vector<size_t> occurrences(const std::string& s, const std::string& pattern) {
    std::vector<size_t> found;
    if (pattern.empty()) return found;
    for (size_t at = s.find(pattern); at != std::string::npos; at = s.find(pattern, at + pattern.size()))
        found.push_back(at);
    return found;
}

RubyValue findPattern(const std::string& s, const std::string& pattern) {
    if (pattern == "%d+") {
        auto runs = digitRuns(s);
        if (runs.empty()) return RubyValue();
        return RubyValue(RubyArray{RubyValue(static_cast<int64_t>(runs[0].first + 1)),
                                   RubyValue(static_cast<int64_t>(runs[0].second))});
    }
    size_t at = s.find(pattern);
    if (at == std::string::npos) return RubyValue();
    return RubyValue(RubyArray{RubyValue(static_cast<int64_t>(at + 1)), RubyValue(static_cast<int64_t>(at + pattern.size()))});
}

RubyValue matchPattern(const std::string& s, const std::string& pattern) {
    if (pattern == "(%a+)%-(%d+)") {
        auto alpha = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
        for (size_t i = 0; i < s.size();) {
            if (!alpha(s[i])) {
                ++i;
                continue;
            }
            size_t start = i;
            while (i < s.size() && alpha(s[i])) ++i;
            if (i + 1 < s.size() && s[i] == '-' && isDigitByte(s[i + 1])) {
                size_t digits = i + 1;
                size_t stop = digits;
                while (stop < s.size() && isDigitByte(s[stop])) ++stop;
                return RubyValue(RubyArray{RubyValue(s.substr(start, i - start)), RubyValue(s.substr(digits, stop - digits))});
            }
        }
        return RubyValue();
    }
    if (pattern == "%d+") {
        auto runs = digitRuns(s);
        if (runs.empty()) return RubyValue();
        return RubyValue(s.substr(runs[0].first, runs[0].second - runs[0].first));
    }
    return s.find(pattern) != std::string::npos ? RubyValue(pattern) : RubyValue();
}

// The empty pattern is found nowhere here: searching for it makes no progress.
RubyValue gmatchPattern(const std::string& s, const std::string& pattern) {
    RubyArray found;
    if (pattern == "%d+") {
        for (auto [start, stop] : digitRuns(s)) found.emplace_back(s.substr(start, stop - start));
    } else {
        for (size_t at : occurrences(s, pattern)) {
            (void)at;
            found.emplace_back(pattern);
        }
    }
    return RubyValue(std::move(found));
}

std::string gsubPattern(const std::string& s, const std::string& pattern, const std::string& replacement,
                        const RubyLimits& limits) {
    std::string out;
    auto append = [&](const char* data, size_t size) {
        checkStringLength(out.size() + size, limits);
        out.append(data, size);
    };
    if (pattern == "%d+" || pattern == "%d") {
        const bool runs = pattern == "%d+";
        for (size_t i = 0; i < s.size();) {
            if (!isDigitByte(s[i])) {
                append(&s[i], 1);
                ++i;
                continue;
            }
            if (runs)
                while (i < s.size() && isDigitByte(s[i])) ++i;
            else
                ++i;
            append(replacement.data(), replacement.size());
        }
        return out;
    }
    if (pattern.empty()) return s;
    size_t from = 0;
    for (size_t at : occurrences(s, pattern)) {
        append(s.data() + from, at - from);
        append(replacement.data(), replacement.size());
        from = at + pattern.size();
    }
    append(s.data() + from, s.size() - from);
    return out;
}

std::string formatFloat(double x) {
    char buffer[64];
    int size = std::snprintf(buffer, sizeof buffer, "%g", x);
    return std::string(buffer, static_cast<size_t>(size));
}

std::string formatString(const std::string& format, const Args& args, size_t first, const RubyLimits& limits) {
    std::string out;
    size_t next = first;
    for (size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%') {
            out += c;
            continue;
        }
        if (i + 1 >= format.size()) fail("unterminated format token");
        char token = format[++i];
        if (token == '%') {
            out += '%';
            continue;
        }
        if (next >= args.size()) fail("missing argument for format string");
        const RubyValue& value = args[next++];
        switch (token) {
        case 's':
            if (!appendText(out, value, limits.maxStringBytes)) fail("string is too long");
            break;
        case 'd':
        case 'i': out += std::to_string(value.asInteger()); break;
        case 'f': out += formatFloat(value.asFloat()); break;
        default: fail(std::string("unsupported format token %") + token);
        }
        checkStringLength(out.size(), limits);
    }
    return out;
}

// Merge sort over indices: whatever the comparison answers, every access stays inside the array.
template <typename Less>
void mergeSortIndices(std::vector<size_t>& order, Less less) {
    const size_t n = order.size();
    std::vector<size_t> buffer(n);
    for (size_t width = 1; width < n; width *= 2) {
        for (size_t lo = 0; lo < n; lo += 2 * width) {
            size_t mid = std::min(lo + width, n);
            size_t hi = std::min(lo + 2 * width, n);
            size_t a = lo, b = mid, out = lo;
            while (a < mid && b < hi) buffer[out++] = less(order[b], order[a]) ? order[b++] : order[a++];
            while (a < mid) buffer[out++] = order[a++];
            while (b < hi) buffer[out++] = order[b++];
        }
        order.swap(buffer);
    }
}

void printText(const std::string& text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), stdout);
}

RubyValue toNumber(const Args& args) {
    requireArgumentCount("to_number", args, 1, 2);
    const RubyValue& value = args[0];
    if (value.isNumeric()) return numericResult(value.asFloat());
    if (!value.isString()) return RubyValue();
    const std::string& text = A::string(value);
    int64_t parsed = 0;
    if (args.size() == 2) {
        int64_t base = requireIntegerArgument("to_number", args, 1);
        if (base < 2 || base > 36) fail("to_number base must be between 2 and 36");
        return parseIntegerString(text, static_cast<int>(base), parsed) ? RubyValue(parsed) : RubyValue();
    }
    if (text.find_first_of(".eE") != std::string::npos) {
        try {
            size_t used = 0;
            double number = std::stod(text, &used);
            if (used != text.size()) return RubyValue();
            return numericResult(number);
        } catch (const std::exception&) {
            return RubyValue();
        }
    }
    return parseIntegerString(text, 10, parsed) ? RubyValue(parsed) : RubyValue();
}

}  // namespace

void argumentCountError(const char* name, int min, int max) {
    fail(std::string(name) + " expects " + describeArgumentExpectation(min, max));
}

RubyValue tableSet(const RubyValue* args, int argCount, const RubyLimits& limits) {
    requireArgumentCount("table_set", argCount, 3, 3);
    const RubyValue& container = args[0];
    if (container.isArray()) {
        if (!args[1].isNumeric()) fail("table_set array index must be numeric");
        int64_t index = args[1].isInteger() ? RubyValueAccess::integer(args[1]) : args[1].asInteger();
        if (index < 0) fail("table_set array index must be non-negative");
        RubyArray& elements = A::array(container);
        auto at = static_cast<uint64_t>(index);
        if (at >= elements.size()) {
            if (at >= limits.maxArrayLength) fail("array is too long");
            elements.resize(static_cast<size_t>(at) + 1);
        }
        elements[static_cast<size_t>(at)] = args[2];
        return args[2];
    }
    if (container.isMap()) {
        setMapValue(A::map(container), args[1]) = args[2];
        return args[2];
    }
    fail("table_set expects an array or map");
}

void RubyVM::Impl::bindDefaults() {
    setGlobal("_VERSION", RubyValue("OrvaneRuby 0.1"));
    setGlobal("ORVANERUBY_VERSION", RubyValue("0.1"));

    bindFunction("puts", [](RubyVM& self, const Args& args) {
        printText(joinValues(args, " ", self.limits()) + "\n");
        return RubyValue();
    });
    bindFunction("print", [](RubyVM& self, const Args& args) {
        printText(joinValues(args, "", self.limits()));
        return RubyValue();
    });
    bindFunction("len", [](RubyVM&, const Args& args) {
        requireArgumentCount("len", args, 1, 1);
        const RubyValue& v = args[0];
        if (v.isString()) return RubyValue(static_cast<int64_t>(A::string(v).size()));
        if (v.isArray()) return RubyValue(static_cast<int64_t>(A::array(v).size()));
        if (v.isMap()) return RubyValue(static_cast<int64_t>(A::map(v).size()));
        fail("len expects a string, array, or map");
    });
    bindFunction("time_ms", [](RubyVM&, const Args& args) {
        requireArgumentCount("time_ms", args, 0, 0);
        auto since = std::chrono::steady_clock::now().time_since_epoch();
        return RubyValue(static_cast<int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count()));
    });
    bindFunction("to_s", [](RubyVM& self, const Args& args) {
        requireArgumentCount("to_s", args, 1, 1);
        return RubyValue(textOf(args[0], self.limits().maxStringBytes));
    });
    bindFunction("to_number", [](RubyVM&, const Args& args) { return toNumber(args); });
    bindFunction("collect_garbage", [](RubyVM&, const Args& args) {
        requireArgumentCount("collect_garbage", args, 0, 0);
        return RubyValue();
    });
    // The VM runs these two itself; the callables are never called.
    bindFunction("error", [](RubyVM&, const Args&) { return RubyValue(); });
    bindFunction("pcall", [](RubyVM&, const Args&) { return RubyValue(); });
    bindFunction("load", [](RubyVM& self, const Args& args) {
        requireArgumentCount("load", args, 1, 2);
        const std::string& source = requireStringArgument("load", args, 0);
        std::string chunk = args.size() > 1 ? requireStringArgument("load", args, 1) : std::string("<load>");
        return makeScriptFunction("<load>", 0, self.impl().loadProgram(source, chunk));
    });
    bindFunction("map_new", [](RubyVM&, const Args& args) {
        requireArgumentCount("map_new", args, 0, 0);
        return RubyValue::makeMap();
    });
    bindFunction("keys", [](RubyVM&, const Args& args) {
        requireArgumentCount("keys", args, 1, 1);
        RubyArray result;
        if (args[0].isArray()) {
            size_t size = A::array(args[0]).size();
            result.reserve(size);
            for (size_t i = 0; i < size; ++i) result.emplace_back(static_cast<int64_t>(i));
        } else if (args[0].isMap()) {
            std::vector<std::string> names;
            for (const auto& entry : A::map(args[0])) names.push_back(entry.first);
            std::sort(names.begin(), names.end());
            result.reserve(names.size());
            for (std::string& name : names) result.emplace_back(std::move(name));
        } else {
            fail("keys expects an array or map");
        }
        return RubyValue(std::move(result));
    });
    bindFunction("table_set", [](RubyVM&, const Args&) { return RubyValue(); });
    bindFunction("table_insert", [](RubyVM& self, const Args& args) {
        requireArgumentCount("table_insert", args, 2, 3);
        RubyArray& elements = requireArray(args, 0, "table_insert expects an array");
        if (elements.size() + 1 > self.limits().maxArrayLength) fail("array is too long");
        if (args.size() == 2) {
            elements.push_back(args[1]);
        } else {
            int64_t position = requireIntegerArgument("table_insert", args, 1);
            if (position < 0 || static_cast<uint64_t>(position) > elements.size()) fail("table_insert index is out of range");
            elements.insert(elements.begin() + static_cast<ptrdiff_t>(position), args[2]);
        }
        return RubyValue();
    });
    bindFunction("table_remove", [](RubyVM&, const Args& args) {
        requireArgumentCount("table_remove", args, 1, 2);
        RubyArray& elements = requireArray(args, 0, "table_remove expects an array");
        if (elements.empty()) return RubyValue();
        int64_t position = args.size() > 1 ? requireIntegerArgument("table_remove", args, 1)
                                           : static_cast<int64_t>(elements.size()) - 1;
        if (position < 0 || static_cast<uint64_t>(position) >= elements.size()) fail("table_remove index is out of range");
        RubyValue removed = std::move(elements[static_cast<size_t>(position)]);
        elements.erase(elements.begin() + static_cast<ptrdiff_t>(position));
        return removed;
    });
    bindFunction("table_sort", [](RubyVM& self, const Args& args) {
        requireArgumentCount("table_sort", args, 1, 1);
        RubyArray& elements = requireArray(args, 0, "table_sort expects an array");
        // Texts and numbers are taken once, before anything moves.
        const size_t n = elements.size();
        std::vector<std::string> texts(n);
        std::vector<double> numbers(n);
        std::vector<char> numeric(n);
        for (size_t i = 0; i < n; ++i) {
            numeric[i] = elements[i].isNumeric();
            if (numeric[i]) numbers[i] = elements[i].asFloat();
            texts[i] = textOf(elements[i], self.limits().maxStringBytes);
        }
        std::vector<size_t> order(n);
        for (size_t i = 0; i < n; ++i) order[i] = i;
        mergeSortIndices(order, [&](size_t a, size_t b) {
            if (numeric[a] && numeric[b]) return numbers[a] < numbers[b];
            return texts[a] < texts[b];
        });
        RubyArray sorted;
        sorted.reserve(n);
        for (size_t i : order) sorted.push_back(std::move(elements[i]));
        elements.swap(sorted);
        return RubyValue();
    });
    bindFunction("table_concat", [](RubyVM& self, const Args& args) {
        requireArgumentCount("table_concat", args, 1, 2);
        RubyArray& elements = requireArray(args, 0, "table_concat expects an array");
        std::string separator = args.size() > 1 ? requireStringArgument("table_concat", args, 1) : std::string();
        std::string out;
        for (size_t i = 0; i < elements.size(); ++i) {
            if (i) out += separator;
            if (!appendText(out, elements[i], self.limits().maxStringBytes)) fail("string is too long");
        }
        return RubyValue(std::move(out));
    });

    auto bindMath = [this](const char* name, double (*fn)(double), bool integral) {
        std::string label = name;
        bindFunction(name, [label, fn, integral](RubyVM&, const Args& args) {
            requireArgumentCount(label.c_str(), args, 1, 1);
            double result = fn(requireNumericArgument(label, args, 0));
            return integral ? numericResult(result) : RubyValue(result);
        });
    };
    bindMath("math_floor", [](double x) { return std::floor(x); }, true);
    bindMath("math_ceil", [](double x) { return std::ceil(x); }, true);
    bindMath("math_abs", [](double x) { return std::fabs(x); }, true);
    auto bindExtreme = [this](const char* name, bool smallest) {
        std::string label = name;
        bindFunction(name, [label, smallest](RubyVM&, const Args& args) {
            requireArgumentCount(label.c_str(), args, 1, kNoUpperLimit);
            double best = requireNumericArgument(label, args, 0);
            for (size_t i = 1; i < args.size(); ++i) {
                double x = requireNumericArgument(label, args, i);
                if (smallest ? x < best : x > best) best = x;
            }
            return numericResult(best);
        });
    };
    bindExtreme("math_min", true);
    bindExtreme("math_max", false);
    bindMath("math_sin", [](double x) { return std::sin(x); }, false);
    bindMath("math_cos", [](double x) { return std::cos(x); }, false);
    bindMath("math_rad", [](double x) { return x * 0.017453292519943295; }, false);
    bindMath("math_log", [](double x) { return std::log(x); }, false);
    bindMath("math_sqrt", [](double x) { return std::sqrt(x); }, false);

    bindFunction("string_upper", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_upper", args, 1, 1);
        std::string text = requireStringArgument("string_upper", args, 0);
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return RubyValue(std::move(text));
    });
    bindFunction("string_sub", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_sub", args, 2, 3);
        const std::string& s = requireStringArgument("string_sub", args, 0);
        int64_t i = requireIntegerArgument("string_sub", args, 1);
        int64_t j = args.size() > 2 ? requireIntegerArgument("string_sub", args, 2) : static_cast<int64_t>(s.size());
        bool empty = false;
        auto [start, size] = subStringRange(s.size(), i, j, empty);
        return RubyValue(empty ? std::string() : s.substr(start, size));
    });
    bindFunction("string_find", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_find", args, 2, 2);
        return findPattern(requireStringArgument("string_find", args, 0), requireStringArgument("string_find", args, 1));
    });
    bindFunction("string_match", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_match", args, 2, 2);
        return matchPattern(requireStringArgument("string_match", args, 0), requireStringArgument("string_match", args, 1));
    });
    bindFunction("string_gmatch", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_gmatch", args, 2, 2);
        return gmatchPattern(requireStringArgument("string_gmatch", args, 0),
                             requireStringArgument("string_gmatch", args, 1));
    });
    bindFunction("string_byte", [](RubyVM&, const Args& args) {
        requireArgumentCount("string_byte", args, 1, 3);
        const std::string& s = requireStringArgument("string_byte", args, 0);
        int64_t i = args.size() > 1 ? requireIntegerArgument("string_byte", args, 1) : 1;
        int64_t j = args.size() > 2 ? requireIntegerArgument("string_byte", args, 2) : i;
        bool empty = false;
        auto [start, size] = subStringRange(s.size(), i, j, empty);
        RubyArray bytes;
        if (!empty)
            for (size_t k = 0; k < size; ++k) bytes.emplace_back(static_cast<int64_t>(static_cast<unsigned char>(s[start + k])));
        return RubyValue(std::move(bytes));
    });
    bindFunction("string_format", [](RubyVM& self, const Args& args) {
        requireArgumentCount("string_format", args, 1, kNoUpperLimit);
        return RubyValue(formatString(requireStringArgument("string_format", args, 0), args, 1, self.limits()));
    });
    bindFunction("string_gsub", [](RubyVM& self, const Args& args) {
        requireArgumentCount("string_gsub", args, 3, 3);
        return RubyValue(gsubPattern(requireStringArgument("string_gsub", args, 0),
                                     requireStringArgument("string_gsub", args, 1),
                                     requireStringArgument("string_gsub", args, 2), self.limits()));
    });
    bindFunction("utf8_len", [](RubyVM&, const Args& args) {
        requireArgumentCount("utf8_len", args, 1, 1);
        int64_t count = 0;
        for (char c : requireStringArgument("utf8_len", args, 0))
            if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++count;
        return RubyValue(count);
    });
}

}  // namespace orvane::ruby
