// What a start takes from the cache of sensor records, and what of boards that do not answer.

#include <filesystem>

#include "ipmi_daemon_fixture.h"
#include "tests/support/ipmi/sensor_record.h"

namespace {

using test::IpmiSimulator;
using test::SimulatedController;
using test::WithSensors;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* c_quickToGiveUp = "cache='cache' timeout='1000' retries='1'";

class IpmiRestartTest : public test::IpmiDaemonTest {
protected:
    std::vector<std::string> CacheFiles() const {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path("cache"))) {
            files.push_back(entry.path().string());
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    /// The file in the cache folder that is the only one whose name holds @p part.
    std::string CacheFile(const std::string& part) const {
        std::vector<std::string> files = CacheFiles();
        files.erase(std::remove_if(
                        files.begin(), files.end(),
                        [&](const std::string& file) { return file.find(part, file.rfind('/')) == std::string::npos; }),
                    files.end());
        EXPECT_THAT(files, SizeIs(1)) << part;
        return files.empty() ? "" : files.front();
    }

    static std::string DoesNotAnswer(const IpmiSimulator& simulator) {
        return "WARNING  Controller 127.0.0.1:" + std::to_string(simulator.GetPort()) + " does not answer: ";
    }
};

TEST_F(IpmiRestartTest, SecondStart_TakesTheRecordsFromTheCache) {
    SimulatedController bmc;
    bmc.sensors = test::SyntheticSensors(60);
    SimulatedController device = test::Satellite(0x84, test::SyntheticSensors(10));
    device.records = test::Records_e::device_records;
    constexpr test::IpmiCommand c_getDeviceSdr{0x04, 0x21};
    IpmiSimulator simulator({.controllers = {bmc, test::Satellite(0x82, test::SyntheticSensors(20)), device}});
    const test::BoardAt icb = test::Icb(simulator);
    StartOn({icb, test::Behind(icb, 0x82, "io/2", "IO2"), test::Behind(icb, 0x84, "io/4", "IO4")});
    const Tree before = TreeOf("boards");
    EXPECT_GE(simulator.CountRequests(test::c_bmc, test::c_getSdr), 80U);
    EXPECT_GE(simulator.CountRequests(0x84, c_getDeviceSdr), 10U);
    EXPECT_THAT(CacheFiles(), SizeIs(3));

    simulator.ResetCounts();
    StartAgain();
    EXPECT_EQ(TreeOf("boards"), before);
    EXPECT_EQ(simulator.CountRequests(test::c_bmc, test::c_getSdr), 0U);
    EXPECT_EQ(simulator.CountRequests(0x84, c_getDeviceSdr), 0U);
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(IpmiRestartTest, RepositoryThatHasChanged_IsReadAnew) {
    IpmiSimulator simulator(WithSensors(3));
    StartOn({test::Icb(simulator)});
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "ID_1\nID_2\nID_3\n");
    test::SimulatedSensor added = test::SyntheticSensors(1).front();
    added.number = 9;
    added.name = "added";
    std::string record;
    for (const std::uint8_t byte : test::ComposeRecord(added, test::c_bmc, 4)) {
        record += " " + std::to_string(byte);
    }
    simulator.Command("main_sdr_add 0x20" + record);
    simulator.Command("sensor_add 0x20 0 9 1 1");
    simulator.Command(
        "sensor_set_event_support 0x20 0 9 enable scanning none 000000000000000 000000000000000 "
        "000000000000000 000000000000000");
    simulator.Command("sensor_set_value 0x20 0 9 33 0");

    simulator.ResetCounts();
    StartAgain();
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "ID_1\nID_2\nID_3\nID_9\n");
    EXPECT_EQ(Ask({"get", "boards/ICB/sensors/ID_9/name", "boards/ICB/sensors/ID_9/value"}), "added\n33\n");
    EXPECT_GE(simulator.CountRequests(test::c_bmc, test::c_getSdr), 4U);
    simulator.ResetCounts();
    StartAgain();
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "ID_1\nID_2\nID_3\nID_9\n");
    EXPECT_EQ(simulator.CountRequests(test::c_bmc, test::c_getSdr), 0U) << "and kept anew";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(IpmiRestartTest, CacheFileThatIsNotWhatWasWritten_IsReadAnewAndNeverBelieved) {
    IpmiSimulator icb(WithSensors(6));
    const IpmiSimulator io(WithSensors(2));
    StartOn({test::Icb(icb), test::Io(1, io)});
    const Tree truth = TreeOf("boards");
    const std::string file = CacheFile("icb");
    const std::string good = test::ReadFile(file);
    const std::string foreign = test::ReadFile(CacheFile("io"));
    ASSERT_GT(good.size(), 100U);
    std::string flipped = good;
    flipped[good.size() / 2] ^= 0x10;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"damaged", flipped},
        {"truncated", good.substr(0, good.size() / 2)},
        {"without its last byte", good.substr(0, good.size() - 1)},
        {"longer", good + good},
        {"of another board", foreign},
        {"empty", ""},
        {"a text", "<zelkor/>\n"}};
    for (const auto& [name, content] : cases) {
        SCOPED_TRACE(name);
        test::WriteFile(file, content);
        icb.ResetCounts();
        StartAgain();
        EXPECT_EQ(TreeOf("boards"), truth);
        EXPECT_GE(icb.CountRequests(test::c_bmc, test::c_getSdr), 6U);
        EXPECT_EQ(test::ReadFile(file), good) << "written anew";
    }
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(IpmiRestartTest, CacheFolderThatCannotBeWritten_CostsAWarningOnly) {
    const IpmiSimulator simulator(WithSensors(3));
    test::WriteFile(m_folder.Path("cache"), "a file where the folder should be");
    StartOn({test::Icb(simulator)});
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "40");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(),
                ElementsAre(StartsWith("WARNING  Sensor records cannot be kept in " + m_folder.Path("cache"))));
}

TEST_F(IpmiRestartTest, NoCache_LeavesNothingBehindAndReadsEveryTime) {
    IpmiSimulator simulator(WithSensors(3));
    StartOn({test::Icb(simulator)}, c_noWorkers, "cache='none'");
    simulator.ResetCounts();
    StartAgain();
    EXPECT_GE(simulator.CountRequests(test::c_bmc, test::c_getSdr), 3U);
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "40");
    EXPECT_EQ(Stop(), 0);
    EXPECT_FALSE(test::Exists(m_folder.Path("cache")));
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(IpmiRestartTest, DeadControllers_CostTheStartLittleAndTheOtherBoardsNothing) {
    const IpmiSimulator icb(WithSensors(6));
    IpmiSimulator gone(WithSensors(6));
    IpmiSimulator frozen(WithSensors(6));
    gone.Stop();
    frozen.Freeze();
    const auto begin = std::chrono::steady_clock::now();
    StartOn({test::Io(1, gone), test::Icb(icb), test::Io(2, frozen)}, c_noWorkers, c_quickToGiveUp);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "ID_1\nID_2\nID_3\nID_4\nID_5\nID_6\n");
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "40");
    EXPECT_EQ(Ask({"ls", "boards"}), "ICB\n") << "nothing is known of the others";
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(),
                testing::IsSupersetOf({HasSubstr(DoesNotAnswer(gone)), HasSubstr(DoesNotAnswer(frozen))}));
}

TEST_F(IpmiRestartTest, DeadControllerThatTheCacheKnows_HasItsSensorsAndItsValuesOnceItAnswers) {
    const IpmiSimulator icb(WithSensors(1));
    IpmiSimulator io(WithSensors(6));
    StartOn({test::Icb(icb), test::Io(1, io)}, c_noWorkers, c_quickToGiveUp);
    const Tree before = TreeOf("boards/IO1");
    EXPECT_EQ(Stop(), 0);
    io.Freeze();
    std::filesystem::remove_all(m_folder.Path("log"));
    StartTraced();
    AwaitReports();
    EXPECT_EQ(Ask({"ls", "boards"}), "ICB\nIO1\n");
    EXPECT_EQ(Ask({"ls", "boards/IO1/sensors"}), "ID_1\nID_2\nID_3\nID_4\nID_5\nID_6\n");
    EXPECT_EQ(Ask({"get", "boards/IO1/sensors/ID_1/name", "boards/IO1/sensors/ID_1/units"}), "Temp 1\ndegrees C\n");
    ExpectFailure({"get", "boards/IO1/sensors/ID_1/value"}, 1, "io/1");
    EXPECT_THAT(Complaints(),
                testing::IsSupersetOf({HasSubstr(DoesNotAnswer(io)),
                                       HasSubstr("WARNING  The sensors of board io/1 are those that it had when it was "
                                                 "last asked, without thresholds: ")}));

    io.Thaw();
    ASSERT_TRUE(Await([&] { return Registry({"get", "boards/IO1/sensors/ID_1/value"}).status == 0; }));
    ASSERT_TRUE(Await([&] { return Registry({"get", "boards/IO1/sensors/ID_1/hnr"}).status == 0; }));
    EXPECT_TRUE(Await([&] { return TreeOf("boards/IO1") == before; })) << "thresholds too";
    EXPECT_TRUE(AwaitLog("INFO     Controller 127.0.0.1:" + std::to_string(io.GetPort()) + " answers again after "));
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
