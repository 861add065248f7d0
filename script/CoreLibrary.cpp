// The global functions of the language and the library tables, installed by the constructor.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

}  // namespace

// Each interpreter counts its scope epochs from a range of its own: 2^48 of them, a month of a
// new epoch every 10 ns, so lines handed from one interpreter to another never meet an epoch
// they were cached under.
static uint64_t firstScopeEpoch() {
    static std::atomic<uint64_t> interpreters{0};
    return (++interpreters << 48) + 1;
}

OrvaneScript::OrvaneScript() : epochCounter(firstScopeEpoch()), scopeEpoch(epochCounter) {
    std::random_device device;
    randomGenerator.seed(device());
    startTime = std::chrono::steady_clock::now();
    installStandardLibrary();
}

void OrvaneScript::registerLibraryFunction(std::initializer_list<const char*> names,
                                           Variable (OrvaneScript::*function)(const Variable*, size_t)) {
    NativeFunction native = [this, function](const VariableArray& args) { return (this->*function)(args.data(), args.size()); };
    // One function under all its spellings, named by the first.
    Variable callable = makeNativeCallable(native, *names.begin());
    for (const char* name : names) {
        nativeFunctions[name] = native;
        pushVariable(name, callable);
    }
}

Variable OrvaneScript::makeLibraryTable(const std::string& tableName,
                                        std::initializer_list<std::pair<const char*, Variable>> members) {
    VariableTable table;
    table.reserve(members.size());
    for (const auto& [name, value] : members) table.emplace(name, value);
    Variable result(std::move(table));
    pushVariable(tableName, result);
    return result;
}

void OrvaneScript::installStandardLibrary() {
    using S = OrvaneScript;
    registerLibraryFunction({"print"}, &S::printFunction);
    registerLibraryFunction({"getTimeMs"}, &S::getTimeMsFunction);
    registerLibraryFunction({"random"}, &S::randomFunction);
    registerLibraryFunction({"toString", "tostring"}, &S::toStringFunction);
    registerLibraryFunction({"toNumber", "tonumber"}, &S::toNumberFunction);
    registerLibraryFunction({"typeOf", "type"}, &S::typeOfFunction);
    registerLibraryFunction({"pop"}, &S::popFunction);
    registerLibraryFunction({"clear"}, &S::clearFunction);
    registerLibraryFunction({"erase"}, &S::eraseFunction);
    registerLibraryFunction({"contains"}, &S::containsFunction);
    registerLibraryFunction({"keys"}, &S::keysFunction);
    registerLibraryFunction({"values"}, &S::valuesFunction);
    registerLibraryFunction({"assert"}, &S::assertFunction);
    registerLibraryFunction({"error"}, &S::errorFunction);
    registerLibraryFunction({"pcall"}, &S::pcallFunctionFast);
    registerLibraryFunction({"load", "loadstring"}, &S::loadScriptChunk);
    registerLibraryFunction({"loadFile", "loadfile"}, &S::loadScriptFile);
    registerLibraryFunction({"runFile", "dofile"}, &S::runScriptFile);
    registerLibraryFunction({"pairs"}, &S::pairsFunction);
    registerLibraryFunction({"ipairs"}, &S::ipairsFunction);
    registerLibraryFunction({"next"}, &S::nextFunction);
    registerLibraryFunction({"select"}, &S::selectFunctionFast);
    registerLibraryFunction({"collectGarbage", "collectgarbage"}, &S::collectGarbageFunction);
    registerLibraryFunction({"kill"}, &S::killFunction);
    registerLibraryFunction({"array"}, &S::arrayFunction);
    registerLibraryFunction({"len"}, &S::lenFunction);
    registerLibraryFunction({"push"}, &S::pushFunction);
    registerLibraryFunction({"reserve"}, &S::reserveFunction);
    registerLibraryFunction({"get"}, &S::getFunction);
    registerLibraryFunction({"set"}, &S::setFunction);

    pushVariable("ORVANE_VERSION", Variable(0.4f));
    pushVariable("ORVANE_RELEASE", Variable("Beta"));
    pushVariable("ORVANE_NAME", Variable("OrvaneScript"));
    pushVariable("ORVANE_AUTHOR", Variable("Nerys"));

    installLibraryMembers();
}

Variable OrvaneScript::printFunction(const Variable* args, size_t count) {
    std::string line;
    for (size_t i = 0; i < count; ++i) {
        if (i) line += ' ';
        line += args[i].toString();
    }
    line += '\n';
    std::cout << line << std::flush;
    return Variable(int32_t(0));
}

Variable OrvaneScript::getTimeMsFunction(const Variable*, size_t count) {
    if (count != 0) fail("getTimeMs function takes no arguments");
    return Variable(int32_t(uint32_t(uint64_t(elapsedMicroseconds() / 1000))));
}

int64_t OrvaneScript::elapsedMicroseconds() const {
    if (fixedClockMs >= 0) return fixedClockMs * 1000;
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - startTime).count();
}

Variable OrvaneScript::randomFunction(const Variable* args, size_t count) {
    uint32_t draw = randomGenerator();
    if (count == 0) return Variable(float(draw) * 2.3283064e-10f);
    if (count == 1) {
        if (args[0].type != VarType::Int) fail("random function with one argument requires an integer");
        if (args[0].asInt() < 1) fail("random function requires a positive maximum value");
        return Variable(int32_t(draw % uint32_t(args[0].asInt()) + 1u));
    }
    if (count == 2) {
        if (args[0].type != VarType::Int || args[1].type != VarType::Int)
            fail("random function with two arguments requires integers");
        int32_t low = args[0].asInt(), high = args[1].asInt();
        if (low > high) fail("random function requires min <= max");
        uint32_t span = uint32_t(high) - uint32_t(low) + 1u;
        uint32_t offset = span == 0 ? draw : draw % span;
        return Variable(int32_t(offset + uint32_t(low)));
    }
    fail("random function takes 0, 1, or 2 arguments");
}

Variable OrvaneScript::toStringFunction(const Variable* args, size_t count) {
    if (count != 1) fail("toString function requires exactly 1 argument");
    return Variable(args[0].toString());
}

Variable OrvaneScript::toNumberFunction(const Variable* args, size_t count) {
    if (count != 1 && count != 2) fail("toNumber(x[, base]) requires 1 or 2 arguments");
    int32_t base = 10;
    if (count == 2) {
        base = toInt(args[1]);
        if (base < 2 || base > 36) return Variable();
    }
    const Variable& x = args[0];
    switch (x.type) {
    case VarType::Bool: return Variable(int32_t(x.asBool() ? 1 : 0));
    case VarType::Int:
    case VarType::Float: return x;
    case VarType::String: {
        const std::string& text = x.asString();
        if (base == 10) {
            int32_t i;
            if (text.find_first_of(".eE") == std::string::npos && parseIntStrict(text, i)) return Variable(i);
            float f;
            if (parseFloatStrict(text, f)) return Variable(f);
            return Variable();
        }
        if (text.empty()) return Variable();
        errno = 0;
        char* end = nullptr;
        long value = std::strtol(text.c_str(), &end, base);
        if (end != text.c_str() + text.size() || errno == ERANGE) return Variable();
        return Variable(int32_t(uint32_t(uint64_t(value))));
    }
    default: return Variable();
    }
}

Variable OrvaneScript::typeOfFunction(const Variable* args, size_t count) {
    if (count != 1) fail("typeOf(x) requires exactly 1 argument");
    return Variable(typeOfName(args[0].type));
}

Variable OrvaneScript::popFunction(const Variable* args, size_t count) {
    if (count != 1) fail("pop(array) requires exactly 1 argument");
    if (args[0].type != VarType::Array) fail("pop(array): argument must be an array");
    VariableArray& items = *args[0].asArray();
    if (items.empty()) fail("pop(array): array is empty");
    Variable last = std::move(items.back());
    items.pop_back();
    return last;
}

Variable OrvaneScript::clearFunction(const Variable* args, size_t count) {
    if (count != 1) fail("clear(container) requires exactly 1 argument");
    if (args[0].type == VarType::Array) {
        args[0].asArray()->clear();
    } else if (args[0].type == VarType::Table) {
        args[0].asTable()->clear();
        markTableMutated(args[0].asTable().get());
    } else {
        fail("clear(container): container must be an array or table");
    }
    return Variable(int32_t(0));
}

Variable OrvaneScript::eraseFunction(const Variable* args, size_t count) {
    if (count != 2) fail("erase(container, keyOrIndex) requires exactly 2 arguments");
    if (args[0].type == VarType::Array) {
        if (args[1].type != VarType::Int) fail("erase(array, index): index must be an int");
        VariableArray& items = *args[0].asArray();
        int32_t index = args[1].asInt();
        if (index < 1 || size_t(index) > items.size()) return Variable(false);
        items.erase(items.begin() + (index - 1));
        return Variable(true);
    }
    if (args[0].type == VarType::Table) {
        VariableTable& table = *args[0].asTable();
        bool removed = table.erase(keyToString(args[1])) > 0;
        if (removed) markTableMutated(&table);
        return Variable(removed);
    }
    fail("erase(container, keyOrIndex): container must be an array or table");
}

Variable OrvaneScript::containsFunction(const Variable* args, size_t count) {
    if (count != 2) fail("contains(container, valueOrKey) requires exactly 2 arguments");
    if (args[0].type == VarType::Array) {
        for (const Variable& item : *args[0].asArray())
            if (variablesEqual(item, args[1])) return Variable(true);
        return Variable(false);
    }
    if (args[0].type == VarType::Table) return Variable(args[0].asTable()->count(keyToString(args[1])) > 0);
    fail("contains(container, valueOrKey): container must be an array or table");
}

Variable OrvaneScript::keysFunction(const Variable* args, size_t count) {
    if (count != 1 || args[0].type != VarType::Table) fail("keys(table) requires exactly 1 table argument");
    const auto& keys = getSortedTableKeys(args[0].asTable());
    VariableArray result;
    result.reserve(keys.size());
    for (const std::string& key : keys) result.emplace_back(key);
    return Variable(std::move(result));
}

Variable OrvaneScript::valuesFunction(const Variable* args, size_t count) {
    if (count != 1) fail("values(container) requires exactly 1 argument");
    if (args[0].type == VarType::Array) return args[0];
    if (args[0].type != VarType::Table) fail("values(container): container must be an array or table");
    VariableArray result;
    result.reserve(args[0].asTable()->size());
    for (const auto& item : *args[0].asTable()) result.push_back(item.second);
    return Variable(std::move(result));
}

Variable OrvaneScript::assertFunction(const Variable* args, size_t count) {
    if (count == 0) fail("assert requires at least 1 argument");
    if (isTruthy(args[0])) {
        if (count == 1) return args[0];
        return Variable::makeMulti(VariableArray(args, args + count));
    }
    raiseScriptErrorSoft(count > 1 ? args[1].toString() : "assertion failed!");
    return Variable();
}

Variable OrvaneScript::errorFunction(const Variable* args, size_t count) {
    raiseScriptErrorSoft(count > 0 ? args[0].toString() : "error");
    return Variable();
}

Variable OrvaneScript::pairsFunction(const Variable* args, size_t count) {
    if (count != 1) fail("pairs(container) requires exactly 1 argument");
    VariableArray result;
    if (args[0].type == VarType::Array) {
        const VariableArray& items = *args[0].asArray();
        result.reserve(items.size());
        for (size_t i = 0; i < items.size(); ++i) result.emplace_back(VariableArray{Variable(int32_t(i + 1)), items[i]});
    } else if (args[0].type == VarType::Table) {
        const TablePtr& table = args[0].asTable();
        const auto& keys = getIterationTableKeys(table);
        const auto& keyValues = getIterationTableKeyValues(table);
        result.reserve(keys.size());
        for (size_t i = 0; i < keys.size(); ++i) result.emplace_back(VariableArray{keyValues[i], table->at(keys[i])});
    } else {
        fail("pairs(container) expects an array or table");
    }
    return Variable(std::move(result));
}

Variable OrvaneScript::ipairsFunction(const Variable* args, size_t count) {
    if (count != 1) fail("ipairs(container) requires exactly 1 argument");
    if (args[0].type == VarType::Array) return pairsFunction(args, count);
    if (args[0].type != VarType::Table) fail("ipairs(container) expects an array or table");
    const TablePtr& table = args[0].asTable();
    int32_t length = numericTableLength(table);
    VariableArray result;
    result.reserve(size_t(length));
    for (int32_t i = 1; i <= length; ++i) result.emplace_back(VariableArray{Variable(i), table->at(std::to_string(i))});
    return Variable(std::move(result));
}

Variable OrvaneScript::nextFunction(const Variable* args, size_t count) {
    if (count != 1 && count != 2) fail("next(container[, key]) requires 1 or 2 arguments");
    bool noKey = count == 1 || args[1].isNil();
    if (args[0].type == VarType::Array) {
        const VariableArray& items = *args[0].asArray();
        if (items.empty()) return Variable();
        int64_t index = 1;
        if (!noKey) {
            if (args[1].type != VarType::Int) return Variable();
            index = int64_t(args[1].asInt()) + 1;
        }
        if (index < 1 || size_t(index) > items.size()) return Variable();
        return Variable::makeMulti(VariableArray{Variable(int32_t(index)), items[size_t(index) - 1]});
    }
    if (args[0].type == VarType::Table) {
        const TablePtr& table = args[0].asTable();
        if (table->empty()) return Variable();
        size_t position = 0;
        if (!noKey) {
            const auto& index = getIterationTableKeyIndex(table);
            auto it = index.find(keyToString(args[1]));
            if (it == index.end()) return Variable();
            position = it->second + 1;
        }
        const auto& keys = getIterationTableKeys(table);
        if (position >= keys.size()) return Variable();
        const auto& keyValues = getIterationTableKeyValues(table);
        return Variable::makeMulti(VariableArray{keyValues[position], table->at(keys[position])});
    }
    fail("next(container[, key]) expects an array or table");
}

Variable OrvaneScript::selectFunctionFast(const Variable* args, size_t count) {
    if (count < 2) fail("select(index, values...) requires at least 2 arguments");
    if (args[0].type != VarType::Int) fail("select(index, values...) requires an integer index");
    int32_t index = args[0].asInt();
    if (index < 1) fail("select index must be >= 1");
    const Variable* values = args + 1;
    size_t valueCount = count - 1;
    if (count == 2 && args[1].type == VarType::Array) {
        values = args[1].asArray()->data();
        valueCount = args[1].asArray()->size();
    } else if (count == 2 && args[1].type == VarType::Multi) {
        values = args[1].asMulti()->values.data();
        valueCount = args[1].asMulti()->values.size();
    }
    if (size_t(index) > valueCount) return Variable();
    if (size_t(index) == valueCount) return values[valueCount - 1];
    return Variable::makeMulti(VariableArray(values + (index - 1), values + valueCount));
}

Variable OrvaneScript::collectGarbageFunction(const Variable*, size_t) {
    pruneDeadTableCacheEntries();
    return Variable();
}

Variable OrvaneScript::killFunction(const Variable*, size_t count) {
    if (count != 0) fail("kill() takes no arguments");
    replacementCoroutine.reset();
    scheduledCoroutine.reset();
    if (!insideCoroutineTurn) return Variable();
    // The running coroutine ends on the spot.
    turnEnded = true;
    throw CoroutineTerminated();
}

Variable OrvaneScript::arrayFunction(const Variable*, size_t count) {
    if (count != 0) fail("array() takes no arguments");
    return Variable::makeArray();
}

Variable OrvaneScript::lenFunction(const Variable* args, size_t count) {
    if (count != 1) fail("len(x) requires exactly 1 argument");
    return Variable(arrayLength(args[0]));
}

Variable OrvaneScript::pushFunction(const Variable* args, size_t count) {
    if (count != 2) fail("push(array, value) requires exactly 2 arguments");
    if (args[0].type != VarType::Array) fail("push(array, value): first argument must be an array");
    VariableArray& items = *args[0].asArray();
    items.push_back(args[1]);
    return Variable(int32_t(items.size()));
}

Variable OrvaneScript::reserveFunction(const Variable* args, size_t count) {
    if (count != 2) fail("reserve(array, capacity) requires exactly 2 arguments");
    if (args[0].type != VarType::Array || args[1].type != VarType::Int) fail("reserve(array, capacity) expects (array, int)");
    if (args[1].asInt() < 0) fail("reserve(array, capacity): capacity must be >= 0");
    VariableArray& items = *args[0].asArray();
    // Capacity beyond what a script could fill is refused by the allocator, not granted blindly.
    if (size_t(args[1].asInt()) > (size_t(1) << 24)) fail("reserve(array, capacity): capacity is too large");
    items.reserve(size_t(args[1].asInt()));
    return Variable(int32_t(items.capacity()));
}

Variable OrvaneScript::getFunction(const Variable* args, size_t count) {
    if (count != 2 && count != 3) fail("get(container, keyOrIndex[, defaultValue]) requires 2 or 3 arguments");
    Variable value = getIndexedValue(args[0], args[1]);
    if (value.isNil() && count == 3) return args[2];
    return value;
}

Variable OrvaneScript::setFunction(const Variable* args, size_t count) {
    if (count != 3) fail("set(container, keyOrIndex, value) requires exactly 3 arguments");
    VarType type = args[0].type;
    if (type != VarType::Array && type != VarType::Table && type != VarType::String)
        fail("set(container, keyOrIndex, value): container must be an array, table, or string");
    Variable copy = args[0];
    setIndexedValue(copy, args[1], args[2], true);
    return type == VarType::String ? copy : args[2];
}

}  // namespace orvane
