#include "host/Binding.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include "host/ProcessObjects.h"

namespace orvane {

void bindingError(const std::string& label, const std::string& message) {
    throw std::runtime_error(label + ": " + message);
}

const Variable& requireArg(const VariableArray& arguments, size_t index, const std::string& label) {
    if (index >= arguments.size()) bindingError(label, "missing argument " + std::to_string(index + 1));
    return arguments[index];
}

double numericValue(const Variable& value, const std::string& label, const std::string& name) {
    switch (value.type) {
    case VarType::Int: return double(value.asInt());
    case VarType::Float: return double(value.asFloat());
    case VarType::Bool: return value.asBool() ? 1.0 : 0.0;
    default: bindingError(label, name + " must be numeric");
    }
}

int32_t integerValue(const Variable& value, const std::string& label, const std::string& name) {
    return saturatingInt(numericValue(value, label, name));
}

float floatValue(const Variable& value, const std::string& label, const std::string& name) {
    return float(numericValue(value, label, name));
}

std::string stringValue(const Variable& value, const std::string& label, const std::string& name) {
    if (value.type != VarType::String) bindingError(label, name + " must be a string");
    return value.asString();
}

void* pointerValue(const Variable& value, const std::string& label, const std::string& name) {
    if (value.type == VarType::Nil) return nullptr;
    if (value.type != VarType::Pointer) bindingError(label, name + " must be a pointer");
    return value.asPointer();
}

VariableArray* arrayPtr(const Variable& value) {
    return value.type == VarType::Array ? value.asArray().get() : nullptr;
}

VariableTable* tablePtr(const Variable& value) {
    return value.type == VarType::Table ? value.asTable().get() : nullptr;
}

int32_t containerLength(const Variable& value) {
    if (const VariableArray* items = arrayPtr(value)) return int32_t(items->size());
    if (const VariableTable* table = tablePtr(value)) {
        int32_t n = 0;
        while (n < INT32_MAX && table->count(std::to_string(n + 1))) ++n;
        return n;
    }
    return 0;
}

const Variable* getIndexedValuePtr(const Variable& value, int32_t index) {
    if (index < 1) return nullptr;
    if (const VariableArray* items = arrayPtr(value))
        return size_t(index) <= items->size() ? &(*items)[size_t(index) - 1] : nullptr;
    return getFieldValuePtr(value, std::to_string(index));
}

const Variable* getFieldValuePtr(const Variable& value, const std::string& name) {
    const VariableTable* table = tablePtr(value);
    if (!table) return nullptr;
    auto it = table->find(name);
    return it == table->end() ? nullptr : &it->second;
}

bool isWholeNumber(double x) { return x == std::floor(x); }

// The standard conversion, so a sign, leading blanks and leading zeros are taken as it takes them.
bool parsePositiveIntegerKey(const std::string& text, int32_t& out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (errno == ERANGE || end != text.c_str() + text.size() || value < 1 || value > INT32_MAX) return false;
    out = int32_t(value);
    return true;
}

Variable noReturn() { return Variable(); }

Variable returnValues(VariableArray list) { return Variable::makeMulti(std::move(list)); }

Variable makeModule(const std::string& name, const ModuleEntries& entries) {
    VariableTable table;
    table.reserve(entries.size());
    for (const auto& [member, function] : entries)
        table.emplace(member, engine.makeNativeCallable(function, name + "." + member));
    return Variable(std::move(table));
}

}  // namespace orvane
