// The operation codes of the unchecked loop (see Decode.cpp). A binary operation carries where
// each operand comes from, so that the loads before it need no dispatch of their own.
#pragma once

#include <cstdint>

namespace orvane::ruby::decoded {

// Where an operand lies: on the stack, a constant, a local (read as a global while unassigned),
// or a global.
enum Kind : int { KS = 0, KK = 1, KL = 2, KG = 3 };

// Binary operators in the order of their codes; the comparisons from BEq on can be fused with the
// conditional jump behind them.
enum Binary : int { BAdd, BSub, BMul, BDiv, BMod, BEq, BNe, BLt, BLe, BGt, BGe, BinaryCount };
constexpr int kFirstComparison = BEq;

enum Code : uint16_t {
    PushK,
    PushL,
    PushG,
    Pop,
    StoreL,
    StoreG,
    StorePopL,
    StorePopG,
    Negate,
    Not,
    And,
    Or,
    Jump,
    JumpIfFalse,
    Call,
    Define,
    Return,
    ReturnK,
    ReturnL,
    ReturnG,
    MakeArray,
    Nop,
    Unreachable,
    End,  // behind the last operation: the function ran off its end
    // + binary * 16 + kind of A * 4 + kind of B
    BinaryBase = 32,
    // + (binary - kFirstComparison) * 16 + kind of A * 4 + kind of B: jumps when the result is false
    CompareJumpBase = BinaryBase + BinaryCount * 16,
    // + binary * 16 + kind of A * 4 + kind of B, for the arithmetic operators: the result is
    // assigned to a name, and becomes the last value, as the assignment and its pop would do
    BinaryStoreBase = CompareJumpBase + (BinaryCount - kFirstComparison) * 16,
    // + kind of the object * 4 + kind of the index: `object[index]` pushed, or, for the jump,
    // tested and jumped on when false
    IndexBase = BinaryStoreBase + kFirstComparison * 16,
    IndexJumpBase = IndexBase + 16,
    CodeEnd = IndexJumpBase + 16,
};

constexpr uint16_t binaryCode(int binary, int kindA, int kindB) {
    return static_cast<uint16_t>(BinaryBase + binary * 16 + kindA * 4 + kindB);
}
constexpr uint16_t binaryStoreCode(int binary, int kindA, int kindB) {
    return static_cast<uint16_t>(BinaryStoreBase + binary * 16 + kindA * 4 + kindB);
}
constexpr uint16_t indexCode(int kindA, int kindB) { return static_cast<uint16_t>(IndexBase + kindA * 4 + kindB); }
constexpr uint16_t indexJumpCode(int kindA, int kindB) {
    return static_cast<uint16_t>(IndexJumpBase + kindA * 4 + kindB);
}
constexpr uint16_t compareJumpCode(int binary, int kindA, int kindB) {
    return static_cast<uint16_t>(CompareJumpBase + (binary - kFirstComparison) * 16 + kindA * 4 + kindB);
}

}  // namespace orvane::ruby::decoded
