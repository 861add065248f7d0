// The state of a coroutine of a decay function. It doesn't run on the native stack: its position
// is a stack of frames over the function's prepared body lines, so that it can stop after any
// statement and go on at the next turn.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "script/OrvaneScript.h"

namespace orvane {

enum class CoroutineFrameKind : uint8_t { Block = 0, While = 1, Repeat = 2, NumericFor = 3, GenericFor = 4 };

struct CoroutineFrame {
    CoroutineFrameKind kind = CoroutineFrameKind::Block;
    uint64_t position = 0;  // block: next line
    uint64_t end = 0;       // block: where it stops
    uint64_t headerLine = 0;  // loop: the line with its condition or clause (the `until` for repeat)
    uint64_t bodyStart = 0, bodyEnd = 0;
    uint64_t savedLocalScopes = 0, savedLocalScopeBase = 0;  // block
    bool ownsScope = false;
    bool initialized = false;
    bool bodyRan = false;     // for: the body ran for the present value
    bool checkUntil = false;  // repeat: the next visit tests the condition
    // 64 bits, so that adding the step at the end of the 32-bit range ends the loop, as on the
    // other routes.
    int64_t counter = 0;
    int32_t limit = 0;
    int32_t step = 1;
    std::vector<std::string> names;
    std::vector<VariableArray> rows;  // generic for: every iteration's values, taken at entry
    uint64_t rowIndex = 0;
};

// The members marked "swapped" change places with the interpreter's own for the length of a turn.
struct CoroutineState {
    CallablePtr callable;  // keeps alive the body and the strings the source stacks point at
    std::vector<Scope> nativeScopes;             // swapped
    std::vector<Scope> localScopes;              // swapped
    size_t localScopeBase = 0;                   // swapped
    std::vector<const std::string*> sourceRootStack;  // swapped
    std::vector<const std::string*> sourcePathStack;  // swapped
    std::vector<VariableArray> varargStack;      // swapped
    uint64_t callDepth = 0;                      // swapped
    std::vector<uint64_t> protectedDepths;       // swapped
    bool softRaised = false;                     // swapped
    uint64_t softDepth = 0;                      // swapped
    std::string softMessage;                     // swapped
    std::vector<CoroutineFrame> frames;          // the innermost last
};

}  // namespace orvane
