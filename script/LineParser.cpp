// Source text to logical lines: comments, continuation inside brackets and strings, `;` splits.
#include <algorithm>

#include "script/ParsedLine.h"

namespace orvane {

LineKind classifyParsedLineKind(const std::vector<std::string>& tokens) {
    if (tokens.empty()) return LineKind::Empty;
    const std::string& first = tokens[0];
    bool functionSecond = tokens.size() > 1 && tokens[1] == "function";
    if (first == "if") return LineKind::If;
    if (first == "elseif") return LineKind::ElseIf;
    if (first == "else") return LineKind::Else;
    if (first == "end") return LineKind::End;
    if (first == "while") return LineKind::While;
    if (first == "repeat") return LineKind::Repeat;
    if (first == "until") return LineKind::Until;
    if (first == "for") return LineKind::For;
    if (first == "function") return LineKind::Function;
    if (first == "decay" && functionSecond) return LineKind::DecayFunction;
    if (first == "native" && functionSecond) return LineKind::NativeFunction;
    if (first == "local" && functionSecond) return LineKind::LocalFunction;
    if (first == "return") return LineKind::Return;
    if (first == "break") return LineKind::Break;
    return LineKind::Statement;
}

namespace {

// The state of a logical line being gathered from physical lines.
struct LineGatherer {
    std::vector<ParsedScriptLine>& lines;
    std::string pending;
    uint64_t pendingLine = 0;

    void appendPiece(const std::string& line, size_t begin, size_t end, uint64_t lineNumber) {
        while (begin < end && (line[begin] == ' ' || line[begin] == '\t')) ++begin;
        while (end > begin && (line[end - 1] == ' ' || line[end - 1] == '\t')) --end;
        if (begin == end) return;
        if (pending.empty()) pendingLine = lineNumber;
        else pending += ' ';
        pending.append(line, begin, end - begin);
    }

    void flush() {
        if (pending.empty()) return;
        ParsedScriptLine parsed;
        parsed.text = pending;
        parsed.lineNumber = pendingLine;
        try {
            parsed.tokens = tokenise(parsed.text);
            parsed.tokens.shrink_to_fit();  // kept for as long as the script runs
        } catch (TokenError& e) {
            e.lineNumber = pendingLine;
            e.lineText = parsed.text;
            throw;
        }
        parsed.analyses.reserve(parsed.tokens.size());
        for (const std::string& token : parsed.tokens) parsed.analyses.push_back(analyseToken(token));
        lines.push_back(std::move(parsed));
        pending.clear();
    }

    void appendEmpty(uint64_t lineNumber) {
        ParsedScriptLine empty;
        empty.lineNumber = lineNumber;
        lines.push_back(std::move(empty));
    }
};

}  // namespace

std::vector<ParsedScriptLine> parseLines(const std::string& source) {
    std::vector<ParsedScriptLine> lines;
    lines.reserve(size_t(std::count(source.begin(), source.end(), '\n')) + 1);
    LineGatherer gather{lines, {}, 0};
    gather.pending.reserve(std::min<size_t>(256, source.size()));

    bool inString = false, escape = false;
    char quote = 0;
    int parens = 0, brackets = 0, braces = 0;
    uint64_t lineNumber = 0;
    size_t lineStart = 0;
    while (lineStart < source.size()) {
        size_t lineEnd = source.find('\n', lineStart);
        if (lineEnd == std::string::npos) lineEnd = source.size();
        const std::string line = source.substr(lineStart, lineEnd - lineStart);
        lineStart = lineEnd + 1;
        uint64_t number = lineNumber++;

        if (gather.pending.empty() && line.empty()) {
            gather.appendEmpty(number);
            continue;
        }
        size_t pieceStart = 0;
        size_t commentStart = std::string::npos;
        for (size_t j = 0; j < line.size(); ++j) {
            char c = line[j];
            if (inString) {
                if (escape) escape = false;
                else if (c == '\\') escape = true;
                else if (c == quote) inString = false;
                continue;
            }
            if (c == '@' && j + 1 < line.size() && line[j + 1] == '@') {
                commentStart = j;
                break;
            }
            switch (c) {
            case '"': case '\'': inString = true; quote = c; break;
            case '(': ++parens; break;
            case '[': ++brackets; break;
            case '{': ++braces; break;
            case ')': if (parens > 0) --parens; break;
            case ']': if (brackets > 0) --brackets; break;
            case '}': if (braces > 0) --braces; break;
            case ';':
                if (parens == 0 && brackets == 0 && braces == 0) {
                    gather.appendPiece(line, pieceStart, j, number);
                    gather.flush();
                    pieceStart = j + 1;
                }
                break;
            default: break;
            }
        }
        // A backslash at the end of a physical line escapes the joining blank, nothing more.
        escape = false;
        if (gather.pending.empty() && commentStart == 0) {
            gather.appendEmpty(number);
            continue;
        }
        size_t end = commentStart == std::string::npos ? line.size() : commentStart;
        gather.appendPiece(line, pieceStart, std::max(pieceStart, end), number);
        if (!inString && parens == 0 && brackets == 0 && braces == 0) gather.flush();
    }
    gather.flush();
    prepareParsedLines(lines);
    return lines;
}

}  // namespace orvane
