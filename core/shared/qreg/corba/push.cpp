#include "qreg/corba/push.h"

#include <utility>

#include "qstd/log.h"
#include "qstd/thread_name.h"

namespace qreg::corba {

namespace {

constexpr std::size_t c_eventsPerCall = 1000;

}  // namespace

Push::Push(Subscriptions& subscriptions, BatchFormat format, std::chrono::milliseconds wait)
    : m_subscriptions(subscriptions), m_format(std::move(format)), m_wait(wait) {}

Lease Push::Subscribe(const Filter& filter, const ::reg::Listener_var& listener) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    Reap();
    if (m_isStopping) {
        throw RegistryError(ErrorCode_e::stopping, {}, "The server is about to end");
    }
    if (m_deliveries.size() >= c_most) {
        throw RegistryError(ErrorCode_e::limit, {},
                            "There are " + std::to_string(c_most) + " listeners already, the most of this server");
    }
    Lease lease = m_subscriptions.Subscribe(filter);
    omniORB::setClientCallTimeout(listener.in(), c_callMs);
    auto delivery = std::make_unique<Delivery>();
    delivery->id = lease.id;
    delivery->listener = listener;
    delivery->thread = std::thread([this, &running = *delivery] { Run(running); });
    m_deliveries.push_back(std::move(delivery));
    return lease;
}

void Push::Stop() {
    std::vector<std::unique_ptr<Delivery>> deliveries;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isStopping = true;
        m_stopped.notify_all();
        deliveries.swap(m_deliveries);
    }
    for (const auto& delivery : deliveries) {
        delivery->thread.join();
    }
}

void Push::Run(Delivery& delivery) {
    qstd::SetThreadName("registry push");
    try {
        Deliver(delivery);
    } catch (const RegistryError&) {
        // The subscription ended, or the server does.
    } catch (const std::exception& exception) {
        qstd::LogError(std::string("Delivering notifications to a listener ended: ") + exception.what());
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    delivery.hasEnded = true;
}

void Push::Deliver(const Delivery& delivery) {
    std::uint64_t received = 0;
    unsigned failures = 0;
    for (;;) {
        const Batch batch = m_subscriptions.Poll(delivery.id, received, c_eventsPerCall, m_wait);
        if (batch.events.empty()) {
            continue;
        }
        ::reg::Batch wire;
        m_format.ToWire(batch, wire);
        try {
            ::reg::Listener_var(delivery.listener)->notify(delivery.id.c_str(), wire);
            received = batch.events[wire.events.length() - 1]->sequence;
            failures = 0;
        } catch (const CORBA::Exception& exception) {
            if (++failures == c_strikes) {
                m_subscriptions.Unsubscribe(delivery.id);
                qstd::LogWarning("A listener was given up after " + std::to_string(failures) +
                                 " calls that failed in a row (" + exception._name() + ")");
                return;
            }
            if (!Pause()) {
                return;
            }
        }
    }
}

bool Push::Pause() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_stopped.wait_for(lock, c_afterFailure, [this] { return m_isStopping; });
}

void Push::Reap() {
    for (auto delivery = m_deliveries.begin(); delivery != m_deliveries.end();) {
        if ((*delivery)->hasEnded) {
            (*delivery)->thread.join();
            delivery = m_deliveries.erase(delivery);
        } else {
            ++delivery;
        }
    }
}

}  // namespace qreg::corba
