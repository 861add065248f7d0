// Values, keys, tables and the number rules.
#include "lua/Value.h"

#include <atomic>
#include <charconv>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "lua/Runtime.h"

namespace orvane::lua {

// ---- Value ----

Value Value::string(std::string text) {
    return string(std::make_shared<const std::string>(std::move(text)));
}

Value Value::string(StringPtr text) {
    Value r;
    r.tag_ = ValueType::String;
    new (&r.payload_.string) StringPtr(std::move(text));
    return r;
}

Value Value::table(std::shared_ptr<Table> table) {
    Value r;
    r.tag_ = ValueType::Table;
    new (&r.payload_.table) std::shared_ptr<Table>(std::move(table));
    return r;
}

Value Value::function(std::shared_ptr<LuaFunctionHandle> handle) {
    Value r;
    r.tag_ = ValueType::Function;
    new (&r.payload_.function) std::shared_ptr<LuaFunctionHandle>(std::move(handle));
    return r;
}

Value Value::userData(std::shared_ptr<NativeObject> object) {
    Value r;
    r.tag_ = ValueType::UserData;
    new (&r.payload_.userData) std::shared_ptr<NativeObject>(std::move(object));
    return r;
}

Value Value::iterator(std::shared_ptr<IteratorState> state) {
    Value r;
    r.tag_ = ValueType::Iterator;
    new (&r.payload_.iterator) std::shared_ptr<IteratorState>(std::move(state));
    return r;
}

void Value::copyHeap(const Value& other) {
    switch (tag_) {
    case ValueType::String: new (&payload_.string) StringPtr(other.payload_.string); break;
    case ValueType::Table: new (&payload_.table) std::shared_ptr<Table>(other.payload_.table); break;
    case ValueType::Function:
        new (&payload_.function) std::shared_ptr<LuaFunctionHandle>(other.payload_.function);
        break;
    case ValueType::UserData:
        new (&payload_.userData) std::shared_ptr<NativeObject>(other.payload_.userData);
        break;
    case ValueType::Iterator:
        new (&payload_.iterator) std::shared_ptr<IteratorState>(other.payload_.iterator);
        break;
    default: break;
    }
}

void Value::assignHeap(const Value& other) {
    Value copy(other);
    *this = std::move(copy);
}

void Value::moveHeap(Value&& other) noexcept {
    switch (tag_) {
    case ValueType::String: new (&payload_.string) StringPtr(std::move(other.payload_.string)); break;
    case ValueType::Table:
        new (&payload_.table) std::shared_ptr<Table>(std::move(other.payload_.table));
        break;
    case ValueType::Function:
        new (&payload_.function) std::shared_ptr<LuaFunctionHandle>(std::move(other.payload_.function));
        break;
    case ValueType::UserData:
        new (&payload_.userData) std::shared_ptr<NativeObject>(std::move(other.payload_.userData));
        break;
    case ValueType::Iterator:
        new (&payload_.iterator) std::shared_ptr<IteratorState>(std::move(other.payload_.iterator));
        break;
    default: break;
    }
    // A moved-from shared pointer is empty and its destructor would do nothing; the storage is
    // simply reused as an integer.
    other.tag_ = ValueType::Nil;
    other.payload_.integer = 0;
}

void Value::destroyHeap() noexcept {
    switch (tag_) {
    case ValueType::String: payload_.string.~StringPtr(); break;
    case ValueType::Table: payload_.table.~shared_ptr(); break;
    case ValueType::Function: payload_.function.~shared_ptr(); break;
    case ValueType::UserData: payload_.userData.~shared_ptr(); break;
    case ValueType::Iterator: payload_.iterator.~shared_ptr(); break;
    default: break;
    }
    tag_ = ValueType::Nil;
    payload_.integer = 0;
}

double Value::asFloat() const {
    if (tag_ == ValueType::Integer) return double(payload_.integer);
    if (tag_ == ValueType::Float) return payload_.number;
    throw std::runtime_error("value is not numeric");
}

int64_t Value::asInteger() const {
    if (tag_ == ValueType::Integer) return payload_.integer;
    if (tag_ == ValueType::Float) return saturatingInteger(payload_.number);
    throw std::runtime_error("value is not numeric");
}

namespace {

std::string addressText(const void* p) {
    std::ostringstream out;
    out << p;
    return out.str();
}

void appendInteger(std::string& out, int64_t v) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
    out.append(buffer, result.ptr);
}

}  // namespace

std::string formatFloat(double value) {
    // The general format with six digits is what a default stream writes, and unlike printf
    // it does not follow the C locale.
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    return std::string(buffer, result.ptr);
}

void Value::appendTo(std::string& out) const {
    switch (tag_) {
    case ValueType::String: out += *payload_.string; break;
    case ValueType::Integer: appendInteger(out, payload_.integer); break;
    default: out += toString(); break;
    }
}

std::string Value::toString() const {
    switch (tag_) {
    case ValueType::Nil: return "nil";
    case ValueType::Integer: {
        std::string out;
        appendInteger(out, payload_.integer);
        return out;
    }
    case ValueType::Float: return formatFloat(payload_.number);
    case ValueType::Boolean: return payload_.boolean ? "true" : "false";
    case ValueType::String: return *payload_.string;
    case ValueType::Table: return "table: " + addressText(payload_.table.get());
    case ValueType::Function: {
        const LuaFunctionHandle* handle = payload_.function.get();
        const std::string* name = handle ? &functionHandleName(*handle) : nullptr;
        return "function: " + (name && !name->empty() ? *name : std::string("anonymous"));
    }
    case ValueType::UserData: return "userdata: " + addressText(payload_.userData.get());
    case ValueType::Iterator: return "iterator: " + addressText(payload_.iterator.get());
    }
    return "nil";
}

std::string describeValueType(const Value& value) {
    switch (value.type()) {
    case ValueType::Nil: return "nil";
    case ValueType::Integer:
    case ValueType::Float: return "number";
    case ValueType::Boolean: return "boolean";
    case ValueType::String: return "string";
    case ValueType::Table: return "table";
    case ValueType::Function: return "function";
    case ValueType::UserData: return "userdata";
    case ValueType::Iterator: return "iterator";
    }
    return "nil";
}

bool wholeNumberLarge(double x, int64_t& out) {
    if (x > -9007199254740992.0 && x < 9007199254740992.0) {
        // From 2 to the 51st to 2 to the 53rd a double is whole or a half.
        int64_t t = int64_t(x);
        if (double(t) != x) return false;
        out = t;
        return true;
    }
    if (x >= -9223372036854775808.0 && x <= 9223372036854775808.0) {
        out = saturatingInteger(x);
        return true;
    }
    return false;
}

// ---- Keys ----

TableKey TableKey::makeInteger(int64_t value) {
    TableKey key;
    key.kind = 0;
    key.integerValue = value;
    return key;
}

TableKey TableKey::makeString(std::string value) {
    TableKey key;
    key.kind = 1;
    key.stringValue = std::move(value);
    return key;
}

TableKey TableKey::makeBoolean(bool value) {
    TableKey key;
    key.kind = 2;
    key.booleanValue = value;
    return key;
}

namespace {

// A float that is a whole number within the tolerance and inside the 64-bit range.
bool floatToKeyInteger(double x, int64_t& out) { return wholeNumber(x, out); }

}  // namespace

bool tryMakeKeyView(const Value& value, TableKeyView& key) {
    switch (value.type()) {
    case ValueType::Integer:
        key.kind = 0;
        key.integerValue = value.integerValue();
        return true;
    case ValueType::Float:
        key.kind = 0;
        return floatToKeyInteger(value.floatValue(), key.integerValue);
    case ValueType::String:
        key.kind = 1;
        key.stringValue = value.stringValue();
        return true;
    case ValueType::Boolean:
        key.kind = 2;
        key.booleanValue = value.booleanValue();
        return true;
    default: return false;
    }
}

bool tryMakeKeyFromValue(const Value& value, TableKey& key) {
    TableKeyView view;
    if (!tryMakeKeyView(value, view)) return false;
    key.kind = view.kind;
    key.integerValue = view.kind == 0 ? view.integerValue : 0;
    key.booleanValue = view.kind == 2 ? view.booleanValue : false;
    key.stringValue.assign(view.kind == 1 ? view.stringValue : std::string_view());
    return true;
}

std::string keyToString(const TableKey& key) {
    switch (key.kind) {
    case 0: return std::to_string(key.integerValue);
    case 2: return key.booleanValue ? "true" : "false";
    default: return key.stringValue;
    }
}

Value keyToValue(const TableKey& key) {
    switch (key.kind) {
    case 0: return Value::integer(key.integerValue);
    case 2: return Value::boolean(key.booleanValue);
    default: return Value::string(key.stringValue);
    }
}

bool parseStrictInteger(const std::string& text, int64_t& out) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno == ERANGE || end != text.c_str() + text.size()) return false;
    out = v;
    return true;
}

// ---- Tables ----

namespace {
std::atomic<uint64_t> gNextTableSerial{1};
}

Table::Table() : serial(gNextTableSerial.fetch_add(1, std::memory_order_relaxed)) {}

Table::~Table() {
    if (registry) registry->remove(this);
}

void TableRegistry::add(Table* table) {
    table->registry = this;
    table->previousLive = nullptr;
    table->nextLive = first;
    if (first) first->previousLive = table;
    first = table;
}

void TableRegistry::remove(Table* table) {
    if (table->previousLive) table->previousLive->nextLive = table->nextLive;
    else first = table->nextLive;
    if (table->nextLive) table->nextLive->previousLive = table->previousLive;
    table->previousLive = table->nextLive = nullptr;
    table->registry = nullptr;
}

void TableRegistry::clearAll() {
    while (first) {
        Table* table = first;
        remove(table);
        table->version++;
        table->hashEpoch++;
        std::vector<Value> array = std::move(table->array);
        TableHash hash = std::move(table->hash);
        table->array.clear();
        table->hash.clear();
        // `array` and `hash` die here and may take `table` and others with them.
    }
}

bool tryGetArrayIndex(const TableKey& key, uint64_t& index) {
    if (key.kind != 0 || key.integerValue < 1) return false;
    index = uint64_t(key.integerValue);
    return true;
}

bool shouldStoreArrayKey(const Table& table, uint64_t index) {
    if (index == 0) return false;
    uint64_t size = table.array.size();
    return index <= size || index <= size + 8 || index < 65;
}

const Value* tableFindIntegerInHash(const Table& table, int64_t key) {
    TableKeyView view;
    view.kind = 0;
    view.integerValue = key;
    auto it = table.hash.find(view);
    return it == table.hash.end() ? nullptr : &it->second;
}

const Value* tableFind(const Table& table, const TableKeyView& key) {
    if (key.kind == 0) return tableFindInteger(table, key.integerValue);
    if (table.hash.empty()) return nullptr;
    auto it = table.hash.find(key);
    return it == table.hash.end() ? nullptr : &it->second;
}

Value tableGetByKey(const Table* table, const TableKey& key) {
    if (!table) return Value();
    const Value* found = tableFind(*table, TableKeyView(key));
    return found ? *found : Value();
}

namespace {

// The count of tableSequenceLength from position `count`, in the array phase or past it.
void countSequence(Table& table, uint64_t count, bool arrayPhase) {
    if (arrayPhase) {
        while (count < table.array.size() && !table.array[count].isNil()) ++count;
        table.cachedArrayRun = count;
    }
    if (!table.hash.empty()) {
        TableKeyView view;
        view.kind = 0;
        for (;;) {
            view.integerValue = int64_t(count + 1);
            if (table.hash.find(view) == table.hash.end()) break;
            ++count;
        }
    }
    table.cachedLength = count;
    table.lengthVersion = table.version;
}

bool eraseFromHash(Table& table, const TableKeyView& key) {
    if (table.hash.empty()) return false;
    auto it = table.hash.find(key);
    if (it == table.hash.end()) return false;
    table.hash.erase(it);
    table.hashEpoch++;
    return true;
}

// After a write of `key`: keeps the cached length when the write cannot have changed it, and
// extends it when the write appended right behind it; otherwise the next length counts anew.
void carryLength(Table& table, bool wasValid, uint64_t length, const TableKeyView& key, bool nonNil) {
    if (!wasValid) return;
    if (key.kind != 0 || key.integerValue < 1) {
        table.lengthVersion = table.version;
        return;
    }
    uint64_t k = uint64_t(key.integerValue);
    uint64_t run = table.cachedArrayRun;
    if (nonNil) {
        if (k == length + 1) {
            if (run == length) countSequence(table, length, true);
            else countSequence(table, length, false);
        } else if (k <= run || k > length + 1) {
            table.lengthVersion = table.version;
        }
    } else if (k > length) {
        table.lengthVersion = table.version;
    }
}

}  // namespace

void tableSetView(Table* table, const TableKeyView& key, Value value) {
    if (!table) return;
    bool lengthValid = table->lengthVersion == table->version;
    uint64_t length = table->cachedLength;
    bool nonNil = !value.isNil();
    if (key.kind == 0 && key.integerValue >= 1 && shouldStoreArrayKey(*table, uint64_t(key.integerValue))) {
        uint64_t index = uint64_t(key.integerValue);
        if (index > table->array.size()) table->array.resize(size_t(index));
        table->array[size_t(index - 1)] = std::move(value);
        eraseFromHash(*table, key);
        table->version++;
    } else if (nonNil) {
        TableKey owned;
        owned.kind = key.kind;
        owned.integerValue = key.kind == 0 ? key.integerValue : 0;
        owned.booleanValue = key.kind == 2 ? key.booleanValue : false;
        auto it = table->hash.find(key);
        if (it != table->hash.end()) {
            it->second = std::move(value);
        } else {
            if (key.kind == 1) owned.stringValue.assign(key.stringValue);
            table->hash.emplace(std::move(owned), std::move(value));
            table->hashEpoch++;
        }
        table->version++;
    } else {
        if (key.kind == 0 && key.integerValue >= 1 && uint64_t(key.integerValue) <= table->array.size())
            table->array[size_t(key.integerValue - 1)] = Value();
        eraseFromHash(*table, key);
        table->version++;
    }
    carryLength(*table, lengthValid, length, key, nonNil);
}

void tableSetInteger(Table* table, int64_t key, Value value) {
    if (!table) return;
    // The common cases first: an element of the array part, or one appended right behind it,
    // where the array takes the key whatever the value (shouldStoreArrayKey agrees).
    if (key >= 1 && table->hash.empty() && uint64_t(key) <= table->array.size() + 1) {
        bool lengthValid = table->lengthVersion == table->version;
        uint64_t length = table->cachedLength;
        bool nonNil = !value.isNil();
        if (uint64_t(key) == table->array.size() + 1) table->array.push_back(std::move(value));
        else table->array[size_t(key - 1)] = std::move(value);
        table->version++;
        if (lengthValid) {
            TableKeyView view;
            view.kind = 0;
            view.integerValue = key;
            carryLength(*table, true, length, view, nonNil);
        }
        return;
    }
    TableKeyView view;
    view.kind = 0;
    view.integerValue = key;
    tableSetView(table, view, std::move(value));
}

void tableSetByKey(Table* table, const TableKey& key, Value value) {
    tableSetView(table, TableKeyView(key), std::move(value));
}

uint64_t tableSequenceLength(Table* table) {
    if (!table) return 0;
    if (table->lengthVersion == table->version) return table->cachedLength;
    countSequence(*table, 0, true);
    return table->cachedLength;
}

// ---- Numbers ----

Value addNumbers(const Value& a, const Value& b) {
    if (a.type() == ValueType::Integer && b.type() == ValueType::Integer) {
        int64_t r;
        if (tryAddInt64(a.integerValue(), b.integerValue(), r)) return Value::integer(r);
    }
    return numericResult(a.asFloat() + b.asFloat());
}

Value subtractNumbers(const Value& a, const Value& b) {
    if (a.type() == ValueType::Integer && b.type() == ValueType::Integer) {
        int64_t r;
        if (trySubtractInt64(a.integerValue(), b.integerValue(), r)) return Value::integer(r);
    }
    return numericResult(a.asFloat() - b.asFloat());
}

Value multiplyNumbers(const Value& a, const Value& b) {
    if (a.type() == ValueType::Integer && b.type() == ValueType::Integer) {
        int64_t r;
        if (tryMultiplyInt64(a.integerValue(), b.integerValue(), r)) return Value::integer(r);
    }
    return numericResult(a.asFloat() * b.asFloat());
}

Value divideNumbers(const Value& a, const Value& b) { return Value::number(a.asFloat() / b.asFloat()); }

Value moduloNumbers(const Value& a, const Value& b) {
    if (a.type() == ValueType::Integer && b.type() == ValueType::Integer) {
        int64_t x = a.integerValue(), y = b.integerValue();
        // -1 would trap on the lowest integer; 0 is refused by the caller and left to fmod here.
        if (y == -1) return Value::integer(0);
        if (y != 0) return Value::integer(x - (x / y) * y);
    }
    return numericResult(std::fmod(a.asFloat(), b.asFloat()));
}

Value negateNumber(const Value& a) {
    if (a.type() == ValueType::Integer && a.integerValue() != INT64_MIN) return Value::integer(-a.integerValue());
    return numericResult(-a.asFloat());
}

bool valuesEqual(const Value& a, const Value& b) {
    if (a.type() == b.type()) {
        switch (a.type()) {
        case ValueType::Nil: return true;
        case ValueType::Integer: return a.integerValue() == b.integerValue();
        case ValueType::Float: return a.floatValue() == b.floatValue();
        case ValueType::Boolean: return a.booleanValue() == b.booleanValue();
        case ValueType::String:
            return a.stringPointer() == b.stringPointer() || a.stringValue() == b.stringValue();
        case ValueType::Table: return a.tablePointer() == b.tablePointer();
        case ValueType::Function: return a.functionValue() == b.functionValue();
        case ValueType::UserData: return a.userDataValue() == b.userDataValue();
        case ValueType::Iterator: return a.iteratorValue() == b.iteratorValue();
        }
    }
    if (a.isNumber() && b.isNumber()) return std::fabs(a.asFloat() - b.asFloat()) <= kDoubleEpsilon;
    return false;
}

}  // namespace orvane::lua
