// The stack VM: one native call of executeFunction is one script call. A function that the
// reader verified runs in a loop that trusts its operands and stack depths; any other runs in
// the checked loop, which raises when it meets the fault.
#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "ruby/VmImpl.h"

namespace orvane::ruby {
namespace {

using A = RubyValueAccess;

std::atomic<uint64_t> nextSerial{1};

// Frames go back to the frame stack however the call ends.
struct FrameGuard {
    FrameStack& frames;
    RubyValue* base;
    size_t count;
    FrameStack::Mark mark;
    ~FrameGuard() { frames.release(base, count, mark); }
};

// One level of script call, counted against the depth limits, and one step.
struct CallGuard {
    CallGuard(RubyVM::Impl& vm) : vm(vm) {
        vm.enterCall();
        vm.step();
    }
    ~CallGuard() { --vm.callDepth; }
    RubyVM::Impl& vm;
};

// The outermost run or call starts the step count afresh.
struct RunScope {
    explicit RunScope(RubyVM::Impl& vm) : vm(vm) {
        if (vm.runDepth++ == 0) {
            vm.stepsLeft = vm.limits.maxSteps ? vm.limits.maxSteps + 1 : UINT64_MAX;
            vm.stackBase = RubyVM::Impl::nativeStackHere();
        }
    }
    ~RunScope() { --vm.runDepth; }
    RubyVM::Impl& vm;
};

std::string arityMessage(const CompiledFunction& function, int argCount) {
    return "function '" + function.name + "' expected " + std::to_string(function.parameters.size()) +
           " arguments but received " + std::to_string(argCount);
}

const Program& hostProgram() {
    static const Program program = [] {
        Program p;
        p.chunkName = "<host>";
        return p;
    }();
    return program;
}

}  // namespace

RubyVM::Impl::Impl(RubyVM* owner) : owner(owner), serial(nextSerial++) {
    // Slot 0 belongs to no name and is never assigned (kUnresolvedGlobal).
    slotValues.emplace_back();
    A::markUnset(slotValues.back());
}

void RubyVM::Impl::stackTooDeep() { throw std::runtime_error("stack level too deep"); }

void RubyVM::Impl::stepLimitReached() {
    if (limits.maxSteps == 0) {
        stepsLeft = UINT64_MAX;
        return;
    }
    // Every later step fails too, so that a script can't go on by catching this.
    stepsLeft = 1;
    throw std::runtime_error("step limit exceeded");
}

uint64_t RubyVM::Impl::ensureGlobalSlot(const std::string& name) {
    auto found = globalSlots.find(name);
    if (found != globalSlots.end()) return found->second;
    uint64_t slot = slotValues.size();
    globalSlots.emplace(name, slot);
    slotValues.emplace_back();
    A::markUnset(slotValues.back());
    return slot;
}

uint64_t RubyVM::Impl::resolveGlobalSlot(const std::string& name) const {
    auto found = globalSlots.find(name);
    return found == globalSlots.end() ? kNoGlobalSlot : found->second;
}

void RubyVM::Impl::setGlobalSlotValue(uint64_t slot, const RubyValue& value) {
    while (slotValues.size() <= slot) {
        slotValues.emplace_back();
        A::markUnset(slotValues.back());
    }
    slotValues[slot] = value;
}

bool RubyVM::Impl::getGlobal(const std::string& name, RubyValue& out) const {
    const RubyValue* value = getGlobalBySlot(resolveGlobalSlot(name));
    if (!value) return false;
    out = *value;
    return true;
}

void RubyVM::Impl::setGlobal(const std::string& name, const RubyValue& value) {
    setGlobalSlotValue(ensureGlobalSlot(name), value);
}

void RubyVM::Impl::bindFunction(const std::string& name, RubyNativeFunction fn) {
    setGlobal(name, makeNativeFunction(name, std::move(fn)));
}

const std::string* RubyVM::Impl::getStringConstantPtr(const Program& program, int32_t index) const {
    if (index < 0 || static_cast<size_t>(index) >= program.constants.size()) return nullptr;
    const RubyValue& value = program.constants[static_cast<size_t>(index)];
    return value.isString() ? &A::string(value) : nullptr;
}

const std::string& RubyVM::Impl::requireStringConstant(const Program& program, int32_t index, uint32_t line) const {
    if (index < 0 || static_cast<size_t>(index) >= program.constants.size())
        runtimeError(program, line, "constant index is out of range");
    const RubyValue& value = program.constants[static_cast<size_t>(index)];
    if (!value.isString()) runtimeError(program, line, "constant is not a string");
    return A::string(value);
}

RubyValue RubyVM::Impl::makeScriptFunction(const std::string& name, int32_t functionIndex,
                                           std::shared_ptr<Program> program) {
    auto handle = std::make_shared<RubyFunctionHandle>();
    handle->kind = 0;
    handle->functionIndex = functionIndex;
    handle->program = std::move(program);
    handle->name = name;
    return makeFunctionValue(std::move(handle));
}

RubyValue RubyVM::Impl::makeNativeFunction(const std::string& name, RubyNativeFunction fn) {
    auto handle = std::make_shared<RubyFunctionHandle>();
    handle->kind = 1;
    if (name == "error") handle->builtin = 1;
    else if (name == "pcall") handle->builtin = 2;
    else if (name == "table_set") handle->builtin = 3;
    handle->native = std::move(fn);
    handle->name = name;
    return makeFunctionValue(std::move(handle));
}

RubyValue RubyVM::Impl::makeFunctionValue(std::shared_ptr<RubyFunctionHandle> handle) {
    return RubyValue(std::move(handle));
}

const RubyValue& RubyVM::Impl::loadGlobal(const Program& program, uint64_t& cache, int32_t nameConstant, uint32_t line) {
    if (const RubyValue* value = getGlobalBySlot(cache)) return *value;
    const std::string& name = requireStringConstant(program, nameConstant, line);
    uint64_t slot = resolveGlobalSlot(name);
    const RubyValue* value = getGlobalBySlot(slot);
    if (!value) runtimeError(program, line, "undefined variable or function '" + name + "'");
    cache = slot;
    return *value;
}

void RubyVM::Impl::storeGlobal(const Program& program, uint64_t& cache, int32_t nameConstant, uint32_t line,
                               const RubyValue& value) {
    if (cache == kUnresolvedGlobal || cache >= slotValues.size())
        cache = ensureGlobalSlot(requireStringConstant(program, nameConstant, line));
    slotValues[cache] = value;
}

RubyValue RubyVM::Impl::executeFunction(const std::shared_ptr<Program>& programPtr, int32_t functionIndex,
                                        const RubyValue* args, int argCount) {
    if (!programPtr) throw std::runtime_error("script function program is missing");
    Program& program = *programPtr;
    if (functionIndex < 0 || static_cast<size_t>(functionIndex) >= program.functions.size())
        runtimeError(program, 0, "function index is out of range");
    CompiledFunction& function = program.functions[static_cast<size_t>(functionIndex)];
    if (argCount < 0 || static_cast<size_t>(argCount) != function.parameters.size())
        runtimeError(program, 0, arityMessage(function, argCount));
    CallGuard call(*this);
    ensureCacheOwner(function);

    const bool unchecked = function.verified && mode != RubyExecutionMode::Checked;
    const size_t localCount = function.frameLocals;
    const size_t frameSize = localCount + (unchecked ? function.maxStack : 0);
    FrameStack::Mark mark;
    RubyValue* base = frames.acquire(frameSize, mark);
    FrameGuard guard{frames, base, frameSize, mark};
    for (int i = 0; i < argCount; ++i) base[i] = args[i];
    for (size_t i = static_cast<size_t>(argCount); i < localCount; ++i) A::markUnset(base[i]);
    if (unchecked) return runVerified(programPtr, function, base, base + localCount);
    return runChecked(programPtr, function, base, localCount);
}

RubyValue RubyVM::Impl::runChecked(const std::shared_ptr<Program>& programPtr, CompiledFunction& function,
                                   RubyValue* locals, size_t localCount) {
    const Program& program = *programPtr;
    const auto& code = function.instructions;
    const size_t count = code.size();
    std::vector<RubyValue> stack;
    // Room for the usual depth; a forged function of a million instructions gets no more.
    stack.reserve(std::min<size_t>(std::max<size_t>(count, 8), 256));
    RubyValue lastValue;
    const bool hasLocals = !function.localNames.empty();

    // Only a program that the proof refused gets here, and such a loop could push without end:
    // the stack is charged to the frame budget as it grows, a block at a time.
    struct Charge {
        FrameStack& frames;
        size_t values = 0;
        ~Charge() { frames.refund(values); }
    } charged{frames};
    auto push = [&](RubyValue value, uint32_t line) {
        if (stack.size() >= charged.values) {
            frames.charge(1024);
            charged.values += 1024;
        }
        stack.push_back(std::move(value));
    };
    auto pop = [&](uint32_t line) {
        if (stack.empty()) runtimeError(program, line, "stack underflow");
        RubyValue value = std::move(stack.back());
        stack.pop_back();
        return value;
    };

    size_t pc = 0;
    while (pc < count) {
        const Instruction& ins = code[pc];
        const uint32_t line = ins.line;
        switch (ins.opcode) {
        case OpCode::LoadConstant:
            if (ins.a < 0 || static_cast<size_t>(ins.a) >= program.constants.size())
                runtimeError(program, line, "constant index is out of range");
            push(program.constants[static_cast<size_t>(ins.a)], line);
            break;
        case OpCode::LoadName: {
            int32_t slot = function.instructionLocalSlots[pc];
            if (hasLocals && slot >= 0) {
                if (static_cast<size_t>(slot) >= localCount) runtimeError(program, line, "local slot is out of range");
                if (!A::isUnset(locals[slot])) {
                    push(locals[slot], line);
                    break;
                }
            }
            push(loadGlobal(program, function.instructionGlobalSlots[pc], ins.a, line), line);
            break;
        }
        case OpCode::StoreName: {
            if (stack.empty()) runtimeError(program, line, "assignment requires a value");
            int32_t slot = function.instructionLocalSlots[pc];
            if (slot >= 0) {
                if (static_cast<size_t>(slot) >= localCount) runtimeError(program, line, "local slot is out of range");
                locals[slot] = stack.back();
            } else {
                storeGlobal(program, function.instructionGlobalSlots[pc], ins.a, line, stack.back());
            }
            break;
        }
        case OpCode::Pop: lastValue = pop(line); break;
        case OpCode::Add:
        case OpCode::Subtract:
        case OpCode::Multiply:
        case OpCode::Divide:
        case OpCode::Modulo:
        case OpCode::Equal:
        case OpCode::NotEqual:
        case OpCode::Less:
        case OpCode::LessEqual:
        case OpCode::Greater:
        case OpCode::GreaterEqual:
        case OpCode::And:
        case OpCode::Or: {
            RubyValue right = pop(line);
            RubyValue left = pop(line);
            RubyValue result;
            switch (ins.opcode) {
            case OpCode::Add: result = addValues(left, right, program, line, limits); break;
            case OpCode::Subtract: result = subtractValues(left, right, program, line); break;
            case OpCode::Multiply: result = multiplyValues(left, right, program, line); break;
            case OpCode::Divide: result = divideValues(left, right, program, line); break;
            case OpCode::Modulo: result = moduloValues(left, right, program, line); break;
            case OpCode::Equal: result = RubyValue(valuesEqual(left, right)); break;
            case OpCode::NotEqual: result = RubyValue(!valuesEqual(left, right)); break;
            case OpCode::Less: result = RubyValue(compareOrdered(left, right, CompareOp::Less, program, line)); break;
            case OpCode::LessEqual:
                result = RubyValue(compareOrdered(left, right, CompareOp::LessEqual, program, line));
                break;
            case OpCode::Greater:
                result = RubyValue(compareOrdered(left, right, CompareOp::Greater, program, line));
                break;
            case OpCode::GreaterEqual:
                result = RubyValue(compareOrdered(left, right, CompareOp::GreaterEqual, program, line));
                break;
            case OpCode::And: result = RubyValue(left.isTruthy() && right.isTruthy()); break;
            default: result = RubyValue(left.isTruthy() || right.isTruthy()); break;
            }
            stack.push_back(std::move(result));
            break;
        }
        case OpCode::Negate: {
            RubyValue value = pop(line);
            stack.push_back(negateValue(value, program, line));
            break;
        }
        case OpCode::Not: {
            RubyValue value = pop(line);
            stack.push_back(RubyValue(!value.isTruthy()));
            break;
        }
        case OpCode::Jump:
            if (ins.a < 0 || static_cast<size_t>(ins.a) > count) runtimeError(program, line, "jump target is out of range");
            if (static_cast<size_t>(ins.a) <= pc) step();
            pc = static_cast<size_t>(ins.a);
            continue;
        case OpCode::JumpIfFalse: {
            RubyValue condition = pop(line);
            if (!condition.isTruthy()) {
                if (ins.a < 0 || static_cast<size_t>(ins.a) > count)
                    runtimeError(program, line, "conditional jump target is out of range");
                if (static_cast<size_t>(ins.a) <= pc) step();
                pc = static_cast<size_t>(ins.a);
                continue;
            }
            break;
        }
        case OpCode::Call: {
            if (ins.a < 0) runtimeError(program, line, "argument count is invalid");
            if (stack.size() < static_cast<size_t>(ins.a) + 1) runtimeError(program, line, "call stack is incomplete");
            size_t calleeAt = stack.size() - static_cast<size_t>(ins.a) - 1;
            RubyValue result = callValue(program, stack[calleeAt], stack.data() + calleeAt + 1, ins.a, line);
            ensureCacheOwner(function);
            stack.resize(calleeAt);
            stack.push_back(std::move(result));
            break;
        }
        case OpCode::DefineFunction: {
            const std::string& name = requireStringConstant(program, ins.a, line);
            RubyValue value = makeScriptFunction(name, ins.b, programPtr);
            storeGlobal(program, function.instructionGlobalSlots[pc], ins.a, line, value);
            break;
        }
        case OpCode::Return:
            if (stack.empty()) return RubyValue();
            return std::move(stack.back());
        case OpCode::MakeArray: {
            if (ins.a < 0) runtimeError(program, line, "array element count is invalid");
            if (stack.size() < static_cast<size_t>(ins.a)) runtimeError(program, line, "array literal is missing values");
            size_t first = stack.size() - static_cast<size_t>(ins.a);
            RubyArray elements(std::make_move_iterator(stack.begin() + static_cast<ptrdiff_t>(first)),
                               std::make_move_iterator(stack.end()));
            stack.resize(first);
            stack.push_back(RubyValue(std::move(elements)));
            break;
        }
        case OpCode::Index: {
            RubyValue index = pop(line);
            RubyValue object = pop(line);
            stack.push_back(arrayGet(object, index, program, line));
            break;
        }
        default: break;
        }
        ++pc;
    }
    return lastValue;
}

RubyValue RubyVM::Impl::callValue(const Program& program, const RubyValue& callee, const RubyValue* args, int argCount,
                                  uint32_t line) {
    if (!callee.isFunction()) runtimeError(program, line, "attempted to call a non-function value");
    RubyFunctionHandle* handle = A::function(callee);
    if (!handle) runtimeError(program, line, "function handle is empty");
    if (handle->kind != 0) {
        switch (handle->builtin) {
        case 1:
            requireArgumentCount("error", argCount, 0, 1);
            throw std::runtime_error(argCount ? textOf(args[0], limits.maxStringBytes) : std::string("error"));
        case 2: return callPCall(program, args, argCount, line);
        case 3: return tableSet(args, argCount, limits);
        default: break;
        }
        static const std::vector<RubyValue> noArguments;
        if (argCount == 0) return handle->native(*owner, noArguments);
        std::vector<RubyValue> arguments(args, args + argCount);
        return handle->native(*owner, arguments);
    }
    if (!handle->program) throw std::runtime_error("script function program is missing");
    Program& target = *handle->program;
    int32_t index = handle->functionIndex;
    if (index < 0 || static_cast<size_t>(index) >= target.functions.size())
        runtimeError(target, 0, "function index is out of range");
    CompiledFunction& function = target.functions[static_cast<size_t>(index)];
    if (function.fastKind != 0 && mode == RubyExecutionMode::Fast)
        return executeFastFunction(target, function, args, argCount);
    return executeFunction(handle->program, index, args, argCount);
}

RubyValue RubyVM::Impl::callPCall(const Program& program, const RubyValue* args, int argCount, uint32_t line) {
    requireArgumentCount("pcall", argCount, 1, kNoUpperLimit);
    // pcall of pcall of pcall... nests natively with no script call between: it counts as one.
    enterCall();
    struct Leave {
        int& depth;
        ~Leave() { --depth; }
    } leave{callDepth};
    RubyValue value;
    std::string error;
    bool failed = false;
    try {
        if (!tryCallValueForPCall(program, args[0], args + 1, argCount - 1, line, value, error, failed))
            value = callValue(program, args[0], args + 1, argCount - 1, line);
        else if (failed)
            return RubyValue(RubyArray{RubyValue(false), RubyValue(std::move(error))});
    } catch (const std::exception& e) {
        return RubyValue(RubyArray{RubyValue(false), RubyValue(e.what())});
    }
    return RubyValue(RubyArray{RubyValue(true), std::move(value)});
}

RubyBytecode RubyVM::Impl::compileScript(const std::string& source, const std::string& chunkName) const {
    return serializeProgram(compileProgram(source, chunkName));
}

std::shared_ptr<Program> RubyVM::Impl::loadProgram(const std::string& source, const std::string& chunkName) const {
    return std::make_shared<Program>(deserializeProgram(compileScript(source, chunkName)));
}

RubyResult RubyVM::Impl::runProgram(const RubyBytecode& bytecode) {
    RubyResult result;
    RunScope scope(*this);
    try {
        auto program = std::make_shared<Program>(deserializeProgram(bytecode));
        result.value = executeFunction(program, 0, nullptr, 0);
        result.success = true;
    } catch (const std::exception& e) {
        result.success = false;
        result.value = RubyValue();
        result.error = e.what();
    }
    return result;
}

RubyResult RubyVM::Impl::callForHost(const RubyValue& callee, const std::vector<RubyValue>& args) {
    RubyResult result;
    RunScope scope(*this);
    try {
        result.value = callValue(hostProgram(), callee, args.data(), static_cast<int>(args.size()), 0);
        result.success = true;
    } catch (const std::exception& e) {
        result.success = false;
        result.value = RubyValue();
        result.error = e.what();
    }
    return result;
}

// The public class.

RubyVM::RubyVM() : impl_(std::make_unique<Impl>(this)) { impl_->bindDefaults(); }
RubyVM::~RubyVM() = default;

RubyVM::RubyVM(RubyVM&& other) noexcept : impl_(std::move(other.impl_)) {
    if (impl_) impl_->owner = this;
}

RubyVM& RubyVM::operator=(RubyVM&& other) noexcept {
    if (this != &other) {
        impl_ = std::move(other.impl_);
        if (impl_) impl_->owner = this;
    }
    return *this;
}

void RubyVM::bindFunction(const std::string& name, RubyNativeFunction fn) { impl_->bindFunction(name, std::move(fn)); }
void RubyVM::setGlobal(const std::string& name, const RubyValue& value) { impl_->setGlobal(name, value); }
bool RubyVM::getGlobal(const std::string& name, RubyValue& out) const { return impl_->getGlobal(name, out); }

RubyBytecode RubyVM::compileScript(const std::string& source, const std::string& chunkName) const {
    return impl_->compileScript(source, chunkName);
}

bool RubyVM::writeBytecodeFile(const std::string& source, const std::string& outputPath, const std::string& chunkName,
                               std::string* error) const {
    try {
        RubyBytecode bytecode = compileScript(source, chunkName);
        std::ofstream out(outputPath, std::ios::binary);
        if (!out) throw std::runtime_error("unable to open bytecode output file: " + outputPath);
        if (!bytecode.bytes.empty())
            out.write(reinterpret_cast<const char*>(bytecode.bytes.data()),
                      static_cast<std::streamsize>(bytecode.bytes.size()));
        return true;
    } catch (const std::exception& e) {
        if (error) *error = e.what();
        return false;
    }
}

RubyResult RubyVM::runScriptString(const std::string& source, const std::string& chunkName) {
    RubyBytecode bytecode;
    try {
        bytecode = compileScript(source, chunkName);
    } catch (const std::exception& e) {
        RubyResult result;
        result.error = e.what();
        return result;
    }
    return runBytecode(bytecode);
}

RubyResult RubyVM::runScriptFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        RubyResult result;
        result.error = "unable to open script file: " + path;
        return result;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return runScriptString(text.str(), path);
}

RubyResult RubyVM::runBytecode(const RubyBytecode& bytecode) { return impl_->runProgram(bytecode); }

RubyResult RubyVM::runBytecodeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    RubyResult failed;
    failed.error = "unable to open bytecode file: " + path;
    if (!in) return failed;
    in.seekg(0, std::ios::end);
    std::streamoff size = in.tellg();
    if (size < 0) return failed;
    in.seekg(0, std::ios::beg);
    RubyBytecode bytecode;
    bytecode.bytes.resize(static_cast<size_t>(size));
    if (size > 0 && !in.read(reinterpret_cast<char*>(bytecode.bytes.data()), size)) return failed;
    return runBytecode(bytecode);
}

RubyResult RubyVM::runScriptFromBytecodeFile(const std::string& path) { return runBytecodeFile(path); }

RubyResult RubyVM::call(const RubyValue& callee, const std::vector<RubyValue>& args) {
    return impl_->callForHost(callee, args);
}

std::string RubyVM::valueToString(const RubyValue& value) const { return value.toString(); }

void RubyVM::setLimits(const RubyLimits& limits) { impl_->limits = limits; }
const RubyLimits& RubyVM::limits() const { return impl_->limits; }
void RubyVM::setExecutionMode(RubyExecutionMode mode) { impl_->mode = mode; }
RubyExecutionMode RubyVM::executionMode() const { return impl_->mode; }

void bindCppFunctionToRubyVM(RubyVM& vm, const std::string& name, RubyNativeFunction fn) {
    vm.bindFunction(name, std::move(fn));
}
RubyResult runRubyScriptString(RubyVM& vm, const std::string& source, const std::string& chunkName) {
    return vm.runScriptString(source, chunkName);
}
RubyResult runRubyScriptFile(RubyVM& vm, const std::string& path) { return vm.runScriptFile(path); }
RubyResult runRubyBytecode(RubyVM& vm, const RubyBytecode& bytecode) { return vm.runBytecode(bytecode); }
RubyResult runRubyScriptFromBytecodeFile(RubyVM& vm, const std::string& path) {
    return vm.runScriptFromBytecodeFile(path);
}
RubyResult runRubyBytecodeFile(RubyVM& vm, const std::string& path) { return vm.runBytecodeFile(path); }

}  // namespace orvane::ruby
