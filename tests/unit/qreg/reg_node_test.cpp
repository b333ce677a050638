#include "qreg/reg_node.h"

#include <gtest/gtest.h>

#include "tests/support/expect_text.h"
#include "tests/unit/qreg/value_node.h"

namespace {

using qreg::RegNode;
using test::AddValue;
using test::Container;

TEST(RegNode, WithoutFlags_IsAContainerWithoutValue) {
    const RegNode node("boards");
    EXPECT_EQ(node.OnGetFlags(), 0U);
    EXPECT_EQ(node.OnGetValueType({}), qnode::enums::ValueType_e::empty);
    EXPECT_EQ(node.OnGetSize({}), 0U);
}

TEST(RegNode, FlagsAreThoseOfTheProtocol) {
    EXPECT_EQ(RegNode::c_readable, 2U);
    EXPECT_EQ(RegNode::c_writable, 4U);
    EXPECT_EQ(RegNode("fans", RegNode::c_readable | RegNode::c_writable).OnGetFlags(), 6U);
}

TEST(RegNode, Set_ReachesTheOperationOfTheType) {
    const auto root = Container("root");
    const auto integer = AddValue<int>(root, "integer");
    const auto real = AddValue<double>(root, "real");
    const auto text = AddValue<std::string>(root, "text");
    integer->Set(7);
    real->Set(2.5);
    text->Set(std::string("on"));
    EXPECT_EQ(integer->Held(), 7);
    EXPECT_EQ(real->Held(), 2.5);
    EXPECT_EQ(text->Held(), "on");
}

TEST(RegNode, Set_DoesNotAskTheFlags) {
    const auto value = AddValue<double>(Container("root"), "value", 1.0, 0);
    value->Set(2.5);
    EXPECT_EQ(value->Held(), 2.5);
}

TEST(RegNode, Set_FollowsThePath) {
    const auto root = Container("root");
    const auto value = AddValue<double>(root->Add(Container("boards")), "value");
    std::static_pointer_cast<RegNode>(root)->Set(4.5, 0, "boards/value");
    EXPECT_EQ(value->Held(), 4.5);
}

TEST(RegNode, Set_PathThatLeadsNowhere_IsNamed) {
    const auto root = Container("root");
    EXPECT_EQ(test::TextOf([&] { std::static_pointer_cast<RegNode>(root)->Set(1, 0, "boards/x"); }),
              "No node \"boards/x\" below \"root\"");
}

TEST(RegNode, Set_OfATypeThatTheNodeDoesNotTake_IsUnsupported) {
    const auto value = AddValue<double>(Container("root"), "value", 1.0);
    EXPECT_EQ(test::TextOf([&] { value->Set(1); }).find("Unsupported type: value in method "), 0U);
    EXPECT_EQ(value->Held(), 1.0);
}

TEST(RegNode, Set_PassesOnWhatTheNodeThrows) {
    const auto value = AddValue<double>(Container("root"), "value");
    value->onSet = [] { throw std::bad_weak_ptr(); };
    EXPECT_THROW(value->Set(1.0), std::bad_weak_ptr);
}

}  // namespace
