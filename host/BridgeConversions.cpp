#include "host/BridgeConversions.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>

#include "host/Binding.h"

namespace orvane {

namespace {

// Containers nested deeper than this don't cross. The same test stops a container that holds
// itself, which would otherwise be copied without end.
constexpr int kMaxBridgeDepth = 64;

// The values of both dialects have one shape: the same type tags and accessors, arrays as
// vectors, maps keyed by strings. So one template converts both; only the language's name in
// the messages differs.
template <class Value> struct Dialect;
template <> struct Dialect<lua::LuaValue> {
    static constexpr const char* name = "Lua";
};
template <> struct Dialect<ruby::RubyValue> {
    static constexpr const char* name = "Ruby";
};

template <class Type>
const char* valueTypeName(Type type) {
    switch (type) {
    case Type::Nil: return "nil";
    case Type::Integer: return "integer";
    case Type::Float: return "float";
    case Type::Boolean: return "boolean";
    case Type::String: return "string";
    case Type::Array: return "array";
    case Type::Map: return "map";
    case Type::Function: return "function";
    }
    return "unknown";
}

// n when every key of the table is a positive integer and the keys "1" to "n" are all there,
// as the table of an array of n has them; 0 for a table that is a map.
int32_t sequenceLength(const VariableTable& table) {
    int32_t n = 0;
    for (const auto& entry : table) {
        int32_t index = 0;
        if (!parsePositiveIntegerKey(entry.first, index)) return 0;
        n = std::max(n, index);
    }
    for (int32_t i = 1; i <= n; ++i)
        if (!table.count(std::to_string(i))) return 0;
    return n;
}

template <class Value>
Value variableToValue(const Variable& variable, const std::string& functionName, int depth);

template <class Value>
Value arrayToValue(const VariableArray& items, const std::string& functionName, int depth) {
    std::vector<Value> elements;
    elements.reserve(items.size());
    for (const Variable& item : items) elements.push_back(variableToValue<Value>(item, functionName, depth + 1));
    return Value(std::move(elements));
}

template <class Value>
Value tableToValue(const VariableTable* table, const std::string& functionName, int depth) {
    if (!table || table->empty()) return Value(std::vector<Value>());
    if (const int32_t n = sequenceLength(*table)) {
        std::vector<Value> elements;
        elements.reserve(size_t(n));
        for (int32_t i = 1; i <= n; ++i)
            elements.push_back(variableToValue<Value>(table->at(std::to_string(i)), functionName, depth + 1));
        return Value(std::move(elements));
    }
    std::unordered_map<std::string, Value> entries;
    entries.reserve(table->size());
    for (const auto& [key, item] : *table) entries.emplace(key, variableToValue<Value>(item, functionName, depth + 1));
    return Value(std::move(entries));
}

template <class Value>
Value variableToValue(const Variable& variable, const std::string& functionName, int depth) {
    const char* language = Dialect<Value>::name;
    if (depth > kMaxBridgeDepth)
        bindingError(functionName, std::string("value nesting is too deep to bridge into ") + language);
    switch (variable.type) {
    case VarType::Nil: return Value();
    case VarType::Int: return Value(int64_t(variable.asInt()));
    case VarType::Float: return Value(double(variable.asFloat()));
    case VarType::String: return Value(variable.asString());
    case VarType::Bool: return Value(variable.asBool());
    case VarType::Array: return arrayToValue<Value>(*variable.asArray(), functionName, depth);
    // A multi-value is an ordinary array on the other side.
    case VarType::Multi: return arrayToValue<Value>(variable.asMulti()->values, functionName, depth);
    case VarType::Table: return tableToValue<Value>(tablePtr(variable), functionName, depth);
    case VarType::Raw:
    case VarType::Pointer:
    case VarType::Function: break;
    }
    bindingError(functionName, std::string("cannot convert OrvaneScript ") + variableTypeName(variable.type) +
                                   " values into " + language);
}

// The host has no wider integer: one beyond 32 bits arrives as the nearest float.
Variable integerToVariable(int64_t integer) {
    if (integer >= INT32_MIN && integer <= INT32_MAX) return Variable(int32_t(integer));
    return Variable(float(integer));
}

Variable floatToVariable(double number, const char* language, const std::string& functionName) {
    if (!std::isfinite(number)) bindingError(functionName, std::string(language) + " float must be finite");
    if (std::fabs(number) > double(FLT_MAX))
        bindingError(functionName, std::string(language) + " float is outside the OrvaneScript float range");
    return Variable(float(number));
}

template <class Value>
Variable valueToVariable(const Value& value, const std::string& functionName, int depth) {
    const char* language = Dialect<Value>::name;
    if (depth > kMaxBridgeDepth) bindingError(functionName, "value nesting is too deep to bridge into OrvaneScript");
    using Type = decltype(value.type());
    switch (value.type()) {
    case Type::Nil: return Variable();
    case Type::Integer: return integerToVariable(value.asInteger());
    case Type::Float: return floatToVariable(value.asFloat(), language, functionName);
    case Type::Boolean: return Variable(value.asBoolean());
    case Type::String: return Variable(value.asString());
    case Type::Array: {
        VariableArray items;
        items.reserve(value.asArray().size());
        for (const Value& element : value.asArray()) items.push_back(valueToVariable(element, functionName, depth + 1));
        return Variable(std::move(items));
    }
    case Type::Map: {
        VariableTable table;
        table.reserve(value.asMap().size());
        for (const auto& [key, element] : value.asMap())
            table.emplace(key, valueToVariable(element, functionName, depth + 1));
        return Variable(std::move(table));
    }
    case Type::Function: break;
    }
    bindingError(functionName, std::string("cannot convert ") + language + " " + valueTypeName(value.type()) +
                                   " values into OrvaneScript");
}

template <class Bytecode>
Variable bytecodeToVariable(const Bytecode& bytecode) {
    return Variable(std::vector<char>(bytecode.bytes.begin(), bytecode.bytes.end()));
}

template <class Bytecode>
Bytecode variableToBytecode(const Variable& variable, const std::string& functionName,
                            const std::string& argumentName) {
    if (variable.type != VarType::Raw) bindingError(functionName, argumentName + " must be raw bytecode data");
    const std::vector<char>& raw = variable.asRaw();
    return Bytecode{std::vector<uint8_t>(raw.begin(), raw.end())};
}

template <class Result>
Variable unwrapResult(const Result& result, const std::string& functionName) {
    if (!result.success) bindingError(functionName, result.error);
    return valueToVariable(result.value, functionName, 0);
}

}  // namespace

lua::LuaValue variableToLuaValue(const Variable& variable, const std::string& functionName, int depth) {
    return variableToValue<lua::LuaValue>(variable, functionName, depth);
}

ruby::RubyValue variableToRubyValue(const Variable& variable, const std::string& functionName, int depth) {
    return variableToValue<ruby::RubyValue>(variable, functionName, depth);
}

Variable luaValueToVariable(const lua::LuaValue& value, const std::string& functionName, int depth) {
    return valueToVariable(value, functionName, depth);
}

Variable rubyValueToVariable(const ruby::RubyValue& value, const std::string& functionName, int depth) {
    return valueToVariable(value, functionName, depth);
}

Variable luaBytecodeToVariable(const lua::LuaBytecode& bytecode) { return bytecodeToVariable(bytecode); }

Variable rubyBytecodeToVariable(const ruby::RubyBytecode& bytecode) { return bytecodeToVariable(bytecode); }

lua::LuaBytecode variableToLuaBytecode(const Variable& variable, const std::string& functionName,
                                       const std::string& argumentName) {
    return variableToBytecode<lua::LuaBytecode>(variable, functionName, argumentName);
}

ruby::RubyBytecode variableToRubyBytecode(const Variable& variable, const std::string& functionName,
                                          const std::string& argumentName) {
    return variableToBytecode<ruby::RubyBytecode>(variable, functionName, argumentName);
}

Variable unwrapLuaResult(const lua::LuaResult& result, const std::string& functionName) {
    return unwrapResult(result, functionName);
}

Variable unwrapRubyResult(const ruby::RubyResult& result, const std::string& functionName) {
    return unwrapResult(result, functionName);
}

}  // namespace orvane
