// The library as scripts see it: argument rules, conversions, the string functions with their
// pattern translation, table, math, io with files and streams, os.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "lua/Runtime.h"
#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

using testing::errorOf;
using testing::outputOf;
using testing::textOf;
using testing::valueOf;

TEST(LuaLibrary, BaseFunctions) {
    EXPECT_EQ(textOf("return _VERSION"), "OrvaneLua 0.2");
    EXPECT_EQ(textOf("return tostring(2.0), tostring(1/3), tostring(nil), tostring(true)"), "[2, 0.333333, nil, true]");
    EXPECT_EQ(textOf("return tostring(print), tostring(string.sub), tostring(function() end)"),
              "[function: print, function: sub, function: <anonymous>]");
    EXPECT_EQ(textOf("local function named() end return tostring(named)"), "function: named");
    EXPECT_EQ(textOf("local t = {} function t.f() end return tostring(t.f)"), "function: <function>");
    EXPECT_EQ(textOf("return tostring({}):sub(1, 9)"), "table: 0x");
    EXPECT_EQ(textOf("return type(1), type(1.5), type('s'), type({}), type(print), type(nil), type(true)"),
              "[number, number, string, table, function, nil, boolean]");
    EXPECT_EQ(textOf("return type(io.stdout), type(pairs({}))"), "[userdata, iterator]");
    EXPECT_EQ(textOf("return assert(1, 2)"), "[1, 2]");
    EXPECT_EQ(errorOf("assert(false)"), "t:1: assertion failed!");
    EXPECT_EQ(errorOf("assert(nil, 'custom')"), "t:1: custom");
    EXPECT_EQ(errorOf("\nerror('boom')"), "t:2: boom");
    EXPECT_EQ(errorOf("error()"), "t:1: error");
    EXPECT_EQ(errorOf("error(42, 2)"), "t:1: 42");
    EXPECT_EQ(errorOf("error({})").substr(0, 14), "t:1: table: 0x");
}

TEST(LuaLibrary, ArgumentRules) {
    EXPECT_EQ(errorOf("tostring()"), "t:1: tostring expects 1 argument");
    EXPECT_EQ(errorOf("string.rep('a', 1, 2)"), "t:1: string.rep expects 2 arguments");
    EXPECT_EQ(errorOf("string.sub('a')"), "t:1: string.sub expects between 2 and 3 arguments");
    EXPECT_EQ(errorOf("assert()"), "t:1: assert expects at least 1 arguments");
    EXPECT_EQ(errorOf("io.write()"), "t:1: io.write expects at least 1 arguments");
    EXPECT_EQ(errorOf("string.rep(5, 2)"), "t:1: string.rep expects a string argument");
    EXPECT_EQ(errorOf("string.sub('abc', '1')"), "t:1: string.sub expects a numeric argument");
    EXPECT_EQ(errorOf("string.find('abc', 'b', nil, true)"), "t:1: string.find expects a numeric argument");
    EXPECT_EQ(errorOf("math.floor('1')"), "t:1: math.floor expects a numeric argument");
    EXPECT_EQ(errorOf("pairs(5)"), "t:1: pairs expects a table");
    EXPECT_EQ(errorOf("ipairs('x')"), "t:1: ipairs expects a table");
    EXPECT_EQ(errorOf("table.concat(nil)"), "t:1: table.concat expects a table");
    EXPECT_EQ(errorOf("local f = io.stdout.write f(5, 'x')"), "t:1: stdout:write expects userdata");
}

TEST(LuaLibrary, ToNumber) {
    EXPECT_EQ(textOf("return tonumber('10', 2), tonumber('z', 36), tonumber('0x10'), tonumber(' 10'), tonumber('-7')"),
              "[2, 35, 16, 10, -7]");
    EXPECT_EQ(valueOf("return tonumber('1.5')").asFloat(), 1.5);
    EXPECT_EQ(valueOf("return tonumber('2.0')").type(), LuaValueType::Integer);
    EXPECT_EQ(valueOf("return tonumber('')").type(), LuaValueType::Integer);
    EXPECT_TRUE(valueOf("return tonumber('1.5', 16)").isNil());
    EXPECT_TRUE(valueOf("return tonumber(nil)").isNil());
    EXPECT_TRUE(valueOf("return tonumber({})").isNil());
    EXPECT_TRUE(valueOf("return tonumber('10 ')").isNil());
    EXPECT_TRUE(valueOf("return tonumber('abc')").isNil());
    EXPECT_EQ(textOf("return tonumber(7.5)"), "7.5");
    EXPECT_EQ(textOf("return tonumber('1\\0junk')"), "1");
    EXPECT_EQ(textOf("return tonumber('inf') > 1"), "true");
}

TEST(LuaLibrary, StringSubRepFormat) {
    EXPECT_EQ(textOf("return string.sub('hello', 2), string.sub('hello', -3, -2), string.sub('hello', 0)"),
              "[ello, ll, hello]");
    EXPECT_EQ(textOf("return string.sub('hello', 4, 2) == '', string.sub('', 1) == '', ('hello'):sub(2, 3)"),
              "[true, true, el]");
    EXPECT_EQ(textOf("return string.sub('hello', 2, 100), string.sub('hello', -100, 2)"), "[ello, he]");
    EXPECT_EQ(textOf("return string.rep('ab', 3), string.rep('x', 0) == '', string.rep('x', -1) == ''"),
              "[ababab, true, true]");
    EXPECT_EQ(errorOf("return string.rep('ab', 4611686018427387904)"), "t:1: string.rep result is too large");
    EXPECT_EQ(textOf("return string.format('%d|%i|%s|%f|%%', 3.9, -2, 'x', 2)"), "3|-2|x|2|%");
    EXPECT_EQ(textOf("return string.format('%f %f', 3.14159265, 0.1)"), "3.14159 0.1");
    EXPECT_EQ(textOf("return string.format('%s %s', nil, true)"), "nil true");
    EXPECT_EQ(errorOf("string.format('%x', 1)"), "t:1: unsupported format token %x");
    EXPECT_EQ(errorOf("string.format('%x')"), "t:1: missing format argument");
    EXPECT_EQ(errorOf("string.format('%5d', 1)"), "t:1: unsupported format token %5");
    EXPECT_EQ(errorOf("string.format('50%')"), "t:1: unterminated format token");
    EXPECT_EQ(errorOf("string.format('%d', 'x')"), "t:1: integer format expects a number");
    EXPECT_EQ(errorOf("string.format('%f', {})"), "t:1: float format expects a number");
}

TEST(LuaLibrary, FindMatchGsubGmatch) {
    EXPECT_EQ(textOf("return string.find('abc', 'b', 1, true)"), "[2, 2]");
    EXPECT_TRUE(valueOf("return string.find('abc', '', 10)").isNil());
    EXPECT_EQ(textOf("return string.find('abc', '', 4)"), "[4, 3]");
    EXPECT_EQ(textOf("return string.find('a.b', '.', 1, true)"), "[2, 2]");
    EXPECT_EQ(textOf("return string.find('hello world', '(o)(r)')"), "[8, 9, o, r]");
    EXPECT_EQ(textOf("return string.find('abcabc', 'b', -100)"), "[2, 2]");
    EXPECT_EQ(textOf("return string.find('abcabc', 'b', 3)"), "[5, 5]");
    EXPECT_EQ(textOf("return string.match('key=val', '(%w+)=(%w+)')"), "[key, val]");
    EXPECT_EQ(textOf("return string.match('  x42 ', '%a%d+')"), "x42");
    EXPECT_TRUE(valueOf("return string.match('abc', '%d')").isNil());
    EXPECT_EQ(textOf("return string.match('abc', '()b') == ''"), "true");
    EXPECT_EQ(textOf("return string.match('abcabc', '^b', 2)"), "b");
    EXPECT_EQ(textOf("return string.gsub('hello', 'l', 'L')"), "[heLLo, 2]");
    EXPECT_EQ(textOf("return string.gsub('abc', '', '-')"), "[-a-b-c-, 4]");
    EXPECT_EQ(textOf("return string.gsub('aaa', '^a', 'b')"), "[bbb, 3]");
    EXPECT_EQ(textOf("return string.gsub('a b', '%s', '%1')"), "[a%1b, 1]");
    EXPECT_EQ(textOf("return string.gsub('x', 'x', 5)"), "[5, 1]");
    EXPECT_EQ(textOf(R"(
        local out = {}
        for word in string.gmatch('one two  three', '%a+') do out[#out + 1] = word end
        for k, v in string.gmatch('a=1, b=2', '(%w+)=(%w+)') do out[#out + 1] = k .. v end
        return table.concat(out, ','))"),
              "one,two,three,a1,b2");
}

TEST(LuaLibrary, PatternTranslation) {
    EXPECT_EQ(translateLuaPatternToRegex("%d+"), "[0-9]+");
    EXPECT_EQ(translateLuaPatternToRegex("%S%W"), "[^\\f\\n\\r\\t\\v ][^A-Za-z0-9_]");
    EXPECT_EQ(translateLuaPatternToRegex("[%a_][^%s]"), "[A-Za-z_][^\\f\\n\\r\\t\\v ]");
    EXPECT_EQ(translateLuaPatternToRegex("a-b"), "a*?b");
    EXPECT_EQ(translateLuaPatternToRegex("%.%l%1%"), "\\.l1%");
    EXPECT_EQ(translateLuaPatternToRegex("[abc"), "\\[abc");
    EXPECT_EQ(translateLuaPatternToRegex("[]"), "[]");
    EXPECT_EQ(translateLuaPatternToRegex("[a\\]"), "[a\\\\]");
    EXPECT_EQ(translateLuaPatternToRegex("{x|y}"), "\\{x\\|y\\}");
    EXPECT_EQ(translateLuaPatternToRegex("^(a.)*$"), "^(a.)*$");
    // The classes the dialect does not know stand for their letters.
    EXPECT_EQ(textOf("return string.find('hello', '%l')"), "[3, 3]");
    EXPECT_EQ(textOf("return string.match('<a><b>', '<.->')"), "<a>");
    EXPECT_EQ(textOf("return string.match('[x]', '[')"), "[");
    // A refused regular expression becomes the run-time error.
    EXPECT_EQ(errorOf("string.find('a', '(')").substr(0, 5), "t:1: ");
}

TEST(LuaLibrary, Unpack) {
    EXPECT_EQ(errorOf("string.unpack('<I4', '\\0')"), "t:1: string.unpack ran past the end of the buffer");
    EXPECT_EQ(textOf("return string.unpack('<I4', '\\0\\0\\0\\0')"), "[0, 5]");
    // The dialect has no numeric escapes: other bytes stand in the source as they are.
    EXPECT_EQ(textOf("return string.unpack('<I4', '\x01\x02\\0\\0')"), "[513, 5]");
    EXPECT_EQ(textOf("return string.unpack('>I4', '\\0\\0\x01\x02')"), "[258, 5]");
    EXPECT_EQ(textOf("return string.unpack('I4', '\xff\xff\xff\xff')"), "[4294967295, 5]");
    EXPECT_EQ(textOf("return string.unpack(' < I4 > I4', '\x01\\0\\0\\0\\0\\0\\0\x02')"), "[1, 2, 9]");
    EXPECT_EQ(textOf("return string.unpack('I4', 'xx\x05\\0\\0\\0', 3)"), "[5, 7]");
    EXPECT_EQ(textOf("return string.unpack('', 'abc')"), "1");
    EXPECT_EQ(errorOf("string.unpack('I8', '12345678')"), "t:1: OrvaneLua only supports string.unpack I4 fields");
    EXPECT_EQ(errorOf("string.unpack('I', '1234')"), "t:1: stoi");
    EXPECT_EQ(errorOf("string.unpack('x', '1234')"), "t:1: unsupported string.unpack format");
}

TEST(LuaLibrary, TableFunctions) {
    EXPECT_TRUE(valueOf("return table.remove({})").isNil());
    EXPECT_EQ(textOf("local t = {1, 2, 3} local r = table.remove(t) return r, #t"), "[3, 2]");
    EXPECT_EQ(textOf("local t = {1, 2, 3} local r = table.remove(t, 1) return r, t[1], t[2], #t"), "[1, 2, 3, 2]");
    EXPECT_TRUE(valueOf("local t = {1, 2} return table.remove(t, 5)").isNil());
    EXPECT_EQ(textOf("local t = {1, 2} table.remove(t, 0) return t"), "[2]");
    EXPECT_EQ(textOf("local t = {1, 2, 3, x = 1} table.remove(t, 2) return t[1], t[2], t[3] == nil"), "[1, 3, true]");
    EXPECT_EQ(textOf("return table.concat({1, 2.5, 'x'}, '-')"), "1-2.5-x");
    EXPECT_EQ(textOf("return table.concat({}) == '', table.concat({1, 2}), table.concat({1, 2}, nil)"),
              "[true, 12, 1nil2]");
    EXPECT_EQ(textOf("local t = {3, 1, 2} return table.sort(t) == t, t"), "[true, [1, 2, 3]]");
    EXPECT_EQ(textOf("local t = {3, 1, 2} table.sort(t, function(a, b) return a > b end) return t"), "[3, 2, 1]");
    EXPECT_EQ(textOf("local t = {10, 'b', 9, 'a', 2.5} table.sort(t) return t"), "[2.5, 9, 10, a, b]");
    EXPECT_EQ(textOf("local t = {'b', 'a', x = 1} table.sort(t) return t[1], t[2]"), "[a, b]");
    EXPECT_EQ(errorOf("table.sort({}, 5)"), "t:1: table.sort comparator must be a function");
    EXPECT_EQ(errorOf("table.sort({2, 1}, function(a, b) error('in comparator') end)"), "t:1: in comparator");
    // A comparator that is no order at all must not take the sort outside the table.
    EXPECT_EQ(textOf(R"(
        local t = {}
        for i = 1, 200 do t[i] = (i * 7919) % 101 end
        local n = 0
        table.sort(t, function(a, b) n = n + 1 return n % 3 == 0 end)
        return #t)"),
              "200");
}

TEST(LuaLibrary, MathFunctions) {
    EXPECT_EQ(valueOf("return math.floor(2.7)").type(), LuaValueType::Integer);
    EXPECT_EQ(textOf("return math.floor(2.7), math.floor(-2.5), math.max(1, 2.5), math.min(3), math.min(4, -1, 2)"),
              "[2, -3, 2.5, 3, -1]");
    EXPECT_EQ(errorOf("math.max()"), "t:1: math.max expects at least 1 arguments");
}

TEST(LuaLibrary, ProtectedCalls) {
    EXPECT_EQ(textOf("return pcall(error, 'x')"), "[false, x]");
    EXPECT_EQ(textOf("return pcall(error)"), "[false, error]");
    EXPECT_EQ(textOf("return pcall(function(a, b) return a + b, 'ok' end, 1, 2)"), "[true, 3, ok]");
    EXPECT_EQ(textOf("return pcall(nil)"), "[false, attempt to call a nil value]");
    EXPECT_EQ(textOf("return pcall(function() local x = {} + 1 end)"), "[false, operator '+' expects numbers]");
    EXPECT_EQ(textOf("return pcall(string.rep)"), "[false, string.rep expects 2 arguments]");
    EXPECT_EQ(textOf("return select == nil, pcall(pcall, error, 'e')"), "[true, true, false, e]");
    // After a protected error the unprotected ones get their location again.
    EXPECT_EQ(errorOf("pcall(error, 'a') error('b')"), "t:1: b");
}

TEST(LuaLibrary, ExitEndsTheRunAsSuccess) {
    LuaVM vm;
    LuaResult result = vm.runScriptString("pcall(os.exit, 3) error('not reached')", "t");
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.value.asInteger(), 3);
    result = vm.runScriptString("os.exit()", "t");
    EXPECT_TRUE(result.exited);
    EXPECT_EQ(result.exitCode, 0);
    result = vm.runScriptString("os.exit(-1)", "t");
    EXPECT_TRUE(result.success);
    EXPECT_FALSE(result.exited);
    EXPECT_EQ(result.value.asInteger(), -1);
    // The next run starts afresh.
    result = vm.runScriptString("return 1", "t");
    EXPECT_FALSE(result.exited);
}

TEST(LuaLibrary, PrintWritesThroughThePublicBridge) {
    EXPECT_EQ(outputOf("print(nil, 1) print() print('a', 2.5, true)"), "nil\t1\n\na\t2.5\ttrue\n");
    EXPECT_EQ(outputOf("print({1, 2}, {a = 1}, {})"), "[1, 2]\t{a: 1}\t[]\n");
    EXPECT_EQ(outputOf("io.write('a', 1, nil, '\\n') io.stdout:write('b', 2) io.stdout:write('\\n')"), "a1nil\nb2\n");
    EXPECT_EQ(errorOf("print(io.stdout)"), "t:1: value cannot be bridged out of OrvaneLua");
    EXPECT_EQ(errorOf("local t = {} t.self = t print(t)"), "t:1: value is nested too deeply to bridge out of OrvaneLua");
    EXPECT_EQ(textOf("return io.write('x') == true"), "true");
    EXPECT_EQ(textOf("return io.stdout:write('') == io.stdout"), "true");
}

class LuaFiles : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/lua_files_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        std::remove((dir + "/f.txt").c_str());
        rmdir(dir.c_str());
    }
    std::string dir;
};

TEST_F(LuaFiles, WriteReadSeekClose) {
    LuaVM vm;
    vm.setGlobal("path", LuaValue(dir + "/f.txt"));
    EXPECT_EQ(testing::valueOf(vm, R"(
        local f = io.open(path, 'w')
        local same = f:write('hello', ' ', 42) == f
        f:close()
        local g = io.open(path)
        local all = g:read('*a')
        g:seek('set', 1)
        local two = g:read(2)
        local pos = g:seek()
        local rest = g:read(100)
        local after = g:read(1)
        g:close()
        return same, all, two, pos, rest, after == nil)")
                  .toString(),
              "[true, hello 42, el, 3, lo 42, true]");
    EXPECT_EQ(testing::valueOf(vm, R"(
        local f = io.open(path, 'a') f:write('!') f:close()
        local g = io.open(path, 'rb')
        local zero = g:read(0)
        local text = g:read('*a')
        local endpos = g:seek('end')
        g:close()
        return zero == '', text, endpos)")
                  .toString(),
              "[true, hello 42!, 9]");
    std::ifstream check(dir + "/f.txt");
    std::stringstream content;
    content << check.rdbuf();
    EXPECT_EQ(content.str(), "hello 42!");
}

TEST_F(LuaFiles, FailuresAreResults) {
    LuaVM vm;
    vm.setGlobal("path", LuaValue(dir + "/f.txt"));
    EXPECT_EQ(testing::valueOf(vm, "local f, m = io.open(path .. '/missing/x') return f == nil, m").toString(),
              "[true, failed to open file: " + dir + "/f.txt/missing/x]");
    EXPECT_EQ(testing::valueOf(vm, R"(
        local f = io.open(path, 'w') f:write('abc') f:close()
        local g = io.open(path, 'r')
        local a, am = g:seek('sideways')
        local b, bm = g:write('x')
        g:close()
        local c, cm = g:write('y')
        local d, dm = g:seek('set', 0)
        return am, bm, cm, dm, g:read(1) == nil)")
                  .toString(),
              "[invalid seek mode, failed to write file, file is not open, file is not open, true]");
    EXPECT_EQ(errorOf(vm, "local f = io.open(path) f:read()"), "t:1: file:read expects a numeric argument");
    EXPECT_EQ(errorOf(vm, "local f = io.open(path) f.read(io.stdout, 1)"), "t:1: file:read received the wrong userdata type");
    EXPECT_EQ(errorOf(vm, "local f = io.open(path) f.x = 1"), "t:1: attempt to assign into a userdata value");
    EXPECT_TRUE(testing::valueOf(vm, "local f = io.open(path) return f.nothing").isNil());
    EXPECT_EQ(testing::valueOf(vm, "local f = io.open(path) return f.read ~= f.read").toString(), "true");
}

TEST(LuaLibrary, OsExecuteGivesTheRawStatus) {
    EXPECT_EQ(textOf("return os.execute('exit 0'), os.execute('exit 3')"), "[0, 768]");
}

TEST(LuaLibrary, StringMethodsFollowTheGlobal) {
    LuaVM vm;
    EXPECT_EQ(testing::valueOf(vm, "string = {sub = function(s) return 'mine:' .. s end} return ('x'):sub()").toString(),
              "mine:x");
    EXPECT_EQ(errorOf(vm, "string = nil return ('x'):sub(1)"), "t:1: string indexing only supports library methods");
}

}  // namespace
}  // namespace orvane::lua
