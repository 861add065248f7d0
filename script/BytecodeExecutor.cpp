// The instruction walk over a chunk of a BytecodeProgram. Each statement keeps the meaning that
// executeParsedBlock gives it; what is compiled away is the search for block ends.
#include <stdexcept>

#include "script/ArgumentBuffer.h"
#include "script/Bytecode.h"
#include "script/FastScalarOps.h"
#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

// A block scope, pushed only when the block declares locals: an empty scope hides nothing.
struct ConditionalScopeGuard {
    ConditionalScopeGuard(OrvaneScript& s, bool push)
        : script(s), pushed(push), height(s.localScopes.size()), base(s.localScopeBase) {
        if (!pushed) return;
        state = script.saveScopeState();
        script.pushScope(script.localScopes);
    }
    ~ConditionalScopeGuard() {
        if (!pushed) return;
        script.localScopeBase = base;
        script.popScopes(script.localScopes, height);
        script.restoreScopeState(state);
    }
    OrvaneScript& script;
    bool pushed;
    size_t height, base;
    OrvaneScript::ScopeState state{};
};

const char* kErrorPrefix = "OrvaneScript error:";

}  // namespace

inline const ParsedScriptLine& OrvaneScript::lineStep(const BytecodeProgram& program, uint32_t index) {
    if (index >= program.lines.size()) throw std::runtime_error("Bytecode line index out of range");
    const ParsedScriptLine& line = program.lines[index];
    recordLine(line);
    return line;
}

Variable OrvaneScript::runBytecodeProgram(const std::shared_ptr<BytecodeProgram>& program) {
    size_t rootHeight = sourceRootStack.size(), pathHeight = sourcePathStack.size();
    if (!program->sourceRoot.empty()) sourceRootStack.push_back(&program->sourceRoot);
    if (!program->sourcePath.empty()) sourcePathStack.push_back(&program->sourcePath);
    BlockSignal signal = BlockSignal::None;
    Variable value;
    try {
        value = executeBytecodeChunk(program, 0, signal);
        rethrowPendingCoroutineException();
    } catch (...) {
        sourceRootStack.resize(rootHeight);
        sourcePathStack.resize(pathHeight);
        throw;
    }
    sourceRootStack.resize(rootHeight);
    sourcePathStack.resize(pathHeight);
    if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
    return value;
}

Variable OrvaneScript::runBytecode(const BytecodeProgram& program) {
    return runBytecodeProgram(std::make_shared<BytecodeProgram>(program));
}

Variable OrvaneScript::executeBytecodeChunk(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunkIndex,
                                            BlockSignal& signal) {
    return executeBytecodeChunkInternal(program, chunkIndex, signal, true);
}

Variable OrvaneScript::executeBytecodeChunkInternal(const std::shared_ptr<BytecodeProgram>& program,
                                                    uint32_t chunkIndex, BlockSignal& signal, bool allowScope) {
    checkNativeStack();
    if (!program || chunkIndex >= program->chunks.size()) throw std::runtime_error("Invalid bytecode chunk index");
    const BytecodeChunk& chunk = program->chunks[chunkIndex];
    ConditionalScopeGuard scope(*this, allowScope && chunk.hasLocalDeclarations);
    if (uint64_t(chunk.firstInstruction) + chunk.instructionCount > program->instructions.size())
        throw std::runtime_error("Bytecode chunk range is out of bounds");
    // One way out for the value, so that it is built in the caller's place.
    Variable running;
    try {
        if (!runChunkInstructions(program, chunk, signal, running)) running = Variable();
    } catch (const std::exception& e) {
        if (std::string_view(e.what()).starts_with(kErrorPrefix)) throw;
        std::string near = !nearToken.empty() ? nearToken
                           : currentLine && !currentLine->tokens.empty() ? currentLine->tokens[0]
                                                                          : std::string("script");
        throwError(e.what(), near);
    }
    return running;
}

// The instruction walk of the general form; false when a soft error ends it with nil.
bool OrvaneScript::runChunkInstructions(const std::shared_ptr<BytecodeProgram>& program, const BytecodeChunk& chunk,
                                        BlockSignal& signal, Variable& running) {
    const Instruction* code = program->instructions.data() + chunk.firstInstruction;
    for (uint32_t i = 0; i < chunk.instructionCount; ++i) {
        rethrowPendingCoroutineException();
        if (shouldAbortForSoftRaisedError()) return false;
        bool ok;
        {
            CoroutineTurnGuard turn(*this);
            ok = executeInstruction(program, code[i], signal, running, false);
        }
        if (!ok) return false;
        if (signal != BlockSignal::None) return true;
    }
    return true;
}

Variable OrvaneScript::runBlock(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunk, BlockSignal& signal) {
    // One way out for the value, so that it is built in the caller's place.
    Variable running;
    const BytecodeProgram& p = *program;
    if (localScopes.size() <= localScopeBase && isInlineableChunk(*program, chunk)) {
        runInlineChunk(program, chunk, signal, running);
    } else if (chunk < p.chunks.size() && !p.chunks[chunk].hasLocalDeclarations &&
               uint64_t(p.chunks[chunk].firstInstruction) + p.chunks[chunk].instructionCount <= p.instructions.size()) {
        // A block that would push no scope (an `if` branch that returns, say) runs in the activation
        // of its parent, whose handler turns its errors into the same located texts.
        if (!runChunkInstructions(program, p.chunks[chunk], signal, running)) running = Variable();
    } else {
        running = executeBytecodeChunk(program, chunk, signal);
    }
    // A soft error ends the block with nil.
    if (shouldAbortForSoftRaisedError() && !running.isNil()) running = Variable();
    return running;
}

bool OrvaneScript::isInlineableChunk(BytecodeProgram& program, uint32_t chunkIndex) {
    if (chunkIndex >= program.chunks.size()) return false;
    if (program.inlineCache.size() != program.chunks.size()) program.inlineCache.assign(program.chunks.size(), 0);
    uint8_t& cached = program.inlineCache[chunkIndex];
    if (cached != 0) return cached == 2;
    const BytecodeChunk& chunk = program.chunks[chunkIndex];
    bool inlineable = !chunk.hasLocalDeclarations &&
                      uint64_t(chunk.firstInstruction) + chunk.instructionCount <= program.instructions.size();
    for (uint32_t i = 0; inlineable && i < chunk.instructionCount; ++i) {
        const Instruction& instruction = program.instructions[chunk.firstInstruction + i];
        switch (instruction.opcode) {
        case Opcode::Statement:
        case Opcode::SimpleAssign:
        case Opcode::Break: break;
        case Opcode::IfGroup:
            if (instruction.a >= program.ifGroups.size()) { inlineable = false; break; }
            for (const BytecodeIfBranch& branch : program.ifGroups[instruction.a].branches)
                inlineable = inlineable && isInlineableChunk(program, branch.chunk);
            break;
        case Opcode::WhileLoop:
            inlineable = instruction.a < program.whileLoops.size() &&
                         isInlineableChunk(program, program.whileLoops[instruction.a].chunk);
            break;
        case Opcode::RepeatLoop:
            inlineable = instruction.a < program.repeatLoops.size() &&
                         isInlineableChunk(program, program.repeatLoops[instruction.a].chunk);
            break;
        case Opcode::NumericFor:
            inlineable = instruction.a < program.numericForLoops.size() &&
                         isInlineableChunk(program, program.numericForLoops[instruction.a].chunk);
            break;
        default: inlineable = false; break;
        }
    }
    program.inlineCache[chunkIndex] = inlineable ? 2 : 1;
    return inlineable;
}

// One plain target and one compiled value, without executeAssignment's generality.
inline void OrvaneScript::executeSimpleAssign(const ParsedScriptLine& line) {
    const auto& tokens = line.tokens;
    auto& analyses = line.analyses;
    size_t nameToken = line.targets[0].nameToken;
    const std::string& name = tokens[nameToken];
    TokenAnalysis& analysis = analyses[nameToken];
    char op = line.assignOperatorIndex < tokens.size() ? tokens[line.assignOperatorIndex][0] : '=';

    FastScalarValue scalar;
    bool isScalar = false;
    if (!line.singleCall.valid) {
        isScalar = tryEvaluateFastExpressionScalar(line.singleValue(), tokens, analyses, scalar);
        if (isScalar && line.scopeTarget == kTargetPlain) {
            // The hot shape: a number into an existing variable, with no Variable built.
            Variable* slot = resolveExistingVariableFastMutable(name, analysis);
            if (slot && op == '=') {
                assignFastScalarToVariable(*slot, scalar);
                return;
            }
            if (slot && tryApplyFastScalarOperationInPlace(*slot, op, scalar)) return;
        }
    }
    finishSimpleAssign(line, op, isScalar, scalar);
}

// An assignment of the inline form on the general path (one its loop code could not take);
// false when a soft error ends the chunk.
bool OrvaneScript::runInlineAssignment(BytecodeProgram& p, const Instruction& instruction, Variable& running) {
    const ParsedScriptLine& line = lineStep(p, instruction.a);
    if (line.tokens.empty() || line.targets.empty()) return true;
    executeSimpleAssign(line);
    if (running.type != VarType::Nil) running = Variable();
    return !shouldAbortForSoftRaisedError();
}

// An expression or assignment statement; false when a soft error ends the chunk.
bool OrvaneScript::runStatement(BytecodeProgram& p, const Instruction& instruction, Variable& running) {
    const ParsedScriptLine& line = lineStep(p, instruction.a);
    if (line.tokens.empty()) return true;
    if (line.storesElement && tryStoreScalarElement(line)) {
        // `a[i] = x` with a number into an array: in place, the value of an assignment.
        if (running.type != VarType::Nil) running = Variable();
        return true;
    }
    running = executeStatement(line);
    return !shouldAbortForSoftRaisedError();
}

void OrvaneScript::runInlineChunk(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunkIndex,
                                  BlockSignal& signal, Variable& running) {
    runLoopCode(program, loopCodeFor(*program, chunkIndex), signal, running);
}

// One instruction; false when a soft error aborts the chunk.
bool OrvaneScript::executeInstruction(const std::shared_ptr<BytecodeProgram>& program, const Instruction& instruction,
                                      BlockSignal& signal, Variable& running, bool inlineForm) {
    BytecodeProgram& p = *program;
    auto body = [&](uint32_t chunk, BlockSignal& inner) -> Variable {
        if (!inlineForm) return runBlock(program, chunk, inner);
        // An inline chunk was accepted with all its nested chunks.
        Variable value;
        runInlineChunk(program, chunk, inner, value);
        return value;
    };
    switch (instruction.opcode) {
    case Opcode::Statement: return runStatement(p, instruction, running);
    case Opcode::SimpleAssign: {
        const ParsedScriptLine& line = lineStep(p, instruction.a);
        if (line.tokens.empty() || line.targets.empty()) return true;
        executeSimpleAssign(line);
        running = Variable();
        return !shouldAbortForSoftRaisedError();
    }
    case Opcode::IfGroup: {
        if (instruction.a >= p.ifGroups.size())
            throw std::runtime_error(inlineForm ? "Inline bytecode if-group index out of range"
                                                : "Bytecode if-group index out of range");
        for (const BytecodeIfBranch& branch : p.ifGroups[instruction.a].branches) {
            const ParsedScriptLine& line = lineStep(p, branch.line);
            bool holds = branch.isElse || evaluateLineCondition(line, "if");
            if (shouldAbortForSoftRaisedError()) return false;
            if (!holds) continue;
            Variable value = body(branch.chunk, signal);
            if (shouldAbortForSoftRaisedError()) return false;
            if (signal != BlockSignal::None) running = std::move(value);
            return true;
        }
        return true;
    }
    case Opcode::WhileLoop: {
        if (instruction.a >= p.whileLoops.size())
            throw std::runtime_error(inlineForm ? "Inline bytecode while-loop index out of range"
                                                : "Bytecode while-loop index out of range");
        const BytecodeWhileLoop& loop = p.whileLoops[instruction.a];
        Variable value;  // taken only on a Return, so one serves every iteration
        for (;;) {
            const ParsedScriptLine& line = lineStep(p, loop.line);
            bool holds = evaluateLineCondition(line, "while");
            if (shouldAbortForSoftRaisedError()) return false;
            if (!holds) return true;
            BlockSignal inner = BlockSignal::None;
            if (inlineForm) runInlineChunk(program, loop.chunk, inner, value);
            else value = runBlock(program, loop.chunk, inner);
            if (shouldAbortForSoftRaisedError()) return false;
            if (inner == BlockSignal::Return) {
                signal = inner;
                running = std::move(value);
                return true;
            }
            if (inner == BlockSignal::Break) return true;
        }
    }
    case Opcode::RepeatLoop: {
        if (instruction.a >= p.repeatLoops.size())
            throw std::runtime_error(inlineForm ? "Inline bytecode repeat-loop index out of range"
                                                : "Bytecode repeat-loop index out of range");
        const BytecodeRepeatLoop& loop = p.repeatLoops[instruction.a];
        for (;;) {
            BlockSignal inner = BlockSignal::None;
            Variable value = body(loop.chunk, inner);
            if (shouldAbortForSoftRaisedError()) return false;
            if (inner == BlockSignal::Break) return true;
            if (inner == BlockSignal::Return) {
                signal = inner;
                running = std::move(value);
                return true;
            }
            const ParsedScriptLine& line = lineStep(p, loop.untilLine);
            if (line.tokens.empty() || line.tokens[0] != "until") throwError("Missing until condition", "until");
            bool holds = evaluateLineCondition(line, "until");
            if (shouldAbortForSoftRaisedError()) return false;
            if (holds) return true;
        }
    }
    case Opcode::NumericFor: {
        if (instruction.a >= p.numericForLoops.size())
            throw std::runtime_error(inlineForm ? "Inline bytecode numeric-for index out of range"
                                                : "Bytecode numeric-for index out of range");
        const BytecodeForLoop& loop = p.numericForLoops[instruction.a];
        const ParsedScriptLine& line = lineStep(p, loop.line);
        auto& analyses = line.analyses;
        int32_t first = 0, last = 0, step = 1;
        bool known = line.forClause().start.valid && line.forClause().limit.valid &&
                     tryEvaluateFastExpressionIntNode(line.forClause().start, line.forClause().start.root, line.tokens, analyses, first) &&
                     tryEvaluateFastExpressionIntNode(line.forClause().limit, line.forClause().limit.root, line.tokens, analyses, last) &&
                     (!line.forClause().hasStep || (line.forClause().step.valid && tryEvaluateFastExpressionIntNode(
                                                                     line.forClause().step, line.forClause().step.root, line.tokens,
                                                                     analyses, step)));
        bool compiled = line.forClause().start.valid && line.forClause().limit.valid && (!line.forClause().hasStep || line.forClause().step.valid);
        if (!known && compiled) {
            Variable start = evaluateFastExpression(line.forClause().start, line.tokens, analyses);
            if (shouldAbortForSoftRaisedError()) return false;
            Variable limit = evaluateFastExpression(line.forClause().limit, line.tokens, analyses);
            if (shouldAbortForSoftRaisedError()) return false;
            Variable increment(int32_t(1));
            if (line.forClause().hasStep) {
                increment = evaluateFastExpression(line.forClause().step, line.tokens, analyses);
                if (shouldAbortForSoftRaisedError()) return false;
            }
            // As after reading the whole clause on the token route.
            nearToken = line.tokens.back();
            first = toInt(start);
            last = toInt(limit);
            step = toInt(increment);
        } else if (!known) {
            if (!evaluateForBounds(line, first, last, step)) return false;
        }
        return runCompiledNumericFor(program, line, loop.chunk, first, last, step, signal, running, inlineForm);
    }
    case Opcode::GenericFor: {
        if (instruction.a >= p.genericForLoops.size())
            throw std::runtime_error("Bytecode generic-for index out of range");
        const BytecodeForLoop& loop = p.genericForLoops[instruction.a];
        const ParsedScriptLine& line = lineStep(p, loop.line);
        BodyRunner runner = [&](BlockSignal& inner) { return body(loop.chunk, inner); };
        Variable value = runGenericFor(line, runner, signal);
        if (shouldAbortForSoftRaisedError()) return false;
        if (signal == BlockSignal::Return) running = std::move(value);
        return true;
    }
    case Opcode::FunctionDecl: {
        if (instruction.a >= p.functions.size())
            throw std::runtime_error("Bytecode function-declaration index out of range");
        const BytecodeFunctionDecl& declaration = p.functions[instruction.a];
        const ParsedScriptLine& line = lineStep(p, declaration.line);
        std::vector<Variable> keys;
        size_t nameToken = 0;
        uint8_t target = kTargetPlain;
        CallablePtr function = readFunctionDeclaration(line, keys, nameToken, target);
        if (!function) return false;
        function->bytecode = program;
        function->chunkIndex = declaration.chunk;
        if (declaration.bodyStart <= declaration.bodyEnd && declaration.bodyEnd <= p.lines.size())
            function->parameterTokens =
                findParameterTokens(p.lines, declaration.bodyStart, declaration.bodyEnd, function->parameters);
        function->sourceRoot = declaration.sourceRoot;
        function->sourcePath = declaration.sourcePath;
        if (declaration.bodyStart <= declaration.bodyEnd && declaration.bodyEnd <= p.lines.size()) {
            function->body.assign(p.lines.begin() + declaration.bodyStart, p.lines.begin() + declaration.bodyEnd);
            prepareParsedLines(function->body);
            prepareFastCallableBody(*function);
        }
        storeFunction(line, nameToken, keys, Variable(std::move(function)), target);
        return true;
    }
    case Opcode::Return: {
        const ParsedScriptLine& line = lineStep(p, instruction.a);
        running = executeReturn(line, signal);
        return !shouldAbortForSoftRaisedError();
    }
    case Opcode::Break:
        lineStep(p, instruction.a);
        signal = BlockSignal::Break;
        return true;
    }
    return true;
}

// The loop of a numeric for over a compiled body; the inline question is decided once.
bool OrvaneScript::runCompiledNumericFor(const std::shared_ptr<BytecodeProgram>& program, const ParsedScriptLine& line,
                                         uint32_t chunk, int32_t first, int32_t last, int32_t step,
                                         BlockSignal& signal, Variable& running, bool inlineForm) {
    requireForStep(line, step);
    struct LoopScope {
        OrvaneScript& script;
        size_t index;
        OrvaneScript::ScopeState state;
        ~LoopScope() {
            script.popScopes(script.nativeScopes, index);
            script.restoreScopeState(state);
        }
    } scope{*this, nativeScopes.size(), saveScopeState()};
    noteScopeName(line.tokens[1]);
    pushScope(nativeScopes).push_back({line.tokens[1], Variable(first)});
    scopesChanged();
    bool inlineBody = localScopes.size() <= localScopeBase && isInlineableChunk(*program, chunk);
    if (inlineForm && !inlineBody) throw std::runtime_error("Expected inlineable numeric-for chunk");
    // The counter runs in 64 bits, so a limit at the end of the 32-bit range still ends the loop.
    // Only a Return takes the body's value, so one Variable serves every iteration.
    Variable value;
    if (inlineBody) {
        // The loop code turns the counter itself at the end of its body.
        CountedLoop counted{first, last, step, scope.index};
        if (step > 0 ? first > last : first < last) return true;
        BlockSignal inner = BlockSignal::None;
        runLoopCode(program, loopCodeFor(*program, chunk), inner, value, &counted);
        return !shouldAbortForSoftRaisedError();
    }
    // A body without locals pushes no scope: it runs in this activation, whose handler locates its
    // errors as its own would.
    const BytecodeProgram& p = *program;
    const BytecodeChunk* plain = chunk < p.chunks.size() && !p.chunks[chunk].hasLocalDeclarations &&
                                         uint64_t(p.chunks[chunk].firstInstruction) + p.chunks[chunk].instructionCount <=
                                             p.instructions.size()
                                     ? &p.chunks[chunk]
                                     : nullptr;
    for (int64_t counter = first; step > 0 ? counter <= last : counter >= last; counter += step) {
        // The counter, not the variable, drives the loop: write it in place.
        Variable& variable = nativeScopes[scope.index][0].value;
        if (variable.type == VarType::Int) *std::get_if<int32_t>(&variable.value) = int32_t(counter);
        else variable = Variable(int32_t(counter));
        BlockSignal inner = BlockSignal::None;
        if (plain) runChunkInstructions(program, *plain, inner, value);
        else value = executeBytecodeChunk(program, chunk, inner);
        if (shouldAbortForSoftRaisedError()) return false;
        if (inner == BlockSignal::Return) {
            signal = inner;
            running = std::move(value);
            return true;
        }
        if (inner == BlockSignal::Break) break;
    }
    return true;
}

// The rest of SimpleAssign, out of the hot function: calls, non-scalar values, new variables.
void OrvaneScript::finishSimpleAssign(const ParsedScriptLine& line, char op, bool isScalar, FastScalarValue scalar) {
    const auto& tokens = line.tokens;
    auto& analyses = line.analyses;
    size_t nameToken = line.targets[0].nameToken;
    const std::string& name = tokens[nameToken];
    TokenAnalysis& analysis = analyses[nameToken];
    Variable value;
    if (!line.singleCall.valid) {
        if (!isScalar) value = evaluateFastExpressionNode(line.singleValue(), line.singleValue().root, tokens, analyses);
    } else {
        const auto& argExpressions = line.singleCall.arguments;
        size_t count = argExpressions.size();
        ArgumentBuffer buffer(count);
        for (size_t i = 0; i < count; ++i) {
            buffer.pushFrom([&] { return evaluateFastExpression(argExpressions[i], tokens, analyses); });
            if (shouldAbortForSoftRaisedError()) return;
        }
        Variable* args = buffer.data();
        Variable callee;
        resolveVariableFast(tokens[line.singleCall.nameToken], analyses[line.singleCall.nameToken], callee);
        if (callee.type == VarType::Function && callee.asCallable()) {
            const ScriptCallable& function = *callee.asCallable();
            if (function.isNative) isScalar = tryEvaluateNativeBuiltinScalar(function.builtinId, args, count, scalar);
            else if (function.fastBodyKind != 0) isScalar = tryEvaluateFastCallableScalar(function, args, count, scalar);
        }
        if (!isScalar) {
            // Set as the token route leaves it: behind the closing parenthesis of the call.
            nearToken = tokens.back();
            value = invokeCallableFast(callee, args, count);
        }
    }
    if (shouldAbortForSoftRaisedError()) return;

    bool isCall = line.singleCall.valid ||
                  (line.singleValue().valid && line.singleValue().nodes[size_t(line.singleValue().root)].kind == FastExprNodeKind::Call);
    if (!isScalar && isCall && value.type == VarType::Multi) {
        const VariableArray& values = value.asMulti()->values;
        value = values.empty() ? Variable() : values[0];
    }
    if (op == '=') {
        if (line.scopeTarget != kTargetPlain) {
            assignVariableFast(name, analysis, isScalar ? fastScalarToVariable(scalar) : value, line.scopeTarget);
            return;
        }
        Variable* slot = resolveExistingVariableFastMutable(name, analysis);
        if (slot) {
            if (isScalar) assignFastScalarToVariable(*slot, scalar);
            else *slot = std::move(value);
        } else {
            pushVariable(name, isScalar ? fastScalarToVariable(scalar) : value);
        }
        return;
    }
    Variable* slot = resolveExistingVariableFastMutable(name, analysis);
    if (!slot) throwError("Variable not found: " + name, tokens.back());
    if (isScalar) {
        if (tryApplyFastScalarOperationInPlace(*slot, op, scalar)) return;
        value = fastScalarToVariable(scalar);
    } else if (tryApplyOperationInPlace(*slot, op, value)) {
        return;
    }
    *slot = performOperation(*slot, op, value);
}

}  // namespace orvane
