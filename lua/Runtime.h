// The run-time side of OrvaneLua: environments, function handles, iterators, native objects,
// the error types, and LuaVM::Impl with the evaluator and the library. Internal to lua/.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "lua/Ast.h"
#include "lua/LuaVM.h"
#include "lua/Value.h"

namespace orvane::lua {

// ---- Limits ----

// Nested calls of script and native functions. A call level costs about 1 to 2 KiB of native
// stack in an optimised build and 3.5 to 6 KiB under AddressSanitizer, so 1000 levels stay
// inside the main thread's 8 MiB in both.
inline constexpr int kMaxCallDepth = 1000;
// Native stack used since the outermost run began, tested at each call as a second line of
// defence: a deep expression inside every level of a recursion costs more than the count says.
// The pattern functions may take the stack down to 6 MiB (Library.cpp).
inline constexpr uintptr_t kMaxStackBytes = 4u << 20;
// Values nested deeper than this do not cross the public interface (a table that holds itself
// fails here rather than recursing without end).
inline constexpr int kMaxBridgeDepth = 64;
// Strings that concatenation and the library build are refused beyond this size (the fuzzer
// lowers the bound through LuaVM::Impl::maxStringSize), instead of exhausting memory.
inline constexpr size_t kMaxStringSize = size_t(1) << 30;

// ---- Environments ----

class Environment;

// Shared environments are listed by their VM, which empties them when it ends: closures that
// hold their own environment are cycles that reference counting alone would never free.
struct EnvironmentRegistry {
    Environment* first = nullptr;
    void add(Environment* env);
    void remove(Environment* env);
    void clearAll();
};

class Environment : public std::enable_shared_from_this<Environment> {
public:
    explicit Environment(uint64_t slotCount)
        : slots(size_t(slotCount)), slotData(slots.data()), slotCount(slots.size()) {}
    // The slots are made once and never resized: a lookup reads these two fields alone.
    Value* slot(uint64_t index) { return index < slotCount ? slotData + index : nullptr; }
    [[gnu::always_inline]] ~Environment() {
        if (registry) registry->remove(this);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    void setParent(std::shared_ptr<Environment> p) {
        parent = p.get();
        parentOwner = std::move(p);
    }
    void setParent(Environment* p) {
        parentOwner.reset();
        parent = p;
    }

    std::shared_ptr<Environment> parentOwner;
    Environment* parent = nullptr;
    SmallValueStore<8> slots;
    Value* slotData;
    size_t slotCount;

    EnvironmentRegistry* registry = nullptr;
    Environment* previousLive = nullptr;
    Environment* nextLive = nullptr;
};

// ---- Functions and iterators ----

using NativeFunction = std::function<MultiValue(LuaVM&, ValueSpan, uint32_t)>;

struct LuaFunctionHandle {
    int kind = 1;  // 0 script, 1 native
    std::string name;
    NativeFunction native;
    std::shared_ptr<FunctionExpr> function;
    std::shared_ptr<Environment> closure;
};

const std::string& functionHandleName(const LuaFunctionHandle& handle);

struct IteratorState {
    int kind = 0;  // 0 prepared list, 1 pairs, 2 ipairs
    std::vector<MultiValue> items;
    uint64_t index = 0;
    std::shared_ptr<Table> table;
    uint64_t arrayIndex = 0;
    TableHash::iterator hashCursor;
    TableHash::iterator hashEnd;
    uint64_t limit = 0;
    // The hash part may change under a running pairs walk: the walk then finds its cursor
    // again by the key it stood on, instead of following an iterator that may dangle.
    uint64_t hashEpoch = 0;
    TableKey cursorKey;
    bool cursorAtEnd = true;
};

// ---- Native objects ----

struct NativeObject {
    int kind = 0;  // 0 file, 1 stream
    std::shared_ptr<std::fstream> file;
    std::ostream* stream = nullptr;
    bool readable = false;
    bool writable = false;
    std::string name;
};

// ---- Errors ----

// A run-time error outside pcall.
struct RuntimeError : std::runtime_error {
    RuntimeError(const std::string& message, uint32_t line) : std::runtime_error(message), line(line) {}
    uint32_t line;
    bool hasLine = true;
};

// A run-time error inside pcall; deliberately outside the standard family, so that no handler
// for standard exceptions on the way to the pcall can give it a second prefix.
struct ProtectedRuntimeError {
    std::string message;
    uint32_t line = 0;
    bool hasLine = true;
};

struct ExitSignal {
    int32_t code = 0;
};

// The values that a `return` hands to its function. `return` and `break` travel as a flow
// result of the statement functions, not as exceptions: a return inside an `if` is as cheap
// as a final one.
struct ReturnSignal {
    MultiValue values;
};

extern thread_local int32_t gLuaProtectedDepth;

[[noreturn]] void failRuntime(uint32_t line, const std::string& message);

// ---- The VM ----

struct LuaVM::Impl {
    explicit Impl(LuaVM* owner);
    ~Impl();

    LuaVM* owner;
    std::unordered_map<std::string, uint64_t> globalSlots;
    std::vector<Value> globals;
    int32_t exitCode = -1;

    TableRegistry tableRegistry;
    EnvironmentRegistry environmentRegistry;
    ReturnSignal pendingReturn;  // values of the `return` whose flow is unwinding
    uint32_t breakLine = 0;      // line of the `break` whose flow is unwinding
    int callDepth = 0;
    int runDepth = 0;
    uintptr_t stackBase = 0;
    uint64_t stepsLeft = UINT64_MAX;  // a budget for the fuzzer; unlimited otherwise
    size_t maxStringSize = kMaxStringSize;
    uint64_t stringSlot = 0;         // global slot of "string", for method calls on strings
    std::vector<bool> bindScopes;    // while binding: the scopes around the node, elided or not

    // -- objects --
    std::shared_ptr<Table> newTable();
    std::shared_ptr<Environment> newSharedEnvironment(uint64_t slotCount);

    // -- parsing and binding --
    ResolvedChunk parseScript(const std::string& source, const std::string& chunkName);
    uint64_t resolveGlobalSlot(const std::string& name);
    void bindGlobalSlots(ResolvedChunk& chunk);
    void bindGlobalSlots(StmtList& statements);
    void bindGlobalSlots(Stmt& statement);
    void bindGlobalSlots(const ExprPtr& expression);
    void bindGlobalSlots(FunctionExpr& function);
    void bindTarget(AssignTarget& target);

    // -- globals --
    Value getGlobalValue(uint64_t slot) const;
    Value getGlobalValue(const std::string& name);
    void setGlobalValue(uint64_t slot, Value value);
    void setGlobalValue(const std::string& name, Value value);

    // -- evaluation --
    Value evaluateExpression(Expr& expr, Environment& env);
    MultiValue evaluateExpressionMulti(Expr& expr, Environment& env, bool allowMulti);
    MultiValue evaluateExpressionList(std::vector<ExprPtr>& exprs, Environment& env);
    bool compareValues(const Value& a, const Value& b, TokenKind op, uint32_t line);
    Value indexValue(const Value& object, const Value& key, uint32_t line);
    void assignTarget(AssignTarget& target, Value value, Environment& env, bool isLocal);
    void assignElement(AssignTarget& target, Value value, Environment& env);
    MultiValue callValue(CallExpr& call, Environment& env);
    MultiValue callValue(const Value& value, ValueSpan args, uint32_t line);
    MultiValue callHandle(const LuaFunctionHandle* handle, ValueSpan args, uint32_t line);
    Value makeScriptFunction(const std::string& name, const std::shared_ptr<FunctionExpr>& function, Environment& env);
    Flow executeStatement(Stmt& stmt, Environment& env);
    Flow executeStatements(StmtList& stmts, Environment& env);
    bool nextIteratorItem(IteratorState& state, MultiValue& out);
    static Environment* resolveLocalEnvironment(Environment& env, int32_t depth);
    static void clearEnvironmentSlots(Environment& env);
    static std::shared_ptr<Environment> requireSharedEnvironment(Environment& env);

    // helpers of the evaluator
    const Value* readVariable(const VariableExpr& variable, Environment& env);
    bool conditionHolds(Expr& expr, Environment& env);
    Flow runBlock(StmtList& block, uint64_t slotCount, bool noCapture, bool elided, Environment& env);
    int32_t environmentDepth(int32_t depth) const;
    MultiValue runBody(StmtList& body, Environment& env);
    Flow executeAssignment(AssignmentStmt& stmt, Environment& env);
    Flow executeNumericFor(NumericForStmt& stmt, Environment& env);
    Flow executeGenericFor(GenericForStmt& stmt, Environment& env);
    Flow executeWhile(WhileStmt& stmt, Environment& env);
    void spendStep(uint32_t line);
    [[noreturn]] void failBreakOutsideLoop();

    // -- runs --
    MultiValue executeScript(const std::string& source, const std::string& chunkName);
    LuaResult runScriptString(const std::string& source, const std::string& chunkName);
    LuaResult makeSuccess(const MultiValue& values);
    LuaResult makeFailure(const ProtectedRuntimeError& error, const std::string& chunkName);
    LuaResult makeFailure(const std::exception& error, const std::string& chunkName);
    std::shared_ptr<Table> sequenceToTable(const MultiValue& values);
    LuaValue valueToPublic(const Value& value, int depth = 0);
    Value publicToValue(const LuaValue& value, int depth = 0);
    void bindFunction(const std::string& name, LuaVM::Function fn);

    // -- library --
    void bindDefaults();
    void bindNativeGlobal(const std::string& name, NativeFunction fn);
    void bindTableFunction(Table& table, const std::string& name, NativeFunction fn);
    Value nativeObjectField(const Value& object, const std::string& key, uint32_t line);
};

// Chooses the evaluation function of a bound node (the binding pass calls it for every node).
void chooseEvaluator(Expr& expr);
void chooseExecutor(Stmt& stmt);
// Whether evaluating the expression can run code: only a call can.
bool containsCall(const ExprPtr& expr);

inline Value LuaVM::Impl::evaluateExpression(Expr& expr, Environment& env) { return expr.eval(*this, expr, env); }

// Access to the hidden parts for the evaluator's own tools (the fuzzer's step budget).
struct LuaVMInternals {
    static LuaVM::Impl& impl(LuaVM& vm) { return *vm.impl_; }
};

std::shared_ptr<LuaFunctionHandle> makeNativeHandle(const std::string& name, NativeFunction fn);

// ---- Bundles ----

struct BundleContents {
    std::string chunkName;
    std::string source;
};

std::vector<uint8_t> makeBytecodeBundle(const std::string& chunkName, const std::string& source);
BundleContents unpackBytecodeBundle(const std::vector<uint8_t>& bytecode);
std::vector<uint8_t> readFileBytes(const std::string& path);
void writeFileBytes(const std::string& path, const std::vector<uint8_t>& bytes);

// ---- Patterns (the library's, visible for its tests) ----

struct PatternMatch {
    uint64_t start = 0;
    uint64_t end = 0;
    std::vector<std::string> captures;
    std::string text;
};

std::string translateLuaPatternToRegex(const std::string& pattern);

}  // namespace orvane::lua
