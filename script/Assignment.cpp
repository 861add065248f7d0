// The three assignment shapes: one target, several plain targets, and everything else.
#include <span>
#include <stdexcept>

#include "script/ArgumentBuffer.h"
#include "script/FastScalarOps.h"
#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

bool isStringLiteral(const std::string& t) {
    return t.size() >= 2 && (t[0] == '"' || t[0] == '\'') && t.back() == t[0];
}

// Skips a bracketed group opened at `i`; the index behind its closer, or npos.
size_t skipGroup(const std::vector<std::string>& tokens, size_t i, size_t end) {
    int depth = 0;
    for (; i < end; ++i) {
        const std::string& t = tokens[i];
        if (t == "(" || t == "[" || t == "{") ++depth;
        else if (t == ")" || t == "]" || t == "}") {
            if (--depth == 0) return i + 1;
        }
    }
    return std::string::npos;
}

// A right side whose outermost operation is a call: a primary followed by postfix groups, the
// last of them an argument list. Only such a value is cut down to its first result.
bool isCallShaped(const std::vector<std::string>& tokens, TokenRange range) {
    auto [begin, end] = range;
    // Parentheses around the whole value change nothing.
    while (end - begin >= 2 && tokens[begin] == "(" && skipGroup(tokens, begin, end) == end) {
        ++begin;
        --end;
    }
    if (end - begin < 3 || tokens[end - 1] != ")") return false;
    size_t i = begin;
    const std::string& first = tokens[begin];
    if (first == "(" || first == "[" || first == "{") {
        i = skipGroup(tokens, begin, end);
        if (i == std::string::npos) return false;
    } else if ((isIdentifier(first) && first != "not") || isStringLiteral(first)) {
        i = begin + 1;
    } else {
        return false;
    }
    bool lastIsCall = false;
    while (i < end) {
        if (tokens[i] != "(" && tokens[i] != "[") return false;
        lastIsCall = tokens[i] == "(";
        i = skipGroup(tokens, i, end);
        if (i == std::string::npos) return false;
    }
    return lastIsCall;
}

Variable firstOfMulti(const Variable& value) {
    const VariableArray* values = multiValuesPtr(value);
    if (!values) return value;
    return values->empty() ? Variable() : (*values)[0];
}

}  // namespace

Variable OrvaneScript::evaluateRange(const ParsedScriptLine& line, TokenRange range, const FastExpression* compiled) {
    if (compiled && compiled->valid) {
        Variable value = evaluateFastExpression(*compiled, line.tokens, line.analyses);
        noteTokenRead(line.tokens[range.second - 1]);
        return value;
    }
    size_t pos = range.first;
    Variable value = evaluateExpression(line.tokens, pos, &line.analyses);
    if (shouldAbortForSoftRaisedError()) return Variable();
    if (pos != range.second)
        throwError("Unexpected token in assignment expression", pos < line.tokens.size() ? line.tokens[pos] : "EOF");
    return value;
}

void OrvaneScript::storeAssigned(const ParsedScriptLine& line, size_t nameToken, const Variable& value) {
    const std::string& name = line.tokens[nameToken];
    TokenAnalysis& analysis = line.analyses[nameToken];
    if (line.scopeTarget != kTargetPlain) {
        assignVariableFast(name, analysis, value, line.scopeTarget);
        return;
    }
    if (Variable* existing = resolveExistingVariableFastMutable(name, analysis)) *existing = value;
    else pushVariable(name, value);
}

static void applyCompound(Variable& target, char op, const Variable& value) {
    if (!tryApplyOperationInPlace(target, op, value)) target = performOperation(target, op, value);
}

// Writes through the indices of one target: creates missing levels for `=`, applies a compound
// operator at the last key, and stores the variable again.
void OrvaneScript::applyToTarget(const ParsedScriptLine& line, const ParsedAssignmentTarget& target,
                                 std::span<const Variable> keys, char op, const Variable& value, Variable* readBack) {
    const std::string& name = line.tokens[target.nameToken];
    TokenAnalysis& analysis = line.analyses[target.nameToken];
    Variable created;
    Variable* existing = resolveExistingVariableFastMutable(name, analysis);
    if (!existing) {
        if (op != '=') throw std::runtime_error("Variable not found: " + name);
        created = prefersArrayStorage(keys[0]) ? Variable::makeArray() : Variable::makeTable();
    } else if (line.scopeTarget != kTargetPlain) {
        created = *existing;  // a `local` or `native` target gets its own variable
    }
    // A plain target that exists is written in place: storing it again would change nothing.
    bool inPlace = existing && line.scopeTarget == kTargetPlain;
    Variable* level = inPlace ? existing : &created;
    // Past the first key, `level` lies in its parent container, which moves when it grows; it
    // grows under `level` when it holds itself (`a[1] = a; a[1][3][1] = 5`). The parent is held,
    // and `level` is found again in it after every growth.
    Variable parent;
    auto findLevelAgain = [&](size_t i) {
        if (i > 0) level = &getIndexedValueMutable(parent, keys[i - 1], false);
    };
    for (size_t i = 0; i + 1 < keys.size(); ++i) {
        if (op == '=' && getIndexedValue(*level, keys[i]).isNil()) {
            setIndexedValue(*level, keys[i],
                            prefersArrayStorage(keys[i + 1]) ? Variable::makeArray() : Variable::makeTable(), true);
            findLevelAgain(i);
        }
        parent = *level;
        level = &getIndexedValueMutable(*level, keys[i], op == '=');
    }
    if (op == '=') {
        setIndexedValue(*level, keys.back(), value, true);
        findLevelAgain(keys.size() - 1);
    } else {
        Variable current = getIndexedValue(*level, keys.back());
        applyCompound(current, op, value);
        setIndexedValue(*level, keys.back(), current, false);
    }
    if (readBack) *readBack = getIndexedValue(*level, keys.back());
    if (!inPlace) storeAssigned(line, target.nameToken, created);
}

// `a, b = select(i, ...)` runs select's logic inside the assignment, which has one message of its
// own for both ways of calling it wrongly. False when the value is not such a call.
bool OrvaneScript::tryDirectSelect(const ParsedScriptLine& line, VariableArray& values) {
    const auto& tokens = line.tokens;
    auto [begin, end] = line.valueRanges[0];
    if (end - begin < 3 || !isIdentifier(tokens[begin]) || tokens[begin + 1] != "(" ||
        scanBracketRange(tokens, begin + 2, ")") != end - 1)
        return false;
    const Variable* callee = resolveFast(tokens[begin], line.analyses[begin]);
    if (!callee || callee->type != VarType::Function || !callee->asCallable() || !callee->asCallable()->isNative ||
        callee->asCallable()->builtinId != kBuiltinSelect)
        return false;
    VariableArray args;
    const FastExpression* compiled = line.valueExpressions.empty() ? nullptr : &line.valueExpressions[0];
    if (compiled && compiled->valid && compiled->nodes[size_t(compiled->root)].kind == FastExprNodeKind::Call) {
        const FastExprNode& call = compiled->nodes[size_t(compiled->root)];
        for (int32_t i = 0; i < call.intValue; ++i) {
            args.push_back(evaluateFastExpressionNode(*compiled, compiled->callArgs[size_t(call.right + i)], tokens,
                                                      line.analyses));
            if (shouldAbortForSoftRaisedError()) return true;
        }
    } else {
        size_t pos = begin + 2;
        while (pos < end - 1) {
            args.push_back(evaluateExpression(tokens, pos, &line.analyses));
            if (shouldAbortForSoftRaisedError()) return true;
            if (pos < end - 1 && tokens[pos] == ",") ++pos;
            else if (pos != end - 1) throwError("Expected ',' or ')' after function argument", tokens[pos]);
        }
    }
    noteTokenRead(tokens[end - 1]);
    if (args.size() < 2 || args[0].type != VarType::Int)
        throw std::runtime_error("select(index, values...) requires at least 2 arguments and an integer index");
    Variable result = selectFunctionFast(args.data(), args.size());
    if (const VariableArray* spread = multiValuesPtr(result)) values = *spread;
    else values.push_back(std::move(result));
    return true;
}

// `a[i] = x` on an existing array with i inside it, or just past its end, and a number for x: the
// element changes in place, or is appended. False, having changed nothing, for every other case.
// The line is one that storesElement marks.
bool OrvaneScript::tryStoreScalarElement(const ParsedScriptLine& line) {
    const ParsedAssignmentTarget& target = line.targets[0];
    const FastExpression& keyExpression = target.indexExpressions[0];
    const FastExpression& valueExpression = line.valueExpressions[0];
    FastScalarValue key, value;
    if (!tryEvaluateFastExpressionScalar(keyExpression, line.tokens, line.analyses, key) ||
        key.kind != FastScalarValue::Int ||
        !tryEvaluateFastExpressionScalar(valueExpression, line.tokens, line.analyses, value))
        return false;
    Variable* array = resolveFast(line.tokens[target.nameToken], line.analyses[target.nameToken]);
    if (!array || array->type != VarType::Array) return false;
    VariableArray& items = **std::get_if<ArrayPtr>(&array->value);
    if (key.intValue < 1 || size_t(key.intValue) > items.size() + 1 || size_t(key.intValue) > kMaxArrayGrowth)
        return false;
    if (size_t(key.intValue) == items.size() + 1) items.emplace_back();
    assignFastScalarToVariable(items[size_t(key.intValue) - 1], value);
    return true;
}

bool OrvaneScript::executeAssignment(const ParsedScriptLine& line, Variable& result) {
    if (!line.prepared || !line.isAssignment) return false;
    const auto& tokens = line.tokens;
    char op = line.assignOperatorIndex < tokens.size() ? tokens[line.assignOperatorIndex][0] : '=';
    const auto& targets = line.targets;
    const auto& ranges = line.valueRanges;
    result = Variable();

    auto valueExpression = [&](size_t i) {
        return i < line.valueExpressions.size() ? &line.valueExpressions[i] : nullptr;
    };
    auto keyOf = [&](const ParsedAssignmentTarget& target, size_t k) {
        return evaluateRange(line, target.indexRanges[k],
                             k < target.indexExpressions.size() ? &target.indexExpressions[k] : nullptr);
    };
    auto evaluateKeys = [&](const ParsedAssignmentTarget& target, std::vector<Variable>& keys) {
        for (size_t k = 0; k < target.indexRanges.size(); ++k) {
            keys.push_back(keyOf(target, k));
            if (shouldAbortForSoftRaisedError()) return false;
        }
        return true;
    };

    // Shape 1: one target, at most one value.
    if (targets.size() == 1 && ranges.size() <= 1) {
        const ParsedAssignmentTarget& target = targets[0];
        // The keys on the stack: `t['x'] = v` allocates nothing of its own.
        ArgumentBuffer keys(target.indexRanges.size());
        for (size_t k = 0; k < target.indexRanges.size(); ++k) {
            keys.pushFrom([&] { return keyOf(target, k); });
            if (shouldAbortForSoftRaisedError()) return true;
        }
        Variable value;
        if (!ranges.empty()) {
            const FastExpression* compiled = valueExpression(0);
            value = evaluateRange(line, ranges[0], compiled);
            if (shouldAbortForSoftRaisedError()) return true;
            // A compiled value is a call when its root is; parentheses leave no node.
            bool call = compiled && compiled->valid
                            ? line.singleCall.valid || compiled->nodes[size_t(compiled->root)].kind == FastExprNodeKind::Call
                            : isCallShaped(tokens, ranges[0]);
            if (value.type == VarType::Multi && call) value = firstOfMulti(value);
        }
        if (keys.size() > 0) {
            applyToTarget(line, target, {keys.data(), keys.size()}, op, value, nullptr);
        } else if (op == '=') {
            storeAssigned(line, target.nameToken, value);
        } else {
            const std::string& name = tokens[target.nameToken];
            Variable* existing = resolveExistingVariableFastMutable(name, line.analyses[target.nameToken]);
            if (!existing) throw std::runtime_error("Variable not found: " + name);
            applyCompound(*existing, op, value);
        }
        return true;
    }

    bool allPlain = true;
    for (const auto& target : targets) allPlain = allPlain && target.indexRanges.empty();

    // Shape 2: several plain targets with `=`; a single Multi value spreads over them.
    if (allPlain && op == '=' && targets.size() > 1) {
        VariableArray values;
        if (ranges.size() == 1 && tryDirectSelect(line, values)) {
            if (shouldAbortForSoftRaisedError()) return true;
            for (size_t i = 0; i < targets.size(); ++i)
                storeAssigned(line, targets[i].nameToken, i < values.size() ? values[i] : Variable());
            return true;
        }
        for (size_t i = 0; i < ranges.size(); ++i) {
            values.push_back(evaluateRange(line, ranges[i], valueExpression(i)));
            if (shouldAbortForSoftRaisedError()) return true;
        }
        if (values.size() == 1 && values[0].type == VarType::Multi) {
            VariableArray spread = *multiValuesPtr(values[0]);
            values = std::move(spread);
        }
        for (size_t i = 0; i < targets.size(); ++i)
            storeAssigned(line, targets[i].nameToken, i < values.size() ? values[i] : Variable());
        return true;
    }

    // Shape 3: everything else.
    std::vector<std::vector<Variable>> keys(targets.size());
    for (size_t i = 0; i < targets.size(); ++i)
        if (!evaluateKeys(targets[i], keys[i])) return true;
    VariableArray values;
    for (size_t i = 0; i < ranges.size(); ++i) {
        values.push_back(evaluateRange(line, ranges[i], valueExpression(i)));
        if (shouldAbortForSoftRaisedError()) return true;
    }
    if (values.empty()) values.emplace_back();
    if (values.size() == 1 && targets.size() > 1 && values[0].type == VarType::Multi) {
        VariableArray spread = *multiValuesPtr(values[0]);
        values = std::move(spread);
    }
    for (size_t i = 0; i < targets.size(); ++i) {
        const ParsedAssignmentTarget& target = targets[i];
        Variable value = i < values.size() ? values[i] : Variable();
        if (!keys[i].empty()) {
            applyToTarget(line, target, keys[i], op, value, &result);
            continue;
        }
        const std::string& name = tokens[target.nameToken];
        if (op == '=') {
            storeAssigned(line, target.nameToken, value);
            result = value;
            continue;
        }
        Variable* existing = resolveExistingVariableFastMutable(name, line.analyses[target.nameToken]);
        if (!existing) throw std::runtime_error("Variable not found: " + name);
        applyCompound(*existing, op, value);
        result = *existing;
    }
    return true;
}

}  // namespace orvane
