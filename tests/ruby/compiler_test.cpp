// The lexer and compiler, seen through the bytes they make and the errors they raise.
#include <gtest/gtest.h>

#include <string>

#include "RubyTestSupport.h"

namespace orvane::ruby {
namespace {

using testing::describe;
using testing::listing;
using testing::readBytes;
using testing::run;

std::string compileError(const std::string& source) {
    RubyVM vm;
    try {
        vm.compileScript(source);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(compiled)";
}

testing::ReadProgram compiled(const std::string& source, const std::string& chunk = "<string>") {
    RubyVM vm;
    return readBytes(vm.compileScript(source, chunk));
}

TEST(RubyCompiler, WhileLoopMakesTheWorkedInstructionList) {
    auto p = compiled("while x < 3 x = x + 1 end");
    ASSERT_EQ(p.functions.size(), 1u);
    EXPECT_EQ(p.functions[0].name, "<main>");
    EXPECT_EQ(p.constants, (std::vector<std::string>{"\"x\"", "3", "\"x\"", "1", "\"x\""}));
    EXPECT_EQ(listing(p.functions[0]),
              "LoadName 0; LoadConstant 1; Less; JumpIfFalse 10; LoadName 2; LoadConstant 3; Add; StoreName 4; Pop; "
              "Jump 0");
}

TEST(RubyCompiler, AssignmentFileIsByteForByte) {
    RubyVM vm;
    RubyBytecode bc = vm.compileScript("x = 1", "a");
    const std::vector<uint8_t> expected = {
        0x4F, 0x52, 0x42, 0x43, 1, 0, 0, 0, 1, 0, 0, 0, 'a', 2, 0, 0, 0,     // header, name, 2 constants
        1, 1, 0, 0, 0, 0, 0, 0, 0,                                           // integer 1
        4, 1, 0, 0, 0, 'x',                                                  // "x"
        1, 0, 0, 0, 6, 0, 0, 0, '<', 'm', 'a', 'i', 'n', '>', 0, 0, 0, 0,    // one function, no parameters
        3, 0, 0, 0,                                                          // 3 instructions
        0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0,                               // LoadConstant 0
        2, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0,                               // StoreName 1
        3, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};                              // Pop
    EXPECT_EQ(bc.bytes.size(), 93u);
    EXPECT_EQ(bc.bytes, expected);
}

TEST(RubyCompiler, EmptySourceIsOnlyTheEntryFunction) {
    RubyVM vm;
    RubyBytecode bc = vm.compileScript("", "a");
    EXPECT_EQ(bc.bytes.size(), 39u);
    auto p = readBytes(bc);
    ASSERT_EQ(p.functions.size(), 1u);
    EXPECT_TRUE(p.functions[0].instructions.empty());
    EXPECT_TRUE(p.constants.empty());
    EXPECT_EQ(describe(vm.runBytecode(bc)), "nil");
    EXPECT_EQ(run("  \n;; # only a comment\n"), "nil");
}

TEST(RubyCompiler, SyntaxErrorsNameTheirPlace) {
    const std::pair<std::string, std::string> cases[] = {
        {"a[0] = 1", "<string>:1:6: expected expression"},
        {"[1, 2,]", "<string>:1:7: expected expression"},
        {"x = {}", "<string>:1:5: unexpected character '{'"},
        {"a.b", "<string>:1:2: unexpected character '.'"},
        {"x = 1.", "<string>:1:6: unexpected character '.'"},
        {"a : b", "<string>:1:3: unexpected character ':'"},
        {"\"a\nb\"", "<string>:1:1: unterminated string literal"},
        {"x = 'abc", "<string>:1:5: unterminated string literal"},
        {"x = 'ab\\", "<string>:1:5: unterminated string escape"},
        {"a & b", "<string>:1:3: unexpected '&', use '&&'"},
        {"a | b", "<string>:1:3: unexpected '|', use '||'"},
        {"if x\n  y", "<string>:2:4: expected 'end' after if block"},
        {"if x y else z", "<string>:1:14: expected 'end' after if block"},
        {"while x", "<string>:1:8: expected 'end' after while block"},
        {"def", "<string>:1:4: expected function name after 'def'"},
        {"def 1", "<string>:1:5: expected function name after 'def'"},
        {"def f(1)", "<string>:1:7: expected parameter name"},
        {"def f(a b)", "<string>:1:9: expected ')' after parameter list"},
        {"def f(a)", "<string>:1:9: expected 'end' after function body"},
        {"f(1", "<string>:1:4: expected ')' after arguments"},
        {"f(1\n)", "<string>:1:4: expected ')' after arguments"},
        {"a[1", "<string>:1:4: expected ']' after index expression"},
        {"(1", "<string>:1:3: expected ')' after expression"},
        {"[1", "<string>:1:3: expected ']' after array literal"},
        {"end", "<string>:1:1: expected expression"},
        {"x = ", "<string>:1:5: expected expression"},
        {"\n\n  1 +", "<string>:3:6: expected expression"},
        {"x = 1\r\ny = (", "<string>:2:6: expected expression"},
        {"x = 1\ry = )", "<string>:2:5: expected expression"},
        {"# a comment\n x = \xC3\xA9", "<string>:2:6: unexpected character '\xC3'"},
        {"99999999999999999999", "stoll"},
        {"x = 1" + std::string(400, '0') + ".5", "stod"},
    };
    for (const auto& [source, message] : cases) EXPECT_EQ(compileError(source), message) << source;
}

TEST(RubyCompiler, ChunkNameLeadsEveryError) {
    RubyVM vm;
    EXPECT_EQ(describe(vm.runScriptString("1 +", "game.rb")), "error: game.rb:1:4: expected expression");
    EXPECT_EQ(describe(vm.runScriptString("x = y", "game.rb")), "error: game.rb:1: undefined variable or function 'y'");
}

TEST(RubyCompiler, DeepNestingIsAnErrorNotACrash) {
    EXPECT_NE(compileError(std::string(5000, '(') + "1" + std::string(5000, ')')).find("nesting is too deep"),
              std::string::npos);
    EXPECT_NE(compileError(std::string(100000, '-') + "1").find("nesting is too deep"), std::string::npos);
    std::string ifs;
    for (int i = 0; i < 3000; ++i) ifs += "if true\n";
    EXPECT_NE(compileError(ifs).find("nesting is too deep"), std::string::npos);
    // Nesting well inside the limit compiles and runs.
    EXPECT_EQ(run(std::string(60, '(') + "1" + std::string(60, ')')), "integer 1");
    // A long chain of binary operators is a loop in the compiler, not recursion.
    std::string sum = "1";
    for (int i = 0; i < 20000; ++i) sum += " + 1";
    EXPECT_EQ(run(sum), "integer 20001");
}

TEST(RubyCompiler, ClauseSeparatorsAreOptionalAndEquivalent) {
    auto body = [](const std::string& source) { return listing(compiled(source).functions[0]); };
    std::string plain = body("if x\ny\nend");
    EXPECT_EQ(body("if x then y end"), plain);
    EXPECT_EQ(body("if x do y end"), plain);
    EXPECT_EQ(body("if x; y; end"), plain);
    EXPECT_EQ(body("while x do y end"), body("while x\n y\nend"));
    // Statements need no separator between them.
    EXPECT_EQ(run("x = 1 y = 2 x + y"), "integer 3");
    // `def f` and `def f()` both take no parameters.
    EXPECT_EQ(run("def f\n 7\nend\nf()"), "integer 7");
    EXPECT_EQ(run("def f() end f()"), "nil");
}

TEST(RubyCompiler, IfChainsJumpPastTheWholeStatement) {
    auto p = compiled("if a\n1\nelsif b\n2\nelse\n3\nend");
    EXPECT_EQ(listing(p.functions[0]),
              "LoadName 0; JumpIfFalse 5; LoadConstant 1; Pop; Jump 12; LoadName 2; JumpIfFalse 10; LoadConstant 3; "
              "Pop; Jump 12; LoadConstant 4; Pop");
    // Each jump has the line of its own if or elsif.
    EXPECT_EQ(p.functions[0].instructions[4].line, 1u);
    EXPECT_EQ(p.functions[0].instructions[9].line, 3u);
    EXPECT_EQ(run("a = false b = true if a then 1 elsif b then 2 else 3 end"), "integer 2");
    EXPECT_EQ(run("a = false b = false if a then 1 elsif b then 2 else 3 end"), "integer 3");
}

TEST(RubyCompiler, ReturnWithoutValueGivesNil) {
    EXPECT_EQ(run("def f() return end f()"), "nil");
    EXPECT_EQ(run("def f()\n return\n 5\nend\nf()"), "nil");
    EXPECT_EQ(run("def f(a) if a then return else return 2 end end f(true)"), "nil");
    EXPECT_EQ(run("def f(a) if a then 1 elsif true then return end end f(false)"), "nil");
    EXPECT_EQ(run("def f() return 1 + 2 end f()"), "integer 3");
    EXPECT_EQ(listing(compiled("return").functions[0]), "LoadConstant 0; Return");
}

TEST(RubyCompiler, FunctionsComeIntoBeingWhenTheirDefRuns) {
    EXPECT_EQ(run("f()\ndef f() 1 end"), "error: <string>:1: undefined variable or function 'f'");
    auto p = compiled("def outer()\n def inner() 2 end\n 1\nend");
    ASSERT_EQ(p.functions.size(), 3u);
    EXPECT_EQ(p.functions[1].name, "outer");
    EXPECT_EQ(p.functions[2].name, "inner");
    EXPECT_EQ(listing(p.functions[0]), "DefineFunction 3 1");
    // The name's constant follows the body's.
    EXPECT_EQ(p.constants.back(), "\"outer\"");
    EXPECT_EQ(run("def outer()\n def inner() 2 end\n 1\nend\nouter()\ninner()"), "integer 2");
    EXPECT_EQ(run("def outer()\n def inner() 2 end\n 1\nend\ninner()"),
              "error: <string>:5: undefined variable or function 'inner'");
}

TEST(RubyCompiler, RunTimeErrorsCarryTheLineOfTheirInstruction) {
    EXPECT_EQ(run("a = 1\nb = nil\n\nc = a - b"), "error: <string>:4: operator '-' expects numeric values");
    EXPECT_EQ(run("a = [1]\n\na[-1]"), "error: <string>:3: array index must be non-negative");
    EXPECT_EQ(run("x = 5\n# note\nx()"), "error: <string>:3: attempted to call a non-function value");
    auto p = compiled("x = 1\ny = -x\nz = [x]");
    for (const auto& ins : p.functions[0].instructions) {
        if (ins.opcode == 9) {
            EXPECT_EQ(ins.line, 2u);  // Negate
        }
        if (ins.opcode == 24) {
            EXPECT_EQ(ins.line, 3u);  // MakeArray
        }
    }
}

TEST(RubyCompiler, EveryLiteralIsItsOwnConstant) {
    auto p = compiled("1 1 \"s\" \"s\" true nil");
    EXPECT_EQ(p.constants, (std::vector<std::string>{"1", "1", "\"s\"", "\"s\"", "true", "nil"}));
    EXPECT_EQ(listing(p.functions[0]),
              "LoadConstant 0; Pop; LoadConstant 1; Pop; LoadConstant 2; Pop; LoadConstant 3; Pop; LoadConstant 4; Pop; "
              "LoadConstant 5; Pop");
}

TEST(RubyCompiler, CallWithoutParenthesesIsTwoStatements) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run("puts \"x\""), "string x");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(RubyCompiler, AndOrEvaluateBothSides) {
    const std::string prelude = "calls = [0]\ndef bump() table_set(calls, 0, calls[0] + 1) return true end\n";
    EXPECT_EQ(run(prelude + "r = true || bump()\n[r, calls[0]]"), "array [true, 1]");
    EXPECT_EQ(run(prelude + "r = false and bump()\n[r, calls[0]]"), "array [false, 1]");
    EXPECT_EQ(run("1 and \"x\""), "boolean true");
    EXPECT_EQ(run("nil or false"), "boolean false");
    EXPECT_EQ(run("not nil"), "boolean true");
    EXPECT_EQ(run("!!0"), "boolean true");
}

TEST(RubyCompiler, NamesAndEscapes) {
    EXPECT_EQ(run("empty? = 1 save! = 2 empty? + save!"), "integer 3");
    EXPECT_EQ(run("break = 4 break"), "integer 4");
    EXPECT_EQ(run("'a\\'b' + \"\\\"\\\\\\n\\t\\r\\q\""), "string a'b\"\\\n\t\rq");
    EXPECT_EQ(run("len(\"a#b\") # trailing"), "integer 3");
    EXPECT_EQ(run("-2 * -3 - -1"), "integer 7");
    EXPECT_EQ(run("2 + 3 * 4 % 5 - 6 / 4"), "float 2.5");
    EXPECT_EQ(run("1 < 2 == 2 > 1"), "boolean true");
    EXPECT_EQ(run("0.5 + 007"), "float 7.5");
}

TEST(RubyCompiler, LocalsAreEveryNameAFunctionAssigns) {
    RubyVM vm;
    RubyBytecode bc = vm.compileScript("def f(a, b)\n c = a\n if b then d = 1 end\n return e\nend\nx = 1");
    auto info = describeRubyBytecode(bc);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_TRUE(info[0].localNames.empty());  // top level: all globals
    EXPECT_EQ(info[1].localNames, (std::vector<std::string>{"a", "b", "c", "d"}));
    EXPECT_TRUE(info[0].verified);
    EXPECT_TRUE(info[1].verified);
}

}  // namespace
}  // namespace orvane::ruby
