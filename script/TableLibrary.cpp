// The members of `table`: an Array directly, or a Table through its keys "1" to its numeric length.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

bool isListContainer(const Variable& v) { return v.type == VarType::Array || v.type == VarType::Table; }

size_t textSize(const Variable& v) {
    switch (v.type) {
    case VarType::String: return v.asString().size();
    case VarType::Int: {
        int32_t i = v.asInt();
        uint32_t magnitude = i < 0 ? 0u - uint32_t(i) : uint32_t(i);
        size_t digits = 1;
        while (magnitude >= 10) {
            magnitude /= 10;
            ++digits;
        }
        return digits + (i < 0);
    }
    case VarType::Bool: return v.asBool() ? 4 : 5;
    default: return v.toString().size();
    }
}

void appendText(std::string& out, const Variable& v) {
    if (v.type == VarType::String) out += v.asString();
    else if (v.type == VarType::Int) out += std::to_string(v.asInt());
    else out += v.toString();
}

// A comparator's soft error ends the sort; the interpreter then reports it.
struct SortAborted {};

// Insertion sort, stable: each element moves left while it comes before its neighbour.
template <class T, class Before>
void insertionSort(T* items, size_t n, Before before) {
    for (size_t i = 1; i < n; ++i) {
        T value = std::move(items[i]);
        size_t j = i;
        while (j > 0 && before(value, items[j - 1])) {
            items[j] = std::move(items[j - 1]);
            --j;
        }
        items[j] = std::move(value);
    }
}

// Above eight elements: a merge sort. Unlike the standard sorts it stays inside its range with
// any comparator, also one that contradicts itself or draws random numbers, as scripts may pass.
template <class T, class Before>
void mergeSort(T* items, T* scratch, size_t n, Before& before) {
    if (n <= 8) {
        insertionSort(items, n, before);
        return;
    }
    size_t half = n / 2;
    mergeSort(items, scratch, half, before);
    mergeSort(items + half, scratch, n - half, before);
    if (!before(items[half], items[half - 1])) return;  // already in order
    std::move(items, items + half, scratch);
    size_t a = 0, b = half, out = 0;
    while (a < half && b < n) items[out++] = before(items[b], scratch[a]) ? std::move(items[b++]) : std::move(scratch[a++]);
    while (a < half) items[out++] = std::move(scratch[a++]);
}

template <class T, class Before>
void sortRange(std::vector<T>& items, Before before) {
    if (items.size() <= 8) {
        insertionSort(items.data(), items.size(), before);
        return;
    }
    std::vector<T> scratch(items.size() / 2 + 1);
    mergeSort(items.data(), scratch.data(), items.size(), before);
}

}  // namespace

Variable OrvaneScript::insertFunctionImpl(const Variable* args, size_t count) {
    if ((count != 2 && count != 3) || !isListContainer(args[0]))
        fail("table['insert'](table[, pos], value) requires an array or table");
    const Variable& value = args[count - 1];
    if (args[0].type == VarType::Array) {
        VariableArray& items = *args[0].asArray();
        int64_t length = int64_t(items.size());
        int64_t position = count == 3 ? std::clamp<int64_t>(toInt(args[1]), 1, length + 1) : length + 1;
        items.insert(items.begin() + (position - 1), value);
        return Variable(int32_t(items.size()));
    }
    const TablePtr& table = args[0].asTable();
    int32_t length = numericTableLength(table);
    int64_t position = count == 3 ? std::clamp<int64_t>(toInt(args[1]), 1, int64_t(length) + 1) : int64_t(length) + 1;
    Variable stored = value;  // the value may live in the table itself
    for (int64_t k = length; k >= position; --k) (*table)[std::to_string(k + 1)] = (*table)[std::to_string(k)];
    (*table)[std::to_string(position)] = std::move(stored);
    markTableMutated(table.get());
    return Variable(int32_t(length + 1));
}

Variable OrvaneScript::removeFunctionImpl(const Variable* args, size_t count) {
    if ((count != 1 && count != 2) || !isListContainer(args[0]))
        fail("table['remove'](table[, pos]) requires an array or table");
    if (args[0].type == VarType::Array) {
        VariableArray& items = *args[0].asArray();
        int64_t length = int64_t(items.size());
        int64_t position = count == 2 ? toInt(args[1]) : length;
        if (length == 0 || position < 1 || position > length) return Variable();
        Variable removed = std::move(items[size_t(position - 1)]);
        items.erase(items.begin() + (position - 1));
        return removed;
    }
    const TablePtr& table = args[0].asTable();
    int32_t length = numericTableLength(table);
    int64_t position = count == 2 ? toInt(args[1]) : length;
    if (length == 0 || position < 1 || position > length) return Variable();
    Variable removed = std::move((*table)[std::to_string(position)]);
    for (int64_t k = position; k < length; ++k) (*table)[std::to_string(k)] = std::move((*table)[std::to_string(k + 1)]);
    table->erase(std::to_string(length));
    markTableMutated(table.get());
    return removed;
}

Variable OrvaneScript::concatFunctionImpl(const Variable* args, size_t count) {
    if (count < 1 || !isListContainer(args[0])) fail("table['concat'](table[, sep[, i[, j]]]) requires an array or table");
    std::string separator = count > 1 && !args[1].isNil() ? args[1].toString() : std::string();
    const VariableArray* items = args[0].type == VarType::Array ? args[0].asArray().get() : nullptr;
    const TablePtr* table = items ? nullptr : &args[0].asTable();
    int64_t length = items ? int64_t(items->size()) : numericTableLength(*table);
    int64_t i = count > 2 && !args[2].isNil() ? toInt(args[2]) : 1;
    int64_t j = count > 3 && !args[3].isNil() ? toInt(args[3]) : length;
    if (i < 1) i = 1;
    if (j > length) j = length;
    if (i > j) return Variable("");
    auto element = [&](int64_t k) -> const Variable& {
        return items ? (*items)[size_t(k - 1)] : (*table)->at(std::to_string(k));
    };
    size_t size = size_t(j - i) * separator.size();
    for (int64_t k = i; k <= j; ++k) size += textSize(element(k));
    std::string out;
    out.reserve(size);
    for (int64_t k = i; k <= j; ++k) {
        if (k > i) out += separator;
        appendText(out, element(k));
    }
    return Variable(std::move(out));
}

Variable OrvaneScript::sortFunctionImpl(const Variable* args, size_t count) {
    if ((count != 1 && count != 2) || !isListContainer(args[0]))
        fail("table['sort'](table[, comp]) requires an array or table");
    const Variable& target = args[0];
    bool noComparator = count == 1 || args[1].isNil();
    const Variable* comparator = count == 2 && args[1].type == VarType::Function ? &args[1] : nullptr;

    // A comparator may change the container while it runs, so it works on a copy; without one
    // an array is sorted where it lies.
    VariableArray copy;
    int32_t tableLength = 0;
    bool inPlace = target.type == VarType::Array && !comparator;
    VariableArray& items = inPlace ? *target.asArray() : copy;
    if (target.type == VarType::Array) {
        if (!inPlace) items = *target.asArray();
    } else {
        tableLength = numericTableLength(target.asTable());
        items.reserve(size_t(tableLength));
        for (int32_t k = 1; k <= tableLength; ++k) items.push_back(target.asTable()->at(std::to_string(k)));
    }

    if (items.size() >= 2) {
        bool allInts = noComparator && std::all_of(items.begin(), items.end(), [](const Variable& v) { return v.type == VarType::Int; });
        if (allInts) {
            // Integers compared directly; the short cases are the per-frame sorts of small lists.
            auto at = [&](size_t k) { return items[k].asInt(); };
            auto swapIf = [&](size_t a, size_t b) {
                if (at(b) < at(a)) std::swap(items[a], items[b]);
            };
            if (items.size() == 2) {
                swapIf(0, 1);
            } else if (items.size() == 3) {
                swapIf(0, 1);
                swapIf(1, 2);
                swapIf(0, 1);
            } else if (items.size() <= 8) {
                insertionSort(items.data(), items.size(), [](const Variable& a, const Variable& b) { return a.asInt() < b.asInt(); });
            } else {
                std::vector<int32_t> values(items.size());
                for (size_t k = 0; k < items.size(); ++k) values[k] = items[k].asInt();
                std::sort(values.begin(), values.end());
                for (size_t k = 0; k < items.size(); ++k) items[k] = Variable(values[k]);
            }
        } else if (comparator) {
            Variable function = *comparator;
            auto before = [&](const Variable& a, const Variable& b) {
                Variable pair[2] = {a, b};
                Variable answer = invokeCallableFast(function, pair, 2);
                if (shouldAbortForSoftRaisedError()) throw SortAborted{};
                return isTruthy(answer);
            };
            try {
                sortRange(items, before);
            } catch (const SortAborted&) {
                return Variable();
            }
        } else {
            // Sorting pointers keeps the element copies few; a failed compare leaves all as it was.
            std::vector<const Variable*> order(items.size());
            for (size_t k = 0; k < items.size(); ++k) order[k] = &items[k];
            sortRange(order, [](const Variable* a, const Variable* b) { return compareVariables(*a, *b) < 0; });
            VariableArray sorted;
            sorted.reserve(items.size());
            for (const Variable* v : order) sorted.push_back(std::move(*const_cast<Variable*>(v)));
            items.swap(sorted);
        }
    }

    if (target.type == VarType::Array) {
        if (!inPlace) *target.asArray() = std::move(items);
    } else if (tableLength >= 1) {
        VariableTable& table = *target.asTable();
        for (size_t k = 0; k < items.size(); ++k) table[std::to_string(k + 1)] = std::move(items[k]);
        markTableMutated(&table);
    }
    return target;
}

}  // namespace orvane
