// Globals, the two scope stacks and name resolution. Scoping is dynamic: a called function sees
// the locals, parameters and loop variables of all its callers, newest first.
#include <stdexcept>

#include "script/OrvaneScript.h"

namespace orvane {

void OrvaneScript::pushVariable(const std::string& name, const Variable& value) {
    auto it = globalIndex.find(name);
    if (it == globalIndex.end()) {
        globalIndex.emplace(name, globalValues.size());
        globalValues.push_back(value);
        return;
    }
    if (it->second >= globalValues.size())
        throw std::runtime_error("Internal slot error while setting variable: " + name);
    globalValues[it->second] = value;
}

Variable OrvaneScript::pullVariable(const std::string& name) {
    Variable out;
    if (!resolveVariable(name, out)) throw std::runtime_error("Variable not found: " + name);
    return out;
}

std::vector<std::string> OrvaneScript::globalNames() const {
    std::vector<std::string> names;
    names.reserve(globalIndex.size());
    for (const auto& entry : globalIndex) names.push_back(entry.first);
    return names;
}

Variable OrvaneScript::makeNativeCallable(NativeFunction function, const std::string& name, uint8_t builtinId) {
    auto callable = std::make_shared<ScriptCallable>();
    callable->isNative = true;
    callable->nativeFunction = std::move(function);
    callable->name = name;
    callable->builtinId = builtinId != 0 ? builtinId : builtinIdFromName(name);
    return Variable(std::move(callable));
}

void OrvaneScript::pushFunction(const std::string& name, NativeFunction function) {
    nativeFunctions[name] = function;
    pushVariable(name, makeNativeCallable(std::move(function), name));
}

// The global slot of a name, cached in the token's analysis: a slot number never changes.
Variable* OrvaneScript::globalSlotPtr(const std::string& name, TokenAnalysis* analysis) {
    if (analysis && analysis->globalLooked && analysis->globalFound) return &globalValues[analysis->globalSlot];
    auto it = globalIndex.find(name);
    if (analysis) {
        analysis->globalLooked = true;
        analysis->globalFound = it != globalIndex.end();
        if (analysis->globalFound) analysis->globalSlot = it->second;
    }
    return it == globalIndex.end() ? nullptr : &globalValues[it->second];
}

static Variable* findInScope(Scope& scope, const std::string& name) {
    for (ScopeEntry& entry : scope)
        if (sameName(entry.name, name)) return &entry.value;
    return nullptr;
}

Variable* OrvaneScript::findInScopes(const std::string& name) {
    for (size_t i = localScopes.size(); i > localScopeBase; --i)
        if (Variable* v = findInScope(localScopes[i - 1], name)) return v;
    for (size_t i = nativeScopes.size(); i > 0; --i)
        if (Variable* v = findInScope(nativeScopes[i - 1], name)) return v;
    return nullptr;
}

// Bit i: a visible local scope holds the name of parameter i, which it hides from the body. The
// last bit stands for all parameters from it on.
uint64_t OrvaneScript::findHiddenParameters(const ScriptCallable& function) {
    uint64_t hidden = 0;
    for (size_t i = 0; i < function.parameters.size(); ++i) {
        bool found = i >= kLastParameterBit;
        for (size_t k = localScopes.size(); !found && k > localScopeBase; --k)
            found = findInScope(localScopes[k - 1], function.parameters[i]) != nullptr;
        if (found) hidden |= parameterBit(i);
    }
    return hidden;
}

Variable* OrvaneScript::resolveVariablePtr(const std::string& name) {
    if (Variable* v = findInScopes(name)) return v;
    return globalSlotPtr(name, nullptr);
}

bool OrvaneScript::resolveVariable(const std::string& name, Variable& out) {
    Variable* v = resolveVariablePtr(name);
    if (!v) return false;
    out = *v;
    return true;
}

// The token's analysis remembers where the name was found last time. Scoping is dynamic, so a
// remembered place is trusted only where nothing can stand in front of it: the newest visible
// local scope, the newest native scope or the running fast body's parameters when no local
// scope is visible, and a global while no scope entry of that name has appeared since.
// Everything else is searched in order: locals, fast parameters, natives, globals.
Variable* OrvaneScript::resolveVariableFastPtr(const std::string& name, TokenAnalysis& a) {
    if (a.scopeKind == kScopeKindGlobal && a.scopeSlot == shadowEpoch)
        return static_cast<Variable*>(const_cast<void*>(a.scopePtr));
    size_t visibleLocals = localScopes.size() - localScopeBase;
    if (visibleLocals == 0 && nativeScopes.empty() && !fastCallable) return globalSlotPtr(name, &a);

    switch (a.scopeKind) {
    case kScopeKindLocal:
        if (visibleLocals > 0) {
            Scope& scope = localScopes.back();
            if (a.scopeSlot < scope.size() && sameName(scope[a.scopeSlot].name, name)) return &scope[a.scopeSlot].value;
        }
        break;
    case kScopeKindFastParam:
        // Found among this very function's parameters: the same slot holds the same name.
        if (visibleLocals == 0 && fastCallable && a.scopePtr == fastCallable) return fastParameter(a.scopeSlot);
        break;
    case kScopeKindNative:
        if (visibleLocals == 0 && !fastCallable && !nativeScopes.empty()) {
            Scope& scope = nativeScopes.back();
            if (a.scopeSlot < scope.size() && sameName(scope[a.scopeSlot].name, name)) return &scope[a.scopeSlot].value;
        }
        break;
    default: break;
    }

    a.scopeKind = kScopeKindNone;
    for (size_t i = localScopes.size(); i > localScopeBase; --i) {
        Scope& scope = localScopes[i - 1];
        for (size_t slot = 0; slot < scope.size(); ++slot) {
            if (!sameName(scope[slot].name, name)) continue;
            if (i == localScopes.size()) {
                a.scopeKind = kScopeKindLocal;
                a.scopeDepth = 0;
                a.scopeSlot = slot;
                a.scopePtr = &scope;
            }
            return &scope[slot].value;
        }
    }
    if (fastCallable) {
        const auto& parameters = fastCallable->parameters;
        for (size_t slot = 0; slot < parameters.size(); ++slot) {
            if (parameters[slot] != name) continue;
            a.scopeKind = kScopeKindFastParam;
            a.scopeSlot = slot;
            a.scopePtr = fastCallable;
            return fastParameter(slot);
        }
    }
    for (size_t i = nativeScopes.size(); i > 0; --i) {
        Scope& scope = nativeScopes[i - 1];
        for (size_t slot = 0; slot < scope.size(); ++slot) {
            if (!sameName(scope[slot].name, name)) continue;
            if (i == nativeScopes.size()) {
                a.scopeKind = kScopeKindNative;
                a.scopeDepth = 0;
                a.scopeSlot = slot;
                a.scopePtr = &scope;
            }
            return &scope[slot].value;
        }
    }
    Variable* global = globalSlotPtr(name, &a);
    if (global) {
        a.scopeKind = kScopeKindGlobal;
        a.scopeSlot = shadowEpoch;
        a.scopePtr = global;  // global slots never move
    }
    return global;
}

Variable* OrvaneScript::resolveAndKeep(const std::string& name, TokenAnalysis& a) {
    // A global that nothing hides yet, the commonest miss after a call drew a new epoch.
    Variable* v = a.scopeKind == kScopeKindGlobal && a.scopeSlot == shadowEpoch
                      ? static_cast<Variable*>(const_cast<void*>(a.scopePtr))
                      : resolveVariableFastPtr(name, a);
    // A missing fast parameter is a fresh nil on every read: never kept.
    if (v && v != &missingArgument) {
        a.cachedEpoch = scopeEpoch;
        a.cachedVariable = v;
    }
    return v;
}

// A parameter of the running fast body; one beyond the arguments reads as nil.
Variable* OrvaneScript::fastParameter(size_t slot) {
    if (slot < fastArgCount) return const_cast<Variable*>(&fastArgs[slot]);
    missingArgument = Variable();
    return &missingArgument;
}

bool OrvaneScript::resolveVariableFast(const std::string& name, TokenAnalysis& analysis, Variable& out) {
    Variable* v = resolveVariableFastPtr(name, analysis);
    if (!v) return false;
    out = *v;
    return true;
}

bool OrvaneScript::assignExistingVariable(const std::string& name, const Variable& value) {
    Variable* v = resolveVariablePtr(name);
    if (!v) return false;
    *v = value;
    return true;
}

bool OrvaneScript::assignExistingVariableFast(const std::string& name, TokenAnalysis& analysis,
                                              const Variable& value) {
    Variable* v = resolveVariableFastPtr(name, analysis);
    if (!v) return false;
    *v = value;
    return true;
}

// Sets the name in the newest scope of the stack.
void OrvaneScript::setInScope(std::vector<Scope>& stack, const std::string& name, const Variable& value) {
    Scope& scope = stack.back();
    if (Variable* v = findInScope(scope, name)) {
        *v = value;
        return;
    }
    noteScopeName(name);
    markChanged(stack, stack.size() - 1);  // the entry may move the scope's others
    scopesChanged();
    scope.push_back({name, value});
}

void OrvaneScript::assignVariable(const std::string& name, const Variable& value, uint8_t target) {
    if (target == kTargetLocal) {
        if (localScopes.size() <= localScopeBase) {
            pushScope(localScopes);
            localScopes.back().reserve(4);
        }
        setInScope(localScopes, name, value);
    } else if (target == kTargetNative) {
        if (nativeScopes.empty()) {
            pushScope(nativeScopes);
            nativeScopes.back().reserve(4);
        }
        setInScope(nativeScopes, name, value);
    } else if (!assignExistingVariable(name, value)) {
        pushVariable(name, value);
    }
}

void OrvaneScript::assignVariableFast(const std::string& name, TokenAnalysis& analysis, const Variable& value,
                                      uint8_t target) {
    if (target != kTargetPlain) {
        assignVariable(name, value, target);
        return;
    }
    if (!assignExistingVariableFast(name, analysis, value)) pushVariable(name, value);
}

}  // namespace orvane
