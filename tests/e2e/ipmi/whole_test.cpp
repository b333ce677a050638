// All workers on a mixed chassis: a chassis controller with boards behind it, boards of their own, and the host.

#include "ipmi_daemon_fixture.h"

namespace {

using test::BoardAt;
using test::IpmiSimulator;
using test::WithSensors;
using testing::StartsWith;
using testing::UnorderedElementsAreArray;

class IpmiWholeTest : public test::IpmiDaemonTest {
protected:
    static std::string Answers(const BoardAt& board, const std::string& boards) {
        return "INFO     Controller 127.0.0.1:" + std::to_string(board.simulator->GetPort()) +
               " answers: session with cipher suite " + std::to_string(board.cipherSuite) + " (" + boards + ")";
    }

    static constexpr const char* c_allWorkers =
        "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n"
        "<damage_protection><frequency>1</frequency></damage_protection>\n"
        "<temperature_control><frequency>1</frequency><fans><set lower='30' upper='42' rpm='3000'/>"
        "<set lower='38' upper='48' rpm='4000'/><set lower='45' upper='50' rpm='6500'/></fans></temperature_control>\n"
        "<timesync><frequency>1</frequency></timesync>\n";
};

TEST_F(IpmiWholeTest, MixedChassis_EachWorkerDoesItsWorkAndSaysNothingElse) {
    test::SimulatedChassis shelf = WithSensors(12);
    shelf.controllers.push_back(test::Satellite(0x82, test::SyntheticSensors(12)));
    shelf.controllers.push_back(test::Satellite(0x84, test::SyntheticSensors(12)));
    const IpmiSimulator icbSimulator(shelf);
    const IpmiSimulator ioSimulator(WithSensors(60));
    const IpmiSimulator hostSimulator(WithSensors(6));
    const BoardAt icb = test::Icb(icbSimulator);
    const BoardAt io = test::Io(1, ioSimulator);
    BoardAt host = test::Host(hostSimulator);
    host.cipherSuite = 3;
    ConfigureBoards({io, icb, test::Behind(icb, 0x82, "psu/1", "PSU1", "power_supply"),
                     test::Behind(icb, 0x84, "io/4", "IO4"), host},
                    c_allWorkers);
    StartTraced();
    const std::vector<std::string> labels{"io_1", "icb_0", "psu_1", "io_4", "os_0"};
    constexpr std::size_t c_headerLines = 9;
    for (const std::string& label : labels) {
        ASSERT_TRUE(Await([&] { return SensorLog(label).size() >= c_headerLines + 2; })) << label << "\n" << Log();
    }
    EXPECT_EQ(Ask({"ls", "boards"}), "IO1\nICB\nPSU1\nIO4\nHOST\n");
    EXPECT_EQ(Ask({"ls", "boards/IO1/sensors"}).substr(0, 15), "ID_1\nID_2\nID_3\n");
    EXPECT_EQ(Get("boards/PSU1/board_info/type"), "power_supply");
    ExpectFailure({"get", "boards/HOST/board_info/status"}, 3, "no value");
    EXPECT_EQ(Get("boards/HOST/sensors/ID_1/value"), "40");
    const std::string set = "INFO     Synchronizing time on board ";
    ASSERT_TRUE(AwaitLog(set + "io_4"));
    EXPECT_EQ(Stop(), 0);

    const std::string line = "INFO     ";
    std::vector<testing::Matcher<std::string>> expected{
        line + std::string(50, '*'),
        line + "***Platform daemon started",
        Answers(io, "board io/1"),
        Answers(icb, "boards icb/0, psu/1, io/4"),
        Answers(host, "board os/0"),
        line + "Fans changed from 0 RPM to 4000 RPM. (Max temperature is 40)",
        line + "Reference for time synchronization is board os_0.",
        line + "Time Synchronization settings:",
        line + "*Time synchronization process started.",
        line + "***Platform daemon is stopping.",
        line + "*Time synchronization process stopped",
        LeftFast()};
    for (const char* worker : {"Monitor", "Damage Protection", "Temperature Control"}) {
        expected.emplace_back(line + worker + " settings:");
        expected.emplace_back(line + "*" + worker + " process started.");
        expected.emplace_back(line + "*" + worker + " process stopped");
    }
    for (const std::string board : {"io_1", "icb_0", "psu_1", "io_4"}) {
        expected.emplace_back(line + "Board " + board + " will be synchronized.");
        expected.emplace_back(StartsWith(set + board + " - difference is "));
    }
    EXPECT_THAT(Messages(), UnorderedElementsAreArray(expected));
    for (const std::string& label : labels) {
        SCOPED_TRACE(label);
        const std::vector<std::string> lines = SensorLog(label);
        for (std::size_t i = c_headerLines; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i].find(";40;-3;12.06;-11.9;17.5;6500"), 26U) << lines[i];
        }
    }
    EXPECT_EQ(icbSimulator.GetRegister(test::c_bmc, 0x40), 297);
    EXPECT_EQ(icbSimulator.CountWrites(test::c_bmc, test::c_chassisControl), 0U);
}

}  // namespace
