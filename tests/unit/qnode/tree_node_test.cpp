#include "qnode/tree_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "tests/support/expect_text.h"

namespace {

using qnode::TreeNode;

std::shared_ptr<TreeNode> Make(const std::string& name, std::uint64_t flags = 0) {
    return qnode::factory::Create<qnode::LocalNodeStructure, TreeNode>(name, flags);
}

std::vector<std::string> NamesUnder(const TreeNode& node) {
    std::vector<std::string> names;
    for (const auto& child : node.GetChildren()) {
        names.push_back(child->GetName());
    }
    return names;
}

TEST(TreeNode, NameMustNotHoldASlash) {
    for (const std::string name : {"/", "a/b", "a/"}) {
        EXPECT_EQ(test::TextOf([&] { TreeNode node(name); }), "Bad node name \"" + name + "\": it holds a slash");
    }
    EXPECT_EQ(Make("ID_12")->GetName(), "ID_12");
}

TEST(TreeNode, NodeWithoutName_CannotBeAdded) {
    EXPECT_EQ(test::TextOf([] { Make("root")->Add(Make("")); }),
              "Node \"\" cannot be added to \"root\": it has no name");
}

TEST(TreeNode, NodeThatTheFactoryDidNotMake_CannotBeInATree) {
    const auto alone = std::make_shared<TreeNode>("alone");
    EXPECT_EQ(test::TextOf([&] { Make("root")->Add(alone); }),
              "Node \"alone\" cannot be added to \"root\": a node without structure has no place in a tree");
    EXPECT_EQ(test::TextOf([&] { alone->Add(Make("child")); }),
              "Node \"child\" cannot be added to \"alone\": a node without structure has no place in a tree");
    EXPECT_EQ(alone->FindChild("child"), nullptr);
    EXPECT_TRUE(alone->GetChildren().empty());
}

TEST(TreeNode, ChildrenKeepTheOrderInWhichTheyWereAdded) {
    const auto root = Make("root");
    for (const char* name : {"c", "a", "b"}) {
        const auto child = Make(name);
        EXPECT_EQ(root->Add(child), child);
    }
    EXPECT_THAT(NamesUnder(*root), testing::ElementsAre("c", "a", "b"));
}

TEST(TreeNode, Attach_ReturnsTheNodeItWasCalledOn) {
    const auto root = Make("root");
    EXPECT_EQ(root->Attach(Make("b"))->Attach(Make("a")), root);
    EXPECT_THAT(NamesUnder(*root), testing::ElementsAre("b", "a"));
}

TEST(TreeNode, FindChild_IsByExactName) {
    const auto root = Make("root");
    const auto child = root->Add(Make("ID_12"));
    EXPECT_EQ(root->FindChild("ID_12"), child);
    EXPECT_EQ(root->FindChild("id_12"), nullptr);
    EXPECT_EQ(root->FindChild(""), nullptr);
}

TEST(TreeNode, SecondChildOfAName_IsRefusedAndNamesBoth) {
    const auto root = Make("boards");
    const auto first = root->Add(Make("icb"));
    EXPECT_EQ(test::TextOf([&] { root->Add(Make("icb")); }), "Node \"boards\" already has a child \"icb\"");
    EXPECT_EQ(test::TextOf([&] { root->Attach(Make("icb")); }), "Node \"boards\" already has a child \"icb\"");
    EXPECT_THAT(root->GetChildren(), testing::ElementsAre(first));
}

TEST(TreeNode, ChildOfAnother_IsRefusedAndNothingChanges) {
    const auto one = Make("one");
    const auto two = Make("two");
    const auto child = one->Add(Make("child"));
    EXPECT_EQ(test::TextOf([&] { two->Add(child); }),
              "Node \"child\" cannot be added to \"two\": it stands under \"one\"");
    EXPECT_EQ(test::TextOf([&] { one->Add(child); }),
              "Node \"child\" cannot be added to \"one\": it stands under \"one\"");
    EXPECT_EQ(child->GetParent(), one);
    EXPECT_THAT(NamesUnder(*two), testing::IsEmpty());
}

TEST(TreeNode, Loops_AreRefused) {
    const auto top = Make("top");
    const auto middle = top->Add(Make("middle"));
    const auto bottom = middle->Add(Make("bottom"));
    const auto text = [](const std::string& child, const std::string& parent) {
        return "Node \"" + child + "\" cannot be added to \"" + parent + "\": it is that node or one above it";
    };
    EXPECT_EQ(test::TextOf([&] { top->Add(top); }), text("top", "top"));
    EXPECT_EQ(test::TextOf([&] { middle->Add(top); }), text("top", "middle"));
    EXPECT_EQ(test::TextOf([&] { bottom->Add(top); }), text("top", "bottom"));
    EXPECT_EQ(top->GetParent(), nullptr);
}

TEST(TreeNode, ParentOwnsItsChildren_AndAChildOutlivesIt) {
    auto root = Make("root");
    std::weak_ptr<TreeNode> dropped = root->Add(Make("a"));
    const auto kept = root->Add(Make("b"));
    EXPECT_EQ(kept->GetParent(), root);
    root.reset();
    EXPECT_TRUE(dropped.expired());
    EXPECT_EQ(kept->GetParent(), nullptr);
    EXPECT_EQ(Make("other")->Add(kept), kept);
}

TEST(TreeNode, SettingFlags_AddsAndNeverClears) {
    const auto node = Make("node", 2);
    EXPECT_EQ(node->OnGetFlags(), 2U);
    node->OnSetFlags(4);
    EXPECT_EQ(node->OnGetFlags(), 6U);
    node->OnSetFlags(0);
    EXPECT_EQ(node->OnGetFlags(), 6U);
    node->OnSetFlags(1ULL << 63);
    EXPECT_EQ(node->OnGetFlags(), 6U + (1ULL << 63));
    EXPECT_EQ(Make("plain")->OnGetFlags(), 0U);
}

TEST(TreeNode, IsReadWhileOthersAdd) {
    constexpr int c_children = 200;
    const auto root = Make("root");
    std::atomic<int> running{3};
    std::vector<std::thread> threads;
    for (const std::string prefix : {"a", "b", "c"}) {
        threads.emplace_back([&, prefix] {
            for (int i = 0; i < c_children; ++i) {
                root->Add(Make(prefix + std::to_string(i)))->Add(Make("leaf"));
                root->OnSetFlags(1ULL << (i % 60));
            }
            --running;
        });
    }
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (running > 0) {
                for (const auto& child : root->GetChildren()) {
                    EXPECT_EQ(child->GetParent(), root);
                }
                qnode::Node(root).DumpSubTree(-1, 0, 10);
                root->FindChild("a199");
                root->OnGetFlags();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(root->GetChildren().size(), 3U * c_children);
    EXPECT_EQ(root->OnGetFlags(), (1ULL << 60) - 1);
}

TEST(TreeNode, TwoThreadsThatAddEachToTheOther_NeverMakeALoopNorADeadlock) {
    for (int round = 0; round < 200; ++round) {
        const auto one = Make("one");
        const auto two = Make("two");
        std::atomic<int> added{0};
        const auto add = [&added](const auto& parent, const auto& child) {
            try {
                parent->Add(child);
                ++added;
            } catch (const qstd::Exception&) {
                // One of the two comes too late; `added` says so.
            }
        };
        std::thread first([&] { add(one, two); });
        std::thread second([&] { add(two, one); });
        first.join();
        second.join();
        EXPECT_EQ(added, 1);
    }
}

}  // namespace
