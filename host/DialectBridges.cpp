// The modules Lua and Ruby, through which OrvaneScript runs the two dialects, and the globals
// orvane_var, ruby_var, lua_var and time_ms, through which the dialects read and write the
// other languages' globals. No language ever calls a function of another.
#include <chrono>
#include <stdexcept>
#include <string_view>

#include "host/Binding.h"
#include "host/BridgeConversions.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace orvane {

namespace {

// The two VMs offer the same operations under the same names; what differs between the
// dialects is gathered here, so that one template makes each module and interop function.
struct LuaDialect {
    using Value = lua::LuaValue;
    static constexpr const char* name = "Lua";
    static constexpr lua::LuaVM& vm = luaVM;
    static constexpr auto toValue = variableToLuaValue;
    static constexpr auto toVariable = luaValueToVariable;
    static constexpr auto unwrap = unwrapLuaResult;
    static constexpr auto fromBytecode = luaBytecodeToVariable;
    static constexpr auto toBytecode = variableToLuaBytecode;
    static constexpr auto bind = lua::bindCppFunctionToLuaVM;
};

struct RubyDialect {
    using Value = ruby::RubyValue;
    static constexpr const char* name = "Ruby";
    static constexpr ruby::RubyVM& vm = rubyVM;
    static constexpr auto toValue = variableToRubyValue;
    static constexpr auto toVariable = rubyValueToVariable;
    static constexpr auto unwrap = unwrapRubyResult;
    static constexpr auto fromBytecode = rubyBytecodeToVariable;
    static constexpr auto toBytecode = variableToRubyBytecode;
    static constexpr auto bind = ruby::bindCppFunctionToRubyVM;
};

constexpr const char* kDefaultSourceName = "<string>";

std::string stringArgument(const VariableArray& args, size_t index, const std::string& label, const char* name) {
    return stringValue(requireArg(args, index, label), label, name);
}

std::string sourceNameArgument(const VariableArray& args, size_t index, const std::string& label) {
    if (index >= args.size() || args[index].isNil()) return kDefaultSourceName;
    return stringValue(args[index], label, "sourceName");
}

template <class D>
Variable makeDialectModule() {
    const std::string module = D::name;
    return makeModule(module, {
        {"runScript", [label = module + ".runScript"](const VariableArray& args) {
             const std::string text = stringArgument(args, 0, label, "scriptText");
             return D::unwrap(D::vm.runScriptString(text, sourceNameArgument(args, 1, label)), label);
         }},
        {"runFile", [label = module + ".runFile"](const VariableArray& args) {
             return D::unwrap(D::vm.runScriptFile(stringArgument(args, 0, label, "scriptPath")), label);
         }},
        {"compileBytecode", [label = module + ".compileBytecode"](const VariableArray& args) {
             const std::string text = stringArgument(args, 0, label, "scriptText");
             const std::string sourceName = sourceNameArgument(args, 1, label);
             try {
                 return D::fromBytecode(D::vm.compileScript(text, sourceName));
             } catch (const std::exception& error) {
                 bindingError(label, error.what());
             }
         }},
        {"writeBytecode", [label = module + ".writeBytecode"](const VariableArray& args) {
             const std::string text = stringArgument(args, 0, label, "scriptText");
             const std::string bytecodePath = stringArgument(args, 1, label, "bytecodePath");
             std::string error;
             if (!D::vm.writeBytecodeFile(text, bytecodePath, sourceNameArgument(args, 2, label), &error))
                 bindingError(label, error);
             return Variable(true);
         }},
        {"runBytecode", [label = module + ".runBytecode"](const VariableArray& args) {
             return D::unwrap(D::vm.runBytecode(D::toBytecode(requireArg(args, 0, label), label, "bytecode")), label);
         }},
        {"runBytecodeFile", [label = module + ".runBytecodeFile"](const VariableArray& args) {
             return D::unwrap(D::vm.runBytecodeFile(stringArgument(args, 0, label, "bytecodePath")), label);
         }},
        {"getVar", [label = module + ".getVar"](const VariableArray& args) {
             typename D::Value value;
             if (!D::vm.getGlobal(stringArgument(args, 0, label, "name"), value)) return Variable();
             return D::toVariable(value, label, 0);
         }},
        {"setVar", [label = module + ".setVar"](const VariableArray& args) {
             const std::string name = stringArgument(args, 0, label, "name");
             // Converted in full before anything is stored: a refused value leaves the global as it was.
             D::vm.setGlobal(name, D::toValue(args.size() > 1 ? args[1] : Variable(), label, 0));
             return noReturn();
         }},
    });
}

// The name of orvane_var, ruby_var or lua_var, after the checks of their one calling form.
template <class Value>
const std::string& globalNameArgument(const std::vector<Value>& args, const std::string& functionName) {
    if (args.empty() || args.size() > 2)
        bindingError(functionName, "expects " + functionName + "(name) or " + functionName + "(name, value)");
    if (args[0].type() != decltype(args[0].type())::String) bindingError(functionName, "name must be a string");
    return args[0].asString();
}

template <class D>
typename D::Value readHostGlobal(const std::string& name, const std::string& functionName) {
    return D::toValue(engine.pullVariable(name), functionName, 0);
}

// The read searches the scopes of the running host script, as pullVariable does; the write
// always goes to the global. What comes back is the value read again, narrowed by the crossing.
template <class D>
typename D::Value orvaneVar(const std::vector<typename D::Value>& args) {
    const std::string functionName = "orvane_var";
    const std::string& name = globalNameArgument(args, functionName);
    if (args.size() == 2) {
        engine.pushVariable(name, D::toVariable(args[1], functionName, 0));
        try {
            return readHostGlobal<D>(name, functionName);
        } catch (const std::exception&) {
            return typename D::Value();
        }
    }
    try {
        return readHostGlobal<D>(name, functionName);
    } catch (const std::exception& error) {
        if (std::string_view(error.what()).starts_with("Variable not found: ")) return typename D::Value();
        throw;
    }
}

// ruby_var in OrvaneLua and lua_var in OrvaneRuby. The dialects have no road to each other, so a
// value between them always passes through a Variable.
template <class From, class To>
typename From::Value otherDialectVar(const std::vector<typename From::Value>& args, const std::string& functionName) {
    const std::string& name = globalNameArgument(args, functionName);
    if (args.size() == 2)
        To::vm.setGlobal(name, To::toValue(From::toVariable(args[1], functionName, 0), functionName, 0));
    typename To::Value value;
    if (!To::vm.getGlobal(name, value)) return typename From::Value();
    return From::toValue(To::toVariable(value, functionName, 0), functionName, 0);
}

// orvane_var and the global that reads the other dialect, bound into the VM of D.
template <class D, class Other>
void bindVariableInterop(const std::string& otherDialectFunction) {
    using Args = std::vector<typename D::Value>;
    D::bind(D::vm, "orvane_var", [](auto&, const Args& args) { return orvaneVar<D>(args); });
    D::bind(D::vm, otherDialectFunction, [otherDialectFunction](auto&, const Args& args) {
        return otherDialectVar<D, Other>(args, otherDialectFunction);
    });
}

}  // namespace

void bindLuaScriptEngineInterop() {
    static bool bound = false;
    if (bound) return;
    bound = true;
    bindVariableInterop<LuaDialect, RubyDialect>("ruby_var");
    // Milliseconds since the process started; OrvaneRuby's own time_ms is another clock.
    bindCppFunctionToLuaVM(luaVM, "time_ms", [](lua::LuaVM&, const std::vector<lua::LuaValue>& args) {
        if (!args.empty()) bindingError("time_ms", "expects no arguments");
        const auto elapsed = std::chrono::system_clock::now() - gtime;
        return lua::LuaValue(int64_t(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count()));
    });
}

void bindRubyScriptEngineInterop() {
    static bool bound = false;
    if (bound) return;
    bound = true;
    bindVariableInterop<RubyDialect, LuaDialect>("lua_var");
}

Variable makeLuaModule() { return makeDialectModule<LuaDialect>(); }

Variable makeRubyModule() { return makeDialectModule<RubyDialect>(); }

}  // namespace orvane
