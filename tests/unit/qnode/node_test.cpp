#include "qnode/node.h"

#include <gtest/gtest.h>

#include "qnode/factory.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"

namespace {

using qnode::Node;
using qnode::TreeNode;

/// boards / icb / sensors / ID_12, and fans beside boards.
class NodeTest : public testing::Test {
protected:
    NodeTest() : m_root(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("platform")) {
        const auto boards = m_root->Add(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("boards"));
        m_root->Add(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("fans"));
        const auto icb = boards->Add(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("icb"));
        icb->Add(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("sensors"))
            ->Add(qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>("ID_12"));
    }
    std::shared_ptr<TreeNode> m_root;
};

TEST_F(NodeTest, Find_FollowsThePath) {
    const Node root(m_root);
    EXPECT_EQ(root.Find("boards/icb/sensors/ID_12").Get()->GetName(), "ID_12");
    EXPECT_EQ(root.Find("boards").Find("icb/sensors").Get()->GetName(), "sensors");
    EXPECT_EQ(root.Find("fans").Get(), m_root->FindChild("fans"));
}

TEST_F(NodeTest, Find_EmptyPathIsTheNodeItself) {
    EXPECT_EQ(Node(m_root).Find("").Get(), m_root);
}

TEST_F(NodeTest, Find_PassesOverEmptyNames) {
    EXPECT_EQ(Node(m_root).Find("/boards//icb/").Get()->GetName(), "icb");
}

TEST_F(NodeTest, Find_NameThatIsNotThere_IsNamedWithItsParentAndThePath) {
    const Node root(m_root);
    EXPECT_EQ(test::TextOf([&] { root.Find("boards/slot2/sensors"); }),
              "No node \"slot2\" under \"boards\" (path \"boards/slot2/sensors\")");
    EXPECT_EQ(test::TextOf([&] { root.Find("Boards"); }), "No node \"Boards\" under \"platform\" (path \"Boards\")");
    try {
        root.Find("x");
        FAIL() << "found";
    } catch (const qstd::Exception& error) {
        EXPECT_TRUE(error.GetFlag()) << "a complete answer to who asked";
    }
}

TEST_F(NodeTest, DumpSubTree_ShowsALineANode) {
    EXPECT_EQ(Node(m_root).DumpSubTree(-1, 0, Node::c_defMaxValueLen),
              "platform\n"
              "  boards\n"
              "    icb\n"
              "      sensors\n"
              "        ID_12\n"
              "  fans\n");
}

TEST_F(NodeTest, DumpSubTree_GoesAsDeepAsAsked) {
    const Node root(m_root);
    EXPECT_EQ(root.DumpSubTree(0, 0, 80), "platform\n");
    EXPECT_EQ(root.DumpSubTree(1, 0, 80), "platform\n  boards\n  fans\n");
    EXPECT_EQ(root.DumpSubTree(2, 0, 80), "platform\n  boards\n    icb\n  fans\n");
    EXPECT_EQ(root.Find("boards/icb").DumpSubTree(1, 0, 80), "icb\n  sensors\n");
}

TEST_F(NodeTest, KeepsItsNodeAlive) {
    const Node sensors = Node(m_root).Find("boards/icb/sensors");
    m_root.reset();
    EXPECT_EQ(sensors.Find("ID_12").Get()->GetName(), "ID_12");
}

}  // namespace
