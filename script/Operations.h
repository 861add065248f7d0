// The value semantics that every evaluation path shares: arithmetic, equality, ordering, keys.
#pragma once

#include <string>

#include "script/Variable.h"

namespace orvane {

Variable performOperation(const Variable& left, char op, const Variable& right);
Variable performOperation(const Variable& left, const std::string& op, const Variable& right);
bool tryApplyOperationInPlace(Variable& target, char op, const Variable& right);
bool variablesEqual(const Variable& a, const Variable& b);
int compareVariables(const Variable& a, const Variable& b);
std::string keyToString(const Variable& key);
bool tryGetArrayIndex(const Variable& key, int32_t& out);
bool prefersArrayStorage(const Variable& key);
std::string decodeStringToken(const std::string& token);
bool isStandaloneNotBoundary(const std::string& token);

}  // namespace orvane
