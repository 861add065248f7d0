// The pattern functions' road to the standard regular expressions: the translation and the
// bounded compilation that string.find, match, gmatch and gsub share.
#pragma once

#include <regex>
#include <string>

namespace orvane::lua {

std::string translateLuaPatternToRegex(const std::string& pattern);
// Translates and compiles with the ECMAScript grammar; refuses patterns that are too long or
// nest too deeply for the engine's recursion.
std::regex compilePattern(const std::string& pattern);

}  // namespace orvane::lua
