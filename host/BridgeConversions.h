// Values crossing between OrvaneScript and the two dialect VMs. Every crossing is a deep copy,
// numbers narrow to the host's 32 bits, and a failure names the script function that asked.
#pragma once

#include <string>

#include "lua/LuaBytecode.h"
#include "lua/LuaResult.h"
#include "lua/LuaValue.h"
#include "ruby/RubyBytecode.h"
#include "ruby/RubyResult.h"
#include "ruby/RubyValue.h"
#include "script/Variable.h"

namespace orvane {

lua::LuaValue variableToLuaValue(const Variable& variable, const std::string& functionName, int depth);
ruby::RubyValue variableToRubyValue(const Variable& variable, const std::string& functionName, int depth);
Variable luaValueToVariable(const lua::LuaValue& value, const std::string& functionName, int depth);
Variable rubyValueToVariable(const ruby::RubyValue& value, const std::string& functionName, int depth);

Variable luaBytecodeToVariable(const lua::LuaBytecode& bytecode);
Variable rubyBytecodeToVariable(const ruby::RubyBytecode& bytecode);
lua::LuaBytecode variableToLuaBytecode(const Variable& variable, const std::string& functionName,
                                       const std::string& argumentName);
ruby::RubyBytecode variableToRubyBytecode(const Variable& variable, const std::string& functionName,
                                          const std::string& argumentName);

// A failed run raises its error behind the function name; exit data is not looked at, so a
// script's os.exit(n) gives its caller n.
Variable unwrapLuaResult(const lua::LuaResult& result, const std::string& functionName);
Variable unwrapRubyResult(const ruby::RubyResult& result, const std::string& functionName);

}  // namespace orvane
