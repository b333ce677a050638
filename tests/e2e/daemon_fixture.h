#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/file.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

namespace test {

/// The built daemon on a simulated chassis, seen from outside only. Or an installed one: where the environment has
/// ZELKOR_PROGRAMS, folders separated by colons, each of the system's programs is one of theirs.
class DaemonTest : public testing::Test {
protected:
    static std::string Program(const std::string& name) {
        const std::string built = std::string(ZELKOR_BIN) + "/" + name;
        const char* const folders = std::getenv("ZELKOR_PROGRAMS");
        // What only the tests have is not installed.
        if (folders == nullptr || name.rfind("zelkor-", 0) != 0) {
            return built;
        }
        std::istringstream list(folders);
        for (std::string folder; std::getline(list, folder, ':');) {
            if (::access((folder + "/" + name).c_str(), X_OK) == 0) {
                return folder + "/" + name;
            }
        }
        throw std::runtime_error(name + " is in none of the folders " + folders);
    }

    /// Waits until @p isTrue, looking every few milliseconds: as long as a machine that has much else to do may need.
    /// @return whether it came true.
    static bool Await(const std::function<bool()>& isTrue) {
        const auto end = std::chrono::steady_clock::now() + c_waitLimit;
        while (!isTrue()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    /// Writes the chassis description and the configuration.
    void Configure(const std::string& sections, const std::string& chassis = c_chassis) {
        WriteFile(m_folder.Path("chassis.xml"), chassis);
        WriteFile(m_folder.Path("config.xml"),
                  "<zelkor>\n<boards backend='sim' chassis='chassis.xml' control='chassis.sock'/>\n" + sections +
                      "</zelkor>\n");
    }

    std::vector<std::string> Command(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{Program("zelkor-platformd"), "--config", m_folder.Path("config.xml"),
                                         "--log-dir", m_folder.Path("log")};
        // Several daemons run at a time: each takes a free port, unless a test is about the port.
        if (std::find(options.begin(), options.end(), "--port") == options.end() && m_takesAnyPort) {
            command.insert(command.end(), {"--port", "0"});
        }
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    void Start(const std::vector<std::string>& options = {},
               const std::map<std::string, std::string>& environment = {}) {
        m_daemon = std::make_unique<Process>(Command(options), m_folder.Path("out"), m_folder.Path("err"), environment);
    }

    void StartAndAwait(const std::string& message = "Monitor settings:") {
        Start();
        ASSERT_TRUE(AwaitLog(message)) << ReadFile(m_folder.Path("err"));
    }

    /// What the stop says of the fans. How fast they were before it knows when the controller tells it within half a
    /// second, which a loaded machine may miss.
    static testing::Matcher<std::string> LeftFast() {
        return testing::MatchesRegex("INFO     Fans changed from [0-9]+ RPM to 6500 RPM\\.");
    }

    /// Waits until each worker of a daemon without any section has begun its first pass.
    bool AwaitWorkers() const {
        return AwaitLog("Monitor settings:") && AwaitLog("Damage Protection settings:") &&
               AwaitLog("Fans changed from 0 RPM to 6500 RPM.") && AwaitLog("Board slot_2 will be synchronized.");
    }

    /// Asks the daemon to stop. @return its exit status; when that is bad, standard error is shown.
    std::optional<int> Stop(int signal = SIGTERM) {
        m_daemon->Signal(signal);
        const std::optional<int> status = m_daemon->Wait();
        EXPECT_EQ(status, 0) << ReadFile(m_folder.Path("err"));
        return status;
    }

    std::string Log() const { return ReadFile(m_folder.Path("log/zelkor-platformd.log")); }
    bool AwaitLog(const std::string& text) const {
        return Await([&] { return Log().find(text) != std::string::npos; });
    }

    /// The log's messages without their time: "INFO     text"; lines that continue a message are left out, and the
    /// one that is there only because these tests let the daemon choose its port.
    std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        for (const std::string& line : ReadLines(m_folder.Path("log/zelkor-platformd.log"))) {
            if (line.size() > 26 && line[0] == '[' && line.find(c_announcement) == std::string::npos) {
                messages.push_back(line.substr(26));
            }
        }
        return messages;
    }

    /// One command to the simulated chassis.
    Result Chassis(const std::vector<std::string>& words) const {
        std::vector<std::string> command{Program("zelkor-chassisctl"), "--socket", m_folder.Path("chassis.sock")};
        command.insert(command.end(), words.begin(), words.end());
        return RunProgram(command);
    }

    /// The port of the registry server, which the daemon names when it may choose it.
    int RegistryPort() const {
        const std::string announcement = c_announcement;
        EXPECT_TRUE(AwaitLog(announcement)) << ReadFile(m_folder.Path("err"));
        const std::string log = Log();
        const std::size_t begin = log.rfind(announcement);
        return begin == std::string::npos ? 0 : std::stoi(log.substr(begin + announcement.size()));
    }

    std::vector<std::string> RegistryCommand(const std::vector<std::string>& words) const {
        std::vector<std::string> command{Program("zelkor-regctl"), "--server",
                                         "127.0.0.1:" + std::to_string(RegistryPort())};
        command.insert(command.end(), words.begin(), words.end());
        return command;
    }

    /// One command to the registry.
    Result Registry(const std::vector<std::string>& words) const { return RunProgram(RegistryCommand(words)); }

    /// The daemon must refuse to run: status 1 and one line on standard error that holds @p text.
    void ExpectRefusal(const std::vector<std::string>& command, const std::string& text) const {
        const Result result = RunProgram(command);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_THAT(result.error, testing::HasSubstr(text));
        EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1) << result.error;
        EXPECT_THAT(Log(), testing::Not(testing::HasSubstr("***Platform daemon started")));
        EXPECT_THAT(Log(), testing::Not(testing::HasSubstr("process started.")));
    }

    static constexpr const char* c_announcement = "Registry server listens on port ";
    static constexpr const char* c_chassis = R"(<chassis>
  <board uri="icb/0" type="icb" name="ICB">
    <fans/>
    <sensor id="3" name="V12" type="voltage" units="V" value="12" lnr="9" lc="10" lnc="11" unc="13" uc="14" unr="15"/>
    <sensor id="12" name="Intake" type="temperature" units="C" value="48" lnr="-10" lc="-5" lnc="0" nominal="30"
            unc="75" uc="85" unr="95"/>
  </board>
  <board uri="os/0" type="os" name="host">
    <sensor id="7" name="CPU" type="temperature" units="C" value="45" lnc="0" unc="85" uc="95" unr="105"/>
  </board>
  <board uri="slot/2" type="power_supply" name="slot2">
    <sensor id="5" name="Core" type="temperature" units="C" value="40" lnc="0" unc="80" uc="90" unr="100"/>
  </board>
</chassis>
)";
    static constexpr const char* c_recordEverySecond =
        "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n";

    TempFolder m_folder;
    std::unique_ptr<Process> m_daemon;
    bool m_takesAnyPort = true;
};

}  // namespace test
