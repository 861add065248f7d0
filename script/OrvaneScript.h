// The OrvaneScript interpreter: name spaces, the token evaluator, statements, calls and errors.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

#include "script/FastExpression.h"
#include "script/FastScalarOps.h"
#include "script/ParsedLine.h"
#include "script/Variable.h"

namespace orvane {

// Fast dispatch ids of built-in natives, fixed by registered name.
enum BuiltinId : uint8_t {
    kBuiltinNone = 0,
    kBuiltinAssert = 1,
    kBuiltinGetTimeMs = 2,
    kBuiltinToString = 3,
    kBuiltinToNumber = 4,
    kBuiltinError = 5,
    kBuiltinPcall = 6,
    kBuiltinLoad = 7,
    kBuiltinPairs = 8,
    kBuiltinIpairs = 9,
    kBuiltinNext = 10,
    kBuiltinSelect = 11,
    kBuiltinCollectGarbage = 12,
    kBuiltinLen = 13,
    kBuiltinStringLen = 14,
    kBuiltinStringUpper = 15,
    kBuiltinStringSub = 16,
    kBuiltinStringFind = 17,
    kBuiltinStringMatch = 18,
    kBuiltinStringGmatch = 19,
    kBuiltinStringByte = 20,
    kBuiltinStringFormat = 21,
    kBuiltinStringGsub = 22,
    kBuiltinTableInsert = 23,
    kBuiltinTableRemove = 24,
    kBuiltinTableConcat = 25,
    kBuiltinTableSort = 26,
    kBuiltinMathFloor = 27,
    kBuiltinMathCeil = 28,
    kBuiltinMathAbs = 29,
    kBuiltinMathMin = 30,
    kBuiltinMathMax = 31,
    kBuiltinMathSin = 32,
    kBuiltinMathCos = 33,
    kBuiltinMathRad = 34,
    kBuiltinMathLog = 35,
    kBuiltinMathSqrt = 36,
    kBuiltinUtf8Len = 37,
};

uint8_t builtinIdFromName(std::string_view name);

// Marks a function whose body is one `return`, or an `if` guard (raising a literal error or
// answering early) and a `return`, for scopeless calls.
void prepareFastCallableBody(ScriptCallable& callable);
// The tokens of lines [begin, end) that name one of the parameters, with the slot of the first
// parameter of that name (the one a search finds).
std::vector<std::pair<TokenAnalysis*, uint32_t>> findParameterTokens(const std::vector<ParsedScriptLine>& lines,
                                                                     size_t begin, size_t end,
                                                                     const std::vector<std::string>& parameters);

// The message of an `error` or failed `assert` outside any pcall.
struct BytecodeProgram;
struct LoopCode;
struct CountedLoop;
struct BytecodeChunk;
struct Instruction;
struct CoroutineState;

// Ends a coroutine turn at once. Outside the standard family on purpose: neither pcall nor the
// catchers of the line executors may stop it.
struct CoroutineTerminated {};

struct RaisedScriptError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Names are short: a byte loop beats a call to memcmp on the hot resolution paths.
inline bool sameName(const std::string& a, const std::string& b) {
    size_t n = a.size();
    if (n != b.size()) return false;
    const char* x = a.data();
    const char* y = b.data();
    for (size_t i = 0; i < n; ++i)
        if (x[i] != y[i]) return false;
    return true;
}

// How far an index may grow an array: a stray huge index must not exhaust memory.
constexpr size_t kMaxArrayGrowth = size_t(1) << 24;
// How deep blocks may nest in a script; the passes that recurse once per level rely on it.
constexpr size_t kMaxBlockNesting = 200;

struct ScopeEntry {
    std::string name;
    Variable value;
};
using Scope = std::vector<ScopeEntry>;

enum ScopeTarget : uint8_t { kTargetPlain = 0, kTargetNative = 1, kTargetLocal = 2 };

struct TableCacheEntry {
    std::weak_ptr<VariableTable> owner;
    uint64_t version = 0;
    uint64_t sortedVersion = ~uint64_t(0);
    std::vector<std::string> sortedKeys;
    VariableArray sortedKeyValues;
    uint64_t iterationVersion = ~uint64_t(0);
    std::vector<std::string> iterationKeys;
    VariableArray iterationKeyValues;
    std::unordered_map<std::string, size_t> iterationKeyIndex;
    uint64_t lengthVersion = ~uint64_t(0);
    int32_t length = 0;
};

// A loaded script file: its parsed lines and the stamp that tells whether it changed.
struct ScriptFileCacheEntry {
    std::shared_ptr<BytecodeProgram> program;
    CallablePtr chunk;
    off_t size = 0;
    int64_t mtimeSec = 0;
    int64_t mtimeNsec = 0;
};

class OrvaneScript {
public:
    OrvaneScript();
    OrvaneScript(const OrvaneScript&) = delete;
    OrvaneScript& operator=(const OrvaneScript&) = delete;

    // Time since start as getTimeMs and os['clock'] report it. A host that runs on a fixed clock
    // sets fixedClockMs (0 and up); below 0 the steady clock counts.
    int64_t fixedClockMs = -1;
    int64_t elapsedMicroseconds() const;

    // Globals and natives.
    void pushVariable(const std::string& name, const Variable& value);
    Variable pullVariable(const std::string& name);
    // Every global's name, in no particular order.
    std::vector<std::string> globalNames() const;
    void pushFunction(const std::string& name, NativeFunction function);
    Variable makeNativeCallable(NativeFunction function, const std::string& name, uint8_t builtinId = 0);

    // Name resolution and assignment.
    Variable* resolveVariablePtr(const std::string& name);
    bool resolveVariable(const std::string& name, Variable& out);
    Variable* resolveVariableFastPtr(const std::string& name, TokenAnalysis& analysis);
    // A hot token's variable as found under the present scope epoch, without a check; else the
    // full rules, whose answer is kept for the epoch. A fast parameter is never kept: a missing
    // one reads as a nil that must be fresh each time.
    Variable* resolveFast(const std::string& name, TokenAnalysis& analysis) {
        if (analysis.cachedEpoch == scopeEpoch) return static_cast<Variable*>(analysis.cachedVariable);
        return resolveAndKeep(name, analysis);
    }
    Variable* resolveAndKeep(const std::string& name, TokenAnalysis& analysis);
    // Parameters whose tokens a new frame may point at its values at once: those that no visible
    // local hides (a search would find the local first).
    static constexpr size_t kLastParameterBit = 63;
    static uint64_t parameterBit(size_t slot) { return uint64_t(1) << std::min(slot, kLastParameterBit); }
    uint64_t hiddenParameters(const ScriptCallable& function) {
        return localScopes.size() == localScopeBase ? 0 : findHiddenParameters(function);
    }
    uint64_t findHiddenParameters(const ScriptCallable& function);
    // Names the present state of the scope stacks: a new number, never used before, for every
    // change of what a name can stand for (a scope pushed, popped or grown, the visible base
    // moved, a fast body entered or left, a coroutine's stacks swapped). Numbers are drawn from a
    // range of this interpreter's own, so no two interpreters share one.
    uint64_t epochCounter;
    uint64_t scopeEpoch;
    void scopesChanged() { scopeEpoch = ++epochCounter; }
    // The lowest index on each stack whose scope changed (gained an entry, or was popped) since
    // the innermost saved state; kUnchanged for none. Below it, names and entries are as they were.
    static constexpr size_t kUnchanged = ~size_t(0);
    size_t localChangedFrom = kUnchanged, nativeChangedFrom = kUnchanged;
    void markChanged(const std::vector<Scope>& stack, size_t from) {
        size_t& floor = &stack == &localScopes ? localChangedFrom : nativeChangedFrom;
        if (from < floor) floor = from;
    }
    // Every scope may have changed: a coroutine's stacks swapped in or out.
    void scopeGrew() {
        localChangedFrom = nativeChangedFrom = 0;
        scopesChanged();
    }
    // Taken before a call or block pushes; when it is left and nothing below the heights of then
    // has changed, the stacks are the very ones of before, and the names kept for them hold again.
    // Frames nest, so an inner frame's changes count for the outer ones as well.
    struct ScopeState {
        uint64_t epoch;
        size_t nativeHeight, localHeight, localBase, localChangedFrom, nativeChangedFrom;
    };
    ScopeState saveScopeState() {
        ScopeState s{scopeEpoch, nativeScopes.size(), localScopes.size(), localScopeBase, localChangedFrom,
                     nativeChangedFrom};
        localChangedFrom = nativeChangedFrom = kUnchanged;
        return s;
    }
    void restoreScopeState(const ScopeState& s) {
        bool same = localChangedFrom >= s.localHeight && nativeChangedFrom >= s.nativeHeight &&
                    s.nativeHeight == nativeScopes.size() && s.localHeight == localScopes.size() &&
                    s.localBase == localScopeBase;
        localChangedFrom = std::min(localChangedFrom, s.localChangedFrom);
        nativeChangedFrom = std::min(nativeChangedFrom, s.nativeChangedFrom);
        if (same) scopeEpoch = s.epoch;
        else scopesChanged();
    }
    bool resolveVariableFast(const std::string& name, TokenAnalysis& analysis, Variable& out);
    Variable* resolveExistingVariableFastMutable(const std::string& name, TokenAnalysis& analysis) {
        return resolveFast(name, analysis);
    }
    bool assignExistingVariable(const std::string& name, const Variable& value);
    bool assignExistingVariableFast(const std::string& name, TokenAnalysis& analysis, const Variable& value);
    void assignVariable(const std::string& name, const Variable& value, uint8_t target);
    void assignVariableFast(const std::string& name, TokenAnalysis& analysis, const Variable& value, uint8_t target);
    std::string resolvePath(const std::string& path) const;

    // Table key caches: bytewise order for iteration, the numeric length.
    const std::vector<std::string>& getSortedTableKeys(const TablePtr& table);
    const VariableArray& getSortedTableKeyValues(const TablePtr& table);
    const std::vector<std::string>& getIterationTableKeys(const TablePtr& table);
    const VariableArray& getIterationTableKeyValues(const TablePtr& table);
    const std::unordered_map<std::string, size_t>& getIterationTableKeyIndex(const TablePtr& table);
    int32_t numericTableLength(const TablePtr& table);
    void markTableMutated(const VariableTable* table);
    void pruneDeadTableCacheEntries();

    // Running text.
    void runScript(const std::string& text);
    Variable runScriptFilePath(const std::string& path);
    Variable executeBlock(const std::vector<std::string>& lines, size_t& position, BlockSignal& signal);
    Variable executeParsedBlock(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    bool executeAssignment(const ParsedScriptLine& line, Variable& result);

    // The token evaluator.
    Variable evaluateExpression(const std::vector<std::string>& tokens, size_t& position,
                                std::vector<TokenAnalysis>* analyses);
    void skipExpression(const std::vector<std::string>& tokens, size_t& position, int minPrecedence,
                        std::vector<TokenAnalysis>* analyses);
    bool evaluateCondition(const std::vector<std::string>& tokens, size_t& position,
                           std::vector<TokenAnalysis>* analyses);

    // Indexing, which needs the interpreter for string methods and table caches.
    Variable getIndexedValue(const Variable& container, const Variable& key);
    Variable& getIndexedValueMutable(Variable& container, const Variable& key, bool create);
    void setIndexedValue(Variable& container, const Variable& key, const Variable& value, bool create);
    int32_t arrayLength(const Variable& value);
    void promoteArrayVariableToTable(Variable& variable);

    // Calls and errors.
    Variable invokeCallable(const Variable& callee, const VariableArray& arguments);
    Variable invokeCallableFast(const Variable& callee, const Variable* args, size_t count);
    Variable dispatchBuiltinFast(uint8_t id, const Variable* args, size_t count);
    [[noreturn]] void throwError(const std::string& message, std::string_view nearToken);
    void raiseScriptErrorSoft(const std::string& message);
    bool shouldAbortForSoftRaisedError() const { return softRaised && callDepth > softDepth; }
    void clearSoftRaisedError();

    // Script loading.
    Variable loadScriptChunk(const Variable* args, size_t count);
    Variable loadScriptFile(const Variable* args, size_t count);
    Variable runScriptFile(const Variable* args, size_t count);

    // Core library, each over an argument array.
    Variable printFunction(const Variable* args, size_t count);
    Variable getTimeMsFunction(const Variable* args, size_t count);
    Variable randomFunction(const Variable* args, size_t count);
    Variable toStringFunction(const Variable* args, size_t count);
    Variable toNumberFunction(const Variable* args, size_t count);
    Variable typeOfFunction(const Variable* args, size_t count);
    Variable popFunction(const Variable* args, size_t count);
    Variable clearFunction(const Variable* args, size_t count);
    Variable eraseFunction(const Variable* args, size_t count);
    Variable containsFunction(const Variable* args, size_t count);
    Variable keysFunction(const Variable* args, size_t count);
    Variable valuesFunction(const Variable* args, size_t count);
    Variable assertFunction(const Variable* args, size_t count);
    Variable errorFunction(const Variable* args, size_t count);
    Variable pcallFunctionFast(const Variable* args, size_t count);
    Variable pairsFunction(const Variable* args, size_t count);
    Variable ipairsFunction(const Variable* args, size_t count);
    Variable nextFunction(const Variable* args, size_t count);
    Variable selectFunctionFast(const Variable* args, size_t count);
    Variable collectGarbageFunction(const Variable* args, size_t count);
    Variable killFunction(const Variable* args, size_t count);
    Variable arrayFunction(const Variable* args, size_t count);
    Variable lenFunction(const Variable* args, size_t count);
    Variable pushFunction(const Variable* args, size_t count);
    Variable reserveFunction(const Variable* args, size_t count);
    Variable getFunction(const Variable* args, size_t count);
    Variable setFunction(const Variable* args, size_t count);

    // String, table, math, os, io and utf8 libraries.
    void installLibraryMembers();
    Variable dispatchLibraryBuiltinFast(uint8_t id, const Variable* args, size_t count);
    Variable gsubFunction(const Variable* args, size_t count);
    Variable gsubImpl(const Variable& subject, const Variable& pattern, const Variable& replacement);
    Variable stringLenFunction(const Variable* args, size_t count);
    Variable upperFunction(const Variable* args, size_t count);
    Variable lowerFunction(const Variable* args, size_t count);
    Variable subFunction(const Variable* args, size_t count);
    Variable findFunctionImpl(const Variable* args, size_t count);
    Variable matchFunctionImpl(const Variable* args, size_t count);
    Variable gmatchFunctionImpl(const Variable* args, size_t count);
    Variable byteFunctionImpl(const Variable* args, size_t count);
    Variable charFunction(const Variable* args, size_t count);
    Variable formatFunctionImpl(const Variable* args, size_t count);
    Variable repFunction(const Variable* args, size_t count);
    Variable insertFunctionImpl(const Variable* args, size_t count);
    Variable removeFunctionImpl(const Variable* args, size_t count);
    Variable concatFunctionImpl(const Variable* args, size_t count);
    Variable sortFunctionImpl(const Variable* args, size_t count);
    Variable floorFunction(const Variable* args, size_t count);
    Variable ceilFunction(const Variable* args, size_t count);
    Variable absFunction(const Variable* args, size_t count);
    Variable minFunction(const Variable* args, size_t count);
    Variable maxFunction(const Variable* args, size_t count);
    Variable sinFunction(const Variable* args, size_t count);
    Variable cosFunction(const Variable* args, size_t count);
    Variable radFunction(const Variable* args, size_t count);
    Variable logFunction(const Variable* args, size_t count);
    Variable sqrtFunction(const Variable* args, size_t count);
    Variable randomSeedFunction(const Variable* args, size_t count);
    Variable clockFunction(const Variable* args, size_t count);
    Variable timeFunction(const Variable* args, size_t count);
    Variable utf8LenFunction(const Variable* args, size_t count);
    Variable utf8OffsetFunction(const Variable* args, size_t count);
    Variable openFileFunction(const Variable* args, size_t count);
    Variable popenFunction(const Variable* args, size_t count);

    Variable executeBytecodeChunkInternal(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunkIndex,
                                          BlockSignal& signal, bool allowScope);
    bool isInlineableChunk(BytecodeProgram& program, uint32_t chunkIndex);
    // The inline form over a chunk that isInlineableChunk has accepted, with all its nested chunks.
    void runInlineChunk(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunkIndex, BlockSignal& signal,
                        Variable& running);
    const LoopCode& loopCodeFor(BytecodeProgram& program, uint32_t chunk);
    void runLoopCode(const std::shared_ptr<BytecodeProgram>& program, const LoopCode& code, BlockSignal& signal,
                     Variable& running, CountedLoop* counted = nullptr);
    bool runInlineAssignment(BytecodeProgram& program, const Instruction& instruction, Variable& running);
    bool runStatement(BytecodeProgram& program, const Instruction& instruction, Variable& running);
    // The coroutine step: no guards in the inline form, so a turn follows each plain statement.
    void inlineCoroutineStep() {
        if (!coroutineWork()) return;
        serviceScheduledCoroutineTurnNoThrow();
        rethrowPendingCoroutineException();
    }
    bool executeInstruction(const std::shared_ptr<BytecodeProgram>& program, const Instruction& instruction,
                            BlockSignal& signal, Variable& running, bool inlineForm);
    Variable runBlock(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunk, BlockSignal& signal);
    bool runChunkInstructions(const std::shared_ptr<BytecodeProgram>& program, const BytecodeChunk& chunk,
                              BlockSignal& signal, Variable& running);
    void executeSimpleAssign(const ParsedScriptLine& line);
    void finishSimpleAssign(const ParsedScriptLine& line, char op, bool isScalar, FastScalarValue scalar);
    bool runCompiledNumericFor(const std::shared_ptr<BytecodeProgram>& program, const ParsedScriptLine& line,
                               uint32_t chunk, int32_t first, int32_t last, int32_t step, BlockSignal& signal,
                               Variable& running, bool inlineForm);
    const ParsedScriptLine& lineStep(const BytecodeProgram& program, uint32_t index);
    // The line that error texts name; inline, since it runs before every statement.
    void recordLine(const ParsedScriptLine& line) {
        currentLineNumber = line.lineNumber;
        currentLine = &line;
        if (!currentSourceText.empty()) currentSourceText.clear();
        if (!nearToken.empty()) nearToken.clear();
        nearTokenFromFast = false;
    }

    // Fast expressions: try evaluators answer true with a result, or false, with no effects, to
    // leave the node to a more general evaluator.
    bool tryEvaluateFastExpressionIntNode(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                                          std::vector<TokenAnalysis>& analyses, int32_t& out);
    bool tryEvaluateFastExpressionBoolNode(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                                           std::vector<TokenAnalysis>& analyses, bool& out);
    bool tryEvaluateFastExpressionScalarNode(const FastExpression& e, int32_t node,
                                             const std::vector<std::string>& tokens,
                                             std::vector<TokenAnalysis>& analyses, FastScalarValue& out);
    // The flat steps first; the node tree where they cannot answer.
    bool tryEvaluateFastExpressionScalar(const FastExpression& e, const std::vector<std::string>& tokens,
                                         std::vector<TokenAnalysis>& analyses, FastScalarValue& out) {
        if (!e.valid) return false;
        if (e.steps.size() == 1 && e.steps[0].op == FastStepOp::Load) {
            // `x = 0`, `k += 1`, `a[j]`: one leaf, read here.
            const FastOperand& leaf = e.steps[0].left;
            if (leaf.from == FastOperand::Literal) {
                out = leaf.literal;
                return true;
            }
            const Variable* v = resolveFast(tokens[leaf.token], analyses[leaf.token]);
            if (!v) {
                out = FastScalarValue::makeNil();
                return true;
            }
            return scalarFromVariable(*v, out);
        }
        if (!e.steps.empty() && runFastSteps(e, tokens, analyses, out)) return true;
        if (!e.trunkCalls.empty() && scalarRefusesCall(e, tokens, analyses)) return false;
        return tryEvaluateFastExpressionScalarNode(e, e.root, tokens, analyses, out);
    }
    Variable evaluateFastExpressionNode(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                                        std::vector<TokenAnalysis>& analyses);
    Variable evaluateFastExpression(const FastExpression& e, const std::vector<std::string>& tokens,
                                    std::vector<TokenAnalysis>& analyses);
    bool appendFastStringConcatNode(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                                    std::vector<TokenAnalysis>& analyses, std::string& text);
    bool tryScalarIndex(const FastExpression& e, const FastExprNode& node, const std::vector<std::string>& tokens,
                        std::vector<TokenAnalysis>& analyses, FastScalarValue& out);
    bool tryScalarCall(const FastExpression& e, const FastExprNode& node, const std::vector<std::string>& tokens,
                       std::vector<TokenAnalysis>& analyses, FastScalarValue& out);
    bool isFastStringConcat(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                            std::vector<TokenAnalysis>& analyses);
    void appendConcatLeaves(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                            std::vector<TokenAnalysis>& analyses, std::string& text);
    bool tryExecuteDiscardedFastCall(const FastExpression& e, const std::vector<std::string>& tokens,
                                     std::vector<TokenAnalysis>& analyses);
    bool tryEvaluateNativeBuiltinScalar(uint8_t id, const Variable* args, size_t count, FastScalarValue& out);
    bool tryEvaluateFastCallableScalar(const ScriptCallable& callable, const Variable* args, size_t count,
                                       FastScalarValue& out);
    Variable evaluateFastCallableReturn(const ScriptCallable& callable, uint16_t line);
    Variable evaluateReturnValue(const FastExpression& e, const ParsedScriptLine& line);
    bool tryFastScalarFromIndexedValue(const Variable& base, const Variable& index, FastScalarValue& out);
    bool tryApplyFastScalarOperationInPlace(Variable& variable, char op, const FastScalarValue& scalar);

    // The running fast callable, whose parameters resolve without a scope.
    const ScriptCallable* fastCallable = nullptr;
    // The script function whose call runs innermost, held by that call for as long as it runs.
    const ScriptCallable* runningCallable = nullptr;
    const Variable* fastArgs = nullptr;
    size_t fastArgCount = 0;
    Variable* fastParameter(size_t slot);
    Variable missingArgument;
    Variable callFastBody(const ScriptCallable& function, const Variable* args, size_t count);
    // The flat steps of a call-free expression; false where the scalar evaluator must answer.
    bool runFastSteps(const FastExpression& e, const std::vector<std::string>& tokens,
                      std::vector<TokenAnalysis>& analyses, FastScalarValue& out) {
        return runStepList(e, e.steps, tokens, analyses, out);
    }
    // Steps of the expression or of one of its subtrees.
    bool runStepList(const FastExpression& e, const std::vector<FastStep>& steps,
                     const std::vector<std::string>& tokens, std::vector<TokenAnalysis>& analyses,
                     FastScalarValue& out) {
        if (steps[0].shortRun) return runShortFastSteps(e, steps, tokens, analyses, out);
        return runFastStepsOnStack(e, steps, tokens, analyses, out);
    }
    // A subtree's own steps (the arithmetic between the calls of an expression), for an integer.
    static bool hasSubtreeSteps(const FastExpression& e, int32_t node) {
        return size_t(node) < e.subtreeSteps.size() && e.subtreeSteps[size_t(node)] >= 0;
    }
    bool runSubtreeInt(const FastExpression& e, int32_t node, const std::vector<std::string>& tokens,
                       std::vector<TokenAnalysis>& analyses, int32_t& out) {
        FastScalarValue value;
        if (!runStepList(e, e.subtreeStepLists[size_t(e.subtreeSteps[size_t(node)])], tokens, analyses, value) ||
            value.kind != FastScalarValue::Int)
            return false;
        out = value.intValue;
        return true;
    }
    bool runShortFastSteps(const FastExpression& e, const std::vector<FastStep>& steps,
                           const std::vector<std::string>& tokens, std::vector<TokenAnalysis>& analyses,
                           FastScalarValue& out);
    bool runFastStepsOnStack(const FastExpression& e, const std::vector<FastStep>& steps,
                             const std::vector<std::string>& tokens, std::vector<TokenAnalysis>& analyses,
                             FastScalarValue& out);
    bool scalarRefusesCall(const FastExpression& e, const std::vector<std::string>& tokens,
                           std::vector<TokenAnalysis>& analyses);
    void noteFastErrorToken(const std::vector<std::string>& tokens, const FastExpression& e, int32_t node);
    bool nearTokenFromFast = false;
    // Raised whenever a scope entry appears under the name of a global: a token that found a
    // global stays valid without a search while this is unchanged.
    uint64_t shadowEpoch = 1;
    void noteScopeName(const std::string& name) {
        if (globalIndex.count(name)) ++shadowEpoch;
    }
    void noteParameterNames(const ScriptCallable& function) {
        // Every global has its index entry, and the map's size is a plain read.
        if (function.shadowCheckedGlobals != globalIndex.size()) {
            function.parametersShadowGlobals = false;
            for (const std::string& name : function.parameters)
                if (globalIndex.count(name)) function.parametersShadowGlobals = true;
            function.shadowCheckedGlobals = globalIndex.size();
        }
        if (function.parametersShadowGlobals) ++shadowEpoch;
    }  // nearToken was named by a compiled expression's error
    // After a compiled expression, the near token the token route would have left behind.
    void noteTokenRead(const std::string& token) {
        if (shouldAbortForSoftRaisedError()) return;
        nearToken = token;
        nearTokenFromFast = false;
    }

    // Bytecode: every script text compiles to a program; its chunks run in the executor.
    std::shared_ptr<BytecodeProgram> compileToBytecodeInternal(const std::string& source);
    std::shared_ptr<BytecodeProgram> compileToBytecode(const std::string& source, const std::string& path = {});
    Variable runBytecodeProgram(const std::shared_ptr<BytecodeProgram>& program);
    Variable runBytecode(const BytecodeProgram& program);
    Variable executeBytecodeChunk(const std::shared_ptr<BytecodeProgram>& program, uint32_t chunkIndex,
                                  BlockSignal& signal);

    // Coroutines of decay functions: after each statement of the main flow the scheduled one
    // runs one statement of its own, with its own frames, scope stacks and error state.
    std::shared_ptr<CoroutineState> scheduledCoroutine;
    std::shared_ptr<CoroutineState> replacementCoroutine;  // named by a decay call inside a turn
    std::exception_ptr pendingCoroutineException;           // left a turn, not yet seen by the main flow
    bool insideCoroutineTurn = false;
    bool turnEnded = false;
    bool coroutineWork() const { return scheduledCoroutine || pendingCoroutineException; }
    std::shared_ptr<CoroutineState> createCoroutineState(const CallablePtr& callable, const Variable* args,
                                                         size_t count);
    void startCoroutine(const CallablePtr& callable, const Variable* args, size_t count);
    bool executeCoroutineTurn(CoroutineState& state);
    void serviceScheduledCoroutineTurn();
    void serviceScheduledCoroutineTurnNoThrow() noexcept;
    void rethrowPendingCoroutineException() {
        if (pendingCoroutineException) throwPendingCoroutineException();
    }
    [[noreturn]] void throwPendingCoroutineException();
    void pushCoroutineBlockFrame(CoroutineState& state, uint64_t begin, uint64_t end);
    void popCoroutineBlockFrame(CoroutineState& state);
    void popCoroutineLoopFrame(CoroutineState& state);

    // Bytecode files ("OSBC"), for a host: tokens and the control skeleton; the rest is
    // prepared again on reading.
    std::vector<uint8_t> serializeBytecode(const BytecodeProgram& program);
    void saveBytecode(const BytecodeProgram& program, const std::string& path);
    BytecodeProgram deserializeBytecode(const std::vector<uint8_t>& bytes, const std::string& path);
    BytecodeProgram loadBytecode(const std::string& path);

    // Off, every text runs on the reference route: parsed lines without compiled forms through
    // executeParsedBlock. Tests compare the two routes.
    bool referenceRoute = false;

    // Where the running statement is, for error texts.
    uint64_t currentLineNumber = 0;
    uint64_t currentTokenIndex = 0;
    const ParsedScriptLine* currentLine = nullptr;
    std::string currentSourceText;
    std::string nearToken;

private:
    friend struct CallFrameGuard;
    friend struct LocalScopeGuard;
    friend struct CallDepthGuard;
    friend struct CoroutineStepper;

    void installStandardLibrary();
    void registerLibraryFunction(std::initializer_list<const char*> names,
                                 Variable (OrvaneScript::*function)(const Variable*, size_t));
    Variable makeLibraryTable(const std::string& tableName,
                              std::initializer_list<std::pair<const char*, Variable>> members);

    Variable* globalSlotPtr(const std::string& name, TokenAnalysis* analysis);
    Variable* findInScopes(const std::string& name);

    void setInScope(std::vector<Scope>& stack, const std::string& name, const Variable& value);
    void checkNativeStack(size_t slack = size_t(256) << 10);
    void markStackBase();
    TableCacheEntry& tableCacheEntry(const TablePtr& table);

    // The evaluator's recursive steps.
    struct Cursor;
    Variable evaluateAt(Cursor& c, int minPrecedence);
    Variable evaluateOperand(Cursor& c);
    Variable evaluatePrimary(Cursor& c);
    Variable evaluatePostfix(Cursor& c, Variable value);
    Variable evaluateArrayLiteral(Cursor& c);
    Variable evaluateTableLiteral(Cursor& c);
    void skipAt(Cursor& c, int minPrecedence);
    void skipOperand(Cursor& c);
    void skipPostfix(Cursor& c);
    const std::string& consume(Cursor& c);

    // Statements.
    Variable executeStatementLine(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    Variable executeIfChain(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    Variable executeWhile(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    Variable executeRepeat(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    Variable executeFor(const std::vector<ParsedScriptLine>& lines, size_t& position, BlockSignal& signal);
    using BodyRunner = std::function<Variable(BlockSignal&)>;
    bool runIteration(const BodyRunner& body, BlockSignal& signal, Variable& result);
    bool evaluateForBounds(const ParsedScriptLine& line, int32_t& first, int32_t& last, int32_t& step);
    // The one rule on a numeric for's step, for every route: 0 is an error, located after the clause.
    void requireForStep(const ParsedScriptLine& line, int32_t step);
    Variable runNumericFor(const ParsedScriptLine& line, int32_t first, int32_t last, int32_t step,
                           const BodyRunner& body, BlockSignal& signal);
    Variable runGenericFor(const ParsedScriptLine& line, const BodyRunner& body, BlockSignal& signal);
    // The names of a generic for; gives the position of its iterator expression.
    size_t readLoopNames(const ParsedScriptLine& line, std::vector<std::string>& names);
    Variable iteratePairs(const std::vector<std::string>& names, const Variable& container, bool isPairs,
                          const BodyRunner& body, BlockSignal& signal);
    using PairVisitor = std::function<bool(const Variable&, const Variable&)>;
    using PairProducer = std::function<void(const PairVisitor&)>;
    Variable runPairLoop(const std::vector<std::string>& names, const PairProducer& produce, const BodyRunner& body,
                         BlockSignal& signal);
    bool tryLazyIpairs(const ParsedScriptLine& line, const std::vector<std::string>& names, const BodyRunner& body,
                       BlockSignal& signal, Variable& result);
    CallablePtr readFunctionDeclaration(const ParsedScriptLine& line, std::vector<Variable>& keys, size_t& nameToken,
                                        uint8_t& target);
    void storeFunction(const ParsedScriptLine& line, size_t nameToken, const std::vector<Variable>& keys,
                       const Variable& function, uint8_t target);
    Variable executeReturn(const ParsedScriptLine& line, BlockSignal& signal);
    void executeFunctionDeclaration(const std::vector<ParsedScriptLine>& lines, size_t& position);
    bool evaluateLineCondition(const ParsedScriptLine& line, const char* keyword);
    Variable executeStatement(const ParsedScriptLine& line);
    Variable runLoopBody(const std::vector<ParsedScriptLine>& lines, size_t bodyStart, BlockSignal& signal);

    // Assignment.
    Variable evaluateRange(const ParsedScriptLine& line, TokenRange range, const FastExpression* compiled);
    bool tryDirectSelect(const ParsedScriptLine& line, VariableArray& values);
    bool tryStoreScalarElement(const ParsedScriptLine& line);
    void storeAssigned(const ParsedScriptLine& line, size_t nameToken, const Variable& value);
    void applyToTarget(const ParsedScriptLine& line, const ParsedAssignmentTarget& target,
                       std::span<const Variable> keys, char op, const Variable& value, Variable* readBack);

    // Calls.
    Variable callNative(const ScriptCallable& function, const Variable* args, size_t count);
    std::deque<VariableArray> nativeArguments;
    size_t nativeArgumentDepth = 0;
    Variable callScriptFunction(const ScriptCallable& function, const Variable* args, size_t count);
    Variable callBoundBody(const ScriptCallable& function, const Variable* args, size_t count);
    Variable callMethodOfString(const std::string& receiver, const Variable& method, const Variable* args, size_t count);
    std::vector<ParsedScriptLine> compileLines(const std::string& text);
    CallablePtr makeChunk(const std::shared_ptr<BytecodeProgram>& program);

public:
    // Name spaces.
    std::unordered_map<std::string, size_t> globalIndex;
    std::deque<Variable> globalValues;  // a deque: slots keep their address as globals are added
    std::unordered_map<std::string, NativeFunction> nativeFunctions;
    std::vector<Scope> nativeScopes;
    std::vector<Scope> localScopes;
    // Popped scopes keep their storage for the next push, so calls and blocks don't allocate.
    // An empty scope hides nothing and moves no entry: the names kept hold on. Who fills the new
    // scope draws a new epoch.
    std::vector<Scope> spareScopes;
    Scope& pushScope(std::vector<Scope>& stack) {
        if (spareScopes.empty()) return stack.emplace_back();
        stack.push_back(std::move(spareScopes.back()));
        spareScopes.pop_back();
        return stack.back();
    }
    void popScopes(std::vector<Scope>& stack, size_t height) {
        markChanged(stack, height);
        scopesChanged();
        while (stack.size() > height) {
            stack.back().clear();
            spareScopes.push_back(std::move(stack.back()));
            stack.pop_back();
        }
    }
    size_t localScopeBase = 0;
    std::vector<const std::string*> sourceRootStack;
    std::vector<const std::string*> sourcePathStack;
    std::vector<VariableArray> varargStack;
    std::unordered_map<const VariableTable*, TableCacheEntry> tableCache;
    uint64_t tableCacheTicks = 0;
    std::unordered_map<std::string, ScriptFileCacheEntry> scriptFileCache;

    // Calls and soft errors.
    uint64_t callDepth = 0;
    std::vector<uint64_t> protectedDepths;
    bool softRaised = false;
    uint64_t softDepth = 0;
    std::string softMessage;

    std::mt19937 randomGenerator;
    std::chrono::steady_clock::time_point startTime;

    // Script recursion is bounded by the native stack it uses, measured from the outermost call.
    const char* stackBase = nullptr;
    size_t stackBudget = 0;
};

// Gives the scheduled coroutine its turn when a statement of the main flow has finished, but not
// when it ends by an exception, and not inside a turn. With no coroutine and nothing pending it
// costs a flag and two pointer tests. No statement runs while an exception unwinds, so the count
// of exceptions in flight is taken only when there is work already.
struct CoroutineTurnGuard {
    explicit CoroutineTurnGuard(OrvaneScript& s)
        : script(s), outside(!s.insideCoroutineTurn), exceptions(s.coroutineWork() ? std::uncaught_exceptions() : 0) {}
    ~CoroutineTurnGuard() {
        if (outside && script.coroutineWork() && std::uncaught_exceptions() == exceptions)
            script.serviceScheduledCoroutineTurnNoThrow();
    }
    OrvaneScript& script;
    bool outside;
    int exceptions;
};

// Keeps the error location of the running line across a nested run, whose lines may be gone
// by the time the caller's line raises.
struct LocationGuard {
    explicit LocationGuard(OrvaneScript& s)
        : script(s), lineNumber(s.currentLineNumber), tokenIndex(s.currentTokenIndex), line(s.currentLine),
          sourceText(s.currentSourceText), near(s.nearToken), nearFromFast(s.nearTokenFromFast) {}
    // For a script call, whose first line records its own location before anything reads it:
    // the texts move out instead of being copied (mostly they are empty and nothing moves), and
    // come back on every exit.
    struct Take {};
    LocationGuard(OrvaneScript& s, Take)
        : script(s), lineNumber(s.currentLineNumber), tokenIndex(s.currentTokenIndex), line(s.currentLine),
          nearFromFast(s.nearTokenFromFast) {
        if (!s.currentSourceText.empty()) sourceText.swap(s.currentSourceText);
        if (!s.nearToken.empty()) near.swap(s.nearToken);
    }
    ~LocationGuard() {
        script.currentLineNumber = lineNumber;
        script.currentTokenIndex = tokenIndex;
        script.currentLine = line;
        restore(script.currentSourceText, sourceText);
        restore(script.nearToken, near);
        script.nearTokenFromFast = nearFromFast;
    }
    static void restore(std::string& text, std::string& saved) {
        if (saved.empty()) text.clear();
        else text.swap(saved);
    }
    OrvaneScript& script;
    uint64_t lineNumber, tokenIndex;
    const ParsedScriptLine* line;
    std::string sourceText, near;
    bool nearFromFast;
};

}  // namespace orvane
