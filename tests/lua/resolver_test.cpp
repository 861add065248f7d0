// The resolver's numbering of locals, checked on the trees themselves: every scope is one
// environment at run time, so depth and slot must come out exactly as the scopes stack up.
#include <gtest/gtest.h>

#include "lua/Ast.h"
#include "lua/Resolver.h"
#include "lua/Runtime.h"
#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

using testing::textOf;

ResolvedChunk resolveSource(const std::string& source) {
    Resolver resolver("t");
    return resolver.resolve(parseSource(source, "t"));
}

template <class T>
T& as(const StmtPtr& s) {
    return static_cast<T&>(*s);
}

template <class T>
T& as(const ExprPtr& e) {
    return static_cast<T&>(*e);
}

TEST(LuaResolver, SecondLocalReadsTheFirstAndTakesANewSlot) {
    ResolvedChunk chunk = resolveSource("local x = 1; local x = x + 1");
    ASSERT_EQ(chunk.statements.size(), 2u);
    EXPECT_EQ(chunk.slotCount, 2u);
    auto& first = as<AssignmentStmt>(chunk.statements[0]);
    auto& second = as<AssignmentStmt>(chunk.statements[1]);
    EXPECT_EQ(first.targets[0].depth, 0);
    EXPECT_EQ(first.targets[0].slot, 0u);
    EXPECT_EQ(second.targets[0].slot, 1u);
    auto& read = as<VariableExpr>(as<BinaryExpr>(second.values[0]).left);
    EXPECT_EQ(read.depth, 0);
    EXPECT_EQ(read.slot, 0u);
    EXPECT_EQ(textOf("local x = 1; local x = x + 1 return x"), "2");
}

TEST(LuaResolver, BranchFunctionAndChunkAreOneScopeEach) {
    ResolvedChunk chunk = resolveSource("local a = 1 function f(b) if b then local c = a + b end end");
    auto& declaration = as<FunctionDeclarationStmt>(chunk.statements[1]);
    EXPECT_EQ(declaration.target.depth, -1);  // f is a global
    auto& branch = as<IfStmt>(declaration.function->body[0]).branches[0];
    auto& condition = as<VariableExpr>(branch.condition);
    EXPECT_EQ(condition.depth, 0);  // the condition is resolved in the function's scope
    EXPECT_EQ(condition.slot, 0u);
    auto& local = as<AssignmentStmt>(branch.block[0]);
    EXPECT_EQ(local.targets[0].depth, 0);
    EXPECT_EQ(local.targets[0].slot, 0u);
    auto& sum = as<BinaryExpr>(local.values[0]);
    auto& a = as<VariableExpr>(sum.left);
    auto& b = as<VariableExpr>(sum.right);
    EXPECT_EQ(b.depth, 1);
    EXPECT_EQ(b.slot, 0u);
    EXPECT_EQ(a.depth, 2);
    EXPECT_EQ(a.slot, 0u);
    EXPECT_EQ(branch.slotCount, 1u);
    EXPECT_TRUE(branch.noCapture);
    EXPECT_EQ(declaration.function->slotCount, 1u);
    EXPECT_TRUE(declaration.function->noCapture);
}

TEST(LuaResolver, RepeatedParameterResolvesToTheLaterSlot) {
    ResolvedChunk chunk = resolveSource("function f(a, a) return a end");
    auto& function = *as<FunctionDeclarationStmt>(chunk.statements[0]).function;
    EXPECT_EQ(function.slotCount, 2u);
    auto& read = as<VariableExpr>(as<ReturnStmt>(function.body[0]).values[0]);
    EXPECT_EQ(read.slot, 1u);
    EXPECT_EQ(textOf("function f(a, a) return a end return f(1, 2)"), "2");
}

TEST(LuaResolver, LocalFunctionSeesItselfLocalAssignmentDoesNot) {
    ResolvedChunk declared = resolveSource("local function f() return f end");
    auto& declaration = as<FunctionDeclarationStmt>(declared.statements[0]);
    auto& inner = as<VariableExpr>(as<ReturnStmt>(declaration.function->body[0]).values[0]);
    EXPECT_EQ(inner.depth, 1);
    EXPECT_EQ(inner.slot, 0u);

    ResolvedChunk assigned = resolveSource("local f = function() return f end");
    auto& function = as<FunctionExpr>(as<AssignmentStmt>(assigned.statements[0]).values[0]);
    auto& global = as<VariableExpr>(as<ReturnStmt>(function.body[0]).values[0]);
    EXPECT_EQ(global.depth, -1);
    EXPECT_EQ(textOf("local function f() return f end return f() == f"), "true");
    EXPECT_EQ(textOf("local f = function() return f end return f() == nil"), "true");
}

TEST(LuaResolver, EmptyElseHasNoScopeAndLoopsShareOneWithTheirVariables) {
    ResolvedChunk chunk = resolveSource("if x then local y = 1 else end for i = 1, 2 do local j = i end");
    auto& branchy = as<IfStmt>(chunk.statements[0]);
    EXPECT_TRUE(branchy.elseBlock.empty());
    EXPECT_EQ(branchy.elseSlotCount, 0u);
    auto& loop = as<NumericForStmt>(chunk.statements[1]);
    EXPECT_EQ(loop.loopSlot, 0u);
    EXPECT_EQ(loop.slotCount, 2u);
    auto& local = as<AssignmentStmt>(loop.body[0]);
    EXPECT_EQ(local.targets[0].slot, 1u);
    auto& read = as<VariableExpr>(local.values[0]);
    EXPECT_EQ(read.depth, 0);
    EXPECT_EQ(read.slot, 0u);
    EXPECT_EQ(chunk.slotCount, 0u);

    ResolvedChunk generic = resolveSource("for k, v in pairs(t) do local w = v end");
    auto& each = as<GenericForStmt>(generic.statements[0]);
    ASSERT_EQ(each.slots.size(), 2u);
    EXPECT_EQ(each.slots[0], 0u);
    EXPECT_EQ(each.slots[1], 1u);
    EXPECT_EQ(each.slotCount, 3u);
}

TEST(LuaResolver, LocalStatementResolvesValuesBeforeDeclaring) {
    ResolvedChunk chunk = resolveSource("local a, b = 1, 2 do_it() local a, b = b, a");
    auto& swap = as<AssignmentStmt>(chunk.statements[2]);
    EXPECT_EQ(as<VariableExpr>(swap.values[0]).slot, 1u);
    EXPECT_EQ(as<VariableExpr>(swap.values[1]).slot, 0u);
    EXPECT_EQ(swap.targets[0].slot, 2u);
    EXPECT_EQ(swap.targets[1].slot, 3u);
    EXPECT_EQ(textOf("local a, b = 1, 2 local a, b = b, a return a * 10 + b"), "21");
}

TEST(LuaResolver, NoCaptureMarksEveryEnclosingBlock) {
    ResolvedChunk chunk = resolveSource(
        "function outer() if x then while y do g(function() end) end end if z then local q = 1 end end");
    auto& outer = *as<FunctionDeclarationStmt>(chunk.statements[0]).function;
    EXPECT_FALSE(outer.noCapture);
    auto& withFunction = as<IfStmt>(outer.body[0]).branches[0];
    EXPECT_FALSE(withFunction.noCapture);
    EXPECT_FALSE(as<WhileStmt>(withFunction.block[0]).noCapture);
    EXPECT_TRUE(as<IfStmt>(outer.body[1]).branches[0].noCapture);
    EXPECT_TRUE(blockContainsFunction(chunk.statements));
    EXPECT_FALSE(blockContainsFunction(resolveSource("local t = {a = 1, [2] = f(3)}").statements));
    EXPECT_TRUE(blockContainsFunction(resolveSource("t[function() end] = 1").statements));
}

TEST(LuaResolver, GlobalsGetFixedSlotsEvenWhenOnlyRead) {
    LuaVM vm;
    vm.compileScript("return never_written_global", "t");
    auto& impl = LuaVMInternals::impl(vm);
    auto found = impl.globalSlots.find("never_written_global");
    ASSERT_NE(found, impl.globalSlots.end());
    EXPECT_LT(found->second, impl.globals.size());
    EXPECT_TRUE(impl.globals[found->second].isNil());
    LuaValue out;
    EXPECT_FALSE(vm.getGlobal("never_written_global", out));
}

}  // namespace
}  // namespace orvane::lua
