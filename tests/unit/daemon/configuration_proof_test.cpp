#include "configuration_proof.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bmc/broken_off.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "tests/support/mock_boards.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using testing::Throw;

/// On the host u:c (7, a temperature), u:b (5, a temperature) of type power_supply and the controller u:a (3, a
/// voltage; 12, a temperature); the lowest upper non-critical limit is 75.
class ConfigurationProof : public testing::Test {
protected:
    /// The findings in sections that begin in line 2.
    static std::vector<std::string> Prove(const std::string& sections) {
        qcfg::Configuration configuration;
        configuration.LoadText("<zelkor>\n" + sections + "</zelkor>", "c.xml");
        qcfg::Findings findings;
        ProveConfiguration(configuration, findings);
        qcfg::SortByLine(findings);
        std::vector<std::string> texts;
        for (const qcfg::Finding& finding : findings) {
            texts.push_back(qcfg::ToText(finding, "c.xml"));
        }
        return texts;
    }

    /// The findings in the entries of the list of a worker, all in line 2.
    static std::vector<std::string> ProveList(const std::string& worker, const std::string& entries) {
        return Prove("<" + worker + "><sensors>" + entries + "</sensors>" +
                     (worker == "temperature_control" ? c_goodFans : "") + "</" + worker + ">\n");
    }

    static std::vector<std::string> ProveFans(const std::string& rows, const std::string& others = "") {
        return Prove("<temperature_control><fans>\n" + rows + "</fans></temperature_control>\n" + others);
    }

    void Silence(test::MockBoard& board) {
        ON_CALL(board, GetSensorsIds).WillByDefault(Throw(qstd::Exception("no answer\nat all")));
    }

    static constexpr const char* c_goodFans = "<fans><set lower='40' upper='70' rpm='6500'/></fans>";
    static constexpr const char* c_silence =
        "c.xml:1: warning: board u:b does not answer, nothing is proved of its sensors: ";

    test::ThreeBoards m_boards;
};

TEST_F(ConfigurationProof, NothingConfigured_NothingToSay) {
    EXPECT_THAT(Prove(""), IsEmpty());
}

TEST_F(ConfigurationProof, GoodLists_NothingToSay) {
    EXPECT_THAT(ProveList("monitor",
                          "<include>all</include><exclude board='u:a'>0x3,12</exclude><include board='u:b'>5</include>"
                          "<exclude boardType='os'>all</exclude><include boardType='44'>3</include>"),
                IsEmpty());
    EXPECT_THAT(ProveList("damage_protection", "<include board='u:a'>3</include>"), IsEmpty());
    EXPECT_THAT(ProveList("temperature_control", "<exclude>all</exclude><include board='u:a'>12</include>"), IsEmpty());
}

TEST_F(ConfigurationProof, BoardThatIsNotThere_NamedWithWhatWasMeant) {
    EXPECT_THAT(ProveList("monitor", "<include board='u:d'>1</include>\n<exclude board='somewhere/1'>all</exclude>"),
                ElementsAre("c.xml:2: error: <include>: the chassis has no board \"u:d\"; did you mean \"u:c\"?",
                            "c.xml:3: warning: <exclude>: the chassis has no board \"somewhere/1\""));
}

TEST_F(ConfigurationProof, TypeThatNoBoardHas_Named) {
    EXPECT_THAT(
        ProveList("monitor", "<include boardType='45'>1</include>\n<exclude boardType='processor'>all</exclude>"),
        ElementsAre("c.xml:2: error: <include>: the chassis has no board of the type \"io\"",
                    "c.xml:3: warning: <exclude>: the chassis has no board of the type \"processor\""));
}

TEST_F(ConfigurationProof, TypeNone_StandsForTheBoardThatIsNamed) {
    EXPECT_THAT(ProveList("monitor", "<include boardType='none' board='u:b'>7</include>"),
                ElementsAre("c.xml:2: error: <include>: board \"u:b\" has no sensor 7"));
}

TEST_F(ConfigurationProof, IdsThatNoChosenBoardHas_EachNamedAsWritten) {
    EXPECT_THAT(ProveList("monitor",
                          "<include board='u:a'>0x3,0x30,49</include>\n<include boardType='os'>5</include>\n"
                          "<include>5,99</include>\n<exclude>0x63</exclude>"),
                ElementsAre("c.xml:2: error: <include>: board \"u:a\" has no sensor 0x30",
                            "c.xml:2: error: <include>: board \"u:a\" has no sensor 49",
                            "c.xml:3: error: <include>: no board of the type \"os\" has a sensor 5",
                            "c.xml:4: error: <include>: no board has a sensor 99",
                            "c.xml:5: warning: <exclude>: no board has a sensor 0x63"));
}

TEST_F(ConfigurationProof, SensorThatTheWorkerCannotWatch_NamedWithItsType) {
    const std::string text =
        ": sensor 0x3 of u:a (V12) is of the type voltage, and <temperature_control> watches temperature sensors only";
    EXPECT_THAT(
        ProveList("temperature_control", "<include board='u:a'>0x3</include>\n<exclude boardType='icb'>0x3</exclude>"),
        ElementsAre("c.xml:2: error: <include>" + text, "c.xml:3: warning: <exclude>" + text));
}

TEST_F(ConfigurationProof, AllOfABoardWithoutSensorsForTheWorker_AnErrorOfAnIncludeOnly) {
    test::MockBoard& psu = m_boards.backend.Add(bmc::Uri("psu", "1"), "PSU1", bmc::BoardType_e::fan);
    psu.Add(test::ThreeBoards::Voltage(), 12);
    EXPECT_THAT(ProveList("monitor", "<include board='psu/1'>all</include>"), IsEmpty());
    EXPECT_THAT(ProveList("temperature_control",
                          "<include board='psu/1'>all</include>\n<include boardType='fan'>all</include>"
                          "<exclude board='psu/1'>all</exclude>"),
                ElementsAre("c.xml:2: error: <include>: board \"psu/1\" has no temperature sensor",
                            "c.xml:3: error: <include>: no board of the type \"fan\" has a temperature sensor"));
}

TEST_F(ConfigurationProof, ListThatSelectsNothing_ErrorUnlessTheWorkerIsDisabled) {
    const std::string sections =
        "<damage_protection><frequency>5</frequency>\n<sensors><exclude>all</exclude></sensors>"
        "</damage_protection>\n";
    EXPECT_THAT(Prove(sections), ElementsAre("c.xml:3: error: <sensors>: no sensor is left to watch: damage_protection "
                                             "ends as soon as it starts"));
    EXPECT_THAT(Prove("<monitor enabled='no'><sensors><exclude>all</exclude></sensors></monitor>"), IsEmpty());
}

TEST_F(ConfigurationProof, ChassisWithoutSensorsForAWorker_Warning) {
    for (test::MockBoard* board : {&m_boards.host, &m_boards.slot2, &m_boards.icb}) {
        ON_CALL(*board, GetSensorsIds).WillByDefault(Return(std::vector<bmc::SensorId>()));
    }
    EXPECT_THAT(Prove("<temperature_control>" + std::string(c_goodFans) + "</temperature_control>"),
                ElementsAre("c.xml:2: warning: <temperature_control>: no sensor is left to watch: temperature_control "
                            "ends as soon as it starts"));
}

TEST_F(ConfigurationProof, BoardThatDoesNotAnswer_WarnsOfWhatIsNotProved) {
    Silence(m_boards.slot2);
    EXPECT_THAT(Prove(""), ElementsAre(c_silence + std::string("no answer?at all")));
    EXPECT_THAT(
        ProveList("monitor",
                  "<include board='u:b'>5,0x6</include>\n<include boardType='power_supply'>all</include>\n"
                  "<exclude>99</exclude>\n<include>7</include><include board='u:a'>13</include>"),
        ElementsAre(c_silence + std::string("no answer?at all"),
                    "c.xml:2: warning: <include>: whether there is a sensor 5, 0x6 cannot be proved: no answer "
                    "from u:b",
                    "c.xml:3: warning: <include>: whether there is a sensor cannot be proved: no answer from u:b",
                    "c.xml:4: warning: <exclude>: whether there is a sensor 99 cannot be proved: no answer from "
                    "u:b",
                    "c.xml:5: error: <include>: board \"u:a\" has no sensor 13"));
}

TEST_F(ConfigurationProof, WarningsOfBoardsThatAnswer_StandAtTheirLineOnceEach) {
    const auto warn = [](std::vector<std::string> texts) {
        return [texts] {
            std::for_each(texts.begin(), texts.end(), qstd::LogWarning);
            qstd::LogInfo("Board u:a has no sensors");
            return std::vector<bmc::SensorId>{};
        };
    };
    ON_CALL(m_boards.icb, GetSensorsIds)
        .WillByDefault(warn({"Not all thresholds of board u:a could be read: 3 is\nrefused",
                             "Not all thresholds of board u:a could be read: 3 is\nrefused", "of a board u:aa"}));
    EXPECT_THAT(Prove("<boards backend='x'>\n<board uri='u:b'/>\n<board uri='u:a'/></boards>"),
                ElementsAre("c.xml:2: warning: of a board u:aa",
                            "c.xml:4: warning: Not all thresholds of board u:a could be read: 3 is?refused"));
}

TEST_F(ConfigurationProof, WarningsOfSilentBoards_AreNotToldTwice) {
    ON_CALL(m_boards.slot2, GetSensorsIds).WillByDefault([]() -> std::vector<bmc::SensorId> {
        qstd::LogWarning("Board u:b does not answer");
        throw qstd::Exception("no answer");
    });
    EXPECT_THAT(Prove(""), ElementsAre(c_silence + std::string("no answer")));
    EXPECT_FALSE(qstd::Log::m_enabled) << "as it was before";
}

TEST_F(ConfigurationProof, SilentBoard_IsToldInItsOwnLine) {
    Silence(m_boards.slot2);
    EXPECT_THAT(Prove("<boards backend='x'>\n<board uri='u:a'/>\n<board uri='u:b'/></boards>"),
                ElementsAre(testing::StartsWith("c.xml:4: warning: board u:b does not answer")));
    EXPECT_THAT(Prove("\n<boards backend='x'/>"),
                ElementsAre(testing::StartsWith("c.xml:3: warning: board u:b does not answer")));
}

TEST_F(ConfigurationProof, WaysNotToAnswer_EachToldAndNoneStopsTheOthers) {
    ON_CALL(m_boards.host, GetFwRevision).WillByDefault(Throw(qstd::Exception("only its records are kept")));
    ON_CALL(m_boards.slot2, GetSensorsIds).WillByDefault(Throw(bmc::BrokenOff("u:b")));
    ON_CALL(m_boards.backend, GetBoard(bmc::Uri("u:a", "ICB", "1"))).WillByDefault(Return(nullptr));
    const std::string text = " does not answer, nothing is proved of its sensors: ";
    EXPECT_THAT(
        Prove("<monitor><sensors><include board='u:c'>1</include></sensors></monitor>"),
        ElementsAre("c.xml:1: warning: board u:c" + text + "only its records are kept",
                    "c.xml:1: warning: board u:b" + text + "it takes too long",
                    "c.xml:1: warning: board u:a" + text + "it is not there",
                    "c.xml:2: warning: <include>: whether there is a sensor 1 cannot be proved: no answer from "
                    "u:c",
                    "c.xml:2: warning: <sensors>: no sensor of the boards that answer is left to watch: monitor "
                    "ends as soon as it starts"));
}

TEST_F(ConfigurationProof, BoardThatThePoolDoesNotFind_MayBeOfAnyType) {
    ON_CALL(m_boards.backend, GetBoard(bmc::Uri("u:a", "ICB", "1"))).WillByDefault(Return(nullptr));
    EXPECT_THAT(ProveList("monitor", "<include boardType='icb'>3</include><include board='u:a'>3</include>"),
                ElementsAre(testing::StartsWith("c.xml:1: warning: "),
                            "c.xml:2: warning: <include>: whether there is a sensor 3 cannot be proved: no answer from "
                            "u:a",
                            "c.xml:2: warning: <include>: whether there is a sensor 3 cannot be proved: no answer from "
                            "u:a"));
}

TEST_F(ConfigurationProof, FanRegistersThatCannotBeRead_ToldAtTheBoardOfTheFans) {
    const std::string boards = "<boards backend='x'>\n<board uri='u:a'/></boards>\n";
    const std::string fans = std::string("<temperature_control>") + c_goodFans + "</temperature_control>";
    const std::string text =
        "c.xml:3: warning: board u:a: its fan registers cannot be read, so the fans do not follow the temperature: ";
    ON_CALL(m_boards.icb, FpgaSpiRead).WillByDefault(Throw(qstd::Exception("0xC1\n(invalid command)")));
    EXPECT_THAT(Prove(boards + fans), ElementsAre(text + "0xC1?(invalid command)"));
    ON_CALL(m_boards.icb, FpgaSpiRead).WillByDefault(Return(bmc::FpgaReadResult{1, 0}));
    EXPECT_THAT(Prove(boards + fans), ElementsAre(text + "the transfer failed"));
    EXPECT_THAT(Prove(boards + "<temperature_control enabled='false'>" + c_goodFans + "</temperature_control>"),
                IsEmpty());
    EXPECT_THAT(Prove(boards), IsEmpty());
}

TEST_F(ConfigurationProof, NoBoardWithFans_AnErrorWhenAllBoardsAnswer) {
    ON_CALL(m_boards.icb, GetType).WillByDefault(Return(bmc::BoardType_e::io));
    EXPECT_THAT(
        Prove(std::string("\n<temperature_control>") + c_goodFans + "</temperature_control>"),
        ElementsAre("c.xml:3: error: <temperature_control>: the chassis has no board of the type \"icb\", through "
                    "which the fans are set"));
    Silence(m_boards.slot2);
    EXPECT_THAT(Prove(std::string("\n<temperature_control>") + c_goodFans + "</temperature_control>"),
                ElementsAre(testing::StartsWith("c.xml:1: warning: board u:b does not answer")));
}

TEST_F(ConfigurationProof, Table_EveryFindingAtItsRow) {
    EXPECT_THAT(
        ProveFans("<set lower='40' upper='50' rpm='3000'/>\n<set lower='55' upper='76' rpm='4000'/>\n"
                  "<set lower='54' upper='80' rpm='6500'/>\n"),
        ElementsAre(
            "c.xml:4: error: Upper temperature limit is invalid: 76 > 75, the upper non-critical limit of "
            "sensor 12 of u:a (Intake)",
            "c.xml:4: warning: gap between 50 and 55 degrees: there the fans change between 3000 and 4000 RPM in "
            "every pass",
            "c.xml:5: error: Upper temperature limit is invalid: 80 > 75, the upper non-critical limit of "
            "sensor 12 of u:a (Intake)",
            "c.xml:5: error: Lower temperature limits are not in sequence: 54 <= 55"));
}

TEST_F(ConfigurationProof, Table_GoesByTheSensorsOfTheList) {
    EXPECT_THAT(Prove("<temperature_control><fans><set lower='40' upper='79' rpm='6500'/></fans>"
                      "<sensors><exclude board='u:a'>12</exclude></sensors></temperature_control>"),
                IsEmpty());
}

TEST_F(ConfigurationProof, Table_GoesByWhatDamageProtectionSwitchesOff) {
    // The limits of this one stand the wrong way round: switched off at 50, not critical before 85.
    test::MockBoard& odd = m_boards.backend.Add(bmc::Uri("io", "1"), "IO1", bmc::BoardType_e::io);
    odd.Add(test::ThreeBoards::Temperature(1, "Odd", 30, 80, 85, 50), 20);
    const std::string control =
        "<temperature_control><sensors><exclude>all</exclude><include board='io/1'>1</include>"
        "</sensors><fans>\n<set lower='40' upper='60' rpm='3000'/>"
        "\n<set lower='55' upper='70' rpm='6500'/></fans></temperature_control>\n";
    const std::string finding =
        "c.xml:4: warning: no watched sensor stays in this band: damage protection switches the board of sensor 1 of "
        "io/1 (Odd), the last one, off above 50 degrees";
    EXPECT_THAT(Prove(control), ElementsAre(finding));
    EXPECT_THAT(Prove(control + "<damage_protection><frequency>1</frequency></damage_protection>"),
                ElementsAre(finding));
    EXPECT_THAT(Prove(control + "<damage_protection enabled='false'/>"), IsEmpty());
    EXPECT_THAT(Prove(control + "<damage_protection><sensors><exclude board='io/1'>all</exclude></sensors>"
                                "</damage_protection>"),
                IsEmpty());
}

TEST_F(ConfigurationProof, NoTable_WarningOnlyWhereTheSectionAsksForControl) {
    EXPECT_THAT(Prove("<temperature_control enabled='true'/>"),
                ElementsAre("c.xml:2: warning: <temperature_control> has no row of a table: the fans always run at "
                            "maximum speed"));
    EXPECT_THAT(Prove("<temperature_control enabled='true'>\n<fans/></temperature_control>"),
                ElementsAre("c.xml:3: warning: <fans> has no row of a table: the fans always run at maximum speed"));
    EXPECT_THAT(Prove("<temperature_control enabled='false'/>"), IsEmpty());
    EXPECT_THAT(Prove("<temperature_control/>"), IsEmpty());  // counts as absent
}

TEST_F(ConfigurationProof, TableOfSensorsThatDoNotAnswer_CannotBeProved) {
    const std::string rows = "<set lower='40' upper='400' rpm='6500'/>\n";
    Silence(m_boards.slot2);
    Silence(m_boards.icb);
    ON_CALL(m_boards.cpu, GetUpperNonCritical).WillByDefault(Return(bmc::SensorReading::NoUpperLimit()));
    std::vector<std::string> findings = ProveFans(rows);
    ASSERT_EQ(findings.size(), 3U);
    EXPECT_EQ(findings[2],
              "c.xml:2: warning: <fans>: the table cannot be proved: no watched sensor that answers has an upper "
              "non-critical limit. As long as that is so the fans run at maximum speed");
    Silence(m_boards.host);
    findings = ProveFans(rows);
    ASSERT_EQ(findings.size(), 4U);
    EXPECT_EQ(findings[3],
              "c.xml:2: warning: <temperature_control>: no sensor of the boards that answer is left to watch: "
              "temperature_control ends as soon as it starts");
}

TEST_F(ConfigurationProof, ReadsOnly) {
    for (test::MockBoard* board : {&m_boards.host, &m_boards.slot2, &m_boards.icb}) {
        EXPECT_CALL(*board, SetTime).Times(0);
        EXPECT_CALL(*board, PowerDown).Times(0);
        EXPECT_CALL(*board, ShutDown).Times(0);
        EXPECT_CALL(*board, FpgaSpiWrite).Times(0);
        EXPECT_CALL(*board, FpgaSpiWriteAll).Times(0);
    }
    EXPECT_CALL(m_boards.core, Read).Times(0);
    EXPECT_THAT(ProveFans("<set lower='40' upper='70' rpm='6500'/>\n",
                          "<damage_protection><sensors><include>3</include></sensors></damage_protection>"),
                IsEmpty());
}

}  // namespace
