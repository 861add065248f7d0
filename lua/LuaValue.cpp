// The public value: accessors and its text form.
#include "lua/LuaValue.h"

#include <stdexcept>

#include "lua/Runtime.h"
#include "lua/Value.h"

namespace orvane::lua {

bool LuaValue::isTruthy() const {
    return !(type_ == LuaValueType::Nil || (type_ == LuaValueType::Boolean && !std::get<bool>(data_)));
}

std::string LuaValue::toString() const {
    switch (type_) {
    case LuaValueType::Nil: return "nil";
    case LuaValueType::Integer: return std::to_string(std::get<int64_t>(data_));
    case LuaValueType::Float: return formatFloat(std::get<double>(data_));
    case LuaValueType::Boolean: return std::get<bool>(data_) ? "true" : "false";
    case LuaValueType::String: return std::get<std::string>(data_);
    case LuaValueType::Array: {
        std::string out = "[";
        const Array& array = asArray();
        for (size_t i = 0; i < array.size(); ++i) {
            if (i > 0) out += ", ";
            out += array[i].toString();
        }
        return out + "]";
    }
    case LuaValueType::Map: {
        std::string out = "{";
        bool first = true;
        for (const auto& [key, value] : asMap()) {
            if (!first) out += ", ";
            first = false;
            out += key;
            out += ": ";
            out += value.toString();
        }
        return out + "}";
    }
    case LuaValueType::Function: {
        const auto& handle = std::get<std::shared_ptr<LuaFunctionHandle>>(data_);
        const std::string name = handle ? functionHandleName(*handle) : std::string();
        return "[function " + (name.empty() ? std::string("anonymous") : name) + "]";
    }
    }
    return "nil";
}

int64_t LuaValue::asInteger() const {
    switch (type_) {
    case LuaValueType::Integer: return std::get<int64_t>(data_);
    case LuaValueType::Float: return saturatingInteger(std::get<double>(data_));
    case LuaValueType::Boolean: return std::get<bool>(data_) ? 1 : 0;
    default: throw std::runtime_error("value is not numeric");
    }
}

double LuaValue::asFloat() const {
    switch (type_) {
    case LuaValueType::Integer: return double(std::get<int64_t>(data_));
    case LuaValueType::Float: return std::get<double>(data_);
    case LuaValueType::Boolean: return std::get<bool>(data_) ? 1.0 : 0.0;
    default: throw std::runtime_error("value is not numeric");
    }
}

bool LuaValue::asBoolean() const {
    if (type_ != LuaValueType::Boolean) throw std::runtime_error("value is not boolean");
    return std::get<bool>(data_);
}

const std::string& LuaValue::asString() const {
    if (type_ != LuaValueType::String) throw std::runtime_error("value is not a string");
    return std::get<std::string>(data_);
}

LuaValue::Array& LuaValue::asArray() {
    if (type_ != LuaValueType::Array) throw std::runtime_error("value is not an array");
    return *std::get<std::shared_ptr<Array>>(data_);
}

const LuaValue::Array& LuaValue::asArray() const {
    if (type_ != LuaValueType::Array) throw std::runtime_error("value is not an array");
    return *std::get<std::shared_ptr<Array>>(data_);
}

LuaValue::Map& LuaValue::asMap() {
    if (type_ != LuaValueType::Map) throw std::runtime_error("value is not a map");
    return *std::get<std::shared_ptr<Map>>(data_);
}

const LuaValue::Map& LuaValue::asMap() const {
    if (type_ != LuaValueType::Map) throw std::runtime_error("value is not a map");
    return *std::get<std::shared_ptr<Map>>(data_);
}

const std::shared_ptr<LuaFunctionHandle>& LuaValue::asFunction() const {
    if (type_ != LuaValueType::Function) throw std::runtime_error("value is not a function");
    return std::get<std::shared_ptr<LuaFunctionHandle>>(data_);
}

}  // namespace orvane::lua
