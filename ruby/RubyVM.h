// The face of OrvaneRuby: a VM with its globals and library. Source text is compiled to "ORBC"
// bytes and every run reads those bytes back, so a script and a bytecode file take one road.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ruby/RubyBytecode.h"
#include "ruby/RubyResult.h"
#include "ruby/RubyValue.h"

namespace orvane::ruby {

// Bounds that keep a hostile script from taking the process down. Each is checked where the
// thing grows; going past one is an ordinary script error.
struct RubyLimits {
    // Script calls inside each other, "stack level too deep" beyond. A level costs under 1 KiB
    // of native stack in an optimized build and up to 5 KiB in a sanitized debug build.
    int maxCallDepth = 1500;
    // The native stack that the calls of one run may take, measured from the outermost run or
    // call; past it a call fails like a deep one. It guards the paths that cost more than a plain
    // script call, such as pcall and natives that run code, and must stay below the stack of the
    // thread that runs the VM (8 MiB on the main thread of a Linux process).
    size_t maxNativeStackBytes = size_t(4) << 20;
    // Calls and backward jumps of one run, counted from the outermost run or call; 0 is no bound.
    uint64_t maxSteps = 0;
    // Longest string and array that an operation may make.
    size_t maxStringBytes = size_t(1) << 28;
    size_t maxArrayLength = size_t(1) << 24;
};

// Which of the equivalent roads a call takes; all give the same results. The default takes every
// shortcut. The others exist so that the shortcuts can be checked against the plain road.
enum class RubyExecutionMode : uint8_t {
    Fast,         // fast nodes, and the unchecked loop for verified functions
    NoFastNodes,  // the loop for every function, unchecked where verified
    Checked,      // the checked loop for every function
};

class RubyVM {
public:
    struct Impl;

    RubyVM();
    ~RubyVM();
    RubyVM(RubyVM&& other) noexcept;
    RubyVM& operator=(RubyVM&& other) noexcept;
    RubyVM(const RubyVM&) = delete;
    RubyVM& operator=(const RubyVM&) = delete;

    // A native global. The names "error", "pcall" and "table_set" get the VM's own behaviour of
    // those functions, and `fn` is then never called.
    void bindFunction(const std::string& name, RubyNativeFunction fn);
    void setGlobal(const std::string& name, const RubyValue& value);
    // False if the global was never assigned; a global assigned nil is there.
    bool getGlobal(const std::string& name, RubyValue& out) const;

    // Raises the compiler's error on a syntax error.
    RubyBytecode compileScript(const std::string& source, const std::string& chunkName = "<string>") const;
    bool writeBytecodeFile(const std::string& source, const std::string& outputPath,
                           const std::string& chunkName = "<string>", std::string* error = nullptr) const;

    RubyResult runScriptString(const std::string& source, const std::string& chunkName = "<string>");
    // The path is the chunk name.
    RubyResult runScriptFile(const std::string& path);
    RubyResult runBytecode(const RubyBytecode& bytecode);
    RubyResult runBytecodeFile(const std::string& path);
    RubyResult runScriptFromBytecodeFile(const std::string& path);
    // Calls a function value, as a script's call would, with the failure in the result.
    RubyResult call(const RubyValue& callee, const std::vector<RubyValue>& args);

    std::string valueToString(const RubyValue& value) const;

    void setLimits(const RubyLimits& limits);
    const RubyLimits& limits() const;
    void setExecutionMode(RubyExecutionMode mode);
    RubyExecutionMode executionMode() const;

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

void bindCppFunctionToRubyVM(RubyVM& vm, const std::string& name, RubyNativeFunction fn);
RubyResult runRubyScriptString(RubyVM& vm, const std::string& source, const std::string& chunkName = "<string>");
RubyResult runRubyScriptFile(RubyVM& vm, const std::string& path);
RubyResult runRubyBytecode(RubyVM& vm, const RubyBytecode& bytecode);
RubyResult runRubyScriptFromBytecodeFile(RubyVM& vm, const std::string& path);
RubyResult runRubyBytecodeFile(RubyVM& vm, const std::string& path);

}  // namespace orvane::ruby
