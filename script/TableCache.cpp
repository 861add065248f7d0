// Per-table caches of sorted keys and numeric length, so that iteration has a defined order
// (bytewise order of the key strings) and keys are sorted at most once per change of the key set.
#include <algorithm>

#include "script/OrvaneScript.h"

namespace orvane {

namespace {

// A stored key string as a value again: integer, else float, else the string.
Variable makeTableKeyVariable(const std::string& key) {
    int32_t i;
    if (parseIntStrict(key, i)) return Variable(i);
    float f;
    if (parseFloatStrict(key, f)) return Variable(f);
    return Variable(key);
}

const std::vector<std::string> kNoKeys;
const VariableArray kNoValues;
const std::unordered_map<std::string, size_t> kNoIndex;

}  // namespace

TableCacheEntry& OrvaneScript::tableCacheEntry(const TablePtr& table) {
    if (++tableCacheTicks % 64 == 0 && tableCache.size() > 255) pruneDeadTableCacheEntries();
    TableCacheEntry& entry = tableCache[table.get()];
    if (entry.owner.expired()) {
        // New, or left behind by a freed table at the same address.
        entry = TableCacheEntry{};
        entry.owner = table;
    }
    return entry;
}

void OrvaneScript::pruneDeadTableCacheEntries() {
    std::erase_if(tableCache, [](const auto& item) { return item.second.owner.expired(); });
}

void OrvaneScript::markTableMutated(const VariableTable* table) {
    auto it = tableCache.find(table);
    if (it != tableCache.end()) ++it->second.version;
}

static void sortKeys(const VariableTable& table, std::vector<std::string>& keys) {
    keys.clear();
    keys.reserve(table.size());
    for (const auto& item : table) keys.push_back(item.first);
    std::sort(keys.begin(), keys.end());
}

const std::vector<std::string>& OrvaneScript::getSortedTableKeys(const TablePtr& table) {
    if (!table) return kNoKeys;
    TableCacheEntry& entry = tableCacheEntry(table);
    if (entry.sortedVersion != entry.version) {
        sortKeys(*table, entry.sortedKeys);
        entry.sortedKeyValues.clear();
        entry.sortedKeyValues.reserve(entry.sortedKeys.size());
        for (const std::string& key : entry.sortedKeys) entry.sortedKeyValues.push_back(makeTableKeyVariable(key));
        entry.sortedVersion = entry.version;
    }
    return entry.sortedKeys;
}

const VariableArray& OrvaneScript::getSortedTableKeyValues(const TablePtr& table) {
    if (!table) return kNoValues;
    getSortedTableKeys(table);
    return tableCacheEntry(table).sortedKeyValues;
}

const std::vector<std::string>& OrvaneScript::getIterationTableKeys(const TablePtr& table) {
    if (!table) return kNoKeys;
    TableCacheEntry& entry = tableCacheEntry(table);
    if (entry.iterationVersion != entry.version) {
        sortKeys(*table, entry.iterationKeys);
        entry.iterationKeyValues.clear();
        entry.iterationKeyValues.reserve(entry.iterationKeys.size());
        entry.iterationKeyIndex.clear();
        for (size_t i = 0; i < entry.iterationKeys.size(); ++i) {
            entry.iterationKeyValues.push_back(makeTableKeyVariable(entry.iterationKeys[i]));
            entry.iterationKeyIndex.emplace(entry.iterationKeys[i], i);
        }
        entry.iterationVersion = entry.version;
    }
    return entry.iterationKeys;
}

const VariableArray& OrvaneScript::getIterationTableKeyValues(const TablePtr& table) {
    if (!table) return kNoValues;
    getIterationTableKeys(table);
    return tableCacheEntry(table).iterationKeyValues;
}

const std::unordered_map<std::string, size_t>& OrvaneScript::getIterationTableKeyIndex(const TablePtr& table) {
    if (!table) return kNoIndex;
    getIterationTableKeys(table);
    return tableCacheEntry(table).iterationKeyIndex;
}

int32_t OrvaneScript::numericTableLength(const TablePtr& table) {
    if (!table) return 0;
    TableCacheEntry& entry = tableCacheEntry(table);
    if (entry.lengthVersion != entry.version) {
        int32_t n = 0;
        while (n < INT32_MAX && table->count(std::to_string(n + 1))) ++n;
        entry.length = n;
        entry.lengthVersion = entry.version;
    }
    return entry.length;
}

}  // namespace orvane

