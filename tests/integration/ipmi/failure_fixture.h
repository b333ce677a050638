#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/ipmi/ipmi_backend.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/udp_relay.h"
#include "tests/support/temp_folder.h"

namespace test {

/// How often sessions were opened, over all controllers of a test.
struct OpeningCounts {
    std::atomic<int> tried{0};
    std::atomic<int> opened{0};
};

/// The backend itself, with its own threads and the real transport, on controllers that are not ours; between each
/// controller and the backend stands a relay. Times are as short as a controller allows that may have to wait for a
/// processor.
class IpmiFailureTest : public testing::Test {
protected:
    using Milliseconds = std::chrono::milliseconds;
    using Clock = std::chrono::steady_clock;

    static constexpr Milliseconds c_timeout{400};
    static constexpr unsigned int c_retries = 1;
    static constexpr std::uint8_t c_bmc = 0x20;

    /// What belongs to one board. Its uri is "slot/1", "slot/2" and so on; the first is the chassis controller "icb/0".
    struct Site {
        std::unique_ptr<IpmiSimulator> simulator;
        std::unique_ptr<UdpRelay> relay;
        bmc::Uri uri;
    };

    void SetUp() override;

    /// Sensors 1 to @p count, which read their number times eight.
    static std::vector<SimulatedSensor> Sensors(int count = 20);

    /// Starts @p boards controllers with @p sensors sensors each, and relays that hand everything on.
    void StartControllers(int boards = 1, int sensors = 20);

    /// Starts the backend and waits until every board's sensors are known, unless @p isAwaited is false.
    void OpenBackend(bool isAwaited = true);
    void CloseBackend() { m_backend.reset(); }

    /// What the settings say of all controllers; to be changed before OpenBackend.
    struct Ways {
        std::string user = "operator";
        std::chrono::milliseconds timeout = c_timeout;
        unsigned int retries = c_retries;
        std::uint8_t cipherSuite = 17;
    };

    bmc::Board& Board(std::size_t site = 0) { return *m_backend->GetBoard(m_sites.at(site).uri); }
    /// What sensor @p id of the board reads; not a number when it has no reading. @throws as bmc::Sensor::Read
    double Read(std::size_t site, int id);
    /// The text of what @p access raises; empty when it raises nothing.
    static std::string ErrorOf(const std::function<void()>& access);
    /// As above, of a reading.
    std::string ReadError(std::size_t site, int id) {
        return ErrorOf([&] { Read(site, id); });
    }

    IpmiSimulator& Simulator(std::size_t site = 0) { return *m_sites.at(site).simulator; }
    UdpRelay& Relay(std::size_t site = 0) { return *m_sites.at(site).relay; }

    /// Packets that were sent to the controller, whatever became of them.
    std::uint64_t PacketsTo(std::size_t site) { return Relay(site).GetCounts(RelayDirection_e::to_server).received; }

    /// Looks every few milliseconds. @return whether it came true
    static bool Await(const std::function<bool()>& isTrue);
    /// Waits until the board's sensors can be read.
    bool AwaitAnswer(std::size_t site) {
        return Await([&] { return ReadError(site, 1).empty(); });
    }

    void WritePassword(const std::string& password) const;
    /// What the backend logged, in its order.
    std::vector<std::string> Messages() const;
    void ClearMessages();
    /// How many messages hold @p text.
    long CountMessages(const std::string& text) const;

    Ways m_ways;
    bmc::ipmi::ControllerTiming m_timing{Milliseconds(20), Milliseconds(100), std::chrono::seconds(10),
                                         std::chrono::seconds(10)};
    OpeningCounts m_openings;
    TempFolder m_folder;
    std::vector<Site> m_sites;

private:
    mutable std::mutex m_mutex;  ///< guards what follows
    std::vector<std::string> m_messages;

protected:
    std::unique_ptr<bmc::ipmi::IpmiBackend> m_backend;  ///< ends first
};

}  // namespace test
