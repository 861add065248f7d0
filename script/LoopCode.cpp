// Inline chunks as flat code with registers: the compiler, then the loop that runs it. Each
// statement keeps the meaning that the inline instruction walk gives it, down to the coroutine
// turn after each plain statement; what goes is the walk's layers between the steps.
#include "script/LoopCode.h"

#include "script/Bytecode.h"
#include "script/OrvaneScript.h"
#include "script/PackedScalar.h"

namespace orvane {

using namespace packed;

namespace {

constexpr size_t kRegisters = kFastStepStackSize + 1;  // an element store's value sits above its key
constexpr uint32_t kTail = 0x80000000u;                // a place in the out-of-line part, fixed up last

struct LoopCompiler {
    const BytecodeProgram& p;
    std::vector<LoopInstruction> code;
    std::vector<LoopInstruction> tail;  // the general paths of refusing statements, after the code
    std::vector<std::vector<uint32_t>> breaks;  // per compiled `while`: its jumps to the exit
    // Chunks being compiled. Prepared lines nest no deeper than kMaxBlockNesting; chunk links
    // read from a bytecode file may even loop, and there a branch is left to the walk.
    size_t depth = 0;

    const ParsedScriptLine* pendingLine = nullptr;  // recorded by the next instruction

    uint32_t here() const { return uint32_t(code.size()); }

    LoopInstruction& push(LoopInstruction in) {
        if (pendingLine) {
            in.recordsLine = true;
            if (!in.line) in.line = pendingLine;
            pendingLine = nullptr;
        }
        code.push_back(in);
        return code.back();
    }

    LoopInstruction& emit(LoopOp op) {
        LoopInstruction in;
        in.op = op;
        return push(in);
    }

    void emitLine(const ParsedScriptLine& line) { pendingLine = &line; }

    static LoopOperand leaf(const FastOperand& o, const ParsedScriptLine& line) {
        LoopOperand operand;
        if (o.from == FastOperand::Literal) {
            operand.from = LoopOperand::Literal;
            operand.literal = o.packedLiteral;
        } else {
            operand.from = LoopOperand::Name;
            operand.name = &line.tokens[o.token];
            operand.analysis = &line.analyses[o.token];
        }
        return operand;
    }

    static LoopOperand reg(int index) {
        LoopOperand operand;
        operand.reg = uint8_t(index);
        return operand;
    }

    // The steps of an expression with their stack places as registers, the answer in r[base].
    // Jumps are relative to the first of them. False for a step the code does not hold.
    static bool translateSteps(const FastExpression& e, const ParsedScriptLine& line, int base,
                               std::vector<LoopInstruction>& out) {
        int depth = base;
        auto operand = [&](const FastOperand& o) { return o.from == FastOperand::Stack ? reg(--depth) : leaf(o, line); };
        for (const FastStep& step : e.steps) {
            LoopInstruction in;
            in.kind = step.kind;
            in.line = &line;
            in.expression = &e;
            in.node = step.node;
            switch (step.op) {
            case FastStepOp::Load: in.op = LoopOp::Load; in.a = operand(step.left); break;
            case FastStepOp::IndexLeaf:
                in.op = LoopOp::IndexLeaf;
                in.a = operand(step.right);
                in.b.from = LoopOperand::Name;
                in.b.name = &line.tokens[step.token];
                in.b.analysis = &line.analyses[step.token];
                break;
            case FastStepOp::Negate: in.op = LoopOp::Negate; in.a = operand(step.left); break;
            case FastStepOp::Not: in.op = LoopOp::Not; in.a = operand(step.left); break;
            case FastStepOp::Arithmetic:
            case FastStepOp::Compare:
                in.op = step.op == FastStepOp::Arithmetic ? LoopOp::Arithmetic : LoopOp::Compare;
                in.b = operand(step.right);
                in.a = operand(step.left);
                break;
            case FastStepOp::AndOr:
                // The left answer stays where it is when it decides; else the right one replaces it.
                if (depth <= base) return false;
                in.op = LoopOp::AndOr;
                in.dst = uint8_t(depth - 1);
                in.target = uint32_t(step.jump);
                --depth;
                out.push_back(in);
                continue;
            default: return false;
            }
            if (depth < base || depth >= int(kRegisters)) return false;
            in.dst = uint8_t(depth++);
            out.push_back(in);
        }
        return depth == base + 1;
    }

    // Appends translated steps; a refusal goes to the tail entry given later.
    void append(std::vector<LoopInstruction>& steps) {
        uint32_t first = here();
        for (LoopInstruction& in : steps) {
            if (in.op == LoopOp::AndOr) in.target += first;
            push(in);
        }
    }

    // A value for a statement: a lone leaf is read by the statement itself, else steps into r[base].
    static bool translateValue(const FastExpression& e, const ParsedScriptLine& line, int base,
                               std::vector<LoopInstruction>& out, LoopOperand& value) {
        if (e.steps.size() == 1 && e.steps[0].op == FastStepOp::Load) {
            value = leaf(e.steps[0].left, line);
            return true;
        }
        value = reg(base);
        return translateSteps(e, line, base, out);
    }

    void refuseTo(uint32_t from, uint32_t to, uint32_t tailIndex) {
        for (uint32_t i = from; i < to; ++i) code[i].refuse = kTail | tailIndex;
    }

    uint32_t addTail(const LoopInstruction& in) {
        tail.push_back(in);
        return uint32_t(tail.size() - 1);
    }

    // The general path of a plain statement, then on to `resume`.
    static LoopInstruction statement(const Instruction& instruction, uint32_t resume) {
        LoopInstruction in;
        in.op = LoopOp::Statement;
        in.instruction = &instruction;
        in.resume = resume;
        return in;
    }

    const ParsedScriptLine* lineAt(uint32_t index) const { return index < p.lines.size() ? &p.lines[index] : nullptr; }

    // `name = value` and `name op= value` with flat steps for the value.
    bool compileAssign(const Instruction& instruction) {
        const ParsedScriptLine* line = lineAt(instruction.a);
        if (!line || line->tokens.empty() || line->targets.empty() || line->singleCall.valid ||
            !line->singleValue().valid || line->singleValue().steps.empty() || line->scopeTarget != kTargetPlain)
            return false;
        std::vector<LoopInstruction> steps;
        LoopOperand value;
        if (!translateValue(line->singleValue(), *line, 0, steps, value)) return false;
        emitLine(*line);
        uint32_t first = here();
        append(steps);
        size_t nameToken = line->targets[0].nameToken;
        LoopOperand target;
        target.from = LoopOperand::Name;
        target.name = &line->tokens[nameToken];
        target.analysis = &line->analyses[nameToken];
        const auto& tokens = line->tokens;
        char op = line->assignOperatorIndex < tokens.size() ? tokens[line->assignOperatorIndex][0] : '=';
        // `x = a + b`: the last arithmetic stores its answer itself. Only a plain `=`, which raises
        // nothing of its own, so that an error is still the arithmetic's; and only where no
        // `and`/`or` jumps past it.
        bool jumps = false;
        for (const LoopInstruction& in : steps) jumps = jumps || in.op == LoopOp::AndOr;
        if (op == '=' && !steps.empty() && !jumps && code.back().op == LoopOp::Arithmetic && code.back().dst == 0) {
            code.back().op = LoopOp::ArithmeticSet;
            code.back().c = target;
        } else {
            LoopInstruction& assign = emit(LoopOp::Assign);
            assign.line = line;
            assign.a = target;
            assign.b = value;
            assign.assignOperator = op;
        }
        uint32_t end = here();
        refuseTo(first, end, addTail(statement(instruction, end)));
        return true;
    }

    // `name[key] = value` with flat steps for both.
    bool compileStore(const Instruction& instruction) {
        const ParsedScriptLine* line = lineAt(instruction.a);
        if (!line || line->tokens.empty() || !line->storesElement || line->targets.empty() ||
            line->targets[0].indexExpressions.empty() || line->valueExpressions.empty())
            return false;
        const FastExpression& key = line->targets[0].indexExpressions[0];
        const FastExpression& value = line->valueExpressions[0];
        if (!key.valid || key.steps.empty() || !value.valid || value.steps.empty()) return false;
        std::vector<LoopInstruction> keySteps, valueSteps;
        LoopOperand keyOperand, valueOperand;
        if (!translateValue(key, *line, 0, keySteps, keyOperand) ||
            !translateValue(value, *line, 1, valueSteps, valueOperand))
            return false;
        emitLine(*line);
        uint32_t first = here();
        append(keySteps);
        append(valueSteps);
        LoopInstruction& store = emit(LoopOp::StoreElement);
        store.line = line;
        store.a = keyOperand;
        store.c = valueOperand;
        size_t nameToken = line->targets[0].nameToken;
        store.b.from = LoopOperand::Name;
        store.b.name = &line->tokens[nameToken];
        store.b.analysis = &line->analyses[nameToken];
        uint32_t end = here();
        refuseTo(first, end, addTail(statement(instruction, end)));
        return true;
    }

    // A condition into r[0] and a jump when false; the jump places to patch are returned, and
    // the place of a last comparison that jumps itself goes to `fused`.
    std::vector<std::pair<bool, uint32_t>> compileCondition(const ParsedScriptLine& line, const char* keyword,
                                                            uint32_t* fused = nullptr) {
        std::vector<LoopInstruction> steps;
        const FastExpression& e = line.expression;
        if (e.valid && !e.steps.empty() && translateSteps(e, line, 0, steps)) {
            uint32_t first = here();
            append(steps);
            uint32_t jump = here();
            std::vector<std::pair<bool, uint32_t>> places{{false, jump}};
            // A comparison whose false answer `and` takes to the end jumps there itself.
            for (uint32_t i = first; i + 1 < jump; ++i) {
                LoopInstruction& compare = code[i];
                const LoopInstruction& andOr = code[i + 1];
                if (compare.op != LoopOp::Compare || andOr.op != LoopOp::AndOr || andOr.kind != FastExprNodeKind::And ||
                    andOr.target != jump)
                    continue;
                compare.op = LoopOp::CompareJump;
                compare.resume = i + 2;
                places.emplace_back(false, i);
            }
            // A last comparison decides the jump itself; the JumpIfFalse behind it stays for the
            // `and`/`or` that jump to the end, and the comparison's true answer steps over it.
            uint32_t last = jump - 1;
            bool lastJumps = code[last].op == LoopOp::Compare && code[last].dst == 0;
            emit(LoopOp::JumpIfFalse);
            LoopInstruction general;
            general.op = LoopOp::Condition;
            general.line = &line;
            general.keyword = keyword;
            general.resume = here();
            uint32_t index = addTail(general);
            refuseTo(first, jump, index);
            places.emplace_back(true, index);
            if (lastJumps) {
                code[last].op = LoopOp::CompareJump;
                code[last].resume = here();
                places.emplace_back(false, last);
                if (fused) *fused = last;
            }
            return places;
        }
        LoopInstruction& general = emit(LoopOp::Condition);
        general.line = &line;
        general.keyword = keyword;
        general.resume = here();
        return {{false, general.resume - 1}};
    }

    void patch(const std::vector<std::pair<bool, uint32_t>>& places, uint32_t target) {
        for (const auto& [inTail, index] : places) (inTail ? tail[index] : code[index]).target = target;
    }

    bool compileIf(const BytecodeIfGroup& group) {
        for (const BytecodeIfBranch& branch : group.branches)
            if (!lineAt(branch.line) || branch.chunk >= p.chunks.size()) return false;
        std::vector<uint32_t> toEnd;
        for (const BytecodeIfBranch& branch : group.branches) {
            const ParsedScriptLine& line = p.lines[branch.line];
            emitLine(line);
            if (branch.isElse) {
                compileChunk(branch.chunk);
                continue;
            }
            auto whenFalse = compileCondition(line, "if");
            compileChunk(branch.chunk);
            toEnd.push_back(here());
            emit(LoopOp::Jump);
            patch(whenFalse, here());
        }
        for (uint32_t jump : toEnd) code[jump].target = here();
        return true;
    }

    bool compileWhile(const BytecodeWhileLoop& loop) {
        const ParsedScriptLine* line = lineAt(loop.line);
        if (!line || loop.chunk >= p.chunks.size()) return false;
        emitLine(*line);
        auto whenFalse = compileCondition(*line, "while");
        uint32_t body = here();
        breaks.emplace_back();
        compileChunk(loop.chunk);
        // The test again below the body, so that a turn of the loop takes no jump of its own: a
        // last comparison that holds goes straight back to the body.
        emitLine(*line);
        uint32_t fused = UINT32_MAX;
        auto again = compileCondition(*line, "while", &fused);
        if (fused != UINT32_MAX) code[fused].resume = body;
        emit(LoopOp::Jump).target = body;
        patch(whenFalse, here());
        patch(again, here());
        for (uint32_t jump : breaks.back()) code[jump].target = here();
        breaks.pop_back();
        return true;
    }

    void compileInstruction(const Instruction& instruction) {
        if (depth >= kMaxBlockNesting) {
            emit(LoopOp::Instruction).instruction = &instruction;
            return;
        }
        switch (instruction.opcode) {
        case Opcode::SimpleAssign:
        case Opcode::Statement:
            if (!(instruction.opcode == Opcode::SimpleAssign ? compileAssign(instruction) : compileStore(instruction)))
                push(statement(instruction, here() + 1));
            return;
        case Opcode::IfGroup:
            if (instruction.a < p.ifGroups.size() && compileIf(p.ifGroups[instruction.a])) return;
            break;
        case Opcode::WhileLoop:
            if (instruction.a < p.whileLoops.size() && compileWhile(p.whileLoops[instruction.a])) return;
            break;
        case Opcode::Break:
            if (const ParsedScriptLine* line = lineAt(instruction.a)) {
                emitLine(*line);
                if (breaks.empty()) {
                    emit(LoopOp::Break);
                } else {
                    breaks.back().push_back(here());
                    emit(LoopOp::Jump);
                }
                return;
            }
            break;
        default: break;
        }
        emit(LoopOp::Instruction).instruction = &instruction;
    }

    void compileChunk(uint32_t index) {
        const BytecodeChunk& chunk = p.chunks[index];
        ++depth;
        for (uint32_t i = 0; i < chunk.instructionCount; ++i) {
            const size_t at = size_t(chunk.firstInstruction) + i;
            if (at >= p.instructions.size()) break;
            compileInstruction(p.instructions[at]);
        }
        --depth;
    }
};

}  // namespace

std::unique_ptr<LoopCode> compileLoopCode(const BytecodeProgram& program, uint32_t chunk) {
    LoopCompiler compiler{program, {}, {}, {}};
    compiler.compileChunk(chunk);
    compiler.emit(LoopOp::End);
    compiler.pendingLine = nullptr;
    // The general paths go behind the code; each goes on by itself, to its resume or target.
    uint32_t base = compiler.here();
    for (LoopInstruction& in : compiler.code)
        if (in.refuse & kTail) in.refuse = base + (in.refuse & ~kTail);
    auto code = std::make_unique<LoopCode>();
    code->code = std::move(compiler.code);
    code->code.insert(code->code.end(), compiler.tail.begin(), compiler.tail.end());
    return code;
}

const LoopCode& OrvaneScript::loopCodeFor(BytecodeProgram& program, uint32_t chunk) {
    auto& chunks = program.loopCode.chunks;
    if (chunks.size() != program.chunks.size()) chunks.resize(program.chunks.size());
    if (!chunks[chunk]) chunks[chunk] = compileLoopCode(program, chunk);
    return *chunks[chunk];
}

void OrvaneScript::runLoopCode(const std::shared_ptr<BytecodeProgram>& program, const LoopCode& loop,
                               BlockSignal& signal, Variable& running, CountedLoop* counted) {
    signal = BlockSignal::None;
    BytecodeProgram& p = *program;
    const LoopInstruction* code = loop.code.data();
    Packed r[kRegisters];
    auto read = [&](const LoopOperand& o) -> Packed {
        if (o.from == LoopOperand::Register) return r[o.reg];
        if (o.from == LoopOperand::Literal) return o.literal;
        const Variable* v = resolveFast(*o.name, *o.analysis);
        return v ? packVariable(*v) : kPackedNil;
    };
    auto arithmeticOf = [&](const LoopInstruction& in) { return packed::arithmetic(in.kind, read(in.a), read(in.b)); };
    auto comparisonOf = [&](const LoopInstruction& in) { return packed::compare(in.kind, read(in.a), read(in.b)); };
    // After a plain statement, as after any in the inline form: the running value is nil, and a
    // coroutine may take its turn. False when a soft error ends the chunk.
    auto statementDone = [&] {
        if (running.type != VarType::Nil) running = Variable();
        inlineCoroutineStep();
        return !shouldAbortForSoftRaisedError();
    };
    // The running instruction by pointer: a jump is an add, a step an increment. Each operation
    // goes on to the next by a jump of its own, which a branch predictor learns per operation.
    const LoopInstruction* ip = code;
    static void* const operations[] = {
        &&load, &&arithmetic, &&arithmeticSet, &&compare, &&compareJump, &&indexLeaf, &&negate, &&negate,
        &&andOr, &&assign, &&storeElement, &&jumpIfFalse, &&jump, &&statement, &&condition, &&instruction,
        &&breakOut, &&end,
    };
    static_assert(sizeof operations / sizeof *operations == size_t(LoopOp::End) + 1);
#define NEXT()                                      \
    do {                                            \
        if (ip->recordsLine) recordLine(*ip->line); \
        goto* operations[size_t(ip->op)];           \
    } while (0)
#define REFUSE()                 \
    do {                         \
        ip = code + ip->refuse;  \
        NEXT();                  \
    } while (0)
    try {
        NEXT();
    arithmetic: {
        Packed value = arithmeticOf(*ip);
        if (value == kRefused) REFUSE();
        r[ip->dst] = value;
        ++ip;
        NEXT();
    }
    compare: {
        Packed value = comparisonOf(*ip);
        if (value == kRefused) REFUSE();
        r[ip->dst] = value;
        ++ip;
        NEXT();
    }
    arithmeticSet: {
        Packed value = arithmeticOf(*ip);
        if (value == kRefused) REFUSE();
        FastScalarValue scalar = unpack(value);
        if (Variable* slot = resolveFast(*ip->c.name, *ip->c.analysis)) assignFastScalarToVariable(*slot, scalar);
        else finishSimpleAssign(*ip->line, '=', true, scalar);
        if (!statementDone()) return;
        ++ip;
        NEXT();
    }
    compareJump: {
        Packed value = comparisonOf(*ip);
        if (value == kRefused) REFUSE();
        ip = code + (truthOf(value) ? ip->resume : ip->target);
        NEXT();
    }
    load: {
        Packed value = read(ip->a);
        if (value == kRefused) REFUSE();
        r[ip->dst] = value;
        ++ip;
        NEXT();
    }
    indexLeaf: {
        Packed key = read(ip->a);
        const Variable* base = key == kRefused ? nullptr : resolveFast(*ip->b.name, *ip->b.analysis);
        Packed value = base ? indexedElement(*this, *base, key) : kRefused;
        if (value == kRefused) REFUSE();
        r[ip->dst] = value;
        ++ip;
        NEXT();
    }
    negate: {
        Packed value = read(ip->a);
        FastScalarValue negated;
        if (value == kRefused || (ip->op == LoopOp::Negate && !negateScalar(unpack(value), negated))) REFUSE();
        r[ip->dst] = ip->op == LoopOp::Not ? packBool(!truthOf(value)) : pack(negated);
        ++ip;
        NEXT();
    }
    andOr:
        ip = (ip->kind == FastExprNodeKind::Or) == truthOf(r[ip->dst]) ? code + ip->target : ip + 1;
        NEXT();
    assign: {
        // As the simple assignment takes a scalar: in place where it can.
        Packed value = read(ip->b);
        if (value == kRefused) REFUSE();
        FastScalarValue scalar = unpack(value);
        Variable* slot = resolveFast(*ip->a.name, *ip->a.analysis);
        if (slot && ip->assignOperator == '=') assignFastScalarToVariable(*slot, scalar);
        else if (!slot || (!tryStepIntegerInPlace(*slot, ip->assignOperator, scalar) &&
                           !tryApplyFastScalarOperationInPlace(*slot, ip->assignOperator, scalar)))
            finishSimpleAssign(*ip->line, ip->assignOperator, true, scalar);
        if (!statementDone()) return;
        ++ip;
        NEXT();
    }
    storeElement: {
        // A number into an array by a whole number within reach; else the general path.
        Packed key = read(ip->a);
        Packed value = read(ip->c);
        Variable* array = kindOf(key) == FastScalarValue::Int && value != kRefused
                              ? resolveFast(*ip->b.name, *ip->b.analysis)
                              : nullptr;
        if (!array || array->type != VarType::Array) REFUSE();
        VariableArray& items = **std::get_if<ArrayPtr>(&array->value);
        int32_t position = intOf(key);
        if (position < 1 || size_t(position) > items.size() + 1 || size_t(position) > kMaxArrayGrowth) REFUSE();
        if (size_t(position) == items.size() + 1) items.emplace_back();
        assignFastScalarToVariable(items[size_t(position) - 1], unpack(value));
        if (!statementDone()) return;
        ++ip;
        NEXT();
    }
    jumpIfFalse:
        ip = truthOf(r[0]) ? ip + 1 : code + ip->target;
        NEXT();
    jump:
        ip = code + ip->target;
        NEXT();
    statement: {
        const Instruction& general = *ip->instruction;
        bool ok = general.opcode == Opcode::SimpleAssign ? runInlineAssignment(p, general, running)
                                                          : runStatement(p, general, running);
        inlineCoroutineStep();
        if (!ok || shouldAbortForSoftRaisedError()) return;
        ip = code + ip->resume;
        NEXT();
    }
    condition: {
        bool holds = evaluateLineCondition(*ip->line, ip->keyword);
        if (shouldAbortForSoftRaisedError()) return;
        ip = code + (holds ? ip->resume : ip->target);
        NEXT();
    }
    instruction:
        if (!executeInstruction(program, *ip->instruction, signal, running, true) || shouldAbortForSoftRaisedError() ||
            signal != BlockSignal::None)
            return;
        ++ip;
        NEXT();
    breakOut:
        signal = BlockSignal::Break;
        return;
    end: {
        if (!counted) return;
        counted->counter += counted->step;
        if (counted->step > 0 ? counted->counter > counted->last : counted->counter < counted->last) return;
        // The counter, not the variable, drives the loop: written in place. The scope is found
        // again, since the body may have pushed others.
        Variable& variable = nativeScopes[counted->scope][0].value;
        if (variable.type == VarType::Int) *std::get_if<int32_t>(&variable.value) = int32_t(counted->counter);
        else variable = Variable(int32_t(counted->counter));
        ip = code;
        NEXT();
    }
#undef REFUSE
#undef NEXT
    } catch (const std::exception&) {
        // An error of a step names its node's token, as the steps do.
        const LoopInstruction& failed = *ip;
        if (failed.expression) noteFastErrorToken(failed.line->tokens, *failed.expression, failed.node);
        throw;
    }
}

}  // namespace orvane
