#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <registry.hh>

#include "qreg/corba/batch.h"
#include "qreg/subscriptions.h"

namespace qreg::corba {

/// Delivers notifications to clients that handed in an object to call. Each has a thread of its own, so one that hangs
/// holds up nobody. Any thread.
class Push {
public:
    static constexpr std::size_t c_most = 16;                        ///< listeners at a time
    static constexpr unsigned c_strikes = 3;                         ///< failures in a row that end a subscription
    static constexpr unsigned c_callMs = 400;                        ///< how long a call may take; a stop waits for it
    static constexpr std::chrono::milliseconds c_afterFailure{200};  ///< until the next attempt

    /// @param subscriptions outlives this object
    Push(Subscriptions& subscriptions, BatchFormat format, std::chrono::milliseconds wait);
    Push(const Push&) = delete;
    Push& operator=(const Push&) = delete;
    ~Push() { Stop(); }

    /// Subscribes and calls @p listener from now on.
    /// @throws RegistryError limit, or what Subscriptions::Subscribe throws.
    Lease Subscribe(const Filter& filter, const ::reg::Listener_var& listener);

    /// Ends all deliveries; waits for a call that runs. Every later Subscribe raises stopping. The subscriptions must
    /// have been stopped before.
    void Stop();

private:
    struct Delivery {
        std::string id;
        ::reg::Listener_var listener;
        std::thread thread;
        bool hasEnded = false;
    };

    void Run(Delivery& delivery);
    void Deliver(const Delivery& delivery);
    /// Waits until the next attempt. @return false when there is to be none.
    bool Pause();
    /// Joins those that have ended. Under the mutex.
    void Reap();

    Subscriptions& m_subscriptions;
    const BatchFormat m_format;
    const std::chrono::milliseconds m_wait;
    std::mutex m_mutex;  ///< guards all below, and what changes of a delivery
    std::condition_variable m_stopped;
    bool m_isStopping = false;
    std::vector<std::unique_ptr<Delivery>> m_deliveries;
};

}  // namespace qreg::corba
