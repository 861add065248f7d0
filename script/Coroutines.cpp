// Coroutines of decay functions. The interpreter holds at most one scheduled coroutine and gives
// it one turn after each statement of the main flow; a turn runs one statement of the coroutine
// on the same thread, with the interpreter's scope stacks and error state swapped for its own.
#include "script/Coroutines.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "script/Operations.h"

namespace orvane {

namespace {

const char* kErrorPrefix = "OrvaneScript error:";

// Exchanges the per-flow members of the interpreter with those of a coroutine, by move. The
// scopes that become visible may shadow globals that tokens have cached, hence the new epoch.
void swapFlowState(OrvaneScript& s, CoroutineState& c) {
    std::swap(s.nativeScopes, c.nativeScopes);
    std::swap(s.localScopes, c.localScopes);
    std::swap(s.localScopeBase, c.localScopeBase);
    std::swap(s.sourceRootStack, c.sourceRootStack);
    std::swap(s.sourcePathStack, c.sourcePathStack);
    std::swap(s.varargStack, c.varargStack);
    std::swap(s.callDepth, c.callDepth);
    std::swap(s.protectedDepths, c.protectedDepths);
    std::swap(s.softRaised, c.softRaised);
    std::swap(s.softDepth, c.softDepth);
    std::swap(s.softMessage, c.softMessage);
    ++s.shadowEpoch;
    s.scopeGrew();
}

// The main flow's running fast callable and error location, put aside for a turn.
struct SavedFlowPosition {
    explicit SavedFlowPosition(OrvaneScript& s)
        : callable(s.fastCallable), args(s.fastArgs), argCount(s.fastArgCount), lineNumber(s.currentLineNumber),
          tokenIndex(s.currentTokenIndex), line(s.currentLine), sourceText(std::move(s.currentSourceText)),
          near(std::move(s.nearToken)), nearFromFast(s.nearTokenFromFast) {
        s.fastCallable = nullptr;
        s.fastArgs = nullptr;
        s.fastArgCount = 0;
        s.scopesChanged();
        s.currentLineNumber = 0;
        s.currentTokenIndex = 0;
        s.currentLine = nullptr;
        s.currentSourceText.clear();
        s.nearToken.clear();
        s.nearTokenFromFast = false;
    }
    void restore(OrvaneScript& s) {
        s.fastCallable = callable;
        s.fastArgs = args;
        s.fastArgCount = argCount;
        s.scopesChanged();
        s.currentLineNumber = lineNumber;
        s.currentTokenIndex = tokenIndex;
        s.currentLine = line;
        s.currentSourceText = std::move(sourceText);
        s.nearToken = std::move(near);
        s.nearTokenFromFast = nearFromFast;
    }
    const ScriptCallable* callable;
    const Variable* args;
    size_t argCount;
    uint64_t lineNumber, tokenIndex;
    const ParsedScriptLine* line;
    std::string sourceText, near;
    bool nearFromFast;
};

bool isNumericForLine(const ParsedScriptLine& line) {
    return line.tokens.size() > 3 && isIdentifier(line.tokens[1]) && line.tokens[2] == "=";
}

}  // namespace

// The stepping form of the statement rules, one frame kind at a time.
struct CoroutineStepper {
    OrvaneScript& s;
    CoroutineState& state;
    const std::vector<ParsedScriptLine>& body;

    const ParsedScriptLine& lineStep(uint64_t index) {
        if (index >= body.size()) throw std::runtime_error("Coroutine line index out of range");
        const ParsedScriptLine& line = body[index];
        s.recordLine(line);
        return line;
    }

    uint64_t link(const ParsedScriptLine& line, const char* missing) {
        if (line.matchIndex == kNoLink || line.matchIndex > body.size()) throw std::runtime_error(missing);
        return line.matchIndex;
    }

    void pushLoop(CoroutineFrameKind kind, uint64_t header, uint64_t bodyStart, uint64_t bodyEnd) {
        CoroutineFrame frame;
        frame.kind = kind;
        frame.headerLine = header;
        frame.bodyStart = bodyStart;
        frame.bodyEnd = bodyEnd;
        state.frames.push_back(std::move(frame));
    }

    // True when a soft error has to end the coroutine; its frames go.
    bool softAbort() {
        if (!s.shouldAbortForSoftRaisedError()) return false;
        state.frames.clear();
        return true;
    }

    // One visit of the innermost block frame; true when a statement ran.
    bool stepBlock() {
        CoroutineFrame& frame = state.frames.back();
        while (frame.position < frame.end && frame.position < body.size() && body[frame.position].tokens.empty())
            ++frame.position;
        if (frame.position >= frame.end) {
            s.popCoroutineBlockFrame(state);
            return false;
        }
        uint64_t index = frame.position;
        const ParsedScriptLine& line = lineStep(index);
        switch (line.kind) {
        case LineKind::ElseIf:
        case LineKind::Else:
        case LineKind::End:
        case LineKind::Until: ++frame.position; return false;
        case LineKind::If: stepIfChain(index); return false;
        case LineKind::While: {
            uint64_t end = link(line, "Missing 'end' for while block");
            frame.position = end + 1;
            pushLoop(CoroutineFrameKind::While, index, index + 1, end);
            return false;
        }
        case LineKind::Repeat: {
            uint64_t until = link(line, "Missing 'until' for repeat block");
            frame.position = until + 1;
            pushLoop(CoroutineFrameKind::Repeat, until, index + 1, until);
            return false;
        }
        case LineKind::For: {
            uint64_t end = link(line, "Missing 'end' for for block");
            frame.position = end + 1;
            pushLoop(isNumericForLine(line) ? CoroutineFrameKind::NumericFor : CoroutineFrameKind::GenericFor, index,
                     index + 1, end);
            return false;
        }
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: declareFunction(line, index); return true;
        case LineKind::Return: state.frames.clear(); return false;  // the values are not evaluated
        case LineKind::Break:
            s.popCoroutineBlockFrame(state);
            while (!state.frames.empty() && state.frames.back().kind == CoroutineFrameKind::Block)
                s.popCoroutineBlockFrame(state);
            if (state.frames.empty()) throw std::runtime_error("break used outside a loop");
            s.popCoroutineLoopFrame(state);
            return true;
        default: {
            s.executeStatement(line);
            if (softAbort()) return true;
            ++state.frames.back().position;
            return true;
        }
        }
    }

    // Finds the clause that holds and enters its body; the chain itself is free.
    void stepIfChain(uint64_t ifIndex) {
        uint64_t clause = ifIndex;
        bool found = false;
        uint64_t from = 0, to = 0;
        for (;;) {
            const ParsedScriptLine& line = lineStep(clause);
            bool holds = line.kind == LineKind::Else || s.evaluateLineCondition(line, "if");
            if (softAbort()) return;
            uint64_t next = line.nextClauseIndex != kNoLink ? line.nextClauseIndex : line.matchIndex;
            if (holds) {
                if (next == kNoLink || next > body.size()) throw std::runtime_error("Missing 'end' for if block");
                found = true;
                from = clause + 1;
                to = next;
                break;
            }
            if (line.nextClauseIndex == kNoLink) break;
            clause = line.nextClauseIndex;
        }
        uint64_t end = link(body[ifIndex], "Missing 'end' for if block");
        state.frames.back().position = end + 1;
        if (found && from < to) s.pushCoroutineBlockFrame(state, from, to);
    }

    void declareFunction(const ParsedScriptLine& line, uint64_t index) {
        std::vector<Variable> keys;
        size_t nameToken = 0;
        uint8_t target = kTargetPlain;
        CallablePtr function = s.readFunctionDeclaration(line, keys, nameToken, target);
        if (!function) {
            softAbort();
            return;
        }
        uint64_t end = link(line, "Missing 'end' for function block");
        if (!s.sourceRootStack.empty() && s.sourceRootStack.back()) function->sourceRoot = *s.sourceRootStack.back();
        if (!s.sourcePathStack.empty() && s.sourcePathStack.back()) function->sourcePath = *s.sourcePathStack.back();
        // No bytecode: the function runs through its body lines.
        function->body.assign(body.begin() + std::ptrdiff_t(index + 1), body.begin() + std::ptrdiff_t(end));
        prepareParsedLines(function->body, !s.referenceRoute);
        prepareFastCallableBody(*function);
        s.storeFunction(line, nameToken, keys, Variable(std::move(function)), target);
        if (softAbort()) return;
        state.frames.back().position = end + 1;
    }

    void stepWhile() {
        CoroutineFrame& frame = state.frames.back();
        uint64_t bodyStart = frame.bodyStart, bodyEnd = frame.bodyEnd;
        bool holds = s.evaluateLineCondition(lineStep(frame.headerLine), "while");
        if (softAbort()) return;
        if (holds) s.pushCoroutineBlockFrame(state, bodyStart, bodyEnd);
        else s.popCoroutineLoopFrame(state);
    }

    void stepRepeat() {
        CoroutineFrame& frame = state.frames.back();
        if (frame.initialized && frame.checkUntil) {
            const ParsedScriptLine& line = lineStep(frame.headerLine);
            if (line.tokens.empty() || line.tokens[0] != "until") s.throwError("Missing until condition", "until");
            bool holds = s.evaluateLineCondition(line, "until");
            if (softAbort()) return;
            if (holds) s.popCoroutineLoopFrame(state);
            else state.frames.back().checkUntil = false;
            return;
        }
        frame.initialized = true;
        frame.checkUntil = true;
        s.pushCoroutineBlockFrame(state, frame.bodyStart, frame.bodyEnd);
    }

    // The bounds as the compiled numeric for takes them; false on a soft error.
    bool numericBounds(const ParsedScriptLine& line, int32_t& first, int32_t& last, int32_t& step) {
        auto& analyses = line.analyses;
        const auto& tokens = line.tokens;
        step = 1;
        if (line.forClause().start.valid && line.forClause().limit.valid &&
            s.tryEvaluateFastExpressionIntNode(line.forClause().start, line.forClause().start.root, tokens, analyses, first) &&
            s.tryEvaluateFastExpressionIntNode(line.forClause().limit, line.forClause().limit.root, tokens, analyses, last) &&
            (!line.forClause().hasStep ||
             (line.forClause().step.valid &&
              s.tryEvaluateFastExpressionIntNode(line.forClause().step, line.forClause().step.root, tokens, analyses, step))))
            return true;
        if (line.forClause().start.valid && line.forClause().limit.valid) {
            Variable start = s.evaluateFastExpression(line.forClause().start, tokens, analyses);
            Variable limit = s.evaluateFastExpression(line.forClause().limit, tokens, analyses);
            Variable increment(int32_t(1));
            if (line.forClause().hasStep)
                increment = line.forClause().step.valid ? s.evaluateFastExpression(line.forClause().step, tokens, analyses) : Variable();
            if (s.shouldAbortForSoftRaisedError()) return false;
            s.nearToken = tokens.back();
            first = toInt(start);
            last = toInt(limit);
            step = toInt(increment);
            return true;
        }
        return s.evaluateForBounds(line, first, last, step);
    }

    void stepNumericFor() {
        CoroutineFrame* frame = &state.frames.back();
        if (!frame->initialized) {
            const ParsedScriptLine& line = lineStep(frame->headerLine);
            int32_t first = 0, last = 0, step = 1;
            if (!numericBounds(line, first, last, step)) {
                softAbort();
                return;
            }
            s.requireForStep(line, step);
            Scope scope;
            scope.reserve(1);
            s.noteScopeName(line.tokens[1]);
            scope.push_back({line.tokens[1], Variable(first)});
            s.nativeScopes.push_back(std::move(scope));
            s.scopesChanged();
            frame->counter = first;
            frame->limit = last;
            frame->step = step;
            frame->initialized = true;
            frame->bodyRan = false;
        }
        if (frame->bodyRan) {
            frame->counter += frame->step;
            frame->bodyRan = false;
        }
        bool done = frame->step < 1 ? frame->counter < frame->limit : frame->counter > frame->limit;
        if (done) {
            s.popCoroutineLoopFrame(state);
            return;
        }
        if (s.nativeScopes.empty() || s.nativeScopes.back().empty())
            throw std::runtime_error("numeric for loop scope is missing");
        s.nativeScopes.back()[0].value = Variable(int32_t(frame->counter));
        frame->bodyRan = true;
        s.pushCoroutineBlockFrame(state, frame->bodyStart, frame->bodyEnd);
    }

    // A key and a value bound by the loop rule: one name gets a new pair, more get both.
    static VariableArray pairRow(size_t nameCount, const Variable& key, const Variable& value) {
        if (nameCount == 1) return VariableArray{Variable(VariableArray{key, value})};
        return VariableArray{key, value};
    }

    // Every row of the loop, computed at entry: a turn can't hold an iterator across the main
    // flow's changes. False on a soft error.
    bool genericRows(const ParsedScriptLine& line, CoroutineFrame& frame) {
        const auto& tokens = line.tokens;
        size_t pos = s.readLoopNames(line, frame.names);
        size_t nameCount = frame.names.size();
        if (line.forClause().iteratorBuiltin == kBuiltinPairs || line.forClause().iteratorBuiltin == kBuiltinIpairs) {
            bool isPairs = line.forClause().iteratorBuiltin == kBuiltinPairs;
            Variable container =
                line.forClause().iterator.valid ? s.evaluateFastExpression(line.forClause().iterator, tokens, line.analyses) : Variable();
            if (s.shouldAbortForSoftRaisedError()) return false;
            if (container.type == VarType::Array) {
                const VariableArray& items = *container.asArray();
                for (size_t i = 0; i < items.size(); ++i)
                    frame.rows.push_back(pairRow(nameCount, Variable(int32_t(i + 1)), items[i]));
            } else if (container.type == VarType::Table && isPairs) {
                const TablePtr& table = container.asTable();
                const std::vector<std::string> keys = s.getIterationTableKeys(table);
                const VariableArray keyValues = s.getIterationTableKeyValues(table);
                for (size_t i = 0; i < keys.size(); ++i) {
                    auto it = table->find(keys[i]);
                    frame.rows.push_back(pairRow(nameCount, keyValues[i], it == table->end() ? Variable() : it->second));
                }
            } else if (container.type == VarType::Table) {
                const TablePtr& table = container.asTable();
                int32_t length = s.numericTableLength(table);
                for (int32_t i = 1; i <= length; ++i) {
                    auto it = table->find(std::to_string(i));
                    frame.rows.push_back(pairRow(nameCount, Variable(i), it == table->end() ? Variable() : it->second));
                }
            } else {
                throw std::runtime_error(isPairs ? "pairs(container) expects an array or table"
                                                 : "ipairs(container) expects an array or table");
            }
            return true;
        }
        Variable iterator;
        if (line.forClause().iterator.valid) {
            iterator = s.evaluateFastExpression(line.forClause().iterator, tokens, line.analyses);
        } else {
            iterator = s.evaluateExpression(tokens, pos, &line.analyses);
            if (s.shouldAbortForSoftRaisedError()) return false;
            if (pos < tokens.size()) s.throwError("Unexpected token after for iterator", tokens[pos]);
        }
        if (s.shouldAbortForSoftRaisedError()) return false;
        if (iterator.type != VarType::Array) throw std::runtime_error("generic for loops expect an array iterator");
        for (const Variable& element : *iterator.asArray()) {
            if (nameCount > 1 && element.type == VarType::Array) frame.rows.push_back(*element.asArray());
            else frame.rows.push_back(VariableArray{element});
        }
        return true;
    }

    void stepGenericFor() {
        CoroutineFrame* frame = &state.frames.back();
        if (!frame->initialized) {
            frame->names.clear();
            frame->rows.clear();
            frame->rowIndex = 0;
            const ParsedScriptLine& line = lineStep(frame->headerLine);
            if (!genericRows(line, *frame)) {
                softAbort();
                return;
            }
            Scope scope;
            scope.reserve(std::max<size_t>(frame->names.size(), 4));
            for (const std::string& name : frame->names) {
                s.noteScopeName(name);
                scope.push_back({name, Variable()});
            }
            s.nativeScopes.push_back(std::move(scope));
            s.scopesChanged();
            frame->initialized = true;
            frame->bodyRan = false;
        }
        if (frame->rowIndex >= frame->rows.size()) {
            s.popCoroutineLoopFrame(state);
            return;
        }
        if (frame->bodyRan) {
            ++frame->rowIndex;
            frame->bodyRan = false;
            return;
        }
        if (s.nativeScopes.empty()) throw std::runtime_error("generic for loop scope is missing");
        Scope& scope = s.nativeScopes.back();
        const VariableArray& row = frame->rows[frame->rowIndex];
        for (size_t i = 0; i < scope.size(); ++i) scope[i].value = i < row.size() ? row[i] : Variable();
        frame->bodyRan = true;
        s.pushCoroutineBlockFrame(state, frame->bodyStart, frame->bodyEnd);
    }
};

std::shared_ptr<CoroutineState> OrvaneScript::createCoroutineState(const CallablePtr& callable, const Variable* args,
                                                                   size_t count) {
    auto state = std::make_shared<CoroutineState>();
    state->callable = callable;
    const ScriptCallable& function = *callable;
    Scope parameters;
    parameters.reserve(function.parameters.size());
    for (size_t i = 0; i < function.parameters.size(); ++i)
        parameters.push_back({function.parameters[i], i < count ? args[i] : Variable()});
    state->nativeScopes.push_back(std::move(parameters));
    if (function.isVariadic) {
        size_t named = std::min(function.parameters.size(), count);
        state->varargStack.emplace_back(args + named, args + count);
    }
    if (!function.sourceRoot.empty()) state->sourceRootStack.push_back(&function.sourceRoot);
    if (!function.sourcePath.empty()) state->sourcePathStack.push_back(&function.sourcePath);
    state->localScopes.emplace_back();
    state->localScopes.back().reserve(4);
    CoroutineFrame frame;
    frame.end = function.body.size();
    frame.ownsScope = true;
    state->frames.push_back(std::move(frame));
    return state;
}

void OrvaneScript::startCoroutine(const CallablePtr& callable, const Variable* args, size_t count) {
    std::shared_ptr<CoroutineState> state = createCoroutineState(callable, args, count);
    if (!insideCoroutineTurn) {
        scheduledCoroutine = std::move(state);  // whatever was scheduled is dropped
        return;
    }
    // From inside a turn the running coroutine hands over: it ends here, the new one starts at
    // the next turn.
    replacementCoroutine = std::move(state);
    turnEnded = true;
    throw CoroutineTerminated();
}

void OrvaneScript::pushCoroutineBlockFrame(CoroutineState& state, uint64_t begin, uint64_t end) {
    CoroutineFrame frame;
    frame.position = begin;
    frame.end = end;
    frame.ownsScope = true;
    frame.savedLocalScopes = localScopes.size();
    frame.savedLocalScopeBase = localScopeBase;
    localScopes.emplace_back();
    localScopes.back().reserve(4);
    scopeGrew();
    state.frames.push_back(std::move(frame));
}

void OrvaneScript::popCoroutineBlockFrame(CoroutineState& state) {
    if (state.frames.empty()) return;
    const CoroutineFrame& frame = state.frames.back();
    if (frame.ownsScope) {
        if (localScopes.size() > frame.savedLocalScopes) localScopes.resize(frame.savedLocalScopes);
        localScopeBase = frame.savedLocalScopeBase;
        scopeGrew();
    }
    state.frames.pop_back();
}

void OrvaneScript::popCoroutineLoopFrame(CoroutineState& state) {
    if (state.frames.empty()) return;
    CoroutineFrameKind kind = state.frames.back().kind;
    if ((kind == CoroutineFrameKind::NumericFor || kind == CoroutineFrameKind::GenericFor) && !nativeScopes.empty())
        nativeScopes.pop_back();
    scopeGrew();
    state.frames.pop_back();
}

// Exactly one assignment, expression, declaration or break per turn; conditions, loop heads,
// `if` chains and `end`s are free on the way to it.
bool OrvaneScript::executeCoroutineTurn(CoroutineState& state) {
    if (!state.callable) return true;
    CoroutineStepper stepper{*this, state, state.callable->body};
    bool stepped = false;
    for (;;) {
        if (stepped) return state.frames.empty();
        if (state.frames.empty()) return true;
        switch (state.frames.back().kind) {
        case CoroutineFrameKind::Block: stepped = stepper.stepBlock(); break;
        case CoroutineFrameKind::While: stepper.stepWhile(); break;
        case CoroutineFrameKind::Repeat: stepper.stepRepeat(); break;
        case CoroutineFrameKind::NumericFor: stepper.stepNumericFor(); break;
        case CoroutineFrameKind::GenericFor: stepper.stepGenericFor(); break;
        }
    }
}

void OrvaneScript::serviceScheduledCoroutineTurn() {
    if (!scheduledCoroutine) return;
    std::shared_ptr<CoroutineState> state = scheduledCoroutine;
    insideCoroutineTurn = true;
    turnEnded = false;
    replacementCoroutine.reset();
    SavedFlowPosition saved(*this);
    swapFlowState(*this, *state);
    // Puts the main flow back after a turn that failed; the coroutine is dead.
    auto endFailedTurn = [&] {
        swapFlowState(*this, *state);
        saved.restore(*this);
        insideCoroutineTurn = false;
        turnEnded = false;
        replacementCoroutine.reset();
        if (scheduledCoroutine == state) scheduledCoroutine.reset();
    };
    bool finished = false;
    try {
        finished = executeCoroutineTurn(*state);
    } catch (const CoroutineTerminated&) {
        turnEnded = true;
    } catch (const std::exception& e) {
        std::exception_ptr error = std::current_exception();
        // Located here, while the coroutine's line is current.
        if (!std::string_view(e.what()).starts_with(kErrorPrefix)) {
            try {
                throwError(e.what(), nearToken.empty() ? std::string_view("script") : std::string_view(nearToken));
            } catch (...) {
                error = std::current_exception();
            }
        }
        endFailedTurn();
        std::rethrow_exception(error);
    } catch (...) {
        std::exception_ptr error = std::current_exception();
        endFailedTurn();
        std::rethrow_exception(error);
    }
    swapFlowState(*this, *state);
    saved.restore(*this);
    insideCoroutineTurn = false;
    if (turnEnded) {
        if (replacementCoroutine) scheduledCoroutine = std::move(replacementCoroutine);
        else if (scheduledCoroutine == state) scheduledCoroutine.reset();
    } else if (finished && scheduledCoroutine == state) {
        scheduledCoroutine.reset();
    }
    turnEnded = false;
    replacementCoroutine.reset();
}

void OrvaneScript::serviceScheduledCoroutineTurnNoThrow() noexcept {
    if (insideCoroutineTurn || !scheduledCoroutine || pendingCoroutineException) return;
    try {
        serviceScheduledCoroutineTurn();
    } catch (...) {
        // The first error is kept; the main flow meets it at its next statement.
        if (!pendingCoroutineException) pendingCoroutineException = std::current_exception();
    }
}

void OrvaneScript::throwPendingCoroutineException() {
    std::exception_ptr error = std::move(pendingCoroutineException);
    pendingCoroutineException = nullptr;
    std::rethrow_exception(error);
}

}  // namespace orvane
