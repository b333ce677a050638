#pragma once

#include <array>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include "daemon_fixture.h"

namespace test {

/// The daemon on three boards, whose hardware a test changes and whose journal tells what the daemon did to it.
class ChassisTest : public DaemonTest {
protected:
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

    /// What was done to the hardware, without the times.
    std::vector<std::string> Actions() const { return WithoutTimes(Do({"journal"})); }

    /// Has what is done to the hardware written down beyond the daemon's end.
    /// @pre something was done: when that is written down, so will be all that follows
    void FollowJournal() {
        m_follower =
            std::make_unique<Process>(std::vector<std::string>{Program("zelkor-chassisctl"), "--socket",
                                                               m_folder.Path("chassis.sock"), "journal", "--follow"},
                                      m_folder.Path("journal"), m_folder.Path("journal-err"));
        const std::string past = Do({"journal"});
        EXPECT_NE(past, "");
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
    static std::vector<std::string> WithoutTimes(const std::string& journal) {
        std::vector<std::string> actions;
        std::istringstream lines(journal);
        for (std::string line; std::getline(lines, line);) {
            actions.push_back(line.substr(line.find(' ') + 1));
        }
        return actions;
    }

    std::unique_ptr<Process> m_follower;
};

}  // namespace test
