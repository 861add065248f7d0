// Splitting a logical line into tokens, and the fixed classification of a token.
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "script/ParsedLine.h"

namespace orvane {

namespace {

bool isTwoCharOperator(char a, char b) {
    switch (a) {
    case '!': case '%': case '*': case '+': case '-': case '/':
    case '<': case '=': case '>': case '\\': case '^': case '~':
        return b == '=';
    case '&': return b == '&';
    case '|': return b == '|';
    default: return false;
    }
}

bool isSingleCharOperator(char c) {
    return c != '\0' && std::strchr("!#%()*+,-/:;<=>[\\]^{}", c) != nullptr;
}

}  // namespace

std::vector<std::string> tokenise(const std::string& text) {
    std::vector<std::string> tokens;
    tokens.reserve(text.size() / 2 + 8);
    size_t n = text.size();
    size_t wordStart = std::string::npos;
    auto endWord = [&](size_t at) {
        if (wordStart != std::string::npos) {
            tokens.emplace_back(text, wordStart, at - wordStart);
            wordStart = std::string::npos;
        }
    };
    for (size_t i = 0; i < n; ++i) {
        char c = text[i];
        if (c == '@' && i + 1 < n && text[i + 1] == '@') {
            endWord(i);
            return tokens;
        }
        if (c == '"' || c == '\'') {
            endWord(i);
            size_t j = i + 1;
            while (j < n && text[j] != c) j += (text[j] == '\\') ? 2 : 1;
            if (j >= n) throw TokenError("Unterminated string literal", text.substr(i));
            tokens.emplace_back(text, i, j + 1 - i);
            i = j;
            continue;
        }
        if (std::isspace(static_cast<unsigned char>(c))) {
            endWord(i);
            continue;
        }
        if (i + 1 < n && isTwoCharOperator(c, text[i + 1])) {
            endWord(i);
            tokens.emplace_back(text, i, 2);
            ++i;
            continue;
        }
        if (isSingleCharOperator(c)) {
            endWord(i);
            tokens.emplace_back(1, c);
            continue;
        }
        if (wordStart == std::string::npos) wordStart = i;
    }
    endWord(n);
    return tokens;
}

bool isIdentifier(const std::string& token) {
    if (token.empty()) return false;
    auto first = static_cast<unsigned char>(token[0]);
    if (!(std::isalpha(first) || first == '_' || first == '$') || first > 127) return false;
    for (char ch : token) {
        auto c = static_cast<unsigned char>(ch);
        if (c > 127 || !(std::isalnum(c) || c == '_' || c == '$')) return false;
    }
    return true;
}

bool tokenLooksNumeric(const std::string& token) {
    size_t i = 0;
    if (!token.empty() && (token[0] == '+' || token[0] == '-')) {
        if (token.size() < 2) return false;
        i = 1;
    }
    bool digit = false, point = false;
    for (; i < token.size(); ++i) {
        char c = token[i];
        if (c >= '0' && c <= '9') digit = true;
        else if (c == '.' && !point) point = true;
        else return false;
    }
    return digit;
}

bool isTrueToken(const std::string& token) {
    return token == "true" || token == "tre" || token == "tue" || token == "ture";
}

bool isFalseToken(const std::string& token) {
    return token == "false" || token == "flse" || token == "flase" || token == "fasle";
}

bool parseIntStrict(const std::string& token, int32_t& out) {
    size_t i = 0;
    bool negative = false;
    if (!token.empty() && (token[0] == '+' || token[0] == '-')) {
        negative = token[0] == '-';
        i = 1;
    }
    if (i >= token.size()) return false;
    int64_t value = 0;
    for (; i < token.size(); ++i) {
        char c = token[i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
        if (value > int64_t(INT32_MAX) + 1) return false;
    }
    if (negative) value = -value;
    if (value > INT32_MAX || value < INT32_MIN) return false;
    out = int32_t(value);
    return true;
}

bool parseFloatStrict(const std::string& token, float& out) {
    if (token.empty()) return false;
    errno = 0;
    char* end = nullptr;
    float value = std::strtof(token.c_str(), &end);
    if (end != token.c_str() + token.size() || errno == ERANGE) return false;
    out = value;
    return true;
}

TokenAnalysis analyseToken(const std::string& token) {
    TokenAnalysis a;
    a.isIdentifier = isIdentifier(token);
    a.isTrue = isTrueToken(token);
    a.isFalse = isFalseToken(token);
    a.looksNumeric = tokenLooksNumeric(token);
    if (a.looksNumeric) {
        a.isFloat = token.find_first_of(".eE") != std::string::npos;
        if (!a.isFloat) a.isInt = parseIntStrict(token, a.intValue);
    }
    return a;
}

}  // namespace orvane
