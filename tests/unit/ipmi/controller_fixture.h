#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bmc/broken_off.h"
#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/failures.h"
#include "fake_transport.h"

namespace test {

/// The error that @p action raises, with its kind in front: "NoAnswer(sent): ", "NoAnswer: ", "BrokenOff: ",
/// "Exception: "; "" when it raises none.
inline std::string ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const bmc::ipmi::NoAnswer& error) {
        return std::string(error.WasSent() ? "NoAnswer(sent): " : "NoAnswer: ") + error.what();
    } catch (const bmc::BrokenOff& error) {
        return std::string("BrokenOff: ") + error.what();
    } catch (const qstd::Exception& error) {
        return std::string("Exception: ") + error.what();
    }
    return {};
}

/// The same, on a thread of its own.
inline std::future<std::string> Elsewhere(std::function<void()> action) {
    return std::async(std::launch::async, [action = std::move(action)] { return ErrorOf(action); });
}

/// What a thread's action gave, once it has come to an end.
inline std::string EndOf(std::future<std::string>& end) {
    return end.wait_for(c_patience) == std::future_status::ready ? end.get() : "still waiting";
}

/// A controller of two boards, io/1 and io/3 behind it, whose session is with a FakeController.
class ControllerOfTwo : public testing::Test {
protected:
    using Purpose_e = bmc::ipmi::Purpose_e;
    using Request = bmc::ipmi::Request;

    static constexpr std::uint8_t c_boardAddress = 0x86;

    ~ControllerOfTwo() override {
        m_controller.reset();
        EXPECT_EQ(m_fake->Misuses(), 0);
        EXPECT_EQ(m_fake->OpenSessions(), 0);
    }

    void Start() {
        m_controller = std::make_unique<bmc::ipmi::Controller>(
            m_options,
            std::vector<bmc::ipmi::BoardOnController>{{"io/1", {}}, {"io/3", bmc::ipmi::Target{c_boardAddress, 0}}},
            std::make_unique<FakeTransport>(m_fake),
            [this](qstd::LogLevel_e level, const std::string& text) {
                const std::lock_guard<std::mutex> guard(m_mutex);
                m_log.push_back((level == qstd::LogLevel_e::warning ? "warning: " : "") + text);
            },
            m_timing);
    }

    /// With the session open.
    void StartAndAwait() {
        Start();
        ASSERT_TRUE(Await([this] { return m_controller->OwnLink().IsAnswering() == true; }));
        m_fake->ForgetSeen();
    }

    bmc::ipmi::Link& Own() { return m_controller->LinkTo(0); }
    bmc::ipmi::Link& Bridged() { return m_controller->LinkTo(1); }

    static Request Reading(std::uint8_t number = 0x2d) { return {bmc::ipmi::NetFn_e::sensor, number, {16}}; }
    std::string ErrorOfReading(bmc::ipmi::Link& link) {
        return ErrorOf([&] { link.Execute(Reading(), Purpose_e::reading); });
    }
    std::string ErrorOfWriting(bmc::ipmi::Link& link) {
        return ErrorOf([&] { link.Execute({bmc::ipmi::NetFn_e::storage, 0x49}, Purpose_e::writing); });
    }

    bool Await(const std::function<bool()>& condition) { return m_fake->Await(condition); }
    bool AwaitSeen(const std::string& what, long count = 1) {
        return Await([&] {
            const auto seen = m_fake->Seen();
            return std::count_if(seen.begin(), seen.end(),
                                 [&](const SeenExchange& each) { return each.what == what; }) >= count;
        });
    }
    bool AwaitLog(std::size_t lines) {
        return Await([&] { return Log().size() >= lines; });
    }
    std::vector<std::string> Log() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_log;
    }

    /// The present thread is the one that stops the service, @p from now.
    void LimitAccesses(std::chrono::milliseconds from, std::chrono::milliseconds patience = std::chrono::seconds(20)) {
        m_controller->LimitAccesses({std::chrono::steady_clock::now() + from, patience, std::this_thread::get_id()});
    }

    const std::shared_ptr<FakeController> m_fake = std::make_shared<FakeController>();
    bmc::ipmi::ControllerOptions m_options{"10.0.0.11:623", "session with cipher suite 17",
                                           std::chrono::milliseconds(60), 2};
    bmc::ipmi::ControllerTiming m_timing{std::chrono::milliseconds(2), std::chrono::milliseconds(10),
                                         std::chrono::hours(1), c_patience};
    std::unique_ptr<bmc::ipmi::Controller> m_controller;

private:
    mutable std::mutex m_mutex;  ///< guards m_log
    std::vector<std::string> m_log;
};

}  // namespace test
