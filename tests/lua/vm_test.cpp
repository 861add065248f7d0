// The public face: result shapes, globals and bound functions, values crossing both ways,
// "OLBC" bundles in memory and in files, and hostile bundle bytes.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

using testing::errorOf;
using testing::textOf;
using testing::valueOf;

TEST(LuaResultShape, ValuesOfAChunk) {
    LuaVM vm;
    LuaResult empty = vm.runScriptString("", "t");
    EXPECT_TRUE(empty.success);
    EXPECT_TRUE(empty.value.isNil());
    EXPECT_FALSE(empty.exited);
    EXPECT_EQ(empty.exitCode, 0);
    EXPECT_TRUE(empty.error.empty());
    EXPECT_TRUE(valueOf("return").isNil());
    EXPECT_EQ(valueOf("return 1, 2").toString(), "[1, 2]");
    EXPECT_EQ(valueOf("return 1, nil").toString(), "[1]");
    LuaValue holey = valueOf("return nil, 2");
    ASSERT_EQ(holey.type(), LuaValueType::Map);
    EXPECT_EQ(holey.asMap().size(), 1u);
    EXPECT_EQ(holey.asMap().at("2").asInteger(), 2);
    LuaValue mixed = valueOf("return {1, 2, x = 'y'}");
    ASSERT_EQ(mixed.type(), LuaValueType::Map);
    EXPECT_EQ(mixed.asMap().at("1").asInteger(), 1);
    EXPECT_EQ(mixed.asMap().at("2").asInteger(), 2);
    EXPECT_EQ(mixed.asMap().at("x").asString(), "y");
    EXPECT_EQ(valueOf("return {}").type(), LuaValueType::Array);
    EXPECT_EQ(valueOf("return {1, {2, {3}}}").toString(), "[1, [2, [3]]]");
    // Keys 1 and "1" meet in one entry; true and "true" too.
    LuaValue merged = valueOf("local t = {} t[5] = 'n' t['5'] = 's' t[true] = 'b' return t");
    EXPECT_EQ(merged.asMap().size(), 2u);
    // A sequence with a hole behind it is a map.
    EXPECT_EQ(valueOf("local t = {1, 2} t[4] = 4 return t").type(), LuaValueType::Map);
    EXPECT_EQ(valueOf("return 2.5").type(), LuaValueType::Float);
    EXPECT_EQ(valueOf("return 'text'").asString(), "text");
    EXPECT_EQ(valueOf("return false").asBoolean(), false);
}

TEST(LuaResultShape, FailuresAndValuesThatCannotLeave) {
    LuaVM vm;
    LuaResult result = vm.runScriptString("local t = {}\nreturn t.x.y", "chunk");
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.error, "chunk:2: attempt to index a nil value");
    EXPECT_TRUE(result.value.isNil());
    EXPECT_EQ(errorOf("return pairs({})"), "value cannot be bridged out of OrvaneLua");
    EXPECT_EQ(errorOf("return io.stdout"), "value cannot be bridged out of OrvaneLua");
    EXPECT_EQ(errorOf("local t = {} t[1] = t return t"), "value is nested too deeply to bridge out of OrvaneLua");
    EXPECT_EQ(errorOf("local a, b = {}, {} a.b = b b.a = a return a"),
              "value is nested too deeply to bridge out of OrvaneLua");
    // 64 nested tables cross; 65 do not.
    std::string deep = "local t = 1 for i = 1, 64 do t = {t} end return t";
    EXPECT_TRUE(vm.runScriptString(deep, "t").success);
    EXPECT_FALSE(vm.runScriptString("local t = 1 for i = 1, 65 do t = {t} end return t", "t").success);
}

TEST(LuaResultShape, FunctionsCrossAsOpaqueHandles) {
    LuaVM vm;
    LuaValue f = valueOf(vm, "function double(x) return x * 2 end return double");
    ASSERT_EQ(f.type(), LuaValueType::Function);
    EXPECT_EQ(f.toString(), "[function double]");
    vm.setGlobal("again", f);
    EXPECT_EQ(valueOf(vm, "return again(21), again == double").toString(), "[42, true]");
    EXPECT_EQ(valueOf(vm, "return function() end").toString(), "[function <anonymous>]");
    EXPECT_EQ(LuaValue(std::shared_ptr<LuaFunctionHandle>()).toString(), "[function anonymous]");
    vm.setGlobal("empty", LuaValue(std::shared_ptr<LuaFunctionHandle>()));
    EXPECT_EQ(errorOf(vm, "empty()"), "t:1: attempt to call an empty function");
}

TEST(LuaPublicValue, AccessorsAndText) {
    EXPECT_EQ(LuaValue(2.5).asInteger(), 2);
    EXPECT_EQ(LuaValue(-2.5).asInteger(), -2);
    EXPECT_EQ(LuaValue(1e300).asInteger(), INT64_MAX);
    EXPECT_EQ(LuaValue(true).asInteger(), 1);
    EXPECT_EQ(LuaValue(false).asFloat(), 0.0);
    EXPECT_EQ(LuaValue(3).asFloat(), 3.0);
    EXPECT_THROW(LuaValue("x").asInteger(), std::runtime_error);
    EXPECT_THROW(LuaValue(1).asBoolean(), std::runtime_error);
    EXPECT_THROW(LuaValue(1).asString(), std::runtime_error);
    EXPECT_THROW(LuaValue(1).asArray(), std::runtime_error);
    EXPECT_THROW(LuaValue(1).asMap(), std::runtime_error);
    EXPECT_THROW(LuaValue(1).asFunction(), std::runtime_error);
    try {
        LuaValue().asInteger();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "value is not numeric");
    }
    EXPECT_EQ(LuaValue(3.0).toString(), "3");
    EXPECT_EQ(LuaValue(0.1).toString(), "0.1");
    EXPECT_EQ(LuaValue(1000000.0).toString(), "1e+06");
    EXPECT_EQ(LuaValue(nullptr).toString(), "nil");
    EXPECT_FALSE(LuaValue().isTruthy());
    EXPECT_FALSE(LuaValue(false).isTruthy());
    EXPECT_TRUE(LuaValue(0).isTruthy());
    EXPECT_TRUE(LuaValue("").isTruthy());
    LuaValue::Array array{LuaValue(1), LuaValue("a"), LuaValue::makeArray()};
    EXPECT_EQ(LuaValue(array).toString(), "[1, a, []]");
    LuaValue::Map map{{"k", LuaValue(true)}};
    EXPECT_EQ(LuaValue(map).toString(), "{k: true}");
    LuaVM vm;
    EXPECT_EQ(vm.valueToString(LuaValue(map)), "{k: true}");
}

TEST(LuaGlobals, SetGetAndConvert) {
    LuaVM vm;
    LuaValue::Map map{{"12", LuaValue(1)}, {"1.5", LuaValue(2)}, {"name", LuaValue("n")}};
    vm.setGlobal("m", LuaValue(map));
    EXPECT_EQ(valueOf(vm, "return m[12], m['1.5'], m.name, m['12']").toString(), "[1, 2, n]");
    vm.setGlobal("a", LuaValue(LuaValue::Array{LuaValue(1), LuaValue(), LuaValue(3)}));
    EXPECT_EQ(valueOf(vm, "return a[1], a[2] == nil, a[3]").toString(), "[1, true, 3]");
    vm.setGlobal("x", LuaValue(7));
    LuaValue out;
    EXPECT_TRUE(vm.getGlobal("x", out));
    EXPECT_EQ(out.asInteger(), 7);
    out = LuaValue("untouched");
    EXPECT_FALSE(vm.getGlobal("nothing_here", out));
    EXPECT_EQ(out.asString(), "untouched");
    valueOf(vm, "holder = {io.stdout}");
    EXPECT_FALSE(vm.getGlobal("holder", out));
    EXPECT_EQ(out.asString(), "untouched");
    valueOf(vm, "loop = {} loop.me = loop");
    EXPECT_FALSE(vm.getGlobal("loop", out));
    EXPECT_TRUE(vm.getGlobal("print", out));
    EXPECT_EQ(out.type(), LuaValueType::Function);
    // A cyclic public value is refused rather than followed for ever.
    LuaValue cyclic = LuaValue::makeArray();
    cyclic.asArray().push_back(cyclic);
    EXPECT_THROW(vm.setGlobal("c", cyclic), std::runtime_error);
    cyclic.asArray().clear();
}

TEST(LuaGlobals, BoundFunctions) {
    LuaVM vm;
    std::vector<LuaValue> seen;
    vm.bindFunction("host", [&](LuaVM& self, const std::vector<LuaValue>& args) -> LuaValue {
        EXPECT_EQ(&self, &vm);
        seen = args;
        return LuaValue(LuaValue::Array{LuaValue(args.size() > 0 ? args[0].asInteger() * 2 : 0), LuaValue("ok")});
    });
    EXPECT_EQ(valueOf(vm, "local r = host(21, {1, 2}, nil) return r[1], r[2]").toString(), "[42, ok]");
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[1].toString(), "[1, 2]");
    EXPECT_TRUE(seen[2].isNil());
    // One result, always.
    EXPECT_EQ(valueOf(vm, "local a, b = host(1) return b == nil").toString(), "true");
    vm.bindFunction("fails", [](LuaVM&, const std::vector<LuaValue>&) -> LuaValue {
        throw std::runtime_error("host says no");
    });
    EXPECT_EQ(errorOf(vm, "\nfails()"), "t:2: fails: host says no");
    EXPECT_EQ(valueOf(vm, "return pcall(fails)").toString(), "[false, fails: host says no]");
    EXPECT_EQ(errorOf(vm, "host(io.stdout)"), "t:1: value cannot be bridged out of OrvaneLua");
    bindCppFunctionToLuaVM(vm, "reenter", [](LuaVM& self, const std::vector<LuaValue>& args) -> LuaValue {
        return self.runScriptString("return 40 + " + args[0].toString(), "inner").value;
    });
    EXPECT_EQ(valueOf(vm, "return reenter(2)").asInteger(), 42);
}

TEST(LuaVMObject, MovesKeepTheState) {
    LuaVM first;
    valueOf(first, "kept = 5");
    first.bindFunction("who", [](LuaVM& self, const std::vector<LuaValue>&) -> LuaValue {
        LuaValue v;
        self.getGlobal("kept", v);
        return v;
    });
    LuaVM second(std::move(first));
    EXPECT_EQ(valueOf(second, "return who()").asInteger(), 5);
    LuaVM third;
    third = std::move(second);
    EXPECT_EQ(valueOf(third, "return kept + who()").asInteger(), 10);
    EXPECT_FALSE(first.runScriptString("return 1").success);
}

// The 25 bytes of the source `return 1` under the name `a`.
const std::vector<uint8_t> kSmallBundle = {0x4F, 0x4C, 0x42, 0x43, 1, 0, 0, 0, 1, 0, 0, 0, 'a',
                                           8, 0, 0, 0, 'r', 'e', 't', 'u', 'r', 'n', ' ', '1'};

TEST(LuaBundle, LayoutAndRoundTrip) {
    LuaVM vm;
    LuaBytecode bytecode = vm.compileScript("return 1", "a");
    EXPECT_EQ(bytecode.bytes, kSmallBundle);
    LuaResult result = vm.runBytecode(bytecode);
    EXPECT_TRUE(result.success);
    EXPECT_EQ(result.value.asInteger(), 1);
    // Bytes behind the source are ignored.
    LuaBytecode padded = bytecode;
    padded.bytes.push_back(0xFF);
    EXPECT_EQ(vm.runBytecode(padded).value.asInteger(), 1);
    EXPECT_EQ(runLuaBytecode(vm, bytecode).value.asInteger(), 1);
    // Errors of a bundle carry its chunk name.
    LuaBytecode failing = vm.compileScript("\nreturn nil + 1", "named");
    EXPECT_EQ(vm.runBytecode(failing).error, "named:2: operator '+' expects numbers");
    // A syntax error is refused at compilation, and in a bundle not made here, at the run.
    EXPECT_THROW(vm.compileScript("return +", "x"), std::runtime_error);
    std::vector<uint8_t> broken = {'O', 'L', 'B', 'C', 1, 0, 0, 0, 1, 0, 0, 0, 'b', 2, 0, 0, 0, 'i', 'f'};
    EXPECT_EQ(vm.runBytecode(LuaBytecode{broken}).error, "b:1:3: expected expression");
}

TEST(LuaBundle, HostileBytesFailWithAMessage) {
    LuaVM vm;
    auto errorFor = [&](std::vector<uint8_t> bytes) {
        LuaResult result = vm.runBytecode(LuaBytecode{std::move(bytes)});
        EXPECT_FALSE(result.success);
        return result.error;
    };
    EXPECT_EQ(errorFor({}), "bytecode file is too small");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0}), "bytecode file is too small");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'X', 1, 0, 0, 0}), "invalid OrvaneLua bytecode header");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 2, 0, 0, 0}), "unsupported OrvaneLua bytecode version");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0, 0}), "bytecode is truncated");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0, 0, 1, 0}), "bytecode is truncated");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 'a'}), "bytecode string exceeds file size");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0, 0, 1, 0, 0, 0, 'a'}), "bytecode is truncated");
    EXPECT_EQ(errorFor({'O', 'L', 'B', 'C', 1, 0, 0, 0, 1, 0, 0, 0, 'a', 9, 0, 0, 0, 'r'}),
              "bytecode string exceeds file size");
    // Every truncation of a good bundle fails cleanly, and every single-byte corruption either
    // fails with a message or runs.
    std::vector<uint8_t> good = vm.compileScript("local t = {1, 2} return #t", "c").bytes;
    for (size_t n = 0; n < good.size(); ++n) {
        std::vector<uint8_t> cut(good.begin(), good.begin() + std::ptrdiff_t(n));
        LuaResult result = vm.runBytecode(LuaBytecode{cut});
        EXPECT_FALSE(result.success) << n;
        EXPECT_FALSE(result.error.empty()) << n;
    }
    for (size_t i = 0; i < good.size(); ++i) {
        for (uint8_t flip : {uint8_t(0x01), uint8_t(0x80), uint8_t(0xFF)}) {
            std::vector<uint8_t> bad = good;
            bad[i] ^= flip;
            LuaResult result = vm.runBytecode(LuaBytecode{bad});
            EXPECT_TRUE(result.success || !result.error.empty()) << i;
        }
    }
}

class LuaBundleFiles : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/lua_bundle_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        for (const char* name : {"/s.olbc", "/script.lua", "/empty.olbc"}) std::remove((dir + name).c_str());
        rmdir(dir.c_str());
    }
    std::string dir;
};

TEST_F(LuaBundleFiles, WriteAndRunFiles) {
    LuaVM vm;
    std::string error = "unchanged";
    EXPECT_TRUE(vm.writeBytecodeFile("return 6 * 7", dir + "/s.olbc", "six", &error));
    EXPECT_EQ(error, "unchanged");
    EXPECT_EQ(vm.runBytecodeFile(dir + "/s.olbc").value.asInteger(), 42);
    EXPECT_EQ(vm.runScriptFromBytecodeFile(dir + "/s.olbc").value.asInteger(), 42);
    EXPECT_EQ(runLuaBytecodeFile(vm, dir + "/s.olbc").value.asInteger(), 42);
    EXPECT_EQ(runLuaScriptFromBytecodeFile(vm, dir + "/s.olbc").value.asInteger(), 42);
    EXPECT_FALSE(vm.writeBytecodeFile("return (", dir + "/s.olbc", "bad", &error));
    EXPECT_EQ(error, "bad:1:9: expected expression");
    EXPECT_FALSE(vm.writeBytecodeFile("return 1", dir + "/no/such/dir/x.olbc", "x", nullptr));
    EXPECT_FALSE(vm.writeBytecodeFile("return 1", dir + "/no/such/dir/x.olbc", "x", &error));
    EXPECT_EQ(error, "failed to open file for writing: " + dir + "/no/such/dir/x.olbc");
    EXPECT_EQ(vm.runBytecodeFile(dir + "/missing.olbc").error, "failed to open file: " + dir + "/missing.olbc");

    {
        std::ofstream script(dir + "/script.lua", std::ios::binary);
        script << "local x = 2\nreturn x +";
    }
    EXPECT_EQ(vm.runScriptFile(dir + "/script.lua").error, dir + "/script.lua:2:11: expected expression");
    EXPECT_EQ(runLuaScriptFile(vm, dir + "/nothing.lua").error, "unable to open script file: " + dir + "/nothing.lua");
    {
        std::ofstream script(dir + "/script.lua", std::ios::binary | std::ios::trunc);
        script << "return ...";
    }
    EXPECT_FALSE(vm.runScriptFile(dir + "/script.lua").success);
    {
        std::ofstream empty(dir + "/empty.olbc", std::ios::binary);
    }
    EXPECT_EQ(vm.runBytecodeFile(dir + "/empty.olbc").error, "bytecode file is too small");
}

TEST(LuaVMObject, FreeFunctionsMatchTheMembers) {
    LuaVM vm;
    EXPECT_EQ(runLuaScriptString(vm, "return 3", "x").value.asInteger(), 3);
    bindCppFunctionToLuaVM(vm, "one", [](LuaVM&, const std::vector<LuaValue>&) { return LuaValue(1); });
    EXPECT_EQ(runLuaScriptString(vm, "return one()").value.asInteger(), 1);
}

TEST(LuaVMObject, CyclesDieWithTheVM) {
    // Run under the leak checker: a VM full of cycles must free them all when it ends.
    LuaVM vm;
    valueOf(vm, R"(
        local a = {} a.self = a
        local function rec() return rec end
        holder = {rec = rec, a = a}
        local it = pairs(holder) holder.it = it
        function g() return holder end)");
    LuaValue handle = valueOf(vm, "return g");
    EXPECT_EQ(handle.type(), LuaValueType::Function);
}

}  // namespace
}  // namespace orvane::lua
