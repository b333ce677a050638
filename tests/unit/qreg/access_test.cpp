#include "qreg/access.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/expect_text.h"
#include "tests/unit/qreg/value_node.h"

namespace {

using qnode::Value;
using qreg::Access;
using qreg::ErrorCode_e;
using qreg::Outcome;
using qreg::RegNode;
using test::AddValue;
using test::Container;

/// fans (double, with the child left), board (text) and revision (integer) under a root.
class AccessTest : public testing::Test {
protected:
    void ExpectFailure(const Outcome& outcome, ErrorCode_e code, const std::string& text) {
        EXPECT_EQ(outcome.code, code);
        EXPECT_EQ(outcome.text, text);
        EXPECT_EQ(outcome.value, Value());
    }

    const std::shared_ptr<qnode::TreeNode> m_root = Container("root");
    const std::shared_ptr<test::ValueNode<double>> m_fans = AddValue<double>(m_root, "fans", 2500.5);
    const std::shared_ptr<test::ValueNode<double>> m_left = AddValue<double>(m_fans, "left", 1.0, RegNode::c_readable);
    const std::shared_ptr<test::ValueNode<std::string>> m_board = AddValue<std::string>(m_root, "board", "ICB");
    const std::shared_ptr<test::ValueNode<int>> m_revision = AddValue<int>(m_root, "revision", 3);
    const Access m_access{m_root};
};

TEST_F(AccessTest, Find_FollowsThePath) {
    EXPECT_EQ(&m_access.Find("fans/left"), m_left.get());
    EXPECT_EQ(&m_access.Find("//fans//left/"), m_left.get());
    EXPECT_EQ(&m_access.Find(""), m_root.get());
}

TEST_F(AccessTest, PathThatLeadsNowhere_IsToldInOneForm) {
    const std::string text = "No node \"rear\" under \"fans\" (path \"fans/rear/x\")";
    try {
        m_access.Find("fans/rear/x");
        FAIL() << "found";
    } catch (const qreg::RegistryError& error) {
        EXPECT_EQ(error.GetCode(), ErrorCode_e::no_such_node);
        EXPECT_EQ(error.GetPath(), "fans/rear/x");
        EXPECT_EQ(error.what(), text);
    }
    ExpectFailure(m_access.Read("fans/rear/x"), ErrorCode_e::no_such_node, text);
    ExpectFailure(m_access.Write("fans/rear/x", 1.0), ErrorCode_e::no_such_node, text);
}

TEST_F(AccessTest, Describe_TellsEverythingButTheValue) {
    const qreg::NodeInfo info = Access::Describe(*m_fans);
    EXPECT_EQ(info.name, "fans");
    EXPECT_EQ(info.flags, 6U);
    EXPECT_EQ(info.type, qnode::enums::ValueType_e::real);
    EXPECT_EQ(info.size, 1U);
    EXPECT_EQ(info.children, 1U);
    EXPECT_EQ(Access::Describe(*m_root).children, 3U);
    EXPECT_EQ(Access::Describe(RegNode("alone")).children, 0U);
}

class Faulty : public RegNode {
public:
    using RegNode::RegNode;
    qnode::enums::ValueType_e OnGetValueType(const std::string& /*path*/) const override {
        throw qstd::Exception("the board is gone");
    }
};

TEST_F(AccessTest, NodeThatRaisesAtBeingAsked_Fails) {
    const auto faulty = m_root->Add(
        qnode::factory::Create<qnode::LocalNodeStructure, Faulty>("faulty", RegNode::c_readable | RegNode::c_writable));
    try {
        Access::Describe(*faulty);
        FAIL() << "described";
    } catch (const qreg::RegistryError& error) {
        EXPECT_EQ(error.GetCode(), ErrorCode_e::failed);
        EXPECT_EQ(error.GetPath(), "faulty");
        EXPECT_STREQ(error.what(), "the board is gone");
    }
    ExpectFailure(m_access.Read("faulty"), ErrorCode_e::failed, "the board is gone");
    ExpectFailure(m_access.Write("faulty", 1), ErrorCode_e::failed, "the board is gone");
}

TEST_F(AccessTest, Read_GivesTheValueInItsOwnType) {
    EXPECT_EQ(m_access.Read("fans").value, Value(2500.5));
    EXPECT_EQ(m_access.Read("board").value, Value("ICB"));
    EXPECT_EQ(m_access.Read("revision").value, Value(3));
    EXPECT_EQ(m_access.Read("revision").code, ErrorCode_e::ok);
    EXPECT_EQ(m_access.Read("revision").text, "");
}

TEST_F(AccessTest, Read_NodeThatClientsMayNotRead) {
    AddValue<double>(m_root, "hidden", 1.0, RegNode::c_writable);
    ExpectFailure(m_access.Read("hidden"), ErrorCode_e::not_readable,
                  "Node \"hidden\" has no value that clients may read");
    ExpectFailure(m_access.Read(""), ErrorCode_e::not_readable, "Node \"root\" has no value that clients may read");
}

TEST_F(AccessTest, Read_ReadableNodeWithoutAType_HasNoValue) {
    m_root->Add(qnode::factory::Create<qnode::LocalNodeStructure, RegNode>("odd", RegNode::c_readable));
    ExpectFailure(m_access.Read("odd"), ErrorCode_e::not_readable, "Node \"odd\" has no value");
}

TEST_F(AccessTest, Read_NoValueNow) {
    m_fans->Put(std::nullopt);
    ExpectFailure(m_access.Read("fans"), ErrorCode_e::no_value, "no value");
}

TEST_F(AccessTest, Read_ErrorOfTheNode_IsPassedOnLetterByLetter) {
    m_fans->onGet = [] { throw qstd::Exception(" odd\ntext: 100%s "); };
    ExpectFailure(m_access.Read("fans"), ErrorCode_e::failed, " odd\ntext: 100%s ");
    m_fans->onGet = [] { throw std::bad_weak_ptr(); };
    ExpectFailure(m_access.Read("fans"), ErrorCode_e::failed, "bad_weak_ptr");
    m_fans->onGet = [] { throw 42; };
    ExpectFailure(m_access.Read("fans"), ErrorCode_e::failed, "Unknown Exception");
}

TEST_F(AccessTest, Read_TextThatIsTooLong_IsALimit) {
    m_board->Put(std::string(65535, 'x'));
    EXPECT_EQ(m_access.Read("board").value, Value(std::string(65535, 'x')));
    m_board->Put(std::string(65536, 'x'));
    ExpectFailure(m_access.Read("board"), ErrorCode_e::limit,
                  "Node \"board\" has a text of 65536 bytes, and at most 65535 can be passed on");
}

TEST_F(AccessTest, Write_TakesTheNodesOwnType) {
    EXPECT_EQ(m_access.Write("fans", 4000.25).code, ErrorCode_e::ok);
    EXPECT_EQ(m_access.Write("board", Value("MCB")).code, ErrorCode_e::ok);
    EXPECT_EQ(m_access.Write("revision", -7).code, ErrorCode_e::ok);
    EXPECT_EQ(m_fans->Held(), 4000.25);
    EXPECT_EQ(m_board->Held(), "MCB");
    EXPECT_EQ(m_revision->Held(), -7);
}

TEST_F(AccessTest, Write_NumbersOfTheOtherType_AreConvertedWhenNothingIsLost) {
    EXPECT_EQ(m_access.Write("fans", 4000).code, ErrorCode_e::ok);
    EXPECT_EQ(m_fans->Held(), 4000.0);
    for (const int value : {5, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        EXPECT_EQ(m_access.Write("revision", static_cast<double>(value)).code, ErrorCode_e::ok);
        EXPECT_EQ(m_revision->Held(), value);
    }
}

TEST_F(AccessTest, Write_NumberThatIsNoInteger_IsOfTheWrongType) {
    const std::string range = "Node \"revision\" takes whole numbers from -2147483648 to 2147483647, not ";
    ExpectFailure(m_access.Write("revision", 1.5), ErrorCode_e::wrong_type, range + "1.5");
    ExpectFailure(m_access.Write("revision", 2147483648.0), ErrorCode_e::wrong_type, range + "2147483648");
    ExpectFailure(m_access.Write("revision", -2147483649.0), ErrorCode_e::wrong_type, range + "-2147483649");
    ExpectFailure(m_access.Write("revision", std::nan("")), ErrorCode_e::wrong_type, range + "nan");
    ExpectFailure(m_access.Write("revision", -HUGE_VAL), ErrorCode_e::wrong_type, range + "-inf");
    EXPECT_EQ(m_revision->Held(), 3);
}

TEST_F(AccessTest, Write_NotANumber_IsTheNodesToJudge) {
    EXPECT_EQ(m_access.Write("fans", std::nan("")).code, ErrorCode_e::ok);
    EXPECT_TRUE(std::isnan(*m_fans->Held()));
}

TEST_F(AccessTest, Write_WhatTheNodeCannotTakeAtAll_DoesNotReachIt) {
    m_board->onSet = [] { FAIL() << "the node was called"; };
    m_fans->onSet = m_board->onSet;
    ExpectFailure(m_access.Write("board", 1.5), ErrorCode_e::wrong_type, "Node \"board\" takes text, not 1.5");
    ExpectFailure(m_access.Write("board", 1), ErrorCode_e::wrong_type, "Node \"board\" takes text, not 1");
    ExpectFailure(m_access.Write("fans", Value()), ErrorCode_e::wrong_type,
                  "Node \"fans\" takes numbers, not an empty value");
    m_root->Add(qnode::factory::Create<qnode::LocalNodeStructure, RegNode>("odd", RegNode::c_writable));
    ExpectFailure(m_access.Write("odd", Value("x")), ErrorCode_e::wrong_type, "Node \"odd\" takes no value, not x");
}

class TextualFan : public test::ValueNode<double> {
public:
    using ValueNode::OnSet;
    using ValueNode::ValueNode;
    void OnSet(const std::string* value, std::size_t /*position*/, std::size_t /*count*/) override {
        if (*value != "fast") {
            throw qstd::Exception("bad lexical cast: " + *value);
        }
        Put(9000.0);
    }
};

TEST_F(AccessTest, Write_TextIsTheNodesToConvert) {
    m_root->Add(qnode::factory::Create<qnode::LocalNodeStructure, TextualFan>("fan", 1.0));
    EXPECT_EQ(m_access.Write("fan", Value("fast")).code, ErrorCode_e::ok);
    EXPECT_EQ(m_access.Read("fan").value, Value(9000.0));
    ExpectFailure(m_access.Write("fan", Value("abc")), ErrorCode_e::failed, "bad lexical cast: abc");
}

TEST_F(AccessTest, Write_NodeThatClientsMayNotWrite) {
    ExpectFailure(m_access.Write("fans/left", 5.0), ErrorCode_e::not_writable,
                  "Node \"left\" cannot be written by clients");
    EXPECT_EQ(m_left->Held(), 1.0);
}

TEST_F(AccessTest, Write_ErrorOfTheNode_IsPassedOnLetterByLetter) {
    m_fans->onSet = [] { throw qstd::Exception("Too high rpm value: 29.5", true); };
    ExpectFailure(m_access.Write("fans", 29.5), ErrorCode_e::failed, "Too high rpm value: 29.5");
    m_fans->onSet = [] { throw "text"; };
    ExpectFailure(m_access.Write("fans", 29.5), ErrorCode_e::failed, "Unknown Exception");
    EXPECT_EQ(m_fans->Held(), 2500.5);
}

}  // namespace
