// The fast form: a function whose body is one expression, or one expression behind a guard that
// raises, is run as a small tree of nodes, without operand stack, locals or dispatch. It gives
// the results and errors of the instruction list; where it can't, it isn't built.
#include <algorithm>
#include <stdexcept>

#include "ruby/VmImpl.h"

namespace orvane::ruby {
namespace {

using A = RubyValueAccess;

// A tree deeper than this is left to the loop, which needs no native stack for depth. The
// compiler's own nesting limit doesn't bound it: `a + a + ... + a` nests to the left.
constexpr int kMaxFastDepth = 64;

uint8_t fastNodeKindForBinaryOp(OpCode opcode) {
    switch (opcode) {
    case OpCode::Add: return 1;
    case OpCode::Subtract: return 2;
    case OpCode::Multiply: return 3;
    case OpCode::Divide: return 4;
    case OpCode::Modulo: return 5;
    case OpCode::Equal: return 8;
    case OpCode::NotEqual: return 9;
    case OpCode::Less: return 10;
    case OpCode::LessEqual: return 11;
    case OpCode::Greater: return 12;
    case OpCode::GreaterEqual: return 13;
    default: return 0;
    }
}

const RubyValue* constantAt(const Program& program, int32_t index) {
    if (index < 0 || static_cast<size_t>(index) >= program.constants.size()) return nullptr;
    return &program.constants[static_cast<size_t>(index)];
}

bool buildFastExpressionRange(const CompiledFunction& function, const Program& program, size_t begin, size_t end,
                              std::vector<FastNode>& nodes, int32_t& root) {
    struct Entry {
        int32_t node;
        int depth;
    };
    std::vector<Entry> stack;
    auto add = [&](FastNode node, int depth) {
        if (depth > kMaxFastDepth) return false;
        nodes.push_back(std::move(node));
        stack.push_back({static_cast<int32_t>(nodes.size() - 1), depth});
        return true;
    };
    for (size_t pc = begin; pc < end; ++pc) {
        const Instruction& ins = function.instructions[pc];
        FastNode node;
        node.line = ins.line;
        switch (ins.opcode) {
        case OpCode::LoadConstant:
            node.kind = 0;
            node.valueSource = 0;
            node.index = ins.a;
            if (!add(std::move(node), 1)) return false;
            break;
        case OpCode::LoadName: {
            int32_t slot = pc < function.instructionLocalSlots.size() ? function.instructionLocalSlots[pc] : kNoLocalSlot;
            node.kind = 0;
            if (slot == kNoLocalSlot) {
                node.valueSource = 2;
                node.index = ins.a;
            } else if (slot >= 0 && static_cast<size_t>(slot) < function.localNames.size()) {
                node.valueSource = 1;
                node.index = slot;
            } else {
                return false;
            }
            if (!add(std::move(node), 1)) return false;
            break;
        }
        case OpCode::Negate:
        case OpCode::Not: {
            if (stack.empty()) return false;
            Entry operand = stack.back();
            stack.pop_back();
            node.kind = ins.opcode == OpCode::Negate ? 6 : 7;
            node.left = operand.node;
            if (!add(std::move(node), operand.depth + 1)) return false;
            break;
        }
        case OpCode::MakeArray: {
            if (ins.a < 0 || static_cast<size_t>(ins.a) > stack.size()) return false;
            node.kind = 14;
            int depth = 0;
            node.children.resize(static_cast<size_t>(ins.a));
            for (size_t i = node.children.size(); i-- > 0;) {
                node.children[i] = stack.back().node;
                depth = std::max(depth, stack.back().depth);
                stack.pop_back();
            }
            if (!add(std::move(node), depth + 1)) return false;
            break;
        }
        default: {
            uint8_t kind = fastNodeKindForBinaryOp(ins.opcode);
            if (kind == 0 || stack.size() < 2) return false;
            Entry right = stack.back();
            stack.pop_back();
            Entry left = stack.back();
            stack.pop_back();
            node.kind = kind;
            node.left = left.node;
            node.right = right.node;
            if (!add(std::move(node), std::max(left.depth, right.depth) + 1)) return false;
            break;
        }
        }
    }
    if (stack.size() != 1) return false;
    root = stack.back().node;
    return true;
}

// `error("text")` as a statement. The name must be read as a global: a parameter called `error`
// would be called by the instruction list, and the fast form calls only the global.
bool extractFastErrorCall(const CompiledFunction& function, const Program& program, size_t begin, size_t end,
                          std::string& message) {
    if (end - begin != 4) return false;
    const auto& code = function.instructions;
    const Instruction& load = code[begin];
    const Instruction& text = code[begin + 1];
    const Instruction& call = code[begin + 2];
    const Instruction& pop = code[begin + 3];
    if (load.opcode != OpCode::LoadName || text.opcode != OpCode::LoadConstant || call.opcode != OpCode::Call ||
        call.a != 1 || pop.opcode != OpCode::Pop)
        return false;
    if (begin < function.instructionLocalSlots.size() && function.instructionLocalSlots[begin] != kNoLocalSlot)
        return false;
    const RubyValue* name = constantAt(program, load.a);
    if (!name || !name->isString() || name->asString() != "error") return false;
    const RubyValue* value = constantAt(program, text.a);
    if (!value || !value->isString()) return false;
    message = value->asString();
    return true;
}

}  // namespace

void finalizeFastCallableMetadata(CompiledFunction& function, const Program& program, bool isMain) {
    function.fastKind = 0;
    function.fastNodes.clear();
    function.fastResultNode = -1;
    function.fastGuardNode = -1;
    function.fastErrorMessage.clear();
    const auto& code = function.instructions;
    if (isMain || code.empty()) return;
    const size_t last = code.size() - 1;
    if (code[last].opcode != OpCode::Return) return;

    std::vector<FastNode> nodes;
    int32_t root = -1;
    if (buildFastExpressionRange(function, program, 0, last, nodes, root)) {
        function.fastKind = 1;
        function.fastNodes = std::move(nodes);
        function.fastResultNode = root;
        return;
    }

    // The guard: `if guard error("text") end return result`.
    size_t jumpIfFalse = SIZE_MAX;
    size_t jump = SIZE_MAX;
    for (size_t pc = 0; pc < last; ++pc) {
        if (code[pc].opcode == OpCode::JumpIfFalse) {
            if (jumpIfFalse != SIZE_MAX) return;
            jumpIfFalse = pc;
        } else if (code[pc].opcode == OpCode::Jump) {
            if (jump != SIZE_MAX) return;
            jump = pc;
        }
    }
    if (jumpIfFalse == SIZE_MAX || jump == SIZE_MAX || jumpIfFalse >= jump) return;
    const int64_t after = static_cast<int64_t>(jump) + 1;
    if (code[jumpIfFalse].a < 0 || code[jump].a < 0 || code[jumpIfFalse].a != after || code[jump].a != after) return;
    if (static_cast<size_t>(after) >= last) return;

    nodes.clear();
    int32_t guard = -1;
    int32_t result = -1;
    std::string message;
    if (!buildFastExpressionRange(function, program, 0, jumpIfFalse, nodes, guard)) return;
    if (!extractFastErrorCall(function, program, jumpIfFalse + 1, jump, message)) return;
    if (!buildFastExpressionRange(function, program, static_cast<size_t>(after), last, nodes, result)) return;
    function.fastKind = 2;
    function.fastNodes = std::move(nodes);
    function.fastGuardNode = guard;
    function.fastResultNode = result;
    function.fastErrorMessage = std::move(message);
}

RubyValue RubyVM::Impl::executeFastFunction(const Program& program, CompiledFunction& function, const RubyValue* args,
                                            int argCount) {
    if (argCount < 0 || static_cast<size_t>(argCount) != function.parameters.size())
        runtimeError(program, 0,
                     "function '" + function.name + "' expected " + std::to_string(function.parameters.size()) +
                         " arguments but received " + std::to_string(argCount));
    enterCall();
    struct Leave {
        int& depth;
        ~Leave() { --depth; }
    } leave{callDepth};
    step();
    ensureCacheOwner(function);
    if (function.fastKind == 2) {
        if (evaluateFastNode(program, function, function.fastGuardNode, args, argCount).isTruthy()) {
            RubyValue errorFunction;
            if (!getGlobal("error", errorFunction)) runtimeError(program, 0, "undefined variable or function 'error'");
            RubyValue message(function.fastErrorMessage);
            callValue(program, errorFunction, &message, 1, 0);
        }
    }
    return evaluateFastNode(program, function, function.fastResultNode, args, argCount);
}

RubyValue RubyVM::Impl::evaluateFastNode(const Program& program, CompiledFunction& function, int32_t nodeIndex,
                                         const RubyValue* args, int argCount) {
    if (nodeIndex < 0 || static_cast<size_t>(nodeIndex) >= function.fastNodes.size())
        runtimeError(program, 0, "fast callable node is out of range");
    FastNode& node = function.fastNodes[static_cast<size_t>(nodeIndex)];
    switch (node.kind) {
    case 0:
        if (node.valueSource == 0) {
            const RubyValue* constant = constantAt(program, node.index);
            if (!constant) runtimeError(program, node.line, "constant index is out of range");
            return *constant;
        }
        if (node.valueSource == 1) {
            if (node.index < 0 || node.index >= argCount) return RubyValue();
            return args[node.index];
        } else {
            const RubyValue* value = getGlobalBySlot(node.globalSlot);
            if (!value) {
                const std::string* name = getStringConstantPtr(program, node.index);
                if (!name) runtimeError(program, node.line, "global name constant is invalid");
                uint64_t slot = resolveGlobalSlot(*name);
                value = getGlobalBySlot(slot);
                if (!value) runtimeError(program, node.line, "undefined variable or function '" + *name + "'");
                node.globalSlot = slot;
            }
            return *value;
        }
    case 6: {
        RubyValue operand = evaluateFastNode(program, function, node.left, args, argCount);
        if (operand.isInteger()) return RubyValue(wrapSubtract(0, A::integer(operand)));
        return negateValue(operand, program, node.line);
    }
    case 7: return RubyValue(!evaluateFastNode(program, function, node.left, args, argCount).isTruthy());
    case 14: {
        RubyArray elements;
        elements.reserve(node.children.size());
        for (int32_t child : node.children) elements.push_back(evaluateFastNode(program, function, child, args, argCount));
        return RubyValue(std::move(elements));
    }
    default: break;
    }
    RubyValue left = evaluateFastNode(program, function, node.left, args, argCount);
    RubyValue right = evaluateFastNode(program, function, node.right, args, argCount);
    const bool integers = left.isInteger() && right.isInteger();
    switch (node.kind) {
    case 1:
        if (integers) return RubyValue(wrapAdd(A::integer(left), A::integer(right)));
        return addValues(left, right, program, node.line, limits);
    case 2:
        if (integers) return RubyValue(wrapSubtract(A::integer(left), A::integer(right)));
        return subtractValues(left, right, program, node.line);
    case 3:
        if (integers) return RubyValue(wrapMultiply(A::integer(left), A::integer(right)));
        return multiplyValues(left, right, program, node.line);
    case 4: return divideValues(left, right, program, node.line);
    case 5: return moduloValues(left, right, program, node.line);
    case 8: return RubyValue(valuesEqual(left, right));
    case 9: return RubyValue(!valuesEqual(left, right));
    case 10: return RubyValue(compareOrdered(left, right, CompareOp::Less, program, node.line));
    case 11: return RubyValue(compareOrdered(left, right, CompareOp::LessEqual, program, node.line));
    case 12: return RubyValue(compareOrdered(left, right, CompareOp::Greater, program, node.line));
    case 13: return RubyValue(compareOrdered(left, right, CompareOp::GreaterEqual, program, node.line));
    default: runtimeError(program, node.line, "fast callable node is out of range");
    }
}

bool RubyVM::Impl::tryCallValueForPCall(const Program& program, const RubyValue& callee, const RubyValue* args,
                                        int argCount, uint32_t line, RubyValue& outValue, std::string& outError,
                                        bool& outFailed) {
    outFailed = true;
    if (!callee.isFunction()) {
        outError = "pcall expects a function";
        return true;
    }
    RubyFunctionHandle* handle = A::function(callee);
    if (!handle) {
        outError = "pcall function handle is empty";
        return true;
    }
    if (handle->kind != 0) {
        if (handle->builtin != 1) return false;
        requireArgumentCount("error", argCount, 0, 1);
        outError = argCount ? textOf(args[0], limits.maxStringBytes) : std::string("error");
        return true;
    }
    if (!handle->program || handle->functionIndex < 0 ||
        static_cast<size_t>(handle->functionIndex) >= handle->program->functions.size())
        return false;
    Program& target = *handle->program;
    CompiledFunction& function = target.functions[static_cast<size_t>(handle->functionIndex)];
    if (function.fastKind != 2 || mode != RubyExecutionMode::Fast) return false;
    if (argCount < 0 || static_cast<size_t>(argCount) != function.parameters.size()) {
        outError = "function '" + function.name + "' expected " + std::to_string(function.parameters.size()) +
                   " arguments but received " + std::to_string(argCount);
        return true;
    }
    enterCall();
    struct Leave {
        int& depth;
        ~Leave() { --depth; }
    } leave{callDepth};
    step();
    ensureCacheOwner(function);
    if (evaluateFastNode(target, function, function.fastGuardNode, args, argCount).isTruthy()) {
        outError = function.fastErrorMessage;
        return true;
    }
    outValue = evaluateFastNode(target, function, function.fastResultNode, args, argCount);
    outFailed = false;
    return true;
}

}  // namespace orvane::ruby
