// What is worked out after a program is compiled or read: the locals of each function, the
// slot tables of the name instructions, the proof that lets a function run unchecked, and the
// fast form. None of it is stored in bytecode.
#include <algorithm>

#include "ruby/Program.h"

namespace orvane::ruby {
namespace {

const std::string* stringConstant(const Program& program, int32_t index) {
    if (index < 0 || static_cast<size_t>(index) >= program.constants.size()) return nullptr;
    const RubyValue& value = program.constants[static_cast<size_t>(index)];
    return value.isString() ? &value.asString() : nullptr;
}

// Walks every path from the first instruction with the stack depth each instruction leaves. The
// function is sound when every operand that the unchecked loop trusts holds, every jump lands
// inside the function or at its end, no instruction takes more than the stack holds, and each
// instruction is reached with one depth only. Unreachable code is not looked at: it never runs.
bool verifyFunction(CompiledFunction& function, const Program& program, std::vector<bool>& reachable) {
    const auto& code = function.instructions;
    const size_t count = code.size();
    std::vector<int64_t> depthAt(count + 1, -1);
    std::vector<size_t> work;
    int64_t maxDepth = 0;
    auto reach = [&](int64_t target, int64_t depth) {
        if (target < 0 || static_cast<size_t>(target) > count) return false;
        int64_t& known = depthAt[static_cast<size_t>(target)];
        if (known == -1) {
            known = depth;
            work.push_back(static_cast<size_t>(target));
            return true;
        }
        return known == depth;
    };
    reach(0, 0);
    while (!work.empty()) {
        size_t pc = work.back();
        work.pop_back();
        if (pc == count) continue;
        const Instruction& ins = code[pc];
        int64_t depth = depthAt[pc];
        int64_t next = depth;
        auto needs = [&](int64_t n) { return depth >= n; };
        switch (ins.opcode) {
        case OpCode::LoadConstant:
            if (ins.a < 0 || static_cast<size_t>(ins.a) >= program.constants.size()) return false;
            next = depth + 1;
            break;
        case OpCode::LoadName:
            if (!stringConstant(program, ins.a)) return false;
            next = depth + 1;
            break;
        case OpCode::StoreName:
            if (!stringConstant(program, ins.a) || !needs(1)) return false;
            break;
        case OpCode::Pop:
            if (!needs(1)) return false;
            next = depth - 1;
            break;
        case OpCode::Add:
        case OpCode::Subtract:
        case OpCode::Multiply:
        case OpCode::Divide:
        case OpCode::Modulo:
        case OpCode::Equal:
        case OpCode::NotEqual:
        case OpCode::Less:
        case OpCode::LessEqual:
        case OpCode::Greater:
        case OpCode::GreaterEqual:
        case OpCode::And:
        case OpCode::Or:
        case OpCode::Index:
            if (!needs(2)) return false;
            next = depth - 1;
            break;
        case OpCode::Negate:
        case OpCode::Not:
            if (!needs(1)) return false;
            break;
        case OpCode::Jump:
            if (!reach(ins.a, depth)) return false;
            continue;
        case OpCode::JumpIfFalse:
            if (!needs(1) || !reach(ins.a, depth - 1)) return false;
            next = depth - 1;
            break;
        case OpCode::Call:
            if (ins.a < 0 || !needs(int64_t(ins.a) + 1)) return false;
            next = depth - ins.a;
            break;
        case OpCode::DefineFunction:
            if (!stringConstant(program, ins.a) || ins.b < 0 || static_cast<size_t>(ins.b) >= program.functions.size())
                return false;
            break;
        case OpCode::Return:
            continue;
        case OpCode::MakeArray:
            if (ins.a < 0 || !needs(ins.a)) return false;
            next = depth - ins.a + 1;
            break;
        default:
            break;  // an unknown opcode does nothing
        }
        maxDepth = std::max(maxDepth, next);
        if (!reach(static_cast<int64_t>(pc + 1), next)) return false;
    }
    function.maxStack = static_cast<uint32_t>(maxDepth);
    reachable.assign(count, false);
    for (size_t pc = 0; pc < count; ++pc) reachable[pc] = depthAt[pc] != -1;
    return true;
}

}  // namespace

int32_t ensureLocalSlot(CompiledFunction& function, const std::string& name) {
    auto found = function.localSlots.find(name);
    if (found != function.localSlots.end()) return found->second;
    int32_t slot = static_cast<int32_t>(function.localNames.size());
    function.localNames.push_back(name);
    function.localSlots.emplace(name, slot);
    return slot;
}

void resetRuntimeCaches(CompiledFunction& function) {
    std::fill(function.instructionGlobalSlots.begin(), function.instructionGlobalSlots.end(), kUnresolvedGlobal);
    for (FastNode& node : function.fastNodes) node.globalSlot = kNoGlobalSlot;
}

void finalizeFunctionMetadata(CompiledFunction& function, const Program& program, bool isMain) {
    const size_t count = function.instructions.size();
    function.localNames.clear();
    function.localSlots.clear();
    function.instructionLocalSlots.assign(count, kNoLocalSlot);
    function.instructionGlobalSlots.assign(count, kUnresolvedGlobal);
    function.cacheOwner = 0;
    if (!isMain) {
        for (const std::string& parameter : function.parameters) ensureLocalSlot(function, parameter);
        for (const Instruction& ins : function.instructions)
            if (ins.opcode == OpCode::StoreName)
                if (const std::string* name = stringConstant(program, ins.a)) ensureLocalSlot(function, *name);
        for (size_t pc = 0; pc < count; ++pc) {
            const Instruction& ins = function.instructions[pc];
            if (ins.opcode != OpCode::LoadName && ins.opcode != OpCode::StoreName) continue;
            const std::string* name = stringConstant(program, ins.a);
            if (!name) continue;
            auto found = function.localSlots.find(*name);
            if (found != function.localSlots.end()) function.instructionLocalSlots[pc] = found->second;
        }
    }
    function.frameLocals =
        static_cast<uint32_t>(std::max(function.localNames.size(), function.parameters.size()));
    function.maxStack = 0;
    std::vector<bool> reachable;
    function.verified = verifyFunction(function, program, reachable);
    function.decoded.clear();
    if (function.verified) decodeFunction(function, reachable);
    finalizeFastCallableMetadata(function, program, isMain);
}

void finalizeProgramMetadata(Program& program) {
    for (size_t i = 0; i < program.functions.size(); ++i)
        finalizeFunctionMetadata(program.functions[i], program, i == 0);
}

}  // namespace orvane::ruby
