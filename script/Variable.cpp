#include "script/Variable.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <unordered_set>

#include "script/ParsedLine.h"

namespace orvane {

ScriptCallable::~ScriptCallable() = default;

static_assert(std::is_same_v<std::variant_alternative_t<6, Variable::Value>, ArrayPtr> &&
              std::variant_size_v<Variable::Value> == 10);

namespace {

// The containers waiting to be freed while an outer release runs; null when none runs.
thread_local std::vector<Variable::Value>* pendingReleases = nullptr;

long ownerCount(const Variable::Value& value) {
    return std::visit([](const auto& held) -> long {
        if constexpr (requires { held.use_count(); }) return held.use_count();
        else return 0;
    }, value);
}

}  // namespace

// Freeing a container destroys its elements, which would free their containers in turn, one
// native frame per level. Instead the outermost release keeps a list: a container whose last
// owner dies inside it is queued, and the list is drained in a loop, so the depth stays at two.
void Variable::releaseShared() noexcept {
    if (ownerCount(value) != 1) return;
    if (pendingReleases) {
        pendingReleases->push_back(std::move(value));
        return;
    }
    std::vector<Value> pending;
    pendingReleases = &pending;
    { Value last = std::move(value); }
    while (!pending.empty()) {
        Value next = std::move(pending.back());
        pending.pop_back();
    }
    pendingReleases = nullptr;
}

Variable::Variable(const VariableArray& v) : type(VarType::Array), value(std::make_shared<VariableArray>(v)) {}
Variable::Variable(VariableArray&& v)
    : type(VarType::Array), value(std::make_shared<VariableArray>(std::move(v))) {}
Variable::Variable(const VariableTable& v) : type(VarType::Table), value(std::make_shared<VariableTable>(v)) {}
Variable::Variable(VariableTable&& v)
    : type(VarType::Table), value(std::make_shared<VariableTable>(std::move(v))) {}

Variable Variable::makeArray() { return Variable(VariableArray{}); }
Variable Variable::makeTable() { return Variable(VariableTable{}); }

Variable Variable::makeMulti(const VariableArray& values) {
    Variable v;
    v.type = VarType::Multi;
    v.value = std::make_shared<MultiResult>(MultiResult{values});
    return v;
}

Variable Variable::makeMulti(VariableArray&& values) {
    Variable v;
    v.type = VarType::Multi;
    v.value = std::make_shared<MultiResult>(MultiResult{std::move(values)});
    return v;
}

std::string formatFloat(float f) {
    char buffer[64];
    int n = std::snprintf(buffer, sizeof buffer, "%f", double(f));
    if (n >= 0 && size_t(n) < sizeof buffer) return std::string(buffer, size_t(n));
    // Huge magnitudes need more room than the stack buffer.
    std::string big(size_t(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), "%f", double(f));
    big.resize(size_t(n));
    return big;
}

namespace {

// A container already on the path being printed has no finite text: it prints as a marker.
// Deep but acyclic nesting is cut at a depth that keeps the native stack safe.
constexpr int kMaxTextDepth = 200;

void appendText(const Variable& v, std::string& out, std::unordered_set<const void*>& path, int depth) {
    switch (v.type) {
    case VarType::Nil: out += "not"; return;
    case VarType::Int: out += std::to_string(v.asInt()); return;
    case VarType::Float: out += formatFloat(v.asFloat()); return;
    case VarType::String: out += v.asString(); return;
    case VarType::Bool: out += v.asBool() ? "true" : "false"; return;
    case VarType::Multi: out += "[multivalue]"; return;
    case VarType::Function: out += "[function]"; return;
    case VarType::Array: {
        const VariableArray* items = v.asArray().get();
        if (!items) { out += "[]"; return; }
        if (depth >= kMaxTextDepth || !path.insert(items).second) { out += "[...]"; return; }
        out += '[';
        bool first = true;
        for (const Variable& item : *items) {
            if (!first) out += ", ";
            first = false;
            appendText(item, out, path, depth + 1);
        }
        out += ']';
        path.erase(items);
        return;
    }
    case VarType::Table: {
        const VariableTable* table = v.asTable().get();
        if (!table) { out += "{}"; return; }
        if (depth >= kMaxTextDepth || !path.insert(table).second) { out += "{...}"; return; }
        out += '{';
        bool first = true;
        for (const auto& [key, item] : *table) {
            if (!first) out += ", ";
            first = false;
            out += key;
            out += ": ";
            appendText(item, out, path, depth + 1);
        }
        out += '}';
        path.erase(table);
        return;
    }
    default: out += "[unconvertible type]"; return;
    }
}

}  // namespace

std::string Variable::toString() const {
    if (type == VarType::String) return asString();
    std::string out;
    std::unordered_set<const void*> path;
    appendText(*this, out, path, 0);
    return out;
}

const char* typeName(VarType type) {
    switch (type) {
    case VarType::Nil: return "not";
    case VarType::Int: return "int";
    case VarType::Float: return "float";
    case VarType::String: return "string";
    case VarType::Raw: return "raw";
    case VarType::Bool: return "bool";
    case VarType::Pointer: return "pointer";
    case VarType::Array: return "array";
    case VarType::Multi: return "multivalue";
    case VarType::Table: return "table";
    case VarType::Function: return "function";
    }
    return "unknown";
}

const char* variableTypeName(VarType type) {
    switch (type) {
    case VarType::Nil: return "nil";
    case VarType::Int: return "integer";
    case VarType::Float: return "float";
    case VarType::String: return "string";
    case VarType::Raw: return "raw";
    case VarType::Bool: return "boolean";
    case VarType::Pointer: return "pointer";
    case VarType::Array: return "array";
    case VarType::Multi: return "multi";
    case VarType::Table: return "table";
    case VarType::Function: return "function";
    }
    return "unknown";
}

const char* typeOfName(VarType type) {
    switch (type) {
    case VarType::Nil: return "not";
    case VarType::Int:
    case VarType::Float: return "number";
    case VarType::String: return "string";
    case VarType::Raw:
    case VarType::Pointer: return "userdata";
    case VarType::Bool: return "boolean";
    case VarType::Array:
    case VarType::Multi:
    case VarType::Table: return "table";
    case VarType::Function: return "function";
    }
    return "unknown";
}

bool isNumericVariable(const Variable& v) {
    return v.type == VarType::Int || v.type == VarType::Float || v.type == VarType::Bool;
}

double toDouble(const Variable& v) {
    switch (v.type) {
    case VarType::Int: return double(v.asInt());
    case VarType::Float: return double(v.asFloat());
    case VarType::Bool: return v.asBool() ? 1.0 : 0.0;
    default: throw std::runtime_error("Expected a numeric value");
    }
}

float toFloat(const Variable& v) { return float(toDouble(v)); }

int32_t saturatingInt(double d) {
    if (std::isnan(d)) return 0;
    if (d >= 2147483647.0) return INT32_MAX;
    if (d <= -2147483648.0) return INT32_MIN;
    return int32_t(d);
}

int32_t toInt(const Variable& v) {
    switch (v.type) {
    case VarType::Int: return v.asInt();
    case VarType::Bool: return v.asBool() ? 1 : 0;
    case VarType::Float: return saturatingInt(double(v.asFloat()));
    default: throw std::runtime_error("Expected a numeric value");
    }
}

const VariableArray* multiValuesPtr(const Variable& v) {
    if (v.type != VarType::Multi || !v.asMulti()) return nullptr;
    return &v.asMulti()->values;
}

bool isTruthy(const Variable& v) {
    if (v.type == VarType::Nil) return false;
    if (v.type == VarType::Bool) return v.asBool();
    return true;
}

}  // namespace orvane
