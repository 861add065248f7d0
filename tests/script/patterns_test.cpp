// Script patterns: the translation table, the hand-written walks against the general regex
// route, the compile-once cache, bad patterns, and Lua 5.4 as an outside judge where the
// pattern meanings coincide.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "host/ProcessObjects.h"
#include "script/LuaPatterns.h"

using namespace orvane;

namespace {

// A result as a script would print its values: a Multi spread out, nil as "nil".
std::string show(const Variable& v) {
    if (v.isNil()) return "nil";
    if (const VariableArray* values = multiValuesPtr(v)) {
        std::string out;
        for (const Variable& item : *values) out += (out.empty() ? "" : " ") + show(item);
        return out;
    }
    if (v.type == VarType::Array) {
        std::string out = "{";
        for (const Variable& item : *v.asArray()) out += show(item) + ";";
        return out + "}";
    }
    return v.toString();
}

Variable call(Variable (OrvaneScript::*function)(const Variable*, size_t), std::vector<Variable> args) {
    return (engine.*function)(args.data(), args.size());
}

std::vector<std::string> sampleSubjects() {
    std::vector<std::string> subjects = {"", "abc", "123", "a1b22c333", "x-12", "ab-7-8 cd-99", "-1", "a-", "a-b-3",
                                         "99-x a-1", "Zz-0009z", "no digits at all", "9", "--a--1--", "ab12-3"};
    std::mt19937 random(7);
    const std::string alphabet = "aZ-09 x-\xc3\xa9";
    for (int n = 0; n < 300; ++n) {
        std::string s(random() % 24, ' ');
        for (char& c : s) c = alphabet[random() % alphabet.size()];
        subjects.push_back(s);
    }
    return subjects;
}

}  // namespace

TEST(PatternTranslation, ClassesEscapesAndClassInteriors) {
    struct Case {
        const char* lua;
        const char* regex;
    } cases[] = {
        {"%a", "[A-Za-z]"}, {"%A", "[^A-Za-z]"}, {"%d", "\\d"}, {"%D", "\\D"}, {"%l", "[a-z]"}, {"%L", "[^a-z]"},
        {"%p", "[!-/:-@\\[-`\\{-~]"}, {"%P", "[^!-/:-@\\[-`\\{-~]"}, {"%s", "\\s"}, {"%S", "\\S"},
        {"%u", "[A-Z]"}, {"%U", "[^A-Z]"}, {"%w", "\\w"}, {"%W", "\\W"}, {"%x", "[A-Fa-f0-9]"},
        {"%X", "[^A-Fa-f0-9]"}, {"%%", "%"}, {"%.", "\\."}, {"%-", "-"}, {"%b", "b"}, {"%1", "1"},
        {"[%a_]", "[A-Za-z_]"}, {"[%U]", "[^A-Z]"}, {"[%d.]", "[\\d.]"}, {"[^a]", "[\\^a]"}, {"[a\\]", "[a\\\\]"},
        {"[a-z]-x", "[a-z]*?x"}, {"^(a+)$", "^(a+)$"}, {"a.b*c?", "a.b*c?"}, {"{|}", "\\{\\|\\}"},
        {"a]", "a\\]"}, {"%", "%"}, {"x%", "x%"}, {"(%a+)%-(%d+)", "([A-Za-z]+)-(\\d+)"},
    };
    for (const Case& c : cases) EXPECT_EQ(translateLuaPatternToRegex(c.lua), c.regex) << c.lua;
}

TEST(PatternTranslation, SlashLiteralsAndDotAll) {
    std::string body, flags;
    EXPECT_TRUE(parseSlashRegexLiteral("/ab/im", body, flags));
    EXPECT_EQ(body, "ab");
    EXPECT_EQ(flags, "im");
    EXPECT_TRUE(parseSlashRegexLiteral("/usr/bin", body, flags));
    EXPECT_EQ(body, "usr");
    EXPECT_EQ(flags, "bin");
    EXPECT_TRUE(parseSlashRegexLiteral("/a\\/b/", body, flags));
    EXPECT_EQ(body, "a\\/b");
    EXPECT_EQ(flags, "");
    EXPECT_TRUE(parseSlashRegexLiteral("//", body, flags));
    EXPECT_EQ(body, "");
    EXPECT_FALSE(parseSlashRegexLiteral("/", body, flags));
    EXPECT_FALSE(parseSlashRegexLiteral("/abc", body, flags));
    EXPECT_FALSE(parseSlashRegexLiteral("/a/b1", body, flags));
    EXPECT_FALSE(parseSlashRegexLiteral("a/b/", body, flags));
    EXPECT_FALSE(parseSlashRegexLiteral("/a\\/", body, flags));

    EXPECT_EQ(applyRegexDotAllTransform("a.b"), "a[\\s\\S]b");
    EXPECT_EQ(applyRegexDotAllTransform("\\.[.]x."), "\\.[.]x[\\s\\S]");
    EXPECT_EQ(applyRegexDotAllTransform("[\\]].\\"), "[\\]][\\s\\S]\\");
}

// Each hand-written walk must agree with the regex route for the same pattern text.
TEST(HotPatterns, DigitRunMatchesRegexRoute) {
    const auto held = getCachedGsubPattern("%d+");
    const CompiledGsubPattern& general = *held;
    for (const std::string& subject : sampleSubjects()) {
        for (size_t from = 0; from <= subject.size(); ++from) {
            size_t start = 0, end = 0;
            bool hot = scanDigitRun(subject, from, start, end);
            PatternMatches matches;
            bool viaRegex = searchFirstMatch(general, subject, from, matches);
            ASSERT_EQ(hot, viaRegex) << subject << " from " << from;
            if (hot) {
                EXPECT_EQ(int64_t(start), matches.start(0, 0)) << subject;
                EXPECT_EQ(int64_t(end), matches.end(0, 0)) << subject;
            }
        }
        // find, gmatch and gsub through the interpreter: hot text against the same regex spelt "re:".
        for (const char* hot : {"%d+"}) {
            EXPECT_EQ(show(call(&OrvaneScript::findFunctionImpl, {subject, hot})),
                      show(call(&OrvaneScript::findFunctionImpl, {subject, "re:\\d+"})))
                << subject;
            EXPECT_EQ(show(call(&OrvaneScript::gmatchFunctionImpl, {subject, hot})),
                      show(call(&OrvaneScript::gmatchFunctionImpl, {subject, "re:\\d+"})))
                << subject;
        }
        EXPECT_EQ(show(engine.gsubImpl(subject, "%d", "<#>")), show(engine.gsubImpl(subject, "re:\\d", "<#>"))) << subject;
        VariableTable digitNames;
        for (char d = '0'; d <= '9'; ++d) digitNames[std::string(1, d)] = Variable(std::string("d") + d);
        Variable table(digitNames);
        EXPECT_EQ(show(engine.gsubImpl(subject, "%d", table)), show(engine.gsubImpl(subject, "re:\\d", table))) << subject;
    }
}

TEST(HotPatterns, WordDashNumberMatchesRegexRoute) {
    const char* hot = "(%a+)%-(%d+)";
    const auto held = getCachedGsubPattern(hot);
    const CompiledGsubPattern& general = *held;
    for (const std::string& subject : sampleSubjects()) {
        for (size_t from = 0; from <= subject.size(); ++from) {
            size_t spans[4];
            bool found = scanWordDashNumber(subject, from, spans);
            PatternMatches matches;
            bool viaRegex = searchFirstMatch(general, subject, from, matches);
            ASSERT_EQ(found, viaRegex) << subject << " from " << from;
            if (found) {
                EXPECT_EQ(int64_t(spans[0]), matches.start(0, 1)) << subject;
                EXPECT_EQ(int64_t(spans[1]), matches.end(0, 1)) << subject;
                EXPECT_EQ(int64_t(spans[2]), matches.start(0, 2)) << subject;
                EXPECT_EQ(int64_t(spans[3]), matches.end(0, 2)) << subject;
            }
            int32_t init = int32_t(from + 1);
            EXPECT_EQ(show(call(&OrvaneScript::matchFunctionImpl, {subject, hot, init})),
                      show(call(&OrvaneScript::matchFunctionImpl, {subject, "re:([A-Za-z]+)-(\\d+)", init})))
                << subject;
        }
    }
}

TEST(PatternCache, EachPatternTextCompilesOnce) {
    const std::string pattern = "(%l+)=(%d+)";
    ASSERT_FALSE(gsubPatternIsCached(pattern));
    uint64_t before = gsubPatternCompileCount();
    for (int round = 0; round < 50; ++round) {
        call(&OrvaneScript::findFunctionImpl, {"k=1", pattern});
        call(&OrvaneScript::matchFunctionImpl, {"k=1", pattern});
        call(&OrvaneScript::gmatchFunctionImpl, {"k=1 j=2", pattern});
        engine.gsubImpl("k=1", pattern, "\\2");
    }
    EXPECT_EQ(gsubPatternCompileCount(), before + 1);
    EXPECT_TRUE(gsubPatternIsCached(pattern));
    // The same regex reached by another text is another entry; the texts are the keys.
    call(&OrvaneScript::findFunctionImpl, {"k=1", "re:([a-z]+)=(\\d+)"});
    EXPECT_EQ(gsubPatternCompileCount(), before + 2);
    // The gsub "%d" walk still owns one cache entry; a plain find compiles nothing.
    uint64_t digitCompiles = gsubPatternIsCached("%d") ? 0 : 1;
    engine.gsubImpl("a1", "%d", "x");
    engine.gsubImpl("a1", "%d", "y");
    call(&OrvaneScript::findFunctionImpl, {"a.b", "never compiled (", 1, true});
    EXPECT_TRUE(gsubPatternIsCached("%d"));
    EXPECT_FALSE(gsubPatternIsCached("never compiled ("));
    EXPECT_EQ(gsubPatternCompileCount(), before + 2 + digitCompiles);
}

TEST(PatternCache, MalformedPatternsFailEveryTimeAndLeaveNoEntry) {
    struct Case {
        const char* pattern;
        const char* message;
    } cases[] = {
        {"(", "gsub: invalid regex pattern '("},
        {"re:a{2,1}", "gsub: invalid regex pattern 'a{2,1}': "},
        {"/(./m", "gsub: invalid regex pattern '([\\s\\S]': "},
        {"[a", "gsub: invalid regex pattern '[a': "},
        {"/x/g", "gsub: unsupported regex flag 'g' (supported: i, m)"},
    };
    for (const Case& c : cases) {
        uint64_t before = gsubPatternCompileCount();
        for (int attempt = 0; attempt < 2; ++attempt) {
            try {
                engine.gsubImpl("subject", c.pattern, "x");
                FAIL() << c.pattern << " compiled";
            } catch (const std::runtime_error& e) {
                EXPECT_EQ(std::string(e.what()).rfind(c.message, 0), 0u) << e.what();
            }
            EXPECT_FALSE(gsubPatternIsCached(c.pattern)) << c.pattern;
        }
        EXPECT_EQ(gsubPatternCompileCount(), before) << c.pattern;
    }
}

// A long match recurses deeply inside the standard regex engine; it must neither crash nor hang.
TEST(PatternLimits, LongSubjectsMatchWithoutExhaustingTheStack) {
    std::string big(300000, 'a');
    big += "-42";
    EXPECT_EQ(show(call(&OrvaneScript::findFunctionImpl, {big, ".*"})), "1 300003");
    EXPECT_EQ(show(call(&OrvaneScript::matchFunctionImpl, {big, "(%a+)%-"})).size(), 300000u);
    EXPECT_EQ(show(engine.gsubImpl(big, "a+", "b")), "b-42");
}

namespace {

std::string runLua(const std::string& program) {
    std::string command = "lua5.4 -e '" + program + "' 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return "<no lua>";
    std::string out;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
    return out;
}

}  // namespace

// Where a Lua-style pattern means the same under our translation (ASCII classes, no %w, %s,
// negated sets or newlines), find and match must give what Lua 5.4 gives.
TEST(LuaOracle, FindAndMatchAgreeWithLua) {
    if (system("command -v lua5.4 > /dev/null 2>&1") != 0) GTEST_SKIP() << "lua5.4 not installed";
    struct Case {
        const char* subject;
        const char* pattern;
        int init;
    } cases[] = {
        {"hello world", "o", 1}, {"hello world", "o", 6}, {"hello", "l+", 1}, {"hello", "^h", 1},
        {"hello", "^e", 1}, {"hello", "o$", 1}, {"a.b", "%.", 1}, {"key=val", "(%a+)=(%a+)", 1},
        {"x-12", "(%a+)%-(%d+)", 1}, {"2024-05-06", "(%d+)%-(%d+)", 1}, {"  pad  ", "^ *(.-) *$", 1},
        {"abc123def", "%a+", 4}, {"abc123def", "%d+", 1}, {"ABCdef", "%u+", 1}, {"ABCdef", "%l+", 1},
        {"0xff", "%x+", 3}, {"a,b;c", "%p", 1}, {"aaa", "a-", 1}, {"aaab", "a-b", 1}, {"colour", "colou?r", 1},
        {"[tag]", "%[(%a+)%]", 1}, {"a_b", "[%a_]+", 1}, {"ab12", "[0-9]+", 1}, {"abc", "b", 9},
        {"abcabc", "bc", 3}, {"", "", 1}, {"abc", "", 2}, {"f(x)", "%((%a)%)", 1}, {"a+b", "a%+b", 1},
        {"100%", "%d+%%", 1}, {"x = 10", "(%a) = (%d+)", 1}, {"AbC", "%A", 1}, {"abc", "%D+", 1},
    };
    std::string program, expected;
    for (const Case& c : cases) {
        std::string args = std::string("\"") + c.subject + "\", \"" + c.pattern + "\", " + std::to_string(c.init);
        program += "do local a, b = string.find(" + args + ") print(a, b) end ";
        program += "do local m = table.pack(string.match(" + args + ")) "
                   "print(table.concat((function() local t = {} for i = 1, m.n do t[i] = tostring(m[i]) end return t end)(), \" \")) end ";
        Variable found = call(&OrvaneScript::findFunctionImpl, {c.subject, c.pattern, c.init});
        std::string f = show(found);
        expected += (found.isNil() ? std::string("nil\tnil") : f.replace(f.find(' '), 1, "\t")) + "\n";
        expected += show(call(&OrvaneScript::matchFunctionImpl, {c.subject, c.pattern, c.init})) + "\n";
    }
    EXPECT_EQ(runLua(program), expected);
}

TEST(LuaOracle, PlainStringFunctionsAgreeWithLua) {
    if (system("command -v lua5.4 > /dev/null 2>&1") != 0) GTEST_SKIP() << "lua5.4 not installed";
    std::string program =
        "print(string.sub(\"hello\", 2), string.sub(\"hello\", -3), string.sub(\"hello\", 4, 2), string.sub(\"hello\", -100, 2)) "
        "print(string.byte(\"ABC\", 1, 3)) print(string.byte(\"ABC\", -1)) "
        "print(string.rep(\"ab\", 3, \",\"), string.rep(\"x\", 0) == \"\") "
        "print(string.upper(\"MiXed 9\"), string.lower(\"MiXed 9\"), string.len(\"four\")) "
        "print(string.format(\"%5.2f|%-3d|%x|%X|%o|%05d|%+d|%s|%%|%q\", 3.14159, 7, 255, 255, 8, 42, 3, \"s\", \"a\\\"b\"))";
    std::string ours;
    auto line = [&](std::initializer_list<Variable> values) {
        std::string text;
        for (const Variable& v : values) {
            text += (text.empty() ? "" : "\t") + show(v);
        }
        ours += text + "\n";
    };
    line({call(&OrvaneScript::subFunction, {"hello", 2}), call(&OrvaneScript::subFunction, {"hello", -3}),
          call(&OrvaneScript::subFunction, {"hello", 4, 2}), call(&OrvaneScript::subFunction, {"hello", -100, 2})});
    std::string bytes = show(call(&OrvaneScript::byteFunctionImpl, {"ABC", 1, 3}));
    for (char& c : bytes)
        if (c == ' ') c = '\t';
    ours += bytes + "\n";
    line({call(&OrvaneScript::byteFunctionImpl, {"ABC", -1})});
    line({call(&OrvaneScript::repFunction, {"ab", 3, ","}), Variable(show(call(&OrvaneScript::repFunction, {"x", 0})).empty())});
    line({call(&OrvaneScript::upperFunction, {"MiXed 9"}), call(&OrvaneScript::lowerFunction, {"MiXed 9"}),
          call(&OrvaneScript::stringLenFunction, {"four"})});
    line({call(&OrvaneScript::formatFunctionImpl,
               {"%5.2f|%-3d|%x|%X|%o|%05d|%+d|%s|%%|%q", 3.14159f, 7, 255, 255, 8, 42, 3, "s", "a\"b"})});
    EXPECT_EQ(runLua(program), ours);
}
