#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "qreg/access.h"
#include "tests/support/expect_text.h"
#include "tests/unit/qreg/value_node.h"

namespace {

using qreg::Access;
using test::Container;
using testing::ElementsAre;

constexpr std::size_t c_all = std::numeric_limits<std::size_t>::max();

/// a (with b, and c with d below) and e under a root.
class AccessWalk : public testing::Test {
protected:
    AccessWalk() {
        const auto a = m_root->Add(Container("a"));
        a->Add(Container("b"));
        a->Add(Container("c"))->Add(Container("d"));
        m_root->Add(Container("e"));
    }

    /// The steps as "depth:path"; the walk is ended after @p most of them.
    std::vector<std::string> Walk(std::string_view path, std::size_t depth, std::string_view after = {},
                                  std::size_t most = c_all) {
        std::vector<std::string> steps;
        m_cameToEnd = m_access.Walk(path, depth, after, [&](const Access::Step& step) {
            EXPECT_EQ(&step.node, &m_access.Find(step.path));
            steps.push_back(std::to_string(step.depth) + ":" + std::string(step.path));
            return steps.size() < most;
        });
        return steps;
    }

    const std::shared_ptr<qnode::TreeNode> m_root = Container("root");
    const Access m_access{m_root};
    bool m_cameToEnd = false;
};

TEST_F(AccessWalk, ParentsComeBeforeTheirChildren) {
    EXPECT_THAT(Walk("", c_all), ElementsAre("0:", "1:a", "2:a/b", "2:a/c", "3:a/c/d", "1:e"));
    EXPECT_TRUE(m_cameToEnd);
    EXPECT_THAT(Walk("a", c_all), ElementsAre("0:a", "1:a/b", "1:a/c", "2:a/c/d"));
    EXPECT_THAT(Walk("e", c_all), ElementsAre("0:e"));
}

TEST_F(AccessWalk, PathsAreWrittenWithoutEmptyNames) {
    EXPECT_THAT(Walk("//a//c/", c_all), ElementsAre("0:a/c", "1:a/c/d"));
}

TEST_F(AccessWalk, GoesAsDeepAsAsked) {
    EXPECT_THAT(Walk("", 0), ElementsAre("0:"));
    EXPECT_THAT(Walk("", 1), ElementsAre("0:", "1:a", "1:e"));
    EXPECT_THAT(Walk("a", 1), ElementsAre("0:a", "1:a/b", "1:a/c"));
}

TEST_F(AccessWalk, EndsWhenTheVisitorHasEnough) {
    EXPECT_THAT(Walk("", c_all, {}, 3), ElementsAre("0:", "1:a", "2:a/b"));
    EXPECT_FALSE(m_cameToEnd);
}

TEST_F(AccessWalk, IsTakenUpAfterAnyNode) {
    const auto whole = Walk("", c_all);
    for (std::size_t taken = 1; taken <= whole.size(); ++taken) {
        const std::string last = whole[taken - 1].substr(2);
        const auto rest = Walk("", c_all, last.empty() ? "/" : last);
        EXPECT_EQ(rest, std::vector<std::string>(whole.begin() + static_cast<std::ptrdiff_t>(taken), whole.end()))
            << "after \"" << last << "\"";
        EXPECT_TRUE(m_cameToEnd);
    }
    EXPECT_THAT(Walk("a", c_all, "a"), ElementsAre("1:a/b", "1:a/c", "2:a/c/d"));
    EXPECT_THAT(Walk("a/c", c_all, "a/c/d"), ElementsAre());
}

TEST_F(AccessWalk, TakenUp_KeepsToTheDepth) {
    EXPECT_THAT(Walk("", 1, "a"), ElementsAre("1:e"));
    EXPECT_THAT(Walk("", 1, "a/c/d"), ElementsAre("1:e"));
    EXPECT_THAT(Walk("", 0, "/"), ElementsAre());
}

TEST_F(AccessWalk, PathThatLeadsNowhere_IsNamed) {
    EXPECT_EQ(test::TextOf([&] { Walk("x", c_all); }), "No node \"x\" under \"root\" (path \"x\")");
    EXPECT_EQ(test::TextOf([&] { Walk("a", c_all, "a/x"); }), "No node \"x\" under \"a\" (path \"a/x\")");
}

TEST_F(AccessWalk, StartThatIsNotBelowThePath_IsRefused) {
    EXPECT_EQ(test::TextOf([&] { Walk("a", c_all, "e"); }), "Node \"e\" is not below \"a\"");
    EXPECT_EQ(test::TextOf([&] { Walk("a/c", c_all, "a"); }), "Node \"a\" is not below \"a/c\"");
    try {
        Walk("a", c_all, "e");
        FAIL() << "walked";
    } catch (const qreg::RegistryError& error) {
        EXPECT_EQ(error.GetCode(), qreg::ErrorCode_e::no_such_node);
        EXPECT_EQ(error.GetPath(), "e");
    }
}

TEST_F(AccessWalk, NodesThatAreAddedMeanwhileAndStandLater_AreVisited) {
    std::vector<std::string> steps;
    m_access.Walk("", c_all, {}, [&](const Access::Step& step) {
        if (step.path == "a/b") {
            for (int i = 0; i < 20; ++i) {
                m_root->FindChild("a")->Add(Container("new" + std::to_string(i)));
            }
        }
        steps.emplace_back(step.path);
        return true;
    });
    EXPECT_EQ(steps.size(), 6U + 20U);
}

}  // namespace
