// Compiled expressions: flat node arrays over a line's tokens, children before parents.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

struct TokenAnalysis;

enum class FastExprNodeKind : uint8_t {
    None = 0, Int = 1, Float = 2, String = 3, Bool = 4, Nil = 5, Variable = 6, Index = 7, Call = 8,
    Negate = 9, Not = 10, Length = 11, Add = 12, Sub = 13, Mul = 14, Div = 15, IntDiv = 16, Mod = 17,
    Pow = 18, Eq = 19, Ne = 20, Lt = 21, Gt = 22, Le = 23, Ge = 24, And = 25, Or = 26,
};

constexpr uint8_t kFastExprNodeMayFloat = 1;
// The subtree holds a call: the try evaluators never run one that they might then refuse.
constexpr uint8_t kFastExprNodeHasCall = 2;
// An Add whose leaves are all string literals or one-argument calls of a name, one of them a
// literal: the only shape that the one-piece string concatenation takes.
constexpr uint8_t kFastExprNodeConcatShape = 4;

struct FastExprNode {
    FastExprNodeKind kind = FastExprNodeKind::None;
    int32_t left = -1;
    int32_t right = -1;  // for a call: the first position in callArgs
    uint16_t tokenIndex = 0;
    // The token an error of this node is reported near: the last token read before the
    // operation runs (the end of its right operand, or the closing bracket of an index or call).
    uint16_t errorToken = 0;
    uint16_t stringIndex = 0;
    int32_t intValue = 0;  // for a call: the argument count
    float floatValue = 0.0f;
    bool boolValue = false;
    uint8_t flags = 0;
};


// An unboxed value: never a string.
struct FastScalarValue {
    enum Kind : uint8_t { None = 0, Nil = 1, Int = 2, Float = 3, Bool = 4 };
    uint8_t kind = None;
    // One payload, chosen by kind: the whole value is 8 bytes and travels in a register.
    union {
        int32_t intValue = 0;
        float floatValue;
        bool boolValue;
    };

    static FastScalarValue makeNil() { FastScalarValue s; s.kind = Nil; return s; }
    static FastScalarValue makeInt(int32_t v) { FastScalarValue s; s.kind = Int; s.intValue = v; return s; }
    static FastScalarValue makeFloat(float v) { FastScalarValue s; s.kind = Float; s.floatValue = v; return s; }
    static FastScalarValue makeBool(bool v) { FastScalarValue s; s.kind = Bool; s.boolValue = v; return s; }
};

// The call-free part of the scalar evaluator as postfix steps over a small stack: one flat loop
// instead of a recursion per node. Built beside the nodes when the whole tree qualifies.
enum class FastStepOp : uint8_t {
    Load,         // pushes its left operand
    IndexBase,    // the base of an Index: must resolve, else the scalar evaluator refuses
    IndexString,  // base[string literal]
    Index,        // base[key], the key on the stack
    IndexLeaf,    // base[key] with a leaf for the key, read by the step
    Length,       // # of a name
    Negate,
    Not,
    Arithmetic,   // the node's kind says which
    Compare,
    AndOr,        // short-circuit: keep the left operand and jump, or drop it and go on
};

// Where an operand comes from: a leaf is read by the step itself, which saves a step per leaf.
struct FastOperand {
    enum From : uint8_t { Stack = 0, Name = 1, Literal = 2 };
    uint8_t from = Stack;
    uint16_t token = 0;
    FastScalarValue literal;
    uint64_t packedLiteral = 0;  // the literal as the steps carry it, made once when compiling
};

struct FastStep {
    FastStepOp op = FastStepOp::Load;
    FastExprNodeKind kind = FastExprNodeKind::None;  // the node's, for arithmetic and comparisons
    uint16_t token = 0;                               // an index's base, a length's name
    int32_t node = 0;                                 // the node that made the step, for error tokens
    int32_t jump = 0;                                 // AndOr: the step behind the right operand
    // On a list's first step: the list is one operation on leaves (`j <= n`, `a[i]`), maybe with
    // one more over its answer and a leaf (`s + i % 7`), and runs without the stack.
    bool shortRun = false;
    FastOperand left, right;
};

constexpr size_t kFastStepStackSize = 16;

struct FastExpression {
    bool valid = false;
    int32_t root = -1;
    std::vector<std::string> strings;
    std::vector<int32_t> callArgs;
    std::vector<FastExprNode> nodes;
    std::vector<FastStep> steps;  // empty when the tree has a call, a string or a deep stack
    // Calls of a plain name that the scalar evaluator meets whatever the values: on the way from the
    // root through arithmetic, comparisons and `not` only. Where one names no native, it refuses.
    std::vector<int32_t> trunkCalls;
    // For an expression with calls: per node, the index of its own steps in subtreeStepLists, or -1.
    std::vector<int32_t> subtreeSteps;
    std::vector<std::vector<FastStep>> subtreeStepLists;
};

struct FastCallExpression {
    bool valid = false;
    uint16_t nameToken = 0;
    std::vector<FastExpression> arguments;
};

[[noreturn]] void throwExpectedNumeric();
int32_t saturatingInt(double d);

// Inline: these run on every operand of the scalar evaluator.
inline bool fastScalarIsNumeric(const FastScalarValue& s) {
    return s.kind == FastScalarValue::Int || s.kind == FastScalarValue::Float || s.kind == FastScalarValue::Bool;
}

inline bool fastScalarIsTruthy(const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int: return s.intValue != 0;
    case FastScalarValue::Float: return s.floatValue != 0.0f;
    case FastScalarValue::Bool: return s.boolValue;
    default: return false;
    }
}

inline double fastScalarToDouble(const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int: return double(s.intValue);
    case FastScalarValue::Float: return double(s.floatValue);
    case FastScalarValue::Bool: return s.boolValue ? 1.0 : 0.0;
    default: throwExpectedNumeric();
    }
}

inline int32_t fastScalarToInt(const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int: return s.intValue;
    case FastScalarValue::Float: return saturatingInt(double(s.floatValue));
    case FastScalarValue::Bool: return s.boolValue ? 1 : 0;
    default: throwExpectedNumeric();
    }
}

// As toFloat: the number as a double, narrowed.
inline float fastScalarToFloat(const FastScalarValue& s) { return float(fastScalarToDouble(s)); }

struct Variable;
Variable fastScalarToVariable(const FastScalarValue& s);

FastExpression compileFastExpressionRange(const std::vector<std::string>& tokens,
                                          const std::vector<TokenAnalysis>& analyses, size_t begin, size_t end);
// Fills steps when every node can be a step.
void compileFastSteps(FastExpression& expression);
FastCallExpression compileFastCallExpressionRange(const std::vector<std::string>& tokens,
                                                  const std::vector<TokenAnalysis>& analyses, size_t begin,
                                                  size_t end);

}  // namespace orvane
