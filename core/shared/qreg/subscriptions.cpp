#include "qreg/subscriptions.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "qreg/path_pattern.h"
#include "qreg/subscribers.h"
#include "qreg/subscription.h"
#include "qstd/clock.h"
#include "qstd/thread_name.h"

namespace qreg {

namespace {

using Instant = Subscription::Instant;

/// 128 random bits in hexadecimal.
std::string MakeId() {
    constexpr std::size_t c_bytes = 16;
    constexpr const char* c_digits = "0123456789abcdef";
    std::array<unsigned char, c_bytes> bytes{};
    while (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        if (errno != EINTR) {
            throw qstd::Exception("Cannot make the id of a subscription: " + std::generic_category().message(errno));
        }
    }
    std::string id;
    for (const unsigned char byte : bytes) {
        id += c_digits[byte >> 4U];
        id += c_digits[byte & 0xFU];
    }
    return id;
}

template <class T>
T Granted(T wanted, T byDefault, T most) {
    return std::clamp(wanted > T{0} ? wanted : byDefault, T{1}, std::max(most, T{1}));
}

[[noreturn]] void ThrowNoSubscription(const std::string& id) {
    throw RegistryError(ErrorCode_e::no_such_subscription, {},
                        "No subscription \"" + id + "\": it never was, was ended, or was dormant for too long");
}

[[noreturn]] void ThrowStopping() {
    throw RegistryError(ErrorCode_e::stopping, {}, "The server is about to end");
}

}  // namespace

/// Locks: m_changes is taken before m_listMutex and before the mutex of all Listenings, which emissions hold; an
/// emission takes m_listMutex and that of one subscription, one after the other. So m_changes never holds up an
/// emission.
class Subscriptions::Impl {
public:
    Impl(const Access& access, const SubscriptionLimits& limits, qnode::NotificationListener& listener)
        : m_access(access),
          m_limits(limits),
          m_listening(std::make_unique<qnode::Listening>(access.GetRoot(), listener)) {
        m_waker = std::thread([this] { WakePolls(); });
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        Stop();
        m_listening.reset();
        m_call = c_quit;
        m_call.notify_one();
        m_waker.join();
    }

    Lease Subscribe(const Filter& filter);
    Batch Poll(const std::string& id, std::uint64_t received, std::size_t max, std::chrono::milliseconds wait);
    std::shared_ptr<Subscription> Find(const std::string& id) const;
    void Unsubscribe(const std::string& id);
    void Stop();
    std::size_t Count() const;
    void Put(const qnode::Notification& notification);

private:
    // States of m_call.
    static constexpr int c_idle = 0;
    static constexpr int c_called = 1;
    static constexpr int c_quit = 2;

    void WakePolls();
    std::shared_ptr<const Subscribers> List() const;
    void Replace(Subscribers::List subscribers);
    void RemoveOverdue();
    void Remove(const std::shared_ptr<Subscription>& subscription);
    std::string LimitReached(const Subscribers::List& subscribers, std::size_t patterns) const;
    bool RemoveLongestDormant();
    void MakePlace(std::size_t patterns);

    const Access m_access;
    const SubscriptionLimits m_limits;

    std::mutex m_changes;  ///< held by who changes the list; guards m_retired
    /// Lists that were replaced. They stay until no emission uses them, which would have to free the last one.
    std::vector<std::shared_ptr<const Subscribers>> m_retired;
    std::atomic<bool> m_isStopping{false};

    mutable std::mutex m_listMutex;  ///< guards the pointer; the list itself never changes
    std::shared_ptr<const Subscribers> m_list = std::make_shared<const Subscribers>(Subscribers::List());

    std::atomic<int> m_call{c_idle};  ///< what m_waker is to do
    std::thread m_waker;
    std::unique_ptr<qnode::Listening> m_listening;
};

std::shared_ptr<const Subscribers> Subscriptions::Impl::List() const {
    const std::lock_guard guard(m_listMutex);
    return m_list;
}

/// Under m_changes.
void Subscriptions::Impl::Replace(Subscribers::List subscribers) {
    auto list = std::make_shared<const Subscribers>(std::move(subscribers));
    const bool hasInterest = !list->GetAll().empty();
    {
        const std::lock_guard guard(m_listMutex);
        m_list.swap(list);
    }
    if (list->GetAll().empty() == hasInterest) {
        m_listening->SetInterest(hasInterest);
    }
    m_retired.push_back(std::move(list));
}

/// Under m_changes.
void Subscriptions::Impl::Remove(const std::shared_ptr<Subscription>& subscription) {
    Subscribers::List subscribers = List()->GetAll();
    if (const auto place = std::find(subscribers.begin(), subscribers.end(), subscription);
        place != subscribers.end()) {
        subscribers.erase(place);
        Replace(std::move(subscribers));
    }
    subscription->End(ErrorCode_e::no_such_subscription);
}

/// Ends those that were dormant for too long, and frees what is no longer used. Under m_changes.
void Subscriptions::Impl::RemoveOverdue() {
    const auto now = qstd::Clock::Get().SteadyNow();
    const auto list = List();
    for (const auto& subscription : list->GetAll()) {
        if (subscription->IsOverdue(now)) {
            Remove(subscription);
        }
    }
    std::erase_if(m_retired, [](const auto& retired) { return retired.use_count() == 1; });
}

/// Which limit does not let one more subscription, of so many patterns, join those; empty: none.
std::string Subscriptions::Impl::LimitReached(const Subscribers::List& subscribers, std::size_t patterns) const {
    if (subscribers.size() >= m_limits.subscriptions) {
        return "Too many subscriptions: at most " + std::to_string(m_limits.subscriptions);
    }
    for (const auto& subscription : subscribers) {
        patterns += subscription->CountPatterns();
    }
    return patterns <= m_limits.allPatterns ? std::string()
                                            : "Too many patterns in all subscriptions: " + std::to_string(patterns) +
                                                  ", at most " + std::to_string(m_limits.allPatterns);
}

/// @return whether there was one. Under m_changes.
bool Subscriptions::Impl::RemoveLongestDormant() {
    const auto list = List();
    const auto now = qstd::Clock::Get().SteadyNow();
    std::shared_ptr<Subscription> longest;
    Instant longestSince = Instant::max();
    for (const auto& subscription : list->GetAll()) {
        const auto since = subscription->DormantSince(now);
        if (since && *since < longestSince) {
            longest = subscription;
            longestSince = *since;
        }
    }
    if (longest != nullptr) {
        Remove(longest);
    }
    return longest != nullptr;
}

/// Makes sure that there is a place for one more, of so many patterns. Under m_changes.
void Subscriptions::Impl::MakePlace(std::size_t patterns) {
    RemoveOverdue();
    std::string reached = LimitReached(List()->GetAll(), patterns);
    while (!reached.empty() && RemoveLongestDormant()) {
        reached = LimitReached(List()->GetAll(), patterns);
    }
    if (!reached.empty()) {
        throw RegistryError(ErrorCode_e::limit, {}, std::move(reached));
    }
}

Lease Subscriptions::Impl::Subscribe(const Filter& filter) {
    if (filter.patterns.size() > m_limits.patterns) {
        throw RegistryError(ErrorCode_e::limit, {},
                            "Too many patterns in a subscription: " + std::to_string(filter.patterns.size()) +
                                ", at most " + std::to_string(m_limits.patterns));
    }
    Filter granted = filter;
    granted.queueLimit = Granted(filter.queueLimit, m_limits.defaultQueue, m_limits.queue);
    granted.lease = Granted(filter.lease, m_limits.defaultLease, m_limits.lease);
    std::transform(filter.patterns.begin(), filter.patterns.end(), granted.patterns.begin(), Simplified);

    const std::lock_guard guard(m_changes);
    if (m_isStopping) {
        ThrowStopping();
    }
    MakePlace(granted.patterns.size());
    Subscribers::List subscribers = List()->GetAll();
    subscribers.push_back(std::make_shared<Subscription>(MakeId(), granted, m_access, qstd::Clock::Get().SteadyNow()));
    Lease lease{subscribers.back()->GetId(), granted.lease, granted.queueLimit};
    Replace(std::move(subscribers));
    return lease;
}

std::shared_ptr<Subscription> Subscriptions::Impl::Find(const std::string& id) const {
    if (m_isStopping) {
        ThrowStopping();
    }
    const auto list = List();
    const Subscribers::List& all = list->GetAll();
    const auto found =
        std::find_if(all.begin(), all.end(), [&id](const auto& subscription) { return subscription->GetId() == id; });
    if (found == all.end() || (*found)->IsOverdue(qstd::Clock::Get().SteadyNow())) {
        ThrowNoSubscription(id);
    }
    return *found;
}

Batch Subscriptions::Impl::Poll(const std::string& id, std::uint64_t received, std::size_t max,
                                std::chrono::milliseconds wait) {
    return Find(id)->Poll(received, Granted(max, m_limits.batch, m_limits.batch),
                          std::clamp(wait, std::chrono::milliseconds(0), m_limits.wait));
}

void Subscriptions::Impl::Unsubscribe(const std::string& id) {
    const std::lock_guard guard(m_changes);
    Remove(Find(id));
}

void Subscriptions::Impl::Stop() {
    const std::lock_guard guard(m_changes);
    if (m_isStopping.exchange(true)) {
        return;
    }
    m_listening->SetInterest(false);
    const auto list = List();
    for (const auto& subscription : list->GetAll()) {
        subscription->End(ErrorCode_e::stopping);
    }
}

std::size_t Subscriptions::Impl::Count() const {
    const auto now = qstd::Clock::Get().SteadyNow();
    const auto list = List();
    const Subscribers::List& all = list->GetAll();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [now](const auto& subscription) { return !subscription->IsOverdue(now); }));
}

void Subscriptions::Impl::Put(const qnode::Notification& notification) {
    const auto now = qstd::Clock::Get().SteadyNow();
    const auto list = List();
    Subscription::EventPtr event;
    bool isCalling = false;
    Subscribers::Audience buffer;
    for (Subscription* const subscription : list->FindAudience(notification.path, buffer)) {
        isCalling = subscription->Put(notification, now, event) || isCalling;
    }
    if (isCalling) {
        int idle = c_idle;
        if (m_call.compare_exchange_strong(idle, c_called)) {
            m_call.notify_one();
        }
    }
}

void Subscriptions::Impl::WakePolls() {
    qstd::SetThreadName("qreg-wake");
    while (true) {
        m_call.wait(c_idle);
        int called = c_called;
        if (!m_call.compare_exchange_strong(called, c_idle)) {
            return;
        }
        const auto list = List();
        for (const auto& subscription : list->GetAll()) {
            subscription->Attend();
        }
        const std::lock_guard guard(m_changes);
        if (!m_isStopping) {
            RemoveOverdue();
        }
    }
}

Subscriptions::Subscriptions(const Access& access, const SubscriptionLimits& limits)
    : m_impl(std::make_unique<Impl>(access, limits, static_cast<qnode::NotificationListener&>(*this))) {}

Subscriptions::~Subscriptions() = default;

Lease Subscriptions::Subscribe(const Filter& filter) {
    return m_impl->Subscribe(filter);
}

Batch Subscriptions::Poll(const std::string& id, std::uint64_t received, std::size_t max,
                          std::chrono::milliseconds wait) {
    return m_impl->Poll(id, received, max, wait);
}

std::chrono::seconds Subscriptions::Renew(const std::string& id) {
    return m_impl->Find(id)->Renew();
}

void Subscriptions::Unsubscribe(const std::string& id) {
    m_impl->Unsubscribe(id);
}

void Subscriptions::Stop() {
    m_impl->Stop();
}

std::size_t Subscriptions::Count() const {
    return m_impl->Count();
}

void Subscriptions::OnNotification(const qnode::Notification& notification) {
    m_impl->Put(notification);
}

}  // namespace qreg
