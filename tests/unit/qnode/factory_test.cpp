#include "qnode/factory.h"

#include <gtest/gtest.h>

#include "tests/support/expect_text.h"
#include "tests/unit/qnode/asked_node.h"

namespace {

using qnode::LocalNodeStructure;
using qnode::TreeNode;
using qnode::factory::Create;

/// Adds a child of its own as soon as it can.
class Family : public TreeNode {
public:
    explicit Family(const char* name) : Family(std::string(name), "child", 0) {}
    Family(const std::string& name, std::string child, unsigned long long flags)
        : TreeNode(name, flags), m_child(std::move(child)), m_hadStructure(GetStructure() != nullptr) {}

    bool Init() override {
        ++m_inits;
        m_hasStructure = GetStructure() != nullptr;
        Add(test::Plain(m_child));
        return m_answer;
    }

    const std::string m_child;
    const bool m_hadStructure;
    bool m_hasStructure = false;
    bool m_answer = false;
    int m_inits = 0;
};

TEST(Factory, Init_IsCalledOnce_WhenTheNodeHasItsStructure) {
    const auto node = std::dynamic_pointer_cast<Family>(
        Create<LocalNodeStructure, Family>(std::string("fans"), std::string("left"), 6U));
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->m_inits, 1);
    EXPECT_FALSE(node->m_hadStructure);
    EXPECT_TRUE(node->m_hasStructure);
    EXPECT_EQ(node->OnGetFlags(), 6U);
    ASSERT_NE(node->FindChild("left"), nullptr);
    EXPECT_EQ(node->FindChild("left")->GetParent(), node);
}

TEST(Factory, AnswerOfInit_DoesNotMatter) {
    EXPECT_NE(Create<Family>("fans"), nullptr);
}

TEST(Factory, ShortForm_NeedsTheNameOnly) {
    const auto node = Create<Family>("fans");
    EXPECT_EQ(node->GetName(), "fans");
    EXPECT_EQ(std::dynamic_pointer_cast<Family>(node)->m_inits, 1);
    EXPECT_NE(node->FindChild("child"), nullptr);
    EXPECT_EQ(Create<TreeNode>("plain")->GetChildren().size(), 0U);
}

class Refusing : public TreeNode {
public:
    explicit Refusing(const std::string& name) : TreeNode(name) {
        throw qstd::Exception("Internal error: fan is not properly instantiated", true);
    }
};

class RefusingLate : public TreeNode {
public:
    using TreeNode::TreeNode;
    bool Init() override { throw qstd::Exception("no board"); }
};

TEST(Factory, ExceptionOfAConstructor_IsPassedOn) {
    EXPECT_EQ(test::TextOf([] { Create<LocalNodeStructure, Refusing>("x"); }),
              "Internal error: fan is not properly instantiated");
    EXPECT_EQ(test::TextOf([] { Create<Refusing>("x"); }), "Internal error: fan is not properly instantiated");
    EXPECT_EQ(test::TextOf([] { Create<TreeNode>("a/b"); }), "Bad node name \"a/b\": it holds a slash");
}

TEST(Factory, ExceptionOfInit_IsPassedOn) {
    EXPECT_EQ(test::TextOf([] { Create<RefusingLate>("x"); }), "no board");
}

}  // namespace
