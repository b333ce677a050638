// What clients of the registry learn of a pass of the monitor.

#include <limits>
#include <stdexcept>
#include <thread>

#include "monitor_fixture.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/notification_capture.h"
#include "tests/support/special_numbers.h"

namespace {

using test::MonitorTest;
using testing::_;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Return;
using testing::Throw;

constexpr const char* c_intake = "boards/icb/sensors/ID_12";

class MonitorNotifications : public MonitorTest {
protected:
    /// What the sensor Intake told of since the last call.
    std::vector<std::string> Told() {
        auto told = m_told.Below(c_intake);
        m_told.Clear();
        return told;
    }

    /// A pass at this reading of Intake. @return what it told.
    std::vector<std::string> ToldAt(double reading) {
        m_boards.intake.Hold(reading);
        if (m_monitor == nullptr) {
            StartAndPass("");
        } else {
            Pass();
        }
        return Told();
    }

    /// What one direct call tells of Intake.
    std::vector<std::string> ToldOf(double value, double previous) {
        Monitor::EmitNotifications(&m_boards.intake, "icb", "12", value, previous);
        return Told();
    }

    test::NotificationCapture m_told{m_application.GetRegistry()};
};

TEST_F(MonitorNotifications, RisingReadings_TellOnTheMostSevereThresholdEveryPassOrOfTheChange) {
    EXPECT_THAT(ToldAt(70), ElementsAre("value/0 70"));
    EXPECT_THAT(ToldAt(70), IsEmpty());
    EXPECT_THAT(ToldAt(71), ElementsAre("value/0 71"));
    EXPECT_THAT(ToldAt(80), ElementsAre("hnc/1 80"));
    EXPECT_THAT(ToldAt(80), ElementsAre("hnc/1 80"));
    EXPECT_THAT(ToldAt(90), ElementsAre("hc/1 90"));
    EXPECT_THAT(ToldAt(100), ElementsAre("hnr/1 100"));
    EXPECT_THAT(ToldAt(70), ElementsAre("value/0 70"));
}

TEST_F(MonitorNotifications, ReadingsThatAreNotRecorded_AreToldAllTheSame) {
    EXPECT_THAT(ToldAt(70), ElementsAre("value/0 70"));
    EXPECT_THAT(ToldAt(71), ElementsAre("value/0 71"));
    EXPECT_FALSE(std::filesystem::exists(SensorLogPath("ICB_1")));
}

TEST_F(MonitorNotifications, FallingReadings_BelowTheLowestTellOnLnc) {
    EXPECT_THAT(ToldAt(-1), ElementsAre("lnc/1 -1"));
    EXPECT_THAT(ToldAt(-6), ElementsAre("lc/1 -6"));
    EXPECT_THAT(ToldAt(-11), ElementsAre("lnc/1 -11"));
    EXPECT_THAT(ToldAt(-11), ElementsAre("lnc/1 -11"));
}

TEST_F(MonitorNotifications, ReadingAtAThreshold_IsNotBeyondIt) {
    EXPECT_THAT(ToldOf(75, 75), IsEmpty());
    EXPECT_THAT(ToldOf(0, 0), IsEmpty());
    EXPECT_THAT(ToldOf(75, 74), ElementsAre("value/0 75"));
    EXPECT_THAT(ToldOf(85, 85), ElementsAre("hnc/1 85"));
    EXPECT_THAT(ToldOf(95, 95), ElementsAre("hc/1 95"));
    EXPECT_THAT(ToldOf(-5, -5), ElementsAre("lnc/1 -5"));
    EXPECT_THAT(ToldOf(-10, -10), ElementsAre("lc/1 -10"));
}

TEST_F(MonitorNotifications, FirstReadingOfZero_IsNoChange) {
    EXPECT_THAT(ToldAt(0.0), IsEmpty());
    EXPECT_THAT(ToldAt(1.0), ElementsAre("value/0 1"));
}

TEST_F(MonitorNotifications, ChangeInTheLastDigits_IsNoChange) {
    EXPECT_THAT(ToldOf(48.0, 48.0 + 1e-8), IsEmpty());
    EXPECT_THAT(ToldOf(48.0, 48.0 + 1e-6), ElementsAre("value/0 48"));
}

TEST_F(MonitorNotifications, ReadingThatIsNotAvailable_IsToldOnce) {
    EXPECT_THAT(ToldAt(48), ElementsAre("value/0 48"));
    EXPECT_THAT(ToldAt(c_nan), ElementsAre("value/0 nan"));
    EXPECT_THAT(ToldAt(c_nan), IsEmpty());
    EXPECT_THAT(ToldAt(80), ElementsAre("hnc/1 80"));
}

TEST_F(MonitorNotifications, ThresholdThatIsNotThere_IsNeverPassed) {
    ON_CALL(m_boards.intake, GetUpperNonRecoverable).WillByDefault(Return(bmc::SensorReading::NotAvailable(c_nan)));
    EXPECT_THAT(ToldAt(100), ElementsAre("hc/1 100"));
    EXPECT_EQ(m_log.Count("W: Sensor value is above HC (id = ICB_1[12]:Intake; value = 100 C; HC = 85)"), 1);
    ON_CALL(m_boards.intake, GetUpperNonRecoverable).WillByDefault(Return(bmc::SensorReading::NoUpperLimit()));
    ON_CALL(m_boards.intake, GetLowerNonRecoverable).WillByDefault(Return(bmc::SensorReading::NoLowerLimit()));
    EXPECT_THAT(ToldOf(100, 100), ElementsAre("hc/1 100"));
    EXPECT_THAT(ToldOf(-100, -100), ElementsAre("lc/1 -100"));
}

TEST_F(MonitorNotifications, ThresholdThatIsNotValid_CountsByWhatItConvertsTo) {
    ON_CALL(m_boards.intake, GetUpperNonRecoverable).WillByDefault(Return(bmc::SensorReading::NotAvailable(0.0)));
    EXPECT_THAT(ToldAt(48), ElementsAre("hnr/1 48"));
    EXPECT_THAT(ToldAt(48), ElementsAre("hnr/1 48"));
    EXPECT_THAT(m_log.Messages(), Each(Not(HasSubstr("W: "))));
}

TEST_F(MonitorNotifications, EverySensorOfEveryBoard_TellsOnItsOwnNode) {
    StartAndPass("");
    EXPECT_THAT(m_told.All(),
                ElementsAre("boards/icb/sensors/ID_3/value/0 12", "boards/icb/sensors/ID_12/value/0 48",
                            "boards/slot2/sensors/ID_5/value/0 40", "boards/host/sensors/ID_7/value/0 45"));
}

TEST_F(MonitorNotifications, DisabledMonitor_TellsNothing) {
    StartAndEnd("<monitor enabled='false'/>");
    EXPECT_THAT(m_told.All(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("sensors")));
}

TEST_F(MonitorNotifications, MissingNodes_AreNamedInAnErrorAndNothingElseHappens) {
    Monitor::EmitNotifications(&m_boards.intake, "slot9", "12", 70, 0);
    Monitor::EmitNotifications(&m_boards.intake, "icb", "99", 70, 0);
    Monitor::EmitNotifications(&m_boards.intake, "", "12", 70, 0);
    Monitor::EmitNotifications(&m_boards.intake, "icb/sensors", "12", 70, 0);
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Error at emitting notifications. No node \"slot9\" under \"boards\"",
                            "E: Error at emitting notifications. No node \"ID_99\" under \"sensors\"",
                            "E: Error at emitting notifications. No node \"\" under \"boards\"",
                            "E: Error at emitting notifications. No node \"icb/sensors\" under \"boards\""));
    EXPECT_THAT(m_told.All(), IsEmpty());
}

TEST_F(MonitorNotifications, MissingNode_IsAnErrorEvenWhenThereIsNothingToTell) {
    Monitor::EmitNotifications(&m_boards.intake, "slot9", "12", 48, 48);
    EXPECT_EQ(m_log.Count("E: Error at emitting notifications. No node \"slot9\" under \"boards\""), 1);
}

TEST_F(MonitorNotifications, BoardWithoutANode_CostsAnErrorAPassAndTheReadingIsKept) {
    ON_CALL(m_boards.icb, GetShortName).WillByDefault(Return("renamed"));
    m_boards.intake.Hold(80);
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    Pass();
    const std::string error = "E: Error at emitting notifications. No node \"renamed\" under \"boards\"";
    EXPECT_EQ(m_log.Count(error), 4);  // two sensors, two passes
    EXPECT_EQ(m_log.Count("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"), 1);
    EXPECT_TRUE(std::filesystem::exists(SensorLogPath("ICB_1")));
}

TEST_F(MonitorNotifications, SensorThatRaises_IsAnErrorOfTheEmission) {
    ON_CALL(m_boards.intake, GetUpperCritical).WillByDefault(Throw(qstd::Exception("bus")));
    EXPECT_THAT(ToldOf(80, 0), IsEmpty());
    ON_CALL(m_boards.intake, GetUpperCritical).WillByDefault(Throw(42));
    EXPECT_THAT(ToldOf(80, 0), IsEmpty());
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Error at emitting notifications. bus",
                                              "E: Error at emitting notifications. Unknown exception."));
}

TEST_F(MonitorNotifications, ThresholdThatRaisesForTheMessages_LeavesNothingToTell) {
    ON_CALL(m_boards.intake, GetUpperCritical).WillByDefault(Throw(qstd::Exception("bus")));
    EXPECT_THAT(ToldAt(80), IsEmpty());
    EXPECT_EQ(m_log.Count("E: Problem accessing sensor id: 12 on board ICB_1. Exception: bus"), 1);
}

TEST_F(MonitorNotifications, ShortNameThatRaises_IsTheSensorsError) {
    ON_CALL(m_boards.icb, GetShortName).WillByDefault(Throw(qstd::Exception("bus")));
    EXPECT_THAT(ToldAt(80), IsEmpty());
    EXPECT_EQ(m_log.Count("E: Problem accessing sensor id: 12 on board ICB_1. Exception: bus"), 1);
}

TEST_F(MonitorNotifications, FileThatCannotBeWritten_HoldsUpNoNotification) {
    std::filesystem::create_directories(SensorLogPath("ICB_1"));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    Told();
    EXPECT_THAT(ToldAt(80), ElementsAre("hnc/1 80"));
}

TEST_F(MonitorNotifications, ClientsThatReadAllLeavesDuringPasses_SeeWholeValues) {
    StartAndPass("");
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client) {
        clients.emplace_back([this] {
            for (int round = 0; round < 10; ++round) {
                const std::string dump =
                    qnode::Node(m_application.GetRegistry()).DumpSubTree(-1, 0, qnode::Node::c_defMaxValueLen);
                EXPECT_THAT(dump, HasSubstr("name = Intake\n"));
            }
        });
    }
    for (const double reading : {50.0, 80.0, 90.0, 100.0, 50.0}) {
        m_boards.intake.Hold(reading);
        Pass();
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_THAT(Told(), ElementsAre("value/0 48", "value/0 50", "hnc/1 80", "hc/1 90", "hnr/1 100", "value/0 50"));
}

}  // namespace
