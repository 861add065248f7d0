// Functions whose body is one `return`, or a guard and a `return`, run without a scope: their
// parameters are read straight from the caller's argument array.
#include <algorithm>
#include <stdexcept>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

// `error('literal')` exactly: the decoded literal, or false.
bool extractLiteralErrorCall(const ParsedScriptLine& line, std::string& message) {
    const auto& t = line.tokens;
    if (t.size() != 4 || t[0] != "error" || t[1] != "(" || t[3] != ")") return false;
    const std::string& literal = t[2];
    if (literal.size() < 2 || (literal[0] != '"' && literal[0] != '\'') || literal.back() != literal[0]) return false;
    message = decodeStringToken(literal);
    return true;
}

// Sets the fast frame, source stacks and call depth for a fast body; restores them on every way out.
struct FastFrameGuard {
    FastFrameGuard(OrvaneScript& s, const ScriptCallable& callable, const Variable* args, size_t count, bool countCall)
        : script(s), countsCall(countCall), savedCallable(s.fastCallable), savedRunning(s.runningCallable),
          savedArgs(s.fastArgs), savedCount(s.fastArgCount), scopes(s.saveScopeState()) {
        if (countsCall) ++script.callDepth;
        script.noteParameterNames(callable);
        script.fastCallable = &callable;
        script.runningCallable = &callable;
        script.fastArgs = args;
        script.fastArgCount = count;
        script.scopesChanged();
        // Unless a visible local hides them, the parameters come first: their tokens can point at
        // the arguments until the stacks change. A missing one is searched each time (a fresh nil).
        if (!script.referenceRoute) {
            uint64_t hidden = script.hiddenParameters(callable);
            for (const auto& [analysis, slot] : callable.parameterTokens) {
                if (slot >= count || (hidden != 0 && (hidden & OrvaneScript::parameterBit(slot)))) continue;
                analysis->cachedEpoch = script.scopeEpoch;
                analysis->cachedVariable = const_cast<Variable*>(&args[slot]);
            }
        }
        if (callable.isVariadic) {
            size_t named = std::min(callable.parameters.size(), count);
            script.varargStack.emplace_back(args + named, args + count);
            pushedVarargs = true;
        }
        // A recursive call names the same source as its caller: nothing to push.
        if (!callable.sourceRoot.empty()) {
            pushedRoot = !onTop(script.sourceRootStack, &callable.sourceRoot);
            if (pushedRoot) script.sourceRootStack.push_back(&callable.sourceRoot);
            pushedPath = !callable.sourcePath.empty() && !onTop(script.sourcePathStack, &callable.sourcePath);
            if (pushedPath) script.sourcePathStack.push_back(&callable.sourcePath);
        }
    }
    static bool onTop(const std::vector<const std::string*>& stack, const std::string* text) {
        return !stack.empty() && stack.back() == text;
    }
    ~FastFrameGuard() {
        // Whatever ran inside restored its own pushes on its way out.
        if (pushedPath) script.sourcePathStack.pop_back();
        if (pushedRoot) script.sourceRootStack.pop_back();
        if (pushedVarargs) script.varargStack.pop_back();
        script.fastArgCount = savedCount;
        script.fastArgs = savedArgs;
        script.fastCallable = savedCallable;
        script.runningCallable = savedRunning;
        script.restoreScopeState(scopes);
        if (countsCall) --script.callDepth;
    }
    OrvaneScript& script;
    bool countsCall;
    const ScriptCallable* savedCallable;
    const ScriptCallable* savedRunning;
    const Variable* savedArgs;
    size_t savedCount;
    bool pushedVarargs = false, pushedRoot = false, pushedPath = false;
    OrvaneScript::ScopeState scopes;
};

// A compiled condition without calls: a scalar attempt that evaluated it and then refused the
// answer has caused nothing that the fallback causes again.
bool guardIsCallFree(const ParsedScriptLine& line) {
    const FastExpression& e = line.expression;
    return e.valid && e.root >= 0 && !(e.nodes[size_t(e.root)].flags & kFastExprNodeHasCall);
}

}  // namespace

std::vector<std::pair<TokenAnalysis*, uint32_t>> findParameterTokens(const std::vector<ParsedScriptLine>& lines,
                                                                     size_t begin, size_t end,
                                                                     const std::vector<std::string>& parameters) {
    std::vector<std::pair<TokenAnalysis*, uint32_t>> found;
    for (size_t i = begin; i < end && i < lines.size(); ++i) {
        const ParsedScriptLine& line = lines[i];
        for (size_t k = 0; k < line.tokens.size() && k < line.analyses.size(); ++k) {
            if (!line.analyses[k].isIdentifier) continue;
            for (uint32_t slot = 0; slot < parameters.size(); ++slot) {
                if (line.tokens[k] != parameters[slot]) continue;
                found.emplace_back(&line.analyses[k], slot);
                break;
            }
        }
    }
    return found;
}

void prepareFastCallableBody(ScriptCallable& callable) {
    callable.fastBodyKind = 0;
    callable.fastGuardLine = 0;
    callable.fastReturnLine = 0;
    callable.fastGuardReturnLine = 0;
    callable.fastGuardMessage.clear();
    std::vector<size_t> lines;
    for (size_t i = 0; i < callable.body.size() && lines.size() < 5; ++i)
        if (!callable.body[i].tokens.empty()) lines.push_back(i);
    if (lines.empty() || lines.back() > 0xFFFF) return;
    const auto& body = callable.body;
    if (lines.size() == 1 && body[lines[0]].kind == LineKind::Return) {
        callable.fastBodyKind = 1;
        callable.fastReturnLine = uint16_t(lines[0]);
        callable.parameterTokens = findParameterTokens(body, 0, body.size(), callable.parameters);
        return;
    }
    if (lines.size() != 4 || body[lines[0]].kind != LineKind::If || body[lines[0]].matchIndex != lines[2] ||
        body[lines[0]].nextClauseIndex != kNoLink || body[lines[2]].kind != LineKind::End ||
        body[lines[3]].kind != LineKind::Return)
        return;
    std::string message;
    if (extractLiteralErrorCall(body[lines[1]], message)) {
        callable.fastBodyKind = 2;
        callable.fastGuardMessage = std::move(message);
    } else if (body[lines[1]].kind == LineKind::Return && guardIsCallFree(body[lines[0]])) {
        callable.fastBodyKind = 3;
        callable.fastGuardReturnLine = uint16_t(lines[1]);
    } else {
        return;
    }
    callable.fastGuardLine = uint16_t(lines[0]);
    callable.fastReturnLine = uint16_t(lines[3]);
    callable.parameterTokens = findParameterTokens(body, 0, body.size(), callable.parameters);
}

// The guard of a shape-2 or shape-3 body: true when it fires.
static bool guardHolds(OrvaneScript& script, const ParsedScriptLine& line) {
    auto& analyses = line.analyses;
    if (line.expression.valid) {
        FastScalarValue s;
        if (script.tryEvaluateFastExpressionScalar(line.expression, line.tokens, analyses, s)) return fastScalarIsTruthy(s);
        return isTruthy(script.evaluateFastExpression(line.expression, line.tokens, analyses));
    }
    size_t pos = 1;
    bool holds = script.evaluateCondition(line.tokens, pos, &analyses);
    if (pos < line.tokens.size()) throw std::runtime_error("Unexpected token after if condition");
    return holds;
}

// The guard's literal error, raised where the token route would stand: behind the condition.
static void raiseGuardError(OrvaneScript& script, const ScriptCallable& callable, const ParsedScriptLine& guard) {
    script.noteTokenRead(guard.tokens.back());
    script.raiseScriptErrorSoft(callable.fastGuardMessage);
}

// An error of a body line, located there as a block would do it; one located already passes.
[[noreturn]] static void locateInBody(OrvaneScript& script, const std::exception& e, const ParsedScriptLine& line) {
    if (std::string_view(e.what()).starts_with("OrvaneScript error:")) throw;
    script.throwError(e.what(),
                      script.nearToken.empty() ? std::string_view(line.tokens[0]) : std::string_view(script.nearToken));
}

bool OrvaneScript::tryEvaluateFastCallableScalar(const ScriptCallable& callable, const Variable* args, size_t count,
                                                 FastScalarValue& out) {
    if (callable.isNative || callable.isDecay || callable.fastBodyKind == 0) return false;
    if (callable.fastReturnLine >= callable.body.size()) return false;
    const ParsedScriptLine& returnLine = callable.body[callable.fastReturnLine];
    if (returnLine.returnValues.size() != 1 || !returnLine.returnValues[0].valid) return false;
    FastFrameGuard frame(*this, callable, args, count, true);
    // Errors name the body's lines, as on the full call.
    LocationGuard location(*this, LocationGuard::Take{});
    const ParsedScriptLine* line = &returnLine;
    try {
        if (callable.fastBodyKind >= 2) {
            line = &callable.body[callable.fastGuardLine];
            recordLine(*line);
            if (guardHolds(*this, *line)) {
                if (callable.fastBodyKind == 3) {
                    const ParsedScriptLine& early = callable.body[callable.fastGuardReturnLine];
                    if (early.returnValues.size() != 1 || !early.returnValues[0].valid) return false;
                    line = &early;
                    recordLine(early);
                    return tryEvaluateFastExpressionScalar(early.returnValues[0], early.tokens, early.analyses, out);
                }
                raiseGuardError(*this, callable, *line);
                out = FastScalarValue::makeNil();
                return true;
            }
            line = &returnLine;
        }
        recordLine(returnLine);
        return tryEvaluateFastExpressionScalar(returnLine.returnValues[0], returnLine.tokens, returnLine.analyses, out);
    } catch (const std::exception& e) {
        locateInBody(*this, e, *line);
    }
}

Variable OrvaneScript::evaluateFastCallableReturn(const ScriptCallable& callable, uint16_t line) {
    const ParsedScriptLine& answer = callable.body[line];
    // One compiled value, the common answer, as the return statement takes it.
    if (answer.returnValues.size() == 1 && answer.returnValues[0].valid)
        return evaluateReturnValue(answer.returnValues[0], answer);
    BlockSignal signal = BlockSignal::None;
    return executeReturn(answer, signal);
}

Variable OrvaneScript::callFastBody(const ScriptCallable& function, const Variable* args, size_t count) {
    // Each way through records a line before anything reads the location.
    LocationGuard location(*this, LocationGuard::Take{});
    // One named value and one way out, so that the value is built in the caller's place.
    Variable result;
    {
        FastFrameGuard frame(*this, function, args, count, false);
        // No line runs here, so an error is located at the body's line as a block would do it.
        const ParsedScriptLine* line = nullptr;
        try {
            uint16_t answer = function.fastReturnLine;
            bool raised = false;
            if (function.fastBodyKind >= 2) {
                line = &function.body[function.fastGuardLine];
                recordLine(*line);
                if (guardHolds(*this, *line)) {
                    raised = function.fastBodyKind == 2;
                    if (raised) raiseGuardError(*this, function, *line);
                    else answer = function.fastGuardReturnLine;
                }
            }
            if (!raised) {
                line = &function.body[answer];
                recordLine(*line);
                result = evaluateFastCallableReturn(function, answer);
            }
        } catch (const std::exception& e) {
            locateInBody(*this, e, *line);
        }
    }
    if (shouldAbortForSoftRaisedError() && !result.isNil()) result = Variable();
    return result;
}

}  // namespace orvane
