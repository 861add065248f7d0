// The reference evaluator: precedence climbing directly over a line's tokens, with no tree.
#include <stdexcept>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

struct OrvaneScript::Cursor {
    const std::vector<std::string>& tokens;
    size_t& pos;
    std::vector<TokenAnalysis>* analyses;

    bool atEnd() const { return pos >= tokens.size(); }
    bool peekIs(const char* text) const { return pos < tokens.size() && tokens[pos] == text; }
    const std::string& peek() const { return tokens[pos]; }
    // The offending token for a syntax error, or "EOF" behind the last one.
    std::string offending() const { return atEnd() ? std::string("EOF") : tokens[pos]; }
    TokenAnalysis analysis(size_t index) const {
        return analyses && index < analyses->size() ? (*analyses)[index] : analyseToken(tokens[index]);
    }
};

namespace {

// Operator kinds and precedences.
int binaryPrecedence(const std::string& t, char& op) {
    op = 0;
    if (t.empty()) return 0;
    if (t == "or" || t == "||") { op = 'o'; return 1; }
    if (t == "and" || t == "&&") { op = 'a'; return 2; }
    if (t == "==") { op = '='; return 3; }
    if (t == "!=" || t == "~=") { op = '!'; return 3; }
    if (t == "<") { op = '<'; return 4; }
    if (t == ">") { op = '>'; return 4; }
    if (t == "<=") { op = 'l'; return 4; }
    if (t == ">=") { op = 'g'; return 4; }
    if (t.size() != 1) return 0;
    switch (t[0]) {
    case '+': case '-': op = t[0]; return 5;
    case '*': case '/': case '\\': case '%': op = t[0]; return 6;
    case '^': op = '^'; return 7;
    default: return 0;
    }
}

bool isPrefixOperator(const std::string& t) { return t == "+" || t == "-" || t == "#" || t == "!" || t == "not"; }

bool isStringLiteral(const std::string& t) {
    return t.size() >= 2 && (t[0] == '"' || t[0] == '\'') && t.back() == t[0];
}

constexpr int kPrefixPrecedence = 7;

}  // namespace

const std::string& OrvaneScript::consume(Cursor& c) {
    currentTokenIndex = c.pos;
    const std::string& token = c.tokens[c.pos++];
    nearToken = token;
    nearTokenFromFast = false;
    return token;
}

Variable OrvaneScript::evaluateExpression(const std::vector<std::string>& tokens, size_t& position,
                                          std::vector<TokenAnalysis>* analyses) {
    while (position < tokens.size() && tokens[position].empty()) ++position;
    Cursor c{tokens, position, analyses};
    return evaluateAt(c, 1);
}

bool OrvaneScript::evaluateCondition(const std::vector<std::string>& tokens, size_t& position,
                                     std::vector<TokenAnalysis>* analyses) {
    return isTruthy(evaluateExpression(tokens, position, analyses));
}

void OrvaneScript::skipExpression(const std::vector<std::string>& tokens, size_t& position, int minPrecedence,
                                  std::vector<TokenAnalysis>* analyses) {
    Cursor c{tokens, position, analyses};
    skipAt(c, minPrecedence);
}

Variable OrvaneScript::evaluateAt(Cursor& c, int minPrecedence) {
    checkNativeStack();
    Variable left = evaluateOperand(c);
    if (shouldAbortForSoftRaisedError()) return Variable();
    while (!c.atEnd()) {
        char op;
        int precedence = binaryPrecedence(c.peek(), op);
        if (precedence == 0 || precedence < minPrecedence) break;
        consume(c);
        if (op == 'o' || op == 'a') {
            bool takeRight = (op == 'o') != isTruthy(left);
            if (takeRight) left = evaluateAt(c, precedence + 1);
            else skipAt(c, precedence + 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            continue;
        }
        Variable right = evaluateAt(c, op == '^' ? precedence : precedence + 1);
        if (shouldAbortForSoftRaisedError()) return Variable();
        switch (op) {
        case '=': left = Variable(variablesEqual(left, right)); break;
        case '!': left = Variable(!variablesEqual(left, right)); break;
        case '<': left = Variable(compareVariables(left, right) < 0); break;
        case '>': left = Variable(compareVariables(left, right) > 0); break;
        case 'l': left = Variable(compareVariables(left, right) <= 0); break;
        case 'g': left = Variable(compareVariables(left, right) >= 0); break;
        default: left = performOperation(left, op, right); break;
        }
    }
    return left;
}

Variable OrvaneScript::evaluateOperand(Cursor& c) {
    if (c.atEnd()) throwError("Unexpected end of expression", "EOF");
    const std::string& token = c.peek();
    if (!isPrefixOperator(token)) return evaluatePrimary(c);
    const std::string& prefix = consume(c);
    if (prefix == "not" && (c.atEnd() || isStandaloneNotBoundary(c.peek()))) return Variable();
    Variable operand = evaluateAt(c, kPrefixPrecedence);
    if (shouldAbortForSoftRaisedError()) return Variable();
    switch (prefix[0]) {
    case '+': return operand;
    case '-':
        switch (operand.type) {
        case VarType::Float: return Variable(-operand.asFloat());
        case VarType::Int: return Variable(int32_t(0u - uint32_t(operand.asInt())));
        case VarType::Bool: return Variable(int32_t(operand.asBool() ? -1 : 0));
        default: throw std::runtime_error("Unary '-' requires a numeric value");
        }
    case '#': return Variable(arrayLength(operand));
    default: return Variable(!isTruthy(operand));  // `!` and `not`
    }
}

Variable OrvaneScript::evaluatePrimary(Cursor& c) {
    size_t index = c.pos;
    const std::string& token = consume(c);
    if (token == "(") {
        Variable inner = evaluateAt(c, 1);
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (!c.peekIs(")")) throwError("Expected closing parenthesis", ")");
        consume(c);
        return evaluatePostfix(c, std::move(inner));
    }
    if (token == "[") return evaluatePostfix(c, evaluateArrayLiteral(c));
    if (token == "{") return evaluatePostfix(c, evaluateTableLiteral(c));
    if (token == "...") {
        if (varargStack.empty()) return Variable();
        return Variable::makeMulti(varargStack.back());
    }
    if (isStringLiteral(token)) return evaluatePostfix(c, Variable(decodeStringToken(token)));
    TokenAnalysis fixed = c.analysis(index);
    if (fixed.isTrue) return Variable(true);
    if (fixed.isFalse) return Variable(false);
    if (fixed.isIdentifier) {
        Variable value;
        if (c.analyses && index < c.analyses->size()) resolveVariableFast(token, (*c.analyses)[index], value);
        else resolveVariable(token, value);
        return evaluatePostfix(c, std::move(value));
    }
    if (fixed.looksNumeric) {
        if (fixed.isFloat || !fixed.isInt) {
            float f;
            if (!parseFloatStrict(token, f)) throw std::runtime_error("Invalid numeric format");
            return Variable(f);
        }
        return Variable(fixed.intValue);
    }
    throwError("Unknown token: " + token, token);
}

Variable OrvaneScript::evaluatePostfix(Cursor& c, Variable value) {
    while (!c.atEnd()) {
        if (c.peekIs("[")) {
            consume(c);
            Variable key = evaluateAt(c, 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            if (!c.peekIs("]")) throwError("Expected closing bracket", "]");
            consume(c);
            value = getIndexedValue(value, key);
        } else if (c.peekIs("(")) {
            consume(c);
            VariableArray arguments;
            if (c.peekIs(")")) {
                consume(c);
            } else {
                for (;;) {
                    arguments.push_back(evaluateAt(c, 1));
                    if (shouldAbortForSoftRaisedError()) return Variable();
                    if (c.peekIs(",")) { consume(c); continue; }
                    if (c.peekIs(")")) { consume(c); break; }
                    throwError("Expected ',' or ')' after function argument", c.offending());
                }
            }
            value = invokeCallableFast(value, arguments.data(), arguments.size());
            if (shouldAbortForSoftRaisedError()) return Variable();
        } else {
            break;
        }
    }
    return value;
}

Variable OrvaneScript::evaluateArrayLiteral(Cursor& c) {
    VariableArray items;
    if (c.peekIs("]")) {
        consume(c);
        return Variable(std::move(items));
    }
    for (;;) {
        items.push_back(evaluateAt(c, 1));
        if (shouldAbortForSoftRaisedError()) return Variable();
        if (c.peekIs(",")) {
            consume(c);
            if (c.peekIs("]")) { consume(c); break; }
            continue;
        }
        if (c.peekIs("]")) { consume(c); break; }
        throwError("Expected ',' or ']' in array literal", c.offending());
    }
    return Variable(std::move(items));
}

Variable OrvaneScript::evaluateTableLiteral(Cursor& c) {
    VariableArray positional;
    VariableTable map;
    bool keyed = false;
    if (c.peekIs("}")) {
        consume(c);
        return Variable(std::move(map));
    }
    auto becomeKeyed = [&] {
        if (keyed) return;
        for (size_t i = 0; i < positional.size(); ++i) map[std::to_string(i + 1)] = positional[i];
        keyed = true;
    };
    for (;;) {
        if (c.atEnd()) throwError("Unexpected end of table literal", "EOF");
        if (c.peekIs("[")) {
            consume(c);
            Variable key = evaluateAt(c, 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            if (!c.peekIs("]")) throwError("Expected ']' after table key", c.offending());
            consume(c);
            if (!c.peekIs(":") && !c.peekIs("=")) throwError("Expected ':' after table key", c.offending());
            consume(c);
            std::string name = keyToString(key);
            Variable value = evaluateAt(c, 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            becomeKeyed();
            map[name] = std::move(value);
        } else if (c.pos + 1 < c.tokens.size() && (c.tokens[c.pos + 1] == ":" || c.tokens[c.pos + 1] == "=")) {
            size_t index = c.pos;
            const std::string& token = consume(c);
            std::string name;
            TokenAnalysis fixed = c.analysis(index);
            if (isStringLiteral(token)) name = decodeStringToken(token);
            else if (fixed.isIdentifier || fixed.looksNumeric || fixed.isTrue || fixed.isFalse) name = token;
            else throwError("Invalid table key", token);
            consume(c);
            Variable value = evaluateAt(c, 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            becomeKeyed();
            map[name] = std::move(value);
        } else {
            Variable value = evaluateAt(c, 1);
            if (shouldAbortForSoftRaisedError()) return Variable();
            positional.push_back(value);
            if (keyed) map[std::to_string(positional.size())] = std::move(value);
        }
        if (c.peekIs("}")) { consume(c); break; }
        if (!c.peekIs(",")) throwError("Expected ',' or '}' in table literal", c.offending());
        consume(c);
        if (c.peekIs("}")) { consume(c); break; }
    }
    if (keyed) return Variable(std::move(map));
    return Variable(std::move(positional));
}

// Skipping walks the same grammar and raises the same syntax errors, but calls and changes nothing.
void OrvaneScript::skipAt(Cursor& c, int minPrecedence) {
    checkNativeStack();
    skipOperand(c);
    while (!c.atEnd()) {
        char op;
        int precedence = binaryPrecedence(c.peek(), op);
        if (precedence == 0 || precedence < minPrecedence) break;
        consume(c);
        skipAt(c, op == '^' ? precedence : precedence + 1);
    }
}

void OrvaneScript::skipOperand(Cursor& c) {
    if (c.atEnd()) throwError("Unexpected end of expression", "EOF");
    if (isPrefixOperator(c.peek())) {
        const std::string& prefix = consume(c);
        if (prefix == "not" && (c.atEnd() || isStandaloneNotBoundary(c.peek()))) return;
        skipAt(c, kPrefixPrecedence);
        return;
    }
    size_t index = c.pos;
    const std::string& token = consume(c);
    if (token == "(") {
        skipAt(c, 1);
        if (!c.peekIs(")")) throwError("Expected closing parenthesis", ")");
        consume(c);
    } else if (token == "[") {
        if (c.peekIs("]")) {
            consume(c);
        } else {
            for (;;) {
                skipAt(c, 1);
                if (c.peekIs(",")) {
                    consume(c);
                    if (c.peekIs("]")) { consume(c); break; }
                    continue;
                }
                if (c.peekIs("]")) { consume(c); break; }
                throwError("Expected ',' or ']' in array literal", c.offending());
            }
        }
    } else if (token == "{") {
        if (c.peekIs("}")) {
            consume(c);
        } else {
            for (;;) {
                if (c.atEnd()) throwError("Unexpected end of table literal", "EOF");
                if (c.peekIs("[")) {
                    consume(c);
                    skipAt(c, 1);
                    if (!c.peekIs("]")) throwError("Expected ']' after table key", c.offending());
                    consume(c);
                    if (!c.peekIs(":") && !c.peekIs("=")) throwError("Expected ':' after table key", c.offending());
                    consume(c);
                } else if (c.pos + 1 < c.tokens.size() && (c.tokens[c.pos + 1] == ":" || c.tokens[c.pos + 1] == "=")) {
                    size_t keyIndex = c.pos;
                    const std::string& key = consume(c);
                    TokenAnalysis fixed = c.analysis(keyIndex);
                    if (!isStringLiteral(key) && !fixed.isIdentifier && !fixed.looksNumeric && !fixed.isTrue &&
                        !fixed.isFalse)
                        throwError("Invalid table key", key);
                    consume(c);
                }
                skipAt(c, 1);
                if (c.peekIs("}")) { consume(c); break; }
                if (!c.peekIs(",")) throwError("Expected ',' or '}' in table literal", c.offending());
                consume(c);
                if (c.peekIs("}")) { consume(c); break; }
            }
        }
    } else if (token == "...") {
        return;
    } else if (isStringLiteral(token)) {
        // postfix below
    } else {
        TokenAnalysis fixed = c.analysis(index);
        if (fixed.isTrue || fixed.isFalse || fixed.looksNumeric) return;
        if (!fixed.isIdentifier) throwError("Unknown token: " + token, token);
    }
    skipPostfix(c);
}

void OrvaneScript::skipPostfix(Cursor& c) {
    while (!c.atEnd()) {
        if (c.peekIs("[")) {
            consume(c);
            skipAt(c, 1);
            if (!c.peekIs("]")) throwError("Expected closing bracket", "]");
            consume(c);
        } else if (c.peekIs("(")) {
            consume(c);
            if (c.peekIs(")")) {
                consume(c);
                continue;
            }
            for (;;) {
                skipAt(c, 1);
                if (c.peekIs(",")) { consume(c); continue; }
                if (c.peekIs(")")) { consume(c); break; }
                throwError("Expected ',' or ')' after function argument", c.offending());
            }
        } else {
            break;
        }
    }
}

}  // namespace orvane
