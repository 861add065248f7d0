// The scalar operations that the node-tree evaluator and the flat steps share, so both routes
// give the same answers and raise the same errors.
#pragma once

#include "script/FastExpression.h"
#include "script/Variable.h"

namespace orvane {

inline int32_t wrapInt32(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }

// A Variable as a scalar; false for strings, containers and functions.
inline bool scalarFromVariable(const Variable& v, FastScalarValue& out) {
    switch (v.type) {
    case VarType::Nil: out = FastScalarValue::makeNil(); return true;
    case VarType::Int: out = FastScalarValue::makeInt(*std::get_if<int32_t>(&v.value)); return true;
    case VarType::Float: out = FastScalarValue::makeFloat(*std::get_if<float>(&v.value)); return true;
    case VarType::Bool: out = FastScalarValue::makeBool(*std::get_if<bool>(&v.value)); return true;
    default: return false;
    }
}

// In place: a variable that holds a number already only changes its tag and payload.
inline void assignFastScalarToVariable(Variable& variable, const FastScalarValue& s) {
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

// + - * / \ % ^ on two scalars; false when either is not numeric. Two non-floats give integer
// arithmetic wrapping at 32 bits (except / and ^, always float).
bool applyScalarArithmetic(FastExprNodeKind kind, const FastScalarValue& a, const FastScalarValue& b,
                           FastScalarValue& out);

// == != < > <= >=; false when the kinds don't allow the comparison.
bool compareScalars(FastExprNodeKind kind, const FastScalarValue& a, const FastScalarValue& b, bool& out);

// Unary minus; false for a non-numeric operand.
bool negateScalar(const FastScalarValue& v, FastScalarValue& out);

}  // namespace orvane
