// Evaluating compiled expressions: integer, truth and scalar evaluators that never build a
// Variable, and the general node evaluator that gives the reference meaning of each node.
#include <cmath>
#include <stdexcept>

#include "script/ArgumentBuffer.h"
#include "script/FastScalarOps.h"
#include "script/Operations.h"
#include "script/OrvaneScript.h"
#include "script/PackedScalar.h"

namespace orvane {

namespace {

using Tokens = std::vector<std::string>;
using Analyses = std::vector<TokenAnalysis>;
using Kind = FastExprNodeKind;

const FastExprNode& nodeAt(const FastExpression& e, int32_t n) { return e.nodes[size_t(n)]; }

bool hasCall(const FastExpression& e, int32_t n) { return n >= 0 && (nodeAt(e, n).flags & kFastExprNodeHasCall); }
bool mayFloat(const FastExpression& e, int32_t n) { return nodeAt(e, n).flags & kFastExprNodeMayFloat; }

int32_t wrap(int64_t v) { return wrapInt32(v); }

Variable scalarToVariable(const FastScalarValue& s) { return fastScalarToVariable(s); }

char operatorChar(Kind k) {
    switch (k) {
    case Kind::Add: return '+';
    case Kind::Sub: return '-';
    case Kind::Mul: return '*';
    case Kind::Div: return '/';
    case Kind::IntDiv: return '\\';
    case Kind::Mod: return '%';
    default: return '^';
    }
}

// A string.byte call gives one value: what the scalar route can take.
bool stringByteRangeReturnsScalar(const Variable* args, size_t count) {
    if (count < 3 || args[0].type != VarType::String) return count <= 3;
    if (count > 3) return false;
    int64_t length = int64_t(args[0].asString().size());
    if (length == 0) return true;
    auto position = [&](const Variable& v) {
        int64_t p = toInt(v);
        if (p < 0) p = length + p + 1;
        return p;
    };
    int64_t i = std::max<int64_t>(position(args[1]), 1), j = std::min(position(args[2]), length);
    return i > j || i == j;
}

}  // namespace

// Compares two scalars as the comparison nodes do; false when the kinds don't allow it.
bool compareScalars(Kind kind, const FastScalarValue& a, const FastScalarValue& b, bool& out) {
    if (kind == Kind::Eq || kind == Kind::Ne) {
        bool equal;
        if (a.kind == FastScalarValue::Nil || b.kind == FastScalarValue::Nil) equal = a.kind == b.kind;
        else if (fastScalarIsNumeric(a) && fastScalarIsNumeric(b)) equal = fastScalarToDouble(a) == fastScalarToDouble(b);
        else return false;
        out = kind == Kind::Eq ? equal : !equal;
        return true;
    }
    if (!fastScalarIsNumeric(a) || !fastScalarIsNumeric(b)) return false;
    double x = fastScalarToDouble(a), y = fastScalarToDouble(b);
    switch (kind) {
    case Kind::Lt: out = x < y; return true;
    case Kind::Gt: out = x > y; return true;
    case Kind::Le: out = x <= y; return true;
    case Kind::Ge: out = x >= y; return true;
    default: return false;
    }
}

bool negateScalar(const FastScalarValue& v, FastScalarValue& out) {
    if (!fastScalarIsNumeric(v)) return false;
    if (v.kind == FastScalarValue::Float) out = FastScalarValue::makeFloat(-v.floatValue);
    else out = FastScalarValue::makeInt(wrap(-int64_t(fastScalarToInt(v))));
    return true;
}

bool applyScalarArithmetic(Kind kind, const FastScalarValue& a, const FastScalarValue& b, FastScalarValue& out) {
    if (!fastScalarIsNumeric(a) || !fastScalarIsNumeric(b)) return false;
    switch (kind) {
    case Kind::IntDiv: {
        int64_t y = fastScalarToInt(b);
        if (y == 0) throw std::runtime_error("Division by zero");
        out = FastScalarValue::makeInt(wrap(int64_t(fastScalarToInt(a)) / y));
        return true;
    }
    case Kind::Div: {
        double y = fastScalarToDouble(b);
        if (y == 0.0) throw std::runtime_error("Division by zero");
        out = FastScalarValue::makeFloat(float(fastScalarToDouble(a) / y));
        return true;
    }
    case Kind::Pow: {
        double result = std::pow(fastScalarToDouble(a), fastScalarToDouble(b));
        if (!std::isfinite(result)) throw std::runtime_error("Invalid exponentiation result");
        out = FastScalarValue::makeFloat(float(result));
        return true;
    }
    default: break;
    }
    if (a.kind != FastScalarValue::Float && b.kind != FastScalarValue::Float) {
        int64_t x = fastScalarToInt(a), y = fastScalarToInt(b);
        switch (kind) {
        case Kind::Add: out = FastScalarValue::makeInt(wrap(x + y)); return true;
        case Kind::Sub: out = FastScalarValue::makeInt(wrap(x - y)); return true;
        case Kind::Mul: out = FastScalarValue::makeInt(wrap(x * y)); return true;
        default:
            if (y == 0) throw std::runtime_error("Division by zero");
            out = FastScalarValue::makeInt(wrap(x % y));
            return true;
        }
    }
    // A float on either side: both operands as floats, an integer rounded to the nearest one.
    double x = fastScalarToFloat(a), y = fastScalarToFloat(b);
    switch (kind) {
    case Kind::Add: out = FastScalarValue::makeFloat(float(x + y)); return true;
    case Kind::Sub: out = FastScalarValue::makeFloat(float(x - y)); return true;
    case Kind::Mul: out = FastScalarValue::makeFloat(float(x * y)); return true;
    default:
        if (y == 0.0) throw std::runtime_error("Division by zero");
        out = FastScalarValue::makeFloat(float(std::fmod(x, y)));
        return true;
    }
}

Variable fastScalarToVariable(const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int: return Variable(s.intValue);
    case FastScalarValue::Float: return Variable(s.floatValue);
    case FastScalarValue::Bool: return Variable(s.boolValue);
    default: return Variable();
    }
}

// The innermost node that raised names the near token, as the token evaluator's last read
// token would; outer nodes leave it alone.
void OrvaneScript::noteFastErrorToken(const std::vector<std::string>& tokens, const FastExpression& e, int32_t n) {
    if (nearTokenFromFast || n < 0 || size_t(n) >= e.nodes.size()) return;
    uint16_t index = e.nodes[size_t(n)].errorToken;
    if (index < tokens.size()) nearToken = tokens[index];
    nearTokenFromFast = true;
}

bool OrvaneScript::tryFastScalarFromIndexedValue(const Variable& base, const Variable& index, FastScalarValue& out) {
    if (base.type == VarType::Array) {
        int32_t position;
        if (!tryGetArrayIndex(index, position) || position < 1) return false;
        const VariableArray& items = *base.asArray();
        if (size_t(position) > items.size()) {
            out = FastScalarValue::makeNil();
            return true;
        }
        return scalarFromVariable(items[size_t(position) - 1], out);
    }
    if (base.type == VarType::Table) {
        if (index.type != VarType::Int && index.type != VarType::Float && index.type != VarType::String &&
            index.type != VarType::Bool)
            return false;
        const VariableTable& table = *base.asTable();
        auto it = table.find(keyToString(index));
        if (it == table.end()) {
            out = FastScalarValue::makeNil();
            return true;
        }
        return scalarFromVariable(it->second, out);
    }
    return false;
}

bool OrvaneScript::tryEvaluateFastExpressionIntNode(const FastExpression& e, int32_t n, const Tokens& tokens,
                                                    Analyses& analyses, int32_t& out) try {
    const FastExprNode& node = nodeAt(e, n);
    switch (node.kind) {
    case Kind::Int: out = node.intValue; return true;
    case Kind::Bool: out = node.boolValue ? 1 : 0; return true;
    case Kind::Variable: {
        const Variable* v = resolveFast(tokens[node.tokenIndex], analyses[node.tokenIndex]);
        if (!v) return false;
        if (v->type == VarType::Int) { out = v->asInt(); return true; }
        if (v->type == VarType::Bool) { out = v->asBool() ? 1 : 0; return true; }
        return false;
    }
    case Kind::Index: {
        FastScalarValue s;
        if (!tryEvaluateFastExpressionScalarNode(e, n, tokens, analyses, s)) return false;
        if (s.kind == FastScalarValue::Int) { out = s.intValue; return true; }
        if (s.kind == FastScalarValue::Bool) { out = s.boolValue ? 1 : 0; return true; }
        return false;
    }
    case Kind::Negate: {
        int32_t v;
        if (!tryEvaluateFastExpressionIntNode(e, node.left, tokens, analyses, v)) return false;
        out = wrap(-int64_t(v));
        return true;
    }
    case Kind::Length: {
        const FastExprNode& child = nodeAt(e, node.left);
        if (child.kind == Kind::Variable) {
            const Variable* v = resolveFast(tokens[child.tokenIndex], analyses[child.tokenIndex]);
            out = arrayLength(v ? *v : Variable());
        } else {
            out = arrayLength(evaluateFastExpressionNode(e, node.left, tokens, analyses));
        }
        return true;
    }
    case Kind::Add: case Kind::Sub: case Kind::Mul: case Kind::IntDiv: case Kind::Mod: {
        int32_t a, b;
        if (!tryEvaluateFastExpressionIntNode(e, node.left, tokens, analyses, a)) return false;
        if (!tryEvaluateFastExpressionIntNode(e, node.right, tokens, analyses, b)) return false;
        // Two integers give an integer by the scalar arithmetic's one rule.
        out = packed::intOf(packed::arithmetic(node.kind, packed::packInt(a), packed::packInt(b)));
        return true;
    }
    default: return false;
    }
} catch (const std::exception&) {
    noteFastErrorToken(tokens, e, n);
    throw;
}

bool OrvaneScript::tryEvaluateFastExpressionBoolNode(const FastExpression& e, int32_t n, const Tokens& tokens,
                                                     Analyses& analyses, bool& out) {
    const FastExprNode& node = nodeAt(e, n);
    auto truth = [&](int32_t child, bool& value) {
        if (tryEvaluateFastExpressionBoolNode(e, child, tokens, analyses, value)) return true;
        FastScalarValue s;
        if (!tryEvaluateFastExpressionScalarNode(e, child, tokens, analyses, s)) return false;
        value = fastScalarIsTruthy(s);
        return true;
    };
    switch (node.kind) {
    case Kind::Or:
    case Kind::And: {
        bool left;
        if (!truth(node.left, left)) return false;
        if ((node.kind == Kind::Or) == left) {
            out = left;
            return true;
        }
        // The right side runs only when it decides; refusing it here is still free of effects.
        return truth(node.right, out);
    }
    case Kind::Eq: case Kind::Ne: case Kind::Lt: case Kind::Gt: case Kind::Le: case Kind::Ge: {
        if (!mayFloat(e, n)) {
            int32_t a, b;
            if (tryEvaluateFastExpressionIntNode(e, node.left, tokens, analyses, a) &&
                tryEvaluateFastExpressionIntNode(e, node.right, tokens, analyses, b)) {
                out = compareNumbers(node.kind, a, b);
                return true;
            }
        }
        FastScalarValue a, b;
        if (!tryEvaluateFastExpressionScalarNode(e, node.left, tokens, analyses, a)) return false;
        if (!tryEvaluateFastExpressionScalarNode(e, node.right, tokens, analyses, b)) return false;
        return compareScalars(node.kind, a, b, out);
    }
    case Kind::Not: {
        bool v;
        if (!truth(node.left, v)) return false;
        out = !v;
        return true;
    }
    case Kind::Int: out = node.intValue != 0; return true;
    case Kind::Bool: out = node.boolValue; return true;
    case Kind::Variable: {
        const Variable* v = resolveFast(tokens[node.tokenIndex], analyses[node.tokenIndex]);
        if (!v || v->type == VarType::Nil) { out = false; return true; }
        switch (v->type) {
        case VarType::Int: out = v->asInt() != 0; return true;
        case VarType::Float: out = v->asFloat() != 0.0f; return true;
        case VarType::Bool: out = v->asBool(); return true;
        default: return false;
        }
    }
    default: return false;
    }
}

bool OrvaneScript::tryEvaluateFastExpressionScalarNode(const FastExpression& e, int32_t n, const Tokens& tokens,
                                                       Analyses& analyses, FastScalarValue& out) try {
    const FastExprNode& node = nodeAt(e, n);
    switch (node.kind) {
    case Kind::Int: out = FastScalarValue::makeInt(node.intValue); return true;
    case Kind::Float: out = FastScalarValue::makeFloat(node.floatValue); return true;
    case Kind::Bool: out = FastScalarValue::makeBool(node.boolValue); return true;
    case Kind::Nil: out = FastScalarValue::makeNil(); return true;
    case Kind::Variable: {
        const Variable* v = resolveFast(tokens[node.tokenIndex], analyses[node.tokenIndex]);
        if (!v) {
            out = FastScalarValue::makeNil();
            return true;
        }
        return scalarFromVariable(*v, out);
    }
    case Kind::Or:
    case Kind::And: {
        FastScalarValue left;
        if (!tryEvaluateFastExpressionScalarNode(e, node.left, tokens, analyses, left)) return false;
        if ((node.kind == Kind::Or) == fastScalarIsTruthy(left)) {
            out = left;
            return true;
        }
        return tryEvaluateFastExpressionScalarNode(e, node.right, tokens, analyses, out);
    }
    case Kind::Eq: case Kind::Ne: case Kind::Lt: case Kind::Gt: case Kind::Le: case Kind::Ge: {
        bool b;
        if (!tryEvaluateFastExpressionBoolNode(e, n, tokens, analyses, b)) return false;
        out = FastScalarValue::makeBool(b);
        return true;
    }
    case Kind::Add: case Kind::Sub: case Kind::Mul: case Kind::Mod:
    case Kind::Div: case Kind::IntDiv: case Kind::Pow: {
        // Both sides once as scalars: two integers give the integer evaluator's answer.
        FastScalarValue a, b;
        if (!tryEvaluateFastExpressionScalarNode(e, node.left, tokens, analyses, a)) return false;
        if (!tryEvaluateFastExpressionScalarNode(e, node.right, tokens, analyses, b)) return false;
        return applyScalarArithmetic(node.kind, a, b, out);
    }
    case Kind::Length: {
        int32_t length;
        if (!tryEvaluateFastExpressionIntNode(e, n, tokens, analyses, length)) return false;
        out = FastScalarValue::makeInt(length);
        return true;
    }
    case Kind::Not: {
        bool b;
        if (!tryEvaluateFastExpressionBoolNode(e, n, tokens, analyses, b)) return false;
        out = FastScalarValue::makeBool(b);
        return true;
    }
    case Kind::Negate: {
        FastScalarValue v;
        if (!tryEvaluateFastExpressionScalarNode(e, node.left, tokens, analyses, v)) return false;
        return negateScalar(v, out);
    }
    case Kind::Index: return tryScalarIndex(e, node, tokens, analyses, out);
    case Kind::Call: return tryScalarCall(e, node, tokens, analyses, out);
    default: return false;
    }
} catch (const std::exception&) {
    noteFastErrorToken(tokens, e, n);
    throw;
}

// Kept out of the scalar evaluator's own frame, which stays small for the arithmetic nodes.
bool OrvaneScript::tryScalarIndex(const FastExpression& e, const FastExprNode& node, const Tokens& tokens,
                                  Analyses& analyses, FastScalarValue& out) {
    const FastExprNode& base = nodeAt(e, node.left);
    const FastExprNode& key = nodeAt(e, node.right);
    const Variable* basePtr = nullptr;
    Variable baseValue;
    if (base.kind == Kind::Variable) {
        basePtr = resolveFast(tokens[base.tokenIndex], analyses[base.tokenIndex]);
        if (!basePtr) return false;
    } else {
        if (hasCall(e, node.left)) return false;
        baseValue = evaluateFastExpressionNode(e, node.left, tokens, analyses);
        basePtr = &baseValue;
    }
    if (key.kind == Kind::String && basePtr->type == VarType::Table) {
        const VariableTable& table = *basePtr->asTable();
        auto it = table.find(e.strings[key.stringIndex]);
        if (it == table.end()) {
            out = FastScalarValue::makeNil();
            return true;
        }
        return scalarFromVariable(it->second, out);
    }
    FastScalarValue keyScalar;
    Variable keyValue;
    if (tryEvaluateFastExpressionScalarNode(e, node.right, tokens, analyses, keyScalar)) {
        keyValue = scalarToVariable(keyScalar);
    } else {
        if (hasCall(e, node.right)) return false;
        keyValue = evaluateFastExpressionNode(e, node.right, tokens, analyses);
    }
    return tryFastScalarFromIndexedValue(*basePtr, keyValue, out);
}

bool OrvaneScript::tryScalarCall(const FastExpression& e, const FastExprNode& node, const Tokens& tokens,
                                 Analyses& analyses, FastScalarValue& out) {
    // Only natives without effects are run here, so that a refusal never repeats a call.
    const FastExprNode& callee = nodeAt(e, node.left);
    const Variable* function = nullptr;
    if (callee.kind == Kind::Variable) {
        function = resolveFast(tokens[callee.tokenIndex], analyses[callee.tokenIndex]);
    } else if (callee.kind == Kind::Index && nodeAt(e, callee.left).kind == Kind::Variable &&
               nodeAt(e, callee.right).kind == Kind::String) {
        const FastExprNode& table = nodeAt(e, callee.left);
        const Variable* t = resolveFast(tokens[table.tokenIndex], analyses[table.tokenIndex]);
        if (t && t->type == VarType::Table) {
            auto it = t->asTable()->find(e.strings[nodeAt(e, callee.right).stringIndex]);
            if (it != t->asTable()->end()) function = &it->second;
        }
    }
    if (!function || function->type != VarType::Function || !function->asCallable() ||
        !function->asCallable()->isNative)
        return false;
    uint8_t id = function->asCallable()->builtinId;
    size_t count = size_t(node.intValue);
    if (size_t(node.right) + count > e.callArgs.size()) return false;
    const int32_t* argNodes = e.callArgs.data() + node.right;
    bool scalarAnswered = id == kBuiltinGetTimeMs || (id >= kBuiltinMathFloor && id <= kBuiltinMathSqrt);
    bool dispatched = id == kBuiltinToNumber || id == kBuiltinLen || id == kBuiltinStringLen ||
                      id == kBuiltinStringByte || id == kBuiltinUtf8Len;
    if (!scalarAnswered && !dispatched) return false;
    if (count > 8) return false;
    ArgumentBuffer args(count);
    if (scalarAnswered) {
        for (size_t i = 0; i < count; ++i) {
            FastScalarValue s;
            if (!tryEvaluateFastExpressionScalarNode(e, argNodes[i], tokens, analyses, s)) return false;
            args.pushFrom([&] { return scalarToVariable(s); });
        }
    } else {
        for (size_t i = 0; i < count; ++i)
            if (hasCall(e, argNodes[i])) return false;
        for (size_t i = 0; i < count; ++i)
            args.pushFrom([&] { return evaluateFastExpressionNode(e, argNodes[i], tokens, analyses); });
    }
    return tryEvaluateNativeBuiltinScalar(id, args.data(), count, out);
}

bool OrvaneScript::tryEvaluateNativeBuiltinScalar(uint8_t id, const Variable* args, size_t count, FastScalarValue& out) {
    if (id == kBuiltinGetTimeMs) {
        if (count != 0) throw std::runtime_error("getTimeMs function takes no arguments");
        return scalarFromVariable(getTimeMsFunction(args, 0), out);
    }
    bool numericArgs = true;
    for (size_t i = 0; i < count; ++i) numericArgs = numericArgs && isNumericVariable(args[i]);
    if (id >= kBuiltinMathFloor && id <= kBuiltinMathSqrt) {
        // A wrong count or kind is the library's to report on the full path.
        bool countOk = (id == kBuiltinMathMin || id == kBuiltinMathMax) ? count >= 1
                       : id == kBuiltinMathLog                        ? (count == 1 || count == 2)
                                                                      : count == 1;
        if (!countOk || !numericArgs) return false;
    } else if (id == kBuiltinStringByte) {
        if (!stringByteRangeReturnsScalar(args, count)) return false;
    } else if (id != kBuiltinToNumber && id != kBuiltinLen && id != kBuiltinStringLen && id != kBuiltinUtf8Len) {
        return false;
    } else if (id == kBuiltinToNumber && count != 1 && count != 2) {
        return false;
    }
    Variable result = dispatchBuiltinFast(id, args, count);
    return scalarFromVariable(result, out);
}

// A tree of Add nodes over string literals and toString(x) calls: the shape that concatenates
// into one string with no intermediate ones. Checked whole before anything runs.
bool OrvaneScript::isFastStringConcat(const FastExpression& e, int32_t n, const Tokens& tokens, Analyses& analyses) {
    const FastExprNode& node = nodeAt(e, n);
    if (node.kind == Kind::Add)
        return isFastStringConcat(e, node.left, tokens, analyses) && isFastStringConcat(e, node.right, tokens, analyses);
    if (node.kind == Kind::String) return true;
    if (node.kind != Kind::Call || node.intValue != 1 || size_t(node.right) >= e.callArgs.size()) return false;
    const FastExprNode& callee = nodeAt(e, node.left);
    if (callee.kind != Kind::Variable) return false;
    const Variable* f = resolveFast(tokens[callee.tokenIndex], analyses[callee.tokenIndex]);
    return f && f->type == VarType::Function && f->asCallable() && f->asCallable()->isNative &&
           f->asCallable()->builtinId == kBuiltinToString;
}

bool OrvaneScript::appendFastStringConcatNode(const FastExpression& e, int32_t n, const Tokens& tokens,
                                              Analyses& analyses, std::string& text) {
    if (!isFastStringConcat(e, n, tokens, analyses)) return false;
    appendConcatLeaves(e, n, tokens, analyses, text);
    return true;
}

void OrvaneScript::appendConcatLeaves(const FastExpression& e, int32_t n, const Tokens& tokens, Analyses& analyses,
                                      std::string& text) {
    const FastExprNode& node = nodeAt(e, n);
    if (node.kind == Kind::Add) {
        appendConcatLeaves(e, node.left, tokens, analyses, text);
        if (shouldAbortForSoftRaisedError()) return;
        appendConcatLeaves(e, node.right, tokens, analyses, text);
    } else if (node.kind == Kind::String) {
        text += e.strings[node.stringIndex];
    } else {
        Variable value = evaluateFastExpressionNode(e, e.callArgs[size_t(node.right)], tokens, analyses);
        if (shouldAbortForSoftRaisedError()) return;
        if (value.type == VarType::String) text += value.asString();
        else text += value.toString();
    }
}

// A scalar answer first; a string concatenation refuses there at its first leaf and is then
// built in one piece by the general evaluator's Add.
Variable OrvaneScript::evaluateFastExpression(const FastExpression& e, const Tokens& tokens, Analyses& analyses) {
    FastScalarValue scalar;
    if (tryEvaluateFastExpressionScalar(e, tokens, analyses, scalar)) return scalarToVariable(scalar);
    return evaluateFastExpressionNode(e, e.root, tokens, analyses);
}

Variable OrvaneScript::evaluateFastExpressionNode(const FastExpression& e, int32_t n, const Tokens& tokens,
                                                  Analyses& analyses) try {
    if (n < 0 || size_t(n) >= e.nodes.size()) return Variable();
    const FastExprNode& node = nodeAt(e, n);
    auto eval = [&](int32_t child) { return evaluateFastExpressionNode(e, child, tokens, analyses); };
    switch (node.kind) {
    case Kind::Int: return Variable(node.intValue);
    case Kind::Float: return Variable(node.floatValue);
    case Kind::String: return Variable(e.strings[node.stringIndex]);
    case Kind::Bool: return Variable(node.boolValue);
    case Kind::Nil: return Variable();
    case Kind::Variable: {
        const Variable* v = resolveFast(tokens[node.tokenIndex], analyses[node.tokenIndex]);
        return v ? *v : Variable();
    }
    case Kind::And:
    case Kind::Or: {
        Variable left = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        if ((node.kind == Kind::Or) == isTruthy(left)) return left;
        return eval(node.right);
    }
    case Kind::Eq: case Kind::Ne: case Kind::Lt: case Kind::Gt: case Kind::Le: case Kind::Ge: {
        Variable left = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        Variable right = eval(node.right);
        if (shouldAbortForSoftRaisedError()) return Variable();
        switch (node.kind) {
        case Kind::Eq: return Variable(variablesEqual(left, right));
        case Kind::Ne: return Variable(!variablesEqual(left, right));
        case Kind::Lt: return Variable(compareVariables(left, right) < 0);
        case Kind::Gt: return Variable(compareVariables(left, right) > 0);
        case Kind::Le: return Variable(compareVariables(left, right) <= 0);
        default: return Variable(compareVariables(left, right) >= 0);
        }
    }
    case Kind::Length: {
        Variable v = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return Variable(arrayLength(v));
    }
    case Kind::Not: {
        Variable v = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return Variable(!isTruthy(v));
    }
    case Kind::Negate: {
        Variable v = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        switch (v.type) {
        case VarType::Float: return Variable(-v.asFloat());
        case VarType::Int: return Variable(wrap(-int64_t(v.asInt())));
        case VarType::Bool: return Variable(wrap(-int64_t(toInt(v))));
        default: throw std::runtime_error("Unary '-' requires a numeric value");
        }
    }
    case Kind::Add: case Kind::Sub: case Kind::Mul: case Kind::Div: case Kind::IntDiv: case Kind::Mod:
    case Kind::Pow: {
        if (node.kind == Kind::Add && (node.flags & kFastExprNodeConcatShape)) {
            std::string text;
            if (appendFastStringConcatNode(e, n, tokens, analyses, text)) {
                if (shouldAbortForSoftRaisedError()) return Variable();
                return Variable(std::move(text));
            }
        }
        if (!(node.flags & (kFastExprNodeMayFloat | kFastExprNodeHasCall)) && node.kind != Kind::Div &&
            node.kind != Kind::Pow) {
            // Integer operands need no Variable at all. Where the subtree has steps, they answer
            // integers as the integer evaluator does; a float or a refusal goes on below.
            if (hasSubtreeSteps(e, n)) {
                int32_t value;
                if (runSubtreeInt(e, n, tokens, analyses, value)) return Variable(value);
            } else {
                int32_t value;
                if (tryEvaluateFastExpressionIntNode(e, n, tokens, analyses, value)) return Variable(value);
            }
        }
        Variable left = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        Variable right = eval(node.right);
        if (shouldAbortForSoftRaisedError()) return Variable();
        // Two integers without a call; every other case by the one rule of each operator.
        bool ints = left.type == VarType::Int && right.type == VarType::Int;
        switch (node.kind) {
        case Kind::Add:
            if (left.type == VarType::String || right.type == VarType::String)
                return Variable(left.toString() + right.toString());
            if (ints) return Variable(wrap(int64_t(left.asInt()) + right.asInt()));
            break;
        case Kind::Sub:
            if (ints) return Variable(wrap(int64_t(left.asInt()) - right.asInt()));
            break;
        case Kind::Mul:
            if (ints) return Variable(wrap(int64_t(left.asInt()) * right.asInt()));
            break;
        default: break;
        }
        return performOperation(left, operatorChar(node.kind), right);
    }
    case Kind::Index: {
        const FastExprNode& base = nodeAt(e, node.left);
        const FastExprNode& key = nodeAt(e, node.right);
        Variable baseValue;
        const Variable* basePtr;
        if (base.kind == Kind::Variable) {
            basePtr = resolveFast(tokens[base.tokenIndex], analyses[base.tokenIndex]);
            if (!basePtr) basePtr = &baseValue;
        } else {
            baseValue = eval(node.left);
            if (shouldAbortForSoftRaisedError()) return Variable();
            basePtr = &baseValue;
        }
        if (key.kind == Kind::String && basePtr->type == VarType::Table) {
            const VariableTable& table = *basePtr->asTable();
            auto it = table.find(e.strings[key.stringIndex]);
            return it == table.end() ? Variable() : it->second;
        }
        if (basePtr->type == VarType::Array) {
            int32_t position;
            if (tryEvaluateFastExpressionIntNode(e, node.right, tokens, analyses, position)) {
                const VariableArray& items = *basePtr->asArray();
                if (position < 1 || size_t(position) > items.size()) return Variable();
                return items[size_t(position) - 1];
            }
        }
        // The base may be a copy of a variable that evaluating the key changes: keep it alive.
        Variable container = *basePtr;
        Variable keyValue = eval(node.right);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return getIndexedValue(container, keyValue);
    }
    case Kind::Call: {
        size_t count = size_t(node.intValue);
        if (size_t(node.right) + count > e.callArgs.size()) throw std::runtime_error("Invalid fast call argument range");
        const int32_t* argNodes = e.callArgs.data() + node.right;
        ArgumentBuffer buffer(count);
        for (size_t i = 0; i < count; ++i) {
            // `n - 1` straight from its steps, as its own node would take it first.
            int32_t value;
            if (hasSubtreeSteps(e, argNodes[i]) && runSubtreeInt(e, argNodes[i], tokens, analyses, value))
                buffer.pushFrom([&] { return Variable(value); });
            else
                buffer.pushFrom([&] { return eval(argNodes[i]); });
            if (shouldAbortForSoftRaisedError()) return Variable();
        }
        Variable* args = buffer.data();
        const FastExprNode& callee = nodeAt(e, node.left);
        if (callee.kind == Kind::Index && nodeAt(e, callee.left).kind == Kind::Variable &&
            nodeAt(e, callee.right).kind == Kind::String) {
            const FastExprNode& table = nodeAt(e, callee.left);
            const Variable* t = resolveFast(tokens[table.tokenIndex], analyses[table.tokenIndex]);
            if (t && t->type == VarType::Table) {
                auto it = t->asTable()->find(e.strings[nodeAt(e, callee.right).stringIndex]);
                if (it != t->asTable()->end() && it->second.type == VarType::Function && it->second.asCallable() &&
                    it->second.asCallable()->isNative && it->second.asCallable()->builtinId != kBuiltinNone)
                    return dispatchBuiltinFast(it->second.asCallable()->builtinId, args, count);
            }
        }
        if (callee.kind == Kind::Variable) {
            // Read in place (no copy): the call takes its own hold on the function before anything runs.
            static const Variable noFunction;
            const Variable* function = resolveFast(tokens[callee.tokenIndex], analyses[callee.tokenIndex]);
            return invokeCallableFast(function ? *function : noFunction, args, count);
        }
        Variable function = eval(node.left);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return invokeCallableFast(function, args, count);
    }
    default: throw std::runtime_error("Invalid fast expression node");
    }
} catch (const std::exception&) {
    noteFastErrorToken(tokens, e, n);
    throw;
}

bool OrvaneScript::tryExecuteDiscardedFastCall(const FastExpression& e, const Tokens& tokens, Analyses& analyses) {
    if (!e.valid) return false;
    const FastExprNode& node = nodeAt(e, e.root);
    if (node.kind != Kind::Call) return false;
    const FastExprNode& callee = nodeAt(e, node.left);
    if (callee.kind != Kind::Variable) return false;
    const Variable* f = resolveFast(tokens[callee.tokenIndex], analyses[callee.tokenIndex]);
    if (!f || f->type != VarType::Function || !f->asCallable() || !f->asCallable()->isNative ||
        f->asCallable()->builtinId != kBuiltinAssert)
        return false;
    size_t count = size_t(node.intValue);
    if (size_t(node.right) + count > e.callArgs.size()) throw std::runtime_error("Invalid fast call argument range");
    if (count == 0) throw std::runtime_error("assert requires at least 1 argument");
    Variable first = evaluateFastExpressionNode(e, e.callArgs[size_t(node.right)], tokens, analyses);
    if (shouldAbortForSoftRaisedError()) return true;
    Variable second;
    for (size_t i = 1; i < count; ++i) {
        Variable v = evaluateFastExpressionNode(e, e.callArgs[size_t(node.right) + i], tokens, analyses);
        if (shouldAbortForSoftRaisedError()) return true;
        if (i == 1) second = std::move(v);
    }
    if (isTruthy(first)) return true;
    raiseScriptErrorSoft(count > 1 ? second.toString() : "assertion failed!");
    return true;
}

// `x op= scalar` by the scalar arithmetic's own rules, the answer stored in place.
bool OrvaneScript::tryApplyFastScalarOperationInPlace(Variable& variable, char op, const FastScalarValue& scalar) {
    if (tryStepIntegerInPlace(variable, op, scalar)) return true;
    Kind kind;
    switch (op) {
    case '+': kind = Kind::Add; break;
    case '-': kind = Kind::Sub; break;
    case '*': kind = Kind::Mul; break;
    case '/': kind = Kind::Div; break;
    case '\\': kind = Kind::IntDiv; break;
    case '%': kind = Kind::Mod; break;
    default: return false;
    }
    FastScalarValue result;
    if (!applyScalarArithmetic(kind, scalarOf(variable), scalar, result)) return false;
    assignFastScalarToVariable(variable, result);
    return true;
}

}  // namespace orvane
