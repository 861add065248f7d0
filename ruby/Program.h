// The compiled form of an OrvaneRuby script: constants, and functions of flat stack instructions.
// What the bytecode file stores is the instructions; everything below the line "worked out after
// reading" is rebuilt by finalizeProgramMetadata each time a program is made or read.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ruby/RubyBytecode.h"
#include "ruby/RubyValue.h"

namespace orvane::ruby {

// The numbers are stored in bytecode files; never renumber.
enum class OpCode : uint8_t {
    LoadConstant = 0,
    LoadName = 1,
    StoreName = 2,
    Pop = 3,
    Add = 4,
    Subtract = 5,
    Multiply = 6,
    Divide = 7,
    Modulo = 8,
    Negate = 9,
    Not = 10,
    Equal = 11,
    NotEqual = 12,
    Less = 13,
    LessEqual = 14,
    Greater = 15,
    GreaterEqual = 16,
    And = 17,
    Or = 18,
    Jump = 19,
    JumpIfFalse = 20,
    Call = 21,
    DefineFunction = 22,
    Return = 23,
    MakeArray = 24,
    Index = 25,
};
constexpr uint8_t kLastOpCode = 25;

struct Instruction {
    OpCode opcode = OpCode::LoadConstant;
    int32_t a = 0;
    int32_t b = 0;
    uint32_t line = 0;
};

constexpr int32_t kNoLocalSlot = -1;
constexpr uint64_t kNoGlobalSlot = std::numeric_limits<uint64_t>::max();
// The instruction caches start at slot 0, which the VM keeps unassigned and gives to no name:
// a read through it finds nothing and resolves, with no range test on the fast path.
constexpr uint64_t kUnresolvedGlobal = 0;

// One node of a function's fast form (see FastNodes.cpp).
struct FastNode {
    uint8_t kind = 0;
    uint8_t valueSource = 0;  // for a leaf: 0 constant, 1 local slot, 2 global
    int32_t index = 0;
    int32_t left = -1;
    int32_t right = -1;
    std::vector<int32_t> children;
    uint32_t line = 1;
    uint64_t globalSlot = kNoGlobalSlot;
};

// One operation of a verified function as the unchecked loop runs it: an instruction, or a few
// that always run together, such as two loads, an operator and the conditional jump behind it.
// Jump targets index this list. Built after reading, never stored.
struct DecodedOp {
    uint16_t code = 0;
    // A loop's closing jump runs a copy of the loop's condition: it counts the step of the jump.
    uint8_t stepFirst = 0;
    int32_t x = 0;        // operand A: constant index or local slot
    int32_t y = 0;        // operand B
    int32_t target = 0;   // jump target, argument or element count, or function index
    int32_t next = 0;     // where a conditional jump goes on when it doesn't jump
    uint32_t line = 0;    // line of the operation that can fail
    uint32_t pc = 0;      // the instruction the operation comes from
    uint32_t pcA = 0;     // the instructions that load operands A and B
    uint32_t pcB = 0;
    // An arithmetic result stored at once: into local slot `z` when `zLocal`, else into the
    // global that instruction `pcZ` names.
    uint8_t zLocal = 0;
    int32_t z = 0;
    uint32_t pcZ = 0;
};

struct CompiledFunction {
    std::string name;
    std::vector<std::string> parameters;
    std::vector<Instruction> instructions;

    // Worked out after reading.
    std::vector<std::string> localNames;
    std::unordered_map<std::string, int32_t> localSlots;
    std::vector<int32_t> instructionLocalSlots;
    std::vector<uint64_t> instructionGlobalSlots;

    uint8_t fastKind = 0;
    std::vector<FastNode> fastNodes;
    int32_t fastResultNode = -1;
    int32_t fastGuardNode = -1;
    std::string fastErrorMessage;

    // True when every reachable instruction has sound operands and one stack depth on every
    // path into it; such a function runs without run-time checks of those.
    bool verified = false;
    uint32_t maxStack = 0;
    // Frame slots: locals, and parameters beyond them when a parameter name repeats.
    uint32_t frameLocals = 0;
    std::vector<DecodedOp> decoded;

    // The VM whose global slots the caches above hold; another VM resets them before running.
    uint64_t cacheOwner = 0;
};

struct Program {
    std::string chunkName = "<string>";
    std::vector<RubyValue> constants;
    std::vector<CompiledFunction> functions;
};

// What a function value holds. A script function keeps its program alive, so it stays callable
// after the run that defined it.
struct RubyFunctionHandle {
    uint8_t kind = 0;     // 0 script, 1 native
    uint8_t builtin = 0;  // 0 none, 1 error, 2 pcall, 3 table_set: run by the VM itself
    int32_t functionIndex = -1;
    std::shared_ptr<Program> program;
    RubyNativeFunction native;
    std::string name;
};

// Lexer and compiler (Compiler.cpp): a finished program, metadata included. Raises
// "chunk:line:column: message" on a syntax error.
Program compileProgram(const std::string& source, const std::string& chunkName);

// Metadata.cpp.
void finalizeProgramMetadata(Program& program);
void finalizeFunctionMetadata(CompiledFunction& function, const Program& program, bool isMain);
int32_t ensureLocalSlot(CompiledFunction& function, const std::string& name);
void resetRuntimeCaches(CompiledFunction& function);

// Decode.cpp: the operations of a verified function; `reachable` marks what the proof reached.
void decodeFunction(CompiledFunction& function, const std::vector<bool>& reachable);

// FastNodes.cpp: builds the fast form; called last by finalizeFunctionMetadata.
void finalizeFastCallableMetadata(CompiledFunction& function, const Program& program, bool isMain);

// Bytecode.cpp.
RubyBytecode serializeProgram(const Program& program);
Program deserializeProgram(const RubyBytecode& bytecode);

}  // namespace orvane::ruby
