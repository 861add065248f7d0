// A script text as a control skeleton: flat runs of instructions over its prepared lines, with
// side tables for blocks. Statements keep their meaning; only the block walking is compiled.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "script/LoopCode.h"
#include "script/ParsedLine.h"

namespace orvane {

enum class Opcode : uint8_t {
    Statement = 0,
    SimpleAssign = 1,
    IfGroup = 2,
    WhileLoop = 3,
    RepeatLoop = 4,
    NumericFor = 5,
    GenericFor = 6,
    FunctionDecl = 7,
    Return = 8,
    Break = 9,
};

struct Instruction {
    Opcode opcode = Opcode::Statement;
    uint32_t a = 0;
    uint32_t b = 0;
};

struct BytecodeChunk {
    uint32_t firstInstruction = 0;
    uint32_t instructionCount = 0;
    bool hasLocalDeclarations = false;
};

struct BytecodeIfBranch {
    uint32_t line = 0;
    uint32_t chunk = 0;
    bool isElse = false;
};

struct BytecodeIfGroup {
    std::vector<BytecodeIfBranch> branches;
};

struct BytecodeWhileLoop {
    uint32_t line = 0;
    uint32_t chunk = 0;
};

struct BytecodeRepeatLoop {
    uint32_t untilLine = 0;
    uint32_t chunk = 0;
};

struct BytecodeForLoop {
    uint32_t line = 0;
    uint32_t chunk = 0;
};

struct BytecodeFunctionDecl {
    uint32_t line = 0;
    uint32_t chunk = 0;
    uint32_t bodyStart = 0;
    uint32_t bodyEnd = 0;
    std::string sourceRoot;
    std::string sourcePath;
};

struct BytecodeProgram {
    uint16_t version = 6;
    std::string sourceRoot;
    std::string sourcePath;
    std::vector<ParsedScriptLine> lines;
    std::vector<Instruction> instructions;
    std::vector<BytecodeChunk> chunks;
    std::vector<BytecodeIfGroup> ifGroups;
    std::vector<BytecodeWhileLoop> whileLoops;
    std::vector<BytecodeRepeatLoop> repeatLoops;
    std::vector<BytecodeForLoop> numericForLoops;
    std::vector<BytecodeForLoop> genericForLoops;
    std::vector<BytecodeFunctionDecl> functions;
    std::vector<uint8_t> inlineCache;  // per chunk: 0 untested, 1 not inlineable, 2 inlineable
    LoopCodeCache loopCode;
};

// Compiles lines [begin, end) into a new chunk of the program; gives the chunk's index.
uint32_t compileBytecodeChunk(BytecodeProgram& program, size_t begin, size_t end, const std::string& sourceRoot);

}  // namespace orvane
