// The evaluator: number rules as scripts see them, run-time error texts with their lines,
// multiple results, assignment order, loops, closures and the limits on recursion.
#include <gtest/gtest.h>

#include "lua/Runtime.h"
#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

using testing::errorOf;
using testing::outputOf;
using testing::textOf;
using testing::valueOf;

TEST(LuaNumbers, WholeResultsBecomeIntegersAndDivisionIsFloat) {
    EXPECT_EQ(valueOf("return 1.5 + 1.5").type(), LuaValueType::Integer);
    EXPECT_EQ(valueOf("return 0.1 + 0.2").type(), LuaValueType::Float);
    EXPECT_EQ(textOf("return 0.1 + 0.2 == 0.3"), "false");
    EXPECT_EQ(valueOf("return 6 / 2").type(), LuaValueType::Float);
    EXPECT_EQ(textOf("return 6 / 2"), "3");
    EXPECT_EQ(valueOf("return 6 / 2 + 1").type(), LuaValueType::Integer);
    EXPECT_EQ(valueOf("return 2.0").type(), LuaValueType::Float);
    EXPECT_EQ(valueOf("return 2.5 * 2").type(), LuaValueType::Integer);
    EXPECT_EQ(valueOf("return 0.5 - 0.5").type(), LuaValueType::Integer);
    EXPECT_EQ(textOf("return 1 / 3"), "0.333333");
    EXPECT_EQ(textOf("return 1000000 / 1"), "1e+06");
}

TEST(LuaNumbers, OverflowTakesTheFloatPathAndSaturates) {
    LuaValue sum = valueOf("return 9223372036854775807 + 1");
    EXPECT_EQ(sum.type(), LuaValueType::Integer);
    EXPECT_EQ(sum.asInteger(), INT64_MAX);
    EXPECT_EQ(valueOf("return 9223372036854775807 * 2").type(), LuaValueType::Float);
    EXPECT_EQ(valueOf("return -9223372036854775807 - 10").type(), LuaValueType::Integer);
    LuaValue negated = valueOf("local x = -9223372036854775807 - 1 return -x");
    EXPECT_EQ(negated.type(), LuaValueType::Integer);
    EXPECT_EQ(negated.asInteger(), INT64_MAX);
    EXPECT_EQ(textOf("local x = 5 return -x"), "-5");
}

TEST(LuaNumbers, ModuloTruncatesTowardZero) {
    EXPECT_EQ(textOf("return -7 % 3"), "-1");
    EXPECT_EQ(textOf("return 7 % -3"), "1");
    LuaValue mixed = valueOf("return 5 % 3.5");
    EXPECT_EQ(mixed.type(), LuaValueType::Float);
    EXPECT_DOUBLE_EQ(mixed.asFloat(), 1.5);
    EXPECT_EQ(valueOf("return 7.5 % 2.5").type(), LuaValueType::Integer);
    EXPECT_EQ(textOf("local m = -9223372036854775807 - 1 return m % -1"), "0");
    EXPECT_EQ(textOf("local m = -9223372036854775807 - 1 local d = -1 return m % d"), "0");
}

TEST(LuaNumbers, EqualityAcrossIntegerAndFloatHasATolerance) {
    EXPECT_EQ(textOf("return 1 == 1.0"), "true");
    EXPECT_EQ(textOf("return 1 == 1.0000000000000002"), "true");
    EXPECT_EQ(textOf("return 1.0 == 1.0000000000000002"), "false");
    EXPECT_EQ(textOf("return 'a' == 'a', {} == {}, nil == false"), "[true, false, false]");
    EXPECT_EQ(textOf("return 2 < 2.5, 'a' < 'b', 'b' <= 'a', 3 >= 3"), "[true, true, false, true]");
}

TEST(LuaNumbers, TableKeysFollowTheNumberRules) {
    EXPECT_EQ(textOf("local t = {} t[1.0] = 'x' return t[1]"), "x");
    EXPECT_EQ(textOf("local t = {} t[2] = 'y' return t[2.0]"), "y");
    EXPECT_EQ(errorOf("local t = {} t[1.5] = 1"), "t:1: table index must be a number, string, or boolean");
    EXPECT_EQ(errorOf("local t = {[1.5] = 1}"), "t:1: table keys must be numbers, strings, or booleans");
    EXPECT_EQ(errorOf("local t = {} return t[{}]"), "t:1: table index must be a number, string, or boolean");
    EXPECT_EQ(textOf("local t = {} t[true] = 1 t['true'] = 2 return t[true]"), "1");
}

TEST(LuaRuntimeErrors, TextsAndLines) {
    struct Case {
        const char* source;
        const char* error;
    };
    const Case cases[] = {
        {"return -{}", "t:1: unary '-' expects a number"},
        {"return #5", "t:1: length operator expects a string or table"},
        {"return {} + 1", "t:1: operator '+' expects numbers"},
        {"return 1 - 'x'", "t:1: operator '-' expects numbers"},
        {"return '10' + 1", "t:1: operator '+' expects numbers"},
        {"return nil * 2", "t:1: operator '*' expects numbers"},
        {"return true / 2", "t:1: operator '/' expects numbers"},
        {"return {} % 2", "t:1: operator '%' expects numbers"},
        {"return 1 / 0", "t:1: division by zero"},
        {"return 1 / 0.0000000000000001", "t:1: division by zero"},
        {"return 5 % 0", "t:1: modulo by zero"},
        {"return 5.5 % 0.0", "t:1: modulo by zero"},
        {"return 1 < '2'", "t:1: ordered comparisons require matching numbers or strings"},
        {"return {} < {}", "t:1: ordered comparisons require matching numbers or strings"},
        {"local f\nf()", "t:2: attempt to call a nil value"},
        {"local t = {}\n\nt.x()", "t:3: attempt to call a nil value"},
        {"return (5)()", "t:1: attempt to call a number value"},
        {"local x\nreturn x.y", "t:2: attempt to index a nil value"},
        {"return (true)[1]", "t:1: attempt to index a boolean value"},
        {"local n = 3 n.x = 1", "t:1: attempt to assign into a number value"},
        {"return ('abc'):upper()", "t:1: string indexing only supports library methods"},
        {"return ('x').len", "t:1: string indexing only supports library methods"},
        {"return ('x')[1]", "t:1: string indexing only supports library methods"},
        {"return io.stdout[1]", "t:1: userdata fields must be strings"},
        {"for i = 1, 'x' do end", "t:1: numeric for loop expects numeric bounds"},
        {"for i = 1, 3, 0 do end", "t:1: numeric for step cannot be zero"},
        {"for i = 1.0, 3, 0.0 do end", "t:1: numeric for step cannot be zero"},
        {"for k, v in {} do end", "t:1: generic for loop expects an iterator"},
        {"for k, v in next, {} do end", "t:1: generic for loop expects an iterator"},
        {"local t = {}\nt.x.y = 1", "t:2: attempt to assign into a nil value"},
        {"local t = {}\nt.x.y.z = 1", "t:2: attempt to index a nil value"},
        {"local g = string.gmatch('a', 'a') g()", "t:1: attempt to call a iterator value"},
        {"local function f()\n  local x = nil + 1\nend\nf()", "t:2: operator '+' expects numbers"},
    };
    for (const auto& c : cases) EXPECT_EQ(errorOf(c.source), c.error) << c.source;
}

TEST(LuaRuntimeErrors, ClosuresCannotBeMadeInLoopBodies) {
    EXPECT_EQ(errorOf("for i = 1, 2 do local f = function() end end"),
              "attempted to capture a non-owning OrvaneLua environment");
    EXPECT_EQ(errorOf("local i = 0 while i < 1 do i = i + 1 function g() end end"),
              "attempted to capture a non-owning OrvaneLua environment");
    // An if block in a loop body that could make a closure fails the same way.
    EXPECT_EQ(errorOf("for i = 1, 2 do if i then local f = function() end end end"),
              "attempted to capture a non-owning OrvaneLua environment");
    EXPECT_EQ(textOf("return pcall(function() for i = 1, 2 do local f = function() end end end)"),
              "[false, attempted to capture a non-owning OrvaneLua environment]");
    // The way out: the loop calls a function that makes them.
    EXPECT_EQ(textOf(R"(
        local fs = {}
        local function make(i) return function() return i * 10 end end
        for i = 1, 3 do fs[i] = make(i) end
        return fs[1]() + fs[2]() + fs[3]())"),
              "60");
}

TEST(LuaEvaluator, MultipleResultsAndAdjustment) {
    const std::string f = "local function f() return 1, 2 end local function g(a, b, c) return b end ";
    EXPECT_EQ(textOf(f + "local t = {f()} return #t"), "1");
    EXPECT_EQ(textOf(f + "return g(f()), g(f(), 3), g((f()))"), "[2, 3, 2]");
    EXPECT_EQ(textOf(f + "local a, b = f() return a + b"), "3");
    EXPECT_EQ(textOf("local a, b = 1 return b == nil"), "true");
    EXPECT_EQ(textOf("local function f() end local a = f() return a == nil"), "true");
    EXPECT_EQ(textOf("local function f() return 1, 2, 3 end return f()"), "[1, 2, 3]");
    EXPECT_EQ(textOf(f + "return f(), 10"), "[1, 10]");
    EXPECT_EQ(textOf("local function f(a, b) return b end return f(1, 2, 3, 4)"), "2");
    EXPECT_EQ(textOf("local t = {} function t.m(self, x) return x end return t:m(5, 6)"), "5");
}

TEST(LuaEvaluator, AssignmentEvaluatesAllValuesFirst) {
    EXPECT_EQ(textOf("local t = {} local i = 1 i, t[i] = 2, 3 return t[2], t[1]"), "[3]");
    EXPECT_EQ(textOf("local a, b = 1, 2 a, b = b, a return a * 10 + b"), "21");
    EXPECT_EQ(textOf("x, y, z = 1, 2 return z == nil"), "true");
}

TEST(LuaEvaluator, ShortCircuitAndConcatenation) {
    EXPECT_EQ(textOf("return (nil and error('no')) == nil, false or 'x', 1 and 2, nil or false"),
              "[true, x, 2, false]");
    EXPECT_EQ(textOf("return nil .. 'x'"), "nilx");
    EXPECT_EQ(textOf("return 1 .. 2.5 .. true"), "12.5true");
    EXPECT_EQ(textOf("return not nil, not 0, not ''"), "[true, false, false]");
}

TEST(LuaEvaluator, Loops) {
    EXPECT_EQ(textOf("local n = 0 for i = 3, 1 do n = n + 1 end return n"), "0");
    EXPECT_EQ(outputOf("for i = 1.5, 3 do print(i) end"), "1.5\n2.5\n");
    EXPECT_EQ(valueOf("local last for i = 1.0, 3 do last = i end return last").type(), LuaValueType::Integer);
    EXPECT_EQ(textOf("local s = 0 for i = 10, 1, -3 do s = s + i end return s"), "22");
    EXPECT_EQ(textOf("local n = 0 for i = 1, 3 do i = 10 n = n + 1 end return n"), "3");
    EXPECT_EQ(textOf("local n = 0 for i = 9223372036854775806, 9223372036854775807 do n = n + 1 end return n"), "2");
    EXPECT_EQ(textOf("local i = 0 while true do i = i + 1 if i == 5 then break end end return i"), "5");
    EXPECT_EQ(textOf("local s = 0 for i = 1, 3 do for j = 1, 3 do if j == 2 then break end s = s + j end end return s"),
              "3");
    // Locals of a loop body start as nil on every iteration.
    EXPECT_EQ(textOf("local seen = 0 for i = 1, 3 do local x if x then seen = seen + 1 end x = 1 end return seen"), "0");
    EXPECT_EQ(textOf("local t = {} for k, v in pairs({10, 20, 30}) do t[#t + 1] = k * v end return t"), "[10, 40, 90]");
    EXPECT_EQ(textOf("local n = 0 for i, v in ipairs({1, nil, 3}) do n = n + 1 end return n"), "1");
}

TEST(LuaEvaluator, ReturnFromNestedBlocks) {
    EXPECT_EQ(textOf("local function f(x) if x > 0 then if x > 5 then return 'big' end return 'small' end end "
                     "return f(10), f(1), f(-1)"),
              "[big, small]");
    EXPECT_EQ(textOf("local function f() for i = 1, 10 do while true do return i end end end return f()"), "1");
    EXPECT_EQ(textOf("local function f() return end return f() == nil"), "true");
    EXPECT_EQ(textOf("return"), "nil");
    EXPECT_EQ(errorOf("local function f() break end for i = 1, 2 do f() end"), "t:1: break outside a loop");
    EXPECT_EQ(errorOf("break"), "t:1: break outside a loop");
}

TEST(LuaEvaluator, BlocksWithoutLocalsReachOuterVariables) {
    // if blocks without locals or closures share their parent's environment; every lookup
    // through them must still land on the right variable.
    EXPECT_EQ(textOf(R"(
        local a = 1
        local function f(x)
          if x > 0 then
            if x > 1 then
              a = a + x
              while x > 5 do x = x - 1 a = a + 1 end
            else
              a = a * 10
            end
          end
          return a
        end
        local function g(x) if x then if true then local y = x * 2 if y > 2 then return y + a end end end end
        return f(1), f(3), f(8), g(2), g(false))"),
              "[10, 13, 24, 28]");
}

TEST(LuaEvaluator, ClosuresShareLiveVariables) {
    EXPECT_EQ(textOf(R"(
        local function counter()
          local n = 0
          local function inc() n = n + 1 return n end
          local function get() return n end
          return inc, get
        end
        local inc, get = counter()
        inc() inc()
        local inc2 = counter()
        inc2()
        return get())"),
              "2");
    EXPECT_EQ(textOf("local x = 1 local function f() return x end x = 5 return f()"), "5");
    EXPECT_EQ(textOf("function make() local v = 7 return function() return v end end return make()()"), "7");
}

TEST(LuaEvaluator, GlobalsPersistAcrossRunsAndAfterErrors) {
    LuaVM vm;
    EXPECT_FALSE(vm.runScriptString("counter = 1 error('stop') counter = 2").success);
    EXPECT_EQ(testing::valueOf(vm, "return counter").asInteger(), 1);
    EXPECT_EQ(testing::valueOf(vm, "local hidden = 5 return hidden").asInteger(), 5);
    EXPECT_TRUE(testing::valueOf(vm, "return hidden").isNil());
    EXPECT_EQ(testing::valueOf(vm, "function twice(x) return x * 2 end return 1").asInteger(), 1);
    EXPECT_EQ(testing::valueOf(vm, "return twice(21)").asInteger(), 42);
}

TEST(LuaEvaluator, InlineCachesSeeEveryWrite) {
    EXPECT_EQ(textOf(R"(
        local t = {x = 1}
        local s = 0
        for i = 1, 5 do
          s = s + t.x + t['x']
          t.x = t.x + 1
        end
        t = {x = 100}
        return s + t.x + t['x'])"),
              "230");
    EXPECT_EQ(textOf("local r = 0 for i = 1, 3 do local t = {k = i} r = r + t.k end return r"), "6");
}

TEST(LuaLimits, RunawayRecursionIsAnErrorResult) {
    LuaVM vm;
    std::string error = errorOf(vm, "local function f(n) return f(n + 1) + 1 end return f(1)");
    EXPECT_EQ(error, "t:1: stack overflow");
    EXPECT_EQ(textOf("local function f(n) if n == 0 then return 0 end return 1 + f(n - 1) end return f(150)"), "150");
    // Through pcall, and the VM is usable afterwards.
    EXPECT_EQ(testing::valueOf(vm, "local function f() return f() end return pcall(f)").toString(),
              "[false, stack overflow]");
    EXPECT_EQ(testing::valueOf(vm, "return 1").asInteger(), 1);
    // Mutual recursion through the library.
    EXPECT_EQ(errorOf("local function f(t) table.sort(t, function(a, b) return f(t) end) end f({1, 2})"),
              "t:1: stack overflow");
}

TEST(LuaLimits, DeepExpressionsInsideDeepRecursionStayWithinTheStack) {
    // A tree 90 additions deep at every level of the recursion.
    std::string nested = "0";
    for (int i = 0; i < 90; ++i) nested += " + (0";
    nested += " + f(n - 1)" + std::string(90, ')');
    std::string source = "local function f(n) if n == 0 then return 0 end return " + nested + " end return f(1000)";
    EXPECT_EQ(errorOf(source), "t:1: stack overflow");
}

TEST(LuaLimits, StepBudgetStopsEndlessLoops) {
    LuaVM vm;
    LuaVMInternals::impl(vm).stepsLeft = 1000;
    EXPECT_EQ(errorOf(vm, "while true do end"), "t:1: step budget exhausted");
}

}  // namespace
}  // namespace orvane::lua
