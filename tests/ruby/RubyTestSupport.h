// Shared helpers of the OrvaneRuby tests: running source and reading the outcome, and a small
// writer and reader of "ORBC" bytes, so that tests can look at what the compiler made and forge
// what no compiler makes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ruby/RubyVM.h"

namespace orvane::ruby::testing {

// The value of a successful run, as text with its type in front ("integer 3", "float 3",
// "string ab"), or the error of a failed one behind "error: ".
inline std::string describe(const RubyResult& result) {
    if (!result.success) return "error: " + result.error;
    static const char* names[] = {"nil", "integer", "float", "boolean", "string", "array", "map", "function"};
    const RubyValue& v = result.value;
    if (v.isNil()) return "nil";
    return std::string(names[static_cast<int>(v.type())]) + " " + v.toString();
}

inline std::string run(RubyVM& vm, const std::string& source) { return describe(vm.runScriptString(source)); }

inline std::string run(const std::string& source) {
    RubyVM vm;
    return run(vm, source);
}

struct ForgedInstruction {
    uint8_t opcode;
    int32_t a = 0;
    int32_t b = 0;
    uint32_t line = 1;
};

struct ForgedFunction {
    std::string name = "<main>";
    std::vector<std::string> parameters;
    std::vector<ForgedInstruction> instructions;
};

// A constant: tag and raw payload bytes.
struct ForgedConstant {
    uint8_t tag;
    std::vector<uint8_t> payload;
    static ForgedConstant nil() { return {0, {}}; }
    static ForgedConstant integer(int64_t v) {
        ForgedConstant c{1, std::vector<uint8_t>(8)};
        std::memcpy(c.payload.data(), &v, 8);
        return c;
    }
    static ForgedConstant string(const std::string& s) {
        ForgedConstant c{4, {}};
        uint32_t n = static_cast<uint32_t>(s.size());
        for (int i = 0; i < 4; ++i) c.payload.push_back(static_cast<uint8_t>(n >> (8 * i)));
        c.payload.insert(c.payload.end(), s.begin(), s.end());
        return c;
    }
};

struct ForgedProgram {
    std::string chunk = "a";
    std::vector<ForgedConstant> constants;
    std::vector<ForgedFunction> functions{ForgedFunction{}};

    static void u32(std::vector<uint8_t>& out, uint32_t v) {
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
    static void str(std::vector<uint8_t>& out, const std::string& s) {
        u32(out, static_cast<uint32_t>(s.size()));
        out.insert(out.end(), s.begin(), s.end());
    }
    RubyBytecode bytes() const {
        RubyBytecode bc;
        auto& out = bc.bytes;
        out = {'O', 'R', 'B', 'C'};
        u32(out, 1);
        str(out, chunk);
        u32(out, static_cast<uint32_t>(constants.size()));
        for (const auto& c : constants) {
            out.push_back(c.tag);
            out.insert(out.end(), c.payload.begin(), c.payload.end());
        }
        u32(out, static_cast<uint32_t>(functions.size()));
        for (const auto& f : functions) {
            str(out, f.name);
            u32(out, static_cast<uint32_t>(f.parameters.size()));
            for (const auto& p : f.parameters) str(out, p);
            u32(out, static_cast<uint32_t>(f.instructions.size()));
            for (const auto& ins : f.instructions) {
                out.push_back(ins.opcode);
                u32(out, static_cast<uint32_t>(ins.a));
                u32(out, static_cast<uint32_t>(ins.b));
                u32(out, ins.line);
            }
        }
        return bc;
    }
};

// What compiled bytes hold, read without the VM: constants as text ("1", "\"x\"", "nil") and
// instructions, for comparing against hand-worked expectations.
struct ReadProgram {
    std::string chunk;
    std::vector<std::string> constants;
    std::vector<ForgedFunction> functions;
};

inline ReadProgram readBytes(const RubyBytecode& bc) {
    const auto& b = bc.bytes;
    size_t pos = 8;
    auto u32 = [&] {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v |= uint32_t(b.at(pos + i)) << (8 * i);
        pos += 4;
        return v;
    };
    auto str = [&] {
        uint32_t n = u32();
        std::string s(b.begin() + static_cast<long>(pos), b.begin() + static_cast<long>(pos + n));
        pos += n;
        return s;
    };
    ReadProgram p;
    p.chunk = str();
    uint32_t constants = u32();
    for (uint32_t i = 0; i < constants; ++i) {
        uint8_t tag = b.at(pos++);
        if (tag == 0) {
            p.constants.push_back("nil");
        } else if (tag == 1 || tag == 2) {
            uint64_t v = 0;
            for (int k = 0; k < 8; ++k) v |= uint64_t(b.at(pos + k)) << (8 * k);
            pos += 8;
            if (tag == 1) {
                p.constants.push_back(std::to_string(static_cast<int64_t>(v)));
            } else {
                double d;
                std::memcpy(&d, &v, 8);
                p.constants.push_back(std::to_string(d));
            }
        } else if (tag == 3) {
            p.constants.push_back(b.at(pos++) ? "true" : "false");
        } else {
            p.constants.push_back("\"" + str() + "\"");
        }
    }
    uint32_t functions = u32();
    for (uint32_t f = 0; f < functions; ++f) {
        ForgedFunction fn;
        fn.name = str();
        uint32_t params = u32();
        for (uint32_t i = 0; i < params; ++i) fn.parameters.push_back(str());
        uint32_t count = u32();
        for (uint32_t i = 0; i < count; ++i) {
            ForgedInstruction ins;
            ins.opcode = b.at(pos++);
            ins.a = static_cast<int32_t>(u32());
            ins.b = static_cast<int32_t>(u32());
            ins.line = u32();
            fn.instructions.push_back(ins);
        }
        p.functions.push_back(fn);
    }
    return p;
}

// "op a" per instruction, with b where it is used: "LoadName 0", "DefineFunction 3 1".
inline std::string listing(const ForgedFunction& f) {
    static const char* names[] = {"LoadConstant", "LoadName", "StoreName", "Pop", "Add", "Subtract", "Multiply",
                                  "Divide", "Modulo", "Negate", "Not", "Equal", "NotEqual", "Less", "LessEqual",
                                  "Greater", "GreaterEqual", "And", "Or", "Jump", "JumpIfFalse", "Call",
                                  "DefineFunction", "Return", "MakeArray", "Index"};
    std::string out;
    for (const auto& ins : f.instructions) {
        if (!out.empty()) out += "; ";
        out += ins.opcode <= 25 ? names[ins.opcode] : "?" + std::to_string(ins.opcode);
        bool usesA = ins.opcode <= 2 || ins.opcode == 19 || ins.opcode == 20 || ins.opcode == 21 || ins.opcode == 22 ||
                     ins.opcode == 24;
        if (usesA) out += " " + std::to_string(ins.a);
        if (ins.opcode == 22) out += " " + std::to_string(ins.b);
    }
    return out;
}

}  // namespace orvane::ruby::testing
