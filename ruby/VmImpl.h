// The hidden state of a RubyVM: global slots, the frames of running calls, limits and counters.
#pragma once

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "ruby/Operations.h"
#include "ruby/Program.h"
#include "ruby/RubyVM.h"
#include "ruby/ValueAccess.h"

namespace orvane::ruby {

// The locals and operand stacks of running script calls, in chunks that never move, so that a
// callee reads its arguments where they lie on its caller's stack. Every slot that no frame
// holds is nil, so a new frame costs no clearing beyond its locals.
class FrameStack {
public:
    struct Mark {
        size_t chunk = 0;
        RubyValue* top = nullptr;
    };

    RubyValue* acquire(size_t count, Mark& saved) {
        // Frames of compiled code are small; a forged function can ask for a frame as large as
        // its file, and recursion would multiply that.
        charge(count);
        saved = {current, top};
        if (static_cast<size_t>(end - top) < count) nextChunk(count);
        RubyValue* base = top;
        top += count;
        return base;
    }
    void release(RubyValue* base, size_t count, const Mark& saved) noexcept {
        for (size_t i = 0; i < count; ++i) base[i] = RubyValue();
        refund(count);
        current = saved.chunk;
        top = saved.top;
        end = top ? chunks[current].values.get() + chunks[current].size : nullptr;
    }

    // Values held elsewhere on behalf of a frame (the growing stack of the checked loop) count
    // against the same bound.
    void charge(size_t count) {
        if (count > kMaxValues - inUse) throw std::runtime_error("stack level too deep");
        inUse += count;
    }
    void refund(size_t count) noexcept { inUse -= count; }

private:
    struct Chunk {
        std::unique_ptr<RubyValue[]> values;
        size_t size = 0;
    };
    static constexpr size_t kChunkValues = 16384;
    static constexpr size_t kMaxValues = size_t(1) << 22;

    void nextChunk(size_t count) {
        size_t next = top ? current + 1 : 0;
        // Chunks past the current one hold no frame; one too small for this frame goes.
        if (next < chunks.size() && chunks[next].size < count) chunks.resize(next);
        if (next >= chunks.size()) {
            Chunk chunk;
            chunk.size = std::max(kChunkValues, count);
            chunk.values = std::make_unique<RubyValue[]>(chunk.size);
            chunks.push_back(std::move(chunk));
        }
        current = next;
        top = chunks[current].values.get();
        end = top + chunks[current].size;
    }

    std::vector<Chunk> chunks;
    size_t current = 0;
    RubyValue* top = nullptr;
    RubyValue* end = nullptr;
    size_t inUse = 0;
};

struct RubyVM::Impl {
    explicit Impl(RubyVM* owner);

    RubyVM* owner;
    // Tells this VM's slot caches in shared programs from another VM's.
    uint64_t serial;
    std::unordered_map<std::string, uint64_t> globalSlots;
    // One value for each slot; a slot never assigned holds the unset tag.
    std::vector<RubyValue> slotValues;

    RubyLimits limits;
    RubyExecutionMode mode = RubyExecutionMode::Fast;
    int callDepth = 0;
    int runDepth = 0;
    // The native stack address where the outermost run began.
    uintptr_t stackBase = 0;
    uint64_t stepsLeft = UINT64_MAX;
    FrameStack frames;

    void bindDefaults();

    uint64_t ensureGlobalSlot(const std::string& name);
    uint64_t resolveGlobalSlot(const std::string& name) const;
    const RubyValue* getGlobalBySlot(uint64_t slot) const {
        if (slot >= slotValues.size() || RubyValueAccess::isUnset(slotValues[slot])) return nullptr;
        return &slotValues[slot];
    }
    void setGlobalSlotValue(uint64_t slot, const RubyValue& value);
    bool getGlobal(const std::string& name, RubyValue& out) const;
    void setGlobal(const std::string& name, const RubyValue& value);
    void bindFunction(const std::string& name, RubyNativeFunction fn);

    const std::string* getStringConstantPtr(const Program& program, int32_t index) const;
    const std::string& requireStringConstant(const Program& program, int32_t index, uint32_t line) const;
    static RubyValue makeScriptFunction(const std::string& name, int32_t functionIndex, std::shared_ptr<Program> program);
    static RubyValue makeNativeFunction(const std::string& name, RubyNativeFunction fn);
    static RubyValue makeFunctionValue(std::shared_ptr<RubyFunctionHandle> handle);

    // Reads a global through the slot cache of one instruction; raises the undefined message.
    const RubyValue& loadGlobal(const Program& program, uint64_t& cache, int32_t nameConstant, uint32_t line);
    void storeGlobal(const Program& program, uint64_t& cache, int32_t nameConstant, uint32_t line, const RubyValue& value);

    RubyValue executeFunction(const std::shared_ptr<Program>& program, int32_t functionIndex, const RubyValue* args,
                              int argCount);
    RubyValue callValue(const Program& program, const RubyValue& callee, const RubyValue* args, int argCount,
                        uint32_t line);
    RubyValue executeFastFunction(const Program& program, CompiledFunction& function, const RubyValue* args,
                                  int argCount);
    RubyValue evaluateFastNode(const Program& program, CompiledFunction& function, int32_t nodeIndex,
                               const RubyValue* args, int argCount);
    bool tryCallValueForPCall(const Program& program, const RubyValue& callee, const RubyValue* args, int argCount,
                              uint32_t line, RubyValue& outValue, std::string& outError, bool& outFailed);

    // The library's functions that the VM runs itself.
    RubyValue callPCall(const Program& program, const RubyValue* args, int argCount, uint32_t line);

    // Where this frame lies on the native stack.
    static uintptr_t nativeStackHere() {
#if defined(__GNUC__)
        return reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
#else
        int marker = 0;
        return reinterpret_cast<uintptr_t>(&marker);
#endif
    }
    // Raises "stack level too deep" when one more call would pass either limit.
    void enterCall() {
        uintptr_t here = nativeStackHere();
        uintptr_t used = stackBase > here ? stackBase - here : here - stackBase;
        if (callDepth >= limits.maxCallDepth || used > limits.maxNativeStackBytes) stackTooDeep();
        ++callDepth;
    }
    [[noreturn]] static void stackTooDeep();

    // One step: a call or a backward jump.
    void step() {
        if (--stepsLeft == 0) stepLimitReached();
    }
    void stepLimitReached();
    void ensureCacheOwner(CompiledFunction& function) {
        if (function.cacheOwner != serial) {
            resetRuntimeCaches(function);
            function.cacheOwner = serial;
        }
    }

    // The run operations: failures end up in the result.
    RubyResult runProgram(const RubyBytecode& bytecode);
    RubyResult callForHost(const RubyValue& callee, const std::vector<RubyValue>& args);
    RubyBytecode compileScript(const std::string& source, const std::string& chunkName) const;
    std::shared_ptr<Program> loadProgram(const std::string& source, const std::string& chunkName) const;

private:
    RubyValue runVerified(const std::shared_ptr<Program>& program, CompiledFunction& function, RubyValue* locals,
                          RubyValue* stack);
    RubyValue runChecked(const std::shared_ptr<Program>& program, CompiledFunction& function, RubyValue* locals,
                         size_t localCount);
};

// Library.cpp: the argument checks, and table_set, which the VM runs as a built-in.
constexpr int kNoUpperLimit = -1;
[[noreturn]] void argumentCountError(const char* name, int min, int max);
inline void requireArgumentCount(const char* name, int argCount, int min, int max) {
    if (argCount < min || (max != kNoUpperLimit && argCount > max)) argumentCountError(name, min, max);
}
RubyValue tableSet(const RubyValue* args, int argCount, const RubyLimits& limits);

}  // namespace orvane::ruby
