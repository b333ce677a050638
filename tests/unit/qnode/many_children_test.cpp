#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "qnode/local_node_structure.h"
#include "qnode/node.h"
#include "tests/support/expect_text.h"
#include "tests/unit/qnode/asked_node.h"

namespace {

using qnode::LocalNodeStructure;
using test::Plain;

std::string Name(int number) {
    return "ID_" + std::to_string(number);
}

TEST(ManyChildren, AreFoundByName_AtEverySize) {
    constexpr int c_children = 500;  // beyond the sizes at which the list and its table grow
    const auto root = Plain("root");
    for (int added = 1; added <= c_children; ++added) {
        root->Add(Plain(Name(added - 1)));
        const LocalNodeStructure& structure = *root->GetStructure();
        ASSERT_EQ(structure.CountChildren(), static_cast<std::size_t>(added));
        for (const int number : {0, added / 2, added - 1}) {
            ASSERT_EQ(structure.FindChild(Name(number)), static_cast<std::size_t>(number)) << "of " << added;
            ASSERT_EQ(structure.GetChild(static_cast<std::size_t>(number))->GetName(), Name(number));
        }
        ASSERT_EQ(structure.FindChild(Name(added)), LocalNodeStructure::c_none);
        ASSERT_EQ(root->FindChild(""), nullptr);
    }
    for (int number = 0; number < c_children; ++number) {
        ASSERT_EQ(test::TextOf([&] { root->Add(Plain(Name(number))); }),
                  "Node \"root\" already has a child \"" + Name(number) + "\"");
    }
}

TEST(ManyChildren, ReferencesStayGood_WhileTheListGrows) {
    const auto root = Plain("root");
    root->Add(Plain("first"));
    const std::shared_ptr<qnode::TreeNode>& first = root->GetStructure()->GetChild(0);
    for (int number = 0; number < 100; ++number) {
        root->Add(Plain(Name(number)));
    }
    EXPECT_EQ(first->GetName(), "first");
    EXPECT_EQ(first, root->FindChild("first"));
}

TEST(ManyChildren, AreFoundAndWalked_WhileOthersAreAdded) {
    constexpr int c_children = 3000;
    const auto root = Plain("root");
    const LocalNodeStructure& structure = *root->GetStructure();
    std::atomic<int> added{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&, i] {
            for (int seen = 0, round = i; seen < c_children; round = (round + 1) % c_children) {
                seen = added;
                if (seen == 0) {
                    continue;
                }
                const int number = round * 7919 % seen;
                ASSERT_EQ(structure.FindChild(Name(number)), static_cast<std::size_t>(number)) << "of " << seen;
                ASSERT_GE(structure.CountChildren(), static_cast<std::size_t>(seen));
                ASSERT_EQ(root->FindBelow(Name(number) + "/leaf")->GetName(), "leaf");
                ASSERT_EQ(structure.FindChild("none"), LocalNodeStructure::c_none);
            }
        });
    }
    for (int number = 0; number < c_children; ++number) {
        const auto child = Plain(Name(number));
        child->Add(Plain("leaf"));
        root->Add(child);
        added = number + 1;
    }
    for (auto& reader : readers) {
        reader.join();
    }
}

TEST(Paths, GetPath_IsTheNamesFromBelowTheRoot) {
    const auto root = Plain("root");
    const auto boards = root->Add(Plain("boards"));
    const auto leaf = boards->Add(Plain("icb"))->Add(Plain("value"));
    EXPECT_EQ(root->GetPath(), "");
    EXPECT_EQ(boards->GetPath(), "boards");
    EXPECT_EQ(leaf->GetPath(), "boards/icb/value");
    const qnode::TreeNode* top = nullptr;
    EXPECT_EQ(leaf->GetPath(&top), "boards/icb/value");
    EXPECT_EQ(top, root.get());
    EXPECT_EQ(root->GetPath(&top), "");
    EXPECT_EQ(top, root.get());
}

TEST(Paths, GetPath_BeginsAtTheHighestNodeThatLives) {
    auto root = Plain("root");
    const auto boards = root->Add(Plain("boards"));
    const auto leaf = boards->Add(Plain("icb"));
    root.reset();
    EXPECT_EQ(leaf->GetPath(), "icb");
    EXPECT_EQ(qnode::TreeNode("alone").GetPath(), "");
}

TEST(Paths, FindBelow_FollowsThePath) {
    const auto root = Plain("root");
    const auto leaf = root->Add(Plain("boards"))->Add(Plain("icb"))->Add(Plain("value"));
    EXPECT_EQ(root->FindBelow(""), root.get());
    EXPECT_EQ(root->FindBelow("/"), root.get());
    EXPECT_EQ(root->FindBelow("boards/icb/value"), leaf.get());
    EXPECT_EQ(root->FindBelow("//boards/icb//value/"), leaf.get());
    EXPECT_EQ(leaf->FindBelow(""), leaf.get());
    for (const char* path : {"x", "boards/x", "boards/icb/value/x", "icb", "root", "Boards", "boards icb", "..", "."}) {
        EXPECT_EQ(root->FindBelow(path), nullptr) << path;
    }
    EXPECT_EQ(qnode::TreeNode("alone").FindBelow("x"), nullptr);
}

}  // namespace
