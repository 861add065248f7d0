// The lexer and parser through the VM: every refusal carries the chunk name, line, column and
// message; what the dialect does not have fails where its rules say.
#include <gtest/gtest.h>

#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

using testing::errorOf;
using testing::textOf;
using testing::valueOf;

struct SyntaxCase {
    const char* source;
    const char* error;
};

TEST(LuaSyntax, ErrorsCarryLineColumnAndMessage) {
    const SyntaxCase cases[] = {
        // scanner
        {"x = ~1", "t:1:5: unexpected '~'"},
        {"x = a ^ b", "t:1:7: unexpected character '^'"},
        {"x = 1 & 2", "t:1:7: unexpected character '&'"},
        {"x = \"abc", "t:1:5: unterminated string literal"},
        {"x = 'abc\\", "t:1:5: unterminated string escape"},
        {"x = [[abc]", "t:1:5: unterminated long string literal"},
        {"--[[ never closed", "t:1:5: unterminated long string literal"},
        {"local a = 1\nlocal b =\n  @", "t:3:3: unexpected character '@'"},
        {"\tx = `", "t:1:6: unexpected character '`'"},
        {"#!/bin/sh\n", "t:1:2: unexpected character '!'"},
        {"#t", "t:1:1: expected expression"},
        // statements
        {"if x print(1) end", "t:1:6: expected 'then' after if condition"},
        {"if x then elseif y print() end", "t:1:20: expected 'then' after elseif condition"},
        {"if x then", "t:1:10: expected 'end' after if statement"},
        {"while x print() end", "t:1:9: expected 'do' after while condition"},
        {"while x do", "t:1:11: expected 'end' after while loop"},
        {"for = 1, 2 do end", "t:1:5: expected loop variable name"},
        {"for i = 1 2 do end", "t:1:11: expected ',' after numeric for start value"},
        {"for i = 1, 2 print() end", "t:1:14: expected 'do' after numeric for range"},
        {"for i = 1, 2 do", "t:1:16: expected 'end' after numeric for loop"},
        {"for k, 1 in x do end", "t:1:8: expected loop variable name"},
        {"for k v do end", "t:1:7: expected 'in' in generic for loop"},
        {"for k in x print() end", "t:1:12: expected 'do' after generic for iterator"},
        {"for k in x do", "t:1:14: expected 'end' after generic for loop"},
        {"function 1() end", "t:1:10: expected function name"},
        {"function a.1() end", "t:1:12: expected field name after '.'"},
        {"function a:1() end", "t:1:12: expected method name after ':'"},
        {"local function 1() end", "t:1:16: expected local function name"},
        {"local 1 = 2", "t:1:7: expected local variable name"},
        {"function f end", "t:1:12: expected '(' after function name"},
        {"f = function end", "t:1:14: expected '(' after function name"},
        {"function f(1) end", "t:1:12: expected parameter name"},
        {"function f(a b) end", "t:1:14: expected ')' after parameter list"},
        {"function f()", "t:1:13: expected 'end' after function body"},
        {"x, y", "t:1:5: expected '=' in assignment"},
        {"x y", "t:1:3: expected function call"},
        {"f() = 1", "t:1:5: invalid assignment target"},
        {"x, f() = 1, 2", "t:1:8: invalid assignment target"},
        {"x, 1 = 1, 2", "t:1:6: invalid assignment target"},
        // suffixes, primaries, tables
        {"x = t.1", "t:1:7: expected field name after '.'"},
        {"x = t[1", "t:1:8: expected ']' after index expression"},
        {"x = t:1()", "t:1:7: expected method name after ':'"},
        {"obj:m \"hi\"", "t:1:7: expected '(' before arguments"},
        {"f(1", "t:1:4: expected ')' after arguments"},
        {"x = (1", "t:1:7: expected ')' after expression"},
        {"x = {[1 = 2}", "t:1:9: expected ']' after table key"},
        {"x = {[1] 2}", "t:1:10: expected '=' after table key"},
        {"x = {1 2}", "t:1:8: expected '}' after table constructor"},
        {"x = { , }", "t:1:7: expected expression"},
    };
    for (const auto& c : cases) EXPECT_EQ(errorOf(c.source), c.error) << c.source;
}

TEST(LuaSyntax, WhatTheDialectLeavesOut) {
    // Attributes end the local statement; the rest is a statement that can't begin so.
    EXPECT_EQ(errorOf("local x <const> = 1"), "t:1:9: expected expression");
    // No floor division: the second slash starts nothing.
    EXPECT_EQ(errorOf("x = a // b"), "t:1:8: expected expression");
    // No exponents: 1e5 is 1 and then the name e5, which is no call.
    EXPECT_EQ(errorOf("x = 1e5"), "t:1:8: expected function call");
    // Calls always need parentheses.
    EXPECT_EQ(errorOf("print \"hi\""), "t:1:7: expected function call");
    EXPECT_EQ(errorOf("print {1}"), "t:1:7: expected function call");
    // No varargs, no do-blocks, no repeat; a stray end.
    EXPECT_EQ(errorOf("f = function(a, ...) end"), "t:1:17: expected parameter name");
    EXPECT_EQ(errorOf("do x = 1 end"), "t:1:1: expected expression");
    EXPECT_EQ(errorOf("end"), "t:1:1: expected expression");
    EXPECT_EQ(errorOf("repeat x = 1 until x"), "t:1:8: expected function call");
    // goto is a plain name.
    EXPECT_EQ(textOf("local goto = 3 return goto"), "3");
}

TEST(LuaSyntax, AcceptedForms) {
    EXPECT_TRUE(valueOf("").isNil());
    EXPECT_TRUE(valueOf(";;; -- only a comment\n--[[ and a long one ]] ;").isNil());
    EXPECT_EQ(textOf("local t = { 1, } local u = { 1; 2; } return #t + #u"), "3");
    // A long string keeps a leading newline; levels do not exist.
    EXPECT_EQ(textOf("return #[[\na]]"), "2");
    EXPECT_EQ(textOf("local t = {} t[ [[k]] ] = 5 return t.k"), "5");
    // Escapes: the named ones, a zero byte, and any other byte as itself.
    EXPECT_EQ(textOf("return \"a\\tb\\\\c\\'d\\q\""), "a\tb\\c'dq");
    EXPECT_EQ(textOf("return #\"\\65\""), "2");
    EXPECT_EQ(textOf("return #'\\0'"), "1");
    // A literal can be indexed and called on.
    EXPECT_EQ(textOf("return {1, 2}[2]"), "2");
    // Parentheses make no node: (a) = 1 is an assignment.
    EXPECT_EQ(textOf("(a) = 4 return a"), "4");
    // return need not be last; what follows is parsed and never runs.
    EXPECT_EQ(textOf("return 1 print(2)"), "1");
    // break is accepted anywhere by the parser.
    EXPECT_TRUE(LuaVM().compileScript("if x then break end").bytes.size() > 0);
    // Method declarations gain self.
    EXPECT_EQ(textOf("local a = {b = {}} function a.b:m(x) return self == a.b and x end return a.b:m(7)"), "7");
}

TEST(LuaSyntax, NumberLiterals) {
    EXPECT_EQ(textOf("return 0x10"), "16");
    EXPECT_EQ(textOf("return 0xFFFFFFFFFFFFFFFF"), "-1");
    EXPECT_EQ(textOf("return 0xFFFFFFFFFFFFFFFFFF"), "-1");
    EXPECT_EQ(textOf("return 0x8000000000000000"), "-9223372036854775808");
    EXPECT_EQ(textOf("return 9223372036854775807"), "9223372036854775807");
    EXPECT_EQ(errorOf("return 9223372036854775808"), "stoll");
    EXPECT_EQ(textOf("return 0x"), "0");
    EXPECT_EQ(valueOf("return 2.0").type(), LuaValueType::Float);
    EXPECT_EQ(textOf("return 1.25"), "1.25");
    // 1..2 is a concatenation; 1.2.3 is a float, a dot and 3.
    EXPECT_EQ(textOf("return 1 ..2"), "12");
    EXPECT_EQ(errorOf("x = 1.2.3"), "t:1:9: expected field name after '.'");
}

TEST(LuaSyntax, DeepNestingFailsInOrder) {
    std::string deep = "return " + std::string(5000, '(') + "1" + std::string(5000, ')');
    EXPECT_NE(errorOf(deep).find("syntax nesting is too deep"), std::string::npos);
    std::string chain = "return 1";
    for (int i = 0; i < 20000; ++i) chain += " + 1";
    EXPECT_NE(errorOf(chain).find("syntax nesting is too deep"), std::string::npos);
    std::string blocks;
    for (int i = 0; i < 3000; ++i) blocks += "if true then ";
    for (int i = 0; i < 3000; ++i) blocks += "end ";
    EXPECT_NE(errorOf(blocks).find("syntax nesting is too deep"), std::string::npos);
    std::string unary = "return ";
    for (int i = 0; i < 5000; ++i) unary += "not ";
    unary += "1";
    EXPECT_NE(errorOf(unary).find("syntax nesting is too deep"), std::string::npos);
    std::string fields = "return t";
    for (int i = 0; i < 5000; ++i) fields += ".a";
    EXPECT_NE(errorOf(fields).find("syntax nesting is too deep"), std::string::npos);
    // Nesting well inside the limit is fine.
    EXPECT_EQ(textOf("return " + std::string(100, '(') + "1" + std::string(100, ')')), "1");
}

TEST(LuaSyntax, CompileScriptRaisesTheSameText) {
    LuaVM vm;
    try {
        vm.compileScript("if x", "chunk");
        FAIL() << "no error";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "chunk:1:5: expected 'then' after if condition");
    }
}

}  // namespace
}  // namespace orvane::lua
