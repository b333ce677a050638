#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "qnode/node.h"
#include "tests/support/expect_text.h"
#include "tests/unit/qnode/asked_node.h"

namespace {

using qnode::Node;
using qnode::Value;
using qnode::enums::ValueType_e;
using test::Asked;
using test::Plain;

Node NodeOf(ValueType_e type, const Value& value) {
    return Node(Asked("node", type, [value] { return value; }));
}

template <class T>
T ValueOf(const Node& node) {
    T value{};
    EXPECT_TRUE(node.GetValue(value));
    return value;
}

TEST(NodeValue, IsReadByItsType) {
    EXPECT_EQ(ValueOf<int>(NodeOf(ValueType_e::integer, 7)), 7);
    EXPECT_EQ(ValueOf<double>(NodeOf(ValueType_e::real, 2.5)), 2.5);
    EXPECT_EQ(ValueOf<std::string>(NodeOf(ValueType_e::text, "on")), "on");
}

TEST(NodeValue, IsReadWhateverItsType) {
    EXPECT_EQ(ValueOf<Value>(NodeOf(ValueType_e::integer, 7)), Value(7));
    EXPECT_EQ(ValueOf<Value>(NodeOf(ValueType_e::real, 2.5)), Value(2.5));
    EXPECT_EQ(ValueOf<Value>(NodeOf(ValueType_e::text, "on")), Value("on"));
}

TEST(NodeValue, NoValueNow_LeavesTheTargetAlone) {
    double number = 1.5;
    EXPECT_FALSE(NodeOf(ValueType_e::real, {}).GetValue(number));
    EXPECT_EQ(number, 1.5);
    for (const auto type : {ValueType_e::integer, ValueType_e::real, ValueType_e::text, ValueType_e::empty}) {
        Value value = 1.5;
        EXPECT_FALSE(NodeOf(type, {}).GetValue(value));
        EXPECT_EQ(value, Value(1.5));
    }
}

TEST(NodeValue, NodeWithoutAType_NeverHasOne) {
    Value value = 1.5;
    EXPECT_FALSE(Node(Plain("boards")).GetValue(value));
    EXPECT_EQ(value, Value(1.5));
}

TEST(NodeValue, OtherType_IsUnsupportedByName) {
    double number = 1.5;
    const std::string text = test::TextOf([&] { Node(Plain("boards")).GetValue(number); });
    EXPECT_EQ(text.find("Unsupported type: boards in method "), 0U) << text;
    EXPECT_NE(text.find("OnGet"), std::string::npos) << text;
    EXPECT_EQ(test::TextOf([&] { Plain("boards")->OnSet(&number, 0, 1); }).find("Unsupported type: boards in method "),
              0U);
}

TEST(NodeValue, ErrorOfTheNode_IsPassedOn) {
    const Node node(Asked("node", ValueType_e::real, []() -> Value { throw std::out_of_range("gone"); }));
    double number = 0;
    EXPECT_THROW(node.GetValue(number), std::out_of_range);
    Value value;
    EXPECT_THROW(node.GetValue(value), std::out_of_range);
}

TEST(NodeDump, ShowsValues_AndWhatWentWrong) {
    const auto root = Plain("root");
    root->Add(Asked("count", ValueType_e::integer, [] { return Value(7); }));
    root->Add(Asked("speed", ValueType_e::real, [] { return Value(2500.5); }))
        ->Add(Asked("nothing", ValueType_e::real, [] { return Value(std::nan("")); }));
    root->Add(Asked("name", ValueType_e::text, [] { return Value("ICB 1"); }));
    root->Add(Asked("absent", ValueType_e::text, [] { return Value(); }));
    root->Add(Asked("faulty", ValueType_e::text, []() -> Value { throw qstd::Exception("invalid value"); }));
    root->Add(Asked("foreign", ValueType_e::text, []() -> Value { throw std::runtime_error("bad cast"); }));
    root->Add(Asked("odd", ValueType_e::real, []() -> Value { throw 42; }));
    root->Add(Plain("folder"));
    EXPECT_EQ(Node(root).DumpSubTree(-1, 0, Node::c_defMaxValueLen),
              "root\n"
              "  count = 7\n"
              "  speed = 2500.5\n"
              "    nothing = nan\n"
              "  name = ICB 1\n"
              "  absent = (no value)\n"
              "  faulty = invalid value\n"
              "  foreign = bad cast\n"
              "  odd = Unknown Exception\n"
              "  folder\n");
}

TEST(NodeDump, CutsLongValues) {
    const Node name(Asked("name", ValueType_e::text, [] { return Value(std::string(81, 'x')); }));
    EXPECT_EQ(name.DumpSubTree(-1, 0, 3), "name = xxx\n");
    EXPECT_EQ(name.DumpSubTree(-1, 0, 0), "name = \n");
    EXPECT_EQ(name.DumpSubTree(-1, 0, 81), "name = " + std::string(81, 'x') + "\n");
    EXPECT_EQ(name.DumpSubTree(-1, 0, Node::c_defMaxValueLen), "name = " + std::string(80, 'x') + "\n");
    const Node faulty(Asked("faulty", ValueType_e::text, []() -> Value { throw qstd::Exception("gone away"); }));
    EXPECT_EQ(faulty.DumpSubTree(-1, 0, 4), "faulty = gone\n");
}

}  // namespace
