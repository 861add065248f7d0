// The value that crosses the boundary of OrvaneLua. It has no notion of table: a table that
// leaves the VM becomes an array or a map, and comes back as a new table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace orvane::lua {

// A function of the VM; opaque outside it. It can only be handed back into the VM.
struct LuaFunctionHandle;

enum class LuaValueType : uint8_t { Nil, Integer, Float, Boolean, String, Array, Map, Function };

class LuaValue {
public:
    using Array = std::vector<LuaValue>;
    using Map = std::unordered_map<std::string, LuaValue>;

    LuaValue() = default;
    LuaValue(std::nullptr_t) {}
    LuaValue(int value) : type_(LuaValueType::Integer), data_(int64_t(value)) {}
    LuaValue(long value) : type_(LuaValueType::Integer), data_(int64_t(value)) {}
    LuaValue(long long value) : type_(LuaValueType::Integer), data_(int64_t(value)) {}
    LuaValue(double value) : type_(LuaValueType::Float), data_(value) {}
    LuaValue(bool value) : type_(LuaValueType::Boolean), data_(value) {}
    LuaValue(const char* value) : type_(LuaValueType::String), data_(std::string(value ? value : "")) {}
    LuaValue(const std::string& value) : type_(LuaValueType::String), data_(value) {}
    LuaValue(std::string&& value) : type_(LuaValueType::String), data_(std::move(value)) {}
    LuaValue(const Array& value) : type_(LuaValueType::Array), data_(std::make_shared<Array>(value)) {}
    LuaValue(Array&& value) : type_(LuaValueType::Array), data_(std::make_shared<Array>(std::move(value))) {}
    LuaValue(const Map& value) : type_(LuaValueType::Map), data_(std::make_shared<Map>(value)) {}
    LuaValue(Map&& value) : type_(LuaValueType::Map), data_(std::make_shared<Map>(std::move(value))) {}
    LuaValue(std::shared_ptr<LuaFunctionHandle> handle)
        : type_(LuaValueType::Function), data_(std::move(handle)) {}

    static LuaValue makeArray() { return LuaValue(Array()); }
    static LuaValue makeMap() { return LuaValue(Map()); }

    LuaValueType type() const { return type_; }
    bool isNil() const { return type_ == LuaValueType::Nil; }
    bool isTruthy() const;
    std::string toString() const;

    // Integer unchanged, Float truncated toward zero with saturation, Boolean 0 or 1;
    // "value is not numeric" otherwise.
    int64_t asInteger() const;
    double asFloat() const;
    bool asBoolean() const;
    const std::string& asString() const;
    Array& asArray();
    const Array& asArray() const;
    Map& asMap();
    const Map& asMap() const;
    const std::shared_ptr<LuaFunctionHandle>& asFunction() const;

private:
    LuaValueType type_ = LuaValueType::Nil;
    std::variant<std::monostate, int64_t, double, bool, std::string, std::shared_ptr<Array>, std::shared_ptr<Map>,
                 std::shared_ptr<LuaFunctionHandle>>
        data_;
};

}  // namespace orvane::lua
