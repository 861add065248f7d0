// Garbage scripts: any text gives a located error or runs, and never crashes or hangs.
#include <gtest/gtest.h>

#include <random>

#include "script/OrvaneScript.h"

using namespace orvane;

namespace {

// Runs one text in a fresh interpreter whose `print` is silent; true when it raised an error.
bool runQuietly(const std::string& text, std::string* error = nullptr) {
    OrvaneScript script;
    script.pushFunction("print", [](const VariableArray&) { return Variable(); });
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
    EXPECT_TRUE(runQuietly("end end end\nx = 1", &error));
    EXPECT_TRUE(runQuietly("x[2000000000] = 1", &error));
    EXPECT_NE(error.find("Array index out of range"), std::string::npos);
    std::string nested;
    for (int i = 0; i < 400; ++i) nested += "if 1\n";
    EXPECT_TRUE(runQuietly(nested, &error));
    EXPECT_NE(error.find("Missing 'end' for if block"), std::string::npos);
    for (int i = 0; i < 400; ++i) nested += "end\n";
    EXPECT_FALSE(runQuietly(nested));
}
