// Derived fields of parsed lines: assignment shapes and the links between the lines of a block.
#include <stdexcept>

#include "script/OrvaneScript.h"
#include "script/ParsedLine.h"

namespace orvane {

size_t scanBracketRange(const std::vector<std::string>& tokens, size_t start, const char* stop) {
    int parens = 0, brackets = 0, braces = 0;
    const std::string stopText = stop;
    for (size_t i = start; i < tokens.size(); ++i) {
        const std::string& t = tokens[i];
        if (parens == 0 && brackets == 0 && braces == 0) {
            if (stopText.empty() ? t == "," : t == stopText) return i;
        }
        if (t == "(") ++parens;
        else if (t == "[") ++brackets;
        else if (t == "{") ++braces;
        else if (t == ")") { if (parens > 0) --parens; }
        else if (t == "]") { if (brackets > 0) --brackets; }
        else if (t == "}") { if (braces > 0) --braces; }
    }
    return tokens.size();
}

namespace {

bool isAssignOperator(const std::string& t) {
    return t == "=" || t == "+=" || t == "-=" || t == "*=" || t == "/=" || t == "\\=" || t == "%=" || t == "^=";
}

// Targets separated by commas, each a name with `[...]` behind it. False discards the list.
bool readTargets(const std::vector<std::string>& tokens, size_t& cursor, std::vector<ParsedAssignmentTarget>& out) {
    for (;;) {
        if (cursor >= tokens.size() || !isIdentifier(tokens[cursor])) return false;
        ParsedAssignmentTarget target;
        target.nameToken = cursor++;
        while (cursor < tokens.size() && tokens[cursor] == "[") {
            size_t close = scanBracketRange(tokens, cursor + 1, "]");
            if (close >= tokens.size() || close == cursor + 1) return false;
            target.indexRanges.emplace_back(cursor + 1, close);
            cursor = close + 1;
        }
        out.push_back(std::move(target));
        if (cursor < tokens.size() && tokens[cursor] == ",") {
            ++cursor;
            continue;
        }
        return true;
    }
}

// Ranges split at top-level commas up to the end of the tokens. False when a range is empty
// or the split doesn't end exactly at the last token.
bool splitValueRanges(const std::vector<std::string>& tokens, size_t cursor, std::vector<TokenRange>& out) {
    while (cursor < tokens.size()) {
        size_t end = scanBracketRange(tokens, cursor, "");
        if (end == cursor) return false;
        out.emplace_back(cursor, end);
        if (end >= tokens.size()) return true;
        cursor = end + 1;  // behind the comma
        if (cursor >= tokens.size()) return false;
    }
    return !out.empty();
}

// A script's compiled forms stay for as long as it runs: they keep no spare capacity.
FastExpression compileRange(const ParsedScriptLine& line, TokenRange range) {
    FastExpression e = compileFastExpressionRange(line.tokens, line.analyses, range.first, range.second);
    e.nodes.shrink_to_fit();
    e.steps.shrink_to_fit();
    return e;
}

void prepareAssignment(ParsedScriptLine& line) {
    const auto& tokens = line.tokens;
    size_t cursor = 0;
    if (tokens[0] == "native") { line.scopeTarget = 1; cursor = 1; }
    else if (tokens[0] == "local") { line.scopeTarget = 2; cursor = 1; }

    std::vector<ParsedAssignmentTarget> targets;
    if (!readTargets(tokens, cursor, targets)) return;
    if (line.scopeTarget == 2 && cursor == tokens.size()) {
        line.isAssignment = true;
        line.assignOperatorIndex = tokens.size();
        line.targets = std::move(targets);
        return;
    }
    if (cursor >= tokens.size() || !isAssignOperator(tokens[cursor])) return;
    std::vector<TokenRange> values;
    if (!splitValueRanges(tokens, cursor + 1, values)) return;
    line.isAssignment = true;
    line.assignOperatorIndex = cursor;
    line.targets = std::move(targets);
    line.valueRanges = std::move(values);
}

void compileAssignment(ParsedScriptLine& line) {
    for (const TokenRange& range : line.valueRanges) line.valueExpressions.push_back(compileRange(line, range));
    for (ParsedAssignmentTarget& target : line.targets)
        for (const TokenRange& range : target.indexRanges) target.indexExpressions.push_back(compileRange(line, range));
    line.storesElement = line.targets.size() == 1 && line.targets[0].indexExpressions.size() == 1 &&
                         line.valueExpressions.size() == 1 && line.scopeTarget == 0 &&
                         line.assignOperatorIndex < line.tokens.size() && line.tokens[line.assignOperatorIndex] == "=" &&
                         !line.targets[0].indexExpressions[0].steps.empty() && !line.valueExpressions[0].steps.empty();
    if (line.targets.size() == 1 && line.targets[0].indexRanges.empty() && line.valueRanges.size() == 1) {
        line.hasSingleValue = true;
        line.singleCall = compileFastCallExpressionRange(line.tokens, line.analyses, line.valueRanges[0].first,
                                                         line.valueRanges[0].second);
    }
}

// Ranges split at top-level commas from `cursor` to the end; false when one is empty.
bool splitAtCommas(const std::vector<std::string>& tokens, size_t cursor, std::vector<TokenRange>& out) {
    while (cursor < tokens.size()) {
        size_t end = scanBracketRange(tokens, cursor, "");
        if (end == cursor) return false;
        out.emplace_back(cursor, end);
        if (end >= tokens.size()) return true;
        cursor = end + 1;
        if (cursor >= tokens.size()) return false;
    }
    return false;
}

void compileFor(ParsedScriptLine& line) {
    const auto& tokens = line.tokens;
    auto clause = std::make_shared<ForClause>();
    line.forForms = clause;
    if (isIdentifier(tokens[1]) && tokens[2] == "=") {
        clause->isNumeric = true;
        size_t startEnd = scanBracketRange(tokens, 3, "");
        if (startEnd == 3 || startEnd >= tokens.size()) return;
        size_t limitBegin = startEnd + 1;
        size_t limitEnd = scanBracketRange(tokens, limitBegin, "");
        if (limitEnd == limitBegin) return;
        FastExpression start = compileRange(line, {3, startEnd});
        FastExpression limit = compileRange(line, {limitBegin, limitEnd});
        if (limitEnd < tokens.size()) {
            size_t stepBegin = limitEnd + 1;
            if (stepBegin >= tokens.size()) return;
            size_t stepEnd = scanBracketRange(tokens, stepBegin, "");
            if (stepEnd != tokens.size()) return;
            clause->step = compileRange(line, {stepBegin, stepEnd});
            clause->hasStep = true;
        }
        clause->start = std::move(start);
        clause->limit = std::move(limit);
        return;
    }
    size_t cursor = 1;
    while (cursor < tokens.size() && isIdentifier(tokens[cursor])) {
        clause->variables.push_back(cursor++);
        if (cursor < tokens.size() && tokens[cursor] == ",") ++cursor;
        else break;
    }
    if (clause->variables.empty() || cursor + 1 >= tokens.size() || tokens[cursor] != "in") {
        clause->variables.clear();
        return;
    }
    size_t begin = cursor + 1;
    clause->iterator = compileRange(line, {begin, tokens.size()});
    if (isIdentifier(tokens[begin]) && begin + 1 < tokens.size() && tokens[begin + 1] == "(" &&
        tokens.back() == ")" && begin + 3 < tokens.size() &&
        scanBracketRange(tokens, begin + 2, ")") == tokens.size() - 1) {
        uint8_t id = builtinIdFromName(tokens[begin]);
        if (id == kBuiltinPairs || id == kBuiltinIpairs) {
            clause->iteratorBuiltin = id;
            clause->iterator = compileRange(line, {begin + 2, tokens.size() - 1});
        }
    }
}

void compileLine(ParsedScriptLine& line) {
    const auto& tokens = line.tokens;
    if (line.isAssignment) compileAssignment(line);
    switch (line.kind) {
    case LineKind::If:
    case LineKind::ElseIf:
    case LineKind::While:
    case LineKind::Until:
        line.expression = compileRange(line, {1, tokens.size()});
        break;
    case LineKind::Statement:
        if (!line.isAssignment) line.expression = compileRange(line, {0, tokens.size()});
        break;
    case LineKind::Return:
        if (tokens.size() > 1) {
            std::vector<TokenRange> ranges;
            if (splitAtCommas(tokens, 1, ranges))
                for (const TokenRange& range : ranges) line.returnValues.push_back(compileRange(line, range));
        }
        break;
    case LineKind::For:
        if (tokens.size() > 3) compileFor(line);
        break;
    default: break;
    }
}

bool opensBlock(LineKind kind) {
    switch (kind) {
    case LineKind::If:
    case LineKind::While:
    case LineKind::Repeat:
    case LineKind::For:
    case LineKind::Function:
    case LineKind::DecayFunction:
    case LineKind::NativeFunction:
    case LineKind::LocalFunction: return true;
    default: return false;
    }
}

struct BlockEntry {
    int kind;  // 0 if, 1 while, 2 for, 3 function, 4 repeat
    size_t opener;
    std::vector<size_t> clauses;
};

}  // namespace

void prepareParsedLines(std::vector<ParsedScriptLine>& lines, bool compile) {
    for (ParsedScriptLine& line : lines) {
        line.kind = classifyParsedLineKind(line.tokens);
        line.matchIndex = kNoLink;
        line.nextClauseIndex = kNoLink;
        line.prepared = true;
        line.isAssignment = false;
        line.scopeTarget = 0;
        line.assignOperatorIndex = 0;
        line.targets.clear();
        line.valueRanges.clear();
        line.valueExpressions.clear();
        line.hasSingleValue = false;
        line.singleCall = {};
        line.storesElement = false;
        line.expression = {};
        line.returnValues.clear();
        line.forForms.reset();
        line.strayCloser = false;
        if (line.tokens.empty()) continue;
        prepareAssignment(line);
        if (compile) compileLine(line);
    }

    std::vector<BlockEntry> stack;
    stack.reserve(lines.size() / 4 + 4);
    for (size_t i = 0; i < lines.size(); ++i) {
        // Every later pass over the blocks (compilers, loop code, executors) recurses once per
        // level: bounding the nesting here bounds them all, in every build alike.
        if (stack.size() == kMaxBlockNesting && opensBlock(lines[i].kind))
            throw std::runtime_error("Blocks nested deeper than " + std::to_string(kMaxBlockNesting) +
                                     " levels, at line " + std::to_string(lines[i].lineNumber + 1));
        switch (lines[i].kind) {
        case LineKind::If: stack.push_back({0, i, {i}}); break;
        case LineKind::ElseIf:
        case LineKind::Else:
            if (!stack.empty() && stack.back().kind == 0 && !stack.back().clauses.empty()) {
                lines[stack.back().clauses.back()].nextClauseIndex = i;
                stack.back().clauses.push_back(i);
            } else {
                lines[i].strayCloser = true;
            }
            break;
        case LineKind::While: stack.push_back({1, i, {}}); break;
        case LineKind::Repeat: stack.push_back({4, i, {}}); break;
        case LineKind::For: stack.push_back({2, i, {}}); break;
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: stack.push_back({3, i, {}}); break;
        case LineKind::Until:
            if (!stack.empty() && stack.back().kind == 4) {
                lines[stack.back().opener].matchIndex = i;
                stack.pop_back();
            } else {
                lines[i].strayCloser = true;
            }
            break;
        case LineKind::End:
            if (stack.empty()) {
                lines[i].strayCloser = true;
                break;
            }
            if (stack.back().kind == 0) {
                for (size_t clause : stack.back().clauses) lines[clause].matchIndex = i;
            } else {
                lines[stack.back().opener].matchIndex = i;
            }
            stack.pop_back();
            break;
        default: break;
        }
    }
}

size_t findMatchingEnd(const std::vector<ParsedScriptLine>& lines, size_t bodyStart) {
    if (bodyStart == 0 || bodyStart > lines.size() || lines[bodyStart - 1].matchIndex == kNoLink)
        throw std::runtime_error("Missing 'end' for block");
    return size_t(lines[bodyStart - 1].matchIndex);
}

size_t findMatchingUntil(const std::vector<ParsedScriptLine>& lines, size_t bodyStart) {
    if (bodyStart == 0 || bodyStart > lines.size() || lines[bodyStart - 1].matchIndex == kNoLink)
        throw std::runtime_error("Missing 'until' for repeat block");
    return size_t(lines[bodyStart - 1].matchIndex);
}

size_t findMatchingElseOrEnd(const std::vector<ParsedScriptLine>& lines, size_t bodyStart, bool& isClause) {
    if (bodyStart == 0 || bodyStart > lines.size())
        throw std::runtime_error("Missing 'end' for if block");
    const ParsedScriptLine& line = lines[bodyStart - 1];
    if (line.nextClauseIndex != kNoLink) {
        isClause = true;
        return size_t(line.nextClauseIndex);
    }
    if (line.matchIndex == kNoLink) throw std::runtime_error("Missing 'end' for if block");
    isClause = false;
    return size_t(line.matchIndex);
}

}  // namespace orvane
