#include "ruby/Operations.h"

#include <cmath>
#include <stdexcept>

#include "ruby/ValueAccess.h"

namespace orvane::ruby {
namespace {

using A = RubyValueAccess;

bool bothIntegers(const RubyValue& a, const RubyValue& b) {
    return a.type() == RubyValueType::Integer && b.type() == RubyValueType::Integer;
}

void requireNumbers(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line, const char* message) {
    if (!a.isNumeric() || !b.isNumeric()) runtimeError(program, line, message);
}

// Equality deeper than this is refused: only a container that holds itself gets there.
constexpr int kMaxEqualityDepth = 200;
constexpr size_t kMaxEqualityVisits = size_t(1) << 24;

bool equalAt(const RubyValue& a, const RubyValue& b, int depth, size_t& visits) {
    if (++visits > kMaxEqualityVisits) throw std::runtime_error("value is too large to compare");
    if (a.type() != b.type()) {
        if (a.isNumeric() && b.isNumeric()) return std::fabs(a.asFloat() - b.asFloat()) <= kEpsilon;
        return false;
    }
    switch (a.type()) {
    case RubyValueType::Nil: return true;
    case RubyValueType::Integer: return A::integer(a) == A::integer(b);
    case RubyValueType::Float: return A::number(a) == A::number(b);
    case RubyValueType::Boolean: return A::boolean(a) == A::boolean(b);
    case RubyValueType::String: return A::string(a) == A::string(b);
    case RubyValueType::Array: {
        if (depth >= kMaxEqualityDepth) throw std::runtime_error("value nesting is too deep");
        const RubyArray& x = A::array(a);
        const RubyArray& y = A::array(b);
        if (x.size() != y.size()) return false;
        for (size_t i = 0; i < x.size(); ++i)
            if (!equalAt(x[i], y[i], depth + 1, visits)) return false;
        return true;
    }
    case RubyValueType::Map: {
        if (depth >= kMaxEqualityDepth) throw std::runtime_error("value nesting is too deep");
        const RubyMap& x = A::map(a);
        const RubyMap& y = A::map(b);
        if (x.size() != y.size()) return false;
        for (const auto& [key, value] : x) {
            auto other = y.find(key);
            if (other == y.end() || !equalAt(value, other->second, depth + 1, visits)) return false;
        }
        return true;
    }
    case RubyValueType::Function: return A::function(a) == A::function(b);
    default: return false;
    }
}

}  // namespace

std::string locationFor(const Program& program, uint32_t line, const std::string& message) {
    return program.chunkName + ":" + std::to_string(line) + ": " + message;
}

void runtimeError(const Program& program, uint32_t line, const std::string& message) {
    throw std::runtime_error(locationFor(program, line, message));
}

RubyValue addValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line,
                    const RubyLimits& limits) {
    if (a.isString() || b.isString()) {
        std::string text;
        bool fits;
        if (a.isString() && b.isString()) {
            const std::string& x = A::string(a);
            const std::string& y = A::string(b);
            fits = x.size() + y.size() <= limits.maxStringBytes;
            if (fits) {
                text.reserve(x.size() + y.size());
                text += x;
                text += y;
            }
        } else {
            fits = appendText(text, a, limits.maxStringBytes) && appendText(text, b, limits.maxStringBytes);
        }
        if (!fits) runtimeError(program, line, "string is too long");
        return RubyValue(std::move(text));
    }
    if (a.isArray() && b.isArray()) {
        const RubyArray& x = A::array(a);
        const RubyArray& y = A::array(b);
        if (x.size() + y.size() > limits.maxArrayLength) runtimeError(program, line, "array is too long");
        RubyArray joined;
        joined.reserve(x.size() + y.size());
        joined.insert(joined.end(), x.begin(), x.end());
        joined.insert(joined.end(), y.begin(), y.end());
        return RubyValue(std::move(joined));
    }
    requireNumbers(a, b, program, line, "operator '+' expects numbers, strings, or arrays");
    if (bothIntegers(a, b)) return RubyValue(wrapAdd(A::integer(a), A::integer(b)));
    return RubyValue(a.asFloat() + b.asFloat());
}

RubyValue subtractValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line) {
    requireNumbers(a, b, program, line, "operator '-' expects numeric values");
    if (bothIntegers(a, b)) return RubyValue(wrapSubtract(A::integer(a), A::integer(b)));
    return RubyValue(a.asFloat() - b.asFloat());
}

RubyValue multiplyValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line) {
    requireNumbers(a, b, program, line, "operator '*' expects numeric values");
    if (bothIntegers(a, b)) return RubyValue(wrapMultiply(A::integer(a), A::integer(b)));
    return RubyValue(a.asFloat() * b.asFloat());
}

RubyValue divideValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line) {
    requireNumbers(a, b, program, line, "operator '/' expects numeric values");
    double divisor = b.asFloat();
    if (std::fabs(divisor) <= kEpsilon) runtimeError(program, line, "division by zero");
    return RubyValue(a.asFloat() / divisor);
}

RubyValue moduloValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line) {
    requireNumbers(a, b, program, line, "operator '%' expects numeric values");
    double divisor = b.asFloat();
    if (std::fabs(divisor) <= kEpsilon) runtimeError(program, line, "modulo by zero");
    if (bothIntegers(a, b)) return RubyValue(integerRemainder(A::integer(a), A::integer(b)));
    return RubyValue(std::fmod(a.asFloat(), divisor));
}

RubyValue negateValue(const RubyValue& a, const Program& program, uint32_t line) {
    if (!a.isNumeric()) runtimeError(program, line, "unary '-' expects a numeric value");
    if (a.isInteger()) return RubyValue(wrapSubtract(0, A::integer(a)));
    return RubyValue(-a.asFloat());
}

bool compareOrdered(const RubyValue& a, const RubyValue& b, CompareOp op, const Program& program, uint32_t line) {
    if (a.isNumeric() && b.isNumeric()) {
        double x = a.asFloat();
        double y = b.asFloat();
        switch (op) {
        case CompareOp::Less: return x < y;
        case CompareOp::LessEqual: return x <= y;
        case CompareOp::Greater: return x > y;
        case CompareOp::GreaterEqual: return x >= y;
        }
    }
    if (a.isString() && b.isString()) {
        int order = A::string(a).compare(A::string(b));
        switch (op) {
        case CompareOp::Less: return order < 0;
        case CompareOp::LessEqual: return order <= 0;
        case CompareOp::Greater: return order > 0;
        case CompareOp::GreaterEqual: return order >= 0;
        }
    }
    runtimeError(program, line, "ordered comparisons require matching numeric or string values");
}

bool valuesEqual(const RubyValue& a, const RubyValue& b) {
    size_t visits = 0;
    return equalAt(a, b, 0, visits);
}

std::string textOf(const RubyValue& value, size_t maxBytes) {
    std::string text;
    if (!appendText(text, value, maxBytes)) throw std::runtime_error("string is too long");
    return text;
}

std::string valueKeyString(const RubyValue& key) {
    switch (key.type()) {
    case RubyValueType::Nil:
    case RubyValueType::Integer:
    case RubyValueType::Float:
    case RubyValueType::Boolean: return key.toString();
    case RubyValueType::String: return A::string(key);
    default: throw std::runtime_error("unsupported map key type");
    }
}

const RubyValue* findMapValue(const RubyMap& map, const RubyValue& key) {
    auto found = key.isString() ? map.find(A::string(key)) : map.find(valueKeyString(key));
    return found == map.end() ? nullptr : &found->second;
}

RubyValue& setMapValue(RubyMap& map, const RubyValue& key) {
    if (key.isString()) return map[A::string(key)];
    return map[valueKeyString(key)];
}

RubyValue arrayGet(const RubyValue& object, const RubyValue& index, const Program& program, uint32_t line) {
    if (object.isMap()) {
        const RubyValue* found = findMapValue(A::map(object), index);
        return found ? *found : RubyValue();
    }
    if (!index.isNumeric()) runtimeError(program, line, "array index must be numeric");
    int64_t position = index.asInteger();
    if (position < 0) runtimeError(program, line, "array index must be non-negative");
    auto at = static_cast<uint64_t>(position);
    if (object.isArray()) {
        const RubyArray& elements = A::array(object);
        return at < elements.size() ? elements[at] : RubyValue();
    }
    if (object.isString()) {
        const std::string& text = A::string(object);
        return at < text.size() ? RubyValue(std::string(1, text[at])) : RubyValue();
    }
    runtimeError(program, line, "indexing expects an array, map, or string");
}

}  // namespace orvane::ruby
