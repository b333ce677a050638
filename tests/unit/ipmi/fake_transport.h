#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/transport.h"
#include "tests/support/manual_clock.h"

namespace test {

/// How long a test waits for what must come.
constexpr std::chrono::seconds c_patience{100};

/// One exchange, as a fake controller saw it.
struct SeenExchange {
    std::string what;  ///< "20:06/01": target, network function, command
    bmc::ipmi::Sending_e sending;
    std::chrono::milliseconds allowed;  ///< from its begin to its deadline

    friend bool operator==(const SeenExchange&, const SeenExchange&) = default;
};

/// A management controller that fails as a test wants, behind FakeTransport. It answers every request with its network
/// function and command as data. All operations may be called from any thread.
class FakeController {
public:
    enum class Opening_e { answers, silent, refuses, fails };

    /// @param clock waits end by moving this clock; null: waits are real
    explicit FakeController(ManualClock* clock = nullptr) : m_clock(clock) {}

    void SetOpening(Opening_e opening) {
        Change([&] { m_opening = opening; });
    }
    /// No answer to anything, sessions included.
    void SetDead(bool isDead) {
        Change([&] {
            m_isDead = isDead;
            m_opening = isDead ? Opening_e::silent : Opening_e::answers;
        });
    }
    /// No answer to requests, while sessions can be opened.
    void SetMute(bool isMute) {
        Change([&] { m_isDead = isMute; });
    }
    void SetBoardDead(std::uint8_t address, bool isDead) {
        Change([&] {
            if (isDead) {
                m_deadBoards.insert(address);
            } else {
                m_deadBoards.erase(address);
            }
        });
    }
    /// Forgets the session: what is sent in it is not answered.
    void DropSession() {
        Change([&] { m_isSessionKnown = false; });
    }
    /// The next @p count exchanges bring wrong answers.
    void BreakAnswers(int count) {
        Change([&] { m_broken = count; });
    }
    /// The next @p count exchanges bring no answer; the session stays known.
    void LoseAnswers(int count) {
        Change([&] { m_lost = count; });
    }
    /// The next @p count answers have this completion code.
    void SetCompletionCode(std::uint8_t code, int count) {
        Change([&] {
            m_code = code;
            m_codes = count;
        });
    }
    /// Whether such codes in answers of boards behind the controller are those of the bridge.
    void SetCodesOfBridge(bool areOfBridge) {
        Change([&] { m_areCodesOfBridge = areOfBridge; });
    }
    void SetDelay(std::chrono::microseconds delay) {
        Change([&] { m_delay = delay; });
    }
    /// Requests are not answered until the gate is opened again.
    void SetGate(bool isOpen) {
        Change([&] { m_isGateOpen = isOpen; });
    }
    /// Lets one request more through the closed gate.
    void LetPass() {
        Change([&] { ++m_passes; });
    }
    /// Called for each exchange, before it is answered, without a lock.
    void SetHook(std::function<void(const std::string& what)> hook) { m_hook = std::move(hook); }

    std::vector<SeenExchange> Seen() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_seen;
    }
    /// What was exchanged, without the first Get Device ID of each session.
    std::vector<std::string> SeenRequests() const {
        std::vector<std::string> names;
        for (const SeenExchange& each : Seen()) {
            if (each.what != "20:06/01") {
                names.push_back(each.what);
            }
        }
        return names;
    }
    void ForgetSeen() {
        Change([&] { m_seen.clear(); });
    }
    int Openings() const { return Get(m_openings); }          ///< tries
    int OpenSessions() const { return Get(m_openSessions); }  ///< in this process
    int Farewells() const { return Get(m_farewells); }        ///< sessions that were closed with a word
    int Interrupts() const { return Get(m_interrupts); }
    /// Calls that overlapped, or came from several threads.
    int Misuses() const { return Get(m_misuses); }

    /// Waits until the condition holds. @return whether it came to that
    bool Await(const std::function<bool()>& condition) const {
        const auto end = std::chrono::steady_clock::now() + c_patience;
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            const unsigned long changes = m_changes;
            lock.unlock();
            if (condition()) {
                return true;
            }
            lock.lock();
            // What is no change of this object's may be looked for as well.
            m_changed.wait_for(lock, std::chrono::milliseconds(2), [&] { return m_changes != changes; });
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
        }
    }

private:
    friend class FakeTransport;

    int Get(const int& value) const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return value;
    }
    template <class F>
    void Change(const F& change) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        change();
        ++m_changes;
        m_changed.notify_all();
    }

    ManualClock* const m_clock;
    std::function<void(const std::string& what)> m_hook;
    mutable std::mutex m_mutex;  ///< guards all below
    mutable std::condition_variable m_changed;
    unsigned long m_changes = 0;
    Opening_e m_opening = Opening_e::answers;
    bool m_isDead = false;
    bool m_isSessionKnown = false;
    bool m_isGateOpen = true;
    int m_passes = 0;  ///< through the closed gate
    std::set<std::uint8_t> m_deadBoards;
    int m_broken = 0;
    int m_lost = 0;
    std::uint8_t m_code = 0;
    int m_codes = 0;
    bool m_areCodesOfBridge = true;
    std::chrono::microseconds m_delay{0};
    std::vector<SeenExchange> m_seen;
    int m_openings = 0;
    int m_openSessions = 0;
    int m_farewells = 0;
    int m_interrupts = 0;
    int m_misuses = 0;
};

/// The session with a FakeController. A transport that is used by several threads, or whose session was not opened
/// after a failure, counts a misuse.
class FakeTransport : public bmc::ipmi::Transport {
public:
    explicit FakeTransport(std::shared_ptr<FakeController> controller) : m_controller(std::move(controller)) {}
    ~FakeTransport() override { GiveUpSession(); }

    void Open(bmc::ipmi::SteadyTime deadline) override {
        const Use use(*this);
        GiveUpSession();
        m_controller->Change([&] { ++m_controller->m_openings; });
        CheckInterrupt();
        switch (WithLock([&] { return m_controller->m_opening; })) {
            case FakeController::Opening_e::answers:
                break;
            case FakeController::Opening_e::silent:
                Wait(deadline);
                throw Error(bmc::ipmi::TransportFailure_e::noAnswer, "no answer to the opening");
            case FakeController::Opening_e::refuses:
                throw Error(bmc::ipmi::TransportFailure_e::refused, "wrong password");
            case FakeController::Opening_e::fails:
                throw Error(bmc::ipmi::TransportFailure_e::system, "no route to host");
        }
        m_controller->Change([&] {
            m_isOpen = true;
            m_mayExchange = true;
            m_controller->m_isSessionKnown = true;
            ++m_controller->m_openSessions;
        });
    }

    bmc::ipmi::Response Exchange(const bmc::ipmi::Target& target, const bmc::ipmi::Request& request,
                                 bmc::ipmi::Sending_e sending, bmc::ipmi::SteadyTime deadline) override {
        const Use use(*this);
        const std::string what = fmt::format("{:02x}:{:02x}/{:02x}", target.address, request.netFn, request.command);
        const bool mayExchange = std::exchange(m_mayExchange, false);
        bool isLost = false;
        m_controller->Change([&] {
            m_controller->m_misuses += mayExchange ? 0 : 1;
            isLost = m_controller->m_lost-- > 0;
            m_controller->m_seen.push_back(
                {what, sending, std::chrono::round<std::chrono::milliseconds>(deadline - Now())});
        });
        if (m_controller->m_hook) {
            m_controller->m_hook(what);
        }
        CheckInterrupt();
        WaitForGate(deadline);
        const auto delay = WithLock([&] { return m_controller->m_delay; });
        if (delay.count() > 0) {
            Wait(std::min(deadline, Now() + delay));
        }
        isLost = isLost || WithLock([&] {
                     return !m_controller->m_isSessionKnown || m_controller->m_isDead ||
                            m_controller->m_deadBoards.count(target.address) != 0;
                 });
        if (isLost) {
            Wait(deadline);
            throw Error(bmc::ipmi::TransportFailure_e::noAnswer, "no answer in time");
        }
        if (WithLock([&] { return m_controller->m_broken-- > 0; })) {
            throw Error(bmc::ipmi::TransportFailure_e::broken, "the reply is of another session");
        }
        m_mayExchange = true;
        return WithLock([&] {
            const bool hasCode = m_controller->m_codes-- > 0;
            return bmc::ipmi::Response{hasCode ? m_controller->m_code : bmc::ipmi::c_completed,
                                       {request.netFn, request.command},
                                       hasCode && target.IsBridged() && m_controller->m_areCodesOfBridge};
        });
    }

    void Close(bmc::ipmi::SteadyTime /*deadline*/) noexcept override {
        const Use use(*this);
        m_controller->Change([&] { m_controller->m_farewells += m_isOpen ? 1 : 0; });
        GiveUpSession();
    }

    void Interrupt() override {
        m_controller->Change([&] {
            ++m_controller->m_interrupts;
            m_isInterrupted = true;
        });
    }

private:
    using Error = bmc::ipmi::TransportError;

    /// Sees to it that calls neither overlap nor come from several threads.
    class Use {
    public:
        explicit Use(FakeTransport& transport) : m_transport(transport) {
            m_transport.m_controller->Change([&] {
                const bool isFirst = m_transport.m_user == std::thread::id();
                const bool isSame = m_transport.m_user == std::this_thread::get_id();
                m_transport.m_user = std::this_thread::get_id();
                if (m_transport.m_isInUse || !(isFirst || isSame)) {
                    ++m_transport.m_controller->m_misuses;
                }
                m_transport.m_isInUse = true;
            });
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() {
            m_transport.m_controller->Change([&] { m_transport.m_isInUse = false; });
        }

    private:
        FakeTransport& m_transport;
    };

    template <class F>
    std::invoke_result_t<F> WithLock(const F& function) {
        const std::lock_guard<std::mutex> guard(m_controller->m_mutex);
        return function();
    }

    bmc::ipmi::SteadyTime Now() const {
        return m_controller->m_clock != nullptr ? m_controller->m_clock->SteadyNow() : std::chrono::steady_clock::now();
    }

    void GiveUpSession() {
        m_controller->Change([&] {
            m_controller->m_openSessions -= m_isOpen ? 1 : 0;
            m_isOpen = false;
            m_mayExchange = false;
        });
    }

    void CheckInterrupt() {
        if (WithLock([&] { return std::exchange(m_isInterrupted, false); })) {
            m_mayExchange = false;
            throw Error(bmc::ipmi::TransportFailure_e::interrupted, "interrupted");
        }
    }

    /// Waits until @p end, or for an interruption.
    void Wait(bmc::ipmi::SteadyTime end) {
        if (m_controller->m_clock != nullptr) {
            m_controller->m_clock->Advance(std::max(end - Now(), std::chrono::nanoseconds(0)));
        } else {
            std::unique_lock<std::mutex> lock(m_controller->m_mutex);
            m_controller->m_changed.wait_until(lock, end, [&] { return m_isInterrupted; });
        }
        CheckInterrupt();
    }

    void WaitForGate(bmc::ipmi::SteadyTime deadline) {
        {
            std::unique_lock<std::mutex> lock(m_controller->m_mutex);
            m_controller->m_changed.wait_until(lock, deadline, [&] {
                return m_isInterrupted || m_controller->m_isGateOpen || m_controller->m_passes > 0;
            });
            m_controller->m_passes -= m_controller->m_isGateOpen || m_controller->m_passes == 0 ? 0 : 1;
        }
        CheckInterrupt();
    }

    const std::shared_ptr<FakeController> m_controller;  // its lock guards all below
    bool m_isOpen = false;
    bool m_mayExchange = false;  ///< the session is open and no exchange in it has failed; the user's own
    bool m_isInterrupted = false;
    bool m_isInUse = false;
    std::thread::id m_user;
};

}  // namespace test
