// Garbage scripts: any text gives a located error or runs, and never crashes or hangs.
#include <gtest/gtest.h>

#include <random>

#include "host/NuvraModule.h"
#include "script/OrvaneScript.h"

using namespace orvane;

namespace {

// Runs one text in a fresh interpreter whose `print` is silent; true when it raised an error.
bool runQuietly(const std::string& text, std::string* error = nullptr) {
    OrvaneScript script;
    script.pushFunction("print", [](const VariableArray&) { return Variable(); });
    script.pushVariable("Nuvra", makeModule("Nuvra", nuvraImageEntries()));
    try {
        script.runScript(text);
    } catch (const std::exception& e) {
        if (error) *error = e.what();
        EXPECT_EQ(std::string(e.what()).rfind("OrvaneScript error: ", 0), 0u) << e.what();
        return true;
    }
    return false;
}

// Tokens that make real statements often enough to reach deep paths, but no unbounded loop:
// there is no `while` or `repeat`, and numbers stay small so nested `for`s end quickly.
const char* const kPieces[] = {
    "if", "elseif", "else", "end", "for", "in", "function", "local", "native", "return", "break", "not",
    "and", "or", "pairs", "ipairs", "pcall", "error", "assert", "select", "next", "len", "push", "pop",
    "set", "get", "keys", "values", "toNumber", "toString", "load", "erase", "contains", "x", "y", "t", "f",
    "...", "=", "+=", "-=", "*=", "/=", "\\=", "%=", "^=", "==", "!=", "<", ">", "<=", ">=", "+", "-", "*",
    "/", "\\", "%", "^", "#", "!", "(", ")", "[", "]", "{", "}", ",", ":", ";", "'s'", "\"q\"", "'", "\"",
    "0", "1", "2", "3", "9", "1.5", "-1", "true", "flase", "\n", "\n", "\n", "@@", "x[1]", "t['k']", "f()",
};

std::string randomScript(std::mt19937& random) {
    std::string text;
    std::uniform_int_distribution<size_t> pick(0, std::size(kPieces) - 1);
    std::uniform_int_distribution<int> length(1, 60), chance(0, 99), byte(0, 255);
    int n = length(random);
    for (int i = 0; i < n; ++i) {
        if (chance(random) < 3) text += char(byte(random));
        else text += kPieces[pick(random)];
        text += ' ';
    }
    return text;
}

}  // namespace

TEST(Fuzz, GeneratedGarbageScripts) {
    std::mt19937 random(12345);
    int errors = 0;
    for (int i = 0; i < 3000; ++i) errors += runQuietly(randomScript(random));
    // Most garbage is an error, some of it runs: both roads were taken.
    EXPECT_GT(errors, 1000);
    EXPECT_LT(errors, 3000);
}

TEST(Fuzz, HostileShapes) {
    std::string error;
    EXPECT_TRUE(runQuietly(std::string(1 << 20, 'a') + " b", &error));
    EXPECT_TRUE(runQuietly("x = " + std::string(200000, '('), &error));
    EXPECT_TRUE(runQuietly("x = " + std::string(200000, '[') + "1", &error));
    EXPECT_TRUE(runQuietly("x = " + std::string(100000, '-') + "1 +", &error));
    EXPECT_TRUE(runQuietly("x = 'never closed\ny = 1", &error));
    EXPECT_NE(error.find("Unterminated string literal"), std::string::npos);
    EXPECT_TRUE(runQuietly(std::string(5000, '\xff') + "\n\x01\x02 = \x80", &error));
    EXPECT_FALSE(runQuietly("end end end\nx = 1", &error));  // stray closers do nothing
    EXPECT_TRUE(runQuietly("x[2000000000] = 1", &error));
    EXPECT_NE(error.find("Array index out of range"), std::string::npos);
    std::string nested;
    for (int i = 0; i < 150; ++i) nested += "if 1\n";
    EXPECT_TRUE(runQuietly(nested, &error));
    EXPECT_NE(error.find("Missing 'end' for if block"), std::string::npos);
    for (int i = 0; i < 150; ++i) nested += "end\n";
    EXPECT_FALSE(runQuietly(nested));
}

namespace {

// Deep shapes of the four kinds that once crashed: blocks, data, patterns and killed images,
// each at a random size around its bound, often cut short or malformed on purpose.
std::string deepScript(std::mt19937& random) {
    std::uniform_int_distribution<int> kind(0, 3), depth(1, 400), chance(0, 99);
    std::string text;
    const int n = depth(random);
    switch (kind(random)) {
    case 0: {
        const char* const openers[] = {"if x\n", "while x\n", "for i = 1, 1\n", "function f()\n", "repeat\n"};
        std::vector<int> open;
        for (int i = 0; i < n; ++i) {
            const int which = int(random() % std::size(openers));
            open.push_back(which);
            text += openers[which];
        }
        text += "y = 1\n";
        const bool cut = chance(random) < 20;
        for (size_t i = open.size(); i-- > (cut ? open.size() / 2 : 0);) text += open[i] == 4 ? "until true\n" : "end\n";
        break;
    }
    case 1: {
        const int length = n * 100;
        const bool tables = chance(random) < 50;
        text += "a = 0\nfor i = 1, " + std::to_string(length) + "\n";
        text += tables ? "  t = {}\n  t['n'] = a\n  a = t\nend\n" : "  a = [a, i]\nend\n";
        const char* const drops[] = {"a = 0\n", "a = a[1]\n", "b = a\na = 1\nb = 2\n", "a[1][1][5] = a\na[1][1][5] = 0\n",
                                     "x = toString(a)\n", "c = [a, a]\nc = 0\n"};
        text += drops[random() % std::size(drops)];
        text += "a = 0\n";
        break;
    }
    case 2: {
        const int subject = int(random() % 5000);
        std::string pattern = std::string(size_t(n / 2), '(') + (chance(random) < 50 ? "a*" : "a") +
                              std::string(size_t(n / 2) - (chance(random) < 10 ? 1 : 0), ')') +
                              (chance(random) < 50 ? "*" : "");
        if (chance(random) < 50) pattern = "re:" + pattern;
        const char* const calls[] = {"string['find'](s, p)", "string['match'](s, p)", "string['gmatch'](s, p)",
                                     "gsub(s, p, '<\\\\1>')"};
        text += "s = string['rep']('a', " + std::to_string(subject) + ")\np = '" + pattern + "'\n";
        text += "r = " + std::string(calls[random() % std::size(calls)]) + "\n";
        break;
    }
    default: {
        text += "a = Nuvra['createImage'](" + std::to_string(n % 9) + ", 3, 1, 2, 3, 4)\n";
        text += "b = Nuvra['createImage'](2, 2, 0, 0, 0, 0)\n";
        if (chance(random) < 80) text += "Nuvra['killImage'](a)\n";
        const char* const uses[] = {"Nuvra['imageSize'](a)", "Nuvra['blitImage'](b, a, 0, 0, true, 1.5, 0.5)",
                                    "Nuvra['blitImage'](a, b, -1, 1, false, 1.0, 0.0)", "Nuvra['saveNuvraImage'](a, 'f.nmg')",
                                    "Nuvra['checkImage'](a)", "Nuvra['killImage'](a)", "Nuvra['saveImage']('', a)"};
        for (int i = 0; i < 3; ++i) text += std::string("x = ") + uses[random() % std::size(uses)] + "\n";
        text += "Nuvra['killImage'](b)\n";
        break;
    }
    }
    return text;
}

}  // namespace

TEST(Fuzz, GeneratedDeepShapes) {
    std::mt19937 random(4242);
    int errors = 0;
    for (int i = 0; i < 80; ++i) errors += runQuietly(deepScript(random));
    EXPECT_GT(errors, 10);
    EXPECT_LT(errors, 80);
}
