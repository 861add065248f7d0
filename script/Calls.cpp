// Calls into natives and script functions, located error texts, and the soft errors that let
// `error` and `pcall` work by plain returns instead of unwinding the native stack.
#include <sys/resource.h>

#include <algorithm>

#include "script/OrvaneScript.h"

namespace orvane {

struct CallDepthGuard {
    explicit CallDepthGuard(OrvaneScript& s) : script(s) { ++script.callDepth; }
    ~CallDepthGuard() { --script.callDepth; }
    OrvaneScript& script;
};

// Binds a script call's parameters, varargs and source location; restores every stack to its
// height at entry on the way out, which also drops loop scopes left by an exception. A fast
// body that called this one is not running any more: its parameters must not hide this one's.
struct CallFrameGuard {
    CallFrameGuard(OrvaneScript& s, const ScriptCallable& function, const Variable* args, size_t count)
        : script(s),
          nativeHeight(s.nativeScopes.size()),
          varargHeight(s.varargStack.size()),
          rootHeight(s.sourceRootStack.size()),
          pathHeight(s.sourcePathStack.size()),
          fastCallable(s.fastCallable),
          running(s.runningCallable),
          fastArgs(s.fastArgs),
          fastArgCount(s.fastArgCount),
          scopes(s.saveScopeState()) {
        script.fastCallable = nullptr;
        script.runningCallable = &function;
        const auto& parameters = function.parameters;
        Scope& scope = script.pushScope(script.nativeScopes);
        script.noteParameterNames(function);
        size_t bound = std::min(parameters.size(), count);
        // Built in place from the arguments: no temporary entry to move.
        for (size_t i = 0; i < bound; ++i) scope.emplace_back(parameters[i], args[i]);
        for (size_t i = bound; i < parameters.size(); ++i) scope.emplace_back().name = parameters[i];
        script.scopesChanged();
        // With no fast body running, the new entries are what these names stand for until the
        // stacks change, unless a visible local has the name; so the body's first reads need no search.
        if (!script.referenceRoute) {
            uint64_t hidden = script.hiddenParameters(function);
            for (const auto& [analysis, slot] : function.parameterTokens) {
                if (hidden != 0 && (hidden & OrvaneScript::parameterBit(slot))) continue;
                analysis->cachedEpoch = script.scopeEpoch;
                analysis->cachedVariable = &scope[slot].value;
            }
        }
        if (function.isVariadic) script.varargStack.emplace_back(args + bound, args + count);
        // A recursive call names the same source as its caller: nothing to push.
        if (!function.sourceRoot.empty() && !onTop(script.sourceRootStack, &function.sourceRoot))
            script.sourceRootStack.push_back(&function.sourceRoot);
        if (!function.sourcePath.empty() && !onTop(script.sourcePathStack, &function.sourcePath))
            script.sourcePathStack.push_back(&function.sourcePath);
    }
    static bool onTop(const std::vector<const std::string*>& stack, const std::string* text) {
        return !stack.empty() && stack.back() == text;
    }
    ~CallFrameGuard() {
        script.sourcePathStack.resize(pathHeight);
        script.sourceRootStack.resize(rootHeight);
        if (script.varargStack.size() != varargHeight) script.varargStack.resize(varargHeight);
        script.popScopes(script.nativeScopes, nativeHeight);
        script.fastCallable = fastCallable;
        script.runningCallable = running;
        script.fastArgs = fastArgs;
        script.fastArgCount = fastArgCount;
        script.restoreScopeState(scopes);
    }
    OrvaneScript& script;
    size_t nativeHeight, varargHeight, rootHeight, pathHeight;
    const ScriptCallable* fastCallable;
    const ScriptCallable* running;
    const Variable* fastArgs;
    size_t fastArgCount;
    OrvaneScript::ScopeState scopes;
};

uint8_t builtinIdFromName(std::string_view name) {
    static const std::pair<const char*, uint8_t> ids[] = {
        {"assert", kBuiltinAssert}, {"getTimeMs", kBuiltinGetTimeMs}, {"toString", kBuiltinToString},
        {"toNumber", kBuiltinToNumber}, {"error", kBuiltinError}, {"pcall", kBuiltinPcall}, {"load", kBuiltinLoad},
        {"pairs", kBuiltinPairs}, {"ipairs", kBuiltinIpairs}, {"next", kBuiltinNext}, {"select", kBuiltinSelect},
        {"collectGarbage", kBuiltinCollectGarbage}, {"len", kBuiltinLen}, {"string.len", kBuiltinStringLen},
        {"string.upper", kBuiltinStringUpper}, {"string.sub", kBuiltinStringSub}, {"string.find", kBuiltinStringFind},
        {"string.match", kBuiltinStringMatch}, {"string.gmatch", kBuiltinStringGmatch},
        {"string.byte", kBuiltinStringByte}, {"string.format", kBuiltinStringFormat},
        {"string.gsub", kBuiltinStringGsub}, {"table.insert", kBuiltinTableInsert},
        {"table.remove", kBuiltinTableRemove}, {"table.concat", kBuiltinTableConcat},
        {"table.sort", kBuiltinTableSort}, {"math.floor", kBuiltinMathFloor}, {"math.ceil", kBuiltinMathCeil},
        {"math.abs", kBuiltinMathAbs}, {"math.min", kBuiltinMathMin}, {"math.max", kBuiltinMathMax},
        {"math.sin", kBuiltinMathSin}, {"math.cos", kBuiltinMathCos}, {"math.rad", kBuiltinMathRad},
        {"math.log", kBuiltinMathLog}, {"math.sqrt", kBuiltinMathSqrt}, {"utf8.len", kBuiltinUtf8Len},
    };
    for (const auto& [text, id] : ids)
        if (name == text) return id;
    return kBuiltinNone;
}

Variable OrvaneScript::dispatchBuiltinFast(uint8_t id, const Variable* args, size_t count) {
    switch (id) {
    case kBuiltinAssert: return assertFunction(args, count);
    case kBuiltinGetTimeMs: return getTimeMsFunction(args, count);
    case kBuiltinToString: return toStringFunction(args, count);
    case kBuiltinToNumber: return toNumberFunction(args, count);
    case kBuiltinError: return errorFunction(args, count);
    case kBuiltinPcall: return pcallFunctionFast(args, count);
    case kBuiltinLoad: return loadScriptChunk(args, count);
    case kBuiltinPairs: return pairsFunction(args, count);
    case kBuiltinIpairs: return ipairsFunction(args, count);
    case kBuiltinNext: return nextFunction(args, count);
    case kBuiltinSelect: return selectFunctionFast(args, count);
    case kBuiltinCollectGarbage: return collectGarbageFunction(args, count);
    case kBuiltinLen: return lenFunction(args, count);
    default: return dispatchLibraryBuiltinFast(id, args, count);
    }
}

// Each script call costs several native frames (more under sanitizers), so depth is bounded by
// the stack actually used rather than by a count.
// Calls check against the budget and everything else against a little more, so that a runaway
// recursion always stops at a call, whatever the frame sizes of this build.
// The frame address, not a local's: under AddressSanitizer locals may live on a heap "fake stack".
void OrvaneScript::checkNativeStack(size_t slack) {
    if (!stackBase) return;
    const char* here = static_cast<const char*>(__builtin_frame_address(0));
    if (here < stackBase && size_t(stackBase - here) > stackBudget + slack) throw std::runtime_error("stack overflow");
}

static size_t nativeStackBudget() {
    size_t size = size_t(8) << 20;
    struct rlimit limit;
    if (getrlimit(RLIMIT_STACK, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) size = std::min<size_t>(size, limit.rlim_cur);
    // Leave room for the natives that a script calls at the deepest point, and for the unwinding.
    return size / 2;
}

void OrvaneScript::markStackBase() {
    stackBase = static_cast<const char*>(__builtin_frame_address(0));
    stackBudget = nativeStackBudget();
}

Variable OrvaneScript::invokeCallable(const Variable& callee, const VariableArray& arguments) {
    return invokeCallableFast(callee, arguments.data(), arguments.size());
}

Variable OrvaneScript::invokeCallableFast(const Variable& callee, const Variable* args, size_t count) {
    // A turn starts at call depth 0 of its own, deep in the main flow's stack: keep that base.
    if (callDepth == 0 && !insideCoroutineTurn) markStackBase();
    CallDepthGuard depth(*this);
    checkNativeStack(0);
    if (callee.type != VarType::Function)
        throw std::runtime_error(std::string("Attempted to call a non-function value of type ") + typeName(callee.type));
    const CallablePtr& named = callee.asCallable();
    // A function calling itself is held by its own running call already: no count to move.
    if (named && named.get() == runningCallable) return callScriptFunction(*named, args, count);
    // Held here, so that a function that replaces its own global keeps running.
    CallablePtr function = named;
    if (!function) throw std::runtime_error("Attempted to call an invalid function value");
    if (function->isDecay) {
        startCoroutine(function, args, count);
        return Variable();
    }
    if (function->isNative) {
        Variable result = function->builtinId != kBuiltinNone ? dispatchBuiltinFast(function->builtinId, args, count)
                                                               : callNative(*function, args, count);
        if (shouldAbortForSoftRaisedError()) return Variable();
        return result;
    }
    return callScriptFunction(*function, args, count);
}

// Natives take their arguments as a vector; the vectors are kept per nesting depth and reused,
// so that a call allocates nothing once the depth has been seen.
Variable OrvaneScript::callNative(const ScriptCallable& function, const Variable* args, size_t count) {
    if (nativeArgumentDepth >= nativeArguments.size()) nativeArguments.emplace_back();
    VariableArray& arguments = nativeArguments[nativeArgumentDepth];
    arguments.assign(args, args + count);
    struct Depth {
        OrvaneScript& s;
        ~Depth() {
            s.nativeArguments[--s.nativeArgumentDepth].clear();
        }
    } depth{*this};
    ++nativeArgumentDepth;
    // A deque keeps the vector in place while nested calls add depths.
    return function.nativeFunction(arguments);
}

Variable OrvaneScript::callScriptFunction(const ScriptCallable& function, const Variable* args, size_t count) {
    if (function.isLoadedChunk && count != 0) throw std::runtime_error("Loaded script chunks do not accept call arguments");
    if (function.fastBodyKind != 0) return callFastBody(function, args, count);
    return callBoundBody(function, args, count);
}

// The value is built in place all the way up (one way out at each level); the frame is unbound
// before the soft error is tested.
Variable OrvaneScript::callBoundBody(const ScriptCallable& function, const Variable* args, size_t count) {
    BlockSignal signal = BlockSignal::None;
    Variable result = [&] {
        LocationGuard location(*this, LocationGuard::Take{});
        CallFrameGuard frame(*this, function, args, count);
        size_t position = 0;
        Variable value = function.bytecode && !referenceRoute
                             ? executeBytecodeChunk(function.bytecode, function.chunkIndex, signal)
                             : executeParsedBlock(function.body, position, signal);
        rethrowPendingCoroutineException();
        return value;
    }();
    if (shouldAbortForSoftRaisedError()) {
        if (!result.isNil()) result = Variable();
    } else if (signal == BlockSignal::Break) {
        throw std::runtime_error("break used outside a loop");
    }
    return result;
}

void OrvaneScript::throwError(const std::string& message, std::string_view token) {
    std::string text = "OrvaneScript error: " + message + "\n  at ";
    if (!sourcePathStack.empty() && sourcePathStack.back()) text += *sourcePathStack.back() + ":";
    else text += "line ";
    text += std::to_string(currentLineNumber + 1);
    if (!token.empty()) {
        text += ", near token '";
        text += token;
        text += "'";
    }
    text += "\n";
    std::string source = !currentSourceText.empty() ? currentSourceText : (currentLine ? currentLine->text : "");
    text += "  " + source + "\n";
    size_t column = source.size();
    size_t width = 1;
    if (!token.empty() && token != "EOF") {
        size_t found = source.find(token);
        if (found != std::string::npos) {
            column = found;
            width = token.size();
        }
    }
    text += "  " + std::string(column, ' ') + "^";
    if (width > 1 && column + width <= source.size()) text += std::string(width - 1, '~');
    text += "\n  hint: check spelling, operators, parentheses, and quote matching\n";
    throw std::runtime_error(text);
}

void OrvaneScript::raiseScriptErrorSoft(const std::string& message) {
    if (protectedDepths.empty()) throw RaisedScriptError(message);
    if (softRaised) return;
    softRaised = true;
    softDepth = protectedDepths.back();
    softMessage = message;
}

void OrvaneScript::clearSoftRaisedError() {
    softRaised = false;
    softDepth = 0;
    softMessage.clear();
}

Variable OrvaneScript::pcallFunctionFast(const Variable* args, size_t count) {
    if (count == 0) throw std::runtime_error("pcall requires a callable value");
    uint64_t depth = callDepth;
    protectedDepths.push_back(depth);
    auto failed = [&](const std::string& message) {
        protectedDepths.pop_back();
        // A soft error meant for this pcall dies with it, whatever unwound the frames.
        if (softRaised && softDepth >= depth) clearSoftRaisedError();
        return Variable::makeMulti(VariableArray{Variable(false), Variable(message)});
    };
    Variable value;
    try {
        value = invokeCallableFast(args[0], args + 1, count - 1);
    } catch (const RaisedScriptError& e) {
        return failed(e.what());
    } catch (const std::exception& e) {
        return failed(e.what());
    }
    if (softRaised && softDepth == depth) {
        std::string message = softMessage;
        clearSoftRaisedError();
        protectedDepths.pop_back();
        return Variable::makeMulti(VariableArray{Variable(false), Variable(std::move(message))});
    }
    protectedDepths.pop_back();
    VariableArray values{Variable(true)};
    if (const VariableArray* multi = multiValuesPtr(value)) values.insert(values.end(), multi->begin(), multi->end());
    else if (!value.isNil()) values.push_back(std::move(value));
    return Variable::makeMulti(std::move(values));
}

}  // namespace orvane
