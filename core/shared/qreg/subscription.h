#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qnode/notification.h"
#include "qreg/error.h"
#include "qreg/present_walk.h"
#include "qreg/subscriptions.h"

namespace qreg {

/// One subscription: its queue, its numbers and its lease. Any thread.
///
/// Events wait in two stages. What was emitted waits in m_waiting, without numbers and shared with the other
/// subscriptions; this is what the limit of the queue counts. A poll gives events their numbers and moves them to
/// m_sent, at most one batch, where they stay until the subscriber says that it has them. Present values get into
/// m_sent directly, before what waits.
class Subscription {
public:
    using Instant = std::chrono::steady_clock::time_point;
    using EventPtr = std::shared_ptr<const Event>;

    /// How long a subscription stays dormant before it is ended.
    static constexpr std::chrono::hours c_longestSleep{24};

    /// @param filter with all limits filled in
    /// @param access outlives this object
    Subscription(std::string id, const Filter& filter, const Access& access, Instant now);

    const std::string& GetId() const noexcept { return m_id; }

    std::size_t CountPatterns() const noexcept { return m_filter.patterns.size(); }

    /// Whether the filter takes in @p path.
    bool Wants(std::string_view path) const noexcept { return WantsPath(m_filter, path); }

    /// Puts an event, whose path it wants, into the queue when its type is wanted too. Never waits for more than the
    /// exchange of some pointers.
    /// @param event shared by all subscriptions; made by the first one that takes it
    /// @return whether Attend() is to be called, by another thread
    bool Put(const qnode::Notification& notification, Instant now, EventPtr& event);

    /// Wakes the polls that wait and frees what was given up, after Put() asked for it.
    void Attend();

    /// As Subscriptions::Poll. @param max at least 1
    Batch Poll(std::uint64_t received, std::size_t max, std::chrono::milliseconds wait);

    /// As Subscriptions::Renew.
    std::chrono::seconds Renew();

    /// Every poll ends with an error of @p code from now on.
    void End(ErrorCode_e code);

    /// Since when it is dormant; nothing while it is active.
    std::optional<Instant> DormantSince(Instant now);

    /// Whether it was dormant for so long that it is to be ended.
    bool IsOverdue(Instant now);

private:
    static constexpr std::size_t c_cacheLine = 64;

    class Presence;
    class Filling;

    // All of these under the mutex.
    void Settle(Instant now);
    void Awake(std::uint64_t received);
    void Lose(std::uint64_t count) noexcept;
    void GiveUp();
    bool HasWalk() const noexcept { return m_walk.has_value() || (m_isPresentDue && m_backlog == 0); }
    bool CanFill(std::size_t max) const noexcept;
    void RefuseEnded() const;
    Batch Answer(std::size_t max);

    // These let go of the mutex in between.
    void Fill(std::unique_lock<std::mutex>& lock, std::size_t max);
    void FillWithPresent(std::unique_lock<std::mutex>& lock, std::size_t max);
    void FillWithWaiting(std::unique_lock<std::mutex>& lock, std::size_t max);

    const std::string m_id;
    const Filter m_filter;
    const Access& m_access;

    // What an emission uses stands together in the first cache lines: other processors had it last.
    alignas(c_cacheLine) std::mutex m_mutex;  ///< guards all below but m_isCalling
    int m_sleepers = 0;                       ///< polls that wait
    int m_polls = 0;                          ///< running: the lease does not run out meanwhile
    std::atomic<bool> m_isCalling{false};     ///< Attend() is asked for
    bool m_isDormant = false;
    bool m_isPresentDue = false;  ///< present values are to be delivered, once more perhaps
    bool m_isFilling = false;     ///< a poll moves events to m_sent, the mutex let go
    std::optional<ErrorCode_e> m_end;
    Instant m_leaseEnd;
    std::deque<EventPtr> m_waiting;
    std::size_t m_backlog = 0;  ///< events of m_waiting to deliver before present values come once more
    std::uint64_t m_next = 1;   ///< number of the next event
    std::uint64_t m_lost = 0;

    std::uint64_t m_lostTold = 0;  ///< the subscriber knows of so many
    std::uint64_t m_ticket = 0;    ///< of the newest poll; older ones end
    std::condition_variable m_changed;
    std::deque<EventPtr> m_sent;
    std::deque<EventPtr> m_discarded;     ///< given up by an emission; freed by another thread
    std::vector<std::uint64_t> m_unsure;  ///< numbers of events that were sent and given up: received or lost
    std::optional<PresentWalk> m_walk;    ///< the present values that are being delivered; used by who fills
};

}  // namespace qreg
