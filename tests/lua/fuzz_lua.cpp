// libFuzzer target for OrvaneLua. The input goes through the lexer, parser, resolver and
// global binding as source, and through the "OLBC" reader as bundle bytes; a source or bundle
// that parses then runs under a step budget and a small string bound, in a VM without io, os
// and pattern searches (the regular expression engine's own running time is not ours to fuzz:
// patterns are translated and compiled instead).
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "lua/LuaVM.h"
#include "lua/Patterns.h"
#include "lua/Runtime.h"

using namespace orvane::lua;

namespace {

constexpr uint64_t kSteps = 20000;

void prepare(LuaVM& vm) {
    vm.setGlobal("io", LuaValue());
    vm.setGlobal("os", LuaValue());
    vm.bindFunction("print", [](LuaVM&, const std::vector<LuaValue>& args) {
        // Converting the arguments is the part worth running; the output is not.
        for (const auto& a : args) (void)a.toString();
        return LuaValue();
    });
    vm.runScriptString("string.find = nil string.match = nil string.gmatch = nil string.gsub = nil", "prelude");
    LuaVMInternals::impl(vm).maxStringSize = 1 << 20;
}

void run(LuaVM& vm, const std::string& source, const std::vector<uint8_t>& bundle) {
    auto& impl = LuaVMInternals::impl(vm);
    bool parses = true;
    try {
        LuaBytecode compiled = vm.compileScript(source, "fuzz");
        if (compiled.bytes.size() < source.size()) __builtin_trap();
    } catch (const std::exception&) {
        parses = false;
    }
    if (parses) {
        impl.stepsLeft = kSteps;
        LuaResult result = vm.runScriptString(source, "fuzz");
        if (!result.success && result.error.empty()) __builtin_trap();
    }
    impl.stepsLeft = kSteps;
    LuaResult fromBundle = vm.runBytecode(LuaBytecode{bundle});
    if (!fromBundle.success && fromBundle.error.empty()) __builtin_trap();
    impl.stepsLeft = UINT64_MAX;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string source(reinterpret_cast<const char*>(data), size);
    std::vector<uint8_t> bundle(data, data + size);
    LuaVM vm;
    prepare(vm);
    run(vm, source, bundle);
    // The same bytes as the source of a well-formed bundle.
    std::vector<uint8_t> wrapped = vm.compileScript("return 1", "w").bytes;
    wrapped.resize(8);
    for (uint32_t n : {uint32_t(4), uint32_t(size)}) {
        for (int i = 0; i < 4; ++i) wrapped.push_back(uint8_t(n >> (8 * i)));
        if (n == 4) wrapped.insert(wrapped.end(), {'f', 'u', 'z', 'z'});
    }
    wrapped.insert(wrapped.end(), data, data + size);
    LuaVMInternals::impl(vm).stepsLeft = kSteps;
    LuaResult wrappedResult = vm.runBytecode(LuaBytecode{wrapped});
    if (!wrappedResult.success && wrappedResult.error.empty()) __builtin_trap();
    // The bytes as a pattern: translation and compilation must end in a regex or a clean error.
    try {
        compilePattern(source);
    } catch (const std::exception&) {
    }
    return 0;
}
