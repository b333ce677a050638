#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/udp_relay.h"

namespace test {

/// The built daemon on boards that fail: each has a simulator of its own, so that they live and die alone, and a relay
/// before it. The first is the chassis controller icb/0 ("ICB"), the others are io/1 ("IO1") and so on.
class FailingBoardsTest : public DaemonTest {
protected:
    using Clock = std::chrono::steady_clock;
    static constexpr std::uint8_t c_bmc = 0x20;
    static constexpr int c_sensors = 10;

    /// The ways in which a controller dies.
    enum class Death_e { frozen, stopped, black_hole };

    struct Site {
        std::unique_ptr<IpmiSimulator> simulator;
        std::unique_ptr<UdpRelay> relay;
        std::string label;  ///< "io_1", as messages and file names call it
        std::string uri;
        std::string name;
    };

    /// Starts @p boards controllers, whose sensors 1 to 10 are temperatures that read 30 + number and may be 100.
    void StartControllers(int boards) {
        for (int i = 0; i < boards; ++i) {
            SimulatedChassis chassis;
            for (int id = 1; id <= c_sensors; ++id) {
                SimulatedSensor sensor;
                sensor.number = static_cast<std::uint8_t>(id);
                sensor.name = "T" + std::to_string(id);
                sensor.raw = static_cast<std::uint8_t>(30 + id);
                sensor.thresholds = {std::nullopt, std::nullopt, 5, 80, 90, 100};
                chassis.controllers.front().sensors.push_back(sensor);
            }
            auto simulator = std::make_unique<IpmiSimulator>(chassis);
            auto relay = std::make_unique<UdpRelay>(simulator->GetPort());
            const std::string number = std::to_string(i);
            m_sites.push_back(
                i == 0 ? Site{std::move(simulator), std::move(relay), "icb_0", "icb/0", "ICB"}
                       : Site{std::move(simulator), std::move(relay), "io_" + number, "io/" + number, "IO" + number});
        }
    }

    /// @param attributes of the section of the boards, beside the backend
    void ConfigureBoards(const std::string& sections, const std::string& attributes = "") const {
        WriteFile(m_folder.Path("password"), SimulatedUser{}.password + "\n");
        ASSERT_EQ(::chmod(m_folder.Path("password").c_str(), S_IRUSR | S_IWUSR), 0);
        std::string text = "<zelkor>\n<boards backend='ipmi' cache='none' " + attributes + ">\n";
        for (const Site& site : m_sites) {
            text += "<board uri='" + site.uri + "' type='" + (site.uri == "icb/0" ? "icb" : "io") + "' name='" +
                    site.name + "' host='127.0.0.1' port='" + std::to_string(site.relay->GetPort()) +
                    "' user='operator' password-file='password' privilege='administrator'>" +
                    (site.uri == "icb/0" ? c_fpga : "") + "</board>\n";
        }
        WriteFile(m_folder.Path("config.xml"), text + "</boards>\n" + sections + "</zelkor>\n");
    }

    /// Waits until every worker has begun its passes and each board's sensors were recorded.
    void AwaitPasses() {
        ASSERT_TRUE(AwaitLog("Damage Protection settings:")) << ReadFile(m_folder.Path("err")) << Log();
        ASSERT_TRUE(AwaitLog("*Time synchronization process started.")) << Log();
        ASSERT_TRUE(AwaitLog("Fans changed from ")) << Log();
        for (const Site& site : m_sites) {
            ASSERT_TRUE(Await([&] { return CountRecords(site) > 0; })) << site.label << '\n' << Log();
        }
    }

    void Kill(const Site& site, Death_e death) const {
        switch (death) {
            case Death_e::frozen:
                return site.simulator->Freeze();
            case Death_e::stopped:
                return site.simulator->Stop();
            case Death_e::black_hole:
                return site.relay->SetFaults({.drop = 1});
        }
    }
    void Revive(const Site& site, Death_e death) const {
        switch (death) {
            case Death_e::frozen:
                return site.simulator->Thaw();
            case Death_e::stopped:
                return site.simulator->Restart();
            case Death_e::black_hole:
                return site.relay->SetFaults({});
        }
    }

    /// "Controller 127.0.0.1:PORT", as messages call it.
    static std::string Controller(const Site& site) {
        return "Controller 127.0.0.1:" + std::to_string(site.relay->GetPort());
    }

    /// How often the monitor has recorded the board's sensors.
    std::ptrdiff_t CountRecords(const Site& site) const {
        const std::string path = m_folder.Path("log/sensors/" + site.label + ".log");
        return Exists(path) ? static_cast<std::ptrdiff_t>(ReadLines(path).size()) : 0;
    }

    std::ptrdiff_t CountMessages(const std::string& text) const {
        const auto messages = Messages();
        return std::count_if(messages.begin(), messages.end(),
                             [&](const std::string& message) { return message.find(text) != std::string::npos; });
    }

    /// The six reference registers of the fan controller.
    std::vector<int> FanRegisters() const {
        std::vector<int> values;
        for (const int address : {0x40, 0x48, 0x50, 0x58, 0x60, 0x68}) {
            values.push_back(m_sites[0].simulator->GetRegister(c_bmc, static_cast<std::uint16_t>(address)));
        }
        return values;
    }

    static constexpr const char* c_fpga =
        "<fpga read='0x30 0x10 {addr:hi} {addr:lo}' write='0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}' "
        "reply='{value:hi} {value:lo}'/>";
    static constexpr int c_fastest = 297;  ///< what the registers hold at 6500 RPM
    /// Workers that are busy; the one that sets clocks comes last.
    static constexpr const char* c_everySecond =
        "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n"
        "<damage_protection><frequency>1</frequency></damage_protection>\n"
        "<temperature_control><frequency>1</frequency><fans><set lower='30' upper='60' rpm='4000'/></fans>"
        "</temperature_control>\n"
        "<timesync><frequency>1</frequency><delta>2</delta></timesync>\n";

    static constexpr const char* c_everySecondButClocks =
        "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n"
        "<damage_protection><frequency>1</frequency></damage_protection>\n"
        "<temperature_control><frequency>1</frequency><fans><set lower='30' upper='60' rpm='4000'/></fans>"
        "</temperature_control>\n";

    std::vector<Site> m_sites;  ///< ends before the daemon does, if a test leaves one
};

}  // namespace test
