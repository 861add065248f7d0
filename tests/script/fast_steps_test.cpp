// The flat steps of a call-free expression against the node-tree evaluators, over values of every
// kind: where the steps answer, the scalar evaluator answers the same; where the steps raise, the
// scalar evaluator raises the same text, or refuses and the general evaluator raises it. A refusal
// of the steps is always allowed, since the tree then runs.
#include <gtest/gtest.h>

#include "script/OrvaneScript.h"

using namespace orvane;

namespace {

struct Compiled {
    std::vector<std::string> tokens;
    std::vector<TokenAnalysis> analyses;
    FastExpression expression;
};

Compiled compile(const std::string& text) {
    Compiled c;
    c.tokens = tokenise(text);
    for (const std::string& token : c.tokens) c.analyses.push_back(analyseToken(token));
    c.expression = compileFastExpressionRange(c.tokens, c.analyses, 0, c.tokens.size());
    return c;
}

struct Outcome {
    bool answered = false;
    FastScalarValue value;
    std::string error;
};

template <typename Evaluate>
Outcome run(Evaluate evaluate) {
    Outcome o;
    try {
        o.answered = evaluate(o.value);
    } catch (const std::exception& e) {
        o.error = e.what();
    }
    return o;
}

std::string describe(const Outcome& o) {
    if (!o.error.empty()) return "error " + o.error;
    if (!o.answered) return "refused";
    switch (o.value.kind) {
    case FastScalarValue::Nil: return "nil";
    case FastScalarValue::Int: return "int " + std::to_string(o.value.intValue);
    case FastScalarValue::Float: return "float " + std::to_string(o.value.floatValue);
    case FastScalarValue::Bool: return o.value.boolValue ? "bool true" : "bool false";
    default: return "none";
    }
}

void setGlobals(OrvaneScript& script) {
    script.pushVariable("a", Variable(int32_t(7)));
    script.pushVariable("b", Variable(int32_t(-3)));
    script.pushVariable("z", Variable(int32_t(0)));
    script.pushVariable("f", Variable(2.5f));
    script.pushVariable("g", Variable(0.0f));
    script.pushVariable("t", Variable(true));
    script.pushVariable("no", Variable(false));
    script.pushVariable("big", Variable(int32_t(2147483647)));
    script.pushVariable("s", Variable("text"));
    script.pushVariable("arr", Variable(VariableArray{Variable(int32_t(1)), Variable(2.5f), Variable(true),
                                                      Variable("x"), Variable()}));
    VariableTable table;
    table["k"] = Variable(int32_t(4));
    table["7"] = Variable(1.5f);
    table["name"] = Variable("n");
    script.pushVariable("tbl", Variable(std::move(table)));
}

const char* kExpressions[] = {
    "a + b * 2", "a - b - 1", "a * b", "a % b", "-7 % 3", "a \\ b", "a / b", "f * a - 1", "a + f",
    "f % 2", "a % f", "a ^ 2", "2 ^ 3 ^ 2", "-2 ^ 2", "-a", "-f", "-t", "- -a", "not a", "not z", "not missing",
    "z or a", "z and a", "a and f", "no or z", "missing or 3", "t and no", "missing and 1 / 0", "a or 1 / 0",
    "t == 1", "no == 0", "a < f", "a >= b", "f <= 2.5", "a != 7", "missing == not", "not == 0", "z == missing",
    "a < missing", "s == 1", "big + a", "big * big", "-big - 2", "t + t", "a + missing", "s + 1", "1 + s",
    "a / z", "a % z", "a \\ z", "f % g", "f / g", "a \\ g", "f \\ 2", "(a + b) * (a - b)", "a + b + f",
    "arr[1] + arr[2]", "arr[3] + 1", "arr[4]", "arr[5]", "arr[6]", "arr[0]", "arr[-1]", "arr[a - 6]",
    "arr[f]", "arr[1.0]", "arr[t]", "tbl['k'] * 2", "tbl['none']", "tbl['name']", "tbl[a]", "tbl[7]",
    "tbl[s]", "s[1]", "missing[1]", "a[1]", "#arr", "#s", "#tbl", "#a", "#missing", "arr[1 / z]",
    "missing[1 / z]", "s + 1 / z", "a < 1 % z", "(a > b) == t", "1 < 2 < 3", "z or no or missing",
    "a * 1.5 - f / 2", "a % -3", "b % 2", "b \\ 2", "1.5 \\ 0.5",
    // An operation on leaves and one more over its answer: the second may raise or refuse.
    "(a + 1) % z", "s < a + 1", "missing + a * 2", "(a - b) / g", "(f * f) \\ z", "arr[1] + 1 > a",
    "no == (a > 1)", "2 - (f - a)", "z * (a % 0)",
};

}  // namespace

TEST(FastSteps, AgreeWithTheNodeEvaluator) {
    OrvaneScript script;
    setGlobals(script);
    int stepped = 0, answered = 0;
    for (const char* text : kExpressions) {
        SCOPED_TRACE(text);
        Compiled c = compile(text);
        ASSERT_TRUE(c.expression.valid);
        if (c.expression.steps.empty()) continue;
        ++stepped;
        Outcome steps = run([&](FastScalarValue& out) {
            return script.runFastSteps(c.expression, c.tokens, c.analyses, out);
        });
        Outcome tree = run([&](FastScalarValue& out) {
            return script.tryEvaluateFastExpressionScalarNode(c.expression, c.expression.root, c.tokens, c.analyses, out);
        });
        if (steps.answered) {
            ++answered;
            EXPECT_EQ(describe(steps), describe(tree));
        }
        if (!steps.error.empty() && !tree.answered && tree.error.empty()) {
            try {
                script.evaluateFastExpressionNode(c.expression, c.expression.root, c.tokens, c.analyses);
                ADD_FAILURE() << "the general evaluator does not raise " << steps.error;
            } catch (const std::exception& e) {
                EXPECT_EQ(steps.error, e.what());
            }
        } else if (!steps.error.empty()) {
            EXPECT_EQ(describe(steps), describe(tree));
        }
        // A second run meets warm resolution caches and must not change its answer.
        Outcome again = run([&](FastScalarValue& out) {
            return script.runFastSteps(c.expression, c.tokens, c.analyses, out);
        });
        EXPECT_EQ(describe(again), describe(steps));
    }
    EXPECT_GT(stepped, 80);
    EXPECT_GT(answered, 60);
}

TEST(FastSteps, CallsAndStringsStayWithTheNodes) {
    for (const char* text : {"f(1) + 1", "'a' + 1", "x['k'](2)", "a + #f(1)", "t[f(1)]"}) {
        SCOPED_TRACE(text);
        Compiled c = compile(text);
        ASSERT_TRUE(c.expression.valid);
        EXPECT_TRUE(c.expression.steps.empty());
    }
    Compiled key = compile("tbl['k'] + 1");
    EXPECT_FALSE(key.expression.steps.empty());
}

TEST(FastSteps, DeepExpressionsKeepToTheNodes) {
    // Thirty operands waiting on the stack for their right sides: more than the steps keep.
    std::string text = "1";
    for (int i = 0; i < 30; ++i) text = "(a * a) - (" + text + ")";
    Compiled c = compile(text);
    ASSERT_TRUE(c.expression.valid);
    EXPECT_TRUE(c.expression.steps.empty());
    Compiled flat = compile("a + a + a + a + a + a + a + a + a + a + a + a + a + a + a + a + a + a + a + a");
    EXPECT_FALSE(flat.expression.steps.empty());
}

TEST(FastSteps, ArithmeticBetweenCallsGivesWhatTheNodesGive) {
    OrvaneScript script;
    setGlobals(script);
    script.pushFunction("id", [](const VariableArray& args) { return args.empty() ? Variable() : args[0]; });
    auto describeRun = [&](Compiled& c) {
        try {
            return script.evaluateFastExpressionNode(c.expression, c.expression.root, c.tokens, c.analyses).toString();
        } catch (const std::exception& e) {
            return std::string("error ") + e.what();
        }
    };
    int withSteps = 0;
    for (const char* text : {"id(a - 1) + id(b * 2)", "id(f - 1)", "id(t + 1)", "id(big + 1)", "id(a % z)",
                             "id(s - 1)", "id(a \\ 2) * id(-a % 3)", "id(arr[1] + 1)", "id(missing + 1)",
                             "id(#arr - 1)", "id(f \\ 2)", "id(g % 0)"}) {
        SCOPED_TRACE(text);
        Compiled stepped = compile(text);
        ASSERT_TRUE(stepped.expression.valid);
        if (!stepped.expression.subtreeStepLists.empty()) ++withSteps;
        Compiled plain = compile(text);
        plain.expression.subtreeSteps.clear();
        plain.expression.subtreeStepLists.clear();
        EXPECT_EQ(describeRun(stepped), describeRun(plain));
    }
    EXPECT_GT(withSteps, 8);
}
