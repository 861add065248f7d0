// RubyValue as the host sees it: constructors, accessors and their errors, text forms, and the
// sharing of containers against the copying of everything else.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "ruby/RubyVM.h"

namespace orvane::ruby {
namespace {

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(RubyValueFace, ConstructorsAndTypes) {
    EXPECT_EQ(RubyValue().type(), RubyValueType::Nil);
    EXPECT_EQ(RubyValue(nullptr).type(), RubyValueType::Nil);
    EXPECT_EQ(RubyValue(3).type(), RubyValueType::Integer);
    EXPECT_EQ(RubyValue(int64_t(1) << 40).asInteger(), int64_t(1) << 40);
    EXPECT_EQ(RubyValue(3LL).type(), RubyValueType::Integer);
    EXPECT_EQ(RubyValue(2.5).type(), RubyValueType::Float);
    EXPECT_EQ(RubyValue(true).type(), RubyValueType::Boolean);
    EXPECT_EQ(RubyValue("text").type(), RubyValueType::String);
    EXPECT_EQ(RubyValue(std::string("text")).asString(), "text");
    EXPECT_EQ(RubyValue(std::string("a\0b", 3)).asString().size(), 3u);
    RubyArray elements{RubyValue(1), RubyValue(2)};
    EXPECT_EQ(RubyValue(elements).asArray().size(), 2u);
    EXPECT_EQ(RubyValue(RubyArray{RubyValue(1)}).type(), RubyValueType::Array);
    RubyMap entries{{"a", RubyValue(1)}};
    EXPECT_EQ(RubyValue(entries).asMap().size(), 1u);
    EXPECT_EQ(RubyValue(RubyMap{}).type(), RubyValueType::Map);
    EXPECT_TRUE(RubyValue::makeArray().isArray());
    EXPECT_TRUE(RubyValue::makeMap().isMap());
    EXPECT_TRUE(RubyValue::makeArray().asArray().empty());
}

TEST(RubyValueFace, Truthiness) {
    EXPECT_FALSE(RubyValue().isTruthy());
    EXPECT_FALSE(RubyValue(false).isTruthy());
    EXPECT_TRUE(RubyValue(true).isTruthy());
    EXPECT_TRUE(RubyValue(0).isTruthy());
    EXPECT_TRUE(RubyValue("").isTruthy());
    EXPECT_TRUE(RubyValue::makeArray().isTruthy());
}

TEST(RubyValueFace, NumericAccessors) {
    EXPECT_EQ(RubyValue(true).asInteger(), 1);
    EXPECT_EQ(RubyValue(false).asFloat(), 0.0);
    EXPECT_EQ(RubyValue(-2.9).asInteger(), -2);
    EXPECT_EQ(RubyValue(2.9).asInteger(), 2);
    EXPECT_EQ(RubyValue(1e300).asInteger(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(RubyValue(-1e300).asInteger(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(RubyValue(9223372036854775808.0).asInteger(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(RubyValue(std::nan("")).asInteger(), 0);
    EXPECT_EQ(RubyValue(7).asFloat(), 7.0);
    EXPECT_EQ(errorOf([] { (void)RubyValue("1").asInteger(); }), "value is not numeric");
    EXPECT_EQ(errorOf([] { (void)RubyValue().asFloat(); }), "value is not numeric");
    EXPECT_EQ(errorOf([] { (void)RubyValue(1).asBoolean(); }), "value is not boolean");
    EXPECT_EQ(errorOf([] { (void)RubyValue(1).asString(); }), "value is not a string");
    EXPECT_EQ(errorOf([] { (void)RubyValue(1).asArray(); }), "value is not an array");
    EXPECT_EQ(errorOf([] { (void)RubyValue(1).asMap(); }), "value is not a map");
    EXPECT_TRUE(RubyValue(true).asBoolean());
}

TEST(RubyValueFace, TextForms) {
    EXPECT_EQ(RubyValue().toString(), "nil");
    EXPECT_EQ(RubyValue(-12).toString(), "-12");
    EXPECT_EQ(RubyValue(3.0).toString(), "3");
    EXPECT_EQ(RubyValue(0.1).toString(), "0.1");
    EXPECT_EQ(RubyValue(1000000.0).toString(), "1e+06");
    EXPECT_EQ(RubyValue(123456.0).toString(), "123456");
    EXPECT_EQ(RubyValue(1.0 / 3.0).toString(), "0.333333");
    EXPECT_EQ(RubyValue(std::numeric_limits<double>::infinity()).toString(), "inf");
    EXPECT_EQ(RubyValue(false).toString(), "false");
    EXPECT_EQ(RubyValue("plain").toString(), "plain");
    EXPECT_EQ(RubyValue(RubyArray{RubyValue(1), RubyValue("a"), RubyValue(RubyArray{})}).toString(), "[1, a, []]");
    EXPECT_EQ(RubyValue(RubyMap{{"k", RubyValue(RubyArray{RubyValue(2)})}}).toString(), "{k: [2]}");
    EXPECT_EQ(RubyValue(RubyMap{}).toString(), "{}");
    RubyVM vm;
    RubyValue puts;
    ASSERT_TRUE(vm.getGlobal("puts", puts));
    EXPECT_EQ(puts.toString(), "[function puts]");
    EXPECT_TRUE(puts.isFunction());
    EXPECT_NE(puts.asFunction(), nullptr);
}

TEST(RubyValueFace, ContainersAreSharedAndStringsCopied) {
    RubyValue array = RubyValue::makeArray();
    RubyValue alias = array;
    alias.asArray().push_back(RubyValue(1));
    EXPECT_EQ(array.asArray().size(), 1u);
    RubyValue map = RubyValue::makeMap();
    RubyValue other = map;
    other.asMap()["x"] = RubyValue(2);
    EXPECT_EQ(map.asMap().at("x").asInteger(), 2);
    RubyValue text("abc");
    RubyValue copy = text;
    copy = RubyValue("changed");
    EXPECT_EQ(text.asString(), "abc");
    // Moving leaves nil behind.
    RubyValue moved = std::move(array);
    EXPECT_TRUE(array.isNil());
    EXPECT_EQ(moved.asArray().size(), 1u);
    // Self-assignment keeps the value.
    RubyValue& same = moved;
    moved = same;
    EXPECT_EQ(moved.asArray().size(), 1u);
    // A script sees a change made by the host to a shared container, and the other way round.
    RubyVM vm;
    RubyValue list = RubyValue::makeArray();
    vm.setGlobal("list", list);
    RubyResult result = vm.runScriptString("table_insert(list, 5) len(list)");
    ASSERT_TRUE(result.success) << result.error;
    EXPECT_EQ(list.asArray().size(), 1u);
    list.asArray().push_back(RubyValue(6));
    EXPECT_EQ(vm.runScriptString("len(list)").value.asInteger(), 2);
}

TEST(RubyValueFace, DeepHostBuiltNestingIsFreedSafely) {
    RubyValue value = RubyValue::makeArray();
    for (int i = 0; i < 300000; ++i) value = RubyValue(RubyArray{value});
    EXPECT_EQ(errorOf([&] { (void)value.toString(); }), "value nesting is too deep");
    value = RubyValue();
    RubyValue map = RubyValue::makeMap();
    for (int i = 0; i < 300000; ++i) map = RubyValue(RubyMap{{"next", map}});
    map = RubyValue();
    EXPECT_TRUE(map.isNil());
}

}  // namespace
}  // namespace orvane::ruby
