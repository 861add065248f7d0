// The syntax tree of OrvaneLua, which the parser builds, the resolver numbers and the evaluator
// walks. Nodes branch on `kind` and are cast down where the concrete class is needed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lua/LuaVM.h"
#include "lua/Value.h"

namespace orvane::lua {

enum class TokenKind : uint8_t {
    Identifier, Integer, Float, String,
    LeftParen, RightParen, LeftBrace, RightBrace, LeftBracket, RightBracket,
    Comma, Semicolon, Dot, Concat, Colon, Plus, Minus, Star, Slash, Percent, Hash,
    Assign, Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual,
    And, Break, Do, Else, Elseif, End, False, For, Function, If, In, Local, Nil, Not, Or,
    Return, Then, True, While,
    EndOfFile,
};

class Environment;
struct Expr;
// The evaluation of one node, chosen by the binding pass from the node's kind, operator and the
// shape of its operands, so that a walk calls straight into the right code.
using EvalFn = Value (*)(LuaVM::Impl&, Expr&, Environment&);
// Evaluates any node by its kind; every node starts with it until the binding pass chooses.
Value evaluateAnyExpression(LuaVM::Impl& vm, Expr& expr, Environment& env);

struct Expr {
    enum class Kind : uint8_t { Literal, Variable, Unary, Binary, Table, Field, Index, Call, Function };
    Kind kind;
    uint32_t line = 0;
    EvalFn eval = evaluateAnyExpression;
    Expr(Kind k, uint32_t l) : kind(k), line(l) {}
    virtual ~Expr() = default;
};
using ExprPtr = std::shared_ptr<Expr>;

// How a statement leaves: on to the next one, or unwinding for a `break` or a `return`.
enum class Flow : uint8_t { Normal, Break, Return };

struct Stmt;
// The execution of one statement, chosen like EvalFn.
using ExecFn = Flow (*)(LuaVM::Impl&, Stmt&, Environment&);
Flow executeAnyStatement(LuaVM::Impl& vm, Stmt& stmt, Environment& env);

struct Stmt {
    enum class Kind : uint8_t {
        Expression, Assignment, FunctionDeclaration, If, While, NumericFor, GenericFor, Return, Break,
    };
    Kind kind;
    uint32_t line = 0;
    ExecFn exec = executeAnyStatement;
    Stmt(Kind k, uint32_t l) : kind(k), line(l) {}
    virtual ~Stmt() = default;
};
using StmtPtr = std::shared_ptr<Stmt>;
using StmtList = std::vector<StmtPtr>;

struct LiteralExpr : Expr {
    Value value;
    LiteralExpr(Value v, uint32_t l) : Expr(Kind::Literal, l), value(std::move(v)) {}
};

struct VariableExpr : Expr {
    std::string name;
    int32_t depth = -1;  // stays -1 for a global
    int32_t envDepth = -1;  // depth less the elided scopes crossed (see IfStmt::Branch::elided)
    uint64_t slot = 0;
    bool hasGlobalSlot = false;
    uint64_t globalSlot = 0;
    VariableExpr(std::string n, uint32_t l) : Expr(Kind::Variable, l), name(std::move(n)) {}
};

struct UnaryExpr : Expr {
    TokenKind op;
    ExprPtr operand;
    UnaryExpr(TokenKind o, ExprPtr e, uint32_t l) : Expr(Kind::Unary, l), op(o), operand(std::move(e)) {}
};

struct BinaryExpr : Expr {
    ExprPtr left;
    TokenKind op;
    ExprPtr right;
    bool rightSimple = false;  // holds no call, so cannot run code: the left is read in place
    // For comparisons: the test of a condition, without making a boolean value.
    bool (*test)(LuaVM::Impl&, BinaryExpr&, Environment&) = nullptr;
    BinaryExpr(ExprPtr a, TokenKind o, ExprPtr b, uint32_t l)
        : Expr(Kind::Binary, l), left(std::move(a)), op(o), right(std::move(b)) {}
};

struct TableExpr : Expr {
    struct Field {
        int kind = 0;  // 0 positional, 1 named, 2 computed key
        std::string name;
        ExprPtr key;
        ExprPtr value;
        uint32_t line = 0;
    };
    std::vector<Field> fields;
    explicit TableExpr(uint32_t l) : Expr(Kind::Table, l) {}
};

// The inline cache of a field or constant-index read. It remembers where the value stood
// rather than the value itself, so that a tree never keeps a value alive; the table's address,
// serial and version together prove that the place is still good.
struct ReadCache {
    const Table* cachedTable = nullptr;
    uint64_t cachedSerial = 0;
    uint64_t cachedVersion = UINT64_MAX;
    const Value* cachedValue = nullptr;  // null: the key was absent, which reads as nil
};

struct FieldExpr : Expr {
    ExprPtr object;
    std::string name;
    ReadCache cache;
    StringPtr nameValue;  // the name as a string value, made once for non-table objects
    FieldExpr(ExprPtr o, std::string n, uint32_t l) : Expr(Kind::Field, l), object(std::move(o)), name(std::move(n)) {}
};

struct IndexExpr : Expr {
    ExprPtr object;
    ExprPtr index;
    bool keyPrepared = false;
    bool keyIsConstant = false;
    bool indexPure = false;  // holds no call: the object is read in place
    TableKey constantKey;
    ReadCache cache;
    IndexExpr(ExprPtr o, ExprPtr i, uint32_t l) : Expr(Kind::Index, l), object(std::move(o)), index(std::move(i)) {}
};

struct CallExpr : Expr {
    ExprPtr callee;
    std::vector<ExprPtr> arguments;
    ExprPtr object;
    std::string methodName;
    StringPtr methodValue;  // the method name as a string value, made once
    explicit CallExpr(uint32_t l) : Expr(Kind::Call, l) {}
};

// Shares itself with the closures made from it, which keep their body alive after the run.
struct FunctionExpr : Expr, std::enable_shared_from_this<FunctionExpr> {
    std::vector<std::string> parameters;
    StmtList body;
    uint64_t slotCount = 0;
    bool noCapture = false;
    explicit FunctionExpr(uint32_t l) : Expr(Kind::Function, l) {}
};

struct ExpressionStmt : Stmt {
    ExprPtr expression;
    ExpressionStmt(ExprPtr e, uint32_t l) : Stmt(Kind::Expression, l), expression(std::move(e)) {}
};

struct AssignTarget {
    int kind = 0;  // 0 name, 1 field, 2 index
    std::string name;
    ExprPtr object;
    ExprPtr index;
    uint32_t line = 0;
    bool indexPure = false;  // holds no call: the object is read in place
    int32_t depth = -1;
    int32_t envDepth = -1;
    uint64_t slot = 0;
    bool hasGlobalSlot = false;
    uint64_t globalSlot = 0;
};

struct AssignmentStmt : Stmt {
    bool isLocal = false;
    std::vector<AssignTarget> targets;
    std::vector<ExprPtr> values;
    explicit AssignmentStmt(uint32_t l) : Stmt(Kind::Assignment, l) {}
};

struct FunctionDeclarationStmt : Stmt {
    bool isLocal = false;
    AssignTarget target;
    std::shared_ptr<FunctionExpr> function;
    explicit FunctionDeclarationStmt(uint32_t l) : Stmt(Kind::FunctionDeclaration, l) {}
};

struct IfStmt : Stmt {
    struct Branch {
        ExprPtr condition;
        StmtList block;
        uint64_t slotCount = 0;
        bool noCapture = false;
        // A block without slots and closures runs in its parent's environment: it would add an
        // empty link to the chain and nothing else. The binding pass takes it out of envDepth.
        bool elided = false;
    };
    std::vector<Branch> branches;
    StmtList elseBlock;
    uint64_t elseSlotCount = 0;
    bool elseNoCapture = false;
    bool elseElided = false;
    explicit IfStmt(uint32_t l) : Stmt(Kind::If, l) {}
};

struct WhileStmt : Stmt {
    ExprPtr condition;
    StmtList body;
    uint64_t slotCount = 0;
    bool noCapture = false;
    explicit WhileStmt(uint32_t l) : Stmt(Kind::While, l) {}
};

struct NumericForStmt : Stmt {
    std::string name;
    ExprPtr start;
    ExprPtr limit;
    ExprPtr step;  // may be empty
    StmtList body;
    uint64_t slotCount = 0;
    uint64_t loopSlot = 0;
    bool noCapture = false;
    explicit NumericForStmt(uint32_t l) : Stmt(Kind::NumericFor, l) {}
};

struct GenericForStmt : Stmt {
    std::vector<std::string> names;
    std::vector<ExprPtr> iterators;
    StmtList body;
    uint64_t slotCount = 0;
    std::vector<uint64_t> slots;
    bool noCapture = false;
    explicit GenericForStmt(uint32_t l) : Stmt(Kind::GenericFor, l) {}
};

struct ReturnStmt : Stmt {
    std::vector<ExprPtr> values;
    explicit ReturnStmt(uint32_t l) : Stmt(Kind::Return, l) {}
};

struct BreakStmt : Stmt {
    explicit BreakStmt(uint32_t l) : Stmt(Kind::Break, l) {}
};

struct ResolvedChunk {
    StmtList statements;
    uint64_t slotCount = 0;
};

// Deeply nested sources are refused by the parser before any recursive pass can exhaust the
// native stack: a limit on nesting levels, counted over blocks, brackets, operators and suffixes.
inline constexpr int kMaxSyntaxDepth = 200;

// Scans and parses a whole source; raises the plain runtime error of failParse on the first
// syntax error.
StmtList parseSource(const std::string& source, const std::string& chunkName);

[[noreturn]] void failParse(const std::string& chunkName, uint32_t line, uint32_t column, const std::string& message);

}  // namespace orvane::lua
