// Functions whose body is one `return`, or a literal guard and a `return`, run without a scope:
// their parameters are read straight from the caller's argument array.
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
        : script(s), countsCall(countCall), savedCallable(s.fastCallable), savedArgs(s.fastArgs), savedCount(s.fastArgCount),
          varargHeight(s.varargStack.size()), rootHeight(s.sourceRootStack.size()),
          pathHeight(s.sourcePathStack.size()), scopes(s.scopeState()) {
        if (countsCall) ++script.callDepth;
        script.noteParameterNames(callable);
        script.fastCallable = &callable;
        script.fastArgs = args;
        script.fastArgCount = count;
        script.scopesChanged();
        if (callable.isVariadic) {
            size_t named = std::min(callable.parameters.size(), count);
            script.varargStack.emplace_back(args + named, args + count);
        }
        if (!callable.sourceRoot.empty()) {
            script.sourceRootStack.push_back(&callable.sourceRoot);
            if (!callable.sourcePath.empty()) script.sourcePathStack.push_back(&callable.sourcePath);
        }
    }
    ~FastFrameGuard() {
        script.sourcePathStack.resize(pathHeight);
        script.sourceRootStack.resize(rootHeight);
        script.varargStack.resize(varargHeight);
        script.fastArgCount = savedCount;
        script.fastArgs = savedArgs;
        script.fastCallable = savedCallable;
        script.restoreScopeState(scopes);
        if (countsCall) --script.callDepth;
    }
    OrvaneScript& script;
    bool countsCall;
    const ScriptCallable* savedCallable;
    const Variable* savedArgs;
    size_t savedCount, varargHeight, rootHeight, pathHeight;
    OrvaneScript::ScopeState scopes;
};

}  // namespace

void prepareFastCallableBody(ScriptCallable& callable) {
    callable.fastBodyKind = 0;
    callable.fastGuardLine = 0;
    callable.fastReturnLine = 0;
    callable.fastGuardMessage.clear();
    std::vector<size_t> lines;
    for (size_t i = 0; i < callable.body.size() && lines.size() < 5; ++i)
        if (!callable.body[i].tokens.empty()) lines.push_back(i);
    if (lines.empty() || lines.back() > 0xFFFF) return;
    const auto& body = callable.body;
    if (lines.size() == 1 && body[lines[0]].kind == LineKind::Return) {
        callable.fastBodyKind = 1;
        callable.fastReturnLine = uint16_t(lines[0]);
        return;
    }
    std::string message;
    if (lines.size() == 4 && body[lines[0]].kind == LineKind::If && body[lines[0]].matchIndex == lines[2] &&
        body[lines[0]].nextClauseIndex == kNoLink && extractLiteralErrorCall(body[lines[1]], message) &&
        body[lines[2]].kind == LineKind::End && body[lines[3]].kind == LineKind::Return) {
        callable.fastBodyKind = 2;
        callable.fastGuardLine = uint16_t(lines[0]);
        callable.fastReturnLine = uint16_t(lines[3]);
        callable.fastGuardMessage = std::move(message);
    }
}

// The guard of a shape-2 body: true when it fires.
static bool guardHolds(OrvaneScript& script, const ParsedScriptLine& line) {
    auto& analyses = line.analyses;
    if (line.condition.valid) {
        FastScalarValue s;
        if (script.tryEvaluateFastExpressionScalar(line.condition, line.tokens, analyses, s)) return fastScalarIsTruthy(s);
        return isTruthy(script.evaluateFastExpression(line.condition, line.tokens, analyses));
    }
    size_t pos = 1;
    bool holds = script.evaluateCondition(line.tokens, pos, &analyses);
    if (pos < line.tokens.size()) throw std::runtime_error("Unexpected token after if condition");
    return holds;
}

bool OrvaneScript::tryEvaluateFastCallableScalar(const ScriptCallable& callable, const Variable* args, size_t count,
                                                 FastScalarValue& out) {
    if (callable.isNative || callable.isDecay || callable.fastBodyKind == 0) return false;
    if (callable.fastReturnLine >= callable.body.size()) return false;
    const ParsedScriptLine& returnLine = callable.body[callable.fastReturnLine];
    if (returnLine.returnValues.size() != 1 || !returnLine.returnValues[0].valid) return false;
    FastFrameGuard frame(*this, callable, args, count, true);
    if (callable.fastBodyKind == 2 && guardHolds(*this, callable.body[callable.fastGuardLine])) {
        raiseScriptErrorSoft(callable.fastGuardMessage);
        out = FastScalarValue::makeNil();
        return true;
    }
    return tryEvaluateFastExpressionScalar(returnLine.returnValues[0], returnLine.tokens, returnLine.analyses, out);
}

Variable OrvaneScript::evaluateFastCallableReturn(const ScriptCallable& callable) {
    BlockSignal signal = BlockSignal::None;
    return executeReturn(callable.body[callable.fastReturnLine], signal);
}

Variable OrvaneScript::callFastBody(const CallablePtr& function, const Variable* args, size_t count) {
    LocationGuard location(*this);
    Variable result;
    {
        FastFrameGuard frame(*this, *function, args, count, false);
        // No line runs here, so an error is located at the body's line as a block would do it.
        const ParsedScriptLine* line = nullptr;
        try {
            if (function->fastBodyKind == 2) {
                line = &function->body[function->fastGuardLine];
                recordLine(*line);
                if (guardHolds(*this, *line)) {
                    raiseScriptErrorSoft(function->fastGuardMessage);
                    return Variable();
                }
            }
            line = &function->body[function->fastReturnLine];
            recordLine(*line);
            result = evaluateFastCallableReturn(*function);
        } catch (const std::exception& e) {
            if (std::string_view(e.what()).starts_with("OrvaneScript error:")) throw;
            throwError(e.what(), nearToken.empty() ? std::string_view(line->tokens[0]) : std::string_view(nearToken));
        }
    }
    if (shouldAbortForSoftRaisedError()) return Variable();
    return result;
}

}  // namespace orvane
