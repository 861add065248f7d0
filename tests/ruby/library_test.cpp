// The flat library: output, conversion, containers, math, the string functions and their few
// fixed patterns, load, and the argument checks that every function shares.
#include <gtest/gtest.h>

#include <string>

#include "RubyTestSupport.h"

namespace orvane::ruby {
namespace {

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

std::string output(const std::string& source) {
    RubyVM vm;
    ::testing::internal::CaptureStdout();
    std::string result = run(vm, source);
    std::fflush(stdout);
    return ::testing::internal::GetCapturedStdout() + "|" + result;
}

TEST(RubyLibrary, PutsAndPrint) {
    EXPECT_EQ(output("puts()"), "\n|nil");
    EXPECT_EQ(output("puts(1, \"a\", nil)"), "1 a nil\n|nil");
    EXPECT_EQ(output("print(\"a\", \"b\")"), "ab|nil");
    EXPECT_EQ(output("puts([1, [2.5, \"x\"]], true)"), "[1, [2.5, x]] true\n|nil");
    EXPECT_EQ(output("print() print(1) puts(2)"), "12\n|nil");
    EXPECT_EQ(output("puts(\"first\") error(\"then\")"), "first\n|error: then");
}

TEST(RubyLibrary, LenToSAndTime) {
    expectAll({
        {"len(\"\xC3\xA9\")", "integer 2"},
        {"utf8_len(\"\xC3\xA9\")", "integer 1"},
        {"utf8_len(\"a\xE2\x82\xAC" "b\")", "integer 3"},
        {"len([1, 2, 3])", "integer 3"},
        {"m = map_new() table_set(m, \"a\", 1) table_set(m, \"b\", 2) len(m)", "integer 2"},
        {"len(1)", "error: len expects a string, array, or map"},
        {"len()", "error: len expects exactly 1 argument"},
        {"len(1, 2)", "error: len expects exactly 1 argument"},
        {"to_s(3.0)", "string 3"},
        {"to_s(nil)", "string nil"},
        {"to_s([1, \"a\", [false]])", "string [1, a, [false]]"},
        {"m = map_new() table_set(m, \"k\", [1]) to_s(m)", "string {k: [1]}"},
        {"to_s(0.1)", "string 0.1"},
        {"to_s(123456789.0)", "string 1.23457e+08"},
        {"to_s(-0.0)", "string -0"},
        {"to_s()", "error: to_s expects exactly 1 argument"},
        {"t = time_ms() t2 = time_ms() t2 >= t and t > 0", "boolean true"},
        {"time_ms(1)", "error: time_ms expects exactly 0 arguments"},
        {"collect_garbage()", "nil"},
        {"collect_garbage(1)", "error: collect_garbage expects exactly 0 arguments"},
    });
}

TEST(RubyLibrary, ToNumber) {
    expectAll({
        {"to_number(\"10\", 2)", "integer 2"},
        {"to_number(\"z\", 36)", "integer 35"},
        {"to_number(\"ff\", 16)", "integer 255"},
        {"to_number(\"10\", 1)", "error: to_number base must be between 2 and 36"},
        {"to_number(\"10\", 37)", "error: to_number base must be between 2 and 36"},
        {"to_number(\"10\", \"2\")", "error: to_number expects a numeric argument"},
        {"to_number(5, 99)", "integer 5"},
        {"to_number(\"12\", 2)", "nil"},
        {"to_number(\"1.5\")", "float 1.5"},
        {"to_number(\"2.0\")", "integer 2"},
        {"to_number(\"1e3\")", "integer 1000"},
        {"to_number(\"1E-2\")", "float 0.01"},
        {"to_number(\"abc\")", "nil"},
        {"to_number(\"\")", "nil"},
        {"to_number(\"1e999\")", "nil"},
        {"to_number(\"1.5x\")", "nil"},
        {"to_number(\"12x\")", "nil"},
        {"to_number(\"-42\")", "integer -42"},
        {"to_number(\"99999999999999999999\")", "nil"},
        {"to_number(nil)", "nil"},
        {"to_number([1])", "nil"},
        {"to_number(true)", "integer 1"},
        {"to_number(2.0)", "integer 2"},
        {"to_number(2.5)", "float 2.5"},
        {"to_number()", "error: to_number expects between 1 and 2 arguments"},
    });
}

TEST(RubyLibrary, MapsKeysAndTables) {
    expectAll({
        {"keys([7, 8])", "array [0, 1]"},
        {"m = map_new() table_set(m, \"b\", 1) table_set(m, \"a\", 2) table_set(m, 10, 3) keys(m)", "array [10, a, b]"},
        {"keys(map_new())", "array []"},
        {"keys(\"ab\")", "error: keys expects an array or map"},
        {"map_new(1)", "error: map_new expects exactly 0 arguments"},
        {"a = [1, 2] table_insert(a, 0, \"x\") a", "array [x, 1, 2]"},
        {"a = [1, 2] table_insert(a, len(a), \"x\") a", "array [1, 2, x]"},
        {"a = [1, 2] table_insert(a, len(a) + 1, \"x\")", "error: table_insert index is out of range"},
        {"a = [1, 2] table_insert(a, -1, \"x\")", "error: table_insert index is out of range"},
        {"a = [] r = table_insert(a, 5); [r, a]", "array [nil, [5]]"},
        {"table_insert(map_new(), 1)", "error: table_insert expects an array"},
        {"table_insert([])", "error: table_insert expects between 2 and 3 arguments"},
        {"table_remove([])", "nil"},
        {"table_remove([], 99)", "nil"},
        {"table_remove([], \"x\")", "nil"},
        {"a = [1, 2, 3] r = table_remove(a); [r, a]", "array [3, [1, 2]]"},
        {"a = [1, 2, 3] r = table_remove(a, 0); [r, a]", "array [1, [2, 3]]"},
        {"table_remove([1], 1)", "error: table_remove index is out of range"},
        {"table_remove([1], -1)", "error: table_remove index is out of range"},
        {"table_remove(\"a\")", "error: table_remove expects an array"},
        {"a = [3, \"2\", 1] table_sort(a) a", "array [1, 2, 3]"},
        {"a = [5, 1.5, -2, true] table_sort(a) a", "array [-2, true, 1.5, 5]"},
        {"a = [\"b\", \"a\", \"B\"] table_sort(a) a", "array [B, a, b]"},
        {"a = [[2], [10], nil] table_sort(a) a", "array [[10], [2], nil]"},
        {"a = [] table_sort(a) a", "array []"},
        {"table_sort(1)", "error: table_sort expects an array"},
        {"table_concat([1, \"a\", nil, 2.5])", "string 1anil2.5"},
        {"table_concat([1, 2, 3], \", \")", "string 1, 2, 3"},
        {"table_concat([])", "string "},
        {"table_concat([1], 2)", "error: table_concat expects a string argument"},
        {"table_concat(\"x\")", "error: table_concat expects an array"},
    });
}

TEST(RubyLibrary, SortingStaysInsideTheArrayWhateverTheOrder) {
    // Numbers against texts give no consistent order; the sort must still end, keep every
    // element, and stay inside the array.
    RubyVM vm;
    std::string source = "a = [] i = 0\nwhile i < 3000 do\n table_insert(a, i % 7)\n table_insert(a, to_s(i % 13))\n"
                         " table_insert(a, math_sqrt(-1))\n table_insert(a, 0 - i)\n i = i + 1\nend\n"
                         "table_sort(a) len(a)";
    EXPECT_EQ(run(vm, source), "integer 12000");
    EXPECT_EQ(run(vm, "b = [3, 1, 2] table_sort(b) b"), "array [1, 2, 3]");
}

TEST(RubyLibrary, Math) {
    expectAll({
        {"math_floor(2.5)", "integer 2"},
        {"math_floor(-2.5)", "integer -3"},
        {"math_ceil(2.1)", "integer 3"},
        {"math_floor(math_log(0))", "float -inf"},
        {"math_floor(100000000000000000000.0)", "float 1e+20"},
        {"math_abs(-3)", "integer 3"},
        {"math_abs(true)", "integer 1"},
        {"math_abs(-2.5)", "float 2.5"},
        {"math_sqrt(4)", "float 2"},
        {"to_s(math_sqrt(-1)) == \"nan\" or to_s(math_sqrt(-1)) == \"-nan\"", "boolean true"},
        {"math_sin(0)", "float 0"},
        {"math_cos(0)", "float 1"},
        {"math_log(1)", "float 0"},
        {"math_rad(180)", "float 3.14159"},
        {"math_min(3, 1.0, 2)", "integer 1"},
        {"math_max(3, 4.5, 2)", "float 4.5"},
        {"math_max(1)", "integer 1"},
        {"math_min()", "error: math_min expects at least 1 arguments"},
        {"math_max(1, \"2\")", "error: math_max expects a numeric argument"},
        {"math_floor(\"1\")", "error: math_floor expects a numeric argument"},
        {"math_sqrt()", "error: math_sqrt expects exactly 1 argument"},
    });
}

TEST(RubyLibrary, StringPositions) {
    expectAll({
        {"string_sub(\"hello\", 2)", "string ello"},
        {"string_sub(\"hello\", -3, -2)", "string ll"},
        {"string_sub(\"hello\", 0, 2)", "string he"},
        {"string_sub(\"hello\", 4, 99)", "string lo"},
        {"string_sub(\"hello\", 3, 2)", "string "},
        {"string_sub(\"\", 1)", "string "},
        {"string_sub(\"hello\", -100, 1)", "string h"},
        {"string_sub(\"hello\", true)", "string hello"},
        {"string_sub(\"hello\")", "error: string_sub expects between 2 and 3 arguments"},
        {"string_sub(1, 1)", "error: string_sub expects a string argument"},
        {"string_sub(\"a\", \"1\")", "error: string_sub expects a numeric argument"},
        {"string_upper(\"abc-\xC3\xA9z\")", "string ABC-\xC3\xA9Z"},
        {"string_byte(\"abc\", 1, -1)", "array [97, 98, 99]"},
        {"string_byte(\"abc\")", "array [97]"},
        {"string_byte(\"abc\", 2)", "array [98]"},
        {"string_byte(\"\")", "array []"},
        {"string_byte(\"abc\", 10)", "array []"},
        {"string_byte(\"\xFF\")", "array [255]"},
    });
}

TEST(RubyLibrary, ThePatternWords) {
    expectAll({
        {"string_find(\"ab12c\", \"%d+\")", "array [3, 4]"},
        {"string_find(\"abc\", \"%d+\")", "nil"},
        {"string_find(\"abc\", \"bc\")", "array [2, 3]"},
        {"string_find(\"abc\", \"\")", "array [1, 0]"},
        {"string_find(\"abc\", \"[a]\")", "nil"},
        {"string_find(\"a.c\", \".\")", "array [2, 2]"},
        {"string_match(\"x foo-12 y\", \"(%a+)%-(%d+)\")", "array [foo, 12]"},
        {"string_match(\"foo-bar\", \"(%a+)%-(%d+)\")", "nil"},
        {"string_match(\"ab-cd-34\", \"(%a+)%-(%d+)\")", "array [cd, 34]"},
        {"string_match(\"ab-\", \"(%a+)%-(%d+)\")", "nil"},
        {"string_match(\"v10 and 20\", \"%d+\")", "string 10"},
        {"string_match(\"abc\", \"%d+\")", "nil"},
        {"string_match(\"hello\", \"ll\")", "string ll"},
        {"string_match(\"hello\", \"x\")", "nil"},
        {"string_gmatch(\"a1b22\", \"%d+\")", "array [1, 22]"},
        {"string_gmatch(\"aXbXc\", \"X\")", "array [X, X]"},
        {"string_gmatch(\"aaaa\", \"aa\")", "array [aa, aa]"},
        {"string_gmatch(\"abc\", \"\")", "array []"},
        {"string_gsub(\"a1b22\", \"%d+\", \"#\")", "string a#b#"},
        {"string_gsub(\"a1b22\", \"%d\", \"#\")", "string a#b##"},
        {"string_gsub(\"aaa\", \"aa\", \"b\")", "string ba"},
        {"string_gsub(\"abc\", \"\", \"-\")", "string abc"},
        {"string_gsub(\"a.b\", \".\", \"%1\")", "string a%1b"},
        {"string_gsub(\"abc\", \"b\")", "error: string_gsub expects exactly 3 arguments"},
        {"string_find(\"abc\", 1)", "error: string_find expects a string argument"},
    });
}

TEST(RubyLibrary, Format) {
    expectAll({
        {"string_format(\"%d%%\", 2.9)", "string 2%"},
        {"string_format(\"%i|%s|%f\", -7.9, [1], 3.5)", "string -7|[1]|3.5"},
        {"string_format(\"%f\", 1)", "string 1"},
        {"string_format(\"%f\", 0.1234567)", "string 0.123457"},
        {"string_format(\"no tokens\", 1, 2)", "string no tokens"},
        {"string_format(\"%s\")", "error: missing argument for format string"},
        {"string_format(\"%x\")", "error: missing argument for format string"},
        {"string_format(\"%x\", 1)", "error: unsupported format token %x"},
        {"string_format(\"%5d\", 1)", "error: unsupported format token %5"},
        {"string_format(\"50%\", 1)", "error: unterminated format token"},
        {"string_format(\"%d\", \"1\")", "error: value is not numeric"},
        {"string_format(\"%%%d\", true)", "string %1"},
        {"string_format()", "error: string_format expects at least 1 arguments"},
        {"string_format(1)", "error: string_format expects a string argument"},
    });
}

TEST(RubyLibrary, Load) {
    expectAll({
        {"f = load(\"return 1 + 1\") f()", "integer 2"},
        {"r = load(\"x = 5\")(); [r, x]", "array [5, 5]"},
        {"f = load(\"n = n + 1\") n = 0 f() f() f()", "integer 3"},
        {"load(\"1 +\")", "error: <load>:1:4: expected expression"},
        {"pcall(load, \"1 +\", \"mine\")", "array [false, mine:1:4: expected expression]"},
        {"load(\"y = nope\", \"chunk\")()", "error: chunk:1: undefined variable or function 'nope'"},
        {"to_s(load(\"1\"))", "string [function <load>]"},
        {"load(\"def sq(v) return v * v end\")() sq(9)", "integer 81"},
        {"load(1)", "error: load expects a string argument"},
        {"load(\"1\", 2)", "error: load expects a string argument"},
        {"load()", "error: load expects between 1 and 2 arguments"},
        {"load(\"1\")(1)", "error: <load>:0: function '<main>' expected 0 arguments but received 1"},
    });
}

}  // namespace
}  // namespace orvane::ruby
