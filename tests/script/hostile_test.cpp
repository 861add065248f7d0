// Hostile scripts, one group per class of fault found by trying the engine as an attacker would:
// each must end in a normal result or a clean located error. The suite runs with the rest of
// `make test` under AddressSanitizer and UBSan, which turn any stray read into a failure.
#include <gtest/gtest.h>

#include <string>

#include "script/LuaPatterns.h"
#include "script/OrvaneScript.h"

using namespace orvane;

namespace {

struct Outcome {
    std::string printed;
    std::string error;  // empty when the script ran to its end
};

Outcome run(const std::string& text) {
    Outcome outcome;
    OrvaneScript script;
    script.pushFunction("print", [&](const VariableArray& args) {
        for (size_t i = 0; i < args.size(); ++i) outcome.printed += (i ? " " : "") + args[i].toString();
        outcome.printed += "\n";
        return Variable();
    });
    try {
        script.runScript(text);
    } catch (const std::exception& e) {
        outcome.error = e.what();
    }
    return outcome;
}

std::string repeat(const std::string& piece, int times) {
    std::string out;
    for (int i = 0; i < times; ++i) out += piece;
    return out;
}

}  // namespace

// Freeing a deep container must not recurse once per level, whichever way it is let go.
TEST(HostileData, DeepChainsFreeWithoutExhaustingTheStack) {
    const char* const scripts[] = {
        "a = 0\nfor i = 1, 200000\n  a = [a]\nend\na = 0\nprint('arrays')",
        "t = 0\nfor i = 1, 100000\n  u = {}\n  u['next'] = t\n  t = u\nend\nt = 0\nu = 0\nprint('tables')",
        "function build()\n  local a = 0\n  for i = 1, 100000\n    a = [a, {}]\n  end\n  return 1\nend\n"
        "print(build(), 'locals')",
        "a = 0\nfor i = 1, 200000\n  a = [a]\nend\nfor i = 1, 200000\n  a = a[1]\nend\nprint('walked', a)",
    };
    const char* const expected[] = {"arrays\n", "tables\n", "1 locals\n", "walked 0\n"};
    for (size_t i = 0; i < std::size(scripts); ++i) {
        Outcome outcome = run(scripts[i]);
        EXPECT_EQ(outcome.error, "") << scripts[i];
        EXPECT_EQ(outcome.printed, expected[i]) << scripts[i];
    }
}

// A nested store through a container that holds itself grows the very storage it walks through.
TEST(HostileData, StoresThroughSelfContainingContainers) {
    Outcome outcome = run(
        "a = [0]\na[1] = a\na[1][3][1] = 5\nprint(len(a), a[3][1], a[1] == a)\n"
        "b = [0]\nb[1] = b\nb[1][1][2000][1] = 7\nprint(len(b), b[2000][1])\n"
        "a[1] = 0\nb[1] = 0\n");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.printed, "3 5 true\n2000 7\n");
}

// Every pass over the blocks recurses once per level; the nesting is bounded before any runs.
TEST(HostileBlocks, DeepNestingIsAnOrderlyError) {
    const std::pair<const char*, const char*> openers[] = {
        {"if true\n", "end\n"}, {"while false\n", "end\n"}, {"for i = 1, 1\n", "end\n"},
        {"function f()\n", "end\n"}, {"repeat\n", "until true\n"}};
    for (const auto& [open, close] : openers) {
        Outcome deep = run(repeat(open, 6000) + "x = 1\n" + repeat(close, 6000));
        EXPECT_NE(deep.error.find("Blocks nested deeper than 200 levels, at line 201"), std::string::npos)
            << open << deep.error;
        // Inside a loop body too, where the loop code compiles its branches.
        Outcome inLoop = run("for k = 1, 2\n" + repeat(open, 6000) + "x = 1\n" + repeat(close, 6000) + "end\n");
        EXPECT_NE(inLoop.error.find("Blocks nested deeper than 200 levels"), std::string::npos) << open;
    }
    // At the bound, every route runs it: top level, loop code, a function body, load.
    const std::string ifs = repeat("if x < 10\n", 199) + "x += 1\n" + repeat("end\n", 199);
    Outcome atBound = run("x = 0\n" + ifs + "for k = 1, 3\n" + ifs + "end\n"
                          "function g()\n" + ifs + "end\ng()\nf = load('" + repeat("if x < 10; ", 150) +
                          "x += 1; " + repeat("end; ", 150) + "')\nf()\nprint(x)\n");
    EXPECT_EQ(atBound.error, "");
    EXPECT_EQ(atBound.printed, "6\n");
    Outcome loaded = run("f, e = load('" + repeat("if true; ", 300) + "')\nprint(f, e)\n");
    EXPECT_EQ(loaded.printed, "not Blocks nested deeper than 200 levels, at line 1\n") << loaded.error;
}

// The regular expression engine recurses over the pattern when compiling and over pattern and
// subject when matching: both are bounded, on the main thread and on the worker alike.
TEST(HostilePatterns, NestingLengthAndSubjectAreBounded) {
    Outcome outcome = run(
        "s = string['rep']('a', 2000)\n"
        "p = string['rep']('(', 50) + 'a' + string['rep'](')', 50) + '*'\n"
        "i, j = string['find'](s, 're:' + p)\nprint(i, j)\n"
        "i, j = string['find'](s, string['rep']('(', 50) + 'a*' + string['rep'](')', 50))\nprint(i, j)\n"
        "sizes = [150, 100000]\n"
        "for i = 1, 2\n"
        "  n = sizes[i]\n"
        "  p = string['rep']('(', n) + 'a' + string['rep'](')', n)\n"
        "  ok, e = pcall(string['find'], 'a', p)\n  print(e)\n"
        "  ok, e = pcall(gsub, s, 're:' + p, 'b')\n  print(e)\n"
        "end\n");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.printed,
              "1 2000\n1 2000\n"
              "gsub: pattern nests groups deeper than 100 levels\n"
              "gsub: pattern nests groups deeper than 100 levels\n"
              "gsub: pattern too long (200001 bytes as a regex, at most 65536)\n"
              "gsub: pattern too long (200001 bytes as a regex, at most 65536)\n");
}

TEST(HostilePatterns, OversizedGsubFailsBeforeBuilding) {
    Outcome outcome = run(
        "big = string['rep']('b', 3000000)\n"
        "ok, e = pcall(gsub, string['rep']('a', 1000), 'a', big)\nprint(e)\n"
        "ok, e = pcall(gsub, string['rep']('1', 1000), '%d', big)\nprint(e)\n"
        "ok, e = pcall(gsub, string['rep']('ab', 1000), '(a)b', '\\\\`')\nprint(ok)\n");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.printed, "gsub: resulting string too large\ngsub: resulting string too large\ntrue\n");
}

TEST(HostilePatterns, TheCacheIsBoundedAndKeepsPatternsInUse) {
    const std::string hot = "(%a+)=(%d+)-hot";
    const uint64_t before = gsubPatternCompileCount();
    const bool hotCached = gsubPatternIsCached(hot);
    Outcome outcome = run("for i = 1, 3000\n  string['find']('x=1-hot', '(%a+)=(%d+)-hot')\n"
                          "  string['find']('x', 'x' + i + 'y')\nend\nprint('done')\n");
    EXPECT_EQ(outcome.printed, "done\n") << outcome.error;
    EXPECT_LE(gsubPatternCacheSize(), kPatternCacheCapacity);
    EXPECT_EQ(gsubPatternCompileCount(), before + 3000 + (hotCached ? 0 : 1));
    EXPECT_TRUE(gsubPatternIsCached(hot));
    // A loop over matches holds its pattern while the body pushes every other one out.
    Outcome held = run("n = 0\nfor k, v in ipairs(string['gmatch']('a1 b2 c3', '(%a)(%d)'))\n"
                       "  for i = 1, 300\n    string['find']('x', 'z' + i + 'q' + k)\n  end\n"
                       "  n += toNumber(v[2])\nend\nprint(n)\n");
    EXPECT_EQ(held.printed, "6\n") << held.error;
}
