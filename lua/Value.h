// The value model of OrvaneLua: the tagged Value, table keys, the two-part Table, the small
// inline stores that carry values between calls, and the number rules. Internal to lua/.
#pragma once

#include <cstddef>
#include <climits>
#include <cstdint>
#include <new>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace orvane::lua {

struct Table;
struct LuaFunctionHandle;
struct NativeObject;
struct IteratorState;

// The difference between 1 and the next double: the tolerance of every "whole number" test.
inline constexpr double kDoubleEpsilon = 2.220446049250313e-16;

enum class ValueType : uint8_t { Nil, Integer, Float, Boolean, String, Table, Function, UserData, Iterator };

using StringPtr = std::shared_ptr<const std::string>;

// One byte of tag and a payload; heap kinds share their object by reference count. Kept at
// 24 bytes, so that copying a number is a tag test and one word.
class Value {
public:
    Value() noexcept : tag_(ValueType::Nil) { payload_.integer = 0; }
    [[gnu::always_inline]] Value(const Value& other) : tag_(other.tag_) {
        if (tag_ < ValueType::String) payload_.integer = other.payload_.integer;
        else copyHeap(other);
    }
    [[gnu::always_inline]] Value(Value&& other) noexcept : tag_(other.tag_) {
        if (tag_ < ValueType::String) payload_.integer = other.payload_.integer;
        else moveHeap(std::move(other));
    }
    [[gnu::always_inline]] Value& operator=(const Value& other) {
        if (tag_ < ValueType::String && other.tag_ < ValueType::String) {
            tag_ = other.tag_;
            payload_.integer = other.payload_.integer;
        } else if (this != &other) {
            assignHeap(other);
        }
        return *this;
    }
    [[gnu::always_inline]] Value& operator=(Value&& other) noexcept {
        if (this != &other) {
            if (tag_ >= ValueType::String) destroyHeap();
            tag_ = other.tag_;
            if (tag_ < ValueType::String) payload_.integer = other.payload_.integer;
            else moveHeap(std::move(other));
        }
        return *this;
    }
    [[gnu::always_inline]] ~Value() {
        if (tag_ >= ValueType::String) destroyHeap();
    }

    static Value integer(int64_t v) {
        Value r;
        r.tag_ = ValueType::Integer;
        r.payload_.integer = v;
        return r;
    }
    static Value number(double v) {
        Value r;
        r.tag_ = ValueType::Float;
        r.payload_.number = v;
        return r;
    }
    static Value boolean(bool v) {
        Value r;
        r.tag_ = ValueType::Boolean;
        r.payload_.integer = 0;
        r.payload_.boolean = v;
        return r;
    }
    static Value string(std::string text);
    static Value string(StringPtr text);
    static Value table(std::shared_ptr<Table> table);
    static Value function(std::shared_ptr<LuaFunctionHandle> handle);
    static Value userData(std::shared_ptr<NativeObject> object);
    static Value iterator(std::shared_ptr<IteratorState> state);

    ValueType type() const { return tag_; }
    bool isNil() const { return tag_ == ValueType::Nil; }
    bool isTruthy() const {
        return !(tag_ == ValueType::Nil || (tag_ == ValueType::Boolean && !payload_.boolean));
    }
    bool isNumber() const { return tag_ == ValueType::Integer || tag_ == ValueType::Float; }

    // Callers test the tag first.
    int64_t integerValue() const { return payload_.integer; }
    double floatValue() const { return payload_.number; }
    bool booleanValue() const { return payload_.boolean; }
    const std::string& stringValue() const { return *payload_.string; }
    const StringPtr& stringPointer() const { return payload_.string; }
    const std::shared_ptr<Table>& tableValue() const { return payload_.table; }
    Table* tablePointer() const { return payload_.table.get(); }
    const std::shared_ptr<LuaFunctionHandle>& functionValue() const { return payload_.function; }
    const std::shared_ptr<NativeObject>& userDataValue() const { return payload_.userData; }
    const std::shared_ptr<IteratorState>& iteratorValue() const { return payload_.iterator; }

    // Integer to double; a float unchanged; "value is not numeric" otherwise.
    double asFloat() const;
    // Truncation toward zero with saturation; not-a-number gives 0.
    int64_t asInteger() const;
    std::string toString() const;
    // Appends toString() without building a temporary for strings and integers.
    void appendTo(std::string& out) const;

private:
    void copyHeap(const Value& other);
    void assignHeap(const Value& other);
    void moveHeap(Value&& other) noexcept;
    void destroyHeap() noexcept;

    ValueType tag_;
    union Payload {
        int64_t integer;
        double number;
        bool boolean;
        StringPtr string;
        std::shared_ptr<Table> table;
        std::shared_ptr<LuaFunctionHandle> function;
        std::shared_ptr<NativeObject> userData;
        std::shared_ptr<IteratorState> iterator;
        Payload() : integer(0) {}
        ~Payload() {}
    } payload_;
};

std::string describeValueType(const Value& value);

// Double to text as a default-formatted output stream writes it: six significant digits.
std::string formatFloat(double value);

// ---- Table keys ----

struct TableKey {
    uint8_t kind = 1;  // 0 integer, 1 string, 2 boolean
    int64_t integerValue = 0;
    bool booleanValue = false;
    std::string stringValue;

    static TableKey makeInteger(int64_t value);
    static TableKey makeString(std::string value);
    static TableKey makeBoolean(bool value);
    bool operator==(const TableKey& other) const {
        if (kind != other.kind) return false;
        switch (kind) {
        case 0: return integerValue == other.integerValue;
        case 2: return booleanValue == other.booleanValue;
        default: return stringValue == other.stringValue;
        }
    }
};

// A key by reference, for lookups that need not copy a string.
struct TableKeyView {
    uint8_t kind = 1;
    int64_t integerValue = 0;
    bool booleanValue = false;
    std::string_view stringValue;
    TableKeyView() = default;
    TableKeyView(const TableKey& key)  // NOLINT: a key is always viewable
        : kind(key.kind), integerValue(key.integerValue), booleanValue(key.booleanValue),
          stringValue(key.stringValue) {}
};

struct TableKeyHash {
    using is_transparent = void;
    size_t operator()(const TableKey& key) const { return (*this)(TableKeyView(key)); }
    size_t operator()(const TableKeyView& key) const {
        switch (key.kind) {
        case 0: return std::hash<int64_t>()(key.integerValue) ^ size_t(0x13579bdf);
        case 2: return std::hash<bool>()(key.booleanValue) ^ size_t(0x10203040);
        default: return std::hash<std::string_view>()(key.stringValue) ^ size_t(0x2468ace0);
        }
    }
};

struct TableKeyEqual {
    using is_transparent = void;
    static bool same(const TableKeyView& a, const TableKeyView& b) {
        if (a.kind != b.kind) return false;
        switch (a.kind) {
        case 0: return a.integerValue == b.integerValue;
        case 2: return a.booleanValue == b.booleanValue;
        default: return a.stringValue == b.stringValue;
        }
    }
    bool operator()(const TableKey& a, const TableKey& b) const { return a == b; }
    bool operator()(const TableKeyView& a, const TableKey& b) const { return same(a, TableKeyView(b)); }
    bool operator()(const TableKey& a, const TableKeyView& b) const { return same(TableKeyView(a), b); }
};

bool tryMakeKeyFromValue(const Value& value, TableKey& key);
// The same test without building a key; a string key views the value's own bytes.
bool tryMakeKeyView(const Value& value, TableKeyView& key);
std::string keyToString(const TableKey& key);
Value keyToValue(const TableKey& key);
bool parseStrictInteger(const std::string& text, int64_t& out);

// ---- Tables ----

using TableHash = std::unordered_map<TableKey, Value, TableKeyHash, TableKeyEqual>;

// Every live table of a VM is on its registry, so that the VM can break the reference cycles of
// its tables when it ends; the reference counts alone would keep them to the end of the process.
struct TableRegistry;

struct Table {
    std::vector<Value> array;  // element i holds key i + 1; holes are nil
    TableHash hash;
    uint64_t version = 0;  // raised by every write
    uint64_t lengthVersion = UINT64_MAX;
    uint64_t cachedLength = 0;
    // Where the counting of the cached length left the array part: lets an append extend the
    // cached length instead of counting again, with the same result as a full count.
    uint64_t cachedArrayRun = 0;
    // A number no other table of the process has: the inline caches compare it, so that a new
    // table at the address of a dead one never matches.
    uint64_t serial;
    // Raised by every insertion into or erasure from `hash`, which may move its nodes: the
    // pairs iterator then finds its place again by key.
    uint64_t hashEpoch = 0;

    TableRegistry* registry = nullptr;
    Table* previousLive = nullptr;
    Table* nextLive = nullptr;

    Table();
    ~Table();
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
};

struct TableRegistry {
    Table* first = nullptr;
    void add(Table* table);
    void remove(Table* table);
    // Empties every table on the list; tables that only cycles kept alive die on the way.
    void clearAll();
};

bool tryGetArrayIndex(const TableKey& key, uint64_t& index);
bool shouldStoreArrayKey(const Table& table, uint64_t index);
Value tableGetByKey(const Table* table, const TableKey& key);
void tableSetByKey(Table* table, const TableKey& key, Value value);
uint64_t tableSequenceLength(Table* table);
// Fast forms of the above for the evaluator: the same results without building a TableKey.
const Value* tableFind(const Table& table, const TableKeyView& key);
const Value* tableFindIntegerInHash(const Table& table, int64_t key);
inline const Value* tableFindInteger(const Table& table, int64_t key) {
    if (key >= 1 && uint64_t(key) <= table.array.size()) {
        const Value& v = table.array[size_t(key - 1)];
        if (!v.isNil()) return &v;
    }
    if (table.hash.empty()) return nullptr;
    return tableFindIntegerInHash(table, key);
}
void tableSetView(Table* table, const TableKeyView& key, Value value);
void tableSetInteger(Table* table, int64_t key, Value value);

// ---- Numbers ----

// r = a + b in wrapped arithmetic is good when (r < a) equals (b < 0).
inline bool tryAddInt64(int64_t a, int64_t b, int64_t& out) {
    int64_t r = int64_t(uint64_t(a) + uint64_t(b));
    if ((r < a) != (b < 0)) return false;
    out = r;
    return true;
}
// Good when (a < b) equals (r < 0).
inline bool trySubtractInt64(int64_t a, int64_t b, int64_t& out) {
    int64_t r = int64_t(uint64_t(a) - uint64_t(b));
    if ((a < b) != (r < 0)) return false;
    out = r;
    return true;
}
inline bool tryMultiplyInt64(int64_t a, int64_t b, int64_t& out) { return !__builtin_mul_overflow(a, b, &out); }

// Saturating double-to-integer conversion; not-a-number gives 0.
inline int64_t saturatingInteger(double x) {
    if (x != x) return 0;
    if (x >= 9223372036854775807.0) return INT64_MAX;
    if (x <= -9223372036854775808.0) return INT64_MIN;
    return int64_t(x);
}

// wholeNumber for magnitudes from 2 to the 51st up, and for not-a-number and infinities.
bool wholeNumberLarge(double x, int64_t& out);

// Whether x lies within the double epsilon of a whole number r inside the 64-bit range
// (r saturated into it); not-a-number and infinities never do. It runs on nearly every float
// result, so it stays off the maths library and the integer unit: below 2 to the 51st, adding
// and subtracting 1.5 times 2 to the 52nd rounds to the nearest whole number.
[[gnu::always_inline]] inline bool wholeNumber(double x, int64_t& out) {
    if (x > -2251799813685248.0 && x < 2251799813685248.0) {
        constexpr double kRounder = 6755399441055744.0;
        double r = (x + kRounder) - kRounder;  // exact IEEE arithmetic: never folded away
        double d = x - r;
        if (d > kDoubleEpsilon || d < -kDoubleEpsilon) return false;
        out = int64_t(r);
        return true;
    }
    return wholeNumberLarge(x, out);
}

// A whole finite double within the 64-bit range becomes an Integer; all else stays Float.
[[gnu::always_inline]] inline Value numericResult(double x) {
    int64_t r;
    if (wholeNumber(x, r)) return Value::integer(r);
    return Value::number(x);
}
Value addNumbers(const Value& a, const Value& b);
Value subtractNumbers(const Value& a, const Value& b);
Value multiplyNumbers(const Value& a, const Value& b);
Value divideNumbers(const Value& a, const Value& b);
Value moduloNumbers(const Value& a, const Value& b);
Value negateNumber(const Value& a);
bool valuesEqual(const Value& a, const Value& b);

// ---- Small stores ----

// A view of values owned elsewhere.
class ValueSpan {
public:
    ValueSpan() = default;
    ValueSpan(const Value* first, size_t count) : first_(first), count_(count) {}
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    const Value& operator[](size_t i) const { return first_[i]; }
    const Value* begin() const { return first_; }
    const Value* end() const { return first_ + count_; }
    ValueSpan subspan(size_t offset) const {
        if (offset >= count_) return ValueSpan();
        return ValueSpan(first_ + offset, count_ - offset);
    }

private:
    const Value* first_ = nullptr;
    size_t count_ = 0;
};

// N values inline, more in a vector; keeps up to N values off the heap. Only the slots in use
// are constructed, so that an empty store costs next to nothing to make.
template <size_t N>
class SmallValueStore {
public:
    SmallValueStore() = default;
    // `count` nil slots.
    explicit SmallValueStore(size_t count) {
        if (count <= N) {
            for (size_t i = 0; i < count; ++i) new (inlineData() + i) Value();
            inlineSize_ = count;
        } else {
            spill_.assign(count, Value());
            spilled_ = true;
        }
    }
    SmallValueStore(const SmallValueStore& other) { copyFrom(other); }
    SmallValueStore(SmallValueStore&& other) noexcept { moveFrom(std::move(other)); }
    SmallValueStore& operator=(const SmallValueStore& other) {
        if (this != &other) {
            clear();
            copyFrom(other);
        }
        return *this;
    }
    SmallValueStore& operator=(SmallValueStore&& other) noexcept {
        if (this != &other) {
            clear();
            moveFrom(std::move(other));
        }
        return *this;
    }
    ~SmallValueStore() { destroyInline(); }

    void push(Value value) {
        if (!spilled_) {
            if (inlineSize_ < N) {
                new (inlineData() + inlineSize_) Value(std::move(value));
                ++inlineSize_;
                return;
            }
            spillInline();
        }
        spill_.push_back(std::move(value));
    }
    void assign(std::vector<Value> values) {
        clear();
        if (values.size() <= N) {
            for (auto& v : values) new (inlineData() + inlineSize_++) Value(std::move(v));
        } else {
            spill_ = std::move(values);
            spilled_ = true;
        }
    }
    void resize(size_t count) {
        if (count <= N) {
            if (spilled_) {
                spill_.clear();
                spilled_ = false;
            }
            Value* p = inlineData();
            size_t old = inlineSize_;
            size_t keep = count < old ? count : old;
            for (size_t i = 0; i < keep; ++i) p[i] = Value();
            for (size_t i = count; i < old; ++i) p[i].~Value();
            for (size_t i = old; i < count; ++i) new (p + i) Value();
            inlineSize_ = count;
        } else {
            destroyInline();
            spill_.assign(count, Value());
            spilled_ = true;
        }
    }
    void fillNil() {
        Value* p = data();
        size_t n = size();
        for (size_t i = 0; i < n; ++i) p[i] = Value();
    }
    void clear() {
        destroyInline();
        spill_.clear();
        spilled_ = false;
    }
    size_t size() const { return spilled_ ? spill_.size() : inlineSize_; }
    bool empty() const { return size() == 0; }
    Value* data() { return spilled_ ? spill_.data() : inlineData(); }
    const Value* data() const { return spilled_ ? spill_.data() : inlineData(); }
    Value& operator[](size_t i) { return data()[i]; }
    const Value& operator[](size_t i) const { return data()[i]; }
    Value* begin() { return data(); }
    Value* end() { return data() + size(); }
    const Value* begin() const { return data(); }
    const Value* end() const { return data() + size(); }
    ValueSpan span() const { return ValueSpan(data(), size()); }

private:
    Value* inlineData() { return reinterpret_cast<Value*>(storage_); }
    const Value* inlineData() const { return reinterpret_cast<const Value*>(storage_); }
    void destroyInline() {
        Value* p = inlineData();
        for (size_t i = 0; i < inlineSize_; ++i) p[i].~Value();
        inlineSize_ = 0;
    }
    void spillInline() {
        spill_.clear();
        spill_.reserve(inlineSize_ < 4 ? 4 : inlineSize_ * 2);
        Value* p = inlineData();
        for (size_t i = 0; i < inlineSize_; ++i) spill_.push_back(std::move(p[i]));
        destroyInline();
        spilled_ = true;
    }
    void copyFrom(const SmallValueStore& other) {
        if (other.spilled_) {
            spill_ = other.spill_;
            spilled_ = true;
        } else {
            for (size_t i = 0; i < other.inlineSize_; ++i) new (inlineData() + i) Value(other.inlineData()[i]);
            inlineSize_ = other.inlineSize_;
        }
    }
    void moveFrom(SmallValueStore&& other) {
        if (other.spilled_) {
            spill_ = std::move(other.spill_);
            spilled_ = true;
            other.spill_.clear();
            other.spilled_ = false;
        } else {
            for (size_t i = 0; i < other.inlineSize_; ++i)
                new (inlineData() + i) Value(std::move(other.inlineData()[i]));
            inlineSize_ = other.inlineSize_;
            other.destroyInline();
        }
    }

    alignas(Value) unsigned char storage_[N * sizeof(Value)];
    size_t inlineSize_ = 0;
    bool spilled_ = false;
    std::vector<Value> spill_;
};

template <size_t N>
ValueSpan spanOf(const SmallValueStore<N>& store) {
    return ValueSpan(store.data(), store.size());
}

// The values of a call or an expression list.
class MultiValue {
public:
    MultiValue() = default;
    explicit MultiValue(Value value) { store_.push(std::move(value)); }
    MultiValue(std::initializer_list<Value> values) {
        for (const auto& v : values) store_.push(v);
    }
    explicit MultiValue(std::vector<Value> values) { store_.assign(std::move(values)); }
    size_t size() const { return store_.size(); }
    bool empty() const { return store_.empty(); }
    Value& operator[](size_t i) { return store_[i]; }
    const Value& operator[](size_t i) const { return store_[i]; }
    Value* begin() { return store_.begin(); }
    Value* end() { return store_.end(); }
    const Value* begin() const { return store_.begin(); }
    const Value* end() const { return store_.end(); }
    ValueSpan span() const { return spanOf(store_); }
    void push(Value value) { store_.push(std::move(value)); }

private:
    SmallValueStore<2> store_;
};

inline Value firstOrNil(const MultiValue& multi) { return multi.empty() ? Value() : multi[0]; }
inline Value firstOrNil(MultiValue&& multi) { return multi.empty() ? Value() : std::move(multi[0]); }

}  // namespace orvane::lua
