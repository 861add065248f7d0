// The one value of OrvaneRuby, which is also what the VM hands to its host. Scalars live in the
// value itself; strings, arrays, maps and functions are shared objects. A string is never changed
// in place, so sharing it is the same as copying it; an array or a map is changed in place, and
// every holder sees the change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvane::ruby {

class RubyVM;
class RubyValue;
struct RubyFunctionHandle;

// The numbers are those of the bytecode's constant tags.
enum class RubyValueType : uint8_t { Nil, Integer, Float, Boolean, String, Array, Map, Function };

using RubyArray = std::vector<RubyValue>;
using RubyMap = std::unordered_map<std::string, RubyValue>;
using RubyNativeFunction = std::function<RubyValue(RubyVM&, const std::vector<RubyValue>&)>;

class RubyValue {
public:
    RubyValue() noexcept : type_(RubyValueType::Nil) { words_[0] = words_[1] = 0; }
    RubyValue(std::nullptr_t) noexcept : RubyValue() {}
    RubyValue(int value) noexcept : RubyValue(static_cast<long long>(value)) {}
    RubyValue(long value) noexcept : RubyValue(static_cast<long long>(value)) {}
    RubyValue(long long value) noexcept : type_(RubyValueType::Integer) {
        words_[1] = 0;
        integer_ = static_cast<int64_t>(value);
    }
    RubyValue(double value) noexcept : type_(RubyValueType::Float) {
        words_[1] = 0;
        number_ = value;
    }
    RubyValue(bool value) noexcept : type_(RubyValueType::Boolean) {
        words_[0] = words_[1] = 0;
        boolean_ = value;
    }
    RubyValue(const char* text);
    RubyValue(std::string text);
    RubyValue(const RubyArray& elements);
    RubyValue(RubyArray&& elements);
    RubyValue(const RubyMap& entries);
    RubyValue(RubyMap&& entries);
    explicit RubyValue(std::shared_ptr<RubyFunctionHandle> handle);

    RubyValue(const RubyValue& other) noexcept : type_(other.type_) {
        if (other.isShared()) {
            new (&shared_) std::shared_ptr<void>(other.shared_);
        } else {
            words_[0] = other.words_[0];
            words_[1] = other.words_[1];
        }
    }
    RubyValue(RubyValue&& other) noexcept : type_(other.type_) {
        if (other.isShared()) {
            new (&shared_) std::shared_ptr<void>(std::move(other.shared_));
            other.shared_.~shared_ptr();
            other.type_ = RubyValueType::Nil;
        } else {
            words_[0] = other.words_[0];
            words_[1] = other.words_[1];
        }
    }
    RubyValue& operator=(const RubyValue& other) noexcept {
        if (this != &other) {
            RubyValue copy(other);
            *this = std::move(copy);
        }
        return *this;
    }
    RubyValue& operator=(RubyValue&& other) noexcept {
        if (this != &other) {
            release();
            type_ = other.type_;
            if (other.isShared()) {
                new (&shared_) std::shared_ptr<void>(std::move(other.shared_));
                other.shared_.~shared_ptr();
                other.type_ = RubyValueType::Nil;
            } else {
                words_[0] = other.words_[0];
                words_[1] = other.words_[1];
            }
        }
        return *this;
    }
    ~RubyValue() { release(); }

    static RubyValue makeArray();
    static RubyValue makeMap();

    RubyValueType type() const { return type_; }
    bool isNil() const { return type_ == RubyValueType::Nil; }
    bool isInteger() const { return type_ == RubyValueType::Integer; }
    bool isFloat() const { return type_ == RubyValueType::Float; }
    bool isBoolean() const { return type_ == RubyValueType::Boolean; }
    bool isString() const { return type_ == RubyValueType::String; }
    bool isArray() const { return type_ == RubyValueType::Array; }
    bool isMap() const { return type_ == RubyValueType::Map; }
    bool isFunction() const { return type_ == RubyValueType::Function; }
    // Integers, floats and booleans: a boolean counts as 1 or 0 wherever a number is taken.
    bool isNumeric() const {
        return type_ == RubyValueType::Integer || type_ == RubyValueType::Float || type_ == RubyValueType::Boolean;
    }
    // All but nil and false.
    bool isTruthy() const {
        return !(type_ == RubyValueType::Nil || (type_ == RubyValueType::Boolean && !boolean_));
    }

    // Arrays as "[1, 2]", maps as "{k: v}" in the map's own order; a container met again inside
    // itself is written "[...]" or "{...}". Raises past 200 levels of nesting, and past 1 GiB.
    std::string toString() const;
    // Booleans read as 1 or 0; a float is truncated toward zero and held to the 64-bit range.
    int64_t asInteger() const;
    double asFloat() const;
    bool asBoolean() const;
    const std::string& asString() const;
    // The shared container itself: a change through it is seen by every holder.
    RubyArray& asArray() const;
    RubyMap& asMap() const;
    std::shared_ptr<RubyFunctionHandle> asFunction() const;

private:
    friend struct RubyValueAccess;

    bool isShared() const {
        return static_cast<uint8_t>(static_cast<uint8_t>(type_) - static_cast<uint8_t>(RubyValueType::String)) < 4;
    }
    void release() noexcept {
        if (isShared()) shared_.~shared_ptr();
        type_ = RubyValueType::Nil;
    }

    RubyValueType type_;
    union {
        // Scalars use the first word; both words are copied, so the storage is always defined.
        uint64_t words_[2];
        uint64_t bits_;
        int64_t integer_;
        double number_;
        bool boolean_;
        // String, RubyArray, RubyMap or RubyFunctionHandle, by `type_`.
        std::shared_ptr<void> shared_;
    };
};

}  // namespace orvane::ruby
