// Fast nodes: which functions get a fast form, and that the fast form, the unchecked loop and
// the checked loop give the same results and errors on every function of a corpus.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RubyTestSupport.h"

namespace orvane::ruby {
namespace {

using testing::describe;
using testing::run;

RubyFunctionInfo functionInfo(const std::string& source) {
    RubyVM vm;
    auto info = describeRubyBytecode(vm.compileScript(source));
    EXPECT_GE(info.size(), 2u) << source;
    return info.size() >= 2 ? info[1] : RubyFunctionInfo{};
}

TEST(RubyFastNodes, WhichFunctionsGetAFastForm) {
    struct Expect {
        const char* source;
        int kind;
        size_t nodes;
    };
    const Expect cases[] = {
        {"def f(a, b) return a + b * 2 end", 1, 5},
        {"def f() return 1 end", 1, 1},
        {"def f() return end", 1, 1},
        {"def f(a) return [a, a] end", 1, 3},
        {"def f(a) return -a == not a end", 1, 5},
        {"def f(a) return a[0] end", 0, 0},
        {"def f(a) return g(a) end", 0, 0},
        {"def f(a) return a and 1 end", 0, 0},
        {"def f(a) return a or 1 end", 0, 0},
        {"def f(x) x + 1 end", 0, 0},
        {"def f(a) x = a return x end", 0, 0},
        {"def f(a) if a < 0 error(\"neg\") end return a end", 2, 4},
        {"def f(a) if a < 0 then error(\"neg\") end\n return a end", 2, 4},
        {"def f(a) if a < 0 then error(\"neg\") else 1 end return a end", 0, 0},
        {"def f(a) if a < 0 then error(\"neg\") end if a > 9 then error(\"big\") end return a end", 0, 0},
        {"def f(a) if a < 0 then error(a) end return a end", 0, 0},
        {"def f(a) if a < 0 then error(\"x\", 1) end return a end", 0, 0},
        {"def f() if true error(\"x\") end return 1 end", 2, 2},
        {"def f(a) if a then error(\"x\") end end", 0, 0},
        {"def f(a) if a then error(\"x\") end return a[0] end", 0, 0},
        // A parameter called `error` would be called by the instructions; the fast form calls
        // only the global, so it isn't built.
        {"def f(error) if error then error(\"x\") end return 1 end", 0, 0},
    };
    for (const Expect& c : cases) {
        RubyFunctionInfo info = functionInfo(c.source);
        EXPECT_EQ(info.fastKind, c.kind) << c.source;
        EXPECT_EQ(info.fastNodeCount, c.nodes) << c.source;
        EXPECT_TRUE(info.verified) << c.source;
    }
    EXPECT_EQ(functionInfo("def f(a) if a < 0 error(\"neg\") end return a end").fastErrorMessage, "neg");
    // The entry function never has one.
    RubyVM vm;
    EXPECT_EQ(describeRubyBytecode(vm.compileScript("return 1"))[0].fastKind, 0);
}

TEST(RubyFastNodes, GlobalsAreReadLikeTheLoopReadsThem) {
    for (RubyExecutionMode mode : {RubyExecutionMode::Fast, RubyExecutionMode::NoFastNodes, RubyExecutionMode::Checked}) {
        RubyVM vm;
        vm.setExecutionMode(mode);
        EXPECT_EQ(run(vm, "def f() return x end"), "nil");
        EXPECT_EQ(run(vm, "f()"), "error: <string>:1: undefined variable or function 'x'");
        EXPECT_EQ(run(vm, "\nf()"), "error: <string>:1: undefined variable or function 'x'");
        EXPECT_EQ(run(vm, "x = 4 f()"), "integer 4");
        EXPECT_EQ(run(vm, "x = \"later\" f()"), "string later");
        EXPECT_EQ(run(vm, "x = nil f()"), "nil");
    }
}

TEST(RubyFastNodes, WrongCountsAndTheirLocations) {
    const std::string source = "def one(a) return a end\ndef two(a) if a then error(\"no\") end return a end\n";
    RubyVM vm;
    EXPECT_EQ(run(vm, source), "nil");
    EXPECT_EQ(run(vm, "one(1, 2)"), "error: <string>:0: function 'one' expected 1 arguments but received 2");
    EXPECT_EQ(run(vm, "two()"), "error: <string>:0: function 'two' expected 1 arguments but received 0");
    EXPECT_EQ(run(vm, "pcall(one)"), "array [false, <string>:0: function 'one' expected 1 arguments but received 0]");
    // The guarded form answers pcall without the location: one of its named differences.
    EXPECT_EQ(run(vm, "pcall(two)"), "array [false, function 'two' expected 1 arguments but received 0]");
    vm.setExecutionMode(RubyExecutionMode::NoFastNodes);
    EXPECT_EQ(run(vm, "pcall(two)"), "array [false, <string>:0: function 'two' expected 1 arguments but received 0]");
}

TEST(RubyFastNodes, AReplacedErrorFunction) {
    const std::string source =
        "def check(a) if a < 0 then error(\"negative\") end return a * 10 end\n"
        "def error(m) return 0 end\n";
    for (RubyExecutionMode mode : {RubyExecutionMode::Fast, RubyExecutionMode::NoFastNodes, RubyExecutionMode::Checked}) {
        RubyVM vm;
        vm.setExecutionMode(mode);
        EXPECT_EQ(run(vm, source + "check(-1)"), "integer -10");
    }
    // Under pcall the guarded form answers with the message itself and calls no replacement.
    RubyVM fast;
    EXPECT_EQ(run(fast, source + "pcall(check, -1)"), "array [false, negative]");
    RubyVM plain;
    plain.setExecutionMode(RubyExecutionMode::NoFastNodes);
    EXPECT_EQ(run(plain, source + "pcall(check, -1)"), "array [true, -10]");
    // With the global error gone altogether.
    RubyVM gone;
    EXPECT_EQ(run(gone, "def check(a) if a < 0 then error(\"negative\") end return a end\nerror = nil\ncheck(-1)"),
              "error: <string>:0: attempted to call a non-function value");
}

// Every function of this corpus is called with every combination of the value pool, in all
// three modes, directly and under pcall; the three must agree on each result and error.
const char* kCorpus = R"(
def k0() return 1 end
def k1() return nil end
def k2() return [1, "two", 3.0, nil, true] end
def c0(a) return a end
def c1(a) return a + 1 end
def c2(a) return a - 1 end
def c3(a) return a * a end
def c4(a) return 10 / a end
def c5(a) return a % 3 end
def c6(a) return -a end
def c7(a) return not a end
def c8(a) return a == 1 end
def c9(a) return a != nil end
def c10(a) return a < 2 end
def c11(a) return a <= "m" end
def c12(a) return a > 0.5 end
def c13(a) return a >= -1 end
def c14(a) return [a, [a, -a]] end
def c15(a) return a + "!" end
def c16(a) return "<" + a + ">" end
def c17(a) return g + a end
def c18(a) return missing + a end
def c19(a) return a + a * a - a / 4 % 2 end
def b0(a, b) return a + b end
def b1(a, b) return a - b * 2 end
def b2(a, b) return a / b end
def b3(a, b) return a % b end
def b4(a, b) return a == b end
def b5(a, b) return a != b end
def b6(a, b) return a < b end
def b7(a, b) return [b, a] + [a] end
def b8(a, b) return -(a * b) == -a * b end
def b9(a, b) return a + b + g end
def t0(a, b, c) return a * b + c end
def t1(a, b, c) return [a == b, b == c, a < c] end
def g0(a) if a < 0 then error("negative") end return a * 2 end
def g1(a) if not a then error("falsy") end return [a] end
def g2(a, b) if a == b then error("same") end return a - b end
def g3(a) if a + 1 then error("sum") end return 0 end
def g4(a) if g then error("global") end return a end
def g5(a) if missing then error("never") end return a end
def g6(a) if a > 1 then error("") end return a end
def s0(a) if a then return 1 else return 2 end end
def s1(a) x = a + 1 return x * 2 end
def s2(a) return a[0] end
def s3(a) x = 0 while x < 3 do x = x + 1 end return x + a end
def s4(a, b) if a < b then return b end return a end
def s5(a) a end
def s6(a) return len(a) end
g = 5
)";

std::vector<RubyValue> valuePool() {
    RubyMap map;
    map["k"] = RubyValue(1);
    return {RubyValue(0),
            RubyValue(1),
            RubyValue(-7),
            RubyValue(2.5),
            RubyValue(-0.0),
            RubyValue(true),
            RubyValue(false),
            RubyValue(),
            RubyValue("ab"),
            RubyValue("3"),
            RubyValue(RubyArray{RubyValue(1), RubyValue("x")}),
            RubyValue(map),
            RubyValue(static_cast<int64_t>(INT64_MAX)),
            RubyValue(1e300)};
}

void combinations(const std::vector<RubyValue>& pool, size_t arity, size_t limit, std::vector<RubyValue>& current,
                  std::vector<std::vector<RubyValue>>& out) {
    if (current.size() == arity) {
        out.push_back(current);
        return;
    }
    for (size_t i = 0; i < pool.size() && i < limit; ++i) {
        current.push_back(pool[i]);
        combinations(pool, arity, limit, current, out);
        current.pop_back();
    }
}

TEST(RubyFastNodes, FastFormAgreesWithTheInstructionList) {
    const RubyExecutionMode modes[] = {RubyExecutionMode::Fast, RubyExecutionMode::NoFastNodes,
                                       RubyExecutionMode::Checked};
    RubyVM vms[3];
    for (int m = 0; m < 3; ++m) {
        vms[m].setExecutionMode(modes[m]);
        ASSERT_EQ(run(vms[m], kCorpus), "integer 5");
    }
    auto info = describeRubyBytecode(vms[0].compileScript(kCorpus));
    const auto pool = valuePool();
    int fastFunctions = 0, guarded = 0, compared = 0;
    for (const RubyFunctionInfo& function : info) {
        if (function.name == "<main>") continue;
        fastFunctions += function.fastKind != 0;
        guarded += function.fastKind == 2;
        const size_t arity = function.parameters.size();
        std::vector<std::vector<RubyValue>> argumentSets;
        std::vector<RubyValue> current;
        combinations(pool, arity, arity >= 3 ? 6 : pool.size(), current, argumentSets);
        // One set with a count the function doesn't take.
        argumentSets.push_back(std::vector<RubyValue>(arity + 1, RubyValue(1)));
        for (const auto& args : argumentSets) {
            std::string results[3];
            std::string underPcall[3];
            for (int m = 0; m < 3; ++m) {
                RubyValue callee;
                ASSERT_TRUE(vms[m].getGlobal(function.name, callee));
                results[m] = describe(vms[m].call(callee, args));
                // The same call from a script, through pcall, with the count right.
                if (args.size() == arity) {
                    std::string call = "pcall(" + function.name;
                    for (size_t i = 0; i < args.size(); ++i) {
                        vms[m].setGlobal("arg" + std::to_string(i), args[i]);
                        call += ", arg" + std::to_string(i);
                    }
                    underPcall[m] = run(vms[m], call + ")");
                }
            }
            std::string shown = function.name + "(";
            for (size_t i = 0; i < args.size(); ++i) shown += (i ? ", " : "") + args[i].toString();
            shown += ")";
            EXPECT_EQ(results[0], results[2]) << shown;
            EXPECT_EQ(results[1], results[2]) << shown;
            EXPECT_EQ(underPcall[0], underPcall[2]) << shown;
            EXPECT_EQ(underPcall[1], underPcall[2]) << shown;
            ++compared;
        }
    }
    // The corpus exercises both fast kinds and the loop.
    EXPECT_GE(fastFunctions, 40);
    EXPECT_EQ(guarded, 7);
    EXPECT_GT(compared, 2000);
}

}  // namespace
}  // namespace orvane::ruby
