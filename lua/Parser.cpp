// From source text to statements: the lexer makes all tokens first, then a recursive descent
// parser with one token of lookahead (two for `Name =` in a table constructor) builds the tree.
#include <charconv>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "lua/Ast.h"

namespace orvane::lua {

void failParse(const std::string& chunkName, uint32_t line, uint32_t column, const std::string& message) {
    throw std::runtime_error(chunkName + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message);
}

namespace {

struct Token {
    TokenKind kind = TokenKind::EndOfFile;
    std::string text;
    uint32_t line = 1;
    uint32_t column = 1;
};

struct Keyword {
    const char* text;
    TokenKind kind;
};

const Keyword kKeywords[] = {
    {"and", TokenKind::And},       {"break", TokenKind::Break},   {"do", TokenKind::Do},
    {"else", TokenKind::Else},     {"elseif", TokenKind::Elseif}, {"end", TokenKind::End},
    {"false", TokenKind::False},   {"for", TokenKind::For},       {"function", TokenKind::Function},
    {"if", TokenKind::If},         {"in", TokenKind::In},         {"local", TokenKind::Local},
    {"nil", TokenKind::Nil},       {"not", TokenKind::Not},       {"or", TokenKind::Or},
    {"return", TokenKind::Return}, {"then", TokenKind::Then},     {"true", TokenKind::True},
    {"while", TokenKind::While},
};

class Lexer {
public:
    Lexer(const std::string& source, const std::string& chunkName) : source(source), chunkName(chunkName) {}

    std::vector<Token> scanTokens() {
        std::vector<Token> tokens;
        for (;;) {
            skipWhitespaceAndComments();
            if (isAtEnd()) break;
            tokenLine = line;
            tokenColumn = column;
            size_t start = position;
            unsigned char c = advance();
            switch (c) {
            case '(': tokens.push_back(makeToken(TokenKind::LeftParen, "(")); break;
            case ')': tokens.push_back(makeToken(TokenKind::RightParen, ")")); break;
            case '{': tokens.push_back(makeToken(TokenKind::LeftBrace, "{")); break;
            case '}': tokens.push_back(makeToken(TokenKind::RightBrace, "}")); break;
            case ']': tokens.push_back(makeToken(TokenKind::RightBracket, "]")); break;
            case ',': tokens.push_back(makeToken(TokenKind::Comma, ",")); break;
            case ';': tokens.push_back(makeToken(TokenKind::Semicolon, ";")); break;
            case ':': tokens.push_back(makeToken(TokenKind::Colon, ":")); break;
            case '+': tokens.push_back(makeToken(TokenKind::Plus, "+")); break;
            case '-': tokens.push_back(makeToken(TokenKind::Minus, "-")); break;
            case '*': tokens.push_back(makeToken(TokenKind::Star, "*")); break;
            case '/': tokens.push_back(makeToken(TokenKind::Slash, "/")); break;
            case '%': tokens.push_back(makeToken(TokenKind::Percent, "%")); break;
            case '#': tokens.push_back(makeToken(TokenKind::Hash, "#")); break;
            case '[':
                if (peek() == '[') {
                    advance();
                    tokens.push_back(makeToken(TokenKind::String, readLongString()));
                } else {
                    tokens.push_back(makeToken(TokenKind::LeftBracket, "["));
                }
                break;
            case '.':
                if (match('.')) tokens.push_back(makeToken(TokenKind::Concat, ".."));
                else tokens.push_back(makeToken(TokenKind::Dot, "."));
                break;
            case '=':
                if (match('=')) tokens.push_back(makeToken(TokenKind::Equal, "=="));
                else tokens.push_back(makeToken(TokenKind::Assign, "="));
                break;
            case '<':
                if (match('=')) tokens.push_back(makeToken(TokenKind::LessEqual, "<="));
                else tokens.push_back(makeToken(TokenKind::Less, "<"));
                break;
            case '>':
                if (match('=')) tokens.push_back(makeToken(TokenKind::GreaterEqual, ">="));
                else tokens.push_back(makeToken(TokenKind::Greater, ">"));
                break;
            case '~':
                if (!match('=')) fail("unexpected '~'");
                tokens.push_back(makeToken(TokenKind::NotEqual, "~="));
                break;
            case '"':
            case '\'': tokens.push_back(makeToken(TokenKind::String, readQuotedString(char(c)))); break;
            default:
                if (isDigit(c)) {
                    tokens.push_back(readNumber(start));
                } else if (isIdentifierStart(c)) {
                    tokens.push_back(readIdentifier(start));
                } else {
                    fail(std::string("unexpected character '") + char(c) + "'");
                }
            }
        }
        Token end;
        end.kind = TokenKind::EndOfFile;
        end.line = line;
        end.column = column;
        tokens.push_back(end);
        return tokens;
    }

private:
    static bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }
    static bool isHexDigit(unsigned char c) {
        return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }
    static bool isIdentifierStart(unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    }
    static bool isIdentifierPart(unsigned char c) { return isIdentifierStart(c) || isDigit(c); }

    bool isAtEnd() const { return position >= source.size(); }
    unsigned char peek() const { return isAtEnd() ? 0 : static_cast<unsigned char>(source[position]); }
    unsigned char peekNext() const {
        return position + 1 >= source.size() ? 0 : static_cast<unsigned char>(source[position + 1]);
    }
    unsigned char advance() {
        unsigned char c = static_cast<unsigned char>(source[position++]);
        if (c == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
        return c;
    }
    bool match(unsigned char expected) {
        if (isAtEnd() || peek() != expected) return false;
        advance();
        return true;
    }
    [[noreturn]] void fail(const std::string& message) { failParse(chunkName, tokenLine, tokenColumn, message); }

    Token makeToken(TokenKind kind, std::string text) const {
        Token token;
        token.kind = kind;
        token.text = std::move(text);
        token.line = tokenLine;
        token.column = tokenColumn;
        return token;
    }

    void skipWhitespaceAndComments() {
        while (!isAtEnd()) {
            unsigned char c = peek();
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == 11 || c == 12) {
                advance();
            } else if (c == '-' && peekNext() == '-') {
                advance();
                advance();
                if (peek() == '[' && peekNext() == '[') {
                    advance();
                    advance();
                    // An unclosed long comment reports the byte after its opening.
                    tokenLine = line;
                    tokenColumn = column;
                    readLongString();
                } else {
                    while (!isAtEnd() && peek() != '\n') advance();
                }
            } else {
                break;
            }
        }
    }

    std::string readLongString() {
        std::string text;
        for (;;) {
            if (isAtEnd()) fail("unterminated long string literal");
            if (peek() == ']' && peekNext() == ']') {
                advance();
                advance();
                return text;
            }
            text.push_back(char(advance()));
        }
    }

    std::string readQuotedString(char quote) {
        std::string text;
        for (;;) {
            if (isAtEnd()) fail("unterminated string literal");
            unsigned char c = advance();
            if (c == static_cast<unsigned char>(quote)) return text;
            if (c != '\\') {
                text.push_back(char(c));
                continue;
            }
            if (isAtEnd()) fail("unterminated string escape");
            unsigned char e = advance();
            switch (e) {
            case 'n': text.push_back('\n'); break;
            case 'r': text.push_back('\r'); break;
            case 't': text.push_back('\t'); break;
            case '0': text.push_back('\0'); break;
            default: text.push_back(char(e)); break;
            }
        }
    }

    Token readNumber(size_t start) {
        if (source[start] == '0' && (peek() == 'x' || peek() == 'X')) {
            advance();
            while (!isAtEnd() && isHexDigit(peek())) advance();
            return makeToken(TokenKind::Integer, source.substr(start, position - start));
        }
        while (!isAtEnd() && isDigit(peek())) advance();
        TokenKind kind = TokenKind::Integer;
        if (peek() == '.' && isDigit(peekNext())) {
            kind = TokenKind::Float;
            advance();
            while (!isAtEnd() && isDigit(peek())) advance();
        }
        return makeToken(kind, source.substr(start, position - start));
    }

    Token readIdentifier(size_t start) {
        while (!isAtEnd() && isIdentifierPart(peek())) advance();
        std::string word = source.substr(start, position - start);
        for (const auto& keyword : kKeywords)
            if (word == keyword.text) return makeToken(keyword.kind, std::move(word));
        return makeToken(TokenKind::Identifier, std::move(word));
    }

    const std::string& source;
    const std::string& chunkName;
    size_t position = 0;
    uint32_t line = 1;
    uint32_t column = 1;
    uint32_t tokenLine = 1;
    uint32_t tokenColumn = 1;
};

int64_t parseIntegerLiteral(const std::string& text) {
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        uint64_t value = 0;
        for (size_t i = 2; i < text.size(); ++i) {
            char c = text[i];
            unsigned digit = c <= '9' ? unsigned(c - '0') : c <= 'F' ? unsigned(c - 'A' + 10) : unsigned(c - 'a' + 10);
            if (value > (UINT64_MAX - digit) / 16) {
                value = UINT64_MAX;
                break;
            }
            value = value * 16 + digit;
        }
        return int64_t(value);
    }
    return std::stoll(text);
}

double parseFloatLiteral(const std::string& text) {
    // The token is digits, a point and digits; from_chars reads it whatever the C locale says.
    double value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) throw std::out_of_range("stod");
    if (result.ec != std::errc()) throw std::invalid_argument("stod");
    return value;
}

class Parser {
public:
    Parser(std::vector<Token> tokens, const std::string& chunkName) : tokens(std::move(tokens)), chunkName(chunkName) {}

    StmtList parseChunk() {
        StmtList statements;
        skipSemicolons();
        while (!check(TokenKind::EndOfFile)) {
            statements.push_back(parseStatement());
            skipSemicolons();
        }
        return statements;
    }

private:
    // Counts nesting levels on the way down; a source nested deeper than the limit is refused.
    struct Nest {
        Parser& parser;
        int levels = 0;
        explicit Nest(Parser& p, int initial = 1) : parser(p) { add(initial); }
        void add(int count) {
            for (int i = 0; i < count; ++i) {
                ++levels;
                if (++parser.depth > kMaxSyntaxDepth) parser.errorAt(parser.peek(), "syntax nesting is too deep");
            }
        }
        ~Nest() { parser.depth -= levels; }
    };

    const Token& peek() const { return tokens[current]; }
    const Token& previous() const { return tokens[current > 0 ? current - 1 : 0]; }
    bool check(TokenKind kind) const { return peek().kind == kind; }
    bool checkNext(TokenKind kind) const {
        if (current + 1 >= tokens.size()) return false;
        return tokens[current + 1].kind == kind;
    }
    bool checkAny(std::initializer_list<TokenKind> kinds) const {
        for (TokenKind k : kinds)
            if (check(k)) return true;
        return false;
    }
    bool match(TokenKind kind) {
        if (!check(kind)) return false;
        advance();
        return true;
    }
    const Token& advance() {
        if (peek().kind != TokenKind::EndOfFile) ++current;
        return previous();
    }
    const Token& consume(TokenKind kind, const char* message) {
        if (!check(kind)) errorAt(peek(), message);
        return advance();
    }
    void skipSemicolons() {
        while (match(TokenKind::Semicolon)) {}
    }
    static bool isReturnBoundary(TokenKind kind) {
        return kind == TokenKind::EndOfFile || kind == TokenKind::Semicolon || kind == TokenKind::End ||
               kind == TokenKind::Else || kind == TokenKind::Elseif;
    }
    static bool isAssignmentToken(TokenKind kind) { return kind == TokenKind::Assign || kind == TokenKind::Comma; }
    [[noreturn]] void errorAt(const Token& token, const std::string& message) const {
        failParse(chunkName, token.line, token.column, message);
    }

    StmtList parseBlock(std::initializer_list<TokenKind> terminators) {
        Nest nest(*this);
        StmtList statements;
        skipSemicolons();
        while (!check(TokenKind::EndOfFile) && !checkAny(terminators)) {
            statements.push_back(parseStatement());
            skipSemicolons();
        }
        return statements;
    }

    StmtPtr parseStatement() {
        switch (peek().kind) {
        case TokenKind::If: return parseIf();
        case TokenKind::While: return parseWhile();
        case TokenKind::For: return parseFor();
        case TokenKind::Return: return parseReturn();
        case TokenKind::Break: {
            uint32_t line = advance().line;
            return std::make_shared<BreakStmt>(line);
        }
        case TokenKind::Function: return parseFunctionDeclaration();
        case TokenKind::Local:
            if (checkNext(TokenKind::Function)) return parseLocalFunction();
            return parseLocalAssignment();
        default: return parseAssignmentOrExpression();
        }
    }

    StmtPtr parseIf() {
        auto stmt = std::make_shared<IfStmt>(advance().line);
        IfStmt::Branch first;
        first.condition = parseExpression();
        consume(TokenKind::Then, "expected 'then' after if condition");
        first.block = parseBlock({TokenKind::Elseif, TokenKind::Else, TokenKind::End});
        stmt->branches.push_back(std::move(first));
        while (match(TokenKind::Elseif)) {
            IfStmt::Branch branch;
            branch.condition = parseExpression();
            consume(TokenKind::Then, "expected 'then' after elseif condition");
            branch.block = parseBlock({TokenKind::Elseif, TokenKind::Else, TokenKind::End});
            stmt->branches.push_back(std::move(branch));
        }
        if (match(TokenKind::Else)) stmt->elseBlock = parseBlock({TokenKind::End});
        consume(TokenKind::End, "expected 'end' after if statement");
        return stmt;
    }

    StmtPtr parseWhile() {
        auto stmt = std::make_shared<WhileStmt>(advance().line);
        stmt->condition = parseExpression();
        consume(TokenKind::Do, "expected 'do' after while condition");
        stmt->body = parseBlock({TokenKind::End});
        consume(TokenKind::End, "expected 'end' after while loop");
        return stmt;
    }

    StmtPtr parseFor() {
        uint32_t line = advance().line;
        std::string name = consume(TokenKind::Identifier, "expected loop variable name").text;
        if (match(TokenKind::Assign)) {
            auto stmt = std::make_shared<NumericForStmt>(line);
            stmt->name = std::move(name);
            stmt->start = parseExpression();
            consume(TokenKind::Comma, "expected ',' after numeric for start value");
            stmt->limit = parseExpression();
            if (match(TokenKind::Comma)) stmt->step = parseExpression();
            consume(TokenKind::Do, "expected 'do' after numeric for range");
            stmt->body = parseBlock({TokenKind::End});
            consume(TokenKind::End, "expected 'end' after numeric for loop");
            return stmt;
        }
        auto stmt = std::make_shared<GenericForStmt>(line);
        stmt->names.push_back(std::move(name));
        while (match(TokenKind::Comma))
            stmt->names.push_back(consume(TokenKind::Identifier, "expected loop variable name").text);
        consume(TokenKind::In, "expected 'in' in generic for loop");
        stmt->iterators = parseExpressionList();
        consume(TokenKind::Do, "expected 'do' after generic for iterator");
        stmt->body = parseBlock({TokenKind::End});
        consume(TokenKind::End, "expected 'end' after generic for loop");
        return stmt;
    }

    StmtPtr parseReturn() {
        auto stmt = std::make_shared<ReturnStmt>(advance().line);
        if (!isReturnBoundary(peek().kind)) stmt->values = parseExpressionList();
        return stmt;
    }

    StmtPtr parseFunctionDeclaration() {
        uint32_t line = advance().line;
        auto stmt = std::make_shared<FunctionDeclarationStmt>(line);
        bool isMethod = false;
        stmt->target = parseFunctionTarget(isMethod);
        stmt->function = parseFunctionBody(line, isMethod);
        return stmt;
    }

    AssignTarget parseFunctionTarget(bool& isMethod) {
        const Token& first = consume(TokenKind::Identifier, "expected function name");
        AssignTarget target;
        target.line = first.line;
        std::vector<const Token*> names{&first};
        while (match(TokenKind::Dot)) names.push_back(&consume(TokenKind::Identifier, "expected field name after '.'"));
        if (match(TokenKind::Colon)) {
            names.push_back(&consume(TokenKind::Identifier, "expected method name after ':'"));
            isMethod = true;
        }
        if (names.size() == 1) {
            target.kind = 0;
            target.name = first.text;
            return target;
        }
        if (names.size() > size_t(kMaxSyntaxDepth)) errorAt(peek(), "syntax nesting is too deep");
        ExprPtr object = std::make_shared<VariableExpr>(first.text, first.line);
        for (size_t i = 1; i + 1 < names.size(); ++i)
            object = std::make_shared<FieldExpr>(object, names[i]->text, names[i]->line);
        target.kind = 1;
        target.object = object;
        target.name = names.back()->text;
        target.line = names.back()->line;
        return target;
    }

    std::shared_ptr<FunctionExpr> parseFunctionBody(uint32_t line, bool isMethod) {
        auto function = std::make_shared<FunctionExpr>(line);
        if (isMethod) function->parameters.push_back("self");
        consume(TokenKind::LeftParen, "expected '(' after function name");
        if (!check(TokenKind::RightParen)) {
            do {
                function->parameters.push_back(consume(TokenKind::Identifier, "expected parameter name").text);
            } while (match(TokenKind::Comma));
        }
        consume(TokenKind::RightParen, "expected ')' after parameter list");
        function->body = parseBlock({TokenKind::End});
        consume(TokenKind::End, "expected 'end' after function body");
        return function;
    }

    StmtPtr parseLocalFunction() {
        advance();  // local
        uint32_t line = advance().line;  // function
        auto stmt = std::make_shared<FunctionDeclarationStmt>(line);
        stmt->isLocal = true;
        const Token& name = consume(TokenKind::Identifier, "expected local function name");
        stmt->target.kind = 0;
        stmt->target.name = name.text;
        stmt->target.line = name.line;
        stmt->function = parseFunctionBody(line, false);
        return stmt;
    }

    StmtPtr parseLocalAssignment() {
        uint32_t line = advance().line;
        auto stmt = std::make_shared<AssignmentStmt>(line);
        stmt->isLocal = true;
        do {
            AssignTarget target;
            target.kind = 0;
            target.name = consume(TokenKind::Identifier, "expected local variable name").text;
            target.line = line;
            stmt->targets.push_back(std::move(target));
        } while (match(TokenKind::Comma));
        if (match(TokenKind::Assign)) stmt->values = parseExpressionList();
        return stmt;
    }

    StmtPtr parseAssignmentOrExpression() {
        uint32_t line = peek().line;
        ExprPtr first = parsePrefixExpression();
        if (isAssignmentToken(peek().kind)) {
            auto stmt = std::make_shared<AssignmentStmt>(line);
            stmt->targets.push_back(asAssignTarget(first));
            while (match(TokenKind::Comma)) stmt->targets.push_back(asAssignTarget(parsePrefixExpression()));
            consume(TokenKind::Assign, "expected '=' in assignment");
            stmt->values = parseExpressionList();
            return stmt;
        }
        if (first->kind != Expr::Kind::Call) errorAt(peek(), "expected function call");
        return std::make_shared<ExpressionStmt>(first, line);
    }

    AssignTarget asAssignTarget(const ExprPtr& expr) {
        AssignTarget target;
        target.line = expr->line;
        switch (expr->kind) {
        case Expr::Kind::Variable:
            target.kind = 0;
            target.name = static_cast<VariableExpr&>(*expr).name;
            return target;
        case Expr::Kind::Field: {
            auto& field = static_cast<FieldExpr&>(*expr);
            target.kind = 1;
            target.object = field.object;
            target.name = field.name;
            return target;
        }
        case Expr::Kind::Index: {
            auto& index = static_cast<IndexExpr&>(*expr);
            target.kind = 2;
            target.object = index.object;
            target.index = index.index;
            return target;
        }
        default: errorAt(peek(), "invalid assignment target");
        }
    }

    std::vector<ExprPtr> parseExpressionList() {
        std::vector<ExprPtr> list;
        list.push_back(parseExpression());
        while (match(TokenKind::Comma)) list.push_back(parseExpression());
        return list;
    }

    ExprPtr parseExpression() {
        Nest nest(*this);
        return parseOr();
    }

    ExprPtr parseOr() {
        ExprPtr left = parseAnd();
        Nest nest(*this, 0);
        while (match(TokenKind::Or)) {
            nest.add(1);
            ExprPtr right = parseAnd();
            left = std::make_shared<BinaryExpr>(left, TokenKind::Or, right, previous().line);
        }
        return left;
    }

    ExprPtr parseAnd() {
        ExprPtr left = parseComparison();
        Nest nest(*this, 0);
        while (match(TokenKind::And)) {
            nest.add(1);
            ExprPtr right = parseComparison();
            left = std::make_shared<BinaryExpr>(left, TokenKind::And, right, previous().line);
        }
        return left;
    }

    ExprPtr parseComparison() {
        ExprPtr left = parseConcat();
        Nest nest(*this, 0);
        while (checkAny({TokenKind::Equal, TokenKind::NotEqual, TokenKind::Less, TokenKind::LessEqual,
                         TokenKind::Greater, TokenKind::GreaterEqual})) {
            const Token& op = advance();
            nest.add(1);
            ExprPtr right = parseConcat();
            left = std::make_shared<BinaryExpr>(left, op.kind, right, op.line);
        }
        return left;
    }

    ExprPtr parseConcat() {
        ExprPtr left = parseTerm();
        if (check(TokenKind::Concat)) {
            uint32_t line = advance().line;
            Nest nest(*this);
            ExprPtr right = parseConcat();
            return std::make_shared<BinaryExpr>(left, TokenKind::Concat, right, line);
        }
        return left;
    }

    ExprPtr parseTerm() {
        ExprPtr left = parseFactor();
        Nest nest(*this, 0);
        while (checkAny({TokenKind::Plus, TokenKind::Minus})) {
            const Token& op = advance();
            nest.add(1);
            ExprPtr right = parseFactor();
            left = std::make_shared<BinaryExpr>(left, op.kind, right, op.line);
        }
        return left;
    }

    ExprPtr parseFactor() {
        ExprPtr left = parseUnary();
        Nest nest(*this, 0);
        while (checkAny({TokenKind::Star, TokenKind::Slash, TokenKind::Percent})) {
            const Token& op = advance();
            nest.add(1);
            ExprPtr right = parseUnary();
            left = std::make_shared<BinaryExpr>(left, op.kind, right, op.line);
        }
        return left;
    }

    ExprPtr parseUnary() {
        if (checkAny({TokenKind::Minus, TokenKind::Not, TokenKind::Hash})) {
            const Token& op = advance();
            Nest nest(*this);
            ExprPtr operand = parseUnary();
            return std::make_shared<UnaryExpr>(op.kind, operand, op.line);
        }
        return parsePrefixExpression();
    }

    ExprPtr parsePrefixExpression() {
        ExprPtr expr = parsePrimary();
        Nest nest(*this, 0);
        for (;;) {
            if (match(TokenKind::Dot)) {
                nest.add(1);
                const Token& name = consume(TokenKind::Identifier, "expected field name after '.'");
                expr = std::make_shared<FieldExpr>(expr, name.text, name.line);
            } else if (check(TokenKind::LeftBracket)) {
                uint32_t line = advance().line;
                nest.add(1);
                ExprPtr index = parseExpression();
                consume(TokenKind::RightBracket, "expected ']' after index expression");
                expr = std::make_shared<IndexExpr>(expr, index, line);
            } else if (match(TokenKind::Colon)) {
                nest.add(1);
                const Token& name = consume(TokenKind::Identifier, "expected method name after ':'");
                auto call = std::make_shared<CallExpr>(name.line);
                call->object = expr;
                call->methodName = name.text;
                call->arguments = parseArguments();
                expr = call;
            } else if (check(TokenKind::LeftParen)) {
                nest.add(1);
                auto call = std::make_shared<CallExpr>(peek().line);
                call->callee = expr;
                call->arguments = parseArguments();
                expr = call;
            } else {
                return expr;
            }
        }
    }

    std::vector<ExprPtr> parseArguments() {
        consume(TokenKind::LeftParen, "expected '(' before arguments");
        std::vector<ExprPtr> arguments;
        if (!check(TokenKind::RightParen)) arguments = parseExpressionList();
        consume(TokenKind::RightParen, "expected ')' after arguments");
        return arguments;
    }

    ExprPtr parsePrimary() {
        const Token& token = peek();
        switch (token.kind) {
        case TokenKind::Integer:
            advance();
            return std::make_shared<LiteralExpr>(Value::integer(parseIntegerLiteral(token.text)), token.line);
        case TokenKind::Float:
            advance();
            return std::make_shared<LiteralExpr>(Value::number(parseFloatLiteral(token.text)), token.line);
        case TokenKind::String:
            advance();
            return std::make_shared<LiteralExpr>(Value::string(token.text), token.line);
        case TokenKind::True: advance(); return std::make_shared<LiteralExpr>(Value::boolean(true), token.line);
        case TokenKind::False: advance(); return std::make_shared<LiteralExpr>(Value::boolean(false), token.line);
        case TokenKind::Nil: advance(); return std::make_shared<LiteralExpr>(Value(), token.line);
        case TokenKind::Identifier:
            advance();
            return std::make_shared<VariableExpr>(token.text, token.line);
        case TokenKind::LeftParen: {
            advance();
            ExprPtr inner = parseExpression();
            consume(TokenKind::RightParen, "expected ')' after expression");
            return inner;
        }
        case TokenKind::LeftBrace: return parseTableConstructor();
        case TokenKind::Function: {
            uint32_t line = advance().line;
            return parseFunctionBody(line, false);
        }
        default: errorAt(token, "expected expression");
        }
    }

    ExprPtr parseTableConstructor() {
        auto table = std::make_shared<TableExpr>(advance().line);
        while (!check(TokenKind::RightBrace)) {
            TableExpr::Field field;
            field.line = peek().line;
            if (match(TokenKind::LeftBracket)) {
                field.kind = 2;
                field.key = parseExpression();
                consume(TokenKind::RightBracket, "expected ']' after table key");
                consume(TokenKind::Assign, "expected '=' after table key");
                field.value = parseExpression();
            } else if (check(TokenKind::Identifier) && checkNext(TokenKind::Assign)) {
                field.kind = 1;
                field.name = advance().text;
                advance();
                field.value = parseExpression();
            } else {
                field.kind = 0;
                field.value = parseExpression();
            }
            table->fields.push_back(std::move(field));
            if (!match(TokenKind::Comma) && !match(TokenKind::Semicolon)) break;
        }
        consume(TokenKind::RightBrace, "expected '}' after table constructor");
        return table;
    }

    std::vector<Token> tokens;
    const std::string& chunkName;
    size_t current = 0;
    int depth = 0;
};

}  // namespace

StmtList parseSource(const std::string& source, const std::string& chunkName) {
    Lexer lexer(source, chunkName);
    Parser parser(lexer.scanTokens(), chunkName);
    return parser.parseChunk();
}

}  // namespace orvane::lua
