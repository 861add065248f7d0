// A scalar as one 64-bit word, and the operations on it that the flat steps and the loop code
// share, so that both give the scalar evaluator's answers and raise its errors.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <string>

#include "script/FastScalarOps.h"
#include "script/OrvaneScript.h"

namespace orvane::packed {

using Kind = FastExprNodeKind;

// Inside the steps a scalar is one 64-bit word, the kind in the low byte and the payload in the
// high half: it is stored and loaded whole, never half-written through memory.
using Packed = uint64_t;

inline Packed packed(uint8_t kind, uint32_t bits) { return kind | (uint64_t(bits) << 32); }
inline uint8_t kindOf(Packed p) { return uint8_t(p); }
inline int32_t intOf(Packed p) { return int32_t(uint32_t(p >> 32)); }
inline float floatOf(Packed p) {
    uint32_t bits = uint32_t(p >> 32);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}
inline Packed packInt(int32_t v) { return packed(FastScalarValue::Int, uint32_t(v)); }
inline Packed packFloat(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    return packed(FastScalarValue::Float, bits);
}
inline Packed packBool(bool b) { return packed(FastScalarValue::Bool, b ? 1 : 0); }
inline constexpr Packed kPackedNil = FastScalarValue::Nil;
inline constexpr Packed kRefused = FastScalarValue::None;

inline Packed pack(const FastScalarValue& s) {
    switch (s.kind) {
    case FastScalarValue::Int: return packInt(s.intValue);
    case FastScalarValue::Float: return packFloat(s.floatValue);
    case FastScalarValue::Bool: return packBool(s.boolValue);
    default: return s.kind;
    }
}

// On a little-endian machine the packed word has a scalar's own layout (kind in the first byte,
// zero padding, payload in the second half), so unpacking is a copy.
static_assert(sizeof(FastScalarValue) == 8 && offsetof(FastScalarValue, intValue) == 4);

inline FastScalarValue unpack(Packed p) {
    if constexpr (std::endian::native == std::endian::little) return std::bit_cast<FastScalarValue>(p);
    switch (kindOf(p)) {
    case FastScalarValue::Int: return FastScalarValue::makeInt(intOf(p));
    case FastScalarValue::Float: return FastScalarValue::makeFloat(floatOf(p));
    case FastScalarValue::Bool: return FastScalarValue::makeBool(p >> 32);
    case FastScalarValue::Nil: return FastScalarValue::makeNil();
    default: return FastScalarValue();
    }
}

// A Variable as a packed scalar; refused for strings, containers and functions. Read by the
// alternative the value holds, as scalarOf does.
inline Packed packVariable(const Variable& v) {
    switch (v.value.index()) {
    case 0: return v.type == VarType::Int ? packInt(*std::get_if<0>(&v.value)) : kPackedNil;
    case 1: return packFloat(*std::get_if<1>(&v.value));
    case 4: return packBool(*std::get_if<4>(&v.value));
    default: return kRefused;
    }
}

inline bool isNumber(uint8_t kind) { return kind == FastScalarValue::Int || kind == FastScalarValue::Float; }
inline double doubleOf(Packed p) { return kindOf(p) == FastScalarValue::Int ? double(intOf(p)) : double(floatOf(p)); }

inline bool truthOf(Packed p) {
    switch (kindOf(p)) {
    case FastScalarValue::Int: case FastScalarValue::Bool: return (p >> 32) != 0;
    case FastScalarValue::Float: return floatOf(p) != 0.0f;
    default: return false;
    }
}

// An element as the scalar evaluator reads it: an array by a whole number, else the general rule.
Packed indexedElement(OrvaneScript& script, const Variable& base, Packed key);
// The rarer kinds of arithmetic and comparison, out of line, through the node evaluator's helpers.
Packed otherArithmetic(Kind kind, Packed a, Packed b);
Packed otherComparison(Kind kind, Packed a, Packed b);

// A number as the operand of float arithmetic: an integer rounds to the nearest float first.
inline float floatOperand(Packed p) { return kindOf(p) == FastScalarValue::Int ? float(intOf(p)) : floatOf(p); }

// The common kinds inline, with the helpers' arithmetic: two integers in 32 bits; with a float on
// either side, both operands as floats, in float. (Rounding the exact-enough double result of two
// floats to float gives the very same number, so this is the helpers' double arithmetic too.)
[[gnu::always_inline]] inline Packed arithmetic(Kind kind, Packed a, Packed b) {
    if (kindOf(a) == FastScalarValue::Int && kindOf(b) == FastScalarValue::Int) {
        int64_t x = intOf(a), y = intOf(b);
        if (kind == Kind::Add) return packInt(wrapInt32(x + y));
        if (kind == Kind::Sub) return packInt(wrapInt32(x - y));
        if (kind == Kind::Mul) return packInt(wrapInt32(x * y));
        if (kind == Kind::Mod && y != 0) return packInt(remainderInt32(intOf(a), intOf(b)));
    } else if (isNumber(kindOf(a)) && isNumber(kindOf(b))) {
        float x = floatOperand(a), y = floatOperand(b);
        if (kind == Kind::Add) return packFloat(x + y);
        if (kind == Kind::Sub) return packFloat(x - y);
        if (kind == Kind::Mul) return packFloat(x * y);
    }
    return otherArithmetic(kind, a, b);
}

[[gnu::always_inline]] inline Packed compare(Kind kind, Packed a, Packed b) {
    if (kindOf(a) == FastScalarValue::Int && kindOf(b) == FastScalarValue::Int)
        return packBool(compareNumbers(kind, intOf(a), intOf(b)));
    if (kindOf(a) == FastScalarValue::Float && kindOf(b) == FastScalarValue::Float)
        return packBool(compareNumbers(kind, floatOf(a), floatOf(b)));  // exact, as in double
    if (isNumber(kindOf(a)) && isNumber(kindOf(b))) return packBool(compareNumbers(kind, doubleOf(a), doubleOf(b)));
    if (a == kRefused || b == kRefused) return kRefused;  // `==` would answer for a refused operand
    return otherComparison(kind, a, b);
}

// A leaf operand: a literal, or a name read in place.
// The names and analyses of the line come as plain pointers, which stay in registers.
[[gnu::always_inline]] inline Packed readLeaf(OrvaneScript& script, const FastOperand& o, const std::string* tokens,
                                              TokenAnalysis* analyses) {
    if (o.from == FastOperand::Literal) return o.packedLiteral;
    const Variable* v = script.resolveFast(tokens[o.token], analyses[o.token]);
    return v ? packVariable(*v) : kPackedNil;
}

// A step whose operands are all leaves: an operation on two, or an index by one.
[[gnu::always_inline]] inline Packed leafStepValue(OrvaneScript& script, const FastStep& step, const std::string* tokens,
                                                   TokenAnalysis* analyses) {
    Packed b = readLeaf(script, step.right, tokens, analyses);
    if (b == kRefused) return kRefused;
    if (step.op == FastStepOp::IndexLeaf) {
        const Variable* base = script.resolveFast(tokens[step.token], analyses[step.token]);
        return base ? indexedElement(script, *base, b) : kRefused;
    }
    Packed a = readLeaf(script, step.left, tokens, analyses);
    return step.op == FastStepOp::Compare ? compare(step.kind, a, b) : arithmetic(step.kind, a, b);
}

}  // namespace orvane::packed
