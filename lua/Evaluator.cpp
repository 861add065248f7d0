// The tree walker: expressions, statements and calls on the native stack. Locals are read by
// depth and slot, globals by a fixed index, fields through a per-node cache; blocks that make
// no closure run in environments on the native stack.
#include <cmath>
#include <string>
#include <type_traits>

#include "lua/Runtime.h"

namespace orvane::lua {

thread_local int32_t gLuaProtectedDepth = 0;

void failRuntime(uint32_t line, const std::string& message) {
    if (gLuaProtectedDepth < 1) throw RuntimeError(message, line);
    throw ProtectedRuntimeError{message, line, true};
}

const std::string& functionHandleName(const LuaFunctionHandle& handle) { return handle.name; }

namespace {

const Value kNil;

const char* const kCaptureMessage = "attempted to capture a non-owning OrvaneLua environment";


std::string operatorSign(TokenKind op) {
    switch (op) {
    case TokenKind::Plus: return "+";
    case TokenKind::Minus: return "-";
    case TokenKind::Star: return "*";
    case TokenKind::Slash: return "/";
    default: return "%";
    }
}

uintptr_t stackAddress() { return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)); }

// Counts a call against both limits for as long as it runs.
struct CallDepthGuard {
    LuaVM::Impl& impl;
    CallDepthGuard(LuaVM::Impl& vm, uint32_t line) : impl(vm) {
        if (impl.callDepth >= kMaxCallDepth || impl.stackBase - stackAddress() > kMaxStackBytes)
            failRuntime(line, "stack overflow");
        ++impl.callDepth;
    }
    ~CallDepthGuard() { --impl.callDepth; }
};

// A read through the inline cache of a field or constant-index node.
inline Value cachedRead(ReadCache& cache, const Table& table, const TableKeyView& key) {
    if (cache.cachedTable == &table && cache.cachedSerial == table.serial && cache.cachedVersion == table.version)
        return cache.cachedValue ? *cache.cachedValue : Value();
    const Value* found = tableFind(table, key);
    cache.cachedTable = &table;
    cache.cachedSerial = table.serial;
    cache.cachedVersion = table.version;
    cache.cachedValue = found;
    return found ? *found : Value();
}

}  // namespace

// ---- Registries ----

void EnvironmentRegistry::add(Environment* env) {
    env->registry = this;
    env->previousLive = nullptr;
    env->nextLive = first;
    if (first) first->previousLive = env;
    first = env;
}

void EnvironmentRegistry::remove(Environment* env) {
    if (env->previousLive) env->previousLive->nextLive = env->nextLive;
    else first = env->nextLive;
    if (env->nextLive) env->nextLive->previousLive = env->previousLive;
    env->previousLive = env->nextLive = nullptr;
    env->registry = nullptr;
}

void EnvironmentRegistry::clearAll() {
    while (first) {
        Environment* env = first;
        remove(env);
        SmallValueStore<8> slots = std::move(env->slots);
        std::shared_ptr<Environment> parent = std::move(env->parentOwner);
        env->parent = nullptr;
        // `slots` and `parent` die here and may take `env` with them.
    }
}

std::shared_ptr<Table> LuaVM::Impl::newTable() {
    auto table = std::make_shared<Table>();
    tableRegistry.add(table.get());
    return table;
}

std::shared_ptr<Environment> LuaVM::Impl::newSharedEnvironment(uint64_t slotCount) {
    auto env = std::make_shared<Environment>(slotCount);
    environmentRegistry.add(env.get());
    return env;
}

// ---- Globals ----

uint64_t LuaVM::Impl::resolveGlobalSlot(const std::string& name) {
    auto it = globalSlots.find(name);
    if (it != globalSlots.end()) return it->second;
    uint64_t slot = globals.size();
    globals.emplace_back();
    globalSlots.emplace(name, slot);
    return slot;
}

Value LuaVM::Impl::getGlobalValue(uint64_t slot) const { return slot < globals.size() ? globals[slot] : Value(); }

Value LuaVM::Impl::getGlobalValue(const std::string& name) { return getGlobalValue(resolveGlobalSlot(name)); }

void LuaVM::Impl::setGlobalValue(uint64_t slot, Value value) {
    if (slot >= globals.size()) globals.resize(size_t(slot + 1));
    globals[slot] = std::move(value);
}

void LuaVM::Impl::setGlobalValue(const std::string& name, Value value) {
    setGlobalValue(resolveGlobalSlot(name), std::move(value));
}

// ---- Environments ----

Environment* LuaVM::Impl::resolveLocalEnvironment(Environment& env, int32_t depth) {
    Environment* e = &env;
    for (int32_t d = depth; d > 0 && e; --d) e = e->parent;
    return e;
}

void LuaVM::Impl::clearEnvironmentSlots(Environment& env) { env.slots.fillNil(); }

std::shared_ptr<Environment> LuaVM::Impl::requireSharedEnvironment(Environment& env) {
    return env.weak_from_this().lock();
}

void LuaVM::Impl::spendStep(uint32_t line) {
    if (stepsLeft == 0) failRuntime(line, "step budget exhausted");
    --stepsLeft;
}

void LuaVM::Impl::failBreakOutsideLoop() { failRuntime(breakLine, "break outside a loop"); }

// ---- Expressions ----

namespace {
// A global that was never given a slot: only a tree that skipped the binding pass has one.
[[gnu::noinline]] const Value* unboundGlobal(LuaVM::Impl& vm, const VariableExpr& variable) {
    return &vm.globals[vm.resolveGlobalSlot(variable.name)];
}
}  // namespace

[[gnu::always_inline]] inline const Value* LuaVM::Impl::readVariable(const VariableExpr& variable, Environment& env) {
    if (variable.depth < 0) {
        if (variable.hasGlobalSlot) return variable.globalSlot < globals.size() ? &globals[variable.globalSlot] : &kNil;
        return unboundGlobal(*this, variable);
    }
    Environment* e = &env;
    for (int32_t d = variable.envDepth; d > 0; --d) {
        e = e->parent;
        if (!e) return &kNil;
    }
    Value* slot = e->slot(variable.slot);
    return slot ? slot : &kNil;
}

namespace {

using Impl = LuaVM::Impl;

// The value of an operand without a copy where it already lives: a literal or a variable. The
// pointer is good until the next evaluation that can run code.
[[gnu::always_inline]] inline const Value* operand(Impl& vm, Expr& e, Environment& env, Value& scratch) {
    if (e.kind == Expr::Kind::Variable) return vm.readVariable(static_cast<VariableExpr&>(e), env);
    if (e.kind == Expr::Kind::Literal) return &static_cast<LiteralExpr&>(e).value;
    scratch = e.eval(vm, e, env);
    return &scratch;
}

// Both operands of a binary node, left first. The left is read in place only when the right
// side cannot run code that changes it.
[[gnu::always_inline]] inline void operands(Impl& vm, BinaryExpr& b, Environment& env, Value& ls, Value& rs,
                                            const Value*& l, const Value*& r) {
    if (b.rightSimple) {
        l = operand(vm, *b.left, env, ls);
    } else {
        ls = b.left->eval(vm, *b.left, env);
        l = &ls;
    }
    r = operand(vm, *b.right, env, rs);
}

Value evalLiteral(Impl&, Expr& e, Environment&) { return static_cast<LiteralExpr&>(e).value; }

Value evalLocal0(Impl&, Expr& e, Environment& env) {
    auto& v = static_cast<VariableExpr&>(e);
    Value* slot = env.slot(v.slot);
    return slot ? *slot : Value();
}

Value evalLocal1(Impl&, Expr& e, Environment& env) {
    auto& v = static_cast<VariableExpr&>(e);
    Environment* p = env.parent;
    Value* slot = p ? p->slot(v.slot) : nullptr;
    return slot ? *slot : Value();
}

Value evalVariable(Impl& vm, Expr& e, Environment& env) {
    return *vm.readVariable(static_cast<VariableExpr&>(e), env);
}

Value evalGlobal(Impl& vm, Expr& e, Environment&) {
    auto& v = static_cast<VariableExpr&>(e);
    return v.globalSlot < vm.globals.size() ? vm.globals[v.globalSlot] : Value();
}

Value evalNegate(Impl& vm, Expr& e, Environment& env) {
    auto& u = static_cast<UnaryExpr&>(e);
    Value scratch;
    const Value* v = operand(vm, *u.operand, env, scratch);
    if (!v->isNumber()) failRuntime(u.line, "unary '-' expects a number");
    return negateNumber(*v);
}

Value evalLength(Impl& vm, Expr& e, Environment& env) {
    auto& u = static_cast<UnaryExpr&>(e);
    Value scratch;
    const Value* v = operand(vm, *u.operand, env, scratch);
    if (v->type() == ValueType::String) return Value::integer(int64_t(v->stringValue().size()));
    if (v->type() == ValueType::Table) return Value::integer(int64_t(tableSequenceLength(v->tablePointer())));
    failRuntime(u.line, "length operator expects a string or table");
}

Value evalNot(Impl& vm, Expr& e, Environment& env) {
    auto& u = static_cast<UnaryExpr&>(e);
    return Value::boolean(!vm.conditionHolds(*u.operand, env));
}

Value evalAnd(Impl& vm, Expr& e, Environment& env) {
    auto& b = static_cast<BinaryExpr&>(e);
    Value left = b.left->eval(vm, *b.left, env);
    if (!left.isTruthy()) return left;
    return b.right->eval(vm, *b.right, env);
}

Value evalOr(Impl& vm, Expr& e, Environment& env) {
    auto& b = static_cast<BinaryExpr&>(e);
    Value left = b.left->eval(vm, *b.left, env);
    if (left.isTruthy()) return left;
    return b.right->eval(vm, *b.right, env);
}

[[gnu::noinline]] Value arithmeticSlow(BinaryExpr& b, const Value& a, const Value& c) {
    if (!a.isNumber() || !c.isNumber()) failRuntime(b.line, "operator '" + operatorSign(b.op) + "' expects numbers");
    switch (b.op) {
    case TokenKind::Plus: return addNumbers(a, c);
    case TokenKind::Minus: return subtractNumbers(a, c);
    case TokenKind::Star: return multiplyNumbers(a, c);
    case TokenKind::Slash:
        if (std::fabs(c.asFloat()) <= kDoubleEpsilon) failRuntime(b.line, "division by zero");
        return divideNumbers(a, c);
    default:
        if (std::fabs(c.asFloat()) <= kDoubleEpsilon) failRuntime(b.line, "modulo by zero");
        return moduloNumbers(a, c);
    }
}

// Operand shapes known when the node is bound: a variable, a literal, or anything else.
enum Shape { kVariable, kLiteral, kOther };

Shape shapeOf(const Expr& e) {
    return e.kind == Expr::Kind::Variable ? kVariable : e.kind == Expr::Kind::Literal ? kLiteral : kOther;
}

template <int S>
[[gnu::always_inline]] inline const Value* fetchSimple(Impl& vm, Expr& e, Environment& env) {
    static_assert(S != kOther);
    if constexpr (S == kVariable) return vm.readVariable(static_cast<VariableExpr&>(e), env);
    else return &static_cast<LiteralExpr&>(e).value;
}

template <int S>
[[gnu::always_inline]] inline const Value* fetch(Impl& vm, Expr& e, Environment& env, Value& scratch) {
    if constexpr (S == kVariable) return vm.readVariable(static_cast<VariableExpr&>(e), env);
    else if constexpr (S == kLiteral) return &static_cast<LiteralExpr&>(e).value;
    else {
        scratch = e.eval(vm, e, env);
        return &scratch;
    }
}

// Both operands, left first; a variable on the left is read in place unless the right side can
// run code (a call) that might change it.
template <int L, int R>
[[gnu::always_inline]] inline void fetchOperands(Impl& vm, BinaryExpr& b, Environment& env, Value& ls, Value& rs,
                                                 const Value*& l, const Value*& r) {
    if constexpr (L == kVariable && R == kOther) {
        if (b.rightSimple) {
            l = fetch<kVariable>(vm, *b.left, env, ls);
        } else {
            ls = *fetch<kVariable>(vm, *b.left, env, ls);
            l = &ls;
        }
    } else {
        l = fetch<L>(vm, *b.left, env, ls);
    }
    r = fetch<R>(vm, *b.right, env, rs);
}

template <TokenKind Op>
[[gnu::always_inline]] inline Value arithmeticOn(BinaryExpr& b, const Value& l, const Value& r) {
    if (l.type() == ValueType::Integer && r.type() == ValueType::Integer) {
        int64_t x = l.integerValue(), y = r.integerValue(), out;
        if constexpr (Op == TokenKind::Plus) {
            if (!__builtin_add_overflow(x, y, &out)) return Value::integer(out);
        } else if constexpr (Op == TokenKind::Minus) {
            if (!__builtin_sub_overflow(x, y, &out)) return Value::integer(out);
        } else if constexpr (Op == TokenKind::Star) {
            if (!__builtin_mul_overflow(x, y, &out)) return Value::integer(out);
        } else if constexpr (Op == TokenKind::Slash) {
            if (y != 0) return Value::number(double(x) / double(y));
        } else {
            // Truncating, with the sign of the dividend; -1 would trap on the lowest integer.
            if (y != 0 && y != -1) return Value::integer(x % y);
        }
    } else if (l.type() == ValueType::Float && r.type() == ValueType::Float) {
        double x = l.floatValue(), y = r.floatValue();
        if constexpr (Op == TokenKind::Plus) return numericResult(x + y);
        else if constexpr (Op == TokenKind::Minus) return numericResult(x - y);
        else if constexpr (Op == TokenKind::Star) return numericResult(x * y);
    }
    return arithmeticSlow(b, l, r);
}

template <TokenKind Op, int L, int R>
Value evalArithmetic(Impl& vm, Expr& e, Environment& env) {
    auto& b = static_cast<BinaryExpr&>(e);
    if constexpr (L != kOther && R != kOther) {
        // Both operands read in place: no scratch values at all.
        const Value* l = fetchSimple<L>(vm, *b.left, env);
        const Value* r = fetchSimple<R>(vm, *b.right, env);
        return arithmeticOn<Op>(b, *l, *r);
    } else {
        Value ls, rs;
        const Value *l, *r;
        fetchOperands<L, R>(vm, b, env, ls, rs, l, r);
        return arithmeticOn<Op>(b, *l, *r);
    }
}

template <TokenKind Op>
[[gnu::always_inline]] inline bool orderedCompare(Impl& vm, BinaryExpr& b, const Value& l, const Value& r) {
    if (l.type() == ValueType::Integer && r.type() == ValueType::Integer) {
        int64_t x = l.integerValue(), y = r.integerValue();
        if constexpr (Op == TokenKind::Less) return x < y;
        else if constexpr (Op == TokenKind::LessEqual) return x <= y;
        else if constexpr (Op == TokenKind::Greater) return x > y;
        else return x >= y;
    }
    if (l.type() == ValueType::Float && r.type() == ValueType::Float) {
        double x = l.floatValue(), y = r.floatValue();
        if constexpr (Op == TokenKind::Less) return x < y;
        else if constexpr (Op == TokenKind::LessEqual) return x <= y;
        else if constexpr (Op == TokenKind::Greater) return x > y;
        else return x >= y;
    }
    return vm.compareValues(l, r, Op, b.line);
}

template <TokenKind Op, int L, int R>
bool compareTest(Impl& vm, BinaryExpr& b, Environment& env) {
    if constexpr (L != kOther && R != kOther) {
        const Value* l = fetchSimple<L>(vm, *b.left, env);
        const Value* r = fetchSimple<R>(vm, *b.right, env);
        return orderedCompare<Op>(vm, b, *l, *r);
    } else {
        Value ls, rs;
        const Value *l, *r;
        fetchOperands<L, R>(vm, b, env, ls, rs, l, r);
        return orderedCompare<Op>(vm, b, *l, *r);
    }
}

template <TokenKind Op, int L, int R>
Value evalCompare(Impl& vm, Expr& e, Environment& env) {
    return Value::boolean(compareTest<Op, L, R>(vm, static_cast<BinaryExpr&>(e), env));
}

// The instance for an operator and the shapes of both operands.
template <template <TokenKind, int, int> class Pick, TokenKind Op>
typename Pick<Op, 0, 0>::Type pickByShape(const BinaryExpr& b) {
    Shape l = shapeOf(*b.left), r = shapeOf(*b.right);
    switch (l * 3 + r) {
    case 0: return Pick<Op, 0, 0>::value;
    case 1: return Pick<Op, 0, 1>::value;
    case 2: return Pick<Op, 0, 2>::value;
    case 3: return Pick<Op, 1, 0>::value;
    case 4: return Pick<Op, 1, 1>::value;
    case 5: return Pick<Op, 1, 2>::value;
    case 6: return Pick<Op, 2, 0>::value;
    case 7: return Pick<Op, 2, 1>::value;
    default: return Pick<Op, 2, 2>::value;
    }
}

template <TokenKind Op, int L, int R>
struct PickArithmetic {
    using Type = EvalFn;
    static constexpr EvalFn value = evalArithmetic<Op, L, R>;
};

template <TokenKind Op, int L, int R>
struct PickCompare {
    using Type = EvalFn;
    static constexpr EvalFn value = evalCompare<Op, L, R>;
};

template <TokenKind Op, int L, int R>
struct PickTest {
    using Type = bool (*)(Impl&, BinaryExpr&, Environment&);
    static constexpr Type value = compareTest<Op, L, R>;
};

template <bool Negate>
Value evalEquality(Impl& vm, Expr& e, Environment& env) {
    auto& b = static_cast<BinaryExpr&>(e);
    Value ls, rs;
    const Value *l, *r;
    operands(vm, b, env, ls, rs, l, r);
    bool equal = l->type() == ValueType::Integer && r->type() == ValueType::Integer
                     ? l->integerValue() == r->integerValue()
                     : valuesEqual(*l, *r);
    return Value::boolean(equal != Negate);
}

Value evalConcat(Impl& vm, Expr& e, Environment& env) {
    auto& b = static_cast<BinaryExpr&>(e);
    Value ls, rs;
    const Value *l, *r;
    operands(vm, b, env, ls, rs, l, r);
    std::string text;
    if (l->type() == ValueType::String && r->type() == ValueType::String) {
        size_t size = l->stringValue().size() + r->stringValue().size();
        if (size > vm.maxStringSize) failRuntime(b.line, "string is too large");
        text.reserve(size);
    }
    l->appendTo(text);
    r->appendTo(text);
    if (text.size() > vm.maxStringSize) failRuntime(b.line, "string is too large");
    return Value::string(std::move(text));
}

Value evalTable(Impl& vm, Expr& e, Environment& env) {
    auto& t = static_cast<TableExpr&>(e);
    auto table = vm.newTable();
    int64_t n = 1;
    for (auto& field : t.fields) {
        switch (field.kind) {
        case 0: tableSetInteger(table.get(), n++, field.value->eval(vm, *field.value, env)); break;
        case 1: {
            Value v = field.value->eval(vm, *field.value, env);
            TableKeyView key;
            key.kind = 1;
            key.stringValue = field.name;
            tableSetView(table.get(), key, std::move(v));
            break;
        }
        default: {
            Value keyValue = field.key->eval(vm, *field.key, env);
            TableKeyView key;
            if (!tryMakeKeyView(keyValue, key)) failRuntime(field.line, "table keys must be numbers, strings, or booleans");
            Value v = field.value->eval(vm, *field.value, env);
            tableSetView(table.get(), key, std::move(v));
            break;
        }
        }
    }
    return Value::table(std::move(table));
}

Value evalField(Impl& vm, Expr& e, Environment& env) {
    auto& field = static_cast<FieldExpr&>(e);
    Value holder;
    const Value* object = operand(vm, *field.object, env, holder);
    if (object->type() == ValueType::Table) {
        TableKeyView key;
        key.kind = 1;
        key.stringValue = field.name;
        return cachedRead(field.cache, *object->tablePointer(), key);
    }
    if (!field.nameValue) field.nameValue = std::make_shared<const std::string>(field.name);
    return vm.indexValue(*object, Value::string(field.nameValue), field.line);
}

Value evalIndex(Impl& vm, Expr& e, Environment& env) {
    auto& index = static_cast<IndexExpr&>(e);
    if (!index.keyPrepared) {
        index.keyPrepared = true;
        if (index.index->kind == Expr::Kind::Literal)
            index.keyIsConstant = tryMakeKeyFromValue(static_cast<LiteralExpr&>(*index.index).value, index.constantKey);
    }
    Value holder, keyHolder;
    const Value* object;
    if (index.indexPure) {
        object = operand(vm, *index.object, env, holder);
    } else {
        holder = index.object->eval(vm, *index.object, env);
        object = &holder;
    }
    if (object->type() == ValueType::Table) {
        const Table& table = *object->tablePointer();
        if (index.keyIsConstant) return cachedRead(index.cache, table, TableKeyView(index.constantKey));
        const Value* key = operand(vm, *index.index, env, keyHolder);
        if (key->type() == ValueType::Integer) {
            const Value* found = tableFindInteger(table, key->integerValue());
            return found ? *found : Value();
        }
        return vm.indexValue(*object, *key, index.line);
    }
    const Value* key = operand(vm, *index.index, env, keyHolder);
    return vm.indexValue(*object, *key, index.line);
}

Value evalCall(Impl& vm, Expr& e, Environment& env);

Value evalFunction(Impl& vm, Expr& e, Environment& env) {
    auto& f = static_cast<FunctionExpr&>(e);
    return vm.makeScriptFunction("<anonymous>", f.shared_from_this(), env);
}

// Whether evaluating the expression can run code: only a call can (there are no metatables), so
// an expression without one leaves every variable as it found it.
}  // namespace

bool containsCall(const ExprPtr& e) {
    if (!e) return false;
    switch (e->kind) {
    case Expr::Kind::Literal:
    case Expr::Kind::Variable:
    case Expr::Kind::Function: return false;
    case Expr::Kind::Unary: return containsCall(static_cast<UnaryExpr&>(*e).operand);
    case Expr::Kind::Binary: {
        auto& b = static_cast<BinaryExpr&>(*e);
        return containsCall(b.left) || containsCall(b.right);
    }
    case Expr::Kind::Table:
        for (auto& f : static_cast<TableExpr&>(*e).fields)
            if (containsCall(f.key) || containsCall(f.value)) return true;
        return false;
    case Expr::Kind::Field: return containsCall(static_cast<FieldExpr&>(*e).object);
    case Expr::Kind::Index: {
        auto& i = static_cast<IndexExpr&>(*e);
        return containsCall(i.object) || containsCall(i.index);
    }
    case Expr::Kind::Call: return true;
    }
    return true;
}

namespace {

}  // namespace

void chooseEvaluator(Expr& expr) {
    switch (expr.kind) {
    case Expr::Kind::Literal: expr.eval = evalLiteral; return;
    case Expr::Kind::Variable: {
        auto& v = static_cast<VariableExpr&>(expr);
        if (v.depth >= 0 && v.envDepth == 0) expr.eval = evalLocal0;
        else if (v.depth >= 0 && v.envDepth == 1) expr.eval = evalLocal1;
        else if (v.depth < 0 && v.hasGlobalSlot) expr.eval = evalGlobal;
        else expr.eval = evalVariable;
        return;
    }
    case Expr::Kind::Unary: {
        auto& u = static_cast<UnaryExpr&>(expr);
        expr.eval = u.op == TokenKind::Minus ? evalNegate : u.op == TokenKind::Hash ? evalLength : evalNot;
        return;
    }
    case Expr::Kind::Binary: {
        auto& b = static_cast<BinaryExpr&>(expr);
        b.rightSimple = !containsCall(b.right);
        switch (b.op) {
        case TokenKind::And: expr.eval = evalAnd; return;
        case TokenKind::Or: expr.eval = evalOr; return;
        case TokenKind::Plus: expr.eval = pickByShape<PickArithmetic, TokenKind::Plus>(b); return;
        case TokenKind::Minus: expr.eval = pickByShape<PickArithmetic, TokenKind::Minus>(b); return;
        case TokenKind::Star: expr.eval = pickByShape<PickArithmetic, TokenKind::Star>(b); return;
        case TokenKind::Slash: expr.eval = pickByShape<PickArithmetic, TokenKind::Slash>(b); return;
        case TokenKind::Percent: expr.eval = pickByShape<PickArithmetic, TokenKind::Percent>(b); return;
        case TokenKind::Equal: expr.eval = evalEquality<false>; return;
        case TokenKind::NotEqual: expr.eval = evalEquality<true>; return;
        case TokenKind::Less:
            expr.eval = pickByShape<PickCompare, TokenKind::Less>(b);
            b.test = pickByShape<PickTest, TokenKind::Less>(b);
            return;
        case TokenKind::LessEqual:
            expr.eval = pickByShape<PickCompare, TokenKind::LessEqual>(b);
            b.test = pickByShape<PickTest, TokenKind::LessEqual>(b);
            return;
        case TokenKind::Greater:
            expr.eval = pickByShape<PickCompare, TokenKind::Greater>(b);
            b.test = pickByShape<PickTest, TokenKind::Greater>(b);
            return;
        case TokenKind::GreaterEqual:
            expr.eval = pickByShape<PickCompare, TokenKind::GreaterEqual>(b);
            b.test = pickByShape<PickTest, TokenKind::GreaterEqual>(b);
            return;
        case TokenKind::Concat: expr.eval = evalConcat; return;
        default: expr.eval = evaluateAnyExpression; return;
        }
    }
    case Expr::Kind::Table: expr.eval = evalTable; return;
    case Expr::Kind::Field: expr.eval = evalField; return;
    case Expr::Kind::Index:
        static_cast<IndexExpr&>(expr).indexPure = !containsCall(static_cast<IndexExpr&>(expr).index);
        expr.eval = evalIndex;
        return;
    case Expr::Kind::Call: expr.eval = evalCall; return;
    case Expr::Kind::Function: expr.eval = evalFunction; return;
    }
}

Value evaluateAnyExpression(LuaVM::Impl& vm, Expr& expr, Environment& env) {
    chooseEvaluator(expr);
    if (expr.eval == evaluateAnyExpression) return Value();
    return expr.eval(vm, expr, env);
}

bool LuaVM::Impl::conditionHolds(Expr& expr, Environment& env) {
    if (expr.kind == Expr::Kind::Binary) {
        auto& b = static_cast<BinaryExpr&>(expr);
        if (b.test) return b.test(*this, b, env);
        if (b.op == TokenKind::And) return conditionHolds(*b.left, env) && conditionHolds(*b.right, env);
        if (b.op == TokenKind::Or) return conditionHolds(*b.left, env) || conditionHolds(*b.right, env);
    } else if (expr.kind == Expr::Kind::Variable) {
        return readVariable(static_cast<VariableExpr&>(expr), env)->isTruthy();
    }
    return expr.eval(*this, expr, env).isTruthy();
}

bool LuaVM::Impl::compareValues(const Value& a, const Value& b, TokenKind op, uint32_t line) {
    int order;
    if (a.type() == ValueType::Integer && b.type() == ValueType::Integer) {
        int64_t x = a.integerValue(), y = b.integerValue();
        order = x < y ? -1 : x > y ? 1 : 0;
    } else if (a.isNumber() && b.isNumber()) {
        double x = a.asFloat(), y = b.asFloat();
        switch (op) {
        case TokenKind::Less: return x < y;
        case TokenKind::LessEqual: return x <= y;
        case TokenKind::Greater: return x > y;
        default: return x >= y;
        }
    } else if (a.type() == ValueType::String && b.type() == ValueType::String) {
        int c = a.stringValue().compare(b.stringValue());
        order = c < 0 ? -1 : c > 0 ? 1 : 0;
    } else {
        failRuntime(line, "ordered comparisons require matching numbers or strings");
    }
    switch (op) {
    case TokenKind::Less: return order < 0;
    case TokenKind::LessEqual: return order <= 0;
    case TokenKind::Greater: return order > 0;
    default: return order >= 0;
    }
}

Value LuaVM::Impl::indexValue(const Value& object, const Value& key, uint32_t line) {
    switch (object.type()) {
    case ValueType::Table: {
        TableKeyView view;
        if (!tryMakeKeyView(key, view)) failRuntime(line, "table index must be a number, string, or boolean");
        const Value* found = tableFind(*object.tablePointer(), view);
        return found ? *found : Value();
    }
    case ValueType::String:
        if (key.type() == ValueType::String && stringSlot < globals.size() &&
            globals[stringSlot].type() == ValueType::Table) {
            TableKeyView view;
            view.kind = 1;
            view.stringValue = key.stringValue();
            const Value* found = tableFind(*globals[stringSlot].tablePointer(), view);
            if (found && !found->isNil()) return *found;
        }
        failRuntime(line, "string indexing only supports library methods");
    case ValueType::UserData:
        if (key.type() != ValueType::String) failRuntime(line, "userdata fields must be strings");
        return nativeObjectField(object, key.stringValue(), line);
    default: failRuntime(line, "attempt to index a " + describeValueType(object) + " value");
    }
}

MultiValue LuaVM::Impl::evaluateExpressionMulti(Expr& expr, Environment& env, bool allowMulti) {
    if (expr.kind == Expr::Kind::Call) {
        MultiValue results = callValue(static_cast<CallExpr&>(expr), env);
        if (allowMulti || results.size() <= 1) return results;
        return MultiValue(std::move(results[0]));
    }
    return MultiValue(evaluateExpression(expr, env));
}

MultiValue LuaVM::Impl::evaluateExpressionList(std::vector<ExprPtr>& exprs, Environment& env) {
    size_t n = exprs.size();
    if (n == 1 && exprs[0]->kind != Expr::Kind::Call) return MultiValue(evaluateExpression(*exprs[0], env));
    MultiValue values;
    for (size_t i = 0; i < n; ++i) {
        Expr& e = *exprs[i];
        if (i + 1 == n && e.kind == Expr::Kind::Call) {
            MultiValue rest = callValue(static_cast<CallExpr&>(e), env);
            if (values.empty()) return rest;
            for (auto& v : rest) values.push(std::move(v));
        } else {
            values.push(evaluateExpression(e, env));
        }
    }
    return values;
}

// ---- Calls ----

namespace {

// A body's result when only its first value is wanted; it runs exactly as runBody does.
Value runBodyFirst(Impl& vm, StmtList& body, Environment& env) {
    size_t n = body.size();
    size_t last = n > 0 && body[n - 1]->kind == Stmt::Kind::Return ? n - 1 : n;
    for (size_t i = 0; i < last; ++i) {
        Flow flow = body[i]->exec(vm, *body[i], env);
        if (flow == Flow::Return) return firstOrNil(std::move(vm.pendingReturn.values));
        if (flow == Flow::Break) vm.failBreakOutsideLoop();
    }
    if (last == n) return Value();
    auto& values = static_cast<ReturnStmt&>(*body[last]).values;
    if (values.empty()) return Value();
    Value first = values[0]->eval(vm, *values[0], env);
    for (size_t i = 1; i < values.size(); ++i) values[i]->eval(vm, *values[i], env);
    return first;
}

// A call node: all results, or only the first for a call inside an expression.
template <bool First>
std::conditional_t<First, Value, MultiValue> callExpression(Impl& vm, CallExpr& call, Environment& env) {
    Value callee;
    Value object;
    if (call.object) {
        object = call.object->eval(vm, *call.object, env);
        if (!call.methodValue) call.methodValue = std::make_shared<const std::string>(call.methodName);
        if (object.type() == ValueType::Table) {
            TableKeyView key;
            key.kind = 1;
            key.stringValue = call.methodName;
            const Value* found = tableFind(*object.tablePointer(), key);
            if (found) callee = *found;
        } else {
            callee = vm.indexValue(object, Value::string(call.methodValue), call.line);
        }
    } else {
        callee = call.callee->eval(vm, *call.callee, env);
    }
    size_t n = call.arguments.size();
    const LuaFunctionHandle* handle = callee.type() == ValueType::Function ? callee.functionValue().get() : nullptr;
    FunctionExpr* function = handle && handle->kind == 0 ? handle->function.get() : nullptr;
    if (function && function->noCapture) {
        // A script function that makes no closure: its arguments go straight into the
        // environment of the call, which lives on the native stack.
        Environment frame(function->slotCount);
        frame.setParent(handle->closure.get());
        size_t parameters = function->parameters.size();
        size_t position = 0;
        if (call.object) {
            if (parameters > 0) frame.slots[0] = std::move(object);
            position = 1;
        }
        for (size_t i = 0; i < n; ++i) {
            Expr& a = *call.arguments[i];
            if (i + 1 == n && a.kind == Expr::Kind::Call) {
                MultiValue rest = vm.callValue(static_cast<CallExpr&>(a), env);
                for (auto& v : rest) {
                    if (position < parameters) frame.slots[position] = std::move(v);
                    ++position;
                }
            } else {
                Value v = a.eval(vm, a, env);
                if (position < parameters) frame.slots[position] = std::move(v);
                ++position;
            }
        }
        CallDepthGuard guard(vm, call.line);
        try {
            if (vm.stepsLeft != UINT64_MAX) vm.spendStep(call.line);
            if constexpr (First) return runBodyFirst(vm, function->body, frame);
            else return vm.runBody(function->body, frame);
        } catch (const RuntimeError&) {
            throw;
        } catch (const std::exception& e) {
            failRuntime(call.line, e.what());
        }
    }
    SmallValueStore<6> args;
    if (call.object) args.push(std::move(object));
    for (size_t i = 0; i < n; ++i) {
        Expr& a = *call.arguments[i];
        if (i + 1 == n && a.kind == Expr::Kind::Call) {
            MultiValue rest = vm.callValue(static_cast<CallExpr&>(a), env);
            for (auto& v : rest) args.push(std::move(v));
        } else {
            args.push(a.eval(vm, a, env));
        }
    }
    if constexpr (First) return firstOrNil(vm.callValue(callee, args.span(), call.line));
    else return vm.callValue(callee, args.span(), call.line);
}

Value evalCall(Impl& vm, Expr& e, Environment& env) { return callExpression<true>(vm, static_cast<CallExpr&>(e), env); }

}  // namespace

MultiValue LuaVM::Impl::callValue(CallExpr& call, Environment& env) { return callExpression<false>(*this, call, env); }

MultiValue LuaVM::Impl::callValue(const Value& value, ValueSpan args, uint32_t line) {
    if (value.type() != ValueType::Function) failRuntime(line, "attempt to call a " + describeValueType(value) + " value");
    return callHandle(value.functionValue().get(), args, line);
}

MultiValue LuaVM::Impl::callHandle(const LuaFunctionHandle* handle, ValueSpan args, uint32_t line) {
    if (!handle) failRuntime(line, "attempt to call an empty function");
    CallDepthGuard guard(*this, line);
    try {
        if (handle->kind == 1) return handle->native(*owner, args, line);
        FunctionExpr* function = handle->function.get();
        if (!function) failRuntime(line, "attempt to call an empty function");
        if (stepsLeft != UINT64_MAX) spendStep(line);
        size_t parameters = function->parameters.size();
        if (function->noCapture) {
            Environment env(function->slotCount);
            env.setParent(handle->closure.get());
            for (size_t i = 0; i < parameters && i < args.size(); ++i) env.slots[i] = args[i];
            return runBody(function->body, env);
        }
        auto env = newSharedEnvironment(function->slotCount);
        env->setParent(handle->closure);
        for (size_t i = 0; i < parameters && i < args.size(); ++i) env->slots[i] = args[i];
        return runBody(function->body, *env);
    } catch (const RuntimeError&) {
        throw;
    } catch (const std::exception& e) {
        failRuntime(line, e.what());
    }
}

MultiValue LuaVM::Impl::runBody(StmtList& body, Environment& env) {
    size_t n = body.size();
    // A final `return` is evaluated in place; earlier ones arrive as a Return flow.
    size_t last = n > 0 && body[n - 1]->kind == Stmt::Kind::Return ? n - 1 : n;
    for (size_t i = 0; i < last; ++i) {
        Flow flow = body[i]->exec(*this, *body[i], env);
        if (flow == Flow::Return) return std::move(pendingReturn.values);
        if (flow == Flow::Break) failBreakOutsideLoop();
    }
    if (last < n) return evaluateExpressionList(static_cast<ReturnStmt&>(*body[last]).values, env);
    return MultiValue();
}

Value LuaVM::Impl::makeScriptFunction(const std::string& name, const std::shared_ptr<FunctionExpr>& function,
                                      Environment& env) {
    std::shared_ptr<Environment> closure = requireSharedEnvironment(env);
    if (!closure) throw std::runtime_error(kCaptureMessage);
    auto handle = std::make_shared<LuaFunctionHandle>();
    handle->kind = 0;
    handle->name = name;
    handle->function = function;
    handle->closure = std::move(closure);
    return Value::function(std::move(handle));
}

// ---- Statements ----

void LuaVM::Impl::assignTarget(AssignTarget& target, Value value, Environment& env, bool isLocal) {
    if (target.kind == 0) {
        if (!isLocal && target.depth < 0) {
            if (target.hasGlobalSlot) setGlobalValue(target.globalSlot, std::move(value));
            else setGlobalValue(target.name, std::move(value));
            return;
        }
        Environment* e = isLocal ? &env : resolveLocalEnvironment(env, target.envDepth);
        if (Value* slot = e ? e->slot(target.slot) : nullptr) *slot = std::move(value);
        return;
    }
    assignElement(target, std::move(value), env);
}

// One value into a table element: `t[k] = v` or `t.name = v`.
void LuaVM::Impl::assignElement(AssignTarget& target, Value value, Environment& env) {
    Value holder;
    const Value* object;
    if (target.kind == 1 || target.indexPure) {
        object = operand(*this, *target.object, env, holder);
    } else {
        holder = evaluateExpression(*target.object, env);
        object = &holder;
    }
    if (object->type() != ValueType::Table)
        failRuntime(target.line, "attempt to assign into a " + describeValueType(*object) + " value");
    Table* table = object->tablePointer();
    if (target.kind == 1) {
        TableKeyView key;
        key.kind = 1;
        key.stringValue = target.name;
        tableSetView(table, key, std::move(value));
        return;
    }
    Value keyHolder;
    const Value* key = operand(*this, *target.index, env, keyHolder);
    if (key->type() == ValueType::Integer) {
        int64_t k = key->integerValue();
        // An element already in the array part, with no length cache to keep: store it.
        if (k >= 1 && uint64_t(k) <= table->array.size() && table->hash.empty() &&
            table->lengthVersion != table->version) {
            table->array[size_t(k - 1)] = std::move(value);
            table->version++;
            return;
        }
        tableSetInteger(table, k, std::move(value));
        return;
    }
    TableKeyView view;
    if (!tryMakeKeyView(*key, view)) failRuntime(target.line, "table index must be a number, string, or boolean");
    tableSetView(table, view, std::move(value));
}

Flow LuaVM::Impl::executeAssignment(AssignmentStmt& s, Environment& env) {
    if (s.targets.size() == 1 && s.values.size() == 1) {
        AssignTarget& target = s.targets[0];
        Value value = evaluateExpression(*s.values[0], env);
        if (target.kind == 0 && target.depth >= 0) {
            // The common case in place: a local, by depth and slot.
            Environment* e = &env;
            if (!s.isLocal)
                for (int32_t d = target.envDepth; d > 0 && e; --d) e = e->parent;
            if (Value* slot = e ? e->slot(target.slot) : nullptr) *slot = std::move(value);
            return Flow::Normal;
        }
        assignTarget(target, std::move(value), env, s.isLocal);
        return Flow::Normal;
    }
    MultiValue values = evaluateExpressionList(s.values, env);
    for (size_t i = 0; i < s.targets.size(); ++i)
        assignTarget(s.targets[i], i < values.size() ? values[i] : Value(), env, s.isLocal);
    return Flow::Normal;
}

Flow LuaVM::Impl::runBlock(StmtList& block, uint64_t slotCount, bool noCapture, bool elided, Environment& env) {
    if (elided) return executeStatements(block, env);
    if (noCapture) {
        Environment local(slotCount);
        local.setParent(&env);
        return executeStatements(block, local);
    }
    // A block that can make closures needs an environment that outlives it, and so a parent
    // that does too; inside a loop body there is none, and the block fails like a function
    // made there directly.
    std::shared_ptr<Environment> parent = requireSharedEnvironment(env);
    if (!parent) throw std::runtime_error(kCaptureMessage);
    auto shared = newSharedEnvironment(slotCount);
    shared->setParent(std::move(parent));
    return executeStatements(block, *shared);
}

Flow LuaVM::Impl::executeWhile(WhileStmt& s, Environment& env) {
    if (s.noCapture) {
        Environment local(s.slotCount);
        local.setParent(&env);
        bool clear = s.slotCount > 0;
        while (conditionHolds(*s.condition, env)) {
            if (stepsLeft != UINT64_MAX) spendStep(s.line);
            if (clear) local.slots.fillNil();
            Flow flow = Flow::Normal;
            for (auto& stmt : s.body) {
                flow = stmt->exec(*this, *stmt, local);
                if (flow != Flow::Normal) break;
            }
            if (flow == Flow::Break) break;
            if (flow == Flow::Return) return flow;
        }
        return Flow::Normal;
    }
    while (conditionHolds(*s.condition, env)) {
        if (stepsLeft != UINT64_MAX) spendStep(s.line);
        Environment local(s.slotCount);
        local.setParent(&env);
        Flow flow = executeStatements(s.body, local);
        if (flow == Flow::Break) break;
        if (flow == Flow::Return) return flow;
    }
    return Flow::Normal;
}

Flow LuaVM::Impl::executeNumericFor(NumericForStmt& s, Environment& env) {
    Value start = evaluateExpression(*s.start, env);
    Value limit = evaluateExpression(*s.limit, env);
    Value step = s.step ? evaluateExpression(*s.step, env) : Value::integer(1);
    if (!start.isNumber() || !limit.isNumber() || !step.isNumber())
        failRuntime(s.line, "numeric for loop expects numeric bounds");
    bool integers =
        start.type() == ValueType::Integer && limit.type() == ValueType::Integer && step.type() == ValueType::Integer;
    int64_t i = 0, iLast = 0, iStep = 0;
    double x = 0, xLast = 0, xStep = 0;
    if (integers) {
        i = start.integerValue();
        iLast = limit.integerValue();
        iStep = step.integerValue();
        if (iStep == 0) failRuntime(s.line, "numeric for step cannot be zero");
    } else {
        x = start.asFloat();
        xLast = limit.asFloat();
        xStep = step.asFloat();
        if (std::fabs(xStep) <= kDoubleEpsilon) failRuntime(s.line, "numeric for step cannot be zero");
    }
    size_t loopSlot = size_t(s.loopSlot);
    // Without closures one environment serves every iteration, cleared before each; with the
    // loop variable as its only slot the store itself is the clearing.
    Environment reused(s.noCapture ? s.slotCount : 0);
    reused.setParent(&env);
    bool clear = s.slotCount > 1;
    if (integers && s.noCapture && stepsLeft == UINT64_MAX) {
        StmtList& body = s.body;
        while (iStep > 0 ? i <= iLast : i >= iLast) {
            if (clear) reused.slots.fillNil();
            reused.slots[loopSlot] = Value::integer(i);
            Flow flow = Flow::Normal;
            for (auto& stmt : body) {
                flow = stmt->exec(*this, *stmt, reused);
                if (flow != Flow::Normal) break;
            }
            if (flow == Flow::Break) break;
            if (flow == Flow::Return) return flow;
            if (__builtin_add_overflow(i, iStep, &i)) break;
        }
        return Flow::Normal;
    }
    for (;;) {
        Value counter;
        if (integers) {
            if (iStep > 0 ? i > iLast : i < iLast) break;
            counter = Value::integer(i);
        } else {
            if (xStep > 0 ? x > xLast : x < xLast) break;
            if (!(xStep > 0 ? x <= xLast : x >= xLast)) break;
            counter = numericResult(x);
        }
        if (stepsLeft != UINT64_MAX) spendStep(s.line);
        Flow flow;
        if (s.noCapture) {
            if (clear) reused.slots.fillNil();
            reused.slots[loopSlot] = std::move(counter);
            flow = executeStatements(s.body, reused);
        } else {
            Environment local(s.slotCount);
            local.setParent(&env);
            local.slots[loopSlot] = std::move(counter);
            flow = executeStatements(s.body, local);
        }
        if (flow == Flow::Break) break;
        if (flow == Flow::Return) return flow;
        if (integers) {
            if (__builtin_add_overflow(i, iStep, &i)) break;
        } else {
            x += xStep;
        }
    }
    return Flow::Normal;
}

Flow LuaVM::Impl::executeGenericFor(GenericForStmt& s, Environment& env) {
    MultiValue list = evaluateExpressionList(s.iterators, env);
    if (list.empty() || list[0].type() != ValueType::Iterator) failRuntime(s.line, "generic for loop expects an iterator");
    std::shared_ptr<IteratorState> state = list[0].iteratorValue();
    Environment reused(s.noCapture ? s.slotCount : 0);
    reused.setParent(&env);
    size_t names = s.slots.size();
    for (;;) {
        MultiValue item;
        if (!state || !nextIteratorItem(*state, item)) break;
        if (stepsLeft != UINT64_MAX) spendStep(s.line);
        Flow flow;
        if (s.noCapture) {
            reused.slots.fillNil();
            for (size_t i = 0; i < names; ++i) reused.slots[size_t(s.slots[i])] = i < item.size() ? std::move(item[i]) : Value();
            flow = executeStatements(s.body, reused);
        } else {
            Environment local(s.slotCount);
            local.setParent(&env);
            for (size_t i = 0; i < names; ++i) local.slots[size_t(s.slots[i])] = i < item.size() ? std::move(item[i]) : Value();
            flow = executeStatements(s.body, local);
        }
        if (flow == Flow::Break) break;
        if (flow == Flow::Return) return flow;
    }
    return Flow::Normal;
}

Flow LuaVM::Impl::executeStatement(Stmt& stmt, Environment& env) {
    switch (stmt.kind) {
    case Stmt::Kind::Expression:
        callValue(static_cast<CallExpr&>(*static_cast<ExpressionStmt&>(stmt).expression), env);
        return Flow::Normal;
    case Stmt::Kind::Assignment: return executeAssignment(static_cast<AssignmentStmt&>(stmt), env);
    case Stmt::Kind::FunctionDeclaration: {
        auto& s = static_cast<FunctionDeclarationStmt&>(stmt);
        Value function = makeScriptFunction(s.target.kind == 0 ? s.target.name : "<function>", s.function, env);
        if (s.isLocal) {
            if (Value* slot = env.slot(s.target.slot)) *slot = std::move(function);
        } else {
            assignTarget(s.target, std::move(function), env, false);
        }
        return Flow::Normal;
    }
    case Stmt::Kind::If: {
        auto& s = static_cast<IfStmt&>(stmt);
        for (auto& branch : s.branches)
            if (conditionHolds(*branch.condition, env))
                return runBlock(branch.block, branch.slotCount, branch.noCapture, branch.elided, env);
        if (!s.elseBlock.empty()) return runBlock(s.elseBlock, s.elseSlotCount, s.elseNoCapture, s.elseElided, env);
        return Flow::Normal;
    }
    case Stmt::Kind::While: return executeWhile(static_cast<WhileStmt&>(stmt), env);
    case Stmt::Kind::NumericFor: return executeNumericFor(static_cast<NumericForStmt&>(stmt), env);
    case Stmt::Kind::GenericFor: return executeGenericFor(static_cast<GenericForStmt&>(stmt), env);
    case Stmt::Kind::Return: {
        MultiValue values = evaluateExpressionList(static_cast<ReturnStmt&>(stmt).values, env);
        pendingReturn.values = std::move(values);
        return Flow::Return;
    }
    case Stmt::Kind::Break: breakLine = stmt.line; return Flow::Break;
    }
    return Flow::Normal;
}

Flow LuaVM::Impl::executeStatements(StmtList& stmts, Environment& env) {
    for (auto& stmt : stmts) {
        Flow flow = stmt->exec(*this, *stmt, env);
        if (flow != Flow::Normal) return flow;
    }
    return Flow::Normal;
}

Flow executeAnyStatement(LuaVM::Impl& vm, Stmt& stmt, Environment& env) { return vm.executeStatement(stmt, env); }

namespace {

Flow execCall(Impl& vm, Stmt& stmt, Environment& env) {
    callExpression<true>(vm, static_cast<CallExpr&>(*static_cast<ExpressionStmt&>(stmt).expression), env);
    return Flow::Normal;
}

// One value into one local, found by depth and slot (depth 0 for a declaration).
Flow execAssignLocal(Impl& vm, Stmt& stmt, Environment& env) {
    auto& s = static_cast<AssignmentStmt&>(stmt);
    AssignTarget& target = s.targets[0];
    Expr& valueExpr = *s.values[0];
    Value value = valueExpr.eval(vm, valueExpr, env);
    Environment* e = &env;
    if (!s.isLocal)
        for (int32_t d = target.envDepth; d > 0 && e; --d) e = e->parent;
    if (Value* slot = e ? e->slot(target.slot) : nullptr) *slot = std::move(value);
    return Flow::Normal;
}

// One value into a table element: `t[k] = v` or `t.name = v`.
Flow execAssignElement(Impl& vm, Stmt& stmt, Environment& env) {
    auto& s = static_cast<AssignmentStmt&>(stmt);
    AssignTarget& target = s.targets[0];
    Expr& valueExpr = *s.values[0];
    vm.assignElement(target, valueExpr.eval(vm, valueExpr, env), env);
    return Flow::Normal;
}

Flow execAssignOne(Impl& vm, Stmt& stmt, Environment& env) {
    auto& s = static_cast<AssignmentStmt&>(stmt);
    Expr& valueExpr = *s.values[0];
    vm.assignTarget(s.targets[0], valueExpr.eval(vm, valueExpr, env), env, s.isLocal);
    return Flow::Normal;
}

Flow execReturn(Impl& vm, Stmt& stmt, Environment& env) {
    MultiValue values = vm.evaluateExpressionList(static_cast<ReturnStmt&>(stmt).values, env);
    vm.pendingReturn.values = std::move(values);
    return Flow::Return;
}

Flow execIf(Impl& vm, Stmt& stmt, Environment& env) {
    auto& s = static_cast<IfStmt&>(stmt);
    for (auto& branch : s.branches)
        if (vm.conditionHolds(*branch.condition, env))
            return vm.runBlock(branch.block, branch.slotCount, branch.noCapture, branch.elided, env);
    if (!s.elseBlock.empty()) return vm.runBlock(s.elseBlock, s.elseSlotCount, s.elseNoCapture, s.elseElided, env);
    return Flow::Normal;
}

}  // namespace

void chooseExecutor(Stmt& stmt) {
    switch (stmt.kind) {
    case Stmt::Kind::Expression: stmt.exec = execCall; return;
    case Stmt::Kind::Assignment: {
        auto& s = static_cast<AssignmentStmt&>(stmt);
        if (s.targets.size() == 1 && s.values.size() == 1) {
            const AssignTarget& t = s.targets[0];
            if (t.kind == 0) stmt.exec = s.isLocal || t.depth >= 0 ? execAssignLocal : execAssignOne;
            else stmt.exec = execAssignElement;
            return;
        }
        stmt.exec = executeAnyStatement;
        return;
    }
    case Stmt::Kind::If: stmt.exec = execIf; return;
    case Stmt::Kind::Return: stmt.exec = execReturn; return;
    default: stmt.exec = executeAnyStatement; return;
    }
}

// ---- Iterators ----

bool LuaVM::Impl::nextIteratorItem(IteratorState& state, MultiValue& out) {
    switch (state.kind) {
    case 0:
        if (state.index >= state.items.size()) return false;
        out = state.items[size_t(state.index++)];
        return true;
    case 1: {
        Table* table = state.table.get();
        if (!table) return false;
        while (state.arrayIndex < table->array.size()) {
            const Value& v = table->array[size_t(state.arrayIndex++)];
            if (!v.isNil()) {
                out = MultiValue{Value::integer(int64_t(state.arrayIndex)), v};
                return true;
            }
        }
        if (state.cursorAtEnd) return false;
        if (state.hashEpoch != table->hashEpoch) {
            state.hashCursor = table->hash.find(state.cursorKey);
            state.hashEpoch = table->hashEpoch;
        }
        state.hashEnd = table->hash.end();
        if (state.hashCursor == state.hashEnd) {
            state.cursorAtEnd = true;
            return false;
        }
        out = MultiValue{keyToValue(state.hashCursor->first), state.hashCursor->second};
        ++state.hashCursor;
        if (state.hashCursor == state.hashEnd) state.cursorAtEnd = true;
        else state.cursorKey = state.hashCursor->first;
        return true;
    }
    case 2: {
        if (state.index >= state.limit) return false;
        ++state.index;
        const Value* found = state.table ? tableFindInteger(*state.table, int64_t(state.index)) : nullptr;
        out = MultiValue{Value::integer(int64_t(state.index)), found ? *found : Value()};
        return true;
    }
    default: return false;
    }
}

}  // namespace orvane::lua
