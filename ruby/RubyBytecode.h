// OrvaneRuby's compiled form, "ORBC": what the compiler writes and the only thing the VM runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvane::ruby {

struct RubyBytecode {
    std::vector<uint8_t> bytes;
};

// What the reader makes of one function of a bytecode file, for tools and tests: the stored
// fields, and what was worked out after reading.
struct RubyFunctionInfo {
    std::string name;
    std::vector<std::string> parameters;
    size_t instructionCount = 0;
    // Parameters first, then every name that the function assigns.
    std::vector<std::string> localNames;
    // Whether the reader could prove every operand, jump and stack depth sound; a function that
    // isn't runs on the checked road, which raises when it meets the fault.
    bool verified = false;
    // Deepest operand stack of a verified function.
    uint32_t maxStack = 0;
    // 0 none, 1 expression, 2 guarded expression; and the node count of that form.
    uint8_t fastKind = 0;
    size_t fastNodeCount = 0;
    std::string fastErrorMessage;
};

// Reads the bytes as the VM would; raises the reader's error texts.
std::vector<RubyFunctionInfo> describeRubyBytecode(const RubyBytecode& bytecode);
// Reads the bytes and writes the program again: what the writer makes of what the reader took.
RubyBytecode rewriteRubyBytecode(const RubyBytecode& bytecode);

}  // namespace orvane::ruby
