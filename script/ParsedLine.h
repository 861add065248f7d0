// The parsed form of a logical line, on which the executors work directly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "script/FastExpression.h"

namespace orvane {

enum : uint8_t {
    kScopeKindNone = 0,
    kScopeKindLocal = 1,
    kScopeKindNative = 2,
    kScopeKindFastParam = 3,
    kScopeKindGlobal = 4,
};

struct TokenAnalysis {
    bool isIdentifier = false;
    bool isTrue = false;
    bool isFalse = false;
    bool looksNumeric = false;
    bool isFloat = false;
    bool isInt = false;
    // Resolution cache, written at run time by name lookup; the small fields first, so that one
    // analysis per token takes 56 bytes.
    bool globalFound = false;
    bool globalLooked = false;
    int32_t intValue = 0;
    uint8_t scopeKind = kScopeKindNone;
    uint16_t scopeDepth = 0;
    uint64_t scopeSlot = 0;         // the slot in the scope; for a global, the shadow epoch it was found at
    const void* scopePtr = nullptr;  // the scope; for a global, the global's slot itself
    uint64_t globalSlot = 0;
    // The variable the name stood for while the interpreter's scope epoch was cachedEpoch: the
    // same stacks give the same answer, so it holds with no check at all until they change.
    uint64_t cachedEpoch = 0;
    void* cachedVariable = nullptr;
};

using TokenRange = std::pair<size_t, size_t>;  // [first, last)

struct ParsedAssignmentTarget {
    size_t nameToken = 0;
    std::vector<TokenRange> indexRanges;
    std::vector<FastExpression> indexExpressions;
};

enum class LineKind : uint8_t {
    Empty = 0,
    Statement = 1,
    If = 2,
    ElseIf = 3,
    Else = 4,
    End = 5,
    While = 6,
    Repeat = 7,
    Until = 8,
    For = 9,
    Function = 10,
    DecayFunction = 11,
    NativeFunction = 12,
    LocalFunction = 13,
    Return = 14,
    Break = 15,
};

constexpr uint64_t kNoLink = ~uint64_t(0);

// The compiled clause of a `for` line. It lives apart from the line, shared by the line's copies,
// so that the far more numerous other lines don't carry four empty expressions each.
struct ForClause {
    bool isNumeric = false;
    FastExpression start, limit, step;
    bool hasStep = false;
    std::vector<uint64_t> variables;
    FastExpression iterator;
    uint8_t iteratorBuiltin = 0;
};

inline const ForClause kNoForClause{};
inline const FastExpression kNoExpression{};

struct ParsedScriptLine {
    std::string text;
    uint64_t lineNumber = 0;
    std::vector<std::string> tokens;
    mutable std::vector<TokenAnalysis> analyses;
    LineKind kind = LineKind::Empty;
    uint64_t matchIndex = kNoLink;
    uint64_t nextClauseIndex = kNoLink;
    // An `end`, `else`, `elseif` or `until` that closes no block: it does nothing where it stands.
    bool strayCloser = false;
    bool prepared = false;
    bool isAssignment = false;
    uint8_t scopeTarget = 0;
    uint64_t assignOperatorIndex = 0;
    std::vector<ParsedAssignmentTarget> targets;
    std::vector<TokenRange> valueRanges;
    std::vector<FastExpression> valueExpressions;
    // `name = value` with one value: that value's expression is valueExpressions[0].
    bool hasSingleValue = false;
    const FastExpression& singleValue() const { return hasSingleValue ? valueExpressions[0] : kNoExpression; }
    FastCallExpression singleCall;
    // `name[key] = value` with key and value compiled to steps: an array element may take it in place.
    bool storesElement = false;
    // The condition of an `if`, `elseif`, `while` or `until` line, or the expression of a
    // statement line that assigns nothing: one field, since a line is never both.
    FastExpression expression;
    std::vector<FastExpression> returnValues;
    std::shared_ptr<const ForClause> forForms;
    const ForClause& forClause() const { return forForms ? *forForms : kNoForClause; }
};

enum class BlockSignal : uint8_t { None = 0, Return = 1, Break = 2 };

// The one error of tokenising: an unterminated string. It carries what the interpreter needs to
// locate it, since tokenising happens before any line runs.
struct TokenError : std::runtime_error {
    TokenError(const std::string& message, std::string near)
        : std::runtime_error(message), nearToken(std::move(near)) {}
    std::string nearToken;
    uint64_t lineNumber = 0;
    std::string lineText;
};

// Tokens and their fixed classification.
std::vector<std::string> tokenise(const std::string& text);
TokenAnalysis analyseToken(const std::string& token);
bool isIdentifier(const std::string& token);
bool tokenLooksNumeric(const std::string& token);
bool isTrueToken(const std::string& token);
bool isFalseToken(const std::string& token);
bool parseIntStrict(const std::string& token, int32_t& out);
bool parseFloatStrict(const std::string& token, float& out);

// Source text to prepared lines.
LineKind classifyParsedLineKind(const std::vector<std::string>& tokens);
std::vector<ParsedScriptLine> parseLines(const std::string& source);

// Block links, assignment shapes and compiled expressions. Without `compile`, lines keep no
// compiled forms and every expression runs on the token evaluator.
void prepareParsedLines(std::vector<ParsedScriptLine>& lines, bool compile = true);
size_t findMatchingEnd(const std::vector<ParsedScriptLine>& lines, size_t bodyStart);
size_t findMatchingUntil(const std::vector<ParsedScriptLine>& lines, size_t bodyStart);
size_t findMatchingElseOrEnd(const std::vector<ParsedScriptLine>& lines, size_t bodyStart, bool& isClause);
// The matching-bracket scan of line preparation: the index that ends the range from `start`.
size_t scanBracketRange(const std::vector<std::string>& tokens, size_t start, const char* stop);

}  // namespace orvane
