// An inline chunk (a loop or branch body without locals) as flat code: its statements, the
// conditions and bodies of its nested `if` and `while`, and the flat steps of their compiled
// expressions, with operands in registers. A statement whose steps refuse runs on the general
// path from its start: the steps have no effects, so nothing happens twice.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "script/FastExpression.h"

namespace orvane {

struct Instruction;
struct ParsedScriptLine;
struct TokenAnalysis;

enum class LoopOp : uint8_t {
    Load,          // r[dst] = a
    Arithmetic,    // r[dst] = a kind b
    ArithmeticSet, // an assignment's last arithmetic: the target name c takes a kind b
    Compare,
    CompareJump,   // a condition's last comparison: false to target, true to resume
    IndexLeaf,     // r[dst] = name[a]
    Negate,
    Not,
    AndOr,         // `or` keeps a true r[dst] and `and` a false one, and jumps to target
    Assign,        // the target name a takes b by the line's operator
    StoreElement,  // name b [a] = c, or the general path
    JumpIfFalse,   // r[0] false: to target
    Jump,
    Statement,     // a plain statement on the general path, then to resume
    Condition,     // a condition on the general path: true to resume, false to target
    Instruction,   // any other instruction in the inline form
    Break,         // leaves the chunk with a Break signal
    End,           // leaves the chunk, or turns the counter of the numeric for around it
};

struct LoopOperand {
    enum From : uint8_t { Register = 0, Name = 1, Literal = 2 };
    uint8_t from = Register;
    uint8_t reg = 0;
    uint64_t literal = 0;  // packed
    const std::string* name = nullptr;
    TokenAnalysis* analysis = nullptr;
};

struct LoopInstruction {
    LoopOp op = LoopOp::End;
    bool recordsLine = false;  // the first of a statement or condition: `line` becomes the running line
    FastExprNodeKind kind = FastExprNodeKind::None;
    uint8_t dst = 0;
    char assignOperator = '=';
    uint32_t target = 0;
    uint32_t resume = 0;
    uint32_t refuse = 0;  // where a refusing step goes: the general path of its statement
    LoopOperand a, b, c;
    const ParsedScriptLine* line = nullptr;
    const Instruction* instruction = nullptr;
    const char* keyword = nullptr;  // a general condition's, for its error text
    // For the steps: the expression and node whose error token an error names.
    const FastExpression* expression = nullptr;
    int32_t node = -1;
};

struct LoopCode {
    std::vector<LoopInstruction> code;
};

// A numeric for around a chunk's code: the code's end turns the counter and starts again.
struct CountedLoop {
    int64_t counter = 0;
    int64_t last = 0;
    int32_t step = 1;
    size_t scope = 0;  // the native scope whose first entry is the loop variable
};

struct BytecodeProgram;
std::unique_ptr<LoopCode> compileLoopCode(const BytecodeProgram& program, uint32_t chunk);

// Compiled code per chunk, made on first use. A copy of a program starts without: the code points
// into the lines of the program that made it.
struct LoopCodeCache {
    std::vector<std::unique_ptr<LoopCode>> chunks;
    LoopCodeCache() = default;
    LoopCodeCache(const LoopCodeCache&) {}
    LoopCodeCache& operator=(const LoopCodeCache&) {
        chunks.clear();
        return *this;
    }
};

}  // namespace orvane
