// File path helpers for resolving script-relative paths.
#pragma once

#include <string>

namespace orvane {

std::string joinPath(const std::string& a, const std::string& b);
std::string pathDirectory(const std::string& p);
std::string findResourcesRoot(const std::string& dir);
bool pathExists(const std::string& p);

}  // namespace orvane
