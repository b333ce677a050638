#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "daemon_fixture.h"

namespace test {

/// One worker of the daemon at work on three boards while the other three are disabled.
///
/// What it does is seen by what it logs and by the journal of the hardware. That time goes by without anything being
/// done is seen by heartbeats: the sensor of the host, the last one of a pass, is made to miss, which costs an error in
/// each pass.
class WorkerTest : public DaemonTest {
protected:
    /// @param section its element in the configuration
    /// @param name    as its messages say it
    WorkerTest(std::string section, std::string name) : m_section(std::move(section)), m_name(std::move(name)) {}

    /// In an order that is not that of the uris. The fans stand still; the intake alone is warm.
    static constexpr const char* c_threeBoards = R"(<chassis>
  <board uri="os/0" type="os" name="host">
    <sensor id="7" name="CPU" type="temperature" units="C" value="20" lnc="0" unc="85" uc="95" unr="105"/>
  </board>
  <board uri="io/2" type="io" name="slot2">
    <sensor id="5" name="Core" type="temperature" units="C" value="20" lnc="0" unc="80" uc="90" unr="100"/>
  </board>
  <board uri="icb/0" type="icb" name="ICB">
    <fans/>
    <sensor id="3" name="V12" type="voltage" units="V" value="12" lnc="11" unc="13" uc="14" unr="15"/>
    <sensor id="12" name="Intake" type="temperature" units="C" value="48" lnc="0" unc="75" uc="85" unr="95"/>
  </board>
</chassis>
)";

    /// @p text with the one place where it holds @p old changed.
    static std::string With(std::string text, const std::string& old, const std::string& replacement) {
        const std::size_t place = text.find(old);
        EXPECT_NE(place, std::string::npos) << old;
        EXPECT_EQ(text.find(old, place + 1), std::string::npos) << old;
        return place == std::string::npos ? text : text.replace(place, old.size(), replacement);
    }

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
        std::filesystem::remove_all(m_folder.Path("log"));
        Configure(OthersDisabled() + section, chassis);
        Start(options);
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

    /// One command to the chassis that must succeed. @return its output
    std::string Do(const std::vector<std::string>& words) const {
        const Result result = Chassis(words);
        EXPECT_EQ(result.status, 0) << words.front() << ": " << result.error;
        return result.output;
    }

    /// One command to the registry that must succeed. @return its output
    std::string Ask(const std::vector<std::string>& words) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, 0) << words.front() << ": " << result.error;
        return result.output;
    }

    /// Waits for a message, level and text, that stands by itself.
    bool AwaitMessage(const std::string& message) const { return AwaitLog("] " + message + "\n"); }

    /// Waits until there are @p count of a message.
    bool AwaitMessages(const std::string& message, std::ptrdiff_t count) const {
        return Await([&] {
            const auto messages = Messages();
            return std::count(messages.begin(), messages.end(), message) >= count;
        });
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

    /// What was done to the hardware, without the times.
    std::vector<std::string> Actions() const { return WithoutTimes(Do({"journal"})); }

    /// Has what is done to the hardware written down beyond the daemon's end.
    void FollowJournal() {
        m_follower =
            std::make_unique<Process>(std::vector<std::string>{Program("zelkor-chassisctl"), "--socket",
                                                               m_folder.Path("chassis.sock"), "journal", "--follow"},
                                      m_folder.Path("journal"), m_folder.Path("journal-err"));
        const std::string past = Do({"journal"});
        EXPECT_TRUE(Await([&] { return ReadFile(m_folder.Path("journal")).size() >= past.size(); }));
    }

    /// All that was done, up to the daemon's end. @pre the journal was followed and the daemon has ended
    std::vector<std::string> AllActions() {
        EXPECT_EQ(m_follower->Wait(), 2) << "it ends with the daemon";
        return WithoutTimes(ReadFile(m_folder.Path("journal")));
    }

    /// Writes to the reference registers of the fans, in short: "483" for that value in all six in their order, else
    /// each write as "0x40 483"; other actions as they are.
    static std::vector<std::string> FanWrites(const std::vector<std::string>& actions) {
        const std::string begin = "icb/0 FpgaSpiWrite ";
        std::vector<std::string> writes;
        for (std::size_t at = 0; at < actions.size();) {
            std::size_t fan = 0;
            std::string value;
            while (fan < c_registers.size() && at + fan < actions.size()) {
                const std::string write = begin + c_registers.at(fan) + " ";
                const std::string& action = actions[at + fan];
                if (action.compare(0, write.size(), write) != 0 || (fan > 0 && action.substr(write.size()) != value)) {
                    break;
                }
                value = action.substr(write.size());
                ++fan;
            }
            const bool isAll = fan == c_registers.size();
            const bool isWrite = actions[at].compare(0, begin.size(), begin) == 0;
            writes.push_back(isAll ? value : actions[at].substr(isWrite ? begin.size() : 0));
            at += isAll ? fan : 1;
        }
        return writes;
    }
    std::vector<std::string> FanWrites() const { return FanWrites(Actions()); }

    static constexpr std::array<const char*, 6> c_registers{"0x40", "0x48", "0x50", "0x58", "0x60", "0x68"};

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

    static std::vector<std::string> WithoutTimes(const std::string& journal) {
        std::vector<std::string> actions;
        std::istringstream lines(journal);
        for (std::string line; std::getline(lines, line);) {
            actions.push_back(line.substr(line.find(' ') + 1));
        }
        return actions;
    }

    const std::string m_section;
    const std::string m_name;
    std::unique_ptr<Process> m_follower;
};

}  // namespace test
