#include "qreg/subscription.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "qstd/clock.h"

namespace qreg {

namespace {

/// So long a poll collects present values before it answers.
constexpr std::chrono::milliseconds c_collectTime{100};

qnode::Value ToValue(const qstd::Any& any) {
    if (any.GetType() == typeid(double)) {
        return any.Get<double>();
    }
    if (any.GetType() == typeid(int)) {
        return any.Get<int>();
    }
    if (any.GetType() == typeid(std::string) && any.Get<std::string>().size() <= Access::c_longestText) {
        return any.Get<std::string>();
    }
    return {};
}

bool WantsType(const Filter& filter, unsigned type) noexcept {
    constexpr unsigned c_bits = std::numeric_limits<std::uint32_t>::digits;
    return filter.types == 0 || (type < c_bits && ((filter.types >> type) & 1U) != 0);
}

}  // namespace

/// A poll from its begin to its end, which is a sign of life. Under the mutex.
class Subscription::Presence {
public:
    explicit Presence(Subscription& subscription) noexcept : m_subscription(subscription) { ++subscription.m_polls; }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence() {
        --m_subscription.m_polls;
        m_subscription.m_leaseEnd = qstd::Clock::Get().SteadyNow() + m_subscription.m_filter.lease;
    }

private:
    Subscription& m_subscription;
};

/// The time in which one poll fills m_sent. Under the mutex at its begin and its end, not in between.
class Subscription::Filling {
public:
    Filling(Subscription& subscription, std::unique_lock<std::mutex>& lock) noexcept
        : m_subscription(subscription), m_lock(lock) {
        subscription.m_isFilling = true;
    }
    Filling(const Filling&) = delete;
    Filling& operator=(const Filling&) = delete;
    ~Filling() {
        if (!m_lock.owns_lock()) {
            m_lock.lock();
        }
        m_subscription.m_isFilling = false;
        m_subscription.m_changed.notify_all();
    }

private:
    Subscription& m_subscription;
    std::unique_lock<std::mutex>& m_lock;
};

Subscription::Subscription(std::string id, const Filter& filter, const Access& access, Instant now)
    : m_id(std::move(id)),
      m_filter(filter),
      m_access(access),
      m_isPresentDue(filter.wantsPresent),
      m_leaseEnd(now + filter.lease) {}

bool Subscription::Put(const qnode::Notification& notification, Instant now, EventPtr& event) {
    const auto type = static_cast<std::uint16_t>(notification.type);
    if (!WantsType(m_filter, type)) {
        return false;
    }
    EventPtr dropped;  // destroyed after the lock is let go
    const std::lock_guard guard(m_mutex);
    if (m_end) {
        return false;
    }
    Settle(now);
    if (m_isDormant) {
        Lose(1);
        const bool isOverdue = now >= m_leaseEnd + c_longestSleep;
        return (isOverdue || !m_discarded.empty()) && !m_isCalling.exchange(true);
    }
    if (event == nullptr) {
        event = std::make_shared<const Event>(
            Event{0, type, notification.time, notification.path, ToValue(notification.value)});
    }
    if (m_waiting.size() >= m_filter.queueLimit) {
        dropped = std::move(m_waiting.front());
        m_waiting.pop_front();
        m_backlog -= std::min<std::size_t>(m_backlog, 1);
        Lose(1);
    }
    m_waiting.push_back(event);
    return m_sleepers > 0 && !m_isCalling.exchange(true);
}

void Subscription::Attend() {
    if (!m_isCalling.exchange(false)) {
        return;
    }
    std::deque<EventPtr> discarded;
    {
        const std::lock_guard guard(m_mutex);
        discarded.swap(m_discarded);
    }
    m_changed.notify_all();
}

void Subscription::Lose(std::uint64_t count) noexcept {
    m_next += count;
    m_lost += count;
    m_isPresentDue = m_isPresentDue || (count > 0 && m_filter.wantsPresent);
}

void Subscription::Settle(Instant now) {
    if (!m_isDormant && m_polls == 0 && now >= m_leaseEnd) {
        GiveUp();
    }
}

void Subscription::GiveUp() {
    m_isDormant = true;
    for (const EventPtr& event : m_sent) {
        m_unsure.push_back(event->sequence);
    }
    Lose(m_waiting.size());
    m_discarded.swap(m_waiting);
    m_discarded.insert(m_discarded.end(), std::make_move_iterator(m_sent.begin()),
                       std::make_move_iterator(m_sent.end()));
    m_waiting.clear();
    m_sent.clear();
    m_walk.reset();
    m_backlog = 0;
    m_isPresentDue = m_filter.wantsPresent;
}

void Subscription::Awake(std::uint64_t received) {
    m_isDormant = false;
    const auto lost =
        std::count_if(m_unsure.begin(), m_unsure.end(), [received](std::uint64_t number) { return number > received; });
    m_unsure.clear();
    m_lost += static_cast<std::uint64_t>(lost);
}

std::optional<Subscription::Instant> Subscription::DormantSince(Instant now) {
    const std::lock_guard guard(m_mutex);
    Settle(now);
    return m_isDormant ? std::optional(m_leaseEnd) : std::nullopt;
}

bool Subscription::IsOverdue(Instant now) {
    const auto since = DormantSince(now);
    return since && now >= *since + c_longestSleep;
}

void Subscription::End(ErrorCode_e code) {
    std::deque<EventPtr> waiting;
    std::deque<EventPtr> sent;
    {
        const std::lock_guard guard(m_mutex);
        m_end = code;
        waiting.swap(m_waiting);
        sent.swap(m_sent);
    }
    m_changed.notify_all();
}

std::chrono::seconds Subscription::Renew() {
    const auto now = qstd::Clock::Get().SteadyNow();
    const std::lock_guard guard(m_mutex);
    RefuseEnded();
    Settle(now);
    m_isDormant = false;
    m_leaseEnd = now + m_filter.lease;
    return m_filter.lease;
}

void Subscription::RefuseEnded() const {
    if (m_end) {
        throw RegistryError(
            *m_end, {},
            *m_end == ErrorCode_e::stopping ? "The server is about to end" : "Subscription \"" + m_id + "\" was ended");
    }
}

Batch Subscription::Poll(std::uint64_t received, std::size_t max, std::chrono::milliseconds wait) {
    const auto deadline = std::chrono::steady_clock::now() + wait;
    std::deque<EventPtr> done;  // destroyed after the lock is let go
    std::unique_lock lock(m_mutex);
    RefuseEnded();
    Settle(qstd::Clock::Get().SteadyNow());
    const Presence presence(*this);
    const std::uint64_t ticket = ++m_ticket;
    m_changed.notify_all();
    Awake(received);
    const auto first = std::find_if(m_sent.begin(), m_sent.end(),
                                    [received](const EventPtr& event) { return event->sequence > received; });
    std::move(m_sent.begin(), first, std::back_inserter(done));
    m_sent.erase(m_sent.begin(), first);
    while (true) {
        if (CanFill(max)) {
            Fill(lock, max);
        }
        RefuseEnded();
        if (ticket != m_ticket) {
            return {m_lost, false, {}};
        }
        if (!m_sent.empty() || m_lost != m_lostTold || std::chrono::steady_clock::now() >= deadline) {
            return Answer(max);
        }
        if (!CanFill(max)) {
            ++m_sleepers;
            m_changed.wait_until(lock, deadline);
            --m_sleepers;
        }
    }
}

Batch Subscription::Answer(std::size_t max) {
    const auto count = static_cast<std::ptrdiff_t>(std::min(max, m_sent.size()));
    m_lostTold = m_lost;
    return {m_lost, m_sent.size() > max || !m_waiting.empty() || HasWalk(), {m_sent.begin(), m_sent.begin() + count}};
}

bool Subscription::CanFill(std::size_t max) const noexcept {
    return !m_end && !m_isFilling && m_sent.size() < max && (HasWalk() || !m_waiting.empty());
}

void Subscription::Fill(std::unique_lock<std::mutex>& lock, std::size_t max) {
    const Filling filling(*this, lock);
    if (HasWalk()) {
        FillWithPresent(lock, std::min(max, m_filter.queueLimit));
    }
    if (!HasWalk() && m_sent.size() < max && !m_waiting.empty()) {
        FillWithWaiting(lock, max);
    }
}

void Subscription::FillWithPresent(std::unique_lock<std::mutex>& lock, std::size_t max) {
    if (m_sent.size() >= max) {
        return;
    }
    if (!m_walk) {
        m_isPresentDue = false;
        m_walk.emplace(m_access, m_filter);
    }
    const std::size_t room = max - m_sent.size();
    lock.unlock();
    const auto events = m_walk->Next(room, c_collectTime);
    lock.lock();
    for (const auto& event : events) {
        event->sequence = m_next++;
        m_sent.push_back(event);
    }
    if (m_walk->IsAtEnd()) {
        m_walk.reset();
        m_backlog = m_waiting.size();
    }
}

void Subscription::FillWithWaiting(std::unique_lock<std::mutex>& lock, std::size_t max) {
    const std::size_t count = std::min(max - m_sent.size(), m_waiting.size());
    const auto end = m_waiting.begin() + static_cast<std::ptrdiff_t>(count);
    std::vector<EventPtr> events(std::make_move_iterator(m_waiting.begin()), std::make_move_iterator(end));
    m_waiting.erase(m_waiting.begin(), end);
    m_backlog -= std::min(m_backlog, count);
    std::uint64_t number = std::exchange(m_next, m_next + count);
    lock.unlock();
    for (EventPtr& event : events) {
        auto numbered = std::make_shared<Event>(*event);
        numbered->sequence = number++;
        event = std::move(numbered);
    }
    lock.lock();
    m_sent.insert(m_sent.end(), std::make_move_iterator(events.begin()), std::make_move_iterator(events.end()));
}

}  // namespace qreg
