// Every command of zelkor-chassisctl against the daemon as built.

#include <sstream>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using test::Result;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class ChassisControlTest : public DaemonTest {
protected:
    void SetUp() override {
        Configure("<temperature_control enabled='false'/>\n");  // the fans are the operator's
        StartAndAwait();
        ASSERT_TRUE(AwaitLog("*Temperature Control process stopped"));
    }

    void TearDown() override {
        if (m_daemon) {
            EXPECT_EQ(Stop(), 0);
        }
    }

    void Done(const std::vector<std::string>& words, const std::string& output = "") const {
        const Result result = Chassis(words);
        EXPECT_EQ(result.status, 0) << words.front();
        EXPECT_EQ(result.output, output) << words.front();
        EXPECT_EQ(result.error, "") << words.front();
    }

    void Refused(const std::vector<std::string>& words, const std::string& text) const {
        const Result result = Chassis(words);
        EXPECT_EQ(result.status, 1) << text;
        EXPECT_EQ(result.output, "") << text;
        EXPECT_EQ(result.error, "zelkor-chassisctl: " + text + "\n");
    }

    /// The line of `list` that begins with @p begin, blanks in front left out.
    std::string Listed(const std::string& begin) const {
        std::istringstream lines(Chassis({"list"}).output);
        for (std::string line; std::getline(lines, line);) {
            line.erase(0, line.find_first_not_of(' '));
            if (line.rfind(begin + "  ", 0) == 0) {
                return line;
            }
        }
        return {};
    }
};

TEST_F(ChassisControlTest, List_ShowsBoardsAndSensors) {
    EXPECT_EQ(Listed("os/0"), "os/0  host  (os, power on)");
    EXPECT_THAT(Listed("7"), ContainsRegex("CPU +temperature +45 +C "));
    EXPECT_THAT(Chassis({"list", "--json"}).output, HasSubstr("\"uri\": \"slot/2\""));
    Refused({"list", "more"}, "usage: zelkor-chassisctl list [--json]");
}

TEST_F(ChassisControlTest, SetAndAuto_HoldAndReleaseTheReading) {
    Done({"set", "os/0", "7", "-12.5"});
    EXPECT_THAT(Listed("7"), ContainsRegex(" -12.5 .* set$"));
    Done({"set", "os/0", "7", "nan"});
    EXPECT_THAT(Listed("7"), ContainsRegex(" nan .* set$"));
    Done({"set", "os/0", "7", "inf"});
    EXPECT_THAT(Listed("7"), ContainsRegex(" inf .* set$"));
    Done({"auto", "os/0", "7"});
    EXPECT_THAT(Listed("7"), ContainsRegex(" 45 "));
    EXPECT_THAT(Listed("7"), Not(HasSubstr("set")));
    Refused({"set", "os/0", "7", "warm"}, "not a number: \"warm\"");
    Refused({"set", "os/0", "8", "1"}, "board os/0 has no sensor 8");
    Refused({"auto", "os/1", "7"}, "unknown board \"os/1\"");
}

TEST_F(ChassisControlTest, Invalid_UntilAutoOrHeal) {
    for (const std::vector<std::string>& undo :
         {std::vector<std::string>{"auto", "os/0", "7"}, {"heal", "os/0", "7"}, {"heal", "os/0"}}) {
        Done({"invalid", "os/0", "7"});
        EXPECT_THAT(Listed("7"), ContainsRegex(" na .* invalid$"));
        Done(undo);
        EXPECT_THAT(Listed("7"), Not(HasSubstr("invalid")));
    }
    Refused({"invalid", "os/0", "x"}, "not a sensor id: \"x\"");
    Refused({"invalid", "os/0"}, "usage: zelkor-chassisctl invalid BOARD SENSOR");
}

TEST_F(ChassisControlTest, Fail_OfBoardAndSensorUntilHealed) {
    Done({"fail", "os/0"});
    EXPECT_THAT(Listed("os/0"), HasSubstr("injected: fail: simulated failure"));
    Done({"fail", "os/0", "7", "no answer, twice"});
    EXPECT_THAT(Listed("7"), HasSubstr("fail: no answer, twice"));
    Done({"heal", "os/0"});
    EXPECT_THAT(Chassis({"list"}).output, Not(HasSubstr("fail")));
    Refused({"fail", "os/0", "-5", "x"}, "board os/0 has no sensor -5");
    EXPECT_THAT(Chassis({"list"}).output, Not(HasSubstr("fail")));
}

TEST_F(ChassisControlTest, MissingAndSlow_UntilHealed) {
    Done({"missing", "os/0", "7"});
    EXPECT_THAT(Listed("7"), HasSubstr("missing"));
    Done({"missing", "os/0"});
    Done({"slow", "os/0", "15"});
    EXPECT_THAT(Listed("os/0"), HasSubstr("injected: missing, slow 15"));
    Done({"heal", "os/0"});
    EXPECT_EQ(Listed("os/0"), "os/0  host  (os, power on)");
    EXPECT_THAT(Listed("7"), Not(HasSubstr("missing")));
    Refused({"missing", "os/0", ""}, "argument 2 of missing is empty");
    Refused({"slow", "os/0", "-1"}, "not a number of milliseconds from 0 to 3600000: \"-1\"");
    Refused({"heal", "os/9"}, "unknown board \"os/9\"");
}

TEST_F(ChassisControlTest, LimitAndClock_AreTaken) {
    Done({"limit", "os/0", "7", "unc", "70.25"});
    EXPECT_THAT(Listed("7"), HasSubstr(" 70.25 "));
    Done({"limit", "os/0", "7", "unc", "none"});
    EXPECT_THAT(Listed("7"), Not(HasSubstr(" 70.25 ")));
    Refused({"limit", "os/0", "7", "unc", "inf"}, "a limit is a finite number or \"none\", given \"inf\"");
    Refused({"limit", "os/0", "7", "max", "1"}, "unknown limit \"max\"; known: lnr, lc, lnc, unc, uc, unr, nominal");
    Done({"clock", "os/0", "-5.5"});
    Refused({"clock", "os/0", "late"}, "not a number: \"late\"");
}

TEST_F(ChassisControlTest, Fpga_ReadWriteFailHeal) {
    Done({"fpga", "read", "64"}, "0\n");
    Done({"fpga", "write", "0x40", "645"});
    Done({"fpga", "read", "0x40"}, "645\n");
    Done({"fpga", "fail", "0x40"});
    Refused({"fpga", "read", "0x40"}, "cannot read register 0x40: there is none, or it is made to fail");
    Refused({"fpga", "write", "0x40", "1"}, "cannot write register 0x40: there is none, or it is made to fail");
    Done({"fpga", "heal", "0x40"});
    Done({"fpga", "read", "0x40"}, "645\n");
    Done({"fpga", "write", "0x4a", "77"});  // a tachometer that is stuck
    Done({"fpga", "read", "0x4a"}, "77\n");
    Done({"fpga", "heal", "0x4a"});
    Done({"fpga", "read", "0x4a"}, "0\n");
    Refused({"fpga", "read", "70000"}, "register address \"70000\" is not a number from 0 to 0xFFFF");
    EXPECT_THAT(Chassis({"journal"}).output, ContainsRegex("^[0-9]+\\.[0-9]{3} icb/0 FpgaSpiWrite 0x40 645\n$"));
    EXPECT_THAT(Chassis({"journal", "--json"}).output,
                HasSubstr("\"uri\":\"icb/0\",\"action\":\"FpgaSpiWrite\",\"arguments\":[\"0x40\",\"645\"]}\n"));
}

TEST_F(ChassisControlTest, JournalFollow_TwoClientsSeeEachActionUntilTheDaemonEnds) {
    std::vector<std::unique_ptr<test::Process>> followers;
    for (const std::string name : {"first", "second"}) {
        followers.push_back(std::make_unique<test::Process>(
            std::vector<std::string>{Program("zelkor-chassisctl"), "--socket", m_folder.Path("chassis.sock"), "journal",
                                     "--follow"},
            m_folder.Path(name), m_folder.Path(name + ".err")));
    }
    Done({"fpga", "write", "0x48", "500"});
    for (const std::string name : {"first", "second"}) {
        EXPECT_TRUE(Await([&] {
            return test::ReadFile(m_folder.Path(name)).find("icb/0 FpgaSpiWrite 0x48 500\n") != std::string::npos;
        })) << name;
    }
    EXPECT_EQ(Stop(), 0);
    for (const auto& follower : followers) {
        EXPECT_EQ(follower->Wait(), 2);
    }
    EXPECT_THAT(test::ReadFile(m_folder.Path("first.err")), HasSubstr("no daemon answers at "));
    m_daemon.reset();
}

TEST_F(ChassisControlTest, PowerAndShutdownCount_OfABoard) {
    Done({"power", "slot/2"}, "on\n");
    Done({"shutdown-count", "slot/2"}, "0\n");
    Refused({"power", "slot/3"}, "unknown board \"slot/3\"");
    Refused({"shutdown-count"}, "usage: zelkor-chassisctl shutdown-count BOARD");
}

TEST_F(ChassisControlTest, CommandOrOptionThatIsUnknown_IsRefused) {
    Refused({"explode"}, "unknown command \"explode\", see zelkor-chassisctl --help");
    Refused({"list", "--loud"}, "unrecognised option '--loud'");
}

TEST_F(DaemonTest, ChassisControl_WithoutDaemon_Status2) {
    const Result result = Chassis({"list"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("no daemon answers at " + m_folder.Path("chassis.sock")));
}

TEST_F(DaemonTest, ChassisControl_TellsTheVersionOfTheDaemon) {
    const Result result = test::RunProgram({Program("zelkor-chassisctl"), "--version"});
    EXPECT_EQ(result.output, "zelkor-chassisctl 2.8.167.20437\n");
}

}  // namespace
