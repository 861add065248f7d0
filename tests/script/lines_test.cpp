// Source text to tokens and prepared lines: what the executors rely on never re-scanning.
#include <gtest/gtest.h>

#include "script/ParsedLine.h"

using namespace orvane;

namespace {

std::vector<std::string> texts(const std::vector<ParsedScriptLine>& lines) {
    std::vector<std::string> out;
    for (const auto& line : lines) out.push_back(line.text);
    return out;
}

}  // namespace

TEST(Tokens, OperatorsWordsAndStrings) {
    using V = std::vector<std::string>;
    EXPECT_EQ(tokenise("a~=b"), (V{"a", "~=", "b"}));
    EXPECT_EQ(tokenise("a&&b"), (V{"a", "&&", "b"}));
    EXPECT_EQ(tokenise("a&b"), (V{"a&b"}));
    EXPECT_EQ(tokenise("-5"), (V{"-", "5"}));
    EXPECT_EQ(tokenise("x = 1.5.2 + ..."), (V{"x", "=", "1.5.2", "+", "..."}));
    EXPECT_EQ(tokenise("s = 'a @@ b' @@ gone"), (V{"s", "=", "'a @@ b'"}));
    EXPECT_EQ(tokenise("f('it\\'s', \"q\")"), (V{"f", "(", "'it\\'s'", ",", "\"q\"", ")"}));
    EXPECT_EQ(tokenise("t[1]+=2"), (V{"t", "[", "1", "]", "+=", "2"}));
}

TEST(Tokens, UnterminatedStringNamesTheRestOfTheText) {
    try {
        tokenise("x = 'abc + 1");
        FAIL() << "no error";
    } catch (const TokenError& e) {
        EXPECT_STREQ(e.what(), "Unterminated string literal");
        EXPECT_EQ(e.nearToken, "'abc + 1");
    }
}

TEST(Tokens, Classification) {
    EXPECT_TRUE(analyseToken("ture").isTrue);
    EXPECT_TRUE(analyseToken("flase").isFalse);
    EXPECT_TRUE(analyseToken("$a_1").isIdentifier);
    EXPECT_FALSE(analyseToken("1a").isIdentifier);
    TokenAnalysis big = analyseToken("3000000000");
    EXPECT_TRUE(big.looksNumeric);
    EXPECT_FALSE(big.isInt);
    EXPECT_FALSE(big.isFloat);
    EXPECT_TRUE(analyseToken("1.5").isFloat);
    EXPECT_FALSE(tokenLooksNumeric("1.5.2"));
    EXPECT_FALSE(tokenLooksNumeric("1e5"));
    EXPECT_FALSE(tokenLooksNumeric("."));
    EXPECT_FALSE(tokenLooksNumeric("0x10"));
    int32_t v = 0;
    EXPECT_TRUE(parseIntStrict("-2147483648", v));
    EXPECT_EQ(v, INT32_MIN);
    EXPECT_FALSE(parseIntStrict("2147483648", v));
    EXPECT_FALSE(parseIntStrict(" 12", v));
}

TEST(Lines, PhysicalAndLogicalLines) {
    EXPECT_TRUE(parseLines("").empty());
    auto two = parseLines("x = 1; y = 2");
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].lineNumber, two[1].lineNumber);
    EXPECT_EQ(texts(parseLines("t = [1,\n   2]")), (std::vector<std::string>{"t = [1, 2]"}));
    EXPECT_EQ(texts(parseLines("s = 'a\n    b'")), (std::vector<std::string>{"s = 'a b'"}));
    EXPECT_EQ(texts(parseLines("a = 1 @@ b")), (std::vector<std::string>{"a = 1"}));
    // A blank-only line gives no entry; an empty line and a comment line at column 0 give an empty one.
    auto mixed = parseLines("a = 1\n   \n\n@@ note\n  @@ indented\nb = 2");
    ASSERT_EQ(mixed.size(), 4u);
    EXPECT_EQ(mixed[1].kind, LineKind::Empty);
    EXPECT_EQ(mixed[2].kind, LineKind::Empty);
    EXPECT_EQ(mixed[3].lineNumber, 5u);
    // `;` inside brackets is a token of its own.
    auto bracketed = parseLines("f(a; b)");
    ASSERT_EQ(bracketed.size(), 1u);
    EXPECT_EQ(bracketed[0].tokens.size(), 6u);
}

TEST(Lines, AssignmentShapes) {
    auto lines = parseLines("a[1]\na[1] = 2\na, b\nlocal a, b\nnative a\na[] = 1\nx = 1,\nx[y[1]] = 5\nx, y = f()");
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_FALSE(lines[0].isAssignment);
    ASSERT_TRUE(lines[1].isAssignment);
    ASSERT_EQ(lines[1].targets[0].indexRanges.size(), 1u);
    EXPECT_EQ(lines[1].targets[0].indexRanges[0], (TokenRange{2, 3}));
    EXPECT_FALSE(lines[2].isAssignment);
    ASSERT_TRUE(lines[3].isAssignment);
    EXPECT_EQ(lines[3].scopeTarget, 2);
    EXPECT_EQ(lines[3].assignOperatorIndex, lines[3].tokens.size());
    EXPECT_TRUE(lines[3].valueRanges.empty());
    EXPECT_FALSE(lines[4].isAssignment);
    EXPECT_FALSE(lines[5].isAssignment);
    EXPECT_FALSE(lines[6].isAssignment);
    ASSERT_TRUE(lines[7].isAssignment);
    EXPECT_EQ(lines[7].targets[0].indexRanges[0], (TokenRange{2, 6}));
    ASSERT_TRUE(lines[8].isAssignment);
    EXPECT_EQ(lines[8].targets.size(), 2u);
    EXPECT_EQ(lines[8].valueRanges.size(), 1u);
}

TEST(Lines, BlockLinks) {
    auto lines = parseLines(
        "if a\n"          // 0
        "x = 1\n"         // 1
        "elseif b\n"      // 2
        "while c\n"       // 3
        "end\n"           // 4
        "else\n"          // 5
        "repeat\n"        // 6
        "until d\n"       // 7
        "end\n"           // 8
        "function f()\n"  // 9
        "end\n"           // 10
        "end\n");         // 11: stray, ignored here
    EXPECT_EQ(lines[0].nextClauseIndex, 2u);
    EXPECT_EQ(lines[2].nextClauseIndex, 5u);
    EXPECT_EQ(lines[5].nextClauseIndex, kNoLink);
    for (size_t clause : {0, 2, 5}) EXPECT_EQ(lines[clause].matchIndex, 8u);
    EXPECT_EQ(lines[3].matchIndex, 4u);
    EXPECT_EQ(lines[6].matchIndex, 7u);
    EXPECT_EQ(lines[9].matchIndex, 10u);
    EXPECT_EQ(lines[11].kind, LineKind::End);

    auto open = parseLines("while x\ny = 1");
    EXPECT_THROW(findMatchingEnd(open, 1), std::runtime_error);
    bool isClause = true;
    EXPECT_THROW(findMatchingElseOrEnd(open, 0, isClause), std::runtime_error);
}
