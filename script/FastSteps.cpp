// The flat form of a call-free expression: postfix steps run over a small stack of scalars.
// It answers exactly as the scalar evaluator does on the same tree; whenever it cannot (a
// string key, a container value), it refuses, and having no calls it has caused nothing.
#include <stdexcept>

#include "script/FastScalarOps.h"
#include "script/OrvaneScript.h"
#include "script/PackedScalar.h"

namespace orvane {

using namespace packed;

namespace {

struct StepCompiler {
    const FastExpression& e;
    std::vector<FastStep> steps;
    int depth = 0;
    bool overflow = false;  // the stack would need more than kFastStepStackSize slots

    const FastExprNode& at(int32_t n) const { return e.nodes[size_t(n)]; }

    bool isLeaf(int32_t n) const {
        Kind k = at(n).kind;
        return k == Kind::Int || k == Kind::Float || k == Kind::Bool || k == Kind::Nil || k == Kind::Variable;
    }

    FastOperand leaf(int32_t n) const {
        const FastExprNode& node = at(n);
        FastOperand o;
        o.from = node.kind == Kind::Variable ? FastOperand::Name : FastOperand::Literal;
        o.token = node.tokenIndex;
        switch (node.kind) {
        case Kind::Int: o.literal = FastScalarValue::makeInt(node.intValue); break;
        case Kind::Float: o.literal = FastScalarValue::makeFloat(node.floatValue); break;
        case Kind::Bool: o.literal = FastScalarValue::makeBool(node.boolValue); break;
        default: o.literal = FastScalarValue::makeNil(); break;
        }
        return o;
    }

    // Adds a step; `change` is what it does to the stack's height.
    FastStep& add(FastStepOp op, int32_t n, int change) {
        FastStep step;
        step.op = op;
        step.node = n;
        step.kind = at(n).kind;
        steps.push_back(step);
        depth += change;
        if (depth > int(kFastStepStackSize)) overflow = true;
        return steps.back();
    }

    // A unary step reads a leaf operand itself, or takes its operand from the stack.
    bool unary(FastStepOp op, int32_t n) {
        int32_t child = at(n).left;
        if (child < 0) return false;
        if (isLeaf(child)) {
            add(op, n, 1).left = leaf(child);
            return true;
        }
        if (!emit(child)) return false;
        add(op, n, 0);
        return true;
    }

    // A leaf operand is read by the step itself. Reading a left leaf after the right side has run
    // changes nothing: the right side has no effects, and an error it raises is raised as well
    // by the general evaluator, which the refusal of a non-scalar leaf leads to.
    bool binary(FastStepOp op, int32_t n) {
        int32_t l = at(n).left, r = at(n).right;
        if (l < 0 || r < 0) return false;
        bool rightLeaf = isLeaf(r), leftLeaf = isLeaf(l);
        int popped = 0;
        if (!leftLeaf) { if (!emit(l)) return false; ++popped; }
        if (!rightLeaf) { if (!emit(r)) return false; ++popped; }
        FastStep& step = add(op, n, 1 - popped);
        if (leftLeaf) step.left = leaf(l);
        if (rightLeaf) step.right = leaf(r);
        return true;
    }

    bool emit(int32_t n) {
        if (n < 0 || size_t(n) >= e.nodes.size()) return false;
        const FastExprNode& node = at(n);
        switch (node.kind) {
        case Kind::Int: case Kind::Float: case Kind::Bool: case Kind::Nil: case Kind::Variable:
            add(FastStepOp::Load, n, 1).left = leaf(n);
            return true;
        case Kind::Index: {
            if (node.left < 0 || node.right < 0 || at(node.left).kind != Kind::Variable) return false;
            uint16_t base = at(node.left).tokenIndex;
            if (at(node.right).kind == Kind::String) {
                add(FastStepOp::IndexString, n, 1).token = base;
                return true;
            }
            if (isLeaf(node.right)) {
                FastStep& step = add(FastStepOp::IndexLeaf, n, 1);
                step.token = base;
                step.right = leaf(node.right);
                return true;
            }
            // The base is resolved before the key runs, as the scalar evaluator does.
            add(FastStepOp::IndexBase, n, 1).token = base;
            if (!emit(node.right)) return false;
            add(FastStepOp::Index, n, -1).token = base;
            return true;
        }
        case Kind::Length:
            if (node.left < 0 || at(node.left).kind != Kind::Variable) return false;
            add(FastStepOp::Length, n, 1).token = at(node.left).tokenIndex;
            return true;
        case Kind::Negate: return unary(FastStepOp::Negate, n);
        case Kind::Not: return unary(FastStepOp::Not, n);
        case Kind::Add: case Kind::Sub: case Kind::Mul: case Kind::Div: case Kind::IntDiv: case Kind::Mod:
        case Kind::Pow:
            return binary(FastStepOp::Arithmetic, n);
        case Kind::Eq: case Kind::Ne: case Kind::Lt: case Kind::Gt: case Kind::Le: case Kind::Ge:
            return binary(FastStepOp::Compare, n);
        case Kind::And: case Kind::Or: {
            if (!emit(node.left)) return false;
            size_t jump = steps.size();
            add(FastStepOp::AndOr, n, -1);
            if (!emit(node.right)) return false;
            steps[jump].jump = int32_t(steps.size());
            return true;
        }
        default: return false;  // strings and calls stay with the node evaluators
        }
    }
};

}  // namespace

static void collectTrunkCalls(FastExpression& e, int32_t n) {
    if (n < 0 || size_t(n) >= e.nodes.size()) return;
    const FastExprNode& node = e.nodes[size_t(n)];
    switch (node.kind) {
    case Kind::Call:
        if (node.left >= 0 && e.nodes[size_t(node.left)].kind == Kind::Variable) e.trunkCalls.push_back(n);
        return;
    case Kind::Negate: case Kind::Not: collectTrunkCalls(e, node.left); return;
    case Kind::Add: case Kind::Sub: case Kind::Mul: case Kind::Div: case Kind::IntDiv: case Kind::Mod:
    case Kind::Pow: case Kind::Eq: case Kind::Ne: case Kind::Lt: case Kind::Gt: case Kind::Le: case Kind::Ge:
        collectTrunkCalls(e, node.left);
        collectTrunkCalls(e, node.right);
        return;
    default: return;  // `and`/`or` may never reach a call; an index or a length may take another route
    }
}

static bool isLeafStep(const FastStep& step) {
    return step.op == FastStepOp::IndexLeaf ||
           ((step.op == FastStepOp::Arithmetic || step.op == FastStepOp::Compare) &&
            step.left.from != FastOperand::Stack && step.right.from != FastOperand::Stack);
}

// Packs the literals and marks a list that needs no stack.
static void finishSteps(std::vector<FastStep>& steps) {
    for (FastStep& step : steps) {
        step.left.packedLiteral = pack(step.left.literal);
        step.right.packedLiteral = pack(step.right.literal);
    }
    if (steps.empty() || !isLeafStep(steps[0])) return;
    if (steps.size() == 1) {
        steps[0].shortRun = true;
    } else if (steps.size() == 2) {
        const FastStep& next = steps[1];
        steps[0].shortRun = (next.op == FastStepOp::Arithmetic || next.op == FastStepOp::Compare) &&
                            (next.left.from == FastOperand::Stack) != (next.right.from == FastOperand::Stack);
    }
}

// Steps for the arithmetic between the calls of an expression that has calls, such as the
// `n - 1` of `f(n - 1) + f(n - 2)`: the general evaluator takes their integer answers.
static void compileSubtreeSteps(FastExpression& e, int32_t n) {
    if (n < 0 || size_t(n) >= e.nodes.size()) return;
    const FastExprNode& node = e.nodes[size_t(n)];
    bool arithmetic = node.kind == Kind::Add || node.kind == Kind::Sub || node.kind == Kind::Mul ||
                      node.kind == Kind::IntDiv || node.kind == Kind::Mod;
    if (!(node.flags & kFastExprNodeHasCall)) {
        if (!arithmetic || (node.flags & kFastExprNodeMayFloat)) return;
        StepCompiler compiler{e, {}};
        if (!compiler.emit(n) || compiler.overflow) return;
        if (e.subtreeSteps.empty()) e.subtreeSteps.assign(e.nodes.size(), -1);
        e.subtreeSteps[size_t(n)] = int32_t(e.subtreeStepLists.size());
        finishSteps(compiler.steps);
        e.subtreeStepLists.push_back(std::move(compiler.steps));
        return;
    }
    if (node.kind == Kind::Call) {
        for (int32_t i = 0; i < node.intValue; ++i) compileSubtreeSteps(e, e.callArgs[size_t(node.right + i)]);
        return;
    }
    compileSubtreeSteps(e, node.left);
    if (node.kind != Kind::Index) compileSubtreeSteps(e, node.right);
}

void compileFastSteps(FastExpression& expression) {
    expression.steps.clear();
    expression.trunkCalls.clear();
    expression.subtreeSteps.clear();
    expression.subtreeStepLists.clear();
    if (!expression.valid) return;
    if (expression.nodes[size_t(expression.root)].flags & kFastExprNodeHasCall) {
        collectTrunkCalls(expression, expression.root);
        compileSubtreeSteps(expression, expression.root);
        return;
    }
    StepCompiler compiler{expression, {}};
    if (!compiler.emit(expression.root) || compiler.overflow) return;
    finishSteps(compiler.steps);
    expression.steps = std::move(compiler.steps);
}

// True when the scalar evaluator would certainly refuse the expression: a call on its trunk names
// no native function, so the general evaluator may start at once. Reading a name has no effects.
bool OrvaneScript::scalarRefusesCall(const FastExpression& e, const std::vector<std::string>& tokens,
                                     std::vector<TokenAnalysis>& analyses) {
    for (int32_t call : e.trunkCalls) {
        const FastExprNode& callee = e.nodes[size_t(e.nodes[size_t(call)].left)];
        const Variable* f = resolveFast(tokens[callee.tokenIndex], analyses[callee.tokenIndex]);
        if (!f || f->type != VarType::Function || !f->asCallable() || !f->asCallable()->isNative) return true;
    }
    return false;
}

bool OrvaneScript::runShortFastSteps(const FastExpression& e, const std::vector<FastStep>& steps,
                                     const std::vector<std::string>& tokens, std::vector<TokenAnalysis>& analyses,
                                     FastScalarValue& out) {
    const FastStep* running = &steps[0];
    const std::string* names = tokens.data();
    TokenAnalysis* table = analyses.data();
    try {
        Packed result = leafStepValue(*this, steps[0], names, table);
        if (steps.size() == 2 && result != kRefused) {
            // The first answer stands where the stack would hand it over; the other side is a leaf.
            const FastStep& step = steps[1];
            running = &step;
            bool leftWaits = step.left.from == FastOperand::Stack;
            Packed leaf = readLeaf(*this, leftWaits ? step.right : step.left, names, table);
            Packed a = leftWaits ? result : leaf, b = leftWaits ? leaf : result;
            result = step.op == FastStepOp::Compare ? compare(step.kind, a, b) : arithmetic(step.kind, a, b);
        }
        if (result == kRefused) return false;
        out = unpack(result);
        return true;
    } catch (const std::exception&) {
        noteFastErrorToken(tokens, e, running->node);
        throw;
    }
}

bool OrvaneScript::runFastStepsOnStack(const FastExpression& e, const std::vector<FastStep>& list,
                                       const std::vector<std::string>& tokens, std::vector<TokenAnalysis>& analyses,
                                       FastScalarValue& out) {
    // Left uninitialised: a slot is written before it is read.
    union Slot {
        Packed scalar;
        const Variable* base;
    } slots[kFastStepStackSize];
    int top = -1;
    const std::string* names = tokens.data();
    TokenAnalysis* table = analyses.data();
    // An operand: from the stack, or a leaf read now.
    auto operand = [&](const FastOperand& o) -> Packed {
        return o.from == FastOperand::Stack ? slots[top--].scalar : readLeaf(*this, o, names, table);
    };
    const FastStep* steps = list.data();
    const size_t count = list.size();
    size_t i = 0;
    try {
        while (i < count) {
            const FastStep& step = steps[i++];
            // Most steps are arithmetic or comparisons: tests of their own are better predicted
            // than the table. The right operand is the top of the stack when both come from there.
            if (step.op == FastStepOp::Arithmetic || step.op == FastStepOp::Compare) {
                Packed b = operand(step.right);
                Packed a = operand(step.left);
                Packed result = step.op == FastStepOp::Arithmetic ? arithmetic(step.kind, a, b) : compare(step.kind, a, b);
                if (result == kRefused) return false;
                slots[++top].scalar = result;
                continue;
            }
            switch (step.op) {
            case FastStepOp::Load: {
                Packed value = operand(step.left);
                if (value == kRefused) return false;
                slots[++top].scalar = value;
                break;
            }
            case FastStepOp::IndexBase: {
                const Variable* base = resolveFast(names[step.token], table[step.token]);
                if (!base) return false;
                slots[++top].base = base;
                break;
            }
            case FastStepOp::Index: {
                Packed key = slots[top--].scalar;
                Packed value = indexedElement(*this, *slots[top].base, key);
                if (value == kRefused) return false;
                slots[top].scalar = value;
                break;
            }
            case FastStepOp::IndexLeaf: {
                Packed value = leafStepValue(*this, step, names, table);
                if (value == kRefused) return false;
                slots[++top].scalar = value;
                break;
            }
            case FastStepOp::IndexString: {
                const Variable* base = resolveFast(names[step.token], table[step.token]);
                if (!base || base->type != VarType::Table) return false;
                const VariableTable& table = **std::get_if<TablePtr>(&base->value);
                const FastExprNode& key = e.nodes[size_t(e.nodes[size_t(step.node)].right)];
                auto it = table.find(e.strings[key.stringIndex]);
                Packed value = it == table.end() ? kPackedNil : packVariable(it->second);
                if (value == kRefused) return false;
                slots[++top].scalar = value;
                break;
            }
            case FastStepOp::Length: {
                const Variable* v = resolveFast(names[step.token], table[step.token]);
                slots[++top].scalar = packInt(arrayLength(v ? *v : Variable()));
                break;
            }
            case FastStepOp::Negate:
            case FastStepOp::Not: {
                Packed value = operand(step.left);
                if (value == kRefused) return false;
                if (step.op == FastStepOp::Not) {
                    value = packBool(!truthOf(value));
                } else {
                    FastScalarValue negated;
                    if (!negateScalar(unpack(value), negated)) return false;
                    value = pack(negated);
                }
                slots[++top].scalar = value;
                break;
            }
            case FastStepOp::AndOr:
                // Or keeps a true left operand, And a false one; otherwise the right side decides.
                if ((step.kind == Kind::Or) == truthOf(slots[top].scalar)) i = size_t(step.jump);
                else --top;
                break;
            case FastStepOp::Arithmetic:
            case FastStepOp::Compare: break;  // taken above
            }
        }
    } catch (const std::exception&) {
        noteFastErrorToken(tokens, e, steps[i - 1].node);
        throw;
    }
    out = unpack(slots[0].scalar);
    return true;
}

}  // namespace orvane

namespace orvane::packed {

// An element as the scalar evaluator reads it: an array by a whole number, else the general rule.
Packed indexedElement(OrvaneScript& script, const Variable& base, Packed key) {
    if (base.type == VarType::Array && kindOf(key) == FastScalarValue::Int) {
        const VariableArray& items = **std::get_if<ArrayPtr>(&base.value);
        int32_t position = intOf(key);
        if (position < 1) return kRefused;
        return size_t(position) > items.size() ? kPackedNil : packVariable(items[size_t(position) - 1]);
    }
    FastScalarValue element;
    if (!script.tryFastScalarFromIndexedValue(base, fastScalarToVariable(unpack(key)), element)) return kRefused;
    return pack(element);
}
// The rarer kinds go through the node evaluator's helpers, out of line. A refused operand is
// not numeric, so the arithmetic refuses it there.
Packed otherArithmetic(Kind kind, Packed a, Packed b) {
    FastScalarValue result;
    if (!applyScalarArithmetic(kind, unpack(a), unpack(b), result)) return kRefused;
    return pack(result);
}
Packed otherComparison(Kind kind, Packed a, Packed b) {
    bool result;
    if (!compareScalars(kind, unpack(a), unpack(b), result)) return kRefused;
    return packBool(result);
}

}  // namespace orvane::packed
