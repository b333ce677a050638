#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fans_node.h"
#include "prepared_daemon.h"
#include "qnode/factory.h"
#include "temperature_control.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"
#include "tests/support/mock_boards.h"
#include "tests/support/temp_folder.h"

namespace test {

/// The registers of the fan controller on a mock board: they hold what is written, 0 at first.
class FanRegisters {
public:
    explicit FanRegisters(const MockBoard& board) {
        ON_CALL(board, FpgaSpiRead).WillByDefault([this](std::uint16_t address) {
            const std::lock_guard<std::mutex> guard(m_mutex);
            const int raw = m_raws[address];
            return raw < 0 ? bmc::FpgaReadResult{1, 0xFFFF} : bmc::FpgaReadResult{0, static_cast<std::uint16_t>(raw)};
        });
        ON_CALL(board, FpgaSpiWrite).WillByDefault([this](std::uint16_t address, std::uint16_t raw) {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_writes.emplace_back(address, raw);
            int& held = m_raws[address];
            held = held < 0 ? held : raw;
            return bmc::FpgaWriteResult{};
        });
    }

    /// The reference registers of the fans hold these values; a negative one cannot be read, from now on.
    void Hold(const std::vector<int>& raws) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        for (std::size_t fan = 0; fan < raws.size(); ++fan) {
            m_raws[c_addresses[fan]] = raws[fan];
        }
    }

    /// What was written since the last call: "483" for that value in all six reference registers in their order, "-"
    /// for nothing, else every write as "ADDRESS=VALUE ".
    std::string TakeWrites() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        std::string all;
        std::vector<std::pair<std::uint16_t, std::uint16_t>> sixAlike;
        for (const auto& [address, raw] : m_writes) {
            all += std::to_string(address) + "=" + std::to_string(raw) + " ";
        }
        for (const std::uint16_t address : c_addresses) {
            sixAlike.emplace_back(address, m_writes.empty() ? std::uint16_t{0} : m_writes.front().second);
        }
        if (m_writes == sixAlike) {
            all = std::to_string(m_writes.front().second);
        }
        m_writes.clear();
        return all.empty() ? "-" : all;
    }

private:
    static constexpr std::uint16_t c_addresses[] = {0x40, 0x48, 0x50, 0x58, 0x60, 0x68};

    std::mutex m_mutex;
    std::map<std::uint16_t, int> m_raws;
    std::vector<std::pair<std::uint16_t, std::uint16_t>> m_writes;
};

/// A temperature control on three mock boards, whose cycles a test starts by moving the clock. The intake sensor alone
/// decides the fans: the others are cold.
class TemperatureControlTest : public testing::Test {
protected:
    static constexpr const char* c_threeBands =
        "<fans><set lower='40' upper='50' rpm='3000'/><set lower='45' upper='60' rpm='4000'/>"
        "<set lower='55' upper='70' rpm='6500'/></fans>";

    TemperatureControlTest() {
        m_boards.cpu.Hold(20);
        m_boards.core.Hold(20);
        CreateFansNode();
    }

    /// Makes the fans' node on the present boards.
    void CreateFansNode() { m_fansNode = qnode::factory::Create<qnode::LocalNodeStructure, FansNode>(); }

    /// The chassis has no controller board (any more).
    void RemoveController() {
        ON_CALL(m_boards.backend, GetAllLocalBoardUris)
            .WillByDefault(testing::Return(std::vector<bmc::Uri>{m_boards.host.GetUri(), m_boards.slot2.GetUri()}));
        CreateFansNode();
    }

    static std::string Section(const std::string& content) {
        return "<temperature_control>" + content + "</temperature_control>";
    }

    /// Starts a temperature control with the given sections of the configuration.
    void Start(const std::string& sections) {
        m_application.Use(sections, m_folder.Path());
        m_control = std::make_unique<TemperatureControl>(m_fansNode);
    }

    /// Starts it and waits until it sleeps after its first cycle.
    void StartAndCycle(const std::string& sections) {
        Start(sections);
        m_clock.WaitForSleeps(++m_cycles);
    }

    /// One more cycle. The period must be 60 s.
    void Cycle() {
        m_clock.Advance(std::chrono::seconds(60));
        m_clock.WaitForSleeps(++m_cycles);
    }

    /// One more cycle at a temperature. @return what it logged
    std::vector<std::string> CycleAt(double temperature) {
        m_boards.intake.Hold(temperature);
        m_log.Clear();
        Cycle();
        return m_log.Messages();
    }

    /// Starts it without a cycle, by its settings, and waits for the end of its thread: its operations may be called
    /// then.
    void StartAndEnd(const std::string& sections) {
        Start(sections);
        ASSERT_TRUE(m_log.WaitFor("I: *Temperature Control process stopped"));
    }

    ThreeBoards m_boards;
    FanRegisters m_fans{m_boards.icb};
    TempFolder m_folder;
    ManualClock m_clock;
    LogCapture m_log;
    PreparedDaemon m_application;
    std::shared_ptr<qnode::TreeNode> m_fansNode;
    std::unique_ptr<TemperatureControl> m_control;
    int m_cycles = 0;
};

}  // namespace test
