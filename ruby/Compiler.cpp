// Source text to a Program in one pass: the lexer makes tokens, and a recursive descent compiler
// emits stack instructions as it parses, with no tree in between.
#include <stdexcept>
#include <string>
#include <vector>

#include "ruby/Program.h"

namespace orvane::ruby {
namespace {

enum class TokenKind : uint8_t {
    Identifier,
    Integer,
    Float,
    String,
    LeftParen,
    RightParen,
    LeftBracket,
    RightBracket,
    Comma,
    Semicolon,
    Newline,
    Plus,
    Minus,
    Star,
    Slash,
    Percent,
    Bang,
    Assign,
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    AndAnd,
    OrOr,
    If,
    Elsif,
    Else,
    End,
    While,
    Def,
    Return,
    True,
    False,
    Nil,
    Then,
    Do,
    And,
    Or,
    Not,
    EndOfFile,
};

struct Token {
    TokenKind kind = TokenKind::EndOfFile;
    std::string text;
    uint32_t line = 1;
    uint32_t column = 1;
};

std::string formatError(const std::string& chunkName, uint32_t line, uint32_t column, const std::string& message) {
    return chunkName + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

[[noreturn]] void fail(const std::string& text) { throw std::runtime_error(text); }

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isIdentifierStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isIdentifierPart(char c) { return isIdentifierStart(c) || isDigit(c) || c == '?' || c == '!'; }

class Lexer {
public:
    Lexer(const std::string& source, const std::string& chunkName) : source(source), chunkName(chunkName) {}

    std::vector<Token> scanTokens() {
        std::vector<Token> tokens;
        while (pos < source.size()) {
            char c = source[pos];
            if (c == ' ' || c == '\t' || c == '\v' || c == '\f') {
                advance();
            } else if (c == '\n' || c == '\r') {
                tokens.push_back({TokenKind::Newline, "\n", line, column});
                advance();
                if (c == '\r' && pos < source.size() && source[pos] == '\n') advance();
                ++line;
                column = 1;
            } else if (c == '#') {
                while (pos < source.size() && source[pos] != '\n' && source[pos] != '\r') advance();
            } else if (c == '"' || c == '\'') {
                tokens.push_back(readString());
            } else if (isDigit(c)) {
                tokens.push_back(readNumber());
            } else if (isIdentifierStart(c)) {
                tokens.push_back(readIdentifier());
            } else {
                tokens.push_back(readOperator());
            }
        }
        tokens.push_back({TokenKind::EndOfFile, "", line, column});
        return tokens;
    }

private:
    void advance() {
        ++pos;
        ++column;
    }
    bool peekIs(char c) const { return pos + 1 < source.size() && source[pos + 1] == c; }
    [[noreturn]] void error(uint32_t atLine, uint32_t atColumn, const std::string& message) const {
        fail(formatError(chunkName, atLine, atColumn, message));
    }

    Token readString() {
        Token token{TokenKind::String, "", line, column};
        char quote = source[pos];
        advance();
        for (;;) {
            if (pos >= source.size()) error(token.line, token.column, "unterminated string literal");
            char c = source[pos];
            if (c == quote) {
                advance();
                return token;
            }
            if (c == '\n' || c == '\r') error(token.line, token.column, "unterminated string literal");
            if (c == '\\') {
                advance();
                if (pos >= source.size()) error(token.line, token.column, "unterminated string escape");
                char escaped = source[pos];
                if (escaped == 'n') escaped = '\n';
                else if (escaped == 'r') escaped = '\r';
                else if (escaped == 't') escaped = '\t';
                token.text += escaped;
                advance();
                continue;
            }
            token.text += c;
            advance();
        }
    }

    Token readNumber() {
        Token token{TokenKind::Integer, "", line, column};
        size_t start = pos;
        while (pos < source.size() && isDigit(source[pos])) advance();
        if (pos + 1 < source.size() && source[pos] == '.' && isDigit(source[pos + 1])) {
            token.kind = TokenKind::Float;
            advance();
            while (pos < source.size() && isDigit(source[pos])) advance();
        }
        token.text = source.substr(start, pos - start);
        return token;
    }

    Token readIdentifier() {
        Token token{TokenKind::Identifier, "", line, column};
        size_t start = pos;
        while (pos < source.size() && isIdentifierPart(source[pos])) advance();
        token.text = source.substr(start, pos - start);
        static const std::pair<const char*, TokenKind> keywords[] = {
            {"if", TokenKind::If},         {"elsif", TokenKind::Elsif}, {"else", TokenKind::Else},
            {"end", TokenKind::End},       {"while", TokenKind::While}, {"def", TokenKind::Def},
            {"return", TokenKind::Return}, {"true", TokenKind::True},   {"false", TokenKind::False},
            {"nil", TokenKind::Nil},       {"then", TokenKind::Then},   {"do", TokenKind::Do},
            {"and", TokenKind::And},       {"or", TokenKind::Or},       {"not", TokenKind::Not},
        };
        for (const auto& [word, kind] : keywords)
            if (token.text == word) token.kind = kind;
        return token;
    }

    Token readOperator() {
        Token token{TokenKind::EndOfFile, "", line, column};
        char c = source[pos];
        auto single = [&](TokenKind kind) {
            token.kind = kind;
            token.text = std::string(1, c);
            advance();
            return token;
        };
        auto withEqual = [&](TokenKind plain, TokenKind withEq) {
            if (peekIs('=')) {
                token.kind = withEq;
                token.text = std::string(1, c) + "=";
                advance();
                advance();
                return token;
            }
            return single(plain);
        };
        switch (c) {
        case '(': return single(TokenKind::LeftParen);
        case ')': return single(TokenKind::RightParen);
        case '[': return single(TokenKind::LeftBracket);
        case ']': return single(TokenKind::RightBracket);
        case ',': return single(TokenKind::Comma);
        case ';': return single(TokenKind::Semicolon);
        case '+': return single(TokenKind::Plus);
        case '-': return single(TokenKind::Minus);
        case '*': return single(TokenKind::Star);
        case '/': return single(TokenKind::Slash);
        case '%': return single(TokenKind::Percent);
        case '!': return withEqual(TokenKind::Bang, TokenKind::NotEqual);
        case '=': return withEqual(TokenKind::Assign, TokenKind::Equal);
        case '<': return withEqual(TokenKind::Less, TokenKind::LessEqual);
        case '>': return withEqual(TokenKind::Greater, TokenKind::GreaterEqual);
        case '&':
            if (!peekIs('&')) error(line, column, "unexpected '&', use '&&'");
            token.kind = TokenKind::AndAnd;
            token.text = "&&";
            advance();
            advance();
            return token;
        case '|':
            if (!peekIs('|')) error(line, column, "unexpected '|', use '||'");
            token.kind = TokenKind::OrOr;
            token.text = "||";
            advance();
            advance();
            return token;
        default:
            error(line, column, std::string("unexpected character '") + c + "'");
        }
    }

    const std::string& source;
    const std::string& chunkName;
    size_t pos = 0;
    uint32_t line = 1;
    uint32_t column = 1;
};

// Statements, expressions and unary operators each count one level; a source nested deeper
// than this fails with a syntax error instead of exhausting the native stack. A level costs at
// most a handful of native frames.
constexpr int kMaxNesting = 200;

class Compiler {
public:
    Compiler(std::vector<Token> tokens, const std::string& chunkName) : tokens(std::move(tokens)), chunkName(chunkName) {
        program.chunkName = chunkName;
        CompiledFunction entry;
        entry.name = "<main>";
        program.functions.push_back(std::move(entry));
    }

    Program compile() {
        skipSeparators();
        while (!check(TokenKind::EndOfFile)) {
            compileStatement(0);
            skipSeparators();
        }
        finalizeProgramMetadata(program);
        return std::move(program);
    }

private:
    struct NestingGuard {
        explicit NestingGuard(Compiler& compiler) : compiler(compiler) {
            if (++compiler.nesting > kMaxNesting) compiler.errorAt(compiler.peek(), "nesting is too deep");
        }
        ~NestingGuard() { --compiler.nesting; }
        Compiler& compiler;
    };

    const Token& peek() const { return tokens[current]; }
    const Token& peekNext() const { return tokens[current + 1 < tokens.size() ? current + 1 : current]; }
    bool check(TokenKind kind) const { return peek().kind == kind; }
    const Token& advance() {
        const Token& token = tokens[current];
        if (token.kind != TokenKind::EndOfFile) ++current;
        return token;
    }
    bool match(TokenKind kind) {
        if (!check(kind)) return false;
        advance();
        return true;
    }
    [[noreturn]] void errorAt(const Token& token, const std::string& message) const {
        fail(formatError(chunkName, token.line, token.column, message));
    }
    const Token& consume(TokenKind kind, const std::string& message) {
        if (!check(kind)) errorAt(peek(), message);
        return advance();
    }

    static bool isStatementBoundary(TokenKind kind) {
        return kind == TokenKind::Newline || kind == TokenKind::Semicolon || kind == TokenKind::EndOfFile;
    }
    static bool isBlockEnd(TokenKind kind) {
        return kind == TokenKind::End || kind == TokenKind::Else || kind == TokenKind::Elsif;
    }
    void skipSeparators() {
        while (check(TokenKind::Newline) || check(TokenKind::Semicolon)) advance();
    }
    void consumeOptionalClauseSeparator() {
        if (!match(TokenKind::Then)) match(TokenKind::Do);
        skipSeparators();
    }

    int32_t addConstant(RubyValue value) {
        program.constants.push_back(std::move(value));
        return static_cast<int32_t>(program.constants.size() - 1);
    }
    void emit(size_t index, OpCode opcode, int32_t a, int32_t b, uint32_t line) {
        program.functions[index].instructions.push_back({opcode, a, b, line});
    }
    size_t emitJump(size_t index, OpCode opcode, uint32_t line) {
        emit(index, opcode, -1, 0, line);
        return program.functions[index].instructions.size() - 1;
    }
    void patchJump(size_t index, size_t position) {
        auto& instructions = program.functions[index].instructions;
        instructions[position].a = static_cast<int32_t>(instructions.size());
    }
    int32_t here(size_t index) const { return static_cast<int32_t>(program.functions[index].instructions.size()); }

    void compileStatement(size_t index) {
        NestingGuard guard(*this);
        switch (peek().kind) {
        case TokenKind::If: compileIf(index); return;
        case TokenKind::While: compileWhile(index); return;
        case TokenKind::Def: compileFunctionDefinition(index); return;
        case TokenKind::Return: compileReturn(index); return;
        default: break;
        }
        if (check(TokenKind::Identifier) && peekNext().kind == TokenKind::Assign) {
            compileAssignment(index);
            return;
        }
        uint32_t line = peek().line;
        compileExpression(index);
        emit(index, OpCode::Pop, 0, 0, line);
    }

    void compileAssignment(size_t index) {
        Token name = advance();
        advance();  // '='
        compileExpression(index);
        int32_t constant = addConstant(RubyValue(name.text));
        emit(index, OpCode::StoreName, constant, 0, name.line);
        emit(index, OpCode::Pop, 0, 0, name.line);
    }

    void compileReturn(size_t index) {
        uint32_t line = advance().line;
        if (isStatementBoundary(peek().kind) || isBlockEnd(peek().kind))
            emit(index, OpCode::LoadConstant, addConstant(RubyValue()), 0, line);
        else
            compileExpression(index);
        emit(index, OpCode::Return, 0, 0, line);
    }

    void compileIf(size_t index) {
        uint32_t line = advance().line;
        std::vector<size_t> exits;
        compileExpression(index);
        consumeOptionalClauseSeparator();
        size_t skip = emitJump(index, OpCode::JumpIfFalse, line);
        compileBlock(index, {TokenKind::Elsif, TokenKind::Else, TokenKind::End});
        exits.push_back(emitJump(index, OpCode::Jump, line));
        patchJump(index, skip);
        while (check(TokenKind::Elsif)) {
            uint32_t elsifLine = advance().line;
            compileExpression(index);
            consumeOptionalClauseSeparator();
            skip = emitJump(index, OpCode::JumpIfFalse, elsifLine);
            compileBlock(index, {TokenKind::Elsif, TokenKind::Else, TokenKind::End});
            exits.push_back(emitJump(index, OpCode::Jump, elsifLine));
            patchJump(index, skip);
        }
        if (match(TokenKind::Else)) {
            consumeOptionalClauseSeparator();
            compileBlock(index, {TokenKind::End});
        }
        consume(TokenKind::End, "expected 'end' after if block");
        for (size_t exit : exits) patchJump(index, exit);
    }

    void compileWhile(size_t index) {
        uint32_t line = advance().line;
        int32_t start = here(index);
        compileExpression(index);
        consumeOptionalClauseSeparator();
        size_t exit = emitJump(index, OpCode::JumpIfFalse, line);
        compileBlock(index, {TokenKind::End});
        emit(index, OpCode::Jump, start, 0, line);
        patchJump(index, exit);
        consume(TokenKind::End, "expected 'end' after while block");
    }

    void compileFunctionDefinition(size_t index) {
        uint32_t line = advance().line;
        std::string name = consume(TokenKind::Identifier, "expected function name after 'def'").text;
        std::vector<std::string> parameters;
        if (match(TokenKind::LeftParen)) {
            if (!check(TokenKind::RightParen)) {
                do {
                    parameters.push_back(consume(TokenKind::Identifier, "expected parameter name").text);
                } while (match(TokenKind::Comma));
            }
            consume(TokenKind::RightParen, "expected ')' after parameter list");
        }
        consumeOptionalClauseSeparator();
        CompiledFunction function;
        function.name = name;
        function.parameters = std::move(parameters);
        program.functions.push_back(std::move(function));
        size_t functionIndex = program.functions.size() - 1;
        compileBlock(functionIndex, {TokenKind::End});
        consume(TokenKind::End, "expected 'end' after function body");
        int32_t constant = addConstant(RubyValue(name));
        emit(index, OpCode::DefineFunction, constant, static_cast<int32_t>(functionIndex), line);
    }

    void compileBlock(size_t index, std::initializer_list<TokenKind> terminators) {
        skipSeparators();
        for (;;) {
            TokenKind kind = peek().kind;
            if (kind == TokenKind::EndOfFile) return;
            for (TokenKind terminator : terminators)
                if (kind == terminator) return;
            compileStatement(index);
            skipSeparators();
        }
    }

    void compileExpression(size_t index) {
        NestingGuard guard(*this);
        compileOr(index);
    }

    void compileOr(size_t index) {
        compileAnd(index);
        while (check(TokenKind::Or) || check(TokenKind::OrOr)) {
            uint32_t line = advance().line;
            compileAnd(index);
            emit(index, OpCode::Or, 0, 0, line);
        }
    }

    void compileAnd(size_t index) {
        compileEquality(index);
        while (check(TokenKind::And) || check(TokenKind::AndAnd)) {
            uint32_t line = advance().line;
            compileEquality(index);
            emit(index, OpCode::And, 0, 0, line);
        }
    }

    void compileEquality(size_t index) {
        compileComparison(index);
        for (;;) {
            OpCode op;
            if (check(TokenKind::Equal)) op = OpCode::Equal;
            else if (check(TokenKind::NotEqual)) op = OpCode::NotEqual;
            else return;
            uint32_t line = advance().line;
            compileComparison(index);
            emit(index, op, 0, 0, line);
        }
    }

    void compileComparison(size_t index) {
        compileTerm(index);
        for (;;) {
            OpCode op;
            if (check(TokenKind::Less)) op = OpCode::Less;
            else if (check(TokenKind::LessEqual)) op = OpCode::LessEqual;
            else if (check(TokenKind::Greater)) op = OpCode::Greater;
            else if (check(TokenKind::GreaterEqual)) op = OpCode::GreaterEqual;
            else return;
            uint32_t line = advance().line;
            compileTerm(index);
            emit(index, op, 0, 0, line);
        }
    }

    void compileTerm(size_t index) {
        compileFactor(index);
        for (;;) {
            OpCode op;
            if (check(TokenKind::Plus)) op = OpCode::Add;
            else if (check(TokenKind::Minus)) op = OpCode::Subtract;
            else return;
            uint32_t line = advance().line;
            compileFactor(index);
            emit(index, op, 0, 0, line);
        }
    }

    void compileFactor(size_t index) {
        compileUnary(index);
        for (;;) {
            OpCode op;
            if (check(TokenKind::Star)) op = OpCode::Multiply;
            else if (check(TokenKind::Slash)) op = OpCode::Divide;
            else if (check(TokenKind::Percent)) op = OpCode::Modulo;
            else return;
            uint32_t line = advance().line;
            compileUnary(index);
            emit(index, op, 0, 0, line);
        }
    }

    void compileUnary(size_t index) {
        NestingGuard guard(*this);
        if (check(TokenKind::Minus)) {
            uint32_t line = advance().line;
            compileUnary(index);
            emit(index, OpCode::Negate, 0, 0, line);
        } else if (check(TokenKind::Bang) || check(TokenKind::Not)) {
            uint32_t line = advance().line;
            compileUnary(index);
            emit(index, OpCode::Not, 0, 0, line);
        } else {
            compileCall(index);
        }
    }

    void compileCall(size_t index) {
        compilePrimary(index);
        for (;;) {
            if (match(TokenKind::LeftParen)) {
                int32_t count = 0;
                if (!check(TokenKind::RightParen)) {
                    do {
                        compileExpression(index);
                        ++count;
                    } while (match(TokenKind::Comma));
                }
                uint32_t line = consume(TokenKind::RightParen, "expected ')' after arguments").line;
                emit(index, OpCode::Call, count, 0, line);
            } else if (check(TokenKind::LeftBracket)) {
                uint32_t line = advance().line;
                compileExpression(index);
                consume(TokenKind::RightBracket, "expected ']' after index expression");
                emit(index, OpCode::Index, 0, 0, line);
            } else {
                return;
            }
        }
    }

    void compilePrimary(size_t index) {
        const Token& token = peek();
        uint32_t line = token.line;
        switch (token.kind) {
        case TokenKind::Integer: {
            // Out of range raises the conversion's own text, with no position.
            RubyValue value(static_cast<int64_t>(std::stoll(token.text)));
            advance();
            emit(index, OpCode::LoadConstant, addConstant(std::move(value)), 0, line);
            return;
        }
        case TokenKind::Float: {
            RubyValue value(std::stod(token.text));
            advance();
            emit(index, OpCode::LoadConstant, addConstant(std::move(value)), 0, line);
            return;
        }
        case TokenKind::String:
            emit(index, OpCode::LoadConstant, addConstant(RubyValue(advance().text)), 0, line);
            return;
        case TokenKind::True:
        case TokenKind::False:
            advance();
            emit(index, OpCode::LoadConstant, addConstant(RubyValue(token.kind == TokenKind::True)), 0, line);
            return;
        case TokenKind::Nil:
            advance();
            emit(index, OpCode::LoadConstant, addConstant(RubyValue()), 0, line);
            return;
        case TokenKind::Identifier:
            emit(index, OpCode::LoadName, addConstant(RubyValue(advance().text)), 0, line);
            return;
        case TokenKind::LeftParen:
            advance();
            compileExpression(index);
            consume(TokenKind::RightParen, "expected ')' after expression");
            return;
        case TokenKind::LeftBracket: {
            advance();
            int32_t count = 0;
            if (!check(TokenKind::RightBracket)) {
                do {
                    compileExpression(index);
                    ++count;
                } while (match(TokenKind::Comma));
            }
            consume(TokenKind::RightBracket, "expected ']' after array literal");
            emit(index, OpCode::MakeArray, count, 0, line);
            return;
        }
        default:
            errorAt(token, "expected expression");
        }
    }

    std::vector<Token> tokens;
    const std::string& chunkName;
    size_t current = 0;
    int nesting = 0;
    Program program;
};

}  // namespace

Program compileProgram(const std::string& source, const std::string& chunkName) {
    Lexer lexer(source, chunkName);
    Compiler compiler(lexer.scanTokens(), chunkName);
    return compiler.compile();
}

}  // namespace orvane::ruby
