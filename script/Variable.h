// The one value type of the script world.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace orvane {

enum class VarType : int32_t {
    Nil = 0,
    Int = 1,
    Float = 2,
    String = 3,
    Raw = 4,
    Bool = 5,
    Pointer = 6,
    Array = 7,
    Multi = 8,
    Table = 9,
    Function = 10,
};

struct Variable;
struct MultiResult;
struct ScriptCallable;

using VariableArray = std::vector<Variable>;
using VariableTable = std::unordered_map<std::string, Variable>;
using ArrayPtr = std::shared_ptr<VariableArray>;
using TablePtr = std::shared_ptr<VariableTable>;
using CallablePtr = std::shared_ptr<ScriptCallable>;
using MultiPtr = std::shared_ptr<MultiResult>;

struct Variable {
    using Value = std::variant<int32_t, float, std::string, std::vector<char>, bool, void*, ArrayPtr, TablePtr,
                               CallablePtr, MultiPtr>;

    VarType type = VarType::Nil;
    Value value = int32_t(0);

    Variable() = default;
    Variable(std::nullptr_t) {}
    Variable(int32_t v) : type(VarType::Int), value(v) {}
    Variable(float v) : type(VarType::Float), value(v) {}
    Variable(bool v) : type(VarType::Bool), value(v) {}
    Variable(void* v) : type(VarType::Pointer), value(v) {}
    Variable(const char* v) : type(VarType::String), value(std::string(v)) {}
    Variable(const std::string& v) : type(VarType::String), value(v) {}
    Variable(std::string&& v) : type(VarType::String), value(std::move(v)) {}
    Variable(std::vector<char>&& v) : type(VarType::Raw), value(std::move(v)) {}
    Variable(const VariableArray& v);
    Variable(VariableArray&& v);
    Variable(const VariableTable& v);
    Variable(VariableTable&& v);
    Variable(CallablePtr v) : type(VarType::Function), value(std::move(v)) {}
    Variable(const Variable&) = default;
    Variable(Variable&&) noexcept = default;
    // A container that loses its last owner here is dismantled by a worklist, not by recursion,
    // so a chain of 200,000 nested arrays frees without exhausting the native stack.
    ~Variable() {
        if (value.index() >= kFirstSharedIndex) releaseShared();
    }
    // The old value is let go only after the new one is in place: the new value may live inside
    // the old container (`a = a[1]`), and the old container may be deep.
    Variable& operator=(const Variable& other) {
        if (value.index() < kFirstSharedIndex) {
            type = other.type;
            value = other.value;
        } else if (this != &other) {
            Variable old(std::move(*this));
            type = other.type;
            value = other.value;
        }
        return *this;
    }
    Variable& operator=(Variable&& other) noexcept {
        if (value.index() < kFirstSharedIndex) {
            type = other.type;
            value = std::move(other.value);
        } else if (this != &other) {
            Variable old(std::move(*this));
            type = other.type;
            value = std::move(other.value);
        }
        return *this;
    }

    static Variable makeNil() { return Variable(); }
    static Variable makeArray();
    static Variable makeTable();
    static Variable makeMulti(const VariableArray& values);
    static Variable makeMulti(VariableArray&& values);

    bool isNil() const { return type == VarType::Nil; }
    int32_t asInt() const { return std::get<int32_t>(value); }
    float asFloat() const { return std::get<float>(value); }
    bool asBool() const { return std::get<bool>(value); }
    void* asPointer() const { return std::get<void*>(value); }
    const std::string& asString() const { return std::get<std::string>(value); }
    std::string& asString() { return std::get<std::string>(value); }
    const std::vector<char>& asRaw() const { return std::get<std::vector<char>>(value); }
    const ArrayPtr& asArray() const { return std::get<ArrayPtr>(value); }
    const TablePtr& asTable() const { return std::get<TablePtr>(value); }
    const CallablePtr& asCallable() const { return std::get<CallablePtr>(value); }
    const MultiPtr& asMulti() const { return std::get<MultiPtr>(value); }

    std::string toString() const;

private:
    // Alternatives from ArrayPtr on share a container by reference count.
    static constexpr size_t kFirstSharedIndex = 6;
    void releaseShared() noexcept;
};

struct MultiResult {
    VariableArray values;
};

using NativeFunction = std::function<Variable(const VariableArray&)>;

struct ParsedScriptLine;
struct BytecodeProgram;
struct TokenAnalysis;

// A function object, native or script. Its body lines are complete only in script/ParsedLine.h,
// so the destructor lives out of line.
struct ScriptCallable {
    ScriptCallable() = default;
    ~ScriptCallable();
    bool isNative = true;
    bool isDecay = false;
    bool isVariadic = false;
    NativeFunction nativeFunction;
    std::string name;
    uint8_t builtinId = 0;
    std::vector<std::string> parameters;
    std::shared_ptr<BytecodeProgram> bytecode;
    uint32_t chunkIndex = 0;
    bool isLoadedChunk = false;
    std::vector<ParsedScriptLine> body;
    std::string sourceRoot;
    std::string sourcePath;
    // 0 none, 1 a single `return`, 2 `if` + `error('literal')` + `end` + `return`,
    // 3 `if` + `return` + `end` + `return` (a guard that answers early)
    uint8_t fastBodyKind = 0;
    uint16_t fastGuardLine = 0;
    uint16_t fastReturnLine = 0;
    uint16_t fastGuardReturnLine = 0;  // shape 3: the `return` inside the guard
    std::string fastGuardMessage;
    // Whether a parameter name is also a global, as of a given global count: globals are never
    // removed, so the answer holds until a new global appears.
    mutable size_t shadowCheckedGlobals = ~size_t(0);
    mutable bool parametersShadowGlobals = false;
    // The tokens of the compiled body that name a parameter, with its slot: a call points their
    // name caches straight at its new entries.
    std::vector<std::pair<TokenAnalysis*, uint32_t>> parameterTokens;
};

// The names of a type: as the interpreter prints it, as the bridges name it, as typeOf answers.
const char* typeName(VarType type);
const char* variableTypeName(VarType type);
const char* typeOfName(VarType type);

bool isNumericVariable(const Variable& v);
double toDouble(const Variable& v);
float toFloat(const Variable& v);
int32_t toInt(const Variable& v);
int32_t saturatingInt(double d);
const VariableArray* multiValuesPtr(const Variable& v);
bool isTruthy(const Variable& v);

// "%f" formatting of a 32-bit float, as toString and table keys use it.
std::string formatFloat(float f);

}  // namespace orvane
