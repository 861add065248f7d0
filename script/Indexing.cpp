// Reading and writing inside arrays, tables and strings.
#include <stdexcept>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {


void OrvaneScript::promoteArrayVariableToTable(Variable& variable) {
    VariableTable table;
    if (variable.type == VarType::Array && variable.asArray()) {
        const VariableArray& items = *variable.asArray();
        table.reserve(items.size());
        for (size_t i = 0; i < items.size(); ++i) table.emplace(std::to_string(i + 1), items[i]);
    }
    variable = Variable(std::move(table));
}

int32_t OrvaneScript::arrayLength(const Variable& value) {
    switch (value.type) {
    case VarType::Array: return int32_t(value.asArray()->size());
    case VarType::Table: return numericTableLength(value.asTable());
    case VarType::String: return int32_t(value.asString().size());
    default: throw std::runtime_error("len(x) expects an array, table, or string");
    }
}

Variable OrvaneScript::callMethodOfString(const std::string& receiver, const Variable& method, const Variable* args,
                                          size_t count) {
    // s['upper']() and s['upper'](s) both mean string.upper(s).
    if (count > 0 && args[0].type == VarType::String && args[0].asString() == receiver) {
        ++args;
        --count;
    }
    VariableArray full;
    full.reserve(count + 1);
    full.emplace_back(receiver);
    full.insert(full.end(), args, args + count);
    return invokeCallableFast(method, full.data(), full.size());
}

Variable OrvaneScript::getIndexedValue(const Variable& container, const Variable& key) {
    switch (container.type) {
    case VarType::Array: {
        int32_t index;
        const VariableArray& items = *container.asArray();
        if (tryGetArrayIndex(key, index) && index >= 1 && size_t(index) <= items.size()) return items[size_t(index) - 1];
        return Variable();
    }
    case VarType::Table: {
        const VariableTable& table = *container.asTable();
        auto it = table.find(keyToString(key));
        return it == table.end() ? Variable() : it->second;
    }
    case VarType::String: {
        const std::string& text = container.asString();
        if (key.type == VarType::Int) {
            int32_t index = key.asInt();
            if (index >= 1 && size_t(index) <= text.size()) return Variable(std::string(1, text[size_t(index) - 1]));
            return Variable();
        }
        if (key.type == VarType::String) {
            Variable* library = resolveVariablePtr("string");
            if (!library || library->type != VarType::Table) return Variable();
            auto it = library->asTable()->find(key.asString());
            if (it == library->asTable()->end() || it->second.type != VarType::Function) return Variable();
            Variable method = it->second;
            std::string receiver = text;
            auto bound = std::make_shared<ScriptCallable>();
            bound->name = method.asCallable()->name;
            bound->nativeFunction = [this, receiver, method](const VariableArray& args) {
                return callMethodOfString(receiver, method, args.data(), args.size());
            };
            return Variable(std::move(bound));
        }
        throw std::runtime_error("String index must be an int or string method name");
    }
    default: throw std::runtime_error("Indexing requires an array, table, or string");
    }
}

Variable& OrvaneScript::getIndexedValueMutable(Variable& container, const Variable& key, bool create) {
    for (;;) {
        if (container.type == VarType::Array) {
            int32_t index;
            if (!tryGetArrayIndex(key, index) || index < 1) {
                if (!create) {
                    if (!tryGetArrayIndex(key, index)) throw std::runtime_error("Array index must be an int");
                    throw std::runtime_error("Array index must be >= 1");
                }
                promoteArrayVariableToTable(container);
                continue;
            }
            VariableArray& items = *container.asArray();
            if (size_t(index) > items.size()) {
                // Growth is capped so that a stray huge index can't exhaust memory.
                if (!create || size_t(index) > kMaxArrayGrowth) throw std::runtime_error("Array index out of range");
                items.resize(size_t(index));
            }
            return items[size_t(index) - 1];
        }
        if (container.type == VarType::Table) {
            VariableTable& table = *container.asTable();
            std::string name = keyToString(key);
            auto it = table.find(name);
            if (it == table.end()) {
                if (!create) throw std::runtime_error("Table key not found: " + name);
                it = table.emplace(std::move(name), Variable()).first;
                markTableMutated(&table);
            }
            return it->second;
        }
        throw std::runtime_error("Indexing requires an array or table");
    }
}

void OrvaneScript::setIndexedValue(Variable& container, const Variable& key, const Variable& value, bool create) {
    switch (container.type) {
    case VarType::Array:
        getIndexedValueMutable(container, key, create) = value;
        return;
    case VarType::Table: {
        VariableTable& table = *container.asTable();
        std::string name = keyToString(key);
        auto it = table.find(name);
        if (it != table.end()) {
            it->second = value;
            return;
        }
        if (!create) throw std::runtime_error("Table key not found: " + name);
        table.emplace(std::move(name), value);
        markTableMutated(&table);
        return;
    }
    case VarType::String: {
        if (key.type != VarType::Int) throw std::runtime_error("String index must be an int");
        if (value.type != VarType::String) throw std::runtime_error("String element assignment requires a string value");
        if (value.asString().size() != 1)
            throw std::runtime_error("String element assignment requires a single-character string");
        std::string& text = container.asString();
        int32_t index = key.asInt();
        if (index < 1 || size_t(index) > text.size()) throw std::runtime_error("String index out of range");
        text[size_t(index) - 1] = value.asString()[0];
        return;
    }
    default: throw std::runtime_error("Indexing requires an array, table, or string");
    }
}

}  // namespace orvane
