#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "chassis_fixture.h"

namespace test {

/// One worker of the daemon at work while the other three are disabled.
///
/// What it does is seen by what it logs and by the journal of the hardware. That time goes by without anything being
/// done is seen by heartbeats: the sensor of the host, the last one of a pass, is made to miss, which costs an error in
/// each pass.
class WorkerTest : public ChassisTest {
protected:
    /// @param section its element in the configuration
    /// @param name    as its messages say it
    WorkerTest(std::string section, std::string name) : m_section(std::move(section)), m_name(std::move(name)) {}

    /// The sections that keep the other three workers from running.
    std::string OthersDisabled() const {
        std::string sections;
        for (const char* section : {"monitor", "damage_protection", "temperature_control", "timesync"}) {
            if (section != m_section) {
                sections.append("<").append(section).append(" enabled='false'/>\n");
            }
        }
        return sections;
    }

    /// Starts the daemon with @p section for the worker, and waits until that has said its settings.
    void Run(const std::string& section, const std::string& chassis = c_threeBoards,
             const std::vector<std::string>& options = {}) {
        RunProgramFor(section, Program("zelkor-platformd"), chassis, options);
    }

    /// The same of a daemon whose stop asks the controller how fast the fans are for as long as that takes; the shipped
    /// one does for half a second, which a loaded machine may miss.
    void RunUntilAnswered(const std::string& section) {
        RunProgramFor(section, Program("held_daemon"), c_threeBoards, {});
    }

    void RunProgramFor(const std::string& section, const std::string& program, const std::string& chassis,
                       const std::vector<std::string>& options) {
        std::filesystem::remove_all(m_folder.Path("log"));
        Configure(OthersDisabled() + section, chassis);
        std::vector<std::string> command = Command(options);
        command[0] = program;
        m_daemon = std::make_unique<Process>(command, m_folder.Path("out"), m_folder.Path("err"));
        ASSERT_TRUE(AwaitLog(m_name + " settings:")) << ReadFile(m_folder.Path("err"));
    }

    /// The same for a worker that ends by itself; then the daemon is stopped.
    void RunToItsEnd(const std::string& section, const std::string& chassis = c_threeBoards,
                     const std::vector<std::string>& options = {}) {
        std::filesystem::remove_all(m_folder.Path("log"));
        Configure(OthersDisabled() + section, chassis);
        Start(options);
        ASSERT_TRUE(AwaitLog("*" + m_name + " process stopped")) << ReadFile(m_folder.Path("err"));
        EXPECT_EQ(Stop(), 0);
    }

    /// Has a worker whose period is 0 seconds make about ten passes a second: @p board, which it asks @p times in a
    /// pass, answers slowly. For tests of many steps.
    void Pace(const std::string& board, int times) const {
        constexpr int c_passMilliseconds = 100;
        Do({"slow", board, std::to_string(c_passMilliseconds / times)});
    }

    /// From now on each pass says that it looks for the host's sensor in vain.
    void BeginHeartbeats() const {
        Do({"missing", "os/0", "7"});
        EXPECT_TRUE(AwaitPasses(1));
    }

    /// Waits for so many more passes.
    bool AwaitPasses(std::ptrdiff_t count) const {
        return Await([this, enough = Heartbeats() + count] { return Heartbeats() >= enough; });
    }

    /// The daemon's own messages and those of disabled workers, whatever the moment that a worker says them.
    static bool IsOfOthers(std::string_view message) {
        static const std::set<std::string_view> c_known{"INFO     **************************************************",
                                                        "INFO     ***Platform daemon started",
                                                        "INFO     *Monitor process started.",
                                                        "INFO     Monitor settings:",
                                                        "INFO     *Monitor process stopped",
                                                        "INFO     *Damage Protection process started.",
                                                        "INFO     Damage Protection settings:",
                                                        "INFO     *Damage Protection process stopped",
                                                        "INFO     *Temperature Control process started.",
                                                        "INFO     Temperature Control settings:",
                                                        "INFO     *Temperature Control process stopped",
                                                        "INFO     Time Synchronization settings:"};
        return c_known.count(message) != 0;
    }

    /// All that the worker said up to the stop of the daemon besides its start, the heading of its settings and its
    /// end; without heartbeats. What is said several times in a row stands there once: how many passes go by between
    /// two steps of a test is a matter of the machine's load.
    std::vector<std::string> Told() const {
        std::vector<std::string> told;
        for (const std::string& message : Messages()) {
            if (message == "INFO     ***Platform daemon is stopping.") {
                break;
            }
            if (!IsOfOthers(message) && !IsHeartbeat(message) && (told.empty() || told.back() != message)) {
                told.push_back(message);
            }
        }
        return told;
    }

    /// What was said from the stop of the daemon on.
    std::vector<std::string> ToldAtStop() const {
        const auto messages = Messages();
        const auto stop = std::find(messages.begin(), messages.end(), "INFO     ***Platform daemon is stopping.");
        return {stop == messages.end() ? stop : stop + 1, messages.end()};
    }

    /// The lines of the worker's settings as it said them, without the blanks that all of them have.
    std::vector<std::string> Settings() const {
        std::vector<std::string> settings;
        bool isInside = false;
        for (const std::string& line : ReadLines(m_folder.Path("log/zelkor-platformd.log"))) {
            if (!line.empty() && line[0] == '[') {
                isInside = line.size() > c_prefix && line.substr(c_prefix) == m_name + " settings:";
            } else if (isInside) {
                EXPECT_GE(line.find_first_not_of(' '), c_prefix) << line;
                settings.push_back(line.substr(c_prefix));
            }
        }
        return settings;
    }

private:
    static constexpr std::size_t c_prefix = 35;

    bool IsHeartbeat(std::string_view message) const {
        return message == "ERROR    Problem accessing sensor id: 7 on board os/0" ||
               message == "ERROR    Problem accessing sensor id: 7 on board os_0";
    }

    std::ptrdiff_t Heartbeats() const {
        const auto messages = Messages();
        return std::count_if(messages.begin(), messages.end(),
                             [this](const std::string& message) { return IsHeartbeat(message); });
    }

    const std::string m_section;
    const std::string m_name;
};

}  // namespace test
