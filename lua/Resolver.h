// Turns local names into pairs of environment depth and slot. Every scope here is exactly one
// Environment at run time, so a depth of n means n parent links from the running environment.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "lua/Ast.h"

namespace orvane::lua {

class Resolver {
public:
    struct Scope {
        std::unordered_map<std::string, uint64_t> locals;
        uint64_t slotCount = 0;
    };

    explicit Resolver(std::string chunkName) : chunkName(std::move(chunkName)) {}

    ResolvedChunk resolve(StmtList statements);

    void beginScope();
    uint64_t endScope();
    uint64_t declareLocal(const std::string& name);
    bool findLocal(const std::string& name, int32_t& depth, uint64_t& slot) const;
    void resolveStatements(StmtList& statements);
    void resolveStatement(Stmt& statement);
    void resolveExpressionList(std::vector<ExprPtr>& expressions);
    void resolveExpression(const ExprPtr& expression);
    void resolveAssignTarget(AssignTarget& target);
    void resolveFunction(FunctionExpr& function);

private:
    std::string chunkName;
    std::vector<Scope> scopes;
};

bool expressionContainsFunction(const ExprPtr& expression);
bool statementContainsFunction(const Stmt& statement);
bool blockContainsFunction(const StmtList& block);
bool assignTargetContainsFunction(const AssignTarget& target);

}  // namespace orvane::lua
