// Small helpers shared by the OrvaneLua tests: run a chunk and look at what came back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "lua/LuaVM.h"

namespace orvane::lua::testing {

// The value of a chunk that must succeed.
inline LuaValue valueOf(LuaVM& vm, const std::string& source) {
    LuaResult result = vm.runScriptString(source, "t");
    EXPECT_TRUE(result.success) << source << "\n  -> " << result.error;
    return result.value;
}

inline LuaValue valueOf(const std::string& source) {
    LuaVM vm;
    return valueOf(vm, source);
}

// The text form of a chunk's value, for compact expectations.
inline std::string textOf(const std::string& source) { return valueOf(source).toString(); }

// The error of a chunk that must fail.
inline std::string errorOf(LuaVM& vm, const std::string& source) {
    LuaResult result = vm.runScriptString(source, "t");
    EXPECT_FALSE(result.success) << source << " unexpectedly gave " << result.value.toString();
    return result.error;
}

inline std::string errorOf(const std::string& source) {
    LuaVM vm;
    return errorOf(vm, source);
}

// What a chunk prints on standard output.
inline std::string outputOf(LuaVM& vm, const std::string& source) {
    ::testing::internal::CaptureStdout();
    LuaResult result = vm.runScriptString(source, "t");
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(result.success) << source << "\n  -> " << result.error;
    return out;
}

inline std::string outputOf(const std::string& source) {
    LuaVM vm;
    return outputOf(vm, source);
}

}  // namespace orvane::lua::testing
