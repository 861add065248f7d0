// The "ORBC" reader against what the writer makes, and against bytes that no compiler makes:
// truncated, corrupted, with counts too large for the file, with jumps out of range and stack
// underflows. Every one must end in a failed result with a message, never in a crash.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "RubyTestSupport.h"

namespace orvane::ruby {
namespace {

using testing::describe;
using testing::ForgedConstant;
using testing::ForgedFunction;
using testing::ForgedInstruction;
using testing::ForgedProgram;

enum Op : uint8_t {
    LoadConstant = 0, LoadName, StoreName, Pop, Add, Subtract, Multiply, Divide, Modulo, Negate, Not, Equal,
    NotEqual, Less, LessEqual, Greater, GreaterEqual, And, Or, Jump, JumpIfFalse, Call, DefineFunction, Return,
    MakeArray, Index
};

std::string runBytes(const RubyBytecode& bc) {
    RubyVM vm;
    return describe(vm.runBytecode(bc));
}

std::string runForged(std::vector<ForgedInstruction> code, std::vector<ForgedConstant> constants = {}) {
    ForgedProgram p;
    p.constants = std::move(constants);
    p.functions[0].instructions = std::move(code);
    return runBytes(p.bytes());
}

const char* kCorpus =
    "def fib(n) if n < 2 then return n end return fib(n - 1) + fib(n - 2) end\n"
    "x = [1, 2.5, \"three\", true, nil]\n"
    "m = map_new() table_set(m, \"k\", fib(10))\n"
    "i = 0 while i < 3 do i = i + 1 end\n"
    "if x[0] == 1 then y = \"one\" elsif false then y = 2 else y = 3 end\n"
    "s = -i + (not false) * 2 / 1 % 7\n"
    "[x, m[\"k\"], i, y, s, fib]";

TEST(RubyBytecode, RoundTripGivesTheSameBytes) {
    RubyVM vm;
    RubyBytecode bc = vm.compileScript(kCorpus, "corpus");
    EXPECT_EQ(rewriteRubyBytecode(bc).bytes, bc.bytes);
    EXPECT_EQ(describe(vm.runBytecode(bc)),
              "array [[1, 2.5, three, true, nil], 55, 3, one, -1, [function fib]]");
    EXPECT_EQ(describe(vm.runBytecode(rewriteRubyBytecode(bc))),
              "array [[1, 2.5, three, true, nil], 55, 3, one, -1, [function fib]]");
    auto info = describeRubyBytecode(bc);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info[0].name, "<main>");
    EXPECT_EQ(info[1].name, "fib");
    EXPECT_EQ(info[1].parameters, std::vector<std::string>{"n"});
    EXPECT_TRUE(info[0].verified && info[1].verified);
}

TEST(RubyBytecode, BooleanConstantsReadAnyNonZeroAsTrue) {
    ForgedProgram p;
    p.constants = {ForgedConstant{3, {2}}};
    p.functions[0].instructions = {{LoadConstant, 0}, {Return}};
    EXPECT_EQ(runBytes(p.bytes()), "boolean true");
    RubyBytecode again = rewriteRubyBytecode(p.bytes());
    // Magic, version, chunk "a" (8 to 12), constant count (13 to 16), then the tag and payload.
    ASSERT_EQ(again.bytes.size(), p.bytes().bytes.size());
    EXPECT_EQ(again.bytes[17], 3u);
    EXPECT_EQ(again.bytes[18], 1u);
    ForgedProgram q;
    q.constants = {ForgedConstant{3, {0}}};
    q.functions[0].instructions = {{LoadConstant, 0}, {Return}};
    EXPECT_EQ(runBytes(q.bytes()), "boolean false");
}

TEST(RubyBytecode, HeaderAndCountErrors) {
    RubyBytecode bc;
    bc.bytes = {'O', 'R', 'B', 'C', 1, 0, 0};
    EXPECT_EQ(runBytes(bc), "error: bytecode file is too small");
    bc.bytes = {'O', 'R', 'B', 'C', 1, 0, 0, 0};
    EXPECT_EQ(runBytes(bc), "error: bytecode is truncated");
    bc.bytes = {'O', 'L', 'B', 'C', 1, 0, 0, 0};
    EXPECT_EQ(runBytes(bc), "error: invalid bytecode header");
    bc.bytes = {'O', 'R', 'B', 'C', 2, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(runBytes(bc), "error: unsupported bytecode version");
    EXPECT_EQ(runBytes(RubyBytecode{}), "error: bytecode file is too small");

    ForgedProgram none;
    none.functions.clear();
    EXPECT_EQ(runBytes(none.bytes()), "error: bytecode contains no entry function");

    ForgedProgram badTag;
    badTag.constants = {ForgedConstant{5, {}}};
    EXPECT_EQ(runBytes(badTag.bytes()), "error: bytecode constant type is not supported");

    // Counts that the rest of the file can't hold end before anything is reserved for them.
    RubyBytecode good = ForgedProgram().bytes();
    auto setU32 = [](RubyBytecode b, size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) b.bytes[at + i] = static_cast<uint8_t>(v >> (8 * i));
        return b;
    };
    EXPECT_EQ(runBytes(setU32(good, 8, 0xFFFFFFF0u)), "error: bytecode string exceeds file size");   // chunk name
    EXPECT_EQ(runBytes(setU32(good, 13, 0xFFFFFFFFu)), "error: bytecode is truncated");             // constants
    EXPECT_EQ(runBytes(setU32(good, 17, 0x7FFFFFFFu)), "error: bytecode is truncated");             // functions
    EXPECT_EQ(runBytes(setU32(good, 21, 0x10000u)), "error: bytecode string exceeds file size");     // name
    EXPECT_EQ(runBytes(setU32(good, 31, 0x40000000u)), "error: bytecode is truncated");             // parameters
    EXPECT_EQ(runBytes(setU32(good, 35, 0x13B13B13u)), "error: bytecode is truncated");             // instructions

    // Bytes behind the last function are ignored.
    RubyBytecode padded = good;
    padded.bytes.insert(padded.bytes.end(), {1, 2, 3});
    EXPECT_EQ(runBytes(padded), "nil");
}

TEST(RubyBytecode, EveryTruncationFailsWithAMessage) {
    RubyVM vm;
    RubyBytecode bc = vm.compileScript(kCorpus, "corpus");
    for (size_t size = 0; size < bc.bytes.size(); ++size) {
        RubyBytecode cut;
        cut.bytes.assign(bc.bytes.begin(), bc.bytes.begin() + static_cast<long>(size));
        RubyResult result = vm.runBytecode(cut);
        EXPECT_FALSE(result.success) << size;
        EXPECT_TRUE(result.error == "bytecode file is too small" || result.error == "bytecode is truncated" ||
                    result.error == "bytecode string exceeds file size")
            << size << ": " << result.error;
    }
}

TEST(RubyBytecode, CorruptedBytesNeverCrash) {
    RubyVM vm;
    RubyLimits limits;
    limits.maxSteps = 20000;
    limits.maxStringBytes = 1 << 16;
    limits.maxArrayLength = 1 << 12;
    vm.setLimits(limits);
    RubyBytecode original = vm.compileScript(kCorpus, "corpus");
    std::mt19937 random(20240611);
    int failures = 0;
    for (int round = 0; round < 3000; ++round) {
        RubyBytecode bc = original;
        int flips = 1 + static_cast<int>(random() % 4);
        for (int i = 0; i < flips; ++i) {
            size_t at = 4 + random() % (bc.bytes.size() - 4);
            bc.bytes[at] = static_cast<uint8_t>(random());
        }
        RubyResult result = vm.runBytecode(bc);
        if (!result.success) {
            ++failures;
            EXPECT_FALSE(result.error.empty());
        }
    }
    EXPECT_GT(failures, 0);
}

TEST(RubyBytecode, OperandFaultsRaiseWhenTheyRun) {
    const auto str = ForgedConstant::string;
    const auto num = ForgedConstant::integer;
    EXPECT_EQ(runForged({{Jump, 5}}), "error: a:1: jump target is out of range");
    EXPECT_EQ(runForged({{Jump, -1}}), "error: a:1: jump target is out of range");
    EXPECT_EQ(runForged({{LoadConstant, 0}, {JumpIfFalse, 9}}, {ForgedConstant::nil()}),
              "error: a:1: conditional jump target is out of range");
    // A conditional jump that isn't taken never looks at its target.
    EXPECT_EQ(runForged({{LoadConstant, 0}, {JumpIfFalse, 9}, {LoadConstant, 0}, {Return}}, {num(4)}), "integer 4");
    EXPECT_EQ(runForged({{Pop, 0, 0, 3}}), "error: a:3: stack underflow");
    EXPECT_EQ(runForged({{LoadConstant, 0}, {Add, 0, 0, 2}}, {num(1)}), "error: a:2: stack underflow");
    EXPECT_EQ(runForged({{Negate}}), "error: a:1: stack underflow");
    EXPECT_EQ(runForged({{Index}}), "error: a:1: stack underflow");
    EXPECT_EQ(runForged({{StoreName, 0}}, {str("x")}), "error: a:1: assignment requires a value");
    EXPECT_EQ(runForged({{LoadConstant, 7}}), "error: a:1: constant index is out of range");
    EXPECT_EQ(runForged({{LoadName, 0}}, {num(1)}), "error: a:1: constant is not a string");
    EXPECT_EQ(runForged({{LoadName, 3}}), "error: a:1: constant index is out of range");
    EXPECT_EQ(runForged({{LoadConstant, 0}, {StoreName, 0}}, {num(1)}), "error: a:1: constant is not a string");
    EXPECT_EQ(runForged({{LoadName, 0}, {Call, -1}}, {str("puts")}), "error: a:1: argument count is invalid");
    EXPECT_EQ(runForged({{LoadName, 0}, {Call, 3}}, {str("puts")}), "error: a:1: call stack is incomplete");
    EXPECT_EQ(runForged({{MakeArray, -2}}), "error: a:1: array element count is invalid");
    EXPECT_EQ(runForged({{LoadConstant, 0}, {MakeArray, 2}}, {num(1)}), "error: a:1: array literal is missing values");
    EXPECT_EQ(runForged({{DefineFunction, 0, 9}, {LoadName, 0}, {Call, 0}, {Return}}, {str("f")}),
              "error: a:0: function index is out of range");
    EXPECT_EQ(runForged({{DefineFunction, 1, 0}}, {str("f")}), "error: a:1: constant index is out of range");
    // Opcodes above the last do nothing.
    EXPECT_EQ(runForged({{200}, {LoadConstant, 0}, {99}, {Return}}, {num(8)}), "integer 8");
    // Return on an empty stack gives nil.
    EXPECT_EQ(runForged({{Return}}), "nil");
    // A function that is never called can't fail the program.
    ForgedProgram p;
    p.constants = {num(3)};
    p.functions[0].instructions = {{LoadConstant, 0}, {Return}};
    ForgedFunction broken;
    broken.name = "broken";
    broken.instructions = {{Jump, 77}, {Pop}};
    p.functions.push_back(broken);
    EXPECT_EQ(runBytes(p.bytes()), "integer 3");
    auto info = describeRubyBytecode(p.bytes());
    EXPECT_TRUE(info[0].verified);
    EXPECT_FALSE(info[1].verified);
}

TEST(RubyBytecode, UnsoundFunctionsRunOnTheCheckedRoad) {
    const auto num = ForgedConstant::integer;
    // Two paths reach instruction 4 with different stack depths: not provable, still runnable.
    ForgedProgram p;
    p.constants = {num(1), num(2), ForgedConstant{3, {1}}};
    p.functions[0].instructions = {{LoadConstant, 2}, {JumpIfFalse, 4}, {LoadConstant, 0}, {LoadConstant, 1},
                                   {Return}};
    auto info = describeRubyBytecode(p.bytes());
    EXPECT_FALSE(info[0].verified);
    EXPECT_EQ(runBytes(p.bytes()), "integer 2");
    // Unreachable garbage behind a return doesn't spoil the proof.
    ForgedProgram q;
    q.constants = {num(5)};
    q.functions[0].instructions = {{LoadConstant, 0}, {Return}, {Pop}, {Jump, 1000}, {LoadConstant, 99}};
    EXPECT_TRUE(describeRubyBytecode(q.bytes())[0].verified);
    EXPECT_EQ(runBytes(q.bytes()), "integer 5");
    // A loop that grows the stack on each turn is refused by the proof and stopped by the steps.
    ForgedProgram r;
    r.constants = {num(5)};
    r.functions[0].instructions = {{LoadConstant, 0}, {Jump, 0}};
    EXPECT_FALSE(describeRubyBytecode(r.bytes())[0].verified);
    RubyVM vm;
    RubyLimits limits;
    limits.maxSteps = 10000;
    vm.setLimits(limits);
    EXPECT_EQ(describe(vm.runBytecode(r.bytes())), "error: step limit exceeded");
}

TEST(RubyBytecode, LargeForgedFramesCannotMultiply) {
    // A function that holds 50000 values on its stack and calls itself: on either road the
    // frames run into their bound long before memory does.
    const auto num = ForgedConstant::integer;
    const auto str = ForgedConstant::string;
    for (bool proven : {true, false}) {
        ForgedProgram p;
        p.constants = {num(1), str("big")};
        ForgedFunction big;
        big.name = "big";
        // A conditional jump far past the end, never taken, keeps the proof from holding.
        if (!proven) {
            big.instructions.push_back({LoadConstant, 0});
            big.instructions.push_back({JumpIfFalse, 1 << 30});
        }
        for (int i = 0; i < 50000; ++i) big.instructions.push_back({LoadConstant, 0});
        for (int i = 0; i < 50000; ++i) big.instructions.push_back({Pop});
        big.instructions.push_back({LoadName, 1});
        big.instructions.push_back({Call, 0});
        big.instructions.push_back({Return});
        p.functions.push_back(big);
        p.functions[0].instructions = {{DefineFunction, 1, 1}, {LoadName, 1}, {Call, 0}, {Return}};
        EXPECT_EQ(describeRubyBytecode(p.bytes())[1].verified, proven);
        EXPECT_EQ(runBytes(p.bytes()), "error: stack level too deep") << proven;
    }
}

TEST(RubyBytecode, ForgedFastFormsStaySafe) {
    const auto num = ForgedConstant::integer;
    const auto str = ForgedConstant::string;
    // A function of one very deep expression: far too deep for a tree, fine for the loop.
    ForgedProgram p;
    p.constants = {num(1), str("deep")};
    ForgedFunction deep;
    deep.name = "deep";
    deep.instructions.push_back({LoadConstant, 0});
    for (int i = 0; i < 100000; ++i) deep.instructions.push_back({Negate});
    deep.instructions.push_back({Return});
    p.functions.push_back(deep);
    p.functions[0].instructions = {{DefineFunction, 1, 1}, {LoadName, 1}, {Call, 0}, {Return}};
    EXPECT_EQ(describeRubyBytecode(p.bytes())[1].fastKind, 0);
    EXPECT_EQ(runBytes(p.bytes()), "integer 1");
    // A fast function whose global name is no string fails with the broken-program message.
    ForgedProgram q;
    q.constants = {num(1), str("g")};
    ForgedFunction g;
    g.name = "g";
    g.instructions = {{LoadName, 0}, {Return}};
    q.functions.push_back(g);
    q.functions[0].instructions = {{DefineFunction, 1, 1}, {LoadName, 1}, {Call, 0}, {Return}};
    EXPECT_EQ(describeRubyBytecode(q.bytes())[1].fastKind, 1);
    EXPECT_EQ(runBytes(q.bytes()), "error: a:1: global name constant is invalid");
    RubyVM vm;
    vm.setExecutionMode(RubyExecutionMode::NoFastNodes);
    EXPECT_EQ(describe(vm.runBytecode(q.bytes())), "error: a:1: constant is not a string");
}

}  // namespace
}  // namespace orvane::ruby
