// The stack VM: the value rules at the operators, names and globals, calls, pcall and error,
// limits, and the public operations of RubyVM.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "RubyTestSupport.h"

namespace orvane::ruby {
namespace {

using testing::describe;
using testing::run;

struct Case {
    const char* source;
    const char* expected;
};

void expectAll(std::initializer_list<Case> cases) {
    for (const Case& c : cases) {
        RubyVM vm;
        EXPECT_EQ(run(vm, c.source), c.expected) << c.source;
    }
}

TEST(RubyValues, ArithmeticRules) {
    expectAll({
        {"1 + 2.0", "float 3"},
        {"7 / 2", "float 3.5"},
        {"6 / 2", "float 3"},
        {"7 % 3", "integer 1"},
        {"-7 % 3", "integer -1"},
        {"7 % -3", "integer 1"},
        {"(-9223372036854775807 - 1) % -1", "integer 0"},
        {"(-9223372036854775807 - 1) / -1", "float 9.22337e+18"},
        {"5.5 % 2", "float 1.5"},
        {"-5.5 % 2", "float -1.5"},
        {"true + 1", "float 2"},
        {"true * 2", "float 2"},
        {"true + true", "float 2"},
        {"false - 1", "float -1"},
        {"9223372036854775807 + 1", "integer -9223372036854775808"},
        {"(-9223372036854775807 - 1) - 1", "integer 9223372036854775807"},
        {"4611686018427387904 * 4", "integer 0"},
        {"-(-9223372036854775807 - 1)", "integer -9223372036854775808"},
        {"-true", "float -1"},
        {"-2.5", "float -2.5"},
        {"0.1 + 0.2", "float 0.3"},
        {"1000000.0 * 10", "float 1e+07"},
        {"1 / 3", "float 0.333333"},
    });
}

TEST(RubyValues, ArithmeticErrorsAreLocated) {
    expectAll({
        {"\"2\" * 3", "error: <string>:1: operator '*' expects numeric values"},
        {"nil - 1", "error: <string>:1: operator '-' expects numeric values"},
        {"[1] / 1", "error: <string>:1: operator '/' expects numeric values"},
        {"1 % \"a\"", "error: <string>:1: operator '%' expects numeric values"},
        {"1 + nil", "error: <string>:1: operator '+' expects numbers, strings, or arrays"},
        {"[1] + 1", "error: <string>:1: operator '+' expects numbers, strings, or arrays"},
        {"1 / 0", "error: <string>:1: division by zero"},
        {"1 / 0.0000000000000001", "error: <string>:1: division by zero"},
        {"1 / false", "error: <string>:1: division by zero"},
        {"1 % 0", "error: <string>:1: modulo by zero"},
        {"1.5 % 0.0", "error: <string>:1: modulo by zero"},
        {"-\"a\"", "error: <string>:1: unary '-' expects a numeric value"},
        {"-nil", "error: <string>:1: unary '-' expects a numeric value"},
    });
}

TEST(RubyValues, StringsAndArraysUnderPlus) {
    expectAll({
        {"\"2\" + 3", "string 23"},
        {"1 + \"2\"", "string 12"},
        {"\"a\" + nil", "string anil"},
        {"\"a\" + 1.5", "string a1.5"},
        {"\"a\" + [1, \"b\"]", "string a[1, b]"},
        {"true + \"x\"", "string truex"},
        {"a = [1] b = [2] c = a + b; [a, b, c]", "array [[1], [2], [1, 2]]"},
        {"[] + []", "array []"},
    });
}

TEST(RubyValues, ComparisonAndEquality) {
    expectAll({
        {"\"a\" < \"b\"", "boolean true"},
        {"\"B\" < \"a\"", "boolean true"},
        {"\"ab\" <= \"ab\"", "boolean true"},
        {"\"\xC3\" > \"z\"", "boolean true"},
        {"2 >= 2.0", "boolean true"},
        {"true > false", "boolean true"},
        {"9007199254740993 > 9007199254740992", "boolean false"},
        {"1 < \"a\"", "error: <string>:1: ordered comparisons require matching numeric or string values"},
        {"nil < nil", "error: <string>:1: ordered comparisons require matching numeric or string values"},
        {"[1] == [1]", "boolean true"},
        {"[1, [2]] == [1, [2.0]]", "boolean true"},
        {"[1] == [1, 2]", "boolean false"},
        {"true == 1", "boolean true"},
        {"1 == 1.0", "boolean true"},
        {"1 == 1.0000000000000002", "boolean true"},
        {"0.1 + 0.2 == 0.3", "boolean false"},
        {"9007199254740993 == 9007199254740992", "boolean false"},
        {"nil == nil", "boolean true"},
        {"nil == false", "boolean false"},
        {"\"1\" == 1", "boolean false"},
        {"puts == puts", "boolean true"},
        {"puts != print", "boolean true"},
        {"a = map_new() b = map_new() table_set(a, \"k\", 1) table_set(b, \"k\", 1.0) a == b", "boolean true"},
        {"a = map_new() b = map_new() table_set(a, \"k\", 1) a == b", "boolean false"},
        {"math_sqrt(-1) == math_sqrt(-1)", "boolean false"},
    });
}

TEST(RubyValues, Indexing) {
    expectAll({
        {"[1, 2][5]", "nil"},
        {"[1, 2][1]", "integer 2"},
        {"[1, 2][1.9]", "integer 2"},
        {"[1, 2][true]", "integer 2"},
        {"[1, 2][-1]", "error: <string>:1: array index must be non-negative"},
        {"[1, 2][\"0\"]", "error: <string>:1: array index must be numeric"},
        {"\"abc\"[1]", "string b"},
        {"\"abc\"[3]", "nil"},
        {"\"abc\"[-1]", "error: <string>:1: array index must be non-negative"},
        {"5[0]", "error: <string>:1: indexing expects an array, map, or string"},
        {"nil[0]", "error: <string>:1: indexing expects an array, map, or string"},
        {"5[\"a\"]", "error: <string>:1: array index must be numeric"},
        {"m = map_new() table_set(m, 1, \"a\"); [m[\"1\"], m[1], m[1.0], m[2]]", "array [a, a, a, nil]"},
        {"m = map_new() table_set(m, nil, 1) table_set(m, true, 2); [m[\"nil\"], m[\"true\"]]", "array [1, 2]"},
        // A bracket right behind a call on the same line indexes the call's result.
        {"def f() return [7, 8] end f() [1]", "integer 8"},
        {"m = map_new() m[[1]]", "error: unsupported map key type"},
        {"[[1, 2], [3]][0][1]", "integer 2"},
    });
}

TEST(RubyNames, GlobalsAndLocals) {
    expectAll({
        {"x", "error: <string>:1: undefined variable or function 'x'"},
        {"if false then 1 else y end", "error: <string>:1: undefined variable or function 'y'"},
        {"x = nil x", "nil"},
        {"def f() x end f()", "error: <string>:1: undefined variable or function 'x'"},
        {"x = 1 def f() x end f()", "integer 1"},
        {"x = 1 def f()\n y = x\n x = 2\n y\nend\n[f(), x]", "array [1, 1]"},
        {"def f(a) a = a + 1 a end f(1)", "integer 2"},
        {"def f() 5 end f()", "integer 5"},
        {"def f() if false then 1 end end f()", "nil"},
        {"def f() x = 5 end f()", "integer 5"},
        {"def f() while false do 1 end end f()", "nil"},
        {"def f() 1 2 end f()", "integer 2"},
        {"x = 3", "integer 3"},
        {"def f() end", "nil"},
    });
}

TEST(RubyNames, HostGlobals) {
    RubyVM vm;
    RubyValue out;
    EXPECT_FALSE(vm.getGlobal("x", out));
    vm.setGlobal("x", RubyValue());
    EXPECT_TRUE(vm.getGlobal("x", out));
    EXPECT_TRUE(out.isNil());
    EXPECT_EQ(run(vm, "x"), "nil");
    vm.setGlobal("n", RubyValue(41));
    EXPECT_EQ(run(vm, "n = n + 1"), "integer 42");
    ASSERT_TRUE(vm.getGlobal("n", out));
    EXPECT_EQ(out.asInteger(), 42);
    EXPECT_TRUE(vm.getGlobal("_VERSION", out));
    EXPECT_EQ(out.asString(), "OrvaneRuby 0.1");
    EXPECT_EQ(run(vm, "ORVANERUBY_VERSION"), "string 0.1");
    // Globals and functions outlive the run that made them, also after a failed run.
    EXPECT_EQ(run(vm, "def twice(v) return v * 2 end kept = 7 boom()"),
              "error: <string>:1: undefined variable or function 'boom'");
    EXPECT_EQ(run(vm, "twice(kept)"), "integer 14");
}

TEST(RubyCalls, ArgumentCountsAndCallees) {
    expectAll({
        {"def f(a) a end f(1, 2)", "error: <string>:0: function 'f' expected 1 arguments but received 2"},
        {"def f(a) return a end f()", "error: <string>:0: function 'f' expected 1 arguments but received 0"},
        {"x = 5 x()", "error: <string>:1: attempted to call a non-function value"},
        {"\"f\"(1)", "error: <string>:1: attempted to call a non-function value"},
        {"def f(a, b) return [b, a] end f(1, 2)", "array [2, 1]"},
        {"def f(a, a) a end f(1, 2)", "integer 1"},
        {"def f() return g end def g() 3 end f()()", "integer 3"},
        {"def k(n) if n == 0 then return 0 end return 1 + k(n - 1) end k(500)", "integer 500"},
        {"fs = [puts, to_s] fs[1](12)", "string 12"},
        {"to_s", "function [function to_s]"},
    });
}

TEST(RubyCalls, ErrorAndPcall) {
    expectAll({
        {"error(\"x\")", "error: x"},
        {"\n\nerror(\"x\")", "error: x"},
        {"error()", "error: error"},
        {"error(12)", "error: 12"},
        {"error(1, 2)", "error: error expects between 0 and 1 arguments"},
        {"pcall(error, \"x\")", "array [false, x]"},
        {"pcall(error, \"\")", "array [false, ]"},
        {"pcall(error)", "array [false, error]"},
        {"pcall(to_s, 1)", "array [true, 1]"},
        {"pcall(1)", "array [false, pcall expects a function]"},
        {"pcall()", "error: pcall expects at least 1 arguments"},
        {"def f(a) return 10 / a end [pcall(f, 2), pcall(f, 0)]", "array [[true, 5], [false, <string>:1: division by zero]]"},
        {"def f() return g() end pcall(f)", "array [false, <string>:1: undefined variable or function 'g']"},
        {"pcall(pcall, error, \"deep\")", "array [true, [false, deep]]"},
        {"pcall(len, 1)", "array [false, len expects a string, array, or map]"},
        {"r = pcall(error, \"x\") r[0] == false", "boolean true"},
    });
}

TEST(RubyCalls, ScriptsMayReplaceLibraryFunctions) {
    expectAll({
        {"def error(m) return \"caught \" + m end error(\"x\")", "string caught x"},
        {"def puts(v) return v end puts(3)", "integer 3"},
        {"len = 4 len", "integer 4"},
        {"keep = error def error(m) 0 end pcall(keep, \"old\")", "array [false, old]"},
    });
}

TEST(RubyCalls, TableSet) {
    expectAll({
        {"m = map_new() r = table_set(m, 1, \"a\"); [r, m[\"1\"], len(m)]", "array [a, a, 1]"},
        {"a = [] table_set(a, 3, 1) a", "array [nil, nil, nil, 1]"},
        {"a = [1, 2] b = a table_set(a, 0, 9) b", "array [9, 2]"},
        {"a = [] table_set(a, 1.5, 1) a", "array [nil, 1]"},
        {"table_set([], -1, 1)", "error: table_set array index must be non-negative"},
        {"table_set([], \"1\", 1)", "error: table_set array index must be numeric"},
        {"table_set(\"s\", 1, 1)", "error: table_set expects an array or map"},
        {"table_set([], 1)", "error: table_set expects exactly 3 arguments"},
        {"table_set(map_new(), [1], 1)", "error: unsupported map key type"},
    });
}

TEST(RubyCalls, FunctionValuesOutliveTheirRun) {
    RubyVM vm;
    EXPECT_EQ(run(vm, "def add(a, b) return a + b end"), "nil");
    EXPECT_EQ(run(vm, "add(2, 3)"), "integer 5");
    RubyValue add;
    ASSERT_TRUE(vm.getGlobal("add", add));
    RubyResult result = vm.call(add, {RubyValue(4), RubyValue(5)});
    EXPECT_EQ(describe(result), "integer 9");
    EXPECT_EQ(describe(vm.call(add, {RubyValue(4)})), "error: <string>:0: function 'add' expected 2 arguments but received 1");
    EXPECT_EQ(describe(vm.call(RubyValue(3), {})), "error: <host>:0: attempted to call a non-function value");
    // Functions of different programs call each other.
    EXPECT_EQ(run(vm, "def twice(x) return add(x, x) end twice(21)"), "integer 42");
}

TEST(RubyCalls, NativeFunctions) {
    RubyVM vm;
    std::vector<RubyValue> seen;
    RubyVM* self = nullptr;
    vm.bindFunction("probe", [&](RubyVM& owner, const std::vector<RubyValue>& args) {
        self = &owner;
        seen = args;
        return RubyValue(static_cast<int64_t>(args.size()));
    });
    vm.bindFunction("fails", [](RubyVM&, const std::vector<RubyValue>&) -> RubyValue {
        throw std::runtime_error("native trouble");
    });
    EXPECT_EQ(run(vm, "probe(1, \"a\", [2])"), "integer 3");
    EXPECT_EQ(self, &vm);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[1].asString(), "a");
    EXPECT_EQ(run(vm, "probe()"), "integer 0");
    EXPECT_EQ(run(vm, "\n fails()"), "error: native trouble");
    EXPECT_EQ(run(vm, "pcall(fails)"), "array [false, native trouble]");
    // The three built-in names keep the VM's behaviour whatever is bound.
    bool called = false;
    vm.bindFunction("error", [&](RubyVM&, const std::vector<RubyValue>&) {
        called = true;
        return RubyValue();
    });
    EXPECT_EQ(run(vm, "error(\"still\")"), "error: still");
    EXPECT_FALSE(called);
    // A native function may run code in the same VM.
    vm.bindFunction("nested", [](RubyVM& owner, const std::vector<RubyValue>& args) {
        return owner.runScriptString("inner = " + args[0].toString() + " * 2 inner").value;
    });
    EXPECT_EQ(run(vm, "nested(21) + inner"), "integer 84");
    // Moving the VM moves the owner that natives receive.
    RubyVM moved(std::move(vm));
    EXPECT_EQ(run(moved, "probe(1)"), "integer 1");
    EXPECT_EQ(self, &moved);
    RubyVM assigned;
    assigned = std::move(moved);
    EXPECT_EQ(run(assigned, "probe(1, 2)"), "integer 2");
    EXPECT_EQ(self, &assigned);
    bindCppFunctionToRubyVM(assigned, "seven", [](RubyVM&, const std::vector<RubyValue>&) { return RubyValue(7); });
    EXPECT_EQ(describe(runRubyScriptString(assigned, "seven()")), "integer 7");
}

TEST(RubyCalls, FunctionsRunAgainstTheGlobalsOfTheCallingVm) {
    RubyVM first;
    RubyVM second;
    EXPECT_EQ(run(first, "a = 1 b = 2 def pick() return b end def pickSlow() x = b return x end"), "integer 2");
    RubyValue pick, pickSlow;
    ASSERT_TRUE(first.getGlobal("pick", pick));
    ASSERT_TRUE(first.getGlobal("pickSlow", pickSlow));
    EXPECT_EQ(describe(first.call(pick, {})), "integer 2");
    EXPECT_EQ(describe(first.call(pickSlow, {})), "integer 2");
    // The same functions in another VM, whose slots are laid out differently.
    second.setGlobal("b", RubyValue("second"));
    EXPECT_EQ(describe(second.call(pick, {})), "string second");
    EXPECT_EQ(describe(second.call(pickSlow, {})), "string second");
    EXPECT_EQ(describe(first.call(pickSlow, {})), "integer 2");
    EXPECT_EQ(describe(first.call(pick, {})), "integer 2");
}

TEST(RubyLimits, RecursionIsAnErrorNotAStackOverflow) {
    RubyVM vm;
    EXPECT_EQ(run(vm, "def r(n) return r(n + 1) end r(0)"), "error: stack level too deep");
    EXPECT_EQ(run(vm, "def s(n) x = s(n + 1) return x end s(0)"), "error: stack level too deep");
    EXPECT_EQ(run(vm, "pcall(r, 0)"), "array [false, stack level too deep]");
    // Recursion through a native and back, and through load.
    vm.bindFunction("again", [](RubyVM& owner, const std::vector<RubyValue>&) {
        RubyResult inner = owner.runScriptString("again()");
        if (!inner.success) throw std::runtime_error(inner.error);
        return inner.value;
    });
    EXPECT_EQ(run(vm, "again()"), "error: stack level too deep");
    EXPECT_EQ(run(vm, "def l() return load(\"l()\")() end l()"), "error: stack level too deep");
    // pcall of pcall of ... nests without a script call in between, and counts all the same.
    std::string nested = "r = pcall(";
    for (int i = 0; i < 5000; ++i) nested += "pcall, ";
    nested += "error, \"bottom\")\nlen(r)";
    EXPECT_EQ(run(vm, nested), "integer 2");
    // Deep but within the limit.
    EXPECT_EQ(run(vm, "def d(n) if n == 0 then return 0 end return d(n - 1) + 1 end d(1400)"), "integer 1400");
    RubyLimits limits;
    limits.maxCallDepth = 10;
    vm.setLimits(limits);
    EXPECT_EQ(vm.limits().maxCallDepth, 10);
    EXPECT_EQ(run(vm, "d(8)"), "integer 8");
    EXPECT_EQ(run(vm, "d(20)"), "error: stack level too deep");
}

TEST(RubyLimits, StepBudget) {
    RubyVM vm;
    RubyLimits limits;
    limits.maxSteps = 1000;
    vm.setLimits(limits);
    EXPECT_EQ(run(vm, "while true do end"), "error: step limit exceeded");
    // A run that fits, and the budget is fresh for each run.
    EXPECT_EQ(run(vm, "i = 0 while i < 900 do i = i + 1 end i"), "integer 900");
    EXPECT_EQ(run(vm, "i = 0 while i < 900 do i = i + 1 end i"), "integer 900");
    // Catching the failure doesn't buy more steps.
    EXPECT_EQ(run(vm, "def spin() while true do end end\nwhile true do pcall(spin) end"), "error: step limit exceeded");
    EXPECT_EQ(run(vm, "def f(n) if n == 0 then return 0 end return f(n - 1) end f(2000)"),
              "error: step limit exceeded");
}

TEST(RubyLimits, SizesOfStringsAndArrays) {
    RubyVM vm;
    RubyLimits limits;
    limits.maxStringBytes = 100;
    limits.maxArrayLength = 50;
    vm.setLimits(limits);
    EXPECT_EQ(run(vm, "s = \"x\" while true do s = s + s end"), "error: <string>:1: string is too long");
    EXPECT_EQ(run(vm, "a = [1] while true do a = a + a end"), "error: <string>:1: array is too long");
    EXPECT_EQ(run(vm, "table_set([], 50, 1)"), "error: array is too long");
    EXPECT_EQ(run(vm, "len(table_set([], 49, 1))"), "error: len expects a string, array, or map");
    EXPECT_EQ(run(vm, "a = [] table_set(a, 49, 1) len(a)"), "integer 50");
    EXPECT_EQ(run(vm, "a = [] table_set(a, 49, 1) table_insert(a, 2)"), "error: array is too long");
    EXPECT_EQ(run(vm, "string_gsub(\"aaaaaaaaaa\", \"a\", \"0123456789ab\")"), "error: string is too long");
    EXPECT_EQ(run(vm, "len(string_gsub(\"aaaaaaaa\", \"a\", \"0123456789ab\"))"), "integer 96");
    EXPECT_EQ(run(vm, "a = [] table_set(a, 40, \"abc\") table_concat(a, \"-\")"), "error: string is too long");
    EXPECT_EQ(run(vm, "string_format(\"%s%s\", \"" + std::string(60, 'x') + "\", \"" + std::string(60, 'y') + "\")"),
              "error: string is too long");
}

TEST(RubyValues, ContainersThatHoldThemselves) {
    RubyVM vm;
    EXPECT_EQ(run(vm, "a = [1, 2] table_set(a, 0, a) to_s(a)"), "string [[...], 2]");
    EXPECT_EQ(run(vm, "a == a"), "error: value nesting is too deep");
    EXPECT_EQ(run(vm, "m = map_new() table_set(m, \"self\", m) to_s(m)"), "string {self: {...}}");
    // Untie them, or the leak checker rightly complains at the end.
    EXPECT_EQ(run(vm, "table_set(a, 0, nil) table_set(m, \"self\", nil) to_s(a)"), "string [nil, 2]");
}

TEST(RubyValues, DeepNestingIsFreedAndRefusedWithoutExhaustingTheStack) {
    RubyVM vm;
    EXPECT_EQ(run(vm, "a = [] i = 0 while i < 200000 do a = [a] i = i + 1 end 1"), "integer 1");
    EXPECT_EQ(run(vm, "to_s(a)"), "error: value nesting is too deep");
    EXPECT_EQ(run(vm, "b = [] i = 0 while i < 200000 do b = [b] i = i + 1 end a == b"),
              "error: value nesting is too deep");
    EXPECT_EQ(run(vm, "m = map_new() i = 0 while i < 200000 do n = map_new() table_set(n, \"k\", m) m = n i = i + 1 end 1"),
              "integer 1");
    EXPECT_EQ(run(vm, "a = nil b = nil m = nil 2"), "integer 2");
}

TEST(RubyFiles, ScriptAndBytecodeFiles) {
    RubyVM vm;
    std::string dir = ::testing::TempDir();
    std::string script = dir + "/ruby_vm_test_script.rb";
    std::string code = dir + "/ruby_vm_test_code.orbc";
    {
        std::ofstream out(script);
        out << "x = 40\nx + 2\n";
    }
    EXPECT_EQ(describe(vm.runScriptFile(script)), "integer 42");
    EXPECT_EQ(describe(runRubyScriptFile(vm, script)), "integer 42");
    EXPECT_EQ(describe(vm.runScriptFile(dir + "/missing.rb")), "error: unable to open script file: " + dir + "/missing.rb");
    {
        std::ofstream out(script);
        out << "x = 1\ny = nope\n";
    }
    EXPECT_EQ(describe(vm.runScriptFile(script)), "error: " + script + ":2: undefined variable or function 'nope'");

    std::string error = "untouched";
    EXPECT_TRUE(vm.writeBytecodeFile("return 6 * 7", code, "c", &error));
    EXPECT_EQ(error, "untouched");
    EXPECT_EQ(describe(vm.runBytecodeFile(code)), "integer 42");
    EXPECT_EQ(describe(vm.runScriptFromBytecodeFile(code)), "integer 42");
    EXPECT_EQ(describe(runRubyBytecodeFile(vm, code)), "integer 42");
    EXPECT_EQ(describe(runRubyScriptFromBytecodeFile(vm, code)), "integer 42");
    EXPECT_FALSE(vm.writeBytecodeFile("1 +", code, "c", &error));
    EXPECT_EQ(error, "c:1:4: expected expression");
    EXPECT_FALSE(vm.writeBytecodeFile("1", dir + "/no/such/dir/x.orbc", "c", nullptr));
    EXPECT_FALSE(vm.writeBytecodeFile("1", dir + "/no/such/dir/x.orbc", "c", &error));
    EXPECT_EQ(error, "unable to open bytecode output file: " + dir + "/no/such/dir/x.orbc");
    EXPECT_EQ(describe(vm.runBytecodeFile(dir + "/missing.orbc")),
              "error: unable to open bytecode file: " + dir + "/missing.orbc");
    std::remove(script.c_str());
    std::remove(code.c_str());
}

TEST(RubyVmFace, ValueToStringAndCompileErrors) {
    RubyVM vm;
    EXPECT_EQ(vm.valueToString(RubyValue(RubyArray{RubyValue(1), RubyValue("a"), RubyValue()})), "[1, a, nil]");
    EXPECT_THROW(vm.compileScript("1 +"), std::runtime_error);
    EXPECT_EQ(describe(vm.runScriptString("1 +", "x")), "error: x:1:4: expected expression");
    EXPECT_EQ(vm.runScriptString("1 +", "x").value.type(), RubyValueType::Nil);
}

}  // namespace
}  // namespace orvane::ruby
