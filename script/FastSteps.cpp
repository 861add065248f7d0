// The flat form of a call-free expression: postfix steps run over a small stack of scalars.
// It answers exactly as the scalar evaluator does on the same tree; whenever it cannot (a
// string key, a container value), it refuses, and having no calls it has caused nothing.
#include <stdexcept>

#include "script/FastScalarOps.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

using Kind = FastExprNodeKind;

struct StepCompiler {
    const FastExpression& e;
    std::vector<FastStep> steps;
    int depth = 0;

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
    bool overflow = false;

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

template <typename Number>
bool compareNumbers(Kind kind, Number x, Number y) {
    switch (kind) {
    case Kind::Eq: return x == y;
    case Kind::Ne: return x != y;
    case Kind::Lt: return x < y;
    case Kind::Gt: return x > y;
    case Kind::Le: return x <= y;
    default: return x >= y;
    }
}

}  // namespace

void compileFastSteps(FastExpression& expression) {
    expression.steps.clear();
    if (!expression.valid) return;
    StepCompiler compiler{expression, {}};
    if (compiler.emit(expression.root) && !compiler.overflow) expression.steps = std::move(compiler.steps);
}

bool OrvaneScript::runFastSteps(const FastExpression& e, const std::vector<std::string>& tokens,
                                std::vector<TokenAnalysis>& analyses, FastScalarValue& out) {
    // Left uninitialised: a slot is written before it is read.
    union Slot {
        Slot() {}
        FastScalarValue scalar;
        const Variable* base;
    } slots[kFastStepStackSize];
    int top = -1;
    // An operand: from the stack, or a leaf read now; false for a value that is no scalar.
    auto operand = [&](const FastOperand& o, FastScalarValue& value) {
        if (o.from == FastOperand::Literal) {
            value = o.literal;
            return true;
        }
        if (o.from == FastOperand::Stack) {
            value = slots[top--].scalar;
            return true;
        }
        const Variable* v = resolveFast(tokens[o.token], analyses[o.token]);
        if (!v) {
            value = FastScalarValue::makeNil();
            return true;
        }
        return scalarFromVariable(*v, value);
    };
    const FastStep* steps = e.steps.data();
    const size_t count = e.steps.size();
    size_t i = 0;
    try {
        while (i < count) {
            const FastStep& step = steps[i++];
            switch (step.op) {
            case FastStepOp::Load: {
                FastScalarValue value;
                if (!operand(step.left, value)) return false;
                slots[++top].scalar = value;
                break;
            }
            case FastStepOp::IndexBase: {
                const Variable* base = resolveFast(tokens[step.token], analyses[step.token]);
                if (!base) return false;
                slots[++top].base = base;
                break;
            }
            case FastStepOp::Index: {
                FastScalarValue key = slots[top--].scalar;
                const Variable& base = *slots[top].base;
                FastScalarValue& s = slots[top].scalar;
                if (base.type == VarType::Array && key.kind == FastScalarValue::Int) {
                    const VariableArray& items = **std::get_if<ArrayPtr>(&base.value);
                    if (key.intValue < 1) return false;
                    if (size_t(key.intValue) > items.size()) s = FastScalarValue::makeNil();
                    else if (!scalarFromVariable(items[size_t(key.intValue) - 1], s)) return false;
                } else if (!tryFastScalarFromIndexedValue(base, fastScalarToVariable(key), s)) {
                    return false;
                }
                break;
            }
            case FastStepOp::IndexString: {
                const Variable* base = resolveFast(tokens[step.token], analyses[step.token]);
                if (!base || base->type != VarType::Table) return false;
                const VariableTable& table = **std::get_if<TablePtr>(&base->value);
                const FastExprNode& key = e.nodes[size_t(e.nodes[size_t(step.node)].right)];
                auto it = table.find(e.strings[key.stringIndex]);
                FastScalarValue& s = slots[++top].scalar;
                if (it == table.end()) s = FastScalarValue::makeNil();
                else if (!scalarFromVariable(it->second, s)) return false;
                break;
            }
            case FastStepOp::Length: {
                const Variable* v = resolveFast(tokens[step.token], analyses[step.token]);
                slots[++top].scalar = FastScalarValue::makeInt(arrayLength(v ? *v : Variable()));
                break;
            }
            case FastStepOp::Negate:
            case FastStepOp::Not: {
                FastScalarValue value;
                if (!operand(step.left, value)) return false;
                FastScalarValue& s = slots[++top].scalar;
                if (step.op == FastStepOp::Not) s = FastScalarValue::makeBool(!fastScalarIsTruthy(value));
                else if (!negateScalar(value, s)) return false;
                break;
            }
            case FastStepOp::Arithmetic:
            case FastStepOp::Compare: {
                // The right operand is the top of the stack when both come from there.
                FastScalarValue a, b;
                if (!operand(step.right, b) || !operand(step.left, a)) return false;
                FastScalarValue& s = slots[++top].scalar;
                // The common kinds inline, with the general helpers' arithmetic: two integers in
                // 32 bits, an integer and a float or two floats in double, narrowed to float.
                bool ints = a.kind == FastScalarValue::Int && b.kind == FastScalarValue::Int;
                bool numbers = (a.kind == FastScalarValue::Int || a.kind == FastScalarValue::Float) &&
                               (b.kind == FastScalarValue::Int || b.kind == FastScalarValue::Float);
                if (step.op == FastStepOp::Compare) {
                    bool result;
                    if (ints) result = compareNumbers(step.kind, a.intValue, b.intValue);
                    else if (numbers) result = compareNumbers(step.kind, fastScalarToDouble(a), fastScalarToDouble(b));
                    else if (!compareScalars(step.kind, a, b, result)) return false;
                    s = FastScalarValue::makeBool(result);
                    break;
                }
                if (ints) {
                    int64_t x = a.intValue, y = b.intValue;
                    if (step.kind == Kind::Add) { s = FastScalarValue::makeInt(wrapInt32(x + y)); break; }
                    if (step.kind == Kind::Sub) { s = FastScalarValue::makeInt(wrapInt32(x - y)); break; }
                    if (step.kind == Kind::Mul) { s = FastScalarValue::makeInt(wrapInt32(x * y)); break; }
                    if (step.kind == Kind::Mod && y != 0) { s = FastScalarValue::makeInt(wrapInt32(x % y)); break; }
                } else if (numbers) {
                    double x = fastScalarToDouble(a), y = fastScalarToDouble(b);
                    if (step.kind == Kind::Add) { s = FastScalarValue::makeFloat(float(x + y)); break; }
                    if (step.kind == Kind::Sub) { s = FastScalarValue::makeFloat(float(x - y)); break; }
                    if (step.kind == Kind::Mul) { s = FastScalarValue::makeFloat(float(x * y)); break; }
                }
                if (!applyScalarArithmetic(step.kind, a, b, s)) return false;
                break;
            }
            case FastStepOp::AndOr:
                // Or keeps a true left operand, And a false one; otherwise the right side decides.
                if ((step.kind == Kind::Or) == fastScalarIsTruthy(slots[top].scalar)) i = size_t(step.jump);
                else --top;
                break;
            }
        }
    } catch (const std::exception&) {
        noteFastErrorToken(tokens, e, steps[i - 1].node);
        throw;
    }
    out = slots[0].scalar;
    return true;
}

}  // namespace orvane
