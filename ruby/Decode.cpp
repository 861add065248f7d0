// Turns the instructions of a verified function into the operations of the unchecked loop.
// Loads that feed an operator or an index, the operator and a conditional jump on its result
// become one operation; so do an arithmetic operator with the assignment and pop behind it, and
// an assignment with its pop. Nothing is fused across a jump target, so every target is the
// start of an operation. Unreachable instructions become a trap that never runs.
#include <algorithm>

#include "ruby/Decoded.h"
#include "ruby/Program.h"

namespace orvane::ruby {
namespace {

using namespace decoded;

int binaryIndex(OpCode opcode) {
    switch (opcode) {
    case OpCode::Add: return BAdd;
    case OpCode::Subtract: return BSub;
    case OpCode::Multiply: return BMul;
    case OpCode::Divide: return BDiv;
    case OpCode::Modulo: return BMod;
    case OpCode::Equal: return BEq;
    case OpCode::NotEqual: return BNe;
    case OpCode::Less: return BLt;
    case OpCode::LessEqual: return BLe;
    case OpCode::Greater: return BGt;
    case OpCode::GreaterEqual: return BGe;
    default: return -1;
    }
}

}  // namespace

void decodeFunction(CompiledFunction& function, const std::vector<bool>& reachable) {
    const auto& code = function.instructions;
    const size_t count = code.size();
    std::vector<bool> isTarget(count + 1, false);
    for (size_t pc = 0; pc < count; ++pc) {
        const Instruction& ins = code[pc];
        if ((ins.opcode == OpCode::Jump || ins.opcode == OpCode::JumpIfFalse) && ins.a >= 0 &&
            static_cast<size_t>(ins.a) <= count)
            isTarget[static_cast<size_t>(ins.a)] = true;
    }
    // A group may only continue over instructions that no jump lands on.
    auto inGroup = [&](size_t pc) { return pc < count && !isTarget[pc] && reachable[pc]; };
    auto loads = [&](size_t pc) {
        return pc < count && (code[pc].opcode == OpCode::LoadConstant || code[pc].opcode == OpCode::LoadName);
    };
    // The first instruction of a group may be a jump target; the rest may not.
    auto isLoad = [&](size_t pc) { return inGroup(pc) && loads(pc); };
    auto isBinary = [&](size_t pc) { return inGroup(pc) && binaryIndex(code[pc].opcode) >= 0; };
    // The kind and index of the operand that a load reads.
    auto operandOf = [&](size_t pc, int32_t& index) {
        if (code[pc].opcode == OpCode::LoadConstant) {
            index = code[pc].a;
            return KK;
        }
        int32_t slot = function.instructionLocalSlots[pc];
        index = slot;
        return slot >= 0 ? KL : KG;
    };

    std::vector<DecodedOp> ops;
    std::vector<int32_t> opAt(count + 1, -1);
    size_t pc = 0;
    // The loads in front of an operator at pc + operands become the op's operands, from the stack
    // (KS) where there are none.
    auto takeOperands = [&](DecodedOp& op, int operands, int& kindA, int& kindB) {
        if (operands == 2) {
            kindA = operandOf(pc, op.x);
            kindB = operandOf(pc + 1, op.y);
            op.pcA = static_cast<uint32_t>(pc);
            op.pcB = static_cast<uint32_t>(pc + 1);
        } else if (operands == 1) {
            kindB = operandOf(pc, op.y);
            op.pcB = static_cast<uint32_t>(pc);
        }
        return pc + static_cast<size_t>(operands);
    };
    while (pc < count) {
        opAt[pc] = static_cast<int32_t>(ops.size());
        const Instruction& ins = code[pc];
        DecodedOp op;
        op.pc = op.pcA = op.pcB = static_cast<uint32_t>(pc);
        op.line = ins.line;
        if (!reachable[pc]) {
            op.code = Unreachable;
            ops.push_back(op);
            ++pc;
            continue;
        }

        // Operands: two loads, one load, or none in front of a binary operator.
        int operands = -1;
        if (loads(pc) && isLoad(pc + 1) && isBinary(pc + 2)) operands = 2;
        else if (loads(pc) && isBinary(pc + 1)) operands = 1;
        else if (binaryIndex(ins.opcode) >= 0) operands = 0;
        if (operands >= 0) {
            int kindA = KS, kindB = KS;
            const size_t opPc = takeOperands(op, operands, kindA, kindB);
            int binary = binaryIndex(code[opPc].opcode);
            op.pc = static_cast<uint32_t>(opPc);
            op.line = code[opPc].line;
            if (binary >= kFirstComparison && inGroup(opPc + 1) && code[opPc + 1].opcode == OpCode::JumpIfFalse) {
                op.code = compareJumpCode(binary, kindA, kindB);
                op.target = code[opPc + 1].a;
                pc = opPc + 2;
            } else if (binary < kFirstComparison && inGroup(opPc + 1) && code[opPc + 1].opcode == OpCode::StoreName &&
                       inGroup(opPc + 2) && code[opPc + 2].opcode == OpCode::Pop) {
                op.code = binaryStoreCode(binary, kindA, kindB);
                op.pcZ = static_cast<uint32_t>(opPc + 1);
                op.z = function.instructionLocalSlots[opPc + 1];
                op.zLocal = op.z >= 0 ? 1 : 0;
                pc = opPc + 3;
            } else {
                op.code = binaryCode(binary, kindA, kindB);
                pc = opPc + 1;
            }
            ops.push_back(op);
            continue;
        }

        // Indexing, with the same operand places.
        auto isIndex = [&](size_t at) { return inGroup(at) && code[at].opcode == OpCode::Index; };
        operands = -1;
        if (loads(pc) && isLoad(pc + 1) && isIndex(pc + 2)) operands = 2;
        else if (loads(pc) && isIndex(pc + 1)) operands = 1;
        else if (ins.opcode == OpCode::Index) operands = 0;
        if (operands >= 0) {
            int kindA = KS, kindB = KS;
            const size_t opPc = takeOperands(op, operands, kindA, kindB);
            op.pc = static_cast<uint32_t>(opPc);
            op.line = code[opPc].line;
            if (inGroup(opPc + 1) && code[opPc + 1].opcode == OpCode::JumpIfFalse) {
                op.code = indexJumpCode(kindA, kindB);
                op.target = code[opPc + 1].a;
                pc = opPc + 2;
            } else {
                op.code = indexCode(kindA, kindB);
                pc = opPc + 1;
            }
            ops.push_back(op);
            continue;
        }

        if (loads(pc) && inGroup(pc + 1) && code[pc + 1].opcode == OpCode::Return) {
            int kind = operandOf(pc, op.x);
            op.code = kind == KK ? ReturnK : kind == KL ? ReturnL : ReturnG;
            ops.push_back(op);
            pc += 2;
            continue;
        }

        pc += 1;
        switch (ins.opcode) {
        case OpCode::LoadConstant:
        case OpCode::LoadName: {
            int kind = operandOf(pc - 1, op.x);
            op.code = kind == KK ? PushK : kind == KL ? PushL : PushG;
            break;
        }
        case OpCode::StoreName: {
            op.x = function.instructionLocalSlots[pc - 1];
            bool pops = inGroup(pc) && code[pc].opcode == OpCode::Pop;
            if (pops) ++pc;
            op.code = op.x >= 0 ? (pops ? StorePopL : StoreL) : (pops ? StorePopG : StoreG);
            break;
        }
        case OpCode::Pop: op.code = Pop; break;
        case OpCode::Negate: op.code = Negate; break;
        case OpCode::Not: op.code = Not; break;
        case OpCode::And: op.code = And; break;
        case OpCode::Or: op.code = Or; break;
        case OpCode::Jump:
            op.code = Jump;
            op.target = ins.a;
            break;
        case OpCode::JumpIfFalse:
            op.code = JumpIfFalse;
            op.target = ins.a;
            break;
        case OpCode::Call:
            op.code = Call;
            op.target = ins.a;
            break;
        case OpCode::DefineFunction:
            op.code = Define;
            op.x = ins.a;
            op.target = ins.b;
            break;
        case OpCode::Return: op.code = Return; break;
        case OpCode::MakeArray:
            op.code = MakeArray;
            op.target = ins.a;
            break;
        default: op.code = Nop; break;
        }
        ops.push_back(op);
    }
    opAt[count] = static_cast<int32_t>(ops.size());
    DecodedOp end;
    end.code = End;
    end.pc = end.pcA = end.pcB = static_cast<uint32_t>(count);
    ops.push_back(end);
    // Jump targets in operation numbers; verification put every reachable one at a group start.
    auto isCompareJump = [](const DecodedOp& op) { return op.code >= CompareJumpBase && op.code < BinaryStoreBase; };
    auto isIndexJump = [](const DecodedOp& op) { return op.code >= IndexJumpBase && op.code < CodeEnd; };
    for (size_t i = 0; i < ops.size(); ++i) {
        DecodedOp& op = ops[i];
        op.next = static_cast<int32_t>(i + 1);
        if (op.code == Jump || op.code == JumpIfFalse || isCompareJump(op) || isIndexJump(op))
            op.target = opAt[static_cast<size_t>(op.target)];
    }
    // A jump to a loop's condition evaluates the condition itself, and goes to the body or out.
    // Only where the way out lies past both, so that the steps counted stay the same.
    const std::vector<DecodedOp> original = ops;
    for (size_t i = 0; i < ops.size(); ++i) {
        if (original[i].code != Jump) continue;
        const size_t head = static_cast<size_t>(original[i].target);
        if (!isCompareJump(original[head])) continue;
        DecodedOp copy = original[head];
        if (static_cast<size_t>(copy.target) <= std::max(head, i)) continue;
        copy.next = static_cast<int32_t>(head + 1);
        copy.stepFirst = head <= i ? 1 : 0;
        ops[i] = copy;
    }
    function.decoded = std::move(ops);
}

}  // namespace orvane::ruby
