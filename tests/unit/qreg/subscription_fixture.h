#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qnode/node.h"
#include "qreg/subscriptions.h"
#include "tests/support/manual_clock.h"
#include "tests/unit/qreg/value_node.h"

namespace test {

/// A tree of two boards with a value each, and the subscriptions to it under a clock that a test moves.
class SubscriptionFixture : public testing::Test {
protected:
    static constexpr std::chrono::milliseconds c_noWait{0};
    static constexpr std::chrono::milliseconds c_longWait{100000};

    /// Subscriptions with these limits instead of the default ones.
    void Restart(const qreg::SubscriptionLimits& limits) {
        m_subscriptions.reset();
        m_subscriptions.emplace(qreg::Access(m_root), limits);
    }

    std::string Subscribe(std::vector<std::string> patterns = {}, std::size_t queueLimit = 0) {
        qreg::Filter filter;
        filter.patterns = std::move(patterns);
        filter.queueLimit = queueLimit;
        return m_subscriptions->Subscribe(filter).id;
    }

    qreg::Batch Poll(const std::string& id, std::uint64_t received = 0, std::size_t max = 0,
                     std::chrono::milliseconds wait = c_noWait) {
        return m_subscriptions->Poll(id, received, max, wait);
    }

    /// A poll in another thread, which waits when this returns unless it came to its end.
    std::future<qreg::Batch> PollAside(const std::string& id, std::uint64_t received = 0) {
        return std::async(std::launch::async, [this, id, received] { return Poll(id, received, 0, c_longWait); });
    }

    static void Emit(const std::shared_ptr<qnode::TreeNode>& node, double value,
                     qnode::NotificationType type = qnode::NotificationType::value) {
        qnode::Node(node).Emit(type, qstd::Any(value));
    }

    /// Emits first, first + 1, ... last on m_first.
    void EmitRange(int first, int last) {
        for (int value = first; value <= last; ++value) {
            Emit(m_first, value);
        }
    }

    /// Whether anybody has interest in what nodes tell: only then an emission copies its value.
    static bool IsHeard(const std::shared_ptr<qnode::TreeNode>& node) {
        struct Counted {
            explicit Counted(int& theCopies) : copies(theCopies) {}
            Counted(const Counted& other) : copies(other.copies) { ++copies; }
            int& copies;
        };
        int copies = 0;
        const qstd::Any value{Counted(copies)};
        const int before = copies;
        qnode::Node(node).Emit(qnode::NotificationType::value, value);
        return copies > before;
    }

    /// The events of a batch as "sequence path value", separated by commas; "!" after that of a present value.
    static std::string Shown(const qreg::Batch& batch) {
        std::string text;
        for (const auto& event : batch.events) {
            text += (text.empty() ? "" : ", ") + std::to_string(event->sequence) + " " + event->path + " " +
                    qnode::ToText(event->value) + (event->type == qreg::c_presentType ? "!" : "");
        }
        return text;
    }

    /// The code of the error that @p action raises; ok when it raises none.
    template <class Action>
    static qreg::ErrorCode_e CodeOf(const Action& action) {
        try {
            action();
        } catch (const qreg::RegistryError& error) {
            return error.GetCode();
        }
        return qreg::ErrorCode_e::ok;
    }

    ManualClock m_clock;
    const std::shared_ptr<qnode::TreeNode> m_root = Container("root");
    const std::shared_ptr<qnode::TreeNode> m_boards = m_root->Add(Container("boards"));
    const std::shared_ptr<ValueNode<double>> m_first = AddValue<double>(m_boards, "a", 0.5);
    const std::shared_ptr<ValueNode<double>> m_second = AddValue<double>(m_boards, "b");
    std::optional<qreg::Subscriptions> m_subscriptions{std::in_place, qreg::Access(m_root), qreg::SubscriptionLimits{}};
};

}  // namespace test
