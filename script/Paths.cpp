// Paths that a script names are tried as given, then beside the running script, then under the
// game's resources folder.
#include "script/Paths.h"

#include <sys/stat.h>

#include "script/OrvaneScript.h"

namespace orvane {

std::string joinPath(const std::string& a, const std::string& b) {
    if (a.empty()) return b;
    if (a.back() == '/') return a + b;
    return a + "/" + b;
}

std::string pathDirectory(const std::string& p) {
    size_t slash = p.rfind('/');
    return slash == std::string::npos ? std::string() : p.substr(0, slash);
}

std::string findResourcesRoot(const std::string& dir) {
    static const std::string marker = "/Resources";
    for (size_t at = dir.find(marker); at != std::string::npos; at = dir.find(marker, at + 1)) {
        size_t end = at + marker.size();
        if (end == dir.size() || dir[end] == '/') return dir.substr(0, end);
    }
    return {};
}

bool pathExists(const std::string& p) {
    struct stat info;
    return !p.empty() && ::stat(p.c_str(), &info) == 0;
}

std::string OrvaneScript::resolvePath(const std::string& path) const {
    if (path.empty() || path[0] == '/' || pathExists(path)) return path;
    std::string base;
    if (!sourceRootStack.empty() && sourceRootStack.back()) base = *sourceRootStack.back();
    if (base.empty() && !sourcePathStack.empty() && sourcePathStack.back())
        base = pathDirectory(*sourcePathStack.back());
    if (base.empty()) return path;

    std::string candidate = joinPath(base, path);
    if (pathExists(candidate)) return candidate;
    std::string root = findResourcesRoot(base);
    if (!root.empty()) {
        std::string inRoot = joinPath(root, path);
        if (pathExists(inRoot)) return inRoot;
        static const std::string scriptsPrefix = "ast/scripts/";
        if (path.compare(0, scriptsPrefix.size(), scriptsPrefix) == 0) {
            std::string inScripts = joinPath(joinPath(root, "scripts"), path.substr(scriptsPrefix.size()));
            if (pathExists(inScripts)) return inScripts;
        }
    }
    return candidate;
}

}  // namespace orvane
