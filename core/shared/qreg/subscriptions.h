#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qnode/notification.h"
#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/error.h"

namespace qreg {

/// Which notifications a subscriber wants.
struct Filter {
    /// Path patterns; none: everything. Names separated by "/"; "*" in a name stands for any characters of that name, a
    /// name "**" for any number of names. A pattern takes in everything below what it matches.
    std::vector<std::string> patterns;
    /// One bit for each type of notification (bit 0: value, bit 1: threshold); 0: all.
    std::uint32_t types = 0;
    /// The most notifications that wait for the subscriber; the oldest is dropped, and counted, for one too many.
    std::size_t queueLimit = 0;  ///< 0: the server's default
    /// How long the subscription stays without a sign of life.
    std::chrono::seconds lease{0};  ///< 0: the server's default
    /// Whether the present values of all nodes that match are delivered first, and again after a loss.
    bool wantsPresent = false;
};

/// What a subscriber was granted.
struct Lease {
    std::string id;  ///< not to be guessed; all later requests name it
    std::chrono::seconds lease{0};
    std::size_t queueLimit = 0;
};

/// Type of an event that tells of a present value, not of a notification. A notification that comes after it may be the
/// older one of the two: their times say so.
constexpr std::uint16_t c_presentType = 0xFFFF;

/// One thing delivered to a subscriber.
struct Event {
    std::uint64_t sequence = 0;  ///< 1, 2, 3, ... by subscription; what is missing was lost
    std::uint16_t type = 0;      ///< a qnode::NotificationType, or c_presentType
    std::chrono::system_clock::time_point time;
    std::string path;
    qnode::Value value;
};

/// What a poll gives.
struct Batch {
    std::uint64_t lost = 0;  ///< events of this subscription that were dropped so far, all of its life
    bool more = false;       ///< another poll would give events at once
    std::vector<std::shared_ptr<const Event>> events;
};

/// Limits of all subscriptions together. A request beyond one is granted less, or refused with ErrorCode_e::limit.
struct SubscriptionLimits {
    std::size_t subscriptions = 256;
    std::size_t patterns = 64;  ///< of one subscription
    /// Of all subscriptions together: what is told at a path for the first time is compared with each of them, by who
    /// emits it.
    std::size_t allPatterns = 2048;
    std::size_t queue = 10000;  ///< the most that a subscriber may ask for
    std::size_t defaultQueue = 1000;
    std::size_t batch = 1000;          ///< events of one poll
    std::chrono::seconds lease{3600};  ///< the longest
    std::chrono::seconds defaultLease{60};
    std::chrono::milliseconds wait{20000};  ///< the longest that a poll waits
};

/// All subscriptions to the notifications of a tree, whatever the transport. An emission only puts the event into the
/// queues whose filters it passes; who waits is woken by a thread of this object. So a subscriber that is slow, hangs
/// or is gone costs the emitter and the other subscribers nothing.
///
/// A subscription has two states. It is active while its lease runs: events are queued. When the lease has run out it
/// is dormant: its queue was given up and events are only counted as lost, so that a subscriber who comes back learns
/// how many; the next poll makes it active again. Dormant subscriptions are ended, the longest dormant first, when a
/// new one needs their place or their patterns', and after a day. Any thread.
class Subscriptions final : private qnode::NotificationListener {
public:
    Subscriptions(const Access& access, const SubscriptionLimits& limits);
    Subscriptions(const Subscriptions&) = delete;
    Subscriptions& operator=(const Subscriptions&) = delete;
    /// Nobody may be in a call.
    ~Subscriptions();

    /// @throws RegistryError limit: too many subscriptions or patterns, of this one or of all; stopping.
    Lease Subscribe(const Filter& filter);

    /// The next events, and a sign of life. Waits for the first one for at most @p wait. Events come again until a
    /// later poll says that they were received, so a reply that got lost costs nothing. A loss that was not told yet
    /// ends the wait too. A poll ends one of the same subscription that still waits, with an empty batch.
    /// @param received sequence number of the last event that the subscriber has; 0 at the begin
    /// @param max the most events; 0: as many as the server gives
    /// @throws RegistryError no_such_subscription, stopping.
    Batch Poll(const std::string& id, std::uint64_t received, std::size_t max, std::chrono::milliseconds wait);

    /// A sign of life; makes a dormant subscription active, as a poll does. @return the lease, from now.
    /// @throws RegistryError no_such_subscription, stopping.
    std::chrono::seconds Renew(const std::string& id);

    /// Ends the subscription; a poll that waits ends with no_such_subscription.
    /// @throws RegistryError no_such_subscription, stopping.
    void Unsubscribe(const std::string& id);

    /// Ends all waiting, which raises stopping, as every later call does.
    void Stop();

    /// How many subscriptions there are, dormant ones included.
    std::size_t Count() const;

private:
    class Impl;

    void OnNotification(const qnode::Notification& notification) override;

    const std::unique_ptr<Impl> m_impl;
};

}  // namespace qreg
