#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "bmc/ipmi/freeipmi_transport.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/loopback.h"

namespace test {

using namespace bmc::ipmi;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline const Request c_askDeviceId(NetFn_e::app, 0x01);
inline const Request c_setClock(NetFn_e::storage, 0x49, {0x00, 0x00, 0x00, 0x60});

/// Sessions with a simulated controller, which has one more behind it at 0x82 on the IPMB and nobody at 0x84.
class LanTest : public testing::Test {
protected:
    /// How much later than its deadline a call may come back, on a busy machine.
    static constexpr milliseconds c_tolerance = 20s;
    static constexpr std::uint8_t c_sensors = 60;  ///< each reads its number

    void SetUp() override {
        SimulatedController controller;
        controller.users = {{"ops", "ops-secret", "admin"}, {"guest", "guest-secret", "user"}};
        for (std::uint8_t number = 1; number <= c_sensors; ++number) {
            SimulatedSensor sensor;
            sensor.number = number;
            sensor.name = "Sensor " + std::to_string(number);
            sensor.raw = number;
            controller.sensors.push_back(sensor);
        }
        SimulatedController board = Satellite(0x82, {});
        board.deviceId = 0x21;
        m_simulator = std::make_unique<IpmiSimulator>(SimulatedChassis{.controllers = {controller, board}});
    }

    ControllerSettings Settings() const {
        ControllerSettings settings;
        settings.host = "127.0.0.1";
        settings.port = m_simulator->GetPort();
        settings.user = "ops";
        settings.privilege = Privilege_e::administrator;
        settings.cipherSuite = m_simulator->HasCipherSuite17() ? 17 : 3;
        settings.timeout = m_timeout;
        settings.retries = 2;
        return settings;
    }

    static std::unique_ptr<FreeIpmiTransport> Make(const ControllerSettings& settings,
                                                   const std::string& password = "ops-secret") {
        return std::make_unique<FreeIpmiTransport>(settings, [password](const auto& use) { use(password.c_str()); });
    }
    std::unique_ptr<FreeIpmiTransport> Make() const { return Make(Settings()); }
    std::unique_ptr<FreeIpmiTransport> MakeOpen() const {
        auto transport = Make();
        transport->Open(In(1min));
        return transport;
    }

    static SteadyTime In(milliseconds time) { return steady_clock::now() + time; }

    static Response Ask(Transport& transport, const Request& request = c_askDeviceId, milliseconds limit = 1min,
                        Sending_e sending = Sending_e::repeated, Target target = {}) {
        return transport.Exchange(target, request, sending, In(limit));
    }

    /// How @p action failed; nothing when it did not. Its text and duration are kept.
    template <typename Action>
    std::optional<TransportFailure_e> Failure(Action action) {
        const auto start = steady_clock::now();
        std::optional<TransportFailure_e> failure;
        m_text.clear();
        try {
            action();
        } catch (const TransportError& error) {
            m_text = error.what();
            failure = error.GetFailure();
        }
        m_duration = std::chrono::round<milliseconds>(steady_clock::now() - start);
        return failure;
    }
    std::optional<TransportFailure_e> FailureToOpen(const ControllerSettings& settings,
                                                    const std::string& password = "ops-secret",
                                                    milliseconds limit = 1min) {
        const auto transport = Make(settings, password);
        return Failure([&] { transport->Open(In(limit)); });
    }

    /// Of one try. Tests of controllers that answer have a long one, because the controller may have to wait for a
    /// processor; those that wait for silence make it short.
    milliseconds m_timeout = 1s;
    std::unique_ptr<IpmiSimulator> m_simulator;
    std::string m_text;
    milliseconds m_duration{};
};

}  // namespace test
