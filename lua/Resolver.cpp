// Names to slots, and the marks of blocks in which no closure can be made.
#include "lua/Resolver.h"

namespace orvane::lua {

ResolvedChunk Resolver::resolve(StmtList statements) {
    ResolvedChunk chunk;
    scopes.clear();
    beginScope();
    resolveStatements(statements);
    chunk.slotCount = endScope();
    chunk.statements = std::move(statements);
    return chunk;
}

void Resolver::beginScope() { scopes.emplace_back(); }

uint64_t Resolver::endScope() {
    uint64_t count = scopes.back().slotCount;
    scopes.pop_back();
    return count;
}

uint64_t Resolver::declareLocal(const std::string& name) {
    Scope& scope = scopes.back();
    uint64_t slot = scope.slotCount++;
    scope.locals[name] = slot;
    return slot;
}

bool Resolver::findLocal(const std::string& name, int32_t& depth, uint64_t& slot) const {
    int32_t d = 0;
    for (auto it = scopes.rbegin(); it != scopes.rend(); ++it, ++d) {
        auto found = it->locals.find(name);
        if (found != it->locals.end()) {
            depth = d;
            slot = found->second;
            return true;
        }
    }
    return false;
}

void Resolver::resolveStatements(StmtList& statements) {
    for (auto& statement : statements) resolveStatement(*statement);
}

void Resolver::resolveStatement(Stmt& statement) {
    switch (statement.kind) {
    case Stmt::Kind::Expression: resolveExpression(static_cast<ExpressionStmt&>(statement).expression); return;
    case Stmt::Kind::Assignment: {
        auto& s = static_cast<AssignmentStmt&>(statement);
        if (!s.isLocal) {
            for (auto& target : s.targets) resolveAssignTarget(target);
            resolveExpressionList(s.values);
        } else {
            resolveExpressionList(s.values);
            for (auto& target : s.targets) {
                target.depth = 0;
                target.envDepth = 0;
                target.slot = declareLocal(target.name);
            }
        }
        return;
    }
    case Stmt::Kind::FunctionDeclaration: {
        auto& s = static_cast<FunctionDeclarationStmt&>(statement);
        if (s.isLocal) {
            s.target.depth = 0;
            s.target.envDepth = 0;
            s.target.slot = declareLocal(s.target.name);
        } else {
            resolveAssignTarget(s.target);
        }
        resolveFunction(*s.function);
        return;
    }
    case Stmt::Kind::If: {
        auto& s = static_cast<IfStmt&>(statement);
        for (auto& branch : s.branches) {
            resolveExpression(branch.condition);
            beginScope();
            resolveStatements(branch.block);
            branch.slotCount = endScope();
            branch.noCapture = !blockContainsFunction(branch.block);
        }
        if (!s.elseBlock.empty()) {
            beginScope();
            resolveStatements(s.elseBlock);
            s.elseSlotCount = endScope();
            s.elseNoCapture = !blockContainsFunction(s.elseBlock);
        }
        return;
    }
    case Stmt::Kind::While: {
        auto& s = static_cast<WhileStmt&>(statement);
        resolveExpression(s.condition);
        beginScope();
        resolveStatements(s.body);
        s.slotCount = endScope();
        s.noCapture = !blockContainsFunction(s.body);
        return;
    }
    case Stmt::Kind::NumericFor: {
        auto& s = static_cast<NumericForStmt&>(statement);
        resolveExpression(s.start);
        resolveExpression(s.limit);
        resolveExpression(s.step);
        beginScope();
        s.loopSlot = declareLocal(s.name);
        resolveStatements(s.body);
        s.slotCount = endScope();
        s.noCapture = !blockContainsFunction(s.body);
        return;
    }
    case Stmt::Kind::GenericFor: {
        auto& s = static_cast<GenericForStmt&>(statement);
        resolveExpressionList(s.iterators);
        beginScope();
        s.slots.clear();
        for (const auto& name : s.names) s.slots.push_back(declareLocal(name));
        resolveStatements(s.body);
        s.slotCount = endScope();
        s.noCapture = !blockContainsFunction(s.body);
        return;
    }
    case Stmt::Kind::Return: resolveExpressionList(static_cast<ReturnStmt&>(statement).values); return;
    case Stmt::Kind::Break: return;
    }
    failParse(chunkName, statement.line, 1, "unable to resolve statement");
}

void Resolver::resolveExpressionList(std::vector<ExprPtr>& expressions) {
    for (auto& e : expressions) resolveExpression(e);
}

void Resolver::resolveExpression(const ExprPtr& expression) {
    if (!expression) return;
    switch (expression->kind) {
    case Expr::Kind::Literal: return;
    case Expr::Kind::Variable: {
        auto& v = static_cast<VariableExpr&>(*expression);
        int32_t depth;
        uint64_t slot;
        if (findLocal(v.name, depth, slot)) {
            v.depth = depth;
            v.envDepth = depth;
            v.slot = slot;
        }
        return;
    }
    case Expr::Kind::Unary: resolveExpression(static_cast<UnaryExpr&>(*expression).operand); return;
    case Expr::Kind::Binary: {
        auto& b = static_cast<BinaryExpr&>(*expression);
        resolveExpression(b.left);
        resolveExpression(b.right);
        return;
    }
    case Expr::Kind::Table:
        for (auto& field : static_cast<TableExpr&>(*expression).fields) {
            resolveExpression(field.key);
            resolveExpression(field.value);
        }
        return;
    case Expr::Kind::Field: resolveExpression(static_cast<FieldExpr&>(*expression).object); return;
    case Expr::Kind::Index: {
        auto& i = static_cast<IndexExpr&>(*expression);
        resolveExpression(i.object);
        resolveExpression(i.index);
        return;
    }
    case Expr::Kind::Call: {
        auto& c = static_cast<CallExpr&>(*expression);
        if (c.object) resolveExpression(c.object);
        else resolveExpression(c.callee);
        resolveExpressionList(c.arguments);
        return;
    }
    case Expr::Kind::Function: resolveFunction(static_cast<FunctionExpr&>(*expression)); return;
    }
}

void Resolver::resolveAssignTarget(AssignTarget& target) {
    if (target.kind == 0) {
        int32_t depth;
        uint64_t slot;
        if (findLocal(target.name, depth, slot)) {
            target.depth = depth;
            target.envDepth = depth;
            target.slot = slot;
        }
        return;
    }
    resolveExpression(target.object);
    if (target.index) resolveExpression(target.index);
}

void Resolver::resolveFunction(FunctionExpr& function) {
    beginScope();
    for (const auto& parameter : function.parameters) declareLocal(parameter);
    resolveStatements(function.body);
    function.slotCount = endScope();
    function.noCapture = !blockContainsFunction(function.body);
}

bool expressionContainsFunction(const ExprPtr& expression) {
    if (!expression) return false;
    switch (expression->kind) {
    case Expr::Kind::Literal:
    case Expr::Kind::Variable: return false;
    case Expr::Kind::Unary: return expressionContainsFunction(static_cast<UnaryExpr&>(*expression).operand);
    case Expr::Kind::Binary: {
        auto& b = static_cast<BinaryExpr&>(*expression);
        return expressionContainsFunction(b.left) || expressionContainsFunction(b.right);
    }
    case Expr::Kind::Table:
        for (auto& field : static_cast<TableExpr&>(*expression).fields)
            if (expressionContainsFunction(field.key) || expressionContainsFunction(field.value)) return true;
        return false;
    case Expr::Kind::Field: return expressionContainsFunction(static_cast<FieldExpr&>(*expression).object);
    case Expr::Kind::Index: {
        auto& i = static_cast<IndexExpr&>(*expression);
        return expressionContainsFunction(i.object) || expressionContainsFunction(i.index);
    }
    case Expr::Kind::Call: {
        auto& c = static_cast<CallExpr&>(*expression);
        if (expressionContainsFunction(c.object) || expressionContainsFunction(c.callee)) return true;
        for (auto& a : c.arguments)
            if (expressionContainsFunction(a)) return true;
        return false;
    }
    case Expr::Kind::Function: return true;
    }
    return false;
}

bool assignTargetContainsFunction(const AssignTarget& target) {
    return expressionContainsFunction(target.object) || expressionContainsFunction(target.index);
}

static bool listContainsFunction(const std::vector<ExprPtr>& list) {
    for (auto& e : list)
        if (expressionContainsFunction(e)) return true;
    return false;
}

bool statementContainsFunction(const Stmt& statement) {
    switch (statement.kind) {
    case Stmt::Kind::Expression:
        return expressionContainsFunction(static_cast<const ExpressionStmt&>(statement).expression);
    case Stmt::Kind::Assignment: {
        auto& s = static_cast<const AssignmentStmt&>(statement);
        for (auto& t : s.targets)
            if (assignTargetContainsFunction(t)) return true;
        return listContainsFunction(s.values);
    }
    case Stmt::Kind::FunctionDeclaration: return true;
    case Stmt::Kind::If: {
        auto& s = static_cast<const IfStmt&>(statement);
        for (auto& b : s.branches)
            if (expressionContainsFunction(b.condition) || blockContainsFunction(b.block)) return true;
        return blockContainsFunction(s.elseBlock);
    }
    case Stmt::Kind::While: {
        auto& s = static_cast<const WhileStmt&>(statement);
        return expressionContainsFunction(s.condition) || blockContainsFunction(s.body);
    }
    case Stmt::Kind::NumericFor: {
        auto& s = static_cast<const NumericForStmt&>(statement);
        return expressionContainsFunction(s.start) || expressionContainsFunction(s.limit) ||
               expressionContainsFunction(s.step) || blockContainsFunction(s.body);
    }
    case Stmt::Kind::GenericFor: {
        auto& s = static_cast<const GenericForStmt&>(statement);
        return listContainsFunction(s.iterators) || blockContainsFunction(s.body);
    }
    case Stmt::Kind::Return: return listContainsFunction(static_cast<const ReturnStmt&>(statement).values);
    case Stmt::Kind::Break: return false;
    }
    return false;
}

bool blockContainsFunction(const StmtList& block) {
    for (auto& s : block)
        if (statementContainsFunction(*s)) return true;
    return false;
}

}  // namespace orvane::lua
