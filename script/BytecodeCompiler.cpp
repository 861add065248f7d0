// Flattening the block structure of prepared lines into chunks of instructions.
#include <stdexcept>

#include "script/Bytecode.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

// The test for the SimpleAssign opcode: one plain target, one value, and a compiled value.
bool isSimpleAssignment(const ParsedScriptLine& line) {
    return line.isAssignment && line.targets.size() == 1 && line.targets[0].indexRanges.empty() &&
           line.valueRanges.size() == 1 && (line.singleValue().valid || line.singleCall.valid);
}

size_t requireMatch(const ParsedScriptLine& line, const char* message) {
    if (line.matchIndex == kNoLink) throw std::runtime_error(message);
    return size_t(line.matchIndex);
}

bool isNumericForLine(const ParsedScriptLine& line) {
    return line.tokens.size() > 3 && isIdentifier(line.tokens[1]) && line.tokens[2] == "=";
}

}  // namespace

uint32_t compileBytecodeChunk(BytecodeProgram& program, size_t begin, size_t end, const std::string& sourceRoot) {
    uint32_t chunkIndex = uint32_t(program.chunks.size());
    program.chunks.emplace_back();
    bool hasLocals = false;
    std::vector<Instruction> code;
    const auto& lines = program.lines;
    auto emit = [&](Opcode op, size_t a) { code.push_back({op, uint32_t(a), 0}); };

    size_t i = begin;
    while (i < end && i < lines.size()) {
        const ParsedScriptLine& line = lines[i];
        if (line.tokens.empty()) {
            ++i;
            continue;
        }
        if (line.scopeTarget == kTargetLocal || line.kind == LineKind::LocalFunction) hasLocals = true;
        switch (line.kind) {
        case LineKind::Break: emit(Opcode::Break, i); ++i; break;
        case LineKind::Return: emit(Opcode::Return, i); ++i; break;
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: {
            size_t match = requireMatch(line, "Missing 'end' for function block");
            uint32_t body = compileBytecodeChunk(program, i + 1, match, sourceRoot);
            program.functions.push_back({uint32_t(i), body, uint32_t(i + 1), uint32_t(match), sourceRoot,
                                         program.sourcePath});
            emit(Opcode::FunctionDecl, program.functions.size() - 1);
            i = match + 1;
            break;
        }
        case LineKind::For: {
            size_t match = requireMatch(line, "Missing 'end' for for block");
            uint32_t body = compileBytecodeChunk(program, i + 1, match, sourceRoot);
            if (isNumericForLine(line)) {
                program.numericForLoops.push_back({uint32_t(i), body});
                emit(Opcode::NumericFor, program.numericForLoops.size() - 1);
            } else {
                program.genericForLoops.push_back({uint32_t(i), body});
                emit(Opcode::GenericFor, program.genericForLoops.size() - 1);
            }
            i = match + 1;
            break;
        }
        case LineKind::Repeat: {
            size_t match = requireMatch(line, "Missing 'until' for repeat block");
            uint32_t body = compileBytecodeChunk(program, i + 1, match, sourceRoot);
            program.repeatLoops.push_back({uint32_t(match), body});
            emit(Opcode::RepeatLoop, program.repeatLoops.size() - 1);
            i = match + 1;
            break;
        }
        case LineKind::While: {
            size_t match = requireMatch(line, "Missing 'end' for while block");
            uint32_t body = compileBytecodeChunk(program, i + 1, match, sourceRoot);
            program.whileLoops.push_back({uint32_t(i), body});
            emit(Opcode::WhileLoop, program.whileLoops.size() - 1);
            i = match + 1;
            break;
        }
        case LineKind::If: {
            BytecodeIfGroup group;
            size_t clause = i;
            for (;;) {
                if (clause >= lines.size()) throw std::runtime_error("Invalid if-chain while compiling bytecode");
                const ParsedScriptLine& c = lines[clause];
                uint64_t next = c.nextClauseIndex != kNoLink ? c.nextClauseIndex : c.matchIndex;
                if (next == kNoLink || next > lines.size()) throw std::runtime_error("Missing 'end' for if block");
                uint32_t body = compileBytecodeChunk(program, clause + 1, size_t(next), sourceRoot);
                group.branches.push_back({uint32_t(clause), body, c.kind == LineKind::Else});
                if (c.nextClauseIndex == kNoLink) {
                    i = size_t(c.matchIndex) + 1;
                    break;
                }
                clause = size_t(c.nextClauseIndex);
            }
            program.ifGroups.push_back(std::move(group));
            emit(Opcode::IfGroup, program.ifGroups.size() - 1);
            break;
        }
        case LineKind::ElseIf:
        case LineKind::Else:
        case LineKind::End:
        case LineKind::Until:
            // A closer at the chunk's own level closes nothing here: it emits nothing.
            ++i;
            break;
        default:
            emit(isSimpleAssignment(line) ? Opcode::SimpleAssign : Opcode::Statement, i);
            ++i;
            break;
        }
    }
    BytecodeChunk& chunk = program.chunks[chunkIndex];
    chunk.firstInstruction = uint32_t(program.instructions.size());
    chunk.instructionCount = uint32_t(code.size());
    chunk.hasLocalDeclarations = hasLocals;
    program.instructions.insert(program.instructions.end(), code.begin(), code.end());
    return chunkIndex;
}

std::shared_ptr<BytecodeProgram> OrvaneScript::compileToBytecodeInternal(const std::string& source) {
    auto program = std::make_shared<BytecodeProgram>();
    if (!sourceRootStack.empty() && sourceRootStack.back()) program->sourceRoot = *sourceRootStack.back();
    if (!sourcePathStack.empty() && sourcePathStack.back()) program->sourcePath = *sourcePathStack.back();
    program->lines = compileLines(source);
    program->instructions.reserve(program->lines.size() * 2);
    compileBytecodeChunk(*program, 0, program->lines.size(), program->sourceRoot);
    return program;
}

std::shared_ptr<BytecodeProgram> OrvaneScript::compileToBytecode(const std::string& source, const std::string& path) {
    if (path.empty()) return compileToBytecodeInternal(source);
    size_t slash = path.find_last_of("/\\");
    std::string root = slash == std::string::npos ? std::string() : path.substr(0, slash);
    size_t rootHeight = sourceRootStack.size(), pathHeight = sourcePathStack.size();
    if (!root.empty()) sourceRootStack.push_back(&root);
    sourcePathStack.push_back(&path);
    std::shared_ptr<BytecodeProgram> program;
    try {
        program = compileToBytecodeInternal(source);
    } catch (...) {
        sourceRootStack.resize(rootHeight);
        sourcePathStack.resize(pathHeight);
        throw;
    }
    sourceRootStack.resize(rootHeight);
    sourcePathStack.resize(pathHeight);
    program->sourceRoot = root;
    program->sourcePath = path;
    for (BytecodeFunctionDecl& function : program->functions) {
        function.sourceRoot = root;
        function.sourcePath = path;
    }
    return program;
}

}  // namespace orvane
