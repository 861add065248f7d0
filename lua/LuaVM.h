// The OrvaneLua virtual machine: runs source text, files and "OLBC" bundles and keeps its
// globals from run to run. No run operation raises; its outcome is a LuaResult.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lua/LuaBytecode.h"
#include "lua/LuaResult.h"
#include "lua/LuaValue.h"

namespace orvane::lua {

class LuaVM {
public:
    using Function = std::function<LuaValue(LuaVM&, const std::vector<LuaValue>&)>;

    LuaVM();
    ~LuaVM();
    LuaVM(LuaVM&& other) noexcept;
    LuaVM& operator=(LuaVM&& other) noexcept;
    LuaVM(const LuaVM&) = delete;
    LuaVM& operator=(const LuaVM&) = delete;

    // Makes `fn` a global; its arguments and result cross as LuaValue.
    void bindFunction(const std::string& name, Function fn);
    // Raises when the value can't be converted.
    void setGlobal(const std::string& name, const LuaValue& value);
    // False for nil and for a value that can't leave the VM; `out` is then left alone.
    bool getGlobal(const std::string& name, LuaValue& out) const;

    // A syntax check, then the bundle; raises on a syntax error.
    LuaBytecode compileScript(const std::string& source, const std::string& chunkName = "<string>");
    bool writeBytecodeFile(const std::string& source, const std::string& outputPath,
                           const std::string& chunkName = "<string>", std::string* error = nullptr);

    LuaResult runScriptString(const std::string& source, const std::string& chunkName = "<string>");
    LuaResult runScriptFile(const std::string& path);
    LuaResult runBytecode(const LuaBytecode& bytecode);
    LuaResult runBytecodeFile(const std::string& path);
    LuaResult runScriptFromBytecodeFile(const std::string& path);

    std::string valueToString(const LuaValue& value) const;

    struct Impl;

private:
    friend struct LuaVMInternals;
    std::unique_ptr<Impl> impl_;
};

void bindCppFunctionToLuaVM(LuaVM& vm, const std::string& name, LuaVM::Function fn);
LuaResult runLuaScriptString(LuaVM& vm, const std::string& source, const std::string& chunkName = "<string>");
LuaResult runLuaScriptFile(LuaVM& vm, const std::string& path);
LuaResult runLuaBytecode(LuaVM& vm, const LuaBytecode& bytecode);
LuaResult runLuaScriptFromBytecodeFile(LuaVM& vm, const std::string& path);
LuaResult runLuaBytecodeFile(LuaVM& vm, const std::string& path);

}  // namespace orvane::lua
