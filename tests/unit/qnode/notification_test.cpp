#include "qnode/notification.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

#include "qnode/node.h"
#include "tests/support/manual_clock.h"
#include "tests/unit/qnode/asked_node.h"

namespace {

using qnode::Listening;
using qnode::Node;
using qnode::NotificationType;
using test::Plain;
using testing::ElementsAre;
using testing::IsEmpty;

/// Takes down what it hears, as "path type value".
class Notebook : public qnode::NotificationListener {
public:
    void OnNotification(const qnode::Notification& notification) override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_lines.push_back(notification.path + " " + qstd::EnumMap<NotificationType>::items.GetName(notification.type) +
                          " " + std::to_string(notification.value.Get<int>()));
        m_time = notification.time;
    }

    std::vector<std::string> TakeLines() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_lines, {});
    }
    std::chrono::system_clock::time_point GetTime() const { return m_time; }

private:
    std::mutex m_mutex;  ///< guards all below
    std::vector<std::string> m_lines;
    std::chrono::system_clock::time_point m_time;
};

void Emit(const std::shared_ptr<qnode::TreeNode>& node, int value, NotificationType type = NotificationType::value) {
    Node(node).Emit(type, qstd::Any(value));
}

class NotificationTest : public testing::Test {
protected:
    const std::shared_ptr<qnode::TreeNode> m_root = Plain("root");
    const std::shared_ptr<qnode::TreeNode> m_leaf = m_root->Add(Plain("boards"))->Add(Plain("icb"));
    Notebook m_notebook;
};

TEST_F(NotificationTest, NumbersAreThoseOfTheProtocol) {
    EXPECT_EQ(static_cast<int>(NotificationType::value), 0);
    EXPECT_EQ(static_cast<int>(NotificationType::threshold), 1);
}

TEST_F(NotificationTest, NobodyListens_NothingHappens) {
    Emit(m_leaf, 1);
    Listening listening(m_root, m_notebook);
    Emit(m_leaf, 2);
    EXPECT_THAT(m_notebook.TakeLines(), IsEmpty()) << "without interest";
}

TEST_F(NotificationTest, Listener_HearsPathTypeValueAndTime) {
    const test::ManualClock clock;
    Listening listening(m_root, m_notebook);
    listening.SetInterest(true);
    Emit(m_leaf, 1);
    Emit(m_leaf, 2, NotificationType::threshold);
    Emit(m_root, 3);
    EXPECT_THAT(m_notebook.TakeLines(), ElementsAre("boards/icb value 1", "boards/icb threshold 2", " value 3"));
    EXPECT_EQ(m_notebook.GetTime(), clock.SystemNow());
}

TEST_F(NotificationTest, InterestIsSwitchedOnAndOff) {
    Listening listening(m_root, m_notebook);
    for (int round = 0; round < 2; ++round) {
        listening.SetInterest(true);
        listening.SetInterest(true);
        Emit(m_leaf, 1);
        listening.SetInterest(false);
        Emit(m_leaf, 2);
        EXPECT_THAT(m_notebook.TakeLines(), ElementsAre("boards/icb value 1"));
    }
}

TEST_F(NotificationTest, EndOfAListening_EndsTheCalls) {
    std::optional<Listening> listening(std::in_place, m_root, m_notebook);
    listening->SetInterest(true);
    listening.reset();
    Emit(m_leaf, 1);
    EXPECT_THAT(m_notebook.TakeLines(), IsEmpty());
}

TEST_F(NotificationTest, EveryListenerHearsItsOwnTreeOnly) {
    const auto otherRoot = Plain("other");
    const auto otherLeaf = otherRoot->Add(Plain("fans"));
    Notebook otherNotebook;
    Notebook second;
    Listening listening(m_root, m_notebook);
    Listening other(otherRoot, otherNotebook);
    Listening alsoListening(m_root, second);
    listening.SetInterest(true);
    other.SetInterest(true);
    alsoListening.SetInterest(true);
    Emit(m_leaf, 1);
    Emit(otherLeaf, 2);
    EXPECT_THAT(m_notebook.TakeLines(), ElementsAre("boards/icb value 1"));
    EXPECT_THAT(second.TakeLines(), ElementsAre("boards/icb value 1"));
    EXPECT_THAT(otherNotebook.TakeLines(), ElementsAre("fans value 2"));
}

TEST_F(NotificationTest, SubtreeThatIsAddedLater_IsHeard) {
    const auto tree = Plain("tree");
    const auto leaf = tree->Add(Plain("leaf"));
    Listening listening(m_root, m_notebook);
    listening.SetInterest(true);
    Emit(leaf, 1);
    m_root->Add(tree);
    Emit(leaf, 2);
    EXPECT_THAT(m_notebook.TakeLines(), ElementsAre("tree/leaf value 2"));
}

TEST_F(NotificationTest, ManyEmitAtOnce_WhileListenersComeAndGo) {
    constexpr int c_emitters = 3;
    constexpr int c_each = 500;
    Listening listening(m_root, m_notebook);
    listening.SetInterest(true);
    std::atomic<int> emitting{c_emitters};
    std::vector<std::thread> threads;
    for (int i = 0; i < c_emitters; ++i) {
        threads.emplace_back([&] {
            for (int value = 0; value < c_each; ++value) {
                Emit(m_leaf, value);
            }
            --emitting;
        });
    }
    while (emitting > 0) {
        Notebook passing;
        Listening other(m_root, passing);
        other.SetInterest(true);
        std::this_thread::yield();
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(m_notebook.TakeLines().size(), static_cast<std::size_t>(c_emitters * c_each));
}

}  // namespace
