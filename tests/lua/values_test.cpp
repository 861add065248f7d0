// The value layer on its own: keys, the two parts of a table and where keys land, the length
// and its cache against a plain recount, the small stores, and the number rules at their edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "lua/Runtime.h"
#include "lua/Value.h"
#include "tests/lua/LuaTestSupport.h"

namespace orvane::lua {
namespace {

Value integerAt(Table& t, int64_t key) { return tableGetByKey(&t, TableKey::makeInteger(key)); }

TEST(LuaTable, KeysLandInTheArrayOrTheHash) {
    Table t;
    tableSetByKey(&t, TableKey::makeInteger(65), Value::integer(1));
    EXPECT_TRUE(t.array.empty());
    EXPECT_EQ(t.hash.size(), 1u);

    Table u;
    tableSetByKey(&u, TableKey::makeInteger(64), Value::integer(1));
    EXPECT_EQ(u.array.size(), 64u);
    tableSetByKey(&u, TableKey::makeInteger(72), Value::integer(2));
    EXPECT_EQ(u.array.size(), 72u);
    EXPECT_TRUE(u.hash.empty());

    Table v;
    tableSetByKey(&v, TableKey::makeInteger(64), Value::integer(1));
    tableSetByKey(&v, TableKey::makeInteger(73), Value::integer(2));
    EXPECT_EQ(v.array.size(), 64u);
    EXPECT_EQ(v.hash.size(), 1u);

    // Storing nil still extends the array.
    Table w;
    tableSetByKey(&w, TableKey::makeInteger(64), Value());
    EXPECT_EQ(w.array.size(), 64u);
    // Zero and negative keys are never array keys.
    tableSetByKey(&w, TableKey::makeInteger(0), Value::integer(5));
    tableSetByKey(&w, TableKey::makeInteger(-1), Value::integer(6));
    EXPECT_EQ(w.hash.size(), 2u);
    EXPECT_EQ(integerAt(w, 0).integerValue(), 5);
}

TEST(LuaTable, AHashKeyCoveredByTheArrayIsFoundUntilWritten) {
    Table t;
    for (int64_t k = 1; k <= 64; ++k) tableSetByKey(&t, TableKey::makeInteger(k), Value::integer(k));
    tableSetByKey(&t, TableKey::makeInteger(70), Value::integer(700));  // 70 <= 64 + 8: array
    EXPECT_EQ(t.array.size(), 70u);
    Table h;
    tableSetByKey(&h, TableKey::makeInteger(66), Value::integer(660));  // hash: beyond 64 and 0 + 8
    for (int64_t k = 1; k <= 64; ++k) tableSetByKey(&h, TableKey::makeInteger(k), Value::integer(k));
    tableSetByKey(&h, TableKey::makeInteger(70), Value::integer(700));  // the array grows over 66
    EXPECT_EQ(h.array.size(), 70u);
    EXPECT_EQ(h.hash.size(), 1u);
    EXPECT_EQ(integerAt(h, 66).integerValue(), 660);
    tableSetByKey(&h, TableKey::makeInteger(66), Value::integer(661));
    EXPECT_TRUE(h.hash.empty());
    EXPECT_EQ(integerAt(h, 66).integerValue(), 661);
}

TEST(LuaTable, EveryWriteRaisesTheVersion) {
    Table t;
    uint64_t v = t.version;
    tableSetByKey(&t, TableKey::makeString("a"), Value::integer(1));
    EXPECT_GT(t.version, v);
    v = t.version;
    tableSetByKey(&t, TableKey::makeString("absent"), Value());
    EXPECT_GT(t.version, v);
    v = t.version;
    tableSetInteger(&t, 1, Value::integer(1));
    EXPECT_GT(t.version, v);
    Table other;
    EXPECT_NE(t.serial, other.serial);
    // An empty table pointer reads nil, has length 0 and ignores writes.
    EXPECT_TRUE(tableGetByKey(nullptr, TableKey::makeInteger(1)).isNil());
    EXPECT_EQ(tableSequenceLength(nullptr), 0u);
    tableSetByKey(nullptr, TableKey::makeInteger(1), Value::integer(1));
}

// The length exactly as the rule states it, without any cache.
uint64_t recount(const Table& t) {
    uint64_t c = 0;
    while (c < t.array.size() && !t.array[c].isNil()) ++c;
    for (;;) {
        TableKeyView key;
        key.kind = 0;
        key.integerValue = int64_t(c + 1);
        if (t.hash.find(key) == t.hash.end()) break;
        ++c;
    }
    return c;
}

TEST(LuaTable, CachedLengthAgreesWithARecountUnderRandomWrites) {
    std::mt19937 random(12345);
    for (int round = 0; round < 200; ++round) {
        Table t;
        for (int step = 0; step < 400; ++step) {
            int64_t key = int64_t(random() % 90) - 2;
            if (random() % 4 == 0) key = int64_t(tableSequenceLength(&t)) + 1;  // appends
            Value value = random() % 5 == 0 ? Value() : Value::integer(step);
            if (random() % 2) tableSetInteger(&t, key, value);
            else tableSetByKey(&t, TableKey::makeInteger(key), value);
            if (random() % 3 == 0) {
                ASSERT_EQ(tableSequenceLength(&t), recount(t)) << round << ":" << step;
            }
        }
        ASSERT_EQ(tableSequenceLength(&t), recount(t));
    }
    Table border;
    tableSetInteger(&border, 1, Value::integer(1));
    tableSetInteger(&border, 2, Value::integer(2));
    tableSetInteger(&border, 3, Value::integer(3));
    tableSetInteger(&border, 2, Value());
    EXPECT_EQ(tableSequenceLength(&border), 1u);
}

TEST(LuaTable, KeysFromValues) {
    TableKey key;
    EXPECT_TRUE(tryMakeKeyFromValue(Value::number(2.0), key));
    EXPECT_EQ(key.kind, 0);
    EXPECT_EQ(key.integerValue, 2);
    EXPECT_FALSE(tryMakeKeyFromValue(Value::number(1.5), key));
    EXPECT_FALSE(tryMakeKeyFromValue(Value::number(INFINITY), key));
    EXPECT_FALSE(tryMakeKeyFromValue(Value::number(NAN), key));
    EXPECT_FALSE(tryMakeKeyFromValue(Value::number(1e19), key));
    EXPECT_FALSE(tryMakeKeyFromValue(Value(), key));
    EXPECT_TRUE(tryMakeKeyFromValue(Value::boolean(true), key));
    EXPECT_EQ(keyToString(key), "true");
    EXPECT_TRUE(tryMakeKeyFromValue(Value::string("s"), key));
    EXPECT_EQ(key, TableKey::makeString("s"));
    EXPECT_EQ(keyToString(TableKey::makeInteger(-4)), "-4");
    EXPECT_EQ(TableKeyHash()(TableKey::makeInteger(7)), std::hash<int64_t>()(7) ^ size_t(0x13579bdf));
    EXPECT_EQ(TableKeyHash()(TableKey::makeString("x")), std::hash<std::string>()("x") ^ size_t(0x2468ace0));
    EXPECT_EQ(TableKeyHash()(TableKey::makeBoolean(true)), std::hash<bool>()(true) ^ size_t(0x10203040));
    EXPECT_FALSE(TableKey::makeInteger(1) == TableKey::makeString("1"));
    int64_t out = 0;
    EXPECT_TRUE(parseStrictInteger("12", out));
    EXPECT_EQ(out, 12);
    EXPECT_TRUE(parseStrictInteger("-9223372036854775808", out));
    EXPECT_FALSE(parseStrictInteger("", out));
    EXPECT_FALSE(parseStrictInteger("1.5", out));
    EXPECT_FALSE(parseStrictInteger("12x", out));
    EXPECT_FALSE(parseStrictInteger("9223372036854775808", out));
}

TEST(LuaNumberRules, NumericResultAndConversions) {
    EXPECT_EQ(numericResult(3.0).type(), ValueType::Integer);
    EXPECT_EQ(numericResult(0.5).type(), ValueType::Float);
    EXPECT_EQ(numericResult(-0.0).integerValue(), 0);
    EXPECT_EQ(numericResult(1e-17).type(), ValueType::Integer);
    EXPECT_EQ(numericResult(0.9999999999999999).integerValue(), 1);
    EXPECT_EQ(numericResult(-1.0000000000000002).integerValue(), -1);
    EXPECT_EQ(numericResult(-2.0000000000000004).type(), ValueType::Float);  // one step of 2 is wider
    EXPECT_EQ(numericResult(2.5).type(), ValueType::Float);
    EXPECT_EQ(numericResult(4503599627370497.0).integerValue(), 4503599627370497);
    EXPECT_EQ(numericResult(9223372036854775808.0).integerValue(), INT64_MAX);
    EXPECT_EQ(numericResult(-9223372036854775808.0).integerValue(), INT64_MIN);
    EXPECT_EQ(numericResult(1.8446744073709552e19).type(), ValueType::Float);
    EXPECT_EQ(numericResult(INFINITY).type(), ValueType::Float);
    EXPECT_EQ(numericResult(NAN).type(), ValueType::Float);
    EXPECT_EQ(Value::number(-2.9).asInteger(), -2);
    EXPECT_EQ(Value::number(1e300).asInteger(), INT64_MAX);
    EXPECT_EQ(Value::number(-1e300).asInteger(), INT64_MIN);
    EXPECT_EQ(Value::number(NAN).asInteger(), 0);
    EXPECT_EQ(Value::integer(3).asFloat(), 3.0);
    EXPECT_THROW(Value::string("1").asFloat(), std::runtime_error);
    EXPECT_EQ(addNumbers(Value::integer(INT64_MAX), Value::integer(1)).integerValue(), INT64_MAX);
    EXPECT_EQ(subtractNumbers(Value::integer(INT64_MIN), Value::integer(1)).integerValue(), INT64_MIN);
    EXPECT_EQ(multiplyNumbers(Value::integer(INT64_MAX), Value::integer(2)).type(), ValueType::Float);
    EXPECT_EQ(moduloNumbers(Value::integer(INT64_MIN), Value::integer(-1)).integerValue(), 0);
    EXPECT_EQ(moduloNumbers(Value::number(5), Value::number(3.5)).floatValue(), 1.5);
    EXPECT_EQ(negateNumber(Value::integer(INT64_MIN)).integerValue(), INT64_MAX);
    EXPECT_EQ(divideNumbers(Value::integer(6), Value::integer(2)).type(), ValueType::Float);
    EXPECT_TRUE(valuesEqual(Value::integer(1), Value::number(1.0000000000000002)));
    EXPECT_FALSE(valuesEqual(Value::number(1.0), Value::number(1.0000000000000002)));
    EXPECT_FALSE(valuesEqual(Value::integer(1), Value::string("1")));
    EXPECT_TRUE(valuesEqual(Value::string("ab"), Value::string("ab")));
    EXPECT_EQ(Value::number(1000000.0).toString(), "1e+06");
    EXPECT_EQ(Value::number(0.1).toString(), "0.1");
    EXPECT_EQ(Value::number(3.0).toString(), "3");
    EXPECT_EQ(describeValueType(Value::number(1.5)), "number");
}

TEST(LuaSmallStores, InlineThenSpilled) {
    SmallValueStore<2> store;
    EXPECT_TRUE(store.empty());
    store.push(Value::integer(1));
    store.push(Value::string("two"));
    store.push(Value::integer(3));
    ASSERT_EQ(store.size(), 3u);
    EXPECT_EQ(store[1].stringValue(), "two");
    EXPECT_EQ(store[2].integerValue(), 3);
    store.resize(1);
    EXPECT_EQ(store.size(), 1u);
    EXPECT_TRUE(store[0].isNil());
    store.resize(5);
    EXPECT_EQ(store.size(), 5u);
    store[4] = Value::integer(4);
    store.fillNil();
    EXPECT_EQ(store.size(), 5u);
    EXPECT_TRUE(store[4].isNil());
    store.assign({Value::integer(7)});
    EXPECT_EQ(store.size(), 1u);
    EXPECT_EQ(store[0].integerValue(), 7);
    SmallValueStore<2> copy = store;
    SmallValueStore<2> moved = std::move(copy);
    EXPECT_EQ(moved[0].integerValue(), 7);
    ValueSpan span = store.span();
    EXPECT_EQ(span.size(), 1u);
    EXPECT_TRUE(span.subspan(1).empty());
    EXPECT_TRUE(span.subspan(5).empty());
    MultiValue multi{Value::integer(1), Value::integer(2), Value::integer(3)};
    EXPECT_EQ(multi.size(), 3u);
    EXPECT_EQ(firstOrNil(multi).integerValue(), 1);
    EXPECT_TRUE(firstOrNil(MultiValue()).isNil());
    EXPECT_EQ(MultiValue(std::vector<Value>{Value::integer(1), Value::integer(2), Value::integer(3)}).span().size(), 3u);
}

TEST(LuaIteration, PairsSurvivesErasingTheCurrentKey) {
    // Every key is seen exactly once while the walk erases each one behind itself.
    EXPECT_EQ(testing::textOf(R"(
        local t = {}
        for i = 1, 300 do t['k' .. i] = i end
        local seen, sum = 0, 0
        for k, v in pairs(t) do
          t[k] = nil
          seen = seen + 1
          sum = sum + v
        end
        local left = 0
        for k in pairs(t) do left = left + 1 end
        return seen, sum, left)"),
              "[300, 45150, 0]");
    // Insertions during a walk may move the cursor anywhere, but never outside the table.
    LuaResult result = LuaVM().runScriptString(R"(
        local t = {a = 1}
        local n = 0
        for k in pairs(t) do
          n = n + 1
          if n < 500 then t['x' .. n] = n end
        end
        return n > 0)");
    EXPECT_TRUE(result.success) << result.error;
}

}  // namespace
}  // namespace orvane::lua
