// Compiling a token range to a FastExpression. Any refusal makes the whole expression invalid and
// leaves the range to the token evaluator, which then produces the precise error.
#include "script/FastExpression.h"

#include <cmath>
#include <stdexcept>

#include "script/Operations.h"
#include "script/ParsedLine.h"

namespace orvane {

void throwExpectedNumeric() { throw std::runtime_error("Expected a numeric value"); }

namespace {

struct FastCompiler {
    const std::vector<std::string>& tokens;
    const std::vector<TokenAnalysis>& analyses;
    size_t pos;
    size_t end;
    FastExpression out;
    bool healthy = true;
    int depth = 0;

    bool atEnd() const { return pos >= end; }
    bool peekIs(const char* t) const { return pos < end && tokens[pos] == t; }

    std::vector<uint16_t> extentEnd = {};  // per node: its last token, closing parentheses included

    int32_t add(FastExprNode node, size_t lastToken) {
        out.nodes.push_back(node);
        extentEnd.push_back(uint16_t(lastToken));
        return int32_t(out.nodes.size() - 1);
    }

    uint16_t endOf(int32_t node) const { return node < 0 ? 0 : extentEnd[size_t(node)]; }

    uint8_t flagOf(int32_t node) const { return node < 0 ? 0 : out.nodes[size_t(node)].flags; }

    int32_t refuse() {
        healthy = false;
        return -1;
    }

    static FastExprNodeKind binaryKind(const std::string& t, int& precedence) {
        precedence = 0;
        if (t == "or" || t == "||") { precedence = 1; return FastExprNodeKind::Or; }
        if (t == "and" || t == "&&") { precedence = 2; return FastExprNodeKind::And; }
        if (t == "==") { precedence = 3; return FastExprNodeKind::Eq; }
        if (t == "!=" || t == "~=") { precedence = 3; return FastExprNodeKind::Ne; }
        if (t == "<") { precedence = 4; return FastExprNodeKind::Lt; }
        if (t == ">") { precedence = 4; return FastExprNodeKind::Gt; }
        if (t == "<=") { precedence = 4; return FastExprNodeKind::Le; }
        if (t == ">=") { precedence = 4; return FastExprNodeKind::Ge; }
        if (t == "+") { precedence = 5; return FastExprNodeKind::Add; }
        if (t == "-") { precedence = 5; return FastExprNodeKind::Sub; }
        if (t == "*") { precedence = 6; return FastExprNodeKind::Mul; }
        if (t == "/") { precedence = 6; return FastExprNodeKind::Div; }
        if (t == "\\") { precedence = 6; return FastExprNodeKind::IntDiv; }
        if (t == "%") { precedence = 6; return FastExprNodeKind::Mod; }
        if (t == "^") { precedence = 7; return FastExprNodeKind::Pow; }
        return FastExprNodeKind::None;
    }

    int32_t parseExpression(int minimum) {
        // Nesting this deep is left to the token evaluator, which reports it.
        if (++depth > 200) return refuse();
        int32_t left = parsePrimary();
        while (healthy && !atEnd()) {
            int precedence;
            FastExprNodeKind kind = binaryKind(tokens[pos], precedence);
            if (kind == FastExprNodeKind::None || precedence < minimum) break;
            size_t opToken = pos++;
            int32_t right = parseExpression(kind == FastExprNodeKind::Pow ? precedence : precedence + 1);
            if (!healthy) break;
            FastExprNode node;
            node.kind = kind;
            node.left = left;
            node.right = right;
            node.tokenIndex = uint16_t(opToken);
            uint8_t calls = (flagOf(left) | flagOf(right)) & kFastExprNodeHasCall;
            switch (kind) {
            case FastExprNodeKind::Div:
            case FastExprNodeKind::Pow: node.flags = kFastExprNodeMayFloat | calls; break;
            case FastExprNodeKind::IntDiv: node.flags = calls; break;
            default: node.flags = flagOf(left) | flagOf(right); break;
            }
            node.errorToken = endOf(right);
            left = add(node, endOf(right));
        }
        --depth;
        return healthy ? left : -1;
    }

    int32_t unary(FastExprNodeKind kind, size_t opToken) {
        int32_t child = parseExpression(7);
        if (!healthy) return -1;
        FastExprNode node;
        node.kind = kind;
        node.left = child;
        node.tokenIndex = uint16_t(opToken);
        node.flags = flagOf(child) & (kind == FastExprNodeKind::Negate ? 0xFF : kFastExprNodeHasCall);
        node.errorToken = endOf(child);
        return add(node, endOf(child));
    }

    int32_t parsePrimary() {
        if (atEnd()) return refuse();
        size_t index = pos;
        const std::string& t = tokens[pos++];
        const TokenAnalysis& a = analyses[index];
        FastExprNode node;
        node.tokenIndex = uint16_t(index);
        if (t == "(") {
            int32_t inner = parseExpression(1);
            if (!healthy || !peekIs(")")) return refuse();
            extentEnd[size_t(inner)] = uint16_t(pos++);
            return parsePostfix(inner);
        }
        if (t == "+") return parseExpression(7);
        if (t == "-") return unary(FastExprNodeKind::Negate, index);
        if (t == "!") return unary(FastExprNodeKind::Not, index);
        if (t == "#") return unary(FastExprNodeKind::Length, index);
        if (t == "not") {
            if (atEnd() || isStandaloneNotBoundary(tokens[pos])) {
                node.kind = FastExprNodeKind::Nil;
                return parsePostfix(add(node, index));
            }
            return unary(FastExprNodeKind::Not, index);
        }
        if (a.isTrue || a.isFalse) {
            node.kind = FastExprNodeKind::Bool;
            node.boolValue = a.isTrue;
            return parsePostfix(add(node, index));
        }
        if (t.size() >= 2 && (t[0] == '"' || t[0] == '\'') && t.back() == t[0]) {
            if (out.strings.size() >= 0xFFFF) return refuse();
            node.kind = FastExprNodeKind::String;
            node.stringIndex = uint16_t(out.strings.size());
            out.strings.push_back(decodeStringToken(t));
            return parsePostfix(add(node, index));
        }
        if (a.isIdentifier) {
            node.kind = FastExprNodeKind::Variable;
            return parsePostfix(add(node, index));
        }
        if (a.looksNumeric) {
            if (a.isInt) {
                node.kind = FastExprNodeKind::Int;
                node.intValue = a.intValue;
            } else {
                float f;
                if (!parseFloatStrict(t, f)) return refuse();
                node.kind = FastExprNodeKind::Float;
                node.floatValue = f;
                node.flags = kFastExprNodeMayFloat;
            }
            return parsePostfix(add(node, index));
        }
        return refuse();
    }

    int32_t parsePostfix(int32_t node) {
        while (healthy && !atEnd()) {
            if (tokens[pos] == "[") {
                size_t open = pos++;
                int32_t key = parseExpression(1);
                if (!healthy || !peekIs("]")) return refuse();
                ++pos;
                FastExprNode index;
                index.kind = FastExprNodeKind::Index;
                index.left = node;
                index.right = key;
                index.tokenIndex = uint16_t(open);
                index.flags = (flagOf(node) | flagOf(key)) & kFastExprNodeHasCall;
                index.errorToken = uint16_t(pos - 1);
                node = add(index, pos - 1);
            } else if (tokens[pos] == "(") {
                size_t open = pos++;
                std::vector<int32_t> arguments;
                if (peekIs(")")) {
                    ++pos;
                } else {
                    for (;;) {
                        arguments.push_back(parseExpression(1));
                        if (!healthy) return -1;
                        if (peekIs(",")) { ++pos; continue; }
                        if (peekIs(")")) { ++pos; break; }
                        return refuse();
                    }
                }
                FastExprNode call;
                call.kind = FastExprNodeKind::Call;
                call.left = node;
                call.right = int32_t(out.callArgs.size());
                call.intValue = int32_t(arguments.size());
                call.tokenIndex = uint16_t(open);
                call.flags = kFastExprNodeHasCall;
                call.errorToken = uint16_t(pos - 1);
                out.callArgs.insert(out.callArgs.end(), arguments.begin(), arguments.end());
                node = add(call, pos - 1);
            } else {
                break;
            }
        }
        return healthy ? node : -1;
    }
};

}  // namespace

// Children come before their parents, so one pass in order sees each child first. An Add is
// marked when its leaves have the shape and one of them is a string literal: without one, the
// general Add gives the same text.
static void markConcatShapes(FastExpression& e) {
    enum : uint8_t { Shape = 1, Literal = 2 };
    std::vector<uint8_t> seen(e.nodes.size(), 0);
    for (size_t i = 0; i < e.nodes.size(); ++i) {
        FastExprNode& node = e.nodes[i];
        switch (node.kind) {
        case FastExprNodeKind::String: seen[i] = Shape | Literal; break;
        case FastExprNodeKind::Call:
            if (node.intValue == 1 && e.nodes[size_t(node.left)].kind == FastExprNodeKind::Variable) seen[i] = Shape;
            break;
        case FastExprNodeKind::Add: {
            uint8_t l = seen[size_t(node.left)], r = seen[size_t(node.right)];
            if ((l & Shape) && (r & Shape)) seen[i] = uint8_t(Shape | ((l | r) & Literal));
            break;
        }
        default: break;
        }
        bool marked = node.kind == FastExprNodeKind::Add && seen[i] == (Shape | Literal);
        node.flags = uint8_t((node.flags & ~kFastExprNodeConcatShape) | (marked ? kFastExprNodeConcatShape : 0));
    }
}

FastExpression compileFastExpressionRange(const std::vector<std::string>& tokens,
                                          const std::vector<TokenAnalysis>& analyses, size_t begin, size_t end) {
    // Node token indices are 16 bits wide; longer lines stay on the token evaluator.
    if (begin >= end || end > tokens.size() || tokens.size() != analyses.size() || end > 0xFFFF) return {};
    FastCompiler compiler{tokens, analyses, begin, end, {}};
    compiler.out.nodes.reserve(2 * (end - begin));
    int32_t root = compiler.parseExpression(1);
    if (!compiler.healthy || root < 0 || compiler.pos != end) return {};
    compiler.out.valid = true;
    compiler.out.root = root;
    markConcatShapes(compiler.out);
    compileFastSteps(compiler.out);
    return std::move(compiler.out);
}

FastCallExpression compileFastCallExpressionRange(const std::vector<std::string>& tokens,
                                                  const std::vector<TokenAnalysis>& analyses, size_t begin,
                                                  size_t end) {
    FastCallExpression call;
    if (end > tokens.size() || end > 0xFFFF || begin + 3 > end || tokens.size() != analyses.size()) return call;
    if (!analyses[begin].isIdentifier || tokens[begin + 1] != "(" || tokens[end - 1] != ")") return call;
    call.nameToken = uint16_t(begin);
    int parens = 0, brackets = 0, braces = 0;
    size_t argStart = begin + 2, inner = end - 1;
    for (size_t i = argStart; i <= inner; ++i) {
        bool split = i == inner;
        if (!split) {
            const std::string& t = tokens[i];
            if (t == "(") ++parens;
            else if (t == "[") ++brackets;
            else if (t == "{") ++braces;
            else if (t == ")") { if (parens > 0) --parens; }
            else if (t == "]") { if (brackets > 0) --brackets; }
            else if (t == "}") { if (braces > 0) --braces; }
            split = t == "," && parens == 0 && brackets == 0 && braces == 0;
        }
        if (!split) continue;
        if (i == argStart) {
            if (i == inner && call.arguments.empty()) break;  // no arguments at all
            return FastCallExpression{};
        }
        FastExpression argument = compileFastExpressionRange(tokens, analyses, argStart, i);
        if (!argument.valid) return FastCallExpression{};
        call.arguments.push_back(std::move(argument));
        argStart = i + 1;
    }
    call.valid = true;
    return call;
}

}  // namespace orvane
