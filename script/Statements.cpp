// What each statement line does. A block is a position in a line vector plus a signal; nested
// blocks are plain recursive calls over the same vector.
#include <algorithm>

#include "script/ArgumentBuffer.h"
#include "script/LuaPatterns.h"
#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

// Every run of a block has its own local scope, so a `local` lives until the end of the
// innermost block, one loop iteration included.
struct LocalScopeGuard {
    // No room is reserved: most blocks declare nothing, and an empty scope costs no allocation.
    explicit LocalScopeGuard(OrvaneScript& s)
        : script(s), height(s.localScopes.size()), base(s.localScopeBase), state(s.saveScopeState()) {
        script.pushScope(script.localScopes);
    }
    ~LocalScopeGuard() {
        script.localScopeBase = base;
        script.popScopes(script.localScopes, height);
        script.restoreScopeState(state);
    }
    OrvaneScript& script;
    size_t height, base;
    OrvaneScript::ScopeState state;
};

// A loop's native scope, holding its variables; dropped on every way out.
struct LoopScopeGuard {
    LoopScopeGuard(OrvaneScript& s, Scope&& scope)
        : script(s), index(s.nativeScopes.size()), state(s.saveScopeState()) {
        script.pushScope(script.nativeScopes) = std::move(scope);
        script.scopesChanged();
    }
    ~LoopScopeGuard() {
        script.popScopes(script.nativeScopes, index);
        script.restoreScopeState(state);
    }
    Scope& scope() { return script.nativeScopes[index]; }
    OrvaneScript& script;
    size_t index;
    OrvaneScript::ScopeState state;
};

namespace {

bool isBlockCloser(LineKind kind) {
    return kind == LineKind::End || kind == LineKind::Else || kind == LineKind::ElseIf || kind == LineKind::Until;
}

}  // namespace

Variable OrvaneScript::executeBlock(const std::vector<std::string>& lines, size_t& position, BlockSignal& signal) {
    std::string source;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i) source += '\n';
        source += lines[i];
    }
    std::vector<ParsedScriptLine> parsed = compileLines(source);
    return executeParsedBlock(parsed, position, signal);
}

Variable OrvaneScript::executeParsedBlock(const std::vector<ParsedScriptLine>& lines, size_t& position,
                                          BlockSignal& signal) {
    checkNativeStack();
    LocalScopeGuard scope(*this);
    Variable running;
    signal = BlockSignal::None;
    while (position < lines.size()) {
        rethrowPendingCoroutineException();
        if (shouldAbortForSoftRaisedError()) return Variable();
        const ParsedScriptLine& line = lines[position];
        currentLineNumber = line.lineNumber;
        currentLine = &line;
        currentSourceText.clear();
        nearToken.clear();
        nearTokenFromFast = false;
        if (line.tokens.empty()) {
            ++position;
            continue;
        }
        if (isBlockCloser(line.kind)) {
            if (!line.strayCloser) return running;
            ++position;  // closes nothing: as the compiled route, it does nothing
            continue;
        }
        try {
            CoroutineTurnGuard turn(*this);
            switch (line.kind) {
            case LineKind::If: running = executeIfChain(lines, position, signal); break;
            case LineKind::While: running = executeWhile(lines, position, signal); break;
            case LineKind::Repeat: running = executeRepeat(lines, position, signal); break;
            case LineKind::For: running = executeFor(lines, position, signal); break;
            case LineKind::Function:
            case LineKind::DecayFunction:
            case LineKind::NativeFunction:
            case LineKind::LocalFunction:
                executeFunctionDeclaration(lines, position);
                running = Variable();
                break;
            case LineKind::Return: running = executeReturn(line, signal); break;
            case LineKind::Break: signal = BlockSignal::Break; return running;
            default: running = executeStatementLine(lines, position, signal); break;
            }
        } catch (const std::exception& e) {
            const char* text = e.what();
            if (std::string_view(text).starts_with("OrvaneScript error:")) throw;
            throwError(text, nearToken.empty() ? std::string_view(line.tokens[0]) : std::string_view(nearToken));
        }
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (signal != BlockSignal::None) return running;
    }
    return running;
}

Variable OrvaneScript::executeStatementLine(const std::vector<ParsedScriptLine>& lines, size_t& position,
                                            BlockSignal&) {
    Variable value = executeStatement(lines[position]);
    ++position;
    return value;
}

Variable OrvaneScript::executeStatement(const ParsedScriptLine& line) {
    Variable value;
    if (executeAssignment(line, value)) return value;
    if (line.expression.valid) {
        if (tryExecuteDiscardedFastCall(line.expression, line.tokens, line.analyses)) return Variable();
        value = evaluateFastExpression(line.expression, line.tokens, line.analyses);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return value;
    }
    size_t pos = 0;
    value = evaluateExpression(line.tokens, pos, &line.analyses);
    if (shouldAbortForSoftRaisedError()) return Variable();
    if (pos < line.tokens.size()) throwError("Unexpected trailing token", line.tokens[pos]);
    return value;
}

// One named value and one way out: the value is built in the caller's place.
Variable OrvaneScript::evaluateReturnValue(const FastExpression& e, const ParsedScriptLine& line) {
    Variable value = evaluateFastExpression(e, line.tokens, line.analyses);
    if (shouldAbortForSoftRaisedError() && !value.isNil()) value = Variable();
    return value;
}

Variable OrvaneScript::executeReturn(const ParsedScriptLine& line, BlockSignal& signal) {
    signal = BlockSignal::Return;
    const auto& tokens = line.tokens;
    if (tokens.size() == 1) return Variable();
    bool allCompiled = !line.returnValues.empty();
    for (const FastExpression& value : line.returnValues) allCompiled = allCompiled && value.valid;
    // Returned as a call's result, so that the value is built in the caller's place.
    if (allCompiled && line.returnValues.size() == 1) return evaluateReturnValue(line.returnValues[0], line);
    VariableArray values;
    if (allCompiled) {
        for (const FastExpression& value : line.returnValues) {
            values.push_back(evaluateFastExpression(value, tokens, line.analyses));
            if (shouldAbortForSoftRaisedError()) return Variable();
        }
        if (values.size() == 1) return std::move(values[0]);
        return Variable::makeMulti(std::move(values));
    }
    size_t pos = 1;
    for (;;) {
        values.push_back(evaluateExpression(tokens, pos, &line.analyses));
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (pos >= tokens.size()) break;
        if (tokens[pos] != ",") throwError("Unexpected token after return value", tokens[pos]);
        ++pos;
    }
    if (values.size() == 1) return std::move(values[0]);
    return Variable::makeMulti(std::move(values));
}

// A compiled condition takes the number 0 as false; the token route takes every number as true.
bool OrvaneScript::evaluateLineCondition(const ParsedScriptLine& line, const char* keyword) {
    if (line.expression.valid) {
        const FastExpression& e = line.expression;
        FastScalarValue scalar;
        // The flat steps answer as the scalar evaluator would, and its truth is the truth-value
        // evaluator's wherever both answer.
        if (!e.steps.empty() && runFastSteps(e, line.tokens, line.analyses, scalar)) return fastScalarIsTruthy(scalar);
        bool holds;
        if (tryEvaluateFastExpressionBoolNode(e, e.root, line.tokens, line.analyses, holds)) return holds;
        if (tryEvaluateFastExpressionScalarNode(e, e.root, line.tokens, line.analyses, scalar)) return fastScalarIsTruthy(scalar);
        return isTruthy(evaluateFastExpression(e, line.tokens, line.analyses));
    }
    size_t pos = 1;
    bool holds = evaluateCondition(line.tokens, pos, &line.analyses);
    if (shouldAbortForSoftRaisedError()) return false;
    if (pos < line.tokens.size()) throwError(std::string("Unexpected token after ") + keyword + " condition", line.tokens[pos]);
    return holds;
}

Variable OrvaneScript::executeIfChain(const std::vector<ParsedScriptLine>& lines, size_t& position,
                                      BlockSignal& signal) {
    size_t clause = position;
    bool taken = false;
    for (;;) {
        const ParsedScriptLine& line = lines[clause];
        recordLine(line);
        bool holds = line.kind == LineKind::Else || evaluateLineCondition(line, "if");
        if (shouldAbortForSoftRaisedError()) return Variable();
        bool isClause = false;
        size_t next = findMatchingElseOrEnd(lines, clause + 1, isClause);
        if (holds && !taken) {
            size_t body = clause + 1;
            Variable value = executeParsedBlock(lines, body, signal);
            if (shouldAbortForSoftRaisedError()) return Variable();
            if (signal != BlockSignal::None) return value;
            taken = true;
        }
        if (!isClause) {
            position = next + 1;
            return Variable();
        }
        if (!taken) {
            clause = next;
            continue;
        }
        position = findMatchingEnd(lines, clause + 1) + 1;
        return Variable();
    }
}

Variable OrvaneScript::runLoopBody(const std::vector<ParsedScriptLine>& lines, size_t bodyStart, BlockSignal& signal) {
    size_t body = bodyStart;
    return executeParsedBlock(lines, body, signal);
}

Variable OrvaneScript::executeWhile(const std::vector<ParsedScriptLine>& lines, size_t& position,
                                    BlockSignal& signal) {
    const ParsedScriptLine& line = lines[position];
    size_t end = findMatchingEnd(lines, position + 1);
    for (;;) {
        recordLine(line);
        bool holds = evaluateLineCondition(line, "while");
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (!holds) break;
        size_t body = position + 1;
        BlockSignal inner = BlockSignal::None;
        Variable value = executeParsedBlock(lines, body, inner);
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (inner == BlockSignal::Return) {
            signal = inner;
            return value;
        }
        if (inner == BlockSignal::Break) break;
        if (body >= lines.size() || lines[body].kind != LineKind::End) {
            recordLine(line);
            throwError("Missing 'end' for while block", "end");
        }
    }
    position = end + 1;
    return Variable();
}

Variable OrvaneScript::executeRepeat(const std::vector<ParsedScriptLine>& lines, size_t& position,
                                     BlockSignal& signal) {
    size_t untilIndex = findMatchingUntil(lines, position + 1);
    const ParsedScriptLine& untilLine = lines[untilIndex];
    for (;;) {
        size_t body = position + 1;
        BlockSignal inner = BlockSignal::None;
        Variable value = executeParsedBlock(lines, body, inner);
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (inner == BlockSignal::Return) {
            signal = inner;
            return value;
        }
        if (inner == BlockSignal::Break) break;
        if (body != untilIndex) throwError("repeat block did not terminate at matching until", "until");
        recordLine(untilLine);
        if (untilLine.tokens[0] != "until") throwError("Missing until condition", "until");
        bool holds = evaluateLineCondition(untilLine, "until");
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (holds) break;
    }
    position = untilIndex + 1;
    return Variable();
}

Variable OrvaneScript::executeFor(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal) {
    const ParsedScriptLine& line = lines[position];
    size_t end = findMatchingEnd(lines, position + 1);
    size_t bodyStart = position + 1;
    BodyRunner body = [&](BlockSignal& inner) { return runLoopBody(lines, bodyStart, inner); };
    const auto& tokens = line.tokens;
    Variable value;
    if (tokens.size() > 3 && isIdentifier(tokens[1]) && tokens[2] == "=") {
        int32_t first, last, step;
        if (!evaluateForBounds(line, first, last, step)) return Variable();
        value = runNumericFor(line, first, last, step, body, signal);
    } else {
        value = runGenericFor(line, body, signal);
    }
    if (shouldAbortForSoftRaisedError()) return Variable();
    if (signal == BlockSignal::Return) return value;
    position = end + 1;
    return Variable();
}

// The bounds of a numeric for from its tokens; false on a soft error.
bool OrvaneScript::evaluateForBounds(const ParsedScriptLine& line, int32_t& first, int32_t& last, int32_t& step) {
    const auto& tokens = line.tokens;
    size_t pos = 3;
    Variable start = evaluateExpression(tokens, pos, &line.analyses);
    if (shouldAbortForSoftRaisedError()) return false;
    if (pos >= tokens.size() || tokens[pos] != ",")
        throwError("Expected ',' after for start value", pos < tokens.size() ? tokens[pos] : "EOF");
    ++pos;
    Variable limit = evaluateExpression(tokens, pos, &line.analyses);
    if (shouldAbortForSoftRaisedError()) return false;
    Variable increment(int32_t(1));
    if (pos < tokens.size() && tokens[pos] == ",") {
        ++pos;
        increment = evaluateExpression(tokens, pos, &line.analyses);
        if (shouldAbortForSoftRaisedError()) return false;
    }
    if (pos < tokens.size()) throwError("Unexpected token after for clause", tokens[pos]);
    first = toInt(start);
    last = toInt(limit);
    step = toInt(increment);
    return true;
}

void OrvaneScript::requireForStep(const ParsedScriptLine& line, int32_t step) {
    if (step != 0) return;
    nearToken = line.tokens.back();
    throw std::runtime_error("for loop step must not be 0");
}

// One run of a loop body; false ends the loop: a break, a return (its value in `result`, its
// signal passed on) or a soft error.
bool OrvaneScript::runIteration(const BodyRunner& body, BlockSignal& signal, Variable& result) {
    BlockSignal inner = BlockSignal::None;
    Variable value = body(inner);
    if (shouldAbortForSoftRaisedError()) return false;
    if (inner == BlockSignal::Return) {
        signal = inner;
        result = std::move(value);
        return false;
    }
    return inner != BlockSignal::Break;
}

Variable OrvaneScript::runNumericFor(const ParsedScriptLine& line, int32_t first, int32_t last, int32_t step,
                                     const BodyRunner& body, BlockSignal& signal) {
    requireForStep(line, step);
    Scope scope;
    scope.reserve(1);
    noteScopeName(line.tokens[1]);
    scope.push_back({line.tokens[1], Variable(first)});
    LoopScopeGuard loop(*this, std::move(scope));
    Variable result;
    // The counter runs in 64 bits, so a limit at the end of the 32-bit range still ends the loop.
    for (int64_t counter = first; step > 0 ? counter <= last : counter >= last; counter += step) {
        // The counter, not the variable, drives the loop: write it in place.
        Variable& variable = loop.scope()[0].value;
        if (variable.type == VarType::Int) variable.value = int32_t(counter);
        else variable = Variable(int32_t(counter));
        if (!runIteration(body, signal, result)) break;
    }
    return shouldAbortForSoftRaisedError() ? Variable() : result;
}

// The names of a generic for and the position of its iterator expression.
size_t OrvaneScript::readLoopNames(const ParsedScriptLine& line, std::vector<std::string>& names) {
    const auto& tokens = line.tokens;
    if (!line.forClause().variables.empty()) {
        for (uint64_t index : line.forClause().variables) {
            if (index >= tokens.size()) throw std::runtime_error("Compiled generic-for variable index out of range");
            names.push_back(tokens[index]);
        }
        return size_t(line.forClause().variables.back()) + 2;
    }
    size_t pos = 1;
    for (;;) {
        if (pos >= tokens.size() || !isIdentifier(tokens[pos]))
            throwError("Expected loop variable name", pos < tokens.size() ? tokens[pos] : "EOF");
        names.push_back(tokens[pos++]);
        if (pos < tokens.size() && tokens[pos] == ",") {
            ++pos;
            continue;
        }
        break;
    }
    if (pos >= tokens.size() || tokens[pos] != "in")
        throwError("Expected 'in' in generic for loop", pos < tokens.size() ? tokens[pos] : "EOF");
    return pos + 1;
}

Variable OrvaneScript::runGenericFor(const ParsedScriptLine& line, const BodyRunner& body, BlockSignal& signal) {
    const auto& tokens = line.tokens;
    std::vector<std::string> names;
    size_t pos = readLoopNames(line, names);

    // pairs(x) and ipairs(x) written directly walk the container in place, with no list of pairs.
    if (pos + 2 < tokens.size() && isIdentifier(tokens[pos]) && tokens[pos + 1] == "(" && tokens[pos + 2] != ")") {
        Variable callee;
        resolveVariableFast(tokens[pos], line.analyses[pos], callee);
        const ScriptCallable* function = callee.type == VarType::Function ? callee.asCallable().get() : nullptr;
        if (function && function->isNative &&
            (function->builtinId == kBuiltinPairs || function->builtinId == kBuiltinIpairs)) {
            bool isPairs = function->builtinId == kBuiltinPairs;
            Variable lazyResult;
            if (!isPairs && line.forClause().iteratorBuiltin != 0 && line.forClause().iterator.valid &&
                tryLazyIpairs(line, names, body, signal, lazyResult))
                return lazyResult;
            Variable container;
            bool direct;
            if (line.forClause().iteratorBuiltin != 0 && line.forClause().iterator.valid) {
                container = evaluateFastExpression(line.forClause().iterator, tokens, line.analyses);
                direct = true;
                noteTokenRead(tokens[tokens.size() - 2]);
            } else {
                size_t argPos = pos + 2;
                container = evaluateExpression(tokens, argPos, &line.analyses);
                direct = argPos + 1 == tokens.size() && tokens[argPos] == ")";
            }
            if (shouldAbortForSoftRaisedError()) return Variable();
            if (direct) return iteratePairs(names, container, isPairs, body, signal);
        }
    }
    Variable iterator;
    if (line.forClause().iterator.valid && line.forClause().iteratorBuiltin == 0) {
        iterator = evaluateFastExpression(line.forClause().iterator, tokens, line.analyses);
        noteTokenRead(tokens.back());
    } else {
        iterator = evaluateExpression(tokens, pos, &line.analyses);
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (pos < tokens.size()) throwError("Unexpected token after for iterator", tokens[pos]);
    }
    if (shouldAbortForSoftRaisedError()) return Variable();
    if (iterator.type != VarType::Array) throw std::runtime_error("generic for loops expect an array iterator");
    ArrayPtr items = iterator.asArray();
    Scope scope;
    scope.reserve(std::max<size_t>(names.size(), 4));
    for (const std::string& name : names) {
        noteScopeName(name);
        scope.push_back({name, Variable()});
    }
    LoopScopeGuard loop(*this, std::move(scope));
    Variable result;
    for (size_t i = 0; i < items->size(); ++i) {
        Variable element = (*items)[i];
        Scope& s = loop.scope();
        if (names.size() == 1) {
            s[0].value = element;
        } else if (element.type == VarType::Array) {
            const VariableArray& parts = *element.asArray();
            for (size_t k = 0; k < names.size(); ++k) s[k].value = k < parts.size() ? parts[k] : Variable();
        } else {
            s[0].value = element;
            for (size_t k = 1; k < names.size(); ++k) s[k].value = Variable();
        }
        if (!runIteration(body, signal, result)) break;
    }
    return shouldAbortForSoftRaisedError() ? Variable() : result;
}

// Binds each pair that `produce` hands over to the loop's names and runs the body, until the
// body ends the loop or the pairs run out.
Variable OrvaneScript::runPairLoop(const std::vector<std::string>& names, const PairProducer& produce,
                                   const BodyRunner& body, BlockSignal& signal) {
    Scope scope;
    scope.reserve(std::max<size_t>(names.size(), 4));
    for (const std::string& name : names) {
        noteScopeName(name);
        scope.push_back({name, Variable()});
    }
    LoopScopeGuard loop(*this, std::move(scope));
    Variable result;
    produce([&](const Variable& key, const Variable& value) {
        Scope& s = loop.scope();
        if (names.size() == 1) {
            s[0].value = Variable(VariableArray{key, value});
        } else {
            s[0].value = key;
            s[1].value = value;
            for (size_t i = 2; i < names.size(); ++i) s[i].value = Variable();
        }
        return runIteration(body, signal, result);
    });
    if (shouldAbortForSoftRaisedError()) return Variable();
    return result;
}

// ipairs over string.gmatch(...) or string.byte(...) walks the string itself: no array of all
// results is built, and a `break` stops the scan. The results equal those of the array.
bool OrvaneScript::tryLazyIpairs(const ParsedScriptLine& line, const std::vector<std::string>& names,
                                 const BodyRunner& body, BlockSignal& signal, Variable& result) {
    const FastExpression& e = line.forClause().iterator;
    const FastExprNode& call = e.nodes[size_t(e.root)];
    if (call.kind != FastExprNodeKind::Call) return false;
    const FastExprNode& callee = e.nodes[size_t(call.left)];
    const Variable* function = nullptr;
    if (callee.kind == FastExprNodeKind::Variable) {
        function = resolveFast(line.tokens[callee.tokenIndex], line.analyses[callee.tokenIndex]);
    } else if (callee.kind == FastExprNodeKind::Index && e.nodes[size_t(callee.left)].kind == FastExprNodeKind::Variable &&
               e.nodes[size_t(callee.right)].kind == FastExprNodeKind::String) {
        const FastExprNode& table = e.nodes[size_t(callee.left)];
        const Variable* t = resolveFast(line.tokens[table.tokenIndex], line.analyses[table.tokenIndex]);
        if (t && t->type == VarType::Table) {
            auto it = t->asTable()->find(e.strings[e.nodes[size_t(callee.right)].stringIndex]);
            if (it != t->asTable()->end()) function = &it->second;
        }
    }
    if (!function || function->type != VarType::Function || !function->asCallable() || !function->asCallable()->isNative)
        return false;
    uint8_t id = function->asCallable()->builtinId;
    size_t count = size_t(call.intValue);
    if ((id != kBuiltinStringGmatch && id != kBuiltinStringByte) || count > 8) return false;
    ArgumentBuffer buffer(count);
    for (size_t i = 0; i < count; ++i) {
        buffer.pushFrom([&] {
            return evaluateFastExpressionNode(e, e.callArgs[size_t(call.right) + i], line.tokens, line.analyses);
        });
        if (shouldAbortForSoftRaisedError()) {
            result = Variable();
            return true;
        }
    }
    Variable* args = buffer.data();
    // Errors name the call's closing parenthesis, as the call itself would.
    noteTokenRead(line.tokens[call.errorToken]);
    if (id == kBuiltinStringGmatch) {
        if (count != 2 || args[0].type != VarType::String || args[1].type != VarType::String)
            throw std::runtime_error("string['gmatch'](s, pattern) requires a string and a pattern");
        const std::string& subject = args[0].asString();
        const std::string& pattern = args[1].asString();
        result = runPairLoop(names, [&](const PairVisitor& visit) {
            int32_t counter = 0;
            if (pattern == "%d+") {
                size_t start, end;
                for (size_t from = 0; scanDigitRun(subject, from, start, end); from = end)
                    if (!visit(Variable(++counter), Variable(subject.substr(start, end - start)))) return;
                return;
            }
            // Held for the whole loop: its body may push other patterns out of the cache.
            const auto compiledHeld = getCachedGsubPattern(pattern);
            const CompiledGsubPattern& compiled = *compiledHeld;
            PatternMatches matches;
            searchAllMatches(compiled, subject, matches);
            auto text = [&](size_t match, size_t group) {
                int64_t start = matches.start(match, group);
                if (start < 0) return Variable();
                return Variable(subject.substr(size_t(start), size_t(matches.end(match, group) - start)));
            };
            for (size_t m = 0; m < matches.count(); ++m) {
                Variable capture;
                if (compiled.groupCount == 0) {
                    capture = text(m, 0);
                } else if (compiled.groupCount == 1) {
                    capture = text(m, 1);
                } else {
                    VariableArray groups;
                    for (size_t g = 1; g <= compiled.groupCount; ++g) groups.push_back(text(m, g));
                    capture = Variable(std::move(groups));
                }
                if (!visit(Variable(++counter), capture)) return;
            }
        }, body, signal);
        return true;
    }
    if (count < 1 || args[0].type != VarType::String) throw std::runtime_error("string['byte'](s[, i[, j]]) requires a string");
    const std::string& subject = args[0].asString();
    int64_t length = int64_t(subject.size());
    int64_t first = count > 1 ? toInt(args[1]) : 1;
    int64_t last = count > 2 ? toInt(args[2]) : first;
    if (first < 0) first = length + first + 1;
    if (last < 0) last = length + last + 1;
    first = std::max<int64_t>(first, 1);
    last = std::min(last, length);
    result = runPairLoop(names, [&](const PairVisitor& visit) {
        if (length == 0 || first > last || first > length) return;
        int32_t counter = 0;
        for (int64_t i = first; i <= last; ++i)
            if (!visit(Variable(++counter), Variable(int32_t(static_cast<unsigned char>(subject[size_t(i - 1)]))))) return;
    }, body, signal);
    return true;
}

Variable OrvaneScript::iteratePairs(const std::vector<std::string>& names, const Variable& container, bool isPairs,
                                    const BodyRunner& body, BlockSignal& signal) {
    if (container.type != VarType::Array && container.type != VarType::Table)
        throw std::runtime_error(isPairs ? "pairs(container) expects an array or table"
                                         : "ipairs(container) expects an array or table");
    return runPairLoop(names, [&](const PairVisitor& visit) {
        if (container.type == VarType::Array) {
            ArrayPtr items = container.asArray();
            for (size_t i = 0; i < items->size(); ++i) {
                Variable element = (*items)[i];
                if (!visit(Variable(int32_t(i + 1)), element)) return;
            }
        } else if (isPairs) {
            TablePtr table = container.asTable();
            std::vector<std::string> keys = getIterationTableKeys(table);
            VariableArray keyValues = getIterationTableKeyValues(table);
            for (size_t i = 0; i < keys.size(); ++i) {
                auto it = table->find(keys[i]);
                if (!visit(keyValues[i], it == table->end() ? Variable() : it->second)) return;
            }
        } else {
            TablePtr table = container.asTable();
            int32_t length = numericTableLength(table);
            for (int32_t i = 1; i <= length; ++i) {
                auto it = table->find(std::to_string(i));
                if (!visit(Variable(i), it == table->end() ? Variable() : it->second)) return;
            }
        }
    }, body, signal);
}

// Reads a function declaration line: target, index values, parameters. The caller gives the body.
CallablePtr OrvaneScript::readFunctionDeclaration(const ParsedScriptLine& line, std::vector<Variable>& keys,
                                                  size_t& nameToken, uint8_t& target) {
    const auto& tokens = line.tokens;
    size_t pos = line.kind == LineKind::Function ? 1 : 2;
    if (pos >= tokens.size() || !isIdentifier(tokens[pos]))
        throwError("Expected function target", pos < tokens.size() ? tokens[pos] : "EOF");
    nameToken = pos++;
    while (pos < tokens.size() && tokens[pos] == "[") {
        ++pos;
        keys.push_back(evaluateExpression(tokens, pos, &line.analyses));
        if (shouldAbortForSoftRaisedError()) return nullptr;
        if (pos >= tokens.size() || tokens[pos] != "]")
            throwError("Expected closing bracket in function target", pos < tokens.size() ? tokens[pos] : "EOF");
        ++pos;
    }
    if (pos >= tokens.size() || tokens[pos] != "(")
        throwError("Expected '(' after function target", pos < tokens.size() ? tokens[pos] : "EOF");
    ++pos;
    auto function = std::make_shared<ScriptCallable>();
    function->isNative = false;
    function->isDecay = line.kind == LineKind::DecayFunction;
    while (pos < tokens.size() && tokens[pos] != ")") {
        if (tokens[pos] == "...") {
            function->isVariadic = true;
            ++pos;
            break;
        }
        if (!isIdentifier(tokens[pos])) throwError("Expected function parameter name", tokens[pos]);
        function->parameters.push_back(tokens[pos++]);
        if (pos < tokens.size() && tokens[pos] == ",") {
            ++pos;
            continue;
        }
        if (pos >= tokens.size() || tokens[pos] != ")")
            throwError("Expected ',' or ')' after function parameter", pos < tokens.size() ? tokens[pos] : "EOF");
    }
    if (pos >= tokens.size() || tokens[pos] != ")")
        throwError("Expected ')' after function parameters", pos < tokens.size() ? tokens[pos] : "EOF");
    ++pos;
    if (pos < tokens.size()) throwError("Unexpected token after function declaration", tokens[pos]);
    target = line.kind == LineKind::NativeFunction  ? kTargetNative
             : line.kind == LineKind::LocalFunction ? kTargetLocal
                                                    : kTargetPlain;
    return function;
}

void OrvaneScript::storeFunction(const ParsedScriptLine& line, size_t nameToken, const std::vector<Variable>& keys,
                                 const Variable& function, uint8_t target) {
    const std::string& name = line.tokens[nameToken];
    if (keys.empty()) {
        assignVariable(name, function, target);
        return;
    }
    Variable container;
    if (!resolveVariableFast(name, line.analyses[nameToken], container)) container = Variable::makeTable();
    Variable* level = &container;
    for (size_t i = 0; i + 1 < keys.size(); ++i) {
        if (getIndexedValue(*level, keys[i]).isNil())
            setIndexedValue(*level, keys[i],
                            prefersArrayStorage(keys[i + 1]) ? Variable::makeArray() : Variable::makeTable(), true);
        level = &getIndexedValueMutable(*level, keys[i], true);
    }
    setIndexedValue(*level, keys.back(), function, true);
    assignVariable(name, container, target);
}

void OrvaneScript::executeFunctionDeclaration(const std::vector<ParsedScriptLine>& lines, size_t& position) {
    const ParsedScriptLine& line = lines[position];
    std::vector<Variable> keys;
    size_t nameToken = 0;
    uint8_t target = kTargetPlain;
    CallablePtr function = readFunctionDeclaration(line, keys, nameToken, target);
    if (!function) return;
    size_t end = findMatchingEnd(lines, position + 1);
    if (!sourceRootStack.empty() && sourceRootStack.back()) function->sourceRoot = *sourceRootStack.back();
    if (!sourcePathStack.empty() && sourcePathStack.back()) function->sourcePath = *sourcePathStack.back();
    function->body.assign(lines.begin() + std::ptrdiff_t(position + 1), lines.begin() + std::ptrdiff_t(end));
    prepareParsedLines(function->body, !referenceRoute);
    prepareFastCallableBody(*function);
    storeFunction(line, nameToken, keys, Variable(std::move(function)), target);
    position = end + 1;
}

}  // namespace orvane
