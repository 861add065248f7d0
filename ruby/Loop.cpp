// The unchecked loop: runs the decoded operations of a verified function (Decode.cpp). The proof
// of the reader stands in for the checks of stack depth, jump targets and operand indices, so
// what is left here is the work itself, with integers and floats handled in place.
#include <cmath>

#include "ruby/Decoded.h"
#include "ruby/VmImpl.h"

namespace orvane::ruby {
namespace {

using A = RubyValueAccess;
using namespace decoded;

// What an operand fetch needs besides the stack pointer.
struct Context {
    RubyVM::Impl& vm;
    const Program& program;
    const Instruction* code;
    uint64_t* cache;
    const RubyValue* constants;
    RubyValue* locals;
};

OT_RUBY_COLD const RubyValue& slowGlobal(const Context& c, uint32_t pc) {
    return c.vm.loadGlobal(c.program, c.cache[pc], c.code[pc].a, c.code[pc].line);
}

template <int K>
OT_RUBY_INLINE const RubyValue& operand(const Context& c, const RubyValue* stackSlot, int32_t index, uint32_t pc) {
    if constexpr (K == KS) {
        return *stackSlot;
    } else if constexpr (K == KK) {
        return c.constants[index];
    } else if constexpr (K == KL) {
        const RubyValue& value = c.locals[index];
        if (!A::isUnset(value)) return value;
        return slowGlobal(c, pc);
    } else {
        uint64_t slot = c.cache[pc];
        const auto& globals = c.vm.slotValues;
        if (!A::isUnset(globals[slot])) return globals[slot];
        return slowGlobal(c, pc);
    }
}

// The scalar cases; false leaves the case to the value rules, which also raise the errors.
template <int B>
OT_RUBY_INLINE bool integerBinary(int64_t x, int64_t y, Scalar& out) {
    if constexpr (B == BAdd) out = Scalar::integer(wrapAdd(x, y));
    else if constexpr (B == BSub) out = Scalar::integer(wrapSubtract(x, y));
    else if constexpr (B == BMul) out = Scalar::integer(wrapMultiply(x, y));
    else if constexpr (B == BDiv) {
        if (y == 0) return false;
        out = Scalar::number(static_cast<double>(x) / static_cast<double>(y));
    } else if constexpr (B == BMod) {
        if (y == 0) return false;
        out = Scalar::integer(integerRemainder(x, y));
    } else if constexpr (B == BEq) out = Scalar::boolean(x == y);
    else if constexpr (B == BNe) out = Scalar::boolean(x != y);
    else if constexpr (B == BLt) out = Scalar::boolean(static_cast<double>(x) < static_cast<double>(y));
    else if constexpr (B == BLe) out = Scalar::boolean(static_cast<double>(x) <= static_cast<double>(y));
    else if constexpr (B == BGt) out = Scalar::boolean(static_cast<double>(x) > static_cast<double>(y));
    else out = Scalar::boolean(static_cast<double>(x) >= static_cast<double>(y));
    return true;
}

template <int B>
OT_RUBY_INLINE bool floatBinary(double x, double y, Scalar& out) {
    if constexpr (B == BAdd) out = Scalar::number(x + y);
    else if constexpr (B == BSub) out = Scalar::number(x - y);
    else if constexpr (B == BMul) out = Scalar::number(x * y);
    else if constexpr (B == BDiv) {
        if (std::fabs(y) <= kEpsilon) return false;
        out = Scalar::number(x / y);
    } else if constexpr (B == BMod) {
        if (std::fabs(y) <= kEpsilon) return false;
        out = Scalar::number(std::fmod(x, y));
    } else if constexpr (B == BEq) out = Scalar::boolean(x == y);
    else if constexpr (B == BNe) out = Scalar::boolean(x != y);
    else if constexpr (B == BLt) out = Scalar::boolean(x < y);
    else if constexpr (B == BLe) out = Scalar::boolean(x <= y);
    else if constexpr (B == BGt) out = Scalar::boolean(x > y);
    else out = Scalar::boolean(x >= y);
    return true;
}

template <int B>
OT_RUBY_INLINE bool scalarBinary(const RubyValue& l, const RubyValue& r, Scalar& out) {
    const RubyValueType tl = A::tag(l), tr = A::tag(r);
    if (tl == RubyValueType::Integer && tr == RubyValueType::Integer)
        return integerBinary<B>(A::integer(l), A::integer(r), out);
    if (tl == RubyValueType::Float && tr == RubyValueType::Float) return floatBinary<B>(A::number(l), A::number(r), out);
    return false;
}

// Integers are compared as doubles in the ordered comparisons, as the value rules say; equality
// of two integers is exact.
template <int B, typename T>
OT_RUBY_INLINE bool compareNumbers(T x, T y) {
    if constexpr (B == BEq) return x == y;
    else if constexpr (B == BNe) return x != y;
    else if constexpr (B == BLt) return static_cast<double>(x) < static_cast<double>(y);
    else if constexpr (B == BLe) return static_cast<double>(x) <= static_cast<double>(y);
    else if constexpr (B == BGt) return static_cast<double>(x) > static_cast<double>(y);
    else return static_cast<double>(x) >= static_cast<double>(y);
}

template <int B>
OT_RUBY_COLD RubyValue slowBinary(const RubyValue& l, const RubyValue& r, const Context& c, uint32_t line) {
    const Program& p = c.program;
    if constexpr (B == BAdd) return addValues(l, r, p, line, c.vm.limits);
    else if constexpr (B == BSub) return subtractValues(l, r, p, line);
    else if constexpr (B == BMul) return multiplyValues(l, r, p, line);
    else if constexpr (B == BDiv) return divideValues(l, r, p, line);
    else if constexpr (B == BMod) return moduloValues(l, r, p, line);
    else if constexpr (B == BEq) return RubyValue(valuesEqual(l, r));
    else if constexpr (B == BNe) return RubyValue(!valuesEqual(l, r));
    else if constexpr (B == BLt) return RubyValue(compareOrdered(l, r, CompareOp::Less, p, line));
    else if constexpr (B == BLe) return RubyValue(compareOrdered(l, r, CompareOp::LessEqual, p, line));
    else if constexpr (B == BGt) return RubyValue(compareOrdered(l, r, CompareOp::Greater, p, line));
    else return RubyValue(compareOrdered(l, r, CompareOp::GreaterEqual, p, line));
}

// The cases beyond the scalars, out of line so that the loop's frame holds no values of theirs.
template <int B, int pops>
OT_RUBY_COLD RubyValue* binarySlow(const Context& c, RubyValue* sp, const RubyValue& l, const RubyValue& r,
                                   const DecodedOp& op) {
    RubyValue result = slowBinary<B>(l, r, c, op.line);
    if constexpr (pops >= 1) A::clear(sp[-1]);
    if constexpr (pops == 2) A::clear(sp[-2]);
    RubyValue* out = sp - pops;
    new (out) RubyValue(std::move(result));
    return out + 1;
}

template <int B>
OT_RUBY_COLD bool compareSlow(const Context& c, const RubyValue& l, const RubyValue& r, uint32_t line) {
    return slowBinary<B>(l, r, c, line).isTruthy();
}

template <int B, int pops>
OT_RUBY_COLD RubyValue* binaryStoreSlow(const Context& c, RubyValue* sp, const RubyValue& l, const RubyValue& r,
                                        const DecodedOp& op, RubyValue& lastValue);

// Operands from their places, the result pushed; returns the new stack pointer.
template <int B, int KA, int KB>
OT_RUBY_INLINE RubyValue* binaryOp(const Context& c, RubyValue* sp, const DecodedOp& op) {
    constexpr int pops = (KA == KS) + (KB == KS);
    const RubyValue& l = operand<KA>(c, sp - pops, op.x, op.pcA);
    const RubyValue& r = operand<KB>(c, sp - 1, op.y, op.pcB);
    RubyValue* out = sp - pops;
    Scalar scalar;
    if (scalarBinary<B>(l, r, scalar)) {
        // The result slot holds a scalar operand or nothing.
        A::putScalar(*out, scalar);
        if constexpr (pops == 2) A::forgetScalar(sp[-1]);
        return out + 1;
    }
    return binarySlow<B, pops>(c, sp, l, r, op);
}

OT_RUBY_COLD RubyValue& globalTarget(const Context& c, uint32_t pc) {
    uint64_t& cached = c.cache[pc];
    if (cached == kUnresolvedGlobal || cached >= c.vm.slotValues.size())
        cached = c.vm.ensureGlobalSlot(c.vm.requireStringConstant(c.program, c.code[pc].a, c.code[pc].line));
    return c.vm.slotValues[cached];
}

// The result goes to a name and to the last value; nothing stays on the stack.
template <int B, int KA, int KB>
OT_RUBY_INLINE RubyValue* binaryStoreOp(const Context& c, RubyValue* sp, const DecodedOp& op, RubyValue& lastValue) {
    constexpr int pops = (KA == KS) + (KB == KS);
    const RubyValue& l = operand<KA>(c, sp - pops, op.x, op.pcA);
    const RubyValue& r = operand<KB>(c, sp - 1, op.y, op.pcB);
    Scalar scalar;
    if (scalarBinary<B>(l, r, scalar)) {
        if constexpr (pops >= 1) A::forgetScalar(sp[-1]);
        if constexpr (pops == 2) A::forgetScalar(sp[-2]);
        RubyValue* target;
        if (op.zLocal) {
            target = &c.locals[op.z];
        } else {
            uint64_t cached = c.cache[op.pcZ];
            target = cached != kUnresolvedGlobal ? &c.vm.slotValues[cached] : &globalTarget(c, op.pcZ);
        }
        A::setScalar(*target, scalar);
        A::setScalar(lastValue, scalar);
        return sp - pops;
    }
    return binaryStoreSlow<B, pops>(c, sp, l, r, op, lastValue);
}

template <int B, int pops>
RubyValue* binaryStoreSlow(const Context& c, RubyValue* sp, const RubyValue& l, const RubyValue& r,
                           const DecodedOp& op, RubyValue& lastValue) {
    RubyValue result = slowBinary<B>(l, r, c, op.line);
    if constexpr (pops >= 1) A::clear(sp[-1]);
    if constexpr (pops == 2) A::clear(sp[-2]);
    RubyValue& target = op.zLocal ? c.locals[op.z] : globalTarget(c, op.pcZ);
    target = result;
    lastValue = std::move(result);
    return sp - pops;
}

template <int B, int KA, int KB>
OT_RUBY_INLINE bool compareOp(const Context& c, RubyValue*& sp, const DecodedOp& op) {
    constexpr int pops = (KA == KS) + (KB == KS);
    const RubyValue& l = operand<KA>(c, sp - pops, op.x, op.pcA);
    const RubyValue& r = operand<KB>(c, sp - 1, op.y, op.pcB);
    const RubyValueType tl = A::tag(l), tr = A::tag(r);
    bool result;
    if (tl == RubyValueType::Integer && tr == RubyValueType::Integer) {
        result = compareNumbers<B>(A::integer(l), A::integer(r));
    } else if (tl == RubyValueType::Float && tr == RubyValueType::Float) {
        result = compareNumbers<B>(A::number(l), A::number(r));
    } else {
        result = compareSlow<B>(c, l, r, op.line);
    }
    if constexpr (pops >= 1) A::clear(sp[-1]);
    if constexpr (pops == 2) A::clear(sp[-2]);
    sp -= pops;
    return result;
}

// The operations below hold values of their own; out of line, they keep those out of the loop's
// frame, which recursion repeats.
OT_RUBY_COLD void negateSlow(const Context& c, RubyValue& v, uint32_t line) { v = negateValue(v, c.program, line); }

OT_RUBY_NOINLINE RubyValue* callOp(const Context& c, CompiledFunction& function, RubyValue* sp,
                                            const DecodedOp& op) {
    RubyValue* callee = sp - op.target - 1;
    RubyValue result = c.vm.callValue(c.program, *callee, callee + 1, op.target, op.line);
    // The callee may have run this function in another VM, which took over its caches.
    c.vm.ensureCacheOwner(function);
    while (sp > callee) A::clear(*--sp);
    new (sp) RubyValue(std::move(result));
    return sp + 1;
}

OT_RUBY_COLD void defineOp(const Context& c, const std::shared_ptr<Program>& program, const DecodedOp& op) {
    RubyValue value = RubyVM::Impl::makeScriptFunction(A::string(c.constants[op.x]), op.target, program);
    c.vm.storeGlobal(c.program, c.cache[op.pc], op.x, op.line, value);
}

OT_RUBY_NOINLINE RubyValue* makeArrayOp(RubyValue* sp, const DecodedOp& op) {
    RubyArray elements;
    elements.reserve(static_cast<size_t>(op.target));
    RubyValue* first = sp - op.target;
    for (RubyValue* p = first; p < sp; ++p) elements.push_back(std::move(*p));
    new (first) RubyValue(std::move(elements));
    return first + 1;
}

RubyValue indexValue(const Context& c, const RubyValue& object, const RubyValue& index, uint32_t line) {
    RubyValue result;
    if (A::tag(object) == RubyValueType::Array && A::tag(index) == RubyValueType::Integer) {
        int64_t at = A::integer(index);
        if (at < 0) runtimeError(c.program, line, "array index must be non-negative");
        const RubyArray& elements = A::array(object);
        if (static_cast<uint64_t>(at) < elements.size()) result = elements[static_cast<size_t>(at)];
    } else if (A::tag(object) == RubyValueType::Map && A::tag(index) == RubyValueType::String) {
        const RubyMap& entries = A::map(object);
        auto found = entries.find(A::string(index));
        if (found != entries.end()) result = found->second;
    } else {
        result = arrayGet(object, index, c.program, line);
    }
    return result;
}

template <int pops>
OT_RUBY_COLD RubyValue* indexSlow(const Context& c, RubyValue* sp, const RubyValue& object, const RubyValue& index,
                                  const DecodedOp& op) {
    RubyValue result = indexValue(c, object, index, op.line);
    if constexpr (pops >= 1) A::clear(sp[-1]);
    if constexpr (pops == 2) A::clear(sp[-2]);
    RubyValue* out = sp - pops;
    new (out) RubyValue(std::move(result));
    return out + 1;
}

OT_RUBY_COLD bool indexTruthSlow(const Context& c, const RubyValue& object, const RubyValue& index,
                                 const DecodedOp& op) {
    return indexValue(c, object, index, op.line).isTruthy();
}

// `object[index]` from the operands' places. An element that holds no shared object is copied
// without touching the array's count.
template <int KA, int KB>
OT_RUBY_INLINE RubyValue* indexOp(const Context& c, RubyValue* sp, const DecodedOp& op) {
    constexpr int pops = (KA == KS) + (KB == KS);
    const RubyValue& object = operand<KA>(c, sp - pops, op.x, op.pcA);
    const RubyValue& index = operand<KB>(c, sp - 1, op.y, op.pcB);
    if (A::tag(object) == RubyValueType::Array && A::tag(index) == RubyValueType::Integer) {
        const RubyArray& elements = A::array(object);
        const int64_t at = A::integer(index);
        if (at >= 0 && static_cast<uint64_t>(at) < elements.size()) {
            const RubyValue& element = elements[static_cast<size_t>(at)];
            if (!A::isShared(element)) {
                Scalar scalar{A::tag(element), A::bits(element)};
                if constexpr (pops >= 1) A::clear(sp[-1]);
                if constexpr (pops == 2) A::clear(sp[-2]);
                A::putScalar(sp[-pops], scalar);
                return sp - pops + 1;
            }
        }
    }
    return indexSlow<pops>(c, sp, object, index, op);
}

// The same read, tested for truth: nothing is copied at all on the common path.
template <int KA, int KB>
OT_RUBY_INLINE bool indexTruth(const Context& c, RubyValue*& sp, const DecodedOp& op) {
    constexpr int pops = (KA == KS) + (KB == KS);
    const RubyValue& object = operand<KA>(c, sp - pops, op.x, op.pcA);
    const RubyValue& index = operand<KB>(c, sp - 1, op.y, op.pcB);
    bool result;
    if (A::tag(object) == RubyValueType::Array && A::tag(index) == RubyValueType::Integer && A::integer(index) >= 0) {
        const RubyArray& elements = A::array(object);
        const auto at = static_cast<uint64_t>(A::integer(index));
        result = at < elements.size() && elements[static_cast<size_t>(at)].isTruthy();
    } else {
        result = indexTruthSlow(c, object, index, op);
    }
    if constexpr (pops >= 1) A::clear(sp[-1]);
    if constexpr (pops == 2) A::clear(sp[-2]);
    sp -= pops;
    return result;
}

}  // namespace

RubyValue RubyVM::Impl::runVerified(const std::shared_ptr<Program>& programPtr, CompiledFunction& function,
                                    RubyValue* locals, RubyValue* stack) {
    const Program& program = *programPtr;
    const Context c{*this, program, function.instructions.data(), function.instructionGlobalSlots.data(),
                    program.constants.data(), locals};
    const DecodedOp* const ops = function.decoded.data();
    RubyValue* sp = stack;
    RubyValue lastValue;
    // The operation running; kept out of any lambda so that it stays in a register.
    const DecodedOp* ip = ops;

// A backward jump is a step.
#define OT_RUBY_JUMP(TARGET)                 \
    do {                                     \
        const DecodedOp* to = ops + (TARGET); \
        if (to <= ip) step();                \
        ip = to;                             \
    } while (0)
#define OT_RUBY_PUSH(VALUE)        \
    do {                           \
        new (sp) RubyValue(VALUE); \
        ++sp;                      \
    } while (0)

#define OT_RUBY_KINDS(M, B)                                                                                           \
    M(B, KS, KS) M(B, KS, KK) M(B, KS, KL) M(B, KS, KG) M(B, KK, KS) M(B, KK, KK) M(B, KK, KL) M(B, KK, KG)             \
    M(B, KL, KS) M(B, KL, KK) M(B, KL, KL) M(B, KL, KG) M(B, KG, KS) M(B, KG, KK) M(B, KG, KL) M(B, KG, KG)
#define OT_RUBY_BINARY_CASE(B, KA, KB)              \
    case binaryCode(B, KA, KB):                     \
        sp = binaryOp<B, KA, KB>(c, sp, op);        \
        ++ip;                                       \
        continue;
#define OT_RUBY_BINARY_STORE_CASE(B, KA, KB)                      \
    case binaryStoreCode(B, KA, KB):                              \
        sp = binaryStoreOp<B, KA, KB>(c, sp, op, lastValue);      \
        ++ip;                                                     \
        continue;
#define OT_RUBY_INDEX_CASE(B, KA, KB)                \
    case indexCode(KA, KB):                          \
        sp = indexOp<KA, KB>(c, sp, op);             \
        ++ip;                                        \
        continue;                                    \
    case indexJumpCode(KA, KB):                      \
        if (indexTruth<KA, KB>(c, sp, op))           \
            ++ip;                                    \
        else                                         \
            OT_RUBY_JUMP(op.target);                 \
        continue;
#define OT_RUBY_COMPARE_CASE(B, KA, KB)             \
    case compareJumpCode(B, KA, KB):                \
        if (op.stepFirst) step();                   \
        if (compareOp<B, KA, KB>(c, sp, op))        \
            ip = ops + op.next;                     \
        else                                        \
            OT_RUBY_JUMP(op.target);                \
        continue;

    for (;;) {
        const DecodedOp& op = *ip;
        switch (op.code) {
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BAdd)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BSub)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BMul)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BDiv)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BMod)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BEq)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BNe)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BLt)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BLe)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BGt)
            OT_RUBY_KINDS(OT_RUBY_BINARY_CASE, BGe)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BEq)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BNe)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BLt)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BLe)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BGt)
            OT_RUBY_KINDS(OT_RUBY_COMPARE_CASE, BGe)
            OT_RUBY_KINDS(OT_RUBY_BINARY_STORE_CASE, BAdd)
            OT_RUBY_KINDS(OT_RUBY_BINARY_STORE_CASE, BSub)
            OT_RUBY_KINDS(OT_RUBY_BINARY_STORE_CASE, BMul)
            OT_RUBY_KINDS(OT_RUBY_BINARY_STORE_CASE, BDiv)
            OT_RUBY_KINDS(OT_RUBY_BINARY_STORE_CASE, BMod)
            OT_RUBY_KINDS(OT_RUBY_INDEX_CASE, 0)
        case PushK:
            OT_RUBY_PUSH(c.constants[op.x]);
            ++ip;
            continue;
        case PushL:
            OT_RUBY_PUSH(operand<KL>(c, nullptr, op.x, op.pc));
            ++ip;
            continue;
        case PushG:
            OT_RUBY_PUSH(operand<KG>(c, nullptr, 0, op.pc));
            ++ip;
            continue;
        case Pop:
            --sp;
            A::move(lastValue, *sp);
            ++ip;
            continue;
        case StoreL:
            A::assign(locals[op.x], sp[-1]);
            ++ip;
            continue;
        case StorePopL:
            A::assign(locals[op.x], sp[-1]);
            --sp;
            A::move(lastValue, *sp);
            ++ip;
            continue;
        case StoreG:
        case StorePopG: {
            uint64_t& cached = c.cache[op.pc];
            if (cached != kUnresolvedGlobal)
                A::assign(slotValues[cached], sp[-1]);
            else
                storeGlobal(program, cached, c.code[op.pc].a, op.line, sp[-1]);
            if (op.code == StorePopG) {
                --sp;
                A::move(lastValue, *sp);
            }
            ++ip;
            continue;
        }
        case Negate: {
            RubyValue& v = sp[-1];
            if (A::tag(v) == RubyValueType::Integer)
                A::setInteger(v, wrapSubtract(0, A::integer(v)));
            else if (A::tag(v) == RubyValueType::Float)
                A::setFloat(v, -A::number(v));
            else
                negateSlow(c, v, op.line);
            ++ip;
            continue;
        }
        case Not: {
            bool truthy = sp[-1].isTruthy();
            A::clear(sp[-1]);
            A::setBoolean(sp[-1], !truthy);
            ++ip;
            continue;
        }
        case And:
        case Or: {
            bool left = sp[-2].isTruthy();
            bool right = sp[-1].isTruthy();
            A::clear(sp[-2]);
            A::clear(sp[-1]);
            A::setBoolean(sp[-2], op.code == And ? (left && right) : (left || right));
            --sp;
            ++ip;
            continue;
        }
        case Jump:
            OT_RUBY_JUMP(op.target);
            continue;
        case JumpIfFalse: {
            --sp;
            bool truthy = sp->isTruthy();
            A::clear(*sp);
            if (truthy)
                ++ip;
            else
                OT_RUBY_JUMP(op.target);
            continue;
        }
        case Call:
            sp = callOp(c, function, sp, op);
            ++ip;
            continue;
        case Define:
            defineOp(c, programPtr, op);
            ++ip;
            continue;
        case Return:
            if (sp > stack) return std::move(*--sp);
            return RubyValue();
        case ReturnK: return c.constants[op.x];
        case ReturnL: return operand<KL>(c, nullptr, op.x, op.pc);
        case ReturnG: return operand<KG>(c, nullptr, 0, op.pc);
        case MakeArray:
            sp = makeArrayOp(sp, op);
            ++ip;
            continue;

        case Nop:
            ++ip;
            continue;
        case Unreachable:
            // The proof says this never runs; a broken proof must not run wild.
            runtimeError(program, op.line, "unreachable instruction was reached");
        case End:
            return lastValue;
        default:
            // Every code that the decoder makes has its case above.
#if defined(__GNUC__)
            __builtin_unreachable();
#else
            runtimeError(program, op.line, "unknown operation");
#endif
        }
    }
#undef OT_RUBY_KINDS
#undef OT_RUBY_BINARY_CASE
#undef OT_RUBY_COMPARE_CASE
#undef OT_RUBY_BINARY_STORE_CASE
#undef OT_RUBY_INDEX_CASE
#undef OT_RUBY_JUMP
#undef OT_RUBY_PUSH
}

}  // namespace orvane::ruby
