// The scalar operations that the node-tree evaluator and the flat steps share, so both routes
// give the same answers and raise the same errors.
#pragma once

#include "script/FastExpression.h"
#include "script/Variable.h"

namespace orvane {

inline int32_t wrapInt32(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }

// The 32-bit remainder, truncating; a divisor of -1 gives 0 (the one quotient that overflows).
// A 32-bit division is several times faster than a 64-bit one on common cores.
inline int32_t remainderInt32(int32_t x, int32_t y) { return y == -1 ? 0 : x % y; }

// A Variable as a scalar, by value: kind None for strings, containers and functions. Read by the
// alternative the value holds, so that taking it needs no second test: an int32_t is an Int or
// the zero of a Nil, a float only ever a Float, a bool only ever a Bool.
inline FastScalarValue scalarOf(const Variable& v) {
    switch (v.value.index()) {
    case 0:
        return v.type == VarType::Int ? FastScalarValue::makeInt(*std::get_if<0>(&v.value)) : FastScalarValue::makeNil();
    case 1: return FastScalarValue::makeFloat(*std::get_if<1>(&v.value));
    case 4: return FastScalarValue::makeBool(*std::get_if<4>(&v.value));
    default: return FastScalarValue();
    }
}

inline bool scalarFromVariable(const Variable& v, FastScalarValue& out) {
    out = scalarOf(v);
    return out.kind != FastScalarValue::None;
}

// In place: a variable that holds a number already only changes its tag and payload.
[[gnu::always_inline]] inline void assignFastScalarToVariable(Variable& variable, const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int:
        if (variable.type == VarType::Int) *std::get_if<int32_t>(&variable.value) = s.intValue;
        else variable = Variable(s.intValue);
        return;
    case FastScalarValue::Float:
        if (variable.type == VarType::Float) *std::get_if<float>(&variable.value) = s.floatValue;
        else variable = Variable(s.floatValue);
        return;
    case FastScalarValue::Bool:
        if (variable.type == VarType::Bool) *std::get_if<bool>(&variable.value) = s.boolValue;
        else variable = Variable(s.boolValue);
        return;
    default: variable = Variable(); return;
    }
}

// `k += 1`, the commonest compound assignment: an integer stepped in place, wrapping at 32 bits.
inline bool tryStepIntegerInPlace(Variable& variable, char op, const FastScalarValue& scalar) {
    if (variable.type != VarType::Int || scalar.kind != FastScalarValue::Int || (op != '+' && op != '-')) return false;
    int32_t& value = *std::get_if<int32_t>(&variable.value);
    value = wrapInt32(op == '+' ? int64_t(value) + scalar.intValue : int64_t(value) - scalar.intValue);
    return true;
}

// + - * / \ % ^ on two scalars; false when either is not numeric. Two non-floats give integer
// arithmetic wrapping at 32 bits (except / and ^, always float).
bool applyScalarArithmetic(FastExprNodeKind kind, const FastScalarValue& a, const FastScalarValue& b,
                           FastScalarValue& out);

// A comparison node's operator on two numbers of one type.
template <typename Number>
bool compareNumbers(FastExprNodeKind kind, Number x, Number y) {
    switch (kind) {
    case FastExprNodeKind::Eq: return x == y;
    case FastExprNodeKind::Ne: return x != y;
    case FastExprNodeKind::Lt: return x < y;
    case FastExprNodeKind::Gt: return x > y;
    case FastExprNodeKind::Le: return x <= y;
    default: return x >= y;
    }
}

// == != < > <= >=; false when the kinds don't allow the comparison.
bool compareScalars(FastExprNodeKind kind, const FastScalarValue& a, const FastScalarValue& b, bool& out);

// Unary minus; false for a non-numeric operand.
bool negateScalar(const FastScalarValue& v, FastScalarValue& out);

}  // namespace orvane
