// The calling form of native functions and the argument checkers that give them one style of
// error text: "Label: complaint".
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "script/Variable.h"

namespace orvane {

[[noreturn]] void bindingError(const std::string& label, const std::string& message);
const Variable& requireArg(const VariableArray& arguments, size_t index, const std::string& label);
double numericValue(const Variable& value, const std::string& label, const std::string& name);
int32_t integerValue(const Variable& value, const std::string& label, const std::string& name);
float floatValue(const Variable& value, const std::string& label, const std::string& name);
std::string stringValue(const Variable& value, const std::string& label, const std::string& name);
void* pointerValue(const Variable& value, const std::string& label, const std::string& name);

VariableArray* arrayPtr(const Variable& value);
VariableTable* tablePtr(const Variable& value);
int32_t containerLength(const Variable& value);
const Variable* getIndexedValuePtr(const Variable& value, int32_t index);
const Variable* getFieldValuePtr(const Variable& value, const std::string& name);
bool isWholeNumber(double x);
bool parsePositiveIntegerKey(const std::string& text, int32_t& out);
Variable noReturn();
Variable returnValues(VariableArray list);

using ModuleEntries = std::vector<std::pair<std::string, NativeFunction>>;
Variable makeModule(const std::string& name, const ModuleEntries& entries);

}  // namespace orvane
