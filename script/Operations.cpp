#include "script/Operations.h"

#include <cmath>
#include <stdexcept>

namespace orvane {

namespace {

[[noreturn]] void unsupported(char op) {
    throw std::runtime_error(std::string("Unsupported operation '") + op + "' between types");
}

bool bothIntegral(const Variable& a, const Variable& b) {
    return a.type != VarType::Float && b.type != VarType::Float;
}

int32_t wrap(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }

Variable power(const Variable& left, const Variable& right) {
    if (left.type == VarType::Int && right.type == VarType::Int) {
        int64_t base = left.asInt();
        int64_t exponent = right.asInt();
        if (exponent == 0) return Variable(int32_t(1));
        if (exponent > 0) {
            // Square and multiply while everything stays inside 32 bits.
            int64_t result = 1, square = base;
            bool fits = true;
            for (int64_t e = exponent;;) {
                if (e & 1) {
                    result *= square;
                    if (result > INT32_MAX || result < INT32_MIN) { fits = false; break; }
                }
                e >>= 1;
                if (e == 0) break;
                square *= square;
                if (square > INT32_MAX || square < INT32_MIN) { fits = false; break; }
            }
            if (fits) return Variable(int32_t(result));
        }
    }
    double result = std::pow(toDouble(left), toDouble(right));
    if (!std::isfinite(result)) throw std::runtime_error("Invalid exponentiation result");
    if (left.type == VarType::Int && right.type == VarType::Int && right.asInt() >= 0) {
        double whole = std::round(result);
        if (std::fabs(result - whole) <= 1e-6 && whole >= INT32_MIN && whole <= INT32_MAX)
            return Variable(int32_t(whole));
    }
    return Variable(float(result));
}

}  // namespace

Variable performOperation(const Variable& left, char op, const Variable& right) {
    if (op == '+' && (left.type == VarType::String || right.type == VarType::String))
        return Variable(left.toString() + right.toString());
    switch (op) {
    case '+': case '-': case '*': case '/': case '\\': case '%': case '^': break;
    default: throw std::runtime_error(std::string("Unsupported operation: ") + op);
    }
    if (!isNumericVariable(left) || !isNumericVariable(right)) unsupported(op);

    switch (op) {
    case '+': case '-': case '*':
        if (bothIntegral(left, right)) {
            int64_t a = toInt(left), b = toInt(right);
            return Variable(wrap(op == '+' ? a + b : op == '-' ? a - b : a * b));
        } else {
            float a = toFloat(left), b = toFloat(right);
            return Variable(op == '+' ? a + b : op == '-' ? a - b : a * b);
        }
    case '/': {
        double divisor = toDouble(right);
        if (divisor == 0.0) throw std::runtime_error("Division by zero");
        return Variable(float(toDouble(left) / divisor));
    }
    case '\\': {
        int64_t divisor = toInt(right);
        if (divisor == 0) throw std::runtime_error("Division by zero");
        return Variable(wrap(int64_t(toInt(left)) / divisor));
    }
    case '%':
        if (bothIntegral(left, right)) {
            int64_t divisor = toInt(right);
            if (divisor == 0) throw std::runtime_error("Division by zero");
            return Variable(wrap(int64_t(toInt(left)) % divisor));
        } else {
            float divisor = toFloat(right);
            if (divisor == 0.0f) throw std::runtime_error("Division by zero");
            return Variable(std::fmod(toFloat(left), divisor));
        }
    default: return power(left, right);
    }
}

Variable performOperation(const Variable& left, const std::string& op, const Variable& right) {
    if (op.size() != 1) throw std::runtime_error("Unsupported operation: " + op);
    return performOperation(left, op[0], right);
}

bool tryApplyOperationInPlace(Variable& target, char op, const Variable& right) {
    if (op == '+' && target.type == VarType::String) {
        if (right.type == VarType::String) target.asString() += right.asString();
        else target.asString() += right.toString();
        return true;
    }
    if (target.type == VarType::Int && right.type == VarType::Int) {
        int64_t a = target.asInt(), b = right.asInt();
        switch (op) {
        case '+': target.value = wrap(a + b); return true;
        case '-': target.value = wrap(a - b); return true;
        case '*': target.value = wrap(a * b); return true;
        default: return false;
        }
    }
    if (target.type == VarType::Float && (right.type == VarType::Float || right.type == VarType::Int)) {
        float a = target.asFloat(), b = toFloat(right);
        switch (op) {
        case '+': target.value = a + b; return true;
        case '-': target.value = a - b; return true;
        case '*': target.value = a * b; return true;
        default: return false;
        }
    }
    return false;
}

bool variablesEqual(const Variable& a, const Variable& b) {
    if (isNumericVariable(a) && isNumericVariable(b)) return toDouble(a) == toDouble(b);
    if (a.type != b.type) return false;
    switch (a.type) {
    case VarType::Nil: return true;
    case VarType::String: return a.asString() == b.asString();
    case VarType::Raw: return a.asRaw() == b.asRaw();
    case VarType::Pointer: return a.asPointer() == b.asPointer();
    case VarType::Array: return a.asArray() == b.asArray();
    case VarType::Multi: return a.asMulti() == b.asMulti();
    case VarType::Table: return a.asTable() == b.asTable();
    case VarType::Function: return a.asCallable() == b.asCallable();
    default: return false;
    }
}

int compareVariables(const Variable& a, const Variable& b) {
    if (isNumericVariable(a) && isNumericVariable(b)) {
        double x = toDouble(a), y = toDouble(b);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    if (a.type == VarType::String && b.type == VarType::String) {
        int c = a.asString().compare(b.asString());
        return c < 0 ? -1 : (c > 0 ? 1 : 0);
    }
    throw std::runtime_error(std::string("Cannot compare ") + typeName(a.type) + " with " + typeName(b.type));
}

std::string keyToString(const Variable& key) {
    switch (key.type) {
    case VarType::Int: return std::to_string(key.asInt());
    case VarType::Float: return formatFloat(key.asFloat());
    case VarType::String: return key.asString();
    case VarType::Bool: return key.asBool() ? "true" : "false";
    default: throw std::runtime_error("Table key must be string, number, or bool");
    }
}

bool tryGetArrayIndex(const Variable& key, int32_t& out) {
    if (key.type == VarType::Int) {
        out = key.asInt();
        return true;
    }
    if (key.type == VarType::Float) {
        double f = key.asFloat();
        if (std::isfinite(f) && f == std::floor(f) && f >= INT32_MIN && f <= INT32_MAX) {
            out = int32_t(f);
            return true;
        }
    }
    return false;
}

bool prefersArrayStorage(const Variable& key) {
    int32_t index;
    return tryGetArrayIndex(key, index) && index > 0;
}

// The tokens behind which a lone `not` is the nil literal rather than a negation.
bool isStandaloneNotBoundary(const std::string& t) {
    static const char* const boundaries[] = {")", "]", "}", ",", "+", "-", "*", "/", "\\", "%", "^", "<", ">",
                                             "<=", ">=", "==", "!=", "~=", "&&", "||", "and", "or", "end",
                                             "else", "elseif", "until", ""};
    for (const char* b : boundaries)
        if (t == b) return true;
    return false;
}

std::string decodeStringToken(const std::string& token) {
    if (token.size() < 2 || (token[0] != '"' && token[0] != '\'') || token.back() != token[0]) return token;
    std::string out;
    out.reserve(token.size() - 2);
    size_t end = token.size() - 1;
    for (size_t i = 1; i < end; ++i) {
        char c = token[i];
        if (c != '\\' || i + 1 >= end) {
            out += c;
            continue;
        }
        char next = token[++i];
        switch (next) {
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        default: out += next; break;
        }
    }
    return out;
}

}  // namespace orvane
