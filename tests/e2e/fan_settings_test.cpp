// The settings of the temperature control: what it says of them, and which tables it does not take.

#include "single_worker_fixture.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* c_threeBands =
    "<fans><set lower='40' upper='50' rpm='3000'/><set lower='45' upper='60' rpm='4000'/>"
    "<set lower='55' upper='70' rpm='6500'/></fans>";

class FanSettingsTest : public test::WorkerTest {
protected:
    FanSettingsTest() : WorkerTest("temperature_control", "Temperature Control") {}

    static std::string Row(const std::string& lower, const std::string& upper, const std::string& rpm) {
        return "<set lower='" + lower + "' upper='" + upper + "' rpm='" + rpm + "'/>";
    }

    /// Starts the worker disabled with such contents of its section, and stops.
    void SaySettings(const std::string& content, const std::string& chassis = c_threeBoards) {
        RunToItsEnd("<temperature_control enabled='false'>" + content + "</temperature_control>\n", chassis);
    }

    /// The part of its settings from the table on.
    std::vector<std::string> Table() const {
        const auto settings = Settings();
        const auto heading = std::find(settings.begin(), settings.end(), "Temperature to fans conversion table");
        EXPECT_NE(heading, settings.end());
        return {heading == settings.end() ? heading : heading + 1, settings.end()};
    }

    /// The part between the heading of the sensors and that of the table.
    std::vector<std::string> Sensors() const {
        const auto settings = Settings();
        const auto begin = std::find(settings.begin(), settings.end(), "Controlling following sensors");
        const auto end = std::find(begin, settings.end(), "Temperature to fans conversion table");
        EXPECT_NE(end, settings.end());
        return {begin == end ? begin : begin + 1, end};
    }
};

TEST_F(FanSettingsTest, Settings_AreSaidInFull) {
    SaySettings(std::string("<frequency>5</frequency>") + c_threeBands);
    EXPECT_THAT(Settings(), ElementsAre("enabled   = false", "frequency = 5 seconds", "Controlling following sensors",
                                        "  icb/0", "    12  (Intake)", "  io/2", "    5  (Core)", "  os/0",
                                        "    7  (CPU)", "Temperature to fans conversion table", "  40, 50 -> 3000",
                                        "  45, 60 -> 4000", "  55, 70 -> 6500"));
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(FanSettingsTest, TablesWithAnError_AreToldByTheirFirstOneAndDropped) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {Row("50", "40", "1000"), "Temperature limits are invalid: 50 > 40"},
        {Row("40", "76", "1000"), "Upper temperature limit is invalid: 76 > 75"},
        {Row("40", "50", "2000"), "RPM value is out of range  [2500..6500]: 2000"},
        {Row("40", "50", "2499"), "RPM value is out of range  [2500..6500]: 2499"},
        {Row("40", "50", "6501"), "RPM value is out of range  [2500..6500]: 6501"},
        {Row("40", "50", "3000") + Row("40", "60", "4000"), "Lower temperature limits are not in sequence: 40 <= 40"},
        {Row("40", "60", "3000") + Row("45", "60", "4000"), "Upper temperature limits are not in sequence: 60 <= 60"},
        {Row("40", "50", "4000") + Row("45", "60", "3000"), "RPM values are not in sequence: 3000 <= 4000"},
        {Row("40", "50", "4000") + Row("45", "60", "4000"), "RPM values are not in sequence: 4000 <= 4000"},
        // What comes first in a row, and in the table, is told.
        {Row("40", "50", "3000") + Row("30", "20", "100"), "Temperature limits are invalid: 30 > 20"},
        {Row("40", "50", "3000") + Row("30", "20", "100") + Row("80", "90", "0"),
         "Temperature limits are invalid: 30 > 20"},
        // What is missing or no number is 0.
        {"<set lower='40' upper='50'/>", "RPM value is out of range  [2500..6500]: 0"},
        {"<set lower='40' rpm='3000'/>", "Temperature limits are invalid: 40 > 0"},
        {Row("40", "50", "fast"), "RPM value is out of range  [2500..6500]: 0"},
        {"<set/>", "RPM value is out of range  [2500..6500]: 0"}};
    for (const auto& [rows, warning] : cases) {
        SCOPED_TRACE(rows);
        SaySettings("<fans>" + rows + "</fans>");
        EXPECT_THAT(Told(),
                    ElementsAre("WARNING  " + warning, "ERROR    Errors in temperature to fans conversion table!"));
        EXPECT_THAT(Table(), ElementsAre("  Fans are set to maximum speed"));
        const std::string log = Log();
        EXPECT_LT(log.find(warning), log.find("Errors in temperature"));
        EXPECT_LT(log.find("Errors in temperature"), log.find("Temperature Control settings:"));
        EXPECT_LT(log.find("*Temperature Control process started."), log.find(warning));
    }
}

TEST_F(FanSettingsTest, TablesAtTheEdges_AreTaken) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases{
        {Row("40", "40", "2500"), {"  40, 40 -> 2500"}},
        {Row("0", "75", "6500"), {"  0, 75 -> 6500"}},
        {Row("40", "50", "3000") + Row("60", "70", "3001"), {"  40, 50 -> 3000", "  60, 70 -> 3001"}},
        {"<fan lower='1' upper='2' rpm='3'/>" + Row("40", "50", "3000"), {"  40, 50 -> 3000"}},
        // A missing lower limit, as one that is no decimal number, is 0.
        {"<set upper='50' rpm='3000'/>", {"  0, 50 -> 3000"}},
        {Row("0x28", "50", "3000"), {"  0, 50 -> 3000"}},
        {"", {"  Fans are set to maximum speed"}}};
    for (const auto& [rows, table] : cases) {
        SCOPED_TRACE(rows);
        SaySettings("<fans>" + rows + "</fans>");
        EXPECT_THAT(Told(), IsEmpty());
        EXPECT_EQ(Table(), table);
    }
}

TEST_F(FanSettingsTest, LowestUpperNonCriticalLimitOfTheWatchedSensors_BoundsTheTable) {
    const std::string cool = With(c_threeBoards, "unc=\"75\"", "unc=\"65\"");
    SaySettings(c_threeBands, cool);
    EXPECT_THAT(Told(), ElementsAre("WARNING  Upper temperature limit is invalid: 70 > 65",
                                    "ERROR    Errors in temperature to fans conversion table!"));
    // Not when the sensor is not watched; nor does the lower one of a voltage count.
    SaySettings(std::string(c_threeBands) + "<sensors><exclude board='icb/0'>12</exclude></sensors>", cool);
    EXPECT_THAT(Told(), IsEmpty());
    // A limit with a fraction is shown with it.
    SaySettings(c_threeBands, With(c_threeBoards, "unc=\"75\"", "unc=\"69.5\""));
    EXPECT_THAT(Told(), Contains("WARNING  Upper temperature limit is invalid: 70 > 69.5"));
    // A limit of 0 counts as none found yet: the next one replaces it.
    SaySettings(c_threeBands, With(c_threeBoards, "unc=\"75\"", "unc=\"0\""));
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(FanSettingsTest, WithoutAnyUpperNonCriticalLimit_NoTableWithAnUpperLimitIsTaken) {
    std::string chassis = c_threeBoards;
    for (const char* limit : {" unc=\"75\"", " unc=\"80\"", " unc=\"85\""}) {
        chassis = With(chassis, limit, "");
    }
    SaySettings(c_threeBands, chassis);
    EXPECT_THAT(Told(), ElementsAre("WARNING  Upper temperature limit is invalid: 50 > 0",
                                    "ERROR    Errors in temperature to fans conversion table!"));
    SaySettings("<fans>" + Row("0", "0", "2500") + "</fans>", chassis);
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_THAT(Table(), ElementsAre("  0, 0 -> 2500"));
}

TEST_F(FanSettingsTest, Trace_HoldsTheLowestLimitAndWhatDoesNotConvert) {
    RunToItsEnd(
        "<temperature_control enabled='false'><fans>" + Row("0x28", "50", "3000") + "</fans></temperature_control>\n",
        c_threeBoards, {"--trace-level", "2"});
    const std::string trace = test::ReadFile(m_folder.Path("log/zelkor-platformd.trace"));
    EXPECT_THAT(trace, HasSubstr("Lowest HNC found: 75\n"));
    EXPECT_THAT(trace, HasSubstr("bool qcfg::Attribute::GetValue(T&) const [with T = unsigned int]: Cannot cast from "
                                 "config value: Bad cast from 0x28 to unsigned int\n"));
    EXPECT_THAT(Log(), Not(HasSubstr("Bad cast")));
}

TEST_F(FanSettingsTest, Frequency_ThatDoesNotConvertKeepsTheDefault) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"<frequency>abc</frequency>", "60"}, {"<frequency>0x10</frequency>", "16"},
        {"<frequency>1.5</frequency>", "60"}, {"<frequency></frequency>", "60"},
        {"<frequency>-3</frequency>", "-3"},  {"", "60"}};
    for (const auto& [content, seconds] : cases) {
        SCOPED_TRACE(content);
        SaySettings(content);
        EXPECT_EQ(Settings().at(1), "frequency = " + seconds + " seconds");
        EXPECT_THAT(Told(), IsEmpty());
    }
}

TEST_F(FanSettingsTest, SensorLists_ChooseAmongTemperatures) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases{
        {"<exclude board='icb/0'>12</exclude>", {"  io/2", "    5  (Core)", "  os/0", "    7  (CPU)"}},
        {"<exclude>all</exclude><include boardType='icb'>all</include>", {"  icb/0", "    12  (Intake)"}},
        {"<exclude>all</exclude><include board='icb/0'>3</include>", {"  No sensors found!"}},
        {"<exclude>all</exclude><include>0xC,5,99</include>",
         {"  icb/0", "    12  (Intake)", "  io/2", "    5  (Core)"}},
        {"<exclude board='icb/0'>all</exclude><exclude boardType='io'>5</exclude>", {"  os/0", "    7  (CPU)"}}};
    for (const auto& [entries, sensors] : cases) {
        SCOPED_TRACE(entries);
        SaySettings("<sensors>" + entries + "</sensors>");
        EXPECT_EQ(Sensors(), sensors);
        EXPECT_THAT(Told(), IsEmpty());
    }
}

TEST_F(FanSettingsTest, BoardTypeThatIsNone_CostsItsEntry) {
    SaySettings("<sensors><exclude boardType='toaster'>all</exclude></sensors>");
    EXPECT_THAT(Told(),
                ElementsAre("ERROR    Unknown board type used in the include/exclude list. Invalid integer value"));
    EXPECT_THAT(Sensors(), testing::SizeIs(6));
}

TEST_F(FanSettingsTest, SensorThatIsNoNumber_EndsTheWorker) {
    RunToItsEnd("<temperature_control><sensors><exclude>x</exclude></sensors></temperature_control>\n");
    EXPECT_THAT(Told(), ElementsAre("ERROR    Problem in Temperature Control process - Bad cast from x to int"));
    EXPECT_THAT(Log(), Not(HasSubstr("Temperature Control settings:")));
}

TEST_F(FanSettingsTest, SectionThatIsAbsentEmptyOrThereTwice_LeavesTheDefaults) {
    for (const std::string section : {"", "<temperature_control/>\n",
                                      "<temperature_control><frequency>1</frequency></temperature_control>\n"
                                      "<temperature_control><frequency>2</frequency></temperature_control>\n"}) {
        SCOPED_TRACE(section);
        Run(section);
        ASSERT_TRUE(AwaitLog("Fans changed from 0 RPM to 6500 RPM."));
        EXPECT_EQ(Stop(), 0);
        EXPECT_THAT(Told(),
                    ElementsAre("INFO     No settings found for Temperature Control module",
                                "INFO     Configuration for Temperature Control is not available. Using default values",
                                "WARNING  User did not specify valid temperature ranges.",
                                "INFO     Fans changed from 0 RPM to 6500 RPM. (Max temperature is 48)"));
        EXPECT_THAT(Settings(),
                    ElementsAre("enabled   = true", "frequency = 60 seconds", "Controlling following sensors",
                                "  icb/0", "    12  (Intake)", "  io/2", "    5  (Core)", "  os/0", "    7  (CPU)",
                                "Temperature to fans conversion table", "  Fans are set to maximum speed"));
    }
}

}  // namespace
